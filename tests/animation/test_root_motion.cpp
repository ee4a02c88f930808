// Root motion: initial placement, quaternion continuity and constant
// motion extraction on sample streams of known motion.
#include "animation/tessel_bspline_solver.h"
#include "animation/tessel_root_motion.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

void AxisAngle(real32 const *Axis, real32 Angle, real32 *q)
{
    real32 s = std::sin(0.5f * Angle);
    q[0] = Axis[0] * s;
    q[1] = Axis[1] * s;
    q[2] = Axis[2] * s;
    q[3] = std::cos(0.5f * Angle);
}

struct stream
{
    std::vector<real32> Positions;
    std::vector<real32> Orientations;
};

// A root turning about Z at Rate radians per second while walking forward
// along its own X at Speed, sampled Count times over Duration.
stream Screw(int32 Count, real32 Duration, real32 Speed, real32 Rate, real32 Climb)
{
    stream S;
    real32 const Z[3] = {0, 0, 1};
    real32 Position[3] = {0, 0, 0};
    real32 Step = Duration / (real32)(Count - 1);
    for (int32 s = 0; s < Count; ++s) {
        real32 t = Step * (real32)s;
        real32 q[4];
        AxisAngle(Z, Rate * t, q);
        if (Rate != 0.0f) {
            real32 Radius = Speed / Rate;
            Position[0] = Radius * std::sin(Rate * t);
            Position[1] = Radius * (1.0f - std::cos(Rate * t));
        } else {
            Position[0] = Speed * t;
            Position[1] = 0.0f;
        }
        Position[2] = Climb * t;
        S.Positions.insert(S.Positions.end(), Position, Position + 3);
        S.Orientations.insert(S.Orientations.end(), q, q + 4);
    }
    return S;
}

} // namespace

TEST(RootMotion, InitialPlacementMovesTheFirstSampleToTheOrigin)
{
    real32 const Y[3] = {0, 1, 0};
    std::vector<real32> Positions = {3, 4, 5, 3, 4, 7};
    std::vector<real32> Orientations(8);
    AxisAngle(Y, 1.0f, &Orientations[0]);
    AxisAngle(Y, 1.0f, &Orientations[4]);
    for (real32 &Value : Orientations) Value *= 2.0f; // not unit: normalised for the placement
    transform Placement;
    RemoveInitialPlacement(2, Positions.data(), Orientations.data(), &Placement);
    EXPECT_NEAR(Placement.Position[2], 5.0f, 1e-6f);
    EXPECT_NEAR(Placement.Orientation[3], std::cos(0.5f), 1e-6f);
    EXPECT_EQ(Placement.Flags & 3, 3);
    for (int32 i = 0; i < 3; ++i) EXPECT_NEAR(Positions[i], 0.0f, 1e-6f);
    // The second sample was 2 along Z: in the turned frame that is 2 (sin, 0, cos).
    EXPECT_NEAR(Positions[3], -2.0f * std::sin(1.0f), 1e-5f);
    EXPECT_NEAR(Positions[5], 2.0f * std::cos(1.0f), 1e-5f);
    EXPECT_NEAR(Orientations[3], 2.0f, 1e-5f); // conjugate(q) * 2q keeps the length

    std::vector<real32> Zero = {0, 0, 0, 0};
    std::vector<real32> Origin = {1, 1, 1};
    RemoveInitialPlacement(1, Origin.data(), Zero.data(), &Placement);
    EXPECT_EQ(Placement.Orientation[3], 1.0f);
}

TEST(RootMotion, QuaternionContinuityFlipsFromTheSignChangeOn)
{
    std::vector<real32> q = {0, 0, 0.1f, 0.99f, 0, 0, 0.2f, 0.98f, 0, 0, -0.3f, -0.95f, 0, 0, -0.4f, -0.92f};
    EnsureQuaternionContinuity(4, q.data());
    EXPECT_EQ(q[2], 0.1f);
    EXPECT_EQ(q[10], 0.3f);
    EXPECT_EQ(q[15], 0.92f);
    // The first sample is never changed, even when negative.
    std::vector<real32> Negative = {0, 0, 0, -1, 0, 0, 0, 1};
    EnsureQuaternionContinuity(2, Negative.data());
    EXPECT_EQ(Negative[3], -1.0f);
    EXPECT_EQ(Negative[7], -1.0f);
}

TEST(RootMotion, StraightWalkBecomesLoopTranslation)
{
    stream S = Screw(31, 1.0f, 3.0f, 0.0f, 0.0f);
    // A small drift on Y, below its tolerance, stays in the curve.
    for (int32 s = 0; s < 31; ++s) S.Positions[3 * s + 1] = 0.01f * (real32)s;
    real32 PositionTolerance[3] = {0.1f, 1.0f, 0.1f};
    real32 RotationTolerance[3] = {1e-4f, 1e-4f, 1e-4f};
    real32 Loop[3] = {0, 0, 0};
    periodic_loop Periodic = {};
    EXPECT_FALSE(ExtractConstantMotion(1.0f, 31, S.Positions.data(), S.Orientations.data(), PositionTolerance,
                                       RotationTolerance, Loop, &Periodic));
    EXPECT_NEAR(Loop[0], 3.0f, 1e-5f);
    EXPECT_EQ(Loop[1], 0.0f);
    for (int32 s = 0; s < 31; ++s) {
        EXPECT_NEAR(S.Positions[3 * s], 0.0f, 1e-5f);
        EXPECT_NEAR(S.Positions[3 * s + 1], 0.01f * (real32)s, 1e-6f);
    }
    EXPECT_EQ(Periodic.Radius, 0.0f);

    // A cycle that returns to its start within tolerance changes nothing.
    stream Still = Screw(5, 1.0f, 0.0f, 0.0f, 0.0f);
    std::vector<real32> Before = Still.Positions;
    EXPECT_FALSE(ExtractConstantMotion(1.0f, 5, Still.Positions.data(), Still.Orientations.data(), PositionTolerance,
                                       RotationTolerance, Loop, &Periodic));
    EXPECT_EQ(Loop[0], 0.0f);
    EXPECT_EQ(Still.Positions, Before);
    EXPECT_FALSE(ExtractConstantMotion(1.0f, 1, Still.Positions.data(), Still.Orientations.data(), PositionTolerance,
                                       RotationTolerance, Loop, &Periodic));
}

TEST(RootMotion, TurningWalkBecomesAPeriodicLoopThatUndoesIt)
{
    // A quarter turn while walking on an arc and climbing: after extraction
    // every sample sits at the start with the start's orientation.
    stream S = Screw(41, 2.0f, 2.0f, 0.785398f, 0.5f);
    real32 PositionTolerance[3] = {0.001f, 0.001f, 0.001f};
    real32 RotationTolerance[3] = {QuaternionToleranceFromDegrees(1.0f), QuaternionToleranceFromDegrees(1.0f),
                                   QuaternionToleranceFromDegrees(1.0f)};
    real32 Loop[3] = {0, 0, 0};
    periodic_loop Periodic = {};
    ASSERT_TRUE(ExtractConstantMotion(2.0f, 41, S.Positions.data(), S.Orientations.data(), PositionTolerance,
                                      RotationTolerance, Loop, &Periodic));
    EXPECT_EQ(Loop[0], 0.0f);
    EXPECT_NEAR(Periodic.dAngle, 0.785398f, 1e-4f);
    EXPECT_NEAR(Periodic.Radius, 2.0f / 0.785398f, 1e-3f);
    EXPECT_NEAR(Periodic.dZ, 0.5f, 1e-4f);
    EXPECT_NEAR(Periodic.Axis[2], 1.0f, 1e-5f);
    for (int32 s = 0; s < 41; ++s) {
        for (int32 i = 0; i < 3; ++i) EXPECT_NEAR(S.Positions[3 * s + i], 0.0f, 2e-4f) << s;
        EXPECT_NEAR(std::fabs(S.Orientations[4 * s + 3]), 1.0f, 1e-5f) << s;
    }

    // A turn on the spot: radius 0, zero bases, only rotation is stepped.
    stream Spin = Screw(11, 1.0f, 0.0f, 1.0f, 0.0f);
    ASSERT_TRUE(ExtractConstantMotion(1.0f, 11, Spin.Positions.data(), Spin.Orientations.data(), PositionTolerance,
                                      RotationTolerance, Loop, &Periodic));
    EXPECT_EQ(Periodic.Radius, 0.0f);
    EXPECT_EQ(Periodic.BasisX[0], 0.0f);
    EXPECT_NEAR(std::fabs(Spin.Orientations[4 * 10 + 3]), 1.0f, 1e-5f);
}

TEST(RootMotion, RotationOfExactlyTheToleranceCountsAsNone)
{
    stream S = Screw(3, 1.0f, 0.0f, 0.5f, 0.0f);
    // The tolerance as the test computes it: 1 - cos of the angle about Z.
    real32 q[4] = {S.Orientations[8], S.Orientations[9], S.Orientations[10], S.Orientations[11]};
    real32 Angle = 2.0f * std::atan2(q[2], q[3]);
    real32 RotationTolerance[3] = {0.1f, 0.1f, 1.0f - std::cos(Angle)};
    real32 PositionTolerance[3] = {1, 1, 1};
    real32 Loop[3] = {0, 0, 0};
    periodic_loop Periodic = {};
    EXPECT_FALSE(ExtractConstantMotion(1.0f, 3, S.Positions.data(), S.Orientations.data(), PositionTolerance,
                                       RotationTolerance, Loop, &Periodic));
}
