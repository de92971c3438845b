// Set, ObjectSet and PrimitiveSet: insertion and doubling growth, the large-growth warning,
// constant-time removal, reallocation, misuse reports, element life, and a randomized comparison
// with std::vector.
#include "CoreLib/Set.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/CountingElement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using IntSet = PrimitiveSet<int>;

class SetTest : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        CountingElement::ResetCounts();
    }
};

std::vector<int> Contents(const IntSet& set) {
    return std::vector<int>(set.GetData(), set.GetData() + set.GetSize());
}

// ---- insertion and growth ---------------------------------------------------------------------

TEST_F(SetTest, StartsEmptyWithoutStorage) {
    IntSet set;
    EXPECT_EQ(set.GetSize(), 0u);
    EXPECT_EQ(set.GetCapacity(), 0u);
    EXPECT_EQ(set.GetData(), nullptr);
    EXPECT_TRUE(set.IsEmpty());
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, CapacityDoublesFromOne) {
    IntSet set;
    std::vector<unsigned int> capacities;
    for (int value = 0; value < 9; ++value) {
        EXPECT_EQ(set.Add(value), static_cast<unsigned int>(value));
        capacities.push_back(set.GetCapacity());
    }
    EXPECT_THAT(capacities, ElementsAre(1u, 2u, 4u, 4u, 8u, 8u, 8u, 8u, 16u));
    EXPECT_THAT(Contents(set), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, InsertAtFiveOnAnEmptySetMakesTheCapacityEight) {
    IntSet set;
    set.Insert(42, 5);
    EXPECT_EQ(set.GetCapacity(), 8u);
    EXPECT_EQ(set.GetSize(), 1u);
    EXPECT_EQ(set.GetData()[5], 42);  // stored at the index asked for, not at the end
}

TEST_F(SetTest, InsertMovesTheFollowingElementsUp) {
    IntSet set;
    for (int value : {1, 2, 3}) {
        set.Add(value);
    }
    set.Insert(9, 1);
    set.Insert(8, 0);
    set.Insert(7, 5);
    EXPECT_THAT(Contents(set), ElementsAre(8, 1, 9, 2, 3, 7));
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, InsertOfAnElementOfTheSameSetKeepsItsValue) {
    IntSet set;
    for (int value : {1, 2, 3, 4}) {
        set.Add(value);
    }
    set.Insert(set[3], 0);  // no growth, the value's slot moves
    EXPECT_THAT(Contents(set), ElementsAre(4, 1, 2, 3, 4));
    set.Insert(set[1], 5);  // growth frees the value's storage
    EXPECT_THAT(Contents(set), ElementsAre(4, 1, 2, 3, 4, 1));
}

TEST_F(SetTest, GrowthToLargeCapacitiesWarnsOnceAtEachReallocation) {
    IntSet set;
    ScopedCapture capture;
    for (int value = 0; value < 8192; ++value) {
        set.Add(value);
    }
    EXPECT_EQ(set.GetCapacity(), 8192u);
    EXPECT_TRUE(capture.Messages().empty());
    set.Add(8192);
    EXPECT_EQ(set.GetCapacity(), 16384u);
    EXPECT_THAT(capture.Messages(), ElementsAre("Warning: Set is growing very large"));
    for (int value = 8193; value < 16384; ++value) {
        set.Add(value);
    }
    EXPECT_EQ(capture.Messages().size(), 1u);
    set.Add(16384);
    EXPECT_EQ(set.GetCapacity(), 32768u);
    EXPECT_EQ(capture.Messages().size(), 2u);
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(capture.Reports()[0].function, "zn::Set<T, I, C>::Insert");
    EXPECT_EQ(set[16384], 16384);
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, TheWarningStartsAtTheFirstCapacityOfTenThousandOrMore) {
    IntSet set;
    ScopedCapture capture;
    set.Insert(1, 4999);  // 8192
    EXPECT_TRUE(capture.Messages().empty());
    IntSet other;
    other.Insert(1, 9999);  // 16384
    EXPECT_THAT(capture.Messages(), ElementsAre("Warning: Set is growing very large"));
    IntSet direct;
    direct.Realloc(20000);  // only growth by insertion warns
    EXPECT_EQ(capture.Messages().size(), 1u);
}

// ---- removal ----------------------------------------------------------------------------------

TEST_F(SetTest, RemoveAtMovesTheLastElementIntoTheGap) {
    IntSet set;
    for (int value : {10, 20, 30}) {
        set.Add(value);
    }
    set.RemoveAt(0);
    EXPECT_THAT(Contents(set), ElementsAre(30, 20));
    set.RemoveAt(1);
    EXPECT_THAT(Contents(set), ElementsAre(30));
    EXPECT_EQ(set.GetCapacity(), 4u);
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, RemoveAtOnAnEmptySetIsReportedAndChangesNothing) {
    IntSet set(4);
    ScopedCapture capture;
    set.RemoveAt(0);
    EXPECT_THAT(capture.Messages(), ElementsAre("Trying to remove an item from the set that is empty"));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(set.GetSize(), 0u);
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, RemoveAtOutOfRangeIsReportedAndStillRemovesTheLastElement) {
    IntSet set(8);
    for (int value : {1, 2, 3}) {
        set.Add(value);
    }
    ScopedCapture capture;
    set.RemoveAt(5);
    EXPECT_THAT(capture.Messages(), ElementsAre("Index [5] out of range [0 - 3]"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::Set<T, I, C>::RemoveAt");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_THAT(Contents(set), ElementsAre(1, 2));
    EXPECT_EQ(set.GetData()[5], 3);  // the last element went to the slot asked for
    set.RemoveAt(100);               // outside the capacity: the size still goes down
    EXPECT_THAT(Contents(set), ElementsAre(1));
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, RemoveAllKeepsTheCapacity) {
    IntSet set;
    for (int value : {1, 2, 3}) {
        set.Add(value);
    }
    set.RemoveAll();
    EXPECT_EQ(set.GetSize(), 0u);
    EXPECT_EQ(set.GetCapacity(), 4u);
    EXPECT_TRUE(set.Validate());
}

// ---- indexing ---------------------------------------------------------------------------------

TEST_F(SetTest, AnIndexAtOrAboveTheSizeIsReportedAndTheSlotIsStillUsed) {
    IntSet set(4);
    set.Add(5);
    set.GetData()[2] = 7;
    const IntSet& constSet = set;
    ScopedCapture capture;
    EXPECT_EQ(set[2], 7);
    EXPECT_EQ(constSet.GetAt(2), 7);
    set.GetAt(3) = 9;
    EXPECT_EQ(set.GetData()[3], 9);
    EXPECT_EQ(set[0], 5);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Index [2] out of range [0 - 1]", "Index [2] out of range [0 - 1]",
                            "Index [3] out of range [0 - 1]"));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
}

TEST_F(SetTest, AnIndexOutsideTheCapacityReachesASpareElement) {
    IntSet set;
    ScopedCapture capture;
    set[3] = 4;
    EXPECT_EQ(set[3], 0);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Index [3] out of range [0 - 0]", "Index [3] out of range [0 - 0]"));
    EXPECT_TRUE(set.Validate());
}

// ---- reallocation -----------------------------------------------------------------------------

TEST_F(SetTest, ReallocKeepsTheElementsAndZeroFreesTheStorage) {
    IntSet set;
    for (int value : {1, 2, 3}) {
        set.Add(value);
    }
    set.Realloc(10);
    EXPECT_EQ(set.GetCapacity(), 10u);
    EXPECT_THAT(Contents(set), ElementsAre(1, 2, 3));
    const int* data = set.GetData();
    set.Realloc(10);
    EXPECT_EQ(set.GetData(), data);
    set.RemoveAll();
    set.Realloc(0);
    EXPECT_EQ(set.GetData(), nullptr);
    EXPECT_EQ(set.GetCapacity(), 0u);
    EXPECT_TRUE(set.Validate());
}

TEST_F(SetTest, ReallocBelowTheSizeIsReportedTruncatesTheStorageAndKeepsTheSize) {
    IntSet set;
    for (int value : {1, 2, 3, 4}) {
        set.Add(value);
    }
    ScopedCapture capture;
    set.Realloc(2);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Trying to reallocate a set with a size (2) smaller than the current use (4)"));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(set.GetCapacity(), 2u);
    EXPECT_EQ(set.GetSize(), 4u);
    EXPECT_FALSE(set.Validate());
    EXPECT_EQ(set[0], 1);
    EXPECT_EQ(set[1], 2);
    EXPECT_EQ(set[3], 0);  // lost with the truncation: the spare element, no report
    EXPECT_EQ(capture.Messages().size(), 1u);
    set.Add(5);  // growth repairs the capacity
    EXPECT_EQ(set.GetCapacity(), 8u);
    EXPECT_EQ(set.GetSize(), 5u);
    EXPECT_EQ(set[4], 5);
    EXPECT_TRUE(set.Validate());
}

// ---- comparator, copies ---------------------------------------------------------------------------

// Orders by descending value, to show the comparator is the one given.
struct Descending {
    static bool Less(const int& left, const int& right) { return left > right; }
    static bool Equal(const int& left, const int& right) { return left == right; }
};

TEST_F(SetTest, SortAndFindUseTheComparator) {
    IntSet set;
    for (int value : {3, 1, 2, 3}) {
        set.Add(value);
    }
    EXPECT_EQ(set.Find(3), 0u);
    EXPECT_EQ(set.Find(9), IntSet::kInvalidIndex);
    EXPECT_TRUE(set.Contains(2));
    set.Sort();
    EXPECT_THAT(Contents(set), ElementsAre(1, 2, 3, 3));
    PrimitiveSet<int, Descending> descending;
    for (int value : {3, 1, 2}) {
        descending.Add(value);
    }
    descending.Sort();
    EXPECT_EQ(descending[0], 3);
    EXPECT_EQ(descending[2], 1);
}

TEST_F(SetTest, CopiesAreDeep) {
    IntSet set;
    for (int value : {1, 2, 3}) {
        set.Add(value);
    }
    IntSet copy(set);
    set[0] = 9;
    EXPECT_THAT(Contents(copy), ElementsAre(1, 2, 3));
    EXPECT_EQ(copy.GetCapacity(), 4u);
    IntSet assigned;
    assigned.Add(5);
    assigned = set;
    EXPECT_THAT(Contents(assigned), ElementsAre(9, 2, 3));
    assigned = assigned;
    EXPECT_THAT(Contents(assigned), ElementsAre(9, 2, 3));
    EXPECT_TRUE(assigned.Validate());
}

// ---- element life -----------------------------------------------------------------------------

TEST_F(SetTest, ObjectSetKeepsExactlyItsCapacityAlive) {
    {
        ObjectSet<CountingElement> set;
        for (int value = 1; value <= 5; ++value) {
            set.Add(CountingElement(value));
        }
        EXPECT_EQ(set.GetCapacity(), 8u);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 8);
        set.RemoveAt(0);
        EXPECT_EQ(set[0].Value(), 5);
        set.Realloc(16);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 16);
        ObjectSet<CountingElement> copy(set);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 32);
        set.Sort();
        EXPECT_EQ(set[0].Value(), 2);
        EXPECT_EQ(set.Find(CountingElement(4)), 2u);
    }
    EXPECT_EQ(CountingElement::GetCounts().Live(), 0);
}

TEST_F(SetTest, ObjectSetOfStrings) {
    ObjectSet<std::string> set;
    set.Add("b");
    set.Add("a");
    set.Insert("c", 0);
    set.Sort();
    EXPECT_EQ(set[0], "a");
    EXPECT_EQ(set[2], "c");
    set.RemoveAt(0);
    EXPECT_EQ(set[0], "c");
    EXPECT_TRUE(set.Validate());
}

// ---- randomized comparison with std::vector -----------------------------------------------------

TEST_F(SetTest, RandomOperationsMatchAVectorModel) {
    std::mt19937 random(77031);
    IntSet set;
    std::vector<int> model;
    for (int step = 0; step < 5000; ++step) {
        unsigned int size = static_cast<unsigned int>(model.size());
        unsigned int operation = static_cast<unsigned int>(random() % 10);
        if (operation < 6) {
            unsigned int index = static_cast<unsigned int>(random() % (size + 1));
            int value = static_cast<int>(random() % 1000);
            set.Insert(value, index);
            model.insert(model.begin() + index, value);
        } else if (operation < 9 && size > 0) {
            unsigned int index = static_cast<unsigned int>(random() % size);
            set.RemoveAt(index);
            model[index] = model.back();
            model.pop_back();
        } else if (operation == 9) {
            unsigned int capacity = size + static_cast<unsigned int>(random() % 8);
            set.Realloc(capacity);
            ASSERT_EQ(set.GetCapacity(), capacity);
        }
        ASSERT_TRUE(set.Validate()) << "step " << step;
        ASSERT_EQ(Contents(set), model) << "step " << step;
        ASSERT_GE(set.GetCapacity(), set.GetSize());
    }
}

}  // namespace
}  // namespace zn::test
