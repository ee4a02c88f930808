// skeleton_builder: bones in any order with parents by index in, a skeleton
// with parents first, sorted by level-of-detail error, out.
#pragma once

#include "format/tessel_schema.h"

#pragma pack(push, 4)
struct builder_bone
{
    int32 ParentIndex;
    transform LocalTransform;
    real32 InverseWorld4x4[16];
    real32 LODError;
};

struct skeleton_builder
{
    int32 BoneCount;
    int32 UsedBoneCount;
    builder_bone *Bones;
    int32 LODType;
    int32 *RemappingTable;
};
#pragma pack(pop)

skeleton_builder *BeginSkeleton(int32 BoneCount);
void AddBone(skeleton_builder *Builder, real32 const *Position, real32 const *Orientation, real32 const *ScaleShear,
             real32 const *InverseWorld4x4);
void AddBoneWithInverse(skeleton_builder *Builder, real32 const *LocalPosition, real32 const *LocalOrientation,
                        real32 const *LocalScaleShear, real32 const *WorldPosition, real32 const *WorldOrientation,
                        real32 const *WorldScaleShear);
void SetBoneParent(skeleton_builder *Builder, int32 BoneIndex, int32 ParentIndex);
// Sets the LOD error of a bone added earlier (a negative value means unknown).
void SetBoneLODError(skeleton_builder *Builder, int32 BoneIndex, real32 LODError);
int32 GetResultingSkeletonSize(skeleton_builder const *Builder);
// Lays the skeleton out in Memory (GetResultingSkeletonSize bytes) and
// releases the builder, also on failure. RemappingTable, when given, has an
// entry per added bone and receives each bone's index in the result.
skeleton *EndSkeletonInPlace(skeleton_builder *Builder, void *Memory, int32 *RemappingTable);
// Releases a builder without producing anything.
void AbandonSkeleton(skeleton_builder *Builder);
