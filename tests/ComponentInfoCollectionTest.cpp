#include "ComponentInfoCollection.h"
#include "PException.h"
#include "PrimitiveTypeArray.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Array = OrbLib::OrbUi::PrimitiveTypeArray<long>;
using Collection = OrbLib::OrbUi::ComponentInfoCollection<Array>;
using Bytes = std::vector<unsigned char>;
using Arguments = std::vector<PException::Argument>;

std::unique_ptr<Array> arrayOf(const std::vector<long>& values)
{
    return std::make_unique<Array>(values);
}

bool deserialise(Collection& collection, const Bytes& bytes)
{
    return collection.setSerialized(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

Bytes serialise(const Collection& collection)
{
    Bytes bytes(collection.getSerializedSize());
    const unsigned int written = collection.getSerialized(bytes.data(), static_cast<unsigned int>(bytes.size()));
    EXPECT_EQ(written, bytes.size());
    return bytes;
}

// Checks that `failure` is the collection's failure `where` / `reason`.
void expectCollectionFailure(const PException& failure, const std::string& where, const std::string& reason)
{
    EXPECT_EQ(failure.getSeverity(), 1);
    EXPECT_EQ(failure.getModule(), 0x50);
    EXPECT_EQ(failure.getFunction(), 0x0A00);
    EXPECT_EQ(failure.getActionCode(), 1);
    EXPECT_EQ(failure.getExceptionDetail(), 0x0601);
    EXPECT_EQ(failure.getMessageId(), 20010);
    EXPECT_EQ(failure.getArguments(), (Arguments{where, reason, 0L, 0L, 0L, 0L, 0L, 0L}));
}

// Two records: {5} and {-1, 9}.
const Bytes kTwoRecords{0x00, 0x02,                                     //
                        0x00, 0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 0x05, //
                        0x00, 0x0A, 0x00, 0x02, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x09};

TEST(ComponentInfoCollection, TwoZeroBytesAreAnEmptyCollection)
{
    Collection collection;
    EXPECT_TRUE(deserialise(collection, {0x00, 0x00}));
    EXPECT_EQ(collection.size(), 0U);
}

TEST(ComponentInfoCollection, ZeroCountIsTrueWhateverFollows)
{
    Collection collection;
    EXPECT_TRUE(deserialise(collection, {0x00, 0x00, 0xAA, 0xBB}));
    EXPECT_EQ(collection.size(), 0U);
}

TEST(ComponentInfoCollection, RecordsAreReadInOrder)
{
    Collection collection;
    ASSERT_TRUE(deserialise(collection, kTwoRecords));
    ASSERT_EQ(collection.size(), 2U);
    EXPECT_EQ(collection.getCompInfo(0)->values(), (std::vector<long>{5}));
    EXPECT_EQ(collection.getCompInfo(1)->values(), (std::vector<long>{-1, 9}));
}

TEST(ComponentInfoCollection, OneTrailingByteThrowsDifferentBufferSizeAfterReadingAllRecords)
{
    Bytes bytes = kTwoRecords;
    bytes.push_back(0x00);
    Collection collection;
    try {
        deserialise(collection, bytes);
        FAIL() << "a trailing byte did not throw";
    } catch (const PException& failure) {
        expectCollectionFailure(failure, "ComponentInfoCollection::setSerialized", "Different Buffer Size");
    }
    ASSERT_EQ(collection.size(), 2U);
    EXPECT_EQ(collection.getCompInfo(1)->values(), (std::vector<long>{-1, 9}));
}

TEST(ComponentInfoCollection, RecordLongerThanTheRestThrowsBeforeCreatingItsArray)
{
    // The second record says 11 bytes, 10 are left.
    Bytes bytes = kTwoRecords;
    bytes[11] = 0x0B;
    Collection collection;
    try {
        deserialise(collection, bytes);
        FAIL() << "a record running past the end did not throw";
    } catch (const PException& failure) {
        expectCollectionFailure(failure, "ComponentInfoCollection::setSerialized", "Different Buffer Size");
    }
    // Only the first record was created; it stays.
    ASSERT_EQ(collection.size(), 1U);
    EXPECT_EQ(collection.getCompInfo(0)->values(), (std::vector<long>{5}));
}

TEST(ComponentInfoCollection, FirstRecordLongerThanTheRestLeavesTheCollectionEmpty)
{
    Collection collection;
    EXPECT_THROW(deserialise(collection, {0x00, 0x01, 0x00, 0x07, 0x00, 0x01, 0x00, 0x00, 0x00, 0x05}), PException);
    EXPECT_EQ(collection.size(), 0U);
}

TEST(ComponentInfoCollection, RecordOfSixBytesWhoseCountSaysTwoIsAnEmptyArray)
{
    Collection collection;
    EXPECT_TRUE(deserialise(collection, {0x00, 0x01, 0x00, 0x06, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01}));
    ASSERT_EQ(collection.size(), 1U);
    EXPECT_EQ(collection.getCompInfo(0)->size(), 0U);
}

TEST(ComponentInfoCollection, RecordOfZeroBytesIsAnEmptyArray)
{
    Collection collection;
    EXPECT_TRUE(deserialise(collection, {0x00, 0x01, 0x00, 0x00}));
    ASSERT_EQ(collection.size(), 1U);
    EXPECT_EQ(collection.getCompInfo(0)->size(), 0U);
}

TEST(ComponentInfoCollection, RecordBytesBeyondItsArrayAreSkipped)
{
    // A 7-byte record holding a 6-byte array; the next record starts after all 7.
    Collection collection;
    EXPECT_TRUE(deserialise(collection, {0x00, 0x02,                                           //
                                         0x00, 0x07, 0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0xFF, //
                                         0x00, 0x02, 0x00, 0x00}));
    ASSERT_EQ(collection.size(), 2U);
    EXPECT_EQ(collection.getCompInfo(0)->values(), (std::vector<long>{3}));
    EXPECT_EQ(collection.getCompInfo(1)->size(), 0U);
}

TEST(ComponentInfoCollection, FewerRecordsThanTheCountThrowsDifferentBufferSize)
{
    Bytes bytes = kTwoRecords;
    bytes[1] = 0x03;
    Collection collection;
    try {
        deserialise(collection, bytes);
        FAIL() << "a missing record did not throw";
    } catch (const PException& failure) {
        expectCollectionFailure(failure, "ComponentInfoCollection::setSerialized", "Different Buffer Size");
    }
    EXPECT_EQ(collection.size(), 2U);
}

TEST(ComponentInfoCollection, BufferTooShortForTheCountThrowsDifferentBufferSize)
{
    Collection collection;
    EXPECT_THROW(deserialise(collection, {0x00}), PException);
    EXPECT_THROW(deserialise(collection, {}), PException);
    EXPECT_EQ(collection.size(), 0U);
}

TEST(ComponentInfoCollection, GetCompInfoAtTheCountThrowsOutOfRange)
{
    Collection collection;
    ASSERT_TRUE(deserialise(collection, kTwoRecords));
    try {
        static_cast<void>(collection.getCompInfo(2));
        FAIL() << "index 2 of 2 records did not throw";
    } catch (const PException& failure) {
        expectCollectionFailure(failure, "ComponentInfoCollection::getCompInfo", "Out of range");
    }
}

TEST(ComponentInfoCollection, GetCompInfoOfAnEmptyCollectionThrowsOutOfRange)
{
    const Collection collection;
    EXPECT_THROW(static_cast<void>(collection.getCompInfo(0)), PException);
    EXPECT_THROW(static_cast<void>(collection.getCompInfo(65535)), PException);
}

TEST(ComponentInfoCollection, SerialisedSizeIsTwoPlusEachRecordAndItsLength)
{
    Collection collection;
    EXPECT_EQ(collection.getSerializedSize(), 2U);
    collection.add(arrayOf({5}));
    EXPECT_EQ(collection.getSerializedSize(), 2U + 6U + 2U);
    collection.add(arrayOf({-1, 9}));
    EXPECT_EQ(collection.getSerializedSize(), 2U + 8U + 12U);
}

TEST(ComponentInfoCollection, EmptyCollectionSerialisesToAZeroCount)
{
    EXPECT_EQ(serialise(Collection()), (Bytes{0x00, 0x00}));
}

TEST(ComponentInfoCollection, RecordsAreWrittenBigEndianWithTheirLengths)
{
    Collection collection;
    collection.add(arrayOf({5}));
    collection.add(arrayOf({-1, 9}));
    EXPECT_EQ(serialise(collection), kTwoRecords);
}

TEST(ComponentInfoCollection, GetSerializedIntoAShortBufferThrowsDifferentBufferSize)
{
    Collection collection;
    collection.add(arrayOf({5}));
    Bytes buffer(9, 0xEE);
    try {
        collection.getSerialized(buffer.data(), static_cast<unsigned int>(buffer.size()));
        FAIL() << "a 9-byte buffer for 10 bytes did not throw";
    } catch (const PException& failure) {
        expectCollectionFailure(failure, "ComponentInfoCollection::getSerialized", "Different Buffer Size");
    }
    EXPECT_EQ(buffer, Bytes(9, 0xEE));
}

TEST(ComponentInfoCollection, GetSerializedIntoALargerBufferReturnsTheBytesWritten)
{
    Collection collection;
    collection.add(arrayOf({5}));
    Bytes buffer(16, 0xEE);
    EXPECT_EQ(collection.getSerialized(buffer.data(), static_cast<unsigned int>(buffer.size())), 10U);
    EXPECT_EQ(buffer,
              (Bytes{0x00, 0x01, 0x00, 0x06, 0x00, 0x01, 0x00, 0x00, 0x00, 0x05, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(ComponentInfoCollection, RoundTripKeepsEveryRecord)
{
    Collection original;
    original.add(arrayOf({0, 1}));
    original.add(arrayOf({}));
    original.add(arrayOf({3, -2147483648L, 2147483647L}));
    const Bytes bytes = serialise(original);
    Collection copy;
    ASSERT_TRUE(deserialise(copy, bytes));
    ASSERT_EQ(copy.size(), 3U);
    EXPECT_EQ(copy.getCompInfo(0)->values(), (std::vector<long>{0, 1}));
    EXPECT_EQ(copy.getCompInfo(1)->size(), 0U);
    EXPECT_EQ(copy.getCompInfo(2)->values(), (std::vector<long>{3, -2147483648L, 2147483647L}));
    EXPECT_EQ(serialise(copy), bytes);
}

TEST(ComponentInfoCollection, SetSerializedAppendsToTheRecordsAlreadyHeld)
{
    Collection collection;
    collection.add(arrayOf({1}));
    ASSERT_TRUE(deserialise(collection, kTwoRecords));
    ASSERT_EQ(collection.size(), 3U);
    EXPECT_EQ(collection.getCompInfo(0)->values(), (std::vector<long>{1}));
    EXPECT_EQ(collection.getCompInfo(2)->values(), (std::vector<long>{-1, 9}));
}

} // namespace
