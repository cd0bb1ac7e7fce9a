#include "SetPartitionMirrorRasMode.h"

#include "MemoryMode.h"
#include "OemProtocol.h"

#include <cstdio>

SetPartitionMirrorRasMode::SetPartitionMirrorRasMode() : SetMemoryModeCommand("memory_mirror_ras_mode") {}

bool SetPartitionMirrorRasMode::getMirrorRasModeString(const char* word)
{
    return takeMode(MemoryMode::valueOf(MemoryMode::kMirrorRasModeWords, word));
}

void SetPartitionMirrorRasMode::formatAuditText(char* auditText) const
{
    std::snprintf(auditText, kTextBufferSize, "%s",
                  mode_ == MemoryMode::kMirrorKeep ? "Memory Mirror Ras Mode=Mirror Keep"
                                                   : "Memory Mirror Ras Mode=Capacity Keep");
}

int SetPartitionMirrorRasMode::setMirrorRasModeInfo(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    readRecordForChange(requester, "OEM Get Partition Mirror Mode Command");
    if (!confirmChange(record_[wire::kMirrorModeCurrentMirrorRas])) {
        return 0;
    }
    return registerMode(record_[wire::kMirrorModeEnable], record_[wire::kMirrorModeSettingOperation],
                        static_cast<std::uint8_t>(mode_));
}
