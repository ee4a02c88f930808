// Objects, take data, node attributes and the node hierarchy.
#include "fbx/fbx_tessel_node.h"

#include <cstring>

#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_scene.h"

KFbxObject::KFbxObject(KFbxSdkManager *Manager, char const *Name)
    : mManager(Manager), mName(FbxCopyString(Name)), mWhole(mName || !Name)
{
    if (mManager && !mManager->RegisterObject(this)) {
        mManager = nullptr;
        mWhole = false;
    }
}

KFbxObject::~KFbxObject()
{
    if (mManager) {
        mManager->UnregisterObject(this);
    }
    TesselFree(mName);
}

void KFbxObject::SetName(char const *Name)
{
    char *Copy = FbxCopyString(Name);
    if (Copy) {
        TesselFree(mName);
        mName = Copy;
    }
}

void KFbxObject::Destroy()
{
    FbxDelete(this);
}

// ---------------------------------------------------------------------------

KFbxTakeNodeContainer::~KFbxTakeNodeContainer()
{
    for (int32 Index = 0; Index < mTakeNodes.Count; ++Index) {
        TesselFree(mTakeNodes[Index].Name);
        FbxDelete(mTakeNodes[Index].Root);
    }
}

char const *KFbxTakeNodeContainer::GetTakeNodeName(int32 Index) const
{
    return (Index >= 0 && Index < mTakeNodes.Count) ? mTakeNodes[Index].Name : nullptr;
}

KFCurveNode *KFbxTakeNodeContainer::GetTakeNode(int32 Index) const
{
    return (Index >= 0 && Index < mTakeNodes.Count) ? mTakeNodes[Index].Root : nullptr;
}

KFCurveNode *KFbxTakeNodeContainer::FindTakeNode(char const *TakeName) const
{
    if (!TakeName) {
        return nullptr;
    }
    for (int32 Index = 0; Index < mTakeNodes.Count; ++Index) {
        if (StringsAreExactlyEqual(mTakeNodes[Index].Name, TakeName)) {
            return mTakeNodes[Index].Root;
        }
    }
    return nullptr;
}

KFCurveNode *KFbxTakeNodeContainer::FindCurrentTakeNode(char const *TakeName, uint32 Generation)
{
    if (Generation == 0 || Generation != mCachedGeneration) {
        mCachedRoot = FindTakeNode(TakeName);
        mCachedGeneration = Generation;
    }
    return mCachedRoot;
}

bool KFbxTakeNodeContainer::HasTakeNode(char const *TakeName) const
{
    if (TakeName && StringsAreExactlyEqual(TakeName, "Default")) {
        return true;
    }
    if (!TakeName) {
        return false;
    }
    for (int32 Index = 0; Index < mTakeNodes.Count; ++Index) {
        if (StringsAreExactlyEqual(mTakeNodes[Index].Name, TakeName)) {
            return true;
        }
    }
    return false;
}

bool KFbxTakeNodeContainer::AddTakeNode(char const *TakeName, KFCurveNode *Root)
{
    mCachedGeneration = 0;
    CheckPointer(TakeName, LogCategory_FBX, (FbxDelete(Root), false));
    for (int32 Index = 0; Index < mTakeNodes.Count; ++Index) {
        if (StringsAreExactlyEqual(mTakeNodes[Index].Name, TakeName)) {
            if (mTakeNodes[Index].Root != Root) {
                FbxDelete(mTakeNodes[Index].Root);
            }
            mTakeNodes[Index].Root = Root;
            return true;
        }
    }
    fbx_take_node TakeNode = {FbxCopyString(TakeName), Root};
    if (!TakeNode.Name || !mTakeNodes.Add(TakeNode)) {
        TesselFree(TakeNode.Name);
        FbxDelete(Root);
        return false;
    }
    return true;
}

KFCurveNode *KFbxTakeNodeContainer::GetOrAddTakeNode(char const *TakeName, char const *RootName)
{
    mCachedGeneration = 0;
    KFCurveNode *Root = FindTakeNode(TakeName);
    if (Root) {
        return Root;
    }
    Root = FbxNew(KFCurveNode, RootName);
    if (!Root || !AddTakeNode(TakeName, Root)) {
        return nullptr;
    }
    return Root;
}

bool KFbxTakeNodeContainer::CopyTakeNodesFrom(KFbxTakeNodeContainer const &Other)
{
    mCachedGeneration = 0;
    bool Result = true;
    for (int32 Index = 0; Index < Other.mTakeNodes.Count; ++Index) {
        KFCurveNode *Root = Other.mTakeNodes[Index].Root;
        Result = AddTakeNode(Other.mTakeNodes[Index].Name, Root ? Root->Clone() : nullptr) && Result;
    }
    return Result;
}

KFbxNodeAttribute *KFbxNodeAttribute::Create(KFbxSdkManager *Manager, char const *Name, int32 Type)
{
    return FbxKeepWhole(FbxNew(KFbxNodeAttribute, Manager, Name, Type));
}

// ---------------------------------------------------------------------------

KFbxVector4 fbx_limits::Apply(KFbxVector4 Value) const
{
    if (!Active) {
        return Value;
    }
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        if ((Bits & (FbxLimit_MinX << Axis)) && Value[Axis] < Min[Axis]) {
            Value[Axis] = Min[Axis];
        }
        if ((Bits & (FbxLimit_MaxX << Axis)) && Value[Axis] > Max[Axis]) {
            Value[Axis] = Max[Axis];
        }
    }
    return Value;
}

KFbxNode::KFbxNode(KFbxSdkManager *Manager, char const *Name)
    : KFbxTakeNodeContainer(Manager, Name), LclScaling(1.0, 1.0, 1.0), RotationOrder(FbxRotationOrder_XYZ),
      RotationActive(false), RotationSpaceForLimitOnly(false), InheritType(FbxInherit_RrSs), mParent(nullptr),
      mScene(nullptr), mDefaultAttribute(nullptr)
{
    ScalingLimits.Min.Set(0.0, 0.0, 0.0);
    ScalingLimits.Max.Set(1.0, 1.0, 1.0);
}

// Other objects may already be gone when a node goes with its manager, so
// the destructor touches only the node's own memory.
KFbxNode::~KFbxNode()
{
    ReleaseCache(mCache);
}

KFbxNode *KFbxNode::Create(KFbxSdkManager *Manager, char const *Name)
{
    // The transform cache compares the setup members as raw bytes, padding
    // included: a node starts from zeroed memory so that its padding is
    // defined and equal setups compare equal.
    size_t Alignment = alignof(KFbxNode) < 8 ? 8 : alignof(KFbxNode);
    void *Memory = TesselAllocateAligned(Alignment, sizeof(KFbxNode));
    if (Memory) memset(Memory, 0, sizeof(KFbxNode));
    return FbxKeepWhole(FbxConstruct_<KFbxNode>(Memory, Manager, Name));
}

int32 KFbxNode::GetChildCount(bool Recursive) const
{
    int32 Count = mChildren.Count;
    if (Recursive) {
        for (int32 Index = 0; Index < mChildren.Count; ++Index) {
            Count += mChildren[Index]->GetChildCount(true);
        }
    }
    return Count;
}

KFbxNode *KFbxNode::GetChild(int32 Index) const
{
    return mChildren.GetAt(Index);
}

bool KFbxNode::AddChild(KFbxNode *Child)
{
    CheckPointer(Child, LogCategory_FBX, false);
    CheckCondition(Child != this, LogCategory_FBX, false);
    for (KFbxNode *Ancestor = mParent; Ancestor; Ancestor = Ancestor->mParent) {
        if (Ancestor == Child) {
            TesselWarning(LogCategory_FBX, "Node %s cannot become a child of its own descendant %s", Child->GetName(),
                          GetName());
            return false;
        }
    }
    if (Child->mParent) {
        Child->mParent->RemoveChild(Child);
    }
    if (!mChildren.Add(Child)) {
        return false;
    }
    Child->mParent = this;
    return true;
}

void KFbxNode::RemoveChild(KFbxNode *Child)
{
    int32 Index = mChildren.Find(Child);
    if (Index >= 0) {
        mChildren.RemoveAt(Index);
        Child->mParent = nullptr;
    }
}

KFbxNodeAttribute *KFbxNode::GetNodeAttribute() const
{
    return mDefaultAttribute;
}

bool KFbxNode::AddNodeAttribute(KFbxNodeAttribute *Attribute)
{
    CheckPointer(Attribute, LogCategory_FBX, false);
    if (mAttributes.Find(Attribute) >= 0) {
        return true;
    }
    if (!mAttributes.Add(Attribute)) {
        return false;
    }
    Attribute->SetNode(this);
    if (!mDefaultAttribute) {
        mDefaultAttribute = Attribute;
    }
    return true;
}

bool KFbxNode::ReplaceNodeAttribute(KFbxNodeAttribute *OldAttribute, KFbxNodeAttribute *NewAttribute)
{
    CheckPointer(NewAttribute, LogCategory_FBX, false);
    int32 Index = mAttributes.Find(OldAttribute);
    if (Index < 0) {
        return AddNodeAttribute(NewAttribute);
    }
    mAttributes[Index] = NewAttribute;
    NewAttribute->SetNode(this);
    if (mDefaultAttribute == OldAttribute) {
        mDefaultAttribute = NewAttribute;
    }
    if (OldAttribute->GetNode() == this) {
        OldAttribute->SetNode(nullptr);
    }
    return true;
}

void KFbxNode::RemoveNodeAttribute(KFbxNodeAttribute *Attribute)
{
    int32 Index = mAttributes.Find(Attribute);
    if (Index < 0) {
        return;
    }
    mAttributes.RemoveAt(Index);
    Attribute->SetNode(nullptr);
    if (mDefaultAttribute == Attribute) {
        mDefaultAttribute = mAttributes.GetAt(0);
    }
}

KFbxMesh *KFbxNode::GetMesh() const
{
    if (mDefaultAttribute && mDefaultAttribute->GetAttributeType() == FbxAttribute_Mesh) {
        return static_cast<KFbxMesh *>(mDefaultAttribute);
    }
    for (int32 Index = 0; Index < mAttributes.Count; ++Index) {
        if (mAttributes[Index]->GetAttributeType() == FbxAttribute_Mesh) {
            return static_cast<KFbxMesh *>(mAttributes[Index]);
        }
    }
    return nullptr;
}
