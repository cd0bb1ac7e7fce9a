#include "PartModeUtil.h"
#include "CommonUtil.h"
#include "PException.h"
#include "TemporaryDirectory.h"
#include "UnitTestBoard.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using partmode::test::TemporaryDirectory;
using partmode::test::UnitTestBoard;

constexpr unsigned int kUntouched = 77;

// Makes standard input read `input` for the lifetime of the object, then
// gives the process its own standard input back. The stream is unbuffered
// while redirected, so nothing read ahead from `input` is left behind.
class StdinFrom {
public:
    explicit StdinFrom(const std::string& input) : saved_(::dup(STDIN_FILENO))
    {
        const auto file = folder_.write("input", input);
        if (std::freopen(file.c_str(), "r", stdin) == nullptr) {
            throw std::runtime_error("cannot read standard input from " + file.string());
        }
        std::setvbuf(stdin, nullptr, _IONBF, 0);
    }
    StdinFrom(const StdinFrom&) = delete;
    StdinFrom& operator=(const StdinFrom&) = delete;
    ~StdinFrom()
    {
        if (saved_ >= 0) {
            ::dup2(saved_, STDIN_FILENO);
            ::close(saved_);
        } else {
            // The process ran without standard input; it gets an empty one.
            static_cast<void>(std::freopen("/dev/null", "r", stdin));
        }
        std::clearerr(stdin);
    }

private:
    TemporaryDirectory folder_;
    int saved_;
};

// Runs isExecute on `input`; returns its answer and what it printed.
std::pair<bool, std::string> ask(const std::string& input, const char* prompt = "Continue? [Y/N] ")
{
    const StdinFrom stdinFrom(input);
    ::testing::internal::CaptureStdout();
    const bool answer = PartModeUtil::isExecute(prompt);
    return {answer, ::testing::internal::GetCapturedStdout()};
}

TEST(PartModeUtil, GetPPARNumberAcceptsAPhysicalPartition)
{
    for (unsigned int partition = 0; partition < UnitTestBoard::kPartitions; ++partition) {
        unsigned int number = kUntouched;
        EXPECT_TRUE(PartModeUtil::getPPARNumber(std::to_string(partition).c_str(), number));
        EXPECT_EQ(number, partition);
    }
}

TEST(PartModeUtil, GetPPARNumberAcceptsLeadingBlanksAndAPlusSign)
{
    unsigned int number = kUntouched;
    EXPECT_TRUE(PartModeUtil::getPPARNumber("  3", number));
    EXPECT_EQ(number, 3U);
    number = kUntouched;
    EXPECT_TRUE(PartModeUtil::getPPARNumber("+3", number));
    EXPECT_EQ(number, 3U);
    number = kUntouched;
    EXPECT_TRUE(PartModeUtil::getPPARNumber("002", number));
    EXPECT_EQ(number, 2U);
}

TEST(PartModeUtil, GetPPARNumberRejectsTextThatIsNotAWholeNumber)
{
    for (const char* text : {"", "3a", " 3x", "3 ", "x3", "+", "-", " ", "0x1", "3.0"}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(PartModeUtil::getPPARNumber(text, number));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, GetPPARNumberRejectsANumberThatIsNotAPhysicalPartition)
{
    // 4 and 5 are the extended partitions of the board, 6 is beyond all.
    for (const char* text : {"4", "5", "6", "-1", "255", "4294967296", "99999999999999999999"}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        EXPECT_FALSE(PartModeUtil::getPPARNumber(text, number));
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, GetPartitionNumberAcceptsPhysicalAndExtendedPartitions)
{
    for (unsigned int partition = 0; partition < UnitTestBoard::kPartitions + UnitTestBoard::kExtendedPartitions;
         ++partition) {
        unsigned int number = kUntouched;
        EXPECT_TRUE(PartModeUtil::getPartitionNumber(std::to_string(partition).c_str(), number));
        EXPECT_EQ(number, partition);
    }
}

TEST(PartModeUtil, GetPartitionNumberRejectsTheCountOfAllPartitionsAndAbove)
{
    for (const char* text : {"6", "7", "255", "2147483648", "99999999999999999999"}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        EXPECT_FALSE(PartModeUtil::getPartitionNumber(text, number));
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, GetPartitionNumberStoresMinusOneWithAllBitsSet)
{
    unsigned int number = kUntouched;
    EXPECT_TRUE(PartModeUtil::getPartitionNumber("-1", number));
    EXPECT_EQ(number, 0xFFFFFFFFU);
    EXPECT_TRUE(PartModeUtil::getPartitionNumber("-7", number));
    EXPECT_EQ(number, 0xFFFFFFF9U);
}

TEST(PartModeUtil, GetPartitionNumberRejectsTextThatIsNotAWholeNumber)
{
    for (const char* text : {"", "3a", " 3x", "1 ", "-"}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        EXPECT_FALSE(PartModeUtil::getPartitionNumber(text, number));
        EXPECT_EQ(number, kUntouched);
    }
    unsigned int number = kUntouched;
    EXPECT_TRUE(PartModeUtil::getPartitionNumber("  +5", number));
    EXPECT_EQ(number, 5U);
}

TEST(PartModeUtil, CheckUnitNumberOfUnitTypeOneAcceptsAnIOUnitNumber)
{
    for (unsigned int unit = 0; unit < UnitTestBoard::kIoUnits; ++unit) {
        std::string text = std::to_string(unit);
        unsigned int number = kUntouched;
        EXPECT_TRUE(PartModeUtil::checkUnitNumber(text.data(), 1, number));
        EXPECT_EQ(number, unit);
    }
    std::string padded = " +2";
    unsigned int number = kUntouched;
    EXPECT_TRUE(PartModeUtil::checkUnitNumber(padded.data(), 1, number));
    EXPECT_EQ(number, 2U);
}

TEST(PartModeUtil, CheckUnitNumberOfUnitTypeOneFailsSilently)
{
    for (std::string text : {"8", "9", "-1", "", "1x", "x", "1 "}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(PartModeUtil::checkUnitNumber(text.data(), 1, number));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, CheckUnitNumberOfUnitTypeZeroAlwaysPrintsParameterInvalid)
{
    for (std::string text : {"0", "1", "3", "", "abc", "-1"}) {
        SCOPED_TRACE(text);
        unsigned int number = kUntouched;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(PartModeUtil::checkUnitNumber(text.data(), 0, number));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "The specified parameter is invalid.\n");
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, CheckUnitNumberOfOtherUnitTypesPrintsParameterInvalid)
{
    for (const unsigned int unitType : {2U, 6U, 0xFFFFFFFFU}) {
        SCOPED_TRACE(unitType);
        std::string text = "0";
        unsigned int number = kUntouched;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(PartModeUtil::checkUnitNumber(text.data(), unitType, number));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "The specified parameter is invalid.\n");
        EXPECT_EQ(number, kUntouched);
    }
}

TEST(PartModeUtil, IsExecuteAsksAgainAfterAWordAndTakesY)
{
    const auto [answer, shown] = ask("yes\ny\n");
    EXPECT_TRUE(answer);
    EXPECT_EQ(shown, "Continue? [Y/N] Continue? [Y/N] ");
}

TEST(PartModeUtil, IsExecuteAsksAgainAfterAnEmptyLineAndEndOfInputIsNo)
{
    const auto [answer, shown] = ask("\n");
    EXPECT_FALSE(answer);
    EXPECT_EQ(shown, "Continue? [Y/N] Continue? [Y/N] ");
}

TEST(PartModeUtil, IsExecuteTakesOneLetterInEitherCase)
{
    for (const auto& [input, expected] :
         {std::pair<const char*, bool>{"y\n", true}, {"Y\n", true}, {"n\n", false}, {"N\n", false}}) {
        SCOPED_TRACE(input);
        const auto [answer, shown] = ask(input);
        EXPECT_EQ(answer, expected);
        EXPECT_EQ(shown, "Continue? [Y/N] ");
    }
}

TEST(PartModeUtil, IsExecuteAsksAgainAfterAnyOtherSingleCharacter)
{
    const auto [answer, shown] = ask("x\n \n1\nn\n");
    EXPECT_FALSE(answer);
    EXPECT_EQ(shown, "Continue? [Y/N] Continue? [Y/N] Continue? [Y/N] Continue? [Y/N] ");
}

TEST(PartModeUtil, IsExecuteTakesALetterWithoutItsLineEndAsNo)
{
    const auto [answer, shown] = ask("y");
    EXPECT_FALSE(answer);
    EXPECT_EQ(shown, "Continue? [Y/N] ");
}

TEST(PartModeUtil, IsExecuteOnEmptyInputIsNoAfterOnePrompt)
{
    const auto [answer, shown] = ask("");
    EXPECT_FALSE(answer);
    EXPECT_EQ(shown, "Continue? [Y/N] ");
}

TEST(PartModeUtil, IsExecuteReadsNoFurtherThanTheAnswer)
{
    const StdinFrom stdinFrom("yn\ny\nrest\n");
    ::testing::internal::CaptureStdout();
    EXPECT_TRUE(PartModeUtil::isExecute("? "));
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "? ? ");
    EXPECT_EQ(std::fgetc(stdin), 'r');
}

TEST(PartModeUtil, CheckKeywordIsExactAndNullSafe)
{
    EXPECT_TRUE(PartModeUtil::checkKeyword("set", "set"));
    EXPECT_FALSE(PartModeUtil::checkKeyword("SET", "set"));
    EXPECT_FALSE(PartModeUtil::checkKeyword("set ", "set"));
    EXPECT_FALSE(PartModeUtil::checkKeyword(nullptr, "set"));
    EXPECT_FALSE(PartModeUtil::checkKeyword("set", nullptr));
    EXPECT_FALSE(PartModeUtil::checkKeyword(nullptr, nullptr));
}

TEST(PartModeUtil, QuietOptionIsTheExactWordQuiet)
{
    EXPECT_TRUE(PartModeUtil::getCommandQuietOption("quiet"));
    EXPECT_FALSE(PartModeUtil::getCommandQuietOption("Quiet"));
    EXPECT_FALSE(PartModeUtil::getCommandQuietOption("q"));
    EXPECT_FALSE(PartModeUtil::getCommandQuietOption(nullptr));
}

TEST(PartModeUtil, PartitionNotDefinedNamesThePartitionOnAMultiPartitionSystem)
{
    testing::internal::CaptureStderr();
    PartModeUtil::printPartitionNotDefined(5);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Partition#5 is not defined.\n");
}

TEST(PartModeUtil, PartitionNumberFromANegativeTextPrintsNegative)
{
    testing::internal::CaptureStderr();
    PartModeUtil::printPartitionNotDefined(0xFFFFFFFFU);
    PartModeUtil::printDPModeEnabled(0xFFFFFFFEU);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Partition#-1 is not defined.\n"
              "Unable to execute this command because DR mode of the Partition#-2 is Enabled.\n");
}

TEST(PartModeUtil, NoAuthorityNamesThePartitionOnAMultiPartitionSystem)
{
    testing::internal::CaptureStderr();
    const std::string returned = PartModeUtil::printNoAuthority();
    const std::string text = "Unable to execute this command because you have not authority to operate this partition.";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
    EXPECT_EQ(returned, text);
}

TEST(PartModeUtil, SinglePartitionSystemSaysSystemConfigurationFailed)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The child starts afresh and loads the single-partition board.
    EXPECT_EXIT(
        {
            UnitTestBoard::useSinglePartitionBoard();
            if (CommonUtil::getMaxPartitionNum() != 1) {
                std::exit(3);
            }
            PartModeUtil::printPartitionNotDefined(5);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), ::testing::Eq("System Configuration Failed.\n"));
}

TEST(PartModeUtil, SinglePartitionSystemRefusesAuthorityOverTheSystem)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            UnitTestBoard::useSinglePartitionBoard();
            PartModeUtil::printNoAuthority();
            std::exit(0);
        },
        ::testing::ExitedWithCode(0),
        ::testing::Eq("Unable to execute this command because you have not authority to operate this system.\n"));
}

TEST(PartModeUtil, BrokenBoardIsReportedOnceAndThrowsAPlatformException)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            UnitTestBoard::useBrokenBoard();
            int thrown = 0;
            for (int attempt = 0; attempt < 2; ++attempt) {
                try {
                    static_cast<void>(CommonUtil::getMaxPartitionNum());
                } catch (const PException& failure) {
                    thrown += failure.getExceptionDetail() == 0x0801 && failure.getActionCode() == 0x02 ? 1 : 0;
                }
            }
            std::exit(thrown == 2 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), ::testing::MatchesRegex("partmode: /[^\n]*/broken-board\\.json: [^\n]+\n"));
}

} // namespace

TEST(PartModeUtil, ConsoleMessageKeepsTheFirst127Characters)
{
    const std::string text = std::string(126, 'a') + "bcd";
    testing::internal::CaptureStderr();
    PartModeUtil::printErrMsgConsole(text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), std::string(126, 'a') + "b\n");
}

TEST(PartModeUtil, ConsoleMessageOf127CharactersStaysWhole)
{
    const std::string text(127, 'x');
    testing::internal::CaptureStderr();
    PartModeUtil::printErrMsgConsole(text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), text + "\n");
}
