#include "Firmware.h"
#include "SimulatedFirmware.h"
#include "StateError.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using nlohmann::json;
using partmode::RawResponse;
using partmode::sim::StateError;
using partmode::test::TemporaryDirectory;
using Bytes = std::vector<std::uint8_t>;

// A simulator on a state file of its own.
class Firmware : public partmode::test::SimulatedFirmware {};

using partmode::test::expectAnswer;

TEST_F(Firmware, UnknownCommandAnswersInvalidCommand)
{
    expectAnswer(send(0x30, 0x00, {0x71}), 0xC1, {});
    expectAnswer(send(0x30, 0xFF, {0x71, 0x00}), 0xC1, {});
    // Right command code, wrong network function.
    expectAnswer(send(0x2E, 0x70, {0x71}), 0xC1, {});
    expectAnswer(send(0x30, 0xF5, {0x71, 0x00}), 0xC1, {});
}

TEST_F(Firmware, UnknownCommandDoesNotTouchTheStateFile)
{
    send(0x30, 0x00, {0x71});
    EXPECT_FALSE(std::filesystem::exists(statePath()));
}

TEST_F(Firmware, WrongLengthAnswersRequestDataLengthInvalid)
{
    expectAnswer(send(0x30, 0x71, {0x71}), 0xC7, {});
    expectAnswer(send(0x30, 0x71, {0x71, 0x00, 0x00}), 0xC7, {});
    expectAnswer(send(0x30, 0x71, {}), 0xC7, {});
    expectAnswer(send(0x30, 0x70, {0x71, 0x00}), 0xC7, {});
    expectAnswer(send(0x30, 0xB2, {0x71, 0x00}), 0xC7, {});
}

TEST_F(Firmware, WrongHeaderByteAnswersRequestDataLengthInvalid)
{
    expectAnswer(send(0x30, 0x70, {0x70}), 0xC7, {});
    expectAnswer(send(0x30, 0xB3, {0x00, 0x00}), 0xC7, {});
}

TEST_F(Firmware, GetDefinedPartitionsAnswersTheStoredList)
{
    expectAnswer(send(0x30, 0x70, {0x71}), 0x00, {0, 1, 2, 3});
    useState(R"({"defined_partitions": [2, 5]})");
    expectAnswer(send(0x30, 0x70, {0x71}), 0x00, {2, 5});
    useState(R"({"defined_partitions": []})");
    expectAnswer(send(0x30, 0x70, {0x71}), 0x00, {});
}

TEST_F(Firmware, RequestAboutAnUndefinedPartitionAnswersInvalidDataField)
{
    useState(R"({"defined_partitions": [0, 1]})");
    expectAnswer(send(0x30, 0xB3, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(0x30, 0x71, {0x71, 0xFF}), 0xCC, {});
    expectAnswer(send(0x30, 0x8E, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(0x30, 0xF1, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(0x2E, 0xF5, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(0x30, 0xB2, {0x71, 0x02, 0x00}), 0xCC, {});
    expectAnswer(send(0x30, 0xB3, {0x71, 0x01}), 0x00, {1, 1});
}

TEST_F(Firmware, ExtendedPartitionInfoAnswersTheParentOr255)
{
    useState(R"({"extended_partition_parents": {"4": 2}})");
    expectAnswer(send(0x30, 0xF4, {0x71, 0x04}), 0x00, {2});
    expectAnswer(send(0x30, 0xF4, {0x71, 0x05}), 0x00, {255});
}

TEST_F(Firmware, PartitionInfoCarriesPowerStateAndNodes)
{
    useState(R"({"partitions": {"1": {"power_on": true}, "2": {"node_ids": [2, 128, 129, 130]}}})");
    expectAnswer(send(0x30, 0x71, {0x71, 0x00}), 0x00, {0x00, 3, 0, 128, 129, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    expectAnswer(send(0x30, 0x71, {0x71, 0x01}), 0x00, {0x02, 3, 1, 130, 131, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    expectAnswer(send(0x30, 0x71, {0x71, 0x02}), 0x00, {0x00, 4, 2, 128, 129, 130, 0, 0, 0, 0, 0, 0, 0, 0});
}

TEST_F(Firmware, PartitionInfoHoldsAtMostTwelveNodes)
{
    useState(R"({"partitions": {"0": {"node_ids": [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13]}}})");
    expectAnswer(send(0x30, 0x71, {0x71, 0x00}), 0x00, {0x00, 12, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11});
}

TEST_F(Firmware, GetRequestsAnswerExactlyTheStoredBytes)
{
    useState(R"({"partitions": {"0": {"dynamic_reconfiguration": [], "tpm": [1, 0, 7], "pci_express_mode": [2]},
                               "1": {"extended_partitioning": true}}})");
    expectAnswer(send(0x30, 0x8E, {0x71, 0x00}), 0x00, {});
    expectAnswer(send(0x2E, 0xF5, {0x71, 0x00}), 0x00, {1, 0, 7});
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x00, {2});
    expectAnswer(send(0x30, 0xF1, {0x71, 0x00}), 0x00, {0});
    expectAnswer(send(0x30, 0xF1, {0x71, 0x01}), 0x00, {1});
}

TEST_F(Firmware, SystemStatusAnswersOneRecordPerDefinedPartition)
{
    useState(R"({"defined_partitions": [0, 3], "partitions": {"3": {"system_status": false}}})");
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x00, 0x20}), 0x00,
                 {0x00, 0x1A,                                                             //
                  0x00, 0x02,                                                             //
                  0x00, 0x0A, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, //
                  0x00, 0x0A, 0x00, 0x02, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 0x00});
}

TEST_F(Firmware, SystemStatusAnswersThePieceAskedFor)
{
    useState(R"({"defined_partitions": [0, 3], "partitions": {"3": {"system_status": false}}})");
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x0E, 0x04}), 0x00, {0x00, 0x1A, 0x00, 0x0A, 0x00, 0x02});
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x18, 0x20}), 0x00, {0x00, 0x1A, 0x00, 0x00});
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x1A, 0x20}), 0x00, {0x00, 0x1A});
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x1B, 0x20}), 0xC9, {});
    expectAnswer(send(0x30, 0xD0, {0x71}), 0xC7, {});
}

TEST_F(Firmware, SystemStatusRecordsCanBeReplaced)
{
    useState(R"({"server_monitor": [[], [-1]]})");
    expectAnswer(send(0x30, 0xD0, {0x71, 0x00, 0x00, 0x20}), 0x00,
                 {0x00, 0x0E,             //
                  0x00, 0x02,             //
                  0x00, 0x02, 0x00, 0x00, //
                  0x00, 0x06, 0x00, 0x01, 0xFF, 0xFF, 0xFF, 0xFF});
}

TEST_F(Firmware, SetPCIExpressModeChangesBothBytesOfAPoweredOffPartition)
{
    useState(R"({"partitions": {"2": {"pci_express_mode": [1, 1]}}})");
    expectAnswer(send(0x30, 0xB2, {0x71, 0x02, 0x00}), 0x00, {});
    EXPECT_EQ(state()["partitions"]["2"]["pci_express_mode"], json::parse("[0, 0]"));
    expectAnswer(send(0x30, 0xB3, {0x71, 0x02}), 0x00, {0, 0});
}

TEST_F(Firmware, SetPCIExpressModeOnAPoweredOnPartitionAnswersNotInPresentState)
{
    useState(R"({"partitions": {"1": {"power_on": true, "pci_express_mode": [1, 1]}}})");
    expectAnswer(send(0x30, 0xB2, {0x71, 0x01, 0x00}), 0xD5, {});
    EXPECT_EQ(state()["partitions"]["1"]["pci_express_mode"], json::parse("[1, 1]"));
}

TEST_F(Firmware, FaultWithoutCountAnswersEveryTime)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 179, "completion_code": 128}]})");
    for (int attempt = 0; attempt < 3; ++attempt) {
        expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x80, {});
    }
    EXPECT_EQ(state()["faults"], json::parse(R"([{"netfn": 48, "cmd": 179, "completion_code": 128}])"));
    // Other requests are not affected.
    expectAnswer(send(0x30, 0x70, {0x71}), 0x00, {0, 1, 2, 3});
}

TEST_F(Firmware, FaultWithCountIsCountedDownAndRemovedAtZero)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 178, "completion_code": 213, "count": 2}]})");
    expectAnswer(send(0x30, 0xB2, {0x71, 0x00, 0x00}), 0xD5, {});
    EXPECT_EQ(state()["faults"], json::parse(R"([{"netfn": 48, "cmd": 178, "completion_code": 213, "count": 1}])"));
    expectAnswer(send(0x30, 0xB2, {0x71, 0x00, 0x00}), 0xD5, {});
    EXPECT_EQ(state()["faults"], json::array());
    // The faults answered in place of the change.
    EXPECT_FALSE(state().contains("partitions"));
    expectAnswer(send(0x30, 0xB2, {0x71, 0x00, 0x00}), 0x00, {});
    EXPECT_EQ(state()["partitions"]["0"]["pci_express_mode"], json::parse("[0, 0]"));
}

TEST_F(Firmware, FaultWithAPartitionMatchesOnlyThatPartition)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 179, "partition": 1, "completion_code": 255}]})");
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x00, {1, 1});
    expectAnswer(send(0x30, 0xB3, {0x71, 0x01}), 0xFF, {});
}

TEST_F(Firmware, FaultWithAPartitionNeverMatchesARequestWithoutOne)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 112, "partition": 0, "completion_code": 255}]})");
    expectAnswer(send(0x30, 0x70, {0x71}), 0x00, {0, 1, 2, 3});
}

TEST_F(Firmware, FaultAnswersBeforeTheDefinedPartitionCheck)
{
    useState(R"({"defined_partitions": [0], "faults": [{"netfn": 48, "cmd": 179, "completion_code": 128}]})");
    expectAnswer(send(0x30, 0xB3, {0x71, 0x05}), 0x80, {});
}

TEST_F(Firmware, FaultWithCountZeroIsDroppedWithoutAnswering)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 179, "completion_code": 128, "count": 0}]})");
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x00, {1, 1});
    EXPECT_EQ(state()["faults"], json::array());
}

TEST_F(Firmware, FirstMatchingFaultAnswers)
{
    useState(R"({"faults": [{"netfn": 48, "cmd": 179, "completion_code": 128, "count": 1},
                           {"netfn": 48, "cmd": 179, "completion_code": 129, "count": 1}]})");
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x80, {});
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x81, {});
    expectAnswer(send(0x30, 0xB3, {0x71, 0x00}), 0x00, {1, 1});
}

TEST_F(Firmware, MalformedStateFileThrowsStateError)
{
    useState(R"({"partitions": {"0": {"power_on": "yes"}}})");
    try {
        send(0x30, 0x70, {0x71});
        FAIL() << "a malformed state answered";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Malformed);
        EXPECT_NE(std::string(failure.what()).find("partitions.0.power_on"), std::string::npos) << failure.what();
    }
}

TEST_F(Firmware, UnparsableStateFileThrowsStateError)
{
    useState("{");
    try {
        send(0x30, 0x70, {0x71});
        FAIL() << "an unparsable state answered";
    } catch (const StateError& failure) {
        EXPECT_EQ(failure.kind(), StateError::Kind::Malformed);
    }
}

TEST_F(Firmware, EveryRouteNamesADistinctRequest)
{
    // A second route for the same request could never be reached.
    const auto routes = partmode::sim::Firmware::routes();
    for (std::size_t i = 0; i < routes.size(); ++i) {
        for (std::size_t j = i + 1; j < routes.size(); ++j) {
            EXPECT_FALSE(routes[i].request->netFn == routes[j].request->netFn &&
                         routes[i].request->command == routes[j].request->command)
                << routes[i].request->name << " and " << routes[j].request->name;
        }
    }
}

} // namespace
