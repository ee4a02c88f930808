// Every real FBX file of the shared folder either loads or is refused with a
// clear message, and where it loads, the scene counts agree with the counts
// an independent reader wrote into EXPECTED.tsv.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_importer.h"
#include "support/test_log_capture.h"

namespace {

struct expected_file
{
    std::string Path;
    std::string Status;
    std::map<std::string, std::string> Columns;
    long Number(char const *Column) const
    {
        auto Found = Columns.find(Column);
        return Found == Columns.end() ? -1 : atol(Found->second.c_str());
    }
};

std::string CorpusDirectory()
{
    return TESSEL_SHARED_FBX_DIR;
}

std::vector<expected_file> ReadExpected()
{
    std::vector<expected_file> Files;
    std::ifstream Table(CorpusDirectory() + "/EXPECTED.tsv");
    std::string Line;
    std::vector<std::string> Header;
    while (std::getline(Table, Line)) {
        std::vector<std::string> Cells;
        std::stringstream Stream(Line);
        std::string Cell;
        while (std::getline(Stream, Cell, '\t')) Cells.push_back(Cell);
        if (Header.empty()) {
            Header = Cells;
            continue;
        }
        if (Cells.empty()) continue;
        expected_file File;
        for (size_t Index = 0; Index < Cells.size() && Index < Header.size(); ++Index)
            File.Columns[Header[Index]] = Cells[Index];
        File.Path = File.Columns["path"];
        File.Status = File.Columns["status"];
        Files.push_back(File);
    }
    return Files;
}

#define SKIP_WITHOUT_CORPUS(Files)                                                                                     \
    if (Files.empty()) GTEST_SKIP() << "no real FBX files at " << CorpusDirectory() << " (EXPECTED.tsv missing)";

} // namespace

// The byte level: every file parses into a field tree or is refused with a
// message; nothing crashes, nothing leaks.
TEST(SharedCorpus, EveryFileParsesOrIsRefusedByTheFieldContainer)
{
    std::vector<expected_file> Files = ReadExpected();
    SKIP_WITHOUT_CORPUS(Files);
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();
    for (expected_file const &File : Files) {
        SCOPED_TRACE(File.Path);
        KFbx Fbx;
        bool Opened = Fbx.ProjectOpenFile((CorpusDirectory() + "/" + File.Path).c_str());
        if (File.Status != "ok") {
            EXPECT_FALSE(Opened);
            EXPECT_STRNE(Fbx.GetErrorText(), "");
            continue;
        }
        ASSERT_TRUE(Opened) << Fbx.GetErrorText();
        EXPECT_EQ(Fbx.IsBinary(), File.Columns.at("ascii") == "binary");
        // Every array of the file decodes (zlib streams included).
        std::vector<fbx_field const *> Stack = {nullptr};
        while (!Stack.empty()) {
            fbx_field const *Parent = Stack.back();
            Stack.pop_back();
            for (fbx_field const *Field = Fbx.GetFirstChild(Parent); Field; Field = Fbx.GetNextSibling(Field)) {
                Stack.push_back(Field);
                if (Fbx.GetValueCount(Field) == 1 && Fbx.GetArrayElementType(Field, 0) != 0 &&
                    Fbx.GetArrayElementType(Field, 0) != FbxValue_AsciiArray) {
                    int64 Count = 0;
                    EXPECT_TRUE(Fbx.GetArrayData(Field, 0, FbxValue_ArrayReal64, &Count))
                        << Fbx.GetFieldName(Field) << ": " << Fbx.GetErrorText();
                }
            }
        }
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

namespace {

std::string BaseName(std::string const &Path)
{
    size_t Slash = Path.rfind('/');
    return Slash == std::string::npos ? Path : Path.substr(Slash + 1);
}

// Where our counts differ from the independent reader by design.
struct known_difference
{
    char const *File;
    char const *Column;
    long Ours;
    char const *Why;
};
known_difference const KnownDifferences[] = {
    // Our mesh counts go by nodes that hold a mesh: a geometry instanced under
    // two nodes counts twice (with its control points, polygons and clusters),
    // since the exporter sees it twice. The other reader counts geometries.
    {"maya_instanced_skin_7700_ascii.fbx", "meshes", 2, "instanced geometry"},
    {"maya_instanced_skin_7700_ascii.fbx", "vertices", 40, "instanced geometry"},
    {"maya_instanced_skin_7700_ascii.fbx", "faces", 36, "instanced geometry"},
    {"maya_instanced_skin_7700_ascii.fbx", "skin_clusters", 6, "instanced geometry"},
    {"revit_wall_square_7700_binary.fbx", "meshes", 6, "instanced geometry"},
    {"revit_wall_square_7700_binary.fbx", "vertices", 70, "instanced geometry"},
    {"revit_wall_square_7700_binary.fbx", "faces", 88, "instanced geometry"},
    // The other reader adds an "(internal)" stack to the one take of this
    // FBX 5 file; we report the file's takes only.
    {"max7_skin_5000_binary.fbx", "anim_stacks", 1, "no synthetic take"},
};

void ExpectCount(expected_file const &File, char const *Column, long Ours)
{
    for (known_difference const &Known : KnownDifferences) {
        if (BaseName(File.Path) == Known.File && strcmp(Column, Known.Column) == 0) {
            EXPECT_EQ(Ours, Known.Ours) << Column << " (differs by design: " << Known.Why << ")";
            return;
        }
    }
    EXPECT_EQ(Ours, File.Number(Column)) << Column;
}

} // namespace

// The scene level: counts of the loaded scene against the independent reader.
TEST(SharedCorpus, SceneCountsAgreeWithTheIndependentReader)
{
    std::vector<expected_file> Files = ReadExpected();
    SKIP_WITHOUT_CORPUS(Files);
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();
    int Loaded = 0;
    for (expected_file const &File : Files) {
        SCOPED_TRACE(File.Path);
        KFbxSdkManager *Manager = nullptr;
        KFbxScene *Scene = nullptr;
        char Error[512] = "";
        bool Ok =
            LoadFBXSceneFromFile((CorpusDirectory() + "/" + File.Path).c_str(), &Manager, &Scene, Error, sizeof(Error));
        if (File.Status != "ok") {
            EXPECT_FALSE(Ok);
            EXPECT_STREQ(Error, "Corrupted or invalid file.");
            EXPECT_FALSE(Manager);
            continue;
        }
        ASSERT_TRUE(Ok) << Error;
        ++Loaded;
        fbx_scene_counts Counts;
        CountFBXScene(Scene, &Counts);
        ExpectCount(File, "nodes", Counts.NodeCount + 1); // the other reader counts the root
        ExpectCount(File, "meshes", Counts.MeshCount);
        ExpectCount(File, "vertices", Counts.ControlPointCount);
        ExpectCount(File, "faces", Counts.PolygonCount);
        ExpectCount(File, "skin_clusters", Counts.SkinClusterCount);
        ExpectCount(File, "anim_stacks", Counts.TakeCount);
        Manager->Destroy();
    }
    EXPECT_EQ(Loaded, (int)Files.size() - 1) << "all but the damaged file load";
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}
