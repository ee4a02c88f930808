// Logging and allocation from several threads at once. Run under
// ThreadSanitizer by `make tsan`; the plain build checks the results.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"

namespace {

int const ThreadCount = 8;
int const MessagesPerThread = 150;

struct received
{
    // The log hands the callback one message at a time: no lock here.
    std::vector<std::string> Messages;
    int InCallback = 0;
    int Overlaps = 0;
};

void Receive(int32 Level, int32 Category, char const *, int32, char const *Message, void *UserData)
{
    received &Received = *(received *)UserData;
    if (++Received.InCallback != 1) ++Received.Overlaps;
    Received.Messages.push_back(Message);
    --Received.InCallback;
}

// A long message whose text tells which thread and step wrote it, so that a
// message mixed with another one's text is recognised.
std::string Payload(int Thread, int Step)
{
    return std::string(200 + (Step * 7 + Thread) % 300, (char)('a' + Thread));
}

void Work(int Thread, std::atomic<int> *Failures)
{
    std::vector<void *> Held;
    for (int Step = 0; Step < MessagesPerThread; ++Step) {
        // Blocks of varied sizes and alignments, some kept a while, some
        // handed to the next step.
        int32 Size = 1 + (Step * 37 + Thread * 11) % 2000;
        uint8 *Block = (uint8 *)TesselAllocateAligned(Step % 3 ? 8 : 64, Size);
        if (!Block) {
            ++*Failures;
            continue;
        }
        memset(Block, Thread, (size_t)Size);
        Held.push_back(Block);
        memory_arena *Arena = NewMemoryArena();
        char *Copy = ArenaCopyString(Arena, "arena text");
        if (!Copy || strcmp(Copy, "arena text") != 0) ++*Failures;
        FreeMemoryArena(Arena);

        std::string Text = Payload(Thread, Step);
        TesselWarning(LogCategory_Memory, "thread %d step %d %s", Thread, Step, Text.c_str());

        if (Held.size() > 4) {
            if (((uint8 *)Held.front())[0] != (uint8)Thread) ++*Failures;
            TesselFree(Held.front());
            Held.erase(Held.begin());
        }
    }
    for (void *Block : Held) TesselFree(Block);
}

bool MessageIsWhole(std::string const &Message, std::set<std::pair<int, int>> &Seen)
{
    int Thread = -1, Step = -1, Used = 0;
    if (sscanf(Message.c_str(), "thread %d step %d %n", &Thread, &Step, &Used) != 2 || Used == 0) return false;
    if (Thread < 0 || Thread >= ThreadCount || Step < 0 || Step >= MessagesPerThread) return false;
    if (Message.substr((size_t)Used) != Payload(Thread, Step)) return false;
    return Seen.insert({Thread, Step}).second;
}

} // namespace

TEST(Threads, EightThreadsLogAndAllocateAtOnce)
{
    char Folder[] = "/tmp/tessel_threads_XXXXXX";
    ASSERT_NE(mkdtemp(Folder), nullptr);
    std::string LogFile = std::string(Folder) + "/log.txt";

    received Received;
    SetLogCallback(Receive, &Received);
    SetLogFileName(LogFile.c_str());
    int32 Before = GetLiveBlockCount();

    std::atomic<int> Failures{0};
    std::atomic<bool> Done{false};
    std::vector<std::thread> Threads;
    for (int Thread = 0; Thread < ThreadCount; ++Thread) Threads.emplace_back(Work, Thread, &Failures);
    // Meanwhile, the live list is walked (as a leak report would).
    std::thread Visitor([&Done] {
        while (!Done.load()) {
            int32 Listed = 0;
            VisitLiveBlocks([](live_block_info const &, void *User) { ++*(int32 *)User; }, &Listed);
            std::this_thread::yield();
        }
    });
    for (std::thread &Thread : Threads) Thread.join();
    Done = true;
    Visitor.join();

    SetLogCallback(0, 0);
    SetLogFileName(0);
    EXPECT_EQ(Failures.load(), 0);
    EXPECT_EQ(GetLiveBlockCount(), Before);
    EXPECT_EQ(Received.Overlaps, 0);

    // Every message arrives once and whole, at the callback and in the file.
    std::set<std::pair<int, int>> Seen;
    ASSERT_EQ(Received.Messages.size(), (size_t)(ThreadCount * MessagesPerThread));
    for (std::string const &Message : Received.Messages) EXPECT_TRUE(MessageIsWhole(Message, Seen)) << Message;

    std::ifstream File(LogFile);
    std::set<std::pair<int, int>> SeenInFile;
    std::string Line;
    int Lines = 0;
    while (std::getline(File, Line)) {
        ++Lines;
        size_t Prefix = Line.find("): ");
        ASSERT_NE(Prefix, std::string::npos) << Line;
        EXPECT_TRUE(MessageIsWhole(Line.substr(Prefix + 3), SeenInFile)) << Line;
    }
    EXPECT_EQ(Lines, ThreadCount * MessagesPerThread);
    system(("rm -rf '" + std::string(Folder) + "'").c_str());
}

TEST(Threads, BlocksAllocatedWhileTrackingIsOffAreCountedButNotListed)
{
    ASSERT_TRUE(IsAllocationTracking()); // the test programs turn it on
    int32 Before = GetLiveBlockCount();
    SetAllocationTracking(false);
    void *Unlisted = TesselAllocate(12345);
    SetAllocationTracking(true);
    void *Listed = TesselAllocate(23456);
    EXPECT_EQ(GetLiveBlockCount(), Before + 2);

    struct sizes
    {
        bool SawUnlisted = false, SawListed = false;
    } Sizes;
    VisitLiveBlocks(
        [](live_block_info const &Block, void *User) {
            sizes &S = *(sizes *)User;
            S.SawUnlisted |= Block.Size == 12345;
            S.SawListed |= Block.Size == 23456;
        },
        &Sizes);
    EXPECT_FALSE(Sizes.SawUnlisted);
    EXPECT_TRUE(Sizes.SawListed);

    TesselFree(Unlisted);
    TesselFree(Listed);
    EXPECT_EQ(GetLiveBlockCount(), Before);
}
