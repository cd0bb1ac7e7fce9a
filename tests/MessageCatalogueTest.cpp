#include "MessageCatalogue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

TEST(MessageCatalogue, EveryTextBeginsWithItsId)
{
    char buffer[kMessageBufferSize];
    EXPECT_THAT(lmsg_getmsg(10046, buffer, "set partition pci_express_mode 0 fixed"), StartsWith("10046: "));
    EXPECT_THAT(lmsg_getmsg(10047, buffer, "show partition pci_express_mode 0", 0x0700, 0xCC), StartsWith("10047: "));
    EXPECT_THAT(lmsg_getmsg(10082, buffer, 3U, "PCI Express Mode=Fixed"), StartsWith("10082: "));
    EXPECT_THAT(lmsg_getmsg(10083, buffer, 3U, "Dynamic Reconfiguration=Enable"), StartsWith("10083: "));
    EXPECT_THAT(lmsg_getmsg(10088, buffer, "PCI Express Mode=Fixed"), StartsWith("10088: "));
    EXPECT_THAT(lmsg_getmsg(20003, buffer, "Get PCI Express Mode"), StartsWith("20003: "));
    EXPECT_THAT(lmsg_getmsg(20052, buffer, "Get PCI Express Mode"), StartsWith("20052: "));
}

TEST(MessageCatalogue, ArgumentsAreFormattedIntoTheText)
{
    char buffer[kMessageBufferSize];
    EXPECT_THAT(lmsg_getmsg(10046, buffer, "set partition pci_express_mode 0 fixed"),
                HasSubstr("set partition pci_express_mode 0 fixed"));
    const std::string failure = lmsg_getmsg(10047, buffer, "show partition pci_express_mode 0", 1792, 204);
    EXPECT_THAT(failure, HasSubstr("show partition pci_express_mode 0"));
    EXPECT_THAT(failure, HasSubstr("1792"));
    EXPECT_THAT(failure, HasSubstr("204"));
    const std::string audit = lmsg_getmsg(10082, buffer, 3U, "PCI Express Mode=Fixed");
    EXPECT_THAT(audit, HasSubstr("3"));
    EXPECT_THAT(audit, HasSubstr("PCI Express Mode=Fixed"));
}

TEST(MessageCatalogue, ResultIsTheBufferItWasGiven)
{
    char buffer[kMessageBufferSize];
    EXPECT_EQ(lmsg_getmsg(10046, buffer, "x"), buffer);
}

TEST(MessageCatalogue, TextLongerThan255IsCutAt255Characters)
{
    char buffer[kMessageBufferSize + 16];
    std::memset(buffer, 'Z', sizeof(buffer));
    const std::string command(300, 'c');
    const std::string text = lmsg_getmsg(10046, buffer, command.c_str());
    EXPECT_EQ(kMessageBufferSize, 256U);
    EXPECT_EQ(text.size(), 255U);
    EXPECT_THAT(text, StartsWith("10046: "));
    // Nothing is written past the buffer's 256 bytes.
    EXPECT_EQ(buffer[kMessageBufferSize], 'Z');
}

TEST(MessageCatalogue, TextOfExactly255CharactersIsKeptWhole)
{
    char buffer[kMessageBufferSize];
    const std::size_t wording = std::strlen(lmsg_getmsg(10046, buffer, ""));
    const std::string command(255 - wording, 'c');
    const std::string text = lmsg_getmsg(10046, buffer, command.c_str());
    EXPECT_EQ(text.size(), 255U);
    EXPECT_THAT(text, HasSubstr(command));
}

TEST(MessageCatalogue, UnknownIdStillBeginsWithItsId)
{
    char buffer[kMessageBufferSize];
    EXPECT_THAT(lmsg_getmsg(12345, buffer), StartsWith("12345: "));
}

} // namespace
