#include "ShowPartitionMemoryOperationMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

ShowPartitionMemoryOperationMode::ShowPartitionMemoryOperationMode() : ShowMemoryModeCommand("memory_operation_mode") {}

void ShowPartitionMemoryOperationMode::getPartitionMemoryOperationModeInfo(IPMIRequester& requester)
{
    readRecord(requester, "OEM Get Partition MemoryOperation Mode Command");
}

void ShowPartitionMemoryOperationMode::printPartitionMemoryOperationMode()
{
    namespace wire = partmode::wire;
    printCurrentAndSetting(wire::kMirrorModeCurrentOperation, wire::kMirrorModeSettingOperation,
                           &MemoryMode::operationModeWord, "GetPartitionMemoryOperationMode");
}
