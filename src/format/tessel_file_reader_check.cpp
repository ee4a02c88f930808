// Checking a loaded file's object tree against its sections, and matching
// the file's type tables with the program's.
#include <cstring>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

namespace {

enum
{
    // Member visits allowed for one file; a file that needs more is refused.
    CheckBudget = 1 << 26,
    // Count value of a work item that checks a type table only.
    TypeOnlyCount = 0xFFFFFFFFu,
    MaxMatchChain = 64,
};

struct check_item
{
    file_section_reference Type;
    file_section_reference Object;
    uint32 Count;
};

// Open-addressing set of work items already taken, and the list of those
// still to do.
struct tree_check
{
    loaded_file const *File;
    check_item *Seen;
    bool8 *Used;
    uint32 SeenCapacity;
    uint32 SeenCount;
    check_item *Pending;
    uint32 PendingCapacity;
    uint32 PendingCount;
    int64 Budget;
    bool Failed;
};

uint32 HashItem(check_item const &Item)
{
    uint32 const Words[5] = {Item.Type.SectionIndex, Item.Type.Offset, Item.Object.SectionIndex, Item.Object.Offset,
                             Item.Count};
    uint32 Hash = 2166136261u;
    for (uint32 Word : Words) Hash = (Hash ^ Word) * 16777619u;
    return Hash;
}

bool SameItem(check_item const &A, check_item const &B)
{
    return memcmp(&A, &B, sizeof(A)) == 0;
}

bool GrowSeen(tree_check &Check)
{
    uint32 NewCapacity = Check.SeenCapacity ? Check.SeenCapacity * 2 : 1024;
    check_item *Items = TesselAllocateArray(check_item, NewCapacity);
    bool8 *Used = TesselAllocateArray(bool8, NewCapacity);
    if (!Items || !Used) {
        if (Items) TesselFree(Items);
        if (Used) TesselFree(Used);
        return false;
    }
    memset(Used, 0, NewCapacity);
    for (uint32 Index = 0; Index < Check.SeenCapacity; ++Index) {
        if (!Check.Used[Index]) continue;
        uint32 Slot = HashItem(Check.Seen[Index]) & (NewCapacity - 1);
        while (Used[Slot]) Slot = (Slot + 1) & (NewCapacity - 1);
        Items[Slot] = Check.Seen[Index];
        Used[Slot] = true;
    }
    if (Check.Seen) TesselFree(Check.Seen);
    if (Check.Used) TesselFree(Check.Used);
    Check.Seen = Items;
    Check.Used = Used;
    Check.SeenCapacity = NewCapacity;
    return true;
}

// Queues an item unless it was queued before.
void Queue(tree_check &Check, file_section_reference Type, file_section_reference Object, uint32 Count)
{
    if (Check.Failed) return;
    check_item Item;
    memset(&Item, 0, sizeof(Item));
    Item.Type = Type;
    Item.Object = Object;
    Item.Count = Count;
    if ((Check.SeenCount + 1) * 2 > Check.SeenCapacity && !GrowSeen(Check)) {
        Check.Failed = true;
        return;
    }
    uint32 Slot = HashItem(Item) & (Check.SeenCapacity - 1);
    while (Check.Used[Slot]) {
        if (SameItem(Check.Seen[Slot], Item)) return;
        Slot = (Slot + 1) & (Check.SeenCapacity - 1);
    }
    Check.Seen[Slot] = Item;
    Check.Used[Slot] = true;
    ++Check.SeenCount;

    if (Check.PendingCount == Check.PendingCapacity) {
        uint32 NewCapacity = Check.PendingCapacity ? Check.PendingCapacity * 2 : 256;
        check_item *Pending = TesselAllocateArray(check_item, NewCapacity);
        if (!Pending) {
            Check.Failed = true;
            return;
        }
        if (Check.Pending) {
            memcpy(Pending, Check.Pending, sizeof(check_item) * Check.PendingCount);
            TesselFree(Check.Pending);
        }
        Check.Pending = Pending;
        Check.PendingCapacity = NewCapacity;
    }
    Check.Pending[Check.PendingCount++] = Item;
}

file_section_reference Advance(file_section_reference Location, uint64 Delta)
{
    uint64 Offset = (uint64)Location.Offset + Delta;
    Location.Offset = Offset > 0xFFFFFFFFu ? 0xFFFFFFFFu : (uint32)Offset;
    return Location;
}

bool Fail(tree_check &Check, char const *What, file_section_reference Where)
{
    if (!Check.Failed) {
        TesselError(LogCategory_FileReading, "%s at section %u offset %u lies outside the file", What,
                    Where.SectionIndex, Where.Offset);
    }
    Check.Failed = true;
    return false;
}

bool ReadCount(tree_check &Check, file_section_reference Slot, uint32 *Count)
{
    uint8 const *Bytes = GetLoadedFileBytes(*Check.File, Slot, 4);
    if (!Bytes) return Fail(Check, "An array count", Slot);
    memcpy(Count, Bytes, 4);
    return true;
}

// A pointer slot that leads somewhere although its count is not zero.
bool ResolveCounted(tree_check &Check, file_section_reference Slot, uint32 Count, file_section_reference *Target)
{
    bool Resolved = ResolveFilePointer(*Check.File, Slot, Target);
    if (!Resolved && Count != 0) Fail(Check, "An array with a count but no data", Slot);
    return Resolved && Count != 0;
}

// Checks the members of one object (or only the type when Object is null)
// and queues what they point to.
void CheckMembers(tree_check &Check, file_section_reference Type, file_section_reference const *Object, int32 Depth)
{
    loaded_file const &File = *Check.File;
    uint32 const P = (uint32)File.PointerBits / 8;
    if (Depth > MaxFileTypeDepth) {
        Fail(Check, "A type nested too deeply", Type);
        return;
    }
    uint32 Offset = 0;
    for (int32 Index = 0; !Check.Failed; ++Index) {
        if (--Check.Budget < 0) {
            TesselError(LogCategory_FileReading, "File holds too many objects to check");
            Check.Failed = true;
            return;
        }
        file_type_member Member;
        uint32 Size = 0;
        if (!ReadFileTypeMemberRecord(File, Type, Index, &Member)) {
            Check.Failed = true;
            return;
        }
        if (Member.Kind == EndMember) return;
        if (!GetFileTypeMemberSize(File, Member, &Size)) {
            Check.Failed = true;
            return;
        }
        bool Referring = Member.Kind >= InlineMember && Member.Kind <= ArrayOfReferencesMember;
        if (Referring && !Member.HasReferenceType && Member.Kind != ReferenceMember) {
            Fail(Check, "A member without its type", Type);
            return;
        }
        if (Member.HasReferenceType && Member.Kind != InlineMember) {
            Queue(Check, Member.ReferenceType, {TypeOnlyCount, TypeOnlyCount}, TypeOnlyCount);
        }
        if (Member.Kind == InlineMember) {
            uint32 Unit = Size / (uint32)Member.ArrayWidth;
            for (int32 Element = 0; Element < Member.ArrayWidth && !Check.Failed; ++Element) {
                file_section_reference At;
                if (Object) At = Advance(*Object, Offset + (uint64)Element * Unit);
                CheckMembers(Check, Member.ReferenceType, Object ? &At : 0, Depth + 1);
                if (!Object) break;
            }
        }
        if (Object) {
            file_section_reference Slot = Advance(*Object, Offset), Target, VariantType;
            uint32 Count = 0;
            switch (Member.Kind) {
            case ReferenceMember:
                if (ResolveFilePointer(File, Slot, &Target)) {
                    if (!Member.HasReferenceType)
                        Fail(Check, "A reference without a type", Slot);
                    else
                        Queue(Check, Member.ReferenceType, Target, 1);
                }
                break;
            case ReferenceToArrayMember:
                if (ReadCount(Check, Slot, &Count) && ResolveCounted(Check, Advance(Slot, 4), Count, &Target)) {
                    Queue(Check, Member.ReferenceType, Target, Count);
                }
                break;
            case ArrayOfReferencesMember:
                if (ReadCount(Check, Slot, &Count) && ResolveCounted(Check, Advance(Slot, 4), Count, &Target)) {
                    if (!GetLoadedFileBytes(File, Target,
                                            (uint32)((uint64)Count * P > 0xFFFFFFFFu ? 0xFFFFFFFFu : Count * P))) {
                        Fail(Check, "An array of references", Target);
                        break;
                    }
                    for (uint32 Element = 0; Element < Count && !Check.Failed; ++Element) {
                        file_section_reference To;
                        if (ResolveFilePointer(File, Advance(Target, (uint64)Element * P), &To)) {
                            Queue(Check, Member.ReferenceType, To, 1);
                        }
                    }
                }
                break;
            case VariantReferenceMember:
                if (ResolveFilePointer(File, Slot, &VariantType)) {
                    Queue(Check, VariantType, {TypeOnlyCount, TypeOnlyCount}, TypeOnlyCount);
                    if (ResolveFilePointer(File, Advance(Slot, P), &Target)) Queue(Check, VariantType, Target, 1);
                } else if (ResolveFilePointer(File, Advance(Slot, P), &Target)) {
                    Fail(Check, "A variant without a type", Slot);
                }
                break;
            case ReferenceToVariantArrayMember:
                if (ReadCount(Check, Advance(Slot, P), &Count) &&
                    ResolveCounted(Check, Advance(Slot, P + 4), Count, &Target)) {
                    if (!ResolveFilePointer(File, Slot, &VariantType))
                        Fail(Check, "A variant array without a type", Slot);
                    else
                        Queue(Check, VariantType, Target, Count);
                }
                break;
            case StringMember:
                if (ResolveFilePointer(File, Slot, &Target) && !GetLoadedFileString(File, Target)) {
                    Fail(Check, "A string", Target);
                }
                break;
            default: break;
            }
        }
        Offset += Size;
    }
}

// Checks whether objects of the type hold anything to follow.
bool TypeHasPointers(loaded_file const &File, file_section_reference Type, int32 Depth)
{
    if (Depth > MaxFileTypeDepth) return true;
    file_type_member Member;
    for (int32 Index = 0; ReadFileTypeMemberRecord(File, Type, Index, &Member) && Member.Kind != EndMember; ++Index) {
        switch (Member.Kind) {
        case InlineMember:
            if (TypeHasPointers(File, Member.ReferenceType, Depth + 1)) return true;
            break;
        case ReferenceMember:
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
        case VariantReferenceMember:
        case ReferenceToVariantArrayMember:
        case StringMember: return true;
        default: break;
        }
    }
    return false;
}

void CheckItem(tree_check &Check, check_item const &Item)
{
    loaded_file const &File = *Check.File;
    uint32 Size = 0;
    if (!GetFileTypeObjectSize(File, Item.Type, &Size)) {
        Check.Failed = true;
        return;
    }
    if (Item.Count == TypeOnlyCount) {
        CheckMembers(Check, Item.Type, 0, 0);
        return;
    }
    uint64 Total = (uint64)Size * Item.Count;
    if (Total > 0xFFFFFFFFu || !GetLoadedFileBytes(File, Item.Object, (uint32)Total)) {
        Fail(Check, "An object", Item.Object);
        return;
    }
    if (Size == 0) return;
    if (!TypeHasPointers(File, Item.Type, 0)) {
        CheckMembers(Check, Item.Type, 0, 0);
        return;
    }
    for (uint32 Element = 0; Element < Item.Count && !Check.Failed; ++Element) {
        file_section_reference At = Advance(Item.Object, (uint64)Element * Size);
        CheckMembers(Check, Item.Type, &At, 0);
    }
}

} // namespace

bool CheckLoadedFileTree(loaded_file const &File)
{
    tree_check Check;
    memset(&Check, 0, sizeof(Check));
    Check.File = &File;
    Check.Budget = CheckBudget;
    Queue(Check, File.Header.RootObjectTypeDefinition, File.Header.RootObject, 1);
    while (!Check.Failed && Check.PendingCount > 0) {
        check_item Item = Check.Pending[--Check.PendingCount];
        CheckItem(Check, Item);
    }
    if (Check.Seen) TesselFree(Check.Seen);
    if (Check.Used) TesselFree(Check.Used);
    if (Check.Pending) TesselFree(Check.Pending);
    return !Check.Failed;
}

namespace {

struct match_pair
{
    file_section_reference File;
    data_type_definition const *Program;
};

bool TypesMatch(loaded_file const &File, file_section_reference Type, data_type_definition const *Expected,
                match_pair *Chain, int32 ChainCount)
{
    if (!Expected) return false;
    for (int32 Index = 0; Index < ChainCount; ++Index) {
        if (Chain[Index].Program == Expected && Chain[Index].File.SectionIndex == Type.SectionIndex &&
            Chain[Index].File.Offset == Type.Offset) {
            return true;
        }
    }
    if (ChainCount >= MaxMatchChain) return false;
    Chain[ChainCount].File = Type;
    Chain[ChainCount].Program = Expected;

    file_type_member Member;
    for (int32 Index = 0;; ++Index) {
        if (!ReadFileTypeMemberRecord(File, Type, Index, &Member)) return false;
        data_type_definition const &Want = Expected[Index];
        if (Member.Kind != (int32)Want.Type) return false;
        if (Member.Kind == EndMember) return true;
        int32 WantWidth = Want.ArrayWidth == 0 ? 1 : Want.ArrayWidth;
        if (Member.ArrayWidth != WantWidth) return false;
        if (!Member.Name || !Want.Name || strcmp(Member.Name, Want.Name) != 0) return false;
        if (Member.HasReferenceType != (Want.ReferenceType != 0)) return false;
        if (Member.HasReferenceType &&
            !TypesMatch(File, Member.ReferenceType, Want.ReferenceType, Chain, ChainCount + 1)) {
            return false;
        }
    }
}

} // namespace

bool FileTypeMatches(loaded_file const &File, file_section_reference Type, data_type_definition const *Expected)
{
    match_pair Chain[MaxMatchChain];
    return TypesMatch(File, Type, Expected, Chain, 0);
}

void *GetLoadedFileRootObjectOfType(loaded_file const &File, data_type_definition const *Expected)
{
    if (!FileTypeMatches(File, File.Header.RootObjectTypeDefinition, Expected)) return 0;
    return GetLoadedFileRootObject(File, 0);
}
