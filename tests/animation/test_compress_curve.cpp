// Curve compression: tolerance, format choice, reduction, threads.
#include "animation/tessel_compress_curve.h"
#include "support/test_log_capture.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

real32 const TimeStep = 1.0f / 60.0f;
real32 const Zero3[3] = {0, 0, 0};
real32 const IdentityQuaternion[4] = {0, 0, 0, 1};
real32 const IdentityMatrix[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

// The candidate lists the bone tracks use.
std::vector<data_type_definition *> Position = {CurveDataDaK32fC32fType,   CurveDataD3I1K8uC8uType,
                                                CurveDataD3I1K16uC16uType, CurveDataD3K8uC8uType,
                                                CurveDataD3K16uC16uType,   CurveDataD3I1K32fC32fType};
std::vector<data_type_definition *> Orientation = {CurveDataDaK32fC32fType, CurveDataD4nK8uC7uType,
                                                   CurveDataD4nK16uC15uType};
std::vector<data_type_definition *> ScaleShear = {
    CurveDataDaK32fC32fType, CurveDataD9I1K8uC8uType,   CurveDataD9I3K8uC8uType,  CurveDataDaK8uC8uType,
    CurveDataDaK16uC16uType, CurveDataD9I1K16uC16uType, CurveDataD9I3K16uC16uType};

struct stream
{
    char const *Name;
    int32 Dimension;
    uint32 Flags;
    std::vector<real32> Samples;
};

compress_curve_parameters ParamsFor(int32 Dimension, std::vector<data_type_definition *> &Types, real32 Tolerance)
{
    compress_curve_parameters Params = {};
    Params.Degree = 2;
    Params.AllowReduction = 1;
    Params.AllowReductionOnMissedTolerance = 1;
    Params.ErrorTolerance = Tolerance;
    Params.JumpThreshold = 0.5f;
    Params.CreaseThreshold = Params.JumpThreshold;
    Params.CompressionTypes = Types.data();
    Params.CompressionTypeCount = (int32)Types.size();
    Params.ConstantType = Dimension == 3   ? CurveDataD3Constant32fType
                          : Dimension == 4 ? CurveDataD4Constant32fType
                                           : CurveDataDaConstant32fType;
    Params.IdentityType = CurveDataDaIdentityType;
    Params.IdentityVector = Dimension == 3 ? Zero3 : Dimension == 4 ? IdentityQuaternion : IdentityMatrix;
    return Params;
}

// Smooth, noisy, jumping and creased versions of one motion.
std::vector<stream> Streams(int32 Dimension, int32 SampleCount)
{
    std::mt19937 Random(5);
    std::normal_distribution<real32> Noise(0.0f, 0.002f);
    std::vector<stream> Result;
    char const *Names[4] = {"smooth", "noisy", "jump", "crease"};
    for (int32 Kind = 0; Kind < 4; ++Kind) {
        stream S = {Names[Kind], Dimension, SolverSeedStartKnots | SolverPinEndpoints, {}};
        if (Kind == 2) S.Flags |= SolverAllowJumps;
        if (Kind == 3) S.Flags |= SolverAllowCreases;
        if (Dimension == 4) S.Flags |= SolverNormalized;
        real32 Previous[4] = {0, 0, 0, 0};
        for (int32 j = 0; j < SampleCount; ++j) {
            real32 u = (real32)j / (real32)(SampleCount - 1);
            real32 Wave = sinf(6.0f * u) + 0.3f * cosf(17.0f * u);
            if (Kind == 1) Wave += Noise(Random);
            if (Kind == 2 && j > SampleCount / 2) Wave += 2.0f;
            if (Kind == 3) Wave = fabsf(u - 0.4f) * 3.0f;
            if (Dimension == 3) {
                S.Samples.insert(S.Samples.end(), {Wave, 0.5f * Wave * u, 2.0f - u});
            } else if (Dimension == 4) {
                real32 Angle = 0.8f * Wave, Axis[3] = {0.6f, 0.0f, 0.8f};
                real32 q[4] = {Axis[0] * sinf(Angle), 0.3f * u, Axis[2] * sinf(Angle), cosf(Angle)};
                real32 Length = sqrtf(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
                real32 Dot = 0.0f;
                for (int32 c = 0; c < 4; ++c) {
                    q[c] /= Length;
                    Dot += q[c] * Previous[c];
                }
                for (int32 c = 0; c < 4; ++c) Previous[c] = q[c] = Dot < 0.0f ? -q[c] : q[c];
                S.Samples.insert(S.Samples.end(), q, q + 4);
            } else {
                real32 Scale = 1.0f + 0.2f * Wave;
                S.Samples.insert(S.Samples.end(),
                                 {Scale, 0.01f * Wave, 0, 0.01f * Wave, Scale * 0.9f, 0, 0, 0, 1.0f + 0.1f * u});
            }
        }
        Result.push_back(S);
    }
    return Result;
}

struct stream_kind
{
    int32 Dimension;
    std::vector<data_type_definition *> *Types;
    real32 Tolerance;
};

std::vector<stream_kind> Kinds()
{
    return {{3, &Position, 0.01f}, {4, &Orientation, QuaternionToleranceFromDegrees(0.5f)}, {9, &ScaleShear, 0.001f}};
}

real32 MaxError(uint32 Flags, int32 Dimension, curve2 const &Curve, std::vector<real32> const &Samples)
{
    int32 SampleCount = (int32)Samples.size() / Dimension;
    curve_error_report Report;
    MeasureCurveError(Flags, CurveGetDegree(Curve), Dimension, TimeStep * (SampleCount - 1), Curve, SampleCount,
                      Samples.data(), 0, &Report);
    return Report.MaxSquaredError;
}

// A curve's bytes with its internal addresses made relative.
std::vector<uint8> CurveBytes(curve2 const &Curve)
{
    int32 Size = GetCurveSize(Curve);
    uint8 const *Base = (uint8 const *)&Curve;
    std::vector<uint8> Bytes(Base, Base + Size);
    for (int32 Offset = 0; Offset + 8 <= Size && Offset < 96; Offset += 4) {
        uintaddrx Value;
        memcpy(&Value, &Bytes[Offset], 8);
        if (Value >= (uintaddrx)Base && Value < (uintaddrx)(Base + Size)) {
            Value -= (uintaddrx)Base;
            memcpy(&Bytes[Offset], &Value, 8);
        }
    }
    return Bytes;
}

} // namespace

TEST(CompressCurve, MeetsTheToleranceWheneverThePlainFitSaysSo)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 400, 9);
    int32 Live = LiveBlocks();
    for (stream_kind const &Kind : Kinds()) {
        for (stream const &S : Streams(Kind.Dimension, 240)) {
            for (uint32 Extra : {0u, (uint32)SolverEliminateKnots}) {
                for (int32 Degree = 1; Degree <= 3; ++Degree) {
                    SCOPED_TRACE(std::string(S.Name) + " dimension " + std::to_string(Kind.Dimension) + " degree " +
                                 std::to_string(Degree));
                    compress_curve_parameters Params = ParamsFor(Kind.Dimension, *Kind.Types, Kind.Tolerance);
                    Params.Degree = Degree;
                    uint8 Achieved = 0;
                    curve2 *Curve = CompressCurve(*Solver, S.Flags | Extra, Params, S.Samples.data(), Kind.Dimension,
                                                  240, TimeStep, &Achieved);
                    ASSERT_TRUE(Curve);
                    bool const Plain = S.Name == std::string("smooth") || S.Name == std::string("noisy");
                    if (S.Name == std::string("smooth") && Degree >= 2) EXPECT_TRUE(Achieved);
                    if (Achieved) {
                        EXPECT_LE(MaxError(S.Flags, Kind.Dimension, *Curve, S.Samples),
                                  Kind.Tolerance * Kind.Tolerance * 1.0001f);
                    }
                    // Far fewer bytes than the samples.
                    if (Plain) EXPECT_LT(GetCurveSize(*Curve), (int32)(S.Samples.size() * sizeof(real32)) / 3);
                    FreeCurve(Curve);
                }
            }
        }
    }
    EXPECT_EQ(LiveBlocks(), Live);
    FreeBSplineSolver(Solver);
}

TEST(CompressCurve, TheFormatLoopKeepsTheSmallestCurveThatMeetsTheTolerance)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 400, 9);
    for (stream_kind const &Kind : Kinds()) {
        stream const S = Streams(Kind.Dimension, 240)[0];
        compress_curve_parameters Params = ParamsFor(Kind.Dimension, *Kind.Types, Kind.Tolerance);
        curve2 *Curve = CompressCurve(*Solver, S.Flags, Params, S.Samples.data(), Kind.Dimension, 240, TimeStep, 0);
        ASSERT_TRUE(Curve);
        // Each candidate on its own, without a size limit.
        int32 BestFormat = -1;
        int32 BestSize = 0;
        for (data_type_definition *Type : *Kind.Types) {
            uint8 Met = 0;
            int32 Size = 0;
            curve2 *Candidate = FitBSpline(*Solver, S.Flags, 2, Kind.Tolerance, 0, 0, S.Samples.data(), Kind.Dimension,
                                           240, TimeStep, Type, 0, &Met, &Size);
            ASSERT_TRUE(Candidate);
            Size = GetCurveSize(*Candidate);
            // What counts is the error of the curve in seconds.
            Met = Met && MaxError(S.Flags, Kind.Dimension, *Candidate, S.Samples) <= Kind.Tolerance * Kind.Tolerance;
            if ((Met && Size < BestSize) || BestFormat < 0) {
                BestFormat = CurveGetFormat(*Candidate);
                BestSize = Size;
            }
            FreeCurve(Candidate);
        }
        EXPECT_EQ(CurveGetFormat(*Curve), BestFormat) << Kind.Dimension;
        EXPECT_EQ(GetCurveSize(*Curve), BestSize);
        EXPECT_NE(BestFormat, CurveFormat_DaK32fC32f) << "a quantised format should win on smooth motion";
        FreeCurve(Curve);
    }

    // Two formats of equal size per knot: on a straight-line motion both
    // fit alike, and the one listed first stays.
    std::vector<real32> Line;
    for (int32 j = 0; j < 200; ++j) {
        real32 u = sinf(j * 0.03f);
        Line.insert(Line.end(), {1.0f + u, 2.0f - 0.5f * u, 0.25f * u});
    }
    std::vector<data_type_definition *> Orders[2] = {
        {CurveDataDaK32fC32fType, CurveDataD3K8uC8uType, CurveDataD3I1K16uC16uType},
        {CurveDataDaK32fC32fType, CurveDataD3I1K16uC16uType, CurveDataD3K8uC8uType}};
    int32 Sizes[2], Formats[2];
    for (int32 Order = 0; Order < 2; ++Order) {
        compress_curve_parameters Params = ParamsFor(3, Orders[Order], 0.01f);
        curve2 *Curve =
            CompressCurve(*Solver, SolverSeedStartKnots | SolverPinEndpoints, Params, Line.data(), 3, 200, TimeStep, 0);
        ASSERT_TRUE(Curve);
        Sizes[Order] = GetCurveSize(*Curve);
        Formats[Order] = CurveGetFormat(*Curve);
        FreeCurve(Curve);
    }
    EXPECT_EQ(Sizes[0], Sizes[1]);
    if (Sizes[0] == Sizes[1] && Formats[0] != Formats[1]) {
        EXPECT_EQ(Formats[0], CurveFormat_D3K8uC8u);
        EXPECT_EQ(Formats[1], CurveFormat_D3I1K16uC16u);
    }
    FreeBSplineSolver(Solver);
}

TEST(CompressCurve, ConstantAndIdentityStreamsCollapseOnlyWhenReductionIsOn)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 100, 9);
    std::vector<real32> Constant, Identity, Wobble;
    for (int32 j = 0; j < 50; ++j) {
        Constant.insert(Constant.end(), {1.0f, 2.0f, 3.0f});
        Identity.insert(Identity.end(), {0.0f, 0.0f, 0.0f});
        Wobble.insert(Wobble.end(), {1.0f + 0.001f * (j % 2), 2.0f, 3.0f});
    }
    uint32 const Flags = SolverSeedStartKnots | SolverPinEndpoints;
    for (uint8 Reduce : {0, 1}) {
        compress_curve_parameters Params = ParamsFor(3, Position, 0.01f);
        Params.AllowReduction = Reduce;
        uint8 Achieved = 0;
        curve2 *A = CompressCurve(*Solver, Flags, Params, Constant.data(), 3, 50, TimeStep, &Achieved);
        curve2 *B = CompressCurve(*Solver, Flags, Params, Identity.data(), 3, 50, TimeStep, &Achieved);
        curve2 *C = CompressCurve(*Solver, Flags, Params, Wobble.data(), 3, 50, TimeStep, &Achieved);
        ASSERT_TRUE(A && B && C);
        if (Reduce) {
            EXPECT_EQ(CurveGetFormat(*A), CurveFormat_D3Constant32f);
            EXPECT_EQ(CurveGetFormat(*B), CurveFormat_DaIdentity);
            EXPECT_EQ(CurveGetFormat(*C), CurveFormat_D3Constant32f);
            EXPECT_EQ(Achieved, 1);
        } else {
            EXPECT_FALSE(CurveIsConstantOrIdentity(*A));
            EXPECT_FALSE(CurveIsConstantOrIdentity(*B));
            EXPECT_EQ(CurveGetKnotCount(*A), Params.Degree + 1);
        }
        FreeCurve(A);
        FreeCurve(B);
        FreeCurve(C);
    }
    // With a zero tolerance only byte-equal samples reduce, to a constant.
    compress_curve_parameters Params = ParamsFor(3, Position, 0.0f);
    curve2 *Curve = CompressCurve(*Solver, Flags, Params, Constant.data(), 3, 50, TimeStep, 0);
    EXPECT_EQ(CurveGetFormat(*Curve), CurveFormat_D3Constant32f);
    FreeCurve(Curve);

    // One sample: identity within tolerance, else constant. None: identity.
    real32 Near[3] = {0.001f, 0, 0}, Far[3] = {1, 0, 0};
    Params = ParamsFor(3, Position, 0.01f);
    curve2 *One = CompressCurve(*Solver, Flags, Params, Near, 3, 1, TimeStep, 0);
    curve2 *Other = CompressCurve(*Solver, Flags, Params, Far, 3, 1, TimeStep, 0);
    curve2 *None = CompressCurve(*Solver, Flags, Params, 0, 3, 0, TimeStep, 0);
    EXPECT_EQ(CurveGetFormat(*One), CurveFormat_DaIdentity);
    EXPECT_EQ(CurveGetFormat(*Other), CurveFormat_D3Constant32f);
    EXPECT_EQ(CurveGetFormat(*None), CurveFormat_DaIdentity);
    FreeCurve(One);
    FreeCurve(Other);
    FreeCurve(None);
    FreeBSplineSolver(Solver);
}

TEST(CompressCurve, KnotPlacementAndRefinementRules)
{
    // Seeds: two samples with degree 3 start from 0, 0.125, 0.25, 1.
    real32 Knots[16] = {0.0f, 1.0f};
    real32 Samples[6] = {0, 0, 0, 1, 1, 1};
    int32 Count = PlaceInitialKnots(SolverSeedStartKnots, 3, 0, 0, 2, Knots, 16, Samples, 3, 2);
    ASSERT_EQ(Count, 4);
    EXPECT_EQ(Knots[1], 0.125f);
    EXPECT_EQ(Knots[2], 0.25f);
    EXPECT_EQ(Knots[3], 1.0f);

    // A jump at sample 5 gives Degree + 1 knots there; a crease Degree.
    std::vector<real32> Step(10), Crease(10);
    for (int32 j = 0; j < 10; ++j) {
        Step[j] = j > 5 ? 1.0f : 0.0f;
        Crease[j] = fabsf(j - 5.0f);
    }
    for (int32 Degree = 0; Degree <= 3; ++Degree) {
        real32 K[32] = {0.0f, 9.0f};
        int32 n = PlaceInitialKnots(SolverAllowJumps, Degree, 0.5f, 0, 2, K, 32, Step.data(), 1, 10);
        // Samples 5 and 6 both see the jump.
        EXPECT_EQ(n, 2 + 2 * (Degree + 1));
        real32 C[32] = {0.0f, 9.0f};
        n = PlaceInitialKnots(SolverAllowCreases, Degree, 0, 0.5f, 2, C, 32, Crease.data(), 1, 10);
        EXPECT_EQ(n, 2 + Degree);
        if (Degree) EXPECT_EQ(C[1], 5.0f);
    }

    // Fitted across a jump, the curve breaks there: both sides are met, and
    // only the jump sample itself, which the solver keeps on the old side
    // while evaluation takes the span after the knot, is off.
    {
        bspline_solver *Solver = AllocateBSplineSolver(3, 100, 1);
        std::vector<real32> Jump(60);
        for (int32 j = 0; j < 60; ++j) Jump[j] = 0.01f * j + (j > 30 ? 1.0f : 0.0f);
        uint8 Achieved = 1;
        curve2 *Curve = FitBSpline(*Solver, SolverSeedStartKnots | SolverPinEndpoints | SolverAllowJumps, 2, 0.001f,
                                   0.5f, 0, Jump.data(), 1, 60, 1.0f, 0, 0, &Achieved, 0);
        ASSERT_TRUE(Curve);
        EXPECT_EQ(Achieved, 0);
        for (int32 j = 0; j < 60; ++j) {
            real32 Value;
            EvaluateCurve(1, false, *Curve, 59.0f, (real32)j, &Value, 0);
            if (j == 30) {
                EXPECT_NEAR(Value, Jump[31] - 0.01f, 0.05f);
            } else {
                EXPECT_NEAR(Value, Jump[j], 0.002f) << j;
            }
        }
        FreeCurve(Curve);
        FreeBSplineSolver(Solver);
    }

    // A span under 3 samples wide that misses the tolerance can't be split.
    bspline_solver *Solver = AllocateBSplineSolver(3, 100, 3);
    std::vector<real32> Spike(30, 0.0f);
    Spike[15] = 1.0f;
    uint8 Achieved = 1;
    curve2 *Curve = FitBSpline(*Solver, SolverSeedStartKnots | SolverPinEndpoints, 1, 0.01f, 0, 0, Spike.data(), 1, 30,
                               1.0f, 0, 0, &Achieved, 0);
    ASSERT_TRUE(Curve);
    EXPECT_EQ(Achieved, 0);
    FreeCurve(Curve);
    FreeBSplineSolver(Solver);
}

TEST(CompressCurve, SameBytesOnOneAndEightThreads)
{
    std::vector<stream> Jobs;
    for (stream_kind const &Kind : Kinds()) {
        for (stream &S : Streams(Kind.Dimension, 300)) Jobs.push_back(S);
    }
    auto Run = [&](int32 ThreadCount) {
        std::vector<std::vector<uint8>> Results(Jobs.size());
        std::vector<std::thread> Threads;
        for (int32 Thread = 0; Thread < ThreadCount; ++Thread) {
            Threads.emplace_back([&, Thread] {
                bspline_solver *Solver = AllocateBSplineSolver(3, 300, 9);
                for (size_t Job = Thread; Job < Jobs.size(); Job += ThreadCount) {
                    stream const &S = Jobs[Job];
                    std::vector<data_type_definition *> Types = S.Dimension == 3   ? Position
                                                                : S.Dimension == 4 ? Orientation
                                                                                   : ScaleShear;
                    real32 Tolerance = S.Dimension == 4 ? QuaternionToleranceFromDegrees(0.5f) : 0.002f;
                    compress_curve_parameters Params = ParamsFor(S.Dimension, Types, Tolerance);
                    curve2 *Curve = CompressCurve(*Solver, S.Flags | SolverEliminateKnots, Params, S.Samples.data(),
                                                  S.Dimension, 300, TimeStep, 0);
                    if (Curve) Results[Job] = CurveBytes(*Curve);
                    FreeCurve(Curve);
                }
                FreeBSplineSolver(Solver);
            });
        }
        for (std::thread &T : Threads) T.join();
        return Results;
    };
    std::vector<std::vector<uint8>> One = Run(1);
    std::vector<std::vector<uint8>> Eight = Run(8);
    for (size_t Job = 0; Job < Jobs.size(); ++Job) {
        EXPECT_FALSE(One[Job].empty());
        EXPECT_EQ(One[Job], Eight[Job]) << Job;
    }
}

TEST(CompressCurve, BadParametersAreRefused)
{
    bspline_solver *Solver = AllocateBSplineSolver(3, 10, 3);
    real32 Samples[12] = {};
    log_capture Log;
    compress_curve_parameters Params = ParamsFor(3, Position, -1.0f);
    EXPECT_FALSE(CompressCurve(*Solver, 0, Params, Samples, 3, 4, TimeStep, 0));
    EXPECT_TRUE(Log.Contains("CompressionParamsAreValid(Params, SolverFlags)"));
    Params = ParamsFor(3, Position, 0.1f);
    Params.JumpThreshold = -1.0f;
    EXPECT_TRUE(CompressionParamsAreValid(Params, 0));
    EXPECT_FALSE(CompressionParamsAreValid(Params, SolverAllowJumps));
    Params = ParamsFor(3, Position, 0.1f);
    Params.IdentityVector = 0;
    EXPECT_FALSE(CompressionParamsAreValid(Params, 0));
    Params = ParamsFor(3, Position, 0.1f);
    EXPECT_FALSE(CompressCurve(*Solver, 0, Params, Samples, 3, 11, TimeStep, 0)); // beyond the solver
    FreeBSplineSolver(Solver);
}
