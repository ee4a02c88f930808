// Root motion: the treatments of a model's root bone samples before its
// curves are fitted. Moving the animation to the origin, keeping a
// quaternion stream on one hemisphere, and taking a constant movement (a
// straight line or a screw) out of a looping clip. Samples are edited in
// place; positions are 3 floats, orientations 4 (x, y, z, w) per sample.
#pragma once

#include "format/tessel_schema.h"
#include "foundation/tessel_types.h"

// Moves the first sample to the origin with the identity orientation:
// InitialPlacement receives the first position and the first orientation
// (normalised; a vanishing one is the identity), and every sample is
// expressed relative to it. No axis is masked out.
void RemoveInitialPlacement(int32 SampleCount, real32 *Positions, real32 *Orientations, transform *InitialPlacement);

// Flips each quaternion whose 4-dot with the (corrected) previous one is
// negative; the first sample never changes. Nothing is normalised.
void EnsureQuaternionContinuity(int32 SampleCount, real32 *Orientations);

// Takes the constant motion out of the samples. Without a rotation beyond
// RotationTolerance (per axis, as 1 - cos of the angle) the movement from
// the first to the last position (axes within PositionTolerance count as
// still) becomes LoopTranslation and is removed linearly; with one the
// movement is a screw, PeriodicLoop receives it and the answer is true.
// Fewer than 2 samples: nothing happens and the answer is false.
bool ExtractConstantMotion(real32 Duration, int32 SampleCount, real32 *Positions, real32 *Orientations,
                           real32 const *PositionTolerance, real32 const *RotationTolerance, real32 *LoopTranslation,
                           periodic_loop *PeriodicLoop);

// The screw that leads from (Position0, Orientation0) to (Position1,
// Orientation1) in Seconds, in the frame of the start.
void ComputePeriodicLoop(real32 const *Position0, real32 const *Orientation0, real32 const *Position1,
                         real32 const *Orientation1, real32 Seconds, periodic_loop *Loop);
// Advances the accumulated Position and Orientation by Seconds of the loop.
void StepPeriodicLoop(periodic_loop const &Loop, real32 Seconds, real32 *Position, real32 *Orientation);

// Quaternion helpers (x, y, z, w).
void QuaternionMultiply(real32 const *A, real32 const *B, real32 *Result);
void QuaternionConjugate(real32 const *Q, real32 *Result);
void QuaternionRotateVector(real32 const *Q, real32 const *Vector, real32 *Result);
