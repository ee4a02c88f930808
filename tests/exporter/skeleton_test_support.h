// Shared by the skeleton and model tests: a scene export context over a
// written scene with the stage state the skeleton and model stages need,
// and plain 4x4 matrices for expected values.
#pragma once

#include <cmath>
#include <string>
#include <vector>

#include "exporter/fbx_tessel.h"
#include "exporter/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "foundation/tessel_memory.h"
#include "support/fbx_test_writer.h"

// Row-vector matrices as the file stores them: a point p maps to p M.
struct matrix4
{
    double M[16];
};

inline matrix4 FromFloats(real32 const *Values)
{
    matrix4 Result;
    for (int I = 0; I < 16; ++I) Result.M[I] = Values[I];
    return Result;
}

inline matrix4 FromDoubles(double const *Values)
{
    matrix4 Result;
    for (int I = 0; I < 16; ++I) Result.M[I] = Values[I];
    return Result;
}

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

// Largest difference of two matrices, relative to the larger of 1 and the
// largest element of Expected.
inline double RelativeDifference(matrix4 const &Actual, matrix4 const &Expected)
{
    double Scale = 1.0, Difference = 0.0;
    for (int I = 0; I < 16; ++I) Scale = std::fmax(Scale, std::fabs(Expected.M[I]));
    for (int I = 0; I < 16; ++I) Difference = std::fmax(Difference, std::fabs(Actual.M[I] - Expected.M[I]));
    return Difference / Scale;
}

// The world matrix of a bone: the inverse of what the file stores.
inline matrix4 BoneWorld(bone const &Bone)
{
    matrix4 World;
    Invert(FromFloats(&Bone.InverseWorldTransform[0][0]), World);
    return World;
}

// A tool over a written scene, its export context and a stage state with
// room for every skeleton and model.
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
        if (Tool) Tool->AnimationDefs = nullptr;
        DestroyToolInterface(Tool);
    }

    tool_model *ModelNamed(char const *Name)
    {
        for (tool_model *Model = FirstModel(State.Graph); !IsModelEnd(State.Graph, Model); Model = NextModel(Model)) {
            char const *ModelName = GetToolModelName(Tool, Model, nullptr);
            if (ModelName && std::string(ModelName) == Name) return Model;
        }
        return nullptr;
    }

    tool_node *NodeNamed(char const *Name)
    {
        for (tool_node *Node = State.Graph->FirstNode; Node; Node = Node->NextInGraph) {
            if (std::string(GetNodeName(Tool, Node, nullptr)) == Name) return Node;
        }
        return nullptr;
    }
};

inline bone const *FindBone(skeleton const *Skeleton, char const *Name)
{
    for (int32 I = 0; Skeleton && I < Skeleton->BoneCount; ++I) {
        if (Skeleton->Bones[I].Name && std::string(Skeleton->Bones[I].Name) == Name) return &Skeleton->Bones[I];
    }
    return nullptr;
}

inline fbx_test_node TestNode(char const *Name, int32_t Parent, char const *Kind = "LimbNode")
{
    fbx_test_node Node;
    Node.Name = Name;
    Node.Parent = Parent;
    Node.Kind = Kind;
    return Node;
}
