// Shared by the skeleton and model tests: a stage state over a written
// scene, and the check of a bone's stored inverse world matrix.
#pragma once

#include <cmath>
#include <string>

#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "foundation/tessel_memory.h"
#include "support/fbx_test_writer.h"
#include "transform_test_support.h"

using namespace fbx_tool;

// Largest deviation from the identity of World (row-vector, as the file
// stores matrices) times the bone's stored inverse, with the translation
// row taken relative to the size of the world translation.
inline double InverseMismatch(bone const &Bone, double const *World)
{
    double Reach = 1.0;
    for (int I = 12; I < 15; ++I) Reach = std::fmax(Reach, std::fabs(World[I]));
    return InverseDeviation(Bone, FromArray(World), Reach);
}

// A tool over a written scene, its export context and a stage state with
// room for every skeleton and model, at the bind state.
struct stage_fixture
{
    fbx_tool_interface *Tool = nullptr;
    scene_export_context *Context = nullptr;
    scene_export_state State;

    bool Begin(fbx_test_scene const &Scene, animation_def *Defs = nullptr, int32 DefCount = 0)
    {
        std::string Path = SaveFbxTestFile("stage.fbx", WriteFbxTestScene(Scene, FbxTestBinary(7400)));
        Tool = CreateToolInterface(Path.c_str());
        remove(Path.c_str());
        if (!Tool || !Tool->FBX) return false;
        Tool->AnimationDefs = Defs;
        Tool->AnimationDefCount = DefCount;
        Context = BeginSceneExport(Tool);
        if (!Context) return false;
        memset(&State, 0, sizeof(State));
        State.Arena = Context->Arena;
        State.Strings = Context->Strings;
        State.Tool = Tool;
        State.Graph = Context->Graph;
        State.FileInfo.Skeletons = ArenaPush<skeleton *>(State.Arena, State.Graph->ModelCount);
        State.FileInfo.Models = ArenaPush<model *>(State.Arena, State.Graph->ModelCount);
        ResetToolTime(Tool);
        return true;
    }

    ~stage_fixture()
    {
        EndSceneExport(Context);
        if (Tool) Tool->AnimationDefs = nullptr; // the test's own
        DestroyToolInterface(Tool);
    }

    tool_model *ModelNamed(char const *Name)
    {
        for (tool_model *Model = FirstModel(State.Graph); !IsModelEnd(State.Graph, Model); Model = NextModel(Model))
            if (std::string(GetToolModelName(Tool, Model, nullptr)) == Name) return Model;
        return nullptr;
    }

    tool_node *NodeNamed(char const *Name)
    {
        for (tool_node *Node = State.Graph->FirstNode; Node; Node = Node->NextInGraph)
            if (std::string(GetNodeName(Tool, Node, nullptr)) == Name) return Node;
        return nullptr;
    }
};

inline fbx_test_node TestNode(char const *Name, int32_t Parent, char const *Kind = "LimbNode")
{
    fbx_test_node Node;
    Node.Name = Name;
    Node.Parent = Parent;
    Node.Kind = Kind;
    return Node;
}
