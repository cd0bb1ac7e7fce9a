#include "OEMGetDynamicPartitioningCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetDynamicPartitioningCommand::OEMGetDynamicPartitioningCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetDynamicPartitioning.netFn,
                        partmode::wire::kGetDynamicPartitioning.command)
{
}

void OEMGetDynamicPartitioningCommand::getDynamicPartitioningEnables(unsigned int partition,
                                                                     std::vector<unsigned char>& out)
{
    const auto response = send(partmode::wire::kGetDynamicPartitioning, {static_cast<std::uint8_t>(partition)});
    out.insert(out.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
