// The track_group_builder: tracks arrive one by one in any order, each with
// copies of its curves; the finished group holds them sorted by name, in
// one block (EndTrackGroupInPlace) or piece by piece from an arena
// (EndTrackGroup).
#pragma once

#include "format/tessel_schema.h"
#include "foundation/tessel_types.h"

struct memory_arena;
struct track_group_builder;

// The counts are hints only; the builder grows as tracks arrive.
track_group_builder *BeginTrackGroup(char const *Name, int32 VectorTrackCount, int32 TransformTrackCount,
                                     int32 TextTrackCount, bool IncludeLODErrorSpace);

// Text tracks: entries keep their order of arrival. Without a current text
// track AddTextEntry does nothing.
void BeginTextTrack(track_group_builder *Builder, char const *Name);
void AddTextEntry(track_group_builder *Builder, real32 TimeStamp, char const *Text);
void EndTextTrack(track_group_builder *Builder);

// Transform tracks: a new track with three empty curves. Each setter keeps
// a copy of the curve (an identity curve becomes the shared identity record
// and takes no bytes); without a current track they do nothing, and a copy
// that fails leaves the curve empty.
void BeginTransformTrack(track_group_builder *Builder, char const *Name, uint32 Flags);
void SetTransformTrackPositionCurve(track_group_builder *Builder, curve2 const &Curve);
void SetTransformTrackOrientationCurve(track_group_builder *Builder, curve2 const &Curve);
void SetTransformTrackScaleShearCurve(track_group_builder *Builder, curve2 const &Curve);
void EndTransformTrack(track_group_builder *Builder);

// A whole vector track; its Dimension is the curve's.
void PushVectorTrackCurve(track_group_builder *Builder, char const *Name, uint32 TrackKey, curve2 const &Curve);

// Bytes of the finished group with everything it holds; 0 (logged) when
// that does not fit in 32 bits.
int32 GetResultingTrackGroupSize(track_group_builder const *Builder);
// Writes the group into Memory (GetResultingTrackGroupSize bytes) and frees
// the builder. InitialPlacement and LoopTranslation are left for the caller.
track_group *EndTrackGroupInPlace(track_group_builder *Builder, void *Memory);
// The same, each piece allocated from Arena. Null when one allocation
// fails; the builder is freed either way.
track_group *EndTrackGroup(track_group_builder *Builder, memory_arena *Arena);
// Frees the builder without making a group. Accepts null.
void AbortTrackGroup(track_group_builder *Builder);
