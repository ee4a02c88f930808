// Bone world matrices of exported files against the bind matrices Blender
// printed for the scenes it made, and every file of the shared FBX folder
// through a whole export and back through the TS2 reader. (The shared files
// were compared here with a composition of each node's static properties;
// bones now stand in the bind pose, which test_corpus_transforms checks
// against the independent reader's bind worlds.)
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

// The bind world matrix Blender printed for a node: the "bind_world" of its
// entry in "nodes" (rows are axis images, as files store matrices).
bool ReadBlenderBindWorld(std::string const &Json, std::string const &Node, double World[16])
{
    size_t At = Json.find("\"name\": \"" + Node + "\"", Json.find("\"nodes\""));
    At = At == std::string::npos ? At : Json.find("\"bind_world\"", At);
    if (At == std::string::npos) return false;
    char const *Text = Json.c_str() + At + 13;
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
        // Bones stand in the bind pose (they used to stand in the static pose,
        // the first frame of the first take).
        for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
            bone const &Bone = Skeleton->Bones[I];
            double World[16];
            ASSERT_TRUE(ReadBlenderBindWorld(Json, Bone.Name, World)) << Bone.Name;
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
    int Exported = 0, Refused = 0, Bones = 0;
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
            }
        }
        remove(Output.c_str());
    }
    EXPECT_EQ(LiveBlocks(), Before);
    EXPECT_TRUE(ListTemporaryFiles().empty());
    EXPECT_GT(Exported, 0);
    std::printf("shared files: %d exported, %d refused by the reader, %d bones\n", Exported, Refused, Bones);
}
