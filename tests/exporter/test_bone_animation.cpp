// Bone animation: what SampleBoneAnimation leaves in the file for scenes of
// known motion, and the cases at the edges of its timing and root rules.
#include <cstring>

#include "skeleton_test_support.h"
#include "exporter/tessel_skeleton_export.h"

#include "animation/tessel_curve.h"
#include "animation/tessel_track_group.h"
#include "exporter/tessel_export_stages.h"
#include "geometry/tessel_transform.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"
#include "support/test_log_capture.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// A stage state with room for the animations and their groups.
struct animation_fixture : stage_fixture
{
    bool Begin(fbx_test_scene const &Scene, animation_def *Defs = nullptr, int32 DefCount = 0)
    {
        if (!stage_fixture::Begin(Scene, Defs, DefCount)) return false;
        int32 Animations = State.Graph->AnimationCount;
        State.FileInfo.Animations = ArenaPush<animation *>(State.Arena, Animations);
        State.FileInfo.TrackGroups = ArenaPush<track_group *>(State.Arena, Animations * State.Graph->ModelCount);
        return true;
    }

    tool_animation *AnimationNamed(char const *Name)
    {
        for (tool_animation *A = State.Graph->FirstAnimation; A; A = A->Next)
            if (std::string(GetAnimationName(Tool, A, nullptr)) == Name) return A;
        return nullptr;
    }

    animation *Sample(tool_animation *Animation)
    {
        int32 Before = State.FileInfo.AnimationCount;
        EXPECT_TRUE(SampleBoneAnimation(&State, Animation, nullptr));
        return State.FileInfo.AnimationCount > Before ? State.FileInfo.Animations[Before] : nullptr;
    }

    // Every bone's, or every model's, track settings.
    template <typename visit>
    void ForEachBoneSettings(visit Visit)
    {
        for (tool_node *Node = State.Graph->FirstNode; Node; Node = Node->NextInGraph) Visit(Node->TrackSettings);
    }
    template <typename visit>
    void ForEachModelSettings(visit Visit)
    {
        for (tool_model *Model = FirstModel(State.Graph); !IsModelEnd(State.Graph, Model); Model = NextModel(Model))
            Visit(Model->TrackSettings);
    }
};

void SetBool(settings_node *Node, int32 Id, bool Value)
{
    setting *Setting = FindSetting(Node, Id);
    ASSERT_NE(Setting, nullptr) << Id;
    ASSERT_TRUE(SetSettingBool(Setting, Value));
}

void SetChoice(settings_node *Node, int32 Id, int32 Choice)
{
    setting *Setting = FindSetting(Node, Id);
    ASSERT_NE(Setting, nullptr) << Id;
    ASSERT_TRUE(SetSettingChoice(Setting, Choice));
}

transform_track const *TrackNamed(track_group const &Group, char const *Name)
{
    int32 Index = -1;
    return FindTrackByName(&Group, Name, Index) ? &Group.TransformTracks[Index] : nullptr;
}

real32 AngleBetween(real32 const *A, real32 const *B)
{
    real32 Dot = std::fabs(A[0] * B[0] + A[1] * B[1] + A[2] * B[2] + A[3] * B[3]);
    return 2.0f * std::acos(std::fmin(1.0f, Dot)) * 57.29578f;
}

// A walk: the root moves 30 units along X (beyond the default 10 units
// below which an axis counts as still) over the take while Upper swings.
fbx_test_scene WalkScene()
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.Takes.resize(1);
    fbx_test_take &Take = Scene.Takes[0];
    Take.Name = "Walk";
    Take.Start = 0;
    Take.Stop = FbxFrameTicks(20);
    fbx_test_curve X;
    X.Node = 0;
    X.Channel = 'T';
    X.Axis = 0;
    X.Keys = {{0, 0.0f}, {FbxFrameTicks(20), 30.0f}};
    fbx_test_curve Swing;
    Swing.Node = 1;
    Swing.Channel = 'R';
    Swing.Axis = 2;
    Swing.Keys = {{0, -90.0f}, {FbxFrameTicks(10), -30.0f}, {FbxFrameTicks(20), -90.0f}};
    Take.Curves = {X, Swing};
    return Scene;
}

} // namespace

TEST(BoneAnimation, CurvesReproduceTheSampledLocalsAtEveryFrame)
{
    // Smooth motion only: steps and creases need jumps and creases, which
    // are off by default.
    fbx_test_scene Scene = MakeFbxTestArmScene();
    for (fbx_test_take &Take : Scene.Takes)
        for (fbx_test_curve &Curve : Take.Curves)
            for (fbx_test_key &Key : Curve.Keys) Key.Interpolation = FbxTestCubic;
    animation_fixture F;
    ASSERT_TRUE(F.Begin(Scene));
    tool_animation *Wave = F.AnimationNamed("Wave");
    ASSERT_NE(Wave, nullptr);
    // Oversampling 1 on an even frame count: the step is a frame and the
    // duration exactly the take's 30 frames.
    ASSERT_TRUE(SetSettingSliderPosition(FindSetting(Wave->Settings, SettingId_Oversampling), 1));
    F.ForEachModelSettings([](settings_node *Settings) { SetBool(Settings, SettingId_MoveToOrigin, false); });
    animation *Result = F.Sample(Wave);
    ASSERT_NE(Result, nullptr);
    EXPECT_EQ(Result->Oversampling, 1.0f);
    EXPECT_FLOAT_EQ(Result->TimeStep, 1.0f / 30.0f);
    EXPECT_EQ(Result->Duration, Result->TimeStep * 30.0f);
    ASSERT_EQ(Result->TrackGroupCount, 1);
    track_group const &Group = *Result->TrackGroups[0];
    EXPECT_EQ(Group.AccumulationFlags, 2);
    for (char const *Name : {"Root", "Upper", "Lower"}) {
        transform_track const *Track = TrackNamed(Group, Name);
        ASSERT_NE(Track, nullptr) << Name;
        tool_node *Node = F.NodeNamed(Name);
        real32 WorstPosition = 0.0f, WorstAngle = 0.0f;
        for (int32 Frame = 0; Frame <= 30; ++Frame) {
            SetAnimationSampleTime(F.Tool, Wave, Frame, 30);
            transform Expected, World;
            GetNodeTransforms(F.Tool, Node, &Expected, &World);
            transform Stored;
            SampleTransformTrack(*Track, Result->Duration, Result->TimeStep * (real32)Frame, Stored);
            for (int32 i = 0; i < 3; ++i)
                WorstPosition = std::fmax(WorstPosition, std::fabs(Stored.Position[i] - Expected.Position[i]));
            WorstAngle = std::fmax(WorstAngle, AngleBetween(Stored.Orientation, Expected.Orientation));
        }
        // Within the default tolerances (0.01 units, 0.1 degrees) and what
        // quantisation adds on top.
        EXPECT_LT(WorstPosition, 0.02f) << Name << " " << CurveGetFormat(Track->PositionCurve) << " "
                                        << CurveGetKnotCount(Track->PositionCurve);
        EXPECT_LT(WorstAngle, 0.3f) << Name << " " << CurveGetFormat(Track->OrientationCurve) << " "
                                    << CurveGetKnotCount(Track->OrientationCurve);
    }
    // Root's constant keys keep it still at the take's start; nothing scales.
    EXPECT_TRUE(CurveIsIdentity(TrackNamed(Group, "Lower")->ScaleShearCurve));
}

TEST(BoneAnimation, EmptyRangeGivesOneStillPose)
{
    static char Name[] = "Still";
    animation_def Def = {Name, 12, 12};
    animation_fixture F;
    ASSERT_TRUE(F.Begin(MakeFbxTestArmScene(), &Def, 1));
    tool_animation *Still = F.AnimationNamed("Still");
    ASSERT_NE(Still, nullptr);
    animation *Result = F.Sample(Still);
    ASSERT_NE(Result, nullptr);
    EXPECT_EQ(Result->Duration, 0.0f);
    ASSERT_EQ(Result->TrackGroupCount, 1);
    track_group const &Group = *Result->TrackGroups[0];
    ASSERT_GT(Group.TransformTrackCount, 0);
    for (int32 Index = 0; Index < Group.TransformTrackCount; ++Index) {
        transform_track const &Track = Group.TransformTracks[Index];
        EXPECT_TRUE(CurveIsConstantOrIdentity(Track.PositionCurve)) << Track.Name;
        EXPECT_TRUE(CurveIsConstantOrIdentity(Track.OrientationCurve)) << Track.Name;
    }
}

TEST(BoneAnimation, RawSamplesWithAndWithoutReduction)
{
    // Raw samples: every curve keeps all samples, unless reduction finds a
    // stream whose samples are all the same bytes (then a constant or the
    // identity). Which streams those are is the queue test's subject; here
    // the moving bone keeps every sample and nothing else appears.
    for (bool Reduce : {true, false}) {
        animation_fixture F;
        ASSERT_TRUE(F.Begin(MakeFbxTestArmScene()));
        F.ForEachBoneSettings([&](settings_node *Settings) {
            SetBool(Settings, SettingId_CompressAnimationData, false);
            SetBool(Settings, SettingId_ReduceCurvesWherePossible, Reduce);
        });
        animation *Result = F.Sample(F.AnimationNamed("Wave"));
        ASSERT_NE(Result, nullptr);
        ASSERT_EQ(Result->TrackGroupCount, 1);
        track_group const &Group = *Result->TrackGroups[0];
        int32 const SampleCount = 30 * 2 + 1;
        transform_track const *Lower = TrackNamed(Group, "Lower");
        ASSERT_NE(Lower, nullptr);
        EXPECT_EQ(CurveGetFormat(Lower->OrientationCurve), CurveFormat_DaKeyframes32f);
        EXPECT_EQ(CurveGetKnotCount(Lower->OrientationCurve), SampleCount);
        for (int32 Index = 0; Index < Group.TransformTrackCount; ++Index) {
            transform_track const &Track = Group.TransformTracks[Index];
            for (curve2 const *Curve : {&Track.PositionCurve, &Track.OrientationCurve, &Track.ScaleShearCurve}) {
                int32 Format = CurveGetFormat(*Curve);
                if (!Reduce || Format == CurveFormat_DaKeyframes32f) {
                    EXPECT_EQ(Format, CurveFormat_DaKeyframes32f) << Track.Name;
                    EXPECT_EQ(CurveGetKnotCount(*Curve), SampleCount) << Track.Name;
                } else {
                    EXPECT_TRUE(CurveIsConstantOrIdentity(*Curve)) << Track.Name;
                }
            }
        }
    }
}

TEST(BoneAnimation, ModelWithoutIncludedBonesHasNoGroup)
{
    animation_fixture F;
    ASSERT_TRUE(F.Begin(MakeFbxTestArmScene()));
    F.ForEachBoneSettings([](settings_node *Settings) { SetBool(Settings, SettingId_IncludeDataInExport, false); });
    animation *Result = F.Sample(F.AnimationNamed("Wave"));
    ASSERT_NE(Result, nullptr);
    EXPECT_EQ(Result->TrackGroupCount, 0);
    EXPECT_EQ(F.State.FileInfo.TrackGroupCount, 0);
    EXPECT_STREQ(Result->Name, "Wave");
}

TEST(BoneAnimation, RootIsTheShallowestBoneAndWalksAreExtracted)
{
    // Root motion on the walk: the root is "Root" (depth 0) even though the
    // graph lists other bones first; the start moves to the placement and
    // the straight walk becomes the loop translation.
    for (int32 Choice : {Choice_ConstantMotionExtractionCME, Choice_VariableDeltaAccumulationVDA}) {
        animation_fixture F;
        ASSERT_TRUE(F.Begin(WalkScene()));
        tool_animation *Walk = F.AnimationNamed("Walk");
        ASSERT_NE(Walk, nullptr);
        F.ForEachModelSettings([&](settings_node *Settings) { SetChoice(Settings, SettingId_RootMotionType, Choice); });
        animation *Result = F.Sample(Walk);
        ASSERT_NE(Result, nullptr);
        ASSERT_EQ(Result->TrackGroupCount, 1);
        track_group const &Group = *Result->TrackGroups[0];
        transform_track const *Root = TrackNamed(Group, "Root");
        ASSERT_NE(Root, nullptr);
        transform Start, End;
        SampleTransformTrack(*Root, Result->Duration, 0.0f, Start);
        SampleTransformTrack(*Root, Result->Duration, Result->Duration, End);
        EXPECT_NEAR(Start.Position[0], 0.0f, 0.011f) << Choice;
        if (Choice == Choice_ConstantMotionExtractionCME) {
            EXPECT_EQ(Group.AccumulationFlags, 0x3);
            EXPECT_NEAR(Group.LoopTranslation[0], 30.0f, 1e-3f);
            EXPECT_NEAR(End.Position[0], 0.0f, 0.011f); // the walk is taken out
            EXPECT_EQ(Group.PeriodicLoop, nullptr);
        } else {
            EXPECT_EQ(Group.AccumulationFlags, 0x6); // the motion mask stays 0
            EXPECT_EQ(Group.LoopTranslation[0], 0.0f);
            EXPECT_NEAR(End.Position[0], 30.0f, 0.011f);
        }
    }
}

namespace {

// Vector sources through the tool interface: the FBX tool has none, so the
// test swaps in rows that report two of them. "lamp_visibility" stays at
// 1; "frame" reads the tool's current time in frames.
tool_track *VisibilityTrack = nullptr;

char const *FakeTrackName(tool_interface *, tool_track *Track, string_table *)
{
    return Track == VisibilityTrack ? "lamp_visibility" : "frame";
}
int32 FakeTrackDimension(tool_interface *, tool_track *)
{
    return 1;
}
void FakeSampleTrack(tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *)
{
    int64 Ticks = ((fbx_tool_interface *)Tool)->CurrentTime;
    Values[0] = Track == VisibilityTrack ? 1.0f : (real32)((double)Ticks / (double)FbxFrameTicks(1));
}

// Swaps the fake track rows into the fixture's tool; Operations must outlive
// the sampling, and the caller puts the returned original back.
tool_operations const *UseFakeTracks(animation_fixture &F, tool_operations &Operations)
{
    Operations = *F.Tool->Operations;
    Operations.GetTrackName = FakeTrackName;
    Operations.GetTrackDimension = FakeTrackDimension;
    Operations.SampleTrack = FakeSampleTrack;
    tool_operations const *Original = F.Tool->Operations;
    F.Tool->Operations = &Operations;
    return Original;
}

tool_track *AddTrack(tool_node_graph *Graph, tool_model *Model)
{
    tool_track *Track = (tool_track *)TesselAllocate(sizeof(tool_track));
    memset(Track, 0, sizeof(*Track));
    Track->Model = Model;
    Track->NextInModel = Model->FirstTrack;
    Model->FirstTrack = Track;
    ++Model->TrackCount;
    Track->NextInGraph = Graph->FirstTrack;
    Graph->FirstTrack = Track;
    ++Graph->TrackCount;
    return Track;
}

} // namespace

TEST(BoneAnimation, VectorTracksOnFrameBoundariesAndConstantsDropped)
{
    animation_fixture F;
    ASSERT_TRUE(F.Begin(MakeFbxTestArmScene()));
    tool_operations Operations;
    tool_operations const *Original = UseFakeTracks(F, Operations);
    tool_model *Model = F.ModelNamed("Root");
    ASSERT_NE(Model, nullptr);
    AddTrack(F.State.Graph, Model); // "frame"
    VisibilityTrack = AddTrack(F.State.Graph, Model);
    AddTrack(F.State.Graph, Model); // a second "frame", kept as well

    tool_animation *Wave = F.AnimationNamed("Wave");
    ASSERT_TRUE(SetSettingSliderPosition(FindSetting(Wave->Settings, SettingId_Oversampling), 3));
    SetBool(Wave->Settings, SettingId_DontOversampleVectorTracks, true);
    SetBool(Model->TrackSettings, SettingId_CompressAnimationData, false);
    F.ForEachBoneSettings([](settings_node *Settings) { SetBool(Settings, SettingId_CompressAnimationData, false); });
    animation *Result = F.Sample(Wave);
    F.Tool->Operations = Original;
    ASSERT_NE(Result, nullptr);
    ASSERT_EQ(Result->TrackGroupCount, 1);
    track_group const &Group = *Result->TrackGroups[0];
    // Bones: 3 samples a frame; vectors: one a frame, at bone samples 0, 3, 6...
    EXPECT_EQ(CurveGetKnotCount(TrackNamed(Group, "Lower")->OrientationCurve), 3 * 30 + 1);
    ASSERT_EQ(Group.VectorTrackCount, 3);
    EXPECT_STREQ(Group.VectorTracks[0].Name, "frame");
    EXPECT_STREQ(Group.VectorTracks[2].Name, "lamp_visibility");
    EXPECT_EQ(Group.VectorTracks[2].TrackKey, 1u);
    curve2 const &Frames = Group.VectorTracks[0].ValueCurve;
    ASSERT_EQ(CurveGetKnotCount(Frames), 31);
    std::vector<real32> Values(31);
    CurveExtractKnotValues(Frames, 0, 31, nullptr, Values.data(), nullptr);
    for (int32 Index = 0; Index <= 30; ++Index) EXPECT_NEAR(Values[Index], (real32)Index, 1e-3f) << Index;
    // A constant vector track goes unless its name says it is a visibility.
    EXPECT_EQ(CurveGetKnotCount(Group.VectorTracks[2].ValueCurve), 1);

    // Without the visibility suffix the constant track is dropped.
    animation_fixture G;
    ASSERT_TRUE(G.Begin(MakeFbxTestArmScene()));
    Original = UseFakeTracks(G, Operations);
    VisibilityTrack = nullptr;
    AddTrack(G.State.Graph, G.ModelNamed("Root"));
    Operations.SampleTrack = [](tool_interface *, real32 *Values, tool_track *, tool_animation *) { Values[0] = 2.0f; };
    animation *Second = G.Sample(G.AnimationNamed("Wave"));
    G.Tool->Operations = Original;
    ASSERT_NE(Second, nullptr);
    EXPECT_EQ(Second->TrackGroups[0]->VectorTrackCount, 0);
}

TEST(BoneAnimation, RootIsTheLastOfTheShallowestBones)
{
    // Two top-level bones skinned by one mesh share a model; the root is
    // the last of them in the model's bone order, and only it moves to the
    // origin.
    fbx_test_scene Scene = MakeFbxTestArmScene();
    fbx_test_node Second = TestNode("Second", -1);
    Second.Translation[0] = 5.0;
    Second.Translation[2] = 1.0;
    Scene.Nodes.insert(Scene.Nodes.begin() + 3, Second); // before the mesh node, which stays last
    for (fbx_test_take &Take : Scene.Takes)
        for (fbx_test_curve &Curve : Take.Curves)
            if (Curve.Node >= 3) ++Curve.Node;
    fbx_test_cluster Cluster;
    Cluster.Bone = 3;
    Cluster.Indexes = {0};
    Cluster.Weights = {0.5};
    FbxTestNodeGlobal(Scene, 3, Cluster.TransformLink);
    Scene.Meshes[0].Clusters.push_back(Cluster);
    Scene.Nodes[4].Mesh = 0;
    animation_fixture F;
    ASSERT_TRUE(F.Begin(Scene));
    tool_node *RootNode = F.NodeNamed("Root");
    tool_node *SecondNode = F.NodeNamed("Second");
    ASSERT_TRUE(RootNode && SecondNode);
    ASSERT_EQ(RootNode->Model, SecondNode->Model) << "the skin joins them";
    tool_node *Last = nullptr;
    for (tool_node *Node = RootNode->Model->FirstNode; Node; Node = Node->NextInModel)
        if (Node == RootNode || Node == SecondNode) Last = Node;
    animation *Result = F.Sample(F.AnimationNamed("Wave"));
    ASSERT_NE(Result, nullptr);
    ASSERT_EQ(Result->TrackGroupCount, 1);
    track_group const &Group = *Result->TrackGroups[0];
    bool SecondIsRoot = Last == SecondNode;
    EXPECT_NEAR(Group.InitialPlacement.Position[0], SecondIsRoot ? 5.0f : 0.0f, 1e-4f);
    transform Start;
    SampleTransformTrack(*TrackNamed(Group, SecondIsRoot ? "Root" : "Second"), Result->Duration, 0.0f, Start);
    EXPECT_NEAR(Start.Position[0], SecondIsRoot ? 0.0f : 5.0f, 0.011f) << "the other stays where it is";
}

TEST(BoneAnimation, NodesOfOneNameGetNamesOfTheirOwnBonesFirst)
{
    // A null "Lower" ahead of the bone "Lower", and a node already called
    // "Lower.2": the bone keeps its name (its track carries its motion), the
    // null takes the first free number.
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.Nodes.insert(Scene.Nodes.begin(), TestNode("Lower", -1, "Null"));
    Scene.Nodes.push_back(TestNode("Lower.2", -1, "Null"));
    for (size_t Index = 1; Index < Scene.Nodes.size() - 1; ++Index)
        if (Scene.Nodes[Index].Parent >= 0) ++Scene.Nodes[Index].Parent;
    for (fbx_test_take &Take : Scene.Takes)
        for (fbx_test_curve &Curve : Take.Curves) ++Curve.Node;
    for (fbx_test_cluster &Cluster : Scene.Meshes[0].Clusters) ++Cluster.Bone;
    log_capture Log;
    animation_fixture F;
    ASSERT_TRUE(F.Begin(Scene));
    EXPECT_TRUE(Log.Contains("Node \"Lower\" has the name of another node: it is exported as \"Lower.3\""));
    tool_node *Bone = F.NodeNamed("Lower");
    tool_node *Null = F.NodeNamed("Lower.3");
    ASSERT_TRUE(Bone && Null && F.NodeNamed("Lower.2"));
    EXPECT_EQ(Bone->Model, F.NodeNamed("Upper")->Model) << "the skinned chain's bone";
    EXPECT_NE(Null->Model, Bone->Model);
    animation *Result = F.Sample(F.AnimationNamed("Wave"));
    ASSERT_NE(Result, nullptr);
    for (int32 G = 0; G < Result->TrackGroupCount; ++G) {
        track_group const &Group = *Result->TrackGroups[G];
        transform_track const *Track = TrackNamed(Group, "Lower");
        if (!Track) continue;
        transform Start, End;
        SampleTransformTrack(*Track, Result->Duration, 0.0f, Start);
        SampleTransformTrack(*Track, Result->Duration, Result->Duration, End);
        EXPECT_GT(AngleBetween(Start.Orientation, End.Orientation), 50.0f) << "the bone's own swing of 60 degrees";
    }
}

TEST(BoneAnimation, SpinsPastHalfATurnAndTurningWalksLoop)
{
    // Upper turns 390 degrees about Z: its quaternions change sign on the
    // way, and the stored curve must still follow it between the samples.
    fbx_test_scene Scene = MakeFbxTestArmScene();
    for (fbx_test_curve &Curve : Scene.Takes[0].Curves)
        if (Curve.Node == 1 && Curve.Channel == 'R') Curve.Keys = {{0, -90.0f}, {FbxFrameTicks(30), 300.0f}};
    {
        animation_fixture F;
        ASSERT_TRUE(F.Begin(Scene));
        tool_animation *Wave = F.AnimationNamed("Wave");
        animation *Result = F.Sample(Wave);
        ASSERT_NE(Result, nullptr);
        transform_track const *Track = TrackNamed(*Result->TrackGroups[0], "Upper");
        ASSERT_NE(Track, nullptr);
        tool_node *Node = F.NodeNamed("Upper");
        real32 Worst = 0.0f;
        for (int32 Half = 0; Half <= 60; ++Half) {
            SetAnimationSampleTime(F.Tool, Wave, Half, 60);
            transform Expected, World;
            GetNodeTransforms(F.Tool, Node, &Expected, &World);
            transform Stored;
            SampleTransformTrack(*Track, Result->Duration, Result->Duration * (real32)Half / 60.0f, Stored);
            Worst = std::fmax(Worst, AngleBetween(Stored.Orientation, Expected.Orientation));
        }
        EXPECT_LT(Worst, 0.3f);
    }

    // The root walks a quarter circle of radius 20 about Y while turning
    // with it: constant motion extraction finds a periodic loop of a
    // quarter turn and leaves the root where it started.
    fbx_test_scene Arc = WalkScene();
    fbx_test_take &Take = Arc.Takes[0];
    Take.Curves.clear();
    for (int32 Axis : {0, 2}) {
        fbx_test_curve Position;
        Position.Node = 0;
        Position.Channel = 'T';
        Position.Axis = Axis;
        for (int32 Frame = 0; Frame <= 20; ++Frame) {
            double Angle = 1.5707963 * Frame / 20.0;
            Position.Keys.push_back(
                {FbxFrameTicks(Frame), (float)(Axis == 0 ? 20.0 * std::sin(Angle) : 20.0 * std::cos(Angle) - 20.0)});
        }
        Take.Curves.push_back(Position);
    }
    fbx_test_curve Turn;
    Turn.Node = 0;
    Turn.Channel = 'R';
    Turn.Axis = 1;
    Turn.Keys = {{0, 0.0f}, {FbxFrameTicks(20), 90.0f}};
    Take.Curves.push_back(Turn);
    Arc.Nodes[0].RotationPivot[0] = Arc.Nodes[0].RotationPivot[1] = Arc.Nodes[0].RotationPivot[2] = 0.0;
    animation_fixture F;
    ASSERT_TRUE(F.Begin(Arc));
    F.ForEachModelSettings([](settings_node *Settings) {
        SetChoice(Settings, SettingId_RootMotionType, Choice_ConstantMotionExtractionCME);
    });
    animation *Result = F.Sample(F.AnimationNamed("Walk"));
    ASSERT_NE(Result, nullptr);
    track_group const &Group = *Result->TrackGroups[0];
    ASSERT_NE(Group.PeriodicLoop, nullptr);
    EXPECT_NEAR(std::fabs(Group.PeriodicLoop->dAngle) * Result->Duration, 1.5707963f, 0.01f); // per second
    EXPECT_NEAR(Group.PeriodicLoop->Radius, 20.0f, 0.2f);
    transform Start, End;
    transform_track const *Root = TrackNamed(Group, "Root");
    SampleTransformTrack(*Root, Result->Duration, 0.0f, Start);
    SampleTransformTrack(*Root, Result->Duration, Result->Duration, End);
    EXPECT_LT(AngleBetween(Start.Orientation, End.Orientation), 0.3f);
    for (int32 i = 0; i < 3; ++i) EXPECT_NEAR(End.Position[i], Start.Position[i], 0.05f) << i;
}

TEST(BoneAnimation, ATakeEndingBetweenFramesIsSampledOnItsFrames)
{
    // The walk's take ends half a frame after its last key: 20 whole frames
    // are sampled, each at its own time, and none is stretched over the half.
    fbx_test_scene Scene = WalkScene();
    Scene.Takes[0].Stop = FbxFrameTicks(20.5);
    animation_fixture F;
    ASSERT_TRUE(F.Begin(Scene));
    tool_animation *Walk = F.AnimationNamed("Walk");
    ASSERT_TRUE(SetSettingSliderPosition(FindSetting(Walk->Settings, SettingId_Oversampling), 1));
    F.ForEachModelSettings([](settings_node *Settings) { SetBool(Settings, SettingId_MoveToOrigin, false); });
    animation *Result = F.Sample(Walk);
    ASSERT_NE(Result, nullptr);
    EXPECT_FLOAT_EQ(Result->Duration, 20.0f / 30.0f);
    transform_track const *Root = TrackNamed(*Result->TrackGroups[0], "Root");
    ASSERT_NE(Root, nullptr);
    for (int32 Frame : {5, 10, 20}) {
        transform At;
        SampleTransformTrack(*Root, Result->Duration, Result->TimeStep * (real32)Frame, At);
        EXPECT_NEAR(At.Position[0], 1.5f * (real32)Frame, 0.011f) << Frame;
    }
}
