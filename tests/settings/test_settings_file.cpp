// The settings file: byte format, round trips, files from other releases,
// damaged files, propagation through the tree, and "Label=value" edits.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "settings/tessel_settings_text.h"
#include "settings_test_fixture.h"
#include "settings/tessel_setting_ids.h"

namespace {

std::string TempPath(char const *Name)
{
    // The process id keeps test runs of several checkouts apart.
    return std::string(::testing::TempDir()) + "/tessel_settings_" + std::to_string(getpid()) + "_" + Name;
}

void WriteBytes(std::string const &Path, std::vector<uint8> const &Bytes)
{
    FILE *File = fopen(Path.c_str(), "wb");
    ASSERT_NE(File, nullptr);
    if (!Bytes.empty()) fwrite(Bytes.data(), 1, Bytes.size(), File);
    fclose(File);
}

std::vector<uint8> Serialize(settings_node const *Root)
{
    int32 Size = 0;
    uint8 *Buffer = WriteSettingsToMemory(Root, &Size);
    std::vector<uint8> Bytes(Buffer, Buffer + Size);
    TesselFree(Buffer);
    return Bytes;
}

std::vector<uint32> Words(std::vector<uint8> const &Bytes)
{
    std::vector<uint32> Result;
    for (size_t At = 0; At + 4 <= Bytes.size(); At += 4) {
        Result.push_back(Bytes[At] | Bytes[At + 1] << 8 | Bytes[At + 2] << 16 | (uint32)Bytes[At + 3] << 24);
    }
    return Result;
}

// Moves every value of a requester (and everything inside it) off its default.
void ChangeEverything(requester *Requester)
{
    for (setting *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        switch (Setting->Kind) {
        case SettingKind_Checkbox: SetSettingBool(Setting, !Setting->Value.Checkbox.Current); break;
        case SettingKind_Number: SetSettingNumber(Setting, Setting->Value.Number.UpperBound); break;
        case SettingKind_Slider: SetSettingSliderPosition(Setting, Setting->Value.Slider.LowerBound); break;
        case SettingKind_Combobox:
            SetSettingChoice(Setting, Setting->Value.Combobox.List->LastChild->Id);
            ChangeEverything(Setting->Value.Combobox.List);
            break;
        }
    }
    for (requester *Child = Requester->FirstChild; Child; Child = Child->NextSibling) ChangeEverything(Child);
}

// Every value and Overridden flag, in tree order, as text.
void Describe(requester const *Requester, std::string &Out)
{
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        char Value[256];
        FormatSettingValue(Setting, Value, sizeof(Value));
        Out += std::to_string(Setting->Id) + (Setting->Overridden ? "*" : "") + "=" + Value + ";";
        if (Setting->Kind == SettingKind_Combobox) Describe(Setting->Value.Combobox.List, Out);
    }
    for (requester const *Child = Requester->FirstChild; Child; Child = Child->NextSibling) Describe(Child, Out);
}

std::string Describe(settings_node const *Node)
{
    std::string Out;
    for (; Node; Node = Node->NextSibling) {
        Out += std::string("[") + Node->Name + "]";
        if (Node->Requester) Describe(Node->Requester, Out);
        Out += Describe(Node->FirstChild);
    }
    return Out;
}

} // namespace

TEST_F(settings_test, RequesterBlockWordsAreFixed)
{
    requester *Requester = NewRequester(Pools, 500, "Test", "");
    requester *List = NewRequester(Pools, 600, "List", "");
    AddChoice(List, 601, "A", "");
    AddChoice(List, 602, "B", "");
    AddCheckbox(Requester, 10, "Check", "", true, false, nullptr);
    AddSpacer(Requester, 11, nullptr);
    AddNumber(Requester, 12, "Number", "", 0.0f, 10.0f, 2.5f, false, nullptr);
    AddSlider(Requester, 13, "Slider", "", 0, 12, 3, PowerOfTwoSliderMapping, false, nullptr);
    SetSettingChoice(AddCombobox(Requester, 14, "Combo", "", List, 602, true, false, nullptr), 602);

    std::vector<uint8> Bytes((size_t)SizeOfRequesterBlock(Requester));
    ASSERT_EQ(WriteRequesterBlock(Requester, Bytes.data(), (int32)Bytes.size()), (int32)Bytes.size());
    uint32 const Empty[] = {0xCA5EEEEE, 0, 0};
    std::vector<uint32> Expected = {0xCA5EEEEE, 4,
                                    10,         8,
                                    0,          1, // checkbox: overridden, current
                                    12,         8,
                                    0x00000000, 0x40200000, // number: 0.0f, 2.5f
                                    13,         8,
                                    0,          3, // slider: position
                                    14,         8 + 12 + 2 * (8 + 12),
                                    1,          602, // combobox, then its list's block
                                    0xCA5EEEEE, 0,
                                    2,          601,
                                    12};
    Expected.insert(Expected.end(), Empty, Empty + 3);
    Expected.insert(Expected.end(), {602, 12});
    Expected.insert(Expected.end(), Empty, Empty + 3);
    Expected.push_back(0); // no child requesters
    EXPECT_EQ(Words(Bytes), Expected);
}

TEST_F(settings_test, ChangedTreeSurvivesWriteAndRead)
{
    settings_node *Changed = Tree();
    for (settings_node *Node = Changed; Node; Node = Node == Changed ? Node->FirstChild : Node->NextSibling) {
        ChangeEverything(Node->Requester);
    }
    std::vector<uint8> Bytes = Serialize(Changed);
    std::string Path = TempPath("roundtrip.tss");
    WriteBytes(Path, Bytes);

    settings_node *Loaded = Tree();
    std::string Defaults = Describe(Loaded);
    ASSERT_TRUE(LoadSettingsFile(Loaded, Path.c_str()));
    EXPECT_NE(Describe(Loaded), Defaults);
    EXPECT_EQ(Describe(Loaded), Describe(Changed));
    EXPECT_EQ(Serialize(Loaded), Bytes);
    EXPECT_EQ(GetSettingChoice(Child(Loaded, "File"), 70), 133); // the last choice
    EXPECT_EQ(GetSettingInt(Child(Loaded, "File"), 74), 1);
    std::remove(Path.c_str());
}

TEST_F(settings_test, FileFromAnotherReleaseLoadsWhatItKnows)
{
    // A release with fewer settings, one since removed (9999), an unknown
    // category node (777) and a choice that no longer exists.
    requester *OldRoot = NewRequester(Pools, 1, "Root settings", "");
    AddCheckbox(OldRoot, 67, "Auto close on exit", "", false, false, nullptr)->Value.Checkbox.Current = 1;
    settings_node *Old = NewSettingsNode(Pools, nullptr, "Settings", OldRoot);
    requester *OldFile = NewRequester(Pools, 69, "File settings", "");
    AddCheckbox(OldFile, 9999, "Gone", "", true, false, nullptr);
    requester *Compressions = NewRequester(Pools, 71, "File compression", "");
    AddChoice(Compressions, 72, "No compression", "");
    AddCombobox(OldFile, 70, "File compression", "", Compressions, 72, true, false, nullptr);
    requester *Platforms = NewRequester(Pools, 213, "Coordinate system", "");
    AddChoice(Platforms, 219, "Retired platform", "");
    AddCombobox(OldFile, 212, "File platform", "", Platforms, 219, true, false, nullptr);
    NewSettingsNode(Pools, Old, "File", OldFile);
    NewSettingsNode(Pools, Old, "Retired", NewRequester(Pools, 777, "Retired settings", ""));
    std::string Path = TempPath("older.tss");
    WriteBytes(Path, Serialize(Old));

    settings_node *Root = Tree();
    log_capture Log;
    ASSERT_TRUE(LoadSettingsFile(Root, Path.c_str()));
    EXPECT_TRUE(Log.Entries.empty());
    EXPECT_TRUE(GetSettingBool(Root, SettingId_AutoCloseOnExit));
    settings_node *File = Child(Root, "File");
    EXPECT_EQ(GetSettingChoice(File, SettingId_FileCompression), 72);
    EXPECT_EQ(GetSettingChoice(File, SettingId_FilePlatform), 214); // unknown choice: keeps the current one
    EXPECT_EQ(GetSettingInt(File, SettingId_ObjectAlignment), 4);   // absent from the file: default
    EXPECT_TRUE(GetSettingBool(File, SettingId_IncludeExporterInfo));
    std::remove(Path.c_str());
}

TEST_F(settings_test, DamagedFilesAreReportedAndChangeNothing)
{
    settings_node *Source = Tree();
    SetSettingChoice(FindSetting(Child(Source, "File"), 70), 72);
    SetSettingBool(FindSetting(Child(Source, "Meshes"), 76), true);
    std::vector<uint8> Bytes = Serialize(Source);
    std::string Path = TempPath("damaged.tss");

    settings_node *Root = Tree();
    std::vector<uint8> Defaults = Serialize(Root);
    // Truncated anywhere, or with a wrong magic word: nothing is taken over.
    std::vector<std::vector<uint8>> Damaged;
    for (size_t Length = 0; Length < Bytes.size(); Length += 1 + Length / 7) {
        Damaged.emplace_back(Bytes.begin(), Bytes.begin() + Length);
    }
    Damaged.push_back(Bytes);
    Damaged.back()[0] ^= 1;
    for (std::vector<uint8> const &File : Damaged) {
        WriteBytes(Path, File);
        log_capture Log;
        EXPECT_FALSE(LoadSettingsFile(Root, Path.c_str())) << File.size();
        EXPECT_TRUE(Log.Contains("Corrupted settings data encountered")) << File.size();
        ASSERT_EQ(Serialize(Root), Defaults) << File.size();
    }

    // A broken child block whose size is known is skipped; the rest is read.
    std::vector<uint8> BadFile = Bytes;
    size_t FileBlock = 4 + SizeOfRequesterBlock(Source->Requester) + 4 + 8;
    BadFile[FileBlock] ^= 0xFF;
    WriteBytes(Path, BadFile);
    {
        log_capture Log;
        EXPECT_TRUE(LoadSettingsFile(Root, Path.c_str()));
        EXPECT_EQ(Log.CountContaining("Corrupted settings data encountered"), 1);
    }
    EXPECT_EQ(GetSettingChoice(Child(Root, "File"), 70), 133);
    EXPECT_TRUE(GetSettingBool(Child(Root, "Meshes"), 76));

    std::remove(Path.c_str());
    log_capture Log;
    EXPECT_FALSE(LoadSettingsFile(Root, Path.c_str()));
    EXPECT_TRUE(Log.Contains("Unable to open settings file"));
}

TEST_F(settings_test, PropagationRespectsOverriddenSettings)
{
    // The file's "Animation settings" change two tolerances; one animation
    // has its own value for one of them.
    settings_node *Source = Tree();
    settings_node *SourceAnimations = Child(Source, "Animations");
    ASSERT_TRUE(SetSettingNumber(FindSetting(SourceAnimations, SettingId_PositionCurveTolerance), 0.5f));
    ASSERT_TRUE(SetSettingNumber(FindSetting(SourceAnimations, SettingId_OrientationCurveTolerance), 2.0f));
    std::string Path = TempPath("propagate.tss");
    WriteBytes(Path, Serialize(Source));

    settings_node *Root = Tree();
    settings_node *Animations = Child(Root, "Animations");
    settings_node *Walk = NewSettingsNode(Pools, Animations, "Walk", nullptr);
    settings_node *Run = NewSettingsNode(Pools, Animations, "Run", nullptr);
    ASSERT_TRUE(AttachSettings(Walk, nullptr, 0));
    ASSERT_TRUE(AttachSettings(Run, nullptr, 0));
    EXPECT_NE(Walk->Requester, Animations->Requester);
    ASSERT_TRUE(SetSettingNumber(FindSetting(Walk, SettingId_OrientationCurveTolerance), 1.0f));

    ASSERT_TRUE(LoadSettingsFile(Root, Path.c_str()));
    EXPECT_FLOAT_EQ(GetSettingFloat(Walk, SettingId_PositionCurveTolerance), 0.5f);
    EXPECT_FLOAT_EQ(GetSettingFloat(Walk, SettingId_OrientationCurveTolerance), 1.0f);
    EXPECT_FLOAT_EQ(GetSettingFloat(Run, SettingId_OrientationCurveTolerance), 2.0f);

    SpreadSettings(Walk, Animations->Requester, true, true);
    EXPECT_FLOAT_EQ(GetSettingFloat(Walk, SettingId_OrientationCurveTolerance), 2.0f);
    std::remove(Path.c_str());
}

TEST_F(settings_test, AttachedBlocksOverrideTheCategoryCopy)
{
    settings_node *Root = Tree();
    settings_node *Meshes = Child(Root, "Meshes");
    requester *Stored = DuplicateRequester(Meshes->Requester);
    ASSERT_TRUE(SetSettingSliderPosition(FindSettingInRequester(Stored, SettingId_BonesPerVertex), 2));
    std::vector<uint8> Block((size_t)SizeOfRequesterBlock(Stored));
    WriteRequesterBlock(Stored, Block.data(), (int32)Block.size());

    settings_node *Body = NewSettingsNode(Pools, Meshes, "Body", nullptr);
    ASSERT_TRUE(AttachSettings(Body, Block.data(), (int32)Block.size()));
    EXPECT_EQ(GetSettingInt(Body, SettingId_BonesPerVertex), 2);
    EXPECT_EQ(GetSettingInt(Meshes, SettingId_BonesPerVertex), 4);

    // An unreadable block leaves the object on its category's values.
    settings_node *Head = NewSettingsNode(Pools, Meshes, "Head", nullptr);
    log_capture Log;
    EXPECT_FALSE(AttachSettings(Head, Block.data(), 7));
    ASSERT_NE(Head->Requester, nullptr);
    EXPECT_EQ(GetSettingInt(Head, SettingId_BonesPerVertex), 4);
}

TEST_F(settings_test, LabelAssignmentsCheckKindAndRange)
{
    settings_node *Root = Tree();
    settings_node *File = Child(Root, "File");
    char Error[1024];
    EXPECT_TRUE(ApplySettingAssignment(Root, "File compression=No compression", Error, sizeof(Error)));
    EXPECT_EQ(GetSettingChoice(File, SettingId_FileCompression), 72);
    EXPECT_TRUE(ApplySettingAssignment(Root, "file platform = 32-bit, BIG endian", Error, sizeof(Error)));
    EXPECT_EQ(GetSettingChoice(File, SettingId_FilePlatform), 216);
    EXPECT_TRUE(ApplySettingAssignment(Root, "Meshes:Include data in export=off", Error, sizeof(Error)));
    EXPECT_FALSE(GetSettingBool(Child(Root, "Meshes"), 2));
    EXPECT_TRUE(GetSettingBool(Child(Root, "Textures"), 2));
    EXPECT_TRUE(ApplySettingAssignment(Root,
                                       "Normal/bump with alpha:Zent1 still-image compression with alpha "
                                       "channel:Compression=64",
                                       Error, sizeof(Error)));
    EXPECT_EQ(GetSettingChoiceInt(Child(Root, "Textures"), 105, 24), 64);

    std::vector<uint8> Before = Serialize(Root);
    struct
    {
        char const *Text, *Message;
    } const Bad[] = {
        {"No such setting=1", "no setting"},     {"Include data in export=off", "ambiguous"},
        {"Object alignment=13", "out of range"}, {"Units per Meter=0", "out of range"},
        {"Units per Meter=lots", "not one"},     {"Rescale scene on export=2", "checkbox"},
        {"File compression=Zip", "no choice"},   {"Object alignment", "Label=value"},
    };
    for (auto const &Case : Bad) {
        EXPECT_FALSE(ApplySettingAssignment(Root, Case.Text, Error, sizeof(Error))) << Case.Text;
        EXPECT_NE(std::string(Error).find(Case.Message), std::string::npos) << Error;
    }
    EXPECT_EQ(Serialize(Root), Before);
}
