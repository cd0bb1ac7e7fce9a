// Runs the JSON scenarios under PARTMODE_SCENARIO_DIR against the built
// partmode binary; the format is described in scenarios/README.md.

#include "inband/Base64.h"
#include "inband/GuestAgentClient.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#ifndef PARTMODE_SCENARIO_DIR
#error "PARTMODE_SCENARIO_DIR must name the scenario directory"
#endif
#ifndef PARTMODE_BINARY
#error "PARTMODE_BINARY must name the partmode executable"
#endif
#ifndef PARTMODE_SIM_BINARY
#error "PARTMODE_SIM_BINARY must name the simulator control executable"
#endif
#ifndef PARTMODE_LOCALEDIR_FROM_BINDIR
#error "PARTMODE_LOCALEDIR_FROM_BINDIR must give the tool's locale folder relative to its own folder"
#endif
#ifndef PARTMODE_TEST_CATALOGUES
#error "PARTMODE_TEST_CATALOGUES must name the folder of the test message catalogues"
#endif

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace std::chrono_literals;

// PARTMODE_SCENARIO_WRAPPER holds a program, by its full path, and its
// options, separated by blanks: every run of the tool goes through it
// (valgrind in the memcheck pass). Such runs are slower and get longer.
std::vector<std::string> wrapper()
{
    std::vector<std::string> words;
    if (const char* text = std::getenv("PARTMODE_SCENARIO_WRAPPER")) {
        std::istringstream in(text);
        for (std::string word; in >> word;)
            words.push_back(word);
    }
    return words;
}

const auto runTimeout = wrapper().empty() ? 20s : 300s;
const std::regex timePattern{R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4})"};
const std::regex traceLinePattern{
    R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} partmode\[(\d+)\]: )"};

// Aborts the current scenario; the message becomes the test failure.
struct ScenarioError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string errnoText(int err = errno)
{
    return std::error_code(err, std::system_category()).message();
}

// Quoted, with control characters escaped so trailing blanks and stray
// carriage returns are visible in failure output.
std::string visible(std::string_view s)
{
    std::string out = "\"";
    for (const char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        switch (ch) {
        case '\n': out += "\\n"; break;
        case '\t': out += "\\t"; break;
        case '\r': out += "\\r"; break;
        case '\\': out += "\\\\"; break;
        case '"': out += "\\\""; break;
        default:
            if (c < 0x20 || c == 0x7f) {
                std::ostringstream hex;
                hex << "\\x" << std::hex << std::setw(2) << std::setfill('0') << int{c};
                out += hex.str();
            } else {
                out += ch;
            }
        }
    }
    return out + "\"";
}

std::vector<std::string> splitKeepingNewlines(std::string_view s)
{
    std::vector<std::string> lines;
    while (!s.empty()) {
        const auto nl = s.find('\n');
        const auto len = nl == std::string_view::npos ? s.size() : nl + 1;
        lines.emplace_back(s.substr(0, len));
        s.remove_prefix(len);
    }
    return lines;
}

std::vector<std::string> splitLines(std::string_view s)
{
    auto lines = splitKeepingNewlines(s);
    for (auto& line : lines) {
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
    }
    return lines;
}

std::string listing(const std::vector<std::string>& lines, std::size_t mark, bool quote, int width)
{
    std::ostringstream out;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        out << (i == mark ? "    > " : "      ") << std::setw(width) << i + 1 << "  "
            << (quote ? visible(lines[i]) : lines[i]) << '\n';
    }
    if (mark >= lines.size())
        out << "    > " << std::setw(width) << mark + 1 << "  (no such line)\n";
    return out.str();
}

// Empty if equal, otherwise both sides with the first differing line marked.
std::string compareLines(std::string_view what, const std::vector<std::string>& expected,
                         const std::vector<std::string>& actual, bool quote)
{
    if (expected == actual)
        return {};
    std::size_t line = 0;
    while (line < expected.size() && line < actual.size() && expected[line] == actual[line])
        ++line;
    std::ostringstream out;
    out << what << " differs at line " << line + 1;
    if (line < expected.size() && line < actual.size()) {
        const auto& e = expected[line];
        const auto& a = actual[line];
        const auto col = std::mismatch(e.begin(), e.end(), a.begin(), a.end()).first - e.begin();
        out << ", column " << col + 1;
    }
    const auto width = static_cast<int>(std::to_string(std::max({expected.size(), actual.size(), line + 1})).size());
    out << "\n  expected:\n" << listing(expected, line, quote, width)
        << "  actual:\n" << listing(actual, line, quote, width);
    return out.str();
}

std::string compareText(std::string_view what, std::string_view expected, std::string_view actual)
{
    return compareLines(what, splitKeepingNewlines(expected), splitKeepingNewlines(actual), true);
}

std::string showText(std::string_view what, std::string_view text)
{
    std::ostringstream out;
    out << what << ":\n";
    const auto lines = splitKeepingNewlines(text);
    if (lines.empty())
        out << "      (nothing)\n";
    for (const auto& line : lines)
        out << "      " << visible(line) << '\n';
    return out.str();
}

std::optional<std::string> readFile(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return std::nullopt;
    std::ostringstream content;
    content << in.rdbuf();
    return std::move(content).str();
}

void writeFile(const fs::path& path, std::string_view content)
{
    std::error_code ec;
    fs::create_directories(path.parent_path(), ec);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!out.flush())
        throw ScenarioError("cannot write " + path.string());
}

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd() { reset(); }

    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset()
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

struct Pipe {
    Fd read;
    Fd write;
};

Pipe makePipe()
{
    std::array<int, 2> fds{};
    if (::pipe2(fds.data(), O_CLOEXEC) != 0)
        throw ScenarioError("pipe2: " + errnoText());
    return {Fd(fds[0]), Fd(fds[1])};
}

void setNonBlocking(const Fd& fd)
{
    if (fd)
        ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
}

class TempDir {
public:
    TempDir()
    {
        const char* tmp = std::getenv("TMPDIR");
        const fs::path base = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
        std::string pattern = (base / "partmode-scenario-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr)
            throw ScenarioError("mkdtemp " + pattern + ": " + errnoText());
        path_ = pattern;
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    ~TempDir()
    {
        if (keep()) {
            std::cout << "[ kept     ] " << path_.string() << std::endl;
            return;
        }
        std::error_code ec;
        fs::remove_all(path_, ec);
    }

    [[nodiscard]] const fs::path& path() const { return path_; }
    [[nodiscard]] static bool keep() { return std::getenv("PARTMODE_KEEP_SCENARIO_DIRS") != nullptr; }

private:
    fs::path path_;
};

struct Command {
    std::string program;
    std::vector<std::string> argv;
    std::map<std::string, std::string> env;
    fs::path cwd;
    std::optional<std::string> input;
    // Run the program under this user id (and the same group id); needs root.
    std::optional<uid_t> uid;
};

struct Outcome {
    pid_t pid = -1;
    std::string out;
    std::string err;
    int status = 0;
};

[[noreturn]] void childFailed(int reportFd)
{
    const int err = errno;
    [[maybe_unused]] const auto n = ::write(reportFd, &err, sizeof err);
    ::_exit(127);
}

// Runs cmd in its own session (so it cannot reach the developer's terminal
// and can be killed as a group), feeding input and collecting both outputs.
Outcome run(const Command& cmd)
{
    std::vector<std::string> envStrings;
    for (const auto& [name, value] : cmd.env)
        envStrings.push_back(name + "=" + value);
    std::vector<char*> argv;
    for (const auto& arg : cmd.argv)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (const auto& entry : envStrings)
        envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);
    const std::string cwd = cmd.cwd.string();

    Pipe in;
    Fd devNull;
    if (cmd.input) {
        in = makePipe();
    } else {
        devNull = Fd(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!devNull)
            throw ScenarioError("/dev/null: " + errnoText());
    }
    Pipe out = makePipe();
    Pipe err = makePipe();
    Pipe execReport = makePipe();

    const pid_t pid = ::fork();
    if (pid < 0)
        throw ScenarioError("fork: " + errnoText());
    if (pid == 0) {
        // Only async-signal-safe calls from here to execve.
        ::setsid();
        const int inFd = cmd.input ? in.read.get() : devNull.get();
        if (::dup2(inFd, STDIN_FILENO) < 0 || ::dup2(out.write.get(), STDOUT_FILENO) < 0
            || ::dup2(err.write.get(), STDERR_FILENO) < 0 || ::chdir(cwd.c_str()) < 0)
            childFailed(execReport.write.get());
        if (cmd.uid && (::setgroups(0, nullptr) != 0 || ::setresgid(*cmd.uid, *cmd.uid, *cmd.uid) != 0
                        || ::setresuid(*cmd.uid, *cmd.uid, *cmd.uid) != 0))
            childFailed(execReport.write.get());
        // The runner ignores SIGPIPE, and ignored signals survive execve.
        struct sigaction dfl{};
        dfl.sa_handler = SIG_DFL;
        ::sigaction(SIGPIPE, &dfl, nullptr);
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::execve(cmd.program.c_str(), argv.data(), envp.data());
        childFailed(execReport.write.get());
    }

    in.read.reset();
    out.write.reset();
    err.write.reset();
    execReport.write.reset();
    devNull.reset();

    int childErrno = 0;
    ssize_t n = 0;
    do {
        n = ::read(execReport.read.get(), &childErrno, sizeof childErrno);
    } while (n < 0 && errno == EINTR);
    if (n > 0) {
        ::waitpid(pid, nullptr, 0);
        throw ScenarioError("cannot run " + cmd.program + ": " + errnoText(childErrno));
    }

    Outcome result;
    result.pid = pid;
    const auto deadline = std::chrono::steady_clock::now() + runTimeout;
    const auto timedOut = [&] {
        ::kill(-pid, SIGKILL);
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        return ScenarioError(cmd.argv.front() + " did not finish within "
                             + std::to_string(runTimeout.count()) + " s and was killed\n"
                             + showText("stdout so far", result.out) + showText("stderr so far", result.err));
    };

    std::string_view pending = cmd.input ? std::string_view(*cmd.input) : std::string_view();
    if (pending.empty())
        in.write.reset();
    setNonBlocking(in.write);
    setNonBlocking(out.read);
    setNonBlocking(err.read);

    while (out.read || err.read || in.write) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left <= 0ms)
            throw timedOut();
        std::array<pollfd, 3> fds{{{out.read.get(), POLLIN, 0},
                                   {err.read.get(), POLLIN, 0},
                                   {in.write.get(), POLLOUT, 0}}};
        if (::poll(fds.data(), fds.size(), static_cast<int>(left.count())) < 0) {
            if (errno == EINTR)
                continue;
            throw ScenarioError("poll: " + errnoText());
        }
        const auto drain = [](Fd& fd, const pollfd& p, std::string& into) {
            if (!fd || p.revents == 0)
                return;
            std::array<char, 65536> buffer{};
            const auto got = ::read(fd.get(), buffer.data(), buffer.size());
            if (got > 0)
                into.append(buffer.data(), static_cast<std::size_t>(got));
            else if (got == 0 || (errno != EAGAIN && errno != EINTR))
                fd.reset();
        };
        drain(out.read, fds[0], result.out);
        drain(err.read, fds[1], result.err);
        if (in.write && fds[2].revents != 0) {
            const auto put = ::write(in.write.get(), pending.data(), pending.size());
            if (put > 0)
                pending.remove_prefix(static_cast<std::size_t>(put));
            // EPIPE: the tool stopped reading, which is its business.
            if (pending.empty() || (put < 0 && errno != EAGAIN && errno != EINTR))
                in.write.reset();
        }
    }

    for (;;) {
        const pid_t done = ::waitpid(pid, &result.status, WNOHANG);
        if (done == pid)
            break;
        if (done < 0 && errno != EINTR)
            throw ScenarioError("waitpid: " + errnoText());
        if (std::chrono::steady_clock::now() >= deadline)
            throw timedOut();
        std::this_thread::sleep_for(2ms);
    }
    return result;
}

std::string describeStatus(int status)
{
    if (WIFEXITED(status))
        return "exit status " + std::to_string(WEXITSTATUS(status));
    if (WIFSIGNALED(status)) {
        const char* name = ::strsignal(WTERMSIG(status));
        return "killed by signal " + std::to_string(WTERMSIG(status)) + " ("
            + (name != nullptr ? name : "?") + ")";
    }
    return "wait status " + std::to_string(status);
}

std::string currentUser()
{
    const passwd* pw = ::getpwuid(::getuid());
    if (pw == nullptr || pw->pw_name == nullptr)
        throw ScenarioError("no login name for uid " + std::to_string(::getuid()));
    return pw->pw_name;
}

std::string substitute(std::string s, const std::vector<std::pair<std::string, std::string>>& vars)
{
    for (const auto& [from, to] : vars) {
        for (auto at = s.find(from); at != std::string::npos; at = s.find(from, at + to.size()))
            s.replace(at, from.size(), to);
    }
    return s;
}

json substitute(const json& j, const std::vector<std::pair<std::string, std::string>>& vars)
{
    if (j.is_string())
        return substitute(j.get<std::string>(), vars);
    if (j.is_array()) {
        json out = json::array();
        for (const auto& item : j)
            out.push_back(substitute(item, vars));
        return out;
    }
    if (j.is_object()) {
        json out = json::object();
        for (const auto& [key, value] : j.items())
            out[substitute(key, vars)] = substitute(value, vars);
        return out;
    }
    return j;
}

const json* find(const json& object, const std::string& key)
{
    const auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::string needString(const json& v, const std::string& what)
{
    if (!v.is_string())
        throw ScenarioError("\"" + what + "\" must be a string, not " + v.dump());
    return v.get<std::string>();
}

std::vector<std::string> needStrings(const json& v, const std::string& what)
{
    if (!v.is_array() || !std::all_of(v.begin(), v.end(), [](const json& e) { return e.is_string(); }))
        throw ScenarioError("\"" + what + "\" must be an array of strings, not " + v.dump());
    return v.get<std::vector<std::string>>();
}

const json& need(const json& object, const std::string& key, const std::string& where)
{
    const json* v = find(object, key);
    if (v == nullptr)
        throw ScenarioError(where + " lacks the required \"" + key + "\"");
    return *v;
}

void checkKeys(const json& object, const std::set<std::string>& known, const std::string& where)
{
    for (const auto& [key, value] : object.items()) {
        if (!known.contains(key))
            throw ScenarioError(where + " has unknown key \"" + key + "\" (typo?)");
    }
}

struct Step {
    std::string label;
    std::vector<std::string> args;
    std::optional<std::string> input;
    std::string out;
    std::string err;
    int exit = 0;
};

Step parseStep(const json& o, const std::string& label)
{
    if (!o.is_object())
        throw ScenarioError(label + " must be an object");
    Step step;
    step.label = label;
    step.args = needStrings(need(o, "args", label), "args");
    if (const json* in = find(o, "stdin"))
        step.input = needString(*in, "stdin");
    step.out = needString(need(o, "stdout", label), "stdout");
    step.err = needString(need(o, "stderr", label), "stderr");
    const json& exit = need(o, "exit", label);
    if (!exit.is_number_integer() || exit.get<int>() < 0 || exit.get<int>() > 255)
        throw ScenarioError("\"exit\" must be an integer 0..255, not " + exit.dump());
    step.exit = exit.get<int>();
    return step;
}

fs::path resolve(const fs::path& dir, const std::string& path)
{
    const fs::path p(path);
    return p.is_absolute() ? p : dir / p;
}

// Explicit "<name>_file" key, else the path the board names, else the default.
fs::path artefactPath(const json& scenario, const std::optional<json>& board, const std::string& name,
                      const json::json_pointer& inBoard, const std::string& fallback, const fs::path& dir)
{
    if (const json* explicitPath = find(scenario, name + "_file"))
        return resolve(dir, needString(*explicitPath, name + "_file"));
    if (board && board->contains(inBoard) && board->at(inBoard).is_string())
        return resolve(dir, board->at(inBoard).get<std::string>());
    return dir / fallback;
}

std::string escapePointerToken(const std::string& key)
{
    std::string out;
    for (const char c : key) {
        if (c == '~')
            out += "~0";
        else if (c == '/')
            out += "~1";
        else
            out += c;
    }
    return out;
}

// Collects where expected is not a subset of actual; also builds actual
// trimmed to expected's shape so the two dumps line up.
void subsetDiff(const json& expected, const json& actual, const std::string& path,
                std::vector<std::string>& problems, json& projected)
{
    if (expected.is_object() && actual.is_object()) {
        projected = json::object();
        for (const auto& [key, value] : expected.items()) {
            const auto sub = path + "/" + escapePointerToken(key);
            if (!actual.contains(key)) {
                problems.push_back(sub + ": missing (expected " + value.dump() + ")");
                projected[key] = "<missing>";
                continue;
            }
            subsetDiff(value, actual.at(key), sub, problems, projected[key]);
        }
        return;
    }
    projected = actual;
    if (expected != actual)
        problems.push_back((path.empty() ? "/" : path) + ": expected " + expected.dump() + ", actual "
                           + actual.dump());
}

class Reporter {
public:
    explicit Reporter(fs::path file) : file_(std::move(file)) {}
    void setTitle(std::string title) { title_ = std::move(title); }
    void setDir(fs::path dir) { dir_ = std::move(dir); }

    void fail(const std::string& message)
    {
        std::ostringstream header;
        header << "scenario: " << (title_.empty() ? "(untitled)" : title_) << "\n";
        if (!failed_) {
            header << "file:     " << file_.string() << "\n";
            if (!dir_.empty() && TempDir::keep())
                header << "dir:      " << dir_.string() << "\n";
        }
        failed_ = true;
        ADD_FAILURE_AT(file_.string().c_str(), 1) << header.str() << message;
    }
    void failIf(const std::string& message)
    {
        if (!message.empty())
            fail(message);
    }

private:
    fs::path file_;
    std::string title_;
    fs::path dir_;
    bool failed_ = false;
};

// One failure for all format problems of a file, so a wrong prefix on every
// line does not bury the content comparison.
void reportProblems(Reporter& report, const std::string& what, const std::vector<std::string>& problems)
{
    constexpr std::size_t shown = 10;
    if (problems.empty())
        return;
    std::string message = what + " is malformed:\n";
    for (std::size_t i = 0; i < problems.size() && i < shown; ++i)
        message += "  " + problems[i] + "\n";
    if (problems.size() > shown)
        message += "  ... and " + std::to_string(problems.size() - shown) + " more\n";
    report.fail(message);
}

struct ScenarioFile {
    fs::path file;
    std::string name;
    std::string error;
};

void PrintTo(const ScenarioFile& s, std::ostream* os)
{
    *os << s.file.string();
}

void checkTrace(Reporter& report, const json& expectedJson, const fs::path& path,
                const std::vector<pid_t>& pids)
{
    const auto expected = needStrings(expectedJson, "trace");
    const auto lines = splitLines(readFile(path).value_or(""));
    std::vector<std::string> actual;
    std::vector<std::string> malformed;
    std::size_t lastStep = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto& line = lines[i];
        const auto where = "line " + std::to_string(i + 1) + " " + visible(line);
        std::smatch m;
        if (!std::regex_search(line, m, traceLinePattern)) {
            malformed.push_back(where + ": prefix is not \"<time> partmode[<pid>]: \"");
        } else {
            const auto pid = std::stol(m[1].str());
            const auto it = std::find(pids.begin(), pids.end(), pid);
            if (it == pids.end()) {
                malformed.push_back(where + ": pid is not that of a partmode run");
            } else {
                const auto step = static_cast<std::size_t>(it - pids.begin());
                if (step < lastStep)
                    malformed.push_back(where + ": line of an earlier run after a later one");
                lastStep = std::max(lastStep, step);
            }
        }
        const auto cut = line.find("]: ");
        actual.push_back(cut == std::string::npos ? line : line.substr(cut + 3));
    }
    reportProblems(report, path.string(), malformed);
    report.failIf(compareLines("trace (" + path.string() + ")", expected, actual, true));
}

void checkAudit(Reporter& report, const json& expectedJson, const fs::path& path)
{
    if (!expectedJson.is_array())
        throw ScenarioError("\"audit\" must be an array of objects");
    static const std::set<std::string> fields{"time", "user", "origin", "kind", "code", "text", "applied"};
    const auto lines = splitLines(readFile(path).value_or(""));
    json actualEntries = json::array();
    std::vector<std::string> malformed;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const auto where = "line " + std::to_string(i + 1) + " " + visible(lines[i]) + ": ";
        const json entry = json::parse(lines[i], nullptr, false);
        if (!entry.is_object()) {
            malformed.push_back(where + "not a JSON object");
            continue;
        }
        std::set<std::string> keys;
        for (const auto& [key, value] : entry.items())
            keys.insert(key);
        if (keys != fields) {
            std::string missing;
            std::string extra;
            for (const auto& f : fields)
                missing += keys.contains(f) ? "" : " " + f;
            for (const auto& k : keys)
                extra += fields.contains(k) ? "" : " " + k;
            malformed.push_back(where + "wrong keys (missing:" + missing + "; unexpected:" + extra + ")");
        }
        if (const json* time = find(entry, "time");
            time != nullptr && (!time->is_string() || !std::regex_match(time->get<std::string>(), timePattern)))
            malformed.push_back(where + "\"time\" is not like 2026-11-21T14:06:47+0000");
        json compared = entry;
        compared.erase("time");
        actualEntries.push_back(std::move(compared));
    }
    reportProblems(report, path.string(), malformed);
    const auto dumpEach = [](const json& list) {
        std::vector<std::string> out;
        for (const auto& e : list)
            out.push_back(e.dump());
        return out;
    };
    if (actualEntries != expectedJson)
        report.fail(compareLines("audit (" + path.string() + ", \"time\" left out)",
                                 dumpEach(expectedJson), dumpEach(actualEntries), false));
}

void checkState(Reporter& report, const json& expected, const fs::path& path,
                const std::optional<std::string>& before)
{
    const auto after = readFile(path);
    if (expected.is_string()) {
        if (expected.get<std::string>() != "unchanged")
            throw ScenarioError("\"state_after\" must be \"unchanged\" or an object");
        if (before && after && before != after)
            report.fail("state file " + path.string() + " changed, expected it unchanged\n"
                        + compareText("state", *before, *after));
        else if (before && !after)
            report.fail("state file " + path.string() + " was removed, expected it unchanged");
        else if (!before && after)
            report.fail("state file " + path.string() + " was created, expected it unchanged"
                        " (the simulator creates it on first use; give the scenario a \"state\")");
        return;
    }
    if (!expected.is_object())
        throw ScenarioError("\"state_after\" must be \"unchanged\" or an object");
    if (!after) {
        report.fail("state file " + path.string() + " does not exist after the run");
        return;
    }
    const json actual = json::parse(*after, nullptr, false);
    if (actual.is_discarded()) {
        report.fail("state file " + path.string() + " is not valid JSON after the run:\n" + *after);
        return;
    }
    std::vector<std::string> problems;
    json projected;
    subsetDiff(expected, actual, "", problems, projected);
    if (problems.empty())
        return;
    std::string message = "state after the run (" + path.string() + ") differs:\n";
    for (const auto& p : problems)
        message += "  " + p + "\n";
    message += "expected (subset):\n" + expected.dump(2) + "\nactual (same keys only):\n" + projected.dump(2);
    report.fail(message);
}

json loadScenario(const fs::path& file, Reporter& report)
{
    const auto text = readFile(file);
    if (!text)
        throw ScenarioError("cannot read the scenario file");
    json raw;
    try {
        raw = json::parse(*text);
    } catch (const json::parse_error& e) {
        throw ScenarioError(std::string("not valid JSON: ") + e.what());
    }
    if (!raw.is_object())
        throw ScenarioError("a scenario must be a JSON object");
    if (const json* title = find(raw, "title"); title != nullptr && title->is_string())
        report.setTitle(title->get<std::string>());
    checkKeys(raw,
              {"title", "comment", "board", "board_raw", "state", "state_raw", "env", "before", "args", "stdin",
               "stdout", "stderr", "exit", "steps", "trace", "audit", "state_after", "state_file", "run_as_uid",
               "trace_file", "audit_file", "transports"},
              "the scenario");
    return raw;
}

std::vector<Step> parseSteps(const json& sc)
{
    const json* list = find(sc, "steps");
    if (list == nullptr)
        return {parseStep(sc, "the scenario")};
    for (const auto* key : {"args", "stdin", "stdout", "stderr", "exit"}) {
        if (sc.contains(key))
            throw ScenarioError(std::string("with \"steps\", \"") + key + "\" belongs inside each step");
    }
    if (!list->is_array() || list->empty())
        throw ScenarioError("\"steps\" must be a non-empty array");
    std::vector<Step> steps;
    for (std::size_t i = 0; i < list->size(); ++i) {
        const auto label = "step " + std::to_string(i + 1);
        checkKeys(list->at(i), {"comment", "args", "stdin", "stdout", "stderr", "exit"},
                  label + " (trace and audit are checked once, at the top level)");
        steps.push_back(parseStep(list->at(i), label));
    }
    return steps;
}

// The BMC of the LAN pass: partmode-sim serve, started once for all scenarios
// by the CTest fixture, which left the board's "firmware" object that reaches
// it in $PARTMODE_SCENARIO_BMC/firmware.json. It serves one state file, so the
// LAN pass runs the scenarios one at a time on that file.
// The in-band pass ($PARTMODE_SCENARIO_VM) is laid out alike; there the tool
// runs in a virtual machine whose kernel reaches that BMC through its KCS
// driver, and the guest agent's serial port is $PARTMODE_SCENARIO_VM/agent.sock.
struct LanBmc {
    json firmware;
    fs::path state;
    std::optional<fs::path> agent;
};

std::optional<LanBmc> lanBmc()
{
    const char* lanFolder = std::getenv("PARTMODE_SCENARIO_BMC");
    const char* vmFolder = std::getenv("PARTMODE_SCENARIO_VM");
    const bool lan = lanFolder != nullptr && *lanFolder != '\0';
    const bool vm = vmFolder != nullptr && *vmFolder != '\0';
    if (lan && vm)
        throw ScenarioError("PARTMODE_SCENARIO_BMC and PARTMODE_SCENARIO_VM exclude each other");
    if (!lan && !vm)
        return std::nullopt;
    const fs::path folder = lan ? lanFolder : vmFolder;
    const fs::path path = folder / "firmware.json";
    const json firmware = json::parse(readFile(path).value_or(""), nullptr, false);
    if (!firmware.is_object())
        throw ScenarioError(std::string(lan ? "the LAN pass" : "the in-band pass") + " has no BMC: " + path.string()
                            + " holds no firmware object");
    if (vm && !wrapper().empty())
        throw ScenarioError("the in-band pass runs the tool in its machine, through no wrapper");
    if (vm && std::getenv("PARTMODE_SCENARIO_TOOL") != nullptr)
        throw ScenarioError("the in-band pass runs the tool its machine was given, not PARTMODE_SCENARIO_TOOL");
    return LanBmc{firmware, folder / "state.json", vm ? std::optional(folder / "agent.sock") : std::nullopt};
}

// The passes a scenario runs in: "simulator" (the embedded simulator) and
// "lan" (the BMC of the LAN pass); both unless it says otherwise.
bool runsInPass(const json& sc, const std::string& pass)
{
    const json* transports = find(sc, "transports");
    if (transports == nullptr)
        return true;
    const auto list = needStrings(*transports, "transports");
    for (const auto& name : list) {
        if (name != "simulator" && name != "lan")
            throw ScenarioError("\"transports\" may name only \"simulator\" and \"lan\", not \"" + name + "\"");
    }
    return std::find(list.begin(), list.end(), pass) != list.end();
}

// In the LAN pass a board that would reach the embedded simulator reaches the
// BMC instead; the BMC's password file is copied for a tool run as `runAs`.
void useLanBmc(json& board, const LanBmc& bmc, const fs::path& dir, std::optional<uid_t> runAs)
{
    const json* firmware = find(board, "firmware");
    if (firmware != nullptr && firmware->value("transport", "simulator") != "simulator")
        return;
    board["firmware"] = bmc.firmware;
    if (runAs && bmc.firmware.contains("password_file")) {
        const fs::path copy = dir / "bmc.pass";
        fs::copy_file(needString(bmc.firmware.at("password_file"), "password_file"), copy);
        if (::chown(copy.c_str(), *runAs, *runAs) != 0)
            throw ScenarioError("chown " + copy.string() + ": " + errnoText());
        board["firmware"]["password_file"] = copy.string();
    }
}

// Writes board.json; returns the board as written when it is known JSON.
std::optional<json> writeBoard(const json& sc, const fs::path& boardPath, const std::optional<LanBmc>& lan,
                               std::optional<uid_t> runAs)
{
    if (lan && (sc.contains("board_raw") || sc.value("board", json::object()) == "none"))
        throw ScenarioError("without a board of its own the scenario cannot reach the BMC of the LAN pass; "
                            "give it \"transports\": [\"simulator\"] and say why in its \"comment\"");
    if (const json* boardRaw = find(sc, "board_raw")) {
        if (sc.contains("board"))
            throw ScenarioError("\"board\" and \"board_raw\" exclude each other");
        writeFile(boardPath, needString(*boardRaw, "board_raw"));
        return std::nullopt;
    }
    json board = sc.value("board", json::object());
    if (board == "none")
        return std::nullopt;
    if (!board.is_object())
        throw ScenarioError("\"board\" must be an object or \"none\"");
    const json defaults = {{"firmware", {{"transport", "simulator"}, {"state", "firmware.json"}}},
                           {"trace", "trace.log"},
                           {"audit", "audit.log"}};
    for (const auto& [key, value] : defaults.items()) {
        if (!board.contains(key))
            board[key] = value;
    }
    if (lan)
        useLanBmc(board, *lan, boardPath.parent_path(), runAs);
    writeFile(boardPath, board.dump(2) + "\n");
    return board;
}

std::map<std::string, std::string> makeEnv(const json& sc, const fs::path& dir, const fs::path& boardPath)
{
    std::map<std::string, std::string> env{
        {"PATH", "/usr/bin:/bin"}, {"LANG", "C"}, {"HOME", dir.string()}, {"XDG_STATE_HOME", dir.string()}};
    if (fs::exists(boardPath))
        env["PARTMODE_BOARD"] = boardPath.string();
    if (const json* extra = find(sc, "env")) {
        if (!extra->is_object())
            throw ScenarioError("\"env\" must be an object");
        for (const auto& [name, value] : extra->items()) {
            if (value.is_null())
                env.erase(name);
            else
                env[name] = needString(value, "env." + name);
        }
    }
    return env;
}

void runBefore(const json& sc, const std::map<std::string, std::string>& env, const fs::path& dir,
               const std::vector<std::string>& options)
{
    const json* before = find(sc, "before");
    if (before == nullptr)
        return;
    if (!before->is_array())
        throw ScenarioError("\"before\" must be an array of argument arrays");
    for (const auto& args : *before) {
        Command cmd{PARTMODE_SIM_BINARY, {"partmode-sim"}, env, dir, std::nullopt, std::nullopt};
        cmd.argv.insert(cmd.argv.end(), options.begin(), options.end());
        const auto list = needStrings(args, "before");
        cmd.argv.insert(cmd.argv.end(), list.begin(), list.end());
        const auto result = run(cmd);
        if (!WIFEXITED(result.status) || WEXITSTATUS(result.status) != 0) {
            throw ScenarioError("before: partmode-sim " + args.dump() + " ended with "
                                + describeStatus(result.status) + "\n" + showText("stdout", result.out)
                                + showText("stderr", result.err));
        }
    }
}

// The tool the scenarios run: PARTMODE_SCENARIO_TOOL when set, else the one
// this runner was built with. The message catalogue lies relative to it.
fs::path builtTool()
{
    const char* tool = std::getenv("PARTMODE_SCENARIO_TOOL");
    return tool != nullptr && *tool != '\0' ? fs::path(tool) : fs::path(PARTMODE_BINARY);
}

// Another user must be able to walk down to `dir`: every folder above it
// must let others search it (the run folder itself is opened up by the caller).
void requireReachableByOthers(const fs::path& dir, uid_t uid)
{
    for (fs::path folder = fs::absolute(dir).parent_path();; folder = folder.parent_path()) {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0)
            throw ScenarioError("stat " + folder.string() + ": " + errnoText());
        if ((status.st_mode & S_IXOTH) == 0) {
            std::ostringstream mode;
            mode << std::oct << std::setw(4) << std::setfill('0') << (status.st_mode & 07777);
            throw ScenarioError("user id " + std::to_string(uid) + " cannot reach the run folder " + dir.string()
                                + ": " + folder.string() + " has mode " + mode.str()
                                + "; set TMPDIR to a folder that every user can reach");
        }
        if (folder == folder.root_path())
            return;
    }
}

// Folders 0755, files readable by everyone, programs executable by everyone.
void openToEveryone(const fs::path& top)
{
    using fs::perms;
    const auto open = [](const fs::path& path) {
        if (fs::is_directory(path)) {
            fs::permissions(path, perms::owner_all | perms::group_read | perms::group_exec | perms::others_read
                                      | perms::others_exec);
        } else {
            const bool program = (fs::status(path).permissions() & perms::owner_exec) != perms::none;
            fs::permissions(path, perms::group_read | perms::others_read
                                      | (program ? perms::group_exec | perms::others_exec : perms::none),
                            fs::perm_options::add);
        }
    };
    open(top);
    for (const auto& entry : fs::recursive_directory_iterator(top))
        open(entry.path());
}

// A tool run under another user id may not reach the build tree: a clone
// under /root (mode 0700) is out of that user's reach. So the tool, with the
// message catalogue it finds relative to its own folder, is copied into the
// run folder, and that copy is what runs.
fs::path copyToolForOtherUser(const fs::path& dir)
{
    const fs::path built = builtTool();
    const fs::path top = dir / "tool";
    const fs::path bin = top / "bin";
    const fs::path catalogues = (built.parent_path() / PARTMODE_LOCALEDIR_FROM_BINDIR).lexically_normal();
    const fs::path cataloguesCopy = (bin / PARTMODE_LOCALEDIR_FROM_BINDIR).lexically_normal();
    if (!fs::is_directory(catalogues))
        throw ScenarioError("the built tool has no message catalogues in " + catalogues.string());
    try {
        fs::create_directories(bin);
        fs::create_directories(cataloguesCopy);
        fs::copy_file(built, bin / built.filename());
        fs::copy(catalogues, cataloguesCopy, fs::copy_options::recursive);
        openToEveryone(top);
    } catch (const fs::filesystem_error& e) {
        throw ScenarioError(std::string("cannot copy the tool for another user: ") + e.what());
    }
    return bin / built.filename();
}

// The passwd lines of these users, those the host knows: the guest has no
// users of its own.
std::string passwdLines(const std::vector<uid_t>& uids)
{
    std::string lines;
    std::set<uid_t> done;
    for (const uid_t uid : uids) {
        const passwd* pw = ::getpwuid(uid);
        if (!done.insert(uid).second || pw == nullptr)
            continue;
        lines += std::string(pw->pw_name) + ":x:" + std::to_string(pw->pw_uid) + ":" + std::to_string(pw->pw_gid)
            + ":" + pw->pw_gecos + ":" + pw->pw_dir + ":" + pw->pw_shell + "\n";
    }
    return lines;
}

partmode::test::GuestAgentClient& guestAgent(const fs::path& socket)
{
    static std::unique_ptr<partmode::test::GuestAgentClient> client;
    if (!client)
        client = std::make_unique<partmode::test::GuestAgentClient>(socket);
    return *client;
}

// The in-band pass runs the tool in its machine: the run folder is laid out
// there at the same path, the tool runs through the guest agent, and the
// folder's files come back, so everything after compares as for a local run.
Outcome runInGuest(const fs::path& agentSocket, const Command& cmd)
{
    using partmode::test::base64Decode;
    using partmode::test::base64Encode;
    json env = json::array();
    for (const auto& [name, value] : cmd.env)
        env.push_back(name + "=" + value);
    std::vector<uid_t> users{::geteuid()};
    if (cmd.uid)
        users.push_back(*cmd.uid);
    const json request{{"clear", cmd.cwd.string()},
                       // The tool copied into the run folder (to run it as
                       // another user) is the guest's own, copied there.
                       {"entries", partmode::test::GuestAgentClient::folderEntries(cmd.cwd, {PARTMODE_BINARY})},
                       {"passwd", passwdLines(users)},
                       {"program", cmd.program},
                       {"argv", cmd.argv},
                       {"env", env},
                       {"cwd", cmd.cwd.string()},
                       {"uid", cmd.uid ? json(*cmd.uid) : json()},
                       {"stdin", cmd.input ? json(base64Encode(*cmd.input)) : json()},
                       {"timeout_ms", std::chrono::milliseconds(runTimeout).count()},
                       {"collect", cmd.cwd.string()}};
    json answer;
    try {
        answer = guestAgent(agentSocket).call(request, runTimeout + 30s);
    } catch (const std::exception& e) {
        throw ScenarioError(e.what());
    }
    for (const auto& file : answer.at("files")) {
        const fs::path path = file.at("path").get<std::string>();
        const auto inside = path.lexically_relative(cmd.cwd);
        if (inside.empty() || *inside.begin() == "..")
            throw ScenarioError("the guest agent sent back " + path.string() + ", outside the run folder");
        writeFile(path, base64Decode(file.at("data").get<std::string>()));
    }
    Outcome result;
    result.pid = answer.at("pid").get<pid_t>();
    result.status = answer.at("status").get<int>();
    result.out = base64Decode(answer.at("stdout").get<std::string>());
    result.err = base64Decode(answer.at("stderr").get<std::string>());
    const auto took = std::chrono::nanoseconds(answer.at("durations_ns").at(0).get<std::int64_t>());
    if (took >= runTimeout)
        throw ScenarioError(cmd.argv.front() + " did not finish within " + std::to_string(runTimeout.count())
                            + " s in the guest and was killed\n" + showText("stdout so far", result.out)
                            + showText("stderr so far", result.err));
    return result;
}

void runScenario(const ScenarioFile& param, Reporter& report)
{
    if (!param.error.empty())
        throw ScenarioError(param.error);
    const json raw = loadScenario(param.file, report);

    // The test catalogues stay in the build tree, which another user may not
    // reach, so whether such a scenario passed would depend on where the
    // clone lies.
    if (raw.contains("run_as_uid") && raw.dump().find("${catalogues}") != std::string::npos)
        throw ScenarioError("a scenario with \"run_as_uid\" cannot use ${catalogues}: the test catalogues lie in "
                            "the build tree, which that user may not reach");

    const TempDir tmp;
    const fs::path& dir = tmp.path();
    report.setDir(dir);
    const json sc = substitute(raw, {{"${user}", currentUser()},
                                     {"${dir}", dir.string()},
                                     {"${catalogues}", PARTMODE_TEST_CATALOGUES}});
    const auto steps = parseSteps(sc);
    const auto lan = lanBmc();
    // The in-band pass runs what the LAN pass runs.
    if (!runsInPass(sc, lan ? "lan" : "simulator"))
        GTEST_SKIP() << "the scenario does not run in the " << (lan ? "LAN" : "simulator") << " pass";
    std::optional<uid_t> runAs;
    fs::path tool = builtTool();
    if (const json* uid = find(sc, "run_as_uid")) {
        if (!uid->is_number_unsigned())
            throw ScenarioError("\"run_as_uid\" must be a user id");
        if (::geteuid() != 0)
            GTEST_SKIP() << "running the tool as another user needs root";
        runAs = uid->get<uid_t>();
        // The other user must reach the board and write the trace in the run folder.
        fs::permissions(dir, fs::perms::all);
        requireReachableByOthers(dir, *runAs);
        tool = copyToolForOtherUser(dir);
    }

    const fs::path boardPath = dir / "board.json";
    const auto board = writeBoard(sc, boardPath, lan, runAs);
    const auto statePath =
        lan ? lan->state : artefactPath(sc, board, "state", json::json_pointer("/firmware/state"), "firmware.json", dir);
    if (lan) {
        std::error_code absent;
        fs::remove(statePath, absent);
    }
    const auto tracePath = artefactPath(sc, board, "trace", json::json_pointer("/trace"), "trace.log", dir);
    const auto auditPath = artefactPath(sc, board, "audit", json::json_pointer("/audit"), "audit.log", dir);
    if (const json* state = find(sc, "state"))
        writeFile(statePath, state->dump(2) + "\n");
    if (const json* stateRaw = find(sc, "state_raw")) {
        if (find(sc, "state"))
            throw ScenarioError("\"state\" and \"state_raw\" exclude each other");
        writeFile(statePath, needString(*stateRaw, "state_raw"));
    }
    const auto env = makeEnv(sc, dir, boardPath);
    runBefore(sc, env, dir, lan ? std::vector<std::string>{"--state", statePath.string()} : std::vector<std::string>{});

    const auto stateBefore = readFile(statePath);
    std::vector<pid_t> pids;
    for (const auto& step : steps) {
        Command cmd{tool.string(), {"partmode"}, env, dir, step.input, runAs};
        if (const auto through = wrapper(); !through.empty()) {
            cmd.program = through.front();
            cmd.argv = through;
            cmd.argv.push_back(tool.string());
        }
        cmd.argv.insert(cmd.argv.end(), step.args.begin(), step.args.end());
        const auto prefix = steps.size() > 1 ? step.label + " " + json(step.args).dump() + ": " : std::string();
        const auto result = lan && lan->agent ? runInGuest(*lan->agent, cmd) : run(cmd);
        pids.push_back(result.pid);
        report.failIf(compareText(prefix + "stdout", step.out, result.out));
        report.failIf(compareText(prefix + "stderr", step.err, result.err));
        if (!WIFEXITED(result.status) || WEXITSTATUS(result.status) != step.exit)
            report.fail(prefix + "expected exit status " + std::to_string(step.exit) + ", got "
                        + describeStatus(result.status));
    }

    if (const json* trace = find(sc, "trace"))
        checkTrace(report, *trace, tracePath, pids);
    if (const json* audit = find(sc, "audit"))
        checkAudit(report, *audit, auditPath);
    if (const json* state = find(sc, "state_after"))
        checkState(report, *state, statePath, stateBefore);
}

std::vector<ScenarioFile> findScenarios()
{
    const fs::path root = PARTMODE_SCENARIO_DIR;
    std::error_code ec;
    if (!fs::is_directory(root, ec))
        return {{root, "scenario_directory_missing", "scenario directory " + root.string() + " does not exist"}};

    std::vector<fs::path> files;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        const auto leaf = it->path().filename().string();
        if (leaf.starts_with('.')) {
            if (it->is_directory(ec))
                it.disable_recursion_pending();
            continue;
        }
        if (it->path().extension() == ".json" && it->is_regular_file(ec))
            files.push_back(it->path().lexically_relative(root));
    }
    if (ec)
        return {{root, "scenario_directory_unreadable", "cannot list " + root.string() + ": " + ec.message()}};
    std::sort(files.begin(), files.end());

    std::vector<ScenarioFile> scenarios;
    std::set<std::string> taken;
    for (const auto& rel : files) {
        std::string name = fs::path(rel).replace_extension().generic_string();
        std::replace_if(name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
        // GoogleTest needs unique names; "a-b" and "a_b" would clash.
        const std::string base = name;
        for (int n = 2; !taken.insert(name).second; ++n)
            name = base + "_" + std::to_string(n);
        scenarios.push_back({root / rel, name, {}});
    }
    return scenarios;
}

class ScenarioTest : public testing::TestWithParam<ScenarioFile> {
protected:
    static void SetUpTestSuite()
    {
        // A tool that exits without reading stdin must not kill the runner.
        ::signal(SIGPIPE, SIG_IGN);
    }
};

TEST_P(ScenarioTest, Run)
{
    Reporter report(GetParam().file);
    try {
        runScenario(GetParam(), report);
    } catch (const ScenarioError& e) {
        report.fail(e.what());
    } catch (const std::exception& e) {
        report.fail(std::string("unexpected error: ") + e.what());
    }
}

// An empty scenario directory is legitimate while the suite is being built up.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ScenarioTest);

INSTANTIATE_TEST_SUITE_P(Scenarios, ScenarioTest, testing::ValuesIn(findScenarios()),
                         [](const testing::TestParamInfo<ScenarioFile>& p) { return p.param.name; });

} // namespace
