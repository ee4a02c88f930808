// Skeleton builder: parents first, LOD estimation and sorting, bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "foundation/tessel_memory.h"
#include "geometry/tessel_skeleton_builder.h"
#include "geometry/tessel_transform.h"
#include "support/test_log_capture.h"

namespace {

struct built_skeleton
{
    std::vector<uint8> Memory;
    skeleton *Skeleton = nullptr;
    std::vector<int32> Remap;
};

built_skeleton Finish(skeleton_builder *Builder)
{
    built_skeleton Result;
    Result.Memory.resize(GetResultingSkeletonSize(Builder) + 8);
    Result.Remap.assign(Builder->UsedBoneCount, -7);
    Result.Skeleton = EndSkeletonInPlace(Builder, Result.Memory.data(), Result.Remap.data());
    return Result;
}

void AddAt(skeleton_builder *Builder, real32 X, real32 Y, real32 Z)
{
    real32 Position[3] = {X, Y, Z};
    AddBone(Builder, Position, nullptr, nullptr, nullptr);
}

} // namespace

TEST(SkeletonBuilder, LoneBoneHasNoLOD)
{
    int32 Before = GetLiveBlockCount();
    skeleton_builder *Builder = BeginSkeleton(1);
    AddAt(Builder, 1, 2, 3);
    built_skeleton Result = Finish(Builder);
    ASSERT_NE(Result.Skeleton, nullptr);
    EXPECT_EQ(Result.Skeleton->BoneCount, 1);
    EXPECT_EQ(Result.Skeleton->LODType, 0);
    EXPECT_EQ(Result.Skeleton->Bones[0].LODError, -1.0f);
    EXPECT_EQ(Result.Skeleton->Bones[0].Transform.Flags, (int32)HasPosition);
    EXPECT_EQ(GetLiveBlockCount(), Before); // builder released, result in caller memory
}

TEST(SkeletonBuilder, ChainEstimatesFlowToAncestors)
{
    // Root at the origin, a child one unit along X whose rotation turns X
    // into Y and whose scale is 2, and a grandchild one unit along X.
    skeleton_builder *Builder = BeginSkeleton(3);
    AddAt(Builder, 0, 0, 0);
    real32 Position[3] = {1, 0, 0};
    real32 Quarter[4] = {0, 0, std::sqrt(0.5f), std::sqrt(0.5f)};
    real32 Scale[9] = {2, 0, 0, 0, 2, 0, 0, 0, 2};
    AddBone(Builder, Position, Quarter, Scale, nullptr);
    AddAt(Builder, 1, 0, 0);
    SetBoneParent(Builder, 1, 0);
    SetBoneParent(Builder, 2, 1);
    built_skeleton Result = Finish(Builder);
    skeleton *Skeleton = Result.Skeleton;
    ASSERT_EQ(Skeleton->BoneCount, 3);
    EXPECT_EQ(Skeleton->LODType, 1);
    // Grandchild offset (1,0,0) seen from the root: scaled by 2 and rotated,
    // length 2 beats the child's own offset of 1.
    EXPECT_FLOAT_EQ(Skeleton->Bones[0].LODError, 2.0f);
    EXPECT_FLOAT_EQ(Skeleton->Bones[1].LODError, 1.0f);
    EXPECT_FLOAT_EQ(Skeleton->Bones[2].LODError, 0.5f); // a leaf takes half its parent's
    EXPECT_EQ(Skeleton->Bones[1].ParentIndex, 0);
    EXPECT_EQ(Skeleton->Bones[2].ParentIndex, 1);
}

TEST(SkeletonBuilder, ParentsFirstAndSortedByError)
{
    // Input order child-before-parent, two roots; equal errors keep order.
    skeleton_builder *Builder = BeginSkeleton(5);
    AddAt(Builder, 0, 3, 0);  // 0: child of 1
    AddAt(Builder, 0, 0, 0);  // 1: small root
    AddAt(Builder, 0, 0, 0);  // 2: big root
    AddAt(Builder, 10, 0, 0); // 3: child of 2
    AddAt(Builder, 10, 0, 0); // 4: child of 3
    SetBoneParent(Builder, 0, 1);
    SetBoneParent(Builder, 3, 2);
    SetBoneParent(Builder, 4, 3);
    built_skeleton Result = Finish(Builder);
    skeleton *Skeleton = Result.Skeleton;
    ASSERT_EQ(Skeleton->BoneCount, 5);
    for (int32 Index = 0; Index < 5; ++Index) {
        int32 Parent = Skeleton->Bones[Index].ParentIndex;
        EXPECT_LT(Parent, Index) << "bone " << Index;
        if (Index > 0) EXPECT_GE(Skeleton->Bones[Index - 1].LODError, Skeleton->Bones[Index].LODError);
    }
    EXPECT_EQ(Result.Remap[2], 0); // the root of the biggest limb comes first
    EXPECT_EQ(Skeleton->Bones[Result.Remap[4]].ParentIndex, Result.Remap[3]);
    EXPECT_EQ(Skeleton->Bones[Result.Remap[0]].ParentIndex, Result.Remap[1]);
}

TEST(SkeletonBuilder, InverseWorldInvertsTheWorldTransform)
{
    skeleton_builder *Builder = BeginSkeleton(1);
    real32 Zero[3] = {0, 0, 0};
    real32 WorldPosition[3] = {1, 2, 3};
    real32 WorldOrientation[4] = {0, std::sqrt(0.5f), 0, std::sqrt(0.5f)};
    real32 WorldScale[9] = {2, 0, 0, 0, 3, 0, 0, 0, 4};
    AddBoneWithInverse(Builder, Zero, nullptr, nullptr, WorldPosition, WorldOrientation, WorldScale);
    built_skeleton Result = Finish(Builder);
    transform World;
    SetTransform(World, WorldPosition, WorldOrientation, WorldScale);
    real32 WorldMatrix[16], Product[16];
    BuildCompositeTransform4x4(World, WorldMatrix);
    MatrixMultiply4x4(WorldMatrix, &Result.Skeleton->Bones[0].InverseWorldTransform[0][0], Product);
    for (int32 Index = 0; Index < 16; ++Index) EXPECT_NEAR(Product[Index], Index % 5 == 0 ? 1.0f : 0.0f, 1e-5f);
    // A point on the local X axis lands at the world position plus R*S*(1,0,0) = (0,0,-2).
    real32 Point[4] = {1, 0, 0, 1}, Mapped[4] = {};
    for (int32 Column = 0; Column < 4; ++Column)
        for (int32 K = 0; K < 4; ++K) Mapped[Column] += Point[K] * WorldMatrix[K * 4 + Column];
    EXPECT_NEAR(Mapped[0], 1.0f, 1e-5f);
    EXPECT_NEAR(Mapped[2], 1.0f, 1e-5f);
}

TEST(SkeletonBuilder, BadInputIsReportedNotFatal)
{
    log_capture Log;
    skeleton_builder *Builder = BeginSkeleton(3);
    AddAt(Builder, 1, 0, 0);
    AddAt(Builder, 1, 0, 0);
    AddAt(Builder, 1, 0, 0);
    AddAt(Builder, 1, 0, 0);
    EXPECT_TRUE(Log.Contains("AddBone called after all allotted bones were already used"));
    SetBoneParent(Builder, 3, 0);
    EXPECT_TRUE(Log.Contains("SetBoneParent bone index (3) is out of specified bone domain (3)"));
    SetBoneParent(Builder, 1, 5);
    EXPECT_TRUE(Log.Contains("SetBoneParent parent index (1) is out of specified bone domain (3)"));
    // 0 -> 1 -> 0 is a cycle; 2 hangs below it.
    SetBoneParent(Builder, 0, 1);
    SetBoneParent(Builder, 1, 0);
    SetBoneParent(Builder, 2, 1);
    built_skeleton Result = Finish(Builder);
    EXPECT_TRUE(Log.Contains("Circular parenting chain located at bone"));
    ASSERT_NE(Result.Skeleton, nullptr);
    for (int32 Index = 0; Index < Result.Skeleton->BoneCount; ++Index) {
        int32 Parent = Result.Skeleton->Bones[Index].ParentIndex;
        EXPECT_TRUE(Parent == -1 || (Parent >= 0 && Parent < Index));
    }
}
