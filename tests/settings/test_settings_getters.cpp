// Reading settings: slider mappings, rounding, choice-aware lookups, ids
// that exist nowhere, inclusion questions, sections and deep copies.
#include "settings_test_fixture.h"
#include "settings/tessel_setting_ids.h"

TEST_F(settings_test, SlidersMapPositionsToValues)
{
    settings_node *Root = Tree();
    settings_node *File = Child(Root, "File");
    EXPECT_EQ(GetSettingInt(File, SettingId_ObjectAlignment), 4);        // position 2
    EXPECT_EQ(GetSettingInt(File, SettingId_VertexObjectAlignment), 32); // position 5
    settings_node *Textures = Child(Root, "Textures");
    setting *Width = FindSetting(Textures, SettingId_MaximumWidth);
    EXPECT_EQ(GetSettingInt(Textures, SettingId_MaximumWidth), 256);
    ASSERT_TRUE(SetSettingSliderPosition(Width, 0));
    EXPECT_EQ(GetSettingInt(Textures, SettingId_MaximumWidth), 1);
    ASSERT_TRUE(SetSettingSliderPosition(Width, 12));
    EXPECT_EQ(GetSettingInt(Textures, SettingId_MaximumWidth), 4096);
    EXPECT_FLOAT_EQ(GetSettingFloat(Textures, SettingId_MaximumWidth), 4096.0f);
    EXPECT_FALSE(SetSettingSliderPosition(Width, 13));
    EXPECT_EQ(GetSettingInt(Textures, SettingId_MaximumHeight), 256);
    // Other sliders read their position.
    EXPECT_EQ(GetSettingInt(Child(Root, "Animations"), 173), 2);
    EXPECT_EQ(GetSettingInt(Child(Root, "Meshes"), 8), 4);
}

TEST_F(settings_test, NumbersReadAsIntegersRoundHalfUp)
{
    settings_node *File = Child(Tree(), "File");
    setting *Units = FindSetting(File, SettingId_UnitsPerMeter);
    struct
    {
        real32 Value;
        int32 Expected;
    } const Cases[] = {{2.5f, 3}, {2.49f, 2}, {-0.7f, 0}, {-1.6f, -1}, {1.0f, 1}};
    for (auto const &Case : Cases) {
        Units->Value.Number.Current = Case.Value;
        EXPECT_EQ(GetSettingInt(File, SettingId_UnitsPerMeter), Case.Expected) << Case.Value;
        EXPECT_FLOAT_EQ(GetSettingFloat(File, SettingId_UnitsPerMeter), Case.Value);
    }
    EXPECT_FALSE(SetSettingNumber(Units, 1001.0f));
    EXPECT_FALSE(SetSettingNumber(Units, 0.00001f));
    EXPECT_TRUE(SetSettingNumber(Units, 100.0f));
    EXPECT_TRUE(GetSettingBool(File, SettingId_UnitsPerMeter));
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
    EXPECT_EQ(GetSettingChoiceInt(Textures, SettingId_Alpha, 24), 15);

    // Id 24 twice in one list: the plain search takes the first choice's,
    // the choice-aware getter the current choice's.
    setting *NoAlpha = FindSetting(Textures, SettingId_NoAlpha);
    ASSERT_TRUE(SetSettingChoice(NoAlpha, Choice_Zent1StillImageCompressionWithAlphaChannel));
    setting *SecondCompression = FindSettingInRequester(FindChoice(NoAlpha, 135), 24);
    ASSERT_TRUE(SetSettingSliderPosition(SecondCompression, 40));
    EXPECT_EQ(GetSettingInt(Textures, SettingId_Compression), 15);
    EXPECT_EQ(GetSettingChoiceInt(Textures, SettingId_NoAlpha, 24), 40);

    // A value in a choice that is not current: seen by the plain getter only.
    settings_node *Animations = Child(Root, "Animations");
    setting *Tolerance = FindSetting(Animations, SettingId_XPositionTolerance);
    ASSERT_TRUE(SetSettingNumber(Tolerance, 3.25f));
    EXPECT_EQ(GetSettingChoice(Animations, SettingId_RootMotionType), 176);
    EXPECT_EQ(GetSettingInt(Animations, SettingId_XPositionTolerance), 3);
    EXPECT_EQ(GetSettingChoiceInt(Animations, SettingId_RootMotionType, 158), 0);
    ASSERT_TRUE(
        SetSettingChoice(FindSetting(Animations, SettingId_RootMotionType), Choice_ConstantMotionExtractionCME));
    EXPECT_EQ(GetSettingChoiceInt(Animations, SettingId_RootMotionType, 158), 3);
    EXPECT_FALSE(SetSettingChoice(FindSetting(Animations, SettingId_RootMotionType), 179));
}

TEST_F(settings_test, IdsDefinedNowhereReadAsZeroAndAreReportedOnce)
{
    settings_node *Root = Tree();
    settings_node *Meshes = Child(Root, "Meshes");
    settings_node *Animations = Child(Root, "Animations");
    ASSERT_TRUE(
        SetSettingChoice(FindSetting(Animations, SettingId_RootMotionType), Choice_ConstantMotionExtractionCME));
    log_capture Log;
    // Defined ids read quietly, even of a node that lacks them.
    for (int32 Id : {SettingId_PositionCurveTolerance, SettingId_IncludeTangentVectors, SettingId_FilePlatform}) {
        ASSERT_TRUE(IsDefinedSettingId(Id)) << Id;
        GetSettingChoiceInt(Animations, SettingId_RootMotionType, Id);
        GetSettingInt(Meshes, Id);
    }
    EXPECT_EQ(GetSettingInt((settings_node *)nullptr, SettingId_IncludeReferenceInExport), 0);
    EXPECT_TRUE(Log.Entries.empty());

    // An id no definition has reads as 0 and is reported, once.
    int32 const Undefined = 9999;
    ASSERT_FALSE(IsDefinedSettingId(Undefined));
    EXPECT_FALSE(GetSettingBool(Meshes, Undefined));
    EXPECT_EQ(GetSettingInt(Meshes, Undefined), 0);
    EXPECT_EQ(GetSettingFloat(Meshes, Undefined), 0.0f);
    EXPECT_EQ(GetSettingChoice(Meshes, Undefined), 0);
    EXPECT_EQ(GetSettingChoiceInt(Animations, SettingId_RootMotionType, Undefined + 1), 0);
    EXPECT_EQ(Log.CountContaining("Setting id 9999 "), 1);
    EXPECT_EQ(Log.CountContaining("Setting id 10000 "), 1);
    // A category's own id is not a setting.
    EXPECT_EQ(FindSetting(Meshes, SettingsCategory_Mesh), nullptr);

    // A value behind a switched-off dependency is still read.
    ASSERT_TRUE(SetSettingBool(FindSetting(Animations, SettingId_CompressAnimationData), false));
    EXPECT_FLOAT_EQ(GetSettingFloat(Animations, SettingId_PositionCurveTolerance), 0.01f);
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
    ASSERT_TRUE(SetSettingBool(FindSetting(Meshes, SettingId_IncludeReferenceInExport), false));
    EXPECT_FALSE(IsReferenceIncluded(Mesh));
    EXPECT_FALSE(IsDataIncluded(Mesh)); // "Include data in export" alone is not enough

    settings_node *File = Child(Root, "File");
    EXPECT_EQ(GetSectionSetting(File, 125, 6), 6);
    EXPECT_EQ(GetSectionSetting(File, 127, 1), 1);
    ASSERT_TRUE(SetSettingChoice(FindSetting(File, SettingId_RigidVerticesSection), 131074));
    EXPECT_EQ(GetSectionSetting(File, 127, 1), 2);
    ASSERT_TRUE(SetSettingChoice(FindSetting(File, SettingId_MeshSection), 131072));
    EXPECT_EQ(GetSectionSetting(File->Requester, 65546, 3), 0);
    EXPECT_EQ(GetSectionSetting(File, 999, 4), 4);
}

TEST_F(settings_test, DuplicatesAreDeepAndIndependent)
{
    requester *Mesh = BuildMeshSettings(Pools);
    ASSERT_TRUE(SetSettingChoice(FindSettingInRequester(Mesh, SettingId_MorphTargets), Choice_ExtractMeshFrameByFrame));
    ASSERT_TRUE(SetSettingBool(FindSettingInRequester(Mesh, SettingId_TruncateVertexIndicesTo16Bit), true));
    requester *Copy = DuplicateRequester(Mesh);
    ASSERT_NE(Copy, nullptr);
    EXPECT_EQ(Copy->Id, 6);

    setting *CopyMorphs = FindSettingInRequester(Copy, SettingId_MorphTargets);
    setting *Morphs = FindSettingInRequester(Mesh, SettingId_MorphTargets);
    EXPECT_NE(CopyMorphs->Value.Combobox.List, Morphs->Value.Combobox.List);
    EXPECT_EQ(CopyMorphs->Value.Combobox.Current, FindChoice(CopyMorphs, 241));
    EXPECT_EQ(FindSettingInRequester(Copy, SettingId_TruncateVertexIndicesTo16Bit)->Overridden, 1);
    EXPECT_TRUE(GetSettingBool(Copy, SettingId_TruncateVertexIndicesTo16Bit));

    // Dependencies point into the copy.
    setting *CopyBones = FindSettingInRequester(Copy, SettingId_BonesPerVertex);
    EXPECT_EQ(CopyBones->EnabledBy, FindSettingInRequester(Copy, SettingId_AllowVertexWeighting));
    setting *CopyQuantized = FindSettingInRequester(Copy, SettingId_MorphUseQuantizedCurves);
    EXPECT_EQ(CopyQuantized->EnabledBy, FindSettingInRequester(Copy, SettingId_CreateVertexMorphCurves));

    ASSERT_TRUE(SetSettingNumber(FindSettingInRequester(Copy, SettingId_MorphPositionCurveTolerance), 5.0f));
    ASSERT_TRUE(SetSettingChoice(CopyMorphs, Choice_DontExtractMorphs));
    EXPECT_FLOAT_EQ(GetSettingFloat(Mesh, SettingId_MorphPositionCurveTolerance), 0.01f);
    EXPECT_EQ(GetSettingChoice(Mesh, SettingId_MorphTargets), 241);
}
