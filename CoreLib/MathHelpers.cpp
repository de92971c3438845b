// MathHelpers.cpp: Poisson disc sampling by rejection, and the hue-saturation-lightness colour
// conversion.
#include "CoreLib/MathHelpers.h"

#include "CoreLib/Report.h"
#include "CoreLib/platform/Crt.h"

namespace zn {

namespace {
// A coordinate in [-1, 1] from the run-time's 15-bit rand.
float DrawCoordinate() {
    return 2.0f * static_cast<float>(platform::CrtRand()) / static_cast<float>(platform::kCrtRandMax) - 1.0f;
}

bool NearAnyPlaced(const MathVector<float, 2>* samples, int placedCount, float x, float y,
                   float minDistanceSquared) {
    for (int index = 0; index < placedCount; ++index) {
        float dx = samples[index][0] - x;
        float dy = samples[index][1] - y;
        if (dx * dx + dy * dy < minDistanceSquared) {
            return true;
        }
    }
    return false;
}

// One attempt at a full set. Points outside the disc are drawn again without counting; points too
// near an earlier sample count as failed tries.
bool FillSamples(MathVector<float, 2>* samples, int count, float minDistanceSquared, int triesPerSample,
                 bool firstAtCentre) {
    int first = 0;
    if (firstAtCentre) {
        samples[0] = MathVector<float, 2>(0.0f, 0.0f);
        first = 1;
    }
    for (int index = first; index < count; ++index) {
        int failedTries = 0;
        for (;;) {
            float x = DrawCoordinate();
            float y = DrawCoordinate();
            if (x * x + y * y > 1.0f) {
                continue;
            }
            if (!NearAnyPlaced(samples, index, x, y, minDistanceSquared)) {
                samples[index] = MathVector<float, 2>(x, y);
                break;
            }
            if (++failedTries >= triesPerSample) {
                return false;
            }
        }
    }
    return true;
}

// One channel of the conversion; t is the hue shifted for this channel.
float HueToChannel(float p, float q, float t) {
    if (t < 0.0f) {
        t += 1.0f;
    } else if (t > 1.0f) {
        t -= 1.0f;
    }
    if (6.0f * t < 1.0f) {
        return p + (q - p) * 6.0f * t;
    }
    if (2.0f * t < 1.0f) {
        return q;
    }
    if (3.0f * t < 2.0f) {
        return p + (q - p) * (2.0f / 3.0f - t) * 6.0f;
    }
    return p;
}
}  // namespace

bool generatePoissonSamples(MathVector<float, 2>* samples, int count, float minDistance, int triesPerSample,
                            int restarts, bool firstAtCentre) {
    if (count <= 0) {
        // Nothing to place: any attempt succeeds at once, and there is no sample 0 to centre.
        return restarts >= 1;
    }
    if (samples == nullptr) {
        ZN_REPORT("no storage for %d samples", count);
        return false;
    }
    float minDistanceSquared = minDistance * minDistance;
    for (int attempt = 0; attempt < restarts; ++attempt) {
        if (FillSamples(samples, count, minDistanceSquared, triesPerSample, firstAtCentre)) {
            return true;
        }
    }
    return false;
}

MathVector<float, 3> FromHSB(unsigned short hue, float saturation, float brightness) {
    if (saturation < 0.0f || saturation > 1.0f) {
        ZN_REPORT("saturation must lie between [0 and 1]");
    }
    if (brightness < 0.0f) {
        ZN_REPORT("brightness must be bigger than [0");
    }
    float h = static_cast<float>(hue % 360) / 360.0f;
    float s = saturation;
    float l = brightness;
    if (s == 0.0f || l == 0.0f) {
        return MathVector<float, 3>(l, l, l);
    }
    float q = l <= 0.5f ? l * (1.0f + s) : l + s - l * s;
    float p = 2.0f * l - q;
    return MathVector<float, 3>(HueToChannel(p, q, h + 1.0f / 3.0f), HueToChannel(p, q, h),
                                HueToChannel(p, q, h - 1.0f / 3.0f));
}

}  // namespace zn
