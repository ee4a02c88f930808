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

tool_node *GetSkeletonParent(tool_interface *Tool, tool_node *Node)
{
    tool_node *Parent = Node ? GetNodeParent(Tool, Node) : 0;
    if (!Parent || Parent->Model != Node->Model || !IsBoneIncluded(Parent->Settings)) return 0;
    return Parent;
}

void GetNodeBindTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, transform *Result)
{
    CheckPointer(Result, LogCategory_Exporter, TESSEL_NOTHING);
    real32 Position[3] = {0, 0, 0}, Orientation[4] = {0, 0, 0, 1};
    real32 ScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (!SampleNodeBindTransform(Tool, Node, Parent, Position, Orientation, ScaleShear)) {
        // A tool without a bind pose of its own: its transforms at the
        // current time, local below a parent, world for a root.
        real32 WorldPosition[3] = {0, 0, 0}, WorldOrientation[4] = {0, 0, 0, 1};
        real32 WorldScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        SampleNodeTransform(Tool, Node, Position, Orientation, ScaleShear, WorldPosition, WorldOrientation,
                            WorldScaleShear);
        if (!Parent) {
            SetTransform(*Result, WorldPosition, WorldOrientation, WorldScaleShear);
            return;
        }
    }
    SetTransform(*Result, Position, Orientation, ScaleShear);
}

void TransformToMatrix4x4(transform const &Transform, real64 *Matrix)
{
    real64 X = Transform.Orientation[0], Y = Transform.Orientation[1], Z = Transform.Orientation[2],
           W = Transform.Orientation[3];
    real64 Length = std::sqrt(X * X + Y * Y + Z * Z + W * W);
    if (Length > 0.0) {
        X /= Length;
        Y /= Length;
        Z /= Length;
        W /= Length;
    } else {
        W = 1.0;
    }
    real64 const Rotation[3][3] = {{1 - 2 * (Y * Y + Z * Z), 2 * (X * Y - Z * W), 2 * (X * Z + Y * W)},
                                   {2 * (X * Y + Z * W), 1 - 2 * (X * X + Z * Z), 2 * (Y * Z - X * W)},
                                   {2 * (X * Z - Y * W), 2 * (Y * Z + X * W), 1 - 2 * (X * X + Y * Y)}};
    // Column-vector linear part R S, stored transposed for row vectors.
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            real64 Sum = 0.0;
            for (int32 K = 0; K < 3; ++K) Sum += Rotation[Row][K] * (real64)Transform.ScaleShear[K][Column];
            Matrix[Column * 4 + Row] = Sum;
        }
    }
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Matrix[Axis * 4 + 3] = 0.0;
        Matrix[12 + Axis] = Transform.Position[Axis];
    }
    Matrix[15] = 1.0;
}

bool InvertAffine4x4(real64 const *M, real64 *Result)
{
    real64 Determinant =
        M[0] * (M[5] * M[10] - M[6] * M[9]) - M[1] * (M[4] * M[10] - M[6] * M[8]) + M[2] * (M[4] * M[9] - M[5] * M[8]);
    for (int32 Index = 0; Index < 16; ++Index) Result[Index] = (Index % 5 == 0) ? 1.0 : 0.0;
    if (Determinant == 0.0 || !std::isfinite(Determinant)) return false;
    real64 Factor = 1.0 / Determinant;
    Result[0] = (M[5] * M[10] - M[6] * M[9]) * Factor;
    Result[1] = (M[2] * M[9] - M[1] * M[10]) * Factor;
    Result[2] = (M[1] * M[6] - M[2] * M[5]) * Factor;
    Result[4] = (M[6] * M[8] - M[4] * M[10]) * Factor;
    Result[5] = (M[0] * M[10] - M[2] * M[8]) * Factor;
    Result[6] = (M[2] * M[4] - M[0] * M[6]) * Factor;
    Result[8] = (M[4] * M[9] - M[5] * M[8]) * Factor;
    Result[9] = (M[1] * M[8] - M[0] * M[9]) * Factor;
    Result[10] = (M[0] * M[5] - M[1] * M[4]) * Factor;
    for (int32 Column = 0; Column < 3; ++Column) {
        Result[12 + Column] = -(M[12] * Result[Column] + M[13] * Result[4 + Column] + M[14] * Result[8 + Column]);
    }
    return true;
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

    // Rest locals relative to each bone's skeleton parent, then the inverse
    // of the composition of exactly what is stored, so that a runtime that
    // composes the locals finds the identity at rest.
    int32 Capacity = Model->NodeCount > 0 ? Model->NodeCount : 1;
    transform *Locals = TesselAllocateArray(transform, Capacity);
    int32 *Parents = TesselAllocateArray(int32, Capacity);
    real64 *Worlds = TesselAllocateArray(real64, 16 * Capacity);
    int8 *Composed = TesselAllocateArray(int8, Capacity);
    int32 *Chain = TesselAllocateArray(int32, Capacity);
    if (!Locals || !Parents || !Worlds || !Composed || !Chain) {
        TesselFree(Chain);
        TesselFree(Locals);
        TesselFree(Parents);
        TesselFree(Worlds);
        TesselFree(Composed);
        AbandonSkeleton(Builder);
        TesselError(LogCategory_Exporter, "Out of memory for the bones of skeleton %s",
                    GetToolModelName(Tool, Model, State->Strings));
        return false;
    }
    int32 Count = 0;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsBoneIncluded(Node->Settings) || Count >= Capacity) continue;
        Node->BoneIndex = Count++;
    }
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsBoneIncluded(Node->Settings) || Node->BoneIndex < 0) continue;
        tool_node *Parent = GetSkeletonParent(Tool, Node);
        Parents[Node->BoneIndex] = Parent ? Parent->BoneIndex : -1;
        GetNodeBindTransform(Tool, Node, Parent, &Locals[Node->BoneIndex]);
        Composed[Node->BoneIndex] = 0;
    }
    for (int32 Bone = 0; Bone < Count; ++Bone) {
        // The chain of ancestors not composed yet, then compose it from the
        // top down. The
        // scene tree has no cycles; the count bounds the walk all the same.
        int32 Length = 0;
        for (int32 Walk = Bone; Walk >= 0 && !Composed[Walk] && Length < Count; Walk = Parents[Walk]) {
            Chain[Length++] = Walk;
        }
        while (Length > 0) {
            int32 Top = Chain[--Length];
            real64 Matrix[16];
            TransformToMatrix4x4(Locals[Top], Matrix);
            real64 *World = &Worlds[16 * Top];
            int32 Parent = Parents[Top];
            if (Parent >= 0 && Composed[Parent]) {
                real64 const *ParentWorld = &Worlds[16 * Parent];
                for (int32 Row = 0; Row < 4; ++Row) {
                    for (int32 Column = 0; Column < 4; ++Column) {
                        real64 Sum = 0.0;
                        for (int32 K = 0; K < 4; ++K) Sum += Matrix[Row * 4 + K] * ParentWorld[K * 4 + Column];
                        World[Row * 4 + Column] = Sum;
                    }
                }
            } else {
                memcpy(World, Matrix, sizeof(Matrix));
            }
            Composed[Top] = 1;
        }
    }
    for (int32 Bone = 0; Bone < Count; ++Bone) {
        real64 Inverse[16];
        if (!InvertAffine4x4(&Worlds[16 * Bone], Inverse)) {
            TesselWarning(LogCategory_Exporter, "Bone %d of skeleton %s has a singular world matrix", Bone,
                          GetToolModelName(Tool, Model, State->Strings));
        }
        real32 Stored[16];
        for (int32 Element = 0; Element < 16; ++Element) Stored[Element] = (real32)Inverse[Element];
        transform const &Local = Locals[Bone];
        AddBone(Builder, Local.Position, Local.Orientation, &Local.ScaleShear[0][0], Stored);
    }
    // A left-out parent still has BoneIndex -1: its children become roots.
    for (int32 Bone = 0; Bone < Count; ++Bone) SetBoneParent(Builder, Bone, Parents[Bone]);
    TesselFree(Locals);
    TesselFree(Parents);
    TesselFree(Worlds);
    TesselFree(Composed);
    TesselFree(Chain);

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
