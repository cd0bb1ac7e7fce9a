#include "ShowPartitionSparingMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

ShowPartitionSparingMode::ShowPartitionSparingMode() : ShowMemoryModeCommand("memory_sparing_mode") {}

void ShowPartitionSparingMode::getPartitionSparingModeInfo(IPMIRequester& requester)
{
    readRecord(requester, "OEM Get Partition Mirror Mode Command");
}

void ShowPartitionSparingMode::printPartitionSparingMode()
{
    namespace wire = partmode::wire;
    // Unknown bytes are traced with the mirror RAS mode's label, as this command
    // always has done.
    printCurrentAndSetting(wire::kMirrorModeCurrentOperation, wire::kMirrorModeSettingOperation,
                           &MemoryMode::sparingModeWord, "GetPartitionMemoryMirrorRasMode");
}
