// TypeWrap.h: a distinct type around a plain value, so that ids of different kinds don't mix.
#pragma once

namespace zn {

// Wraps a value of type T; Tag keeps two wraps of the same T apart. When DefaultInvalid is 1 a
// default-constructed wrap holds the all-ones value, the library's "none" for ids.
template <typename T, typename Tag, int DefaultInvalid>
class TypeWrap {
public:
    static constexpr T kInvalid = static_cast<T>(~T{0});

    constexpr TypeWrap() : m_Value(DefaultInvalid ? kInvalid : T{0}) {}
    constexpr explicit TypeWrap(T value) : m_Value(value) {}

    constexpr T Get() const { return m_Value; }
    constexpr void Set(T value) { m_Value = value; }
    constexpr bool IsValid() const { return m_Value != kInvalid; }
    constexpr explicit operator T() const { return m_Value; }

    friend constexpr bool operator==(TypeWrap a, TypeWrap b) { return a.m_Value == b.m_Value; }
    friend constexpr bool operator!=(TypeWrap a, TypeWrap b) { return a.m_Value != b.m_Value; }
    friend constexpr bool operator<(TypeWrap a, TypeWrap b) { return a.m_Value < b.m_Value; }

private:
    T m_Value;
};

}  // namespace zn
