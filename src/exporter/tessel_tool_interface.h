// The tool interface: everything the exporter core asks of an art tool's
// scene. A tool fills one tool_operations table and hands out handles that
// lead back to it; the core calls the free functions below, which dispatch
// through the table, and never sees the tool's own types.
//
// A tool object starts with a tool_interface; the per-mesh handles
// (tool_mesh_data, tool_mesh_skin, tool_triangle_iterator) start with the
// tool that made them. Materials, annotation sets and settings blobs are
// opaque to the core and only ever handed back to their tool.
#pragma once

#include "foundation/tessel_types.h"

struct tool_operations;
struct tool_node_graph;
struct tool_node;
struct tool_mesh;
struct tool_model;
struct tool_texture;
struct tool_material;
struct tool_animation;
struct tool_track;
struct tool_material_data;
struct tool_annotation_set;
struct tool_settings_blob;
struct string_table;
struct art_tool_info;
struct memory_arena;
struct mesh;
struct bone;
struct data_type_definition;

struct tool_interface
{
    tool_operations const *Operations;
};

struct tool_mesh_data
{
    tool_interface *Tool;
};

struct tool_mesh_skin
{
    tool_interface *Tool;
};

struct tool_triangle_iterator
{
    tool_interface *Tool;
};

enum tool_mesh_kind
{
    ToolMeshKind_Polygons = 1,
    ToolMeshKind_Patches = 2,
    ToolMeshKind_Curves = 3,
};

// One row per operation. A tool leaves the row of an operation it has no
// answer for null: the core then gets "none" (0, null or false).
struct tool_operations
{
    // Scene.
    tool_node_graph *(*BuildSceneGraph)(tool_interface *Tool);
    void (*ReleaseSceneGraph)(tool_interface *Tool, tool_node_graph *Graph);
    char const *(*GetArtToolName)(tool_interface *Tool, string_table *Strings);
    void (*GetArtToolVersion)(tool_interface *Tool, int32 *Major, int32 *Minor, int32 *PointerSize);
    void (*AddArtToolInfoData)(tool_interface *Tool, art_tool_info *Info, bool OnlyUserAttributes,
                               memory_arena *Arena, string_table *Strings);
    char const *(*GetSourceFileName)(tool_interface *Tool, string_table *Strings);
    void (*GetCoordinateSystem)(tool_interface *Tool, real32 *UnitsPerMeter, real32 *Right, real32 *Up,
                                real32 *Back);
    void (*ResetToolTime)(tool_interface *Tool);
    bool (*IsVertexAnimation)(tool_interface *Tool, tool_animation *Animation);

    // Names and nodes.
    char const *(*GetNodeName)(tool_interface *Tool, tool_node *Node, string_table *Strings);
    char const *(*GetMeshName)(tool_interface *Tool, tool_mesh *Mesh, string_table *Strings, bool FullName);
    char const *(*GetAnimationName)(tool_interface *Tool, tool_animation *Animation, string_table *Strings);
    char const *(*GetTextureName)(tool_interface *Tool, tool_texture *Texture, string_table *Strings);
    char const *(*GetMaterialName)(tool_interface *Tool, tool_material *Material, string_table *Strings);
    tool_node *(*GetNodeParent)(tool_interface *Tool, tool_node *Node);
    int32 (*GetNodeDepth)(tool_interface *Tool, tool_node *Node);
    void (*AddNodeData)(tool_interface *Tool, tool_node *Node, bone *Bone, bool OnlyUserAttributes,
                        memory_arena *Arena, string_table *Strings);

    // Meshes.
    int32 (*GetMeshKind)(tool_interface *Tool, tool_mesh *Mesh);
    tool_mesh_data *(*BeginMeshData)(tool_interface *Tool, tool_mesh *Mesh);
    void (*EndMeshData)(tool_mesh_data *MeshData);
    int32 (*GetMeshVertexCount)(tool_mesh_data *MeshData);
    int32 (*GetMeshTriangleCount)(tool_mesh_data *MeshData);
    int32 (*GetMeshMaterialCount)(tool_mesh_data *MeshData);
    int32 (*GetMeshColorChannelCount)(tool_mesh_data *MeshData);
    int32 (*GetMeshTextureCoordinateChannelCount)(tool_mesh_data *MeshData);
    void (*GetVertexPosition)(tool_mesh_data *MeshData, int32 Index, real32 *Position);
    tool_node *(*GetMeshNode)(tool_interface *Tool, tool_mesh *Mesh);
    void (*AddMeshData)(tool_interface *Tool, tool_mesh *Mesh, mesh *FileMesh, bool OnlyUserAttributes,
                        memory_arena *Arena, string_table *Strings);
    char const *(*GetPositionComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetBoneWeightsComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetBoneIndicesComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetNormalComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetTangentComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetBinormalComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetTangentBinormalCrossComponentName)(tool_mesh_data *MeshData, string_table *Strings);
    char const *(*GetColorComponentName)(tool_mesh_data *MeshData, string_table *Strings, int32 Index);
    char const *(*GetTextureCoordinateComponentName)(tool_mesh_data *MeshData, string_table *Strings, int32 Index);

    // Skins.
    tool_mesh_skin *(*GetMeshSkin)(tool_interface *Tool, tool_mesh *Mesh);
    void (*ReleaseMeshSkin)(tool_mesh_skin *Skin);
    int32 (*GetSkinBoneCount)(tool_mesh_skin *Skin);
    tool_node *(*GetSkinBoneNode)(tool_interface *Tool, tool_mesh_skin *Skin, int32 Index);
    int32 (*GetVertexBoneCount)(tool_mesh_skin *Skin, int32 Vertex);
    bool (*GetVertexBoneWeight)(tool_interface *Tool, tool_mesh_skin *Skin, int32 Vertex, int32 N, int32 *BoneIndex,
                                real32 *Weight);

    // Triangles and their corners.
    tool_triangle_iterator *(*BeginTriangles)(tool_mesh_data *MeshData);
    void (*EndTriangles)(tool_triangle_iterator *Iterator);
    bool (*HasTriangle)(tool_triangle_iterator *Iterator);
    void (*NextTriangle)(tool_triangle_iterator *Iterator);
    int32 (*GetTriangleIndex)(tool_triangle_iterator *Iterator);
    int32 (*GetTriangleMaterial)(tool_triangle_iterator *Iterator);
    bool (*IsTriangleTwoSided)(tool_triangle_iterator *Iterator, tool_interface *Tool, void *MaterialData);
    void (*SetTangentChannel)(tool_triangle_iterator *Iterator, int32 Channel);
    int32 (*GetCornerVertex)(tool_triangle_iterator *Iterator, int32 Corner);
    int32 (*GetCornerSource)(tool_triangle_iterator *Iterator, int32 Corner);
    void (*GetCornerNormal)(tool_triangle_iterator *Iterator, int32 Corner, real32 *Normal);
    void (*GetCornerColor)(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Color);
    void (*GetCornerTextureCoordinates)(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer,
                                        real32 *Coordinates);
    void (*GetCornerTangent)(tool_triangle_iterator *Iterator, int32 Corner, real32 *Tangent);
    void (*GetCornerBinormal)(tool_triangle_iterator *Iterator, int32 Corner, real32 *Binormal);
    bool (*GetTriangleAnnotation)(tool_triangle_iterator *Iterator, int32 SetIndex, memory_arena *Arena,
                                  data_type_definition *Type, void *Bytes);

    // Annotations.
    int32 (*GetVertexAnnotationCount)(tool_mesh_data *MeshData);
    tool_annotation_set *(*GetVertexAnnotationSet)(tool_mesh_data *MeshData, int32 Index);
    void (*ReleaseVertexAnnotationSet)(tool_mesh_data *MeshData, tool_annotation_set *Set);
    char const *(*GetVertexAnnotationName)(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena);
    data_type_definition *(*GetVertexAnnotationType)(tool_mesh_data *MeshData, tool_annotation_set *Set,
                                                     memory_arena *Arena);
    bool (*GetVertexAnnotation)(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena,
                                int32 Vertex, data_type_definition *Type, void *Bytes);
    int32 (*GetTriangleAnnotationCount)(tool_mesh_data *MeshData);
    char const *(*GetTriangleAnnotationName)(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena);
    data_type_definition *(*GetTriangleAnnotationType)(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena);

    // Materials and morph targets.
    tool_material_data *(*GetMeshMaterials)(tool_interface *Tool, tool_mesh *Mesh);
    void (*ReleaseMeshMaterials)(tool_interface *Tool, tool_material_data *Materials);
    tool_material *(*GetMeshMaterial)(tool_interface *Tool, tool_material_data *Materials, int32 Index);
    bool (*HasMorphTargets)(tool_interface *Tool, tool_mesh *Mesh);
    int32 (*GetMorphTargetCount)(tool_interface *Tool, tool_mesh *Mesh);
    tool_mesh_data *(*GetMorphTargetMeshData)(tool_interface *Tool, tool_mesh *Mesh, int32 Index);
    char const *(*GetMorphTargetName)(tool_interface *Tool);

    // Sampling at a time.
    real32 (*GetSecondsPerFrame)(tool_interface *Tool);
    int32 (*GetAnimationFrameCount)(tool_interface *Tool, tool_animation *Animation);
    void (*SetAnimationSampleTime)(tool_interface *Tool, tool_animation *Animation, int32 SampleIndex,
                                   int32 SampleCount);
    void (*SetMorphFrame)(tool_interface *Tool, int32 Frame, int32 FrameCount);
    int32 (*GetMorphFrameCount)(tool_interface *Tool);
    real32 (*GetMorphDuration)(tool_interface *Tool);
    void (*SampleNodeTransform)(tool_interface *Tool, tool_node *Node, real32 *LocalPosition,
                                real32 *LocalOrientation, real32 *LocalScaleShear, real32 *WorldPosition,
                                real32 *WorldOrientation, real32 *WorldScaleShear);
    void (*GetNodeMatrix)(tool_interface *Tool, tool_node *Node, real32 *Matrix);
    void (*SampleNodeRelativeTransform)(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                        real32 *Orientation, real32 *ScaleShear);
    void (*SampleNodeBindTransform)(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                    real32 *Orientation, real32 *ScaleShear);
    void (*GetMorphVertexPosition)(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner,
                                   real32 *Position);
    void (*GetMorphVertexNormal)(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Normal);
    void (*GetMorphCornerColor)(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel,
                                real32 *Color);
    void (*GetMorphCornerTextureCoordinates)(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner,
                                             int32 Channel, real32 *Coordinates);
    int32 (*GetVertexAnimationChannelCount)(tool_interface *Tool, tool_animation *Animation);
    void (*SampleVertexAnimationFrame)(tool_interface *Tool, real32 *Values, void *Handle,
                                       tool_animation *Animation);
    char const *(*GetVertexAnimationChannelName)(tool_interface *Tool);
    char const *(*GetTrackName)(tool_interface *Tool, tool_track *Track, string_table *Strings);
    int32 (*GetTrackDimension)(tool_interface *Tool, tool_track *Track);
    void (*SampleTrack)(tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *Animation);
    bool (*IsTrackAlwaysKept)(tool_interface *Tool, tool_track *Track);
    int32 (*GetNodeTextTrackCount)(tool_interface *Tool, tool_node *Node);
    int32 (*GetNodeTextTrackEntryCount)(tool_interface *Tool, tool_node *Node, int32 Track);
    char const *(*GetNodeTextTrackEntry)(tool_interface *Tool, tool_node *Node, memory_arena *Arena,
                                         string_table *Strings, int32 Track, int32 Entry, real32 *Time);

    // Settings the tool keeps with its objects.
    tool_settings_blob *(*GetRootSettings)(tool_interface *Tool);
    tool_settings_blob *(*GetFileSettings)(tool_interface *Tool);
    tool_settings_blob *(*GetTextureSettings)(tool_interface *Tool, tool_texture *Texture);
    tool_settings_blob *(*GetMaterialSettings)(tool_interface *Tool, tool_material *Material);
    tool_settings_blob *(*GetMeshSettings)(tool_interface *Tool, tool_mesh *Mesh);
    tool_settings_blob *(*GetModelSettings)(tool_interface *Tool, tool_model *Model);
    tool_settings_blob *(*GetBoneSettings)(tool_interface *Tool, tool_node *Node);
    tool_settings_blob *(*GetAnimationSettings)(tool_interface *Tool, tool_animation *Animation);
    tool_settings_blob *(*GetTrackGroupSettings)(tool_interface *Tool, tool_model *Model);
    tool_settings_blob *(*GetBoneAnimationSettings)(tool_interface *Tool, tool_node *Node);
    int32 (*GetSettingsBlobSize)(tool_interface *Tool, tool_settings_blob *Blob);
    bool (*ReadSettingsBlob)(tool_interface *Tool, tool_settings_blob *Blob, uint8 *Buffer);
    void (*ReleaseSettingsBlob)(tool_interface *Tool, tool_settings_blob *Blob);
};

// The operations as the core calls them. Each passes its arguments on to
// the tool's row; a null tool, handle or row answers "none".
tool_node_graph *BuildSceneGraph(tool_interface *Tool);
void ReleaseSceneGraph(tool_interface *Tool, tool_node_graph *Graph);
char const *GetArtToolName(tool_interface *Tool, string_table *Strings);
void GetArtToolVersion(tool_interface *Tool, int32 *Major, int32 *Minor, int32 *PointerSize);
void AddArtToolInfoData(tool_interface *Tool, art_tool_info *Info, bool OnlyUserAttributes, memory_arena *Arena,
                        string_table *Strings);
char const *GetSourceFileName(tool_interface *Tool, string_table *Strings);
void GetCoordinateSystem(tool_interface *Tool, real32 *UnitsPerMeter, real32 *Right, real32 *Up, real32 *Back);
void ResetToolTime(tool_interface *Tool);
bool IsVertexAnimation(tool_interface *Tool, tool_animation *Animation);

char const *GetNodeName(tool_interface *Tool, tool_node *Node, string_table *Strings);
char const *GetMeshName(tool_interface *Tool, tool_mesh *Mesh, string_table *Strings, bool FullName);
char const *GetAnimationName(tool_interface *Tool, tool_animation *Animation, string_table *Strings);
char const *GetTextureName(tool_interface *Tool, tool_texture *Texture, string_table *Strings);
char const *GetMaterialName(tool_interface *Tool, tool_material *Material, string_table *Strings);
tool_node *GetNodeParent(tool_interface *Tool, tool_node *Node);
int32 GetNodeDepth(tool_interface *Tool, tool_node *Node);
void AddNodeData(tool_interface *Tool, tool_node *Node, bone *Bone, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings);

int32 GetMeshKind(tool_interface *Tool, tool_mesh *Mesh);
tool_mesh_data *BeginMeshData(tool_interface *Tool, tool_mesh *Mesh);
void EndMeshData(tool_mesh_data *MeshData);
int32 GetMeshVertexCount(tool_mesh_data *MeshData);
int32 GetMeshTriangleCount(tool_mesh_data *MeshData);
int32 GetMeshMaterialCount(tool_mesh_data *MeshData);
int32 GetMeshColorChannelCount(tool_mesh_data *MeshData);
int32 GetMeshTextureCoordinateChannelCount(tool_mesh_data *MeshData);
void GetVertexPosition(tool_mesh_data *MeshData, int32 Index, real32 *Position);
tool_node *GetMeshNode(tool_interface *Tool, tool_mesh *Mesh);
void AddMeshData(tool_interface *Tool, tool_mesh *Mesh, mesh *FileMesh, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings);
char const *GetPositionComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetBoneWeightsComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetBoneIndicesComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetNormalComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetTangentComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetBinormalComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetTangentBinormalCrossComponentName(tool_mesh_data *MeshData, string_table *Strings);
char const *GetColorComponentName(tool_mesh_data *MeshData, string_table *Strings, int32 Index);
char const *GetTextureCoordinateComponentName(tool_mesh_data *MeshData, string_table *Strings, int32 Index);

tool_mesh_skin *GetMeshSkin(tool_interface *Tool, tool_mesh *Mesh);
void ReleaseMeshSkin(tool_mesh_skin *Skin);
int32 GetSkinBoneCount(tool_mesh_skin *Skin);
tool_node *GetSkinBoneNode(tool_interface *Tool, tool_mesh_skin *Skin, int32 Index);
int32 GetVertexBoneCount(tool_mesh_skin *Skin, int32 Vertex);
bool GetVertexBoneWeight(tool_interface *Tool, tool_mesh_skin *Skin, int32 Vertex, int32 N, int32 *BoneIndex,
                         real32 *Weight);

tool_triangle_iterator *BeginTriangles(tool_mesh_data *MeshData);
void EndTriangles(tool_triangle_iterator *Iterator);
bool HasTriangle(tool_triangle_iterator *Iterator);
void NextTriangle(tool_triangle_iterator *Iterator);
int32 GetTriangleIndex(tool_triangle_iterator *Iterator);
int32 GetTriangleMaterial(tool_triangle_iterator *Iterator);
bool IsTriangleTwoSided(tool_triangle_iterator *Iterator, tool_interface *Tool, void *MaterialData);
void SetTangentChannel(tool_triangle_iterator *Iterator, int32 Channel);
int32 GetCornerVertex(tool_triangle_iterator *Iterator, int32 Corner);
int32 GetCornerSource(tool_triangle_iterator *Iterator, int32 Corner);
void GetCornerNormal(tool_triangle_iterator *Iterator, int32 Corner, real32 *Normal);
void GetCornerColor(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Color);
void GetCornerTextureCoordinates(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Coordinates);
void GetCornerTangent(tool_triangle_iterator *Iterator, int32 Corner, real32 *Tangent);
void GetCornerBinormal(tool_triangle_iterator *Iterator, int32 Corner, real32 *Binormal);
bool GetTriangleAnnotation(tool_triangle_iterator *Iterator, int32 SetIndex, memory_arena *Arena,
                           data_type_definition *Type, void *Bytes);

int32 GetVertexAnnotationCount(tool_mesh_data *MeshData);
tool_annotation_set *GetVertexAnnotationSet(tool_mesh_data *MeshData, int32 Index);
void ReleaseVertexAnnotationSet(tool_mesh_data *MeshData, tool_annotation_set *Set);
char const *GetVertexAnnotationName(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena);
data_type_definition *GetVertexAnnotationType(tool_mesh_data *MeshData, tool_annotation_set *Set,
                                              memory_arena *Arena);
bool GetVertexAnnotation(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena, int32 Vertex,
                         data_type_definition *Type, void *Bytes);
int32 GetTriangleAnnotationCount(tool_mesh_data *MeshData);
char const *GetTriangleAnnotationName(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena);
data_type_definition *GetTriangleAnnotationType(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena);

tool_material_data *GetMeshMaterials(tool_interface *Tool, tool_mesh *Mesh);
void ReleaseMeshMaterials(tool_interface *Tool, tool_material_data *Materials);
tool_material *GetMeshMaterial(tool_interface *Tool, tool_material_data *Materials, int32 Index);
bool HasMorphTargets(tool_interface *Tool, tool_mesh *Mesh);
int32 GetMorphTargetCount(tool_interface *Tool, tool_mesh *Mesh);
tool_mesh_data *GetMorphTargetMeshData(tool_interface *Tool, tool_mesh *Mesh, int32 Index);
char const *GetMorphTargetName(tool_interface *Tool);

real32 GetSecondsPerFrame(tool_interface *Tool);
int32 GetAnimationFrameCount(tool_interface *Tool, tool_animation *Animation);
void SetAnimationSampleTime(tool_interface *Tool, tool_animation *Animation, int32 SampleIndex, int32 SampleCount);
void SetMorphFrame(tool_interface *Tool, int32 Frame, int32 FrameCount);
int32 GetMorphFrameCount(tool_interface *Tool);
real32 GetMorphDuration(tool_interface *Tool);
void SampleNodeTransform(tool_interface *Tool, tool_node *Node, real32 *LocalPosition, real32 *LocalOrientation,
                         real32 *LocalScaleShear, real32 *WorldPosition, real32 *WorldOrientation,
                         real32 *WorldScaleShear);
void GetNodeMatrix(tool_interface *Tool, tool_node *Node, real32 *Matrix);
// The node's transform relative to Parent (null: its world) at the current
// time: W(Parent)^-1 W(Node), split into position, orientation (x, y, z, w)
// and scale/shear (3x3 row by row, applied first). Outputs stay untouched
// where the tool has no answer.
void SampleNodeRelativeTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                 real32 *Orientation, real32 *ScaleShear);
// The same for the bind pose: B(Parent)^-1 B(Node), with B the world the
// node's skins were bound at. False when the tool has no answer.
bool SampleNodeBindTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                             real32 *Orientation, real32 *ScaleShear);
void GetMorphVertexPosition(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Position);
void GetMorphVertexNormal(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Normal);
void GetMorphCornerColor(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel,
                         real32 *Color);
void GetMorphCornerTextureCoordinates(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel,
                                      real32 *Coordinates);
int32 GetVertexAnimationChannelCount(tool_interface *Tool, tool_animation *Animation);
void SampleVertexAnimationFrame(tool_interface *Tool, real32 *Values, void *Handle, tool_animation *Animation);
char const *GetVertexAnimationChannelName(tool_interface *Tool);
char const *GetTrackName(tool_interface *Tool, tool_track *Track, string_table *Strings);
int32 GetTrackDimension(tool_interface *Tool, tool_track *Track);
void SampleTrack(tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *Animation);
bool IsTrackAlwaysKept(tool_interface *Tool, tool_track *Track);
int32 GetNodeTextTrackCount(tool_interface *Tool, tool_node *Node);
int32 GetNodeTextTrackEntryCount(tool_interface *Tool, tool_node *Node, int32 Track);
char const *GetNodeTextTrackEntry(tool_interface *Tool, tool_node *Node, memory_arena *Arena, string_table *Strings,
                                  int32 Track, int32 Entry, real32 *Time);

tool_settings_blob *GetRootSettings(tool_interface *Tool);
tool_settings_blob *GetFileSettings(tool_interface *Tool);
tool_settings_blob *GetTextureSettings(tool_interface *Tool, tool_texture *Texture);
tool_settings_blob *GetMaterialSettings(tool_interface *Tool, tool_material *Material);
tool_settings_blob *GetMeshSettings(tool_interface *Tool, tool_mesh *Mesh);
tool_settings_blob *GetModelSettings(tool_interface *Tool, tool_model *Model);
tool_settings_blob *GetBoneSettings(tool_interface *Tool, tool_node *Node);
tool_settings_blob *GetAnimationSettings(tool_interface *Tool, tool_animation *Animation);
tool_settings_blob *GetTrackGroupSettings(tool_interface *Tool, tool_model *Model);
tool_settings_blob *GetBoneAnimationSettings(tool_interface *Tool, tool_node *Node);
int32 GetSettingsBlobSize(tool_interface *Tool, tool_settings_blob *Blob);
bool ReadSettingsBlob(tool_interface *Tool, tool_settings_blob *Blob, uint8 *Buffer);
void ReleaseSettingsBlob(tool_interface *Tool, tool_settings_blob *Blob);
