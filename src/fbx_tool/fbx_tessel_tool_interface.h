// The FBX implementation of the tool interface: the tool object through
// which the exporter core sees an FBX scene. This is the set-up half: the
// object itself, loading and releasing the scene, and the scene-wide
// operations the export pipeline asks for.
#pragma once

#include "foundation/tessel_pointer_hash.h"
#include "exporter/tessel_tool_interface.h"
#include "foundation/tessel_types.h"

class KFbxSdkManager;
class KFbxScene;
struct animation_def;

struct fbx_scene_context
{
    KFbxSdkManager *Manager;
    KFbxScene *Scene;
    char const *FileName; // the caller's path, not copied
};

struct fbx_tool_interface : tool_interface
{
    fbx_scene_context *FBX;
    pointer_hash *NodeMap; // KFbxNode -> tool_node
    pointer_hash *MeshMap; // KFbxMesh -> tool_mesh
    int64 CurrentTime;     // time ticks at which samples are taken
    int32 AnimationDefCount;
    animation_def *AnimationDefs;
};

// The operations table every FBX tool object points to.
tool_operations const *GetFBXToolOperations();

namespace fbx_tool {

// Loads the whole FBX file. The tool object's FBX is null when the file
// could not be loaded.
fbx_tool_interface *CreateToolInterface(char const *FBXPath);
// Releases the scene (if still there), the maps and the record. Accepts null.
void DestroyToolInterface(fbx_tool_interface *Tool);

bool LoadFBXScene(fbx_scene_context *Context, char const *Path);
// Releases the scene and the manager, zeroes them, then frees the context.
void DestroyFBXScene(fbx_scene_context *Context);

// Scene operations of the tool interface.
tool_node_graph *BuildSceneGraph(fbx_tool_interface *Tool);
void ReleaseSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph);
char const *GetArtToolName(fbx_tool_interface *Tool, string_table *Strings);
void GetArtToolVersion(fbx_tool_interface *Tool, int32 *Major, int32 *Minor, int32 *PointerSize);
void AddArtToolInfoData(fbx_tool_interface *Tool, art_tool_info *Info, bool OnlyUserAttributes, memory_arena *Arena,
                        string_table *Strings);
char const *GetSourceFileName(fbx_tool_interface *Tool, string_table *Strings);
void GetCoordinateSystem(fbx_tool_interface *Tool, real32 *UnitsPerMeter, real32 *Right, real32 *Up, real32 *Back);
// The bind state: take "Default", time 0.
void ResetToolTime(fbx_tool_interface *Tool);

// Names. Strings are interned in Strings where one is given.
char const *GetNodeName(fbx_tool_interface *Tool, tool_node *Node, string_table *Strings);
char const *GetMeshName(fbx_tool_interface *Tool, tool_mesh *Mesh, string_table *Strings, bool FullName);
char const *GetAnimationName(fbx_tool_interface *Tool, tool_animation *Animation, string_table *Strings);
char const *GetTextureName(fbx_tool_interface *Tool, tool_texture *Texture, string_table *Strings);
char const *GetMaterialName(fbx_tool_interface *Tool, tool_material *Material, string_table *Strings);

// Nodes.
tool_node *GetNodeParent(fbx_tool_interface *Tool, tool_node *Node);
int32 GetNodeDepth(fbx_tool_interface *Tool, tool_node *Node);

// FBX has only bone animation.
bool IsVertexAnimation(fbx_tool_interface *Tool, tool_animation *Animation);

} // namespace fbx_tool
