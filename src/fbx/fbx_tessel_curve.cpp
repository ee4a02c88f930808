// Curve evaluation: key search, extrapolation, interpolation and tangents,
// and the evaluation of curve node trees with their layers.
#include "fbx/fbx_tessel_curve.h"

#include <cmath>

static real64 const TicksPerSecond = (real64)KTime::TicksPerSecond;

static real64 Seconds(KTime A, KTime B)
{
    return (real64)(B.Get() - A.Get()) / TicksPerSecond;
}

KFCurveKey MakeCurveKey(KTime Time, real32 Value, uint32 Flags)
{
    KFCurveKey Key;
    Key.Value = Value;
    Key.Time = Time;
    Key.Flags = Flags;
    for (int32 Index = 0; Index < 4; ++Index) {
        Key.Data[Index].Word = 0;
    }
    Key.SetWeights(FbxDefaultKeyWeight, FbxDefaultKeyWeight);
    return Key;
}

KFCurve::KFCurve()
    : mDefaultValue(0.0f), mPreExtrapolationMode(FbxExtrapolation_Constant), mPreExtrapolationCount(-1),
      mPostExtrapolationMode(FbxExtrapolation_Constant), mPostExtrapolationCount(-1), mLastSearchIndex(0),
      mCacheValid(false), mLastValue(0.0f)
{}

bool KFCurve::KeyAppend(KFCurveKey const &Key)
{
    if (mKeys.Count > 0 && Key.Time <= mKeys[mKeys.Count - 1].Time) {
        return false;
    }
    mCacheValid = false;
    return mKeys.Add(Key);
}

void KFCurve::KeyClear()
{
    mKeys.Clear();
    mCacheValid = false;
    mLastSearchIndex = 0;
}

bool KFCurve::CopyFrom(KFCurve const &Other)
{
    mDefaultValue = Other.mDefaultValue;
    mPreExtrapolationMode = Other.mPreExtrapolationMode;
    mPreExtrapolationCount = Other.mPreExtrapolationCount;
    mPostExtrapolationMode = Other.mPostExtrapolationMode;
    mPostExtrapolationCount = Other.mPostExtrapolationCount;
    mLastSearchIndex = 0;
    mCacheValid = false;
    return mKeys.CopyFrom(Other.mKeys);
}

real64 KFCurve::KeyFind(KTime Time, int32 *Hint)
{
    int32 Count = mKeys.Count;
    if (Count == 0) {
        return -1.0;
    }
    if (Time < mKeys[0].Time) {
        return -0.5;
    }
    if (Time > mKeys[Count - 1].Time) {
        return (real64)(Count - 1) + 0.5;
    }
    int32 Index = Hint ? *Hint : mLastSearchIndex;
    if (Index < 0) {
        Index = 0;
    }
    if (Index > Count - 1) {
        Index = Count - 1;
    }
    while (Index > 0 && mKeys[Index].Time > Time) {
        --Index;
    }
    while (Index < Count - 1 && mKeys[Index + 1].Time <= Time) {
        ++Index;
    }
    if (Hint) {
        *Hint = Index;
    }
    mLastSearchIndex = Index;
    if (Index == Count - 1 || mKeys[Index].Time == Time) {
        return (real64)Index;
    }
    real64 Fraction = Seconds(mKeys[Index].Time, Time) / Seconds(mKeys[Index].Time, mKeys[Index + 1].Time);
    return (real64)Index + Fraction;
}

bool KFCurve::IsFlatForClamp(int32 Index) const
{
    KFCurveKey const &Key = mKeys[Index];
    if ((Key.Flags & (FbxKey_ClampFlat | FbxKey_TangentAuto)) != (FbxKey_ClampFlat | FbxKey_TangentAuto)) {
        return false;
    }
    if (!(Key.Flags & FbxKey_TangentBreak) && Index > 0) {
        KFCurveKey const &Previous = mKeys[Index - 1];
        if (Previous.GetInterpolation() == FbxKey_Cubic && std::fabs(Previous.Value - Key.Value) <= 0.0001f) {
            return true;
        }
    }
    if (Index + 1 < mKeys.Count && std::fabs(mKeys[Index + 1].Value - Key.Value) <= 0.0001f) {
        return true;
    }
    return false;
}

static bool IsTCB(KFCurveKey const &Key)
{
    return Key.GetInterpolation() == FbxKey_Cubic && (Key.Flags & FbxKey_TangentMask) == FbxKey_TangentTCB;
}

static bool IsAutomatic(KFCurveKey const &Key)
{
    uint32 Tangent = Key.Flags & FbxKey_TangentMask;
    return Tangent == FbxKey_TangentAuto || Tangent == FbxKey_TangentAutoBreak || Tangent == 0;
}

real32 KFCurve::EvaluateRightDerivative(int32 Index)
{
    int32 Count = mKeys.Count;
    if (Index < 0 || Index >= Count || Count < 2) {
        return 0.0f;
    }
    if (Index == Count - 1) {
        return EvaluateLeftDerivative(Index);
    }
    KFCurveKey const &Key = mKeys[Index];
    KFCurveKey const &Next = mKeys[Index + 1];
    real64 Span = Seconds(Key.Time, Next.Time);
    switch (Key.GetInterpolation()) {
    case FbxKey_Constant: return 0.0f;
    case FbxKey_Linear: return (Span > 0.0) ? (real32)((Next.Value - Key.Value) / Span) : 0.0f;
    case FbxKey_Cubic: break;
    default: return 0.0f;
    }
    if (IsTCB(Key)) {
        real64 T = Key.Data[0].Float, C = Key.Data[1].Float, B = Key.Data[2].Float;
        real64 S1 = (Span > 0.0) ? (Next.Value - Key.Value) / Span : 0.0;
        if (Index == 0) {
            return (real32)((1.0 - T) * (1.0 - C) * S1);
        }
        KFCurveKey const &Previous = mKeys[Index - 1];
        real64 PreviousSpan = Seconds(Previous.Time, Key.Time);
        real64 S0 = (PreviousSpan > 0.0) ? (Key.Value - Previous.Value) / PreviousSpan : 0.0;
        return (real32)((1.0 - T) * (1.0 + C) * (1.0 + B) * S0 / 2.0 + (1.0 - T) * (1.0 - C) * (1.0 - B) * S1 / 2.0);
    }
    if (IsAutomatic(Key) && IsFlatForClamp(Index)) {
        return 0.0f;
    }
    return Key.GetRightSlope();
}

real32 KFCurve::EvaluateLeftDerivative(int32 Index)
{
    int32 Count = mKeys.Count;
    if (Index < 0 || Index >= Count || Count < 2) {
        return 0.0f;
    }
    if (Index == 0) {
        return EvaluateRightDerivative(0);
    }
    KFCurveKey const &Key = mKeys[Index];
    KFCurveKey const &Previous = mKeys[Index - 1];
    real64 Span = Seconds(Previous.Time, Key.Time);
    switch (Previous.GetInterpolation()) {
    case FbxKey_Constant: return 0.0f;
    case FbxKey_Linear: return (Span > 0.0) ? (real32)((Key.Value - Previous.Value) / Span) : 0.0f;
    case FbxKey_Cubic: break;
    default: return 0.0f;
    }
    if (IsTCB(Key)) {
        real64 T = Key.Data[0].Float, C = Key.Data[1].Float, B = Key.Data[2].Float;
        real64 S0 = (Span > 0.0) ? (Key.Value - Previous.Value) / Span : 0.0;
        if (Index == Count - 1) {
            return (real32)((1.0 - T) * (1.0 - C) * S0);
        }
        KFCurveKey const &Next = mKeys[Index + 1];
        real64 NextSpan = Seconds(Key.Time, Next.Time);
        real64 S1 = (NextSpan > 0.0) ? (Next.Value - Key.Value) / NextSpan : 0.0;
        return (real32)((1.0 - T) * (1.0 - C) * (1.0 + B) * S0 / 2.0 + (1.0 - T) * (1.0 + C) * (1.0 - B) * S1 / 2.0);
    }
    if (IsTCB(Previous)) {
        // A TCB key followed by a non-TCB key: the segment's slope.
        return (Span > 0.0) ? (real32)((Key.Value - Previous.Value) / Span) : 0.0f;
    }
    if (Key.GetInterpolation() == FbxKey_Cubic && IsAutomatic(Key) && IsFlatForClamp(Index)) {
        return 0.0f;
    }
    return Previous.GetNextLeftSlope();
}

static real32 Lerp32(real32 A, real32 B, real32 T)
{
    return A + (B - A) * T;
}

static real64 Bezier(real64 P0, real64 P1, real64 P2, real64 P3, real64 U)
{
    real64 V = 1.0 - U;
    return V * V * V * P0 + 3.0 * V * V * U * P1 + 3.0 * V * U * U * P2 + U * U * U * P3;
}

real32 KFCurve::Interpolate(int32 Index, real64 Fraction)
{
    int32 Count = mKeys.Count;
    if (Count == 0) {
        return mDefaultValue;
    }
    if (Count == 1 || Fraction == 0.0 || Index >= Count - 1) {
        return mKeys[Index < Count ? Index : Count - 1].Value;
    }
    KFCurveKey const &Key = mKeys[Index];
    KFCurveKey const &Next = mKeys[Index + 1];
    switch (Key.GetInterpolation()) {
    case FbxKey_Constant: return (Key.Flags & FbxKey_ConstantNext) ? Next.Value : Key.Value;
    case FbxKey_Linear: return (real32)(Key.Value + Fraction * (Next.Value - Key.Value));
    case FbxKey_Cubic: break;
    default: return 0.0f;
    }
    real64 Span = Seconds(Key.Time, Next.Time);
    real64 D0 = EvaluateRightDerivative(Index);
    real64 D1 = EvaluateLeftDerivative(Index + 1);
    if (!(Key.Flags & FbxKey_WeightedMask)) {
        real32 P0 = Key.Value;
        real32 P1 = (real32)(Key.Value + D0 * Span / 3.0);
        real32 P2 = (real32)(Next.Value - D1 * Span / 3.0);
        real32 P3 = Next.Value;
        real32 U = (real32)Fraction;
        real32 A = Lerp32(P0, P1, U), B = Lerp32(P1, P2, U), C = Lerp32(P2, P3, U);
        real32 AB = Lerp32(A, B, U), BC = Lerp32(B, C, U);
        return Lerp32(AB, BC, U);
    }
    real64 W0 = (Key.Flags & FbxKey_WeightedRight) ? Key.GetRightWeight() : 1.0 / 3.0;
    real64 W1 = (Key.Flags & FbxKey_WeightedNextLeft) ? Key.GetNextLeftWeight() : 1.0 / 3.0;
    // Find the parameter at which the time curve reaches the fraction, by
    // secants from the interval [0, 1].
    real64 U0 = 0.0, U1 = 1.0;
    real64 F0 = Bezier(0.0, W0, 1.0 - W1, 1.0, U0) - Fraction;
    real64 F1 = Bezier(0.0, W0, 1.0 - W1, 1.0, U1) - Fraction;
    real64 U = Fraction;
    for (int32 Iteration = 0; Iteration < 64; ++Iteration) {
        if (F1 == F0) {
            break;
        }
        U = U1 - F1 * (U1 - U0) / (F1 - F0);
        if (U < 0.0) U = 0.0;
        if (U > 1.0) U = 1.0;
        real64 Change = std::fabs(U - U1);
        U0 = U1;
        F0 = F1;
        U1 = U;
        F1 = Bezier(0.0, W0, 1.0 - W1, 1.0, U1) - Fraction;
        if (Change < 0.000001) {
            break;
        }
    }
    return (real32)Bezier(Key.Value, Key.Value + D0 * Span * W0, Next.Value - D1 * Span * W1, Next.Value, U);
}

real64 KFCurve::LimitedDistance(real64 Distance, int32 Count, real64 SpanSeconds) const
{
    if (Count != -1) {
        real64 Limit = SpanSeconds * (real64)(Count < 0 ? 0 : Count);
        if (Distance > Limit) {
            Distance = Limit;
        }
    }
    return Distance;
}

real32 KFCurve::EvaluateNoCache(KTime Time, int32 *Hint)
{
    int32 Count = mKeys.Count;
    if (Count == 0) {
        return mDefaultValue;
    }
    if (Count == 1) {
        return mKeys[0].Value;
    }
    KTime First = mKeys[0].Time;
    KTime Last = mKeys[Count - 1].Time;
    int64 Span = Last.Get() - First.Get();
    real64 SpanSeconds = (real64)Span / TicksPerSecond;

    // A relative repetition lifts each cycle by what one cycle rises.
    real64 Rise = (real64)mKeys[Count - 1].Value - (real64)mKeys[0].Value;
    real64 Offset = 0.0;

    int64 T = Time.Get();
    if (T < First.Get()) {
        int32 Mode = mPreExtrapolationMode;
        int64 Repeat = mPreExtrapolationCount;
        if (Mode == FbxExtrapolation_KeepSlope) {
            real64 Distance = LimitedDistance(Seconds(Time, First), mPreExtrapolationCount, SpanSeconds);
            return (real32)(mKeys[0].Value - EvaluateRightDerivative(0) * Distance);
        }
        bool Relative = (Mode == FbxExtrapolation_RelativeRepetition);
        if (Mode != FbxExtrapolation_Repetition && Mode != FbxExtrapolation_MirrorRepetition && !Relative) {
            return mKeys[0].Value;
        }
        // Distances in unsigned ticks: any two times are at most 2^64 - 1 apart.
        uint64 Before = (uint64)First.Get() - (uint64)T;
        if (Span <= 0 || (Repeat != -1 && (uint64)(Repeat < 0 ? 0 : Repeat) <= Before / (uint64)Span)) {
            // Past the last repetition the value stays where that one ended.
            if (Relative && Span > 0) {
                return (real32)(mKeys[0].Value - (real64)(Repeat < 0 ? 0 : Repeat) * Rise);
            }
            if (Mode == FbxExtrapolation_MirrorRepetition && Span > 0 && Repeat % 2 == 1) {
                return mKeys[Count - 1].Value;
            }
            return mKeys[0].Value;
        }
        int64 N = (int64)(Before / (uint64)Span);
        int64 R = -(int64)(Before % (uint64)Span); // in (-Span, 0]
        if (Relative) {
            Offset = -(real64)(N + (R < 0 ? 1 : 0)) * Rise;
            T = Last.Get() + R;
        } else if (Mode == FbxExtrapolation_Repetition) {
            T = Last.Get() + R;
        } else {
            T = (N % 2 == 0) ? First.Get() - R : Last.Get() + R;
        }
    } else if (T > Last.Get()) {
        int32 Mode = mPostExtrapolationMode;
        int64 Repeat = mPostExtrapolationCount;
        if (Mode == FbxExtrapolation_KeepSlope) {
            real64 Distance = LimitedDistance(Seconds(Last, Time), mPostExtrapolationCount, SpanSeconds);
            return (real32)(mKeys[Count - 1].Value + EvaluateLeftDerivative(Count - 1) * Distance);
        }
        bool Relative = (Mode == FbxExtrapolation_RelativeRepetition);
        if (Mode != FbxExtrapolation_Repetition && Mode != FbxExtrapolation_MirrorRepetition && !Relative) {
            return mKeys[Count - 1].Value;
        }
        uint64 After = (uint64)T - (uint64)Last.Get();
        if (Span <= 0 || (Repeat != -1 && (uint64)(Repeat < 0 ? 0 : Repeat) <= After / (uint64)Span)) {
            if (Relative && Span > 0) {
                return (real32)(mKeys[Count - 1].Value + (real64)(Repeat < 0 ? 0 : Repeat) * Rise);
            }
            if (Mode == FbxExtrapolation_MirrorRepetition && Span > 0 && Repeat % 2 == 1) {
                return mKeys[0].Value;
            }
            return mKeys[Count - 1].Value;
        }
        uint64 FromFirst = (uint64)T - (uint64)First.Get();
        int64 N = (int64)(FromFirst / (uint64)Span);
        int64 R = (int64)(FromFirst % (uint64)Span);
        if (Relative) {
            Offset = (real64)N * Rise;
            T = First.Get() + R;
        } else if (Mode == FbxExtrapolation_Repetition) {
            T = First.Get() + R;
        } else {
            T = (N % 2 == 1) ? Last.Get() - R : First.Get() + R;
        }
    }

    real64 Position = KeyFind(KTime(T), Hint);
    real32 Value;
    if (Position < 0.0) {
        Value = mKeys[0].Value;
    } else if ((int32)Position >= Count - 1) {
        Value = mKeys[Count - 1].Value;
    } else {
        int32 Index = (int32)Position;
        Value = Interpolate(Index, Position - (real64)Index);
    }
    return (Offset == 0.0) ? Value : (real32)((real64)Value + Offset);
}

real32 KFCurve::Evaluate(KTime Time, int32 *Hint)
{
    if (mCacheValid && mLastTime == Time) {
        return mLastValue;
    }
    mLastValue = EvaluateNoCache(Time, Hint);
    mLastTime = Time;
    mCacheValid = true;
    return mLastValue;
}

// ---------------------------------------------------------------------------
// Curve nodes.

KFCurveNode::KFCurveNode(char const *Name)
    : mName(FbxCopyString(Name)), mCurve(nullptr), mType(FbxCurveNodeType_Additive), mLayer(nullptr),
      mLayerWeight(1.0), mWeightCurve(nullptr), mQuaternion(false), mRotationOrder(FbxRotationOrder_XYZ)
{}

KFCurveNode::~KFCurveNode()
{
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        FbxDelete(mChildren[Index]);
    }
    FbxDelete(mCurve);
    FbxDelete(mWeightCurve);
    FbxDelete(mLayer);
    TesselFree(mName);
}

bool KFCurveNode::IsNamed(char const *Name) const
{
    return StringsAreExactlyEqual(mName, Name);
}

KFCurve *KFCurveNode::WeightCurveCreate()
{
    if (!mWeightCurve) {
        mWeightCurve = FbxNew(KFCurve);
    }
    return mWeightCurve;
}

KFCurve *KFCurveNode::FCurveCreate()
{
    if (!mCurve) {
        mCurve = FbxNew(KFCurve);
    }
    return mCurve;
}

KFCurveNode *KFCurveNode::Get(int32 Index) const
{
    return (Index >= 0 && Index < mChildren.Count) ? mChildren[Index] : nullptr;
}

KFCurveNode *KFCurveNode::Add(KFCurveNode *Child)
{
    if (!Child || !mChildren.Add(Child)) {
        FbxDelete(Child);
        return nullptr;
    }
    return Child;
}

KFCurveNode *KFCurveNode::FindChild(char const *Name) const
{
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        if (mChildren[Index]->IsNamed(Name)) {
            return mChildren[Index];
        }
    }
    return nullptr;
}

KFCurveNode *KFCurveNode::FindOrAddChild(char const *Name)
{
    KFCurveNode *Child = FindChild(Name);
    return Child ? Child : Add(FbxNew(KFCurveNode, Name));
}

void KFCurveNode::SetLayer(KFCurveNode *Layer)
{
    if (mLayer != Layer) {
        FbxDelete(mLayer);
    }
    mLayer = Layer;
}

int32 KFCurveNode::GetValueCount() const
{
    if (mChildren.Count == 0) {
        return 1;
    }
    int32 Count = mCurve ? 1 : 0;
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        Count += mChildren[Index]->GetValueCount();
    }
    return Count;
}

bool KFCurveNode::HasCurves() const
{
    if (mCurve) {
        return true;
    }
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        if (mChildren[Index]->HasCurves()) {
            return true;
        }
    }
    return mLayer && mLayer->HasCurves();
}

KFCurve *KFCurveNode::FirstKeyedCurve() const
{
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        KFCurve *Curve = mChildren[Index]->mCurve;
        if (Curve && Curve->KeyGetCount() > 0) {
            return Curve;
        }
    }
    return nullptr;
}

real64 *KFCurveNode::EvaluateOwn(real64 *Values, KTime Time, int32 *Hint)
{
    if (mChildren.Count == 0) {
        if (mCurve) {
            *Values = mCurve->Evaluate(Time, Hint);
        }
        return Values + 1;
    }
    if (mCurve) {
        *Values++ = mCurve->Evaluate(Time, Hint);
    }
    if (mQuaternion && mChildren.Count == 3 && EvaluateQuaternion(Values, Time)) {
        return Values + 3;
    }
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        Values = mChildren[Index]->Evaluate(Values, Time, nullptr);
    }
    return Values;
}

bool KFCurveNode::EvaluateQuaternion(real64 *Values, KTime Time)
{
    KFCurve *Keyed = FirstKeyedCurve();
    if (!Keyed) {
        return false;
    }
    real64 Position = Keyed->KeyFind(Time, nullptr);
    int32 Index = (int32)Position;
    if (Position < 0.0 || Index >= Keyed->KeyGetCount() - 1) {
        return false;
    }
    real64 Fraction = Position - (real64)Index;
    KTime Times[2] = {Keyed->KeyGetTime(Index), Keyed->KeyGetTime(Index + 1)};
    KFbxQuaternion Ends[2];
    for (int32 End = 0; End < 2; ++End) {
        KFbxVector4 Angles(Values[0], Values[1], Values[2]);
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            mChildren[Axis]->Evaluate(&Angles[Axis], Times[End], nullptr);
        }
        Ends[End] = MatrixToQuaternion(EulerToMatrix(Angles, mRotationOrder));
    }
    KFbxQuaternion Q = QuaternionSlerp(Ends[0], Ends[1], Fraction);
    KFbxVector4 Angles = MatrixToEuler(QuaternionToMatrix(Q), mRotationOrder);
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Values[Axis] = Angles[Axis];
    }
    return true;
}

real64 *KFCurveNode::Evaluate(real64 *Values, KTime Time, int32 *Hint)
{
    real64 *End = EvaluateOwn(Values, Time, Hint);
    int32 Count = (int32)(End - Values);
    // Each layer of the chain combines with everything below it.
    for (KFCurveNode *Layer = mLayer; Layer && Count <= 16; Layer = Layer->mLayer) {
        real64 Scratch[16];
        real64 Neutral = (Layer->mType == FbxCurveNodeType_Multiply) ? 1.0 : 0.0;
        for (int32 Index = 0; Index < Count; ++Index) {
            Scratch[Index] = (Layer->mType == FbxCurveNodeType_Override) ? Values[Index] : Neutral;
        }
        Layer->EvaluateOwn(Scratch, Time, nullptr);
        real64 Weight = Layer->mWeightCurve ? Layer->mWeightCurve->EvaluateNoCache(Time) / 100.0 : Layer->mLayerWeight;
        if (Weight != 1.0) {
            // A partial layer: its values part of the way from what it
            // leaves unchanged (the neutral value, or what lies beneath).
            if (Layer->mType == FbxCurveNodeType_RotationCompose && Count == 3) {
                KFbxQuaternion Full = MatrixToQuaternion(
                    EulerToMatrix(KFbxVector4(Scratch[0], Scratch[1], Scratch[2]), mRotationOrder));
                KFbxQuaternion Part = QuaternionSlerp(KFbxQuaternion(0.0, 0.0, 0.0, 1.0), Full, Weight);
                KFbxVector4 Angles = MatrixToEuler(QuaternionToMatrix(Part), mRotationOrder);
                for (int32 Index = 0; Index < 3; ++Index) Scratch[Index] = Angles[Index];
            } else {
                for (int32 Index = 0; Index < Count; ++Index) {
                    real64 From = (Layer->mType == FbxCurveNodeType_Override) ? Values[Index] : Neutral;
                    Scratch[Index] = From + (Scratch[Index] - From) * Weight;
                }
            }
        }
        switch (Layer->mType) {
        case FbxCurveNodeType_Multiply:
            for (int32 Index = 0; Index < Count; ++Index) Values[Index] *= Scratch[Index];
            break;
        case FbxCurveNodeType_Override:
            for (int32 Index = 0; Index < Count; ++Index) Values[Index] = Scratch[Index];
            break;
        case FbxCurveNodeType_RotationCompose:
            if (Count == 3) {
                // The layer's rotation turns after the one beneath it.
                AffineMatrix Below = EulerToMatrix(KFbxVector4(Values[0], Values[1], Values[2]), mRotationOrder);
                AffineMatrix Above = EulerToMatrix(KFbxVector4(Scratch[0], Scratch[1], Scratch[2]), mRotationOrder);
                KFbxVector4 Angles = MatrixToEuler(Above * Below, mRotationOrder);
                for (int32 Index = 0; Index < 3; ++Index) Values[Index] = Angles[Index];
                break;
            }
            // fall through: anything but three angles adds
        default:
            for (int32 Index = 0; Index < Count; ++Index) Values[Index] += Scratch[Index];
            break;
        }
    }
    return End;
}

KFCurveNode *KFCurveNode::Clone() const
{
    KFCurveNode *Copy = FbxNew(KFCurveNode, mName);
    if (!Copy) {
        return nullptr;
    }
    Copy->mType = mType;
    Copy->mQuaternion = mQuaternion;
    Copy->mRotationOrder = mRotationOrder;
    Copy->mLayerWeight = mLayerWeight;
    if (mWeightCurve) {
        KFCurve *Curve = Copy->WeightCurveCreate();
        if (Curve) {
            Curve->CopyFrom(*mWeightCurve);
        }
    }
    if (mCurve) {
        KFCurve *Curve = Copy->FCurveCreate();
        if (Curve) {
            Curve->CopyFrom(*mCurve);
        }
    }
    for (int32 Index = 0; Index < mChildren.Count; ++Index) {
        Copy->Add(mChildren[Index]->Clone());
    }
    if (mLayer) {
        Copy->SetLayer(mLayer->Clone());
    }
    return Copy;
}
