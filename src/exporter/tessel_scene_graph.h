// The exporter core's picture of a scene: meshes, nodes, materials,
// textures, tracks and animations, grouped into models. Graph objects hold
// only the art tool's handles; the tool interface fills the graph once.
// Every list runs from the newest object to the oldest.
#pragma once

#include "foundation/tessel_types.h"

struct settings_node;
struct skeleton;
struct mesh;
struct bone;
struct material;
struct texture;

struct tool_model;

struct tool_mesh
{
    settings_node *Settings;
    mesh *FileMesh;
    tool_model *Model;
    tool_mesh *NextInModel;
    tool_mesh *NextInGraph;
    int32 MorphCurveVertexCount;
    int32 MorphCurveSetCount;
    char const **MorphCurveNames;
    void **MorphCurves;
    void *ToolMesh;
};

struct tool_node
{
    settings_node *Settings;
    settings_node *TrackSettings;
    int32 BoneIndex; // -1 until assigned
    bone *FileBone;
    tool_model *Model;
    tool_node *NextInModel;
    tool_node *NextInGraph;
    void *ToolNode;
};

struct tool_material
{
    settings_node *Settings;
    material *FileMaterial;
    tool_model *Model;
    tool_material *NextInModel;
    tool_material *NextInGraph;
};

struct tool_texture
{
    settings_node *Settings;
    texture *FileTexture;
    bool8 IsNormalMap;
    tool_texture *NextInGraph;
};

struct tool_track
{
    settings_node *Settings;
    tool_model *Model;
    tool_track *NextInModel;
    tool_track *NextInGraph;
};

struct tool_model
{
    settings_node *Settings;
    settings_node *TrackSettings;
    void *Reserved[2];
    skeleton *Skeleton;
    tool_model *Next;
    tool_model *Previous;
    int32 MeshCount;
    tool_mesh *FirstMesh;
    int32 NodeCount;
    tool_node *FirstNode;
    int32 MaterialCount;
    tool_material *FirstMaterial;
    int32 TrackCount;
    tool_track *FirstTrack;
};

struct tool_animation
{
    settings_node *Settings;
    tool_animation *Next;
    void *ToolAnimation;
    void *ToolScene;
    bool8 HasRange;
    int64 Start; // time ticks
    int64 End;
    char const *Name; // null: the name is the take's
};

struct tool_node_graph
{
    int32 MeshCount;
    tool_mesh *FirstMesh;
    int32 NodeCount;
    tool_node *FirstNode;
    int32 TrackCount;
    tool_track *FirstTrack;
    int32 MaterialCount;
    tool_material *FirstMaterial;
    int32 TextureCount;
    tool_texture *FirstTexture;
    int32 ModelCount;
    tool_model ModelSentinel; // closes the ring of all models
    int32 AnimationCount;
    tool_animation *FirstAnimation;
};

// An empty graph: all counts 0, the ring closed on the sentinel.
tool_node_graph *NewToolNodeGraph();
// Releases the graph with every object in it. Accepts null.
void FreeToolNodeGraph(tool_node_graph *Graph);

// Each makes a model holding just the new object, at the tail of the ring.
tool_mesh *NewToolMesh(tool_node_graph *Graph);
tool_node *NewToolNode(tool_node_graph *Graph);
// A zeroed animation at the head of the list.
tool_animation *NewToolAnimation(tool_node_graph *Graph);

// Joins two models that turn out to belong together: the heavier (meshes,
// nodes and materials counted; First on a tie) takes over the other's meshes,
// nodes and tracks, and the other goes. Materials are not moved.
void MergeToolModels(tool_node_graph *Graph, tool_model *First, tool_model *Second);
// Removes a model that holds one node and nothing else, with its node.
void DeleteToolModel(tool_node_graph *Graph, tool_model *Model);

// Iterators: newest first; the model walk ends on the sentinel.
inline tool_model *FirstModel(tool_node_graph *Graph)
{
    return Graph->ModelSentinel.Previous;
}
inline tool_model *NextModel(tool_model *Model)
{
    return Model->Previous;
}
inline bool IsModelEnd(tool_node_graph *Graph, tool_model *Model)
{
    return Model == &Graph->ModelSentinel;
}

struct tool_interface;
struct string_table;
// The name of the model's shallowest node (the last of equals in list order),
// replaced by its last material's name if it has materials; null without
// nodes.
char const *GetToolModelName(tool_interface *Tool, tool_model *Model, string_table *Strings);

// The model's nodes get bone indices 0, 1, ... in list order, for a model
// whose skeleton is not written.
void AssignBoneIndices(tool_model *Model);

struct settings_pools;
// The settings tree of the export: the default category tree, and below it a
// node for every texture, material, mesh, model (with its bones) and
// animation (with a track group per model and its bones), recorded in the
// objects. Each starts as a copy of its category's settings.
settings_node *BuildSettingsTree(string_table *Strings, tool_node_graph *Graph, tool_interface *Tool,
                                 settings_pools &Pools);
