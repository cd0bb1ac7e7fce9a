#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Registers the memory modes a partition takes at its next power-on.
class OEMSetPartitionMirrorModeCommand : public IPMIClientCommand {
public:
    explicit OEMSetPartitionMirrorModeCommand(IPMIRequester& requester);

    // `acceptReservedSb` is 1 once the operator has accepted that a Reserved
    // SB loses the mode; without it the firmware refuses with 0x90.
    void setPartMirrorMode(unsigned int partition, unsigned char modeEnable, unsigned char memoryOperationMode,
                           unsigned char mirrorRasMode, unsigned char acceptReservedSb);
};

} // namespace OrbLib::ipmiclient
