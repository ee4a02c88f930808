// Interning and the block rules of the string table.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "format/tessel_string_table.h"
#include "support/test_log_capture.h"

namespace {

TEST(StringTable, InternsEqualStringsOnce)
{
    int32 LiveBefore = LiveBlocks();
    string_table *Table = NewStringTable();
    ASSERT_NE(Table, nullptr);
    std::string Name = "Bone";
    char *First = MapString(Table, Name.c_str());
    char *Second = MapString(Table, "Bone");
    EXPECT_EQ(First, Second);
    EXPECT_NE(First, Name.c_str()); // the table owns a copy
    EXPECT_STREQ(First, "Bone");
    EXPECT_NE(MapString(Table, "bone"), First); // case matters
    char *Empty = MapString(Table, "");
    ASSERT_NE(Empty, nullptr);
    EXPECT_EQ(*Empty, 0);
    EXPECT_EQ(MapString(Table, ""), Empty);
    EXPECT_EQ(MapString(Table, nullptr), nullptr);
    // Many strings keep their identity across blocks.
    for (int Index = 0; Index < 2000; ++Index) {
        std::string Text = "s" + std::to_string(Index);
        EXPECT_STREQ(MapString(Table, Text.c_str()), Text.c_str());
    }
    EXPECT_EQ(MapString(Table, "Bone"), First);
    FreeStringTable(Table);
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(StringTable, BlockRules)
{
    string_table *Table = NewStringTable();
    ASSERT_NE(Table, nullptr);
    std::string Fits(3999, 'a');
    char *Copy = AddString(Table, (int32)Fits.size(), Fits.c_str());
    ASSERT_NE(Copy, nullptr);
    string_table_block *Full = Table->LastBlock;
    EXPECT_EQ(Full->Used - Full->Base, 4000);
    EXPECT_EQ(Full->Next, nullptr);

    // Too large for a block: a block of its own behind the last one.
    std::string Large(4000, 'b');
    char *LargeCopy = AddString(Table, (int32)Large.size(), Large.c_str());
    EXPECT_EQ(Table->LastBlock, Full);
    ASSERT_NE(Full->Next, nullptr);
    EXPECT_EQ(Full->Next->Base, LargeCopy);
    EXPECT_EQ(std::string(LargeCopy), Large);

    // The full block makes way for a fresh one; the next small string
    // continues in it.
    char *A = AddString(Table, 3, "abc");
    string_table_block *Fresh = Table->LastBlock;
    EXPECT_NE(Fresh, Full);
    EXPECT_EQ(Fresh->Next, Full);
    AddString(Table, 5000, nullptr);
    char *B = AddString(Table, 2, "de");
    EXPECT_EQ(Table->LastBlock, Fresh);
    EXPECT_EQ(B, A + 4);

    // A null string reserves the room and sets only the terminator.
    char *Reserved = AddString(Table, 6, nullptr);
    EXPECT_EQ(Reserved, B + 3);
    EXPECT_EQ(Reserved[6], 0);
    FreeStringTable(Table);
}

} // namespace
