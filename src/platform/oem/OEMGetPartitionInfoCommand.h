#pragma once

#include "IPMIClientCommand.h"
#include "PartitionInfo.h"

namespace OrbLib::ipmiclient {

// Reads the information record of a partition.
class OEMGetPartitionInfoCommand : public IPMIClientCommand {
public:
    explicit OEMGetPartitionInfoCommand(IPMIRequester& requester);

    void getPartitionInfo(int partition, IpmiData::PartitionInfo& out);
};

} // namespace OrbLib::ipmiclient
