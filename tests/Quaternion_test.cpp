// Quaternion_test.cpp: matrices both ways, the angle forms, the product, normalisation and
// interpolation against Eigen, and the interpolation rules at their edges.
#include "CoreLib/Quaternion.h"

#include "tests/support/MathOracle.h"

#include <gtest/gtest.h>

#include <cmath>

namespace zn::test {
namespace {

using Matrix3 = MathMatrix<float, 3, 3>;
using Vector3 = MathVector<float, 3>;

constexpr float kPi = 3.14159265358979323846f;

Eigen::Quaterniond About(double angle, const Eigen::Vector3d& axis) {
    return Eigen::Quaterniond(Eigen::AngleAxisd(angle, axis));
}

TEST(Quaternion, HoldsWXYZAndComparesExactly) {
    Quaternion q(1, 2, 3, 4);
    float w, x, y, z;
    q.GetValues(w, x, y, z);
    EXPECT_EQ(w + 10 * x + 100 * y + 1000 * z, 4321.0f);
    q.SetZ(9);
    EXPECT_EQ(q, Quaternion(1, 2, 3, 9));
    EXPECT_NE(q, -q);
    EXPECT_EQ(Quaternion(), Quaternion::IDENTITY);
    EXPECT_EQ(Quaternion::IDENTITY, Quaternion(1, 0, 0, 0));
    EXPECT_EQ(q + q - q, 2.0f * q / 2.0f);
    EXPECT_EQ(Quaternion::Dot(q, Quaternion(1, 1, 1, 1)), 15.0f);
    EXPECT_EQ(Quaternion(1, 1, 1, 1).Length(), 2.0f);
}

TEST(Quaternion, ConversionsAndAlgebraMatchEigen) {
    RandomMath random(31);
    for (int i = 0; i < 5000; ++i) {
        SCOPED_TRACE(i);
        Eigen::Quaterniond exact = random.Rotation();
        Quaternion a = FromEigen(exact);
        Quaternion b = FromEigen(random.Rotation());
        // Four products of unit-sized elements summed: 4 eps.
        ASSERT_LE(QuaternionError(a * b, ToEigen(a) * ToEigen(b)), 4 * kFloatEpsilon);
        // Two cross products and the sums around them, on a vector of length up to sqrt(3): 16 eps.
        Vector3 v = random.Vector<3>();
        ASSERT_LE(MaxError(a.Rotate(v), ToEigen(a) * ToEigen(v)), 16 * kFloatEpsilon);
        // Products of two elements, doubled and summed in pairs: 4 eps an element.
        Matrix3 rotation;
        a.ToRotation(rotation);
        ASSERT_LE(MaxError(rotation, ToEigen(a).toRotationMatrix()), 4 * kFloatEpsilon);
        // The trace form divides by 4|w| = 2 sqrt(trace + 1): the trace's 3 eps are 3 eps / (4 w^2)
        // relative to trace + 1, the element differences' 2 eps are scaled by 1 / (4|w|); so
        // 4 eps / w^2 bounds the error, which is large only near a half turn.
        Quaternion back;
        back.FromRotation(FromEigen<3, 3>(exact.toRotationMatrix()));
        ASSERT_LE(QuaternionError(back, exact), 4 * kFloatEpsilon / (exact.w() * exact.w()));
        // The angle forms: a sine and a cosine (1 ulp each) and one product, 2 eps; the three
        // products of three such factors in FromYawPitchRoll (yaw y, pitch x, roll z), 6 eps.
        float angles[3] = {random.Uniform(-kPi, kPi), random.Uniform(-kPi, kPi), random.Uniform(-kPi, kPi)};
        Eigen::Vector3d axis = ToEigen(v).normalized();
        Quaternion q;
        q.FromAngleAxis(Vector3(axis.x(), axis.y(), axis.z()), angles[0]);
        ASSERT_LE(QuaternionError(q, About(angles[0], axis)), 2 * kFloatEpsilon);
        q.FromAngleAxisX(angles[0]);
        ASSERT_LE(QuaternionError(q, About(angles[0], Eigen::Vector3d::UnitX())), 2 * kFloatEpsilon);
        q.FromAngleAxisY(angles[1]);
        ASSERT_LE(QuaternionError(q, About(angles[1], Eigen::Vector3d::UnitY())), 2 * kFloatEpsilon);
        q.FromAngleAxisZ(angles[2]);
        ASSERT_LE(QuaternionError(q, About(angles[2], Eigen::Vector3d::UnitZ())), 2 * kFloatEpsilon);
        q.FromYawPitchRoll(angles[0], angles[1], angles[2]);
        Eigen::Quaterniond ypr = About(angles[0], Eigen::Vector3d::UnitY()) *
                                 About(angles[1], Eigen::Vector3d::UnitX()) *
                                 About(angles[2], Eigen::Vector3d::UnitZ());
        ASSERT_LE(QuaternionError(q, ypr), 6 * kFloatEpsilon);
        // A 3 eps length (as for vectors) and one division: 4 eps.
        Quaternion scaled = a * random.Uniform(0.1f, 10.0f);
        scaled.Normalize();
        ASSERT_LE(QuaternionError(scaled, exact), 4 * kFloatEpsilon + QuaternionError(a, exact));
    }
    // The axis is used as it is given; a zero quaternion normalises to NaN.
    Quaternion q;
    q.FromAngleAxis(Vector3(2, 0, 0), 1.0f);
    EXPECT_EQ(q, Quaternion(std::cos(0.5f), 2 * std::sin(0.5f), 0, 0));
    q = Quaternion(0, 0, 0, 0);
    q.Normalize();
    EXPECT_TRUE(std::isnan(q.GetW()) && std::isnan(q.GetZ()));
}

// Half turns (w = 0) are where trace + 1 can be 0 or below; the largest diagonal element then picks
// the branch, which divides by a component of at least 1/sqrt(3): 8 eps.
TEST(Quaternion, FromRotationOfHalfTurnsTakesTheLargestDiagonalBranch) {
    RandomMath random(33);
    int branchCount[3] = {0, 0, 0};
    for (int i = 0; i < 5000; ++i) {
        Eigen::Vector3d axis = ToEigen(random.Vector<3>()).normalized();
        Eigen::Quaterniond exact(0.0, axis.x(), axis.y(), axis.z());
        Matrix3 m = FromEigen<3, 3>(exact.toRotationMatrix());
        if (m[0] + m[4] + m[8] + 1.0f > 0.0f) {
            continue;  // the trace form, tested above
        }
        ++branchCount[(m[0] > m[4] && m[0] > m[8]) ? 0 : (m[4] > m[8] ? 1 : 2)];
        Quaternion q;
        q.FromRotation(m);
        ASSERT_LE(QuaternionError(q, exact), 8 * kFloatEpsilon) << i;
    }
    EXPECT_TRUE(branchCount[0] > 100 && branchCount[1] > 100 && branchCount[2] > 100);
    Quaternion q;
    q.FromRotation(Matrix3(1, 0, 0, 0, -1, 0, 0, 0, -1));
    EXPECT_EQ(q, Quaternion(0, 1, 0, 0));
    q.FromRotation(Matrix3(-1, 0, 0, 0, 1, 0, 0, 0, -1));
    EXPECT_EQ(q, Quaternion(0, 0, 1, 0));
    q.FromRotation(Matrix3(-1, 0, 0, 0, -1, 0, 0, 0, 1));
    EXPECT_EQ(q, Quaternion(0, 0, 0, 1));
}

TEST(Quaternion, LerpAndSlerpAtTheirEdges) {
    Quaternion a = FromEigen(About(0.3, Eigen::Vector3d::UnitX()));
    Quaternion b = FromEigen(About(2.5, Eigen::Vector3d::UnitY()));
    Quaternion expected = a * 0.75f + b * 0.25f;
    expected.Normalize();
    EXPECT_EQ(Quaternion::Lerp(a, b, 0.25f), expected);
    // No sign correction: halfway between q and -q is zero, which normalises to NaN.
    EXPECT_TRUE(std::isnan(Quaternion::Lerp(a, -a, 0.5f).GetW()));
    for (const Quaternion& other : {b, -b}) {
        EXPECT_EQ(Quaternion::Slerp(a, other, 0.0f), a);
        EXPECT_EQ(Quaternion::Slerp(a, other, -1.0f), a);
        EXPECT_EQ(Quaternion::Slerp(a, other, 1.0f), other);
        EXPECT_EQ(Quaternion::Slerp(a, other, 2.0f), other);
    }
    // A dot product of 0.95 or more, on either side, is Lerp towards the nearer sign.
    Quaternion near = FromEigen(About(0.9, Eigen::Vector3d::UnitX()));
    ASSERT_GE(Quaternion::Dot(a, near), 0.95f);
    EXPECT_EQ(Quaternion::Slerp(a, near, 0.4f), Quaternion::Lerp(a, near, 0.4f));
    EXPECT_EQ(Quaternion::Slerp(a, -near, 0.4f), Quaternion::Lerp(a, near, 0.4f));
}

// Below the Lerp threshold the sine in the divisor is at least sin(acos(0.95)) ~ 0.31; acos, the
// sines and the sum carry about 8 eps, divided by that sine. Eigen also takes the shorter arc.
TEST(Quaternion, SlerpMatchesEigen) {
    RandomMath random(36);
    int tested = 0;
    for (int i = 0; i < 5000; ++i) {
        Quaternion a = FromEigen(random.Rotation());
        Quaternion b = FromEigen(random.Rotation());
        double cosine = std::fabs(ToEigen(a).dot(ToEigen(b)));
        float t = random.Uniform(0.001f, 0.999f);
        if (cosine < 0.949) {
            Eigen::Vector4d expected = ToEigen(a).slerp(t, ToEigen(b)).coeffs();
            double error = (ToEigen(Quaternion::Slerp(a, b, t)).coeffs() - expected).cwiseAbs().maxCoeff();
            ASSERT_LE(error, 8 * kFloatEpsilon / std::sqrt(1 - cosine * cosine)) << i;
            ++tested;
        }
    }
    EXPECT_GT(tested, 2500);
}

}  // namespace
}  // namespace zn::test
