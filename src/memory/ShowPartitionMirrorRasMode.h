#pragma once

#include "ShowMemoryModeCommand.h"

// show [partition] memory_mirror_ras_mode [PARTITION]: prints the current and the
// registered mirror RAS mode.
class ShowPartitionMirrorRasMode : public ShowMemoryModeCommand {
public:
    ShowPartitionMirrorRasMode();

    void getPartitionMirrorRasModeInfo(IPMIRequester& requester);
    void printPartitionMirrorRasMode();

protected:
    void showMode(IPMIRequester& requester) override { getPartitionMirrorRasModeInfo(requester); }
    void printMode() override { printPartitionMirrorRasMode(); }
};
