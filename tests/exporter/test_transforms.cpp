// Bones, skins and normals on small scenes from the test FBX writer, against
// matrices composed here from the scene description: bone locals that
// compose to the scene's worlds through pivots, pre/post rotation, rotation
// orders, inherit types and shear; the bind pose; normalised weights;
// geometric transforms; normals through the inverse transpose, mirrored
// meshes and missing normals; FBX 5 transforms and normals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "exporter_test_files.h"
#include "mesh_test_support.h"
#include "support/test_log_capture.h"
#include "transform_test_support.h"

namespace {

mat NodeGlobal(fbx_test_scene const &Scene, int Node)
{
    double M[16];
    FbxTestNodeGlobal(Scene, Node, M);
    return FromArray(M);
}

mat Inverse16(mat const &A)
{
    double R[16];
    FbxTestInverse(A.M, R);
    return FromArray(R);
}

mat Scale16(double X, double Y, double Z)
{
    mat R = Identity16();
    R.M[0] = X, R.M[5] = Y, R.M[10] = Z;
    return R;
}

mat Translate16(double X, double Y, double Z)
{
    mat R = Identity16();
    R.M[12] = X, R.M[13] = Y, R.M[14] = Z;
    return R;
}

// Rotation about one axis in degrees, row form (row i is the image of axis i).
mat Rotate16(int Axis, double Degrees)
{
    double C = std::cos(Degrees * M_PI / 180), S = std::sin(Degrees * M_PI / 180);
    int A = (Axis + 1) % 3, B = (Axis + 2) % 3;
    mat R = Identity16();
    R.M[A * 4 + A] = C, R.M[A * 4 + B] = S;
    R.M[B * 4 + A] = -S, R.M[B * 4 + B] = C;
    return R;
}

fbx_test_node Bone(char const *Name, int Parent, double X, double Y, double Z)
{
    fbx_test_node Node;
    Node.Name = Name;
    Node.Parent = Parent;
    Node.Translation[0] = X, Node.Translation[1] = Y, Node.Translation[2] = Z;
    return Node;
}

// A unit cube from (0, 0, 0) to (1, 1, 1), faces outward, flat normals by
// polygon vertex (or none).
fbx_test_mesh Cube(bool WithNormals)
{
    fbx_test_mesh Mesh;
    for (int P = 0; P < 8; ++P)
        Mesh.ControlPoints.insert(Mesh.ControlPoints.end(),
                                  {double(P & 1), double((P >> 1) & 1), double((P >> 2) & 1)});
    Mesh.Polygons = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    double const Faces[6][3] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};
    for (int F = 0; F < 6 && WithNormals; ++F)
        for (int C = 0; C < 4; ++C) Mesh.Normals.insert(Mesh.Normals.end(), Faces[F], Faces[F] + 3);
    return Mesh;
}

// Every bone's composed world against the scene's matrix of the same name,
// and its stored inverse against the composition.
void ExpectBonesAt(skeleton const *Skeleton, std::map<std::string, mat> const &Expected, double Size)
{
    ASSERT_NE(Skeleton, nullptr);
    std::vector<mat> Worlds = ComposeBoneWorlds(Skeleton);
    for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
        bone const &Bone = Skeleton->Bones[I];
        auto Found = Expected.find(Bone.Name);
        ASSERT_NE(Found, Expected.end()) << Bone.Name;
        EXPECT_LT(MaxDifference(Worlds[(size_t)I], Found->second) / Size, 1e-5) << Bone.Name;
        EXPECT_LT(InverseDeviation(Bone, Worlds[(size_t)I], Size), 1e-5) << Bone.Name;
    }
}

std::vector<double> Position(mesh const *Mesh, int32 Vertex)
{
    return VertexMember(Mesh->PrimaryVertexData, Vertex, "Position");
}

// The stored vertex nearest to P (vertices are welded and reordered).
int32 NearestVertex(mesh const *Mesh, double const *P)
{
    int32 Best = -1;
    double BestDistance = 1e300;
    for (int32 V = 0; V < Mesh->PrimaryVertexData->Vertices.Count; ++V) {
        std::vector<double> Q = Position(Mesh, V);
        double D = (Q[0] - P[0]) * (Q[0] - P[0]) + (Q[1] - P[1]) * (Q[1] - P[1]) + (Q[2] - P[2]) * (Q[2] - P[2]);
        if (D < BestDistance) Best = V, BestDistance = D;
    }
    return Best;
}

// Every control point, moved by Placement, has a stored vertex there.
void ExpectPointsPlaced(mesh const *Mesh, fbx_test_mesh const &Source, mat const &Placement)
{
    for (size_t P = 0; P * 3 < Source.ControlPoints.size(); ++P) {
        double Expected[3];
        MapPoint(Placement, &Source.ControlPoints[P * 3], Expected);
        std::vector<double> Q = Position(Mesh, NearestVertex(Mesh, Expected));
        for (int A = 0; A < 3; ++A) EXPECT_NEAR(Q[(size_t)A], Expected[A], 1e-5) << "point " << P << " axis " << A;
    }
}

int32 TriangleIndex(tri_topology const *Topology, int32 I)
{
    return Topology->IndexCount > 0 ? Topology->Indices[I] : (int32)(uint16)Topology->Indices16[I];
}

// Faces of a closed mesh around Center: how many of its triangles wind
// outward with their stored normals along the winding.
int OutwardTriangles(mesh const *Mesh, double const *Center, int &Triangles)
{
    tri_topology const *Topology = Mesh->PrimaryTopology;
    int32 Count = Topology->IndexCount > 0 ? Topology->IndexCount : Topology->Index16Count;
    int Outward = 0;
    Triangles = Count / 3;
    for (int32 T = 0; T + 2 < Count; T += 3) {
        std::vector<double> A = Position(Mesh, TriangleIndex(Topology, T)),
                            B = Position(Mesh, TriangleIndex(Topology, T + 1)),
                            C = Position(Mesh, TriangleIndex(Topology, T + 2));
        double U[3] = {B[0] - A[0], B[1] - A[1], B[2] - A[2]}, V[3] = {C[0] - A[0], C[1] - A[1], C[2] - A[2]};
        double Face[3] = {U[1] * V[2] - U[2] * V[1], U[2] * V[0] - U[0] * V[2], U[0] * V[1] - U[1] * V[0]};
        double Away = 0, Along = 0;
        for (int K = 0; K < 3; ++K) {
            Away += Face[K] * ((A[(size_t)K] + B[(size_t)K] + C[(size_t)K]) / 3 - Center[K]);
            std::vector<double> N = VertexMember(Mesh->PrimaryVertexData, TriangleIndex(Topology, T), "Normal");
            Along += Face[K] * N[(size_t)K];
        }
        Outward += Away > 0 && Along > 0;
    }
    return Outward;
}

} // namespace

// 1 and 3: locals compose to the scene's worlds through pivots, offsets,
// pre/post rotation, rotation orders and inherit types; a child of a
// non-uniformly scaled parent keeps its shear.
TEST(Transforms, StoredLocalsComposeToTheScenesWorlds)
{
    fbx_test_scene Scene;
    fbx_test_node Root = Bone("Root", -1, 1, 2, 3);
    Root.Rotation[0] = 10, Root.Rotation[1] = 20, Root.Rotation[2] = 30;
    Root.RotationOrder = 4; // ZXY
    Root.PreRotation[2] = 45;
    Root.PostRotation[0] = 15;
    Root.RotationPivot[0] = 0.5;
    Root.RotationOffset[1] = 0.25;
    Root.ScalingPivot[2] = 0.5;
    Root.Scaling[1] = 3; // non-uniform: the child below is sheared
    Scene.Nodes.push_back(Root);
    // A node left out of the skeleton between the two: the sheared child's
    // local is then its sheared world relative to Root's parent, none.
    Scene.Nodes.push_back(Bone("Gap", 0, 0, 1, 0));
    Scene.Nodes[1].Rotation[2] = 30;
    Scene.Nodes[1].Kind = "Null";
    fbx_test_node Sheared = Bone("Sheared", 1, 0, 2, 0);
    Sheared.Rotation[2] = 45;
    Sheared.RotationOrder = 5; // ZYX
    Scene.Nodes.push_back(Sheared);
    // Uniform scales, so that each inherit type has one meaning.
    fbx_test_node Hip = Bone("Hip", -1, 0, 1, 0);
    Hip.Scaling[0] = Hip.Scaling[1] = Hip.Scaling[2] = 2;
    Hip.Rotation[0] = 90;
    Scene.Nodes.push_back(Hip);
    fbx_test_node Spine = Bone("Spine", 3, 0, 1, 0);
    Spine.InheritType = 0; // RrSs
    Spine.Rotation[1] = 30;
    Spine.PostRotation[2] = -20;
    Scene.Nodes.push_back(Spine);
    fbx_test_node Neck = Bone("Neck", 4, 0, 1, 0);
    Neck.InheritType = 2; // Rrs
    Neck.Scaling[0] = Neck.Scaling[1] = Neck.Scaling[2] = 0.5;
    Neck.RotationOrder = 2; // YZX
    Neck.Rotation[0] = 5, Neck.Rotation[1] = 60;
    Scene.Nodes.push_back(Neck);

    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    for (tool_node *Node = Fixture.State.Graph->FirstNode; Node; Node = Node->NextInGraph) {
        if (std::string(GetNodeName(Fixture.Tool, Node, nullptr)) == "Gap")
            ASSERT_TRUE(SetSettingBool(FindSetting(Node->Settings, 2), false));
    }
    Fixture.Run();
    ASSERT_EQ(Fixture.State.FileInfo.SkeletonCount, 2);
    std::map<std::string, mat> Expected;
    for (size_t N = 0; N < Scene.Nodes.size(); ++N) Expected[Scene.Nodes[N].Name] = NodeGlobal(Scene, (int)N);
    for (int32 S = 0; S < 2; ++S) ExpectBonesAt(Fixture.State.FileInfo.Skeletons[S], Expected, 5.0);

    // The shear stays in the child's scale/shear, which is symmetric.
    bone const *Child = nullptr;
    for (int32 S = 0; S < 2; ++S) {
        skeleton const *Skeleton = Fixture.State.FileInfo.Skeletons[S];
        for (int32 I = 0; I < Skeleton->BoneCount; ++I)
            if (std::string(Skeleton->Bones[I].Name) == "Sheared") Child = &Skeleton->Bones[I];
    }
    ASSERT_NE(Child, nullptr);
    real32 const(*SS)[3] = Child->Transform.ScaleShear;
    EXPECT_GT(std::fabs(SS[0][1]), 0.1f);
    EXPECT_NEAR(SS[0][1], SS[1][0], 1e-5f);
    EXPECT_NEAR(SS[0][2], SS[2][0], 1e-5f);
}

// 2 and 6: a rigid mesh at a top-level node with a pivot and pre-rotation
// sits where its bone says, its geometric offset applied to its points
// only (not to the bone, nor to the child).
TEST(Transforms, RigidMeshesFollowTheirNodeWithItsGeometricOffset)
{
    fbx_test_scene Scene;
    fbx_test_node Prop = MeshNode("Prop", -1, 0);
    Prop.Translation[0] = 2;
    Prop.RotationPivot[0] = 1;
    Prop.PreRotation[2] = 90;
    Prop.Rotation[1] = 30;
    Prop.GeometricTranslation[0] = 1, Prop.GeometricTranslation[1] = 2, Prop.GeometricTranslation[2] = 3;
    Prop.GeometricRotation[1] = 90;
    Prop.GeometricScaling[0] = Prop.GeometricScaling[1] = Prop.GeometricScaling[2] = 2;
    Scene.Nodes.push_back(Prop);
    Scene.Nodes.push_back(Bone("Tip", 0, 0, 2, 0));
    Scene.Meshes.push_back(Cube(true));

    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.Run();
    ASSERT_EQ(Fixture.State.FileInfo.SkeletonCount, 1);
    ExpectBonesAt(Fixture.State.FileInfo.Skeletons[0], {{"Prop", NodeGlobal(Scene, 0)}, {"Tip", NodeGlobal(Scene, 1)}},
                  5.0);
    mat Geometric = Multiply(Multiply(Scale16(2, 2, 2), Rotate16(1, 90)), Translate16(1, 2, 3));
    mesh const *Mesh = Fixture.FirstFileMesh();
    ASSERT_NE(Mesh, nullptr);
    ExpectPointsPlaced(Mesh, Scene.Meshes[0], Multiply(Geometric, NodeGlobal(Scene, 0)));
    ASSERT_EQ(Mesh->BoneBindingCount, 1);
    EXPECT_STREQ(Mesh->BoneBindings[0].BoneName, "Prop");
    // In the bone's space the box is the cube through the geometric offset:
    // scaled by 2, turned about Y, moved by (1, 2, 3).
    bone_binding const &Binding = Mesh->BoneBindings[0];
    double const Low[3] = {1, 2, 1}, High[3] = {3, 4, 3};
    for (int A = 0; A < 3; ++A) {
        EXPECT_NEAR(Binding.OBBMin[A], Low[A], 1e-4) << A;
        EXPECT_NEAR(Binding.OBBMax[A], High[A], 1e-4) << A;
    }
}

// 4 and 5: skinned points stand where the clusters' TransformLink puts them
// (the modelled mesh, not the static pose), with weights divided by their
// sum; a point no cluster weighs follows its mesh's node. Bones rest in the
// bind pose: a cluster's TransformLink, else the bind pose entry, else the
// static world.
TEST(Transforms, SkinsAndBonesStandInTheBindPose)
{
    // The bind state: "Rig" up at (0, 10, 0), "Lower" straight.
    fbx_test_scene Bind;
    Bind.Nodes.push_back(Bone("Rig", -1, 0, 10, 0));
    Bind.Nodes[0].Kind = "Null";
    Bind.Nodes.push_back(Bone("Upper", 0, 0, 0, 0));
    Bind.Nodes.push_back(Bone("Lower", 1, 1, 0, 0));
    Bind.Nodes.push_back(Bone("Extra", 0, 0, 0, 1)); // no bind pose entry
    Bind.Nodes.push_back(MeshNode("Strip", -1, 0));
    Bind.Nodes[4].Translation[2] = 5;
    // The static state differs: Rig at the origin, Lower bent by 60 degrees.
    fbx_test_scene Scene = Bind;
    Scene.Nodes[0].Translation[1] = 0;
    Scene.Nodes[2].Rotation[2] = 60;
    Scene.Nodes[0].BindPoseKind = 1;
    FbxTestNodeGlobal(Bind, 0, Scene.Nodes[0].BindPose);
    Scene.Nodes[3].BindPoseKind = 2;

    fbx_test_mesh Strip;
    for (int I = 0; I <= 2; ++I)
        Strip.ControlPoints.insert(Strip.ControlPoints.end(), {double(I), 0.0, 0.0, double(I), 1.0, 0.0});
    Strip.Polygons = {{0, 2, 3, 1}, {2, 4, 5, 3}};
    Strip.Clusters.resize(2);
    for (int C = 0; C < 2; ++C) {
        fbx_test_cluster &Cluster = Strip.Clusters[(size_t)C];
        Cluster.Bone = C + 1;
        FbxTestNodeGlobal(Bind, C + 1, Cluster.TransformLink);
        // Transform = TransformLink^-1 x the mesh's bind world.
        mat Transform = Multiply(NodeGlobal(Bind, 4), Inverse16(FromArray(Cluster.TransformLink)));
        std::copy(Transform.M, Transform.M + 16, Cluster.Transform);
    }
    // Point 0: half a weight; point 1: 0.25 + 0.5; point 5: none.
    Strip.Clusters[0].Indexes = {0, 1, 2, 3};
    Strip.Clusters[0].Weights = {0.5, 0.25, 1, 1};
    Strip.Clusters[1].Indexes = {1, 4};
    Strip.Clusters[1].Weights = {0.5, 0.3};
    Scene.Meshes.push_back(Strip);

    log_capture Log;
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.Run();
    ASSERT_EQ(Fixture.State.FileInfo.SkeletonCount, 1);
    skeleton const *Skeleton = Fixture.State.FileInfo.Skeletons[0];
    std::map<std::string, mat> Expected = {{"Rig", NodeGlobal(Bind, 0)},
                                           {"Upper", NodeGlobal(Bind, 1)},
                                           {"Lower", NodeGlobal(Bind, 2)},
                                           {"Extra", NodeGlobal(Scene, 3)},
                                           {"Strip", NodeGlobal(Scene, 4)}};
    ExpectBonesAt(Skeleton, Expected, 10.0);

    // Every point where the modelled mesh has it: the mesh node's bind
    // world, (0, 0, 5) up.
    mesh const *Mesh = Fixture.FirstFileMesh();
    ASSERT_NE(Mesh, nullptr);
    ExpectPointsPlaced(Mesh, Strip, NodeGlobal(Bind, 4));
    // The unweighted point is bound with weight 1 to the mesh's node, kept
    // as a bone for it.
    double Last[3] = {2, 1, 5};
    int32 Vertex = NearestVertex(Mesh, Last);
    std::vector<double> Weights = VertexMember(Mesh->PrimaryVertexData, Vertex, "BoneWeights");
    std::vector<double> Indices = VertexMember(Mesh->PrimaryVertexData, Vertex, "BoneIndices");
    ASSERT_FALSE(Indices.empty());
    EXPECT_NEAR(Weights[0], 1.0, 1e-6);
    EXPECT_STREQ(Mesh->BoneBindings[(int)Indices[0]].BoneName, "Strip");
}

// 7: normals through the inverse transpose, unit length; a mirrored node
// reverses its triangles so that they face outward; missing or zero normals
// are computed from the faces with a warning; a dual quaternion skin is
// warned about.
TEST(Transforms, NormalsFollowTheInverseTransposeAndFaceOutward)
{
    fbx_test_scene Scene;
    fbx_test_node Stretched = MeshNode("Stretched", -1, 0);
    Stretched.Scaling[1] = 4;
    Stretched.Rotation[2] = 30;
    Scene.Nodes.push_back(Stretched);
    fbx_test_node Mirrored = MeshNode("Mirrored", -1, 1);
    Mirrored.Scaling[0] = -1;
    Mirrored.Translation[0] = 5;
    Scene.Nodes.push_back(Mirrored);
    fbx_test_node Bare = MeshNode("Bare", -1, 2);
    Bare.Translation[0] = 10;
    Scene.Nodes.push_back(Bare);
    Scene.Nodes.push_back(Bone("Holder", -1, 10, 0, 0));
    // One triangle on the plane x + y + z = 1.
    fbx_test_mesh Slope;
    Slope.ControlPoints = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    Slope.Polygons = {{0, 1, 2}};
    double const Third = 1 / std::sqrt(3.0);
    Slope.Normals = {Third, Third, Third, Third, Third, Third, Third, Third, Third};
    Scene.Meshes.push_back(Slope);
    Scene.Meshes.push_back(Cube(true));
    fbx_test_mesh BareCube = Cube(false);
    BareCube.Clusters.resize(1);
    BareCube.Clusters[0].Bone = 3;
    BareCube.Clusters[0].Indexes = {0, 1, 2, 3, 4, 5, 6, 7};
    BareCube.Clusters[0].Weights = {1, 1, 1, 1, 1, 1, 1, 1};
    FbxTestNodeGlobal(Scene, 3, BareCube.Clusters[0].TransformLink);
    FbxTestIdentity(BareCube.Clusters[0].Transform);
    BareCube.SkinningType = "DualQuaternion";
    Scene.Meshes.push_back(BareCube);

    log_capture Log;
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Scene));
    Fixture.Run();
    std::map<std::string, mesh const *> Meshes;
    for (tool_mesh *Mesh = Fixture.FirstMesh(); Mesh; Mesh = Mesh->NextInGraph)
        Meshes[Mesh->FileMesh->Name] = Mesh->FileMesh;
    ASSERT_EQ(Meshes.size(), 3u);

    // n' = n M^-T for a row vector n and the node's linear part M.
    mat Inverse = Inverse16(NodeGlobal(Scene, 0));
    double Expected[3] = {0, 0, 0};
    for (int A = 0; A < 3; ++A)
        for (int K = 0; K < 3; ++K) Expected[A] += Third * Inverse.M[A * 4 + K];
    double Length = std::sqrt(Expected[0] * Expected[0] + Expected[1] * Expected[1] + Expected[2] * Expected[2]);
    mesh const *Sloped = Meshes["Stretched"];
    ASSERT_EQ(Sloped->PrimaryVertexData->Vertices.Count, 3);
    for (int32 V = 0; V < 3; ++V) {
        std::vector<double> N = VertexMember(Sloped->PrimaryVertexData, V, "Normal");
        for (int A = 0; A < 3; ++A) EXPECT_NEAR(N[(size_t)A], Expected[A] / Length, 1e-5) << A;
    }

    // The mirrored cube and the cube without normals face outward.
    int Triangles = 0;
    double MirroredCenter[3] = {4.5, 0.5, 0.5}, BareCenter[3] = {10.5, 0.5, 0.5};
    EXPECT_EQ(OutwardTriangles(Meshes["Mirrored"], MirroredCenter, Triangles), 12);
    EXPECT_EQ(Triangles, 12);
    EXPECT_EQ(OutwardTriangles(Meshes["Bare"], BareCenter, Triangles), 12);
    // Smooth normals of a cube's corner lean along its diagonal (how far
    // depends on which triangles of the split quads meet there), unit long.
    mesh const *Smooth = Meshes["Bare"];
    EXPECT_EQ(Smooth->PrimaryVertexData->Vertices.Count, 8);
    for (int32 V = 0; V < Smooth->PrimaryVertexData->Vertices.Count; ++V) {
        std::vector<double> P = Position(Smooth, V), N = VertexMember(Smooth->PrimaryVertexData, V, "Normal");
        double Along = 0, Length = 0;
        for (int A = 0; A < 3; ++A) {
            Along += N[(size_t)A] * (P[(size_t)A] - BareCenter[A]) * 2 * Third;
            Length += N[(size_t)A] * N[(size_t)A];
        }
        EXPECT_GT(Along, 0.9);
        EXPECT_NEAR(Length, 1.0, 1e-5);
    }
    EXPECT_TRUE(Log.Contains("Mesh Bare has no normals"));
    EXPECT_TRUE(Log.Contains("dual quaternions"));
    EXPECT_FALSE(Log.Contains("Mesh Mirrored has no normals"));
}

// 7: the armature of the example is scaled by 100; its normals still have
// unit length.
TEST(Transforms, ScaledArmatureKeepsUnitNormals)
{
    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx"));
    Fixture.Run();
    mesh const *Mesh = Fixture.FirstFileMesh();
    ASSERT_NE(Mesh, nullptr);
    for (int32 V = 0; V < Mesh->PrimaryVertexData->Vertices.Count; ++V) {
        std::vector<double> N = VertexMember(Mesh->PrimaryVertexData, V, "Normal");
        EXPECT_NEAR(std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]), 1.0, 1e-5) << V;
    }
}

// 8: an FBX 5 file keeps its transform in a "Transform" channel tree under
// the model and its normals in a plain list.
TEST(Transforms, Fbx5ModelsHaveTheirTransformsAndNormals)
{
    fbx_test_field Root;
    fbx_test_field &Header = Root.Add("FBXHeaderExtension");
    Header.Add("FBXHeaderVersion", {FbxI(1000)});
    Header.Add("FBXVersion", {FbxI(5000)});
    fbx_test_field &Model = Root.Add("Model", {FbxS("Tri")});
    Model.Add("Version", {FbxI(194)});
    fbx_test_field &Transform = Model.Add("Channel", {FbxS("Transform")});
    double const Values[3][3] = {{1, 2, 3}, {0, 0, 90}, {1, 1, 1}};
    char const *Channels[3] = {"T", "R", "S"}, *Axes[3] = {"X", "Y", "Z"};
    for (int C = 0; C < 3; ++C) {
        fbx_test_field &Channel = Transform.Add("Channel", {FbxS(Channels[C])});
        for (int A = 0; A < 3; ++A) Channel.Add("Channel", {FbxS(Axes[A])}).Add("Default", {FbxD(Values[C][A])});
    }
    Model.Add("Vertices", {FbxArrayD({0, 0, 0, 1, 0, 0, 0, 1, 0})});
    // By control point, not normalised: (3, 0, 0) turns to +Y.
    Model.Add("Normals", {FbxArrayD({3, 0, 0, 3, 0, 0, 3, 0, 0})});
    Model.Add("PolygonVertexIndex", {FbxArrayI({0, 1, -3})});
    std::string Path = SaveFbxTestFile("fbx5.fbx", WriteFbxTestFields(Root, FbxTestBinary(5000)));

    mesh_fixture Fixture;
    ASSERT_TRUE(Fixture.Open(Path));
    remove(Path.c_str());
    Fixture.Run();
    mesh const *Mesh = Fixture.FirstFileMesh();
    ASSERT_NE(Mesh, nullptr);
    fbx_test_scene Expected;
    fbx_test_node Node = Bone("Tri", -1, 1, 2, 3);
    Node.Rotation[2] = 90;
    Expected.Nodes.push_back(Node);
    fbx_test_mesh Tri;
    Tri.ControlPoints = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    ExpectPointsPlaced(Mesh, Tri, NodeGlobal(Expected, 0));
    for (int32 V = 0; V < Mesh->PrimaryVertexData->Vertices.Count; ++V) {
        std::vector<double> N = VertexMember(Mesh->PrimaryVertexData, V, "Normal");
        EXPECT_NEAR(N[0], 0.0, 1e-6);
        EXPECT_NEAR(N[1], 1.0, 1e-6);
    }
}

// 8: the FBX 5 files of the shared set export with transforms (bones away
// from the identity) and unit normals.
TEST(Transforms, SharedFbx5FilesExportWithTransformsAndNormals)
{
    char const *Files[] = {"ufbx/data/max7_skin_5000_binary.fbx", "ufbx/data/max2009_blob_5800_ascii.fbx",
                           "ufbx/data/max2009_blob_5800_binary.fbx"};
    if (SharedFBXFile(Files[0]).empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    for (char const *File : Files) {
        SCOPED_TRACE(File);
        mesh_fixture Fixture;
        ASSERT_TRUE(Fixture.Open(SharedFBXFile(File)));
        Fixture.Run();
        int Placed = 0, Normals = 0;
        for (int32 S = 0; S < Fixture.State.FileInfo.SkeletonCount; ++S) {
            skeleton const *Skeleton = Fixture.State.FileInfo.Skeletons[S];
            for (int32 I = 0; I < Skeleton->BoneCount; ++I) Placed += Skeleton->Bones[I].Transform.Flags != 0;
        }
        for (tool_mesh *Mesh = Fixture.FirstMesh(); Mesh; Mesh = Mesh->NextInGraph) {
            vertex_data const *Data = Mesh->FileMesh ? Mesh->FileMesh->PrimaryVertexData : nullptr;
            for (int32 V = 0; Data && V < Data->Vertices.Count; ++V) {
                std::vector<double> N = VertexMember(Data, V, "Normal");
                EXPECT_NEAR(std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]), 1.0, 1e-5);
                ++Normals;
            }
        }
        EXPECT_GT(Placed, 0);
        EXPECT_GT(Normals, 0);
    }
}
