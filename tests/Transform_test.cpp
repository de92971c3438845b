// Transform_test.cpp: the matrix kept in step with its parts, Euler angles both ways (the choice
// between two solutions, its tie and gimbal lock), the engine's composition, taking a matrix apart.
#include "CoreLib/Transform.h"

#include "tests/support/MathOracle.h"

#include <gtest/gtest.h>

#include <cmath>

namespace zn::test {
namespace {

using Matrix3 = MathMatrix<float, 3, 3>;
using Matrix4 = MathMatrix<float, 4, 4>;
using Vector3 = MathVector<float, 3>;
using Vector4 = MathVector<float, 4>;

constexpr float kPi = 3.14159265358979323846f;

// The matrix is rotate * diag(scale) beside translate, over (0, 0, 0, 1), bit for bit.
void ExpectInvariant(const Transform& t) {
    Matrix4 expected = Matrix4::Identity();
    for (int i = 0; i < 9; ++i) {
        expected(i / 3, i % 3) = t.GetRotate()[i] * t.GetScale()[i % 3];
    }
    expected.SetTranslation(t.GetTranslate());
    ASSERT_EQ(t.GetTransform(), expected);
}

Transform FromEuler(float a, float b, float c) {
    Transform t;
    t.SetRotateFromEulerAngles(a, b, c);
    return t;
}

TEST(Transform, DefaultsAndSettersKeepTheMatrixInStep) {
    Transform t;
    EXPECT_EQ(t.GetTransform(), Matrix4::Identity());
    EXPECT_EQ(t.GetRotate(), Matrix3::Identity());
    EXPECT_EQ(t.GetTranslate(), Vector3(0, 0, 0));
    EXPECT_EQ(t.GetScale(), Vector3(1, 1, 1));
    t.SetTransform(Vector3(1, 2, 3), FromEigen<3, 3>(RandomMath(41).Rotation().toRotationMatrix()),
                   Vector3(2, 3, 4));
    ExpectInvariant(t);
    t.SetTranslate(Vector3(-5, 6, 7));
    ExpectInvariant(t);
    t.SetScale(Vector3(0.5f, 4, 3));
    ExpectInvariant(t);
    EXPECT_EQ(t.GetUniformScale(), 4.0f);
    t.SetRotate(Matrix3::Identity());
    t.SetUniformScale(2.5f);
    ExpectInvariant(t);
    EXPECT_EQ(t.GetScale(), Vector3(2.5f, 2.5f, 2.5f));
    t.SetRotateFromEulerAngles(0.1f, 0.2f, 0.3f);
    ExpectInvariant(t);
    EXPECT_EQ(t.GetTranslate(), Vector3(-5, 6, 7));
}

// Building: six sines and cosines (1 ulp each) through two 3x3 products of unit-sized terms, 6 eps.
// Recovering a and c divides by cos(b), so the round trip is good to 16 eps / |cos(b)|; within the
// lock margin b is replaced by +-pi/2, which moves the elements by about |cos(b)| (at most 0.0045).
TEST(Transform, EulerAnglesMatchEigenAndRoundTripToTheSmallerSolution) {
    RandomMath random(42);
    for (int i = 0; i < 5000; ++i) {
        SCOPED_TRACE(i);
        float a = random.Uniform(-kPi, kPi);
        float b = random.Uniform(-kPi / 2, kPi / 2);
        float c = random.Uniform(-kPi, kPi);
        Transform t = FromEuler(a, b, c);
        Eigen::Matrix3d expected =
            (Eigen::AngleAxisd(c, Eigen::Vector3d::UnitZ()) * Eigen::AngleAxisd(b, Eigen::Vector3d::UnitY()) *
             Eigen::AngleAxisd(a, Eigen::Vector3d::UnitX()))
                .toRotationMatrix();
        ASSERT_LE(MaxError(t.GetRotate(), expected), 6 * kFloatEpsilon);
        Vector3 angles = t.GetRotateInEulerAngles();
        bool locked = 1.0f - std::fabs(t.GetRotate()[6]) <= 0.00001f;
        double tolerance = locked ? 2 * std::fabs(std::cos(b)) : 16 * kFloatEpsilon / std::fabs(std::cos(b));
        ASSERT_LE(MaxError(FromEuler(angles[0], angles[1], angles[2]).GetRotate(), ToEigen(t.GetRotate())),
                  tolerance);
        if (!locked) {
            // The input is one of the two candidates, so the answer is no larger; when |a| and |c|
            // are below pi/2 the other, (a -+ pi, pi - b, c -+ pi), is larger in every element.
            ASSERT_LE(angles.LengthSquared(), Vector3(a, b, c).LengthSquared() + 6 * kPi * tolerance);
            if (std::fabs(a) < kPi / 2 && std::fabs(c) < kPi / 2) {
                ASSERT_LE(MaxError(angles, ToEigen(Vector3(a, b, c))), tolerance);
            }
        }
    }
    Vector3 angles = FromEuler(3.0f, 0.2f, 3.0f).GetRotateInEulerAngles();
    EXPECT_LE(MaxError(angles, Eigen::Vector3d(3.0 - kPi, kPi - 0.2, 3.0 - kPi)), 1e-5);
}

// With R[6] = 0 the candidates are (atan2(R7, R8), 0, atan2(R3, R0)) and, as cos(pi) rounds to -1,
// (atan2(-R7, -R8), pi, atan2(-R3, -R0)). Their sums of squares meet where a + c = 3 pi / 2; the
// scan along that line meets exact float ties, which must keep the first.
TEST(Transform, EulerAngleTieKeepsTheFirstSolution) {
    ASSERT_EQ(1.0f / std::cos(kPi), -1.0f);
    int ties = 0;
    for (int step = 0; step < 20000; ++step) {
        float a = 1.8f + step * 0.00005f;
        Transform t = FromEuler(a, 0.0f, 1.5f * kPi - a);
        const float* r = t.GetRotate().Data();
        ASSERT_EQ(r[6], 0.0f);
        Vector3 first(std::atan2(r[7], r[8]), 0.0f, std::atan2(r[3], r[0]));
        Vector3 second(std::atan2(-r[7], -r[8]), kPi, std::atan2(-r[3], -r[0]));
        ties += second.LengthSquared() == first.LengthSquared();
        ASSERT_EQ(t.GetRotateInEulerAngles(),
                  second.LengthSquared() < first.LengthSquared() ? second : first);
    }
    EXPECT_GT(ties, 0);
}

TEST(Transform, GimbalLockPutsTheWholeTurnIntoA) {
    RandomMath random(44);
    for (int i = 0; i < 3000; ++i) {
        float a = random.Uniform(-kPi / 2, kPi / 2);
        float c = random.Uniform(-kPi / 2, kPi / 2);
        for (float b : {kPi / 2, -kPi / 2}) {
            Transform t = FromEuler(a, b, c);
            Vector3 angles = t.GetRotateInEulerAngles();
            // Only a - c (b = pi/2) or a + c (b = -pi/2) is known: a few ulps of that sum.
            ASSERT_NEAR(angles[0], b > 0 ? a - c : a + c, 8 * kFloatEpsilon * kPi) << i;
            ASSERT_EQ(angles[1], b);
            ASSERT_EQ(angles[2], 0.0f);
            ASSERT_LE(MaxError(FromEuler(angles[0], b, 0).GetRotate(), ToEigen(t.GetRotate())),
                      16 * kFloatEpsilon);
        }
    }
    // The lock is declared within 0.00001 of |R[6]| = 1.
    Matrix3 nearLock = Matrix3::Identity();
    nearLock[6] = -(1.0f - 0.000005f);
    Transform t;
    t.SetRotate(nearLock);
    EXPECT_EQ(t.GetRotateInEulerAngles()[1], kPi / 2);
    nearLock[6] = 1.0f - 0.00002f;
    t.SetRotate(nearLock);
    EXPECT_EQ(t.GetRotateInEulerAngles()[1], std::asin(-nearLock[6]));
}

TEST(Transform, ProductFollowsTheEngineCompositionRule) {
    Transform product = Transform() * Transform();
    EXPECT_EQ(product.GetScale(), Vector3(0, 0, 0));
    EXPECT_EQ(product.GetTranslate(), Vector3(0, 0, 0));
    EXPECT_EQ(product.GetRotate(), Matrix3::Identity());
    ExpectInvariant(product);
    RandomMath random(45);
    for (int i = 0; i < 3000; ++i) {
        Transform self;
        Transform other;
        self.SetTransform(random.Vector<3>(-2, 2), random.Matrix<3, 3>(), random.Vector<3>(-2, 2));
        other.SetTransform(random.Vector<3>(-2, 2), random.Matrix<3, 3>(), random.Vector<3>(-2, 2));
        // scale = other.S x self.S, rotate = other.R * self.R, translate = (other.T + other.S) x
        // (other.R * self.T): the same operations in the same order, so bit for bit.
        Transform expected;
        expected.SetTransform(
            Vector3::Cross(other.GetTranslate() + other.GetScale(), other.GetRotate() * self.GetTranslate()),
            other.GetRotate() * self.GetRotate(), Vector3::Cross(other.GetScale(), self.GetScale()));
        Transform result = self * other;
        ASSERT_EQ(result.GetTransform(), expected.GetTransform()) << i;
        ASSERT_EQ(result.GetRotate(), expected.GetRotate()) << i;
        ASSERT_EQ(result.GetScale(), expected.GetScale()) << i;
    }
}

TEST(Transform, SetTransformFromAMatrixRecoversItsParts) {
    RandomMath random(46);
    for (int i = 0; i < 3000; ++i) {
        Matrix3 rotation = FromEigen<3, 3>(random.Rotation().toRotationMatrix());
        Vector3 scale = random.Vector<3>(0.1f, 10);
        Vector3 translate = random.Vector<3>(-100, 100);
        Transform source;
        source.SetTransform(translate, rotation, scale);
        Transform t;
        t.SetTransform(source.GetTransform());
        ExpectInvariant(t);
        EXPECT_EQ(t.GetTranslate(), translate);
        // A column divided by its length, then Gram-Schmidt against columns orthogonal to a few
        // eps: 8 eps an element, relative for the scale.
        ASSERT_LE(MaxError(t.GetRotate(), ToEigen(rotation)), 8 * kFloatEpsilon) << i;
        ASSERT_LE(MaxError(Vector3::DivideElements(t.GetScale(), scale), Eigen::Vector3d::Ones()),
                  8 * kFloatEpsilon);
        // A mirror takes a negative x scale and a proper rotation; the matrix (elements up to 10)
        // comes back within 8 eps relative.
        source.SetScale(Vector3(scale[0], -scale[1], scale[2]));
        t.SetTransform(source.GetTransform());
        ASSERT_TRUE(t.GetScale()[0] < 0 && t.GetScale()[1] > 0) << i;
        ASSERT_NEAR(t.GetRotate().Determinant(), 1.0f, 8 * kFloatEpsilon) << i;
        ASSERT_LE(MaxError(t.GetTransform(), ToEigen(source.GetTransform())), 80 * kFloatEpsilon) << i;
    }
}

TEST(Transform, SetTransformFromADegenerateMatrixKeepsAProperRotation) {
    Matrix3 rotation = FromEigen<3, 3>(RandomMath(47).Rotation().toRotationMatrix());
    auto decompose = [](const Matrix4& m) {
        Transform t;
        t.SetTransform(m);
        const Matrix3& r = t.GetRotate();
        EXPECT_LE(MaxError(r * r.Transpose(), Eigen::Matrix3d::Identity()), 8 * kFloatEpsilon);
        EXPECT_NEAR(r.Determinant(), 1.0f, 8 * kFloatEpsilon);
        return t;
    };
    Transform source;
    // One zero column: its axis is completed from the other two, so the rotation survives.
    source.SetTransform(Vector3(1, 2, 3), rotation, Vector3(0, 2, 3));
    Transform t = decompose(source.GetTransform());
    EXPECT_EQ(t.GetScale()[0], 0.0f);
    EXPECT_LE(MaxError(t.GetRotate(), ToEigen(rotation)), 8 * kFloatEpsilon);
    // One column left: it keeps its direction.
    source.SetScale(Vector3(0, 0, 3));
    t = decompose(source.GetTransform());
    EXPECT_EQ(t.GetScale(), Vector3(0, 0, 3));
    EXPECT_LE(MaxError(t.GetRotate().GetColumn(2), ToEigen(rotation.GetColumn(2))), 8 * kFloatEpsilon);
    // Nothing left: the identity rotation.
    t = decompose(Matrix4::Translation(Vector3(4, 5, 6)) - Matrix4::Identity());
    EXPECT_EQ(t.GetRotate(), Matrix3::Identity());
    EXPECT_EQ(t.GetTranslate(), Vector3(4, 5, 6));
    // Two equal columns and a projective row: the first column's direction, and an affine matrix.
    t = decompose(Matrix4(1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 5, 6, 7, 8));
    EXPECT_EQ(t.GetRotate().GetColumn(0), Vector3(1, 0, 0));
    EXPECT_EQ(t.GetScale(), Vector3(1, 1, 1));
    EXPECT_EQ(t.GetTransform().GetRow(3), Vector4(0, 0, 0, 1));
}

}  // namespace
}  // namespace zn::test
