// Skins and clusters.
#include "fbx/fbx_tessel_skin.h"

KFbxSkin *KFbxSkin::Create(KFbxSdkManager *Manager, char const *Name)
{
    return FbxKeepWhole(FbxNew(KFbxSkin, Manager, Name));
}

bool KFbxSkin::AddCluster(KFbxCluster *Cluster)
{
    CheckPointer(Cluster, LogCategory_FBX, false);
    if (mClusters.Find(Cluster) >= 0) {
        return true;
    }
    return mClusters.Add(Cluster);
}

int32 KFbxSkin::RemoveCluster(KFbxCluster *Cluster)
{
    int32 Index = mClusters.Find(Cluster);
    if (Index >= 0) {
        mClusters.RemoveAt(Index);
    }
    return Index;
}

KFbxCluster *KFbxCluster::Create(KFbxSdkManager *Manager, char const *Name)
{
    return FbxKeepWhole(FbxNew(KFbxCluster, Manager, Name));
}

bool KFbxCluster::AddControlPointIndex(int32 Index, real64 Weight)
{
    if (!mIndices.Add(Index)) {
        return false;
    }
    if (!mWeights.Add(Weight)) {
        mIndices.RemoveAt(mIndices.Count - 1);
        return false;
    }
    return true;
}

int32 KFbxCluster::DropControlPointsFrom(int32 Count)
{
    int32 Kept = 0;
    for (int32 Index = 0; Index < mIndices.Count; ++Index) {
        if (mIndices[Index] >= 0 && mIndices[Index] < Count) {
            mIndices[Kept] = mIndices[Index];
            mWeights[Kept] = mWeights[Index];
            ++Kept;
        }
    }
    int32 Dropped = mIndices.Count - Kept;
    mIndices.Resize(Kept);
    mWeights.Resize(Kept);
    return Dropped;
}

static AffineMatrix Recompose(AffineMatrix const &Matrix)
{
    return AffineMatrix(Matrix.GetT(), Matrix.GetR(), Matrix.GetS());
}

AffineMatrix &KFbxCluster::GetTransformMatrix(AffineMatrix &Matrix) const
{
    Matrix = Recompose(mTransform.Inverse());
    return Matrix;
}

AffineMatrix &KFbxCluster::GetTransformLinkMatrix(AffineMatrix &Matrix) const
{
    Matrix = Recompose(mTransformLink);
    return Matrix;
}
