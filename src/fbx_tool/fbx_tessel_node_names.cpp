// Node names made unique. A runtime binds tracks and skins to bones by name,
// so two nodes of one name (a bone "Torso" and the mesh node "Torso" under
// another bone) would both take the first one's motion. Nodes that are bones
// (skeleton nodes and nodes a skin cluster links) keep their names first,
// then the others in depth-first order; a node whose name is taken becomes
// "Name.2" (or the next number that no node uses).
#include "fbx_tool/fbx_tessel_node_names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_scene_memory.h"
#include "fbx/fbx_tessel_skin.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_pointer_hash.h"

namespace {

struct named_node
{
    KFbxNode *Node;
    char const *Name; // the name as read
    char *NewName;    // the name it gets, or null to keep it
};

bool CollectNodes(KFbxNode *Parent, fbx_array<named_node> &Nodes)
{
    for (int32 Index = 0; Index < Parent->GetChildCount(); ++Index) {
        KFbxNode *Child = Parent->GetChild(Index);
        if (!Child) continue;
        named_node Entry = {Child, Child->GetName() ? Child->GetName() : "", nullptr};
        if (!Nodes.Add(Entry) || !CollectNodes(Child, Nodes)) return false;
    }
    return true;
}

bool IsBone(KFbxNode *Node, pointer_hash const *Linked)
{
    KFbxNodeAttribute *Attribute = Node->GetNodeAttribute();
    if (Attribute && Attribute->GetAttributeType() == FbxAttribute_Skeleton) return true;
    void *Found = 0;
    return GetHashedPointerData(Linked, Node, &Found);
}

void MarkLinkedNodes(fbx_array<named_node> const &Nodes, pointer_hash *Linked)
{
    for (int32 Index = 0; Index < Nodes.Count; ++Index) {
        KFbxMesh *Mesh = Nodes.Data[Index].Node->GetMesh();
        if (!Mesh) continue;
        for (int32 D = 0; D < Mesh->GetDeformerCount(FbxDeformer_Skin); ++D) {
            KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(D, FbxDeformer_Skin);
            for (int32 C = 0; Skin && C < Skin->GetClusterCount(); ++C) {
                KFbxCluster *Cluster = Skin->GetCluster(C);
                if (Cluster && Cluster->GetLink()) AddPointerToHash(Linked, Cluster->GetLink(), Cluster->GetLink());
            }
        }
    }
}

int CompareNames(void const *A, void const *B)
{
    return strcmp(*(char const *const *)A, *(char const *const *)B);
}

// Index of Name in the sorted list of names as read, or -1.
int32 FindName(fbx_array<char const *> const &Sorted, char const *Name)
{
    void const *Found = bsearch(&Name, Sorted.Data, (size_t)Sorted.Count, sizeof(char const *), CompareNames);
    return Found ? (int32)((char const *const *)Found - Sorted.Data) : -1;
}

} // namespace

bool MakeNodeNamesUnique(KFbxScene *Scene)
{
    if (!Scene || !Scene->GetRootNode()) return true;
    fbx_array<named_node> Nodes;
    if (!CollectNodes(Scene->GetRootNode(), Nodes)) return false;
    fbx_array<char const *> Sorted;
    if (!Sorted.Reserve(Nodes.Count)) return false;
    for (int32 Index = 0; Index < Nodes.Count; ++Index) Sorted.Add(Nodes.Data[Index].Name);
    if (Sorted.Count > 1) qsort(Sorted.Data, (size_t)Sorted.Count, sizeof(char const *), CompareNames);
    bool Repeated = false;
    for (int32 Index = 1; Index < Sorted.Count; ++Index) {
        if (strcmp(Sorted.Data[Index - 1], Sorted.Data[Index]) == 0) Repeated = true;
    }
    if (!Repeated) return true;

    pointer_hash *Linked = NewPointerHash();
    if (!Linked) return false;
    MarkLinkedNodes(Nodes, Linked);
    fbx_array<bool> Claimed;
    fbx_array<char *> Given; // names handed out here, in order
    bool Whole = Claimed.Resize(Sorted.Count);
    // Bones first, then every other node; each pass in depth-first order.
    for (int32 Pass = 0; Pass < 2 && Whole; ++Pass) {
        for (int32 Index = 0; Index < Nodes.Count && Whole; ++Index) {
            named_node &Entry = Nodes.Data[Index];
            if (IsBone(Entry.Node, Linked) != (Pass == 0)) continue;
            int32 Slot = FindName(Sorted, Entry.Name);
            // Equal names sit next to each other: the first free one claims.
            while (Slot > 0 && strcmp(Sorted.Data[Slot - 1], Entry.Name) == 0) --Slot;
            if (!Claimed.Data[Slot]) {
                Claimed.Data[Slot] = true;
                continue;
            }
            size_t Length = strlen(Entry.Name);
            char *Name = TesselAllocateArray(char, Length + 16);
            if (!Name || !Given.Add(Name)) {
                TesselFree(Name);
                Whole = false;
                break;
            }
            for (int32 Number = 2;; ++Number) {
                snprintf(Name, Length + 16, "%s.%d", Entry.Name, Number);
                bool Taken = FindName(Sorted, Name) >= 0;
                for (int32 G = 0; G + 1 < Given.Count && !Taken; ++G) Taken = strcmp(Given.Data[G], Name) == 0;
                if (!Taken) break;
            }
            Entry.NewName = Name;
        }
    }
    // Renamed only now: the sorted list points at the names as read.
    for (int32 Index = 0; Index < Nodes.Count && Whole; ++Index) {
        named_node &Entry = Nodes.Data[Index];
        if (!Entry.NewName) continue;
        TesselWarning(LogCategory_FBX, "Node \"%s\" has the name of another node: it is exported as \"%s\"",
                      Entry.Name, Entry.NewName);
        Entry.Node->SetName(Entry.NewName);
        if (strcmp(Entry.Node->GetName(), Entry.NewName) != 0) Whole = false;
    }
    for (int32 G = 0; G < Given.Count; ++G) TesselFree(Given.Data[G]);
    DeletePointerHash(Linked);
    return Whole;
}
