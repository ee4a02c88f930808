// The art-tool-independent export pipeline: makes the file's root record,
// runs the stages over the scene graph in a fixed order and hands the tree
// to the file builder.
#pragma once

#include "format/tessel_schema.h"
#include "foundation/tessel_types.h"
#include "settings/tessel_requester.h"
#include "tessel/tessel.h"

struct tool_interface;
struct tool_node_graph;
struct tool_animation;
struct settings_node;
struct memory_arena;
struct string_table;
struct file_builder;
struct file_data_tree_writer;

struct scene_export_context
{
    settings_node *Settings; // root of the settings tree
    memory_arena *Arena;     // owns every output record
    settings_pools Pools;    // requesters, settings and tree nodes
    string_table *Strings;
    tool_interface *Tool;
    tool_node_graph *Graph;
};

// What every stage gets, by address.
struct scene_export_state
{
    requester *FileSettings;
    file_data_tree_writer *Writer;
    memory_arena *Arena;
    string_table *Strings;
    tool_interface *Tool;
    tool_node_graph *Graph;
    file_info FileInfo; // the writer holds its address until the end
    int32 MorphTargetLimit;
    int32 MaterialIndex;
    int32 ProgressTotal;
};

// The names of the stages, in the order they run.
extern char const *const ExportStageNames[6];
extern char const ExporterName[];

// Null when the arena, the string table or the scene graph can't be made.
scene_export_context *BeginSceneExport(tool_interface *Tool);
// Releases the scene graph, the string table, the settings pools and the
// arena, in this order, then the context. Accepts null.
void EndSceneExport(scene_export_context *Context);

// Runs every stage and writes the tree into FileBuilder. False when a stage
// failed, memory ran out or the tree could not be written: the file must
// then not be written. A user's abort shows through KeepExporting(Progress).
bool ExportScene(scene_export_context *Context, char const *SourceFileToEmbed, file_builder *FileBuilder,
                 export_progress *Progress);

// Morph targets a mesh may have, so that (limit + 1) * MeshCount stays within
// 262144 vertex data records.
int32 GetMorphTargetLimit(int32 MeshCount);
int32 GetAnimationProgressSteps(tool_interface *Tool, tool_animation *Animation, scene_export_state *State);

// Stores the bytes of the file at Path in the ExtendedData of FileInfo.
bool EmbedSourceFile(char const *Path, file_info *FileInfo, memory_arena *Arena, string_table *Strings);

// Adders for the stages: store the record at the end of its array.
void AddTexture(scene_export_state *State, texture *Texture);
void AddMaterial(scene_export_state *State, material *Material);
void AddSkeleton(scene_export_state *State, skeleton *Skeleton);
void AddVertexData(scene_export_state *State, vertex_data *VertexData);
void AddTriTopology(scene_export_state *State, tri_topology *TriTopology);
void AddMesh(scene_export_state *State, mesh *Mesh);
void AddModel(scene_export_state *State, model *Model);
void AddTrackGroup(scene_export_state *State, track_group *TrackGroup);
void AddAnimation(scene_export_state *State, animation *Animation);
