// Transform.h: a placement in the world kept both as its parts (rotation, translation, scale) and
// as the 4x4 world matrix built from them, so readers of either form pay nothing.
#pragma once

#include "CoreLib/MathMatrix.h"
#include "CoreLib/MathVector.h"

namespace zn {

// Invariant: the matrix's upper left 3x3 is m_Rotate * diag(m_Scale), its last column is
// m_Translate and its last row is (0, 0, 0, 1). Every setter keeps it.
class Transform {
public:
    Transform();
    Transform(const Transform& other) = default;
    Transform& operator=(const Transform& other) = default;
    virtual ~Transform();

    const MathVector<float, 3>& GetTranslate() const { return m_Translate; }
    const MathMatrix<float, 3, 3>& GetRotate() const { return m_Rotate; }
    const MathVector<float, 3>& GetScale() const { return m_Scale; }
    // The largest scale element, the one figure that stands for the scale where only one is kept.
    float GetUniformScale() const;
    // The world matrix.
    const MathMatrix<float, 4, 4>& GetTransform() const { return m_Transform; }

    void SetTranslate(const MathVector<float, 3>& translate);
    void SetRotate(const MathMatrix<float, 3, 3>& rotate);
    // The rotation Rz(c) * Ry(b) * Rx(a): a about x first, then b about y, then c about z
    // (radians, right-handed).
    void SetRotateFromEulerAngles(float a, float b, float c);
    // The angles (a, b, c) that SetRotateFromEulerAngles turns back into the rotation: of the two
    // solutions, the one nearer to zero; at gimbal lock (b = +-pi/2) c is 0 and a takes it all.
    MathVector<float, 3> GetRotateInEulerAngles() const;
    void SetScale(const MathVector<float, 3>& scale);
    void SetUniformScale(float scale);
    void SetTransform(const MathVector<float, 3>& translate, const MathMatrix<float, 3, 3>& rotate,
                      const MathVector<float, 3>& scale);
    // Takes translation, rotation and scale back out of an affine matrix: the scale elements are the
    // lengths of the columns, the rotation their directions made orthonormal (a shear is dropped).
    // A mirroring matrix gives a negative x scale. A zero or dependent column gets a scale of its
    // length and a rotation axis completed from the others, so the rotation is always proper. The
    // matrix is then rebuilt from the parts, and a projective last row is dropped.
    void SetTransform(const MathMatrix<float, 4, 4>& matrix);

    // The engine's composition of two transforms, which is not the product of their matrices:
    // scale = other.scale x this.scale, rotate = other.rotate * this.rotate, and
    // translate = (other.translate + other.scale) x (other.rotate * this.translate), where x is
    // the cross product. So identity * identity has scale (0, 0, 0).
    Transform operator*(const Transform& other) const;

private:
    void RebuildMatrix();

    MathMatrix<float, 4, 4> m_Transform;
    MathMatrix<float, 3, 3> m_Rotate;
    MathVector<float, 3> m_Translate;
    MathVector<float, 3> m_Scale;
};

}  // namespace zn
