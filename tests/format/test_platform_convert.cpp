// Files for the four platforms: random trees of every record type built for
// each platform and converted between them; the layout facts of 32-bit
// targets; same-platform conversion, excluded type trees and raw roots.
#include <gtest/gtest.h>

#include "format/platform_test_support.h"
#include "format/tessel_file_builder.h"
#include "format/tessel_platform_convert.h"
#include "format/tessel_schema.h"
#include "support/test_log_capture.h"
#include "test_data_tree_objects.h"

using namespace platform_test;

namespace {

struct build_options
{
    file_magic_block Magic = GetNativeFileMagicBlock();
    int32 Compression = 0;
    uint32 WriterFlags = 0;
    int32 Alignment[8] = {4, 16, 4, 16, 4, 4, 4, 4};
    void (*Setup)(file_data_tree_writer *Writer, void *UserData) = 0;
    void *UserData = 0;
};

// The tree under Root written by the data tree writer and a builder for the
// options' platform, as the bytes of the file; empty on failure.
bytes Build(data_type_definition *Type, void *Root, build_options const &Options)
{
    file_builder *Builder = BeginFile(8, (uint32)TesselStandardFileTypeTag, Options.Magic, "/tmp", "platform_test");
    if (!Builder) return {};
    for (int32 Section = 0; Section < 8; ++Section) {
        SetFileSectionFormat(Builder, Section, Section == 5 ? 0 : Options.Compression, Options.Alignment[Section]);
    }
    file_data_tree_writer *Writer = BeginFileDataTreeWriting(Type, Root, 6, 0);
    if (Options.Setup) Options.Setup(Writer, Options.UserData);
    SetFileWriterFlags(Writer, Options.WriterFlags);
    bool Written = WriteDataTreeToFileBuilder(Writer, Builder);
    EndFileDataTreeWriting(Writer);
    if (!Written) {
        AbortFile(Builder);
        return {};
    }
    file_writer *Memory = CreateMemoryFileWriter(65536);
    bool Ended = EndFileToWriter(Builder, Memory);
    uint8 *Buffer = 0;
    int32 Size = 0;
    bool Stolen = StealMemoryWriterBuffer(Memory, &Buffer, &Size);
    DeleteFileWriter(Memory);
    bytes Result;
    if (Ended && Stolen) Result.assign(Buffer, Buffer + Size);
    FreeMemoryWriterBuffer(Buffer);
    return Result;
}

// Vertex arrays in their own section, meshes in another, strings in a third.
void PlaceObjects(file_data_tree_writer *Writer, void *UserData)
{
    file_info *Root = (file_info *)UserData;
    SetFileSectionForObjectsOfType(Writer, MeshType, 2);
    SetFileSectionForObjectsOfType(Writer, StringElementType, 4);
    for (int32 Index = 0; Index < Root->VertexDataCount; ++Index) {
        SetFileSectionForObject(Writer, Root->VertexDatas[Index]->Vertices.Array, 1);
    }
}

// A little record with every kind of pointer member.
#pragma pack(push, 4)
struct leaf
{
    int16 Small[2];
    int32 Value;
};
struct pointers
{
    leaf *First;
    leaf *Second;
    char *Name;
    variant_array Leaves;
    int32 LeafCount;
    leaf *LeafArray;
    int16 *Shorts;
    int32 ShortCount;
};
#pragma pack(pop)

data_type_definition LeafType[] = {{Int16Member, "Small", 0, 2}, {Int32Member, "Value"}, {EndMember}};
data_type_definition ShortType[] = {{Int16Member, "Short"}, {EndMember}};
data_type_definition PointersType[] = {
    {ReferenceMember, "First", LeafType},
    {ReferenceMember, "Second", LeafType},
    {StringMember, "Name"},
    {ReferenceToVariantArrayMember, "Leaves"},
    {ReferenceToArrayMember, "LeafArray", LeafType},
    {ReferenceMember, "Shorts", ShortType},
    {Int32Member, "ShortCount"},
    {EndMember},
};

void ShortsAlone(file_data_tree_writer *Writer, void *UserData)
{
    SetFileSectionForObject(Writer, ((pointers *)UserData)->Shorts, 3);
}

} // namespace

TEST(PlatformConversion, EveryPlatformHoldsTheSameTreeAndConvertsBackExactly)
{
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();
    for (uint32 Seed : {3u, 11u}) {
        for (int32 Compression : {0, 2}) {
            SCOPED_TRACE("seed " + std::to_string(Seed) + " compression " + std::to_string(Compression));
            test_object_pool Pool;
            test_fill_options Fill;
            Fill.Seed = Seed;
            Fill.MaxDepth = 5;
            file_info *Root = (file_info *)NewTestObject(Pool, FileInfoType, Fill);
            build_options Options;
            Options.Compression = Compression;
            Options.Setup = PlaceObjects;
            Options.UserData = Root;
            bytes Native = Build(FileInfoType, Root, Options);
            ASSERT_FALSE(Native.empty());
            bytes Files[4];
            EXPECT_EQ(CheckEveryPlatform(Native, Files), "");
            for (int Index = 0; Index < 4; ++Index) {
                // The builder asked for the platform writes the same bytes.
                build_options Direct = Options;
                Direct.Magic = MagicOf(Platforms[Index]);
                EXPECT_TRUE(Build(FileInfoType, Root, Direct) == Files[Index]) << Platforms[Index].Name;
                // Loaded into this program's memory: the records themselves.
                loaded_file *Loaded = LoadFileFromMemory((int32)Files[Index].size(), Files[Index].data());
                ASSERT_NE(Loaded, nullptr);
                void *Type = 0;
                void *Object = GetLoadedFileRootObject(*Loaded, &Type);
                std::string Difference;
                EXPECT_TRUE(CompareTestObjects(FileInfoType, Root, (data_type_definition *)Type, Object, &Difference))
                    << Platforms[Index].Name << ": " << Difference;
                FreeLoadedFile(Loaded);
            }
            // Between foreign platforms too, without passing through this one.
            EXPECT_TRUE(ConvertBytes(Files[1], MagicOf(Platforms[3])) == Files[3]);
            EXPECT_TRUE(ConvertBytes(Files[3], MagicOf(Platforms[0])) == Files[0]);
        }
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(PlatformConversion, ByteOrderCheckFindsAFieldLeftUnswapped)
{
    log_capture Quiet;
    leaf Leaf = {{1, 2}, 0x01020304};
    pointers Root = {&Leaf, &Leaf, (char *)"name", {0, 0, 0}, 0, 0, 0, 0};
    bytes Native = Build(PointersType, &Root, build_options());
    bytes Little = ConvertBytes(Native, FileMagic32BitLittleEndian),
          Big = ConvertBytes(Native, FileMagic32BitBigEndian);
    ASSERT_EQ(CompareByteOrders(Little, Big), "");
    // The leaf's Value as the little-endian bytes in the big-endian file:
    // the check must notice.
    uint8 const Wanted[4] = {1, 2, 3, 4};
    bool Found = false;
    for (size_t At = 0; At + 4 <= Big.size() && !Found; ++At) {
        if (memcmp(&Big[At], Wanted, 4) != 0 || Word(Big, 104 + 4, true) > At) continue;
        Found = true;
        std::swap(Big[At], Big[At + 3]);
        std::swap(Big[At + 1], Big[At + 2]);
    }
    ASSERT_TRUE(Found);
    EXPECT_NE(CompareByteOrders(Little, Big), "");
}

TEST(PlatformConversion, ThirtyTwoBitLayout)
{
    log_capture Quiet;
    leaf Leaves[2] = {{{1, 2}, 4}, {{5, 6}, 8}};
    int16 Shorts[1] = {9};
    pointers Root = {&Leaves[1], &Leaves[1], (char *)"name", {LeafType, 2, Leaves}, 2, Leaves, Shorts, 1};
    build_options Options;
    Options.Setup = ShortsAlone;
    Options.UserData = &Root;
    bytes Native = Build(PointersType, &Root, Options);
    ASSERT_FALSE(Native.empty());
    bytes File = ConvertBytes(Native, FileMagic32BitLittleEndian);
    loaded_file *Wide = LoadStored(Native);
    loaded_file *Narrow = LoadStored(File);
    ASSERT_NE(Wide, nullptr);
    ASSERT_NE(Narrow, nullptr);
    EXPECT_EQ(CompareTrees(*Wide, *Narrow), "");

    // Three references and an int lose 4 bytes a slot; the variant array
    // goes from 20 to 12 bytes, the array reference from 12 to 8.
    uint32 WideSize = 0, NarrowSize = 0;
    ASSERT_TRUE(GetFileTypeObjectSize(*Wide, Wide->Header.RootObjectTypeDefinition, &WideSize));
    ASSERT_TRUE(GetFileTypeObjectSize(*Narrow, Narrow->Header.RootObjectTypeDefinition, &NarrowSize));
    EXPECT_EQ(WideSize, 8u * 4 + 20 + 12 + 4);
    EXPECT_EQ(NarrowSize, 4u * 4 + 12 + 8 + 4);
    file_type_member Member;
    ASSERT_TRUE(GetFileTypeMember(*Narrow, Narrow->Header.RootObjectTypeDefinition, 4, &Member));
    EXPECT_EQ(Member.SlotOffset, 4u * 3 + 12);
    EXPECT_EQ(Member.Size, 8u);
    // Type table records shrink from 44 to 32 bytes: the tables of three
    // types (8 + 3 + 2 records) and the strings are all of section 6.
    uint32 Strings = Wide->Sections[6].Header.ExpandedDataSize - 44 * 13;
    EXPECT_EQ(Narrow->Sections[6].Header.ExpandedDataSize, 32 * 13 + Strings);

    // The leaf reached through two references and the arrays is there once.
    file_section_reference First, Second;
    ASSERT_TRUE(ResolveFilePointer(*Narrow, Narrow->Header.RootObject, &First));
    ASSERT_TRUE(ResolveFilePointer(*Narrow, At(Narrow->Header.RootObject, 4), &Second));
    EXPECT_EQ(Key(First), Key(Second));
    // A section that only had 16-bit objects starts its 16-bit stream at 0.
    EXPECT_EQ(Narrow->Sections[3].Header.First16Bit, 0u);
    EXPECT_EQ(Narrow->Sections[3].Header.First8Bit, Narrow->Sections[3].Header.ExpandedDataSize);
    EXPECT_GT(Narrow->Sections[3].Header.ExpandedDataSize, 0u);
    FreeLoadedFile(Wide);
    FreeLoadedFile(Narrow);

    // A slot without a fixup stays zero.
    Root.First = 0;
    bytes WithNull = ConvertBytes(Build(PointersType, &Root, Options), FileMagic32BitBigEndian);
    loaded_file *Loaded = LoadStored(WithNull);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_FALSE(ResolveFilePointer(*Loaded, Loaded->Header.RootObject, 0));
    EXPECT_EQ(ReadWord(*Loaded, Loaded->Header.RootObject), 0u);
    FreeLoadedFile(Loaded);
}

TEST(PlatformConversion, SamePlatformExcludedTypeTreesAndRawRoots)
{
    test_object_pool Pool;
    test_fill_options Fill;
    Fill.MaxDepth = 2;
    file_info *Root = (file_info *)NewTestObject(Pool, FileInfoType, Fill);
    bytes Native = Build(FileInfoType, Root, build_options());
    {
        log_capture Log;
        EXPECT_TRUE(ConvertBytes(Native, GetNativeFileMagicBlock()) == Native);
        EXPECT_TRUE(Log.Contains("PlatformConvertReaderToWriter called when Source and Dest Magic values match."));
    }

    // Without its type tree for this platform the root's type is empty, and
    // such a file can't be converted.
    build_options Options;
    Options.WriterFlags = ExcludeTypeTree;
    bytes Raw = Build(FileInfoType, Root, Options);
    ASSERT_FALSE(Raw.empty());
    {
        log_capture Log;
        EXPECT_TRUE(ConvertBytes(Raw, FileMagic32BitLittleEndian).empty());
        EXPECT_TRUE(Log.Contains("Cannot convert Raw File types (empty type as root object type detected)"));
    }
    // For another platform the type tree stays, whatever the flag said.
    Options.Magic = FileMagic64BitBigEndian;
    log_capture Quiet;
    bytes Kept = Build(FileInfoType, Root, Options);
    ASSERT_FALSE(Kept.empty());
    loaded_file *File = LoadStored(Kept);
    ASSERT_NE(File, nullptr);
    file_type_member Member;
    ASSERT_TRUE(GetFileTypeMember(*File, File->Header.RootObjectTypeDefinition, 0, &Member));
    EXPECT_NE(Member.Kind, 0);
    FreeLoadedFile(File);
    EXPECT_TRUE(ConvertBytes(Kept, GetNativeFileMagicBlock()) == Native);

    // Older files: their magic, with the words reversed, stands for 32-bit
    // big-endian.
    bytes Older = ConvertBytes(Native, FileMagic32BitBigEndian);
    memcpy(Older.data(), FileMagicOld32Bit.MagicValue, FileMagicValueSize);
    Reverse32(FileMagicValueSize / 4, Older.data());
    File = LoadStored(Older);
    ASSERT_NE(File, nullptr);
    EXPECT_EQ(File->PointerBits, 32);
    EXPECT_TRUE(File->IsByteReversed);
    FreeLoadedFile(File);
    EXPECT_TRUE(ConvertBytes(Older, GetNativeFileMagicBlock()) == Native);

    // Not a file at all.
    bytes Garbage(600, 0x5A);
    EXPECT_TRUE(ConvertBytes(Garbage, FileMagic32BitLittleEndian).empty());
}
