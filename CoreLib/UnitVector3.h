// UnitVector3.h: a direction stored in two bytes. The signs take three bits; the magnitudes are
// projected onto the plane |x| + |y| + |z| = 126 and the x and y steps kept, 6 and 7 bits, with
// the upper half of the x range folded onto the unused corner of the y range.
#pragma once

#include "CoreLib/MathVector.h"

#include <cstdint>

namespace zn {

class UnitVector3 {
public:
    static constexpr uint16_t kNegativeX = 0x8000;
    static constexpr uint16_t kNegativeY = 0x4000;
    static constexpr uint16_t kNegativeZ = 0x2000;
    static constexpr uint16_t kSignBits = kNegativeX | kNegativeY | kNegativeZ;
    static constexpr int kXBitsShift = 7;
    static constexpr uint16_t kXBitsMask = 0x1F80;  // bits 12 to 7
    static constexpr uint16_t kYBitsMask = 0x007F;  // bits 6 to 0
    // One table entry for every value of the word without its sign bits.
    static constexpr int kTableSize = 8192;

    // The packed word 0, which is the direction (0, 0, 1).
    constexpr UnitVector3() : m_Packed(0) {}
    explicit constexpr UnitVector3(uint16_t packed) : m_Packed(packed) {}
    explicit UnitVector3(const MathVector<float, 3>& direction) : m_Packed(0) { PackVector(direction); }

    uint16_t GetPacked() const { return m_Packed; }
    void SetPacked(uint16_t packed) { m_Packed = packed; }

    // Stores the direction of vector; its length does not matter. A zero, infinite or NaN vector
    // is reported and keeps only its sign bits.
    void PackVector(const MathVector<float, 3>& vector);
    // The unit direction, from one table read and three multiplications.
    void UnpackVector(MathVector<float, 3>& vector) const;
    operator MathVector<float, 3>() const {
        MathVector<float, 3> vector;
        UnpackVector(vector);
        return vector;
    }

    bool operator==(const UnitVector3& other) const { return m_Packed == other.m_Packed; }
    bool operator!=(const UnitVector3& other) const { return m_Packed != other.m_Packed; }

    // Fills s_UVAdjustment; runs before the memory manager exists and allocates nothing. Filling
    // it again gives the same table.
    static void _SDMInit();
    // Clears s_UVAdjustment: a direction unpacked after shutdown comes out as zero.
    static void _SDMShutdown();

    // For the low 13 bits of a word, the factor that makes the unpacked vector unit length.
    static float s_UVAdjustment[kTableSize];

private:
    uint16_t m_Packed;
};

}  // namespace zn
