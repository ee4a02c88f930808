#include "animation/tessel_track_group_builder.h"

#include "animation/tessel_curve.h"
#include "animation/tessel_track_group.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

#include <algorithm>
#include <cstring>

namespace {

struct text_entry_node
{
    real32 TimeStamp;
    char const *Text;
    text_entry_node *Next;
};

struct vector_entry
{
    char const *Name;
    uint32 TrackKey;
    int32 Dimension;
    curve2 Curve;
    int32 CurveSize;
};

struct transform_entry
{
    char const *Name;
    uint32 Flags;
    curve2 Curves[3]; // position, orientation, scale/shear
    int32 CurveSizes[3];
};

struct text_entry
{
    char const *Name;
    int32 EntryCount;
    text_entry_node *First;
    text_entry_node *Last;
};

// A growing array of entry pointers; entries themselves live in the arena.
struct entry_list
{
    void **Items;
    int32 Count;
    int32 Capacity;
};

bool Append(entry_list &List, void *Item)
{
    if (List.Count == List.Capacity) {
        int32 NewCapacity = List.Capacity ? List.Capacity * 2 : 32;
        void **Items = (void **)TesselAllocate(sizeof(void *) * (intaddrx)NewCapacity);
        if (!Items) return false;
        if (List.Count) memcpy(Items, List.Items, sizeof(void *) * (size_t)List.Count);
        TesselFree(List.Items);
        List.Items = Items;
        List.Capacity = NewCapacity;
    }
    List.Items[List.Count++] = Item;
    return true;
}

void FreeList(entry_list &List)
{
    TesselFree(List.Items);
    List = entry_list{};
}

enum
{
    TrackGroupRecordSize = 172,
    VectorTrackRecordSize = 32,
    TransformTrackRecordSize = 60,
    TextTrackRecordSize = 20,
    TextEntryRecordSize = 12,
};
static_assert(sizeof(track_group) == TrackGroupRecordSize, "track_group record size");
static_assert(sizeof(vector_track) == VectorTrackRecordSize, "vector_track record size");
static_assert(sizeof(transform_track) == TransformTrackRecordSize, "transform_track record size");
static_assert(sizeof(text_track) == TextTrackRecordSize, "text_track record size");
static_assert(sizeof(text_track_entry) == TextEntryRecordSize, "text_track_entry record size");

inline int64 RoundUp4(int64 Size)
{
    return (Size + 3) & ~(int64)3;
}

// Bytes of the data record of a copy of Curve in a curve block; 0 for an
// empty or identity curve, which take no bytes.
int32 CurveBlockSize(curve2 const &Curve)
{
    if (!Curve.CurveData.Type || !Curve.CurveData.Object || CurveIsIdentity(Curve)) return 0;
    curve_builder Builder;
    BeginCurveCopyInPlace(Builder, Curve);
    return (int32)RoundUp4(GetResultingCurveDataSize(Builder));
}

// Copies Source's data record to Memory and points Target at it. Identity
// curves are taken over as they stand; empty ones stay empty.
void CopyCurveTo(curve2 &Target, curve2 const &Source, uint8 *Memory)
{
    if (!Source.CurveData.Type || !Source.CurveData.Object || CurveIsIdentity(Source)) {
        Target = Source;
        return;
    }
    curve_builder Builder;
    BeginCurveCopyInPlace(Builder, Source);
    if (!EndCurveInPlace(&Builder, &Target, Memory)) Target = curve2{};
}

} // namespace

struct track_group_builder
{
    memory_arena *Arena;
    char const *Name;
    int32 VectorTrackCount;
    entry_list VectorTracks;
    int32 TransformTrackCount;
    entry_list TransformTracks;
    int32 TextTrackCount;
    entry_list TextTracks;
    int32 TextEntryCount;
    int64 CurveDataSize;
    uint8 IncludeLODErrorSpace;
    transform_entry *CurrentTransformTrack;
    text_entry *CurrentTextTrack;
};

track_group_builder *BeginTrackGroup(char const *Name, int32 VectorTrackCount, int32 TransformTrackCount,
                                     int32 TextTrackCount, bool IncludeLODErrorSpace)
{
    track_group_builder *Builder = (track_group_builder *)TesselAllocate(sizeof(track_group_builder));
    if (!Builder) return 0;
    memset(Builder, 0, sizeof(*Builder));
    Builder->Arena = NewMemoryArena();
    if (!Builder->Arena) {
        TesselFree(Builder);
        return 0;
    }
    Builder->Name = Name;
    Builder->IncludeLODErrorSpace = IncludeLODErrorSpace ? 1 : 0;
    return Builder;
}

void AbortTrackGroup(track_group_builder *Builder)
{
    if (!Builder) return;
    FreeList(Builder->VectorTracks);
    FreeList(Builder->TransformTracks);
    FreeList(Builder->TextTracks);
    FreeMemoryArena(Builder->Arena);
    TesselFree(Builder);
}

void BeginTextTrack(track_group_builder *Builder, char const *Name)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    Builder->CurrentTextTrack = 0;
    text_entry *Entry = ArenaPush<text_entry>(Builder->Arena);
    if (!Entry) return;
    *Entry = text_entry{Name, 0, 0, 0};
    Builder->CurrentTextTrack = Entry;
}

void AddTextEntry(track_group_builder *Builder, real32 TimeStamp, char const *Text)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    text_entry *Track = Builder->CurrentTextTrack;
    if (!Track) return;
    text_entry_node *Node = ArenaPush<text_entry_node>(Builder->Arena);
    if (!Node) return;
    *Node = text_entry_node{TimeStamp, Text, 0};
    if (Track->Last) {
        Track->Last->Next = Node;
    } else {
        Track->First = Node;
    }
    Track->Last = Node;
    ++Track->EntryCount;
    ++Builder->TextEntryCount;
}

void EndTextTrack(track_group_builder *Builder)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    text_entry *Entry = Builder->CurrentTextTrack;
    if (!Entry) return;
    Builder->CurrentTextTrack = 0;
    if (Append(Builder->TextTracks, Entry)) ++Builder->TextTrackCount;
}

// A transform track that was begun and never ended is not part of the
// group: its curves stop counting.
static void DropOpenTransformTrack(track_group_builder *Builder)
{
    transform_entry *Entry = Builder->CurrentTransformTrack;
    if (!Entry) return;
    Builder->CurveDataSize -= Entry->CurveSizes[0] + Entry->CurveSizes[1] + Entry->CurveSizes[2];
    Builder->CurrentTransformTrack = 0;
}

void BeginTransformTrack(track_group_builder *Builder, char const *Name, uint32 Flags)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    DropOpenTransformTrack(Builder);
    transform_entry *Entry = ArenaPush<transform_entry>(Builder->Arena);
    if (!Entry) return;
    memset(Entry, 0, sizeof(*Entry));
    Entry->Name = Name;
    Entry->Flags = Flags;
    Builder->CurrentTransformTrack = Entry;
}

// The builder's own copy of Curve in Target (whose old copy, if any, stops
// counting).
static void KeepCurveCopy(track_group_builder *Builder, curve2 &Target, int32 &TargetSize, curve2 const &Curve)
{
    Builder->CurveDataSize -= TargetSize;
    Target = curve2{};
    TargetSize = 0;
    if (!Curve.CurveData.Type || !Curve.CurveData.Object) return;
    if (CurveIsIdentity(Curve)) {
        if (SetSharedIdentityCurve(Target, CurveGetDimension(Curve))) return;
    }
    int32 Size = CurveBlockSize(Curve);
    if (Size <= 0) return;
    uint8 *Memory = (uint8 *)ArenaAllocate(Builder->Arena, Size);
    if (!Memory) return;
    memset(Memory, 0, (size_t)Size);
    CopyCurveTo(Target, Curve, Memory);
    if (!Target.CurveData.Object) return;
    TargetSize = Size;
    Builder->CurveDataSize += Size;
}

static void SetTransformCurve(track_group_builder *Builder, int32 Slot, curve2 const &Curve)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    transform_entry *Entry = Builder->CurrentTransformTrack;
    if (!Entry) return;
    KeepCurveCopy(Builder, Entry->Curves[Slot], Entry->CurveSizes[Slot], Curve);
}

void SetTransformTrackPositionCurve(track_group_builder *Builder, curve2 const &Curve)
{
    SetTransformCurve(Builder, 0, Curve);
}
void SetTransformTrackOrientationCurve(track_group_builder *Builder, curve2 const &Curve)
{
    SetTransformCurve(Builder, 1, Curve);
}
void SetTransformTrackScaleShearCurve(track_group_builder *Builder, curve2 const &Curve)
{
    SetTransformCurve(Builder, 2, Curve);
}

void EndTransformTrack(track_group_builder *Builder)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    transform_entry *Entry = Builder->CurrentTransformTrack;
    if (!Entry) return;
    Builder->CurrentTransformTrack = 0;
    if (Append(Builder->TransformTracks, Entry)) {
        ++Builder->TransformTrackCount;
    } else {
        Builder->CurveDataSize -= Entry->CurveSizes[0] + Entry->CurveSizes[1] + Entry->CurveSizes[2];
    }
}

void PushVectorTrackCurve(track_group_builder *Builder, char const *Name, uint32 TrackKey, curve2 const &Curve)
{
    CheckPointer(Builder, LogCategory_TrackGroups, TESSEL_NOTHING);
    vector_entry *Entry = ArenaPush<vector_entry>(Builder->Arena);
    if (!Entry) return;
    memset(Entry, 0, sizeof(*Entry));
    Entry->Name = Name;
    Entry->TrackKey = TrackKey;
    Entry->Dimension = CurveGetDimension(Curve);
    KeepCurveCopy(Builder, Entry->Curve, Entry->CurveSize, Curve);
    if (!Append(Builder->VectorTracks, Entry)) {
        Builder->CurveDataSize -= Entry->CurveSize;
        return;
    }
    ++Builder->VectorTrackCount;
}

namespace {

template <typename entry>
void SortEntries(entry_list &List, int32 Count)
{
    entry **Items = (entry **)List.Items;
    std::stable_sort(Items, Items + Count,
                     [](entry const *A, entry const *B) { return CompareTrackNames(A->Name, B->Name) < 0; });
}

// Entries of the closed text tracks only (a track left open is dropped).
int32 ClosedTextEntryCount(track_group_builder const &Builder)
{
    int32 Count = 0;
    for (int32 Index = 0; Index < Builder.TextTrackCount; ++Index) {
        Count += ((text_entry const *)Builder.TextTracks.Items[Index])->EntryCount;
    }
    return Count;
}

// The size of what End will write: tracks left open don't count.
int64 ResultingSize64(track_group_builder const &Builder)
{
    int64 Size = TrackGroupRecordSize;
    Size += (int64)Builder.VectorTrackCount * VectorTrackRecordSize;
    if (Builder.IncludeLODErrorSpace) Size += (int64)Builder.TransformTrackCount * 4;
    Size += (int64)Builder.TransformTrackCount * TransformTrackRecordSize;
    Size += (int64)Builder.TextTrackCount * TextTrackRecordSize;
    Size += (int64)ClosedTextEntryCount(Builder) * TextEntryRecordSize;
    Size += Builder.CurveDataSize;
    if (transform_entry const *Open = Builder.CurrentTransformTrack) {
        Size -= Open->CurveSizes[0] + Open->CurveSizes[1] + Open->CurveSizes[2];
    }
    return Size;
}

void FillRecord(track_group &Group, track_group_builder const &Builder)
{
    Group.Name = (char *)Builder.Name;
    Group.VectorTrackCount = Builder.VectorTrackCount;
    Group.TransformTrackCount = Builder.TransformTrackCount;
    Group.TransformLODErrorCount = Builder.IncludeLODErrorSpace ? Builder.TransformTrackCount : 0;
    Group.TextTrackCount = Builder.TextTrackCount;
    Group.AccumulationFlags = TrackGroup_SortedByName;
    Group.PeriodicLoop = 0;
    Group.RootMotion = 0;
    Group.ExtendedData = variant{};
    uint32 Largest = 0x7F0FFFFFu;
    for (int32 Index = 0; Index < Group.TransformLODErrorCount; ++Index) {
        memcpy(&Group.TransformLODErrors[Index], &Largest, 4);
    }
}

// Prepares the lists for output: drops the tracks left open and sorts.
void PrepareForEnd(track_group_builder &Builder)
{
    DropOpenTransformTrack(&Builder);
    Builder.CurrentTextTrack = 0;
    Builder.TextEntryCount = ClosedTextEntryCount(Builder);
    SortEntries<vector_entry>(Builder.VectorTracks, Builder.VectorTrackCount);
    SortEntries<transform_entry>(Builder.TransformTracks, Builder.TransformTrackCount);
    SortEntries<text_entry>(Builder.TextTracks, Builder.TextTrackCount);
}

} // namespace

int32 GetResultingTrackGroupSize(track_group_builder const *Builder)
{
    CheckPointer(Builder, LogCategory_TrackGroups, 0);
    int64 Total = ResultingSize64(*Builder);
    int32 ResultingSize = 0;
    CheckConvertToInt32(ResultingSize, Total, LogCategory_TrackGroups, 0);
    return ResultingSize;
}

track_group *EndTrackGroupInPlace(track_group_builder *Builder, void *Memory)
{
    CheckPointer(Builder, LogCategory_TrackGroups, 0);
    if (!Memory) {
        TesselError(LogCategory_TrackGroups, "%s is not allowed to be NULL", "Memory");
        AbortTrackGroup(Builder);
        return 0;
    }
    PrepareForEnd(*Builder);
    int64 Size = ResultingSize64(*Builder);
    uint8 *Bytes = (uint8 *)Memory;
    memset(Bytes, 0, (size_t)Size);
    track_group *Group = (track_group *)Bytes;
    int64 Offset = TrackGroupRecordSize;
    Group->VectorTracks = Builder->VectorTrackCount ? (vector_track *)(Bytes + Offset) : 0;
    Offset += (int64)Builder->VectorTrackCount * VectorTrackRecordSize;
    if (Builder->IncludeLODErrorSpace) {
        Group->TransformLODErrors = Builder->TransformTrackCount ? (real32 *)(Bytes + Offset) : 0;
        Offset += (int64)Builder->TransformTrackCount * 4;
    }
    Group->TransformTracks = Builder->TransformTrackCount ? (transform_track *)(Bytes + Offset) : 0;
    Offset += (int64)Builder->TransformTrackCount * TransformTrackRecordSize;
    Group->TextTracks = Builder->TextTrackCount ? (text_track *)(Bytes + Offset) : 0;
    Offset += (int64)Builder->TextTrackCount * TextTrackRecordSize;
    uint8 *Entries = Bytes + Offset;
    Offset += (int64)Builder->TextEntryCount * TextEntryRecordSize;
    uint8 *CurveBlock = Bytes + Offset;

    for (int32 Index = 0; Index < Builder->VectorTrackCount; ++Index) {
        vector_entry const &Entry = *(vector_entry const *)Builder->VectorTracks.Items[Index];
        vector_track &Track = Group->VectorTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.TrackKey = Entry.TrackKey;
        Track.Dimension = Entry.Dimension;
        CopyCurveTo(Track.ValueCurve, Entry.Curve, CurveBlock);
        CurveBlock += Entry.CurveSize;
    }
    for (int32 Index = 0; Index < Builder->TransformTrackCount; ++Index) {
        transform_entry const &Entry = *(transform_entry const *)Builder->TransformTracks.Items[Index];
        transform_track &Track = Group->TransformTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.Flags = (int32)Entry.Flags;
        curve2 *Targets[3] = {&Track.PositionCurve, &Track.OrientationCurve, &Track.ScaleShearCurve};
        for (int32 Slot = 0; Slot < 3; ++Slot) {
            CopyCurveTo(*Targets[Slot], Entry.Curves[Slot], CurveBlock);
            CurveBlock += Entry.CurveSizes[Slot];
        }
    }
    for (int32 Index = 0; Index < Builder->TextTrackCount; ++Index) {
        text_entry const &Entry = *(text_entry const *)Builder->TextTracks.Items[Index];
        text_track &Track = Group->TextTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.EntryCount = Entry.EntryCount;
        Track.Entries = Entry.EntryCount ? (text_track_entry *)Entries : 0;
        int32 Slot = 0;
        for (text_entry_node const *Node = Entry.First; Node && Slot < Entry.EntryCount; Node = Node->Next, ++Slot) {
            Track.Entries[Slot].TimeStamp = Node->TimeStamp;
            Track.Entries[Slot].Text = (char *)Node->Text;
        }
        Entries += (int64)Entry.EntryCount * TextEntryRecordSize;
    }
    FillRecord(*Group, *Builder);
    AbortTrackGroup(Builder);
    return Group;
}

track_group *EndTrackGroup(track_group_builder *Builder, memory_arena *Arena)
{
    if (!Builder) return 0;
    if (!Arena) {
        TesselError(LogCategory_TrackGroups, "%s is not allowed to be NULL", "Arena");
        AbortTrackGroup(Builder);
        return 0;
    }
    PrepareForEnd(*Builder);
    bool Failed = false;
    auto Push = [&](int64 Size) -> uint8 * {
        if (Size <= 0 || Failed) return 0;
        uint8 *Memory = (uint8 *)ArenaAllocate(Arena, (intaddrx)Size);
        if (!Memory) {
            Failed = true;
            return 0;
        }
        memset(Memory, 0, (size_t)Size);
        return Memory;
    };
    track_group *Group = (track_group *)Push(TrackGroupRecordSize);
    if (!Group) {
        AbortTrackGroup(Builder);
        return 0;
    }
    Group->VectorTracks = (vector_track *)Push((int64)Builder->VectorTrackCount * VectorTrackRecordSize);
    if (Builder->IncludeLODErrorSpace) {
        Group->TransformLODErrors = (real32 *)Push((int64)Builder->TransformTrackCount * 4);
    }
    Group->TransformTracks = (transform_track *)Push((int64)Builder->TransformTrackCount * TransformTrackRecordSize);
    Group->TextTracks = (text_track *)Push((int64)Builder->TextTrackCount * TextTrackRecordSize);
    if (Failed) {
        AbortTrackGroup(Builder);
        return 0;
    }
    for (int32 Index = 0; Index < Builder->VectorTrackCount && !Failed; ++Index) {
        vector_entry const &Entry = *(vector_entry const *)Builder->VectorTracks.Items[Index];
        vector_track &Track = Group->VectorTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.TrackKey = Entry.TrackKey;
        Track.Dimension = Entry.Dimension;
        uint8 *Memory = Entry.CurveSize ? Push(Entry.CurveSize) : 0;
        CopyCurveTo(Track.ValueCurve, Entry.Curve, Memory);
    }
    for (int32 Index = 0; Index < Builder->TransformTrackCount && !Failed; ++Index) {
        transform_entry const &Entry = *(transform_entry const *)Builder->TransformTracks.Items[Index];
        transform_track &Track = Group->TransformTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.Flags = (int32)Entry.Flags;
        int32 Total = Entry.CurveSizes[0] + Entry.CurveSizes[1] + Entry.CurveSizes[2];
        uint8 *Memory = Total ? Push(Total) : 0;
        curve2 *Targets[3] = {&Track.PositionCurve, &Track.OrientationCurve, &Track.ScaleShearCurve};
        for (int32 Slot = 0; Slot < 3 && !Failed; ++Slot) {
            CopyCurveTo(*Targets[Slot], Entry.Curves[Slot], Memory);
            if (Memory) Memory += Entry.CurveSizes[Slot];
        }
    }
    for (int32 Index = 0; Index < Builder->TextTrackCount && !Failed; ++Index) {
        text_entry const &Entry = *(text_entry const *)Builder->TextTracks.Items[Index];
        text_track &Track = Group->TextTracks[Index];
        Track.Name = (char *)Entry.Name;
        Track.EntryCount = Entry.EntryCount;
        Track.Entries = (text_track_entry *)Push((int64)Entry.EntryCount * TextEntryRecordSize);
        int32 Slot = 0;
        for (text_entry_node const *Node = Entry.First; Node && Track.Entries && Slot < Entry.EntryCount;
             Node = Node->Next, ++Slot) {
            Track.Entries[Slot].TimeStamp = Node->TimeStamp;
            Track.Entries[Slot].Text = (char *)Node->Text;
        }
    }
    if (Failed) {
        AbortTrackGroup(Builder);
        return 0;
    }
    FillRecord(*Group, *Builder);
    AbortTrackGroup(Builder);
    return Group;
}
