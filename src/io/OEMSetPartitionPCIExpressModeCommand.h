#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Sets the PCI Express mode of a powered-off partition (0 fixed, 1 flexible).
class OEMSetPartitionPCIExpressModeCommand : public IPMIClientCommand {
public:
    explicit OEMSetPartitionPCIExpressModeCommand(IPMIRequester& requester);

    void setPartPCIExpressMode(unsigned int partition, unsigned char mode);
};

} // namespace OrbLib::ipmiclient
