#include "Board.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#ifndef PARTMODE_BINARY
#error "PARTMODE_BINARY must name the partmode executable"
#endif

namespace {

using partmode::Board;
using partmode::test::TemporaryDirectory;

TEST(BoardDestination, SyslogSendsTraceAndAuditToSyslog)
{
    const TemporaryDirectory folder;
    const auto board = Board::load(folder.write("board.json", R"({"trace": "syslog", "audit": "syslog"})"));
    EXPECT_TRUE(board.traceToSyslog);
    EXPECT_TRUE(board.auditToSyslog);
    EXPECT_TRUE(board.trace.empty());
    EXPECT_TRUE(board.audit.empty());
}

TEST(BoardDestination, EachDestinationIsChosenOnItsOwn)
{
    const TemporaryDirectory folder;
    const auto board = Board::load(folder.write("board.json", R"({"trace": "syslog", "audit": "audit.log"})"));
    EXPECT_TRUE(board.traceToSyslog);
    EXPECT_FALSE(board.auditToSyslog);
    EXPECT_EQ(board.audit, folder.path() / "audit.log");
}

TEST(BoardDestination, FileCalledSyslogIsNamedWithItsFolder)
{
    const TemporaryDirectory folder;
    const auto board = Board::load(folder.write("board.json", R"({"trace": "./syslog", "audit": "/var/log/syslog"})"));
    EXPECT_FALSE(board.traceToSyslog);
    EXPECT_FALSE(board.auditToSyslog);
    EXPECT_EQ(board.trace, folder.path() / "./syslog");
    EXPECT_EQ(board.audit, std::filesystem::path("/var/log/syslog"));
}

TEST(BoardDestination, FilesAreTheDefault)
{
    const auto board = Board::load({});
    EXPECT_FALSE(board.traceToSyslog);
    EXPECT_FALSE(board.auditToSyslog);
    EXPECT_FALSE(board.trace.empty());
    EXPECT_FALSE(board.audit.empty());
}

struct SyslogRun {
    std::string skipReason;
    int exitStatus = -1;
    std::vector<std::string> records;
};

void writeAll(int fd, const std::string& data)
{
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t written = ::write(fd, data.data() + done, data.size() - done);
        if (written <= 0 && errno != EINTR) {
            return;
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

// What execve takes: pointers into `texts`, then a null pointer.
std::vector<char*> nullTerminated(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const auto& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

// In the child: a private mount namespace with a fresh /dev whose log socket
// this process owns, partmode run in it, and what arrived on the socket sent
// back as "exit N" and one record per line. "skip REASON" when the machine
// does not let the test own /dev/log.
[[noreturn]] void captureInChild(int out, const std::vector<std::string>& environment,
                                 const std::vector<std::string>& arguments)
{
    const auto skip = [out](const std::string& step) {
        writeAll(out, "skip " + step + ": " + std::strerror(errno) + "\n");
        ::_exit(0);
    };
    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (::unshare(CLONE_NEWNS) != 0) {
        skip("unshare(CLONE_NEWNS)");
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        skip("making the mounts private");
    }
    if (::mount("tmpfs", "/dev", "tmpfs", 0, "mode=0755") != 0) {
        skip("mounting a tmpfs over /dev");
    }
    const int log = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    if (log < 0 || ::bind(log, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        skip("binding /dev/log");
    }

    const pid_t tool = ::fork();
    if (tool == 0) {
        ::dup2(devNull, 0);
        ::dup2(devNull, 1);
        ::dup2(devNull, 2);
        ::execve(PARTMODE_BINARY, nullTerminated(arguments).data(), nullTerminated(environment).data());
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(tool, &status, 0);
    std::string report = "exit " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + "\n";
    char record[2048];
    for (ssize_t size; (size = ::recv(log, record, sizeof(record), MSG_DONTWAIT)) > 0;) {
        report.append(record, static_cast<std::size_t>(size)).push_back('\n');
    }
    writeAll(out, report);
    ::_exit(0);
}

SyslogRun runWithPrivateSyslog(const std::vector<std::string>& environment, const std::vector<std::string>& arguments)
{
    SyslogRun run;
    int channel[2];
    if (::pipe2(channel, O_CLOEXEC) != 0) {
        run.skipReason = "no pipe";
        return run;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(channel[0]);
        captureInChild(channel[1], environment, arguments);
    }
    ::close(channel[1]);
    std::string report;
    char buffer[4096];
    for (ssize_t size; (size = ::read(channel[0], buffer, sizeof(buffer))) != 0;) {
        if (size > 0) {
            report.append(buffer, static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            break;
        }
    }
    ::close(channel[0]);
    ::waitpid(child, nullptr, 0);

    std::istringstream lines(report);
    std::string line;
    std::getline(lines, line);
    if (line.rfind("skip ", 0) == 0) {
        run.skipReason = line.substr(5);
    } else if (line.rfind("exit ", 0) == 0) {
        run.exitStatus = std::stoi(line.substr(5));
        while (std::getline(lines, line)) {
            run.records.push_back(line);
        }
    }
    return run;
}

std::string userName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr ? entry->pw_name : "";
}

TEST(SystemLog, TraceAndAuditRecordsReachSyslogWithTheirPriorities)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "owning the syslog socket needs root, to mount a private /dev in a mount namespace";
    }
    const TemporaryDirectory folder;
    folder.write("board.json", R"({"firmware": {"transport": "simulator", "state": "firmware.json"},
                                   "trace": "syslog", "audit": "syslog"})");
    const std::string home = folder.path().string();
    const auto run = runWithPrivateSyslog({"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + home, "XDG_STATE_HOME=" + home,
                                           "PARTMODE_BOARD=" + (folder.path() / "board.json").string()},
                                          {"partmode", "set", "partition", "pci_express_mode", "0", "fixed"});
    if (!run.skipReason.empty()) {
        GTEST_SKIP() << "this machine does not let the test own /dev/log: " << run.skipReason;
    }
    ASSERT_EQ(run.exitStatus, 0);
    ASSERT_EQ(run.records.size(), 2U) << ::testing::PrintToString(run.records);

    // <facility * 8 + level>, a time stamp, the ident and the process id.
    const std::regex recordPattern(R"(<(\d+)>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d partmode\[(\d+)\]: (.*))");
    std::smatch trace;
    ASSERT_TRUE(std::regex_match(run.records[0], trace, recordPattern)) << run.records[0];
    EXPECT_EQ(std::stoi(trace[1]), LOG_USER | LOG_DEBUG);
    EXPECT_EQ(trace[3], "10046: Command completed: set partition pci_express_mode 0 fixed");

    std::smatch audit;
    ASSERT_TRUE(std::regex_match(run.records[1], audit, recordPattern)) << run.records[1];
    EXPECT_EQ(std::stoi(audit[1]), LOG_AUTHPRIV | LOG_NOTICE);
    EXPECT_EQ(audit[2], trace[2]);
    EXPECT_EQ(audit[3], "user=" + userName() +
                            " origin=- kind=1 code=0xFF applied=true text=10082: Partition#0: PCI Express Mode=Fixed");

    // Nothing went to a file: neither beside the board nor in the default
    // state folder, which HOME and XDG_STATE_HOME put below it too.
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        EXPECT_NE(entry.path().extension(), ".log") << entry.path();
    }
}

} // namespace
