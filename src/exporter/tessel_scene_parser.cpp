#include "exporter/tessel_scene_parser.h"

#include <cstring>

#include "exporter/tessel_export_stages.h"
#include "exporter/tessel_export_progress.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"
#include "format/tessel_data_tree_writer.h"
#include "format/tessel_string_table.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "settings/tessel_setting_ids.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_version.h"
#include "settings/tessel_export_ui_tunneling.h"

// Setting ids the pipeline reads from the file settings.
enum
{

    DefaultMorphTargetLimit = 65536,
    MaximumVertexDataCount = 262144,
};

char const *const ExportStageNames[6] = {"Textures", "Materials", "Skeletons", "Meshes", "Models", "Animations"};
char const ExporterName[] = "Tessel Standard Exporter, SDK version " TESSEL_VERSION_STRING;

// The object types whose section a file setting can choose, by the id of
// that setting.
struct object_type_section
{
    int32 SettingId;
    data_type_definition *Type;
};

static object_type_section const ObjectTypeSections[] = {
    {65537, AnimationType},
    {65538, ArtToolInfoType},
    {65539, Curve2Type},
    {65540, ExporterInfoType},
    {65541, MaterialMapType},
    {65542, MaterialType},
    {65543, BoneBindingType},
    {65544, MaterialBindingType},
    {65545, MorphTargetType},
    {65546, MeshType},
    {65547, ModelMeshBindingType},
    {65548, ModelType},
    {65549, PeriodicLoopType},
    {65550, PixelLayoutType},
    {65553, BoneType},
    {65554, SkeletonType},
    {65555, StringElementType},
    {65556, TextureMIPLevelType},
    {65557, TextureImageType},
    {65558, TextureType},
    {65559, VectorTrackType},
    {65560, TransformTrackType},
    {65561, TextTrackEntryType},
    {65562, TextTrackType},
    {65563, TrackGroupType},
    {65564, TriMaterialGroupType},
    {65565, TriAnnotationSetType},
    {65566, TriTopologyType},
    {65567, VertexAnnotationSetType},
    {65568, VertexDataType},
};

scene_export_context *BeginSceneExport(tool_interface *Tool)
{
    CheckPointer(Tool, LogCategory_Exporter, 0);

    memory_arena *Arena = NewMemoryArena();
    string_table *Strings = NewStringTable();
    tool_node_graph *Graph = BuildSceneGraph(Tool);
    scene_export_context *Context = 0;
    if (Arena && Strings && Graph) {
        Context = (scene_export_context *)TesselAllocate(sizeof(scene_export_context));
    }
    if (!Context) {
        TesselError(LogCategory_Exporter, "Unable to create arena, string table builder and scene graph");
        if (Graph) ReleaseSceneGraph(Tool, Graph);
        if (Strings) FreeStringTable(Strings);
        if (Arena) FreeMemoryArena(Arena);
        return 0;
    }
    memset(Context, 0, sizeof(*Context));
    Context->Arena = Arena;
    Context->Strings = Strings;
    Context->Tool = Tool;
    Context->Graph = Graph;
    if (InitializeSettingsPools(Context->Pools)) {
        Context->Settings = BuildSettingsTree(Strings, Graph, Tool, Context->Pools);
    }
    return Context;
}

void EndSceneExport(scene_export_context *Context)
{
    if (!Context) return;
    ReleaseSceneGraph(Context->Tool, Context->Graph);
    FreeStringTable(Context->Strings);
    FreeSettingsPools(Context->Pools);
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

int32 GetAnimationProgressSteps(tool_interface *Tool, tool_animation *Animation, scene_export_state *State)
{
    if (IsVertexAnimation(Tool, Animation)) return 2;
    int32 Steps = 2;
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model)) {
        for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
            if (IsDataIncluded(Node->TrackSettings)) ++Steps;
        }
    }
    return Steps;
}

static int32 GetProgressTotal(scene_export_state *State)
{
    tool_node_graph *Graph = State->Graph;
    // The three are "Writing file", "Packaging file" and "Export Complete".
    int32 Total =
        Graph->TextureCount + Graph->ModelCount + Graph->MaterialCount + Graph->MeshCount + Graph->ModelCount + 3;
    // The total counts only steps that will be taken: a sampler adds its
    // own (GetAnimationProgressSteps) with AddProgressTotal as it begins.
    for (tool_animation *Animation = Graph->FirstAnimation; Animation; Animation = Animation->Next) ++Total;
    return Total;
}

static bool ExportTextures(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[0]);
    for (tool_texture *Texture = State->Graph->FirstTexture; Texture && KeepExporting(Progress);
         Texture = Texture->NextInGraph) {
        StepProgress(Progress, GetTextureName(State->Tool, Texture, State->Strings));
        if (IsReferenceIncluded(Texture->Settings)) Result = ExportTexture(State, Texture) && Result;
    }
    return Result;
}

static bool ExportMaterials(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[1]);
    // Every record exists before the second pass links them.
    for (tool_material *Material = State->Graph->FirstMaterial; Material && KeepExporting(Progress);
         Material = Material->NextInGraph) {
        if (IsReferenceIncluded(Material->Settings)) Result = CreateMaterial(State, Material) && Result;
    }
    State->MaterialIndex = 0;
    for (tool_material *Material = State->Graph->FirstMaterial; Material && KeepExporting(Progress);
         Material = Material->NextInGraph) {
        StepProgress(Progress, GetMaterialName(State->Tool, Material, State->Strings));
        if (IsReferenceIncluded(Material->Settings)) Result = FillMaterial(State, Material) && Result;
    }
    return Result;
}

static bool ExportSkeletons(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[2]);
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model) && KeepExporting(Progress);
         Model = NextModel(Model)) {
        StepProgress(Progress, GetToolModelName(State->Tool, Model, State->Strings));
        if (IsReferenceIncluded(Model->Settings)) {
            Result = ExportSkeleton(State, Model) && Result;
        } else {
            AssignBoneIndices(Model);
        }
    }
    return Result;
}

static bool ExportMeshes(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[3]);
    for (tool_mesh *Mesh = State->Graph->FirstMesh; Mesh && KeepExporting(Progress); Mesh = Mesh->NextInGraph) {
        Mesh->MorphCurveSetCount = 0;
        StepProgress(Progress, GetMeshName(State->Tool, Mesh, State->Strings, false));
        if (IsReferenceIncluded(Mesh->Settings)) Result = ExportMesh(State, Mesh) && Result;
    }
    return Result;
}

static bool ExportModels(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[4]);
    tool_node_graph *Graph = State->Graph;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model) && KeepExporting(Progress);
         Model = NextModel(Model)) {
        StepProgress(Progress, GetToolModelName(State->Tool, Model, State->Strings));
        if (IsReferenceIncluded(Model->Settings)) Result = ExportModel(State, Model) && Result;
    }
    return Result;
}

static bool ExportAnimations(scene_export_state *State, export_progress *Progress)
{
    bool Result = true;
    SetProgressStage(Progress, ExportStageNames[5]);
    for (tool_animation *Animation = State->Graph->FirstAnimation; Animation && KeepExporting(Progress);
         Animation = Animation->Next) {
        StepProgress(Progress, GetAnimationName(State->Tool, Animation, State->Strings));
        if (IsReferenceIncluded(Animation->Settings)) {
            if (IsVertexAnimation(State->Tool, Animation)) {
                Result = SampleVertexAnimation(State, Animation, Progress) && Result;
            } else {
                Result = SampleBoneAnimation(State, Animation, Progress) && Result;
            }
        }
    }
    return Result;
}

// Capacities of the arrays of FileInfo, from the scene graph.
static int32 GetVertexDataCapacity(scene_export_state *State)
{
    return (State->MorphTargetLimit + 1) * State->Graph->MeshCount;
}

static bool AllocateFileInfoArrays(scene_export_state *State)
{
    tool_node_graph *Graph = State->Graph;
    file_info &Info = State->FileInfo;
    memory_arena *Arena = State->Arena;
    Info.Textures = ArenaPush<texture *>(Arena, Graph->TextureCount);
    Info.Materials = ArenaPush<material *>(Arena, Graph->MaterialCount);
    Info.Skeletons = ArenaPush<skeleton *>(Arena, Graph->ModelCount);
    Info.VertexDatas = ArenaPush<vertex_data *>(Arena, GetVertexDataCapacity(State));
    Info.TriTopologies = ArenaPush<tri_topology *>(Arena, Graph->MeshCount);
    Info.Meshes = ArenaPush<mesh *>(Arena, Graph->MeshCount);
    Info.Models = ArenaPush<model *>(Arena, Graph->ModelCount);
    Info.TrackGroups = ArenaPush<track_group *>(Arena, Graph->AnimationCount * Graph->ModelCount);
    Info.Animations = ArenaPush<animation *>(Arena, Graph->AnimationCount);
    // An empty array needs no room.
    return (Info.Textures || !Graph->TextureCount) && (Info.Materials || !Graph->MaterialCount) &&
           (Info.Skeletons || !Graph->ModelCount) && (Info.VertexDatas || !GetVertexDataCapacity(State)) &&
           (Info.TriTopologies || !Graph->MeshCount) && (Info.Meshes || !Graph->MeshCount) &&
           (Info.Models || !Graph->ModelCount) && (Info.TrackGroups || !(Graph->AnimationCount * Graph->ModelCount)) &&
           (Info.Animations || !Graph->AnimationCount);
}

#define DEFINE_ADDER(Name, Type, Count, Array, Capacity)                                                               \
    void Name(scene_export_state *State, Type *Object)                                                                 \
    {                                                                                                                  \
        CheckPointer(State, LogCategory_Exporter, TESSEL_NOTHING);                                                     \
        CheckIndex(State->FileInfo.Count, (Capacity), LogCategory_Exporter, TESSEL_NOTHING);                           \
        State->FileInfo.Array[State->FileInfo.Count++] = Object;                                                       \
    }

DEFINE_ADDER(AddTexture, texture, TextureCount, Textures, State->Graph->TextureCount)
DEFINE_ADDER(AddMaterial, material, MaterialCount, Materials, State->Graph->MaterialCount)
DEFINE_ADDER(AddSkeleton, skeleton, SkeletonCount, Skeletons, State->Graph->ModelCount)
DEFINE_ADDER(AddVertexData, vertex_data, VertexDataCount, VertexDatas, GetVertexDataCapacity(State))
DEFINE_ADDER(AddTriTopology, tri_topology, TriTopologyCount, TriTopologies, State->Graph->MeshCount)
DEFINE_ADDER(AddMesh, mesh, MeshCount, Meshes, State->Graph->MeshCount)
DEFINE_ADDER(AddModel, model, ModelCount, Models, State->Graph->ModelCount)
DEFINE_ADDER(AddTrackGroup, track_group, TrackGroupCount, TrackGroups,
             State->Graph->AnimationCount * State->Graph->ModelCount)
DEFINE_ADDER(AddAnimation, animation, AnimationCount, Animations, State->Graph->AnimationCount)

#undef DEFINE_ADDER

// The art tool's record: units and axes always, since the coordinate
// conversion needs them; name and version when the file settings ask for
// art tool data.
static art_tool_info *MakeArtToolInfo(scene_export_state *State)
{
    art_tool_info *Info = ArenaPush<art_tool_info>(State->Arena);
    if (!Info) return 0;
    memset(Info, 0, sizeof(*Info));
    GetCoordinateSystem(State->Tool, &Info->UnitsPerMeter, Info->RightVector, Info->UpVector, Info->BackVector);
    if (GetSettingBool(State->FileSettings, SettingId_IncludeArtToolSpecificData)) {
        Info->FromArtToolName = (char *)GetArtToolName(State->Tool, State->Strings);
        GetArtToolVersion(State->Tool, &Info->ArtToolMajorRevision, &Info->ArtToolMinorRevision,
                          &Info->ArtToolPointerSize);
        AddArtToolInfoData(State->Tool, Info, GetSettingBool(State->FileSettings, SettingId_OnlyUserAttributes),
                           State->Arena, State->Strings);
    }
    return Info;
}

static exporter_info *MakeExporterInfo(scene_export_state *State)
{
    exporter_info *Info = ArenaPush<exporter_info>(State->Arena);
    if (!Info) return 0;
    memset(Info, 0, sizeof(*Info));
    Info->ExporterName = MapString(State->Strings, ExporterName);
    Info->ExporterMajorRevision = TESSEL_VERSION_MAJOR;
    Info->ExporterMinorRevision = TESSEL_VERSION_MINOR;
    Info->ExporterCustomization = TESSEL_VERSION_CUSTOMIZATION;
    Info->ExporterBuildNumber = TESSEL_VERSION_BUILD;
    return Info;
}

static void AssignSectionsByType(scene_export_state *State)
{
    for (object_type_section const &Row : ObjectTypeSections) {
        int32 Choice = GetSettingChoice(State->FileSettings, Row.SettingId);
        if (Choice != Choice_AllowDefaultPlacement) {
            SetFileSectionForObjectsOfType(State->Writer, Row.Type, Choice - Choice_FirstStandardSection);
        }
    }
}

bool ExportScene(scene_export_context *Context, char const *SourceFileToEmbed, file_builder *FileBuilder,
                 export_progress *Progress)
{
    CheckPointer(Context, LogCategory_Exporter, false);
    int64 FailedAllocations = GetFailedAllocationCount();

    scene_export_state State;
    memset(&State, 0, sizeof(State));
    State.Arena = Context->Arena;
    State.Strings = Context->Strings;
    State.Tool = Context->Tool;
    State.Graph = Context->Graph;
    State.MorphTargetLimit = GetMorphTargetLimit(State.Graph->MeshCount);

    requester *FileSettings = FindRequesterInTree(Context->Settings, SettingsCategory_File);
    State.FileSettings = FileSettings;
    int32 TypesSection = GetSectionSetting(FileSettings, SettingId_TypesDefaultSection, StandardDiscardableSection);
    int32 ObjectsSection = GetSectionSetting(FileSettings, SettingId_ObjectsDefaultSection, StandardMainSection);

    State.Writer = BeginFileDataTreeWriting(FileInfoType, &State.FileInfo, TypesSection, ObjectsSection);
    if (!State.Writer) {
        TesselError(LogCategory_Exporter, "Unable to begin file data tree writing");
        return false;
    }

    memset(&State.FileInfo, 0, sizeof(State.FileInfo));
    bool Result = AllocateFileInfoArrays(&State);
    State.FileInfo.ArtToolInfo = MakeArtToolInfo(&State);
    if (GetSettingBool(FileSettings, SettingId_IncludeExporterInfo))
        State.FileInfo.ExporterInfo = MakeExporterInfo(&State);
    State.FileInfo.FromFileName = (char *)GetSourceFileName(State.Tool, State.Strings);

    State.ProgressTotal = GetProgressTotal(&State);
    SetProgressTotal(Progress, State.ProgressTotal);
    ResetToolTime(State.Tool);

    // After a failed stage the later ones are skipped: no file is written.
    Result = Result && ExportTextures(&State, Progress);
    Result = Result && ExportMaterials(&State, Progress);
    Result = Result && ExportSkeletons(&State, Progress);
    Result = Result && ExportMeshes(&State, Progress);
    Result = Result && ExportModels(&State, Progress);
    Result = Result && ExportAnimations(&State, Progress);
    Result = Result && ApplyCoordinateSystem(&State, FileSettings);
    // The conversion has used the tool's units and axes either way.
    if (!GetSettingBool(FileSettings, SettingId_IncludeArtToolSpecificData)) State.FileInfo.ArtToolInfo = 0;
    if (SourceFileToEmbed && SourceFileToEmbed[0]) {
        EmbedSourceFile(SourceFileToEmbed, &State.FileInfo, State.Arena, State.Strings);
    }
    AssignSectionsByType(&State);
    SetFileWriterFlags(State.Writer,
                       GetSettingBool(FileSettings, SettingId_IncludeTypeTable) ? 0u : (uint32)ExcludeTypeTree);

    if (Result && KeepExporting(Progress)) {
        SetProgressStage(Progress, "I/O");
        StepProgress(Progress, "Writing file");
        Result = WriteDataTreeToFileBuilder(State.Writer, FileBuilder);
    }
    EndFileDataTreeWriting(State.Writer);
    if (GetFailedAllocationCount() != FailedAllocations) {
        TesselError(LogCategory_Exporter, "Out of memory: the export is incomplete and is not written");
        Result = false;
    }
    return Result;
}

#pragma pack(push, 4)
// The record of an embedded source file, as its type below describes it.
struct embedded_source_file
{
    char *Filename;
    int32 FileContentsCount;
    uint8 *FileContents;
};
#pragma pack(pop)

bool EmbedSourceFile(char const *Path, file_info *FileInfo, memory_arena *Arena, string_table *Strings)
{
    if (!Path || !Path[0]) return false;
    CheckPointer(FileInfo, LogCategory_Exporter, false);
    CheckPointer(Arena, LogCategory_Exporter, false);
    file_reader *Reader = CreatePlatformFileReader(Path);
    if (!Reader) return false;

    // Measured by reading, as some readers can't tell their size.
    enum
    {
        ChunkSize = 4096
    };
    uint8 Chunk[ChunkSize];
    int32 Size = 0;
    for (;;) {
        int32 Read = ReadAtMost(Reader, Size, ChunkSize, Chunk);
        if (Read > 0) Size += Read;
        if (Read < ChunkSize) break;
    }
    uint8 *Contents = (uint8 *)ArenaAllocate(Arena, Size > 0 ? Size : 1);
    embedded_source_file *Object = ArenaPush<embedded_source_file>(Arena);
    data_type_definition *Type = ArenaPush<data_type_definition>(Arena, 3);
    if (!Contents || !Object || !Type) {
        CloseFileReader(Reader);
        return false;
    }
    int32 ContentsCount = ReadAtMost(Reader, 0, Size, Contents);
    CloseFileReader(Reader);

    memset(Type, 0, sizeof(data_type_definition) * 3);
    Type[0].Type = StringMember;
    Type[0].Name = "Filename";
    Type[1].Type = ReferenceToArrayMember;
    Type[1].Name = "FileContents";
    Type[1].ReferenceType = UInt8ElementType;
    Type[2].Type = EndMember;

    Object->Filename = Strings ? MapString(Strings, Path) : ArenaCopyString(Arena, Path);
    Object->FileContentsCount = ContentsCount > 0 ? ContentsCount : 0;
    Object->FileContents = Contents;
    FileInfo->ExtendedData.Type = Type;
    FileInfo->ExtendedData.Object = Object;
    return true;
}
