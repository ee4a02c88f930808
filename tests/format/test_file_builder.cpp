// File builder layout and the file reader on files it wrote, byte-reversed
// copies of them, and damaged copies.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_builder.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"

namespace {

// Records of the format have no padding at all.
#pragma pack(push, 1)
struct child_record
{
    real32 Values[3];
};
struct sample_record
{
    int32 Value;
    int16 Half;
    char const *Name;
    child_record *Child;
};
#pragma pack(pop)

data_type_definition ChildType[] = {{Real32Member, "Values", 0, 3}, {EndMember}};
data_type_definition SampleType[] = {{Int32Member, "Value"},
                                     {Int16Member, "Half"},
                                     {StringMember, "Name"},
                                     {ReferenceMember, "Child", ChildType},
                                     {EndMember}};

std::vector<uint8_t> ReadBytes(std::string const &Path)
{
    std::ifstream File(Path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
}

template <typename T>
T At(std::vector<uint8_t> const &Bytes, size_t Offset)
{
    T Value;
    memcpy(&Value, Bytes.data() + Offset, sizeof(T));
    return Value;
}

std::string OutputPath(char const *Name)
{
    return std::string(GetTemporaryDirectory()) + "/filebuilder_" + std::to_string(GetProcessIdentifier()) + "_" + Name;
}

int CountTemporaryFiles(std::string const &Root)
{
    int Count = 0;
    if (DIR *Directory = opendir(GetTemporaryDirectory())) {
        while (dirent *Entry = readdir(Directory)) Count += strncmp(Entry->d_name, Root.c_str(), Root.size()) == 0;
        closedir(Directory);
    }
    return Count;
}

// A type table as the data tree writer lays it out: records in section 6,
// names as strings, fixups for names and referred types.
file_location WriteType(file_builder *Builder, data_type_definition const *Type, file_location const *Referred)
{
    int32 Count = 0;
    while (Type[Count].Type != EndMember) ++Count;
    file_location Table;
    WriteSectionData(Builder, StandardDiscardableSection, 4, (Count + 1) * 44, Type, &Table);
    for (int32 Index = 0; Index < Count; ++Index) {
        file_location Name;
        WriteSectionData(Builder, StandardDiscardableSection, 1, (int32)strlen(Type[Index].Name) + 1, Type[Index].Name,
                         &Name);
        AddFixup(Builder, Table, Index * 44 + 4, Name);
        if (Type[Index].ReferenceType && Referred) AddFixup(Builder, Table, Index * 44 + 12, *Referred);
    }
    return Table;
}

// Root `sample` (mixed units, section 0 at alignment 16) pointing to a child
// in section 1 at alignment 4096; section 2 is left empty.
bool BuildSample(char const *Path, std::string *Root = 0, bool Abort = false, int32 Compression = NoCompression,
                 int32 BrokenFormat = 0)
{
    file_builder *Builder = BeginFile(StandardSectionCount, TesselStandardFileTypeTag, GetNativeFileMagicBlock(),
                                      GetTemporaryDirectory(), "export_buffer");
    if (!Builder) return false;
    if (Root) *Root = GetBaseFileName(Builder->TemporaryDirectory);
    SetFileSectionFormat(Builder, StandardMainSection, Compression, 16);
    SetFileSectionFormat(Builder, StandardRigidVertexSection, Compression, 4096);
    SetFileSectionFormat(Builder, StandardDiscardableSection, Compression, 4);

    child_record Child = {{1.5f, -2.0f, 3.25f}};
    sample_record Sample = {0x11223344, 0x5566, "sample name", &Child};
    file_location Padding, SampleAt, ChildAt, NameAt;
    WriteSectionData(Builder, StandardMainSection, 1, 3, "abc", &Padding);
    WriteSectionData(Builder, StandardMainSection, 4 | 2, sizeof(Sample), &Sample, &SampleAt);
    WriteSectionData(Builder, StandardRigidVertexSection, 4, 4, "pad!", &Padding);
    WriteSectionData(Builder, StandardRigidVertexSection, 4, sizeof(Child), &Child, &ChildAt);
    WriteSectionData(Builder, StandardMainSection, 1, 12, Sample.Name, &NameAt);
    AddFixup(Builder, SampleAt, TESSEL_OFFSET_OF(sample_record, Name), NameAt);
    AddFixup(Builder, SampleAt, TESSEL_OFFSET_OF(sample_record, Child), ChildAt);

    file_location ChildTypeAt = WriteType(Builder, ChildType, 0);
    file_location SampleTypeAt = WriteType(Builder, SampleType, &ChildTypeAt);
    AddMarshalling(Builder, SampleTypeAt, SampleAt, 1);
    SetFileRoots(Builder, SampleTypeAt, SampleAt);
    if (Abort) {
        AbortFile(Builder);
        return true;
    }
    // A section format that fails only while the file is being finished.
    if (BrokenFormat) Builder->Sections[StandardMainSection].Header.Format = (uint32)BrokenFormat;
    return EndFile(Builder, Path);
}

file_section_header SectionAt(std::vector<uint8_t> const &Bytes, int Index)
{
    return At<file_section_header>(Bytes, 104 + 44 * Index);
}

void RestampCRC(std::vector<uint8_t> &Bytes)
{
    uint32 CRC = ComputeCRC32((int32)Bytes.size() - 104, Bytes.data() + 104);
    memcpy(Bytes.data() + 40, &CRC, 4);
}

} // namespace

TEST(FileBuilder, HeaderSectionTableAndLayout)
{
    std::string Path = OutputPath("layout.ts2");
    ASSERT_TRUE(BuildSample(Path.c_str()));
    std::vector<uint8_t> Bytes = ReadBytes(Path);
    ASSERT_GT(Bytes.size(), 456u);

    EXPECT_EQ(0, memcmp(Bytes.data(), FileMagic64BitLittleEndian.MagicValue, 16));
    EXPECT_EQ(456u, At<uint32>(Bytes, 16));
    EXPECT_EQ(0u, At<uint32>(Bytes, 20));
    file_header Header = At<file_header>(Bytes, 32);
    EXPECT_EQ(7u, Header.Version);
    EXPECT_EQ(Bytes.size(), Header.TotalSize);
    EXPECT_EQ(ComputeCRC32((int32)Bytes.size() - 104, Bytes.data() + 104), Header.CRC);
    EXPECT_EQ(72u, Header.SectionArrayOffset);
    EXPECT_EQ(8u, Header.SectionCount);
    EXPECT_EQ(0x80000031u, Header.TypeTag);
    EXPECT_EQ(0u, Header.RootObject.SectionIndex);

    // Section 0: "abc" padded to 16 in stream 2, then the mixed object.
    file_section_header Main = SectionAt(Bytes, 0);
    EXPECT_EQ(16u, Main.InternalAlignment);
    EXPECT_EQ(0u, Main.First16Bit);
    EXPECT_EQ(0u, Main.First8Bit);
    EXPECT_EQ(16u, Header.RootObject.Offset);
    EXPECT_EQ(0u, Main.ExpandedDataSize % 16);
    EXPECT_EQ(Main.DataSize, Main.ExpandedDataSize);
    EXPECT_EQ(2u, Main.PointerFixupArrayCount);
    EXPECT_EQ(1u, Main.MixedMarshallingFixupArrayCount);

    // Section 1 at 4096: the child starts on a 4096 boundary.
    file_section_header Vertex = SectionAt(Bytes, 1);
    EXPECT_EQ(8192u, Vertex.ExpandedDataSize);
    EXPECT_EQ(8192u, Vertex.First16Bit);

    // An empty section points where its data would be and has no streams.
    file_section_header Empty = SectionAt(Bytes, 2);
    EXPECT_EQ(0u, Empty.DataSize);
    EXPECT_EQ(0u, Empty.ExpandedDataSize);
    EXPECT_EQ(0u, Empty.First16Bit);
    EXPECT_EQ(Vertex.DataOffset + Vertex.DataSize, Empty.DataOffset);

    // Data, then fixups, then marshallings, every part on 4 bytes.
    uint32 Previous = 456;
    for (int Index = 0; Index < 8; ++Index) {
        file_section_header Section = SectionAt(Bytes, Index);
        EXPECT_EQ(0u, Section.DataOffset % 4);
        EXPECT_GE(Section.DataOffset, Previous);
        Previous = Section.DataOffset + Section.DataSize;
    }
    EXPECT_GE(Main.PointerFixupArrayOffset, Previous);
    EXPECT_GE(Main.MixedMarshallingFixupArrayOffset, SectionAt(Bytes, 7).PointerFixupArrayOffset + 0u);
    EXPECT_GT(Main.MixedMarshallingFixupArrayOffset, Main.PointerFixupArrayOffset);

    // Fixups hold expanded offsets, and the pointer slots are stored as zero.
    file_pointer_fixup NameFixup = At<file_pointer_fixup>(Bytes, Main.PointerFixupArrayOffset);
    file_pointer_fixup ChildFixup = At<file_pointer_fixup>(Bytes, Main.PointerFixupArrayOffset + 12);
    EXPECT_EQ(16u + 6u, NameFixup.FromOffset);
    EXPECT_EQ(0u, NameFixup.To.SectionIndex);
    EXPECT_EQ(48u, NameFixup.To.Offset);
    EXPECT_EQ(16u + 14u, ChildFixup.FromOffset);
    EXPECT_EQ(1u, ChildFixup.To.SectionIndex);
    EXPECT_EQ(4096u, ChildFixup.To.Offset);
    EXPECT_EQ(0u, At<uint64>(Bytes, Main.DataOffset + NameFixup.FromOffset));
    EXPECT_EQ(0u, At<uint64>(Bytes, Main.DataOffset + ChildFixup.FromOffset));
    file_mixed_marshalling_fixup Marshalling =
        At<file_mixed_marshalling_fixup>(Bytes, Main.MixedMarshallingFixupArrayOffset);
    EXPECT_EQ(1u, Marshalling.Count);
    EXPECT_EQ(16u, Marshalling.Offset);
    EXPECT_EQ(6u, Marshalling.Type.SectionIndex);
    remove(Path.c_str());
}

TEST(FileBuilder, RepeatableAndLeavesNoTemporaryFiles)
{
    std::string PathA = OutputPath("repeat_a.ts2"), PathB = OutputPath("repeat_b.ts2");
    std::string RootA, RootB, RootC;
    int32 Live = LiveBlocks();
    ASSERT_TRUE(BuildSample(PathA.c_str(), &RootA));
    ASSERT_TRUE(BuildSample(PathB.c_str(), &RootB));
    ASSERT_TRUE(BuildSample(0, &RootC, true));
    EXPECT_EQ(Live, LiveBlocks());
    EXPECT_NE(RootA, RootB);
    EXPECT_EQ(0u, RootA.find("export_buffer_"));
    EXPECT_EQ(0, CountTemporaryFiles(RootA));
    EXPECT_EQ(0, CountTemporaryFiles(RootB));
    EXPECT_EQ(0, CountTemporaryFiles(RootC));
    EXPECT_EQ(ReadBytes(PathA), ReadBytes(PathB));

    // An output that can't be opened aborts the builder and cleans up.
    std::string RootD;
    log_capture Log;
    EXPECT_FALSE(BuildSample("/nonexistent-directory/out.ts2", &RootD));
    EXPECT_EQ(0, CountTemporaryFiles(RootD));
    EXPECT_EQ(Live, LiveBlocks());
    remove(PathA.c_str());
    remove(PathB.c_str());
}

// A failure while the file is finished, or an output that is not a regular
// file, leaves whatever was at the output path exactly as it was.
TEST(FileBuilder, FailedEndKeepsTheOldOutput)
{
    std::string Folder = OutputPath("keep");
    ASSERT_EQ(0, mkdir(Folder.c_str(), 0700));
    std::string Path = Folder + "/out.ts2";
    std::vector<uint8_t> Old(1000, 0x5a);
    FILE *File = fopen(Path.c_str(), "wb");
    fwrite(Old.data(), 1, Old.size(), File);
    fclose(File);
    chmod(Path.c_str(), 0640);

    log_capture Log;
    std::string Root;
    EXPECT_FALSE(BuildSample(Path.c_str(), &Root, false, Trove1Compression, 9));
    EXPECT_EQ(Old, ReadBytes(Path));
    EXPECT_EQ(0, CountTemporaryFiles(Root));

    // A FIFO (or device) at the output path is refused and left in place.
    std::string Fifo = Folder + "/fifo.ts2";
    ASSERT_EQ(0, mkfifo(Fifo.c_str(), 0600));
    EXPECT_FALSE(BuildSample(Fifo.c_str()));
    struct stat Info;
    EXPECT_TRUE(stat(Fifo.c_str(), &Info) == 0 && S_ISFIFO(Info.st_mode));

    // Success replaces the file in one step, keeps its mode, and leaves only
    // the output in the folder.
    EXPECT_TRUE(BuildSample(Path.c_str(), 0, false, Trove1Compression));
    EXPECT_NE(Old, ReadBytes(Path));
    ASSERT_EQ(0, stat(Path.c_str(), &Info));
    EXPECT_EQ(0640u, Info.st_mode & 0777);
    int Entries = 0;
    if (DIR *Directory = opendir(Folder.c_str())) {
        while (dirent *Entry = readdir(Directory)) Entries += Entry->d_name[0] != '.' || strlen(Entry->d_name) > 2;
        closedir(Directory);
    }
    EXPECT_EQ(2, Entries); // out.ts2 and fifo.ts2
    remove(Path.c_str());
    remove(Fifo.c_str());
    rmdir(Folder.c_str());
}

TEST(FileBuilder, SectionFormatAndIndexChecks)
{
    log_capture Log;
    file_builder *Builder =
        BeginFile(8, TesselStandardFileTypeTag, GetNativeFileMagicBlock(), GetTemporaryDirectory(), "export_buffer");
    ASSERT_NE(nullptr, Builder);
    SetFileSectionFormat(Builder, 3, Trove0Compression, 4);
    EXPECT_EQ(2u, Builder->Sections[3].Header.Format);
    EXPECT_TRUE(Log.Contains("Substituting Trove1 compression for obsolete Trove0 compression"));
    file_location Result = {5, 5, 5};
    WriteSectionData(Builder, 8, 4, 4, "abcd", &Result);
    EXPECT_TRUE(Log.Contains("SectionIndex 8 is out of range [0, 8)"));
    EXPECT_EQ(0, Result.SectionIndex);
    file_location Outside = {8, 0, 0};
    AddFixup(Builder, Result, 0, Outside);
    EXPECT_TRUE(Log.Contains("To.SectionIndex 8 is out of range [0, 8)"));
    EXPECT_EQ(0u, Builder->Sections[0].Header.PointerFixupArrayCount);
    AbortFile(Builder);
    EXPECT_STREQ("7 - StandardUnloadedSection", GetStandardSectionName(7));
    EXPECT_STREQ("(non-standard section)", GetStandardSectionName(8));
}

TEST(FileReader, LoadsWhatTheBuilderWrote)
{
    std::string Path = OutputPath("load.ts2");
    ASSERT_TRUE(BuildSample(Path.c_str()));
    int32 Live = LiveBlocks();
    loaded_file *File = LoadFileFromDisk(Path.c_str());
    ASSERT_NE(nullptr, File);
    void *RootType = 0;
    sample_record *Sample = (sample_record *)GetLoadedFileRootObject(*File, &RootType);
    ASSERT_NE(nullptr, Sample);
    EXPECT_EQ(0x11223344, Sample->Value);
    EXPECT_EQ(0x5566, Sample->Half);
    EXPECT_STREQ("sample name", LoadUnaligned<char const *>(&Sample->Name));
    child_record *Child = LoadUnaligned<child_record *>(&Sample->Child);
    ASSERT_NE(nullptr, Child);
    EXPECT_EQ(0u, ((uintptr_t)Child - (uintptr_t)File->Sections[1].Data) % 4096);
    EXPECT_FLOAT_EQ(3.25f, Child->Values[2]);
    data_type_definition const *Type = (data_type_definition const *)RootType;
    EXPECT_STREQ("Child", LoadUnaligned<char const *>(&Type[3].Name));

    file_type_member Member;
    ASSERT_TRUE(GetFileTypeMember(*File, File->Header.RootObjectTypeDefinition, 3, &Member));
    EXPECT_STREQ("Child", Member.Name);
    EXPECT_EQ(14u, Member.SlotOffset);
    uint32 Size = 0;
    ASSERT_TRUE(GetFileTypeObjectSize(*File, File->Header.RootObjectTypeDefinition, &Size));
    EXPECT_EQ(sizeof(sample_record), Size);
    FreeLoadedFile(File);
    EXPECT_EQ(Live, LiveBlocks());
    remove(Path.c_str());
}

TEST(FileReader, CompressedSectionsKeepExpandedOffsets)
{
    std::string PlainPath = OutputPath("plain.ts2"), PackedPath = OutputPath("packed.ts2");
    ASSERT_TRUE(BuildSample(PlainPath.c_str()));
    ASSERT_TRUE(BuildSample(PackedPath.c_str(), 0, false, Trove1Compression));
    std::vector<uint8_t> Plain = ReadBytes(PlainPath), Packed = ReadBytes(PackedPath);
    for (int Index : {0, 1, 6}) {
        file_section_header A = SectionAt(Plain, Index), B = SectionAt(Packed, Index);
        EXPECT_EQ(2u, B.Format);
        EXPECT_EQ(A.ExpandedDataSize, B.ExpandedDataSize);
        EXPECT_EQ(A.First8Bit, B.First8Bit);
        EXPECT_EQ(0, memcmp(&Plain[A.PointerFixupArrayOffset], &Packed[B.PointerFixupArrayOffset],
                            12 * A.PointerFixupArrayCount));
    }
    EXPECT_LT(SectionAt(Packed, 1).DataSize, 1000u);

    loaded_file *File = LoadFileFromMemory((int32)Packed.size(), Packed.data());
    ASSERT_NE(nullptr, File);
    loaded_file *Reference = LoadFileFromMemory((int32)Plain.size(), Plain.data());
    ASSERT_NE(nullptr, Reference);
    sample_record *Sample = (sample_record *)GetLoadedFileRootObject(*File, 0);
    ASSERT_NE(nullptr, Sample);
    EXPECT_STREQ("sample name", LoadUnaligned<char const *>(&Sample->Name));
    EXPECT_FLOAT_EQ(1.5f, LoadUnaligned<child_record *>(&Sample->Child)->Values[0]);
    FreeLoadedFile(File);
    FreeLoadedFile(Reference);
    remove(PlainPath.c_str());
    remove(PackedPath.c_str());
}

// The same file as a 64-bit big-endian platform would hold it.
static std::vector<uint8_t> MakeByteReversedCopy(std::vector<uint8_t> Bytes)
{
    file_header Header = At<file_header>(Bytes, 32);
    for (uint32 Index = 0; Index < Header.SectionCount; ++Index) {
        file_section_header Section = SectionAt(Bytes, Index);
        uint8 *Data = Bytes.data() + Section.DataOffset;
        Reverse32(Section.First16Bit / 4, Data);
        Reverse16((Section.First8Bit - Section.First16Bit) / 2, Data + Section.First16Bit);
        Reverse32(Section.PointerFixupArrayCount * 3, Bytes.data() + Section.PointerFixupArrayOffset);
        for (uint32 Record = 0; Record < Section.MixedMarshallingFixupArrayCount; ++Record) {
            // The only mixed object here is a sample: int32, int16, two slots.
            file_mixed_marshalling_fixup Fixup =
                At<file_mixed_marshalling_fixup>(Bytes, Section.MixedMarshallingFixupArrayOffset + 16 * Record);
            Reverse32(1, Data + Fixup.Offset);
            Reverse16(1, Data + Fixup.Offset + 4);
        }
        Reverse32(Section.MixedMarshallingFixupArrayCount * 4, Bytes.data() + Section.MixedMarshallingFixupArrayOffset);
    }
    memcpy(Bytes.data(), FileMagic64BitBigEndian.MagicValue, 16);
    Reverse32((456 - 16) / 4, Bytes.data() + 16);
    uint32 CRC = ComputeCRC32((int32)Bytes.size() - 104, Bytes.data() + 104);
    Reverse32(1, &CRC);
    memcpy(Bytes.data() + 40, &CRC, 4);
    return Bytes;
}

TEST(FileReader, ReadsByteReversedFiles)
{
    std::string Path = OutputPath("reversed.ts2");
    ASSERT_TRUE(BuildSample(Path.c_str()));
    std::vector<uint8_t> Bytes = MakeByteReversedCopy(ReadBytes(Path));
    loaded_file *File = LoadFileFromMemory((int32)Bytes.size(), Bytes.data());
    ASSERT_NE(nullptr, File);
    EXPECT_TRUE(File->IsByteReversed);
    sample_record *Sample = (sample_record *)GetLoadedFileRootObject(*File, 0);
    ASSERT_NE(nullptr, Sample);
    EXPECT_EQ(0x11223344, Sample->Value);
    EXPECT_EQ(0x5566, Sample->Half);
    EXPECT_FLOAT_EQ(-2.0f, LoadUnaligned<child_record *>(&Sample->Child)->Values[1]);
    FreeLoadedFile(File);
    remove(Path.c_str());
}

TEST(FileReader, RefusesDamagedFiles)
{
    std::string Path = OutputPath("damaged.ts2");
    ASSERT_TRUE(BuildSample(Path.c_str()));
    std::vector<uint8_t> const Good = ReadBytes(Path);
    remove(Path.c_str());
    int32 Live = LiveBlocks();
    log_capture Log;

    auto Refused = [&](std::vector<uint8_t> const &Bytes, char const *Message) {
        Log.Entries.clear();
        loaded_file *File = LoadFileFromMemory((int32)Bytes.size(), Bytes.data());
        FreeLoadedFile(File);
        return File == nullptr && (!Message || Log.Contains(Message));
    };

    std::vector<uint8_t> Bytes = Good;
    Bytes[3] ^= 1;
    EXPECT_TRUE(Refused(Bytes, "doesn't match any known file format"));
    Bytes = Good;
    Bytes[20] = 1;
    EXPECT_TRUE(Refused(Bytes, "unrecognized header format (1)"));
    Bytes = Good;
    Bytes[Bytes.size() - 1] ^= 0x40;
    EXPECT_TRUE(Refused(Bytes, "CRC"));

    file_section_header Main = SectionAt(Good, 0);
    Bytes = Good;
    uint32 Outside = Main.ExpandedDataSize - 4;
    memcpy(Bytes.data() + Main.PointerFixupArrayOffset, &Outside, 4);
    RestampCRC(Bytes);
    EXPECT_TRUE(Refused(Bytes, "points outside the file"));

    // A type that holds itself inline never ends.
    file_header Header = At<file_header>(Good, 32);
    file_section_header Types = SectionAt(Good, 6);
    Bytes = Good;
    uint32 RootType = Types.DataOffset + Header.RootObjectTypeDefinition.Offset;
    int32 Inline = InlineMember;
    memcpy(Bytes.data() + RootType, &Inline, 4);
    file_pointer_fixup Loop = {Header.RootObjectTypeDefinition.Offset + 12, Header.RootObjectTypeDefinition};
    memcpy(Bytes.data() + Types.PointerFixupArrayOffset, &Loop, 12);
    RestampCRC(Bytes);
    EXPECT_TRUE(Refused(Bytes, "nests into itself"));

    // Every truncation fails; no flipped byte crashes, and past the header
    // the CRC catches each one.
    for (size_t Length = 0; Length < Good.size(); ++Length) {
        std::vector<uint8_t> Short(Good.begin(), Good.begin() + Length);
        EXPECT_TRUE(Refused(Short, 0)) << "length " << Length;
    }
    for (size_t Offset = 0; Offset < Good.size(); ++Offset) {
        Bytes = Good;
        Bytes[Offset] ^= 0xA5;
        bool WasRefused = Refused(Bytes, 0);
        if (Offset >= 104) {
            EXPECT_TRUE(WasRefused) << "offset " << Offset;
        }
    }
    EXPECT_EQ(Live, LiveBlocks());
}

TEST(FileFormat, MagicValuesTellPointerSizeAndByteOrder)
{
    struct row
    {
        file_magic_block const *Magic;
        int32 Bits;
        bool Little;
    } const Rows[] = {{&FileMagic32BitLittleEndian, 32, true},
                      {&FileMagic32BitBigEndian, 32, false},
                      {&FileMagic64BitLittleEndian, 64, true},
                      {&FileMagic64BitBigEndian, 64, false}};
    for (row const &Row : Rows) {
        file_magic_block Block = *Row.Magic;
        for (int Reversed = 0; Reversed < 2; ++Reversed) {
            int32 Bits = 0;
            bool Little = false;
            ASSERT_TRUE(GetMagicInfo(Block, &Bits, &Little));
            EXPECT_EQ(Row.Bits, Bits);
            EXPECT_EQ(Row.Little, Little);
            Reverse32(4, Block.MagicValue);
        }
    }
    // The old magic: as it stands little-endian, words reversed big-endian.
    file_magic_block Old = FileMagicOld32Bit;
    Old.TotalHeaderSize = 456;
    uint32 HeaderSize = 0;
    bool IsReversed = true, PointerSizeDiffers = false;
    ASSERT_TRUE(IsTesselFileHeader(Old, &HeaderSize, &IsReversed, &PointerSizeDiffers));
    EXPECT_FALSE(IsReversed);
    EXPECT_TRUE(PointerSizeDiffers);
    EXPECT_EQ(456u, HeaderSize);
    Reverse32(5, Old.MagicValue);
    ASSERT_TRUE(IsTesselFileHeader(Old, &HeaderSize, &IsReversed, &PointerSizeDiffers));
    EXPECT_TRUE(IsReversed);
    EXPECT_EQ(456u, HeaderSize);

    log_capture Log;
    file_magic_block Unknown = {};
    int32 Bits;
    bool Little;
    EXPECT_FALSE(GetMagicInfo(Unknown, &Bits, &Little));
    EXPECT_TRUE(Log.Contains("Magic value (0x0, 0x0, 0x0, 0x0) doesn't match any known file format"));
}

TEST(FileReader, ChecksTheTreeAndMatchesProgramTypes)
{
    std::string Path = OutputPath("typed.ts2");
    ASSERT_TRUE(BuildSample(Path.c_str()));
    loaded_file *File = LoadFileFromDisk(Path.c_str());
    ASSERT_NE(nullptr, File);
    EXPECT_NE(nullptr, GetLoadedFileRootObjectOfType(*File, SampleType));
    data_type_definition Renamed[] = {{Int32Member, "Value"},
                                      {Int16Member, "half"},
                                      {StringMember, "Name"},
                                      {ReferenceMember, "Child", ChildType},
                                      {EndMember}};
    data_type_definition Shorter[] = {{Int32Member, "Value"}, {EndMember}};
    data_type_definition WiderChild[] = {{Real32Member, "Values", 0, 4}, {EndMember}};
    data_type_definition OtherChild[] = {{Int32Member, "Value"},
                                         {Int16Member, "Half"},
                                         {StringMember, "Name"},
                                         {ReferenceMember, "Child", WiderChild},
                                         {EndMember}};
    EXPECT_EQ(nullptr, GetLoadedFileRootObjectOfType(*File, Renamed));
    EXPECT_EQ(nullptr, GetLoadedFileRootObjectOfType(*File, Shorter));
    EXPECT_EQ(nullptr, GetLoadedFileRootObjectOfType(*File, OtherChild));
    FreeLoadedFile(File);
    remove(Path.c_str());

    // An array whose count runs past its section is refused, CRC or not.
    data_type_definition ListType[] = {{ReferenceToArrayMember, "Items", ChildType}, {EndMember}};
    file_builder *Builder =
        BeginFile(8, TesselStandardFileTypeTag, GetNativeFileMagicBlock(), GetTemporaryDirectory(), "export_buffer");
    ASSERT_NE(nullptr, Builder);
    uint8 List[12] = {200};
    child_record Items[2] = {};
    file_location ListAt, ItemsAt;
    WriteSectionData(Builder, 0, 4, sizeof(List), List, &ListAt);
    WriteSectionData(Builder, 0, 4, sizeof(Items), Items, &ItemsAt);
    AddFixup(Builder, ListAt, 4, ItemsAt);
    file_location ChildTypeAt = WriteType(Builder, ChildType, 0);
    SetFileRoots(Builder, WriteType(Builder, ListType, &ChildTypeAt), ListAt);
    ASSERT_TRUE(EndFile(Builder, Path.c_str()));
    log_capture Log;
    EXPECT_EQ(nullptr, LoadFileFromDisk(Path.c_str()));
    EXPECT_TRUE(Log.Contains("An object at section 0 offset 12 lies outside the file"));
    remove(Path.c_str());
}

// A file with 32-bit pointers, laid out by hand: root {Int32 Value; String
// Name} in section 0, its type table (32-byte member records) in section 6.
static std::vector<uint8_t> MakePointer32File(uint32 Version)
{
    std::vector<uint8_t> Bytes(456, 0);
    auto Put = [&](size_t Offset, uint32 Value) { memcpy(&Bytes[Offset], &Value, 4); };
    memcpy(Bytes.data(), FileMagic32BitLittleEndian.MagicValue, 16);
    Put(16, 456);
    Put(32, Version);
    Put(44, 72);
    Put(48, 8);
    Put(52, 6); // root type: section 6 offset 0
    Put(60, 0); // root object: section 0 offset 0

    uint8 Main[12] = {7, 0, 0, 0, 0, 0, 0, 0, 'h', 'i', 0, 0};
    uint8 Types[112] = {};
    Types[0] = Int32Member;
    Types[32] = StringMember;
    memcpy(Types + 96, "Value", 6);
    memcpy(Types + 104, "Name", 5);
    file_pointer_fixup const MainFixups[] = {{4, {0, 8}}};
    file_pointer_fixup const TypeFixups[] = {{4, {6, 96}}, {36, {6, 104}}};

    file_section_header Sections[8] = {};
    uint32 Position = 456;
    auto Append = [&](void const *Data, size_t Size) {
        Bytes.insert(Bytes.end(), (uint8 const *)Data, (uint8 const *)Data + Size);
        Position += (uint32)Size;
    };
    for (file_section_header &Section : Sections) Section.InternalAlignment = 4;
    Sections[0] = {0, Position, 12, 12, 4, 8, 8};
    Append(Main, sizeof(Main));
    Sections[6] = {0, Position, 112, 112, 4, 96, 96};
    Append(Types, sizeof(Types));
    for (file_section_header &Section : Sections) {
        if (!Section.DataSize) Section.DataOffset = Position;
        Section.PointerFixupArrayOffset = Section.MixedMarshallingFixupArrayOffset = Position;
    }
    Sections[0].PointerFixupArrayOffset = Position;
    Sections[0].PointerFixupArrayCount = 1;
    Append(MainFixups, sizeof(MainFixups));
    Sections[6].PointerFixupArrayOffset = Position;
    Sections[6].PointerFixupArrayCount = 2;
    Append(TypeFixups, sizeof(TypeFixups));
    memcpy(&Bytes[104], Sections, sizeof(Sections));
    Put(36, (uint32)Bytes.size());
    RestampCRC(Bytes);
    return Bytes;
}

TEST(FileReader, ReadsFilesWithOtherPointerSizesAndOlderVersions)
{
    std::vector<uint8_t> Bytes = MakePointer32File(7);
    // Loaded for use, the file is re-laid with this platform's pointers.
    loaded_file *File = LoadFileFromMemory((int32)Bytes.size(), Bytes.data());
    ASSERT_NE(nullptr, File);
    EXPECT_EQ(64, File->PointerBits);
    EXPECT_NE(nullptr, GetLoadedFileRootObject(*File, 0));
    FreeLoadedFile(File);
    file_reader *StoredReader = CreateMemoryFileReader((int32)Bytes.size(), Bytes.data());
    File = LoadStoredFileFromReader(StoredReader);
    CloseFileReader(StoredReader);
    ASSERT_NE(nullptr, File);
    EXPECT_EQ(32, File->PointerBits);
    EXPECT_EQ(nullptr, GetLoadedFileRootObject(*File, 0));
    file_type_member Member;
    ASSERT_TRUE(GetFileTypeMember(*File, File->Header.RootObjectTypeDefinition, 1, &Member));
    EXPECT_STREQ("Name", Member.Name);
    EXPECT_EQ(4u, Member.SlotOffset);
    EXPECT_EQ(4u, Member.Size);
    file_section_reference Target;
    ASSERT_TRUE(ResolveFilePointer(*File, {0, 4}, &Target));
    EXPECT_STREQ("hi", GetLoadedFileString(*File, Target));
    FreeLoadedFile(File);

    log_capture Log;
    Bytes = MakePointer32File(6);
    File = LoadFileFromMemory((int32)Bytes.size(), Bytes.data());
    EXPECT_NE(nullptr, File);
    EXPECT_TRUE(Log.Contains("File is file format revision 6 (current version is 7)"));

    // A section read twice keeps its first data.
    file_reader *Reader = CreateMemoryFileReader((int32)Bytes.size(), Bytes.data());
    file *Sections = ReadFileFromReader(Reader);
    ASSERT_NE(nullptr, Sections);
    ASSERT_TRUE(ReadFileSection(Reader, *Sections, 0));
    void *First = Sections->Sections[0];
    EXPECT_TRUE(ReadFileSection(Reader, *Sections, 0));
    EXPECT_EQ(First, Sections->Sections[0]);
    EXPECT_TRUE(Log.Contains("Ignored request to read already populated file section 0"));
    FreeFile(Sections);
    CloseFileReader(Reader);
    FreeLoadedFile(File);
}
