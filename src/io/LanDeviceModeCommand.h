#pragma once

#include "PartitionModeCommand.h"

#include <cstdint>
#include <vector>

// What the LAN device mode commands share: their command words, which drop
// "partition" on a single-partition system, the partition argument that only
// a multi-partition system takes, and the reads of the partition's I/O units
// and of a unit's mode.
class LanDeviceModeCommand : public PartitionModeCommand {
protected:
    LanDeviceModeCommand(const char* verb, std::uint8_t traceComponent);

    // 1 when the partition number is an argument, 0 on a single-partition
    // system, where the partition is always 0.
    static int partitionArguments();
    // Takes the partition number from the first argument where the system has
    // one; false with the partition-number message when it is refused.
    bool parsePartitionNumber(char** argv);

    // Replaces `nodeIds` with the partition's node ids.
    void readNodeIds(IPMIRequester& requester, std::vector<unsigned char>& nodeIds) const;
    // Replaces `mode` with the unit's answer, mode byte first.
    void readLanDeviceMode(IPMIRequester& requester, unsigned int unit, std::vector<unsigned char>& mode) const;

    static bool isIoUnit(unsigned char nodeId);
    static unsigned int ioUnitNumber(unsigned char nodeId);
};
