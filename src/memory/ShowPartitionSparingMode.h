#pragma once

#include "ShowMemoryModeCommand.h"

// show [partition] memory_sparing_mode [PARTITION]: prints the current and the
// registered sparing variant, which the memory operation mode carries.
class ShowPartitionSparingMode : public ShowMemoryModeCommand {
public:
    ShowPartitionSparingMode();

    void getPartitionSparingModeInfo(IPMIRequester& requester);
    void printPartitionSparingMode();

protected:
    void showMode(IPMIRequester& requester) override { getPartitionSparingModeInfo(requester); }
    void printMode() override { printPartitionSparingMode(); }
};
