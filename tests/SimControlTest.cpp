// The simulator control program as an operator meets it: help and version,
// options anywhere, a reason for every refused command line, numbers checked
// against the board, state errors in plain words, and the commands that
// inject faults and set the firmware's state.
#include "SimControlFixture.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace partmode::test {
namespace {

using nlohmann::json;

constexpr const char* kUsage = "usage: partmode-sim [--state FILE] init | show | power on|off PARTITION |\n"
                               "                    fault add NETFN CMD CODE [COUNT] [--partition PARTITION] |\n"
                               "                    fault list | fault clear [N] |\n"
                               "                    set partition PARTITION KEY VALUE... | set KEY VALUE... |\n"
                               "                    serve [--port N] [--vm-port M] [--address ADDRESS] [--user NAME]\n"
                               "                          [--password-file FILE] [--k-g-file FILE] [--board FILE]\n"
                               "       partmode-sim --help | --version\n"
                               "Options may stand anywhere. Numbers are decimal or, with 0x, hexadecimal.\n";

using SimControl = SimControlFixture;

TEST_F(SimControl, HelpGoesToStandardOutputAndEndsWell)
{
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"-h"}, {"power", "on", "--help"}, {"frobnicate", "-h"}}) {
        const auto outcome = sim(arguments);
        EXPECT_EQ(outcome.out, kUsage) << arguments.front();
        EXPECT_EQ(outcome.err, "") << arguments.front();
        EXPECT_TRUE(outcome.exited(0)) << outcome.describe();
    }
    EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(SimControl, VersionPrintsTheVersion)
{
    const auto outcome = sim({"--version"});
    EXPECT_EQ(outcome.out, std::string("partmode-sim ") + PARTMODE_VERSION + "\n");
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe();
}

TEST_F(SimControl, OptionsMayStandAnywhere)
{
    const auto other = (folder.path() / "other.json").string();
    expectDone(sim({"power", "on", "1", "--state", other}));
    expectDone(sim({"power", "--state", other, "on", "2"}));
    expectDone(sim({"power", "on", "--state=" + other, "3"}));
    const auto document = readJson(other);
    for (const char* partition : {"1", "2", "3"}) {
        EXPECT_EQ(document["partitions"][partition]["power_on"], true) << partition;
    }
    EXPECT_EQ(document["partitions"]["0"]["power_on"], false);
    EXPECT_FALSE(std::filesystem::exists(state()));
}

struct Refusal {
    std::vector<std::string> arguments;
    std::string reason;
};

TEST_F(SimControl, EveryUsageErrorNamesItsReason)
{
    const std::vector<Refusal> refusals{
        {{}, "no command given"},
        {{"frobnicate"}, "unknown command \"frobnicate\""},
        {{"power"}, "power needs on or off"},
        {{"power", "up", "1"}, "power takes on or off, not \"up\""},
        {{"power", "on"}, "power on needs a partition number"},
        {{"power", "on", "1", "2"}, "unexpected word \"2\" after power on"},
        {{"power", "on", "one"}, "partition \"one\" is not a number"},
        {{"power", "on", "-1"}, "partition \"-1\" is not a number"},
        {{"power", "on", "+1"}, "partition \"+1\" is not a number"},
        {{"power", "on", "0x100"}, "partition 0x100 is too large; the largest is 255"},
        {{"--frobnicate", "show"}, "unknown option --frobnicate"},
        {{"show", "--state"}, "--state needs a value"},
        {{"show", "--state="}, "--state needs a value"},
        {{"show", "--state", ""}, "--state needs a value"},
        {{"show", "--port", "1"}, "--port is an option of serve only"},
        {{"show", "--partition", "1"}, "--partition is an option of fault add only"},
        {{"--state", "a", "--state", "b", "show"}, "--state is given twice"},
        {{"show", "--version=2"}, "--version takes no value"},
        {{"init", "now"}, "unexpected word \"now\" after init"},
        {{"fault"}, "fault needs add, list or clear"},
        {{"fault", "remove", "1"}, "fault takes add, list or clear, not \"remove\""},
        {{"fault", "add", "0x30", "0xB2"}, "fault add needs NETFN CMD CODE"},
        {{"fault", "add", "0x30", "0xB2", "0x80", "1", "2"}, "unexpected word \"2\" after fault add"},
        {{"fault", "add", "0x30", "0xGG", "0x80"}, "CMD \"0xGG\" is not a number"},
        {{"fault", "add", "0x30", "0xB2", "256"}, "CODE 256 is too large; the largest is 255"},
        {{"fault", "clear", "1", "2"}, "unexpected word \"2\" after fault clear"},
        {{"set"}, "set needs a key"},
        {{"set", "colour", "red"}, "the state has no key \"colour\" that set can change"},
        {{"set", "partition"}, "set partition needs a partition number and a key"},
        {{"set", "partition", "0", "reserved_sb"}, "reserved_sb needs 1 value"},
        {{"set", "partition", "0", "colour", "1"}, "partitions have no key \"colour\""},
        {{"set", "partition", "0", "reserved_sb", "yes"}, "reserved_sb takes true or false, not \"yes\""},
        {{"set", "partition", "0", "tpm", "1", "256"}, "tpm byte 256 is too large; the largest is 255"},
        {{"set", "exclusive_features", "true", "false"}, "unexpected word \"false\" after exclusive_features"},
        {{"set", "lan_device_modes", "1"}, "lan_device_modes needs 2 values"},
        {{"serve"}, "serve needs --port, --vm-port or both (0 takes any free port)"},
        {{"serve", "--vm-port", "0", "--board", "b.json"}, "--board belongs to the LAN interface; give --port too"},
        {{"serve", "--vm-port", "0", "--address", "127.0.0.2"},
         "--address belongs to the LAN interface; give --port too"},
        {{"serve", "--vm-port", "65536"}, "port 65536 is too large; the largest is 65535"},
        {{"serve", "--port", "65536"}, "port 65536 is too large; the largest is 65535"},
        {{"serve", "--port", "0", "--address", "localhost"},
         "--address takes an IPv4 address such as 127.0.0.2, not \"localhost\""},
        {{"serve", "--port", "0", "--user="}, "--user needs a value"},
        {{"serve", "--port", "0", "--board", ""}, "--board needs a value"},
    };
    for (const auto& refusal : refusals) {
        expectRefused(sim(refusal.arguments), refusal.reason);
    }
    EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(SimControl, NumbersAreCheckedAgainstTheBoard)
{
    const std::vector<Refusal> refusals{
        {{"power", "on", "9"}, "partition 9 is not on this board: it has partitions 0 to 3"},
        {{"power", "off", "4"}, "partition 4 is not on this board: it has partitions 0 to 3"},
        {{"set", "partition", "4", "reserved_sb", "true"},
         "partition 4 is not on this board: it has partitions 0 to 3"},
        {{"set", "defined_partitions", "0", "7"}, "partition 7 is not on this board: it has partitions 0 to 3"},
        {{"set", "extended_partition_parents", "3", "1"},
         "extended partition 3 is not on this board: it has extended partitions 4 to 5"},
        {{"set", "extended_partition_parents", "4", "5"}, "partition 5 is not on this board: it has partitions 0 to 3"},
        {{"set", "lan_device_modes", "8", "1"}, "I/O unit 8 is not on this board: it has I/O units 0 to 7"},
        {{"fault", "add", "0x30", "0xB2", "0x80", "--partition", "4"},
         "partition 4 is not on this board: it has partitions 0 to 3"},
        {{"fault", "add", "0x30", "0xF4", "0xC0", "--partition", "6"},
         "partition 6 is not on this board: it has partitions 0 to 5"},
        {{"fault", "add", "0x30", "0x70", "0xC0", "--partition", "0"},
         "the request Get Defined Partitions is about no partition; leave out --partition"},
    };
    for (const auto& refusal : refusals) {
        expectRefused(sim(refusal.arguments), refusal.reason);
    }
    EXPECT_FALSE(std::filesystem::exists(state()));

    writeBoard(R"({"partitions": 1, "firmware": {"transport": "simulator", "state": "firmware.json"}})");
    expectRefused(sim({"power", "on", "1"}), "partition 1 is not on this board: it has partition 0 only");
    expectRefused(sim({"set", "extended_partition_parents", "1", "0"}),
                  "extended partition 1 is not on this board: it has no extended partitions");
    EXPECT_FALSE(std::filesystem::exists(state()));
    expectDone(sim({"power", "on", "0"}));
    EXPECT_EQ(readJson(state())["partitions"]["0"]["power_on"], true);
}

TEST_F(SimControl, ABoardThatCannotBeUsedIsNamed)
{
    writeBoard(R"({"partitions": 0})");
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"show"}, {"power", "on", "0", "--state", state().string()}}) {
        const auto outcome = sim(arguments);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  "partmode-sim: " + board().string() + ": \"partitions\" must be a whole number from 1 to 256\n");
        EXPECT_TRUE(outcome.exited(1)) << outcome.describe();
    }
    EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(SimControl, AMissingStateFolderIsRefusedNotCreated)
{
    const auto missing = folder.path() / "missing";
    const auto outcome = sim({"power", "on", "0", "--state", (missing / "state.json").string()});
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "partmode-sim: cannot use the state file " + (missing / "state.json").string() +
                               ": the folder " + missing.string() + " does not exist\n");
    EXPECT_TRUE(outcome.exited(1)) << outcome.describe();
    EXPECT_FALSE(std::filesystem::exists(missing));

    const auto file = folder.write("plain", "");
    const auto underFile = sim({"show", "--state", (file / "state.json").string()});
    EXPECT_EQ(underFile.err, "partmode-sim: cannot use the state file " + (file / "state.json").string() +
                                 ": the folder " + file.string() + " is not a folder\n");
    EXPECT_TRUE(underFile.exited(1)) << underFile.describe();
}

TEST_F(SimControl, StateErrorsAreInOurOwnWords)
{
    const std::vector<std::pair<std::string, std::string>> cases{
        {"{\"partitions\": ", "not valid JSON: it ends too early (line 1)"},
        {"{\n  \"faults\": [],\n  \"partitions\": x\n}\n", "not valid JSON at line 3, column 17"},
        {"", "not valid JSON: the file is empty"},
        {"{\"exclusive_features\": 1e999}", "not valid JSON: it holds a number too large to read"},
        {"{\"exclusive_features\": 1}", "\"exclusive_features\" must be true or false"},
    };
    for (const auto& [content, reason] : cases) {
        folder.write("firmware.json", content);
        for (const std::vector<std::string>& arguments :
             {std::vector<std::string>{"show"}, {"power", "on", "0"}, {"fault", "list"}}) {
            const auto outcome = sim(arguments);
            EXPECT_EQ(outcome.out, "");
            EXPECT_EQ(outcome.err, "partmode-sim: " + state().string() + ": " + reason + "\n") << arguments[0];
            EXPECT_TRUE(outcome.exited(1)) << outcome.describe();
        }
        EXPECT_EQ(readFile(state()), content);
    }
}

TEST_F(SimControl, ShowPrintsRequestCodesInHexAndItsOutputIsAStateFile)
{
    expectDone(sim({"fault", "add", "0x30", "178", "0x80", "1", "--partition", "2"}));
    expectDone(sim({"fault", "add", "46", "0xf5", "0xC0"}));
    const auto outcome = sim({"show"});
    EXPECT_EQ(outcome.err, "");
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe();
    const auto shown = json::parse(outcome.out);
    EXPECT_EQ(shown["faults"], json::parse(R"([
        {"netfn": "0x30", "cmd": "0xB2", "partition": 2, "completion_code": "0x80", "count": 1},
        {"netfn": "0x2E", "cmd": "0xF5", "completion_code": "0xC0"}])"));
    // The state file keeps numbers, which the firmware reads.
    EXPECT_EQ(readJson(state())["faults"][0]["netfn"], 0x30);

    const auto copy = folder.write("copy.json", outcome.out);
    const auto listed = sim({"fault", "list", "--state", copy.string()});
    EXPECT_EQ(listed.out, "N  NETFN CMD  CODE PARTITION COUNT\n"
                          "1  0x30  0xB2 0x80 2         1\n"
                          "2  0x2E  0xF5 0xC0 any       always\n");
    EXPECT_TRUE(listed.exited(0)) << listed.describe();
}

TEST_F(SimControl, FaultAddRefusesFaultsThatWouldNeverFire)
{
    expectRefused(sim({"fault", "add", "0x30", "0xB2", "0x80", "0"}),
                  "COUNT 0 would never fire; leave COUNT out for a fault that stays");
    expectRefused(sim({"fault", "add", "0x30", "0x99", "0x80"}),
                  "the firmware answers no request 0x30 0x99, so the fault would never fire");
    expectRefused(sim({"fault", "add", "0x31", "0xB2", "0x80"}),
                  "the firmware answers no request 0x31 0xB2, so the fault would never fire");
    EXPECT_FALSE(std::filesystem::exists(state()));
}

TEST_F(SimControl, FaultListAndClearOneByItsNumber)
{
    expectDone(sim({"fault", "list"}), "no faults\n");
    expectDone(sim({"fault", "add", "0x30", "0xB2", "0x80", "1"}));
    expectDone(sim({"fault", "add", "0x30", "0x7E", "0x81", "--partition", "3"}));
    expectDone(sim({"fault", "add", "0x30", "0x62", "0xFF", "2"}));
    expectDone(sim({"fault", "list"}), "N  NETFN CMD  CODE PARTITION COUNT\n"
                                       "1  0x30  0xB2 0x80 any       1\n"
                                       "2  0x30  0x7E 0x81 3         always\n"
                                       "3  0x30  0x62 0xFF any       2\n");
    expectDone(sim({"fault", "clear", "2"}));
    expectDone(sim({"fault", "list"}), "N  NETFN CMD  CODE PARTITION COUNT\n"
                                       "1  0x30  0xB2 0x80 any       1\n"
                                       "2  0x30  0x62 0xFF any       2\n");
    const auto before = readFile(state());
    expectRefused(sim({"fault", "clear", "3"}), "there is no fault 3; fault list numbers them from 1 to 2");
    expectRefused(sim({"fault", "clear", "0"}), "there is no fault 0; fault list numbers them from 1 to 2");
    EXPECT_EQ(readFile(state()), before);
    expectDone(sim({"fault", "clear"}));
    expectDone(sim({"fault", "list"}), "no faults\n");
    EXPECT_EQ(readJson(state())["faults"], json::array());
}

TEST_F(SimControl, EveryStateFieldHasASetter)
{
    const std::vector<std::vector<std::string>> changes{
        {"set", "partition", "1", "power_on", "true"},
        {"set", "partition", "1", "system_status", "false"},
        {"set", "partition", "1", "extended_partitioning", "true"},
        {"set", "partition", "1", "reserved_sb", "true"},
        {"set", "partition", "1", "dynamic_reconfiguration", "1", "0"},
        {"set", "partition", "1", "tpm", "1", "1"},
        {"set", "partition", "1", "pci_express_mode"},
        {"set", "partition", "1", "pci_address_mode", "0", "1", "7"},
        {"set", "partition", "1", "memory_mode", "0", "2", "1", "0", "2", "1"},
        {"set", "partition", "1", "node_ids", "1", "0x43", "0x83"},
        {"set", "exclusive_features", "true"},
        {"set", "defined_partitions", "0", "1", "3"},
        {"set", "extended_partition_parents", "4", "1"},
        {"set", "extended_partition_parents", "5", "3"},
        {"set", "extended_partition_parents", "5", "none"},
        {"set", "lan_device_modes", "3", "0x81"},
    };
    for (const auto& change : changes) {
        expectDone(sim(change));
    }
    const auto document = readJson(state());
    EXPECT_EQ(document["partitions"]["1"], json::parse(R"({
        "power_on": true, "system_status": false, "extended_partitioning": true, "reserved_sb": true,
        "dynamic_reconfiguration": [1, 0], "tpm": [1, 1], "pci_express_mode": [], "pci_address_mode": [0, 1, 7],
        "memory_mode": [0, 2, 1, 0, 2, 1], "node_ids": [1, 67, 131]})"));
    EXPECT_EQ(document["exclusive_features"], true);
    EXPECT_EQ(document["defined_partitions"], json::parse("[0, 1, 3]"));
    EXPECT_EQ(document["extended_partition_parents"], json::parse(R"({"4": 1})"));
    EXPECT_EQ(document["lan_device_modes"], json::parse(R"({"3": 129})"));
    // Setters change only their own keys; the other partitions keep the defaults.
    EXPECT_EQ(document["partitions"]["0"], json::parse(R"({
        "power_on": false, "system_status": true, "dynamic_reconfiguration": [0, 0], "extended_partitioning": false,
        "tpm": [0, 0], "pci_express_mode": [1, 1], "pci_address_mode": [1, 1], "memory_mode": [0, 1, 0, 1, 1, 0],
        "node_ids": [0, 128, 129], "reserved_sb": false})"));
}

TEST_F(SimControl, InitFollowsTheBoardsPartitionCount)
{
    for (const unsigned int partitions : {1U, 2U, 6U}) {
        writeBoard(R"({"partitions": )" + std::to_string(partitions) +
                   R"(, "firmware": {"transport": "simulator", "state": "firmware.json"}})");
        expectDone(sim({"init"}));
        const auto document = readJson(state());
        json defined = json::array();
        for (unsigned int partition = 0; partition < partitions; ++partition) {
            defined.push_back(partition);
        }
        EXPECT_EQ(document["defined_partitions"], defined) << partitions;
        EXPECT_EQ(document["partitions"].size(), partitions) << partitions;
        EXPECT_TRUE(document["partitions"].contains(std::to_string(partitions - 1))) << partitions;
    }
}

} // namespace
} // namespace partmode::test
