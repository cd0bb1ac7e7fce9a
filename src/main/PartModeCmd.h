#pragma once

// The front end: reads "set" or "show", the optional word "partition" and a
// feature keyword, creates the matching command and runs it.
class PartModeCmd {
public:
    static constexpr int kNoCommand = 14;

    PartModeCmd() = default;
    PartModeCmd(const PartModeCmd&) = delete;
    PartModeCmd& operator=(const PartModeCmd&) = delete;
    virtual ~PartModeCmd() = default;

    // The whole front end; returns the exit status.
    int execute(int argc, char** argv);
    // Consumes the program name and the command words; true when a command
    // type 0 to 13 was recognised.
    bool parseCommand(int* argc, char*** argv);
    // Kept for the command-line interface's shape; prints nothing.
    void printUsage() {}

    [[nodiscard]] int commandType() const { return commandType_; }

private:
    int commandType_ = kNoCommand;
};
