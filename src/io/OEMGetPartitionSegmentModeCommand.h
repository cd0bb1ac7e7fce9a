#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the PCI address mode of a partition: byte 0 the current mode, byte 1
// the setting registered for the next power-on (0 bus, 1 segment).
class OEMGetPartitionSegmentModeCommand : public IPMIClientCommand {
public:
    explicit OEMGetPartitionSegmentModeCommand(IPMIRequester& requester);

    // Appends the response bytes to `out`.
    void getPartSegmentMode(unsigned int partition, std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
