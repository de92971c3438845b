// PlatformHeap.cpp: heaps of boundary-tagged blocks in mmap'ed regions. Free blocks are indexed by
// a two-level segregated fit whose bitmaps make every search O(1), neighbours merge at once, small
// blocks pass through per-size LIFO caches and medium ones through per-class caches of bounded
// size, and requests of 256 KiB and up get their own mapping, which a free keeps for reuse.
#include "CoreLib/platform/PlatformHeap.h"

#include "CoreLib/platform/Platform.h"
#include "CoreLib/platform/Sync.h"

#include <linux/membarrier.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

#if ZN_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

#if defined(__SANITIZE_THREAD__)
#define ZN_HEAP_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ZN_HEAP_THREAD_SANITIZER 1
#else
#define ZN_HEAP_THREAD_SANITIZER 0
#endif
#else
#define ZN_HEAP_THREAD_SANITIZER 0
#endif

#if ZN_ADDRESS_SANITIZER
// Block metadata lives in poisoned memory; only the accessors below may touch it.
#define ZN_HEAP_METADATA __attribute__((no_sanitize_address))
#else
#define ZN_HEAP_METADATA
#endif

namespace zn::platform {

namespace {

constexpr uint32_t kAlignment = 16;
constexpr uint32_t kHeaderSize = 16;
constexpr uint32_t kMinBlockSize = 32;  // a header and the two links of a free block

// Flag bits in the low bits of a block's size word; sizes are multiples of 16.
constexpr uint32_t kBusy = 0x1;   // handed out, cached, or an end tag: never merged into a neighbour
constexpr uint32_t kLarge = 0x4;  // alone in its own mapping; its sizes are in the region header
constexpr uint32_t kFlagMask = 0xF;
// A large block's size word: too big for any cache bin, so the free path needs no kLarge test.
constexpr uint32_t kLargeSizeFlags = 0xFFFFFFF0 | kLarge | kBusy;

// The free index: first level by power of two, 16 second-level classes in each; below 256 bytes
// the classes are 16 bytes apart, so there first level 0 is linear.
constexpr uint32_t kSlLog2 = 4;
constexpr uint32_t kSlCount = 1u << kSlLog2;
constexpr uint32_t kLinearLimit = kSlCount * kAlignment;
constexpr uint32_t kFlShift = 7;  // log2(kLinearLimit) - 1: first level 1 starts at 256
constexpr size_t kMaxRegionSize = size_t{1} << 30;
constexpr uint32_t kFlCount = 30 - kFlShift;  // every block of a region is below 2^30
constexpr uint32_t kClassScanLimit = 16;
constexpr uint32_t kOwnClassScanLimit = 4;

constexpr size_t kLargeThreshold = 256 * 1024;
constexpr size_t kMaxRequest = size_t{1} << 46;  // beyond any mapping; keeps size arithmetic exact
constexpr size_t kMaxNormalRequest = kMaxRegionSize - 4096;

// Front caches: one LIFO bin per block size from 32 to 1040 bytes (requests up to 1 KiB), each
// holding up to about 128 KiB. Deep bins matter: freeing a tree of ten thousand small objects must
// not merge each one back into the index only to split it again for the next tree. Memory stays
// bounded because a heap gives a well-filled cache back before it grows (TakeBlock).
constexpr uint32_t kBinCount = 64;
constexpr size_t kMaxCachedRequest = 1024;
constexpr uint32_t kMaxCachedBlock = 1040;
constexpr uint32_t kBinBytes = 128 * 1024;
constexpr uint32_t kMinBinCapacity = 16;
constexpr uint32_t kMaxBinCapacity = 4096;
constexpr uint32_t kMaxFlushCount = 256;
constexpr size_t kFlushBeforeGrowBytes = size_t{1} << 20;
constexpr uint32_t kUncacheScanLimit = 64;  // a neighbour freed long ago is rarely worth the search

// Medium caches: freed blocks above the small bins and below 128 KiB wait, unmerged, in LIFO bins
// of the free index's size classes, so a program that keeps freeing and asking for blocks of a few
// KiB (buffers, strings, arrays) reuses them without splitting and merging each time. A bin holds
// about 512 KiB and all of them together at most kMediumBudget; beyond that a freed block merges.
constexpr uint32_t kMediumFirstFl = 3;  // first-level class of 1024..2047
constexpr uint32_t kMediumBinCount = 7 * kSlCount;
constexpr uint32_t kMaxMediumBlock = (1u << 17) - kAlignment;
constexpr uint32_t kMediumBinBytes = 512 * 1024;
constexpr size_t kMediumBudget = size_t{8} << 20;
constexpr uint32_t kMediumScanLimit = 4;

// A freed large mapping is kept (at most kSpareCount of them, each up to kMaxSpareBytes) for the
// next large request: it saves the mmap, the munmap and, above all, faulting every page back in.
constexpr uint32_t kSpareCount = 2;
constexpr size_t kMaxSpareBytes = size_t{32} << 20;

constexpr uint32_t kRegionMagic = 0x5A4E5247;
constexpr uint32_t kHeapMagic = 0x5A4E4850;
// m_Requested values above any request a block can hold. A cached block is busy for merging but
// free for callers; its state lives in m_Requested, which the cache writes anyway, so caching never
// rewrites the size word that neighbours read.
constexpr uint32_t kCachedMark = 0xCAC4ED00;
constexpr uint32_t kListedMark = 0x4C495354;        // a free block seen in the free index
constexpr uint32_t kListedCachedMark = 0xCAC4ED01;  // a cached block seen in a cache
constexpr size_t kLargeHeaderOffset = 64;           // the region header in front of a large block
constexpr size_t kLargeUserOffset = kLargeHeaderOffset + kHeaderSize;
constexpr size_t kMinCommitStep = 64 * 1024;
// A region commits a sixteenth more at a time. Growth is where the caches give their blocks back
// (TakeBlock), so the committed space not yet handed out must stay small: while the caches hold
// their blocks, a large tail would be cut into, and its pages touched, instead.
constexpr size_t kCommitStepDivisor = 16;
constexpr size_t kFirstRegionReserve = size_t{4} << 20;
constexpr size_t kProcessHeapRegionReserve = size_t{16} << 20;
constexpr size_t kMaxGrowRegionReserve = size_t{256} << 20;
constexpr size_t kProcessHeapInitialCommit = 256 * 1024;
constexpr size_t kThreadCacheChunk = 64 * 1024;
constexpr uint32_t kSpinCount = 100;

#define ZN_HEAP_COLD __attribute__((noinline, cold))
#define ZN_HEAP_HOT __attribute__((always_inline)) inline

// How a heap serialises its operations.
enum class HeapMode : uint8_t {
    kUnserialised,  // HEAP_NO_SERIALIZE: the caller does
    kSerialised,    // every operation takes m_Lock
    kThreadCached,  // the process heap: small blocks through per-thread caches, the rest under m_Lock
};

struct BlockHeader {
    uint32_t m_PrevSize;   // size of the block just below while that block is free, else 0
    uint32_t m_SizeFlags;  // this block's size, header included, OR its flag bits
    uint32_t m_Requested;  // busy: the size last asked for; cached: kCachedMark; free: 0
    uint32_t m_Check;      // busy or cached: CheckWord of the heap and this address; free: 0
};
static_assert(sizeof(BlockHeader) == kHeaderSize);

// The first payload bytes of a free or cached block; caches use m_Next only.
struct FreeLinks {
    BlockHeader* m_Next;
    BlockHeader* m_Prev;
};

struct ListIndex {
    uint32_t m_Fl;
    uint32_t m_Sl;
};

struct BinCapacities {
    uint16_t m_Blocks[kBinCount];
};

constexpr BinCapacities MakeBinCapacities() {
    BinCapacities capacities{};
    for (uint32_t bin = 0; bin < kBinCount; ++bin) {
        uint32_t blocks = kBinBytes / ((bin + 2) * kAlignment);
        capacities.m_Blocks[bin] =
            static_cast<uint16_t>(std::clamp(blocks, kMinBinCapacity, kMaxBinCapacity));
    }
    return capacities;
}

constexpr BinCapacities kBinCapacities = MakeBinCapacities();

inline uint32_t BinCapacity(uint32_t bin) {
    return kBinCapacities.m_Blocks[bin];
}

struct FrontCache {
    constexpr FrontCache() {
        for (uint32_t bin = 0; bin < kBinCount; ++bin) {
            m_Room[bin] = kBinCapacities.m_Blocks[bin];
        }
    }

    uint32_t Count(uint32_t bin) const { return BinCapacity(bin) - m_Room[bin]; }

    BlockHeader* m_Head[kBinCount] = {};
    // Blocks each bin may still take, its capacity less its count: the free path tests it against
    // zero rather than look up a capacity and compare.
    uint16_t m_Room[kBinCount];
};

// The heap-wide medium cache, guarded like the free index. It lives in a page of its own, mapped
// on the first medium free: the heap's head must stay within one page.
struct MediumCache {
    BlockHeader* m_Head[kMediumBinCount] = {};
    uint16_t m_Count[kMediumBinCount] = {};
    size_t m_Bytes = 0;
};

// A thread's front cache for the process heap. Its owner works on it without the heap lock inside
// EnterCache/LeaveCache, or under the heap lock; anyone else only while the heap is quiesced.
struct alignas(64) ThreadCache {
    FrontCache m_Bins;
    std::atomic<uint32_t> m_Active{0};  // 1 while the owner is inside EnterCache/LeaveCache
    PlatformHeap* m_Heap = nullptr;
    ThreadCache* m_Next = nullptr;  // registry or spare list, guarded by the heap lock
    ThreadCache* m_Prev = nullptr;
};

// The head of every mapping. A large block's header follows it at kLargeHeaderOffset.
struct Region {
    uint32_t m_Magic;
    uint8_t m_Index;
    bool m_Large;
    PlatformHeap* m_Heap;
    Region* m_Next;
    Region* m_Prev;
    size_t m_Reserved;        // bytes mapped
    size_t m_Committed;       // readable and writable prefix
    size_t m_LargeRequested;  // large region: HeapSize of its block
    BlockHeader* m_FirstBlock;
};
static_assert(sizeof(Region) <= kLargeHeaderOffset);

// A recursive lock that spins briefly before it sleeps on a futex.
class HeapMutex {
public:
    void Lock() {
        uint32_t caller = CurrentThreadId();
        if (m_Owner.load(std::memory_order_relaxed) == caller) {
            ++m_Depth;
            return;
        }
        uint32_t expected = 0;
        if (!m_State.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
            LockContended();
        }
        m_Owner.store(caller, std::memory_order_relaxed);
        m_Depth = 1;
    }

    void Unlock() {
        if (--m_Depth > 0) {
            return;
        }
        m_Owner.store(0, std::memory_order_relaxed);
        if (m_State.exchange(0, std::memory_order_release) == 2) {
            FutexWakeOne(&m_State);
        }
    }

    bool IsHeldByCaller() const { return m_Owner.load(std::memory_order_relaxed) == CurrentThreadId(); }

private:
    void LockContended() {
        for (uint32_t spin = 0; spin < kSpinCount; ++spin) {
            PauseHint();
            uint32_t expected = 0;
            if (m_State.load(std::memory_order_relaxed) == 0 &&
                m_State.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                              std::memory_order_relaxed)) {
                return;
            }
        }
        while (m_State.exchange(2, std::memory_order_acquire) != 0) {
            FutexWait(&m_State, 2);
        }
    }

    std::atomic<uint32_t> m_State{0};  // 0 free, 1 held, 2 held and a thread may sleep on it
    std::atomic<uint32_t> m_Owner{0};  // thread id of the holder; only the holder stores its own id
    uint32_t m_Depth = 0;              // touched by the holder only
};

class MutexGuard {
public:
    explicit MutexGuard(HeapMutex* mutex) : m_Mutex(mutex) {
        if (m_Mutex) {
            m_Mutex->Lock();
        }
    }
    ~MutexGuard() {
        if (m_Mutex) {
            m_Mutex->Unlock();
        }
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    HeapMutex* m_Mutex;
};

}  // namespace

struct PlatformHeap {
    uint32_t m_Magic = kHeapMagic;
    uint32_t m_Cookie = 0;
    HeapMode m_Mode = HeapMode::kSerialised;
    bool m_IsProcessHeap = false;
    size_t m_MaximumSize = 0;  // 0: growable
    size_t m_NextRegionReserve = kFirstRegionReserve;
    uint8_t m_NextRegionIndex = 0;
    // Everything below is guarded by m_Lock, or by the caller on an unserialised heap.
    HeapMutex m_Lock;
    // The walk's cursor: the data of the normal block the last step handed out (the heap itself, which
    // no entry ever names, when there is none), the block after it, their region and its end tag. A
    // step from the entry the cursor names needs no checks of the entry, the heap being unchanged
    // since, nor a second look at the block's header: it goes straight to the next one.
    const void* m_WalkData = this;
    BlockHeader* m_WalkNext = nullptr;
    BlockHeader* m_WalkEnd = nullptr;
    Region* m_WalkRegion = nullptr;
    size_t m_ReservedTotal = 0;
    Region* m_HomeRegion = nullptr;
    Region* m_FirstRegion = nullptr;
    Region* m_LastRegion = nullptr;
    Region* m_GrowRegion = nullptr;
    uint32_t m_FlBitmap = 0;
    uint32_t m_SlBitmap[kFlCount] = {};
    BlockHeader* m_FreeLists[kFlCount][kSlCount] = {};
    FrontCache m_Cache;
    ThreadCache* m_ThreadCacheList = nullptr;
    ThreadCache* m_SpareThreadCaches = nullptr;
    MediumCache* m_Medium = nullptr;
    Region* m_SpareLarge[kSpareCount] = {};  // freed large mappings kept for reuse, unlinked
    uint32_t m_QuiesceDepth = 0;
    const char* m_ValidationError = nullptr;
    // Written under m_Lock, read without it: HeapFree's first cheap ownership test, an address less
    // m_LowAddress below m_AddressSpan. The span is stored first and the low bound with release,
    // so a reader that sees a new low bound sees the span that goes with it, and one that sees the
    // old bound sees a span at least as wide as before.
    std::atomic<uintptr_t> m_LowAddress{0};
    std::atomic<uintptr_t> m_AddressSpan{0};
    // Set by a whole-heap lock holder; thread caches stay closed while it is.
    std::atomic<uint32_t> m_Quiescing{0};
};

namespace {

constexpr size_t kHomeHeadSize = (sizeof(Region) + sizeof(PlatformHeap) + 63) & ~size_t{63};
static_assert(kHomeHeadSize + kMinBlockSize + kHeaderSize <= 4096, "the heap's head must fit one page");

__attribute__((tls_model("initial-exec"))) thread_local ThreadCache* t_ThreadCache = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local bool t_ThreadCacheRetired = false;
pthread_key_t s_ThreadCacheKey;

// ---- metadata access -------------------------------------------------------------------------

// Relaxed atomics: a lock holder may read a neighbour's size word while a thread-cache owner
// updates it without the lock; on x86 these are plain moves.
template <typename T>
ZN_HEAP_METADATA inline T Peek(const T* word) {
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

template <typename T>
ZN_HEAP_METADATA inline void Poke(T* word, std::type_identity_t<T> value) {
    __atomic_store_n(word, value, __ATOMIC_RELAXED);
}

inline void Poison(const void* address, size_t bytes) {
#if ZN_ADDRESS_SANITIZER
    ASAN_POISON_MEMORY_REGION(address, bytes);
#else
    (void)address;
    (void)bytes;
#endif
}

inline void Unpoison(const void* address, size_t bytes) {
#if ZN_ADDRESS_SANITIZER
    ASAN_UNPOISON_MEMORY_REGION(address, bytes);
#else
    (void)address;
    (void)bytes;
#endif
}

// ---- sizes and blocks --------------------------------------------------------------------------

size_t PageSize() {
    static const size_t s_PageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return s_PageSize;
}

constexpr size_t RoundUp(size_t value, size_t granule) {
    return (value + granule - 1) & ~(granule - 1);
}

inline uint32_t HighBit(uint32_t value) {
    return 31 - static_cast<uint32_t>(__builtin_clz(value));
}

// The block size that serves a request of at most kMaxNormalRequest bytes.
inline uint32_t BlockSizeFor(size_t bytes) {
    return static_cast<uint32_t>(std::max<size_t>(kMinBlockSize, RoundUp(bytes + kHeaderSize, kAlignment)));
}

inline uint32_t BinOf(uint32_t blockSize) {
    return blockSize / kAlignment - 2;
}

inline BlockHeader* At(void* base, size_t offset) {
    return reinterpret_cast<BlockHeader*>(static_cast<char*>(base) + offset);
}

inline uint32_t SizeOf(const BlockHeader* block) {
    return Peek(&block->m_SizeFlags) & ~kFlagMask;
}

inline uint32_t FlagsOf(const BlockHeader* block) {
    return Peek(&block->m_SizeFlags) & kFlagMask;
}

inline BlockHeader* NextOf(BlockHeader* block) {
    return At(block, SizeOf(block));
}

inline BlockHeader* PrevOf(BlockHeader* block) {
    return reinterpret_cast<BlockHeader*>(reinterpret_cast<char*>(block) - Peek(&block->m_PrevSize));
}

inline char* UserOf(BlockHeader* block) {
    return reinterpret_cast<char*>(block + 1);
}

inline BlockHeader* HeaderOf(const void* user) {
    return const_cast<BlockHeader*>(static_cast<const BlockHeader*>(user)) - 1;
}

inline FreeLinks* LinksOf(BlockHeader* block) {
    return reinterpret_cast<FreeLinks*>(block + 1);
}

inline void WriteHeader(BlockHeader* block, uint32_t prevSize, uint32_t sizeFlags, uint32_t check) {
    Poke(&block->m_PrevSize, prevSize);
    Poke(&block->m_SizeFlags, sizeFlags);
    Poke(&block->m_Requested, 0u);
    Poke(&block->m_Check, check);
}

// Ties a busy block to its heap and address, so a stray pointer rarely passes for a block.
inline uint32_t CheckWord(const PlatformHeap* heap, const BlockHeader* block) {
    return heap->m_Cookie ^ static_cast<uint32_t>(reinterpret_cast<uintptr_t>(block) >> 4);
}

inline uint32_t Distance(const void* low, const void* high) {
    return static_cast<uint32_t>(static_cast<const char*>(high) - static_cast<const char*>(low));
}

inline BlockHeader* EndTagOf(Region* region) {
    return At(region, region->m_Committed - kHeaderSize);
}

inline Region* LargeRegionOf(BlockHeader* block) {
    return reinterpret_cast<Region*>(reinterpret_cast<char*>(block) - kLargeHeaderOffset);
}

size_t RequestedOf(BlockHeader* block) {
    if (FlagsOf(block) & kLarge) {
        return LargeRegionOf(block)->m_LargeRequested;
    }
    return Peek(&block->m_Requested);
}

inline bool IsCached(const BlockHeader* block) {
    return Peek(&block->m_Requested) == kCachedMark;
}

inline bool IsInUse(const BlockHeader* block) {
    return (FlagsOf(block) & kBusy) && !IsCached(block);
}

// A busy block with a cache bin has the size word kSmallBusyBase plus its bin times kAlignment:
// less kSmallBusyBase, no bit of it lies outside kSmallBusyMask, while one of every other size
// word does (a free, large or medium block, an end tag, stray flags). So the common free knows its
// block with one test.
constexpr uint32_t kSmallBusyBase = kMinBlockSize | kBusy;
constexpr uint32_t kSmallBusyMask = kMaxCachedBlock - kMinBlockSize;
static_assert(((kSmallBusyMask + kAlignment) & (kSmallBusyMask + kAlignment - 1)) == 0 &&
                  kSmallBusyMask / kAlignment + 1 == kBinCount,
              "the bins' size words must fill the mask's bits exactly");

inline uint32_t SmallBusyOffset(uint32_t sizeFlags) {
    return sizeFlags - kSmallBusyBase;
}

inline bool IsSmallBusy(uint32_t offset) {
    return (offset & ~kSmallBusyMask) == 0;
}

inline bool IsInSpan(const PlatformHeap* heap, uintptr_t address) {
    uintptr_t low = heap->m_LowAddress.load(std::memory_order_acquire);
    return address - low < heap->m_AddressSpan.load(std::memory_order_relaxed);
}

// OwnedBusyBlock's tests for the blocks the one test leaves: the busy flag, then a large block's
// region header, or any other block's size, which an end tag lacks.
inline bool IsOtherBusyBlock(const PlatformHeap* heap, BlockHeader* block, uint32_t word) {
    if (!(word & kBusy)) {
        return false;
    }
    if (word & kLarge) {
        Region* region = LargeRegionOf(block);
        return region->m_Magic == kRegionMagic && region->m_Heap == heap;
    }
    return word >= kMinBlockSize;  // end tags have size 0
}

// A block handed out by this heap and not yet given back, or null; *sizeFlags gets its size word,
// so the free path reads each header word once.
ZN_HEAP_HOT BlockHeader* OwnedBusyBlock(const PlatformHeap* heap, const void* user, uint32_t* sizeFlags) {
    uintptr_t address = reinterpret_cast<uintptr_t>(user);
    if (address % kAlignment != 0 || !IsInSpan(heap, address)) {
        return nullptr;
    }
    BlockHeader* block = HeaderOf(user);
    uint32_t word = Peek(&block->m_SizeFlags);
    *sizeFlags = word;
    // A free block or an end tag has a zero check word, which may match; its size word then fails it.
    if (Peek(&block->m_Check) != CheckWord(heap, block) || IsCached(block)) {
        return nullptr;
    }
    if (__builtin_expect(IsSmallBusy(SmallBusyOffset(word)), 1) || IsOtherBusyBlock(heap, block, word)) {
        return block;
    }
    return nullptr;
}

ZN_HEAP_HOT BlockHeader* OwnedBusyBlock(const PlatformHeap* heap, const void* user) {
    uint32_t sizeFlags = 0;
    return OwnedBusyBlock(heap, user, &sizeFlags);
}

// ---- the free index ----------------------------------------------------------------------------

inline ListIndex IndexOf(uint32_t size) {
    if (size < kLinearLimit) {
        return {0, size / kAlignment};
    }
    uint32_t log2 = HighBit(size);
    return {log2 - kFlShift, (size >> (log2 - kSlLog2)) - kSlCount};
}

// The smallest size whose class holds only blocks of at least `size`, so a search never looks
// inside a list.
inline uint32_t ClassRoundUp(uint32_t size) {
    if (size < kLinearLimit) {
        return size;
    }
    uint32_t step = 1u << (HighBit(size) - kSlLog2);
    return (size + step - 1) & ~(step - 1);
}

void InsertFree(PlatformHeap* heap, BlockHeader* block) {
    ListIndex index = IndexOf(SizeOf(block));
    BlockHeader*& head = heap->m_FreeLists[index.m_Fl][index.m_Sl];
    Poke(&LinksOf(block)->m_Next, head);
    Poke(&LinksOf(block)->m_Prev, nullptr);
    if (head) {
        Poke(&LinksOf(head)->m_Prev, block);
    }
    head = block;
    heap->m_FlBitmap |= 1u << index.m_Fl;
    heap->m_SlBitmap[index.m_Fl] |= 1u << index.m_Sl;
}

void RemoveFree(PlatformHeap* heap, BlockHeader* block) {
    ListIndex index = IndexOf(SizeOf(block));
    BlockHeader* next = Peek(&LinksOf(block)->m_Next);
    BlockHeader* prev = Peek(&LinksOf(block)->m_Prev);
    if (next) {
        Poke(&LinksOf(next)->m_Prev, prev);
    }
    if (prev) {
        Poke(&LinksOf(prev)->m_Next, next);
        return;
    }
    heap->m_FreeLists[index.m_Fl][index.m_Sl] = next;
    if (!next) {
        heap->m_SlBitmap[index.m_Fl] &= ~(1u << index.m_Sl);
        if (heap->m_SlBitmap[index.m_Fl] == 0) {
            heap->m_FlBitmap &= ~(1u << index.m_Fl);
        }
    }
}

// The class that holds `size` itself may have a block that fits although the class is not
// guaranteed to: a look at the first `limit` blocks there.
BlockHeader* ScanClassOf(PlatformHeap* heap, uint32_t size, uint32_t limit) {
    ListIndex index = IndexOf(size);
    if (index.m_Fl >= kFlCount) {
        return nullptr;
    }
    BlockHeader* block = heap->m_FreeLists[index.m_Fl][index.m_Sl];
    for (uint32_t seen = 0; block && seen < limit; ++seen) {
        if (SizeOf(block) >= size) {
            return block;
        }
        block = Peek(&LinksOf(block)->m_Next);
    }
    return nullptr;
}

// A free block of at least `size` bytes. A fit among the first few of size's own class comes first:
// passing it over for a block of a class above, which then has to be split, is what fragments a
// long-running heap (classes of 256 bytes and up span sizes; those below hold one size each). Then
// the smallest class whose blocks all fit, through the bitmaps; last, a longer look in the own
// class, which keeps a nearly full small heap usable.
BlockHeader* FindFree(PlatformHeap* heap, uint32_t size) {
    if (size >= kLinearLimit) {
        if (BlockHeader* block = ScanClassOf(heap, size, kOwnClassScanLimit)) {
            return block;
        }
    }
    ListIndex index = IndexOf(ClassRoundUp(size));
    if (index.m_Fl < kFlCount) {
        uint32_t fl = index.m_Fl;
        uint32_t slMap = heap->m_SlBitmap[fl] & (~0u << index.m_Sl);
        if (!slMap) {
            uint32_t flMap = heap->m_FlBitmap & (~0u << (fl + 1));
            if (flMap) {
                fl = static_cast<uint32_t>(__builtin_ctz(flMap));
                slMap = heap->m_SlBitmap[fl];
            }
        }
        if (slMap) {
            return heap->m_FreeLists[fl][__builtin_ctz(slMap)];
        }
    }
    return ScanClassOf(heap, size, kClassScanLimit);
}

// ---- splitting and merging ---------------------------------------------------------------------

// Makes a busy (or cached, or orphaned) block free: merges it with free neighbours, tags the
// block above, and indexes the result.
void ReleaseBlock(PlatformHeap* heap, BlockHeader* block) {
    uint32_t size = SizeOf(block);
    Poke(&block->m_Check, 0u);
    Poke(&block->m_Requested, 0u);
    uint32_t prevSize = Peek(&block->m_PrevSize);
    if (prevSize) {
        block = PrevOf(block);
        RemoveFree(heap, block);
        size += prevSize;
    }
    BlockHeader* next = At(block, size);
    if (!(FlagsOf(next) & kBusy)) {
        RemoveFree(heap, next);
        size += SizeOf(next);
    }
    Poke(&block->m_SizeFlags, size);
    Poke(&At(block, size)->m_PrevSize, size);
    InsertFree(heap, block);
    Poison(block, size);
}

void MarkBusy(PlatformHeap* heap, BlockHeader* block, uint32_t size) {
    Poke(&block->m_SizeFlags, size | kBusy);
    Poke(&block->m_Check, CheckWord(heap, block));
    Poke(&At(block, size)->m_PrevSize, 0u);
}

// Gives the bytes of a busy block beyond `keep` back when they can stand as a block of their own.
void TrimTail(PlatformHeap* heap, BlockHeader* block, uint32_t keep) {
    uint32_t size = SizeOf(block);
    if (size - keep < kMinBlockSize) {
        return;
    }
    Poke(&block->m_SizeFlags, keep | kBusy);
    BlockHeader* tail = At(block, keep);
    WriteHeader(tail, 0, (size - keep) | kBusy, 0);
    ReleaseBlock(heap, tail);
}

// A busy block of at least `need` bytes from the index, or null; no growth.
BlockHeader* TakeFromIndex(PlatformHeap* heap, uint32_t need) {
    BlockHeader* block = FindFree(heap, need);
    if (!block) {
        return nullptr;
    }
    RemoveFree(heap, block);
    MarkBusy(heap, block, SizeOf(block));
    TrimTail(heap, block, need);
    return block;
}

// ---- front caches ------------------------------------------------------------------------------

// Blocks one refill cuts for a bin: enough to amortise the search, few enough to stay one run.
inline uint32_t RefillCount(uint32_t bin) {
    return std::clamp(BinCapacity(bin) / 8, 4u, 32u);
}

ZN_HEAP_HOT void PushCached(FrontCache* cache, BlockHeader* block, uint32_t bin) {
    Poke(&block->m_Requested, kCachedMark);
    Poke(&LinksOf(block)->m_Next, cache->m_Head[bin]);
    cache->m_Head[bin] = block;
    --cache->m_Room[bin];
}

ZN_HEAP_HOT BlockHeader* PopCached(FrontCache* cache, size_t bin) {
    BlockHeader* block = cache->m_Head[bin];
    if (!block) {
        return nullptr;
    }
    BlockHeader* next = Peek(&LinksOf(block)->m_Next);
    cache->m_Head[bin] = next;
    // The next pop from this bin reads the link of a block freed longer ago, often out of the
    // processor's cache by now; fetching it meanwhile takes that miss off the next allocation.
    if (next) {
        __builtin_prefetch(LinksOf(next));
    }
    ++cache->m_Room[bin];
    return block;
}

void FlushBin(PlatformHeap* heap, FrontCache* cache, uint32_t bin, uint32_t count) {
    for (uint32_t released = 0; released < count; ++released) {
        BlockHeader* block = PopCached(cache, bin);
        if (!block) {
            return;
        }
        ReleaseBlock(heap, block);
    }
}

// Returns every cached block to the index; true when there was any.
bool FlushCache(PlatformHeap* heap, FrontCache* cache) {
    bool any = false;
    for (uint32_t bin = 0; cache && bin < kBinCount; ++bin) {
        any = any || cache->Count(bin) > 0;
        FlushBin(heap, cache, bin, cache->Count(bin));
    }
    return any;
}

void CacheOrRelease(PlatformHeap* heap, FrontCache* cache, BlockHeader* block) {
    uint32_t size = SizeOf(block);
    if (size <= kMaxCachedBlock && cache->m_Room[BinOf(size)] > 0) {
        PushCached(cache, block, BinOf(size));
    } else {
        ReleaseBlock(heap, block);
    }
}

// Cuts a run of blocks from the index: one for the caller, the rest into the cache, so a burst of
// small allocations costs one search (and, on the process heap, one lock).
BlockHeader* Refill(PlatformHeap* heap, FrontCache* cache, uint32_t need) {
    BlockHeader* run = TakeFromIndex(heap, need * RefillCount(BinOf(need)));
    if (!run) {
        return nullptr;
    }
    uint32_t runSize = SizeOf(run);
    MarkBusy(heap, run, need);
    for (uint32_t offset = need; offset < runSize;) {
        uint32_t size = runSize - offset < 2 * need ? runSize - offset : need;
        BlockHeader* piece = At(run, offset);
        WriteHeader(piece, 0, size | kBusy, CheckWord(heap, piece));
        CacheOrRelease(heap, cache, piece);
        offset += size;
    }
    return run;
}

// Takes a cached block back out of the caller's cache, so that it can merge; false when it lies in
// another thread's cache.
bool Uncache(FrontCache* cache, BlockHeader* block) {
    uint32_t bin = BinOf(SizeOf(block));
    BlockHeader* prev = nullptr;
    uint32_t seen = 0;
    for (BlockHeader* entry = cache->m_Head[bin]; entry && seen < kUncacheScanLimit;
         prev = entry, entry = Peek(&LinksOf(entry)->m_Next), ++seen) {
        if (entry == block) {
            BlockHeader* next = Peek(&LinksOf(block)->m_Next);
            if (prev) {
                Poke(&LinksOf(prev)->m_Next, next);
            } else {
                cache->m_Head[bin] = next;
            }
            ++cache->m_Room[bin];
            return true;
        }
    }
    return false;
}

// ---- the medium cache ----------------------------------------------------------------------------

inline uint32_t MediumBinOf(uint32_t size) {
    ListIndex index = IndexOf(size);
    return (index.m_Fl - kMediumFirstFl) * kSlCount + index.m_Sl;
}

inline bool IsMediumSize(uint32_t size) {
    return size > kMaxCachedBlock && size <= kMaxMediumBlock;
}

struct MediumCapacities {
    uint16_t m_Blocks[kMediumBinCount];
};

constexpr MediumCapacities MakeMediumCapacities() {
    MediumCapacities capacities{};
    for (uint32_t bin = 0; bin < kMediumBinCount; ++bin) {
        uint32_t low = (kSlCount + bin % kSlCount) << (bin / kSlCount + kMediumFirstFl + kFlShift - kSlLog2);
        capacities.m_Blocks[bin] = static_cast<uint16_t>(std::clamp(kMediumBinBytes / low, 2u, 512u));
    }
    return capacities;
}

constexpr MediumCapacities kMediumCapacities = MakeMediumCapacities();

size_t MediumBytes(const PlatformHeap* heap) {
    return heap->m_Medium ? heap->m_Medium->m_Bytes : 0;
}

MediumCache* MapMediumCache(PlatformHeap* heap) {
    void* page = mmap(nullptr, RoundUp(sizeof(MediumCache), PageSize()), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    heap->m_Medium = new (page) MediumCache{};
    return heap->m_Medium;
}

void UnmapMediumCache(PlatformHeap* heap) {
    if (heap->m_Medium) {
        munmap(heap->m_Medium, RoundUp(sizeof(MediumCache), PageSize()));
        heap->m_Medium = nullptr;
    }
}

// Parks a freed medium block of `size` bytes; false when its bin or the budget is full.
bool CacheMedium(PlatformHeap* heap, BlockHeader* block, uint32_t size) {
    MediumCache* medium = heap->m_Medium ? heap->m_Medium : MapMediumCache(heap);
    if (!medium) {
        return false;
    }
    uint32_t bin = MediumBinOf(size);
    if (medium->m_Count[bin] >= kMediumCapacities.m_Blocks[bin] || medium->m_Bytes + size > kMediumBudget) {
        return false;
    }
    Poison(block, size);
    Poke(&block->m_Requested, kCachedMark);
    Poke(&LinksOf(block)->m_Next, medium->m_Head[bin]);
    medium->m_Head[bin] = block;
    ++medium->m_Count[bin];
    medium->m_Bytes += size;
    return true;
}

// Unlinks the block after `prev` (the head when prev is null) from a medium bin.
BlockHeader* UnlinkMedium(MediumCache* medium, uint32_t bin, BlockHeader* prev) {
    BlockHeader* block = prev ? Peek(&LinksOf(prev)->m_Next) : medium->m_Head[bin];
    BlockHeader* next = Peek(&LinksOf(block)->m_Next);
    if (prev) {
        Poke(&LinksOf(prev)->m_Next, next);
    } else {
        medium->m_Head[bin] = next;
    }
    --medium->m_Count[bin];
    medium->m_Bytes -= SizeOf(block);
    return block;
}

// A cached block of at least `need` bytes: one of the first few of need's own class that is large
// enough, else the head of the class above, whose blocks all are. It keeps its size: the slack is
// under two classes, and cutting it off would cost the split and merge the cache is there to save.
BlockHeader* TakeMedium(PlatformHeap* heap, uint32_t need) {
    MediumCache* medium = heap->m_Medium;
    if (!medium || medium->m_Bytes == 0) {
        return nullptr;
    }
    uint32_t bin = MediumBinOf(need);
    BlockHeader* prev = nullptr;
    BlockHeader* block = medium->m_Head[bin];
    for (uint32_t seen = 0; block && seen < kMediumScanLimit; ++seen) {
        if (SizeOf(block) >= need) {
            return UnlinkMedium(medium, bin, prev);
        }
        prev = block;
        block = Peek(&LinksOf(block)->m_Next);
    }
    if (bin + 1 < kMediumBinCount && medium->m_Head[bin + 1]) {
        return UnlinkMedium(medium, bin + 1, nullptr);
    }
    return nullptr;
}

// Takes a cached medium block back out, so that it can merge; false when it is not found near the
// head of its bin.
bool UncacheMedium(PlatformHeap* heap, BlockHeader* block) {
    MediumCache* medium = heap->m_Medium;
    if (!medium) {
        return false;
    }
    uint32_t bin = MediumBinOf(SizeOf(block));
    BlockHeader* prev = nullptr;
    uint32_t seen = 0;
    for (BlockHeader* entry = medium->m_Head[bin]; entry && seen < kUncacheScanLimit;
         prev = entry, entry = Peek(&LinksOf(entry)->m_Next), ++seen) {
        if (entry == block) {
            UnlinkMedium(medium, bin, prev);
            return true;
        }
    }
    return false;
}

// Returns every cached medium block to the index; true when there was any.
bool FlushMedium(PlatformHeap* heap) {
    MediumCache* medium = heap->m_Medium;
    if (!medium || medium->m_Bytes == 0) {
        return false;
    }
    for (uint32_t bin = 0; bin < kMediumBinCount; ++bin) {
        while (medium->m_Head[bin]) {
            ReleaseBlock(heap, UnlinkMedium(medium, bin, nullptr));
        }
    }
    return true;
}

// ---- regions -----------------------------------------------------------------------------------

void WidenBounds(PlatformHeap* heap, const Region* region) {
    uintptr_t low = reinterpret_cast<uintptr_t>(region);
    uintptr_t high = low + region->m_Reserved;
    uintptr_t oldLow = heap->m_LowAddress.load(std::memory_order_relaxed);
    uintptr_t oldSpan = heap->m_AddressSpan.load(std::memory_order_relaxed);
    if (oldSpan != 0) {
        low = std::min(low, oldLow);
        high = std::max(high, oldLow + oldSpan);
    }
    heap->m_AddressSpan.store(high - low, std::memory_order_relaxed);
    heap->m_LowAddress.store(low, std::memory_order_release);
}

void LinkRegion(PlatformHeap* heap, Region* region) {
    region->m_Prev = heap->m_LastRegion;
    region->m_Next = nullptr;
    (heap->m_LastRegion ? heap->m_LastRegion->m_Next : heap->m_FirstRegion) = region;
    heap->m_LastRegion = region;
    region->m_Index = heap->m_NextRegionIndex++;
    heap->m_ReservedTotal += region->m_Reserved;
    WidenBounds(heap, region);
}

void UnlinkRegion(PlatformHeap* heap, Region* region) {
    (region->m_Prev ? region->m_Prev->m_Next : heap->m_FirstRegion) = region->m_Next;
    (region->m_Next ? region->m_Next->m_Prev : heap->m_LastRegion) = region->m_Prev;
    heap->m_ReservedTotal -= region->m_Reserved;
}

// Points the neighbours of a region that mremap moved at its new address.
void RelinkMoved(PlatformHeap* heap, Region* region) {
    (region->m_Prev ? region->m_Prev->m_Next : heap->m_FirstRegion) = region;
    (region->m_Next ? region->m_Next->m_Prev : heap->m_LastRegion) = region;
    WidenBounds(heap, region);
}

void UnmapRegion(Region* region) {
    size_t bytes = region->m_Reserved;
    Unpoison(region, bytes);
    munmap(region, bytes);
}

// Reserves address space and commits its head.
Region* MapRegion(size_t reserve, size_t commit) {
    void* base = mmap(nullptr, reserve, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED) {
        return nullptr;
    }
    if (mprotect(base, commit, PROT_READ | PROT_WRITE) != 0) {
        munmap(base, reserve);
        return nullptr;
    }
    Unpoison(base, reserve);  // address space reused from an earlier mapping keeps stale shadow
    return static_cast<Region*>(base);
}

// Lays out a normal region: after headBytes, one free block up to the end tag.
void FormatRegion(PlatformHeap* heap, Region* region, size_t reserve, size_t commit, size_t headBytes) {
    new (region)
        Region{kRegionMagic, 0, false, heap, nullptr, nullptr, reserve, commit, 0, At(region, headBytes)};
    BlockHeader* first = region->m_FirstBlock;
    BlockHeader* endTag = EndTagOf(region);
    WriteHeader(endTag, 0, kBusy, 0);
    Poison(endTag, kHeaderSize);
    WriteHeader(first, 0, Distance(first, endTag) | kBusy, 0);
    LinkRegion(heap, region);
    ReleaseBlock(heap, first);
}

size_t MinCommit(size_t headBytes) {
    return RoundUp(headBytes + kMinBlockSize + kHeaderSize, PageSize());
}

// Commits more of a region's reservation so that a block of `need` bytes fits; the new space
// merges with a free last block.
bool CommitMore(PlatformHeap* heap, Region* region, uint32_t need) {
    size_t wanted = ClassRoundUp(need);
    size_t room = region->m_Reserved - region->m_Committed;
    size_t step = std::min(
        room,
        RoundUp(std::max({wanted, kMinCommitStep, region->m_Committed / kCommitStepDivisor}), PageSize()));
    if (step < wanted) {
        return false;
    }
    if (mprotect(reinterpret_cast<char*>(region) + region->m_Committed, step, PROT_READ | PROT_WRITE) != 0) {
        return false;
    }
    BlockHeader* oldTag = EndTagOf(region);
    region->m_Committed += step;
    BlockHeader* newTag = EndTagOf(region);
    WriteHeader(newTag, 0, kBusy, 0);
    Poison(newTag, kHeaderSize);
    Poke(&oldTag->m_SizeFlags, static_cast<uint32_t>(step) | kBusy);
    ReleaseBlock(heap, oldTag);
    return true;
}

// A growable heap's next region, twice the last one's reservation, large enough for `need`.
bool AddRegion(PlatformHeap* heap, uint32_t need) {
    size_t head = sizeof(Region);
    size_t fit = RoundUp(head + ClassRoundUp(need) + kHeaderSize, PageSize());
    size_t reserve = std::min(kMaxRegionSize, std::max(heap->m_NextRegionReserve, fit));
    if (reserve < fit) {
        return false;
    }
    size_t commit = std::min(reserve, std::max(fit, kMinCommitStep));
    Region* region = MapRegion(reserve, commit);
    if (!region) {
        return false;
    }
    FormatRegion(heap, region, reserve, commit, head);
    heap->m_GrowRegion = region;
    heap->m_NextRegionReserve = std::min(reserve * 2, kMaxGrowRegionReserve);
    return true;
}

// A fixed heap reserved all its regions up front; it only commits more of them.
bool Grow(PlatformHeap* heap, uint32_t need) {
    if (heap->m_MaximumSize == 0) {
        return CommitMore(heap, heap->m_GrowRegion, need) || AddRegion(heap, need);
    }
    for (Region* region = heap->m_FirstRegion; region; region = region->m_Next) {
        if (CommitMore(heap, region, need)) {
            return true;
        }
    }
    return false;
}

size_t CachedBytes(const FrontCache* cache) {
    size_t bytes = 0;
    for (uint32_t bin = 0; cache && bin < kBinCount; ++bin) {
        bytes += size_t{cache->Count(bin)} * (bin + 2) * kAlignment;
    }
    return bytes;
}

BlockHeader* FlushAndTake(PlatformHeap* heap, FrontCache* cache, uint32_t need) {
    bool flushedSmall = FlushCache(heap, cache);
    bool flushedMedium = FlushMedium(heap);
    return flushedSmall || flushedMedium ? TakeFromIndex(heap, need) : nullptr;
}

// A busy block of at least `need` bytes: from the index, else from the caller's cached blocks given
// back, else after growing. A cache holding little is spared until growing fails: giving it back
// on every miss would make a heap near its high-water mark merge and re-split it over and over.
BlockHeader* TakeBlock(PlatformHeap* heap, FrontCache* cache, uint32_t need) {
    if (BlockHeader* block = TakeFromIndex(heap, need)) {
        return block;
    }
    if (CachedBytes(cache) + MediumBytes(heap) >= kFlushBeforeGrowBytes) {
        if (BlockHeader* block = FlushAndTake(heap, cache, need)) {
            return block;
        }
    }
    if (Grow(heap, need)) {
        if (BlockHeader* block = TakeFromIndex(heap, need)) {
            return block;
        }
    }
    return FlushAndTake(heap, cache, need);
}

// ---- large blocks ------------------------------------------------------------------------------

// Under ASan: the region header and the user bytes are addressable; the block header and the
// slack behind the user bytes are not.
void ShadeLarge(Region* region) {
    Unpoison(region, region->m_Reserved);
    Poison(region->m_FirstBlock, kHeaderSize);
    size_t end = kLargeUserOffset + region->m_LargeRequested;
    Poison(reinterpret_cast<char*>(region) + end, region->m_Reserved - end);
}

// A kept mapping of at least mapSize bytes: the smallest that fits, else the largest grown by
// mremap (its resident pages come along). Null when there is none.
Region* TakeSpare(PlatformHeap* heap, size_t mapSize) {
    uint32_t fit = kSpareCount;
    uint32_t largest = kSpareCount;
    for (uint32_t slot = 0; slot < kSpareCount; ++slot) {
        Region* spare = heap->m_SpareLarge[slot];
        if (!spare) {
            continue;
        }
        if (spare->m_Reserved >= mapSize &&
            (fit == kSpareCount || spare->m_Reserved < heap->m_SpareLarge[fit]->m_Reserved)) {
            fit = slot;
        }
        if (largest == kSpareCount || spare->m_Reserved > heap->m_SpareLarge[largest]->m_Reserved) {
            largest = slot;
        }
    }
    uint32_t slot = fit != kSpareCount ? fit : largest;
    if (slot == kSpareCount) {
        return nullptr;
    }
    Region* spare = heap->m_SpareLarge[slot];
    heap->m_SpareLarge[slot] = nullptr;
    if (spare->m_Reserved >= mapSize) {
        return spare;
    }
    size_t oldSize = spare->m_Reserved;
    Unpoison(spare, oldSize);
    void* grown = mremap(spare, oldSize, mapSize, MREMAP_MAYMOVE);
    if (grown == MAP_FAILED) {
        munmap(spare, oldSize);
        return nullptr;
    }
    static_cast<Region*>(grown)->m_Reserved = mapSize;
    return static_cast<Region*>(grown);
}

// Keeps a freed large mapping for reuse instead of unmapping it, evicting a smaller one when both
// slots are taken; false when it is not worth keeping.
bool KeepSpare(PlatformHeap* heap, Region* region) {
    if (region->m_Reserved > kMaxSpareBytes) {
        return false;
    }
    uint32_t slot = 0;
    for (uint32_t candidate = 1; candidate < kSpareCount; ++candidate) {
        Region* held = heap->m_SpareLarge[candidate];
        if (held && (!heap->m_SpareLarge[slot] || held->m_Reserved >= heap->m_SpareLarge[slot]->m_Reserved)) {
            continue;
        }
        slot = candidate;
    }
    if (Region* evicted = heap->m_SpareLarge[slot]) {
        if (evicted->m_Reserved > region->m_Reserved) {
            return false;
        }
        UnmapRegion(evicted);
    }
    // A stale pointer into the mapping must not pass for a block, nor the mapping for a region.
    region->m_Magic = 0;
    Poke(&region->m_FirstBlock->m_Check, 0u);
    Poison(reinterpret_cast<char*>(region) + kLargeHeaderOffset, region->m_Reserved - kLargeHeaderOffset);
    heap->m_SpareLarge[slot] = region;
    return true;
}

void* AllocLarge(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    if (bytes > kMaxRequest) {
        return nullptr;
    }
    size_t mapSize = RoundUp(kLargeUserOffset + bytes, PageSize());
    void* base = TakeSpare(heap, mapSize);
    bool reused = base != nullptr;
    if (reused) {
        mapSize = static_cast<Region*>(base)->m_Reserved;
    } else {
        base = mmap(nullptr, mapSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) {
            return nullptr;
        }
    }
    BlockHeader* block = At(base, kLargeHeaderOffset);
    Region* region =
        new (base) Region{kRegionMagic, 0, true, heap, nullptr, nullptr, mapSize, mapSize, bytes, block};
    LinkRegion(heap, region);
    WriteHeader(block, 0, kLargeSizeFlags, CheckWord(heap, block));
    ShadeLarge(region);
    if (reused && (flags & HEAP_ZERO_MEMORY)) {
        std::memset(UserOf(block), 0, bytes);  // fresh pages read as zero, kept ones do not
    }
    return UserOf(block);
}

void FreeLarge(PlatformHeap* heap, BlockHeader* block) {
    Region* region = LargeRegionOf(block);
    UnlinkRegion(heap, region);
    if (!KeepSpare(heap, region)) {
        UnmapRegion(region);
    }
}

// Resizes a large block's mapping; without mayMove only where it lies. Null on failure.
Region* RemapLarge(PlatformHeap* heap, Region* region, size_t mapSize, bool mayMove) {
    size_t oldSize = region->m_Reserved;
    Unpoison(region, oldSize);
    void* moved = mremap(region, oldSize, mapSize, mayMove ? MREMAP_MAYMOVE : 0);
    if (moved == MAP_FAILED) {
        ShadeLarge(region);
        return nullptr;
    }
    auto* result = static_cast<Region*>(moved);
    heap->m_ReservedTotal = heap->m_ReservedTotal - oldSize + mapSize;
    result->m_Reserved = mapSize;
    result->m_Committed = mapSize;
    if (result != region) {
        result->m_FirstBlock = At(result, kLargeHeaderOffset);
        Poke(&result->m_FirstBlock->m_Check, CheckWord(heap, result->m_FirstBlock));
        RelinkMoved(heap, result);
    }
    return result;
}

// ---- allocation and release under the heap's serialisation --------------------------------------

// Hands out the user bytes of a block whose header is complete.
ZN_HEAP_HOT void* Deliver(BlockHeader* block, size_t bytes, uint32_t flags) {
    char* user = UserOf(block);
    Unpoison(user, bytes);
    if (flags & HEAP_ZERO_MEMORY) {
        std::memset(user, 0, bytes);
    }
    return user;
}

ZN_HEAP_HOT void* HandOut(BlockHeader* block, size_t bytes, uint32_t flags) {
    Poke(&block->m_Requested, static_cast<uint32_t>(bytes));
    return Deliver(block, bytes, flags);
}

// Requests of 1 to kMaxCachedRequest bytes, the ones with a cache bin: (bytes - 1) / kAlignment is
// their bin, and one unsigned test picks them out. A request of 0 bytes takes the miss path.
static_assert(kBinCount * kAlignment == kMaxCachedRequest);

inline bool IsCachedRequest(size_t bytes) {
    return bytes - 1 < kMaxCachedRequest;
}

inline size_t RequestBin(size_t bytes) {
    return (bytes - 1) / kAlignment;
}

// A request served from cache bin `bin`, its own; null when the bin is empty.
ZN_HEAP_HOT void* AllocCached(FrontCache* cache, uint32_t flags, size_t bytes, size_t bin) {
    BlockHeader* block = PopCached(cache, bin);
    return block ? HandOut(block, bytes, flags) : nullptr;
}

// Parks a freed busy block in its cache bin; false when it has none or the bin is full. sizeFlags
// is the block's size word.
ZN_HEAP_HOT bool FreeCached(FrontCache* cache, BlockHeader* block, uint32_t sizeFlags) {
    uint32_t offset = SmallBusyOffset(sizeFlags);
    if (!IsSmallBusy(offset)) {
        return false;
    }
    uint32_t bin = offset / kAlignment;
    if (cache->m_Room[bin] == 0) {
        return false;
    }
    Poison(block, offset + kMinBlockSize);
    PushCached(cache, block, bin);
    return true;
}

void* AllocUncached(PlatformHeap* heap, FrontCache* cache, uint32_t flags, size_t bytes) {
    if (bytes >= kLargeThreshold && heap->m_MaximumSize == 0) {
        return AllocLarge(heap, flags, bytes);
    }
    if (bytes > kMaxNormalRequest) {
        return nullptr;
    }
    uint32_t need = BlockSizeFor(bytes);
    BlockHeader* block = IsMediumSize(need) ? TakeMedium(heap, need) : nullptr;
    if (!block) {
        block = TakeBlock(heap, cache, need);
    }
    return block ? HandOut(block, bytes, flags) : nullptr;
}

ZN_HEAP_COLD void* AllocMiss(PlatformHeap* heap, FrontCache* cache, uint32_t flags, size_t bytes) {
    if (cache && bytes <= kMaxCachedRequest) {
        uint32_t need = BlockSizeFor(bytes);
        BlockHeader* block = PopCached(cache, BinOf(need));  // a request of 0 bytes comes here first
        if (block || (block = Refill(heap, cache, need))) {
            return HandOut(block, bytes, flags);
        }
    }
    return AllocUncached(heap, cache, flags, bytes);
}

// Frees what the cache bins do not take; true, so that a caller can hand its result on.
ZN_HEAP_COLD bool FreeMiss(PlatformHeap* heap, FrontCache* cache, BlockHeader* block) {
    uint32_t size = SizeOf(block);
    if (FlagsOf(block) & kLarge) {
        FreeLarge(heap, block);
    } else if (cache && size <= kMaxCachedBlock) {
        FlushBin(heap, cache, BinOf(size), std::min(BinCapacity(BinOf(size)) / 2, kMaxFlushCount));
        Poison(block, size);
        PushCached(cache, block, BinOf(size));
    } else if (!IsMediumSize(size) || !CacheMedium(heap, block, size)) {
        ReleaseBlock(heap, block);
    }
    return true;
}

// cache: the front cache the caller may use, or null.
ZN_HEAP_HOT void* AllocExclusive(PlatformHeap* heap, FrontCache* cache, uint32_t flags, size_t bytes) {
    if (cache && IsCachedRequest(bytes)) {
        if (void* user = AllocCached(cache, flags, bytes, RequestBin(bytes))) {
            return user;
        }
    }
    return AllocMiss(heap, cache, flags, bytes);
}

ZN_HEAP_HOT void FreeExclusive(PlatformHeap* heap, FrontCache* cache, BlockHeader* block,
                               uint32_t sizeFlags) {
    if (!cache || !FreeCached(cache, block, sizeFlags)) {
        FreeMiss(heap, cache, block);
    }
}

void FreeExclusive(PlatformHeap* heap, FrontCache* cache, BlockHeader* block) {
    FreeExclusive(heap, cache, block, Peek(&block->m_SizeFlags));
}

// Grows a busy block over the free block above it when the two hold `need` together. A neighbour
// parked in the caller's cache is taken back first.
bool AbsorbNext(PlatformHeap* heap, FrontCache* cache, BlockHeader* block, uint32_t need) {
    BlockHeader* next = NextOf(block);
    if (IsCached(next) &&
        (IsMediumSize(SizeOf(next)) ? UncacheMedium(heap, next) : cache && Uncache(cache, next))) {
        ReleaseBlock(heap, next);
    }
    if (FlagsOf(next) & kBusy) {
        return false;
    }
    uint32_t total = SizeOf(block) + SizeOf(next);
    if (total < need) {
        return false;
    }
    RemoveFree(heap, next);
    MarkBusy(heap, block, total);
    return true;
}

bool ResizeInPlace(PlatformHeap* heap, FrontCache* cache, BlockHeader* block, size_t bytes, uint32_t flags) {
    uint32_t need = BlockSizeFor(bytes);
    if (need > SizeOf(block) && !AbsorbNext(heap, cache, block, need)) {
        return false;
    }
    TrimTail(heap, block, need);
    uint32_t oldBytes = Peek(&block->m_Requested);
    Poke(&block->m_Requested, static_cast<uint32_t>(bytes));
    char* user = UserOf(block);
    Poison(user + bytes, SizeOf(block) - kHeaderSize - bytes);
    Unpoison(user, bytes);
    if ((flags & HEAP_ZERO_MEMORY) && bytes > oldBytes) {
        std::memset(user + oldBytes, 0, bytes - oldBytes);
    }
    return true;
}

// What a growing block is given when it has to move: half as much again as it had, so that a block
// grown a little at a time (a string, an array) moves only every few steps. HeapSize stays exact.
size_t GrowthCapacity(size_t oldBytes, size_t bytes) {
    return bytes > oldBytes ? std::max(bytes, std::min(oldBytes + oldBytes / 2, kMaxRequest)) : bytes;
}

// Lowers the recorded size of a block just handed out with room to spare.
void RecordRequested(BlockHeader* block, size_t bytes) {
    if (FlagsOf(block) & kLarge) {
        Region* region = LargeRegionOf(block);
        region->m_LargeRequested = bytes;
        ShadeLarge(region);
        return;
    }
    Poke(&block->m_Requested, static_cast<uint32_t>(bytes));
    Poison(UserOf(block) + bytes, SizeOf(block) - kHeaderSize - bytes);
}

// A block of `bytes` with room up to `capacity` if that much is to be had.
char* AllocWithRoom(PlatformHeap* heap, FrontCache* cache, uint32_t flags, size_t bytes, size_t capacity) {
    if (capacity > bytes) {
        if (auto* roomy = static_cast<char*>(AllocExclusive(heap, cache, flags, capacity))) {
            RecordRequested(HeaderOf(roomy), bytes);
            return roomy;
        }
    }
    return static_cast<char*>(AllocExclusive(heap, cache, flags, bytes));
}

void* MoveBlock(PlatformHeap* heap, FrontCache* cache, uint32_t flags, BlockHeader* block, size_t bytes) {
    size_t oldBytes = RequestedOf(block);
    char* target =
        AllocWithRoom(heap, cache, flags & ~HEAP_ZERO_MEMORY, bytes, GrowthCapacity(oldBytes, bytes));
    if (!target) {
        return nullptr;
    }
    std::memcpy(target, UserOf(block), std::min(oldBytes, bytes));
    if ((flags & HEAP_ZERO_MEMORY) && bytes > oldBytes) {
        std::memset(target + oldBytes, 0, bytes - oldBytes);
    }
    FreeExclusive(heap, cache, block);
    return target;
}

// Fits a large block's mapping to `bytes`: it keeps a mapping that still fits unless most of it
// would go unused, and a growth that may move is given room as MoveBlock gives it. Null on failure,
// with the mapping unchanged.
Region* ResizeMapping(PlatformHeap* heap, Region* region, size_t bytes, bool inPlaceOnly) {
    size_t needed = RoundUp(kLargeUserOffset + bytes, PageSize());
    size_t current = region->m_Reserved;
    // A growth that fits keeps the mapping whatever its size (it may be a kept one, larger than
    // asked for); a shrink gives the pages back once most of them would go unused.
    if (needed <= current && (needed >= current / 2 || bytes >= region->m_LargeRequested)) {
        return region;
    }
    if (needed > current && !inPlaceOnly) {
        size_t roomy =
            RoundUp(kLargeUserOffset + GrowthCapacity(region->m_LargeRequested, bytes), PageSize());
        if (Region* moved = RemapLarge(heap, region, roomy, true)) {
            return moved;
        }
    }
    return RemapLarge(heap, region, needed, !inPlaceOnly);
}

// A large block stays in its mapping (resized by mremap, which moves pages without copying when
// it may move) unless it shrinks below the large threshold and may move.
void* ReAllocLarge(PlatformHeap* heap, FrontCache* cache, uint32_t flags, BlockHeader* block, size_t bytes) {
    bool inPlaceOnly = flags & HEAP_REALLOC_IN_PLACE_ONLY;
    Region* region = LargeRegionOf(block);
    size_t oldBytes = region->m_LargeRequested;
    if (bytes < kLargeThreshold && bytes < oldBytes && !inPlaceOnly) {
        return MoveBlock(heap, cache, flags, block, bytes);
    }
    size_t oldMapSize = region->m_Reserved;
    region = ResizeMapping(heap, region, bytes, inPlaceOnly);
    if (!region) {
        return nullptr;
    }
    region->m_LargeRequested = bytes;
    ShadeLarge(region);
    char* user = UserOf(region->m_FirstBlock);
    // Only the old mapping can hold stale bytes; pages added by mremap read as zero.
    size_t staleEnd = std::min(bytes, oldMapSize - kLargeUserOffset);
    if ((flags & HEAP_ZERO_MEMORY) && staleEnd > oldBytes) {
        std::memset(user + oldBytes, 0, staleEnd - oldBytes);
    }
    return user;
}

void* ReAllocExclusive(PlatformHeap* heap, FrontCache* cache, uint32_t flags, void* user, size_t bytes) {
    BlockHeader* block = OwnedBusyBlock(heap, user);
    if (!block || bytes > kMaxRequest) {
        return nullptr;
    }
    if (FlagsOf(block) & kLarge) {
        return ReAllocLarge(heap, cache, flags, block, bytes);
    }
    if (bytes <= kMaxNormalRequest && ResizeInPlace(heap, cache, block, bytes, flags)) {
        return user;
    }
    if (flags & HEAP_REALLOC_IN_PLACE_ONLY) {
        return nullptr;
    }
    return MoveBlock(heap, cache, flags, block, bytes);
}

// ---- the process heap's thread caches ------------------------------------------------------------
//
// A thread opens its cache with a relaxed store and a relaxed-then-acquire load, no fence. A thread
// that needs the whole heap (HeapLock, a walk, HeapValidate) sets m_Quiescing and then runs
// membarrier, which puts a full fence into every running thread of the process: after it, each
// cache owner either sees m_Quiescing on its next EnterCache or has its m_Active store visible,
// and the quiescing thread waits for that m_Active to drop. So the fast path pays no atomic
// read-modify-write, and the rare whole-heap lock pays one system call.

inline bool EnterCache(const PlatformHeap* heap, ThreadCache* cache) {
    cache->m_Active.store(1, std::memory_order_relaxed);
    // The compiler must keep the store before the load; the processor fence comes from membarrier.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (heap->m_Quiescing.load(std::memory_order_acquire) == 0) {
        return true;
    }
    cache->m_Active.store(0, std::memory_order_release);
    return false;
}

inline void LeaveCache(ThreadCache* cache) {
    cache->m_Active.store(0, std::memory_order_release);
}

void Quiesce(PlatformHeap* heap) {
    heap->m_Quiescing.store(1, std::memory_order_relaxed);
    syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0);
    for (ThreadCache* cache = heap->m_ThreadCacheList; cache; cache = cache->m_Next) {
        for (uint32_t round = 0; cache->m_Active.load(std::memory_order_acquire) != 0; ++round) {
            if (round < kSpinCount) {
                PauseHint();
            } else {
                YieldProcessor();
            }
        }
    }
}

// Locks the heap against every other thread, thread caches included.
void LockWhole(PlatformHeap* heap) {
    heap->m_Lock.Lock();
    if (heap->m_Mode == HeapMode::kThreadCached && heap->m_QuiesceDepth++ == 0) {
        Quiesce(heap);
    }
}

void UnlockWhole(PlatformHeap* heap) {
    if (heap->m_Mode == HeapMode::kThreadCached && --heap->m_QuiesceDepth == 0) {
        heap->m_Quiescing.store(0, std::memory_order_release);
    }
    heap->m_Lock.Unlock();
}

// Serialises a whole-heap operation (walk step, validation, count); an unserialised heap leaves
// that to its caller like every other operation.
class WholeHeapGuard {
public:
    explicit WholeHeapGuard(PlatformHeap* heap)
        : m_Heap(heap->m_Mode == HeapMode::kUnserialised ? nullptr : heap) {
        if (m_Heap) {
            LockWhole(m_Heap);
        }
    }
    ~WholeHeapGuard() {
        if (m_Heap) {
            UnlockWhole(m_Heap);
        }
    }
    WholeHeapGuard(const WholeHeapGuard&) = delete;
    WholeHeapGuard& operator=(const WholeHeapGuard&) = delete;

private:
    PlatformHeap* m_Heap;
};

// Carves a mapped chunk into thread caches; all but the one returned go to the spare list.
ThreadCache* MapThreadCaches(PlatformHeap* heap) {
    void* chunk =
        mmap(nullptr, kThreadCacheChunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (chunk == MAP_FAILED) {
        return nullptr;
    }
    auto* caches = static_cast<ThreadCache*>(chunk);
    for (size_t index = 1; index < kThreadCacheChunk / sizeof(ThreadCache); ++index) {
        ThreadCache* spare = new (&caches[index]) ThreadCache{};
        spare->m_Next = heap->m_SpareThreadCaches;
        heap->m_SpareThreadCaches = spare;
    }
    return &caches[0];
}

// At thread exit: the cached blocks go back to the heap and the cache to the spare list. (Unused
// under ThreadSanitizer, which runs without the caches.)
[[maybe_unused]] void DetachThreadCache(void* value) {
    auto* cache = static_cast<ThreadCache*>(value);
    PlatformHeap* heap = cache->m_Heap;
    MutexGuard guard(&heap->m_Lock);
    FlushCache(heap, &cache->m_Bins);
    (cache->m_Prev ? cache->m_Prev->m_Next : heap->m_ThreadCacheList) = cache->m_Next;
    if (cache->m_Next) {
        cache->m_Next->m_Prev = cache->m_Prev;
    }
    cache->m_Next = heap->m_SpareThreadCaches;
    heap->m_SpareThreadCaches = cache;
    t_ThreadCache = nullptr;
    t_ThreadCacheRetired = true;
}

// The calling thread's cache, registered on first use; null once the thread is exiting. Called
// under the heap lock.
ThreadCache* AttachThreadCache(PlatformHeap* heap) {
    if (t_ThreadCache || t_ThreadCacheRetired) {
        return t_ThreadCache;
    }
    ThreadCache* cache = heap->m_SpareThreadCaches;
    if (cache) {
        heap->m_SpareThreadCaches = cache->m_Next;
    } else if (!(cache = MapThreadCaches(heap))) {
        return nullptr;
    }
    new (cache) ThreadCache{};
    if (pthread_setspecific(s_ThreadCacheKey, cache) != 0) {
        cache->m_Next = heap->m_SpareThreadCaches;
        heap->m_SpareThreadCaches = cache;
        return nullptr;
    }
    cache->m_Heap = heap;
    cache->m_Next = heap->m_ThreadCacheList;
    if (cache->m_Next) {
        cache->m_Next->m_Prev = cache;
    }
    heap->m_ThreadCacheList = cache;
    t_ThreadCache = cache;
    return cache;
}

inline FrontCache* BinsOf(ThreadCache* cache) {
    return cache ? &cache->m_Bins : nullptr;
}

ZN_HEAP_COLD void* AllocThreadCachedMiss(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    MutexGuard guard(&heap->m_Lock);
    return AllocExclusive(heap, BinsOf(AttachThreadCache(heap)), flags, bytes);
}

ZN_HEAP_COLD void FreeThreadCachedMiss(PlatformHeap* heap, BlockHeader* block) {
    MutexGuard guard(&heap->m_Lock);
    FreeExclusive(heap, BinsOf(AttachThreadCache(heap)), block);
}

ZN_HEAP_HOT void* AllocThreadCached(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    ThreadCache* cache = t_ThreadCache;
    if (cache && bytes <= kMaxCachedRequest && EnterCache(heap, cache)) {
        void* user = AllocCached(&cache->m_Bins, flags, bytes, BinOf(BlockSizeFor(bytes)));
        LeaveCache(cache);
        if (user) {
            return user;
        }
    }
    return AllocThreadCachedMiss(heap, flags, bytes);
}

ZN_HEAP_HOT void FreeThreadCached(PlatformHeap* heap, BlockHeader* block, uint32_t sizeFlags) {
    ThreadCache* cache = t_ThreadCache;
    if (cache && EnterCache(heap, cache)) {
        bool cached = FreeCached(&cache->m_Bins, block, sizeFlags);
        LeaveCache(cache);
        if (cached) {
            return;
        }
    }
    FreeThreadCachedMiss(heap, block);
}

bool EnableThreadCaches() {
#if ZN_HEAP_THREAD_SANITIZER
    return false;  // ThreadSanitizer cannot see the membarrier fence the caches rely on
#else
    if (syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) != 0) {
        return false;
    }
    return pthread_key_create(&s_ThreadCacheKey, DetachThreadCache) == 0;
#endif
}

// ---- creation ----------------------------------------------------------------------------------

uint32_t MakeCookie(const void* seed) {
    static std::atomic<uint64_t> s_Counter{0};
    uint64_t mix = static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
                   reinterpret_cast<uintptr_t>(seed) ^
                   (s_Counter.fetch_add(1, std::memory_order_relaxed) * 0x9E3779B97F4A7C15ull);
    mix = (mix ^ (mix >> 30)) * 0xBF58476D1CE4E5B9ull;
    mix = (mix ^ (mix >> 27)) * 0x94D049BB133111EBull;
    uint32_t cookie = static_cast<uint32_t>(mix ^ (mix >> 31) ^ (mix >> 32));
    return cookie ? cookie : 0x5A4E1;
}

void DestroyRegions(PlatformHeap* heap) {
    for (Region*& spare : heap->m_SpareLarge) {
        if (spare) {
            UnmapRegion(spare);
            spare = nullptr;
        }
    }
    UnmapMediumCache(heap);
    Region* home = heap->m_HomeRegion;
    for (Region* region = heap->m_FirstRegion; region;) {
        Region* next = region->m_Next;
        if (region != home) {
            UnmapRegion(region);
        }
        region = next;
    }
    heap->m_Magic = 0;
    heap->~PlatformHeap();
    UnmapRegion(home);
}

// A fixed heap reserves the rest of its maximum at creation, in regions of at most 1 GiB.
bool ReserveFixedRest(PlatformHeap* heap, size_t bytes) {
    while (bytes > 0) {
        size_t reserve = std::min(bytes, kMaxRegionSize);
        size_t commit = std::min(reserve, MinCommit(sizeof(Region)));
        Region* region = reserve >= commit ? MapRegion(reserve, commit) : nullptr;
        if (!region) {
            return false;
        }
        FormatRegion(heap, region, reserve, commit, sizeof(Region));
        bytes -= reserve;
    }
    return true;
}

PlatformHeap* CreateProcessHeap() {
    PlatformHeap* heap = HeapCreate(0, kProcessHeapInitialCommit, 0);
    if (heap) {
        heap->m_IsProcessHeap = true;
        heap->m_NextRegionReserve = kProcessHeapRegionReserve;
        heap->m_Mode = EnableThreadCaches() ? HeapMode::kThreadCached : HeapMode::kSerialised;
    }
    return heap;
}

// ---- walking -----------------------------------------------------------------------------------

inline uint32_t Clamp32(size_t value) {
    return static_cast<uint32_t>(std::min<size_t>(value, UINT32_MAX));
}

bool EmitRegion(Region* region, HeapWalkEntry* entry) {
    if (!region) {
        return false;
    }
    *entry = HeapWalkEntry{};
    entry->lpData = region;
    entry->cbData = Clamp32(region->m_Committed);
    entry->iRegionIndex = region->m_Index;
    entry->wFlags = PROCESS_HEAP_REGION;
    entry->dwCommittedSize = Clamp32(region->m_Committed);
    entry->dwUnCommittedSize = Clamp32(region->m_Reserved - region->m_Committed);
    entry->lpFirstBlock = region->m_FirstBlock;
    entry->lpLastBlock = reinterpret_cast<char*>(region) + region->m_Committed;
    return true;
}

// A walk step reads one header per block, in address order, each found only through the one
// before; fetching lines a page ahead keeps the step from waiting on memory for each in turn.
constexpr size_t kWalkPrefetchDistance = 4096;

// A block's m_SizeFlags and m_Requested in one read, the first in the low half. For walks only:
// their callers have the heap to themselves, so the words need no atomic reads.
ZN_HEAP_METADATA inline uint64_t PeekSizeAndRequested(const BlockHeader* block) {
    static_assert(offsetof(BlockHeader, m_Requested) == offsetof(BlockHeader, m_SizeFlags) + 4 &&
                  std::endian::native == std::endian::little);
    // A plain load even unoptimised: a call to memcpy would go through the sanitizer's checks.
    using Words __attribute__((aligned(4), may_alias)) = uint64_t;
    return *reinterpret_cast<const Words*>(&block->m_SizeFlags);
}

// EmitBlock for a block of a normal region whose header words the caller has read.
ZN_HEAP_HOT void EmitNormalBlock(const Region* region, BlockHeader* block, uint32_t sizeFlags,
                                 uint32_t requested, HeapWalkEntry* entry) {
    uint32_t span = sizeFlags & ~kFlagMask;
    bool busy = (sizeFlags & kBusy) && requested != kCachedMark;
    uint32_t data = busy ? requested : span - kHeaderSize;
    entry->lpData = UserOf(block);
    entry->cbData = data;
    entry->cbOverhead = static_cast<uint8_t>(std::min<uint32_t>(span - data, 255));
    entry->iRegionIndex = region->m_Index;
    entry->wFlags = busy ? PROCESS_HEAP_ENTRY_BUSY : 0;
    entry->dwCommittedSize = 0;
    entry->dwUnCommittedSize = 0;
    entry->lpFirstBlock = const_cast<Region*>(region);
    entry->lpLastBlock = nullptr;
}

void EmitBlock(Region* region, BlockHeader* block, HeapWalkEntry* entry) {
    bool busy = IsInUse(block);
    size_t span = region->m_Large ? region->m_Reserved - kLargeHeaderOffset : SizeOf(block);
    size_t data = busy ? RequestedOf(block) : span - kHeaderSize;
    *entry = HeapWalkEntry{};
    entry->lpData = UserOf(block);
    entry->cbData = Clamp32(data);
    entry->cbOverhead = static_cast<uint8_t>(std::min<size_t>(span - data, 255));
    entry->iRegionIndex = region->m_Index;
    entry->wFlags = busy ? PROCESS_HEAP_ENTRY_BUSY : 0;
    entry->lpFirstBlock = region;
}

void EmitUncommitted(Region* region, HeapWalkEntry* entry) {
    *entry = HeapWalkEntry{};
    entry->lpData = reinterpret_cast<char*>(region) + region->m_Committed;
    entry->cbData = Clamp32(region->m_Reserved - region->m_Committed);
    entry->iRegionIndex = region->m_Index;
    entry->wFlags = PROCESS_HEAP_UNCOMMITTED_RANGE;
    entry->lpFirstBlock = region;
}

// Emits `block`, or when it is past the last block, what follows in the walk.
bool EmitFrom(PlatformHeap* heap, Region* region, BlockHeader* block, HeapWalkEntry* entry) {
    if (block && block != EndTagOf(region)) {
        EmitBlock(region, block, entry);
        if (!region->m_Large) {
            heap->m_WalkData = entry->lpData;
            heap->m_WalkNext = NextOf(block);
            heap->m_WalkEnd = EndTagOf(region);
            heap->m_WalkRegion = region;
        }
        return true;
    }
    if (region->m_Committed < region->m_Reserved) {
        EmitUncommitted(region, entry);
        return true;
    }
    return EmitRegion(region->m_Next, entry);
}

// A cheap guard against a cursor that does not come from this heap's walk.
bool IsBlockOf(Region* region, BlockHeader* block) {
    if (region->m_Large) {
        return block == region->m_FirstBlock;
    }
    return reinterpret_cast<uintptr_t>(block) % kAlignment == 0 && block >= region->m_FirstBlock &&
           block < EndTagOf(region);
}

bool WalkStep(PlatformHeap* heap, HeapWalkEntry* entry) {
    if (!entry->lpData) {
        return EmitRegion(heap->m_FirstRegion, entry);
    }
    bool atRegion = entry->wFlags & PROCESS_HEAP_REGION;
    auto* region = static_cast<Region*>(atRegion ? entry->lpData : entry->lpFirstBlock);
    if (!region || region->m_Magic != kRegionMagic || region->m_Heap != heap) {
        return false;
    }
    if (atRegion) {
        return EmitFrom(heap, region, region->m_FirstBlock, entry);
    }
    if (entry->wFlags & PROCESS_HEAP_UNCOMMITTED_RANGE) {
        return EmitRegion(region->m_Next, entry);
    }
    BlockHeader* block = HeaderOf(entry->lpData);
    if (!IsBlockOf(region, block)) {
        return false;
    }
    return EmitFrom(heap, region, region->m_Large ? nullptr : NextOf(block), entry);
}

// The common step, from the block the cursor names to the next block of its region; false for any
// other step, which WalkStep then takes (and checks) in full.
ZN_HEAP_HOT bool WalkToNextBlock(PlatformHeap* heap, HeapWalkEntry* entry) {
    if (entry->lpData != heap->m_WalkData ||
        (entry->wFlags & (PROCESS_HEAP_REGION | PROCESS_HEAP_UNCOMMITTED_RANGE))) {
        return false;
    }
    BlockHeader* block = heap->m_WalkNext;
    if (block >= heap->m_WalkEnd) {
        return false;
    }
    // One header read links each step to the next: the cursor carries the address forward so the
    // step does not wait on a second read of the header before.
    uint64_t words = PeekSizeAndRequested(block);
    auto sizeFlags = static_cast<uint32_t>(words);
    auto requested = static_cast<uint32_t>(words >> 32);
    heap->m_WalkNext = At(block, sizeFlags & ~kFlagMask);
    heap->m_WalkData = UserOf(block);
    // Blocks average under three lines: three lines per step keep pace with the walk.
    char* ahead = reinterpret_cast<char*>(block) + kWalkPrefetchDistance;
    __builtin_prefetch(ahead);
    __builtin_prefetch(ahead + 64);
    __builtin_prefetch(ahead + 128);
    EmitNormalBlock(heap->m_WalkRegion, block, sizeFlags, requested, entry);
    return true;
}

// A walk step may skip the heap's lock when the heap has none to take or the caller holds it (and,
// on the process heap, has the thread caches quiesced), as it must for a consistent walk.
bool HeldWholeByCaller(const PlatformHeap* heap) {
    return heap->m_Lock.IsHeldByCaller() &&
           (heap->m_Mode != HeapMode::kThreadCached || heap->m_QuiesceDepth > 0);
}

// Every step but the common one of an unserialised heap.
__attribute__((noinline)) bool WalkSlow(PlatformHeap* heap, HeapWalkEntry* entry) {
    if (!heap || !entry) {
        return false;
    }
    if (heap->m_Mode != HeapMode::kUnserialised && HeldWholeByCaller(heap) && WalkToNextBlock(heap, entry)) {
        return true;
    }
    WholeHeapGuard guard(heap);
    return WalkStep(heap, entry);
}

// ---- validation --------------------------------------------------------------------------------
//
// The free index and the caches are walked first and each block they hold is marked in its
// m_Requested word; the walk over the regions then checks every free or cached block carries the
// mark and clears it. Matching counts on both sides prove each list holds exactly those blocks.

struct Tally {
    size_t m_FreeBlocks = 0;
    size_t m_CachedBlocks = 0;
    size_t m_Reserved = 0;
};

// A running count would cost every allocation a read-modify-write; the count is for tests, so it
// walks instead.
uint64_t BytesInUse(PlatformHeap* heap) {
    uint64_t total = 0;
    for (Region* region = heap->m_FirstRegion; region; region = region->m_Next) {
        if (region->m_Large) {
            total += region->m_LargeRequested;
            continue;
        }
        for (BlockHeader* block = region->m_FirstBlock; block != EndTagOf(region); block = NextOf(block)) {
            total += IsInUse(block) ? Peek(&block->m_Requested) : 0;
        }
    }
    return total;
}

bool Plausible(const PlatformHeap* heap, const BlockHeader* block) {
    uintptr_t address = reinterpret_cast<uintptr_t>(block);
    return address % kAlignment == 0 && IsInSpan(heap, address);
}

// Replaces `expected` in a block's m_Requested by `mark`, once.
const char* MarkListed(BlockHeader* block, uint32_t expected, uint32_t mark) {
    uint32_t requested = Peek(&block->m_Requested);
    if (requested == mark) {
        return "a block is listed twice";
    }
    if (requested != expected) {
        return "a listed block carries the wrong state";
    }
    Poke(&block->m_Requested, mark);
    return nullptr;
}

const char* MarkFreeList(PlatformHeap* heap, uint32_t fl, uint32_t sl, size_t* count) {
    BlockHeader* prev = nullptr;
    for (BlockHeader* block = heap->m_FreeLists[fl][sl]; block; block = Peek(&LinksOf(block)->m_Next)) {
        if (!Plausible(heap, block)) {
            return "a free list points outside the heap";
        }
        if (FlagsOf(block) != 0) {
            return "a block in the free index is not free";
        }
        if (Peek(&LinksOf(block)->m_Prev) != prev) {
            return "a free list back link is wrong";
        }
        ListIndex index = IndexOf(SizeOf(block));
        if (index.m_Fl != fl || index.m_Sl != sl) {
            return "a free block is in the wrong size class";
        }
        if (const char* error = MarkListed(block, 0, kListedMark)) {
            return error;
        }
        prev = block;
        ++*count;
    }
    return nullptr;
}

const char* MarkFreeIndex(PlatformHeap* heap, size_t* count) {
    for (uint32_t fl = 0; fl < kFlCount; ++fl) {
        if (((heap->m_FlBitmap >> fl) & 1) != (heap->m_SlBitmap[fl] != 0)) {
            return "the first-level bitmap disagrees with the second level";
        }
        for (uint32_t sl = 0; sl < kSlCount; ++sl) {
            if (((heap->m_SlBitmap[fl] >> sl) & 1) != (heap->m_FreeLists[fl][sl] != nullptr)) {
                return "a second-level bitmap bit disagrees with its list";
            }
            if (const char* error = MarkFreeList(heap, fl, sl, count)) {
                return error;
            }
        }
    }
    return nullptr;
}

const char* MarkCacheBin(PlatformHeap* heap, FrontCache* cache, uint32_t bin, size_t* count) {
    uint32_t seen = 0;
    for (BlockHeader* block = cache->m_Head[bin]; block; block = Peek(&LinksOf(block)->m_Next)) {
        if (++seen > cache->Count(bin)) {
            return "a cache bin holds more blocks than its count";
        }
        if (!Plausible(heap, block) || FlagsOf(block) != kBusy) {
            return "a cache bin holds a block that is not busy";
        }
        if (SizeOf(block) < kMinBlockSize || SizeOf(block) > kMaxCachedBlock || BinOf(SizeOf(block)) != bin) {
            return "a cached block is in the wrong bin";
        }
        if (const char* error = MarkListed(block, kCachedMark, kListedCachedMark)) {
            return error;
        }
    }
    if (seen != cache->Count(bin)) {
        return "a cache bin holds fewer blocks than its count";
    }
    *count += seen;
    return nullptr;
}

const char* MarkCache(PlatformHeap* heap, FrontCache* cache, size_t* count) {
    for (uint32_t bin = 0; bin < kBinCount; ++bin) {
        if (const char* error = MarkCacheBin(heap, cache, bin, count)) {
            return error;
        }
    }
    return nullptr;
}

const char* MarkMedium(PlatformHeap* heap, size_t* count) {
    MediumCache* medium = heap->m_Medium;
    if (!medium) {
        return nullptr;
    }
    size_t bytes = 0;
    for (uint32_t bin = 0; bin < kMediumBinCount; ++bin) {
        uint32_t seen = 0;
        for (BlockHeader* block = medium->m_Head[bin]; block; block = Peek(&LinksOf(block)->m_Next)) {
            if (++seen > medium->m_Count[bin]) {
                return "a medium cache bin holds more blocks than its count";
            }
            if (!Plausible(heap, block) || FlagsOf(block) != kBusy) {
                return "a medium cache bin holds a block that is not busy";
            }
            if (!IsMediumSize(SizeOf(block)) || MediumBinOf(SizeOf(block)) != bin) {
                return "a medium cached block is in the wrong bin";
            }
            if (const char* error = MarkListed(block, kCachedMark, kListedCachedMark)) {
                return error;
            }
            bytes += SizeOf(block);
        }
        if (seen != medium->m_Count[bin] || seen > kMediumCapacities.m_Blocks[bin]) {
            return "a medium cache bin's count is wrong";
        }
        *count += seen;
    }
    if (bytes != medium->m_Bytes || bytes > kMediumBudget) {
        return "the medium cache's byte count is wrong";
    }
    return nullptr;
}

const char* MarkCaches(PlatformHeap* heap, size_t* count) {
    if (const char* error = MarkCache(heap, &heap->m_Cache, count)) {
        return error;
    }
    if (const char* error = MarkMedium(heap, count)) {
        return error;
    }
    for (ThreadCache* cache = heap->m_ThreadCacheList; cache; cache = cache->m_Next) {
        if (const char* error = MarkCache(heap, &cache->m_Bins, count)) {
            return error;
        }
    }
    return nullptr;
}

const char* CheckFreeBlock(BlockHeader* block, bool prevFree, Tally* tally) {
    if (prevFree) {
        return "two free blocks touch: a merge was missed";
    }
    if (Peek(&block->m_Requested) != kListedMark) {
        return "a free block is missing from the free index";
    }
    Poke(&block->m_Requested, 0u);
    ++tally->m_FreeBlocks;
    return nullptr;
}

const char* CheckBlock(PlatformHeap* heap, BlockHeader* block, bool prevFree, Tally* tally) {
    uint32_t flags = FlagsOf(block);
    if (flags == 0) {
        return CheckFreeBlock(block, prevFree, tally);
    }
    if (flags != kBusy) {
        return "a block has invalid flags";
    }
    if (Peek(&block->m_Check) != CheckWord(heap, block)) {
        return "a busy block's check word is damaged";
    }
    uint32_t requested = Peek(&block->m_Requested);
    if (requested == kCachedMark) {
        return "a cached block is in no cache";
    }
    if (requested == kListedCachedMark) {
        Poke(&block->m_Requested, kCachedMark);
        ++tally->m_CachedBlocks;
        return nullptr;
    }
    if (requested + kHeaderSize > SizeOf(block)) {
        return "a block's requested size exceeds the block";
    }
    return nullptr;
}

const char* CheckBlocks(PlatformHeap* heap, Region* region, Tally* tally) {
    BlockHeader* endTag = EndTagOf(region);
    uint32_t freeBelow = 0;
    for (BlockHeader* block = region->m_FirstBlock; block != endTag;) {
        uint32_t size = SizeOf(block);
        if (size < kMinBlockSize || size > Distance(block, endTag)) {
            return "a block's size runs out of its region";
        }
        if (Peek(&block->m_PrevSize) != freeBelow) {
            return "a boundary tag disagrees with the block below";
        }
        if (const char* error = CheckBlock(heap, block, freeBelow != 0, tally)) {
            return error;
        }
        freeBelow = (FlagsOf(block) & kBusy) ? 0 : size;
        block = At(block, size);
    }
    if (Peek(&endTag->m_SizeFlags) != kBusy || Peek(&endTag->m_PrevSize) != freeBelow) {
        return "a region's end tag is damaged";
    }
    return nullptr;
}

const char* CheckLargeRegion(PlatformHeap* heap, Region* region) {
    BlockHeader* block = region->m_FirstBlock;
    if (block != At(region, kLargeHeaderOffset) || Peek(&block->m_SizeFlags) != kLargeSizeFlags ||
        Peek(&block->m_Check) != CheckWord(heap, block)) {
        return "a large block's header is damaged";
    }
    if (region->m_Committed != region->m_Reserved ||
        kLargeUserOffset + region->m_LargeRequested > region->m_Reserved) {
        return "a large block does not fit its mapping";
    }
    return nullptr;
}

const char* CheckRegions(PlatformHeap* heap, Tally* tally) {
    Region* prev = nullptr;
    bool growRegionSeen = false;
    for (Region* region = heap->m_FirstRegion; region; prev = region, region = region->m_Next) {
        if (region->m_Magic != kRegionMagic || region->m_Heap != heap || region->m_Prev != prev) {
            return "a region header or region link is damaged";
        }
        if (region->m_Committed > region->m_Reserved || region->m_Committed % PageSize() != 0) {
            return "a region's committed size is invalid";
        }
        growRegionSeen = growRegionSeen || (region == heap->m_GrowRegion && !region->m_Large);
        tally->m_Reserved += region->m_Reserved;
        const char* error =
            region->m_Large ? CheckLargeRegion(heap, region) : CheckBlocks(heap, region, tally);
        if (error) {
            return error;
        }
    }
    if (heap->m_LastRegion != prev || !growRegionSeen) {
        return "the region list's tail or growth region is wrong";
    }
    return nullptr;
}

const char* CheckTotals(const PlatformHeap* heap, const Tally& tally, size_t listedFree,
                        size_t listedCached) {
    if (tally.m_FreeBlocks != listedFree) {
        return "the free index holds blocks that are not in any region";
    }
    if (tally.m_CachedBlocks != listedCached) {
        return "a cache holds blocks that are not in any region";
    }
    if (tally.m_Reserved != heap->m_ReservedTotal) {
        return "the reserved total disagrees with the regions";
    }
    if (heap->m_MaximumSize != 0 && tally.m_Reserved > RoundUp(heap->m_MaximumSize, PageSize())) {
        return "a fixed heap reserved more than its maximum";
    }
    return nullptr;
}

// Clears the marks a failed validation left. A list that was marked to its end is walked whole;
// any other only along its marked prefix, which ends even where the list loops.
void UnmarkList(PlatformHeap* heap, BlockHeader* head, uint32_t mark, uint32_t state, bool wholeList) {
    for (BlockHeader* block = head; block && Plausible(heap, block); block = Peek(&LinksOf(block)->m_Next)) {
        if (Peek(&block->m_Requested) == mark) {
            Poke(&block->m_Requested, state);
        } else if (!wholeList) {
            return;
        }
    }
}

void UnmarkCache(PlatformHeap* heap, FrontCache* cache, bool wholeLists) {
    for (uint32_t bin = 0; bin < kBinCount; ++bin) {
        UnmarkList(heap, cache->m_Head[bin], kListedCachedMark, kCachedMark, wholeLists);
    }
}

void UnmarkLists(PlatformHeap* heap, bool wholeLists) {
    for (uint32_t fl = 0; fl < kFlCount; ++fl) {
        for (uint32_t sl = 0; sl < kSlCount; ++sl) {
            UnmarkList(heap, heap->m_FreeLists[fl][sl], kListedMark, 0, wholeLists);
        }
    }
    UnmarkCache(heap, &heap->m_Cache, wholeLists);
    for (uint32_t bin = 0; heap->m_Medium && bin < kMediumBinCount; ++bin) {
        UnmarkList(heap, heap->m_Medium->m_Head[bin], kListedCachedMark, kCachedMark, wholeLists);
    }
    for (ThreadCache* cache = heap->m_ThreadCacheList; cache; cache = cache->m_Next) {
        UnmarkCache(heap, &cache->m_Bins, wholeLists);
    }
}

const char* ValidateHeap(PlatformHeap* heap) {
    size_t listedFree = 0;
    size_t listedCached = 0;
    const char* error = MarkFreeIndex(heap, &listedFree);
    if (!error) {
        error = MarkCaches(heap, &listedCached);
    }
    if (error) {
        UnmarkLists(heap, false);
        return error;
    }
    Tally tally;
    error = CheckRegions(heap, &tally);
    if (!error) {
        error = CheckTotals(heap, tally, listedFree, listedCached);
    }
    if (error) {
        UnmarkLists(heap, true);
    }
    return error;
}

inline bool IsHeap(const PlatformHeap* heap) {
    return heap && heap->m_Magic == kHeapMagic;
}

// The lock one operation on a heap without thread caches takes: none when the heap or the call opts
// out of serialisation (the process heap ignores the call's wish: it is shared by everything).
inline HeapMutex* OperationMutex(PlatformHeap* heap, uint32_t flags) {
    bool unserialised = heap->m_Mode == HeapMode::kUnserialised ||
                        (!heap->m_IsProcessHeap && (flags & HEAP_NO_SERIALIZE) != 0);
    return unserialised ? nullptr : &heap->m_Lock;
}

ZN_HEAP_COLD void* AllocSerialised(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    MutexGuard guard(OperationMutex(heap, flags));
    return AllocExclusive(heap, &heap->m_Cache, flags, bytes);
}

ZN_HEAP_COLD bool FreeSerialised(PlatformHeap* heap, uint32_t flags, void* block) {
    MutexGuard guard(OperationMutex(heap, flags));
    BlockHeader* header = OwnedBusyBlock(heap, block);
    if (header) {
        FreeExclusive(heap, &heap->m_Cache, header);
    }
    return header || !block;
}

// HeapAlloc and HeapFree on a heap with a lock, the process heap or a serialised one; apart, so
// that the unserialised path stays a leaf that needs no stack frame.
__attribute__((noinline)) void* AllocShared(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    if (heap->m_Mode == HeapMode::kThreadCached) {
        return AllocThreadCached(heap, flags, bytes);
    }
    return AllocSerialised(heap, flags, bytes);
}

__attribute__((noinline)) bool FreeShared(PlatformHeap* heap, uint32_t flags, void* block) {
    if (heap->m_Mode != HeapMode::kThreadCached) {
        return FreeSerialised(heap, flags, block);
    }
    uint32_t sizeFlags = 0;
    BlockHeader* header = OwnedBusyBlock(heap, block, &sizeFlags);
    if (!header) {
        return !block;
    }
    FreeThreadCached(heap, header, sizeFlags);
    return true;
}

}  // namespace

// ---- the interface -----------------------------------------------------------------------------

PlatformHeap* HeapCreate(uint32_t options, size_t initialSize, size_t maximumSize) {
    if (initialSize > kMaxRequest || maximumSize > kMaxRequest) {
        return nullptr;
    }
    size_t page = PageSize();
    size_t total = RoundUp(maximumSize, page);
    size_t reserve = maximumSize != 0 ? std::min(total, kMaxRegionSize)
                                      : std::clamp(RoundUp(initialSize + kHomeHeadSize, page),
                                                   kFirstRegionReserve, kMaxRegionSize);
    size_t commit = std::min(reserve, std::max(RoundUp(initialSize, page), MinCommit(kHomeHeadSize)));
    Region* home = MapRegion(reserve, commit);
    if (!home) {
        return nullptr;
    }
    auto* heap = new (reinterpret_cast<char*>(home) + sizeof(Region)) PlatformHeap();
    heap->m_Mode = (options & HEAP_NO_SERIALIZE) ? HeapMode::kUnserialised : HeapMode::kSerialised;
    heap->m_Cookie = MakeCookie(heap);
    heap->m_MaximumSize = maximumSize;
    heap->m_HomeRegion = home;
    heap->m_GrowRegion = home;
    heap->m_NextRegionReserve = std::min(reserve * 2, kMaxGrowRegionReserve);
    FormatRegion(heap, home, reserve, commit, kHomeHeadSize);
    if (!ReserveFixedRest(heap, total - std::min(total, reserve))) {
        DestroyRegions(heap);
        return nullptr;
    }
    return heap;
}

PlatformHeap* GetProcessHeap() {
    static PlatformHeap* s_ProcessHeap = CreateProcessHeap();
    return s_ProcessHeap;
}

bool HeapDestroy(PlatformHeap* heap) {
    if (!IsHeap(heap) || heap->m_IsProcessHeap) {
        return false;
    }
    DestroyRegions(heap);
    return true;
}

void* HeapAlloc(PlatformHeap* heap, uint32_t flags, size_t bytes) {
    if (heap && heap->m_Mode == HeapMode::kUnserialised) {
        return AllocExclusive(heap, &heap->m_Cache, flags, bytes);
    }
    return heap ? AllocShared(heap, flags, bytes) : nullptr;
}

void* HeapReAlloc(PlatformHeap* heap, uint32_t flags, void* block, size_t bytes) {
    if (!heap || !block) {
        return nullptr;
    }
    if (heap->m_Mode == HeapMode::kThreadCached) {
        MutexGuard guard(&heap->m_Lock);
        return ReAllocExclusive(heap, BinsOf(AttachThreadCache(heap)), flags, block, bytes);
    }
    MutexGuard guard(OperationMutex(heap, flags));
    return ReAllocExclusive(heap, &heap->m_Cache, flags, block, bytes);
}

bool HeapFree(PlatformHeap* heap, uint32_t flags, void* block) {
    if (heap && heap->m_Mode == HeapMode::kUnserialised) {
        uint32_t sizeFlags = 0;
        BlockHeader* header = OwnedBusyBlock(heap, block, &sizeFlags);
        if (!header) {
            return !block;
        }
        if (FreeCached(&heap->m_Cache, header, sizeFlags)) {
            return true;
        }
        return FreeMiss(heap, &heap->m_Cache, header);
    }
    return heap ? FreeShared(heap, flags, block) : !block;
}

size_t HeapSize(PlatformHeap* heap, uint32_t flags, const void* block) {
    (void)flags;  // a live block's size changes only through its owner's calls
    if (!heap || !block) {
        return SIZE_MAX;
    }
    BlockHeader* header = OwnedBusyBlock(heap, block);
    return header ? RequestedOf(header) : SIZE_MAX;
}

bool HeapLock(PlatformHeap* heap) {
    if (!heap) {
        return false;
    }
    LockWhole(heap);
    return true;
}

bool HeapUnlock(PlatformHeap* heap) {
    if (!heap || !heap->m_Lock.IsHeldByCaller() ||
        (heap->m_Mode == HeapMode::kThreadCached && heap->m_QuiesceDepth == 0)) {
        return false;
    }
    UnlockWhole(heap);
    return true;
}

bool HeapWalk(PlatformHeap* heap, HeapWalkEntry* entry) {
    if (!heap) {
        return false;
    }
    if (entry && heap->m_Mode == HeapMode::kUnserialised && WalkToNextBlock(heap, entry)) {
        return true;
    }
    return WalkSlow(heap, entry);
}

bool HeapValidate(PlatformHeap* heap) {
    if (!IsHeap(heap)) {
        return false;
    }
    WholeHeapGuard guard(heap);
    heap->m_ValidationError = ValidateHeap(heap);
    return heap->m_ValidationError == nullptr;
}

const char* HeapValidationError(PlatformHeap* heap) {
    return heap ? heap->m_ValidationError : "no heap";
}

size_t HeapBytesInUse(PlatformHeap* heap) {
    if (!heap) {
        return 0;
    }
    WholeHeapGuard guard(heap);
    return static_cast<size_t>(BytesInUse(heap));
}

}  // namespace zn::platform
