// Bone world matrices of exported files against values computed elsewhere:
// the matrices Blender printed for the scenes it made, and for every file of
// the shared FBX folder a composition of each node's local properties with
// plain matrix math. Every exported file is read back with the TS2 reader.
#include <gtest/gtest.h>

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <map>
#include <sys/stat.h>

#include "../fbx/fbx_scene_test_helpers.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "exporter_test_files.h"
#include "fbx/fbx_tessel_scene.h"
#include "format/tessel_file_reader.h"
#include "skeleton_test_support.h"
#include "support/test_log_capture.h"

using namespace fbx_tool;

namespace {

// The world matrix Blender printed for a node at the first sample of the
// first take: the node's entry after the first "samples", then its "world".
bool ReadBlenderWorld(std::string const &Json, std::string const &Node, double World[16])
{
    size_t At = Json.find("\"samples\"", Json.find("\"takes\""));
    At = At == std::string::npos ? At : Json.find("\"" + Node + "\": {", At);
    At = At == std::string::npos ? At : Json.find("\"world\"", At);
    if (At == std::string::npos) return false;
    char const *Text = Json.c_str() + At + 8;
    for (int I = 0; I < 16; ++I) {
        while (*Text && !strchr("-0123456789", *Text)) ++Text;
        char *End = nullptr;
        World[I] = strtod(Text, &End);
        if (End == Text) return false;
        Text = End;
    }
    return true;
}

// An exported file read back with the TS2 reader.
struct read_back
{
    loaded_file *File = nullptr;
    file_info const *Info = nullptr;
    explicit read_back(std::string const &Path)
    {
        File = LoadFileFromDisk(Path.c_str());
        if (File) Info = (file_info const *)GetLoadedFileRootObject(*File, nullptr);
    }
    ~read_back() { FreeLoadedFile(File); }
};

bool RunOneExport(fbx_tool_interface *Tool, std::string const &Output)
{
    export_options Options = {};
    return RunExport(Tool, Output.c_str(), &Options, nullptr);
}

// Expected world matrices of the nodes whose exported world is the scene's
// global transform: the node's local matrix with offsets, pivots and
// pre/post-rotation, composed up the chain of parents. Nodes that the
// composition can't stand for (inherit types other than the default, the
// spheric order, sheared or collapsed results) and top-level nodes with more than
// translation, rotation and scale are left out: top-level bones carry their
// raw local values.
struct expected_worlds
{
    std::map<std::string, std::vector<double>> Worlds; // row-vector, as files store them
    std::map<std::string, int> NameCounts;
};

mat4 ComposeLocal(KFbxNode *Node)
{
    KFbxVector4 T = Node->GetLocalTranslation(KTime(0)), R = Node->GetLocalRotation(KTime(0)),
                S = Node->GetLocalScaling(KTime(0));
    double Angles[3] = {R[0], R[1], R[2]};
    mat4 Rotation = Euler4(Angles, 0);
    if (Node->RotationActive && !Node->RotationSpaceForLimitOnly) {
        Rotation = Euler4(Angles, Node->RotationOrder);
        if (Node->PreRotation.InUse) {
            double Pre[3] = {Node->PreRotation.Value[0], Node->PreRotation.Value[1], Node->PreRotation.Value[2]};
            Rotation = Euler4(Pre, 0) * Rotation;
        }
        if (Node->PostRotation.InUse) {
            double Post[3] = {Node->PostRotation.Value[0], Node->PostRotation.Value[1], Node->PostRotation.Value[2]};
            Rotation = Rotation * Transpose4(Euler4(Post, 0));
        }
    }
    auto Offset = [](fbx_optional_vector const &V, double Sign) {
        return V.InUse ? Translate4(Sign * V.Value[0], Sign * V.Value[1], Sign * V.Value[2]) : Identity4();
    };
    return Translate4(T[0], T[1], T[2]) * Offset(Node->RotationOffset, 1) * Offset(Node->RotationPivot, 1) * Rotation *
           Offset(Node->RotationPivot, -1) * Offset(Node->ScalingOffset, 1) * Offset(Node->ScalingPivot, 1) *
           Scale4(S[0], S[1], S[2]) * Offset(Node->ScalingPivot, -1);
}

bool IsPlainLocal(KFbxNode *Node)
{
    bool NoRotationExtras = !Node->RotationActive || Node->RotationSpaceForLimitOnly ||
                            (Node->RotationOrder == 0 && !Node->PreRotation.InUse && !Node->PostRotation.InUse);
    return NoRotationExtras && !Node->RotationOffset.InUse && !Node->RotationPivot.InUse &&
           !Node->ScalingOffset.InUse && !Node->ScalingPivot.InUse;
}

// Shear (axes not at right angles) or a collapsed axis: a bone transform
// of position, rotation and per-axis scale can't stand for such a matrix,
// and a collapsed one has no inverse to store.
bool IsUnrepresentable(mat4 const &M)
{
    double Length[3];
    for (int A = 0; A < 3; ++A)
        Length[A] = std::sqrt(M.M[0][A] * M.M[0][A] + M.M[1][A] * M.M[1][A] + M.M[2][A] * M.M[2][A]);
    double Largest = std::fmax(Length[0], std::fmax(Length[1], Length[2]));
    for (int A = 0; A < 3; ++A) {
        if (Length[A] < 1e-3 * Largest || Length[A] < 1e-6) return true;
        for (int B = A + 1; B < 3; ++B) {
            double Dot = M.M[0][A] * M.M[0][B] + M.M[1][A] * M.M[1][B] + M.M[2][A] * M.M[2][B];
            if (std::fabs(Dot) > 1e-6 * Length[A] * Length[B]) return true;
        }
    }
    return false;
}

void CollectWorlds(KFbxNode *Node, mat4 const &ParentWorld, bool Composable, bool TopLevel, expected_worlds &Result)
{
    mat4 World = ParentWorld * ComposeLocal(Node);
    bool Usable = Composable && Node->InheritType == FbxInherit_RSrs && Node->RotationOrder < 6;
    std::string Name = Node->GetName() ? Node->GetName() : "";
    ++Result.NameCounts[Name];
    if (Usable && !IsUnrepresentable(World) && (!TopLevel || IsPlainLocal(Node))) {
        std::vector<double> &Row = Result.Worlds[Name];
        for (int R = 0; R < 4; ++R)
            for (int C = 0; C < 4; ++C) Row.push_back(World.M[C][R]);
    }
    for (int32 I = 0; I < Node->GetChildCount(); ++I) {
        if (Node->GetChild(I)) CollectWorlds(Node->GetChild(I), World, Usable, false, Result);
    }
}

expected_worlds ComputeExpectedWorlds(KFbxScene *Scene)
{
    expected_worlds Result;
    Scene->SetCurrentTake("Default");
    KFbxNode *Root = Scene->GetRootNode();
    for (int32 I = 0; Root && I < Root->GetChildCount(); ++I) {
        if (Root->GetChild(I)) CollectWorlds(Root->GetChild(I), Identity4(), true, true, Result);
    }
    return Result;
}

} // namespace

TEST(SkeletonWorlds, BlenderScenesMatchTheMatricesBlenderPrinted)
{
    std::vector<std::string> Scenes = {std::string(TESSEL_SOURCE_DIR) + "/tests/data/blender/branching_rig",
                                       std::string(TESSEL_SOURCE_DIR) + "/tests/data/blender/tail_scale",
                                       std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm"};
    for (std::string const &Scene : Scenes) {
        SCOPED_TRACE(Scene);
        std::ifstream In(Scene + ".json");
        std::string Json((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
        std::string Output = PrivateTemporaryDirectory() + "/output_blender.ts2";
        ASSERT_TRUE(ExportFBXFile((Scene + ".fbx").c_str(), Output.c_str(), nullptr, nullptr));
        read_back File(Output);
        ASSERT_NE(File.Info, nullptr);
        ASSERT_EQ(File.Info->SkeletonCount, 1);
        skeleton const *Skeleton = File.Info->Skeletons[0];
        // Every node but the skinned mesh's is a bone.
        std::string Nodes = Json.substr(0, Json.find("\"meshes\""));
        auto Count = [&](char const *What) {
            int N = 0;
            for (size_t At = Nodes.find(What); At != std::string::npos; At = Nodes.find(What, At + 1)) ++N;
            return N;
        };
        EXPECT_EQ(Skeleton->BoneCount, Count("\"type\"") - Count("\"type\": \"Mesh\""));
        // The nodes' static values are the first frame of the first take.
        for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
            bone const &Bone = Skeleton->Bones[I];
            double World[16];
            ASSERT_TRUE(ReadBlenderWorld(Json, Bone.Name, World)) << Bone.Name;
            EXPECT_LT(InverseMismatch(Bone, World), 1e-4) << Bone.Name;
        }
        remove(Output.c_str());
    }
}

TEST(SkeletonWorlds, EveryLoadableSharedFileExportsWithBonesWhereTheSceneHasThem)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    int32 Before = LiveBlocks();
    int Exported = 0, Refused = 0, Compared = 0, Bones = 0;
    std::string Output = PrivateTemporaryDirectory() + "/output_shared.ts2";
    for (std::string const &Path : Files) {
        SCOPED_TRACE(Path);
        fbx_tool_interface *Tool = CreateToolInterface(Path.c_str());
        ASSERT_NE(Tool, nullptr);
        if (!Tool->FBX) {
            ++Refused;
            DestroyToolInterface(Tool);
            continue;
        }
        expected_worlds Expected = ComputeExpectedWorlds(Tool->FBX->Scene);
        bool Written = RunOneExport(Tool, Output);
        DestroyToolInterface(Tool);
        ASSERT_TRUE(Written);
        ++Exported;

        read_back File(Output);
        ASSERT_NE(File.Info, nullptr);
        EXPECT_EQ(File.Info->SkeletonCount, File.Info->ModelCount);
        for (int32 S = 0; S < File.Info->SkeletonCount; ++S) {
            skeleton const *Skeleton = File.Info->Skeletons[S];
            for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
                bone const &Bone = Skeleton->Bones[I];
                EXPECT_LT(Bone.ParentIndex, I);
                ++Bones;
                auto Found = Expected.Worlds.find(Bone.Name ? Bone.Name : "");
                if (Found == Expected.Worlds.end() || Expected.NameCounts[Found->first] != 1) continue;
                EXPECT_LT(InverseMismatch(Bone, Found->second.data()), 1e-4) << Bone.Name;
                ++Compared;
            }
        }
        remove(Output.c_str());
    }
    EXPECT_EQ(LiveBlocks(), Before);
    EXPECT_TRUE(ListTemporaryFiles().empty());
    EXPECT_GT(Exported, 0);
    EXPECT_GT(Compared, 0);
    std::printf("shared files: %d exported, %d refused by the reader; %d of %d bone worlds compared\n", Exported,
                Refused, Compared, Bones);
}
