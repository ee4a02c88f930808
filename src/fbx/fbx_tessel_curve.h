// Animation curves: keys with constant, linear and cubic interpolation,
// extrapolation before the first and after the last key, and the curve node
// tree that groups the components of a transform channel.
#pragma once

#include "fbx/fbx_tessel_math.h"
#include "fbx/fbx_tessel_scene_memory.h"

// Key flags.
enum fbx_key_flags : uint32
{
    FbxKey_InterpolationMask = 0x0E,
    FbxKey_Constant = 0x02,
    FbxKey_Linear = 0x04,
    FbxKey_Cubic = 0x08,

    FbxKey_ConstantNext = 0x100, // with constant interpolation: the next key's value holds

    FbxKey_TangentMask = 0xF00,
    FbxKey_TangentAuto = 0x100,
    FbxKey_TangentTCB = 0x200,
    FbxKey_TangentUser = 0x400,
    FbxKey_TangentBreak = 0x800,
    FbxKey_TangentAutoBreak = 0x900,
    FbxKey_TangentBroken = 0xC00,

    FbxKey_ClampFlat = 0x1000,

    FbxKey_WeightedRight = 0x1000000,
    FbxKey_WeightedNextLeft = 0x2000000,
    FbxKey_WeightedMask = 0x3000000,
};

enum fbx_extrapolation_mode
{
    FbxExtrapolation_None = 0,
    FbxExtrapolation_Constant = 1,
    FbxExtrapolation_Repetition = 2,
    FbxExtrapolation_MirrorRepetition = 3,
    FbxExtrapolation_KeepSlope = 4,
    // Repetition where each cycle starts where the previous one ended.
    FbxExtrapolation_RelativeRepetition = 5,
};

// Weights are fixed point of 1/9999; 3333 is the default third.
int32 const FbxDefaultKeyWeight = 3333;

union fbx_key_data
{
    real32 Float;
    uint32 Word;
};

struct KFCurveKey
{
    real32 Value;
    KTime Time;
    uint32 Flags;
    // Cubic user, broken or automatic: RightSlope, NextLeftSlope, the two
    // weights (right in the low half, next left in the high half), velocity.
    // TCB: tension, continuity, bias.
    fbx_key_data Data[4];

    uint32 GetInterpolation() const { return Flags & FbxKey_InterpolationMask; }
    real32 GetRightSlope() const { return Data[0].Float; }
    real32 GetNextLeftSlope() const { return Data[1].Float; }
    real64 GetRightWeight() const { return (real64)(Data[2].Word & 0xFFFF) / 9999.0; }
    real64 GetNextLeftWeight() const { return (real64)(Data[2].Word >> 16) / 9999.0; }
    void SetWeights(int32 Right, int32 NextLeft) { Data[2].Word = ((uint32)NextLeft << 16) | ((uint32)Right & 0xFFFF); }
};

// Fills a key with the defaults of a freshly read key: no flags, zero data,
// default weights.
KFCurveKey MakeCurveKey(KTime Time, real32 Value, uint32 Flags);

class KFCurve
{
public:
    KFCurve();

    void SetValue(real32 Value) { mDefaultValue = Value; }
    real32 GetValue() const { return mDefaultValue; }

    int32 KeyGetCount() const { return mKeys.Count; }
    KFCurveKey const &KeyGet(int32 Index) const { return mKeys[Index]; }
    KFCurveKey &KeyGet(int32 Index) { return mKeys[Index]; }
    // Appends a key; one whose time is not after the last key's is dropped.
    bool KeyAppend(KFCurveKey const &Key);
    // Room for Count keys in all, so that appending a known number of keys
    // allocates once.
    bool KeyReserve(int32 Count) { return Count <= 0 || mKeys.Reserve(Count); }
    void KeyClear();
    KTime KeyGetTime(int32 Index) const { return mKeys[Index].Time; }
    real32 KeyGetValue(int32 Index) const { return mKeys[Index].Value; }

    void SetPreExtrapolation(int32 Mode, int32 Count)
    {
        mPreExtrapolationMode = Mode;
        mPreExtrapolationCount = Count;
    }
    void SetPostExtrapolation(int32 Mode, int32 Count)
    {
        mPostExtrapolationMode = Mode;
        mPostExtrapolationCount = Count;
    }
    int32 GetPreExtrapolation() const { return mPreExtrapolationMode; }
    int32 GetPostExtrapolation() const { return mPostExtrapolationMode; }
    int32 GetPreExtrapolationCount() const { return mPreExtrapolationCount; }
    int32 GetPostExtrapolationCount() const { return mPostExtrapolationCount; }

    // Cached on the time of the last call.
    real32 Evaluate(KTime Time, int32 *Hint = nullptr);
    real32 EvaluateNoCache(KTime Time, int32 *Hint = nullptr);
    // i + fraction of the pair of keys around Time; -1 with no keys, -0.5
    // before the first key, KeyCount - 0.5 after the last.
    real64 KeyFind(KTime Time, int32 *Hint = nullptr);
    // Slopes at a key, in value per second.
    real32 EvaluateLeftDerivative(int32 Index);
    real32 EvaluateRightDerivative(int32 Index);

    bool CopyFrom(KFCurve const &Other);

private:
    real32 Interpolate(int32 Index, real64 Fraction);
    real64 LimitedDistance(real64 Seconds, int32 Count, real64 SpanSeconds) const;
    bool IsFlatForClamp(int32 Index) const;

    real32 mDefaultValue;
    fbx_array<KFCurveKey> mKeys;
    int32 mPreExtrapolationMode;
    int32 mPreExtrapolationCount;
    int32 mPostExtrapolationMode;
    int32 mPostExtrapolationCount;
    int32 mLastSearchIndex;
    bool mCacheValid;
    KTime mLastTime;
    real32 mLastValue;
};

// How a layer's values combine with what lies below them.
enum fbx_curve_node_type
{
    FbxCurveNodeType_Additive = 0,
    FbxCurveNodeType_AdditiveToo = 1,
    FbxCurveNodeType_RotationCompose = 2,
    FbxCurveNodeType_Multiply = 3,
    FbxCurveNodeType_Override = 4,
};

class KFCurveNode
{
public:
    explicit KFCurveNode(char const *Name);
    virtual ~KFCurveNode();

    char const *GetName() const { return mName; }
    bool IsNamed(char const *Name) const;

    // The node's own curve, created on demand.
    KFCurve *FCurveGet() const { return mCurve; }
    KFCurve *FCurveCreate();

    virtual int32 GetCount() const { return mChildren.Count; }
    virtual KFCurveNode *Get(int32 Index) const;
    KFCurveNode *Add(KFCurveNode *Child);
    KFCurveNode *FindChild(char const *Name) const;
    // Child by name, created when missing.
    KFCurveNode *FindOrAddChild(char const *Name);

    int32 GetType() const { return mType; }
    void SetType(int32 Type) { mType = Type; }
    KFCurveNode *GetLayer() const { return mLayer; }
    // The node takes ownership of the layer.
    void SetLayer(KFCurveNode *Layer);
    // How much of a layer counts, 0 to 1, unless its weight curve (in
    // percent, created on demand) says so at each time.
    void SetLayerWeight(real64 Weight) { mLayerWeight = Weight; }
    real64 GetLayerWeight() const { return mLayerWeight; }
    KFCurve *WeightCurveCreate();
    bool IsQuaternion() const { return mQuaternion; }
    void SetQuaternion(bool Quaternion) { mQuaternion = Quaternion; }
    int32 GetRotationOrder() const { return mRotationOrder; }
    void SetRotationOrder(int32 Order) { mRotationOrder = Order; }

    // Number of values the node writes: 1 for a leaf, else the sum of the
    // children's.
    int32 GetValueCount() const;
    // True when the node or any descendant or layer has a curve with keys
    // or a default.
    bool HasCurves() const;

    // Writes the node's values at Time and returns the position behind the
    // last one. A component without a curve keeps what Values held.
    real64 *Evaluate(real64 *Values, KTime Time, int32 *Hint = nullptr);

    KFCurveNode *Clone() const;

private:
    real64 *EvaluateOwn(real64 *Values, KTime Time, int32 *Hint);
    bool EvaluateQuaternion(real64 *Values, KTime Time);
    KFCurve *FirstKeyedCurve() const;

    char *mName;
    KFCurve *mCurve;
    fbx_array<KFCurveNode *> mChildren;
    int32 mType;
    KFCurveNode *mLayer;
    real64 mLayerWeight;
    KFCurve *mWeightCurve;
    bool mQuaternion;
    int32 mRotationOrder;
};
