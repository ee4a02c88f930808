// The FBX 6 reader: objects by name, Connect fields and takes.
#include <cstdio>
#include <cstring>

#include "fbx/fbx_tessel_reader.h"
#include "fbx/fbx_tessel_reader_common.h"

static int32 AttributeTypeOfModel(char const *SubType)
{
    if (strcmp(SubType, "Mesh") == 0) return FbxAttribute_Mesh;
    if (strcmp(SubType, "Limb") == 0 || strcmp(SubType, "LimbNode") == 0 || strcmp(SubType, "Root") == 0)
        return FbxAttribute_Skeleton;
    if (strcmp(SubType, "Camera") == 0 || strcmp(SubType, "CameraSwitcher") == 0) return FbxAttribute_Camera;
    if (strcmp(SubType, "Light") == 0) return FbxAttribute_Light;
    if (strcmp(SubType, "Marker") == 0) return FbxAttribute_Marker;
    if (strcmp(SubType, "Null") == 0) return FbxAttribute_Null;
    return FbxAttribute_Unidentified;
}

// A node for a Model field; meshes read their geometry from the same field.
static KFbxNode *ReadModel(KFbx &Fbx, KFbxSdkManager &Manager, KFbxScene *Scene, fbx_field const *Object,
                           char const *FullName, char const *SubType)
{
    char const *Name = StripFbxClassPrefix(FullName);
    KFbxNode *Node = KFbxNode::Create(&Manager, Name);
    if (!Node) {
        return nullptr;
    }
    ReadFbxNodeProperties(Fbx, Object, Node);
    int32 Type = AttributeTypeOfModel(SubType);
    if (Type == FbxAttribute_Mesh || Fbx.FindChild(Object, "Vertices")) {
        KFbxMesh *Mesh = KFbxMesh::Create(&Manager, Name);
        if (!Mesh || !ReadFbxMeshGeometry(Fbx, Object, Mesh)) {
            return nullptr;
        }
        Node->AddNodeAttribute(Mesh);
    } else if (Type != FbxAttribute_Unidentified) {
        KFbxNodeAttribute *Attribute = KFbxNodeAttribute::Create(&Manager, Name, Type);
        if (!Attribute) {
            return nullptr;
        }
        Node->AddNodeAttribute(Attribute);
    }
    Scene->AddNode(Node);
    return Node;
}

// Links an object to another by their kinds, as Connect "OO" fields say.
static void ConnectObjects(KFbxScene *Scene, fbx_object_entry *Source, fbx_object_entry *Destination)
{
    if (!Source) {
        return;
    }
    if (!Destination) {
        return;
    }
    switch (Source->Kind) {
    case FbxObjectKind_Node:
        if (Destination->Kind == FbxObjectKind_Node) {
            ((KFbxNode *)Destination->Object)->AddChild((KFbxNode *)Source->Object);
        } else if (Destination->Kind == FbxObjectKind_Cluster) {
            KFbxCluster *Cluster = (KFbxCluster *)Destination->Object;
            if (!Cluster->GetLink()) {
                Cluster->SetLink((KFbxNode *)Source->Object);
            }
        }
        break;
    case FbxObjectKind_Skin:
        if (Destination->Kind == FbxObjectKind_Node || Destination->Kind == FbxObjectKind_Mesh) {
            KFbxMesh *Mesh = (Destination->Kind == FbxObjectKind_Node) ? ((KFbxNode *)Destination->Object)->GetMesh()
                                                                       : (KFbxMesh *)Destination->Object;
            if (Mesh) {
                Mesh->AddDeformer((KFbxSkin *)Source->Object);
            }
        }
        break;
    case FbxObjectKind_Cluster:
        if (Destination->Kind == FbxObjectKind_Skin) {
            ((KFbxSkin *)Destination->Object)->AddCluster((KFbxCluster *)Source->Object);
        }
        break;
    default: break;
    }
}

// Nodes that nothing parents hang under the root.
static void ParentOrphans(KFbxScene *Scene, fbx_object_table &Objects)
{
    KFbxNode *Root = Scene->GetRootNode();
    for (int32 Index = 0; Index < Objects.GetCount(); ++Index) {
        fbx_object_entry &Entry = Objects[Index];
        if (Entry.Kind == FbxObjectKind_Node && Entry.Object != Root && !((KFbxNode *)Entry.Object)->GetParent()) {
            Root->AddChild((KFbxNode *)Entry.Object);
        }
    }
}

static fbx_field const *FindGlobalSettings(KFbx &Fbx)
{
    fbx_field const *Settings = Fbx.FindChild(nullptr, "GlobalSettings");
    if (!Settings) {
        Settings = Fbx.FindChild(Fbx.FindChild(nullptr, "Objects"), "GlobalSettings");
    }
    return Settings;
}

bool KFbxReaderFbx6::Read(KFbxScene *Scene)
{
    CheckPointer(Scene, LogCategory_FBX, false);
    fbx_object_table Objects;
    Objects.Add(0, "Model::Scene", Scene->GetRootNode(), FbxObjectKind_Node, nullptr);

    fbx_field const *ObjectsField = mFbx.FindChild(nullptr, "Objects");
    for (fbx_field const *Object = mFbx.GetFirstChild(ObjectsField); Object; Object = mFbx.GetNextSibling(Object)) {
        char FullName[512], SubType[64];
        ReadFbxString(mFbx, Object, 0, FullName, sizeof(FullName));
        ReadFbxString(mFbx, Object, 1, SubType, sizeof(SubType));
        if (mFbx.FieldNameIs(Object, "Model")) {
            KFbxNode *Node = ReadModel(mFbx, mManager, Scene, Object, FullName, SubType);
            if (!Node) {
                snprintf(mError, sizeof(mError), "Could not read the model %.200s", FullName);
                return false;
            }
            Objects.Add(0, FullName, Node, FbxObjectKind_Node, Object);
        } else if (mFbx.FieldNameIs(Object, "Deformer") && strcmp(SubType, "Skin") == 0) {
            KFbxSkin *Skin = KFbxSkin::Create(&mManager, StripFbxClassPrefix(FullName));
            if (!Skin) {
                return false;
            }
            ReadFbxSkinData(mFbx, Object, Skin);
            Scene->AddMember(Skin);
            Objects.Add(0, FullName, Skin, FbxObjectKind_Skin, Object);
        } else if (mFbx.FieldNameIs(Object, "Deformer") && strcmp(SubType, "Cluster") == 0) {
            KFbxCluster *Cluster = KFbxCluster::Create(&mManager, StripFbxClassPrefix(FullName));
            if (!Cluster || !ReadFbxClusterData(mFbx, Object, Cluster)) {
                snprintf(mError, sizeof(mError), "Could not read the cluster %.200s", FullName);
                return false;
            }
            Scene->AddMember(Cluster);
            Objects.Add(0, FullName, Cluster, FbxObjectKind_Cluster, Object);
        }
    }
    fbx_field const *Settings = FindGlobalSettings(mFbx);
    if (Settings) {
        ReadFbxGlobalSettings(mFbx, Settings, Scene->GetGlobalSettings());
    }
    ApplyFbxSceneTimeMode(Scene);

    fbx_field const *Connections = mFbx.FindChild(nullptr, "Connections");
    for (fbx_field const *Connect = mFbx.FindChild(Connections, "Connect"); Connect;
         Connect = mFbx.FindNextSibling(Connect, "Connect")) {
        if (!mFbx.ValueStringIs(Connect, 0, "OO")) {
            continue;
        }
        char Source[512], Destination[512];
        ReadFbxString(mFbx, Connect, 1, Source, sizeof(Source));
        ReadFbxString(mFbx, Connect, 2, Destination, sizeof(Destination));
        ConnectObjects(Scene, Objects.FindByKey(Source), Objects.FindByKey(Destination));
    }
    ParentOrphans(Scene, Objects);
    for (fbx_field const *Object = mFbx.FindChild(ObjectsField, "Pose"); Object;
         Object = mFbx.FindNextSibling(Object, "Pose")) {
        ReadFbxBindPose(mFbx, Object, Objects, false);
    }
    DropFbxSkinIndicesOutsideMeshes(Scene);

    for (fbx_field const *Takes = mFbx.FindChild(nullptr, "Takes"); Takes;
         Takes = mFbx.FindNextSibling(Takes, "Takes")) {
        if (!ReadFbxTakes(mFbx, Takes, Scene, Objects, false)) {
            snprintf(mError, sizeof(mError), "Could not read the takes");
            return false;
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// FBX 5: models at the top level, each with a Children list, skin links
// inside the mesh model, and the transform values in the takes.

bool KFbxReaderFbx::Read(KFbxScene *Scene)
{
    CheckPointer(Scene, LogCategory_FBX, false);
    fbx_object_table Objects;
    for (fbx_field const *Object = mFbx.FindChild(nullptr, "Model"); Object;
         Object = mFbx.FindNextSibling(Object, "Model")) {
        char FullName[512];
        ReadFbxString(mFbx, Object, 0, FullName, sizeof(FullName));
        KFbxNode *Node =
            ReadModel(mFbx, mManager, Scene, Object, FullName, mFbx.FindChild(Object, "Vertices") ? "Mesh" : "Null");
        if (!Node) {
            snprintf(mError, sizeof(mError), "Could not read the model %.200s", FullName);
            return false;
        }
        ReadFbxModelTransformDefaults(mFbx, Object, Node);
        if (KFbxMesh *Mesh = Node->GetMesh()) {
            ReadFbxModelNormals(mFbx, Object, Mesh);
        }
        Objects.Add(0, FullName, Node, FbxObjectKind_Node, Object);
    }
    for (int32 Index = 0; Index < Objects.GetCount(); ++Index) {
        fbx_object_entry Entry = Objects[Index];
        KFbxNode *Node = (KFbxNode *)Entry.Object;
        fbx_field const *Children = mFbx.FindChild(Entry.Field, "Children");
        for (int32 Child = 0; Children && Child < mFbx.GetValueCount(Children); ++Child) {
            char Name[512];
            fbx_object_entry *ChildEntry = Objects.FindByKey(ReadFbxString(mFbx, Children, Child, Name, sizeof(Name)));
            if (ChildEntry && ChildEntry->Object != Node) {
                Node->AddChild((KFbxNode *)ChildEntry->Object);
            }
        }
        KFbxMesh *Mesh = Node->GetMesh();
        fbx_field const *Link = mFbx.FindChild(Entry.Field, "Link");
        if (!Mesh || !Link) {
            continue;
        }
        KFbxSkin *Skin = KFbxSkin::Create(&mManager, Node->GetName());
        if (!Skin) {
            return false;
        }
        Scene->AddMember(Skin);
        Mesh->AddDeformer(Skin);
        for (; Link; Link = mFbx.FindNextSibling(Link, "Link")) {
            char BoneName[512], Prefixed[600];
            ReadFbxString(mFbx, Link, 0, BoneName, sizeof(BoneName));
            KFbxCluster *Cluster = KFbxCluster::Create(&mManager, BoneName);
            if (!Cluster || !ReadFbxClusterData(mFbx, Link, Cluster)) {
                return false;
            }
            Scene->AddMember(Cluster);
            Skin->AddCluster(Cluster);
            snprintf(Prefixed, sizeof(Prefixed), "Model::%.500s", BoneName);
            fbx_object_entry *Bone = Objects.FindByKey(Prefixed);
            if (!Bone) {
                Bone = Objects.FindByKey(BoneName);
            }
            if (Bone) {
                Cluster->SetLink((KFbxNode *)Bone->Object);
            }
        }
    }
    ParentOrphans(Scene, Objects);
    DropFbxSkinIndicesOutsideMeshes(Scene);
    ApplyFbxSceneTimeMode(Scene);
    for (fbx_field const *Takes = mFbx.FindChild(nullptr, "Takes"); Takes;
         Takes = mFbx.FindNextSibling(Takes, "Takes")) {
        if (!ReadFbxTakes(mFbx, Takes, Scene, Objects, true)) {
            snprintf(mError, sizeof(mError), "Could not read the takes");
            return false;
        }
    }
    return true;
}
