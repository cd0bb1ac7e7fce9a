#include "IPMIClientCommand.h"
#include "IPMIRequester.h"
#include "OEMGetDefinedPartitionsCommand.h"
#include "PException.h"
#include "StateStore.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using OrbLib::ipmiclient::_RMCPP_SESS_SETUP_INFO;
using OrbLib::ipmiclient::IPMIRequester;
using partmode::test::TemporaryDirectory;
using ClientCommand = OrbLib::ipmiclient::IPMIClientCommand;
using Arguments = std::vector<PException::Argument>;

// A session on a simulator whose state file lives in a temporary folder; the
// board is not involved.
class IPMIClientCommand : public ::testing::Test {
protected:
    IPMIClientCommand() : requester_(setup(folder_)) {}

    static _RMCPP_SESS_SETUP_INFO setup(const TemporaryDirectory& folder)
    {
        _RMCPP_SESS_SETUP_INFO info;
        info.firmware.transport = "simulator";
        info.firmware.state = folder.path() / "firmware.json";
        return info;
    }

    TemporaryDirectory folder_;
    IPMIRequester requester_;
};

TEST_F(IPMIClientCommand, CompletionCodeZeroReturns)
{
    ClientCommand command(requester_, 0x71, 0x30, 0xB2);
    EXPECT_NO_THROW(command.checkCompletionCode(0xB2, 0x00, "Set PCI Express Mode"));
}

TEST_F(IPMIClientCommand, NonZeroCompletionCodeThrowsWithItAsActionCode)
{
    ClientCommand command(requester_, 0x71, 0x30, 0xB2);
    try {
        command.checkCompletionCode(0xB2, 0xD5, "Set PCI Express Mode");
        FAIL() << "completion code 0xD5 did not throw";
    } catch (const PException& failure) {
        EXPECT_EQ(failure.getSeverity(), 1);
        EXPECT_EQ(failure.getModule(), 0x52);
        EXPECT_EQ(failure.getFunction(), 0xB2);
        EXPECT_EQ(failure.getActionCode(), 0xD5);
        EXPECT_EQ(failure.getExceptionDetail(), 0x0700);
        EXPECT_EQ(failure.getMessageId(), 20029);
        EXPECT_EQ(failure.getArguments(),
                  (Arguments{std::string("Set PCI Express Mode"), 0xD5L, 0L, 0L, 0L, 0L, 0L, 0L}));
        EXPECT_STREQ(failure.what(), "Set PCI Express Mode");
    }
}

TEST_F(IPMIClientCommand, EveryNonZeroCompletionCodeThrows)
{
    ClientCommand command(requester_, 0x71, 0x30, 0x70);
    for (const unsigned int code : {0x01U, 0x80U, 0xC1U, 0xC7U, 0xCCU, 0xD5U, 0xFFU}) {
        SCOPED_TRACE(code);
        try {
            command.checkCompletionCode(0x70, static_cast<unsigned char>(code), "Get Defined Partitions");
            ADD_FAILURE() << "no exception";
        } catch (const PException& failure) {
            EXPECT_EQ(failure.getActionCode(), code);
            EXPECT_EQ(failure.getExceptionDetail(), 0x0700);
            EXPECT_EQ(failure.getArguments().at(1), PException::Argument(static_cast<long>(code)));
        }
    }
}

TEST_F(IPMIClientCommand, CommandArgumentBecomesTheFunction)
{
    ClientCommand command(requester_, 0x71, 0x30, 0x70);
    try {
        command.checkCompletionCode(0x1234, 0x80, "text");
        FAIL() << "no exception";
    } catch (const PException& failure) {
        EXPECT_EQ(failure.getFunction(), 0x1234);
    }
}

TEST_F(IPMIClientCommand, NullTextBecomesAnEmptyTextArgument)
{
    ClientCommand command(requester_, 0x71, 0x30, 0x70);
    try {
        command.checkCompletionCode(0x70, 0xFF, nullptr);
        FAIL() << "no exception";
    } catch (const PException& failure) {
        EXPECT_EQ(failure.getArguments(), (Arguments{std::string(), 0xFFL, 0L, 0L, 0L, 0L, 0L, 0L}));
    }
}

TEST_F(IPMIClientCommand, ConstructorKeepsHeaderNetFnAndCommand)
{
    const ClientCommand command(requester_, 0x71, 0x2E, 0xF5);
    EXPECT_EQ(command.header(), 0x71);
    EXPECT_EQ(command.netFn(), 0x2E);
    EXPECT_EQ(command.command(), 0xF5);
    EXPECT_EQ(command.getRsSlaveAddr(), 0x20);
    EXPECT_EQ(command.getRsLun(), 0);
    EXPECT_EQ(command.getRqLun(), 0);
}

TEST_F(IPMIClientCommand, FirmwareCompletionCodeReachesTheCallerThroughTheCheck)
{
    partmode::sim::StateStore(folder_.path() / "firmware.json").transact([](partmode::sim::FirmwareState& state) {
        state.setFaults({partmode::sim::Fault{0x30, 0x70, std::nullopt, 0x80, std::nullopt}});
        return true;
    });
    OrbLib::ipmiclient::OEMGetDefinedPartitionsCommand command(requester_);
    std::vector<unsigned char> defined;
    try {
        command.getDefinedPartitions(defined);
        FAIL() << "no exception";
    } catch (const PException& failure) {
        EXPECT_EQ(failure.getFunction(), 0x70);
        EXPECT_EQ(failure.getActionCode(), 0x80);
        EXPECT_EQ(failure.getExceptionDetail(), 0x0700);
        EXPECT_EQ(failure.getArguments(),
                  (Arguments{std::string("Get Defined Partitions"), 0x80L, 0L, 0L, 0L, 0L, 0L, 0L}));
    }
    EXPECT_TRUE(defined.empty());
}

TEST_F(IPMIClientCommand, ResponseDataLandInTheDataArea)
{
    OrbLib::ipmiclient::OEMGetDefinedPartitionsCommand command(requester_);
    std::vector<unsigned char> defined;
    command.getDefinedPartitions(defined);
    EXPECT_EQ(defined, (std::vector<unsigned char>{0, 1, 2, 3}));
    const unsigned char* data = command.getResData();
    EXPECT_EQ(std::vector<unsigned char>(data, data + 4), defined);
}

} // namespace
