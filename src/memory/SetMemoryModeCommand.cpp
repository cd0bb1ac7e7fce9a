#include "SetMemoryModeCommand.h"

#include "CompletionCode.h"
#include "ConsoleLine.h"
#include "OEMSetPartitionMirrorModeCommand.h"
#include "OemProtocol.h"
#include "PException.h"
#include "PartModeUtil.h"
#include "PlatformError.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>

namespace {

constexpr const char* kReservedSbPrompt =
    "The SB with DIMM that does not satisfy requirements of Mode is registered as a Reserved SB.\n"
    " If you register this partition as a Mode,\n"
    " Mode will be disabled when switching to Reserved SB.\n"
    "Are you sure to continue?[Y/N]";
constexpr const char* kReservedSbReason =
    "The SB with DIMM that does not satisfy requirements of Mode is registered as a Reserved SB.\n";

constexpr std::size_t kReasonBufferSize = 512;
constexpr std::size_t kConsoleBufferSize = 1024;
constexpr std::size_t kSubjectBufferSize = 64;

// Why the firmware refused to register a memory mode, by completion code.
struct RefusalReason {
    std::uint8_t actionCode;
    const char* cause;
};

constexpr std::array kRefusalReasons{
    RefusalReason{0x80, "the CPU mismatch between SBs."},
    RefusalReason{0x81, "the DIMM does not satisfy requirements of Mode."},
    RefusalReason{0x82, "the unsupported CPU configuration."},
    RefusalReason{0x86, "of abnormal CPU composition."},
    RefusalReason{0x88, "of abnormal DIMM composition."},
    RefusalReason{0x8A, "of abnormal SB composition."},
    RefusalReason{0x8B, "of abnormal VRM composition."},
};

const RefusalReason* findRefusalReason(std::uint8_t actionCode)
{
    const auto found = std::find_if(kRefusalReasons.begin(), kRefusalReasons.end(),
                                    [&](const RefusalReason& reason) { return reason.actionCode == actionCode; });
    return found != kRefusalReasons.end() ? &*found : nullptr;
}

} // namespace

SetMemoryModeCommand::SetMemoryModeCommand(const char* keyword) : MemoryModeCommand("set", keyword) {}

bool SetMemoryModeCommand::parseCommand(int argc, char** argv)
{
    appendArguments(argc, argv);
    const bool single = isSinglePartitionSystem();
    if (argc < (single ? 1 : 2)) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    int next = 0;
    if (!single) {
        if (!PartModeUtil::getPPARNumber(argv[next], partitionNumber_)) {
            PartModeUtil::printPartNumInvalid();
            return false;
        }
        ++next;
    }
    if (!parseModeWord(argv[next])) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    ++next;
    if (next < argc) {
        if (!PartModeUtil::getCommandQuietOption(argv[next])) {
            PartModeUtil::printParameterInvalid();
            return false;
        }
        quiet_ = true;
        ++next;
    }
    if (next < argc) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return true;
}

int SetMemoryModeCommand::execute() { return executeSetFrame(); }

int SetMemoryModeCommand::changeMode(IPMIRequester& requester)
{
    if (const int result = checkChangeAllowed(requester, Wording::SystemOnSinglePartition); result != 0) {
        return result;
    }
    return setModeInfo(requester);
}

// Every platform failure of these commands, the retry's included, is explained
// by checkException; the Reserved SB refusal thus ends with 72 and no message.
int SetMemoryModeCommand::handleSetException(const PException& exception)
{
    return checkException(exception.getExceptionDetail(), exception.getActionCode());
}

bool SetMemoryModeCommand::takeMode(std::optional<int> mode)
{
    if (!mode) {
        return false;
    }
    mode_ = *mode;
    return true;
}

void SetMemoryModeCommand::readRecordForChange(IPMIRequester& requester, const char* label)
{
    readRecord(requester, label, partmode::wire::kMirrorModeRecordSize);
}

bool SetMemoryModeCommand::confirmChange(int currentMode) const
{
    if (quiet_ || currentMode == mode_) {
        return true;
    }
    return confirmNextPowerCycle(Wording::SystemOnSinglePartition);
}

int SetMemoryModeCommand::registerMode(std::uint8_t modeEnable, std::uint8_t operationMode, std::uint8_t mirrorRasMode)
{
    try {
        sendMode(modeEnable, operationMode, mirrorRasMode, 0);
        return 0;
    } catch (const PException& exception) {
        if (const int result = checkException(exception.getExceptionDetail(), exception.getActionCode());
            result != kReservedSb) {
            return result;
        }
    }
    if (!quiet_ && !PartModeUtil::isExecute(kReservedSbPrompt)) {
        return 0;
    }
    sendMode(modeEnable, operationMode, mirrorRasMode, 1);
    return 0;
}

void SetMemoryModeCommand::sendMode(std::uint8_t modeEnable, std::uint8_t operationMode, std::uint8_t mirrorRasMode,
                                    std::uint8_t acceptReservedSb) const
{
    IPMIRequester requester(sessionSetup());
    OrbLib::ipmiclient::OEMSetPartitionMirrorModeCommand command(requester);
    command.setPartMirrorMode(partitionNumber_, modeEnable, operationMode, mirrorRasMode, acceptReservedSb);
}

int SetMemoryModeCommand::checkException(unsigned short detail, unsigned char actionCode)
{
    // Only a firmware completion code carries a reason.
    const bool refusedByFirmware = detail == partmode::error::kDetailCompletionCode;
    const RefusalReason* refusal = refusedByFirmware ? findRefusalReason(actionCode) : nullptr;
    std::string reason;
    int result = 2;
    if (refusal != nullptr) {
        const std::string subject = isSinglePartitionSystem()
                                        ? std::string("the System")
                                        : ConsoleLine::format(kSubjectBufferSize, "the specified Partition#%d",
                                                              static_cast<int>(partitionNumber_));
        reason = ConsoleLine::format(kReasonBufferSize, "Unable to register %s as Mode enable because %s\n",
                                     subject.c_str(), refusal->cause);
        std::cerr << reason << std::flush;
    } else if (refusedByFirmware && actionCode == partmode::cc::kReservedSb) {
        reason = ConsoleLine::format(kReasonBufferSize, "%s", kReservedSbReason);
        result = kReservedSb;
    } else {
        // A failure the platform raised itself is printed as it stands; a
        // firmware refusal without a reason goes through the shared console
        // routine, whose smaller buffer cuts it again.
        const std::string console = ConsoleLine::failure(kConsoleBufferSize, commandName_);
        if (refusedByFirmware) {
            PartModeUtil::printErrMsgConsole(console.c_str());
        } else {
            ConsoleLine::printError(console);
        }
        reason = ConsoleLine::format(kReasonBufferSize, "Failed to execute %s command.\n", commandName_.c_str());
    }
    char traceText[kTextBufferSize];
    std::snprintf(traceText, sizeof(traceText), "%s (%s)", commandName_.c_str(), reason.c_str());
    traceDetail(traceText, detail, actionCode);
    return result;
}
