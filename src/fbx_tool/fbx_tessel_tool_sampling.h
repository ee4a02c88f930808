// The time-dependent half of the FBX tool interface: one current time in the
// tool object, frame counts and sample times of animations, and node
// transforms at the current time. The morph, vertex animation and track
// operations have no answer in FBX and give fixed empty results.
#pragma once

#include "exporter/tessel_tool_interface.h"
#include "foundation/tessel_types.h"

struct fbx_tool_interface;

namespace fbx_tool {

// 1 / frame rate of the scene's time mode.
real32 GetSecondsPerFrame(fbx_tool_interface *Tool);
// Whole frames of the animation's range, or of its take's length, counted
// from 0 and truncated; 0 for a range that ends before it starts. Makes
// the take current when there is no range.
int32 GetAnimationFrameCount(fbx_tool_interface *Tool, tool_animation *Animation);
// Makes the animation's take current and puts the current time at sample
// SampleIndex of SampleCount equal steps over the range (or over the take's
// own span, from its start). SampleCount must be at least 1.
void SetAnimationSampleTime(fbx_tool_interface *Tool, tool_animation *Animation, int32 SampleIndex, int32 SampleCount);
void SetMorphFrame(fbx_tool_interface *Tool, int32 Frame, int32 FrameCount);
int32 GetMorphFrameCount(fbx_tool_interface *Tool);
real32 GetMorphDuration(fbx_tool_interface *Tool);

// The node's transform at the current time. World values split the node's
// full global transform W(node) from the scene root; local values split
// W(parent)^-1 W(node) for the node's parent in the graph, or W(node) for a
// node without one. Orientation is a quaternion x, y, z, w; scale/shear a
// 3x3 row by row, applied before the orientation. A node without a scene
// node leaves every output untouched.
void SampleNodeTransform(fbx_tool_interface *Tool, tool_node *Node, real32 *LocalPosition, real32 *LocalOrientation,
                         real32 *LocalScaleShear, real32 *WorldPosition, real32 *WorldOrientation,
                         real32 *WorldScaleShear);
// W(Parent)^-1 W(Node) at the current time, split as above; Parent null
// gives W(Node). The animation of a bone relative to its skeleton parent.
void SampleNodeRelativeTransform(fbx_tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                 real32 *Orientation, real32 *ScaleShear);
// The rest transform B(Parent)^-1 B(Node) from the bind worlds (the
// TransformLink of a cluster that links the node, else its bind pose
// entry, else its global transform without animation), split as above;
// Parent null gives B(Node).
void SampleNodeBindTransform(fbx_tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                             real32 *Orientation, real32 *ScaleShear);
// FBX gives no separate node matrix: Matrix stays as it was.
void GetNodeMatrix(fbx_tool_interface *Tool, tool_node *Node, real32 *Matrix);

// Per-corner morph data at the current frame: nothing in FBX.
void GetMorphVertexPosition(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Position);
void GetMorphVertexNormal(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Normal);
void GetMorphCornerColor(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel, real32 *Color);
void GetMorphCornerTextureCoordinates(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel, real32 *Coordinates);

// Vertex animation and animated extras: FBX has none.
int32 GetVertexAnimationChannelCount(fbx_tool_interface *Tool, tool_animation *Animation);
void SampleVertexAnimationFrame(fbx_tool_interface *Tool, real32 *Values, void *Handle, tool_animation *Animation);
char const *GetVertexAnimationChannelName(fbx_tool_interface *Tool);
char const *GetTrackName(fbx_tool_interface *Tool, tool_track *Track, string_table *Strings);
int32 GetTrackDimension(fbx_tool_interface *Tool, tool_track *Track);
void SampleTrack(fbx_tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *Animation);
bool IsTrackAlwaysKept(fbx_tool_interface *Tool, tool_track *Track);
int32 GetNodeTextTrackCount(fbx_tool_interface *Tool, tool_node *Node);
int32 GetNodeTextTrackEntryCount(fbx_tool_interface *Tool, tool_node *Node, int32 Track);
char const *GetNodeTextTrackEntry(fbx_tool_interface *Tool, tool_node *Node, memory_arena *Arena, string_table *Strings,
                                  int32 Track, int32 Entry, real32 *Time);

} // namespace fbx_tool
