// `tessel anim-report` and the world error budget seen from the command
// line: the report's text, JSON and chart, the budget met, the same bytes
// for any worker count, and exports that the budget's default leaves alone.
#include <gtest/gtest.h>

#include "support/test_command.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <unistd.h>

namespace {

std::string ReadAll(std::string const &Path)
{
    std::ifstream In(Path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
}

// Every value of a numeric JSON key.
std::vector<double> Values(std::string const &Json, std::string const &Key)
{
    std::vector<double> Result;
    std::regex Pattern("\"" + Key + "\": ([-0-9.e+]+)");
    for (auto It = std::sregex_iterator(Json.begin(), Json.end(), Pattern); It != std::sregex_iterator(); ++It)
        Result.push_back(std::stod((*It)[1].str()));
    return Result;
}

struct scratch
{
    std::string Folder;
    scratch()
    {
        char Template[] = "/tmp/tessel_anim_report_XXXXXX";
        Folder = mkdtemp(Template) ? Template : "";
    }
    ~scratch() { system(("rm -rf '" + Folder + "'").c_str()); }
};

std::string const Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
std::string const Defs = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm_animdefs.xml";

std::string BudgetSettings(scratch const &Scratch, char const *Value)
{
    std::string Path = Scratch.Folder + "/budget" + Value + ".tss";
    command_result Written =
        RunTessel("settings --write '" + Path + "' --set 'Maximum world error=" + std::string(Value) + "'");
    EXPECT_EQ(Written.Status, 0) << Written.Output;
    return Path;
}

} // namespace

TEST(AnimReportCommand, TextJsonAndChart)
{
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    scratch Scratch;
    command_result Help = RunTessel("anim-report --help", false);
    EXPECT_EQ(Help.Status, 0);
    EXPECT_NE(Help.Output.find("--svg"), std::string::npos);
    EXPECT_NE(RunTessel("anim-report").Status, 0);
    EXPECT_NE(RunTessel("anim-report '" + Scratch.Folder + "/missing.fbx'").Status, 0);
    EXPECT_NE(RunTessel("anim-report '" + Scene + "' --bogus").Status, 0);

    std::string const Chart = Scratch.Folder + "/arm.svg";
    command_result Text =
        RunTessel("anim-report '" + Scene + "' --animdefs '" + Defs + "' --svg '" + Chart + "'", false);
    ASSERT_EQ(Text.Status, 0) << Text.Output;
    EXPECT_NE(Text.Output.find("animation \"Wave\""), std::string::npos) << Text.Output;
    EXPECT_NE(Text.Output.find("no world error budget"), std::string::npos);
    EXPECT_NE(Text.Output.find("Forearm"), std::string::npos);
    EXPECT_NE(Text.Output.find("D4nK16uC15u d2"), std::string::npos);
    EXPECT_NE(Text.Output.find("bytes per bone per second"), std::string::npos);

    std::string Svg = ReadAll(Chart);
    EXPECT_EQ(Svg.rfind("<svg", 0), 0u);
    EXPECT_NE(Svg.find("</svg>"), std::string::npos);
    EXPECT_NE(Svg.find("<polyline"), std::string::npos); // error over time
    EXPECT_NE(Svg.find("Wave: "), std::string::npos);    // one panel per animation
    EXPECT_NE(Svg.find("Forearm"), std::string::npos);   // a bar per bone

    command_result Json = RunTessel("anim-report '" + Scene + "' --animdefs '" + Defs + "' --json", false);
    ASSERT_EQ(Json.Status, 0);
    EXPECT_EQ(Json.Output.rfind("{\"file\": ", 0), 0u) << Json.Output;
    EXPECT_EQ(Values(Json.Output, "bones").size(), 3u); // three animations
    std::vector<double> Rates = Values(Json.Output, "bytes_per_bone_second");
    std::vector<double> Compressed = Values(Json.Output, "compressed_bytes_per_bone_second");
    ASSERT_EQ(Rates.size(), 3u);
    for (size_t Index = 0; Index < Rates.size(); ++Index) {
        EXPECT_GT(Rates[Index], 0.0);
        EXPECT_LE(Compressed[Index], Rates[Index]);
    }
}

TEST(AnimReportCommand, BudgetMetSameBytesForAnyWorkerCountAndDefaultsUntouched)
{
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    scratch Scratch;
    std::string const Budget = BudgetSettings(Scratch, "0.01");
    command_result Json =
        RunTessel("anim-report '" + Scene + "' --animdefs '" + Defs + "' --settings '" + Budget + "' --json", false);
    ASSERT_EQ(Json.Status, 0) << Json.Output;
    std::vector<double> Largest = Values(Json.Output, "largest_error");
    ASSERT_FALSE(Largest.empty());
    for (double Value : Largest) EXPECT_LE(Value, 0.01);
    EXPECT_NE(Json.Output.find("\"maximum_world_error\": 0.01"), std::string::npos);
    EXPECT_EQ(Json.Output.find("\"over_budget\": [\""), std::string::npos);
    // The defaults miss this budget: the budget did the work.
    command_result Plain = RunTessel("anim-report '" + Scene + "' --animdefs '" + Defs + "' --json", false);
    std::vector<double> PlainLargest = Values(Plain.Output, "largest_error");
    EXPECT_GT(*std::max_element(PlainLargest.begin(), PlainLargest.end()), 0.01);

    std::string Files[3];
    for (int Index = 0; Index < 3; ++Index) {
        Files[Index] = Scratch.Folder + "/arm" + std::to_string(Index) + ".ts2";
        int Threads[3] = {1, 2, 8};
        command_result Export = RunTessel("export '" + Scene + "' '" + Files[Index] + "' --animdefs '" + Defs +
                                          "' --settings '" + Budget + "' --threads " + std::to_string(Threads[Index]));
        ASSERT_EQ(Export.Status, 0) << Export.Output;
    }
    EXPECT_EQ(ReadAll(Files[0]), ReadAll(Files[1]));
    EXPECT_EQ(ReadAll(Files[0]), ReadAll(Files[2]));

    // A budget of 0 written out explicitly exports what the defaults do.
    std::string const Off = BudgetSettings(Scratch, "0");
    std::string const Default = Scratch.Folder + "/default.ts2", Explicit = Scratch.Folder + "/off.ts2";
    ASSERT_EQ(RunTessel("export '" + Scene + "' '" + Default + "' --animdefs '" + Defs + "'").Status, 0);
    ASSERT_EQ(RunTessel("export '" + Scene + "' '" + Explicit + "' --animdefs '" + Defs + "' --settings '" + Off + "'")
                  .Status,
              0);
    EXPECT_EQ(ReadAll(Default), ReadAll(Explicit));
    EXPECT_NE(ReadAll(Default), ReadAll(Files[0]));
}

TEST(AnimReportCommand, MotionCaptureClipMeetsHalfAMillimetre)
{
    std::string const Clip =
        std::string(TESSEL_SHARED_FBX_DIR) + "/cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/01_01_cmu.fbx";
    if (access(Clip.c_str(), R_OK) != 0) GTEST_SKIP() << "the shared FBX files are not there";
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    scratch Scratch;
    std::string const Budget = BudgetSettings(Scratch, "0.05");
    command_result Json = RunTessel("anim-report '" + Clip + "' --settings '" + Budget + "' --json", false);
    ASSERT_EQ(Json.Status, 0) << Json.Output;
    std::vector<double> Largest = Values(Json.Output, "largest_error");
    std::vector<double> P99 = Values(Json.Output, "p99_error");
    ASSERT_EQ(Values(Json.Output, "bones"), std::vector<double>{39});
    for (double Value : Largest) EXPECT_LE(Value, 0.05);
    EXPECT_LE(P99.at(0), 0.01); // the animation's, over every bone and sample
}

TEST(AnimReportCommand, BudgetIsInTheUnitsTheFileIsWrittenIn)
{
    // The arm is in centimetres. A budget of 0.001 with the scene rescaled
    // to metres is the same 0.1 cm: the same curves, and figures in metres.
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    scratch Scratch;
    std::string const Centimetres = BudgetSettings(Scratch, "0.1");
    std::string const Metres = Scratch.Folder + "/metres.tss";
    ASSERT_EQ(RunTessel("settings --write '" + Metres + "' --set 'Maximum world error=0.001' --set " +
                        "'Rescale scene on export=on' --set 'Units per Meter=1'")
                  .Status,
              0);
    command_result A = RunTessel(
        "anim-report '" + Scene + "' --animdefs '" + Defs + "' --settings '" + Centimetres + "' --json", false);
    command_result B =
        RunTessel("anim-report '" + Scene + "' --animdefs '" + Defs + "' --settings '" + Metres + "' --json", false);
    ASSERT_EQ(A.Status, 0) << A.Output;
    ASSERT_EQ(B.Status, 0) << B.Output;
    EXPECT_EQ(Values(A.Output, "bytes"), Values(B.Output, "bytes"));
    std::vector<double> InCentimetres = Values(A.Output, "largest_error");
    std::vector<double> InMetres = Values(B.Output, "largest_error");
    ASSERT_EQ(InCentimetres.size(), InMetres.size());
    for (size_t Index = 0; Index < InMetres.size(); ++Index) {
        EXPECT_NEAR(InMetres[Index] * 100.0, InCentimetres[Index], 1e-6 + 1e-4 * InCentimetres[Index]);
        EXPECT_LE(InMetres[Index], 0.001);
    }
}
