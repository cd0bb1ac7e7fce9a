#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the PCI Express mode of a partition: byte 0 the current mode, byte 1
// the registered setting (0 fixed, 1 flexible).
class OEMGetPartitionPCIExpressModeCommand : public IPMIClientCommand {
public:
    explicit OEMGetPartitionPCIExpressModeCommand(IPMIRequester& requester);

    // Appends the response bytes to `out`.
    void getPartPCIExpressMode(unsigned int partition, std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
