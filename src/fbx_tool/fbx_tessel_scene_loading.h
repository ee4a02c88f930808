// What the tool interface needs of the FBX scene model: importing a file
// into a scene, releasing it, and the scene-wide values the export asks
// for. Everything that touches the scene model's classes goes through here.
#pragma once

#include "foundation/tessel_types.h"

class KFbxSdkManager;
struct fbx_scene_context;
struct fbx_tool_interface;
struct tool_node_graph;

struct fbx_axis_system
{
    int32 UpAxis, UpSign;
    int32 FrontAxis, FrontSign;
    int32 CoordAxis, CoordSign;
    real64 UnitScaleFactor; // centimetres per unit
};

// Creates the manager and the scene and imports Path into it. False when the
// file can't be read as an FBX scene.
bool ImportFBXScene(fbx_scene_context *Context, char const *Path);
// Puts the library's output formats on the manager's writer list.
bool RegisterFBXWriter(KFbxSdkManager *Manager);
// Destroys the scene and the manager, if any, and zeroes them.
void ReleaseFBXScene(fbx_scene_context *Context);
// Registers every node, mesh and take of the scene in Graph.
void FillSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph);
bool GetFBXFileVersion(fbx_scene_context *Context, int32 *Major, int32 *Minor);
bool GetFBXAxisSystem(fbx_scene_context *Context, fbx_axis_system *Axes);
void SetFBXCurrentTake(fbx_scene_context *Context, char const *TakeName);

// Names and parents of the scene model's objects, by their handles.
char const *GetFBXNodeName(void *Node);
char const *GetFBXMeshNodeName(void *Mesh);
char const *GetFBXTakeName(void *TakeInfo);
void *GetFBXNodeParent(void *Node);
