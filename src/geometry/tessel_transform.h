// Transform records and 4x4 matrices of the output.
//
// Matrices are 16 real32, row by row, for row vectors: a point p maps to
// p * M, so the translation stands in the last row (elements 12, 13, 14).
// A transform applies its scale/shear first, then its orientation, then its
// position.
#pragma once

#include "format/tessel_data_type_definitions.h"

// Sets the members and recomputes Flags: position beyond 0.001 of zero,
// orientation beyond 0.0001 of (0, 0, 0, 1), scale/shear beyond 0.001 of the
// identity.
void SetTransform(transform &Result, real32 const *Position, real32 const *Orientation, real32 const *ScaleShear);
void SetTransformFlags(transform &Result);

void QuaternionToMatrix3x3(real32 const *Quaternion, real32 *Matrix3x3);
void NormalizeQuaternion(real32 *Quaternion);

// Column-vector linear part R * S of a transform, as 9 values row by row.
void GetTransformLinear3x3(transform const &Transform, real32 *Linear3x3);
// The linear part applied to a vector (scale/shear, then rotation).
void TransformVectorLinear(transform const &Transform, real32 const *Vector, real32 *Result);
void BuildCompositeTransform4x4(transform const &Transform, real32 *Matrix4x4);

void MatrixMultiply4x4(real32 const *A, real32 const *B, real32 *Result);
// False (and the identity) for a singular matrix.
bool MatrixInvert4x4(real32 const *Matrix, real32 *Result);
void MatrixIdentity4x4(real32 *Matrix);
