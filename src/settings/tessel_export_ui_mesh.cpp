// "Texture settings" and "Mesh settings", with the texture formats and the
// morph target extraction choices.
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_builder.h"

// One list of texture formats ("Compression Types"); each combobox has its
// own. The Zent1 choices carry a compression ratio and the YUV switch, whose
// default differs between color maps and normal maps.
static requester *AddTextureFormatList(ui_builder &Builder, bool CompressInYUV)
{
    requester *Formats =
        List(Builder, ChoiceList_CompressionTypes, "Compression Types", "The format in which the texture is stored.");
    Choice(Builder, Formats, Choice_RawRGB888, "Raw RGB 888", "Uncompressed, 3 bytes a pixel.");
    Choice(Builder, Formats, Choice_RawRGBA8888, "Raw RGBA 8888", "Uncompressed, 4 bytes a pixel.");
    requester *Zent[2] = {
        Choice(Builder, Formats, Choice_Zent1StillImageCompression, "Zent1 still-image compression",
               "Zent1 compressed; small, decompressed at load."),
        Choice(Builder, Formats, Choice_Zent1StillImageCompressionWithAlphaChannel,
               "Zent1 still-image compression with alpha channel", "Zent1 compressed with alpha."),
    };
    for (requester *Choice : Zent) {
        Slider(Builder, Choice, SettingId_Compression, "Compression",
               "Zent compression ratio: higher is smaller and blurrier.", 1, 64, 15, IdentitySliderMapping, true);
        Checkbox(Builder, Choice, SettingId_CompressInYUVSpace, "Compress in YUV space",
                 "Convert to YUV before compressing; off for anything that is not a color map.", CompressInYUV, true);
    }
    Choice(Builder, Formats, Choice_4BitS3TCNoAlpha, "4-bit S3TC no alpha", "4 bits a pixel, no alpha.");
    Choice(Builder, Formats, Choice_4BitS3TC1BitAlpha, "4-bit S3TC 1-bit alpha",
           "4 bits a pixel with 1-bit alpha mask.");
    Choice(Builder, Formats, Choice_8BitS3TCExplicitAlpha, "8-bit S3TC explicit alpha",
           "8 bits a pixel, explicitly encoded alpha.");
    Choice(Builder, Formats, Choice_8BitS3TCInterpolatedAlpha, "8-bit S3TC interpolated alpha",
           "8 bits a pixel, alpha encoded like the colors.");
    Choice(Builder, Formats, Choice_8BitS3TCAutoAlpha, "8-bit S3TC auto alpha",
           "Tries both 8-bit formats and keeps the one that reproduces the source more faithfully.");
    Choice(Builder, Formats, Choice_DetermineFromSource, "Determine from Source",
           "The output format follows the source texture: only RGB, RGBA and S3TC sources; avoids decompressing "
           "and recompressing S3TC in DDS files.");
    return Formats;
}

requester *BuildTextureSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 10, "Texture settings", "How textures are exported.");
    AddInclusionSettings(Builder, R);

    Checkbox(Builder, R, SettingId_ForceWidthToClosestPowerOf2, "Force width to closest power of 2",
             "Resize textures so that the width is a power of 2.", true, true);
    Slider(Builder, R, SettingId_MaximumWidth, "Maximum width",
           "Widths above this are reduced; slider position n means 2^n pixels, default 256.", 0, 12, 8,
           PowerOfTwoSliderMapping, true);
    Spacer(Builder, R, SettingId_SpacerAfterMaximumWidth);
    Checkbox(Builder, R, SettingId_ForceHeightToClosestPowerOf2, "Force height to closest power of 2",
             "Resize textures so that the height is a power of 2.", true, true);
    Slider(Builder, R, SettingId_MaximumHeight, "Maximum height",
           "Heights above this are reduced; slider position n means 2^n pixels, default 256.", 0, 12, 8,
           PowerOfTwoSliderMapping, true);
    Spacer(Builder, R, SettingId_SpacerAfterMaximumHeight);
    Checkbox(Builder, R, SettingId_GenerateMIPMaps, "Generate MIP maps", "Generate mip map images for the texture.",
             false, true);
    Checkbox(Builder, R, SettingId_FullMipSeries, "Full mip series",
             "On: the mip series of a non-square texture goes down to 1x1. Off: it stops after one dimension "
             "reaches 1 pixel.",
             false, true);
    Spacer(Builder, R, SettingId_SpacerAfterFullMipSeries);
    Checkbox(Builder, R, SettingId_FlipTextureVertically, "Flip texture vertically",
             "Flip the texture vertically before encoding.", false, true);
    Checkbox(Builder, R, SettingId_FlipTextureHorizontally, "Flip texture horizontally",
             "Flip the texture horizontally before encoding.", false, true);
    Spacer(Builder, R, SettingId_SpacerAfterFlipTextureHorizontally);
    Checkbox(Builder, R, SettingId_TreatAlpha1TexturesAsRGB, "Treat Alpha = 1 textures as RGB",
             "Scan the alpha channel; a texture whose alpha is all 1.0 counts as RGB when its format is selected.",
             false, true);

    // Texture-format comboboxes are the only ones with the plain flag off.
    Combobox(Builder, R, SettingId_NoAlpha, "No alpha", "Texture format for textures without alpha channel.",
             AddTextureFormatList(Builder, true), Choice_Zent1StillImageCompression, false, true);
    Spacer(Builder, R, SettingId_SpacerAfterNoAlpha);
    Combobox(Builder, R, SettingId_Alpha, "Alpha", "Texture format for textures with alpha channel.",
             AddTextureFormatList(Builder, true), Choice_Zent1StillImageCompressionWithAlphaChannel, false, true);
    Spacer(Builder, R, SettingId_SpacerAfterAlpha);
    Combobox(Builder, R, SettingId_NormalBumpWithoutAlpha, "Normal/bump without alpha",
             "Texture format for normal/bump textures without alpha.", AddTextureFormatList(Builder, false),
             Choice_Zent1StillImageCompression, false, true);
    Spacer(Builder, R, SettingId_SpacerAfterNormalBumpWithoutAlpha);
    Combobox(Builder, R, SettingId_NormalBumpWithAlpha, "Normal/bump with alpha",
             "Texture format for normal/bump textures with alpha.", AddTextureFormatList(Builder, false),
             Choice_Zent1StillImageCompressionWithAlphaChannel, false, true);
    return Finish(Builder, R);
}

// ---------------------------------------------------------------------------

// Settings of the choice "Extract mesh frame by frame": snapshot count and
// the curve fitting of each vertex channel, in groups of four.
static void AddMorphFrameSettings(ui_builder &Builder, requester *R)
{
    Checkbox(Builder, R, SettingId_SetTotalFrameCount, "Set total frame count",
             "Export a fixed number of evenly spaced snapshots; off: one snapshot per frame.", false, true);
    Number(Builder, R, SettingId_FrameCount, "Frame count", "Total number of frames to capture.", 1.0f, 10000.0f, 10.0f,
           true);
    Checkbox(Builder, R, SettingId_RelativeToBoneAnimation, "Relative to bone animation",
             "Vertex position and normal movement is stored relative to where the bone animation would have put "
             "it, so that a mesh can be both vertex- and bone-animated.",
             false, true);
    Checkbox(Builder, R, SettingId_CreateVertexMorphCurves, "Create vertex morph curves",
             "Encode each vertex's movement as a spline curve stored as vertex annotation data.", false, true);
    Checkbox(Builder, R, SettingId_MorphUseQuantizedCurves, "Use quantized curves",
             "The exporter will use quantized curve format where appropriate.", true, true,
             SettingId_CreateVertexMorphCurves);
    Checkbox(Builder, R, SettingId_MorphQuantOnMissedTolerance, "Quant. on missed tolerance",
             "The exporter aggressively attempts to reduce the space used by animations that cannot be fit with a "
             "bspline to the specified tolerance.",
             true, true, SettingId_MorphUseQuantizedCurves);
    Checkbox(Builder, R, SettingId_MorphAggressiveAnimationCompression, "Aggressive animation compression",
             "The exporter aggressively attempts to eliminate unnecessary knots as a post-process in the "
             "compression step.",
             false, true, SettingId_CreateVertexMorphCurves);

    Slider(Builder, R, SettingId_MorphPositionCurveType, "Position curve type",
           "Degree of the b-spline fitted to the vertex position: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 2, IdentitySliderMapping, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_MorphPositionCurveTolerance, "Position curve tolerance",
           "Fitting tolerance for the vertex position, expressed in tool units.", 0.00001f, 10000.0f, 0.01f, true,
           SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_MorphPositionJumpTolerance, "Position jump tolerance",
           "Size of jump of the position of a vertex above which the fitter treats it as a jump.", 0.00001f, 10000.0f,
           10.0f, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_MorphPositionCreaseTolerance, "Position crease tolerance",
           "Sharpness of turn of the position of a vertex above which the fitter makes a crease.", 0.00001f, 10000.0f,
           10.0f, true, SettingId_CreateVertexMorphCurves);
    Spacer(Builder, R, SettingId_SpacerAfterMorphPositionCreaseTolerance);

    Slider(Builder, R, SettingId_NormalCurveType, "Normal curve type",
           "Degree of the b-spline fitted to the vertex normal: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 1, IdentitySliderMapping, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_NormalCurveTolerance, "Normal curve tolerance",
           "Fitting tolerance for the vertex normal, expressed from zero to two (since normals go from -1 to +1).",
           0.00001f, 2.0f, 0.01f, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_NormalJumpTolerance, "Normal jump tolerance",
           "Size of jump of the normal of a vertex above which the fitter treats it as a jump.", 0.00001f, 2.0f, 0.2f,
           true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_NormalCreaseTolerance, "Normal crease tolerance",
           "Sharpness of turn of the normal of a vertex above which the fitter makes a crease.", 0.00001f, 2.0f, 0.2f,
           true, SettingId_CreateVertexMorphCurves);
    Spacer(Builder, R, SettingId_SpacerAfterNormalCreaseTolerance);

    Slider(Builder, R, SettingId_ColorCurveType, "Color curve type",
           "Degree of the b-spline fitted to the vertex colors: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 1, IdentitySliderMapping, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_ColorCurveTolerance, "Color curve tolerance",
           "Fitting tolerance for the vertex colors, expressed from zero to one.", 0.00001f, 1.0f, 0.01f, true,
           SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_ColorJumpTolerance, "Color jump tolerance",
           "Size of jump of the colors of a vertex above which the fitter treats it as a jump.", 0.00001f, 1.0f, 0.2f,
           true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_ColorCreaseTolerance, "Color crease tolerance",
           "Sharpness of turn of the colors of a vertex above which the fitter makes a crease.", 0.00001f, 1.0f, 0.2f,
           true, SettingId_CreateVertexMorphCurves);
    Spacer(Builder, R, SettingId_SpacerAfterColorCreaseTolerance);

    Slider(Builder, R, SettingId_TextureCoordinateCurveType, "Texture coordinate curve type",
           "Degree of the b-spline fitted to the vertex texture coordinates: 0 still frames, 3 full cubic, 2 the "
           "usual choice.",
           0, 3, 1, IdentitySliderMapping, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_TextureCoordinateCurveTolerance, "Texture coordinate curve tolerance",
           "Fitting tolerance for the vertex texture coordinates, expressed as zero to one, covering the whole "
           "texture size.",
           0.00001f, 1.0f, 0.0009765625f, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_TextureCoordinateJumpTolerance, "Texture coordinate jump tolerance",
           "Size of jump of the texture coordinates of a vertex above which the fitter treats it as a jump.", 0.00001f,
           1.0f, 0.1f, true, SettingId_CreateVertexMorphCurves);
    Number(Builder, R, SettingId_TextureCoordinateCreaseTolerance, "Texture coordinate crease tolerance",
           "Sharpness of turn of the texture coordinates of a vertex above which the fitter makes a crease.", 0.00001f,
           1.0f, 0.1f, true, SettingId_CreateVertexMorphCurves);
}

requester *BuildMeshSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 6, "Mesh settings", "How meshes are exported.");
    AddInclusionSettings(Builder, R);

    Checkbox(Builder, R, SettingId_UseFullMeshPathnames, "Use Full Mesh pathnames",
             "Name meshes by the fullest identifying string; off: the shortest unique name.", false, true);
    Checkbox(Builder, R, SettingId_PreserveBonesAffectingNoVerts, "Preserve Bones affecting no verts",
             "Keep all bones that the tool's skinning reports, not only those that affect at least one vertex.", false,
             true);
    Checkbox(Builder, R, SettingId_BindMeshesToNearestParent, "Bind meshes to nearest parent",
             "A mesh whose own bone was excluded binds to the nearest included parent bone; off: always to its own "
             "bone.",
             false, true);
    Checkbox(Builder, R, SettingId_TruncateVertexIndicesTo16Bit, "Truncate vertex indices to 16-bit",
             "Store each mesh's index list as 16-bit values instead of 32-bit.", false, true);
    Checkbox(Builder, R, SettingId_UseClockwiseTriangles, "Use clockwise triangles",
             "Wind triangles clockwise instead of the default counter-clockwise.", false, true);
    Checkbox(Builder, R, SettingId_Double2SidedTriangles, "Double 2-sided Triangles",
             "Duplicate triangles marked two-sided, the copy with opposite winding and normals.", false, true);

    Checkbox(Builder, R, SettingId_AllowVertexWeighting, "Allow vertex weighting",
             "Export smooth-skinned vertices as such; off: force every mesh rigid.", true, true);
    Slider(Builder, R, SettingId_BonesPerVertex, "Bones per vertex",
           "Maximum bones per vertex; only the most influential are kept.", 1, 16, 4, IdentitySliderMapping, true,
           SettingId_AllowVertexWeighting);
    requester *WeightFormats =
        List(Builder, ChoiceList_BoneWeightFormat, "Bone Weight Format", "Format of the bone weights.");
    Choice(Builder, WeightFormats, Choice_Ubyte8, "ubyte8", "Unsigned byte.");
    Choice(Builder, WeightFormats, Choice_Float16, "float16", "16-bit float.");
    Choice(Builder, WeightFormats, Choice_Float32, "float32", "32-bit float.");
    Combobox(Builder, R, SettingId_BoneWeightFormat, "Bone Weight Format", "Format of the BoneWeights member.",
             WeightFormats, Choice_Ubyte8, true, true, SettingId_AllowVertexWeighting);

    Checkbox(Builder, R, SettingId_AllowTextureCoordinates, "Allow texture coordinates",
             "Allow texture coordinates in the file.", true, true);
    Slider(Builder, R, SettingId_CoordsPerVertex, "Coords per vertex",
           "Maximum texture coordinate channels per vertex; extra channels are dropped.", 1, 64, 1,
           IdentitySliderMapping, true, SettingId_AllowTextureCoordinates);
    Checkbox(Builder, R, SettingId_InsertDummyCoordsIfMissing, "Insert dummy coords if missing",
             "Fill missing channels up to \"Coords per vertex\" with dummy coordinates.", true, true,
             SettingId_AllowTextureCoordinates);
    Slider(Builder, R, SettingId_ElementsPerCoord, "Elements per coord",
           "Maximum elements in one texture coordinate (UV 2, UVW 3).", 1, 4, 2, IdentitySliderMapping, true,
           SettingId_AllowTextureCoordinates);
    Checkbox(Builder, R, SettingId_FlipUCoordinate, "Flip U Coordinate",
             "Flip the coordinate horizontally before encoding.", false, true, SettingId_AllowTextureCoordinates);
    Checkbox(Builder, R, SettingId_FlipVCoordinate, "Flip V Coordinate",
             "Flip the coordinate vertically before encoding.", false, true, SettingId_AllowTextureCoordinates);

    Checkbox(Builder, R, SettingId_AllowVertexColors, "Allow vertex colors", "Allow vertex colors in the file.", false,
             true);
    Slider(Builder, R, SettingId_ColorsPerVertex, "Colors per vertex",
           "Maximum vertex color channels per vertex; extra channels are dropped.", 1, 64, 1, IdentitySliderMapping,
           true, SettingId_AllowVertexColors);
    Checkbox(Builder, R, SettingId_InsertDummyColorsIfMissing, "Insert dummy colors if missing",
             "Fill missing channels up to \"Colors per vertex\" with white.", true, true, SettingId_AllowVertexColors);
    Slider(Builder, R, SettingId_ElementsPerColor, "Elements per color",
           "Maximum elements in one color (RGB 3, RGBA 4).", 1, 4, 3, IdentitySliderMapping, true,
           SettingId_AllowVertexColors);

    Checkbox(Builder, R, SettingId_IncludeTangentVectors, "Include tangent vectors",
             "Compute and store tangent vectors for all vertices.", false, true);
    Checkbox(Builder, R, SettingId_IncludeBinormalVectors, "Include binormal vectors",
             "Compute and store binormal vectors for all vertices.", false, true);
    Checkbox(Builder, R, SettingId_IncludeCrossVectors, "Include cross vectors",
             "Compute and store tangent-cross-binormal vectors for all vertices.", false, true);
    Number(Builder, R, SettingId_TangentMergingTolerance, "Tangent merging tolerance",
           "Degrees by which tangents or binormals of two coincident vertices may differ and still be averaged "
           "together.",
           0.0f, 180.0f, 75.0f, true);
    Checkbox(Builder, R, SettingId_IncludePerBoneTriangleArrays, "Include per-bone triangle arrays",
             "Store a triangle index array for each bone used by the mesh (for collision tests).", false, true);
    Checkbox(Builder, R, SettingId_IncludeTopologyInformation, "Include topology information",
             "Store triangle neighbours, vertices generated by material boundaries and the like.", false, true);
    Checkbox(Builder, R, SettingId_IncludeVertexAnnotation, "Include vertex annotation",
             "Store vertex-based non-rendering data of the art tool.", false, true);
    Checkbox(Builder, R, SettingId_UseIndexedVertexAnnotation, "Use indexed vertex annotation",
             "Store vertex annotation as index/data pairs; off: as an array parallel to the vertices.", false, true);
    Checkbox(Builder, R, SettingId_IncludeTriangleAnnotation, "Include triangle annotation",
             "Store triangle-based non-rendering data of the art tool.", false, true);
    Checkbox(Builder, R, SettingId_UseIndexedTriangleAnnotation, "Use indexed triangle annotation",
             "Store triangle annotation as index/data pairs; off: as an array parallel to the triangles.", false, true);

    requester *Morphs =
        List(Builder, ChoiceList_MorphTargets, "Morph Targets", "How morph targets are looked for and exported.");
    Choice(Builder, Morphs, Choice_DontExtractMorphs, "Don't Extract Morphs",
           "Morph targets are neither looked for nor included.");
    requester *Modifier = Choice(Builder, Morphs, Choice_LookForMorphModifierMeshes, "Look for morph modifier meshes",
                                 "Find meshes that are associated with each other by a morph modifier.");
    Checkbox(Builder, Modifier, SettingId_StoreMorphTargetsAsDeltasFromTheBaseMesh,
             "Store morph targets as deltas from the base mesh",
             "Store morph targets as deltas from the base mesh, not as full meshes.", true, true);
    requester *Frames = Choice(Builder, Morphs, Choice_ExtractMeshFrameByFrame, "Extract mesh frame by frame",
                               "A snapshot of the mesh is stored for frames of the animation, according to the "
                               "settings below.");
    AddMorphFrameSettings(Builder, Frames);
    Combobox(Builder, R, SettingId_MorphTargets, "Morph Targets", "How morph targets are looked for and exported.",
             Morphs, Choice_DontExtractMorphs, true, true);
    return Finish(Builder, R);
}
