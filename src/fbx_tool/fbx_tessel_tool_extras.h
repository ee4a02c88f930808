// Operations of the FBX tool interface that FBX has no answer to: extra data
// on bones and settings stored with the scene. They are part of the contract
// all the same and give fixed empty results.
#pragma once

#include "exporter/tessel_tool_interface.h"
#include "foundation/tessel_types.h"

struct fbx_tool_interface;

namespace fbx_tool {

// Tool-specific data of a node in its bone record: FBX adds none.
void AddNodeData(fbx_tool_interface *Tool, tool_node *Node, bone *Bone, bool OnlyUserAttributes, memory_arena *Arena,
                 string_table *Strings);

// Settings blobs a tool may keep with its scene. FBX files keep none: every
// getter gives null, a blob has size 0 and can't be read.
tool_settings_blob *GetRootSettings(fbx_tool_interface *Tool);
tool_settings_blob *GetFileSettings(fbx_tool_interface *Tool);
tool_settings_blob *GetTextureSettings(fbx_tool_interface *Tool, tool_texture *Texture);
tool_settings_blob *GetMaterialSettings(fbx_tool_interface *Tool, tool_material *Material);
tool_settings_blob *GetMeshSettings(fbx_tool_interface *Tool, tool_mesh *Mesh);
tool_settings_blob *GetModelSettings(fbx_tool_interface *Tool, tool_model *Model);
tool_settings_blob *GetBoneSettings(fbx_tool_interface *Tool, tool_node *Node);
tool_settings_blob *GetAnimationSettings(fbx_tool_interface *Tool, tool_animation *Animation);
tool_settings_blob *GetTrackGroupSettings(fbx_tool_interface *Tool, tool_model *Model);
tool_settings_blob *GetBoneAnimationSettings(fbx_tool_interface *Tool, tool_node *Node);
int32 GetSettingsBlobSize(fbx_tool_interface *Tool, tool_settings_blob *Blob);
bool ReadSettingsBlob(fbx_tool_interface *Tool, tool_settings_blob *Blob, uint8 *Buffer);
void ReleaseSettingsBlob(fbx_tool_interface *Tool, tool_settings_blob *Blob);

} // namespace fbx_tool
