#include "SimulatedFirmware.h"

#include <nlohmann/json.hpp>

#include <string>

namespace {

using nlohmann::json;
using partmode::test::expectAnswer;

constexpr std::uint8_t kNetFn = 0x30;
constexpr std::uint8_t kGet = 0x7F;
constexpr std::uint8_t kSet = 0x7E;

// The simulator's partition mirror mode requests.
class FirmwareMirrorMode : public partmode::test::SimulatedFirmware {
protected:
    [[nodiscard]] json record(unsigned int partition) const
    {
        return state()["partitions"][std::to_string(partition)]["memory_mode"];
    }
};

TEST_F(FirmwareMirrorMode, GetAnswersTheStoredRecordExactly)
{
    expectAnswer(send(kNetFn, kGet, {0x71, 0x00}), 0x00, {0, 1, 0, 1, 1, 0});
    useState(R"({"partitions": {"1": {"memory_mode": [9, 36, 1, 7, 20, 1, 5]}, "2": {"memory_mode": [0, 1]}}})");
    expectAnswer(send(kNetFn, kGet, {0x71, 0x01}), 0x00, {9, 36, 1, 7, 20, 1, 5});
    expectAnswer(send(kNetFn, kGet, {0x71, 0x02}), 0x00, {0, 1});
}

TEST_F(FirmwareMirrorMode, SetRegistersModeEnableOperationAndMirrorRasModes)
{
    useState(R"({"partitions": {"3": {"memory_mode": [9, 36, 1, 7, 20, 0]}}})");
    expectAnswer(send(kNetFn, kSet, {0x71, 0x03, 0x00, 0x02, 0x01, 0x00}), 0x00, {});
    EXPECT_EQ(record(3), json({9, 36, 1, 0, 2, 1}));
}

TEST_F(FirmwareMirrorMode, SetCompletesAShortRecord)
{
    useState(R"({"partitions": {"0": {"memory_mode": [0, 4]}}})");
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x14, 0x00, 0x00}), 0x00, {});
    EXPECT_EQ(record(0), json({0, 4, 0, 1, 20, 0}));
}

TEST_F(FirmwareMirrorMode, SetIsRefusedWhileThePartitionIsPoweredOn)
{
    useState(R"({"partitions": {"1": {"power_on": true, "memory_mode": [0, 1, 0, 1, 1, 0]}}})");
    const std::string before = stateText();
    expectAnswer(send(kNetFn, kSet, {0x71, 0x01, 0x01, 0x03, 0x01, 0x01}), 0xD5, {});
    EXPECT_EQ(stateText(), before);
}

TEST_F(FirmwareMirrorMode, ReservedSbNeedsTheAcceptByte)
{
    useState(R"({"partitions": {"0": {"reserved_sb": true, "memory_mode": [0, 1, 0, 1, 1, 0]}}})");
    const std::string before = stateText();
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x01, 0x01, 0x00}), 0x90, {});
    EXPECT_EQ(stateText(), before);
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x01, 0x01, 0x01}), 0x00, {});
    EXPECT_EQ(record(0), json({0, 1, 0, 1, 1, 1}));
}

TEST_F(FirmwareMirrorMode, PoweredOnWinsOverReservedSb)
{
    useState(R"({"partitions": {"0": {"power_on": true, "reserved_sb": true}}})");
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x01, 0x01, 0x00}), 0xD5, {});
}

TEST_F(FirmwareMirrorMode, WrongLengthAnswersRequestDataLengthInvalid)
{
    expectAnswer(send(kNetFn, kGet, {0x71}), 0xC7, {});
    expectAnswer(send(kNetFn, kGet, {0x71, 0x00, 0x00}), 0xC7, {});
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x01, 0x01}), 0xC7, {});
    expectAnswer(send(kNetFn, kSet, {0x71, 0x00, 0x01, 0x01, 0x01, 0x00, 0x00}), 0xC7, {});
}

TEST_F(FirmwareMirrorMode, UndefinedPartitionAnswersInvalidDataField)
{
    useState(R"({"defined_partitions": [0, 1]})");
    expectAnswer(send(kNetFn, kGet, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(kNetFn, kSet, {0x71, 0x02, 0x01, 0x01, 0x01, 0x00}), 0xCC, {});
}

} // namespace
