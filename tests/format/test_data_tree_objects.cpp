#include "test_data_tree_objects.h"

#include <cstring>
#include <set>
#include <tuple>

#include "format/tessel_schema.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "platform/tessel_platform.h"

namespace {

data_type_definition DefaultVariantType[] = {
    {Int16Member, "Small"},
    {Real32Member, "Value", 0, 2},
    {UInt8Member, "Bytes", 0, 3},
    {StringMember, "Label"},
    {EndMember},
};

uint32 NextRandom(test_fill_options &Options)
{
    Options.Seed = Options.Seed * 1664525u + 1013904223u;
    return Options.Seed >> 8;
}

real32 RandomReal(test_fill_options &Options)
{
    return (real32)((int32)(NextRandom(Options) % 2000) - 1000) * 0.125f + 0.0625f;
}

void FillScalar(member_type Kind, uint8 *Element, test_fill_options &Options)
{
    switch (Kind) {
    case Real32Member: StoreUnaligned<real32>(Element, RandomReal(Options)); break;
    case Int8Member:
    case UInt8Member:
    case BinormalInt8Member:
    case NormalUInt8Member: *Element = (uint8)(1 + NextRandom(Options) % 250); break;
    case Int16Member:
    case UInt16Member:
    case BinormalInt16Member:
    case NormalUInt16Member: StoreUnaligned<uint16>(Element, (uint16)(1 + NextRandom(Options) % 60000)); break;
    case Int32Member:
    case UInt32Member: StoreUnaligned<uint32>(Element, NextRandom(Options) | 1u); break;
    case Real16Member: StoreUnaligned<uint16>(Element, Real16FromReal32(RandomReal(Options))); break;
    case TransformMember: {
        transform Value;
        Value.Flags = HasPosition | HasOrientation | HasScaleShear;
        real32 *Reals = Value.Position;
        for (int32 Index = 0; Index < 16; ++Index) {
            Reals[Index] = RandomReal(Options);
        }
        std::memcpy(Element, &Value, sizeof(Value));
        break;
    }
    default: break;
    }
}

struct filler
{
    test_object_pool &Pool;
    test_fill_options &Options;

    char *String()
    {
        if (!Pool.RecentStrings.empty() && NextRandom(Options) % 4 == 0) {
            return Pool.CopyString(Pool.RecentStrings[NextRandom(Options) % Pool.RecentStrings.size()]);
        }
        std::string Text = "name_" + std::to_string(NextRandom(Options) % 100000);
        Pool.RecentStrings.push_back(Text);
        return Pool.CopyString(Text);
    }

    int32 Count() { return 1 + (int32)(NextRandom(Options) % (uint32)Options.MaxArrayCount); }

    void *Array(data_type_definition const *Type, int32 Count, int32 Depth)
    {
        int32 Size = GetTotalObjectSize(Type);
        uint8 *Data = (uint8 *)Pool.Allocate((size_t)(Size * Count));
        for (int32 Index = 0; Index < Count; ++Index) {
            Fill(Type, Data + Index * Size, Depth);
        }
        return Data;
    }

    void Fill(data_type_definition const *Type, void *Object, int32 Depth)
    {
        bool Deeper = Depth < Options.MaxDepth;
        uint8 *Address = (uint8 *)Object;
        for (data_type_definition const *Member = Type; Member && Member->Type != EndMember; ++Member) {
            int32 Width = GetMemberArrayWidth(*Member);
            int32 Unit = GetMemberUnitSize(*Member);
            switch (Member->Type) {
            case InlineMember:
                for (int32 Index = 0; Index < Width; ++Index) {
                    Fill(Member->ReferenceType, Address + Index * Unit, Depth);
                }
                break;
            case StringMember: StorePointer(Address, String()); break;
            case ReferenceMember:
                if (Deeper && !TypeIsEmpty(Member->ReferenceType)) {
                    StorePointer(Address, Array(Member->ReferenceType, 1, Depth + 1));
                }
                break;
            case ReferenceToArrayMember:
                if (Deeper && !TypeIsEmpty(Member->ReferenceType)) {
                    int32 Count = this->Count();
                    StoreUnaligned<int32>(Address, Count);
                    StorePointer(Address + 4, Array(Member->ReferenceType, Count, Depth + 1));
                }
                break;
            case ArrayOfReferencesMember:
                if (Deeper && !TypeIsEmpty(Member->ReferenceType)) {
                    int32 Count = this->Count();
                    void **Pointers = (void **)Pool.Allocate(sizeof(void *) * (size_t)Count);
                    for (int32 Index = 0; Index < Count; ++Index) {
                        Pointers[Index] = Array(Member->ReferenceType, 1, Depth + 1);
                    }
                    StoreUnaligned<int32>(Address, Count);
                    StorePointer(Address + 4, Pointers);
                }
                break;
            case VariantReferenceMember:
                if (Deeper) {
                    data_type_definition *VariantType =
                        Type == Curve2Type ? CurveFormatTypes[NextRandom(Options) % CurveFormatCount]
                                           : (Options.VariantType ? Options.VariantType : DefaultVariantType);
                    StorePointer(Address, VariantType);
                    StorePointer(Address + 8, Array(VariantType, 1, Depth + 1));
                }
                break;
            case ReferenceToVariantArrayMember:
                if (Deeper) {
                    data_type_definition *VariantType =
                        std::strcmp(Member->Name, "Vertices") == 0
                            ? StandardVertexLayouts[NextRandom(Options) % StandardVertexLayoutCount]
                            : (Options.VariantType ? Options.VariantType : DefaultVariantType);
                    int32 Count = this->Count();
                    StorePointer(Address, VariantType);
                    StoreUnaligned<int32>(Address + 8, Count);
                    StorePointer(Address + 12, Array(VariantType, Count, Depth + 1));
                }
                break;
            case EmptyReferenceMember: StorePointer(Address, 0); break;
            default:
                for (int32 Index = 0; Index < Width; ++Index) {
                    FillScalar(Member->Type, Address + Index * Unit, Options);
                }
                break;
            }
            Address += GetMemberTypeSize(*Member);
        }
    }
};

struct comparer
{
    std::string *Difference;
    std::set<std::tuple<void const *, void const *, void const *>> Seen;

    bool Fail(std::string const &Path, std::string const &What)
    {
        if (Difference) {
            *Difference = Path + ": " + What;
        }
        return false;
    }

    bool Array(data_type_definition const *TypeA, uint8 const *A, data_type_definition const *TypeB, uint8 const *B,
               int32 Count, std::string const &Path)
    {
        int32 SizeA = GetTotalObjectSize(TypeA);
        int32 SizeB = GetTotalObjectSize(TypeB);
        for (int32 Index = 0; Index < Count; ++Index) {
            if (!Objects(TypeA, A + Index * SizeA, TypeB, B + Index * SizeB,
                         Path + "[" + std::to_string(Index) + "]")) {
                return false;
            }
        }
        return true;
    }

    bool Objects(data_type_definition const *TypeA, void const *ObjectA, data_type_definition const *TypeB,
                 void const *ObjectB, std::string const &Path)
    {
        if (!ObjectA || !ObjectB) {
            return ObjectA == ObjectB ? true : Fail(Path, "one side is null");
        }
        if (!Seen.insert(std::make_tuple(ObjectA, ObjectB, (void const *)TypeA)).second) {
            return true;
        }
        uint8 const *A = (uint8 const *)ObjectA;
        uint8 const *B = (uint8 const *)ObjectB;
        data_type_definition const *MA = TypeA;
        data_type_definition const *MB = TypeB;
        for (; MA && MB && MA->Type != EndMember && MB->Type != EndMember; ++MA, ++MB) {
            std::string Here = Path + "." + (MA->Name ? MA->Name : "?");
            if (MA->Type != MB->Type || MA->ArrayWidth != MB->ArrayWidth || !MA->Name || !MB->Name ||
                std::strcmp(MA->Name, MB->Name) != 0) {
                return Fail(Here, "member definitions differ");
            }
            if (!Member(*MA, A, *MB, B, Here)) {
                return false;
            }
            A += GetMemberTypeSize(*MA);
            B += GetMemberTypeSize(*MB);
        }
        bool EndA = !MA || MA->Type == EndMember;
        bool EndB = !MB || MB->Type == EndMember;
        return EndA && EndB ? true : Fail(Path, "member counts differ");
    }

    bool Member(data_type_definition const &MA, uint8 const *A, data_type_definition const &MB, uint8 const *B,
                std::string const &Here)
    {
        switch (MA.Type) {
        case InlineMember: return Array(MA.ReferenceType, A, MB.ReferenceType, B, GetMemberArrayWidth(MA), Here);
        case StringMember: {
            char const *SA = (char const *)LoadPointer(A);
            char const *SB = (char const *)LoadPointer(B);
            if (!SA || !SB) {
                return SA == SB ? true : Fail(Here, "one string is null");
            }
            return std::strcmp(SA, SB) == 0 ? true : Fail(Here, std::string("\"") + SA + "\" vs \"" + SB + "\"");
        }
        case ReferenceMember: return Objects(MA.ReferenceType, LoadPointer(A), MB.ReferenceType, LoadPointer(B), Here);
        case ReferenceToArrayMember: {
            int32 CountA = LoadUnaligned<int32>(A);
            if (CountA != LoadUnaligned<int32>(B)) {
                return Fail(Here, "counts differ");
            }
            uint8 const *DataA = (uint8 const *)LoadPointer(A + 4);
            uint8 const *DataB = (uint8 const *)LoadPointer(B + 4);
            if (!DataA || !DataB) {
                return DataA == DataB ? true : Fail(Here, "one array is null");
            }
            return Array(MA.ReferenceType, DataA, MB.ReferenceType, DataB, CountA, Here);
        }
        case ArrayOfReferencesMember: {
            int32 CountA = LoadUnaligned<int32>(A);
            if (CountA != LoadUnaligned<int32>(B)) {
                return Fail(Here, "counts differ");
            }
            uint8 const *DataA = (uint8 const *)LoadPointer(A + 4);
            uint8 const *DataB = (uint8 const *)LoadPointer(B + 4);
            if (!DataA || !DataB) {
                return DataA == DataB ? true : Fail(Here, "one pointer array is null");
            }
            for (int32 Index = 0; Index < CountA; ++Index) {
                if (!Objects(MA.ReferenceType, LoadPointer(DataA + 8 * Index), MB.ReferenceType,
                             LoadPointer(DataB + 8 * Index), Here + "[" + std::to_string(Index) + "]")) {
                    return false;
                }
            }
            return true;
        }
        case VariantReferenceMember: {
            data_type_definition const *VA = (data_type_definition const *)LoadPointer(A);
            data_type_definition const *VB = (data_type_definition const *)LoadPointer(B);
            if (!DataTypesAreEqual(VA, VB)) {
                return Fail(Here, "variant types differ");
            }
            return Objects(VA, LoadPointer(A + 8), VB, LoadPointer(B + 8), Here);
        }
        case ReferenceToVariantArrayMember: {
            data_type_definition const *VA = (data_type_definition const *)LoadPointer(A);
            data_type_definition const *VB = (data_type_definition const *)LoadPointer(B);
            int32 CountA = LoadUnaligned<int32>(A + 8);
            if (!DataTypesAreEqual(VA, VB) || CountA != LoadUnaligned<int32>(B + 8)) {
                return Fail(Here, "variant array types or counts differ");
            }
            uint8 const *DataA = (uint8 const *)LoadPointer(A + 12);
            uint8 const *DataB = (uint8 const *)LoadPointer(B + 12);
            if (!DataA || !DataB) {
                return DataA == DataB ? true : Fail(Here, "one variant array is null");
            }
            return Array(VA, DataA, VB, DataB, CountA, Here);
        }
        case EmptyReferenceMember: return LoadPointer(B) == 0 ? true : Fail(Here, "empty reference is set");
        default: return std::memcmp(A, B, (size_t)GetMemberTypeSize(MA)) == 0 ? true : Fail(Here, "values differ");
        }
    }
};

} // namespace

void *test_object_pool::Allocate(size_t Size)
{
    Blocks.emplace_back(new uint8[Size + 1]());
    return Blocks.back().get();
}

char *test_object_pool::CopyString(std::string const &Text)
{
    char *Copy = (char *)Allocate(Text.size() + 1);
    std::memcpy(Copy, Text.c_str(), Text.size() + 1);
    return Copy;
}

void FillTestObject(test_object_pool &Pool, data_type_definition const *Type, void *Object, test_fill_options &Options)
{
    filler Filler = {Pool, Options};
    Filler.Fill(Type, Object, 0);
}

void *NewTestObject(test_object_pool &Pool, data_type_definition const *Type, test_fill_options &Options)
{
    void *Object = Pool.Allocate((size_t)GetTotalObjectSize(Type));
    FillTestObject(Pool, Type, Object, Options);
    return Object;
}

bool CompareTestObjects(data_type_definition const *TypeA, void const *A, data_type_definition const *TypeB,
                        void const *B, std::string *Difference)
{
    comparer Comparer = {Difference, {}};
    return Comparer.Objects(TypeA, A, TypeB, B, "root");
}

loaded_file *WriteTreeAndLoad(data_type_definition *Type, void *Root, test_tree_setup const &Setup)
{
    std::string Root_ = "types_test_" + std::to_string(GetProcessIdentifier());
    file_builder *Builder =
        BeginFile(8, 0x80000031u, GetNativeFileMagicBlock(), GetTemporaryDirectory(), Root_.c_str());
    if (!Builder) {
        return 0;
    }
    for (int32 Section = 0; Section < 8; ++Section) {
        SetFileSectionFormat(Builder, Section, 0, Setup.Alignment[Section]);
    }
    file_data_tree_writer *Writer =
        BeginFileDataTreeWriting(Type, Root, Setup.DefaultTypeSection, Setup.DefaultObjectSection);
    if (!Writer) {
        AbortFile(Builder);
        return 0;
    }
    if (Setup.Setup) {
        Setup.Setup(Writer, Setup.UserData);
    }
    SetFileWriterFlags(Writer, Setup.WriterFlags);
    bool Written = WriteDataTreeToFileBuilder(Writer, Builder);
    EndFileDataTreeWriting(Writer);
    if (!Written) {
        AbortFile(Builder);
        return 0;
    }
    file_writer *Memory = CreateMemoryFileWriter(65536);
    bool Ended = EndFileToWriter(Builder, Memory);
    uint8 *Buffer = 0;
    int32 Size = 0;
    bool Stolen = StealMemoryWriterBuffer(Memory, &Buffer, &Size);
    DeleteFileWriter(Memory);
    loaded_file *File = (Ended && Stolen) ? LoadFileFromMemory(Size, Buffer) : 0;
    FreeMemoryWriterBuffer(Buffer);
    return File;
}

int32 FindLoadedSection(loaded_file const &File, void const *Pointer)
{
    for (int32 Index = 0; Index < File.SectionCount; ++Index) {
        loaded_file_section const &Section = File.Sections[Index];
        uint8 const *At = (uint8 const *)Pointer;
        if (Section.Data && At >= Section.Data && At < Section.Data + Section.Header.ExpandedDataSize) {
            return Index;
        }
    }
    return -1;
}
