#include "GetBit.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

using Byte = unsigned char;

TEST(GetBit, PowerStateBitOfStatusByte)
{
    EXPECT_EQ(get_bit<Byte>(0x02, 1, 1), 1);
    EXPECT_EQ(get_bit<Byte>(0x03, 1, 1), 1);
    EXPECT_EQ(get_bit<Byte>(0x01, 1, 1), 0);
    EXPECT_EQ(get_bit<Byte>(0xFD, 1, 1), 0);
}

TEST(GetBit, ByteFieldOfSeveralBits)
{
    // 1011 0100: bits 2..4 are 101.
    EXPECT_EQ(get_bit<Byte>(0xB4, 2, 3), 5);
    EXPECT_EQ(get_bit<Byte>(0xB4, 4, 4), 0x0B);
    EXPECT_EQ(get_bit<Byte>(0xB4, 0, 4), 0x04);
    // The top three bits of a node id tell an I/O unit (100).
    EXPECT_EQ(get_bit<Byte>(0x83, 5, 3), 4);
    EXPECT_EQ(get_bit<Byte>(0x83, 0, 3), 3);
}

TEST(GetBit, ByteFieldReachingPastTheTopKeepsOnlyExistingBits)
{
    EXPECT_EQ(get_bit<Byte>(0x80, 7, 4), 1);
    EXPECT_EQ(get_bit<Byte>(0xC0, 6, 8), 3);
}

TEST(GetBit, ByteWidthOfTypeWidthOrMoreTakesTheWholeValue)
{
    EXPECT_EQ(get_bit<Byte>(0xA5, 0, 8), 0xA5);
    EXPECT_EQ(get_bit<Byte>(0xA5, 0, 9), 0xA5);
    EXPECT_EQ(get_bit<Byte>(0xFF, 0, 32), 0xFF);
    EXPECT_EQ(get_bit<Byte>(0xA5, 4, 100), 0x0A);
}

TEST(GetBit, ByteShiftOfTypeWidthOrMoreGivesZero)
{
    EXPECT_EQ(get_bit<Byte>(0xFF, 8, 1), 0);
    EXPECT_EQ(get_bit<Byte>(0xFF, 9, 8), 0);
}

TEST(GetBit, ZeroWidthGivesZero)
{
    EXPECT_EQ(get_bit<Byte>(0xFF, 0, 0), 0);
    EXPECT_EQ(get_bit<long>(-1L, 3, 0), 0L);
}

TEST(GetBit, LongStatusFlagIsBitZero)
{
    EXPECT_EQ(get_bit<long>(1L, 0, 1), 1L);
    EXPECT_EQ(get_bit<long>(3L, 0, 1), 1L);
    EXPECT_EQ(get_bit<long>(2L, 0, 1), 0L);
    EXPECT_EQ(get_bit<long>(0L, 0, 1), 0L);
}

TEST(GetBit, LongFieldInTheMiddle)
{
    EXPECT_EQ(get_bit<long>(0x12345678L, 8, 16), 0x3456L);
    EXPECT_EQ(get_bit<long>(0x12345678L, 28, 4), 0x1L);
}

TEST(GetBit, NegativeLongGivesTheBitsOfItsTwosComplement)
{
    EXPECT_EQ(get_bit<long>(-1L, 0, 1), 1L);
    EXPECT_EQ(get_bit<long>(-2L, 0, 1), 0L);
    EXPECT_EQ(get_bit<long>(-2L, 1, 1), 1L);
    EXPECT_EQ(get_bit<long>(-1L, 0, 8), 0xFFL);
    // The field is masked, so it comes back positive.
    EXPECT_EQ(get_bit<long>(-256L, 8, 8), 0xFFL);
    EXPECT_EQ(get_bit<long>(LONG_MIN, sizeof(long) * CHAR_BIT - 1, 1), 1L);
}

TEST(GetBit, NegativeLongFieldReachingPastTheTopKeepsOnlyExistingBits)
{
    constexpr unsigned int bits = sizeof(long) * CHAR_BIT;
    EXPECT_EQ(get_bit<long>(-1L, bits - 4, 8), 0xFL);
    EXPECT_EQ(get_bit<long>(LONG_MIN, bits - 2, 8), 2L);
}

TEST(GetBit, LongWidthOfTypeWidthOrMoreTakesTheWholeValue)
{
    constexpr unsigned int bits = sizeof(long) * CHAR_BIT;
    EXPECT_EQ(get_bit<long>(-1L, 0, bits), -1L);
    EXPECT_EQ(get_bit<long>(-12345L, 0, bits + 1), -12345L);
    EXPECT_EQ(get_bit<long>(LONG_MAX, 0, 200), LONG_MAX);
}

TEST(GetBit, LongShiftOfTypeWidthOrMoreGivesZero)
{
    constexpr unsigned int bits = sizeof(long) * CHAR_BIT;
    EXPECT_EQ(get_bit<long>(-1L, bits, 1), 0L);
    EXPECT_EQ(get_bit<long>(-1L, bits + 5, bits), 0L);
}

} // namespace
