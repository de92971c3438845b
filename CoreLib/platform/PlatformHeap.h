// PlatformHeap.h: Win32-style heaps on Linux: create, allocate, resize in place, lock and walk.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zn::platform {

// A heap; the handle points into the heap's first region.
struct PlatformHeap;

// HeapCreate option and per-call flag: no internal lock, the caller serialises.
constexpr uint32_t HEAP_NO_SERIALIZE = 0x00000001;
// HeapAlloc / HeapReAlloc flag: the bytes a call adds to a block read as zero.
constexpr uint32_t HEAP_ZERO_MEMORY = 0x00000008;
// HeapReAlloc flag: resize only where the block lies, else fail and leave it untouched.
constexpr uint32_t HEAP_REALLOC_IN_PLACE_ONLY = 0x00000010;

// HeapWalkEntry kinds, in wFlags; a free block has none of them.
constexpr uint16_t PROCESS_HEAP_REGION = 0x0001;
constexpr uint16_t PROCESS_HEAP_UNCOMMITTED_RANGE = 0x0002;
constexpr uint16_t PROCESS_HEAP_ENTRY_BUSY = 0x0004;

// One step of a heap walk, shaped like Win32's PROCESS_HEAP_ENTRY (DWORD fields are 32 bits).
struct HeapWalkEntry {
    // Region: its first byte. Block: the block's data. Uncommitted range: its first byte.
    void* lpData;
    // Region: committed bytes. Busy block: HeapSize. Free block: usable bytes. Range: its length.
    uint32_t cbData;
    // Bytes the heap spends on a block beyond cbData (header, padding, slack), at most 255.
    uint8_t cbOverhead;
    // Index of the region the entry lies in, counted in creation order (wraps at 256).
    uint8_t iRegionIndex;
    // PROCESS_HEAP_REGION, PROCESS_HEAP_UNCOMMITTED_RANGE, PROCESS_HEAP_ENTRY_BUSY or 0 (free block).
    uint16_t wFlags;
    // Region: committed bytes (capped at 4 GiB - 1). Other entries: 0.
    uint32_t dwCommittedSize;
    // Region: reserved bytes not yet committed. Other entries: 0.
    uint32_t dwUnCommittedSize;
    // Region: its first block. Block and uncommitted range: the region they lie in, the walk's cursor.
    void* lpFirstBlock;
    // Region: the first byte behind its committed part. Other entries: null.
    void* lpLastBlock;
};

// Makes a heap: maximumSize 0 grows on demand; above 0 it reserves maximumSize rounded up to whole
// pages at once and never more. Commits at least initialSize. Null on failure.
PlatformHeap* HeapCreate(uint32_t options, size_t initialSize, size_t maximumSize);

// The process's default heap: made on first call from any thread, serialised, never destroyed.
PlatformHeap* GetProcessHeap();

// Unmaps a heap and all its blocks; false for null, an unknown handle or the process heap.
bool HeapDestroy(PlatformHeap* heap);

// A block of at least `bytes` bytes aligned to 16, distinct even for 0 bytes; null on failure.
void* HeapAlloc(PlatformHeap* heap, uint32_t flags, size_t bytes);

// Resizes a block, moving it (copying the smaller size) unless HEAP_REALLOC_IN_PLACE_ONLY is given.
// Null on failure, and the block stays valid and unchanged; null for a null block.
void* HeapReAlloc(PlatformHeap* heap, uint32_t flags, void* block, size_t bytes);

// Gives a block back; true for null. Rejects, with false, a pointer that is not 16-aligned, lies
// outside the heap's address span, or whose header lacks this heap's check word for its address
// (foreign pointers, interior pointers, blocks already freed), without writing anything.
bool HeapFree(PlatformHeap* heap, uint32_t flags, void* block);

// The size last asked for the block (not rounded up); SIZE_MAX for null or a rejected pointer.
size_t HeapSize(PlatformHeap* heap, uint32_t flags, const void* block);

// Takes the heap's lock, recursively for the owning thread; while it is held no other thread
// changes a serialised heap (its thread caches included), so a walk sees one consistent state. An
// unserialised heap has the lock too, but its own operations never take it.
bool HeapLock(PlatformHeap* heap);

// Releases one level of HeapLock; false when the calling thread does not hold it.
bool HeapUnlock(PlatformHeap* heap);

// Fills *entry with the step after the one it holds (the first when lpData is null): each region,
// then its blocks in address order, then its uncommitted range. False past the last step. The heap
// must not change between steps: hold HeapLock around the walk. Each step is O(1).
bool HeapWalk(PlatformHeap* heap, HeapWalkEntry* entry);

// Checks every invariant: boundary tags, coalescing, free index and bitmaps, cache bins and counts,
// reservation totals. O(blocks).
bool HeapValidate(PlatformHeap* heap);

// Why the last HeapValidate on this heap failed, or null when it passed.
const char* HeapValidationError(PlatformHeap* heap);

// Sum of HeapSize over the live blocks; it walks the heap (O(blocks)), as it is meant for tests.
size_t HeapBytesInUse(PlatformHeap* heap);

}  // namespace zn::platform
