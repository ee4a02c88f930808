// The world error budget on a generated chain: the budget is met where the
// plain tolerances miss it, the curves do not depend on the worker count,
// and with the budget off the fit is left as it was.
#include "animation/tessel_compression_queue.h"
#include "animation/tessel_curve.h"
#include "animation/tessel_world_error_budget.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

int32 const SampleCount = 121;
real32 const TimeStep = 1.0f / 60.0f;
int32 const BoneCount = 4;

// A chain of four bones 40 units apart under a root scaled by 10 (as a
// scene in other units would be): the root drifts, every joint swings
// smoothly, and the elbow turns sharply at one key.
struct chain
{
    std::vector<real32> Positions[BoneCount], Orientations[BoneCount], ScaleShears[BoneCount];
    int32 Parents[BoneCount] = {-1, 0, 1, 2};
    char const *Names[BoneCount] = {"Root", "Upper", "Lower", "Tip"};

    chain()
    {
        for (int32 b = 0; b < BoneCount; ++b) {
            for (int32 j = 0; j < SampleCount; ++j) {
                double t = j * (double)TimeStep;
                double Angle = 0.4 * std::sin(2.0 * t + b) + 0.1 * std::sin(7.0 * t);
                if (b == 2) Angle += j < 60 ? 0.01 * j : 0.6 - 0.01 * (j - 60);
                Positions[b].insert(Positions[b].end(),
                                    {b == 0 ? (real32)(3.0 * t) : 0.0f, b == 0 ? 0.0f : 4.0f, 0.0f});
                Orientations[b].insert(Orientations[b].end(),
                                       {0.0f, 0.0f, (real32)std::sin(Angle / 2), (real32)std::cos(Angle / 2)});
                real32 Scale = b == 0 ? 10.0f : 1.0f;
                ScaleShears[b].insert(ScaleShears[b].end(), {Scale, 0, 0, 0, Scale, 0, 0, 0, Scale});
            }
        }
    }
};

compression_job Job(std::vector<real32> &Samples, int32 Kind, int32 Bone)
{
    int32 Dimension = Kind == 0 ? 3 : Kind == 1 ? 4 : 9;
    compression_types Types = SelectCompressionTypes(Dimension, Kind == 1, true);
    compression_job Result = {};
    Result.Samples = Samples.data();
    Result.SampleCount = SampleCount;
    Result.Dimension = Dimension;
    Result.TimeStep = TimeStep;
    Result.Compress = 1;
    Result.SolverFlags = SolverSeedStartKnots | SolverPinEndpoints | (Kind == 1 ? (uint32)SolverNormalized : 0u);
    Result.Params.Degree = 2;
    Result.Params.AllowReduction = 1;
    Result.Params.AllowReductionOnMissedTolerance = 1;
    // The exporter's defaults: 0.01 units and 0.1 degree.
    Result.Params.ErrorTolerance = Kind == 1 ? 3.8e-7f : Kind == 0 ? 0.01f : 0.001f;
    Result.Params.CompressionTypes = Types.Types;
    Result.Params.CompressionTypeCount = Types.Count;
    Result.Params.ConstantType = Types.ConstantType;
    Result.Params.IdentityType = Types.IdentityType;
    Result.Params.IdentityVector = Types.IdentityVector;
    Result.Kind = Kind;
    Result.TrackIndex = Bone;
    return Result;
}

// Format, knots and controls of a curve, for comparing two fits.
std::vector<real32> Contents(curve2 const *Curve)
{
    std::vector<real32> Values;
    if (!Curve) return Values;
    int32 Knots = CurveGetKnotCount(*Curve), Dimension = CurveGetDimension(*Curve);
    Values.push_back((real32)CurveGetFormat(*Curve));
    Values.resize(1 + (size_t)Knots * (size_t)(1 + Dimension));
    CurveExtractKnotValues(*Curve, 0, Knots, Values.data() + 1, Values.data() + 1 + Knots, 0);
    return Values;
}

struct outcome
{
    std::vector<world_error_animation_figures> Report;
    std::vector<std::vector<real32>> Curves; // knots and controls of every slot
    bool Succeeded = false;
};

outcome RunChain(real32 MaxError, int32 Threads, int32 const *Parents = nullptr)
{
    chain Chain;
    outcome Result;
    SetCompressionThreadCount(Threads);
    compression_queue *Queue = BeginCompressionQueue(SampleCount, 1, BoneCount, 9);
    for (int32 b = 0; b < BoneCount; ++b) {
        std::vector<real32> *Streams[3] = {&Chain.Positions[b], &Chain.Orientations[b], &Chain.ScaleShears[b]};
        for (int32 Kind = 0; Kind < 3; ++Kind) EXPECT_TRUE(QueueCompressionJob(*Queue, Job(*Streams[Kind], Kind, b)));
    }
    world_error_model Model = {0, BoneCount, Parents ? Parents : Chain.Parents, Chain.Names};
    world_error_settings Settings = {MaxError, 3.0f, SampleCount, TimeStep, 12};
    char const *ModelName = "Chain";
    SetWorldErrorReport(&Result.Report);
    Result.Succeeded = RunWorldErrorBudget(*Queue, Settings, &Model, 1, "Swing", &ModelName);
    SetWorldErrorReport(nullptr);
    for (int32 Slot = 0; Slot < Queue->ResultCount; ++Slot) Result.Curves.push_back(Contents(Queue->Results[Slot]));
    EndCompressionQueue(Queue);
    SetCompressionThreadCount(0);
    return Result;
}

double Largest(outcome const &Outcome)
{
    double Worst = 0.0;
    for (auto const &Bone : Outcome.Report.at(0).Models.at(0).Bones) Worst = std::max(Worst, Bone.Largest);
    return Worst;
}

} // namespace

TEST(WorldErrorBudget, MetOnAChainWhereThePlainTolerancesMissIt)
{
    outcome Plain = RunChain(0.0f, 2);
    ASSERT_TRUE(Plain.Succeeded);
    ASSERT_EQ(Plain.Report.size(), 1u);
    // The root's scale of 10 makes the plain tolerances miss a budget of 0.02.
    EXPECT_GT(Largest(Plain), 0.02);
    EXPECT_EQ(Plain.Report[0].MaxError, 0.0);

    outcome Budgeted = RunChain(0.02f, 2);
    ASSERT_TRUE(Budgeted.Succeeded);
    world_error_animation_figures const &A = Budgeted.Report.at(0);
    EXPECT_EQ(A.Name, "Swing");
    EXPECT_NEAR(A.Duration, (SampleCount - 1) * TimeStep, 1e-5);
    EXPECT_TRUE(A.Unmet.empty()) << A.Unmet.at(0);
    ASSERT_EQ(A.Models.at(0).Bones.size(), (size_t)BoneCount);
    for (auto const &Bone : A.Models[0].Bones) {
        SCOPED_TRACE(Bone.Name);
        EXPECT_LE(Bone.Largest, 0.02);
        EXPECT_LE(Bone.Percentile99, Bone.Largest);
        ASSERT_EQ(Bone.Error.size(), (size_t)SampleCount);
        EXPECT_GT(Bone.Bytes, 0);
    }
    // The tip moves nothing below it: its orientation needs fewer knots than
    // the root's, which carries the whole chain.
    auto const &Bones = A.Models[0].Bones;
    EXPECT_LT(Bones[3].Curves[1].KnotCount, Bones[1].Curves[1].KnotCount);
}

TEST(WorldErrorBudget, SameCurvesAndFiguresForAnyWorkerCount)
{
    outcome One = RunChain(0.02f, 1), Three = RunChain(0.02f, 3);
    ASSERT_TRUE(One.Succeeded && Three.Succeeded);
    EXPECT_EQ(One.Curves, Three.Curves);
    auto const &a = One.Report.at(0).Models.at(0).Bones, &b = Three.Report.at(0).Models.at(0).Bones;
    ASSERT_EQ(a.size(), b.size());
    for (size_t Index = 0; Index < a.size(); ++Index) {
        EXPECT_EQ(a[Index].Error, b[Index].Error);
        EXPECT_EQ(a[Index].Refits, b[Index].Refits);
    }
}

TEST(WorldErrorBudget, OffLeavesTheFitAsItIs)
{
    // The same jobs through the queue alone.
    chain Chain;
    compression_queue *Queue = BeginCompressionQueue(SampleCount, 1, BoneCount, 9);
    for (int32 b = 0; b < BoneCount; ++b) {
        std::vector<real32> *Streams[3] = {&Chain.Positions[b], &Chain.Orientations[b], &Chain.ScaleShears[b]};
        for (int32 Kind = 0; Kind < 3; ++Kind) QueueCompressionJob(*Queue, Job(*Streams[Kind], Kind, b));
    }
    ASSERT_TRUE(RunCompressionQueue(*Queue));
    outcome Measured = RunChain(0.0f, 2);
    ASSERT_EQ(Measured.Curves.size(), (size_t)Queue->ResultCount);
    for (int32 Slot = 0; Slot < Queue->ResultCount; ++Slot) {
        EXPECT_EQ(Measured.Curves[(size_t)Slot], Contents(Queue->Results[Slot])) << Slot;
    }
    EndCompressionQueue(Queue);
    EXPECT_EQ(Measured.Report.at(0).Rounds, 0);
}

TEST(WorldErrorBudget, BadParentsAreRootsAndBadSettingsAreRefused)
{
    int32 const Cycle[BoneCount] = {3, 0, 1, 2};
    outcome Looped = RunChain(0.02f, 2, Cycle);
    EXPECT_TRUE(Looped.Succeeded);
    int32 const OutOfRange[BoneCount] = {-1, 7, -5, 2};
    EXPECT_TRUE(RunChain(0.02f, 2, OutOfRange).Succeeded);

    compression_queue *Queue = BeginCompressionQueue(SampleCount, 1, BoneCount, 9);
    world_error_settings Negative = {-1.0f, 3.0f, SampleCount, TimeStep, 4};
    EXPECT_FALSE(RunWorldErrorBudget(*Queue, Negative, nullptr, 0, "x", nullptr));
    world_error_settings TooLong = {0.1f, 3.0f, SampleCount + 1, TimeStep, 4};
    EXPECT_FALSE(RunWorldErrorBudget(*Queue, TooLong, nullptr, 0, "x", nullptr));
    EndCompressionQueue(Queue);
}
