// MathHelpers.h: free functions of the mathematics family: Poisson disc samples and the conversion
// of a hue, saturation and lightness colour to red, green and blue.
#pragma once

#include "CoreLib/MathVector.h"

namespace zn {

// Fills samples[0..count) with points of the unit disc that lie at least minDistance apart, drawn
// from the run-time library's process-wide rand (seed it with the library's start-up, or CrtSrand,
// for a repeatable set). A sample that finds no place within triesPerSample tries abandons the
// attempt; up to restarts attempts are made. With firstAtCentre, sample 0 is (0, 0). True when an
// attempt placed every sample; false otherwise, and always for restarts below 1.
bool generatePoissonSamples(MathVector<float, 2>* samples, int count, float minDistance, int triesPerSample,
                            int restarts, bool firstAtCentre);

// Red, green and blue in [0, 1] for a hue in degrees (taken modulo 360), a saturation in [0, 1]
// and a lightness ("brightness") in [0, 1], where 0.5 is the pure colour. Values outside those
// ranges are reported and still converted.
MathVector<float, 3> FromHSB(unsigned short hue, float saturation, float brightness);

}  // namespace zn
