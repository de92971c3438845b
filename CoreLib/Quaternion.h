// Quaternion.h: rotations as four floats w, x, y, z. Products compose as rotation matrices do
// with column vectors: (a * b) rotates by b first, then by a.
#pragma once

#include "CoreLib/MathMatrix.h"
#include "CoreLib/MathVector.h"

namespace zn {

class Quaternion {
public:
    // (1, 0, 0, 0): no rotation.
    static const Quaternion IDENTITY;

    // The identity rotation.
    constexpr Quaternion() : m_W(1.0f), m_X(0.0f), m_Y(0.0f), m_Z(0.0f) {}
    constexpr Quaternion(float w, float x, float y, float z) : m_W(w), m_X(x), m_Y(y), m_Z(z) {}

    float GetW() const { return m_W; }
    float GetX() const { return m_X; }
    float GetY() const { return m_Y; }
    float GetZ() const { return m_Z; }
    void SetW(float w) { m_W = w; }
    void SetX(float x) { m_X = x; }
    void SetY(float y) { m_Y = y; }
    void SetZ(float z) { m_Z = z; }
    void SetValues(float w, float x, float y, float z);
    void GetValues(float& w, float& x, float& y, float& z) const;

    // Exact, element by element: q and -q are the same rotation but compare unequal.
    bool operator==(const Quaternion& other) const;
    bool operator!=(const Quaternion& other) const { return !(*this == other); }

    // Sets this to the rotation of a proper rotation matrix (row after row, column vectors).
    void FromRotation(const MathMatrix<float, 3, 3>& rotation);
    // Writes the rotation matrix of this quaternion, which should be of unit length.
    void ToRotation(MathMatrix<float, 3, 3>& rotation) const;

    static float Dot(const Quaternion& a, const Quaternion& b);

    // Sets this to a right-handed rotation by angle (radians) about one axis.
    void FromAngleAxisX(float angle);
    void FromAngleAxisY(float angle);
    void FromAngleAxisZ(float angle);
    // The axis is used as given: a unit axis gives a unit quaternion.
    void FromAngleAxis(const MathVector<float, 3>& axis, float angle);
    // Yaw about y, pitch about x, roll about z; the same as Y(yaw) * X(pitch) * Z(roll).
    void FromYawPitchRoll(float yaw, float pitch, float roll);

    // Straight interpolation element by element, then normalised; a and -a are not reconciled.
    static Quaternion Lerp(const Quaternion& a, const Quaternion& b, float t);
    // Spherical interpolation along the shorter arc; falls back to Lerp when the two are within
    // acos(0.95) of each other, where the sine in the divisor would lose precision.
    static Quaternion Slerp(const Quaternion& a, const Quaternion& b, float t);

    Quaternion operator+(const Quaternion& other) const;
    Quaternion operator-(const Quaternion& other) const;
    Quaternion operator-() const;
    // The Hamilton product.
    Quaternion operator*(const Quaternion& other) const;
    Quaternion operator*(float scalar) const;
    friend Quaternion operator*(float scalar, const Quaternion& q) { return q * scalar; }
    Quaternion& operator*=(const Quaternion& other);
    Quaternion& operator*=(float scalar);
    Quaternion operator/(float scalar) const;
    Quaternion& operator/=(float scalar);

    float Length() const;
    // Divides all four elements by Length; a zero quaternion becomes NaN.
    void Normalize();

    // (w, -x, -y, -z): the inverse rotation of a unit quaternion.
    Quaternion GetConjugate() const;
    // The vector rotated by this unit quaternion, q * (0, v) * conjugate(q) in closed form.
    MathVector<float, 3> Rotate(const MathVector<float, 3>& vector) const;

private:
    float m_W;
    float m_X;
    float m_Y;
    float m_Z;
};

}  // namespace zn
