#include "OEMSetPartitionPCIExpressModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMSetPartitionPCIExpressModeCommand::OEMSetPartitionPCIExpressModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kSetPCIExpressMode.netFn,
                        partmode::wire::kSetPCIExpressMode.command)
{
}

void OEMSetPartitionPCIExpressModeCommand::setPartPCIExpressMode(unsigned int partition, unsigned char mode)
{
    send(partmode::wire::kSetPCIExpressMode, {static_cast<std::uint8_t>(partition), mode});
}

} // namespace OrbLib::ipmiclient
