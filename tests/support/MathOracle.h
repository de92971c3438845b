// MathOracle.h: Eigen as the reference for the geometry tests, with every change of convention
// spelled out, and fixed-seed random inputs.
#pragma once

#include "CoreLib/MathMatrix.h"
#include "CoreLib/MathVector.h"
#include "CoreLib/Quaternion.h"

#include <Eigen/Dense>
#include <Eigen/Geometry>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <random>

namespace zn::test {

constexpr double kFloatEpsilon = std::numeric_limits<float>::epsilon();

// Ours are stored row after row and Eigen's by column by default, so the flat data is mapped as
// row-major; the reference then works in double, where its own rounding is negligible.
template <int R, int C>
Eigen::Matrix<double, R, C> ToEigen(const MathMatrix<float, R, C>& matrix) {
    return Eigen::Map<const Eigen::Matrix<float, R, C, Eigen::RowMajor>>(matrix.Data())
        .template cast<double>();
}
template <int N>
Eigen::Matrix<double, N, 1> ToEigen(const MathVector<float, N>& vector) {
    return Eigen::Map<const Eigen::Matrix<float, N, 1>>(vector.Data()).template cast<double>();
}
// Eigen's constructor takes (w, x, y, z) as ours does; only its storage order (x, y, z, w) differs.
inline Eigen::Quaterniond ToEigen(const Quaternion& q) {
    return Eigen::Quaterniond(q.GetW(), q.GetX(), q.GetY(), q.GetZ());
}

template <int R, int C>
MathMatrix<float, R, C> FromEigen(const Eigen::Matrix<double, R, C>& matrix) {
    MathMatrix<float, R, C> result;
    for (int i = 0; i < R * C; ++i) {
        result[i] = static_cast<float>(matrix(i / C, i % C));
    }
    return result;
}
inline Quaternion FromEigen(const Eigen::Quaterniond& q) {
    return Quaternion(static_cast<float>(q.w()), static_cast<float>(q.x()), static_cast<float>(q.y()),
                      static_cast<float>(q.z()));
}

// Largest element-wise distance between one of ours and an Eigen value.
template <typename Ours, typename Theirs>
double MaxError(const Ours& ours, const Theirs& theirs) {
    return (ToEigen(ours) - theirs).cwiseAbs().maxCoeff();
}
// The same for quaternions, which name one rotation with two signs.
inline double QuaternionError(const Quaternion& ours, const Eigen::Quaterniond& theirs) {
    Eigen::Vector4d a = ToEigen(ours).coeffs();
    return std::min((a - theirs.coeffs()).cwiseAbs().maxCoeff(), (a + theirs.coeffs()).cwiseAbs().maxCoeff());
}

// Fixed-seed inputs, so every failure reproduces.
class RandomMath {
public:
    explicit RandomMath(uint32_t seed) : m_Engine(seed) {}

    float Uniform(float low, float high) {
        return std::uniform_real_distribution<float>(low, high)(m_Engine);
    }
    template <int N>
    MathVector<float, N> Vector(float low = -1.0f, float high = 1.0f) {
        MathVector<float, N> result;
        for (int i = 0; i < N; ++i) {
            result[i] = Uniform(low, high);
        }
        return result;
    }
    template <int R, int C>
    MathMatrix<float, R, C> Matrix(float low = -1.0f, float high = 1.0f) {
        MathMatrix<float, R, C> result;
        for (int i = 0; i < R * C; ++i) {
            result[i] = Uniform(low, high);
        }
        return result;
    }
    // Uniform over the rotations: a normalised 4D Gaussian.
    Eigen::Quaterniond Rotation() {
        std::normal_distribution<double> normal;
        return Eigen::Quaterniond(normal(m_Engine), normal(m_Engine), normal(m_Engine), normal(m_Engine))
            .normalized();
    }
    std::mt19937& Engine() { return m_Engine; }

private:
    std::mt19937 m_Engine;
};

}  // namespace zn::test
