#include "geometry/tessel_vertex_data.h"

#include <cmath>
#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_string.h"
#include "format/tessel_data_type_io.h"

namespace {

char const *const StandardMembers[] = {"Position",    "Normal",     "Tangent", "Binormal", "TangentBinormalCross",
                                       "BoneIndices", "BoneWeights"};

// A one-member layout of N reals under a given name.
struct single_member_layout
{
    data_type_definition Members[2];
    single_member_layout(char const *Name, int32 Width)
    {
        memset(Members, 0, sizeof(Members));
        Members[0].Type = Real32Member;
        Members[0].Name = Name;
        Members[0].ArrayWidth = Width;
    }
};

void MergeNamedReals(data_type_definition const *Layout, void *Vertex, char const *Name, int32 Width,
                     real32 const *Values)
{
    single_member_layout Source(Name, Width);
    MergeSingleObject(Source.Members, Values, Layout, Vertex);
}

} // namespace

bool IsStandardVertexMember(char const *Name)
{
    for (char const *Standard : StandardMembers) {
        if (StringsAreEqual(Name, Standard)) return true;
    }
    return false;
}

int32 GetVertexComponentCount(data_type_definition const *Layout)
{
    return Layout ? GetMemberCount(Layout) : 0;
}

int32 GetVertexChannelCount(data_type_definition const *Layout)
{
    int32 Count = 0;
    for (data_type_definition const *Member = Layout; Member && Member->Type != EndMember; ++Member) {
        if (!IsStandardVertexMember(Member->Name)) ++Count;
    }
    return Count;
}

data_type_definition const *FindVertexMember(data_type_definition const *Layout, char const *Name)
{
    for (data_type_definition const *Member = Layout; Member && Member->Type != EndMember; ++Member) {
        if (StringsAreEqual(Member->Name, Name)) return Member;
    }
    return 0;
}

int32 GetVertexBoneCount(data_type_definition const *Layout)
{
    data_type_definition const *Member = FindVertexMember(Layout, "BoneWeights");
    if (!Member) Member = FindVertexMember(Layout, "BoneIndices");
    return Member ? GetMemberArrayWidth(*Member) : 0;
}

void EnsureExactOneNorm(data_type_definition const &Member, void *MemberData)
{
    int32 One;
    switch (Member.Type) {
    case Real32Member:
    case Real16Member: return;
    case BinormalInt8Member: One = 127; break;
    case NormalUInt8Member: One = 255; break;
    case BinormalInt16Member: One = 32767; break;
    case NormalUInt16Member: One = 65535; break;
    default:
        TesselError(LogCategory_TriTopology, "EnsureExactOneNorm called on unsupported type %d\n", (int32)Member.Type);
        return;
    }
    int32 Count = GetMemberArrayWidth(Member);
    int32 UnitSize = GetMemberUnitSize(Member);
    uint8 *Bytes = (uint8 *)MemberData;
    auto Get = [&](int32 Index) -> int32 {
        uint8 *At = Bytes + Index * UnitSize;
        switch (Member.Type) {
        case BinormalInt8Member: return (int32)(int8)*At;
        case NormalUInt8Member: return (int32)*At;
        case BinormalInt16Member: return (int32)LoadUnaligned<int16>(At);
        default: return (int32)LoadUnaligned<uint16>(At);
        }
    };
    auto Set = [&](int32 Index, int32 Value) {
        uint8 *At = Bytes + Index * UnitSize;
        switch (Member.Type) {
        case BinormalInt8Member: *At = (uint8)(int8)Value; break;
        case NormalUInt8Member: *At = (uint8)Value; break;
        case BinormalInt16Member: StoreUnaligned<int16>(At, (int16)Value); break;
        default: StoreUnaligned<uint16>(At, (uint16)Value); break;
        }
    };
    int64 Difference = One;
    for (int32 Index = 0; Index < Count; ++Index) Difference -= Get(Index);
    if (Count == 0) return;
    while (Difference > 0) {
        bool Moved = false;
        for (int32 Index = 0; Index < Count && Difference > 0; ++Index) {
            int32 Value = Get(Index);
            if (Value < One) {
                Set(Index, Value + 1);
                --Difference;
                Moved = true;
            }
        }
        if (!Moved) break; // every element at its maximum: nothing more to give
    }
    while (Difference < 0) {
        bool Moved = false;
        for (int32 Index = Count - 1; Index >= 0 && Difference < 0; --Index) {
            int32 Value = Get(Index);
            if (Value > 0) {
                Set(Index, Value - 1);
                ++Difference;
                Moved = true;
            }
        }
        if (!Moved) break;
    }
}

bool GetSingleVertex(vertex_data const *VertexData, int32 VertexIndex, data_type_definition const *As, void *Dest)
{
    CheckPointer(As, LogCategory_MeshBuilder, false);
    CheckPointer(Dest, LogCategory_MeshBuilder, false);
    CheckPointer(VertexData, LogCategory_MeshBuilder, false);
    int32 Count = VertexData->Vertices.Count;
    if (VertexIndex < 0 || VertexIndex >= Count) {
        TesselError(LogCategory_MeshBuilder, "%s %d is out of range [0, %d)", "VertexIndex", VertexIndex, Count);
        ClearObject(As, Dest);
        return false;
    }
    int32 Size = GetTotalObjectSize(VertexData->Vertices.Type);
    ConvertSingleObject(VertexData->Vertices.Type,
                        (uint8 const *)VertexData->Vertices.Array + (intaddrx)VertexIndex * Size, As, Dest);
    return true;
}

void ConvertVertices(int32 Count, data_type_definition const *Layout, void const *Vertices,
                     data_type_definition const *DestinationLayout, void *Destination)
{
    ConvertObjects(Count, Layout, Vertices, DestinationLayout, Destination);
}

void SetVertexPosition(data_type_definition const *Layout, void *Vertex, real32 const *Position)
{
    MergeNamedReals(Layout, Vertex, "Position", 3, Position);
}

void SetVertexNormal(data_type_definition const *Layout, void *Vertex, real32 const *Normal)
{
    MergeNamedReals(Layout, Vertex, "Normal", 3, Normal);
}

void SetVertexColor(data_type_definition const *Layout, void *Vertex, int32 Channel, real32 const *Color)
{
    char Name[64];
    ConvertToStringArgs(sizeof(Name), Name, "%s%d", "DiffuseColor", Channel);
    MergeNamedReals(Layout, Vertex, Name, 3, Color);
}

void SetVertexUVW(data_type_definition const *Layout, void *Vertex, int32 Channel, real32 const *UVW)
{
    char Name[64];
    ConvertToStringArgs(sizeof(Name), Name, "%s%d", "TextureCoordinates", Channel);
    MergeNamedReals(Layout, Vertex, Name, 3, UVW);
}

real32 NormalizeVector3(real32 *Vector)
{
    real32 Length = std::sqrt(Vector[0] * Vector[0] + Vector[1] * Vector[1] + Vector[2] * Vector[2]);
    if (Length > 0.00001f) {
        Vector[0] /= Length;
        Vector[1] /= Length;
        Vector[2] /= Length;
        return Length;
    }
    Vector[0] = Vector[1] = Vector[2] = 0.0f;
    return 0.0f;
}

void TransformVertices(int32 Count, data_type_definition const *Layout, void *Vertices, real32 const *Affine3,
                       real32 const *Linear3x3, real32 const *InverseLinear3x3, bool Normalize, bool TreatAsDeltas)
{
    static data_type_definition FrameLayout[] = {
        {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "TangentBinormalCross", 0, 3, {0, 0, 0}, 0},
        {EndMember, 0, 0, 0, {0, 0, 0}, 0},
    };
    enum
    {
        Position,
        Normal,
        Tangent,
        Binormal,
        Cross
    };
    int32 Size = GetTotalObjectSize(Layout);
    auto ApplyRows = [](real32 const *M, real32 const *V, real32 *Out) {
        real32 R[3] = {V[0] * M[0] + V[1] * M[1] + V[2] * M[2], V[0] * M[3] + V[1] * M[4] + V[2] * M[5],
                       V[0] * M[6] + V[1] * M[7] + V[2] * M[8]};
        memcpy(Out, R, sizeof(R));
    };
    auto ApplyColumns = [](real32 const *M, real32 const *V, real32 *Out) {
        real32 R[3] = {V[0] * M[0] + V[1] * M[3] + V[2] * M[6], V[0] * M[1] + V[1] * M[4] + V[2] * M[7],
                       V[0] * M[2] + V[1] * M[5] + V[2] * M[8]};
        memcpy(Out, R, sizeof(R));
    };
    real32 const *NormalMatrix = TreatAsDeltas ? Linear3x3 : InverseLinear3x3;
    // The members are matched once for all vertices.
    conversion_plan *Read = Layout ? NewConversionPlan(Layout, FrameLayout) : 0;
    conversion_plan *Write = Layout ? NewConversionPlan(FrameLayout, Layout) : 0;
    for (int32 Index = 0; Index < Count; ++Index) {
        uint8 *Vertex = (uint8 *)Vertices + (intaddrx)Index * Size;
        real32 Frame[5][3];
        if (Read)
            ConvertWithPlan(Read, Vertex, Frame, true);
        else
            ConvertSingleObject(Layout, Vertex, FrameLayout, Frame);
        ApplyRows(Linear3x3, Frame[Position], Frame[Position]);
        if (!TreatAsDeltas) {
            for (int32 Axis = 0; Axis < 3; ++Axis) Frame[Position][Axis] += Affine3[Axis];
        }
        ApplyRows(Linear3x3, Frame[Tangent], Frame[Tangent]);
        ApplyRows(Linear3x3, Frame[Binormal], Frame[Binormal]);
        ApplyColumns(NormalMatrix, Frame[Cross], Frame[Cross]);
        ApplyColumns(NormalMatrix, Frame[Normal], Frame[Normal]);
        if (Normalize) {
            NormalizeVector3(Frame[Tangent]);
            NormalizeVector3(Frame[Binormal]);
            NormalizeVector3(Frame[Cross]);
            NormalizeVector3(Frame[Normal]);
        }
        if (Write)
            ConvertWithPlan(Write, Frame, Vertex, false);
        else
            MergeSingleObject(FrameLayout, Frame, Layout, Vertex);
    }
    FreeConversionPlan(Read);
    FreeConversionPlan(Write);
}
