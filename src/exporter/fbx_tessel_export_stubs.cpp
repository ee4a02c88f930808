#include "exporter/fbx_tessel_export_stubs.h"

void ExportTexture(scene_export_state *State, tool_texture *Texture) {}
void CreateMaterial(scene_export_state *State, tool_material *Material) {}
void FillMaterial(scene_export_state *State, tool_material *Material) {}
void SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress) {}
void SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress) {}
void ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings) {}
