// Least-squares b-spline control points: normal equations over a banded
// matrix, factored in place by Cholesky, with phantom control points before
// the curve start folded into the first one and singular rows (control
// points that no sample touches) copying their right neighbour.
#include "animation/tessel_bspline_solver.h"

#include "animation/tessel_curve.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

#include <cmath>
#include <cstring>

namespace {

real32 const SingularPivot = 0.00001f;

intaddrx AlignTo16(intaddrx Value)
{
    return (Value + 15) & ~(intaddrx)15;
}

int32 const NormalEquationMaxDimension = 16;

// Row i of the normal matrix is A[i][i+b] = the sum over the spans i + b to
// i + D of the products of the basis weights of C[i] and C[i+b]; the
// right-hand side sums the weights of C[i] times the samples over the spans
// i to i + D. One sweep over those spans fills the row: every sum still
// receives its terms span by span and sample by sample, in the order of the
// plain loops, so the rounding is the same.
template <int D, int Dim>
void FillNormalEquations(int32 n, int32 DimensionArgument, int32 const *KnotStart, real32 const *Basis,
                         real32 const *Samples, int32 SampleCount, real32 *Band, real32 *Controls)
{
    (void)SampleCount;
    int32 const Dimension = Dim ? Dim : DimensionArgument;
    int32 const D1 = D + 1;
    for (int32 i = 0; i < n; ++i) {
        real32 Sum[4];
        real32 x[NormalEquationMaxDimension];
        for (int32 b = 0; b <= D; ++b) Sum[b] = 0.0f;
        for (int32 c = 0; c < Dimension; ++c) x[c] = 0.0f;
        for (int32 Offset = 0; Offset <= D; ++Offset) {
            int32 const Span = i + Offset;
            if (Span > n) break;
            int32 const End = KnotStart[Span + 1];
            for (int32 s = KnotStart[Span]; s < End; ++s) {
                real32 const *Row = Basis + (intaddrx)s * D1;
                real32 const Own = Row[D - Offset];
                switch (Offset) { // spelled out so that each sum stays in a register
                case 3: Sum[3] += Row[D - Offset + 3] * Own; [[fallthrough]];
                case 2: Sum[2] += Row[D - Offset + 2] * Own; [[fallthrough]];
                case 1: Sum[1] += Row[D - Offset + 1] * Own; [[fallthrough]];
                default: Sum[0] += Row[D - Offset] * Own;
                }
                real32 const *Sample = Samples + (intaddrx)s * Dimension;
                for (int32 c = 0; c < Dimension; ++c) x[c] += Own * Sample[c];
            }
        }
        real32 *A = Band + (intaddrx)i * D1;
        for (int32 b = 0; b <= D; ++b) A[b] = Sum[b];
        memcpy(Controls + (intaddrx)i * Dimension, x, sizeof(real32) * (size_t)Dimension);
    }
}

} // namespace

bspline_solver *AllocateBSplineSolver(int32 MaxDegree, int32 MaxSampleCount, int32 MaxDimension)
{
    CheckRange(MaxDegree, 0, 64, LogCategory_BSpline, 0);
    CheckRange(MaxDimension, 1, 32767, LogCategory_BSpline, 0);
    CheckRange(MaxSampleCount, 1, (1 << 24), LogCategory_BSpline, 0);
    intaddrx const d1 = MaxDegree + 1;
    intaddrx const S = MaxSampleCount;
    intaddrx const L = S * d1 + 2 * d1 + 1;
    if (S * d1 > INT32_MAX) {
        TesselError(LogCategory_BSpline, "%s %I64d is out of range for int%d %s", "S * d1", (int64)(S * d1), 32,
                    "MaxKnotCount");
        return 0;
    }
    // The scratch curve: a float b-spline of L knots.
    intaddrx const CurveBytes = (intaddrx)sizeof(curve2) + (intaddrx)sizeof(curve_data_da_k32f_c32f) +
                                L * (intaddrx)sizeof(real32) * (1 + MaxDimension);
    intaddrx Offsets[8];
    intaddrx Total = AlignTo16(sizeof(bspline_solver));
    intaddrx const Sizes[7] = {
        L * (intaddrx)sizeof(int32),                  // KnotStart
        L * (intaddrx)sizeof(real32),                 // KnotsA
        L * (intaddrx)sizeof(real32),                 // KnotsB
        L * MaxDimension * (intaddrx)sizeof(real32),  // Controls
        (S + 2 * d1) * d1 * (intaddrx)sizeof(real32), // Basis
        L * d1 * (intaddrx)sizeof(real32),            // Band
        CurveBytes,                                   // CurveBuffer
    };
    for (int32 Index = 0; Index < 7; ++Index) {
        Offsets[Index] = Total;
        Total = AlignTo16(Total + Sizes[Index]);
    }
    uint8 *Memory = (uint8 *)TesselAllocateAligned(16, Total);
    if (!Memory) return 0;
    memset(Memory, 0, (size_t)Total);
    bspline_solver *Solver = (bspline_solver *)Memory;
    Solver->MaxDegree = MaxDegree;
    Solver->MaxSampleCount = MaxSampleCount;
    Solver->MaxDimension = MaxDimension;
    Solver->MaxKnotCount = (int32)(S * d1);
    Solver->KnotStart = (int32 *)(Memory + Offsets[0]) + d1;
    Solver->KnotsA = (real32 *)(Memory + Offsets[1]) + d1;
    Solver->KnotsB = (real32 *)(Memory + Offsets[2]) + d1;
    Solver->Controls = (real32 *)(Memory + Offsets[3]);
    Solver->Basis = (real32 *)(Memory + Offsets[4]) + d1 * d1;
    Solver->Band = (real32 *)(Memory + Offsets[5]) + d1 * d1;
    Solver->CurveBuffer = Memory + Offsets[6];
    Solver->CurveBufferSize = CurveBytes > INT32_MAX ? INT32_MAX : (int32)CurveBytes;
    return Solver;
}

void FreeBSplineSolver(bspline_solver *Solver)
{
    if (Solver) TesselFree(Solver);
}

bool ComputeControlPoints(bspline_solver &Solver, int32 Dimension, int32 Degree, int32 KnotCount, real32 *Knots,
                          int32 SampleCount, real32 const *Samples, real32 *Controls)
{
    CheckRange(Degree, 0, Solver.MaxDegree, LogCategory_BSpline, false);
    CheckRange(Dimension, 1, Solver.MaxDimension, LogCategory_BSpline, false);
    CheckRange(SampleCount, 0, Solver.MaxSampleCount, LogCategory_BSpline, false);
    CheckRange(KnotCount, 0, Solver.MaxKnotCount, LogCategory_BSpline, false);
    int32 const d = Degree;
    int32 const d1 = Degree + 1;
    int32 const n = KnotCount;
    int32 *KnotStart = Solver.KnotStart;
    real32 *Basis = Solver.Basis;
    real32 *Band = Solver.Band;

    // 1. Clear the span starts and the margins of basis and band.
    memset(KnotStart, 0, sizeof(int32) * (size_t)(n + d + 2));
    memset(Basis + (intaddrx)SampleCount * d1, 0, sizeof(real32) * (size_t)(d1 * d1));
    memset(Band - d1 * d1, 0, sizeof(real32) * (size_t)(d1 * d1));
    memset(Band + (intaddrx)n * d1, 0, sizeof(real32) * (size_t)(d1 * d1));

    // 2. Extend the knots: the trailing ones repeat the last, the leading
    // ones stand at -1, -2, ...
    real32 const LastKnot = n > 0 ? Knots[n - 1] : 0.0f;
    for (int32 i = 0; i < d; ++i) {
        Knots[n + i] = LastKnot;
        Knots[-1 - i] = -(i + 1.0f);
    }
    if (n == 0) return true;

    // 3. Samples to spans: sample j belongs to the span i with
    // K[i-1] < j <= K[i].
    int32 j = 0;
    for (int32 i = 0; i < n; ++i) {
        KnotStart[i] = j;
        while (j < SampleCount && (real32)j <= Knots[i]) {
            ComputeBSplineBasis(d, Knots + i, (real32)j, Basis + (intaddrx)j * d1);
            ++j;
        }
    }
    KnotStart[n] = j;

    // 4. Phantom control points before C[0] take C[0]'s value.
    for (int32 i = 0; i <= d && i < n; ++i) {
        for (int32 s = KnotStart[i]; s < KnotStart[i + 1]; ++s) {
            real32 *Row = Basis + (intaddrx)s * d1;
            for (int32 k = 0; k < d - i; ++k) Row[k + 1] += Row[k];
        }
    }

    // 5. Normal equations and right-hand side.
    if (d <= 3 && Dimension <= NormalEquationMaxDimension) {
        typedef void (*fill_function)(int32, int32, int32 const *, real32 const *, real32 const *, int32, real32 *,
                                      real32 *);
#define TESSEL_FILL_ROW(Degree)                                                                                        \
    {                                                                                                                  \
        FillNormalEquations<Degree, 0>, FillNormalEquations<Degree, 1>, FillNormalEquations<Degree, 3>,                \
            FillNormalEquations<Degree, 4>, FillNormalEquations<Degree, 9>                                             \
    }
        static fill_function const Fill[4][5] = {TESSEL_FILL_ROW(0), TESSEL_FILL_ROW(1), TESSEL_FILL_ROW(2),
                                                 TESSEL_FILL_ROW(3)};
#undef TESSEL_FILL_ROW
        int32 const Slot = Dimension == 1 ? 1 : Dimension == 3 ? 2 : Dimension == 4 ? 3 : Dimension == 9 ? 4 : 0;
        Fill[d][Slot](n, Dimension, KnotStart, Basis, Samples, SampleCount, Band, Controls);
    } else {
        for (int32 i = 0; i < n; ++i) {
            real32 *A = Band + (intaddrx)i * d1;
            for (int32 b = 0; b <= d; ++b) {
                real32 Sum = 0.0f;
                for (int32 c = 0; c <= d - b; ++c) {
                    int32 Span = i + b + c;
                    if (Span > n) break;
                    int32 End = KnotStart[Span + 1];
                    for (int32 s = KnotStart[Span]; s < End; ++s) {
                        real32 const *Row = Basis + (intaddrx)s * d1;
                        Sum += Row[d - c] * Row[d - (b + c)];
                    }
                }
                A[b] = Sum;
            }
            real32 *x = Controls + (intaddrx)i * Dimension;
            for (int32 c = 0; c < Dimension; ++c) x[c] = 0.0f;
            for (int32 b = 0; b <= d; ++b) {
                int32 Span = i + b;
                if (Span > n) break;
                int32 End = KnotStart[Span + 1];
                for (int32 s = KnotStart[Span]; s < End; ++s) {
                    real32 Weight = Basis[(intaddrx)s * d1 + d - b];
                    real32 const *Sample = Samples + (intaddrx)s * Dimension;
                    for (int32 c = 0; c < Dimension; ++c) x[c] += Weight * Sample[c];
                }
            }
        }
    }

    // 6. Banded Cholesky in place; the diagonal keeps 1 / sqrt(pivot).
    for (int32 i = 0; i < n; ++i) {
        real32 *A = Band + (intaddrx)i * d1;
        for (int32 k = 1; k <= d; ++k) {
            real32 const *Above = A - (intaddrx)k * d1;
            real32 f = Above[k];
            for (int32 m = 0; m <= d - k; ++m) A[m] -= Above[k + m] * f;
        }
        if (A[0] > SingularPivot) {
            A[0] = 1.0f / sqrtf(A[0]);
            for (int32 m = 1; m <= d; ++m) A[m] *= A[0];
        }
    }

    // 7. Forward and backward substitution for all dimensions at once.
    for (int32 i = 0; i < n; ++i) {
        real32 const *A = Band + (intaddrx)i * d1;
        if (!(A[0] > SingularPivot)) continue;
        real32 *x = Controls + (intaddrx)i * Dimension;
        int32 Reach = (i + 1 < d1 ? i + 1 : d1);
        for (int32 k = 1; k < Reach; ++k) {
            real32 f = Band[(intaddrx)(i - k) * d1 + k];
            real32 const *Previous = Controls + (intaddrx)(i - k) * Dimension;
            for (int32 c = 0; c < Dimension; ++c) x[c] -= Previous[c] * f;
        }
        for (int32 c = 0; c < Dimension; ++c) x[c] *= A[0];
    }
    for (int32 i = n - 1; i >= 0; --i) {
        real32 const *A = Band + (intaddrx)i * d1;
        real32 *x = Controls + (intaddrx)i * Dimension;
        if (A[0] > SingularPivot) {
            int32 Reach = (n - i < d1 ? n - i : d1);
            for (int32 k = 1; k < Reach; ++k) {
                real32 const *Next = Controls + (intaddrx)(i + k) * Dimension;
                for (int32 c = 0; c < Dimension; ++c) x[c] -= Next[c] * A[k];
            }
            for (int32 c = 0; c < Dimension; ++c) x[c] *= A[0];
        } else if (i != n - 1) {
            memcpy(x, x + Dimension, sizeof(real32) * (size_t)Dimension);
        }
    }
    return true;
}

real32 QuaternionToleranceFromDegrees(real32 Degrees)
{
    real32 const Largest = 1.914088e38f;
    if (!(Degrees >= 0.0f) || Degrees > Largest) {
        TesselError(LogCategory_BSpline, "%s %f is out of range [%f, %f]", "Degrees", (real64)Degrees, 0.0,
                    (real64)Largest);
        return 0.0f;
    }
    real32 const Pi = 3.1415927f;
    real32 const HalfCircle = 180.0f;
    real32 Angle = 0.5f * Degrees * Pi / HalfCircle;
    return (real32)(1.0 - cos((real64)Angle));
}
