#include "Diagnostics.h"
#include "PException.h"
#include "PlatformError.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace {

using partmode::Diagnostics;
namespace error = partmode::error;

TEST(Diagnostics, SessionFailureGivesThePeerTheLibrarysWordsAndTheCodes)
{
    const PException failure(1, 0x52, 0, error::kActionTimeout, error::kDetailSession, error::kMessagePlatformFailure,
                             {"BMC 127.0.0.1:623: connection timeout"});
    EXPECT_EQ(Diagnostics::explain(failure), "BMC 127.0.0.1:623: connection timeout; the IPMI session failed: no "
                                             "answer within the session timeout (2054, 5)");
}

TEST(Diagnostics, CompletionCodeIsNamedInHexadecimal)
{
    const PException failure(1, 0x52, 0xB3, 0xC1, error::kDetailCompletionCode, 20029, {"Get PCI Express Mode", 0xC1L});
    EXPECT_EQ(Diagnostics::explain(failure),
              "Get PCI Express Mode; the firmware refused the request: completion code 0xC1 (1792, 193)");
}

TEST(Diagnostics, ExceptionWithoutTextsGivesTheCodesInWords)
{
    const PException failure(1, 0x52, 0, error::kActionUnreadable, error::kDetailFirmwareState,
                             error::kMessagePlatformFailure);
    EXPECT_EQ(Diagnostics::explain(failure),
              "the firmware simulator's state file cannot be used: missing or unreadable (2051, 1)");
}

TEST(Diagnostics, TracedDetailLosesTheCommandNameAndItsParentheses)
{
    const std::string command = "set partition pci_express_mode 0 fixed";
    EXPECT_EQ(Diagnostics::explain(command, command + " (Partition is not defined)", 0, 0), "Partition is not defined");
    EXPECT_EQ(Diagnostics::explain(command, command + " (the currentMode is different from the specifiedMode)", 1, 0),
              "the currentMode is different from the specifiedMode (1, 0)");
    EXPECT_EQ(Diagnostics::explain(command, command + " (PException)", error::kDetailCompletionCode, 0x80),
              "the firmware refused the request: completion code 0x80 (1792, 128)");
}

TEST(Diagnostics, TracedDetailOfItsOwnStaysWhole)
{
    EXPECT_EQ(Diagnostics::explain("set partition dynamic_reconfiguration 0 enable",
                                   "DR can't be enabled, because exclusive features are enabled\n", 0, 0),
              "DR can't be enabled, because exclusive features are enabled");
}

TEST(Diagnostics, EveryPlatformDetailHasWordsOfItsOwn)
{
    std::set<std::string> seen;
    for (const int detail : {error::kDetailCompletionCode, error::kDetailCollection, error::kDetailBoard,
                             error::kDetailUser, error::kDetailFirmwareState, error::kDetailTransport,
                             error::kDetailResponse, error::kDetailSession, error::kDetailPasswordFile,
                             error::kDetailAudit}) {
        const std::string words = Diagnostics::detailWords(detail);
        EXPECT_FALSE(words.empty()) << detail;
        EXPECT_TRUE(seen.insert(words).second) << words;
    }
    EXPECT_EQ(Diagnostics::detailWords(1), "");
}

TEST(Diagnostics, EveryPlatformActionHasWordsOfItsOwn)
{
    std::set<std::string> seen;
    for (const int action :
         {error::kActionUnreadable, error::kActionMalformed, error::kActionRefused, error::kActionIo,
          error::kActionTimeout, error::kActionUnreachable, error::kActionInsecure, error::kActionSessionOther,
          error::kActionLockTimeout}) {
        const std::string words = Diagnostics::actionWords(error::kDetailSession, action);
        EXPECT_FALSE(words.starts_with("action code")) << action;
        EXPECT_TRUE(seen.insert(words).second) << words;
    }
    EXPECT_EQ(Diagnostics::actionWords(error::kDetailSession, 0x42), "action code 66");
}

} // namespace
