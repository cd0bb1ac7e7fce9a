#include "Board.h"
#include "SetPartitionMemoryOperationMode.h"
#include "SetPartitionMirrorRasMode.h"
#include "SetPartitionSparingMode.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

// The text of the last trace line, without its time and process prefix.
std::string lastTraceText()
{
    const std::string content = partmode::test::readFile(partmode::Board::instance().trace);
    const auto end = content.rfind('\n');
    if (end == std::string::npos) {
        return "";
    }
    const auto start = content.rfind('\n', end - 1);
    const std::string line = content.substr(start == std::string::npos ? 0 : start + 1, end - start - 1);
    const auto cut = line.find("]: ");
    return cut == std::string::npos ? line : line.substr(cut + 3);
}

struct Explained {
    int result;
    std::string console;
    std::string trace;
};

// Each memory set command parsed from its words, with partition 2.
struct CommandCase {
    const char* name;
    std::unique_ptr<SetMemoryModeCommand> (*create)();
    std::vector<std::string> words;
};

template <typename Command>
std::unique_ptr<SetMemoryModeCommand> make()
{
    return std::make_unique<Command>();
}

class SetMemoryModeCommandException : public ::testing::TestWithParam<CommandCase> {
protected:
    void SetUp() override
    {
        command_ = GetParam().create();
        std::vector<char*> argv;
        for (auto& word : words_ = GetParam().words) {
            argv.push_back(word.data());
        }
        ASSERT_TRUE(command_->parseCommand(static_cast<int>(argv.size()), argv.data()));
    }

    Explained explain(unsigned short detail, unsigned char actionCode)
    {
        testing::internal::CaptureStderr();
        const int result = command_->checkException(detail, actionCode);
        return {result, testing::internal::GetCapturedStderr(), lastTraceText()};
    }

    // The plain failure line on the console, and as the reason in the trace
    // with the exception's `codes`.
    void expectFailureLine(unsigned short detail, unsigned char actionCode, const std::string& codes)
    {
        const auto explained = explain(detail, actionCode);
        const std::string line = "Failed to execute " + command_->commandName() + " command.";
        EXPECT_EQ(explained.result, 2);
        EXPECT_EQ(explained.console, line + "\n");
        EXPECT_EQ(explained.trace, "10047: Command failed: " + command_->commandName() + " (" + line + "\\n) " + codes);
    }

    std::vector<std::string> words_;
    std::unique_ptr<SetMemoryModeCommand> command_;
};

TEST_P(SetMemoryModeCommandException, ReasonRowPrintsThePartitionReason)
{
    const auto explained = explain(0x0700, 0x81);
    const std::string reason = "Unable to register the specified Partition#2 as Mode enable because the DIMM does "
                               "not satisfy requirements of Mode.\n";
    EXPECT_EQ(explained.result, 2);
    EXPECT_EQ(explained.console, reason);
    EXPECT_EQ(explained.trace, "10047: Command failed: " + command_->commandName() +
                                   " (Unable to register the specified Partition#2 as Mode enable because the DIMM "
                                   "does not satisfy requirements of Mode.\\n) (1792, 129)");
}

TEST_P(SetMemoryModeCommandException, ReasonTableAppliesOnlyToCompletionCodes)
{
    expectFailureLine(0x0600, 0x80, "(1536, 128)");
}

TEST_P(SetMemoryModeCommandException, CodeWithoutReasonPrintsTheFailureLine)
{
    expectFailureLine(0x0700, 0x83, "(1792, 131)");
}

TEST_P(SetMemoryModeCommandException, ReservedSbPrintsNothingAndAsksForTheRetry)
{
    const auto explained = explain(0x0700, 0x90);
    EXPECT_EQ(explained.result, 72);
    EXPECT_EQ(explained.console, "");
    EXPECT_EQ(explained.trace, "10047: Command failed: " + command_->commandName() +
                                   " (The SB with DIMM that does not satisfy requirements of Mode is registered as "
                                   "a Reserved SB.\\n) (1792, 144)");
}

TEST_P(SetMemoryModeCommandException, ReservedSbCodeOutsideCompletionCodesIsAFailure)
{
    expectFailureLine(0x0805, 0x90, "(2053, 144)");
}

INSTANTIATE_TEST_SUITE_P(
    EachSetCommand, SetMemoryModeCommandException,
    ::testing::Values(CommandCase{"MirrorRasMode", &make<SetPartitionMirrorRasMode>, {"2", "capacity_keep"}},
                      CommandCase{"MemoryOperationMode", &make<SetPartitionMemoryOperationMode>, {"2", "spare"}},
                      CommandCase{"SparingMode", &make<SetPartitionSparingMode>, {"2", "auto", "quiet"}}),
    [](const ::testing::TestParamInfo<CommandCase>& info) { return std::string(info.param.name); });

} // namespace
