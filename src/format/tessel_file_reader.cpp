// Reading TS2 files: the section reader and the loaded file.
#include "format/tessel_file_reader.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#include "format/tessel_file_compressor.h"
#include "format/tessel_platform_convert.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

enum
{
    // A compressed section may not claim to expand more than this many times
    // its stored size (plus a little), which keeps bad files from asking for
    // huge blocks.
    MaxExpansionRatio = 8192,
    MaxSectionSize = 1 << 30,
    // Member visits allowed for one size computation.
    TypeWalkBudget = 1 << 20,
};

static uint32 AlignUp4(uint32 Value)
{
    return (Value + 3u) & ~3u;
}

// ---------------------------------------------------------------------------
// Header.

file_header *ReadFileHeader(file_reader *Reader, int32 Position, bool *IsByteReversed, bool *IsPointerSizeDifferent,
                            file_magic_block *MagicBlock, uint32 *HeaderBlockSize)
{
    CheckPointer(Reader, LogCategory_FileReading, 0);
    CheckPointer(IsByteReversed, LogCategory_FileReading, 0);
    CheckPointer(IsPointerSizeDifferent, LogCategory_FileReading, 0);
    CheckPointer(MagicBlock, LogCategory_FileReading, 0);

    file_magic_block Block;
    if (!ReadExactly(Reader, Position, sizeof(Block), &Block)) {
        TesselError(LogCategory_FileReading, "Unable to read magic value");
        return 0;
    }
    uint32 TotalHeaderSize = 0;
    if (!IsTesselFileHeader(Block, &TotalHeaderSize, IsByteReversed, IsPointerSizeDifferent)) {
        TesselError(LogCategory_FileReading, "File is not a Tessel file");
        return 0;
    }

    int32 PointerBits = 64;
    bool LittleEndian = true;
    GetMagicInfo(Block, &PointerBits, &LittleEndian);
    memcpy(Block.MagicValue, GetPlatformFileMagicBlock(PointerBits, LittleEndian)->MagicValue, FileMagicValueSize);
    if (*IsByteReversed) {
        Reverse32(1, &Block.TotalHeaderSize);
        Reverse32(1, &Block.HeaderFormat);
        Reverse32(2, Block.Reserved);
    }
    *MagicBlock = Block;

    if (Block.HeaderFormat != 0) {
        TesselError(LogCategory_FileReading, "File has an unrecognized header format (%d)", Block.HeaderFormat);
        return 0;
    }

    int32 Available = 0;
    bool KnowsSize = GetReaderSize(Reader, &Available);
    if (TotalHeaderSize > (uint32)INT32_MAX || (KnowsSize && (int64)TotalHeaderSize > (int64)Available)) {
        TesselError(LogCategory_FileReading, "Unable to read file header");
        return 0;
    }
    uint32 BlockSize = TotalHeaderSize < FileHeaderSize ? (uint32)FileHeaderSize : TotalHeaderSize;
    uint8 *Header = (uint8 *)TesselAllocate(AlignUp4(BlockSize));
    if (!Header) return 0;
    memset(Header, 0, AlignUp4(BlockSize));
    if (!ReadExactly(Reader, Position + FileMagicBlockSize, (int32)TotalHeaderSize, Header)) {
        TesselError(LogCategory_FileReading, "Unable to read file header");
        TesselFree(Header);
        return 0;
    }
    if (*IsByteReversed) Reverse32((int32)(BlockSize / 4), Header);
    if (HeaderBlockSize) *HeaderBlockSize = BlockSize;
    return (file_header *)Header;
}

file_section_header *GetFileSectionHeaders(file const &File)
{
    if (!File.Header) return 0;
    uint64 End = (uint64)File.Header->SectionArrayOffset + (uint64)File.SectionCount * FileSectionHeaderSize;
    if (End > File.HeaderBlockSize || File.Header->SectionArrayOffset % 4 != 0) return 0;
    return (file_section_header *)((uint8 *)File.Header + File.Header->SectionArrayOffset);
}

file *ReadFileFromReader(file_reader *Reader)
{
    bool IsByteReversed = false, IsPointerSizeDifferent = false;
    file_magic_block Magic;
    uint32 BlockSize = 0;
    file_header *Header = ReadFileHeader(Reader, 0, &IsByteReversed, &IsPointerSizeDifferent, &Magic, &BlockSize);
    if (!Header) return 0;

    if (Header->Version != TesselFileFormatVersion) {
        TesselWarning(LogCategory_FileReading, "File is file format revision %u (current version is %d)",
                      Header->Version, (int32)TesselFileFormatVersion);
    }
    uint64 TableEnd = (uint64)Header->SectionArrayOffset + (uint64)Header->SectionCount * FileSectionHeaderSize;
    if (TableEnd > BlockSize || Header->SectionArrayOffset % 4 != 0) {
        TesselError(LogCategory_FileReading, "Section table (%u sections at %u) lies outside the header (%u bytes)",
                    Header->SectionCount, Header->SectionArrayOffset, BlockSize);
        TesselFree(Header);
        return 0;
    }

    int32 SectionCount = (int32)Header->SectionCount;
    file *File = 0;
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateClear(Allocator);
    SetAggregateAlignment(Allocator, 8);
    intaddrx Offset = AggregateAllocate(Allocator, &File, sizeof(file));
    AggregateAllocateMember(Allocator, Offset, TESSEL_OFFSET_OF(file, SourceMagicValue), sizeof(file_magic_block));
    AggregateAllocateArray(Allocator, Offset, TESSEL_OFFSET_OF(file, SectionCount), TESSEL_OFFSET_OF(file, Sections),
                           SectionCount, sizeof(void *));
    AggregateAllocateArray(Allocator, Offset, TESSEL_OFFSET_OF(file, SectionCount), TESSEL_OFFSET_OF(file, Marshalled),
                           SectionCount, sizeof(bool8));
    AggregateAllocateArray(Allocator, Offset, TESSEL_OFFSET_OF(file, SectionCount),
                           TESSEL_OFFSET_OF(file, IsUserMemory), SectionCount, sizeof(bool8));
    if (!EndAggregateAllocation(Allocator)) {
        TesselFree(Header);
        return 0;
    }
    File->IsByteReversed = IsByteReversed;
    File->IsPointerSizeDifferent = IsPointerSizeDifferent;
    File->Header = Header;
    File->HeaderBlockSize = BlockSize;
    *File->SourceMagicValue = Magic;
    return File;
}

// ---------------------------------------------------------------------------
// Sections.

static bool CheckSectionRecord(file_section_header const &Section, int32 SectionIndex)
{
    bool StreamsInOrder = Section.First16Bit <= Section.First8Bit && Section.First8Bit <= Section.ExpandedDataSize;
    if (!StreamsInOrder) {
        TesselError(LogCategory_FileReading, "Section %d has streams out of order (%u, %u, %u)", SectionIndex,
                    Section.First16Bit, Section.First8Bit, Section.ExpandedDataSize);
        return false;
    }
    if (Section.DataOffset > (uint32)INT32_MAX || Section.DataSize > (uint32)INT32_MAX - 4 ||
        Section.ExpandedDataSize > (uint32)MaxSectionSize) {
        TesselError(LogCategory_FileReading, "Section %d has sizes outside the file", SectionIndex);
        return false;
    }
    if (Section.Format == NoCompression && Section.DataSize != Section.ExpandedDataSize) {
        TesselError(LogCategory_FileReading, "Section %d stores %u bytes but expands to %u", SectionIndex,
                    Section.DataSize, Section.ExpandedDataSize);
        return false;
    }
    if (Section.Format != NoCompression &&
        (uint64)Section.ExpandedDataSize > (uint64)Section.DataSize * MaxExpansionRatio + 65536) {
        TesselError(LogCategory_FileReading, "Section %d claims to expand %u bytes to %u", SectionIndex,
                    Section.DataSize, Section.ExpandedDataSize);
        return false;
    }
    return true;
}

static std::atomic<int64> FileReaderMemoryLimit{(int64)MaxSectionSize};

void SetFileReaderMemoryLimit(int64 Bytes)
{
    FileReaderMemoryLimit = Bytes > 0 ? Bytes : (int64)MaxSectionSize;
}

int64 GetFileReaderMemoryLimit()
{
    return FileReaderMemoryLimit;
}

// Bytes of the sections already read into the reader's own blocks.
static uint64 GetFileSectionMemory(file const &File, file_section_header const *Sections)
{
    uint64 Total = 0;
    for (int32 Index = 0; Index < File.SectionCount; ++Index) {
        if (File.Sections[Index] && !File.IsUserMemory[Index]) Total += AlignUp4(Sections[Index].ExpandedDataSize);
    }
    return Total;
}

static bool DecompressSection(file_section_header const &Section, bool IsByteReversed, uint8 const *Stored,
                              void *Destination)
{
    if (Section.Format != Trove0Compression && Section.Format != Trove1Compression) {
        TesselError(LogCategory_Compression, "Unrecognized compression type %d", Section.Format);
        return false;
    }
    return DecompressData((int32)Section.Format, IsByteReversed, (int32)Section.DataSize, Stored,
                          (int32)Section.First16Bit, (int32)Section.First8Bit, (int32)Section.ExpandedDataSize,
                          Destination);
}

bool ReadFileSectionInPlace(file_reader *Reader, file &File, int32 SectionIndex, void *Destination)
{
    CheckPointer(Reader, LogCategory_FileReading, false);
    if (!File.Header) {
        TesselError(LogCategory_FileReading, "%s is not allowed to be NULL", "File.Header");
        return false;
    }
    CheckIndex(SectionIndex, File.SectionCount, LogCategory_FileReading, false);
    file_section_header *Sections = GetFileSectionHeaders(File);
    CheckPointer(Sections, LogCategory_FileReading, false);

    if (File.Sections[SectionIndex]) {
        TesselWarning(LogCategory_FileReading, "Ignored request to read already populated file section %d",
                      SectionIndex);
        return true;
    }
    file_section_header const &Section = Sections[SectionIndex];
    if (Section.ExpandedDataSize == 0) return true;
    if (!CheckSectionRecord(Section, SectionIndex)) return false;

    uint32 AllocatedSize = AlignUp4(Section.ExpandedDataSize);
    bool UserMemory = (Destination != 0);
    uint64 Needed = (UserMemory ? 0 : AllocatedSize + GetFileSectionMemory(File, Sections)) +
                    (Section.Format == NoCompression ? 0 : (uint64)Section.DataSize);
    if (Needed > (uint64)GetFileReaderMemoryLimit()) {
        TesselError(LogCategory_FileReading, "Section %d needs %u bytes, more than the reader's limit of %I64d allows",
                    SectionIndex, AllocatedSize, GetFileReaderMemoryLimit());
        return false;
    }
    if (!UserMemory) {
        uint32 Alignment = Section.InternalAlignment;
        if (Alignment == 0 || (Alignment & (Alignment - 1)) != 0 || Alignment > 4096) Alignment = 16;
        if (Alignment < 4) Alignment = 4;
        Destination = TesselAllocateAligned(Alignment, AllocatedSize);
        if (!Destination) return false;
    }
    memset((uint8 *)Destination + Section.ExpandedDataSize, 0, AllocatedSize - Section.ExpandedDataSize);

    bool Result = false;
    if (Section.Format == NoCompression) {
        Result = ReadExactly(Reader, (int32)Section.DataOffset, (int32)Section.DataSize, Destination);
        if (!Result) TesselError(LogCategory_FileReading, "Unable to read section %d", SectionIndex);
    } else {
        uint32 StoredSize = AlignUp4(Section.DataSize + TrovePaddingBytes);
        uint8 *Stored = (uint8 *)TesselAllocate(StoredSize);
        if (Stored) {
            memset(Stored, 0, StoredSize);
            Result = ReadExactly(Reader, (int32)Section.DataOffset, (int32)Section.DataSize, Stored);
            if (!Result) TesselError(LogCategory_FileReading, "Unable to read section %d", SectionIndex);
            Result = Result && DecompressSection(Section, File.IsByteReversed, Stored, Destination);
            TesselFree(Stored);
        }
    }
    if (!Result) {
        if (!UserMemory) TesselFree(Destination);
        return false;
    }

    if (File.IsByteReversed) {
        uint8 *Data = (uint8 *)Destination;
        Reverse32((int32)(Section.First16Bit / 4), Data);
        Reverse16((int32)((Section.First8Bit - Section.First16Bit) / 2), Data + Section.First16Bit);
    }
    File.Sections[SectionIndex] = Destination;
    File.IsUserMemory[SectionIndex] = UserMemory;
    File.Marshalled[SectionIndex] = !File.IsByteReversed;
    return true;
}

bool ReadFileSection(file_reader *Reader, file &File, int32 SectionIndex)
{
    return ReadFileSectionInPlace(Reader, File, SectionIndex, 0);
}

void FreeFileSection(file &File, int32 SectionIndex)
{
    CheckIndex(SectionIndex, File.SectionCount, LogCategory_FileReading, TESSEL_NOTHING);
    if (!File.IsUserMemory[SectionIndex] && File.Sections[SectionIndex]) TesselFree(File.Sections[SectionIndex]);
    File.Sections[SectionIndex] = 0;
    File.IsUserMemory[SectionIndex] = false;
    File.Marshalled[SectionIndex] = false;
}

void FreeAllFileSections(file &File)
{
    for (int32 SectionIndex = 0; SectionIndex < File.SectionCount; ++SectionIndex) {
        FreeFileSection(File, SectionIndex);
    }
}

void FreeFile(file *File)
{
    if (!File) return;
    FreeAllFileSections(*File);
    if (File->Header) TesselFree(File->Header);
    if (File->ConversionBuffer) TesselFree(File->ConversionBuffer);
    TesselFree(File);
}

static bool LoadRecordArray(file_reader *Reader, uint32 Offset, uint32 Count, uint32 RecordSize, bool IsByteReversed,
                            void **Array)
{
    *Array = 0;
    if (Count == 0) return true;
    uint64 Size = (uint64)Count * RecordSize;
    if (Offset > (uint32)INT32_MAX || Size > (uint64)MaxSectionSize) {
        TesselError(LogCategory_FileReading, "Array of %u records at %u lies outside the file", Count, Offset);
        return false;
    }
    int32 Available = 0;
    if (GetReaderSize(Reader, &Available) && (uint64)Offset + Size > (uint64)Available) {
        TesselError(LogCategory_FileReading, "Array of %u records at %u lies outside the file", Count, Offset);
        return false;
    }
    void *Memory = TesselAllocate(Size);
    if (!Memory) return false;
    if (!ReadExactly(Reader, (int32)Offset, (int32)Size, Memory)) {
        TesselError(LogCategory_FileReading, "Unable to read %u records at %u", Count, Offset);
        TesselFree(Memory);
        return false;
    }
    if (IsByteReversed) Reverse32((int32)(Size / 4), Memory);
    *Array = Memory;
    return true;
}

bool LoadFixupArray(file_reader *Reader, file_section_header const &Section, bool IsByteReversed,
                    file_pointer_fixup **Array)
{
    CheckPointer(Array, LogCategory_FileReading, false);
    void *Memory = 0;
    bool Result = LoadRecordArray(Reader, Section.PointerFixupArrayOffset, Section.PointerFixupArrayCount,
                                  FilePointerFixupSize, IsByteReversed, &Memory);
    *Array = (file_pointer_fixup *)Memory;
    return Result;
}

bool LoadMarshallingArray(file_reader *Reader, file_section_header const &Section, bool IsByteReversed,
                          file_mixed_marshalling_fixup **Array)
{
    CheckPointer(Array, LogCategory_FileReading, false);
    void *Memory = 0;
    bool Result =
        LoadRecordArray(Reader, Section.MixedMarshallingFixupArrayOffset, Section.MixedMarshallingFixupArrayCount,
                        FileMixedMarshallingFixupSize, IsByteReversed, &Memory);
    *Array = (file_mixed_marshalling_fixup *)Memory;
    return Result;
}

// ---------------------------------------------------------------------------
// Type tables in the file.

struct member_kind_info
{
    char const *Name;
    int32 Size32;
    int32 Size64;
    int32 Marshalling;
};

static member_kind_info const MemberKinds[FileMemberKindCount] = {
    {"EndMember", 0, 0, 0},
    {"InlineMember", 0, 0, 0},
    {"ReferenceMember", 4, 8, 0},
    {"ReferenceToArrayMember", 8, 12, 4},
    {"ArrayOfReferencesMember", 8, 12, 4},
    {"VariantReferenceMember", 8, 16, 0},
    {"__REMOVED", 0, 0, 0},
    {"ReferenceToVariantArrayMember", 12, 20, 4},
    {"StringMember", 4, 8, 4},
    {"TransformMember", 68, 68, 4},
    {"Real32Member", 4, 4, 4},
    {"Int8Member", 1, 1, 1},
    {"UInt8Member", 1, 1, 1},
    {"BinormalInt8Member", 1, 1, 1},
    {"NormalUInt8Member", 1, 1, 1},
    {"Int16Member", 2, 2, 2},
    {"UInt16Member", 2, 2, 2},
    {"BinormalInt16Member", 2, 2, 2},
    {"NormalUInt16Member", 2, 2, 2},
    {"Int32Member", 4, 4, 4},
    {"UInt32Member", 4, 4, 4},
    {"Real16Member", 2, 2, 2},
    {"EmptyReferenceMember", 4, 8, 0},
};

int32 GetFileMemberKindSize(int32 Kind, int32 PointerBits)
{
    if (Kind < 0 || Kind >= FileMemberKindCount) return -1;
    return PointerBits == 32 ? MemberKinds[Kind].Size32 : MemberKinds[Kind].Size64;
}

int32 GetFileMemberKindMarshalling(int32 Kind)
{
    if (Kind < 0 || Kind >= FileMemberKindCount) return 0;
    return MemberKinds[Kind].Marshalling;
}

char const *GetFileMemberKindName(int32 Kind)
{
    if (Kind < 0 || Kind >= FileMemberKindCount) return "(unknown kind)";
    return MemberKinds[Kind].Name;
}

static uint32 GetMemberRecordSize(loaded_file const &File)
{
    return File.PointerBits == 32 ? (uint32)FileTypeMemberSize32 : (uint32)FileTypeMemberSize64;
}

// Reads the raw record of member MemberIndex (no offsets).
bool ReadFileTypeMemberRecord(loaded_file const &File, file_section_reference Type, int32 MemberIndex,
                              file_type_member *Member)
{
    uint32 RecordSize = GetMemberRecordSize(File);
    uint64 Offset = (uint64)Type.Offset + (uint64)MemberIndex * RecordSize;
    if (Offset > 0xFFFFFFFFu) return false;
    file_section_reference At = {Type.SectionIndex, (uint32)Offset};
    uint8 const *Record = GetLoadedFileBytes(File, At, RecordSize);
    if (!Record) {
        TesselError(LogCategory_FileReading, "Type table at (%d, %d) runs out of its section", Type.SectionIndex,
                    Type.Offset);
        return false;
    }
    int32 Kind, Width;
    uint32 WidthOffset = File.PointerBits == 32 ? 12 : 20;
    uint32 ReferenceOffset = File.PointerBits == 32 ? 8 : 12;
    memcpy(&Kind, Record, 4);
    memcpy(&Width, Record + WidthOffset, 4);
    memset(Member, 0, sizeof(*Member));
    Member->Kind = Kind;
    Member->ArrayWidth = Width == 0 ? 1 : Width;
    if (Kind == 0) return true;
    if (Kind < 0 || Kind >= FileMemberKindCount || Kind == 6 || Width < 0) {
        TesselError(LogCategory_FileReading, "Type table at (%d, %d) has a member of unknown kind %d",
                    Type.SectionIndex, Type.Offset, Kind);
        return false;
    }

    file_section_reference NameSlot = {At.SectionIndex, At.Offset + 4};
    file_section_reference Name;
    if (ResolveFilePointer(File, NameSlot, &Name)) Member->Name = GetLoadedFileString(File, Name);
    file_section_reference ReferenceSlot = {At.SectionIndex, At.Offset + ReferenceOffset};
    Member->HasReferenceType = ResolveFilePointer(File, ReferenceSlot, &Member->ReferenceType);
    return true;
}

static bool GetObjectSizeWalk(loaded_file const &File, file_section_reference Type, int32 Depth, int32 *Budget,
                              uint32 *Size);

static bool GetMemberSize(loaded_file const &File, file_type_member const &Member, int32 Depth, int32 *Budget,
                          uint32 *Size)
{
    uint64 Unit = 0;
    if (Member.Kind == 1) {
        if (!Member.HasReferenceType) {
            TesselError(LogCategory_FileReading, "Inline member without a type");
            return false;
        }
        uint32 InlineSize = 0;
        if (!GetObjectSizeWalk(File, Member.ReferenceType, Depth + 1, Budget, &InlineSize)) return false;
        Unit = InlineSize;
    } else {
        Unit = (uint64)GetFileMemberKindSize(Member.Kind, File.PointerBits);
    }
    uint64 Total = Unit * (uint64)Member.ArrayWidth;
    if (Total > (uint64)MaxSectionSize) {
        TesselError(LogCategory_FileReading, "A member of %d x %d bytes is larger than any section", Unit,
                    Member.ArrayWidth);
        return false;
    }
    *Size = (uint32)Total;
    return true;
}

static bool GetObjectSizeWalk(loaded_file const &File, file_section_reference Type, int32 Depth, int32 *Budget,
                              uint32 *Size)
{
    if (Depth > MaxFileTypeDepth) {
        TesselError(LogCategory_FileReading, "Type table at (%d, %d) nests into itself", Type.SectionIndex,
                    Type.Offset);
        return false;
    }
    uint64 Total = 0;
    for (int32 MemberIndex = 0;; ++MemberIndex) {
        if (--*Budget < 0) {
            TesselError(LogCategory_FileReading, "Type table at (%d, %d) is too large to walk", Type.SectionIndex,
                        Type.Offset);
            return false;
        }
        file_type_member Member;
        if (!ReadFileTypeMemberRecord(File, Type, MemberIndex, &Member)) return false;
        if (Member.Kind == 0) break;
        uint32 MemberSize = 0;
        if (!GetMemberSize(File, Member, Depth, Budget, &MemberSize)) return false;
        Total += MemberSize;
        if (Total > (uint64)MaxSectionSize) {
            TesselError(LogCategory_FileReading, "Type table at (%d, %d) is larger than any section", Type.SectionIndex,
                        Type.Offset);
            return false;
        }
    }
    *Size = (uint32)Total;
    return true;
}

bool GetFileTypeMemberSize(loaded_file const &File, file_type_member const &Member, uint32 *Size)
{
    CheckPointer(Size, LogCategory_FileReading, false);
    int32 Budget = TypeWalkBudget;
    return GetMemberSize(File, Member, 0, &Budget, Size);
}

bool GetFileTypeObjectSize(loaded_file const &File, file_section_reference Type, uint32 *Size)
{
    CheckPointer(Size, LogCategory_FileReading, false);
    int32 Budget = TypeWalkBudget;
    return GetObjectSizeWalk(File, Type, 0, &Budget, Size);
}

bool GetFileTypeMember(loaded_file const &File, file_section_reference Type, int32 MemberIndex,
                       file_type_member *Member)
{
    CheckPointer(Member, LogCategory_FileReading, false);
    int32 Budget = TypeWalkBudget;
    uint64 Offset = 0;
    for (int32 Index = 0;; ++Index) {
        if (!ReadFileTypeMemberRecord(File, Type, Index, Member)) return false;
        if (Member->Kind == 0) return false;
        uint32 MemberSize = 0;
        if (!GetMemberSize(File, *Member, 0, &Budget, &MemberSize)) return false;
        if (Index == MemberIndex) {
            Member->SlotOffset = (uint32)Offset;
            Member->Size = MemberSize;
            return true;
        }
        Offset += MemberSize;
        if (Offset > (uint64)MaxSectionSize || --Budget < 0) return false;
    }
}

// ---------------------------------------------------------------------------
// Loaded files.

bool ResolveFilePointer(loaded_file const &File, file_section_reference Slot, file_section_reference *Target)
{
    if (Slot.SectionIndex >= (uint32)File.SectionCount) return false;
    loaded_file_section const &Section = File.Sections[Slot.SectionIndex];
    uint32 Low = 0, High = Section.FixupCount;
    while (Low < High) {
        uint32 Middle = Low + (High - Low) / 2;
        if (Section.Fixups[Middle].FromOffset < Slot.Offset)
            Low = Middle + 1;
        else
            High = Middle;
    }
    if (Low < Section.FixupCount && Section.Fixups[Low].FromOffset == Slot.Offset) {
        if (Target) *Target = Section.Fixups[Low].To;
        return true;
    }
    return false;
}

uint8 const *GetLoadedFileBytes(loaded_file const &File, file_section_reference Location, uint32 Size)
{
    if (Location.SectionIndex >= (uint32)File.SectionCount) return 0;
    loaded_file_section const &Section = File.Sections[Location.SectionIndex];
    if (!Section.Data) return 0;
    if ((uint64)Location.Offset + Size > Section.Header.ExpandedDataSize) return 0;
    return Section.Data + Location.Offset;
}

char const *GetLoadedFileString(loaded_file const &File, file_section_reference Location)
{
    if (Location.SectionIndex >= (uint32)File.SectionCount) return 0;
    loaded_file_section const &Section = File.Sections[Location.SectionIndex];
    if (!Section.Data || Location.Offset >= Section.Header.ExpandedDataSize) return 0;
    void const *End = memchr(Section.Data + Location.Offset, 0, Section.Header.ExpandedDataSize - Location.Offset);
    return End ? (char const *)Section.Data + Location.Offset : 0;
}

static int CompareFixups(void const *A, void const *B)
{
    uint32 OffsetA = ((file_pointer_fixup const *)A)->FromOffset;
    uint32 OffsetB = ((file_pointer_fixup const *)B)->FromOffset;
    return OffsetA < OffsetB ? -1 : (OffsetA > OffsetB ? 1 : 0);
}

static bool CheckFixups(loaded_file &File, int32 SectionIndex)
{
    loaded_file_section &Section = File.Sections[SectionIndex];
    uint32 PointerSize = (uint32)File.PointerBits / 8;
    for (uint32 Index = 0; Index < Section.FixupCount; ++Index) {
        file_pointer_fixup const &Fixup = Section.Fixups[Index];
        bool FromInside = (uint64)Fixup.FromOffset + PointerSize <= Section.Header.ExpandedDataSize;
        bool ToInside = Fixup.To.SectionIndex < (uint32)File.SectionCount &&
                        Fixup.To.Offset <= File.Sections[Fixup.To.SectionIndex].Header.ExpandedDataSize;
        if (!FromInside || !ToInside) {
            TesselError(LogCategory_FileReading,
                        "Pointer fixup %u of section %d (from %u to section %u offset %u) points outside the file",
                        Index, SectionIndex, Fixup.FromOffset, Fixup.To.SectionIndex, Fixup.To.Offset);
            return false;
        }
    }
    if (Section.FixupCount > 1) qsort(Section.Fixups, Section.FixupCount, sizeof(file_pointer_fixup), CompareFixups);
    return true;
}

// Reverses the members of Count objects of a type, for the mixed objects of a
// byte-reversed file.
static bool MarshallObjects(loaded_file &File, file_section_reference Type, uint8 *Object, uint32 Count,
                            uint32 ObjectSize, int32 Depth, int32 *Budget)
{
    if (Depth > MaxFileTypeDepth) return false;
    for (uint32 Element = 0; Element < Count; ++Element) {
        uint8 *At = Object + (uint64)Element * ObjectSize;
        uint32 Offset = 0;
        for (int32 MemberIndex = 0;; ++MemberIndex) {
            if (--*Budget < 0) {
                TesselError(LogCategory_FileReading, "Mixed objects are too large to put right");
                return false;
            }
            file_type_member Member;
            if (!ReadFileTypeMemberRecord(File, Type, MemberIndex, &Member)) return false;
            if (Member.Kind == 0) break;
            uint32 MemberSize = 0;
            if (!GetMemberSize(File, Member, Depth, Budget, &MemberSize)) return false;
            if ((uint64)Offset + MemberSize > ObjectSize) return false;
            if (Member.Kind == 1) {
                uint32 Unit = MemberSize / (uint32)Member.ArrayWidth;
                if (!MarshallObjects(File, Member.ReferenceType, At + Offset, (uint32)Member.ArrayWidth, Unit,
                                     Depth + 1, Budget)) {
                    return false;
                }
            } else {
                int32 Unit = GetFileMemberKindMarshalling(Member.Kind);
                if (Unit == 4) Reverse32((int32)(MemberSize / 4), At + Offset);
                if (Unit == 2) Reverse16((int32)(MemberSize / 2), At + Offset);
            }
            Offset += MemberSize;
        }
    }
    return true;
}

static bool ApplyMarshalling(loaded_file &File, int32 SectionIndex)
{
    loaded_file_section &Section = File.Sections[SectionIndex];
    int32 Budget = TypeWalkBudget * 4;
    for (uint32 Index = 0; Index < Section.MarshallingCount; ++Index) {
        file_mixed_marshalling_fixup const &Record = Section.Marshallings[Index];
        uint32 ObjectSize = 0;
        bool Result = GetFileTypeObjectSize(File, Record.Type, &ObjectSize);
        uint64 End = (uint64)Record.Offset + (uint64)ObjectSize * Record.Count;
        Result = Result && End <= Section.Header.ExpandedDataSize;
        if (Result && File.IsByteReversed && Section.Data) {
            Result =
                MarshallObjects(File, Record.Type, Section.Data + Record.Offset, Record.Count, ObjectSize, 0, &Budget);
        }
        if (!Result) {
            TesselError(LogCategory_FileReading, "Marshalling record %d of section %d is not valid", Index,
                        SectionIndex);
            return false;
        }
    }
    if (File.File) File.File->Marshalled[SectionIndex] = true;
    return true;
}

static void ApplyPointers(loaded_file &File)
{
    for (int32 SectionIndex = 0; SectionIndex < File.SectionCount; ++SectionIndex) {
        loaded_file_section &Section = File.Sections[SectionIndex];
        for (uint32 Index = 0; Index < Section.FixupCount; ++Index) {
            file_pointer_fixup const &Fixup = Section.Fixups[Index];
            uint8 *Target = File.Sections[Fixup.To.SectionIndex].Data;
            void *Pointer = Target ? Target + Fixup.To.Offset : 0;
            memcpy(Section.Data + Fixup.FromOffset, &Pointer, sizeof(Pointer));
        }
    }
    File.PointersApplied = true;
}

static bool CheckFileCRC(file_reader *Reader, loaded_file const &File)
{
    uint32 const Start = FileMagicBlockSize + FileHeaderSize;
    if (File.Header.TotalSize < Start) return false;
    uint8 *Buffer = (uint8 *)TesselAllocate(FileCopyBlockSize);
    if (!Buffer) return false;
    uint32 CRC = BeginCRC32();
    bool Result = true;
    for (uint32 Position = Start; Result && Position < File.Header.TotalSize;) {
        uint32 Piece = File.Header.TotalSize - Position;
        if (Piece > (uint32)FileCopyBlockSize) Piece = FileCopyBlockSize;
        Result = ReadExactly(Reader, (int32)Position, (int32)Piece, Buffer);
        CRC = UpdateCRC32(CRC, (int32)Piece, Buffer);
        Position += Piece;
    }
    TesselFree(Buffer);
    return Result && EndCRC32(CRC) == File.Header.CRC;
}

loaded_file *LoadStoredFileFromReader(file_reader *Reader)
{
    CheckPointer(Reader, LogCategory_FileReading, 0);
    int32 Available = 0;
    if (!GetReaderSize(Reader, &Available)) {
        TesselError(LogCategory_FileReading, "Unable to find the size of the file");
        return 0;
    }
    file *Source = ReadFileFromReader(Reader);
    if (!Source) return 0;

    loaded_file *File = 0;
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateClear(Allocator);
    SetAggregateAlignment(Allocator, 8);
    intaddrx Offset = AggregateAllocate(Allocator, &File, sizeof(loaded_file));
    AggregateAllocateArray(Allocator, Offset, TESSEL_OFFSET_OF(loaded_file, SectionCount),
                           TESSEL_OFFSET_OF(loaded_file, Sections), Source->SectionCount, sizeof(loaded_file_section));
    if (!EndAggregateAllocation(Allocator)) {
        FreeFile(Source);
        return 0;
    }
    File->File = Source;
    File->IsByteReversed = Source->IsByteReversed;
    File->PointerBits = Source->IsPointerSizeDifferent ? 32 : 64;
    File->FileSize = (uint32)Available;
    File->Magic = *Source->SourceMagicValue;
    File->Header = *Source->Header;

    bool Result = true;
    if (File->Header.TotalSize > File->FileSize || File->Header.TotalSize < File->Magic.TotalHeaderSize) {
        TesselError(LogCategory_FileReading, "File claims %u bytes but %u are there", File->Header.TotalSize,
                    File->FileSize);
        Result = false;
    }
    if (Result && !CheckFileCRC(Reader, *File)) {
        TesselError(LogCategory_FileReading, "File CRC doesn't match its contents (corrupt file)");
        Result = false;
    }

    file_section_header const *Headers = GetFileSectionHeaders(*Source);
    for (int32 SectionIndex = 0; Result && SectionIndex < File->SectionCount; ++SectionIndex) {
        loaded_file_section &Section = File->Sections[SectionIndex];
        Section.Header = Headers[SectionIndex];
        file_pointer_fixup *Fixups = 0;
        file_mixed_marshalling_fixup *Marshallings = 0;
        Result = ReadFileSection(Reader, *Source, SectionIndex) &&
                 LoadFixupArray(Reader, Section.Header, File->IsByteReversed, &Fixups) &&
                 LoadMarshallingArray(Reader, Section.Header, File->IsByteReversed, &Marshallings);
        Section.Fixups = Fixups;
        Section.Marshallings = Marshallings;
        Section.Data = (uint8 *)Source->Sections[SectionIndex];
        Section.FixupCount = Section.Fixups ? Section.Header.PointerFixupArrayCount : 0;
        Section.MarshallingCount = Section.Marshallings ? Section.Header.MixedMarshallingFixupArrayCount : 0;
    }
    for (int32 SectionIndex = 0; Result && SectionIndex < File->SectionCount; ++SectionIndex) {
        Result = CheckFixups(*File, SectionIndex);
    }
    for (int32 SectionIndex = 0; Result && SectionIndex < File->SectionCount; ++SectionIndex) {
        Result = ApplyMarshalling(*File, SectionIndex);
    }
    if (Result) {
        file_section_reference Roots[2] = {File->Header.RootObjectTypeDefinition, File->Header.RootObject};
        for (file_section_reference const &Root : Roots) {
            if (!GetLoadedFileBytes(*File, Root, 1)) {
                TesselError(LogCategory_FileReading, "Root at section %u offset %u lies outside the file",
                            Root.SectionIndex, Root.Offset);
                Result = false;
                break;
            }
        }
    }
    if (Result) {
        uint32 RootSize = 0;
        Result = GetFileTypeObjectSize(*File, File->Header.RootObjectTypeDefinition, &RootSize);
        if (Result && !GetLoadedFileBytes(*File, File->Header.RootObject, RootSize)) {
            TesselError(LogCategory_FileReading, "Root object runs out of its section");
            Result = false;
        }
    }
    // Everything a reader can reach through the file's own types must lie
    // inside the file before anyone follows a pointer.
    if (Result) Result = CheckLoadedFileTree(*File);
    if (Result && File->PointerBits == 64) ApplyPointers(*File);

    if (!Result) {
        FreeLoadedFile(File);
        return 0;
    }
    return File;
}

loaded_file *LoadFileFromReader(file_reader *Reader)
{
    loaded_file *File = LoadStoredFileFromReader(Reader);
    // A file with other pointers is re-laid for this platform, so that its
    // root can be used in memory; when that fails it stays as stored.
    if (File && File->PointerBits != 64) {
        loaded_file *Native = LoadConvertedToNative(Reader, *File);
        if (Native) {
            FreeLoadedFile(File);
            File = Native;
        }
    }
    return File;
}

loaded_file *LoadFileFromDisk(char const *FileName)
{
    CheckPointer(FileName, LogCategory_FileReading, 0);
    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) {
        TesselError(LogCategory_FileReading, "Unable to open %s", FileName);
        return 0;
    }
    loaded_file *File = LoadFileFromReader(Reader);
    CloseFileReader(Reader);
    return File;
}

loaded_file *LoadFileFromMemory(int32 Size, void const *Memory)
{
    CheckPointer(Memory, LogCategory_FileReading, 0);
    file_reader *Reader = CreateMemoryFileReader(Size, Memory);
    if (!Reader) return 0;
    loaded_file *File = LoadFileFromReader(Reader);
    CloseFileReader(Reader);
    return File;
}

void FreeLoadedFile(loaded_file *File)
{
    if (!File) return;
    for (int32 SectionIndex = 0; SectionIndex < File->SectionCount; ++SectionIndex) {
        if (File->Sections[SectionIndex].Fixups) TesselFree(File->Sections[SectionIndex].Fixups);
        if (File->Sections[SectionIndex].Marshallings) TesselFree(File->Sections[SectionIndex].Marshallings);
    }
    FreeFile(File->File);
    TesselFree(File);
}

void *GetLoadedFileRootObject(loaded_file const &File, void **RootType)
{
    if (RootType) *RootType = 0;
    if (!File.PointersApplied) return 0;
    if (RootType) *RootType = (void *)GetLoadedFileBytes(File, File.Header.RootObjectTypeDefinition, 1);
    return (void *)GetLoadedFileBytes(File, File.Header.RootObject, 1);
}

double GetSectionCompressionRatio(char const *FileName)
{
    loaded_file *File = LoadFileFromDisk(FileName);
    if (!File) return 1.0;
    double Stored = 0, Expanded = 0;
    for (int32 Index = 0; Index < File->SectionCount; ++Index) {
        Stored += File->Sections[Index].Header.DataSize;
        Expanded += File->Sections[Index].Header.ExpandedDataSize;
    }
    FreeLoadedFile(File);
    return Expanded > 0 ? Stored / Expanded : 1.0;
}
