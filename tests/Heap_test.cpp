// Heap accounting, the aligned layout, the sticky in-place flag, walks and the heap list.
#include "CoreLib/Heap.h"

#include "CoreLib/MemoryManager.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;

// A private heap made and created for one test, unmapped at the end.
class PrivateHeap {
public:
    explicit PrivateHeap(unsigned int fixedSize = 0, unsigned int alignment = 4)
        : m_Heap("TEST", 77, fixedSize, alignment, false) {
        m_Heap.Create();
    }
    ~PrivateHeap() { platform::HeapDestroy(m_Heap.GetHandle()); }
    Heap* operator->() { return &m_Heap; }
    Heap& operator*() { return m_Heap; }

private:
    Heap m_Heap;
};

using HeapTest = CoreLibFixture;

TEST_F(HeapTest, CreateMakesAValidHeapThatMeasuresItself) {
    Heap heap("FRESH", 9, 0, 4, false);
    EXPECT_FALSE(heap.IsHeapValid());
    EXPECT_EQ(heap.GetHandle(), nullptr);
    EXPECT_TRUE(heap.Create());
    EXPECT_TRUE(heap.IsHeapValid());
    EXPECT_STREQ(heap.GetHeapName(), "FRESH");
    EXPECT_EQ(heap.GetHeapID(), 9);
    EXPECT_TRUE(heap.IsHeap(9));
    EXPECT_FALSE(heap.IsHeapFixedSize());
    EXPECT_FALSE(heap.IsHeapObjectStatic());
    EXPECT_GT(heap.GetMemoryReserved(), 0u) << "Create walks the new heap";
    EXPECT_EQ(heap.GetMemoryInUse(), 0u);
    Heap copy(heap);
    EXPECT_EQ(copy.GetHandle(), heap.GetHandle());
    EXPECT_TRUE(copy.IsHeapValid());
    heap.Destroy();
    EXPECT_FALSE(heap.IsHeapValid());
    platform::HeapDestroy(copy.GetHandle());
}

TEST_F(HeapTest, AlignedBlockHasItsBackPointerAndFreesToTheSameCount) {
    PrivateHeap heap;
    size_t before = heap->GetMemoryInUse();
    size_t size = 100;
    void* p = heap->Alloc(size, 16);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(size, 100u + 16 + 7) << "alignment + 7 extra bytes";
    EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    void* block = *(static_cast<void**>(p) - 1);
    EXPECT_LT(block, p);
    EXPECT_EQ(heap->GetMemoryInUse(), before + platform::HeapSize(heap->GetHandle(), 0, block));
    EXPECT_EQ(heap->SizeOf(p, 16), size) << "padding and slack included";
    std::memset(p, 0x5A, 100);
    size_t freed = 0;
    EXPECT_TRUE(heap->Free(p, freed, 16));
    EXPECT_EQ(freed, size);
    EXPECT_EQ(heap->GetMemoryInUse(), before);
}

TEST_F(HeapTest, EveryPowerOfTwoAlignmentFitsItsBlock) {
    PrivateHeap heap;
    for (unsigned int alignment = 1; alignment <= 64; alignment *= 2) {
        for (size_t asked : {size_t{0}, size_t{1}, size_t{13}, size_t{64}, size_t{1000}}) {
            size_t size = asked;
            auto* p = static_cast<char*>(heap->Alloc(size, alignment));
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignment, 0u);
            auto* block = static_cast<char*>(*(reinterpret_cast<void**>(p) - 1));
            EXPECT_LE(p + asked, block + size) << "user data inside the platform block";
            std::memset(p, 1, asked);
            size_t freed = 0;
            EXPECT_TRUE(heap->Free(p, freed, alignment));
        }
    }
    EXPECT_EQ(heap->GetMemoryInUse(), 0u);
}

TEST_F(HeapTest, UnalignedRequestKeepsTheSize) {
    PrivateHeap heap;
    size_t size = 40;
    void* p = heap->Alloc(size, 0);
    EXPECT_EQ(size, 40u);
    EXPECT_EQ(heap->GetMemoryInUse(), 40u);
    size_t freed = 0;
    heap->Free(p, freed, 0);
}

TEST_F(HeapTest, BadAlignmentsUpTo64AreReportedAndUsed) {
    ScopedCapture capture;
    PrivateHeap heap;
    size_t size = 10;
    void* p = heap->Alloc(size, 3);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(size, 10u + 3 + 7);
    size_t freed = 0;
    EXPECT_TRUE(heap->Free(p, freed, 3));
    size = 10;
    p = heap->Alloc(size, 96);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(heap->Free(p, freed, 96));
    EXPECT_THAT(capture.Messages(),
                ElementsAre("Requested alignment is not valid: 3", "Requested alignment is not valid: 3"));
    capture.Logger().Clear();
    Heap odd("ODD", 5, 0, 12, false);
    EXPECT_THAT(capture.Messages(), ElementsAre("Requested alignment is not valid: 12"));
}

TEST_F(HeapTest, ReallocOfNullAllocatesAndLeavesOldSizeAlone) {
    PrivateHeap heap;
    size_t oldSize = 12345;
    void* p = heap->Realloc(nullptr, 64, oldSize, 0);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(oldSize, 12345u);
    EXPECT_EQ(heap->GetMemoryInUse(), 64u);
    size_t freed = 0;
    heap->Free(p, freed, 0);
}

TEST_F(HeapTest, FixedHeapRefusesReallocationsAboveItsBlockLimit) {
    PrivateHeap heap(0x100000);
    EXPECT_TRUE(heap->IsHeapFixedSize());
    size_t size = 100;
    void* p = heap->Alloc(size, 0);
    ASSERT_NE(p, nullptr);
    size_t inUse = heap->GetMemoryInUse();
    size_t oldSize = 7;
    EXPECT_EQ(heap->Realloc(p, 519169, oldSize, 0), nullptr);
    EXPECT_EQ(oldSize, 7u) << "nothing touched";
    EXPECT_EQ(heap->GetMemoryInUse(), inUse);
    size = 64;
    void* aligned = heap->Alloc(size, 16);
    ASSERT_NE(aligned, nullptr);
    EXPECT_EQ(heap->Realloc(aligned, 519168 - 22, oldSize, 16), nullptr)
        << "alignment + 7 count in the request";
    aligned = heap->Realloc(aligned, 519168 - 23, oldSize, 16);
    ASSERT_NE(aligned, nullptr);
    size_t freed = 0;
    heap->Free(aligned, freed, 16);
    void* grown = heap->Realloc(p, 519168, oldSize, 0);
    EXPECT_NE(grown, nullptr);
}

TEST_F(HeapTest, GrowthMovesBeforeAnyShrinkButIsInPlaceOnlyAfterOne) {
    PrivateHeap heap;
    size_t size = 256;
    auto* first = static_cast<char*>(heap->Alloc(size, 0));
    size = 256;
    void* neighbour = heap->Alloc(size, 0);
    size = 4096;
    auto* other = static_cast<char*>(heap->Alloc(size, 0));
    ASSERT_TRUE(first && neighbour && other);
    std::memset(first, 'f', 256);

    // Before any shrink: the block cannot grow where it is, so it moves.
    size_t oldSize = 0;
    auto* moved = static_cast<char*>(heap->Realloc(first, 8192, oldSize, 0));
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(oldSize, 256u);
    EXPECT_EQ(moved[255], 'f');
    EXPECT_EQ(heap->GetReallocFlags() & Heap::kReallocInPlaceOnly, 0u);

    // A successful shrink leaves the in-place-only flag set.
    void* shrunk = heap->Realloc(other, 1024, oldSize, 0);
    EXPECT_EQ(shrunk, other);
    EXPECT_NE(heap->GetReallocFlags() & Heap::kReallocInPlaceOnly, 0u);

    // Now the same kind of growth fails, the block stays, and its size stays out of the count.
    size = 256;
    void* blocked = heap->Alloc(size, 0);
    size = 256;
    void* wall = heap->Alloc(size, 0);
    ASSERT_TRUE(blocked && wall);
    size_t inUse = heap->GetMemoryInUse();
    EXPECT_EQ(heap->Realloc(blocked, 8192, oldSize, 0), nullptr);
    EXPECT_EQ(oldSize, 256u);
    EXPECT_EQ(heap->GetMemoryInUse(), inUse - 256);
    EXPECT_EQ(platform::HeapSize(heap->GetHandle(), 0, blocked), 256u) << "the block is untouched";
}

TEST_F(HeapTest, FreeOfNullIsFalseAndCountsNothing) {
    PrivateHeap heap;
    size_t size = 8;
    void* p = heap->Alloc(size, 0);
    size_t inUse = heap->GetMemoryInUse();
    size_t freed = 99;
    EXPECT_FALSE(heap->Free(nullptr, freed, 0));
    EXPECT_FALSE(heap->Free(nullptr, freed, 16));
    EXPECT_EQ(freed, 99u);
    EXPECT_EQ(heap->GetMemoryInUse(), inUse);
    heap->Free(p, freed, 0);
}

TEST_F(HeapTest, AvailableWrapsAroundUntilTheNextWalk) {
    PrivateHeap heap;
    size_t reserved = heap->GetMemoryReserved();
    std::vector<void*> blocks;
    while (heap->GetMemoryInUse() <= reserved) {
        size_t size = 65536;
        blocks.push_back(heap->Alloc(size, 0));
        ASSERT_NE(blocks.back(), nullptr);
    }
    EXPECT_EQ(heap->GetMemoryReserved(), reserved) << "only a walk updates it";
    EXPECT_GT(heap->GetMemoryAvailable(), size_t{1} << 63) << "reserved minus in use wrapped";
    heap->OnQueryMemorySize(nullptr);
    EXPECT_GT(heap->GetMemoryReserved(), heap->GetMemoryInUse());
    EXPECT_LT(heap->GetMemoryAvailable(), size_t{1} << 63);
}

TEST_F(HeapTest, ReservedIsTheSumOfWhatTheWalkSees) {
    PrivateHeap heap;
    for (size_t size : {10, 100, 1000, 10000}) {
        size_t request = size;
        heap->Alloc(request, 0);
    }
    heap->OnQueryMemorySize(nullptr);
    size_t expected = 0;
    platform::HeapWalkEntry entry{};
    platform::HeapLock(heap->GetHandle());
    while (platform::HeapWalk(heap->GetHandle(), &entry)) {
        expected += entry.cbData + entry.cbOverhead;
    }
    platform::HeapUnlock(heap->GetHandle());
    EXPECT_EQ(heap->GetMemoryReserved(), expected);
}

TEST_F(HeapTest, OwnershipIsFoundByWalking) {
    PrivateHeap heap;
    size_t size = 48;
    auto* p = static_cast<char*>(heap->Alloc(size, 0));
    int onStack = 0;
    EXPECT_TRUE(heap->IsPtrOwned(p));
    EXPECT_TRUE(heap->IsPtrOwned(p + 47));
    EXPECT_FALSE(heap->IsPtrOwned(&onStack));
    EXPECT_EQ(HeapBase::FindHeapByPtr(&onStack), nullptr);
    size = 64;
    void* large = MemoryManager::LargeBlockMalloc(64, 0);
    EXPECT_EQ(HeapBase::FindHeapByPtr(large), &GetHeapLARGEBLOCK());
    MemoryManager::LargeBlockFree(large, 0);
}

TEST_F(HeapTest, HeapListFindsByIdAndUnlinks) {
    EXPECT_EQ(HeapBase::FindHeapByID(0), &GetHeapGLOBAL());
    EXPECT_EQ(HeapBase::FindHeapByID(3), &GetHeapDEBUGHEAP());
    EXPECT_EQ(HeapBase::FindHeapByID(999), nullptr);
    unsigned short id = 0;
    Heap* extra = MemoryManager::AllocateHeap(false, "EXTRA", id, 0, 8);
    ASSERT_NE(extra, nullptr);
    EXPECT_EQ(HeapBase::FindHeapByID(id), extra);
    EXPECT_TRUE(extra->IsHeapValid()) << "made after the manager, so created at once";
    platform::PlatformHeap* handle = extra->GetHandle();
    EXPECT_TRUE(MemoryManager::FreeHeap(id));
    EXPECT_EQ(HeapBase::FindHeapByID(id), nullptr);
    EXPECT_FALSE(MemoryManager::FreeHeap(id));
    platform::HeapDestroy(handle);
}

// A cache with storage, which the library itself never supplies, to check its range logic.
class CacheWithStorage : public HeapCache {
public:
    CacheWithStorage() {
        m_Entries = m_Storage;
        m_EntryCapacity = 4;
    }
    HeapEntry m_Storage[4] = {};
};

platform::HeapWalkEntry Entry(uintptr_t address, uint32_t size, uint16_t flags) {
    platform::HeapWalkEntry entry{};
    entry.lpData = reinterpret_cast<void*>(address);
    entry.cbData = size;
    entry.wFlags = flags;
    return entry;
}

TEST(HeapCacheTest, WithoutStorageNothingIsStored) {
    HeapCache cache;
    EXPECT_EQ(cache.AppendCache(Entry(0x1000, 16, platform::PROCESS_HEAP_ENTRY_BUSY)), nullptr);
    EXPECT_EQ(cache.GetNumberOfCommittedBlocks(), 0u);
    EXPECT_EQ(cache.GetLowBound(), reinterpret_cast<void*>(~uintptr_t{0}));
    EXPECT_EQ(cache.GetHighBound(), nullptr);
    EXPECT_EQ(cache.CheckBound(reinterpret_cast<void*>(0x1000)), nullptr);
}

TEST(HeapCacheTest, StoresDistinctRangesAndCountsKinds) {
    CacheWithStorage cache;
    EXPECT_EQ(cache.AppendCache(Entry(0x1000, 0, platform::PROCESS_HEAP_ENTRY_BUSY)), nullptr) << "empty";
    HeapCache::HeapEntry* first = cache.AppendCache(Entry(0x1000, 0x100, platform::PROCESS_HEAP_REGION));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->high, reinterpret_cast<void*>(0x10FF));
    // Inside the bounds and touching the last range: already known.
    EXPECT_EQ(cache.AppendCache(Entry(0x1010, 0x10, platform::PROCESS_HEAP_ENTRY_BUSY)), nullptr);
    // An end inside a stored range: already known.
    EXPECT_EQ(cache.AppendCache(Entry(0x10F0, 0x100, platform::PROCESS_HEAP_ENTRY_BUSY)), nullptr);
    ASSERT_NE(cache.AppendCache(Entry(0x3000, 0x10, platform::PROCESS_HEAP_ENTRY_BUSY)), nullptr);
    ASSERT_NE(cache.AppendCache(Entry(0x5000, 0x10, platform::PROCESS_HEAP_UNCOMMITTED_RANGE)), nullptr);
    EXPECT_EQ(cache.GetNumberOfCommittedBlocks(), 2u);
    EXPECT_EQ(cache.GetNumberOfUncommittedRanges(), 1u);
    EXPECT_EQ(cache.GetLowBound(), reinterpret_cast<void*>(0x1000));
    EXPECT_EQ(cache.GetHighBound(), reinterpret_cast<void*>(0x500F));
    EXPECT_EQ(cache.CheckBound(reinterpret_cast<void*>(0x3008)), reinterpret_cast<void*>(0x3000));
    EXPECT_EQ(cache.CheckBound(reinterpret_cast<void*>(0x2000)), nullptr);
    ASSERT_NE(cache.AppendCache(Entry(0x7000, 0x10, 0)), nullptr);
    EXPECT_EQ(cache.AppendCache(Entry(0x9000, 0x10, 0)), nullptr) << "storage full";
}

}  // namespace
}  // namespace zn::test
