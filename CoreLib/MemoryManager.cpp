// MemoryManager.cpp: creation of the named heaps and the locked routes to them.
#include "CoreLib/MemoryManager.h"

#include "CoreLib/BoundedFormat.h"
#include "CoreLib/platform/Crt.h"

#include <cstdlib>
#include <new>
#include <ostream>
#include <sstream>

namespace zn {

namespace HeapDefinitions {
unsigned short MEM_HEAPID_DEBUGHEAP = 0xFFFF;
unsigned short MEM_HEAPID_MEMSYSTEM = 0xFFFF;
unsigned short MEM_HEAPID_GLOBAL = 0xFFFF;
unsigned short MEM_HEAPID_LARGEBLOCK = 0xFFFF;
unsigned short MEM_HEAPID_EXTERN = 0xFFFF;
}  // namespace HeapDefinitions

MemoryManager* MemoryManager::s_Instance = nullptr;
unsigned short MemoryManager::m_NextHeapID = 0xFFFF;
Heap* MemoryManager::s_HeapGLOBAL = nullptr;
Heap* MemoryManager::s_HeapLARGEBLOCK = nullptr;
Heap* MemoryManager::s_HeapMEMSYSTEM = nullptr;
Heap* MemoryManager::s_HeapDEBUGHEAP = nullptr;

Heap& GetHeapMEMSYSTEM() {
    return *MemoryManager::s_HeapMEMSYSTEM;
}
Heap& GetHeapGLOBAL() {
    return *MemoryManager::s_HeapGLOBAL;
}
Heap& GetHeapLARGEBLOCK() {
    return *MemoryManager::s_HeapLARGEBLOCK;
}
Heap& GetHeapDEBUGHEAP() {
    return *MemoryManager::s_HeapDEBUGHEAP;
}

namespace {
constexpr uint32_t kManagerSpinCount = 4000;
constexpr unsigned int kMemSystemSize = 8192;
constexpr unsigned int kDebugHeapSize = 0xA00000;
constexpr unsigned int kNamedHeapAlignment = 4;

// The manager's lock when the manager exists; heap creation runs before it does.
CriticalSection* LockIfCreated() {
    return MemoryManager::IsCreated() ? &MemoryManager::GetInstance().GetCriticalSection() : nullptr;
}
}  // namespace

MemoryManager::MemoryManager() : m_CriticalSection(kManagerSpinCount) {}

bool MemoryManager::Create() {
    using namespace HeapDefinitions;
    // A library started again after a shutdown numbers its heaps from 0 again, as long as no heap
    // of the last run is still listed.
    if (HeapBase::GetFirstHeap() == nullptr) {
        m_NextHeapID = 0xFFFF;
    }
    s_HeapGLOBAL = AllocateHeap(true, "GLOBAL", MEM_HEAPID_GLOBAL, 0, 0);
    s_HeapLARGEBLOCK = AllocateHeap(false, "LARGEBLOCK", MEM_HEAPID_LARGEBLOCK, 0, kNamedHeapAlignment);
    s_HeapMEMSYSTEM =
        AllocateHeap(false, "MEMSYSTEM", MEM_HEAPID_MEMSYSTEM, kMemSystemSize, kNamedHeapAlignment);
    s_HeapDEBUGHEAP =
        AllocateHeap(false, "DEBUGHEAP", MEM_HEAPID_DEBUGHEAP, kDebugHeapSize, kNamedHeapAlignment);
    HeapBase::CreateHeaps();

    Heap& memSystem = *s_HeapMEMSYSTEM;
    memSystem.SetAllocAccess(AllocAccessFull);
    size_t size = sizeof(MemoryManager);
    void* block = memSystem.Alloc(size, 0);
    if (block != nullptr) {
        s_Instance = new (block) MemoryManager();
    }
    memSystem.SetAllocAccess(AllocAccessNone);
    return s_Instance != nullptr;
}

bool MemoryManager::Destroy() {
    using namespace HeapDefinitions;
    Heap& memSystem = *s_HeapMEMSYSTEM;
    memSystem.SetAllocAccess(AllocAccessFull);
    if (s_Instance != nullptr) {
        s_Instance->~MemoryManager();
        // The block goes straight back to the platform; "MEMSYSTEM" is closed to its own Free.
        size_t size = platform::HeapSize(memSystem.m_Handle, memSystem.m_SizeFlags, s_Instance);
        memSystem.SetMemoryInUse(memSystem.GetMemoryInUse() - size);
        platform::HeapFree(memSystem.m_Handle, memSystem.m_FreeFlags, s_Instance);
        s_Instance = nullptr;
    }
    memSystem.SetAllocAccess(AllocAccessNone);
    HeapBase::DestroyHeaps();
    FreeHeap(MEM_HEAPID_GLOBAL);
    FreeHeap(MEM_HEAPID_LARGEBLOCK);
    FreeHeap(MEM_HEAPID_MEMSYSTEM);
    FreeHeap(MEM_HEAPID_DEBUGHEAP);
    // The "LARGEBLOCK" pointer is deliberately left as it is.
    s_HeapGLOBAL = nullptr;
    s_HeapMEMSYSTEM = nullptr;
    s_HeapDEBUGHEAP = nullptr;
    return s_Instance == nullptr;
}

Heap* MemoryManager::AllocateHeap(bool useProcessHeap, const char* const& name, unsigned short& id,
                                  const unsigned int& size, unsigned int alignment) {
    CSLockIfAny guard(LockIfCreated());
    id = ++m_NextHeapID;
    void* storage = std::malloc(useProcessHeap ? sizeof(ProcessDefaultHeap) : sizeof(Heap));
    if (storage == nullptr) {
        return nullptr;
    }
    Heap* heap = useProcessHeap ? new (storage) ProcessDefaultHeap(name, id, false)
                                : new (storage) Heap(name, id, size, alignment, false);
    if (IsCreated()) {
        heap->Create();
    }
    HeapBase::AddHeap(heap);
    return heap;
}

bool MemoryManager::FreeHeap(const unsigned short& id) {
    CSLockIfAny guard(LockIfCreated());
    HeapBase* heap = HeapBase::FindHeapByID(id);
    if (heap == nullptr) {
        return false;
    }
    if (IsCreated()) {
        heap->Destroy();
    }
    HeapBase::RemoveHeap(heap);
    heap->~HeapBase();
    std::free(heap);
    return true;
}

void* MemoryManager::Allocate(AllocType type, size_t size, Heap& heap, unsigned int alignment) {
    CSLock guard(&m_CriticalSection);
    if (type != AllocTypeNew && type != AllocTypeNewArray && type != AllocTypeMalloc) {
        return nullptr;
    }
    return heap.Alloc(size, alignment);
}

void* MemoryManager::Reallocate(void* p, AllocType /*type*/, size_t size, Heap& heap, size_t& oldSize,
                                unsigned int alignment) {
    CSLock guard(&m_CriticalSection);
    return heap.Realloc(p, size, oldSize, alignment);
}

bool MemoryManager::Deallocate(void* p, AllocType type, Heap& heap, size_t& size, unsigned int alignment) {
    CSLock guard(&m_CriticalSection);
    if (type == AllocTypeDelete || type == AllocTypeDeleteArray || type == AllocTypeFree) {
        heap.Free(p, size, alignment);
    }
    return true;
}

size_t MemoryManager::SizeOf(void* p, Heap& heap, unsigned int alignment) {
    CSLock guard(&m_CriticalSection);
    return heap.SizeOf(p, alignment);
}

bool MemoryManager::TrackAllocate(void* const, AllocType, size_t, Heap&, unsigned int) {
    CSLock guard(&m_CriticalSection);
    return true;
}

bool MemoryManager::TrackDeallocate(void* const, AllocType, Heap&) {
    CSLock guard(&m_CriticalSection);
    return true;
}

namespace {
void* MallocFrom(Heap& heap, size_t size, unsigned int alignment) {
    CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
    // The enlarged size that Alloc writes back stays in this copy.
    size_t request = size;
    return heap.Alloc(request, alignment);
}

void* ReallocIn(Heap& heap, void* p, size_t size, unsigned int alignment) {
    CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
    size_t oldSize = 0;
    return heap.Realloc(p, size, oldSize, alignment);
}

bool FreeTo(Heap& heap, void* p, unsigned int alignment) {
    CSLock guard(&MemoryManager::GetInstance().GetCriticalSection());
    size_t freed = 0;
    heap.Free(p, freed, alignment);
    return true;
}
}  // namespace

void* MemoryManager::GlobalMalloc(size_t size, unsigned int alignment) {
    return MallocFrom(*s_HeapGLOBAL, size, alignment);
}

void* MemoryManager::GlobalRealloc(void* p, size_t size, unsigned int alignment) {
    return ReallocIn(*s_HeapGLOBAL, p, size, alignment);
}

bool MemoryManager::GlobalFree(void* p, unsigned int alignment) {
    return FreeTo(*s_HeapGLOBAL, p, alignment);
}

size_t MemoryManager::GlobalSizeOf(void* p, unsigned int alignment) {
    CSLock guard(&s_Instance->m_CriticalSection);
    return s_HeapGLOBAL->SizeOf(p, alignment);
}

void* MemoryManager::LargeBlockMalloc(size_t size, unsigned int alignment) {
    return MallocFrom(*s_HeapLARGEBLOCK, size, alignment);
}

void* MemoryManager::LargeBlockRealloc(void* p, size_t size, unsigned int alignment) {
    return ReallocIn(*s_HeapLARGEBLOCK, p, size, alignment);
}

bool MemoryManager::LargeBlockFree(void* p, unsigned int alignment) {
    return FreeTo(*s_HeapLARGEBLOCK, p, alignment);
}

void* MemoryManager::SizedMalloc(size_t size) {
    return size >= kLargeBlockThreshold ? LargeBlockMalloc(size, 0) : GlobalMalloc(size, 0);
}

void MemoryManager::SizedFree(void* p, size_t size) {
    if (p == nullptr) {
        return;
    }
    if (size >= kLargeBlockThreshold) {
        LargeBlockFree(p, 0);
    } else {
        GlobalFree(p, 0);
    }
}

void* MemoryManager::SmartRealloc(void* p, size_t oldSize, size_t newSize, unsigned int alignment) {
    bool oldLarge = oldSize >= kLargeBlockThreshold;
    bool newLarge = newSize >= kLargeBlockThreshold;
    if (oldLarge && newLarge) {
        return LargeBlockRealloc(p, newSize, alignment);
    }
    if (!oldLarge && !newLarge) {
        return GlobalRealloc(p, newSize, alignment);
    }
    void* moved = newLarge ? LargeBlockMalloc(newSize, alignment) : GlobalMalloc(newSize, alignment);
    if (moved != nullptr && p != nullptr) {
        platform::MemcpyS(moved, newSize, p, oldSize);
    }
    if (oldLarge) {
        LargeBlockFree(p, alignment);
    } else {
        GlobalFree(p, alignment);
    }
    return moved;
}

size_t MemoryManager::GetMemoryInUse() {
    if (s_Instance == nullptr) {
        return 0;
    }
    CSLock guard(&s_Instance->m_CriticalSection);
    size_t inUse = 0;
    for (HeapBase* heap = HeapBase::GetFirstHeap(); heap != nullptr; heap = heap->GetNextHeap()) {
        inUse += heap->GetMemoryInUse();
    }
    return inUse;
}

size_t MemoryManager::GetMemoryAvailable() {
    if (s_Instance == nullptr) {
        return 0;
    }
    CSLock guard(&s_Instance->m_CriticalSection);
    size_t available = 0;
    for (HeapBase* heap = HeapBase::GetFirstHeap(); heap != nullptr; heap = heap->GetNextHeap()) {
        available += heap->GetMemoryReserved() - heap->GetMemoryInUse();
    }
    return available;
}

bool MemoryManager::RunConsistencyCheck() {
    if (s_Instance == nullptr) {
        return true;
    }
    CSLock guard(&s_Instance->m_CriticalSection);
    for (HeapBase* heap = HeapBase::GetFirstHeap(); heap != nullptr; heap = heap->GetNextHeap()) {
        if (!heap->RunConsistencyCheck()) {
            return false;
        }
    }
    return true;
}

void MemoryManager::DebugPrint() {
    if (s_Instance == nullptr) {
        return;
    }
    CSLock guard(&s_Instance->m_CriticalSection);
    for (HeapBase* heap = HeapBase::GetFirstHeap(); heap != nullptr; heap = heap->GetNextHeap()) {
        heap->OnQueryMemorySize(nullptr);
        std::ostringstream line;
        MemoryTrace::WriteHeapTotals(line, *heap, heap->GetMemoryInUse(), heap->GetMemoryAvailable());
        znOutputDebugString("%s\n", line.str().c_str());
    }
}

// ---- trace lines ----

namespace MemoryTrace {

const char* TraceName(AllocType type) {
    static const char* const kNames[] = {
        "unknown  ",       "new      ",       "new[]    ",       "delete   ",       "delete[] ",
        "malloc   ",       "realloc  ",       "free     ",       "extern new     ", "extern delete  ",
        "extern new[]   ", "extern delete[]", "extern alloc   ", "extern free    ",
    };
    auto index = static_cast<unsigned int>(type);
    return index < sizeof(kNames) / sizeof(kNames[0]) ? kNames[index] : kNames[0];
}

void WriteHeapPrefix(std::ostream& out, const HeapBase* heap) {
    if (heap != nullptr && heap->GetHeapName() != nullptr) {
        out << heap->GetHeapName() << "[" << heap->GetMemoryReserved() << "]\t";
    }
}

namespace {
unsigned int HeapAlignment(const Heap* heap) {
    return heap != nullptr ? heap->GetAlignment() : 0;
}

void WriteSizeOrNotAvailable(std::ostream& out, long long size) {
    if (size < 0) {
        out << "n/a";
    } else {
        out << size;
    }
}
}  // namespace

void WriteAllocation(std::ostream& out, const Heap* heap, AllocType type, const void* p, long long size) {
    WriteHeapPrefix(out, heap);
    out << TraceName(type) << "\t:\t" << p << "\t[\t" << size << "\t,Align:\t" << HeapAlignment(heap)
        << "\t]";
}

void WriteRelease(std::ostream& out, const Heap* heap, AllocType type, const void* p, long long size) {
    WriteHeapPrefix(out, heap);
    out << TraceName(type) << "\t:\t" << p << "\t[\t";
    WriteSizeOrNotAvailable(out, size);
    out << "\t,Align:\t" << HeapAlignment(heap) << "\t]";
}

void WriteReallocation(std::ostream& out, const Heap* heap, const void* newP, long long newSize,
                       const void* oldP, long long oldSize) {
    WriteHeapPrefix(out, heap);
    unsigned int alignment = HeapAlignment(heap);
    out << TraceName(AllocTypeRealloc) << "\t:\t" << newP << "\t[\t" << newSize << "\t,alignment:\t"
        << alignment << "\t]"
        << "\t<-\t" << oldP << "\t[\t";
    WriteSizeOrNotAvailable(out, oldSize);
    out << "\t,Align:\t" << alignment << "\t]";
}

void WriteHeapTotals(std::ostream& out, const HeapBase& heap, unsigned long long committed,
                     unsigned long long uncommitted) {
    out << heap.GetHeapName() << "\t[\t" << heap.GetHeapID() << "\t] Total\t" << committed + uncommitted
        << "\t Committed\t" << committed << "\t, Uncommitted\t" << uncommitted;
}

void WriteHeapRange(std::ostream& out, const HeapBase& heap, const void* low, const void* high,
                    const char* container, unsigned long long size) {
    out << heap.GetHeapName() << "\t[\t" << low << "\t]\t" << high << "\tin\t" << container << "\t[\t" << size
        << "\t]";
}

void WriteHeapBlock(std::ostream& out, const HeapBase& heap, unsigned int index, const void* data,
                    const void* firstBlock, const void* lastBlock, unsigned long long size,
                    unsigned int overhead) {
    out << heap.GetHeapName() << "\t[\t" << index << "\t] Data:\t" << data << "\t, First: \t" << firstBlock
        << "\t, Last: \t" << lastBlock << "\t, Size: \t" << size << "\t, Overhead: \t" << overhead;
}

}  // namespace MemoryTrace

}  // namespace zn
