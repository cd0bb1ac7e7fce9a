#include "ShowPartitionMirrorRasMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

ShowPartitionMirrorRasMode::ShowPartitionMirrorRasMode() : ShowMemoryModeCommand("memory_mirror_ras_mode") {}

void ShowPartitionMirrorRasMode::getPartitionMirrorRasModeInfo(IPMIRequester& requester)
{
    readRecord(requester, "OEM Get Partition Mirror Mode Command");
}

void ShowPartitionMirrorRasMode::printPartitionMirrorRasMode()
{
    namespace wire = partmode::wire;
    printCurrentAndSetting(wire::kMirrorModeCurrentMirrorRas, wire::kMirrorModeSettingMirrorRas,
                           &MemoryMode::mirrorRasModeWord, "GetPartitionMemoryMirrorRasMode");
}
