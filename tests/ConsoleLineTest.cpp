#include "ConsoleLine.h"

#include <gtest/gtest.h>

#include <string>

TEST(ConsoleLine, KeepsOneByteLessThanItsBuffer)
{
    EXPECT_EQ(ConsoleLine::format(8, "%s", "abcdefghij"), "abcdefg");
    EXPECT_EQ(ConsoleLine::format(8, "%s", "abcdefg"), "abcdefg");
    EXPECT_EQ(ConsoleLine::format(8, "%d-%s", 42, "xyz"), "42-xyz");
    EXPECT_EQ(ConsoleLine::format(1, "%s", "abc"), "");
}

TEST(ConsoleLine, FailureLineIsCutAtItsBuffer)
{
    const std::string command = "set partition pci_express_mode " + std::string(300, ' ') + "0 fixed";
    const std::string whole = "Failed to execute " + command + " command.";
    EXPECT_EQ(ConsoleLine::failure(256, command), whole.substr(0, 255));
    EXPECT_EQ(ConsoleLine::failure(1024, command), whole);
    EXPECT_EQ(ConsoleLine::failure(256, "show x"), "Failed to execute show x command.");
}

TEST(ConsoleLine, PrintsTheTextAndALineEndOnStandardError)
{
    testing::internal::CaptureStderr();
    ConsoleLine::printError("one line");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "one line\n");
}
