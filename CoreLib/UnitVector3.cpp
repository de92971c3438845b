// UnitVector3.cpp: packing a direction into 16 bits, the fold that fits the x steps into six bits,
// and the table of length corrections that keeps unpacking free of square roots.
#include "CoreLib/UnitVector3.h"

#include "CoreLib/Report.h"

#include <climits>
#include <cmath>

namespace zn {

namespace {

// The magnitudes are scaled so that |x| + |y| + |z| is this many steps.
constexpr int kPlaneSteps = 126;
// A stored step pair with x + y at or above this is folded: it stands for (127 - x, 127 - y).
constexpr int kFoldSum = 127;
// x steps from here on are folded, which leaves six bits for the stored x.
constexpr int kFoldX = 64;

void Unfold(int& x, int& y) {
    if (x + y >= kFoldSum) {
        x = kFoldSum - x;
        y = kFoldSum - y;
    }
}

// The truncating float-to-int conversion of x86, defined for every input: NaN and values outside
// the int range give INT_MIN, which the range reports of PackVector then catch.
int TruncateToInt(float value) {
    if (value >= -2147483648.0f && value < 2147483648.0f) {
        return static_cast<int>(value);
    }
    return INT_MIN;
}

}  // namespace

float UnitVector3::s_UVAdjustment[UnitVector3::kTableSize];

void UnitVector3::_SDMInit() {
    for (int index = 0; index < kTableSize; ++index) {
        int x = index >> kXBitsShift;
        int y = index & kYBitsMask;
        Unfold(x, y);
        int z = kPlaneSteps - x - y;
        float entry = 1.0f / std::sqrt(static_cast<float>(x * x + y * y + z * z));
        if (!std::isfinite(entry)) {
            ZN_REPORT_AS("UnitVector3::_SDMInit", "s_UVAdjustment[%d] is infinite!", index);
        }
        s_UVAdjustment[index] = entry;
    }
}

void UnitVector3::_SDMShutdown() {
    for (float& entry : s_UVAdjustment) {
        entry = 0.0f;
    }
}

void UnitVector3::PackVector(const MathVector<float, 3>& vector) {
    static constexpr uint16_t kSignOf[3] = {kNegativeX, kNegativeY, kNegativeZ};
    m_Packed = 0;
    float magnitude[3];
    for (int i = 0; i < 3; ++i) {
        magnitude[i] = vector[i];
        if (vector[i] < 0.0f) {
            m_Packed |= kSignOf[i];
            magnitude[i] = -vector[i];
        }
    }
    float stepsPerUnit = kPlaneSteps / (magnitude[0] + magnitude[1] + magnitude[2]);
    int xbits = TruncateToInt(magnitude[0] * stepsPerUnit);
    int ybits = TruncateToInt(magnitude[1] * stepsPerUnit);
    if (xbits >= 127) {
        ZN_REPORT_AS("UnitVector3::PackVector", "xbits &gt;= 127!");
    }
    if (xbits < 0) {
        ZN_REPORT_AS("UnitVector3::PackVector", "xbits &lt; 0!");
    }
    if (ybits >= 127) {
        ZN_REPORT_AS("UnitVector3::PackVector", "ybits &gt;= 127!");
    }
    if (ybits < 0) {
        ZN_REPORT_AS("UnitVector3::PackVector", "ybits &lt; 0!");
    }
    if (xbits >= kFoldX) {
        xbits = kFoldSum - xbits;
        ybits = kFoldSum - ybits;
    }
    // Masking keeps a reported out-of-range value out of the sign bits.
    unsigned int fields = ((static_cast<unsigned int>(xbits) << kXBitsShift) & kXBitsMask) |
                          (static_cast<unsigned int>(ybits) & kYBitsMask);
    m_Packed = static_cast<uint16_t>(m_Packed | fields);
}

void UnitVector3::UnpackVector(MathVector<float, 3>& vector) const {
    int x = (m_Packed & kXBitsMask) >> kXBitsShift;
    int y = m_Packed & kYBitsMask;
    Unfold(x, y);
    float factor = s_UVAdjustment[m_Packed & ~kSignBits];
    vector = MathVector<float, 3>(static_cast<float>(x) * factor, static_cast<float>(y) * factor,
                                  static_cast<float>(kPlaneSteps - x - y) * factor);
    if (m_Packed & kNegativeX) {
        vector[0] = -vector[0];
    }
    if (m_Packed & kNegativeY) {
        vector[1] = -vector[1];
    }
    if (m_Packed & kNegativeZ) {
        vector[2] = -vector[2];
    }
}

}  // namespace zn
