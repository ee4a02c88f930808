// Tangent frames of the meshes of real files, exported with tangents,
// binormals and cross vectors on: unit frames around the unit normal, the
// handedness of the texture's winding, tangents along the mapping's U.
#include <gtest/gtest.h>

#include <cmath>

#include "exporter_test_files.h"
#include "mesh_test_support.h"
#include "support/test_log_capture.h"

namespace {

enum
{
    IncludeTangentsId = 99,
    IncludeBinormalsId = 100,
    IncludeCrossVectorsId = 101,
};

struct vec3
{
    double X = 0, Y = 0, Z = 0;
};

vec3 Member3(vertex_data const *Data, int32 Vertex, char const *Name)
{
    std::vector<double> Values = VertexMember(Data, Vertex, Name);
    vec3 Result;
    if (Values.size() >= 3) Result = {Values[0], Values[1], Values[2]};
    return Result;
}
vec3 operator-(vec3 A, vec3 B)
{
    return {A.X - B.X, A.Y - B.Y, A.Z - B.Z};
}
vec3 operator*(double S, vec3 A)
{
    return {S * A.X, S * A.Y, S * A.Z};
}
double Dot(vec3 A, vec3 B)
{
    return A.X * B.X + A.Y * B.Y + A.Z * B.Z;
}
vec3 Cross(vec3 A, vec3 B)
{
    return {A.Y * B.Z - A.Z * B.Y, A.Z * B.X - A.X * B.Z, A.X * B.Y - A.Y * B.X};
}
double Length(vec3 A)
{
    return std::sqrt(Dot(A, A));
}

struct tangent_counts
{
    int Meshes = 0, Unmapped = 0, Vertices = 0, BadFrames = 0;
    int Corners = 0, Aligned = 0, HandChecked = 0, HandAgrees = 0;
};

// A mesh whose first coordinate channel has at least two different values.
bool HasTextureCoordinates(vertex_data const *Data)
{
    if (!LayoutMember(Data, "TextureCoordinates0")) return false;
    std::vector<double> First = VertexMember(Data, 0, "TextureCoordinates0");
    for (int32 V = 1; V < Data->Vertices.Count; ++V) {
        if (VertexMember(Data, V, "TextureCoordinates0") != First) return true;
    }
    return false;
}

void CheckMesh(mesh const *Mesh, tangent_counts &Counts)
{
    vertex_data const *Data = Mesh->PrimaryVertexData;
    tri_topology const *Topology = Mesh->PrimaryTopology;
    if (!Data || !Topology || Data->Vertices.Count == 0) return;
    ASSERT_NE(LayoutMember(Data, "Tangent"), nullptr);
    ASSERT_NE(LayoutMember(Data, "Binormal"), nullptr);
    bool Mapped = HasTextureCoordinates(Data);
    ++Counts.Meshes;
    Counts.Unmapped += !Mapped && Topology->IndexCount > 0;

    // Every vertex a triangle uses: unit tangent and binormal, orthogonal to
    // each other and to the unit normal; the cross vector is that normal.
    std::vector<bool> Used(Data->Vertices.Count, false);
    for (int32 I = 0; I < Topology->IndexCount; ++I) Used[Topology->Indices[I]] = true;
    int Bad = 0;
    for (int32 V = 0; V < Data->Vertices.Count; ++V) {
        vec3 N = Member3(Data, V, "Normal");
        if (!Used[V] || Length(N) < 1e-6) continue;
        N = (1.0 / Length(N)) * N;
        vec3 T = Member3(Data, V, "Tangent"), B = Member3(Data, V, "Binormal");
        vec3 C = Member3(Data, V, "TangentBinormalCross");
        ++Counts.Vertices;
        Bad += std::fabs(Length(T) - 1) > 1e-4 || std::fabs(Length(B) - 1) > 1e-4 || std::fabs(Dot(T, N)) > 1e-4 ||
               std::fabs(Dot(B, N)) > 1e-4 || std::fabs(Dot(T, B)) > 1e-4 || Length(C - N) > 1e-4;
    }
    Counts.BadFrames += Bad;
    EXPECT_EQ(Bad, 0) << Mesh->Name << ": vertices whose frame is not orthonormal around the normal";
    if (!Mapped) return;

    // Corners of triangles with a mapping and an area: the vertex's tangent
    // against the triangle's own direction of growing U, its handedness
    // against the winding of the triangle in texture space.
    for (int32 Triangle = 0; Triangle < Topology->IndexCount / 3; ++Triangle) {
        int32 const *Index = &Topology->Indices[3 * Triangle];
        vec3 P[3];
        std::vector<double> UV[3];
        for (int32 K = 0; K < 3; ++K) {
            P[K] = Member3(Data, Index[K], "Position");
            UV[K] = VertexMember(Data, Index[K], "TextureCoordinates0");
        }
        vec3 E1 = P[1] - P[0], E2 = P[2] - P[0];
        double DU1 = UV[1][0] - UV[0][0], DV1 = UV[1][1] - UV[0][1];
        double DU2 = UV[2][0] - UV[0][0], DV2 = UV[2][1] - UV[0][1];
        double Determinant = DU1 * DV2 - DU2 * DV1;
        vec3 Face = Cross(E1, E2);
        double Scale = Length(E1) * Length(E2);
        if (Scale <= 0 || Length(Face) < 1e-3 * Scale) continue;
        double UVScale = std::sqrt((DU1 * DU1 + DV1 * DV1) * (DU2 * DU2 + DV2 * DV2));
        if (UVScale <= 0 || std::fabs(Determinant) < 1e-3 * UVScale) continue;
        vec3 Along = (1.0 / Determinant) * (DV2 * E1 - DV1 * E2);
        if (Length(Along) <= 0) continue;
        Along = (1.0 / Length(Along)) * Along;
        for (int32 K = 0; K < 3; ++K) {
            vec3 N = Member3(Data, Index[K], "Normal");
            vec3 T = Member3(Data, Index[K], "Tangent"), B = Member3(Data, Index[K], "Binormal");
            ++Counts.Corners;
            Counts.Aligned += Dot(T, Along) > std::cos(3.14159265358979 / 4);
            // Only where the vertex normal and the face agree on the side.
            double FaceSide = Dot(Face, N);
            if (std::fabs(FaceSide) < 0.5 * Length(Face) * Length(N)) continue;
            ++Counts.HandChecked;
            Counts.HandAgrees += (Dot(Cross(T, B), N) > 0) == (Determinant * FaceSide > 0);
        }
    }
}

} // namespace

TEST(TangentFramesSharedFiles, FramesFollowTheTextureMapping)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
    log_capture Log;
    tangent_counts Counts;
    for (std::string const &Path : Files) {
        SCOPED_TRACE(Path);
        mesh_fixture Fixture;
        if (!Fixture.Open(Path)) continue;
        Fixture.SetOnEveryMesh(IncludeTangentsId, 1);
        Fixture.SetOnEveryMesh(IncludeBinormalsId, 1);
        Fixture.SetOnEveryMesh(IncludeCrossVectorsId, 1);
        Fixture.Run();
        for (tool_mesh *Mesh = Fixture.FirstMesh(); Mesh; Mesh = Mesh->NextInGraph) {
            if (Mesh->FileMesh) CheckMesh(Mesh->FileMesh, Counts);
        }
    }
    EXPECT_FALSE(Log.Contains("Failed to create the tangent space"));
    // Meshes without coordinates fall back with a warning.
    EXPECT_GE(Log.CountContaining("no usable texture coordinates"), Counts.Unmapped);
    double Aligned = Counts.Corners ? 100.0 * Counts.Aligned / Counts.Corners : 0;
    double Agrees = Counts.HandChecked ? 100.0 * Counts.HandAgrees / Counts.HandChecked : 0;
    std::printf("tangent frames: %d meshes (%d without coordinates), %d vertices, %d corners; tangent within 45 "
                "degrees of the triangle's U direction: %.2f%%; handedness of the texture winding: %d of %d "
                "(%.3f%%)\n",
                Counts.Meshes, Counts.Unmapped, Counts.Vertices, Counts.Corners, Aligned, Counts.HandAgrees,
                Counts.HandChecked, Agrees);
    EXPECT_GT(Counts.Corners, 0);
    EXPECT_GE(Aligned, 95.0);
    EXPECT_EQ(Counts.HandAgrees, Counts.HandChecked);
}
