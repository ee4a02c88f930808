#include "geometry/tessel_skeleton_builder.h"

#include <cmath>
#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "geometry/tessel_transform.h"

namespace {

int32 const BoneBeingWritten = -2;
int32 const BoneNotWritten = -1;

intaddrx AggregateSkeleton(aggr_allocator &Aggregate, skeleton **Skeleton, int32 BoneCount)
{
    BeginAggregateAllocation(Aggregate);
    intaddrx Root = AggregateAllocate(Aggregate, Skeleton, sizeof(skeleton));
    AggregateAllocateArray(Aggregate, Root, TESSEL_OFFSET_OF(skeleton, BoneCount), TESSEL_OFFSET_OF(skeleton, Bones),
                           BoneCount, sizeof(bone));
    return Root;
}

struct write_state
{
    skeleton_builder *Builder;
    bone *Bones;
    int32 *CallerTable;
    int32 OutputIndex;
};

void WriteBone(write_state &State, int32 Index)
{
    skeleton_builder *Builder = State.Builder;
    int32 &Entry = Builder->RemappingTable[Index];
    if (Entry == BoneBeingWritten) {
        TesselError(LogCategory_Skeleton, "Circular parenting chain located at bone %d", Index);
        return;
    }
    if (Entry != BoneNotWritten) return;
    Entry = BoneBeingWritten;
    builder_bone const &Source = Builder->Bones[Index];
    int32 ParentIndex = -1;
    if (Source.ParentIndex >= 0 && Source.ParentIndex < Builder->UsedBoneCount) {
        WriteBone(State, Source.ParentIndex);
        ParentIndex = Builder->RemappingTable[Source.ParentIndex];
        // A parent on a circular chain stays unwritten; this bone becomes a root.
        if (ParentIndex < 0) ParentIndex = -1;
    }
    bone &Target = State.Bones[State.OutputIndex];
    ClearObject(BoneType, &Target);
    Target.ParentIndex = ParentIndex;
    Target.LODError = Source.LODError;
    Target.Transform = Source.LocalTransform;
    memcpy(Target.InverseWorldTransform, Source.InverseWorld4x4, sizeof(Target.InverseWorldTransform));
    if (State.CallerTable) State.CallerTable[Index] = State.OutputIndex;
    Entry = State.OutputIndex;
    ++State.OutputIndex;
}

real32 Length3(real32 const *V)
{
    return std::sqrt(V[0] * V[0] + V[1] * V[1] + V[2] * V[2]);
}

void EstimateLODs(skeleton_builder *Builder)
{
    int32 Count = Builder->UsedBoneCount;
    if (Count == 0) return;
    memory_arena *Scratch = NewMemoryArena();
    real32 *Estimates = ArenaPush<real32>(Scratch, Count);
    if (!Estimates) {
        FreeMemoryArena(Scratch);
        return;
    }
    for (int32 Index = 0; Index < Count; ++Index) Estimates[Index] = -1.0f;
    for (int32 Index = 0; Index < Count; ++Index) {
        real32 Offset[3];
        memcpy(Offset, Builder->Bones[Index].LocalTransform.Position, sizeof(Offset));
        // Guard against cycles: no chain is longer than the bone count.
        int32 Steps = 0;
        for (int32 Parent = Builder->Bones[Index].ParentIndex; Parent >= 0 && Parent < Count && Steps < Count;
             Parent = Builder->Bones[Parent].ParentIndex, ++Steps) {
            real32 Length = Length3(Offset);
            if (Length > Estimates[Parent]) Estimates[Parent] = Length;
            TransformVectorLinear(Builder->Bones[Parent].LocalTransform, Offset, Offset);
        }
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        if (Builder->Bones[Index].LODError < 0.0f)
            Builder->Bones[Index].LODError = Estimates[Index];
        else
            Builder->LODType = 2;
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        builder_bone &Bone = Builder->Bones[Index];
        if (Bone.LODError < 0.0f) {
            if (Bone.ParentIndex >= 0 && Bone.ParentIndex < Count)
                Bone.LODError = Builder->Bones[Bone.ParentIndex].LODError * 0.5f;
            else
                Builder->LODType = 0;
        }
        int32 Steps = 0;
        for (int32 Child = Index; Steps < Count; ++Steps) {
            int32 Parent = Builder->Bones[Child].ParentIndex;
            if (Parent < 0 || Parent >= Count) break;
            if (Builder->Bones[Child].LODError > Builder->Bones[Parent].LODError) {
                Builder->Bones[Parent].LODError = Builder->Bones[Child].LODError;
            }
            Child = Parent;
        }
    }
    FreeMemoryArena(Scratch);
}

void SortBonesByLOD(int32 Count, bone *Bones, int32 *CallerTable, int32 CallerCount)
{
    if (Count == 0) return;
    memory_arena *Scratch = NewMemoryArena();
    int32 *NewIndex = ArenaPush<int32>(Scratch, Count);
    int32 *Order = ArenaPush<int32>(Scratch, Count);
    if (!NewIndex || !Order) {
        FreeMemoryArena(Scratch);
        return;
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        NewIndex[Index] = -1;
        Order[Index] = Index;
    }
    for (int32 Last = Count - 1; Last >= 0; --Last) {
        for (int32 Index = 0; Index < Last; ++Index) {
            if (Bones[Index + 1].LODError > Bones[Index].LODError) {
                bone Swap = Bones[Index];
                Bones[Index] = Bones[Index + 1];
                Bones[Index + 1] = Swap;
                int32 SwapOrder = Order[Index];
                Order[Index] = Order[Index + 1];
                Order[Index + 1] = SwapOrder;
            }
        }
    }
    for (int32 Index = 0; Index < Count; ++Index) NewIndex[Order[Index]] = Index;
    if (CallerTable) {
        for (int32 Index = 0; Index < CallerCount; ++Index) {
            int32 Entry = CallerTable[Index];
            if (Entry >= 0 && Entry < Count) CallerTable[Index] = NewIndex[Entry];
        }
    }
    for (int32 Index = 0; Index < Count; ++Index) {
        if (Bones[Index].ParentIndex >= 0 && Bones[Index].ParentIndex < Count) {
            Bones[Index].ParentIndex = NewIndex[Bones[Index].ParentIndex];
        }
    }
    FreeMemoryArena(Scratch);
}

} // namespace

skeleton_builder *BeginSkeleton(int32 BoneCount)
{
    CheckCondition(BoneCount >= 0, LogCategory_Skeleton, 0);
    aggr_allocator Aggregate;
    skeleton_builder *Builder = 0;
    BeginAggregateAllocation(Aggregate);
    intaddrx Root = AggregateAllocate(Aggregate, &Builder, sizeof(skeleton_builder));
    AggregateAllocateArray(Aggregate, Root, TESSEL_OFFSET_OF(skeleton_builder, BoneCount),
                           TESSEL_OFFSET_OF(skeleton_builder, Bones), BoneCount, sizeof(builder_bone));
    AggregateAllocateMember(Aggregate, Root, TESSEL_OFFSET_OF(skeleton_builder, RemappingTable),
                            (intaddrx)BoneCount * (intaddrx)sizeof(int32));
    if (!EndAggregateAllocation(Aggregate)) return 0;
    Builder->UsedBoneCount = 0;
    Builder->LODType = 1;
    for (int32 Index = 0; Index < BoneCount; ++Index) Builder->RemappingTable[Index] = BoneNotWritten;
    return Builder;
}

void AddBone(skeleton_builder *Builder, real32 const *Position, real32 const *Orientation, real32 const *ScaleShear,
             real32 const *InverseWorld4x4)
{
    CheckPointer(Builder, LogCategory_Skeleton, TESSEL_NOTHING);
    if (Builder->UsedBoneCount >= Builder->BoneCount) {
        TesselError(LogCategory_Skeleton, "AddBone called after all allotted bones were already used");
        return;
    }
    builder_bone &Bone = Builder->Bones[Builder->UsedBoneCount++];
    Bone.ParentIndex = -1;
    SetTransform(Bone.LocalTransform, Position, Orientation, ScaleShear);
    if (InverseWorld4x4)
        memcpy(Bone.InverseWorld4x4, InverseWorld4x4, sizeof(Bone.InverseWorld4x4));
    else
        MatrixIdentity4x4(Bone.InverseWorld4x4);
    Bone.LODError = -1.0f;
}

void AddBoneWithInverse(skeleton_builder *Builder, real32 const *LocalPosition, real32 const *LocalOrientation,
                        real32 const *LocalScaleShear, real32 const *WorldPosition, real32 const *WorldOrientation,
                        real32 const *WorldScaleShear)
{
    transform World;
    SetTransform(World, WorldPosition, WorldOrientation, WorldScaleShear);
    real32 WorldMatrix[16], Inverse[16];
    BuildCompositeTransform4x4(World, WorldMatrix);
    MatrixInvert4x4(WorldMatrix, Inverse);
    AddBone(Builder, LocalPosition, LocalOrientation, LocalScaleShear, Inverse);
}

void SetBoneParent(skeleton_builder *Builder, int32 BoneIndex, int32 ParentIndex)
{
    CheckPointer(Builder, LogCategory_Skeleton, TESSEL_NOTHING);
    if (BoneIndex >= Builder->BoneCount) {
        TesselError(LogCategory_Skeleton, "SetBoneParent bone index (%d) is out of specified bone domain (%d)",
                    BoneIndex, Builder->BoneCount);
        return;
    }
    if (ParentIndex >= Builder->BoneCount) {
        TesselError(LogCategory_Skeleton, "SetBoneParent parent index (%d) is out of specified bone domain (%d)",
                    BoneIndex, Builder->BoneCount);
        return;
    }
    // A negative bone index passes the signed tests above but names no bone.
    if (BoneIndex < 0) return;
    Builder->Bones[BoneIndex].ParentIndex = ParentIndex < 0 ? -1 : ParentIndex;
}

void SetBoneLODError(skeleton_builder *Builder, int32 BoneIndex, real32 LODError)
{
    CheckPointer(Builder, LogCategory_Skeleton, TESSEL_NOTHING);
    CheckIndex(BoneIndex, Builder->UsedBoneCount, LogCategory_Skeleton, TESSEL_NOTHING);
    Builder->Bones[BoneIndex].LODError = LODError;
}

int32 GetResultingSkeletonSize(skeleton_builder const *Builder)
{
    CheckPointer(Builder, LogCategory_Skeleton, 0);
    aggr_allocator Aggregate;
    skeleton *Unused = 0;
    AggregateSkeleton(Aggregate, &Unused, Builder->UsedBoneCount);
    int32 Size = 0;
    CheckConvertToInt32(Size, EndAggregateSize(Aggregate), LogCategory_Skeleton, 0);
    return Size;
}

skeleton *EndSkeletonInPlace(skeleton_builder *Builder, void *Memory, int32 *RemappingTable)
{
    if (!Builder) return 0;
    if (!Memory) {
        TesselError(LogCategory_Skeleton, "%s is not allowed to be NULL", "Memory");
        TesselFree(Builder);
        return 0;
    }
    EstimateLODs(Builder);
    aggr_allocator Aggregate;
    skeleton *Skeleton = 0;
    AggregateSkeleton(Aggregate, &Skeleton, Builder->UsedBoneCount);
    EndAggregatePlacement(Aggregate, Memory);
    if (!Skeleton) {
        TesselFree(Builder);
        return 0;
    }
    if (RemappingTable) {
        for (int32 Index = 0; Index < Builder->UsedBoneCount; ++Index) RemappingTable[Index] = -1;
    }
    write_state State = {Builder, Skeleton->Bones, RemappingTable, 0};
    for (int32 Index = 0; Index < Builder->UsedBoneCount; ++Index) {
        if (Builder->Bones[Index].ParentIndex < 0) WriteBone(State, Index);
    }
    for (int32 Index = 0; Index < Builder->UsedBoneCount; ++Index) {
        if (Builder->Bones[Index].ParentIndex >= 0) WriteBone(State, Index);
    }
    // Bones of a cycle stay unwritten; the skeleton holds only what was written.
    Skeleton->BoneCount = State.OutputIndex;
    if (Skeleton->BoneCount == 0) Skeleton->Bones = 0;
    SortBonesByLOD(Skeleton->BoneCount, Skeleton->Bones, RemappingTable, Builder->UsedBoneCount);
    Skeleton->LODType = Builder->LODType;
    Skeleton->ExtendedData.Type = 0;
    Skeleton->ExtendedData.Object = 0;
    TesselFree(Builder);
    return Skeleton;
}

void AbandonSkeleton(skeleton_builder *Builder)
{
    TesselFree(Builder);
}
