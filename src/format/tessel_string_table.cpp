#include "format/tessel_string_table.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"

namespace {

int64 CompareStrings(void const *KeyA, void const *KeyB, void *)
{
    signed char const *A = (signed char const *)KeyA;
    signed char const *B = (signed char const *)KeyB;
    if (!A || !B) {
        return (A ? 1 : 0) - (B ? 1 : 0);
    }
    while (*A && *A == *B) {
        ++A;
        ++B;
    }
    return (int64)*A - (int64)*B;
}

string_table_block *NewBlock(int32 Size)
{
    string_table_block *Block = (string_table_block *)TesselAllocate((intaddrx)sizeof(string_table_block) + Size);
    if (Block) {
        Block->Base = (char *)(Block + 1);
        Block->Used = Block->Base;
        Block->Next = 0;
    }
    return Block;
}

} // namespace

string_table *NewStringTable()
{
    string_table *Table = (string_table *)TesselAllocate(sizeof(string_table));
    if (Table) {
        InitializeAVLTree(Table->Tree, CompareStrings, 0);
        Table->BlockSize = StringTableDefaultBlockSize;
        Table->LastBlock = 0;
    }
    return Table;
}

void FreeStringTable(string_table *Table)
{
    if (!Table) {
        return;
    }
    ClearAVLTree(Table->Tree);
    string_table_block *Block = Table->LastBlock;
    while (Block) {
        string_table_block *Next = Block->Next;
        TesselFree(Block);
        Block = Next;
    }
    TesselFree(Table);
}

char *AddString(string_table *Table, int32 Length, char const *String)
{
    CheckPointer(Table, LogCategory_StringTable, 0);
    CheckCondition(Length >= 0, LogCategory_StringTable, 0);
    if (Table->BlockSize == 0) {
        Table->BlockSize = StringTableDefaultBlockSize;
        Table->LastBlock = 0;
    }
    int32 Need = Length + 1;
    string_table_block *Block = 0;
    if (Need > Table->BlockSize) {
        // A block of its own, linked behind the last one, so that the partly
        // filled newest block stays the one to fill.
        Block = NewBlock(Need);
        if (!Block) {
            return 0;
        }
        if (Table->LastBlock) {
            Block->Next = Table->LastBlock->Next;
            Table->LastBlock->Next = Block;
        } else {
            Table->LastBlock = Block;
        }
    } else {
        int32 SpaceLeft = 0;
        if (Table->LastBlock) {
            int64 WideSpaceLeft = (int64)Table->BlockSize - (Table->LastBlock->Used - Table->LastBlock->Base);
            CheckConvertToInt32(SpaceLeft, WideSpaceLeft, LogCategory_StringTable, 0);
        }
        if (!Table->LastBlock || Need > SpaceLeft) {
            Block = NewBlock(Table->BlockSize);
            if (!Block) {
                return 0;
            }
            Block->Next = Table->LastBlock;
            Table->LastBlock = Block;
        }
        Block = Table->LastBlock;
    }
    char *Result = Block->Used;
    if (String) {
        std::memcpy(Result, String, (size_t)Length);
    }
    Result[Length] = 0;
    Block->Used += Need;
    return Result;
}

char *MapString(string_table *Table, char const *String)
{
    CheckPointer(Table, LogCategory_StringTable, 0);
    if (!String) {
        return 0;
    }
    avl_node *Node = AVLFind(Table->Tree, String);
    if (Node) {
        return (char *)Node->Key;
    }
    char *Copy = AddString(Table, StringLength(String), String);
    if (Copy && !AVLInsert(Table->Tree, Copy, 0)) {
        TesselError(LogCategory_StringTable, "Out of space in string table");
    }
    return Copy;
}
