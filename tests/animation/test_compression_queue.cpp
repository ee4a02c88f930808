// The compression queue: candidate formats, the raw-sample path and results
// that do not depend on the number of workers.
#include "animation/tessel_compression_queue.h"
#include "animation/tessel_curve.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

compression_job RawJob(std::vector<real32> &Samples, int32 Dimension, bool Reduce)
{
    compression_types Types = SelectCompressionTypes(Dimension, Dimension == 4, true);
    compression_job Job = {};
    Job.Samples = Samples.data();
    Job.Dimension = Dimension;
    Job.SampleCount = (int32)Samples.size() / Dimension;
    Job.TimeStep = 1.0f / 30.0f;
    Job.Compress = 0;
    Job.Params.AllowReduction = Reduce ? 1 : 0;
    Job.Params.ConstantType = Types.ConstantType;
    Job.Params.IdentityType = Types.IdentityType;
    Job.Params.IdentityVector = Types.IdentityVector;
    return Job;
}

// Knots and controls of a curve, for comparing two fits.
std::vector<real32> Contents(curve2 const *Curve, int32 Dimension)
{
    std::vector<real32> Values;
    if (!Curve) return Values;
    int32 Knots = CurveGetKnotCount(*Curve);
    Values.push_back((real32)CurveGetFormat(*Curve));
    Values.push_back((real32)CurveGetDegree(*Curve));
    Values.resize(2 + Knots * (1 + Dimension));
    CurveExtractKnotValues(*Curve, 0, Knots, Values.data() + 2, Values.data() + 2 + Knots, 0);
    return Values;
}

} // namespace

TEST(CompressionQueue, CandidateFormatsByDimension)
{
    compression_types Position = SelectCompressionTypes(3, false, true);
    ASSERT_EQ(Position.Count, 6);
    EXPECT_EQ(Position.Types[0], CurveDataDaK32fC32fType);
    EXPECT_EQ(Position.Types[5], CurveDataD3I1K32fC32fType);
    EXPECT_EQ(Position.ConstantType, CurveDataD3Constant32fType);
    compression_types Orientation = SelectCompressionTypes(4, true, true);
    EXPECT_EQ(Orientation.Types[2], CurveDataD4nK16uC15uType);
    EXPECT_EQ(Orientation.IdentityVector[3], 1.0f);
    compression_types ScaleShear = SelectCompressionTypes(9, false, false);
    EXPECT_EQ(ScaleShear.Count, 1); // without quantised curves only the float one is left
    EXPECT_EQ(ScaleShear.ConstantType, CurveDataDaConstant32fType);
    EXPECT_EQ(ScaleShear.IdentityVector[4], 1.0f);
    compression_types Odd = SelectCompressionTypes(9, true, true);
    EXPECT_EQ(Odd.Count, 3);
    EXPECT_EQ(Odd.IdentityVector[4], 0.0f);
    EXPECT_EQ(SelectCompressionTypes(5, false, true).IdentityType, CurveDataDaIdentityType);
}

TEST(CompressionQueue, RawSamplesWithAndWithoutReduction)
{
    std::vector<real32> Identity, Constant, Moving;
    for (int32 s = 0; s < 5; ++s) {
        real32 Unit[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        if (s == 2) Unit[1] = -0.0f; // a negative zero still counts as the identity
        Identity.insert(Identity.end(), Unit, Unit + 9);
        Unit[0] = 2.0f;
        Unit[1] = 0.0f;
        Constant.insert(Constant.end(), Unit, Unit + 9);
        Unit[0] = 1.0f + (real32)s;
        Moving.insert(Moving.end(), Unit, Unit + 9);
    }
    struct expectation
    {
        std::vector<real32> *Samples;
        bool Reduce;
        int32 Format;
        int32 Knots;
    } const Cases[] = {{&Identity, true, CurveFormat_DaIdentity, 0},
                       {&Constant, true, CurveFormat_DaConstant32f, 1},
                       {&Moving, true, CurveFormat_DaKeyframes32f, 5},
                       {&Constant, false, CurveFormat_DaKeyframes32f, 5}};
    for (expectation const &Case : Cases) {
        compression_job Job = RawJob(*Case.Samples, 9, Case.Reduce);
        uint8 Achieved = 0;
        curve2 *Curve = CompressJob(0, Job, &Achieved);
        ASSERT_NE(Curve, nullptr);
        EXPECT_EQ(CurveGetFormat(*Curve), Case.Format);
        EXPECT_EQ(CurveGetKnotCount(*Curve), Case.Knots);
        EXPECT_EQ(Achieved, 1);
        real32 Value[9];
        EvaluateCurve(9, false, *Curve, 4.0f / 30.0f, 3.0f / 30.0f, Value,
                      SelectCompressionTypes(9, false, true).IdentityVector);
        EXPECT_NEAR(Value[0], (*Case.Samples)[27], 1e-5f);
        FreeCurve(Curve);
    }
}

TEST(CompressionQueue, SameCurvesWithAnyNumberOfWorkers)
{
    // Streams of every kind with motion, still parts and noise.
    std::mt19937 Random(7);
    std::normal_distribution<real32> Noise(0.0f, 0.002f);
    int32 const SampleCount = 121, TrackCount = 12;
    std::vector<std::vector<real32>> Streams;
    for (int32 Track = 0; Track < TrackCount; ++Track) {
        for (int32 Dimension : {3, 4, 9}) {
            std::vector<real32> Samples;
            for (int32 s = 0; s < SampleCount; ++s) {
                real32 t = (real32)s / 30.0f;
                for (int32 c = 0; c < Dimension; ++c) {
                    real32 Value = std::sin(t * (1.0f + Track) + c) * (Track % 3 == 0 ? 0.0f : 1.0f) + Noise(Random);
                    Samples.push_back(Dimension == 9 && c % 4 == 0 ? 1.0f + 0.1f * Value : Value);
                }
                if (Dimension == 4) {
                    real32 *q = &Samples[Samples.size() - 4];
                    real32 Length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
                    for (int32 c = 0; c < 4; ++c) q[c] /= Length;
                }
            }
            Streams.push_back(Samples);
        }
    }
    std::vector<std::vector<real32>> Reference;
    for (int32 Workers : {1, 2, 8}) {
        SetCompressionThreadCount(Workers);
        compression_queue *Queue = BeginCompressionQueue(SampleCount, 2, TrackCount, 0);
        ASSERT_NE(Queue, nullptr);
        std::vector<std::vector<real32>> Copies = Streams; // jobs may edit their samples
        for (size_t Index = 0; Index < Copies.size(); ++Index) {
            int32 Kind = (int32)(Index % 3);
            int32 Dimension = Kind == 0 ? 3 : Kind == 1 ? 4 : 9;
            compression_types Types = SelectCompressionTypes(Dimension, Kind == 1, true);
            compression_job Job = {};
            Job.Samples = Copies[Index].data();
            Job.SampleCount = SampleCount;
            Job.Dimension = Dimension;
            Job.TimeStep = 1.0f / 30.0f;
            Job.Compress = 1;
            Job.SolverFlags = SolverSeedStartKnots | SolverPinEndpoints | (Kind == 1 ? SolverNormalized : 0);
            Job.Params = {2,
                          1,
                          1,
                          Kind == 1 ? 1e-5f : 0.01f,
                          1,
                          1,
                          Types.Types,
                          Types.Count,
                          Types.ConstantType,
                          Types.IdentityType,
                          Types.IdentityVector};
            Job.Model = (int32)(Index / 3) % 2;
            Job.Kind = Kind;
            Job.TrackIndex = (int32)(Index / 6);
            ASSERT_TRUE(QueueCompressionJob(*Queue, Job));
        }
        ASSERT_TRUE(RunCompressionQueue(*Queue));
        std::vector<std::vector<real32>> Results;
        for (size_t Index = 0; Index < Copies.size(); ++Index) {
            int32 Kind = (int32)(Index % 3);
            curve2 *Curve = GetCompressionResult(*Queue, (int32)(Index / 3) % 2, Kind, (int32)(Index / 6));
            ASSERT_NE(Curve, nullptr) << Index;
            Results.push_back(Contents(Curve, Kind == 0 ? 3 : Kind == 1 ? 4 : 9));
        }
        EndCompressionQueue(Queue);
        if (Reference.empty()) {
            Reference = Results;
        } else {
            EXPECT_EQ(Results, Reference) << Workers << " workers";
        }
    }
    SetCompressionThreadCount(0);

    // A job the workers could not fit is refused on the calling thread.
    compression_queue *Queue = BeginCompressionQueue(4, 1, 1, 0);
    compression_job Bad = {};
    Bad.Dimension = 3;
    Bad.SampleCount = 5; // longer than the queue allows
    std::vector<real32> Samples(15);
    Bad.Samples = Samples.data();
    EXPECT_FALSE(QueueCompressionJob(*Queue, Bad));
    Bad.SampleCount = 4;
    Bad.TrackIndex = 1; // no such slot
    EXPECT_FALSE(QueueCompressionJob(*Queue, Bad));
    EXPECT_TRUE(RunCompressionQueue(*Queue));
    EndCompressionQueue(Queue);
}
