#include "FirmwareState.h"
#include "StateError.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using partmode::sim::Bytes;
using partmode::sim::Fault;
using partmode::sim::FirmwareState;
using partmode::sim::StateError;

// The reason a state document is refused for; empty when it is accepted.
std::string malformedReason(const std::string& document)
{
    try {
        const FirmwareState state(json::parse(document));
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Malformed);
        return failure.what();
    }
    return {};
}

TEST(FirmwareState, DefaultsWriteEveryKeyOut)
{
    const json expected = json::parse(R"({
      "defined_partitions": [0, 1, 2, 3],
      "exclusive_features": false,
      "partitions": {
        "0": {"power_on": false, "system_status": true, "dynamic_reconfiguration": [0, 0],
              "extended_partitioning": false, "tpm": [0, 0], "pci_express_mode": [1, 1],
              "pci_address_mode": [1, 1], "memory_mode": [0, 1, 0, 1, 1, 0], "node_ids": [0, 128, 129],
              "reserved_sb": false},
        "1": {"power_on": false, "system_status": true, "dynamic_reconfiguration": [0, 0],
              "extended_partitioning": false, "tpm": [0, 0], "pci_express_mode": [1, 1],
              "pci_address_mode": [1, 1], "memory_mode": [0, 1, 0, 1, 1, 0], "node_ids": [1, 130, 131],
              "reserved_sb": false},
        "2": {"power_on": false, "system_status": true, "dynamic_reconfiguration": [0, 0],
              "extended_partitioning": false, "tpm": [0, 0], "pci_express_mode": [1, 1],
              "pci_address_mode": [1, 1], "memory_mode": [0, 1, 0, 1, 1, 0], "node_ids": [2, 132, 133],
              "reserved_sb": false},
        "3": {"power_on": false, "system_status": true, "dynamic_reconfiguration": [0, 0],
              "extended_partitioning": false, "tpm": [0, 0], "pci_express_mode": [1, 1],
              "pci_address_mode": [1, 1], "memory_mode": [0, 1, 0, 1, 1, 0], "node_ids": [3, 134, 135],
              "reserved_sb": false}
      },
      "extended_partition_parents": {},
      "lan_device_modes": {},
      "server_monitor": null,
      "faults": []
    })");
    EXPECT_EQ(FirmwareState::defaults().document(), expected);
}

TEST(FirmwareState, DefaultsAreAcceptedBackAsAState)
{
    EXPECT_EQ(malformedReason(FirmwareState::defaults().document().dump()), "");
}

TEST(FirmwareState, EmptyDocumentAnswersWithTheDefaults)
{
    const FirmwareState state(json::object());
    EXPECT_EQ(state.definedPartitions(), (Bytes{0, 1, 2, 3}));
    EXPECT_TRUE(state.isDefined(3));
    EXPECT_FALSE(state.isDefined(4));
    EXPECT_FALSE(state.exclusiveFeatures());
    EXPECT_FALSE(state.partitionFlag(0, "power_on"));
    EXPECT_TRUE(state.partitionFlag(0, "system_status"));
    EXPECT_FALSE(state.partitionFlag(0, "extended_partitioning"));
    EXPECT_FALSE(state.partitionFlag(0, "reserved_sb"));
    EXPECT_EQ(state.partitionBytes(0, "dynamic_reconfiguration"), (Bytes{0, 0}));
    EXPECT_EQ(state.partitionBytes(0, "tpm"), (Bytes{0, 0}));
    EXPECT_EQ(state.partitionBytes(0, "pci_express_mode"), (Bytes{1, 1}));
    EXPECT_EQ(state.partitionBytes(0, "pci_address_mode"), (Bytes{1, 1}));
    EXPECT_EQ(state.partitionBytes(0, "memory_mode"), (Bytes{0, 1, 0, 1, 1, 0}));
    EXPECT_EQ(state.extendedPartitionParent(4), 255);
    EXPECT_EQ(state.lanDeviceMode(0), 0);
    EXPECT_FALSE(state.serverMonitor().has_value());
    EXPECT_TRUE(state.faults().empty());
}

TEST(FirmwareState, DefaultNodeIdsAreOneSystemBoardAndTwoIOUnitsPerPartition)
{
    const FirmwareState state(json::object());
    EXPECT_EQ(state.partitionBytes(0, "node_ids"), (Bytes{0, 128, 129}));
    EXPECT_EQ(state.partitionBytes(1, "node_ids"), (Bytes{1, 130, 131}));
    EXPECT_EQ(state.partitionBytes(5, "node_ids"), (Bytes{5, 138, 139}));
}

TEST(FirmwareState, StoredValuesWinOverDefaultsKeyByKey)
{
    const FirmwareState state(json::parse(R"({
      "defined_partitions": [1, 7],
      "exclusive_features": true,
      "partitions": {"7": {"power_on": true, "pci_express_mode": [2]}},
      "extended_partition_parents": {"4": 1},
      "lan_device_modes": {"3": 2},
      "server_monitor": [[], [7, 1, 9]]
    })"));
    EXPECT_EQ(state.definedPartitions(), (Bytes{1, 7}));
    EXPECT_TRUE(state.isDefined(7));
    EXPECT_FALSE(state.isDefined(0));
    EXPECT_TRUE(state.exclusiveFeatures());
    EXPECT_TRUE(state.partitionFlag(7, "power_on"));
    EXPECT_EQ(state.partitionBytes(7, "pci_express_mode"), (Bytes{2}));
    EXPECT_EQ(state.partitionBytes(7, "pci_address_mode"), (Bytes{1, 1}));
    EXPECT_EQ(state.extendedPartitionParent(4), 1);
    EXPECT_EQ(state.extendedPartitionParent(5), 255);
    EXPECT_EQ(state.lanDeviceMode(3), 2);
    EXPECT_EQ(state.lanDeviceMode(2), 0);
    EXPECT_EQ(state.serverMonitor(), (std::vector<std::vector<std::int32_t>>{{}, {7, 1, 9}}));
}

TEST(FirmwareState, SettersWriteOnlyTheKeysTheyChange)
{
    FirmwareState state(json::object());
    state.setPartitionBytes(2, "pci_express_mode", {0, 0});
    state.setPartitionFlag(2, "power_on", true);
    state.setLanDeviceMode(5, 2);
    EXPECT_EQ(state.document(), json::parse(R"({
      "partitions": {"2": {"pci_express_mode": [0, 0], "power_on": true}},
      "lan_device_modes": {"5": 2}
    })"));
}

TEST(FirmwareState, FaultsRoundTrip)
{
    FirmwareState state(json::object());
    state.setFaults({Fault{0x30, 0xB2, 0, 0x80, 1}, Fault{0x2E, 0xF5, std::nullopt, 0xD5, std::nullopt}});
    EXPECT_EQ(state.document().at("faults"), json::parse(R"([
      {"netfn": 48, "cmd": 178, "partition": 0, "completion_code": 128, "count": 1},
      {"netfn": 46, "cmd": 245, "completion_code": 213}
    ])"));
    const auto faults = state.faults();
    ASSERT_EQ(faults.size(), 2U);
    EXPECT_EQ(faults[0].netFn, 0x30);
    EXPECT_EQ(faults[0].command, 0xB2);
    EXPECT_EQ(faults[0].partition, std::optional<std::uint8_t>(0));
    EXPECT_EQ(faults[0].completionCode, 0x80);
    EXPECT_EQ(faults[0].count, std::optional<unsigned int>(1));
    EXPECT_FALSE(faults[1].partition.has_value());
    EXPECT_FALSE(faults[1].count.has_value());
}

TEST(FirmwareState, FaultCodesMayBeWrittenInHex)
{
    const FirmwareState state(json::parse(
        R"({"faults": [{"netfn": "0x30", "cmd": "0xb2", "partition": 1, "completion_code": "0X80", "count": 2}]})"));
    const auto faults = state.faults();
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_EQ(faults[0].netFn, 0x30);
    EXPECT_EQ(faults[0].command, 0xB2);
    EXPECT_EQ(faults[0].completionCode, 0x80);
    EXPECT_EQ(faults[0].partition, std::optional<std::uint8_t>(1));
    for (const char* code : {R"("0x")", R"("0x100")", R"("30")", R"("0x3g")", R"("")"}) {
        EXPECT_EQ(
            malformedReason(std::string(R"({"faults": [{"netfn": )") + code + R"(, "cmd": 1, "completion_code": 1}]})"),
            R"("faults.netfn" must be a byte)")
            << code;
    }
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 48, "cmd": 1, "partition": "0x01", "completion_code": 1}]})"),
              R"("faults.partition" must be a byte)");
}

TEST(FirmwareState, DefaultsFollowThePartitionCount)
{
    const auto state = FirmwareState::defaults(2);
    EXPECT_EQ(state.document().at("defined_partitions"), json::parse("[0, 1]"));
    EXPECT_EQ(state.document().at("partitions").size(), 2U);
    EXPECT_EQ(state.document().at("partitions").at("1"), FirmwareState::defaults().document().at("partitions").at("1"));
}

TEST(FirmwareState, SystemSettersWriteTheirKeys)
{
    FirmwareState state(json::object());
    state.setDefinedPartitions({0, 2});
    state.setExclusiveFeatures(true);
    state.setExtendedPartitionParent(4, 2);
    state.setExtendedPartitionParent(5, 1);
    state.setExtendedPartitionParent(5, std::nullopt);
    EXPECT_EQ(state.document(), json::parse(R"({"defined_partitions": [0, 2], "exclusive_features": true,
                                                "extended_partition_parents": {"4": 2}})"));
    EXPECT_TRUE(state.isDefined(2));
    EXPECT_FALSE(state.isDefined(1));
    EXPECT_TRUE(state.exclusiveFeatures());
    EXPECT_EQ(state.extendedPartitionParent(4), 2);
    EXPECT_EQ(state.extendedPartitionParent(5), 255);
}

TEST(FirmwareState, PowerOnMakesTheRegisteredSettingsCurrent)
{
    FirmwareState state(json::parse(R"({"partitions": {"1": {
      "pci_express_mode": [1, 0], "pci_address_mode": [0, 1], "dynamic_reconfiguration": [0, 1],
      "memory_mode": [0, 1, 0, 1, 2, 3]}}})"));
    state.powerOn(1);
    EXPECT_TRUE(state.partitionFlag(1, "power_on"));
    EXPECT_EQ(state.partitionBytes(1, "pci_express_mode"), (Bytes{0, 0}));
    EXPECT_EQ(state.partitionBytes(1, "pci_address_mode"), (Bytes{1, 1}));
    EXPECT_EQ(state.partitionBytes(1, "dynamic_reconfiguration"), (Bytes{1, 1}));
    EXPECT_EQ(state.partitionBytes(1, "memory_mode"), (Bytes{0, 2, 3, 1, 2, 3}));
}

TEST(FirmwareState, PowerOnOfASettledPartitionWritesOnlyThePowerFlag)
{
    FirmwareState state(json::object());
    state.powerOn(0);
    EXPECT_EQ(state.document(), json::parse(R"({"partitions": {"0": {"power_on": true}}})"));
}

TEST(FirmwareState, PowerOnLeavesShortSettingListsAlone)
{
    FirmwareState state(json::parse(R"({"partitions": {"0": {"pci_express_mode": [0], "memory_mode": [1, 2]}}})"));
    state.powerOn(0);
    EXPECT_EQ(state.partitionBytes(0, "pci_express_mode"), (Bytes{0}));
    EXPECT_EQ(state.partitionBytes(0, "memory_mode"), (Bytes{1, 2}));
}

TEST(FirmwareState, PowerOffClearsOnlyThePowerFlag)
{
    FirmwareState state(json::parse(R"({"partitions": {"0": {"power_on": true, "pci_express_mode": [1, 0]}}})"));
    state.powerOff(0);
    EXPECT_FALSE(state.partitionFlag(0, "power_on"));
    EXPECT_EQ(state.partitionBytes(0, "pci_express_mode"), (Bytes{1, 0}));
}

TEST(FirmwareState, RefusesADocumentThatIsNotAnObject)
{
    EXPECT_EQ(malformedReason("[]"), "the state must be a JSON object");
    EXPECT_EQ(malformedReason("null"), "the state must be a JSON object");
}

TEST(FirmwareState, RefusesUnknownKeys)
{
    EXPECT_EQ(malformedReason(R"({"colour": 1})"), R"(unknown key "colour")");
    EXPECT_EQ(malformedReason(R"({"partitions": {"0": {"colour": 1}}})"), R"(unknown key "partitions.0.colour")");
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 48, "cmd": 1, "completion_code": 1, "when": 0}]})"),
              R"(unknown key "faults.when")");
}

TEST(FirmwareState, RefusesValuesOfTheWrongType)
{
    EXPECT_EQ(malformedReason(R"({"defined_partitions": [0, 256]})"),
              R"("defined_partitions" must be a list of bytes)");
    EXPECT_EQ(malformedReason(R"({"defined_partitions": 0})"), R"("defined_partitions" must be a list of bytes)");
    EXPECT_EQ(malformedReason(R"({"exclusive_features": 0})"), R"("exclusive_features" must be true or false)");
    EXPECT_EQ(malformedReason(R"({"partitions": []})"), R"("partitions" must be an object)");
    EXPECT_EQ(malformedReason(R"({"partitions": {"0": 1}})"), R"("partitions.0" must be an object)");
    EXPECT_EQ(malformedReason(R"({"partitions": {"0": {"power_on": 1}}})"),
              R"("partitions.0.power_on" must be true or false)");
    EXPECT_EQ(malformedReason(R"({"partitions": {"0": {"tpm": [-1]}}})"),
              R"("partitions.0.tpm" must be a list of bytes)");
    EXPECT_EQ(malformedReason(R"({"extended_partition_parents": {"4": 256}})"),
              R"("extended_partition_parents.4" must be a byte)");
    EXPECT_EQ(malformedReason(R"({"lan_device_modes": []})"), R"("lan_device_modes" must be an object)");
    EXPECT_EQ(malformedReason(R"({"faults": {}})"), R"("faults" must be a list)");
    EXPECT_EQ(malformedReason(R"({"faults": [1]})"), R"(each of "faults" must be an object)");
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 48, "cmd": 1, "completion_code": 1, "count": -1}]})"),
              R"("faults.count" must be a count)");
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 300, "cmd": 1, "completion_code": 1}]})"),
              R"("faults.netfn" must be a byte)");
}

TEST(FirmwareState, RefusesPartitionKeysThatAreNotByteNumbers)
{
    EXPECT_EQ(malformedReason(R"({"partitions": {"x": {}}})"),
              R"("partitions" keys must be numbers from 0 to 255, not "x")");
    EXPECT_EQ(malformedReason(R"({"partitions": {"256": {}}})"),
              R"("partitions" keys must be numbers from 0 to 255, not "256")");
    EXPECT_EQ(malformedReason(R"({"lan_device_modes": {"-1": 0}})"),
              R"("lan_device_modes" keys must be numbers from 0 to 255, not "-1")");
}

TEST(FirmwareState, RefusesAServerMonitorThatIsNotAListOfThirtyTwoBitRecords)
{
    const std::string reason = R"("server_monitor" must be null or a list of lists of 32-bit numbers)";
    EXPECT_EQ(malformedReason(R"({"server_monitor": 1})"), reason);
    EXPECT_EQ(malformedReason(R"({"server_monitor": [1]})"), reason);
    EXPECT_EQ(malformedReason(R"({"server_monitor": [["1"]]})"), reason);
    EXPECT_EQ(malformedReason(R"({"server_monitor": [[2147483648]]})"), reason);
    EXPECT_EQ(malformedReason(R"({"server_monitor": [[-2147483649]]})"), reason);
    EXPECT_EQ(malformedReason(R"({"server_monitor": [[-2147483648, 2147483647], []]})"), "");
    EXPECT_EQ(malformedReason(R"({"server_monitor": null})"), "");
}

TEST(FirmwareState, RefusesAFaultWithoutItsRequiredKeys)
{
    EXPECT_EQ(malformedReason(R"({"faults": [{"cmd": 1, "completion_code": 1}]})"),
              R"(each of "faults" needs "netfn")");
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 48, "completion_code": 1}]})"),
              R"(each of "faults" needs "cmd")");
    EXPECT_EQ(malformedReason(R"({"faults": [{"netfn": 48, "cmd": 1}]})"),
              R"(each of "faults" needs "completion_code")");
}

} // namespace
