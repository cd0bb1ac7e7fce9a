#pragma once

// Base of the fourteen set and show commands: parse the command's own
// arguments, then execute.
class PartModeConfigCmd {
public:
    PartModeConfigCmd() = default;
    PartModeConfigCmd(const PartModeConfigCmd&) = delete;
    PartModeConfigCmd& operator=(const PartModeConfigCmd&) = delete;
    virtual ~PartModeConfigCmd() = default;

    // Takes the arguments that follow the feature keyword; false when they are
    // not accepted (the command has then said why on standard error).
    virtual bool parseCommand(int argc, char** argv) = 0;
    // Runs the command; the result is the exit status.
    virtual int execute() = 0;

    // 1 when the arguments are not accepted, else what execute() returns.
    // A failure is followed by its reason where the board asks for it.
    int processCommand(int argc, char** argv);

protected:
    // Writes the reason of the failure the command has just reported, where
    // the board asks for reasons; nothing by default.
    virtual void explainFailure() const {}
};
