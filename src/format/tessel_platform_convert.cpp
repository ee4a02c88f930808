// Platform conversion: a loaded file (any platform, its data in this
// machine's byte order) is walked through its own type tables; every object,
// array, pointer array, string and type table it reaches becomes an extent.
// Extents keep their order within each section stream and are re-laid for
// the target's pointer size, every field written in the target's byte order
// by its member kind. Fixups and marshalling records are translated in the
// order the source stores them, and the target is laid out like a built
// file, so that a conversion and its way back give the original bytes.
#include "format/tessel_platform_convert.h"

#include <cstdlib>
#include <cstring>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_compressor.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

namespace {

enum
{
    ConversionCategory = LogCategory_DataTypes,
    // Member operations of all flattened types together; more is refused.
    MaxMemberOperations = 1 << 22,
    MaxObjectBytes = 1 << 30,
    // Kinds of extent.
    ExtentObjects = 0,
    ExtentTypeTable = 1,
    ExtentString = 2,
    ExtentPointerArray = 3,
    // Kind of a member operation that copies a run of scalars.
    ScalarRun = -1,
    NoIndex = 0xFFFFFFFFu,
};

bool HostIsLittleEndian()
{
    uint16 Probe = 1;
    uint8 First;
    memcpy(&First, &Probe, 1);
    return First == 1;
}

uint32 AlignUp4(uint32 Value)
{
    return (Value + 3u) & ~3u;
}

// ---------------------------------------------------------------------------
// Growable arrays and a location map.

template <typename T>
struct grow_array
{
    T *Items;
    uint32 Count;
    uint32 Capacity;
};

template <typename T>
bool Push(grow_array<T> &Array, T const &Value)
{
    if (Array.Count == Array.Capacity) {
        uint32 NewCapacity = Array.Capacity ? Array.Capacity * 2 : 64;
        if (NewCapacity < Array.Capacity) return false;
        T *Items = TesselAllocateArray(T, NewCapacity);
        if (!Items) return false;
        if (Array.Items) {
            memcpy(Items, Array.Items, sizeof(T) * Array.Count);
            TesselFree(Array.Items);
        }
        Array.Items = Items;
        Array.Capacity = NewCapacity;
    }
    Array.Items[Array.Count++] = Value;
    return true;
}

template <typename T>
void Release(grow_array<T> &Array)
{
    if (Array.Items) TesselFree(Array.Items);
    memset(&Array, 0, sizeof(Array));
}

uint64 KeyOf(file_section_reference Location)
{
    return ((uint64)Location.SectionIndex << 32) | Location.Offset;
}

uint64 const EmptyKey = ~0ull;

struct location_map
{
    uint64 *Keys;
    uint32 *Values;
    uint32 Capacity;
    uint32 Count;
};

uint32 HashKey(uint64 Key)
{
    Key *= 0x9E3779B97F4A7C15ull;
    return (uint32)(Key >> 32);
}

bool Find(location_map const &Map, uint64 Key, uint32 *Value)
{
    if (!Map.Capacity) return false;
    for (uint32 Slot = HashKey(Key) & (Map.Capacity - 1);; Slot = (Slot + 1) & (Map.Capacity - 1)) {
        if (Map.Keys[Slot] == EmptyKey) return false;
        if (Map.Keys[Slot] == Key) {
            *Value = Map.Values[Slot];
            return true;
        }
    }
}

void PlaceKey(uint64 *Keys, uint32 *Values, uint32 Capacity, uint64 Key, uint32 Value)
{
    uint32 Slot = HashKey(Key) & (Capacity - 1);
    while (Keys[Slot] != EmptyKey) Slot = (Slot + 1) & (Capacity - 1);
    Keys[Slot] = Key;
    Values[Slot] = Value;
}

// Key must not be in the map yet.
bool Insert(location_map &Map, uint64 Key, uint32 Value)
{
    if ((uint64)(Map.Count + 1) * 2 > Map.Capacity) {
        uint32 NewCapacity = Map.Capacity ? Map.Capacity * 2 : 1024;
        uint64 *Keys = TesselAllocateArray(uint64, NewCapacity);
        uint32 *Values = TesselAllocateArray(uint32, NewCapacity);
        if (!Keys || !Values) {
            if (Keys) TesselFree(Keys);
            if (Values) TesselFree(Values);
            return false;
        }
        memset(Keys, 0xFF, sizeof(uint64) * NewCapacity);
        for (uint32 Slot = 0; Slot < Map.Capacity; ++Slot) {
            if (Map.Keys[Slot] != EmptyKey) PlaceKey(Keys, Values, NewCapacity, Map.Keys[Slot], Map.Values[Slot]);
        }
        if (Map.Keys) TesselFree(Map.Keys);
        if (Map.Values) TesselFree(Map.Values);
        Map.Keys = Keys;
        Map.Values = Values;
        Map.Capacity = NewCapacity;
    }
    PlaceKey(Map.Keys, Map.Values, Map.Capacity, Key, Value);
    ++Map.Count;
    return true;
}

void Release(location_map &Map)
{
    if (Map.Keys) TesselFree(Map.Keys);
    if (Map.Values) TesselFree(Map.Values);
    memset(&Map, 0, sizeof(Map));
}

// ---------------------------------------------------------------------------
// State.

// One leaf member of a flattened type: a run of scalars of one unit, or a
// member that holds pointer slots.
struct member_op
{
    int32 Kind; // ScalarRun or the member kind
    uint32 Unit;
    uint32 SourceOffset;
    uint32 DestOffset;
    uint32 Size; // bytes of a scalar run
    bool8 HasReferenceType;
    file_section_reference ReferenceType;
};

struct type_layout
{
    uint32 SourceSize;
    uint32 DestSize;
    uint32 FirstOp;
    uint32 OpCount;
    bool8 HasReferences;
};

struct extent
{
    file_section_reference Source;
    int32 Kind;
    uint32 Count; // elements
    uint32 SourceUnit;
    uint32 DestUnit;
    uint32 Layout; // objects: index of the type layout
    uint32 Stream;
    uint32 DestOffset;
};

struct work_item
{
    int32 Kind;
    file_section_reference Type;
    file_section_reference Location;
    uint32 Count;
};

struct section_conversion
{
    uint32 SourceStreamStart[StreamCount + 1];
    uint32 StreamSize[StreamCount];
    uint32 StreamOffset[StreamCount];
    uint32 Alignment;
    file_section_header Header;
    uint8 *Data;
    uint8 *Stored;
    int32 StoredSize;
    grow_array<file_pointer_fixup> Fixups;
    grow_array<file_mixed_marshalling_fixup> Marshallings;
};

// Offsets of the fields of a type table member record for a pointer size.
struct member_record_layout
{
    uint32 Size;
    uint32 Name;
    uint32 Reference;
    uint32 Width;
    uint32 Extra;
    uint32 Ignored;
};

member_record_layout const MemberRecord64 = {44, 4, 12, 20, 24, 36};
member_record_layout const MemberRecord32 = {32, 4, 8, 12, 16, 28};

struct platform_conversion
{
    loaded_file const *File;
    bool ByteReversed; // the target's byte order is not this machine's
    int32 SourcePointerBits;
    uint32 SourcePointerSize;
    bool SourceLittleEndian;
    int32 DestPointerBits;
    uint32 DestPointerSize;
    bool DestLittleEndian;
    member_record_layout SourceMember;
    member_record_layout DestMember;

    grow_array<extent> Extents;
    location_map ExtentMap;
    // Objects of no bytes: they take no space and stand where the next
    // object of their stream starts.
    location_map EmptyObjects;
    grow_array<type_layout> Layouts;
    location_map LayoutMap;
    grow_array<member_op> Ops;
    grow_array<work_item> Pending;
    uint32 *Sorted; // extents that take space, by source location
    uint32 SortedCount;
    int32 SectionCount;
    section_conversion *Sections;
    // Compression of the target's sections when not the source's.
    int32 FormatCount;
    uint32 const *Formats;
};

void FreeConversion(platform_conversion &State)
{
    Release(State.Extents);
    Release(State.ExtentMap);
    Release(State.EmptyObjects);
    Release(State.Layouts);
    Release(State.LayoutMap);
    Release(State.Ops);
    Release(State.Pending);
    if (State.Sorted) TesselFree(State.Sorted);
    for (int32 Index = 0; State.Sections && Index < State.SectionCount; ++Index) {
        section_conversion &Section = State.Sections[Index];
        if (Section.Data) TesselFree(Section.Data);
        if (Section.Stored) FreeMemoryWriterBuffer(Section.Stored);
        Release(Section.Fixups);
        Release(Section.Marshallings);
    }
    if (State.Sections) TesselFree(State.Sections);
    memset(&State, 0, sizeof(State));
}

file_section_reference Advance(file_section_reference Location, uint32 Delta)
{
    Location.Offset += Delta;
    return Location;
}

// ---------------------------------------------------------------------------
// Type layouts: the members of a type flattened over its inline members,
// with their offsets in both pointer sizes.

bool BuildLayout(platform_conversion &State, file_section_reference Type, int32 Depth, uint32 *Result);

bool AppendOp(grow_array<member_op> &Ops, member_op const &Op)
{
    if (Op.Kind == ScalarRun && Ops.Count) {
        member_op &Last = Ops.Items[Ops.Count - 1];
        if (Last.Kind == ScalarRun && Last.Unit == Op.Unit && Last.SourceOffset + Last.Size == Op.SourceOffset &&
            Last.DestOffset + Last.Size == Op.DestOffset) {
            Last.Size += Op.Size;
            return true;
        }
    }
    return Ops.Count < (uint32)MaxMemberOperations && Push(Ops, Op);
}

bool CollectOps(platform_conversion &State, file_section_reference Type, int32 Depth, grow_array<member_op> &Ops,
                uint32 *SourceSize, uint32 *DestSize, bool *HasReferences)
{
    loaded_file const &File = *State.File;
    uint64 SourceOffset = 0, DestOffset = 0;
    for (int32 MemberIndex = 0;; ++MemberIndex) {
        file_type_member Member;
        if (!ReadFileTypeMemberRecord(File, Type, MemberIndex, &Member)) return false;
        if (Member.Kind == EndMember) break;
        if (Member.Kind == InlineMember) {
            uint32 Inner = 0;
            if (!Member.HasReferenceType || !BuildLayout(State, Member.ReferenceType, Depth + 1, &Inner)) return false;
            type_layout const Layout = State.Layouts.Items[Inner];
            for (int32 Element = 0; Element < Member.ArrayWidth; ++Element) {
                for (uint32 Index = 0; Index < Layout.OpCount; ++Index) {
                    member_op Op = State.Ops.Items[Layout.FirstOp + Index];
                    Op.SourceOffset += (uint32)SourceOffset;
                    Op.DestOffset += (uint32)DestOffset;
                    if (!AppendOp(Ops, Op)) return false;
                }
                SourceOffset += Layout.SourceSize;
                DestOffset += Layout.DestSize;
                if (SourceOffset > (uint64)MaxObjectBytes) return false;
            }
            *HasReferences = *HasReferences || Layout.HasReferences;
            continue;
        }
        int32 SourceUnit = GetFileMemberKindSize(Member.Kind, State.SourcePointerBits);
        int32 DestUnit = GetFileMemberKindSize(Member.Kind, State.DestPointerBits);
        if (SourceUnit <= 0 || DestUnit <= 0) return false;
        bool Reference = SourceUnit != DestUnit || Member.Kind == ReferenceMember || Member.Kind == StringMember ||
                         Member.Kind == EmptyReferenceMember || Member.Kind == VariantReferenceMember ||
                         Member.Kind == ReferenceToArrayMember || Member.Kind == ArrayOfReferencesMember ||
                         Member.Kind == ReferenceToVariantArrayMember;
        for (int32 Element = 0; Element < Member.ArrayWidth; ++Element) {
            member_op Op;
            memset(&Op, 0, sizeof(Op));
            Op.SourceOffset = (uint32)SourceOffset;
            Op.DestOffset = (uint32)DestOffset;
            if (Reference) {
                Op.Kind = Member.Kind;
                Op.HasReferenceType = Member.HasReferenceType;
                Op.ReferenceType = Member.ReferenceType;
                *HasReferences = true;
            } else {
                Op.Kind = ScalarRun;
                Op.Unit = (uint32)GetFileMemberKindMarshalling(Member.Kind);
                Op.Size = (uint32)SourceUnit;
            }
            if (!AppendOp(Ops, Op)) return false;
            SourceOffset += (uint32)SourceUnit;
            DestOffset += (uint32)DestUnit;
            if (SourceOffset > (uint64)MaxObjectBytes) return false;
        }
    }
    *SourceSize = (uint32)SourceOffset;
    *DestSize = (uint32)DestOffset;
    return true;
}

bool BuildLayout(platform_conversion &State, file_section_reference Type, int32 Depth, uint32 *Result)
{
    if (Find(State.LayoutMap, KeyOf(Type), Result)) return true;
    if (Depth > MaxFileTypeDepth) {
        TesselError(ConversionCategory, "PlatformConversion: type at (%d, %d) nests too deeply", Type.SectionIndex,
                    Type.Offset);
        return false;
    }
    grow_array<member_op> Ops;
    memset(&Ops, 0, sizeof(Ops));
    type_layout Layout;
    memset(&Layout, 0, sizeof(Layout));
    bool HasReferences = false;
    bool Built = CollectOps(State, Type, Depth, Ops, &Layout.SourceSize, &Layout.DestSize, &HasReferences);
    // An inner type may have been laid out on the way (or, for a type that
    // holds itself, refused by the depth limit).
    if (Built && Find(State.LayoutMap, KeyOf(Type), Result)) {
        Release(Ops);
        return true;
    }
    Layout.FirstOp = State.Ops.Count;
    Layout.OpCount = Ops.Count;
    Layout.HasReferences = HasReferences;
    for (uint32 Index = 0; Built && Index < Ops.Count; ++Index) {
        Built = State.Ops.Count < (uint32)MaxMemberOperations && Push(State.Ops, Ops.Items[Index]);
    }
    Release(Ops);
    *Result = State.Layouts.Count;
    Built = Built && Push(State.Layouts, Layout) && Insert(State.LayoutMap, KeyOf(Type), *Result);
    if (!Built) {
        TesselError(ConversionCategory, "PlatformConversion: unable to lay out the type at (%d, %d)", Type.SectionIndex,
                    Type.Offset);
    }
    return Built;
}

// ---------------------------------------------------------------------------
// First pass: every extent reachable from the roots.

bool Queue(platform_conversion &State, int32 Kind, file_section_reference Type, file_section_reference Location,
           uint32 Count)
{
    work_item Item = {Kind, Type, Location, Count};
    return Push(State.Pending, Item);
}

bool ReadCount(platform_conversion &State, file_section_reference Slot, uint32 *Count)
{
    uint8 const *Bytes = GetLoadedFileBytes(*State.File, Slot, 4);
    if (!Bytes) return false;
    memcpy(Count, Bytes, 4);
    return true;
}

bool Resolve(platform_conversion &State, file_section_reference Slot, file_section_reference *Target)
{
    return ResolveFilePointer(*State.File, Slot, Target);
}

// Queues what the pointer members of one element lead to.
bool QueueTargets(platform_conversion &State, type_layout const &Layout, file_section_reference Element)
{
    uint32 const P = State.SourcePointerSize;
    bool Result = true;
    for (uint32 Index = 0; Result && Index < Layout.OpCount; ++Index) {
        member_op const &Op = State.Ops.Items[Layout.FirstOp + Index];
        file_section_reference Slot = Advance(Element, Op.SourceOffset), Target, VariantType;
        uint32 Count = 0;
        switch (Op.Kind) {
        case ReferenceMember:
            if (Op.HasReferenceType && Resolve(State, Slot, &Target)) {
                Result = Queue(State, ExtentObjects, Op.ReferenceType, Target, 1);
            }
            break;
        case StringMember:
            if (Resolve(State, Slot, &Target)) Result = Queue(State, ExtentString, Target, Target, 1);
            break;
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
            Result = ReadCount(State, Slot, &Count);
            if (Result && Count && Op.HasReferenceType && Resolve(State, Advance(Slot, 4), &Target)) {
                Result = Queue(State, Op.Kind == ReferenceToArrayMember ? ExtentObjects : ExtentPointerArray,
                               Op.ReferenceType, Target, Count);
            }
            break;
        case VariantReferenceMember:
            if (Resolve(State, Slot, &VariantType)) {
                Result = Queue(State, ExtentTypeTable, VariantType, VariantType, 1);
                if (Result && Resolve(State, Advance(Slot, P), &Target)) {
                    Result = Queue(State, ExtentObjects, VariantType, Target, 1);
                }
            }
            break;
        case ReferenceToVariantArrayMember:
            if (Resolve(State, Slot, &VariantType)) {
                Result = Queue(State, ExtentTypeTable, VariantType, VariantType, 1) &&
                         ReadCount(State, Advance(Slot, P), &Count);
                if (Result && Count && Resolve(State, Advance(Slot, P + 4), &Target)) {
                    Result = Queue(State, ExtentObjects, VariantType, Target, Count);
                }
            }
            break;
        default: break;
        }
    }
    return Result;
}

bool AddExtent(platform_conversion &State, extent const &Extent)
{
    uint64 Bytes = (uint64)Extent.Count * Extent.SourceUnit;
    if (Bytes > (uint64)MaxObjectBytes || (Bytes && !GetLoadedFileBytes(*State.File, Extent.Source, (uint32)Bytes))) {
        TesselError(ConversionCategory, "PlatformConversion: an object at (%d, %d) runs out of its section",
                    Extent.Source.SectionIndex, Extent.Source.Offset);
        return false;
    }
    return Insert(State.ExtentMap, KeyOf(Extent.Source), State.Extents.Count) && Push(State.Extents, Extent);
}

bool VisitItem(platform_conversion &State, work_item const &Item)
{
    uint32 Found = 0;
    if (Find(State.ExtentMap, KeyOf(Item.Location), &Found)) return true;
    loaded_file const &File = *State.File;
    extent Extent;
    memset(&Extent, 0, sizeof(Extent));
    Extent.Source = Item.Location;
    Extent.Kind = Item.Kind;
    Extent.Count = Item.Count;
    Extent.Layout = NoIndex;

    switch (Item.Kind) {
    case ExtentString: {
        char const *String = GetLoadedFileString(File, Item.Location);
        if (!String) return false;
        Extent.SourceUnit = Extent.DestUnit = (uint32)strlen(String) + 1;
        Extent.Count = 1;
        return AddExtent(State, Extent);
    }
    case ExtentTypeTable: {
        uint32 Members = 0;
        for (;; ++Members) {
            file_type_member Member;
            if (!ReadFileTypeMemberRecord(File, Item.Location, (int32)Members, &Member)) return false;
            if (Member.Kind == EndMember) break;
        }
        Extent.SourceUnit = State.SourceMember.Size;
        Extent.DestUnit = State.DestMember.Size;
        Extent.Count = Members + 1;
        if (!AddExtent(State, Extent)) return false;
        for (uint32 Index = 0; Index < Members; ++Index) {
            file_section_reference Record = Advance(Item.Location, Index * State.SourceMember.Size), Target;
            if (Resolve(State, Advance(Record, State.SourceMember.Name), &Target) &&
                !Queue(State, ExtentString, Target, Target, 1)) {
                return false;
            }
            if (Resolve(State, Advance(Record, State.SourceMember.Reference), &Target) &&
                !Queue(State, ExtentTypeTable, Target, Target, 1)) {
                return false;
            }
        }
        return true;
    }
    case ExtentPointerArray: {
        Extent.SourceUnit = State.SourcePointerSize;
        Extent.DestUnit = State.DestPointerSize;
        if (!AddExtent(State, Extent)) return false;
        for (uint32 Index = 0; Index < Item.Count; ++Index) {
            file_section_reference Target;
            if (Resolve(State, Advance(Item.Location, Index * State.SourcePointerSize), &Target) &&
                !Queue(State, ExtentObjects, Item.Type, Target, 1)) {
                return false;
            }
        }
        return true;
    }
    default: {
        uint32 LayoutIndex = 0;
        if (!BuildLayout(State, Item.Type, 0, &LayoutIndex)) return false;
        type_layout const Layout = State.Layouts.Items[LayoutIndex];
        Extent.Layout = LayoutIndex;
        Extent.SourceUnit = Layout.SourceSize;
        Extent.DestUnit = Layout.DestSize;
        if (Layout.SourceSize == 0 || Extent.Count == 0) {
            uint64 Key = KeyOf(Item.Location);
            return Queue(State, ExtentTypeTable, Item.Type, Item.Type, 1) &&
                   (Find(State.EmptyObjects, Key, &Found) || Insert(State.EmptyObjects, Key, 0));
        }
        if (!AddExtent(State, Extent) || !Queue(State, ExtentTypeTable, Item.Type, Item.Type, 1)) return false;
        if (!Layout.HasReferences) return true;
        for (uint32 Element = 0; Element < Extent.Count; ++Element) {
            if (!QueueTargets(State, Layout, Advance(Item.Location, Element * Layout.SourceSize))) return false;
        }
        return true;
    }
    }
}

bool DiscoverExtents(platform_conversion &State)
{
    loaded_file const &File = *State.File;
    file_header const &Header = File.Header;
    bool Result = Queue(State, ExtentObjects, Header.RootObjectTypeDefinition, Header.RootObject, 1) &&
                  Queue(State, ExtentTypeTable, Header.RootObjectTypeDefinition, Header.RootObjectTypeDefinition, 1);
    // The types of mixed objects, which a file without its type tree only
    // reaches through the marshalling records.
    for (int32 SectionIndex = 0; Result && SectionIndex < File.SectionCount; ++SectionIndex) {
        loaded_file_section const &Section = File.Sections[SectionIndex];
        for (uint32 Index = 0; Result && Index < Section.MarshallingCount; ++Index) {
            file_section_reference Type = Section.Marshallings[Index].Type;
            Result = Queue(State, ExtentTypeTable, Type, Type, 1);
        }
    }
    // Depth first, members in order, as the tree was written: where two
    // references disagree on what starts at a location (an element and an
    // array that starts with it), the one reached first decides.
    while (Result && State.Pending.Count) {
        work_item Item = State.Pending.Items[--State.Pending.Count];
        uint32 Mark = State.Pending.Count;
        Result = VisitItem(State, Item);
        for (uint32 Low = Mark, High = State.Pending.Count; Result && Low + 1 < High; ++Low, --High) {
            work_item Swap = State.Pending.Items[Low];
            State.Pending.Items[Low] = State.Pending.Items[High - 1];
            State.Pending.Items[High - 1] = Swap;
        }
    }
    return Result;
}

// ---------------------------------------------------------------------------
// Second pass: places in the target, in source order within each stream.

int CompareExtents(void const *A, void const *B)
{
    uint64 KeyA = KeyOf(((extent const *)A)->Source);
    uint64 KeyB = KeyOf(((extent const *)B)->Source);
    return KeyA < KeyB ? -1 : (KeyA > KeyB ? 1 : 0);
}

uint32 StreamOf(section_conversion const &Section, uint32 Offset)
{
    if (Offset < Section.SourceStreamStart[1]) return 0;
    if (Offset < Section.SourceStreamStart[2]) return 1;
    return 2;
}

uint32 PadTo(uint32 Size, uint32 Alignment)
{
    uint32 Rest = Size % Alignment;
    return Rest ? Size + (Alignment - Rest) : Size;
}

bool LayOutExtents(platform_conversion &State)
{
    State.Sorted = TesselAllocateArray(uint32, State.Extents.Count + 1);
    if (!State.Sorted) return false;
    State.SortedCount = 0;
    for (uint32 Index = 0; Index < State.Extents.Count; ++Index) {
        State.Sorted[State.SortedCount++] = Index;
    }
    // The map of the first pass is not needed any more; its indices change.
    qsort(State.Extents.Items, State.Extents.Count, sizeof(extent), CompareExtents);

    file_section_reference Previous = {NoIndex, 0};
    uint32 PreviousEnd = 0;
    for (uint32 Index = 0; Index < State.SortedCount; ++Index) {
        extent &Extent = State.Extents.Items[State.Sorted[Index]];
        section_conversion &Section = State.Sections[Extent.Source.SectionIndex];
        uint32 SourceSize = Extent.Count * Extent.SourceUnit;
        uint64 DestSize = (uint64)Extent.Count * Extent.DestUnit;
        Extent.Stream = StreamOf(Section, Extent.Source.Offset);
        bool Overlaps = Previous.SectionIndex == Extent.Source.SectionIndex && Extent.Source.Offset < PreviousEnd;
        bool CrossesStream = (uint64)Extent.Source.Offset + SourceSize > Section.SourceStreamStart[Extent.Stream + 1];
        if (Overlaps || CrossesStream || DestSize > (uint64)MaxObjectBytes) {
            TesselError(ConversionCategory, "PlatformConversion: objects at (%d, %d) overlap or cross a stream",
                        Extent.Source.SectionIndex, Extent.Source.Offset);
            return false;
        }
        Previous = Extent.Source;
        PreviousEnd = Extent.Source.Offset + SourceSize;
        uint32 &Cursor = Section.StreamSize[Extent.Stream];
        Extent.DestOffset = Cursor;
        uint64 End = (uint64)PadTo((uint32)(Cursor + DestSize), Section.Alignment);
        if (End > (uint64)MaxObjectBytes) return false;
        Cursor = (uint32)End;
    }
    for (int32 SectionIndex = 0; SectionIndex < State.SectionCount; ++SectionIndex) {
        section_conversion &Section = State.Sections[SectionIndex];
        Section.StreamOffset[0] = 0;
        Section.StreamOffset[1] = Section.StreamSize[0];
        Section.StreamOffset[2] = Section.StreamSize[0] + Section.StreamSize[1];
        uint64 Expanded = (uint64)Section.StreamOffset[2] + Section.StreamSize[2];
        if (Expanded > (uint64)MaxObjectBytes) return false;
        Section.Header.First16Bit = Section.StreamOffset[1];
        Section.Header.First8Bit = Section.StreamOffset[2];
        Section.Header.ExpandedDataSize = (uint32)Expanded;
        if (Expanded) {
            Section.Data = (uint8 *)TesselAllocateAligned(16, AlignUp4((uint32)Expanded) + 16);
            if (!Section.Data) {
                TesselError(ConversionCategory, "PlatformConversion: Unable to allocate new file section.");
                return false;
            }
            memset(Section.Data, 0, AlignUp4((uint32)Expanded) + 16);
        }
    }
    for (uint32 Index = 0; Index < State.SortedCount; ++Index) {
        extent &Extent = State.Extents.Items[State.Sorted[Index]];
        Extent.DestOffset += State.Sections[Extent.Source.SectionIndex].StreamOffset[Extent.Stream];
    }
    return true;
}

// Where a location of the source lands in the target: the start of an
// extent or of one of its elements, or, for an object of no bytes, the
// place of the next object of its stream.
bool TranslateLocation(platform_conversion const &State, file_section_reference Source, file_section_reference *Result)
{
    if (Source.SectionIndex >= (uint32)State.SectionCount) return false;
    uint64 Key = KeyOf(Source);
    // Last placed extent that starts at or before Source.
    uint32 Low = 0, High = State.SortedCount;
    while (Low < High) {
        uint32 Middle = Low + (High - Low) / 2;
        if (KeyOf(State.Extents.Items[State.Sorted[Middle]].Source) <= Key)
            Low = Middle + 1;
        else
            High = Middle;
    }
    Result->SectionIndex = Source.SectionIndex;
    if (Low > 0) {
        extent const &Extent = State.Extents.Items[State.Sorted[Low - 1]];
        uint32 Inner = Source.Offset - Extent.Source.Offset;
        if (Extent.Source.SectionIndex == Source.SectionIndex && Inner < Extent.Count * Extent.SourceUnit) {
            if (Extent.Kind == ExtentString) {
                Result->Offset = Extent.DestOffset + Inner;
                return true;
            }
            if (Inner % Extent.SourceUnit != 0) return false;
            Result->Offset = Extent.DestOffset + Inner / Extent.SourceUnit * Extent.DestUnit;
            return true;
        }
    }
    uint32 Found = 0;
    if (!Find(State.EmptyObjects, Key, &Found)) return false;
    section_conversion const &Section = State.Sections[Source.SectionIndex];
    uint32 Stream = StreamOf(Section, Source.Offset);
    if (Low < State.SortedCount) {
        extent const &Next = State.Extents.Items[State.Sorted[Low]];
        if (Next.Source.SectionIndex == Source.SectionIndex && Next.Stream == Stream) {
            Result->Offset = Next.DestOffset;
            return true;
        }
    }
    Result->Offset = Section.StreamOffset[Stream] + Section.StreamSize[Stream];
    return true;
}

// ---------------------------------------------------------------------------
// Third pass: the bytes, in the target's byte order.

void Put32(platform_conversion const &State, uint8 *Destination, uint32 Value)
{
    if (State.ByteReversed) Reverse32(1, &Value);
    memcpy(Destination, &Value, 4);
}

uint32 Get32(uint8 const *Source)
{
    uint32 Value;
    memcpy(&Value, Source, 4);
    return Value;
}

// A pointer slot keeps only what a slot without a fixup holds: the low
// 32-bit word. Slots with a fixup are zero in every file (a loader may have
// put an address there).
void CopySlot(platform_conversion const &State, file_section_reference SourceSlot, uint8 const *Source,
              uint8 *Destination)
{
    uint32 Value = 0;
    if (!ResolveFilePointer(*State.File, SourceSlot, 0)) {
        bool LowWordFirst = State.SourcePointerBits == 32 || State.SourceLittleEndian;
        Value = Get32(Source + (LowWordFirst ? 0 : 4));
    }
    if (State.DestPointerBits == 32) {
        Put32(State, Destination, Value);
    } else {
        bool LowWordFirst = State.DestLittleEndian;
        Put32(State, Destination + (LowWordFirst ? 0 : 4), Value);
        Put32(State, Destination + (LowWordFirst ? 4 : 0), 0);
    }
}

void CopyScalars(platform_conversion const &State, uint32 Unit, uint32 Size, uint8 const *Source, uint8 *Destination)
{
    memcpy(Destination, Source, Size);
    if (!State.ByteReversed) return;
    if (Unit == 4) Reverse32((int32)(Size / 4), Destination);
    if (Unit == 2) Reverse16((int32)(Size / 2), Destination);
}

void CopyElement(platform_conversion const &State, type_layout const &Layout, file_section_reference SourceAt,
                 uint8 const *Source, uint8 *Destination)
{
    uint32 const SP = State.SourcePointerSize, DP = State.DestPointerSize;
    for (uint32 Index = 0; Index < Layout.OpCount; ++Index) {
        member_op const &Op = State.Ops.Items[Layout.FirstOp + Index];
        uint8 const *From = Source + Op.SourceOffset;
        uint8 *To = Destination + Op.DestOffset;
        file_section_reference Slot = Advance(SourceAt, Op.SourceOffset);
        switch (Op.Kind) {
        case ScalarRun: CopyScalars(State, Op.Unit, Op.Size, From, To); break;
        case ReferenceMember:
        case StringMember:
        case EmptyReferenceMember: CopySlot(State, Slot, From, To); break;
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
            Put32(State, To, Get32(From));
            CopySlot(State, Advance(Slot, 4), From + 4, To + 4);
            break;
        case VariantReferenceMember:
            CopySlot(State, Slot, From, To);
            CopySlot(State, Advance(Slot, SP), From + SP, To + DP);
            break;
        case ReferenceToVariantArrayMember:
            CopySlot(State, Slot, From, To);
            Put32(State, To + DP, Get32(From + SP));
            CopySlot(State, Advance(Slot, SP + 4), From + SP + 4, To + DP + 4);
            break;
        default: break;
        }
    }
}

void CopyTypeRecord(platform_conversion const &State, file_section_reference SourceAt, uint8 const *Source,
                    uint8 *Destination)
{
    member_record_layout const &S = State.SourceMember, &D = State.DestMember;
    Put32(State, Destination, Get32(Source));
    CopySlot(State, Advance(SourceAt, S.Name), Source + S.Name, Destination + D.Name);
    CopySlot(State, Advance(SourceAt, S.Reference), Source + S.Reference, Destination + D.Reference);
    Put32(State, Destination + D.Width, Get32(Source + S.Width));
    for (uint32 Word = 0; Word < 3; ++Word) {
        Put32(State, Destination + D.Extra + 4 * Word, Get32(Source + S.Extra + 4 * Word));
    }
    CopySlot(State, Advance(SourceAt, S.Ignored), Source + S.Ignored, Destination + D.Ignored);
}

bool CopyExtents(platform_conversion &State)
{
    for (uint32 Index = 0; Index < State.SortedCount; ++Index) {
        extent const &Extent = State.Extents.Items[State.Sorted[Index]];
        uint8 const *Source = GetLoadedFileBytes(*State.File, Extent.Source, Extent.Count * Extent.SourceUnit);
        uint8 *Destination = State.Sections[Extent.Source.SectionIndex].Data + Extent.DestOffset;
        if (!Source) return false;
        for (uint32 Element = 0; Element < Extent.Count; ++Element) {
            file_section_reference At = Advance(Extent.Source, Element * Extent.SourceUnit);
            uint8 const *From = Source + (uint64)Element * Extent.SourceUnit;
            uint8 *To = Destination + (uint64)Element * Extent.DestUnit;
            switch (Extent.Kind) {
            case ExtentString: memcpy(To, From, Extent.SourceUnit); break;
            case ExtentTypeTable: CopyTypeRecord(State, At, From, To); break;
            case ExtentPointerArray: CopySlot(State, At, From, To); break;
            default: CopyElement(State, State.Layouts.Items[Extent.Layout], At, From, To); break;
            }
        }
    }
    return true;
}

// Where the pointer slot at a source location lands, or false when no slot
// of a converted extent is there.
bool TranslateSlot(platform_conversion const &State, file_section_reference Slot, uint32 *Result)
{
    uint64 Key = KeyOf(Slot);
    uint32 Low = 0, High = State.SortedCount;
    while (Low < High) {
        uint32 Middle = Low + (High - Low) / 2;
        if (KeyOf(State.Extents.Items[State.Sorted[Middle]].Source) <= Key)
            Low = Middle + 1;
        else
            High = Middle;
    }
    if (Low == 0) return false;
    extent const &Extent = State.Extents.Items[State.Sorted[Low - 1]];
    uint32 Inner = Slot.Offset - Extent.Source.Offset;
    if (Extent.Source.SectionIndex != Slot.SectionIndex || Inner >= Extent.Count * Extent.SourceUnit) return false;
    uint32 Element = Inner / Extent.SourceUnit, Rest = Inner % Extent.SourceUnit;
    uint32 Base = Extent.DestOffset + Element * Extent.DestUnit;
    member_record_layout const &S = State.SourceMember, &D = State.DestMember;
    switch (Extent.Kind) {
    case ExtentPointerArray: *Result = Base; return Rest == 0;
    case ExtentTypeTable:
        if (Rest == S.Name) *Result = Base + D.Name;
        if (Rest == S.Reference) *Result = Base + D.Reference;
        if (Rest == S.Ignored) *Result = Base + D.Ignored;
        return Rest == S.Name || Rest == S.Reference || Rest == S.Ignored;
    case ExtentObjects: break;
    default: return false;
    }
    type_layout const &Layout = State.Layouts.Items[Extent.Layout];
    uint32 const SP = State.SourcePointerSize, DP = State.DestPointerSize;
    // The operations follow each other without overlap: the slot lies in the
    // last one that starts at or before it.
    member_op const *Ops = State.Ops.Items + Layout.FirstOp;
    uint32 First = 0, Last = Layout.OpCount;
    while (First < Last) {
        uint32 Middle = First + (Last - First) / 2;
        if (Ops[Middle].SourceOffset <= Rest)
            First = Middle + 1;
        else
            Last = Middle;
    }
    if (First > 0) {
        member_op const &Op = Ops[First - 1];
        uint32 At = Rest - Op.SourceOffset;
        uint32 Delta = NoIndex;
        switch (Op.Kind) {
        case ReferenceMember:
        case StringMember:
        case EmptyReferenceMember:
            if (At == 0) Delta = 0;
            break;
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
            if (At == 4) Delta = 4;
            break;
        case VariantReferenceMember:
            if (At == 0) Delta = 0;
            if (At == SP) Delta = DP;
            break;
        case ReferenceToVariantArrayMember:
            if (At == 0) Delta = 0;
            if (At == SP + 4) Delta = DP + 4;
            break;
        default: break;
        }
        if (Delta != NoIndex) {
            *Result = Base + Op.DestOffset + Delta;
            return true;
        }
    }
    return false;
}

// Fixups and marshalling records in the order the source stores them, so
// that a conversion back reproduces the source's arrays.
bool TranslateRecords(platform_conversion &State, file_reader *Reader)
{
    loaded_file const &File = *State.File;
    bool Result = true;
    for (int32 SectionIndex = 0; Result && SectionIndex < File.SectionCount; ++SectionIndex) {
        section_conversion &Section = State.Sections[SectionIndex];
        file_section_header const &Header = File.Sections[SectionIndex].Header;
        file_pointer_fixup *Fixups = 0;
        file_mixed_marshalling_fixup *Marshallings = 0;
        Result = LoadFixupArray(Reader, Header, File.IsByteReversed, &Fixups) &&
                 LoadMarshallingArray(Reader, Header, File.IsByteReversed, &Marshallings);
        uint32 FixupCount = Fixups ? Header.PointerFixupArrayCount : 0;
        uint32 MarshallingCount = Marshallings ? Header.MixedMarshallingFixupArrayCount : 0;
        for (uint32 Index = 0; Result && Index < FixupCount; ++Index) {
            file_pointer_fixup Fixup;
            file_section_reference From = {(uint32)SectionIndex, Fixups[Index].FromOffset};
            if (TranslateSlot(State, From, &Fixup.FromOffset) &&
                TranslateLocation(State, Fixups[Index].To, &Fixup.To)) {
                Result = Push(Section.Fixups, Fixup);
            }
        }
        for (uint32 Index = 0; Result && Index < MarshallingCount; ++Index) {
            file_mixed_marshalling_fixup Record;
            file_section_reference Object = {(uint32)SectionIndex, Marshallings[Index].Offset}, To;
            Record.Count = Marshallings[Index].Count;
            if (TranslateLocation(State, Object, &To) &&
                TranslateLocation(State, Marshallings[Index].Type, &Record.Type)) {
                Record.Offset = To.Offset;
                Result = Push(Section.Marshallings, Record);
            }
        }
        if (Fixups) TesselFree(Fixups);
        if (Marshallings) TesselFree(Marshallings);
    }
    return Result;
}

// ---------------------------------------------------------------------------
// Output.

bool CompressSection(platform_conversion &State, int32 SectionIndex)
{
    section_conversion &Section = State.Sections[SectionIndex];
    file_section_header &Header = Section.Header;
    if (Header.ExpandedDataSize == 0 || Header.Format == NoCompression) {
        Header.DataSize = Header.ExpandedDataSize;
        return true;
    }
    file_writer *Writer = CreateMemoryFileWriter(FileCopyBlockSize);
    if (!Writer) return false;
    file_compressor *Compressor =
        BeginFileCompression(Header.ExpandedDataSize, StreamCount, (int32)Header.Format, State.ByteReversed, Writer);
    bool Result = Compressor != 0;
    for (int32 Stream = 0; Result && Stream < StreamCount; ++Stream) {
        Result = CompressContentsOfMemory(Compressor, (int32)Section.StreamSize[Stream],
                                          Section.Data + Section.StreamOffset[Stream]);
    }
    uint32 StoredSize = 0;
    if (Compressor) Result = EndFileCompression(Compressor, &StoredSize) && Result;
    Result = Result && StealMemoryWriterBuffer(Writer, &Section.Stored, &Section.StoredSize) &&
             (uint32)Section.StoredSize == StoredSize;
    DeleteFileWriter(Writer);
    Header.DataSize = StoredSize;
    if (!Result) TesselError(ConversionCategory, "PlatformConversion: unable to compress section %d", SectionIndex);
    return Result;
}

bool WriteWords(platform_conversion const &State, file_writer *Writer, uint32 Size, void const *Data)
{
    if (Size == 0) return true;
    if (!State.ByteReversed) return Write(Writer, (int32)Size, Data);
    uint8 *Copy = (uint8 *)TesselAllocate(Size);
    if (!Copy) return false;
    memcpy(Copy, Data, Size);
    Reverse32((int32)(Size / 4), Copy);
    bool Result = Write(Writer, (int32)Size, Copy);
    TesselFree(Copy);
    return Result;
}

bool PadFrom(file_writer *Writer, int32 Start)
{
    uint32 Position = (uint32)(GetWriterPosition(Writer) - Start);
    uint32 Padding = AlignUp4(Position) - Position;
    static uint8 const Zeros[4] = {0, 0, 0, 0};
    return Padding == 0 || Write(Writer, (int32)Padding, Zeros);
}

bool WriteTarget(platform_conversion &State, file_writer *Writer, file_magic_block const &TargetMagic,
                 file_header const &SourceHeader, file_section_reference RootType, file_section_reference RootObject)
{
    int32 const SectionCount = State.SectionCount;
    uint32 Position = AlignUp4(GetTotalHeaderSize(SectionCount));
    for (int32 Index = 0; Index < SectionCount; ++Index) {
        file_section_header &Header = State.Sections[Index].Header;
        Header.DataOffset = Position;
        Position = AlignUp4(Position + Header.DataSize);
    }
    for (int32 Index = 0; Index < SectionCount; ++Index) {
        file_section_header &Header = State.Sections[Index].Header;
        Header.PointerFixupArrayOffset = Position;
        Header.PointerFixupArrayCount = State.Sections[Index].Fixups.Count;
        Position = AlignUp4(Position + Header.PointerFixupArrayCount * FilePointerFixupSize);
    }
    for (int32 Index = 0; Index < SectionCount; ++Index) {
        file_section_header &Header = State.Sections[Index].Header;
        Header.MixedMarshallingFixupArrayOffset = Position;
        Header.MixedMarshallingFixupArrayCount = State.Sections[Index].Marshallings.Count;
        Position = AlignUp4(Position + Header.MixedMarshallingFixupArrayCount * FileMixedMarshallingFixupSize);
    }

    int32 Start = GetWriterPosition(Writer);
    uint8 Zeros[FileMagicBlockSize + FileHeaderSize];
    memset(Zeros, 0, sizeof(Zeros));
    bool Result = Write(Writer, sizeof(Zeros), Zeros);
    if (!Result) return false;
    BeginWriterCRC(Writer);
    for (int32 Index = 0; Result && Index < SectionCount; ++Index) {
        Result = WriteWords(State, Writer, FileSectionHeaderSize, &State.Sections[Index].Header);
    }
    for (int32 Index = 0; Result && Index < SectionCount; ++Index) {
        section_conversion const &Section = State.Sections[Index];
        Result = PadFrom(Writer, Start);
        if (Result && Section.Header.DataSize) {
            void const *Data = Section.Header.Format == NoCompression ? (void const *)Section.Data : Section.Stored;
            Result = Write(Writer, (int32)Section.Header.DataSize, Data);
        }
    }
    Result = Result && PadFrom(Writer, Start);
    for (int32 Index = 0; Result && Index < SectionCount; ++Index) {
        grow_array<file_pointer_fixup> const &Fixups = State.Sections[Index].Fixups;
        Result = WriteWords(State, Writer, Fixups.Count * FilePointerFixupSize, Fixups.Items);
    }
    for (int32 Index = 0; Result && Index < SectionCount; ++Index) {
        grow_array<file_mixed_marshalling_fixup> const &Records = State.Sections[Index].Marshallings;
        Result = WriteWords(State, Writer, Records.Count * FileMixedMarshallingFixupSize, Records.Items);
    }
    Result = Result && PadFrom(Writer, Start);
    uint32 CRC = EndWriterCRC(Writer);
    if (!Result) return false;
    int32 End = GetWriterPosition(Writer);
    if ((uint32)(End - Start) != Position) {
        TesselError(ConversionCategory, "PlatformConversion: file size %d differs from its layout (%d)", End - Start,
                    Position);
        return false;
    }

    file_magic_block Magic;
    memset(&Magic, 0, sizeof(Magic));
    memcpy(Magic.MagicValue, TargetMagic.MagicValue, FileMagicValueSize);
    Magic.TotalHeaderSize = GetTotalHeaderSize(SectionCount);
    file_header Header = SourceHeader;
    Header.TotalSize = (uint32)(End - Start);
    Header.CRC = CRC;
    Header.SectionArrayOffset = FileSectionArrayOffset;
    Header.SectionCount = (uint32)SectionCount;
    Header.RootObjectTypeDefinition = RootType;
    Header.RootObject = RootObject;
    if (State.ByteReversed) {
        Reverse32(4, &Magic.TotalHeaderSize);
        Reverse32(FileHeaderSize / 4, &Header);
    }
    return SeekWriterFromStart(Writer, Start) == Start && Write(Writer, sizeof(Magic), &Magic) &&
           Write(Writer, sizeof(Header), &Header) && SeekWriterFromStart(Writer, End) == End;
}

bool RootTypeIsRaw(loaded_file const &File)
{
    file_type_member Member;
    return ReadFileTypeMemberRecord(File, File.Header.RootObjectTypeDefinition, 0, &Member) && Member.Kind == EndMember;
}

bool ConvertFile(platform_conversion &State, file_reader *Reader, file_writer *Writer,
                 file_magic_block const &TargetMagic)
{
    loaded_file const &File = *State.File;
    State.SectionCount = File.SectionCount;
    State.Sections = TesselAllocateArray(section_conversion, File.SectionCount + 1);
    if (!State.Sections) {
        TesselError(ConversionCategory, "PlatformConversion unable to initialize conversion state");
        return false;
    }
    memset(State.Sections, 0, sizeof(section_conversion) * (File.SectionCount + 1));
    for (int32 Index = 0; Index < File.SectionCount; ++Index) {
        section_conversion &Section = State.Sections[Index];
        file_section_header const &Source = File.Sections[Index].Header;
        Section.SourceStreamStart[0] = 0;
        Section.SourceStreamStart[1] = Source.First16Bit;
        Section.SourceStreamStart[2] = Source.First8Bit;
        Section.SourceStreamStart[3] = Source.ExpandedDataSize;
        Section.Alignment = Source.InternalAlignment ? Source.InternalAlignment : 1;
        uint32 Format = Index < State.FormatCount ? State.Formats[Index] : Source.Format;
        Section.Header.Format = Format == Trove0Compression ? (uint32)Trove1Compression : Format;
        Section.Header.InternalAlignment = Source.InternalAlignment;
    }
    if (RootTypeIsRaw(File)) {
        TesselError(ConversionCategory, "PlatformConversion: Cannot convert Raw File types (empty type as root "
                                        "object type detected)");
        return false;
    }
    if (!DiscoverExtents(State)) {
        TesselError(ConversionCategory, "PlatformConversion: Initial tree traversal failed");
        return false;
    }
    if (!LayOutExtents(State)) return false;
    if (!CopyExtents(State)) {
        TesselError(ConversionCategory, "PlatformConversion: Secondary tree traversal failed");
        return false;
    }
    file_section_reference RootType, RootObject;
    if (!TranslateRecords(State, Reader) ||
        !TranslateLocation(State, File.Header.RootObjectTypeDefinition, &RootType) ||
        !TranslateLocation(State, File.Header.RootObject, &RootObject)) {
        TesselError(ConversionCategory, "PlatformConversion: Failed to write flattened sections and fixups");
        return false;
    }
    bool Result = true;
    for (int32 Index = 0; Result && Index < State.SectionCount; ++Index) Result = CompressSection(State, Index);
    return Result && WriteTarget(State, Writer, TargetMagic, File.Header, RootType, RootObject);
}

} // namespace

namespace {

bool ConvertLoadedFile(file_reader *Reader, loaded_file const &Source, file_writer *Target,
                       file_magic_block const &TargetMagic, int32 FormatCount, uint32 const *Formats)
{
    CheckPointer(Reader, ConversionCategory, false);
    CheckPointer(Target, ConversionCategory, false);
    platform_conversion State;
    memset(&State, 0, sizeof(State));
    bool SourceLittleEndian = true, DestLittleEndian = true;
    int32 SourceBits = 0, DestBits = 0;
    if (!GetMagicInfo(Source.Magic, &SourceBits, &SourceLittleEndian) ||
        !GetMagicInfo(TargetMagic, &DestBits, &DestLittleEndian) || SourceBits != Source.PointerBits) {
        TesselError(ConversionCategory, "PlatformConvertReaderToWriter: failed to obtain good platform information");
        return false;
    }
    if (SourceBits == DestBits && SourceLittleEndian == DestLittleEndian) {
        TesselWarning(ConversionCategory,
                      "PlatformConvertReaderToWriter called when Source and Dest Magic values match.");
    }
    State.File = &Source;
    State.FormatCount = Formats ? FormatCount : 0;
    State.Formats = Formats;
    State.SourcePointerBits = SourceBits;
    State.SourcePointerSize = (uint32)SourceBits / 8;
    State.SourceLittleEndian = SourceLittleEndian;
    State.DestPointerBits = DestBits;
    State.DestPointerSize = (uint32)DestBits / 8;
    State.DestLittleEndian = DestLittleEndian;
    State.ByteReversed = DestLittleEndian != HostIsLittleEndian();
    State.SourceMember = SourceBits == 32 ? MemberRecord32 : MemberRecord64;
    State.DestMember = DestBits == 32 ? MemberRecord32 : MemberRecord64;
    file_magic_block const *Row = GetPlatformFileMagicBlock(DestBits, DestLittleEndian);
    bool Result = Row && ConvertFile(State, Reader, Target, *Row);
    FreeConversion(State);
    return Result;
}

} // namespace

bool PlatformConvertLoadedFileToWriter(file_reader *Reader, loaded_file const &Source, file_writer *Target,
                                       file_magic_block const &TargetMagic)
{
    return ConvertLoadedFile(Reader, Source, Target, TargetMagic, 0, 0);
}

bool PlatformConvertReaderToWriter(file_reader *Source, file_writer *Target, file_magic_block const &TargetMagic,
                                   bool ExcludeTypeTree)
{
    // A converted file always keeps its type tables; the flag has no effect.
    (void)ExcludeTypeTree;
    return PlatformConvertReaderToWriterWithFormats(Source, Target, TargetMagic, 0, 0);
}

bool PlatformConvertReaderToWriterWithFormats(file_reader *Source, file_writer *Target,
                                              file_magic_block const &TargetMagic, int32 FormatCount,
                                              uint32 const *Formats)
{
    CheckPointer(Source, LogCategory_FileReading, false);
    loaded_file *File = LoadStoredFileFromReader(Source);
    if (!File) {
        TesselError(LogCategory_FileReading, "PlatformConvertReaderToWriter: reading the source file failed");
        return false;
    }
    bool Result = ConvertLoadedFile(Source, *File, Target, TargetMagic, FormatCount, Formats);
    FreeLoadedFile(File);
    return Result;
}

bool PlatformConvertMemory(int32 Size, void const *Data, file_magic_block const &TargetMagic, uint8 **Result,
                           int32 *ResultSize)
{
    CheckPointer(Result, ConversionCategory, false);
    CheckPointer(ResultSize, ConversionCategory, false);
    *Result = 0;
    *ResultSize = 0;
    file_reader *Reader = CreateMemoryFileReader(Size, Data);
    file_writer *Writer = CreateMemoryFileWriter(FileCopyBlockSize);
    bool Converted = Reader && Writer && PlatformConvertReaderToWriter(Reader, Writer, TargetMagic, false) &&
                     StealMemoryWriterBuffer(Writer, Result, ResultSize);
    if (Reader) CloseFileReader(Reader);
    if (Writer) DeleteFileWriter(Writer);
    return Converted;
}

loaded_file *LoadConvertedToNative(file_reader *Reader, loaded_file const &Stored)
{
    file_writer *Writer = CreateMemoryFileWriter(FileCopyBlockSize);
    if (!Writer) return 0;
    uint8 *Buffer = 0;
    int32 Size = 0;
    bool Converted = PlatformConvertLoadedFileToWriter(Reader, Stored, Writer, GetNativeFileMagicBlock()) &&
                     StealMemoryWriterBuffer(Writer, &Buffer, &Size);
    DeleteFileWriter(Writer);
    loaded_file *Native = Converted ? LoadFileFromMemory(Size, Buffer) : 0;
    if (Buffer) FreeMemoryWriterBuffer(Buffer);
    if (Native) {
        Native->Magic = Stored.Magic;
        Native->IsByteReversed = Stored.IsByteReversed;
    }
    return Native;
}
