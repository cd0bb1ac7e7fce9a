#pragma once

#include "LanDeviceModeCommand.h"

#include <vector>

// show [partition] lan_device_mode [PARTITION]: prints for every I/O unit of
// a partition whether its LAN device and its wake-on-LAN are enabled. The
// partition number is given only on a multi-partition system.
class ShowPartitionLanDeviceMode : public LanDeviceModeCommand {
public:
    // The LAN device mode commands trace as their own component.
    static constexpr std::uint8_t kLanTraceComponent = 14;

    ShowPartitionLanDeviceMode();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    // Collects the unit numbers of the partition's I/O units; false (with a
    // message) when it has none.
    bool getPartitionLanDeviceModeInfo(IPMIRequester& requester);
    void printPartitionLanDeviceMode(IPMIRequester& requester);

private:
    std::vector<unsigned char> lanDeviceMode_;
    std::vector<unsigned char> nodeIds_;
    std::vector<unsigned char> iouNumbers_;
};
