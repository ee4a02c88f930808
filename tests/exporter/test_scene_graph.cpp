#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_skin.h"
#include "foundation/tessel_memory.h"
#include "support/fbx_test_writer.h"
#include "support/test_log_capture.h"

using namespace fbx_tool;

namespace {

std::vector<std::string> NodeNames(fbx_tool_interface *Tool, tool_model *Model)
{
    std::vector<std::string> Names;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        char const *Name = GetNodeName(Tool, Node, nullptr);
        Names.push_back(Name ? Name : "");
    }
    return Names;
}

struct built_graph
{
    fbx_tool_interface *Tool = nullptr;
    tool_node_graph *Graph = nullptr;
    ~built_graph()
    {
        if (Tool) {
            ReleaseSceneGraph(Tool, Graph);
            FreeAnimationDefs(Tool->AnimationDefs, Tool->AnimationDefCount);
            DestroyToolInterface(Tool);
        }
    }
};

void BuildFrom(built_graph &Built, fbx_test_scene const &Scene, int32_t Version, animation_def *Defs = nullptr,
               int32 DefCount = 0)
{
    std::string Path =
        SaveFbxTestFile("graph_" + std::to_string(Version) + ".fbx", WriteFbxTestScene(Scene, FbxTestBinary(Version)));
    Built.Tool = CreateToolInterface(Path.c_str());
    ASSERT_NE(Built.Tool->FBX, nullptr);
    Built.Tool->AnimationDefs = Defs;
    Built.Tool->AnimationDefCount = DefCount;
    Built.Graph = BuildSceneGraph(Built.Tool);
    ASSERT_NE(Built.Graph, nullptr);
    remove(Path.c_str());
}

} // namespace

TEST(SceneGraph, SkinnedArmIsOneModelWithoutTheMeshNode)
{
    for (int32_t Version : {6100, 7400}) {
        SCOPED_TRACE(Version);
        int32 Before = LiveBlocks();
        {
            built_graph Built;
            fbx_test_scene Scene = MakeFbxTestArmScene();
            // Clusters in the file in the reverse of the bones' order.
            std::swap(Scene.Meshes[0].Clusters[0], Scene.Meshes[0].Clusters[1]);
            BuildFrom(Built, Scene, Version);
            tool_node_graph *Graph = Built.Graph;
            ASSERT_EQ(Graph->ModelCount, 1);
            EXPECT_EQ(Graph->MeshCount, 1);
            EXPECT_EQ(Graph->NodeCount, 3); // "Arm" is no bone
            tool_model *Model = FirstModel(Graph);
            EXPECT_EQ(Model->MeshCount, 1);
            std::vector<std::string> Names = NodeNames(Built.Tool, Model);
            std::sort(Names.begin(), Names.end());
            EXPECT_EQ(Names, (std::vector<std::string>{"Lower", "Root", "Upper"}));
            EXPECT_STREQ(GetToolModelName(Built.Tool, Model, nullptr), "Root");

            // The mesh was triangulated and its clusters follow the hierarchy.
            KFbxMesh *Mesh = (KFbxMesh *)Graph->FirstMesh->ToolMesh;
            EXPECT_TRUE(Mesh->IsTriangleMesh());
            KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
            ASSERT_NE(Skin, nullptr);
            ASSERT_EQ(Skin->GetClusterCount(), 2);
            EXPECT_STREQ(Skin->GetCluster(0)->GetLink()->GetName(), "Upper");
            EXPECT_STREQ(Skin->GetCluster(1)->GetLink()->GetName(), "Lower");

            // One animation per take of non-zero length, named after it.
            ASSERT_GE(Graph->AnimationCount, 1);
            for (tool_animation *Animation = Graph->FirstAnimation; Animation; Animation = Animation->Next) {
                EXPECT_FALSE(Animation->HasRange);
                EXPECT_NE(GetAnimationName(Built.Tool, Animation, nullptr), nullptr);
            }
        }
        EXPECT_EQ(LiveBlocks(), Before);
    }
}

TEST(SceneGraph, AnimationDefsGiveEveryTakeEveryRange)
{
    built_graph Built;
    fbx_test_scene Scene = MakeFbxTestArmScene();
    int32 TakeCount = 0;
    for (fbx_test_take const &Take : Scene.Takes) TakeCount += Take.Stop != Take.Start;
    animation_def *Defs = (animation_def *)TesselAllocate(2 * sizeof(animation_def));
    char Walk[] = "walk", Run[] = "run";
    Defs[0] = {(char *)TesselAllocate(5), 0, 10};
    Defs[1] = {(char *)TesselAllocate(4), 5, 20};
    memcpy(Defs[0].Name, Walk, 5);
    memcpy(Defs[1].Name, Run, 4);
    BuildFrom(Built, Scene, 7400, Defs, 2);
    tool_node_graph *Graph = Built.Graph;
    EXPECT_EQ(Graph->AnimationCount, 2 * TakeCount);
    // Newest first: the last range of the last take leads.
    tool_animation *Last = Graph->FirstAnimation;
    ASSERT_NE(Last, nullptr);
    EXPECT_TRUE(Last->HasRange);
    EXPECT_STREQ(GetAnimationName(Built.Tool, Last, nullptr), "run");
    EXPECT_EQ(Last->Start, FbxFrameTicks(5));
    EXPECT_EQ(Last->End, FbxFrameTicks(20));
}

TEST(SceneGraph, MergeKeepsTheHeavierModelAndDeleteUnlinks)
{
    int32 Before = LiveBlocks();
    tool_node_graph *Graph = NewToolNodeGraph();
    tool_node *A = NewToolNode(Graph);
    tool_node *B = NewToolNode(Graph);
    tool_mesh *M = NewToolMesh(Graph);
    tool_node *C = NewToolNode(Graph);
    tool_model *ModelA = A->Model;

    MergeToolModels(Graph, A->Model, A->Model); // itself: nothing happens
    EXPECT_EQ(Graph->ModelCount, 4);
    MergeToolModels(Graph, A->Model, B->Model); // equal weights: the first stays
    EXPECT_EQ(B->Model, ModelA);
    EXPECT_EQ(ModelA->NodeCount, 2);
    MergeToolModels(Graph, M->Model, A->Model); // the heavier one stays
    EXPECT_EQ(M->Model, ModelA);
    EXPECT_EQ(ModelA->MeshCount, 1);
    EXPECT_EQ(Graph->ModelCount, 2);

    DeleteToolModel(Graph, C->Model);
    EXPECT_EQ(Graph->ModelCount, 1);
    EXPECT_EQ(Graph->NodeCount, 2);
    EXPECT_EQ(Graph->FirstNode, B); // C was the head of the list
    EXPECT_EQ(FirstModel(Graph), ModelA);
    FreeToolNodeGraph(Graph);
    EXPECT_EQ(LiveBlocks(), Before);
}

TEST(SceneGraph, ModelsRunNewestFirst)
{
    tool_node_graph *Graph = NewToolNodeGraph();
    tool_node *First = NewToolNode(Graph);
    tool_mesh *Second = NewToolMesh(Graph);
    tool_node *Third = NewToolNode(Graph);
    EXPECT_EQ(First->BoneIndex, -1);
    std::vector<tool_model *> Order;
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model)) {
        Order.push_back(Model);
    }
    EXPECT_EQ(Order, (std::vector<tool_model *>{Third->Model, Second->Model, First->Model}));
    FreeToolNodeGraph(Graph);
}
