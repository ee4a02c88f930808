#include "geometry/tessel_transform.h"

#include <cmath>
#include <cstring>

void SetTransformFlags(transform &Result)
{
    Result.Flags = 0;
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        if (std::fabs(Result.Position[Axis]) > 0.001f) Result.Flags |= HasPosition;
    }
    real32 const IdentityQuaternion[4] = {0, 0, 0, 1};
    for (int32 Axis = 0; Axis < 4; ++Axis) {
        if (std::fabs(Result.Orientation[Axis] - IdentityQuaternion[Axis]) > 0.0001f) Result.Flags |= HasOrientation;
    }
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            real32 Identity = Row == Column ? 1.0f : 0.0f;
            if (std::fabs(Result.ScaleShear[Row][Column] - Identity) > 0.001f) Result.Flags |= HasScaleShear;
        }
    }
}

void SetTransform(transform &Result, real32 const *Position, real32 const *Orientation, real32 const *ScaleShear)
{
    MakeIdentityTransform(Result);
    if (Position) memcpy(Result.Position, Position, sizeof(Result.Position));
    if (Orientation) memcpy(Result.Orientation, Orientation, sizeof(Result.Orientation));
    if (ScaleShear) memcpy(Result.ScaleShear, ScaleShear, sizeof(Result.ScaleShear));
    SetTransformFlags(Result);
}

void NormalizeQuaternion(real32 *Quaternion)
{
    real32 Length = std::sqrt(Quaternion[0] * Quaternion[0] + Quaternion[1] * Quaternion[1] +
                              Quaternion[2] * Quaternion[2] + Quaternion[3] * Quaternion[3]);
    if (Length > 0.0f) {
        for (int32 Index = 0; Index < 4; ++Index) Quaternion[Index] /= Length;
    }
}

void QuaternionToMatrix3x3(real32 const *Q, real32 *M)
{
    real32 X = Q[0], Y = Q[1], Z = Q[2], W = Q[3];
    M[0] = 1 - 2 * (Y * Y + Z * Z);
    M[1] = 2 * (X * Y - Z * W);
    M[2] = 2 * (X * Z + Y * W);
    M[3] = 2 * (X * Y + Z * W);
    M[4] = 1 - 2 * (X * X + Z * Z);
    M[5] = 2 * (Y * Z - X * W);
    M[6] = 2 * (X * Z - Y * W);
    M[7] = 2 * (Y * Z + X * W);
    M[8] = 1 - 2 * (X * X + Y * Y);
}

void GetTransformLinear3x3(transform const &Transform, real32 *Linear)
{
    real32 Rotation[9];
    QuaternionToMatrix3x3(Transform.Orientation, Rotation);
    real32 const *Scale = &Transform.ScaleShear[0][0];
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            real32 Sum = 0;
            for (int32 K = 0; K < 3; ++K) Sum += Rotation[Row * 3 + K] * Scale[K * 3 + Column];
            Linear[Row * 3 + Column] = Sum;
        }
    }
}

void TransformVectorLinear(transform const &Transform, real32 const *Vector, real32 *Result)
{
    real32 Linear[9];
    GetTransformLinear3x3(Transform, Linear);
    real32 Out[3];
    for (int32 Row = 0; Row < 3; ++Row) {
        Out[Row] = Linear[Row * 3 + 0] * Vector[0] + Linear[Row * 3 + 1] * Vector[1] + Linear[Row * 3 + 2] * Vector[2];
    }
    memcpy(Result, Out, sizeof(Out));
}

void BuildCompositeTransform4x4(transform const &Transform, real32 *Matrix)
{
    real32 Linear[9];
    GetTransformLinear3x3(Transform, Linear);
    // Row-vector form: the transpose of the column-vector linear part.
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) Matrix[Row * 4 + Column] = Linear[Column * 3 + Row];
        Matrix[Row * 4 + 3] = 0.0f;
    }
    Matrix[12] = Transform.Position[0];
    Matrix[13] = Transform.Position[1];
    Matrix[14] = Transform.Position[2];
    Matrix[15] = 1.0f;
}

void MatrixIdentity4x4(real32 *Matrix)
{
    memset(Matrix, 0, sizeof(real32) * 16);
    Matrix[0] = Matrix[5] = Matrix[10] = Matrix[15] = 1.0f;
}

void MatrixMultiply4x4(real32 const *A, real32 const *B, real32 *Result)
{
    real32 Out[16];
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            real32 Sum = 0;
            for (int32 K = 0; K < 4; ++K) Sum += A[Row * 4 + K] * B[K * 4 + Column];
            Out[Row * 4 + Column] = Sum;
        }
    }
    memcpy(Result, Out, sizeof(Out));
}

bool MatrixInvert4x4(real32 const *Matrix, real32 *Result)
{
    // Gauss-Jordan elimination with partial pivoting, in double precision.
    real64 Work[4][8];
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            Work[Row][Column] = Matrix[Row * 4 + Column];
            Work[Row][Column + 4] = Row == Column ? 1.0 : 0.0;
        }
    }
    for (int32 Column = 0; Column < 4; ++Column) {
        int32 Pivot = Column;
        for (int32 Row = Column + 1; Row < 4; ++Row) {
            if (std::fabs(Work[Row][Column]) > std::fabs(Work[Pivot][Column])) Pivot = Row;
        }
        if (std::fabs(Work[Pivot][Column]) < 1e-30) {
            MatrixIdentity4x4(Result);
            return false;
        }
        if (Pivot != Column) {
            for (int32 K = 0; K < 8; ++K) {
                real64 Swap = Work[Column][K];
                Work[Column][K] = Work[Pivot][K];
                Work[Pivot][K] = Swap;
            }
        }
        real64 Scale = 1.0 / Work[Column][Column];
        for (int32 K = 0; K < 8; ++K) Work[Column][K] *= Scale;
        for (int32 Row = 0; Row < 4; ++Row) {
            if (Row == Column) continue;
            real64 Factor = Work[Row][Column];
            if (Factor == 0.0) continue;
            for (int32 K = 0; K < 8; ++K) Work[Row][K] -= Factor * Work[Column][K];
        }
    }
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) Result[Row * 4 + Column] = (real32)Work[Row][Column + 4];
    }
    return true;
}
