// Curve formats and the b-spline solver.
#include "animation/tessel_bspline_solver.h"
#include "animation/tessel_curve.h"
#include "support/test_log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <vector>

namespace {

curve2 *MakeCurve(data_type_definition *Type, int32 Degree, int32 Dimension, std::vector<real32> const &Knots,
                  std::vector<real32> const &Controls)
{
    curve_builder Builder;
    BeginCurveInPlace(Builder, Type, Degree, Dimension, (int32)Knots.size());
    PushCurveKnotArray(Builder, Knots.data());
    PushCurveControlArray(Builder, Controls.data());
    return EndCurve(&Builder);
}

std::vector<real32> Evaluate(curve2 const &Curve, int32 Dimension, bool Normalize, real32 t)
{
    std::vector<real32> Value(Dimension);
    EvaluateCurve(Dimension, Normalize, Curve, 1.0f, t, Value.data(), 0);
    return Value;
}

real32 Distance(std::vector<real32> const &A, std::vector<real32> const &B)
{
    real32 Sum = 0.0f;
    for (size_t c = 0; c < A.size(); ++c) Sum += (A[c] - B[c]) * (A[c] - B[c]);
    return sqrtf(Sum);
}

// Knots in seconds from 0, with a doubled interior knot.
std::vector<real32> RandomKnots(std::mt19937 &Random, int32 Count)
{
    std::uniform_real_distribution<real32> Step(0.05f, 0.4f);
    std::vector<real32> Knots(Count);
    Knots[0] = 0.0f;
    for (int32 i = 1; i < Count; ++i) Knots[i] = Knots[i - 1] + Step(Random);
    if (Count > 4) Knots[Count / 2] = Knots[Count / 2 - 1];
    return Knots;
}

// Controls that a format can hold exactly apart from its rounding.
std::vector<real32> RepresentableControls(std::mt19937 &Random, int32 Format, int32 Dimension, int32 Count)
{
    std::uniform_real_distribution<real32> Value(-3.0f, 3.0f);
    std::vector<real32> Controls(Count * Dimension, 0.0f);
    real32 Axis[3] = {Value(Random), Value(Random), Value(Random)};
    for (int32 i = 0; i < Count; ++i) {
        real32 *C = &Controls[i * Dimension];
        switch (Format) {
        case CurveFormat_D4nK16uC15u:
        case CurveFormat_D4nK8uC7u: {
            real32 Length = 0.0f;
            for (int32 c = 0; c < 4; ++c) {
                C[c] = Value(Random) + (c == 3 ? 4.0f : 0.0f);
                Length += C[c] * C[c];
            }
            for (int32 c = 0; c < 4; ++c) C[c] /= sqrtf(Length);
        } break;
        case CurveFormat_D9I1K16uC16u:
        case CurveFormat_D9I1K8uC8u: C[0] = C[4] = C[8] = Value(Random); break;
        case CurveFormat_D9I3K16uC16u:
        case CurveFormat_D9I3K8uC8u:
            C[0] = Value(Random);
            C[4] = Value(Random);
            C[8] = Value(Random);
            break;
        case CurveFormat_D3I1K32fC32f:
        case CurveFormat_D3I1K16uC16u:
        case CurveFormat_D3I1K8uC8u: {
            real32 u = Value(Random);
            for (int32 c = 0; c < 3; ++c) C[c] = 1.0f + Axis[c] * u;
        } break;
        default:
            for (int32 c = 0; c < Dimension; ++c) C[c] = Value(Random);
        }
    }
    return Controls;
}

// The largest error rounding may cause in one evaluation of a format.
real32 QuantisationBound(int32 Format, int32 Dimension, std::vector<real32> const &Controls)
{
    real32 Levels = 1.0f;
    switch (Format) {
    case CurveFormat_DaK16uC16u:
    case CurveFormat_D3K16uC16u:
    case CurveFormat_D9I1K16uC16u:
    case CurveFormat_D9I3K16uC16u:
    case CurveFormat_D3I1K16uC16u: Levels = 65535.0f; break;
    case CurveFormat_DaK8uC8u:
    case CurveFormat_D3K8uC8u:
    case CurveFormat_D9I1K8uC8u:
    case CurveFormat_D9I3K8uC8u:
    case CurveFormat_D3I1K8uC8u: Levels = 255.0f; break;
    case CurveFormat_D4nK16uC15u: return 4.0f * 1.4142135f / 32767.0f;
    case CurveFormat_D4nK8uC7u: return 4.0f * 1.4142135f / 127.0f;
    default: return 1e-5f;
    }
    real32 Range = 0.0f;
    int32 Count = (int32)Controls.size() / Dimension;
    for (int32 c = 0; c < Dimension; ++c) {
        real32 Min = Controls[c], Max = Controls[c];
        for (int32 i = 1; i < Count; ++i) {
            Min = fminf(Min, Controls[i * Dimension + c]);
            Max = fmaxf(Max, Controls[i * Dimension + c]);
        }
        Range += (Max - Min) * (Max - Min);
    }
    return sqrtf(Range) / Levels + 1e-5f;
}

struct format_case
{
    int32 Format;
    int32 Dimension;
};

std::vector<format_case> SplineFormatCases()
{
    std::vector<format_case> Cases;
    for (int32 Format = CurveFormat_DaK32fC32f; Format < CurveFormatCount; ++Format) {
        if (Format >= CurveFormat_DaIdentity && Format <= CurveFormat_D4Constant32f) continue;
        if (Format == CurveFormat_DaK32fC32f || Format == CurveFormat_DaK16uC16u || Format == CurveFormat_DaK8uC8u) {
            for (int32 Dimension : {1, 2, 3, 4, 9, 12}) Cases.push_back({Format, Dimension});
        } else {
            int32 Dimension = (Format == 8 || Format == 9) ? 4 : (Format >= 12 && Format <= 15) ? 9 : 3;
            Cases.push_back({Format, Dimension});
        }
    }
    return Cases;
}

} // namespace

TEST(CurveFormats, EveryFormatRoundTripsWithinItsQuantisationStep)
{
    std::mt19937 Random(7);
    for (format_case const &Case : SplineFormatCases()) {
        for (int32 Degree = 0; Degree <= 3; ++Degree) {
            SCOPED_TRACE(std::string(CurveFormatOperations[Case.Format].Name) + " dimension " +
                         std::to_string(Case.Dimension) + " degree " + std::to_string(Degree));
            std::vector<real32> Knots = RandomKnots(Random, 12);
            std::vector<real32> Controls = RepresentableControls(Random, Case.Format, Case.Dimension, 12);
            curve2 *Quantised = MakeCurve(CurveFormatTypes[Case.Format], Degree, Case.Dimension, Knots, Controls);
            ASSERT_TRUE(Quantised);
            EXPECT_EQ(CurveGetFormat(*Quantised), Case.Format);
            EXPECT_EQ(CurveGetDimension(*Quantised), Case.Dimension);
            ASSERT_EQ(CurveGetKnotCount(*Quantised), 12);
            EXPECT_EQ(GetCurveSize(*Quantised) > 0, true);

            // Knots come back within a step, and repeated knots stay equal.
            std::vector<real32> ReadKnots(12);
            CurveExtractKnotValues(*Quantised, 0, 12, ReadKnots.data(), 0, 0);
            for (int32 i = 0; i < 12; ++i) EXPECT_NEAR(ReadKnots[i], Knots[i], Knots[11] / 255.0f);
            EXPECT_EQ(ReadKnots[6], ReadKnots[5]);

            // FindKnot ends.
            EXPECT_EQ(CurveFindKnot(*Quantised, -1.0f), 0);
            EXPECT_EQ(CurveFindKnot(*Quantised, ReadKnots[11]), 11);
            EXPECT_EQ(CurveFindKnot(*Quantised, ReadKnots[11] + 5.0f), 11);
            EXPECT_EQ(CurveFindKnot(*Quantised, 0.5f * (ReadKnots[2] + ReadKnots[3])), 3);

            // Against the float curve on the knots as stored.
            curve2 *Reference = MakeCurve(CurveDataDaK32fC32fType, Degree, Case.Dimension, ReadKnots, Controls);
            bool const Normalize = Case.Format == CurveFormat_D4nK16uC15u || Case.Format == CurveFormat_D4nK8uC7u;
            real32 const Bound = QuantisationBound(Case.Format, Case.Dimension, Controls);
            for (int32 Step = 0; Step <= 200; ++Step) {
                real32 t = ReadKnots[11] * (real32)Step / 200.0f;
                // Right at a knot the two searches may round to different
                // sides and land on a neighbouring polynomial piece.
                bool NearKnot = false;
                for (real32 Knot : ReadKnots) NearKnot |= fabsf(t - Knot) < ReadKnots[11] / 200.0f;
                if (NearKnot) continue;
                real32 Error = Distance(Evaluate(*Quantised, Case.Dimension, Normalize, t),
                                        Evaluate(*Reference, Case.Dimension, Normalize, t));
                ASSERT_LE(Error, Bound) << "at t " << t;
            }

            // A copy is the same curve.
            curve2 *Copy = CopyCurve(*Quantised);
            ASSERT_TRUE(Copy);
            EXPECT_EQ(GetCurveSize(*Copy), GetCurveSize(*Quantised));
            std::vector<real32> A(12 * Case.Dimension), B(12 * Case.Dimension);
            CurveExtractKnotValues(*Quantised, 0, 12, 0, A.data(), 0);
            CurveExtractKnotValues(*Copy, 0, 12, 0, B.data(), 0);
            EXPECT_EQ(A, B);
            FreeCurve(Copy);
            FreeCurve(Reference);
            FreeCurve(Quantised);
        }
    }
}

TEST(CurveFormats, RecordSizesAndKnotQuantisation)
{
    std::vector<real32> Knots = {0.0f, 1.0f, 2.0f};
    // Record bytes of the table plus the curve2 and the arrays.
    struct
    {
        int32 Format;
        int32 Dimension;
        int32 RecordBytes;
        int32 ArrayBytes;
    } const Expected[] = {
        {1, 3, 28, 4 * 3 + 4 * 9},
        {6, 3, 28, 4 * 6 + 2 * 12},
        {7, 3, 28, 4 * 6 + 12},
        {8, 4, 20, 2 * 12},
        {9, 4, 20, 12},
        {10, 3, 40, 2 * 12},
        {11, 3, 40, 12},
        {12, 9, 24, 2 * 6},
        {13, 9, 40, 2 * 12},
        {14, 9, 24, 6},
        {15, 9, 40, 12},
        {16, 3, 40, 4 * 6},
        {17, 3, 40, 2 * 6},
        {18, 3, 40, 6},
    };
    for (auto const &Row : Expected) {
        std::vector<real32> Controls(3 * Row.Dimension, 0.5f);
        curve2 *Curve = MakeCurve(CurveFormatTypes[Row.Format], 2, Row.Dimension, Knots, Controls);
        ASSERT_TRUE(Curve);
        curve_builder Builder;
        BeginCurveCopyInPlace(Builder, *Curve);
        int32 Data = GetResultingCurveDataSize(Builder);
        EXPECT_GE(Data, Row.RecordBytes + Row.ArrayBytes) << Row.Format;
        EXPECT_LE(Data, Row.RecordBytes + Row.ArrayBytes + 8) << Row.Format; // array alignment
        EXPECT_EQ(GetCurveSize(*Curve), (int32)sizeof(curve2) + Data);
        FreeCurve(Curve);
    }
    // The 16-bit knot scale is truncated to its upper half, so the last
    // knot never overflows.
    curve2 *Curve = MakeCurve(CurveDataD3K16uC16uType, 2, 3, {0.0f, 0.3f, 0.7f}, std::vector<real32>(9, 1.0f));
    curve_data_d3_k16u_c16u const &R = *(curve_data_d3_k16u_c16u const *)Curve->CurveData.Object;
    real32 Scale = 65535.0f / 0.7f;
    uint32 Bits;
    memcpy(&Bits, &Scale, 4);
    EXPECT_EQ(R.OneOverKnotScaleTrunc, Bits >> 16);
    EXPECT_LE(R.KnotsControls[2], 65535);
    EXPECT_EQ(R.KnotsControls[0], 0);
    // Equal controls: scale 1, every value 0.
    EXPECT_EQ(R.ControlScales[0], 1.0f);
    EXPECT_EQ(R.KnotsControls[3], 0);
    FreeCurve(Curve);
}

TEST(CurveFormats, EqualControlsInTheAxisFormat)
{
    std::vector<real32> Controls = {1.0f, 2.0f, 3.0f, 1.0f, 2.0f, 3.0f, 1.0f, 2.0f, 3.0f};
    curve2 *Curve = MakeCurve(CurveDataD3I1K8uC8uType, 2, 3, {0.0f, 1.0f, 2.0f}, Controls);
    curve_data_d3i1_k8u_c8u const &R = *(curve_data_d3i1_k8u_c8u const *)Curve->CurveData.Object;
    for (int32 c = 0; c < 3; ++c) {
        EXPECT_EQ(R.ControlOffsets[c], Controls[c]);
        EXPECT_FLOAT_EQ(R.ControlScales[c], 1.0f / 255.0f);
    }
    for (int32 i = 0; i < 3; ++i) EXPECT_EQ(R.KnotsControls[3 + i], 0);
    FreeCurve(Curve);
}

TEST(CurveFormats, QuaternionComponentThatIsAlwaysLargestIsNotStored)
{
    // w is the largest everywhere; the other three use the table.
    std::vector<real32> Controls;
    for (int32 i = 0; i < 4; ++i) {
        real32 x = 0.1f * i, y = -0.05f * i, z = 0.02f;
        real32 w = sqrtf(1.0f - x * x - y * y - z * z);
        Controls.insert(Controls.end(), {x, y, z, -w});
    }
    curve2 *Curve = MakeCurve(CurveDataD4nK16uC15uType, 1, 4, {0.0f, 1.0f, 2.0f, 3.0f}, Controls);
    curve_data_d4n_k16u_c15u const &R = *(curve_data_d4n_k16u_c15u const *)Curve->CurveData.Object;
    EXPECT_EQ((R.ScaleOffsetTableEntries >> 12) & 15, 0);
    std::vector<real32> Read(16);
    CurveExtractKnotValues(*Curve, 0, 4, 0, Read.data(), 0);
    for (int32 i = 0; i < 16; ++i) EXPECT_NEAR(Read[i], Controls[i], 1e-4f);
    FreeCurve(Curve);
}

TEST(CurveFormats, TransformSamplesPermutesAndScales)
{
    std::mt19937 Random(3);
    std::vector<real32> Knots = RandomKnots(Random, 8);
    int32 const Permutation[3] = {2, 0, 1};
    real32 const Scales[3] = {-1.0f, 2.0f, 1.0f};
    real32 const Offsets[3] = {0.5f, 0.0f, -1.0f};
    for (int32 Format : {1, 6, 10, 11, 16, 18}) {
        std::vector<real32> Controls = RepresentableControls(Random, Format, 3, 8);
        curve2 *Curve = MakeCurve(CurveFormatTypes[Format], 2, 3, Knots, Controls);
        std::vector<std::vector<real32>> Before;
        for (int32 Step = 0; Step <= 20; ++Step) Before.push_back(Evaluate(*Curve, 3, false, Knots[7] * Step / 20));
        CurveTransformSamples(*Curve, 3, Scales, Offsets, Permutation);
        for (int32 Step = 0; Step <= 20; ++Step) {
            std::vector<real32> After = Evaluate(*Curve, 3, false, Knots[7] * Step / 20);
            for (int32 i = 0; i < 3; ++i) {
                EXPECT_NEAR(After[i], Scales[i] * Before[Step][Permutation[i]] + Offsets[i], 1e-4f) << Format;
            }
        }
        FreeCurve(Curve);
    }
}

TEST(CurveFormats, TransformSamplesOnQuaternionsAndMatrices)
{
    std::mt19937 Random(9);
    std::vector<real32> Knots = RandomKnots(Random, 8);
    // A signed permutation of quaternion components: x' = -y, y' = x, z' = z, w' = w.
    int32 const QuaternionPermutation[4] = {1, 0, 2, 3};
    real32 const QuaternionScales[4] = {-1.0f, 1.0f, 1.0f, 1.0f};
    real32 const NoOffsets[9] = {};
    for (int32 Format : {CurveFormat_D4nK16uC15u, CurveFormat_D4nK8uC7u}) {
        std::vector<real32> Controls = RepresentableControls(Random, Format, 4, 8);
        curve2 *Curve = MakeCurve(CurveFormatTypes[Format], 2, 4, Knots, Controls);
        std::vector<real32> Before(32), After(32);
        CurveExtractKnotValues(*Curve, 0, 8, 0, Before.data(), 0);
        CurveTransformSamples(*Curve, 4, QuaternionScales, NoOffsets, QuaternionPermutation);
        CurveExtractKnotValues(*Curve, 0, 8, 0, After.data(), 0);
        for (int32 i = 0; i < 8; ++i) {
            for (int32 c = 0; c < 4; ++c) {
                EXPECT_NEAR(After[4 * i + c], QuaternionScales[c] * Before[4 * i + QuaternionPermutation[c]], 1e-5f)
                    << Format << " knot " << i << " component " << c;
            }
        }
        FreeCurve(Curve);
    }
    // The diagonal of a scale matrix: components 0, 4 and 8 swap 0 and 8.
    int32 Permutation[9];
    real32 Scales[9], Offsets[9];
    for (int32 c = 0; c < 9; ++c) {
        Permutation[c] = c;
        Scales[c] = 1.0f;
        Offsets[c] = 0.0f;
    }
    Permutation[0] = 8;
    Permutation[8] = 0;
    Scales[4] = 2.0f;
    Offsets[8] = 0.5f;
    for (int32 Format : {CurveFormat_D9I3K16uC16u, CurveFormat_D9I3K8uC8u}) {
        std::vector<real32> Controls = RepresentableControls(Random, Format, 9, 8);
        curve2 *Curve = MakeCurve(CurveFormatTypes[Format], 2, 9, Knots, Controls);
        std::vector<real32> Before(72), After(72);
        CurveExtractKnotValues(*Curve, 0, 8, 0, Before.data(), 0);
        CurveTransformSamples(*Curve, 9, Scales, Offsets, Permutation);
        CurveExtractKnotValues(*Curve, 0, 8, 0, After.data(), 0);
        for (int32 i = 0; i < 8; ++i) {
            for (int32 c : {0, 4, 8}) {
                EXPECT_NEAR(After[9 * i + c], Scales[c] * Before[9 * i + Permutation[c]] + Offsets[c], 1e-4f)
                    << Format << " knot " << i << " component " << c;
            }
        }
        FreeCurve(Curve);
    }
}

TEST(CurveFormats, BuilderRefusals)
{
    log_capture Log;
    real32 Value[3] = {1, 2, 3};
    curve_builder Builder;
    BeginCurveInPlace(Builder, EmptyType, 0, 3, 1);
    EXPECT_TRUE(Log.Contains("Invalid format specified for a tessel_curve2 - creating this curve will fail"));
    EXPECT_EQ(GetResultingCurveSize(Builder), 0);
    EXPECT_FALSE(EndCurve(&Builder));

    BeginCurveInPlace(Builder, CurveDataDaK32fC32fType, 2, 3, 4);
    EXPECT_FALSE(EndCurve(&Builder));
    EXPECT_TRUE(Log.Contains("Need either a source curve to copy"));

    BeginCurveInPlace(Builder, CurveDataDaK32fC32fType, 2, 3, 4);
    PushCurveControlArray(Builder, Value);
    EXPECT_FALSE(EndCurve(&Builder));
    EXPECT_TRUE(Log.Contains("Unknown curve type - returning NULL"));

    EXPECT_FALSE(EndCurve(0));
    EXPECT_TRUE(Log.Contains("Invalid curve_builder address - returning NULL"));

    // A constant needs no knot array; a self-owned builder is freed by End.
    int32 Live = LiveBlocks();
    curve_builder *Owned = BeginCurve(CurveDataD3Constant32fType, 0, 3, 1);
    PushCurveControlArray(*Owned, Value);
    curve2 *Constant = EndCurve(Owned);
    ASSERT_TRUE(Constant);
    EXPECT_TRUE(CurveIsConstantOrIdentity(*Constant));
    real32 Result[3];
    EvaluateCurve(3, false, *Constant, 1.0f, 0.4f, Result, 0);
    EXPECT_EQ(Result[2], 3.0f);
    FreeCurve(Constant);
    EXPECT_EQ(LiveBlocks(), Live);

    // In place: the data record in caller memory reads like the curve.
    curve2 *Source = MakeCurve(CurveDataD3K16uC16uType, 2, 3, {0.0f, 1.0f, 2.0f}, {1, 2, 3, 4, 5, 6, 7, 8, 9});
    curve_builder InPlace;
    BeginCurveCopyInPlace(InPlace, *Source);
    std::vector<uint8> Memory(GetResultingCurveDataSize(InPlace));
    curve2 Placed;
    ASSERT_EQ(EndCurveInPlace(&InPlace, &Placed, Memory.data()), &Placed);
    real32 A[3], B[3];
    EvaluateCurve(3, false, *Source, 2.0f, 1.3f, A, 0);
    EvaluateCurve(3, false, Placed, 2.0f, 1.3f, B, 0);
    EXPECT_EQ(memcmp(A, B, sizeof(A)), 0);
    BeginCurveCopyInPlace(InPlace, *Source);
    EXPECT_FALSE(EndCurveInPlace(&InPlace, &Placed, 0));
    EXPECT_TRUE(Log.Contains("Out of memory or invalid address for curve - returning NULL"));
    FreeCurve(Source);

    // Predicates of the float format without knots.
    BeginCurveInPlace(Builder, CurveDataDaK32fC32fType, 0, 3, 0);
    curve2 *Empty = EndCurve(&Builder);
    ASSERT_TRUE(Empty);
    EXPECT_TRUE(CurveIsIdentity(*Empty));
    EXPECT_FALSE(CurveIsKeyframed(*Empty));
    FreeCurve(Empty);

    curve2 *Curve = MakeCurve(CurveDataDaK32fC32fType, 2, 3, {0.0f, 1.0f}, std::vector<real32>(6, 0.0f));
    EXPECT_EQ(CurveFormatFromType(CurveDataD3I1K8uC8uType), 18);
    SetCurveKnotsAndControls(*Curve, 3, 3, Value, Value);
    EXPECT_TRUE(Log.Contains("Curve and argument knot counts do not match"));
    FreeCurve(Curve);
}

// ---------------------------------------------------------------------------
// The solver.

namespace {

// Knots in sample units with a start of full multiplicity, where the
// solver's phantom control points and the evaluator's padding agree.
std::vector<real32> FitKnots(int32 Degree, int32 SampleCount, std::vector<real32> const &Interior)
{
    std::vector<real32> Knots = {0.0f};
    for (int32 v = 1; v <= Degree; ++v) Knots.push_back(0.0f);
    Knots.insert(Knots.end(), Interior.begin(), Interior.end());
    Knots.push_back((real32)(SampleCount - 1));
    return Knots;
}

// Solves into a curve whose knot buffer lives in the solver.
curve2 *Solve(bspline_solver &Solver, int32 Degree, int32 Dimension, std::vector<real32> const &KnotList,
              std::vector<real32> const &Samples)
{
    int32 SampleCount = (int32)Samples.size() / Dimension;
    real32 *Knots = Solver.KnotsA;
    std::copy(KnotList.begin(), KnotList.end(), Knots);
    bool Solved = ComputeControlPoints(Solver, Dimension, Degree, (int32)KnotList.size(), Knots, SampleCount,
                                       Samples.data(), Solver.Controls);
    EXPECT_TRUE(Solved);
    return MakeCurve(CurveDataDaK32fC32fType, Degree, Dimension, KnotList,
                     std::vector<real32>(Solver.Controls, Solver.Controls + KnotList.size() * Dimension));
}

} // namespace

TEST(BSplineSolver, ReproducesPolynomialsOfItsDegree)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 200, 9);
    ASSERT_TRUE(Solver);
    int32 const SampleCount = 61;
    for (int32 Degree = 0; Degree <= 3; ++Degree) {
        std::vector<real32> Samples;
        for (int32 j = 0; j < SampleCount; ++j) {
            real32 u = j / 60.0f;
            for (int32 c = 0; c < 3; ++c) {
                real32 Value = 0.5f + c;
                real32 Power = 1.0f;
                for (int32 p = 1; p <= Degree; ++p) {
                    Power *= u;
                    Value += (p + c) * 0.7f * Power * (p % 2 ? 1.0f : -1.0f);
                }
                Samples.push_back(Value);
            }
        }
        std::vector<real32> Interior = Degree == 0 ? std::vector<real32>{} : std::vector<real32>{10, 23, 37, 48};
        curve2 *Curve = Solve(*Solver, Degree, 3, FitKnots(Degree, SampleCount, Interior), Samples);
        ASSERT_TRUE(Curve);
        for (int32 j = 0; j < SampleCount; ++j) {
            real32 Value[3];
            EvaluateCurve(3, false, *Curve, 1.0f, (real32)j, Value, 0);
            for (int32 c = 0; c < 3; ++c) {
                EXPECT_NEAR(Value[c], Samples[3 * j + c], 2e-5f * (1.0f + fabsf(Samples[3 * j + c])))
                    << "degree " << Degree << " sample " << j;
            }
        }
        FreeCurve(Curve);
    }
    FreeBSplineSolver(Solver);
}

TEST(BSplineSolver, SingularAndNearSingularSystemsStayFinite)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 100, 4);
    std::mt19937 Random(11);
    std::uniform_real_distribution<real32> Value(-100.0f, 100.0f);
    std::vector<real32> Samples(40 * 4);
    for (real32 &s : Samples) s = Value(Random);
    std::vector<std::vector<real32>> KnotSets = {
        {0, 10, 20, 20, 20, 20, 30, 39},       // multiplicity d + 1: empty spans
        {0, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 39}, // spans with no sample
        {0, 19.999f, 20.0f, 20.001f, 39},      // nearly coincident
        {0, 39, 39, 39, 39},                   // all at the end
        {0},                                   // one knot: the mean
    };
    for (int32 Degree = 0; Degree <= 3; ++Degree) {
        for (auto const &Knots : KnotSets) {
            curve2 *Curve = Solve(*Solver, Degree, 4, Knots, Samples);
            ASSERT_TRUE(Curve);
            for (size_t i = 0; i < Knots.size() * 4; ++i) ASSERT_TRUE(std::isfinite(Solver->Controls[i]));
            FreeCurve(Curve);
        }
    }
    // With a single knot the solution is the mean of the samples.
    FreeCurve(Solve(*Solver, 0, 4, {39}, Samples));
    real32 Mean = 0.0f;
    for (int32 j = 0; j < 40; ++j) Mean += Samples[4 * j];
    EXPECT_NEAR(Solver->Controls[0], Mean / 40.0f, 1e-3f);
    FreeBSplineSolver(Solver);
}

TEST(BSplineSolver, QuaternionTolerance)
{
    EXPECT_EQ(QuaternionToleranceFromDegrees(0.0f), 0.0f);
    EXPECT_NEAR(QuaternionToleranceFromDegrees(60.0f), 0.1339746f, 1e-6f);
    EXPECT_NEAR(QuaternionToleranceFromDegrees(180.0f), 1.0f, 1e-7f);
    log_capture Log;
    EXPECT_EQ(QuaternionToleranceFromDegrees(-1.0f), 0.0f);
    EXPECT_TRUE(Log.Contains("Degrees"));
}
