#include "RawIpmiFrame.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using partmode::RawIpmiFrame;
using Bytes = std::vector<std::uint8_t>;

TEST(RawIpmiFrame, OemRequestIsTheCommandByteAndTheData)
{
    const RawIpmiFrame frame(0x30, 0xB3, 32473);
    EXPECT_EQ(frame.request(Bytes{0x71, 0x02}), (Bytes{0xB3, 0x71, 0x02}));
}

TEST(RawIpmiFrame, GroupRequestCarriesTheEnterpriseNumberLeastSignificantByteFirst)
{
    const RawIpmiFrame frame(0x2E, 0xF5, 32473);
    EXPECT_EQ(frame.request(Bytes{0x71, 0x00}), (Bytes{0xF5, 0xD9, 0x7E, 0x00, 0x71, 0x00}));
    EXPECT_EQ(RawIpmiFrame(0x2E, 0xF5, 0x123456).request(Bytes{}), (Bytes{0xF5, 0x56, 0x34, 0x12}));
}

TEST(RawIpmiFrame, AnswerGivesTheCompletionCodeAndTheDataAfterIt)
{
    std::string fault;
    const auto response = RawIpmiFrame(0x30, 0xB3, 32473).answer(Bytes{0xB3, 0x00, 0x00, 0x01}, fault);
    ASSERT_TRUE(response.has_value()) << fault;
    EXPECT_EQ(response->completionCode, 0x00);
    EXPECT_EQ(response->data, (Bytes{0x00, 0x01}));
}

TEST(RawIpmiFrame, NonZeroCompletionCodeIsAnAnswerNotAFault)
{
    std::string fault;
    const auto response = RawIpmiFrame(0x30, 0xB2, 32473).answer(Bytes{0xB2, 0xD5}, fault);
    ASSERT_TRUE(response.has_value());
    EXPECT_EQ(response->completionCode, 0xD5);
    EXPECT_TRUE(response->data.empty());
}

TEST(RawIpmiFrame, AnswerShorterThanItsCompletionCodeIsMalformed)
{
    std::string fault;
    EXPECT_FALSE(RawIpmiFrame(0x30, 0xB3, 32473).answer(Bytes{0xB3}, fault).has_value());
    EXPECT_EQ(fault, "answer without a completion code");
    EXPECT_FALSE(RawIpmiFrame(0x30, 0xB3, 32473).answer(Bytes{}, fault).has_value());
}

TEST(RawIpmiFrame, AnswerToAnotherCommandIsMalformed)
{
    std::string fault;
    EXPECT_FALSE(RawIpmiFrame(0x30, 0xB3, 32473).answer(Bytes{0xB2, 0x00}, fault).has_value());
    EXPECT_EQ(fault, "answer without a completion code");
}

TEST(RawIpmiFrame, GroupAnswerLosesItsEnterpriseNumber)
{
    std::string fault;
    const auto response =
        RawIpmiFrame(0x2E, 0xF5, 32473).answer(Bytes{0xF5, 0x00, 0xD9, 0x7E, 0x00, 0x01, 0x00, 0x07}, fault);
    ASSERT_TRUE(response.has_value()) << fault;
    EXPECT_EQ(response->data, (Bytes{0x01, 0x00, 0x07}));
}

TEST(RawIpmiFrame, GroupAnswerWithoutTheRequestsEnterpriseNumberIsMalformed)
{
    std::string fault;
    EXPECT_FALSE(RawIpmiFrame(0x2E, 0xF5, 32473).answer(Bytes{0xF5, 0x00, 0xD9, 0x7F, 0x00, 0x01}, fault));
    EXPECT_EQ(fault, "answer without the enterprise number of the request");
    EXPECT_FALSE(RawIpmiFrame(0x2E, 0xF5, 32473).answer(Bytes{0xF5, 0x00, 0xD9}, fault));
}

TEST(RawIpmiFrame, GroupRefusalNeedsNoEnterpriseNumber)
{
    std::string fault;
    const auto response = RawIpmiFrame(0x2E, 0xF5, 32473).answer(Bytes{0xF5, 0xC1}, fault);
    ASSERT_TRUE(response.has_value());
    EXPECT_EQ(response->completionCode, 0xC1);
}

} // namespace
