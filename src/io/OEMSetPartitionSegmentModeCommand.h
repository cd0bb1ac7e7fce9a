#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Registers the PCI address mode of a powered-off partition (0 bus, 1
// segment); it takes effect at the next power-on.
class OEMSetPartitionSegmentModeCommand : public IPMIClientCommand {
public:
    explicit OEMSetPartitionSegmentModeCommand(IPMIRequester& requester);

    void setPartSegmentMode(unsigned int partition, unsigned char mode);
};

} // namespace OrbLib::ipmiclient
