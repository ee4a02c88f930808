// Allocation hooks with the tracking allocator, the aggregate allocator
// (one object and all its arrays in one block) and the memory arena.
#pragma once

#include "foundation/tessel_types.h"

typedef void *(*allocate_hook)(char const *File, int32 Line, intaddrx Alignment, intaddrx Size);
typedef void (*free_hook)(char const *File, int32 Line, void *Memory);

// Replaceable; default to the tracking allocator. Set them before any
// other thread allocates.
extern allocate_hook AllocateHook;
extern free_hook FreeHook;

// Every allocation goes through the hook by way of HookedAllocate, which
// counts the ones the hook refuses: an export that met one is incomplete
// and must not be written, wherever the failure was swallowed.
void *HookedAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size);
// Refused allocations since the process started, on every thread.
int64 GetFailedAllocationCount();

#define TesselAllocate(Size) HookedAllocate(__FILE__, __LINE__, 4, (intaddrx)(Size))
#define TesselAllocateAligned(Alignment, Size) HookedAllocate(__FILE__, __LINE__, (intaddrx)(Alignment), (intaddrx)(Size))
#define TesselAllocateArray(Type, Count)                                                                               \
    ((Type *)HookedAllocate(__FILE__, __LINE__, 4, (intaddrx)sizeof(Type) * (intaddrx)(Count)))
#define TesselFree(Memory) FreeHook(__FILE__, __LINE__, (Memory))

// Tracking allocator: the defaults of the two hooks.
void *TrackingAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size);
void TrackingFree(char const *File, int32 Line, void *Memory);

// Live blocks of the tracking allocator (for leak checks). Any thread may
// allocate and free. The count of live blocks is always kept; the list of
// them (with the line that allocated each) only while tracking is on: off by
// default in optimised builds (NDEBUG), on in debug builds and in the test
// programs, which switch it on at start. A block allocated while tracking
// is off is never listed.
void SetAllocationTracking(bool On);
bool IsAllocationTracking();
struct live_block_info
{
    void *Memory;
    intaddrx Size;
    char const *SourceFile;
    int32 SourceLine;
};
int32 GetLiveBlockCount();
// Calls Visit for every listed live block, oldest first, under the list's
// lock: Visit must not allocate or free.
void VisitLiveBlocks(void (*Visit)(live_block_info const &Block, void *UserData), void *UserData);

// ---------------------------------------------------------------------------
// Aggregate allocation.

#pragma pack(push, 4)
struct aggr_piece
{
    bool8 IsAbsolute;
    void **ResultPointer;
    intaddrx OwnerOffset;
    intaddrx Offset;
    int32 Count;
    intaddrx CountOffset;
};

struct aggr_allocator
{
    intaddrx AllocationAlignment;
    intaddrx TotalAggregateSize;
    int32 Count;
    bool8 ClearMemory;
    aggr_piece Pieces[64];
};
#pragma pack(pop)

void BeginAggregateAllocation_(aggr_allocator &Allocator, char const *File, int32 Line);
void SetAggregateAlignment(aggr_allocator &Allocator, intaddrx Alignment);
void SetAggregateClear(aggr_allocator &Allocator);
intaddrx AggregateAllocate_(aggr_allocator &Allocator, void **ResultPointer, intaddrx Size);
intaddrx AggregateAllocateMember(aggr_allocator &Allocator, intaddrx OwnerOffset, intaddrx MemberOffset, intaddrx Size);
intaddrx AggregateAllocateArray(aggr_allocator &Allocator, intaddrx OwnerOffset, intaddrx CountOffset,
                                intaddrx PointerOffset, int32 Count, intaddrx UnitSize);
intaddrx EndAggregateSize_(aggr_allocator &Allocator, char const *File, int32 Line);
void *EndAggregateAllocation_(aggr_allocator &Allocator, char const *File, int32 Line);
void *EndAggregatePlacement_(aggr_allocator &Allocator, char const *File, int32 Line, void *Memory);

#define BeginAggregateAllocation(Allocator) BeginAggregateAllocation_((Allocator), __FILE__, __LINE__)
#define EndAggregateSize(Allocator) EndAggregateSize_((Allocator), __FILE__, __LINE__)
#define EndAggregateAllocation(Allocator) EndAggregateAllocation_((Allocator), __FILE__, __LINE__)
#define EndAggregatePlacement(Allocator, Memory) EndAggregatePlacement_((Allocator), __FILE__, __LINE__, (Memory))

// Typed helpers: the address goes to a caller's pointer variable of any type.
template <typename T>
inline intaddrx AggregateAllocate(aggr_allocator &Allocator, T **ResultPointer, intaddrx Size)
{
    return AggregateAllocate_(Allocator, (void **)ResultPointer, Size);
}
// Root record plus Count units of an array owned by it:
//   Offset = AggregateAllocate(Agg, &Mesh, sizeof(mesh));
//   AggregateAllocateArray(Agg, Offset, offsetof(mesh, VertexCount), offsetof(mesh, Vertices), N, sizeof(vertex));

// ---------------------------------------------------------------------------
// Memory arena: a list of blocks released together.

#pragma pack(push, 4)
struct memory_arena
{
    int32 Alignment;
    void *FirstBlock;
};
#pragma pack(pop)

memory_arena *NewMemoryArena();
void SetArenaAlignment(memory_arena *Arena, int32 Alignment);
void *ArenaAllocate(memory_arena *Arena, intaddrx Size);
void *ArenaCopy(memory_arena *Arena, intaddrx Size, void const *Data);
char *ArenaCopyString(memory_arena *Arena, char const *String);
void FreeMemoryArena(memory_arena *Arena);

template <typename T>
inline T *ArenaPush(memory_arena *Arena, int32 Count = 1)
{
    return (T *)ArenaAllocate(Arena, (intaddrx)sizeof(T) * Count);
}
