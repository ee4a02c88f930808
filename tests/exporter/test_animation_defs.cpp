#include <gtest/gtest.h>

#include <string>

#include <rapidxml/rapidxml.hpp>

#include "fbx_tool/fbx_tessel.h"
#include "exporter_test_files.h"
#include "support/test_log_capture.h"

namespace {

struct read_defs
{
    bool Result = false;
    animation_def *Defs = nullptr;
    int32 Count = 0;
};

read_defs ReadDefs(std::string const &Xml)
{
    read_defs Read;
    Read.Result = ReadAnimationDefFile(WriteTestFile("defs.xml", Xml).c_str(), &Read.Defs, &Read.Count);
    return Read;
}

void ExpectDef(animation_def const &Def, char const *Name, int32 Start, int32 End)
{
    EXPECT_STREQ(Def.Name, Name);
    EXPECT_EQ(Def.StartFrame, Start);
    EXPECT_EQ(Def.EndFrame, End);
}

} // namespace

TEST(AnimationDefFile, BadEntryTurnsItAndEveryLaterEntryIntoErrors)
{
    int32 Before = LiveBlocks();
    read_defs Read = ReadDefs("<Defs><AnimationDef name=\"a\" start=\"0\" end=\"10\"/>"
                              "<AnimationDef name=\"b\" start=\"5\"/>"
                              "<AnimationDef name=\"c\" start=\"1\" end=\"2\"/></Defs>");
    ASSERT_TRUE(Read.Result);
    ASSERT_EQ(Read.Count, 3);
    ExpectDef(Read.Defs[0], "a", 0, 10);
    ExpectDef(Read.Defs[1], "Error", 0, 0);
    ExpectDef(Read.Defs[2], "Error", 0, 0);
    // "Error" is a heap copy like any other name: releasing all frees it.
    FreeAnimationDefs(Read.Defs, Read.Count);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(AnimationDefFile, ElementNamesMatchInAnyCaseAttributeNamesOnlyExactly)
{
    read_defs Read = ReadDefs("<?xml version=\"1.0\"?>\n<root>\n"
                              "  <animationdef name=\"walk\" start=\"-5\" end=\"007\"/>\n"
                              "  <Other name=\"x\" start=\"1\" end=\"2\"/>\n"
                              "  <ANIMATIONDEF name=\"run\" start=\"12.5\" end=\"40abc\"/>\n"
                              "  <AnimationDef Name=\"jump\" start=\"1\" end=\"2\"/>\n</root>\n");
    ASSERT_TRUE(Read.Result);
    ASSERT_EQ(Read.Count, 3);
    ExpectDef(Read.Defs[0], "walk", 0, 7);
    ExpectDef(Read.Defs[1], "run", 12, 40);
    ExpectDef(Read.Defs[2], "Error", 0, 0);
    FreeAnimationDefs(Read.Defs, Read.Count);
}

TEST(AnimationDefFile, FilesWithoutAnyDefinitionFail)
{
    int32 Before = LiveBlocks();
    animation_def *Defs = nullptr;
    int32 Count = 0;
    EXPECT_FALSE(ReadAnimationDefFile((PrivateTemporaryDirectory() + "/missing.xml").c_str(), &Defs, &Count));
    EXPECT_FALSE(ReadDefs("").Result);
    EXPECT_FALSE(ReadDefs("<Defs></Defs>").Result);
    EXPECT_FALSE(ReadDefs("<Defs><Animation name=\"a\" start=\"1\" end=\"2\"/></Defs>").Result);
    // Only the children of the first element count.
    EXPECT_FALSE(ReadDefs("<Defs><Group><AnimationDef name=\"a\" start=\"1\" end=\"2\"/></Group></Defs>").Result);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(AnimationDefFile, MalformedFileThrowsWithThePlaceOfTheError)
{
    int32 Before = LiveBlocks();
    std::string Path = WriteTestFile("bad.xml", "<Defs>\n<AnimationDef name=\"a\" start=\"1\" end=\"2\"\n</Defs>\n");
    animation_def *Defs = nullptr;
    int32 Count = 0;
    try {
        ReadAnimationDefFile(Path.c_str(), &Defs, &Count);
        FAIL() << "no parse_error";
    } catch (rapidxml::parse_error const &Error) {
        EXPECT_STRNE(Error.what(), "");
        // The place survives the release of the text.
        ASSERT_NE(Error.where<char>(), nullptr);
        EXPECT_EQ(std::string(Error.where<char>()).substr(0, 1), "<");
        EXPECT_EQ(GetAnimationDefErrorLine(), 3);
    }
    EXPECT_EQ(Count, 0);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(ParseFrameNumber, KeepsLeadingDigitsOfAtMost255Characters)
{
    // The length, not the terminator, ends the text; big numbers never wrap negative.
    struct
    {
        char const *Text;
        int32 Length, Frame;
    } const Cases[] = {{"12.5", 4, 12},
                       {"12abc", 5, 12},
                       {"-5", 2, 0},
                       {"abc", 3, 0},
                       {"", 0, 0},
                       {"1234", 2, 12},
                       {"99999999999999999999", 20, INT32_MAX}};
    for (auto const &Case : Cases) EXPECT_EQ(ParseFrameNumber(Case.Text, Case.Length), Case.Frame) << Case.Text;
    // 254 zeros, then "17": the buffer keeps only the "1".
    std::string Long = std::string(254, '0') + "17";
    EXPECT_EQ(ParseFrameNumber(Long.c_str(), (int32)Long.size()), 1);
}
