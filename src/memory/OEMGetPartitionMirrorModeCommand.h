#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the partition mirror mode record: the current and the registered
// memory operation and mirror RAS modes of a partition.
class OEMGetPartitionMirrorModeCommand : public IPMIClientCommand {
public:
    explicit OEMGetPartitionMirrorModeCommand(IPMIRequester& requester);

    // Appends the record to `record`.
    void getPartMirrorMode(unsigned int partition, std::vector<unsigned char>& record);
};

} // namespace OrbLib::ipmiclient
