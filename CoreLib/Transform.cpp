// Transform.cpp: keeping the world matrix in step with its parts, Euler angles both ways, taking a
// matrix apart, and the engine's composition of transforms.
#include "CoreLib/Transform.h"

#include <cfloat>
#include <cmath>

namespace zn {

namespace {

using Vector3 = MathVector<float, 3>;
using Matrix3 = MathMatrix<float, 3, 3>;

constexpr float kPi = 3.14159265358979323846f;
constexpr float kHalfPi = kPi * 0.5f;
// Below this distance of |sin(b)| from 1 the pitch is taken as +-pi/2 and yaw and roll as one.
constexpr float kGimbalLockMargin = 0.00001f;
// A column shorter than this (zero or denormal) has no direction to divide out.
constexpr float kShortestColumn = FLT_MIN;
// A unit column whose part off the axes already found is shorter than this depends on them.
constexpr float kDependentRemainder = 1.0e-6f;

// The angles (a, b, c) for one of the two pitches that give R[6]; k divides out cos(b), whose sign
// tells which of the two the triple belongs to.
Vector3 AnglesForPitch(const float* r, float pitch) {
    float k = 1.0f / std::cos(pitch);
    return Vector3(std::atan2(r[7] * k, r[8] * k), pitch, std::atan2(r[3] * k, r[0] * k));
}

// Right-handed completion: column i of a rotation is the cross product of the next two.
Vector3 CompleteAxis(const Vector3 (&axes)[3], int missing) {
    return Vector3::Cross(axes[(missing + 1) % 3], axes[(missing + 2) % 3]);
}

// The unit world axis least aligned with direction, made orthogonal to it.
Vector3 PerpendicularTo(const Vector3& direction) {
    int least = 0;
    for (int i = 1; i < 3; ++i) {
        if (std::fabs(direction[i]) < std::fabs(direction[least])) {
            least = i;
        }
    }
    Vector3 axis;
    axis[least] = 1.0f;
    return (axis - direction * Vector3::Dot(axis, direction)).Normalized();
}

// A rotation from the directions of columns, by Gram-Schmidt in column order; the axes a
// degenerate matrix lacks are completed, so the result is orthonormal with a determinant of +-1.
Matrix3 RotationFromColumns(const Vector3 (&columns)[3], const float (&lengths)[3]) {
    Vector3 axes[3];
    bool found[3] = {false, false, false};
    int foundCount = 0;
    for (int i = 0; i < 3; ++i) {
        if (!(lengths[i] > kShortestColumn)) {
            continue;
        }
        Vector3 axis = columns[i] / lengths[i];
        for (int j = 0; j < i; ++j) {
            if (found[j]) {
                axis -= axes[j] * Vector3::Dot(axis, axes[j]);
            }
        }
        float remainder = axis.Length();
        if (remainder > kDependentRemainder) {
            axes[i] = axis / remainder;
            found[i] = true;
            ++foundCount;
        }
    }
    if (foundCount == 0) {
        return Matrix3::Identity();
    }
    if (foundCount == 1) {
        int only = found[0] ? 0 : (found[1] ? 1 : 2);
        int next = (only + 1) % 3;
        axes[next] = PerpendicularTo(axes[only]);
        found[next] = true;
    }
    for (int i = 0; i < 3; ++i) {
        if (!found[i]) {
            axes[i] = CompleteAxis(axes, i);
        }
    }
    Matrix3 rotation;
    for (int i = 0; i < 3; ++i) {
        rotation.SetColumn(i, axes[i]);
    }
    return rotation;
}

}  // namespace

Transform::Transform()
    : m_Transform(MathMatrix<float, 4, 4>::Identity()),
      m_Rotate(Matrix3::Identity()),
      m_Translate(0.0f, 0.0f, 0.0f),
      m_Scale(1.0f, 1.0f, 1.0f) {}

Transform::~Transform() = default;

float Transform::GetUniformScale() const {
    float largest = m_Scale[0];
    for (int i = 1; i < 3; ++i) {
        if (m_Scale[i] > largest) {
            largest = m_Scale[i];
        }
    }
    return largest;
}

void Transform::SetTranslate(const Vector3& translate) {
    m_Translate = translate;
    m_Transform.SetTranslation(translate);
}

void Transform::SetRotate(const Matrix3& rotate) {
    m_Rotate = rotate;
    RebuildMatrix();
}

void Transform::SetRotateFromEulerAngles(float a, float b, float c) {
    float sa = std::sin(a);
    float ca = std::cos(a);
    float sb = std::sin(b);
    float cb = std::cos(b);
    float sc = std::sin(c);
    float cc = std::cos(c);
    Matrix3 rx(1.0f, 0.0f, 0.0f, 0.0f, ca, -sa, 0.0f, sa, ca);
    Matrix3 ry(cb, 0.0f, sb, 0.0f, 1.0f, 0.0f, -sb, 0.0f, cb);
    Matrix3 rz(cc, -sc, 0.0f, sc, cc, 0.0f, 0.0f, 0.0f, 1.0f);
    SetRotate(rz * ry * rx);
}

// R[6] is -sin(b), which gives b up to the choice between b and pi - b; each choice fixes a and c.
// Of the two equivalent triples the smaller one is kept, the first one on a tie.
Vector3 Transform::GetRotateInEulerAngles() const {
    const float* r = m_Rotate.Data();
    if (1.0f - std::fabs(r[6]) > kGimbalLockMargin) {
        float pitch = std::asin(-r[6]);
        Vector3 first = AnglesForPitch(r, pitch);
        Vector3 second = AnglesForPitch(r, kPi - pitch);
        return second.LengthSquared() < first.LengthSquared() ? second : first;
    }
    // cos(b) is zero: only a - c (b = pi/2) or a + c (b = -pi/2) is known, and a takes it all.
    if (r[6] <= 0.0f) {
        return Vector3(std::atan2(r[1], r[2]), kHalfPi, 0.0f);
    }
    return Vector3(std::atan2(-r[1], -r[2]), -kHalfPi, 0.0f);
}

void Transform::SetScale(const Vector3& scale) {
    m_Scale = scale;
    RebuildMatrix();
}

void Transform::SetUniformScale(float scale) {
    SetScale(Vector3(scale, scale, scale));
}

void Transform::SetTransform(const Vector3& translate, const Matrix3& rotate, const Vector3& scale) {
    m_Translate = translate;
    m_Rotate = rotate;
    m_Scale = scale;
    RebuildMatrix();
}

void Transform::SetTransform(const MathMatrix<float, 4, 4>& matrix) {
    Vector3 columns[3];
    float lengths[3];
    for (int i = 0; i < 3; ++i) {
        columns[i] = matrix.GetColumn(i).XYZ();
        lengths[i] = columns[i].Length();
    }
    Matrix3 rotation = RotationFromColumns(columns, lengths);
    Vector3 scale(lengths[0], lengths[1], lengths[2]);
    // An odd number of mirrored axes leaves a determinant of -1, which no rotation has; one
    // negative scale takes the mirror, x by convention.
    if (rotation.Determinant() < 0.0f) {
        scale[0] = -scale[0];
        rotation.SetColumn(0, -rotation.GetColumn(0));
    }
    SetTransform(matrix.GetTranslation(), rotation, scale);
}

Transform Transform::operator*(const Transform& other) const {
    // MathVector's * between three-element vectors is the cross product.
    Transform result;
    result.SetTransform((other.m_Translate + other.m_Scale) * (other.m_Rotate * m_Translate),
                        other.m_Rotate * m_Rotate, other.m_Scale * m_Scale);
    return result;
}

void Transform::RebuildMatrix() {
    m_Transform = MathMatrix<float, 4, 4>();
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            m_Transform(row, column) = m_Rotate(row, column) * m_Scale[column];
        }
    }
    m_Transform.SetTranslation(m_Translate);
    m_Transform(3, 3) = 1.0f;
}

}  // namespace zn
