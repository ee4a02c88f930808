// Mesh builder: weld, bone weights, material groups and side neighbours; the
// finishing operations on its results.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

#include "foundation/tessel_memory.h"
#include "geometry/tessel_mesh_builder.h"
#include "geometry/tessel_tri_topology.h"
#include "geometry/tessel_vertex_data.h"
#include "support/test_log_capture.h"

namespace {

#pragma pack(push, 4)
struct test_vertex
{
    real32 Position[3];
    uint8 BoneWeights[4];
    uint8 BoneIndices[4];
    real32 Normal[3];
    real32 TextureCoordinates0[2];
};
#pragma pack(pop)

data_type_definition TestVertexType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {NormalUInt8Member, "BoneWeights", 0, 4, {0, 0, 0}, 0},
    {UInt8Member, "BoneIndices", 0, 4, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

struct corner
{
    int32 Point;
    real32 Normal[3];
    real32 UV[2];
};

struct built_mesh
{
    std::vector<uint8> VertexMemory, TopologyMemory;
    vertex_data *Vertices = nullptr;
    tri_topology *Topology = nullptr;
    test_vertex const &Vertex(int32 Index) const { return ((test_vertex const *)Vertices->Vertices.Array)[Index]; }
};

// Ends the mesh into memory of its own and frees the builder.
built_mesh EndBuiltMesh(mesh_builder *Builder)
{
    built_mesh Result;
    Result.VertexMemory.resize(GetResultingVertexDataSize(Builder));
    Result.TopologyMemory.resize(GetResultingTopologySize(Builder));
    EndMesh(Builder, Result.VertexMemory.data(), Result.TopologyMemory.data(), &Result.Vertices, &Result.Topology);
    FreeBuilder(Builder);
    return Result;
}

// A quad of control points 0..3 in the XY plane; Bones holds the weights.
struct mesh_fixture
{
    mesh_builder *Builder;
    explicit mesh_fixture(int32 Points, int32 Triangles, int32 Materials = 1, int32 Bones = 1)
    {
        Builder = BeginMesh(Points, Triangles, Materials, Bones, TestVertexType);
    }
    void Point(real32 X, real32 Y, std::vector<std::pair<int32, real32>> Weights = {})
    {
        SetPosition(Builder, X, Y, 0);
        for (auto const &Weight : Weights) AddWeight(Builder, Weight.first, Weight.second);
        PushVertex(Builder);
    }
    void Triangle(corner const (&Corners)[3], int32 Material = 0)
    {
        for (int32 Index = 0; Index < 3; ++Index) {
            SetVertexIndex(Builder, Index, Corners[Index].Point);
            SetCornerNormal(Builder, Index, Corners[Index].Normal[0], Corners[Index].Normal[1],
                            Corners[Index].Normal[2]);
            real32 UV[4] = {Corners[Index].UV[0], Corners[Index].UV[1], 0, 0};
            SetCornerChannel(Builder, Index, 0, UV);
        }
        SetMaterial(Builder, Material);
        PushTriangle(Builder);
    }
    built_mesh End() { return EndBuiltMesh(Builder); }
};

corner Up(int32 Point, real32 U = 0, real32 V = 0)
{
    return {Point, {0, 0, 1}, {U, V}};
}

// Every side's neighbour shares its two end points (as canonical vertices).
void ExpectNeighborsShareEdges(tri_topology const *Topology, std::vector<int32> const &Canonical)
{
    int32 Triangles = Topology->IndexCount / 3;
    auto Edge = [&](int32 Side) {
        int32 Triangle = Side >> 2, Corner = Side & 3;
        int32 A = Canonical[Topology->Indices[Triangle * 3 + Corner]];
        int32 B = Canonical[Topology->Indices[Triangle * 3 + (Corner + 1) % 3]];
        return std::make_pair(std::min(A, B), std::max(A, B));
    };
    for (int32 Triangle = 0; Triangle < Triangles; ++Triangle) {
        for (int32 Corner = 0; Corner < 3; ++Corner) {
            int32 Neighbor = Topology->SideToNeighborMap[Triangle * 3 + Corner];
            ASSERT_LT(Neighbor >> 2, Triangles);
            EXPECT_EQ(Edge(Triangle * 4 + Corner), Edge(Neighbor)) << "side " << Triangle * 4 + Corner;
        }
    }
}

} // namespace

TEST(MeshBuilder, WeldsEqualCornersAndSplitsDifferentOnes)
{
    int32 Before = GetLiveBlockCount();
    mesh_fixture Mesh(5, 2);
    Mesh.Builder->Tolerances[Tolerance_Normal] = 0.25f;
    for (int32 Index = 0; Index < 4; ++Index) Mesh.Point((real32)(Index & 1), (real32)(Index >> 1));
    Mesh.Point(9, 9); // used by no triangle
    Mesh.Triangle({Up(0), Up(1), Up(2)});
    // Point 1: normal off by exactly the tolerance welds; point 2 gets another UV and splits.
    Mesh.Triangle({{1, {0, 0.25f, 1}, {0, 0}}, Up(3), Up(2, 0.5f, 0)});
    built_mesh Result = Mesh.End();
    EXPECT_EQ(Result.Vertices->Vertices.Count, 6);
    // Within a group the later triangle comes first.
    EXPECT_EQ(Result.Topology->Indices[0], 1); // welded despite the normal
    EXPECT_EQ(Result.Topology->Indices[2], 5); // split copy of point 2
    EXPECT_EQ(Result.Topology->Indices[5], 2);
    EXPECT_EQ(Result.Vertex(5).Position[0], 0.0f);
    EXPECT_EQ(Result.Vertex(5).Position[1], 1.0f);
    EXPECT_EQ(Result.Vertex(5).TextureCoordinates0[0], 0.5f);
    // Ring of point 2: 2 -> 5 -> 2; the unused point keeps -1 and zero normal.
    EXPECT_EQ(Result.Topology->VertexToVertexMap[2], 5);
    EXPECT_EQ(Result.Topology->VertexToVertexMap[5], 2);
    EXPECT_EQ(Result.Topology->VertexToVertexMap[4], -1);
    EXPECT_EQ(Result.Vertex(4).Normal[2], 0.0f);
    EXPECT_EQ(Result.Topology->VertexToTriangleMap[5], 1);
    EXPECT_EQ(GetLiveBlockCount(), Before);
}

TEST(MeshBuilder, BoneWeightsKeepTheStrongestAndSumToOne)
{
    mesh_fixture Mesh(4, 0, 1, 8);
    Mesh.Point(0, 0); // no weight: all on bone 0
    Mesh.Point(1, 0, {{0, 1}, {1, 1}, {2, 1}, {3, 1}, {4, 1}, {5, 1}, {6, 1}, {7, 1}});
    Mesh.Point(2, 0, {{5, 0.1f}, {2, 0.6f}, {5, 0.1f}, {7, 0.2f}}); // repeated bones sum up
    Mesh.Point(3, 0, {{1, 0.3f}, {2, 0.3f}, {3, 0.3f}});
    built_mesh Result = Mesh.End();
    test_vertex const &None = Result.Vertex(0);
    EXPECT_EQ(None.BoneWeights[0], 255);
    EXPECT_EQ(None.BoneIndices[0], 0);
    test_vertex const &Equal = Result.Vertex(1);
    for (int32 Slot = 0; Slot < 4; ++Slot) EXPECT_EQ(Equal.BoneIndices[Slot], Slot);
    test_vertex const &Mixed = Result.Vertex(2);
    EXPECT_EQ(Mixed.BoneIndices[0], 2);
    EXPECT_EQ(Mixed.BoneIndices[1], 5);
    EXPECT_EQ(Mixed.BoneIndices[2], 7);
    EXPECT_EQ(Mixed.BoneIndices[3], 2); // zero weight takes the first bone
    for (int32 Index = 0; Index < 4; ++Index) {
        test_vertex const &Vertex = Result.Vertex(Index);
        EXPECT_EQ(Vertex.BoneWeights[0] + Vertex.BoneWeights[1] + Vertex.BoneWeights[2] + Vertex.BoneWeights[3], 255)
            << "vertex " << Index;
    }
}

TEST(MeshBuilder, GroupsByMaterialAndNeighbourRings)
{
    // Three triangles on the edge 0-1 (a fin), one on its own, material 1 empty.
    mesh_fixture Mesh(6, 4, 3);
    for (int32 Index = 0; Index < 6; ++Index) Mesh.Point((real32)Index, (real32)(Index * Index));
    Mesh.Triangle({Up(0), Up(1), Up(2)}, 2);
    Mesh.Triangle({Up(1), Up(0), Up(3)}, 0);
    Mesh.Triangle({Up(0), Up(1), Up(4)}, 2);
    Mesh.Triangle({Up(3), Up(4), Up(5)}, 0);
    built_mesh Result = Mesh.End();
    tri_topology const *Topology = Result.Topology;
    ASSERT_EQ(Topology->GroupCount, 2);
    EXPECT_EQ(Topology->Groups[0].MaterialIndex, 0);
    EXPECT_EQ(Topology->Groups[1].MaterialIndex, 2);
    EXPECT_EQ(Topology->Groups[1].TriFirst, 2);
    EXPECT_EQ(Topology->Groups[1].TriCount, 2);
    EXPECT_EQ(Topology->Indices[0], 3); // the later triangle of material 0 comes first
    std::vector<int32> Canonical = {0, 1, 2, 3, 4, 5};
    ExpectNeighborsShareEdges(Topology, Canonical);
    // The fin's three sides on edge 0-1 form a ring of three.
    std::set<int32> Ring;
    int32 Side = 1 * 4 + 0; // output triangle 1 is (1,0,3): side 0 is edge 1-0
    for (int32 Step = 0; Step < 3; ++Step) {
        Ring.insert(Side);
        Side = Topology->SideToNeighborMap[(Side >> 2) * 3 + (Side & 3)];
    }
    EXPECT_EQ(Ring.size(), 3u);
    EXPECT_EQ(Side, 4);
    // An open edge points at itself: triangle 0 (3,4,5) side 1 is edge 4-5.
    EXPECT_EQ(Topology->SideToNeighborMap[1], 1);

    // Reversing the winding keeps the map true.
    InvertTriTopologyWinding(Result.Topology);
    EXPECT_EQ(Topology->Indices[0], 5);
    ExpectNeighborsShareEdges(Topology, Canonical);
}

TEST(MeshFinishing, ExactOneNormAndIndexWidths)
{
    log_capture Log;
    data_type_definition Weights = {NormalUInt8Member, "BoneWeights", 0, 4, {0, 0, 0}, 0};
    uint8 Over[4] = {100, 100, 100, 0};
    EnsureExactOneNorm(Weights, Over);
    EXPECT_EQ(std::vector<int>(Over, Over + 4), (std::vector<int>{85, 85, 85, 0}));
    uint8 ByOne[4] = {100, 100, 56, 0};
    EnsureExactOneNorm(Weights, ByOne);
    EXPECT_EQ(ByOne[2], 55); // the weakest non-zero weight pays first
    uint8 Short[4] = {200, 50, 0, 0};
    EnsureExactOneNorm(Weights, Short);
    // A shortfall of 5 is handed out one unit a slot, strongest first.
    EXPECT_EQ(std::vector<int>(Short, Short + 4), (std::vector<int>{202, 51, 1, 1}));
    uint8 Exact[4] = {255, 0, 0, 0};
    EnsureExactOneNorm(Weights, Exact);
    EXPECT_EQ(Exact[0], 255);
    data_type_definition Unsupported = {Int32Member, "BoneWeights", 0, 4, {0, 0, 0}, 0};
    EnsureExactOneNorm(Unsupported, Exact);
    EXPECT_TRUE(Log.Contains("EnsureExactOneNorm called on unsupported type 19"));

    int32 Wide[4] = {1, 65535, 65536 + 7, 3};
    uint16 Narrow[4];
    ConvertIndices(4, 4, Wide, 2, Narrow);
    EXPECT_EQ(Narrow[1], 65535);
    EXPECT_EQ(Narrow[2], 7); // silently cut: the caller checks the range
    int32 Back[4];
    ConvertIndices(4, 2, Narrow, 4, Back);
    EXPECT_EQ(Back[1], 65535);
    ConvertIndices(4, 3, Wide, 2, Narrow);
    EXPECT_TRUE(Log.Contains("Illegal value for FromBytesPerIndex (3)"));

    tri_topology Topology = {};
    int32 Indices[5] = {0, 1, 2, 3, 4};
    Topology.IndexCount = 5;
    Topology.Indices = Indices;
    InvertTriTopologyWinding(&Topology);
    EXPECT_EQ(std::vector<int>(Indices, Indices + 5), (std::vector<int>{2, 1, 0, 3, 4}));
}

TEST(MeshBuilder, NeighbourRingsFollowTriangleOrderAroundBusyPoints)
{
    // A fan of 48 triangles around point 0 (more sides on one point than
    // the short scan handles), every spoke shared, plus a fin of three on
    // the spoke 0-1 and UV seams that split points.
    int32 const Spokes = 48;
    mesh_fixture Mesh(Spokes + 2, Spokes + 2);
    for (int32 Index = 0; Index <= Spokes + 1; ++Index) Mesh.Point((real32)Index, (real32)(Index % 7));
    for (int32 Spoke = 1; Spoke <= Spokes; ++Spoke) {
        int32 Next = Spoke % Spokes + 1;
        Mesh.Triangle({Up(0), Up(Spoke, (real32)(Spoke % 5)), Up(Next)}, Spoke % 2);
    }
    Mesh.Triangle({Up(1), Up(0), Up(Spokes + 1)});
    Mesh.Triangle({Up(0), Up(1), Up(Spokes + 1, 0.5f)});
    built_mesh Result = Mesh.End();
    tri_topology const *Topology = Result.Topology;
    int32 Triangles = Topology->IndexCount / 3;
    ASSERT_EQ(Triangles, Spokes + 2);
    // Canonical points: output vertices in the same place are one point.
    std::vector<int32> Canonical(Result.Vertices->Vertices.Count);
    for (size_t Vertex = 0; Vertex < Canonical.size(); ++Vertex) {
        Canonical[Vertex] = (int32)Result.Vertex((int32)Vertex).Position[0];
    }
    ExpectNeighborsShareEdges(Topology, Canonical);
    // Reference: the next side on the same edge in output order, wrapping.
    auto Edge = [&](int32 Index) {
        int32 A = Canonical[Topology->Indices[Index]];
        int32 B = Canonical[Topology->Indices[(Index / 3) * 3 + (Index % 3 + 1) % 3]];
        return std::make_pair(std::min(A, B), std::max(A, B));
    };
    for (int32 Index = 0; Index < Triangles * 3; ++Index) {
        int32 Expected = -1;
        for (int32 Step = 1; Step <= Triangles * 3 && Expected < 0; ++Step) {
            int32 Other = (Index + Step) % (Triangles * 3);
            if (Edge(Other) == Edge(Index)) Expected = (Other / 3) * 4 + Other % 3;
        }
        EXPECT_EQ(Topology->SideToNeighborMap[Index], Expected) << "side " << Index;
    }
}

TEST(MeshBuilder, LayoutWithoutBoneWeightsWelds)
{
    data_type_definition Plain[] = {
        {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
        {EndMember, 0, 0, 0, {0, 0, 0}, 0},
    };
    mesh_builder *Builder = BeginMesh(3, 1, 1, 0, Plain);
    ASSERT_NE(Builder, nullptr);
    for (int32 Point = 0; Point < 3; ++Point) {
        SetPosition(Builder, (real32)Point, 1, 2);
        PushVertex(Builder);
    }
    for (int32 Corner = 0; Corner < 3; ++Corner) {
        SetVertexIndex(Builder, Corner, Corner);
        SetCornerNormal(Builder, Corner, 0, 0, 1);
    }
    PushTriangle(Builder);
    built_mesh Mesh = EndBuiltMesh(Builder);
    ASSERT_NE(Mesh.Vertices, nullptr);
    EXPECT_EQ(Mesh.Vertices->Vertices.Count, 3);
    real32 const *Second = (real32 const *)((uint8 const *)Mesh.Vertices->Vertices.Array + 24);
    EXPECT_EQ(std::vector<real32>(Second, Second + 6), (std::vector<real32>{1, 1, 2, 0, 0, 1}));
}

// A random mesh with frames and three channels of different widths welds as
// the rule says: a corner takes the first vertex of its control point (in
// the order they were made) within every tolerance, else a new one. The
// second layout repeats "Normal", so its values take the general conversion
// path; both must weld alike and store the corner's values.
TEST(MeshBuilder, RandomCornersWeldToTheFirstVertexWithinTolerance)
{
    data_type_definition Direct[] = {
        {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
        {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
        {Real32Member, "Color0", 0, 4, {0, 0, 0}, 0},
        {Real32Member, "TextureCoordinates1", 0, 3, {0, 0, 0}, 0},
        {EndMember, 0, 0, 0, {0, 0, 0}, 0},
    };
    data_type_definition General[9];
    std::copy(Direct, Direct + 7, General);
    General[7] = {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0};
    General[8] = Direct[7];
    int32 const Points = 40, Triangles = 400;
    uint32 Seed = 12345;
    auto Next = [&] { return (Seed = Seed * 1664525u + 1013904223u) >> 8; };
    // Each corner's 3 x 3 frame reals and 3 x 4 channel reals: one of a few
    // values per control point, sometimes nudged within the tolerance.
    std::vector<std::vector<real32>> Values(Triangles * 3, std::vector<real32>(21));
    std::vector<int32> CornerPoint(Triangles * 3);
    for (int32 Corner = 0; Corner < Triangles * 3; ++Corner) {
        CornerPoint[Corner] = (int32)(Next() % Points);
        for (int32 Index = 0; Index < 21; ++Index) {
            real32 Value = (real32)(Next() % 3) * 0.25f + (real32)CornerPoint[Corner] * 0.01f;
            if (Next() % 4 == 0) Value += 0.0003f;
            Values[Corner][Index] = Next() % 3 == 0 ? Value : (real32)CornerPoint[Corner] * 0.01f;
        }
    }
    // The expected indices and vertex values: groups are Normal, Tangent,
    // Binormal (3 reals), then channels of 2, 4 and 3 shared reals.
    int32 const GroupStart[6] = {0, 3, 6, 9, 13, 17}, GroupCount[6] = {3, 3, 3, 2, 4, 3};
    std::vector<std::vector<int32>> Made(Points);
    std::vector<int32> Expected;
    std::vector<int32> MadeFrom; // corner of each vertex past the control points
    auto Near = [&](int32 A, int32 B) {
        for (int32 Group = 0; Group < 6; ++Group) {
            real32 Sum = 0;
            for (int32 Index = 0; Index < GroupCount[Group]; ++Index) {
                real32 Difference = Values[A][GroupStart[Group] + Index] - Values[B][GroupStart[Group] + Index];
                Sum += Difference * Difference;
            }
            if (!(0.001f * 0.001f >= Sum)) return false;
        }
        return true;
    };
    std::vector<int32> FirstCornerOf(Points, -1);
    for (int32 Corner = 0; Corner < Triangles * 3; ++Corner) {
        int32 Point = CornerPoint[Corner], Found = -1;
        for (int32 Vertex : Made[Point]) {
            int32 From = Vertex < Points ? FirstCornerOf[Point] : MadeFrom[Vertex - Points];
            if (Near(Corner, From)) {
                Found = Vertex;
                break;
            }
        }
        if (Found < 0) {
            Found = Made[Point].empty() ? Point : Points + (int32)MadeFrom.size();
            if (Found == Point)
                FirstCornerOf[Point] = Corner;
            else
                MadeFrom.push_back(Corner);
            Made[Point].push_back(Found);
        }
        Expected.push_back(Found);
    }
    for (data_type_definition const *Layout : {Direct, General}) {
        SCOPED_TRACE(Layout == Direct ? "direct" : "general");
        mesh_builder *Builder = BeginMesh(Points, Triangles, 1, 0, Layout);
        ASSERT_NE(Builder, nullptr);
        for (int32 Point = 0; Point < Points; ++Point) {
            SetPosition(Builder, (real32)Point, 0, 0);
            PushVertex(Builder);
        }
        for (int32 Triangle = 0; Triangle < Triangles; ++Triangle) {
            for (int32 Slot = 0; Slot < 3; ++Slot) {
                std::vector<real32> const &V = Values[Triangle * 3 + Slot];
                SetVertexIndex(Builder, Slot, CornerPoint[Triangle * 3 + Slot]);
                SetCornerNormal(Builder, Slot, V[0], V[1], V[2]);
                SetCornerTangent(Builder, Slot, V[3], V[4], V[5]);
                SetCornerBinormal(Builder, Slot, V[6], V[7], V[8]);
                real32 UV0[4] = {V[9], V[10], 7, 7}, Color[4] = {V[13], V[14], V[15], V[16]},
                       UV1[4] = {V[17], V[18], V[19], 7};
                SetCornerChannel(Builder, Slot, 0, UV0);
                SetCornerChannel(Builder, Slot, 1, Color);
                SetCornerChannel(Builder, Slot, 2, UV1);
            }
            PushTriangle(Builder);
        }
        built_mesh Mesh = EndBuiltMesh(Builder);
        vertex_data const *Vertices = Mesh.Vertices;
        tri_topology const *Topology = Mesh.Topology;
        ASSERT_NE(Vertices, nullptr);
        ASSERT_EQ(Vertices->Vertices.Count, Points + (int32)MadeFrom.size());
        std::vector<int32> Indices; // a material's triangles come out last pushed first
        for (int32 Triangle = Triangles - 1; Triangle >= 0; --Triangle)
            Indices.insert(Indices.end(), Topology->Indices + Triangle * 3, Topology->Indices + Triangle * 3 + 3);
        EXPECT_EQ(Indices, Expected);
        int32 Size = GetTotalObjectSize(Layout);
        for (int32 Vertex = 0; Vertex < Vertices->Vertices.Count; ++Vertex) {
            int32 From = Vertex < Points ? FirstCornerOf[Vertex] : MadeFrom[Vertex - Points];
            if (From < 0) continue;
            real32 const *Stored = (real32 const *)((uint8 const *)Vertices->Vertices.Array + Vertex * Size);
            std::vector<real32> Wanted(Values[From].begin(), Values[From].begin() + 11); // frames, UV0
            Wanted.insert(Wanted.end(), Values[From].begin() + 13, Values[From].begin() + 20);
            EXPECT_EQ(std::vector<real32>(Stored + 3, Stored + 21), Wanted) << "vertex " << Vertex;
            if (Layout == General)
                EXPECT_EQ(std::vector<real32>(Stored + 21, Stored + 24), std::vector<real32>(Stored + 3, Stored + 6));
        }
    }
}
