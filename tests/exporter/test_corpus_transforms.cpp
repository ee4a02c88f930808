// Skeletons, skins and normals of every shared FBX file against an
// independent reader's figures (reference/<file>.json): bind worlds of the
// bones, vertex boxes of the meshes, and the agreement of what is stored
// with itself (inverse worlds, skinning at rest, unit normals, outward
// faces of mirrored meshes). Prints the figures of each file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "exporter_test_files.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_node.h"
#include "mesh_test_support.h"
#include "support/test_json.h"
#include "support/test_log_capture.h"
#include "transform_test_support.h"

namespace {

// The reference's 3x4 column-vector matrix in row-vector form.
mat FromReference(std::vector<double> const &V)
{
    mat Result = {};
    for (int Axis = 0; Axis < 3; ++Axis)
        for (int K = 0; K < 3; ++K) Result.M[Axis * 4 + K] = V[K * 4 + Axis];
    for (int K = 0; K < 3; ++K) Result.M[12 + K] = V[K * 4 + 3];
    Result.M[15] = 1;
    return Result;
}

double Percentile(std::vector<double> Values, double Fraction)
{
    if (Values.empty()) return 0;
    std::sort(Values.begin(), Values.end());
    size_t At = (size_t)std::ceil(Fraction * (double)Values.size());
    return Values[std::min(Values.size() - 1, At > 0 ? At - 1 : 0)];
}

struct file_figures
{
    int Bones = 0, Compared = 0, Meshes = 0, MeshesCompared = 0, Normals = 0, BadNormals = 0, Singular = 0;
    double BindP99 = 0, BindMax = 0, Inverse = 0, Box = 0, Rest = 0;
    int Mirrored = 0;
    double MirroredOutward = 1.0; // smallest share of outward faces over mirrored meshes
};

int32 FindBone(skeleton const *Skeleton, char const *Name)
{
    int32 Found = -1;
    for (int32 I = 0; Skeleton && Name && I < Skeleton->BoneCount; ++I) {
        if (Skeleton->Bones[I].Name && std::string(Skeleton->Bones[I].Name) == Name) {
            if (Found >= 0) return -1;
            Found = I;
        }
    }
    return Found;
}

void CheckSkeletons(mesh_fixture &Fixture, test_json const &Reference, file_figures &Figures,
                    std::map<skeleton const *, std::vector<mat>> &Worlds)
{
    std::map<std::string, std::vector<double>> Bind;
    std::map<std::string, int> Count;
    if (test_json const *Nodes = Reference.Find("nodes")) {
        for (test_json const &Node : Nodes->Items) {
            test_json const *Name = Node.Find("name"), *World = Node.Find("bind_world");
            if (!Name || !World) continue;
            ++Count[Name->Text];
            Bind[Name->Text] = World->Numbers();
        }
    }
    std::vector<double> Errors;
    scene_export_state &State = Fixture.State;
    for (int32 S = 0; S < State.FileInfo.SkeletonCount; ++S) {
        skeleton const *Skeleton = State.FileInfo.Skeletons[S];
        std::vector<mat> &World = Worlds[Skeleton];
        World = ComposeBoneWorlds(Skeleton);
        // The skeleton's size: the box of its bones' reference positions,
        // or the largest axis of one, whichever is larger.
        double Low[3] = {1e300, 1e300, 1e300}, High[3] = {-1e300, -1e300, -1e300}, Size = 1e-9;
        for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
            auto Found = Bind.find(Skeleton->Bones[I].Name ? Skeleton->Bones[I].Name : "");
            if (Found == Bind.end() || Found->second.size() < 12) continue;
            mat R = FromReference(Found->second);
            for (int A = 0; A < 3; ++A) {
                Low[A] = std::fmin(Low[A], R.M[12 + A]);
                High[A] = std::fmax(High[A], R.M[12 + A]);
                Size = std::fmax(Size, std::sqrt(R.M[A * 4] * R.M[A * 4] + R.M[A * 4 + 1] * R.M[A * 4 + 1] +
                                                 R.M[A * 4 + 2] * R.M[A * 4 + 2]));
            }
        }
        if (High[0] >= Low[0]) {
            Size = std::fmax(Size, std::sqrt((High[0] - Low[0]) * (High[0] - Low[0]) +
                                             (High[1] - Low[1]) * (High[1] - Low[1]) +
                                             (High[2] - Low[2]) * (High[2] - Low[2])));
        }
        for (int32 I = 0; I < Skeleton->BoneCount; ++I) {
            bone const &Bone = Skeleton->Bones[I];
            ++Figures.Bones;
            // Stored inverse times composed world: the identity, where the
            // world has an inverse at all (a bone scaled to zero has none).
            bool Singular = std::fabs(Determinant3(World[(size_t)I])) < 1e-9;
            Figures.Singular += Singular;
            if (!Singular) Figures.Inverse = std::fmax(Figures.Inverse, InverseDeviation(Bone, World[(size_t)I], Size));
            std::string Name = Bone.Name ? Bone.Name : "";
            auto Found = Bind.find(Name);
            if (Found == Bind.end() || Count[Name] != 1 || Found->second.size() < 12) continue;
            mat Expected = FromReference(Found->second);
            Errors.push_back(MaxDifference(World[(size_t)I], Expected) / Size);
        }
    }
    Figures.Compared = (int)Errors.size();
    Figures.BindP99 = Percentile(Errors, 0.99);
    Figures.BindMax = Errors.empty() ? 0 : *std::max_element(Errors.begin(), Errors.end());
}

void CheckMeshes(mesh_fixture &Fixture, test_json const &Reference, file_figures &Figures,
                 std::map<skeleton const *, std::vector<mat>> &Worlds)
{
    // Reference boxes by node, and the scene's size over all of them.
    std::map<std::string, std::vector<double>> Boxes;
    std::map<std::string, int> Count;
    double Low[3] = {1e300, 1e300, 1e300}, High[3] = {-1e300, -1e300, -1e300};
    if (test_json const *Instances = Reference.Find("mesh_instances")) {
        for (test_json const &Instance : Instances->Items) {
            test_json const *Node = Instance.Find("node"), *Skinned = Instance.Find("skinned");
            bool IsSkinned = Skinned && Skinned->Value != 0;
            test_json const *Min = Instance.Find(IsSkinned ? "bind_min" : "min");
            test_json const *Max = Instance.Find(IsSkinned ? "bind_max" : "max");
            if (!Node || !Min || !Max || Min->Items.size() != 3) continue;
            std::vector<double> Box = Min->Numbers();
            for (double V : Max->Numbers()) Box.push_back(V);
            ++Count[Node->Text];
            Boxes[Node->Text] = Box;
            for (int A = 0; A < 3; ++A) {
                Low[A] = std::fmin(Low[A], Box[A]);
                High[A] = std::fmax(High[A], Box[3 + A]);
            }
        }
    }
    double Scene = 1e-9;
    if (High[0] >= Low[0])
        Scene = std::fmax(Scene,
                          std::sqrt((High[0] - Low[0]) * (High[0] - Low[0]) + (High[1] - Low[1]) * (High[1] - Low[1]) +
                                    (High[2] - Low[2]) * (High[2] - Low[2])));

    for (tool_mesh *ToolMesh = Fixture.FirstMesh(); ToolMesh; ToolMesh = ToolMesh->NextInGraph) {
        mesh const *Mesh = ToolMesh->FileMesh;
        if (!Mesh || !Mesh->PrimaryVertexData) continue;
        ++Figures.Meshes;
        vertex_data const *Data = Mesh->PrimaryVertexData;
        skeleton const *Skeleton = ToolMesh->Model ? ToolMesh->Model->Skeleton : nullptr;
        std::vector<mat> const *World = Worlds.count(Skeleton) ? &Worlds[Skeleton] : nullptr;
        double Box[6] = {1e300, 1e300, 1e300, -1e300, -1e300, -1e300};
        std::vector<std::vector<double>> Positions, Normals;
        // Vertices of no triangle (points of edge-only meshes) have no face
        // to take a normal from.
        tri_topology const *Topology = Mesh->PrimaryTopology;
        int32 IndexCount = Topology ? (Topology->IndexCount > 0 ? Topology->IndexCount : Topology->Index16Count) : 0;
        auto IndexAt = [&](int32 I) {
            return Topology->IndexCount > 0 ? Topology->Indices[I] : (int32)(uint16)Topology->Indices16[I];
        };
        std::vector<bool> Used((size_t)Data->Vertices.Count, false);
        for (int32 I = 0; I < IndexCount; ++I) {
            if (IndexAt(I) >= 0 && IndexAt(I) < Data->Vertices.Count) Used[(size_t)IndexAt(I)] = true;
        }
        for (int32 V = 0; V < Data->Vertices.Count; ++V) {
            std::vector<double> P = VertexMember(Data, V, "Position");
            std::vector<double> N = VertexMember(Data, V, "Normal");
            Positions.push_back(P);
            Normals.push_back(N);
            for (int A = 0; A < 3; ++A) {
                Box[A] = std::fmin(Box[A], P[A]);
                Box[3 + A] = std::fmax(Box[3 + A], P[A]);
            }
            if (Used[(size_t)V]) {
                ++Figures.Normals;
                double Length = std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]);
                if (!(std::fabs(Length - 1.0) < 1e-3)) ++Figures.BadNormals;
            }
            // Skinned at rest with the stored bones and weights.
            if (!World || !Skeleton) continue;
            std::vector<double> Weights = VertexMember(Data, V, "BoneWeights");
            std::vector<double> Indices = VertexMember(Data, V, "BoneIndices");
            if (Indices.empty()) Indices.push_back(0);
            if (Weights.empty()) Weights.push_back(1.0);
            double Skinned[3] = {0, 0, 0}, Total = 0;
            bool Bound = true;
            for (size_t E = 0; E < Weights.size() && E < Indices.size(); ++E) {
                if (Weights[E] == 0) continue;
                int32 Binding = (int32)Indices[E];
                int32 B =
                    Binding < Mesh->BoneBindingCount ? FindBone(Skeleton, Mesh->BoneBindings[Binding].BoneName) : -1;
                if (B < 0) {
                    Bound = false;
                    break;
                }
                double Local[3];
                TransformPoint(&Skeleton->Bones[B].InverseWorldTransform[0][0], P.data(), Local);
                mat const &M = (*World)[(size_t)B];
                for (int A = 0; A < 3; ++A)
                    Skinned[A] +=
                        Weights[E] * (Local[0] * M.M[A] + Local[1] * M.M[4 + A] + Local[2] * M.M[8 + A] + M.M[12 + A]);
                Total += Weights[E];
            }
            if (!Bound || Total <= 0) continue;
            for (int A = 0; A < 3; ++A)
                Figures.Rest = std::fmax(Figures.Rest, std::fabs(Skinned[A] / Total - P[A]) / Scene);
        }
        std::string Name = Mesh->Name ? Mesh->Name : "";
        auto Found = Boxes.find(Name);
        if (Found != Boxes.end() && Count[Name] == 1 && Data->Vertices.Count > 0) {
            ++Figures.MeshesCompared;
            for (int I = 0; I < 6; ++I)
                Figures.Box = std::fmax(Figures.Box, std::fabs(Box[I] - Found->second[(size_t)I]) / Scene);
        }
        // A mirrored placement: the faces' winding and their normals agree.
        KFbxMesh *FBXMesh = (KFbxMesh *)ToolMesh->ToolMesh;
        KFbxNode *Node = FBXMesh ? FBXMesh->GetNode() : nullptr;
        if (!Node || !Topology || (Node->GetBindWorld() * Node->GetGeometricTransform()).Determinant3() >= 0) continue;
        int Outward = 0, Faces = 0;
        for (int32 T = 0; T + 2 < IndexCount; T += 3) {
            int32 C[3] = {IndexAt(T), IndexAt(T + 1), IndexAt(T + 2)};
            std::vector<double> &A = Positions[(size_t)C[0]], &B = Positions[(size_t)C[1]],
                                &D = Positions[(size_t)C[2]];
            double U[3] = {B[0] - A[0], B[1] - A[1], B[2] - A[2]}, W[3] = {D[0] - A[0], D[1] - A[1], D[2] - A[2]};
            double Face[3] = {U[1] * W[2] - U[2] * W[1], U[2] * W[0] - U[0] * W[2], U[0] * W[1] - U[1] * W[0]};
            double Dot = 0;
            for (int K = 0; K < 3; ++K)
                for (int Axis = 0; Axis < 3; ++Axis) Dot += Face[Axis] * Normals[(size_t)C[K]][Axis];
            if (Dot == 0) continue;
            ++Faces;
            Outward += Dot > 0;
        }
        if (Faces > 0) {
            ++Figures.Mirrored;
            Figures.MirroredOutward = std::fmin(Figures.MirroredOutward, (double)Outward / Faces);
        }
    }
}

} // namespace

TEST(CorpusTransforms, SkeletonsSkinsAndNormalsAgreeWithTheReferenceAndThemselves)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Quiet;
    std::string Root = std::string(TESSEL_SHARED_FBX_DIR) + "/";
    int Checked = 0, Bones = 0, Meshes = 0;
    std::printf("%-70s %5s %9s %9s %9s %6s %9s %9s %5s %6s\n", "file", "bones", "bind p99", "bind max", "inverse",
                "meshes", "box", "rest", "!unit", "mirror");
    int Mirrored = 0, Singular = 0;
    for (std::string const &Path : Files) {
        std::string Relative = Path.substr(Root.size());
        test_json Reference;
        if (!ReadTestJsonFile(Root + "reference/" + Relative + ".json", Reference)) continue;
        test_json const *Status = Reference.Find("status");
        if (Status && Status->Text != "ok") continue;
        mesh_fixture Fixture;
        if (!Fixture.Open(Path)) continue;
        SCOPED_TRACE(Relative);
        Fixture.Run();
        file_figures Figures;
        std::map<skeleton const *, std::vector<mat>> Worlds;
        CheckSkeletons(Fixture, Reference, Figures, Worlds);
        CheckMeshes(Fixture, Reference, Figures, Worlds);
        ++Checked;
        Mirrored += Figures.Mirrored;
        Singular += Figures.Singular;
        Bones += Figures.Compared;
        Meshes += Figures.MeshesCompared;
        std::printf("%-70.70s %5d %9.2e %9.2e %9.2e %6d %9.2e %9.2e %5d %6.3f\n", Relative.c_str(), Figures.Bones,
                    Figures.BindP99, Figures.BindMax, Figures.Inverse, Figures.Meshes, Figures.Box, Figures.Rest,
                    Figures.BadNormals, Figures.Mirrored ? Figures.MirroredOutward : 1.0);
        EXPECT_LE(Figures.BindP99, 1e-4);
        EXPECT_LE(Figures.BindMax, 1e-3);
        EXPECT_LE(Figures.Inverse, 1e-5);
        EXPECT_LE(Figures.Box, 1e-3);
        EXPECT_LE(Figures.Rest, 1e-5);
        EXPECT_EQ(Figures.BadNormals, 0);
        EXPECT_GE(Figures.MirroredOutward, 0.9);
    }
    std::printf("%d files checked: %d bone bind worlds and %d mesh boxes compared, %d mirrored meshes, %d bones "
                "without an inverse (scaled to zero)\n",
                Checked, Bones, Meshes, Mirrored, Singular);
    EXPECT_GT(Checked, 50);
}
