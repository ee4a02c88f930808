// `tessel settings`: the listing, writing a settings file from --read and
// --set, and refusing bad requests without writing anything.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "support/test_command.h"

namespace {

class SettingsCommand : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_FALSE(TesselProgramPath().empty()) << "the tessel program is not built";
        char Template[] = "/tmp/tessel_settings_test_XXXXXX";
        ASSERT_NE(mkdtemp(Template), nullptr);
        Folder = Template;
    }
    void TearDown() override { system(("rm -rf '" + Folder + "'").c_str()); }

    std::string Path(char const *Name) { return Folder + "/" + Name; }
    static bool Exists(std::string const &File) { return access(File.c_str(), F_OK) == 0; }
    static std::string ReadAll(std::string const &File)
    {
        std::ifstream Stream(File, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(Stream), std::istreambuf_iterator<char>());
    }

    std::string Folder;
};

// The listing line of a setting, from its label to the end of the line.
std::string ListedLine(std::string const &Listing, std::string const &Label)
{
    size_t At = Listing.find("\n  " + Label + " ");
    if (At == std::string::npos) return "";
    size_t End = Listing.find('\n', At + 1);
    return Listing.substr(At + 1, End - At - 1);
}

} // namespace

TEST_F(SettingsCommand, ListsEverySettingWithIdKindValueAndRange)
{
    command_result Listing = RunTessel("settings", false);
    ASSERT_EQ(Listing.Status, 0);
    for (char const *Category : {"Settings  (", "File  (", "Meshes", "Textures"}) {
        EXPECT_NE(Listing.Output.find(Category), std::string::npos) << Category;
    }
    std::string Compression = ListedLine(Listing.Output, "File compression");
    EXPECT_NE(Compression.find(" 70 "), std::string::npos) << Compression;
    EXPECT_NE(Compression.find("combobox"), std::string::npos) << Compression;
    EXPECT_NE(Compression.find("Trove-1 Compression"), std::string::npos) << Compression;
    EXPECT_NE(Listing.Output.find("choices: No compression | Trove-1 Compression"), std::string::npos);
    std::string Alignment = ListedLine(Listing.Output, "Object alignment");
    EXPECT_NE(Alignment.find("slider    2 (4)"), std::string::npos) << Alignment;
    EXPECT_NE(Alignment.find("0 to 12 (1 to 4096)"), std::string::npos) << Alignment;
    // --verbose adds the help texts.
    command_result Verbose = RunTessel("settings --verbose", false);
    ASSERT_EQ(Verbose.Status, 0);
    EXPECT_GT(Verbose.Output.size(), Listing.Output.size());
}

TEST_F(SettingsCommand, WritesReadsAndChangesSettingsFilesThatExportsUse)
{
    std::string First = Path("first.tss"), Second = Path("second.tss");
    command_result Write = RunTessel("settings --write '" + First +
                                     "' --set 'File compression=No compression' --set 'Object alignment=4'");
    ASSERT_EQ(Write.Status, 0) << Write.Output;
    ASSERT_TRUE(Exists(First));

    // --read starts from the file's values; --set and --write go on from them.
    command_result Read = RunTessel("settings --read '" + First + "'", false);
    ASSERT_EQ(Read.Status, 0) << Read.Output;
    EXPECT_NE(ListedLine(Read.Output, "File compression").find("No compression"), std::string::npos);
    EXPECT_NE(ListedLine(Read.Output, "Object alignment").find("4 (16)"), std::string::npos);
    command_result Again =
        RunTessel("settings --read '" + First + "' --set 'Vertex object alignment=6' --write '" + Second + "'");
    ASSERT_EQ(Again.Status, 0) << Again.Output;
    command_result Both = RunTessel("settings --read '" + Second + "'", false);
    EXPECT_NE(ListedLine(Both.Output, "File compression").find("No compression"), std::string::npos);
    EXPECT_NE(ListedLine(Both.Output, "Vertex object alignment").find("6 (64)"), std::string::npos);

    // An export with the file follows it: stored sections, objects aligned
    // to 16 bytes, vertices to 64.
    std::string Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string Out = Path("arm.ts2");
    command_result Export = RunTessel("export '" + Scene + "' '" + Out + "' --settings '" + Second + "'");
    ASSERT_EQ(Export.Status, 0) << Export.Output;
    command_result Header = RunTessel("inspect --header '" + Out + "'", false);
    ASSERT_EQ(Header.Status, 0) << Header.Output;
    EXPECT_EQ(Header.Output.find("(Trove1)"), std::string::npos) << Header.Output;
    EXPECT_NE(Header.Output.find("StandardMainSection              format 0 (none)"), std::string::npos);
    EXPECT_NE(Header.Output.find("alignment 16,"), std::string::npos) << Header.Output;
    EXPECT_NE(Header.Output.find("alignment 64,"), std::string::npos) << Header.Output;
}

TEST_F(SettingsCommand, RefusesBadRequestsWithoutWriting)
{
    std::string Kept = Path("kept.tss");
    ASSERT_EQ(RunTessel("settings --write '" + Kept + "' --set 'Object alignment=3'").Status, 0);
    std::string Before = ReadAll(Kept);
    struct refusal
    {
        char const *Set;
        char const *Reason;
    } const Refusals[] = {
        {"No such label=1", "no setting is labelled"}, {"Object alignment=99", "out of range"},
        {"File compression=Zip", "has no choice"},     {"Compression=on", "is ambiguous"},
        {"Object alignment", "not of the form"},
    };
    for (refusal const &Case : Refusals) {
        SCOPED_TRACE(Case.Set);
        std::string Fresh = Path("fresh.tss");
        command_result New = RunTessel("settings --write '" + Fresh +
                                       "' --set 'File compression=No compression' --set '" + Case.Set + "'");
        EXPECT_NE(New.Status, 0);
        EXPECT_NE(New.Output.find(Case.Reason), std::string::npos) << New.Output;
        EXPECT_FALSE(Exists(Fresh));
        // Over an existing file: left as it was.
        command_result Over =
            RunTessel("settings --read '" + Kept + "' --set '" + Case.Set + "' --write '" + Kept + "'");
        EXPECT_NE(Over.Status, 0);
        EXPECT_EQ(ReadAll(Kept), Before);
    }
    std::string Fresh = Path("fresh.tss");
    command_result Missing = RunTessel("settings --read '" + Path("missing.tss") + "' --write '" + Fresh + "'");
    EXPECT_NE(Missing.Status, 0);
    EXPECT_NE(Missing.Output.find("missing.tss"), std::string::npos) << Missing.Output;
    EXPECT_FALSE(Exists(Fresh));
}
