#include "PrimitiveTypeArray.h"
#include "PException.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Array = OrbLib::OrbUi::PrimitiveTypeArray<long>;
using Bytes = std::vector<unsigned char>;
using Arguments = std::vector<PException::Argument>;

// Arrays cannot be copied, so they are handed out on the free store.
std::unique_ptr<Array> arrayOf(const std::vector<long>& values)
{
    return std::make_unique<Array>(values);
}

Bytes serialise(const Array& array)
{
    Bytes bytes(array.getSerializedSize());
    const unsigned int written = array.getSerialized(bytes.data(), static_cast<unsigned int>(bytes.size()));
    EXPECT_EQ(written, bytes.size());
    return bytes;
}

bool deserialise(Array& array, const Bytes& bytes)
{
    return array.setSerialized(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

TEST(PrimitiveTypeArray, SerialisedSizeIsFourBytesPerValueAndTwoForTheCount)
{
    EXPECT_EQ(Array().getSerializedSize(), 2U);
    EXPECT_EQ(arrayOf({7})->getSerializedSize(), 6U);
    EXPECT_EQ(arrayOf({1, 2, 3})->getSerializedSize(), 14U);
}

TEST(PrimitiveTypeArray, EmptyArraySerialisesToAZeroCount) { EXPECT_EQ(serialise(Array()), (Bytes{0x00, 0x00})); }

TEST(PrimitiveTypeArray, ValuesAreWrittenBigEndianAfterTheCount)
{
    EXPECT_EQ(serialise(*arrayOf({1, -2, 0x01020304})), (Bytes{0x00, 0x03,             //
                                                               0x00, 0x00, 0x00, 0x01, //
                                                               0xFF, 0xFF, 0xFF, 0xFE, //
                                                               0x01, 0x02, 0x03, 0x04}));
}

TEST(PrimitiveTypeArray, ExtremeThirtyTwoBitValuesAreWrittenAsTheyAre)
{
    EXPECT_EQ(serialise(*arrayOf({2147483647L, -2147483648L})),
              (Bytes{0x00, 0x02, 0x7F, 0xFF, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00}));
}

TEST(PrimitiveTypeArray, GetSerializedIntoALargerBufferLeavesTheRestAlone)
{
    const auto array = arrayOf({5});
    Bytes buffer(10, 0xEE);
    EXPECT_EQ(array->getSerialized(buffer.data(), static_cast<unsigned int>(buffer.size())), 6U);
    EXPECT_EQ(buffer, (Bytes{0x00, 0x01, 0x00, 0x00, 0x00, 0x05, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(PrimitiveTypeArray, GetSerializedIntoAShortBufferThrowsInsufficientBufferSize)
{
    const auto array = arrayOf({1, 2, 3});
    Bytes buffer(13, 0xEE);
    try {
        array->getSerialized(buffer.data(), static_cast<unsigned int>(buffer.size()));
        FAIL() << "a 13-byte buffer for 14 bytes did not throw";
    } catch (const PException& failure) {
        EXPECT_EQ(failure.getSeverity(), 1);
        EXPECT_EQ(failure.getModule(), 0x50);
        EXPECT_EQ(failure.getFunction(), 0x5B00);
        EXPECT_EQ(failure.getActionCode(), 1);
        EXPECT_EQ(failure.getExceptionDetail(), 0x0601);
        EXPECT_EQ(failure.getMessageId(), 20019);
        EXPECT_EQ(failure.getArguments(),
                  (Arguments{std::string("Insufficient buffer size"), 0L, 0L, 0L, 0L, 0L, 0L, 0L}));
    }
    EXPECT_EQ(buffer, Bytes(13, 0xEE));
}

TEST(PrimitiveTypeArray, EmptyArrayNeedsTwoBytes)
{
    const Array array;
    unsigned char buffer[1] = {0xEE};
    EXPECT_THROW(array.getSerialized(buffer, 1), PException);
    EXPECT_THROW(array.getSerialized(nullptr, 0), PException);
}

TEST(PrimitiveTypeArray, CountIsWrittenModulo65536)
{
    Array array;
    for (long value = 0; value < 65537; ++value) {
        array.add(value);
    }
    const Bytes bytes = serialise(array);
    ASSERT_EQ(bytes.size(), 4U * 65537U + 2U);
    EXPECT_EQ(bytes[0], 0x00);
    EXPECT_EQ(bytes[1], 0x01);
    // The last value still follows in full.
    EXPECT_EQ(Bytes(bytes.end() - 4, bytes.end()), (Bytes{0x00, 0x01, 0x00, 0x00}));
}

TEST(PrimitiveTypeArray, SetSerializedReadsBigEndianSignedValues)
{
    Array array;
    EXPECT_TRUE(deserialise(array, {0x00, 0x03,             //
                                    0x00, 0x00, 0x01, 0x00, //
                                    0xFF, 0xFF, 0xFF, 0xFF, //
                                    0x80, 0x00, 0x00, 0x00}));
    EXPECT_EQ(array.values(), (std::vector<long>{256, -1, -2147483648L}));
}

TEST(PrimitiveTypeArray, SetSerializedOfAZeroCountIsTrueAndEmpty)
{
    Array array;
    EXPECT_TRUE(deserialise(array, {0x00, 0x00}));
    EXPECT_EQ(array.size(), 0U);
}

TEST(PrimitiveTypeArray, SetSerializedBelowTwoBytesIsFalse)
{
    Array array;
    EXPECT_FALSE(deserialise(array, {}));
    EXPECT_FALSE(deserialise(array, {0x00}));
    EXPECT_EQ(array.size(), 0U);
}

TEST(PrimitiveTypeArray, SetSerializedShorterThanItsCountIsFalseAndReadsNothing)
{
    const auto array = arrayOf({9});
    // The count says 2 values, the data hold 1.
    EXPECT_FALSE(deserialise(*array, {0x00, 0x02, 0x00, 0x00, 0x00, 0x01}));
    // One byte short of the second value.
    EXPECT_FALSE(deserialise(*array, {0x00, 0x02, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00}));
    EXPECT_EQ(array->values(), (std::vector<long>{9}));
}

TEST(PrimitiveTypeArray, SetSerializedIgnoresBytesAfterTheValues)
{
    Array array;
    EXPECT_TRUE(deserialise(array, {0x00, 0x01, 0x00, 0x00, 0x00, 0x2A, 0xDE, 0xAD}));
    EXPECT_EQ(array.values(), (std::vector<long>{42}));
}

TEST(PrimitiveTypeArray, SetSerializedAppendsToTheValuesAlreadyHeld)
{
    const auto array = arrayOf({1, 2});
    EXPECT_TRUE(deserialise(*array, {0x00, 0x01, 0x00, 0x00, 0x00, 0x03}));
    EXPECT_TRUE(deserialise(*array, {0x00, 0x02, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x05}));
    EXPECT_EQ(array->values(), (std::vector<long>{1, 2, 3, 4, 5}));
}

TEST(PrimitiveTypeArray, RoundTripKeepsEveryValue)
{
    const std::vector<long> values{0, 1, -1, 65535, -65536, 2147483647L, -2147483648L};
    Array copy;
    ASSERT_TRUE(deserialise(copy, serialise(*arrayOf(values))));
    EXPECT_EQ(copy.values(), values);
    EXPECT_EQ(serialise(copy), serialise(*arrayOf(values)));
}

} // namespace
