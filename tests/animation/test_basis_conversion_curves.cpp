// Curves through a change of basis: whatever the format, evaluating the
// converted curve gives the converted values of the original, by moving
// samples for signed permutations and by refitting controls otherwise.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "animation/tessel_basis_conversion.h"
#include "animation/tessel_curve.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_transform.h"
#include "support/test_log_capture.h"

namespace {

curve2 *MakeCurve(data_type_definition *Type, int32 Degree, int32 Dimension, std::vector<real32> const &Knots,
                  std::vector<real32> const &Controls)
{
    curve_builder Builder;
    BeginCurveInPlace(Builder, Type, Degree, Dimension, (int32)Knots.size());
    PushCurveKnotArray(Builder, Knots.data());
    PushCurveControlArray(Builder, Controls.data());
    return EndCurve(&Builder);
}

struct basis
{
    char const *Name;
    real32 Linear[9];
    bool Refit;
};

void Invert(real32 const *M, real32 *Result)
{
    double const Det =
        M[0] * (M[4] * M[8] - M[5] * M[7]) - M[1] * (M[3] * M[8] - M[5] * M[6]) + M[2] * (M[3] * M[7] - M[4] * M[6]);
    double const I[9] = {(M[4] * M[8] - M[5] * M[7]),  -(M[1] * M[8] - M[2] * M[7]), (M[1] * M[5] - M[2] * M[4]),
                         -(M[3] * M[8] - M[5] * M[6]), (M[0] * M[8] - M[2] * M[6]),  -(M[0] * M[5] - M[2] * M[3]),
                         (M[3] * M[7] - M[4] * M[6]),  -(M[0] * M[7] - M[1] * M[6]), (M[0] * M[4] - M[1] * M[3])};
    for (int K = 0; K < 9; ++K) Result[K] = (real32)(I[K] / Det);
}

std::vector<double> Product(real32 const *A, std::vector<double> const &B, real32 const *C)
{
    std::vector<double> AB(9, 0.0), Result(9, 0.0);
    for (int R = 0; R < 3; ++R)
        for (int K = 0; K < 3; ++K)
            for (int J = 0; J < 3; ++J) AB[R * 3 + J] += A[R * 3 + K] * B[K * 3 + J];
    for (int R = 0; R < 3; ++R)
        for (int K = 0; K < 3; ++K)
            for (int J = 0; J < 3; ++J) Result[R * 3 + J] += AB[R * 3 + K] * C[K * 3 + J];
    return Result;
}

// What the conversion must do to one value of a curve of Dimension.
std::vector<double> ConvertValue(std::vector<real32> const &Value, real32 const *Linear, real32 const *Inverse)
{
    std::vector<double> Result;
    if (Value.size() == 3) {
        for (int R = 0; R < 3; ++R)
            Result.push_back(Linear[R * 3] * Value[0] + Linear[R * 3 + 1] * Value[1] + Linear[R * 3 + 2] * Value[2]);
    } else if (Value.size() == 4) {
        double Length =
            std::sqrt(Value[0] * Value[0] + Value[1] * Value[1] + Value[2] * Value[2] + Value[3] * Value[3]);
        real32 Unit[4] = {(real32)(Value[0] / Length), (real32)(Value[1] / Length), (real32)(Value[2] / Length),
                          (real32)(Value[3] / Length)};
        real32 Rotation[9];
        QuaternionToMatrix3x3(Unit, Rotation);
        Result = Product(Linear, std::vector<double>(Rotation, Rotation + 9), Inverse); // a rotation matrix
    } else {
        Result = Product(Linear, std::vector<double>(Value.begin(), Value.end()), Inverse);
    }
    return Result;
}

std::vector<double> AsComparable(std::vector<real32> const &Value)
{
    if (Value.size() != 4) return std::vector<double>(Value.begin(), Value.end());
    double Length = std::sqrt(Value[0] * Value[0] + Value[1] * Value[1] + Value[2] * Value[2] + Value[3] * Value[3]);
    real32 Unit[4] = {(real32)(Value[0] / Length), (real32)(Value[1] / Length), (real32)(Value[2] / Length),
                      (real32)(Value[3] / Length)};
    real32 Rotation[9];
    QuaternionToMatrix3x3(Unit, Rotation);
    return std::vector<double>(Rotation, Rotation + 9);
}

} // namespace

TEST(BasisConversionCurves, EveryFormatFollowsTheConversion)
{
    real32 const C = std::cos(0.5f), S = std::sin(0.5f);
    basis const Bases[] = {
        {"identity", {1, 0, 0, 0, 1, 0, 0, 0, 1}, false},
        {"Y up to Z up", {1, 0, 0, 0, 0, -1, 0, 1, 0}, false},
        {"mirror z", {1, 0, 0, 0, 1, 0, 0, 0, -1}, false},
        {"centimetres to metres, Z up", {0.01f, 0, 0, 0, 0, -0.01f, 0, 0.01f, 0}, false},
        {"turn about y", {C, 0, S, 0, 1, 0, -S, 0, C}, true},
    };
    std::mt19937 Random(7);
    std::uniform_real_distribution<real32> Value(-1.0f, 1.0f);
    log_capture Quiet;
    int32 Checked = 0;
    for (int32 Format = 0; Format < CurveFormatCount; ++Format) {
        curve2 *Probe = MakeCurve(CurveFormatTypes[Format], 1, 3, {0.0f, 1.0f}, std::vector<real32>(6, 0.5f));
        for (int32 Dimension : {3, 4, 9}) {
            for (basis const &Basis : Bases) {
                SCOPED_TRACE(std::string("format ") + std::to_string(Format) + ", dimension " +
                             std::to_string(Dimension) + ", " + Basis.Name);
                std::vector<real32> Knots = {0.0f, 0.25f, 0.5f, 0.75f, 1.0f};
                std::vector<real32> Controls(Knots.size() * Dimension);
                for (size_t K = 0; K < Knots.size(); ++K) {
                    for (int32 D = 0; D < Dimension; ++D) Controls[K * Dimension + D] = Value(Random);
                    if (Dimension == 4) Controls[K * 4 + 3] = 2.0f; // well away from w = 0
                    if (Dimension == 9) Controls[K * 9] += 2.0f;
                }
                curve2 *Curve = MakeCurve(CurveFormatTypes[Format], 2, Dimension, Knots, Controls);
                if (!Curve || CurveGetDimension(*Curve) != Dimension || CurveIsIdentity(*Curve)) {
                    FreeCurve(Curve);
                    continue; // a format of another dimension, or one without data
                }
                // Formats that store fewer values than their dimension (a
                // uniform scale, a diagonal) can't hold a turned matrix.
                bool Reduced = Format >= CurveFormat_D9I1K16uC16u && Format <= CurveFormat_D3I1K8uC8u;
                if (Reduced && Basis.Refit) {
                    FreeCurve(Curve);
                    continue;
                }
                real32 Inverse[9];
                Invert(Basis.Linear, Inverse);
                EXPECT_EQ(NeedsRefit(Basis.Linear, Inverse, 0.001f, nullptr, nullptr), Basis.Refit);

                std::vector<std::vector<real32>> Before;
                for (int32 Step = 0; Step <= 20; ++Step) {
                    std::vector<real32> Sample(Dimension);
                    EvaluateCurve(Dimension, false, *Curve, 1.0f, Step / 20.0f, Sample.data(), nullptr);
                    Before.push_back(Sample);
                }
                real32 const Zero[3] = {0, 0, 0};
                if (Dimension == 3) TransformCurve3(Zero, Basis.Linear, 1.0f, 0.001f, *Curve);
                if (Dimension == 4) TransformCurve4(Zero, Basis.Linear, Inverse, 1.0f, 0.001f, *Curve);
                if (Dimension == 9) TransformCurve9(Zero, Basis.Linear, Inverse, 1.0f, 0.001f, *Curve);

                // Moving samples is exact; a refit requantises (one step of
                // an 8-bit format over a range of about 2 is below 0.02).
                double Tolerance = Basis.Refit ? 0.03 : 1e-5;
                for (int32 Step = 0; Step <= 20; ++Step) {
                    std::vector<real32> After(Dimension);
                    EvaluateCurve(Dimension, false, *Curve, 1.0f, Step / 20.0f, After.data(), nullptr);
                    std::vector<double> Expected = ConvertValue(Before[Step], Basis.Linear, Inverse);
                    std::vector<double> Got = AsComparable(After);
                    double Scale = Dimension == 3 ? std::fabs(Basis.Linear[0]) + std::fabs(Basis.Linear[1]) : 1.0;
                    for (size_t K = 0; K < Expected.size(); ++K)
                        ASSERT_NEAR(Got[K], Expected[K], Tolerance * std::fmax(Scale, 0.01) * 3) << "t " << Step;
                }
                ++Checked;
                FreeCurve(Curve);
            }
        }
        FreeCurve(Probe);
    }
    // Every format of fixed dimension and the free ones in three: 19 formats
    // less the identity, most under all five bases.
    EXPECT_GE(Checked, 70);
    printf("%d format, dimension and basis cases\n", Checked);
}

TEST(BasisConversionCurves, IdentityAndWrongDimensionAreLeftAlone)
{
    log_capture Log;
    curve2 *Identity = MakeCurve(CurveFormatTypes[CurveFormat_DaIdentity], 0, 3, {}, {});
    real32 const Linear[9] = {0, 1, 0, 1, 0, 0, 0, 0, 1}, Zero[3] = {0, 0, 0};
    if (Identity) {
        TransformCurve3(Zero, Linear, 1.0f, 0.001f, *Identity);
        EXPECT_TRUE(Log.Contains("Curve is the identity value - can't transform it"));
    }
    curve2 *Plane = MakeCurve(CurveFormatTypes[CurveFormat_DaK32fC32f], 1, 2, {0.0f, 1.0f}, {1, 2, 3, 4});
    ASSERT_NE(Plane, nullptr);
    TransformCurve3(Zero, Linear, 1.0f, 0.001f, *Plane);
    EXPECT_TRUE(Log.Contains("Curve does not have dimension=3"));
    real32 Value[2];
    EvaluateCurve(2, false, *Plane, 1.0f, 0.0f, Value, nullptr);
    EXPECT_FLOAT_EQ(Value[0], 1.0f);
    FreeCurve(Identity);
    FreeCurve(Plane);
}
