// Skeletons and models of a TS2 file as readable text.
#pragma once

#include <string>

struct loaded_file;

// Bone trees (name, parent, LOD error, local transform) and models with
// their placement and meshes, each line starting with a line break; empty
// for files that don't hold this exporter's object schema.
std::string DescribeSkeletonsAndModels(loaded_file const &File);
