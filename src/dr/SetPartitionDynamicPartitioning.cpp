#include "SetPartitionDynamicPartitioning.h"

#include "ConsoleLine.h"
#include "OEMGetPartitionPCIExpressModeCommand.h"
#include "OEMGetPartitionSegmentModeCommand.h"
#include "OEMGetSystemCapabilitiesCommand.h"
#include "OEMSetDynamicPartitioningCommand.h"
#include "OemProtocol.h"
#include "PartModeUtil.h"
#include "PciAddressMode.h"
#include "PciExpressMode.h"
#include "PlatformError.h"

#include <cstdio>
#include <vector>

namespace {

constexpr int kEnable = 1;
constexpr int kDisable = 0;
// A firmware refusal because the partition holds a memory scale-up board.
constexpr std::uint8_t kActionScaleUpBoard = 0x91;
// Message catalogue id of the audit record of a refused or failed change.
constexpr int kFailureAudit = 10083;

} // namespace

SetPartitionDynamicPartitioning::SetPartitionDynamicPartitioning()
    : DynamicPartitioningCommand("set partition dynamic_reconfiguration")
{
}

bool SetPartitionDynamicPartitioning::parseCommand(int argc, char** argv)
{
    return parsePartitionModeQuiet(
        argc, argv, [this](const char* word) { return getDynamicPartitioningString(word); }, quiet_);
}

bool SetPartitionDynamicPartitioning::getDynamicPartitioningString(const char* word)
{
    if (PartModeUtil::checkKeyword(word, "enable")) {
        drMode_ = kEnable;
        return true;
    }
    if (PartModeUtil::checkKeyword(word, "disable")) {
        drMode_ = kDisable;
        return true;
    }
    return false;
}

// Exclusive features are checked before the operator's authority. The
// refusals for authority, support and a running partition are audited, as
// every platform exception is; the others leave only their trace line.
int SetPartitionDynamicPartitioning::execute()
{
    char auditText[kTextBufferSize];
    std::snprintf(auditText, sizeof(auditText), "%s",
                  drMode_ == kEnable ? "Dynamic Reconfiguration Enable" : "Dynamic Reconfiguration Disable");
    LoginUser user;
    const auto auditRefusal = [&](int result) { return writeAudit(kFailureAudit, user, auditText, result); };
    try {
        if (const int result = identifyUser(user); result != 0) {
            return result;
        }
        IPMIRequester requester(changeSessionSetup());
        if (const int result = checkExclusiveFeatures(requester); result != 0) {
            return result;
        }
        if (const int result = checkAuthority(user); result != 0) {
            return auditRefusal(result);
        }
        if (const int result = checkDefined(requester); result != 0) {
            return result;
        }
        if (const int result = checkExtendedPartitioning(requester); result != 0) {
            return result;
        }
        if (!checkDynamicPartitioningCommandExec(requester)) {
            return auditRefusal(1);
        }
        if (const int result = checkChangeAllowed(requester, Wording::Partition); result != 0) {
            return auditRefusal(result);
        }
        if (const int result = checkIoModes(requester); result != 0) {
            return result;
        }
        // A declined prompt still counts as done and is audited as such.
        setDynamicPartitioningInfo(requester);
        traceSuccess();
        return writeSuccessAudit(user, auditText);
    } catch (const PException& exception) {
        return handleException(exception, user, auditText);
    }
}

int SetPartitionDynamicPartitioning::checkExclusiveFeatures(IPMIRequester& requester)
{
    bool reserved = false;
    bool exclusiveFeatures = false;
    OrbLib::ipmiclient::OEMGetSystemCapabilitiesCommand(requester, partmode::wire::kOemHeader)
        .getSystemCapabilities(reserved, exclusiveFeatures);
    if (!exclusiveFeatures) {
        return 0;
    }
    // Disabling is refused as well, whatever the text says. The text carries
    // its own line end, on the console and in the trace.
    constexpr const char* kRefusal = "DR can't be enabled, because exclusive features are enabled\n";
    std::fputs(kRefusal, stderr);
    traceDetail(kRefusal);
    return 59;
}

int SetPartitionDynamicPartitioning::checkExtendedPartitioning(IPMIRequester& requester)
{
    if (PartModeUtil::checkXparMode(requester, partitionNumber_)) {
        return 0;
    }
    PartModeUtil::printXparModeEnabled(partitionNumber_);
    traceFailure("%s (Extended Partitioning mode is enabled)");
    return 77;
}

// Dynamic reconfiguration needs segment mode registered for the next power-on
// and flexible PCI Express mode in force now.
int SetPartitionDynamicPartitioning::checkIoModes(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    std::vector<unsigned char> mode;
    OrbLib::ipmiclient::OEMGetPartitionSegmentModeCommand(requester).getPartSegmentMode(partitionNumber_, mode);
    if (mode.size() <= wire::kSettingRegistered || mode[wire::kSettingRegistered] != PciAddressMode::kSegment) {
        PartModeUtil::printErrMsgConsole("Unable to execute this command because the partition is pci bus mode.");
        traceFailure("%s (not in Segment Mode)");
        return 2;
    }
    mode.clear();
    OrbLib::ipmiclient::OEMGetPartitionPCIExpressModeCommand(requester).getPartPCIExpressMode(partitionNumber_, mode);
    if (mode.empty() || mode[0] != PciExpressMode::kFlexible) {
        PartModeUtil::printErrMsgConsole("Unable to execute this command because the partition is fixed mode.");
        traceFailure("%s (not in Flexible I/O Mode)");
        return 2;
    }
    return 0;
}

bool SetPartitionDynamicPartitioning::setDynamicPartitioningInfo(IPMIRequester& /*requester*/)
{
    if (!quiet_) {
        const std::string prompt = ConsoleLine::format(
            kTextBufferSize, "%s of Partition#%d is %s.\nAre you sure to continue?[Y/N]: ", "DR Mode",
            static_cast<int>(partitionNumber_), drMode_ == kEnable ? "enable" : "disable");
        if (!PartModeUtil::isExecute(prompt.c_str())) {
            return false;
        }
    }
    IPMIRequester session(sessionSetup());
    OrbLib::ipmiclient::OEMSetDynamicPartitioningCommand(session).setDynamicPartitioningEnables(
        partitionNumber_, static_cast<unsigned char>(drMode_));
    return true;
}

// Traced and audited before the console line.
int SetPartitionDynamicPartitioning::handleException(const PException& exception, const LoginUser& user,
                                                     const char* auditText)
{
    traceException(exception);
    // An audit destination that cannot be written takes no failure record.
    if (exception.getExceptionDetail() != partmode::error::kDetailAudit) {
        static_cast<void>(writeAudit(kFailureAudit, user, auditText, 2));
    }
    if (exception.getExceptionDetail() == partmode::error::kDetailCompletionCode &&
        exception.getActionCode() == kActionScaleUpBoard) {
        PartModeUtil::printErrMsgConsole(
            "Dynamic Reconfiguration Mode cannot be changed due to the partition has Memory Scale-up Board.");
    } else {
        printFailureOnConsole();
    }
    return 2;
}
