#include "StateStore.h"
#include "FirmwareState.h"
#include "StateError.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using partmode::sim::FirmwareState;
using partmode::sim::StateError;
using partmode::sim::StateStore;
using partmode::test::readFile;
using partmode::test::TemporaryDirectory;

ino_t inodeOf(const std::filesystem::path& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return 0;
    }
    return status.st_ino;
}

TEST(StateStore, FirstUseCreatesTheStateFileWithTheDefaults)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    const StateStore store(path);
    bool sawDefaults = false;
    store.transact([&](FirmwareState& state) {
        sawDefaults = state.document() == FirmwareState::defaults().document();
        return false;
    });
    EXPECT_TRUE(sawDefaults);
    ASSERT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(json::parse(readFile(path)), FirmwareState::defaults().document());
}

TEST(StateStore, FirstUseCreatesMissingFolders)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "state" / "partmode" / "firmware.json";
    StateStore(path).transact([](FirmwareState&) { return false; });
    EXPECT_EQ(json::parse(readFile(path)), FirmwareState::defaults().document());
}

TEST(StateStore, LeavesOnlyTheStateFileAndItsLockBehind)
{
    const TemporaryDirectory folder;
    const StateStore store(folder.path() / "firmware.json");
    store.transact([](FirmwareState&) { return false; });
    store.transact([](FirmwareState& state) {
        state.powerOn(1);
        return true;
    });
    store.replace(FirmwareState::defaults());
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"firmware.json", "firmware.json.lock"}));
}

TEST(StateStore, ChangeIsWrittenToANewFileRenamedIntoPlace)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    const StateStore store(path);
    store.transact([](FirmwareState&) { return false; });
    const ino_t before = inodeOf(path);
    store.transact([](FirmwareState& state) {
        state.setPartitionBytes(0, "pci_express_mode", {0, 0});
        return true;
    });
    EXPECT_NE(inodeOf(path), before);
    EXPECT_EQ(json::parse(readFile(path))["partitions"]["0"]["pci_express_mode"], json::parse("[0, 0]"));
}

TEST(StateStore, UnchangedStateIsNotRewritten)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("firmware.json", R"({"defined_partitions": [0]})");
    const ino_t before = inodeOf(path);
    StateStore(path).transact([](FirmwareState& state) {
        // A change that is not reported is not written.
        state.powerOn(0);
        return false;
    });
    EXPECT_EQ(inodeOf(path), before);
    EXPECT_EQ(readFile(path), R"({"defined_partitions": [0]})");
}

TEST(StateStore, KeepsTheShapeOfAnExistingFile)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("firmware.json", R"({"defined_partitions": [0, 1]})");
    StateStore(path).transact([](FirmwareState& state) {
        state.powerOn(1);
        return true;
    });
    EXPECT_EQ(json::parse(readFile(path)),
              json::parse(R"({"defined_partitions": [0, 1], "partitions": {"1": {"power_on": true}}})"));
}

TEST(StateStore, ReplaceWritesTheWholeState)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("firmware.json", R"({"defined_partitions": [0]})");
    StateStore(path).replace(FirmwareState::defaults());
    EXPECT_EQ(json::parse(readFile(path)), FirmwareState::defaults().document());
}

TEST(StateStore, MalformedFileThrowsAndIsLeftAsItIs)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("firmware.json", R"({"faults": 3})");
    bool applied = false;
    try {
        StateStore(path).transact([&](FirmwareState&) {
            applied = true;
            return true;
        });
        FAIL() << "a malformed state loaded";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Malformed);
        EXPECT_EQ(std::string(failure.what()), path.string() + R"(: "faults" must be a list)");
    }
    EXPECT_FALSE(applied);
    EXPECT_EQ(readFile(path), R"({"faults": 3})");
}

TEST(StateStore, StatePathThatIsAFolderIsUnreadable)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    std::filesystem::create_directory(path);
    try {
        StateStore(path).transact([](FirmwareState&) { return false; });
        FAIL() << "a folder loaded as a state";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Unreadable);
    }
}

TEST(StateStore, StateFileLargerThanOneMebibyteIsRefused)
{
    const TemporaryDirectory folder;
    const auto path = folder.write("firmware.json", "{}" + std::string(1024 * 1024, ' '));
    try {
        StateStore(path).transact([](FirmwareState&) { return false; });
        FAIL() << "a state of more than 1 MiB loaded";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Unreadable);
        EXPECT_EQ(std::string(failure.what()), "cannot read " + path.string() + ": is larger than 1048576 bytes");
    }
}

TEST(StateStore, NewStateIsPrivateToItsOwner)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    StateStore(path).transact([](FirmwareState&) { return false; });
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    ASSERT_EQ(::stat((path.string() + ".lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(StateStore, NewStateLeftBehindByAKilledWriterIsRemovedByTheNextOne)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    StateStore(path).transact([](FirmwareState&) { return false; });
    // What a writer killed between linking and renaming leaves.
    folder.write("firmware.json.new", "{}");
    StateStore(path).transact([](FirmwareState&) { return false; });
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"firmware.json", "firmware.json.lock"}));
}

TEST(StateStore, FailedReplaceLeavesNoTemporaryFileBehind)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    // A non-empty folder in the way makes the rename fail.
    std::filesystem::create_directory(path);
    folder.write("firmware.json/keep", "");
    try {
        StateStore(path).replace(FirmwareState::defaults());
        FAIL() << "a state replaced a folder";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Io);
    }
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"firmware.json", "firmware.json.lock"}));
}

TEST(StateStore, ConcurrentProcessesLoseNoUpdate)
{
    const TemporaryDirectory folder;
    const auto path = folder.path() / "firmware.json";
    constexpr int kProcesses = 4;
    constexpr int kIncrements = 25;
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            int status = 0;
            try {
                const StateStore store(path);
                for (int i = 0; i < kIncrements; ++i) {
                    store.transact([](FirmwareState& state) {
                        state.setLanDeviceMode(0, static_cast<std::uint8_t>(state.lanDeviceMode(0) + 1));
                        return true;
                    });
                }
            } catch (...) {
                status = 1;
            }
            ::_exit(status);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    const FirmwareState state(json::parse(readFile(path)));
    EXPECT_EQ(state.lanDeviceMode(0), kProcesses * kIncrements);
    EXPECT_EQ(folder.entries(), (std::vector<std::string>{"firmware.json", "firmware.json.lock"}));
}

} // namespace
