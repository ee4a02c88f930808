// Stack allocator and pointer hash.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "foundation/tessel_memory.h"
#include "foundation/tessel_pointer_hash.h"
#include "foundation/tessel_stack_allocator.h"
#include "support/test_log_capture.h"

TEST(StackAllocator, StableUnitsAcrossBlocksAndPops)
{
    int32 Before = GetLiveBlockCount();
    stack_allocator Stack;
    ASSERT_TRUE(StackInitialize(Stack, sizeof(int32), 4));
    int32 *First = (int32 *)NewStackUnit(Stack, nullptr);
    *First = 100;
    for (int32 Value = 1; Value < 10; ++Value) {
        int32 Index;
        *(int32 *)NewStackUnit(Stack, &Index) = 100 + Value;
        EXPECT_EQ(Index, Value);
    }
    EXPECT_EQ(*First, 100); // never moved
    EXPECT_EQ(*StackUnit<int32>(Stack, 5), 105);
    int32 Fill = 7, FirstIndex = -2;
    ASSERT_TRUE(NewStackUnits(Stack, 3, &FirstIndex, &Fill));
    EXPECT_EQ(FirstIndex, 10);
    EXPECT_FALSE(NewStackUnits(Stack, 0, &FirstIndex, nullptr));

    int32 Serialized[13];
    SerializeStack(Stack, Serialized);
    EXPECT_EQ(Serialized[0], 100);
    EXPECT_EQ(Serialized[9], 109);
    EXPECT_EQ(Serialized[12], 7);

    PopStackUnits(Stack, 5);
    EXPECT_EQ(GetStackUnitCount(Stack), 8);
    EXPECT_EQ(*StackUnit<int32>(Stack, 7), 107);
    PopStackUnits(Stack, 8); // everything: all blocks go, allocator stays usable
    stack_block *Last = Stack.LastBlock;
    EXPECT_EQ(Last, nullptr);
    ASSERT_NE(NewStackUnit(Stack, nullptr), nullptr);
    StackCleanUp(Stack);
    EXPECT_EQ(GetLiveBlockCount(), Before);
}

TEST(StackAllocator, BoundedFormAndBadArguments)
{
    log_capture Log;
    stack_allocator Stack;
    EXPECT_FALSE(StackInitialize(Stack, 0, 4));
    EXPECT_TRUE(Log.Contains("UnitSize is not allowed be <= 0"));
    EXPECT_FALSE(StackInitializeWithDirectory(Stack, 4, 4, -1));
    EXPECT_TRUE(Log.Contains("MaxUnits is not allowed be < 0"));

    ASSERT_TRUE(StackInitializeWithDirectory(Stack, sizeof(int32), 4, 6));
    for (int32 Index = 0; Index < 6; ++Index) *(int32 *)NewStackUnit(Stack, nullptr) = Index * 3;
    int32 Index = 0;
    EXPECT_EQ(NewStackUnit(Stack, &Index), nullptr);
    EXPECT_EQ(Index, -1);
    EXPECT_EQ(*StackUnit<int32>(Stack, 5), 15); // found through the directory
    StackCleanUp(Stack);
}

TEST(PointerHash, MatchesAMapUnderRandomInsertion)
{
    int32 Before = GetLiveBlockCount();
    pointer_hash *Hash = NewPointerHash();
    std::map<intptr_t, intptr_t> Expected;
    std::mt19937 Random(7);
    for (int32 Step = 0; Step < 5000; ++Step) {
        intptr_t Key = (intptr_t)(Random() % 3000) * 8 - 8000;
        intptr_t Value = Step;
        bool Existed = Expected.count(Key) != 0;
        EXPECT_EQ(SetHashedPointerData(Hash, (void *)Key, (void *)Value), Existed);
        Expected[Key] = Value;
    }
    for (auto const &Pair : Expected) {
        void *Value = nullptr;
        ASSERT_TRUE(GetHashedPointerData(Hash, (void *)Pair.first, &Value));
        EXPECT_EQ((intptr_t)Value, Pair.second);
    }
    void *Missing = (void *)1;
    EXPECT_FALSE(GetHashedPointerData(Hash, (void *)(intptr_t)3, &Missing));
    EXPECT_EQ(Missing, nullptr);
    EXPECT_EQ((intptr_t)Hash->Minimum->Key, Expected.begin()->first);
    EXPECT_EQ((intptr_t)Hash->Maximum->Key, Expected.rbegin()->first);

    // In-order walk is sorted, and the tree stays balanced (height bound).
    struct walk
    {
        intptr_t Last = INTPTR_MIN;
        bool Sorted = true;
        int Count = 0;
    } Walk;
    AVLWalk(
        *Hash,
        [](avl_node *Node, void *User) {
            walk *W = (walk *)User;
            W->Sorted &= (intptr_t)Node->Key > W->Last;
            W->Last = (intptr_t)Node->Key;
            ++W->Count;
            return true;
        },
        &Walk);
    EXPECT_TRUE(Walk.Sorted);
    EXPECT_EQ(Walk.Count, (int)Expected.size());
    struct height
    {
        static int Of(avl_node *Node) { return Node ? 1 + std::max(Of(AVLLeft(Node)), Of(AVLRight(Node))) : 0; }
    };
    EXPECT_LE(height::Of(Hash->Root), 17); // 1.44 log2(3000) ~ 16.6
    DeletePointerHash(Hash);
    EXPECT_EQ(GetLiveBlockCount(), Before);
}
