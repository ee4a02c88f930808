#include "geometry/tessel_tangent_frame.h"

#include <cmath>
#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "format/tessel_data_type_io.h"
#include "geometry/tessel_mesh_builder.h"

namespace {

// What the frames are computed from, read out of each output vertex by
// member name: a layout without a member reads zeros there.
struct vertex_reading
{
    real32 Position[3];
    real32 Normal[3];
    real32 TextureCoordinates[2];
};

data_type_definition ReadingType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

real32 const MinimumLength = 0.00001f;
real32 const SameNormalLimit = 0.00001f;
double const SliverSine = 1e-6;

struct tangent_state
{
    mesh_builder *Builder;
    // One reading per output vertex, room for a split of every corner.
    vertex_reading *Readings;
    // The handedness of the triangles whose frames a vertex took, against
    // the vertex normal: each triangle's sign weighed by the cosine between
    // its plane's normal and the vertex normal.
    real32 *Hand;
    int32 ReadingCapacity;
    real32 MinCosine;
    // Splits serve the seams of a texture: a mesh without one keeps its
    // vertices.
    bool Split;
};

inline real32 Dot(real32 const *A, real32 const *B)
{
    return A[0] * B[0] + A[1] * B[1] + A[2] * B[2];
}

inline void Cross(real32 const *A, real32 const *B, real32 *Result)
{
    real32 X = A[1] * B[2] - A[2] * B[1];
    real32 Y = A[2] * B[0] - A[0] * B[2];
    real32 Z = A[0] * B[1] - A[1] * B[0];
    Result[0] = X;
    Result[1] = Y;
    Result[2] = Z;
}

// Divides by the length when there is one; otherwise the vector becomes
// zero. Returns the length, or 0.
real32 Normalize(real32 *Vector)
{
    real32 Length = std::sqrt(Dot(Vector, Vector));
    if (Length > MinimumLength) {
        for (int32 Axis = 0; Axis < 3; ++Axis) Vector[Axis] /= Length;
        return Length;
    }
    Vector[0] = Vector[1] = Vector[2] = 0.0f;
    return 0.0f;
}

inline double DotDouble(double const *A, double const *B)
{
    return A[0] * B[0] + A[1] * B[1] + A[2] * B[2];
}

void CrossDouble(double const *A, double const *B, double *Result)
{
    Result[0] = A[1] * B[2] - A[2] * B[1];
    Result[1] = A[2] * B[0] - A[0] * B[2];
    Result[2] = A[0] * B[1] - A[1] * B[0];
}

// Triangle vectors are as small as the mesh: any length counts, above
// Minimum.
double NormalizeDouble(double *Vector, double Minimum)
{
    double Length = std::sqrt(Vector[0] * Vector[0] + Vector[1] * Vector[1] + Vector[2] * Vector[2]);
    if (Length > Minimum) {
        for (int32 Axis = 0; Axis < 3; ++Axis) Vector[Axis] /= Length;
        return Length;
    }
    Vector[0] = Vector[1] = Vector[2] = 0.0;
    return 0.0;
}

inline int32 &StackInt(stack_allocator &Stack, int32 Index)
{
    return *(int32 *)GetStackUnit(Stack, Index);
}

inline tangent_frame &VertexFrame(mesh_builder *Builder, int32 Vertex)
{
    return *(tangent_frame *)GetStackUnit(Builder->VertexTangentStack, Vertex);
}

inline tangent_frame &TriangleFrame(mesh_builder *Builder, int32 Triangle)
{
    return *(tangent_frame *)GetStackUnit(Builder->TriangleTangentStack, Triangle);
}

bool IsZeroFrame(tangent_frame const &Frame)
{
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        if (Frame.Tangent[Axis] != 0.0f || Frame.Binormal[Axis] != 0.0f || Frame.TangentBinormalCross[Axis] != 0.0f)
            return false;
    }
    return true;
}

bool BuildTriangleTangents(tangent_state &State)
{
    mesh_builder *Builder = State.Builder;
    if (GetStackUnitCount(Builder->TriangleTangentStack) != 0) {
        TesselError(LogCategory_Exporter, "%s was not true", "GetStackUnitCount(Builder.TriangleTangentStack) == 0");
        return false;
    }
    int32 Triangles = Builder->TriangleCount;
    if (Triangles > 0 && !NewStackUnits(Builder->TriangleTangentStack, Triangles, 0, 0)) {
        TesselError(LogCategory_Exporter, "Unable to allocate the appropriate number of tangent frames");
        return false;
    }
    int32 Mapped = 0;
    for (int32 Triangle = 0; Triangle < Triangles; ++Triangle) {
        vertex_reading const *Corner[3];
        for (int32 Index = 0; Index < 3; ++Index) {
            Corner[Index] = &State.Readings[StackInt(Builder->TriangleVertices, 3 * Triangle + Index)];
        }
        // In double precision: the mapping of a small triangle is a small
        // difference of products, whose sign in single precision is noise.
        double E1[3], E2[3];
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            E1[Axis] = (double)Corner[1]->Position[Axis] - Corner[0]->Position[Axis];
            E2[Axis] = (double)Corner[2]->Position[Axis] - Corner[0]->Position[Axis];
        }
        double DU1 = (double)Corner[1]->TextureCoordinates[0] - Corner[0]->TextureCoordinates[0];
        double DV1 = (double)Corner[1]->TextureCoordinates[1] - Corner[0]->TextureCoordinates[1];
        double DU2 = (double)Corner[2]->TextureCoordinates[0] - Corner[0]->TextureCoordinates[0];
        double DV2 = (double)Corner[2]->TextureCoordinates[1] - Corner[0]->TextureCoordinates[1];

        tangent_frame &Frame = TriangleFrame(Builder, Triangle);
        memset(&Frame, 0, sizeof(Frame));
        double N[3], T[3], B[3];
        CrossDouble(E1, E2, N);
        // A triangle without area has no plane: its frame stays zero, adds
        // nothing and splits nothing. The test is on the sine of the corner
        // angle, so that meshes of any scale keep their frames.
        double EdgeProduct = std::sqrt(DotDouble(E1, E1) * DotDouble(E2, E2));
        if (NormalizeDouble(N, SliverSine * EdgeProduct) == 0.0) continue;
        double Determinant = DU1 * DV2 - DU2 * DV1;
        if (Determinant != 0.0) {
            ++Mapped;
            double R = 1.0 / Determinant;
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                T[Axis] = R * DV2 * E1[Axis] - R * DV1 * E2[Axis];
                B[Axis] = -R * DU2 * E1[Axis] + R * DU1 * E2[Axis];
            }
        } else {
            // No usable mapping: a frame from the geometry alone.
            CrossDouble(N, E1, T);
            CrossDouble(N, T, B);
        }
        NormalizeDouble(T, 0.0);
        NormalizeDouble(B, 0.0);
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            Frame.Tangent[Axis] = (real32)T[Axis];
            // The stored V runs down the image, against the tool's V.
            Frame.Binormal[Axis] = (real32)-B[Axis];
            Frame.TangentBinormalCross[Axis] = (real32)N[Axis];
        }
    }
    State.Split = Builder->SplitVerticesForTangents && Mapped > 0;
    if (Triangles > 0 && Mapped == 0) {
        TesselWarning(LogCategory_Exporter,
                      "The mesh has no usable texture coordinates: its tangents follow the triangle edges");
    }
    return true;
}

bool InitVertexTangents(tangent_state &State)
{
    mesh_builder *Builder = State.Builder;
    if (GetStackUnitCount(Builder->VertexTangentStack) != 0) {
        TesselError(LogCategory_Exporter, "%s was not true", "GetStackUnitCount(Builder.VertexTangentStack) == 0");
        return false;
    }
    int32 Count = GetResultingVertexCount(Builder);
    tangent_frame Zero = {};
    return Count == 0 || NewStackUnits(Builder->VertexTangentStack, Count, 0, &Zero);
}

// The sign of the frame's volume: 0 for a frame that has none.
real32 Handedness(tangent_frame const &Frame)
{
    real32 Normal[3];
    Cross(Frame.Tangent, Frame.Binormal, Normal);
    return Dot(Normal, Frame.TangentBinormalCross);
}

bool HandednessDiffers(tangent_frame const &A, tangent_frame const &B)
{
    real32 HandA = Handedness(A), HandB = Handedness(B);
    if (HandA == 0.0f || HandB == 0.0f) return false;
    return (HandA >= 0.0f) != (HandB >= 0.0f);
}

bool FramesAgree(tangent_frame const &A, tangent_frame const &B, real32 MinCosine)
{
    real32 TangentA[3], TangentB[3], BinormalA[3], BinormalB[3];
    memcpy(TangentA, A.Tangent, sizeof(TangentA));
    memcpy(TangentB, B.Tangent, sizeof(TangentB));
    memcpy(BinormalA, A.Binormal, sizeof(BinormalA));
    memcpy(BinormalB, B.Binormal, sizeof(BinormalB));
    Normalize(TangentB);
    Normalize(BinormalB);
    if (Normalize(TangentA) > 0.0f && Dot(TangentA, TangentB) <= MinCosine) return false;
    if (Normalize(BinormalA) == 0.0f) return true;
    return Dot(BinormalA, BinormalB) > MinCosine;
}

// A copy of Vertex behind it in its ring, with a zero frame; -1 when there
// is no room.
int32 SplitVertex(tangent_state &State, int32 Vertex)
{
    mesh_builder *Builder = State.Builder;
    int32 Count = GetResultingVertexCount(Builder);
    if (Count >= State.ReadingCapacity) return -1;
    int32 NewIndex = -1;
    void *NewVertex = NewStackUnit(Builder->VertexStack, &NewIndex);
    tangent_frame *Frame = (tangent_frame *)NewStackUnit(Builder->VertexTangentStack, 0);
    int32 *From = (int32 *)NewStackUnit(Builder->FromTriangle, 0);
    int32 *Next = (int32 *)NewStackUnit(Builder->NextCoincidentVertex, 0);
    // The split copy names no source corner of its own: the source lookup
    // walks on to one that does.
    int32 *Polygon = (int32 *)NewStackUnit(Builder->SourcePolygon, 0);
    int32 *Corner = (int32 *)NewStackUnit(Builder->SourceCorner, 0);
    if (!NewVertex || !Frame || !From || !Next || !Polygon || !Corner) return -1;
    memcpy(NewVertex, GetStackUnit(Builder->VertexStack, Vertex), (size_t)Builder->VertexSize);
    memset(Frame, 0, sizeof(*Frame));
    State.Readings[NewIndex] = State.Readings[Vertex];
    State.Hand[NewIndex] = 0;
    *From = -1;
    *Polygon = -1;
    *Corner = -1;
    int32 &NextOfVertex = StackInt(Builder->NextCoincidentVertex, Vertex);
    *Next = NextOfVertex == -1 ? Vertex : NextOfVertex;
    NextOfVertex = NewIndex;
    return NewIndex;
}

// The first triangle, in order of pushing, that has a corner on Vertex; -1
// if none has.
int32 FirstTriangleUsing(mesh_builder *Builder, int32 Vertex)
{
    int32 Corners = 3 * Builder->TriangleCount;
    for (int32 Corner = 0; Corner < Corners; ++Corner) {
        if (StackInt(Builder->TriangleVertices, Corner) == Vertex) return Corner / 3;
    }
    return -1;
}

bool AccumulateVertexTangents(tangent_state &State)
{
    mesh_builder *Builder = State.Builder;
    for (int32 Triangle = 0; Triangle < Builder->TriangleCount; ++Triangle) {
        tangent_frame const Frame = TriangleFrame(Builder, Triangle);
        if (IsZeroFrame(Frame)) continue;
        real32 FrameHandedness = Handedness(Frame);
        real32 FrameSign = FrameHandedness > 0.0f ? 1.0f : FrameHandedness < 0.0f ? -1.0f : 0.0f;
        for (int32 Corner = 0; Corner < 3; ++Corner) {
            int32 &Slot = StackInt(Builder->TriangleVertices, 3 * Triangle + Corner);
            int32 Vertex = Slot;
            uint8 const *Bytes = (uint8 const *)GetStackUnit(Builder->VertexStack, Vertex);

            // The first vertex of the ring that is this vertex in every byte
            // and has the triangle's handedness.
            int32 Target = -1;
            int32 Walk = Vertex;
            int32 Steps = GetResultingVertexCount(Builder);
            do {
                if ((Walk == Vertex ||
                     memcmp(GetStackUnit(Builder->VertexStack, Walk), Bytes, (size_t)Builder->VertexSize) == 0) &&
                    !HandednessDiffers(VertexFrame(Builder, Walk), Frame)) {
                    if (Walk != Vertex) Target = Walk;
                    break;
                }
                Walk = StackInt(Builder->NextCoincidentVertex, Walk);
            } while (Walk != Vertex && Walk >= 0 && --Steps > 0);

            tangent_frame *Destination = &VertexFrame(Builder, Target >= 0 ? Target : Vertex);
            if (State.Split &&
                (HandednessDiffers(*Destination, Frame) || !FramesAgree(*Destination, Frame, State.MinCosine))) {
                Target = SplitVertex(State, Vertex);
                if (Target < 0) return false;
                Destination = &VertexFrame(Builder, Target);
            }
            if (Target >= 0) {
                Slot = Target;
                StackInt(Builder->FromTriangle, Target) = Triangle;
                if (StackInt(Builder->FromTriangle, Vertex) == Triangle) {
                    StackInt(Builder->FromTriangle, Vertex) = FirstTriangleUsing(Builder, Vertex);
                }
            }
            // Against the vertex normal: with mirrored node transforms it can
            // face away from the winding's normal.
            real32 const *Normal = State.Readings[Vertex].Normal;
            real32 NormalLength = std::sqrt(Dot(Normal, Normal));
            State.Hand[Target >= 0 ? Target : Vertex] +=
                NormalLength > 0.0f ? FrameSign * Dot(Frame.TangentBinormalCross, Normal) / NormalLength : FrameSign;
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                Destination->Tangent[Axis] += Frame.Tangent[Axis];
                Destination->Binormal[Axis] += Frame.Binormal[Axis];
                Destination->TangentBinormalCross[Axis] += Frame.TangentBinormalCross[Axis];
            }
        }
    }
    return true;
}

// The third vector becomes the vertex's unit normal: normals of scaled
// geometry need not be unit length.
bool SetCrossFromNormals(tangent_state &State)
{
    int32 Count = GetResultingVertexCount(State.Builder);
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) {
        real32 *Cross = VertexFrame(State.Builder, Vertex).TangentBinormalCross;
        memcpy(Cross, State.Readings[Vertex].Normal, sizeof(real32) * 3);
        Normalize(Cross);
    }
    return true;
}

bool NormalizeVertexTangents(tangent_state &State)
{
    int32 Count = GetResultingVertexCount(State.Builder);
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) {
        tangent_frame &Frame = VertexFrame(State.Builder, Vertex);
        Normalize(Frame.Tangent);
        Normalize(Frame.Binormal);
        Normalize(Frame.TangentBinormalCross);
    }
    return true;
}

void AddAligned(real32 *Sum, real32 const *Vector)
{
    real32 Sign = Dot(Sum, Vector) >= 0.0f ? 1.0f : -1.0f;
    for (int32 Axis = 0; Axis < 3; ++Axis) Sum[Axis] += Sign * Vector[Axis];
}

// Vertices of one ring with the same normal whose tangents and binormals
// don't point apart share one frame: the sum of theirs, each vector turned to
// agree with the sum so far. Each ring is walked once from every member.
bool MergeCoincidentTangents(tangent_state &State)
{
    mesh_builder *Builder = State.Builder;
    int32 Count = GetResultingVertexCount(Builder);
    if (Count == 0) return true;
    tangent_frame *Result = TesselAllocateArray(tangent_frame, Count);
    if (!Result) return false;
    memset(Result, 0, sizeof(tangent_frame) * (size_t)Count);
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) {
        tangent_frame const &A = VertexFrame(Builder, Vertex);
        tangent_frame &Sum = Result[Vertex];
        int32 Other = Vertex;
        int32 Steps = Count;
        do {
            tangent_frame const &B = VertexFrame(Builder, Other);
            real32 Difference = 0.0f;
            for (int32 Axis = 0; Axis < 3; ++Axis)
                Difference += std::fabs(A.TangentBinormalCross[Axis] - B.TangentBinormalCross[Axis]);
            real32 TangentCosine = std::fabs(Dot(A.Tangent, B.Tangent));
            real32 BinormalCosine = std::fabs(Dot(A.Binormal, B.Binormal));
            real32 Smaller = TangentCosine < BinormalCosine ? TangentCosine : BinormalCosine;
            if (Difference < SameNormalLimit && Smaller > State.MinCosine) {
                AddAligned(Sum.Tangent, B.Tangent);
                AddAligned(Sum.Binormal, B.Binormal);
                AddAligned(Sum.TangentBinormalCross, B.TangentBinormalCross);
            }
            Other = StackInt(Builder->NextCoincidentVertex, Other);
        } while (Other != Vertex && Other >= 0 && --Steps > 0);
    }
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) VertexFrame(Builder, Vertex) = Result[Vertex];
    TesselFree(Result);
    return true;
}

// B and T again from T and C; T stays in the plane of T and B. A mirrored
// mapping (T, B, C left-handed) comes out right-handed, and the other way
// round: the binormal follows the stored V, which runs against the tool's.
void OrthonormalizeFrame(tangent_frame &Frame, bool Mirrored)
{
    real32 *T = Frame.Tangent, *B = Frame.Binormal, *C = Frame.TangentBinormalCross;
    if (Mirrored) {
        Cross(C, T, B);
        Cross(B, C, T);
    } else {
        Cross(T, C, B);
        Cross(C, B, T);
    }
}

// Around the normal. The handedness is that of the vertex's own triangles:
// the merged sum of skewed mappings (tangent and binormal far from a right
// angle) can have lost it.
bool OrthonormalizeVertexTangents(tangent_state &State)
{
    int32 Count = GetResultingVertexCount(State.Builder);
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) {
        tangent_frame &Frame = VertexFrame(State.Builder, Vertex);
        real32 *T = Frame.Tangent, *B = Frame.Binormal, *C = Frame.TangentBinormalCross;
        real32 Hand = State.Hand[Vertex];
        bool Mirrored = Hand < 0 || (Hand == 0 && Handedness(Frame) < 0.0f);
        OrthonormalizeFrame(Frame, Mirrored);
        if (Normalize(T) == 0.0f && Normalize(C) > 0.0f) {
            // Only triangles without area, or a tangent along the normal:
            // any direction in the tangent plane, unmirrored.
            int32 Axis = 0;
            for (int32 Other = 1; Other < 3; ++Other) {
                if (std::fabs(C[Other]) < std::fabs(C[Axis])) Axis = Other;
            }
            real32 Along = C[Axis];
            for (int32 Index = 0; Index < 3; ++Index) T[Index] = (Index == Axis ? 1.0f : 0.0f) - Along * C[Index];
            OrthonormalizeFrame(Frame, true);
        }
        Normalize(T);
        Normalize(B);
        Normalize(C);
    }
    return true;
}

} // namespace

bool BuildTangentFrames(mesh_builder *Builder)
{
    CheckPointer(Builder, LogCategory_Exporter, false);
    int32 Count = GetResultingVertexCount(Builder);
    int64 Capacity = (int64)Count + 3 * (int64)Builder->TriangleCount;
    if (Capacity > INT32_MAX) Capacity = INT32_MAX;
    tangent_state State = {};
    State.Builder = Builder;
    State.MinCosine = Builder->Tolerances[Tolerance_TangentMergingMinCosine];
    State.ReadingCapacity = (int32)Capacity;
    State.Readings = TesselAllocateArray(vertex_reading, Capacity > 0 ? Capacity : 1);
    State.Hand = TesselAllocateArray(real32, Capacity > 0 ? Capacity : 1);
    conversion_plan *Plan = NewConversionPlan(Builder->VertexType, ReadingType);
    bool Ok = State.Readings && State.Hand && Plan;
    if (State.Hand) memset(State.Hand, 0, sizeof(real32) * (size_t)(Capacity > 0 ? Capacity : 1));
    for (int32 Vertex = 0; Ok && Vertex < Count; ++Vertex) {
        ConvertWithPlan(Plan, GetStackUnit(Builder->VertexStack, Vertex), &State.Readings[Vertex], true);
    }
    Ok = Ok && BuildTriangleTangents(State) && InitVertexTangents(State) && AccumulateVertexTangents(State) &&
         SetCrossFromNormals(State) && NormalizeVertexTangents(State) && MergeCoincidentTangents(State) &&
         NormalizeVertexTangents(State) && SetCrossFromNormals(State) && OrthonormalizeVertexTangents(State);
    FreeConversionPlan(Plan);
    TesselFree(State.Readings);
    TesselFree(State.Hand);
    return Ok;
}
