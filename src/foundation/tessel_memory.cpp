// Tracking allocator, aggregate allocator and memory arena.
#include "foundation/tessel_memory.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include "foundation/tessel_log.h"
#include "platform/tessel_platform.h"

namespace {

// The magic value also tells whether the block is in the live list: only
// the block's holder reads it, whereas a block's links change when its
// neighbours come and go.
uint32 const TrackingMagic = 0xCA5ECA5E;
uint32 const UnlistedMagic = 0xCA5ECA5F;

#pragma pack(push, 4)
struct tracking_header
{
    uint32 MagicValue;
    uintaddrx Size;
    void *ActualPointer;
    uintaddrx ActualSize;
    char const *SourceFile;
    int32 SourceLine;
    tracking_header *Previous;
    tracking_header *Next;
};
#pragma pack(pop)

#ifndef TESSEL_TRACK_ALLOCATIONS_DEFAULT
#ifdef NDEBUG
#define TESSEL_TRACK_ALLOCATIONS_DEFAULT false
#else
#define TESSEL_TRACK_ALLOCATIONS_DEFAULT true
#endif
#endif

// Every block carries a header and counts as live until freed; any thread
// may allocate and free. The list of live blocks (for leak reports naming
// the allocating line) is kept only while tracking is on; a block allocated
// while tracking was off is never listed and is freed without taking the
// lock.
tracking_header Sentinel = {TrackingMagic, 0, 0, 0, "", 0, &Sentinel, &Sentinel}; // under ListLock
std::mutex ListLock;
std::atomic<int32> LiveBlockCount{0};
std::atomic<bool> TrackingOn{TESSEL_TRACK_ALLOCATIONS_DEFAULT};
// Marks a freed block, so that a second free of it is reported.
uintaddrx const FreedSize = ~(uintaddrx)0;

} // namespace

allocate_hook AllocateHook = TrackingAllocate;
free_hook FreeHook = TrackingFree;

static std::atomic<int64> FailedAllocations{0};

void *HookedAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size)
{
    void *Memory = AllocateHook(File, Line, Alignment, Size);
    if (!Memory) FailedAllocations.fetch_add(1, std::memory_order_relaxed);
    return Memory;
}

int64 GetFailedAllocationCount()
{
    return FailedAllocations.load(std::memory_order_relaxed);
}

void SetAllocationTracking(bool On)
{
    TrackingOn.store(On, std::memory_order_relaxed);
}

bool IsAllocationTracking()
{
    return TrackingOn.load(std::memory_order_relaxed);
}

void *TrackingAllocate(char const *File, int32 Line, intaddrx Alignment, intaddrx Size)
{
    if (Alignment <= 0) Alignment = 4;
    if (Size < 0) {
        Log(LogLevel_Error, LogCategory_Memory, File, Line, "%s was not true", "Size >= 0");
        return 0;
    }
    intaddrx ActualSize = Size + Alignment + (intaddrx)sizeof(tracking_header) - 1;
    uint8 *Actual = (uint8 *)PlatformAllocate(ActualSize);
    if (!Actual) {
        Log(LogLevel_Error, LogCategory_Memory, __FILE__, __LINE__,
            "Unable to allocate %d bytes (%d requested by %s:%d).", (int32)ActualSize, (int32)Size, File, Line);
        return 0;
    }
    uintaddrx First = (uintaddrx)(Actual + sizeof(tracking_header));
    uintaddrx User = ((First + (uintaddrx)Alignment - 1) / (uintaddrx)Alignment) * (uintaddrx)Alignment;
    tracking_header *Header = (tracking_header *)(User - sizeof(tracking_header));
    bool Listed = TrackingOn.load(std::memory_order_relaxed);
    Header->MagicValue = Listed ? TrackingMagic : UnlistedMagic;
    Header->Size = (uintaddrx)Size;
    Header->ActualPointer = Actual;
    Header->ActualSize = (uintaddrx)ActualSize;
    Header->SourceFile = File;
    Header->SourceLine = Line;
    Header->Previous = 0;
    Header->Next = 0;
    LiveBlockCount.fetch_add(1, std::memory_order_relaxed);

    if (Listed) {
        std::lock_guard<std::mutex> Lock(ListLock);
        Header->Next = &Sentinel;
        Header->Previous = Sentinel.Previous;
        Sentinel.Previous->Next = Header;
        Sentinel.Previous = Header;
    }
    return (void *)User;
}

void TrackingFree(char const *File, int32 Line, void *Memory)
{
    if (!Memory) return;
    tracking_header *Header = (tracking_header *)((uint8 *)Memory - sizeof(tracking_header));
    void *Actual = 0;
    // A block is freed once, by the thread that holds it then, so its header
    // is read without the lock; only its links, which its neighbours change
    // too, need the lock. A visit may read a listed block's header: the block
    // leaves the list before it is marked freed.
    bool Known = Header->MagicValue == TrackingMagic || Header->MagicValue == UnlistedMagic;
    if (Known && Header->Size != FreedSize && Header != &Sentinel) {
        Actual = Header->ActualPointer;
        if (Header->MagicValue == TrackingMagic) {
            std::lock_guard<std::mutex> Lock(ListLock);
            Header->Previous->Next = Header->Next;
            Header->Next->Previous = Header->Previous;
        }
        Header->Size = FreedSize;
        LiveBlockCount.fetch_sub(1, std::memory_order_relaxed);
    }
    if (Actual) {
        PlatformFree(Actual);
    } else {
        Log(LogLevel_Error, LogCategory_Memory, __FILE__, __LINE__,
            "%s:%d Attempted to free 0x%x, which was not allocated by this allocator.", File, Line,
            (uint32)(uintaddrx)Memory);
    }
}

int32 GetLiveBlockCount()
{
    return LiveBlockCount.load(std::memory_order_relaxed);
}

void VisitLiveBlocks(void (*Visit)(live_block_info const &Block, void *UserData), void *UserData)
{
    std::lock_guard<std::mutex> Lock(ListLock);
    for (tracking_header *Header = Sentinel.Next; Header != &Sentinel; Header = Header->Next) {
        live_block_info Info = {(uint8 *)Header + sizeof(tracking_header), (intaddrx)Header->Size, Header->SourceFile,
                                Header->SourceLine};
        Visit(Info, UserData);
    }
}

// ---------------------------------------------------------------------------
// Aggregate allocation.

static intaddrx AlignUp(intaddrx Value, intaddrx Alignment)
{
    if (Alignment <= 0) return Value; // a wiped state
    return ((Value + Alignment - 1) / Alignment) * Alignment;
}

void BeginAggregateAllocation_(aggr_allocator &Allocator, char const *File, int32 Line)
{
    Allocator.AllocationAlignment = 4;
    Allocator.TotalAggregateSize = 0;
    Allocator.Count = 0;
    Allocator.ClearMemory = false;
}

void SetAggregateAlignment(aggr_allocator &Allocator, intaddrx Alignment)
{
    CheckCondition(Alignment > 0, LogCategory_Memory, TESSEL_NOTHING);
    Allocator.AllocationAlignment = Alignment;
}

void SetAggregateClear(aggr_allocator &Allocator)
{
    Allocator.ClearMemory = true;
}

static aggr_piece &AddPiece(aggr_allocator &Allocator, intaddrx Size)
{
    Allocator.TotalAggregateSize = AlignUp(Allocator.TotalAggregateSize, Allocator.AllocationAlignment);
    // Builders never use more than the fixed number of pieces; a runaway
    // caller reuses the last one rather than writing past the array.
    int32 const MaxPieces = TESSEL_ARRAY_COUNT(Allocator.Pieces);
    if (Allocator.Count >= MaxPieces) {
        TesselError(LogCategory_Memory, "%s %d is out of range [0, %d)", "Allocator.Count", Allocator.Count, MaxPieces);
        Allocator.Count = MaxPieces - 1;
    }
    aggr_piece &Piece = Allocator.Pieces[Allocator.Count++];
    Piece.IsAbsolute = false;
    Piece.ResultPointer = 0;
    Piece.OwnerOffset = 0;
    Piece.Offset = Allocator.TotalAggregateSize;
    Piece.Count = -1;
    Piece.CountOffset = 0;
    Allocator.TotalAggregateSize += Size;
    return Piece;
}

intaddrx AggregateAllocate_(aggr_allocator &Allocator, void **ResultPointer, intaddrx Size)
{
    aggr_piece &Piece = AddPiece(Allocator, Size);
    Piece.ResultPointer = ResultPointer;
    return Piece.Offset;
}

intaddrx AggregateAllocateMember(aggr_allocator &Allocator, intaddrx OwnerOffset, intaddrx MemberOffset, intaddrx Size)
{
    aggr_piece &Piece = AddPiece(Allocator, Size);
    Piece.OwnerOffset = OwnerOffset + MemberOffset;
    return Piece.Offset;
}

intaddrx AggregateAllocateArray(aggr_allocator &Allocator, intaddrx OwnerOffset, intaddrx CountOffset,
                                intaddrx PointerOffset, int32 Count, intaddrx UnitSize)
{
    aggr_piece &Piece = AddPiece(Allocator, (intaddrx)Count * UnitSize);
    Piece.OwnerOffset = OwnerOffset + PointerOffset;
    Piece.Count = Count;
    Piece.CountOffset = OwnerOffset + CountOffset;
    return Piece.Offset;
}

intaddrx EndAggregateSize_(aggr_allocator &Allocator, char const *File, int32 Line)
{
    intaddrx Total = AlignUp(Allocator.TotalAggregateSize, Allocator.AllocationAlignment);
    memset(&Allocator, 0, sizeof(Allocator));
    return Total;
}

static void ResolvePieces(aggr_allocator &Allocator, uint8 *Memory)
{
    for (int32 Index = 0; Index < Allocator.Count; ++Index) {
        aggr_piece &Piece = Allocator.Pieces[Index];
        void *Address = Piece.IsAbsolute ? (void *)Piece.Offset : (void *)(Memory + Piece.Offset);
        if (Piece.ResultPointer) {
            *Piece.ResultPointer = Address;
        } else {
            void *Stored = Address;
            if (Piece.Count != -1) {
                memcpy(Memory + Piece.CountOffset, &Piece.Count, sizeof(int32));
                if (Piece.Count == 0) Stored = 0;
            }
            memcpy(Memory + Piece.OwnerOffset, &Stored, sizeof(void *));
        }
    }
}

void *EndAggregateAllocation_(aggr_allocator &Allocator, char const *File, int32 Line)
{
    intaddrx Total = AlignUp(Allocator.TotalAggregateSize, Allocator.AllocationAlignment);
    uint8 *Memory = (uint8 *)HookedAllocate(File, Line, Allocator.AllocationAlignment, Total);
    if (!Memory) {
        for (int32 Index = 0; Index < Allocator.Count; ++Index) {
            if (Allocator.Pieces[Index].ResultPointer) *Allocator.Pieces[Index].ResultPointer = 0;
        }
        return 0;
    }
    if (Allocator.ClearMemory) memset(Memory, 0, (size_t)Total);
    ResolvePieces(Allocator, Memory);
    return Memory;
}

void *EndAggregatePlacement_(aggr_allocator &Allocator, char const *File, int32 Line, void *Memory)
{
    if (!Memory) {
        Log(LogLevel_Error, LogCategory_Memory, File, Line, "%s is not allowed to be NULL", "Memory");
        return 0;
    }
    intaddrx Total = AlignUp(Allocator.TotalAggregateSize, Allocator.AllocationAlignment);
    if (Allocator.ClearMemory) memset(Memory, 0, (size_t)Total);
    ResolvePieces(Allocator, (uint8 *)Memory);
    return Memory;
}

// ---------------------------------------------------------------------------
// Memory arena. Each block is a next pointer followed by the data.

memory_arena *NewMemoryArena()
{
    memory_arena *Arena = (memory_arena *)TesselAllocate(sizeof(memory_arena));
    if (Arena) {
        Arena->Alignment = 4;
        Arena->FirstBlock = 0;
    }
    return Arena;
}

void SetArenaAlignment(memory_arena *Arena, int32 Alignment)
{
    CheckPointer(Arena, LogCategory_MemoryArena, TESSEL_NOTHING);
    CheckCondition(Alignment > 0, LogCategory_MemoryArena, TESSEL_NOTHING);
    Arena->Alignment = Alignment;
}

void *ArenaAllocate(memory_arena *Arena, intaddrx Size)
{
    CheckPointer(Arena, LogCategory_MemoryArena, 0);
    CheckCondition(Size >= 0, LogCategory_MemoryArena, 0);
    if (Size == 0) return 0;
    intaddrx HeaderSize = AlignUp((intaddrx)sizeof(void *), Arena->Alignment);
    uint8 *Block = (uint8 *)TesselAllocateAligned(Arena->Alignment, HeaderSize + Size);
    if (!Block) return 0;
    *(void **)Block = Arena->FirstBlock;
    Arena->FirstBlock = Block;
    return Block + HeaderSize;
}

void *ArenaCopy(memory_arena *Arena, intaddrx Size, void const *Data)
{
    CheckCondition(Size > 0, LogCategory_MemoryArena, 0);
    CheckPointer(Data, LogCategory_MemoryArena, 0);
    void *Result = ArenaAllocate(Arena, Size);
    if (Result) memcpy(Result, Data, (size_t)Size);
    return Result;
}

char *ArenaCopyString(memory_arena *Arena, char const *String)
{
    CheckPointer(String, LogCategory_MemoryArena, 0);
    return (char *)ArenaCopy(Arena, (intaddrx)strlen(String) + 1, String);
}

void FreeMemoryArena(memory_arena *Arena)
{
    if (!Arena) return;
    void *Block = Arena->FirstBlock;
    while (Block) {
        void *Next = *(void **)Block;
        TesselFree(Block);
        Block = Next;
    }
    TesselFree(Arena);
}
