// Sampling at a time, and the stages "Skeletons" and "Models" on scenes
// written by the test FBX writer.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>

#include "fbx_tool/fbx_tessel_tool_sampling.h"
#include "exporter/tessel_skeleton_export.h"
#include "geometry/tessel_transform.h"
#include "exporter_test_files.h"
#include "format/tessel_file_reader.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"
#include "skeleton_test_support.h"
#include "support/test_command.h"
#include "support/test_log_capture.h"
#include "settings/tessel_setting_ids.h"

using namespace fbx_tool;

namespace {

// "Hip" at (1, 2, 3) turned 90 degrees about Z, with a chain "Spine" >
// "Neck" whose middle bone has a pre-rotation, and an unrelated "Prop".
fbx_test_scene MakeChainScene()
{
    fbx_test_scene Scene;
    Scene.Nodes.push_back(TestNode("Hip", -1));
    Scene.Nodes[0].Translation[0] = 1;
    Scene.Nodes[0].Translation[1] = 2;
    Scene.Nodes[0].Translation[2] = 3;
    Scene.Nodes[0].Rotation[2] = 90;
    Scene.Nodes.push_back(TestNode("Spine", 0));
    Scene.Nodes[1].Translation[1] = 4;
    Scene.Nodes[1].PreRotation[0] = 30;
    Scene.Nodes[1].Rotation[1] = 20;
    Scene.Nodes.push_back(TestNode("Neck", 1));
    Scene.Nodes[2].Translation[1] = 2;
    Scene.Nodes[2].Scaling[0] = Scene.Nodes[2].Scaling[1] = Scene.Nodes[2].Scaling[2] = 0.5;
    Scene.Nodes.push_back(TestNode("Prop", -1, "Null"));
    Scene.Nodes[3].Translation[2] = -7;
    return Scene;
}

void ExpectWorldMatchesScene(bone const &Bone, fbx_test_scene const &Scene, int32_t NodeIndex)
{
    double Expected[16];
    FbxTestNodeGlobal(Scene, NodeIndex, Expected);
    EXPECT_LT(InverseMismatch(Bone, Expected), 1e-5) << Bone.Name;
}

} // namespace

// Row-vector matrix of sampled values, through the stored transform record.
mat Sampled(real32 const *Position, real32 const *Orientation, real32 const *ScaleShear)
{
    transform Transform;
    SetTransform(Transform, Position, Orientation, ScaleShear);
    mat Matrix;
    TransformToMatrix4x4(Transform, Matrix.M);
    return Matrix;
}

void ExpectNear16(mat const &Actual, mat const &Expected, char const *What)
{
    for (int I = 0; I < 16; ++I) EXPECT_NEAR(Actual.M[I], Expected.M[I], 1e-5) << What << " element " << I;
}

// Locals used to be the raw properties (pre-rotation and pivots only in the
// world values) and a top-level node's world its raw local. Now a local is
// W(parent)^-1 W(node) and a world the full global, both split so that they
// compose back to the scene's matrices.
TEST(ToolSampling, LocalValuesAreRelativeToTheParentAndWorldValuesTheFullGlobal)
{
    fbx_test_scene Scene = MakeChainScene();
    Scene.Nodes[0].RotationPivot[0] = 0.5; // a top-level node with a pivot
    Scene.Nodes[0].Rotation[2] = 90;
    stage_fixture Fixture;
    ASSERT_TRUE(Fixture.Begin(Scene));
    char const *Names[3] = {"Hip", "Spine", "Neck"};
    mat Parent = Identity16();
    for (int N = 0; N < 3; ++N) {
        double Global[16];
        FbxTestNodeGlobal(Scene, N, Global);
        real32 LP[3], LO[4], LS[9], WP[3], WO[4], WS[9];
        SampleNodeTransform(Fixture.Tool, Fixture.NodeNamed(Names[N]), LP, LO, LS, WP, WO, WS);
        // World = global, and local x parent's global = global.
        ExpectNear16(Sampled(WP, WO, WS), FromArray(Global), Names[N]);
        ExpectNear16(Multiply(Sampled(LP, LO, LS), Parent), FromArray(Global), Names[N]);
        Parent = FromArray(Global);
    }
    // The spine's local rotation carries its pre-rotation: 30 about X, then 20 about Y.
    real32 LP[3], LO[4], LS[9], WP[3], WO[4], WS[9];
    SampleNodeTransform(Fixture.Tool, Fixture.NodeNamed("Spine"), LP, LO, LS, WP, WO, WS);
    double Half30 = 15.0 * M_PI / 180.0, Half20 = 10.0 * M_PI / 180.0;
    EXPECT_NEAR(LO[0], std::sin(Half30) * std::cos(Half20), 1e-6);
    EXPECT_NEAR(LO[1], std::cos(Half30) * std::sin(Half20), 1e-6);
    EXPECT_NEAR(LO[2], std::sin(Half30) * std::sin(Half20), 1e-6);
    EXPECT_NEAR(LO[3], std::cos(Half30) * std::cos(Half20), 1e-6);
    // The animation local against an explicit parent is the same split.
    real32 RP[3], RO[4], RS[9];
    SampleNodeRelativeTransform(Fixture.Tool, Fixture.NodeNamed("Spine"), Fixture.NodeNamed("Hip"), RP, RO, RS);
    EXPECT_EQ(0, memcmp(RP, LP, sizeof(RP)));
    EXPECT_EQ(0, memcmp(RO, LO, sizeof(RO)));
    EXPECT_EQ(0, memcmp(RS, LS, sizeof(RS)));
    SampleNodeTransform(Fixture.Tool, Fixture.NodeNamed("Neck"), LP, LO, LS, WP, WO, WS);
    EXPECT_NEAR(LS[0], 0.5f, 1e-6f);
    EXPECT_NEAR(LS[1], 0.0f, 1e-6f);
}

TEST(ToolSampling, SampleTimesAndFrameCountsOfTakesAndRanges)
{
    int64 const Second = FbxTicksPerSecond;
    fbx_test_scene Scene = MakeChainScene();
    fbx_test_take Take;
    Take.Name = "Late";
    Take.Start = 10 * Second;
    Take.Stop = 20 * Second;
    fbx_test_curve Curve;
    Curve.Node = 0;
    Curve.Keys = {{0, 0.0f}, {20 * Second, 20.0f}};
    Take.Curves.push_back(Curve);
    Scene.Takes.push_back(Take);

    char Whole[] = "Whole", Sliver[] = "Sliver";
    animation_def Defs[2] = {{Whole, 0, 30}, {Sliver, 3, 3}};
    stage_fixture Fixture;
    ASSERT_TRUE(Fixture.Begin(Scene, Defs, 2));
    EXPECT_FLOAT_EQ(GetSecondsPerFrame(Fixture.Tool), 1.0f / 30.0f);
    ASSERT_EQ(Fixture.State.Graph->AnimationCount, 2);
    // Newest first: the second def's animation heads the list.
    tool_animation *SliverRange = Fixture.State.Graph->FirstAnimation;
    tool_animation *WholeRange = SliverRange->Next;
    EXPECT_EQ(GetAnimationFrameCount(Fixture.Tool, WholeRange), 30);
    EXPECT_EQ(GetAnimationFrameCount(Fixture.Tool, SliverRange), 0);
    SetAnimationSampleTime(Fixture.Tool, WholeRange, 3, 4);
    EXPECT_EQ(Fixture.Tool->CurrentTime, (Second / 4) * 3);

    // Without ranges the take is read over its own span, 10 to 20 seconds
    // (it used to be read from 0 for its length, another take's motion in
    // files with several).
    tool_animation TakeOnly = *WholeRange;
    TakeOnly.HasRange = false;
    EXPECT_EQ(GetAnimationFrameCount(Fixture.Tool, &TakeOnly), 300);
    SetAnimationSampleTime(Fixture.Tool, &TakeOnly, 1, 4);
    EXPECT_EQ(Fixture.Tool->CurrentTime, 10 * Second + 10 * Second / 4);
    real32 LP[3], LO[4], LS[9], WP[3], WO[4], WS[9];
    SampleNodeTransform(Fixture.Tool, Fixture.NodeNamed("Hip"), LP, LO, LS, WP, WO, WS);
    EXPECT_NEAR(LP[0], 12.5f, 1e-4f);
    SampleNodeRelativeTransform(Fixture.Tool, Fixture.NodeNamed("Hip"), nullptr, LP, LO, LS);
    EXPECT_NEAR(LP[0], 12.5f, 1e-4f);
    ResetToolTime(Fixture.Tool);
    SampleNodeTransform(Fixture.Tool, Fixture.NodeNamed("Hip"), LP, LO, LS, WP, WO, WS);
    EXPECT_EQ(LP[0], 1.0f);
}

TEST(ToolSampling, TakesOfZeroLengthOrNoneGiveNoAnimation)
{
    fbx_test_scene Scene = MakeChainScene();
    {
        stage_fixture Fixture;
        ASSERT_TRUE(Fixture.Begin(Scene));
        EXPECT_EQ(Fixture.State.Graph->AnimationCount, 0);
    }
    fbx_test_take Empty;
    Empty.Name = "Still";
    Empty.Start = Empty.Stop = FbxFrameTicks(5);
    fbx_test_curve Curve;
    Curve.Keys = {{FbxFrameTicks(5), 1.0f}};
    Empty.Curves.push_back(Curve);
    Scene.Takes.push_back(Empty);
    char Name[] = "Range";
    animation_def Def = {Name, 0, 10};
    stage_fixture Fixture;
    ASSERT_TRUE(Fixture.Begin(Scene, &Def, 1));
    EXPECT_EQ(Fixture.State.Graph->AnimationCount, 0);
}

TEST(SkeletonExport, BonesStandParentsFirstWithWorldMatricesOfTheScene)
{
    fbx_test_scene Scene = MakeChainScene();
    int32 Before = LiveBlocks();
    {
        stage_fixture Fixture;
        ASSERT_TRUE(Fixture.Begin(Scene));
        // Unrelated top-level nodes give separate models.
        ASSERT_EQ(Fixture.State.Graph->ModelCount, 2);
        tool_model *Model = Fixture.ModelNamed("Hip");
        ASSERT_NE(Model, nullptr);
        ExportSkeleton(&Fixture.State, Model);
        skeleton *Skeleton = Model->Skeleton;
        ASSERT_NE(Skeleton, nullptr);
        EXPECT_EQ(Fixture.State.FileInfo.SkeletonCount, 1);
        EXPECT_STREQ(Skeleton->Name, "Hip");
        ASSERT_EQ(Skeleton->BoneCount, 3);
        EXPECT_STREQ(Skeleton->Bones[0].Name, "Hip");
        EXPECT_STREQ(Skeleton->Bones[1].Name, "Spine");
        EXPECT_STREQ(Skeleton->Bones[2].Name, "Neck");
        EXPECT_EQ(Skeleton->Bones[0].ParentIndex, -1);
        EXPECT_EQ(Skeleton->Bones[1].ParentIndex, 0);
        EXPECT_EQ(Skeleton->Bones[2].ParentIndex, 1);
        EXPECT_EQ(Skeleton->LODType, 1);
        EXPECT_GE(Skeleton->Bones[0].LODError, Skeleton->Bones[1].LODError);
        for (int32 I = 0; I < 3; ++I) {
            tool_node *Node = Fixture.NodeNamed(Skeleton->Bones[I].Name);
            EXPECT_EQ(Node->BoneIndex, I);
            EXPECT_EQ(Node->FileBone, &Skeleton->Bones[I]);
            ExpectWorldMatchesScene(Skeleton->Bones[I], Scene, I);
        }
    }
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(SkeletonExport, LeftOutBonesCutTheirChainAndSkinnedMeshNodesAreNoBones)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    stage_fixture Fixture;
    ASSERT_TRUE(Fixture.Begin(Scene));
    ASSERT_EQ(Fixture.State.Graph->ModelCount, 1);
    tool_model *Model = FirstModel(Fixture.State.Graph);
    EXPECT_EQ(Fixture.NodeNamed("Arm"), nullptr);

    tool_node *Upper = Fixture.NodeNamed("Upper");
    ASSERT_TRUE(SetSettingBool(FindSetting(Upper->Settings, SettingId_IncludeDataInExport), false));
    EXPECT_FALSE(IsBoneIncluded(Upper->Settings));
    ExportSkeleton(&Fixture.State, Model);
    skeleton *Skeleton = Model->Skeleton;
    ASSERT_NE(Skeleton, nullptr);
    ASSERT_EQ(Skeleton->BoneCount, 2);
    EXPECT_EQ(Upper->BoneIndex, -1);
    EXPECT_EQ(Upper->FileBone, nullptr);
    bone const *Lower = Fixture.NodeNamed("Lower")->FileBone;
    ASSERT_NE(Lower, nullptr);
    EXPECT_STREQ(Lower->Name, "Lower");
    EXPECT_EQ(Lower->ParentIndex, -1);
    // Its world matrix is still the scene's, though it became a root.
    ExpectWorldMatchesScene(*Lower, Scene, 2);
}

TEST(ModelExport, MoveToOriginPlacesTheFirstBoneAndKeepsWorldMatrices)
{
    fbx_test_scene Scene = MakeChainScene();
    stage_fixture Fixture;
    ASSERT_TRUE(Fixture.Begin(Scene));
    tool_model *Model = Fixture.ModelNamed("Hip");
    tool_model *Prop = Fixture.ModelNamed("Prop");
    ExportSkeleton(&Fixture.State, Model);
    bone Before = Model->Skeleton->Bones[0];
    mesh FakeMesh = {};
    Model->FirstMesh = nullptr;
    ExportModel(&Fixture.State, Model);
    model *Result = Fixture.State.FileInfo.Models[0];
    EXPECT_STREQ(Result->Name, "Hip");
    EXPECT_EQ(Result->Skeleton, Model->Skeleton);
    transform const &Placement = Result->InitialPlacement;
    EXPECT_EQ(Placement.Position[0], 1.0f);
    EXPECT_EQ(Placement.Position[2], 3.0f);
    EXPECT_NEAR(Placement.Orientation[2], 0.70710678f, 1e-6f);
    bone const &First = Model->Skeleton->Bones[0];
    for (int Axis = 0; Axis < 3; ++Axis) EXPECT_NEAR(First.Transform.Position[Axis], 0.0f, 1e-6f);
    EXPECT_NEAR(std::fabs(First.Transform.Orientation[3]), 1.0f, 1e-6f);
    EXPECT_EQ(First.Transform.Flags & 3, 0);
    EXPECT_EQ(0,
              memcmp(First.InverseWorldTransform, Before.InverseWorldTransform, sizeof(Before.InverseWorldTransform)));

    // Without a skeleton the first node's local values place the model; with
    // the setting off the placement stays zeroed. Meshes with a record bind.
    tool_mesh Mesh = {};
    Mesh.FileMesh = &FakeMesh;
    tool_mesh Unexported = {};
    Mesh.NextInModel = &Unexported;
    Prop->FirstMesh = &Mesh;
    Prop->MeshCount = 2;
    ExportModel(&Fixture.State, Prop);
    model *PropModel = Fixture.State.FileInfo.Models[1];
    EXPECT_EQ(PropModel->Skeleton, nullptr);
    EXPECT_EQ(PropModel->InitialPlacement.Position[2], -7.0f);
    ASSERT_EQ(PropModel->MeshBindingCount, 1);
    EXPECT_EQ(PropModel->MeshBindings[0].Mesh, &FakeMesh);
    Prop->FirstMesh = nullptr;
    Prop->MeshCount = 0;
}

TEST(ModelExport, InitialPlacementNormalisesOrReplacesTheOrientation)
{
    real32 const Position[3] = {1, 2, 3};
    real32 const Long[4] = {0, 0, 2, 0};
    real32 const Tiny[4] = {0, 0, 0.00005f, 0};
    transform Result;
    MakeInitialPlacement(nullptr, Position, Long, &Result);
    EXPECT_EQ(Result.Orientation[2], 1.0f);
    EXPECT_EQ(Result.ScaleShear[1][1], 1.0f);
    EXPECT_EQ(Result.Flags, 3);
    MakeInitialPlacement(nullptr, Position, Tiny, &Result);
    EXPECT_EQ(Result.Orientation[2], 0.0f);
    EXPECT_EQ(Result.Orientation[3], 1.0f);
}

TEST(SkeletonExportFile, RepeatedExportsAreIdenticalAndLeaveNothingBehind)
{
    std::string Input = SaveFbxTestFile("arm_file.fbx", WriteFbxTestScene(MakeFbxTestArmScene(), FbxTestBinary(7400)));
    std::string First = PrivateTemporaryDirectory() + "/output_arm_1.ts2";
    std::string Second = PrivateTemporaryDirectory() + "/output_arm_2.ts2";
    int32 Before = LiveBlocks();
    ASSERT_TRUE(ExportFBXFile(Input.c_str(), First.c_str(), nullptr, nullptr));
    ASSERT_TRUE(ExportFBXFile(Input.c_str(), Second.c_str(), nullptr, nullptr));
    EXPECT_EQ(LiveBlocks(), Before);
    remove(Input.c_str());
    for (std::string const &Name : ListTemporaryFiles()) ADD_FAILURE() << "left behind: " << Name;
    std::ifstream A(First, std::ios::binary), B(Second, std::ios::binary);
    std::vector<char> BytesA((std::istreambuf_iterator<char>(A)), {}), BytesB((std::istreambuf_iterator<char>(B)), {});
    EXPECT_FALSE(BytesA.empty());
    EXPECT_TRUE(BytesA == BytesB);

    loaded_file *File = LoadFileFromDisk(First.c_str());
    ASSERT_NE(File, nullptr);
    file_info const *Info = (file_info const *)GetLoadedFileRootObject(*File, nullptr);
    ASSERT_NE(Info, nullptr);
    ASSERT_EQ(Info->SkeletonCount, 1);
    ASSERT_EQ(Info->ModelCount, 1);
    EXPECT_EQ(Info->Models[0]->Skeleton, Info->Skeletons[0]);
    EXPECT_STREQ(Info->Models[0]->Name, "Root");
    ASSERT_EQ(Info->Skeletons[0]->BoneCount, 3);
    EXPECT_STREQ(Info->Skeletons[0]->Bones[0].Name, "Root");
    FreeLoadedFile(File);
    remove(First.c_str());
    remove(Second.c_str());
}

TEST(SkeletonExportFile, InspectShowsTheBoneTreeAndThePlacement)
{
    if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
    std::string Input = SaveFbxTestFile("inspect.fbx", WriteFbxTestScene(MakeFbxTestArmScene(), FbxTestBinary(7400)));
    std::string Output = PrivateTemporaryDirectory() + "/output_inspect.ts2";
    ASSERT_TRUE(ExportFBXFile(Input.c_str(), Output.c_str(), nullptr, nullptr));
    remove(Input.c_str());
    command_result Inspect = RunTessel("inspect " + Output, false);
    std::string const &Text = Inspect.Output;
    EXPECT_EQ(Inspect.Status, 0);
    remove(Output.c_str());
    EXPECT_NE(Text.find("Skeletons: 1\n  \"Root\": 3 bones"), std::string::npos) << Text;
    // Children stand below their parents, indented one step further.
    size_t Root = Text.find("\n    [0] \"Root\"");
    size_t Upper = Text.find("\n      [1] \"Upper\"");
    size_t Lower = Text.find("\n        [2] \"Lower\"");
    EXPECT_TRUE(Root < Upper && Upper < Lower) << Text;
    EXPECT_NE(Text.find("Models: 1\n  \"Root\": skeleton \"Root\""), std::string::npos) << Text;
}
