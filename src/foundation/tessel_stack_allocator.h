// stack_allocator: a growing array of fixed-size units in chained blocks, so
// that unit addresses never move and indices stay stable.
#pragma once

#include "foundation/tessel_types.h"

#pragma pack(push, 4)
struct stack_block
{
    int32 UsedUnitCount;
    uint8 *Base;
    int32 FirstIndex;
    stack_block *PreviousBlock;
};

struct stack_allocator
{
    int32 UnitSize;
    int32 UnitsPerBlock;
    int32 TotalUsedUnitCount;
    stack_block *LastBlock;
    int32 MaxUnits;
    int32 ActiveBlocks;
    int32 MaxActiveBlocks;
    stack_block **BlockDirectory;
};
#pragma pack(pop)

bool StackInitialize(stack_allocator &Allocator, int32 UnitSize, int32 UnitsPerBlock);
bool StackInitializeWithDirectory(stack_allocator &Allocator, int32 UnitSize, int32 UnitsPerBlock, int32 MaxUnits);
void *NewStackUnit(stack_allocator &Allocator, int32 *ResultIndex);
bool NewStackUnits(stack_allocator &Allocator, int32 Count, int32 *FirstIndex, void const *InitialValue);
void *GetStackUnit(stack_allocator &Allocator, int32 Index);
void PopStackUnits(stack_allocator &Allocator, int32 Count);
int32 GetStackUnitCount(stack_allocator const &Allocator);
void SerializeStack(stack_allocator &Allocator, void *Destination);
void StackCleanUp(stack_allocator &Allocator);

template <typename T>
inline T *StackUnit(stack_allocator &Allocator, int32 Index)
{
    return (T *)GetStackUnit(Allocator, Index);
}
