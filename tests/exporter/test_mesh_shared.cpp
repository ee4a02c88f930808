// Meshes of real files: every file of the shared FBX folder that loads, the
// Blender-made rigged scenes and the bundled example.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <dirent.h>
#include <sys/stat.h>

#include "exporter_test_files.h"
#include "fbx/fbx_tessel_node.h"
#include "fbx/fbx_tessel_skin.h"
#include "mesh_test_support.h"
#include "skeleton_test_support.h"
#include "support/test_log_capture.h"

namespace {

enum
{
    IncludeTopologyId = 77
};

// The control point a vertex came from: the one of its ring of coincident
// vertices that has an index below the control point count.
int32 ControlPointOf(tri_topology const *Topology, int32 Vertex, int32 ControlPoints)
{
    for (int32 Steps = 0; Vertex >= ControlPoints && Steps < Topology->VertexToVertexCount; ++Steps) {
        Vertex = Topology->VertexToVertexMap[Vertex];
    }
    return Vertex;
}

double Distance(std::vector<double> const &A, std::vector<double> const &B)
{
    double Sum = 0;
    for (size_t I = 0; I < A.size() && I < B.size(); ++I) Sum += (A[I] - B[I]) * (A[I] - B[I]);
    return std::sqrt(Sum);
}

// True when two vertices would have been welded: every real member other
// than the position within 0.001.
bool WeldTogether(vertex_data const *Data, int32 A, int32 B)
{
    for (data_type_definition const *Member = Data->Vertices.Type; Member->Type != EndMember; ++Member) {
        std::string Name = Member->Name;
        if (Name == "Position" || Name == "BoneWeights" || Name == "BoneIndices") continue;
        if (Distance(VertexMember(Data, A, Member->Name), VertexMember(Data, B, Member->Name)) > 0.001) return false;
    }
    return true;
}

// A bone scaled to (nearly) nothing has no usable inverse: no box to check.
bool HasUsableInverse(bone const &Bone)
{
    real32 const(*M)[4] = Bone.InverseWorldTransform;
    double Determinant = M[0][0] * (M[1][1] * M[2][2] - M[1][2] * M[2][1]) -
                         M[0][1] * (M[1][0] * M[2][2] - M[1][2] * M[2][0]) +
                         M[0][2] * (M[1][0] * M[2][1] - M[1][1] * M[2][0]);
    return std::isfinite(Determinant) && std::fabs(Determinant) < 1e6;
}

bone const *FindUniqueBone(skeleton const *Skeleton, char const *Name)
{
    bone const *Found = nullptr;
    for (int32 B = 0; Skeleton && Name && B < Skeleton->BoneCount; ++B) {
        if (Skeleton->Bones[B].Name && std::string(Skeleton->Bones[B].Name) == Name) {
            if (Found) return nullptr;
            Found = &Skeleton->Bones[B];
        }
    }
    return Found;
}

// Checks what holds for every exported mesh; counts what it compared.
struct mesh_checks
{
    int Meshes = 0, Vertices = 0, BoxChecks = 0;

    void Check(tool_mesh *ToolMesh)
    {
        mesh const *Mesh = ToolMesh->FileMesh;
        KFbxMesh *FBXMesh = (KFbxMesh *)ToolMesh->ToolMesh;
        if (!Mesh || !Mesh->PrimaryVertexData) return;
        ++Meshes;
        vertex_data const *Data = Mesh->PrimaryVertexData;
        tri_topology const *Topology = Mesh->PrimaryTopology;
        ASSERT_NE(Topology, nullptr);
        int32 Count = Data->Vertices.Count;
        EXPECT_EQ(Topology->IndexCount, 3 * FBXMesh->GetPolygonCount());
        for (int32 I = 0; I < Topology->IndexCount; ++I) {
            ASSERT_GE(Topology->Indices[I], 0);
            ASSERT_LT(Topology->Indices[I], Count);
        }

        // Vertices of one control point differ beyond the weld tolerances.
        int32 Points = FBXMesh->GetControlPointsCount();
        ASSERT_EQ(Topology->VertexToVertexCount, Count);
        std::vector<std::vector<int32>> ByPoint(Points);
        for (int32 V = 0; V < Count; ++V) {
            int32 Point = ControlPointOf(Topology, V, Points);
            ASSERT_LT(Point, Points);
            ByPoint[Point].push_back(V);
        }
        int Unwelded = 0;
        for (std::vector<int32> const &Ring : ByPoint) {
            for (size_t A = 0; A < Ring.size(); ++A)
                for (size_t B = A + 1; B < Ring.size(); ++B) Unwelded += WeldTogether(Data, Ring[A], Ring[B]);
        }
        EXPECT_EQ(Unwelded, 0) << Mesh->Name << ": vertex pairs that should have been welded";

        skeleton const *Skeleton = ToolMesh->Model ? ToolMesh->Model->Skeleton : nullptr;
        data_type_definition const *WeightMember = LayoutMember(Data, "BoneWeights");
        // Boxes grow from the triangles' corners: vertices no triangle uses
        // (of point clouds and edge meshes) are left out.
        std::vector<bool> Used(Count, false);
        for (int32 I = 0; I < Topology->IndexCount; ++I) Used[Topology->Indices[I]] = true;
        // Counted per mesh, so that a fault reports once.
        int BadSums = 0, Outside = 0;
        for (int32 V = 0; V < Count; ++V) {
            ++Vertices;
            std::vector<double> P = VertexMember(Data, V, "Position");
            std::vector<double> Weights = VertexMember(Data, V, "BoneWeights");
            std::vector<double> Indices = VertexMember(Data, V, "BoneIndices");
            if (WeightMember) {
                ASSERT_EQ(WeightMember->Type, NormalUInt8Member);
                double Sum = 0;
                for (double W : Weights) Sum += std::round(W * 255.0);
                BadSums += Sum != 255.0;
            }
            if (Indices.empty()) Indices.push_back(0);
            if (Weights.empty()) Weights.push_back(1.0);
            for (size_t E = 0; E < Weights.size(); ++E) {
                if (!Used[V] || Weights[E] == 0 || Indices[E] >= Mesh->BoneBindingCount) continue;
                bone_binding const &Binding = Mesh->BoneBindings[(int)Indices[E]];
                bone const *Bone = FindUniqueBone(Skeleton, Binding.BoneName);
                if (!Bone || !HasUsableInverse(*Bone)) continue;
                double Local[3];
                TransformPoint(&Bone->InverseWorldTransform[0][0], P.data(), Local);
                double Scale = 1.0;
                for (int A = 0; A < 3; ++A) Scale = std::fmax(Scale, std::fabs(Local[A]));
                for (int A = 0; A < 3; ++A) {
                    Outside +=
                        Local[A] < Binding.OBBMin[A] - 1e-4 * Scale || Local[A] > Binding.OBBMax[A] + 1e-4 * Scale;
                }
                ++BoxChecks;
            }
        }
        EXPECT_EQ(BadSums, 0) << Mesh->Name << ": vertices whose weights don't sum to 255";
        EXPECT_EQ(Outside, 0) << Mesh->Name << ": vertices outside the boxes of bones that weigh them";
    }
};

// Where the skin puts a control point at rest, from the matrices as the
// file stores them: the sum over the clusters that hold it of weight x point
// x geometric x Transform x TransformLink, divided by the weights' sum (the
// modelled mesh). A point without weight follows its node's bind world.
// (This used to take the links' static globals and raw weights: vertices
// stood in the static pose and shrank where weights fell short of 1.)
KFbxVector4 DeformedPoint(KFbxMesh *Mesh, int32 Point, double &WeightSum)
{
    WeightSum = 0;
    KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
    AffineMatrix Geometric = Mesh->GetNode()->GetGeometricTransform();
    KFbxVector4 Result;
    for (int32 C = 0; C < Skin->GetClusterCount(); ++C) {
        KFbxCluster *Cluster = Skin->GetCluster(C);
        for (int32 E = 0; E < Cluster->GetControlPointIndicesCount(); ++E) {
            if (Cluster->GetControlPointIndices()[E] != Point) continue;
            AffineMatrix Placement = Cluster->GetStoredTransformLink() * Cluster->GetStoredTransform() * Geometric;
            KFbxVector4 Moved = Placement.MultT(Mesh->GetControlPoints()[Point]);
            double Weight = Cluster->GetControlPointWeights()[E];
            for (int A = 0; A < 3; ++A) Result[A] += Weight * Moved[A];
            WeightSum += Weight;
            break;
        }
    }
    if (!(WeightSum > 0)) {
        WeightSum = 1;
        return (Mesh->GetNode()->GetBindWorld() * Geometric).MultT(Mesh->GetControlPoints()[Point]);
    }
    for (int A = 0; A < 3; ++A) Result[A] /= WeightSum;
    WeightSum = 1;
    return Result;
}

bool NearlyEqual(AffineMatrix const &A, AffineMatrix const &B, double Tolerance)
{
    double Scale = 1.0;
    for (int R = 0; R < 4; ++R)
        for (int K = 0; K < 4; ++K) Scale = std::fmax(Scale, std::fabs(B.mData[R][K]));
    for (int R = 0; R < 4; ++R)
        for (int K = 0; K < 4; ++K)
            if (std::fabs(A.mData[R][K] - B.mData[R][K]) > Tolerance * Scale) return false;
    return true;
}

// True when every bone of the skin, and the mesh, stand where they stood at
// binding time.
bool RestsInBindPose(KFbxMesh *Mesh)
{
    KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
    AffineMatrix MeshGlobal = Mesh->GetNode()->GetGlobalTransformDefault();
    for (int32 C = 0; C < Skin->GetClusterCount(); ++C) {
        KFbxCluster *Cluster = Skin->GetCluster(C);
        if (!Cluster->GetLink()) return false;
        AffineMatrix const &Bind = Cluster->GetStoredTransformLink();
        if (!NearlyEqual(Cluster->GetLink()->GetGlobalTransformDefault(), Bind, 1e-4)) return false;
        if (!NearlyEqual(Bind * Cluster->GetStoredTransform(), MeshGlobal, 1e-4)) return false;
    }
    return true;
}

// Bind matrices are taken apart into translation, rotation and scale and
// composed again, which drops any shear: such skins are not compared with
// the stored matrices.
bool HasShearedBindMatrices(KFbxMesh *Mesh)
{
    KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
    for (int32 C = 0; C < Skin->GetClusterCount(); ++C) {
        AffineMatrix Composed;
        Skin->GetCluster(C)->GetTransformMatrix(Composed);
        if (!NearlyEqual(Composed.Inverse(), Skin->GetCluster(C)->GetStoredTransform(), 1e-5)) return true;
    }
    return false;
}

struct pose_counts
{
    int Compared = 0;
    int InBindPose = 0;
};

// Skinned meshes: each vertex is where the skin puts its control point, and
// moved by its bones (stored inverse world, then the world a runtime
// composes from the stored locals) with its weights it stays there. In
// scenes that rest in their bind pose that is also where the mesh's own
// transform puts the point.
void CheckSkinnedVertices(mesh_fixture &Fixture, pose_counts &Counts)
{
    for (tool_mesh *ToolMesh = Fixture.FirstMesh(); ToolMesh; ToolMesh = ToolMesh->NextInGraph) {
        KFbxMesh *FBXMesh = (KFbxMesh *)ToolMesh->ToolMesh;
        mesh const *Mesh = ToolMesh->FileMesh;
        if (!FBXMesh->GetDeformerCount(FbxDeformer_Skin) || !Mesh || !Mesh->PrimaryVertexData) continue;
        skeleton const *Skeleton = ToolMesh->Model->Skeleton;
        AffineMatrix Global = FBXMesh->GetNode()->GetBindWorld() * FBXMesh->GetNode()->GetGeometricTransform();
        bool BindPose = RestsInBindPose(FBXMesh);
        bool Sheared = HasShearedBindMatrices(FBXMesh);
        vertex_data const *Data = Mesh->PrimaryVertexData;
        int32 Points = FBXMesh->GetControlPointsCount();
        std::vector<mat> Worlds = ComposeBoneWorlds(Skeleton);
        double Extent = 1e-9;
        for (int32 P = 0; P < Points; ++P) {
            KFbxVector4 World = Global.MultT(FBXMesh->GetControlPoints()[P]);
            for (int A = 0; A < 3; ++A) Extent = std::fmax(Extent, std::fabs(World[A]));
        }
        // Deviations are gathered per mesh so that a broken skin reports
        // once, not for every vertex.
        double Skin = 0, Weights = 0, Bind = 0;
        for (int32 V = 0; V < Data->Vertices.Count; ++V) {
            int32 Point = ControlPointOf(Mesh->PrimaryTopology, V, Points);
            double WeightSum = 0;
            KFbxVector4 Expected = DeformedPoint(FBXMesh, Point, WeightSum);
            bool Whole = std::fabs(WeightSum - 1.0) < 1e-3;
            KFbxVector4 Placed = Global.MultT(FBXMesh->GetControlPoints()[Point]);
            std::vector<double> P = VertexMember(Data, V, "Position");
            std::vector<double> VertexWeights = VertexMember(Data, V, "BoneWeights");
            std::vector<double> Indices = VertexMember(Data, V, "BoneIndices");
            if (Indices.empty()) Indices.push_back(0);
            if (VertexWeights.empty()) VertexWeights.push_back(1.0);
            double Skinned[3] = {0, 0, 0};
            for (size_t E = 0; E < VertexWeights.size(); ++E) {
                if (VertexWeights[E] == 0) continue;
                bone const *Bone = FindUniqueBone(Skeleton, Mesh->BoneBindings[(int)Indices[E]].BoneName);
                EXPECT_NE(Bone, nullptr);
                if (!Bone) return;
                double const *World = Worlds[(size_t)(Bone - Skeleton->Bones)].M;
                double Local[3];
                TransformPoint(&Bone->InverseWorldTransform[0][0], P.data(), Local);
                for (int A = 0; A < 3; ++A) {
                    Skinned[A] += VertexWeights[E] * (Local[0] * World[A] + Local[1] * World[4 + A] +
                                                      Local[2] * World[8 + A] + World[12 + A]);
                }
            }
            for (int A = 0; A < 3; ++A) {
                if (!Sheared) Skin = std::fmax(Skin, std::fabs(P[A] - Expected[A]) / Extent);
                Weights = std::fmax(Weights, std::fabs(Skinned[A] - P[A]) / Extent);
                if (BindPose && Whole) Bind = std::fmax(Bind, std::fabs(P[A] - Placed[A]) / Extent);
            }
            ++Counts.Compared;
            if (BindPose && Whole) ++Counts.InBindPose;
        }
        EXPECT_LT(Skin, 1e-3) << Mesh->Name << ": vertices off the skin's placement";
        EXPECT_LT(Weights, 1e-3) << Mesh->Name << ": bone bindings and weights move the vertices";
        EXPECT_LT(Bind, 1e-3) << Mesh->Name << ": vertices off the bind pose";
    }
}

// Opens a file with the topology kept, so that vertices lead back to their
// control points, and runs the stages.
bool OpenAndRun(mesh_fixture &Fixture, std::string const &Path)
{
    if (!Fixture.Open(Path)) return false;
    Fixture.SetOnEveryMesh(IncludeTopologyId, 1);
    Fixture.Run();
    return true;
}

} // namespace

// The cluster's stored Transform maps the mesh into the bone's bind space:
// only link global x Transform brings the sausage's points to its own pose.
TEST(MeshBindPose, SkinnedVerticesFollowTheStoredClusterTransform)
{
    std::string Source = TESSEL_SOURCE_DIR;
    for (char const *Scene : {"/tests/data/blender/branching_rig.fbx", "/tests/data/blender/tail_scale.fbx",
                              "/tests/data/blender/rigged_arm_ascii.fbx", "/examples/rigged_arm.fbx"}) {
        SCOPED_TRACE(Scene);
        mesh_fixture Fixture;
        pose_counts Counts;
        ASSERT_TRUE(OpenAndRun(Fixture, Source + Scene));
        CheckSkinnedVertices(Fixture, Counts);
        EXPECT_GT(Counts.Compared, 0);
    }
    std::string Sausage = SharedFBXFile("ufbx/data/maya_game_sausage_6100_ascii.fbx");
    if (Sausage.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    mesh_fixture Fixture;
    pose_counts Counts;
    ASSERT_TRUE(OpenAndRun(Fixture, Sausage));
    CheckSkinnedVertices(Fixture, Counts);
    EXPECT_GT(Counts.InBindPose, 0);
}

TEST(MeshSharedFiles, EveryLoadableFileGivesSoundMeshes)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    int32 Before = LiveBlocks();
    mesh_checks Checks;
    pose_counts Skinned;
    int Loaded = 0;
    for (std::string const &Path : Files) {
        SCOPED_TRACE(Path);
        mesh_fixture Fixture;
        if (!OpenAndRun(Fixture, Path)) continue;
        ++Loaded;
        for (tool_mesh *Mesh = Fixture.FirstMesh(); Mesh; Mesh = Mesh->NextInGraph) Checks.Check(Mesh);
        CheckSkinnedVertices(Fixture, Skinned);
    }
    EXPECT_EQ(LiveBlocks(), Before);
    EXPECT_GT(Checks.Meshes, 0);
    EXPECT_GT(Checks.BoxChecks, 0);
    std::printf("shared files: %d loaded, %d meshes, %d vertices, %d box checks, %d skinned vertices (%d at the "
                "bind pose)\n",
                Loaded, Checks.Meshes, Checks.Vertices, Checks.BoxChecks, Skinned.Compared, Skinned.InBindPose);
}
