// The stage "Meshes" on scenes written by the test FBX writer: the tool's
// geometry answers, vertex layouts, bindings with their boxes, and the
// finishing steps at their edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_tool_geometry.h"
#include "exporter_test_files.h"
#include "mesh_test_support.h"
#include "support/test_command.h"
#include "support/test_log_capture.h"

using namespace fbx_tool;

namespace {

enum
{
    AllowVertexWeightingId = 7,
    BonesPerVertexId = 8,
    TruncateIndicesId = 76,
    IncludeTopologyId = 77,
    IncludeBoneTrianglesId = 98,
    ClockwiseId = 143,
    PreserveUnusedBonesId = 247,
};

// The arm scene with its bones in a plain chain and no animation.
fbx_test_scene ArmScene()
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.Takes.clear();
    return Scene;
}

// A flat grid of N x 1 quads along X under a mesh node, skinned to Bones
// bones that stand one unit apart along X when Bones > 0.
fbx_test_scene StripScene(int Quads, int Bones)
{
    fbx_test_scene Scene;
    for (int B = 0; B < Bones; ++B) {
        fbx_test_node Bone;
        Bone.Name = "Bone" + std::to_string(B);
        Bone.Parent = B - 1;
        Bone.Translation[0] = B == 0 ? 0.0 : 1.0;
        Scene.Nodes.push_back(Bone);
    }
    Scene.Nodes.push_back(MeshNode("Strip", -1, 0));
    Scene.Meshes.resize(1);
    fbx_test_mesh &Mesh = Scene.Meshes[0];
    for (int I = 0; I <= Quads; ++I) {
        Mesh.ControlPoints.insert(Mesh.ControlPoints.end(), {(double)I, 0.0, 0.0});
        Mesh.ControlPoints.insert(Mesh.ControlPoints.end(), {(double)I, 1.0, 0.0});
    }
    for (int I = 0; I < Quads; ++I) Mesh.Polygons.push_back({2 * I, 2 * I + 2, 2 * I + 3, 2 * I + 1});
    Mesh.Clusters.resize(Bones);
    for (int B = 0; B < Bones; ++B) {
        Mesh.Clusters[B].Bone = B;
        FbxTestNodeGlobal(Scene, B, Mesh.Clusters[B].TransformLink);
        FbxTestInverse(Mesh.Clusters[B].TransformLink, Mesh.Clusters[B].Transform);
    }
    return Scene;
}

void Weigh(fbx_test_scene &Scene, int Cluster, int Point, double Weight)
{
    Scene.Meshes[0].Clusters[Cluster].Indexes.push_back(Point);
    Scene.Meshes[0].Clusters[Cluster].Weights.push_back(Weight);
}

std::vector<std::string> MemberNames(vertex_data const *Data)
{
    std::vector<std::string> Names;
    for (data_type_definition const *Member = Data->Vertices.Type; Member->Type != EndMember; ++Member) {
        Names.push_back(Member->Name);
    }
    return Names;
}

} // namespace

// A point no cluster weighs used to land at the origin with a zero normal;
// it now follows its mesh's node (here at the origin, unrotated), so every
// point stands at its control point and every normal has unit length.
TEST(MeshGeometry, SkinMatricesPlacePointsAsTheBindPoseAndUnweightedPointsWithTheirNode)
{
    fbx_test_scene Scene = ArmScene();
    // Control point 0 leaves every cluster.
    fbx_test_cluster &Upper = Scene.Meshes[0].Clusters[0];
    Upper.Indexes.erase(Upper.Indexes.begin());
    Upper.Weights.erase(Upper.Weights.begin());
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    fbx_mesh_data *Data = BeginMeshData(Fixture.Tool, Fixture.FirstMesh());
    ASSERT_NE(Data, nullptr);
    ASSERT_EQ(GetMeshVertexCount(Data), 12);
    for (int32 P = 0; P < 12; ++P) {
        real32 Position[3];
        GetVertexPosition(Data, P, Position);
        for (int A = 0; A < 3; ++A) {
            EXPECT_NEAR(Position[A], Scene.Meshes[0].ControlPoints[3 * P + A], 1e-5) << "point " << P << " axis " << A;
        }
    }
    fbx_triangle_iterator *Triangles = BeginTriangles(Data);
    for (; HasTriangle(Triangles); NextTriangle(Triangles)) {
        for (int32 Corner = 0; Corner < 3; ++Corner) {
            real32 Normal[3], UV[4];
            GetCornerNormal(Triangles, Corner, Normal);
            double Length = std::sqrt(Normal[0] * Normal[0] + Normal[1] * Normal[1] + Normal[2] * Normal[2]);
            EXPECT_NEAR(Length, 1.0, 1e-5);
            // V is turned over: ring R, side S has (R / 2, 1 - S / 4).
            int32 Point = GetCornerVertex(Triangles, Corner);
            GetCornerTextureCoordinates(Triangles, Corner, 0, UV);
            EXPECT_FLOAT_EQ(UV[0], (Point / 4) / 2.0f);
            EXPECT_FLOAT_EQ(UV[1], 1.0f - (Point % 4) / 4.0f);
        }
    }
    EndTriangles(Triangles);
    EndMeshData(Data);
}

TEST(MeshExport, SkinnedMeshHasQuantisedWeightsAndPerBoneTriangles)
{
    int32 Before = LiveBlocks();
    {
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(ArmScene()));
        Fixture.SetOnEveryMesh(IncludeTopologyId, 1);
        Fixture.SetOnEveryMesh(IncludeBoneTrianglesId, 1);
        Fixture.Run();
        mesh *Mesh = Fixture.FirstFileMesh();
        ASSERT_NE(Mesh, nullptr);
        EXPECT_STREQ(Mesh->Name, "Arm");
        vertex_data *Data = Mesh->PrimaryVertexData;
        tri_topology *Topology = Mesh->PrimaryTopology;
        ASSERT_TRUE(Data && Topology);
        EXPECT_EQ(MemberNames(Data), (std::vector<std::string>{"Position", "BoneWeights", "BoneIndices", "Normal",
                                                               "TextureCoordinates0"}));
        EXPECT_EQ(LayoutMember(Data, "BoneWeights")->Type, NormalUInt8Member);
        EXPECT_EQ(LayoutMember(Data, "BoneIndices")->Type, UInt8Member);
        EXPECT_EQ(GetMemberArrayWidth(*LayoutMember(Data, "BoneWeights")), 4);
        EXPECT_EQ(Data->VertexComponentNameCount, 5);
        // 8 side quads, the cap quad, 2 triangles; one material group.
        EXPECT_EQ(Topology->IndexCount, 3 * 20);
        ASSERT_EQ(Topology->GroupCount, 1);
        EXPECT_EQ(Topology->Groups[0].TriCount, 20);

        ASSERT_EQ(Mesh->BoneBindingCount, 2);
        EXPECT_STREQ(Mesh->BoneBindings[0].BoneName, "Upper");
        EXPECT_STREQ(Mesh->BoneBindings[1].BoneName, "Lower");
        for (int32 V = 0; V < Data->Vertices.Count; ++V) {
            double Sum = 0;
            for (double W : VertexMember(Data, V, "BoneWeights")) Sum += W * 255.0;
            EXPECT_NEAR(Sum, 255.0, 1e-9) << "vertex " << V;
        }
        // Per-bone triangles and the triangle-to-bone table agree.
        int32 Listed = Mesh->BoneBindings[0].TriangleCount + Mesh->BoneBindings[1].TriangleCount;
        EXPECT_EQ(Topology->BonesForTriangleCount, 21);
        EXPECT_EQ(Topology->BonesForTriangle[20], Topology->TriangleToBoneCount);
        EXPECT_EQ(Listed, Topology->TriangleToBoneCount);
    }
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(MeshExport, RigidMeshesBindToOneBone)
{
    // One cluster: rigid, no bone members, bound to that bone.
    {
        fbx_test_scene Scene = StripScene(2, 1);
        for (int P = 0; P < 6; ++P) Weigh(Scene, 0, P, 1.0);
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(Scene));
        Fixture.Run();
        mesh *Mesh = Fixture.FirstFileMesh();
        ASSERT_TRUE(Mesh && Mesh->PrimaryVertexData);
        EXPECT_EQ(LayoutMember(Mesh->PrimaryVertexData, "BoneIndices"), nullptr);
        EXPECT_EQ(LayoutMember(Mesh->PrimaryVertexData, "BoneWeights"), nullptr);
        ASSERT_EQ(Mesh->BoneBindingCount, 1);
        EXPECT_STREQ(Mesh->BoneBindings[0].BoneName, "Bone0");
    }
    // No skin: vertices in world space, the box in the node's space.
    {
        fbx_test_scene Scene = StripScene(2, 0);
        Scene.Nodes[0].Translation[0] = 5.0;
        Scene.Nodes[0].Scaling[1] = 2.0;
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(Scene));
        Fixture.Run();
        mesh *Mesh = Fixture.FirstFileMesh();
        ASSERT_TRUE(Mesh && Mesh->PrimaryVertexData);
        ASSERT_EQ(Mesh->BoneBindingCount, 1);
        EXPECT_STREQ(Mesh->BoneBindings[0].BoneName, "Strip");
        double Low[3] = {1e9, 1e9, 1e9};
        for (int32 V = 0; V < Mesh->PrimaryVertexData->Vertices.Count; ++V) {
            std::vector<double> P = VertexMember(Mesh->PrimaryVertexData, V, "Position");
            for (int A = 0; A < 3; ++A) Low[A] = std::fmin(Low[A], P[A]);
        }
        EXPECT_FLOAT_EQ(Low[0], 5.0f);
        real32 const ExpectedMin[3] = {0, 0, 0}, ExpectedMax[3] = {2, 1, 0};
        for (int A = 0; A < 3; ++A) {
            EXPECT_NEAR(Mesh->BoneBindings[0].OBBMin[A], ExpectedMin[A], 1e-5);
            EXPECT_NEAR(Mesh->BoneBindings[0].OBBMax[A], ExpectedMax[A], 1e-5);
        }
    }
}

TEST(MeshExport, OneBonePerVertexStoresOnlyTheStrongestIndex)
{
    fbx_test_scene Scene = StripScene(2, 2);
    for (int P = 0; P < 6; ++P) {
        Weigh(Scene, 0, P, P < 2 ? 0.9 : 0.2);
        Weigh(Scene, 1, P, P < 2 ? 0.1 : 0.8);
    }
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.SetOnEveryMesh(BonesPerVertexId, 1);
    Fixture.Run();
    vertex_data *Data = Fixture.FirstFileMesh()->PrimaryVertexData;
    ASSERT_NE(Data, nullptr);
    EXPECT_EQ(MemberNames(Data),
              (std::vector<std::string>{"Position", "BoneIndices", "Normal", "TextureCoordinates0"}));
    EXPECT_EQ(LayoutMember(Data, "BoneIndices")->Type, UInt32Member);
    EXPECT_EQ(GetMemberArrayWidth(*LayoutMember(Data, "BoneIndices")), 1);
    EXPECT_STREQ(Data->VertexComponentNames[1], "BoneWeights");
    for (int32 V = 0; V < Data->Vertices.Count; ++V) {
        double X = VertexMember(Data, V, "Position")[0];
        EXPECT_EQ(VertexMember(Data, V, "BoneIndices")[0], X < 0.5 ? 0.0 : 1.0) << V;
    }
    // The single bone counts as fully weighted: both boxes are real.
    ASSERT_EQ(Fixture.FirstFileMesh()->BoneBindingCount, 2);
    EXPECT_NEAR(Fixture.FirstFileMesh()->BoneBindings[1].OBBMax[0], 1.0, 1e-5);
}

TEST(MeshExport, MeshWithoutUVsGetsDummyCoordinates)
{
    fbx_test_scene Scene = ArmScene();
    Scene.Meshes[0].UVs.clear();
    Scene.Meshes[0].UVIndex.clear();
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.Run();
    vertex_data *Data = Fixture.FirstFileMesh()->PrimaryVertexData;
    ASSERT_NE(Data, nullptr);
    data_type_definition const *Member = LayoutMember(Data, "TextureCoordinates0");
    ASSERT_NE(Member, nullptr);
    EXPECT_EQ(GetMemberArrayWidth(*Member), 2);
    for (int32 V = 0; V < Data->Vertices.Count; ++V) {
        EXPECT_EQ(VertexMember(Data, V, "TextureCoordinates0"), (std::vector<double>{0.0, 0.0}));
    }
}

TEST(MeshExport, UnusedBonesGoAndTheRestAreRenumbered)
{
    fbx_test_scene Scene = StripScene(3, 6);
    for (int P = 0; P < 8; ++P) {
        Weigh(Scene, 2, P, 0.75);
        Weigh(Scene, 5, P, 0.25);
    }
    {
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(Scene));
        Fixture.Run();
        mesh *Mesh = Fixture.FirstFileMesh();
        ASSERT_EQ(Mesh->BoneBindingCount, 2);
        EXPECT_STREQ(Mesh->BoneBindings[0].BoneName, "Bone2");
        EXPECT_STREQ(Mesh->BoneBindings[1].BoneName, "Bone5");
        for (int32 V = 0; V < Mesh->PrimaryVertexData->Vertices.Count; ++V) {
            std::vector<double> Indices = VertexMember(Mesh->PrimaryVertexData, V, "BoneIndices");
            std::vector<double> Weights = VertexMember(Mesh->PrimaryVertexData, V, "BoneWeights");
            EXPECT_EQ(Indices, (std::vector<double>{0, 1, 0, 0}));
            EXPECT_NEAR(Weights[0], 0.75, 0.5 / 255);
            EXPECT_NEAR(Weights[1], 0.25, 0.5 / 255);
        }
        // Bone5 stands at x = 5: the strip's x from 0 to 3 is -5 to -2 there.
        EXPECT_NEAR(Mesh->BoneBindings[1].OBBMin[0], -5.0, 1e-4);
        EXPECT_NEAR(Mesh->BoneBindings[1].OBBMax[0], -2.0, 1e-4);
    }
    // Kept on request: the boxes no vertex reached sit at the origin.
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.SetOnEveryMesh(PreserveUnusedBonesId, 1);
    Fixture.Run();
    mesh *Mesh = Fixture.FirstFileMesh();
    ASSERT_EQ(Mesh->BoneBindingCount, 6);
    for (int A = 0; A < 3; ++A) {
        EXPECT_EQ(Mesh->BoneBindings[0].OBBMin[A], 0.0f);
        EXPECT_EQ(Mesh->BoneBindings[0].OBBMax[A], 0.0f);
    }
    EXPECT_EQ(VertexMember(Mesh->PrimaryVertexData, 0, "BoneIndices"), (std::vector<double>{2, 5, 2, 2}));
}

TEST(MeshExport, IndicesNarrowTo16BitsOnlyBelow65536)
{
    for (int32 Points : {65536, 65537}) {
        SCOPED_TRACE(Points);
        fbx_test_scene Scene;
        Scene.Nodes.push_back(MeshNode("Big", -1, 0));
        Scene.Meshes.resize(1);
        for (int32 P = 0; P < Points; ++P) {
            Scene.Meshes[0].ControlPoints.insert(Scene.Meshes[0].ControlPoints.end(),
                                                 {(double)P, (double)(P % 2), 0.0});
        }
        Scene.Meshes[0].Polygons.push_back({0, 1, 2});
        Scene.Meshes[0].Polygons.push_back({Points - 3, Points - 2, Points - 1});
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(Scene));
        Fixture.SetOnEveryMesh(TruncateIndicesId, 1);
        log_capture Log;
        Fixture.Run();
        tri_topology *Topology = Fixture.FirstFileMesh()->PrimaryTopology;
        ASSERT_NE(Topology, nullptr);
        bool Narrow = Points == 65536;
        EXPECT_EQ(Topology->Index16Count, Narrow ? 6 : 0);
        EXPECT_EQ(Topology->IndexCount, Narrow ? 0 : 6);
        EXPECT_EQ(Log.Contains("Mesh (Big) has too many vertices to fit into 16-bit, leaving in 32-bit mode"), !Narrow);
        if (Narrow) {
            uint16 Largest = 0;
            for (int I = 0; I < 6; ++I) Largest = std::max(Largest, (uint16)Topology->Indices16[I]);
            EXPECT_EQ(Largest, 65535);
            EXPECT_EQ(Topology->Indices, nullptr);
        }
    }
}

TEST(MeshExport, ClockwiseWindingReversesTrianglesAndKeepsNeighboursTrue)
{
    for (bool Clockwise : {false, true}) {
        SCOPED_TRACE(Clockwise);
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(ArmScene()));
        Fixture.SetOnEveryMesh(IncludeTopologyId, 1);
        Fixture.SetOnEveryMesh(ClockwiseId, Clockwise);
        Fixture.Run();
        mesh *Mesh = Fixture.FirstFileMesh();
        tri_topology *Topology = Mesh->PrimaryTopology;
        ASSERT_TRUE(Topology && Topology->SideToNeighborMap);
        vertex_data *Data = Mesh->PrimaryVertexData;
        auto Corner = [&](int32 Triangle, int32 C) {
            return VertexMember(Data, Topology->Indices[Triangle * 3 + C], "Position");
        };
        int32 Triangles = Topology->IndexCount / 3;
        // The tube is closed: every side has a neighbour that runs the other way.
        for (int32 T = 0; T < Triangles; ++T) {
            // Side normals face outwards, away from the tube's axis, unless
            // the winding was turned.
            std::vector<double> A = Corner(T, 0), B = Corner(T, 1), C = Corner(T, 2);
            double U[3], W[3], N[3];
            for (int K = 0; K < 3; ++K) U[K] = B[K] - A[K], W[K] = C[K] - A[K];
            N[0] = U[1] * W[2] - U[2] * W[1];
            N[1] = U[2] * W[0] - U[0] * W[2];
            N[2] = U[0] * W[1] - U[1] * W[0];
            std::vector<double> Normal = VertexMember(Data, Topology->Indices[T * 3], "Normal");
            double Dot = N[0] * Normal[0] + N[1] * Normal[1] + N[2] * Normal[2];
            EXPECT_EQ(Dot < 0, Clockwise) << "triangle " << T;
            for (int32 S = 0; S < 3; ++S) {
                int32 Entry = Topology->SideToNeighborMap[T * 3 + S];
                int32 Other = Entry >> 2, OtherSide = Entry & 3;
                ASSERT_LT(Other, Triangles);
                ASSERT_LT(OtherSide, 3);
                EXPECT_NE(Other, T);
                EXPECT_EQ(Corner(T, S), Corner(Other, (OtherSide + 1) % 3)) << T << " side " << S;
                EXPECT_EQ(Corner(T, (S + 1) % 3), Corner(Other, OtherSide)) << T << " side " << S;
            }
        }
    }
}

TEST(MeshExportFile, InspectShowsLayoutBindingsAndFirstVertices)
{
    if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
    std::string Input = SaveFbxTestFile("mesh_inspect.fbx", WriteFbxTestScene(ArmScene(), FbxTestBinary(7400)));
    std::string Output = PrivateTemporaryDirectory() + "/output_mesh_inspect.ts2";
    ASSERT_TRUE(ExportFBXFile(Input.c_str(), Output.c_str(), nullptr, nullptr));
    remove(Input.c_str());
    command_result Inspect = RunTessel("inspect " + Output + " --vertices 2", false);
    std::string const &Text = Inspect.Output;
    EXPECT_EQ(Inspect.Status, 0);
    remove(Output.c_str());
    for (char const *Line :
         {"Meshes: 1\n  \"Arm\": ", " vertices, 20 triangles, 32-bit indices",
          "\n      BoneWeights NormalUInt8Member[4]  from \"BoneWeights\"",
          "\n    material groups: 1\n      [0] material 0: triangles 0 to 19 (20)",
          "\n    bone bindings: 2\n      [0] \"Upper\"  box (", "\n    first 2 vertices:\n      [0] Position ("}) {
        EXPECT_NE(Text.find(Line), std::string::npos) << Line << "\n" << Text;
    }
}

// The skin matrices come from one pass over the clusters; they must be the
// sums the point-by-point definition gives, bit for bit, on a skin of many
// overlapping clusters with repeated entries (only a point's first entry in
// a cluster counts) and points no cluster holds.
TEST(MeshGeometry, SkinMatricesOfManyClustersMatchThePointByPointSums)
{
    int const Quads = 24, Bones = 40, Points = 2 * (Quads + 1);
    fbx_test_scene Scene = StripScene(Quads, Bones);
    uint32 Seed = 7;
    auto Next = [&] { return (Seed = Seed * 1664525u + 1013904223u) >> 8; };
    for (int Cluster = 0; Cluster < Bones; ++Cluster) {
        // Each cluster places its points differently: the sums see the weights.
        fbx_test_cluster &Each = Scene.Meshes[0].Clusters[Cluster];
        for (int Index = 0; Index < 16; ++Index) Each.Transform[Index] = Index % 5 == 0 ? 1.0 : 0.0;
        Each.Transform[1] = 0.01 * Cluster;
        for (int Entry = 0; Entry < 12; ++Entry) {
            int Point = (int)(Next() % (Points - 3)); // the last three stay unweighted
            Weigh(Scene, Cluster, Point, 0.05 + (Next() % 1000) / 997.0);
            if (Next() % 5 == 0) Weigh(Scene, Cluster, Point, 0.5); // a repeat that must not count
        }
    }
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    fbx_mesh_data *Data = BeginMeshData(Fixture.Tool, Fixture.FirstMesh());
    ASSERT_NE(Data, nullptr);
    for (int32 Point = 0; Point < Points; ++Point) {
        AffineMatrix Expected;
        ComputeSkinMatrix(Data, Point, Expected);
        EXPECT_EQ(memcmp(Expected.mData, Data->SkinMatrices[Point].mData, sizeof(Expected.mData)), 0)
            << "point " << Point;
    }
    EndMeshData(Data);
}
