// Every id of the export settings in one place: the categories, each
// setting, each list of choices and each choice. The definitions, the
// exporter and the tests use these names; the numbers never change, since
// settings files store them.
#pragma once

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

// Settings, in the order of their definitions. Spacers are named after the setting before them.
enum setting_id
{
    SettingId_IncludeReferenceInExport = 75,   // "Include reference in export"
    SettingId_IncludeDataInExport = 2,         // "Include data in export"
    SettingId_IncludeArtToolSpecificData = 66, // "Include art tool specific data"
    SettingId_OnlyUserAttributes = 251,        // "Only User Attributes"
    SettingId_SpacerAfterOnlyUserAttributes = 80,
    SettingId_MoveToOrigin = 97,                    // "Move to Origin"
    SettingId_ReduceCurvesWherePossible = 68,       // "Reduce curves where possible"
    SettingId_CompressAnimationData = 52,           // "Compress animation data"
    SettingId_UseQuantizedCurves = 219,             // "Use quantized curves"
    SettingId_QuantOnMissedTolerance = 220,         // "Quant. on missed tolerance"
    SettingId_AggressiveAnimationCompression = 227, // "Aggressive animation compression"
    SettingId_PositionCurveType = 53,               // "Position curve type"
    SettingId_PositionCurveTolerance = 149,         // "Position curve tolerance"
    SettingId_AllowPositionJumps = 114,             // "Allow position jumps"
    SettingId_PositionJumpTolerance = 152,          // "Position jump tolerance"
    SettingId_AllowPositionCreasing = 115,          // "Allow position creasing"
    SettingId_PositionCreaseTolerance = 153,        // "Position crease tolerance"
    SettingId_SpacerAfterPositionCreaseTolerance = 55,
    SettingId_OrientationCurveType = 56,        // "Orientation curve type"
    SettingId_OrientationCurveTolerance = 150,  // "Orientation curve tolerance"
    SettingId_AllowOrientationJumps = 117,      // "Allow orientation jumps"
    SettingId_OrientationJumpTolerance = 154,   // "Orientation jump tolerance"
    SettingId_AllowOrientationCreasing = 118,   // "Allow orientation creasing"
    SettingId_OrientationCreaseTolerance = 155, // "Orientation crease tolerance"
    SettingId_SpacerAfterOrientationCreaseTolerance = 58,
    SettingId_ScaleShearCurveType = 59,        // "Scale/shear curve type"
    SettingId_ScaleShearCurveTolerance = 151,  // "Scale/shear curve tolerance"
    SettingId_AllowScaleShearJumps = 120,      // "Allow scale/shear jumps"
    SettingId_ScaleShearJumpTolerance = 156,   // "Scale/shear jump tolerance"
    SettingId_AllowScaleShearCreasing = 121,   // "Allow scale/shear creasing"
    SettingId_ScaleShearCreaseTolerance = 157, // "Scale/shear crease tolerance"
    SettingId_SpacerAfterScaleShearCreaseTolerance = 61,
    SettingId_DontOversampleVectorTracks = 245, // "Don't oversample vector tracks"
    SettingId_ProtectConstantTracks = 252,      // "Protect constant tracks"
    SettingId_VectorTrackCurveType = 221,       // "VectorTrack Curve type"
    SettingId_VectorTrackCurveTolerance = 222,  // "VectorTrack Curve tolerance"
    SettingId_AllowVectorTrackJumps = 225,      // "Allow VectorTrack jumps"
    SettingId_VectorTrackJumpTolerance = 223,   // "VectorTrack jump tolerance"
    SettingId_AllowVectorTrackCreasing = 226,   // "Allow VectorTrack creasing"
    SettingId_VectorTrackCreaseTolerance = 224, // "VectorTrack crease tolerance"
    SettingId_UseAccumulatorNeighborhood = 229, // "Use Accumulator Neighborhood"
    SettingId_MainWindowWidth = 147,            // "Main window width"
    SettingId_MainWindowHeight = 148,           // "Main window height"
    SettingId_AutoCloseOnExit = 67,             // "Auto close on exit"
    SettingId_DetailedSettings = 228,           // "Detailed Settings"
    SettingId_Oversampling = 173,               // "Oversampling"
    SettingId_SpacerAfterOversampling = 254,
    SettingId_XPositionTolerance = 158, // "X Position Tolerance"
    SettingId_YPositionTolerance = 159, // "Y Position Tolerance"
    SettingId_ZPositionTolerance = 160, // "Z Position Tolerance"
    SettingId_XRotationTolerance = 161, // "X Rotation Tolerance"
    SettingId_YRotationTolerance = 162, // "Y Rotation Tolerance"
    SettingId_ZRotationTolerance = 163, // "Z Rotation Tolerance"
    SettingId_RootMotionType = 185,     // "Root Motion Type"
    SettingId_SpacerAfterRootMotionType = 62,
    // Settings of this exporter's own beyond the standard set: their ids
    // start at 70001, above every id of the standard set (sections included),
    // so that a future standard id never collides with them.
    SettingId_MaximumWorldError = 70001,     // "Maximum world error"
    SettingId_VirtualVertexDistance = 70002, // "Virtual vertex distance"
    SettingId_AnimationSection = 65537,           // "animation"
    SettingId_ArtToolInfoSection = 65538,         // "art_tool_info"
    SettingId_Curve2Section = 65539,              // "curve2"
    SettingId_ExporterInfoSection = 65540,        // "exporter_info"
    SettingId_MaterialMapSection = 65541,         // "material_map"
    SettingId_MaterialSection = 65542,            // "material"
    SettingId_BoneBindingSection = 65543,         // "bone_binding"
    SettingId_MaterialBindingSection = 65544,     // "material_binding"
    SettingId_MorphTargetSection = 65545,         // "morph_target"
    SettingId_MeshSection = 65546,                // "mesh"
    SettingId_ModelMeshBindingSection = 65547,    // "model_mesh_binding"
    SettingId_ModelSection = 65548,               // "model"
    SettingId_PeriodicLoopSection = 65549,        // "periodic_loop"
    SettingId_PixelLayoutSection = 65550,         // "pixel_layout"
    SettingId_BoneSection = 65553,                // "bone"
    SettingId_SkeletonSection = 65554,            // "skeleton"
    SettingId_StringsSection = 65555,             // "strings"
    SettingId_TextureMipLevelSection = 65556,     // "texture_mip_level"
    SettingId_TextureImageSection = 65557,        // "texture_image"
    SettingId_TextureSection = 65558,             // "texture"
    SettingId_VectorTrackSection = 65559,         // "vector_track"
    SettingId_TransformTrackSection = 65560,      // "transform_track"
    SettingId_TextTrackEntrySection = 65561,      // "text_track_entry"
    SettingId_TextTrackSection = 65562,           // "text_track"
    SettingId_TrackGroupSection = 65563,          // "track_group"
    SettingId_TriMaterialGroupSection = 65564,    // "tri_material_group"
    SettingId_TriAnnotationSetSection = 65565,    // "tri_annotation_set"
    SettingId_TriTopologySection = 65566,         // "tri_topology"
    SettingId_VertexAnnotationSetSection = 65567, // "vertex_annotation_set"
    SettingId_VertexDataSection = 65568,          // "vertex_data"
    SettingId_IncludeExporterInfo = 94,           // "Include exporter info"
    SettingId_FilePlatform = 212,                 // "File platform"
    SettingId_CoordinateSystem = 136,             // "Coordinate system"
    SettingId_RescaleSceneOnExport = 144,         // "Rescale scene on export"
    SettingId_UnitsPerMeter = 145,                // "Units per Meter"
    SettingId_SpacerAfterUnitsPerMeter = 146,
    SettingId_FileCompression = 70,       // "File compression"
    SettingId_ObjectAlignment = 74,       // "Object alignment"
    SettingId_VertexObjectAlignment = 87, // "Vertex object alignment"
    SettingId_IncludeTypeTable = 95,      // "Include type table"
    SettingId_SpacerAfterIncludeTypeTable = 123,
    SettingId_TypesDefaultSection = 125,       // "Types default"
    SettingId_ObjectsDefaultSection = 126,     // "Objects default"
    SettingId_RigidVerticesSection = 127,      // "Rigid vertices"
    SettingId_RigidIndicesSection = 128,       // "Rigid indices"
    SettingId_DeformableVerticesSection = 129, // "Deformable vertices"
    SettingId_DeformableIndicesSection = 130,  // "Deformable indices"
    SettingId_PixelDataSection = 132,          // "Pixel data"
    SettingId_SpacerAfterPixelDataSection = 131,
    SettingId_Compression = 24,                 // "Compression"
    SettingId_CompressInYUVSpace = 106,         // "Compress in YUV space"
    SettingId_ForceWidthToClosestPowerOf2 = 12, // "Force width to closest power of 2"
    SettingId_MaximumWidth = 13,                // "Maximum width"
    SettingId_SpacerAfterMaximumWidth = 11,
    SettingId_ForceHeightToClosestPowerOf2 = 15, // "Force height to closest power of 2"
    SettingId_MaximumHeight = 16,                // "Maximum height"
    SettingId_SpacerAfterMaximumHeight = 14,
    SettingId_GenerateMIPMaps = 27, // "Generate MIP maps"
    SettingId_FullMipSeries = 253,  // "Full mip series"
    SettingId_SpacerAfterFullMipSeries = 28,
    SettingId_FlipTextureVertically = 233,   // "Flip texture vertically"
    SettingId_FlipTextureHorizontally = 234, // "Flip texture horizontally"
    SettingId_SpacerAfterFlipTextureHorizontally = 235,
    SettingId_TreatAlpha1TexturesAsRGB = 248, // "Treat Alpha = 1 textures as RGB"
    SettingId_NoAlpha = 19,                   // "No alpha"
    SettingId_SpacerAfterNoAlpha = 79,
    SettingId_Alpha = 36, // "Alpha"
    SettingId_SpacerAfterAlpha = 102,
    SettingId_NormalBumpWithoutAlpha = 103, // "Normal/bump without alpha"
    SettingId_SpacerAfterNormalBumpWithoutAlpha = 104,
    SettingId_NormalBumpWithAlpha = 105,                 // "Normal/bump with alpha"
    SettingId_SetTotalFrameCount = 165,                  // "Set total frame count"
    SettingId_FrameCount = 166,                          // "Frame count"
    SettingId_RelativeToBoneAnimation = 210,             // "Relative to bone animation"
    SettingId_CreateVertexMorphCurves = 188,             // "Create vertex morph curves"
    SettingId_MorphUseQuantizedCurves = 230,             // "Use quantized curves"
    SettingId_MorphQuantOnMissedTolerance = 231,         // "Quant. on missed tolerance"
    SettingId_MorphAggressiveAnimationCompression = 232, // "Aggressive animation compression"
    SettingId_MorphPositionCurveType = 189,              // "Position curve type"
    SettingId_MorphPositionCurveTolerance = 190,         // "Position curve tolerance"
    SettingId_MorphPositionJumpTolerance = 191,          // "Position jump tolerance"
    SettingId_MorphPositionCreaseTolerance = 192,        // "Position crease tolerance"
    SettingId_SpacerAfterMorphPositionCreaseTolerance = 193,
    SettingId_NormalCurveType = 194,       // "Normal curve type"
    SettingId_NormalCurveTolerance = 195,  // "Normal curve tolerance"
    SettingId_NormalJumpTolerance = 196,   // "Normal jump tolerance"
    SettingId_NormalCreaseTolerance = 197, // "Normal crease tolerance"
    SettingId_SpacerAfterNormalCreaseTolerance = 198,
    SettingId_ColorCurveType = 200,       // "Color curve type"
    SettingId_ColorCurveTolerance = 199,  // "Color curve tolerance"
    SettingId_ColorJumpTolerance = 201,   // "Color jump tolerance"
    SettingId_ColorCreaseTolerance = 202, // "Color crease tolerance"
    SettingId_SpacerAfterColorCreaseTolerance = 203,
    SettingId_TextureCoordinateCurveType = 204,               // "Texture coordinate curve type"
    SettingId_TextureCoordinateCurveTolerance = 205,          // "Texture coordinate curve tolerance"
    SettingId_TextureCoordinateJumpTolerance = 206,           // "Texture coordinate jump tolerance"
    SettingId_TextureCoordinateCreaseTolerance = 207,         // "Texture coordinate crease tolerance"
    SettingId_UseFullMeshPathnames = 246,                     // "Use Full Mesh pathnames"
    SettingId_PreserveBonesAffectingNoVerts = 247,            // "Preserve Bones affecting no verts"
    SettingId_BindMeshesToNearestParent = 174,                // "Bind meshes to nearest parent"
    SettingId_TruncateVertexIndicesTo16Bit = 76,              // "Truncate vertex indices to 16-bit"
    SettingId_UseClockwiseTriangles = 143,                    // "Use clockwise triangles"
    SettingId_Double2SidedTriangles = 186,                    // "Double 2-sided Triangles"
    SettingId_AllowVertexWeighting = 7,                       // "Allow vertex weighting"
    SettingId_BonesPerVertex = 8,                             // "Bones per vertex"
    SettingId_BoneWeightFormat = 255,                         // "Bone Weight Format"
    SettingId_AllowTextureCoordinates = 81,                   // "Allow texture coordinates"
    SettingId_CoordsPerVertex = 82,                           // "Coords per vertex"
    SettingId_InsertDummyCoordsIfMissing = 88,                // "Insert dummy coords if missing"
    SettingId_ElementsPerCoord = 83,                          // "Elements per coord"
    SettingId_FlipUCoordinate = 244,                          // "Flip U Coordinate"
    SettingId_FlipVCoordinate = 243,                          // "Flip V Coordinate"
    SettingId_AllowVertexColors = 84,                         // "Allow vertex colors"
    SettingId_ColorsPerVertex = 85,                           // "Colors per vertex"
    SettingId_InsertDummyColorsIfMissing = 89,                // "Insert dummy colors if missing"
    SettingId_ElementsPerColor = 86,                          // "Elements per color"
    SettingId_IncludeTangentVectors = 99,                     // "Include tangent vectors"
    SettingId_IncludeBinormalVectors = 100,                   // "Include binormal vectors"
    SettingId_IncludeCrossVectors = 101,                      // "Include cross vectors"
    SettingId_TangentMergingTolerance = 211,                  // "Tangent merging tolerance"
    SettingId_IncludePerBoneTriangleArrays = 98,              // "Include per-bone triangle arrays"
    SettingId_IncludeTopologyInformation = 77,                // "Include topology information"
    SettingId_IncludeVertexAnnotation = 90,                   // "Include vertex annotation"
    SettingId_UseIndexedVertexAnnotation = 91,                // "Use indexed vertex annotation"
    SettingId_IncludeTriangleAnnotation = 92,                 // "Include triangle annotation"
    SettingId_UseIndexedTriangleAnnotation = 93,              // "Use indexed triangle annotation"
    SettingId_StoreMorphTargetsAsDeltasFromTheBaseMesh = 242, // "Store morph targets as deltas from the base mesh"
    SettingId_MorphTargets = 237,                             // "Morph Targets"
};

// Lists of choices (the requesters behind comboboxes).
enum choice_list_id
{
    ChoiceList_RootMotionTypes = 175,    // "Root Motion Types"
    ChoiceList_FilePlatform = 213,       // "Coordinate system"
    ChoiceList_CoordinateSystem = 137,   // "Coordinate system"
    ChoiceList_FileCompression = 71,     // "File compression"
    ChoiceList_CompressionTypes = 23,    // "Compression Types"
    ChoiceList_BoneWeightFormat = 33023, // "Bone Weight Format"
    ChoiceList_MorphTargets = 238,       // "Morph Targets"
};

// Choices of the lists.
enum choice_id
{
    // A section combobox's list (its id + ChoiceList_SectionOffset) holds
    // Choice_AllowDefaultPlacement and then one choice per standard
    // section, Choice_FirstStandardSection + the section's index.
    ChoiceList_SectionOffset = 32768,
    Choice_FirstStandardSection = 131072,
    Choice_NoRootMotionAccumulation = 176,                   // "No root motion accumulation"
    Choice_ConstantMotionExtractionCME = 177,                // "Constant Motion Extraction (CME)"
    Choice_VariableDeltaAccumulationVDA = 178,               // "Variable Delta Accumulation (VDA)"
    Choice_AllowDefaultPlacement = 124,                      // "(allow default placement)"
    Choice_Native = 214,                                     // "Native"
    Choice_32BitLittleEndian = 215,                          // "32-bit, little endian"
    Choice_32BitBigEndian = 216,                             // "32-bit, big endian"
    Choice_64BitLittleEndian = 217,                          // "64-bit, little endian"
    Choice_64BitBigEndian = 218,                             // "64-bit, big endian"
    Choice_UseToolsCoordinates = 142,                        // "Use tool's coordinates"
    Choice_RightHandedYUp = 138,                             // "Right-handed, Y up"
    Choice_RightHandedZUp = 139,                             // "Right-handed, Z up"
    Choice_LeftHandedYUp = 140,                              // "Left-handed, Y up"
    Choice_LeftHandedZUp = 141,                              // "Left-handed, Z up"
    Choice_NoCompression = 72,                               // "No compression"
    Choice_Trove1Compression = 133,                          // "Trove-1 Compression"
    Choice_RawRGB888 = 20,                                   // "Raw RGB 888"
    Choice_RawRGBA8888 = 42,                                 // "Raw RGBA 8888"
    Choice_Zent1StillImageCompression = 134,                 // "Zent1 still-image compression"
    Choice_Zent1StillImageCompressionWithAlphaChannel = 135, // "Zent1 still-image compression with alpha channel"
    Choice_4BitS3TCNoAlpha = 22,                             // "4-bit S3TC no alpha"
    Choice_4BitS3TC1BitAlpha = 49,                           // "4-bit S3TC 1-bit alpha"
    Choice_8BitS3TCExplicitAlpha = 50,                       // "8-bit S3TC explicit alpha"
    Choice_8BitS3TCInterpolatedAlpha = 51,                   // "8-bit S3TC interpolated alpha"
    Choice_8BitS3TCAutoAlpha = 34,                           // "8-bit S3TC auto alpha"
    Choice_DetermineFromSource = 236,                        // "Determine from Source"
    Choice_Ubyte8 = 256,                                     // "ubyte8"
    Choice_Float16 = 257,                                    // "float16"
    Choice_Float32 = 258,                                    // "float32"
    Choice_DontExtractMorphs = 239,                          // "Don't Extract Morphs"
    Choice_LookForMorphModifierMeshes = 240,                 // "Look for morph modifier meshes"
    Choice_ExtractMeshFrameByFrame = 241,                    // "Extract mesh frame by frame"
};

#include "foundation/tessel_types.h"

// True for an id that the definitions give a setting.
bool IsDefinedSettingId(int32 Id);
// Logs, once per id for the life of the process, that a getter was asked for
// an id no definition has. Quiet for a defined id.
void ReportUndefinedSettingId(int32 Id);
