// The compression queue: every sample stream of one animation becomes an
// independent job; worker threads, each with its own solver, fit the
// curves, and every result lands in a slot of its own, so that the output
// never depends on which worker took which job or on how many there were.
#pragma once

#include "animation/tessel_compress_curve.h"
#include "foundation/tessel_stack_allocator.h"
#include "foundation/tessel_types.h"

#include <condition_variable>
#include <mutex>

struct settings_node;

// Result slot kinds.
enum compression_kind
{
    CompressionKind_Position = 0,
    CompressionKind_Orientation = 1,
    CompressionKind_ScaleShear = 2,
    CompressionKind_Vector = 3,
};

// The candidate formats of a stream and its constant and identity forms.
struct compression_types
{
    data_type_definition **Types;
    int32 Count;
    data_type_definition *ConstantType;
    data_type_definition *IdentityType;
    real32 const *IdentityVector;
};

// Candidates by dimension: 3, 4 (normalized: quaternions) and 9 have their
// own lists, any other dimension the generic one. Without UseQuantized only
// the first (plain float) candidate is left.
compression_types SelectCompressionTypes(int32 Dimension, bool Normalized, bool UseQuantized);

// Solver flags of a stream from three checkboxes: jumps, creases and
// aggressive knot elimination; start seeds and pinned end points always.
uint32 BuildSolverFlags(settings_node const *Settings, int32 AllowJumpsId, int32 AllowCreasesId, int32 AggressiveId);

#pragma pack(push, 4)
struct compression_job
{
    char const *Name; // the bone's, on its position job only
    real32 *Samples;  // borrowed; may be edited in place
    int32 SampleCount;
    int32 Dimension;
    real32 TimeStep;
    uint8 Compress; // fit curves; otherwise keep the raw samples
    uint32 SolverFlags;
    compress_curve_parameters Params;
    int32 Model;
    int32 Kind;
    int32 TrackIndex;
    compression_job *Next;
};
#pragma pack(pop)

struct compression_queue
{
    int32 SampleCount;  // the longest job: sizes every worker's solver
    int32 MaxDimension; // the widest job, at least 9
    int32 ModelCount;
    int32 TrackLimit;
    int32 ResultCount;
    curve2 **Results;
    uint8 *Achieved;
    compression_job *Pending; // in the order queued
    compression_job *LastPending;
    int32 JobCount;
    stack_allocator Jobs;
    std::mutex Lock; // guards Pending, Done and RunningWorkers
    std::condition_variable SlotDone;
    uint8 *Queued; // per slot: a job was queued for it
    uint8 *Done;   // per slot: its job is finished
    int32 RunningWorkers;
    void *Threads; // the workers between Start and Finish
};

// Null when memory runs out. TrackLimit is the largest bone or vector count
// of any model.
compression_queue *BeginCompressionQueue(int32 SampleCount, int32 ModelCount, int32 TrackLimit,
                                         int32 MaxVectorDimension);
// Frees every result curve, the jobs and the queue. Accepts null.
void EndCompressionQueue(compression_queue *Queue);

int32 GetCompressionSlot(compression_queue const &Queue, int32 Model, int32 Kind, int32 TrackIndex);
// The result of a slot (null when it has none).
curve2 *GetCompressionResult(compression_queue const &Queue, int32 Model, int32 Kind, int32 TrackIndex);

// Copies Job into the queue. False (nothing queued) when memory runs out or
// the job can't be fitted: bad slot, dimension, degree or parameters.
bool QueueCompressionJob(compression_queue &Queue, compression_job const &Job);

// The curve of one job, fitted or raw; Solver is needed only to fit.
curve2 *CompressJob(bspline_solver *Solver, compression_job &Job, uint8 *Achieved);

// Runs every pending job on worker threads and waits for them. False when
// no worker could start its solver and jobs were left undone.
bool RunCompressionQueue(compression_queue &Queue);
// The same in steps, so that the calling thread can follow the results as
// they come in: Start launches the workers, WaitForCompressionSlot blocks
// until the job of a slot is done (at once for a slot without a job, or
// when no worker is left), Finish joins them and does what they left.
void StartCompressionQueue(compression_queue &Queue);
void WaitForCompressionSlot(compression_queue &Queue, int32 Slot);
bool FinishCompressionQueue(compression_queue &Queue);

// Workers for the exports of this process: 0 (the default) takes the
// smaller of the processor count and 8; any other value is clamped to 1..64.
void SetCompressionThreadCount(int32 Count);
int32 GetCompressionThreadCount();
