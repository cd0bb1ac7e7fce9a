#pragma once

#include "SetMemoryModeCommand.h"

// set [partition] memory_mirror_ras_mode [PARTITION] mirror_keep|capacity_keep
// [quiet]: registers the mirror RAS mode of the next power-on.
class SetPartitionMirrorRasMode : public SetMemoryModeCommand {
public:
    SetPartitionMirrorRasMode();

    bool getMirrorRasModeString(const char* word);
    int setMirrorRasModeInfo(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    bool parseModeWord(const char* word) override { return getMirrorRasModeString(word); }
    int setModeInfo(IPMIRequester& requester) override { return setMirrorRasModeInfo(requester); }
};
