#include "ShowPartitionLanDeviceMode.h"

#include "CommonUtil.h"
#include "ConsoleLine.h"
#include "OemProtocol.h"
#include "PartModeUtil.h"

#include <iostream>
#include <sstream>

ShowPartitionLanDeviceMode::ShowPartitionLanDeviceMode() : LanDeviceModeCommand("show", kLanTraceComponent) {}

bool ShowPartitionLanDeviceMode::parseCommand(int argc, char** argv)
{
    appendArguments(argc, argv);
    const int expected = partitionArguments();
    if (argc < expected) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (!parsePartitionNumber(argv)) {
        return false;
    }
    if (argc > expected) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return true;
}

// The partition number is used as given (only physical partitions are taken),
// and success leaves no trace line.
int ShowPartitionLanDeviceMode::execute()
{
    try {
        IPMIRequester requester(sessionSetup());
        // A partition without I/O units prints nothing and is no failure.
        getPartitionLanDeviceModeInfo(requester);
        printPartitionLanDeviceMode(requester);
        return 0;
    } catch (const PException& exception) {
        return reportException(exception);
    }
}

bool ShowPartitionLanDeviceMode::getPartitionLanDeviceModeInfo(IPMIRequester& requester)
{
    iouNumbers_.clear();
    readNodeIds(requester, nodeIds_);
    for (const unsigned char nodeId : nodeIds_) {
        if (isIoUnit(nodeId)) {
            iouNumbers_.push_back(static_cast<unsigned char>(ioUnitNumber(nodeId)));
        }
    }
    if (!iouNumbers_.empty()) {
        return true;
    }
    constexpr std::size_t kMessageSize = 128;
    ConsoleLine::printError(ConsoleLine::format(kMessageSize, "No IOU on specified partition."));
    return false;
}

void ShowPartitionLanDeviceMode::printPartitionLanDeviceMode(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    std::ostringstream lines;
    for (const unsigned char unit : iouNumbers_) {
        readLanDeviceMode(requester, unit, lanDeviceMode_);
        const unsigned char mode = lanDeviceMode_[0];
        // A disabled device cannot wake the partition either.
        const bool lanEnabled = (mode & wire::kLanDeviceDisabled) == 0;
        const bool wolEnabled = lanEnabled && (mode & wire::kLanWakeOnLanDisabled) == 0;
        // "enable " keeps its blank so that the wol column lines up.
        const char* lanText = lanEnabled ? "enable " : "disable";
        const char* wolText = wolEnabled ? "enable " : "disable";
        lines << CommonUtil::getDisplayUnitName(COMMON_UNIT_IO_UNIT, unit) << ": LAN Device: " << lanText
              << "  wol: " << wolText << '\n';
    }
    std::cout << lines.str() << std::flush;
}
