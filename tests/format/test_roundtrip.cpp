// Every record type of the schema, filled with non-trivial values, written
// through the data tree writer and read back by the file reader, compares
// equal member by member; section alignments are honoured.
#include <gtest/gtest.h>

#include "format/tessel_schema.h"
#include "foundation/tessel_memory.h"
#include "support/test_log_capture.h"
#include "test_data_tree_objects.h"

namespace {

struct placement
{
    file_info *Root;
};

// Meshes and their parts go to section 1 (16), strings to section 2 (4096),
// the vertex arrays to section 3 (16), animations to section 7.
void PlaceObjects(file_data_tree_writer *Writer, void *UserData)
{
    file_info *Root = ((placement *)UserData)->Root;
    SetFileSectionForObjectsOfType(Writer, MeshType, 1);
    SetFileSectionForObjectsOfType(Writer, StringElementType, 2);
    SetFileSectionForObjectsOfType(Writer, AnimationType, 7);
    for (int32 Index = 0; Index < Root->VertexDataCount; ++Index) {
        SetFileSectionForObject(Writer, Root->VertexDatas[Index]->Vertices.Array, 3);
    }
}

void ExpectAligned(loaded_file const &File, test_tree_setup const &Setup)
{
    for (int32 Section = 0; Section < File.SectionCount; ++Section) {
        loaded_file_section const &From = File.Sections[Section];
        EXPECT_EQ(From.Header.InternalAlignment, (uint32)Setup.Alignment[Section]);
        for (uint32 Index = 0; Index < From.FixupCount; ++Index) {
            file_section_reference To = From.Fixups[Index].To;
            ASSERT_LT(To.SectionIndex, 8u);
            EXPECT_EQ(To.Offset % (uint32)Setup.Alignment[To.SectionIndex], 0u)
                << "fixup into section " << To.SectionIndex;
        }
    }
}

TEST(RoundTrip, EveryRecordTypeSurvivesWriteAndRead)
{
    int32 LiveBefore = LiveBlocks();
    for (uint32 Seed : {1u, 7u, 12345u}) {
        test_object_pool Pool;
        test_fill_options Options;
        Options.Seed = Seed;
        Options.MaxDepth = 6;
        file_info *Root = (file_info *)NewTestObject(Pool, FileInfoType, Options);
        ASSERT_GT(Root->VertexDataCount, 0);

        placement Place = {Root};
        test_tree_setup Setup;
        Setup.Alignment[1] = 16;
        Setup.Alignment[2] = 4096;
        Setup.Alignment[3] = 16;
        Setup.Setup = PlaceObjects;
        Setup.UserData = &Place;

        loaded_file *File = WriteTreeAndLoad(FileInfoType, Root, Setup);
        ASSERT_NE(File, nullptr);
        void *FileType = 0;
        void *FileRoot = GetLoadedFileRootObject(*File, &FileType);
        ASSERT_NE(FileRoot, nullptr);

        std::string Difference;
        EXPECT_TRUE(CompareTestObjects(FileInfoType, Root, (data_type_definition *)FileType, FileRoot, &Difference))
            << "seed " << Seed << ": " << Difference;
        ExpectAligned(*File, Setup);

        // Placement: by type, by object, and strings through their row.
        file_info *Loaded = (file_info *)FileRoot;
        EXPECT_EQ(FindLoadedSection(*File, Loaded), 0);
        EXPECT_EQ(FindLoadedSection(*File, Loaded->Meshes[0]), 1);
        EXPECT_EQ(FindLoadedSection(*File, Loaded->FromFileName), 2);
        EXPECT_EQ(FindLoadedSection(*File, Loaded->Animations[0]), 7);
        EXPECT_EQ(FindLoadedSection(*File, Loaded->VertexDatas[0]->Vertices.Array), 3);
        // Type tables go to the default type section.
        EXPECT_EQ(FindLoadedSection(*File, FileType), 6);
        // The extended data is of mixed units, so it needs marshalling.
        uint32 Marshallings = 0;
        for (int32 Section = 0; Section < File->SectionCount; ++Section) {
            Marshallings += File->Sections[Section].MarshallingCount;
        }
        EXPECT_GT(Marshallings, 0u);

        // The comparison itself must notice a changed value deep down.
        ASSERT_GT(Loaded->Skeletons[0]->BoneCount, 0);
        Loaded->Skeletons[0]->Bones[0].LODError += 1.0f;
        EXPECT_FALSE(CompareTestObjects(FileInfoType, Root, (data_type_definition *)FileType, FileRoot, &Difference));
        EXPECT_NE(Difference.find("LODError"), std::string::npos) << Difference;
        FreeLoadedFile(File);
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(RoundTrip, ExcludedTypeTreeKeepsVariantTypes)
{
    test_object_pool Pool;
    test_fill_options Options;
    Options.MaxDepth = 2;
    file_info *Root = (file_info *)NewTestObject(Pool, FileInfoType, Options);
    test_tree_setup Setup;
    Setup.WriterFlags = ExcludeTypeTree;
    loaded_file *File = WriteTreeAndLoad(FileInfoType, Root, Setup);
    ASSERT_NE(File, nullptr);
    void *FileType = 0;
    file_info *Loaded = (file_info *)GetLoadedFileRootObject(*File, &FileType);
    ASSERT_NE(Loaded, nullptr);
    EXPECT_EQ(((data_type_definition *)FileType)->Type, EndMember);
    ASSERT_NE(Loaded->ExtendedData.Type, nullptr);
    EXPECT_TRUE(DataTypesAreEqual(Root->ExtendedData.Type, Loaded->ExtendedData.Type));
    std::string Difference;
    EXPECT_TRUE(CompareTestObjects(FileInfoType, Root, FileInfoType, Loaded, &Difference)) << Difference;
    FreeLoadedFile(File);
}

} // namespace
