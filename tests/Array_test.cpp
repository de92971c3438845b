// Array and the element policies: allocation, holes and the effective size, removal, compaction,
// misuse reports, element life through NewInterface, and a randomized comparison with std::vector.
#include "CoreLib/Array.h"

#include "CoreLib/ElementPolicies.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/CountingElement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using IntArray = Array<int>;

class ArrayTest : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        CountingElement::ResetCounts();
    }
};

// The elements below the size, for comparisons.
std::vector<int> Contents(const IntArray& array) {
    return std::vector<int>(array.GetBase(), array.GetBase() + array.GetSize());
}

// ---- construction and growth ------------------------------------------------------------------

TEST_F(ArrayTest, ZeroInitialSizeHasNoStorageAndTheFirstAddAllocatesGrowBy) {
    IntArray array(0, 4);
    EXPECT_EQ(array.GetBase(), nullptr);
    EXPECT_EQ(array.GetAllocatedSize(), 0u);
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_EQ(array.GetEffectiveSize(), 0u);
    EXPECT_EQ(array.GetGrowBy(), 4u);
    EXPECT_EQ(array.GetInvalidIndex(), 0xFFFFFFFFu);
    EXPECT_EQ(array.Add(7), 0u);
    EXPECT_EQ(array.GetAllocatedSize(), 4u);
    EXPECT_NE(array.GetBase(), nullptr);
    EXPECT_EQ(array.GetSize(), 1u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, InitialSizeAllocatesEmptyElementsWithSizeZero) {
    IntArray array(5, 2);
    EXPECT_EQ(array.GetAllocatedSize(), 5u);
    EXPECT_EQ(array.GetSize(), 0u);
    for (unsigned int index = 0; index < 5; ++index) {
        EXPECT_EQ(array.GetBase()[index], 0);
    }
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AddGrowsByGrowByEachTimeItIsFull) {
    IntArray array(2, 3);
    for (int value = 1; value <= 6; ++value) {
        array.Add(value);
    }
    EXPECT_EQ(array.GetAllocatedSize(), 8u);  // 2, then 2 + 3, then 5 + 3
    EXPECT_THAT(Contents(array), ElementsAre(1, 2, 3, 4, 5, 6));
    array.SetGrowBy(10);
    EXPECT_EQ(array.GetGrowBy(), 10u);
    array.Add(7);
    array.Add(8);
    array.Add(9);
    EXPECT_EQ(array.GetAllocatedSize(), 18u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AddOfTheEmptyElementRaisesTheSizeButNotTheEffectiveSize) {
    IntArray array(0, 4);
    array.Add(0);
    array.Add(3);
    array.Add(0);
    EXPECT_EQ(array.GetSize(), 3u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, SetAtGrowOutsideTheAllocationGrowsToIndexPlusGrowBy) {
    IntArray array(0, 4);
    EXPECT_EQ(array.SetAtGrow(10, 5), 10u);
    EXPECT_EQ(array.GetAllocatedSize(), 14u);
    EXPECT_EQ(array.GetSize(), 11u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_EQ(array[10], 5);
    EXPECT_EQ(array.SetAtGrow(3, 9), 3u);
    EXPECT_EQ(array.GetAllocatedSize(), 14u);
    EXPECT_EQ(array.GetSize(), 11u);
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AddOfAnElementOfTheSameArrayKeepsTheValueAcrossGrowth) {
    IntArray array(1, 1);
    array.Add(42);
    array.Add(array[0]);
    EXPECT_THAT(Contents(array), ElementsAre(42, 42));
}

// ---- SetAt and the effective size -------------------------------------------------------------

TEST_F(ArrayTest, SetAtFollowsTheEffectiveSizeBothWays) {
    IntArray array(4, 4);
    array.SetAt(2, 8);
    EXPECT_EQ(array.GetSize(), 3u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    array.SetAt(0, 1);
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    array.SetAt(0, 5);  // non-empty over non-empty
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    array.SetAt(2, 0);  // empty over non-empty: a hole, the size stays
    EXPECT_EQ(array.GetSize(), 3u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    array.SetAt(1, 0);  // empty over empty
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_THAT(Contents(array), ElementsAre(5, 0, 0));
    EXPECT_TRUE(array.Validate());
}

// ---- removal --------------------------------------------------------------------------------

TEST_F(ArrayTest, RemoveAtInTheMiddleLeavesAHoleThatCompactClosesAndUpdateSizeDoesNot) {
    IntArray array(0, 8);
    for (int value : {1, 2, 3, 4}) {
        array.Add(value);
    }
    EXPECT_EQ(array.RemoveAt(1), 2);
    EXPECT_EQ(array.GetSize(), 4u);
    EXPECT_EQ(array.GetEffectiveSize(), 3u);
    array.UpdateSize();
    EXPECT_EQ(array.GetSize(), 4u);
    EXPECT_THAT(Contents(array), ElementsAre(1, 0, 3, 4));
    array.Compact();
    EXPECT_EQ(array.GetSize(), 3u);
    EXPECT_EQ(array.GetEffectiveSize(), 3u);
    EXPECT_THAT(Contents(array), ElementsAre(1, 3, 4));
    EXPECT_EQ(array.GetBase()[3], 0);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, RemoveAtAtOrAboveTheSizeGivesTheEmptyElementAndChangesNothing) {
    IntArray array(4, 4);
    array.Add(3);
    ScopedCapture capture;
    EXPECT_EQ(array.RemoveAt(1), 0);
    EXPECT_EQ(array.RemoveAt(100), 0);
    EXPECT_EQ(array.GetSize(), 1u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_TRUE(capture.Messages().empty());
}

TEST_F(ArrayTest, RemoveAtOfAHoleDoesNotLowerTheEffectiveSize) {
    IntArray array(0, 4);
    array.Add(1);
    array.Add(0);
    array.Add(2);
    EXPECT_EQ(array.RemoveAt(1), 0);
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AddFirstEmptyRefillsAHoleMadeByRemoveAt) {
    IntArray array(0, 4);
    for (int value : {1, 2, 3}) {
        array.Add(value);
    }
    array.RemoveAt(1);
    EXPECT_EQ(array.AddFirstEmpty(9), 1u);
    EXPECT_THAT(Contents(array), ElementsAre(1, 9, 3));
    EXPECT_EQ(array.GetEffectiveSize(), 3u);
    EXPECT_EQ(array.AddFirstEmpty(4), 3u);  // no hole: appended
    EXPECT_THAT(Contents(array), ElementsAre(1, 9, 3, 4));
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AddFirstEmptyOfTheEmptyElementChangesNothing) {
    IntArray array(0, 4);
    array.Add(1);
    array.Add(0);
    EXPECT_EQ(array.AddFirstEmpty(0), IntArray::kInvalidIndex);
    EXPECT_THAT(Contents(array), ElementsAre(1, 0));
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
}

TEST_F(ArrayTest, RemoveAtAndFillMovesTheLastElementIntoTheHole) {
    IntArray array(0, 8);
    for (int value : {1, 2, 3, 4}) {
        array.Add(value);
    }
    EXPECT_EQ(array.RemoveAtAndFill(0), 1);
    EXPECT_THAT(Contents(array), ElementsAre(4, 2, 3));
    EXPECT_EQ(array.GetEffectiveSize(), 3u);
    EXPECT_EQ(array.RemoveAtAndFill(2), 3);  // the last one itself
    EXPECT_THAT(Contents(array), ElementsAre(4, 2));
    EXPECT_EQ(array.RemoveAtAndFill(5), 0);
    EXPECT_EQ(array.GetSize(), 2u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, RemoveEndTakesTheLastElementOff) {
    IntArray array(0, 4);
    array.Add(5);
    array.Add(0);
    EXPECT_EQ(array.RemoveEnd(), 0);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_EQ(array.RemoveEnd(), 5);
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_EQ(array.GetEffectiveSize(), 0u);
    EXPECT_EQ(array.RemoveEnd(), 0);
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, RemoveAllKeepsTheAllocationAndResetFreesIt) {
    IntArray array(0, 4);
    for (int value : {1, 2, 3}) {
        array.Add(value);
    }
    array.RemoveAll();
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_EQ(array.GetEffectiveSize(), 0u);
    EXPECT_EQ(array.GetAllocatedSize(), 4u);
    EXPECT_EQ(array.GetBase()[0], 0);
    EXPECT_TRUE(array.Validate());
    array.Add(1);
    array.Reset();
    EXPECT_EQ(array.GetAllocatedSize(), 0u);
    EXPECT_EQ(array.GetBase(), nullptr);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, FindScansFromStartAndRemoveEmptiesTheFirstMatch) {
    IntArray array(0, 8);
    for (int value : {4, 7, 4, 9}) {
        array.Add(value);
    }
    EXPECT_EQ(array.Find(4, 0), 0u);
    EXPECT_EQ(array.Find(4, 1), 2u);
    EXPECT_EQ(array.Find(4, 3), IntArray::kInvalidIndex);
    EXPECT_EQ(array.Find(9, 4), IntArray::kInvalidIndex);  // start at the size
    EXPECT_EQ(array.Find(9, 400), IntArray::kInvalidIndex);
    EXPECT_EQ(array.Find(5), IntArray::kInvalidIndex);
    EXPECT_EQ(array.Remove(4), 0u);
    EXPECT_THAT(Contents(array), ElementsAre(0, 7, 4, 9));
    EXPECT_EQ(array.Remove(5), IntArray::kInvalidIndex);
    EXPECT_EQ(array.GetEffectiveSize(), 3u);
}

TEST_F(ArrayTest, UpdateSizeDropsTrailingHolesOnly) {
    IntArray array(0, 8);
    for (int value : {0, 1, 0, 2, 0, 0}) {
        array.Add(value);
    }
    array.UpdateSize();
    EXPECT_THAT(Contents(array), ElementsAre(0, 1, 0, 2));
    array.RemoveAt(3);
    array.RemoveAt(1);
    array.UpdateSize();
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, CompactWithoutHolesChangesNothing) {
    IntArray array(0, 4);
    array.Add(1);
    array.Add(2);
    array.Compact();
    EXPECT_THAT(Contents(array), ElementsAre(1, 2));
}

// ---- SetSize ----------------------------------------------------------------------------------

TEST_F(ArrayTest, SetSizeToASmallerSizeEmptiesWhatLiesAboveAndTheEffectiveSizeFollows) {
    IntArray array(0, 8);
    for (int value : {1, 2, 0, 3, 4}) {
        array.Add(value);
    }
    array.SetSize(2);
    EXPECT_EQ(array.GetAllocatedSize(), 2u);
    EXPECT_EQ(array.GetSize(), 2u);
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    EXPECT_THAT(Contents(array), ElementsAre(1, 2));
    array.SetSize(6);
    EXPECT_EQ(array.GetSize(), 2u);
    for (unsigned int index = 2; index < 6; ++index) {
        EXPECT_EQ(array.GetBase()[index], 0);
    }
    EXPECT_TRUE(array.Validate());
    array.SetSize(0);
    EXPECT_EQ(array.GetBase(), nullptr);
    EXPECT_EQ(array.GetSize(), 0u);
    EXPECT_EQ(array.GetEffectiveSize(), 0u);
}

TEST_F(ArrayTest, SetSizeToTheAllocatedSizeDoesNothing) {
    IntArray array(4, 4);
    array.Add(1);
    const int* before = array.GetBase();
    array.SetSize(4);
    EXPECT_EQ(array.GetBase(), before);
}

// ---- misuse reports ---------------------------------------------------------------------------

TEST_F(ArrayTest, SetAtOutsideTheAllocationIsReportedAndStoresNothing) {
    IntArray array(4, 4);
    array.Add(1);
    ScopedCapture capture;
    array.SetAt(4, 9);
    array.SetAt(70, 9);
    EXPECT_THAT(
        capture.Messages(),
        ElementsAre("Index 4 larger than the max size 4 of array! This will cause memory corruption!",
                    "Index 70 larger than the max size 4 of array! This will cause memory corruption!"));
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(capture.Reports()[0].function, "zn::Array<T, I>::SetAt");
    EXPECT_EQ(array.GetSize(), 1u);
    EXPECT_EQ(array.GetEffectiveSize(), 1u);
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, ReadingAtOrAboveTheSizeIsReportedWithTheFunctionsNameAndStillReadsTheSlot) {
    IntArray array(4, 4);
    array.Add(1);
    array.GetBase()[2] = 6;  // a value beyond the size, to see that the slot itself is read
    const IntArray& constArray = array;
    ScopedCapture capture;
    EXPECT_EQ(array.GetAt(2), 6);
    EXPECT_EQ(constArray[2], 6);
    EXPECT_EQ(array[3], 0);
    EXPECT_EQ(array.GetAt(0), 1);  // in range: no report
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 3u);
    EXPECT_EQ(reports[0].message, "Index [2] out of range [0 - 1]");
    EXPECT_EQ(reports[0].function, "zn::Array<T, I>::GetAt");
    EXPECT_EQ(reports[1].function, "zn::Array<T, I>::operator[]");
    EXPECT_EQ(reports[2].message, "Index [3] out of range [0 - 1]");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    array.GetBase()[2] = 0;
}

TEST_F(ArrayTest, WritingAtOrAboveTheSizeInsideTheAllocationReachesTheSlot) {
    IntArray array(4, 4);
    ScopedCapture capture;
    array[1] = 5;
    EXPECT_THAT(capture.Messages(), ElementsAre("Index [1] out of range [0 - 0]"));
    EXPECT_EQ(array.GetBase()[1], 5);
    EXPECT_EQ(array.GetSize(), 0u);  // operator[] is not SetAt: the bookkeeping does not follow
    EXPECT_FALSE(array.Validate());
    array.GetBase()[1] = 0;
    EXPECT_TRUE(array.Validate());
}

TEST_F(ArrayTest, AccessOutsideTheAllocationIsReportedAndReachesASpareElement) {
    IntArray array(2, 4);
    array.Add(3);
    IntArray none(0, 4);
    ScopedCapture capture;
    array[9] = 77;
    EXPECT_EQ(array[9], 0);  // the write went to the spare, which is empty again on every access
    EXPECT_EQ(none.GetAt(0), 0);
    none[5] = 1;
    EXPECT_EQ(capture.Messages().size(), 4u);
    EXPECT_EQ(capture.Messages()[0], "Index [9] out of range [0 - 1]");
    EXPECT_EQ(capture.Messages()[2], "Index [0] out of range [0 - 0]");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
    EXPECT_EQ(array.GetBase()[0], 3);
    EXPECT_EQ(array.GetBase()[1], 0);
    EXPECT_TRUE(array.Validate());
    EXPECT_TRUE(none.Validate());
}

TEST_F(ArrayTest, AddWithoutGrowByOnAFullArrayIsReportedAndStoresNothing) {
    IntArray array(1, 0);
    array.Add(1);
    ScopedCapture capture;
    EXPECT_EQ(array.Add(2), 1u);
    EXPECT_THAT(
        capture.Messages(),
        ElementsAre("Index 1 larger than the max size 1 of array! This will cause memory corruption!"));
    EXPECT_EQ(array.GetSize(), 1u);
    EXPECT_TRUE(array.Validate());
}

// ---- copies -----------------------------------------------------------------------------------

TEST_F(ArrayTest, CopiesAreDeepAndKeepHoles) {
    IntArray array(0, 4);
    for (int value : {1, 0, 3}) {
        array.Add(value);
    }
    IntArray copy(array);
    EXPECT_NE(copy.GetBase(), array.GetBase());
    EXPECT_THAT(Contents(copy), ElementsAre(1, 0, 3));
    EXPECT_EQ(copy.GetEffectiveSize(), 2u);
    EXPECT_EQ(copy.GetGrowBy(), 4u);
    IntArray assigned(10, 1);
    assigned.Add(8);
    assigned = array;
    array.SetAt(0, 9);
    EXPECT_THAT(Contents(assigned), ElementsAre(1, 0, 3));
    EXPECT_EQ(assigned.GetAllocatedSize(), 4u);
    EXPECT_TRUE(assigned.Validate());
    assigned = assigned;
    EXPECT_THAT(Contents(assigned), ElementsAre(1, 0, 3));
}

// ---- element life through NewInterface ----------------------------------------------------------

TEST_F(ArrayTest, NewInterfaceBuildsEveryElementAndStoresTheCountInFront) {
    CountingElement* elements = NewInterface<CountingElement>::Allocate(6);
    ASSERT_NE(elements, nullptr);
    EXPECT_EQ(NewInterface<CountingElement>::CountOf(elements), 6u);
    EXPECT_EQ(CountingElement::GetCounts().defaultConstructions, 6);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(elements) % alignof(CountingElement), 0u);
    NewInterface<CountingElement>::Free(elements);
    EXPECT_EQ(CountingElement::GetCounts().destructions, 6);
    EXPECT_EQ(NewInterface<CountingElement>::Allocate(0), nullptr);
    NewInterface<CountingElement>::Free(nullptr);
    EXPECT_EQ(CountingElement::GetCounts().Live(), 0);
}

// Records the order in which its instances go.
struct DestructionOrder {
    DestructionOrder() : m_Id(s_NextId++) {}
    ~DestructionOrder() { s_Destroyed.push_back(m_Id); }
    int m_Id;
    static inline int s_NextId = 0;
    static inline std::vector<int> s_Destroyed;
};

TEST_F(ArrayTest, NewInterfaceDestroysInReverseOrder) {
    DestructionOrder::s_NextId = 0;
    DestructionOrder::s_Destroyed.clear();
    DestructionOrder* elements = NewInterface<DestructionOrder>::Allocate(4);
    ASSERT_NE(elements, nullptr);
    NewInterface<DestructionOrder>::Free(elements);
    EXPECT_THAT(DestructionOrder::s_Destroyed, ElementsAre(3, 2, 1, 0));
}

TEST_F(ArrayTest, ObjectArrayKeepsExactlyItsAllocationAlive) {
    {
        ObjectArray<CountingElement> array(10, 4);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 10);
        for (int value = 1; value <= 12; ++value) {
            array.Add(CountingElement(value));
        }
        EXPECT_EQ(array.GetAllocatedSize(), 14u);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 14);
        EXPECT_EQ(array[11].Value(), 12);
        array.RemoveAt(3);
        array.Compact();
        EXPECT_EQ(array.GetSize(), 11u);
        EXPECT_EQ(array[3].Value(), 5);
        EXPECT_TRUE(array.Validate());
        ObjectArray<CountingElement> copy(array);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 28);
        array.SetSize(3);
        EXPECT_EQ(CountingElement::GetCounts().Live(), 17);
        EXPECT_EQ(array[2].Value(), 3);
        array.Reset();
        EXPECT_EQ(CountingElement::GetCounts().Live(), 14);
    }
    EXPECT_EQ(CountingElement::GetCounts().Live(), 0);
}

TEST_F(ArrayTest, ObjectArrayOfStringsOwnsItsStrings) {
    ObjectArray<std::string> array(0, 2);
    array.Add("alpha");
    array.Add(std::string(100, 'x'));
    array.Add("");
    EXPECT_EQ(array.GetEffectiveSize(), 2u);
    EXPECT_EQ(array.Find("alpha"), 0u);
    EXPECT_EQ(array.RemoveAtAndFill(0), "alpha");
    EXPECT_EQ(array[0], "");
    EXPECT_EQ(array[1], std::string(100, 'x'));
    EXPECT_TRUE(array.Validate());
}

// ---- randomized comparison with std::vector -----------------------------------------------------

TEST_F(ArrayTest, RandomOperationsMatchAVectorModel) {
    std::mt19937 random(20240611);
    IntArray array(0, 3);
    std::vector<int> model;  // the slots below the size
    auto value = [&] { return static_cast<int>(random() % 4 == 0 ? 0 : random() % 50 + 1); };
    auto nonEmpty = [&] {
        return static_cast<unsigned int>(
            std::count_if(model.begin(), model.end(), [](int v) { return v != 0; }));
    };
    for (int step = 0; step < 4000; ++step) {
        unsigned int size = static_cast<unsigned int>(model.size());
        switch (random() % 9) {
            case 0:
            case 1: {
                int v = value();
                EXPECT_EQ(array.Add(v), size);
                model.push_back(v);
                break;
            }
            case 2: {
                unsigned int index = static_cast<unsigned int>(random() % (size + 6));
                int v = value();
                array.SetAtGrow(index, v);
                if (index >= model.size()) {
                    model.resize(index + 1, 0);
                }
                model[index] = v;
                break;
            }
            case 3: {
                unsigned int index = static_cast<unsigned int>(random() % (size + 2));
                int expected = index < size ? model[index] : 0;
                EXPECT_EQ(array.RemoveAt(index), expected);
                if (index < size) {
                    model[index] = 0;
                }
                break;
            }
            case 4: {
                unsigned int index = static_cast<unsigned int>(random() % (size + 2));
                int expected = index < size ? model[index] : 0;
                EXPECT_EQ(array.RemoveAtAndFill(index), expected);
                if (index < size) {
                    model[index] = model.back();
                    model.pop_back();
                }
                break;
            }
            case 5: {
                int v = value();
                unsigned int index = array.AddFirstEmpty(v);
                if (v == 0) {
                    EXPECT_EQ(index, IntArray::kInvalidIndex);
                } else {
                    auto hole = std::find(model.begin(), model.end(), 0);
                    unsigned int expected = static_cast<unsigned int>(hole - model.begin());
                    EXPECT_EQ(index, expected);
                    if (hole == model.end()) {
                        model.push_back(v);
                    } else {
                        *hole = v;
                    }
                }
                break;
            }
            case 6:
                EXPECT_EQ(array.RemoveEnd(), model.empty() ? 0 : model.back());
                if (!model.empty()) {
                    model.pop_back();
                }
                break;
            case 7:
                if (random() % 2 == 0) {
                    array.Compact();
                    model.erase(std::remove(model.begin(), model.end(), 0), model.end());
                } else {
                    array.UpdateSize();
                    while (!model.empty() && model.back() == 0) {
                        model.pop_back();
                    }
                }
                break;
            case 8: {
                int v = value();
                unsigned int start = static_cast<unsigned int>(random() % (size + 1));
                auto found = std::find(model.begin() + std::min<size_t>(start, model.size()), model.end(), v);
                unsigned int expected = found == model.end()
                                            ? IntArray::kInvalidIndex
                                            : static_cast<unsigned int>(found - model.begin());
                EXPECT_EQ(array.Find(v, start), expected);
                break;
            }
        }
        ASSERT_TRUE(array.Validate()) << "step " << step;
        ASSERT_EQ(Contents(array), model) << "step " << step;
        ASSERT_EQ(array.GetEffectiveSize(), nonEmpty()) << "step " << step;
    }
}

}  // namespace
}  // namespace zn::test
