// Skins and their clusters: which control points a bone moves, by how much,
// and the bind matrices.
#pragma once

#include "fbx/fbx_tessel_node.h"

class KFbxGeometry;

enum fbx_deformer_type
{
    FbxDeformer_Unknown = 0,
    FbxDeformer_Skin = 1,
    FbxDeformer_VertexCache = 2,
};

class KFbxDeformer : public KFbxTakeNodeContainer
{
public:
    KFbxDeformer(KFbxSdkManager *Manager, char const *Name) : KFbxTakeNodeContainer(Manager, Name) {}
    virtual int32 GetDeformerType() const { return FbxDeformer_Unknown; }
    KFbxGeometry *GetGeometry() const { return mGeometry; }
    void SetGeometry(KFbxGeometry *Geometry) { mGeometry = Geometry; }

private:
    KFbxGeometry *mGeometry = nullptr;
};

class KFbxSubDeformer : public KFbxTakeNodeContainer
{
public:
    KFbxSubDeformer(KFbxSdkManager *Manager, char const *Name) : KFbxTakeNodeContainer(Manager, Name) {}
};

class KFbxCluster;

// How the file's skin blends its clusters.
enum fbx_skinning_type
{
    FbxSkinning_Linear = 0,
    FbxSkinning_Rigid = 1,
    FbxSkinning_DualQuaternion = 2,
    FbxSkinning_Blend = 3,
};

class KFbxSkin : public KFbxDeformer
{
public:
    static KFbxSkin *Create(KFbxSdkManager *Manager, char const *Name);
    KFbxSkin(KFbxSdkManager *Manager, char const *Name) : KFbxDeformer(Manager, Name) {}
    int32 GetDeformerType() const override { return FbxDeformer_Skin; }

    int32 GetClusterCount() const { return mClusters.Count; }
    KFbxCluster *GetCluster(int32 Index) const { return mClusters.GetAt(Index); }
    bool AddCluster(KFbxCluster *Cluster);
    // Takes the cluster out of the list (it stays alive); returns its former index or -1.
    int32 RemoveCluster(KFbxCluster *Cluster);

    int32 SkinningType = FbxSkinning_Linear;

private:
    fbx_array<KFbxCluster *> mClusters;
};

class KFbxCluster : public KFbxSubDeformer
{
public:
    static KFbxCluster *Create(KFbxSdkManager *Manager, char const *Name);
    KFbxCluster(KFbxSdkManager *Manager, char const *Name) : KFbxSubDeformer(Manager, Name) {}

    KFbxNode *GetLink() const { return mLink; }
    void SetLink(KFbxNode *Node) { mLink = Node; }

    virtual int32 GetControlPointIndicesCount() const { return mIndices.Count; }
    int32 *GetControlPointIndices() const { return mIndices.Data; }
    real64 *GetControlPointWeights() const { return mWeights.Data; }
    // Appends one influence.
    bool AddControlPointIndex(int32 Index, real64 Weight);
    // Removes influences on control points outside [0, Count); returns how many.
    int32 DropControlPointsFrom(int32 Count);

    // The file's Transform maps the mesh into the bone's bind space, so that
    // link global x Transform places the control points where the bind pose
    // puts them. GetTransformMatrix answers the inverse of that stored
    // matrix, so that callers which undo it with
    // link global x inverse(GetTransformMatrix) get the same placement. Both
    // getters return the matrix taken apart into translation, rotation and
    // scale and composed again.
    AffineMatrix &GetTransformMatrix(AffineMatrix &Matrix) const;
    // TransformLink: the bone's global matrix at bind time.
    AffineMatrix &GetTransformLinkMatrix(AffineMatrix &Matrix) const;
    void SetTransformMatrix(AffineMatrix const &Matrix) { mTransform = Matrix; }
    void SetTransformLinkMatrix(AffineMatrix const &Matrix) { mTransformLink = Matrix; }
    // The matrices as read from the file.
    AffineMatrix const &GetStoredTransform() const { return mTransform; }
    AffineMatrix const &GetStoredTransformLink() const { return mTransformLink; }

private:
    KFbxNode *mLink = nullptr;
    fbx_array<int32> mIndices;
    fbx_array<real64> mWeights;
    AffineMatrix mTransform;
    AffineMatrix mTransformLink;
};
