// Raw sample buffers of one model's bones while an animation is sampled:
// position (3), orientation (4) and scale/shear (9, row by row) floats per
// track and sample, written one sample time after another.
#pragma once

#include "foundation/tessel_types.h"

#pragma pack(push, 4)
struct track_group_sampler
{
    uint8 OneAllocation;
    int32 TrackCount;
    int32 SampleCount;
    int32 SampleIndex; // the next sample to write
    real32 **TrackPositionSamples;
    real32 **TrackOrientationSamples;
    real32 **TrackScaleShearSamples;
};
#pragma pack(pop)

// Zeroed buffers for TrackCount tracks of SampleCount samples; null (with
// nothing left allocated) on failure.
track_group_sampler *BeginSampledAnimation(int32 TrackCount, int32 SampleCount);
// Copies one track's values into the current sample; past the last sample
// or the last track nothing is written.
void SetTransformSample(track_group_sampler *Sampler, int32 TrackIndex, real32 const *Position,
                        real32 const *Orientation, real32 const *ScaleShear);
// Moves on to the next sample time.
void AdvanceSampler(track_group_sampler *Sampler);
// A track's buffer, or null (logged) for a bad index.
real32 *GetPositionSamples(track_group_sampler *Sampler, int32 TrackIndex);
real32 *GetOrientationSamples(track_group_sampler *Sampler, int32 TrackIndex);
real32 *GetScaleShearSamples(track_group_sampler *Sampler, int32 TrackIndex);
// Frees everything; accepts null.
void EndSampledAnimation(track_group_sampler *Sampler);
