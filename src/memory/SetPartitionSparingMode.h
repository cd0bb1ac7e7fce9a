#pragma once

#include "SetMemoryModeCommand.h"

// set [partition] memory_sparing_mode [PARTITION] 1|2|auto [quiet]: registers
// the sparing variant of a partition that runs in spare mode.
class SetPartitionSparingMode : public SetMemoryModeCommand {
public:
    SetPartitionSparingMode();

    bool getSparingModeString(const char* word);
    int setSparingModeInfo(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    bool parseModeWord(const char* word) override { return getSparingModeString(word); }
    int setModeInfo(IPMIRequester& requester) override { return setSparingModeInfo(requester); }
};
