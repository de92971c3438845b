// MemoryManager.h: the four named heaps, the one lock over all of them, and the routes by which
// objects, raw blocks and large blocks reach a heap.
#pragma once

#include "CoreLib/CriticalSection.h"
#include "CoreLib/Heap.h"

#include <cstddef>
#include <iosfwd>

namespace zn {

// The ids the named heaps received; 0xFFFF until MemoryManager::Create assigns them.
namespace HeapDefinitions {
extern unsigned short MEM_HEAPID_DEBUGHEAP;
extern unsigned short MEM_HEAPID_MEMSYSTEM;
extern unsigned short MEM_HEAPID_GLOBAL;
extern unsigned short MEM_HEAPID_LARGEBLOCK;
// Never assigned.
extern unsigned short MEM_HEAPID_EXTERN;
}  // namespace HeapDefinitions

// Kinds of allocation, with their trace names.
enum AllocType {
    AllocTypeUnknown = 0,
    AllocTypeNew = 1,
    AllocTypeNewArray = 2,
    AllocTypeDelete = 3,
    AllocTypeDeleteArray = 4,
    AllocTypeMalloc = 5,
    AllocTypeRealloc = 6,
    AllocTypeFree = 7,
    AllocTypeExternNew = 8,
    AllocTypeExternDelete = 9,
    AllocTypeExternNewArray = 10,
    AllocTypeExternDeleteArray = 11,
    AllocTypeExternAlloc = 12,
    AllocTypeExternFree = 13,
};

// Exists for the signature of IsLogging; no value is read.
enum HeapLogging { HeapLoggingNone = 0 };

class MemoryManager {
public:
    // Blocks of this size and more live in "LARGEBLOCK", smaller ones in "GLOBAL".
    static constexpr size_t kLargeBlockThreshold = 0x100000;

    // Makes the four heaps and the manager (inside the closed "MEMSYSTEM" heap); true on success.
    static bool Create();
    // Takes the manager and every heap down; always true.
    static bool Destroy();
    static MemoryManager& GetInstance() { return *s_Instance; }
    static bool IsCreated() { return s_Instance != nullptr; }

    // Makes a heap (with malloc, never from a heap) and appends it to the list; id receives its id.
    static Heap* AllocateHeap(bool useProcessHeap, const char* const& name, unsigned short& id,
                              const unsigned int& size, unsigned int alignment);
    // Destroys and unlists the heap with this id; false when there is none.
    static bool FreeHeap(const unsigned short& id);

    CriticalSection& GetCriticalSection() { return m_CriticalSection; }

    // Each of these takes the lock for its own duration. Only kinds 1, 2 and 5 allocate, only 3, 4
    // and 7 free; other kinds give null or do nothing.
    void* Allocate(AllocType type, size_t size, Heap& heap, unsigned int alignment);
    void* Reallocate(void* p, AllocType type, size_t size, Heap& heap, size_t& oldSize,
                     unsigned int alignment);
    bool Deallocate(void* p, AllocType type, Heap& heap, size_t& size, unsigned int alignment);
    size_t SizeOf(void* p, Heap& heap, unsigned int alignment);
    // Tracking hooks: they record nothing in this library.
    bool TrackAllocate(void* const p, AllocType type, size_t size, Heap& heap, unsigned int alignment);
    bool TrackDeallocate(void* const p, AllocType type, Heap& heap);

    // Raw blocks from "GLOBAL" and "LARGEBLOCK". Give every call on a block the same alignment.
    static void* GlobalMalloc(size_t size, unsigned int alignment);
    static void* GlobalRealloc(void* p, size_t size, unsigned int alignment);
    static bool GlobalFree(void* p, unsigned int alignment);
    static size_t GlobalSizeOf(void* p, unsigned int alignment);
    static void* LargeBlockMalloc(size_t size, unsigned int alignment);
    static void* LargeBlockRealloc(void* p, size_t size, unsigned int alignment);
    static bool LargeBlockFree(void* p, unsigned int alignment);
    // The size rule of the library's buffers: below kLargeBlockThreshold bytes from "GLOBAL", from
    // there on from "LARGEBLOCK". A block is freed by the size it was allocated with; null is ignored.
    static void* SizedMalloc(size_t size);
    static void SizedFree(void* p, size_t size);
    // Reallocates a block whose old size the caller knows, moving it between "GLOBAL" and
    // "LARGEBLOCK" across kLargeBlockThreshold. A move down copies nothing: the copy of the old
    // size into the smaller block is refused and the new block is cleared.
    static void* SmartRealloc(void* p, size_t oldSize, size_t newSize, unsigned int alignment);

    // Bytes handed out by all heaps; 0 without a manager.
    static size_t GetMemoryInUse();
    // Reserved minus in use over all heaps; 0 without a manager.
    static size_t GetMemoryAvailable();
    static bool RunConsistencyCheck();
    // Writes each heap's totals to the debug output.
    static void DebugPrint();
    static bool IsLogging(HeapLogging) { return false; }
    static void SetLogging(unsigned int) {}

    static void* operator new(size_t, void* place) noexcept { return place; }
    static void operator delete(void*, void*) noexcept {}

protected:
    bool Lock() {
        m_CriticalSection.Lock();
        return true;
    }
    bool Unlock() {
        m_CriticalSection.Unlock();
        return true;
    }

private:
    MemoryManager();
    ~MemoryManager() = default;
    MemoryManager(const MemoryManager&) = delete;
    MemoryManager& operator=(const MemoryManager&) = delete;

    // Guards every heap of the list.
    CriticalSection m_CriticalSection;

    static MemoryManager* s_Instance;
    static unsigned short m_NextHeapID;
    static Heap* s_HeapGLOBAL;
    static Heap* s_HeapLARGEBLOCK;
    static Heap* s_HeapMEMSYSTEM;
    static Heap* s_HeapDEBUGHEAP;

    friend Heap& GetHeapMEMSYSTEM();
    friend Heap& GetHeapGLOBAL();
    friend Heap& GetHeapLARGEBLOCK();
    friend Heap& GetHeapDEBUGHEAP();
};

Heap& GetHeapMEMSYSTEM();
Heap& GetHeapGLOBAL();
Heap& GetHeapLARGEBLOCK();
Heap& GetHeapDEBUGHEAP();

// The trace lines of the memory system, for a tracking build; the library writes none of them.
namespace MemoryTrace {
const char* TraceName(AllocType type);
// "name[reserved]\t" for a heap with a name, nothing otherwise.
void WriteHeapPrefix(std::ostream& out, const HeapBase* heap);
void WriteAllocation(std::ostream& out, const Heap* heap, AllocType type, const void* p, long long size);
void WriteRelease(std::ostream& out, const Heap* heap, AllocType type, const void* p, long long size);
void WriteReallocation(std::ostream& out, const Heap* heap, const void* newP, long long newSize,
                       const void* oldP, long long oldSize);
void WriteHeapTotals(std::ostream& out, const HeapBase& heap, unsigned long long committed,
                     unsigned long long uncommitted);
void WriteHeapRange(std::ostream& out, const HeapBase& heap, const void* low, const void* high,
                    const char* container, unsigned long long size);
void WriteHeapBlock(std::ostream& out, const HeapBase& heap, unsigned int index, const void* data,
                    const void* firstBlock, const void* lastBlock, unsigned long long size,
                    unsigned int overhead);
}  // namespace MemoryTrace

}  // namespace zn
