#include "fbx_tool/fbx_tessel_tool_extras.h"

namespace fbx_tool {

void AddNodeData(fbx_tool_interface *Tool, tool_node *Node, bone *Bone, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings)
{}

tool_settings_blob *GetRootSettings(fbx_tool_interface *Tool)
{
    return 0;
}
tool_settings_blob *GetFileSettings(fbx_tool_interface *Tool)
{
    return 0;
}
tool_settings_blob *GetTextureSettings(fbx_tool_interface *Tool, tool_texture *Texture)
{
    return 0;
}
tool_settings_blob *GetMaterialSettings(fbx_tool_interface *Tool, tool_material *Material)
{
    return 0;
}
tool_settings_blob *GetMeshSettings(fbx_tool_interface *Tool, tool_mesh *Mesh)
{
    return 0;
}
tool_settings_blob *GetModelSettings(fbx_tool_interface *Tool, tool_model *Model)
{
    return 0;
}
tool_settings_blob *GetBoneSettings(fbx_tool_interface *Tool, tool_node *Node)
{
    return 0;
}
tool_settings_blob *GetAnimationSettings(fbx_tool_interface *Tool, tool_animation *Animation)
{
    return 0;
}
tool_settings_blob *GetTrackGroupSettings(fbx_tool_interface *Tool, tool_model *Model)
{
    return 0;
}
tool_settings_blob *GetBoneAnimationSettings(fbx_tool_interface *Tool, tool_node *Node)
{
    return 0;
}
int32 GetSettingsBlobSize(fbx_tool_interface *Tool, tool_settings_blob *Blob)
{
    return 0;
}
bool ReadSettingsBlob(fbx_tool_interface *Tool, tool_settings_blob *Blob, uint8 *Buffer)
{
    return false;
}
void ReleaseSettingsBlob(fbx_tool_interface *Tool, tool_settings_blob *Blob) {}

} // namespace fbx_tool
