// The world error budget of bone animation. The per-channel tolerances of
// the curve fitter say nothing about what a viewer sees: an error at the
// hips moves every point of the body, the same error at a fingertip moves
// almost nothing. With a budget, the fitter instead derives each bone's
// tolerances from how far its descendants reach, fits, then measures the
// error of virtual points (a fixed distance from each bone along its three
// axes) composed through the whole chain, with the stored curves as a
// runtime evaluates them, and tightens and refits the bones that break the
// budget until none does.
//
// The same measurement makes the animation report: per bone, the curves'
// formats and sizes and the largest and 99th-percentile world error.
#pragma once

#include "animation/tessel_compression_queue.h"
#include "foundation/tessel_types.h"

#include <string>
#include <vector>

// One model of an animation as the budget sees it: its tracked bones in
// track order (the compression slots' TrackIndex), each with its parent
// among them (-1 when the nearest tracked ancestor is none).
struct world_error_model
{
    int32 Model;     // the compression queue's model index
    int32 BoneCount; // tracked bones
    int32 const *Parents;
    char const *const *Names;
};

struct world_error_settings
{
    real32 MaxError;        // world distance; 0 turns the budget off
    real32 VirtualDistance; // distance of the measured points from each bone
    int32 SampleCount;      // samples of every bone stream
    real32 TimeStep;        // seconds between samples
    int32 MaxRounds;        // measure-and-refit rounds after the first fit
};

// What one curve of a bone became.
struct world_error_curve_figures
{
    std::string Format;
    int32 Degree = 0;
    int32 KnotCount = 0;
    int32 Bytes = 0; // of the curve's data, 0 for an identity
};

struct world_error_bone_figures
{
    std::string Name;
    world_error_curve_figures Curves[3]; // position, orientation, scale/shear
    int32 Bytes = 0;
    double Largest = 0.0;
    double Percentile99 = 0.0;
    int32 Refits = 0;         // rounds in which the budget tightened this bone
    std::vector<float> Error; // per sample: the largest error of its points
};

struct world_error_model_figures
{
    std::string Name;
    std::vector<world_error_bone_figures> Bones;
};

struct world_error_animation_figures
{
    std::string Name;
    double Duration = 0.0;
    double TimeStep = 0.0;
    double MaxError = 0.0; // the budget, 0 when off
    double VirtualDistance = 0.0;
    int32 Rounds = 0;               // measure-and-refit rounds that refitted something
    std::vector<std::string> Unmet; // bones left above the budget, with the reason
    std::vector<world_error_model_figures> Models;
};

// Where the exports of this process leave their figures, one entry per
// animation (the caller owns it; null, the default, records nothing). Set
// it only while no export runs on another thread.
void SetWorldErrorReport(std::vector<world_error_animation_figures> *Report);
std::vector<world_error_animation_figures> *GetWorldErrorReport();

// Derives the tolerances of the pending jobs of every model, runs the
// queue, measures and refits until every bone meets the budget or no
// tightening helps. With MaxError 0 the jobs keep their tolerances and the
// queue is only run and measured (the report's figures). Names the
// animation's entry in the report when one is set. The queue is finished
// on return: every slot holds its final curve. False when memory ran out
// or a worker could not fit.
bool RunWorldErrorBudget(compression_queue &Queue, world_error_settings const &Settings,
                         world_error_model const *Models, int32 ModelCount, char const *AnimationName,
                         char const *const *ModelNames);
