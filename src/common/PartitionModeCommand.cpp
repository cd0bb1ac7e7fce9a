#include "PartitionModeCommand.h"

#include "CommonUtil.h"
#include "MessageCatalogue.h"
#include "PException.h"
#include "PartModeUtil.h"
#include "PartitionOperatorInfo.h"
#include "ReportLog.h"
#include "UserInfo.h"
#include "UtmpUtil.h"

#include <cstdio>
#include <cstring>
#include <iostream>

using OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO;

PartitionModeCommand::PartitionModeCommand(std::string commandName, std::uint8_t traceComponent)
    : trace_(1, traceComponent, 1024), commandName_(std::move(commandName))
{
}

void PartitionModeCommand::appendArguments(int argc, char** argv)
{
    for (int i = 0; i < argc; ++i) {
        commandName_ += ' ';
        commandName_ += argv[i] != nullptr ? argv[i] : "";
    }
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
        _RMCPP_SESS_SETUP_INFO setup;
        IPMIRequester::createSetupInfo(0, setup, 0);
        IPMIRequester requester(setup);
        if (const int result = checkDefined(requester); result != 0) {
            return result;
        }
        if (const int result = changeMode(requester); result != 0) {
            return result;
        }
        traceSuccess();
        writeSuccessAudit(user, auditText);
        return 0;
    } catch (const PException& exception) {
        return handleSetException(exception);
    }
}

int PartitionModeCommand::handleSetException(const PException& exception)
{
    printFailure();
    traceException(exception);
    return 2;
}

int PartitionModeCommand::executeShowFrame()
{
    try {
        _RMCPP_SESS_SETUP_INFO setup;
        IPMIRequester::createSetupInfo(0, setup, 0);
        IPMIRequester requester(setup);
        if (CommonUtil::isXPAR(static_cast<int>(partitionNumber_), true) &&
            !PartModeUtil::checkParentPartitionId(requester, partitionNumber_)) {
            PartModeUtil::printPartitionNotDefined(partitionNumber_);
            traceFailure("%s (Extended Partitioning is free)");
            return 54;
        }
        showMode(requester);
        traceSuccess();
        return 0;
    } catch (const PException& exception) {
        traceException(exception);
        printFailure();
        return 2;
    }
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
}

void PartitionModeCommand::traceException(const PException& exception) const
{
    traceDetail(commandName_.c_str(), exception.getExceptionDetail(), exception.getActionCode());
}

void PartitionModeCommand::traceMessage(int messageId, const char* argument) const
{
    char message[kTextBufferSize];
    trace_.putLog(0, lmsg_getmsg(messageId, message, argument));
}

void PartitionModeCommand::writeAudit(int messageId, const LoginUser& user, const char* auditText) const
{
    char message[kTextBufferSize];
    lmsg_getmsg(messageId, message, partitionNumber_, auditText);
    putAudit(message, user);
}

void PartitionModeCommand::writeSuccessAudit(const LoginUser& user, const char* auditText) const
{
    if (auditsSystemOnSinglePartition() && CommonUtil::getMaxPartitionNum() == 1) {
        char message[kTextBufferSize];
        putAudit(lmsg_getmsg(10088, message, auditText), user);
        return;
    }
    writeAudit(10082, user, auditText);
}

void PartitionModeCommand::putAudit(const char* message, const LoginUser& user)
{
    Report::llog_putOrbLog(static_cast<long>(std::strlen(message)), message, 1, user.origin.c_str(),
                           user.name.c_str(), "0xFF");
}

void PartitionModeCommand::printFailure() const
{
    char line[kTextBufferSize];
    std::snprintf(line, sizeof(line), "Failed to execute %s command.", commandName_.c_str());
    PartModeUtil::printErrMsgConsole(line);
}
