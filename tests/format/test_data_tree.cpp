// The data tree writer through files read back: sharing of objects, strings
// and equal type tables, normalisation, cycles, section rules and repeated
// writes.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "format/tessel_file_format.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_file_io.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"
#include "test_data_tree_objects.h"

namespace {

#pragma pack(push, 4)
struct leaf
{
    int32 Value;
    char const *Label;
};
struct tree_root
{
    char const *Name;
    leaf *First;
    leaf *Second;
    int32 LeafCount;
    leaf *Leaves;
    int32 NameCount;
    char const **Names;
    variant ExtraA;
    variant ExtraB;
    void *Nothing;
    int32 *Empty;
};
struct extra
{
    real32 X;
    int16 Y;
};
#pragma pack(pop)

data_type_definition LeafType[] = {{Int32Member, "Value"}, {StringMember, "Label"}, {EndMember}};
data_type_definition TreeType[] = {
    {StringMember, "Name"},
    {ReferenceMember, "First", LeafType},
    {ReferenceMember, "Second", LeafType},
    {ReferenceToArrayMember, "Leaves", LeafType},
    {ReferenceToArrayMember, "Names", StringElementType},
    {VariantReferenceMember, "ExtraA"},
    {VariantReferenceMember, "ExtraB"},
    {EmptyReferenceMember, "Nothing"},
    {ReferenceMember, "Empty", EmptyType},
    {EndMember},
};
data_type_definition ExtraTypeA[] = {{Real32Member, "X"}, {Int16Member, "Y"}, {EndMember}};
data_type_definition ExtraTypeB[] = {{Real32Member, "X"}, {Int16Member, "Y"}, {EndMember}};

static_assert(sizeof(tree_root) == 96, "tree_root layout");

struct tree_fixture : ::testing::Test
{
    leaf Leaves[3] = {{1, "one"}, {2, "two"}, {3, "shared"}};
    leaf Single = {4, "single"};
    char Shared[7] = "shared"; // a second copy of the text at another address
    char const *Names[2] = {Shared, "other"};
    extra ExtraA = {1.5f, 3};
    extra ExtraB = {2.5f, 4};
    int32 Unused = 5;
    tree_root Root = {};
    int32 LiveBefore = 0;

    void SetUp() override
    {
        LiveBefore = LiveBlocks();
        Root.Name = "root";
        Root.First = &Single;
        Root.Second = &Single;
        Root.LeafCount = 3;
        Root.Leaves = Leaves;
        Root.NameCount = 2;
        Root.Names = Names;
        Root.ExtraA = {ExtraTypeA, &ExtraA};
        Root.ExtraB = {ExtraTypeB, &ExtraB};
        Root.Nothing = &Unused;
        Root.Empty = &Unused;
    }
    void TearDown() override { EXPECT_EQ(LiveBlocks(), LiveBefore); }

    tree_root *Load(loaded_file *&File, test_tree_setup const &Setup = test_tree_setup())
    {
        File = WriteTreeAndLoad(TreeType, &Root, Setup);
        return File ? (tree_root *)GetLoadedFileRootObject(*File, 0) : 0;
    }
};

TEST_F(tree_fixture, SharesObjectsStringsAndEqualTypes)
{
    loaded_file *File = 0;
    tree_root *Loaded = Load(File);
    ASSERT_NE(Loaded, nullptr);
    // One copy for two references.
    EXPECT_EQ(Loaded->First, Loaded->Second);
    EXPECT_EQ(Loaded->First->Value, 4);
    // Equal texts at different addresses become one string object.
    EXPECT_STREQ(Loaded->Names[0], "shared");
    EXPECT_EQ(Loaded->Names[0], Loaded->Leaves[2].Label);
    // Equal type tables at different addresses become one table.
    EXPECT_EQ(Loaded->ExtraA.Type, Loaded->ExtraB.Type);
    EXPECT_EQ(((extra *)Loaded->ExtraB.Object)->Y, 4);
    // The empty reference and the reference to an empty type are nulled, in
    // the file and in the caller's object.
    EXPECT_EQ(Loaded->Nothing, nullptr);
    EXPECT_EQ(Loaded->Empty, nullptr);
    EXPECT_EQ(Root.Nothing, nullptr);
    EXPECT_EQ(Root.Empty, nullptr);
    // Both extras are of mixed units: one marshalling record each.
    EXPECT_EQ(File->Sections[0].MarshallingCount, 2u);
    FreeLoadedFile(File);
}

TEST_F(tree_fixture, NormalisesDegenerateReferences)
{
    Root.ExtraA.Object = 0;       // type without object
    Root.ExtraB.Type = EmptyType; // object of an empty type
    Root.NameCount = 0;           // pointer without count
    Root.Leaves = 0;              // count without pointer
    loaded_file *File = 0;
    tree_root *Loaded = Load(File);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(Loaded->ExtraA.Type, nullptr);
    EXPECT_EQ(Loaded->ExtraA.Object, nullptr);
    ASSERT_NE(Loaded->ExtraB.Type, nullptr);
    EXPECT_EQ(Loaded->ExtraB.Type->Type, EndMember);
    EXPECT_EQ(Loaded->ExtraB.Object, nullptr);
    EXPECT_EQ(Loaded->NameCount, 0);
    EXPECT_EQ(Loaded->Names, nullptr);
    EXPECT_EQ(Loaded->LeafCount, 0);
    EXPECT_EQ(Root.Names, nullptr);
    EXPECT_EQ(Root.LeafCount, 0);
    FreeLoadedFile(File);
}

#pragma pack(push, 4)
struct array_then_element
{
    int32 Count;
    leaf *Array;
    leaf *Element;
};
struct element_then_array
{
    leaf *Element;
    int32 Count;
    leaf *Array;
};
#pragma pack(pop)
data_type_definition ArrayThenElementType[] = {
    {ReferenceToArrayMember, "Array", LeafType}, {ReferenceMember, "Element", LeafType}, {EndMember}};
data_type_definition ElementThenArrayType[] = {
    {ReferenceMember, "Element", LeafType}, {ReferenceToArrayMember, "Array", LeafType}, {EndMember}};

TEST_F(tree_fixture, ArrayIdentityAndReachingOrder)
{
    // The first element's address is the key of the whole array, whichever
    // way it is reached first.
    array_then_element Forward = {3, Leaves, Leaves};
    loaded_file *File = WriteTreeAndLoad(ArrayThenElementType, &Forward, test_tree_setup());
    ASSERT_NE(File, nullptr);
    array_then_element *LoadedForward = (array_then_element *)GetLoadedFileRootObject(*File, 0);
    ASSERT_NE(LoadedForward, nullptr);
    EXPECT_EQ(LoadedForward->Element, LoadedForward->Array);
    EXPECT_EQ(LoadedForward->Array[2].Value, 3);
    uint32 ForwardSize = File->Sections[0].Header.ExpandedDataSize;
    FreeLoadedFile(File);

    // Reached through the reference first, the array counts as written with
    // its first element only: its other elements and their labels ("two",
    // "shared") don't reach the file.
    element_then_array Backward = {Leaves, 3, Leaves};
    File = WriteTreeAndLoad(ElementThenArrayType, &Backward, test_tree_setup());
    ASSERT_NE(File, nullptr);
    element_then_array *LoadedBackward = (element_then_array *)GetLoadedFileRootObject(*File, 0);
    ASSERT_NE(LoadedBackward, nullptr);
    EXPECT_EQ(LoadedBackward->Element, LoadedBackward->Array);
    EXPECT_EQ(File->Sections[0].Header.ExpandedDataSize, ForwardSize - 2 * 12 - 4 - 8);
    FreeLoadedFile(File);
}

TEST_F(tree_fixture, CyclesTerminate)
{
    material Material = {};
    material_map Map = {(char *)"self", &Material};
    Material.Name = (char *)"looped";
    Material.MapCount = 1;
    Material.Maps = &Map;
    loaded_file *File = WriteTreeAndLoad(MaterialType, &Material, test_tree_setup());
    ASSERT_NE(File, nullptr);
    void *FileType = 0;
    material *Loaded = (material *)GetLoadedFileRootObject(*File, &FileType);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(Loaded->Maps[0].Map, Loaded);
    EXPECT_TRUE(DataTypesAreEqual((data_type_definition *)FileType, MaterialType));
    FreeLoadedFile(File);

    EXPECT_EQ(ComputeTypeTableCRC(ExtraTypeA), ComputeTypeTableCRC(ExtraTypeB));
    data_type_definition Renamed[] = {{Real32Member, "x"}, {Int16Member, "Y"}, {EndMember}};
    EXPECT_NE(ComputeTypeTableCRC(ExtraTypeA), ComputeTypeTableCRC(Renamed));
}

struct section_rules
{
    leaf *Placed;
};

void ApplySectionRules(file_data_tree_writer *Writer, void *UserData)
{
    SetFileSectionForObjectsOfType(Writer, LeafType, 5);
    SetFileSectionForObjectsOfType(Writer, StringElementType, 4);
    SetFileSectionForObject(Writer, ((section_rules *)UserData)->Placed, 3);
}

TEST_F(tree_fixture, SectionsByTypeObjectAndParent)
{
    section_rules Rules = {Leaves};
    test_tree_setup Setup;
    Setup.DefaultObjectSection = 1;
    Setup.DefaultTypeSection = 2;
    Setup.Setup = ApplySectionRules;
    Setup.UserData = &Rules;
    loaded_file *File = 0;
    tree_root *Loaded = Load(File, Setup);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(FindLoadedSection(*File, Loaded), 1);
    EXPECT_EQ(FindLoadedSection(*File, Loaded->First), 5);         // by type
    EXPECT_EQ(FindLoadedSection(*File, Loaded->Leaves), 3);        // placed
    EXPECT_EQ(FindLoadedSection(*File, Loaded->Name), 4);          // strings row
    EXPECT_EQ(FindLoadedSection(*File, Loaded->Names), 1);         // arrays follow the parent
    EXPECT_EQ(FindLoadedSection(*File, Loaded->ExtraA.Type), 2);   // type tables
    EXPECT_EQ(FindLoadedSection(*File, Loaded->ExtraA.Object), 1); // no rule: default
    FreeLoadedFile(File);

    // Without the placement the array lives with its owner, whatever its
    // element type asks for.
    Rules.Placed = &Single;
    File = 0;
    Loaded = Load(File, Setup);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(FindLoadedSection(*File, Loaded->Leaves), 1);
    EXPECT_EQ(FindLoadedSection(*File, Loaded->First), 3);
    FreeLoadedFile(File);
}

std::vector<uint8> WriteToBytes(file_data_tree_writer *Writer, file_magic_block const &Magic)
{
    file_builder *Builder = BeginFile(8, 0x80000031u, Magic, GetTemporaryDirectory(), "types_repeat");
    std::vector<uint8> Bytes;
    if (!Builder || !WriteDataTreeToFileBuilder(Writer, Builder)) {
        AbortFile(Builder);
        return Bytes;
    }
    file_writer *Memory = CreateMemoryFileWriter(65536);
    uint8 *Buffer = 0;
    int32 Size = 0;
    if (EndFileToWriter(Builder, Memory) && StealMemoryWriterBuffer(Memory, &Buffer, &Size)) {
        Bytes.assign(Buffer, Buffer + Size);
    }
    FreeMemoryWriterBuffer(Buffer);
    DeleteFileWriter(Memory);
    return Bytes;
}

TEST_F(tree_fixture, RepeatedWritesGiveEqualFilesAndExcludeTypeTree)
{
    file_data_tree_writer *Writer = BeginFileDataTreeWriting(TreeType, &Root, 6, 0);
    ASSERT_NE(Writer, nullptr);
    std::vector<uint8> First = WriteToBytes(Writer, GetNativeFileMagicBlock());
    std::vector<uint8> Second = WriteToBytes(Writer, GetNativeFileMagicBlock());
    ASSERT_FALSE(First.empty());
    EXPECT_EQ(First, Second);
    EXPECT_EQ(Writer->TraversalNumber, 2u);

    SetFileWriterFlags(Writer, ExcludeTypeTree);
    std::vector<uint8> Excluded = WriteToBytes(Writer, GetNativeFileMagicBlock());
    EXPECT_LT(Excluded.size(), First.size());
    loaded_file *File = LoadFileFromMemory((int32)Excluded.size(), Excluded.data());
    ASSERT_NE(File, nullptr);
    void *FileType = 0;
    tree_root *Loaded = (tree_root *)GetLoadedFileRootObject(*File, &FileType);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(((data_type_definition *)FileType)->Type, EndMember);
    EXPECT_TRUE(DataTypesAreEqual(Loaded->ExtraA.Type, ExtraTypeA));
    FreeLoadedFile(File);

    // A builder for another platform takes the flag over: the conversion
    // needs the type tree in the intermediate file.
    file_builder *Builder =
        BeginFile(8, 0x80000031u, *GetPlatformFileMagicBlock(32, true), GetTemporaryDirectory(), "types_flag");
    ASSERT_NE(Builder, nullptr);
    EXPECT_TRUE(WriteDataTreeToFileBuilder(Writer, Builder));
    EXPECT_TRUE(Builder->ExcludeTypeTreeInConversion);
    EXPECT_EQ(Writer->Flags & ExcludeTypeTree, 0u);
    AbortFile(Builder);
    EndFileDataTreeWriting(Writer);
}

} // namespace
