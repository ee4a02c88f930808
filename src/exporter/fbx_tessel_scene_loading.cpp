// Bridge to the FBX scene model. Until the scene model and its reader are
// linked in, a file counts as loaded when it is recognisably an FBX file,
// and the scene it gives is empty.
#include "exporter/fbx_tessel_scene_loading.h"

#include <cstring>

#include "exporter/fbx_tessel_tool_interface.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"

static bool LooksLikeFBXFile(char const *Path)
{
    int64 Size = 0;
    uint8 *Bytes = ReadEntireFile(Path, &Size);
    if (!Bytes) return false;
    static char const BinaryMagic[] = "Kaydara FBX Binary";
    bool Result = false;
    if (Size >= (int64)sizeof(BinaryMagic) - 1 && memcmp(Bytes, BinaryMagic, sizeof(BinaryMagic) - 1) == 0) {
        Result = true;
    } else {
        // ASCII files open with a header block; ReadEntireFile terminates the text.
        Result = strstr((char const *)Bytes, "FBXHeaderExtension") != 0;
    }
    TesselFree(Bytes);
    return Result;
}

bool ImportFBXScene(fbx_scene_context *Context, char const *Path)
{
    return LooksLikeFBXFile(Path);
}

void ReleaseFBXScene(fbx_scene_context *Context)
{
}

void FillSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
}

bool GetFBXFileVersion(fbx_scene_context *Context, int32 *Major, int32 *Minor)
{
    return false;
}

bool GetFBXAxisSystem(fbx_scene_context *Context, fbx_axis_system *Axes)
{
    return false;
}

void SetFBXCurrentTake(fbx_scene_context *Context, char const *TakeName)
{
}

char const *GetFBXNodeName(void *Node)
{
    return 0;
}

char const *GetFBXMeshNodeName(void *Mesh)
{
    return 0;
}

char const *GetFBXTakeName(void *TakeInfo)
{
    return 0;
}

void *GetFBXNodeParent(void *Node)
{
    return 0;
}
