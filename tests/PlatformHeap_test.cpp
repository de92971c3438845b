// PlatformHeap_test.cpp: the platform heap against a model of its live blocks, in-place resizing,
// fixed heaps, walks, threads, sanitizer reports and edge cases.
#include "CoreLib/platform/PlatformHeap.h"

#include "CoreLib/platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <latch>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#if ZN_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace zn::platform {
namespace {

constexpr size_t kKiB = 1024;
constexpr size_t kMiB = 1024 * 1024;
constexpr size_t kBlockHeaderSize = 16;

// Destroys a heap made for one test, whatever the test's outcome.
class ScopedHeap {
public:
    ScopedHeap(uint32_t options, size_t initialSize, size_t maximumSize)
        : m_Heap(HeapCreate(options, initialSize, maximumSize)) {}
    ~ScopedHeap() {
        if (m_Heap) {
            HeapDestroy(m_Heap);
        }
    }
    ScopedHeap(const ScopedHeap&) = delete;
    ScopedHeap& operator=(const ScopedHeap&) = delete;

    PlatformHeap* Get() const { return m_Heap; }

private:
    PlatformHeap* m_Heap;
};

// Every entry of a complete walk, taken under the heap lock.
std::vector<HeapWalkEntry> WalkAll(PlatformHeap* heap) {
    std::vector<HeapWalkEntry> entries;
    HeapWalkEntry entry{};
    EXPECT_TRUE(HeapLock(heap));
    while (HeapWalk(heap, &entry)) {
        entries.push_back(entry);
        if (entries.size() > 10'000'000) {
            ADD_FAILURE() << "the walk does not end";
            break;
        }
    }
    EXPECT_TRUE(HeapUnlock(heap));
    return entries;
}

std::vector<HeapWalkEntry> BusyEntries(const std::vector<HeapWalkEntry>& entries) {
    std::vector<HeapWalkEntry> busy;
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(busy),
                 [](const HeapWalkEntry& entry) { return entry.wFlags == PROCESS_HEAP_ENTRY_BUSY; });
    return busy;
}

const HeapWalkEntry* FindEntry(const std::vector<HeapWalkEntry>& entries, const void* data) {
    auto it = std::find_if(entries.begin(), entries.end(),
                           [data](const HeapWalkEntry& entry) { return entry.lpData == data; });
    return it == entries.end() ? nullptr : &*it;
}

::testing::AssertionResult IsValid(PlatformHeap* heap) {
    if (HeapValidate(heap)) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "HeapValidate: " << HeapValidationError(heap);
}

bool IsAligned(const void* block) {
    return reinterpret_cast<uintptr_t>(block) % 16 == 0;
}

bool AllZero(const void* block, size_t bytes) {
    const auto* data = static_cast<const unsigned char*>(block);
    return std::all_of(data, data + bytes, [](unsigned char byte) { return byte == 0; });
}

void Fill(void* block, size_t bytes, unsigned char value) {
    std::memset(block, value, bytes);
}

bool AllEqual(const void* block, size_t bytes, unsigned char value) {
    const auto* data = static_cast<const unsigned char*>(block);
    return std::all_of(data, data + bytes, [value](unsigned char byte) { return byte == value; });
}

// ---- the model test --------------------------------------------------------------------------------

// Random bytes that blocks are filled from: a block with seed s holds kPattern[s, s + size).
class Pattern {
public:
    static constexpr size_t kSeedRange = 4096;
    static constexpr size_t kMaxBytes = 3 * kMiB;

    static const unsigned char* Bytes(uint32_t seed) { return Instance().m_Bytes.data() + seed; }

private:
    Pattern() : m_Bytes(kMaxBytes + kSeedRange) {
        std::mt19937_64 random(20240611);
        for (auto& byte : m_Bytes) {
            byte = static_cast<unsigned char>(random());
        }
    }
    static const Pattern& Instance() {
        static const Pattern s_Pattern;
        return s_Pattern;
    }
    std::vector<unsigned char> m_Bytes;
};

struct ModelBlock {
    size_t m_Size;
    uint32_t m_Seed;
};

// Which heap a model run drives; the process heap may hold blocks that are not the model's.
enum class ModelHeapKind { kSerialised, kUnserialised, kProcess };

class HeapModel {
public:
    HeapModel(PlatformHeap* heap, bool ownsEveryBlock, uint64_t seed)
        : m_Heap(heap), m_OwnsEveryBlock(ownsEveryBlock), m_Random(seed), m_BaseBytes(HeapBytesInUse(heap)) {}

    void Step() {
        uint32_t choice = Draw(100);
        uint32_t allocateBelow = m_Blocks.size() > 2500 ? 20u : 40u;
        if (m_Blocks.size() < 64 || choice < allocateBelow) {
            Allocate();
        } else if (choice < 75) {
            Free(PickBlock());
        } else if (choice < 90) {
            ReAllocate(PickBlock(), false);
        } else {
            ReAllocate(PickBlock(), true);
        }
    }

    void CheckBytesInUse() const { EXPECT_EQ(HeapBytesInUse(m_Heap), m_BaseBytes + m_LiveBytes); }

    // The walk must list the model's blocks as busy, with their sizes, and (on a heap of its own)
    // nothing else as busy.
    void CheckWalk() const {
        std::vector<HeapWalkEntry> busy = BusyEntries(WalkAll(m_Heap));
        std::map<uintptr_t, size_t> listed;
        for (const HeapWalkEntry& entry : busy) {
            listed[reinterpret_cast<uintptr_t>(entry.lpData)] = entry.cbData;
            EXPECT_GE(entry.cbOverhead, kBlockHeaderSize);
        }
        if (m_OwnsEveryBlock) {
            EXPECT_EQ(listed.size(), m_Blocks.size());
        }
        for (const auto& [address, block] : m_Blocks) {
            auto it = listed.find(address);
            ASSERT_NE(it, listed.end()) << "a live block is missing from the walk";
            EXPECT_EQ(it->second, std::min<size_t>(block.m_Size, UINT32_MAX));
        }
    }

    void FreeAll() {
        while (!m_Blocks.empty()) {
            Free(m_Blocks.begin());
        }
    }

private:
    using BlockMap = std::map<uintptr_t, ModelBlock>;

    uint32_t Draw(uint32_t range) { return static_cast<uint32_t>(m_Random() % range); }

    // Mostly small, some medium, a few up to 64 KiB, rarely a block of a megabyte or more.
    size_t DrawSize() {
        uint32_t kind = Draw(1000);
        if (kind < 2) {
            return kMiB + Draw(kMiB);
        }
        if (kind < 620) {
            return Draw(257);
        }
        if (kind < 960) {
            return Draw(4097);
        }
        return Draw(64 * kKiB + 1);
    }

    BlockMap::iterator PickBlock() {
        auto it = m_Blocks.lower_bound(static_cast<uintptr_t>(m_Random()));
        return it == m_Blocks.end() ? m_Blocks.begin() : it;
    }

    static bool HoldsPattern(uintptr_t address, const ModelBlock& block, size_t bytes) {
        return std::memcmp(reinterpret_cast<const void*>(address), Pattern::Bytes(block.m_Seed), bytes) == 0;
    }

    // A new or moved block must be aligned, report its size, and not touch any other live block
    // (its header included).
    void Admit(void* data, size_t size, uint32_t seed) {
        ASSERT_NE(data, nullptr);
        ASSERT_TRUE(IsAligned(data));
        ASSERT_EQ(HeapSize(m_Heap, 0, data), size);
        auto address = reinterpret_cast<uintptr_t>(data);
        auto next = m_Blocks.lower_bound(address);
        if (next != m_Blocks.end()) {
            ASSERT_LE(address + size, next->first - kBlockHeaderSize) << "blocks overlap";
        }
        if (next != m_Blocks.begin()) {
            auto prev = std::prev(next);
            ASSERT_LE(prev->first + prev->second.m_Size, address - kBlockHeaderSize) << "blocks overlap";
        }
        m_Blocks[address] = ModelBlock{size, seed};
        m_LiveBytes += size;
    }

    void Allocate() {
        size_t size = DrawSize();
        bool zeroed = Draw(10) == 0;
        void* data = HeapAlloc(m_Heap, zeroed ? HEAP_ZERO_MEMORY : 0, size);
        ASSERT_NE(data, nullptr);
        if (zeroed) {
            ASSERT_TRUE(AllZero(data, size));
        }
        uint32_t seed = Draw(Pattern::kSeedRange);
        std::memcpy(data, Pattern::Bytes(seed), size);
        Admit(data, size, seed);
    }

    void Free(BlockMap::iterator it) {
        ASSERT_TRUE(HoldsPattern(it->first, it->second, it->second.m_Size)) << "a block's content changed";
        ASSERT_TRUE(HeapFree(m_Heap, 0, reinterpret_cast<void*>(it->first)));
        m_LiveBytes -= it->second.m_Size;
        m_Blocks.erase(it);
    }

    void ReAllocate(BlockMap::iterator it, bool inPlaceOnly) {
        auto* data = reinterpret_cast<void*>(it->first);
        ModelBlock block = it->second;
        size_t size = Draw(4) == 0 ? block.m_Size / 2 : DrawSize();
        bool zeroed = Draw(4) == 0;
        uint32_t flags = (inPlaceOnly ? HEAP_REALLOC_IN_PLACE_ONLY : 0) | (zeroed ? HEAP_ZERO_MEMORY : 0);
        void* result = HeapReAlloc(m_Heap, flags, data, size);
        if (!result) {
            // Only in-place growth may fail here, and it must leave the block as it was.
            ASSERT_TRUE(inPlaceOnly && size > block.m_Size) << "resize to " << size << " failed";
            ASSERT_EQ(HeapSize(m_Heap, 0, data), block.m_Size);
            ASSERT_TRUE(HoldsPattern(it->first, block, block.m_Size));
            return;
        }
        if (inPlaceOnly) {
            ASSERT_EQ(result, data);
        }
        ASSERT_TRUE(HoldsPattern(reinterpret_cast<uintptr_t>(result), block, std::min(block.m_Size, size)))
            << "resizing lost content";
        if (zeroed && size > block.m_Size) {
            ASSERT_TRUE(AllZero(static_cast<char*>(result) + block.m_Size, size - block.m_Size));
        }
        if (size > block.m_Size) {
            std::memcpy(static_cast<char*>(result) + block.m_Size,
                        Pattern::Bytes(block.m_Seed) + block.m_Size, size - block.m_Size);
        }
        m_LiveBytes -= block.m_Size;
        m_Blocks.erase(it);
        Admit(result, size, block.m_Seed);
    }

    PlatformHeap* m_Heap;
    bool m_OwnsEveryBlock;
    std::mt19937_64 m_Random;
    size_t m_BaseBytes;
    size_t m_LiveBytes = 0;
    BlockMap m_Blocks;
};

void RunModel(PlatformHeap* heap, bool ownsEveryBlock, int steps) {
    ASSERT_NE(heap, nullptr);
    HeapModel model(heap, ownsEveryBlock, 0x5EED0001);
    for (int step = 1; step <= steps; ++step) {
        ASSERT_NO_FATAL_FAILURE(model.Step());
        if (step % 97 == 0) {
            ASSERT_NO_FATAL_FAILURE(model.CheckBytesInUse());
        }
        if (step % 1000 == 0) {
            ASSERT_TRUE(IsValid(heap)) << "at step " << step;
        }
        if (step % 10000 == 0) {
            ASSERT_NO_FATAL_FAILURE(model.CheckWalk()) << "at step " << step;
        }
    }
    ASSERT_NO_FATAL_FAILURE(model.CheckWalk());
    ASSERT_NO_FATAL_FAILURE(model.FreeAll());
    ASSERT_NO_FATAL_FAILURE(model.CheckBytesInUse());
    ASSERT_TRUE(IsValid(heap));
}

class PlatformHeapModel : public ::testing::TestWithParam<ModelHeapKind> {};

TEST_P(PlatformHeapModel, RandomOperationsMatchTheModel) {
    switch (GetParam()) {
        case ModelHeapKind::kSerialised: {
            ScopedHeap heap(0, 0, 0);
            RunModel(heap.Get(), true, 200'000);
            EXPECT_TRUE(BusyEntries(WalkAll(heap.Get())).empty());
            break;
        }
        case ModelHeapKind::kUnserialised: {
            ScopedHeap heap(HEAP_NO_SERIALIZE, 0x7EC00, 0);
            RunModel(heap.Get(), true, 200'000);
            EXPECT_TRUE(BusyEntries(WalkAll(heap.Get())).empty());
            break;
        }
        case ModelHeapKind::kProcess:
            RunModel(GetProcessHeap(), false, 100'000);
            break;
    }
}

INSTANTIATE_TEST_SUITE_P(Heaps, PlatformHeapModel,
                         ::testing::Values(ModelHeapKind::kSerialised, ModelHeapKind::kUnserialised,
                                           ModelHeapKind::kProcess),
                         [](const ::testing::TestParamInfo<ModelHeapKind>& info) {
                             switch (info.param) {
                                 case ModelHeapKind::kSerialised:
                                     return "Serialised";
                                 case ModelHeapKind::kUnserialised:
                                     return "Unserialised";
                                 case ModelHeapKind::kProcess:
                                     return "Process";
                             }
                             return "Unknown";
                         });

// ---- resizing --------------------------------------------------------------------------------------

TEST(PlatformHeapReAlloc, ShrinkInPlaceKeepsAddressAndContent) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    auto* block = static_cast<char*>(HeapAlloc(heap.Get(), 0, 3000));
    ASSERT_NE(block, nullptr);
    Fill(block, 3000, 0x5A);
    EXPECT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, block, 100), block);
    EXPECT_EQ(HeapSize(heap.Get(), 0, block), 100u);
    EXPECT_TRUE(AllEqual(block, 100, 0x5A));
    EXPECT_EQ(HeapReAlloc(heap.Get(), 0, block, 40), block);
    EXPECT_EQ(HeapSize(heap.Get(), 0, block), 40u);
    EXPECT_TRUE(AllEqual(block, 40, 0x5A));
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 40u);
    EXPECT_TRUE(IsValid(heap.Get()));
}

// Three blocks cut one after the other from a fresh heap lie in address order.
struct Neighbours {
    char* m_First;
    char* m_Second;
    char* m_Guard;
};

Neighbours AllocateNeighbours(PlatformHeap* heap, size_t size) {
    Neighbours blocks{static_cast<char*>(HeapAlloc(heap, 0, size)),
                      static_cast<char*>(HeapAlloc(heap, 0, size)),
                      static_cast<char*>(HeapAlloc(heap, 0, size))};
    EXPECT_LT(blocks.m_First, blocks.m_Second);
    EXPECT_LT(blocks.m_Second, blocks.m_Guard);
    EXPECT_LE(static_cast<size_t>(blocks.m_Second - blocks.m_First), size + 48);
    return blocks;
}

TEST(PlatformHeapReAlloc, GrowInPlaceTakesTheFreedNeighbour) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    Neighbours blocks = AllocateNeighbours(heap.Get(), 2000);
    Fill(blocks.m_First, 2000, 0x11);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, blocks.m_Second));
    EXPECT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, blocks.m_First, 3500), blocks.m_First);
    EXPECT_EQ(HeapSize(heap.Get(), 0, blocks.m_First), 3500u);
    EXPECT_TRUE(AllEqual(blocks.m_First, 2000, 0x11));
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, GrowInPlaceTakesACachedNeighbour) {
    ScopedHeap heap(0, 0, 0);
    Neighbours blocks = AllocateNeighbours(heap.Get(), 100);
    Fill(blocks.m_First, 100, 0x22);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, blocks.m_Second));  // small: parked in the front cache
    EXPECT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, blocks.m_First, 200), blocks.m_First);
    EXPECT_TRUE(AllEqual(blocks.m_First, 100, 0x22));
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, GrowInPlaceFailsWhenTheNeighbourIsBusy) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    Neighbours blocks = AllocateNeighbours(heap.Get(), 2000);
    Fill(blocks.m_First, 2000, 0x33);
    EXPECT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, blocks.m_First, 2100), nullptr);
    EXPECT_EQ(HeapSize(heap.Get(), 0, blocks.m_First), 2000u);
    EXPECT_TRUE(AllEqual(blocks.m_First, 2000, 0x33));
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 6000u);
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, MovingGrowKeepsContentAndFreesTheOldBlock) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    Neighbours blocks = AllocateNeighbours(heap.Get(), 2000);
    Fill(blocks.m_First, 2000, 0x44);
    auto* moved = static_cast<char*>(HeapReAlloc(heap.Get(), 0, blocks.m_First, 9000));
    ASSERT_NE(moved, nullptr);
    EXPECT_NE(moved, blocks.m_First);
    EXPECT_TRUE(AllEqual(moved, 2000, 0x44));
    EXPECT_EQ(HeapSize(heap.Get(), 0, moved), 9000u);
    EXPECT_EQ(HeapSize(heap.Get(), 0, blocks.m_First), SIZE_MAX);
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 13000u);
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, ZeroMemoryClearsTheAddedBytes) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    auto* block = static_cast<char*>(HeapAlloc(heap.Get(), 0, 1000));
    ASSERT_NE(block, nullptr);
    Fill(block, 1000, 0x55);
    ASSERT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, block, 10), block);
    // The bytes behind the shrunk size still hold 0x55; growing again must not show them.
    ASSERT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY | HEAP_ZERO_MEMORY, block, 900), block);
    EXPECT_TRUE(AllEqual(block, 10, 0x55));
    EXPECT_TRUE(AllZero(block + 10, 890));
    auto* guard = HeapAlloc(heap.Get(), 0, 16);
    auto* moved = static_cast<char*>(HeapReAlloc(heap.Get(), HEAP_ZERO_MEMORY, block, 50'000));
    ASSERT_NE(moved, nullptr);
    EXPECT_TRUE(AllEqual(moved, 10, 0x55));
    EXPECT_TRUE(AllZero(moved + 10, 50'000 - 10));
    EXPECT_TRUE(HeapFree(heap.Get(), 0, guard));
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, LargeBlockGrowsShrinksAndMoves) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    auto* block = static_cast<char*>(HeapAlloc(heap.Get(), 0, 2 * kMiB));
    ASSERT_NE(block, nullptr);
    Fill(block, 2 * kMiB, 0x66);
    ASSERT_EQ(HeapReAlloc(heap.Get(), HEAP_REALLOC_IN_PLACE_ONLY, block, kMiB), block);
    EXPECT_EQ(HeapSize(heap.Get(), 0, block), kMiB);
    auto* grown = static_cast<char*>(HeapReAlloc(heap.Get(), HEAP_ZERO_MEMORY, block, 5 * kMiB));
    ASSERT_NE(grown, nullptr);
    EXPECT_TRUE(AllEqual(grown, kMiB, 0x66));
    EXPECT_TRUE(AllZero(grown + kMiB, 4 * kMiB));
    auto* small = static_cast<char*>(HeapReAlloc(heap.Get(), 0, grown, 100));
    ASSERT_NE(small, nullptr);
    EXPECT_TRUE(AllEqual(small, 100, 0x66));
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 100u);
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, NullBlockGivesNull) {
    ScopedHeap heap(0, 0, 0);
    EXPECT_EQ(HeapReAlloc(heap.Get(), 0, nullptr, 100), nullptr);
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 0u);
}

TEST(PlatformHeapReAlloc, FailureLeavesTheBlockIntact) {
    ScopedHeap heap(0, 0, 0);
    auto* block = static_cast<char*>(HeapAlloc(heap.Get(), 0, 300));
    ASSERT_NE(block, nullptr);
    Fill(block, 300, 0x77);
    EXPECT_EQ(HeapReAlloc(heap.Get(), 0, block, SIZE_MAX - 8), nullptr);
    EXPECT_EQ(HeapReAlloc(heap.Get(), 0, block, size_t{1} << 62), nullptr);
    EXPECT_EQ(HeapSize(heap.Get(), 0, block), 300u);
    EXPECT_TRUE(AllEqual(block, 300, 0x77));
    EXPECT_TRUE(HeapFree(heap.Get(), 0, block));
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, MediumBlockComesBackForTheNextRequestOfItsSize) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    Neighbours blocks = AllocateNeighbours(heap.Get(), 6000);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, blocks.m_Second));
    EXPECT_TRUE(IsValid(heap.Get()));
    std::vector<HeapWalkEntry> walk = WalkAll(heap.Get());
    const HeapWalkEntry* freed = FindEntry(walk, blocks.m_Second);
    ASSERT_NE(freed, nullptr);
    EXPECT_EQ(freed->wFlags, 0);
    EXPECT_EQ(HeapSize(heap.Get(), 0, blocks.m_Second), SIZE_MAX);
    EXPECT_FALSE(HeapFree(heap.Get(), 0, blocks.m_Second));
    auto* again = static_cast<char*>(HeapAlloc(heap.Get(), HEAP_ZERO_MEMORY, 5990));
    EXPECT_EQ(again, blocks.m_Second);
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(AllZero(again, 5990));
    EXPECT_EQ(HeapSize(heap.Get(), 0, again), 5990u);
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 2 * 6000u + 5990u);
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapReAlloc, AFreedLargeMappingIsReusedZeroedAndNotTakenForABlock) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    auto* large = static_cast<char*>(HeapAlloc(heap.Get(), 0, 3 * kMiB));
    ASSERT_NE(large, nullptr);
    Fill(large, 3 * kMiB, 0xAB);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, large));
    EXPECT_FALSE(HeapFree(heap.Get(), 0, large));
    EXPECT_EQ(HeapSize(heap.Get(), 0, large), SIZE_MAX);
    EXPECT_TRUE(BusyEntries(WalkAll(heap.Get())).empty());
    EXPECT_TRUE(IsValid(heap.Get()));
    auto* zeroed = static_cast<char*>(HeapAlloc(heap.Get(), HEAP_ZERO_MEMORY, kMiB));
    ASSERT_NE(zeroed, nullptr);
    EXPECT_TRUE(AllZero(zeroed, kMiB));
    // Growing inside the kept mapping must not show what its last owner left there either.
    auto* grown = static_cast<char*>(HeapReAlloc(heap.Get(), HEAP_ZERO_MEMORY, zeroed, 2 * kMiB));
    ASSERT_NE(grown, nullptr);
    EXPECT_TRUE(AllZero(grown, 2 * kMiB));
    EXPECT_EQ(HeapSize(heap.Get(), 0, grown), 2 * kMiB);
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 2 * kMiB);
    EXPECT_TRUE(IsValid(heap.Get()));
    EXPECT_TRUE(HeapFree(heap.Get(), 0, grown));
}

// ---- fixed heaps -----------------------------------------------------------------------------------

size_t ReservedBytes(PlatformHeap* heap) {
    size_t reserved = 0;
    for (const HeapWalkEntry& entry : WalkAll(heap)) {
        if (entry.wFlags == PROCESS_HEAP_REGION) {
            reserved += size_t{entry.dwCommittedSize} + entry.dwUnCommittedSize;
        }
    }
    return reserved;
}

std::vector<void*> AllocateUntilFull(PlatformHeap* heap, size_t size) {
    std::vector<void*> blocks;
    while (void* block = HeapAlloc(heap, 0, size)) {
        blocks.push_back(block);
        if (blocks.size() > 100'000) {
            ADD_FAILURE() << "a fixed heap never fills";
            break;
        }
    }
    return blocks;
}

TEST(PlatformHeapFixed, RefusesWhenFullAndRecoversAfterFrees) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 64 * kKiB);
    ASSERT_NE(heap.Get(), nullptr);
    std::vector<void*> blocks = AllocateUntilFull(heap.Get(), 1000);
    EXPECT_GE(blocks.size() * 1000, 48 * kKiB) << "a fixed heap wastes too much of its space";
    EXPECT_LE(blocks.size() * 1000, 64 * kKiB);
    EXPECT_EQ(HeapAlloc(heap.Get(), 0, 1000), nullptr);
    EXPECT_EQ(HeapAlloc(heap.Get(), 0, 100 * kKiB), nullptr);
    EXPECT_TRUE(IsValid(heap.Get()));
    for (void* block : blocks) {
        ASSERT_TRUE(HeapFree(heap.Get(), 0, block));
    }
    void* big = HeapAlloc(heap.Get(), 0, 40 * kKiB);
    EXPECT_NE(big, nullptr) << "freed space did not merge";
    EXPECT_TRUE(HeapFree(heap.Get(), 0, big));
    EXPECT_EQ(AllocateUntilFull(heap.Get(), 1000).size(), blocks.size());
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapFixed, CachedSmallBlocksComeBackForALargerRequest) {
    ScopedHeap heap(0, 0, 64 * kKiB);
    ASSERT_NE(heap.Get(), nullptr);
    std::vector<void*> blocks = AllocateUntilFull(heap.Get(), 48);
    EXPECT_GE(blocks.size(), 700u);
    for (void* block : blocks) {
        ASSERT_TRUE(HeapFree(heap.Get(), 0, block));
    }
    EXPECT_NE(HeapAlloc(heap.Get(), 0, 40 * kKiB), nullptr) << "small blocks stayed parked in the cache";
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapFixed, CachedMediumBlocksComeBackForALargerRequest) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 128 * kKiB);
    ASSERT_NE(heap.Get(), nullptr);
    std::vector<void*> blocks = AllocateUntilFull(heap.Get(), 3000);
    EXPECT_GE(blocks.size(), 30u);
    for (void* block : blocks) {
        ASSERT_TRUE(HeapFree(heap.Get(), 0, block));
    }
    EXPECT_TRUE(IsValid(heap.Get()));
    EXPECT_NE(HeapAlloc(heap.Get(), 0, 100 * kKiB), nullptr) << "medium blocks stayed parked in the cache";
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapFixed, NeverReservesMoreThanItsMaximum) {
    ScopedHeap heap(0, 8 * kKiB, 64 * kKiB);
    ASSERT_NE(heap.Get(), nullptr);
    EXPECT_LE(ReservedBytes(heap.Get()), 64 * kKiB);
    std::vector<void*> blocks = AllocateUntilFull(heap.Get(), 700);
    EXPECT_EQ(HeapAlloc(heap.Get(), 0, 300 * kKiB), nullptr);
    EXPECT_LE(ReservedBytes(heap.Get()), 64 * kKiB);
    EXPECT_GT(ReservedBytes(heap.Get()), 60 * kKiB);
    EXPECT_TRUE(IsValid(heap.Get()));
}

TEST(PlatformHeapFixed, AFixedHeapStartsWithItsInitialCommit) {
    ScopedHeap heap(0, 8 * kKiB, 256 * kKiB);
    ASSERT_NE(heap.Get(), nullptr);
    std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());
    ASSERT_FALSE(entries.empty());
    EXPECT_EQ(entries.front().wFlags, PROCESS_HEAP_REGION);
    EXPECT_GE(entries.front().dwCommittedSize, 8 * kKiB);
    EXPECT_EQ(size_t{entries.front().dwCommittedSize} + entries.front().dwUnCommittedSize, 256 * kKiB);
    EXPECT_EQ(entries.back().wFlags, PROCESS_HEAP_UNCOMMITTED_RANGE);
}

// ---- walks -----------------------------------------------------------------------------------------

TEST(PlatformHeapWalk, EmptyHeapHasARegionOneFreeBlockAndAnUncommittedRange) {
    ScopedHeap heap(0, 64 * kKiB, 0);
    std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());
    ASSERT_EQ(entries.size(), 3u);
    const HeapWalkEntry& region = entries[0];
    EXPECT_EQ(region.wFlags, PROCESS_HEAP_REGION);
    EXPECT_EQ(region.iRegionIndex, 0);
    EXPECT_EQ(region.cbOverhead, 0);
    EXPECT_EQ(region.cbData, region.dwCommittedSize);
    EXPECT_GE(region.dwCommittedSize, 64 * kKiB);
    EXPECT_GT(region.dwUnCommittedSize, 0u);
    EXPECT_EQ(entries[1].wFlags, 0);
    EXPECT_EQ(entries[1].lpData, static_cast<char*>(region.lpFirstBlock) + kBlockHeaderSize);
    EXPECT_GT(entries[1].cbData, 60 * kKiB);
    EXPECT_EQ(entries[2].wFlags, PROCESS_HEAP_UNCOMMITTED_RANGE);
    EXPECT_EQ(entries[2].lpData, static_cast<char*>(region.lpData) + region.dwCommittedSize);
    EXPECT_EQ(entries[2].cbData, region.dwUnCommittedSize);
}

TEST(PlatformHeapWalk, ListsBlocksInAddressOrderWithKindsAndSizes) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 64 * kKiB, 0);
    void* first = HeapAlloc(heap.Get(), 0, 100);
    void* second = HeapAlloc(heap.Get(), 0, 2000);
    void* third = HeapAlloc(heap.Get(), 0, 3000);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, second));
    std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());

    ASSERT_GE(entries.size(), 5u);
    EXPECT_EQ(entries[0].wFlags, PROCESS_HEAP_REGION);
    std::vector<HeapWalkEntry> busy = BusyEntries(entries);
    ASSERT_EQ(busy.size(), 2u);
    EXPECT_EQ(busy[0].lpData, first);
    EXPECT_EQ(busy[0].cbData, 100u);
    EXPECT_EQ(busy[0].cbOverhead, 28);  // header 16 and slack 12 up to the next multiple of 16
    EXPECT_EQ(busy[1].lpData, third);
    EXPECT_EQ(busy[1].cbData, 3000u);
    const HeapWalkEntry* freed = FindEntry(entries, second);
    ASSERT_NE(freed, nullptr);
    EXPECT_EQ(freed->wFlags, 0);
    EXPECT_GE(freed->cbData, 2000u);
    for (size_t index = 2; index < entries.size(); ++index) {
        const HeapWalkEntry& prev = entries[index - 1];
        EXPECT_LE(static_cast<char*>(prev.lpData) + prev.cbData, static_cast<char*>(entries[index].lpData));
        EXPECT_EQ(entries[index].iRegionIndex, 0);
    }
    EXPECT_EQ(entries.back().wFlags, PROCESS_HEAP_UNCOMMITTED_RANGE);
}

TEST(PlatformHeapWalk, CachedBlockShowsAsFreeAndIsNotInUse) {
    ScopedHeap heap(0, 0, 0);
    void* kept = HeapAlloc(heap.Get(), 0, 40);
    void* cached = HeapAlloc(heap.Get(), 0, 40);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, cached));
    std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());
    const HeapWalkEntry* entry = FindEntry(entries, cached);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->wFlags, 0);
    ASSERT_EQ(BusyEntries(entries).size(), 1u);
    EXPECT_EQ(BusyEntries(entries)[0].lpData, kept);
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 40u);
    EXPECT_EQ(HeapSize(heap.Get(), 0, cached), SIZE_MAX);
}

TEST(PlatformHeapWalk, LargeBlockHasARegionOfItsOwn) {
    ScopedHeap heap(0, 0, 0);
    void* large = HeapAlloc(heap.Get(), 0, 3 * kMiB + 5);
    ASSERT_NE(large, nullptr);
    std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());
    auto second = std::find_if(entries.begin() + 1, entries.end(), [](const HeapWalkEntry& entry) {
        return entry.wFlags == PROCESS_HEAP_REGION;
    });
    ASSERT_NE(second, entries.end());
    EXPECT_EQ(second->iRegionIndex, 1);
    EXPECT_GE(second->dwCommittedSize, 3 * kMiB);
    EXPECT_EQ(second->dwUnCommittedSize, 0u);
    ASSERT_NE(second + 1, entries.end());
    EXPECT_EQ((second + 1)->lpData, large);
    EXPECT_EQ((second + 1)->wFlags, PROCESS_HEAP_ENTRY_BUSY);
    EXPECT_EQ((second + 1)->cbData, 3 * kMiB + 5);
    EXPECT_EQ((second + 1)->iRegionIndex, 1);
    EXPECT_EQ(second + 2, entries.end());
    ASSERT_TRUE(HeapFree(heap.Get(), 0, large));
    EXPECT_TRUE(BusyEntries(WalkAll(heap.Get())).empty());
    EXPECT_EQ(std::count_if(entries.begin(), entries.end(),
                            [](const HeapWalkEntry& entry) { return entry.wFlags == PROCESS_HEAP_REGION; }),
              2);
}

TEST(PlatformHeapWalk, StopsAtTheEndAndStaysStopped) {
    ScopedHeap heap(0, 0, 0);
    HeapWalkEntry entry{};
    int steps = 0;
    while (HeapWalk(heap.Get(), &entry)) {
        ASSERT_LT(++steps, 100);
    }
    EXPECT_GT(steps, 0);
    EXPECT_FALSE(HeapWalk(heap.Get(), &entry));
    EXPECT_FALSE(HeapWalk(nullptr, &entry));
    HeapWalkEntry foreign{};
    int local = 0;
    foreign.lpData = &local;
    foreign.wFlags = PROCESS_HEAP_REGION;
    EXPECT_FALSE(HeapWalk(heap.Get(), &foreign));
}

bool SameEntry(const HeapWalkEntry& left, const HeapWalkEntry& right) {
    return left.lpData == right.lpData && left.cbData == right.cbData &&
           left.cbOverhead == right.cbOverhead && left.iRegionIndex == right.iRegionIndex &&
           left.wFlags == right.wFlags && left.dwCommittedSize == right.dwCommittedSize &&
           left.dwUnCommittedSize == right.dwUnCommittedSize && left.lpFirstBlock == right.lpFirstBlock &&
           left.lpLastBlock == right.lpLastBlock;
}

// Fills a heap past its first region with blocks of mixed small and medium sizes, every third
// one freed again, so that a walk meets busy, cached and free blocks in several regions.
std::vector<void*> FillSeveralRegions(PlatformHeap* heap) {
    std::mt19937 random(77);
    std::vector<void*> live;
    for (size_t total = 0; total < 9 * kMiB;) {
        size_t size = random() % 8 == 0 ? 1000 + random() % 9000 : 1 + random() % 400;
        void* block = HeapAlloc(heap, 0, size);
        EXPECT_NE(block, nullptr);
        total += size;
        if (random() % 3 == 0) {
            EXPECT_TRUE(HeapFree(heap, 0, block));
        } else {
            live.push_back(block);
        }
    }
    return live;
}

// Each block entry lies in the region entry before it, with that region's index and in address
// order behind the block before.
void ExpectBlocksInTheirRegions(const std::vector<HeapWalkEntry>& entries) {
    const HeapWalkEntry* region = nullptr;
    const HeapWalkEntry* previous = nullptr;
    for (const HeapWalkEntry& entry : entries) {
        if (entry.wFlags & PROCESS_HEAP_REGION) {
            region = &entry;
            previous = nullptr;
            continue;
        }
        ASSERT_NE(region, nullptr);
        EXPECT_EQ(entry.iRegionIndex, region->iRegionIndex);
        EXPECT_EQ(entry.lpFirstBlock, region->lpData);
        EXPECT_EQ(entry.dwCommittedSize, 0u);
        EXPECT_EQ(entry.lpLastBlock, nullptr);
        if (entry.wFlags & PROCESS_HEAP_UNCOMMITTED_RANGE) {
            continue;
        }
        EXPECT_GT(entry.lpData, region->lpData);
        EXPECT_LT(entry.lpData, region->lpLastBlock);
        if (previous) {
            EXPECT_LE(static_cast<char*>(previous->lpData) + previous->cbData + kBlockHeaderSize,
                      entry.lpData);
        }
        previous = &entry;
    }
}

// Two walks stepping by turns, and walks taken up again from a copy of any earlier entry, see the
// steps of one walk alone, however the heap serialises its walks.
TEST(PlatformHeapWalk, InterleavedAndResumedWalksSeeTheSameSteps) {
    for (uint32_t options : {uint32_t{HEAP_NO_SERIALIZE}, uint32_t{0}}) {
        ScopedHeap heap(options, 0, 0);
        std::vector<void*> live = FillSeveralRegions(heap.Get());
        std::vector<HeapWalkEntry> reference = WalkAll(heap.Get());
        ASSERT_NO_FATAL_FAILURE(ExpectBlocksInTheirRegions(reference));
        EXPECT_GE(
            std::count_if(reference.begin(), reference.end(),
                          [](const HeapWalkEntry& entry) { return entry.wFlags == PROCESS_HEAP_REGION; }),
            2);
        ASSERT_EQ(BusyEntries(reference).size(), live.size());

        // Without the lock, each step of a serialised heap takes it for itself.
        HeapWalkEntry first{};
        HeapWalkEntry second{};
        for (size_t index = 0; index < reference.size(); ++index) {
            ASSERT_TRUE(HeapWalk(heap.Get(), &first));
            ASSERT_TRUE(HeapWalk(heap.Get(), &second));
            ASSERT_TRUE(SameEntry(first, reference[index])) << "step " << index;
            ASSERT_TRUE(SameEntry(second, reference[index])) << "step " << index;
        }
        EXPECT_FALSE(HeapWalk(heap.Get(), &first));
        EXPECT_FALSE(HeapWalk(heap.Get(), &second));

        ASSERT_TRUE(HeapLock(heap.Get()));
        for (size_t start = 0; start < reference.size(); start += reference.size() / 7 + 1) {
            HeapWalkEntry resumed = reference[start];
            for (size_t index = start + 1; index < std::min(reference.size(), start + 50); ++index) {
                ASSERT_TRUE(HeapWalk(heap.Get(), &resumed));
                ASSERT_TRUE(SameEntry(resumed, reference[index])) << "from " << start << " at " << index;
            }
        }
        EXPECT_TRUE(HeapUnlock(heap.Get()));
    }
}

TEST(PlatformHeapWalk, ANewWalkSeesBlocksAddedSinceTheLast) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    std::vector<void*> blocks;
    // Each round adds enough to commit more of the region; the fourth opens another region.
    const size_t additions[] = {500, 500, 500, 30'000, 0};
    for (size_t added : additions) {
        std::vector<HeapWalkEntry> entries = WalkAll(heap.Get());
        ASSERT_NO_FATAL_FAILURE(ExpectBlocksInTheirRegions(entries));
        // Regions come in the order they were made, which need not be address order.
        std::vector<void*> listed;
        for (const HeapWalkEntry& entry : BusyEntries(entries)) {
            EXPECT_EQ(entry.cbData, 200u);
            listed.push_back(entry.lpData);
        }
        std::sort(listed.begin(), listed.end());
        EXPECT_EQ(listed, blocks);
        if (added == 0) {
            EXPECT_GE(
                std::count_if(entries.begin(), entries.end(),
                              [](const HeapWalkEntry& entry) { return entry.wFlags == PROCESS_HEAP_REGION; }),
                2);
        }
        for (size_t index = 0; index < added; ++index) {
            blocks.push_back(HeapAlloc(heap.Get(), 0, 200));
        }
        std::sort(blocks.begin(), blocks.end());
    }
}

// An entry whose kind says region while its data names the block a walk just reached is not one
// this heap made.
TEST(PlatformHeapWalk, ABlockPassedOffAsARegionEndsTheWalk) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    for (int index = 0; index < 10; ++index) {
        HeapAlloc(heap.Get(), 0, 100);
    }
    HeapWalkEntry entry{};
    ASSERT_TRUE(HeapWalk(heap.Get(), &entry));
    ASSERT_TRUE(HeapWalk(heap.Get(), &entry));
    ASSERT_TRUE(HeapWalk(heap.Get(), &entry));
    ASSERT_EQ(entry.wFlags, PROCESS_HEAP_ENTRY_BUSY);
    entry.wFlags = PROCESS_HEAP_REGION;
    EXPECT_FALSE(HeapWalk(heap.Get(), &entry));
}

// ---- threads ---------------------------------------------------------------------------------------

// Blocks carry their own address in their first word, so a block freed by another thread proves
// it was not handed to two threads at once.
struct ExchangedBlock {
    void* m_Data;
    size_t m_Size;
};

size_t ThreadBlockSize(std::mt19937& random) {
    uint32_t kind = random() % 100;
    if (kind == 0) {
        return 300 * kKiB;
    }
    return kind < 80 ? 8 + random() % 256 : 8 + random() % 5000;
}

void Stamp(void* data, size_t size) {
    auto tag = reinterpret_cast<uintptr_t>(data) ^ size;
    std::memcpy(data, &tag, sizeof(tag));
    std::memset(static_cast<char*>(data) + sizeof(tag), static_cast<int>(tag & 0xFF), size - sizeof(tag));
}

bool HasStamp(const void* data, size_t size) {
    uintptr_t tag = 0;
    std::memcpy(&tag, data, sizeof(tag));
    return tag == (reinterpret_cast<uintptr_t>(data) ^ size) &&
           AllEqual(static_cast<const char*>(data) + sizeof(tag), size - sizeof(tag),
                    static_cast<unsigned char>(tag & 0xFF));
}

class BlockExchange {
public:
    void Put(ExchangedBlock block) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        m_Blocks.push_back(block);
    }
    bool Take(ExchangedBlock* block) {
        std::lock_guard<std::mutex> guard(m_Mutex);
        if (m_Blocks.empty()) {
            return false;
        }
        *block = m_Blocks.back();
        m_Blocks.pop_back();
        return true;
    }

private:
    std::mutex m_Mutex;
    std::vector<ExchangedBlock> m_Blocks;
};

// Each worker allocates, keeps some blocks, hands others to the exchange, and frees what other
// workers handed in; a watcher locks, walks and validates the heap meanwhile.
void ChurnAcrossThreads(PlatformHeap* heap, int workerCount, int rounds) {
    constexpr int kRoundsBetweenChecks = 2000;
    BlockExchange exchange;
    std::atomic<int> failures{0};
    std::atomic<int> running{workerCount};
    std::atomic<int> progress{0};
    std::atomic<int> checks{0};
    std::atomic<int> invalid{0};
    std::atomic<const char*> lastError{nullptr};
    std::latch start(workerCount + 1);
    auto freeChecked = [&](const ExchangedBlock& block) {
        if (!HasStamp(block.m_Data, block.m_Size) || !HeapFree(heap, 0, block.m_Data)) {
            failures.fetch_add(1);
        }
    };
    auto worker = [&](unsigned seed) {
        std::mt19937 random(seed);
        std::vector<ExchangedBlock> kept;
        start.arrive_and_wait();
        for (int round = 0; round < rounds; ++round) {
            size_t size = ThreadBlockSize(random);
            void* data = HeapAlloc(heap, 0, size);
            if (!data || !IsAligned(data)) {
                failures.fetch_add(1);
                continue;
            }
            Stamp(data, size);
            if (random() % 2) {
                exchange.Put(ExchangedBlock{data, size});
            } else {
                kept.push_back(ExchangedBlock{data, size});
            }
            ExchangedBlock other{};
            if (random() % 3 != 0 && exchange.Take(&other)) {
                freeChecked(other);
            }
            if (kept.size() > 64) {
                freeChecked(kept.front());
                kept.erase(kept.begin());
            }
            progress.fetch_add(1, std::memory_order_relaxed);
        }
        std::for_each(kept.begin(), kept.end(), freeChecked);
        running.fetch_sub(1);
    };
    // Checks at milestones of the workers' progress, so that it never starves them of the lock.
    auto watcher = [&] {
        start.arrive_and_wait();
        for (int milestone = kRoundsBetweenChecks; running.load() > 0; milestone += kRoundsBetweenChecks) {
            while (running.load() > 0 && progress.load(std::memory_order_relaxed) < milestone) {
                std::this_thread::yield();
            }
            HeapLock(heap);
            WalkAll(heap);
            if (!HeapValidate(heap)) {
                invalid.fetch_add(1);
                lastError.store(HeapValidationError(heap));
            }
            HeapUnlock(heap);
            checks.fetch_add(1);
        }
    };
    std::vector<std::thread> threads;
    for (int index = 0; index < workerCount; ++index) {
        threads.emplace_back(worker, 1000u + static_cast<unsigned>(index));
    }
    threads.emplace_back(watcher);
    for (std::thread& thread : threads) {
        thread.join();
    }
    ExchangedBlock left{};
    while (exchange.Take(&left)) {
        freeChecked(left);
    }
    EXPECT_EQ(failures.load(), 0) << "blocks were lost, shared or damaged";
    EXPECT_EQ(invalid.load(), 0) << "HeapValidate during the churn: " << lastError.load();
    EXPECT_GT(checks.load(), 0);
}

TEST(PlatformHeapThreads, ProcessHeapServesThreadsThatFreeEachOthersBlocks) {
    PlatformHeap* heap = GetProcessHeap();
    ASSERT_NE(heap, nullptr);
    size_t before = HeapBytesInUse(heap);
    ChurnAcrossThreads(heap, 4, 40'000);
    EXPECT_TRUE(IsValid(heap));
    EXPECT_EQ(HeapBytesInUse(heap), before);
}

TEST(PlatformHeapThreads, SharedSerialisedHeapServesThreadsThatFreeEachOthersBlocks) {
    ScopedHeap heap(0, 0, 0);
    ChurnAcrossThreads(heap.Get(), 3, 30'000);
    EXPECT_TRUE(IsValid(heap.Get()));
    EXPECT_EQ(HeapBytesInUse(heap.Get()), 0u);
    EXPECT_TRUE(BusyEntries(WalkAll(heap.Get())).empty());
}

// While one thread holds HeapLock, another thread's allocation, even one its own cache could
// serve, waits for HeapUnlock.
void ExpectLockExcludes(PlatformHeap* heap) {
    std::atomic<bool> locked{false};
    std::atomic<bool> done{false};
    std::latch warmed(2);
    void* block = nullptr;
    std::thread other([&] {
        HeapFree(heap, 0, HeapAlloc(heap, 0, 64));  // leaves a 64-byte block in this thread's cache
        warmed.arrive_and_wait();
        while (!locked.load()) {
            std::this_thread::yield();
        }
        block = HeapAlloc(heap, 0, 64);
        done.store(true);
    });
    warmed.arrive_and_wait();
    ASSERT_TRUE(HeapLock(heap));
    locked.store(true);
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    bool finishedEarly = false;
    while (std::chrono::steady_clock::now() < until && !finishedEarly) {
        finishedEarly = done.load();
        std::this_thread::yield();
    }
    EXPECT_FALSE(finishedEarly) << "an allocation went through while another thread held the lock";
    EXPECT_TRUE(HeapUnlock(heap));
    other.join();
    EXPECT_TRUE(done.load());
    EXPECT_TRUE(HeapFree(heap, 0, block));
}

TEST(PlatformHeapThreads, LockExcludesOtherThreadsOnTheProcessHeap) {
    ExpectLockExcludes(GetProcessHeap());
}

TEST(PlatformHeapThreads, LockExcludesOtherThreadsOnASerialisedHeap) {
    ScopedHeap heap(0, 0, 0);
    ExpectLockExcludes(heap.Get());
}

TEST(PlatformHeapThreads, ProcessHeapIsOneHeapForAllThreads) {
    PlatformHeap* fromOtherThread = nullptr;
    std::thread([&] { fromOtherThread = GetProcessHeap(); }).join();
    EXPECT_EQ(fromOtherThread, GetProcessHeap());
    EXPECT_FALSE(HeapDestroy(GetProcessHeap()));
    EXPECT_TRUE(IsValid(GetProcessHeap()));
}

// ---- edges -----------------------------------------------------------------------------------------

TEST(PlatformHeapEdge, NullArgumentsFollowWin32) {
    ScopedHeap heap(0, 0, 0);
    EXPECT_TRUE(HeapFree(heap.Get(), 0, nullptr));
    EXPECT_EQ(HeapSize(heap.Get(), 0, nullptr), SIZE_MAX);
    EXPECT_EQ(HeapAlloc(nullptr, 0, 10), nullptr);
    EXPECT_FALSE(HeapFree(nullptr, 0, heap.Get()));
    EXPECT_FALSE(HeapDestroy(nullptr));
    EXPECT_FALSE(HeapLock(nullptr));
    EXPECT_FALSE(HeapValidate(nullptr));
}

TEST(PlatformHeapEdge, ZeroByteBlocksAreDistinctAndAligned) {
    for (uint32_t options : {uint32_t{0}, uint32_t{HEAP_NO_SERIALIZE}}) {
        ScopedHeap heap(options, 0, 0);
        std::vector<void*> blocks;
        for (int round = 0; round < 2; ++round) {  // the second round takes freed blocks back
            for (int index = 0; index < 100; ++index) {
                void* block = HeapAlloc(heap.Get(), 0, 0);
                ASSERT_NE(block, nullptr);
                EXPECT_TRUE(IsAligned(block));
                EXPECT_EQ(HeapSize(heap.Get(), 0, block), 0u);
                blocks.push_back(block);
            }
            std::sort(blocks.begin(), blocks.end());
            EXPECT_EQ(std::adjacent_find(blocks.begin(), blocks.end()), blocks.end());
            for (size_t index = 0; index < blocks.size(); index += 2) {
                EXPECT_TRUE(HeapFree(heap.Get(), 0, blocks[index]));
                blocks[index] = nullptr;
            }
            std::erase(blocks, nullptr);
        }
        for (void* block : blocks) {
            EXPECT_TRUE(HeapFree(heap.Get(), 0, block));
        }
        EXPECT_EQ(HeapBytesInUse(heap.Get()), 0u);
        EXPECT_TRUE(IsValid(heap.Get()));
    }
}

TEST(PlatformHeapEdge, ZeroMemoryZeroesReusedBlocks) {
    for (size_t size : {24u, 200u, 900u, 5000u, 100'000u, 400'000u}) {
        ScopedHeap heap(0, 0, 0);
        void* dirty = HeapAlloc(heap.Get(), 0, size);
        ASSERT_NE(dirty, nullptr);
        Fill(dirty, size, 0xEE);
        ASSERT_TRUE(HeapFree(heap.Get(), 0, dirty));
        void* clean = HeapAlloc(heap.Get(), HEAP_ZERO_MEMORY, size);
        ASSERT_NE(clean, nullptr);
        EXPECT_TRUE(AllZero(clean, size)) << "size " << size;
    }
}

TEST(PlatformHeapEdge, HugeRequestsFailWithoutHarm) {
    ScopedHeap growable(0, 0, 0);
    ScopedHeap fixed(0, 0, 64 * kKiB);
    for (PlatformHeap* heap : {growable.Get(), fixed.Get(), GetProcessHeap()}) {
        for (size_t size : {SIZE_MAX, SIZE_MAX - 15, SIZE_MAX / 2, size_t{1} << 50, size_t{1} << 47}) {
            EXPECT_EQ(HeapAlloc(heap, 0, size), nullptr) << size;
            EXPECT_EQ(HeapAlloc(heap, HEAP_ZERO_MEMORY, size), nullptr) << size;
        }
        EXPECT_TRUE(IsValid(heap));
    }
    EXPECT_EQ(HeapAlloc(fixed.Get(), 0, 65 * kKiB), nullptr);
    EXPECT_EQ(HeapCreate(0, SIZE_MAX, 0), nullptr);
    EXPECT_EQ(HeapCreate(0, 0, SIZE_MAX), nullptr);
}

// The walk and the bytes in use of a heap, to show that a call changed nothing.
struct HeapState {
    explicit HeapState(PlatformHeap* heap) : m_Entries(WalkAll(heap)), m_BytesInUse(HeapBytesInUse(heap)) {}

    bool operator==(const HeapState& other) const {
        return m_BytesInUse == other.m_BytesInUse && m_Entries.size() == other.m_Entries.size() &&
               std::equal(m_Entries.begin(), m_Entries.end(), other.m_Entries.begin(), SameEntry);
    }

    std::vector<HeapWalkEntry> m_Entries;
    size_t m_BytesInUse;
};

void ExpectFreeRejects(PlatformHeap* heap) {
    ScopedHeap other(0, 0, 0);
    size_t before = HeapBytesInUse(heap);
    auto* small = static_cast<char*>(HeapAlloc(heap, 0, 64));
    auto* medium = static_cast<char*>(HeapAlloc(heap, 0, 5000));
    auto* neighbour = static_cast<char*>(HeapAlloc(heap, 0, 5000));
    auto* large = static_cast<char*>(HeapAlloc(heap, 0, kMiB));
    void* foreign = HeapAlloc(other.Get(), 0, 64);
    int onStack = 0;
    HeapState untouched(heap);
    EXPECT_FALSE(HeapFree(heap, 0, foreign));
    EXPECT_FALSE(HeapFree(heap, 0, &onStack));
    EXPECT_FALSE(HeapFree(heap, 0, small + 8));
    EXPECT_FALSE(HeapFree(heap, 0, small + 16));
    EXPECT_FALSE(HeapFree(heap, 0, medium + 32));
    EXPECT_FALSE(HeapFree(heap, 0, large + 4096));
    EXPECT_TRUE(HeapState(heap) == untouched) << "a rejected pointer changed the heap";
    EXPECT_TRUE(HeapFree(heap, 0, small));
    HeapState cachedOnce(heap);
    EXPECT_FALSE(HeapFree(heap, 0, small)) << "a cached block was freed twice";
    EXPECT_TRUE(HeapState(heap) == cachedOnce);
    EXPECT_TRUE(HeapFree(heap, 0, neighbour));
    EXPECT_TRUE(HeapFree(heap, 0, medium));
    EXPECT_FALSE(HeapFree(heap, 0, neighbour)) << "a merged block was freed twice";
    EXPECT_TRUE(HeapFree(heap, 0, large));
    EXPECT_FALSE(HeapFree(heap, 0, large)) << "a large block was freed twice";
    EXPECT_EQ(HeapSize(heap, 0, foreign), SIZE_MAX);
    EXPECT_EQ(HeapReAlloc(heap, 0, foreign, 100), nullptr);
    EXPECT_TRUE(IsValid(heap));
    EXPECT_TRUE(IsValid(other.Get()));
    EXPECT_EQ(HeapSize(other.Get(), 0, foreign), 64u);
    EXPECT_EQ(HeapBytesInUse(heap), before);
}

TEST(PlatformHeapEdge, FreeRejectsForeignMisalignedAndFreedPointers) {
    ScopedHeap serialised(0, 0, 0);
    ScopedHeap unserialised(HEAP_NO_SERIALIZE, 0, 0);
    for (PlatformHeap* heap : {serialised.Get(), unserialised.Get(), GetProcessHeap()}) {
        SCOPED_TRACE(heap == GetProcessHeap()   ? "process heap"
                     : heap == serialised.Get() ? "serialised"
                                                : "unserialised");
        ExpectFreeRejects(heap);
    }
}

// Blocks of one size freed past what their cache bin holds go back to the index; each is still
// given back only once.
TEST(PlatformHeapEdge, BlocksFreedPastAFullCacheAreRejectedTheSecondTime) {
    for (uint32_t options : {uint32_t{0}, uint32_t{HEAP_NO_SERIALIZE}}) {
        ScopedHeap heap(options, 0, 0);
        std::vector<void*> blocks;
        for (int index = 0; index < 5000; ++index) {
            blocks.push_back(HeapAlloc(heap.Get(), 0, 64));
        }
        for (void* block : blocks) {
            ASSERT_TRUE(HeapFree(heap.Get(), 0, block));
            ASSERT_FALSE(HeapFree(heap.Get(), 0, block));
        }
        for (void* block : blocks) {
            ASSERT_FALSE(HeapFree(heap.Get(), 0, block));
            ASSERT_EQ(HeapSize(heap.Get(), 0, block), SIZE_MAX);
        }
        EXPECT_EQ(HeapBytesInUse(heap.Get()), 0u);
        EXPECT_TRUE(IsValid(heap.Get()));
    }
}

TEST(PlatformHeapEdge, UnlockWithoutLockFailsAndLockIsRecursive) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    EXPECT_FALSE(HeapUnlock(heap.Get()));
    EXPECT_TRUE(HeapLock(heap.Get()));
    EXPECT_TRUE(HeapLock(heap.Get()));
    void* block = HeapAlloc(heap.Get(), 0, 10);
    EXPECT_TRUE(HeapFree(heap.Get(), 0, block));
    EXPECT_TRUE(HeapUnlock(heap.Get()));
    EXPECT_TRUE(HeapUnlock(heap.Get()));
    EXPECT_FALSE(HeapUnlock(heap.Get()));
}

// ---- self-checks -----------------------------------------------------------------------------------

// Runs `change` on the header words of a block, with ASan's poison lifted while it does.
template <typename Change>
void TouchHeader(void* block, Change change) {
    auto* header = static_cast<uint32_t*>(block) - 4;
#if ZN_ADDRESS_SANITIZER
    ASAN_UNPOISON_MEMORY_REGION(header, kBlockHeaderSize);
#endif
    change(header);
#if ZN_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(header, kBlockHeaderSize);
#endif
}

TEST(PlatformHeapValidate, ReportsADamagedBoundaryTagAndRecovers) {
    ScopedHeap heap(0, 0, 0);
    void* first = HeapAlloc(heap.Get(), 0, 2000);
    void* second = HeapAlloc(heap.Get(), 0, 2000);
    void* cached = HeapAlloc(heap.Get(), 0, 50);
    ASSERT_TRUE(HeapFree(heap.Get(), 0, cached));
    ASSERT_TRUE(IsValid(heap.Get()));
    uint32_t saved = 0;
    TouchHeader(second, [&](uint32_t* words) {
        saved = words[0];
        words[0] = 2032;  // claims the busy block below is free
    });
    EXPECT_FALSE(HeapValidate(heap.Get()));
    EXPECT_NE(std::strstr(HeapValidationError(heap.Get()), "boundary tag"), nullptr)
        << HeapValidationError(heap.Get());
    TouchHeader(second, [&](uint32_t* words) { words[0] = saved; });
    EXPECT_TRUE(IsValid(heap.Get())) << "a failed validation left its marks behind";
    EXPECT_TRUE(HeapFree(heap.Get(), 0, first));
}

TEST(PlatformHeapValidate, ReportsAWrongRequestedSize) {
    ScopedHeap heap(HEAP_NO_SERIALIZE, 0, 0);
    void* block = HeapAlloc(heap.Get(), 0, 100);
    uint32_t saved = 0;
    TouchHeader(block, [&](uint32_t* words) {
        saved = words[2];
        words[2] = 5000;
    });
    EXPECT_FALSE(HeapValidate(heap.Get()));
    TouchHeader(block, [&](uint32_t* words) { words[2] = saved; });
    EXPECT_TRUE(IsValid(heap.Get()));
}

#if ZN_ADDRESS_SANITIZER
TEST(PlatformHeapSanitizerDeathTest, UseAfterFreeIsReported) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            PlatformHeap* heap = HeapCreate(0, 0, 0);
            auto* block = static_cast<volatile char*>(HeapAlloc(heap, 0, 64));
            HeapFree(heap, 0, const_cast<char*>(block));
            block[3] = 1;
        },
        "use-after-poison");
}

TEST(PlatformHeapSanitizerDeathTest, OverflowPastTheRequestIsReported) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            PlatformHeap* heap = HeapCreate(0, 0, 0);
            auto* block = static_cast<volatile char*>(HeapAlloc(heap, 0, 40));
            block[40] = 1;
        },
        "use-after-poison");
}

TEST(PlatformHeapSanitizerDeathTest, WriteIntoTheNextHeaderIsReported) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            PlatformHeap* heap = HeapCreate(HEAP_NO_SERIALIZE, 0, 0);
            auto* block = static_cast<volatile char*>(HeapAlloc(heap, 0, 48));
            HeapAlloc(heap, 0, 48);
            block[48 + 4] = 1;
        },
        "use-after-poison");
}
#endif

}  // namespace
}  // namespace zn::platform
