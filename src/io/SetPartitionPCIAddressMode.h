#pragma once

#include "PartitionModeCommand.h"
#include "PciAddressMode.h"

// set partition pci_address_mode PARTITION bus|segment [quiet]: registers the
// PCI address mode of a powered-off partition for its next power-on.
class SetPartitionPCIAddressMode : public PartitionModeCommand {
public:
    SetPartitionPCIAddressMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getPCIAddressModeString(const char* word);
    // 0 when the setting was sent or the operator declined it, else the exit status.
    int setPCIAddressModeInfo(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    int changeMode(IPMIRequester& requester) override;

private:
    int pciAddressMode_ = PciAddressMode::kSegment;
    bool quiet_ = false;
};
