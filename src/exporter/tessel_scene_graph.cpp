#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_tunneling.h"

template <typename T>
static T *AllocateZeroed()
{
    T *Object = (T *)TesselAllocate(sizeof(T));
    if (Object) memset(Object, 0, sizeof(T));
    return Object;
}

tool_node_graph *NewToolNodeGraph()
{
    tool_node_graph *Graph = AllocateZeroed<tool_node_graph>();
    if (Graph) {
        Graph->ModelSentinel.Next = &Graph->ModelSentinel;
        Graph->ModelSentinel.Previous = &Graph->ModelSentinel;
    }
    return Graph;
}

// Links Model at the tail of the ring, just before the sentinel.
static tool_model *NewToolModel(tool_node_graph *Graph)
{
    tool_model *Model = AllocateZeroed<tool_model>();
    if (!Model) return 0;
    tool_model *Sentinel = &Graph->ModelSentinel;
    Model->Next = Sentinel;
    Model->Previous = Sentinel->Previous;
    Sentinel->Previous->Next = Model;
    Sentinel->Previous = Model;
    ++Graph->ModelCount;
    return Model;
}

tool_mesh *NewToolMesh(tool_node_graph *Graph)
{
    if (!Graph) return 0;
    tool_mesh *Mesh = AllocateZeroed<tool_mesh>();
    if (!Mesh) return 0;
    tool_model *Model = NewToolModel(Graph);
    if (!Model) {
        TesselFree(Mesh);
        return 0;
    }
    Mesh->Model = Model;
    Mesh->NextInModel = Model->FirstMesh;
    Model->FirstMesh = Mesh;
    ++Model->MeshCount;
    Mesh->NextInGraph = Graph->FirstMesh;
    Graph->FirstMesh = Mesh;
    ++Graph->MeshCount;
    return Mesh;
}

tool_node *NewToolNode(tool_node_graph *Graph)
{
    if (!Graph) return 0;
    tool_node *Node = AllocateZeroed<tool_node>();
    if (!Node) return 0;
    tool_model *Model = NewToolModel(Graph);
    if (!Model) {
        TesselFree(Node);
        return 0;
    }
    Node->BoneIndex = -1;
    Node->Model = Model;
    Node->NextInModel = Model->FirstNode;
    Model->FirstNode = Node;
    ++Model->NodeCount;
    Node->NextInGraph = Graph->FirstNode;
    Graph->FirstNode = Node;
    ++Graph->NodeCount;
    return Node;
}

tool_animation *NewToolAnimation(tool_node_graph *Graph)
{
    if (!Graph) return 0;
    tool_animation *Animation = AllocateZeroed<tool_animation>();
    if (!Animation) return 0;
    Animation->Next = Graph->FirstAnimation;
    Graph->FirstAnimation = Animation;
    ++Graph->AnimationCount;
    return Animation;
}

static void UnlinkToolModel(tool_node_graph *Graph, tool_model *Model)
{
    Model->Previous->Next = Model->Next;
    Model->Next->Previous = Model->Previous;
    TesselFree(Model);
    --Graph->ModelCount;
}

// Moves every object of From's list to the head of To's list, one by one, so
// that their order reverses.
template <typename T>
static void MoveToolObjects(T *&FromFirst, int32 &FromCount, T *&ToFirst, int32 &ToCount, tool_model *To)
{
    while (FromFirst) {
        T *Object = FromFirst;
        FromFirst = Object->NextInModel;
        Object->Model = To;
        Object->NextInModel = ToFirst;
        ToFirst = Object;
        ++ToCount;
    }
    FromCount = 0;
}

void MergeToolModels(tool_node_graph *Graph, tool_model *First, tool_model *Second)
{
    CheckPointer(Graph, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(First, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Second, LogCategory_Exporter, TESSEL_NOTHING);
    if (First == Second) return;
    tool_model *Survivor = First;
    tool_model *Other = Second;
    int32 FirstWeight = First->MeshCount + First->NodeCount + First->MaterialCount;
    int32 SecondWeight = Second->MeshCount + Second->NodeCount + Second->MaterialCount;
    if (SecondWeight > FirstWeight) {
        Survivor = Second;
        Other = First;
    }
    MoveToolObjects(Other->FirstMesh, Other->MeshCount, Survivor->FirstMesh, Survivor->MeshCount, Survivor);
    MoveToolObjects(Other->FirstNode, Other->NodeCount, Survivor->FirstNode, Survivor->NodeCount, Survivor);
    MoveToolObjects(Other->FirstTrack, Other->TrackCount, Survivor->FirstTrack, Survivor->TrackCount, Survivor);
    UnlinkToolModel(Graph, Other);
}

// Takes Object out of the graph-wide list that starts at First.
template <typename T>
static void UnlinkFromGraph(T *&First, T *Object)
{
    for (T *Previous = First; Previous; Previous = Previous->NextInGraph) {
        if (Previous->NextInGraph == Object) {
            Previous->NextInGraph = Object->NextInGraph;
            return;
        }
    }
    if (First == Object) First = Object->NextInGraph;
}

void DeleteToolModel(tool_node_graph *Graph, tool_model *Model)
{
    CheckPointer(Graph, LogCategory_Exporter, TESSEL_NOTHING);
    CheckPointer(Model, LogCategory_Exporter, TESSEL_NOTHING);
    if (tool_node *Node = Model->FirstNode) {
        UnlinkFromGraph(Graph->FirstNode, Node);
        TesselFree(Node);
        --Graph->NodeCount;
    }
    if (tool_track *Track = Model->FirstTrack) {
        UnlinkFromGraph(Graph->FirstTrack, Track);
        TesselFree(Track);
        --Graph->TrackCount;
    }
    UnlinkToolModel(Graph, Model);
}

template <typename T>
static void FreeGraphList(T *First)
{
    while (First) {
        T *Next = First->NextInGraph;
        TesselFree(First);
        First = Next;
    }
}

void FreeToolNodeGraph(tool_node_graph *Graph)
{
    if (!Graph) return;
    FreeGraphList(Graph->FirstMesh);
    FreeGraphList(Graph->FirstNode);
    FreeGraphList(Graph->FirstTrack);
    FreeGraphList(Graph->FirstMaterial);
    FreeGraphList(Graph->FirstTexture);
    for (tool_animation *Animation = Graph->FirstAnimation; Animation;) {
        tool_animation *Next = Animation->Next;
        TesselFree(Animation);
        Animation = Next;
    }
    tool_model *Model = Graph->ModelSentinel.Next;
    while (Model != &Graph->ModelSentinel) {
        tool_model *Next = Model->Next;
        TesselFree(Model);
        Model = Next;
    }
    TesselFree(Graph);
}

char const *GetToolModelName(tool_interface *Tool, tool_model *Model, string_table *Strings)
{
    if (!Model) return 0;
    tool_node *Shallowest = 0;
    int32 SmallestDepth = 65536;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
        int32 Depth = GetNodeDepth(Tool, Node);
        if (Depth <= SmallestDepth) {
            SmallestDepth = Depth;
            Shallowest = Node;
        }
    }
    char const *Name = Shallowest ? GetNodeName(Tool, Shallowest, Strings) : 0;
    tool_material *LastMaterial = 0;
    for (tool_material *Material = Model->FirstMaterial; Material; Material = Material->NextInModel) {
        LastMaterial = Material;
    }
    if (LastMaterial) Name = GetMaterialName(Tool, LastMaterial, Strings);
    return Name;
}

void AssignBoneIndices(tool_model *Model)
{
    if (!Model) return;
    int32 Index = 0;
    for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) Node->BoneIndex = Index++;
}

// A child node of Parent with a copy of the nearest requester. The FBX tool
// stores no settings of its own, so there is never a block to apply.
static settings_node *NewObjectSettings(settings_pools &Pools, settings_node *Parent, char const *Name,
                                        requester *Requester)
{
    settings_node *Node = NewSettingsNode(Pools, Parent, Name, Requester);
    if (Node) AttachSettings(Node, 0, 0);
    return Node;
}

// The category node under Root with the given name.
static settings_node *FindCategory(settings_node *Root, char const *Name)
{
    for (settings_node *Child = Root->FirstChild; Child; Child = Child->NextSibling) {
        if (StringsAreExactlyEqual(Child->Name, Name)) return Child;
    }
    return 0;
}

settings_node *BuildSettingsTree(string_table *Strings, tool_node_graph *Graph, tool_interface *Tool,
                                 settings_pools &Pools)
{
    CheckPointer(Graph, LogCategory_Exporter, 0);
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    if (!Root) return 0;
    settings_node *Textures = FindCategory(Root, "Textures");
    settings_node *Materials = FindCategory(Root, "Materials");
    settings_node *Meshes = FindCategory(Root, "Meshes");
    settings_node *Models = FindCategory(Root, "Models");
    settings_node *Animations = FindCategory(Root, "Animations");
    if (!Textures || !Materials || !Meshes || !Models || !Animations) return Root;

    for (tool_texture *Texture = Graph->FirstTexture; Texture; Texture = Texture->NextInGraph) {
        Texture->Settings = NewObjectSettings(Pools, Textures, GetTextureName(Tool, Texture, Strings), 0);
    }
    for (tool_material *Material = Graph->FirstMaterial; Material; Material = Material->NextInGraph) {
        Material->Settings = NewObjectSettings(Pools, Materials, GetMaterialName(Tool, Material, Strings), 0);
    }
    for (tool_mesh *Mesh = Graph->FirstMesh; Mesh; Mesh = Mesh->NextInGraph) {
        Mesh->Settings = NewObjectSettings(Pools, Meshes, GetMeshName(Tool, Mesh, Strings, false), 0);
    }
    for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model)) {
        if (!Model->FirstNode) continue;
        settings_node *ModelNode = NewObjectSettings(Pools, Models, GetToolModelName(Tool, Model, Strings), 0);
        if (!ModelNode) continue;
        Model->Settings = ModelNode;
        SetChildGroupLabel(ModelNode, "Bones");
        for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
            Node->Settings =
                NewObjectSettings(Pools, ModelNode, GetNodeName(Tool, Node, Strings), BuildBoneSettings(Pools));
        }
    }
    // Track settings are kept once per model and node, so the animation
    // visited last (the oldest) is the one they point into.
    for (tool_animation *Animation = Graph->FirstAnimation; Animation; Animation = Animation->Next) {
        settings_node *AnimationNode =
            NewObjectSettings(Pools, Animations, GetAnimationName(Tool, Animation, Strings), 0);
        if (!AnimationNode) continue;
        Animation->Settings = AnimationNode;
        SetChildGroupLabel(AnimationNode, "Track Groups");
        for (tool_model *Model = FirstModel(Graph); !IsModelEnd(Graph, Model); Model = NextModel(Model)) {
            settings_node *TrackNode =
                NewObjectSettings(Pools, AnimationNode, GetToolModelName(Tool, Model, Strings), 0);
            if (!TrackNode) continue;
            Model->TrackSettings = TrackNode;
            if (!Model->FirstNode) continue;
            SetChildGroupLabel(TrackNode, "Bones");
            for (tool_node *Node = Model->FirstNode; Node; Node = Node->NextInModel) {
                Node->TrackSettings = NewObjectSettings(Pools, TrackNode, GetNodeName(Tool, Node, Strings),
                                                        BuildBoneAnimationSettings(Pools));
            }
        }
    }
    return Root;
}
