// What the FBX 6 and FBX 7 readers share: object names, properties of
// models and global settings, mesh geometry with its layers, cluster data
// and the growing set of objects found by name or id.
#pragma once

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_scene.h"
#include "fbx/fbx_tessel_skin.h"

// The part of an object name behind its class prefix ("Model::Cube" gives
// "Cube"); the whole name when there is none.
char const *StripFbxClassPrefix(char const *Name);

// A value as a zero-terminated string in Buffer ("" when missing).
char const *ReadFbxString(KFbx &Fbx, fbx_field const *Field, int32 Index, char *Buffer, int32 Size);

// True when the value is a number (not a letter or word).
bool IsFbxNumberValue(KFbx &Fbx, fbx_field const *Field, int32 Index);

// Model and global settings properties. ValueIndex is where the property's
// values begin (3 in Properties60, 4 in Properties70). Unknown names are
// passed over.
void ApplyFbxNodeProperty(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, KFbxNode *Node);
void ApplyFbxGlobalSetting(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, KFbxGlobalSettings &Settings);
// Walks a property block (Properties60 or Properties70) with one of the two above.
void ReadFbxNodeProperties(KFbx &Fbx, fbx_field const *Object, KFbxNode *Node);
void ReadFbxGlobalSettings(KFbx &Fbx, fbx_field const *Object, KFbxGlobalSettings &Settings);
// Every member ApplyFbxNodeProperty may set, from one node to another. A
// file's model property template is applied once to a scratch node and
// copied into each model, which gives the same members as applying it to
// each fresh node.
void CopyFbxNodeProperties(KFbxNode const &From, KFbxNode &To);

// Vertices, polygons and layer elements of a mesh field.
bool ReadFbxMeshGeometry(KFbx &Fbx, fbx_field const *Object, KFbxMesh *Mesh);

// The plain "Normals" list of an FBX 5 model, by control point or by
// polygon vertex as its length says, when the mesh has no normal layer.
void ReadFbxModelNormals(KFbx &Fbx, fbx_field const *Object, KFbxMesh *Mesh);

// Indexes, Weights, Transform and TransformLink of a cluster field.
bool ReadFbxClusterData(KFbx &Fbx, fbx_field const *Object, KFbxCluster *Cluster);

// SkinningType of a skin deformer field.
void ReadFbxSkinData(KFbx &Fbx, fbx_field const *Object, KFbxSkin *Skin);

// The node matrices of a Pose field of type "BindPose". Nodes are named by
// id (FBX 7) or by their full name (FBX 6). A node keeps the first matrix
// any bind pose gives it.
class fbx_object_table;
void ReadFbxBindPose(KFbx &Fbx, fbx_field const *Pose, fbx_object_table &Objects, bool ById);

// Automatic tangents whose slopes the file does not store (FBX 7 keeps
// automatic-tangent bias values in their place; FBX 6 may leave them out):
// interior keys get the slope between their neighbours, end keys a flat one.
// With OnlyMissing, only keys whose slopes are NaN are filled.
void FillFbxAutomaticSlopes(KFCurve *Curve, bool OnlyMissing);

// After the connections: influences on control points a mesh does not have
// are dropped, so that nothing downstream indexes past a mesh.
void DropFbxSkinIndicesOutsideMeshes(KFbxScene *Scene);

// Objects of a file by their key: the full name with class prefix in FBX 6,
// the 64-bit id in FBX 7.
struct fbx_object_entry
{
    int64 Id;
    char *Key;
    void *Object;
    int32 Kind;
    fbx_field const *Field;
};

enum fbx_object_kind
{
    FbxObjectKind_Node = 1,
    FbxObjectKind_Mesh = 2,      // a geometry object (FBX 7)
    FbxObjectKind_Attribute = 3, // a node attribute object (FBX 7)
    FbxObjectKind_Skin = 4,
    FbxObjectKind_Cluster = 5,
    FbxObjectKind_AnimStack = 6,
    FbxObjectKind_AnimLayer = 7,
    FbxObjectKind_AnimCurveNode = 8,
    FbxObjectKind_AnimCurve = 9,
    FbxObjectKind_Other = 10,
};

class fbx_object_table
{
public:
    ~fbx_object_table();
    bool Add(int64 Id, char const *Key, void *Object, int32 Kind, fbx_field const *Field);
    fbx_object_entry *FindById(int64 Id);
    fbx_object_entry *FindByKey(char const *Key);
    int32 GetCount() const { return mEntries.Count; }
    fbx_object_entry &operator[](int32 Index) { return mEntries[Index]; }

private:
    bool Rehash(int32 Size);
    uint64 HashKey(int64 Id, char const *Key) const;
    fbx_object_entry *Find(int64 Id, char const *Key);

    fbx_array<fbx_object_entry> mEntries;
    fbx_array<int32> mBuckets; // entry index + 1, 0 for empty
};
