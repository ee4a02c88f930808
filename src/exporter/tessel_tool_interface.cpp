#include "exporter/tessel_tool_interface.h"

// The table a handle leads to; null for a null handle.
static tool_operations const *OperationsOf(tool_interface const *Tool)
{
    return Tool ? Tool->Operations : 0;
}

tool_node_graph *BuildSceneGraph(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->BuildSceneGraph ? Operations->BuildSceneGraph(Tool) : 0;
}

void ReleaseSceneGraph(tool_interface *Tool, tool_node_graph *Graph)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->ReleaseSceneGraph) Operations->ReleaseSceneGraph(Tool, Graph);
}

char const *GetArtToolName(tool_interface *Tool, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetArtToolName ? Operations->GetArtToolName(Tool, Strings) : 0;
}

void GetArtToolVersion(tool_interface *Tool, int32 *Major, int32 *Minor, int32 *PointerSize)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetArtToolVersion) Operations->GetArtToolVersion(Tool, Major, Minor, PointerSize);
}

void AddArtToolInfoData(tool_interface *Tool, art_tool_info *Info, bool OnlyUserAttributes, memory_arena *Arena,
                        string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->AddArtToolInfoData)
        Operations->AddArtToolInfoData(Tool, Info, OnlyUserAttributes, Arena, Strings);
}

char const *GetSourceFileName(tool_interface *Tool, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetSourceFileName ? Operations->GetSourceFileName(Tool, Strings) : 0;
}

void GetCoordinateSystem(tool_interface *Tool, real32 *UnitsPerMeter, real32 *Right, real32 *Up, real32 *Back)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetCoordinateSystem)
        Operations->GetCoordinateSystem(Tool, UnitsPerMeter, Right, Up, Back);
}

void ResetToolTime(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->ResetToolTime) Operations->ResetToolTime(Tool);
}

bool IsVertexAnimation(tool_interface *Tool, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->IsVertexAnimation ? Operations->IsVertexAnimation(Tool, Animation) : false;
}

char const *GetNodeName(tool_interface *Tool, tool_node *Node, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeName ? Operations->GetNodeName(Tool, Node, Strings) : 0;
}

char const *GetMeshName(tool_interface *Tool, tool_mesh *Mesh, string_table *Strings, bool FullName)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshName ? Operations->GetMeshName(Tool, Mesh, Strings, FullName) : 0;
}

char const *GetAnimationName(tool_interface *Tool, tool_animation *Animation, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetAnimationName ? Operations->GetAnimationName(Tool, Animation, Strings) : 0;
}

char const *GetTextureName(tool_interface *Tool, tool_texture *Texture, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetTextureName ? Operations->GetTextureName(Tool, Texture, Strings) : 0;
}

char const *GetMaterialName(tool_interface *Tool, tool_material *Material, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMaterialName ? Operations->GetMaterialName(Tool, Material, Strings) : 0;
}

tool_node *GetNodeParent(tool_interface *Tool, tool_node *Node)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeParent ? Operations->GetNodeParent(Tool, Node) : 0;
}

int32 GetNodeDepth(tool_interface *Tool, tool_node *Node)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeDepth ? Operations->GetNodeDepth(Tool, Node) : 0;
}

void AddNodeData(tool_interface *Tool, tool_node *Node, bone *Bone, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->AddNodeData)
        Operations->AddNodeData(Tool, Node, Bone, OnlyUserAttributes, Arena, Strings);
}

int32 GetMeshKind(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshKind ? Operations->GetMeshKind(Tool, Mesh) : 0;
}

tool_mesh_data *BeginMeshData(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->BeginMeshData ? Operations->BeginMeshData(Tool, Mesh) : 0;
}

void EndMeshData(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    if (Operations && Operations->EndMeshData) Operations->EndMeshData(MeshData);
}

int32 GetMeshVertexCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetMeshVertexCount ? Operations->GetMeshVertexCount(MeshData) : 0;
}

int32 GetMeshTriangleCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetMeshTriangleCount ? Operations->GetMeshTriangleCount(MeshData) : 0;
}

int32 GetMeshMaterialCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetMeshMaterialCount ? Operations->GetMeshMaterialCount(MeshData) : 0;
}

int32 GetMeshColorChannelCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetMeshColorChannelCount ? Operations->GetMeshColorChannelCount(MeshData) : 0;
}

int32 GetMeshTextureCoordinateChannelCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetMeshTextureCoordinateChannelCount
               ? Operations->GetMeshTextureCoordinateChannelCount(MeshData)
               : 0;
}

void GetVertexPosition(tool_mesh_data *MeshData, int32 Index, real32 *Position)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    if (Operations && Operations->GetVertexPosition) Operations->GetVertexPosition(MeshData, Index, Position);
}

tool_node *GetMeshNode(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshNode ? Operations->GetMeshNode(Tool, Mesh) : 0;
}

void AddMeshData(tool_interface *Tool, tool_mesh *Mesh, mesh *FileMesh, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->AddMeshData)
        Operations->AddMeshData(Tool, Mesh, FileMesh, OnlyUserAttributes, Arena, Strings);
}

char const *GetPositionComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetPositionComponentName ? Operations->GetPositionComponentName(MeshData, Strings)
                                                              : 0;
}

char const *GetBoneWeightsComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetBoneWeightsComponentName
               ? Operations->GetBoneWeightsComponentName(MeshData, Strings)
               : 0;
}

char const *GetBoneIndicesComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetBoneIndicesComponentName
               ? Operations->GetBoneIndicesComponentName(MeshData, Strings)
               : 0;
}

char const *GetNormalComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetNormalComponentName ? Operations->GetNormalComponentName(MeshData, Strings) : 0;
}

char const *GetTangentComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTangentComponentName ? Operations->GetTangentComponentName(MeshData, Strings)
                                                             : 0;
}

char const *GetBinormalComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetBinormalComponentName ? Operations->GetBinormalComponentName(MeshData, Strings)
                                                              : 0;
}

char const *GetTangentBinormalCrossComponentName(tool_mesh_data *MeshData, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTangentBinormalCrossComponentName
               ? Operations->GetTangentBinormalCrossComponentName(MeshData, Strings)
               : 0;
}

char const *GetColorComponentName(tool_mesh_data *MeshData, string_table *Strings, int32 Index)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetColorComponentName ? Operations->GetColorComponentName(MeshData, Strings, Index)
                                                           : 0;
}

char const *GetTextureCoordinateComponentName(tool_mesh_data *MeshData, string_table *Strings, int32 Index)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTextureCoordinateComponentName
               ? Operations->GetTextureCoordinateComponentName(MeshData, Strings, Index)
               : 0;
}

tool_mesh_skin *GetMeshSkin(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshSkin ? Operations->GetMeshSkin(Tool, Mesh) : 0;
}

void ReleaseMeshSkin(tool_mesh_skin *Skin)
{
    tool_operations const *Operations = OperationsOf((Skin ? Skin->Tool : 0));
    if (Operations && Operations->ReleaseMeshSkin) Operations->ReleaseMeshSkin(Skin);
}

int32 GetSkinBoneCount(tool_mesh_skin *Skin)
{
    tool_operations const *Operations = OperationsOf((Skin ? Skin->Tool : 0));
    return Operations && Operations->GetSkinBoneCount ? Operations->GetSkinBoneCount(Skin) : 0;
}

tool_node *GetSkinBoneNode(tool_interface *Tool, tool_mesh_skin *Skin, int32 Index)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetSkinBoneNode ? Operations->GetSkinBoneNode(Tool, Skin, Index) : 0;
}

int32 GetVertexBoneCount(tool_mesh_skin *Skin, int32 Vertex)
{
    tool_operations const *Operations = OperationsOf((Skin ? Skin->Tool : 0));
    return Operations && Operations->GetVertexBoneCount ? Operations->GetVertexBoneCount(Skin, Vertex) : 0;
}

bool GetVertexBoneWeight(tool_interface *Tool, tool_mesh_skin *Skin, int32 Vertex, int32 N, int32 *BoneIndex,
                         real32 *Weight)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetVertexBoneWeight
               ? Operations->GetVertexBoneWeight(Tool, Skin, Vertex, N, BoneIndex, Weight)
               : false;
}

tool_triangle_iterator *BeginTriangles(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->BeginTriangles ? Operations->BeginTriangles(MeshData) : 0;
}

void EndTriangles(tool_triangle_iterator *Iterator)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->EndTriangles) Operations->EndTriangles(Iterator);
}

bool HasTriangle(tool_triangle_iterator *Iterator)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->HasTriangle ? Operations->HasTriangle(Iterator) : false;
}

void NextTriangle(tool_triangle_iterator *Iterator)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->NextTriangle) Operations->NextTriangle(Iterator);
}

int32 GetTriangleIndex(tool_triangle_iterator *Iterator)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->GetTriangleIndex ? Operations->GetTriangleIndex(Iterator) : 0;
}

int32 GetTriangleMaterial(tool_triangle_iterator *Iterator)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->GetTriangleMaterial ? Operations->GetTriangleMaterial(Iterator) : 0;
}

bool IsTriangleTwoSided(tool_triangle_iterator *Iterator, tool_interface *Tool, void *MaterialData)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->IsTriangleTwoSided ? Operations->IsTriangleTwoSided(Iterator, Tool, MaterialData)
                                                        : false;
}

void SetTangentChannel(tool_triangle_iterator *Iterator, int32 Channel)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->SetTangentChannel) Operations->SetTangentChannel(Iterator, Channel);
}

int32 GetCornerVertex(tool_triangle_iterator *Iterator, int32 Corner)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->GetCornerVertex ? Operations->GetCornerVertex(Iterator, Corner) : 0;
}

int32 GetCornerSource(tool_triangle_iterator *Iterator, int32 Corner)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->GetCornerSource ? Operations->GetCornerSource(Iterator, Corner) : 0;
}

void GetCornerNormal(tool_triangle_iterator *Iterator, int32 Corner, real32 *Normal)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->GetCornerNormal) Operations->GetCornerNormal(Iterator, Corner, Normal);
}

void GetCornerColor(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Color)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->GetCornerColor) Operations->GetCornerColor(Iterator, Corner, Layer, Color);
}

void GetCornerTextureCoordinates(tool_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Coordinates)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->GetCornerTextureCoordinates)
        Operations->GetCornerTextureCoordinates(Iterator, Corner, Layer, Coordinates);
}

void GetCornerTangent(tool_triangle_iterator *Iterator, int32 Corner, real32 *Tangent)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->GetCornerTangent) Operations->GetCornerTangent(Iterator, Corner, Tangent);
}

void GetCornerBinormal(tool_triangle_iterator *Iterator, int32 Corner, real32 *Binormal)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    if (Operations && Operations->GetCornerBinormal) Operations->GetCornerBinormal(Iterator, Corner, Binormal);
}

bool GetTriangleAnnotation(tool_triangle_iterator *Iterator, int32 SetIndex, memory_arena *Arena,
                           data_type_definition *Type, void *Bytes)
{
    tool_operations const *Operations = OperationsOf((Iterator ? Iterator->Tool : 0));
    return Operations && Operations->GetTriangleAnnotation
               ? Operations->GetTriangleAnnotation(Iterator, SetIndex, Arena, Type, Bytes)
               : false;
}

int32 GetVertexAnnotationCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetVertexAnnotationCount ? Operations->GetVertexAnnotationCount(MeshData) : 0;
}

tool_annotation_set *GetVertexAnnotationSet(tool_mesh_data *MeshData, int32 Index)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetVertexAnnotationSet ? Operations->GetVertexAnnotationSet(MeshData, Index) : 0;
}

void ReleaseVertexAnnotationSet(tool_mesh_data *MeshData, tool_annotation_set *Set)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    if (Operations && Operations->ReleaseVertexAnnotationSet) Operations->ReleaseVertexAnnotationSet(MeshData, Set);
}

char const *GetVertexAnnotationName(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetVertexAnnotationName ? Operations->GetVertexAnnotationName(MeshData, Set, Arena)
                                                             : 0;
}

data_type_definition *GetVertexAnnotationType(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetVertexAnnotationType ? Operations->GetVertexAnnotationType(MeshData, Set, Arena)
                                                             : 0;
}

bool GetVertexAnnotation(tool_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena, int32 Vertex,
                         data_type_definition *Type, void *Bytes)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetVertexAnnotation
               ? Operations->GetVertexAnnotation(MeshData, Set, Arena, Vertex, Type, Bytes)
               : false;
}

int32 GetTriangleAnnotationCount(tool_mesh_data *MeshData)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTriangleAnnotationCount ? Operations->GetTriangleAnnotationCount(MeshData) : 0;
}

char const *GetTriangleAnnotationName(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTriangleAnnotationName
               ? Operations->GetTriangleAnnotationName(MeshData, Index, Arena)
               : 0;
}

data_type_definition *GetTriangleAnnotationType(tool_mesh_data *MeshData, int32 Index, memory_arena *Arena)
{
    tool_operations const *Operations = OperationsOf((MeshData ? MeshData->Tool : 0));
    return Operations && Operations->GetTriangleAnnotationType
               ? Operations->GetTriangleAnnotationType(MeshData, Index, Arena)
               : 0;
}

tool_material_data *GetMeshMaterials(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshMaterials ? Operations->GetMeshMaterials(Tool, Mesh) : 0;
}

void ReleaseMeshMaterials(tool_interface *Tool, tool_material_data *Materials)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->ReleaseMeshMaterials) Operations->ReleaseMeshMaterials(Tool, Materials);
}

tool_material *GetMeshMaterial(tool_interface *Tool, tool_material_data *Materials, int32 Index)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshMaterial ? Operations->GetMeshMaterial(Tool, Materials, Index) : 0;
}

bool HasMorphTargets(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->HasMorphTargets ? Operations->HasMorphTargets(Tool, Mesh) : false;
}

int32 GetMorphTargetCount(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMorphTargetCount ? Operations->GetMorphTargetCount(Tool, Mesh) : 0;
}

tool_mesh_data *GetMorphTargetMeshData(tool_interface *Tool, tool_mesh *Mesh, int32 Index)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMorphTargetMeshData ? Operations->GetMorphTargetMeshData(Tool, Mesh, Index) : 0;
}

char const *GetMorphTargetName(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMorphTargetName ? Operations->GetMorphTargetName(Tool) : 0;
}

real32 GetSecondsPerFrame(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetSecondsPerFrame ? Operations->GetSecondsPerFrame(Tool) : 0.0f;
}

int32 GetAnimationFrameCount(tool_interface *Tool, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetAnimationFrameCount ? Operations->GetAnimationFrameCount(Tool, Animation) : 0;
}

void SetAnimationSampleTime(tool_interface *Tool, tool_animation *Animation, int32 SampleIndex, int32 SampleCount)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->SetAnimationSampleTime)
        Operations->SetAnimationSampleTime(Tool, Animation, SampleIndex, SampleCount);
}

void SetMorphFrame(tool_interface *Tool, int32 Frame, int32 FrameCount)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->SetMorphFrame) Operations->SetMorphFrame(Tool, Frame, FrameCount);
}

int32 GetMorphFrameCount(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMorphFrameCount ? Operations->GetMorphFrameCount(Tool) : 0;
}

real32 GetMorphDuration(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMorphDuration ? Operations->GetMorphDuration(Tool) : 0.0f;
}

void SampleNodeTransform(tool_interface *Tool, tool_node *Node, real32 *LocalPosition, real32 *LocalOrientation,
                         real32 *LocalScaleShear, real32 *WorldPosition, real32 *WorldOrientation,
                         real32 *WorldScaleShear)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations)
        Operations->SampleNodeTransform(Tool, Node, LocalPosition, LocalOrientation, LocalScaleShear, WorldPosition,
                                        WorldOrientation, WorldScaleShear);
}

void GetNodeMatrix(tool_interface *Tool, tool_node *Node, real32 *Matrix)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetNodeMatrix) Operations->GetNodeMatrix(Tool, Node, Matrix);
}

void SampleNodeRelativeTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                 real32 *Orientation, real32 *ScaleShear)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->SampleNodeRelativeTransform)
        Operations->SampleNodeRelativeTransform(Tool, Node, Parent, Position, Orientation, ScaleShear);
}

bool SampleNodeBindTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                             real32 *Orientation, real32 *ScaleShear)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (!Operations || !Operations->SampleNodeBindTransform) return false;
    Operations->SampleNodeBindTransform(Tool, Node, Parent, Position, Orientation, ScaleShear);
    return true;
}

void GetMorphVertexPosition(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Position)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetMorphVertexPosition)
        Operations->GetMorphVertexPosition(Tool, Handle, Polygon, Corner, Position);
}

void GetMorphVertexNormal(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Normal)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetMorphVertexNormal)
        Operations->GetMorphVertexNormal(Tool, Handle, Polygon, Corner, Normal);
}

void GetMorphCornerColor(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel, real32 *Color)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetMorphCornerColor)
        Operations->GetMorphCornerColor(Tool, Handle, Polygon, Corner, Channel, Color);
}

void GetMorphCornerTextureCoordinates(tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel,
                                      real32 *Coordinates)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->GetMorphCornerTextureCoordinates)
        Operations->GetMorphCornerTextureCoordinates(Tool, Handle, Polygon, Corner, Channel, Coordinates);
}

int32 GetVertexAnimationChannelCount(tool_interface *Tool, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetVertexAnimationChannelCount
               ? Operations->GetVertexAnimationChannelCount(Tool, Animation)
               : 0;
}

void SampleVertexAnimationFrame(tool_interface *Tool, real32 *Values, void *Handle, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->SampleVertexAnimationFrame)
        Operations->SampleVertexAnimationFrame(Tool, Values, Handle, Animation);
}

char const *GetVertexAnimationChannelName(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetVertexAnimationChannelName ? Operations->GetVertexAnimationChannelName(Tool)
                                                                   : 0;
}

char const *GetTrackName(tool_interface *Tool, tool_track *Track, string_table *Strings)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetTrackName ? Operations->GetTrackName(Tool, Track, Strings) : 0;
}

int32 GetTrackDimension(tool_interface *Tool, tool_track *Track)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetTrackDimension ? Operations->GetTrackDimension(Tool, Track) : 0;
}

void SampleTrack(tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->SampleTrack) Operations->SampleTrack(Tool, Values, Track, Animation);
}

bool IsTrackAlwaysKept(tool_interface *Tool, tool_track *Track)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->IsTrackAlwaysKept ? Operations->IsTrackAlwaysKept(Tool, Track) : false;
}

int32 GetNodeTextTrackCount(tool_interface *Tool, tool_node *Node)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeTextTrackCount ? Operations->GetNodeTextTrackCount(Tool, Node) : 0;
}

int32 GetNodeTextTrackEntryCount(tool_interface *Tool, tool_node *Node, int32 Track)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeTextTrackEntryCount
               ? Operations->GetNodeTextTrackEntryCount(Tool, Node, Track)
               : 0;
}

char const *GetNodeTextTrackEntry(tool_interface *Tool, tool_node *Node, memory_arena *Arena, string_table *Strings,
                                  int32 Track, int32 Entry, real32 *Time)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetNodeTextTrackEntry
               ? Operations->GetNodeTextTrackEntry(Tool, Node, Arena, Strings, Track, Entry, Time)
               : 0;
}

tool_settings_blob *GetRootSettings(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetRootSettings ? Operations->GetRootSettings(Tool) : 0;
}

tool_settings_blob *GetFileSettings(tool_interface *Tool)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetFileSettings ? Operations->GetFileSettings(Tool) : 0;
}

tool_settings_blob *GetTextureSettings(tool_interface *Tool, tool_texture *Texture)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetTextureSettings ? Operations->GetTextureSettings(Tool, Texture) : 0;
}

tool_settings_blob *GetMaterialSettings(tool_interface *Tool, tool_material *Material)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMaterialSettings ? Operations->GetMaterialSettings(Tool, Material) : 0;
}

tool_settings_blob *GetMeshSettings(tool_interface *Tool, tool_mesh *Mesh)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetMeshSettings ? Operations->GetMeshSettings(Tool, Mesh) : 0;
}

tool_settings_blob *GetModelSettings(tool_interface *Tool, tool_model *Model)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetModelSettings ? Operations->GetModelSettings(Tool, Model) : 0;
}

tool_settings_blob *GetBoneSettings(tool_interface *Tool, tool_node *Node)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetBoneSettings ? Operations->GetBoneSettings(Tool, Node) : 0;
}

tool_settings_blob *GetAnimationSettings(tool_interface *Tool, tool_animation *Animation)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetAnimationSettings ? Operations->GetAnimationSettings(Tool, Animation) : 0;
}

tool_settings_blob *GetTrackGroupSettings(tool_interface *Tool, tool_model *Model)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetTrackGroupSettings ? Operations->GetTrackGroupSettings(Tool, Model) : 0;
}

tool_settings_blob *GetBoneAnimationSettings(tool_interface *Tool, tool_node *Node)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetBoneAnimationSettings ? Operations->GetBoneAnimationSettings(Tool, Node) : 0;
}

int32 GetSettingsBlobSize(tool_interface *Tool, tool_settings_blob *Blob)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->GetSettingsBlobSize ? Operations->GetSettingsBlobSize(Tool, Blob) : 0;
}

bool ReadSettingsBlob(tool_interface *Tool, tool_settings_blob *Blob, uint8 *Buffer)
{
    tool_operations const *Operations = OperationsOf(Tool);
    return Operations && Operations->ReadSettingsBlob ? Operations->ReadSettingsBlob(Tool, Blob, Buffer) : false;
}

void ReleaseSettingsBlob(tool_interface *Tool, tool_settings_blob *Blob)
{
    tool_operations const *Operations = OperationsOf(Tool);
    if (Operations && Operations->ReleaseSettingsBlob) Operations->ReleaseSettingsBlob(Tool, Blob);
}
