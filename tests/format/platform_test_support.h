// Checks of converted TS2 files, shared by the format and tools tests:
// - the tree of one file against another's, member by member through each
//   file's own type tables (any pointer sizes), pointers compared by what
//   they point at and by which objects they share;
// - the magic block, header, section table and CRC of a platform's file;
// - a big-endian file against the little-endian file of the same pointer
//   size: every multi-byte field of the big-endian one, swapped by its type,
//   gives the little-endian bytes, and nothing else differs.
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "format/tessel_file_compressor.h"
#include "format/tessel_file_format.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_platform_convert.h"
#include "foundation/tessel_file_io.h"

namespace platform_test {

typedef std::vector<uint8> bytes;

inline uint64 Key(file_section_reference Location)
{
    return ((uint64)Location.SectionIndex << 32) | Location.Offset;
}

inline file_section_reference At(file_section_reference Location, uint32 Delta)
{
    Location.Offset += Delta;
    return Location;
}

inline uint32 ReadWord(loaded_file const &File, file_section_reference Location)
{
    uint32 Value = 0;
    if (uint8 const *Bytes = GetLoadedFileBytes(File, Location, 4)) memcpy(&Value, Bytes, 4);
    return Value;
}

// The file as stored (no re-laying, pointers kept as locations).
inline loaded_file *LoadStored(bytes const &File)
{
    file_reader *Reader = CreateMemoryFileReader((int32)File.size(), File.data());
    loaded_file *Loaded = Reader ? LoadStoredFileFromReader(Reader) : 0;
    if (Reader) CloseFileReader(Reader);
    return Loaded;
}

// ---------------------------------------------------------------------------
// Tree comparison.

// A multi-byte field: where, its unit of byte order, its bytes.
struct field_span
{
    file_section_reference Location;
    uint32 Unit;
    uint32 Size;
};

struct tree_comparison
{
    loaded_file const *A;
    loaded_file const *B;
    // When set, every multi-byte field of A that the walk meets.
    std::vector<field_span> *Spans = nullptr;
    std::map<uint64, uint64> Objects; // location in A to location in B
    std::map<uint64, uint64> Types;
    std::map<uint64, bool> Flat; // type in A holds no pointers
    std::string Difference;
    int Visits = 0;

    bool IsFlat(file_section_reference Type, int Depth = 0)
    {
        auto Found = Flat.find(Key(Type));
        if (Found != Flat.end()) return Found->second;
        bool Result = Depth < 32;
        file_type_member Member;
        for (int32 Index = 0; Result && ReadFileTypeMemberRecord(*A, Type, Index, &Member) && Member.Kind; ++Index) {
            if (Member.Kind == 1) Result = IsFlat(Member.ReferenceType, Depth + 1);
            if (GetFileMemberKindSize(Member.Kind, 32) != GetFileMemberKindSize(Member.Kind, 64) || Member.Kind == 8 ||
                Member.Kind == 2 || Member.Kind == 22) {
                Result = false;
            }
        }
        Flat[Key(Type)] = Result;
        return Result;
    }

    void Span(file_section_reference Location, uint32 Unit, uint32 Size)
    {
        if (Spans) Spans->push_back({Location, Unit, Size});
    }
    void Slot(file_section_reference Location) { Span(Location, 4, (uint32)A->PointerBits / 8); }

    bool Fail(std::string const &Path, std::string const &What)
    {
        if (Difference.empty()) Difference = Path + ": " + What;
        return false;
    }

    // True when A's location was met before; then it must have met B's.
    bool Seen(std::map<uint64, uint64> &Pairs, file_section_reference LA, file_section_reference LB, bool *Consistent)
    {
        auto Found = Pairs.find(Key(LA));
        if (Found == Pairs.end()) {
            Pairs[Key(LA)] = Key(LB);
            return false;
        }
        *Consistent = Found->second == Key(LB);
        return true;
    }

    bool CompareTypes(file_section_reference TA, file_section_reference TB, std::string const &Path)
    {
        bool Consistent = true;
        if (Seen(Types, TA, TB, &Consistent)) return Consistent || Fail(Path, "type tables shared differently");
        uint32 const Record = A->PointerBits == 32 ? 32 : 44, Reference = A->PointerBits == 32 ? 8 : 12;
        for (int32 Index = 0;; ++Index) {
            file_type_member MA, MB;
            bool HasA = ReadFileTypeMemberRecord(*A, TA, Index, &MA),
                 HasB = ReadFileTypeMemberRecord(*B, TB, Index, &MB);
            if (!HasA || !HasB) return Fail(Path, "unreadable type table");
            // Kind, name and referred type slots; width, extra words and the
            // last slot, all in 32-bit units.
            file_section_reference R = At(TA, (uint32)Index * Record);
            Span(R, 4, 4);
            Slot(At(R, 4));
            Slot(At(R, Reference));
            Span(At(R, Reference + (uint32)A->PointerBits / 8), 4, Record - Reference - (uint32)A->PointerBits / 8);
            if (MA.Kind != MB.Kind || MA.ArrayWidth != MB.ArrayWidth) return Fail(Path, "member kinds differ");
            if (MA.Kind == 0) return true;
            std::string Name = MA.Name ? MA.Name : "(null)";
            if (!MA.Name != !MB.Name || (MA.Name && strcmp(MA.Name, MB.Name) != 0))
                return Fail(Path, "member names differ");
            if (MA.HasReferenceType != MB.HasReferenceType) return Fail(Path + "." + Name, "referred types differ");
            if (MA.HasReferenceType && !CompareTypes(MA.ReferenceType, MB.ReferenceType, Path + "." + Name))
                return false;
        }
    }

    // Both slots null, or both leading to the same thing.
    bool Targets(file_section_reference SA, file_section_reference SB, file_section_reference *TA,
                 file_section_reference *TB, std::string const &Path)
    {
        bool RA = ResolveFilePointer(*A, SA, TA), RB = ResolveFilePointer(*B, SB, TB);
        if (RA != RB) return Fail(Path, "one pointer is null"), false;
        return RA;
    }

    bool CompareObjects(file_section_reference TA, file_section_reference LA, file_section_reference TB,
                        file_section_reference LB, uint32 Count, std::string const &Path)
    {
        if (++Visits > 20000000) return Fail(Path, "too many visits");
        bool Consistent = true;
        if (Seen(Objects, LA, LB, &Consistent)) return Consistent || Fail(Path, "objects shared differently");
        if (!CompareTypes(TA, TB, Path)) return false;
        uint32 SizeA = 0, SizeB = 0;
        if (!GetFileTypeObjectSize(*A, TA, &SizeA) || !GetFileTypeObjectSize(*B, TB, &SizeB)) {
            return Fail(Path, "unsized type");
        }
        if (!Spans && IsFlat(TA)) {
            // Scalars only: the same bytes in both.
            uint8 const *BytesA = GetLoadedFileBytes(*A, LA, SizeA * Count),
                        *BytesB = GetLoadedFileBytes(*B, LB, SizeB * Count);
            if (SizeA == SizeB && BytesA && BytesB && memcmp(BytesA, BytesB, SizeA * Count) == 0) return true;
        }
        for (uint32 Element = 0; Element < Count; ++Element) {
            std::string ElementPath = Count > 1 ? Path + "[" + std::to_string(Element) + "]" : Path;
            if (!CompareMembers(TA, At(LA, Element * SizeA), TB, At(LB, Element * SizeB), ElementPath)) return false;
        }
        return true;
    }

    bool CompareMembers(file_section_reference TA, file_section_reference OA, file_section_reference TB,
                        file_section_reference OB, std::string const &Path)
    {
        uint32 const PA = (uint32)A->PointerBits / 8, PB = (uint32)B->PointerBits / 8;
        for (int32 Index = 0;; ++Index) {
            file_type_member MA, MB;
            if (!GetFileTypeMember(*A, TA, Index, &MA)) return true; // the types were compared already
            GetFileTypeMember(*B, TB, Index, &MB);
            std::string Here = Path + "." + (MA.Name ? MA.Name : "?");
            file_section_reference SA = At(OA, MA.SlotOffset), SB = At(OB, MB.SlotOffset), XA, XB, VA, VB;
            switch (MA.Kind) {
            case 1: {
                uint32 UnitA = MA.Size / MA.ArrayWidth, UnitB = MB.Size / MB.ArrayWidth;
                for (int32 Element = 0; Element < MA.ArrayWidth; ++Element) {
                    if (!CompareMembers(MA.ReferenceType, At(SA, Element * UnitA), MB.ReferenceType,
                                        At(SB, Element * UnitB), Here)) {
                        return false;
                    }
                }
                break;
            }
            case 2:
                Slot(SA);
                if (Targets(SA, SB, &XA, &XB, Here) &&
                    !CompareObjects(MA.ReferenceType, XA, MB.ReferenceType, XB, 1, Here)) {
                    return false;
                }
                break;
            case 3:
            case 4: {
                uint32 CountA = ReadWord(*A, SA), CountB = ReadWord(*B, SB);
                Span(SA, 4, 4);
                Slot(At(SA, 4));
                if (CountA != CountB) return Fail(Here, "counts differ");
                if (!Targets(At(SA, 4), At(SB, 4), &XA, &XB, Here) || !CountA) break;
                if (MA.Kind == 3) {
                    if (!CompareObjects(MA.ReferenceType, XA, MB.ReferenceType, XB, CountA, Here)) return false;
                    break;
                }
                bool Consistent = true;
                if (Seen(Objects, XA, XB, &Consistent)) {
                    if (!Consistent) return Fail(Here, "pointer arrays shared differently");
                    break;
                }
                for (uint32 Element = 0; Element < CountA; ++Element) {
                    Slot(At(XA, Element * PA));
                    std::string ElementPath = Here + "[" + std::to_string(Element) + "]";
                    if (Targets(At(XA, Element * PA), At(XB, Element * PB), &VA, &VB, ElementPath) &&
                        !CompareObjects(MA.ReferenceType, VA, MB.ReferenceType, VB, 1, ElementPath)) {
                        return false;
                    }
                }
                break;
            }
            case 5:
                Slot(SA);
                Slot(At(SA, PA));
                if (Targets(SA, SB, &VA, &VB, Here) && Targets(At(SA, PA), At(SB, PB), &XA, &XB, Here) &&
                    !CompareObjects(VA, XA, VB, XB, 1, Here)) {
                    return false;
                }
                break;
            case 7: {
                uint32 CountA = ReadWord(*A, At(SA, PA)), CountB = ReadWord(*B, At(SB, PB));
                Slot(SA);
                Span(At(SA, PA), 4, 4);
                Slot(At(SA, PA + 4));
                if (CountA != CountB) return Fail(Here, "counts differ");
                if (Targets(SA, SB, &VA, &VB, Here) && Targets(At(SA, PA + 4), At(SB, PB + 4), &XA, &XB, Here) &&
                    CountA && !CompareObjects(VA, XA, VB, XB, CountA, Here)) {
                    return false;
                }
                break;
            }
            case 8:
                Slot(SA);
                if (Targets(SA, SB, &XA, &XB, Here)) {
                    char const *StringA = GetLoadedFileString(*A, XA), *StringB = GetLoadedFileString(*B, XB);
                    if (!StringA || !StringB || strcmp(StringA, StringB) != 0) return Fail(Here, "strings differ");
                }
                break;
            case 22: Slot(SA); break;
            default: {
                int32 Unit = GetFileMemberKindMarshalling(MA.Kind);
                if (Unit > 1) Span(SA, (uint32)Unit, MA.Size);
                uint8 const *BytesA = GetLoadedFileBytes(*A, SA, MA.Size),
                            *BytesB = GetLoadedFileBytes(*B, SB, MB.Size);
                if (!BytesA || !BytesB || MA.Size != MB.Size || memcmp(BytesA, BytesB, MA.Size) != 0) {
                    return Fail(Here, "values differ");
                }
            }
            }
        }
    }
};

// Empty when the trees of A and B are equal, else where they differ.
inline std::string CompareTrees(loaded_file const &A, loaded_file const &B)
{
    tree_comparison Comparison;
    Comparison.A = &A;
    Comparison.B = &B;
    Comparison.CompareObjects(A.Header.RootObjectTypeDefinition, A.Header.RootObject, B.Header.RootObjectTypeDefinition,
                              B.Header.RootObject, 1, "Root");
    return Comparison.Difference;
}

// ---------------------------------------------------------------------------
// Header and layout of a platform's file.

inline uint32 Word(bytes const &File, size_t Offset, bool BigEndian)
{
    uint32 Value = 0;
    if (Offset + 4 <= File.size()) memcpy(&Value, &File[Offset], 4);
    if (BigEndian) Reverse32(1, &Value);
    return Value;
}

// Empty when the file is laid out for the platform as the format says.
inline std::string CheckPlatformFile(bytes const &File, int32 PointerBits, bool LittleEndian)
{
    file_magic_block const *Magic = GetPlatformFileMagicBlock(PointerBits, LittleEndian);
    bool Big = !LittleEndian;
    if (File.size() < 456) return "shorter than its header";
    if (memcmp(File.data(), Magic->MagicValue, FileMagicValueSize) != 0) return "magic value";
    if (Word(File, 16, Big) != 456 || Word(File, 20, Big) != 0 || Word(File, 24, Big) || Word(File, 28, Big)) {
        return "magic block fields";
    }
    if (Word(File, 32, Big) != 7) return "version";
    if (Word(File, 36, Big) != File.size()) return "TotalSize";
    if (Word(File, 40, Big) != ComputeCRC32((int32)File.size() - 104, &File[104])) return "CRC";
    if (Word(File, 44, Big) != 72 || Word(File, 48, Big) != 8) return "section table position or count";
    if (Word(File, 68, Big) != (uint32)TesselStandardFileTypeTag) return "type tag";
    for (uint32 Section = 0; Section < 8; ++Section) {
        size_t Record = 104 + 44 * Section;
        uint32 DataOffset = Word(File, Record + 4, Big), DataSize = Word(File, Record + 8, Big);
        uint32 Expanded = Word(File, Record + 12, Big), First16 = Word(File, Record + 20, Big),
               First8 = Word(File, Record + 24, Big);
        uint32 Fixups = Word(File, Record + 28, Big), FixupCount = Word(File, Record + 32, Big);
        uint32 Marshallings = Word(File, Record + 36, Big), MarshallingCount = Word(File, Record + 40, Big);
        std::string Name = "section " + std::to_string(Section) + " ";
        if (DataOffset % 4 || Fixups % 4 || Marshallings % 4) return Name + "offsets not on 4 bytes";
        if ((uint64)DataOffset + DataSize > File.size() || (uint64)Fixups + 12ull * FixupCount > File.size() ||
            (uint64)Marshallings + 16ull * MarshallingCount > File.size()) {
            return Name + "runs out of the file";
        }
        if (First16 > First8 || First8 > Expanded) return Name + "streams out of order";
        if (Expanded == 0 && (DataSize || First16 || First8)) return Name + "empty but with sizes";
    }
    return "";
}

// ---------------------------------------------------------------------------
// Byte order.

// The expanded sections exactly as the file stores them (no reversal).
inline std::vector<bytes> RawSections(bytes const &File, bool BigEndian)
{
    std::vector<bytes> Sections(8);
    for (uint32 Section = 0; Section < 8; ++Section) {
        size_t Record = 104 + 44 * Section;
        uint32 Format = Word(File, Record, BigEndian), Offset = Word(File, Record + 4, BigEndian),
               Size = Word(File, Record + 8, BigEndian), Expanded = Word(File, Record + 12, BigEndian);
        Sections[Section].assign(Expanded, 0);
        if (!Expanded) continue;
        if (Format == 0) {
            memcpy(Sections[Section].data(), &File[Offset], Size);
            continue;
        }
        bytes Stored(File.begin() + Offset, File.begin() + Offset + Size);
        Stored.resize(Size + TrovePaddingBytes + 4, 0);
        DecompressData((int32)Format, BigEndian, (int32)Size, Stored.data(), (int32)Word(File, Record + 20, BigEndian),
                       (int32)Word(File, Record + 24, BigEndian), (int32)Expanded, Sections[Section].data());
    }
    return Sections;
}

// The fixup and marshalling arrays of all sections, as stored.
inline bytes RawArrays(bytes const &File, bool BigEndian)
{
    bytes Arrays;
    for (uint32 Section = 0; Section < 8; ++Section) {
        size_t Record = 104 + 44 * Section;
        uint32 Fixups = Word(File, Record + 28, BigEndian), FixupCount = Word(File, Record + 32, BigEndian);
        uint32 Marshallings = Word(File, Record + 36, BigEndian), MarshallingCount = Word(File, Record + 40, BigEndian);
        Arrays.insert(Arrays.end(), File.begin() + Fixups, File.begin() + Fixups + 12 * FixupCount);
        Arrays.insert(Arrays.end(), File.begin() + Marshallings, File.begin() + Marshallings + 16 * MarshallingCount);
    }
    return Arrays;
}

inline void Swap(uint8 *Data, uint32 Unit, uint32 Size)
{
    for (uint32 Offset = 0; Offset + Unit <= Size; Offset += Unit) {
        for (uint32 Low = 0, High = Unit - 1; Low < High; ++Low, --High)
            std::swap(Data[Offset + Low], Data[Offset + High]);
    }
}

// Empty when Big, with every field described by Little's type tables swapped
// by its unit, equals Little byte for byte (sections, arrays and header
// fields); else what differs.
inline std::string CompareByteOrders(bytes const &Little, bytes const &Big)
{
    loaded_file *File = LoadStored(Little);
    if (!File) return "the little-endian file doesn't load";
    std::vector<field_span> Spans;
    tree_comparison Walk;
    Walk.A = Walk.B = File;
    Walk.Spans = &Spans;
    Walk.CompareObjects(File->Header.RootObjectTypeDefinition, File->Header.RootObject,
                        File->Header.RootObjectTypeDefinition, File->Header.RootObject, 1, "Root");
    for (int32 Section = 0; Section < File->SectionCount; ++Section) {
        loaded_file_section const &Loaded = File->Sections[Section];
        for (uint32 Index = 0; Index < Loaded.MarshallingCount; ++Index) {
            Walk.CompareTypes(Loaded.Marshallings[Index].Type, Loaded.Marshallings[Index].Type, "");
        }
    }
    FreeLoadedFile(File);

    std::vector<bytes> LittleSections = RawSections(Little, false), BigSections = RawSections(Big, true);
    for (field_span const &Span : Spans) {
        bytes &Section = BigSections[Span.Location.SectionIndex];
        if ((uint64)Span.Location.Offset + Span.Size > Section.size()) return "a field outside its section";
        Swap(&Section[Span.Location.Offset], Span.Unit, Span.Size);
    }
    for (uint32 Section = 0; Section < 8; ++Section) {
        if (LittleSections[Section] == BigSections[Section]) continue;
        bytes const &A = LittleSections[Section], &B = BigSections[Section];
        if (A.size() != B.size()) return "section " + std::to_string(Section) + " sizes differ";
        size_t Offset = 0;
        while (A[Offset] == B[Offset]) ++Offset;
        return "section " + std::to_string(Section) + " differs at offset " + std::to_string(Offset);
    }
    bytes LittleArrays = RawArrays(Little, false), BigArrays = RawArrays(Big, true);
    Swap(BigArrays.data(), 4, (uint32)BigArrays.size());
    if (LittleArrays != BigArrays) return "fixup or marshalling arrays differ";
    // Header words other than the CRC and sizes, and the section records'
    // fields that don't depend on the stored sizes.
    for (size_t Offset : {32, 44, 48, 52, 56, 60, 64, 68}) {
        if (Word(Little, Offset, false) != Word(Big, Offset, true)) return "header word at " + std::to_string(Offset);
    }
    for (uint32 Section = 0; Section < 8; ++Section) {
        for (size_t Field : {0, 12, 16, 20, 24, 32, 40}) {
            size_t Offset = 104 + 44 * Section + Field;
            if (Word(Little, Offset, false) != Word(Big, Offset, true)) {
                return "section record word at " + std::to_string(Offset);
            }
        }
    }
    return "";
}

// ---------------------------------------------------------------------------
// All of it for one export.

inline bytes ConvertBytes(bytes const &File, file_magic_block const &Target)
{
    uint8 *Buffer = 0;
    int32 Size = 0;
    bytes Result;
    if (PlatformConvertMemory((int32)File.size(), File.data(), Target, &Buffer, &Size)) {
        Result.assign(Buffer, Buffer + Size);
    }
    FreeMemoryWriterBuffer(Buffer);
    return Result;
}

struct platform
{
    char const *Name;
    int32 PointerBits;
    bool LittleEndian;
};
platform const Platforms[4] = {{"32le", 32, true}, {"32be", 32, false}, {"64le", 64, true}, {"64be", 64, false}};

inline file_magic_block const &MagicOf(platform const &Platform)
{
    return *GetPlatformFileMagicBlock(Platform.PointerBits, Platform.LittleEndian);
}

// Converts a native file to the four platforms (into Files) and checks each:
// layout of the header, the tree as stored and as loaded into memory, the
// platform the loaded file reports, the way back to the native bytes, and
// the byte orders. Empty when all hold, else the first failure.
inline std::string CheckEveryPlatform(bytes const &Native, bytes Files[4])
{
    loaded_file *NativeStored = LoadStored(Native);
    if (!NativeStored) return "the native file doesn't load";
    std::string Failure;
    for (int Index = 0; Index < 4 && Failure.empty(); ++Index) {
        platform const &Platform = Platforms[Index];
        std::string Name = std::string(Platform.Name) + ": ";
        bytes &File = Files[Index];
        File = ConvertBytes(Native, MagicOf(Platform));
        std::string Layout = CheckPlatformFile(File, Platform.PointerBits, Platform.LittleEndian);
        if (!Layout.empty()) {
            Failure = Name + Layout;
            break;
        }
        loaded_file *Stored = LoadStored(File);
        loaded_file *Loaded = LoadFileFromMemory((int32)File.size(), File.data());
        int32 Bits = 0;
        bool Little = false;
        if (!Stored || !Loaded) {
            Failure = Name + "doesn't load";
        } else if (Stored->PointerBits != Platform.PointerBits || !GetLoadedFileRootObject(*Loaded, 0) ||
                   !GetMagicInfo(Loaded->Magic, &Bits, &Little) || Bits != Platform.PointerBits ||
                   Little != Platform.LittleEndian) {
            Failure = Name + "loads as another platform";
        } else {
            std::string Difference = CompareTrees(*NativeStored, *Stored);
            if (Difference.empty()) Difference = CompareTrees(*NativeStored, *Loaded);
            if (!Difference.empty()) Failure = Name + Difference;
        }
        FreeLoadedFile(Stored);
        FreeLoadedFile(Loaded);
        // The 64-bit little-endian file is the native one itself.
        bool Back = Index == 2 ? File == Native : ConvertBytes(File, GetNativeFileMagicBlock()) == Native;
        if (Failure.empty() && !Back) Failure = Name + "the way back differs";
    }
    FreeLoadedFile(NativeStored);
    if (Failure.empty()) Failure = CompareByteOrders(Files[0], Files[1]);
    if (Failure.empty()) Failure = CompareByteOrders(Files[2], Files[3]);
    return Failure;
}

} // namespace platform_test
