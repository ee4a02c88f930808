// Shared by the mesh tests: the stages "Skeletons" and "Meshes" run in
// process over a scene, with the file's records left in the arena for the
// tests to look at, and readers for vertex members.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_mesh_export.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_scene_parser.h"
#include "exporter/tessel_skeleton_export.h"
#include "fbx/fbx_tessel_mesh.h"
#include "format/tessel_data_type_io.h"
#include "foundation/tessel_memory.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"
#include "support/fbx_test_writer.h"

using namespace fbx_tool;

struct mesh_fixture
{
    fbx_tool_interface *Tool = nullptr;
    scene_export_context *Context = nullptr;
    scene_export_state State;

    bool Open(std::string const &Path)
    {
        Tool = CreateToolInterface(Path.c_str());
        if (!Tool || !Tool->FBX) return false;
        Context = BeginSceneExport(Tool);
        if (!Context) return false;
        memset(&State, 0, sizeof(State));
        State.Arena = Context->Arena;
        State.Strings = Context->Strings;
        State.Tool = Tool;
        State.Graph = Context->Graph;
        State.FileSettings = FindRequesterInTree(Context->Settings, 69);
        State.MorphTargetLimit = GetMorphTargetLimit(State.Graph->MeshCount);
        int32 Models = State.Graph->ModelCount, Meshes = State.Graph->MeshCount;
        State.FileInfo.Skeletons = ArenaPush<skeleton *>(State.Arena, Models);
        State.FileInfo.Models = ArenaPush<model *>(State.Arena, Models);
        State.FileInfo.Meshes = ArenaPush<mesh *>(State.Arena, Meshes);
        State.FileInfo.TriTopologies = ArenaPush<tri_topology *>(State.Arena, Meshes);
        State.FileInfo.VertexDatas = ArenaPush<vertex_data *>(State.Arena, (State.MorphTargetLimit + 1) * Meshes);
        ResetToolTime(Tool);
        return true;
    }

    bool Open(fbx_test_scene const &Scene)
    {
        std::string Path = SaveFbxTestFile("mesh.fbx", WriteFbxTestScene(Scene, FbxTestBinary(7400)));
        bool Result = Open(Path);
        remove(Path.c_str());
        return Result;
    }

    ~mesh_fixture()
    {
        EndSceneExport(Context);
        DestroyToolInterface(Tool);
    }

    // Sets a mesh setting on every mesh (a checkbox, slider or combobox).
    void SetOnEveryMesh(int32 Id, int32 Value)
    {
        for (tool_mesh *Mesh = State.Graph->FirstMesh; Mesh; Mesh = Mesh->NextInGraph) {
            setting *Setting = FindSetting(Mesh->Settings, Id);
            if (!Setting) continue;
            if (!SetSettingBool(Setting, Value != 0) && !SetSettingSliderPosition(Setting, Value)) {
                SetSettingChoice(Setting, Value);
            }
        }
    }

    void Run()
    {
        for (tool_model *Model = FirstModel(State.Graph); !IsModelEnd(State.Graph, Model); Model = NextModel(Model)) {
            if (IsReferenceIncluded(Model->Settings)) {
                ExportSkeleton(&State, Model);
            } else {
                AssignBoneIndices(Model);
            }
        }
        for (tool_mesh *Mesh = State.Graph->FirstMesh; Mesh; Mesh = Mesh->NextInGraph) {
            if (IsReferenceIncluded(Mesh->Settings)) ExportMesh(&State, Mesh);
        }
    }

    tool_mesh *FirstMesh() { return State.Graph->FirstMesh; }
    mesh *FirstFileMesh() { return State.Graph->FirstMesh ? State.Graph->FirstMesh->FileMesh : nullptr; }
};

// A member of a vertex by name, as reals (weights of a normalised kind come
// out between 0 and 1), or empty when the layout has no such member.
inline std::vector<double> VertexMember(vertex_data const *Data, int32 Vertex, char const *Name)
{
    std::vector<double> Values;
    data_type_definition const *Layout = Data->Vertices.Type;
    uint8 const *Address = (uint8 const *)Data->Vertices.Array + (intaddrx)GetTotalObjectSize(Layout) * Vertex;
    matched_member Match;
    if (!FindMatchingMember(Layout, Address, Name, Match)) return Values;
    member_type Kind = Match.Member->Type;
    int32 Width = GetMemberArrayWidth(*Match.Member);
    int32 Unit = GetMemberUnitSize(*Match.Member);
    for (int32 I = 0; I < Width; ++I) {
        uint8 const *Element = (uint8 const *)Match.Address + Unit * I;
        bool Integer = Kind == UInt8Member || Kind == UInt16Member || Kind == UInt32Member || Kind == Int32Member ||
                       Kind == Int8Member || Kind == Int16Member;
        Values.push_back(Integer ? (double)ReadMemberElementAsInteger(Kind, Element)
                                 : ReadMemberElementAsReal(Kind, Element));
    }
    return Values;
}

inline data_type_definition const *LayoutMember(vertex_data const *Data, char const *Name)
{
    for (data_type_definition const *Member = Data->Vertices.Type; Member->Type != EndMember; ++Member) {
        if (std::string(Member->Name) == Name) return Member;
    }
    return nullptr;
}

// A point through a row-vector matrix of 16 floats.
inline void TransformPoint(real32 const *M, double const *P, double *Result)
{
    for (int A = 0; A < 3; ++A) Result[A] = P[0] * M[A] + P[1] * M[4 + A] + P[2] * M[8 + A] + M[12 + A];
}

inline fbx_test_node MeshNode(char const *Name, int32_t Parent, int32_t Mesh)
{
    fbx_test_node Node;
    Node.Name = Name;
    Node.Parent = Parent;
    Node.Kind = "Mesh";
    Node.Mesh = Mesh;
    return Node;
}
