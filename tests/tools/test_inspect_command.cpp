// `tessel inspect` on FBX files as scripts use it, and on files it can't read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

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

namespace {

// Every "[N] ... M more" line of a text listing, as N + M (the array's
// length) by N (how many were shown).
std::vector<std::pair<int, int>> CutArrays(std::string const &Listing)
{
    std::vector<std::pair<int, int>> Cuts;
    size_t At = 0;
    while ((At = Listing.find("] ... ", At)) != std::string::npos) {
        size_t Open = Listing.rfind('[', At);
        int Shown = atoi(Listing.c_str() + Open + 1), More = atoi(Listing.c_str() + At + 6);
        Cuts.push_back({Shown, Shown + More});
        At += 6;
    }
    return Cuts;
}

} // namespace

TEST(InspectCommand, HeaderOnlyAndArrayLimitsOfTS2Files)
{
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    std::string Out = std::string(TESSEL_BINARY_DIR) + "/inspect_arm.ts2";
    command_result Export = RunTessel("export '" + Example("examples/rigged_arm.fbx") + "' '" + Out + "'");
    ASSERT_EQ(Export.Status, 0) << Export.Output;

    command_result Header = RunTessel("inspect --header '" + Out + "'", false);
    command_result Full = RunTessel("inspect '" + Out + "'", false);
    ASSERT_EQ(Header.Status, 0) << Header.Output;
    ASSERT_EQ(Full.Status, 0) << Full.Output;
    EXPECT_NE(Header.Output.find("Sections: 8"), std::string::npos) << Header.Output;
    EXPECT_NE(Header.Output.find("[7] 7 - StandardUnloadedSection"), std::string::npos) << Header.Output;
    EXPECT_EQ(Full.Output.compare(0, Header.Output.size(), Header.Output), 0) << "the listing starts with the header";
    EXPECT_EQ(Header.Output.find("Bones"), std::string::npos) << "no object tree";
    EXPECT_NE(Full.Output.find("Bones"), std::string::npos);

    // Text shows 16 elements of an array by default, N with --max-elements N,
    // all with 0; the arrays are the same whatever the limit.
    command_result Two = RunTessel("inspect --max-elements 2 '" + Out + "'", false);
    command_result All = RunTessel("inspect --max-elements 0 '" + Out + "'", false);
    ASSERT_EQ(Two.Status, 0);
    ASSERT_EQ(All.Status, 0);
    std::vector<std::pair<int, int>> Default = CutArrays(Full.Output), Short = CutArrays(Two.Output);
    ASSERT_FALSE(Default.empty());
    for (auto const &Cut : Default) EXPECT_EQ(Cut.first, 16);
    ASSERT_GT(Short.size(), Default.size());
    for (auto const &Cut : Short) EXPECT_EQ(Cut.first, 2);
    for (auto const &Cut : Default) {
        EXPECT_NE(std::find(Short.begin(), Short.end(), std::make_pair(2, Cut.second)), Short.end()) << Cut.second;
    }
    EXPECT_TRUE(CutArrays(All.Output).empty());
    EXPECT_GT(All.Output.size(), Full.Output.size());

    // JSON prints every element unless told otherwise.
    command_result Json = RunTessel("inspect --json '" + Out + "'", false);
    command_result JsonTwo = RunTessel("inspect --json --max-elements 2 '" + Out + "'", false);
    EXPECT_EQ(Json.Output.find("\"$more\""), std::string::npos);
    EXPECT_NE(JsonTwo.Output.find("\"$more\": 238"), std::string::npos) << "240 vertices, 2 shown";
    remove(Out.c_str());
}
