// Tracking allocator throughput: allocate and free pairs (16 to 4096 bytes,
// a few blocks held at a time) on 1 and 8 threads, with the live list on and
// off, against plain malloc/free in the same process as the baseline.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "foundation/tessel_memory.h"

namespace {

int const PairsPerThread = 400000;

template <typename allocate, typename release>
void Churn(allocate Allocate, release Release)
{
    void *Held[8] = {};
    for (int Index = 0; Index < PairsPerThread; ++Index) {
        int Slot = Index & 7;
        if (Held[Slot]) Release(Held[Slot]);
        Held[Slot] = Allocate((intaddrx)(16 + (Index * 37) % 4080));
    }
    for (void *Block : Held) Release(Block);
}

void RunTessel()
{
    Churn([](intaddrx Size) { return TesselAllocate(Size); }, [](void *Block) { TesselFree(Block); });
}

void RunMalloc()
{
    Churn([](intaddrx Size) { return malloc((size_t)Size); }, [](void *Block) { free(Block); });
}

// Millions of allocate/free pairs a second over all threads.
double Measure(int Threads, void (*Run)())
{
    auto Start = std::chrono::steady_clock::now();
    std::vector<std::thread> Workers;
    for (int Index = 0; Index < Threads; ++Index) Workers.emplace_back(Run);
    for (std::thread &Worker : Workers) Worker.join();
    double Seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
    return (double)Threads * PairsPerThread / Seconds / 1e6;
}

} // namespace

int main()
{
    printf("allocate/free pairs, millions a second (malloc is the baseline)\n");
    printf("%-8s %12s %12s %12s %10s %10s\n", "threads", "malloc", "list off", "list on", "off/base", "on/base");
    for (int Threads : {1, 8}) {
        double Base = Measure(Threads, RunMalloc);
        SetAllocationTracking(false);
        double Off = Measure(Threads, RunTessel);
        SetAllocationTracking(true);
        double On = Measure(Threads, RunTessel);
        printf("%-8d %12.1f %12.1f %12.1f %10.2f %10.2f\n", Threads, Base, Off, On, Off / Base, On / Base);
    }
    return GetLiveBlockCount() == 0 ? 0 : 1;
}
