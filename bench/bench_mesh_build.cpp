// Mesh builder throughput: a generated grid of N x N quads, smooth normals and
// a UV seam every 16 columns (so some control points split), pushed through
// the weld. Prints welded corners and output vertices per second and the peak
// of the tracked heap, at two sizes ten times apart to show the scaling.
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <unordered_map>

#include "foundation/tessel_memory.h"
#include "geometry/tessel_mesh_builder.h"

namespace {

data_type_definition BenchVertexType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {NormalUInt8Member, "BoneWeights", 0, 4, {0, 0, 0}, 0},
    {UInt8Member, "BoneIndices", 0, 4, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

// The same with a tangent frame, for the run with tangents on.
data_type_definition BenchTangentVertexType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {NormalUInt8Member, "BoneWeights", 0, 4, {0, 0, 0}, 0},
    {UInt8Member, "BoneIndices", 0, 4, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};
bool WithTangents = false;

std::unordered_map<void *, intaddrx> *Sizes;
intaddrx PeakBytes = 0;
intaddrx LiveBytes = 0;

void *CountingAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size)
{
    void *Memory = TrackingAllocate(File, Line, Alignment, Size);
    if (Memory) {
        (*Sizes)[Memory] = Size;
        LiveBytes += Size;
        if (LiveBytes > PeakBytes) PeakBytes = LiveBytes;
    }
    return Memory;
}

void CountingFree(char const *File, int32 Line, void *Memory)
{
    if (!Memory) return;
    auto Found = Sizes->find(Memory);
    if (Found != Sizes->end()) {
        LiveBytes -= Found->second;
        Sizes->erase(Found);
    }
    TrackingFree(File, Line, Memory);
}

struct run_result
{
    double Seconds;
    int32 Corners;
    int32 Vertices;
    intaddrx Peak;
};

run_result Run(int32 Side)
{
    int32 Points = (Side + 1) * (Side + 1);
    int32 Triangles = Side * Side * 2;
    PeakBytes = LiveBytes = 0;
    std::clock_t Start = std::clock();
    mesh_builder *Builder = BeginMesh(Points, Triangles, 2, 4, WithTangents ? BenchTangentVertexType : BenchVertexType);
    if (!Builder) {
        fprintf(stderr, "BeginMesh failed\n");
        exit(1);
    }
    for (int32 Y = 0; Y <= Side; ++Y) {
        for (int32 X = 0; X <= Side; ++X) {
            SetPosition(Builder, (real32)X, (real32)Y, std::sin(X * 0.1f) * std::cos(Y * 0.1f));
            AddWeight(Builder, X % 4, 0.75f);
            AddWeight(Builder, (X + 1) % 4, 0.25f);
            PushVertex(Builder);
        }
    }
    auto Corner = [&](int32 Slot, int32 X, int32 Y, int32 Quad) {
        SetVertexIndex(Builder, Slot, Y * (Side + 1) + X);
        real32 NX = -0.1f * std::cos(X * 0.1f), NY = 0.1f * std::sin(Y * 0.1f);
        SetCornerNormal(Builder, Slot, NX, NY, 1.0f);
        // Each 16-column strip has its own UV island: the shared column splits.
        real32 UV[4] = {(real32)(X - (Quad / 16) * 16) / 16.0f, (real32)Y / Side, 0, 0};
        SetCornerChannel(Builder, Slot, 0, UV);
    };
    for (int32 Y = 0; Y < Side; ++Y) {
        for (int32 X = 0; X < Side; ++X) {
            Corner(0, X, Y, X);
            Corner(1, X + 1, Y, X);
            Corner(2, X + 1, Y + 1, X);
            SetMaterial(Builder, (X / 64) & 1);
            PushTriangle(Builder);
            Corner(0, X, Y, X);
            Corner(1, X + 1, Y + 1, X);
            Corner(2, X, Y + 1, X);
            SetMaterial(Builder, (X / 64) & 1);
            PushTriangle(Builder);
        }
    }
    if (WithTangents) {
        SetTangentMergingTolerance(Builder, std::cos(75.0f * 3.14159265f / 180.0f));
        BuildTangentSpace(Builder);
    }
    int32 VertexSize = GetResultingVertexDataSize(Builder);
    int32 TopologySize = GetResultingTopologySize(Builder);
    void *VertexMemory = TesselAllocate(VertexSize);
    void *TopologyMemory = TesselAllocate(TopologySize);
    vertex_data *Vertices = 0;
    tri_topology *Topology = 0;
    EndMesh(Builder, VertexMemory, TopologyMemory, &Vertices, &Topology);
    run_result Result = {0, Triangles * 3, Vertices ? Vertices->Vertices.Count : 0, PeakBytes};
    FreeBuilder(Builder);
    TesselFree(VertexMemory);
    TesselFree(TopologyMemory);
    Result.Seconds = (double)(std::clock() - Start) / CLOCKS_PER_SEC; // processor time: fair on a busy machine
    return Result;
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    std::unordered_map<void *, intaddrx> SizeTable;
    Sizes = &SizeTable;
    AllocateHook = CountingAllocate;
    FreeHook = CountingFree;
    int32 LargeSide = ArgumentCount > 1 ? atoi(Arguments[1]) : 724; // 724^2 * 2 = 1.05 million triangles
    int32 SmallSide = (int32)(LargeSide / std::sqrt(10.0));
    printf("mesh builder weld benchmark\n");
    printf("%12s %12s %12s %10s %14s %14s %12s\n", "triangles", "corners", "vertices", "cpu s", "corners/s",
           "vertices/s", "peak MiB");
    run_result Results[2];
    int32 Sides[2] = {SmallSide, LargeSide};
    for (int32 Index = 0; Index < 2; ++Index) {
        run_result R = Results[Index] = Run(Sides[Index]);
        printf("%12d %12d %12d %10.3f %14.0f %14.0f %12.1f\n", R.Corners / 3, R.Corners, R.Vertices, R.Seconds,
               R.Corners / R.Seconds, R.Vertices / R.Seconds, R.Peak / (1024.0 * 1024.0));
    }
    double SizeRatio = (double)Results[1].Corners / Results[0].Corners;
    double TimeRatio = Results[1].Seconds / Results[0].Seconds;
    printf("size ratio %.2f, time ratio %.2f (linear scaling gives equal ratios)\n", SizeRatio, TimeRatio);

    // The cost of tangent frames: the large mesh again with tangents and
    // binormals, against the run above without them.
    WithTangents = true;
    run_result Framed = Run(LargeSide);
    printf("with tangent frames: %d vertices, %.3f cpu s, %.0f vertices/s (without: %.0f vertices/s, %.2fx the "
           "time)\n",
           Framed.Vertices, Framed.Seconds, Framed.Vertices / Framed.Seconds, Results[1].Vertices / Results[1].Seconds,
           Framed.Seconds / Results[1].Seconds);
    return 0;
}
