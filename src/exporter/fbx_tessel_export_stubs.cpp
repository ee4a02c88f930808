#include "exporter/fbx_tessel_export_stubs.h"

#include "foundation/tessel_memory.h"

settings_node *BuildExportSettingsTree(scene_export_context *Context)
{
    return 0;
}

void FreeExportSettingsTree(scene_export_context *Context)
{
}

bool LoadExportSettingsFile(settings_node *Root, char const *Path)
{
    return false;
}

requester *FindExportRequester(settings_node *Root, int32 Id)
{
    return 0;
}

int32 GetExportSettingChoice(requester const *Requester, int32 Id)
{
    return 0;
}

int32 GetExportSettingInt(requester const *Requester, int32 Id)
{
    return 0;
}

bool GetExportSettingBool(requester const *Requester, int32 Id)
{
    return false;
}

int32 GetExportSectionSetting(requester const *Requester, int32 Id, int32 BuiltInSection)
{
    return BuiltInSection;
}

bool IncludeReference(settings_node const *Node)
{
    return false;
}

// A builder that collects nothing; ending it writes no file.
struct placeholder_builder
{
    int32 SectionCount;
};

file_builder *BeginExportFile(int32 SectionCount, uint32 FileTypeTag, uint8 const *Magic,
                              char const *TemporaryDirectory, char const *FileNameRoot)
{
    placeholder_builder *Builder = (placeholder_builder *)TesselAllocate(sizeof(placeholder_builder));
    if (Builder) Builder->SectionCount = SectionCount;
    return (file_builder *)Builder;
}

void SetExportFileSectionFormat(file_builder *Builder, int32 SectionIndex, int32 Compression, int32 Alignment)
{
}

bool EndExportFile(file_builder *Builder, char const *FileName)
{
    TesselFree(Builder);
    return false;
}

void AbortExportFile(file_builder *Builder)
{
    TesselFree(Builder);
}

struct placeholder_string_table
{
    int32 Count;
};

string_table *NewExportStringTable()
{
    return (string_table *)TesselAllocate(sizeof(placeholder_string_table));
}

void FreeExportStringTable(string_table *Strings)
{
    if (Strings) TesselFree(Strings);
}

char const *InternExportString(string_table *Strings, char const *Text)
{
    return Text;
}

bool IncludeData(settings_node const *Node)
{
    return false;
}

struct placeholder_writer
{
    int32 TypesSection;
    int32 ObjectsSection;
    uint32 Flags;
};

file_data_tree_writer *BeginExportDataTree(scene_export_state *State, int32 TypesSection, int32 ObjectsSection)
{
    placeholder_writer *Writer = (placeholder_writer *)TesselAllocate(sizeof(placeholder_writer));
    if (Writer) {
        Writer->TypesSection = TypesSection;
        Writer->ObjectsSection = ObjectsSection;
        Writer->Flags = 0;
    }
    return (file_data_tree_writer *)Writer;
}

void AssignExportSections(scene_export_state *State)
{
}

void SetExportWriterFlags(file_data_tree_writer *Writer, uint32 Flags)
{
    if (Writer) ((placeholder_writer *)Writer)->Flags = Flags;
}

bool WriteExportDataTree(file_data_tree_writer *Writer, file_builder *Builder)
{
    return true;
}

void EndExportDataTree(file_data_tree_writer *Writer)
{
    if (Writer) TesselFree(Writer);
}

void ExportTexture(scene_export_state *State, tool_texture *Texture) {}
void CreateMaterial(scene_export_state *State, tool_material *Material) {}
void FillMaterial(scene_export_state *State, tool_material *Material) {}
void ExportSkeleton(scene_export_state *State, tool_model *Model) {}
void AssignBoneIndices(scene_export_state *State, tool_model *Model) {}
void ExportMesh(scene_export_state *State, tool_mesh *Mesh) {}
void ExportModel(scene_export_state *State, tool_model *Model) {}
void SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress) {}
void SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress) {}
void ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings) {}
