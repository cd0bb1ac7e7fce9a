#include "Firmware.h"
#include "SimulatedFirmware.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace {

using nlohmann::json;
using partmode::RawResponse;
using partmode::test::TemporaryDirectory;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kNetFn = 0x30;
constexpr std::uint8_t kGetPCIAddressMode = 0x81;
constexpr std::uint8_t kSetPCIAddressMode = 0x80;
constexpr std::uint8_t kGetLanDeviceMode = 0x62;
constexpr std::uint8_t kSetLanDeviceMode = 0x61;
constexpr std::uint8_t kSetDynamicPartitioning = 0x8D;
constexpr std::uint8_t kGetSystemCapabilities = 0xD1;

// The simulator's PCI address, LAN device, dynamic reconfiguration and system
// capability requests on a state file of their own.
class FirmwareIoModes : public partmode::test::SimulatedFirmware {
protected:
    RawResponse send(std::uint8_t command, const Bytes& request) const
    {
        return SimulatedFirmware::send(kNetFn, command, request);
    }
};

using partmode::test::expectAnswer;

TEST_F(FirmwareIoModes, GetPCIAddressModeAnswersTheStoredBytes)
{
    expectAnswer(send(kGetPCIAddressMode, {0x71, 0x03}), 0x00, {1, 1});
    useState(R"({"partitions": {"2": {"pci_address_mode": [0, 1, 9]}}})");
    expectAnswer(send(kGetPCIAddressMode, {0x71, 0x02}), 0x00, {0, 1, 9});
}

TEST_F(FirmwareIoModes, SetPCIAddressModeChangesOnlyTheSetting)
{
    useState(R"({"partitions": {"1": {"pci_address_mode": [1, 1]}}})");
    expectAnswer(send(kSetPCIAddressMode, {0x71, 0x01, 0x00}), 0x00, {});
    EXPECT_EQ(state()["partitions"]["1"]["pci_address_mode"], json({1, 0}));
}

TEST_F(FirmwareIoModes, SetPCIAddressModeCompletesAShortList)
{
    useState(R"({"partitions": {"0": {"pci_address_mode": []}}})");
    expectAnswer(send(kSetPCIAddressMode, {0x71, 0x00, 0x01}), 0x00, {});
    EXPECT_EQ(state()["partitions"]["0"]["pci_address_mode"], json({0, 1}));
}

TEST_F(FirmwareIoModes, SetPCIAddressModeIsRefusedWhileThePartitionIsPoweredOn)
{
    useState(R"({"partitions": {"1": {"power_on": true, "pci_address_mode": [1, 1]}}})");
    const std::string before = stateText();
    expectAnswer(send(kSetPCIAddressMode, {0x71, 0x01, 0x00}), 0xD5, {});
    EXPECT_EQ(stateText(), before);
}

TEST_F(FirmwareIoModes, SetDynamicPartitioningChangesOnlyTheSetting)
{
    useState(R"({"partitions": {"3": {"dynamic_reconfiguration": [0, 0]}}})");
    expectAnswer(send(kSetDynamicPartitioning, {0x71, 0x03, 0x01}), 0x00, {});
    EXPECT_EQ(state()["partitions"]["3"]["dynamic_reconfiguration"], json({0, 1}));
}

TEST_F(FirmwareIoModes, SetDynamicPartitioningIsRefusedWhileThePartitionIsPoweredOn)
{
    useState(R"({"partitions": {"0": {"power_on": true}}})");
    const std::string before = stateText();
    expectAnswer(send(kSetDynamicPartitioning, {0x71, 0x00, 0x01}), 0xD5, {});
    EXPECT_EQ(stateText(), before);
}

TEST_F(FirmwareIoModes, LanDeviceModeIsKeptPerUnit)
{
    useState(R"({"lan_device_modes": {"5": 17}})");
    expectAnswer(send(kGetLanDeviceMode, {0x71, 0x05}), 0x00, {0x11});
    expectAnswer(send(kGetLanDeviceMode, {0x71, 0x04}), 0x00, {0x00});
    expectAnswer(send(kSetLanDeviceMode, {0x71, 0x04, 0x01}), 0x00, {});
    expectAnswer(send(kGetLanDeviceMode, {0x71, 0x04}), 0x00, {0x01});
    EXPECT_EQ(state()["lan_device_modes"], json({{"4", 1}, {"5", 17}}));
}

TEST_F(FirmwareIoModes, LanDeviceUnitIsNoPartition)
{
    useState(R"({"defined_partitions": [0]})");
    expectAnswer(send(kGetLanDeviceMode, {0x71, 0x07}), 0x00, {0x00});
}

TEST_F(FirmwareIoModes, SystemCapabilitiesCarryTheExclusiveFeaturesFlag)
{
    useState(R"({"exclusive_features": false})");
    expectAnswer(send(kGetSystemCapabilities, {0x71}), 0x00, {0, 0});
    useState(R"({"exclusive_features": true})");
    expectAnswer(send(kGetSystemCapabilities, {0x71}), 0x00, {0, 1});
}

TEST_F(FirmwareIoModes, WrongLengthAnswersRequestDataLengthInvalid)
{
    expectAnswer(send(kGetPCIAddressMode, {0x71}), 0xC7, {});
    expectAnswer(send(kSetPCIAddressMode, {0x71, 0x00}), 0xC7, {});
    expectAnswer(send(kGetLanDeviceMode, {0x71, 0x00, 0x00}), 0xC7, {});
    expectAnswer(send(kSetLanDeviceMode, {0x71, 0x00}), 0xC7, {});
    expectAnswer(send(kSetDynamicPartitioning, {0x71, 0x00, 0x01, 0x00}), 0xC7, {});
    expectAnswer(send(kGetSystemCapabilities, {0x71, 0x00}), 0xC7, {});
}

TEST_F(FirmwareIoModes, UndefinedPartitionAnswersInvalidDataField)
{
    useState(R"({"defined_partitions": [0, 1]})");
    expectAnswer(send(kGetPCIAddressMode, {0x71, 0x02}), 0xCC, {});
    expectAnswer(send(kSetPCIAddressMode, {0x71, 0x02, 0x01}), 0xCC, {});
    expectAnswer(send(kSetDynamicPartitioning, {0x71, 0x02, 0x01}), 0xCC, {});
}

} // namespace
