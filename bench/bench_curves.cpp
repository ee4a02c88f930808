// Curve fitting throughput on real motion capture. Each clip is read through
// the FBX reader; every bone's local position, orientation (quaternion) and
// scale is sampled at 2 samples per frame and each channel is fitted on one
// thread with the default bone track settings: degree 2, tolerances 0.01
// units, 0.1 degrees and 0.001, reduction and the missed-tolerance rule on,
// knot elimination off, the quantised formats of each channel kind allowed.
// Baseline: the raw samples (12 + 16 + 36 bytes per bone and sample).
// Seconds are the fitting thread's CPU time.
//
// usage: bench_curves [FILE.fbx ...]
#include <time.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "animation/tessel_compress_curve.h"
#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_node.h"
#include "fbx/fbx_tessel_scene.h"

namespace {

// CPU time of this thread: the machine may be shared, and the fit runs on
// one thread.
double Seconds()
{
    timespec Now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &Now);
    return (double)Now.tv_sec + 1e-9 * (double)Now.tv_nsec;
}

struct channel_kind
{
    char const *Name;
    int32 Dimension;
    uint32 Flags;
    real32 Tolerance;
    std::vector<data_type_definition *> Types;
    data_type_definition *ConstantType;
    std::vector<real32> Identity;
};

std::vector<channel_kind> BoneChannelKinds()
{
    uint32 const Flags = SolverSeedStartKnots | SolverPinEndpoints;
    return {
        {"position",
         3,
         Flags,
         0.01f,
         {CurveDataDaK32fC32fType, CurveDataD3I1K8uC8uType, CurveDataD3I1K16uC16uType, CurveDataD3K8uC8uType,
          CurveDataD3K16uC16uType, CurveDataD3I1K32fC32fType},
         CurveDataD3Constant32fType,
         {0, 0, 0}},
        {"orientation",
         4,
         Flags | SolverNormalized,
         QuaternionToleranceFromDegrees(0.1f),
         {CurveDataDaK32fC32fType, CurveDataD4nK8uC7uType, CurveDataD4nK16uC15uType},
         CurveDataD4Constant32fType,
         {0, 0, 0, 1}},
        {"scale/shear",
         9,
         Flags,
         0.001f,
         {CurveDataDaK32fC32fType, CurveDataD9I1K8uC8uType, CurveDataD9I3K8uC8uType, CurveDataDaK8uC8uType,
          CurveDataDaK16uC16uType, CurveDataD9I1K16uC16uType, CurveDataD9I3K16uC16uType},
         CurveDataDaConstant32fType,
         {1, 0, 0, 0, 1, 0, 0, 0, 1}},
    };
}

void CollectBones(KFbxNode *Node, std::vector<KFbxNode *> &Bones)
{
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index) {
        Bones.push_back(Node->GetChild(Index));
        CollectBones(Node->GetChild(Index), Bones);
    }
}

struct clip
{
    std::string Name;
    int32 BoneCount = 0;
    int32 SampleCount = 0;
    real32 TimeStep = 0.0f;
    // [kind][bone] sample streams.
    std::vector<std::vector<real32>> Streams[3];
};

bool SampleClip(char const *Path, clip &Clip)
{
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    bool Ok = Importer->Initialize(Path) && Importer->Import(Scene);
    Importer->Destroy();
    KStringArray Takes;
    if (Ok) Scene->FillTakeNameArray(Takes);
    // The first take of non-zero length.
    KFbxTakeInfo *Info = 0;
    for (int32 Index = 0; Ok && Index < Takes.GetCount() && !Info; ++Index) {
        KFbxTakeInfo *Take = Scene->GetTakeInfo(Takes[Index]);
        if (Take && Take->mLocalTimeSpan.GetDuration().Get() > 0) Info = Take;
    }
    if (!Info) {
        Manager->Destroy();
        return false;
    }
    Scene->SetCurrentTake(Info->GetName());
    int32 Mode = Scene->GetGlobalSettings().TimeMode;
    real64 FrameRate = Mode == FbxTimeMode_Custom ? Scene->GetGlobalSettings().CustomFrameRate
                                                  : KTime::GetFrameRate(Mode ? Mode : FbxTimeMode_30);
    if (!(FrameRate > 0.0)) FrameRate = 30.0;
    real64 Start = Info->mLocalTimeSpan.GetStart().GetSecondDouble();
    real64 Stop = Info->mLocalTimeSpan.GetStop().GetSecondDouble();
    int32 const FrameCount = (int32)std::lround((Stop - Start) * FrameRate);
    Clip.SampleCount = 2 * FrameCount + 1;
    Clip.TimeStep = (real32)(0.5 / FrameRate);

    std::vector<KFbxNode *> Bones;
    CollectBones(Scene->GetRootNode(), Bones);
    Clip.BoneCount = (int32)Bones.size();
    for (auto &Kind : Clip.Streams) Kind.assign(Bones.size(), {});
    for (int32 s = 0; s < Clip.SampleCount; ++s) {
        KTime Time;
        Time.SetSecondDouble(Start + s * 0.5 / FrameRate);
        for (size_t b = 0; b < Bones.size(); ++b) {
            AffineMatrix Global = Bones[b]->GetGlobalTransformAtTime(Time);
            KFbxNode *Parent = Bones[b]->GetParent();
            AffineMatrix Local = Global;
            if (Parent && Parent != Scene->GetRootNode()) {
                Local = Parent->GetGlobalTransformAtTime(Time).Inverse() * Global;
            }
            KFbxVector4 T = Local.GetT();
            KFbxQuaternion Q = Local.GetQ();
            KFbxVector4 S = Local.GetS();
            std::vector<real32> &Position = Clip.Streams[0][b];
            Position.insert(Position.end(), {(real32)T[0], (real32)T[1], (real32)T[2]});
            // Each quaternion takes the sign nearer to the one before.
            std::vector<real32> &Orientation = Clip.Streams[1][b];
            real32 q[4] = {(real32)Q[0], (real32)Q[1], (real32)Q[2], (real32)Q[3]};
            if (!Orientation.empty()) {
                real32 const *p = &Orientation[Orientation.size() - 4];
                if (p[0] * q[0] + p[1] * q[1] + p[2] * q[2] + p[3] * q[3] < 0.0f) {
                    for (real32 &c : q) c = -c;
                }
            }
            Orientation.insert(Orientation.end(), q, q + 4);
            std::vector<real32> &Scale = Clip.Streams[2][b];
            Scale.insert(Scale.end(), {(real32)S[0], 0, 0, 0, (real32)S[1], 0, 0, 0, (real32)S[2]});
        }
    }
    Manager->Destroy();
    return true;
}

struct fit_result
{
    double Seconds = 0.0;
    int64 Samples = 0;
    int64 Bytes = 0;
    int32 Channels = 0;
    int32 Missed = 0;
    real32 MaxError[3] = {0, 0, 0};
    real32 LaterRotation = 0.0f;              // orientation error from the second frame on
    uint64 Checksum = 1469598103934665603ull; // FNV-1a of every curve's bytes
};

// A curve's bytes with its internal addresses made relative, into the hash.
void HashCurve(curve2 const &Curve, uint64 &Hash)
{
    int32 Size = GetCurveSize(Curve);
    uint8 const *Base = (uint8 const *)&Curve;
    std::vector<uint8> Bytes(Base, Base + Size);
    memset(Bytes.data(), 0, sizeof(void *)); // the type's address changes from run to run
    for (int32 Offset = 0; Offset + 8 <= Size && Offset < 96; Offset += 4) {
        uintaddrx Value;
        memcpy(&Value, &Bytes[Offset], 8);
        if (Value >= (uintaddrx)Base && Value < (uintaddrx)(Base + Size)) {
            Value -= (uintaddrx)Base;
            memcpy(&Bytes[Offset], &Value, 8);
        }
    }
    for (uint8 Byte : Bytes) Hash = (Hash ^ Byte) * 1099511628211ull;
}

fit_result FitClip(clip const &Clip, std::vector<channel_kind> const &Kinds)
{
    fit_result Result;
    bspline_solver *Solver = AllocateBSplineSolver(3, Clip.SampleCount, 9);
    std::vector<curve2 *> Curves;
    double Start = Seconds();
    for (int32 k = 0; k < 3; ++k) {
        channel_kind const &Kind = Kinds[k];
        compress_curve_parameters Params = {};
        Params.Degree = 2;
        Params.AllowReduction = 1;
        Params.AllowReductionOnMissedTolerance = 1;
        Params.ErrorTolerance = Kind.Tolerance;
        Params.JumpThreshold = k == 1 ? QuaternionToleranceFromDegrees(10.0f) : (k == 0 ? 10.0f : 1.0f);
        Params.CreaseThreshold = Params.JumpThreshold;
        Params.CompressionTypes = (data_type_definition **)Kind.Types.data();
        Params.CompressionTypeCount = (int32)Kind.Types.size();
        Params.ConstantType = Kind.ConstantType;
        Params.IdentityType = CurveDataDaIdentityType;
        Params.IdentityVector = Kind.Identity.data();
        for (std::vector<real32> const &Samples : Clip.Streams[k]) {
            uint8 Achieved = 0;
            curve2 *Curve = CompressCurve(*Solver, Kind.Flags, Params, Samples.data(), Kind.Dimension, Clip.SampleCount,
                                          Clip.TimeStep, &Achieved);
            Curves.push_back(Curve);
            Result.Missed += Achieved ? 0 : 1;
        }
    }
    Result.Seconds = Seconds() - Start;
    // Sizes and errors, outside the timing.
    size_t Next = 0;
    for (int32 k = 0; k < 3; ++k) {
        for (std::vector<real32> const &Samples : Clip.Streams[k]) {
            curve2 *Curve = Curves[Next++];
            ++Result.Channels;
            Result.Samples += Clip.SampleCount;
            if (!Curve) continue;
            Result.Bytes += GetCurveSize(*Curve);
            HashCurve(*Curve, Result.Checksum);
            curve_error_report Report;
            MeasureCurveError(Kinds[k].Flags, 2, Kinds[k].Dimension, Clip.TimeStep * (Clip.SampleCount - 1), *Curve,
                              Clip.SampleCount, Samples.data(), Kinds[k].Identity.data(), &Report);
            real32 Error = sqrtf(Report.MaxSquaredError);
            if (k == 1) Error = (real32)(2.0 * acos(fmax(-1.0, fmin(1.0, 1.0 - Error))) * 180.0 / 3.14159265358979);
            if (Error > Result.MaxError[k]) Result.MaxError[k] = Error;
            // The clips start from a rest pose; the step from it to the
            // second frame is a real discontinuity that no smooth curve
            // follows, so orientation is also measured without it.
            for (int32 j = 3; k == 1 && j < Clip.SampleCount; ++j) {
                real32 Value[4];
                EvaluateCurve(4, true, *Curve, Clip.TimeStep * (Clip.SampleCount - 1), Clip.TimeStep * j, Value,
                              Kinds[k].Identity.data());
                real32 const *q = &Samples[4 * j];
                real64 Dot = fabs((real64)Value[0] * q[0] + Value[1] * q[1] + Value[2] * q[2] + Value[3] * q[3]);
                real32 Degrees = (real32)(2.0 * acos(fmin(1.0, Dot)) * 180.0 / 3.14159265358979);
                if (Degrees > Result.LaterRotation) Result.LaterRotation = Degrees;
            }
            FreeCurve(Curve);
        }
    }
    FreeBSplineSolver(Solver);
    return Result;
}

} // namespace

int main(int argc, char **argv)
{
    std::vector<std::string> Paths;
    for (int i = 1; i < argc; ++i) Paths.push_back(argv[i]);
    if (Paths.empty()) {
        std::string Folder =
            std::string(TESSEL_SHARED_FBX_DIR) + "/cmu-mocap-isaacgym/isaacgymenvs/tasks/amp/poselib/data/";
        for (char const *Name : {"01_01_cmu.fbx", "49_08_cmu.fbx", "55_01_cmu.fbx"}) Paths.push_back(Folder + Name);
    }
    std::vector<channel_kind> const Kinds = BoneChannelKinds();
    std::printf("%-16s %5s %6s %8s %9s %9s %12s %10s %9s %9s %9s %9s %6s %16s\n", "clip", "bones", "chans", "samples",
                "seconds", "samples/s", "bytes/bone/s", "raw ratio", "pos err", "rot deg", "rot>f1 deg", "scale err",
                "missed", "curve checksum");
    for (std::string const &Path : Paths) {
        clip Clip;
        Clip.Name = Path.substr(Path.find_last_of('/') + 1);
        if (!SampleClip(Path.c_str(), Clip)) {
            std::printf("%-16s could not be read\n", Clip.Name.c_str());
            continue;
        }
        fit_result Fit = FitClip(Clip, Kinds);
        double Duration = Clip.TimeStep * (Clip.SampleCount - 1);
        double RawBytes = (double)Clip.BoneCount * Clip.SampleCount * (3 + 4 + 9) * sizeof(real32);
        std::printf("%-16s %5d %6d %8lld %9.4f %9.0f %12.1f %10.1f %9.5f %9.4f %9.4f %9.6f %6d %016llx\n",
                    Clip.Name.c_str(), Clip.BoneCount, Fit.Channels, (long long)Fit.Samples, Fit.Seconds,
                    Fit.Samples / Fit.Seconds, Fit.Bytes / (double)Clip.BoneCount / Duration,
                    RawBytes / (double)Fit.Bytes, Fit.MaxError[0], Fit.MaxError[1], Fit.LaterRotation, Fit.MaxError[2],
                    Fit.Missed, (unsigned long long)Fit.Checksum);
    }
    return 0;
}
