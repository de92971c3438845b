// Pools: the free queue, the blocks, set-up, get, release, growth and its warnings.
#include "CoreLib/Pool.h"

#include "CoreLib/MemoryManager.h"
#include "CoreLib/platform/RunTime.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

namespace zn::test {
namespace {

// What pools did to CountingElements since the test began.
struct ElementCounts {
    int built = 0;
    int destroyed = 0;
    int reset = 0;
    std::vector<int> destroyedIds;
};

class CountingElement : public PoolElement {
public:
    static constexpr int kBuiltValue = 7;

    CountingElement() : m_Id(s_Counts.built++) {}
    ~CountingElement() override {
        ++s_Counts.destroyed;
        s_Counts.destroyedIds.push_back(m_Id);
    }
    void ResetPoolElement() override {
        m_Value = kBuiltValue;
        ++m_ResetCount;
        ++s_Counts.reset;
    }

    int m_Id;
    int m_Value = kBuiltValue;
    int m_ResetCount = 0;

    static ElementCounts s_Counts;
};

ElementCounts CountingElement::s_Counts;

// A pool of counting elements that also counts its calls of GetMore.
template <typename M = PoolMemory>
class CountingPool : public BasePool<CountingElement, M> {
public:
    void GetMore() override {
        ++m_GetMoreCalls;
        BasePool<CountingElement, M>::GetMore();
    }
    int m_GetMoreCalls = 0;

protected:
    CountingElement* ConstructElement(void* address) override { return new (address) CountingElement; }
};

// An element with no virtual functions that resets its fields in a plain member.
struct PlainChildren {
    int m_Count = 0;
    int m_Capacity = 0;
    void ResetPoolElement() {
        m_Count = 0;
        m_Capacity = 0;
    }
};

class PlainChildrenPool : public BasePool<PlainChildren> {
protected:
    PlainChildren* ConstructElement(void* address) override { return new (address) PlainChildren; }
};

class PoolTest : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        CountingElement::s_Counts = ElementCounts{};
    }
};

using PoolQueueTest = CoreLibFixture;
using PoolMemoryTest = CoreLibFixture;

bool EndsWith(const std::string& text, const std::string& ending) {
    return text.size() >= ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::string GrowthWarning(const char* name, int currentSize, int maximumSize) {
    return std::string("Pool (") + name +
           ") is growing larger than it's maximum size!\n      Current size: " + std::to_string(currentSize) +
           "\n      Maximum size " + std::to_string(maximumSize) +
           "\n  Let a programmer know about this, so he can investigate.\n  It's just a warning, so nothing "
           "is "
           "broken. Everything still works ;)";
}

template <typename T>
std::vector<T> QueuedInOrder(const PoolQueue<T>& queue) {
    std::vector<T> queued;
    for (unsigned int position = 0; position < queue.GetCount(); ++position) {
        queued.push_back(queue.PeekAt(position));
    }
    return queued;
}

template <typename T>
std::vector<T> PopAll(PoolQueue<T>& queue) {
    std::vector<T> popped;
    while (!queue.IsEmpty()) {
        popped.push_back(queue.Pop());
    }
    return popped;
}

// Leaves a queue of capacity 4 full with 3, 4, 5, 6, its run wrapped past the array's end.
void FillWrapped(PoolQueue<int>& queue) {
    queue.Resize(4);
    for (int value = 1; value <= 4; ++value) {
        queue.Push(value);
    }
    queue.Pop();
    queue.Pop();
    queue.Push(5);
    queue.Push(6);
}

// ---------------------------------------------------------------------------------------------
// PoolQueue

TEST_F(PoolQueueTest, StartsEmptyWithRoomForOne) {
    PoolQueue<int*> queue;
    EXPECT_EQ(queue.GetCapacity(), 1u);
    EXPECT_EQ(queue.GetCount(), 0u);
    EXPECT_EQ(queue.GetHead(), -1);
    EXPECT_EQ(queue.GetTail(), 0u);
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_TRUE(queue.Validate());
}

TEST_F(PoolQueueTest, GivesElementsBackFirstInFirstOutAndDoublesWhenFull) {
    PoolQueue<int> queue;
    std::vector<unsigned int> capacities;
    for (int value = 1; value <= 5; ++value) {
        EXPECT_TRUE(queue.Push(value));
        capacities.push_back(queue.GetCapacity());
        EXPECT_TRUE(queue.Validate());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned int>{1, 2, 4, 4, 8}));
    EXPECT_EQ(PopAll(queue), (std::vector<int>{1, 2, 3, 4, 5}));
}

TEST_F(PoolQueueTest, HeadReturnsToMinusOneEachTimeItRunsEmpty) {
    PoolQueue<int> queue;
    for (int round = 1; round <= 4; ++round) {
        for (int value = 0; value < round; ++value) {
            queue.Push(value);
        }
        EXPECT_GE(queue.GetHead(), 0);
        for (int value = 0; value < round; ++value) {
            EXPECT_EQ(queue.Pop(), value);
        }
        EXPECT_EQ(queue.GetHead(), -1) << "round " << round;
        EXPECT_EQ(queue.GetTail(), 0u) << "round " << round;
        EXPECT_TRUE(queue.Validate());
    }
}

TEST_F(PoolQueueTest, ResizeOfAnEmptyQueueLeavesHeadAndTailAtZero) {
    PoolQueue<int> queue;
    queue.Resize(4);
    EXPECT_EQ(queue.GetCapacity(), 4u);
    EXPECT_EQ(queue.GetHead(), 0);
    EXPECT_EQ(queue.GetTail(), 0u);
    EXPECT_EQ(queue.GetCount(), 0u);
    EXPECT_TRUE(queue.Validate());
    queue.Push(9);
    EXPECT_EQ(queue.GetHead(), 0);
    EXPECT_EQ(queue.GetTail(), 1u);
    EXPECT_EQ(queue.Pop(), 9);
    EXPECT_EQ(queue.GetHead(), -1);
}

TEST_F(PoolQueueTest, FullWrappedQueueDoublesAndKeepsItsOrder) {
    PoolQueue<int> queue;
    FillWrapped(queue);
    EXPECT_EQ(queue.GetCapacity(), 4u);
    EXPECT_EQ(queue.GetCount(), 4u);
    EXPECT_EQ(queue.GetHead(), 2);
    EXPECT_EQ(queue.GetTail(), 2u);
    EXPECT_TRUE(queue.Validate());
    EXPECT_EQ(QueuedInOrder(queue), (std::vector<int>{3, 4, 5, 6}));

    queue.Push(7);
    EXPECT_EQ(queue.GetCapacity(), 8u);
    EXPECT_EQ(queue.GetHead(), 0);
    EXPECT_EQ(queue.GetTail(), 5u);
    EXPECT_TRUE(queue.Validate());
    EXPECT_EQ(PopAll(queue), (std::vector<int>{3, 4, 5, 6, 7}));
}

TEST_F(PoolQueueTest, ResizeMovesAWrappedRunToTheStartInOrder) {
    PoolQueue<int> queue;
    FillWrapped(queue);
    queue.Pop();
    EXPECT_EQ(queue.GetHead(), 3);
    EXPECT_EQ(queue.GetTail(), 2u);
    queue.Resize(6);
    EXPECT_EQ(queue.GetCapacity(), 6u);
    EXPECT_EQ(queue.GetHead(), 0);
    EXPECT_EQ(queue.GetTail(), 3u);
    EXPECT_TRUE(queue.Validate());
    EXPECT_EQ(QueuedInOrder(queue), (std::vector<int>{4, 5, 6}));
}

TEST_F(PoolQueueTest, ResizeToNoMoreThanTheCountChangesNothing) {
    PoolQueue<int> queue;
    FillWrapped(queue);
    for (unsigned int capacity : {0u, 3u, 4u}) {
        queue.Resize(capacity);
        EXPECT_EQ(queue.GetCapacity(), 4u) << capacity;
        EXPECT_EQ(queue.GetHead(), 2) << capacity;
        EXPECT_EQ(QueuedInOrder(queue), (std::vector<int>{3, 4, 5, 6})) << capacity;
    }
}

TEST_F(PoolQueueTest, PopOfAnEmptyQueueReportsAndGivesNull) {
    PoolQueue<int*> queue;
    ScopedCapture capture;
    EXPECT_EQ(queue.Pop(), nullptr);
    ASSERT_EQ(capture.Reports().size(), 1u);
    EXPECT_EQ(capture.Reports()[0].message, "Pool queue is empty: there is no element to take.");
    EXPECT_EQ(capture.Reports()[0].channel, LogAssertProgrammer);
    EXPECT_EQ(queue.GetCount(), 0u);
    EXPECT_EQ(queue.GetHead(), -1);
    EXPECT_TRUE(queue.Validate());
}

TEST_F(PoolQueueTest, MatchesADequeUnderRandomPushesAndPops) {
    PoolQueue<int> queue;
    std::deque<int> model;
    std::mt19937 random(1234);
    int nextValue = 0;
    for (int step = 0; step < 5000; ++step) {
        if (random() % 100 < 55 || model.empty()) {
            queue.Push(nextValue);
            model.push_back(nextValue++);
        } else {
            ASSERT_EQ(queue.Pop(), model.front()) << "step " << step;
            model.pop_front();
        }
        ASSERT_TRUE(queue.Validate()) << "step " << step;
        ASSERT_EQ(queue.GetCount(), model.size());
        if (model.empty()) {
            ASSERT_EQ(queue.GetHead(), -1);
        }
    }
    EXPECT_EQ(QueuedInOrder(queue), std::vector<int>(model.begin(), model.end()));
}

TEST_F(PoolQueueTest, GlobalHeapInUseReturnsWhenTheQueueIsDestroyed) {
    size_t before = GetHeapGLOBAL().GetMemoryInUse();
    {
        PoolQueue<int*> queue;
        for (int value = 0; value < 100; ++value) {
            queue.Push(nullptr);
        }
        EXPECT_GT(GetHeapGLOBAL().GetMemoryInUse(), before + 100 * sizeof(int*) - 1);
    }
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), before);
}

// ---------------------------------------------------------------------------------------------
// PoolMemory and MemoryTrackerPoolMemory

// Lets a test forget a block's storage, so a copy that shares it can be destroyed safely.
class ForgettingPoolMemory : public PoolMemory {
public:
    explicit ForgettingPoolMemory(const PoolMemory& other) : PoolMemory(other) {}
    void Forget() { m_Memory = nullptr; }
};

TEST_F(PoolMemoryTest, DefaultBlockHoldsNothing) {
    PoolMemory block;
    EXPECT_EQ(block.GetNext(), nullptr);
    EXPECT_EQ(block.GetMemory(), nullptr);
    EXPECT_EQ(block.GetName(), nullptr);
}

TEST_F(PoolMemoryTest, SizedBlockIsClearedNamedAndCountedInGlobal) {
    // Leave dirty memory behind in "GLOBAL", so that storage that is not cleared shows.
    void* dirty = MemoryManager::GlobalMalloc(256, 0);
    std::memset(dirty, 0xAB, 256);
    MemoryManager::GlobalFree(dirty, 0);

    static const char* const kName = "Block Pool";
    size_t before = GetHeapGLOBAL().GetMemoryInUse();
    PoolMemory* block = new PoolMemory(256, kName);
    ASSERT_NE(block, nullptr);
    ASSERT_NE(block->GetMemory(), nullptr);
    EXPECT_EQ(block->GetName(), kName);
    EXPECT_EQ(block->GetNext(), nullptr);
    const auto* bytes = static_cast<const unsigned char*>(block->GetMemory());
    EXPECT_TRUE(std::all_of(bytes, bytes + 256, [](unsigned char byte) { return byte == 0; }));
    EXPECT_GE(GetHeapGLOBAL().GetMemoryInUse(), before + 256);
    delete block;
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), before);
}

TEST_F(PoolMemoryTest, CopySharesTheStoragePointer) {
    PoolMemory original(64, "Shared");
    PoolMemory next;
    original.SetNext(&next);
    ForgettingPoolMemory copy(original);
    EXPECT_EQ(copy.GetMemory(), original.GetMemory());
    EXPECT_EQ(copy.GetName(), original.GetName());
    EXPECT_EQ(copy.GetNext(), &next);
    copy.Forget();

    PoolMemory assigned;
    assigned = next;
    EXPECT_EQ(assigned.GetMemory(), nullptr);
}

TEST_F(PoolMemoryTest, TrackerBlockTakesMallocStorageAndCountsItInTheTally) {
    size_t tallyBefore = MemoryTrackerPoolMemory::s_TotalMemoryUsed;
    size_t globalBefore = GetHeapGLOBAL().GetMemoryInUse();
    size_t slack = 0;
    {
        MemoryTrackerPoolMemory block(40, "Tracked");
        ASSERT_NE(block.GetMemory(), nullptr);
        EXPECT_STREQ(block.GetName(), "Tracked");
        const auto* bytes = static_cast<const unsigned char*>(block.GetMemory());
        EXPECT_TRUE(std::all_of(bytes, bytes + 40, [](unsigned char byte) { return byte == 0; }));
        EXPECT_EQ(MemoryTrackerPoolMemory::s_TotalMemoryUsed, tallyBefore + 40);
        EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), globalBefore);
        size_t realSize = platform::MallocUsableSize(block.GetMemory());
        ASSERT_GE(realSize, 40u);
        slack = realSize - 40;
    }
    // The destructor takes off the run-time's real size, so the tally is short by its rounding.
    EXPECT_EQ(MemoryTrackerPoolMemory::s_TotalMemoryUsed + slack, tallyBefore);
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), globalBefore);
}

// ---------------------------------------------------------------------------------------------
// BasePool: set-up and growth

TEST_F(PoolTest, StartsUninitializedWithItsDefaults) {
    CountingPool<> pool;
    EXPECT_FALSE(pool.IsInitialized());
    EXPECT_STREQ(pool.GetName(), "GENERIC-POOL");
    EXPECT_EQ(pool.GetMaximumSize(), 0u);
    EXPECT_EQ(pool.GetGrowCount(), 0u);
    EXPECT_EQ(pool.GetInitialSize(), 0u);
    EXPECT_EQ(pool.GetCurrentSize(), 0u);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_EQ(pool.GetPeakUsed(), 0u);
    EXPECT_EQ(pool.GetBlocks(), nullptr);
    EXPECT_EQ(CountingElement::s_Counts.built, 0);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, SetupBuildsTheFirstBlockInAddressOrder) {
    static const char* const kName = "Node Pool";
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup(kName, 100, 4, 2));
    EXPECT_TRUE(pool.IsInitialized());
    EXPECT_EQ(pool.GetName(), kName);
    EXPECT_EQ(pool.GetMaximumSize(), 100u);
    EXPECT_EQ(pool.GetInitialSize(), 4u);
    EXPECT_EQ(pool.GetGrowCount(), 2u);
    EXPECT_EQ(pool.GetCurrentSize(), 4u);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_EQ(pool.GetFreeCount(), 4u);
    EXPECT_EQ(pool.GetBlockCount(), 1u);
    EXPECT_EQ(pool.GetBlocks()->GetName(), kName);
    EXPECT_EQ(CountingElement::s_Counts.built, 4);
    auto* slot = static_cast<CountingElement*>(pool.GetBlocks()->GetMemory());
    std::vector<CountingElement*> queued = QueuedInOrder(pool.GetFreeQueue());
    EXPECT_EQ(queued, (std::vector<CountingElement*>{slot, slot + 1, slot + 2, slot + 3}));
    EXPECT_EQ(queued[2]->m_Id, 2);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, InitialTwoGrowOneHasTwoBlocksAfterThreeGets) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Small", 100, 2, 1));
    for (int get = 0; get < 3; ++get) {
        EXPECT_NE(pool.GetFreeObject(), nullptr);
    }
    EXPECT_EQ(pool.GetCurrentSize(), 3u);
    EXPECT_EQ(pool.GetBlockCount(), 2u);
    EXPECT_EQ(pool.GetUsedCount(), 3u);
    EXPECT_EQ(CountingElement::s_Counts.built, 3);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, GetsUpToTheInitialSizeDoNotGrowAndOneMoreDoes) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Exact", 100, 5, 3));
    std::vector<CountingElement*> taken;
    for (int get = 0; get < 5; ++get) {
        taken.push_back(pool.GetFreeObject());
    }
    EXPECT_EQ(pool.m_GetMoreCalls, 0);
    EXPECT_EQ(pool.GetCurrentSize(), 5u);
    CountingElement* sixth = pool.GetFreeObject();
    EXPECT_EQ(pool.m_GetMoreCalls, 1);
    EXPECT_EQ(pool.GetCurrentSize(), 8u);
    EXPECT_EQ(pool.GetFreeCount(), 2u);
    // The new block is the chain's head, and its first slot is handed out first.
    EXPECT_EQ(sixth, pool.GetBlocks()->GetMemory());
    EXPECT_EQ(pool.GetBlocks()->GetNext()->GetMemory(), taken[0]);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, GrowingPastTheMaximumWarnsAndStillGrows) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Capped", 10, 10, 5));
    ScopedCapture capture;
    for (int get = 0; get < 10; ++get) {
        pool.GetFreeObject();
    }
    EXPECT_TRUE(capture.Reports().empty());
    EXPECT_NE(pool.GetFreeObject(), nullptr);
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, GrowthWarning("Capped", 15, 10));
    EXPECT_EQ(reports[0].channel, LogInfo);
    EXPECT_TRUE(EndsWith(reports[0].function, "GetMore")) << reports[0].function;
    EXPECT_EQ(pool.GetCurrentSize(), 15u);
    EXPECT_EQ(pool.GetBlockCount(), 2u);
    EXPECT_EQ(pool.GetUsedCount(), 11u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, GrowingExactlyToTheMaximumWarnsAndBelowItDoesNot) {
    CountingPool<> below;
    ASSERT_TRUE(below.Setup("Roomy", 10, 2, 2));
    CountingPool<> reaching;
    ASSERT_TRUE(reaching.Setup("Tight", 10, 5, 5));
    ScopedCapture capture;
    for (int get = 0; get < 3; ++get) {
        below.GetFreeObject();
    }
    EXPECT_EQ(below.m_GetMoreCalls, 1);
    EXPECT_TRUE(capture.Reports().empty());
    for (int get = 0; get < 6; ++get) {
        reaching.GetFreeObject();
    }
    ASSERT_EQ(capture.Reports().size(), 1u);
    EXPECT_EQ(capture.Reports()[0].message, GrowthWarning("Tight", 10, 10));
    EXPECT_EQ(reaching.GetCurrentSize(), 10u);
    for (int get = 0; get < 3; ++get) {
        below.GetFreeObject();
    }
    reaching.GetMore();
    EXPECT_EQ(capture.Reports().size(), 2u);
    EXPECT_EQ(capture.Reports()[1].message, GrowthWarning("Tight", 15, 10));
}

TEST_F(PoolTest, ZeroGrowCountReportsAndTheGetGivesNull) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Fixed", 100, 2, 0));
    pool.GetFreeObject();
    pool.GetFreeObject();
    ScopedCapture capture;
    EXPECT_EQ(pool.GetFreeObject(), nullptr);
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0].message, "Pool Fixed : Need to grow, but can't... GrowCount is 0");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_TRUE(EndsWith(reports[0].function, "GetMore")) << reports[0].function;
    EXPECT_EQ(reports[1].message, "Pool (Fixed) has no free object and cannot grow.");
    EXPECT_EQ(pool.GetCurrentSize(), 2u);
    EXPECT_EQ(pool.GetBlockCount(), 1u);
    EXPECT_EQ(pool.GetUsedCount(), 2u);
    EXPECT_EQ(pool.GetFreeQueue().GetHead(), -1);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, ZeroGrowCountAtTheMaximumWarnsBeforeItReports) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Full", 2, 2, 0));
    pool.GetFreeObject();
    pool.GetFreeObject();
    ScopedCapture capture;
    EXPECT_EQ(pool.GetFreeObject(), nullptr);
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], GrowthWarning("Full", 2, 2));
    EXPECT_EQ(messages[1], "Pool Full : Need to grow, but can't... GrowCount is 0");
}

TEST_F(PoolTest, GetBeforeSetupReportsAndGivesNull) {
    CountingPool<> pool;
    ScopedCapture capture;
    EXPECT_EQ(pool.GetFreeObject(), nullptr);
    std::vector<std::string> messages = capture.Messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0], GrowthWarning("GENERIC-POOL", 0, 0));
    EXPECT_EQ(messages[1], "Pool GENERIC-POOL : Need to grow, but can't... GrowCount is 0");
    EXPECT_EQ(messages[2], "Pool (GENERIC-POOL) has no free object and cannot grow.");
    EXPECT_EQ(CountingElement::s_Counts.built, 0);
}

// ---------------------------------------------------------------------------------------------
// BasePool: get and release

TEST_F(PoolTest, ReleasedElementsComeBackFirstInFirstOut) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Fifo", 100, 4, 4));
    CountingElement* a = pool.GetFreeObject();
    CountingElement* b = pool.GetFreeObject();
    CountingElement* c = pool.GetFreeObject();
    CountingElement* d = pool.GetFreeObject();
    pool.ReleaseObject(c);
    pool.ReleaseObject(a);
    pool.ReleaseObject(d);
    EXPECT_EQ(pool.GetFreeObject(), c);
    EXPECT_EQ(pool.GetFreeObject(), a);
    pool.ReleaseObject(b);
    EXPECT_EQ(pool.GetFreeObject(), d);
    EXPECT_EQ(pool.GetFreeObject(), b);
    EXPECT_EQ(pool.m_GetMoreCalls, 0);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, EveryReleaseResetsTheElementAndAGetLeavesItAsReset) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Reset", 100, 1, 1));
    CountingElement* element = pool.GetFreeObject();
    EXPECT_EQ(element->m_Value, CountingElement::kBuiltValue);
    EXPECT_EQ(element->m_ResetCount, 0);
    element->m_Value = 42;
    pool.ReleaseObject(element);
    EXPECT_EQ(element->m_Value, CountingElement::kBuiltValue);
    EXPECT_EQ(element->m_ResetCount, 1);
    element->m_Value = 43;  // what the reset left is what the next get hands out
    EXPECT_EQ(pool.GetFreeObject(), element);
    EXPECT_EQ(element->m_Value, 43);
    EXPECT_EQ(element->m_ResetCount, 1);
    pool.ReleaseObject(element);
    EXPECT_EQ(CountingElement::s_Counts.reset, 2);
    EXPECT_EQ(CountingElement::s_Counts.built, 1);
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 0);
}

TEST_F(PoolTest, ElementsAreBuiltOncePerPoolLife) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Reuse", 1000, 8, 8));
    std::vector<CountingElement*> taken;
    int releases = 0;
    for (int round = 0; round < 50; ++round) {
        for (int get = 0; get < 20; ++get) {
            taken.push_back(pool.GetFreeObject());
        }
        for (CountingElement* element : taken) {
            pool.ReleaseObject(element);
            ++releases;
        }
        taken.clear();
        ASSERT_TRUE(pool.Validate()) << "round " << round;
    }
    EXPECT_EQ(pool.GetCurrentSize(), 24u);
    EXPECT_EQ(CountingElement::s_Counts.built, 24);
    EXPECT_EQ(CountingElement::s_Counts.reset, releases);
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 0);
    pool.Release();
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 24);
}

TEST_F(PoolTest, QueueHeadReturnsToMinusOneEachTimeThePoolRunsEmpty) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Empty", 100, 2, 2));
    CountingElement* first = pool.GetFreeObject();
    pool.GetFreeObject();
    EXPECT_EQ(pool.GetFreeQueue().GetHead(), -1);
    pool.GetFreeObject();
    EXPECT_GE(pool.GetFreeQueue().GetHead(), 0);
    pool.GetFreeObject();
    EXPECT_EQ(pool.GetFreeQueue().GetHead(), -1);
    pool.ReleaseObject(first);
    EXPECT_GE(pool.GetFreeQueue().GetHead(), 0);
    EXPECT_EQ(pool.GetFreeObject(), first);
    EXPECT_EQ(pool.GetFreeQueue().GetHead(), -1);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, PeakUsedStaysAtTheHighestUntilRelease) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Peak", 100, 4, 4));
    std::vector<CountingElement*> taken;
    for (int get = 0; get < 6; ++get) {
        taken.push_back(pool.GetFreeObject());
    }
    for (int release = 0; release < 5; ++release) {
        pool.ReleaseObject(taken.back());
        taken.pop_back();
    }
    EXPECT_EQ(pool.GetUsedCount(), 1u);
    EXPECT_EQ(pool.GetPeakUsed(), 6u);
    taken.push_back(pool.GetFreeObject());
    EXPECT_EQ(pool.GetPeakUsed(), 6u);
    for (CountingElement* element : taken) {
        pool.ReleaseObject(element);
    }
    EXPECT_EQ(pool.GetPeakUsed(), 6u);
    pool.Release();
    EXPECT_EQ(pool.GetPeakUsed(), 0u);
}

TEST_F(PoolTest, UnmatchedReleaseReportsAndWrapsTheUsedCount) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Twice", 100, 1, 1));
    CountingElement* element = pool.GetFreeObject();
    pool.ReleaseObject(element);
    EXPECT_TRUE(pool.Validate());
    {
        ScopedCapture capture;
        pool.ReleaseObject(element);
        std::vector<CapturedReport> reports = capture.Reports();
        ASSERT_EQ(reports.size(), 1u);
        EXPECT_EQ(reports[0].message, "Used count will be negative!");
        EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
        EXPECT_TRUE(EndsWith(reports[0].function, "ReleaseObject")) << reports[0].function;
    }
    EXPECT_EQ(pool.GetUsedCount(), UINT_MAX);
    EXPECT_EQ(pool.GetFreeCount(), 2u);
    EXPECT_EQ(element->m_ResetCount, 2);
    // The element is queued twice: the counts still add up, the queue does not.
    EXPECT_FALSE(pool.Validate());
    EXPECT_EQ(pool.GetFreeObject(), element);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, ReleasingNullReportsAndChangesNothing) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Nulls", 100, 2, 1));
    pool.GetFreeObject();
    ScopedCapture capture;
    pool.ReleaseObject(nullptr);
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"Pool (Nulls) cannot release a null object."}));
    EXPECT_EQ(pool.GetUsedCount(), 1u);
    EXPECT_EQ(pool.GetFreeCount(), 1u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, PlainElementWithAResetMemberCanBePooled) {
    PlainChildrenPool pool;
    ASSERT_TRUE(pool.Setup("NodeChildren Pool", 40000, 3, 1));
    PlainChildren* children = pool.GetFreeObject();
    children->m_Count = 5;
    children->m_Capacity = 8;
    pool.ReleaseObject(children);
    EXPECT_EQ(children->m_Count, 0);
    EXPECT_EQ(children->m_Capacity, 0);
    EXPECT_EQ(pool.GetFreeQueue().PeekAt(2), children);
    EXPECT_TRUE(pool.Validate());
}

// ---------------------------------------------------------------------------------------------
// BasePool: release and life

TEST_F(PoolTest, ReleaseWithElementsOutReportsAndDestroysOnlyTheFreeOnes) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Nodes", 100, 4, 2));
    int firstId = pool.GetFreeObject()->m_Id;
    int secondId = pool.GetFreeObject()->m_Id;
    ScopedCapture capture;
    pool.Release();
    std::vector<CapturedReport> reports = capture.Reports();
    ASSERT_EQ(reports.size(), 1u);
    EXPECT_EQ(reports[0].message, "Deleting a pool (Nodes) which still has 2 objects used.");
    EXPECT_EQ(reports[0].channel, LogAssertProgrammer);
    EXPECT_TRUE(EndsWith(reports[0].function, "::Release")) << reports[0].function;
    std::vector<int> destroyed = CountingElement::s_Counts.destroyedIds;
    std::sort(destroyed.begin(), destroyed.end());
    EXPECT_EQ(destroyed, (std::vector<int>{2, 3}));
    EXPECT_EQ(std::count(destroyed.begin(), destroyed.end(), firstId), 0);
    EXPECT_EQ(std::count(destroyed.begin(), destroyed.end(), secondId), 0);

    EXPECT_FALSE(pool.IsInitialized());
    EXPECT_EQ(pool.GetBlocks(), nullptr);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_EQ(pool.GetPeakUsed(), 0u);
    EXPECT_EQ(pool.GetFreeCount(), 0u);
    // The sizes and the name stay.
    EXPECT_STREQ(pool.GetName(), "Nodes");
    EXPECT_EQ(pool.GetMaximumSize(), 100u);
    EXPECT_EQ(pool.GetInitialSize(), 4u);
    EXPECT_EQ(pool.GetGrowCount(), 2u);
    EXPECT_EQ(pool.GetCurrentSize(), 4u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, CanBeSetUpAgainAfterRelease) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("First", 100, 3, 1));
    CountingElement* element = pool.GetFreeObject();
    pool.ReleaseObject(element);
    pool.Release();
    ASSERT_TRUE(pool.Setup("Second", 50, 5, 2));
    EXPECT_TRUE(pool.IsInitialized());
    EXPECT_STREQ(pool.GetName(), "Second");
    EXPECT_EQ(pool.GetCurrentSize(), 5u);
    EXPECT_EQ(pool.GetFreeCount(), 5u);
    EXPECT_EQ(pool.GetBlockCount(), 1u);
    EXPECT_EQ(CountingElement::s_Counts.built, 8);
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 3);
    for (int get = 0; get < 6; ++get) {
        EXPECT_NE(pool.GetFreeObject(), nullptr);
    }
    EXPECT_EQ(pool.GetCurrentSize(), 7u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, SetupOfAPoolInUseReleasesItUnderTheNewName) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Old", 100, 3, 1));
    pool.GetFreeObject();
    ScopedCapture capture;
    ASSERT_TRUE(pool.Setup("New", 100, 2, 1));
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"Deleting a pool (New) which still has 1 objects used."}));
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 2);
    EXPECT_EQ(CountingElement::s_Counts.built, 5);
    EXPECT_EQ(pool.GetUsedCount(), 0u);
    EXPECT_TRUE(pool.Validate());
}

TEST_F(PoolTest, DestructionReleasesAndReportsElementsStillOut) {
    ScopedCapture capture;
    {
        CountingPool<> pool;
        ASSERT_TRUE(pool.Setup("Scoped", 100, 3, 1));
        pool.GetFreeObject();
    }
    EXPECT_EQ(capture.Messages(),
              (std::vector<std::string>{"Deleting a pool (Scoped) which still has 1 objects used."}));
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 2);
}

TEST_F(PoolTest, GlobalHeapInUseReturnsToItsStartAfterThePoolIsDestroyed) {
    size_t before = GetHeapGLOBAL().GetMemoryInUse();
    {
        CountingPool<> pool;
        ASSERT_TRUE(pool.Setup("Accounted", 1000, 16, 8));
        std::vector<CountingElement*> taken;
        for (int get = 0; get < 40; ++get) {
            taken.push_back(pool.GetFreeObject());
        }
        EXPECT_GE(GetHeapGLOBAL().GetMemoryInUse(), before + 40 * sizeof(CountingElement));
        for (CountingElement* element : taken) {
            pool.ReleaseObject(element);
        }
        EXPECT_TRUE(pool.Validate());
    }
    EXPECT_EQ(GetHeapGLOBAL().GetMemoryInUse(), before);
    EXPECT_EQ(CountingElement::s_Counts.destroyed, CountingElement::s_Counts.built);
}

TEST_F(PoolTest, TrackerPoolTallyReturnsAfterThePoolIsDestroyed) {
    size_t tallyBefore = MemoryTrackerPoolMemory::s_TotalMemoryUsed;
    size_t slack = 0;
    {
        CountingPool<MemoryTrackerPoolMemory> pool;
        ASSERT_TRUE(pool.Setup("Tracked Pool", 100, 5, 3));
        std::vector<CountingElement*> taken;
        for (int get = 0; get < 9; ++get) {
            taken.push_back(pool.GetFreeObject());
        }
        ASSERT_EQ(pool.GetBlockCount(), 3u);
        EXPECT_EQ(MemoryTrackerPoolMemory::s_TotalMemoryUsed, tallyBefore + 11 * sizeof(CountingElement));
        for (const PoolMemory* block = pool.GetBlocks(); block != nullptr; block = block->GetNext()) {
            size_t asked = (block->GetNext() == nullptr ? 5 : 3) * sizeof(CountingElement);
            slack += platform::MallocUsableSize(block->GetMemory()) - asked;
        }
        for (CountingElement* element : taken) {
            pool.ReleaseObject(element);
        }
        EXPECT_TRUE(pool.Validate());
    }
    EXPECT_EQ(MemoryTrackerPoolMemory::s_TotalMemoryUsed + slack, tallyBefore);
    EXPECT_EQ(CountingElement::s_Counts.destroyed, 11);
}

// Random gets and releases against a model of the free queue, checking the pool after each step.
TEST_F(PoolTest, StressMatchesAModelOfTheFreeQueue) {
    CountingPool<> pool;
    ASSERT_TRUE(pool.Setup("Stress", 100000, 8, 4));
    std::vector<CountingElement*> firstBlock = QueuedInOrder(pool.GetFreeQueue());
    std::deque<CountingElement*> freeModel(firstBlock.begin(), firstBlock.end());
    std::vector<CountingElement*> out;
    std::mt19937 random(20240601);
    unsigned int peak = 0;
    for (int step = 0; step < 4000; ++step) {
        bool get = out.empty() || random() % 100 < 52;
        if (get) {
            bool mustGrow = freeModel.empty();
            CountingElement* element = pool.GetFreeObject();
            ASSERT_NE(element, nullptr);
            if (mustGrow) {
                // A new block: its first slot comes out, the rest are queued in address order.
                auto* slot = static_cast<CountingElement*>(pool.GetBlocks()->GetMemory());
                ASSERT_EQ(element, slot) << "step " << step;
                for (unsigned int index = 1; index < pool.GetGrowCount(); ++index) {
                    freeModel.push_back(slot + index);
                }
            } else {
                ASSERT_EQ(element, freeModel.front()) << "step " << step;
                freeModel.pop_front();
            }
            out.push_back(element);
        } else {
            size_t index = random() % out.size();
            pool.ReleaseObject(out[index]);
            freeModel.push_back(out[index]);
            out[index] = out.back();
            out.pop_back();
        }
        peak = std::max(peak, static_cast<unsigned int>(out.size()));
        ASSERT_TRUE(pool.Validate()) << "step " << step;
        ASSERT_EQ(pool.GetUsedCount(), out.size());
        ASSERT_EQ(pool.GetFreeCount(), freeModel.size());
        ASSERT_EQ(pool.GetPeakUsed(), peak);
    }
    EXPECT_EQ(QueuedInOrder(pool.GetFreeQueue()),
              std::vector<CountingElement*>(freeModel.begin(), freeModel.end()));
    EXPECT_EQ(pool.GetCurrentSize(), 8u + 4u * (pool.GetBlockCount() - 1));
    EXPECT_EQ(static_cast<unsigned int>(CountingElement::s_Counts.built), pool.GetCurrentSize());
    for (CountingElement* element : out) {
        pool.ReleaseObject(element);
    }
    EXPECT_TRUE(pool.Validate());
    pool.Release();
    EXPECT_EQ(CountingElement::s_Counts.destroyed, CountingElement::s_Counts.built);
}

}  // namespace
}  // namespace zn::test
