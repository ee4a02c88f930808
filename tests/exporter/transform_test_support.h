// Shared by the transform tests: row-vector 4x4 matrices (a point p maps to
// p M, as files store them), stored transforms composed independently of
// the exporter, and the worlds of a skeleton's bones from its locals.
#pragma once

#include <cmath>
#include <vector>

#include "format/tessel_schema.h"

struct mat
{
    double M[16];
};

inline mat Identity16()
{
    mat R = {};
    R.M[0] = R.M[5] = R.M[10] = R.M[15] = 1;
    return R;
}

inline mat FromArray(double const *V)
{
    mat R;
    for (int I = 0; I < 16; ++I) R.M[I] = V[I];
    return R;
}

// A then B.
inline mat Multiply(mat const &A, mat const &B)
{
    mat R;
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column) {
            double Sum = 0;
            for (int K = 0; K < 4; ++K) Sum += A.M[Row * 4 + K] * B.M[K * 4 + Column];
            R.M[Row * 4 + Column] = Sum;
        }
    return R;
}

inline void MapPoint(mat const &M, double const *P, double *Result)
{
    for (int A = 0; A < 3; ++A) Result[A] = P[0] * M.M[A] + P[1] * M.M[4 + A] + P[2] * M.M[8 + A] + M.M[12 + A];
}

inline double Determinant3(mat const &W)
{
    double const *M = W.M;
    return M[0] * (M[5] * M[10] - M[6] * M[9]) - M[1] * (M[4] * M[10] - M[6] * M[8]) +
           M[2] * (M[4] * M[9] - M[5] * M[8]);
}

// A stored transform as a matrix: the column-vector linear part R(q) S,
// transposed for row vectors, and the position in the last row.
inline mat FromTransform(transform const &T)
{
    double X = T.Orientation[0], Y = T.Orientation[1], Z = T.Orientation[2], W = T.Orientation[3];
    double L = std::sqrt(X * X + Y * Y + Z * Z + W * W);
    X /= L, Y /= L, Z /= L, W /= L;
    double R[3][3] = {{1 - 2 * (Y * Y + Z * Z), 2 * (X * Y - Z * W), 2 * (X * Z + Y * W)},
                      {2 * (X * Y + Z * W), 1 - 2 * (X * X + Z * Z), 2 * (Y * Z - X * W)},
                      {2 * (X * Z - Y * W), 2 * (Y * Z + X * W), 1 - 2 * (X * X + Y * Y)}};
    mat Result = {};
    for (int Row = 0; Row < 3; ++Row)
        for (int Column = 0; Column < 3; ++Column) {
            double Sum = 0;
            for (int K = 0; K < 3; ++K) Sum += R[Row][K] * T.ScaleShear[K][Column];
            Result.M[Column * 4 + Row] = Sum;
        }
    for (int A = 0; A < 3; ++A) Result.M[12 + A] = T.Position[A];
    Result.M[15] = 1;
    return Result;
}

// Each bone's world: its stored local composed with its parent's world
// (bones stand parents first).
inline std::vector<mat> ComposeBoneWorlds(skeleton const *Skeleton)
{
    std::vector<mat> World((size_t)Skeleton->BoneCount);
    for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
        bone const &Bone = Skeleton->Bones[I];
        mat Local = FromTransform(Bone.Transform);
        World[(size_t)I] = Bone.ParentIndex >= 0 ? Multiply(Local, World[(size_t)Bone.ParentIndex]) : Local;
    }
    return World;
}

// Largest deviation of stored inverse x world from the identity, the
// translation row relative to Size.
inline double InverseDeviation(bone const &Bone, mat const &World, double Size)
{
    double Largest = 0;
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column) {
            double Sum = 0;
            for (int K = 0; K < 4; ++K) Sum += World.M[Row * 4 + K] * Bone.InverseWorldTransform[K][Column];
            double Error = std::fabs(Sum - (Row == Column ? 1.0 : 0.0));
            Largest = std::fmax(Largest, Row == 3 ? Error / Size : Error);
        }
    return Largest;
}

inline double MaxDifference(mat const &A, mat const &B)
{
    double Largest = 0;
    for (int I = 0; I < 16; ++I) Largest = std::fmax(Largest, std::fabs(A.M[I] - B.M[I]));
    return Largest;
}
