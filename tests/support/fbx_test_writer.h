// Test-only FBX writer.
//
// Two layers:
//  1. A field tree (fbx_test_field: a name, typed values, child fields) written
//     as binary (either byte order, 32- or 64-bit record headers, raw or
//     zlib-compressed arrays) or as ASCII (FBX 7 counted arrays or FBX 6 plain
//     lists). Use it to hand-craft odd or broken files.
//  2. Scene builders: a small description of a scene (fbx_test_scene: nodes,
//     an optional mesh with skin, takes with curves) turned into the FBX 6
//     layout (Properties60, Connect, Takes with Channel trees) or the FBX 7
//     layout (Properties70, Geometry/NodeAttribute/Deformer objects, C: "OO"/"OP",
//     AnimationStack/Layer/CurveNode/Curve).
//
// Typical use:
//   fbx_test_scene Scene = MakeFbxTestArmScene();
//   std::vector<uint8_t> Bytes = WriteFbxTestScene(Scene, FbxTestBinary(7400));
//   std::string Path = SaveFbxTestFile("arm_7400.fbx", Bytes);  // in the temp dir
//
// Nothing here goes through the library's allocation hooks; std containers
// throughout.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

// ---------------------------------------------------------------------------
// Field tree
// ---------------------------------------------------------------------------

// One value of a field. Type is one of the type letters of the binary format:
// scalars Y C I F D L S R, arrays i f d l b.
struct fbx_test_value
{
    char Type = 'I';
    int64_t Integer = 0;           // Y C I L
    double Real = 0.0;             // F D
    std::string Bytes;             // S R (S in its ASCII form, e.g. "Model::Cube")
    std::vector<int64_t> Integers; // i l b
    std::vector<double> Reals;     // f d
    // An object name "Class::Name": binary writes it as Name \0 \x01 Class.
    bool ObjectName = false;
};

fbx_test_value FbxY(int16_t Value);
fbx_test_value FbxC(char Value); // ASCII writes the bare character
fbx_test_value FbxI(int32_t Value);
fbx_test_value FbxF(float Value);
fbx_test_value FbxD(double Value);
fbx_test_value FbxL(int64_t Value);
fbx_test_value FbxS(const std::string &Value);
fbx_test_value FbxR(const std::string &Bytes);
// "Class::Name" in ASCII, Name \0 \x01 Class in binary.
fbx_test_value FbxName(const std::string &Class, const std::string &Name);
fbx_test_value FbxArrayI(const std::vector<int32_t> &Values);
fbx_test_value FbxArrayF(const std::vector<float> &Values);
fbx_test_value FbxArrayD(const std::vector<double> &Values);
fbx_test_value FbxArrayL(const std::vector<int64_t> &Values);
fbx_test_value FbxArrayB(const std::vector<bool> &Values);

struct fbx_test_field
{
    std::string Name;
    std::vector<fbx_test_value> Values;
    std::vector<fbx_test_field> Children;
    // Written with a child block ({ } in ASCII, an end record in binary) even
    // without children. A field with neither values nor children always is.
    bool Block = false;

    // Appends a child and returns it. The reference stays valid until the next
    // Add on this field.
    fbx_test_field &Add(const std::string &ChildName, std::vector<fbx_test_value> ChildValues = {});
    // First child of that name, or null.
    fbx_test_field *Find(const std::string &ChildName);
    const fbx_test_field *Find(const std::string &ChildName) const;
};

// How a field tree is written. The root field's own name and values are
// ignored; its children are the top-level fields of the file.
struct fbx_test_format
{
    int32_t Version = 7400; // 6100, 7100, 7400, 7500 ...
    bool Binary = true;
    bool BigEndian = false; // binary only
    // 64-bit record headers; -1 picks them from the version (7500 and up).
    int32_t WideRecords = -1;
    // Arrays of at least this many bytes are zlib-compressed (encoding 1);
    // -1 never compresses.
    int32_t CompressMinBytes = -1;
    bool WriteFooter = true; // binary: the 16-byte-aligned footer after the top-level end record
    // ASCII: values per line in plain (FBX 6) lists before a continuation line
    // starting with a comma, and in counted arrays before a line break.
    int32_t AsciiValuesPerLine = 16;
};

fbx_test_format FbxTestBinary(int32_t Version, bool BigEndian = false, int32_t CompressMinBytes = -1);
fbx_test_format FbxTestAscii(int32_t Version);

std::vector<uint8_t> WriteFbxTestBinary(const fbx_test_field &Root, const fbx_test_format &Format);
std::string WriteFbxTestAscii(const fbx_test_field &Root, const fbx_test_format &Format);
// Either of the two above, by Format.Binary.
std::vector<uint8_t> WriteFbxTestFields(const fbx_test_field &Root, const fbx_test_format &Format);

// Writes Bytes to <temporary directory>/<FileName> (the name gets the
// process id prepended so that parallel test runs do not collide) and returns
// the full path, or "" on failure. The caller deletes the file.
std::string SaveFbxTestFile(const std::string &FileName, const std::vector<uint8_t> &Bytes);

// ---------------------------------------------------------------------------
// Scene description
// ---------------------------------------------------------------------------

// KTime ticks.
constexpr int64_t FbxTicksPerSecond = 46186158000LL;
inline int64_t FbxFrameTicks(double Frame, double FramesPerSecond = 30.0)
{
    return (int64_t)(Frame * (double)FbxTicksPerSecond / FramesPerSecond + (Frame >= 0 ? 0.5 : -0.5));
}

enum fbx_test_interpolation
{
    FbxTestConstant, // holds the key's value up to the next key
    FbxTestLinear,
    FbxTestCubic // user tangents: RightSlope and NextLeftSlope, value per second
};

struct fbx_test_key
{
    int64_t Time = 0; // ticks
    float Value = 0.0f;
    fbx_test_interpolation Interpolation = FbxTestLinear;
    float RightSlope = 0.0f;
    float NextLeftSlope = 0.0f;
};

// One animated component of a node: Channel 'T', 'R' or 'S', Axis 0..2.
struct fbx_test_curve
{
    int32_t Node = 0;
    char Channel = 'T';
    int32_t Axis = 0;
    std::vector<fbx_test_key> Keys;
};

struct fbx_test_take
{
    std::string Name = "Take 001";
    int64_t Start = 0; // LocalTime and ReferenceTime
    int64_t Stop = 0;
    bool WriteLocalTime = true;
    std::vector<fbx_test_curve> Curves;
};

struct fbx_test_cluster
{
    int32_t Bone = 0;             // node index the cluster links to; -1: no link
    std::vector<int32_t> Indexes; // control points
    std::vector<double> Weights;
    double Transform[16];     // row-major, row 3 the translation
    double TransformLink[16]; // the bone's global matrix at bind time
    fbx_test_cluster();
};

enum fbx_test_mapping
{
    FbxTestByControlPoint,  // "ByVertice"
    FbxTestByPolygonVertex, // "ByPolygonVertex"
    FbxTestByPolygon        // "ByPolygon"
};

struct fbx_test_mesh
{
    std::vector<double> ControlPoints;          // x y z each
    std::vector<std::vector<int32_t>> Polygons; // control point indices
    bool EndMarkOnLastPolygon = true;           // false: the last index is left un-inverted
    // Normals (3 doubles each) by NormalMapping, direct; empty: no normal layer.
    std::vector<double> Normals;
    fbx_test_mapping NormalMapping = FbxTestByPolygonVertex;
    // UVs (2 doubles each) by polygon vertex through UVIndex; empty: none.
    std::vector<double> UVs;
    std::vector<int32_t> UVIndex;
    std::string UVSetName = "UVMap";
    // Vertex colors (4 doubles each) by control point, direct; empty: none.
    std::vector<double> Colors;
    std::vector<fbx_test_cluster> Clusters; // non-empty: the mesh has a skin
    std::string SkinningType;               // FBX 7 "SkinningType" of the skin; empty: not written
};

struct fbx_test_node
{
    std::string Name;
    int32_t Parent = -1; // node index; -1 hangs under the scene root
    // "LimbNode" (bone), "Null" or "Mesh". A mesh node needs Mesh >= 0.
    std::string Kind = "LimbNode";
    int32_t Mesh = -1; // index into fbx_test_scene::Meshes
    double Translation[3] = {0, 0, 0};
    double Rotation[3] = {0, 0, 0}; // degrees
    double Scaling[3] = {1, 1, 1};
    int32_t RotationOrder = 0; // 0 XYZ .. 5 ZYX, 6 spheric
    int32_t InheritType = 1;   // 0 RrSs, 1 RSrs, 2 Rrs
    bool RotationActive = true;
    // Written only when a component is non-zero.
    double PreRotation[3] = {0, 0, 0};
    double PostRotation[3] = {0, 0, 0};
    double RotationOffset[3] = {0, 0, 0};
    double RotationPivot[3] = {0, 0, 0};
    double ScalingOffset[3] = {0, 0, 0};
    double ScalingPivot[3] = {0, 0, 0};
    // Offset of the node's geometry (written only when not the identity).
    double GeometricTranslation[3] = {0, 0, 0};
    double GeometricRotation[3] = {0, 0, 0};
    double GeometricScaling[3] = {1, 1, 1};
    // FBX 7 bind pose entry: the node's global (BindPoseKind 0), this
    // matrix (1), or none (2).
    int32_t BindPoseKind = 0;
    double BindPose[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
};

struct fbx_test_scene
{
    std::vector<fbx_test_node> Nodes; // parents before children
    std::vector<fbx_test_mesh> Meshes;
    std::vector<fbx_test_take> Takes; // the first is "Current"
    int32_t UpAxis = 1, UpAxisSign = 1;
    int32_t FrontAxis = 2, FrontAxisSign = 1;
    int32_t CoordAxis = 0, CoordAxisSign = 1;
    double UnitScaleFactor = 1.0;
    int32_t TimeMode = 6; // 30 frames a second
    std::string Creator = "Tessel test writer";
};

// The field tree of a scene in the FBX 6 layout (Version 6000..6999) or the
// FBX 7 layout (7000 and up).
fbx_test_field BuildFbx6Scene(const fbx_test_scene &Scene, int32_t Version = 6100);
fbx_test_field BuildFbx7Scene(const fbx_test_scene &Scene, int32_t Version = 7400);
// The layout by Format.Version, written as Format says.
std::vector<uint8_t> WriteFbxTestScene(const fbx_test_scene &Scene, const fbx_test_format &Format);

// A ready-made scene: a bone chain "Root" > "Upper" > "Lower" (Root with a
// RotationPivot, Upper with PreRotation (0, 0, 90) and rotation (0, 0, -90),
// Lower at (2, 0, 0) rotated 15 degrees about X in ZXY order) and a mesh node
// "Arm" at the top level: a square tube of 3 rings along +X (12 control
// points; 8 side quads, a quad cap and two triangles, so 11 polygons), flat
// normals by polygon vertex, UVs by polygon vertex through an index, skinned
// to Upper (ring 0 and half of ring 1) and Lower (the other half and ring 2),
// cluster matrices from FbxTestNodeGlobal. Two takes at 30 fps: "Wave",
// frames 0-30, with linear keys on Upper's R.Z (-90, -45, -90), a cubic curve
// on Lower's R.X (15 to 75, flat tangents) and constant keys on Root's T.Y;
// "Idle", frames 0-10, with linear keys on Root's T.X.
fbx_test_scene MakeFbxTestArmScene();

// 4x4 matrices in the file's form: row-major, row i the image of axis i,
// row 3 the translation (a point maps to x row0 + y row1 + z row2 + row3).
void FbxTestIdentity(double Matrix[16]);
void FbxTestTranslation(double Matrix[16], double X, double Y, double Z);
void FbxTestInverse(const double Matrix[16], double Inverse[16]);
// A node's global matrix from the description's default values: the full
// pivot, offset, pre/post-rotation chain and rotation order, the parent's
// global matrix applied as a whole (exact for InheritType 1, and for any type
// without non-uniform scale). Used for cluster TransformLink values and as an
// expected value in tests.
void FbxTestNodeGlobal(const fbx_test_scene &Scene, int32_t Node, double Matrix[16]);
