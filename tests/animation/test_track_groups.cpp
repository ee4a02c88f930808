// Track groups: the builder's sorting, curve copies, sizes and both ways of
// ending, and the queries of a finished group.
#include "animation/tessel_curve.h"
#include "animation/tessel_track_group.h"
#include "animation/tessel_track_group_builder.h"
#include "animation/tessel_track_group_sampler.h"
#include "foundation/tessel_memory.h"

#include <gtest/gtest.h>

#include <cstring>
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

std::vector<real32> Evaluate(curve2 const &Curve, int32 Dimension, real32 t)
{
    std::vector<real32> Value(Dimension);
    EvaluateCurve(Dimension, false, Curve, 1.0f, t, Value.data(), 0);
    return Value;
}

struct curves
{
    curve2 *Position = MakeCurve(CurveDataDaK32fC32fType, 1, 3, {0, 1}, {0, 0, 0, 1, 2, 3});
    curve2 *Quantized = MakeCurve(CurveDataD3K8uC8uType, 1, 3, {0, 0.5f, 1}, {0, 0, 0, 1, 1, 1, 2, 2, 2});
    curve2 *Identity = MakeCurve(CurveDataDaIdentityType, 0, 4, {}, {});
    curve2 *Vector = MakeCurve(CurveDataDaK32fC32fType, 1, 2, {0, 1}, {5, 6, 7, 8});
    ~curves()
    {
        FreeCurve(Position);
        FreeCurve(Quantized);
        FreeCurve(Identity);
        FreeCurve(Vector);
    }
};

// A group with tracks out of order, two of the same name, a text track and
// a vector track; Names are the caller's strings.
track_group_builder *BuildMixedGroup(curves const &C, bool WithLODErrors)
{
    track_group_builder *Builder = BeginTrackGroup("group", 0, 4, 4, WithLODErrors);
    char const *Names[] = {"spine", "arm", "hip", "arm"};
    for (int32 i = 0; i < 4; ++i) {
        BeginTransformTrack(Builder, Names[i], (uint32)i);
        SetTransformTrackPositionCurve(Builder, i == 1 ? *C.Quantized : *C.Position);
        SetTransformTrackOrientationCurve(Builder, *C.Identity);
        EndTransformTrack(Builder);
    }
    BeginTextTrack(Builder, "hip");
    AddTextEntry(Builder, 0.5f, "step");
    AddTextEntry(Builder, 0.25f, "land");
    EndTextTrack(Builder);
    PushVectorTrackCurve(Builder, "fov", 7, *C.Vector);
    return Builder;
}

void ExpectMixedGroup(track_group const &Group)
{
    ASSERT_EQ(Group.TransformTrackCount, 4);
    EXPECT_STREQ(Group.TransformTracks[0].Name, "arm");
    EXPECT_STREQ(Group.TransformTracks[1].Name, "arm");
    EXPECT_STREQ(Group.TransformTracks[2].Name, "hip");
    EXPECT_STREQ(Group.TransformTracks[3].Name, "spine");
    // Equal names keep their order of arrival: flags 1 then 3.
    EXPECT_EQ(Group.TransformTracks[0].Flags, 1);
    EXPECT_EQ(Group.TransformTracks[1].Flags, 3);
    EXPECT_EQ(CurveGetFormat(Group.TransformTracks[0].PositionCurve), CurveFormat_D3K8uC8u);
    std::vector<real32> Mid = Evaluate(Group.TransformTracks[3].PositionCurve, 3, 0.5f);
    EXPECT_NEAR(Mid[2], 1.5f, 1e-6f);
    // Identity curves share one record; empty curves stay empty.
    EXPECT_EQ(Group.TransformTracks[0].OrientationCurve.CurveData.Object,
              Group.TransformTracks[2].OrientationCurve.CurveData.Object);
    EXPECT_EQ(Group.TransformTracks[0].OrientationCurve.CurveData.Object, GetSharedIdentityCurveData(4));
    EXPECT_EQ(Group.TransformTracks[0].ScaleShearCurve.CurveData.Type, nullptr);
    ASSERT_EQ(Group.TextTrackCount, 1);
    ASSERT_EQ(Group.TextTracks[0].EntryCount, 2);
    EXPECT_STREQ(Group.TextTracks[0].Entries[0].Text, "step");
    EXPECT_EQ(Group.TextTracks[0].Entries[1].TimeStamp, 0.25f);
    ASSERT_EQ(Group.VectorTrackCount, 1);
    EXPECT_EQ(Group.VectorTracks[0].TrackKey, 7u);
    EXPECT_EQ(Group.VectorTracks[0].Dimension, 2);
    EXPECT_EQ(Evaluate(Group.VectorTracks[0].ValueCurve, 2, 1.0f)[1], 8.0f);
    EXPECT_EQ(Group.AccumulationFlags, 2);
    EXPECT_EQ(Group.PeriodicLoop, nullptr);
}

} // namespace

TEST(TrackGroupBuilder, InPlaceGroupIsSortedAndFillsExactlyItsSize)
{
    curves C;
    for (bool WithLODErrors : {false, true}) {
        track_group_builder *Builder = BuildMixedGroup(C, WithLODErrors);
        int32 Size = GetResultingTrackGroupSize(Builder);
        ASSERT_GT(Size, 172);
        // Guard bytes after the block must survive: the size is exact.
        std::vector<uint8> Memory(Size + 64, 0xCD);
        track_group *Group = EndTrackGroupInPlace(Builder, Memory.data());
        ASSERT_NE(Group, nullptr);
        for (int32 i = Size; i < Size + 64; ++i) ASSERT_EQ(Memory[i], 0xCD);
        ExpectMixedGroup(*Group);
        // The last curve's data reaches the end of the block.
        uint8 *End = Memory.data() + Size;
        EXPECT_LE((uint8 *)Group->TransformTracks[3].PositionCurve.CurveData.Object, End);
        if (WithLODErrors) {
            ASSERT_EQ(Group->TransformLODErrorCount, 4);
            uint32 Bits;
            memcpy(&Bits, &Group->TransformLODErrors[2], 4);
            EXPECT_EQ(Bits, 0x7F0FFFFFu);
        } else {
            EXPECT_EQ(Group->TransformLODErrorCount, 0);
            EXPECT_EQ(Group->TransformLODErrors, nullptr);
        }
    }
}

TEST(TrackGroupBuilder, ArenaGroupMatchesAndIdentityCurvesTakeNoBytes)
{
    curves C;
    memory_arena *Arena = NewMemoryArena();
    track_group *Group = EndTrackGroup(BuildMixedGroup(C, false), Arena);
    ASSERT_NE(Group, nullptr);
    ExpectMixedGroup(*Group);
    FreeMemoryArena(Arena);

    // Only identity curves: the size is that of the records alone.
    track_group_builder *Builder = BeginTrackGroup("g", 0, 1, 0, false);
    BeginTransformTrack(Builder, "a", 0);
    SetTransformTrackOrientationCurve(Builder, *C.Identity);
    SetTransformTrackPositionCurve(Builder, *C.Position);
    SetTransformTrackPositionCurve(Builder, *C.Identity); // replaces the first copy
    EndTransformTrack(Builder);
    BeginTransformTrack(Builder, "left open", 0);
    SetTransformTrackPositionCurve(Builder, *C.Position);
    EXPECT_EQ(GetResultingTrackGroupSize(Builder), 172 + 60);
    std::vector<uint8> Memory(172 + 60);
    Group = EndTrackGroupInPlace(Builder, Memory.data());
    ASSERT_EQ(Group->TransformTrackCount, 1);
    EXPECT_TRUE(CurveIsIdentity(Group->TransformTracks[0].PositionCurve));
    EXPECT_EQ(Group->TextTrackCount, 0);
    EXPECT_EQ(Group->TextTracks, nullptr);
    EXPECT_EQ(Group->VectorTracks, nullptr);
}

TEST(TrackGroupQueries, FindByNameFlagsAndKeyframes)
{
    curves C;
    memory_arena *Arena = NewMemoryArena();
    track_group *Group = EndTrackGroup(BuildMixedGroup(C, false), Arena);
    int32 Index = 5;
    EXPECT_TRUE(FindTrackByName(Group, "hip", Index));
    EXPECT_EQ(Index, 2);
    EXPECT_TRUE(FindTrackByName(Group, "arm", Index));
    EXPECT_EQ(Index, 0);
    EXPECT_FALSE(FindTrackByName(Group, "zzz", Index));
    EXPECT_EQ(Index, -1);
    EXPECT_FALSE(FindTrackByName(nullptr, "arm", Index));
    // Unsorted: a linear scan finds the same.
    SetTrackGroupFlags(*Group, 0x4, 0x21);
    uint32 Flags, Mask;
    GetTrackGroupFlags(*Group, &Flags, &Mask);
    EXPECT_EQ(Flags, 0x4u);
    EXPECT_EQ(Mask, 0x21u);
    EXPECT_EQ((uint32)Group->AccumulationFlags, 0x00210004u);
    EXPECT_TRUE(FindTrackByName(Group, "spine", Index));
    EXPECT_EQ(Index, 3);

    EXPECT_FALSE(TransformTrackHasKeyframedCurve(Group->TransformTracks[0]));
    real32 Samples[6] = {1, 2, 3, 4, 5, 6};
    curve_builder Builder;
    BeginCurveInPlace(Builder, CurveDataDaKeyframes32fType, 0, 3, 2);
    PushCurveControlArray(Builder, Samples);
    curve2 *Keys = EndCurve(&Builder);
    ASSERT_NE(Keys, nullptr);
    Group->TransformTracks[0].ScaleShearCurve = *Keys;
    EXPECT_TRUE(TransformTrackHasKeyframedCurve(Group->TransformTracks[0]));
    FreeCurve(Keys);
    FreeMemoryArena(Arena);
}

TEST(TrackGroupSampler, WritesOneSampleTimeAfterAnother)
{
    track_group_sampler *Sampler = BeginSampledAnimation(2, 3);
    ASSERT_NE(Sampler, nullptr);
    real32 P[3] = {1, 2, 3}, Q[4] = {0, 0, 0, 1}, S[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int32 s = 0; s < 4; ++s) { // the fourth time is past the end and ignored
        P[0] = (real32)s;
        SetTransformSample(Sampler, 1, P, Q, S);
        AdvanceSampler(Sampler);
    }
    real32 *Positions = GetPositionSamples(Sampler, 1);
    EXPECT_EQ(Positions[3 * 2], 2.0f);
    EXPECT_EQ(GetPositionSamples(Sampler, 0)[3 * 2], 0.0f);
    EXPECT_EQ(GetScaleShearSamples(Sampler, 1)[9 * 2 + 8], 1.0f);
    EXPECT_EQ(GetOrientationSamples(Sampler, 2), nullptr);
    EndSampledAnimation(Sampler);
    EndSampledAnimation(nullptr);
}
