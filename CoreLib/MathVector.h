// MathVector.h: the small fixed-size vector of the engine's geometry, elements x, y, z, w in that
// order. A header template outside the namespace, instantiated for 2, 3 and 4 elements of float
// (and of int for grid coordinates); plain scalar code the compiler is free to vectorise.
#pragma once

#include <cmath>
#include <concepts>
#include <type_traits>

template <typename T, int N>
class MathVector {
    static_assert(N >= 2 && N <= 4, "a MathVector has 2, 3 or 4 elements");
    static_assert(std::is_arithmetic_v<T>, "a MathVector holds numbers");

public:
    using ElementType = T;
    static constexpr int kSize = N;

    // All elements zero.
    constexpr MathVector() : m_Elements{} {}
    constexpr MathVector(T x, T y) requires(N == 2) : m_Elements{x, y} {}
    constexpr MathVector(T x, T y, T z) requires(N == 3) : m_Elements{x, y, z} {}
    constexpr MathVector(T x, T y, T z, T w) requires(N == 4) : m_Elements{x, y, z, w} {}
    // The point or direction xyz extended by w (1 for a point, 0 for a direction).
    constexpr MathVector(const MathVector<T, 3>& xyz, T w) requires(N == 4)
        : m_Elements{xyz[0], xyz[1], xyz[2], w} {}

    // Every element set to value.
    static constexpr MathVector Splat(T value) {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = value;
        }
        return result;
    }

    constexpr T& operator[](int index) { return m_Elements[index]; }
    constexpr const T& operator[](int index) const { return m_Elements[index]; }

    constexpr T& X() { return m_Elements[0]; }
    constexpr T& Y() { return m_Elements[1]; }
    constexpr T& Z() requires(N >= 3) { return m_Elements[2]; }
    constexpr T& W() requires(N == 4) { return m_Elements[3]; }
    constexpr const T& X() const { return m_Elements[0]; }
    constexpr const T& Y() const { return m_Elements[1]; }
    constexpr const T& Z() const requires(N >= 3) { return m_Elements[2]; }
    constexpr const T& W() const requires(N == 4) { return m_Elements[3]; }

    // The N elements in order, contiguous: what the file formats read and write.
    constexpr T* Data() { return m_Elements; }
    constexpr const T* Data() const { return m_Elements; }

    // The first three elements of a four-element vector.
    constexpr MathVector<T, 3> XYZ() const requires(N == 4) {
        return MathVector<T, 3>(m_Elements[0], m_Elements[1], m_Elements[2]);
    }

    constexpr MathVector& operator+=(const MathVector& other) {
        for (int i = 0; i < N; ++i) {
            m_Elements[i] += other.m_Elements[i];
        }
        return *this;
    }
    constexpr MathVector& operator-=(const MathVector& other) {
        for (int i = 0; i < N; ++i) {
            m_Elements[i] -= other.m_Elements[i];
        }
        return *this;
    }
    constexpr MathVector& operator*=(T scalar) {
        for (int i = 0; i < N; ++i) {
            m_Elements[i] *= scalar;
        }
        return *this;
    }
    // Divides each element (no reciprocal), so results match a division written out by hand.
    constexpr MathVector& operator/=(T scalar) {
        for (int i = 0; i < N; ++i) {
            m_Elements[i] /= scalar;
        }
        return *this;
    }

    constexpr MathVector operator+(const MathVector& other) const {
        MathVector result = *this;
        result += other;
        return result;
    }
    constexpr MathVector operator-(const MathVector& other) const {
        MathVector result = *this;
        result -= other;
        return result;
    }
    constexpr MathVector operator*(T scalar) const {
        MathVector result = *this;
        result *= scalar;
        return result;
    }
    constexpr MathVector operator/(T scalar) const {
        MathVector result = *this;
        result /= scalar;
        return result;
    }
    friend constexpr MathVector operator*(T scalar, const MathVector& vector) { return vector * scalar; }
    constexpr MathVector operator-() const {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = -m_Elements[i];
        }
        return result;
    }

    // Between two three-element vectors the product is the cross product; the engine's transform
    // composition is written in terms of it. Other sizes have no vector product operator.
    constexpr MathVector operator*(const MathVector& other) const requires(N == 3) {
        return Cross(*this, other);
    }

    // Exact, element by element: 0 equals -0 and NaN equals nothing.
    friend constexpr bool operator==(const MathVector&, const MathVector&) = default;

    static constexpr T Dot(const MathVector& a, const MathVector& b) {
        T sum = a.m_Elements[0] * b.m_Elements[0];
        for (int i = 1; i < N; ++i) {
            sum += a.m_Elements[i] * b.m_Elements[i];
        }
        return sum;
    }
    // Right-handed: Cross(x axis, y axis) is the z axis.
    static constexpr MathVector Cross(const MathVector& a, const MathVector& b) requires(N == 3) {
        return MathVector(a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]);
    }
    // Element-wise product, the operation a scale applies.
    static constexpr MathVector MultiplyElements(const MathVector& a, const MathVector& b) {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = a.m_Elements[i] * b.m_Elements[i];
        }
        return result;
    }
    static constexpr MathVector DivideElements(const MathVector& a, const MathVector& b) {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = a.m_Elements[i] / b.m_Elements[i];
        }
        return result;
    }
    static constexpr MathVector Min(const MathVector& a, const MathVector& b) {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = b.m_Elements[i] < a.m_Elements[i] ? b.m_Elements[i] : a.m_Elements[i];
        }
        return result;
    }
    static constexpr MathVector Max(const MathVector& a, const MathVector& b) {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = a.m_Elements[i] < b.m_Elements[i] ? b.m_Elements[i] : a.m_Elements[i];
        }
        return result;
    }
    // a at t = 0, b at t = 1, straight between and beyond.
    static constexpr MathVector Lerp(const MathVector& a, const MathVector& b,
                                     T t) requires std::floating_point<T> {
        MathVector result;
        for (int i = 0; i < N; ++i) {
            result.m_Elements[i] = a.m_Elements[i] + (b.m_Elements[i] - a.m_Elements[i]) * t;
        }
        return result;
    }

    constexpr T LengthSquared() const { return Dot(*this, *this); }
    T Length() const requires std::floating_point<T> { return std::sqrt(LengthSquared()); }
    static T Distance(const MathVector& a, const MathVector& b) requires std::floating_point<T> {
        return (a - b).Length();
    }
    static constexpr T DistanceSquared(const MathVector& a, const MathVector& b) {
        return (a - b).LengthSquared();
    }

    // Divides by the length and returns the length it had. A zero vector divides through and
    // becomes NaN: geometry code does not test for it on every call.
    T Normalize() requires std::floating_point<T> {
        T length = Length();
        *this /= length;
        return length;
    }
    // The unit vector of this direction, under the same rule as Normalize.
    MathVector Normalized() const requires std::floating_point<T> { return *this / Length(); }

private:
    T m_Elements[N];
};

static_assert(sizeof(MathVector<float, 3>) == 12, "vectors are stored as bare floats");
static_assert(std::is_trivially_copyable_v<MathVector<float, 4>>);
