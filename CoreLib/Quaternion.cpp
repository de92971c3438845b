// Quaternion.cpp: conversions to and from rotation matrices, the angle forms, interpolation and
// the algebra of quaternions.
#include "CoreLib/Quaternion.h"

#include <cmath>

namespace zn {

// A constant expression, so the exported constant is ready before any constructor of the host runs.
constinit const Quaternion Quaternion::IDENTITY(1.0f, 0.0f, 0.0f, 0.0f);

void Quaternion::SetValues(float w, float x, float y, float z) {
    m_W = w;
    m_X = x;
    m_Y = y;
    m_Z = z;
}

void Quaternion::GetValues(float& w, float& x, float& y, float& z) const {
    w = m_W;
    x = m_X;
    y = m_Y;
    z = m_Z;
}

bool Quaternion::operator==(const Quaternion& other) const {
    return m_W == other.m_W && m_X == other.m_X && m_Y == other.m_Y && m_Z == other.m_Z;
}

// The trace form serves whenever trace + 1 is positive, which for a proper rotation is every case
// but a half turn. Otherwise the largest diagonal element picks the component to take the square
// root for, the one that is far from zero.
void Quaternion::FromRotation(const MathMatrix<float, 3, 3>& rotation) {
    const float* m = rotation.Data();
    float t = m[0] + m[4] + m[8] + 1.0f;
    if (t > 0.0f) {
        float s = 0.5f / std::sqrt(t);
        m_W = 0.25f / s;
        m_X = (m[7] - m[5]) * s;
        m_Y = (m[2] - m[6]) * s;
        m_Z = (m[3] - m[1]) * s;
    } else if (m[0] > m[4] && m[0] > m[8]) {
        float s = 2.0f * std::sqrt(1.0f + m[0] - m[4] - m[8]);
        m_W = (m[7] - m[5]) / s;
        m_X = 0.25f * s;
        m_Y = (m[1] + m[3]) / s;
        m_Z = (m[2] + m[6]) / s;
    } else if (m[4] > m[8]) {
        float s = 2.0f * std::sqrt(1.0f + m[4] - m[0] - m[8]);
        m_W = (m[2] - m[6]) / s;
        m_X = (m[1] + m[3]) / s;
        m_Y = 0.25f * s;
        m_Z = (m[5] + m[7]) / s;
    } else {
        float s = 2.0f * std::sqrt(1.0f + m[8] - m[0] - m[4]);
        m_W = (m[3] - m[1]) / s;
        m_X = (m[2] + m[6]) / s;
        m_Y = (m[5] + m[7]) / s;
        m_Z = 0.25f * s;
    }
}

void Quaternion::ToRotation(MathMatrix<float, 3, 3>& rotation) const {
    float xx = m_X * m_X;
    float yy = m_Y * m_Y;
    float zz = m_Z * m_Z;
    float xy = m_X * m_Y;
    float xz = m_X * m_Z;
    float yz = m_Y * m_Z;
    float wx = m_W * m_X;
    float wy = m_W * m_Y;
    float wz = m_W * m_Z;
    rotation = MathMatrix<float, 3, 3>(1.0f - 2.0f * (yy + zz), 2.0f * (xy - wz), 2.0f * (xz + wy),  //
                                       2.0f * (xy + wz), 1.0f - 2.0f * (xx + zz), 2.0f * (yz - wx),  //
                                       2.0f * (xz - wy), 2.0f * (yz + wx), 1.0f - 2.0f * (xx + yy));
}

float Quaternion::Dot(const Quaternion& a, const Quaternion& b) {
    return a.m_W * b.m_W + a.m_X * b.m_X + a.m_Y * b.m_Y + a.m_Z * b.m_Z;
}

void Quaternion::FromAngleAxisX(float angle) {
    float half = angle * 0.5f;
    SetValues(std::cos(half), std::sin(half), 0.0f, 0.0f);
}

void Quaternion::FromAngleAxisY(float angle) {
    float half = angle * 0.5f;
    SetValues(std::cos(half), 0.0f, std::sin(half), 0.0f);
}

void Quaternion::FromAngleAxisZ(float angle) {
    float half = angle * 0.5f;
    SetValues(std::cos(half), 0.0f, 0.0f, std::sin(half));
}

void Quaternion::FromAngleAxis(const MathVector<float, 3>& axis, float angle) {
    float half = angle * 0.5f;
    float sine = std::sin(half);
    SetValues(std::cos(half), axis[0] * sine, axis[1] * sine, axis[2] * sine);
}

void Quaternion::FromYawPitchRoll(float yaw, float pitch, float roll) {
    float sa = std::sin(yaw * 0.5f);
    float ca = std::cos(yaw * 0.5f);
    float sb = std::sin(pitch * 0.5f);
    float cb = std::cos(pitch * 0.5f);
    float sc = std::sin(roll * 0.5f);
    float cc = std::cos(roll * 0.5f);
    m_X = cc * sb * ca + sc * cb * sa;
    m_Y = cc * cb * sa - sc * sb * ca;
    m_Z = sc * cb * ca - cc * sa * sb;
    m_W = cc * cb * ca + sc * sa * sb;
}

Quaternion Quaternion::Lerp(const Quaternion& a, const Quaternion& b, float t) {
    Quaternion result = a * (1.0f - t) + b * t;
    result.Normalize();
    return result;
}

Quaternion Quaternion::Slerp(const Quaternion& a, const Quaternion& b, float t) {
    if (t <= 0.0f) {
        return a;
    }
    if (t >= 1.0f) {
        return b;
    }
    float cosine = Dot(a, b);
    Quaternion target = b;
    // q and -q are one rotation; turning towards the nearer of the two takes the shorter arc.
    if (cosine < 0.0f) {
        cosine = -cosine;
        target = -b;
    }
    if (cosine >= 0.95f) {
        return Lerp(a, target, t);
    }
    float theta = std::acos(cosine);
    return (a * std::sin((1.0f - t) * theta) + target * std::sin(t * theta)) / std::sin(theta);
}

Quaternion Quaternion::operator+(const Quaternion& other) const {
    return Quaternion(m_W + other.m_W, m_X + other.m_X, m_Y + other.m_Y, m_Z + other.m_Z);
}

Quaternion Quaternion::operator-(const Quaternion& other) const {
    return Quaternion(m_W - other.m_W, m_X - other.m_X, m_Y - other.m_Y, m_Z - other.m_Z);
}

Quaternion Quaternion::operator-() const {
    return Quaternion(-m_W, -m_X, -m_Y, -m_Z);
}

Quaternion Quaternion::operator*(const Quaternion& other) const {
    return Quaternion(m_W * other.m_W - m_X * other.m_X - m_Y * other.m_Y - m_Z * other.m_Z,
                      m_W * other.m_X + m_X * other.m_W + m_Y * other.m_Z - m_Z * other.m_Y,
                      m_W * other.m_Y - m_X * other.m_Z + m_Y * other.m_W + m_Z * other.m_X,
                      m_W * other.m_Z + m_X * other.m_Y - m_Y * other.m_X + m_Z * other.m_W);
}

Quaternion Quaternion::operator*(float scalar) const {
    return Quaternion(m_W * scalar, m_X * scalar, m_Y * scalar, m_Z * scalar);
}

Quaternion& Quaternion::operator*=(const Quaternion& other) {
    return *this = *this * other;
}

Quaternion& Quaternion::operator*=(float scalar) {
    return *this = *this * scalar;
}

Quaternion Quaternion::operator/(float scalar) const {
    return Quaternion(m_W / scalar, m_X / scalar, m_Y / scalar, m_Z / scalar);
}

Quaternion& Quaternion::operator/=(float scalar) {
    return *this = *this / scalar;
}

float Quaternion::Length() const {
    return std::sqrt(Dot(*this, *this));
}

void Quaternion::Normalize() {
    *this /= Length();
}

Quaternion Quaternion::GetConjugate() const {
    return Quaternion(m_W, -m_X, -m_Y, -m_Z);
}

MathVector<float, 3> Quaternion::Rotate(const MathVector<float, 3>& vector) const {
    MathVector<float, 3> axis(m_X, m_Y, m_Z);
    MathVector<float, 3> twiceCross = MathVector<float, 3>::Cross(axis, vector) * 2.0f;
    return vector + twiceCross * m_W + MathVector<float, 3>::Cross(axis, twiceCross);
}

}  // namespace zn
