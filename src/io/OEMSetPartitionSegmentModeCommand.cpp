#include "OEMSetPartitionSegmentModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMSetPartitionSegmentModeCommand::OEMSetPartitionSegmentModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kSetPCIAddressMode.netFn,
                        partmode::wire::kSetPCIAddressMode.command)
{
}

void OEMSetPartitionSegmentModeCommand::setPartSegmentMode(unsigned int partition, unsigned char mode)
{
    send(partmode::wire::kSetPCIAddressMode, {static_cast<std::uint8_t>(partition), mode});
}

} // namespace OrbLib::ipmiclient
