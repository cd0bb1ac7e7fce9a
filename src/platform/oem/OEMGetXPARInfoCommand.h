#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Reads the parent partition of an extended partition; 255 means it has none.
class OEMGetXPARInfoCommand : public IPMIClientCommand {
public:
    explicit OEMGetXPARInfoCommand(IPMIRequester& requester);

    int getXPARInfo(int partition);
};

} // namespace OrbLib::ipmiclient
