// The world error budget: tolerances from the skeleton, the measurement of
// virtual points through the whole chain, and the refit rounds. Every
// figure of a round is computed per sample or per bone on its own and
// merged by maxima, so the results do not depend on the thread count.
#include "animation/tessel_world_error_budget.h"

#include "animation/tessel_curve.h"
#include "foundation/tessel_log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <thread>

namespace {

std::vector<world_error_animation_figures> *ReportSink = 0;

// Share of the budget a bone gets before any measurement, divided by the
// square root of the longest chain through it: errors of the bones of one
// chain rarely line up, and the rounds catch the places where they do.
double const InitialShare = 1.0;
// A tightening halves all three tolerances of a bone; past this factor of
// its first tolerances a bone is at its floor.
double const TightestFactor = 1.0 / 4096.0;
// Tolerances stay above this many float steps of a stream's largest value.
double const FloatSteps = 4.0 / 8388608.0;
// A bend sharper than this many tolerances (the change of slope between
// two sample steps) gets a knot of its own.
double const CreaseFactor = 2.0;
// Loosest orientation tolerance (a chord between unit quaternions).
double const LoosestChord = 0.05;

// x' = A x + T, A row by row.
struct affine
{
    double A[9];
    double T[3];
};

affine Identity()
{
    affine Result = {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
    return Result;
}

affine LocalAffine(real32 const *P, real32 const *Q, real32 const *S)
{
    double x = Q[0], y = Q[1], z = Q[2], w = Q[3];
    double Length = std::sqrt(x * x + y * y + z * z + w * w);
    if (Length > 0.0) {
        x /= Length;
        y /= Length;
        z /= Length;
        w /= Length;
    } else {
        x = y = z = 0.0;
        w = 1.0;
    }
    double const R[9] = {1 - 2 * (y * y + z * z), 2 * (x * y - z * w),     2 * (x * z + y * w),
                         2 * (x * y + z * w),     1 - 2 * (x * x + z * z), 2 * (y * z - x * w),
                         2 * (x * z - y * w),     2 * (y * z + x * w),     1 - 2 * (x * x + y * y)};
    affine Result;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            Result.A[r * 3 + c] =
                R[r * 3 + 0] * S[0 * 3 + c] + R[r * 3 + 1] * S[1 * 3 + c] + R[r * 3 + 2] * S[2 * 3 + c];
        }
        Result.T[r] = P[r];
    }
    return Result;
}

affine Compose(affine const &Outer, affine const &Inner)
{
    affine Result;
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) {
            Result.A[r * 3 + c] = Outer.A[r * 3 + 0] * Inner.A[0 * 3 + c] + Outer.A[r * 3 + 1] * Inner.A[1 * 3 + c] +
                                  Outer.A[r * 3 + 2] * Inner.A[2 * 3 + c];
        }
        Result.T[r] = Outer.A[r * 3 + 0] * Inner.T[0] + Outer.A[r * 3 + 1] * Inner.T[1] +
                      Outer.A[r * 3 + 2] * Inner.T[2] + Outer.T[r];
    }
    return Result;
}

void Apply(affine const &M, double const *X, double *Result)
{
    for (int r = 0; r < 3; ++r) {
        Result[r] = M.A[r * 3 + 0] * X[0] + M.A[r * 3 + 1] * X[1] + M.A[r * 3 + 2] * X[2] + M.T[r];
    }
}

// False for a singular matrix.
bool Invert(affine const &M, affine &Result)
{
    double const *a = M.A;
    double Cofactor[9] = {a[4] * a[8] - a[5] * a[7], a[2] * a[7] - a[1] * a[8], a[1] * a[5] - a[2] * a[4],
                          a[5] * a[6] - a[3] * a[8], a[0] * a[8] - a[2] * a[6], a[2] * a[3] - a[0] * a[5],
                          a[3] * a[7] - a[4] * a[6], a[1] * a[6] - a[0] * a[7], a[0] * a[4] - a[1] * a[3]};
    double Determinant = a[0] * Cofactor[0] + a[1] * Cofactor[3] + a[2] * Cofactor[6];
    if (!(std::fabs(Determinant) > 1e-30)) return false;
    for (int i = 0; i < 9; ++i) Result.A[i] = Cofactor[i] / Determinant;
    for (int r = 0; r < 3; ++r) {
        Result.T[r] = -(Result.A[r * 3 + 0] * M.T[0] + Result.A[r * 3 + 1] * M.T[1] + Result.A[r * 3 + 2] * M.T[2]);
    }
    return true;
}

double Distance(double const *a, double const *b)
{
    double x = a[0] - b[0], y = a[1] - b[1], z = a[2] - b[2];
    return std::sqrt(x * x + y * y + z * z);
}

// The local offset along Axis that puts a point Distance away from a bone
// whose source world is Source, whatever the bone's scale.
double AxisOffset(affine const &Source, int Axis, double Distance)
{
    double const *A = Source.A;
    double Length = std::sqrt(A[Axis] * A[Axis] + A[3 + Axis] * A[3 + Axis] + A[6 + Axis] * A[6 + Axis]);
    return Length > 1e-12 ? Distance / Length : 0.0;
}

// The virtual point Offset along Axis of a bone whose world is M.
void VirtualPoint(affine const &M, int Axis, double Offset, double *Result)
{
    double Local[3] = {0, 0, 0};
    Local[Axis] = Offset;
    Apply(M, Local, Result);
}

real32 const ZeroPosition[3] = {0, 0, 0};
real32 const UnitOrientation[4] = {0, 0, 0, 1};
real32 const UnitScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

struct bone_state
{
    int32 Parent;
    int32 Depth;
    int32 Height;
    compression_job *Jobs[3]; // position, orientation, scale/shear; null when not queued
    int32 Slots[3];
    double Factor; // applied to the derived tolerances
    double BaseTolerance[3];
    int32 Refits;
    bool Missed; // a fit of the bone missed its tolerance in the last fit
    // Each stream's candidate formats as queued, and the ones its tolerance
    // leaves (the jobs point at the latter).
    data_type_definition **QueuedTypes[3];
    int32 QueuedTypeCount[3];
    std::vector<data_type_definition *> Types[3];
    std::vector<int32> Subtree; // itself and every descendant
};

// One model's state for the rounds.
struct model_state
{
    world_error_model Source;
    int32 BoneCount = 0;
    std::vector<bone_state> Bones;
    std::vector<int32> Order;        // parents before children
    std::vector<affine> SourceWorld; // sample-major: [Sample * BoneCount + Bone]
    std::vector<float> Error;        // bone-major: [Bone * SampleCount + Sample]
    std::vector<double> Largest;
    std::vector<double> Contribution; // the error of the bone's own curves, at its subtree's points
};

// The source local transform of a bone at a sample.
affine SourceLocal(bone_state const &Bone, int32 Sample)
{
    real32 const *P = Bone.Jobs[0] ? Bone.Jobs[0]->Samples + (intaddrx)Sample * 3 : ZeroPosition;
    real32 const *Q = Bone.Jobs[1] ? Bone.Jobs[1]->Samples + (intaddrx)Sample * 4 : UnitOrientation;
    real32 const *S = Bone.Jobs[2] ? Bone.Jobs[2]->Samples + (intaddrx)Sample * 9 : UnitScaleShear;
    return LocalAffine(P, Q, S);
}

// The local transform the stored curves give at time t, evaluated as a
// runtime does: a missing or identity curve is the identity part, the
// orientation is normalised.
affine FittedLocal(compression_queue const &Queue, bone_state const &Bone, real32 Duration, real32 t)
{
    real32 P[3] = {0, 0, 0}, Q[4] = {0, 0, 0, 1}, S[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    curve2 const *Curves[3] = {0, 0, 0};
    for (int Kind = 0; Kind < 3; ++Kind) {
        if (Bone.Slots[Kind] >= 0) Curves[Kind] = Queue.Results[Bone.Slots[Kind]];
    }
    if (Curves[0] && Curves[0]->CurveData.Object) EvaluateCurve(3, false, *Curves[0], Duration, t, P, ZeroPosition);
    if (Curves[1] && Curves[1]->CurveData.Object) EvaluateCurve(4, true, *Curves[1], Duration, t, Q, UnitOrientation);
    if (Curves[2] && Curves[2]->CurveData.Object) EvaluateCurve(9, false, *Curves[2], Duration, t, S, UnitScaleShear);
    return LocalAffine(P, Q, S);
}

template <typename Work>
void RunInParallel(int32 Count, Work const &Body)
{
    int32 Threads = GetCompressionThreadCount();
    if (Threads > Count) Threads = Count;
    if (Threads <= 1) {
        Body(0, Count, 0);
        return;
    }
    std::vector<std::thread> Workers;
    int32 Started = 0;
    try {
        for (int32 Index = 1; Index < Threads; ++Index) {
            int32 Begin = (int32)((int64)Count * Index / Threads), End = (int32)((int64)Count * (Index + 1) / Threads);
            Workers.emplace_back([&Body, Begin, End, Index] { Body(Begin, End, Index); });
            ++Started;
        }
    } catch (...) {}
    Body(0, (int32)((int64)Count / Threads), 0);
    for (std::thread &Worker : Workers) Worker.join();
    // Ranges of threads that could not start are done here.
    for (int32 Index = Started + 1; Index < Threads; ++Index) {
        Body((int32)((int64)Count * Index / Threads), (int32)((int64)Count * (Index + 1) / Threads), Index);
    }
}

int32 WorkerSlots()
{
    int32 Threads = GetCompressionThreadCount();
    return Threads < 1 ? 1 : Threads;
}

// The source worlds of every bone at every sample.
void ComputeSourceWorlds(model_state &M, int32 SampleCount)
{
    int32 const B = M.BoneCount;
    M.SourceWorld.assign((size_t)SampleCount * (size_t)B, Identity());
    RunInParallel(SampleCount, [&](int32 Begin, int32 End, int32) {
        for (int32 j = Begin; j < End; ++j) {
            affine *World = &M.SourceWorld[(size_t)j * (size_t)B];
            for (int32 b : M.Order) {
                affine Local = SourceLocal(M.Bones[(size_t)b], j);
                int32 Parent = M.Bones[(size_t)b].Parent;
                World[b] = Parent >= 0 ? Compose(World[Parent], Local) : Local;
            }
        }
    });
}

// Errors of every bone's virtual points at every sample, each bone's
// largest, and (WantContributions) each bone's own contribution: the
// error its curves alone cause at the points of its subtree.
void Measure(compression_queue const &Queue, model_state &M, world_error_settings const &Settings,
             bool WantContributions)
{
    int32 const B = M.BoneCount, S = Settings.SampleCount;
    double const d = Settings.VirtualDistance;
    real32 const Duration = Settings.TimeStep * (real32)(S > 1 ? S - 1 : 0);
    M.Error.assign((size_t)B * (size_t)S, 0.0f);
    int32 const Slots = WorkerSlots();
    std::vector<double> Contributions((size_t)Slots * (size_t)B, 0.0);
    RunInParallel(S, [&](int32 Begin, int32 End, int32 Worker) {
        std::vector<affine> Fitted((size_t)B), FittedLocals((size_t)B);
        double *Contribution = &Contributions[(size_t)Worker * (size_t)B];
        for (int32 j = Begin; j < End; ++j) {
            affine const *Source = &M.SourceWorld[(size_t)j * (size_t)B];
            real32 t = (real32)j * Settings.TimeStep;
            for (int32 b : M.Order) {
                bone_state const &Bone = M.Bones[(size_t)b];
                FittedLocals[(size_t)b] = FittedLocal(Queue, Bone, Duration, t);
                Fitted[(size_t)b] = Bone.Parent >= 0 ? Compose(Fitted[(size_t)Bone.Parent], FittedLocals[(size_t)b])
                                                     : FittedLocals[(size_t)b];
                double Worst = 0.0;
                for (int Axis = 0; Axis < 3; ++Axis) {
                    double a[3], e[3], Offset = AxisOffset(Source[b], Axis, d);
                    VirtualPoint(Fitted[(size_t)b], Axis, Offset, a);
                    VirtualPoint(Source[b], Axis, Offset, e);
                    Worst = std::max(Worst, Distance(a, e));
                }
                M.Error[(size_t)b * (size_t)S + (size_t)j] = (float)Worst;
            }
            if (!WantContributions) continue;
            for (int32 b = 0; b < B; ++b) {
                bone_state const &Bone = M.Bones[(size_t)b];
                affine Inverse;
                if (!Invert(Source[b], Inverse)) continue;
                affine Moved = Compose(Bone.Parent >= 0 ? Compose(Source[Bone.Parent], FittedLocals[(size_t)b])
                                                        : FittedLocals[(size_t)b],
                                       Inverse);
                double Worst = Contribution[b];
                for (int32 D : Bone.Subtree) {
                    for (int Axis = 0; Axis < 3; ++Axis) {
                        double p[3], q[3];
                        VirtualPoint(Source[D], Axis, AxisOffset(Source[D], Axis, d), p);
                        Apply(Moved, p, q);
                        Worst = std::max(Worst, Distance(p, q));
                    }
                }
                Contribution[b] = Worst;
            }
        }
    });
    M.Largest.assign((size_t)B, 0.0);
    M.Contribution.assign((size_t)B, 0.0);
    for (int32 b = 0; b < B; ++b) {
        for (int32 j = 0; j < S; ++j) {
            M.Largest[(size_t)b] = std::max(M.Largest[(size_t)b], (double)M.Error[(size_t)b * (size_t)S + (size_t)j]);
        }
        for (int32 w = 0; w < Slots; ++w) {
            M.Contribution[(size_t)b] = std::max(M.Contribution[(size_t)b], Contributions[(size_t)w * (size_t)B + b]);
        }
    }
}

// Parents, depths, subtrees and an order with parents first. A parent
// index out of range or a cycle makes a bone a root.
void BuildSkeleton(model_state &M)
{
    int32 const B = M.BoneCount;
    for (int32 b = 0; b < B; ++b) {
        int32 Parent = M.Source.Parents ? M.Source.Parents[b] : -1;
        M.Bones[(size_t)b].Parent = Parent >= 0 && Parent < B && Parent != b ? Parent : -1;
    }
    for (int32 b = 0; b < B; ++b) {
        int32 Depth = 0;
        for (int32 p = M.Bones[(size_t)b].Parent; p >= 0 && Depth <= B; p = M.Bones[(size_t)p].Parent) ++Depth;
        if (Depth > B) {
            M.Bones[(size_t)b].Parent = -1;
            Depth = 0;
        }
        M.Bones[(size_t)b].Depth = Depth;
    }
    // Cutting a cycle can change the depths of bones below it.
    for (int32 b = 0; b < B; ++b) {
        int32 Depth = 0;
        for (int32 p = M.Bones[(size_t)b].Parent; p >= 0; p = M.Bones[(size_t)p].Parent) ++Depth;
        M.Bones[(size_t)b].Depth = Depth;
    }
    M.Order.resize((size_t)B);
    for (int32 b = 0; b < B; ++b) M.Order[(size_t)b] = b;
    std::stable_sort(M.Order.begin(), M.Order.end(),
                     [&](int32 a, int32 b) { return M.Bones[(size_t)a].Depth < M.Bones[(size_t)b].Depth; });
    for (int32 b = 0; b < B; ++b) {
        M.Bones[(size_t)b].Height = 0;
        for (int32 p = b, h = 0; p >= 0; p = M.Bones[(size_t)p].Parent, ++h) {
            M.Bones[(size_t)p].Subtree.push_back(b);
            M.Bones[(size_t)p].Height = std::max(M.Bones[(size_t)p].Height, h);
        }
    }
}

// Tolerances of every bone from the skeleton's reach over the animation.
void DeriveTolerances(model_state &M, world_error_settings const &Settings)
{
    int32 const B = M.BoneCount, S = Settings.SampleCount;
    double const d = Settings.VirtualDistance;
    int32 const Slots = WorkerSlots();
    std::vector<double> Reach((size_t)Slots * (size_t)B, 0.0), Scale((size_t)Slots * (size_t)B, 0.0);
    RunInParallel(S, [&](int32 Begin, int32 End, int32 Worker) {
        for (int32 j = Begin; j < End; ++j) {
            affine const *World = &M.SourceWorld[(size_t)j * (size_t)B];
            for (int32 b = 0; b < B; ++b) {
                bone_state const &Bone = M.Bones[(size_t)b];
                double &R = Reach[(size_t)Worker * (size_t)B + b];
                for (int32 D : Bone.Subtree) {
                    for (int Axis = 0; Axis < 3; ++Axis) {
                        double p[3];
                        VirtualPoint(World[D], Axis, AxisOffset(World[D], Axis, d), p);
                        R = std::max(R, Distance(p, World[b].T));
                    }
                }
                double &Largest = Scale[(size_t)Worker * (size_t)B + b];
                if (Bone.Parent < 0) {
                    Largest = std::max(Largest, 1.0);
                    continue;
                }
                double const *A = World[Bone.Parent].A;
                for (int c = 0; c < 3; ++c) {
                    Largest = std::max(Largest, std::sqrt(A[c] * A[c] + A[3 + c] * A[3 + c] + A[6 + c] * A[6 + c]));
                }
            }
        }
    });
    for (int32 b = 0; b < B; ++b) {
        double R = d, ParentScale = 0.0;
        for (int32 w = 0; w < Slots; ++w) {
            R = std::max(R, Reach[(size_t)w * (size_t)B + b]);
            ParentScale = std::max(ParentScale, Scale[(size_t)w * (size_t)B + b]);
        }
        if (!(ParentScale > 1e-12)) ParentScale = 1.0;
        bone_state &Bone = M.Bones[(size_t)b];
        double Chain = (double)(Bone.Depth + Bone.Height + 1);
        double Share = InitialShare * (double)Settings.MaxError / std::sqrt(Chain);
        Bone.BaseTolerance[0] = Share / ParentScale;
        Bone.BaseTolerance[1] = std::min(LoosestChord, 0.5 * Share / R);
        Bone.BaseTolerance[2] = std::min(LoosestChord, Share / R);
        Bone.Factor = 1.0;
    }
}

bool HasByteControls(data_type_definition const *Type)
{
    switch (CurveFormatFromType(Type)) {
    case CurveFormat_DaK8uC8u:
    case CurveFormat_D4nK8uC7u:
    case CurveFormat_D3K8uC8u:
    case CurveFormat_D9I1K8uC8u:
    case CurveFormat_D9I3K8uC8u:
    case CurveFormat_D3I1K8uC8u: return true;
    default: return false;
    }
}

void ApplyTolerances(bone_state &Bone)
{
    for (int Kind = 0; Kind < 3; ++Kind) {
        compression_job *Job = Bone.Jobs[Kind];
        if (!Job) continue;
        // Below a few float steps of the samples no fit can go.
        double Largest = 0.0;
        for (intaddrx Index = 0; Index < (intaddrx)Job->SampleCount * Job->Dimension; ++Index) {
            Largest = std::max(Largest, (double)std::fabs(Job->Samples[Index]));
        }
        double Floor = std::max(FloatSteps * Largest, 1e-30);
        Job->Params.ErrorTolerance = (real32)std::max(Bone.BaseTolerance[Kind] * Bone.Factor, Floor);
        // A format of 8-bit controls cannot come within half a step of the
        // stream's range; its fit would split down to the finest knots and
        // fail, so it is not tried.
        double Range = 0.0;
        for (int32 c = 0; c < Job->Dimension; ++c) {
            double Low = 1e30, High = -1e30;
            for (int32 j = 0; j < Job->SampleCount; ++j) {
                double Value = Job->Samples[(intaddrx)j * Job->Dimension + c];
                Low = std::min(Low, Value);
                High = std::max(High, Value);
            }
            if (High > Low) Range = std::max(Range, High - Low);
        }
        Bone.Types[Kind].clear();
        for (int32 Index = 0; Index < Bone.QueuedTypeCount[Kind]; ++Index) {
            data_type_definition *Type = Bone.QueuedTypes[Kind][Index];
            if (HasByteControls(Type) && Job->Params.ErrorTolerance < Range / 510.0) continue;
            Bone.Types[Kind].push_back(Type);
        }
        Job->Params.CompressionTypes = Bone.Types[Kind].data();
        Job->Params.CompressionTypeCount = (int32)Bone.Types[Kind].size();
        // Sampled sources bend at their keys and run straight or gently
        // between them; at the small tolerances of a budget a smooth curve
        // cannot turn within a key and spends knots around every bend, while
        // a linear curve with a knot at each sharp bend follows it exactly.
        Job->Params.Degree = 1;
        Job->SolverFlags |= SolverAllowCreases;
        Job->Params.CreaseThreshold = (real32)(CreaseFactor * Job->Params.ErrorTolerance);
        if (Kind == 1) {
            // Orientations are measured by the distance between quaternions,
            // which stays exact for the small angles of a budget where
            // 1 - dot runs out of float precision.
            Job->SolverFlags &= ~(uint32)SolverNormalized;
        }
    }
}

// Whether every fitted curve of a bone met its tolerance.
bool BoneFitsMet(compression_queue const &Queue, bone_state const &Bone)
{
    for (int Kind = 0; Kind < 3; ++Kind) {
        if (Bone.Jobs[Kind] && Bone.Slots[Kind] >= 0 && !Queue.Achieved[Bone.Slots[Kind]]) return false;
    }
    return true;
}

// Fits the jobs of Bones again and puts the curves in Queue's slots.
bool Refit(compression_queue &Queue, std::vector<compression_job *> const &Jobs)
{
    if (Jobs.empty()) return true;
    compression_queue *Fresh =
        BeginCompressionQueue(Queue.SampleCount, Queue.ModelCount, Queue.TrackLimit, Queue.MaxDimension);
    if (!Fresh) return false;
    bool Queued = true;
    for (compression_job *Job : Jobs) Queued = QueueCompressionJob(*Fresh, *Job) && Queued;
    bool Ran = Queued && RunCompressionQueue(*Fresh);
    if (Ran) {
        for (compression_job *Job : Jobs) {
            int32 Slot = GetCompressionSlot(Queue, Job->Model, Job->Kind, Job->TrackIndex);
            FreeCurve(Queue.Results[Slot]);
            Queue.Results[Slot] = Fresh->Results[Slot];
            Queue.Achieved[Slot] = Fresh->Achieved[Slot];
            Fresh->Results[Slot] = 0;
        }
    }
    EndCompressionQueue(Fresh);
    return Ran;
}

world_error_curve_figures DescribeCurve(curve2 const *Curve)
{
    world_error_curve_figures Result;
    if (!Curve || !Curve->CurveData.Object) {
        Result.Format = "none";
        return Result;
    }
    int32 Format = CurveGetFormat(*Curve);
    Result.Format = Format >= 0 && Format < CurveFormatCount ? CurveFormatOperations[Format].Name : "unknown";
    Result.Degree = CurveGetDegree(*Curve);
    Result.KnotCount = CurveGetKnotCount(*Curve);
    Result.Bytes = CurveIsIdentity(*Curve) ? 0 : GetCurveSize(*Curve) - (int32)sizeof(curve2);
    return Result;
}

double Percentile99(float const *Values, int32 Count)
{
    if (Count <= 0) return 0.0;
    std::vector<float> Sorted(Values, Values + Count);
    size_t Index = (size_t)std::floor(0.99 * (double)(Count - 1));
    std::nth_element(Sorted.begin(), Sorted.begin() + (long)Index, Sorted.end());
    return Sorted[Index];
}

bool RunBudget(compression_queue &Queue, world_error_settings const &Settings, world_error_model const *Models,
               int32 ModelCount, char const *AnimationName, char const *const *ModelNames)
{
    // The pending jobs by slot: their samples and parameters.
    std::vector<compression_job *> BySlot((size_t)(Queue.ResultCount > 0 ? Queue.ResultCount : 0), nullptr);
    for (compression_job *Job = Queue.Pending; Job; Job = Job->Next) {
        int32 Slot = GetCompressionSlot(Queue, Job->Model, Job->Kind, Job->TrackIndex);
        if (Slot >= 0) BySlot[(size_t)Slot] = Job;
    }
    bool const Budget = Settings.MaxError > 0.0f && Settings.SampleCount > 1;
    std::vector<model_state> States((size_t)(ModelCount > 0 ? ModelCount : 0));
    for (int32 m = 0; m < ModelCount; ++m) {
        model_state &M = States[(size_t)m];
        M.Source = Models[m];
        M.BoneCount = Models[m].BoneCount > 0 ? Models[m].BoneCount : 0;
        M.Bones.resize((size_t)M.BoneCount);
        for (int32 b = 0; b < M.BoneCount; ++b) {
            bone_state &Bone = M.Bones[(size_t)b];
            Bone.Refits = 0;
            Bone.Factor = 1.0;
            for (int Kind = 0; Kind < 3; ++Kind) {
                Bone.Slots[Kind] = GetCompressionSlot(Queue, M.Source.Model, Kind, b);
                Bone.Jobs[Kind] = Bone.Slots[Kind] >= 0 ? BySlot[(size_t)Bone.Slots[Kind]] : nullptr;
                // Raw keyframes are exact; only fitted streams are budgeted.
                if (Bone.Jobs[Kind] && !Bone.Jobs[Kind]->Compress) Bone.Jobs[Kind] = nullptr;
                Bone.QueuedTypes[Kind] = Bone.Jobs[Kind] ? Bone.Jobs[Kind]->Params.CompressionTypes : nullptr;
                Bone.QueuedTypeCount[Kind] = Bone.Jobs[Kind] ? Bone.Jobs[Kind]->Params.CompressionTypeCount : 0;
            }
        }
        BuildSkeleton(M);
        if (Settings.SampleCount > 0) ComputeSourceWorlds(M, Settings.SampleCount);
        if (Budget) {
            DeriveTolerances(M, Settings);
            for (bone_state &Bone : M.Bones) ApplyTolerances(Bone);
        }
    }
    if (!RunCompressionQueue(Queue)) return false;
    for (model_state &M : States) {
        for (bone_state &Bone : M.Bones) Bone.Missed = !BoneFitsMet(Queue, Bone);
    }

    int32 RoundsUsed = 0;
    std::vector<std::string> Unmet;
    for (int32 m = 0; m < ModelCount; ++m) {
        model_state &M = States[(size_t)m];
        if (Settings.SampleCount <= 0 || M.BoneCount == 0) continue;
        Measure(Queue, M, Settings, Budget);
        if (!Budget) continue;
        for (int32 Round = 0; Round < Settings.MaxRounds; ++Round) {
            std::vector<uint8> Marked((size_t)M.BoneCount, 0);
            bool AnyOver = false;
            for (int32 v = 0; v < M.BoneCount; ++v) {
                if (!(M.Largest[(size_t)v] > Settings.MaxError)) continue;
                AnyOver = true;
                double Most = 0.0;
                for (int32 p = v; p >= 0; p = M.Bones[(size_t)p].Parent) {
                    Most = std::max(Most, M.Contribution[(size_t)p]);
                }
                for (int32 p = v; p >= 0; p = M.Bones[(size_t)p].Parent) {
                    if (M.Contribution[(size_t)p] >= 0.5 * Most && M.Contribution[(size_t)p] > 0.0)
                        Marked[(size_t)p] = 1;
                }
            }
            if (!AnyOver) break;
            std::vector<compression_job *> Jobs;
            for (int32 b = 0; b < M.BoneCount; ++b) {
                bone_state &Bone = M.Bones[(size_t)b];
                if (!Marked[(size_t)b] || Bone.Factor * 0.5 < TightestFactor) continue;
                Bone.Factor *= 0.5;
                ++Bone.Refits;
                ApplyTolerances(Bone);
                for (compression_job *Job : Bone.Jobs)
                    if (Job) Jobs.push_back(Job);
            }
            if (Jobs.empty()) break;
            if (!Refit(Queue, Jobs)) return false;
            for (bone_state &Bone : M.Bones) Bone.Missed = !BoneFitsMet(Queue, Bone);
            ++RoundsUsed;
            Measure(Queue, M, Settings, true);
        }
        for (int32 v = 0; v < M.BoneCount; ++v) {
            if (!(M.Largest[(size_t)v] > Settings.MaxError)) continue;
            std::string Name = M.Source.Names && M.Source.Names[v] ? M.Source.Names[v] : "?";
            bool AtFloor = true, Missed = false;
            for (int32 p = v; p >= 0; p = M.Bones[(size_t)p].Parent) {
                if (M.Bones[(size_t)p].Factor * 0.5 >= TightestFactor) AtFloor = false;
                if (M.Bones[(size_t)p].Missed) Missed = true;
            }
            char Figure[64];
            snprintf(Figure, sizeof(Figure), "%.6g", M.Largest[(size_t)v]);
            std::string Why =
                Missed    ? "a bone of its chain varies faster than curves with the finest knot spacing can follow"
                : AtFloor ? "every bone of its chain is at its tightest tolerance"
                          : "the refit rounds ran out";
            Unmet.push_back(Name + " (" + Figure + "): " + Why);
            TesselWarning(LogCategory_Compression, "Bone %s misses the world error budget (%s): %s", Name.c_str(),
                          Figure, Why.c_str());
        }
    }

    if (!ReportSink) return true;
    world_error_animation_figures Figures;
    Figures.Name = AnimationName ? AnimationName : "";
    Figures.Duration = (double)Settings.TimeStep * (double)(Settings.SampleCount > 1 ? Settings.SampleCount - 1 : 0);
    Figures.TimeStep = Settings.TimeStep;
    Figures.MaxError = Budget ? Settings.MaxError : 0.0;
    Figures.VirtualDistance = Settings.VirtualDistance;
    Figures.Rounds = RoundsUsed;
    Figures.Unmet = Unmet;
    for (int32 m = 0; m < ModelCount; ++m) {
        model_state &M = States[(size_t)m];
        world_error_model_figures Model;
        Model.Name = ModelNames && ModelNames[m] ? ModelNames[m] : "";
        for (int32 b = 0; b < M.BoneCount; ++b) {
            world_error_bone_figures Bone;
            Bone.Name = M.Source.Names && M.Source.Names[b] ? M.Source.Names[b] : "";
            for (int Kind = 0; Kind < 3; ++Kind) {
                int32 Slot = M.Bones[(size_t)b].Slots[Kind];
                Bone.Curves[Kind] = DescribeCurve(Slot >= 0 ? Queue.Results[Slot] : nullptr);
                Bone.Bytes += Bone.Curves[Kind].Bytes;
            }
            if (!M.Error.empty()) {
                float const *Row = &M.Error[(size_t)b * (size_t)Settings.SampleCount];
                Bone.Error.assign(Row, Row + Settings.SampleCount);
                Bone.Largest = *std::max_element(Bone.Error.begin(), Bone.Error.end());
                Bone.Percentile99 = Percentile99(Row, Settings.SampleCount);
            }
            Bone.Refits = M.Bones[(size_t)b].Refits;
            Model.Bones.push_back(std::move(Bone));
        }
        Figures.Models.push_back(std::move(Model));
    }
    ReportSink->push_back(std::move(Figures));
    return true;
}

} // namespace

void SetWorldErrorReport(std::vector<world_error_animation_figures> *Report)
{
    ReportSink = Report;
}

std::vector<world_error_animation_figures> *GetWorldErrorReport()
{
    return ReportSink;
}

bool RunWorldErrorBudget(compression_queue &Queue, world_error_settings const &Settings,
                         world_error_model const *Models, int32 ModelCount, char const *AnimationName,
                         char const *const *ModelNames)
{
    CheckCondition(ModelCount >= 0 && (ModelCount == 0 || Models), LogCategory_Compression, false);
    CheckCondition(Settings.SampleCount >= 0 && Settings.SampleCount <= Queue.SampleCount, LogCategory_Compression,
                   false);
    CheckCondition(Settings.MaxError >= 0.0f && Settings.VirtualDistance > 0.0f, LogCategory_Compression, false);
    try {
        return RunBudget(Queue, Settings, Models, ModelCount, AnimationName, ModelNames);
    } catch (std::bad_alloc const &) {
        TesselError(LogCategory_Compression, "Out of memory measuring the world error of %s",
                    AnimationName ? AnimationName : "an animation");
        // The queue must still finish: the caller assembles what it holds.
        RunCompressionQueue(Queue);
        return false;
    }
}
