// `tessel export --threads` and what `tessel inspect` shows of animations.
#include <gtest/gtest.h>

#include "support/test_command.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

std::string ReadAll(std::string const &Path)
{
    std::ifstream In(Path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

} // namespace

TEST(AnimationCommands, ThreadsInspectAndSample)
{
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    char Template[] = "/tmp/tessel_animation_cli_XXXXXX";
    ASSERT_NE(mkdtemp(Template), nullptr);
    std::string const Folder = Template;
    std::string const Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string const Defs = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm_animdefs.xml";
    std::string Files[2];
    for (int Index = 0; Index < 2; ++Index) {
        Files[Index] = Folder + "/arm" + std::to_string(Index + 1) + ".ts2";
        command_result Export = RunTessel("export '" + Scene + "' '" + Files[Index] + "' --animdefs '" + Defs +
                                          "' --threads " + std::to_string(Index + 1));
        ASSERT_EQ(Export.Status, 0) << Export.Output;
    }
    EXPECT_EQ(ReadAll(Files[0]), ReadAll(Files[1])) << "the worker count changed the file";
    EXPECT_NE(RunTessel("export '" + Scene + "' '" + Folder + "/x.ts2' --threads 0").Status, 0);

    command_result Listing = RunTessel("inspect '" + Files[0] + "'", false);
    ASSERT_EQ(Listing.Status, 0);
    EXPECT_NE(Listing.Output.find("Animations: 3"), std::string::npos) << Listing.Output;
    EXPECT_NE(Listing.Output.find("\"Wave\": duration 1 s"), std::string::npos);
    EXPECT_NE(Listing.Output.find("group \"ArmRig\": 5 transform"), std::string::npos);
    EXPECT_NE(Listing.Output.find("orientation D4nK16uC15u degree 2"), std::string::npos);
    command_result Json = RunTessel("inspect --json '" + Files[0] + "'", false);
    EXPECT_NE(Json.Output.find("\"AnimationSummary\": [{\"Name\": \"Lower\""), std::string::npos);

    // The pose at a time: the hand's world moves while the rig's root stays.
    command_result Start = RunTessel("inspect '" + Files[0] + "' --sample 0", false);
    command_result Middle = RunTessel("inspect '" + Files[0] + "' --sample 0.5", false);
    ASSERT_EQ(Start.Status, 0) << Start.Output;
    EXPECT_NE(Start.Output.find("\"Hand\""), std::string::npos);
    EXPECT_NE(Start.Output.find("world position"), std::string::npos);
    EXPECT_NE(Start.Output, Middle.Output);
    command_result Sample = RunTessel("inspect --json '" + Files[0] + "' --sample 0.25", false);
    EXPECT_NE(Sample.Output.find("\"WorldMatrix\": ["), std::string::npos);
    EXPECT_NE(RunTessel("inspect '" + Files[0] + "' --sample soon").Status, 0);
    system(("rm -rf '" + Folder + "'").c_str());
}
