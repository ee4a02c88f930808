// Geometry of the scene model: layer elements (normals, UVs, vertex colors)
// with their mapping and reference modes, layers, meshes with polygons, and
// the triangulation of a node's mesh.
#pragma once

#include "fbx/fbx_tessel_node.h"

class KFbxDeformer;

enum fbx_mapping_mode
{
    FbxMapping_None = 0,
    FbxMapping_ByControlPoint = 1,
    FbxMapping_ByPolygonVertex = 2,
    FbxMapping_ByPolygon = 3,
    FbxMapping_ByEdge = 4,
    FbxMapping_AllSame = 5,
};

enum fbx_reference_mode
{
    FbxReference_Direct = 0,
    FbxReference_Index = 1,
    FbxReference_IndexToDirect = 2,
};

enum fbx_layer_element_type
{
    FbxLayerElement_Normal = 0,
    FbxLayerElement_Material = 1,
    FbxLayerElement_Polygroup = 2,
    FbxLayerElement_Smoothing = 3,
    FbxLayerElement_UV = 6,
    FbxLayerElement_VertexColor = 7,
    FbxLayerElement_TextureFirst = 13,
    FbxLayerElement_TextureDiffuse = 13,
    FbxLayerElement_TextureLast = 28,
    FbxLayerElement_TypeCount = 29,
};

class KFbxLayerElement
{
public:
    KFbxLayerElement(int32 Type, char const *Name);
    virtual ~KFbxLayerElement();
    KFbxLayerElement(KFbxLayerElement const &) = delete;
    KFbxLayerElement &operator=(KFbxLayerElement const &) = delete;

    int32 GetType() const { return mType; }
    char const *GetName() const { return mName; }
    int32 GetMappingMode() const { return mMappingMode; }
    int32 GetReferenceMode() const { return mReferenceMode; }
    void SetMappingMode(int32 Mode) { mMappingMode = Mode; }
    void SetReferenceMode(int32 Mode) { mReferenceMode = Mode; }
    fbx_array<int32> &GetIndexArray() { return mIndexArray; }
    fbx_array<int32> const &GetIndexArray() const { return mIndexArray; }

    virtual int32 GetDirectCount() const = 0;
    // A copy with the same name, modes and arrays; null when out of memory.
    virtual KFbxLayerElement *Clone() const = 0;
    // Replaces the per-item data by Sources (item positions of the old
    // order): the index array with index reference, else the direct array.
    bool Remap(int32 const *Sources, int32 Count);

protected:
    virtual bool RemapDirect(int32 const *Sources, int32 Count) = 0;
    // Modes and index array of Other.
    bool CopyBase(KFbxLayerElement const &Other)
    {
        mMappingMode = Other.mMappingMode;
        mReferenceMode = Other.mReferenceMode;
        return mIndexArray.CopyFrom(Other.mIndexArray);
    }

private:
    int32 mType;
    char *mName;
    int32 mMappingMode;
    int32 mReferenceMode;
    fbx_array<int32> mIndexArray;
};

template <typename T>
class KFbxLayerElementTemplate : public KFbxLayerElement
{
public:
    KFbxLayerElementTemplate(int32 Type, char const *Name) : KFbxLayerElement(Type, Name) {}
    fbx_array<T> &GetDirectArray() { return mDirectArray; }
    fbx_array<T> const &GetDirectArray() const { return mDirectArray; }
    int32 GetDirectCount() const override { return mDirectArray.Count; }

protected:
    // Fills a new element of the derived type with this one's contents.
    template <typename derived>
    KFbxLayerElement *CloneAs(derived *Copy) const
    {
        KFbxLayerElementTemplate *Target = Copy;
        if (Copy && (!Target->CopyBase(*this) || !Target->mDirectArray.CopyFrom(mDirectArray))) {
            FbxDelete(Copy);
            return nullptr;
        }
        return Copy;
    }

protected:
    bool RemapDirect(int32 const *Sources, int32 Count) override
    {
        fbx_array<T> Old;
        if (!Old.CopyFrom(mDirectArray) || !mDirectArray.Resize(Count)) {
            return false;
        }
        for (int32 Index = 0; Index < Count; ++Index) {
            mDirectArray[Index] = Old.GetAt(Sources[Index]);
        }
        return true;
    }

private:
    fbx_array<T> mDirectArray;
};

class KFbxLayerElementNormal : public KFbxLayerElementTemplate<KFbxVector4>
{
public:
    explicit KFbxLayerElementNormal(char const *Name = "") : KFbxLayerElementTemplate(FbxLayerElement_Normal, Name) {}
    KFbxLayerElement *Clone() const override { return CloneAs(FbxNew(KFbxLayerElementNormal, GetName())); }
};

class KFbxLayerElementUV : public KFbxLayerElementTemplate<KFbxVector2>
{
public:
    explicit KFbxLayerElementUV(char const *Name = "", int32 Type = FbxLayerElement_UV)
        : KFbxLayerElementTemplate(Type, Name)
    {}
    KFbxLayerElement *Clone() const override { return CloneAs(FbxNew(KFbxLayerElementUV, GetName(), GetType())); }
};

class KFbxLayerElementVertexColor : public KFbxLayerElementTemplate<KFbxColor>
{
public:
    explicit KFbxLayerElementVertexColor(char const *Name = "")
        : KFbxLayerElementTemplate(FbxLayerElement_VertexColor, Name)
    {}
    KFbxLayerElement *Clone() const override { return CloneAs(FbxNew(KFbxLayerElementVertexColor, GetName())); }
};

// One slot per element type; the elements belong to the layer container.
class KFbxLayer
{
public:
    KFbxLayer();
    KFbxLayerElement *GetLayerElement(int32 Type) const;
    void SetLayerElement(int32 Type, KFbxLayerElement *Element);
    // Texture channels only (13 to 28); null for any other type.
    KFbxLayerElement *GetLayerElementOfType(int32 Type) const;
    KFbxLayerElementNormal *GetNormals() const;
    KFbxLayerElementUV *GetUVs() const;
    KFbxLayerElementVertexColor *GetVertexColors() const;
    bool HasTextureChannel() const;

private:
    KFbxLayerElement *mElements[FbxLayerElement_TypeCount];
};

class KFbxLayerContainer : public KFbxNodeAttribute
{
public:
    KFbxLayerContainer(KFbxSdkManager *Manager, char const *Name, int32 Type) : KFbxNodeAttribute(Manager, Name, Type)
    {}
    ~KFbxLayerContainer() override;

    int32 GetLayerCount() const { return mLayers.Count; }
    // Number of layers that hold an element of Type.
    int32 GetLayerCount(int32 Type, bool UVIsTexture = false) const;
    KFbxLayer *GetLayer(int32 Index) const { return mLayers.GetAt(Index); }
    // Index counts only the layers that hold an element of Type.
    KFbxLayer *GetLayer(int32 Index, int32 Type) const;
    // Makes layers up to Index and returns that layer.
    KFbxLayer *GetOrCreateLayer(int32 Index);
    // The container owns Element from here on.
    bool AdoptLayerElement(KFbxLayerElement *Element);
    int32 GetLayerElementCount() const { return mElements.Count; }
    KFbxLayerElement *GetLayerElementByIndex(int32 Index) const { return mElements.GetAt(Index); }

protected:
    // Gives Other (which must have none) copies of all layers and elements.
    bool CopyLayersTo(KFbxLayerContainer &Other) const;

private:
    fbx_array<KFbxLayer *> mLayers;
    fbx_array<KFbxLayerElement *> mElements;
};

class KFbxGeometryBase : public KFbxLayerContainer
{
public:
    KFbxGeometryBase(KFbxSdkManager *Manager, char const *Name, int32 Type) : KFbxLayerContainer(Manager, Name, Type) {}
    virtual int32 GetControlPointsCount() const { return mControlPoints.Count; }
    virtual KFbxVector4 *GetControlPoints() const { return mControlPoints.Data; }
    bool InitControlPoints(int32 Count) { return mControlPoints.Resize(Count); }
    void SetControlPointAt(KFbxVector4 const &Point, int32 Index)
    {
        if (Index >= 0 && Index < mControlPoints.Count) mControlPoints[Index] = Point;
    }

protected:
    fbx_array<KFbxVector4> mControlPoints;
};

class KFbxGeometry : public KFbxGeometryBase
{
public:
    KFbxGeometry(KFbxSdkManager *Manager, char const *Name, int32 Type) : KFbxGeometryBase(Manager, Name, Type) {}
    // Deformers of a type (1 for skins); -1 counts all.
    int32 GetDeformerCount(int32 Type = -1) const;
    KFbxDeformer *GetDeformer(int32 Index, int32 Type = -1) const;
    bool AddDeformer(KFbxDeformer *Deformer);
    void RemoveDeformer(KFbxDeformer *Deformer);

protected:
    fbx_array<KFbxDeformer *> mDeformers;
};

struct fbx_polygon
{
    int32 First; // first polygon vertex
    int32 Size;
    int32 Group;
};

class KFbxMesh : public KFbxGeometry
{
public:
    static KFbxMesh *Create(KFbxSdkManager *Manager, char const *Name);
    KFbxMesh(KFbxSdkManager *Manager, char const *Name) : KFbxGeometry(Manager, Name, FbxAttribute_Mesh) {}

    int32 GetPolygonCount() const { return mPolygons.Count; }
    int32 GetPolygonSize(int32 Polygon) const;
    // The control point index, or -1 when either index is out of range.
    int32 GetPolygonVertex(int32 Polygon, int32 Position) const;
    int32 GetPolygonVertexIndex(int32 Polygon) const;
    int32 GetPolygonVertexCount() const { return mPolygonVertices.Count; }
    int32 const *GetPolygonVertices() const { return mPolygonVertices.Data; }
    bool IsTriangleMesh() const;

    // Building. ReservePolygons makes room for a mesh of known size at once.
    bool ReservePolygons(int32 Polygons, int32 PolygonVertices)
    {
        return mPolygons.Reserve(Polygons) && mPolygonVertices.Reserve(PolygonVertices);
    }
    void BeginPolygon(int32 Group = -1);
    void AddPolygon(int32 ControlPoint);
    void EndPolygon();

    // Layer 0's normal of a polygon corner; Normal stays as it was when the
    // mesh has none or the arrays do not reach.
    bool GetPolygonVertexNormal(int32 Polygon, int32 Position, KFbxVector4 &Normal) const;
    // Index into the UV array of a texture channel of layer 0 (by polygon
    // vertex, index to direct); -1 otherwise.
    int32 GetTextureUVIndex(int32 Polygon, int32 Position, int32 Channel = FbxLayerElement_TextureDiffuse) const;
    // Layers that hold at least one texture channel.
    int32 GetTextureLayerCount() const;

    // A mesh of triangles only with the same control points, take data,
    // deformers and copies of the layers remapped to the new corners. This
    // mesh stays as it is. Null on failure.
    KFbxMesh *CreateTriangulated() const;

private:
    fbx_array<fbx_polygon> mPolygons;
    fbx_array<int32> mPolygonVertices;
    bool mInPolygon = false;
};

class KFbxGeometryConverter
{
public:
    explicit KFbxGeometryConverter(KFbxSdkManager *Manager) : mManager(Manager) {}
    // Replaces the node's mesh by a triangulated copy and destroys the old
    // one unless another node of the scene still shows it. True when the
    // node's mesh is triangles only afterwards.
    bool TriangulateInPlace(KFbxNode *Node);

private:
    KFbxSdkManager *mManager;
};

// The zig-zag triangle fan of an n-gon: corner positions, 3 per triangle,
// (n - 2) triangles. Returns the number of triangles written.
int32 TriangulatePolygonCorners(int32 Size, int32 *Corners);
