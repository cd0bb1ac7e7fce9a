#pragma once

#include "LanDeviceModeCommand.h"

#include <vector>

// set [partition] lan_device_mode [PARTITION] UNIT wol_enable|wol_disable|
// device_disable [quiet]: registers the LAN device mode of one I/O unit of a
// powered-off partition. The partition number is given only on a
// multi-partition system.
class SetPartitionLanDeviceMode : public LanDeviceModeCommand {
public:
    SetPartitionLanDeviceMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getLanDeviceModeString(const char* word);
    // True when the mode was sent; false when the unit is not an I/O unit of
    // the partition or the operator declined.
    bool setLanDeviceModeInfo(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    int changeMode(IPMIRequester& requester) override;
    int handleSetException(const PException& exception) override;
    [[nodiscard]] bool auditsSystemOnSinglePartition() const override { return true; }

private:
    unsigned int unitNumber_ = 0;
    // Device disabled until a mode word says otherwise.
    int lanDeviceMode_ = 0x11;
    bool quiet_ = false;
    std::vector<unsigned char> currentLanDeviceMode_;
    std::vector<unsigned char> nodeIds_;
};
