#include "fbx_tool/fbx_tessel_tool_geometry.h"

#include <new>

#include <cmath>
#include <cstring>

#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_skin.h"
#include "format/tessel_string_table.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

namespace fbx_tool {

namespace {

KFbxMesh *ToFBXMesh(tool_mesh *Mesh)
{
    return Mesh ? (KFbxMesh *)Mesh->ToolMesh : 0;
}

KFbxSkin *GetFirstSkin(KFbxMesh *Mesh)
{
    return Mesh ? (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin) : 0;
}

// Position of the first entry of Vertex in the cluster, or -1.
int32 FindClusterEntry(KFbxCluster const *Cluster, int32 Vertex)
{
    int32 Count = Cluster->GetControlPointIndicesCount();
    int32 const *Indices = Cluster->GetControlPointIndices();
    for (int32 Entry = 0; Entry < Count; ++Entry) {
        if (Indices[Entry] == Vertex) return Entry;
    }
    return -1;
}

char const *Intern(string_table *Strings, char const *Name)
{
    return Strings ? MapString(Strings, Name) : Name;
}

} // namespace

// ---------------------------------------------------------------------------
// Mesh as a whole.

int32 GetMeshKind(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    return ToolMeshKind_Polygons;
}

namespace {

// B(node) x G: where a rigid mesh's points, and a skinned mesh's unweighted
// ones, stand at rest.
AffineMatrix GetMeshNodePlacement(KFbxMesh *Mesh)
{
    KFbxNode *Node = Mesh->GetNode();
    return Node ? Node->GetBindWorld() * Node->GetGeometricTransform() : AffineMatrix();
}

// TransformLink x Transform x G: a cluster's point placement at rest, the
// mesh as it was modelled. The cluster's own TransformLink counts here even
// where another skin bound the same bone elsewhere (the skeleton's rest
// pose then follows the first).
AffineMatrix GetClusterPlacement(KFbxCluster *Cluster, AffineMatrix const &Geometric)
{
    return Cluster->GetStoredTransformLink() * Cluster->GetStoredTransform() * Geometric;
}

void AddWeighted(AffineMatrix &Sum, AffineMatrix const &Matrix, real64 Weight)
{
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) Sum.mData[Row][Column] += Weight * Matrix.mData[Row][Column];
    }
}

void FinishWeightedSum(AffineMatrix &Sum, real64 Total, AffineMatrix const &Unweighted)
{
    if (!(Total > 0.0)) {
        Sum = Unweighted;
        return;
    }
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) Sum.mData[Row][Column] /= Total;
    }
}

AffineMatrix GetGeometric(KFbxMesh *Mesh)
{
    KFbxNode *Node = Mesh->GetNode();
    return Node ? Node->GetGeometricTransform() : AffineMatrix();
}

} // namespace

void ComputeSkinMatrix(fbx_mesh_data *MeshData, int32 Index, AffineMatrix &Result)
{
    KFbxMesh *Mesh = MeshData->Mesh;
    KFbxSkin *Skin = GetFirstSkin(Mesh);
    if (!Skin) {
        Result = GetMeshNodePlacement(Mesh);
        return;
    }
    AffineMatrix Geometric = GetGeometric(Mesh);
    memset(Result.mData, 0, sizeof(Result.mData));
    real64 Total = 0.0;
    for (int32 ClusterIndex = 0; ClusterIndex < Skin->GetClusterCount(); ++ClusterIndex) {
        KFbxCluster *Cluster = Skin->GetCluster(ClusterIndex);
        int32 Entry = Cluster ? FindClusterEntry(Cluster, Index) : -1;
        if (Entry < 0) continue;
        real64 Weight = Cluster->GetControlPointWeights()[Entry];
        AddWeighted(Result, GetClusterPlacement(Cluster, Geometric), Weight);
        Total += Weight;
    }
    FinishWeightedSum(Result, Total, GetMeshNodePlacement(Mesh));
}

// All skin matrices in one pass over the clusters, with the same sums as
// ComputeSkinMatrix point by point: each cluster adds its matrix to the
// points of its entries, the first entry of a point only. False without a
// skin or memory.
static bool ComputeSkinMatrices(fbx_mesh_data *MeshData, int32 Count)
{
    KFbxSkin *Skin = GetFirstSkin(MeshData->Mesh);
    if (!Skin || Count <= 0) return false;
    int32 *LastCluster = TesselAllocateArray(int32, Count);
    real64 *Totals = TesselAllocateArray(real64, Count);
    if (!LastCluster || !Totals) {
        TesselFree(LastCluster);
        TesselFree(Totals);
        return false;
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        LastCluster[Index] = -1;
        Totals[Index] = 0.0;
        memset(MeshData->SkinMatrices[Index].mData, 0, sizeof(MeshData->SkinMatrices[Index].mData));
    }
    AffineMatrix Geometric = GetGeometric(MeshData->Mesh);
    for (int32 ClusterIndex = 0; ClusterIndex < Skin->GetClusterCount(); ++ClusterIndex) {
        KFbxCluster *Cluster = Skin->GetCluster(ClusterIndex);
        if (!Cluster || Cluster->GetControlPointIndicesCount() == 0) continue;
        AffineMatrix Matrix = GetClusterPlacement(Cluster, Geometric);
        int32 const *Indices = Cluster->GetControlPointIndices();
        real64 const *Weights = Cluster->GetControlPointWeights();
        for (int32 Entry = 0; Entry < Cluster->GetControlPointIndicesCount(); ++Entry) {
            int32 Point = Indices[Entry];
            if (Point < 0 || Point >= Count || LastCluster[Point] == ClusterIndex) continue;
            LastCluster[Point] = ClusterIndex;
            AddWeighted(MeshData->SkinMatrices[Point], Matrix, Weights[Entry]);
            Totals[Point] += Weights[Entry];
        }
    }
    AffineMatrix Unweighted = GetMeshNodePlacement(MeshData->Mesh);
    for (int32 Index = 0; Index < Count; ++Index)
        FinishWeightedSum(MeshData->SkinMatrices[Index], Totals[Index], Unweighted);
    TesselFree(LastCluster);
    TesselFree(Totals);
    return true;
}

// Area-weighted normals per control point in the mesh's own space, for a
// mesh whose file gives no normals or zero ones; null when every corner has
// one. Says so in a warning.
static KFbxVector4 *ComputeMissingNormals(KFbxMesh *Mesh)
{
    int32 Points = Mesh->GetControlPointsCount();
    KFbxVector4 const *Positions = Mesh->GetControlPoints();
    if (Points <= 0 || !Positions) return 0;
    int32 Missing = 0, Corners = 0;
    for (int32 Polygon = 0; Polygon < Mesh->GetPolygonCount(); ++Polygon) {
        for (int32 Corner = 0; Corner < Mesh->GetPolygonSize(Polygon); ++Corner) {
            KFbxVector4 Normal;
            ++Corners;
            bool Found = Mesh->GetPolygonVertexNormal(Polygon, Corner, Normal);
            if (!Found || Normal[0] * Normal[0] + Normal[1] * Normal[1] + Normal[2] * Normal[2] == 0.0) ++Missing;
        }
    }
    if (Missing == 0) return 0;
    KFbxVector4 *Normals = TesselAllocateArray(KFbxVector4, Points);
    if (!Normals) return 0;
    for (int32 Point = 0; Point < Points; ++Point) new (&Normals[Point]) KFbxVector4();
    for (int32 Polygon = 0; Polygon < Mesh->GetPolygonCount(); ++Polygon) {
        int32 Size = Mesh->GetPolygonSize(Polygon);
        int32 First = Mesh->GetPolygonVertex(Polygon, 0);
        if (First < 0 || First >= Points) continue;
        // Fan triangles: each cross product is twice the triangle's area
        // along its normal.
        KFbxVector4 Face;
        for (int32 Corner = 1; Corner + 1 < Size; ++Corner) {
            int32 B = Mesh->GetPolygonVertex(Polygon, Corner), C = Mesh->GetPolygonVertex(Polygon, Corner + 1);
            if (B < 0 || B >= Points || C < 0 || C >= Points) continue;
            KFbxVector4 U = Positions[B] - Positions[First], V = Positions[C] - Positions[First];
            Face[0] += U[1] * V[2] - U[2] * V[1];
            Face[1] += U[2] * V[0] - U[0] * V[2];
            Face[2] += U[0] * V[1] - U[1] * V[0];
        }
        for (int32 Corner = 0; Corner < Size; ++Corner) {
            int32 Point = Mesh->GetPolygonVertex(Polygon, Corner);
            if (Point >= 0 && Point < Points) Normals[Point] = Normals[Point] + Face;
        }
    }
    if (Missing == Corners) {
        TesselWarning(LogCategory_Exporter, "Mesh %s has no normals: smooth normals were computed from its faces",
                      Mesh->GetName());
    } else {
        TesselWarning(LogCategory_Exporter,
                      "Mesh %s has %d zero normals of %d: smooth normals computed from its faces stand in for them",
                      Mesh->GetName(), Missing, Corners);
    }
    return Normals;
}

fbx_mesh_data *BeginMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    KFbxMesh *FBXMesh = ToFBXMesh(Mesh);
    CheckPointer(FBXMesh, LogCategory_Exporter, 0);
    fbx_mesh_data *Data = (fbx_mesh_data *)TesselAllocate(sizeof(fbx_mesh_data));
    if (!Data) return 0;
    Data->Tool = Tool;
    Data->Mesh = FBXMesh;
    Data->PointNormals = 0;
    Data->Mirrored = false;
    int32 Count = FBXMesh->GetControlPointsCount();
    Data->SkinMatrices = TesselAllocateArray(AffineMatrix, Count > 0 ? Count : 1);
    if (!Data->SkinMatrices) {
        TesselFree(Data);
        return 0;
    }
    for (int32 Index = 0; Index < Count; ++Index) new (&Data->SkinMatrices[Index]) AffineMatrix();
    if (!ComputeSkinMatrices(Data, Count)) {
        for (int32 Index = 0; Index < Count; ++Index) ComputeSkinMatrix(Data, Index, Data->SkinMatrices[Index]);
    }
    // The mesh's placement at rest decides whether it is mirrored: its
    // node's for a rigid mesh, the first cluster's for a skinned one.
    KFbxSkin *Skin = GetFirstSkin(FBXMesh);
    AffineMatrix Placement = GetMeshNodePlacement(FBXMesh);
    for (int32 Index = 0; Skin && Index < Skin->GetClusterCount(); ++Index) {
        KFbxCluster *Cluster = Skin->GetCluster(Index);
        if (Cluster && Cluster->GetControlPointIndicesCount() > 0) {
            Placement = GetClusterPlacement(Cluster, GetGeometric(FBXMesh));
            break;
        }
    }
    Data->Mirrored = Placement.Determinant3() < 0.0;
    if (Skin && (Skin->SkinningType == FbxSkinning_DualQuaternion || Skin->SkinningType == FbxSkinning_Blend)) {
        TesselWarning(LogCategory_Exporter,
                      "Mesh %s: the file skins it with dual quaternions, the export with linear blending",
                      FBXMesh->GetName());
    }
    Data->PointNormals = ComputeMissingNormals(FBXMesh);
    return Data;
}

void EndMeshData(fbx_mesh_data *MeshData)
{
    if (!MeshData) return;
    TesselFree(MeshData->PointNormals);
    TesselFree(MeshData->SkinMatrices);
    TesselFree(MeshData);
}

int32 GetMeshVertexCount(fbx_mesh_data *MeshData)
{
    CheckPointer(MeshData, LogCategory_Exporter, 0);
    return MeshData->Mesh->GetControlPointsCount();
}

int32 GetMeshTriangleCount(fbx_mesh_data *MeshData)
{
    CheckPointer(MeshData, LogCategory_Exporter, 0);
    return MeshData->Mesh->GetPolygonCount();
}

int32 GetMeshMaterialCount(fbx_mesh_data *MeshData)
{
    return 1;
}

int32 GetMeshColorChannelCount(fbx_mesh_data *MeshData)
{
    CheckPointer(MeshData, LogCategory_Exporter, 0);
    return MeshData->Mesh->GetLayerCount(FbxLayerElement_VertexColor);
}

int32 GetMeshTextureCoordinateChannelCount(fbx_mesh_data *MeshData)
{
    CheckPointer(MeshData, LogCategory_Exporter, 0);
    return MeshData->Mesh->GetTextureLayerCount();
}

void GetVertexPosition(fbx_mesh_data *MeshData, int32 Index, real32 *Position)
{
    Position[0] = Position[1] = Position[2] = 0.0f;
    if (!MeshData) return;
    KFbxMesh *Mesh = MeshData->Mesh;
    KFbxVector4 const *Points = Mesh->GetControlPoints();
    if (!Points || Index < 0 || Index >= Mesh->GetControlPointsCount()) return;
    KFbxVector4 Result = MeshData->SkinMatrices[Index].MultT(Points[Index]);
    for (int32 Axis = 0; Axis < 3; ++Axis) Position[Axis] = (real32)Result[Axis];
}

tool_node *GetMeshNode(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    KFbxMesh *FBXMesh = ToFBXMesh(Mesh);
    if (!Tool || !FBXMesh || !FBXMesh->GetNode()) return 0;
    tool_node *Node = 0;
    GetHashedPointerData(Tool->NodeMap, FBXMesh->GetNode(), &Node);
    return Node;
}

void AddMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh, mesh *FileMesh, bool OnlyUserAttributes,
                 memory_arena *Arena, string_table *Strings)
{}

// ---------------------------------------------------------------------------
// Vertex component names.

char const *GetPositionComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "Position");
}
char const *GetBoneWeightsComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "BoneWeights");
}
char const *GetBoneIndicesComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "BoneIndices");
}
char const *GetNormalComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "Normal");
}
char const *GetTangentComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "Tangent");
}
char const *GetBinormalComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "Binormal");
}
char const *GetTangentBinormalCrossComponentName(fbx_mesh_data *, string_table *Strings)
{
    return Intern(Strings, "BinormalCross");
}

char const *GetColorComponentName(fbx_mesh_data *, string_table *Strings, int32 Index)
{
    static char const *const Names[] = {"Color0", "Color1", "Color2", "Color3"};
    return (Index >= 0 && Index < 4) ? Intern(Strings, Names[Index]) : 0;
}

char const *GetTextureCoordinateComponentName(fbx_mesh_data *, string_table *Strings, int32 Index)
{
    static char const *const Names[] = {"TextureCoordinates0", "TextureCoordinates1", "TextureCoordinates2",
                                        "TextureCoordinates3", "TextureCoordinates4", "TextureCoordinates5",
                                        "TextureCoordinates6", "TextureCoordinates7"};
    return (Index >= 0 && Index < 8) ? Intern(Strings, Names[Index]) : 0;
}

// ---------------------------------------------------------------------------
// Skin.

static bool BuildInfluenceTable(fbx_mesh_skin *Skin);

fbx_mesh_skin *GetMeshSkin(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    KFbxMesh *FBXMesh = ToFBXMesh(Mesh);
    if (!FBXMesh || FBXMesh->GetDeformerCount(FbxDeformer_Skin) == 0) return 0;
    fbx_mesh_skin *Skin = (fbx_mesh_skin *)TesselAllocate(sizeof(fbx_mesh_skin));
    if (!Skin) return 0;
    memset(Skin, 0, sizeof(*Skin));
    Skin->Tool = Tool;
    Skin->Skin = GetFirstSkin(FBXMesh);
    Skin->Mesh = FBXMesh;
    Skin->ExtraBone = -1;
    BuildInfluenceTable(Skin);
    return Skin;
}

void ReleaseMeshSkin(fbx_mesh_skin *Skin)
{
    if (!Skin) return;
    TesselFree(Skin->FirstInfluence);
    TesselFree(Skin->InfluenceCluster);
    TesselFree(Skin->InfluenceWeight);
    TesselFree(Skin->Unweighted);
    TesselFree(Skin);
}

// Per control point, in cluster order, the clusters that hold it and the
// weight of its first entry in each, divided by the point's sum; points
// without weight are marked for the extra bone of the mesh's node. False
// when memory runs out; the answers then come from scanning the clusters.
static bool BuildInfluenceTable(fbx_mesh_skin *Skin)
{
    if (Skin->FirstInfluence) return true;
    KFbxSkin *FBXSkin = Skin->Skin;
    int32 Points = Skin->Mesh ? Skin->Mesh->GetControlPointsCount() : 0;
    int32 Total = 0;
    for (int32 Index = 0; Index < FBXSkin->GetClusterCount(); ++Index) {
        KFbxCluster *Cluster = FBXSkin->GetCluster(Index);
        for (int32 Entry = 0; Entry < Cluster->GetControlPointIndicesCount(); ++Entry) {
            int32 Point = Cluster->GetControlPointIndices()[Entry];
            if (Point >= Points) Points = Point + 1;
            ++Total;
        }
    }
    int32 *First = TesselAllocateArray(int32, Points + 1);
    int32 *LastCluster = TesselAllocateArray(int32, Points > 0 ? Points : 1);
    int32 *Clusters = TesselAllocateArray(int32, Total > 0 ? Total : 1);
    real32 *Weights = TesselAllocateArray(real32, Total > 0 ? Total : 1);
    uint8 *Unweighted = TesselAllocateArray(uint8, Points > 0 ? Points : 1);
    if (!First || !LastCluster || !Clusters || !Weights || !Unweighted) {
        TesselFree(First);
        TesselFree(LastCluster);
        TesselFree(Clusters);
        TesselFree(Weights);
        TesselFree(Unweighted);
        return false;
    }
    // Count, then place: a point's influences stand together in cluster order.
    memset(First, 0, sizeof(int32) * (size_t)(Points + 1));
    for (int32 Pass = 0; Pass < 2; ++Pass) {
        for (int32 Point = 0; Point < Points; ++Point) LastCluster[Point] = -1;
        for (int32 Index = 0; Index < FBXSkin->GetClusterCount(); ++Index) {
            KFbxCluster *Cluster = FBXSkin->GetCluster(Index);
            for (int32 Entry = 0; Entry < Cluster->GetControlPointIndicesCount(); ++Entry) {
                int32 Point = Cluster->GetControlPointIndices()[Entry];
                if (Point < 0 || LastCluster[Point] == Index) continue;
                LastCluster[Point] = Index;
                if (Pass == 0) {
                    ++First[Point + 1];
                } else {
                    int32 Slot = First[Point]++;
                    Clusters[Slot] = Index;
                    Weights[Slot] = (real32)Cluster->GetControlPointWeights()[Entry];
                }
            }
        }
        // After the count the offsets are running sums; after placing, each
        // offset has moved to the next point's start and is moved back.
        if (Pass == 0) {
            for (int32 Point = 0; Point < Points; ++Point) First[Point + 1] += First[Point];
        } else {
            for (int32 Point = Points; Point > 0; --Point) First[Point] = First[Point - 1];
            First[0] = 0;
        }
    }
    TesselFree(LastCluster);
    bool AnyUnweighted = false;
    for (int32 Point = 0; Point < Points; ++Point) {
        real64 Sum = 0.0;
        for (int32 Slot = First[Point]; Slot < First[Point + 1]; ++Slot) Sum += Weights[Slot];
        Unweighted[Point] = !(Sum > 0.0);
        AnyUnweighted = AnyUnweighted || Unweighted[Point];
        for (int32 Slot = First[Point]; Sum > 0.0 && Slot < First[Point + 1]; ++Slot) {
            Weights[Slot] = (real32)(Weights[Slot] / Sum);
        }
    }
    Skin->PointCount = Points;
    Skin->FirstInfluence = First;
    Skin->InfluenceCluster = Clusters;
    Skin->InfluenceWeight = Weights;
    Skin->Unweighted = Unweighted;
    Skin->ExtraBone = (AnyUnweighted && Skin->Mesh && Skin->Mesh->GetNode()) ? FBXSkin->GetClusterCount() : -1;
    return true;
}

int32 GetSkinBoneCount(fbx_mesh_skin *Skin)
{
    CheckPointer(Skin, LogCategory_Exporter, 0);
    return Skin->Skin->GetClusterCount() + (Skin->ExtraBone >= 0 ? 1 : 0);
}

tool_node *GetSkinBoneNode(fbx_tool_interface *Tool, fbx_mesh_skin *Skin, int32 Index)
{
    if (!Tool || !Skin || Index < 0 || Index >= GetSkinBoneCount(Skin)) return 0;
    KFbxNode *Link = Index == Skin->ExtraBone ? Skin->Mesh->GetNode() : Skin->Skin->GetCluster(Index)->GetLink();
    tool_node *Node = 0;
    if (Link) GetHashedPointerData(Tool->NodeMap, Link, &Node);
    return Node;
}

int32 GetVertexBoneCount(fbx_mesh_skin *Skin, int32 Vertex)
{
    CheckPointer(Skin, LogCategory_Exporter, 0);
    if (BuildInfluenceTable(Skin)) {
        if (Vertex < 0 || Vertex >= Skin->PointCount) return 0;
        if (Skin->Unweighted[Vertex]) return Skin->ExtraBone >= 0 ? 1 : 0;
        return Skin->FirstInfluence[Vertex + 1] - Skin->FirstInfluence[Vertex];
    }
    int32 Count = 0;
    for (int32 Index = 0; Index < Skin->Skin->GetClusterCount(); ++Index) {
        if (FindClusterEntry(Skin->Skin->GetCluster(Index), Vertex) >= 0) ++Count;
    }
    return Count;
}

bool GetVertexBoneWeight(fbx_tool_interface *Tool, fbx_mesh_skin *Skin, int32 Vertex, int32 N, int32 *BoneIndex,
                         real32 *Weight)
{
    CheckPointer(Skin, LogCategory_Exporter, false);
    if (BuildInfluenceTable(Skin)) {
        if (Vertex < 0 || Vertex >= Skin->PointCount || N < 0) return false;
        if (Skin->Unweighted[Vertex]) {
            if (N > 0 || Skin->ExtraBone < 0) return false;
            if (BoneIndex) *BoneIndex = Skin->ExtraBone;
            if (Weight) *Weight = 1.0f;
            return true;
        }
        int32 Slot = Skin->FirstInfluence[Vertex] + N;
        if (Slot >= Skin->FirstInfluence[Vertex + 1]) return false;
        if (BoneIndex) *BoneIndex = Skin->InfluenceCluster[Slot];
        if (Weight) *Weight = Skin->InfluenceWeight[Slot];
        return true;
    }
    for (int32 Index = 0; Index < Skin->Skin->GetClusterCount(); ++Index) {
        KFbxCluster *Cluster = Skin->Skin->GetCluster(Index);
        int32 Entry = FindClusterEntry(Cluster, Vertex);
        if (Entry < 0 || N-- > 0) continue;
        if (BoneIndex) *BoneIndex = Index;
        if (Weight) *Weight = (real32)Cluster->GetControlPointWeights()[Entry];
        return true;
    }
    return false;
}

// ---------------------------------------------------------------------------
// Triangles.

fbx_triangle_iterator *BeginTriangles(fbx_mesh_data *MeshData)
{
    CheckPointer(MeshData, LogCategory_Exporter, 0);
    fbx_triangle_iterator *Iterator = (fbx_triangle_iterator *)TesselAllocate(sizeof(fbx_triangle_iterator));
    if (!Iterator) return 0;
    Iterator->Tool = MeshData->Tool;
    Iterator->MeshData = MeshData;
    Iterator->Triangle = 0;
    return Iterator;
}

void EndTriangles(fbx_triangle_iterator *Iterator)
{
    if (Iterator) TesselFree(Iterator);
}

bool HasTriangle(fbx_triangle_iterator *Iterator)
{
    return Iterator && Iterator->Triangle < Iterator->MeshData->Mesh->GetPolygonCount();
}

void NextTriangle(fbx_triangle_iterator *Iterator)
{
    if (Iterator) ++Iterator->Triangle;
}

int32 GetTriangleIndex(fbx_triangle_iterator *Iterator)
{
    return Iterator ? Iterator->Triangle : -1;
}
int32 GetTriangleMaterial(fbx_triangle_iterator *Iterator)
{
    return 0;
}
bool IsTriangleTwoSided(fbx_triangle_iterator *Iterator, fbx_tool_interface *Tool, void *MaterialData)
{
    return false;
}
void SetTangentChannel(fbx_triangle_iterator *Iterator, int32 Channel) {}

// A mirrored mesh's triangles run the other way round: corners 1 and 2
// trade places, so that the front stays outside.
static int32 MapCorner(fbx_triangle_iterator *Iterator, int32 Corner)
{
    return (Iterator->MeshData->Mirrored && Corner > 0) ? 3 - Corner : Corner;
}

int32 GetCornerVertex(fbx_triangle_iterator *Iterator, int32 Corner)
{
    return Iterator->MeshData->Mesh->GetPolygonVertex(Iterator->Triangle, MapCorner(Iterator, Corner));
}

int32 GetCornerSource(fbx_triangle_iterator *Iterator, int32 Corner)
{
    return MapCorner(Iterator, Corner);
}

// Normal' = (M^-1)^T Normal for the column-vector linear part M of the
// point's skin matrix, with the adjugate standing in for a singular M.
static KFbxVector4 TransformNormal(AffineMatrix const &Matrix, KFbxVector4 const &Normal)
{
    real64 const(*R)[4] = Matrix.mData; // row form: a point maps to p R
    real64 Determinant = Matrix.Determinant3();
    real64 Sign = Determinant < 0.0 ? -1.0 : 1.0;
    KFbxVector4 Result;
    for (int32 Row = 0; Row < 3; ++Row) {
        real64 Sum = 0.0;
        for (int32 Column = 0; Column < 3; ++Column) {
            // Adjugate of R at (Row, Column): the cofactor of (Column, Row).
            int32 R1 = (Column + 1) % 3, R2 = (Column + 2) % 3, C1 = (Row + 1) % 3, C2 = (Row + 2) % 3;
            Sum += (R[R1][C1] * R[R2][C2] - R[R1][C2] * R[R2][C1]) * Normal[Column];
        }
        Result[Row] = Sign * Sum;
    }
    return Result;
}

static bool NormaliseVector(KFbxVector4 &Vector)
{
    real64 Length = std::sqrt(Vector[0] * Vector[0] + Vector[1] * Vector[1] + Vector[2] * Vector[2]);
    if (!(Length > 1e-30) || !std::isfinite(Length)) return false;
    for (int32 Axis = 0; Axis < 3; ++Axis) Vector[Axis] /= Length;
    return true;
}

void GetCornerNormal(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Normal)
{
    Normal[0] = Normal[1] = Normal[2] = 0.0f;
    fbx_mesh_data *Data = Iterator->MeshData;
    KFbxMesh *Mesh = Data->Mesh;
    int32 Source = MapCorner(Iterator, Corner);
    int32 Point = Mesh->GetPolygonVertex(Iterator->Triangle, Source);
    if (Point < 0 || Point >= Mesh->GetControlPointsCount()) return;
    KFbxVector4 Stored;
    bool Found = Mesh->GetPolygonVertexNormal(Iterator->Triangle, Source, Stored);
    if (!Found || Stored[0] * Stored[0] + Stored[1] * Stored[1] + Stored[2] * Stored[2] == 0.0) {
        if (Data->PointNormals) Stored = Data->PointNormals[Point];
    }
    AffineMatrix const &Matrix = Data->SkinMatrices[Point];
    KFbxVector4 Result = TransformNormal(Matrix, Stored);
    if (!NormaliseVector(Result)) {
        // Nothing to go by at the point: the triangle's own face.
        KFbxVector4 const *Positions = Mesh->GetControlPoints();
        KFbxVector4 Corners[3];
        for (int32 Index = 0; Index < 3; ++Index) {
            int32 At = Mesh->GetPolygonVertex(Iterator->Triangle, MapCorner(Iterator, Index));
            if (At >= 0 && At < Mesh->GetControlPointsCount())
                Corners[Index] = Data->SkinMatrices[At].MultT(Positions[At]);
        }
        KFbxVector4 U = Corners[1] - Corners[0], V = Corners[2] - Corners[0];
        Result.Set(U[1] * V[2] - U[2] * V[1], U[2] * V[0] - U[0] * V[2], U[0] * V[1] - U[1] * V[0]);
        if (!NormaliseVector(Result)) Result.Set(0.0, 0.0, 1.0);
    }
    for (int32 Axis = 0; Axis < 3; ++Axis) Normal[Axis] = (real32)Result[Axis];
}

void GetCornerColor(fbx_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Color)
{
    Color[0] = Color[1] = Color[2] = Color[3] = 0.0f;
    KFbxMesh *Mesh = Iterator->MeshData->Mesh;
    KFbxLayer *ColorLayer = Mesh->GetLayer(Layer, FbxLayerElement_VertexColor);
    KFbxLayerElementVertexColor *Element = ColorLayer ? ColorLayer->GetVertexColors() : 0;
    if (!Element) return;
    // Color layers are taken to be in control point order.
    int32 Point = Mesh->GetPolygonVertex(Iterator->Triangle, MapCorner(Iterator, Corner));
    fbx_array<KFbxColor> const &Colors = Element->GetDirectArray();
    if (Point < 0 || Point >= Colors.Count) return;
    KFbxColor const &Value = Colors[Point];
    Color[0] = (real32)Value.mRed;
    Color[1] = (real32)Value.mGreen;
    Color[2] = (real32)Value.mBlue;
    Color[3] = (real32)Value.mAlpha;
}

void GetCornerTextureCoordinates(fbx_triangle_iterator *Iterator, int32 Corner, int32 Layer, real32 *Coordinates)
{
    Coordinates[0] = Coordinates[1] = Coordinates[2] = Coordinates[3] = 0.0f;
    KFbxMesh *Mesh = Iterator->MeshData->Mesh;
    // Layer 0's diffuse channel gives the index for every layer.
    int32 Index =
        Mesh->GetTextureUVIndex(Iterator->Triangle, MapCorner(Iterator, Corner), FbxLayerElement_TextureDiffuse);
    KFbxLayer *UVLayer = Mesh->GetLayer(Layer, FbxLayerElement_UV);
    if (!UVLayer) return;
    KFbxLayerElementUV *Element = (KFbxLayerElementUV *)UVLayer->GetLayerElementOfType(FbxLayerElement_TextureDiffuse);
    if (!Element) return;
    fbx_array<KFbxVector2> const &UVs = Element->GetDirectArray();
    if (Index < 0 || Index >= UVs.Count) return;
    // FBX has V upward, the file downward.
    Coordinates[0] = (real32)UVs[Index][0];
    Coordinates[1] = (real32)(1.0 - UVs[Index][1]);
}

void GetCornerTangent(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Tangent) {}
void GetCornerBinormal(fbx_triangle_iterator *Iterator, int32 Corner, real32 *Binormal) {}

bool GetTriangleAnnotation(fbx_triangle_iterator *Iterator, int32 SetIndex, memory_arena *Arena,
                           data_type_definition *Type, void *Bytes)
{
    return false;
}

// ---------------------------------------------------------------------------
// Annotations, materials and morph targets: FBX has none.

int32 GetVertexAnnotationCount(fbx_mesh_data *MeshData)
{
    return 0;
}
tool_annotation_set *GetVertexAnnotationSet(fbx_mesh_data *MeshData, int32 Index)
{
    return 0;
}
void ReleaseVertexAnnotationSet(fbx_mesh_data *MeshData, tool_annotation_set *Set) {}
char const *GetVertexAnnotationName(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena)
{
    return 0;
}
data_type_definition *GetVertexAnnotationType(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena)
{
    return 0;
}
bool GetVertexAnnotation(fbx_mesh_data *MeshData, tool_annotation_set *Set, memory_arena *Arena, int32 Vertex,
                         data_type_definition *Type, void *Bytes)
{
    return false;
}
int32 GetTriangleAnnotationCount(fbx_mesh_data *MeshData)
{
    return 0;
}
char const *GetTriangleAnnotationName(fbx_mesh_data *MeshData, int32 Index, memory_arena *Arena)
{
    return 0;
}
data_type_definition *GetTriangleAnnotationType(fbx_mesh_data *MeshData, int32 Index, memory_arena *Arena)
{
    return 0;
}

tool_material_data *GetMeshMaterials(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    return 0;
}
void ReleaseMeshMaterials(fbx_tool_interface *Tool, tool_material_data *Materials) {}
tool_material *GetMeshMaterial(fbx_tool_interface *Tool, tool_material_data *Materials, int32 Index)
{
    return 0;
}

bool HasMorphTargets(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    return false;
}
int32 GetMorphTargetCount(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    return 0;
}
fbx_mesh_data *GetMorphTargetMeshData(fbx_tool_interface *Tool, tool_mesh *Mesh, int32 Index)
{
    return 0;
}
char const *GetMorphTargetName(fbx_tool_interface *Tool)
{
    return 0;
}

} // namespace fbx_tool
