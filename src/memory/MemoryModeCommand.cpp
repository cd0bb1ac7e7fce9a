#include "MemoryModeCommand.h"

#include "CommonUtil.h"
#include "OEMGetPartitionMirrorModeCommand.h"
#include "OemProtocol.h"
#include "PException.h"
#include "PlatformError.h"

#include <string>

MemoryModeCommand::MemoryModeCommand(const char* verb, const char* keyword)
    : PartitionModeCommand(std::string(verb) + (isSinglePartitionSystem() ? " " : " partition ") + keyword)
{
}

bool MemoryModeCommand::isSinglePartitionSystem() { return CommonUtil::getMaxPartitionNum() == 1; }

void MemoryModeCommand::readRecord(IPMIRequester& requester, const char* label, std::size_t minimumSize)
{
    record_.clear();
    traceRequestFailure(label, [&] {
        OrbLib::ipmiclient::OEMGetPartitionMirrorModeCommand command(requester);
        command.getPartMirrorMode(partitionNumber_, record_);
        if (record_.size() < minimumSize) {
            throw PException(
                1, 0x52, partmode::wire::kGetPartitionMirrorMode.command, partmode::error::kActionMalformed,
                partmode::error::kDetailResponse, partmode::error::kMessagePlatformFailure,
                {std::string(partmode::wire::kGetPartitionMirrorMode.name), std::string("record too short")});
        }
    });
}

int MemoryModeCommand::recordByte(std::size_t index) const { return index < record_.size() ? record_[index] : -1; }
