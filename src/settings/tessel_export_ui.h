// The export settings: every category requester with its settings, ids,
// kinds, ranges, defaults and dependencies. The ids never change: they are
// what a settings file stores and what the exporter asks for.
#pragma once

#include "foundation/tessel_types.h"
#include "settings/tessel_requester.h"

// Category requesters. "Model settings" and "Bone settings" share id 17; they
// never share a parent.
enum settings_category_id
{
    SettingsCategory_Root = 1,
    SettingsCategory_File = 69,
    SettingsCategory_Texture = 10,
    SettingsCategory_Material = 9,
    SettingsCategory_Mesh = 6,
    SettingsCategory_Model = 17,
    SettingsCategory_Bone = 17,
    SettingsCategory_Animation = 4,
    SettingsCategory_BoneAnimation = 65,
};

// Ids the exporter reads most; the full list is in the builders.
enum export_setting_id
{
    // Inclusion block
    SettingId_IncludeReference = 75,
    SettingId_IncludeData = 2,
    SettingId_IncludeArtToolData = 66,
    SettingId_OnlyUserAttributes = 251,

    // File settings
    SettingId_IncludeExporterInfo = 94,
    SettingId_FilePlatform = 212,
    SettingId_CoordinateSystem = 136,
    SettingId_RescaleScene = 144,
    SettingId_UnitsPerMeter = 145,
    SettingId_FileCompression = 70,
    SettingId_ObjectAlignment = 74,
    SettingId_VertexObjectAlignment = 87,
    SettingId_IncludeTypeTable = 95,
    SettingId_TypesDefaultSection = 125,
    SettingId_ObjectsDefaultSection = 126,
    SettingId_RigidVerticesSection = 127,
    SettingId_RigidIndicesSection = 128,
    SettingId_DeformableVerticesSection = 129,
    SettingId_DeformableIndicesSection = 130,
    SettingId_PixelDataSection = 132,

    // Model and animation settings
    SettingId_MoveToOrigin = 97,
    SettingId_Oversampling = 173,
    SettingId_RootMotionType = 185,

    // Texture settings
    SettingId_NoAlphaFormat = 19,
    SettingId_AlphaFormat = 36,
    SettingId_NormalMapFormat = 103,
    SettingId_NormalMapAlphaFormat = 105,
    SettingId_ZentCompression = 24,
    SettingId_CompressInYUV = 106,

    // Mesh settings
    SettingId_AllowVertexWeighting = 7,
    SettingId_BonesPerVertex = 8,
    SettingId_BoneWeightFormat = 255,
    SettingId_MorphTargets = 237,

    // Read by the exporter but defined nowhere: they always read as 0.
    SettingId_UseToolTangents = 249,
    SettingId_ToolTangentChannel = 250,
};

// Choices of the comboboxes above that the exporter compares against.
enum export_choice_id
{
    Choice_PlatformNative = 214,
    Choice_Platform32LittleEndian = 215,
    Choice_Platform32BigEndian = 216,
    Choice_Platform64LittleEndian = 217,
    Choice_Platform64BigEndian = 218,

    Choice_UseToolCoordinates = 142,
    Choice_RightHandedYUp = 138,
    Choice_RightHandedZUp = 139,
    Choice_LeftHandedYUp = 140,
    Choice_LeftHandedZUp = 141,

    Choice_NoCompression = 72,
    Choice_TroveCompression = 133,

    Choice_DefaultSectionPlacement = 124,
    Choice_FirstStandardSection = 131072,

    Choice_NoRootMotion = 176,
    Choice_ConstantMotionExtraction = 177,
    Choice_VariableDeltaAccumulation = 178,

    Choice_BoneWeightUByte8 = 256,
    Choice_BoneWeightFloat16 = 257,
    Choice_BoneWeightFloat32 = 258,

    Choice_DontExtractMorphs = 239,
    Choice_MorphModifierMeshes = 240,
    Choice_MeshFrameByFrame = 241,
};

// The 30 object types that a file section combobox can force into a section.
struct object_type_section_row
{
    int32 Id;          // also the id of its section combobox
    char const *Label; // the object type's name
};
int32 GetObjectTypeSectionRowCount();
object_type_section_row const *GetObjectTypeSectionRows();

// Each builder makes a new requester from the pools, with every setting at
// its default; null when the pools run out.
requester *BuildRootSettings(settings_pools &Pools);
requester *BuildFileSettings(settings_pools &Pools);
requester *BuildTextureSettings(settings_pools &Pools);
requester *BuildMaterialSettings(settings_pools &Pools);
requester *BuildMeshSettings(settings_pools &Pools);
requester *BuildModelSettings(settings_pools &Pools);
requester *BuildBoneSettings(settings_pools &Pools);
requester *BuildAnimationSettings(settings_pools &Pools);
requester *BuildBoneAnimationSettings(settings_pools &Pools);
