#pragma once

#include "ShowMemoryModeCommand.h"

// show [partition] memory_operation_mode [PARTITION]: prints the current and the
// registered memory operation mode.
class ShowPartitionMemoryOperationMode : public ShowMemoryModeCommand {
public:
    ShowPartitionMemoryOperationMode();

    void getPartitionMemoryOperationModeInfo(IPMIRequester& requester);
    void printPartitionMemoryOperationMode();

protected:
    void showMode(IPMIRequester& requester) override { getPartitionMemoryOperationModeInfo(requester); }
    void printMode() override { printPartitionMemoryOperationMode(); }
};
