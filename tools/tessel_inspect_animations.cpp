#include "tessel_inspect_animations.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "animation/tessel_curve.h"
#include "animation/tessel_track_group.h"
#include "format/tessel_file_format.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_transform.h"

namespace {

double Clean(double Value)
{
    return std::fabs(Value) < 5e-7 ? 0.0 : Value;
}

std::string Number(double Value)
{
    char Buffer[48];
    snprintf(Buffer, sizeof(Buffer), "%.7g", Clean(Value));
    return Buffer;
}

std::string List(real32 const *Values, int Count, bool Json)
{
    std::string Text = Json ? "[" : "(";
    for (int Index = 0; Index < Count; ++Index) Text += (Index ? ", " : "") + Number(Values[Index]);
    return Text + (Json ? "]" : ")");
}

std::string Quote(char const *Text)
{
    std::string Result = "\"";
    for (char const *C = Text ? Text : ""; *C; ++C) {
        unsigned char Byte = (unsigned char)*C;
        if (Byte == '"' || Byte == '\\') {
            Result += '\\';
            Result += *C;
        } else if (Byte < 0x20) {
            char Escape[8];
            snprintf(Escape, sizeof(Escape), "\\u%04x", Byte);
            Result += Escape;
        } else {
            Result += *C;
        }
    }
    return Result + "\"";
}

file_info const *RootOf(loaded_file const &File)
{
    if (File.Header.TypeTag != (uint32)TesselStandardFileTypeTag) return 0;
    return (file_info const *)GetLoadedFileRootObjectOfType(File, FileInfoType);
}

std::string CurveText(curve2 const &Curve, bool Json)
{
    int32 Format = CurveGetFormat(Curve);
    bool Present = Curve.CurveData.Object && Format >= 0 && Format < CurveFormatCount;
    char const *Name = Present ? CurveFormatOperations[Format].Name : "none";
    int32 Degree = Present ? CurveGetDegree(Curve) : 0;
    int32 Knots = Present ? CurveGetKnotCount(Curve) : 0;
    int32 Bytes = Present && !CurveIsIdentity(Curve) ? GetCurveSize(Curve) - (int32)sizeof(curve2) : 0;
    char Buffer[160];
    if (Json) {
        snprintf(Buffer, sizeof(Buffer), "{\"Format\": \"%s\", \"Degree\": %d, \"Knots\": %d, \"Bytes\": %d}", Name,
                 Degree, Knots, Bytes);
    } else {
        snprintf(Buffer, sizeof(Buffer), "%s degree %d, %d knots, %d bytes", Name, Degree, Knots, Bytes);
    }
    return Buffer;
}

std::string TransformText(transform const &T, bool Json)
{
    if (Json) {
        return "{\"Position\": " + List(T.Position, 3, true) + ", \"Orientation\": " + List(T.Orientation, 4, true) +
               ", \"ScaleShear\": " + List(&T.ScaleShear[0][0], 9, true) + "}";
    }
    return "position " + List(T.Position, 3, false) + "  orientation " + List(T.Orientation, 4, false) +
           "  scale/shear " + List(&T.ScaleShear[0][0], 9, false);
}

std::string GroupFlagsText(track_group const &Group)
{
    uint32 Flags = 0, Mask = 0;
    GetTrackGroupFlags(Group, &Flags, &Mask);
    std::string Text;
    if (Flags & TrackGroup_SortedByName) Text += " sorted";
    if (Flags & TrackGroup_ConstantMotionExtraction) Text += " CME";
    if (Flags & TrackGroup_VariableDeltaAccumulation) Text += " VDA";
    char Buffer[48];
    snprintf(Buffer, sizeof(Buffer), " (0x%x, motion mask 0x%x)", Flags, Mask);
    return (Text.empty() ? std::string(" none") : Text) + Buffer;
}

// The skeleton of the model a group animates: the model of the same name.
skeleton const *SkeletonOf(file_info const &Info, track_group const &Group)
{
    for (int32 Index = 0; Index < Info.ModelCount; ++Index) {
        model const *Model = Info.Models[Index];
        if (Model && Model->Name && Group.Name && strcmp(Model->Name, Group.Name) == 0) return Model->Skeleton;
    }
    return 0;
}

void Matrix(transform const &T, real32 *M)
{
    BuildCompositeTransform4x4(T, M);
}

// A transform from a row-vector 4x4 matrix: translation, the rotation of
// its linear part (polar, by iteration) and the rest as scale/shear.
void TransformFromMatrix(real32 const *M, transform &Result)
{
    double A[3][3];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) A[r][c] = M[c * 4 + r]; // column-vector linear part
    double Q[3][3];
    memcpy(Q, A, sizeof(Q));
    for (int Iteration = 0; Iteration < 30; ++Iteration) {
        double Det = Q[0][0] * (Q[1][1] * Q[2][2] - Q[1][2] * Q[2][1]) -
                     Q[0][1] * (Q[1][0] * Q[2][2] - Q[1][2] * Q[2][0]) +
                     Q[0][2] * (Q[1][0] * Q[2][1] - Q[1][1] * Q[2][0]);
        if (std::fabs(Det) < 1e-30) break;
        double InverseTranspose[3][3];
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) {
                int r1 = (r + 1) % 3, r2 = (r + 2) % 3, c1 = (c + 1) % 3, c2 = (c + 2) % 3;
                InverseTranspose[r][c] = (Q[r1][c1] * Q[r2][c2] - Q[r1][c2] * Q[r2][c1]) / Det;
            }
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) Q[r][c] = 0.5 * (Q[r][c] + InverseTranspose[r][c]);
    }
    real32 Rotation[9];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) Rotation[r * 3 + c] = (real32)Q[r][c];
    // Quaternion of the rotation matrix (column vectors).
    real32 q[4];
    real32 Trace = Rotation[0] + Rotation[4] + Rotation[8];
    if (Trace > 0) {
        real32 s = std::sqrt(Trace + 1.0f) * 2.0f;
        q[3] = 0.25f * s;
        q[0] = (Rotation[7] - Rotation[5]) / s;
        q[1] = (Rotation[2] - Rotation[6]) / s;
        q[2] = (Rotation[3] - Rotation[1]) / s;
    } else if (Rotation[0] > Rotation[4] && Rotation[0] > Rotation[8]) {
        real32 s = std::sqrt(1.0f + Rotation[0] - Rotation[4] - Rotation[8]) * 2.0f;
        q[3] = (Rotation[7] - Rotation[5]) / s;
        q[0] = 0.25f * s;
        q[1] = (Rotation[1] + Rotation[3]) / s;
        q[2] = (Rotation[2] + Rotation[6]) / s;
    } else if (Rotation[4] > Rotation[8]) {
        real32 s = std::sqrt(1.0f + Rotation[4] - Rotation[0] - Rotation[8]) * 2.0f;
        q[3] = (Rotation[2] - Rotation[6]) / s;
        q[0] = (Rotation[1] + Rotation[3]) / s;
        q[1] = 0.25f * s;
        q[2] = (Rotation[5] + Rotation[7]) / s;
    } else {
        real32 s = std::sqrt(1.0f + Rotation[8] - Rotation[0] - Rotation[4]) * 2.0f;
        q[3] = (Rotation[3] - Rotation[1]) / s;
        q[0] = (Rotation[2] + Rotation[6]) / s;
        q[1] = (Rotation[5] + Rotation[7]) / s;
        q[2] = 0.25f * s;
    }
    NormalizeQuaternion(q);
    // ScaleShear = R^t A.
    real32 ScaleShear[9];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) {
            double Sum = 0;
            for (int k = 0; k < 3; ++k) Sum += Q[k][r] * A[k][c];
            ScaleShear[r * 3 + c] = (real32)Sum;
        }
    real32 Position[3] = {M[12], M[13], M[14]};
    SetTransform(Result, Position, q, ScaleShear);
}

} // namespace

std::string DescribeAnimations(loaded_file const &File, bool Json)
{
    file_info const *Info = RootOf(File);
    if (!Info) return "";
    std::string Out = Json ? "[" : "\nAnimations: " + std::to_string(Info->AnimationCount);
    for (int32 A = 0; A < Info->AnimationCount; ++A) {
        animation const *Animation = Info->Animations[A];
        if (!Animation) continue;
        if (Json) {
            Out += std::string(A ? ", " : "") + "{\"Name\": " + Quote(Animation->Name) +
                   ", \"Duration\": " + Number(Animation->Duration) + ", \"TimeStep\": " + Number(Animation->TimeStep) +
                   ", \"Oversampling\": " + Number(Animation->Oversampling) + ", \"TrackGroups\": [";
        } else {
            Out += "\n  " + Quote(Animation->Name) + ": duration " + Number(Animation->Duration) + " s, time step " +
                   Number(Animation->TimeStep) + " s, oversampling " + Number(Animation->Oversampling) + ", " +
                   std::to_string(Animation->TrackGroupCount) + " track group" +
                   (Animation->TrackGroupCount == 1 ? "" : "s");
        }
        for (int32 G = 0; G < Animation->TrackGroupCount; ++G) {
            track_group const *Group = Animation->TrackGroups[G];
            if (!Group) continue;
            uint32 Flags = 0, Mask = 0;
            GetTrackGroupFlags(*Group, &Flags, &Mask);
            if (Json) {
                Out += std::string(G ? ", " : "") + "{\"Name\": " + Quote(Group->Name) +
                       ", \"InitialPlacement\": " + TransformText(Group->InitialPlacement, true) +
                       ", \"LoopTranslation\": " + List(Group->LoopTranslation, 3, true) +
                       ", \"Flags\": " + std::to_string(Flags) + ", \"MotionMask\": " + std::to_string(Mask) +
                       ", \"PeriodicLoop\": " + (Group->PeriodicLoop ? "true" : "false") +
                       ", \"VectorTracks\": " + std::to_string(Group->VectorTrackCount) +
                       ", \"TextTracks\": " + std::to_string(Group->TextTrackCount) + ", \"TransformTracks\": [";
            } else {
                Out += "\n    group " + Quote(Group->Name) + ": " + std::to_string(Group->TransformTrackCount) +
                       " transform, " + std::to_string(Group->VectorTrackCount) + " vector, " +
                       std::to_string(Group->TextTrackCount) + " text tracks; flags" + GroupFlagsText(*Group);
                Out += "\n      placement " + TransformText(Group->InitialPlacement, false);
                Out += "\n      loop translation " + List(Group->LoopTranslation, 3, false) +
                       (Group->PeriodicLoop ? ", periodic loop" : "");
            }
            for (int32 T = 0; T < Group->TransformTrackCount; ++T) {
                transform_track const &Track = Group->TransformTracks[T];
                if (Json) {
                    Out += std::string(T ? ", " : "") + "{\"Name\": " + Quote(Track.Name) +
                           ", \"Flags\": " + std::to_string(Track.Flags) +
                           ", \"Position\": " + CurveText(Track.PositionCurve, true) +
                           ", \"Orientation\": " + CurveText(Track.OrientationCurve, true) +
                           ", \"ScaleShear\": " + CurveText(Track.ScaleShearCurve, true) + "}";
                } else {
                    Out += "\n      track " + Quote(Track.Name) + (Track.Flags ? " (neighborhood)" : "");
                    Out += "\n        position    " + CurveText(Track.PositionCurve, false);
                    Out += "\n        orientation " + CurveText(Track.OrientationCurve, false);
                    Out += "\n        scale/shear " + CurveText(Track.ScaleShearCurve, false);
                }
            }
            if (Json) Out += "]}";
        }
        if (Json) Out += "]}";
    }
    if (Json) Out += "]";
    return Out;
}

std::string SampleAnimations(loaded_file const &File, double Time, bool Json)
{
    file_info const *Info = RootOf(File);
    if (!Info) return "";
    std::string Out = Json ? "{\"Time\": " + Number(Time) + ", \"Animations\": [" : "Pose at " + Number(Time) + " s";
    for (int32 A = 0; A < Info->AnimationCount; ++A) {
        animation const *Animation = Info->Animations[A];
        if (!Animation) continue;
        real32 t = (real32)Time;
        if (t > Animation->Duration) t = Animation->Duration;
        if (t < 0) t = 0;
        if (Json) {
            Out += std::string(A ? ", " : "") + "{\"Name\": " + Quote(Animation->Name) + ", \"TrackGroups\": [";
        } else {
            Out += "\n" + Quote(Animation->Name) + " at " + Number(t) + " s";
        }
        for (int32 G = 0; G < Animation->TrackGroupCount; ++G) {
            track_group const *Group = Animation->TrackGroups[G];
            if (!Group) continue;
            skeleton const *Skeleton = SkeletonOf(*Info, *Group);
            if (Json) {
                Out += std::string(G ? ", " : "") + "{\"Name\": " + Quote(Group->Name) + ", \"Bones\": [";
            } else {
                Out += "\n  group " + Quote(Group->Name) + (Skeleton ? "" : " (no skeleton of that name)");
            }
            int32 BoneCount = Skeleton ? Skeleton->BoneCount : 0;
            std::vector<real32> Worlds((size_t)(BoneCount > 0 ? BoneCount : 0) * 16);
            real32 Placement[16];
            Matrix(Group->InitialPlacement, Placement);
            for (int32 B = 0; B < BoneCount; ++B) {
                bone const &Bone = Skeleton->Bones[B];
                transform Local = Bone.Transform;
                int32 TrackIndex = -1;
                bool Animated = FindTrackByName(Group, Bone.Name, TrackIndex);
                if (Animated) SampleTransformTrack(Group->TransformTracks[TrackIndex], Animation->Duration, t, Local);
                real32 LocalMatrix[16];
                Matrix(Local, LocalMatrix);
                int32 Parent = Bone.ParentIndex;
                real32 const *ParentWorld = Parent >= 0 && Parent < B ? &Worlds[(size_t)Parent * 16] : Placement;
                // Row vectors: the local applies first.
                MatrixMultiply4x4(LocalMatrix, ParentWorld, &Worlds[(size_t)B * 16]);
                transform World;
                TransformFromMatrix(&Worlds[(size_t)B * 16], World);
                if (Json) {
                    Out += std::string(B ? ", " : "") + "{\"Name\": " + Quote(Bone.Name) +
                           ", \"Animated\": " + (Animated ? "true" : "false") +
                           ", \"Local\": " + TransformText(Local, true) + ", \"World\": " + TransformText(World, true) +
                           ", \"WorldMatrix\": " + List(&Worlds[(size_t)B * 16], 16, true) + "}";
                } else {
                    Out += "\n    [" + std::to_string(B) + "] " + Quote(Bone.Name) + (Animated ? "" : " (rest)");
                    Out += "\n      local " + TransformText(Local, false);
                    Out += "\n      world " + TransformText(World, false);
                }
            }
            if (Json) Out += "]}";
        }
        if (Json) Out += "]}";
    }
    if (Json) Out += "]}";
    return Out + "\n";
}
