// Bone world matrices of exported files against values computed elsewhere:
// the matrices Blender printed for the scenes it made, and for every file of
// the shared FBX folder a composition of each node's local properties with
// plain matrix math. Every exported file is read back with the TS2 reader.
#include <gtest/gtest.h>

#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>

#include "../fbx/fbx_scene_test_helpers.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "exporter_test_files.h"
#include "fbx/fbx_tessel_scene.h"
#include "format/tessel_file_reader.h"
#include "skeleton_test_support.h"
#include "support/test_log_capture.h"

namespace {

// Just enough JSON for the Blender files: objects, arrays, numbers, strings,
// null.
struct json_value
{
    enum kind { Null, Number, String, Array, Object } Kind = Null;
    double Value = 0;
    std::string Text;
    std::vector<json_value> Items;
    std::map<std::string, json_value> Members;

    json_value const &operator[](std::string const &Name) const
    {
        static json_value const Missing;
        auto Found = Members.find(Name);
        return Found == Members.end() ? Missing : Found->second;
    }
};

struct json_reader
{
    char const *At;

    void Skip() { while (*At && strchr(" \t\r\n", *At)) ++At; }
    std::string ReadString()
    {
        std::string Result;
        for (++At; *At && *At != '"'; ++At) {
            if (*At == '\\') ++At;
            Result += *At;
        }
        if (*At) ++At;
        return Result;
    }
    json_value Read()
    {
        json_value Result;
        Skip();
        if (*At == '{') {
            Result.Kind = json_value::Object;
            for (++At, Skip(); *At && *At != '}'; Skip()) {
                std::string Name = ReadString();
                Skip();
                ++At; // ':'
                Result.Members[Name] = Read();
                Skip();
                if (*At == ',') ++At, Skip();
            }
            if (*At) ++At;
        } else if (*At == '[') {
            Result.Kind = json_value::Array;
            for (++At, Skip(); *At && *At != ']'; Skip()) {
                Result.Items.push_back(Read());
                Skip();
                if (*At == ',') ++At;
            }
            if (*At) ++At;
        } else if (*At == '"') {
            Result.Kind = json_value::String;
            Result.Text = ReadString();
        } else if (!strncmp(At, "null", 4)) {
            At += 4;
        } else {
            char *End = nullptr;
            Result.Kind = json_value::Number;
            Result.Value = strtod(At, &End);
            At = End > At ? End : At + 1;
        }
        return Result;
    }
};

json_value ReadJsonFile(std::string const &Path)
{
    std::ifstream In(Path);
    std::stringstream Text;
    Text << In.rdbuf();
    std::string Contents = Text.str();
    json_reader Reader = {Contents.c_str()};
    return Reader.Read();
}

// A column-vector mat4 as the file's row-vector matrix.
matrix4 ToRowMatrix(mat4 const &Column)
{
    matrix4 Result;
    for (int R = 0; R < 4; ++R)
        for (int C = 0; C < 4; ++C) Result.M[R * 4 + C] = Column.M[C][R];
    return Result;
}

// The exported file's first take-independent facts, or null when it can't
// be read back.
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
// spheric order, sheared results) and top-level nodes with more than
// translation, rotation and scale are left out: top-level bones carry their
// raw local values.
struct expected_worlds
{
    std::map<std::string, matrix4> Worlds;
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
    return Translate4(T[0], T[1], T[2]) * Offset(Node->RotationOffset, 1) * Offset(Node->RotationPivot, 1) *
           Rotation * Offset(Node->RotationPivot, -1) * Offset(Node->ScalingOffset, 1) *
           Offset(Node->ScalingPivot, 1) * Scale4(S[0], S[1], S[2]) * Offset(Node->ScalingPivot, -1);
}

bool IsPlainLocal(KFbxNode *Node)
{
    bool NoRotationExtras = !Node->RotationActive || Node->RotationSpaceForLimitOnly ||
                            (Node->RotationOrder == 0 && !Node->PreRotation.InUse && !Node->PostRotation.InUse);
    return NoRotationExtras && !Node->RotationOffset.InUse && !Node->RotationPivot.InUse &&
           !Node->ScalingOffset.InUse && !Node->ScalingPivot.InUse;
}

bool IsSheared(mat4 const &M)
{
    for (int A = 0; A < 3; ++A)
        for (int B = A + 1; B < 3; ++B) {
            double Dot = 0, LA = 0, LB = 0;
            for (int K = 0; K < 3; ++K) {
                Dot += M.M[K][A] * M.M[K][B];
                LA += M.M[K][A] * M.M[K][A];
                LB += M.M[K][B] * M.M[K][B];
            }
            if (std::fabs(Dot) > 1e-6 * std::sqrt(LA * LB) + 1e-12) return true;
        }
    return false;
}

void CollectWorlds(KFbxNode *Node, mat4 const &ParentWorld, bool Composable, bool TopLevel, expected_worlds &Result)
{
    mat4 World = ParentWorld * ComposeLocal(Node);
    bool Usable = Composable && Node->InheritType == FbxInherit_RSrs && Node->RotationOrder < 6;
    std::string Name = Node->GetName() ? Node->GetName() : "";
    ++Result.NameCounts[Name];
    if (Usable && !IsSheared(World) && (!TopLevel || IsPlainLocal(Node))) Result.Worlds[Name] = ToRowMatrix(World);
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

void ListFBXFiles(std::string const &Folder, std::vector<std::string> &Files)
{
    DIR *Directory = opendir(Folder.c_str());
    if (!Directory) return;
    while (dirent *Entry = readdir(Directory)) {
        std::string Name = Entry->d_name;
        if (Name == "." || Name == "..") continue;
        std::string Path = Folder + "/" + Name;
        struct stat Info;
        if (stat(Path.c_str(), &Info) != 0) continue;
        if (S_ISDIR(Info.st_mode)) {
            ListFBXFiles(Path, Files);
        } else if (Name.size() > 4 && strcasecmp(Name.c_str() + Name.size() - 4, ".fbx") == 0) {
            Files.push_back(Path);
        }
    }
    closedir(Directory);
}

} // namespace

TEST(SkeletonWorlds, BlenderScenesMatchTheMatricesBlenderPrinted)
{
    std::vector<std::string> Scenes = {std::string(TESSEL_SOURCE_DIR) + "/tests/data/blender/branching_rig",
                                       std::string(TESSEL_SOURCE_DIR) + "/tests/data/blender/tail_scale",
                                       std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm"};
    for (std::string const &Scene : Scenes) {
        SCOPED_TRACE(Scene);
        json_value Values = ReadJsonFile(Scene + ".json");
        // The nodes' static values are the first frame of the first take.
        json_value const &Pose = Values["takes"].Items.at(0)["samples"].Items.at(0)["nodes"];
        ASSERT_EQ(Pose.Kind, json_value::Object);
        std::string Output = PrivateTemporaryDirectory() + "/output_blender.ts2";
        ASSERT_TRUE(ExportFBXFile((Scene + ".fbx").c_str(), Output.c_str(), nullptr, nullptr));
        read_back File(Output);
        ASSERT_NE(File.Info, nullptr);
        ASSERT_EQ(File.Info->SkeletonCount, 1);
        skeleton const *Skeleton = File.Info->Skeletons[0];
        int Compared = 0;
        for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
            bone const &Bone = Skeleton->Bones[I];
            json_value const &Node = Pose[Bone.Name];
            ASSERT_EQ(Node.Kind, json_value::Object) << Bone.Name;
            matrix4 Expected;
            for (int R = 0; R < 4; ++R)
                for (int C = 0; C < 4; ++C) Expected.M[R * 4 + C] = Node["world"].Items.at(R).Items.at(C).Value;
            EXPECT_LT(RelativeDifference(BoneWorld(Bone), Expected), 1e-4) << Bone.Name;
            if (I > 0) {
                EXPECT_LT(Bone.ParentIndex, I) << Bone.Name;
            }
            ++Compared;
        }
        // Every node but the skinned mesh's is a bone.
        EXPECT_EQ(Compared + 1, (int)Values["nodes"].Items.size());
        remove(Output.c_str());
    }
}

TEST(SkeletonWorlds, EveryLoadableSharedFileExportsWithBonesWhereTheSceneHasThem)
{
    std::vector<std::string> Files;
    ListFBXFiles(TESSEL_SHARED_FBX_DIR, Files);
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    std::sort(Files.begin(), Files.end());
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
                EXPECT_LT(RelativeDifference(BoneWorld(Bone), Found->second), 1e-4) << Bone.Name;
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
