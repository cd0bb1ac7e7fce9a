#pragma once

#include "SetMemoryModeCommand.h"

// set [partition] memory_operation_mode [PARTITION]
// performance|normal|partial_mirror|full_mirror|spare [quiet]: registers the
// memory operation mode of the next power-on.
class SetPartitionMemoryOperationMode : public SetMemoryModeCommand {
public:
    SetPartitionMemoryOperationMode();

    bool getMemoryOperationModeString(const char* word);
    int setMemoryOperationModeInfo(IPMIRequester& requester);

protected:
    void formatAuditText(char* auditText) const override;
    bool parseModeWord(const char* word) override { return getMemoryOperationModeString(word); }
    int setModeInfo(IPMIRequester& requester) override { return setMemoryOperationModeInfo(requester); }
};
