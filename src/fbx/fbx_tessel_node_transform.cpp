// Local transforms at a time and the global transform with pivots, offsets,
// pre and post rotation, rotation orders, inherit types and limits.
#include "fbx/fbx_tessel_node.h"
#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_skin.h"

#include <atomic>
#include <cstring>

static char const *const ChannelNames[3] = {"T", "R", "S"};

// The cache holds a copy of every input of the last global result: the
// local values, the transform setup and the parent's result. A hit needs all
// of them equal, so it answers exactly what a new computation would.
// Generations are unique across the process (scenes may be evaluated on
// several threads).
static std::atomic<uint64> NextGeneration{0};

struct KFbxNode::global_cache
{
    KFbxNode *Parent;
    uint64 ParentGeneration;
    KFbxVector4 T, R, S;
    uint8 Setup[sizeof(fbx_optional_vector) * 6 + sizeof(fbx_limits) * 3 + 64];
    int32 SetupSize;
    KFbxNode::global_state State;
};

void KFbxNode::ReleaseCache(global_cache *Cache)
{
    FbxDelete(Cache);
}

KFbxVector4 KFbxNode::EvaluateChannel(int32 Channel, KTime Time, bool UseCurves)
{
    KFbxVector4 Value = (Channel == Channel_T) ? LclTranslation : (Channel == Channel_R) ? LclRotation : LclScaling;
    if (!UseCurves || !mScene) {
        return Value;
    }
    KFCurveNode *Root = FindCurrentTakeNode(mScene->GetCurrentTakeName(), mScene->GetTakeGeneration());
    if (!Root) {
        return Value;
    }
    KFCurveNode *ChannelNode = Root->IsNamed(ChannelNames[Channel]) ? Root : Root->FindChild(ChannelNames[Channel]);
    if (!ChannelNode) {
        return Value;
    }
    if (Channel == Channel_R) {
        ChannelNode->SetRotationOrder(RotationOrder);
        ChannelNode->SetQuaternion(QuaternionInterpolate);
    }
    real64 Values[16] = {Value[0], Value[1], Value[2]};
    if (ChannelNode->GetValueCount() <= 16) {
        ChannelNode->Evaluate(Values, Time, nullptr);
        Value.Set(Values[0], Values[1], Values[2], 0.0);
    }
    return Value;
}

// In the limit-only space the angles are clamped as the XYZ angles of the
// full rotation (with pre and post rotation) and carried back.
KFbxVector4 KFbxNode::ClampRotation(KFbxVector4 const &Rotation) const
{
    if (!RotationLimits.Active) {
        return Rotation;
    }
    if (!RotationSpaceForLimitOnly) {
        return RotationLimits.Apply(Rotation);
    }
    AffineMatrix Pre = PreRotation.InUse ? EulerToMatrix(PreRotation.Value) : AffineMatrix();
    AffineMatrix Post = PostRotation.InUse ? EulerToMatrix(PostRotation.Value) : AffineMatrix();
    AffineMatrix Full = Pre * EulerToMatrix(Rotation, RotationOrder) * Post.Transpose();
    KFbxVector4 Clamped = RotationLimits.Apply(MatrixToEuler(Full, FbxRotationOrder_XYZ));
    AffineMatrix Back = Pre.Transpose() * EulerToMatrix(Clamped, FbxRotationOrder_XYZ) * Post;
    return MatrixToEuler(Back, RotationOrder);
}

KFbxVector4 KFbxNode::GetLocalTranslation(KTime Time, bool ApplyLimits)
{
    KFbxVector4 Value = EvaluateChannel(Channel_T, Time, true);
    return ApplyLimits ? TranslationLimits.Apply(Value) : Value;
}

KFbxVector4 KFbxNode::GetLocalRotation(KTime Time, bool ApplyLimits)
{
    KFbxVector4 Value = EvaluateChannel(Channel_R, Time, true);
    return ApplyLimits ? ClampRotation(Value) : Value;
}

KFbxVector4 KFbxNode::GetLocalScaling(KTime Time, bool ApplyLimits)
{
    KFbxVector4 Value = EvaluateChannel(Channel_S, Time, true);
    return ApplyLimits ? ScalingLimits.Apply(Value) : Value;
}

AffineMatrix KFbxNode::ComputeLocalRotationMatrix(KFbxVector4 const &Rotation) const
{
    if (!RotationActive || RotationSpaceForLimitOnly) {
        return EulerToMatrix(Rotation, FbxRotationOrder_XYZ);
    }
    AffineMatrix Result = EulerToMatrix(Rotation, RotationOrder);
    if (PreRotation.InUse) {
        Result = EulerToMatrix(PreRotation.Value, FbxRotationOrder_XYZ) * Result;
    }
    if (PostRotation.InUse) {
        Result = Result * EulerToMatrix(PostRotation.Value, FbxRotationOrder_XYZ).Transpose();
    }
    return Result;
}

static AffineMatrix DiagonalMatrix(KFbxVector4 const &Diagonal)
{
    AffineMatrix Result;
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Result.mData[Axis][Axis] = Diagonal[Axis];
    }
    return Result;
}

static AffineMatrix Linear3(AffineMatrix Matrix)
{
    Matrix.mData[3][0] = Matrix.mData[3][1] = Matrix.mData[3][2] = 0.0;
    return Matrix;
}

KFbxNode::global_state KFbxNode::ComputeGlobal(KTime Time, bool UseCurves, int32 Depth)
{
    KFbxVector4 T = TranslationLimits.Apply(EvaluateChannel(Channel_T, Time, UseCurves));
    KFbxVector4 R = ClampRotation(EvaluateChannel(Channel_R, Time, UseCurves));
    KFbxVector4 S = ScalingLimits.Apply(EvaluateChannel(Channel_S, Time, UseCurves));

    // The transform setup: every member from RotationOffset to ScalingLimits.
    uint8 const *SetupStart = (uint8 const *)&RotationOffset;
    int32 SetupSize = (int32)((uint8 const *)(&ScalingLimits + 1) - SetupStart);
    global_state ParentState = {};
    bool HasParent = mParent && Depth <= 4096;
    if (HasParent) {
        ParentState = mParent->ComputeGlobal(Time, UseCurves, Depth + 1);
    }
    if (!mCache) {
        mCache = FbxNew(global_cache);
    }
    bool CacheUsable = mCache && SetupSize <= (int32)sizeof(mCache->Setup);
    if (CacheUsable && mCache->SetupSize == SetupSize && mCache->Parent == (HasParent ? mParent : nullptr) &&
        (!HasParent || mCache->ParentGeneration == ParentState.Generation) && mCache->T == T && mCache->R == R &&
        mCache->S == S && memcmp(mCache->Setup, SetupStart, (size_t)SetupSize) == 0) {
        return mCache->State;
    }

    AffineMatrix Rl = ComputeLocalRotationMatrix(R);
    AffineMatrix Sl = DiagonalMatrix(S);

    // Pivots and offsets fold into one translation term.
    KFbxVector4 P;
    if (ScalingPivot.InUse) {
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            P[Axis] = (1.0 - S[Axis]) * ScalingPivot.Value[Axis];
        }
    }
    if (ScalingOffset.InUse) {
        P = P + ScalingOffset.Value;
    }
    if (RotationPivot.InUse) {
        P = Rl.MultR(P - RotationPivot.Value) + RotationPivot.Value;
    } else if (ScalingOffset.InUse || ScalingPivot.InUse) {
        P = Rl.MultR(P);
    }
    if (RotationOffset.InUse) {
        P = P + RotationOffset.Value;
    }
    KFbxVector4 Position(T[0] + P[0], T[1] + P[1], T[2] + P[2], 1.0);

    global_state State;
    State.LocalScale = S;
    // The depth guard stops a damaged hierarchy; AddChild refuses cycles.
    if (!HasParent) {
        State.Rotation = Rl;
        State.Scale = Sl;
    } else {
        global_state const &Parent = ParentState;
        State.Rotation = Parent.Rotation * Rl;
        if (InheritType == FbxInherit_RrSs) {
            KFbxVector4 Diagonal;
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                Diagonal[Axis] = Parent.Scale.mData[Axis][Axis] * S[Axis];
            }
            State.Scale = DiagonalMatrix(Diagonal);
        } else {
            AffineMatrix ParentScale = Parent.Scale;
            if (InheritType == FbxInherit_Rrs) {
                KFbxVector4 Inverse;
                for (int32 Axis = 0; Axis < 3; ++Axis) {
                    real64 Local = Parent.LocalScale[Axis];
                    Inverse[Axis] = (Local != 0.0) ? 1.0 / Local : 0.0;
                }
                ParentScale = ParentScale * DiagonalMatrix(Inverse);
            }
            State.Scale = Rl.Transpose() * ParentScale * Rl * Sl;
        }
        Position = Parent.Matrix.MultT(Position);
    }
    State.Rotation = Linear3(State.Rotation);
    State.Scale = Linear3(State.Scale);

    if (InheritType == FbxInherit_RrSs || !HasParent) {
        State.Matrix = State.Rotation;
        for (int32 Row = 0; Row < 3; ++Row) {
            for (int32 Column = 0; Column < 3; ++Column) {
                State.Matrix.mData[Row][Column] *= State.Scale.mData[Row][Row];
            }
        }
        State.Matrix.SetT(Position);
    } else {
        AffineMatrix Translation;
        Translation.SetT(Position);
        State.Matrix = Translation * State.Rotation * State.Scale;
    }
    State.Generation = NextGeneration.fetch_add(1, std::memory_order_relaxed) + 1;
    if (CacheUsable) {
        mCache->Parent = HasParent ? mParent : nullptr;
        mCache->ParentGeneration = HasParent ? ParentState.Generation : 0;
        mCache->T = T;
        mCache->R = R;
        mCache->S = S;
        mCache->SetupSize = SetupSize;
        memcpy(mCache->Setup, SetupStart, (size_t)SetupSize);
        mCache->State = State;
    }
    return State;
}

AffineMatrix KFbxNode::GetGlobalTransformAtTime(KTime Time)
{
    return ComputeGlobal(Time, true, 0).Matrix;
}

AffineMatrix KFbxNode::GetGlobalTransformDefault()
{
    return ComputeGlobal(KTime(), false, 0).Matrix;
}

AffineMatrix KFbxNode::GetGeometricTransform() const
{
    AffineMatrix Translation, Scale;
    Translation.SetT(GeometricTranslation);
    Scale = DiagonalMatrix(GeometricScaling);
    return Translation * EulerToMatrix(GeometricRotation, FbxRotationOrder_XYZ) * Scale;
}

// The first cluster of the scene, in member order, that links Node.
static KFbxCluster *FindLinkingCluster(KFbxNode *Node)
{
    KFbxScene *Scene = Node->GetScene();
    if (!Scene) {
        return nullptr;
    }
    for (int32 Index = 0; Index < Scene->GetMemberCount(); ++Index) {
        KFbxCluster *Cluster = dynamic_cast<KFbxCluster *>(Scene->GetMember(Index));
        if (Cluster && Cluster->GetLink() == Node) {
            return Cluster;
        }
    }
    return nullptr;
}

int32 KFbxNode::GetBindSource()
{
    if (FindLinkingCluster(this)) {
        return FbxBind_Cluster;
    }
    return HasBindPoseMatrix ? FbxBind_Pose : FbxBind_Static;
}

AffineMatrix KFbxNode::GetBindWorld()
{
    if (KFbxCluster *Cluster = FindLinkingCluster(this)) {
        return Cluster->GetStoredTransformLink();
    }
    return HasBindPoseMatrix ? BindPoseMatrix : GetGlobalTransformDefault();
}
