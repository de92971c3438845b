// BitMatrix and BaseFixedMem: word counts, bit layout, the absence of range checks, a randomized
// comparison with std::vector<bool>, and the fixed store's alignment report.
#include "CoreLib/BitMatrix.h"

#include "CoreLib/BaseFixedMem.h"
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

class BitMatrixTest : public CoreLibFixture {};

TEST_F(BitMatrixTest, AllocatesTheProductOverThirtyTwoPlusOneWords) {
    BitMatrix small(3, 3);
    EXPECT_EQ(small.GetWordCount(), 1u);
    BitMatrix exact(8, 4);
    EXPECT_EQ(exact.GetWordCount(), 2u);  // 32 bits still get a second word
    BitMatrix none(0, 0);
    EXPECT_EQ(none.GetWordCount(), 1u);
    EXPECT_EQ(exact.GetXSize(), 8u);
    EXPECT_EQ(exact.GetYSize(), 4u);
    EXPECT_EQ(exact.GetWords()[0], 0u);
    EXPECT_EQ(exact.GetWords()[1], 0u);
}

TEST_F(BitMatrixTest, TheBitOfXYIsXPlusYTimesTheXSize) {
    BitMatrix matrix(10, 7);
    matrix.Set(3, 0);
    matrix.Set(2, 3);  // bit 32: word 1, position 0
    matrix.Set(9, 6);  // bit 69: word 2, position 5
    EXPECT_EQ(matrix.GetWords()[0], 1u << 3);
    EXPECT_EQ(matrix.GetWords()[1], 1u);
    EXPECT_EQ(matrix.GetWords()[2], 1u << 5);
    EXPECT_EQ(matrix.Get(2, 3), 1u);
    EXPECT_EQ(matrix.Get(3, 2), 0u);
    matrix.Reset(2, 3);
    EXPECT_EQ(matrix.Get(2, 3), 0u);
    EXPECT_EQ(matrix.GetWords()[1], 0u);
    matrix.Set(9, 6);
    EXPECT_EQ(matrix.Get(9, 6), 1u);
}

TEST_F(BitMatrixTest, CoordinatesAreNotCheckedAgainstTheSizes) {
    BitMatrix matrix(3, 3);
    ScopedCapture capture;
    matrix.Set(3, 0);  // past the row: the first bit of the next row
    EXPECT_EQ(matrix.Get(0, 1), 1u);
    matrix.Set(0, 5);  // past the last row, inside the word
    EXPECT_EQ(matrix.Get(0, 5), 1u);
    EXPECT_EQ(matrix.GetWords()[0], (1u << 3) | (1u << 15));
    matrix.Set(31, 31);  // past the word: nothing is written outside the block
    EXPECT_EQ(matrix.Get(31, 31), 0u);
    matrix.Reset(31, 31);
    EXPECT_EQ(matrix.GetWords()[0], (1u << 3) | (1u << 15));
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(BitMatrixTest, TheWordsComeFromGlobalAndGoBack) {
    size_t before = MemoryManager::GetMemoryInUse();
    BitMatrix* matrix = new BitMatrix(100, 100);
    EXPECT_GE(MemoryManager::GetMemoryInUse(), before + (100 * 100 / 32 + 1) * sizeof(unsigned int));
    delete matrix;
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), before);
}

TEST_F(BitMatrixTest, RandomOperationsMatchAVectorOfBools) {
    std::mt19937 random(8086);
    const unsigned int xSize = 37;
    const unsigned int ySize = 23;
    BitMatrix matrix(xSize, ySize);
    std::vector<bool> model(xSize * ySize, false);
    for (int step = 0; step < 20000; ++step) {
        unsigned int x = static_cast<unsigned int>(random() % xSize);
        unsigned int y = static_cast<unsigned int>(random() % ySize);
        switch (random() % 3) {
            case 0:
                matrix.Set(x, y);
                model[x + y * xSize] = true;
                break;
            case 1:
                matrix.Reset(x, y);
                model[x + y * xSize] = false;
                break;
            case 2:
                ASSERT_EQ(matrix.Get(x, y), model[x + y * xSize] ? 1u : 0u) << "step " << step;
                break;
        }
    }
    for (unsigned int y = 0; y < ySize; ++y) {
        for (unsigned int x = 0; x < xSize; ++x) {
            ASSERT_EQ(matrix.Get(x, y), model[x + y * xSize] ? 1u : 0u);
        }
    }
}

// ---- BaseFixedMem -----------------------------------------------------------------------------

using PathMem = BaseFixedMem<wchar_t, 260>;

class BaseFixedMemTest : public CoreLibFixture {};

TEST_F(BaseFixedMemTest, HoldsItsElementsInline) {
    PathMem mem;
    EXPECT_EQ(PathMem::GetCapacity(), 260u);
    EXPECT_EQ(sizeof(PathMem), 260 * sizeof(wchar_t));
    EXPECT_EQ(mem[0], L'\0');
    EXPECT_EQ(mem[259], L'\0');
    mem.Construct(3, L'x');
    EXPECT_EQ(mem.GetBase()[3], L'x');
    mem.Clear();
    EXPECT_EQ(mem[3], L'\0');
}

TEST_F(BaseFixedMemTest, ReportsAMisalignedBlockAndWritesTheElementAllTheSame) {
    alignas(wchar_t) unsigned char bytes[3 * sizeof(wchar_t)] = {};
    ScopedCapture capture;
    wchar_t* aligned = PathMem::Construct(bytes, L'a');
    EXPECT_EQ(aligned, reinterpret_cast<wchar_t*>(bytes));
    EXPECT_TRUE(capture.Messages().empty());
    wchar_t* misaligned = PathMem::Construct(bytes + 1, L'b');
    EXPECT_THAT(capture.Messages(), ElementsAre("Unexpected misaligned block"));
    EXPECT_EQ(capture.Reports()[0].channel, LogAssertProgrammer);
    EXPECT_EQ(static_cast<void*>(misaligned), static_cast<void*>(bytes + 1));
    wchar_t written = 0;
    std::memcpy(&written, bytes + 1, sizeof(wchar_t));
    EXPECT_EQ(written, L'b');
}

}  // namespace
}  // namespace zn::test
