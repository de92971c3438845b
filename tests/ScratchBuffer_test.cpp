// Scratch buffers: doubling on write, the two heaps, reads past the data, seeks, copies and
// comparisons, and a random stream checked against a plain byte vector.
#include "CoreLib/ScratchBuffer.h"

#include "CoreLib/Heap.h"
#include "CoreLib/MemoryManager.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const kNotEnoughData = "ScratchBuffer requesting to read while not enough data available";

class ScratchBufferTest : public CoreLibFixture {};

void WriteBytes(ScratchBuffer& buffer, unsigned int count, uint8_t first) {
    std::vector<uint8_t> bytes(count);
    for (unsigned int i = 0; i < count; ++i) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    buffer.Write(bytes.data(), count);
}

TEST_F(ScratchBufferTest, EmptyBufferDoublesFromOne) {
    ScratchBuffer buffer(0);
    EXPECT_EQ(buffer.GetBufferSize(), 0u);
    EXPECT_EQ(buffer.GetReadData(), nullptr);
    EXPECT_FALSE(buffer.CanRead());
    WriteBytes(buffer, 10, 0);
    EXPECT_EQ(buffer.GetBufferSize(), 16u);
    EXPECT_EQ(buffer.GetSize(), 10u);
    EXPECT_EQ(buffer.GetWritePosition(), 10u);
    WriteBytes(buffer, 6, 10);
    EXPECT_EQ(buffer.GetBufferSize(), 16u) << "exactly full needs no growth";
    WriteBytes(buffer, 1, 16);
    EXPECT_EQ(buffer.GetBufferSize(), 32u);
    WriteBytes(buffer, 100, 17);
    EXPECT_EQ(buffer.GetBufferSize(), 128u);
}

TEST_F(ScratchBufferTest, ReadsWhatWasWrittenAndNoMore) {
    ScratchBuffer buffer(4);
    const uint32_t values[] = {7, 0xDEADBEEF, 42};
    buffer.Write(values, sizeof(values));
    uint32_t read[3] = {};
    buffer.Read(read, 8);
    EXPECT_EQ(read[0], 7u);
    EXPECT_EQ(read[1], 0xDEADBEEFu);
    EXPECT_TRUE(buffer.CanRead());
    ScopedCapture capture;
    uint32_t untouched[2] = {1, 1};
    buffer.Read(untouched, 5);
    EXPECT_THAT(capture.Messages(), ElementsAre(kNotEnoughData));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(untouched[0], 1u) << "a failed read leaves the target alone";
    EXPECT_EQ(buffer.GetReadPosition(), 8u);
    buffer.Read(&read[2], 4);
    EXPECT_EQ(read[2], 42u) << "exactly the remaining bytes can be read";
    EXPECT_FALSE(buffer.CanRead());
    EXPECT_THAT(capture.Messages(), ElementsAre(kNotEnoughData));
    buffer.ResetRead();
    EXPECT_EQ(buffer.GetReadPosition(), 0u);
    EXPECT_TRUE(buffer.CanRead());
}

TEST_F(ScratchBufferTest, ReadingDataOfAnEmptyBufferReports) {
    ScratchBuffer buffer(0);
    ScopedCapture capture;
    char target = 'k';
    buffer.Read(&target, 1);
    EXPECT_EQ(target, 'k');
    EXPECT_THAT(capture.Messages(), ElementsAre(kNotEnoughData));
}

TEST_F(ScratchBufferTest, GrowingAcrossOneMebibyteMovesToLargeBlock) {
    ScratchBuffer buffer(0x80000);
    EXPECT_TRUE(GetHeapGLOBAL().IsPtrOwned(buffer.GetReadData()));
    WriteBytes(buffer, 0x80000, 3);
    EXPECT_EQ(buffer.GetBufferSize(), 0x80000u);
    WriteBytes(buffer, 1, 0);
    EXPECT_EQ(buffer.GetBufferSize(), 0x100000u);
    EXPECT_TRUE(GetHeapLARGEBLOCK().IsPtrOwned(buffer.GetReadData()));
    EXPECT_FALSE(GetHeapGLOBAL().IsPtrOwned(buffer.GetReadData()));
    std::vector<uint8_t> back(0x80001);
    buffer.Read(back.data(), 0x80001);
    EXPECT_EQ(back[0], 3u);
    EXPECT_EQ(back[0x7FFFF], static_cast<uint8_t>(3 + 0x7FFFF)) << "the move kept the bytes";
    EXPECT_EQ(back[0x80000], 0u);

    ScratchBuffer large(0x100000);
    EXPECT_TRUE(GetHeapLARGEBLOCK().IsPtrOwned(large.GetWriteData()));
}

TEST_F(ScratchBufferTest, GrowAddsAndGrowToOnlyEnlarges) {
    ScratchBuffer buffer(8);
    buffer.Grow(8);
    EXPECT_EQ(buffer.GetBufferSize(), 16u);
    buffer.GrowTo(12);
    EXPECT_EQ(buffer.GetBufferSize(), 16u);
    buffer.GrowTo(40);
    EXPECT_EQ(buffer.GetBufferSize(), 40u);
    EXPECT_EQ(buffer.GetSize(), 0u) << "growth writes nothing";
}

TEST_F(ScratchBufferTest, SeekWriteCountsFromEachOrigin) {
    ScratchBuffer buffer(0);
    WriteBytes(buffer, 20, 0);
    buffer.SeekWrite(-4, SEEKPOS_END);
    EXPECT_EQ(buffer.GetWritePosition(), 16u);
    buffer.SeekWrite(2, SEEKPOS_START);
    EXPECT_EQ(buffer.GetWritePosition(), 2u);
    const uint8_t marker = 0xAA;
    buffer.Write(&marker, 1);
    EXPECT_EQ(buffer.GetSize(), 20u) << "overwriting inside keeps the size";
    buffer.SeekWrite(5, SEEKPOS_CURRENT);
    EXPECT_EQ(buffer.GetWritePosition(), 8u);
    buffer.SeekWrite(4, SEEKPOS_END);
    EXPECT_EQ(buffer.GetWritePosition(), 24u);
    EXPECT_EQ(buffer.GetSize(), 24u) << "the size follows a seek past it";
    EXPECT_GE(buffer.GetBufferSize(), 24u) << "bytes up to the size exist";
    uint8_t bytes[3] = {};
    buffer.Read(bytes, 3);
    EXPECT_EQ(bytes[2], 0xAA);
}

TEST_F(ScratchBufferTest, SeekBeforeTheStartIsRefused) {
    ScratchBuffer buffer(0);
    WriteBytes(buffer, 4, 0);
    ScopedCapture capture;
    buffer.SeekWrite(-5, SEEKPOS_CURRENT);
    EXPECT_THAT(capture.Messages(), ElementsAre("ScratchBuffer cannot move its write position to -1"));
    EXPECT_EQ(buffer.GetWritePosition(), 4u);
}

TEST_F(ScratchBufferTest, IndicatedBytesMoveThePositions) {
    ScratchBuffer buffer(16);
    std::memcpy(buffer.GetWriteData(), "abcdef", 6);
    buffer.IndicateBytesWritten(6);
    EXPECT_EQ(buffer.GetSize(), 6u);
    EXPECT_EQ(buffer.GetWritePosition(), 6u);
    EXPECT_EQ(std::memcmp(buffer.GetReadData(), "abc", 3), 0);
    buffer.IndicateBytesRead(4);
    EXPECT_EQ(*buffer.GetReadData(), 'e');
    EXPECT_TRUE(buffer.CanRead());
    buffer.IndicateBytesRead(2);
    EXPECT_FALSE(buffer.CanRead());
}

TEST_F(ScratchBufferTest, ClearKeepsTheStorage) {
    ScratchBuffer buffer(0);
    WriteBytes(buffer, 30, 0);
    char* storage = buffer.GetWriteData() - 30;
    buffer.Clear();
    EXPECT_EQ(buffer.GetSize(), 0u);
    EXPECT_EQ(buffer.GetWritePosition(), 0u);
    EXPECT_EQ(buffer.GetReadPosition(), 0u);
    WriteBytes(buffer, 30, 1);
    EXPECT_EQ(buffer.GetReadData(), storage);
    EXPECT_EQ(buffer.GetBufferSize(), 32u);
}

TEST_F(ScratchBufferTest, DestroyedBufferIsUsedAgain) {
    ScratchBuffer buffer(64);
    WriteBytes(buffer, 10, 0);
    buffer.Destroy();
    EXPECT_EQ(buffer.GetBufferSize(), 0u);
    EXPECT_EQ(buffer.GetSize(), 0u);
    EXPECT_EQ(buffer.GetReadData(), nullptr);
    WriteBytes(buffer, 3, 9);
    EXPECT_EQ(buffer.GetBufferSize(), 4u);
    uint8_t first = 0;
    buffer.Read(&first, 1);
    EXPECT_EQ(first, 9u);
}

TEST_F(ScratchBufferTest, CopyTakesBytesAndPositions) {
    ScratchBuffer source(0);
    WriteBytes(source, 40, 5);
    uint8_t skipped[3];
    source.Read(skipped, 3);
    ScratchBuffer target(8);
    target.CopyFrom(source);
    EXPECT_EQ(target.GetBufferSize(), 64u);
    EXPECT_EQ(target.GetSize(), 40u);
    EXPECT_EQ(target.GetWritePosition(), 40u);
    EXPECT_EQ(target.GetReadPosition(), 3u);
    EXPECT_TRUE(target == source);
    EXPECT_FALSE(target != source);

    ScopedCapture capture;
    target.CopyFrom(target);
    EXPECT_THAT(capture.Messages(), ElementsAre("Trying to copy a scratchbuffer to itself...?"));
}

TEST_F(ScratchBufferTest, CopyIntoALargerBufferKeepsItsSize) {
    ScratchBuffer source(0);
    WriteBytes(source, 3, 1);
    ScratchBuffer target(0);
    WriteBytes(target, 20, 50);
    target.CopyFrom(source);
    EXPECT_EQ(target.GetBufferSize(), 32u);
    EXPECT_EQ(target.GetSize(), 3u);
    EXPECT_FALSE(target == source) << "different allocations never compare equal";
}

TEST_F(ScratchBufferTest, EqualityIgnoresPositionsButNotBytesBeyondTheSize) {
    ScratchBuffer left(8);
    ScratchBuffer right(8);
    std::memset(left.GetWriteData(), 0, 8);
    std::memset(right.GetWriteData(), 0, 8);
    WriteBytes(left, 4, 1);
    WriteBytes(right, 4, 1);
    right.SeekWrite(1, SEEKPOS_START);
    uint8_t byte;
    right.Read(&byte, 1);
    EXPECT_TRUE(left == right);
    right.SeekWrite(6, SEEKPOS_START);
    const uint8_t other = 9;
    right.Write(&other, 1);
    EXPECT_TRUE(left != right) << "byte 6 is beyond the left's size, but it counts";
}

TEST_F(ScratchBufferTest, RandomStreamMatchesAByteVector) {
    std::mt19937 random(5150);
    ScratchBuffer buffer(0);
    std::vector<uint8_t> model;
    size_t readAt = 0;
    for (int step = 0; step < 4000; ++step) {
        unsigned int length = random() % 300;
        if (random() % 3 != 0) {
            std::vector<uint8_t> bytes(length);
            for (uint8_t& byte : bytes) {
                byte = static_cast<uint8_t>(random());
            }
            buffer.Write(bytes.data(), length);
            model.insert(model.end(), bytes.begin(), bytes.end());
        } else if (readAt + length <= model.size()) {
            std::vector<uint8_t> bytes(length);
            buffer.Read(bytes.data(), length);
            ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), model.begin() + readAt)) << "step " << step;
            readAt += length;
        }
        ASSERT_EQ(buffer.GetSize(), model.size());
        ASSERT_EQ(buffer.GetReadPosition(), readAt);
        ASSERT_GE(buffer.GetBufferSize(), buffer.GetSize());
    }
}

}  // namespace
}  // namespace zn::test
