#include "SetPartitionMemoryOperationMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

#include <array>
#include <cstddef>
#include <cstdio>

SetPartitionMemoryOperationMode::SetPartitionMemoryOperationMode() : SetMemoryModeCommand("memory_operation_mode") {}

bool SetPartitionMemoryOperationMode::getMemoryOperationModeString(const char* word)
{
    return takeMode(MemoryMode::valueOf(MemoryMode::kOperationModeWords, word));
}

void SetPartitionMemoryOperationMode::formatAuditText(char* auditText) const
{
    // Indexed by the modes performance to full_mirror; every other mode is spare.
    constexpr std::array kAuditTexts{"Memory Operation Mode=Performance", "Memory Operation Mode=Normal",
                                     "Memory Operation Mode=Pertial Mirror", "Memory Operation Mode=Full Mirror"};
    const bool listed = mode_ >= 0 && static_cast<std::size_t>(mode_) < kAuditTexts.size();
    std::snprintf(auditText, kTextBufferSize, "%s",
                  listed ? kAuditTexts[static_cast<std::size_t>(mode_)] : "Memory Operation Mode=Spare");
}

int SetPartitionMemoryOperationMode::setMemoryOperationModeInfo(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    readRecordForChange(requester, "OEM Get Partition MemoryOperation Mode Command");
    if (!confirmChange(record_[wire::kMirrorModeCurrentOperation])) {
        return 0;
    }
    // Only the mirror modes keep a mirror RAS mode; any other mode registers
    // mirror_keep again.
    if (mode_ != MemoryMode::kPartialMirror && mode_ != MemoryMode::kFullMirror) {
        record_[wire::kMirrorModeSettingMirrorRas] = MemoryMode::kMirrorKeep;
    }
    const std::uint8_t modeEnable = mode_ == MemoryMode::kPerformance ? 0 : 1;
    return registerMode(modeEnable, static_cast<std::uint8_t>(mode_), record_[wire::kMirrorModeSettingMirrorRas]);
}
