#include "OEMGetPartitionInfoCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetPartitionInfoCommand::OEMGetPartitionInfoCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetPartitionInfo.netFn,
                        partmode::wire::kGetPartitionInfo.command)
{
}

void OEMGetPartitionInfoCommand::getPartitionInfo(int partition, IpmiData::PartitionInfo& out)
{
    out.assign(send(partmode::wire::kGetPartitionInfo, {static_cast<std::uint8_t>(partition)}));
}

} // namespace OrbLib::ipmiclient
