#include "OEMGetPartitionSegmentModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetPartitionSegmentModeCommand::OEMGetPartitionSegmentModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetPCIAddressMode.netFn,
                        partmode::wire::kGetPCIAddressMode.command)
{
}

void OEMGetPartitionSegmentModeCommand::getPartSegmentMode(unsigned int partition, std::vector<unsigned char>& out)
{
    const auto response = send(partmode::wire::kGetPCIAddressMode, {static_cast<std::uint8_t>(partition)});
    out.insert(out.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
