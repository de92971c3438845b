// Random: the seeded table against the run-time library's published sequence and formula, the
// ranged draws, rewinding, and the reports of an unseeded object.
#include "CoreLib/Random.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/platform/Time.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

// The first values of the run-time library's rand after srand(1), as that library documents them.
const unsigned int kRunTimeSequenceOfSeed1[] = {41,    18467, 6334,  26500, 19169,
                                                15724, 11478, 29358, 26962, 24464};

// The run-time library's generator, written out: state * 214013 + 2531011, modulo 2^32, and bits
// 16 to 30 of the state.
std::vector<unsigned int> RunTimeSequence(uint32_t seed, size_t count) {
    std::vector<unsigned int> values;
    uint64_t state = seed;
    for (size_t i = 0; i < count; ++i) {
        state = (state * 214013 + 2531011) % 4294967296ull;
        values.push_back(static_cast<unsigned int>(state / 65536 % 32768));
    }
    return values;
}

std::vector<unsigned int> Draw(Random& random, size_t count) {
    std::vector<unsigned int> values;
    for (size_t i = 0; i < count; ++i) {
        values.push_back(random.GetRand());
    }
    return values;
}

using RandomTest = CoreLibFixture;

TEST_F(RandomTest, TableOfASeedIsTheRunTimeSequence) {
    Random random;
    EXPECT_EQ(random.GetSize(), 2000u);
    random.Seed(1, 2000);
    std::vector<unsigned int> table = Draw(random, 2000);
    EXPECT_EQ(
        std::vector<unsigned int>(table.begin(), table.begin() + 10),
        std::vector<unsigned int>(std::begin(kRunTimeSequenceOfSeed1), std::end(kRunTimeSequenceOfSeed1)));
    EXPECT_EQ(table, RunTimeSequence(1, 2000));

    random.Seed(0xDEADBEEF, 700);
    random.SetIndex(0);
    EXPECT_EQ(random.GetSeed(), 0xDEADBEEFu);
    EXPECT_EQ(Draw(random, 700), RunTimeSequence(0xDEADBEEF, 700));
}

TEST_F(RandomTest, TheSequenceRepeatsAfterItsSizeAndSetIndexRewinds) {
    Random random;
    random.Seed(1, 3);
    std::vector<unsigned int> draws = Draw(random, 3);
    EXPECT_EQ(random.GetIndex(), 0u);
    draws.push_back(random.GetRand());
    EXPECT_EQ(draws[3], draws[0]);
    EXPECT_EQ(random.GetIndex(), 1u);

    random.Seed(77, 50);
    random.SetIndex(0);
    std::vector<unsigned int> first = Draw(random, 20);
    random.SetIndex(0);
    EXPECT_EQ(Draw(random, 20), first);
    random.SetIndex(5);
    EXPECT_EQ(random.GetRand(), first[5]);
    // A position past the end starts the table again.
    random.SetIndex(50);
    EXPECT_EQ(random.GetRand(), first[0]);
    // Seeding again keeps the read position.
    random.Seed(78, 50);
    EXPECT_EQ(random.GetIndex(), 1u);
}

TEST_F(RandomTest, IntegerRangesIncludeBothEndsAndFollowTheTable) {
    Random ranged;
    Random plain;
    ranged.Seed(2024, 2000);
    plain.Seed(2024, 2000);
    bool sawLow = false;
    bool sawHigh = false;
    for (int i = 0; i < 2000; ++i) {
        int value = ranged.GetRand(-3, 3);
        EXPECT_EQ(value, static_cast<int>(plain.GetRand() % 7) - 3);
        sawLow |= value == -3;
        sawHigh |= value == 3;
    }
    EXPECT_TRUE(sawLow);
    EXPECT_TRUE(sawHigh);
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(ranged.GetRand(5, 5), 5);
    }
    // The whole int range is 2^32 values wide: the draw is added to the low end as it is.
    plain.SetIndex(ranged.GetIndex());
    EXPECT_EQ(ranged.GetRand(INT_MIN, INT_MAX), INT_MIN + static_cast<int>(plain.GetRand()));
}

TEST_F(RandomTest, FloatRangesScaleTheDrawOver32767) {
    Random ranged;
    Random plain;
    ranged.Seed(99, 2000);
    plain.Seed(99, 2000);
    for (int i = 0; i < 2000; ++i) {
        float value = ranged.GetRand(-2.0f, 6.0f);
        double expected = -2.0 + 8.0 * (plain.GetRand() / 32767.0);
        EXPECT_FLOAT_EQ(value, static_cast<float>(expected));
        EXPECT_GE(value, -2.0f);
        EXPECT_LE(value, 6.0f);
    }
}

TEST_F(RandomTest, UnseededOrEmptyTablesReportAndGiveZero) {
    ScopedCapture capture;
    Random random;
    EXPECT_EQ(random.GetRand(), 0u);
    EXPECT_EQ(random.GetIndex(), 0u);
    random.Seed(5, 0);
    EXPECT_EQ(random.GetRand(1, 6), 1);
    const char* text = "Trying to get a random on an uninitialized Random object. Seed it first!";
    EXPECT_THAT(capture.Messages(), ElementsAre(text, text));
    EXPECT_EQ(capture.Reports()[0].function, "zn::Random::GetRand");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(RandomTest, SeedRandomTakesTheCalendarTimeAndTheTableLivesInTheGlobalHeap) {
    size_t inUse = MemoryManager::GetMemoryInUse();
    {
        Random random;
        int64_t before = platform::Time64();
        random.SeedRandom(4000);
        int64_t after = platform::Time64();
        EXPECT_GE(random.GetSeed(), static_cast<unsigned int>(before));
        EXPECT_LE(random.GetSeed(), static_cast<unsigned int>(after));
        EXPECT_EQ(random.GetSize(), 4000u);
        EXPECT_EQ(Draw(random, 4000), RunTimeSequence(random.GetSeed(), 4000));
        EXPECT_GE(MemoryManager::GetMemoryInUse(), inUse + 4000 * sizeof(unsigned int));
        random.Seed(3, 10);  // the old table goes back
        EXPECT_LT(MemoryManager::GetMemoryInUse(), inUse + 4000 * sizeof(unsigned int));
    }
    EXPECT_EQ(MemoryManager::GetMemoryInUse(), inUse);
}

TEST(RandomWithoutLibrary, WorksBeforeTheMemoryManagerExists) {
    ASSERT_FALSE(MemoryManager::IsCreated());
    Random random;
    random.Seed(1, 10);
    EXPECT_EQ(Draw(random, 10), std::vector<unsigned int>(std::begin(kRunTimeSequenceOfSeed1),
                                                          std::end(kRunTimeSequenceOfSeed1)));
}

}  // namespace
}  // namespace zn::test
