// Every file of the shared FBX folder that exports, converted to each of the
// four platforms: the tree survives, the way back gives the export's bytes,
// big-endian files hold no little-endian fields; and the convert and inspect
// commands on files of every platform.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "../exporter/exporter_test_files.cpp" // ListSharedFBXFiles and a private $TMPDIR
#include "fbx_tool/fbx_tessel.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "format/platform_test_support.h"
#include "format/tessel_platform_convert.h"
#include "format/tessel_schema.h"
#include "support/test_command.h"
#include "support/test_log_capture.h"

using namespace platform_test;

namespace {

bytes ReadBytes(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return bytes(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

} // namespace

TEST(PlatformExports, EverySharedFileInEveryPlatform)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    int32 Before = LiveBlocks();
    int Exported = 0;
    std::string Output = PrivateTemporaryDirectory() + "/output_platform.ts2";
    for (std::string const &Path : Files) {
        SCOPED_TRACE(Path);
        fbx_tool_interface *Tool = fbx_tool::CreateToolInterface(Path.c_str());
        ASSERT_NE(Tool, nullptr);
        export_options Options = {};
        bool Written = Tool->FBX && RunExport(Tool, Output.c_str(), &Options, nullptr);
        fbx_tool::DestroyToolInterface(Tool);
        if (!Written) continue;
        ++Exported;
        bytes Native = ReadBytes(Output);
        remove(Output.c_str());
        bytes Files[4];
        EXPECT_EQ(CheckEveryPlatform(Native, Files), "");
    }
    EXPECT_GT(Exported, 0);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(PlatformExports, ConvertAndInspectCommands)
{
    std::string Program = TesselProgramPath();
    if (Program.empty()) GTEST_SKIP() << "the tessel program is not built";
    std::string Folder = PrivateTemporaryDirectory();
    std::string Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string Native = Folder + "/output_native.ts2";
    ASSERT_EQ(RunTessel("export '" + Scene + "' '" + Native + "'").Status, 0);
    bytes NativeBytes = ReadBytes(Native);

    command_result Help = RunTessel("convert --help");
    EXPECT_EQ(Help.Status, 0);
    EXPECT_NE(Help.Output.find("--platform"), std::string::npos);
    EXPECT_EQ(RunTessel("convert '" + Native + "' '" + Folder + "/output_x.ts2' --platform 16le").Status, 2);
    EXPECT_EQ(RunTessel("convert '" + Native + "' --platform 32le").Status, 2);
    EXPECT_EQ(RunTessel("convert '" + Scene + "' '" + Folder + "/output_x.ts2' --platform 32le").Status, 1);

    char const *Names[] = {"32-bit little-endian", "32-bit big-endian", "64-bit little-endian", "64-bit big-endian"};
    for (int Index = 0; Index < 4; ++Index) {
        platform const &Platform = Platforms[Index];
        SCOPED_TRACE(Platform.Name);
        std::string Converted = Folder + "/output_" + Platform.Name + ".ts2";
        ASSERT_EQ(RunTessel("convert '" + Native + "' '" + Converted + "' --platform " + Platform.Name).Status, 0);
        EXPECT_TRUE(ReadBytes(Converted) == ConvertBytes(NativeBytes, MagicOf(Platform)));

        // The export itself writes the platform that its settings ask for.
        std::string Settings = Folder + "/output_" + Platform.Name + ".tss";
        std::string Choice =
            std::to_string(Platform.PointerBits) + "-bit, " + (Platform.LittleEndian ? "little endian" : "big endian");
        ASSERT_EQ(RunTessel("settings --write '" + Settings + "' --set \"File platform=" + Choice + "\"").Status, 0);
        std::string Exported = Folder + "/output_exported_" + Platform.Name + ".ts2";
        ASSERT_EQ(RunTessel("export '" + Scene + "' '" + Exported + "' --settings '" + Settings + "'").Status, 0);
        EXPECT_TRUE(ReadBytes(Exported) == ReadBytes(Converted));

        command_result Inspect = RunTessel("inspect '" + Converted + "'");
        EXPECT_EQ(Inspect.Status, 0);
        EXPECT_NE(Inspect.Output.find(std::string("Platform: \"") + Names[Index] + "\""), std::string::npos);
        EXPECT_NE(Inspect.Output.find("Skeletons: "), std::string::npos) << Inspect.Output.substr(0, 2000);

        std::string Back = Folder + "/output_back.ts2";
        ASSERT_EQ(RunTessel("convert '" + Converted + "' '" + Back + "' --platform native").Status, 0);
        EXPECT_TRUE(ReadBytes(Back) == NativeBytes);
    }
}
