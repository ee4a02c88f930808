// Every allocation of an export refused in turn: the export either writes a
// whole file and says "Export Complete", or writes nothing, says "Export
// Aborted" and leaves no memory and no temporary file behind.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <map>
#include <set>
#include <string>

#include "format/tessel_file_reader.h"
#include "foundation/tessel_memory.h"
#include "exporter_test_files.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"
#include "tessel/tessel.h"

namespace {

// Sections are coded on worker threads: the hook is called from several.
std::atomic<int64> AllocationsLeft{-1}; // -1: never refuse
std::atomic<int64> AllocationsMade{0};
allocate_hook Underlying = nullptr;
std::mutex StageLock;
std::string LastStage;      // as the progress last reported it
std::string StageAtFailure; // the stage of the first refusal

// Refuses every allocation once AllocationsLeft have been made.
void *RefusingAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size)
{
    ++AllocationsMade;
    int64 Left = AllocationsLeft.load();
    while (Left > 0 && !AllocationsLeft.compare_exchange_weak(Left, Left - 1)) {
    }
    if (Left == 0) {
        std::lock_guard<std::mutex> Guard(StageLock);
        if (StageAtFailure.empty()) StageAtFailure = LastStage.empty() ? "(loading)" : LastStage;
        return nullptr;
    }
    return Underlying(File, Line, Alignment, Size);
}

void RememberStage(export_progress const *Progress)
{
    std::lock_guard<std::mutex> Guard(StageLock);
    LastStage = Progress->Stage ? Progress->Stage : "";
}

std::string DescribeLiveBlocks()
{
    std::string Text;
    VisitLiveBlocks(
        [](live_block_info const &Block, void *Out) {
            *(std::string *)Out += std::string(" ") + Block.SourceFile + ":" + std::to_string(Block.SourceLine);
        },
        &Text);
    return Text;
}

bool Exists(std::string const &Path)
{
    struct stat Status;
    return stat(Path.c_str(), &Status) == 0;
}

// Runs one export that refuses the allocation after Allowed more; returns
// whether it wrote the file.
bool ExportRefusingAfter(int64 Allowed, std::string const &Output)
{
    std::string const Input = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string const Defs = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm_animdefs.xml";
    AllocationsLeft = Allowed;
    AllocationsMade = 0;
    LastStage.clear();
    StageAtFailure.clear();
    Underlying = AllocateHook;
    AllocateHook = RefusingAllocate;
    bool Written = ExportFBXFile(Input.c_str(), Output.c_str(), Defs.c_str(), RememberStage);
    AllocateHook = Underlying;
    AllocationsLeft = -1;
    return Written;
}

} // namespace

TEST(ExportFailures, EveryRefusedAllocationAbortsCleanly)
{
    log_capture Capture; // the refusals are logged as errors
    std::string const Output = PrivateTemporaryDirectory() + "/refused.ts2";
    remove(Output.c_str());

    ASSERT_TRUE(ExportRefusingAfter(-1, Output));
    int64 const Total = AllocationsMade;
    ASSERT_GT(Total, 100);
    ASSERT_EQ(LastStage, "Export Complete");
    remove(Output.c_str());

    // Every allocation for the first few hundred, then an even spread, so
    // that each stage meets a refusal.
    std::set<int64> Points;
    for (int64 N = 0; N < Total && N < 400; ++N) Points.insert(N);
    for (int64 Step = 0; Step < 300; ++Step) Points.insert(Total * Step / 300);

    int32 const Before = GetLiveBlockCount();
    std::map<std::string, int32> FailuresByStage;
    for (int64 N : Points) {
        bool Written = ExportRefusingAfter(N, Output);
        ASSERT_EQ(Written, Exists(Output)) << "refused allocation " << N << " in " << StageAtFailure;
        if (Written) {
            EXPECT_EQ(LastStage, "Export Complete") << N;
            loaded_file *File = LoadFileFromDisk(Output.c_str());
            EXPECT_NE(File, nullptr) << N;
            FreeLoadedFile(File);
            remove(Output.c_str());
        } else if (!LastStage.empty()) {
            EXPECT_EQ(LastStage, "Export Aborted") << "refused allocation " << N;
        }
        if (!Written && !StageAtFailure.empty()) ++FailuresByStage[StageAtFailure];
        ASSERT_EQ(GetLiveBlockCount(), Before) << "leak after refusing allocation " << N << ":" << DescribeLiveBlocks();
        ASSERT_TRUE(ListTemporaryFiles().empty()) << N;
    }
    // "Models" takes its records from the arena's room: it never allocates.
    for (char const *Stage : {"(loading)", "Skeletons", "Meshes", "Animations", "I/O", "Packaging file"})
        EXPECT_GT(FailuresByStage[Stage], 0) << "no refusal reached " << Stage;
}
