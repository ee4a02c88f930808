// Tangent frames for the vertices of a mesh_builder, computed after the weld.
//
// Every triangle gets a frame from its positions and its first texture
// coordinate channel; the frames are summed into the triangle's corner
// vertices, and a vertex whose triangles disagree (mirrored mapping, or
// tangents apart by more than the builder's merging cosine) is split. Frames
// of coincident vertices with the same normal are then averaged, and each
// frame is made orthonormal around the vertex normal.
//
// The frame stored in a vertex: Tangent along increasing U, Binormal along
// increasing V of the stored coordinates, TangentBinormalCross the unit
// normal. (Tangent x Binormal) . Cross is positive where the mapping keeps
// the texture's winding and negative on mirrored islands.
//
// A mesh without usable texture coordinates (no channel, or every triangle
// with a degenerate mapping) gets frames from its geometry: the tangent of
// each triangle is its normal crossed with its first edge. A warning says so.
#pragma once

#include "foundation/tessel_types.h"

struct mesh_builder;

struct tangent_frame
{
    real32 Tangent[3];
    real32 Binormal[3];
    real32 TangentBinormalCross[3];
};

// Fills the builder's VertexTangentStack (one frame per output vertex, after
// any splits); false on a failed allocation or when a tangent stack isn't
// empty (the builder then stores a constant frame).
bool BuildTangentFrames(mesh_builder *Builder);
