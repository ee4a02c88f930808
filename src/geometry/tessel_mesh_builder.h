// mesh_builder: control points with bone influences and triangle corners in,
// welded vertex_data and tri_topology out. A control point becomes as many
// output vertices as it has corners that differ beyond the tolerances.
//
// Calling order: BeginMesh; per control point SetPosition, AddWeight...,
// PushVertex; SetChannelNames; per triangle SetVertexIndex, SetCornerSource,
// SetCornerNormal... for the three corners, SetMaterial, PushTriangle;
// optionally SetTangentMergingTolerance and BuildTangentSpace; the sizes,
// EndMesh, FreeBuilder.
#pragma once

#include "foundation/tessel_stack_allocator.h"
#include "format/tessel_schema.h"

enum mesh_builder_tolerance
{
    Tolerance_Normal = 0,
    Tolerance_Tangent = 1,
    Tolerance_Binormal = 2,
    Tolerance_TangentBinormalCross = 3,
    Tolerance_TangentMergingMinCosine = 4,
};

enum
{
    MeshBuilderMaxWeights = 256,
    MeshBuilderMaxChannels = 256
};

struct mesh_builder
{
    bool8 SplitVerticesForTangents;
    bool8 IncludeEmptyMaterialGroups;
    real32 Tolerances[5];
    real32 ChannelTolerance[MeshBuilderMaxChannels];

    data_type_definition const *VertexType;
    int32 VertexSize;
    int32 ChannelCount;
    int32 ControlPointCount;
    data_type_definition *ToolVertexType; // Normal, Tangent, Binormal, Cross, then 4 reals per channel
    int32 ToolVertexSize;
    data_type_definition *PushVertexType; // Position, BoneWeights, BoneIndices
    struct conversion_plan *ToolToVertex;
    struct conversion_plan *VertexToTool;
    struct conversion_plan *PushToVertex;

    stack_allocator VertexStack;
    stack_allocator NextCoincidentVertex;
    stack_allocator FromTriangle;
    stack_allocator SourcePolygon;
    stack_allocator SourceCorner;

    real32 *BoneWeightAccumulator;
    int32 BoneCount;
    int32 MaxWeightsPerVertex;
    real32 CurrentPosition[3];
    real32 VertexBoneWeights[MeshBuilderMaxWeights];
    int32 VertexBoneIndices[MeshBuilderMaxWeights];

    stack_allocator TriangleVertices;
    stack_allocator NextInMaterial;
    int32 *MaterialHead;
    int32 MaterialCount;
    int32 UsedMaterialCount;

    int32 TriangleCount;
    int32 TriangleCapacity;
    int32 CurrentMaterial;
    int32 CurrentPolygon;
    int32 CurrentVertexIndex[3];
    int32 CurrentCorner[3];
    uint8 *CornerVertex[3];
    uint8 *ScratchVertex;
    uint8 *ScratchToolVertex;
    uint8 *PushRecord;
    char const **ChannelNames;
    int32 ChannelNameCount;
    int32 *TriangleOutputIndex;

    stack_allocator VertexTangentStack;
    stack_allocator TriangleTangentStack;

    // Where each tool group (frames, then channels) sits in the output
    // layout when all of them are plain reals matched one to one: corners
    // are then compared with stored vertices and stored without a
    // conversion. DirectWeld is false for other layouts.
    struct weld_group
    {
        int32 VertexOffset;
        int32 Count; // reals shared by both layouts, 0 when unmatched
    } * WeldGroups;
    bool8 DirectWeld;

    // The output layout's bone weights and their offset, found once.
    data_type_definition const *WeightMember;
    int32 WeightOffset;
    // Set when memory ran out on the way: later pushes do nothing and the
    // mesh gives no result.
    bool8 OutOfMemory;
};

mesh_builder *BeginMesh(int32 VertexCount, int32 TriangleCount, int32 MaterialCount, int32 BoneCount,
                        data_type_definition const *VertexType);
void SetPosition(mesh_builder *Builder, real32 X, real32 Y, real32 Z);
void AddWeight(mesh_builder *Builder, int32 BoneIndex, real32 Weight);
void PushVertex(mesh_builder *Builder);
void SetChannelNames(mesh_builder *Builder, int32 ChannelCount, char const *const *Names);
void SetVertexIndex(mesh_builder *Builder, int32 Corner, int32 ControlPoint);
void SetCornerSource(mesh_builder *Builder, int32 Corner, int32 SourceCorner);
void SetPolygonSource(mesh_builder *Builder, int32 SourcePolygon);
void SetCornerNormal(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z);
void SetCornerTangent(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z);
void SetCornerBinormal(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z);
void SetCornerTangentBinormalCross(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z);
void SetCornerChannel(mesh_builder *Builder, int32 Corner, int32 Channel, real32 const *Values4);
void SetMaterial(mesh_builder *Builder, int32 MaterialIndex);
void PushTriangle(mesh_builder *Builder);
void SetTangentMergingTolerance(mesh_builder *Builder, real32 MinCosine);
void BuildTangentSpace(mesh_builder *Builder);

int32 GetResultingVertexCount(mesh_builder const *Builder);
int32 GetResultingVertexDataSize(mesh_builder *Builder);
int32 GetResultingTopologySize(mesh_builder *Builder);
void EndMesh(mesh_builder *Builder, void *VertexMemory, void *TopologyMemory, vertex_data **VertexData,
             tri_topology **Topology);
int32 GetOriginalVertex(mesh_builder *Builder, int32 Vertex);
void GetVertexSource(mesh_builder *Builder, int32 Vertex, int32 *SourcePolygon, int32 *SourceCorner);
void FreeBuilder(mesh_builder *Builder);

// Vertex bytes of an output vertex (valid until FreeBuilder).
void *GetBuilderVertex(mesh_builder *Builder, int32 Vertex);
