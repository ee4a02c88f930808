// Reading settings: slider mappings, rounding, choice-aware lookups, ids
// that exist nowhere, inclusion questions, sections and deep copies.
#include "settings_test_fixture.h"

TEST_F(settings_test, SlidersMapPositionsToValues)
{
    settings_node *Root = Tree();
    settings_node *File = Child(Root, "File");
    EXPECT_EQ(GetSettingInt(File, 74), 4);  // position 2
    EXPECT_EQ(GetSettingInt(File, 87), 32); // position 5
    settings_node *Textures = Child(Root, "Textures");
    setting *Width = FindSetting(Textures, 13);
    EXPECT_EQ(GetSettingInt(Textures, 13), 256);
    ASSERT_TRUE(SetSettingSliderPosition(Width, 0));
    EXPECT_EQ(GetSettingInt(Textures, 13), 1);
    ASSERT_TRUE(SetSettingSliderPosition(Width, 12));
    EXPECT_EQ(GetSettingInt(Textures, 13), 4096);
    EXPECT_FLOAT_EQ(GetSettingFloat(Textures, 13), 4096.0f);
    EXPECT_FALSE(SetSettingSliderPosition(Width, 13));
    EXPECT_EQ(GetSettingInt(Textures, 16), 256);
    // Other sliders read their position.
    EXPECT_EQ(GetSettingInt(Child(Root, "Animations"), 173), 2);
    EXPECT_EQ(GetSettingInt(Child(Root, "Meshes"), 8), 4);
}

TEST_F(settings_test, NumbersReadAsIntegersRoundHalfUp)
{
    settings_node *File = Child(Tree(), "File");
    setting *Units = FindSetting(File, 145);
    struct
    {
        real32 Value;
        int32 Expected;
    } const Cases[] = {{2.5f, 3}, {2.49f, 2}, {-0.7f, 0}, {-1.6f, -1}, {1.0f, 1}};
    for (auto const &Case : Cases) {
        Units->Value.Number.Current = Case.Value;
        EXPECT_EQ(GetSettingInt(File, 145), Case.Expected) << Case.Value;
        EXPECT_FLOAT_EQ(GetSettingFloat(File, 145), Case.Value);
    }
    EXPECT_FALSE(SetSettingNumber(Units, 1001.0f));
    EXPECT_FALSE(SetSettingNumber(Units, 0.00001f));
    EXPECT_TRUE(SetSettingNumber(Units, 100.0f));
    EXPECT_TRUE(GetSettingBool(File, 145));
}

TEST_F(settings_test, ChoiceSettingsAreFoundByChoiceOrByFirstMatch)
{
    settings_node *Root = Tree();
    settings_node *Textures = Child(Root, "Textures");
    // Two defaults of "Compress in YUV space": on for color maps, off for normal maps.
    EXPECT_TRUE(GetSettingChoiceBool(Textures, 19, 106));
    EXPECT_TRUE(GetSettingChoiceBool(Textures, 36, 106));
    EXPECT_FALSE(GetSettingChoiceBool(Textures, 103, 106));
    EXPECT_FALSE(GetSettingChoiceBool(Textures, 105, 106));
    EXPECT_EQ(GetSettingChoiceInt(Textures, 36, 24), 15);

    // Id 24 twice in one list: the plain search takes the first choice's,
    // the choice-aware getter the current choice's.
    setting *NoAlpha = FindSetting(Textures, 19);
    ASSERT_TRUE(SetSettingChoice(NoAlpha, 135));
    setting *SecondCompression = FindSettingInRequester(FindChoice(NoAlpha, 135), 24);
    ASSERT_TRUE(SetSettingSliderPosition(SecondCompression, 40));
    EXPECT_EQ(GetSettingInt(Textures, 24), 15);
    EXPECT_EQ(GetSettingChoiceInt(Textures, 19, 24), 40);

    // A value in a choice that is not current: seen by the plain getter only.
    settings_node *Animations = Child(Root, "Animations");
    setting *Tolerance = FindSetting(Animations, 158);
    ASSERT_TRUE(SetSettingNumber(Tolerance, 3.25f));
    EXPECT_EQ(GetSettingChoice(Animations, 185), 176);
    EXPECT_EQ(GetSettingInt(Animations, 158), 3);
    EXPECT_EQ(GetSettingChoiceInt(Animations, 185, 158), 0);
    ASSERT_TRUE(SetSettingChoice(FindSetting(Animations, 185), 177));
    EXPECT_EQ(GetSettingChoiceInt(Animations, 185, 158), 3);
    EXPECT_FALSE(SetSettingChoice(FindSetting(Animations, 185), 179));
}

TEST_F(settings_test, IdsDefinedNowhereReadAsZeroSilently)
{
    settings_node *Root = Tree();
    settings_node *Meshes = Child(Root, "Meshes");
    settings_node *Animations = Child(Root, "Animations");
    ASSERT_TRUE(SetSettingChoice(FindSetting(Animations, 185), 177));
    log_capture Log;
    EXPECT_FALSE(GetSettingBool(Meshes, 249));
    EXPECT_EQ(GetSettingInt(Meshes, 250), 0);
    EXPECT_EQ(GetSettingFloat(Meshes, 250), 0.0f);
    EXPECT_EQ(GetSettingChoice(Meshes, 250), 0);
    for (int32 Id = 179; Id <= 184; ++Id) {
        EXPECT_EQ(GetSettingChoiceInt(Animations, 185, Id), 0);
        EXPECT_EQ(GetSettingInt(Animations, Id), 0);
    }
    EXPECT_EQ(GetSettingInt((settings_node *)nullptr, 75), 0);
    // A category's own id is not a setting.
    EXPECT_EQ(FindSetting(Meshes, 6), nullptr);
    EXPECT_TRUE(Log.Entries.empty());

    // A value behind a switched-off dependency is still read.
    ASSERT_TRUE(SetSettingBool(FindSetting(Animations, 52), false));
    EXPECT_FLOAT_EQ(GetSettingFloat(Animations, 149), 0.01f);
}

TEST_F(settings_test, InclusionQuestionsAndSections)
{
    settings_node *Root = Tree();
    settings_node *Meshes = Child(Root, "Meshes");
    settings_node *Mesh = NewSettingsNode(Pools, Meshes, "Body", nullptr);
    EXPECT_FALSE(IsReferenceIncluded(nullptr));
    EXPECT_FALSE(IsDataIncluded(nullptr));
    EXPECT_FALSE(IsArtToolDataIncluded(nullptr));
    // A node without a requester reads its nearest ancestor's.
    EXPECT_TRUE(IsReferenceIncluded(Mesh));
    EXPECT_TRUE(IsDataIncluded(Mesh));
    EXPECT_TRUE(IsArtToolDataIncluded(Mesh));
    EXPECT_FALSE(IsOnlyUserAttributes(Mesh));
    ASSERT_TRUE(SetSettingBool(FindSetting(Meshes, 75), false));
    EXPECT_FALSE(IsReferenceIncluded(Mesh));
    EXPECT_FALSE(IsDataIncluded(Mesh)); // "Include data in export" alone is not enough

    settings_node *File = Child(Root, "File");
    EXPECT_EQ(GetSectionSetting(File, 125, 6), 6);
    EXPECT_EQ(GetSectionSetting(File, 127, 1), 1);
    ASSERT_TRUE(SetSettingChoice(FindSetting(File, 127), 131074));
    EXPECT_EQ(GetSectionSetting(File, 127, 1), 2);
    ASSERT_TRUE(SetSettingChoice(FindSetting(File, 65546), 131072));
    EXPECT_EQ(GetSectionSetting(File->Requester, 65546, 3), 0);
    EXPECT_EQ(GetSectionSetting(File, 999, 4), 4);
}

TEST_F(settings_test, DuplicatesAreDeepAndIndependent)
{
    requester *Mesh = BuildMeshSettings(Pools);
    ASSERT_TRUE(SetSettingChoice(FindSettingInRequester(Mesh, 237), 241));
    ASSERT_TRUE(SetSettingBool(FindSettingInRequester(Mesh, 76), true));
    requester *Copy = DuplicateRequester(Mesh);
    ASSERT_NE(Copy, nullptr);
    EXPECT_EQ(Copy->Id, 6);

    setting *CopyMorphs = FindSettingInRequester(Copy, 237);
    setting *Morphs = FindSettingInRequester(Mesh, 237);
    EXPECT_NE(CopyMorphs->Value.Combobox.List, Morphs->Value.Combobox.List);
    EXPECT_EQ(CopyMorphs->Value.Combobox.Current, FindChoice(CopyMorphs, 241));
    EXPECT_EQ(FindSettingInRequester(Copy, 76)->Overridden, 1);
    EXPECT_TRUE(GetSettingBool(Copy, 76));

    // Dependencies point into the copy.
    setting *CopyBones = FindSettingInRequester(Copy, 8);
    EXPECT_EQ(CopyBones->EnabledBy, FindSettingInRequester(Copy, 7));
    setting *CopyQuantized = FindSettingInRequester(Copy, 230);
    EXPECT_EQ(CopyQuantized->EnabledBy, FindSettingInRequester(Copy, 188));

    ASSERT_TRUE(SetSettingNumber(FindSettingInRequester(Copy, 190), 5.0f));
    ASSERT_TRUE(SetSettingChoice(CopyMorphs, 239));
    EXPECT_FLOAT_EQ(GetSettingFloat(Mesh, 190), 0.01f);
    EXPECT_EQ(GetSettingChoice(Mesh, 237), 241);
}
