// MathHelpers: Poisson disc samples (geometry, reproduction on the run-time's rand, failure) and
// FromHSB against the standard HLS conversion and known colours.
#include "CoreLib/MathHelpers.h"

#include "CoreLib/platform/Crt.h"
#include "tests/support/CapturingLogger.h"
#include "tests/support/CoreLibFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace zn::test {
namespace {

using ::testing::ElementsAre;
using Vector2 = MathVector<float, 2>;

// The run-time library's rand, kept apart from the library's: state * 214013 + 2531011, bits 16-30.
struct ReferenceRand {
    uint32_t state;
    int Next() {
        state = state * 214013u + 2531011u;
        return static_cast<int>((state >> 16) & 0x7fff);
    }
};

// The sampling written from its description: x then y from rand, outside the disc drawn again for
// free, too near an earlier sample a failed try, triesPerSample failures end the attempt.
bool ReferencePoisson(ReferenceRand& rand, std::vector<Vector2>& samples, float minDistance,
                      int triesPerSample, int restarts, bool firstAtCentre) {
    for (int attempt = 0; attempt < restarts; ++attempt) {
        bool complete = true;
        size_t index = 0;
        if (firstAtCentre) {
            samples[index++] = Vector2(0.0f, 0.0f);
        }
        for (; index < samples.size() && complete; ++index) {
            for (int failed = 0;;) {
                float x = 2.0f * rand.Next() / 32767.0f - 1.0f;
                float y = 2.0f * rand.Next() / 32767.0f - 1.0f;
                if (x * x + y * y > 1.0f) {
                    continue;
                }
                bool near = false;
                for (size_t other = 0; other < index; ++other) {
                    float dx = samples[other][0] - x;
                    float dy = samples[other][1] - y;
                    near |= dx * dx + dy * dy < minDistance * minDistance;
                }
                if (!near) {
                    samples[index] = Vector2(x, y);
                    break;
                }
                if (++failed >= triesPerSample) {
                    complete = false;
                    break;
                }
            }
        }
        if (complete) {
            return true;
        }
    }
    return false;
}

using PoissonTest = CoreLibFixture;

TEST_F(PoissonTest, SamplesLieInTheDiscAtLeastMinDistanceApart) {
    for (bool firstAtCentre : {false, true}) {
        platform::CrtSrand(4242);
        std::vector<Vector2> samples(40);
        ASSERT_TRUE(generatePoissonSamples(samples.data(), 40, 0.2f, 30, 20, firstAtCentre));
        if (firstAtCentre) {
            EXPECT_EQ(samples[0][0], 0.0f);
            EXPECT_EQ(samples[0][1], 0.0f);
        }
        for (size_t i = 0; i < samples.size(); ++i) {
            double xi = samples[i][0];
            double yi = samples[i][1];
            EXPECT_LE(xi * xi + yi * yi, 1.0 + 1e-6) << i;
            for (size_t j = 0; j < i; ++j) {
                double distance = std::hypot(xi - samples[j][0], yi - samples[j][1]);
                EXPECT_GE(distance, 0.2 - 1e-6) << i << " " << j;
            }
        }
    }
}

TEST_F(PoissonTest, ReproducesTheDescribedAlgorithmOnTheRunTimesRand) {
    for (uint32_t seed : {1u, 77u, 31337u}) {
        // Tight spacing makes restarts happen, so abandoned attempts are reproduced too.
        platform::CrtSrand(seed);
        std::vector<Vector2> samples(24);
        bool done = generatePoissonSamples(samples.data(), 24, 0.3f, 8, 50, seed == 77u);
        ReferenceRand rand{seed};
        std::vector<Vector2> expected(24);
        EXPECT_EQ(done, ReferencePoisson(rand, expected, 0.3f, 8, 50, seed == 77u));
        EXPECT_EQ(samples, expected) << seed;
        EXPECT_EQ(platform::CrtRand(), rand.Next()) << "rand was drawn a different number of times";
    }
}

TEST_F(PoissonTest, NoRestartsOrNoRoomFails) {
    platform::CrtSrand(9);
    std::vector<Vector2> samples(8);
    EXPECT_FALSE(generatePoissonSamples(samples.data(), 8, 0.1f, 10, 0, false));
    ReferenceRand untouched{9};
    EXPECT_EQ(platform::CrtRand(), untouched.Next());
    // Three points of the unit disc are never all 1.8 apart (the widest triangle has sides of 1.73).
    EXPECT_FALSE(generatePoissonSamples(samples.data(), 3, 1.8f, 20, 5, false));
}

// HLS to RGB in double precision, as Python's colorsys.hls_to_rgb computes it.
double ColorsysChannel(double m1, double m2, double hue) {
    hue = hue - std::floor(hue);
    if (hue < 1.0 / 6.0) {
        return m1 + (m2 - m1) * hue * 6.0;
    }
    if (hue < 0.5) {
        return m2;
    }
    if (hue < 2.0 / 3.0) {
        return m1 + (m2 - m1) * (2.0 / 3.0 - hue) * 6.0;
    }
    return m1;
}

void ExpectColour(const MathVector<float, 3>& colour, double r, double g, double b, const char* what) {
    EXPECT_NEAR(colour[0], r, 2e-6) << what;
    EXPECT_NEAR(colour[1], g, 2e-6) << what;
    EXPECT_NEAR(colour[2], b, 2e-6) << what;
}

using FromHSBTest = CoreLibFixture;

TEST_F(FromHSBTest, KnownColoursAndGreys) {
    ExpectColour(FromHSB(0, 1.0f, 0.5f), 1, 0, 0, "red");
    ExpectColour(FromHSB(120, 1.0f, 0.5f), 0, 1, 0, "green");
    ExpectColour(FromHSB(240, 1.0f, 0.5f), 0, 0, 1, "blue");
    ExpectColour(FromHSB(60, 1.0f, 0.5f), 1, 1, 0, "yellow");
    ExpectColour(FromHSB(300, 1.0f, 0.5f), 1, 0, 1, "magenta");
    ExpectColour(FromHSB(480, 1.0f, 0.5f), 0, 1, 0, "hue modulo 360");
    ExpectColour(FromHSB(200, 0.0f, 0.3f), 0.3, 0.3, 0.3, "grey");
    ExpectColour(FromHSB(200, 0.7f, 0.0f), 0, 0, 0, "black");
    ExpectColour(FromHSB(33, 0.4f, 1.0f), 1, 1, 1, "white");
}

TEST_F(FromHSBTest, MatchesTheStandardConversionOverAGrid) {
    for (int hue = 0; hue < 720; hue += 7) {
        for (float saturation : {0.05f, 0.25f, 0.5f, 0.8f, 1.0f}) {
            for (float lightness : {0.1f, 0.35f, 0.5f, 0.65f, 0.95f}) {
                double h = (hue % 360) / 360.0;
                double s = saturation;
                double l = lightness;
                double m2 = l <= 0.5 ? l * (1.0 + s) : l + s - l * s;
                double m1 = 2.0 * l - m2;
                MathVector<float, 3> colour =
                    FromHSB(static_cast<unsigned short>(hue), saturation, lightness);
                EXPECT_NEAR(colour[0], ColorsysChannel(m1, m2, h + 1.0 / 3.0), 1e-5) << hue;
                EXPECT_NEAR(colour[1], ColorsysChannel(m1, m2, h), 1e-5) << hue;
                EXPECT_NEAR(colour[2], ColorsysChannel(m1, m2, h - 1.0 / 3.0), 1e-5) << hue;
            }
        }
    }
}

TEST_F(FromHSBTest, OutOfRangeSaturationAndBrightnessReportAndStillConvert) {
    ScopedCapture capture;
    FromHSB(10, 0.0f, 0.0f);
    FromHSB(10, 1.0f, 2.0f);
    EXPECT_TRUE(capture.Messages().empty());
    FromHSB(10, 1.5f, 0.5f);
    FromHSB(10, -0.1f, 0.5f);
    // Only a lightness of exactly 0 is a grey; a negative one goes through the formula (q -0.375, p -0.125).
    ExpectColour(FromHSB(10, 0.5f, -0.25f), -0.375, -0.125 - 0.25 * (10.0 / 60.0), -0.125,
                 "negative lightness");
    FromHSB(10, 2.0f, -1.0f);
    EXPECT_THAT(capture.Messages(),
                ElementsAre("saturation must lie between [0 and 1]", "saturation must lie between [0 and 1]",
                            "brightness must be bigger than [0", "saturation must lie between [0 and 1]",
                            "brightness must be bigger than [0"));
    EXPECT_EQ(capture.Reports()[0].function, "zn::FromHSB");
    ExpectAllOnChannel(capture, LogAssertProgrammer);
}

}  // namespace
}  // namespace zn::test
