// The stage "Meshes": every tool mesh becomes a mesh record with its bone
// bindings, a vertex_data welded by the mesh builder and a tri_topology,
// then gets its bounds, winding, index width and sections, and loses the
// bone bindings that no vertex uses.
#pragma once

#include "foundation/tessel_types.h"

struct scene_export_state;
struct tool_mesh;
struct tool_material_data;
struct tool_mesh_data;
struct tool_mesh_skin;
struct mesh_builder;
struct mesh;
struct vertex_data;
struct tri_topology;
struct tri_annotation_set;
struct data_type_definition;
struct memory_arena;
struct string_table;
struct settings_node;

#pragma pack(push, 4)
// Takes a vertex in world space into the space of one bone binding: the
// inverse of that bone's world transform in the bind state, as a row-vector
// matrix (a point p goes to p M).
struct bone_placement
{
    real32 Matrix[16];
    bool8 IsSet;
};
#pragma pack(pop)

// Sections a mesh's arrays go to.
struct mesh_sections
{
    int32 Vertices;
    int32 Indices;
};

// The whole stage for one mesh. The mesh record always comes into being
// (and is listed in the file); its data only if "Include data in export"
// holds and the geometry can be read.
bool ExportMesh(scene_export_state *State, tool_mesh *Mesh);

void ExportPolygonMesh(scene_export_state *State, tool_mesh *Mesh, tool_mesh_skin *Skin, tool_material_data *Materials,
                       mesh *FileMesh, bone_placement *Placements);

// The vertex layout of a mesh, in the arena and ended by EndMember, with the
// tool's component names beside it. Null when the arena runs out.
data_type_definition *BuildVertexType(tool_mesh_data *MeshData, memory_arena *Arena, string_table *Strings,
                                      int32 BonesPerVertex, int32 BoneWeightFormat, int32 BoneCount,
                                      settings_node const *Settings, int32 *ColorCount, int32 *CoordinateCount,
                                      int32 *NameCount, char const ***Names);

// Each control point, skinned, with its weights.
void GatherVertices(scene_export_state *State, tool_mesh_data *MeshData, tool_mesh_skin *Skin, int32 VertexCount,
                    mesh_builder *Builder);

// Each triangle with its corners (and, when doubled, its back side), and the
// triangle annotations of the tool into AnnotationSets.
void GatherTriangles(scene_export_state *State, settings_node const *Settings, tool_mesh_data *MeshData,
                     int32 TriangleCount, int32 ColorCount, int32 CoordinateCount, mesh_builder *Builder,
                     tool_material_data *Materials, int32 AnnotationCount, tri_annotation_set *AnnotationSets,
                     bool DoubleTwoSided, bool FlipU, bool FlipV, tool_mesh *Mesh);

// ---------------------------------------------------------------------------
// Finishing, once the builder has given vertex_data and tri_topology.

void FinishMesh(scene_export_state *State, tool_mesh *Mesh, tool_mesh_data *MeshData, mesh_builder *Builder,
                mesh *FileMesh, vertex_data *VertexData, tri_topology *Topology, int32 AnnotationCount,
                tri_annotation_set *AnnotationSets, bone_placement *Placements, int32 BindingCount,
                mesh_sections Sections, bool WithMorphCurves);

void BuildVertexAnnotations(scene_export_state *State, mesh_builder *Builder, tool_mesh_data *MeshData,
                            vertex_data *VertexData, bool Indexed, tool_mesh *Mesh, bool WithToolAnnotations,
                            bool WithMorphCurves);

// Puts the triangle annotations in the final triangle order. False (with an
// error) for a missing table or set, or when memory runs out.
bool ReorderTriangleAnnotations(int32 const *TriIndexToFinalIndex, int32 TriangleCount, int32 SetCount,
                                tri_annotation_set *Sets, memory_arena *Arena);

// Bone boxes in each bone's space, and with the flags the per-bone triangle
// lists and the triangle-to-bone table.
void BuildMeshBounds(scene_export_state *State, mesh *FileMesh, int32 BoneBindingCount,
                     bone_placement const *Placements, bool IncludeTopology, bool IncludeBoneTriangles);
void UpdateBoneBounds(mesh *FileMesh, int32 BoneIndex, real32 const *Position, bone_placement const *Placements);

// Drops the bindings of bones that no vertex weighs and renumbers the
// vertices' bone indices.
void RemoveUnusedBoneBindings(mesh *FileMesh);
// Marks in Used (one byte for each of BoneCount bindings) every bone that a
// vertex weighs.
void MarkUsedBones(uint8 *Used, int32 BoneCount, vertex_data *VertexData);
// Bone index i of every vertex becomes NewIndices[i] (BoneCount entries).
// False if a vertex names a bone whose new index is -1 or that is out of
// range; that entry stays as it was.
bool RemapBoneIndices(int32 const *NewIndices, int32 BoneCount, vertex_data *VertexData);
