// The part of `tessel inspect` that shows a TS2 file's animations: each
// animation with its track groups and the curves of every transform track,
// and the pose of every bone at a given time, evaluated from the stored
// curves as a runtime would.
#pragma once

#include <string>

struct loaded_file;

// Animations, track groups (placement, loop translation, flags) and per
// transform track the format, degree, knot count and bytes of each curve.
// Text: lines each starting with a line break; Json: one JSON array.
// Empty for files that don't hold this exporter's object schema.
std::string DescribeAnimations(loaded_file const &File, bool Json);

// Every bone's local and world transform at Time (seconds, clamped to each
// animation's duration), per animation and track group. Bones without a
// track keep their rest transform; the group's placement carries the
// skeleton's roots.
std::string SampleAnimations(loaded_file const &File, double Time, bool Json);
