#include "ToolProcess.h"

#include "TemporaryDirectory.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <utility>

#ifndef PARTMODE_BINARY
#error "PARTMODE_BINARY must name the partmode executable"
#endif

namespace partmode::test {

std::string ToolOutcome::describe() const
{
    if (WIFEXITED(waitStatus)) {
        return "exit status " + std::to_string(WEXITSTATUS(waitStatus));
    }
    if (WIFSIGNALED(waitStatus)) {
        return std::string("killed by ") + ::strsignal(WTERMSIG(waitStatus));
    }
    return "wait status " + std::to_string(waitStatus);
}

bool ToolOutcome::exited(int status) const { return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == status; }

int ToolOutcome::exitStatus() const { return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1; }

namespace {

std::vector<std::string> toolArgv(const std::vector<std::string>& arguments)
{
    std::vector<std::string> argv{PARTMODE_BINARY};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

std::vector<char*> pointers(const std::vector<std::string>& words)
{
    std::vector<char*> result;
    for (const auto& word : words) {
        result.push_back(const_cast<char*>(word.c_str()));
    }
    result.push_back(nullptr);
    return result;
}

} // namespace

ToolProcess::ToolProcess(const std::filesystem::path& folder, const std::string& name,
                         const std::filesystem::path& board, const std::vector<std::string>& arguments,
                         const std::string& input)
    : ToolProcess(folder, name, toolArgv(arguments),
                  {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + folder.string(), "PARTMODE_BOARD=" + board.string()},
                  input)
{
}

ToolProcess::ToolProcess(const std::filesystem::path& folder, const std::string& name,
                         const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                         const std::string& input)
    : outPath_(folder / (name + ".out")), errPath_(folder / (name + ".err"))
{
    const auto inPath = folder / (name + ".in");
    {
        std::ofstream in(inPath, std::ios::binary | std::ios::trunc);
        in << input;
        if (!in) {
            throw std::runtime_error("cannot write " + inPath.string());
        }
    }
    auto argvPointers = pointers(argv);
    auto environmentPointers = pointers(environment);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, inPath.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const int failure =
        ::posix_spawn(&pid_, argv.at(0).c_str(), &actions, nullptr, argvPointers.data(), environmentPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        pid_ = -1;
        throw std::runtime_error("cannot start " + argv[0] + ": " + std::strerror(failure));
    }
}

ToolProcess::ToolProcess(ToolProcess&& other) noexcept
    : outPath_(std::move(other.outPath_)), errPath_(std::move(other.errPath_)), pid_(std::exchange(other.pid_, -1))
{
}

ToolProcess::~ToolProcess()
{
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void ToolProcess::signal(int number) const
{
    if (pid_ > 0) {
        ::kill(pid_, number);
    }
}

std::string ToolProcess::outputSoFar() const { return readFile(outPath_); }

ToolOutcome ToolProcess::finish() { return finish(std::chrono::milliseconds::max()); }

ToolOutcome ToolProcess::finish(std::chrono::milliseconds limit)
{
    ToolOutcome outcome;
    const bool limited = limit != std::chrono::milliseconds::max();
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        const pid_t done = ::waitpid(pid_, &outcome.waitStatus, limited ? WNOHANG : 0);
        if (done == pid_) {
            break;
        }
        if (done < 0 && errno != EINTR) {
            throw std::runtime_error(std::string("waitpid: ") + std::strerror(errno));
        }
        if (limited && std::chrono::steady_clock::now() - start > limit) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &outcome.waitStatus, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    pid_ = -1;
    outcome.out = readFile(outPath_);
    outcome.err = readFile(errPath_);
    return outcome;
}

} // namespace partmode::test
