#include "Board.h"
#include "TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using partmode::Board;
using partmode::test::TemporaryDirectory;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// Sets or unsets an environment variable for the lifetime of the object.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name)) {
            saved_ = old;
        }
        if (value != nullptr) {
            ::setenv(name, value, 1);
        } else {
            ::unsetenv(name);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment()
    {
        if (saved_) {
            ::setenv(name_, saved_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

private:
    const char* name_;
    std::optional<std::string> saved_;
};

// Works in `folder` for the lifetime of the object.
class ScopedWorkingDirectory {
public:
    explicit ScopedWorkingDirectory(const std::filesystem::path& folder) : saved_(std::filesystem::current_path())
    {
        std::filesystem::current_path(folder);
    }
    ScopedWorkingDirectory(const ScopedWorkingDirectory&) = delete;
    ScopedWorkingDirectory& operator=(const ScopedWorkingDirectory&) = delete;
    ~ScopedWorkingDirectory()
    {
        std::error_code ignored;
        std::filesystem::current_path(saved_, ignored);
    }

private:
    std::filesystem::path saved_;
};

// The reason Board::load gives for the board `content`; empty when it loads.
std::string loadFailure(const std::string& content)
{
    const TemporaryDirectory folder;
    try {
        static_cast<void>(Board::load(folder.write("board.json", content)));
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
    return {};
}

TEST(Board, EmptyPathGivesTheBuiltInDefault)
{
    const ScopedEnvironment xdg("XDG_STATE_HOME", "/srv/state");
    const Board board = Board::load({});
    EXPECT_EQ(board.partitions, 4U);
    EXPECT_EQ(board.extendedPartitions, 0U);
    EXPECT_EQ(board.systemBoards, 4U);
    EXPECT_EQ(board.cpusPerSystemBoard, 2U);
    EXPECT_EQ(board.ioUnits, 8U);
    EXPECT_EQ(board.ioUnitName, "IOU#%u");
    EXPECT_FALSE(board.users.has_value());
    EXPECT_EQ(board.firmware.transport, "simulator");
    EXPECT_EQ(board.firmware.state, std::filesystem::path("/srv/state/partmode/firmware.json"));
    EXPECT_EQ(board.trace, std::filesystem::path("/srv/state/partmode/trace.log"));
    EXPECT_EQ(board.audit, std::filesystem::path("/srv/state/partmode/audit.log"));
    EXPECT_TRUE(board.path.empty());
}

TEST(Board, DefaultStateFolderFallsBackToHome)
{
    const ScopedEnvironment xdg("XDG_STATE_HOME", nullptr);
    const ScopedEnvironment home("HOME", "/home/operator");
    const Board board = Board::load({});
    EXPECT_EQ(board.firmware.state, std::filesystem::path("/home/operator/.local/state/partmode/firmware.json"));
    EXPECT_EQ(board.trace, std::filesystem::path("/home/operator/.local/state/partmode/trace.log"));
    EXPECT_EQ(board.audit, std::filesystem::path("/home/operator/.local/state/partmode/audit.log"));
}

TEST(Board, RelativeStateHomeIsIgnored)
{
    const ScopedEnvironment xdg("XDG_STATE_HOME", "state");
    const ScopedEnvironment home("HOME", "/home/operator");
    EXPECT_EQ(Board::load({}).firmware.state,
              std::filesystem::path("/home/operator/.local/state/partmode/firmware.json"));
}

TEST(Board, EmptyObjectKeepsEveryDefault)
{
    const ScopedEnvironment xdg("XDG_STATE_HOME", "/srv/state");
    const TemporaryDirectory folder;
    const auto path = folder.write("board.json", "{}");
    const Board board = Board::load(path);
    EXPECT_EQ(board.partitions, 4U);
    EXPECT_EQ(board.extendedPartitions, 0U);
    EXPECT_EQ(board.ioUnits, 8U);
    EXPECT_FALSE(board.users.has_value());
    EXPECT_EQ(board.firmware.state, std::filesystem::path("/srv/state/partmode/firmware.json"));
    EXPECT_EQ(board.path, path);
}

TEST(Board, FileWithEveryKey)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("board.json", R"({
      "partitions": 2,
      "extended_partitions": 3,
      "system_boards": 6,
      "cpus_per_system_board": 4,
      "io_units": 12,
      "io_unit_name": "100%% PCI box %u",
      "users": {"alice": {"privilege": 5, "operable_partitions": [0, 1]}, "bob": {}},
      "firmware": {"transport": "simulator", "state": "/var/lib/partmode/firmware.json"},
      "trace": "/var/log/partmode/trace.log",
      "audit": "/var/log/partmode/audit.log"
    })");
    const Board board = Board::load(path);
    EXPECT_EQ(board.partitions, 2U);
    EXPECT_EQ(board.extendedPartitions, 3U);
    EXPECT_EQ(board.systemBoards, 6U);
    EXPECT_EQ(board.cpusPerSystemBoard, 4U);
    EXPECT_EQ(board.ioUnits, 12U);
    EXPECT_EQ(board.ioUnitName, "100%% PCI box %u");
    ASSERT_TRUE(board.users.has_value());
    ASSERT_EQ(board.users->size(), 2U);
    EXPECT_EQ(board.users->at("alice").privilege, 5);
    EXPECT_EQ(board.users->at("alice").operablePartitions, (std::vector<unsigned int>{0, 1}));
    EXPECT_EQ(board.users->at("bob").privilege, 1);
    EXPECT_TRUE(board.users->at("bob").operablePartitions.empty());
    EXPECT_EQ(board.firmware.transport, "simulator");
    EXPECT_EQ(board.firmware.state, std::filesystem::path("/var/lib/partmode/firmware.json"));
    EXPECT_EQ(board.trace, std::filesystem::path("/var/log/partmode/trace.log"));
    EXPECT_EQ(board.audit, std::filesystem::path("/var/log/partmode/audit.log"));
    EXPECT_EQ(board.path, path);
}

TEST(Board, EmptyUserDatabaseIsKept)
{
    const TemporaryDirectory folder;
    const Board board = Board::load(folder.write("board.json", R"({"users": {}})"));
    ASSERT_TRUE(board.users.has_value());
    EXPECT_TRUE(board.users->empty());
}

TEST(Board, RelativePathsAreResolvedAgainstTheBoardFolder)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("etc/board.json", R"({
      "firmware": {"state": "sim/firmware.json"},
      "trace": "../log/trace.log",
      "audit": "audit.log"
    })");
    const Board board = Board::load(path);
    EXPECT_EQ(board.firmware.state, folder.path() / "etc" / "sim/firmware.json");
    EXPECT_EQ(board.trace, folder.path() / "etc" / "../log/trace.log");
    EXPECT_EQ(board.audit, folder.path() / "etc" / "audit.log");
}

TEST(Board, BoardGivenByABareFileNameResolvesAgainstTheWorkingFolder)
{
    const TemporaryDirectory folder;
    folder.write("board.json", R"({"trace": "trace.log"})");
    const ScopedWorkingDirectory inFolder(folder.path());
    EXPECT_EQ(Board::load("board.json").trace, std::filesystem::path("./trace.log"));
}

TEST(Board, LocateTakesTheEnvironmentVariable)
{
    const ScopedEnvironment board("PARTMODE_BOARD", "/somewhere/board.json");
    EXPECT_EQ(Board::locate(), std::filesystem::path("/somewhere/board.json"));
}

// Why the board at `path` does not load.
std::string readFailure(const std::filesystem::path& path)
{
    try {
        static_cast<void>(Board::load(path));
        return "";
    } catch (const std::runtime_error& failure) {
        return failure.what();
    }
}

TEST(Board, MissingFileCannotBeReadAndSaysWhy)
{
    const TemporaryDirectory folder;
    EXPECT_EQ(readFailure(folder.path() / "absent.json"), "cannot read the board file: No such file or directory");
}

TEST(Board, FolderInPlaceOfTheFileCannotBeReadAndSaysWhy)
{
    const TemporaryDirectory folder;
    EXPECT_EQ(readFailure(folder.path()), "cannot read the board file: Is a directory");
}

TEST(Board, FileLargerThanOneMebibyteIsRefused)
{
    EXPECT_EQ(loadFailure("{}" + std::string(1024 * 1024, ' ')), "the board file is larger than 1048576 bytes");
    EXPECT_EQ(loadFailure("{}" + std::string(1024 * 1024 - 2, ' ')), "");
}

TEST(Board, LinkInPlaceOfTheBoardIsRefused)
{
    const TemporaryDirectory folder;
    const auto target = folder.write("real.json", "{}");
    std::filesystem::create_symlink(target, folder.path() / "board.json");
    try {
        static_cast<void>(Board::load(folder.path() / "board.json"));
        FAIL() << "a linked board loaded";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "the board file is a symbolic link");
    }
}

TEST(Board, UnparsableJsonGivesTheParserReason)
{
    const std::string reason = loadFailure(R"({"partitions": 4,)");
    EXPECT_THAT(reason, StartsWith("parse error at line 1"));
    EXPECT_THAT(reason, HasSubstr("syntax error"));
}

TEST(Board, EmptyFileIsUnparsable) { EXPECT_THAT(loadFailure(""), StartsWith("parse error")); }

TEST(Board, BoardMustBeAnObject)
{
    EXPECT_EQ(loadFailure("[1, 2]"), "the board must be a JSON object");
    EXPECT_EQ(loadFailure("4"), "the board must be a JSON object");
}

TEST(Board, UnknownKeysAreRefused)
{
    EXPECT_EQ(loadFailure(R"({"colour": "blue"})"), R"(unknown key "colour")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"port": 623}})"), R"(unknown key "firmware.port")");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"role": "admin"}}})"), R"(unknown key "users.alice.role")");
}

TEST(Board, CountsMustBeWholeNumbersInRange)
{
    EXPECT_EQ(loadFailure(R"({"partitions": "4"})"), R"("partitions" must be a whole number from 1 to 256)");
    EXPECT_EQ(loadFailure(R"({"partitions": 2.5})"), R"("partitions" must be a whole number from 1 to 256)");
    EXPECT_EQ(loadFailure(R"({"partitions": 0})"), R"("partitions" must be a whole number from 1 to 256)");
    EXPECT_EQ(loadFailure(R"({"partitions": 257})"), R"("partitions" must be a whole number from 1 to 256)");
    EXPECT_EQ(loadFailure(R"({"partitions": 4, "extended_partitions": 253})"),
              R"("extended_partitions" must be a whole number from 0 to 252)");
    EXPECT_EQ(loadFailure(R"({"system_boards": -1})"), R"("system_boards" must be a whole number from 0 to 256)");
    EXPECT_EQ(loadFailure(R"({"cpus_per_system_board": true})"),
              R"("cpus_per_system_board" must be a whole number from 0 to 256)");
    EXPECT_EQ(loadFailure(R"({"io_units": null})"), R"("io_units" must be a whole number from 0 to 256)");
}

TEST(Board, CountsAtTheirLimitsLoad)
{
    EXPECT_EQ(loadFailure(R"({"partitions": 1})"), "");
    EXPECT_EQ(loadFailure(R"({"partitions": 256, "extended_partitions": 0})"), "");
    EXPECT_EQ(loadFailure(R"({"partitions": 200, "extended_partitions": 56})"), "");
    EXPECT_EQ(loadFailure(R"({"system_boards": 0, "io_units": 256})"), "");
}

TEST(Board, UnitNameMustHoldExactlyOneUnsignedConversion)
{
    EXPECT_EQ(loadFailure(R"({"io_unit_name": 6})"), R"("io_unit_name" must be a string)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "IOU#%d"})"), R"("io_unit_name" may hold only the conversion %u)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "IOU#%s"})"), R"("io_unit_name" may hold only the conversion %u)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "IOU#%u%"})"), R"("io_unit_name" may hold only the conversion %u)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "IOU"})"), R"("io_unit_name" must hold the conversion %u exactly once)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "IOU%%u"})"),
              R"("io_unit_name" must hold the conversion %u exactly once)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "%u-%u"})"),
              R"("io_unit_name" must hold the conversion %u exactly once)");
    EXPECT_EQ(loadFailure(R"({"io_unit_name": "%u"})"), "");
}

TEST(Board, UserDatabaseMustBeWellFormed)
{
    EXPECT_EQ(loadFailure(R"({"users": ["alice"]})"), R"("users" must be an object)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": 5}})"), R"("users.alice" must be an object)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": "5"}}})"),
              R"("users.alice.privilege" must be a whole number from 1 to 15)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"operable_partitions": 0}}})"),
              R"("users.alice.operable_partitions" must be a list of partition numbers)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"operable_partitions": [64]}}})"),
              R"("users.alice.operable_partitions" must hold partition numbers from 0 to 63)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"operable_partitions": [-1]}}})"),
              R"("users.alice.operable_partitions" must hold partition numbers from 0 to 63)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"operable_partitions": ["0"]}}})"),
              R"("users.alice.operable_partitions" must hold partition numbers from 0 to 63)");
}

TEST(Board, PrivilegeOutsideItsRangeIsRefusedNotWrapped)
{
    // 2^32 + 5 must not become the partition operator's 5.
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": 4294967301}}})"),
              R"("users.alice.privilege" must be a whole number from 1 to 15)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": -4294967291}}})"),
              R"("users.alice.privilege" must be a whole number from 1 to 15)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": 0}}})"),
              R"("users.alice.privilege" must be a whole number from 1 to 15)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": 16}}})"),
              R"("users.alice.privilege" must be a whole number from 1 to 15)");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": 15}, "bob": {"privilege": 1}}})"), "");
}

TEST(Board, DuplicateKeysAreRefusedWithTheirName)
{
    EXPECT_EQ(loadFailure(R"({"partitions": 4, "partitions": 2})"), R"(duplicate key "partitions")");
    EXPECT_EQ(loadFailure(R"({"users": {"alice": {"privilege": 1}, "alice": {"privilege": 5}}})"),
              R"(duplicate key "alice")");
    EXPECT_EQ(loadFailure(R"({"users": {"op": {"privilege": 5, "privilege": 1}}})"), R"(duplicate key "privilege")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "port": 1, "port": 623}})"), R"(duplicate key "port")");
    // The same key in different objects is no duplicate.
    EXPECT_EQ(loadFailure(R"({"users": {"a": {"privilege": 1}, "b": {"privilege": 1}}})"), "");
}

TEST(Board, FirmwareMustBeWellFormed)
{
    EXPECT_EQ(loadFailure(R"({"firmware": "simulator"})"), R"("firmware" must be an object)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": 1}})"), R"("firmware.transport" must be a string)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "serial"}})"),
              R"("firmware.transport" names an unknown transport "serial")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"state": ["a"]}})"), R"("firmware.state" must be a string)");
}

TEST(Board, LanFirmwareTakesTheDefaultsOfAModernBmc)
{
    const TemporaryDirectory folder;
    const Board board = Board::load(folder.write("etc/board.json", R"({"firmware": {"transport": "lan"}})"));
    EXPECT_EQ(board.firmware.transport, "lan");
    EXPECT_EQ(board.firmware.host, "127.0.0.1");
    EXPECT_EQ(board.firmware.port, 623U);
    EXPECT_EQ(board.firmware.username, "admin");
    EXPECT_EQ(board.firmware.passwordFile, folder.path() / "etc" / "bmc.pass");
    EXPECT_EQ(board.firmware.privilege, "admin");
    EXPECT_EQ(board.firmware.cipherSuite, 17U);
    EXPECT_EQ(board.firmware.sessionTimeoutMs, 5000U);
    EXPECT_EQ(board.firmware.retransmissionTimeoutMs, 500U);
    EXPECT_TRUE(board.firmware.workarounds.empty());
    EXPECT_EQ(board.firmware.iana, 32473U);
}

TEST(Board, LanFirmwareWithEveryKey)
{
    const TemporaryDirectory folder;
    const Board board = Board::load(folder.write("board.json", R"({"firmware": {
      "transport": "lan", "host": "bmc.example", "port": 6230, "username": "operator",
      "password_file": "/etc/partmode/bmc.pass", "privilege": "operator", "cipher_suite": 3,
      "session_timeout_ms": 1500, "retransmission_timeout_ms": 250,
      "workarounds": ["opensesspriv", "intel20"], "iana": 10368}})"));
    EXPECT_EQ(board.firmware.host, "bmc.example");
    EXPECT_EQ(board.firmware.port, 6230U);
    EXPECT_EQ(board.firmware.username, "operator");
    EXPECT_EQ(board.firmware.passwordFile, std::filesystem::path("/etc/partmode/bmc.pass"));
    EXPECT_EQ(board.firmware.privilege, "operator");
    EXPECT_EQ(board.firmware.cipherSuite, 3U);
    EXPECT_EQ(board.firmware.sessionTimeoutMs, 1500U);
    EXPECT_EQ(board.firmware.retransmissionTimeoutMs, 250U);
    EXPECT_EQ(board.firmware.workarounds, (std::vector<std::string>{"opensesspriv", "intel20"}));
    EXPECT_EQ(board.firmware.iana, 10368U);
}

TEST(Board, LanFirmwareMustBeWellFormed)
{
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "state": "firmware.json"}})"),
              R"(unknown key "firmware.state")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "password": "secret"}})"),
              R"(unknown key "firmware.password")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "host": ""}})"), R"("firmware.host" must name a host)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "port": 0}})"),
              R"("firmware.port" must be a whole number from 1 to 65535)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "username": "a-name-of-seventeen"}})"),
              R"("firmware.username" must be at most 16 bytes long)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "privilege": "callback"}})"),
              R"("firmware.privilege" must be "user", "operator" or "admin")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "cipher_suite": 4}})"),
              R"("firmware.cipher_suite" must be one of 0 to 3, 6 to 8, 11, 12 and 15 to 17)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "session_timeout_ms": 500}})"),
              R"("firmware.retransmission_timeout_ms" must be less than "firmware.session_timeout_ms")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "workarounds": "opensesspriv"}})"),
              R"("firmware.workarounds" must be a list of libfreeipmi workaround names)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "workarounds": ["idzero"]}})"),
              R"("firmware.workarounds" holds "idzero", which is no IPMI 2.0 workaround of libfreeipmi)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "iana": 16777216}})"),
              R"("firmware.iana" must be a whole number from 0 to 16777215)");
}

TEST(Board, InbandFirmwareNamesDriverAndDevice)
{
    const TemporaryDirectory folder;
    const Board board = Board::load(folder.write("board.json", R"({"firmware": {"transport": "inband"}})"));
    EXPECT_EQ(board.firmware.driver, "openipmi");
    EXPECT_EQ(board.firmware.device, std::filesystem::path("/dev/ipmi0"));
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "inband", "driver": "kcs", "device": "/dev/ipmi1"}})"), "");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "inband", "driver": "lan"}})"),
              R"("firmware.driver" must be "openipmi", "kcs", "ssif", "sunbmc", "inteldcmi" or "auto")");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "inband", "host": "127.0.0.1"}})"),
              R"(unknown key "firmware.host")");
}

TEST(Board, LanFirmwareTakesAKeyFileBesideThePassword)
{
    const TemporaryDirectory folder;
    const Board withKey =
        Board::load(folder.write("board.json", R"({"firmware": {"transport": "lan", "k_g_file": "bmc.key"}})"));
    EXPECT_EQ(withKey.firmware.kgFile, folder.path() / "bmc.key");
    const Board without = Board::load(folder.write("plain.json", R"({"firmware": {"transport": "lan"}})"));
    EXPECT_EQ(without.firmware.kgFile, std::filesystem::path());
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "lan", "k_g_file": 1}})"),
              R"("firmware.k_g_file" must be a string)");
    EXPECT_EQ(loadFailure(R"({"firmware": {"transport": "inband", "k_g_file": "bmc.key"}})"),
              R"(unknown key "firmware.k_g_file")");
}

TEST(Board, DiagnosticsAreOffUnlessTheBoardAsksForStandardError)
{
    const TemporaryDirectory folder;
    EXPECT_FALSE(Board::load({}).diagnosticsToStderr);
    EXPECT_FALSE(Board::load(folder.write("off.json", R"({"diagnostics": "off"})")).diagnosticsToStderr);
    EXPECT_TRUE(Board::load(folder.write("on.json", R"({"diagnostics": "stderr"})")).diagnosticsToStderr);
    EXPECT_EQ(loadFailure(R"({"diagnostics": "syslog"})"), R"("diagnostics" must be "off" or "stderr")");
    EXPECT_EQ(loadFailure(R"({"diagnostics": true})"), R"("diagnostics" must be a string)");
}

TEST(Board, TraceAndAuditMustBeStrings)
{
    EXPECT_EQ(loadFailure(R"({"trace": 1})"), R"("trace" must be a string)");
    EXPECT_EQ(loadFailure(R"({"audit": {}})"), R"("audit" must be a string)");
}

} // namespace
