// The world error budget and the animation report in the bone animation
// stage: which animations want them and the skeleton they are measured on.
#pragma once

#include "foundation/tessel_types.h"

struct scene_export_state;
struct tool_animation;
struct compression_queue;

// True when the animation's settings turn the world error budget on, or
// when a report is being gathered: then the stage runs the queue through
// RunBoneAnimationBudget instead of following its results as they come.
bool WantsBoneAnimationBudget(tool_animation *Animation);

// Fits every queued job of the animation under the budget (or, with the
// budget off, fits them as they are and measures them for the report).
// The queue is finished on return. False when memory ran out.
bool RunBoneAnimationBudget(scene_export_state *State, tool_animation *Animation, char const *AnimationName,
                            int32 SampleCount, real32 TimeStep, compression_queue &Queue);
