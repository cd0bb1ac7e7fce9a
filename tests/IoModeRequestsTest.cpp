#include "IPMIRequester.h"
#include "OEMGetLanDeviceModeCommand.h"
#include "OEMGetPartitionSegmentModeCommand.h"
#include "OEMGetSystemCapabilitiesCommand.h"
#include "PException.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

using OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO;
using OrbLib::ipmiclient::IPMIRequester;
using OrbLib::ipmiclient::OEMGetLanDeviceModeCommand;
using OrbLib::ipmiclient::OEMGetPartitionSegmentModeCommand;
using OrbLib::ipmiclient::OEMGetSystemCapabilitiesCommand;
using partmode::test::TemporaryDirectory;
using Bytes = std::vector<unsigned char>;

// The request objects of the PCI address, LAN device and system capability
// requests, each on a simulator session whose state the test writes.
class IoModeRequests : public ::testing::Test {
protected:
    // A fault that answers the next request `command` with success and no data.
    static std::string emptyAnswerTo(int command)
    {
        return R"("faults": [{"netfn": 48, "cmd": )" + std::to_string(command) +
               R"(, "completion_code": 0, "count": 1}])";
    }

    IPMIRequester& session(const std::string& state)
    {
        folder_.write("firmware.json", state);
        _RMCPP_SESS_SETUP_INFO setup;
        setup.firmware.transport = "simulator";
        setup.firmware.state = folder_.path() / "firmware.json";
        requester_.emplace(setup);
        return *requester_;
    }

    TemporaryDirectory folder_;
    std::optional<IPMIRequester> requester_;
};

TEST_F(IoModeRequests, SegmentModeAnswerIsAppended)
{
    OEMGetPartitionSegmentModeCommand command(session(R"({"partitions": {"1": {"pci_address_mode": [0, 1]}}})"));
    Bytes mode{7};
    command.getPartSegmentMode(1, mode);
    EXPECT_EQ(mode, (Bytes{7, 0, 1}));
}

TEST_F(IoModeRequests, EachLanDeviceModeAnswerReplacesTheVector)
{
    OEMGetLanDeviceModeCommand command(session(R"({"lan_device_modes": {"1": 17, "2": 1}})"));
    Bytes mode{0xAA, 0xBB};
    command.getLanDeviceMode(1, mode);
    EXPECT_EQ(mode, (Bytes{0x11}));
    command.getLanDeviceMode(2, mode);
    EXPECT_EQ(mode, (Bytes{0x01}));
}

TEST_F(IoModeRequests, EmptyLanDeviceModeAnswerThrows)
{
    OEMGetLanDeviceModeCommand command(session("{" + emptyAnswerTo(0x62) + "}"));
    Bytes mode;
    EXPECT_THROW(command.getLanDeviceMode(0, mode), PException);
}

TEST_F(IoModeRequests, SystemCapabilitiesReportExclusiveFeatures)
{
    OEMGetSystemCapabilitiesCommand command(session(R"({"exclusive_features": true})"), 0x71);
    bool reserved = true;
    bool exclusive = false;
    command.getSystemCapabilities(reserved, exclusive);
    EXPECT_FALSE(reserved);
    EXPECT_TRUE(exclusive);
}

TEST_F(IoModeRequests, ShortSystemCapabilitiesAnswerThrows)
{
    OEMGetSystemCapabilitiesCommand command(session("{" + emptyAnswerTo(0xD1) + "}"), 0x71);
    bool reserved = false;
    bool exclusive = false;
    EXPECT_THROW(command.getSystemCapabilities(reserved, exclusive), PException);
}

} // namespace
