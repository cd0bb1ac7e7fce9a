#pragma once

#include "PartitionModeCommand.h"

// set partition pci_express_mode PARTITION fixed|flexible: changes the PCI
// Express mode of a powered-off partition, reads it back and prints it.
class SetPartitionPCIExpressMode : public PartitionModeCommand {
public:
    SetPartitionPCIExpressMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getPCIExpressModeString(const char* word);
    bool checkPartitionPowerStatus(IPMIRequester& requester);
    int setPCIExpressModeInfo(IPMIRequester& requester);
    bool printPartitionPCIExpressMode(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    int changeMode(IPMIRequester& requester) override;

private:
    int pciExpressMode_ = 1;
};
