// Array.h: an indexed array that may have holes. Every slot of the allocation holds an element;
// a slot equal to the empty element (a default-constructed T) is a hole, and the array counts the
// slots that are not.
#pragma once

#include "CoreLib/ElementPolicies.h"
#include "CoreLib/Report.h"

namespace zn {

template <typename T, typename I = MallocInterface<T>>
class Array {
public:
    // What Find and Remove return when the value is not there.
    static constexpr unsigned int kInvalidIndex = 0xFFFFFFFF;

    // With an initial size above 0, that many empty elements are allocated; otherwise none.
    explicit Array(unsigned int initialSize = 0, unsigned int growBy = 16)
        : m_AllocatedSize(initialSize), m_GrowBy(growBy) {
        if (initialSize > 0) {
            m_Data = I::Allocate(initialSize);
            if (m_Data == nullptr) {
                ZN_REPORT("Allocation returned NULL!");
                m_AllocatedSize = 0;
                return;
            }
            FillEmpty(0, initialSize);
        }
    }
    Array(const Array& other) : m_GrowBy(other.m_GrowBy) { CopyFrom(other); }
    Array& operator=(const Array& other) {
        if (this != &other) {
            m_GrowBy = other.m_GrowBy;
            CopyFrom(other);
        }
        return *this;
    }
    virtual ~Array() { I::Free(m_Data); }

    unsigned int GetInvalidIndex() const { return m_InvalidIndex; }
    // One more than the highest index in use.
    unsigned int GetSize() const { return m_Size; }
    // How many slots below the size are not empty.
    unsigned int GetEffectiveSize() const { return m_EffectiveSize; }
    unsigned int GetAllocatedSize() const { return m_AllocatedSize; }
    unsigned int GetGrowBy() const { return m_GrowBy; }
    void SetGrowBy(unsigned int growBy) { m_GrowBy = growBy; }
    T* GetBase() { return m_Data; }
    const T* GetBase() const { return m_Data; }

    // Reallocates to exactly newSize elements; what lies at or above newSize is emptied first.
    void SetSize(unsigned int newSize) {
        if (newSize == m_AllocatedSize) {
            return;
        }
        if (newSize < m_Size) {
            for (unsigned int index = newSize; index < m_Size; ++index) {
                if (!IsEmpty(m_Data[index])) {
                    m_Data[index] = T();
                    --m_EffectiveSize;
                }
            }
            m_Size = newSize;
        }
        if (newSize == 0) {
            I::Free(m_Data);
            m_Data = nullptr;
            m_AllocatedSize = 0;
            return;
        }
        T* fresh = I::Allocate(newSize);
        if (fresh == nullptr) {
            // The old elements stay where they are, rather than being copied into nothing.
            ZN_REPORT("Allocation returned NULL!");
            return;
        }
        for (unsigned int index = 0; index < m_Size; ++index) {
            fresh[index] = m_Data[index];
        }
        for (unsigned int index = m_Size; index < newSize; ++index) {
            fresh[index] = T();
        }
        I::Free(m_Data);
        m_Data = fresh;
        m_AllocatedSize = newSize;
    }

    // An index at or above the size is reported, and the slot is read all the same.
    const T& GetAt(unsigned int index) const {
        if (index >= m_Size) {
            ZN_REPORT("Index [%d] out of range [0 - %d]", static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }
    const T& operator[](unsigned int index) const {
        if (index >= m_Size) {
            ZN_REPORT("Index [%d] out of range [0 - %d]", static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }
    T& operator[](unsigned int index) {
        if (index >= m_Size) {
            ZN_REPORT("Index [%d] out of range [0 - %d]", static_cast<int>(index), static_cast<int>(m_Size));
        }
        return Slot(index);
    }

    // Stores value at index, raising the size to index + 1 if needed; an index outside the
    // allocation is reported and stores nothing.
    void SetAt(unsigned int index, const T& value) {
        if (index >= m_AllocatedSize) {
            ZN_REPORT("Index %d larger than the max size %d of array! This will cause memory corruption!",
                      static_cast<int>(index), static_cast<int>(m_AllocatedSize));
            return;
        }
        bool valueEmpty = IsEmpty(value);
        if (index < m_Size) {
            bool slotEmpty = IsEmpty(m_Data[index]);
            if (!valueEmpty && slotEmpty) {
                ++m_EffectiveSize;
            } else if (valueEmpty && !slotEmpty) {
                --m_EffectiveSize;
            }
        } else {
            m_Size = index + 1;
            if (!valueEmpty) {
                ++m_EffectiveSize;
            }
        }
        m_Data[index] = value;
    }
    // SetAt, after growing the allocation to index + grow-by when index lies outside it.
    unsigned int SetAtGrow(unsigned int index, const T& value) {
        if (index >= m_AllocatedSize) {
            T kept(value);  // value may live in the storage that SetSize frees
            SetSize(index + m_GrowBy);
            SetAt(index, kept);
            return index;
        }
        SetAt(index, value);
        return index;
    }
    // Appends value at the size, growing by grow-by when full; returns its index.
    unsigned int Add(const T& value) {
        unsigned int index = m_Size;
        if (m_Size >= m_AllocatedSize) {
            T kept(value);
            SetSize(m_Size + m_GrowBy);
            SetAt(index, kept);
            return index;
        }
        SetAt(index, value);
        return index;
    }
    // Fills the first hole below the size with value, or appends it; an empty value changes
    // nothing and gives the invalid index.
    unsigned int AddFirstEmpty(const T& value) {
        if (IsEmpty(value)) {
            return kInvalidIndex;
        }
        for (unsigned int index = 0; index < m_Size; ++index) {
            if (IsEmpty(m_Data[index])) {
                m_Data[index] = value;
                ++m_EffectiveSize;
                return index;
            }
        }
        return Add(value);
    }

    // Empties the slot and returns what it held; the hole stays and the size with it.
    T RemoveAt(unsigned int index) {
        if (index >= m_Size) {
            return T();
        }
        T removed = m_Data[index];
        m_Data[index] = T();
        if (!IsEmpty(removed)) {
            --m_EffectiveSize;
        }
        return removed;
    }
    // As RemoveAt, with the last element moved into the slot and the size lowered by one.
    T RemoveAtAndFill(unsigned int index) {
        if (index >= m_Size) {
            return T();
        }
        T removed = m_Data[index];
        unsigned int last = m_Size - 1;
        if (index != last) {
            m_Data[index] = m_Data[last];
        }
        m_Data[last] = T();
        --m_Size;
        if (!IsEmpty(removed)) {
            --m_EffectiveSize;
        }
        return removed;
    }
    // Takes the last element off and returns it; an empty array gives the empty element.
    T RemoveEnd() {
        if (m_Size == 0) {
            return T();
        }
        --m_Size;
        T removed = m_Data[m_Size];
        m_Data[m_Size] = T();
        if (!IsEmpty(removed)) {
            --m_EffectiveSize;
        }
        return removed;
    }
    // Empties every element; the allocation stays.
    void RemoveAll() {
        for (unsigned int index = 0; index < m_Size; ++index) {
            m_Data[index] = T();
        }
        m_Size = 0;
        m_EffectiveSize = 0;
    }
    // RemoveAll, and the allocation goes too.
    void Reset() {
        RemoveAll();
        SetSize(0);
    }

    // RemoveAt of the first slot equal to value; its index, or the invalid index.
    unsigned int Remove(const T& value) {
        unsigned int index = Find(value, 0);
        if (index != kInvalidIndex) {
            RemoveAt(index);
        }
        return index;
    }
    // The first index from start below the size whose element equals value, or the invalid index.
    unsigned int Find(const T& value, unsigned int start = 0) const {
        for (unsigned int index = start; index < m_Size; ++index) {
            if (m_Data[index] == value) {
                return index;
            }
        }
        return kInvalidIndex;
    }

    // Closes the holes, keeping the order of the elements; the size becomes the effective size.
    void Compact() {
        if (m_EffectiveSize == m_Size) {
            return;
        }
        unsigned int target = 0;
        for (unsigned int index = 0; index < m_Size; ++index) {
            if (IsEmpty(m_Data[index])) {
                continue;
            }
            if (target != index) {
                m_Data[target] = m_Data[index];
                m_Data[index] = T();
            }
            ++target;
        }
        m_Size = m_EffectiveSize;
    }
    // Lowers the size past the empty elements at its end.
    void UpdateSize() {
        while (m_Size > 0 && IsEmpty(m_Data[m_Size - 1])) {
            --m_Size;
        }
    }

    // Checks the bookkeeping: the size lies inside the allocation, the effective size counts the
    // non-empty slots below the size, and every slot at or above the size is empty.
    bool Validate() const {
        if (m_InvalidIndex != kInvalidIndex || m_Size > m_AllocatedSize) {
            return false;
        }
        if ((m_Data == nullptr) != (m_AllocatedSize == 0)) {
            return false;
        }
        unsigned int filled = 0;
        for (unsigned int index = 0; index < m_AllocatedSize; ++index) {
            bool empty = IsEmpty(m_Data[index]);
            if (index >= m_Size && !empty) {
                return false;
            }
            filled += (index < m_Size && !empty) ? 1 : 0;
        }
        return filled == m_EffectiveSize;
    }

private:
    static bool IsEmpty(const T& value) { return value == T(); }

    // The slot at index, or the spare element for an index outside the allocation.
    T& Slot(unsigned int index) const {
        return index < m_AllocatedSize ? m_Data[index] : detail::SpareElement<T>();
    }

    void FillEmpty(unsigned int first, unsigned int end) {
        for (unsigned int index = first; index < end; ++index) {
            m_Data[index] = T();
        }
    }

    // Replaces the content with a copy of other's allocation; on a failed allocation, reported,
    // this array stays as it was.
    void CopyFrom(const Array& other) {
        T* fresh = I::Allocate(other.m_AllocatedSize);
        if (fresh == nullptr && other.m_AllocatedSize > 0) {
            ZN_REPORT("Allocation returned NULL!");
            return;
        }
        for (unsigned int index = 0; index < other.m_AllocatedSize; ++index) {
            fresh[index] = other.m_Data[index];
        }
        I::Free(m_Data);
        m_Data = fresh;
        m_AllocatedSize = other.m_AllocatedSize;
        m_Size = other.m_Size;
        m_EffectiveSize = other.m_EffectiveSize;
    }

    unsigned int m_InvalidIndex = kInvalidIndex;
    T* m_Data = nullptr;
    unsigned int m_AllocatedSize = 0;
    unsigned int m_Size = 0;
    unsigned int m_EffectiveSize = 0;
    unsigned int m_GrowBy = 0;
};

// An array of elements with constructors.
template <typename T>
using ObjectArray = Array<T, NewInterface<T>>;

}  // namespace zn
