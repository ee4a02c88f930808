// Sections coded on worker threads: the same bytes whatever the thread
// count, every job run exactly once, and packaging progress that rises to
// its total.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "format/tessel_file_builder.h"
#include "format/tessel_work_queue.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"

namespace {

std::vector<uint8_t> ReadBytes(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

// Vertex-like words with some repetition, Size bytes.
std::vector<uint8_t> MakeSectionData(uint32_t Seed, size_t Size)
{
    std::vector<uint8_t> Data(Size);
    for (size_t Index = 0; Index < Size; ++Index) {
        Seed = Seed * 1664525u + 1013904223u;
        Data[Index] = (uint8_t)((Index % 16 < 8) ? (Index / 48) : (Seed >> 29));
    }
    return Data;
}

struct progress_seen
{
    std::vector<int32> Done;
    int32 Total = -1;
};

void RecordProgress(void *Data, int32 Done, int32 Total)
{
    progress_seen *Seen = (progress_seen *)Data;
    Seen->Done.push_back(Done);
    Seen->Total = Total;
}

// Three Trove1 sections of different sizes and one stored one.
std::vector<uint8_t> BuildFile(int32 Threads, progress_seen *Seen, int32 *Steps)
{
    SetWorkerThreadCount(Threads);
    std::string Path = std::string(GetTemporaryDirectory()) + "/section_threads_" +
                       std::to_string(GetProcessIdentifier()) + "_" + std::to_string(Threads) + ".ts2";
    file_builder *Builder = BeginFile(StandardSectionCount, TesselStandardFileTypeTag, GetNativeFileMagicBlock(),
                                      GetTemporaryDirectory(), "section_threads");
    if (!Builder) return {};
    int32 const Sections[4] = {StandardMainSection, StandardRigidVertexSection, StandardRigidIndexSection,
                               StandardDiscardableSection};
    size_t const Sizes[4] = {70000, 160000, 90000, 30000};
    file_location Root = {};
    for (int32 Index = 0; Index < 4; ++Index) {
        SetFileSectionFormat(Builder, Sections[Index], Index == 3 ? NoCompression : Trove1Compression, 4);
        std::vector<uint8_t> Data = MakeSectionData(17u + (uint32_t)Index, Sizes[Index]);
        // Part in the 8-bit stream, so that sections have several streams.
        WriteSectionData(Builder, Sections[Index], 0, (int32)(Data.size() - 1000), Data.data(),
                         Index == 0 ? &Root : nullptr);
        WriteSectionData(Builder, Sections[Index], 1, 1000, Data.data() + Data.size() - 1000, nullptr);
    }
    SetFileRoots(Builder, Root, Root);
    *Steps = GetFileBuilderPackagingSteps(Builder);
    SetFileBuilderProgress(Builder, RecordProgress, Seen);
    bool Written = EndFile(Builder, Path.c_str());
    SetWorkerThreadCount(0);
    std::vector<uint8_t> Bytes = Written ? ReadBytes(Path) : std::vector<uint8_t>();
    remove(Path.c_str());
    return Bytes;
}

} // namespace

TEST(SectionThreads, SameBytesAndFullProgressWhateverTheThreadCount)
{
    int32 Live = LiveBlocks();
    progress_seen OneSeen;
    int32 Steps = 0;
    std::vector<uint8_t> One = BuildFile(1, &OneSeen, &Steps);
    ASSERT_FALSE(One.empty());
    // 70000 + 160000 + 90000 coded bytes in 64 KiB steps, rounded up.
    EXPECT_EQ(Steps, 5);
    for (int32 Threads : {2, 3, 8}) {
        progress_seen Seen;
        int32 ThreadSteps = 0;
        EXPECT_EQ(BuildFile(Threads, &Seen, &ThreadSteps), One) << Threads << " threads";
        ASSERT_FALSE(Seen.Done.empty());
        EXPECT_EQ(Seen.Total, Steps);
        EXPECT_EQ(Seen.Done.back(), Steps);
        for (size_t Index = 1; Index < Seen.Done.size(); ++Index) EXPECT_LE(Seen.Done[Index - 1], Seen.Done[Index]);
    }
    EXPECT_EQ(OneSeen.Done.back(), Steps);
    EXPECT_EQ(Live, LiveBlocks());
}

TEST(SectionThreads, EveryJobRunsOnceInTheGivenOrderOnOneThread)
{
    struct run_log
    {
        std::atomic<int32> Runs[6];
        std::vector<int32> Sequence;
    };
    auto Record = [](void *Data, int32 Job) {
        run_log *Log = (run_log *)Data;
        Log->Runs[Job].fetch_add(1);
    };
    auto RecordInOrder = [](void *Data, int32 Job) { ((run_log *)Data)->Sequence.push_back(Job); };
    int32 const Order[6] = {4, 1, 5, 0, 2, 3};
    for (int32 Threads : {1, 2, 16}) {
        SetWorkerThreadCount(Threads);
        run_log Log;
        for (std::atomic<int32> &Runs : Log.Runs) Runs.store(0);
        int32 Waits = 0;
        RunJobs(
            6, Order, Record, &Log, [](void *Data) { ++*(int32 *)Data; }, &Waits);
        for (int32 Job = 0; Job < 6; ++Job) EXPECT_EQ(Log.Runs[Job].load(), 1) << Threads << " threads, job " << Job;
        // The waiting thread is called at least once, after the last job.
        EXPECT_GE(Waits, 1);
    }
    SetWorkerThreadCount(1);
    run_log Log;
    RunJobs(6, Order, RecordInOrder, &Log, nullptr, nullptr);
    EXPECT_EQ(Log.Sequence, std::vector<int32>(Order, Order + 6));
    RunJobs(0, nullptr, RecordInOrder, &Log, nullptr, nullptr);
    EXPECT_EQ(Log.Sequence.size(), 6u);
    SetWorkerThreadCount(0);
    EXPECT_GE(GetWorkerThreadCount(), 1);
}
