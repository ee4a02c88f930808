#include <cmath>

#include "fbx_tool/fbx_tessel_tool_sampling.h"

#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "fbx/fbx_tessel_node.h"
#include "fbx/fbx_tessel_scene.h"
#include "foundation/tessel_log.h"

namespace fbx_tool {

namespace {

KFbxTakeInfo *GetTake(tool_animation *Animation)
{
    return (KFbxTakeInfo *)Animation->ToolAnimation;
}
KFbxScene *GetScene(tool_animation *Animation)
{
    return (KFbxScene *)Animation->ToolScene;
}

// A scene without the take answers with a failure, which changes nothing
// that matters here: the take becomes current all the same.
void MakeTakeCurrent(tool_animation *Animation)
{
    KFbxScene *Scene = GetScene(Animation);
    KFbxTakeInfo *Take = GetTake(Animation);
    if (Scene && Take) Scene->SetCurrentTake(Take->GetName());
}

int64 GetTakeDuration(tool_animation *Animation)
{
    KFbxTakeInfo *Take = GetTake(Animation);
    return Take ? Take->mLocalTimeSpan.GetDuration().Get() : 0;
}

KFbxNode *ToFBXNode(tool_node *Node)
{
    return Node ? (KFbxNode *)Node->ToolNode : 0;
}

void StoreSplit(AffineMatrix const &Matrix, real32 *Position, real32 *Orientation, real32 *ScaleShear)
{
    real64 SplitPosition[3], SplitOrientation[4], SplitScaleShear[9];
    SplitAffineMatrix(Matrix, SplitPosition, SplitOrientation, SplitScaleShear);
    for (int32 Axis = 0; Axis < 3; ++Axis) Position[Axis] = (real32)SplitPosition[Axis];
    for (int32 Component = 0; Component < 4; ++Component) Orientation[Component] = (real32)SplitOrientation[Component];
    for (int32 Element = 0; Element < 9; ++Element) ScaleShear[Element] = (real32)SplitScaleShear[Element];
}

} // namespace

real32 GetSecondsPerFrame(fbx_tool_interface *Tool)
{
    KFbxScene *Scene = (Tool && Tool->FBX) ? Tool->FBX->Scene : 0;
    if (!Scene) return (real32)(1.0 / KTime::GetFrameRate(FbxTimeMode_30));
    KFbxGlobalSettings &Settings = Scene->GetGlobalSettings();
    return (real32)(1.0 / KTime::GetFrameRate(Settings.GetFrameTimeMode(), Settings.GetFrameCustomRate()));
}

// The ticks of the whole frames of an animation's span.
static int64 WholeFrameTicks(fbx_tool_interface *Tool, tool_animation *Animation)
{
    int32 Frames = GetAnimationFrameCount(Tool, Animation);
    KFbxScene *Scene = GetScene(Animation);
    real64 Rate = Scene ? KTime::GetFrameRate(Scene->GetGlobalSettings().GetFrameTimeMode(),
                                              Scene->GetGlobalSettings().GetFrameCustomRate())
                        : KTime::GetFrameRate(FbxTimeMode_30);
    return (int64)std::llround((real64)Frames * (real64)KTime::TicksPerSecond / Rate);
}

int32 GetAnimationFrameCount(fbx_tool_interface *Tool, tool_animation *Animation)
{
    CheckPointer(Animation, LogCategory_Exporter, 0);
    KTime Span;
    if (Animation->HasRange) {
        Span.Set(Animation->End - Animation->Start);
    } else {
        MakeTakeCurrent(Animation);
        Span.Set(GetTakeDuration(Animation));
    }
    // A range that ends before it starts has no frames.
    KFbxScene *Scene = GetScene(Animation);
    int64 Frames = Scene ? Span.GetFrame(true, Scene->GetGlobalSettings().GetFrameTimeMode(),
                                         Scene->GetGlobalSettings().GetFrameCustomRate())
                         : Span.GetFrame(true, FbxTimeMode_30);
    return Frames > 0 ? (int32)Frames : 0;
}

void SetAnimationSampleTime(fbx_tool_interface *Tool, tool_animation *Animation, int32 SampleIndex, int32 SampleCount)
{
    CheckPointer(Tool, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Animation, LogCategory_Exporter, TESSEL_NOTHING);
    CheckCondition(SampleCount > 0, LogCategory_Exporter, TESSEL_NOTHING);
    MakeTakeCurrent(Animation);
    // The samples cover the whole frames of the span (what the frame count
    // and the stored time step say), so that a span ending between frames
    // is not stretched over them. A fixed step in ticks: sample i is at i
    // steps, with no running sum.
    int64 Start = Animation->Start;
    if (!Animation->HasRange) {
        // A take is read over its own span, from its start.
        KFbxTakeInfo *Take = GetTake(Animation);
        Start = Take ? Take->mLocalTimeSpan.GetStart().Get() : 0;
    }
    int64 Span = WholeFrameTicks(Tool, Animation);
    Tool->CurrentTime = Start + (Span / SampleCount) * SampleIndex;
}

void SetMorphFrame(fbx_tool_interface *Tool, int32 Frame, int32 FrameCount) {}
int32 GetMorphFrameCount(fbx_tool_interface *Tool)
{
    return 0;
}
real32 GetMorphDuration(fbx_tool_interface *Tool)
{
    return 0.0f;
}

void SampleNodeTransform(fbx_tool_interface *Tool, tool_node *Node, real32 *LocalPosition, real32 *LocalOrientation,
                         real32 *LocalScaleShear, real32 *WorldPosition, real32 *WorldOrientation,
                         real32 *WorldScaleShear)
{
    CheckPointer(Tool, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Node, LogCategory_Exporter, TESSEL_NOTHING);
    KFbxNode *FBXNode = ToFBXNode(Node);
    if (!FBXNode) return;
    KTime Time(Tool->CurrentTime);
    AffineMatrix World = FBXNode->GetGlobalTransformAtTime(Time);
    AffineMatrix Local = World;
    if (KFbxNode *Parent = ToFBXNode(GetNodeParent(Tool, Node))) {
        Local = Parent->GetGlobalTransformAtTime(Time).Inverse() * World;
    }
    StoreSplit(Local, LocalPosition, LocalOrientation, LocalScaleShear);
    StoreSplit(World, WorldPosition, WorldOrientation, WorldScaleShear);
}

void SampleNodeRelativeTransform(fbx_tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                                 real32 *Orientation, real32 *ScaleShear)
{
    CheckPointer(Tool, LogCategory_Exporter, TESSEL_NOTHING);
    KFbxNode *FBXNode = ToFBXNode(Node);
    if (!FBXNode) return;
    KTime Time(Tool->CurrentTime);
    AffineMatrix Matrix = FBXNode->GetGlobalTransformAtTime(Time);
    if (KFbxNode *FBXParent = ToFBXNode(Parent)) Matrix = FBXParent->GetGlobalTransformAtTime(Time).Inverse() * Matrix;
    StoreSplit(Matrix, Position, Orientation, ScaleShear);
}

void SampleNodeBindTransform(fbx_tool_interface *Tool, tool_node *Node, tool_node *Parent, real32 *Position,
                             real32 *Orientation, real32 *ScaleShear)
{
    CheckPointer(Tool, LogCategory_Exporter, TESSEL_NOTHING);
    KFbxNode *FBXNode = ToFBXNode(Node);
    if (!FBXNode) return;
    AffineMatrix Matrix = FBXNode->GetBindWorld();
    if (KFbxNode *FBXParent = ToFBXNode(Parent)) Matrix = FBXParent->GetBindWorld().Inverse() * Matrix;
    StoreSplit(Matrix, Position, Orientation, ScaleShear);
}

void GetNodeMatrix(fbx_tool_interface *Tool, tool_node *Node, real32 *Matrix) {}

void GetMorphVertexPosition(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Position) {}
void GetMorphVertexNormal(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, real32 *Normal) {}
void GetMorphCornerColor(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel, real32 *Color) {}
void GetMorphCornerTextureCoordinates(fbx_tool_interface *Tool, void *Handle, int32 Polygon, int32 Corner, int32 Channel, real32 *Coordinates) {}

int32 GetVertexAnimationChannelCount(fbx_tool_interface *Tool, tool_animation *Animation)
{
    return 0;
}
void SampleVertexAnimationFrame(fbx_tool_interface *Tool, real32 *Values, void *Handle, tool_animation *Animation) {}
char const *GetVertexAnimationChannelName(fbx_tool_interface *Tool)
{
    return 0;
}
char const *GetTrackName(fbx_tool_interface *Tool, tool_track *Track, string_table *Strings)
{
    return 0;
}
int32 GetTrackDimension(fbx_tool_interface *Tool, tool_track *Track)
{
    return 0;
}
void SampleTrack(fbx_tool_interface *Tool, real32 *Values, tool_track *Track, tool_animation *Animation) {}
bool IsTrackAlwaysKept(fbx_tool_interface *Tool, tool_track *Track)
{
    return false;
}
int32 GetNodeTextTrackCount(fbx_tool_interface *Tool, tool_node *Node)
{
    return 0;
}
int32 GetNodeTextTrackEntryCount(fbx_tool_interface *Tool, tool_node *Node, int32 Track)
{
    return 0;
}
char const *GetNodeTextTrackEntry(fbx_tool_interface *Tool, tool_node *Node, memory_arena *Arena, string_table *Strings,
                                  int32 Track, int32 Entry, real32 *Time)
{
    return 0;
}

} // namespace fbx_tool
