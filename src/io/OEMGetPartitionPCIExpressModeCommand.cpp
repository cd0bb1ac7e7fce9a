#include "OEMGetPartitionPCIExpressModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetPartitionPCIExpressModeCommand::OEMGetPartitionPCIExpressModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetPCIExpressMode.netFn,
                        partmode::wire::kGetPCIExpressMode.command)
{
}

void OEMGetPartitionPCIExpressModeCommand::getPartPCIExpressMode(unsigned int partition,
                                                                 std::vector<unsigned char>& out)
{
    const auto response = send(partmode::wire::kGetPCIExpressMode, {static_cast<std::uint8_t>(partition)});
    out.insert(out.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
