// Curve evaluation: key search, constant, linear, cubic (weighted and not)
// and TCB keys, the flat clamp of automatic tangents, extrapolation with its
// guards, and curve node trees with layers. Expectations come from the
// Hermite form and from plain arithmetic, not from the curve code.
#include <gtest/gtest.h>

#include <cmath>

#include "fbx/fbx_tessel_curve.h"

namespace {

KTime Seconds(double Value)
{
    return KTime((int64)std::llround(Value * (double)KTime::TicksPerSecond));
}

KFCurveKey Key(double Time, float Value, uint32 Flags, float RightSlope = 0.0f, float NextLeftSlope = 0.0f)
{
    KFCurveKey Result = MakeCurveKey(Seconds(Time), Value, Flags);
    Result.Data[0].Float = RightSlope;
    Result.Data[1].Float = NextLeftSlope;
    return Result;
}

double Hermite(double V0, double V1, double D0, double D1, double Span, double F)
{
    double F2 = F * F, F3 = F2 * F;
    return (2 * F3 - 3 * F2 + 1) * V0 + (F3 - 2 * F2 + F) * Span * D0 + (-2 * F3 + 3 * F2) * V1 + (F3 - F2) * Span * D1;
}

// Two linear keys, 0 at 1 s and 2 at 3 s.
void MakeRamp(KFCurve &Curve)
{
    Curve.KeyAppend(Key(1.0, 0.0f, FbxKey_Linear));
    Curve.KeyAppend(Key(3.0, 2.0f, FbxKey_Linear));
}

} // namespace

TEST(Curves, KeySearchAndInterpolationKinds)
{
    KFCurve Empty;
    Empty.SetValue(4.5f);
    EXPECT_EQ(Empty.KeyFind(Seconds(1.0)), -1.0);
    EXPECT_EQ(Empty.Evaluate(Seconds(1.0)), 4.5f);

    KFCurve Curve;
    Curve.KeyAppend(Key(0.0, 1.0f, FbxKey_Constant));
    Curve.KeyAppend(Key(1.0, 3.0f, FbxKey_Constant | FbxKey_ConstantNext));
    Curve.KeyAppend(Key(2.0, 5.0f, FbxKey_Linear));
    Curve.KeyAppend(Key(4.0, 9.0f, FbxKey_Cubic | FbxKey_TangentUser, 6.0f, -2.0f));
    Curve.KeyAppend(Key(6.0, 1.0f, FbxKey_Linear));
    EXPECT_FALSE(Curve.KeyAppend(Key(6.0, 7.0f, FbxKey_Linear))) << "a key at the same time is dropped";
    ASSERT_EQ(Curve.KeyGetCount(), 5);

    int32 Hint = 4;
    EXPECT_EQ(Curve.KeyFind(Seconds(2.0), &Hint), 2.0);
    EXPECT_EQ(Hint, 2);
    EXPECT_NEAR(Curve.KeyFind(Seconds(3.0), &Hint), 2.5, 1e-12);
    EXPECT_EQ(Curve.KeyFind(Seconds(-1.0)), -0.5);
    EXPECT_EQ(Curve.KeyFind(Seconds(7.0)), 4.5);

    EXPECT_EQ(Curve.Evaluate(Seconds(0.5)), 1.0f);         // constant holds the key
    EXPECT_EQ(Curve.Evaluate(Seconds(1.5)), 5.0f);         // constant taking the next key
    EXPECT_NEAR(Curve.Evaluate(Seconds(2.5)), 6.0f, 1e-6); // linear
    for (double F : {0.1, 0.25, 0.5, 0.8})
        EXPECT_NEAR(Curve.Evaluate(Seconds(4.0 + 2.0 * F)), Hermite(9.0, 1.0, 6.0, -2.0, 2.0, F), 2e-5) << F;
    EXPECT_EQ(Curve.Evaluate(Seconds(6.0)), 1.0f) << "the last key's own time";
    EXPECT_NEAR(Curve.EvaluateRightDerivative(2), 2.0f, 1e-6);
    EXPECT_EQ(Curve.EvaluateLeftDerivative(2), 0.0f) << "after a constant key";
    EXPECT_NEAR(Curve.EvaluateLeftDerivative(4), -2.0f, 1e-6);
    // The cache answers the same value for the same time.
    EXPECT_EQ(Curve.Evaluate(Seconds(4.4)), Curve.EvaluateNoCache(Seconds(4.4)));
}

TEST(Curves, WeightedTangentsTCBAndFlatClamp)
{
    // Weights of a third on both sides give the unweighted curve.
    KFCurve Plain, Third, Heavy;
    Plain.KeyAppend(Key(0.0, 0.0f, FbxKey_Cubic | FbxKey_TangentUser, 3.0f, 1.0f));
    Plain.KeyAppend(Key(1.0, 1.0f, FbxKey_Linear));
    KFCurveKey Weighted = Key(0.0, 0.0f, FbxKey_Cubic | FbxKey_TangentUser | FbxKey_WeightedMask, 3.0f, 1.0f);
    Weighted.SetWeights(3333, 3333);
    Third.KeyAppend(Weighted);
    Third.KeyAppend(Key(1.0, 1.0f, FbxKey_Linear));
    Weighted.SetWeights(6000, 1000);
    Heavy.KeyAppend(Weighted);
    Heavy.KeyAppend(Key(1.0, 1.0f, FbxKey_Linear));
    for (double F = 0.05; F < 1.0; F += 0.1) {
        EXPECT_NEAR(Third.Evaluate(Seconds(F)), Plain.Evaluate(Seconds(F)), 2e-4) << F;
        // Heavy weights: find the curve parameter by bisection on the time axis.
        double W0 = 6000 / 9999.0, W1 = 1000 / 9999.0, Low = 0.0, High = 1.0;
        auto Bezier = [](double A, double B, double C, double D, double U) {
            double V = 1.0 - U;
            return V * V * V * A + 3 * V * V * U * B + 3 * V * U * U * C + U * U * U * D;
        };
        for (int Step = 0; Step < 60; ++Step) {
            double Middle = 0.5 * (Low + High);
            (Bezier(0.0, W0, 1.0 - W1, 1.0, Middle) < F ? Low : High) = Middle;
        }
        EXPECT_NEAR(Heavy.Evaluate(Seconds(F)), Bezier(0.0, 3.0 * W0, 1.0 - 1.0 * W1, 1.0, Low), 1e-4) << F;
    }

    // TCB with zero parameters: the middle key's slope averages its two
    // neighbouring slopes; the first key takes the whole next slope.
    KFCurve Tcb;
    uint32 TcbFlags = FbxKey_Cubic | FbxKey_TangentTCB;
    Tcb.KeyAppend(Key(0.0, 0.0f, TcbFlags));
    Tcb.KeyAppend(Key(1.0, 2.0f, TcbFlags));
    Tcb.KeyAppend(Key(3.0, 0.0f, TcbFlags));
    EXPECT_NEAR(Tcb.EvaluateRightDerivative(0), 2.0f, 1e-6);
    EXPECT_NEAR(Tcb.EvaluateRightDerivative(1), 0.5f, 1e-6);
    EXPECT_NEAR(Tcb.EvaluateLeftDerivative(1), 0.5f, 1e-6);
    KFCurveKey Tense = Key(1.0, 2.0f, TcbFlags);
    Tense.Data[0].Float = 1.0f; // full tension: flat
    KFCurve TenseCurve;
    TenseCurve.KeyAppend(Key(0.0, 0.0f, TcbFlags));
    TenseCurve.KeyAppend(Tense);
    TenseCurve.KeyAppend(Key(3.0, 0.0f, TcbFlags));
    EXPECT_EQ(TenseCurve.EvaluateRightDerivative(1), 0.0f);

    // Automatic tangents clamp flat next to a key of the same value.
    KFCurve Clamped;
    uint32 Auto = FbxKey_Cubic | FbxKey_TangentAuto | FbxKey_ClampFlat;
    Clamped.KeyAppend(Key(0.0, 1.0f, Auto, 4.0f, 4.0f));
    Clamped.KeyAppend(Key(1.0, 1.00005f, Auto, 4.0f, 4.0f));
    Clamped.KeyAppend(Key(2.0, 3.0f, Auto, 4.0f, 4.0f));
    EXPECT_EQ(Clamped.EvaluateRightDerivative(0), 0.0f);
    EXPECT_EQ(Clamped.EvaluateRightDerivative(1), 0.0f) << "the previous cubic key counts";
    KFCurve Unclamped;
    Unclamped.KeyAppend(Key(0.0, 1.0f, FbxKey_Cubic | FbxKey_TangentAuto, 4.0f, 4.0f));
    Unclamped.KeyAppend(Key(1.0, 1.00005f, FbxKey_Linear));
    EXPECT_EQ(Unclamped.EvaluateRightDerivative(0), 4.0f);
}

TEST(Curves, ExtrapolationModesCountsAndGuards)
{
    struct expectation
    {
        int32 Mode, Count;
        double Time;
        float Value;
    };
    // Ramp: 0 at 1 s to 2 at 3 s, slope 1 per second, span 2 s.
    expectation const After[] = {
        {FbxExtrapolation_Constant, -1, 3.5, 2.0f},         {FbxExtrapolation_Repetition, -1, 3.5, 0.5f},
        {FbxExtrapolation_Repetition, -1, 10.0, 1.0f},      {FbxExtrapolation_MirrorRepetition, -1, 3.5, 1.5f},
        {FbxExtrapolation_MirrorRepetition, -1, 5.5, 0.5f}, {FbxExtrapolation_KeepSlope, -1, 4.0, 3.0f},
        {FbxExtrapolation_KeepSlope, 1, 9.0, 4.0f},         {FbxExtrapolation_Repetition, 0, 3.5, 2.0f},
        {FbxExtrapolation_Repetition, 1, 4.0, 1.0f},        {FbxExtrapolation_Repetition, 1, 5.5, 2.0f},
        {FbxExtrapolation_MirrorRepetition, 1, 6.0, 0.0f},  {FbxExtrapolation_MirrorRepetition, 2, 8.0, 2.0f},
        {FbxExtrapolation_RelativeRepetition, -1, 5.5, 4.5f}, {FbxExtrapolation_RelativeRepetition, 1, 9.0, 4.0f},
    };
    for (expectation const &E : After) {
        KFCurve Curve;
        MakeRamp(Curve);
        Curve.SetPostExtrapolation(E.Mode, E.Count);
        EXPECT_NEAR(Curve.Evaluate(Seconds(E.Time)), E.Value, 1e-5)
            << "after, mode " << E.Mode << " count " << E.Count << " at " << E.Time;
    }
    expectation const Before[] = {
        {FbxExtrapolation_Constant, -1, 0.0, 0.0f},         {FbxExtrapolation_Repetition, -1, 0.5, 1.5f},
        {FbxExtrapolation_MirrorRepetition, -1, 0.5, 0.5f}, {FbxExtrapolation_MirrorRepetition, -1, -1.5, 1.5f},
        {FbxExtrapolation_KeepSlope, -1, -1.0, -2.0f},      {FbxExtrapolation_Repetition, 0, 0.5, 0.0f},
        {FbxExtrapolation_MirrorRepetition, 1, -2.0, 2.0f}, {FbxExtrapolation_RelativeRepetition, -1, -2.5, -3.5f},
        {FbxExtrapolation_RelativeRepetition, 1, -6.0, -2.0f},
    };
    for (expectation const &E : Before) {
        KFCurve Curve;
        MakeRamp(Curve);
        Curve.SetPreExtrapolation(E.Mode, E.Count);
        EXPECT_NEAR(Curve.Evaluate(Seconds(E.Time)), E.Value, 1e-5) << "before, mode " << E.Mode << " at " << E.Time;
    }
    // One key is constant in every mode (no zero span to divide by).
    for (int32 Mode = 0; Mode <= FbxExtrapolation_RelativeRepetition; ++Mode) {
        KFCurve Single;
        Single.KeyAppend(Key(1.0, 7.0f, FbxKey_Cubic | FbxKey_TangentUser, 5.0f, 5.0f));
        Single.SetPreExtrapolation(Mode, -1);
        Single.SetPostExtrapolation(Mode, -1);
        EXPECT_EQ(Single.Evaluate(Seconds(-3.0)), 7.0f);
        EXPECT_EQ(Single.Evaluate(Seconds(9.0)), 7.0f);
    }
}

TEST(Curves, CurveNodesWithLayers)
{
    auto MakeVector = [](char const *Name, float X, float Y, bool WithZ) {
        KFCurveNode *Node = FbxNew(KFCurveNode, Name);
        char const *Axes[3] = {"X", "Y", "Z"};
        float Values[3] = {X, Y, 0.0f};
        for (int Axis = 0; Axis < 3; ++Axis) {
            KFCurveNode *Child = Node->Add(FbxNew(KFCurveNode, Axes[Axis]));
            if (Axis < 2 || WithZ) Child->FCurveCreate()->KeyAppend(Key(0.0, Values[Axis], FbxKey_Linear));
        }
        return Node;
    };
    real64 Values[3] = {10.0, 20.0, 30.0};
    KFCurveNode *Base = MakeVector("T", 1.0f, 2.0f, false);
    EXPECT_EQ(Base->Evaluate(Values, KTime()), Values + 3);
    EXPECT_EQ(Values[0], 1.0);
    EXPECT_EQ(Values[2], 30.0) << "a component without a curve keeps the caller's value";

    KFCurveNode *Additive = MakeVector("T", 0.5f, 0.25f, true);
    Base->SetLayer(Additive);
    KFCurveNode *Multiply = MakeVector("T", 2.0f, 3.0f, false);
    Multiply->SetType(FbxCurveNodeType_Multiply);
    Additive->SetLayer(Multiply);
    Values[2] = 30.0;
    Base->Evaluate(Values, KTime());
    EXPECT_EQ(Values[0], 3.0);  // (1 + 0.5) * 2
    EXPECT_EQ(Values[1], 6.75); // (2 + 0.25) * 3
    EXPECT_EQ(Values[2], 30.0); // + 0, * 1

    // Rotation layers compose as rotations: two quarter turns about Z make a
    // half turn, whatever the Euler angles say.
    KFCurveNode *Rotation = MakeVector("R", 0.0f, 0.0f, true);
    Rotation->Get(2)->FCurveGet()->KeyGet(0).Value = 90.0f;
    KFCurveNode *Turn = MakeVector("R", 0.0f, 0.0f, true);
    Turn->Get(2)->FCurveGet()->KeyGet(0).Value = 90.0f;
    Turn->SetType(FbxCurveNodeType_RotationCompose);
    Rotation->SetLayer(Turn);
    real64 Angles[3] = {0, 0, 0};
    Rotation->Evaluate(Angles, KTime());
    AffineMatrix Result = EulerToMatrix(KFbxVector4(Angles[0], Angles[1], Angles[2]));
    EXPECT_NEAR(Result.mData[0][0], -1.0, 1e-9);
    EXPECT_NEAR(Result.mData[1][1], -1.0, 1e-9);
    EXPECT_NEAR(Result.mData[2][2], 1.0, 1e-9);

    KFCurveNode *Copy = Base->Clone();
    real64 Again[3] = {0, 0, 30.0};
    Copy->Evaluate(Again, KTime());
    EXPECT_EQ(Again[1], 6.75);
    FbxDelete(Copy);
    FbxDelete(Base);
    FbxDelete(Rotation);
}

TEST(Curves, QuaternionRotationNodesTurnTheShortWay)
{
    // From 0 to 350 degrees about Z: Euler interpolation sweeps 175 degrees
    // at the middle, a quaternion turns -5 degrees.
    KFCurveNode *Rotation = FbxNew(KFCurveNode, "R");
    char const *Axes[3] = {"X", "Y", "Z"};
    for (int Axis = 0; Axis < 3; ++Axis) {
        KFCurve *Curve = Rotation->Add(FbxNew(KFCurveNode, Axes[Axis]))->FCurveCreate();
        Curve->KeyAppend(Key(0.0, 0.0f, FbxKey_Linear));
        Curve->KeyAppend(Key(1.0, Axis == 2 ? 350.0f : 0.0f, FbxKey_Linear));
    }
    real64 Angles[3] = {0, 0, 0};
    Rotation->Evaluate(Angles, Seconds(0.5));
    EXPECT_NEAR(Angles[2], 175.0, 1e-4);
    Rotation->SetQuaternion(true);
    Rotation->Evaluate(Angles, Seconds(0.5));
    EXPECT_NEAR(Angles[2], -5.0, 1e-6);
    EXPECT_NEAR(Angles[0], 0.0, 1e-9);
    FbxDelete(Rotation);
}
