// Set.h: a dense vector of elements, in the order its user gives them (not sorted unless sorted,
// and with no uniqueness). Growth doubles the capacity; removal moves the last element into the gap.
#pragma once

#include "CoreLib/ElementPolicies.h"
#include "CoreLib/Report.h"

#include <algorithm>
#include <cstdint>

namespace zn {

template <typename T, typename I = MallocInterface<T>, typename C = DefaultComparator<T>>
class Set {
public:
    // What Find returns when the value is not there.
    static constexpr unsigned int kInvalidIndex = 0xFFFFFFFF;
    // A growth that reaches this capacity is reported as a warning.
    static constexpr unsigned int kLargeCapacity = 10000;
    // The report of an index at or above the size: the index, then the size.
    static constexpr const char* kIndexOutOfRange = "Index [%d] out of range [0 - %d]";

    Set() = default;
    explicit Set(unsigned int capacity) { Realloc(capacity); }
    Set(const Set& other) { CopyFrom(other); }
    Set& operator=(const Set& other) {
        if (this != &other) {
            CopyFrom(other);
        }
        return *this;
    }
    ~Set() { I::Free(m_Data); }

    unsigned int GetSize() const { return m_Size; }
    unsigned int GetCapacity() const { return m_Capacity; }
    bool IsEmpty() const { return m_Size == 0; }
    T* GetData() { return m_Data; }
    const T* GetData() const { return m_Data; }

    // An index at or above the size is reported, and the slot is used all the same.
    T& operator[](unsigned int index) {
        if (index >= m_Size) {
            ZN_REPORT(kIndexOutOfRange, static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }
    const T& operator[](unsigned int index) const {
        if (index >= m_Size) {
            ZN_REPORT(kIndexOutOfRange, static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }
    T& GetAt(unsigned int index) {
        if (index >= m_Size) {
            ZN_REPORT(kIndexOutOfRange, static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }
    const T& GetAt(unsigned int index) const {
        if (index >= m_Size) {
            ZN_REPORT(kIndexOutOfRange, static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }

    // Stores value at index after moving the elements from index up by one; the capacity doubles
    // until it holds the larger of the size and index, plus one.
    void Insert(const T& value, unsigned int index) {
        T kept(value);  // value may live in this set's storage
        uint64_t needed = uint64_t{std::max(m_Size, index)} + 1;
        if (needed > m_Capacity) {
            uint64_t capacity = m_Capacity == 0 ? 1 : uint64_t{m_Capacity} * 2;
            while (capacity < needed) {
                capacity *= 2;
            }
            unsigned int grown = static_cast<unsigned int>(std::min<uint64_t>(capacity, 0xFFFFFFFF));
            if (grown >= kLargeCapacity) {
                ZN_REPORT("Warning: Set is growing very large");
            }
            Realloc(grown);
            if (needed > m_Capacity) {
                return;  // the allocation failed and was reported
            }
        }
        for (unsigned int slot = m_Size; slot > index; --slot) {
            m_Data[slot] = m_Data[slot - 1];
        }
        ++m_Size;
        m_Data[index] = kept;
    }
    // Insert at the end; returns the index.
    unsigned int Add(const T& value) {
        unsigned int index = m_Size;
        Insert(value, index);
        return index;
    }

    // Removes the element at index by moving the last element into its place: constant time, and
    // the order is not kept.
    void RemoveAt(unsigned int index) {
        if (m_Size == 0) {
            ZN_REPORT("Trying to remove an item from the set that is empty");
            return;
        }
        if (index >= m_Size) {
            ZN_REPORT(kIndexOutOfRange, static_cast<int>(index), static_cast<int>(m_Size));
        }
        --m_Size;
        if (index < m_Capacity && m_Size < m_Capacity) {
            m_Data[index] = m_Data[m_Size];
        }
    }
    // Empties the set; the capacity stays and the vacated elements are reset to the empty element.
    void RemoveAll() {
        for (unsigned int index = 0; index < std::min(m_Size, m_Capacity); ++index) {
            m_Data[index] = T();
        }
        m_Size = 0;
    }

    // Reallocates to capacity elements, keeping as many of the elements in use as fit. A capacity
    // below the size is reported; the allocation is truncated and the size stays.
    void Realloc(unsigned int capacity) {
        if (capacity == m_Capacity) {
            return;
        }
        if (capacity < m_Size) {
            ZN_REPORT("Trying to reallocate a set with a size (%d) smaller than the current use (%d)",
                      static_cast<int>(capacity), static_cast<int>(m_Size));
        }
        T* fresh = nullptr;
        if (capacity > 0) {
            fresh = I::Allocate(capacity);
            if (fresh == nullptr) {
                ZN_REPORT("Allocation returned NULL!");
                return;
            }
            unsigned int kept = std::min({m_Size, m_Capacity, capacity});
            for (unsigned int index = 0; index < kept; ++index) {
                fresh[index] = m_Data[index];
            }
        }
        I::Free(m_Data);
        m_Data = fresh;
        m_Capacity = capacity;
    }

    // The first index whose element is equal to value under C, or the invalid index.
    unsigned int Find(const T& value) const {
        unsigned int used = std::min(m_Size, m_Capacity);
        for (unsigned int index = 0; index < used; ++index) {
            if (C::Equal(m_Data[index], value)) {
                return index;
            }
        }
        return kInvalidIndex;
    }
    bool Contains(const T& value) const { return Find(value) != kInvalidIndex; }
    // Orders the elements by C.
    void Sort() {
        std::sort(m_Data, m_Data + std::min(m_Size, m_Capacity),
                  [](const T& left, const T& right) { return C::Less(left, right); });
    }

    // Checks the bookkeeping: the size fits the capacity and storage exists exactly with capacity.
    bool Validate() const { return m_Size <= m_Capacity && (m_Data == nullptr) == (m_Capacity == 0); }

private:
    // The slot at index, or the spare element for an index outside the allocation.
    T& Slot(unsigned int index) const {
        return index < m_Capacity ? m_Data[index] : detail::SpareElement<T>();
    }

    void CopyFrom(const Set& other) {
        T* fresh = I::Allocate(other.m_Capacity);
        if (fresh == nullptr && other.m_Capacity > 0) {
            ZN_REPORT("Allocation returned NULL!");
            return;
        }
        unsigned int used = std::min(other.m_Size, other.m_Capacity);
        for (unsigned int index = 0; index < used; ++index) {
            fresh[index] = other.m_Data[index];
        }
        I::Free(m_Data);
        m_Data = fresh;
        m_Capacity = other.m_Capacity;
        m_Size = used;
    }

    T* m_Data = nullptr;
    unsigned int m_Capacity = 0;
    unsigned int m_Size = 0;
};

// A set of elements with constructors.
template <typename T, typename C = DefaultComparator<T>>
using ObjectSet = Set<T, NewInterface<T>, C>;

// A set of plain values such as pointers, on malloc storage.
template <typename T, typename C = DefaultComparator<T>>
using PrimitiveSet = Set<T, MallocInterface<T>, C>;

}  // namespace zn
