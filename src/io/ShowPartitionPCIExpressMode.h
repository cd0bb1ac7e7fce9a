#pragma once

#include "PartitionModeCommand.h"

#include <vector>

// show partition pci_express_mode PARTITION: prints the current PCI Express
// mode of a partition.
class ShowPartitionPCIExpressMode : public PartitionModeCommand {
public:
    ShowPartitionPCIExpressMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getPartitionPCIExpressModeInfo(IPMIRequester& requester);
    void printPartitionPCIExpressMode();

protected:
    void showMode(IPMIRequester& requester) override;

private:
    std::vector<unsigned char> pciExpressModeInfo_;
};
