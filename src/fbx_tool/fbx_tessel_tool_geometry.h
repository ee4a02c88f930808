// The geometry half of the FBX tool interface: a mesh's vertices as the
// skinning leaves them in the bind state, its triangles corner by corner,
// its skin with bones and weights. Materials, textures, annotations, morph
// targets and tool-made tangents have no answer in FBX: those operations
// give fixed empty results, so that every mesh has one material group and
// no material.
#pragma once

#include "exporter/tessel_tool_interface.h"
#include "foundation/tessel_types.h"

class KFbxMesh;
class KFbxSkin;
class AffineMatrix;
class KFbxVector4;

struct fbx_tool_interface;

#pragma pack(push, 4)
// A mesh and one skin matrix per control point: the point's place at rest
// in the scene. PointNormals, where the file lacks normals, holds smooth
// normals per control point in the mesh's own space. A mirroring placement
// reverses every triangle.
struct fbx_mesh_data : tool_mesh_data
{
    KFbxMesh *Mesh;
    AffineMatrix *SkinMatrices;
    KFbxVector4 *PointNormals;
    bool8 Mirrored;
};

struct fbx_triangle_iterator : tool_triangle_iterator
{
    fbx_mesh_data *MeshData;
    int32 Triangle;
};

// A handle of its own so that a skin can be released like any other. The
// influences of each control point are gathered once, on first demand, so
// that asking for them is not a scan of every cluster.
struct fbx_mesh_skin : tool_mesh_skin
{
    KFbxSkin *Skin;
    KFbxMesh *Mesh;
    int32 PointCount;
    int32 *FirstInfluence; // PointCount + 1 offsets into the two arrays below
    int32 *InfluenceCluster;
    real32 *InfluenceWeight; // divided by the point's sum
    // Bone index (one past the clusters) that stands for the mesh's node,
    // for the points no cluster weighs; -1 when every point has weight.
    int32 ExtraBone;
    uint8 *Unweighted; // per point: no weight, bound to ExtraBone
};
#pragma pack(pop)

namespace fbx_tool {

// Mesh as a whole.
int32 GetMeshKind(fbx_tool_interface *Tool, tool_mesh *Mesh);
// The pose of every control point in the bind state. Null without a mesh
// or memory.
fbx_mesh_data *BeginMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh);
void EndMeshData(fbx_mesh_data *MeshData);
int32 GetMeshVertexCount(fbx_mesh_data *MeshData);
int32 GetMeshTriangleCount(fbx_mesh_data *MeshData);
int32 GetMeshMaterialCount(fbx_mesh_data *MeshData);
int32 GetMeshColorChannelCount(fbx_mesh_data *MeshData);
int32 GetMeshTextureCoordinateChannelCount(fbx_mesh_data *MeshData);
// The skinned control point; (0, 0, 0) for an index that is not one.
void GetVertexPosition(fbx_mesh_data *MeshData, int32 Index, real32 *Position);
tool_node *GetMeshNode(fbx_tool_interface *Tool, tool_mesh *Mesh);
void AddMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh, mesh *FileMesh, bool OnlyUserAttributes,
                 memory_arena *Arena, string_table *Strings);

// The skin matrix of one control point, with G the node's geometric
// transform: B(node) x G without a skin (B the bind world); otherwise the
// sum over the clusters that hold the point (first entry of each) of
// weight x the cluster's TransformLink x Transform x G, with the weights divided
// by their sum. A point no cluster weighs gets B(node) x G.
void ComputeSkinMatrix(fbx_mesh_data *MeshData, int32 Index, AffineMatrix &Result);

// Vertex component names.
char const *GetPositionComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetBoneWeightsComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetBoneIndicesComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetNormalComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetTangentComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetBinormalComponentName(fbx_mesh_data *MeshData, string_table *Strings);
char const *GetTangentBinormalCrossComponentName(fbx_mesh_data *MeshData, string_table *Strings);
// "Color0" to "Color3", null from 4 on.
char const *GetColorComponentName(fbx_mesh_data *MeshData, string_table *Strings, int32 Index);
// "TextureCoordinates0" to "TextureCoordinates7", null from 8 on.
char const *GetTextureCoordinateComponentName(fbx_mesh_data *MeshData, string_table *Strings, int32 Index);

// Skin.
fbx_mesh_skin *GetMeshSkin(fbx_tool_interface *Tool, tool_mesh *Mesh);
void ReleaseMeshSkin(fbx_mesh_skin *Skin);
tool_node *GetSkinBoneNode(fbx_tool_interface *Tool, fbx_mesh_skin *Skin, int32 Index);
// The clusters, and one more bone for the mesh's own node when some point
// has no weight.
int32 GetSkinBoneCount(fbx_mesh_skin *Skin);
// Clusters that hold the control point, each counted once; 1 for a point
// without weight (bound to the mesh's node).
int32 GetVertexBoneCount(fbx_mesh_skin *Skin, int32 Vertex);
// The N-th cluster that holds the vertex: its index and the weight of the
// vertex's first entry in it, divided by the point's sum. False when there
// is no N-th.
bool GetVertexBoneWeight(fbx_tool_interface *Tool, fbx_mesh_skin *Skin, int32 Vertex, int32 N, int32 *BoneIndex,
                         real32 *Weight);

// Triangles.
fbx_triangle_iterator *BeginTriangles(fbx_mesh_data *MeshData);
void EndTriangles(fbx_triangle_iterator *Iterator);
bool HasTriangle(fbx_triangle_iterator *Iterator);
void NextTriangle(fbx_triangle_iterator *Iterator);
int32 GetTriangleIndex(fbx_triangle_iterator *Iterator);
int32 GetTriangleMaterial(fbx_triangle_iterator *Iterator);
bool IsTriangleTwoSided(fbx_triangle_iterator *Iterator, fbx_tool_interface *Tool, void *MaterialData);
void SetTangentChannel(fbx_triangle_iterator *Iterator, int32 Channel);
int32 GetCornerVertex(fbx_triangle_iterator *Iterator, int32 Corner);
int32 GetCornerSource(fbx_triangle_iterator *Iterator, int32 Corner);
// Layer 0's normal through the corner's skin matrix, not normalised; zero
// without a normal layer.
void GetCornerNormal(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Normal);
// RGBA of the color layer at the corner's control point.
void GetCornerColor(fbx_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Color);
// (u, 1 - v, 0, 0) of the UV layer, by layer 0's diffuse index; zeros
// without such a layer.
void GetCornerTextureCoordinates(fbx_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Coordinates);
void GetCornerTangent(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Tangent);
void GetCornerBinormal(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Binormal);
bool GetTriangleAnnotation(fbx_triangle_iterator *Iterator, int32 SetIndex, memory_arena *Arena,
                           data_type_definition *Type, void *Bytes);

// Annotations per mesh: none in FBX.
int32 GetVertexAnnotationCount(fbx_mesh_data *MeshData);
tool_annotation_set *GetVertexAnnotationSet(fbx_mesh_data *MeshData, int32 Index);
void ReleaseVertexAnnotationSet(fbx_mesh_data *MeshData, tool_annotation_set *Set);
char const *GetVertexAnnotationName(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena);
data_type_definition *GetVertexAnnotationType(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena);
bool GetVertexAnnotation(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena, int32 Vertex,
                         data_type_definition *Type, void *Bytes);
int32 GetTriangleAnnotationCount(fbx_mesh_data *MeshData);
char const *GetTriangleAnnotationName(fbx_mesh_data *MeshData, int32 Index, memory_arena *Arena);
data_type_definition *GetTriangleAnnotationType(fbx_mesh_data *MeshData, int32 Index, memory_arena *Arena);

// Materials of a mesh: none in FBX.
tool_material_data *GetMeshMaterials(fbx_tool_interface *Tool, tool_mesh *Mesh);
void ReleaseMeshMaterials(fbx_tool_interface *Tool, tool_material_data *Materials);
tool_material *GetMeshMaterial(fbx_tool_interface *Tool, tool_material_data *Materials, int32 Index);

// Morph targets: none in FBX.
bool HasMorphTargets(fbx_tool_interface *Tool, tool_mesh *Mesh);
int32 GetMorphTargetCount(fbx_tool_interface *Tool, tool_mesh *Mesh);
fbx_mesh_data *GetMorphTargetMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh, int32 Index);
char const *GetMorphTargetName(fbx_tool_interface *Tool);

} // namespace fbx_tool
