// Named objects of the scene model, the take data they carry, node
// attributes and the transform node with its local and global transforms.
#pragma once

#include "fbx/fbx_tessel_curve.h"
#include "fbx/fbx_tessel_math.h"
#include "fbx/fbx_tessel_scene_memory.h"

class KFbxSdkManager;
class KFbxScene;
class KFbxNode;
class KFbxMesh;

// Every object belongs to the manager that created it; the manager destroys
// what is left when it goes.
class KFbxObject
{
public:
    KFbxObject(KFbxSdkManager *Manager, char const *Name);
    virtual ~KFbxObject();
    KFbxObject(KFbxObject const &) = delete;
    KFbxObject &operator=(KFbxObject const &) = delete;

    char const *GetName() const { return mName; }
    void SetName(char const *Name);
    KFbxSdkManager *GetFbxSdkManager() const { return mManager; }
    // Unregisters from the manager and deletes the object.
    void Destroy();
    // Called by the manager when it goes first.
    void DetachFromManager() { mManager = nullptr; }
    // False when memory ran out while the object was made: its manager does
    // not know it or its name is missing.
    bool IsWhole() const { return mWhole; }

private:
    KFbxSdkManager *mManager;
    char *mName;
    bool mWhole;
};

// The creation functions' last step: an object that is not whole would
// outlive its scene unseen, so it goes and the creation fails.
template <typename T>
T *FbxKeepWhole(T *Object)
{
    if (Object && !Object->IsWhole()) {
        Object->Destroy();
        return nullptr;
    }
    return Object;
}

// Take data: per take name one curve node tree (for a node, the
// "Transform" channel with "T", "R" and "S" below it).
struct fbx_take_node
{
    char *Name;
    KFCurveNode *Root;
};

class KFbxTakeNodeContainer : public KFbxObject
{
public:
    KFbxTakeNodeContainer(KFbxSdkManager *Manager, char const *Name) : KFbxObject(Manager, Name) {}
    ~KFbxTakeNodeContainer() override;

    int32 GetTakeNodeCount() const { return mTakeNodes.Count; }
    char const *GetTakeNodeName(int32 Index) const;
    KFCurveNode *GetTakeNode(int32 Index) const;
    // Exact name; null when the container has no data for that take.
    KFCurveNode *FindTakeNode(char const *TakeName) const;
    // The "Default" take counts as present on every container.
    bool HasTakeNode(char const *TakeName) const;
    // Takes ownership of Root; replaces an earlier tree of the same take.
    bool AddTakeNode(char const *TakeName, KFCurveNode *Root);
    // The curve node tree of a take, made empty on first use.
    KFCurveNode *GetOrAddTakeNode(char const *TakeName, char const *RootName);
    bool CopyTakeNodesFrom(KFbxTakeNodeContainer const &Other);
    // FindTakeNode, remembered while the scene's current take stays the one
    // of Generation (see KFbxScene::GetTakeGeneration) and the list is unchanged.
    KFCurveNode *FindCurrentTakeNode(char const *TakeName, uint32 Generation);

private:
    fbx_array<fbx_take_node> mTakeNodes;
    uint32 mCachedGeneration = 0; // 0: nothing remembered
    KFCurveNode *mCachedRoot = nullptr;
};

enum fbx_attribute_type
{
    FbxAttribute_Unidentified = 0,
    FbxAttribute_Null = 1,
    FbxAttribute_Marker = 2,
    FbxAttribute_Skeleton = 3,
    FbxAttribute_Mesh = 4,
    FbxAttribute_Nurb = 5,
    FbxAttribute_Patch = 6,
    FbxAttribute_Camera = 7,
    FbxAttribute_Light = 9,
};

class KFbxNodeAttribute : public KFbxTakeNodeContainer
{
public:
    KFbxNodeAttribute(KFbxSdkManager *Manager, char const *Name, int32 Type = FbxAttribute_Null)
        : KFbxTakeNodeContainer(Manager, Name), mType(Type), mNode(nullptr)
    {}
    virtual int32 GetAttributeType() const { return mType; }
    KFbxNode *GetNode() const { return mNode; }
    void SetNode(KFbxNode *Node) { mNode = Node; }

    static KFbxNodeAttribute *Create(KFbxSdkManager *Manager, char const *Name, int32 Type);

private:
    int32 mType;
    KFbxNode *mNode;
};

enum fbx_bind_source
{
    FbxBind_Static = 0,
    FbxBind_Pose = 1,
    FbxBind_Cluster = 2,
};

enum fbx_inherit_type
{
    FbxInherit_RrSs = 0,
    FbxInherit_RSrs = 1,
    FbxInherit_Rrs = 2,
};

// Limit enable bits.
enum fbx_limit_bits : uint32
{
    FbxLimit_MinX = 1u << 1,
    FbxLimit_MinY = 1u << 2,
    FbxLimit_MinZ = 1u << 3,
    FbxLimit_MaxX = 1u << 4,
    FbxLimit_MaxY = 1u << 5,
    FbxLimit_MaxZ = 1u << 6,
};

struct fbx_limits
{
    bool Active = false;
    uint32 Bits = 0;
    KFbxVector4 Min;
    KFbxVector4 Max;

    // Raised to the minimum, then lowered to the maximum, axis by axis.
    KFbxVector4 Apply(KFbxVector4 Value) const;
};

// A vector property with a flag that says whether it takes part.
struct fbx_optional_vector
{
    bool InUse = false;
    KFbxVector4 Value;
};

class KFbxNode : public KFbxTakeNodeContainer
{
public:
    KFbxNode(KFbxSdkManager *Manager, char const *Name);
    ~KFbxNode() override;

    static KFbxNode *Create(KFbxSdkManager *Manager, char const *Name);

    // Hierarchy.
    KFbxNode *GetParent() const { return mParent; }
    int32 GetChildCount(bool Recursive = false) const;
    KFbxNode *GetChild(int32 Index) const;
    // Re-parents Child (detaching it from an earlier parent) and appends it.
    bool AddChild(KFbxNode *Child);
    void RemoveChild(KFbxNode *Child);
    KFbxScene *GetScene() const { return mScene; }
    void SetScene(KFbxScene *Scene) { mScene = Scene; }

    // Attributes. The first attribute added becomes the default one.
    int32 GetNodeAttributeCount() const { return mAttributes.Count; }
    KFbxNodeAttribute *GetNodeAttributeByIndex(int32 Index) const { return mAttributes.GetAt(Index); }
    KFbxNodeAttribute *GetNodeAttribute() const;
    bool AddNodeAttribute(KFbxNodeAttribute *Attribute);
    // Puts NewAttribute in OldAttribute's place (also as the default).
    bool ReplaceNodeAttribute(KFbxNodeAttribute *OldAttribute, KFbxNodeAttribute *NewAttribute);
    void RemoveNodeAttribute(KFbxNodeAttribute *Attribute);
    KFbxMesh *GetMesh() const;

    // Local transform at a time of the scene's current take. Translation in
    // scene units, rotation in degrees, scale as factors.
    KFbxVector4 GetLocalTranslation(KTime Time = KTime(), bool ApplyLimits = false);
    KFbxVector4 GetLocalRotation(KTime Time = KTime(), bool ApplyLimits = false);
    KFbxVector4 GetLocalScaling(KTime Time = KTime(), bool ApplyLimits = false);
    AffineMatrix GetGlobalTransformAtTime(KTime Time);
    AffineMatrix GetGlobalTransformDefault();

    // Properties (defaults of the take curves and transform setup).
    KFbxVector4 LclTranslation;
    KFbxVector4 LclRotation;
    KFbxVector4 LclScaling;
    fbx_optional_vector RotationOffset;
    fbx_optional_vector RotationPivot;
    fbx_optional_vector ScalingOffset;
    fbx_optional_vector ScalingPivot;
    int32 RotationOrder;
    bool RotationActive;
    bool RotationSpaceForLimitOnly;
    int32 InheritType;
    fbx_optional_vector PreRotation;  // Euler XYZ degrees
    fbx_optional_vector PostRotation; // Euler XYZ degrees
    fbx_limits TranslationLimits;
    fbx_limits RotationLimits;
    fbx_limits ScalingLimits;
    // Rotation curves interpolate as quaternions between their keys.
    bool QuaternionInterpolate = false;
    // Offset of the node's own geometry, which its children do not inherit.
    KFbxVector4 GeometricTranslation;
    KFbxVector4 GeometricRotation; // Euler XYZ degrees
    KFbxVector4 GeometricScaling = KFbxVector4(1.0, 1.0, 1.0);
    // The node's world matrix in the file's bind pose, where it has an entry.
    bool HasBindPoseMatrix = false;
    AffineMatrix BindPoseMatrix;

    // Translation x rotation x scaling of the geometric properties.
    AffineMatrix GetGeometricTransform() const;
    // The world matrix the node's skins were bound at: the TransformLink of
    // the first cluster (in scene order) that links the node, else its bind
    // pose entry, else its global transform without animation.
    AffineMatrix GetBindWorld();
    // Where GetBindWorld takes the matrix from.
    int32 GetBindSource();

    // The plain rotation matrix of a local rotation (step one of the global
    // transform).
    AffineMatrix ComputeLocalRotationMatrix(KFbxVector4 const &Rotation) const;

private:
    enum channel
    {
        Channel_T = 0,
        Channel_R = 1,
        Channel_S = 2
    };
    KFbxVector4 EvaluateChannel(int32 Channel, KTime Time, bool UseCurves);
    KFbxVector4 ClampRotation(KFbxVector4 const &Rotation) const;

    struct global_state
    {
        AffineMatrix Rotation; // Rg
        AffineMatrix Scale;    // Sg, full 3x3 for the inherit types 1 and 2
        KFbxVector4 LocalScale;
        AffineMatrix Matrix;
        uint64 Generation; // changes whenever the result does
    };
    global_state ComputeGlobal(KTime Time, bool UseCurves, int32 Depth);
    // The last result with everything it was computed from.
    struct global_cache;
    global_cache *mCache = nullptr;
    static void ReleaseCache(global_cache *Cache);

    KFbxNode *mParent;
    KFbxScene *mScene;
    fbx_array<KFbxNode *> mChildren;
    fbx_array<KFbxNodeAttribute *> mAttributes;
    KFbxNodeAttribute *mDefaultAttribute;
};
