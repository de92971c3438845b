// MathMatrix.h: the fixed-size matrix of the engine's geometry, stored row after row. Points are
// column vectors, transformed as matrix * vector, so a 4x4 affine matrix keeps its translation in
// the last column, at the flat indices 3, 7 and 11. A header template outside the namespace.
#pragma once

#include "CoreLib/MathVector.h"

#include <concepts>
#include <type_traits>

template <typename T, int R, int C>
class MathMatrix {
    static_assert(R >= 2 && R <= 4 && C >= 2 && C <= 4, "a MathMatrix has 2 to 4 rows and columns");
    static_assert(std::is_arithmetic_v<T>, "a MathMatrix holds numbers");

public:
    using ElementType = T;
    static constexpr int kRows = R;
    static constexpr int kColumns = C;
    static constexpr int kSize = R * C;

    // All elements zero.
    constexpr MathMatrix() : m_Elements{} {}
    // All R * C elements, row after row.
    template <typename... Values>
    requires(sizeof...(Values) == R * C &&
             (std::convertible_to<Values, T> && ...)) constexpr MathMatrix(Values... values)
        : m_Elements{static_cast<T>(values)...} {}

    // Ones on the main diagonal, zero elsewhere (for a non-square matrix, the leading square).
    static constexpr MathMatrix Identity() {
        MathMatrix result;
        for (int i = 0; i < R && i < C; ++i) {
            result(i, i) = T(1);
        }
        return result;
    }
    // The 4x4 (or 3x4) affine matrix that moves a point by translation.
    static constexpr MathMatrix Translation(const MathVector<T, 3>& translation) requires(C == 4 && R >= 3) {
        MathMatrix result = Identity();
        result.SetTranslation(translation);
        return result;
    }

    // Flat access, index = row * C + column.
    constexpr T& operator[](int flatIndex) { return m_Elements[flatIndex]; }
    constexpr const T& operator[](int flatIndex) const { return m_Elements[flatIndex]; }
    constexpr T& operator()(int row, int column) { return m_Elements[row * C + column]; }
    constexpr const T& operator()(int row, int column) const { return m_Elements[row * C + column]; }

    // The R * C elements, row after row.
    constexpr T* Data() { return m_Elements; }
    constexpr const T* Data() const { return m_Elements; }

    constexpr MathVector<T, C> GetRow(int row) const {
        MathVector<T, C> result;
        for (int column = 0; column < C; ++column) {
            result[column] = (*this)(row, column);
        }
        return result;
    }
    constexpr void SetRow(int row, const MathVector<T, C>& values) {
        for (int column = 0; column < C; ++column) {
            (*this)(row, column) = values[column];
        }
    }
    constexpr MathVector<T, R> GetColumn(int column) const {
        MathVector<T, R> result;
        for (int row = 0; row < R; ++row) {
            result[row] = (*this)(row, column);
        }
        return result;
    }
    constexpr void SetColumn(int column, const MathVector<T, R>& values) {
        for (int row = 0; row < R; ++row) {
            (*this)(row, column) = values[row];
        }
    }

    // The last column's first three elements (flat 3, 7, 11 of a 4x4).
    constexpr MathVector<T, 3> GetTranslation() const requires(C == 4 && R >= 3) {
        return MathVector<T, 3>(m_Elements[3], m_Elements[7], m_Elements[11]);
    }
    constexpr void SetTranslation(const MathVector<T, 3>& translation) requires(C == 4 && R >= 3) {
        m_Elements[3] = translation[0];
        m_Elements[7] = translation[1];
        m_Elements[11] = translation[2];
    }
    // The rotation-and-scale block of an affine matrix.
    constexpr MathMatrix<T, 3, 3> GetUpperLeft3x3() const requires(R >= 3 && C >= 3) {
        MathMatrix<T, 3, 3> result;
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 3; ++column) {
                result(row, column) = (*this)(row, column);
            }
        }
        return result;
    }
    constexpr void SetUpperLeft3x3(const MathMatrix<T, 3, 3>& block) requires(R >= 3 && C >= 3) {
        for (int row = 0; row < 3; ++row) {
            for (int column = 0; column < 3; ++column) {
                (*this)(row, column) = block(row, column);
            }
        }
    }

    constexpr MathMatrix<T, C, R> Transpose() const {
        MathMatrix<T, C, R> result;
        for (int row = 0; row < R; ++row) {
            for (int column = 0; column < C; ++column) {
                result(column, row) = (*this)(row, column);
            }
        }
        return result;
    }

    constexpr MathMatrix& operator+=(const MathMatrix& other) {
        for (int i = 0; i < kSize; ++i) {
            m_Elements[i] += other.m_Elements[i];
        }
        return *this;
    }
    constexpr MathMatrix& operator-=(const MathMatrix& other) {
        for (int i = 0; i < kSize; ++i) {
            m_Elements[i] -= other.m_Elements[i];
        }
        return *this;
    }
    constexpr MathMatrix& operator*=(T scalar) {
        for (int i = 0; i < kSize; ++i) {
            m_Elements[i] *= scalar;
        }
        return *this;
    }
    constexpr MathMatrix& operator/=(T scalar) {
        for (int i = 0; i < kSize; ++i) {
            m_Elements[i] /= scalar;
        }
        return *this;
    }
    // this = this * other, for a square right-hand side.
    constexpr MathMatrix& operator*=(const MathMatrix<T, C, C>& other) { return *this = *this * other; }

    constexpr MathMatrix operator+(const MathMatrix& other) const {
        MathMatrix result = *this;
        result += other;
        return result;
    }
    constexpr MathMatrix operator-(const MathMatrix& other) const {
        MathMatrix result = *this;
        result -= other;
        return result;
    }
    constexpr MathMatrix operator*(T scalar) const {
        MathMatrix result = *this;
        result *= scalar;
        return result;
    }
    constexpr MathMatrix operator/(T scalar) const {
        MathMatrix result = *this;
        result /= scalar;
        return result;
    }
    friend constexpr MathMatrix operator*(T scalar, const MathMatrix& matrix) { return matrix * scalar; }
    constexpr MathMatrix operator-() const { return *this * T(-1); }

    // The matrix product. The inner loop runs along a row of both the right-hand side and the
    // result, so it works on contiguous elements; each element still sums over k in order.
    template <int K>
    constexpr MathMatrix<T, R, K> operator*(const MathMatrix<T, C, K>& other) const {
        MathMatrix<T, R, K> result;
        for (int row = 0; row < R; ++row) {
            for (int inner = 0; inner < C; ++inner) {
                T left = (*this)(row, inner);
                for (int column = 0; column < K; ++column) {
                    result(row, column) += left * other(inner, column);
                }
            }
        }
        return result;
    }
    // The column vector transformed: result[row] = dot(row of this, vector).
    constexpr MathVector<T, R> operator*(const MathVector<T, C>& vector) const {
        MathVector<T, R> result;
        for (int row = 0; row < R; ++row) {
            T sum = (*this)(row, 0) * vector[0];
            for (int column = 1; column < C; ++column) {
                sum += (*this)(row, column) * vector[column];
            }
            result[row] = sum;
        }
        return result;
    }

    // A point through an affine matrix: the upper 3x4 with w = 1, no projective divide.
    constexpr MathVector<T, 3> TransformPoint(const MathVector<T, 3>& point) const
        requires(C == 4 && R >= 3) {
        MathVector<T, 3> result;
        for (int row = 0; row < 3; ++row) {
            result[row] = (*this)(row, 0) * point[0] + (*this)(row, 1) * point[1] +
                          (*this)(row, 2) * point[2] + (*this)(row, 3);
        }
        return result;
    }
    // A direction through an affine matrix: the upper 3x3 only, translation ignored.
    constexpr MathVector<T, 3> TransformDirection(const MathVector<T, 3>& direction) const
        requires(C == 4 && R >= 3) {
        MathVector<T, 3> result;
        for (int row = 0; row < 3; ++row) {
            result[row] = (*this)(row, 0) * direction[0] + (*this)(row, 1) * direction[1] +
                          (*this)(row, 2) * direction[2];
        }
        return result;
    }

    // Exact, element by element.
    friend constexpr bool operator==(const MathMatrix&, const MathMatrix&) = default;

    constexpr T Determinant() const requires(R == C) {
        const T* m = m_Elements;
        if constexpr (R == 2) {
            return m[0] * m[3] - m[1] * m[2];
        } else if constexpr (R == 3) {
            return m[0] * (m[4] * m[8] - m[5] * m[7]) + m[1] * (m[5] * m[6] - m[3] * m[8]) +
                   m[2] * (m[3] * m[7] - m[4] * m[6]);
        } else {
            Minors4 minors(m);
            return minors.Determinant();
        }
    }

    // The adjugate divided by the determinant. A singular matrix divides through by zero and
    // yields infinities or NaN, as the other value types do; test Determinant first if it may be.
    constexpr MathMatrix Inverse() const requires(R == C && std::floating_point<T>) {
        const T* m = m_Elements;
        if constexpr (R == 2) {
            T scale = T(1) / Determinant();
            return MathMatrix(m[3] * scale, -m[1] * scale, -m[2] * scale, m[0] * scale);
        } else if constexpr (R == 3) {
            MathMatrix adjugate(
                m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
                m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
                m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]);
            // Expanding along the first row reuses the adjugate's first column.
            T determinant = m[0] * adjugate[0] + m[1] * adjugate[3] + m[2] * adjugate[6];
            return adjugate * (T(1) / determinant);
        } else {
            Minors4 minors(m);
            T s = T(1) / minors.Determinant();
            const T* lo = minors.m_Low;
            const T* hi = minors.m_High;
            return MathMatrix((m[5] * hi[5] - m[6] * hi[4] + m[7] * hi[3]) * s,
                              (-m[1] * hi[5] + m[2] * hi[4] - m[3] * hi[3]) * s,
                              (m[13] * lo[5] - m[14] * lo[4] + m[15] * lo[3]) * s,
                              (-m[9] * lo[5] + m[10] * lo[4] - m[11] * lo[3]) * s,
                              (-m[4] * hi[5] + m[6] * hi[2] - m[7] * hi[1]) * s,
                              (m[0] * hi[5] - m[2] * hi[2] + m[3] * hi[1]) * s,
                              (-m[12] * lo[5] + m[14] * lo[2] - m[15] * lo[1]) * s,
                              (m[8] * lo[5] - m[10] * lo[2] + m[11] * lo[1]) * s,
                              (m[4] * hi[4] - m[5] * hi[2] + m[7] * hi[0]) * s,
                              (-m[0] * hi[4] + m[1] * hi[2] - m[3] * hi[0]) * s,
                              (m[12] * lo[4] - m[13] * lo[2] + m[15] * lo[0]) * s,
                              (-m[8] * lo[4] + m[9] * lo[2] - m[11] * lo[0]) * s,
                              (-m[4] * hi[3] + m[5] * hi[1] - m[6] * hi[0]) * s,
                              (m[0] * hi[3] - m[1] * hi[1] + m[2] * hi[0]) * s,
                              (-m[12] * lo[3] + m[13] * lo[1] - m[14] * lo[0]) * s,
                              (m[8] * lo[3] - m[9] * lo[1] + m[10] * lo[0]) * s);
        }
    }

private:
    // The 2x2 minors of a 4x4 from its two upper rows (m_Low) and its two lower rows (m_High),
    // which give both the determinant (Laplace expansion by the row pairs) and every cofactor.
    struct Minors4 {
        explicit constexpr Minors4(const T* m)
            : m_Low{m[0] * m[5] - m[4] * m[1], m[0] * m[6] - m[4] * m[2], m[0] * m[7] - m[4] * m[3],
                    m[1] * m[6] - m[5] * m[2], m[1] * m[7] - m[5] * m[3], m[2] * m[7] - m[6] * m[3]},
              m_High{m[8] * m[13] - m[12] * m[9],  m[8] * m[14] - m[12] * m[10],
                     m[8] * m[15] - m[12] * m[11], m[9] * m[14] - m[13] * m[10],
                     m[9] * m[15] - m[13] * m[11], m[10] * m[15] - m[14] * m[11]} {}
        constexpr T Determinant() const {
            return m_Low[0] * m_High[5] - m_Low[1] * m_High[4] + m_Low[2] * m_High[3] + m_Low[3] * m_High[2] -
                   m_Low[4] * m_High[1] + m_Low[5] * m_High[0];
        }
        T m_Low[6];
        T m_High[6];
    };

    T m_Elements[R * C];
};

static_assert(sizeof(MathMatrix<float, 4, 4>) == 64, "matrices are stored as bare floats");
static_assert(std::is_trivially_copyable_v<MathMatrix<float, 4, 4>>);
