// The built partmode against a hostile caller and a hostile file system:
// links planted in place of its files, FIFOs and devices where it expects
// files, a lock held by someone else, a full disk under the audit trail,
// set-user-ID runs, and kill -9 in the middle of a change. Tests that need
// root (chown to another user, a setuid copy, a tmpfs) are skipped with the
// reason when the suite does not run as root.
#include "TemporaryDirectory.h"
#include "ToolProcess.h"
#include "UniqueFd.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#ifndef PARTMODE_BINARY
#error "PARTMODE_BINARY must name the partmode executable"
#endif

namespace partmode::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace std::chrono_literals;

constexpr uid_t kNobody = 65534;
const std::vector<std::string> kSet{"set", "partition", "pci_express_mode", "0", "fixed"};
const std::vector<std::string> kShow{"show", "partition", "pci_express_mode", "0"};
// Flexible now and at the next power-on; the set above changes both bytes.
const std::string kFlexibleState = R"({"partitions": {"0": {"pci_express_mode": [1, 1]}}})";
const std::string kFailureLine = "Failed to execute set partition pci_express_mode 0 fixed command.\n";

std::string slurp(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const fs::path& path, const std::string& content, mode_t mode = 0644)
{
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    ASSERT_EQ(::chmod(path.c_str(), mode), 0) << path;
}

std::vector<std::string> withArguments(std::vector<std::string> argv, const std::vector<std::string>& arguments)
{
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return argv;
}

ToolOutcome run(const fs::path& folder, const std::string& name, const std::vector<std::string>& argv,
                const std::vector<std::string>& environment, const std::string& input = {},
                std::chrono::milliseconds limit = 30s)
{
    ToolProcess process(folder, name, argv, environment, input);
    return process.finish(limit);
}

// The trace lines without their time and pid prefix.
std::vector<std::string> traceTexts(const fs::path& path)
{
    std::vector<std::string> texts;
    std::istringstream in(slurp(path));
    for (std::string line; std::getline(in, line);) {
        const auto start = line.find("]: ");
        texts.push_back(start == std::string::npos ? line : line.substr(start + 3));
    }
    return texts;
}

// The environment of a run in `folder` as an operator's login gives it, with
// PARTMODE_BOARD naming `board`.
std::vector<std::string> environmentOf(const fs::path& folder, const fs::path& board)
{
    return {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + folder.string(), "PARTMODE_BOARD=" + board.string()};
}

// Writes board.json in `folder` with the firmware given and the trace and audit
// beside it; returns the environment of a run on that board.
std::vector<std::string> boardWithFirmware(const fs::path& folder, const json& firmware)
{
    const json board{{"firmware", firmware},
                     {"trace", (folder / "trace.log").string()},
                     {"audit", (folder / "audit.log").string()}};
    writeFile(folder / "board.json", board.dump());
    return environmentOf(folder, folder / "board.json");
}

// A board for the embedded simulator whose files lie in `folder`, unless the
// test sends its trace or audit elsewhere.
struct SimulatorBoard {
    explicit SimulatorBoard(const fs::path& folderPath, const fs::path& tracePath = {}, const fs::path& auditPath = {})
        : folder(folderPath), traceFile(tracePath.empty() ? folder / "trace.log" : tracePath),
          auditFile(auditPath.empty() ? folder / "audit.log" : auditPath)
    {
        const json board{{"partitions", 4},
                         {"firmware", {{"transport", "simulator"}, {"state", state().string()}}},
                         {"trace", trace().string()},
                         {"audit", audit().string()}};
        writeFile(path(), board.dump());
        writeFile(state(), kFlexibleState, 0600);
    }
    [[nodiscard]] fs::path path() const { return folder / "board.json"; }
    [[nodiscard]] fs::path state() const { return folder / "firmware.json"; }
    [[nodiscard]] fs::path trace() const { return traceFile; }
    [[nodiscard]] fs::path audit() const { return auditFile; }
    [[nodiscard]] std::vector<std::string> environment() const { return environmentOf(folder, path()); }
    fs::path folder;
    fs::path traceFile;
    fs::path auditFile;
};

bool isRoot() { return ::geteuid() == 0; }

#define SKIP_UNLESS_SETUID_RUNS(installation)                                                                          \
    do {                                                                                                               \
        if (const auto why = (installation).unusable(); !why.empty()) {                                                \
            std::cout << "skipped: " << why << std::endl;                                                              \
            GTEST_SKIP() << why;                                                                                       \
        }                                                                                                              \
    } while (false)

#define SKIP_UNLESS_ROOT()                                                                                             \
    do {                                                                                                               \
        if (!isRoot()) {                                                                                               \
            std::cout << "skipped: needs root (chown to another user, setuid copies, tmpfs mounts)" << std::endl;      \
            GTEST_SKIP() << "needs root";                                                                              \
        }                                                                                                              \
    } while (false)

// ---------------------------------------------------------------------------
// A control run: the same set-up without an attack changes the mode, so the
// refusals below are the defences' doing.

TEST(Hardening, ControlRunChangesTheModeAndAuditsIt)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path());
    const auto outcome = run(scratch.path(), "control", withArguments({PARTMODE_BINARY}, kSet), board.environment());
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_EQ(json::parse(slurp(board.state()))["partitions"]["0"]["pci_express_mode"], json::parse("[0, 0]"));
    const auto record = json::parse(slurp(board.audit()));
    EXPECT_EQ(record["text"], "10082: Partition#0: PCI Express Mode=Fixed");
    EXPECT_EQ(record["applied"], true);
    struct stat status {};
    ASSERT_EQ(::stat(board.audit().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    ASSERT_EQ(::stat(board.trace().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640U);
    ASSERT_EQ(::stat((board.state().string() + ".lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    ASSERT_EQ(::stat(board.state().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

// ---------------------------------------------------------------------------
// Symbolic links in place of the trace, audit, state and lock files.

struct LinkCase {
    const char* file;
    int exit;
    bool failureLine;
};

const LinkCase kLinkCases[] = {
    {"trace.log", 0, false}, {"audit.log", 2, true}, {"firmware.json", 2, true}, {"firmware.json.lock", 2, true}};

// A root-owned file that a link must never reach.
struct Victim {
    explicit Victim(const fs::path& folder) : path(folder / "victim") { writeFile(path, "root's own file\n", 0644); }
    fs::path path;
    const std::string content = "root's own file\n";
};

void expectLinkRefused(const LinkCase& linkCase, const ToolOutcome& outcome, const fs::path& victim,
                       const std::string& victimContent, const fs::path& state, const std::string& stateBefore)
{
    SCOPED_TRACE(linkCase.file);
    EXPECT_EQ(slurp(victim), victimContent);
    EXPECT_TRUE(outcome.exited(linkCase.exit)) << outcome.describe() << "\n" << outcome.err;
    EXPECT_EQ(outcome.err, linkCase.failureLine ? kFailureLine : "");
    if (linkCase.exit != 0 && std::string(linkCase.file) != "firmware.json") {
        EXPECT_EQ(slurp(state), stateBefore) << "a change was sent";
    }
}

TEST(Hardening, LinksInPlaceOfTheFilesAreNotFollowedInARootRunWithAForeignHome)
{
    SKIP_UNLESS_ROOT();
    for (const auto& linkCase : kLinkCases) {
        const TemporaryDirectory scratch;
        ASSERT_EQ(::chmod(scratch.path().c_str(), 0755), 0);
        const Victim victim(scratch.path());
        // Another user's home, where the defaults of a board without paths lie.
        const auto home = scratch.path() / "home";
        const auto stateFolder = home / ".local" / "state" / "partmode";
        fs::create_directories(stateFolder);
        for (fs::path folder = stateFolder; folder != scratch.path(); folder = folder.parent_path()) {
            ASSERT_EQ(::chown(folder.c_str(), kNobody, kNobody), 0);
        }
        writeFile(stateFolder / "firmware.json", kFlexibleState, 0644);
        ASSERT_EQ(::chown((stateFolder / "firmware.json").c_str(), kNobody, kNobody), 0);
        fs::remove(stateFolder / linkCase.file);
        fs::create_symlink(victim.path, stateFolder / linkCase.file);
        const auto stateBefore = slurp(stateFolder / "firmware.json");
        writeFile(scratch.path() / "board.json", R"({"partitions": 4})");
        const auto outcome =
            run(scratch.path(), std::string("link-") + linkCase.file, withArguments({PARTMODE_BINARY}, kSet),
                {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + home.string(),
                 "PARTMODE_BOARD=" + (scratch.path() / "board.json").string()});
        expectLinkRefused(linkCase, outcome, victim.path, victim.content, stateFolder / "firmware.json", stateBefore);
        EXPECT_TRUE(fs::is_symlink(stateFolder / linkCase.file));
    }
}

// A copy of partmode installed set-user-ID root under a prefix of its own,
// with the installation's board in PREFIX/etc/partmode, run by nobody.
class PrivilegedInstallation {
public:
    PrivilegedInstallation()
    {
        ::chmod(scratch_.path().c_str(), 0755);
        fs::create_directories(prefix() / "sbin");
        fs::copy_file(PARTMODE_BINARY, binary());
        ::chown(binary().c_str(), 0, 0);
        ::chmod(binary().c_str(), 04755);
        fs::create_directories(var());
        ::chmod(var().c_str(), 0755);
    }
    [[nodiscard]] fs::path prefix() const { return scratch_.path() / "prefix"; }
    [[nodiscard]] fs::path binary() const { return prefix() / "sbin" / "partmode"; }
    [[nodiscard]] fs::path var() const { return scratch_.path() / "var"; }
    [[nodiscard]] fs::path board() const { return prefix() / "etc" / "partmode" / "board.json"; }
    [[nodiscard]] const fs::path& scratch() const { return scratch_.path(); }

    // Why a set-user-ID copy cannot run here; empty when it can.
    [[nodiscard]] std::string unusable() const
    {
#ifdef PARTMODE_SANITIZED
        return "the sanitizer runtimes do not run set-user-ID";
#endif
        struct statvfs fileSystem {};
        if (::statvfs(prefix().c_str(), &fileSystem) == 0 && (fileSystem.f_flag & ST_NOSUID) != 0) {
            return "the temporary folder is mounted nosuid";
        }
        if (!fs::exists("/usr/bin/setpriv")) {
            return "/usr/bin/setpriv is missing";
        }
        return {};
    }

    void installBoard(const json& board) const { writeFile(this->board(), board.dump(), 0644); }
    void installSimulatorBoard() const
    {
        installBoard({{"partitions", 4},
                      {"firmware", {{"transport", "simulator"}, {"state", (var() / "firmware.json").string()}}},
                      {"trace", (var() / "trace.log").string()},
                      {"audit", (var() / "audit.log").string()}});
        writeFile(var() / "firmware.json", kFlexibleState, 0600);
    }

    // Runs the copy as nobody, so the kernel marks the run secure.
    ToolOutcome runAsNobody(const std::string& name, const std::vector<std::string>& arguments,
                            std::vector<std::string> environment = {}) const
    {
        const auto home = scratch_.path() / "callerhome";
        fs::create_directories(home);
        ::chown(home.c_str(), kNobody, kNobody);
        environment.insert(environment.end(), {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + home.string()});
        return run(scratch_.path(), name,
                   withArguments({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--",
                                  binary().string()},
                                 arguments),
                   environment);
    }

private:
    TemporaryDirectory scratch_;
};

TEST(Hardening, PrivilegedRunWithoutTheInstalledBoardIsRefusedInOneLine)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    // The caller's own board is ignored, and so is the built-in default.
    writeFile(installation.scratch() / "mine.json", R"({"partitions": 4})", 0644);
    const auto outcome = installation.runAsNobody(
        "no-board", kSet, {"PARTMODE_BOARD=" + (installation.scratch() / "mine.json").string()});
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe() << outcome.err;
    EXPECT_EQ(outcome.err, "partmode: " + installation.board().string() +
                               ": cannot read the board file: No such file or directory\n");
    EXPECT_FALSE(fs::exists(installation.scratch() / "callerhome" / ".local"));
}

TEST(Hardening, PrivilegedRunUsesTheInstalledBoard)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    installation.installSimulatorBoard();
    const auto outcome = installation.runAsNobody("installed", kSet);
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    EXPECT_EQ(json::parse(slurp(installation.var() / "firmware.json"))["partitions"]["0"]["pci_express_mode"],
              json::parse("[0, 0]"));
    EXPECT_EQ(json::parse(slurp(installation.var() / "audit.log"))["user"], "nobody");
    EXPECT_FALSE(fs::exists(installation.scratch() / "callerhome" / ".local"));
}

TEST(Hardening, PrivilegedRunIgnoresTheCallersUmask)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    const auto logs = installation.var() / "logs";
    installation.installBoard(
        {{"partitions", 4},
         {"firmware", {{"transport", "simulator"}, {"state", (installation.var() / "firmware.json").string()}}},
         {"trace", (logs / "trace.log").string()},
         {"audit", (logs / "audit.log").string()}});
    writeFile(installation.var() / "firmware.json", kFlexibleState, 0600);
    const mode_t saved = ::umask(0);
    const auto outcome = installation.runAsNobody("umask", kSet);
    ::umask(saved);
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    struct stat status {};
    ASSERT_EQ(::stat(logs.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & (S_IWGRP | S_IWOTH), 0U) << std::oct << status.st_mode;
}

TEST(Hardening, PrivilegedRunRefusesRelativePathsInTheBoard)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    installation.installBoard({{"audit", "audit.log"}});
    const auto outcome = installation.runAsNobody("relative", kSet);
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.err, "partmode: " + installation.board().string() +
                               ": \"audit\" must be an absolute path in a privileged run\n");
}

TEST(Hardening, PrivilegedRunRefusesABoardOthersMayWrite)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    installation.installSimulatorBoard();
    ASSERT_EQ(::chmod(installation.board().c_str(), 0666), 0);
    const auto outcome = installation.runAsNobody("writable-board", kSet);
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.err, "partmode: " + installation.board().string() +
                               ": the board file may be written by group or others (mode 0666)\n");
}

TEST(Hardening, LinksInPlaceOfTheFilesAreNotFollowedInAPrivilegedRun)
{
    SKIP_UNLESS_ROOT();
    for (const auto& linkCase : kLinkCases) {
        const PrivilegedInstallation installation;
        SKIP_UNLESS_SETUID_RUNS(installation);
        SKIP_UNLESS_SETUID_RUNS(installation);
        installation.installSimulatorBoard();
        const Victim victim(installation.scratch());
        const auto state = installation.var() / "firmware.json";
        const auto stateBefore = slurp(state);
        fs::remove(installation.var() / linkCase.file);
        fs::create_symlink(victim.path, installation.var() / linkCase.file);
        const auto outcome = installation.runAsNobody(std::string("link-") + linkCase.file, kSet);
        expectLinkRefused(linkCase, outcome, victim.path, victim.content, state, stateBefore);
    }
}

TEST(Hardening, PrivilegedRunRefusesFilesOfOtherUsers)
{
    SKIP_UNLESS_ROOT();
    const PrivilegedInstallation installation;
    SKIP_UNLESS_SETUID_RUNS(installation);
    installation.installSimulatorBoard();
    const auto state = installation.var() / "firmware.json";
    ASSERT_EQ(::chown(state.c_str(), kNobody, kNobody), 0);
    const auto outcome = installation.runAsNobody("foreign-state", kSet);
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.err, kFailureLine);
    EXPECT_EQ(traceTexts(installation.var() / "trace.log"),
              std::vector<std::string>{"10047: Command failed: set partition pci_express_mode 0 fixed (2051, 1)"});
}

// ---------------------------------------------------------------------------
// FIFOs, /dev/zero and folders where a file is expected: refused at once,
// without a hang or a huge read.

enum class Oddity { Fifo, DevZero, Folder };
const Oddity kOddities[] = {Oddity::Fifo, Oddity::DevZero, Oddity::Folder};

const char* nameOf(Oddity oddity)
{
    switch (oddity) {
    case Oddity::Fifo:
        return "fifo";
    case Oddity::DevZero:
        return "dev-zero";
    case Oddity::Folder:
        return "folder";
    }
    return "";
}

// Puts the oddity at `path` (a link to /dev/zero would be refused as a link,
// so /dev/zero itself is named by the caller).
fs::path plant(Oddity oddity, const fs::path& path)
{
    fs::remove(path);
    switch (oddity) {
    case Oddity::Fifo:
        EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0);
        return path;
    case Oddity::DevZero:
        return "/dev/zero";
    case Oddity::Folder:
        fs::create_directories(path);
        return path;
    }
    return path;
}

TEST(Hardening, OddBoardFilesAreRefusedAtOnce)
{
    for (const auto oddity : kOddities) {
        SCOPED_TRACE(nameOf(oddity));
        const TemporaryDirectory scratch;
        const auto board = plant(oddity, scratch.path() / "board.json");
        const auto started = std::chrono::steady_clock::now();
        const auto outcome =
            run(scratch.path(), nameOf(oddity), withArguments({PARTMODE_BINARY}, kShow),
                environmentOf(scratch.path(), board), {}, 5s);
        EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
        EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
        // A folder is named as read(2) names it.
        const std::string reason = oddity == Oddity::Folder ? "cannot read the board file: Is a directory"
                                                            : "the board file is not a regular file";
        EXPECT_EQ(outcome.err, "partmode: " + board.string() + ": " + reason + "\nFailed to execute show command.\n");
    }
}

TEST(Hardening, OddStateFilesAreRefusedAtOnce)
{
    for (const auto oddity : kOddities) {
        SCOPED_TRACE(nameOf(oddity));
        const TemporaryDirectory scratch;
        const auto state = plant(oddity, scratch.path() / "firmware.json");
        const auto environment =
            boardWithFirmware(scratch.path(), {{"transport", "simulator"}, {"state", state.string()}});
        const auto started = std::chrono::steady_clock::now();
        const auto outcome =
            run(scratch.path(), nameOf(oddity), withArguments({PARTMODE_BINARY}, kShow), environment, {}, 5s);
        EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
        EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
        EXPECT_EQ(outcome.err, "Failed to execute show partition pci_express_mode 0 command.\n");
        EXPECT_EQ(traceTexts(scratch.path() / "trace.log"),
                  std::vector<std::string>{"10047: Command failed: show partition pci_express_mode 0 (2051, 1)"});
    }
}

TEST(Hardening, OddCataloguesFallBackToTheBuiltInTextsAtOnce)
{
    for (const auto oddity : kOddities) {
        SCOPED_TRACE(nameOf(oddity));
        const TemporaryDirectory scratch;
        const SimulatorBoard board(scratch.path());
        fs::create_directories(scratch.path() / "nls");
        plant(oddity, scratch.path() / "nls" / "partmode");
        auto environment = board.environment();
        environment.push_back("NLSPATH=" + (oddity == Oddity::DevZero ? std::string("/dev/zero")
                                                                      : (scratch.path() / "nls" / "%N").string()));
        const auto started = std::chrono::steady_clock::now();
        const auto outcome =
            run(scratch.path(), nameOf(oddity), withArguments({PARTMODE_BINARY}, kSet), environment, {}, 5s);
        EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
        EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
        EXPECT_EQ(traceTexts(board.trace()),
                  std::vector<std::string>{"10046: Command completed: set partition pci_express_mode 0 fixed"});
    }
}

TEST(Hardening, OddPasswordFilesAreRefusedAtOnce)
{
    for (const auto oddity : kOddities) {
        SCOPED_TRACE(nameOf(oddity));
        const TemporaryDirectory scratch;
        const auto password = plant(oddity, scratch.path() / "bmc.pass");
        const auto environment = boardWithFirmware(
            scratch.path(),
            {{"transport", "lan"}, {"host", "127.0.0.1"}, {"port", 9}, {"password_file", password}});
        const auto started = std::chrono::steady_clock::now();
        const auto outcome =
            run(scratch.path(), nameOf(oddity), withArguments({PARTMODE_BINARY}, kShow), environment, {}, 5s);
        EXPECT_LT(std::chrono::steady_clock::now() - started, 3s);
        EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
        EXPECT_EQ(outcome.err, "partmode: " + password.string() +
                                   ": the password file is not a regular file\n"
                                   "Failed to execute show partition pci_express_mode 0 command.\n");
    }
}

// ---------------------------------------------------------------------------
// A hostile catalogue header: far more sets than the file holds.

TEST(Hardening, CatalogueWithAHostileHeaderFallsBackToTheBuiltInTexts)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path());
    std::string catalogue(64, '\0');
    const std::uint32_t header[] = {0x960408deU, 0x7fffffffU, 0x7fffffffU, 2, 10046, 0};
    std::memcpy(catalogue.data(), header, sizeof(header));
    writeFile(scratch.path() / "nls" / "partmode", catalogue);
    auto environment = board.environment();
    environment.push_back("NLSPATH=" + (scratch.path() / "nls" / "%N").string());
    const auto outcome = run(scratch.path(), "hostile", withArguments({PARTMODE_BINARY}, kSet), environment, {}, 10s);
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    EXPECT_EQ(traceTexts(board.trace()),
              std::vector<std::string>{"10046: Command completed: set partition pci_express_mode 0 fixed"});
    EXPECT_EQ(json::parse(slurp(board.audit()))["text"], "10082: Partition#0: PCI Express Mode=Fixed");
}

// ---------------------------------------------------------------------------
// The audit trail: a destination that cannot be written stops the change
// before anything is sent; a record cut short is taken back and reported.

TEST(Hardening, UnwritableAuditDestinationStopsTheChangeBeforeAnythingIsSent)
{
    for (const std::string destination : {"/dev/full", "folder"}) {
        SCOPED_TRACE(destination);
        const TemporaryDirectory scratch;
        const auto audit = destination == "folder" ? scratch.path() / "audit" : fs::path(destination);
        fs::create_directories(scratch.path() / "audit");
        const SimulatorBoard board(scratch.path(), {}, audit);
        const auto outcome =
            run(scratch.path(), "audit", withArguments({PARTMODE_BINARY}, kSet), board.environment());
        EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, kFailureLine);
        // 0x0808: the audit destination; 7: it is not a regular file.
        EXPECT_EQ(traceTexts(scratch.path() / "trace.log"),
                  std::vector<std::string>{"10047: Command failed: set partition pci_express_mode 0 fixed (2056, 7)"});
        EXPECT_EQ(slurp(scratch.path() / "firmware.json"), kFlexibleState);
    }
}

TEST(Hardening, UnwritableAuditDestinationStopsADynamicReconfigurationChangeToo)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path(), {}, "/dev/full");
    const std::string state = R"({"partitions": {"0": {"dynamic_reconfiguration": [0, 0]}}})";
    writeFile(board.state(), state, 0600);
    const auto outcome = run(scratch.path(), "dr",
                             {PARTMODE_BINARY, "set", "partition", "dynamic_reconfiguration", "0", "enable", "quiet"},
                             board.environment());
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.err, "Failed to execute set partition dynamic_reconfiguration 0 enable quiet command.\n");
    EXPECT_EQ(traceTexts(scratch.path() / "trace.log"),
              std::vector<std::string>{
                  "10047: Command failed: set partition dynamic_reconfiguration 0 enable quiet (2056, 7)"});
    EXPECT_EQ(slurp(scratch.path() / "firmware.json"), state);
}

#define SKIP_UNLESS_MOUNTED(tmpfs)                                                                                     \
    do {                                                                                                               \
        if (!(tmpfs).mounted()) {                                                                                      \
            std::cout << "skipped: cannot mount a tmpfs: " << (tmpfs).failure() << std::endl;                         \
            GTEST_SKIP() << (tmpfs).failure();                                                                         \
        }                                                                                                              \
    } while (false)

// A tmpfs of a few pages, mounted for one test and unmounted afterwards.
class SmallTmpfs {
public:
    explicit SmallTmpfs(const fs::path& where) : where_(where)
    {
        fs::create_directories(where_);
        mounted_ = ::mount("tmpfs", where_.c_str(), "tmpfs", 0, "size=64k,mode=0755") == 0;
        failure_ = mounted_ ? "" : std::strerror(errno);
    }
    SmallTmpfs(const SmallTmpfs&) = delete;
    SmallTmpfs& operator=(const SmallTmpfs&) = delete;
    ~SmallTmpfs()
    {
        if (mounted_) {
            ::umount2(where_.c_str(), MNT_DETACH);
        }
    }
    [[nodiscard]] bool mounted() const { return mounted_; }
    [[nodiscard]] const std::string& failure() const { return failure_; }

    // Fills the file system, leaving `room` bytes free in the last page of
    // `file`, which holds whole lines of `line`.
    void fillLeaving(const fs::path& file, std::size_t room) const
    {
        const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        writeFile(file, std::string(page - room, 'x'), 0640);
        const UniqueFd filler(::open((where_ / "filler").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
        const std::string block(page, 'f');
        while (::write(filler.get(), block.data(), block.size()) == static_cast<ssize_t>(block.size())) {
        }
    }

private:
    fs::path where_;
    bool mounted_ = false;
    std::string failure_;
};

TEST(Hardening, AuditRecordCutShortOnAFullFileSystemIsTakenBackAndReported)
{
    SKIP_UNLESS_ROOT();
    const TemporaryDirectory scratch;
    const SmallTmpfs tmpfs(scratch.path() / "full");
    SKIP_UNLESS_MOUNTED(tmpfs);
    const auto audit = scratch.path() / "full" / "audit.log";
    // Room for part of a record: the write is cut short, not refused.
    tmpfs.fillLeaving(audit, 40);
    const auto auditBefore = slurp(audit);
    const SimulatorBoard board(scratch.path(), {}, audit);
    const auto outcome = run(scratch.path(), "full", withArguments({PARTMODE_BINARY}, kSet), board.environment());
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.out, "pci_express_mode: fixed\n");
    const std::string reported =
        "partmode: the change was applied, but its audit record was not written: " + audit.string() + ": only 40 of ";
    EXPECT_EQ(outcome.err.substr(0, reported.size()), reported);
    EXPECT_TRUE(std::regex_match(outcome.err.substr(std::min(reported.size(), outcome.err.size())),
                                 std::regex("[0-9]+ bytes written\n")))
        << outcome.err;
    // The file is as it was: no torn line for the next record to be glued to.
    EXPECT_EQ(slurp(audit), auditBefore);
    EXPECT_EQ(json::parse(slurp(scratch.path() / "firmware.json"))["partitions"]["0"]["pci_express_mode"],
              json::parse("[0, 0]"));
}

TEST(Hardening, TraceLineCutShortOnAFullFileSystemIsTakenBack)
{
    SKIP_UNLESS_ROOT();
    const TemporaryDirectory scratch;
    const SmallTmpfs tmpfs(scratch.path() / "full");
    SKIP_UNLESS_MOUNTED(tmpfs);
    const auto trace = scratch.path() / "full" / "trace.log";
    tmpfs.fillLeaving(trace, 20);
    const auto traceBefore = slurp(trace);
    const SimulatorBoard board(scratch.path(), trace);
    const auto outcome = run(scratch.path(), "full", withArguments({PARTMODE_BINARY}, kSet), board.environment());
    // Tracing never fails the command; the line is dropped whole.
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    EXPECT_EQ(slurp(trace), traceBefore);
}

// ---------------------------------------------------------------------------
// The state lock held by another process for longer than the wait.

TEST(Hardening, StateLockHeldTooLongFailsTheRunWithAReason)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path());
    const UniqueFd lock(::open((board.state().string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_TRUE(lock);
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const auto started = std::chrono::steady_clock::now();
    const auto outcome =
        run(scratch.path(), "locked", withArguments({PARTMODE_BINARY}, kSet), board.environment(), {}, 30s);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    std::cout << "run with the lock held elsewhere ended after "
              << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count() << " ms" << std::endl;
    EXPECT_GE(elapsed, 10s);
    EXPECT_LT(elapsed, 12s);
    EXPECT_TRUE(outcome.exited(2)) << outcome.describe();
    EXPECT_EQ(outcome.err, kFailureLine);
    // 0x0803: the firmware state; 9: its lock stayed held too long.
    EXPECT_EQ(traceTexts(board.trace()),
              std::vector<std::string>{"10047: Command failed: set partition pci_express_mode 0 fixed (2051, 9)"});
    EXPECT_EQ(slurp(board.state()), kFlexibleState);
}

// ---------------------------------------------------------------------------
// kill -9 at any moment of a change leaves no temporary file behind.

// Starts partmode with `arguments` and the board's environment, output
// discarded, and kills it with SIGKILL after `delay` unless it ended before.
// True when the kill ended it.
bool runAndKill(const SimulatorBoard& board, const std::vector<std::string>& arguments, std::chrono::microseconds delay)
{
    const auto argv = withArguments({PARTMODE_BINARY}, arguments);
    const auto environment = board.environment();
    std::vector<char*> argvPointers;
    for (const auto& word : argv) {
        argvPointers.push_back(const_cast<char*>(word.c_str()));
    }
    argvPointers.push_back(nullptr);
    std::vector<char*> environmentPointers;
    for (const auto& word : environment) {
        environmentPointers.push_back(const_cast<char*>(word.c_str()));
    }
    environmentPointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int failure =
        ::posix_spawn(&pid, argv[0].c_str(), &actions, nullptr, argvPointers.data(), environmentPointers.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        ADD_FAILURE() << "cannot start partmode: " << std::strerror(failure);
        return false;
    }
    std::this_thread::sleep_for(delay);
    ::kill(pid, SIGKILL);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

// The kill moments spread over the whole of a run, measured first.
TEST(Hardening, KilledChangesLeaveNoTemporaryBehind)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path());
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < 5; ++i) {
        run(scratch.path(), "timed", withArguments({PARTMODE_BINARY}, kSet), board.environment());
    }
    const auto runTime =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started) / 5;
    std::mt19937 random(20261123);
    std::uniform_int_distribution<long> delay(0, runTime.count());
    int killed = 0;
    int leftOver = 0;
    const auto isTemporary = [&](const fs::path& entry) {
        const auto name = entry.filename().string();
        return name.starts_with("firmware.json") && name != "firmware.json" && name != "firmware.json.lock";
    };
    for (int runNumber = 0; runNumber < 200; ++runNumber) {
        const std::vector<std::string> arguments{"set", "partition", "pci_express_mode", "0",
                                                 runNumber % 2 == 0 ? "fixed" : "flexible"};
        killed += runAndKill(board, arguments, std::chrono::microseconds(delay(random))) ? 1 : 0;
        for (const auto& entry : fs::directory_iterator(scratch.path())) {
            leftOver += isTemporary(entry.path()) ? 1 : 0;
        }
        // Whatever the moment of the kill, the state parses.
        EXPECT_TRUE(json::accept(slurp(board.state()))) << "run " << runNumber;
    }
    std::cout << "a run takes " << runTime.count() << " us; " << killed
              << " of 200 runs killed with SIGKILL at a moment within it; a temporary was present after " << leftOver
              << " of them until the next run took the lock" << std::endl;
    EXPECT_GT(killed, 50);
    const auto outcome = run(scratch.path(), "after", withArguments({PARTMODE_BINARY}, kShow), board.environment());
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe();
    for (const auto& entry : fs::directory_iterator(scratch.path())) {
        EXPECT_FALSE(isTemporary(entry.path())) << entry.path();
    }
}

// ---------------------------------------------------------------------------
// The applied field: false when the operator declines, true when the request
// left.

TEST(Hardening, DeclinedPromptIsAuditedAsNotApplied)
{
    const TemporaryDirectory scratch;
    const SimulatorBoard board(scratch.path());
    writeFile(board.state(), R"({"partitions": {"0": {"dynamic_reconfiguration": [0, 0]}}})", 0600);
    const std::vector<std::string> arguments{"set", "partition", "dynamic_reconfiguration", "0", "enable"};
    const auto declined =
        run(scratch.path(), "declined", withArguments({PARTMODE_BINARY}, arguments), board.environment(), "n\n");
    EXPECT_TRUE(declined.exited(0)) << declined.describe() << declined.err;
    const auto accepted =
        run(scratch.path(), "accepted", withArguments({PARTMODE_BINARY}, arguments), board.environment(), "y\n");
    EXPECT_TRUE(accepted.exited(0)) << accepted.describe() << accepted.err;
    std::istringstream lines(slurp(board.audit()));
    std::vector<json> records;
    for (std::string line; std::getline(lines, line);) {
        records.push_back(json::parse(line));
    }
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0]["text"], "10082: Partition#0: Dynamic Reconfiguration Enable");
    EXPECT_EQ(records[0]["applied"], false);
    EXPECT_EQ(records[1]["text"], "10082: Partition#0: Dynamic Reconfiguration Enable");
    EXPECT_EQ(records[1]["applied"], true);
}

} // namespace
} // namespace partmode::test
