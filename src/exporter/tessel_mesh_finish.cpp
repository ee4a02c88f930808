// The second half of a mesh's export: annotations in final order, bone
// boxes and triangle lists, winding, index width, topology trimming,
// sections, and the removal of bones no vertex uses.
#include <cstring>

#include "exporter/tessel_mesh_export.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"
#include "exporter/tessel_scene_parser.h"
#include "format/tessel_data_tree_writer.h"
#include "format/tessel_data_type_io.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_stack_allocator.h"
#include "geometry/tessel_mesh_builder.h"
#include "geometry/tessel_tri_topology.h"
#include "geometry/tessel_vertex_data.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

namespace {

enum
{
    BoneStackBlock = 4096,
    FirstWideIndex = 65536,
};

// Position, weights and indices of a vertex in plain 32-bit form, whatever
// the layout stores.
struct canonical_layout
{
    data_type_definition Members[4];
    data_type_definition IndicesOnly[2];
    int32 Width;
    bool HasWeights;

    explicit canonical_layout(data_type_definition const *Layout)
    {
        memset(Members, 0, sizeof(Members));
        memset(IndicesOnly, 0, sizeof(IndicesOnly));
        data_type_definition const *Weights = FindVertexMember(Layout, "BoneWeights");
        data_type_definition const *Indices = FindVertexMember(Layout, "BoneIndices");
        Width = Weights ? GetMemberArrayWidth(*Weights) : Indices ? GetMemberArrayWidth(*Indices) : 0;
        if (Width > MeshBuilderMaxWeights) Width = MeshBuilderMaxWeights;
        HasWeights = Weights != 0;
        Members[0].Type = Real32Member;
        Members[0].Name = "Position";
        Members[0].ArrayWidth = 3;
        Members[1].Type = Real32Member;
        Members[1].Name = "BoneWeights";
        Members[1].ArrayWidth = Width > 0 ? Width : 1;
        Members[2].Type = UInt32Member;
        Members[2].Name = "BoneIndices";
        Members[2].ArrayWidth = Width > 0 ? Width : 1;
        IndicesOnly[0] = Members[2];
        Read = Layout ? NewConversionPlan(Layout, Members) : 0;
        WriteIndices = Layout ? NewConversionPlan(IndicesOnly, Layout) : 0;
    }
    ~canonical_layout()
    {
        FreeConversionPlan(Read);
        FreeConversionPlan(WriteIndices);
    }
    canonical_layout(canonical_layout const &) = delete;
    canonical_layout &operator=(canonical_layout const &) = delete;

    // The members matched once for all vertices (null without memory: each
    // vertex is then matched on its own).
    conversion_plan *Read;
    conversion_plan *WriteIndices;
};

struct canonical_vertex
{
    real32 Position[3];
    real32 Weights[MeshBuilderMaxWeights];
    uint32 Indices[MeshBuilderMaxWeights];
};

// Reads one vertex. A layout with bone indices but no weights (one bone a
// vertex) gives its single bone the full weight.
void ReadCanonicalVertex(canonical_layout const &Canonical, data_type_definition const *Layout, void const *Vertex,
                         canonical_vertex &Result)
{
    uint8 Packed[12 + 8 * MeshBuilderMaxWeights];
    if (Canonical.Read)
        ConvertWithPlan(Canonical.Read, Vertex, Packed, true);
    else
        ConvertSingleObject(Layout, Vertex, Canonical.Members, Packed);
    int32 Width = Canonical.Width > 0 ? Canonical.Width : 1;
    memcpy(Result.Position, Packed, 12);
    memcpy(Result.Weights, Packed + 12, sizeof(real32) * (size_t)Width);
    memcpy(Result.Indices, Packed + 12 + 4 * Width, sizeof(uint32) * (size_t)Width);
    if (!Canonical.HasWeights) {
        for (int32 Entry = 0; Entry < Width; ++Entry) Result.Weights[Entry] = Entry == 0 ? 1.0f : 0.0f;
    }
}

// An int32 list that grows by doubling, through the allocation hooks.
struct growing_list
{
    int32 Count;
    int32 Capacity;
    int32 *Values;
};

bool Append(growing_list &List, int32 Value)
{
    if (List.Count == List.Capacity) {
        int32 Capacity = List.Capacity ? 2 * List.Capacity : 16;
        int32 *Larger = TesselAllocateArray(int32, Capacity);
        if (!Larger) return false;
        if (List.Values) {
            memcpy(Larger, List.Values, sizeof(int32) * (size_t)List.Count);
            TesselFree(List.Values);
        }
        List.Values = Larger;
        List.Capacity = Capacity;
    }
    List.Values[List.Count++] = Value;
    return true;
}

int32 GetRecordSize(variant_array const &Array)
{
    return Array.Type ? GetTotalObjectSize(Array.Type) : 0;
}

// One vertex annotation: with Indexed an index into the kept records
// (-1 for none, equal records kept once), else a record per vertex.
void StoreVertexAnnotation(vertex_annotation_set &Set, int32 Size, bool Found, bool Indexed)
{
    uint8 *Records = (uint8 *)Set.VertexAnnotations.Array;
    uint8 *Next = Records + (intaddrx)Size * Set.VertexAnnotations.Count;
    if (!Indexed) {
        if (!Found) ClearObject(Set.VertexAnnotations.Type, Next);
        ++Set.VertexAnnotations.Count;
        return;
    }
    int32 Index = -1;
    if (Found) {
        for (int32 Kept = 0; Kept < Set.VertexAnnotations.Count && Index < 0; ++Kept) {
            if (memcmp(Records + (intaddrx)Size * Kept, Next, (size_t)Size) == 0) Index = Kept;
        }
        if (Index < 0) Index = Set.VertexAnnotations.Count++;
    }
    Set.VertexAnnotationIndices[Set.VertexAnnotationIndexCount++] = Index;
}

void TruncateIndices(mesh const *FileMesh, tri_topology *Topology)
{
    for (int32 Index = 0; Index < Topology->IndexCount; ++Index) {
        if ((uint32)Topology->Indices[Index] >= (uint32)FirstWideIndex) {
            TesselWarning(LogCategory_Exporter,
                          "Mesh (%s) has too many vertices to fit into 16-bit, leaving in 32-bit mode",
                          FileMesh->Name ? FileMesh->Name : "");
            return;
        }
    }
    int32 Count = Topology->IndexCount;
    int32 *Wide = Topology->Indices;
    ConvertIntegerArray(Count, Int32Member, Wide, UInt16Member, Wide);
    Topology->Index16Count = Count;
    Topology->Indices16 = (int16 *)Wide;
    Topology->IndexCount = 0;
    Topology->Indices = 0;
}

} // namespace

void FinishMesh(scene_export_state *State, tool_mesh *Mesh, tool_mesh_data *MeshData, mesh_builder *Builder,
                mesh *FileMesh, vertex_data *VertexData, tri_topology *Topology, int32 AnnotationCount,
                tri_annotation_set *AnnotationSets, bone_placement *Placements, int32 BindingCount,
                mesh_sections Sections, bool WithMorphCurves)
{
    settings_node const *Settings = Mesh->Settings;
    bool ToolAnnotations = GetSettingBool(Settings, SettingId_IncludeVertexAnnotation);
    if (ToolAnnotations || WithMorphCurves) {
        BuildVertexAnnotations(State, Builder, MeshData, VertexData,
                               GetSettingBool(Settings, SettingId_UseIndexedVertexAnnotation), Mesh, ToolAnnotations,
                               WithMorphCurves);
    }
    FileMesh->PrimaryVertexData = VertexData;
    AddVertexData(State, VertexData);

    Topology->TriAnnotationSetCount = AnnotationCount;
    Topology->TriAnnotationSets = AnnotationSets;
    if (AnnotationCount > 0) {
        ReorderTriangleAnnotations(Builder->TriangleOutputIndex, Builder->TriangleCount, AnnotationCount,
                                   AnnotationSets, State->Arena);
    }
    FileMesh->PrimaryTopology = Topology;
    AddTriTopology(State, Topology);

    bool IncludeTopology = GetSettingBool(Settings, SettingId_IncludeTopologyInformation);
    BuildMeshBounds(State, FileMesh, BindingCount, Placements, IncludeTopology,
                    GetSettingBool(Settings, SettingId_IncludePerBoneTriangleArrays));

    if (GetSettingBool(Settings, SettingId_UseClockwiseTriangles)) InvertTriTopologyWinding(Topology);
    if (GetSettingBool(Settings, SettingId_TruncateVertexIndicesTo16Bit)) TruncateIndices(FileMesh, Topology);
    if (!IncludeTopology) {
        Topology->VertexToVertexCount = 0;
        Topology->VertexToVertexMap = 0;
        Topology->VertexToTriangleCount = 0;
        Topology->VertexToTriangleMap = 0;
        Topology->SideToNeighborCount = 0;
        Topology->SideToNeighborMap = 0;
    }

    // Null arrays have no place of their own.
    if (State->Writer) {
        if (VertexData->Vertices.Array)
            SetFileSectionForObject(State->Writer, VertexData->Vertices.Array, Sections.Vertices);
        if (Topology->Indices) SetFileSectionForObject(State->Writer, Topology->Indices, Sections.Indices);
        if (Topology->Indices16) SetFileSectionForObject(State->Writer, Topology->Indices16, Sections.Indices);
    }
}

void BuildVertexAnnotations(scene_export_state *State, mesh_builder *Builder, tool_mesh_data *MeshData,
                            vertex_data *VertexData, bool Indexed, tool_mesh *Mesh, bool WithToolAnnotations,
                            bool WithMorphCurves)
{
    int32 VertexCount = GetResultingVertexCount(Builder);
    int32 ToolSets = WithToolAnnotations ? GetVertexAnnotationCount(MeshData) : 0;
    // Morph curves come only from frame-by-frame extraction, which stores
    // none for FBX meshes: no curve sets are made here.
    int32 SetCount = ToolSets;
    if (SetCount <= 0) return;
    vertex_annotation_set *Sets = ArenaPush<vertex_annotation_set>(State->Arena, SetCount);
    if (!Sets) return;
    VertexData->VertexAnnotationSetCount = SetCount;
    VertexData->VertexAnnotationSets = Sets;
    for (int32 SetIndex = 0; SetIndex < ToolSets; ++SetIndex) {
        vertex_annotation_set &Set = Sets[SetIndex];
        ClearObject(VertexAnnotationSetType, &Set);
        tool_annotation_set *ToolSet = GetVertexAnnotationSet(MeshData, SetIndex);
        if (!ToolSet) continue;
        Set.Name = (char *)GetVertexAnnotationName(MeshData, ToolSet, State->Arena);
        Set.VertexAnnotations.Type = GetVertexAnnotationType(MeshData, ToolSet, State->Arena);
        int32 Size = GetRecordSize(Set.VertexAnnotations);
        Set.VertexAnnotations.Array = Size > 0 ? ArenaAllocate(State->Arena, (intaddrx)Size * VertexCount) : 0;
        if (Indexed) {
            Set.VertexAnnotationIndices = ArenaPush<int32>(State->Arena, VertexCount);
            Set.IndicesMapFromVertexToAnnotation = 1;
        }
        if (Set.VertexAnnotations.Array && (!Indexed || Set.VertexAnnotationIndices)) {
            for (int32 Vertex = 0; Vertex < VertexCount; ++Vertex) {
                uint8 *Next = (uint8 *)Set.VertexAnnotations.Array + (intaddrx)Size * Set.VertexAnnotations.Count;
                bool Found = GetVertexAnnotation(MeshData, ToolSet, State->Arena, GetOriginalVertex(Builder, Vertex),
                                                 Set.VertexAnnotations.Type, Next);
                StoreVertexAnnotation(Set, Size, Found, Indexed);
            }
        }
        ReleaseVertexAnnotationSet(MeshData, ToolSet);
    }
}

bool ReorderTriangleAnnotations(int32 const *TriIndexToFinalIndex, int32 TriangleCount, int32 SetCount,
                                tri_annotation_set *Sets, memory_arena *Arena)
{
    if (SetCount == 0) return true;
    CheckPointer(TriIndexToFinalIndex, LogCategory_Exporter, false);
    CheckPointer(Sets, LogCategory_Exporter, false);
    for (int32 SetIndex = 0; SetIndex < SetCount; ++SetIndex) {
        tri_annotation_set &Set = Sets[SetIndex];
        if (Set.TriAnnotationIndices) {
            int32 Count = Set.TriAnnotationIndexCount < TriangleCount ? Set.TriAnnotationIndexCount : TriangleCount;
            int32 *NewIndices = TesselAllocateArray(int32, Count > 0 ? Count : 1);
            CheckPointer(NewIndices, LogCategory_Exporter, false);
            for (int32 Index = 0; Index < Count; ++Index) {
                int32 Final = TriIndexToFinalIndex[Index];
                if (Final >= 0 && Final < Count) NewIndices[Final] = Set.TriAnnotationIndices[Index];
            }
            memcpy(Set.TriAnnotationIndices, NewIndices, sizeof(int32) * (size_t)Count);
            TesselFree(NewIndices);
        } else if (Set.TriAnnotations.Array) {
            int32 Size = GetRecordSize(Set.TriAnnotations);
            int32 Count = Set.TriAnnotations.Count < TriangleCount ? Set.TriAnnotations.Count : TriangleCount;
            uint8 *NewBuffer = (uint8 *)TesselAllocate((intaddrx)Size * (Count > 0 ? Count : 1));
            CheckPointer(NewBuffer, LogCategory_Exporter, false);
            uint8 *Records = (uint8 *)Set.TriAnnotations.Array;
            for (int32 Index = 0; Index < Count; ++Index) {
                int32 Final = TriIndexToFinalIndex[Index];
                if (Final >= 0 && Final < Count) {
                    memcpy(NewBuffer + (intaddrx)Size * Final, Records + (intaddrx)Size * Index, (size_t)Size);
                }
            }
            memcpy(Records, NewBuffer, (size_t)Size * (size_t)Count);
            TesselFree(NewBuffer);
        }
    }
    return true;
}

void UpdateBoneBounds(mesh *FileMesh, int32 BoneIndex, real32 const *Position, bone_placement const *Placements)
{
    if (BoneIndex < 0 || BoneIndex >= FileMesh->BoneBindingCount) return;
    bone_binding &Binding = FileMesh->BoneBindings[BoneIndex];
    real32 const *M = Placements[BoneIndex].Matrix;
    real32 P[3];
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        P[Axis] = Position[0] * M[Axis] + Position[1] * M[4 + Axis] + Position[2] * M[8 + Axis] + M[12 + Axis];
    }
    // TriangleCount marks a box that has begun, until the lists are made.
    if (Binding.TriangleCount) {
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            if (P[Axis] < Binding.OBBMin[Axis]) Binding.OBBMin[Axis] = P[Axis];
            if (P[Axis] > Binding.OBBMax[Axis]) Binding.OBBMax[Axis] = P[Axis];
        }
    } else {
        for (int32 Axis = 0; Axis < 3; ++Axis) Binding.OBBMin[Axis] = Binding.OBBMax[Axis] = P[Axis];
    }
    Binding.TriangleCount = 1;
}

void BuildMeshBounds(scene_export_state *State, mesh *FileMesh, int32 BoneBindingCount,
                     bone_placement const *Placements, bool IncludeTopology, bool IncludeBoneTriangles)
{
    if (BoneBindingCount == 0) {
        TesselError(LogCategory_Exporter, "WARNING: Mesh has no bones");
        return;
    }
    if (BoneBindingCount > FileMesh->BoneBindingCount) {
        TesselError(
            LogCategory_Exporter,
            "BuildMeshBounds: mesh bone bindings size mismatch (Can be legitimately caused by export selected)");
        BoneBindingCount = FileMesh->BoneBindingCount;
    }
    tri_topology *Topology = FileMesh->PrimaryTopology;
    vertex_data *VertexData = FileMesh->PrimaryVertexData;
    if (!Topology || !Topology->Indices || !VertexData) return;
    int32 Triangles = Topology->IndexCount / 3;
    data_type_definition const *Layout = VertexData->Vertices.Type;
    canonical_layout Canonical(Layout);
    int32 Width = Canonical.Width;
    int32 VertexSize = GetTotalObjectSize(Layout);

    int32 *Seen = TesselAllocateArray(int32, BoneBindingCount > 0 ? BoneBindingCount : 1);
    growing_list *Lists = TesselAllocateArray(growing_list, BoneBindingCount > 0 ? BoneBindingCount : 1);
    stack_allocator BoneStack;
    bool StackReady = StackInitialize(BoneStack, sizeof(int32), BoneStackBlock);
    if (!Seen || !Lists || !StackReady) {
        if (Seen) TesselFree(Seen);
        if (Lists) TesselFree(Lists);
        if (StackReady) StackCleanUp(BoneStack);
        return;
    }
    memset(Lists, 0, sizeof(growing_list) * (size_t)(BoneBindingCount > 0 ? BoneBindingCount : 1));
    int32 *BonesForTriangle = 0;
    if (IncludeTopology) {
        BonesForTriangle = ArenaPush<int32>(State->Arena, Triangles + 1);
        if (BonesForTriangle) {
            Topology->BonesForTriangleCount = Triangles + 1;
            Topology->BonesForTriangle = BonesForTriangle;
        }
    }
    for (int32 Binding = 0; Binding < BoneBindingCount; ++Binding) FileMesh->BoneBindings[Binding].TriangleCount = 0;

    int32 Running = 0;
    canonical_vertex Vertex;
    uint8 const *Vertices = (uint8 const *)VertexData->Vertices.Array;
    for (int32 Triangle = 0; Triangle < Triangles; ++Triangle) {
        if (BonesForTriangle) BonesForTriangle[Triangle] = Running;
        memset(Seen, 0, sizeof(int32) * (size_t)BoneBindingCount);
        for (int32 Corner = 0; Corner < 3; ++Corner) {
            int32 Index = Topology->Indices[Triangle * 3 + Corner];
            if (Index < 0 || Index >= VertexData->Vertices.Count) continue;
            ReadCanonicalVertex(Canonical, Layout, Vertices + (intaddrx)VertexSize * Index, Vertex);
            if (Width == 0) {
                UpdateBoneBounds(FileMesh, 0, Vertex.Position, Placements);
                continue;
            }
            for (int32 Entry = 0; Entry < Width; ++Entry) {
                int32 Bone = (int32)Vertex.Indices[Entry];
                if (!(Vertex.Weights[Entry] > 0.0f) || Bone < 0 || Bone >= BoneBindingCount) continue;
                UpdateBoneBounds(FileMesh, Bone, Vertex.Position, Placements);
                if (Seen[Bone]) continue;
                Seen[Bone] = 1;
                Append(Lists[Bone], Triangle);
                if (BonesForTriangle) {
                    int32 *Slot = (int32 *)NewStackUnit(BoneStack, 0);
                    if (Slot) *Slot = Bone;
                    ++Running;
                }
            }
        }
    }
    if (BonesForTriangle) BonesForTriangle[Triangles] = Running;

    for (int32 Binding = 0; Binding < BoneBindingCount; ++Binding) {
        bone_binding &Bone = FileMesh->BoneBindings[Binding];
        growing_list &List = Lists[Binding];
        Bone.TriangleCount = 0;
        Bone.TriangleIndices = 0;
        if (IncludeBoneTriangles && List.Count > 0) {
            Bone.TriangleIndices = (int32 *)ArenaCopy(State->Arena, sizeof(int32) * (intaddrx)List.Count, List.Values);
            if (Bone.TriangleIndices) Bone.TriangleCount = List.Count;
        }
        if (List.Values) TesselFree(List.Values);
    }
    if (IncludeTopology) {
        int32 Count = GetStackUnitCount(BoneStack);
        int32 *Bones = ArenaPush<int32>(State->Arena, Count > 0 ? Count : 1);
        if (Bones) {
            if (Count > 0) SerializeStack(BoneStack, Bones);
            Topology->TriangleToBoneCount = Count;
            Topology->TriangleToBoneIndices = Count > 0 ? Bones : 0;
        }
    }
    StackCleanUp(BoneStack);
    TesselFree(Lists);
    TesselFree(Seen);
}

void MarkUsedBones(uint8 *Used, int32 BoneCount, vertex_data *VertexData)
{
    CheckPointer(Used, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(VertexData, LogCategory_Exporter, TESSEL_NOTHING);
    data_type_definition const *Layout = VertexData->Vertices.Type;
    CheckPointer(Layout, LogCategory_Exporter, TESSEL_NOTHING);
    if (!FindVertexMember(Layout, "BoneIndices")) return;
    canonical_layout Canonical(Layout);
    int32 VertexSize = GetTotalObjectSize(Layout);
    canonical_vertex Vertex;
    for (int32 Index = 0; Index < VertexData->Vertices.Count; ++Index) {
        ReadCanonicalVertex(Canonical, Layout, (uint8 const *)VertexData->Vertices.Array + (intaddrx)VertexSize * Index,
                            Vertex);
        // NaN counts as a weight.
        for (int32 Entry = 0; Entry < Canonical.Width; ++Entry) {
            if (!(Vertex.Weights[Entry] == 0.0f) && Vertex.Indices[Entry] < (uint32)BoneCount)
                Used[Vertex.Indices[Entry]] = 1;
        }
    }
}

bool RemapBoneIndices(int32 const *NewIndices, int32 BoneCount, vertex_data *VertexData)
{
    CheckPointer(NewIndices, LogCategory_Exporter, false);
    CheckPointer(VertexData, LogCategory_Exporter, false);
    data_type_definition const *Layout = VertexData->Vertices.Type;
    CheckPointer(Layout, LogCategory_Exporter, false);
    if (!FindVertexMember(Layout, "BoneIndices")) return true;
    canonical_layout Canonical(Layout);
    int32 VertexSize = GetTotalObjectSize(Layout);
    bool Result = true;
    canonical_vertex Vertex;
    for (int32 Index = 0; Index < VertexData->Vertices.Count; ++Index) {
        uint8 *Address = (uint8 *)VertexData->Vertices.Array + (intaddrx)VertexSize * Index;
        ReadCanonicalVertex(Canonical, Layout, Address, Vertex);
        uint32 First = Vertex.Indices[0];
        for (int32 Entry = 0; Entry < Canonical.Width; ++Entry) {
            // An unweighted entry follows the first one.
            uint32 Source = Vertex.Weights[Entry] == 0.0f ? First : Vertex.Indices[Entry];
            int32 Mapped = Source < (uint32)BoneCount ? NewIndices[Source] : -1;
            if (Mapped != -1) {
                Vertex.Indices[Entry] = (uint32)Mapped;
            } else {
                Result = false;
            }
        }
        if (Canonical.WriteIndices)
            ConvertWithPlan(Canonical.WriteIndices, Vertex.Indices, Address, false);
        else
            MergeSingleObject(Canonical.IndicesOnly, Vertex.Indices, Layout, Address);
    }
    return Result;
}

void RemoveUnusedBoneBindings(mesh *FileMesh)
{
    CheckPointer(FileMesh, LogCategory_Exporter, TESSEL_NOTHING);
    int32 Count = FileMesh->BoneBindingCount;
    if (Count <= 1) return;
    uint8 *Used = (uint8 *)TesselAllocate(Count);
    int32 *NewIndex = TesselAllocateArray(int32, Count);
    if (!Used || !NewIndex) {
        if (Used) TesselFree(Used);
        if (NewIndex) TesselFree(NewIndex);
        return;
    }
    memset(Used, 0, (size_t)Count);
    for (int32 Binding = 0; Binding < Count; ++Binding) NewIndex[Binding] = -1;
    if (FileMesh->PrimaryVertexData) MarkUsedBones(Used, Count, FileMesh->PrimaryVertexData);
    for (int32 Target = 0; Target < FileMesh->MorphTargetCount; ++Target) {
        if (FileMesh->MorphTargets[Target].VertexData)
            MarkUsedBones(Used, Count, FileMesh->MorphTargets[Target].VertexData);
    }
    int32 UsedCount = 0;
    for (int32 Binding = 0; Binding < Count; ++Binding) {
        if (Used[Binding]) NewIndex[Binding] = UsedCount++;
    }
    if (UsedCount > 0 && UsedCount < Count) {
        for (int32 Binding = 0; Binding < Count; ++Binding) {
            if (NewIndex[Binding] >= 0) FileMesh->BoneBindings[NewIndex[Binding]] = FileMesh->BoneBindings[Binding];
        }
        FileMesh->BoneBindingCount = UsedCount;
        if (FileMesh->PrimaryVertexData) RemapBoneIndices(NewIndex, Count, FileMesh->PrimaryVertexData);
        for (int32 Target = 0; Target < FileMesh->MorphTargetCount; ++Target) {
            if (FileMesh->MorphTargets[Target].VertexData)
                RemapBoneIndices(NewIndex, Count, FileMesh->MorphTargets[Target].VertexData);
        }
    }
    TesselFree(NewIndex);
    TesselFree(Used);
}
