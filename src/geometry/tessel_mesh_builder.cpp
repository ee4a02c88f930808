#include "geometry/tessel_mesh_builder.h"

#include <algorithm>
#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "format/tessel_data_type_io.h"
#include "geometry/tessel_tangent_frame.h"
#include "geometry/tessel_vertex_data.h"

namespace {

int32 const UnitsPerBlock = 8192;
int32 const ToolFrameGroups = 4;

struct tangent_frame_unit
{
    real32 Tangent[3];
    real32 Binormal[3];
    real32 TangentBinormalCross[3];
};

// Every stack here has a block directory: a unit is found without a call.
// Indices outside the stack still go through the checked lookup.
inline uint8 *StackUnit(stack_allocator &Stack, int32 Index)
{
    if ((uint32)Index < (uint32)Stack.TotalUsedUnitCount && Stack.BlockDirectory &&
        Stack.UnitsPerBlock == UnitsPerBlock) {
        stack_block const *Block = Stack.BlockDirectory[(uint32)Index / (uint32)UnitsPerBlock];
        return Block->Base + (intaddrx)(Index - Block->FirstIndex) * Stack.UnitSize;
    }
    return (uint8 *)GetStackUnit(Stack, Index);
}

inline int32 &StackInt(stack_allocator &Stack, int32 Index)
{
    return *(int32 *)StackUnit(Stack, Index);
}

bool InitIntStack(stack_allocator &Stack, int64 MaxUnits)
{
    if (MaxUnits > INT32_MAX) MaxUnits = INT32_MAX;
    return StackInitializeWithDirectory(Stack, sizeof(int32), UnitsPerBlock, (int32)MaxUnits);
}

char const *const ToolFrameNames[ToolFrameGroups] = {"Normal", "Tangent", "Binormal", "TangentBinormalCross"};

// Tool layout and push layout live in one block with the builder's small arrays.
bool BuildLayouts(mesh_builder *Builder)
{
    data_type_definition const *Type = Builder->VertexType;
    int32 Channels = Builder->ChannelCount;
    int32 ToolMembers = ToolFrameGroups + Channels;
    Builder->ToolVertexType = TesselAllocateArray(data_type_definition, ToolMembers + 1);
    Builder->PushVertexType = TesselAllocateArray(data_type_definition, 4);
    if (!Builder->ToolVertexType || !Builder->PushVertexType) return false;
    memset(Builder->ToolVertexType, 0, sizeof(data_type_definition) * (size_t)(ToolMembers + 1));
    memset(Builder->PushVertexType, 0, sizeof(data_type_definition) * 4);
    for (int32 Group = 0; Group < ToolFrameGroups; ++Group) {
        Builder->ToolVertexType[Group].Type = Real32Member;
        Builder->ToolVertexType[Group].Name = ToolFrameNames[Group];
        Builder->ToolVertexType[Group].ArrayWidth = 3;
    }
    int32 Channel = 0;
    for (data_type_definition const *Member = Type; Member->Type != EndMember; ++Member) {
        if (IsStandardVertexMember(Member->Name)) continue;
        data_type_definition &Tool = Builder->ToolVertexType[ToolFrameGroups + Channel++];
        Tool.Type = Real32Member;
        Tool.Name = Member->Name;
        Tool.ArrayWidth = 4;
    }
    Builder->ToolVertexSize = GetTotalObjectSize(Builder->ToolVertexType);

    int32 Push = 0;
    Builder->PushVertexType[Push].Type = Real32Member;
    Builder->PushVertexType[Push].Name = "Position";
    Builder->PushVertexType[Push++].ArrayWidth = 3;
    if (Builder->MaxWeightsPerVertex > 0) {
        Builder->PushVertexType[Push].Type = Real32Member;
        Builder->PushVertexType[Push].Name = "BoneWeights";
        Builder->PushVertexType[Push++].ArrayWidth = Builder->MaxWeightsPerVertex;
        Builder->PushVertexType[Push].Type = Int32Member;
        Builder->PushVertexType[Push].Name = "BoneIndices";
        Builder->PushVertexType[Push++].ArrayWidth = Builder->MaxWeightsPerVertex;
    }
    Builder->ToolToVertex = NewConversionPlan(Builder->ToolVertexType, Type);
    Builder->VertexToTool = NewConversionPlan(Type, Builder->ToolVertexType);
    Builder->PushToVertex = NewConversionPlan(Builder->PushVertexType, Type);
    return Builder->ToolToVertex && Builder->VertexToTool && Builder->PushToVertex;
}

bool IsPlainNumber(member_type Kind)
{
    switch (Kind) {
    case Real32Member:
    case Real16Member:
    case Int8Member:
    case UInt8Member:
    case Int16Member:
    case UInt16Member:
    case Int32Member:
    case UInt32Member:
    case BinormalInt8Member:
    case NormalUInt8Member:
    case BinormalInt16Member:
    case NormalUInt16Member: return true;
    default: return false;
    }
}

int32 MemberOffset(data_type_definition const *Type, data_type_definition const *Member)
{
    int32 Offset = 0;
    for (data_type_definition const *Walk = Type; Walk != Member; ++Walk) Offset += GetMemberTypeSize(*Walk);
    return Offset;
}

// A tool group's reals go to the output member of the same name, and that
// member's name leads back to the group. When every matched member is a
// plain real (the rest plain numbers), storing a corner copies the shared
// reals and reading a stored vertex copies them back: the round trip
// through the output layout changes nothing the comparison sees, so the
// weld compares the corner with the stored bytes directly.
void BuildWeldGroups(mesh_builder *Builder)
{
    data_type_definition const *Type = Builder->VertexType;
    data_type_definition const *Tool = Builder->ToolVertexType;
    int32 Groups = ToolFrameGroups + Builder->ChannelCount;
    Builder->DirectWeld = false;
    Builder->WeldGroups = TesselAllocateArray(mesh_builder::weld_group, Groups);
    if (!Builder->WeldGroups) return;
    bool Direct = true;
    for (data_type_definition const *Member = Type; Member->Type != EndMember; ++Member) {
        matched_member Match;
        bool Matched = FindMatchingMember(Tool, 0, Member->Name, Match);
        if (!IsPlainNumber(Member->Type) || (!Matched && DataTypesAreEqual(Member, Curve2Type))) Direct = false;
        if (!Matched) continue;
        matched_member Back;
        if (Member->Type != Real32Member || !FindMatchingMember(Type, 0, Match.Member->Name, Back) ||
            Back.Member != Member) {
            Direct = false;
        }
    }
    for (int32 Group = 0; Group < Groups; ++Group) {
        data_type_definition const &Member = Tool[Group];
        mesh_builder::weld_group &Weld = Builder->WeldGroups[Group];
        Weld.VertexOffset = 0;
        Weld.Count = 0;
        matched_member Match;
        if (!FindMatchingMember(Type, 0, Member.Name, Match)) {
            if (DataTypesAreEqual(&Member, Curve2Type)) Direct = false;
            continue;
        }
        matched_member Back;
        if (Match.Member->Type != Real32Member || !FindMatchingMember(Tool, 0, Match.Member->Name, Back) ||
            Back.Member != &Member) {
            Direct = false;
            continue;
        }
        int32 Width = GetMemberArrayWidth(*Match.Member);
        int32 ToolWidth = GetMemberArrayWidth(Member);
        Weld.VertexOffset = MemberOffset(Type, Match.Member);
        Weld.Count = Width < ToolWidth ? Width : ToolWidth;
    }
    Builder->DirectWeld = Direct;
}

void ComputeVertexBoneWeights(mesh_builder *Builder)
{
    int32 Limit = Builder->MaxWeightsPerVertex;
    real32 *Weights = Builder->VertexBoneWeights;
    int32 *Indices = Builder->VertexBoneIndices;
    for (int32 Index = 0; Index < Limit; ++Index) {
        Weights[Index] = 0.0f;
        Indices[Index] = 0;
    }
    for (int32 Bone = 0; Bone < Builder->BoneCount; ++Bone) {
        real32 Weight = Builder->BoneWeightAccumulator[Bone];
        for (int32 Slot = 0; Slot < Limit; ++Slot) {
            if (Weights[Slot] < Weight) {
                for (int32 Move = Limit - 1; Move > Slot; --Move) {
                    Weights[Move] = Weights[Move - 1];
                    Indices[Move] = Indices[Move - 1];
                }
                Weights[Slot] = Weight;
                Indices[Slot] = Bone;
                break;
            }
        }
    }
    real32 Sum = 0.0f;
    for (int32 Index = 0; Index < Limit; ++Index) Sum += Weights[Index];
    if (!(Sum > 0.0f)) {
        if (Limit != 0) {
            Weights[0] = 1.0f;
            Indices[0] = 0;
        }
        return;
    }
    for (int32 Index = 0; Index < Limit; ++Index) Weights[Index] /= Sum;
    for (int32 Index = 1; Index < Limit; ++Index) {
        if (Weights[Index] == 0.0f) Indices[Index] = Indices[0];
    }
}

real32 *ToolGroup(mesh_builder *Builder, uint8 *ToolVertex, int32 Group)
{
    return (real32 *)(ToolVertex +
                      (Group < ToolFrameGroups ? Group * 12 : ToolFrameGroups * 12 + (Group - ToolFrameGroups) * 16));
}

bool WithinTolerance(real32 const *A, real32 const *B, int32 Count, real32 Tolerance)
{
    real32 Sum = 0.0f;
    for (int32 Index = 0; Index < Count; ++Index) {
        real32 Difference = A[Index] - B[Index];
        Sum += Difference * Difference;
    }
    return Tolerance * Tolerance >= Sum;
}

bool SameVertex(mesh_builder *Builder, int32 Corner, int32 Vertex)
{
    uint8 *Stored = Builder->ScratchToolVertex;
    ConvertWithPlan(Builder->VertexToTool, StackUnit(Builder->VertexStack, Vertex), Stored, true);
    uint8 *Wanted = Builder->CornerVertex[Corner];
    bool Same = true;
    for (int32 Group = 0; Group < ToolFrameGroups; ++Group) {
        Same &= WithinTolerance(ToolGroup(Builder, Stored, Group), ToolGroup(Builder, Wanted, Group), 3,
                                Builder->Tolerances[Group]);
    }
    if (!Same) return false;
    for (int32 Channel = 0; Channel < Builder->ChannelCount; ++Channel) {
        real32 Tolerance =
            Builder->ChannelTolerance[Channel < MeshBuilderMaxChannels ? Channel : MeshBuilderMaxChannels - 1];
        if (!WithinTolerance(ToolGroup(Builder, Stored, ToolFrameGroups + Channel),
                             ToolGroup(Builder, Wanted, ToolFrameGroups + Channel), 4, Tolerance)) {
            return false;
        }
    }
    return true;
}

// The shared reals of each group against a stored vertex, in the order
// and with the sums of SameVertex (the reals a layout lacks are zero on
// both sides and add nothing).
bool SameVertexDirect(mesh_builder const *Builder, uint8 const *Wanted, uint8 const *Stored)
{
    mesh_builder::weld_group const *Groups = Builder->WeldGroups;
    auto Within = [&](int32 Group, real32 Tolerance) {
        mesh_builder::weld_group const &Weld = Groups[Group];
        real32 const *Values = (real32 const *)(Wanted + (Group < ToolFrameGroups
                                                              ? Group * 12
                                                              : ToolFrameGroups * 12 + (Group - ToolFrameGroups) * 16));
        real32 Sum = 0.0f;
        for (int32 Index = 0; Index < Weld.Count; ++Index) {
            real32 Value;
            memcpy(&Value, Stored + Weld.VertexOffset + Index * 4, 4);
            real32 Difference = Value - Values[Index];
            Sum += Difference * Difference;
        }
        return Tolerance * Tolerance >= Sum;
    };
    bool Same = true;
    for (int32 Group = 0; Group < ToolFrameGroups; ++Group) Same &= Within(Group, Builder->Tolerances[Group]);
    if (!Same) return false;
    for (int32 Channel = 0; Channel < Builder->ChannelCount; ++Channel) {
        real32 Tolerance =
            Builder->ChannelTolerance[Channel < MeshBuilderMaxChannels ? Channel : MeshBuilderMaxChannels - 1];
        if (!Within(ToolFrameGroups + Channel, Tolerance)) return false;
    }
    return true;
}

void StoreCornerDirect(mesh_builder const *Builder, uint8 const *Values, uint8 *Vertex)
{
    int32 Groups = ToolFrameGroups + Builder->ChannelCount;
    for (int32 Group = 0; Group < Groups; ++Group) {
        mesh_builder::weld_group const &Weld = Builder->WeldGroups[Group];
        if (Weld.Count == 0) continue;
        memcpy(Vertex + Weld.VertexOffset,
               Values + (Group < ToolFrameGroups ? Group * 12 : ToolFrameGroups * 12 + (Group - ToolFrameGroups) * 16),
               (size_t)Weld.Count * 4);
    }
}

int32 WeldCorner(mesh_builder *Builder, int32 Corner, int32 Triangle)
{
    int32 Point = Builder->CurrentVertexIndex[Corner];
    uint8 *CornerValues = Builder->CornerVertex[Corner];
    bool Direct = Builder->DirectWeld;
    if (!Direct) {
        // Compare what will be stored: round through the output layout.
        ConvertWithPlan(Builder->ToolToVertex, CornerValues, Builder->ScratchVertex, true);
        ConvertWithPlan(Builder->VertexToTool, Builder->ScratchVertex, CornerValues, true);
    }

    int32 Vertex = Point;
    int32 Previous = Point;
    if (StackInt(Builder->NextCoincidentVertex, Point) != -1) {
        int32 Walk = Point;
        do {
            if (Direct ? SameVertexDirect(Builder, CornerValues, StackUnit(Builder->VertexStack, Walk))
                       : SameVertex(Builder, Corner, Walk)) {
                return Walk;
            }
            Previous = Walk;
            Walk = StackInt(Builder->NextCoincidentVertex, Walk);
        } while (Walk != Point);
        int32 NewIndex = -1;
        void *NewVertex = NewStackUnit(Builder->VertexStack, &NewIndex);
        int32 *Next = (int32 *)NewStackUnit(Builder->NextCoincidentVertex, 0);
        int32 *From = (int32 *)NewStackUnit(Builder->FromTriangle, 0);
        int32 *Polygon = (int32 *)NewStackUnit(Builder->SourcePolygon, 0);
        int32 *Source = (int32 *)NewStackUnit(Builder->SourceCorner, 0);
        if (!NewVertex || !Next || !From || !Polygon || !Source) {
            TesselError(LogCategory_MeshBuilder, "Unable to add a split vertex for control point %d", Point);
            Builder->OutOfMemory = true;
            return Point;
        }
        memcpy(NewVertex, StackUnit(Builder->VertexStack, Point), (size_t)Builder->VertexSize);
        Vertex = NewIndex;
    }
    if (Direct)
        StoreCornerDirect(Builder, CornerValues, StackUnit(Builder->VertexStack, Vertex));
    else
        ConvertWithPlan(Builder->ToolToVertex, CornerValues, StackUnit(Builder->VertexStack, Vertex), false);
    StackInt(Builder->NextCoincidentVertex, Previous) = Vertex;
    StackInt(Builder->NextCoincidentVertex, Vertex) = Point;
    StackInt(Builder->FromTriangle, Vertex) = Triangle;
    StackInt(Builder->SourcePolygon, Vertex) = Builder->CurrentPolygon;
    StackInt(Builder->SourceCorner, Vertex) = Builder->CurrentCorner[Corner];
    return Vertex;
}

void ClearCurrentTriangle(mesh_builder *Builder)
{
    for (int32 Corner = 0; Corner < 3; ++Corner) {
        memset(Builder->CornerVertex[Corner], 0, (size_t)Builder->ToolVertexSize);
        Builder->CurrentVertexIndex[Corner] = 0;
        Builder->CurrentCorner[Corner] = -1;
    }
}

// Sizes and layouts of the two results share these aggregate descriptions.
intaddrx AggregateVertexData(mesh_builder *Builder, aggr_allocator &Aggregate, vertex_data **Result,
                             data_type_definition **TypeCopy, char **NameText)
{
    int32 VertexCount = GetResultingVertexCount(Builder);
    int32 Components = GetVertexComponentCount(Builder->VertexType);
    intaddrx TextSize = 0;
    for (int32 Index = 0; Index < Components; ++Index) {
        char const *Name = Builder->ChannelNames ? Builder->ChannelNames[Index] : 0;
        TextSize += StringLength(Name) + 1;
    }
    BeginAggregateAllocation(Aggregate);
    intaddrx Root = AggregateAllocate(Aggregate, Result, sizeof(vertex_data));
    AggregateAllocate(Aggregate, TypeCopy, GetTotalTypeSize(Builder->VertexType));
    AggregateAllocateArray(Aggregate, Root,
                           TESSEL_OFFSET_OF(vertex_data, Vertices) + TESSEL_OFFSET_OF(variant_array, Count),
                           TESSEL_OFFSET_OF(vertex_data, Vertices) + TESSEL_OFFSET_OF(variant_array, Array),
                           VertexCount, Builder->VertexSize);
    AggregateAllocateArray(Aggregate, Root, TESSEL_OFFSET_OF(vertex_data, VertexComponentNameCount),
                           TESSEL_OFFSET_OF(vertex_data, VertexComponentNames), Components, sizeof(char *));
    AggregateAllocate(Aggregate, NameText, TextSize);
    return Root;
}

intaddrx AggregateTopology(mesh_builder *Builder, aggr_allocator &Aggregate, tri_topology **Result)
{
    int32 GroupCount = Builder->IncludeEmptyMaterialGroups ? Builder->MaterialCount : Builder->UsedMaterialCount;
    int32 VertexCount = GetResultingVertexCount(Builder);
    int32 IndexCount = Builder->TriangleCount * 3;
    BeginAggregateAllocation(Aggregate);
    intaddrx Root = AggregateAllocate(Aggregate, Result, sizeof(tri_topology));
#define TOPOLOGY_ARRAY(CountMember, PointerMember, Count, Unit)                                                        \
    AggregateAllocateArray(Aggregate, Root, TESSEL_OFFSET_OF(tri_topology, CountMember),                               \
                           TESSEL_OFFSET_OF(tri_topology, PointerMember), (Count), (Unit))
    TOPOLOGY_ARRAY(GroupCount, Groups, GroupCount, sizeof(tri_material_group));
    TOPOLOGY_ARRAY(IndexCount, Indices, IndexCount, sizeof(int32));
    TOPOLOGY_ARRAY(Index16Count, Indices16, 0, sizeof(int16));
    TOPOLOGY_ARRAY(VertexToVertexCount, VertexToVertexMap, VertexCount, sizeof(int32));
    TOPOLOGY_ARRAY(VertexToTriangleCount, VertexToTriangleMap, VertexCount, sizeof(int32));
    TOPOLOGY_ARRAY(SideToNeighborCount, SideToNeighborMap, IndexCount, sizeof(int32));
    TOPOLOGY_ARRAY(BonesForTriangleCount, BonesForTriangle, 0, sizeof(int32));
    TOPOLOGY_ARRAY(TriangleToBoneCount, TriangleToBoneIndices, 0, sizeof(int32));
    TOPOLOGY_ARRAY(TriAnnotationSetCount, TriAnnotationSets, 0, sizeof(tri_annotation_set));
#undef TOPOLOGY_ARRAY
    return Root;
}

struct side_entry
{
    int32 Other; // the side's larger end
    int32 Side;  // Triangle * 4 + Corner
};

bool SideComesFirst(side_entry const &A, side_entry const &B)
{
    return A.Other < B.Other;
}

// The neighbour of a side is the next side over the same edge in triangle
// order, the last one's the first, a lone side's itself. Sides are bucketed
// by their smaller end (stably, so each bucket keeps triangle order) and
// matched on their larger end within the bucket.
bool BuildNeighbors(mesh_builder *Builder, tri_topology *Topology)
{
    int32 const Triangles = Topology->IndexCount / 3;
    int32 const SideCount = Triangles * 3;
    int32 const VertexCount = GetResultingVertexCount(Builder);
    int32 const Points = Builder->ControlPointCount;
    int32 const *Indices = Topology->Indices;
    // Control point of each output vertex; -1 (bucket 0) for a broken ring.
    int32 *Original = TesselAllocateArray(int32, VertexCount > 0 ? VertexCount : 1);
    int32 *Start = TesselAllocateArray(int32, Points + 2);
    side_entry *Entries = TesselAllocateArray(side_entry, SideCount > 0 ? SideCount : 1);
    bool Result = Original && Start && Entries;
    if (Result) {
        for (int32 Vertex = 0; Vertex < VertexCount; ++Vertex) Original[Vertex] = GetOriginalVertex(Builder, Vertex);
        memset(Start, 0, sizeof(int32) * (size_t)(Points + 2));
        auto Ends = [&](int32 Index, int32 &Low, int32 &High) {
            int32 Triangle = Index / 3, Corner = Index % 3;
            int32 X = Original[Indices[Index]], Y = Original[Indices[Triangle * 3 + (Corner + 1) % 3]];
            Low = (X < Y ? X : Y) + 1;
            High = X < Y ? Y : X;
        };
        int32 Low, High;
        for (int32 Index = 0; Index < SideCount; ++Index) {
            Ends(Index, Low, High);
            ++Start[Low + 1];
        }
        for (int32 Bucket = 0; Bucket <= Points; ++Bucket) Start[Bucket + 1] += Start[Bucket];
        for (int32 Index = 0; Index < SideCount; ++Index) {
            Ends(Index, Low, High);
            side_entry &Entry = Entries[Start[Low]++];
            Entry.Other = High;
            Entry.Side = (Index / 3) * 4 + Index % 3;
        }
        // Start[Bucket] is now the end of the bucket.
        int32 Begin = 0;
        for (int32 Bucket = 0; Bucket <= Points; ++Bucket) {
            int32 End = Start[Bucket];
            side_entry *List = Entries + Begin;
            int32 Count = End - Begin;
            if (Count > 32) std::stable_sort(List, List + Count, SideComesFirst);
            for (int32 Index = 0; Index < Count; ++Index) {
                int32 Match = -1;
                if (Count > 32) {
                    // Sorted: the group of equal ends is contiguous.
                    if (Index + 1 < Count && List[Index + 1].Other == List[Index].Other) {
                        Match = Index + 1;
                    } else {
                        Match = Index;
                        while (Match > 0 && List[Match - 1].Other == List[Index].Other) --Match;
                    }
                } else {
                    for (int32 Scan = Index + 1; Scan < Count && Match < 0; ++Scan) {
                        if (List[Scan].Other == List[Index].Other) Match = Scan;
                    }
                    for (int32 Scan = 0; Scan <= Index && Match < 0; ++Scan) {
                        if (List[Scan].Other == List[Index].Other) Match = Scan;
                    }
                }
                int32 Side = List[Index].Side;
                Topology->SideToNeighborMap[(Side >> 2) * 3 + (Side & 3)] = List[Match].Side;
            }
            Begin = End;
        }
    } else {
        TesselError(LogCategory_MeshBuilder, "Unable to allocate the side table of %d triangles", Triangles);
    }
    if (Original) TesselFree(Original);
    if (Start) TesselFree(Start);
    if (Entries) TesselFree(Entries);
    return Result;
}

} // namespace

mesh_builder *BeginMesh(int32 VertexCount, int32 TriangleCount, int32 MaterialCount, int32 BoneCount,
                        data_type_definition const *VertexType)
{
    CheckPointer(VertexType, LogCategory_MeshBuilder, 0);
    CheckCondition(VertexCount >= 0 && TriangleCount >= 0 && MaterialCount >= 0 && BoneCount >= 0,
                   LogCategory_MeshBuilder, 0);
    mesh_builder *Builder = (mesh_builder *)TesselAllocate(sizeof(mesh_builder));
    if (!Builder) return 0;
    memset(Builder, 0, sizeof(*Builder));
    Builder->SplitVerticesForTangents = 1;
    Builder->IncludeEmptyMaterialGroups = 0;
    for (int32 Group = 0; Group < 4; ++Group) Builder->Tolerances[Group] = 0.001f;
    Builder->Tolerances[Tolerance_TangentMergingMinCosine] = 0.25f;
    for (int32 Channel = 0; Channel < MeshBuilderMaxChannels; ++Channel) Builder->ChannelTolerance[Channel] = 0.001f;
    Builder->VertexType = VertexType;
    Builder->VertexSize = GetTotalObjectSize(VertexType);
    Builder->ChannelCount = GetVertexChannelCount(VertexType);
    Builder->ControlPointCount = VertexCount;
    Builder->BoneCount = BoneCount;
    Builder->MaxWeightsPerVertex = GetVertexBoneCount(VertexType);
    if (Builder->MaxWeightsPerVertex > MeshBuilderMaxWeights) Builder->MaxWeightsPerVertex = MeshBuilderMaxWeights;
    Builder->MaterialCount = MaterialCount;
    Builder->TriangleCapacity = TriangleCount;

    int64 Triangles2 = 2 * (int64)TriangleCount;
    int64 VertexMax = 2 * (3 * Triangles2 + 2 * (int64)VertexCount);
    if (VertexMax < 1) VertexMax = 1;
    bool Ok = Builder->VertexSize > 0 && BuildLayouts(Builder);
    if (Ok) BuildWeldGroups(Builder);
    Ok = Ok && StackInitializeWithDirectory(Builder->VertexStack, Builder->VertexSize, UnitsPerBlock,
                                            (int32)(VertexMax > INT32_MAX ? INT32_MAX : VertexMax));
    Ok = Ok && InitIntStack(Builder->NextCoincidentVertex, VertexMax) &&
         InitIntStack(Builder->FromTriangle, VertexMax) && InitIntStack(Builder->SourcePolygon, VertexMax) &&
         InitIntStack(Builder->SourceCorner, VertexMax);
    Ok = Ok && InitIntStack(Builder->TriangleVertices, 3 * (int64)TriangleCount + 3) &&
         InitIntStack(Builder->NextInMaterial, (int64)TriangleCount + 1);
    Ok = Ok && StackInitializeWithDirectory(Builder->VertexTangentStack, sizeof(tangent_frame_unit), UnitsPerBlock,
                                            (int32)(VertexMax > INT32_MAX ? INT32_MAX : VertexMax));
    Ok = Ok && StackInitializeWithDirectory(Builder->TriangleTangentStack, sizeof(tangent_frame_unit), UnitsPerBlock,
                                            (int32)(Triangles2 + 1 > INT32_MAX ? INT32_MAX : Triangles2 + 1));
    if (Ok) {
        Builder->BoneWeightAccumulator = TesselAllocateArray(real32, BoneCount > 0 ? BoneCount : 1);
        Builder->MaterialHead = TesselAllocateArray(int32, MaterialCount > 0 ? MaterialCount : 1);
        Builder->TriangleOutputIndex = TesselAllocateArray(int32, TriangleCount > 0 ? TriangleCount : 1);
        for (int32 Corner = 0; Corner < 3; ++Corner)
            Builder->CornerVertex[Corner] = (uint8 *)TesselAllocate(Builder->ToolVertexSize);
        Builder->ScratchVertex = (uint8 *)TesselAllocate(Builder->VertexSize);
        Builder->ScratchToolVertex = (uint8 *)TesselAllocate(Builder->ToolVertexSize);
        Builder->PushRecord = (uint8 *)TesselAllocate(GetTotalObjectSize(Builder->PushVertexType));
        Builder->ChannelNameCount = GetVertexComponentCount(VertexType);
        Builder->ChannelNames =
            TesselAllocateArray(char const *, Builder->ChannelNameCount > 0 ? Builder->ChannelNameCount : 1);
        Ok = Builder->BoneWeightAccumulator && Builder->MaterialHead && Builder->TriangleOutputIndex &&
             Builder->CornerVertex[0] && Builder->CornerVertex[1] && Builder->CornerVertex[2] &&
             Builder->ScratchVertex && Builder->ScratchToolVertex && Builder->PushRecord && Builder->ChannelNames;
    }
    if (Ok) {
        int32 MinusOne = -1;
        Ok = VertexCount == 0 || (NewStackUnits(Builder->NextCoincidentVertex, VertexCount, 0, &MinusOne) &&
                                  NewStackUnits(Builder->FromTriangle, VertexCount, 0, &MinusOne) &&
                                  NewStackUnits(Builder->SourcePolygon, VertexCount, 0, &MinusOne) &&
                                  NewStackUnits(Builder->SourceCorner, VertexCount, 0, &MinusOne));
    }
    if (!Ok) {
        FreeBuilder(Builder);
        return 0;
    }
    memset(Builder->BoneWeightAccumulator, 0, sizeof(real32) * (size_t)(BoneCount > 0 ? BoneCount : 1));
    for (int32 Material = 0; Material < (MaterialCount > 0 ? MaterialCount : 1); ++Material)
        Builder->MaterialHead[Material] = -1;
    Builder->WeightMember = FindVertexMember(VertexType, "BoneWeights");
    for (data_type_definition const *Member = VertexType; Builder->WeightMember && Member != Builder->WeightMember;
         ++Member) {
        Builder->WeightOffset += GetMemberTypeSize(*Member);
    }
    memset(Builder->ChannelNames, 0,
           sizeof(char const *) * (size_t)(Builder->ChannelNameCount > 0 ? Builder->ChannelNameCount : 1));
    ClearCurrentTriangle(Builder);
    return Builder;
}

void SetPosition(mesh_builder *Builder, real32 X, real32 Y, real32 Z)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->CurrentPosition[0] = X;
    Builder->CurrentPosition[1] = Y;
    Builder->CurrentPosition[2] = Z;
}

void AddWeight(mesh_builder *Builder, int32 BoneIndex, real32 Weight)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(BoneIndex, Builder->BoneCount, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->BoneWeightAccumulator[BoneIndex] += Weight;
}

void PushVertex(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    if (Builder->OutOfMemory) return;
    int32 Index = -1;
    void *Vertex = NewStackUnit(Builder->VertexStack, &Index);
    if (!Vertex) {
        TesselError(LogCategory_MeshBuilder, "Unable to add vertex %d", GetStackUnitCount(Builder->VertexStack));
        Builder->OutOfMemory = true;
        return;
    }
    ComputeVertexBoneWeights(Builder);
    int32 Weights = Builder->MaxWeightsPerVertex;
    uint8 *Record = Builder->PushRecord;
    memcpy(Record, Builder->CurrentPosition, sizeof(Builder->CurrentPosition));
    if (Weights > 0) {
        memcpy(Record + 12, Builder->VertexBoneWeights, sizeof(real32) * (size_t)Weights);
        memcpy(Record + 12 + 4 * Weights, Builder->VertexBoneIndices, sizeof(int32) * (size_t)Weights);
    }
    ConvertWithPlan(Builder->PushToVertex, Record, Vertex, true);
    if (Builder->WeightMember) EnsureExactOneNorm(*Builder->WeightMember, (uint8 *)Vertex + Builder->WeightOffset);
    memset(Builder->CurrentPosition, 0, sizeof(Builder->CurrentPosition));
    memset(Builder->BoneWeightAccumulator, 0,
           sizeof(real32) * (size_t)(Builder->BoneCount > 0 ? Builder->BoneCount : 1));
}

void SetChannelNames(mesh_builder *Builder, int32 ChannelCount, char const *const *Names)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    if (ChannelCount != GetVertexComponentCount(Builder->VertexType)) {
        TesselError(LogCategory_MeshBuilder, "%s was not true",
                    "ChannelCount == GetVertexComponentCount(Builder.VertexType)");
        return;
    }
    for (int32 Index = 0; Index < ChannelCount; ++Index) Builder->ChannelNames[Index] = Names ? Names[Index] : 0;
}

void SetVertexIndex(mesh_builder *Builder, int32 Corner, int32 ControlPoint)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(Corner, 3, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->CurrentVertexIndex[Corner] = ControlPoint;
}

void SetCornerSource(mesh_builder *Builder, int32 Corner, int32 SourceCorner)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(Corner, 3, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->CurrentCorner[Corner] = SourceCorner;
}

void SetPolygonSource(mesh_builder *Builder, int32 SourcePolygon)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->CurrentPolygon = SourcePolygon;
}

static void SetCornerGroup(mesh_builder *Builder, int32 Corner, int32 Group, real32 X, real32 Y, real32 Z)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(Corner, 3, LogCategory_MeshBuilder, TESSEL_NOTHING);
    real32 *Values = ToolGroup(Builder, Builder->CornerVertex[Corner], Group);
    Values[0] = X;
    Values[1] = Y;
    Values[2] = Z;
}

void SetCornerNormal(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z)
{
    SetCornerGroup(Builder, Corner, 0, X, Y, Z);
}
void SetCornerTangent(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z)
{
    SetCornerGroup(Builder, Corner, 1, X, Y, Z);
}
void SetCornerBinormal(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z)
{
    SetCornerGroup(Builder, Corner, 2, X, Y, Z);
}
void SetCornerTangentBinormalCross(mesh_builder *Builder, int32 Corner, real32 X, real32 Y, real32 Z)
{
    SetCornerGroup(Builder, Corner, 3, X, Y, Z);
}

void SetCornerChannel(mesh_builder *Builder, int32 Corner, int32 Channel, real32 const *Values4)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(Corner, 3, LogCategory_MeshBuilder, TESSEL_NOTHING);
    CheckIndex(Channel, Builder->ChannelCount, LogCategory_MeshBuilder, TESSEL_NOTHING);
    memcpy(ToolGroup(Builder, Builder->CornerVertex[Corner], ToolFrameGroups + Channel), Values4, 16);
}

void SetMaterial(mesh_builder *Builder, int32 MaterialIndex)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->CurrentMaterial = MaterialIndex;
}

void PushTriangle(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    if (Builder->TriangleCount >= Builder->TriangleCapacity) {
        TesselError(LogCategory_MeshBuilder, "%s %d is out of range [0, %d)", "TriangleCount", Builder->TriangleCount,
                    Builder->TriangleCapacity);
        ClearCurrentTriangle(Builder);
        return;
    }
    for (int32 Corner = 0; Corner < 3; ++Corner) {
        int32 Point = Builder->CurrentVertexIndex[Corner];
        if (Point < 0 || Point >= Builder->ControlPointCount) {
            TesselError(LogCategory_MeshBuilder, "%s %d is out of range [0, %d)", "ControlPoint", Point,
                        Builder->ControlPointCount);
            ClearCurrentTriangle(Builder);
            return;
        }
    }
    int32 Material = Builder->CurrentMaterial;
    int32 Materials = Builder->MaterialCount > 0 ? Builder->MaterialCount : 1;
    if (Material < 0 || Material >= Materials) {
        TesselWarning(LogCategory_MeshBuilder, "%s %d is out of range [0, %d)", "Material", Material, Materials);
        Material = 0;
    }
    if (Builder->OutOfMemory) {
        ClearCurrentTriangle(Builder);
        return;
    }
    int32 Triangle = Builder->TriangleCount++;
    int32 First = -1;
    int32 *Next = 0;
    if (NewStackUnits(Builder->TriangleVertices, 3, &First, 0))
        Next = (int32 *)NewStackUnit(Builder->NextInMaterial, 0);
    if (!Next) {
        TesselError(LogCategory_MeshBuilder, "Unable to add triangle %d", Triangle);
        Builder->OutOfMemory = true;
        ClearCurrentTriangle(Builder);
        return;
    }
    for (int32 Corner = 0; Corner < 3 && !Builder->OutOfMemory; ++Corner) {
        StackInt(Builder->TriangleVertices, First + Corner) = WeldCorner(Builder, Corner, Triangle);
    }
    if (Builder->MaterialHead[Material] == -1) ++Builder->UsedMaterialCount;
    *Next = Builder->MaterialHead[Material];
    Builder->MaterialHead[Material] = Triangle;
    Builder->TriangleOutputIndex[Triangle] = -1;
    ClearCurrentTriangle(Builder);
}

void SetTangentMergingTolerance(mesh_builder *Builder, real32 MinCosine)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    Builder->Tolerances[Tolerance_TangentMergingMinCosine] = MinCosine;
}

void BuildTangentSpace(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    static data_type_definition FrameLayout[] = {
        {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "TangentBinormalCross", 0, 3, {0, 0, 0}, 0},
        {EndMember, 0, 0, 0, {0, 0, 0}, 0},
    };
    // Frames go into every vertex: the members are matched once.
    conversion_plan *FrameToVertex = NewConversionPlan(FrameLayout, Builder->VertexType);
    auto MergeFrame = [&](void const *Frame, int32 Vertex) {
        void *Target = GetStackUnit(Builder->VertexStack, Vertex);
        if (FrameToVertex) {
            ConvertWithPlan(FrameToVertex, Frame, Target, false);
        } else {
            MergeSingleObject(FrameLayout, Frame, Builder->VertexType, Target);
        }
    };
    int32 Count = GetResultingVertexCount(Builder);
    tangent_frame_unit Zero = {};
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) MergeFrame(&Zero, Vertex);
    if (BuildTangentFrames(Builder)) {
        int32 Frames = GetStackUnitCount(Builder->VertexTangentStack);
        Count = GetResultingVertexCount(Builder);
        for (int32 Vertex = 0; Vertex < Count && Vertex < Frames; ++Vertex) {
            MergeFrame(GetStackUnit(Builder->VertexTangentStack, Vertex), Vertex);
        }
    } else {
        TesselError(LogCategory_Exporter, "Failed to create the tangent space");
        Count = GetResultingVertexCount(Builder); // splits made before the failure get the frame too
        tangent_frame_unit Constant = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
        for (int32 Vertex = 0; Vertex < Count; ++Vertex) MergeFrame(&Constant, Vertex);
    }
    FreeConversionPlan(FrameToVertex);
}

int32 GetResultingVertexCount(mesh_builder const *Builder)
{
    return Builder ? GetStackUnitCount(Builder->VertexStack) : 0;
}

int32 GetResultingVertexDataSize(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, 0);
    aggr_allocator Aggregate;
    vertex_data *Unused = 0;
    data_type_definition *UnusedType = 0;
    char *UnusedText = 0;
    AggregateVertexData(Builder, Aggregate, &Unused, &UnusedType, &UnusedText);
    int32 Size = 0;
    CheckConvertToInt32(Size, EndAggregateSize_(Aggregate, "..\\..\\..\\source\\tessel_mesh_builder", 822),
                        LogCategory_MeshBuilder, 0);
    return Size;
}

int32 GetResultingTopologySize(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, 0);
    aggr_allocator Aggregate;
    tri_topology *Unused = 0;
    AggregateTopology(Builder, Aggregate, &Unused);
    int32 Size = 0;
    CheckConvertToInt32(Size, EndAggregateSize_(Aggregate, "..\\..\\..\\source\\tessel_mesh_builder", 836),
                        LogCategory_MeshBuilder, 0);
    return Size;
}

void EndMesh(mesh_builder *Builder, void *VertexMemory, void *TopologyMemory, vertex_data **VertexDataResult,
             tri_topology **TopologyResult)
{
    if (VertexDataResult) *VertexDataResult = 0;
    if (TopologyResult) *TopologyResult = 0;
    if (!Builder || !VertexMemory || !TopologyMemory) return;
    if (Builder->OutOfMemory) {
        TesselError(LogCategory_MeshBuilder, "The mesh ran out of memory while it was built: it has no result");
        return;
    }

    aggr_allocator Aggregate;
    vertex_data *VertexData = 0;
    data_type_definition *TypeCopy = 0;
    char *NameText = 0;
    AggregateVertexData(Builder, Aggregate, &VertexData, &TypeCopy, &NameText);
    EndAggregatePlacement(Aggregate, VertexMemory);
    memcpy(TypeCopy, Builder->VertexType, (size_t)GetTotalTypeSize(Builder->VertexType));
    VertexData->Vertices.Type = TypeCopy;
    int32 VertexCount = GetResultingVertexCount(Builder);
    if (VertexCount > 0) SerializeStack(Builder->VertexStack, VertexData->Vertices.Array);
    for (int32 Index = 0; Index < VertexData->VertexComponentNameCount; ++Index) {
        char const *Name = Builder->ChannelNames[Index] ? Builder->ChannelNames[Index] : "";
        int32 Length = CopyString(Name, NameText);
        StorePointer(&VertexData->VertexComponentNames[Index], NameText); // 4-byte aligned slot
        NameText += Length;
    }
    VertexData->VertexAnnotationSetCount = 0;
    VertexData->VertexAnnotationSets = 0;

    tri_topology *Topology = 0;
    AggregateTopology(Builder, Aggregate, &Topology);
    EndAggregatePlacement(Aggregate, TopologyMemory);
    int32 Written = 0;
    int32 Group = 0;
    for (int32 Material = 0; Material < Builder->MaterialCount || (Material == 0 && Builder->MaterialCount == 0);
         ++Material) {
        int32 Head = Builder->MaterialHead[Material];
        if (Head == -1 && !Builder->IncludeEmptyMaterialGroups) continue;
        if (Group >= Topology->GroupCount) break;
        tri_material_group &Target = Topology->Groups[Group++];
        Target.MaterialIndex = Material;
        Target.TriFirst = Written;
        Target.TriCount = 0;
        for (int32 Triangle = Head; Triangle != -1; Triangle = StackInt(Builder->NextInMaterial, Triangle)) {
            for (int32 Corner = 0; Corner < 3; ++Corner) {
                Topology->Indices[Written * 3 + Corner] = StackInt(Builder->TriangleVertices, Triangle * 3 + Corner);
            }
            Builder->TriangleOutputIndex[Triangle] = Written++;
            ++Target.TriCount;
        }
    }
    if (VertexCount > 0) {
        SerializeStack(Builder->NextCoincidentVertex, Topology->VertexToVertexMap);
        SerializeStack(Builder->FromTriangle, Topology->VertexToTriangleMap);
    }
    // Neighbours are found afresh on every call.
    BuildNeighbors(Builder, Topology);

    if (VertexDataResult) *VertexDataResult = VertexData;
    if (TopologyResult) *TopologyResult = Topology;
}

int32 GetOriginalVertex(mesh_builder *Builder, int32 Vertex)
{
    CheckPointer(Builder, LogCategory_MeshBuilder, -1);
    int32 Count = GetResultingVertexCount(Builder);
    CheckIndex(Vertex, Count, LogCategory_MeshBuilder, -1);
    int32 Steps = 0;
    while (Vertex >= Builder->ControlPointCount && Steps++ < Count) {
        Vertex = StackInt(Builder->NextCoincidentVertex, Vertex);
        if (Vertex < 0) return -1;
    }
    return Vertex;
}

void GetVertexSource(mesh_builder *Builder, int32 Vertex, int32 *SourcePolygon, int32 *SourceCorner)
{
    if (SourcePolygon) *SourcePolygon = -1;
    if (SourceCorner) *SourceCorner = -1;
    CheckPointer(Builder, LogCategory_MeshBuilder, TESSEL_NOTHING);
    int32 Count = GetResultingVertexCount(Builder);
    CheckIndex(Vertex, Count, LogCategory_MeshBuilder, TESSEL_NOTHING);
    int32 Walk = Vertex;
    for (int32 Steps = 0; Steps < Count && Walk >= 0; ++Steps) {
        if (StackInt(Builder->SourcePolygon, Walk) != -1) {
            if (SourcePolygon) *SourcePolygon = StackInt(Builder->SourcePolygon, Walk);
            if (SourceCorner) *SourceCorner = StackInt(Builder->SourceCorner, Walk);
            return;
        }
        Walk = StackInt(Builder->NextCoincidentVertex, Walk);
        if (Walk == Vertex) return;
    }
}

void *GetBuilderVertex(mesh_builder *Builder, int32 Vertex)
{
    return GetStackUnit(Builder->VertexStack, Vertex);
}

void FreeBuilder(mesh_builder *Builder)
{
    if (!Builder) return;
    StackCleanUp(Builder->VertexStack);
    StackCleanUp(Builder->NextCoincidentVertex);
    StackCleanUp(Builder->FromTriangle);
    StackCleanUp(Builder->SourcePolygon);
    StackCleanUp(Builder->SourceCorner);
    StackCleanUp(Builder->TriangleVertices);
    StackCleanUp(Builder->NextInMaterial);
    StackCleanUp(Builder->VertexTangentStack);
    StackCleanUp(Builder->TriangleTangentStack);
    FreeConversionPlan(Builder->ToolToVertex);
    FreeConversionPlan(Builder->VertexToTool);
    FreeConversionPlan(Builder->PushToVertex);
    TesselFree(Builder->ToolVertexType);
    TesselFree(Builder->PushVertexType);
    TesselFree(Builder->BoneWeightAccumulator);
    TesselFree(Builder->MaterialHead);
    TesselFree(Builder->TriangleOutputIndex);
    for (int32 Corner = 0; Corner < 3; ++Corner) TesselFree(Builder->CornerVertex[Corner]);
    TesselFree(Builder->ScratchVertex);
    TesselFree(Builder->ScratchToolVertex);
    TesselFree(Builder->PushRecord);
    TesselFree(Builder->ChannelNames);
    TesselFree(Builder->WeldGroups);
    TesselFree(Builder);
}
