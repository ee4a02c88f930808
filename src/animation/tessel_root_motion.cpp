#include "animation/tessel_root_motion.h"

#include "geometry/tessel_transform.h"

#include <cmath>
#include <cstring>

void QuaternionMultiply(real32 const *A, real32 const *B, real32 *Result)
{
    real32 x = A[3] * B[0] + A[0] * B[3] + A[1] * B[2] - A[2] * B[1];
    real32 y = A[3] * B[1] - A[0] * B[2] + A[1] * B[3] + A[2] * B[0];
    real32 z = A[3] * B[2] + A[0] * B[1] - A[1] * B[0] + A[2] * B[3];
    real32 w = A[3] * B[3] - A[0] * B[0] - A[1] * B[1] - A[2] * B[2];
    Result[0] = x;
    Result[1] = y;
    Result[2] = z;
    Result[3] = w;
}

void QuaternionConjugate(real32 const *Q, real32 *Result)
{
    Result[0] = -Q[0];
    Result[1] = -Q[1];
    Result[2] = -Q[2];
    Result[3] = Q[3];
}

void QuaternionRotateVector(real32 const *Q, real32 const *Vector, real32 *Result)
{
    // v' = v + 2 w (u x v) + 2 u x (u x v), u the vector part.
    real32 const *u = Q;
    real32 w = Q[3];
    real32 c[3] = {u[1] * Vector[2] - u[2] * Vector[1], u[2] * Vector[0] - u[0] * Vector[2],
                   u[0] * Vector[1] - u[1] * Vector[0]};
    real32 cc[3] = {u[1] * c[2] - u[2] * c[1], u[2] * c[0] - u[0] * c[2], u[0] * c[1] - u[1] * c[0]};
    for (int32 i = 0; i < 3; ++i) Result[i] = Vector[i] + 2.0f * (w * c[i] + cc[i]);
}

namespace {

real32 Length3(real32 const *v)
{
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

void Normalize3(real32 *v)
{
    real32 Length = Length3(v);
    if (Length > 0.0f) {
        for (int32 i = 0; i < 3; ++i) v[i] /= Length;
    }
}

void Normalize4(real32 *q)
{
    real32 Length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (Length > 0.0f) {
        for (int32 i = 0; i < 4; ++i) q[i] /= Length;
    }
}

void Cross(real32 const *a, real32 const *b, real32 *Result)
{
    real32 r[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    memcpy(Result, r, sizeof(r));
}

} // namespace

void RemoveInitialPlacement(int32 SampleCount, real32 *Positions, real32 *Orientations, transform *InitialPlacement)
{
    if (SampleCount < 1 || !Positions || !Orientations || !InitialPlacement) return;
    real32 p[3] = {Positions[0], Positions[1], Positions[2]};
    real32 q[4] = {Orientations[0], Orientations[1], Orientations[2], Orientations[3]};
    real32 Length = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (Length < 0.0001f) {
        q[0] = q[1] = q[2] = 0.0f;
        q[3] = 1.0f;
    } else {
        for (int32 i = 0; i < 4; ++i) q[i] /= Length;
    }
    real32 const Identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    SetTransform(*InitialPlacement, p, q, Identity);
    real32 c[4];
    QuaternionConjugate(q, c);
    for (int32 s = 0; s < SampleCount; ++s) {
        real32 *Position = Positions + 3 * s;
        real32 *Orientation = Orientations + 4 * s;
        real32 d[3] = {Position[0] - p[0], Position[1] - p[1], Position[2] - p[2]};
        QuaternionRotateVector(c, d, Position);
        QuaternionMultiply(c, Orientation, Orientation);
    }
}

void EnsureQuaternionContinuity(int32 SampleCount, real32 *Orientations)
{
    if (!Orientations) return;
    real32 Previous[4] = {0, 0, 0, 0};
    for (int32 s = 0; s < SampleCount; ++s) {
        real32 *q = Orientations + 4 * s;
        real32 Dot = Previous[0] * q[0] + Previous[1] * q[1] + Previous[2] * q[2] + Previous[3] * q[3];
        if (Dot < 0.0f) {
            for (int32 i = 0; i < 4; ++i) q[i] = -q[i];
        }
        memcpy(Previous, q, sizeof(Previous));
    }
}

void ComputePeriodicLoop(real32 const *Position0, real32 const *Orientation0, real32 const *Position1,
                         real32 const *Orientation1, real32 Seconds, periodic_loop *Loop)
{
    if (!Loop) return;
    memset(Loop, 0, sizeof(*Loop));
    real32 c0[4], r[4];
    QuaternionConjugate(Orientation0, c0);
    QuaternionMultiply(c0, Orientation1, r);
    real32 Axis[3] = {r[0], r[1], r[2]};
    real32 VectorLength = Length3(Axis);
    Normalize3(Axis);
    real32 Travel[3] = {Position1[0] - Position0[0], Position1[1] - Position0[1], Position1[2] - Position0[2]};
    real32 t[3];
    QuaternionRotateVector(c0, Travel, t);
    real32 dZ = t[0] * Axis[0] + t[1] * Axis[1] + t[2] * Axis[2];
    for (int32 i = 0; i < 3; ++i) t[i] -= dZ * Axis[i];
    real32 dAngle = 2.0f * std::atan2(VectorLength, r[3]);
    real32 l2 = t[0] * t[0] + t[1] * t[1] + t[2] * t[2];
    real32 h = 2.0f * (1.0f - std::cos(dAngle));
    real32 Radius = h > 0.0f ? std::sqrt(l2 / h) : 0.0f;
    real32 BasisX[3] = {0, 0, 0};
    real32 BasisY[3] = {0, 0, 0};
    if (Radius > 0.0001f) {
        real32 m[3] = {t[0] * 0.5f, t[1] * 0.5f, t[2] * 0.5f};
        memcpy(BasisY, t, sizeof(BasisY));
        Normalize3(BasisY);
        Cross(BasisY, Axis, BasisX);
        Normalize3(BasisX);
        if (std::fabs(dAngle - 3.1415927f) > 0.00001f) {
            real32 g = std::fabs(dAngle) > 3.1415927f ? 1.0f : -1.0f;
            real32 Inside = Radius * Radius - 0.25f * l2;
            real32 Offset = g * std::sqrt(Inside > 0.0f ? Inside : 0.0f);
            for (int32 i = 0; i < 3; ++i) m[i] += Offset * BasisX[i];
        }
        real32 ToStart[3] = {-m[0], -m[1], -m[2]};
        memcpy(BasisX, ToStart, sizeof(BasisX));
        Normalize3(BasisX);
        Cross(Axis, BasisX, BasisY);
        Normalize3(BasisY);
    }
    if (Seconds > 0.0f) {
        dAngle /= Seconds;
        dZ /= Seconds;
    }
    Loop->Radius = Radius;
    Loop->dAngle = dAngle;
    Loop->dZ = dZ;
    memcpy(Loop->BasisX, BasisX, sizeof(BasisX));
    memcpy(Loop->BasisY, BasisY, sizeof(BasisY));
    memcpy(Loop->Axis, Axis, sizeof(Axis));
}

void StepPeriodicLoop(periodic_loop const &Loop, real32 Seconds, real32 *Position, real32 *Orientation)
{
    real32 Angle = Loop.dAngle * Seconds;
    real32 Along = Loop.dZ * Seconds;
    real32 Cos = std::cos(Angle) - 1.0f;
    real32 Sin = std::sin(Angle);
    real32 Displacement[3];
    for (int32 i = 0; i < 3; ++i) {
        Displacement[i] = Loop.Axis[i] * Along;
        Displacement[i] += Loop.BasisX[i] * Loop.Radius * Cos;
        Displacement[i] += Loop.BasisY[i] * Loop.Radius * Sin;
    }
    real32 Rotated[3];
    QuaternionRotateVector(Orientation, Displacement, Rotated);
    for (int32 i = 0; i < 3; ++i) Position[i] += Rotated[i];
    real32 Half = 0.5f * Angle;
    real32 s = std::sin(Half);
    real32 Step[4] = {Loop.Axis[0] * s, Loop.Axis[1] * s, Loop.Axis[2] * s, std::cos(Half)};
    QuaternionMultiply(Orientation, Step, Orientation);
}

bool ExtractConstantMotion(real32 Duration, int32 SampleCount, real32 *Positions, real32 *Orientations,
                           real32 const *PositionTolerance, real32 const *RotationTolerance, real32 *LoopTranslation,
                           periodic_loop *PeriodicLoop)
{
    if (SampleCount < 2 || !Positions || !Orientations || !PositionTolerance || !RotationTolerance ||
        !LoopTranslation || !PeriodicLoop)
        return false;
    int32 Last = SampleCount - 1;
    real32 p0[3], p1[3], q0[4], q1[4];
    memcpy(p0, Positions, sizeof(p0));
    memcpy(p1, Positions + 3 * Last, sizeof(p1));
    memcpy(q0, Orientations, sizeof(q0));
    memcpy(q1, Orientations + 4 * Last, sizeof(q1));
    real32 c0[4], d[4];
    QuaternionConjugate(q0, c0);
    QuaternionMultiply(c0, q1, d);

    bool NoRotation = true;
    for (int32 i = 0; i < 3; ++i) {
        real32 v[4] = {0, 0, 0, d[3]};
        v[i] = d[i];
        Normalize4(v);
        real32 Angle = 2.0f * std::atan2(v[i], v[3]);
        if (1.0f - std::cos(Angle) <= RotationTolerance[i]) {
            q0[i] = 0.0f;
            q1[i] = 0.0f;
        } else {
            NoRotation = false;
        }
    }
    Normalize4(q0);
    Normalize4(q1);

    for (int32 i = 0; i < 3; ++i) {
        if (std::fabs(p0[i] - p1[i]) < PositionTolerance[i]) p1[i] = p0[i];
    }

    if (NoRotation) {
        for (int32 i = 0; i < 3; ++i) LoopTranslation[i] = p1[i] - p0[i];
        real32 Denominator = (real32)(SampleCount - 1);
        for (int32 s = 0; s < SampleCount; ++s) {
            real32 Factor = -(real32)s / Denominator;
            for (int32 i = 0; i < 3; ++i) Positions[3 * s + i] += Factor * LoopTranslation[i];
        }
        return false;
    }

    ComputePeriodicLoop(p0, q0, p1, q1, Duration, PeriodicLoop);
    real32 StepTime = Duration / (real32)(SampleCount - 1);
    real32 a[3] = {0, 0, 0};
    real32 r[4];
    memcpy(r, q0, sizeof(r));
    for (int32 s = 0; s < SampleCount; ++s) {
        real32 c[4];
        QuaternionConjugate(r, c);
        real32 *Position = Positions + 3 * s;
        real32 *Orientation = Orientations + 4 * s;
        real32 Offset[3] = {Position[0] - a[0], Position[1] - a[1], Position[2] - a[2]};
        QuaternionRotateVector(c, Offset, Position);
        QuaternionMultiply(c, Orientation, Orientation);
        StepPeriodicLoop(*PeriodicLoop, StepTime, a, r);
    }
    return true;
}
