// What `tessel export` does to the files around it: it never overwrites an
// input, never loses the file already at the output path, and leaves no
// temporary file behind, whether it succeeds, fails or is killed.
#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <zlib.h>

#include <cmath>
#include <cstring>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/fbx_test_writer.h"
#include "support/test_command.h"

namespace {

std::string ReadAll(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

void WriteAll(std::string const &Path, std::string const &Bytes)
{
    std::ofstream(Path, std::ios::binary) << Bytes;
}

std::vector<std::string> Entries(std::string const &Folder)
{
    std::vector<std::string> Names;
    if (DIR *Dir = opendir(Folder.c_str())) {
        while (dirent *Entry = readdir(Dir)) {
            std::string Name = Entry->d_name;
            if (Name != "." && Name != "..") Names.push_back(Name);
        }
        closedir(Dir);
    }
    return Names;
}

std::string Quote(std::string const &Text)
{
    return "'" + Text + "'";
}

class SafeOutput : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
        char Template[] = "/tmp/tessel_safe_XXXXXX";
        ASSERT_NE(mkdtemp(Template), nullptr);
        Folder = Template;
        Temporary = Folder + "/tmp";
        Out = Folder + "/out";
        ASSERT_EQ(mkdir(Temporary.c_str(), 0700), 0);
        ASSERT_EQ(mkdir(Out.c_str(), 0700), 0);
        Scene = Out + "/arm.fbx";
        WriteAll(Scene, ReadAll(TESSEL_SOURCE_DIR "/examples/rigged_arm.fbx"));
        Definitions = Out + "/arm.xml";
        WriteAll(Definitions, ReadAll(TESSEL_SOURCE_DIR "/examples/rigged_arm_animdefs.xml"));
    }
    void TearDown() override
    {
        if (!Folder.empty()) RunCommand("rm -rf " + Quote(Folder));
    }
    // tessel export with TMPDIR in the test's folder; Prefix runs first in
    // the same shell (ulimit, trap).
    command_result Export(std::string const &Arguments, std::string const &Prefix = "")
    {
        return RunCommand(Prefix + "env TMPDIR=" + Quote(Temporary) + " " + TesselCommandPrefix() + " export " +
                          Arguments);
    }

    std::string Folder, Temporary, Out, Scene, Definitions;
};

} // namespace

TEST_F(SafeOutput, AnOutputThatIsAnInputIsRefusedBeforeAnythingIsRead)
{
    std::string Settings = Out + "/settings.bin";
    ASSERT_EQ(RunTessel("settings --write " + Quote(Settings)).Status, 0);
    ASSERT_EQ(symlink(Scene.c_str(), (Out + "/link.ts2").c_str()), 0);
    std::string SceneBytes = ReadAll(Scene), DefinitionBytes = ReadAll(Definitions), SettingBytes = ReadAll(Settings);

    std::string Cases[] = {
        Quote(Scene) + " " + Quote(Scene),
        Quote(Scene) + " " + Quote(Out + "/./arm.fbx"),
        Quote(Scene) + " " + Quote(Out + "/link.ts2"),
        Quote(Scene) + " " + Quote(Definitions) + " --animdefs " + Quote(Definitions),
        Quote(Scene) + " " + Quote(Settings) + " --settings " + Quote(Settings),
    };
    for (std::string const &Arguments : Cases) {
        command_result Result = Export(Arguments);
        EXPECT_NE(Result.Status, 0) << Arguments;
        EXPECT_NE(Result.Output.find("refusing"), std::string::npos) << Result.Output;
        // Refused up front: not even the title of the export was shown.
        EXPECT_EQ(Result.Output.find("Exporting"), std::string::npos) << Result.Output;
    }
    EXPECT_TRUE(ReadAll(Scene) == SceneBytes);
    EXPECT_TRUE(ReadAll(Definitions) == DefinitionBytes);
    EXPECT_TRUE(ReadAll(Settings) == SettingBytes);
}

TEST_F(SafeOutput, PipesDevicesAndFifosAreRefusedAsInputsAndOutputs)
{
    std::string Fifo = Out + "/fifo";
    ASSERT_EQ(mkfifo(Fifo.c_str(), 0600), 0);
    // Each would block forever on a FIFO with no writer.
    std::string Cases[] = {Quote(Fifo) + " " + Quote(Out + "/a.ts2"),
                           Quote(Scene) + " " + Quote(Out + "/a.ts2") + " --settings " + Quote(Fifo),
                           Quote(Scene) + " " + Quote(Out + "/a.ts2") + " --animdefs " + Quote(Fifo),
                           Quote(Scene) + " " + Quote(Fifo), Quote(Scene) + " /dev/null"};
    for (std::string const &Arguments : Cases) {
        command_result Result = Export(Arguments, "timeout 20 ");
        EXPECT_EQ(Result.Status, 1) << Arguments << "\n" << Result.Output;
        EXPECT_NE(Result.Output.find("regular file"), std::string::npos) << Result.Output;
    }
    command_result Inspect = RunCommand("timeout 20 " + Quote(TesselProgramPath()) + " inspect " + Quote(Fifo));
    EXPECT_EQ(Inspect.Status, 1) << Inspect.Output;
    struct stat Info;
    EXPECT_TRUE(stat(Fifo.c_str(), &Info) == 0 && S_ISFIFO(Info.st_mode));
    EXPECT_TRUE(stat("/dev/null", &Info) == 0 && S_ISCHR(Info.st_mode));
}

// The old output survives a failure late in the export byte for byte, and
// neither success nor failure leaves a temporary file anywhere.
TEST_F(SafeOutput, AFailedExportKeepsTheOldOutputAndLeavesNothingBehind)
{
    std::string Target = Out + "/arm.ts2";
    std::string Old(20000, 'x');
    WriteAll(Target, Old);

    // Writes beyond 4 KB fail (as on a full disk) instead of killing the
    // process: the output (8 KB) fills up while the file is packaged.
    command_result Full = Export(Quote(Scene) + " " + Quote(Target), "trap '' XFSZ; ulimit -f 8; ");
    EXPECT_EQ(Full.Status, 1) << Full.Output;
    EXPECT_TRUE(ReadAll(Target) == Old);
    EXPECT_TRUE(Entries(Temporary).empty());
    EXPECT_EQ(Entries(Out).size(), 3u); // arm.fbx, arm.xml, arm.ts2

    command_result Done = Export(Quote(Scene) + " " + Quote(Target) + " --animdefs " + Quote(Definitions));
    EXPECT_EQ(Done.Status, 0) << Done.Output;
    EXPECT_TRUE(ReadAll(Target) != Old);
    EXPECT_EQ(ReadAll(Target).substr(0, 4), "\xe5\x9b\x49\x5e");
    EXPECT_TRUE(Entries(Temporary).empty());
    EXPECT_EQ(Entries(Out).size(), 3u);

    // Through a link the linked file is replaced and the link stays.
    std::string Link = Out + "/link.ts2";
    ASSERT_EQ(symlink(Target.c_str(), Link.c_str()), 0);
    WriteAll(Target, Old);
    EXPECT_EQ(Export(Quote(Scene) + " " + Quote(Link)).Status, 0);
    struct stat Info;
    EXPECT_TRUE(lstat(Link.c_str(), &Info) == 0 && S_ISLNK(Info.st_mode));
    EXPECT_TRUE(ReadAll(Target) != Old);
}

TEST_F(SafeOutput, ALongTemporaryDirectoryIsUsedWhole)
{
    // 300 characters and more: deeper than the old 259-character buffer.
    std::string Deep = Temporary;
    while (Deep.size() < 300) Deep += "/a_long_folder_name_for_temporary_files";
    ASSERT_EQ(RunCommand("mkdir -p " + Quote(Deep)).Status, 0);
    command_result Result = RunCommand("env TMPDIR=" + Quote(Deep) + " " + TesselCommandPrefix() + " export " +
                                       Quote(Scene) + " " + Quote(Out + "/deep.ts2"));
    EXPECT_EQ(Result.Status, 0) << Result.Output;
    EXPECT_EQ(Result.Output.find("overflow"), std::string::npos) << Result.Output;
    EXPECT_TRUE(Entries(Deep).empty());
    // Nothing landed in the cut-off folder either.
    EXPECT_EQ(Entries(Temporary).size(), 1u);
}

// A killed export (SIGKILL while it compresses) leaves the old output as it
// was; its stray temporary files are only in its private temporary folder.
TEST_F(SafeOutput, AKilledExportLeavesTheOldOutputAndStraysOnlyInItsPrivateFolder)
{
    // A heavy mesh, so that packaging takes long enough to be interrupted.
    fbx_test_scene Grid;
    fbx_test_mesh Mesh;
    int const Size = 400;
    for (int Y = 0; Y <= Size; ++Y) {
        for (int X = 0; X <= Size; ++X) {
            Mesh.ControlPoints.insert(Mesh.ControlPoints.end(),
                                      {(double)X, std::sin(X * 0.37) * std::cos(Y * 0.91) * 3.0, (double)Y});
        }
    }
    for (int Y = 0; Y < Size; ++Y) {
        for (int X = 0; X < Size; ++X) {
            int32_t Corner = Y * (Size + 1) + X;
            Mesh.Polygons.push_back({Corner, Corner + 1, Corner + Size + 2, Corner + Size + 1});
        }
    }
    Grid.Meshes.push_back(Mesh);
    fbx_test_node Node;
    Node.Name = "Grid";
    Node.Kind = "Mesh";
    Node.Mesh = 0;
    Grid.Nodes.push_back(Node);
    std::vector<uint8_t> Bytes = WriteFbxTestScene(Grid, FbxTestBinary(7400));
    std::string Input = Out + "/grid.fbx";
    WriteAll(Input, std::string(Bytes.begin(), Bytes.end()));
    std::string Target = Out + "/grid.ts2";
    std::string Old(5000, 'o');
    WriteAll(Target, Old);

    int Pipe[2];
    ASSERT_EQ(pipe(Pipe), 0);
    pid_t Child = fork();
    ASSERT_GE(Child, 0);
    if (Child == 0) {
        dup2(Pipe[1], 2);
        close(Pipe[0]);
        setenv("TMPDIR", Temporary.c_str(), 1);
        std::string Program = TesselProgramPath();
        execl(Program.c_str(), Program.c_str(), "export", Input.c_str(), Target.c_str(), (char *)0);
        _exit(127);
    }
    close(Pipe[1]);
    // The progress lines (stderr is not a terminal): kill at "Packaging".
    std::string Seen;
    char Buffer[256];
    bool Killed = false;
    for (ssize_t Count; !Killed && (Count = read(Pipe[0], Buffer, sizeof(Buffer))) > 0;) {
        Seen.append(Buffer, (size_t)Count);
        if (Seen.find("Packaging file") != std::string::npos) Killed = kill(Child, SIGKILL) == 0;
    }
    close(Pipe[0]);
    int Status = 0;
    waitpid(Child, &Status, 0);
    if (!WIFSIGNALED(Status)) GTEST_SKIP() << "the export ended before it could be killed:\n" << Seen;

    EXPECT_TRUE(ReadAll(Target) == Old);
    std::vector<std::string> Left = Entries(Out);
    EXPECT_EQ(Left.size(), 4u); // arm.fbx, arm.xml, grid.fbx, grid.ts2
    for (std::string const &Name : Entries(Temporary)) {
        EXPECT_EQ(Name.rfind("export_buffer_", 0), 0u) << Name;
        struct stat Info;
        ASSERT_EQ(stat((Temporary + "/" + Name).c_str(), &Info), 0);
        EXPECT_TRUE(S_ISDIR(Info.st_mode)) << Name;
        EXPECT_EQ(Info.st_mode & 0777, 0700u) << Name;
    }
}

TEST_F(SafeOutput, DamagedSettingsFilesAreRefusedWithNothingWritten)
{
    std::string Settings = Out + "/settings.bin";
    ASSERT_EQ(RunTessel("settings --write " + Quote(Settings)).Status, 0);
    std::string Whole = ReadAll(Settings);
    ASSERT_GT(Whole.size(), 1000u);
    EXPECT_EQ(RunTessel("settings --read " + Quote(Settings)).Status, 0);

    std::string Target = Out + "/arm.ts2";
    int Accepted = 0, Damaged = 0;
    for (size_t Step = 1; Step <= 20; ++Step) {
        size_t At = Whole.size() * Step / 21;
        std::string Cut = Whole.substr(0, At);
        std::string Flipped = Whole;
        Flipped[At] = (char)(Flipped[At] ^ 0x41);
        for (std::string const &Bytes : {Cut, Flipped}) {
            std::string Path = Out + "/damaged.bin";
            WriteAll(Path, Bytes);
            ++Damaged;
            Accepted += RunTessel("settings --read " + Quote(Path)).Status == 0;
            if (Step % 5 == 0) {
                command_result Result = Export(Quote(Scene) + " " + Quote(Target) + " --settings " + Quote(Path));
                EXPECT_NE(Result.Status, 0) << Step;
                EXPECT_NE(Result.Output.find("damaged"), std::string::npos) << Result.Output;
                EXPECT_EQ(access(Target.c_str(), F_OK), -1);
            }
        }
    }
    // A flip inside a number that stays in range can't be told from a real
    // value; everything else is caught.
    EXPECT_LE(Accepted, 2) << "of " << Damaged;
}

TEST_F(SafeOutput, WarningsNameFilesWithoutTheBuildMachinesPathsAndCountsStayUnsigned)
{
    command_result Missing = RunTessel("settings --read " + Quote(Out + "/missing.bin"));
    EXPECT_NE(Missing.Status, 0);
    EXPECT_NE(Missing.Output.find("tessel_platform_files.cpp"), std::string::npos) << Missing.Output;
    EXPECT_EQ(Missing.Output.find("/src/"), std::string::npos) << Missing.Output;

    // A section whose fixup count has the top bit set, with the CRC made to
    // match so that the reader gets as far as the count.
    std::string Bytes = ReadAll(TESSEL_SOURCE_DIR "/tests/format/test_compression_siege_tower_ts2.bin");
    ASSERT_GT(Bytes.size(), 456u);
    uint32_t Count = 0xFC000000u;
    memcpy(&Bytes[104 + 32], &Count, 4);
    uint32_t CRC = (uint32_t)crc32(0, (Bytef const *)Bytes.data() + 104, (uInt)(Bytes.size() - 104));
    memcpy(&Bytes[40], &CRC, 4);
    std::string Bad = Out + "/bad.ts2";
    WriteAll(Bad, Bytes);
    command_result Inspect = RunTessel("inspect " + Quote(Bad));
    EXPECT_NE(Inspect.Status, 0);
    EXPECT_NE(Inspect.Output.find("4227858432"), std::string::npos) << Inspect.Output;
    EXPECT_EQ(Inspect.Output.find("-67108864"), std::string::npos) << Inspect.Output;
}

// The uninitialised reads that memcheck found in the transform cache (run
// only where valgrind is installed; `make valgrind` runs every command-line
// test this way).
TEST_F(SafeOutput, ExportIsCleanUnderMemcheck)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "memcheck can't run a program built with a sanitizer";
#endif
    if (RunCommand("valgrind --version").Status != 0) GTEST_SKIP() << "valgrind is not installed";
    command_result Result =
        RunCommand("valgrind -q --error-exitcode=99 " + Quote(TesselProgramPath()) + " export " + Quote(Scene) + " " +
                   Quote(Out + "/vg.ts2") + " --animdefs " + Quote(Definitions));
    EXPECT_EQ(Result.Status, 0) << Result.Output;
}
