// The bone animation stage's side of the world error budget: the settings
// and each model's tracked bones with their nearest tracked ancestors.
#include "exporter/tessel_bone_animation_budget.h"

#include "animation/tessel_world_error_budget.h"
#include "exporter/tessel_export_stages.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "exporter/tessel_tool_interface.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

#include <new>
#include <vector>

namespace {

// Refit rounds after the first fit; each halves the tolerances of the bones
// it picks, so this reaches far below any useful tolerance.
int32 const BudgetRounds = 12;

real32 ReadMaxError(tool_animation *Animation)
{
    real32 Value = GetSettingFloat(Animation->Settings, SettingId_MaximumWorldError);
    return Value > 0.0f ? Value : 0.0f;
}

} // namespace

bool WantsBoneAnimationBudget(tool_animation *Animation)
{
    if (!Animation) return false;
    return GetWorldErrorReport() || ReadMaxError(Animation) > 0.0f;
}

bool RunBoneAnimationBudget(scene_export_state *State, tool_animation *Animation, char const *AnimationName,
                            int32 SampleCount, real32 TimeStep, compression_queue &Queue)
{
    tool_interface *Tool = State->Tool;
    tool_node_graph *Graph = State->Graph;
    // The budget and the distance are in the units the file is written in
    // (after "Rescale scene on export"); the fit runs in the tool's.
    real32 ToolUnitsPerMeter = 0.0f, Right[3], Up[3], Back[3];
    GetCoordinateSystem(Tool, &ToolUnitsPerMeter, Right, Up, Back);
    if (!(ToolUnitsPerMeter > 0.0f)) ToolUnitsPerMeter = 100.0f;
    real32 FileUnitsPerMeter = ToolUnitsPerMeter;
    if (State->FileSettings && GetSettingBool(State->FileSettings, SettingId_RescaleSceneOnExport)) {
        real32 Wanted = GetSettingFloat(State->FileSettings, SettingId_UnitsPerMeter);
        if (Wanted > 0.0f) FileUnitsPerMeter = Wanted;
    }
    real32 const ToTool = ToolUnitsPerMeter / FileUnitsPerMeter;
    world_error_settings Settings = {};
    Settings.MaxError = ReadMaxError(Animation) * ToTool;
    Settings.VirtualDistance = GetSettingFloat(Animation->Settings, SettingId_VirtualVertexDistance) * ToTool;
    if (!(Settings.VirtualDistance > 0.0f)) {
        // 3 cm.
        Settings.VirtualDistance = 0.03f * ToolUnitsPerMeter;
    }
    Settings.SampleCount = SampleCount;
    Settings.TimeStep = TimeStep;
    Settings.MaxRounds = BudgetRounds;
    try {
        std::vector<std::vector<int32>> Parents;
        std::vector<std::vector<char const *>> Names;
        std::vector<world_error_model> Models;
        std::vector<char const *> ModelNames;
        int32 m = 0;
        for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model), ++m) {
            // Track indices of the tracked bones, as the stage numbers them.
            std::vector<tool_node *> Tracked;
            for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
                if (IsDataIncluded(Node->TrackSettings)) Tracked.push_back(Node);
            }
            std::vector<int32> ModelParents(Tracked.size(), -1);
            std::vector<char const *> ModelBoneNames(Tracked.size(), nullptr);
            for (size_t b = 0; b < Tracked.size(); ++b) {
                ModelBoneNames[b] = GetNodeName(Tool, Tracked[b], State->Strings);
                // The nearest tracked ancestor: untracked bones between keep
                // their transform in both the source and the curves.
                int32 Guard = 0;
                for (tool_node *Up = GetNodeParent(Tool, Tracked[b]); Up && Guard < 65536;
                     Up = GetNodeParent(Tool, Up), ++Guard) {
                    bool Found = false;
                    for (size_t p = 0; p < Tracked.size(); ++p) {
                        if (Tracked[p] == Up) {
                            ModelParents[b] = (int32)p;
                            Found = true;
                            break;
                        }
                    }
                    if (Found) break;
                }
            }
            Parents.push_back(std::move(ModelParents));
            Names.push_back(std::move(ModelBoneNames));
            ModelNames.push_back(GetToolModelName(Tool, Model, State->Strings));
            bool Sampled = IsDataIncluded(Model->TrackSettings);
            Models.push_back({m, Sampled ? (int32)Tracked.size() : 0, nullptr, nullptr});
        }
        for (size_t Index = 0; Index < Models.size(); ++Index) {
            Models[Index].Parents = Parents[Index].data();
            Models[Index].Names = Names[Index].data();
        }
        std::vector<world_error_animation_figures> *Report = GetWorldErrorReport();
        size_t Reported = Report ? Report->size() : 0;
        bool Fitted =
            RunWorldErrorBudget(Queue, Settings, Models.data(), (int32)Models.size(), AnimationName, ModelNames.data());
        // The report speaks the file's units too.
        for (size_t Index = Reported; Report && ToTool != 1.0f && Index < Report->size(); ++Index) {
            world_error_animation_figures &Figures = (*Report)[Index];
            Figures.MaxError /= ToTool;
            Figures.VirtualDistance /= ToTool;
            for (world_error_model_figures &Model : Figures.Models) {
                for (world_error_bone_figures &Bone : Model.Bones) {
                    Bone.Largest /= ToTool;
                    Bone.Percentile99 /= ToTool;
                    for (float &Error : Bone.Error) Error /= ToTool;
                }
            }
        }
        return Fitted;
    } catch (std::bad_alloc const &) {
        RunCompressionQueue(Queue);
        return false;
    }
}
