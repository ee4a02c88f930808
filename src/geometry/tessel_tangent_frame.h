// Tangent frames for the vertices of a mesh_builder, computed after the weld.
#pragma once

struct mesh_builder;

// Fills the builder's VertexTangentStack; false when the frames can't be
// computed (the builder then stores a constant frame).
bool BuildTangentFrames(mesh_builder *Builder);
