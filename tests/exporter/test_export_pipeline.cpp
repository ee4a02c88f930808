#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "fbx_tool/fbx_tessel.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "exporter/tessel_export_progress.h"
#include "fbx_tool/fbx_tessel_scene_loading.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "exporter_test_files.h"
#include "fbx/fbx_tessel_scene.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_version.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "support/fbx_test_writer.h"
#include "support/test_log_capture.h"
#include "settings/tessel_setting_ids.h"

using namespace fbx_tool;

namespace {

// What the callback saw, one entry per report.
struct progress_report
{
    uint32 Position, Total;
    std::string Title, Stage, Item;
};
std::vector<progress_report> Reports;

void RecordProgress(export_progress const *Progress)
{
    progress_report Report;
    Report.Position = Progress->Position;
    Report.Total = Progress->Total;
    Report.Title = Progress->Title ? Progress->Title : "";
    Report.Stage = Progress->Stage ? Progress->Stage : "";
    Report.Item = Progress->Item ? Progress->Item : "";
    Reports.push_back(Report);
    // The host's copy: writing it must not reach the export.
    const_cast<export_progress *>(Progress)->Abort = 1;
}

// Stages in the order they were first reported, without repeats.
std::vector<std::string> StagesSeen()
{
    std::vector<std::string> Stages;
    for (progress_report const &Report : Reports) {
        if (!Report.Stage.empty() && (Stages.empty() || Stages.back() != Report.Stage)) Stages.push_back(Report.Stage);
    }
    return Stages;
}

// A tool object over an empty scene, made without any FBX file.
fbx_tool_interface *NewEmptySceneTool()
{
    fbx_tool_interface *Tool = CreateToolInterface("");
    fbx_scene_context *Context = (fbx_scene_context *)TesselAllocate(sizeof(fbx_scene_context));
    memset(Context, 0, sizeof(*Context));
    Context->FileName = "empty.fbx";
    Tool->FBX = Context;
    return Tool;
}

} // namespace

TEST(RunExport, EmptySceneRunsEveryStageInOrderAndLeavesNothingBehind)
{
    int32 Before = LiveBlocks();
    Reports.clear();
    fbx_tool_interface *Tool = NewEmptySceneTool();
    export_options Options = {nullptr, true, nullptr};
    std::string Output = PrivateTemporaryDirectory() + "/output_empty.ts2";

    bool Written = RunExport(Tool, Output.c_str(), &Options, RecordProgress);
    DestroyToolInterface(Tool);

    ASSERT_FALSE(Reports.empty());
    EXPECT_EQ(Reports.front().Title, "Tessel " TESSEL_VERSION_STRING " is Exporting a TS2 File");
    std::vector<std::string> Expected = {"Textures",   "Materials", "Skeletons",      "Meshes",         "Models",
                                         "Animations", "I/O",       "Packaging file", "Export Complete"};
    EXPECT_EQ(StagesSeen(), Expected);
    // An empty scene has only the three closing steps and the packaging of
    // its one small coded section; a finished export ends at 100 %.
    EXPECT_EQ(Reports.back().Total, 4u);
    EXPECT_EQ(Reports.back().Position, 4u);
    EXPECT_TRUE(Written);
    EXPECT_TRUE(FileExists(Output.c_str()));
    EXPECT_TRUE(ListTemporaryFiles().empty());
    EXPECT_EQ(LiveBlocks(), Before);
    remove(Output.c_str());
}

// Runs RunExport over an empty scene; true when the file was written.
bool ExportEmptyScene(std::string const &Output, char const *SettingsFile = nullptr)
{
    fbx_tool_interface *Tool = NewEmptySceneTool();
    export_options Options = {nullptr, true, SettingsFile};
    bool Written = RunExport(Tool, Output.c_str(), &Options, RecordProgress);
    DestroyToolInterface(Tool);
    return Written;
}

TEST(RunExport, WrittenFileCarriesFileAndExporterInfo)
{
    std::string Output = PrivateTemporaryDirectory() + "/output_info.ts2";
    ASSERT_TRUE(ExportEmptyScene(Output));
    loaded_file *File = LoadFileFromDisk(Output.c_str());
    ASSERT_NE(File, nullptr);
    EXPECT_EQ(File->Header.TypeTag, 0x80000031u);
    EXPECT_EQ(File->SectionCount, 8);
    void *RootType = nullptr;
    file_info const *Info = (file_info const *)GetLoadedFileRootObject(*File, &RootType);
    ASSERT_NE(Info, nullptr);
    ASSERT_NE(Info->ExporterInfo, nullptr);
    EXPECT_STREQ(Info->ExporterInfo->ExporterName, "Tessel Standard Exporter, SDK version " TESSEL_VERSION_STRING);
    EXPECT_EQ(Info->ExporterInfo->ExporterMajorRevision, TESSEL_VERSION_MAJOR);
    EXPECT_EQ(Info->ExporterInfo->ExporterMinorRevision, TESSEL_VERSION_MINOR);
    EXPECT_EQ(Info->ExporterInfo->ExporterBuildNumber, TESSEL_VERSION_BUILD);
    ASSERT_NE(Info->ArtToolInfo, nullptr);
    EXPECT_STREQ(Info->ArtToolInfo->FromArtToolName, "FBX");
    EXPECT_EQ(Info->ArtToolInfo->ArtToolPointerSize, 64);
    EXPECT_STREQ(Info->FromFileName, "empty.fbx");
    EXPECT_EQ(Info->MeshCount + Info->ModelCount + Info->AnimationCount + Info->SkeletonCount, 0);
    // The texture section keeps its own format whatever the compression.
    file_section_header const &Textures = File->Sections[5].Header;
    EXPECT_EQ(Textures.Format, 0u);
    EXPECT_EQ(Textures.InternalAlignment, 4u);
    FreeLoadedFile(File);
    remove(Output.c_str());
}

TEST(RunExport, SettingsFileSwitchesExporterInfoAndCompression)
{
    // A settings file with "Include exporter info" off and no compression.
    settings_pools Pools;
    ASSERT_TRUE(InitializeSettingsPools(Pools));
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    settings_node *File = FindSettingsNode(Root, 69);
    ASSERT_NE(File, nullptr);
    ASSERT_TRUE(SetSettingBool(FindSetting(File, SettingId_IncludeExporterInfo), false));
    ASSERT_TRUE(SetSettingChoice(FindSetting(File, SettingId_FileCompression), Choice_NoCompression));
    std::string SettingsPath = PrivateTemporaryDirectory() + "/input_settings.bin";
    ASSERT_TRUE(WriteSettingsFile(Root, SettingsPath.c_str()));
    FreeSettingsPools(Pools);

    std::string Output = PrivateTemporaryDirectory() + "/output_settings.ts2";
    ASSERT_TRUE(ExportEmptyScene(Output, SettingsPath.c_str()));
    loaded_file *Loaded = LoadFileFromDisk(Output.c_str());
    ASSERT_NE(Loaded, nullptr);
    file_info const *Info = (file_info const *)GetLoadedFileRootObject(*Loaded, nullptr);
    ASSERT_NE(Info, nullptr);
    EXPECT_EQ(Info->ExporterInfo, nullptr);
    EXPECT_NE(Info->ArtToolInfo, nullptr);
    for (int32 Section = 0; Section < Loaded->SectionCount; ++Section) {
        EXPECT_EQ(Loaded->Sections[Section].Header.Format, 0u) << Section;
    }
    FreeLoadedFile(Loaded);
    remove(Output.c_str());
}

TEST(RunExport, UncreatableOutputAbortsAndCleansUp)
{
    int32 Before = LiveBlocks();
    Reports.clear();
    std::string Output = PrivateTemporaryDirectory() + "/no_such_folder/output.ts2";
    EXPECT_FALSE(ExportEmptyScene(Output));
    ASSERT_FALSE(Reports.empty());
    EXPECT_EQ(Reports.back().Stage, "Export Aborted");
    EXPECT_TRUE(ListTemporaryFiles().empty());
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(RunExport, SceneObjectsAreCountedAndNamedInStageOrder)
{
    Reports.clear();
    std::string Path =
        SaveFbxTestFile("progress_arm.fbx", WriteFbxTestScene(MakeFbxTestArmScene(), FbxTestBinary(7400)));
    std::string Output = PrivateTemporaryDirectory() + "/output_arm.ts2";
    EXPECT_TRUE(ExportFBXFile(Path.c_str(), Output.c_str(), nullptr, RecordProgress));
    remove(Path.c_str());
    remove(Output.c_str());

    // (stage, item) of every step.
    std::vector<std::pair<std::string, std::string>> Steps;
    uint32 Position = 0;
    for (progress_report const &Report : Reports) {
        std::pair<std::string, std::string> Step = {Report.Stage, Report.Item};
        if (Report.Position > Position && (Steps.empty() || Steps.back() != Step)) Steps.push_back(Step);
        Position = Report.Position;
    }
    std::vector<std::pair<std::string, std::string>> Expected = {
        {"Skeletons", "Root"},   {"Meshes", "Arm"},      {"Models", "Root"},
        // Newest first; each animation steps through its sampling, its
        // compression and then every bone as its curves come in.
        {"Animations", "Idle"},  {"Animations", "Sampling bones"}, {"Animations", "Compressing bones"},
        {"Animations", "Root"},  {"Animations", "Upper"},          {"Animations", "Lower"},
        {"Animations", "Wave"},  {"Animations", "Sampling bones"}, {"Animations", "Compressing bones"},
        {"Animations", "Root"},  {"Animations", "Upper"},          {"Animations", "Lower"},
        {"I/O", "Writing file"}, {"Packaging file", ""},           {"Export Complete", ""}};
    EXPECT_EQ(Steps, Expected);
    // Skeleton, mesh and model of the one model, one step per animation
    // and the steps its sampling adds when it begins (two, and one per
    // animated bone), the three closing steps and one per 64 KiB of coded
    // section data; the bar ends full.
    EXPECT_EQ(Reports.back().Total, 1u + 1u + 1u + 2u + 2u * (2u + 3u) + 3u + 1u);
    EXPECT_EQ(Reports.back().Position, Reports.back().Total);
}

TEST(RunExport, WithoutProgressOrSceneNothingIsReported)
{
    int32 Before = LiveBlocks();
    Reports.clear();
    fbx_tool_interface *Tool = NewEmptySceneTool();
    export_options Quiet = {nullptr, false, nullptr};
    std::string Output = PrivateTemporaryDirectory() + "/output_quiet.ts2";
    RunExport(Tool, Output.c_str(), &Quiet, RecordProgress);
    EXPECT_TRUE(Reports.empty());

    // A tool whose scene did not load: the pipeline does not start.
    fbx_tool_interface *Unloaded = CreateToolInterface((PrivateTemporaryDirectory() + "/missing.fbx").c_str());
    ASSERT_EQ(Unloaded->FBX, nullptr);
    export_options Options = {nullptr, true, nullptr};
    {
        log_capture Log;
        EXPECT_FALSE(RunExport(Unloaded, Output.c_str(), &Options, RecordProgress));
        EXPECT_TRUE(Log.Contains("Unable to create arena, string table builder and scene graph"));
    }
    EXPECT_TRUE(Reports.empty());
    DestroyToolInterface(Unloaded);
    DestroyToolInterface(Tool);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(Progress, OperationsOnARecord)
{
    Reports.clear();
    export_progress *Progress = BeginProgress(RecordProgress);
    SetProgressTotal(Progress, 5);
    StepProgress(Progress, nullptr);
    StepProgress(Progress, "mesh");
    EXPECT_EQ(GetProgressPosition(Progress), 2);
    EXPECT_EQ(Reports.back().Item, "mesh");
    EXPECT_EQ(Reports[1].Item, "(unnamed)");
    SetProgressStage(Progress, "Models");
    EXPECT_EQ(GetProgressPosition(Progress), 2); // a stage keeps the position
    SetProgressTotal(Progress, 9);
    EXPECT_EQ(GetProgressPosition(Progress), 0);
    // The callback wrote Abort into its copy only.
    EXPECT_TRUE(KeepExporting(Progress));
    size_t Count = Reports.size();
    EndProgress(Progress);

    // Null records are accepted everywhere and report nothing.
    SetProgressTitle(nullptr, "x");
    StepProgress(nullptr, "x");
    EXPECT_TRUE(KeepExporting(nullptr));
    EXPECT_EQ(GetProgressPosition(nullptr), -1);
    EXPECT_EQ(Reports.size(), Count);

    // A record without a callback still counts.
    export_progress *Silent = BeginProgress(nullptr);
    StepProgress(Silent, "a");
    EXPECT_EQ(GetProgressPosition(Silent), 1);
    EndProgress(Silent);
    EXPECT_EQ(Reports.size(), Count);
}

TEST(ScenePipeline, MorphTargetLimitKeepsVertexDataBounded)
{
    EXPECT_EQ(GetMorphTargetLimit(0), 65536);
    EXPECT_EQ(GetMorphTargetLimit(3), 65536);
    EXPECT_EQ(GetMorphTargetLimit(4), 65535);
    EXPECT_EQ(GetMorphTargetLimit(100000), 1);
    EXPECT_EQ(GetMorphTargetLimit(262144), 1);
}

TEST(ExportFBXFile, ReleasesEverythingItMadeOnEveryPath)
{
    std::string Scene = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    int32 Before = LiveBlocks();
    std::string Output = PrivateTemporaryDirectory() + "/output_in_process.ts2";
    std::string Defs = WriteTestFile("defs.xml", "<Defs><AnimationDef name=\"a\" start=\"0\" end=\"1\"/></Defs>");
    EXPECT_TRUE(ExportFBXFile(Scene.c_str(), Output.c_str(), Defs.c_str(), nullptr));
    EXPECT_EQ(LiveBlocks(), Before);
    std::string NoDefs = WriteTestFile("nodefs.xml", "<Defs/>");
    EXPECT_FALSE(ExportFBXFile(Scene.c_str(), Output.c_str(), NoDefs.c_str(), nullptr));
    EXPECT_EQ(LiveBlocks(), Before);
    std::string Bad = WriteTestFile("bad.xml", "<Defs>");
    EXPECT_ANY_THROW(ExportFBXFile(Scene.c_str(), Output.c_str(), Bad.c_str(), nullptr));
    EXPECT_EQ(LiveBlocks(), Before);
    EXPECT_TRUE(ListTemporaryFiles().empty());
    remove(Output.c_str());
}

TEST(ExportFBXFile, VariedRealScenesExportWithoutLeaks)
{
    char const *const Files[] = {
        "ufbx/data/maya_instanced_skin_7700_ascii.fbx", // one mesh on several nodes
        "ufbx/data/maya_cube_big_endian_6100_binary.fbx",
        "ufbx/data/blender_279_sausage_6100_ascii.fbx",
        "ufbx/data/max7_skin_5000_binary.fbx",
        "ufbx/data/blender_293_half_skinned_7400_binary.fbx",
    };
    for (char const *File : Files) {
        std::string Scene = SharedFBXFile(File);
        if (Scene.empty()) GTEST_SKIP() << "shared FBX files not found in " << TESSEL_SHARED_FBX_DIR;
        SCOPED_TRACE(File);
        int32 Before = LiveBlocks();
        std::string Output = PrivateTemporaryDirectory() + "/output_corpus.ts2";
        EXPECT_TRUE(ExportFBXFile(Scene.c_str(), Output.c_str(), nullptr, nullptr));
        EXPECT_TRUE(FileExists(Output.c_str()));
        EXPECT_EQ(LiveBlocks(), Before);
        EXPECT_TRUE(ListTemporaryFiles().empty());
        remove(Output.c_str());
    }
}

TEST(ExportFBXFile, RegistersTheTwoOutputFormats)
{
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    ASSERT_TRUE(RegisterFBXWriter(Manager));
    KFbxIOPluginRegistry *Registry = Manager->GetIOPluginRegistry();
    ASSERT_EQ(Registry->GetWriterFormatCount(), 2);
    EXPECT_STREQ(Registry->GetWriterFormatExtension(0), "TS2");
    EXPECT_STREQ(Registry->GetWriterFormatExtension(1), "CLWXML");
    EXPECT_STREQ(Registry->GetWriterFormatDescription(0), "Tessel Runtime File (*.TS2)");
    EXPECT_STREQ(Registry->GetWriterFormatDescription(1), "Calloway Asset File (*.clwxml)");
    Manager->Destroy();
}
