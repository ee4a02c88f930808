#include "exporter/tessel_export_stages.h"

bool ExportTexture(scene_export_state *State, tool_texture *Texture)
{
    return true;
}
bool CreateMaterial(scene_export_state *State, tool_material *Material)
{
    return true;
}
bool FillMaterial(scene_export_state *State, tool_material *Material)
{
    return true;
}
bool SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress)
{
    return true;
}
bool SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress)
{
    return true;
}
