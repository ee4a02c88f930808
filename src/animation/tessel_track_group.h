// Track groups: the animation of one model in one animation record. The
// queries a runtime or a later pass makes of a finished group, and the
// shared identity curves that every group may point at.
#pragma once

#include "format/tessel_schema.h"
#include "foundation/tessel_types.h"

// Low 16 bits of AccumulationFlags.
enum track_group_flags : uint32
{
    TrackGroup_ConstantMotionExtraction = 0x1,
    TrackGroup_SortedByName = 0x2,
    TrackGroup_VariableDeltaAccumulation = 0x4,
};

// Splits AccumulationFlags into its flags (low 16 bits) and motion mask
// (high 16 bits); either output may be null.
void GetTrackGroupFlags(track_group const &Group, uint32 *Flags, uint32 *Mask);
void SetTrackGroupFlags(track_group &Group, uint32 Flags, uint32 Mask);

// Index of the transform track called Name: a bisection when the group is
// sorted, a scan otherwise. False and Index -1 for a null group or a name
// that isn't there.
bool FindTrackByName(track_group const *Group, char const *Name, int32 &Index);

// True if one of the track's curves keeps raw keyframes.
bool TransformTrackHasKeyframedCurve(transform_track const &Track);

// The shared identity curve record of a dimension (0 to 16), or null past
// that. All identity curves of one dimension point at the same record.
enum
{
    IdentityCurveMaxDimension = 16
};
void *GetSharedIdentityCurveData(int32 Dimension);
// Makes Curve the shared identity curve of Dimension; false if there is none.
bool SetSharedIdentityCurve(curve2 &Curve, int32 Dimension);

// Three-way name order of tracks (byte by byte).
int32 CompareTrackNames(char const *A, char const *B);

// A transform track's value at time t of an animation of the given
// Duration, as a runtime sees it: an empty or identity curve gives the
// identity part, the orientation is normalised. Flags are recomputed.
void SampleTransformTrack(transform_track const &Track, real32 Duration, real32 t, transform &Result);
