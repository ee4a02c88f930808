// The exporter core driven by a small tool of the test's own, through the
// operations table alone: the core must not need anything of FBX.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "exporter/fbx_tessel_export_operations.h"
#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "format/tessel_string_table.h"
#include "platform/tessel_platform.h"

namespace {

// A chain of three joints, each one unit along its parent's x axis and
// turned 90 degrees about z; the middle one is scaled by 2.
struct chain_tool
{
    tool_interface Interface;
    tool_node *Nodes[3];
    int32 NameRequests;
};

char const *const JointNames[3] = {"Shoulder", "Elbow", "Wrist"};

chain_tool *AsChain(tool_interface *Tool)
{
    return (chain_tool *)Tool;
}

int32 IndexOf(tool_interface *Tool, tool_node *Node)
{
    for (int32 Index = 0; Index < 3; ++Index)
        if (AsChain(Tool)->Nodes[Index] == Node) return Index;
    return -1;
}

tool_node_graph *BuildChainGraph(tool_interface *Tool)
{
    tool_node_graph *Graph = NewToolNodeGraph();
    for (int32 Index = 0; Index < 3; ++Index) {
        AsChain(Tool)->Nodes[Index] = NewToolNode(Graph);
        if (Index > 0) MergeToolModels(Graph, AsChain(Tool)->Nodes[0]->Model, AsChain(Tool)->Nodes[Index]->Model);
    }
    return Graph;
}

void ReleaseChainGraph(tool_interface *, tool_node_graph *Graph)
{
    FreeToolNodeGraph(Graph);
}

char const *ChainNodeName(tool_interface *Tool, tool_node *Node, string_table *Strings)
{
    ++AsChain(Tool)->NameRequests;
    char const *Name = JointNames[IndexOf(Tool, Node)];
    return Strings ? MapString(Strings, Name) : Name;
}

tool_node *ChainNodeParent(tool_interface *Tool, tool_node *Node)
{
    int32 Index = IndexOf(Tool, Node);
    return Index > 0 ? AsChain(Tool)->Nodes[Index - 1] : nullptr;
}

int32 ChainNodeDepth(tool_interface *Tool, tool_node *Node)
{
    return IndexOf(Tool, Node);
}

void ChainNodeTransform(tool_interface *Tool, tool_node *Node, real32 *LocalPosition, real32 *LocalOrientation,
                        real32 *LocalScaleShear, real32 *, real32 *, real32 *)
{
    int32 Index = IndexOf(Tool, Node);
    real32 const Half = std::sqrt(0.5f);
    real32 const Position[3] = {Index > 0 ? 1.0f : 0.0f, 0, 0};
    real32 const Orientation[4] = {0, 0, Half, Half};
    real32 const Scale = Index == 1 ? 2.0f : 1.0f;
    memcpy(LocalPosition, Position, sizeof(Position));
    memcpy(LocalOrientation, Orientation, sizeof(Orientation));
    for (int32 Element = 0; Element < 9; ++Element) LocalScaleShear[Element] = Element % 4 == 0 ? Scale : 0.0f;
}

tool_operations MakeChainOperations()
{
    tool_operations Operations = {};
    Operations.BuildSceneGraph = BuildChainGraph;
    Operations.ReleaseSceneGraph = ReleaseChainGraph;
    Operations.GetNodeName = ChainNodeName;
    Operations.GetNodeParent = ChainNodeParent;
    Operations.GetNodeDepth = ChainNodeDepth;
    Operations.SampleNodeTransform = ChainNodeTransform;
    return Operations;
}

std::string TemporaryOutput(char const *Name)
{
    return std::string(GetTemporaryDirectory()) + "/" + Name + std::to_string(GetProcessIdentifier()) + ".ts2";
}

} // namespace

TEST(ToolInterface, CoreExportsASceneOfAToolOfItsOwn)
{
    static tool_operations const Operations = MakeChainOperations();
    chain_tool Tool = {};
    Tool.Interface.Operations = &Operations;

    std::string Output = TemporaryOutput("chain_tool_");
    export_options Options = {};
    ASSERT_TRUE(RunExport(&Tool.Interface, Output.c_str(), &Options, nullptr));
    EXPECT_GT(Tool.NameRequests, 0);

    loaded_file *File = LoadFileFromDisk(Output.c_str());
    ASSERT_NE(File, nullptr);
    file_info const *Info = (file_info const *)GetLoadedFileRootObject(*File, nullptr);
    ASSERT_NE(Info, nullptr);
    ASSERT_EQ(Info->SkeletonCount, 1);
    skeleton const *Skeleton = Info->Skeletons[0];
    ASSERT_EQ(Skeleton->BoneCount, 3);
    for (int32 Index = 0; Index < 3; ++Index) {
        EXPECT_STREQ(Skeleton->Bones[Index].Name, JointNames[Index]);
        EXPECT_EQ(Skeleton->Bones[Index].ParentIndex, Index - 1);
    }
    // The locals arrive as the tool gave them.
    transform const &Elbow = Skeleton->Bones[1].Transform;
    EXPECT_FLOAT_EQ(Elbow.Position[0], 1.0f);
    EXPECT_NEAR(Elbow.Orientation[2], std::sqrt(0.5f), 1e-6f);
    EXPECT_FLOAT_EQ(Elbow.ScaleShear[1][1], 2.0f);
    FreeLoadedFile(File);
    remove(Output.c_str());
}

TEST(ToolInterface, MissingRowsAnswerNone)
{
    tool_operations const Empty = {};
    tool_interface Tool = {&Empty};
    EXPECT_EQ(BuildSceneGraph(&Tool), nullptr);
    EXPECT_EQ(GetNodeName(&Tool, nullptr, nullptr), nullptr);
    EXPECT_EQ(GetAnimationFrameCount(&Tool, nullptr), 0);
    EXPECT_EQ(GetMeshVertexCount(nullptr), 0);
    real32 Position[3] = {7, 7, 7};
    GetVertexPosition(nullptr, 0, Position);
    EXPECT_EQ(Position[0], 7);

    // A tool without a scene graph gives no export and no file.
    std::string Output = TemporaryOutput("empty_tool_");
    export_options Options = {};
    EXPECT_FALSE(RunExport(&Tool, Output.c_str(), &Options, nullptr));
    FILE *Written = fopen(Output.c_str(), "rb");
    EXPECT_EQ(Written, nullptr);
    if (Written) fclose(Written);
}
