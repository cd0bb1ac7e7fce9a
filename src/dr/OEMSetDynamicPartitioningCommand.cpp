#include "OEMSetDynamicPartitioningCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMSetDynamicPartitioningCommand::OEMSetDynamicPartitioningCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kSetDynamicPartitioning.netFn,
                        partmode::wire::kSetDynamicPartitioning.command)
{
}

void OEMSetDynamicPartitioningCommand::setDynamicPartitioningEnables(unsigned int partition, unsigned char enables)
{
    send(partmode::wire::kSetDynamicPartitioning, {static_cast<std::uint8_t>(partition), enables});
}

} // namespace OrbLib::ipmiclient
