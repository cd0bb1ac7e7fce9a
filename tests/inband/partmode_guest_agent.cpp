// The agent inside the test machine of the in-band pass. It reads requests
// from the host on a serial port, one JSON object per line, and answers each
// with one line: it lays out the files of a run folder, runs one program in
// it (as a given user, with a given environment and input) and sends back the
// program's output, wait status and the files of the folder afterwards.
// docs/inband.md describes the requests.
#include "Base64.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using partmode::test::base64Decode;
using partmode::test::base64Encode;

std::runtime_error systemError(const std::string& what)
{
    return std::runtime_error(what + ": " + std::strerror(errno));
}

class Fd {
public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() { reset(); }
    [[nodiscard]] int get() const { return fd_; }
    void reset()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
};

void writeAll(int fd, std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto put = ::write(fd, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
            throw systemError("write");
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
}

// Size and modification time of the files as laid out, so that only what a
// run changed or created travels back.
using Snapshot = std::map<fs::path, std::pair<std::uintmax_t, fs::file_time_type>>;

Snapshot layOut(const json& entries)
{
    Snapshot laidOut;
    for (const auto& entry : entries) {
        const fs::path path = entry.at("path").get<std::string>();
        const auto mode = entry.at("mode").get<mode_t>();
        if (entry.at("type") == "dir") {
            fs::create_directories(path);
        } else if (entry.contains("copy")) {
            fs::create_directories(path.parent_path());
            fs::copy_file(entry.at("copy").get<std::string>(), path, fs::copy_options::overwrite_existing);
        } else {
            fs::create_directories(path.parent_path());
            std::ofstream out(path, std::ios::binary | std::ios::trunc);
            out << base64Decode(entry.at("data").get<std::string>());
            if (!out.flush())
                throw std::runtime_error("cannot write " + path.string());
        }
        if (::chmod(path.c_str(), mode) != 0 ||
            ::chown(path.c_str(), entry.at("uid").get<uid_t>(), entry.at("gid").get<gid_t>()) != 0)
            throw systemError("cannot set the owner and mode of " + path.string());
        if (entry.at("type") != "dir")
            laidOut[path] = {fs::file_size(path), fs::last_write_time(path)};
    }
    return laidOut;
}

json collect(const fs::path& root, const Snapshot& laidOut)
{
    json files = json::array();
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (!entry.is_regular_file())
            continue;
        const auto before = laidOut.find(entry.path());
        if (before != laidOut.end() &&
            before->second == std::pair(fs::file_size(entry.path()), fs::last_write_time(entry.path())))
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        files.push_back({{"path", entry.path().string()}, {"data", base64Encode(content.str())}});
    }
    return files;
}

struct Run {
    pid_t pid = -1;
    int status = 0;
    std::string out;
    std::string err;
    std::chrono::nanoseconds took{};
};

Run runOnce(const json& request)
{
    const auto program = request.at("program").get<std::string>();
    const auto args = request.at("argv").get<std::vector<std::string>>();
    const auto env = request.at("env").get<std::vector<std::string>>();
    const auto cwd = request.value("cwd", std::string("/"));
    const std::optional<uid_t> uid = request.contains("uid") && !request.at("uid").is_null()
                                         ? std::optional(request.at("uid").get<uid_t>())
                                         : std::nullopt;
    const std::optional<std::string> input = request.contains("stdin") && !request.at("stdin").is_null()
                                                 ? std::optional(base64Decode(request.at("stdin").get<std::string>()))
                                                 : std::nullopt;
    const auto timeout = std::chrono::milliseconds(request.value("timeout_ms", 20000));
    // The input may be held back, so the host can change the world while the
    // program waits for it.
    const auto inputDelay = std::chrono::milliseconds(request.value("stdin_delay_ms", 0));

    std::vector<char*> argv;
    for (const auto& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const auto& entry : env)
        envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    std::array<int, 2> in{};
    std::array<int, 2> out{};
    std::array<int, 2> err{};
    if (::pipe2(in.data(), O_CLOEXEC) != 0 || ::pipe2(out.data(), O_CLOEXEC) != 0 ||
        ::pipe2(err.data(), O_CLOEXEC) != 0)
        throw systemError("pipe2");
    Fd inRead(in[0]), inWrite(in[1]), outRead(out[0]), outWrite(out[1]), errRead(err[0]), errWrite(err[1]);
    const Fd devNull(::open("/dev/null", O_RDONLY | O_CLOEXEC));

    Run run;
    const auto start = std::chrono::steady_clock::now();
    run.pid = ::fork();
    if (run.pid < 0)
        throw systemError("fork");
    if (run.pid == 0) {
        ::setsid();
        if (::dup2(input ? inRead.get() : devNull.get(), STDIN_FILENO) < 0 ||
            ::dup2(outWrite.get(), STDOUT_FILENO) < 0 || ::dup2(errWrite.get(), STDERR_FILENO) < 0 ||
            ::chdir(cwd.c_str()) != 0)
            ::_exit(127);
        if (uid &&
            (::setgroups(0, nullptr) != 0 || ::setresgid(*uid, *uid, *uid) != 0 || ::setresuid(*uid, *uid, *uid) != 0))
            ::_exit(127);
        ::signal(SIGPIPE, SIG_DFL);
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }
    inRead.reset();
    outWrite.reset();
    errWrite.reset();

    std::string_view pending = input ? std::string_view(*input) : std::string_view();
    if (pending.empty())
        inWrite.reset();
    else
        ::fcntl(inWrite.get(), F_SETFL, O_NONBLOCK);
    const auto deadline = start + timeout;
    const auto inputFrom = start + inputDelay;
    bool outOpen = true;
    bool errOpen = true;
    while (outOpen || errOpen) {
        const auto now = std::chrono::steady_clock::now();
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now);
        if (left.count() <= 0) {
            ::kill(-run.pid, SIGKILL);
            ::kill(run.pid, SIGKILL);
            break;
        }
        const bool inputDue = now >= inputFrom;
        if (!inputDue && inWrite.get() >= 0)
            left = std::min(left, std::chrono::ceil<std::chrono::milliseconds>(inputFrom - now));
        std::array<pollfd, 3> fds{{{outOpen ? outRead.get() : -1, POLLIN, 0},
                                   {errOpen ? errRead.get() : -1, POLLIN, 0},
                                   {inputDue ? inWrite.get() : -1, POLLOUT, 0}}};
        if (::poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0) {
            if (errno == EINTR)
                continue;
            throw systemError("poll");
        }
        const auto drain = [](const Fd& fd, const pollfd& p, std::string& into, bool& open) {
            if (!open || p.revents == 0)
                return;
            std::array<char, 65536> buffer{};
            const auto got = ::read(fd.get(), buffer.data(), buffer.size());
            if (got > 0)
                into.append(buffer.data(), static_cast<std::size_t>(got));
            else if (got == 0 || errno != EINTR)
                open = false;
        };
        drain(outRead, fds[0], run.out, outOpen);
        drain(errRead, fds[1], run.err, errOpen);
        if (inputDue && inWrite.get() >= 0 && fds[2].revents != 0) {
            const auto put = ::write(inWrite.get(), pending.data(), pending.size());
            if (put > 0)
                pending.remove_prefix(static_cast<std::size_t>(put));
            if (pending.empty() || (put < 0 && errno != EAGAIN && errno != EINTR))
                inWrite.reset();
        }
    }
    inWrite.reset();
    while (::waitpid(run.pid, &run.status, 0) < 0 && errno == EINTR) {
    }
    run.took = std::chrono::steady_clock::now() - start;
    return run;
}

json handle(const json& request)
{
    if (const auto clear = request.find("clear"); clear != request.end()) {
        std::error_code ignored;
        fs::remove_all(clear->get<std::string>(), ignored);
    }
    if (const auto passwd = request.find("passwd"); passwd != request.end()) {
        std::ofstream out("/etc/passwd", std::ios::trunc);
        out << passwd->get<std::string>();
        if (!out.flush())
            throw std::runtime_error("cannot write /etc/passwd");
    }
    Snapshot laidOut;
    if (const auto entries = request.find("entries"); entries != request.end())
        laidOut = layOut(*entries);
    json answer = {{"id", request.value("id", json())}};
    if (request.contains("program")) {
        const int repeat = request.value("repeat", 1);
        json durations = json::array();
        Run run;
        for (int i = 0; i < repeat; ++i) {
            run = runOnce(request);
            durations.push_back(run.took.count());
        }
        answer["pid"] = run.pid;
        answer["status"] = run.status;
        answer["stdout"] = base64Encode(run.out);
        answer["stderr"] = base64Encode(run.err);
        answer["durations_ns"] = durations;
    }
    if (const auto root = request.find("collect"); root != request.end())
        answer["files"] = collect(root->get<std::string>(), laidOut);
    return answer;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::cerr << "usage: partmode-guest-agent SERIAL-PORT\n";
        return 64;
    }
    const Fd port(::open(argv[1], O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios mode{};
    if (port.get() < 0 || ::tcgetattr(port.get(), &mode) != 0) {
        std::cerr << "partmode-guest-agent: " << argv[1] << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    ::cfmakeraw(&mode);
    ::cfsetspeed(&mode, B115200);
    ::tcsetattr(port.get(), TCSANOW, &mode);
    ::tcflush(port.get(), TCIFLUSH);
    ::signal(SIGPIPE, SIG_IGN);
    // The host sends its first request once it reads this line on the
    // console. Said any earlier, before the port is open and raw, that
    // request could be lost.
    std::cout << "partmode-guest: agent ready" << std::endl;

    std::string pending;
    for (;;) {
        std::array<char, 65536> buffer{};
        const auto got = ::read(port.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            std::cerr << "partmode-guest-agent: reading " << argv[1] << ": " << std::strerror(errno) << '\n';
            return 1;
        }
        pending.append(buffer.data(), static_cast<std::size_t>(got));
        for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            json answer;
            json request;
            try {
                request = json::parse(line);
                answer = handle(request);
            } catch (const std::exception& error) {
                answer = {{"id", request.is_object() ? request.value("id", json()) : json()}, {"error", error.what()}};
            }
            writeAll(port.get(), answer.dump() + "\n");
        }
    }
}
