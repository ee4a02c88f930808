// The numerical core of curve fitting: a block of buffers sized once per
// thread, the least-squares normal equations of a b-spline with given
// knots and their banded Cholesky solution.
#pragma once

#include "foundation/tessel_types.h"

#pragma pack(push, 4)
struct bspline_solver
{
    int32 MaxDegree;
    int32 MaxSampleCount;
    int32 MaxDimension;
    int32 MaxKnotCount; // MaxSampleCount * (MaxDegree + 1): the fit's limit on knots
    int32 *KnotStart;   // first sample of each span
    real32 *KnotsA;     // knot buffers with MaxDegree + 1 elements in front
    real32 *KnotsB;
    real32 *Controls;
    real32 *Basis; // MaxDegree + 1 weights per sample
    real32 *Band;  // rows of the normal matrix's upper band
    uint8 *CurveBuffer;
    int32 CurveBufferSize;
};
#pragma pack(pop)

// One allocation; null on failure or bad arguments.
bspline_solver *AllocateBSplineSolver(int32 MaxDegree, int32 MaxSampleCount, int32 MaxDimension);
void FreeBSplineSolver(bspline_solver *Solver);

// Least-squares control points of a curve with the given knots (in sample
// indices) through Samples. Knots must have Degree writable elements on
// either side; they are extended in place. Controls receives KnotCount
// rows of Dimension values. False (and nothing solved) when the problem
// exceeds the solver's size.
bool ComputeControlPoints(bspline_solver &Solver, int32 Dimension, int32 Degree, int32 KnotCount, real32 *Knots,
                          int32 SampleCount, real32 const *Samples, real32 *Controls);

// 1 - cos(half the angle): the 1 - dot of two unit quaternions that differ
// by Degrees.
real32 QuaternionToleranceFromDegrees(real32 Degrees);
