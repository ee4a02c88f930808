#include "format/tessel_work_queue.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/tessel_platform.h"

namespace {

std::atomic<int32> RequestedThreads{0};

struct job_queue
{
    int32 JobCount;
    int32 const *Order;
    job_function Function;
    void *Data;
    std::atomic<int32> Next;
    std::mutex Lock;
    std::condition_variable Finished;
    int32 Running;
};

void RunWorker(job_queue *Queue)
{
    for (;;) {
        int32 Index = Queue->Next.fetch_add(1);
        if (Index >= Queue->JobCount) break;
        Queue->Function(Queue->Data, Queue->Order ? Queue->Order[Index] : Index);
    }
    std::lock_guard<std::mutex> Guard(Queue->Lock);
    --Queue->Running;
    Queue->Finished.notify_all();
}

} // namespace

void SetWorkerThreadCount(int32 Count)
{
    RequestedThreads.store(Count > 0 ? Count : 0);
}

int32 GetWorkerThreadCount()
{
    int32 Count = RequestedThreads.load();
    if (Count <= 0) Count = GetProcessorCount();
    return Count > 0 ? Count : 1;
}

void RunJobs(int32 JobCount, int32 const *Order, job_function Function, void *Data, job_wait_function Wait,
             void *WaitData)
{
    if (JobCount <= 0 || !Function) {
        if (Wait) Wait(WaitData);
        return;
    }
    job_queue Queue;
    Queue.JobCount = JobCount;
    Queue.Order = Order;
    Queue.Function = Function;
    Queue.Data = Data;
    Queue.Next.store(0);
    int32 ThreadCount = GetWorkerThreadCount();
    if (ThreadCount > JobCount) ThreadCount = JobCount;
    Queue.Running = ThreadCount;

    std::vector<std::thread> Threads;
    Threads.reserve((size_t)ThreadCount);
    for (int32 Index = 0; Index < ThreadCount; ++Index) {
        try {
            Threads.emplace_back(RunWorker, &Queue);
        } catch (...) {
            // No thread to be had: the work still gets done by the ones
            // started, or by this thread when there are none.
            std::lock_guard<std::mutex> Guard(Queue.Lock);
            Queue.Running -= ThreadCount - Index;
            break;
        }
    }
    if (Threads.empty()) {
        for (int32 Index = 0; Index < JobCount; ++Index) Function(Data, Order ? Order[Index] : Index);
    } else {
        std::unique_lock<std::mutex> Guard(Queue.Lock);
        while (Queue.Running > 0) {
            Queue.Finished.wait_for(Guard, std::chrono::milliseconds(JobWaitMilliseconds));
            if (Queue.Running > 0 && Wait) {
                Guard.unlock();
                Wait(WaitData);
                Guard.lock();
            }
        }
    }
    for (std::thread &Thread : Threads) Thread.join();
    if (Wait) Wait(WaitData);
}
