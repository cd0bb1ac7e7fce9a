// Many operators at once: 2 x 50 set commands on 34 partitions, three on
// each, on modes that live in different firmware records, started together
// against one firmware state. Afterwards the state file must parse and hold
// every change that reported success, and the audit file must hold exactly
// one well-formed record for each of them.
#include "FirmwareState.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"
#include "UniqueFd.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace partmode::test {
namespace {

using nlohmann::json;

// An IPMI message carries at most 35 data bytes, one per defined partition in
// the answer of Get Defined Partitions, so a BMC can define no more than that.
constexpr unsigned int kPartitions = 34;
constexpr std::size_t kRuns = 100;

struct Change {
    unsigned int partition;
    std::vector<std::string> arguments;
    std::string input;
    std::string auditText;
    // Where the change shows in the partition's state: a byte list and the
    // index and value of its byte.
    std::string key;
    std::size_t index;
    int value;
};

// Every partition registers the capacity-keep mirror mode. Even partitions
// change to fixed PCI Express mode and register bus mode; odd ones enable
// dynamic reconfiguration, which needs the flexible PCI Express and segment
// modes they keep, and set flexible mode once more, which the state shows as
// it was but the audit must still record.
std::vector<Change> changes()
{
    std::vector<Change> all;
    for (unsigned int partition = 0; partition < kPartitions; ++partition) {
        const std::string number = std::to_string(partition);
        all.push_back({partition,
                       {"set", "partition", "memory_mirror_ras_mode", number, "capacity_keep", "quiet"},
                       "",
                       "Memory Mirror Ras Mode=Capacity Keep",
                       "memory_mode",
                       5,
                       1});
        if (partition % 2 == 0) {
            all.push_back({partition,
                           {"set", "partition", "pci_express_mode", number, "fixed"},
                           "y\n",
                           "PCI Express Mode=Fixed",
                           "pci_express_mode",
                           1,
                           0});
            all.push_back({partition,
                           {"set", "partition", "pci_address_mode", number, "bus", "quiet"},
                           "",
                           "PCI Address Mode=Bus",
                           "pci_address_mode",
                           1,
                           0});
        } else {
            all.push_back({partition,
                           {"set", "partition", "dynamic_reconfiguration", number, "enable", "quiet"},
                           "",
                           "Dynamic Reconfiguration Enable",
                           "dynamic_reconfiguration",
                           1,
                           1});
            all.push_back({partition,
                           {"set", "partition", "pci_express_mode", number, "flexible"},
                           "y\n",
                           "PCI Express Mode=Flexible",
                           "pci_express_mode",
                           1,
                           1});
        }
    }
    all.resize(kRuns);
    return all;
}

std::string loginName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_name != nullptr ? entry->pw_name : "";
}

// Holds the state file's lock, so that the runs started meanwhile all wait
// for it and then go at once.
class StateGate {
public:
    explicit StateGate(const std::filesystem::path& statePath)
        : fd_(::open((statePath.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
    {
        if (!fd_ || ::flock(fd_.get(), LOCK_EX) != 0) {
            throw std::runtime_error("cannot lock the firmware state");
        }
    }
    void open() { fd_.reset(); }

private:
    UniqueFd fd_;
};

// Runs every change at once against the firmware the board's `firmware`
// object reaches, whose state lives in `statePath`, and checks the outcome.
// The embedded simulator takes every change, and its runs are held at the
// state's lock until all have started; a BMC is not held, since holding its
// state would stop it answering anything.
void changeAtOnce(const TemporaryDirectory& folder, const json& firmware, const std::filesystem::path& statePath,
                  bool embedded)
{
    json state = sim::FirmwareState::defaults().document();
    state["defined_partitions"] = json::array();
    for (unsigned int partition = 0; partition < kPartitions; ++partition) {
        state["defined_partitions"].push_back(partition);
    }
    {
        std::ofstream out(statePath, std::ios::trunc);
        out << state.dump(2) << "\n";
    }
    const auto board = folder.write("board.json", json{{"partitions", kPartitions},
                                                       {"firmware", firmware},
                                                       {"trace", (folder.path() / "trace.log").string()},
                                                       {"audit", (folder.path() / "audit.log").string()}}
                                                      .dump());

    const auto all = changes();
    std::vector<ToolProcess> runs;
    {
        std::optional<StateGate> gate;
        if (embedded) {
            gate.emplace(statePath);
        }
        for (std::size_t i = 0; i < all.size(); ++i) {
            runs.emplace_back(folder.path(), "run" + std::to_string(i), board, all[i].arguments, all[i].input);
        }
        if (gate) {
            // Give the runs time to reach the state; none can pass the gate.
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            gate->open();
        }
    }

    std::vector<const Change*> succeeded;
    std::vector<const Change*> failed;
    std::map<std::string, int> refusals;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const auto outcome = runs[i].finish();
        std::ostringstream command;
        for (const auto& word : all[i].arguments) {
            command << ' ' << word;
        }
        ASSERT_TRUE(WIFEXITED(outcome.waitStatus)) << command.str() << ": " << outcome.describe();
        if (outcome.exited(0)) {
            EXPECT_EQ(outcome.err, "") << command.str();
            succeeded.push_back(&all[i]);
        } else {
            EXPECT_FALSE(embedded) << command.str() << ": " << outcome.describe() << "\n" << outcome.err;
            EXPECT_NE(outcome.err, "") << command.str() << " failed without saying so";
            ++refusals[outcome.describe() + ": " + outcome.err];
            failed.push_back(&all[i]);
        }
    }
    for (const auto& [refusal, count] : refusals) {
        std::cout << count << " runs ended with " << refusal;
    }

    // A run that finds no session is a refusal, but all of them is a broken BMC.
    ASSERT_FALSE(succeeded.empty()) << "no change reported success";
    ::testing::Test::RecordProperty("changes_done", static_cast<int>(succeeded.size()));

    const json after = json::parse(readFile(statePath));
    ASSERT_NO_THROW(sim::FirmwareState{after});
    for (const Change* change : succeeded) {
        const json::json_pointer where("/partitions/" + std::to_string(change->partition) + "/" + change->key);
        const json bytes = after.contains(where) ? after.at(where) : json();
        ASSERT_TRUE(bytes.is_array() && bytes.size() > change->index) << change->key << " of " << change->partition;
        EXPECT_EQ(bytes[change->index], change->value) << change->key << " of partition " << change->partition;
    }

    // Each record on a line of its own, none torn or interleaved: one for every
    // change done, and none for any other, except the record of a failed
    // change that dynamic reconfiguration writes when a request fails.
    std::multiset<std::string> expected;
    for (const Change* change : succeeded) {
        expected.insert("10082: Partition#" + std::to_string(change->partition) + ": " + change->auditText);
    }
    std::multiset<std::string> failureRecords;
    for (const Change* change : failed) {
        failureRecords.insert("10083: Partition#" + std::to_string(change->partition) + ": " + change->auditText +
                              " failed");
    }
    std::multiset<std::string> found;
    const std::regex time(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4})");
    std::istringstream audit(readFile(folder.path() / "audit.log"));
    for (std::string line; std::getline(audit, line);) {
        const json record = json::parse(line, nullptr, false);
        ASSERT_TRUE(record.is_object()) << "not a record: " << line;
        EXPECT_EQ(record.size(), 7U) << line;
        EXPECT_TRUE(record.contains("applied") && record["applied"].is_boolean()) << line;
        // Every change here is confirmed or quiet, so its request left.
        if (record.value("text", "").starts_with("10082")) {
            EXPECT_EQ(record.value("applied", false), true) << line;
        }
        EXPECT_TRUE(record.value("time", "").size() == 24 && std::regex_match(record.value("time", ""), time)) << line;
        EXPECT_EQ(record.value("user", ""), loginName()) << line;
        EXPECT_EQ(record.value("kind", 0), 1) << line;
        EXPECT_EQ(record.value("code", ""), "0xFF") << line;
        EXPECT_TRUE(record.contains("origin")) << line;
        found.insert(record.value("text", ""));
    }
    std::vector<std::string> missing;
    std::set_difference(expected.begin(), expected.end(), found.begin(), found.end(), std::back_inserter(missing));
    std::multiset<std::string> others;
    std::set_difference(found.begin(), found.end(), expected.begin(), expected.end(),
                        std::inserter(others, others.end()));
    std::vector<std::string> unexpected;
    std::set_difference(others.begin(), others.end(), failureRecords.begin(), failureRecords.end(),
                        std::back_inserter(unexpected));
    EXPECT_EQ(missing, std::vector<std::string>()) << "changes done without their audit record";
    EXPECT_EQ(unexpected, std::vector<std::string>()) << "audit records of no change reported done";
}

TEST(Concurrency, HundredChangesAtOnceOnTheEmbeddedSimulatorAllLand)
{
    const TemporaryDirectory folder;
    const auto statePath = folder.path() / "firmware.json";
    changeAtOnce(folder, json{{"transport", "simulator"}, {"state", statePath.string()}}, statePath, true);
}

// The firmware simulator as a BMC (partmode-sim serve) on a free loopback
// port, for the life of the object.
class Bmc {
public:
    explicit Bmc(std::filesystem::path folder) : folder_(std::move(folder))
    {
        if (std::system(command("start", PARTMODE_SIM_BINARY).c_str()) != 0) {
            throw std::runtime_error("the BMC did not start");
        }
    }
    Bmc(const Bmc&) = delete;
    Bmc& operator=(const Bmc&) = delete;
    ~Bmc() { static_cast<void>(std::system(command("stop").c_str())); }

    [[nodiscard]] json firmware() const { return json::parse(readFile(folder_ / "firmware.json")); }
    [[nodiscard]] std::filesystem::path state() const { return folder_ / "state.json"; }

private:
    [[nodiscard]] std::string command(const std::string& action, const std::string& simulator = {}) const
    {
        return "sh '" PARTMODE_BMC_SCRIPT "' " + action + " '" + folder_.string() + "' " +
               (simulator.empty() ? "" : "'" + simulator + "'") + " >/dev/null";
    }

    std::filesystem::path folder_;
};

// Over LAN each run opens an RMCP+ session of its own; a BMC may refuse
// sessions beyond its limit, and such a run must fail and say so.
TEST(Concurrency, HundredChangesAtOnceOverLanLandWhenReportedDone)
{
    const TemporaryDirectory folder;
    const Bmc bmc(folder.path() / "bmc");
    changeAtOnce(folder, bmc.firmware(), bmc.state(), false);
}

} // namespace
} // namespace partmode::test
