// Meshes of a TS2 file as readable text.
#pragma once

#include <string>

struct loaded_file;

// Each mesh: its vertex layout (members, kinds, widths, the tool's names),
// vertex and triangle counts, index width, material groups and bone
// bindings with their boxes; with VertexCount above 0 also the first
// VertexCount vertices. Every line starts with a line break; empty for files
// that don't hold this exporter's object schema.
std::string DescribeMeshes(loaded_file const &File, int VertexCount);
