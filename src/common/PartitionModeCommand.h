#pragma once

#include "IPMIRequester.h"
#include "OrbTrace.h"
#include "PartModeConfigCmd.h"

#include <cstddef>
#include <cstdint>
#include <string>

class PException;

// Who runs a set command: the login name and the login's origin.
struct LoginUser {
    std::string name;
    std::string origin;
};

// What every set and show command holds (trace sink, command name, partition
// number) and the two execution frames they run in. The frames are built from
// steps that a command with its own order of checks can call one by one.
class PartitionModeCommand : public PartModeConfigCmd {
public:
    using IPMIRequester = OrbLib::ipmiclient::IPMIRequester;

    // Size of the audit text, failure line, trace detail and message buffers.
    static constexpr std::size_t kTextBufferSize = 256;
    static constexpr std::uint8_t kTraceComponent = 3;

    [[nodiscard]] const std::string& commandName() const { return commandName_; }
    [[nodiscard]] unsigned int partitionNumber() const { return partitionNumber_; }

protected:
    explicit PartitionModeCommand(std::string commandName, std::uint8_t traceComponent = kTraceComponent);

    // Appends every argument, one blank before each, to the command name.
    void appendArguments(int argc, char** argv);

    // Set frame: audit text, user, authority, requester, defined partition,
    // then changeMode(); success trace and audit record when it returns 0.
    int executeSetFrame();
    // Fills the audit text (a buffer of kTextBufferSize bytes).
    virtual void formatAuditText(char* auditText) const { static_cast<void>(auditText); }
    // The command's own checks and the change; 0 or the exit status.
    virtual int changeMode(IPMIRequester& requester) { static_cast<void>(requester); return 0; }
    // A platform exception caught by the set frame: the failure line, then the
    // trace; returns the exit status (2).
    virtual int handleSetException(const PException& exception);
    // Commands that audit a single-partition system with message 10088.
    [[nodiscard]] virtual bool auditsSystemOnSinglePartition() const { return false; }

    // Show frame: requester, extended partition to its parent, showMode(),
    // success trace.
    int executeShowFrame();
    virtual void showMode(IPMIRequester& requester) { static_cast<void>(requester); }

    // Steps of the frames; each returns 0 or the exit status and has written
    // its console message and trace line.
    int identifyUser(LoginUser& user);
    int checkAuthority(const LoginUser& user);
    int checkDefined(IPMIRequester& requester);
    int checkDynamicReconfiguration(IPMIRequester& requester);

    // Trace lines and the audit record.
    void traceSuccess() const;
    // Message 10047 with the detail `detailFormat` formatted with the command name.
    void traceFailure(const char* detailFormat, int first = 0, int second = 0) const;
    // Message 10047 with `detail` as it stands.
    void traceDetail(const char* detail, int first = 0, int second = 0) const;
    void traceException(const PException& exception) const;
    void traceMessage(int messageId, const char* argument) const;
    void writeAudit(int messageId, const LoginUser& user, const char* auditText) const;
    void writeSuccessAudit(const LoginUser& user, const char* auditText) const;

    // "Failed to execute <command name> command." on standard error.
    void printFailure() const;

private:
    static void putAudit(const char* message, const LoginUser& user);

protected:

    trace::OrbTrace trace_;
    std::string commandName_;
    unsigned int partitionNumber_ = 0;
};
