#include "SetPartitionLanDeviceMode.h"

#include "OEMSetLanDeviceModeCommand.h"
#include "OemProtocol.h"
#include "PartModeUtil.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace {

// A LAN device mode word, the mode byte it sends and its audit text.
struct LanDeviceModeWord {
    const char* word;
    int mode;
    const char* auditText;
};

namespace wire = partmode::wire;

constexpr std::array<LanDeviceModeWord, 3> kLanDeviceModeWords{{
    {"wol_enable", 0, "Lan Device Mode=Wol Enable"},
    {"wol_disable", wire::kLanWakeOnLanDisabled, "Lan Device Mode=Wol Disable"},
    {"device_disable", wire::kLanDeviceDisabled | wire::kLanWakeOnLanDisabled, "Lan Device Mode=Device Disable"},
}};

} // namespace

SetPartitionLanDeviceMode::SetPartitionLanDeviceMode() : LanDeviceModeCommand("set", kTraceComponent) {}

bool SetPartitionLanDeviceMode::parseCommand(int argc, char** argv)
{
    appendArguments(argc, argv);
    const int first = partitionArguments();
    if (argc < first + 2) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (!parsePartitionNumber(argv)) {
        return false;
    }
    if (!PartModeUtil::checkUnitNumber(argv[first], 1, unitNumber_) || !getLanDeviceModeString(argv[first + 1])) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return parseQuietOption(argc, argv, first + 2, quiet_);
}

bool SetPartitionLanDeviceMode::getLanDeviceModeString(const char* word)
{
    for (const auto& mode : kLanDeviceModeWords) {
        if (PartModeUtil::checkKeyword(word, mode.word)) {
            lanDeviceMode_ = mode.mode;
            return true;
        }
    }
    return false;
}

int SetPartitionLanDeviceMode::execute() { return executeSetFrame(); }

void SetPartitionLanDeviceMode::formatAuditText(char* auditText) const
{
    for (const auto& mode : kLanDeviceModeWords) {
        if (mode.mode == lanDeviceMode_) {
            std::snprintf(auditText, kTextBufferSize, "%s", mode.auditText);
        }
    }
}

int SetPartitionLanDeviceMode::changeMode(IPMIRequester& requester)
{
    if (const int result = checkChangeAllowed(requester, Wording::SystemOnSinglePartition); result != 0) {
        return result;
    }
    // Scripts rely on these values: a mode that was sent ends with 1; a unit
    // outside the partition or a declined prompt ends with 0, traced and
    // audited as done.
    return setLanDeviceModeInfo(requester) ? 1 : 0;
}

// Traced before the failure line, which goes through the shared console routine.
int SetPartitionLanDeviceMode::handleSetException(const PException& exception)
{
    traceException(exception);
    printFailureOnConsole();
    return 2;
}

bool SetPartitionLanDeviceMode::setLanDeviceModeInfo(IPMIRequester& requester)
{
    const auto requested = static_cast<unsigned char>(lanDeviceMode_);
    currentLanDeviceMode_.clear();
    readNodeIds(requester, nodeIds_);
    const bool unitFound = std::any_of(nodeIds_.begin(), nodeIds_.end(), [this](unsigned char nodeId) {
        return isIoUnit(nodeId) && ioUnitNumber(nodeId) == unitNumber_;
    });
    if (!unitFound) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    readLanDeviceMode(requester, unitNumber_, currentLanDeviceMode_);
    // A unit already in the requested mode is set again without asking.
    if (!quiet_ && currentLanDeviceMode_[0] != requested && !confirmNextPowerCycle(Wording::SystemOnSinglePartition)) {
        return false;
    }
    traceRequestFailure("OEM Set Partition Lan Device Mode Command", [&] {
        IPMIRequester session(sessionSetup());
        OrbLib::ipmiclient::OEMSetLanDeviceModeCommand(session).setLanDeviceMode(unitNumber_, requested);
    });
    return true;
}
