// BaseFixedMem.h: a fixed inline store of N plain elements, such as a path of 260 wchar_t, that
// needs no allocation.
#pragma once

#include "CoreLib/Report.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace zn {

template <typename T, unsigned int N>
class BaseFixedMem {
public:
    static_assert(std::is_trivially_copyable_v<T>, "BaseFixedMem stores plain elements");
    static_assert(N > 0, "BaseFixedMem stores at least one element");

    static constexpr unsigned int kCapacity = N;

    // The store's elements start as value-initialised (zero) elements.
    BaseFixedMem() = default;

    static constexpr unsigned int GetCapacity() { return N; }
    T* GetBase() { return m_Elements; }
    const T* GetBase() const { return m_Elements; }
    // No range check: index must be below N.
    T& operator[](unsigned int index) { return m_Elements[index]; }
    const T& operator[](unsigned int index) const { return m_Elements[index]; }

    // Writes value into the element at address. An address that is not aligned for T is reported
    // as a misaligned block; the value is written all the same, byte by byte.
    static T* Construct(void* address, const T& value = T()) {
        if (reinterpret_cast<uintptr_t>(address) % alignof(T) != 0) {
            ZN_REPORT("Unexpected misaligned block");
        }
        std::memcpy(address, &value, sizeof(T));
        return static_cast<T*>(address);
    }
    // Construct on the store's own element at index (below N).
    T* Construct(unsigned int index, const T& value) {
        return Construct(static_cast<void*>(m_Elements + index), value);
    }
    // Value-initialises every element.
    void Clear() { std::memset(static_cast<void*>(m_Elements), 0, sizeof(m_Elements)); }

private:
    T m_Elements[N] = {};
};

}  // namespace zn
