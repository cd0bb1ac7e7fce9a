#include "PartitionModeCommand.h"

#include "CommonUtil.h"
#include "ConsoleLine.h"
#include "Diagnostics.h"
#include "LogDestinations.h"
#include "MessageCatalogue.h"
#include "PException.h"
#include "PartModeUtil.h"
#include "PartitionOperatorInfo.h"
#include "ReportLog.h"
#include "UserInfo.h"
#include "UtmpUtil.h"

#include <cerrno> // program_invocation_short_name
#include <cstdio>
#include <cstring>

using OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO;

PartitionModeCommand::PartitionModeCommand(std::string commandName, std::uint8_t traceComponent)
    : trace_(1, traceComponent, 1024), commandName_(std::move(commandName))
{
}

std::string PartitionModeCommand::commandWords(const char* verb, const char* keyword)
{
    return std::string(verb) + (CommonUtil::getMaxPartitionNum() != 1 ? " partition " : " ") + keyword;
}

void PartitionModeCommand::appendArguments(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i) {
        commandName_ += ' ';
        commandName_ += argv[i] != nullptr ? argv[i] : "";
    }
}

bool PartitionModeCommand::parseQuietOption(int argc, char** argv, int next, bool& quiet)
{
    if (argc > next) {
        quiet = PartModeUtil::getCommandQuietOption(argv[next]);
        if (!quiet || argc > next + 1) {
            PartModeUtil::printParameterInvalid();
            return false;
        }
    }
    return true;
}

bool PartitionModeCommand::parsePartitionArgument(int argc, char** argv)
{
    appendArguments(argc, argv);
    if (argc != 1) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (!PartModeUtil::getPartitionNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    return true;
}

bool PartitionModeCommand::parsePartitionModeQuiet(int argc, char** argv,
                                                   const std::function<bool(const char*)>& takeMode, bool& quiet)
{
    appendArguments(argc, argv);
    if (argc < 2) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (!PartModeUtil::getPPARNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    if (!takeMode(argv[1])) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return parseQuietOption(argc, argv, 2, quiet);
}

int PartitionModeCommand::executeSetFrame()
{
    char auditText[kTextBufferSize] = {};
    formatAuditText(auditText);
    LoginUser user;
    try {
        if (const int result = identifyUser(user); result != 0) {
            return result;
        }
        if (const int result = checkAuthority(user); result != 0) {
            return result;
        }
        IPMIRequester requester(changeSessionSetup());
        if (const int result = checkDefined(requester); result != 0) {
            return result;
        }
        if (const int result = changeMode(requester); result != 0) {
            return result;
        }
        traceSuccess();
        return writeSuccessAudit(user, auditText);
    } catch (const PException& exception) {
        return handleSetException(exception);
    }
}

int PartitionModeCommand::handleSetException(const PException& exception)
{
    printFailureOnConsole();
    traceException(exception);
    return 2;
}

int PartitionModeCommand::executeShowFrame()
{
    try {
        IPMIRequester requester(sessionSetup());
        if (const int result = resolveExtendedPartition(requester); result != 0) {
            return result;
        }
        showMode(requester);
        traceSuccess();
        return 0;
    } catch (const PException& exception) {
        return reportException(exception);
    }
}

int PartitionModeCommand::resolveExtendedPartition(IPMIRequester& requester)
{
    if (CommonUtil::isXPAR(static_cast<int>(partitionNumber_), true) &&
        !PartModeUtil::checkParentPartitionId(requester, partitionNumber_)) {
        PartModeUtil::printPartitionNotDefined(partitionNumber_);
        traceFailure("%s (Extended Partitioning is free)");
        return 54;
    }
    return 0;
}

_RMCPP_SESS_SETUP_INFO PartitionModeCommand::sessionSetup()
{
    _RMCPP_SESS_SETUP_INFO setup;
    IPMIRequester::createSetupInfo(0, setup, 0);
    return setup;
}

_RMCPP_SESS_SETUP_INFO PartitionModeCommand::changeSessionSetup()
{
    auto setup = sessionSetup();
    partmode::LogDestinations::prepareForChange();
    return setup;
}

int PartitionModeCommand::reportException(const PException& exception) const
{
    traceException(exception);
    printFailure();
    return 2;
}

int PartitionModeCommand::identifyUser(LoginUser& user)
{
    if (UtmpUtil::getUserInfo(user.name, user.origin) != 0) {
        printFailure();
        traceFailure("%s (UtmpUtil::getUserInfo()) failed.)");
        return 2;
    }
    return 0;
}

int PartitionModeCommand::checkAuthority(const LoginUser& user)
{
    OrbLib::OrbUi::UserInfo userInfo;
    userInfo.loadUserInfo(user.name.c_str());
    if (userInfo.getPrivilege() != OrbLib::OrbUi::UserInfo::kPartitionOperator) {
        return 0;
    }
    const unsigned long operable = userInfo.getOperablePartition();
    const OrbLib::OrbUi::PartitionOperatorInfo operatorInfo;
    if (!operatorInfo.isOperablePartition(operable, static_cast<int>(partitionNumber_))) {
        PartModeUtil::printNoAuthority();
        traceFailure("%s (isOperablePartition() failed.)");
        return 52;
    }
    return 0;
}

int PartitionModeCommand::checkDefined(IPMIRequester& requester)
{
    if (!PartModeUtil::checkDefinedPartition(requester, partitionNumber_)) {
        PartModeUtil::printPartitionNotDefined(partitionNumber_);
        traceFailure("%s (Partition is not defined)");
        return 54;
    }
    return 0;
}

int PartitionModeCommand::checkDynamicReconfiguration(IPMIRequester& requester)
{
    if (!PartModeUtil::checkDPMode(requester, partitionNumber_)) {
        PartModeUtil::printDPModeEnabled(partitionNumber_);
        traceFailure("%s (DP mode is enabled)");
        return 77;
    }
    return 0;
}

int PartitionModeCommand::checkPowerOff(IPMIRequester& requester)
{
    if (!PartModeUtil::isPowerOnPartition(requester, partitionNumber_)) {
        return 0;
    }
    ConsoleLine::printError(runningText(Wording::Partition));
    traceFailure("%s (the partition is running)");
    return 51;
}

int PartitionModeCommand::checkChangeAllowed(IPMIRequester& requester, Wording wording)
{
    if (!PartModeUtil::isPowerOnPartition(requester, partitionNumber_) &&
        PartModeUtil::checkPartSystemInProgress(partitionNumber_)) {
        return 0;
    }
    PartModeUtil::printErrMsgConsole(runningText(wording));
    traceFailure("%s (the partition is running)");
    return 51;
}

int PartitionModeCommand::refuseRunning(const PException& exception) const
{
    PartModeUtil::printErrMsgConsole(runningText(Wording::Partition));
    traceFailure("%s (PException)", exception.getExceptionDetail(), exception.getActionCode());
    noteReason(exception);
    return 51;
}

const char* PartitionModeCommand::runningText(Wording wording)
{
    if (wording == Wording::SystemOnSinglePartition && CommonUtil::getMaxPartitionNum() == 1) {
        return "Unable to change the mode while the system is running. Please try to change the mode after the system "
               "is shutdown.";
    }
    return "Unable to change the mode while the partition is running. Please try to change the mode after the "
           "partition is shutdown.";
}

bool PartitionModeCommand::confirmNextPowerCycle(Wording wording)
{
    const bool system = wording == Wording::SystemOnSinglePartition && CommonUtil::getMaxPartitionNum() == 1;
    constexpr std::size_t kPromptBufferSize = 512;
    const std::string prompt =
        ConsoleLine::format(kPromptBufferSize,
                            "The setting will become effective the next time the %s power off/on is performed.\n"
                            "Are you sure to continue?[Y/N]",
                            system ? "system" : "partition");
    return PartModeUtil::isExecute(prompt.c_str());
}

void PartitionModeCommand::traceSuccess() const
{
    char message[kTextBufferSize];
    trace_.putLog(0, lmsg_getmsg(10046, message, commandName_.c_str()));
}

void PartitionModeCommand::traceFailure(const char* detailFormat, int first, int second) const
{
    char detail[kTextBufferSize];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-extra-args"
    std::snprintf(detail, sizeof(detail), detailFormat, commandName_.c_str());
#pragma GCC diagnostic pop
    traceDetail(detail, first, second);
}

void PartitionModeCommand::traceDetail(const char* detail, int first, int second) const
{
    char message[kTextBufferSize];
    trace_.putLog(0, lmsg_getmsg(10047, message, detail, first, second));
    reason_ = partmode::Diagnostics::explain(commandName_, detail, first, second);
}

void PartitionModeCommand::traceException(const PException& exception) const
{
    traceDetail(commandName_.c_str(), exception.getExceptionDetail(), exception.getActionCode());
    noteReason(exception);
}

void PartitionModeCommand::noteReason(const PException& exception) const
{
    reason_ = partmode::Diagnostics::explain(exception);
}

void PartitionModeCommand::explainFailure() const { partmode::Diagnostics::report(reason_); }

void PartitionModeCommand::traceMessage(int messageId, const char* argument) const
{
    char message[kTextBufferSize];
    trace_.putLog(0, lmsg_getmsg(messageId, message, argument));
}

const char* PartitionModeCommand::wordOrUnknown(const char* word, const char* requestName) const
{
    if (word != nullptr) {
        return word;
    }
    traceMessage(20052, requestName);
    return "-";
}

int PartitionModeCommand::writeAudit(int messageId, const LoginUser& user, const char* auditText, int result) const
{
    char message[kTextBufferSize];
    lmsg_getmsg(messageId, message, partitionNumber_, auditText);
    return putAudit(message, user, result);
}

int PartitionModeCommand::writeSuccessAudit(const LoginUser& user, const char* auditText) const
{
    if (auditsSystemOnSinglePartition() && CommonUtil::getMaxPartitionNum() == 1) {
        char message[kTextBufferSize];
        return putAudit(lmsg_getmsg(10088, message, auditText), user, 0);
    }
    return writeAudit(10082, user, auditText, 0);
}

int PartitionModeCommand::putAudit(const char* message, const LoginUser& user, int result)
{
    if (Report::llog_putOrbLog(static_cast<long>(std::strlen(message)), message, 1, user.origin.c_str(),
                               user.name.c_str(), "0xFF") == 0) {
        return result;
    }
    ConsoleLine::printError(std::string(program_invocation_short_name) + ": " +
                            (partmode::LogDestinations::changeRequested()
                                 ? "the change was applied, but its audit record was not written: "
                                 : "the audit record was not written: ") +
                            Report::lastFailure());
    return result == 0 ? 2 : result;
}

void PartitionModeCommand::printFailure() const
{
    ConsoleLine::printError(ConsoleLine::failure(kTextBufferSize, commandName_));
}

void PartitionModeCommand::printFailureOnConsole() const
{
    PartModeUtil::printErrMsgConsole(ConsoleLine::failure(kTextBufferSize, commandName_).c_str());
}
