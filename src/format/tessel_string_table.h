// string_table: interns strings so that equal strings share one address. The
// table owns its copies, kept in blocks of characters that are released
// together.
#pragma once

#include "foundation/tessel_pointer_hash.h"
#include "foundation/tessel_types.h"

enum
{
    StringTableDefaultBlockSize = 4000
};

#pragma pack(push, 4)
struct string_table_block
{
    char *Base;
    char *Used;
    string_table_block *Next; // the block made before this one
};

struct string_table
{
    avl_tree Tree; // keyed by the copies, compared byte by byte as signed chars
    int32 BlockSize;
    string_table_block *LastBlock; // the block being filled
};
#pragma pack(pop)

string_table *NewStringTable();
void FreeStringTable(string_table *Table);

// The table's copy of String: the same pointer for equal strings. A null
// string maps to null.
char *MapString(string_table *Table, char const *String);

// Adds a copy of Length characters of String and a terminator, with no
// lookup. A null String reserves Length + 1 bytes, of which only the last is
// set (to 0). Null when no block could be made.
char *AddString(string_table *Table, int32 Length, char const *String);
