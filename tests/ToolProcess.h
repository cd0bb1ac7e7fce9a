#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode::test {

// What one run did.
struct ToolOutcome {
    int waitStatus = 0;
    std::string out;
    std::string err;

    // The exit status, or a description of the signal that ended the run.
    [[nodiscard]] std::string describe() const;
    [[nodiscard]] bool exited(int status) const;
    // The exit status; -1 when a signal ended the run.
    [[nodiscard]] int exitStatus() const;
};

// One run of a program, started by the constructor. Its standard input is
// `input`; its output is kept in files named after `name` in `folder`, so that
// many runs can go on at once without pipes to serve.
class ToolProcess {
public:
    // The built partmode with `arguments`, the board `board` and only the
    // environment a login shell would surely give it.
    ToolProcess(const std::filesystem::path& folder, const std::string& name, const std::filesystem::path& board,
                const std::vector<std::string>& arguments, const std::string& input = {});
    // The program argv[0] (a path) with exactly `environment`.
    ToolProcess(const std::filesystem::path& folder, const std::string& name, const std::vector<std::string>& argv,
                const std::vector<std::string>& environment, const std::string& input = {});
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;
    ToolProcess(ToolProcess&& other) noexcept;
    ToolProcess& operator=(ToolProcess&&) = delete;
    // A run that was never waited for is killed and reaped.
    ~ToolProcess();

    // Sends the signal to the run while it goes on.
    void signal(int number) const;
    // What the run has written to its standard output so far.
    [[nodiscard]] std::string outputSoFar() const;

    // Waits for the run to end.
    ToolOutcome finish();
    // Waits for the run to end, killing it when it outlives `limit`.
    ToolOutcome finish(std::chrono::milliseconds limit);

private:
    std::filesystem::path outPath_;
    std::filesystem::path errPath_;
    pid_t pid_ = -1;
};

} // namespace partmode::test
