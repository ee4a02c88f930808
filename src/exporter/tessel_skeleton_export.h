// The stages "Skeletons" and "Models": each model of the scene graph becomes
// one skeleton, sampled at the bind state, and one model record that binds
// its meshes and places it in the scene.
#pragma once

#include "foundation/tessel_types.h"

struct tool_interface;
struct scene_export_state;
struct settings_node;
struct tool_model;
struct tool_node;
struct transform;

// Builds the model's skeleton from its included bones (parents first, sorted
// by LOD error), records it in the model and in the file, and gives each
// included node its final BoneIndex and FileBone. Left-out nodes keep
// BoneIndex -1, so their children become roots. A bone's local transform is
// its rest transform relative to its skeleton parent; its inverse world
// matrix inverts the composition of the stored locals.
bool ExportSkeleton(scene_export_state *State, tool_model *Model);
// The model record: name, skeleton, placement and mesh bindings.
bool ExportModel(scene_export_state *State, tool_model *Model);

// Is this node a bone of the skeleton? For settings that have "Include
// reference in export", both inclusion settings must be on; otherwise
// "Include data in export" alone decides. False for a null node.
bool IsBoneIncluded(settings_node const *Settings);

// The node's local and world transform at the tool's current time, with
// their flags set.
void GetNodeTransforms(tool_interface *Tool, tool_node *Node, transform *Local, transform *World);
// The bone's parent in its model's skeleton: the graph parent when that is
// an included bone of the same model, else null (the bone is a root).
tool_node *GetSkeletonParent(tool_interface *Tool, tool_node *Node);
// The node's rest transform relative to Parent (null: its bind world), with
// its flags set.
void GetNodeBindTransform(tool_interface *Tool, tool_node *Node, tool_node *Parent, transform *Result);
// A transform as a row-vector 4x4 matrix in double precision (a point p maps
// to p M), and the inverse of such an affine matrix (false and the
// identity for a singular one).
void TransformToMatrix4x4(transform const &Transform, real64 *Matrix);
bool InvertAffine4x4(real64 const *Matrix, real64 *Result);

// A placement from a position and an orientation: the components the
// settings mask out are zeroed (all are kept unless a mask setting says
// otherwise), the orientation is normalised (a vanishing one becomes the
// identity) and the scale/shear is the identity.
void MakeInitialPlacement(settings_node const *Settings, real32 const *Position, real32 const *Orientation,
                          transform *Result);
