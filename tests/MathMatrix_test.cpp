// MathMatrix_test.cpp: row-after-row storage and the translation column, then product, matrix
// times vector, transpose, determinant and inverse against Eigen on random matrices.
#include "CoreLib/MathMatrix.h"

#include "tests/support/MathOracle.h"

#include <gtest/gtest.h>

#include <cmath>

namespace zn::test {
namespace {

using Matrix3 = MathMatrix<float, 3, 3>;
using Matrix4 = MathMatrix<float, 4, 4>;
using Matrix43 = MathMatrix<float, 4, 3>;
using Vector3 = MathVector<float, 3>;
using Vector4 = MathVector<float, 4>;

TEST(MathMatrix, StoresRowAfterRowWithTranslationInTheLastColumn) {
    Matrix43 m(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11);
    EXPECT_EQ(m(1, 2), 5.0f);
    EXPECT_EQ(ToEigen(m)(3, 1), 10.0);
    EXPECT_EQ(m.GetRow(2), Vector3(6, 7, 8));
    EXPECT_EQ(m.GetColumn(1), Vector4(1, 4, 7, 10));
    EXPECT_EQ(m.Transpose(), (FromEigen<3, 4>(ToEigen(m).transpose())));
    EXPECT_EQ(Matrix43::Identity(), Matrix43(1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0));
    EXPECT_EQ(-m + m * 2.0f, m);

    Matrix4 t = Matrix4::Translation(Vector3(5, 6, 7));
    EXPECT_TRUE(t[3] == 5 && t[7] == 6 && t[11] == 7);
    EXPECT_EQ(t * Vector4(1, 2, 3, 1), Vector4(6, 8, 10, 1));
    EXPECT_EQ(t.TransformPoint(Vector3(1, 2, 3)), Vector3(6, 8, 10));
    EXPECT_EQ(t.TransformDirection(Vector3(1, 2, 3)), Vector3(1, 2, 3));
    EXPECT_EQ(t.Inverse(), Matrix4::Translation(Vector3(-5, -6, -7)));
    // A singular matrix divides through.
    Matrix3 singular = Matrix3(1, 2, 3, 2, 4, 6, 0, 1, 0).Inverse();
    EXPECT_FALSE(std::isfinite(singular[0]) || std::isfinite(singular[4]) || std::isfinite(singular[8]));
}

// Each element of a float product of inner length K is within K eps of the sum of its terms'
// magnitudes from the exact product (a vector is a one-column matrix).
template <int R, int K, int C>
void ExpectProductMatches(const MathMatrix<float, R, K>& a, const MathMatrix<float, K, C>& b) {
    Eigen::Matrix<double, R, C> bound = K * kFloatEpsilon * (ToEigen(a).cwiseAbs() * ToEigen(b).cwiseAbs());
    ASSERT_TRUE(((ToEigen(a * b) - ToEigen(a) * ToEigen(b)).cwiseAbs().array() <= bound.array()).all());
    MathVector<float, K> column = b.GetColumn(0);
    Eigen::Matrix<double, R, 1> error = (ToEigen(a * column) - ToEigen(a) * ToEigen(column)).cwiseAbs();
    ASSERT_TRUE((error.array() <= bound.col(0).array()).all());
}

// Determinant: the expansion sums products of N elements, rounding at most 2N eps times their
// magnitudes, which the product of the rows' 1-norms bounds. Inverse: about N eps times the
// condition number relative to the inverse's size; 4N leaves room for the cofactors' rounding. The
// infinity-norm condition number stands in for the 2-norm one: they differ by at most a factor N.
template <int N>
void ExpectSquareMatches(const MathMatrix<float, N, N>& m) {
    Eigen::Matrix<double, N, N> e = ToEigen(m);
    ASSERT_NEAR(m.Determinant(), e.determinant(),
                2 * N * kFloatEpsilon * e.cwiseAbs().rowwise().sum().prod());
    Eigen::Matrix<double, N, N> inverse = e.inverse();
    double condition =
        e.cwiseAbs().rowwise().sum().maxCoeff() * inverse.cwiseAbs().rowwise().sum().maxCoeff();
    ASSERT_LE(MaxError(m.Inverse(), inverse),
              4 * N * kFloatEpsilon * condition * inverse.cwiseAbs().maxCoeff());
}

TEST(MathMatrix, ArithmeticMatchesEigen) {
    RandomMath random(21);
    for (int i = 0; i < 3000; ++i) {
        SCOPED_TRACE(i);
        ExpectProductMatches(random.Matrix<3, 3>(), random.Matrix<3, 3>());
        ExpectProductMatches(random.Matrix<4, 4>(-10, 10), random.Matrix<4, 4>());
        ExpectProductMatches(random.Matrix<4, 3>(), random.Matrix<3, 3>());
        ExpectProductMatches(random.Matrix<4, 4>(), random.Matrix<4, 3>());
        ExpectProductMatches(random.Matrix<2, 4>(), random.Matrix<4, 2>());
        ExpectSquareMatches(random.Matrix<2, 2>());
        ExpectSquareMatches(random.Matrix<3, 3>(-5, 5));
        ExpectSquareMatches(random.Matrix<4, 4>(-3, 3));
        Matrix4 m = random.Matrix<4, 4>();
        Vector3 p = random.Vector<3>();
        ASSERT_EQ(m.TransformPoint(p), (m * Vector4(p, 1)).XYZ());
    }
}

}  // namespace
}  // namespace zn::test
