// Bridge to the FBX scene model: loading a file into a scene, the writer
// registration, and the scene-wide values the tool interface reads.
#include "fbx_tool/fbx_tessel_scene_loading.h"

#include <cstring>

#include "fbx_tool/fbx_tessel.h"
#include "fbx_tool/fbx_tessel_node_names.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_graph.h"
#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_scene_memory.h"
#include "fbx/fbx_tessel_skin.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

// ---------------------------------------------------------------------------
// The writer registration. The writer only puts the library's two output
// formats on the manager's format list; the output never goes through it.

class FBXTesselWriter : public KFbxWriter
{
public:
    bool FileCreate(char const *FileName) override { return FileName != nullptr; }
    bool FileClose() override { return false; }
    bool IsFileOpen() override { return false; }
    void *GetWriteOptions() override { return nullptr; }
    bool Write(KFbxScene *Scene) override { return false; }
    bool PreprocessScene(KFbxScene &Scene) override { return false; }
    bool PostprocessScene(KFbxScene &Scene) override { return false; }
    void PluginWriteParameters(void *Parameters) override {}
};

static KFbxWriter *CreateTesselWriter(KFbxSdkManager &Manager, int32 FormatId)
{
    return FbxNew(FBXTesselWriter);
}

static char const *const *DescribeTesselWriter(int32 Selector)
{
    static char const *const Extensions[] = {"TS2", "CLWXML", nullptr};
    static char const *const Descriptions[] = {"Tessel Runtime File (*.TS2)", "Calloway Asset File (*.clwxml)",
                                               nullptr};
    static char const *const Versions[] = {"", "", nullptr};
    switch (Selector) {
    case 0: return Extensions;
    case 1: return Descriptions;
    case 2: return Versions;
    default: return nullptr;
    }
}

static void SetTesselWriterIOSettings(void *Settings) {}

bool RegisterFBXWriter(KFbxSdkManager *Manager)
{
    if (!Manager || !Manager->GetIOPluginRegistry()) return false;
    int32 FirstFormatId = 0;
    int32 FormatCount = 0;
    if (!Manager->GetIOPluginRegistry()->RegisterWriter(CreateTesselWriter, DescribeTesselWriter, FirstFormatId,
                                                        FormatCount, SetTesselWriterIOSettings)) {
        return false;
    }
    return FormatCount >= 1;
}

// ---------------------------------------------------------------------------
// Loading.

// Reads the file at Path into Scene. The importer stays with the manager,
// which releases it.
static bool ImportSceneFile(KFbxSdkManager *Manager, KFbxScene *Scene, char const *Path)
{
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    if (!Importer) return false;
    if (!Importer->Initialize(Path, -1) || !Importer->Import(Scene)) {
        TesselWarning(LogCategory_FBX, "%s: %s", Path, Importer->GetLastErrorString());
        return false;
    }
    return true;
}

bool ImportFBXScene(fbx_scene_context *Context, char const *Path)
{
    Context->Manager = KFbxSdkManager::Create();
    if (!Context->Manager) return false;
    Context->Scene = KFbxScene::Create(Context->Manager, "");
    if (!Context->Scene) return false;
    if (!RegisterFBXWriter(Context->Manager)) return false;
    if (!ImportSceneFile(Context->Manager, Context->Scene, Path)) return false;
    return MakeNodeNamesUnique(Context->Scene);
}

void ReleaseFBXScene(fbx_scene_context *Context)
{
    if (Context->Scene) Context->Scene->Destroy();
    Context->Scene = 0;
    if (Context->Manager) Context->Manager->Destroy();
    Context->Manager = 0;
}

// ---------------------------------------------------------------------------
// Scene-wide values.

// ---------------------------------------------------------------------------
// The scene graph of an FBX scene.

// The value of a map entry; a null value counts as absent.
static void *FindMapped(pointer_hash *Map, void const *Key)
{
    void *Value = 0;
    GetHashedPointerData(Map, Key, &Value);
    return Value;
}

static void SetMapped(pointer_hash *Map, void const *Key, void *Value)
{
    if (!SetHashedPointerData(Map, Key, Value)) AddPointerToHash(Map, Key, Value);
}

// Gives Node a triangulated copy of its mesh. The old mesh stays alive (the
// manager releases it), since other nodes may still show it: each of them
// triangulates it again when its turn comes.
static KFbxMesh *TriangulateNodeMesh(KFbxNode *Node)
{
    KFbxMesh *Old = Node->GetMesh();
    KFbxMesh *Mesh = Old->CreateTriangulated();
    if (!Mesh) return Old;
    Node->ReplaceNodeAttribute(Old, Mesh);
    if (KFbxScene *Scene = Node->GetScene()) Scene->AddMember(Mesh);
    return Node->GetMesh();
}

static void RegisterNode(fbx_tool_interface *Tool, KFbxNode *Node, tool_node_graph *Graph)
{
    KFbxMesh *Mesh = Node->GetMesh();
    if (Mesh && !FindMapped(Tool->MeshMap, Mesh)) {
        if (tool_mesh *ToolMesh = NewToolMesh(Graph)) {
            // The scene keeps the triangulated mesh for good.
            if (!Mesh->IsTriangleMesh()) Mesh = TriangulateNodeMesh(Node);
            ToolMesh->ToolMesh = Mesh;
            SetMapped(Tool->MeshMap, Mesh, ToolMesh);
        }
    }
    if (!FindMapped(Tool->NodeMap, Node)) {
        if (tool_node *ToolNode = NewToolNode(Graph)) {
            ToolNode->ToolNode = Node;
            SetMapped(Tool->NodeMap, Node, ToolNode);
        }
    }
}

// Every node below Parent, depth first, parents before their children.
static void RegisterNodes(fbx_tool_interface *Tool, KFbxNode *Parent, tool_node_graph *Graph)
{
    int32 ChildCount = Parent->GetChildCount(false);
    for (int32 Index = 0; Index < ChildCount; ++Index) {
        KFbxNode *Child = Parent->GetChild(Index);
        if (!Child) continue;
        RegisterNode(Tool, Child, Graph);
        RegisterNodes(Tool, Child, Graph);
    }
}

struct cluster_order
{
    KFbxCluster *Cluster;
    int64 VisitNumber;
};

// Visit numbers, in pre-order, of every node below and including Top.
static void NumberNodes(KFbxNode *Top, pointer_hash *Numbers)
{
    int32 Capacity = 64;
    int32 Count = 0;
    KFbxNode **Stack = TesselAllocateArray(KFbxNode *, Capacity);
    if (!Stack) return;
    intaddrx NextNumber = 0;
    Stack[Count++] = Top;
    while (Count > 0) {
        KFbxNode *Node = Stack[--Count];
        AddPointerToHash(Numbers, Node, (void *)(NextNumber++ + 1));
        // Children go on in reverse so that the first is visited first.
        int32 ChildCount = Node->GetChildCount(false);
        for (int32 Index = ChildCount - 1; Index >= 0; --Index) {
            KFbxNode *Child = Node->GetChild(Index);
            if (!Child) continue;
            if (Count == Capacity) {
                KFbxNode **Larger = TesselAllocateArray(KFbxNode *, Capacity * 2);
                if (!Larger) {
                    TesselFree(Stack);
                    return;
                }
                memcpy(Larger, Stack, sizeof(KFbxNode *) * (size_t)Count);
                TesselFree(Stack);
                Stack = Larger;
                Capacity *= 2;
            }
            Stack[Count++] = Child;
        }
    }
    TesselFree(Stack);
}

// Puts the clusters of Skin in depth-first order of their bones in the
// scene, so that the order of bone bindings does not depend on the file's.
// Clusters without a link, or with one outside the tree, go last.
static void SortClustersByHierarchy(KFbxSkin *Skin)
{
    int32 ClusterCount = Skin->GetClusterCount();
    KFbxNode *Top = 0;
    for (int32 Index = 0; Index < ClusterCount && !Top; ++Index) Top = Skin->GetCluster(Index)->GetLink();
    if (!Top) return;
    while (Top->GetParent()) Top = Top->GetParent();

    pointer_hash *Numbers = NewPointerHash();
    cluster_order *Order = TesselAllocateArray(cluster_order, ClusterCount);
    if (!Numbers || !Order) {
        DeletePointerHash(Numbers);
        if (Order) TesselFree(Order);
        return;
    }
    NumberNodes(Top, Numbers);

    int32 Count = 0;
    while (Skin->GetClusterCount() > 0 && Count < ClusterCount) {
        KFbxCluster *Cluster = Skin->GetCluster(0);
        Skin->RemoveCluster(Cluster);
        intaddrx Number = (intaddrx)FindMapped(Numbers, Cluster->GetLink());
        Order[Count].Cluster = Cluster;
        Order[Count].VisitNumber = Number ? Number - 1 : INT64_MAX;
        ++Count;
    }
    // Insertion sort: stable, so clusters of the same bone keep their order.
    for (int32 Index = 1; Index < Count; ++Index) {
        cluster_order Entry = Order[Index];
        int32 Slot = Index;
        while (Slot > 0 && Order[Slot - 1].VisitNumber > Entry.VisitNumber) {
            Order[Slot] = Order[Slot - 1];
            --Slot;
        }
        Order[Slot] = Entry;
    }
    for (int32 Index = 0; Index < Count; ++Index) Skin->AddCluster(Order[Index].Cluster);
    TesselFree(Order);
    DeletePointerHash(Numbers);
}

// Does some control point have no weight in any cluster of the skin?
static bool HasUnweightedPoints(KFbxMesh *Mesh, KFbxSkin *Skin)
{
    int32 Count = Mesh->GetControlPointsCount();
    if (Count <= 0) return false;
    real64 *Sums = TesselAllocateArray(real64, Count);
    if (!Sums) return false;
    for (int32 Point = 0; Point < Count; ++Point) Sums[Point] = 0.0;
    for (int32 Index = 0; Index < Skin->GetClusterCount(); ++Index) {
        KFbxCluster *Cluster = Skin->GetCluster(Index);
        for (int32 Entry = 0; Entry < Cluster->GetControlPointIndicesCount(); ++Entry) {
            int32 Point = Cluster->GetControlPointIndices()[Entry];
            if (Point >= 0 && Point < Count) Sums[Point] += Cluster->GetControlPointWeights()[Entry];
        }
    }
    bool Found = false;
    for (int32 Point = 0; Point < Count && !Found; ++Point) Found = !(Sums[Point] > 0.0);
    TesselFree(Sums);
    return Found;
}

static void JoinMeshesWithTheirNodes(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
    for (tool_mesh *ToolMesh = Graph->FirstMesh; ToolMesh; ToolMesh = ToolMesh->NextInGraph) {
        KFbxMesh *Mesh = (KFbxMesh *)ToolMesh->ToolMesh;
        KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
        tool_node *MeshNode = (tool_node *)FindMapped(Tool->NodeMap, Mesh->GetNode());
        // A skin without clusters binds nothing: the mesh stays with its node.
        if (Skin && Skin->GetClusterCount() > 0) {
            SortClustersByHierarchy(Skin);
            for (int32 Index = 0; Index < Skin->GetClusterCount(); ++Index) {
                KFbxNode *Link = Skin->GetCluster(Index)->GetLink();
                tool_node *Bone = Link ? (tool_node *)FindMapped(Tool->NodeMap, Link) : 0;
                if (Bone) MergeToolModels(Graph, ToolMesh->Model, Bone->Model);
            }
            // A skinned mesh's own node that nothing else joined is no bone,
            // unless points that no cluster weighs follow it.
            if (MeshNode && MeshNode->Model->MeshCount == 0 && MeshNode->Model->NodeCount == 1) {
                if (HasUnweightedPoints(Mesh, Skin)) {
                    MergeToolModels(Graph, ToolMesh->Model, MeshNode->Model);
                } else {
                    SetMapped(Tool->NodeMap, Mesh->GetNode(), 0);
                    DeleteToolModel(Graph, MeshNode->Model);
                }
            }
        } else if (MeshNode) {
            MergeToolModels(Graph, ToolMesh->Model, MeshNode->Model);
        }
    }
}

// One animation per take of non-zero length, or one per AnimationDef range
// and take when there are AnimationDefs.
static void AddAnimations(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
    KFbxScene *Scene = Tool->FBX->Scene;
    int32 TimeMode = Scene->GetGlobalSettings().GetFrameTimeMode();
    real64 CustomRate = Scene->GetGlobalSettings().GetFrameCustomRate();
    KStringArray TakeNames;
    Scene->FillTakeNameArray(TakeNames);
    for (int32 TakeIndex = 0; TakeIndex < TakeNames.GetCount(); ++TakeIndex) {
        KFbxTakeInfo *Take = Scene->GetTakeInfo(TakeNames[TakeIndex]);
        if (!Take || Take->mLocalTimeSpan.GetDuration().Get() == 0) continue;
        if (Tool->AnimationDefCount) {
            for (int32 DefIndex = 0; DefIndex < Tool->AnimationDefCount; ++DefIndex) {
                animation_def const &Def = Tool->AnimationDefs[DefIndex];
                tool_animation *Animation = NewToolAnimation(Graph);
                if (!Animation) return;
                Animation->ToolAnimation = Take;
                Animation->ToolScene = Scene;
                Animation->HasRange = true;
                Animation->Name = Def.Name;
                // A frame becomes a time through the time code's fields, which
                // count half frames.
                KTime Start, End;
                Start.SetTime(0, 0, 0, 0, 2 * Def.StartFrame, 0, TimeMode, CustomRate);
                End.SetTime(0, 0, 0, 0, 2 * Def.EndFrame, 0, TimeMode, CustomRate);
                Animation->Start = Start.Get();
                Animation->End = End.Get();
            }
        } else {
            tool_animation *Animation = NewToolAnimation(Graph);
            if (!Animation) return;
            Animation->ToolAnimation = Take;
            Animation->ToolScene = Scene;
        }
    }
}

void FillSceneGraph(fbx_tool_interface *Tool, tool_node_graph *Graph)
{
    if (!Tool->FBX->Scene || !Tool->FBX->Scene->GetRootNode()) return;
    RegisterNodes(Tool, Tool->FBX->Scene->GetRootNode(), Graph);
    for (tool_node *Node = Graph->FirstNode; Node; Node = Node->NextInGraph) {
        tool_node *Parent = GetNodeParent(Tool, Node);
        if (Parent) MergeToolModels(Graph, Node->Model, Parent->Model);
    }
    JoinMeshesWithTheirNodes(Tool, Graph);
    AddAnimations(Tool, Graph);
}

bool GetFBXFileVersion(fbx_scene_context *Context, int32 *Major, int32 *Minor)
{
    int32 Revision = 0;
    KFbxSdkManager::GetFileFormatVersion(*Major, *Minor, Revision);
    return true;
}

bool GetFBXAxisSystem(fbx_scene_context *Context, fbx_axis_system *Axes)
{
    if (!Context || !Context->Scene) return false;
    KFbxGlobalSettings &Settings = Context->Scene->GetGlobalSettings();
    Axes->UpAxis = Settings.FindProperty("UpAxis").Get();
    Axes->UpSign = Settings.FindProperty("UpAxisSign").Get();
    Axes->FrontAxis = Settings.FindProperty("FrontAxis").Get();
    Axes->FrontSign = Settings.FindProperty("FrontAxisSign").Get();
    Axes->CoordAxis = Settings.FindProperty("CoordAxis").Get();
    Axes->CoordSign = Settings.FindProperty("CoordAxisSign").Get();
    Axes->UnitScaleFactor = Settings.GetSystemUnit().GetScaleFactor();
    return true;
}

void SetFBXCurrentTake(fbx_scene_context *Context, char const *TakeName)
{
    if (Context && Context->Scene) Context->Scene->SetCurrentTake(TakeName);
}

char const *GetFBXNodeName(void *Node)
{
    return Node ? ((KFbxNode *)Node)->GetName() : 0;
}

char const *GetFBXMeshNodeName(void *Mesh)
{
    KFbxNode *Node = Mesh ? ((KFbxMesh *)Mesh)->GetNode() : 0;
    return Node ? Node->GetName() : 0;
}

char const *GetFBXTakeName(void *TakeInfo)
{
    return TakeInfo ? ((KFbxTakeInfo *)TakeInfo)->GetName() : 0;
}

void *GetFBXNodeParent(void *Node)
{
    return Node ? ((KFbxNode *)Node)->GetParent() : 0;
}
