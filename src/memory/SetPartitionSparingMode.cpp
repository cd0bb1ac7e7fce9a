#include "SetPartitionSparingMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

#include <cstdio>
#include <iostream>

SetPartitionSparingMode::SetPartitionSparingMode() : SetMemoryModeCommand("memory_sparing_mode") {}

bool SetPartitionSparingMode::getSparingModeString(const char* word)
{
    return takeMode(MemoryMode::valueOf(MemoryMode::kSparingModeWords, word));
}

void SetPartitionSparingMode::formatAuditText(char* auditText) const
{
    const char* text = "Memory Sparing Mode=auto";
    if (mode_ == MemoryMode::kSpareOneRank) {
        text = "Memory Sparing Mode=1rank";
    } else if (mode_ == MemoryMode::kSpareTwoRank) {
        text = "Memory Sparing Mode=2rank";
    }
    std::snprintf(auditText, kTextBufferSize, "%s", text);
}

int SetPartitionSparingMode::setSparingModeInfo(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    readRecordForChange(requester, "OEM Get Partition Mirror Mode Command");
    // The current mode counts: spare that is only registered is not enough.
    const int current = record_[wire::kMirrorModeCurrentOperation];
    if (!MemoryMode::isSpare(current)) {
        std::cerr << "Unable to change the mode because Memory Operation Mode is not spare mode." << std::endl;
        traceFailure("%s (not in spare mode)", current, 0);
        return 2;
    }
    if (!confirmChange(current)) {
        return 0;
    }
    return registerMode(record_[wire::kMirrorModeEnable], static_cast<std::uint8_t>(mode_),
                        record_[wire::kMirrorModeSettingMirrorRas]);
}
