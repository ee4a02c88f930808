// Stages of the export whose work lands in later modules. Each is the one
// place the pipeline calls for its kind of object; until its module is in,
// the stage leaves the object out of the file.
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

void ExportTexture(scene_export_state *State, tool_texture *Texture);
void CreateMaterial(scene_export_state *State, tool_material *Material);
void FillMaterial(scene_export_state *State, tool_material *Material);
void ExportSkeleton(scene_export_state *State, tool_model *Model);
void ExportMesh(scene_export_state *State, tool_mesh *Mesh);
void ExportModel(scene_export_state *State, tool_model *Model);
void SampleBoneAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
void SampleVertexAnimation(scene_export_state *State, tool_animation *Animation, export_progress *Progress);
void ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings);
