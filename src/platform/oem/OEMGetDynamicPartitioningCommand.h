#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the dynamic reconfiguration enables of a partition: current, then registered.
class OEMGetDynamicPartitioningCommand : public IPMIClientCommand {
public:
    explicit OEMGetDynamicPartitioningCommand(IPMIRequester& requester);

    void getDynamicPartitioningEnables(unsigned int partition, std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
