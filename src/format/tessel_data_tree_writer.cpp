#include "format/tessel_data_tree_writer.h"

#include <cstring>

#include "format/tessel_file_format.h"
#include "format/tessel_schema.h"
#include "format/tessel_string_table.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"

namespace {

struct type_table_link
{
    data_type_definition *Type;
    type_table_link *Next;
};

struct type_chain
{
    data_type_definition const *Type;
    type_chain const *Previous;
};

// Offsets of the slots inside the 64-bit member kinds.
enum
{
    ArrayPointerOffset = 4,      // count, pointer
    VariantObjectOffset = 8,     // type, object
    VariantArrayCountOffset = 8, // type, count, array
    VariantArrayPointerOffset = 12,
    TypeRecordNameOffset = 4,
    TypeRecordReferenceOffset = 12,
    PointerSlotSize = 8,
};

file_location MoveLocation(file_location Location, intaddrx Delta)
{
    Location.Offset += (uint32)Delta;
    return Location;
}

// ---------------------------------------------------------------------------
// Entries and sections.

object_entry *NewEntry(file_data_tree_writer &Writer)
{
    object_entry *Entry = (object_entry *)NewStackUnit(Writer.ObjectEntries, 0);
    if (Entry) {
        std::memset(Entry, 0, sizeof(*Entry));
        Entry->ChildSectionIndex = Writer.DefaultObjectSectionIndex;
        ++Writer.ObjectEntryCount;
    }
    return Entry;
}

// Entry of an object of a known type; a new object takes the section that
// its type asks for.
object_entry *GetObjectEntry(file_data_tree_writer &Writer, data_type_definition const *Type, void const *Object)
{
    void *Found = 0;
    if (GetHashedPointerData(&Writer.DataHash, Object, &Found)) {
        return (object_entry *)Found;
    }
    object_entry *Entry = NewEntry(Writer);
    if (!Entry) {
        TesselError(LogCategory_FileWriting, "Out of memory for object entries");
        return 0;
    }
    if (Object) {
        object_entry *TypeEntry = GetObjectEntry(Writer, 0, Type);
        Entry->Position.SectionIndex = TypeEntry ? TypeEntry->ChildSectionIndex : Writer.DefaultObjectSectionIndex;
    } else {
        TesselError(LogCategory_FileWriting, "DataHash apparently corrupted, choosing default section for object");
        Entry->Position.SectionIndex = Writer.DefaultObjectSectionIndex;
    }
    AddPointerToHash(&Writer.DataHash, Object, Entry);
    return Entry;
}

// True the first time in this traversal; marks the entry.
bool FirstVisit(file_data_tree_writer &Writer, object_entry &Entry)
{
    if (Entry.LastTraversal == Writer.TraversalNumber) {
        return false;
    }
    Entry.LastTraversal = Writer.TraversalNumber;
    return true;
}

// ---------------------------------------------------------------------------
// Type tables.

uint32 TypeCRCOnChain(data_type_definition const *Type, uint32 CRC, type_chain const *Chain)
{
    type_chain Link = {Type, Chain};
    for (data_type_definition const *Member = Type; Member && Member->Type != EndMember; ++Member) {
        int32 Kind = Member->Type;
        CRC = UpdateCRC32(CRC, 4, &Kind);
        if (Member->Name) {
            CRC = UpdateCRC32(CRC, StringLength(Member->Name), Member->Name);
        }
        if ((Kind == ReferenceMember || Kind == ReferenceToArrayMember || Kind == ArrayOfReferencesMember) &&
            Member->ReferenceType) {
            bool OnChain = false;
            for (type_chain const *At = &Link; At; At = At->Previous) {
                OnChain = OnChain || At->Type == Member->ReferenceType;
            }
            if (!OnChain) {
                uint32 Inner = EndCRC32(TypeCRCOnChain(Member->ReferenceType, BeginCRC32(), &Link));
                CRC = UpdateCRC32(CRC, 4, &Inner);
            }
        }
        int32 Width = Member->ArrayWidth;
        CRC = UpdateCRC32(CRC, 4, &Width);
    }
    return CRC;
}

// The one table that stands for all tables equal to Type.
data_type_definition *CanonicalType(file_data_tree_writer &Writer, data_type_definition *Type)
{
    uint32 CRC = ComputeTypeTableCRC(Type);
    void const *Key = (void const *)(uintaddrx)CRC;
    avl_node *Node = AVLFind(Writer.TypeTable, Key);
    type_table_link *First = Node ? (type_table_link *)Node->Value : 0;
    for (type_table_link *Link = First; Link; Link = Link->Next) {
        if (DataTypesAreEqual(Link->Type, Type)) {
            return Link->Type;
        }
    }
    type_table_link *Link = (type_table_link *)NewStackUnit(Writer.TypeLinks, 0);
    if (!Link) {
        return Type;
    }
    Link->Type = Type;
    Link->Next = First;
    if (Node) {
        Node->Value = Link;
    } else {
        AVLInsert(Writer.TypeTable, Key, Link);
    }
    return Type;
}

object_entry *WriteString(file_data_tree_writer &Writer, char const *String);

object_entry *WriteType(file_data_tree_writer &Writer, data_type_definition *Type)
{
    if (!Type) {
        return 0;
    }
    Type = CanonicalType(Writer, Type);
    object_entry *Entry = GetObjectEntry(Writer, 0, Type);
    if (!Entry || !FirstVisit(Writer, *Entry)) {
        return Entry;
    }
    WriteSectionData(Writer.Builder, Entry->Position.SectionIndex, 4, GetTotalTypeSize(Type), Type, &Entry->Position);
    file_location Position = Entry->Position;
    for (data_type_definition *Member = Type; Member->Type != EndMember; ++Member) {
        file_location MemberPosition = MoveLocation(Position, (Member - Type) * (intaddrx)sizeof(*Member));
        if (Member->Name) {
            object_entry *Name = WriteString(Writer, Member->Name);
            if (Name) {
                AddFixup(Writer.Builder, MemberPosition, TypeRecordNameOffset, Name->Position);
            }
        }
        if (Member->Type >= InlineMember && Member->Type <= ArrayOfReferencesMember && Member->ReferenceType) {
            object_entry *Referred = WriteType(Writer, Member->ReferenceType);
            if (Referred) {
                AddFixup(Writer.Builder, MemberPosition, TypeRecordReferenceOffset, Referred->Position);
            }
        }
    }
    return Entry;
}

// ---------------------------------------------------------------------------
// Strings.

object_entry *WriteString(file_data_tree_writer &Writer, char const *String)
{
    char *Interned = MapString(Writer.Strings, String);
    if (!Interned) {
        return 0;
    }
    object_entry *Entry = GetObjectEntry(Writer, StringElementType, Interned);
    if (Entry && FirstVisit(Writer, *Entry)) {
        WriteSectionData(Writer.Builder, Entry->Position.SectionIndex, 1, StringLength(Interned) + 1, Interned,
                         &Entry->Position);
    }
    return Entry;
}

// ---------------------------------------------------------------------------
// Normalising: degenerate references become nulls before the bytes are
// copied, so that equal trees give equal files.

void NormaliseObject(data_type_definition const *Type, uint8 *Object)
{
    for (; Type && Type->Type != EndMember; ++Type) {
        switch (Type->Type) {
        case InlineMember: {
            int32 Width = GetMemberArrayWidth(*Type);
            int32 Unit = GetMemberUnitSize(*Type);
            for (int32 Index = 0; Index < Width; ++Index) {
                NormaliseObject(Type->ReferenceType, Object + Index * Unit);
            }
            break;
        }
        case ReferenceMember:
            if (TypeIsEmpty(Type->ReferenceType)) {
                StorePointer(Object, 0);
            }
            break;
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
            if (LoadUnaligned<int32>(Object) == 0 || !LoadPointer(Object + ArrayPointerOffset)) {
                StoreUnaligned<int32>(Object, 0);
                StorePointer(Object + ArrayPointerOffset, 0);
            }
            break;
        case VariantReferenceMember: {
            data_type_definition const *VariantType = (data_type_definition const *)LoadPointer(Object);
            if (!VariantType || !LoadPointer(Object + VariantObjectOffset)) {
                StorePointer(Object, 0);
                StorePointer(Object + VariantObjectOffset, 0);
            } else if (TypeIsEmpty(VariantType)) {
                StorePointer(Object + VariantObjectOffset, 0);
            }
            break;
        }
        case ReferenceToVariantArrayMember: {
            data_type_definition const *VariantType = (data_type_definition const *)LoadPointer(Object);
            if (!VariantType || LoadUnaligned<int32>(Object + VariantArrayCountOffset) == 0 ||
                !LoadPointer(Object + VariantArrayPointerOffset) || TypeIsEmpty(VariantType)) {
                StorePointer(Object, 0);
                StoreUnaligned<int32>(Object + VariantArrayCountOffset, 0);
                StorePointer(Object + VariantArrayPointerOffset, 0);
            }
            break;
        }
        case EmptyReferenceMember: StorePointer(Object, 0); break;
        default: break;
        }
        Object += GetMemberTypeSize(*Type);
    }
}

// ---------------------------------------------------------------------------
// Objects and arrays.

object_entry *WriteObject(file_data_tree_writer &Writer, data_type_definition *Type, void *Object);
object_entry *WriteArray(file_data_tree_writer &Writer, data_type_definition *Type, int32 ParentSection, int32 Count,
                         void *Data);

void WalkMembers(file_data_tree_writer &Writer, data_type_definition *Type, file_location Position, uint8 *Object)
{
    for (data_type_definition *Member = Type; Member && Member->Type != EndMember; ++Member) {
        switch (Member->Type) {
        case InlineMember: {
            int32 Width = GetMemberArrayWidth(*Member);
            int32 Unit = GetMemberUnitSize(*Member);
            for (int32 Index = 0; Index < Width; ++Index) {
                WalkMembers(Writer, Member->ReferenceType, MoveLocation(Position, Index * Unit), Object + Index * Unit);
            }
            break;
        }
        case ReferenceMember: {
            void *Target = LoadPointer(Object);
            if (Target) {
                object_entry *Entry = WriteObject(Writer, Member->ReferenceType, Target);
                if (Entry) {
                    AddFixup(Writer.Builder, Position, 0, Entry->Position);
                }
            }
            break;
        }
        case ReferenceToArrayMember: {
            int32 Count = LoadUnaligned<int32>(Object) * GetMemberArrayWidth(*Member);
            void *Data = LoadPointer(Object + ArrayPointerOffset);
            if (Count && Data) {
                object_entry *Entry = WriteArray(Writer, Member->ReferenceType, Position.SectionIndex, Count, Data);
                if (Entry) {
                    AddFixup(Writer.Builder, Position, ArrayPointerOffset, Entry->Position);
                }
            }
            break;
        }
        case ArrayOfReferencesMember: {
            int32 Count = LoadUnaligned<int32>(Object);
            uint8 *Data = (uint8 *)LoadPointer(Object + ArrayPointerOffset);
            if (Count <= 0 || !Data) {
                break;
            }
            object_entry *Entry = GetObjectEntry(Writer, 0, Data);
            if (!Entry) {
                break;
            }
            if (!FirstVisit(Writer, *Entry)) {
                AddFixup(Writer.Builder, Position, ArrayPointerOffset, Entry->Position);
                break;
            }
            if (!Entry->Placed) {
                Entry->Position.SectionIndex = Position.SectionIndex;
            }
            WriteSectionData(Writer.Builder, Entry->Position.SectionIndex, 0, Count * PointerSlotSize, Data,
                             &Entry->Position);
            AddFixup(Writer.Builder, Position, ArrayPointerOffset, Entry->Position);
            file_location ArrayPosition = Entry->Position;
            for (int32 Index = 0; Index < Count; ++Index) {
                void *Target = LoadPointer(Data + Index * PointerSlotSize);
                if (Target) {
                    object_entry *TargetEntry = WriteObject(Writer, Member->ReferenceType, Target);
                    if (TargetEntry) {
                        AddFixup(Writer.Builder, ArrayPosition, Index * PointerSlotSize, TargetEntry->Position);
                    }
                }
            }
            break;
        }
        case VariantReferenceMember: {
            data_type_definition *VariantType = (data_type_definition *)LoadPointer(Object);
            if (VariantType) {
                object_entry *TypeEntry = WriteType(Writer, VariantType);
                if (TypeEntry) {
                    AddFixup(Writer.Builder, Position, 0, TypeEntry->Position);
                }
                void *Target = LoadPointer(Object + VariantObjectOffset);
                if (Target) {
                    object_entry *Entry = WriteObject(Writer, VariantType, Target);
                    if (Entry) {
                        AddFixup(Writer.Builder, Position, VariantObjectOffset, Entry->Position);
                    }
                }
            }
            break;
        }
        case ReferenceToVariantArrayMember: {
            data_type_definition *VariantType = (data_type_definition *)LoadPointer(Object);
            if (VariantType) {
                object_entry *TypeEntry = WriteType(Writer, VariantType);
                if (TypeEntry) {
                    AddFixup(Writer.Builder, Position, 0, TypeEntry->Position);
                }
                int32 Count = LoadUnaligned<int32>(Object + VariantArrayCountOffset);
                void *Data = LoadPointer(Object + VariantArrayPointerOffset);
                if (Count && Data) {
                    object_entry *Entry = WriteArray(Writer, VariantType, Position.SectionIndex, Count, Data);
                    if (Entry) {
                        AddFixup(Writer.Builder, Position, VariantArrayPointerOffset, Entry->Position);
                    }
                }
            }
            break;
        }
        case StringMember: {
            char const *String = (char const *)LoadPointer(Object);
            if (String) {
                object_entry *Entry = WriteString(Writer, String);
                if (Entry) {
                    AddFixup(Writer.Builder, Position, 0, Entry->Position);
                }
            }
            break;
        }
        default: break;
        }
        int32 Size = GetMemberTypeSize(*Member);
        Position = MoveLocation(Position, Size);
        Object += Size;
    }
}

object_entry *WriteObject(file_data_tree_writer &Writer, data_type_definition *Type, void *Object)
{
    object_entry *Entry = GetObjectEntry(Writer, Type, Object);
    if (!Entry || !FirstVisit(Writer, *Entry)) {
        return Entry;
    }
    NormaliseObject(Type, (uint8 *)Object);
    uint32 Marshalling = GetTypeMarshalling(Type);
    WriteSectionData(Writer.Builder, Entry->Position.SectionIndex, Marshalling, GetTotalObjectSize(Type), Object,
                     &Entry->Position);
    if (IsMixedMarshalling(Marshalling)) {
        object_entry *TypeEntry = WriteType(Writer, Type);
        if (TypeEntry) {
            AddMarshalling(Writer.Builder, TypeEntry->Position, Entry->Position, 1);
        }
    }
    WalkMembers(Writer, Type, Entry->Position, (uint8 *)Object);
    return Entry;
}

object_entry *WriteArray(file_data_tree_writer &Writer, data_type_definition *Type, int32 ParentSection, int32 Count,
                         void *Data)
{
    object_entry *Entry = GetObjectEntry(Writer, Type, Data);
    if (!Entry || !FirstVisit(Writer, *Entry)) {
        return Entry;
    }
    if (!Entry->Placed) {
        Entry->Position.SectionIndex = ParentSection;
    }
    int32 ElementSize = GetTotalObjectSize(Type);
    bool HasPointers = TypeHasPointers(Type);
    uint8 *Element = (uint8 *)Data;
    for (int32 Index = 0; Index < Count; ++Index, Element += ElementSize) {
        NormaliseObject(Type, Element);
    }
    int64 WideSize = (int64)Count * ElementSize;
    int32 Size = 0;
    CheckConvertToInt32(Size, WideSize, LogCategory_FileWriting, Entry);
    uint32 Marshalling = GetTypeMarshalling(Type);
    WriteSectionData(Writer.Builder, Entry->Position.SectionIndex, Marshalling, Size, Data, &Entry->Position);
    if (IsMixedMarshalling(Marshalling)) {
        object_entry *TypeEntry = WriteType(Writer, Type);
        if (TypeEntry) {
            AddMarshalling(Writer.Builder, TypeEntry->Position, Entry->Position, Count);
        }
    }
    if (HasPointers) {
        file_location Position = Entry->Position;
        Element = (uint8 *)Data;
        for (int32 Index = 0; Index < Count; ++Index, Element += ElementSize) {
            WalkMembers(Writer, Type, MoveLocation(Position, (intaddrx)Index * ElementSize), Element);
        }
    }
    return Entry;
}

} // namespace

uint32 ComputeTypeTableCRC(data_type_definition const *Type)
{
    return EndCRC32(TypeCRCOnChain(Type, BeginCRC32(), 0));
}

file_data_tree_writer *BeginFileDataTreeWriting(data_type_definition *RootType, void *RootObject,
                                                int32 DefaultTypeSectionIndex, int32 DefaultObjectSectionIndex)
{
    file_data_tree_writer *Writer = (file_data_tree_writer *)TesselAllocate(sizeof(file_data_tree_writer));
    if (!Writer) {
        return 0;
    }
    std::memset(Writer, 0, sizeof(*Writer));
    Writer->RootObjectTypeDefinition = RootType;
    Writer->RootObject = RootObject;
    Writer->DefaultTypeSectionIndex = DefaultTypeSectionIndex;
    Writer->DefaultObjectSectionIndex = DefaultObjectSectionIndex;
    InitializeAVLTree(Writer->DataHash, 0, 0);
    InitializeAVLTree(Writer->TypeTable, 0, 0);
    bool Ready = StackInitialize(Writer->ObjectEntries, (int32)sizeof(object_entry), ObjectEntriesPerBlock) &&
                 StackInitialize(Writer->TypeLinks, (int32)sizeof(type_table_link), 256);

    // The null key holds the defaults: type tables go to the type section.
    object_entry *Defaults = Ready ? NewEntry(*Writer) : 0;
    if (!Defaults || !AVLInsert(Writer->DataHash, 0, Defaults)) {
        EndFileDataTreeWriting(Writer);
        return 0;
    }
    Defaults->ChildSectionIndex = DefaultTypeSectionIndex;
    Defaults->Position.SectionIndex = DefaultTypeSectionIndex;
    return Writer;
}

void SetFileWriterFlags(file_data_tree_writer *Writer, uint32 Flags)
{
    CheckPointer(Writer, LogCategory_FileWriting, TESSEL_NOTHING);
    Writer->Flags = Flags;
}

void SetFileSectionForObjectsOfType(file_data_tree_writer *Writer, data_type_definition const *Type, int32 SectionIndex)
{
    CheckPointer(Writer, LogCategory_FileWriting, TESSEL_NOTHING);
    object_entry *Entry = GetObjectEntry(*Writer, 0, Type);
    if (Entry) {
        Entry->ChildSectionIndex = SectionIndex;
    }
}

void SetFileSectionForObject(file_data_tree_writer *Writer, void const *Object, int32 SectionIndex)
{
    CheckPointer(Writer, LogCategory_FileWriting, TESSEL_NOTHING);
    CheckPointer(Object, LogCategory_FileWriting, TESSEL_NOTHING);
    object_entry *Entry = GetObjectEntry(*Writer, 0, Object);
    if (Entry) {
        Entry->Position.SectionIndex = SectionIndex;
        Entry->Placed = true;
    }
}

bool WriteDataTreeToFileBuilder(file_data_tree_writer *Writer, file_builder *Builder)
{
    CheckPointer(Writer, LogCategory_FileWriting, false);
    CheckPointer(Builder, LogCategory_FileWriting, false);
    ++Writer->TraversalNumber;
    if (Writer->TraversalNumber == 0) {
        ++Writer->TraversalNumber; // 0 stands for "never written"
    }

    if (!IsNativeFileMagicValue(Builder->PlatformMagicValue)) {
        // The conversion walks the type tree, so the intermediate file must
        // have it; the conversion leaves it out instead.
        Builder->ExcludeTypeTreeInConversion = (Writer->Flags & ExcludeTypeTree) != 0;
        Writer->Flags &= ~(uint32)ExcludeTypeTree;
    }

    Writer->Strings = NewStringTable();
    if (!Writer->Strings) {
        TesselError(LogCategory_FileWriting, "Unable to create file string table builder");
        return false;
    }
    Writer->Builder = Builder;

    file_location ObjectLocation = {};
    if (Writer->RootObject) {
        object_entry *Entry = WriteObject(*Writer, Writer->RootObjectTypeDefinition, Writer->RootObject);
        if (Entry) {
            ObjectLocation = Entry->Position;
        }
    }
    data_type_definition *RootType = (Writer->Flags & ExcludeTypeTree) ? EmptyType : Writer->RootObjectTypeDefinition;
    file_location TypeLocation = {};
    object_entry *TypeEntry = WriteType(*Writer, RootType);
    if (TypeEntry) {
        TypeLocation = TypeEntry->Position;
    }
    SetFileRoots(Builder, TypeLocation, ObjectLocation);

    FreeStringTable(Writer->Strings);
    Writer->Strings = 0;
    Writer->Builder = 0;
    return true;
}

void EndFileDataTreeWriting(file_data_tree_writer *Writer)
{
    if (!Writer) {
        return;
    }
    ClearAVLTree(Writer->DataHash);
    ClearAVLTree(Writer->TypeTable);
    StackCleanUp(Writer->ObjectEntries);
    StackCleanUp(Writer->TypeLinks);
    FreeStringTable(Writer->Strings);
    TesselFree(Writer);
}
