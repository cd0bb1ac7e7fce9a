#pragma once

#include "PartitionModeCommand.h"

#include <vector>

// show partition pci_address_mode PARTITION: prints the current PCI address
// mode of a partition and the one registered for its next power-on.
class ShowPartitionPCIAddressMode : public PartitionModeCommand {
public:
    ShowPartitionPCIAddressMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getPartitionPCIAddressModeInfo(IPMIRequester& requester);
    void printPartitionPCIAddressMode();

protected:
    void showMode(IPMIRequester& requester) override;

private:
    std::vector<unsigned char> segmentModeInfo_;
};
