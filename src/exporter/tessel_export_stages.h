// The stages of the export, one call per object of the scene graph. Each
// answers false when it could not do its work for a reason that leaves the
// file incomplete (memory, a broken precondition); an object the tool can't
// describe is left out with a warning and does not fail the stage. The
// stages whose modules are not in yet leave their objects out of the file.
#pragma once

#include "foundation/tessel_types.h"
#include "tessel/tessel.h"

struct scene_export_state;
struct requester;
struct tool_texture;
struct tool_material;
struct tool_model;
struct tool_mesh;
struct tool_animation;

bool ExportTexture(scene_export_state *State, tool_texture *Texture);
bool CreateMaterial(scene_export_state *State, tool_material *Material);
bool FillMaterial(scene_export_state *State, tool_material *Material);
bool ExportSkeleton(scene_export_state *State, tool_model *Model);
bool ExportMesh(scene_export_state *State, tool_mesh *Mesh);
bool ExportModel(scene_export_state *State, tool_model *Model);
bool SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
bool SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
bool ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings);
