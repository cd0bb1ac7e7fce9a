#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the TPM enables of a partition; byte 0 = 1 means TPM is effective.
class OEMGetTPMEnablesCommand : public IPMIClientCommand {
public:
    explicit OEMGetTPMEnablesCommand(IPMIRequester& requester);

    void getTPMEnables(unsigned int partition, std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
