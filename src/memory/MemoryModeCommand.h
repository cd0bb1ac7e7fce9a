#pragma once

#include "PartitionModeCommand.h"

#include <cstddef>
#include <vector>

// What the memory mode commands share: their command name and the partition
// mirror mode record they read.
class MemoryModeCommand : public PartitionModeCommand {
protected:
    // "<verb> partition <keyword>"; a single-partition system drops "partition".
    MemoryModeCommand(const char* verb, const char* keyword);

    static bool isSinglePartitionSystem();

    // Empties the record and reads it. A failure, or a record shorter than
    // `minimumSize`, is traced as message 20003 with `label` and thrown on.
    void readRecord(IPMIRequester& requester, const char* label, std::size_t minimumSize = 0);
    // Byte `index` of the record; -1, which is no mode, when the record is shorter.
    [[nodiscard]] int recordByte(std::size_t index) const;

    std::vector<unsigned char> record_;
};
