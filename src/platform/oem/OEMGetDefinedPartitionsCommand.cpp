#include "OEMGetDefinedPartitionsCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetDefinedPartitionsCommand::OEMGetDefinedPartitionsCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetDefinedPartitions.netFn,
                        partmode::wire::kGetDefinedPartitions.command)
{
}

void OEMGetDefinedPartitionsCommand::getDefinedPartitions(std::vector<unsigned char>& out)
{
    const auto response = send(partmode::wire::kGetDefinedPartitions, {});
    out.insert(out.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
