// Helpers shared by the field container and its two parsers.
#pragma once

#include <cstring>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_memory_hint.h"

inline uint16 LoadFbxU16(uint8 const *Data, bool BigEndian)
{
    uint16 Value;
    memcpy(&Value, Data, 2);
    return BigEndian ? __builtin_bswap16(Value) : Value;
}

inline uint32 LoadFbxU32(uint8 const *Data, bool BigEndian)
{
    uint32 Value;
    memcpy(&Value, Data, 4);
    return BigEndian ? __builtin_bswap32(Value) : Value;
}

inline uint64 LoadFbxU64(uint8 const *Data, bool BigEndian)
{
    uint64 Value;
    memcpy(&Value, Data, 8);
    return BigEndian ? __builtin_bswap64(Value) : Value;
}

// Size in bytes of the fixed-size scalar types, 0 for the others.
inline int32 GetFbxScalarSize(int32 Type)
{
    switch (Type) {
    case FbxValue_Int16: return 2;
    case FbxValue_Bool: return 1;
    case FbxValue_Int32:
    case FbxValue_Real32: return 4;
    case FbxValue_Real64:
    case FbxValue_Int64: return 8;
    default: return 0;
    }
}

// Numbers in ASCII text (also used for binary strings). The text need not be
// zero-terminated. An integer reading accepts a fractional number and
// truncates it when it fits.
bool ParseFbxTextInt64(char const *Text, int32 Length, int64 *Result);
bool ParseFbxTextReal64(char const *Text, int32 Length, real64 *Result);
// T, Y and F, N as booleans.
bool ParseFbxTextBool(char const *Text, int32 Length, bool *Result);
