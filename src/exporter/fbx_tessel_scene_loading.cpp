// Bridge to the FBX scene model: loading a file into a scene, the writer
// registration, and the scene-wide values the tool interface reads.
#include "exporter/fbx_tessel_scene_loading.h"

#include <cstring>

#include "exporter/fbx_tessel_tool_interface.h"
#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_scene_memory.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

// ---------------------------------------------------------------------------
// The writer registration. The writer only puts the library's two output
// formats on the manager's format list; the output never goes through it.

class FBXTesselWriter : public KFbxWriter
{
public:
    bool FileCreate(char const *FileName) override { return FileName != nullptr; }
    bool FileClose() override { return false; }
    bool IsFileOpen() override { return false; }
    void *GetWriteOptions() override { return nullptr; }
    bool Write(KFbxScene *Scene) override { return false; }
    bool PreprocessScene(KFbxScene &Scene) override { return false; }
    bool PostprocessScene(KFbxScene &Scene) override { return false; }
    void PluginWriteParameters(void *Parameters) override {}
};

static KFbxWriter *CreateTesselWriter(KFbxSdkManager &Manager, int32 FormatId)
{
    return FbxNew(FBXTesselWriter);
}

static char const *const *DescribeTesselWriter(int32 Selector)
{
    static char const *const Extensions[] = {"TS2", "CLWXML", nullptr};
    static char const *const Descriptions[] = {"Tessel Runtime File (*.TS2)", "Calloway Asset File (*.clwxml)",
                                               nullptr};
    static char const *const Versions[] = {"", "", nullptr};
    switch (Selector) {
    case 0: return Extensions;
    case 1: return Descriptions;
    case 2: return Versions;
    default: return nullptr;
    }
}

static void SetTesselWriterIOSettings(void *Settings)
{
}

bool RegisterFBXWriter(KFbxSdkManager *Manager)
{
    if (!Manager || !Manager->GetIOPluginRegistry()) return false;
    int32 FirstFormatId = 0;
    int32 FormatCount = 0;
    if (!Manager->GetIOPluginRegistry()->RegisterWriter(CreateTesselWriter, DescribeTesselWriter, FirstFormatId,
                                                        FormatCount, SetTesselWriterIOSettings)) {
        return false;
    }
    return FormatCount >= 1;
}

// ---------------------------------------------------------------------------
// Loading.

// Reads the file at Path into Scene. The importer stays with the manager,
// which releases it.
static bool ImportSceneFile(KFbxSdkManager *Manager, KFbxScene *Scene, char const *Path)
{
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    if (!Importer) return false;
    if (!Importer->Initialize(Path, -1) || !Importer->Import(Scene)) {
        TesselWarning(LogCategory_FBX, "%s: %s", Path, Importer->GetLastErrorString());
        return false;
    }
    return true;
}

bool ImportFBXScene(fbx_scene_context *Context, char const *Path)
{
    Context->Manager = KFbxSdkManager::Create();
    if (!Context->Manager) return false;
    Context->Scene = KFbxScene::Create(Context->Manager, "");
    if (!Context->Scene) return false;
    if (!RegisterFBXWriter(Context->Manager)) return false;
    return ImportSceneFile(Context->Manager, Context->Scene, Path);
}

void ReleaseFBXScene(fbx_scene_context *Context)
{
    if (Context->Scene) Context->Scene->Destroy();
    Context->Scene = 0;
    if (Context->Manager) Context->Manager->Destroy();
    Context->Manager = 0;
}

// ---------------------------------------------------------------------------
// Scene-wide values.

void FillSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
}

bool GetFBXFileVersion(fbx_scene_context *Context, int32 *Major, int32 *Minor)
{
    int32 Revision = 0;
    KFbxSdkManager::GetFileFormatVersion(*Major, *Minor, Revision);
    return true;
}

bool GetFBXAxisSystem(fbx_scene_context *Context, fbx_axis_system *Axes)
{
    if (!Context || !Context->Scene) return false;
    KFbxGlobalSettings &Settings = Context->Scene->GetGlobalSettings();
    Axes->UpAxis = Settings.FindProperty("UpAxis").Get();
    Axes->UpSign = Settings.FindProperty("UpAxisSign").Get();
    Axes->FrontAxis = Settings.FindProperty("FrontAxis").Get();
    Axes->FrontSign = Settings.FindProperty("FrontAxisSign").Get();
    Axes->CoordAxis = Settings.FindProperty("CoordAxis").Get();
    Axes->CoordSign = Settings.FindProperty("CoordAxisSign").Get();
    Axes->UnitScaleFactor = Settings.GetSystemUnit().GetScaleFactor();
    return true;
}

void SetFBXCurrentTake(fbx_scene_context *Context, char const *TakeName)
{
    if (Context && Context->Scene) Context->Scene->SetCurrentTake(TakeName);
}

char const *GetFBXNodeName(void *Node)
{
    return Node ? ((KFbxNode *)Node)->GetName() : 0;
}

char const *GetFBXMeshNodeName(void *Mesh)
{
    KFbxNode *Node = Mesh ? ((KFbxMesh *)Mesh)->GetNode() : 0;
    return Node ? Node->GetName() : 0;
}

char const *GetFBXTakeName(void *TakeInfo)
{
    return TakeInfo ? ((KFbxTakeInfo *)TakeInfo)->GetName() : 0;
}

void *GetFBXNodeParent(void *Node)
{
    return Node ? ((KFbxNode *)Node)->GetParent() : 0;
}
