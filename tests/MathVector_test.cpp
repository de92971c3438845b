// MathVector_test.cpp: element order and operators (between three-element vectors * is the cross
// product), and cross, dot, length and normalisation against Eigen.
#include "CoreLib/MathVector.h"

#include "tests/support/MathOracle.h"

#include <gtest/gtest.h>

#include <cmath>

namespace zn::test {
namespace {

using Vector3 = MathVector<float, 3>;
using Vector4 = MathVector<float, 4>;
using IntVector2 = MathVector<int, 2>;

TEST(MathVector, ElementsAndOperators) {
    constexpr Vector4 v(1, 2, 3, 4);
    static_assert(v.X() == 1 && v.Y() == 2 && v.Z() == 3 && v.W() == 4 && v[3] == 4 && Vector3()[2] == 0);
    EXPECT_EQ(&v.Data()[3], &v.W());
    EXPECT_EQ(Vector4(v.XYZ(), 9), Vector4(1, 2, 3, 9));
    Vector3 a(1, -2, 4);
    Vector3 b(0.5f, 3, -1);
    EXPECT_EQ(a + b, Vector3(1.5f, 1, 3));
    EXPECT_EQ(a - b, Vector3(0.5f, -5, 5));
    EXPECT_EQ(-a * 2.0f, 2.0f * Vector3(-1, 2, -4));
    EXPECT_EQ(a / 4.0f, Vector3(0.25f, -0.5f, 1));
    EXPECT_EQ(Vector3::MultiplyElements(a, b), Vector3(0.5f, -6, -4));
    EXPECT_EQ(Vector3::DivideElements(a, b), Vector3(2, -2 / 3.0f, -4));
    EXPECT_EQ(Vector3::Min(a, b), Vector3(0.5f, -2, -1));
    EXPECT_EQ(Vector3::Max(a, b), Vector3(1, 3, 4));
    EXPECT_EQ(Vector3::Lerp(a, b, 0.5f), Vector3(0.75f, 0.5f, 1.5f));
    EXPECT_EQ(Vector3(1, 0, 0) * Vector3(0, 1, 0), Vector3(0, 0, 1));
    EXPECT_EQ(Vector3(1, 1, 1) * Vector3(1, 1, 1), Vector3());
    EXPECT_EQ(IntVector2(3, -4) + IntVector2(1, 1), IntVector2(4, -3));
    // A zero vector divides through.
    Vector3 zero;
    EXPECT_EQ(zero.Normalize(), 0.0f);
    EXPECT_TRUE(std::isnan(zero[0]) && std::isnan(zero[1]) && std::isnan(zero[2]));
}

TEST(MathVector, CrossDotLengthAndNormalizeMatchEigen) {
    RandomMath random(11);
    for (int i = 0; i < 5000; ++i) {
        Vector3 a = random.Vector<3>();
        Vector3 b = random.Vector<3>();
        // Each element is a difference of two products of elements in [-1, 1]: 2 eps.
        ASSERT_LE(MaxError(a * b, ToEigen(a).cross(ToEigen(b))), 2 * kFloatEpsilon) << i;
        Vector4 c = random.Vector<4>(-10, 10);
        Vector4 d = random.Vector<4>(-10, 10);
        // A sum of 4 products: 4 eps times the sum of the products' magnitudes.
        double magnitudes = ToEigen(c).cwiseAbs().dot(ToEigen(d).cwiseAbs());
        ASSERT_NEAR(Vector4::Dot(c, d), ToEigen(c).dot(ToEigen(d)), 4 * kFloatEpsilon * magnitudes) << i;
        // The sum of squares (4 eps relative) halves under the square root, plus the root: 3 eps.
        ASSERT_NEAR(c.Length(), ToEigen(c).norm(), 3 * kFloatEpsilon * ToEigen(c).norm()) << i;
        // One more rounding for the division: 4 eps on a unit vector.
        Vector4 unit = c;
        ASSERT_EQ(unit.Normalize(), c.Length());
        ASSERT_LE(MaxError(unit, ToEigen(c).normalized()), 4 * kFloatEpsilon) << i;
        ASSERT_EQ(unit, c.Normalized());
    }
}

}  // namespace
}  // namespace zn::test
