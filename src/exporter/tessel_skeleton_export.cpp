#include "exporter/tessel_skeleton_export.h"

#include <cmath>
#include <cstring>

#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"
#include "exporter/tessel_scene_parser.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "geometry/tessel_skeleton_builder.h"
#include "geometry/tessel_transform.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

namespace {

// Quaternion product A B (B applied first), x, y, z, w.
void MultiplyQuaternions(real32 const *A, real32 const *B, real32 *Result)
{
    real32 X = A[3] * B[0] + A[0] * B[3] + A[1] * B[2] - A[2] * B[1];
    real32 Y = A[3] * B[1] - A[0] * B[2] + A[1] * B[3] + A[2] * B[0];
    real32 Z = A[3] * B[2] + A[0] * B[1] - A[1] * B[0] + A[2] * B[3];
    real32 W = A[3] * B[3] - A[0] * B[0] - A[1] * B[1] - A[2] * B[2];
    Result[0] = X;
    Result[1] = Y;
    Result[2] = Z;
    Result[3] = W;
}

void RotateVector(real32 const *Quaternion, real32 const *Vector, real32 *Result)
{
    real32 Matrix[9];
    QuaternionToMatrix3x3(Quaternion, Matrix);
    for (int32 Row = 0; Row < 3; ++Row) {
        Result[Row] =
            Matrix[Row * 3 + 0] * Vector[0] + Matrix[Row * 3 + 1] * Vector[1] + Matrix[Row * 3 + 2] * Vector[2];
    }
}

// Local = Placement^-1 Local, for a placement without scale/shear: the bone
// then sits where it did once the model is placed.
void RemovePlacement(transform const &Placement, transform &Local)
{
    real32 Inverse[4] = {-Placement.Orientation[0], -Placement.Orientation[1], -Placement.Orientation[2],
                         Placement.Orientation[3]};
    real32 Offset[3];
    for (int32 Axis = 0; Axis < 3; ++Axis) Offset[Axis] = Local.Position[Axis] - Placement.Position[Axis];
    real32 Position[3], Orientation[4];
    RotateVector(Inverse, Offset, Position);
    MultiplyQuaternions(Inverse, Local.Orientation, Orientation);
    NormalizeQuaternion(Orientation);
    real32 ScaleShear[9];
    memcpy(ScaleShear, Local.ScaleShear, sizeof(ScaleShear));
    SetTransform(Local, Position, Orientation, ScaleShear);
}

// The graph's node lists run newest first; the passes of ExportSkeleton all
// walk them in that same order.
void NameBones(scene_export_state *State, tool_model *Model, skeleton *Skeleton, int32 const *Remapping)
{
    int32 Index = 0;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsBoneIncluded(Node->Settings)) continue;
        int32 Final = Remapping[Index++];
        // A bone on a circular chain was never written.
        if (Final < 0 || Final >= Skeleton->BoneCount) {
            Node->BoneIndex = -1;
            continue;
        }
        Node->BoneIndex = Final;
        bone *Bone = &Skeleton->Bones[Final];
        Bone->Name = (char *)GetNodeName(State->Tool, Node, State->Strings);
        Node->FileBone = Bone;
        if (IsArtToolDataIncluded(Node->Settings)) {
            AddNodeData(State->Tool, Node, Bone, IsOnlyUserAttributes(Node->Settings), State->Arena, State->Strings);
        }
    }
}

} // namespace

bool IsBoneIncluded(settings_node const *Settings)
{
    if (!Settings) return false;
    if (FindSetting(Settings, SettingId_IncludeReferenceInExport)) return IsDataIncluded(Settings);
    return GetSettingBool(Settings, SettingId_IncludeDataInExport);
}

void GetNodeTransforms(tool_interface *Tool, tool_node *Node, transform *Local, transform *World)
{
    CheckPointer(Local, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(World, LogCategory_Exporter, TESSEL_NOTHING);
    real32 LocalPosition[3] = {0, 0, 0}, LocalOrientation[4] = {0, 0, 0, 1};
    real32 LocalScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    real32 WorldPosition[3] = {0, 0, 0}, WorldOrientation[4] = {0, 0, 0, 1};
    real32 WorldScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    SampleNodeTransform(Tool, Node, LocalPosition, LocalOrientation, LocalScaleShear, WorldPosition, WorldOrientation,
                        WorldScaleShear);
    SetTransform(*Local, LocalPosition, LocalOrientation, LocalScaleShear);
    SetTransform(*World, WorldPosition, WorldOrientation, WorldScaleShear);
}

void MakeInitialPlacement(settings_node const *Settings, real32 const *Position, real32 const *Orientation,
                          transform *Result)
{
    CheckPointer(Position, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Orientation, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Result, LogCategory_Exporter, TESSEL_NOTHING);
    real32 PlacedPosition[3];
    real32 PlacedOrientation[4];
    // Every axis of the position and the orientation goes into the
    // placement: no setting masks one out.
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        PlacedPosition[Axis] = Position[Axis];
        PlacedOrientation[Axis] = Orientation[Axis];
    }
    PlacedOrientation[3] = Orientation[3];

    real32 Length =
        std::sqrt(PlacedOrientation[0] * PlacedOrientation[0] + PlacedOrientation[1] * PlacedOrientation[1] +
                  PlacedOrientation[2] * PlacedOrientation[2] + PlacedOrientation[3] * PlacedOrientation[3]);
    if (Length < 0.0001f) {
        PlacedOrientation[0] = PlacedOrientation[1] = PlacedOrientation[2] = 0.0f;
        PlacedOrientation[3] = 1.0f;
    } else {
        for (int32 Component = 0; Component < 4; ++Component) PlacedOrientation[Component] /= Length;
    }
    real32 const Identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    SetTransform(*Result, PlacedPosition, PlacedOrientation, Identity);
}

bool ExportSkeleton(scene_export_state *State, tool_model *Model)
{
    CheckPointer(State, LogCategory_Exporter, false);
    CheckPointer(Model, LogCategory_Exporter, false);
    tool_interface *Tool = State->Tool;

    // Room for every node; only the included ones are added.
    skeleton_builder *Builder = BeginSkeleton(Model->NodeCount);
    if (!Builder) return false;

    int32 Index = 0;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsBoneIncluded(Node->Settings)) continue;
        Node->BoneIndex = Index++;
        transform Local, World;
        GetNodeTransforms(Tool, Node, &Local, &World);
        AddBoneWithInverse(Builder, Local.Position, Local.Orientation, &Local.ScaleShear[0][0], World.Position,
                           World.Orientation, &World.ScaleShear[0][0]);
    }
    // A left-out parent still has BoneIndex -1: its children become roots.
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsBoneIncluded(Node->Settings)) continue;
        tool_node *Parent = GetNodeParent(Tool, Node);
        SetBoneParent(Builder, Node->BoneIndex, Parent ? Parent->BoneIndex : -1);
    }

    int32 RemappingCount = Model->NodeCount > 0 ? Model->NodeCount : 1;
    int32 *Remapping = TesselAllocateArray(int32, RemappingCount);
    int32 Size = GetResultingSkeletonSize(Builder);
    void *Memory = (Remapping && Size > 0) ? ArenaAllocate(State->Arena, Size) : 0;
    skeleton *Skeleton = 0;
    if (Memory) {
        for (int32 Entry = 0; Entry < RemappingCount; ++Entry) Remapping[Entry] = -1;
        Skeleton = EndSkeletonInPlace(Builder, Memory, Remapping);
    } else {
        AbandonSkeleton(Builder);
    }

    char const *Name = GetToolModelName(Tool, Model, State->Strings);
    if (!Skeleton) {
        TesselWarning(LogCategory_Exporter, "Skeleton %s stored by reference only", Name ? Name : "");
    } else {
        Model->Skeleton = Skeleton;
        AddSkeleton(State, Skeleton);
        Skeleton->Name = (char *)Name;
        NameBones(State, Model, Skeleton, Remapping);
    }
    if (Remapping) TesselFree(Remapping);
    return Skeleton != 0;
}

bool ExportModel(scene_export_state *State, tool_model *Model)
{
    CheckPointer(State, LogCategory_Exporter, false);
    CheckPointer(Model, LogCategory_Exporter, false);
    model *Result = ArenaPush<model>(State->Arena);
    if (!Result) return false;
    ClearObject(ModelType, Result);
    AddModel(State, Result);
    Result->Name = (char *)GetToolModelName(State->Tool, Model, State->Strings);
    Result->Skeleton = Model->Skeleton;

    if (GetSettingBool(Model->Settings, SettingId_MoveToOrigin)) {
        skeleton *Skeleton = Model->Skeleton;
        if (Skeleton && Skeleton->BoneCount > 0) {
            // The first bone in the skeleton's final order moves to the
            // origin and the placement moves it back; other roots stay.
            bone &First = Skeleton->Bones[0];
            MakeInitialPlacement(Model->Settings, First.Transform.Position, First.Transform.Orientation,
                                 &Result->InitialPlacement);
            RemovePlacement(Result->InitialPlacement, First.Transform);
        } else if (Model->FirstNode) {
            transform Local, World;
            GetNodeTransforms(State->Tool, Model->FirstNode, &Local, &World);
            MakeInitialPlacement(Model->Settings, Local.Position, Local.Orientation, &Result->InitialPlacement);
        }
    }

    if (IsDataIncluded(Model->Settings) && Model->MeshCount > 0) {
        model_mesh_binding *Bindings = ArenaPush<model_mesh_binding>(State->Arena, Model->MeshCount);
        if (!Bindings) return false;
        int32 Count = 0;
        for (tool_mesh *Mesh = Model->FirstMesh; Mesh; Mesh = Mesh->NextInModel) {
            if (Mesh->FileMesh && Count < Model->MeshCount) Bindings[Count++].Mesh = Mesh->FileMesh;
        }
        Result->MeshBindingCount = Count;
        Result->MeshBindings = Count > 0 ? Bindings : 0;
    }
    return true;
}
