// Layer elements, layers, meshes and triangulation.
#include "fbx/fbx_tessel_mesh.h"

#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_skin.h"

KFbxLayerElement::KFbxLayerElement(int32 Type, char const *Name)
    : mType(Type), mName(FbxCopyString(Name)), mMappingMode(FbxMapping_ByControlPoint),
      mReferenceMode(FbxReference_Direct)
{}

KFbxLayerElement::~KFbxLayerElement()
{
    TesselFree(mName);
}

bool KFbxLayerElement::Remap(int32 const *Sources, int32 Count)
{
    if (mReferenceMode == FbxReference_Direct) {
        return RemapDirect(Sources, Count);
    }
    fbx_array<int32> Old;
    if (!Old.CopyFrom(mIndexArray) || !mIndexArray.Resize(Count)) {
        return false;
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        mIndexArray[Index] = (Sources[Index] >= 0 && Sources[Index] < Old.Count) ? Old[Sources[Index]] : -1;
    }
    return true;
}

// ---------------------------------------------------------------------------

KFbxLayer::KFbxLayer()
{
    for (int32 Type = 0; Type < FbxLayerElement_TypeCount; ++Type) {
        mElements[Type] = nullptr;
    }
}

KFbxLayerElement *KFbxLayer::GetLayerElement(int32 Type) const
{
    return (Type >= 0 && Type < FbxLayerElement_TypeCount) ? mElements[Type] : nullptr;
}

void KFbxLayer::SetLayerElement(int32 Type, KFbxLayerElement *Element)
{
    if (Type >= 0 && Type < FbxLayerElement_TypeCount) {
        mElements[Type] = Element;
    }
}

KFbxLayerElement *KFbxLayer::GetLayerElementOfType(int32 Type) const
{
    return (Type >= FbxLayerElement_TextureFirst && Type <= FbxLayerElement_TextureLast) ? mElements[Type] : nullptr;
}

KFbxLayerElementNormal *KFbxLayer::GetNormals() const
{
    return static_cast<KFbxLayerElementNormal *>(mElements[FbxLayerElement_Normal]);
}

KFbxLayerElementUV *KFbxLayer::GetUVs() const
{
    return static_cast<KFbxLayerElementUV *>(mElements[FbxLayerElement_UV]);
}

KFbxLayerElementVertexColor *KFbxLayer::GetVertexColors() const
{
    return static_cast<KFbxLayerElementVertexColor *>(mElements[FbxLayerElement_VertexColor]);
}

bool KFbxLayer::HasTextureChannel() const
{
    for (int32 Type = FbxLayerElement_TextureFirst; Type <= FbxLayerElement_TextureLast; ++Type) {
        if (mElements[Type]) {
            return true;
        }
    }
    return false;
}

// ---------------------------------------------------------------------------

KFbxLayerContainer::~KFbxLayerContainer()
{
    for (int32 Index = 0; Index < mLayers.Count; ++Index) {
        FbxDelete(mLayers[Index]);
    }
    for (int32 Index = 0; Index < mElements.Count; ++Index) {
        FbxDelete(mElements[Index]);
    }
}

int32 KFbxLayerContainer::GetLayerCount(int32 Type, bool UVIsTexture) const
{
    int32 Count = 0;
    for (int32 Index = 0; Index < mLayers.Count; ++Index) {
        if (mLayers[Index]->GetLayerElement(Type)) {
            ++Count;
        }
    }
    return Count;
}

KFbxLayer *KFbxLayerContainer::GetLayer(int32 Index, int32 Type) const
{
    for (int32 At = 0; At < mLayers.Count; ++At) {
        if (mLayers[At]->GetLayerElement(Type) && Index-- == 0) {
            return mLayers[At];
        }
    }
    return nullptr;
}

KFbxLayer *KFbxLayerContainer::GetOrCreateLayer(int32 Index)
{
    if (Index < 0 || Index > 1024) {
        return nullptr;
    }
    while (mLayers.Count <= Index) {
        KFbxLayer *Layer = FbxNew(KFbxLayer);
        if (!Layer || !mLayers.Add(Layer)) {
            FbxDelete(Layer);
            return nullptr;
        }
    }
    return mLayers[Index];
}

bool KFbxLayerContainer::AdoptLayerElement(KFbxLayerElement *Element)
{
    if (!Element) {
        return false;
    }
    if (mElements.Find(Element) >= 0) {
        return true;
    }
    if (!mElements.Add(Element)) {
        FbxDelete(Element);
        return false;
    }
    return true;
}

bool KFbxLayerContainer::CopyLayersTo(KFbxLayerContainer &Other) const
{
    fbx_array<KFbxLayerElement *> Copies;
    for (int32 Index = 0; Index < mElements.Count; ++Index) {
        KFbxLayerElement *Copy = mElements[Index]->Clone();
        if (!Copy || !Copies.Add(Copy) || !Other.AdoptLayerElement(Copy)) {
            return false;
        }
    }
    for (int32 Index = 0; Index < mLayers.Count; ++Index) {
        KFbxLayer *Layer = Other.GetOrCreateLayer(Index);
        if (!Layer) {
            return false;
        }
        for (int32 Type = 0; Type < FbxLayerElement_TypeCount; ++Type) {
            int32 At = mElements.Find(mLayers[Index]->GetLayerElement(Type));
            if (At >= 0) {
                Layer->SetLayerElement(Type, Copies[At]);
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------------------

int32 KFbxGeometry::GetDeformerCount(int32 Type) const
{
    int32 Count = 0;
    for (int32 Index = 0; Index < mDeformers.Count; ++Index) {
        if (Type < 0 || mDeformers[Index]->GetDeformerType() == Type) {
            ++Count;
        }
    }
    return Count;
}

KFbxDeformer *KFbxGeometry::GetDeformer(int32 Index, int32 Type) const
{
    for (int32 At = 0; At < mDeformers.Count; ++At) {
        if ((Type < 0 || mDeformers[At]->GetDeformerType() == Type) && Index-- == 0) {
            return mDeformers[At];
        }
    }
    return nullptr;
}

bool KFbxGeometry::AddDeformer(KFbxDeformer *Deformer)
{
    CheckPointer(Deformer, LogCategory_FBX, false);
    if (mDeformers.Find(Deformer) >= 0) {
        return true;
    }
    if (!mDeformers.Add(Deformer)) {
        return false;
    }
    Deformer->SetGeometry(this);
    return true;
}

void KFbxGeometry::RemoveDeformer(KFbxDeformer *Deformer)
{
    int32 Index = mDeformers.Find(Deformer);
    if (Index >= 0) {
        mDeformers.RemoveAt(Index);
        if (Deformer->GetGeometry() == this) {
            Deformer->SetGeometry(nullptr);
        }
    }
}

// ---------------------------------------------------------------------------

KFbxMesh *KFbxMesh::Create(KFbxSdkManager *Manager, char const *Name)
{
    return FbxKeepWhole(FbxNew(KFbxMesh, Manager, Name));
}

int32 KFbxMesh::GetPolygonSize(int32 Polygon) const
{
    return (Polygon >= 0 && Polygon < mPolygons.Count) ? mPolygons[Polygon].Size : -1;
}

int32 KFbxMesh::GetPolygonVertexIndex(int32 Polygon) const
{
    return (Polygon >= 0 && Polygon < mPolygons.Count) ? mPolygons[Polygon].First : -1;
}

int32 KFbxMesh::GetPolygonVertex(int32 Polygon, int32 Position) const
{
    if (Polygon < 0 || Polygon >= mPolygons.Count || Position < 0 || Position >= mPolygons[Polygon].Size) {
        return -1;
    }
    return mPolygonVertices.GetAt(mPolygons[Polygon].First + Position);
}

bool KFbxMesh::IsTriangleMesh() const
{
    for (int32 Index = 0; Index < mPolygons.Count; ++Index) {
        if (mPolygons[Index].Size != 3) {
            return false;
        }
    }
    return true;
}

void KFbxMesh::BeginPolygon(int32 Group)
{
    if (mInPolygon) {
        EndPolygon();
    }
    fbx_polygon Polygon = {mPolygonVertices.Count, 0, Group};
    mInPolygon = mPolygons.Add(Polygon);
}

void KFbxMesh::AddPolygon(int32 ControlPoint)
{
    if (mInPolygon && mPolygonVertices.Add(ControlPoint)) {
        ++mPolygons[mPolygons.Count - 1].Size;
    }
}

void KFbxMesh::EndPolygon()
{
    if (mInPolygon && mPolygons[mPolygons.Count - 1].Size == 0) {
        mPolygons.RemoveAt(mPolygons.Count - 1);
    }
    mInPolygon = false;
}

bool KFbxMesh::GetPolygonVertexNormal(int32 Polygon, int32 Position, KFbxVector4 &Normal) const
{
    KFbxLayer *Layer = GetLayer(0);
    KFbxLayerElementNormal *Element = Layer ? Layer->GetNormals() : nullptr;
    if (!Element || Polygon < 0 || Polygon >= mPolygons.Count || Position < 0 || Position >= mPolygons[Polygon].Size) {
        return false;
    }
    int32 At;
    switch (Element->GetMappingMode()) {
    case FbxMapping_ByControlPoint: At = GetPolygonVertex(Polygon, Position); break;
    case FbxMapping_ByPolygonVertex: At = mPolygons[Polygon].First + Position; break;
    case FbxMapping_ByPolygon: At = Polygon; break;
    case FbxMapping_AllSame: At = 0; break;
    default: return false;
    }
    if (Element->GetReferenceMode() != FbxReference_Direct) {
        fbx_array<int32> const &Indices = Element->GetIndexArray();
        if (At < 0 || At >= Indices.Count) {
            return false;
        }
        At = Indices[At];
    }
    fbx_array<KFbxVector4> const &Normals = Element->GetDirectArray();
    if (At < 0 || At >= Normals.Count) {
        return false;
    }
    Normal = Normals[At];
    return true;
}

int32 KFbxMesh::GetTextureUVIndex(int32 Polygon, int32 Position, int32 Channel) const
{
    KFbxLayer *Layer = GetLayer(0);
    KFbxLayerElement *Element = Layer ? Layer->GetLayerElementOfType(Channel) : nullptr;
    if (!Element || Element->GetMappingMode() != FbxMapping_ByPolygonVertex ||
        Element->GetReferenceMode() != FbxReference_IndexToDirect) {
        return -1;
    }
    if (Polygon < 0 || Polygon >= mPolygons.Count || Position < 0 || Position >= mPolygons[Polygon].Size) {
        return -1;
    }
    int32 At = mPolygons[Polygon].First + Position;
    fbx_array<int32> const &Indices = Element->GetIndexArray();
    return (At < Indices.Count) ? Indices[At] : -1;
}

int32 KFbxMesh::GetTextureLayerCount() const
{
    int32 Count = 0;
    for (int32 Index = 0; Index < GetLayerCount(); ++Index) {
        if (GetLayer(Index)->HasTextureChannel()) {
            ++Count;
        }
    }
    return Count;
}

// ---------------------------------------------------------------------------
// Triangulation.

int32 TriangulatePolygonCorners(int32 Size, int32 *Corners)
{
    if (Size < 3) {
        return 0;
    }
    int32 Wanted = Size - 2;
    int32 Count = 0;
    auto Emit = [&](int32 A, int32 B, int32 C) {
        Corners[3 * Count + 0] = A;
        Corners[3 * Count + 1] = B;
        Corners[3 * Count + 2] = C;
        ++Count;
    };
    Emit(0, 1, 2);
    int32 Low = 0, High = Size - 1, A = 2, B = 3;
    while (Count < Wanted) {
        Emit(A, B, Low);
        if (Count < Wanted) {
            Emit(Low, B, High);
        }
        Low = High;
        High = High - 1;
        A = B;
        B = B + 1;
    }
    return Count;
}

KFbxMesh *KFbxMesh::CreateTriangulated() const
{
    KFbxMesh *Mesh = KFbxMesh::Create(GetFbxSdkManager(), GetName());
    if (!Mesh) {
        return nullptr;
    }
    int32 TriangleCount = 0;
    int32 LargestPolygon = 3;
    for (int32 Index = 0; Index < mPolygons.Count; ++Index) {
        if (mPolygons[Index].Size >= 3) {
            TriangleCount += mPolygons[Index].Size - 2;
        }
        if (mPolygons[Index].Size > LargestPolygon) {
            LargestPolygon = mPolygons[Index].Size;
        }
    }
    fbx_array<int32> CornerSources;  // old polygon vertex of each new corner
    fbx_array<int32> PolygonSources; // old polygon of each new triangle
    fbx_array<int32> Corners;
    bool Ok = Mesh->mControlPoints.CopyFrom(mControlPoints) && CornerSources.Reserve(TriangleCount * 3) &&
              PolygonSources.Reserve(TriangleCount) && Corners.Resize(3 * (LargestPolygon - 2));
    for (int32 Index = 0; Ok && Index < mPolygons.Count; ++Index) {
        fbx_polygon const &Polygon = mPolygons[Index];
        int32 Count = TriangulatePolygonCorners(Polygon.Size, Corners.Data);
        for (int32 Triangle = 0; Triangle < Count; ++Triangle) {
            Mesh->BeginPolygon(Polygon.Group);
            for (int32 Corner = 0; Corner < 3; ++Corner) {
                int32 Source = Polygon.First + Corners[3 * Triangle + Corner];
                Mesh->AddPolygon(mPolygonVertices.GetAt(Source));
                CornerSources.Add(Source);
            }
            Mesh->EndPolygon();
            PolygonSources.Add(Index);
        }
    }
    Ok = Ok && Mesh->CopyTakeNodesFrom(*this) && CopyLayersTo(*Mesh);
    for (int32 Index = 0; Ok && Index < mDeformers.Count; ++Index) {
        // Deformers are shared: the skin keeps pointing at the first geometry.
        Ok = Mesh->mDeformers.Add(mDeformers[Index]);
    }
    if (!Ok) {
        Mesh->Destroy();
        return nullptr;
    }
    for (int32 Index = 0; Index < Mesh->GetLayerElementCount(); ++Index) {
        KFbxLayerElement *Element = Mesh->GetLayerElementByIndex(Index);
        if (Element->GetMappingMode() == FbxMapping_ByPolygonVertex) {
            Element->Remap(CornerSources.Data, CornerSources.Count);
        } else if (Element->GetMappingMode() == FbxMapping_ByPolygon) {
            Element->Remap(PolygonSources.Data, PolygonSources.Count);
        }
    }
    return Mesh;
}

bool KFbxGeometryConverter::TriangulateInPlace(KFbxNode *Node)
{
    CheckPointer(Node, LogCategory_FBX, false);
    KFbxMesh *Old = Node->GetMesh();
    if (!Old) {
        return false;
    }
    if (Old->IsTriangleMesh()) {
        return true;
    }
    KFbxMesh *Mesh = Old->CreateTriangulated();
    if (!Mesh) {
        return false;
    }
    Node->ReplaceNodeAttribute(Old, Mesh);
    KFbxScene *Scene = Node->GetScene();
    bool Shown = false;
    if (Scene) {
        Scene->AddMember(Mesh);
        // An instanced mesh stays for the other nodes that show it.
        for (int32 Member = 0; Member < Scene->GetMemberCount() && !Shown; ++Member) {
            KFbxNode *Other = dynamic_cast<KFbxNode *>(Scene->GetMember(Member));
            for (int32 Index = 0; Other && Index < Other->GetNodeAttributeCount(); ++Index) {
                if (Other->GetNodeAttributeByIndex(Index) == Old) {
                    Shown = true;
                    if (!Old->GetNode()) {
                        Old->SetNode(Other);
                    }
                }
            }
        }
        if (!Shown) {
            Scene->RemoveMember(Old);
        }
    }
    if (!Shown) {
        for (int32 Index = 0; Index < Old->GetDeformerCount(); ++Index) {
            KFbxDeformer *Deformer = Old->GetDeformer(Index);
            if (Deformer->GetGeometry() == Old) {
                Deformer->SetGeometry(Mesh);
            }
        }
        Old->Destroy();
    }
    return true;
}
