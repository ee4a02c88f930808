// The export's links to its neighbours: the settings tree, the file builder,
// the string table and the data tree writer. Each operation is the single
// place where the exporter calls into the other subsystem; until that
// subsystem is linked in, the operation stands in with a neutral answer
// (settings read as 0, the file builder writes no file).
#pragma once

#include "foundation/tessel_types.h"
#include "tessel/tessel.h"

struct settings_node;
struct requester;
struct file_builder;
struct string_table;
struct scene_export_context;

// Settings.
settings_node *BuildExportSettingsTree(scene_export_context *Context);
void FreeExportSettingsTree(scene_export_context *Context);
bool LoadExportSettingsFile(settings_node *Root, char const *Path);
// The requester with Id under the root, or null.
requester *FindExportRequester(settings_node *Root, int32 Id);
int32 GetExportSettingChoice(requester const *Requester, int32 Id);
int32 GetExportSettingInt(requester const *Requester, int32 Id);
bool GetExportSettingBool(requester const *Requester, int32 Id);
int32 GetExportSectionSetting(requester const *Requester, int32 Id, int32 BuiltInSection);
bool IncludeReference(settings_node const *Node);

// File builder. Magic is the 32-byte platform block.
file_builder *BeginExportFile(int32 SectionCount, uint32 FileTypeTag, uint8 const *Magic,
                              char const *TemporaryDirectory, char const *FileNameRoot);
void SetExportFileSectionFormat(file_builder *Builder, int32 SectionIndex, int32 Compression, int32 Alignment);
bool EndExportFile(file_builder *Builder, char const *FileName);
void AbortExportFile(file_builder *Builder);

// String table of the export.
string_table *NewExportStringTable();
void FreeExportStringTable(string_table *Strings);
// The table's copy of Text; null for null.
char const *InternExportString(string_table *Strings, char const *Text);
bool IncludeData(settings_node const *Node);

// Data tree writer over the state's file record.
struct file_data_tree_writer;
struct scene_export_state;
file_data_tree_writer *BeginExportDataTree(scene_export_state *State, int32 TypesSection, int32 ObjectsSection);
// Moves objects of each type to the section its setting names.
void AssignExportSections(scene_export_state *State);
void SetExportWriterFlags(file_data_tree_writer *Writer, uint32 Flags);
bool WriteExportDataTree(file_data_tree_writer *Writer, file_builder *Builder);
void EndExportDataTree(file_data_tree_writer *Writer);

// Stages. Each exports one object of the scene graph into the state.
struct tool_texture;
struct tool_material;
struct tool_model;
struct tool_mesh;
struct tool_animation;
void ExportTexture(scene_export_state *State, tool_texture *Texture);
void CreateMaterial(scene_export_state *State, tool_material *Material);
void FillMaterial(scene_export_state *State, tool_material *Material);
void ExportSkeleton(scene_export_state *State, tool_model *Model);
void AssignBoneIndices(scene_export_state *State, tool_model *Model);
void ExportMesh(scene_export_state *State, tool_mesh *Mesh);
void ExportModel(scene_export_state *State, tool_model *Model);
void SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
void SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
void ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings);
