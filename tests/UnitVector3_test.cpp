// UnitVector3_test.cpp: the bit layout and its fold, the correction table, the angular error of a
// round trip over many directions, and the reports of vectors that have no direction.
#include "CoreLib/UnitVector3.h"

#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"
#include "tests/support/MathOracle.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace zn::test {
namespace {

using Vector3 = MathVector<float, 3>;

class UnitVector3Test : public CoreLibFixture {
protected:
    void SetUp() override {
        CoreLibFixture::SetUp();
        UnitVector3::_SDMInit();
    }
};

TEST_F(UnitVector3Test, TableMakesEveryWordUnpackToUnitLength) {
    ScopedCapture capture;
    UnitVector3::_SDMInit();
    // Every entry is finite (x, y and z never all vanish), so filling the table reports nothing.
    EXPECT_TRUE(capture.Messages().empty());
    for (float entry : UnitVector3::s_UVAdjustment) {
        ASSERT_TRUE(std::isfinite(entry));
    }
    EXPECT_EQ(UnitVector3::s_UVAdjustment[0], 1.0f / 126.0f);
    // The factor carries two roundings (root, division) and each element one more: 2 eps.
    for (int word = 0; word < 0x10000; ++word) {
        Vector3 v = UnitVector3(static_cast<uint16_t>(word));
        ASSERT_NEAR(ToEigen(v).norm(), 1.0, 2 * kFloatEpsilon) << word;
        // Unfolded x and y steps are never negative, so their signs come from the sign bits alone.
        ASSERT_EQ(std::signbit(v[0]), (word & UnitVector3::kNegativeX) != 0) << word;
        ASSERT_EQ(std::signbit(v[1]), (word & UnitVector3::kNegativeY) != 0) << word;
    }
}

void ExpectUnpacksTo(const UnitVector3& packed, const Vector3& expected) {
    Vector3 v;
    packed.UnpackVector(v);
    EXPECT_EQ(static_cast<Vector3>(packed), v);
    for (int i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(v[i], expected[i]) << i;
    }
}

TEST_F(UnitVector3Test, AxesPackToTheirBitPatterns) {
    EXPECT_EQ(UnitVector3(Vector3(0, 0, 1)).GetPacked(), 0);
    ExpectUnpacksTo(UnitVector3(), Vector3(0, 0, 1));
    // x of 126 steps folds to 1, y of 0 to 127; the x sign bit is set.
    UnitVector3 left(Vector3(-1, 0, 0));
    EXPECT_EQ(left.GetPacked(), UnitVector3::kNegativeX | (1 << 7) | 127);
    ExpectUnpacksTo(left, Vector3(-1, 0, 0));
    // 126 y steps need no fold.
    UnitVector3 down(Vector3(0, -5, 0));
    EXPECT_EQ(down.GetPacked(), UnitVector3::kNegativeY | 126);
    ExpectUnpacksTo(down, Vector3(0, -1, 0));
}

// The angular error of a round trip is bounded by the quantisation. The magnitudes are scaled to
// p with px + py + pz = 126; the stored steps are floor(px) and floor(py), and z takes the rest,
// so the unpacked direction is along q = p + (-fx, -fy, fx + fy) with fractions fx, fy in [0, 1):
// |q - p| < sqrt(6). On that plane |p| >= 126 / sqrt(3), so the angle is below
// asin(sqrt(6) * sqrt(3) / 126) = 0.03368 rad; 1e-5 more covers the float arithmetic around it.
TEST_F(UnitVector3Test, RoundTripStaysWithinTheQuantisationBound) {
    const double bound = std::asin(std::sqrt(18.0) / 126.0) + 1e-5;
    RandomMath random(51);
    std::normal_distribution<float> normal;
    double largest = 0.0;
    for (int i = 0; i < 100000; ++i) {
        Vector3 direction(normal(random.Engine()), normal(random.Engine()), normal(random.Engine()));
        direction *= random.Uniform(0.01f, 100.0f);
        Vector3 back = UnitVector3(direction);
        Eigen::Vector3d a = ToEigen(direction);
        Eigen::Vector3d b = ToEigen(back);
        double angle = std::atan2(a.cross(b).norm(), a.dot(b));
        largest = std::max(largest, angle);
        ASSERT_LE(angle, bound) << i;
        ASSERT_NEAR(b.norm(), 1.0, 2 * kFloatEpsilon) << i;
    }
    // The bound is tight: more than half of it is reached, so the measurement is not blind.
    EXPECT_GT(largest, bound / 2);
}

// A vector with no direction gives a product that is NaN (0 * inf, inf * 0) and converts to the
// lowest int, the "below 0" case. No float input reaches 127 steps: |x| * 126 / (|x| + |y| + |z|)
// stays below 126.0001 after rounding, so the two ">= 127" reports cannot be provoked.
TEST_F(UnitVector3Test, VectorsWithoutADirectionAreReported) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    struct Case {
        Vector3 vector;
        uint16_t packed;
        std::vector<std::string> messages;
    };
    const Case cases[] = {
        {Vector3(0.0f, 0.0f, 0.0f), 0, {"xbits &lt; 0!", "ybits &lt; 0!"}},
        {Vector3(nan, 1.0f, -1.0f), UnitVector3::kNegativeZ, {"xbits &lt; 0!", "ybits &lt; 0!"}},
        {Vector3(inf, 0.0f, 0.0f), 0, {"xbits &lt; 0!"}},
        {Vector3(0.0f, -inf, 0.0f), UnitVector3::kNegativeY, {"ybits &lt; 0!"}},
    };
    for (const Case& c : cases) {
        ScopedCapture capture;
        UnitVector3 packed(c.vector);
        EXPECT_EQ(packed.GetPacked(), c.packed);
        EXPECT_EQ(capture.Messages(), c.messages);
        for (const CapturedReport& report : capture.Reports()) {
            EXPECT_EQ(report.function, "UnitVector3::PackVector");
        }
        ExpectAllOnChannel(capture, LogAssertProgrammer);
    }
}

TEST_F(UnitVector3Test, ShutdownClearsTheTableAndInitRefillsIt) {
    std::vector<float> filled(std::begin(UnitVector3::s_UVAdjustment), std::end(UnitVector3::s_UVAdjustment));
    UnitVector3::_SDMShutdown();
    EXPECT_EQ(static_cast<Vector3>(UnitVector3(Vector3(1.0f, 2.0f, 3.0f))), Vector3());
    UnitVector3::_SDMInit();
    EXPECT_EQ(
        std::vector<float>(std::begin(UnitVector3::s_UVAdjustment), std::end(UnitVector3::s_UVAdjustment)),
        filled);
}

}  // namespace
}  // namespace zn::test
