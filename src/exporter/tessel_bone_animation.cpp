// The stage that samples one animation's bones: every included bone's
// local transform at every sample time, the root treatments, one curve
// fitting job per stream on the worker threads, and the track groups.
#include "exporter/tessel_export_stages.h"

#include "animation/tessel_bspline_solver.h"
#include "animation/tessel_compression_queue.h"
#include "animation/tessel_root_motion.h"
#include "animation/tessel_track_group.h"
#include "animation/tessel_track_group_builder.h"
#include "animation/tessel_track_group_sampler.h"
#include "exporter/tessel_bone_animation_budget.h"
#include "exporter/tessel_export_progress.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "exporter/tessel_tool_interface.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "geometry/tessel_transform.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

#include <cstring>

namespace {

// One row per model of the graph.
struct model_row
{
    tool_model *Model;
    track_group_sampler *Sampler;
    real32 LoopTranslation[3];
    periodic_loop PeriodicLoop;
    bool HasPeriodicLoop;
    transform InitialPlacement;
    tool_node *Root;
    int32 VectorTrackCount;
    real32 **VectorBuffers; // one per vector source, null when not sampled
    int32 *VectorDimensions;
};

struct timing
{
    int32 Oversampling;
    int32 FrameCount;
    int32 IntervalCount;
    int32 SampleCount;
    real32 SecondsPerFrame;
    real32 TimeStep;
    bool DontOversampleVectors;
    int32 VectorSampleCount;
    real32 VectorTimeStep;
};

bool IsTrackIncluded(tool_node const *Node)
{
    return IsDataIncluded(Node->TrackSettings);
}

// The bone of smallest depth, the last of equals in bone order.
tool_node *FindRootBone(tool_interface *Tool, tool_model *Model)
{
    tool_node *Root = 0;
    int32 SmallestDepth = 65536;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        int32 Depth = GetNodeDepth(Tool, Node);
        if (Depth < 65536 && Depth <= SmallestDepth) {
            SmallestDepth = Depth;
            Root = Node;
        }
    }
    return Root;
}

timing ComputeTiming(tool_interface *Tool, tool_animation *Animation)
{
    timing T = {};
    T.Oversampling = GetSettingInt(Animation->Settings, SettingId_Oversampling);
    if (T.Oversampling < 1) T.Oversampling = 1;
    if (T.Oversampling > 8) T.Oversampling = 8;
    T.FrameCount = GetAnimationFrameCount(Tool, Animation);
    if (T.FrameCount < 0) T.FrameCount = 0;
    T.IntervalCount = T.FrameCount * T.Oversampling;
    T.SampleCount = T.IntervalCount + 1;
    T.SecondsPerFrame = GetSecondsPerFrame(Tool);
    T.TimeStep = T.SecondsPerFrame / (real32)T.Oversampling;
    T.DontOversampleVectors = GetSettingBool(Animation->Settings, SettingId_DontOversampleVectorTracks);
    T.VectorSampleCount = T.DontOversampleVectors ? T.FrameCount + 1 : T.SampleCount;
    T.VectorTimeStep = T.DontOversampleVectors ? T.SecondsPerFrame : T.TimeStep;
    return T;
}

void ReleaseRows(model_row *Rows, int32 ModelCount)
{
    if (!Rows) return;
    for (int32 m = 0; m < ModelCount; ++m) {
        EndSampledAnimation(Rows[m].Sampler);
        if (Rows[m].VectorBuffers) {
            for (int32 v = 0; v < Rows[m].VectorTrackCount; ++v) TesselFree(Rows[m].VectorBuffers[v]);
        }
        TesselFree(Rows[m].VectorBuffers);
        TesselFree(Rows[m].VectorDimensions);
    }
    TesselFree(Rows);
}

// Stage 1: a sampler for every included model, a buffer for every vector
// source. False when memory ran out.
bool PrepareRows(scene_export_state *State, timing const &T, model_row *Rows, int32 &MaxBoneCount,
                 int32 &MaxVectorCount, int32 &MaxVectorDimension, bool &AnythingToSample)
{
    tool_node_graph *Graph = State->Graph;
    int32 m = 0;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model), ++m) {
        model_row &Row = Rows[m];
        Row.Model = Model;
        real32 const Zero[3] = {0, 0, 0}, Identity4[4] = {0, 0, 0, 1}, Identity9[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        SetTransform(Row.InitialPlacement, Zero, Identity4, Identity9);
        if (Model->NodeCount > MaxBoneCount) MaxBoneCount = Model->NodeCount;
        if (IsDataIncluded(Model->TrackSettings)) {
            Row.Sampler = BeginSampledAnimation(Model->NodeCount, T.SampleCount);
            if (!Row.Sampler) return false;
        }
        for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
            if (IsTrackIncluded(Node)) AnythingToSample = true;
        }
        int32 VectorCount = 0;
        for (tool_track *Track = Model->FirstTrack; Track; Track = Track->NextInModel) ++VectorCount;
        Row.VectorTrackCount = VectorCount;
        if (VectorCount > MaxVectorCount) MaxVectorCount = VectorCount;
        if (VectorCount == 0) continue;
        Row.VectorBuffers = (real32 **)TesselAllocate(sizeof(real32 *) * (intaddrx)VectorCount);
        Row.VectorDimensions = (int32 *)TesselAllocate(sizeof(int32) * (intaddrx)VectorCount);
        if (!Row.VectorBuffers || !Row.VectorDimensions) return false;
        memset(Row.VectorBuffers, 0, sizeof(real32 *) * (size_t)VectorCount);
        int32 v = 0;
        for (tool_track *Track = Model->FirstTrack; Track; Track = Track->NextInModel, ++v) {
            // The tool reports the width of a source's samples; it is also
            // the key stored with the track.
            int32 Dimension = GetTrackDimension(State->Tool, Track);
            Row.VectorDimensions[v] = Dimension;
            if (Dimension < 1) continue;
            if (Dimension > MaxVectorDimension) MaxVectorDimension = Dimension;
            intaddrx Count = (intaddrx)T.VectorSampleCount * Dimension;
            Row.VectorBuffers[v] = (real32 *)TesselAllocate(sizeof(real32) * Count);
            if (!Row.VectorBuffers[v]) return false;
            memset(Row.VectorBuffers[v], 0, sizeof(real32) * (size_t)Count);
            AnythingToSample = true;
        }
    }
    return true;
}

// Stage 2: the tool's one current time walks the samples.
void SampleRows(scene_export_state *State, tool_animation *Animation, timing const &T, model_row *Rows,
                int32 ModelCount)
{
    tool_interface *Tool = State->Tool;
    // An empty range is sampled once, at its start: its one sample is the
    // pose there.
    int32 TimeDivisions = T.IntervalCount > 0 ? T.IntervalCount : 1;
    for (int32 s = 0; s < T.SampleCount; ++s) {
        SetAnimationSampleTime(Tool, Animation, s, TimeDivisions);
        for (int32 m = 0; m < ModelCount; ++m) {
            model_row &Row = Rows[m];
            if (Row.Sampler) {
                int32 TrackIndex = 0;
                for (tool_node *Node = Row.Model->FirstNode; Node; Node = Node->NextInModel) {
                    if (!IsTrackIncluded(Node)) continue;
                    real32 Position[3] = {0, 0, 0}, Orientation[4] = {0, 0, 0, 1};
                    real32 ScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
                    real32 WorldPosition[3], WorldOrientation[4], WorldScaleShear[9];
                    SampleNodeTransform(Tool, Node, Position, Orientation, ScaleShear, WorldPosition, WorldOrientation,
                                        WorldScaleShear);
                    SetTransformSample(Row.Sampler, TrackIndex++, Position, Orientation, ScaleShear);
                }
                AdvanceSampler(Row.Sampler);
            }
            if (!Row.VectorBuffers) continue;
            int32 v = s;
            if (T.DontOversampleVectors) {
                if (s % T.Oversampling != 0) continue;
                v = s / T.Oversampling;
            }
            int32 Index = 0;
            for (tool_track *Track = Row.Model->FirstTrack; Track; Track = Track->NextInModel, ++Index) {
                real32 *Buffer = Row.VectorBuffers[Index];
                if (Buffer) SampleTrack(Tool, Buffer + (intaddrx)v * Row.VectorDimensions[Index], Track, Animation);
            }
        }
    }
}

// The fitting parameters of one kind of stream from a settings node.
struct stream_settings
{
    int32 DegreeId, ToleranceId, JumpId, CreaseId;
    int32 AllowJumpsId, AllowCreasesId;
    bool Quaternion;
};

stream_settings const PositionSettings = {SettingId_PositionCurveType,
                                          SettingId_PositionCurveTolerance,
                                          SettingId_PositionJumpTolerance,
                                          SettingId_PositionCreaseTolerance,
                                          SettingId_AllowPositionJumps,
                                          SettingId_AllowPositionCreasing,
                                          false};
stream_settings const OrientationSettings = {SettingId_OrientationCurveType,
                                             SettingId_OrientationCurveTolerance,
                                             SettingId_OrientationJumpTolerance,
                                             SettingId_OrientationCreaseTolerance,
                                             SettingId_AllowOrientationJumps,
                                             SettingId_AllowOrientationCreasing,
                                             true};
stream_settings const ScaleShearSettings = {SettingId_ScaleShearCurveType,
                                            SettingId_ScaleShearCurveTolerance,
                                            SettingId_ScaleShearJumpTolerance,
                                            SettingId_ScaleShearCreaseTolerance,
                                            SettingId_AllowScaleShearJumps,
                                            SettingId_AllowScaleShearCreasing,
                                            false};
stream_settings const VectorSettings = {SettingId_VectorTrackCurveType,
                                        SettingId_VectorTrackCurveTolerance,
                                        SettingId_VectorTrackJumpTolerance,
                                        SettingId_VectorTrackCreaseTolerance,
                                        SettingId_AllowVectorTrackJumps,
                                        SettingId_AllowVectorTrackCreasing,
                                        false};

real32 ReadTolerance(settings_node const *Settings, int32 Id, bool Quaternion)
{
    real32 Value = GetSettingFloat(Settings, Id);
    return Quaternion ? QuaternionToleranceFromDegrees(Value) : Value;
}

compression_job MakeJob(settings_node const *Settings, stream_settings const &Stream, int32 Dimension, bool Normalized,
                        real32 *Samples, int32 SampleCount, real32 TimeStep)
{
    compression_job Job = {};
    Job.Samples = Samples;
    Job.SampleCount = SampleCount;
    Job.Dimension = Dimension;
    Job.TimeStep = TimeStep;
    Job.Compress = GetSettingBool(Settings, SettingId_CompressAnimationData) ? 1 : 0;
    Job.SolverFlags = BuildSolverFlags(Settings, Stream.AllowJumpsId, Stream.AllowCreasesId,
                                       SettingId_AggressiveAnimationCompression);
    if (Stream.Quaternion) Job.SolverFlags |= SolverNormalized;
    compress_curve_parameters &P = Job.Params;
    P.Degree = GetSettingInt(Settings, Stream.DegreeId);
    P.AllowReduction = GetSettingBool(Settings, SettingId_ReduceCurvesWherePossible) ? 1 : 0;
    P.AllowReductionOnMissedTolerance = GetSettingBool(Settings, SettingId_QuantOnMissedTolerance) ? 1 : 0;
    P.ErrorTolerance = ReadTolerance(Settings, Stream.ToleranceId, Stream.Quaternion);
    P.JumpThreshold = ReadTolerance(Settings, Stream.JumpId, Stream.Quaternion);
    P.CreaseThreshold = ReadTolerance(Settings, Stream.CreaseId, Stream.Quaternion);
    compression_types Types =
        SelectCompressionTypes(Dimension, Normalized, GetSettingBool(Settings, SettingId_UseQuantizedCurves));
    P.CompressionTypes = Types.Types;
    P.CompressionTypeCount = Types.Count;
    P.ConstantType = Types.ConstantType;
    P.IdentityType = Types.IdentityType;
    P.IdentityVector = Types.IdentityVector;
    return Job;
}

// Queues a job; false only when memory ran out (a job the workers could not
// fit is left out, and its curve with it).
bool QueueJob(compression_queue &Queue, compression_job const &Job)
{
    int64 Refused = GetFailedAllocationCount();
    return QueueCompressionJob(Queue, Job) || GetFailedAllocationCount() == Refused;
}

// Stage 3: root treatments and the jobs of every stream. False when a job
// could not be queued for want of memory.
bool QueueJobs(scene_export_state *State, timing const &T, real32 Duration, model_row *Rows, int32 ModelCount,
               compression_queue &Queue)
{
    tool_interface *Tool = State->Tool;
    for (int32 m = 0; m < ModelCount; ++m) {
        model_row &Row = Rows[m];
        tool_model *Model = Row.Model;
        settings_node const *ModelSettings = Model->TrackSettings;
        real32 PositionTolerance[3] = {GetSettingFloat(ModelSettings, SettingId_XPositionTolerance),
                                       GetSettingFloat(ModelSettings, SettingId_YPositionTolerance),
                                       GetSettingFloat(ModelSettings, SettingId_ZPositionTolerance)};
        real32 RotationTolerance[3] = {
            QuaternionToleranceFromDegrees(GetSettingFloat(ModelSettings, SettingId_XRotationTolerance)),
            QuaternionToleranceFromDegrees(GetSettingFloat(ModelSettings, SettingId_YRotationTolerance)),
            QuaternionToleranceFromDegrees(GetSettingFloat(ModelSettings, SettingId_ZRotationTolerance))};
        int32 RootMotion = GetSettingChoice(ModelSettings, SettingId_RootMotionType);
        bool MoveToOrigin = GetSettingBool(ModelSettings, SettingId_MoveToOrigin);
        Row.Root = FindRootBone(Tool, Model);

        int32 TrackIndex = 0;
        for (tool_node *Node = Model->FirstNode; Node && Row.Sampler; Node = Node->NextInModel) {
            if (!IsTrackIncluded(Node)) continue;
            int32 Index = TrackIndex++;
            real32 *Positions = GetPositionSamples(Row.Sampler, Index);
            real32 *Orientations = GetOrientationSamples(Row.Sampler, Index);
            real32 *ScaleShears = GetScaleShearSamples(Row.Sampler, Index);
            if (!Positions || !Orientations || !ScaleShears) continue;
            bool IsRoot = Node == Row.Root;
            if (IsRoot && MoveToOrigin) {
                RemoveInitialPlacement(T.SampleCount, Positions, Orientations, &Row.InitialPlacement);
            }
            EnsureQuaternionContinuity(T.SampleCount, Orientations);
            if (IsRoot && RootMotion == Choice_ConstantMotionExtractionCME) {
                Row.HasPeriodicLoop =
                    ExtractConstantMotion(Duration, T.SampleCount, Positions, Orientations, PositionTolerance,
                                          RotationTolerance, Row.LoopTranslation, &Row.PeriodicLoop);
            }
            settings_node const *Settings = Node->TrackSettings;
            compression_job Jobs[3] = {
                MakeJob(Settings, PositionSettings, 3, false, Positions, T.SampleCount, T.TimeStep),
                MakeJob(Settings, OrientationSettings, 4, true, Orientations, T.SampleCount, T.TimeStep),
                MakeJob(Settings, ScaleShearSettings, 9, false, ScaleShears, T.SampleCount, T.TimeStep)};
            Jobs[0].Name = GetNodeName(Tool, Node, State->Strings);
            for (int32 Kind = 0; Kind < 3; ++Kind) {
                Jobs[Kind].Model = m;
                Jobs[Kind].Kind = Kind;
                Jobs[Kind].TrackIndex = Index;
                if (!QueueJob(Queue, Jobs[Kind])) return false;
            }
        }

        int32 Ordinal = 0;
        for (tool_track *Track = Model->FirstTrack; Track; Track = Track->NextInModel, ++Ordinal) {
            real32 *Buffer = Row.VectorBuffers ? Row.VectorBuffers[Ordinal] : 0;
            if (!Buffer) continue;
            settings_node const *Settings = Track->Settings ? Track->Settings
                                            : Track->Model  ? Track->Model->TrackSettings
                                                            : 0;
            if (!Settings) continue;
            compression_job Job = MakeJob(Settings, VectorSettings, Row.VectorDimensions[Ordinal], false, Buffer,
                                          T.VectorSampleCount, T.VectorTimeStep);
            Job.SolverFlags =
                BuildSolverFlags(Settings, SettingId_AllowVectorTrackJumps, SettingId_AllowVectorTrackCreasing,
                                 SettingId_AggressiveAnimationCompression);
            // A vector track is never an identity curve.
            Job.Params.IdentityType = 0;
            Job.Params.IdentityVector = 0;
            Job.Model = m;
            Job.Kind = CompressionKind_Vector;
            Job.TrackIndex = Ordinal;
            if (!QueueJob(Queue, Job)) return false;
        }
    }
    return true;
}

bool EndsWithVisibility(char const *Name)
{
    static char const Suffix[] = "_visibility";
    int32 Length = Name ? StringLength(Name) : 0;
    int32 SuffixLength = (int32)sizeof(Suffix) - 1;
    return Length >= 12 && StringsAreExactlyEqual(Name + Length - SuffixLength, Suffix);
}

// Text tracks of one bone; true if it had any.
bool AddTextTracks(scene_export_state *State, track_group_builder *Builder, tool_node *Node)
{
    tool_interface *Tool = State->Tool;
    bool HadText = false;
    int32 TrackCount = GetNodeTextTrackCount(Tool, Node);
    for (int32 Track = 0; Track < TrackCount; ++Track) {
        int32 EntryCount = GetNodeTextTrackEntryCount(Tool, Node, Track);
        if (EntryCount < 1) continue;
        HadText = true;
        BeginTextTrack(Builder, GetNodeName(Tool, Node, State->Strings));
        for (int32 Entry = 0; Entry < EntryCount; ++Entry) {
            real32 Time = 0.0f;
            char const *Text = GetNodeTextTrackEntry(Tool, Node, State->Arena, State->Strings, Track, Entry, &Time);
            if (Text) AddTextEntry(Builder, Time, Text);
        }
        EndTextTrack(Builder);
    }
    return HadText;
}

// Stage 4 for one model: its group, or null when it has nothing to hold or
// is not to be kept. False when memory ran out.
bool AssembleGroup(scene_export_state *State, model_row &Row, int32 m, compression_queue &Queue,
                   export_progress *Progress, track_group **Result)
{
    *Result = 0;
    tool_interface *Tool = State->Tool;
    tool_model *Model = Row.Model;
    settings_node const *ModelSettings = Model->TrackSettings;
    char const *Name = GetToolModelName(Tool, Model, State->Strings);
    bool ProtectConstant = GetSettingBool(ModelSettings, SettingId_ProtectConstantTracks);
    int32 RootMotion = GetSettingChoice(ModelSettings, SettingId_RootMotionType);

    track_group_builder *Builder = BeginTrackGroup(Name, 0, Model->NodeCount, Model->NodeCount, false);
    if (!Builder) return false;
    int32 TrackIndex = 0;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        if (!IsTrackIncluded(Node)) continue;
        int32 Index = TrackIndex++;
        char const *BoneName = GetNodeName(Tool, Node, State->Strings);
        // The bar moves as the bones' curves come in.
        if (Row.Sampler) {
            for (int32 Kind = 0; Kind < 3; ++Kind) {
                WaitForCompressionSlot(Queue, GetCompressionSlot(Queue, m, Kind, Index));
            }
        }
        StepProgress(Progress, BoneName);
        uint32 Flags = GetSettingBool(Node->TrackSettings, SettingId_UseAccumulatorNeighborhood) ? 1 : 0;
        bool HadText = AddTextTracks(State, Builder, Node);
        if (!Row.Sampler) continue;
        curve2 *Position = GetCompressionResult(Queue, m, CompressionKind_Position, Index);
        curve2 *Orientation = GetCompressionResult(Queue, m, CompressionKind_Orientation, Index);
        curve2 *ScaleShear = GetCompressionResult(Queue, m, CompressionKind_ScaleShear, Index);
        if (!HadText && !Position && !Orientation && !ScaleShear) continue;
        BeginTransformTrack(Builder, BoneName, Flags);
        if (Position) SetTransformTrackPositionCurve(Builder, *Position);
        if (Orientation) SetTransformTrackOrientationCurve(Builder, *Orientation);
        if (ScaleShear) SetTransformTrackScaleShearCurve(Builder, *ScaleShear);
        EndTransformTrack(Builder);
    }
    int32 Ordinal = 0;
    for (tool_track *Track = Model->FirstTrack; Track; Track = Track->NextInModel, ++Ordinal) {
        WaitForCompressionSlot(Queue, GetCompressionSlot(Queue, m, CompressionKind_Vector, Ordinal));
        curve2 *Curve = GetCompressionResult(Queue, m, CompressionKind_Vector, Ordinal);
        if (!Curve) continue;
        char const *TrackName = GetTrackName(Tool, Track, State->Strings);
        if (CurveGetKnotCount(*Curve) < 2 && !ProtectConstant && !IsTrackAlwaysKept(Tool, Track) &&
            !EndsWithVisibility(TrackName))
            continue;
        PushVectorTrackCurve(Builder, TrackName, (uint32)GetTrackDimension(Tool, Track), *Curve);
    }
    EndSampledAnimation(Row.Sampler);
    Row.Sampler = 0;

    int32 Size = GetResultingTrackGroupSize(Builder);
    void *Memory = Size > 0 ? ArenaAllocate(State->Arena, Size) : 0;
    track_group *Group = Memory ? EndTrackGroupInPlace(Builder, Memory) : EndTrackGroup(Builder, State->Arena);
    if (!Group) return false;
    memcpy(Group->LoopTranslation, Row.LoopTranslation, sizeof(Group->LoopTranslation));
    Group->InitialPlacement = Row.InitialPlacement;
    uint32 GroupFlags = 0, Mask = 0;
    GetTrackGroupFlags(*Group, &GroupFlags, &Mask);
    if (RootMotion == Choice_ConstantMotionExtractionCME) GroupFlags |= TrackGroup_ConstantMotionExtraction;
    if (RootMotion == Choice_VariableDeltaAccumulationVDA) {
        // The axes of the motion mask have no settings of their own in
        // this system's tree: the mask stays 0.
        GroupFlags |= TrackGroup_VariableDeltaAccumulation;
        Mask = 0;
    }
    SetTrackGroupFlags(*Group, GroupFlags, Mask);
    if (Row.HasPeriodicLoop) {
        Group->PeriodicLoop = (periodic_loop *)ArenaCopy(State->Arena, sizeof(periodic_loop), &Row.PeriodicLoop);
        if (!Group->PeriodicLoop) return false;
    }
    bool HasTracks = Group->VectorTrackCount > 0 || Group->TransformTrackCount > 0 || Group->TextTrackCount > 0;
    if (IsReferenceIncluded(ModelSettings) && HasTracks) *Result = Group;
    return true;
}

} // namespace

bool SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress)
{
    CheckPointer(State, LogCategory_Exporter, false);
    CheckPointer(Animation, LogCategory_Exporter, false);
    tool_interface *Tool = State->Tool;
    tool_node_graph *Graph = State->Graph;
    int32 ModelCount = Graph->ModelCount;

    // The steps of this animation: its two stages and each included bone.
    AddProgressTotal(Progress, GetAnimationProgressSteps(Tool, Animation, State));
    timing T = ComputeTiming(Tool, Animation);
    animation *Result = ArenaPush<animation>(State->Arena);
    if (!Result) return false;
    memset(Result, 0, sizeof(*Result));
    Result->Name = (char *)GetAnimationName(Tool, Animation, State->Strings);
    Result->Duration = T.TimeStep * (real32)T.IntervalCount;
    Result->TimeStep = T.TimeStep;
    Result->Oversampling = (real32)T.Oversampling;
    Result->TrackGroups = ModelCount > 0 ? ArenaPush<track_group *>(State->Arena, ModelCount) : 0;
    if (ModelCount > 0 && !Result->TrackGroups) return false;
    AddAnimation(State, Result);

    model_row *Rows = (model_row *)TesselAllocate(sizeof(model_row) * (intaddrx)(ModelCount > 0 ? ModelCount : 1));
    if (!Rows) return false;
    memset(Rows, 0, sizeof(model_row) * (size_t)(ModelCount > 0 ? ModelCount : 1));
    int32 MaxBoneCount = 0, MaxVectorCount = 0, MaxVectorDimension = 0;
    bool AnythingToSample = false;
    if (!PrepareRows(State, T, Rows, MaxBoneCount, MaxVectorCount, MaxVectorDimension, AnythingToSample)) {
        ReleaseRows(Rows, ModelCount);
        return false;
    }

    StepProgress(Progress, "Sampling bones");
    if (AnythingToSample) SampleRows(State, Animation, T, Rows, ModelCount);

    StepProgress(Progress, "Compressing bones");
    int32 TrackLimit = MaxBoneCount > MaxVectorCount ? MaxBoneCount : MaxVectorCount;
    int32 QueueSampleCount = T.SampleCount > T.VectorSampleCount ? T.SampleCount : T.VectorSampleCount;
    compression_queue *Queue = BeginCompressionQueue(QueueSampleCount, ModelCount, TrackLimit, MaxVectorDimension);
    if (!Queue) {
        ReleaseRows(Rows, ModelCount);
        return false;
    }
    bool Succeeded = QueueJobs(State, T, Result->Duration, Rows, ModelCount, *Queue);
    bool Started = Succeeded;
    if (Started && WantsBoneAnimationBudget(Animation)) {
        // The budget measures whole chains: every curve is fitted first.
        Succeeded = RunBoneAnimationBudget(State, Animation, Result->Name, T.SampleCount, T.TimeStep, *Queue);
    } else if (Started) {
        StartCompressionQueue(*Queue);
    }
    for (int32 m = 0; m < ModelCount && Succeeded; ++m) {
        track_group *Group = 0;
        Succeeded = AssembleGroup(State, Rows[m], m, *Queue, Progress, &Group);
        if (Group) {
            AddTrackGroup(State, Group);
            Result->TrackGroups[Result->TrackGroupCount++] = Group;
        }
    }
    if (Started) Succeeded = FinishCompressionQueue(*Queue) && Succeeded;
    EndCompressionQueue(Queue);
    ReleaseRows(Rows, ModelCount);
    return Succeeded;
}
