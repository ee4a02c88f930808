// `tessel export` as a user runs it.
#include <gtest/gtest.h>

#include "support/test_command.h"
#include "foundation/tessel_version.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class ExportCommand : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char Template[] = "/tmp/tessel_cli_test_XXXXXX";
        ASSERT_NE(mkdtemp(Template), nullptr);
        Folder = Template;
        Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    }
    void TearDown() override { system(("rm -rf '" + Folder + "'").c_str()); }

    std::string Write(char const *Name, std::string const &Text)
    {
        std::string Path = Folder + "/" + Name;
        FILE *File = fopen(Path.c_str(), "wb");
        fwrite(Text.data(), 1, Text.size(), File);
        fclose(File);
        return Path;
    }
    bool Exists(std::string const &Path) { return access(Path.c_str(), F_OK) == 0; }

    std::string Folder, Scene;
};

} // namespace

TEST_F(ExportCommand, HelpTexts)
{
    command_result Main = RunTessel("--help");
    EXPECT_EQ(Main.Status, 0);
    EXPECT_NE(Main.Output.find("export"), std::string::npos);
    command_result Export = RunTessel("export --help");
    EXPECT_EQ(Export.Status, 0);
    EXPECT_NE(Export.Output.find("--animdefs"), std::string::npos);
    EXPECT_NE(RunTessel("export only_one_argument").Status, 0);
}

TEST_F(ExportCommand, FailsWithoutOutputForBadInputs)
{
    std::string Out = Folder + "/out.ts2";
    command_result Missing = RunTessel("export '" + Folder + "/missing.fbx' '" + Out + "'");
    EXPECT_NE(Missing.Status, 0);
    EXPECT_NE(Missing.Output.find("missing.fbx"), std::string::npos);

    command_result NoSettings = RunTessel("export '" + Scene + "' '" + Out + "' --settings '" + Folder + "/none.bin'");
    EXPECT_NE(NoSettings.Status, 0);
    EXPECT_NE(NoSettings.Output.find("none.bin"), std::string::npos);
    command_result NoDefs = RunTessel("export '" + Scene + "' '" + Out + "' --animdefs '" + Folder + "/none.xml'");
    EXPECT_NE(NoDefs.Status, 0);
    EXPECT_NE(NoDefs.Output.find("AnimationDef"), std::string::npos);
    EXPECT_FALSE(Exists(Out));
}

TEST_F(ExportCommand, MalformedAnimationDefsReportTheParserMessage)
{
    std::string Bad = Write("bad.xml", "<Defs>\n<AnimationDef name=\"a\" start=\"1\" end=\"2\"\n</Defs>\n");
    std::string Out = Folder + "/out.ts2";
    command_result Result = RunTessel("export '" + Scene + "' '" + Out + "' --animdefs '" + Bad + "'");
    EXPECT_NE(Result.Status, 0);
    EXPECT_NE(Result.Output.find("expected >"), std::string::npos) << Result.Output;
    EXPECT_NE(Result.Output.find("line 3"), std::string::npos) << Result.Output;
    EXPECT_FALSE(Exists(Out));
}

TEST_F(ExportCommand, StatusTellsWhetherTheFileWasWritten)
{
    ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
    std::string Defs = Write("defs.xml", "<Defs><AnimationDef name=\"idle\" start=\"0\" end=\"10\"/></Defs>");
    std::string Out = Folder + "/out.ts2";
    command_result Result = RunTessel("export '" + Scene + "' '" + Out + "' --animdefs '" + Defs + "'");
    // Not a terminal: plain progress lines.
    EXPECT_NE(Result.Output.find("Tessel " TESSEL_VERSION_STRING " is Exporting a TS2 File"), std::string::npos)
        << Result.Output;
    EXPECT_NE(Result.Output.find("Animations"), std::string::npos);
    EXPECT_EQ(Result.Status, 0) << Result.Output;
    EXPECT_TRUE(Exists(Out)) << Result.Output;

    // An output that can't be created: a failure, and no file.
    std::string Nowhere = Folder + "/no/such/folder/out.ts2";
    command_result Failed = RunTessel("export '" + Scene + "' '" + Nowhere + "'");
    EXPECT_NE(Failed.Status, 0) << Failed.Output;
    EXPECT_FALSE(Exists(Nowhere));
}
