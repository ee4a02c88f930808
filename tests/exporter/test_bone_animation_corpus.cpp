// Bone animation over the shared FBX files: the exported curves, composed
// through each skeleton, against an independent reader's world matrices of
// every animated bone; and the same bytes whatever the number of workers.
#include "animation/tessel_compression_queue.h"
#include "animation/tessel_track_group.h"
#include "exporter/exporter_test_files.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_transform.h"
#include "support/animation_reference.h"
#include "support/test_log_capture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>

using namespace animation_reference;

namespace {

struct file_deleter
{
    void operator()(loaded_file *File) const { FreeLoadedFile(File); }
};

bool Export(std::string const &Input, std::string const &Output)
{
    fbx_tool_interface *Tool = fbx_tool::CreateToolInterface(Input.c_str());
    if (!Tool) return false;
    export_options Options = {};
    // A settings file to compare with, e.g. one with compression off.
    Options.SettingsFileName = getenv("TESSEL_CORPUS_SETTINGS");
    bool Written = Tool->FBX && RunExport(Tool, Output.c_str(), &Options, nullptr);
    fbx_tool::DestroyToolInterface(Tool);
    return Written;
}

std::vector<uint8_t> ReadBytes(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

std::vector<std::string> AnimatedSharedFiles()
{
    std::vector<std::string> Result;
    std::string const Root = TESSEL_SHARED_FBX_DIR;
    for (std::string const &Path : ListSharedFBXFiles()) {
        std::string Relative = Path.substr(Root.size() + 1);
        std::ifstream In(Root + "/reference/" + Relative + ".json");
        if (!In) continue;
        std::string Head((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
        size_t At = Head.find("\"animations\"");
        if (At != std::string::npos && Head.find("\"times\"", At) != std::string::npos) Result.push_back(Relative);
    }
    return Result;
}

} // namespace

// The figures of every animated file go to the test's output; a few files
// of each source are pinned; the others are reported only. A name that the
// reference gives two nodes is not compared.
TEST(BoneAnimationCorpus, CurvesComposeToTheReferenceWorlds)
{
    std::vector<std::string> Files = AnimatedSharedFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    // Bounds on the 99th percentile and on the largest error, in parts of
    // the skeleton's size: the default tolerances (0.01 units, 0.1 degrees)
    // carried down each chain of bones.
    struct bound
    {
        double Percentile99, Largest;
    };
    std::string const Characters = "quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/";
    std::string const Mocap = "cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/";
    std::map<std::string, bound> const Pinned = {
        {Mocap + "01_01_cmu.fbx", {0.002, 0.005}},
        {Mocap + "49_08_cmu.fbx", {0.003, 0.05}},
        {Mocap + "55_01_cmu.fbx", {0.002, 0.005}},
        {Characters + "Alien Animated - April 2019/FBX/Alien.fbx", {0.02, 0.05}},
        {Characters + "Fish Pack Animated - Apr 2018/FBX/Manta ray.fbx", {0.002, 0.005}},
        {"assimp/test/models/FBX/huesitos.fbx", {0.005, 0.005}},
        {"ufbx/data/max_transformed_skin_7500_binary.fbx", {0.001, 0.002}},
        {"ufbx/data/maya_game_sausage_7500_binary_spin.fbx", {0.01, 0.01}},
        // Repeated node names, whole-frame sampling, FBX 5 key weights,
        // extrapolation and layer weights.
        {Characters + "Goblin Animated [Patreon Exclusive]/FBX/Goblin.fbx", {0.02, 0.05}},
        {Characters + "Animated Robot - Oct 2018/FBX/Robot.fbx", {0.03, 0.4}},
        {Characters + "Man Animated - Oct 2017/FBX/Animated Human.fbx", {0.015, 0.04}},
        {"ufbx/data/max7_skin_5000_binary.fbx", {0.001, 0.002}},
        {"ufbx/data/motionbuilder_extrapolation_relative_count_7700_ascii.fbx", {0.002, 0.005}},
        {"ufbx/data/motionbuilder_extrapolation_mirror_count_7700_binary.fbx", {0.03, 0.04}},
        {"ufbx/data/maya_anim_layer_anim_7700_ascii.fbx", {0.03, 0.05}},
    };
    std::string const Output = PrivateTemporaryDirectory() + "/output_corpus_animation.ts2";
    for (std::string const &Relative : Files) {
        SCOPED_TRACE(Relative);
        std::string Input = std::string(TESSEL_SHARED_FBX_DIR) + "/" + Relative;
        json Reference;
        ASSERT_TRUE(ReadJson(std::string(TESSEL_SHARED_FBX_DIR) + "/reference/" + Relative + ".json", Reference));
        if (!Export(Input, Output)) {
            printf("  %-60.60s not exported\n", Relative.c_str());
            continue;
        }
        std::unique_ptr<loaded_file, file_deleter> File(LoadFileFromDisk(Output.c_str()));
        remove(Output.c_str());
        ASSERT_TRUE(File);
        file_info const *Info = (file_info const *)GetLoadedFileRootObjectOfType(*File, FileInfoType);
        ASSERT_NE(Info, nullptr);
        file_errors Errors = CompareWithReference(*Info, Reference);
        printf("  %s\n      groups %2d  bone samples %6zu  largest %.3g  p99 %.3g\n", Relative.c_str(), Errors.Compared,
               Errors.Errors.size(), Errors.Largest(), Errors.Percentile99());
        auto Pin = Pinned.find(Relative);
        if (Pin != Pinned.end()) {
            EXPECT_GT(Errors.Errors.size(), 0u);
            EXPECT_LT(Errors.Percentile99(), Pin->second.Percentile99);
            EXPECT_LT(Errors.Largest(), Pin->second.Largest);
        }
    }
}

TEST(BoneAnimationCorpus, SameBytesWithOneTwoAndEightWorkers)
{
    std::vector<std::string> Files = AnimatedSharedFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    std::string const Output = PrivateTemporaryDirectory() + "/output_threads.ts2";
    int Compared = 0;
    for (std::string const &Relative : Files) {
        SCOPED_TRACE(Relative);
        std::string Input = std::string(TESSEL_SHARED_FBX_DIR) + "/" + Relative;
        std::vector<uint8_t> First;
        for (int32 Workers : {1, 2, 8}) {
            SetCompressionThreadCount(Workers);
            bool Written = Export(Input, Output);
            std::vector<uint8_t> Bytes = Written ? ReadBytes(Output) : std::vector<uint8_t>();
            remove(Output.c_str());
            if (Workers == 1) {
                First = Bytes;
            } else {
                EXPECT_TRUE(Bytes == First) << Workers << " workers";
            }
        }
        if (!First.empty()) ++Compared;
    }
    SetCompressionThreadCount(0);
    EXPECT_GT(Compared, 0);
}
