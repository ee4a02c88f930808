#include "exporter/tessel_scene_parser.h"

#include <cstring>

#include "exporter/fbx_tessel_export_stubs.h"
#include "exporter/fbx_tessel_progress_window.h"
#include "exporter/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

// Setting ids the pipeline reads from the file settings.
enum
{
    FileSettingsId = 69,
    TypesSectionId = 125,
    ObjectsSectionId = 126,
    IncludeTypeTableId = 95,

    StandardMainSection = 0,
    StandardDiscardableSection = 6,

    DefaultMorphTargetLimit = 65536,
    MaximumVertexDataCount = 262144,
};

char const *const ExportStageNames[6] = {"Textures", "Materials", "Skeletons", "Meshes", "Models", "Animations"};

scene_export_context *BeginSceneExport(fbx_tool_interface *Tool)
{
    CheckPointer(Tool, LogCategory_Exporter, 0);

    memory_arena *Arena = NewMemoryArena();
    string_table *Strings = NewExportStringTable();
    tool_node_graph *Graph = BuildSceneGraph(Tool);
    scene_export_context *Context = 0;
    if (Arena && Strings && Graph) {
        Context = (scene_export_context *)TesselAllocate(sizeof(scene_export_context));
    }
    if (!Context) {
        TesselError(LogCategory_Exporter, "Unable to create arena, string table builder and scene graph");
        if (Graph) ReleaseSceneGraph(Tool, Graph);
        FreeExportStringTable(Strings);
        if (Arena) FreeMemoryArena(Arena);
        return 0;
    }
    memset(Context, 0, sizeof(*Context));
    Context->Arena = Arena;
    Context->Strings = Strings;
    Context->Tool = Tool;
    Context->Graph = Graph;
    Context->Settings = BuildExportSettingsTree(Context);
    return Context;
}

void EndSceneExport(scene_export_context *Context)
{
    if (!Context) return;
    ReleaseSceneGraph(Context->Tool, Context->Graph);
    FreeExportStringTable(Context->Strings);
    FreeExportSettingsTree(Context);
    FreeMemoryArena(Context->Arena);
    TesselFree(Context);
}

int32 GetMorphTargetLimit(int32 MeshCount)
{
    int32 Limit = DefaultMorphTargetLimit;
    // Taken in 64 bits: with tens of thousands of meshes the product would
    // wrap in 32.
    if (MeshCount > 0 && (int64)(Limit + 1) * MeshCount > MaximumVertexDataCount) {
        Limit = MaximumVertexDataCount / MeshCount - 1;
        if (Limit < 1) Limit = 1;
    }
    return Limit;
}

int32 GetAnimationProgressSteps(fbx_tool_interface *Tool, tool_animation *Animation, scene_export_state *State)
{
    if (IsVertexAnimation(Tool, Animation)) return 2;
    int32 Steps = 2;
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model)) {
        for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
            if (IncludeData(Node->TrackSettings)) ++Steps;
        }
    }
    return Steps;
}

static int32 GetProgressTotal(scene_export_state *State)
{
    tool_node_graph *Graph = State->Graph;
    // The three are "Writing file", "Packaging file" and "Export Complete".
    int32 Total = Graph->TextureCount + Graph->ModelCount + Graph->MaterialCount + Graph->MeshCount +
                  Graph->ModelCount + 3;
    for (tool_animation *Animation = Graph->FirstAnimation; Animation; Animation = Animation->Next) {
        ++Total;
        if (IncludeReference(Animation->Settings)) Total += GetAnimationProgressSteps(State->Tool, Animation, State);
    }
    return Total;
}

static void ExportTextures(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[0]);
    for (tool_texture *Texture = State->Graph->FirstTexture; Texture && KeepExporting(Progress);
         Texture = Texture->NextInGraph) {
        StepProgress(Progress, GetTextureName(State->Tool, Texture, State->Strings));
        if (IncludeReference(Texture->Settings)) ExportTexture(State, Texture);
    }
}

static void ExportMaterials(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[1]);
    // Every record exists before the second pass links them.
    for (tool_material *Material = State->Graph->FirstMaterial; Material && KeepExporting(Progress);
         Material = Material->NextInGraph) {
        if (IncludeReference(Material->Settings)) CreateMaterial(State, Material);
    }
    State->MaterialIndex = 0;
    for (tool_material *Material = State->Graph->FirstMaterial; Material && KeepExporting(Progress);
         Material = Material->NextInGraph) {
        StepProgress(Progress, GetMaterialName(State->Tool, Material, State->Strings));
        if (IncludeReference(Material->Settings)) FillMaterial(State, Material);
    }
}

static void ExportSkeletons(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[2]);
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model) && KeepExporting(Progress);
         Model = NextModel(Model)) {
        StepProgress(Progress, GetToolModelName(State->Tool, Model, State->Strings));
        if (IncludeReference(Model->Settings)) {
            ExportSkeleton(State, Model);
        } else {
            AssignBoneIndices(State, Model);
        }
    }
}

static void ExportMeshes(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[3]);
    for (tool_mesh *Mesh = State->Graph->FirstMesh; Mesh && KeepExporting(Progress); Mesh = Mesh->NextInGraph) {
        Mesh->MorphCurveSetCount = 0;
        StepProgress(Progress, GetMeshName(State->Tool, Mesh, State->Strings, false));
        if (IncludeReference(Mesh->Settings)) ExportMesh(State, Mesh);
    }
}

static void ExportModels(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[4]);
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model) && KeepExporting(Progress);
         Model = NextModel(Model)) {
        StepProgress(Progress, GetToolModelName(State->Tool, Model, State->Strings));
        if (IncludeReference(Model->Settings)) ExportModel(State, Model);
    }
}

static void ExportAnimations(scene_export_state *State, export_progress *Progress)
{
    SetProgressStage(Progress, ExportStageNames[5]);
    for (tool_animation *Animation = State->Graph->FirstAnimation; Animation && KeepExporting(Progress);
         Animation = Animation->Next) {
        StepProgress(Progress, GetAnimationName(State->Tool, Animation, State->Strings));
        if (IncludeReference(Animation->Settings)) {
            if (IsVertexAnimation(State->Tool, Animation)) {
                SampleVertexAnimation(State, Animation, Progress);
            } else {
                SampleBoneAnimation(State, Animation, Progress);
            }
        }
    }
}

bool ExportScene(scene_export_context *Context, char const *SourceFileToEmbed, file_builder *FileBuilder,
                 export_progress *Progress)
{
    CheckPointer(Context, LogCategory_Exporter, true);

    scene_export_state State;
    memset(&State, 0, sizeof(State));
    State.Arena = Context->Arena;
    State.Strings = Context->Strings;
    State.Tool = Context->Tool;
    State.Graph = Context->Graph;
    State.MorphTargetLimit = GetMorphTargetLimit(State.Graph->MeshCount);

    requester *FileSettings = FindExportRequester(Context->Settings, FileSettingsId);
    State.FileSettings = FileSettings;
    int32 TypesSection = GetExportSectionSetting(FileSettings, TypesSectionId, StandardDiscardableSection);
    int32 ObjectsSection = GetExportSectionSetting(FileSettings, ObjectsSectionId, StandardMainSection);

    State.Writer = BeginExportDataTree(&State, TypesSection, ObjectsSection);
    if (!State.Writer) {
        TesselError(LogCategory_Exporter, "Unable to begin file data tree writing");
        return true;
    }

    State.ProgressTotal = GetProgressTotal(&State);
    SetProgressTotal(Progress, State.ProgressTotal);
    ResetToolTime(State.Tool);

    ExportTextures(&State, Progress);
    ExportMaterials(&State, Progress);
    ExportSkeletons(&State, Progress);
    ExportMeshes(&State, Progress);
    ExportModels(&State, Progress);
    ExportAnimations(&State, Progress);

    ApplyCoordinateSystem(&State, FileSettings);
    AssignExportSections(&State);
    SetExportWriterFlags(State.Writer, GetExportSettingBool(FileSettings, IncludeTypeTableId) ? 0u : 1u);

    if (KeepExporting(Progress)) {
        SetProgressStage(Progress, "I/O");
        StepProgress(Progress, "Writing file");
        WriteExportDataTree(State.Writer, FileBuilder);
    }
    EndExportDataTree(State.Writer);
    return true;
}
