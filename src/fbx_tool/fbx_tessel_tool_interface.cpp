#include "fbx_tool/fbx_tessel_tool_interface.h"

#include <cstring>

#include "fbx_tool/fbx_tessel_scene_loading.h"
#include "exporter/tessel_scene_graph.h"
#include "format/tessel_string_table.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

namespace fbx_tool {

fbx_tool_interface *CreateToolInterface(char const *FBXPath)
{
    fbx_tool_interface *Tool = (fbx_tool_interface *)TesselAllocate(sizeof(fbx_tool_interface));
    if (!Tool) return 0;
    memset(Tool, 0, sizeof(*Tool));
    Tool->Operations = GetFBXToolOperations();

    fbx_scene_context *Context = (fbx_scene_context *)TesselAllocate(sizeof(fbx_scene_context));
    if (Context) {
        memset(Context, 0, sizeof(*Context));
        if (LoadFBXScene(Context, FBXPath)) {
            Tool->FBX = Context;
        } else {
            DestroyFBXScene(Context);
        }
    }
    Tool->NodeMap = NewPointerHash();
    Tool->MeshMap = NewPointerHash();
    Tool->CurrentTime = 0;
    Tool->AnimationDefCount = 0;
    Tool->AnimationDefs = 0;
    return Tool;
}

void DestroyToolInterface(fbx_tool_interface *Tool)
{
    if (!Tool) return;
    DestroyFBXScene(Tool->FBX);
    Tool->FBX = 0;
    DeletePointerHash(Tool->NodeMap);
    DeletePointerHash(Tool->MeshMap);
    TesselFree(Tool);
}

bool LoadFBXScene(fbx_scene_context *Context, char const *Path)
{
    CheckPointer(Context, LogCategory_FBX, false);
    CheckPointer(Path, LogCategory_FBX, false);
    Context->FileName = Path;
    return ImportFBXScene(Context, Path);
}

void DestroyFBXScene(fbx_scene_context *Context)
{
    if (!Context) return;
    ReleaseFBXScene(Context);
    Context->Scene = 0;
    Context->Manager = 0;
    TesselFree(Context);
}

tool_node_graph *BuildSceneGraph(fbx_tool_interface *Tool)
{
    CheckPointer(Tool, LogCategory_Exporter, 0);
    CheckPointer(Tool->FBX, LogCategory_Exporter, 0);
    tool_node_graph *Graph = NewToolNodeGraph();
    if (!Graph) return 0;
    FillSceneGraph(Tool, Graph);
    return Graph;
}

void ReleaseSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
    FreeToolNodeGraph(Graph);
}

char const *GetArtToolName(fbx_tool_interface *Tool, string_table *Strings)
{
    return "FBX";
}

void GetArtToolVersion(fbx_tool_interface *Tool, int32 *Major, int32 *Minor, int32 *PointerSize)
{
    int32 FileMajor = 0, FileMinor = 0;
    if (Tool && Tool->FBX) GetFBXFileVersion(Tool->FBX, &FileMajor, &FileMinor);
    if (Major) *Major = FileMajor;
    if (Minor) *Minor = FileMinor;
    if (PointerSize) *PointerSize = 64;
}

void AddArtToolInfoData(fbx_tool_interface *Tool, art_tool_info *Info, bool OnlyUserAttributes, memory_arena *Arena,
                        string_table *Strings)
{}

char const *GetSourceFileName(fbx_tool_interface *Tool, string_table *Strings)
{
    return (Tool && Tool->FBX) ? Tool->FBX->FileName : 0;
}

void GetCoordinateSystem(fbx_tool_interface *Tool, real32 *UnitsPerMeter, real32 *Right, real32 *Up, real32 *Back)
{
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Right[Axis] = 0.0f;
        Up[Axis] = 0.0f;
        Back[Axis] = 0.0f;
    }
    fbx_axis_system Axes;
    if (Tool && Tool->FBX && GetFBXAxisSystem(Tool->FBX, &Axes)) {
        if (Axes.UpAxis >= 0 && Axes.UpAxis < 3) Up[Axes.UpAxis] = (real32)Axes.UpSign;
        if (Axes.FrontAxis >= 0 && Axes.FrontAxis < 3) Back[Axes.FrontAxis] = (real32)Axes.FrontSign;
        if (Axes.CoordAxis >= 0 && Axes.CoordAxis < 3) Right[Axes.CoordAxis] = (real32)Axes.CoordSign;
        *UnitsPerMeter = (real32)(1.0 / (Axes.UnitScaleFactor / 100.0));
    } else {
        // A scene without global settings: right-handed, Y up, centimetres.
        Right[0] = 1.0f;
        Up[1] = 1.0f;
        Back[2] = 1.0f;
        *UnitsPerMeter = 100.0f;
    }
}

void ResetToolTime(fbx_tool_interface *Tool)
{
    if (!Tool) return;
    Tool->CurrentTime = 0;
    SetFBXCurrentTake(Tool->FBX, "Default");
}

static char const *InternName(string_table *Strings, char const *Name)
{
    return Strings ? MapString(Strings, Name) : Name;
}

char const *GetNodeName(fbx_tool_interface *Tool, tool_node *Node, string_table *Strings)
{
    if (!Node) return 0;
    return InternName(Strings, GetFBXNodeName(Node->ToolNode));
}

char const *GetMeshName(fbx_tool_interface *Tool, tool_mesh *Mesh, string_table *Strings, bool FullName)
{
    if (!Mesh) return 0;
    return InternName(Strings, GetFBXMeshNodeName(Mesh->ToolMesh));
}

char const *GetAnimationName(fbx_tool_interface *Tool, tool_animation *Animation, string_table *Strings)
{
    if (!Animation) return 0;
    return InternName(Strings, Animation->Name ? Animation->Name : GetFBXTakeName(Animation->ToolAnimation));
}

char const *GetTextureName(fbx_tool_interface *Tool, tool_texture *Texture, string_table *Strings)
{
    return 0;
}

char const *GetMaterialName(fbx_tool_interface *Tool, tool_material *Material, string_table *Strings)
{
    return 0;
}

tool_node *GetNodeParent(fbx_tool_interface *Tool, tool_node *Node)
{
    if (!Tool || !Node) return 0;
    void *Parent = GetFBXNodeParent(Node->ToolNode);
    tool_node *Result = 0;
    if (Parent) GetHashedPointerData(Tool->NodeMap, Parent, &Result);
    return Result;
}

int32 GetNodeDepth(fbx_tool_interface *Tool, tool_node *Node)
{
    int32 Depth = 0;
    for (tool_node *Parent = GetNodeParent(Tool, Node); Parent; Parent = GetNodeParent(Tool, Parent)) ++Depth;
    return Depth;
}

bool IsVertexAnimation(fbx_tool_interface *Tool, tool_animation *Animation)
{
    return false;
}

} // namespace fbx_tool
