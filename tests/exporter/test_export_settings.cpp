// A settings file written the way 'tessel settings --write --set ...' writes
// it steers the export: file compression, platform and alignment.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fbx_tool/fbx_tessel.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "exporter_test_files.h"
#include "format/tessel_file_format.h"
#include "format/tessel_file_reader.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_settings_text.h"
#include "support/fbx_test_writer.h"
#include "support/test_log_capture.h"

namespace {

// Exports the arm scene with the settings file; returns the output path.
std::string ExportArm(std::string const &Name, char const *SettingsFile, bool MustSucceed = true)
{
    std::string Input =
        SaveFbxTestFile("settings_arm.fbx", WriteFbxTestScene(MakeFbxTestArmScene(), FbxTestBinary(7400)));
    std::string Output = PrivateTemporaryDirectory() + "/output_" + Name;
    export_options Options = {nullptr, false, SettingsFile};
    bool Exported = false;
    bool Result = ExportFBXFileWithOptions(Input.c_str(), Output.c_str(), nullptr, Options, nullptr, &Exported);
    if (MustSucceed) {
        EXPECT_TRUE(Result);
        EXPECT_TRUE(Exported);
    }
    remove(Input.c_str());
    return Output;
}

std::vector<uint8> ReadMagicBlock(std::string const &Path)
{
    std::vector<uint8> Bytes(FileMagicBlockSize);
    FILE *File = fopen(Path.c_str(), "rb");
    if (!File) return {};
    Bytes.resize(fread(Bytes.data(), 1, Bytes.size(), File));
    fclose(File);
    return Bytes;
}

} // namespace

TEST(ExportSettingsFile, CompressionAndAlignmentFollowTheFile)
{
    std::string Defaults = ExportArm("default.ts2", nullptr);
    std::string SettingsPath =
        WriteTestSettings("plain.tss", {"File compression=No compression", "Vertex object alignment=6"});
    std::string Plain = ExportArm("plain.ts2", SettingsPath.c_str());

    loaded_file *Compressed = LoadFileFromDisk(Defaults.c_str());
    loaded_file *Uncompressed = LoadFileFromDisk(Plain.c_str());
    ASSERT_NE(Compressed, nullptr);
    ASSERT_NE(Uncompressed, nullptr);
    for (int32 Section = 0; Section < Uncompressed->SectionCount; ++Section) {
        SCOPED_TRACE(Section);
        bool Vertices = Section == 1 || Section == 3;
        file_section_header const &Header = Uncompressed->Sections[Section].Header;
        EXPECT_EQ(Header.Format, (uint32)NoCompression);
        if (Section == 5) continue; // the texture section keeps its own format
        EXPECT_EQ(Compressed->Sections[Section].Header.Format, (uint32)Trove1Compression);
        EXPECT_EQ(Header.InternalAlignment, Vertices ? 64u : 4u);
        EXPECT_EQ(Compressed->Sections[Section].Header.InternalAlignment, Vertices ? 32u : 4u);
    }
    FreeLoadedFile(Compressed);
    FreeLoadedFile(Uncompressed);
    remove(Defaults.c_str());
    remove(Plain.c_str());
    remove(SettingsPath.c_str());
}

TEST(ExportSettingsFile, PlatformChoiceSelectsTheMagicBlock)
{
    struct platform_case
    {
        char const *Choice;
        file_magic_block const *Magic;
    };
    platform_case const Cases[] = {
        {"File platform=32-bit, big endian", &FileMagic32BitBigEndian},
        {"File platform=32-bit, little endian", &FileMagic32BitLittleEndian},
        {"File platform=64-bit, big endian", &FileMagic64BitBigEndian},
        {"File platform=64-bit, little endian", &FileMagic64BitLittleEndian},
        {"File platform=Native", &GetNativeFileMagicBlock()},
    };
    for (platform_case const &Case : Cases) {
        SCOPED_TRACE(Case.Choice);
        std::string SettingsPath = WriteTestSettings("platform.tss", {Case.Choice});

        // The record the driver picks for the file's choice.
        settings_pools Pools;
        ASSERT_TRUE(InitializeSettingsPools(Pools));
        settings_node *Root = BuildDefaultSettingsTree(Pools);
        ASSERT_TRUE(LoadSettingsFile(Root, SettingsPath.c_str()));
        uint8 const *Block = GetExportPlatformBlock(GetSettingChoice(FindRequesterInTree(Root, 69), 212));
        EXPECT_EQ(memcmp(Block, Case.Magic, FileMagicBlockSize), 0);
        FreeSettingsPools(Pools);

        // Through the whole export: the written file starts with that record.
        // A build that writes only native files refuses the others.
        log_capture Log;
        std::string Output = ExportArm("platform.ts2", SettingsPath.c_str(), false);
        std::vector<uint8> Magic = ReadMagicBlock(Output);
        if (Magic.size() == (size_t)FileMagicBlockSize) {
            EXPECT_EQ(memcmp(Magic.data(), Case.Magic, FileMagicValueSize), 0);
        } else {
            EXPECT_FALSE(IsNativeFileMagicValue(*Case.Magic));
            EXPECT_TRUE(Log.Contains("another pointer size or byte order"));
        }
        remove(Output.c_str());
        remove(SettingsPath.c_str());
    }
}
