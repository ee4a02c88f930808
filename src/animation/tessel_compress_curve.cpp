// Curve compression. A fit places few knots (ends, creases, jumps), solves
// the control points by least squares, measures the error at every sample,
// splits each knot span that holds an error above the tolerance at its
// middle and repeats until nothing can be split. The plain float fit comes
// first; every other allowed format runs the same loop and the smallest
// curve that meets the tolerance wins. Time is in sample indices during a
// fit and in seconds in the curve that is returned.
#include "animation/tessel_compress_curve.h"

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

#include <cmath>
#include <cstring>

namespace {

real32 const LargestReal = 1.914088e38f; // bit pattern 0x7F0FFFFF

inline real32 SquaredError(uint32 SolverFlags, int32 Dimension, real32 const *Sample, real32 const *Value)
{
    if (SolverFlags & SolverNormalized) {
        real32 Dot = 0.0f;
        for (int32 c = 0; c < Dimension; ++c) Dot += Sample[c] * Value[c];
        real32 e = 1.0f - Dot;
        return e * e;
    }
    real32 Sum = 0.0f;
    for (int32 c = 0; c < Dimension; ++c) {
        real32 d = Sample[c] - Value[c];
        Sum += d * d;
    }
    return Sum;
}

// Evaluation of one curve at many times in increasing order. A quantised
// curve is decoded once into a float b-spline over the solver's scratch
// buffer; the knot search still runs on the stored curve, with the last
// answer as its hint. Element by element the decoded values are the ones a
// single evaluation would extract, so every result is the same.
struct curve_sampler
{
    curve2 const *Source;
    curve2 View;
    curve_data_da_k32f_c32f Record;
    int32 Dimension;
    bool Normalize;
    real32 Duration;
    real32 const *IdentityVector;
    int32 Hint;
    // The float b-spline that SampleCurve would read in place, when there
    // is one: spans whose knot range lies inside it go straight to
    // SampleBSpline, as SampleCurve would send them.
    real32 const *FloatKnots;
    real32 const *FloatControls;
    int32 FloatKnotCount;
    int32 Degree;
};

void FindFloatSpline(curve_sampler &Sampler)
{
    Sampler.FloatKnots = 0;
    curve2 const &View = Sampler.View;
    if (CurveGetFormat(View) != CurveFormat_DaK32fC32f || CurveIsConstantOrIdentity(View) || CurveIsKeyframed(View) ||
        CurveGetDimension(View) != Sampler.Dimension || CurveGetDegree(View) > CurveMaxDegree) {
        return;
    }
    curve_data_da_k32f_c32f const &R = *(curve_data_da_k32f_c32f const *)View.CurveData.Object;
    Sampler.FloatKnots = R.Knots;
    Sampler.FloatControls = R.Controls;
    Sampler.FloatKnotCount = R.KnotCount;
    Sampler.Degree = CurveGetDegree(View);
}

void BeginSampling(curve_sampler &Sampler, curve2 const &Curve, uint32 SolverFlags, int32 Dimension, real32 Duration,
                   real32 const *IdentityVector, bspline_solver *Scratch)
{
    Sampler.Source = &Curve;
    Sampler.View = Curve;
    Sampler.Dimension = Dimension;
    Sampler.Normalize = (SolverFlags & SolverNormalized) != 0;
    Sampler.Duration = Duration;
    Sampler.IdentityVector = IdentityVector;
    Sampler.Hint = -1;
    FindFloatSpline(Sampler);
    int32 const Format = CurveGetFormat(Curve);
    int32 const KnotCount = CurveGetKnotCount(Curve);
    if (!Scratch || Format <= CurveFormat_DaK32fC32f || KnotCount < 2 || CurveIsConstantOrIdentity(Curve) ||
        CurveIsKeyframed(Curve) || CurveGetDimension(Curve) != Dimension ||
        (intaddrx)KnotCount * (Dimension + 1) * (intaddrx)sizeof(real32) > Scratch->CurveBufferSize) {
        return;
    }
    real32 *Knots = (real32 *)Scratch->CurveBuffer;
    real32 *Controls = Knots + KnotCount;
    CurveExtractKnotValues(Curve, 0, KnotCount, Knots, Controls, IdentityVector);
    memset(&Sampler.Record, 0, sizeof(Sampler.Record));
    Sampler.Record.CurveDataHeader.Format = CurveFormat_DaK32fC32f;
    Sampler.Record.CurveDataHeader.Degree = (uint8)CurveGetDegree(Curve);
    Sampler.Record.KnotCount = KnotCount;
    Sampler.Record.Knots = Knots;
    Sampler.Record.ControlCount = KnotCount * Dimension;
    Sampler.Record.Controls = Controls;
    Sampler.View.CurveData.Type = CurveDataDaK32fC32fType;
    Sampler.View.CurveData.Object = &Sampler.Record;
    FindFloatSpline(Sampler);
}

// The squared error of the curve at time t against Sample.
inline real32 SampleError(uint32 SolverFlags, curve_sampler &Sampler, real32 t, real32 const *Sample,
                          int32 *KnotIndexOut = 0)
{
    real32 Value[CurveMaxDimension];
    int32 KnotIndex = CurveFindCloseKnot(*Sampler.Source, t, Sampler.Hint);
    Sampler.Hint = KnotIndex;
    int32 const First = KnotIndex - Sampler.Degree;
    if (Sampler.FloatKnots && First >= 0 && KnotIndex + Sampler.Degree <= Sampler.FloatKnotCount) {
        SampleBSpline(Sampler.Degree, Sampler.Dimension, Sampler.Normalize, Sampler.FloatKnots + First,
                      Sampler.FloatControls + (intaddrx)First * Sampler.Dimension, t, Value);
    } else {
        SampleCurve(Sampler.Dimension, Sampler.Normalize, Sampler.View, Sampler.Duration, KnotIndex, t, Value,
                    Sampler.IdentityVector);
    }
    if (KnotIndexOut) *KnotIndexOut = KnotIndex;
    return SquaredError(SolverFlags, Sampler.Dimension, Sample, Value);
}

void PinEndpoints(uint32 SolverFlags, int32 KnotCount, int32 Dimension, real32 *Controls, real32 const *Samples,
                  int32 SampleCount)
{
    if (!(SolverFlags & SolverPinEndpoints) || KnotCount <= 0 || SampleCount <= 0) return;
    memcpy(Controls, Samples, sizeof(real32) * (size_t)Dimension);
    memcpy(Controls + (intaddrx)(KnotCount - 1) * Dimension, Samples + (intaddrx)(SampleCount - 1) * Dimension,
           sizeof(real32) * (size_t)Dimension);
}

curve2 *BuildCurve(data_type_definition *Format, int32 Degree, int32 Dimension, int32 KnotCount, real32 const *Knots,
                   real32 const *Controls, int32 SampleCount, real32 const *Samples)
{
    curve_builder Builder;
    BeginCurveInPlace(Builder, Format, Degree, Dimension, KnotCount);
    if (Knots) PushCurveKnotArray(Builder, Knots);
    if (Controls) PushCurveControlArray(Builder, Controls);
    if (Samples) PushCurveSampleArrays(Builder, SampleCount, Dimension, Samples, Samples);
    return EndCurve(&Builder);
}

// A one-value curve: the identity (no data) or a constant.
curve2 *BuildReducedCurve(compress_curve_parameters const &Params, int32 Dimension, int32 KnotCount,
                          real32 const *Value)
{
    if (KnotCount == 0 && Params.IdentityType) {
        return BuildCurve(Params.IdentityType, 0, Dimension, 0, 0, 0, 0, 0);
    }
    // Without an identity format the identity is kept as a constant.
    real32 Zero[CurveMaxDimension] = {};
    real32 const *Constant = Value ? Value : (Params.IdentityVector ? Params.IdentityVector : Zero);
    return BuildCurve(Params.ConstantType, 0, Dimension, 1, 0, Constant, 0, 0);
}

bool SamplesAreByteEqual(real32 const *Samples, int32 Dimension, int32 SampleCount)
{
    size_t const Bytes = sizeof(real32) * (size_t)Dimension;
    for (int32 j = 1; j < SampleCount; ++j) {
        if (memcmp(Samples, Samples + (intaddrx)j * Dimension, Bytes) != 0) return false;
    }
    return true;
}

int32 InsertKnot(real32 *Knots, int32 KnotCount, real32 Value)
{
    int32 Position = KnotCount;
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        if (Knots[Index] > Value) {
            Position = Index;
            break;
        }
    }
    memmove(Knots + Position + 1, Knots + Position, sizeof(real32) * (size_t)(KnotCount - Position));
    Knots[Position] = Value;
    return KnotCount + 1;
}

} // namespace

bool CompressionParamsAreValid(compress_curve_parameters const &Params, uint32 SolverFlags)
{
    if (Params.Degree < 0) return false;
    if (!(Params.ErrorTolerance >= 0.0f)) return false;
    if ((SolverFlags & SolverAllowJumps) && !(Params.JumpThreshold >= 0.0f)) return false;
    if ((SolverFlags & SolverAllowCreases) && !(Params.CreaseThreshold >= 0.0f)) return false;
    if (Params.CompressionTypeCount < 0) return false;
    if (Params.CompressionTypeCount > 0 && !Params.CompressionTypes) return false;
    for (int32 Index = 0; Index < Params.CompressionTypeCount; ++Index) {
        if (!Params.CompressionTypes[Index]) return false;
    }
    if (Params.IdentityType && !Params.IdentityVector) return false;
    return true;
}

bool CurveIsReducible(uint32 SolverFlags, int32 Dimension, int32 Count, real32 const *Values,
                      real32 const *IdentityVector, real32 Tolerance, int32 &Degree, int32 &KnotCount)
{
    CheckRange(Dimension, 1, (int32)CurveMaxDimension, LogCategory_Compression, false);
    if (Count <= 0 || !Values) return false;
    real32 const Zero[CurveMaxDimension] = {};
    real32 const *Identity = IdentityVector ? IdentityVector : Zero;
    real32 ConstantError = 0.0f;
    real32 IdentityError = 0.0f;
    bool const Normalized = (SolverFlags & SolverNormalized) != 0;
    for (int32 Index = 0; Index < Count; ++Index) {
        real32 const *Value = Values + (intaddrx)Index * Dimension;
        real32 ToFirst, ToIdentity;
        if (Normalized) {
            real32 DotFirst = 0.0f, DotIdentity = 0.0f;
            for (int32 c = 0; c < Dimension; ++c) {
                DotFirst += Value[c] * Values[c];
                DotIdentity += Value[c] * Identity[c];
            }
            ToFirst = fabsf(1.0f - DotFirst);
            ToIdentity = fabsf(1.0f - DotIdentity);
        } else {
            real32 SumFirst = 0.0f, SumIdentity = 0.0f;
            for (int32 c = 0; c < Dimension; ++c) {
                real32 a = Value[c] - Values[c];
                real32 b = Value[c] - Identity[c];
                SumFirst += a * a;
                SumIdentity += b * b;
            }
            ToFirst = sqrtf(SumFirst);
            ToIdentity = sqrtf(SumIdentity);
        }
        // A NaN makes the distance unknown: nothing reduces then.
        if (!(ToFirst <= ConstantError)) ConstantError = ToFirst == ToFirst ? ToFirst : INFINITY;
        if (!(ToIdentity <= IdentityError)) IdentityError = ToIdentity == ToIdentity ? ToIdentity : INFINITY;
    }
    if (!IdentityVector) IdentityError = LargestReal;
    if (IdentityError < Tolerance) {
        Degree = 0;
        KnotCount = 0;
        return true;
    }
    if (ConstantError < Tolerance) {
        Degree = 0;
        KnotCount = 1;
        return true;
    }
    return false;
}

void MeasureCurveError(uint32 SolverFlags, int32 Degree, int32 Dimension, real32 Duration, curve2 const &Curve,
                       int32 SampleCount, real32 const *Samples, real32 const *IdentityVector,
                       curve_error_report *Result, bspline_solver *Scratch)
{
    (void)Degree;
    CheckPointer(Result, LogCategory_Compression, TESSEL_NOTHING);
    Result->KnotIndex = -1;
    Result->SampleIndex = -1;
    Result->MaxSquaredError = 0.0f;
    Result->SumSquaredError = 0.0f;
    if (Dimension <= 0 || Dimension > CurveMaxDimension || SampleCount <= 0 || !Samples) return;
    real32 const Step = SampleCount > 1 ? Duration / (real32)(SampleCount - 1) : 0.0f;
    curve_sampler Sampler;
    BeginSampling(Sampler, Curve, SolverFlags, Dimension, Duration, IdentityVector, Scratch);
    for (int32 j = 0; j < SampleCount; ++j) {
        int32 KnotIndex = 0;
        real32 e = SampleError(SolverFlags, Sampler, (real32)j * Step, Samples + (intaddrx)j * Dimension, &KnotIndex);
        Result->SumSquaredError += e;
        if (e > Result->MaxSquaredError) {
            Result->MaxSquaredError = e;
            Result->KnotIndex = KnotIndex;
            Result->SampleIndex = j;
        }
    }
}

int32 PlaceInitialKnots(uint32 SolverFlags, int32 Degree, real32 JumpThreshold, real32 CreaseThreshold, int32 KnotCount,
                        real32 *Knots, int32 MaxKnots, real32 const *Samples, int32 Dimension, int32 SampleCount)
{
    if (SolverFlags & SolverSeedStartKnots) {
        for (int32 v = Degree - 1; v >= 1 && KnotCount < MaxKnots; --v) {
            Knots[0] = 0.125f * (real32)v;
            memmove(Knots + 1, Knots, sizeof(real32) * (size_t)KnotCount);
            ++KnotCount;
            Knots[0] = 0.0f;
        }
    }
    bool const Creases = (SolverFlags & SolverAllowCreases) != 0;
    bool const Jumps = (SolverFlags & SolverAllowJumps) != 0;
    if (!Creases && !Jumps) return KnotCount;
    real32 const CreaseLimit = CreaseThreshold * CreaseThreshold;
    real32 const JumpLimit = JumpThreshold * JumpThreshold;
    for (int32 i = 1; i + 1 < SampleCount; ++i) {
        real32 const *Previous = Samples + (intaddrx)(i - 1) * Dimension;
        real32 const *Current = Previous + Dimension;
        real32 const *Next = Current + Dimension;
        real32 Crease = 0.0f, JumpBefore = 0.0f, JumpAfter = 0.0f;
        for (int32 c = 0; c < Dimension; ++c) {
            real32 Second = 2.0f * Current[c] - (Previous[c] + Next[c]);
            real32 Before = Current[c] - Previous[c];
            real32 After = Next[c] - Current[c];
            Crease += Second * Second;
            JumpBefore += Before * Before;
            JumpAfter += After * After;
        }
        real32 Jump = JumpBefore > JumpAfter ? JumpBefore : JumpAfter;
        int32 Multiplicity = 0;
        if (Creases && Crease > CreaseLimit) Multiplicity = Degree;
        if (Jumps && Jump > JumpLimit) Multiplicity = Degree + 1;
        for (int32 m = 0; m < Multiplicity && KnotCount < MaxKnots; ++m) {
            KnotCount = InsertKnot(Knots, KnotCount, (real32)i);
        }
    }
    return KnotCount;
}

bool RefineKnots(uint32 SolverFlags, int32 &KnotCount, real32 *NewKnots, int32 MaxKnots, curve2 const &Curve,
                 real32 *Knots, real32 ErrorTolerance, int32 Dimension, int32 SampleCount, real32 const *Samples,
                 bool &Failed, bspline_solver *Scratch)
{
    Failed = false;
    bool Added = false;
    int32 const n = CurveGetKnotCount(Curve);
    if (n != KnotCount) return false;
    CurveExtractKnotValues(Curve, 0, n, Knots, 0, 0);
    real32 const Limit = ErrorTolerance * ErrorTolerance;
    real32 const Duration = (real32)(SampleCount - 1);
    real32 Worst = Limit;
    int32 SplitKnot = -1;
    int64 Emitted = 0;
    curve_sampler Sampler;
    BeginSampling(Sampler, Curve, SolverFlags, Dimension, Duration, 0, Scratch);
    int32 k = 0;
    // Once the current span is to be split, or has failed, the rest of its
    // samples can change nothing: the failure tests depend on the span
    // alone, and the split point is the span's middle. They are skipped.
    bool SpanSettled = false;
    for (int32 Sample = 1; Sample < SampleCount; ++Sample) {
        real32 const t = (real32)Sample;
        while (k < n && Knots[k] <= t) {
            if (SplitKnot >= 0) {
                NewKnots[Emitted++] = (Knots[SplitKnot] + Knots[SplitKnot - 1]) * 0.5f;
                SplitKnot = -1;
                Added = true;
                Worst = Limit;
            }
            NewKnots[Emitted++] = Knots[k++];
            SpanSettled = false;
        }
        if (k > 0 && k < n && !SpanSettled) {
            Sampler.Hint = k;
            real32 e = SampleError(SolverFlags, Sampler, t, Samples + (intaddrx)Sample * Dimension);
            if (e > Worst) {
                real32 MinGap = 3.0f;
                if (k < 2 || Knots[k - 2] == Knots[k - 1]) MinGap = 6.0f;
                if (Knots[k] - Knots[k - 1] < MinGap || t == Knots[k] || Emitted + (n - k) >= MaxKnots) {
                    Failed = true;
                } else {
                    SplitKnot = k;
                    Worst = e;
                }
                SpanSettled = true;
            }
        }
    }
    if (SplitKnot >= 0 && k < n) {
        NewKnots[Emitted++] = (Knots[SplitKnot] + Knots[SplitKnot - 1]) * 0.5f;
        Added = true;
    }
    while (k < n) NewKnots[Emitted++] = Knots[k++];
    if (Emitted > INT32_MAX) {
        TesselError(LogCategory_Compression, "%s %I64d is out of range for int%d %s", "NumNewKnots", Emitted, 32,
                    "*KnotCount");
        return false;
    }
    KnotCount = (int32)Emitted;
    return Added;
}

curve2 *EliminateKnots(bspline_solver &Solver, uint32 SolverFlags, int32 Degree, real32 ErrorTolerance,
                       curve2 const &Curve, real32 const *Samples, int32 Dimension, int32 SampleCount)
{
    int32 i = (SolverFlags & SolverSeedStartKnots) ? 2 : 1;
    int32 KnotCount = CurveGetKnotCount(Curve);
    if (KnotCount > Solver.MaxKnotCount) return 0;
    real32 *Knots = Solver.KnotsA;
    real32 *Trial = Solver.KnotsB;
    CurveExtractKnotValues(Curve, 0, KnotCount, Knots, 0, 0);
    data_type_definition *Format = Curve.CurveData.Type;
    real32 const Limit = ErrorTolerance * ErrorTolerance;
    real32 const Duration = (real32)(SampleCount - 1);
    curve2 *Best = 0;
    while (i < KnotCount - 1 && KnotCount >= 4) {
        memcpy(Trial, Knots, sizeof(real32) * (size_t)i);
        memcpy(Trial + i, Knots + i + 1, sizeof(real32) * (size_t)(KnotCount - i - 1));
        ComputeControlPoints(Solver, Dimension, Degree, KnotCount - 1, Trial, SampleCount, Samples, Solver.Controls);
        PinEndpoints(SolverFlags, KnotCount - 1, Dimension, Solver.Controls, Samples, SampleCount);
        curve2 *Candidate =
            BuildCurve(Format, Degree, Dimension, KnotCount - 1, Trial, Solver.Controls, SampleCount, Samples);
        if (!Candidate) break;
        curve_error_report Report;
        MeasureCurveError(SolverFlags, Degree, Dimension, Duration, *Candidate, SampleCount, Samples, 0, &Report,
                          &Solver);
        if (!(Report.MaxSquaredError <= Limit)) {
            FreeCurve(Candidate);
            ++i;
        } else {
            FreeCurve(Best);
            Best = Candidate;
            real32 *Swap = Knots;
            Knots = Trial;
            Trial = Swap;
            --KnotCount;
        }
    }
    ComputeControlPoints(Solver, Dimension, Degree, KnotCount, Knots, SampleCount, Samples, Solver.Controls);
    PinEndpoints(SolverFlags, KnotCount, Dimension, Solver.Controls, Samples, SampleCount);
    return Best;
}

curve2 *FitBSpline(bspline_solver &Solver, uint32 SolverFlags, int32 Degree, real32 ErrorTolerance,
                   real32 JumpThreshold, real32 CreaseThreshold, real32 const *Samples, int32 Dimension,
                   int32 SampleCount, real32 TimeStep, data_type_definition *CurveFormat, int32 SizeLimit,
                   uint8 *AchievedTolerance, int32 *ResultingSize)
{
    uint8 Achieved = 0;
    int32 Size = -1;
    curve2 *Result = 0;
    if (AchievedTolerance) *AchievedTolerance = 0;
    if (ResultingSize) *ResultingSize = -1;
    CheckPointer(Samples, LogCategory_Compression, 0);
    CheckRange(Degree, 0, Solver.MaxDegree, LogCategory_Compression, 0);
    CheckRange(Dimension, 1, (Solver.MaxDimension < CurveMaxDimension ? Solver.MaxDimension : CurveMaxDimension),
               LogCategory_Compression, 0);
    CheckRange(SampleCount, 1, Solver.MaxSampleCount, LogCategory_Compression, 0);

    // 1. The working copy, given to the format's hook.
    intaddrx const ValueCount = (intaddrx)SampleCount * Dimension;
    real32 *Work = TesselAllocateArray(real32, ValueCount);
    if (!Work) return 0;
    memcpy(Work, Samples, sizeof(real32) * (size_t)ValueCount);
    if (!CurveFormat) CurveFormat = CurveDataDaK32fC32fType;
    int32 const FormatIndex = CurveFormatFromType(CurveFormat);
    if (FormatIndex >= 0) CurveFormatOperations[FormatIndex].PreprocessSamples(Dimension, SampleCount, Work);
    Achieved = 1;

    // 2. Initial knots, in sample indices.
    real32 *Knots = Solver.KnotsA;
    real32 *NewKnots = Solver.KnotsB;
    real32 *Controls = Solver.Controls;
    int32 const MaxKnots = Solver.MaxKnotCount;
    int32 KnotCount = 2;
    Knots[0] = 0.0f;
    Knots[1] = (real32)(SampleCount - 1);
    KnotCount = PlaceInitialKnots(SolverFlags, Degree, JumpThreshold, CreaseThreshold, KnotCount, Knots, MaxKnots, Work,
                                  Dimension, SampleCount);
    if (KnotCount == 2) {
        KnotCount = Degree == 0 ? 2 : Degree + 1;
        real32 const Spacing = (real32)(SampleCount - 1) / (real32)(KnotCount - 1);
        for (int32 i = 0; i < KnotCount; ++i) Knots[i] = (real32)i * Spacing;
    }

    // 3. Solve, build, measure and split until nothing can be split.
    curve2 *Curve = 0;
    bool Failed = false;
    for (;;) {
        ComputeControlPoints(Solver, Dimension, Degree, KnotCount, Knots, SampleCount, Work, Controls);
        PinEndpoints(SolverFlags, KnotCount, Dimension, Controls, Work, SampleCount);
        Curve = BuildCurve(CurveFormat, Degree, Dimension, KnotCount, Knots, Controls, SampleCount, Work);
        if (!Curve) {
            TesselFree(Work);
            return 0;
        }
        Size = GetCurveSize(*Curve);
        if ((SizeLimit > 0 && SizeLimit < Size) || KnotCount >= MaxKnots) {
            Achieved = 0;
            Size = -1;
            Failed = false;
            break;
        }
        int32 NewCount = KnotCount;
        bool Added = RefineKnots(SolverFlags, NewCount, NewKnots, MaxKnots, *Curve, Knots, ErrorTolerance, Dimension,
                                 SampleCount, Work, Failed, &Solver);
        if (!Added) {
            if (Failed) {
                Achieved = 0;
                Size = -1;
            }
            break;
        }
        real32 *Swap = Knots;
        Knots = NewKnots;
        NewKnots = Swap;
        KnotCount = NewCount;
        FreeCurve(Curve);
        Curve = 0;
    }

    // 4. Optional knot removal.
    if ((SolverFlags & SolverEliminateKnots) && Achieved) {
        curve2 *Reduced =
            EliminateKnots(Solver, SolverFlags, Degree, ErrorTolerance, *Curve, Work, Dimension, SampleCount);
        if (Reduced) {
            FreeCurve(Curve);
            Curve = Reduced;
            Size = GetCurveSize(*Curve);
        }
    }

    // 5. The final curve in seconds, from the knots as the format stores them.
    KnotCount = CurveGetKnotCount(*Curve);
    CurveExtractKnotValues(*Curve, 0, KnotCount, Knots, 0, 0);
    for (int32 i = 0; i < KnotCount; ++i) Knots[i] *= TimeStep;
    FreeCurve(Curve);
    Result = BuildCurve(CurveFormat, Degree, Dimension, KnotCount, Knots, Controls, SampleCount, Work);
    TesselFree(Work);
    if (!Result) {
        Achieved = 0;
        Size = -1;
    }
    if (AchievedTolerance) *AchievedTolerance = Achieved;
    if (ResultingSize) *ResultingSize = Size;
    return Result;
}

curve2 *CompressCurve(bspline_solver &Solver, uint32 SolverFlags, compress_curve_parameters const &Params,
                      real32 const *Samples, int32 Dimension, int32 SampleCount, real32 TimeStep,
                      uint8 *AchievedTolerance)
{
    if (!CompressionParamsAreValid(Params, SolverFlags)) {
        TesselError(LogCategory_Compression, "%s was not true", "CompressionParamsAreValid(Params, SolverFlags)");
        return 0;
    }
    CheckRange(Dimension, 1, (Solver.MaxDimension < CurveMaxDimension ? Solver.MaxDimension : CurveMaxDimension),
               LogCategory_Compression, 0);
    CheckRange(SampleCount, 0, Solver.MaxSampleCount, LogCategory_Compression, 0);
    CheckRange(Params.Degree, 0, Solver.MaxDegree, LogCategory_Compression, 0);
    if (SampleCount > 0) CheckPointer(Samples, LogCategory_Compression, 0);
    real32 const Tolerance = Params.ErrorTolerance;

    // One sample or none: the identity or a constant.
    if (SampleCount < 2) {
        int32 Degree = 0;
        int32 KnotCount = 1;
        if (SampleCount == 0) {
            KnotCount = 0;
        } else {
            CurveIsReducible(SolverFlags, Dimension, SampleCount, Samples, Params.IdentityVector, Tolerance, Degree,
                             KnotCount);
        }
        return BuildReducedCurve(Params, Dimension, KnotCount, SampleCount ? Samples : 0);
    }

    real32 const Duration = TimeStep * (real32)(SampleCount - 1);
    uint8 BaseAchieved = 0;
    curve2 *Best =
        FitBSpline(Solver, SolverFlags, Params.Degree, Tolerance, Params.JumpThreshold, Params.CreaseThreshold, Samples,
                   Dimension, SampleCount, TimeStep, CurveDataDaK32fC32fType, 0, &BaseAchieved, 0);
    if (!Best) return 0;
    int32 Degree = CurveGetDegree(*Best);
    int32 KnotCount = CurveGetKnotCount(*Best);

    if (Params.AllowReduction) {
        curve_data_da_k32f_c32f const &Plain = *(curve_data_da_k32f_c32f const *)Best->CurveData.Object;
        if (!CurveIsReducible(SolverFlags, Dimension, KnotCount, Plain.Controls, Params.IdentityVector, Tolerance,
                              Degree, KnotCount) &&
            SamplesAreByteEqual(Samples, Dimension, SampleCount)) {
            Degree = 0;
            KnotCount = 1;
        }
    }
    if (KnotCount <= 1) {
        FreeCurve(Best);
        if (AchievedTolerance) *AchievedTolerance = 1;
        return BuildReducedCurve(Params, Dimension, KnotCount, Samples);
    }

    int32 const PlainSize = GetCurveSize(*Best);
    int32 BestSize = PlainSize;
    // The plain fit's error only matters to the missed-tolerance rule.
    curve_error_report PlainError = {-1, -1, 0.0f, 0.0f};
    if (!BaseAchieved && Params.AllowReductionOnMissedTolerance) {
        MeasureCurveError(SolverFlags, Degree, Dimension, Duration, *Best, SampleCount, Samples, Params.IdentityVector,
                          &PlainError, &Solver);
    }

    for (int32 Index = 0; Index < Params.CompressionTypeCount; ++Index) {
        data_type_definition *Format = Params.CompressionTypes[Index];
        if (CurveFormatFromType(Format) == CurveFormat_DaK32fC32f) continue;
        uint8 Met = 0;
        curve2 *Candidate =
            FitBSpline(Solver, SolverFlags, Params.Degree, Tolerance, Params.JumpThreshold, Params.CreaseThreshold,
                       Samples, Dimension, SampleCount, TimeStep, Format, BestSize, &Met, 0);
        if (!Candidate) continue;
        int32 const Size = GetCurveSize(*Candidate);
        if (Met && Size < BestSize) {
            // The fit ran in sample units; the final curve's knots were
            // quantised again in seconds, which can move an 8-bit knot by a
            // step. What counts is the curve that is returned.
            curve_error_report Error;
            MeasureCurveError(SolverFlags, Params.Degree, Dimension, Duration, *Candidate, SampleCount, Samples,
                              Params.IdentityVector, &Error, &Solver);
            if (!(Error.MaxSquaredError <= Tolerance * Tolerance)) Met = 0;
        }
        if (!Met && Params.AllowReductionOnMissedTolerance && !BaseAchieved && Size < BestSize && PlainSize > 0) {
            curve_error_report Error;
            MeasureCurveError(SolverFlags, Params.Degree, Dimension, Duration, *Candidate, SampleCount, Samples,
                              Params.IdentityVector, &Error, &Solver);
            real32 const r = (real32)Size / (real32)PlainSize;
            if (sqrtf(Error.MaxSquaredError) <= sqrtf(PlainError.MaxSquaredError) * (2.0f - r)) Met = 1;
        }
        if (Met && Size < BestSize) {
            FreeCurve(Best);
            Best = Candidate;
            BestSize = Size;
        } else {
            FreeCurve(Candidate);
        }
    }
    if (AchievedTolerance) *AchievedTolerance = BaseAchieved;
    return Best;
}
