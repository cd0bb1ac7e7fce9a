#include "MessageFormat.h"
#include "MessageCatalogue.h"

#include <gtest/gtest.h>

namespace {

using partmode::MessageFormat;

TEST(MessageFormat, AcceptsEveryBuiltInTextForItsArguments)
{
    for (const auto& message : partmode::builtinMessages()) {
        EXPECT_TRUE(MessageFormat::fits(message.text, message.signature)) << message.id;
    }
}

TEST(MessageFormat, AcceptsConversionsOfTheListedKinds)
{
    EXPECT_TRUE(MessageFormat::fits("%s", "s"));
    EXPECT_TRUE(MessageFormat::fits("%d and %i", "dd"));
    EXPECT_TRUE(MessageFormat::fits("%u %o %x %X", "uuuu"));
    EXPECT_TRUE(MessageFormat::fits("Command failed: %s (%d, %d)", "sdd"));
}

TEST(MessageFormat, AcceptsFlagsWidthsPrecisionsAndPercentSigns)
{
    EXPECT_TRUE(MessageFormat::fits("%-20s|%+5d|%05u|%.3s|%#x|% d|%'d", "sdusudd"));
    EXPECT_TRUE(MessageFormat::fits("100%% done: %s", "s"));
    EXPECT_TRUE(MessageFormat::fits("%255s", "s"));
    EXPECT_TRUE(MessageFormat::fits("%.255s", "s"));
}

TEST(MessageFormat, AcceptsFewerConversionsThanArguments)
{
    EXPECT_TRUE(MessageFormat::fits("no arguments", "sdd"));
    EXPECT_TRUE(MessageFormat::fits("only the command %s", "sdd"));
    EXPECT_TRUE(MessageFormat::fits("", "s"));
}

TEST(MessageFormat, RefusesATextWhereANumberComesAndTheReverse)
{
    EXPECT_FALSE(MessageFormat::fits("%s", "d"));
    EXPECT_FALSE(MessageFormat::fits("%s", "u"));
    EXPECT_FALSE(MessageFormat::fits("%d", "s"));
    EXPECT_FALSE(MessageFormat::fits("%s (%s, %d)", "sdd"));
}

TEST(MessageFormat, RefusesMoreConversionsThanArguments)
{
    EXPECT_FALSE(MessageFormat::fits("%s %s", "s"));
    EXPECT_FALSE(MessageFormat::fits("%d", ""));
}

TEST(MessageFormat, RefusesPercentN)
{
    EXPECT_FALSE(MessageFormat::fits("%n", "d"));
    EXPECT_FALSE(MessageFormat::fits("%s%n", "sd"));
    EXPECT_FALSE(MessageFormat::fits("%1$n", "d"));
}

TEST(MessageFormat, RefusesLengthModifiersAndStars)
{
    for (const char* format : {"%ld", "%hhd", "%hd", "%lld", "%zu", "%jd", "%td", "%Lf", "%ls", "%qd"}) {
        EXPECT_FALSE(MessageFormat::fits(format, "d")) << format;
    }
    EXPECT_FALSE(MessageFormat::fits("%*d", "dd"));
    EXPECT_FALSE(MessageFormat::fits("%.*s", "ds"));
}

TEST(MessageFormat, RefusesEveryOtherConversion)
{
    for (const char* format : {"%c", "%p", "%f", "%e", "%g", "%a", "%m", "%C", "%S", "%z", "%"}) {
        EXPECT_FALSE(MessageFormat::fits(format, "d")) << format;
        EXPECT_FALSE(MessageFormat::fits(format, "s")) << format;
    }
}

TEST(MessageFormat, RefusesWidthsAndPrecisionsBeyondTheLimit)
{
    EXPECT_FALSE(MessageFormat::fits("%256s", "s"));
    EXPECT_FALSE(MessageFormat::fits("%.256s", "s"));
    EXPECT_FALSE(MessageFormat::fits("%99999999999999999999d", "d"));
}

TEST(MessageFormat, RefusesFlagsWithoutMeaningForTexts)
{
    EXPECT_FALSE(MessageFormat::fits("%05s", "s"));
    EXPECT_FALSE(MessageFormat::fits("%+s", "s"));
    EXPECT_FALSE(MessageFormat::fits("%#s", "s"));
}

TEST(MessageFormat, AcceptsPositionalConversionsInAnyOrder)
{
    EXPECT_TRUE(MessageFormat::fits("%2$s on Partition#%1$u", "us"));
    EXPECT_TRUE(MessageFormat::fits("%1$u and again %1$u", "us"));
    EXPECT_TRUE(MessageFormat::fits("%3$d %2$d %1$-10s", "sdd"));
}

TEST(MessageFormat, RefusesPositionalConversionsThatDoNotFit)
{
    EXPECT_FALSE(MessageFormat::fits("%1$s", "us"));
    EXPECT_FALSE(MessageFormat::fits("%3$s", "us"));
    EXPECT_FALSE(MessageFormat::fits("%0$s", "s"));
    // An argument left out below a used one.
    EXPECT_FALSE(MessageFormat::fits("%2$s", "us"));
    // Positional and sequential conversions mixed, either way round.
    EXPECT_FALSE(MessageFormat::fits("%1$u %s", "us"));
    EXPECT_FALSE(MessageFormat::fits("%u %2$s", "us"));
}

} // namespace
