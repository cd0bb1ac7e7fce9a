#pragma once

#include "IPMIRequester.h"
#include "OrbTrace.h"
#include "PException.h"
#include "PartModeConfigCmd.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

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

    // Whether a console text speaks of the system instead of the partition
    // when the machine has a single partition.
    enum class Wording { Partition, SystemOnSinglePartition };

    [[nodiscard]] const std::string& commandName() const { return commandName_; }
    [[nodiscard]] unsigned int partitionNumber() const { return partitionNumber_; }

protected:
    explicit PartitionModeCommand(std::string commandName, std::uint8_t traceComponent = kTraceComponent);

    // "<verb> partition <keyword>", without "partition" on a single-partition
    // system, for the commands whose name follows the words typed.
    static std::string commandWords(const char* verb, const char* keyword);

    // Appends every argument, one blank before each, to the command name.
    void appendArguments(int argc, char** argv);
    // The arguments from index `next` on must be nothing or the quiet word
    // alone; otherwise the invalid-parameter message and false.
    static bool parseQuietOption(int argc, char** argv, int next, bool& quiet);
    // PARTITION: exactly one argument, a number of any partition, extended
    // ones included. Says why on standard error when it is refused.
    bool parsePartitionArgument(int argc, char** argv);
    // PARTITION MODE [quiet]: a physical partition number, a word `takeMode`
    // accepts, then nothing or the quiet word. Says why on standard error
    // when they are refused.
    bool parsePartitionModeQuiet(int argc, char** argv, const std::function<bool(const char*)>& takeMode, bool& quiet);

    // Set frame: audit text, user, authority, requester, defined partition,
    // then changeMode(); success trace and audit record when it returns 0.
    int executeSetFrame();
    // Fills the audit text (a buffer of kTextBufferSize bytes).
    virtual void formatAuditText(char* auditText) const { static_cast<void>(auditText); }
    // The command's own checks and the change; 0 or the exit status.
    virtual int changeMode(IPMIRequester& requester)
    {
        static_cast<void>(requester);
        return 0;
    }
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
    // Refuses (51) a partition that is powered on.
    int checkPowerOff(IPMIRequester& requester);
    // Refuses (51) a partition that is powered on or whose system status does
    // not allow a change.
    int checkChangeAllowed(IPMIRequester& requester, Wording wording);
    // 54 when an extended partition has no parent; otherwise the partition
    // number becomes that of the parent.
    int resolveExtendedPartition(IPMIRequester& requester);

    // The set-up of every session with the firmware.
    static OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO sessionSetup();
    // The set-up of the session of a set command: the trace, audit and
    // message catalogue are ready before any request leaves, and a platform
    // exception says so when the audit destination cannot be written.
    static OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO changeSessionSetup();
    // Asks whether to register a setting that takes effect at the next power
    // off/on; false when the operator declines.
    [[nodiscard]] static bool confirmNextPowerCycle(Wording wording);
    // Action code of a firmware refusal because the partition is running.
    static constexpr std::uint8_t kActionPartitionRunning = 0xD5;
    // The firmware refused a change because the partition is running: the
    // console text and the trace line; returns 51.
    int refuseRunning(const PException& exception) const;
    // The trace line, then the failure line; returns 2.
    int reportException(const PException& exception) const;

    // Trace lines and the audit record.
    void traceSuccess() const;
    // Message 10047 with the detail `detailFormat` formatted with the command name.
    void traceFailure(const char* detailFormat, int first = 0, int second = 0) const;
    // Message 10047 with `detail` as it stands.
    void traceDetail(const char* detail, int first = 0, int second = 0) const;
    void traceException(const PException& exception) const;
    void traceMessage(int messageId, const char* argument) const;
    // `word`, or "-" when the firmware answered a value without a word; that
    // is traced with message 20052 naming `requestName`.
    const char* wordOrUnknown(const char* word, const char* requestName) const;
    // Runs `request`; a platform exception it raises is traced with message
    // 20003 naming the request, then passed on.
    template <typename Request>
    void traceRequestFailure(const char* requestName, Request&& request) const;
    // Writes the audit record and returns `result`; when the record cannot
    // be written, says so on standard error and returns a failure (2 in place
    // of 0).
    int writeAudit(int messageId, const LoginUser& user, const char* auditText, int result) const;
    // Message 10082 (or 10088); 0, or 2 when the record cannot be written.
    int writeSuccessAudit(const LoginUser& user, const char* auditText) const;

    // "Failed to execute <command name> command." on standard error, as
    // formatted into the failure line buffer (kTextBufferSize bytes).
    void printFailure() const;
    // The same line through the shared console message routine, whose
    // smaller buffer cuts it again.
    void printFailureOnConsole() const;

    // The reason of the last failure traced, for explainFailure().
    void noteReason(const PException& exception) const;
    void explainFailure() const override;

private:
    static int putAudit(const char* message, const LoginUser& user, int result);
    [[nodiscard]] static const char* runningText(Wording wording);

protected:
    trace::OrbTrace trace_;
    std::string commandName_;
    unsigned int partitionNumber_ = 0;

private:
    // Set with every failure traced; written only when the board asks.
    mutable std::string reason_;
};

template <typename Request>
void PartitionModeCommand::traceRequestFailure(const char* requestName, Request&& request) const
{
    try {
        std::forward<Request>(request)();
    } catch (const PException&) {
        traceMessage(20003, requestName);
        throw;
    }
}
