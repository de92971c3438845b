// Pool.h: pools that hand out objects of one type from large blocks. Elements are built once, when
// their block is made, and go back to a free queue when released, so trees of small objects cost
// no allocation per object.
#pragma once

#include "CoreLib/MemoryManager.h"
#include "CoreLib/Report.h"
#include "CoreLib/TrackedObject.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

namespace zn {

// The base of pooled objects: a pool builds each element once and resets it on every release.
class PoolElement {
public:
    PoolElement() = default;
    PoolElement(const PoolElement& other) = default;
    PoolElement& operator=(const PoolElement& other) = default;
    virtual ~PoolElement() = default;

    // Restores the just-built state, giving up whatever the element holds.
    virtual void ResetPoolElement() = 0;
};

// One block of cleared storage from "GLOBAL", a link in its pool's chain of blocks.
class PoolMemory : public TrackedObject<PoolMemory> {
public:
    // No storage, no name, no next block.
    PoolMemory();
    // size cleared bytes from "GLOBAL"; the storage is null when the heap has none. The name is
    // kept, not copied.
    PoolMemory(size_t size, const char* name);
    // A copy shares the storage pointer: only one of the two may still hold it when destroyed.
    PoolMemory(const PoolMemory& other) = default;
    PoolMemory& operator=(const PoolMemory& other) = default;
    // Gives the storage back to "GLOBAL".
    virtual ~PoolMemory();

    PoolMemory* GetNext() const { return m_Next; }
    void SetNext(PoolMemory* next) { m_Next = next; }
    void* GetMemory() const { return m_Memory; }
    const char* GetName() const { return m_Name; }

protected:
    // The next older block of the pool; null at the end of the chain.
    PoolMemory* m_Next;
    void* m_Memory;
    // The owning pool's name.
    const char* m_Name;
};

// A block whose storage comes from the run-time's malloc and is counted in s_TotalMemoryUsed, for
// pools that must show in a tally of their own, apart from the heaps.
class MemoryTrackerPoolMemory : public PoolMemory {
public:
    // size cleared bytes from malloc, added to the tally.
    MemoryTrackerPoolMemory(size_t size, const char* name);
    // A copy shares the storage pointer, as PoolMemory's does.
    MemoryTrackerPoolMemory(const MemoryTrackerPoolMemory& other) = default;
    MemoryTrackerPoolMemory& operator=(const MemoryTrackerPoolMemory& other) = default;
    // Takes the storage's real size off the tally and frees it.
    ~MemoryTrackerPoolMemory() override;

    // Bytes held by all such blocks. Added as asked for and taken off at the run-time's real block
    // size, so it may drift by the run-time's rounding. No lock: the pools' owners serialise them.
    static size_t s_TotalMemoryUsed;
};

// A ring buffer of free elements in an array from "GLOBAL". T is copied as raw bytes.
template <typename T>
class PoolQueue {
    static_assert(std::is_trivially_copyable_v<T>, "PoolQueue moves its elements as raw bytes");

public:
    // An empty queue with room for one element. Needs the memory manager.
    PoolQueue() : m_Data(static_cast<T*>(MemoryManager::GlobalMalloc(sizeof(T), 0))), m_Capacity(1) {
        if (m_Data == nullptr) {
            m_Capacity = 0;
        }
    }
    // Forgets the queued elements and gives the array back.
    ~PoolQueue() {
        Drain();
        MemoryManager::GlobalFree(m_Data, 0);
    }
    PoolQueue(const PoolQueue&) = delete;
    PoolQueue& operator=(const PoolQueue&) = delete;

    // Appends behind the newest element; a full queue first doubles its array. False, with a
    // report, when there is no room and no memory to make it.
    bool Push(const T& element);
    // Takes the oldest element. An empty queue reports and gives a value-initialised T.
    T Pop();
    // Moves the queued elements, oldest first, to the start of an array of capacity elements;
    // does nothing unless capacity is above the count.
    void Resize(unsigned int capacity);
    // Forgets every queued element.
    void Drain() {
        m_Count = 0;
        m_Head = -1;
        m_Tail = 0;
    }

    bool IsEmpty() const { return m_Count == 0; }
    unsigned int GetCount() const { return m_Count; }
    unsigned int GetCapacity() const { return m_Capacity; }
    // Index of the oldest element; -1 once the queue has run empty.
    int GetHead() const { return m_Head; }
    // Index behind the newest element.
    unsigned int GetTail() const { return m_Tail; }
    // The element at position (0 is the oldest); position must be below the count.
    const T& PeekAt(unsigned int position) const {
        return m_Data[(static_cast<unsigned int>(m_Head) + position) % m_Capacity];
    }
    // True when count, head and tail describe one run of elements inside the array.
    bool Validate() const;

private:
    void CopyQueuedTo(T* destination) const;

    T* m_Data;
    unsigned int m_Capacity;
    unsigned int m_Count = 0;
    int m_Head = -1;
    unsigned int m_Tail = 0;
};

template <typename T>
bool PoolQueue<T>::Push(const T& element) {
    // A full ring has its head at its tail; it doubles, as a pool's growth sizes it ahead of need.
    if (m_Count == m_Capacity) {
        Resize(m_Capacity == 0 ? 1 : m_Capacity * 2);
        if (m_Count == m_Capacity) {
            ZN_REPORT("Pool queue is full at %u elements and cannot grow; the element is not queued.",
                      m_Capacity);
            return false;
        }
    }
    if (m_Count == 0) {
        m_Head = 0;
        m_Data[0] = element;
        m_Tail = 1;
    } else {
        m_Data[m_Tail] = element;
        ++m_Tail;
    }
    ++m_Count;
    if (m_Tail == m_Capacity) {
        m_Tail = 0;
    }
    return true;
}

template <typename T>
T PoolQueue<T>::Pop() {
    if (m_Count == 0) {
        ZN_REPORT("Pool queue is empty: there is no element to take.");
        return T{};
    }
    T element = m_Data[m_Head];
    ++m_Head;
    if (m_Head == static_cast<int>(m_Capacity)) {
        m_Head = 0;
    }
    if (m_Head == static_cast<int>(m_Tail)) {
        m_Head = -1;
        m_Tail = 0;
    }
    --m_Count;
    return element;
}

template <typename T>
void PoolQueue<T>::Resize(unsigned int capacity) {
    if (capacity == 0 || capacity <= m_Count) {
        return;
    }
    T* data = static_cast<T*>(MemoryManager::GlobalMalloc(size_t{capacity} * sizeof(T), 0));
    if (data == nullptr) {
        ZN_REPORT("Pool queue cannot get room for %u elements; it keeps %u.", capacity, m_Capacity);
        return;
    }
    CopyQueuedTo(data);
    MemoryManager::GlobalFree(m_Data, 0);
    m_Data = data;
    m_Head = 0;
    m_Tail = m_Count;
    m_Capacity = capacity;
}

template <typename T>
void PoolQueue<T>::CopyQueuedTo(T* destination) const {
    // An empty queue's head is -1 and names no slot: there is nothing to read.
    if (m_Count == 0) {
        return;
    }
    unsigned int head = static_cast<unsigned int>(m_Head);
    if (head < m_Tail) {
        std::memcpy(destination, m_Data + head, size_t{m_Tail - head} * sizeof(T));
        return;
    }
    unsigned int firstRun = m_Capacity - head;
    std::memcpy(destination, m_Data + head, size_t{firstRun} * sizeof(T));
    std::memcpy(destination + firstRun, m_Data, size_t{m_Tail} * sizeof(T));
}

template <typename T>
bool PoolQueue<T>::Validate() const {
    if (m_Count > m_Capacity || (m_Capacity != 0 && m_Data == nullptr)) {
        return false;
    }
    if (m_Count == 0) {
        // Popping empty leaves head at -1; a resize of an empty queue leaves it at 0.
        return m_Tail == 0 && (m_Head == -1 || m_Head == 0);
    }
    if (m_Head < 0 || static_cast<unsigned int>(m_Head) >= m_Capacity || m_Tail >= m_Capacity) {
        return false;
    }
    return (static_cast<unsigned int>(m_Head) + m_Count) % m_Capacity == m_Tail;
}

// A pool of T built in blocks of M (PoolMemory or MemoryTrackerPoolMemory), with free elements in Q.
// A pool type derives from it to supply ConstructElement. T needs a ResetPoolElement() member,
// usually by deriving from PoolElement. The pool has no lock: its owner serialises it.
template <typename T, typename M = PoolMemory, typename Q = PoolQueue<T*>>
class BasePool {
    // Blocks from "GLOBAL" and from malloc are aligned to 16 bytes; element slots follow sizeof(T).
    static_assert(alignof(T) <= 16, "pool blocks align elements to at most 16 bytes");

public:
    static constexpr const char* kDefaultName = "GENERIC-POOL";

    BasePool() = default;
    // Releases the pool, reporting elements still out.
    virtual ~BasePool() { Release(); }
    BasePool(const BasePool&) = delete;
    BasePool& operator=(const BasePool&) = delete;

    // Releases what the pool held and builds a first block of initialSize elements. name must
    // outlive the pool; maximumSize is the planned size that growth warns about, not a limit.
    // False, with a report, when the block could not be had.
    bool Setup(const char* name, unsigned int maximumSize, unsigned int initialSize, unsigned int growCount);
    // An element in the state its construction or its last reset left it, growing the pool when
    // none is free; null, with a report, when none is free and the pool cannot grow.
    T* GetFreeObject();
    // Resets the element and queues it for reuse; it is not destroyed.
    void ReleaseObject(T* element);
    // Adds a block of grow-count elements, warning when that reaches the maximum size.
    virtual void GetMore();
    // Destroys the free elements and deletes every block, reporting elements still out: they are
    // not destroyed, and their storage goes with the blocks. The sizes and the name stay.
    void Release();
    // True when counts, the free queue and the chain of blocks agree: every free element lies in
    // a slot of a block, none is queued twice, and free plus used is the current size.
    bool Validate() const;

    bool IsInitialized() const { return m_Initialized; }
    const char* GetName() const { return m_Name; }
    unsigned int GetMaximumSize() const { return m_MaximumSize; }
    unsigned int GetGrowCount() const { return m_GrowCount; }
    unsigned int GetInitialSize() const { return m_InitialSize; }
    unsigned int GetCurrentSize() const { return m_CurrentSize; }
    unsigned int GetUsedCount() const { return m_UsedCount; }
    unsigned int GetPeakUsed() const { return m_PeakUsed; }
    unsigned int GetFreeCount() const { return m_FreeQueue.GetCount(); }
    // The newest block; the chain runs through GetNext to the first.
    const M* GetBlocks() const { return m_Blocks; }
    unsigned int GetBlockCount() const;
    const Q& GetFreeQueue() const { return m_FreeQueue; }

protected:
    // Builds a T in place at address (sizeof(T) bytes of cleared storage) and returns it.
    virtual T* ConstructElement(void* address) = 0;

private:
    M* NewBlock(unsigned int elementCount);
    void BuildElements(M* block, unsigned int elementCount);
    void DestroyFreeElements();
    void DeleteBlocks();
    // Elements a block holds: the first block has the initial size, every later one the grow count.
    unsigned int ElementsIn(const PoolMemory* block) const {
        return block->GetNext() == nullptr ? m_InitialSize : m_GrowCount;
    }
    bool LiesInASlot(const T* element) const;
    bool FreeElementsAreDistinct() const;

    bool m_Initialized = false;
    unsigned int m_MaximumSize = 0;
    unsigned int m_GrowCount = 0;
    unsigned int m_InitialSize = 0;
    unsigned int m_CurrentSize = 0;
    M* m_Blocks = nullptr;
    Q m_FreeQueue;
    unsigned int m_UsedCount = 0;
    unsigned int m_PeakUsed = 0;
    const char* m_Name = kDefaultName;
};

template <typename T, typename M, typename Q>
bool BasePool<T, M, Q>::Setup(const char* name, unsigned int maximumSize, unsigned int initialSize,
                              unsigned int growCount) {
    m_Name = name;
    Release();
    m_MaximumSize = maximumSize;
    m_GrowCount = growCount;
    m_InitialSize = initialSize;
    m_CurrentSize = initialSize;
    m_Blocks = NewBlock(initialSize);
    if (m_Blocks == nullptr) {
        m_CurrentSize = 0;
        return false;
    }
    m_FreeQueue.Resize(initialSize);
    BuildElements(m_Blocks, initialSize);
    m_UsedCount = 0;
    m_Initialized = true;
    return true;
}

template <typename T, typename M, typename Q>
T* BasePool<T, M, Q>::GetFreeObject() {
    if (m_FreeQueue.GetCount() == 0) {
        GetMore();
    }
    // Growth can be refused (grow count 0, no memory); the empty queue then has nothing to give.
    if (m_FreeQueue.GetCount() == 0) {
        ZN_REPORT("Pool (%s) has no free object and cannot grow.", m_Name);
        return nullptr;
    }
    T* element = m_FreeQueue.Pop();
    ++m_UsedCount;
    if (m_UsedCount > m_PeakUsed) {
        m_PeakUsed = m_UsedCount;
    }
    return element;
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::ReleaseObject(T* element) {
    if (element == nullptr) {
        ZN_REPORT("Pool (%s) cannot release a null object.", m_Name);
        return;
    }
    element->ResetPoolElement();
    m_FreeQueue.Push(element);
    if (m_UsedCount == 0) {
        ZN_REPORT("Used count will be negative!");
    }
    // An unmatched release wraps the count, as the report warns.
    --m_UsedCount;
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::GetMore() {
    unsigned int grownSize = m_GrowCount + m_CurrentSize;
    if (grownSize >= m_MaximumSize) {
        ZN_LOG(
            LogInfo,
            "Pool (%s) is growing larger than it's maximum size!\n      Current size: %d\n      Maximum size "
            "%d\n  Let a programmer know about this, so he can investigate.\n  It's just a warning, so "
            "nothing is broken. Everything still works ;)",
            m_Name, static_cast<int>(grownSize), static_cast<int>(m_MaximumSize));
    }
    if (m_GrowCount == 0) {
        ZN_REPORT("Pool %s : Need to grow, but can't... GrowCount is %d", m_Name,
                  static_cast<int>(m_GrowCount));
        return;
    }
    M* block = NewBlock(m_GrowCount);
    if (block == nullptr) {
        return;
    }
    M* older = m_Blocks;
    m_Blocks = block;
    m_FreeQueue.Resize(m_FreeQueue.GetCapacity() + m_GrowCount);
    BuildElements(block, m_GrowCount);
    block->SetNext(older);
    m_CurrentSize += m_GrowCount;
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::Release() {
    if (m_UsedCount != 0) {
        ZN_REPORT("Deleting a pool (%s) which still has %d objects used.", m_Name,
                  static_cast<int>(m_UsedCount));
    }
    DestroyFreeElements();
    DeleteBlocks();
    m_Blocks = nullptr;
    m_UsedCount = 0;
    m_PeakUsed = 0;
    m_Initialized = false;
}

template <typename T, typename M, typename Q>
M* BasePool<T, M, Q>::NewBlock(unsigned int elementCount) {
    size_t bytes = size_t{elementCount} * sizeof(T);
    M* block = new M(bytes, m_Name);
    if (block == nullptr || (bytes != 0 && block->GetMemory() == nullptr)) {
        ZN_REPORT("Pool (%s) cannot get a block of %zu bytes for %u elements.", m_Name, bytes, elementCount);
        delete block;
        return nullptr;
    }
    return block;
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::BuildElements(M* block, unsigned int elementCount) {
    char* slot = static_cast<char*>(block->GetMemory());
    for (unsigned int index = 0; index < elementCount; ++index, slot += sizeof(T)) {
        m_FreeQueue.Push(ConstructElement(slot));
    }
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::DestroyFreeElements() {
    // Only the storage's owner, the block, frees it; an element is just taken down.
    while (!m_FreeQueue.IsEmpty()) {
        T* element = m_FreeQueue.Pop();
        element->~T();
    }
}

template <typename T, typename M, typename Q>
void BasePool<T, M, Q>::DeleteBlocks() {
    PoolMemory* block = m_Blocks;
    while (block != nullptr) {
        PoolMemory* older = block->GetNext();
        delete block;
        block = older;
    }
}

template <typename T, typename M, typename Q>
unsigned int BasePool<T, M, Q>::GetBlockCount() const {
    unsigned int blockCount = 0;
    for (const PoolMemory* block = m_Blocks; block != nullptr; block = block->GetNext()) {
        ++blockCount;
    }
    return blockCount;
}

template <typename T, typename M, typename Q>
bool BasePool<T, M, Q>::Validate() const {
    if (!m_FreeQueue.Validate()) {
        return false;
    }
    if (m_Blocks == nullptr) {
        return m_FreeQueue.GetCount() == 0 && m_UsedCount == 0;
    }
    unsigned int blockTotal = 0;
    for (const PoolMemory* block = m_Blocks; block != nullptr; block = block->GetNext()) {
        blockTotal += ElementsIn(block);
    }
    if (blockTotal != m_CurrentSize || m_FreeQueue.GetCount() + m_UsedCount != m_CurrentSize) {
        return false;
    }
    for (unsigned int position = 0; position < m_FreeQueue.GetCount(); ++position) {
        if (!LiesInASlot(m_FreeQueue.PeekAt(position))) {
            return false;
        }
    }
    return FreeElementsAreDistinct();
}

template <typename T, typename M, typename Q>
bool BasePool<T, M, Q>::LiesInASlot(const T* element) const {
    auto address = reinterpret_cast<uintptr_t>(element);
    for (const PoolMemory* block = m_Blocks; block != nullptr; block = block->GetNext()) {
        auto start = reinterpret_cast<uintptr_t>(block->GetMemory());
        size_t bytes = size_t{ElementsIn(block)} * sizeof(T);
        if (address >= start && address - start < bytes) {
            return (address - start) % sizeof(T) == 0;
        }
    }
    return false;
}

template <typename T, typename M, typename Q>
bool BasePool<T, M, Q>::FreeElementsAreDistinct() const {
    unsigned int freeCount = m_FreeQueue.GetCount();
    if (freeCount < 2) {
        return true;
    }
    // A sorted copy finds an element queued twice (an unmatched release) in n log n.
    auto* sorted =
        static_cast<uintptr_t*>(MemoryManager::GlobalMalloc(size_t{freeCount} * sizeof(uintptr_t), 0));
    if (sorted == nullptr) {
        return false;
    }
    for (unsigned int position = 0; position < freeCount; ++position) {
        sorted[position] = reinterpret_cast<uintptr_t>(m_FreeQueue.PeekAt(position));
    }
    std::sort(sorted, sorted + freeCount);
    bool distinct = std::adjacent_find(sorted, sorted + freeCount) == sorted + freeCount;
    MemoryManager::GlobalFree(sorted, 0);
    return distinct;
}

}  // namespace zn
