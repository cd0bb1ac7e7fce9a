#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Registers the dynamic reconfiguration enables of a partition (1 enabled,
// 0 disabled); they take effect at the next power-on.
class OEMSetDynamicPartitioningCommand : public IPMIClientCommand {
public:
    explicit OEMSetDynamicPartitioningCommand(IPMIRequester& requester);

    void setDynamicPartitioningEnables(unsigned int partition, unsigned char enables);
};

} // namespace OrbLib::ipmiclient
