// stack_allocator: chained blocks of fixed-size units.
#include "foundation/tessel_stack_allocator.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

static bool InitializeCommon(stack_allocator &Allocator, int32 UnitSize, int32 UnitsPerBlock)
{
    memset(&Allocator, 0, sizeof(Allocator));
    if (UnitSize <= 0) {
        TesselError(LogCategory_StackAllocator, "%s is not allowed be <= 0", "UnitSize");
        return false;
    }
    if (UnitsPerBlock <= 0) {
        TesselError(LogCategory_StackAllocator, "%s is not allowed be <= 0", "UnitsPerBlock");
        return false;
    }
    Allocator.UnitSize = UnitSize;
    Allocator.UnitsPerBlock = UnitsPerBlock;
    Allocator.MaxUnits = -1;
    Allocator.ActiveBlocks = -1;
    Allocator.MaxActiveBlocks = -1;
    return true;
}

bool StackInitialize(stack_allocator &Allocator, int32 UnitSize, int32 UnitsPerBlock)
{
    return InitializeCommon(Allocator, UnitSize, UnitsPerBlock);
}

bool StackInitializeWithDirectory(stack_allocator &Allocator, int32 UnitSize, int32 UnitsPerBlock, int32 MaxUnits)
{
    if (!InitializeCommon(Allocator, UnitSize, UnitsPerBlock)) return false;
    if (MaxUnits < 0) {
        TesselError(LogCategory_StackAllocator, "%s is not allowed be < 0", "MaxUnits");
        return false;
    }
    Allocator.MaxUnits = MaxUnits;
    Allocator.ActiveBlocks = 0;
    Allocator.MaxActiveBlocks = (int32)(((int64)MaxUnits + UnitsPerBlock - 1) / UnitsPerBlock);
    if (Allocator.MaxActiveBlocks > 0) {
        Allocator.BlockDirectory = TesselAllocateArray(stack_block *, Allocator.MaxActiveBlocks);
        if (!Allocator.BlockDirectory) return false;
        memset(Allocator.BlockDirectory, 0, sizeof(stack_block *) * (size_t)Allocator.MaxActiveBlocks);
    }
    return true;
}

static stack_block *NewBlock(stack_allocator &Allocator)
{
    if (Allocator.MaxActiveBlocks >= 0 && Allocator.ActiveBlocks >= Allocator.MaxActiveBlocks) return 0;
    aggr_allocator Aggregate;
    stack_block *Block = 0;
    BeginAggregateAllocation(Aggregate);
    intaddrx BlockOffset = AggregateAllocate(Aggregate, &Block, sizeof(stack_block));
    AggregateAllocateMember(Aggregate, BlockOffset, TESSEL_OFFSET_OF(stack_block, Base),
                            (intaddrx)Allocator.UnitSize * Allocator.UnitsPerBlock);
    if (!EndAggregateAllocation(Aggregate)) return 0;
    Block->UsedUnitCount = 0;
    Block->FirstIndex = Allocator.TotalUsedUnitCount;
    Block->PreviousBlock = Allocator.LastBlock;
    Allocator.LastBlock = Block;
    if (Allocator.BlockDirectory) Allocator.BlockDirectory[Allocator.ActiveBlocks++] = Block;
    return Block;
}

void *NewStackUnit(stack_allocator &Allocator, int32 *ResultIndex)
{
    if (ResultIndex) *ResultIndex = -1;
    if (Allocator.UnitSize <= 0) return 0;
    if (Allocator.MaxUnits >= 0 && Allocator.TotalUsedUnitCount >= Allocator.MaxUnits) return 0;
    stack_block *Block = Allocator.LastBlock;
    if (!Block || Block->UsedUnitCount >= Allocator.UnitsPerBlock) {
        Block = NewBlock(Allocator);
        if (!Block) return 0;
    }
    void *Unit = Block->Base + (intaddrx)Block->UsedUnitCount * Allocator.UnitSize;
    ++Block->UsedUnitCount;
    if (ResultIndex) *ResultIndex = Allocator.TotalUsedUnitCount;
    ++Allocator.TotalUsedUnitCount;
    return Unit;
}

bool NewStackUnits(stack_allocator &Allocator, int32 Count, int32 *FirstIndex, void const *InitialValue)
{
    if (FirstIndex) *FirstIndex = -1;
    if (Count < 1) return false;
    int32 First = -1;
    for (int32 Index = 0; Index < Count; ++Index) {
        int32 UnitIndex;
        void *Unit = NewStackUnit(Allocator, &UnitIndex);
        if (!Unit) return false;
        if (Index == 0) First = UnitIndex;
        if (InitialValue) memcpy(Unit, InitialValue, (size_t)Allocator.UnitSize);
    }
    if (FirstIndex) *FirstIndex = First;
    return true;
}

void *GetStackUnit(stack_allocator &Allocator, int32 Index)
{
    CheckIndex(Index, Allocator.TotalUsedUnitCount, LogCategory_StackAllocator, 0);
    stack_block *Block;
    if (Allocator.BlockDirectory) {
        Block = Allocator.BlockDirectory[Index / Allocator.UnitsPerBlock];
    } else {
        Block = Allocator.LastBlock;
        while (Block->FirstIndex > Index) Block = Block->PreviousBlock;
    }
    return Block->Base + (intaddrx)(Index - Block->FirstIndex) * Allocator.UnitSize;
}

void PopStackUnits(stack_allocator &Allocator, int32 Count)
{
    if (Count > Allocator.TotalUsedUnitCount) Count = Allocator.TotalUsedUnitCount;
    while (Count > 0 && Allocator.LastBlock) {
        stack_block *Block = Allocator.LastBlock;
        if (Count >= Block->UsedUnitCount) {
            Count -= Block->UsedUnitCount;
            Allocator.TotalUsedUnitCount -= Block->UsedUnitCount;
            Allocator.LastBlock = Block->PreviousBlock;
            if (Allocator.BlockDirectory) Allocator.BlockDirectory[--Allocator.ActiveBlocks] = 0;
            TesselFree(Block);
        } else {
            Block->UsedUnitCount -= Count;
            Allocator.TotalUsedUnitCount -= Count;
            Count = 0;
        }
    }
}

int32 GetStackUnitCount(stack_allocator const &Allocator)
{
    return Allocator.TotalUsedUnitCount;
}

void SerializeStack(stack_allocator &Allocator, void *Destination)
{
    uint8 *End = (uint8 *)Destination + (intaddrx)Allocator.TotalUsedUnitCount * Allocator.UnitSize;
    for (stack_block *Block = Allocator.LastBlock; Block; Block = Block->PreviousBlock) {
        intaddrx Bytes = (intaddrx)Block->UsedUnitCount * Allocator.UnitSize;
        End -= Bytes;
        memcpy(End, Block->Base, (size_t)Bytes);
    }
}

void StackCleanUp(stack_allocator &Allocator)
{
    PopStackUnits(Allocator, Allocator.TotalUsedUnitCount);
    TesselFree(Allocator.BlockDirectory);
    Allocator.BlockDirectory = 0;
    if (Allocator.MaxActiveBlocks >= 0) Allocator.ActiveBlocks = 0;
}
