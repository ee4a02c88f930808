// "Texture settings" and "Mesh settings", with the texture formats and the
// morph target extraction choices.
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_builder.h"

// One list of texture formats ("Compression Types"); each combobox has its
// own. The Zent1 choices carry a compression ratio and the YUV switch, whose
// default differs between color maps and normal maps.
static requester *AddTextureFormatList(ui_builder &Builder, bool CompressInYUV)
{
    requester *Formats = List(Builder, 23, "Compression Types", "The format in which the texture is stored.");
    Choice(Builder, Formats, 20, "Raw RGB 888", "Uncompressed, 3 bytes a pixel.");
    Choice(Builder, Formats, 42, "Raw RGBA 8888", "Uncompressed, 4 bytes a pixel.");
    requester *Zent[2] = {
        Choice(Builder, Formats, 134, "Zent1 still-image compression",
               "Zent1 compressed; small, decompressed at load."),
        Choice(Builder, Formats, 135, "Zent1 still-image compression with alpha channel",
               "Zent1 compressed with alpha."),
    };
    for (requester *Choice : Zent) {
        Slider(Builder, Choice, 24, "Compression", "Zent compression ratio: higher is smaller and blurrier.", 1, 64, 15,
               IdentitySliderMapping, true);
        Checkbox(Builder, Choice, 106, "Compress in YUV space",
                 "Convert to YUV before compressing; off for anything that is not a color map.", CompressInYUV, true);
    }
    Choice(Builder, Formats, 22, "4-bit S3TC no alpha", "4 bits a pixel, no alpha.");
    Choice(Builder, Formats, 49, "4-bit S3TC 1-bit alpha", "4 bits a pixel with 1-bit alpha mask.");
    Choice(Builder, Formats, 50, "8-bit S3TC explicit alpha", "8 bits a pixel, explicitly encoded alpha.");
    Choice(Builder, Formats, 51, "8-bit S3TC interpolated alpha", "8 bits a pixel, alpha encoded like the colors.");
    Choice(Builder, Formats, 34, "8-bit S3TC auto alpha",
           "Tries both 8-bit formats and keeps the one that reproduces the source more faithfully.");
    Choice(Builder, Formats, 236, "Determine from Source",
           "The output format follows the source texture: only RGB, RGBA and S3TC sources; avoids decompressing "
           "and recompressing S3TC in DDS files.");
    return Formats;
}

requester *BuildTextureSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 10, "Texture settings", "How textures are exported.");
    AddInclusionSettings(Builder, R);

    Checkbox(Builder, R, 12, "Force width to closest power of 2", "Resize textures so that the width is a power of 2.",
             true, true);
    Slider(Builder, R, 13, "Maximum width",
           "Widths above this are reduced; slider position n means 2^n pixels, default 256.", 0, 12, 8,
           PowerOfTwoSliderMapping, true);
    Spacer(Builder, R, 11);
    Checkbox(Builder, R, 15, "Force height to closest power of 2",
             "Resize textures so that the height is a power of 2.", true, true);
    Slider(Builder, R, 16, "Maximum height",
           "Heights above this are reduced; slider position n means 2^n pixels, default 256.", 0, 12, 8,
           PowerOfTwoSliderMapping, true);
    Spacer(Builder, R, 14);
    Checkbox(Builder, R, 27, "Generate MIP maps", "Generate mip map images for the texture.", false, true);
    Checkbox(Builder, R, 253, "Full mip series",
             "On: the mip series of a non-square texture goes down to 1x1. Off: it stops after one dimension "
             "reaches 1 pixel.",
             false, true);
    Spacer(Builder, R, 28);
    Checkbox(Builder, R, 233, "Flip texture vertically", "Flip the texture vertically before encoding.", false, true);
    Checkbox(Builder, R, 234, "Flip texture horizontally", "Flip the texture horizontally before encoding.", false,
             true);
    Spacer(Builder, R, 235);
    Checkbox(Builder, R, 248, "Treat Alpha = 1 textures as RGB",
             "Scan the alpha channel; a texture whose alpha is all 1.0 counts as RGB when its format is selected.",
             false, true);

    // Texture-format comboboxes are the only ones with the plain flag off.
    Combobox(Builder, R, 19, "No alpha", "Texture format for textures without alpha channel.",
             AddTextureFormatList(Builder, true), 134, false, true);
    Spacer(Builder, R, 79);
    Combobox(Builder, R, 36, "Alpha", "Texture format for textures with alpha channel.",
             AddTextureFormatList(Builder, true), 135, false, true);
    Spacer(Builder, R, 102);
    Combobox(Builder, R, 103, "Normal/bump without alpha", "Texture format for normal/bump textures without alpha.",
             AddTextureFormatList(Builder, false), 134, false, true);
    Spacer(Builder, R, 104);
    Combobox(Builder, R, 105, "Normal/bump with alpha", "Texture format for normal/bump textures with alpha.",
             AddTextureFormatList(Builder, false), 135, false, true);
    return Finish(Builder, R);
}

// ---------------------------------------------------------------------------

// Settings of the choice "Extract mesh frame by frame": snapshot count and
// the curve fitting of each vertex channel, in groups of four.
static void AddMorphFrameSettings(ui_builder &Builder, requester *R)
{
    Checkbox(Builder, R, 165, "Set total frame count",
             "Export a fixed number of evenly spaced snapshots; off: one snapshot per frame.", false, true);
    Number(Builder, R, 166, "Frame count", "Total number of frames to capture.", 1.0f, 10000.0f, 10.0f, true);
    Checkbox(Builder, R, 210, "Relative to bone animation",
             "Vertex position and normal movement is stored relative to where the bone animation would have put "
             "it, so that a mesh can be both vertex- and bone-animated.",
             false, true);
    Checkbox(Builder, R, 188, "Create vertex morph curves",
             "Encode each vertex's movement as a spline curve stored as vertex annotation data.", false, true);
    Checkbox(Builder, R, 230, "Use quantized curves", "The exporter will use quantized curve format where appropriate.",
             true, true, 188);
    Checkbox(Builder, R, 231, "Quant. on missed tolerance",
             "The exporter aggressively attempts to reduce the space used by animations that cannot be fit with a "
             "bspline to the specified tolerance.",
             true, true, 230);
    Checkbox(Builder, R, 232, "Aggressive animation compression",
             "The exporter aggressively attempts to eliminate unnecessary knots as a post-process in the "
             "compression step.",
             false, true, 188);

    Slider(Builder, R, 189, "Position curve type",
           "Degree of the b-spline fitted to the vertex position: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 2, IdentitySliderMapping, true, 188);
    Number(Builder, R, 190, "Position curve tolerance",
           "Fitting tolerance for the vertex position, expressed in tool units.", 0.00001f, 10000.0f, 0.01f, true, 188);
    Number(Builder, R, 191, "Position jump tolerance",
           "Size of jump of the position of a vertex above which the fitter treats it as a jump.", 0.00001f, 10000.0f,
           10.0f, true, 188);
    Number(Builder, R, 192, "Position crease tolerance",
           "Sharpness of turn of the position of a vertex above which the fitter makes a crease.", 0.00001f, 10000.0f,
           10.0f, true, 188);
    Spacer(Builder, R, 193);

    Slider(Builder, R, 194, "Normal curve type",
           "Degree of the b-spline fitted to the vertex normal: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 1, IdentitySliderMapping, true, 188);
    Number(Builder, R, 195, "Normal curve tolerance",
           "Fitting tolerance for the vertex normal, expressed from zero to two (since normals go from -1 to +1).",
           0.00001f, 2.0f, 0.01f, true, 188);
    Number(Builder, R, 196, "Normal jump tolerance",
           "Size of jump of the normal of a vertex above which the fitter treats it as a jump.", 0.00001f, 2.0f, 0.2f,
           true, 188);
    Number(Builder, R, 197, "Normal crease tolerance",
           "Sharpness of turn of the normal of a vertex above which the fitter makes a crease.", 0.00001f, 2.0f, 0.2f,
           true, 188);
    Spacer(Builder, R, 198);

    Slider(Builder, R, 200, "Color curve type",
           "Degree of the b-spline fitted to the vertex colors: 0 still frames, 3 full cubic, 2 the usual choice.", 0,
           3, 1, IdentitySliderMapping, true, 188);
    Number(Builder, R, 199, "Color curve tolerance",
           "Fitting tolerance for the vertex colors, expressed from zero to one.", 0.00001f, 1.0f, 0.01f, true, 188);
    Number(Builder, R, 201, "Color jump tolerance",
           "Size of jump of the colors of a vertex above which the fitter treats it as a jump.", 0.00001f, 1.0f, 0.2f,
           true, 188);
    Number(Builder, R, 202, "Color crease tolerance",
           "Sharpness of turn of the colors of a vertex above which the fitter makes a crease.", 0.00001f, 1.0f, 0.2f,
           true, 188);
    Spacer(Builder, R, 203);

    Slider(Builder, R, 204, "Texture coordinate curve type",
           "Degree of the b-spline fitted to the vertex texture coordinates: 0 still frames, 3 full cubic, 2 the "
           "usual choice.",
           0, 3, 1, IdentitySliderMapping, true, 188);
    Number(Builder, R, 205, "Texture coordinate curve tolerance",
           "Fitting tolerance for the vertex texture coordinates, expressed as zero to one, covering the whole "
           "texture size.",
           0.00001f, 1.0f, 0.0009765625f, true, 188);
    Number(Builder, R, 206, "Texture coordinate jump tolerance",
           "Size of jump of the texture coordinates of a vertex above which the fitter treats it as a jump.", 0.00001f,
           1.0f, 0.1f, true, 188);
    Number(Builder, R, 207, "Texture coordinate crease tolerance",
           "Sharpness of turn of the texture coordinates of a vertex above which the fitter makes a crease.", 0.00001f,
           1.0f, 0.1f, true, 188);
}

requester *BuildMeshSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 6, "Mesh settings", "How meshes are exported.");
    AddInclusionSettings(Builder, R);

    Checkbox(Builder, R, 246, "Use Full Mesh pathnames",
             "Name meshes by the fullest identifying string; off: the shortest unique name.", false, true);
    Checkbox(Builder, R, 247, "Preserve Bones affecting no verts",
             "Keep all bones that the tool's skinning reports, not only those that affect at least one vertex.", false,
             true);
    Checkbox(Builder, R, 174, "Bind meshes to nearest parent",
             "A mesh whose own bone was excluded binds to the nearest included parent bone; off: always to its own "
             "bone.",
             false, true);
    Checkbox(Builder, R, 76, "Truncate vertex indices to 16-bit",
             "Store each mesh's index list as 16-bit values instead of 32-bit.", false, true);
    Checkbox(Builder, R, 143, "Use clockwise triangles",
             "Wind triangles clockwise instead of the default counter-clockwise.", false, true);
    Checkbox(Builder, R, 186, "Double 2-sided Triangles",
             "Duplicate triangles marked two-sided, the copy with opposite winding and normals.", false, true);

    Checkbox(Builder, R, 7, "Allow vertex weighting",
             "Export smooth-skinned vertices as such; off: force every mesh rigid.", true, true);
    Slider(Builder, R, 8, "Bones per vertex", "Maximum bones per vertex; only the most influential are kept.", 1, 16, 4,
           IdentitySliderMapping, true, 7);
    requester *WeightFormats = List(Builder, 33023, "Bone Weight Format", "Format of the bone weights.");
    Choice(Builder, WeightFormats, 256, "ubyte8", "Unsigned byte.");
    Choice(Builder, WeightFormats, 257, "float16", "16-bit float.");
    Choice(Builder, WeightFormats, 258, "float32", "32-bit float.");
    Combobox(Builder, R, 255, "Bone Weight Format", "Format of the BoneWeights member.", WeightFormats, 256, true, true,
             7);

    Checkbox(Builder, R, 81, "Allow texture coordinates", "Allow texture coordinates in the file.", true, true);
    Slider(Builder, R, 82, "Coords per vertex",
           "Maximum texture coordinate channels per vertex; extra channels are dropped.", 1, 64, 1,
           IdentitySliderMapping, true, 81);
    Checkbox(Builder, R, 88, "Insert dummy coords if missing",
             "Fill missing channels up to \"Coords per vertex\" with dummy coordinates.", true, true, 81);
    Slider(Builder, R, 83, "Elements per coord", "Maximum elements in one texture coordinate (UV 2, UVW 3).", 1, 4, 2,
           IdentitySliderMapping, true, 81);
    Checkbox(Builder, R, 244, "Flip U Coordinate", "Flip the coordinate horizontally before encoding.", false, true,
             81);
    Checkbox(Builder, R, 243, "Flip V Coordinate", "Flip the coordinate vertically before encoding.", false, true, 81);

    Checkbox(Builder, R, 84, "Allow vertex colors", "Allow vertex colors in the file.", false, true);
    Slider(Builder, R, 85, "Colors per vertex", "Maximum vertex color channels per vertex; extra channels are dropped.",
           1, 64, 1, IdentitySliderMapping, true, 84);
    Checkbox(Builder, R, 89, "Insert dummy colors if missing",
             "Fill missing channels up to \"Colors per vertex\" with white.", true, true, 84);
    Slider(Builder, R, 86, "Elements per color", "Maximum elements in one color (RGB 3, RGBA 4).", 1, 4, 3,
           IdentitySliderMapping, true, 84);

    Checkbox(Builder, R, 99, "Include tangent vectors", "Compute and store tangent vectors for all vertices.", false,
             true);
    Checkbox(Builder, R, 100, "Include binormal vectors", "Compute and store binormal vectors for all vertices.", false,
             true);
    Checkbox(Builder, R, 101, "Include cross vectors",
             "Compute and store tangent-cross-binormal vectors for all vertices.", false, true);
    Number(Builder, R, 211, "Tangent merging tolerance",
           "Degrees by which tangents or binormals of two coincident vertices may differ and still be averaged "
           "together.",
           0.0f, 180.0f, 75.0f, true);
    Checkbox(Builder, R, 98, "Include per-bone triangle arrays",
             "Store a triangle index array for each bone used by the mesh (for collision tests).", false, true);
    Checkbox(Builder, R, 77, "Include topology information",
             "Store triangle neighbours, vertices generated by material boundaries and the like.", false, true);
    Checkbox(Builder, R, 90, "Include vertex annotation", "Store vertex-based non-rendering data of the art tool.",
             false, true);
    Checkbox(Builder, R, 91, "Use indexed vertex annotation",
             "Store vertex annotation as index/data pairs; off: as an array parallel to the vertices.", false, true);
    Checkbox(Builder, R, 92, "Include triangle annotation", "Store triangle-based non-rendering data of the art tool.",
             false, true);
    Checkbox(Builder, R, 93, "Use indexed triangle annotation",
             "Store triangle annotation as index/data pairs; off: as an array parallel to the triangles.", false, true);

    requester *Morphs = List(Builder, 238, "Morph Targets", "How morph targets are looked for and exported.");
    Choice(Builder, Morphs, 239, "Don't Extract Morphs", "Morph targets are neither looked for nor included.");
    requester *Modifier = Choice(Builder, Morphs, 240, "Look for morph modifier meshes",
                                 "Find meshes that are associated with each other by a morph modifier.");
    Checkbox(Builder, Modifier, 242, "Store morph targets as deltas from the base mesh",
             "Store morph targets as deltas from the base mesh, not as full meshes.", true, true);
    requester *Frames = Choice(Builder, Morphs, 241, "Extract mesh frame by frame",
                               "A snapshot of the mesh is stored for frames of the animation, according to the "
                               "settings below.");
    AddMorphFrameSettings(Builder, Frames);
    Combobox(Builder, R, 237, "Morph Targets", "How morph targets are looked for and exported.", Morphs, 239, true,
             true);
    return Finish(Builder, R);
}
