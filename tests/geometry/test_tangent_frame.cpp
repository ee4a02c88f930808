// Tangent frames of the mesh builder: frames of simple surfaces, vertex
// splits for mirrored mappings and diverging tangents, degenerate triangles
// and meshes without texture coordinates.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <vector>

#include "foundation/tessel_memory.h"
#include "geometry/tessel_mesh_builder.h"
#include "support/test_log_capture.h"

namespace {

#pragma pack(push, 4)
struct frame_vertex
{
    real32 Position[3];
    real32 Normal[3];
    real32 Tangent[3];
    real32 Binormal[3];
    real32 TangentBinormalCross[3];
    real32 TextureCoordinates0[2];
};
#pragma pack(pop)

data_type_definition FrameVertexType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TangentBinormalCross", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

// The same without texture coordinates: read back through the first type's
// leading members.
data_type_definition NoCoordinatesType[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Tangent", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "Binormal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TangentBinormalCross", 0, 3, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

struct test_corner
{
    int32 Point;
    real32 Normal[3];
    real32 UV[2];
};

struct test_mesh
{
    std::vector<std::vector<real32>> Points;
    std::vector<std::array<test_corner, 3>> Triangles;
};

struct frame_result
{
    std::vector<uint8> VertexMemory, TopologyMemory;
    vertex_data *Vertices = nullptr;
    tri_topology *Topology = nullptr;
    int32 Count() const { return Vertices ? Vertices->Vertices.Count : 0; }
    frame_vertex const &Vertex(int32 Index) const { return ((frame_vertex const *)Vertices->Vertices.Array)[Index]; }
    frame_vertex const &Corner(int32 Triangle, int32 Corner) const
    {
        return Vertex(Topology->Indices[3 * Triangle + Corner]);
    }
};

// Tolerance in degrees; negative: no tangent frames at all. Passes: how
// often the frames are asked for.
frame_result Build(test_mesh const &Mesh, real32 Degrees = 75, data_type_definition *Type = FrameVertexType,
                   int Passes = 1)
{
    int32 Triangles = (int32)Mesh.Triangles.size();
    mesh_builder *Builder = BeginMesh((int32)Mesh.Points.size(), Triangles, 1, 0, Type);
    for (std::vector<real32> const &Point : Mesh.Points) {
        SetPosition(Builder, Point[0], Point[1], Point[2]);
        PushVertex(Builder);
    }
    for (auto const &Triangle : Mesh.Triangles) {
        for (int32 Index = 0; Index < 3; ++Index) {
            test_corner const &Corner = Triangle[Index];
            SetVertexIndex(Builder, Index, Corner.Point);
            SetCornerNormal(Builder, Index, Corner.Normal[0], Corner.Normal[1], Corner.Normal[2]);
            real32 UV[4] = {Corner.UV[0], Corner.UV[1], 0, 0};
            if (Type == FrameVertexType) SetCornerChannel(Builder, Index, 0, UV);
        }
        SetMaterial(Builder, 0);
        PushTriangle(Builder);
    }
    if (Degrees >= 0) {
        SetTangentMergingTolerance(Builder, std::cos(Degrees * 3.14159265f / 180.0f));
        for (int Pass = 0; Pass < Passes; ++Pass) BuildTangentSpace(Builder);
    }
    frame_result Result;
    Result.VertexMemory.resize(GetResultingVertexDataSize(Builder));
    Result.TopologyMemory.resize(GetResultingTopologySize(Builder));
    EndMesh(Builder, Result.VertexMemory.data(), Result.TopologyMemory.data(), &Result.Vertices, &Result.Topology);
    FreeBuilder(Builder);
    return Result;
}

double Dot(real32 const *A, real32 const *B)
{
    return (double)A[0] * B[0] + (double)A[1] * B[1] + (double)A[2] * B[2];
}

double Handedness(frame_vertex const &V)
{
    real32 const *T = V.Tangent, *B = V.Binormal;
    real32 Cross[3] = {T[1] * B[2] - T[2] * B[1], T[2] * B[0] - T[0] * B[2], T[0] * B[1] - T[1] * B[0]};
    return Dot(Cross, V.TangentBinormalCross);
}

// Unit tangent, binormal and cross, pairwise orthogonal, cross along the
// vertex normal.
void ExpectOrthonormal(frame_vertex const &V)
{
    EXPECT_NEAR(Dot(V.Tangent, V.Tangent), 1.0, 1e-4);
    EXPECT_NEAR(Dot(V.Binormal, V.Binormal), 1.0, 1e-4);
    EXPECT_NEAR(Dot(V.TangentBinormalCross, V.TangentBinormalCross), 1.0, 1e-4);
    EXPECT_NEAR(Dot(V.Tangent, V.Binormal), 0.0, 1e-4);
    EXPECT_NEAR(Dot(V.Tangent, V.TangentBinormalCross), 0.0, 1e-4);
    EXPECT_NEAR(Dot(V.Binormal, V.TangentBinormalCross), 0.0, 1e-4);
    double NormalLength = std::sqrt(Dot(V.Normal, V.Normal));
    EXPECT_NEAR(Dot(V.Normal, V.TangentBinormalCross), NormalLength, 1e-4 * NormalLength);
}

// Two quads side by side in the XY plane, normal +Z (times Scale). The right
// quad's U runs back from the shared column (a mirrored island) when
// Mirrored, else on to 2.
test_mesh TwoQuads(bool Mirrored, real32 Scale = 1)
{
    test_mesh Mesh;
    for (int32 Y = 0; Y < 2; ++Y)
        for (int32 X = 0; X < 3; ++X) Mesh.Points.push_back({(real32)X, (real32)Y, 0});
    auto C = [&](int32 X, int32 Y) {
        real32 U = X <= 1 ? (real32)X : (Mirrored ? 2.0f - X : (real32)X);
        return test_corner{Y * 3 + X, {0, 0, Scale}, {U, (real32)Y}};
    };
    for (int32 X = 0; X < 2; ++X) {
        Mesh.Triangles.push_back({C(X, 0), C(X + 1, 0), C(X + 1, 1)});
        Mesh.Triangles.push_back({C(X, 0), C(X + 1, 1), C(X, 1)});
    }
    return Mesh;
}

// A closed cylinder of Segments around Z, U once around (the weld splits
// the column where U jumps from 1 back to 0), smooth normals.
test_mesh Cylinder(int32 Segments)
{
    test_mesh Mesh;
    for (int32 Ring = 0; Ring < 2; ++Ring)
        for (int32 S = 0; S < Segments; ++S) {
            real32 Angle = 6.2831853f * S / Segments;
            Mesh.Points.push_back({std::cos(Angle), std::sin(Angle), (real32)Ring});
        }
    auto C = [&](int32 S, int32 Ring) {
        real32 Angle = 6.2831853f * S / Segments;
        return test_corner{
            Ring * Segments + S % Segments, {std::cos(Angle), std::sin(Angle), 0}, {(real32)S / Segments, 1.0f - Ring}};
    };
    for (int32 S = 0; S < Segments; ++S) {
        Mesh.Triangles.push_back({C(S, 0), C(S + 1, 0), C(S + 1, 1)});
        Mesh.Triangles.push_back({C(S, 0), C(S + 1, 1), C(S, 1)});
    }
    return Mesh;
}

} // namespace

TEST(TangentFrames, FollowTheMappingAndStayOrthonormal)
{
    int32 Before = GetLiveBlockCount();
    // Normals of length 100 (scaled geometry) give the same unit frames.
    for (real32 Scale : {1.0f, 100.0f}) {
        log_capture Log;
        frame_result Result = Build(TwoQuads(false, Scale));
        EXPECT_FALSE(Log.Contains("tangent space"));
        ASSERT_EQ(Result.Count(), 6);
        for (int32 V = 0; V < Result.Count(); ++V) {
            frame_vertex const &Vertex = Result.Vertex(V);
            ExpectOrthonormal(Vertex);
            // Tangent along U (+X), binormal along the stored V (+Y).
            EXPECT_NEAR(Vertex.Tangent[0], 1.0, 1e-5);
            EXPECT_NEAR(Vertex.Binormal[1], 1.0, 1e-5);
            EXPECT_GT(Handedness(Vertex), 0.0);
        }
    }
    // A cylinder: tangent around, binormal against Z (V falls with height),
    // and no vertex split beyond the weld's UV seam.
    frame_result Plain = Build(Cylinder(12), -1);
    frame_result Framed = Build(Cylinder(12));
    EXPECT_EQ(Framed.Count(), Plain.Count());
    EXPECT_EQ(Framed.Count(), 2 * 12 + 2);
    for (int32 V = 0; V < Framed.Count(); ++V) {
        frame_vertex const &Vertex = Framed.Vertex(V);
        ExpectOrthonormal(Vertex);
        real32 Around[3] = {-Vertex.Position[1], Vertex.Position[0], 0};
        EXPECT_NEAR(Dot(Vertex.Tangent, Around), 1.0, 1e-4);
        EXPECT_NEAR(Vertex.Binormal[2], -1.0, 1e-4);
    }
    EXPECT_EQ(GetLiveBlockCount(), Before);
}

TEST(TangentFrames, MirroredIslandSplitsItsSeam)
{
    frame_result Plain = Build(TwoQuads(true), -1);
    ASSERT_EQ(Plain.Count(), 6); // the weld sees equal positions, normals and UVs
    // Even with the widest tolerance the handedness splits the shared column.
    for (real32 Degrees : {75.0f, 180.0f}) {
        frame_result Result = Build(TwoQuads(true), Degrees);
        ASSERT_EQ(Result.Count(), 8);
        for (int32 Triangle = 0; Triangle < 4; ++Triangle) {
            // Triangles 0, 1 are the right quad (groups list the last first).
            bool Right = Triangle < 2;
            for (int32 Corner = 0; Corner < 3; ++Corner) {
                frame_vertex const &Vertex = Result.Corner(Triangle, Corner);
                ExpectOrthonormal(Vertex);
                EXPECT_EQ(Handedness(Vertex) < 0, Right);
                EXPECT_NEAR(Vertex.Tangent[0], Right ? -1.0 : 1.0, 1e-5);
            }
        }
        // The split copies stay in their control point's ring.
        for (int32 V = 6; V < 8; ++V) {
            int32 Next = Result.Topology->VertexToVertexMap[V];
            EXPECT_TRUE(Next == 1 || Next == 4) << V;
            EXPECT_GE(Result.Topology->VertexToTriangleMap[V], 0);
        }
    }
}

TEST(TangentFrames, MergingToleranceDecidesSplits)
{
    // Two triangles on points 0 and 2 with the same coordinates there; the
    // second one's U runs along (1, 5): 79 degrees from the first one's.
    test_mesh Mesh;
    Mesh.Points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {-1, 0, 0}};
    Mesh.Triangles.push_back({test_corner{0, {0, 0, 1}, {0, 0}}, {1, {0, 0, 1}, {1, 0}}, {2, {0, 0, 1}, {0, 1}}});
    Mesh.Triangles.push_back({test_corner{0, {0, 0, 1}, {0, 0}}, {2, {0, 0, 1}, {0, 1}}, {3, {0, 0, 1}, {-1, 5}}});
    EXPECT_EQ(Build(Mesh, -1).Count(), 4);
    EXPECT_EQ(Build(Mesh, 75).Count(), 6);  // 90 degrees apart: points 0 and 2 split
    EXPECT_EQ(Build(Mesh, 180).Count(), 4); // only handedness splits
    frame_result Merged = Build(Mesh, 180);
    for (int32 V = 0; V < 4; ++V) ExpectOrthonormal(Merged.Vertex(V));
    // At 0 degrees the limit is inclusive: even equal frames don't share.
    EXPECT_EQ(Build(Mesh, 0).Count(), 6);
    EXPECT_EQ(Build(TwoQuads(false), 0).Count(), 12);
}

TEST(TangentFrames, DegenerateTrianglesAndUnusedVertices)
{
    log_capture Log;
    test_mesh Mesh = TwoQuads(false);
    // All UVs equal: a frame from the geometry, in the triangle's plane.
    Mesh.Points.push_back({5, 5, 0});
    Mesh.Points.push_back({6, 5, 0});
    Mesh.Points.push_back({5, 6, 0});
    Mesh.Triangles.push_back({test_corner{6, {0, 0, 1}, {3, 3}}, {7, {0, 0, 1}, {3, 3}}, {8, {0, 0, 1}, {3, 3}}});
    // No area: it neither contributes nor splits the quad's corners.
    Mesh.Triangles.push_back({test_corner{0, {0, 0, 1}, {0, 0}}, {0, {0, 0, 1}, {0, 0}}, {1, {0, 0, 1}, {1, 0}}});
    // A point no triangle uses.
    Mesh.Points.push_back({9, 9, 9});
    frame_result Result = Build(Mesh);
    EXPECT_FALSE(Log.Contains("no usable texture coordinates"));
    ASSERT_EQ(Result.Count(), 10);
    for (int32 V = 0; V < 9; ++V) {
        ExpectOrthonormal(Result.Vertex(V));
        EXPECT_NEAR(Result.Vertex(V).Tangent[2], 0.0, 1e-6);
    }
    frame_vertex const &Unused = Result.Vertex(9);
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        EXPECT_EQ(Unused.Tangent[Axis], 0.0f);
        EXPECT_EQ(Unused.Binormal[Axis], 0.0f);
    }
    EXPECT_EQ(Result.Topology->VertexToVertexMap[9], -1);
}

TEST(TangentFrames, WithoutTextureCoordinatesWarnsAndFallsBack)
{
    for (data_type_definition *Type : {NoCoordinatesType, FrameVertexType}) {
        log_capture Log;
        // Without a channel, or with every coordinate equal (dummy channels).
        test_mesh Mesh = Cylinder(8);
        for (auto &Triangle : Mesh.Triangles)
            for (test_corner &Corner : Triangle) Corner.UV[0] = Corner.UV[1] = 0.5f;
        frame_result Result = Build(Mesh, 75, Type);
        EXPECT_EQ(Log.CountContaining("no usable texture coordinates"), 1);
        EXPECT_FALSE(Log.Contains("Failed to create the tangent space"));
        EXPECT_EQ(Result.Count(), 16); // no vertex splits without a texture
        for (log_capture::entry const &Entry : Log.Entries) EXPECT_LT(Entry.Level, LogLevel_Error) << Entry.Text;
        int32 Stride = GetTotalObjectSize(Type);
        for (int32 V = 0; V < Result.Count(); ++V) {
            // The leading members are the same in both layouts.
            frame_vertex const &Vertex =
                *(frame_vertex const *)((uint8 const *)Result.Vertices->Vertices.Array + (intaddrx)Stride * V);
            ExpectOrthonormal(Vertex);
        }
    }
}

TEST(TangentFrames, SecondBuildFallsBackToTheConstantFrame)
{
    log_capture Log;
    frame_result Result = Build(TwoQuads(true), 75, FrameVertexType, 2); // the stacks are filled already
    EXPECT_TRUE(Log.Contains("Failed to create the tangent space"));
    // Split copies of the first pass get the constant frame as well.
    ASSERT_EQ(Result.Count(), 8);
    for (int32 V = 0; V < Result.Count(); ++V) {
        EXPECT_EQ(Result.Vertex(V).Tangent[0], 1.0f);
        EXPECT_EQ(Result.Vertex(V).Binormal[1], 1.0f);
        EXPECT_EQ(Result.Vertex(V).TangentBinormalCross[2], 1.0f);
    }
}
