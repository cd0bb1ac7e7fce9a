#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Asks whether extended partitioning mode is on for a partition.
class OEMGetXPARModeCommand : public IPMIClientCommand {
public:
    explicit OEMGetXPARModeCommand(IPMIRequester& requester);

    bool isXPARMode(unsigned char partition);
};

} // namespace OrbLib::ipmiclient
