// Shared by the skeleton and model tests: a stage state over a written
// scene, and the check of a bone's stored inverse world matrix.
#pragma once

#include <cmath>
#include <string>
#include <utility>

#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "foundation/tessel_memory.h"
#include "support/fbx_test_writer.h"

using namespace fbx_tool;

// Row-vector matrices as the file stores them: a point p maps to p M.
struct matrix4
{
    double M[16];
};

// Gauss-Jordan with partial pivoting; false for a singular matrix.
inline bool Invert(matrix4 const &Source, matrix4 &Result)
{
    double A[4][8];
    for (int R = 0; R < 4; ++R)
        for (int C = 0; C < 8; ++C) A[R][C] = C < 4 ? Source.M[R * 4 + C] : (C - 4 == R ? 1.0 : 0.0);
    for (int C = 0; C < 4; ++C) {
        int Pivot = C;
        for (int R = C + 1; R < 4; ++R)
            if (std::fabs(A[R][C]) > std::fabs(A[Pivot][C])) Pivot = R;
        if (std::fabs(A[Pivot][C]) < 1e-300) return false;
        for (int K = 0; K < 8; ++K) std::swap(A[C][K], A[Pivot][K]);
        double D = A[C][C];
        for (int K = 0; K < 8; ++K) A[C][K] /= D;
        for (int R = 0; R < 4; ++R) {
            if (R == C) continue;
            double F = A[R][C];
            for (int K = 0; K < 8; ++K) A[R][K] -= F * A[C][K];
        }
    }
    for (int R = 0; R < 4; ++R)
        for (int C = 0; C < 4; ++C) Result.M[R * 4 + C] = A[R][C + 4];
    return true;
}

// The world matrix of a bone: the inverse of what the file stores.
inline matrix4 BoneWorld(bone const &Bone)
{
    matrix4 Stored, World;
    for (int I = 0; I < 16; ++I) Stored.M[I] = (&Bone.InverseWorldTransform[0][0])[I];
    Invert(Stored, World);
    return World;
}

// Largest deviation from the identity of World (row-vector, as the file
// stores matrices) times the bone's stored inverse, with the translation
// row taken relative to the size of the world translation.
inline double InverseMismatch(bone const &Bone, double const *World)
{
    double Largest = 0.0, Reach = 1.0;
    for (int I = 12; I < 15; ++I) Reach = std::fmax(Reach, std::fabs(World[I]));
    for (int R = 0; R < 4; ++R)
        for (int C = 0; C < 4; ++C) {
            double Sum = 0.0;
            for (int K = 0; K < 4; ++K) Sum += World[R * 4 + K] * Bone.InverseWorldTransform[K][C];
            double Error = std::fabs(Sum - (R == C ? 1.0 : 0.0));
            Largest = std::fmax(Largest, R == 3 ? Error / Reach : Error);
        }
    return Largest;
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
