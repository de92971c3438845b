// Heap.h: named heaps over the platform heap, with a running tally of the bytes they hand out,
// per-allocation alignment by a back-pointer, and walks that measure what they reserve.
#pragma once

#include "CoreLib/platform/PlatformHeap.h"

#include <cstddef>
#include <cstdint>

namespace zn {

// Who may allocate from a heap: 0 closed, 3 full access. Alloc itself does not look at it.
enum AllocAccess : unsigned int {
    AllocAccessNone = 0,
    AllocAccessRead = 1,
    AllocAccessWrite = 2,
    AllocAccessFull = 3
};

// Address ranges that a walk found. Its entry storage is never supplied in this library, so
// AppendCache stores nothing and the committed block count stays 0; the machinery stays for a
// build that provides storage.
class HeapCache {
public:
    // One range of addresses, both ends inclusive.
    struct HeapEntry {
        void* low;
        void* high;
    };

    HeapCache() { CreateHeapCache(); }
    HeapCache(const HeapCache& other) = default;
    HeapCache& operator=(const HeapCache& other) = default;
    virtual ~HeapCache() = default;

    // Clears every field: no storage, no ranges, no bounds.
    void CreateHeapCache();
    void DestroyHeapCache() { CreateHeapCache(); }
    // Records the range of a walk entry; null when there is no storage, the entry is empty or the
    // range is already known. Otherwise the stored range.
    HeapEntry* AppendCache(const platform::HeapWalkEntry& entry);
    const platform::HeapWalkEntry& GetEmptyHeapEntry() const { return m_EmptyHeapEntry; }
    const platform::HeapWalkEntry& GetLastHeapEntry() const { return m_LastHeapEntry; }
    void SetLastHeapEntry(const platform::HeapWalkEntry& entry) { m_LastHeapEntry = entry; }
    uint32_t GetNumberOfCommittedBlocks() const { return m_CommittedBlocks; }
    uint32_t GetNumberOfUncommittedRanges() const { return m_UncommittedRanges; }
    // The low address of the stored range that holds p, or null.
    void* CheckBound(void* p) const;
    void* GetHighBound() const { return m_HighBound; }
    void* GetLowBound() const { return m_LowBound; }
    // Counts a busy block or region as committed and an uncommitted range as such, and widens the
    // bounds to take in low..high.
    void DoAccounting(unsigned short flags, void* const low, void* const high);

protected:
    // Storage for ranges and its capacity in entries; null and 0 unless a build supplies them.
    HeapEntry* m_Entries;
    size_t m_EntryCapacity;
    HeapEntry* m_LastEntry;
    platform::HeapWalkEntry m_LastHeapEntry;
    platform::HeapWalkEntry m_EmptyHeapEntry;
    uint32_t m_CommittedBlocks;
    uint32_t m_UncommittedRanges;
    void* m_LowBound;
    void* m_HighBound;
};

// The abstract base of heaps, and the list that chains them all.
class HeapBase {
public:
    HeapBase(const char* name, const unsigned short& id, const unsigned int& fixedSize, bool objectStatic);
    HeapBase(const HeapBase& other) = default;
    HeapBase& operator=(const HeapBase& other) = default;
    virtual ~HeapBase() = default;

    // Makes the heap usable; true when it is.
    virtual bool Create() = 0;
    virtual bool Destroy() = 0;
    virtual void* GetLowestAddress() = 0;
    // True when p lies in a block or region of this heap.
    virtual bool IsPtrOwned(void* p) = 0;
    virtual bool RunConsistencyCheck() = 0;
    virtual void* GetHighestAddress() = 0;
    // Brings the reserved figure up to date when it is out of date.
    virtual void OnQueryMemorySize(void* p) = 0;

    bool IsHeap(const unsigned short& id) const { return m_HeapID == id; }
    unsigned short GetHeapID() const { return m_HeapID; }
    const char* GetHeapName() const { return m_Name; }
    size_t GetMemoryReserved() const { return m_MemoryReserved; }
    size_t GetMemoryInUse() const { return m_MemoryInUse; }
    // Reserved minus in use; wraps around when the last walk is older than the allocations.
    size_t GetMemoryAvailable() const { return m_MemoryReserved - m_MemoryInUse; }
    bool IsHeapValid() const { return m_Valid; }
    bool IsHeapFixedSize() const { return m_FixedSize > 0; }
    bool IsHeapObjectStatic() const { return m_ObjectStatic; }
    platform::PlatformHeap* GetHandle() const { return m_Handle; }

    // The first heap of the list with this id, or null.
    static HeapBase* FindHeapByID(const unsigned short& id);
    // The first heap of the list that owns p, or null.
    static HeapBase* FindHeapByPtr(void* p);

protected:
    void SetMemoryReserved(size_t reserved) { m_MemoryReserved = reserved; }
    void SetMemoryInUse(size_t inUse) { m_MemoryInUse = inUse; }
    HeapBase* GetNextHeap() const { return m_Next; }

    static HeapBase* GetFirstHeap() { return s_FirstHeap; }
    static void AddHeap(HeapBase* heap);
    // Unlinks heap; false when it is not in the list.
    static bool RemoveHeap(HeapBase* heap);
    static void DestroyHeaps();
    static void CreateHeaps();

    const char* m_Name;
    platform::PlatformHeap* m_Handle;
    bool m_Valid;
    size_t m_MemoryInUse;
    size_t m_MemoryReserved;
    unsigned int m_FixedSize;
    bool m_QueryPending;
    bool m_ObjectStatic;
    HeapBase* m_Next;
    unsigned short m_HeapID;
    uint32_t m_AllocFlags;
    uint32_t m_ReallocFlags;
    uint32_t m_FreeFlags;
    uint32_t m_SizeFlags;
    uint32_t m_CreateFlags;
    uint32_t m_DestroyFlags;

    static HeapBase* s_FirstHeap;
    static HeapBase* s_LastHeap;

    friend class MemoryManager;
};

// A private heap of the platform. No method locks: callers hold the memory manager's lock.
class Heap : public HeapBase {
public:
    // The largest block a fixed-size heap can reallocate to.
    static constexpr size_t kFixedHeapBlockLimit = 0x7EC00;
    static constexpr uint32_t kReallocInPlaceOnly = platform::HEAP_REALLOC_IN_PLACE_ONLY;

    Heap(const char* const& name, unsigned short id, unsigned int fixedSize, unsigned int alignment,
         bool objectStatic);
    Heap(const Heap& other) = default;
    Heap& operator=(const Heap& other) = default;

    bool Create() override;
    bool Destroy() override;
    void* GetLowestAddress() override { return m_Cache.GetLowBound(); }
    bool IsPtrOwned(void* p) override;
    bool RunConsistencyCheck() override { return true; }
    void* GetHighestAddress() override { return m_Cache.GetHighBound(); }
    void OnQueryMemorySize(void* p) override;
    virtual bool VCreate();
    virtual bool VDestroy() { return true; }

    // A block of size bytes; alignment 0 or a power of two up to 64. With an alignment, size
    // receives the enlarged request (alignment + 7 more). Null when the platform has no memory.
    void* Alloc(size_t& size, unsigned int alignment);
    // Gives a block back; size receives the bytes it held. False for null or a refused free.
    bool Free(void* const p, size_t& size, unsigned int alignment);
    // Grows or shrinks a block (null p allocates). oldSize receives the bytes it held. A shrink
    // leaves the in-place-only flag set for later reallocations of this heap, until a shrink fails.
    void* Realloc(void* const p, size_t newSize, size_t& oldSize, unsigned int alignment);
    // Bytes the platform holds for the block, padding and slack of an aligned block included.
    size_t SizeOf(void* const p, unsigned int alignment);

    void SetAllocAccess(AllocAccess access) { m_AllocAccess = access; }
    bool IsAllocAccess(AllocAccess access) const { return (m_AllocAccess & access) > 0; }
    AllocAccess GetAllocAccess() const { return m_AllocAccess; }
    unsigned int GetAlignment() const { return m_Alignment; }
    uint32_t GetReallocFlags() const { return m_ReallocFlags; }
    // Checks the platform heap's own structures; for tests after stress.
    bool Validate() const;

protected:
    bool HeapWalk_CalcSize_FromScratch();
    bool HeapWalk_CalcSize_Incremental();
    void* HeapWalk_FindAddress(void* p);

    HeapCache m_Cache;
    unsigned int m_Alignment;
    AllocAccess m_AllocAccess;

private:
    void WalkInto(platform::HeapWalkEntry entry);
};

// The heap of the whole process ("GLOBAL"), taken from the platform at construction.
class ProcessDefaultHeap : public Heap {
public:
    ProcessDefaultHeap(const char* const& name, unsigned short id, bool objectStatic);
    bool VCreate() override;
    bool VDestroy() override { return true; }
};

}  // namespace zn
