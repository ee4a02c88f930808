#include "animation/tessel_compression_queue.h"

#include "animation/tessel_curve.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "settings/tessel_requester.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <thread>
#include <vector>

namespace {

data_type_definition *Types3[] = {CurveDataDaK32fC32fType, CurveDataD3I1K8uC8uType, CurveDataD3I1K16uC16uType,
                                  CurveDataD3K8uC8uType,   CurveDataD3K16uC16uType, CurveDataD3I1K32fC32fType};
data_type_definition *Types3Normalized[] = {CurveDataDaK32fC32fType, CurveDataD3K8uC8uType, CurveDataD3K16uC16uType};
data_type_definition *Types4[] = {CurveDataDaK32fC32fType, CurveDataDaK8uC8uType, CurveDataDaK16uC16uType};
data_type_definition *Types4Normalized[] = {CurveDataDaK32fC32fType, CurveDataD4nK8uC7uType, CurveDataD4nK16uC15uType};
data_type_definition *Types9[] = {CurveDataDaK32fC32fType,  CurveDataD9I1K8uC8uType, CurveDataD9I3K8uC8uType,
                                  CurveDataDaK8uC8uType,    CurveDataDaK16uC16uType, CurveDataD9I1K16uC16uType,
                                  CurveDataD9I3K16uC16uType};
data_type_definition *TypesAny[] = {CurveDataDaK32fC32fType, CurveDataDaK8uC8uType, CurveDataDaK16uC16uType};

real32 const Identity3[3] = {0, 0, 0};
real32 const Identity3Normalized[3] = {0, 0, 1};
real32 const Identity4[4] = {0, 0, 0, 0};
real32 const Identity4Normalized[4] = {0, 0, 0, 1};
real32 const Identity9[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
real32 const IdentityAny[CurveMaxDimension] = {};

std::atomic<int32> CompressionThreadCount{0};

} // namespace

compression_types SelectCompressionTypes(int32 Dimension, bool Normalized, bool UseQuantized)
{
    compression_types Result = {TypesAny, 3, CurveDataDaConstant32fType, CurveDataDaIdentityType, IdentityAny};
    if (Dimension == 3) {
        Result.ConstantType = CurveDataD3Constant32fType;
        if (Normalized) {
            Result.Types = Types3Normalized;
            Result.Count = 3;
            Result.IdentityVector = Identity3Normalized;
        } else {
            Result.Types = Types3;
            Result.Count = 6;
            Result.IdentityVector = Identity3;
        }
    } else if (Dimension == 4) {
        Result.ConstantType = CurveDataD4Constant32fType;
        Result.Types = Normalized ? Types4Normalized : Types4;
        Result.Count = 3;
        Result.IdentityVector = Normalized ? Identity4Normalized : Identity4;
    } else if (Dimension == 9 && !Normalized) {
        Result.Types = Types9;
        Result.Count = 7;
        Result.IdentityVector = Identity9;
    }
    if (!UseQuantized) Result.Count = 1;
    return Result;
}

uint32 BuildSolverFlags(settings_node const *Settings, int32 AllowJumpsId, int32 AllowCreasesId, int32 AggressiveId)
{
    uint32 Flags = SolverSeedStartKnots | SolverPinEndpoints;
    if (GetSettingBool(Settings, AllowJumpsId)) Flags |= SolverAllowJumps;
    if (GetSettingBool(Settings, AllowCreasesId)) Flags |= SolverAllowCreases;
    if (GetSettingBool(Settings, AggressiveId)) Flags |= SolverEliminateKnots;
    return Flags;
}

void SetCompressionThreadCount(int32 Count)
{
    if (Count < 0) Count = 0;
    if (Count > 64) Count = 64;
    CompressionThreadCount.store(Count);
}

int32 GetCompressionThreadCount()
{
    int32 Count = CompressionThreadCount.load();
    if (Count > 0) return Count;
    uint32 Processors = std::thread::hardware_concurrency();
    if (Processors < 1) Processors = 1;
    return (int32)std::min<uint32>(Processors, 8);
}

compression_queue *BeginCompressionQueue(int32 SampleCount, int32 ModelCount, int32 TrackLimit,
                                         int32 MaxVectorDimension)
{
    CheckCondition(SampleCount >= 0 && ModelCount >= 0 && TrackLimit >= 0, LogCategory_Compression, 0);
    // The workers' solvers must be makeable without a word from them.
    CheckRange(SampleCount, 0, 1 << 24, LogCategory_Compression, 0);
    int64 ResultCount = (int64)ModelCount * 4 * TrackLimit;
    CheckCondition(ResultCount <= 0x7FFFFFFF, LogCategory_Compression, 0);
    void *Memory = TesselAllocate(sizeof(compression_queue));
    if (!Memory) return 0;
    compression_queue *Queue = new (Memory) compression_queue();
    Queue->SampleCount = SampleCount;
    Queue->MaxDimension = std::max(9, std::min<int32>(MaxVectorDimension, CurveMaxDimension));
    Queue->ModelCount = ModelCount;
    Queue->TrackLimit = TrackLimit;
    Queue->ResultCount = (int32)ResultCount;
    intaddrx Slots = ResultCount > 0 ? (intaddrx)ResultCount : 1;
    Queue->Results = (curve2 **)TesselAllocate(sizeof(curve2 *) * Slots);
    // Cleared at once: a failure below frees every slot.
    if (Queue->Results) memset(Queue->Results, 0, sizeof(curve2 *) * Slots);
    Queue->Achieved = (uint8 *)TesselAllocate(Slots);
    Queue->Queued = (uint8 *)TesselAllocate(Slots);
    Queue->Done = (uint8 *)TesselAllocate(Slots);
    bool StackReady = StackInitialize(Queue->Jobs, (int32)sizeof(compression_job), 4096);
    if (!Queue->Results || !Queue->Achieved || !Queue->Queued || !Queue->Done || !StackReady) {
        EndCompressionQueue(Queue);
        return 0;
    }
    memset(Queue->Results, 0, sizeof(curve2 *) * Slots);
    memset(Queue->Achieved, 0, (size_t)Slots);
    memset(Queue->Queued, 0, (size_t)Slots);
    memset(Queue->Done, 0, (size_t)Slots);
    return Queue;
}

void EndCompressionQueue(compression_queue *Queue)
{
    if (!Queue) return;
    if (Queue->Results) {
        for (int32 Slot = 0; Slot < Queue->ResultCount; ++Slot) FreeCurve(Queue->Results[Slot]);
    }
    TesselFree(Queue->Results);
    TesselFree(Queue->Achieved);
    TesselFree(Queue->Queued);
    TesselFree(Queue->Done);
    StackCleanUp(Queue->Jobs);
    Queue->~compression_queue();
    TesselFree(Queue);
}

int32 GetCompressionSlot(compression_queue const &Queue, int32 Model, int32 Kind, int32 TrackIndex)
{
    if (Model < 0 || Model >= Queue.ModelCount || Kind < 0 || Kind > 3 || TrackIndex < 0 ||
        TrackIndex >= Queue.TrackLimit)
        return -1;
    return Model * (4 * Queue.TrackLimit) + Kind * Queue.TrackLimit + TrackIndex;
}

curve2 *GetCompressionResult(compression_queue const &Queue, int32 Model, int32 Kind, int32 TrackIndex)
{
    int32 Slot = GetCompressionSlot(Queue, Model, Kind, TrackIndex);
    return Slot >= 0 ? Queue.Results[Slot] : 0;
}

bool QueueCompressionJob(compression_queue &Queue, compression_job const &Job)
{
    // Everything a worker would otherwise have to report is checked here,
    // on the calling thread.
    if (GetCompressionSlot(Queue, Job.Model, Job.Kind, Job.TrackIndex) < 0) return false;
    if (Job.Dimension < 1 || Job.Dimension > Queue.MaxDimension) return false;
    if (Job.SampleCount < 0 || Job.SampleCount > Queue.SampleCount) return false;
    if (Job.SampleCount > 0 && !Job.Samples) return false;
    if (Job.Compress) {
        if (Job.Params.Degree < 0 || Job.Params.Degree > 3) return false;
        if (!CompressionParamsAreValid(Job.Params, Job.SolverFlags)) return false;
    }
    compression_job *Unit = (compression_job *)NewStackUnit(Queue.Jobs, 0);
    if (!Unit) return false;
    *Unit = Job;
    Unit->Next = 0;
    if (Queue.LastPending) {
        Queue.LastPending->Next = Unit;
    } else {
        Queue.Pending = Unit;
    }
    Queue.LastPending = Unit;
    Queue.Queued[GetCompressionSlot(Queue, Job.Model, Job.Kind, Job.TrackIndex)] = 1;
    ++Queue.JobCount;
    return true;
}

namespace {

curve2 *BuildFromValues(data_type_definition *Type, int32 Dimension, int32 KnotCount, real32 const *Controls)
{
    real32 const Knot = 0.0f;
    curve_builder Builder;
    BeginCurveInPlace(Builder, Type, 0, Dimension, KnotCount);
    if (KnotCount > 0) {
        PushCurveKnotArray(Builder, &Knot);
        PushCurveControlArray(Builder, Controls);
    }
    return EndCurve(&Builder);
}

} // namespace

curve2 *CompressJob(bspline_solver *Solver, compression_job &Job, uint8 *Achieved)
{
    if (Achieved) *Achieved = 0;
    if (Job.Compress) {
        if (!Solver) return 0;
        return CompressCurve(*Solver, Job.SolverFlags, Job.Params, Job.Samples, Job.Dimension, Job.SampleCount,
                             Job.TimeStep, Achieved);
    }
    int32 Dimension = Job.Dimension;
    int64 ValueCount = (int64)Job.SampleCount * Dimension;
    if (Job.Params.AllowReduction && Job.SampleCount > 0) {
        for (int64 Index = 0; Index < ValueCount; ++Index) {
            uint32 Bits;
            memcpy(&Bits, &Job.Samples[Index], 4);
            if (Bits == 0x80000000u) Job.Samples[Index] = 0.0f;
        }
        size_t RowBytes = sizeof(real32) * (size_t)Dimension;
        bool AllEqual = true;
        for (int32 Sample = 1; Sample < Job.SampleCount && AllEqual; ++Sample) {
            AllEqual = memcmp(Job.Samples, Job.Samples + (int64)Sample * Dimension, RowBytes) == 0;
        }
        if (AllEqual) {
            bool IsIdentity =
                Job.Params.IdentityVector && memcmp(Job.Samples, Job.Params.IdentityVector, RowBytes) == 0;
            data_type_definition *Type = IsIdentity ? Job.Params.IdentityType : Job.Params.ConstantType;
            if (Type) {
                if (Achieved) *Achieved = 1;
                return BuildFromValues(Type, Dimension, IsIdentity ? 0 : 1, Job.Samples);
            }
        }
    }
    curve_builder Builder;
    BeginCurveInPlace(Builder, CurveDataDaKeyframes32fType, 0, Dimension, Job.SampleCount);
    PushCurveControlArray(Builder, Job.Samples);
    if (Achieved) *Achieved = 1;
    return EndCurve(&Builder);
}

namespace {

compression_job *TakeJob(compression_queue &Queue)
{
    std::lock_guard<std::mutex> Guard(Queue.Lock);
    compression_job *Job = Queue.Pending;
    if (Job) Queue.Pending = Job->Next;
    if (!Queue.Pending) Queue.LastPending = 0;
    return Job;
}

// Runs jobs until none is left. Counted in RunningWorkers from before it
// starts (by the launcher) until it ends.
void CompressionWorker(compression_queue *Queue)
{
    bspline_solver *Solver =
        AllocateBSplineSolver(3, Queue->SampleCount > 1 ? Queue->SampleCount : 2, Queue->MaxDimension);
    if (Solver) {
        while (compression_job *Job = TakeJob(*Queue)) {
            int32 Slot = GetCompressionSlot(*Queue, Job->Model, Job->Kind, Job->TrackIndex);
            uint8 Achieved = 0;
            curve2 *Curve = CompressJob(Solver, *Job, &Achieved);
            std::lock_guard<std::mutex> Guard(Queue->Lock);
            Queue->Results[Slot] = Curve;
            Queue->Achieved[Slot] = Achieved;
            Queue->Done[Slot] = 1;
            Queue->SlotDone.notify_all();
        }
        FreeBSplineSolver(Solver);
    }
    std::lock_guard<std::mutex> Guard(Queue->Lock);
    --Queue->RunningWorkers;
    Queue->SlotDone.notify_all();
}

} // namespace

void StartCompressionQueue(compression_queue &Queue)
{
    int32 ThreadCount = GetCompressionThreadCount();
    if (ThreadCount > Queue.JobCount) ThreadCount = Queue.JobCount;
    if (ThreadCount < 1) return;
    std::vector<std::thread> *Threads = 0;
    try {
        Threads = new std::vector<std::thread>();
        Threads->reserve((size_t)ThreadCount);
        for (int32 Index = 0; Index < ThreadCount; ++Index) {
            {
                std::lock_guard<std::mutex> Guard(Queue.Lock);
                ++Queue.RunningWorkers;
            }
            try {
                Threads->emplace_back(CompressionWorker, &Queue);
            } catch (...) {
                std::lock_guard<std::mutex> Guard(Queue.Lock);
                --Queue.RunningWorkers;
                break;
            }
        }
    } catch (...) {
        // No thread could be made: Finish does the work on this thread.
    }
    Queue.Threads = Threads;
}

void WaitForCompressionSlot(compression_queue &Queue, int32 Slot)
{
    if (Slot < 0 || Slot >= Queue.ResultCount || !Queue.Queued[Slot]) return;
    std::unique_lock<std::mutex> Guard(Queue.Lock);
    Queue.SlotDone.wait(Guard, [&] { return Queue.Done[Slot] || Queue.RunningWorkers == 0; });
}

bool FinishCompressionQueue(compression_queue &Queue)
{
    std::vector<std::thread> *Threads = (std::vector<std::thread> *)Queue.Threads;
    if (Threads) {
        for (std::thread &Thread : *Threads) Thread.join();
        delete Threads;
        Queue.Threads = 0;
    }
    // Jobs that no worker took (no thread, or no solver) are tried here.
    if (Queue.Pending) {
        {
            std::lock_guard<std::mutex> Guard(Queue.Lock);
            ++Queue.RunningWorkers;
        }
        CompressionWorker(&Queue);
    }
    if (Queue.Pending) {
        TesselError(LogCategory_Compression, "%s was not true", "every curve was fitted");
        return false;
    }
    return true;
}

bool RunCompressionQueue(compression_queue &Queue)
{
    StartCompressionQueue(Queue);
    return FinishCompressionQueue(Queue);
}
