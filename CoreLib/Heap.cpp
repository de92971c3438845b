// Heap.cpp: accounting, aligned layout and walks over the platform heap.
#include "CoreLib/Heap.h"

#include "CoreLib/Report.h"

#include <cstring>

namespace zn {

HeapBase* HeapBase::s_FirstHeap = nullptr;
HeapBase* HeapBase::s_LastHeap = nullptr;

namespace {
// The back-pointer in front of an aligned block is pointer-sized.
constexpr size_t kBackPointerSize = sizeof(void*);
// What an alignment adds to a request: room for the padding and the back-pointer.
constexpr size_t AlignmentExtra(unsigned int alignment) {
    return alignment + kBackPointerSize - 1;
}

void* const kNoLowBound = reinterpret_cast<void*>(~uintptr_t{0});

void CheckAlignment(unsigned int alignment) {
    // Only several-bit values up to 64 are caught; larger ones pass unreported.
    if ((alignment & (alignment - 1)) != 0 && alignment <= 64) {
        ZN_REPORT("Requested alignment is not valid: %d", alignment);
    }
}

// Where the user data of an aligned block starts, behind its padding and back-pointer.
void* PlaceAligned(void* block, unsigned int alignment) {
    auto start = reinterpret_cast<uintptr_t>(block);
    uintptr_t padding = (alignment - start - kBackPointerSize) & (alignment - 1);
    auto* backPointer = reinterpret_cast<char*>(start + padding);
    // An alignment that is no power of two (reported, used all the same) can leave the
    // back-pointer unaligned: copy it as bytes.
    std::memcpy(backPointer, &block, kBackPointerSize);
    return backPointer + kBackPointerSize;
}

// The platform block behind p. A null p has no back-pointer to read: it stays null.
void* RealBlock(void* const p, unsigned int alignment) {
    if (alignment == 0 || p == nullptr) {
        return p;
    }
    void* block;
    std::memcpy(&block, static_cast<char*>(p) - kBackPointerSize, kBackPointerSize);
    return block;
}

bool Contains(void* low, void* high, void* p) {
    return low <= p && p <= high;
}
}  // namespace

// ---- HeapCache ----

void HeapCache::CreateHeapCache() {
    m_Entries = nullptr;
    m_EntryCapacity = 0;
    m_LastEntry = nullptr;
    std::memset(&m_LastHeapEntry, 0, sizeof(m_LastHeapEntry));
    std::memset(&m_EmptyHeapEntry, 0, sizeof(m_EmptyHeapEntry));
    m_CommittedBlocks = 0;
    m_UncommittedRanges = 0;
    m_LowBound = kNoLowBound;
    m_HighBound = nullptr;
}

HeapCache::HeapEntry* HeapCache::AppendCache(const platform::HeapWalkEntry& entry) {
    if (m_Entries == nullptr || entry.cbData == 0) {
        return nullptr;
    }
    void* low = entry.lpData;
    void* high = static_cast<char*>(entry.lpData) + entry.cbData - 1;
    HeapEntry* target = m_Entries;
    if (m_LastEntry != nullptr) {
        bool withinBounds = m_LowBound <= low && high <= m_HighBound;
        bool meetsLast = low <= static_cast<char*>(m_LastEntry->high) + 1 &&
                         static_cast<char*>(high) + 1 >= m_LastEntry->low;
        if ((withinBounds && meetsLast) || CheckBound(low) != nullptr || CheckBound(high) != nullptr) {
            return nullptr;
        }
        target = m_LastEntry + 1;
        if (target >= m_Entries + m_EntryCapacity) {
            return nullptr;
        }
    }
    target->low = low;
    target->high = high;
    m_LastEntry = target;
    DoAccounting(entry.wFlags, low, high);
    return target;
}

void* HeapCache::CheckBound(void* p) const {
    if (m_LastEntry == nullptr) {
        return nullptr;
    }
    for (const HeapEntry* range = m_Entries; range <= m_LastEntry; ++range) {
        if (Contains(range->low, range->high, p)) {
            return range->low;
        }
    }
    return nullptr;
}

void HeapCache::DoAccounting(unsigned short flags, void* const low, void* const high) {
    if ((flags & (platform::PROCESS_HEAP_ENTRY_BUSY | platform::PROCESS_HEAP_REGION)) != 0) {
        ++m_CommittedBlocks;
    }
    if ((flags & platform::PROCESS_HEAP_UNCOMMITTED_RANGE) != 0) {
        ++m_UncommittedRanges;
    }
    if (low < m_LowBound) {
        m_LowBound = low;
    }
    if (high > m_HighBound) {
        m_HighBound = high;
    }
}

// ---- HeapBase ----

HeapBase::HeapBase(const char* name, const unsigned short& id, const unsigned int& fixedSize,
                   bool objectStatic)
    : m_Name(name),
      m_Handle(nullptr),
      m_Valid(false),
      m_MemoryInUse(0),
      m_MemoryReserved(0),
      m_FixedSize(fixedSize),
      m_QueryPending(true),
      m_ObjectStatic(objectStatic),
      m_Next(nullptr),
      m_HeapID(id),
      m_AllocFlags(0),
      m_ReallocFlags(0),
      m_FreeFlags(0),
      m_SizeFlags(0),
      m_CreateFlags(0),
      m_DestroyFlags(0) {}

HeapBase* HeapBase::FindHeapByID(const unsigned short& id) {
    for (HeapBase* heap = s_FirstHeap; heap != nullptr; heap = heap->m_Next) {
        if (heap->IsHeap(id)) {
            return heap;
        }
    }
    return nullptr;
}

HeapBase* HeapBase::FindHeapByPtr(void* p) {
    for (HeapBase* heap = s_FirstHeap; heap != nullptr; heap = heap->m_Next) {
        if (heap->IsPtrOwned(p)) {
            return heap;
        }
    }
    return nullptr;
}

void HeapBase::AddHeap(HeapBase* heap) {
    heap->m_Next = nullptr;
    if (s_LastHeap == nullptr) {
        s_FirstHeap = heap;
    } else {
        s_LastHeap->m_Next = heap;
    }
    s_LastHeap = heap;
}

bool HeapBase::RemoveHeap(HeapBase* heap) {
    HeapBase* previous = nullptr;
    for (HeapBase* current = s_FirstHeap; current != nullptr; previous = current, current = current->m_Next) {
        if (current != heap) {
            continue;
        }
        (previous == nullptr ? s_FirstHeap : previous->m_Next) = current->m_Next;
        if (s_LastHeap == current) {
            s_LastHeap = previous;
        }
        current->m_Next = nullptr;
        return true;
    }
    return false;
}

void HeapBase::DestroyHeaps() {
    for (HeapBase* heap = s_FirstHeap; heap != nullptr; heap = heap->m_Next) {
        heap->Destroy();
    }
}

void HeapBase::CreateHeaps() {
    for (HeapBase* heap = s_FirstHeap; heap != nullptr; heap = heap->m_Next) {
        heap->Create();
    }
}

// ---- Heap ----

Heap::Heap(const char* const& name, unsigned short id, unsigned int fixedSize, unsigned int alignment,
           bool objectStatic)
    : HeapBase(name, id, fixedSize, objectStatic), m_Alignment(alignment), m_AllocAccess(AllocAccessFull) {
    CheckAlignment(alignment);
}

bool Heap::Create() {
    m_Valid = true;
    VCreate();
    if (m_Valid) {
        m_Cache.CreateHeapCache();
        m_MemoryReserved = 0;
        m_QueryPending = true;
        OnQueryMemorySize(nullptr);
    }
    return m_Valid;
}

bool Heap::VCreate() {
    m_AllocFlags = m_ReallocFlags = m_FreeFlags = m_SizeFlags = m_DestroyFlags = 0;
    m_CreateFlags = platform::HEAP_NO_SERIALIZE;
    size_t initialSize = m_FixedSize > 0 ? m_FixedSize - 1 : kFixedHeapBlockLimit;
    m_Handle = platform::HeapCreate(m_CreateFlags, initialSize, m_FixedSize);
    m_Valid = m_Handle != nullptr;
    return m_Valid;
}

bool Heap::Destroy() {
    if (m_Valid) {
        m_Cache.DestroyHeapCache();
        VDestroy();
    }
    m_Valid = false;
    m_QueryPending = true;
    return true;
}

void Heap::OnQueryMemorySize(void* /*p*/) {
    if (m_Valid && m_QueryPending) {
        HeapWalk_CalcSize_FromScratch();
    }
    m_QueryPending = false;
}

void* Heap::Alloc(size_t& size, unsigned int alignment) {
    CheckAlignment(alignment);
    if (alignment != 0) {
        size += AlignmentExtra(alignment);
    }
    void* block = platform::HeapAlloc(m_Handle, m_AllocFlags, size);
    if (block == nullptr) {
        return nullptr;
    }
    m_QueryPending = true;
    m_MemoryInUse += platform::HeapSize(m_Handle, m_SizeFlags, block);
    return alignment == 0 ? block : PlaceAligned(block, alignment);
}

bool Heap::Free(void* const p, size_t& size, unsigned int alignment) {
    CheckAlignment(alignment);
    void* block = RealBlock(p, alignment);
    if (block == nullptr) {
        return false;
    }
    size = platform::HeapSize(m_Handle, m_SizeFlags, block);
    m_MemoryInUse -= size;
    return platform::HeapFree(m_Handle, m_FreeFlags, block);
}

void* Heap::Realloc(void* const p, size_t newSize, size_t& oldSize, unsigned int alignment) {
    CheckAlignment(alignment);
    void* block = RealBlock(p, alignment);
    size_t request = alignment == 0 ? newSize : newSize + AlignmentExtra(alignment);
    if (IsHeapFixedSize() && request > kFixedHeapBlockLimit) {
        return nullptr;
    }
    bool growth = true;
    void* moved = nullptr;
    if (block != nullptr) {
        oldSize = platform::HeapSize(m_Handle, m_SizeFlags, block);
        m_MemoryInUse -= oldSize;
        growth = request > oldSize;
        if (!growth) {
            // The flag stays set after a successful shrink: later growth of this heap is then
            // in place only, until a shrink fails and clears it.
            m_ReallocFlags |= kReallocInPlaceOnly;
        }
        moved = platform::HeapReAlloc(m_Handle, m_ReallocFlags, block, request);
        if (moved == nullptr) {
            if (growth) {
                return nullptr;
            }
            m_ReallocFlags &= ~kReallocInPlaceOnly;
            moved = platform::HeapReAlloc(m_Handle, m_ReallocFlags, block, request);
            if (moved == nullptr) {
                return nullptr;
            }
        }
    } else {
        moved = platform::HeapAlloc(m_Handle, m_AllocFlags, request);
        if (moved == nullptr) {
            return nullptr;
        }
    }
    m_QueryPending = m_QueryPending || growth;
    m_MemoryInUse += platform::HeapSize(m_Handle, m_SizeFlags, moved);
    return alignment == 0 ? moved : PlaceAligned(moved, alignment);
}

size_t Heap::SizeOf(void* const p, unsigned int alignment) {
    CheckAlignment(alignment);
    return platform::HeapSize(m_Handle, m_SizeFlags, RealBlock(p, alignment));
}

bool Heap::Validate() const {
    return m_Handle != nullptr && platform::HeapValidate(m_Handle);
}

void Heap::WalkInto(platform::HeapWalkEntry entry) {
    platform::HeapLock(m_Handle);
    for (;;) {
        void* previous = entry.lpData;
        if (!platform::HeapWalk(m_Handle, &entry)) {
            break;
        }
        if (entry.lpData != previous) {
            m_Cache.SetLastHeapEntry(entry);
            m_Cache.AppendCache(entry);
            m_MemoryReserved += entry.cbData + entry.cbOverhead;
        }
    }
    platform::HeapUnlock(m_Handle);
}

bool Heap::HeapWalk_CalcSize_FromScratch() {
    m_Cache.CreateHeapCache();
    m_MemoryReserved = 0;
    WalkInto(m_Cache.GetEmptyHeapEntry());
    return true;
}

bool Heap::HeapWalk_CalcSize_Incremental() {
    WalkInto(m_Cache.GetLastHeapEntry());
    return true;
}

bool Heap::IsPtrOwned(void* p) {
    if (m_Cache.GetNumberOfCommittedBlocks() == 1) {
        return m_Cache.GetLowBound() <= p && p < m_Cache.GetHighBound();
    }
    return HeapWalk_FindAddress(p) != nullptr;
}

void* Heap::HeapWalk_FindAddress(void* p) {
    if (void* low = m_Cache.CheckBound(p)) {
        return low;
    }
    if (m_Handle == nullptr) {
        return nullptr;
    }
    platform::HeapLock(m_Handle);
    platform::HeapWalkEntry entry = m_Cache.GetEmptyHeapEntry();
    for (;;) {
        void* previous = entry.lpData;
        if (!platform::HeapWalk(m_Handle, &entry)) {
            break;
        }
        char* data = static_cast<char*>(entry.lpData);
        if (data != previous && data <= p && p < data + entry.cbData) {
            platform::HeapUnlock(m_Handle);
            return data;
        }
    }
    platform::HeapUnlock(m_Handle);
    return nullptr;
}

// ---- ProcessDefaultHeap ----

ProcessDefaultHeap::ProcessDefaultHeap(const char* const& name, unsigned short id, bool objectStatic)
    : Heap(name, id, 0, 4, objectStatic) {
    m_Handle = platform::GetProcessHeap();
}

bool ProcessDefaultHeap::VCreate() {
    m_Valid = m_Handle != nullptr;
    return m_Valid;
}

}  // namespace zn
