// Exports running at the same time in separate processes share one
// temporary directory without touching each other's files.
#include <gtest/gtest.h>

#include <dirent.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <string>

#include "support/test_command.h"

namespace {

std::string ReadAll(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

int CountEntries(std::string const &Folder)
{
    int Count = 0;
    if (DIR *Dir = opendir(Folder.c_str())) {
        while (dirent *Entry = readdir(Dir)) Count += Entry->d_name[0] != '.';
        closedir(Dir);
    }
    return Count;
}

} // namespace

TEST(ParallelExports, ShareTheTemporaryDirectoryWithoutCollisions)
{
    std::string Program = TesselProgramPath();
    if (Program.empty()) GTEST_SKIP() << "the tessel program is not built";
    char Template[] = "/tmp/tessel_parallel_XXXXXX";
    ASSERT_NE(mkdtemp(Template), nullptr);
    std::string Folder = Template;
    std::string Temporary = Folder + "/tmp";
    std::string Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string Definitions = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm_animdefs.xml";
    // Four exports started together; each writes its status to a file.
    std::string Script = "mkdir -p '" + Temporary + "' && export TMPDIR='" + Temporary + "' && ";
    for (int Index = 0; Index < 4; ++Index) {
        std::string Out = Folder + "/out" + std::to_string(Index);
        Script += "('" + Program + "' export '" + Scene + "' '" + Out + ".ts2' --animdefs '" + Definitions +
                  "' >/dev/null 2>&1; echo $? > '" + Out + ".status') & ";
    }
    Script += "wait";
    ASSERT_EQ(RunCommand(Script).Status, 0);
    std::string First = ReadAll(Folder + "/out0.ts2");
    EXPECT_GT(First.size(), 456u);
    for (int Index = 0; Index < 4; ++Index) {
        std::string Out = Folder + "/out" + std::to_string(Index);
        EXPECT_EQ(ReadAll(Out + ".status"), "0\n") << "export " << Index;
        EXPECT_EQ(ReadAll(Out + ".ts2"), First) << "export " << Index << " differs";
    }
    EXPECT_EQ(CountEntries(Temporary), 0) << "temporary files were left in " << Temporary;
    RunCommand("rm -rf '" + Folder + "'");
}
