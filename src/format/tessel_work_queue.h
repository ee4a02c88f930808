// Independent jobs on worker threads: the sections of a file are coded in
// parallel, each into its own output, so the bytes never depend on how many
// threads there are or which one ran a job.
#pragma once

#include "foundation/tessel_types.h"

// Threads that RunJobs may use; 0 (the default) means one per processor.
void SetWorkerThreadCount(int32 Count);
// The count in effect, at least 1.
int32 GetWorkerThreadCount();

typedef void (*job_function)(void *Data, int32 Job);
typedef void (*job_wait_function)(void *Data);

// Runs Function(Data, Job) once for each of JobCount jobs, handed out in the
// order of Order (JobCount entries; null for 0, 1, 2 ...) to worker threads.
// The calling thread only waits: it calls Wait(WaitData) (may be null) about
// every JobWaitMilliseconds and once more when all jobs are done. Jobs must
// not log or report progress themselves: they run on other threads.
void RunJobs(int32 JobCount, int32 const *Order, job_function Function, void *Data, job_wait_function Wait,
             void *WaitData);

enum
{
    JobWaitMilliseconds = 50,
};
