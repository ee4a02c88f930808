// `tessel inspect` on FBX files as scripts use it, and on files it can't read.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "support/test_command.h"

namespace {

std::string Example(char const *Name)
{
    return std::string(TESSEL_SOURCE_DIR) + "/" + Name;
}

// The value of a numeric or literal key of a flat JSON text, as written.
std::string JsonValue(std::string const &Json, std::string const &Key)
{
    size_t At = Json.find("\"" + Key + "\":");
    if (At == std::string::npos) return "";
    At += Key.size() + 3;
    while (At < Json.size() && Json[At] == ' ') ++At;
    size_t End = Json.find_first_of(",}\n", At);
    return Json.substr(At, End - At);
}

} // namespace

TEST(InspectCommand, FbxJsonAgreesAcrossEncodings)
{
    if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
    command_result Binary = RunTessel("inspect --json '" + Example("examples/rigged_arm.fbx") + "'", false);
    command_result Ascii =
        RunTessel("inspect --json '" + Example("tests/data/blender/rigged_arm_ascii.fbx") + "'", false);
    ASSERT_EQ(Binary.Status, 0) << Binary.Output;
    ASSERT_EQ(Ascii.Status, 0) << Ascii.Output;
    EXPECT_EQ(JsonValue(Binary.Output, "binary"), "true");
    EXPECT_EQ(JsonValue(Ascii.Output, "binary"), "false");
    EXPECT_EQ(JsonValue(Binary.Output, "version"), "7400");
    // The arm: armature, four bones and the mesh node; a tube of 112 points.
    EXPECT_EQ(JsonValue(Binary.Output, "node_count"), "6");
    EXPECT_EQ(JsonValue(Binary.Output, "control_point_count"), "112");
    EXPECT_EQ(JsonValue(Binary.Output, "skin_cluster_count"), "4");
    for (char const *Key : {"node_count", "mesh_count", "control_point_count", "polygon_count", "skin_cluster_count"}) {
        EXPECT_EQ(JsonValue(Binary.Output, Key), JsonValue(Ascii.Output, Key)) << Key;
    }
    EXPECT_NE(Binary.Output.find("\"name\": \"ArmScene\""), std::string::npos) << Binary.Output;
    EXPECT_EQ(JsonValue(Binary.Output, "stop"), "3");
}

TEST(InspectCommand, RefusesWhatItCannotRead)
{
    if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
    std::string Garbage = std::string(TESSEL_BINARY_DIR) + "/inspect_garbage.bin";
    FILE *File = fopen(Garbage.c_str(), "wb");
    fputs("Kaydara FBX Binary  \0\x1a\0\xff\xff", File);
    fclose(File);
    command_result Damaged = RunTessel("inspect '" + Garbage + "'");
    remove(Garbage.c_str());
    EXPECT_NE(Damaged.Status, 0);
    EXPECT_FALSE(Damaged.Output.empty());
    command_result Missing = RunTessel("inspect /nonexistent/scene.fbx");
    EXPECT_NE(Missing.Status, 0);
    EXPECT_NE(Missing.Output.find("scene.fbx"), std::string::npos) << Missing.Output;
    EXPECT_EQ(RunTessel("inspect --help").Status, 0);
}
