// Little-endian 32-bit words of the settings blocks, independent of the
// machine's byte order.
#pragma once

#include <cstring>

#include "foundation/tessel_types.h"

struct word_writer
{
    uint8 *At;
};

inline void PutWord(word_writer &Writer, uint32 Value)
{
    Writer.At[0] = (uint8)(Value & 0xFF);
    Writer.At[1] = (uint8)((Value >> 8) & 0xFF);
    Writer.At[2] = (uint8)((Value >> 16) & 0xFF);
    Writer.At[3] = (uint8)((Value >> 24) & 0xFF);
    Writer.At += 4;
}

inline void PutFloat(word_writer &Writer, real32 Value)
{
    uint32 Bits;
    memcpy(&Bits, &Value, 4);
    PutWord(Writer, Bits);
}

// Reads stop at End: a read that would pass it fails and moves nothing.
struct word_reader
{
    uint8 const *At;
    uint8 const *End;
};

inline bool GetWord(word_reader &Reader, uint32 *Value)
{
    if (Reader.End - Reader.At < 4) return false;
    *Value = (uint32)Reader.At[0] | ((uint32)Reader.At[1] << 8) | ((uint32)Reader.At[2] << 16) |
             ((uint32)Reader.At[3] << 24);
    Reader.At += 4;
    return true;
}

inline bool GetFloat(word_reader &Reader, real32 *Value)
{
    uint32 Bits;
    if (!GetWord(Reader, &Bits)) return false;
    memcpy(Value, &Bits, 4);
    return true;
}

inline bool SkipBytes(word_reader &Reader, uint32 Count)
{
    if ((uint64)(Reader.End - Reader.At) < (uint64)Count) return false;
    Reader.At += Count;
    return true;
}
