// Binary FBX: the 27-byte header, then nested field records in the file's
// byte order. Records of version 7500 and above have 64-bit end offsets,
// value counts and value list sizes (a 25-byte header); older ones 32-bit
// (13 bytes). A record of all zeros ends a level.
#include <algorithm>
#include <cstring>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_field_internal.h"

struct fbx_binary_parser
{
    KFbx &Fbx;
    uint8 *Bytes;
    int64 Size;
    bool BigEndian;
    bool Wide;
    int32 HeaderSize;

    uint64 LoadWord(int64 Position) const
    {
        return Wide ? LoadFbxU64(Bytes + Position, BigEndian) : LoadFbxU32(Bytes + Position, BigEndian);
    }

    bool IsZero(int64 Position, int64 Count) const
    {
        for (int64 Index = 0; Index < Count; ++Index) {
            if (Bytes[Position + Index]) return false;
        }
        return true;
    }

    // An object name is stored as Name \0 \1 Class and reads as Class::Name;
    // both have the same length, so the bytes are rearranged in place.
    static void RewriteObjectName(uint8 *Text, uint32 Length)
    {
        uint8 *Split = (uint8 *)memchr(Text, 0, Length);
        if (!Split || (uint32)(Split - Text) + 1 >= Length || Split[1] != 1) return;
        uint32 NameLength = (uint32)(Split - Text);
        uint32 ClassLength = Length - NameLength - 2;
        // Name \0 \1 Class  ->  \0 \1 Class Name  ->  Class \0 \1 Name  ->  Class::Name
        std::rotate(Text, Text + NameLength, Text + Length);
        std::rotate(Text, Text + 2, Text + 2 + ClassLength);
        Text[ClassLength] = ':';
        Text[ClassLength + 1] = ':';
    }

    bool ParseValues(int32 Field, int64 Position, int64 End, uint64 Count)
    {
        for (uint64 Index = 0; Index < Count; ++Index) {
            if (Position >= End) {
                Fbx.Fail("Field %s at offset %u: %I64d values do not fit in its value list",
                         Fbx.Names + Fbx.Fields[Field].NameOffset, Fbx.Fields[Field].FileOffset, (int64)Count);
                return false;
            }
            int32 Type = Bytes[Position++];
            int32 ScalarSize = GetFbxScalarSize(Type);
            if (ScalarSize) {
                if (Position + ScalarSize > End) {
                    Fbx.Fail("Field %s at offset %u: a value runs past its value list",
                             Fbx.Names + Fbx.Fields[Field].NameOffset, Fbx.Fields[Field].FileOffset);
                    return false;
                }
                if (!Fbx.AddValue(Type, (uint32)Position, 0)) return false;
                Position += ScalarSize;
            } else if (IsFbxArrayType(Type)) {
                if (Position + 12 > End) {
                    Fbx.Fail("Field %s at offset %u: an array header runs past its value list",
                             Fbx.Names + Fbx.Fields[Field].NameOffset, Fbx.Fields[Field].FileOffset);
                    return false;
                }
                uint32 StoredSize = LoadFbxU32(Bytes + Position + 8, BigEndian);
                if ((int64)StoredSize > End - Position - 12) {
                    Fbx.Fail("Field %s at offset %u: array data of %u bytes runs past its value list",
                             Fbx.Names + Fbx.Fields[Field].NameOffset, Fbx.Fields[Field].FileOffset, StoredSize);
                    return false;
                }
                int32 Slot = Fbx.AddSlot();
                if (Slot < 0 || !Fbx.AddValue(Type, (uint32)Position, (uint32)Slot)) return false;
                Position += 12 + (int64)StoredSize;
            } else {
                // S, R, and any unknown letter (read as a string): a length
                // and the bytes, the length capped by what is left.
                if (Position + 4 > End) {
                    Fbx.Fail("Field %s at offset %u: a string length runs past its value list",
                             Fbx.Names + Fbx.Fields[Field].NameOffset, Fbx.Fields[Field].FileOffset);
                    return false;
                }
                int64 Length = LoadFbxU32(Bytes + Position, BigEndian);
                Position += 4;
                bool Capped = Length > End - Position;
                if (Capped) Length = End - Position;
                if (Type != FbxValue_Raw) {
                    Type = FbxValue_String;
                    RewriteObjectName(Bytes + Position, (uint32)Length);
                }
                if (!Fbx.AddValue(Type, (uint32)Position, (uint32)Length)) return false;
                Position += Length;
                if (Capped) break;
            }
        }
        return true;
    }

    // Parses the records of one level in [Position, End). Top-level lists must
    // end with the all-zero record; a child list may also end exactly at its
    // parent's end offset.
    bool ParseList(int64 Position, int64 End, int32 Parent, int32 Depth)
    {
        if (Depth > FbxMaximumFieldDepth) {
            Fbx.Fail("FBX fields are nested deeper than %d levels (offset %I64d)", (int32)FbxMaximumFieldDepth,
                     Position);
            return false;
        }
        int32 Previous = -1;
        for (;;) {
            if (Position == End && Parent >= 0) return true;
            if (End - Position < HeaderSize) {
                if (Parent >= 0 && IsZero(Position, End - Position)) return true;
                Fbx.Fail("The file ends inside the field list at offset %I64d", Position);
                return false;
            }
            uint64 EndOffset = LoadWord(Position);
            uint64 ValueCount = LoadWord(Position + (Wide ? 8 : 4));
            uint64 ListSize = LoadWord(Position + (Wide ? 16 : 8));
            int32 NameLength = Bytes[Position + (Wide ? 24 : 12)];
            if (EndOffset == 0) {
                if (ValueCount != 0 || ListSize != 0 || NameLength != 0) {
                    Fbx.Fail("Broken end record at offset %I64d", Position);
                    return false;
                }
                return true;
            }
            int64 ValuesStart = Position + HeaderSize + NameLength;
            if (EndOffset > (uint64)End || (int64)EndOffset < ValuesStart || ListSize > EndOffset ||
                (uint64)ValuesStart + ListSize > EndOffset) {
                Fbx.Fail("Field record at offset %I64d has a wrong end offset %I64d", Position, (int64)EndOffset);
                return false;
            }
            if (ValueCount > ListSize) {
                Fbx.Fail("Field record at offset %I64d claims %I64d values in %I64d bytes", Position, (int64)ValueCount,
                         (int64)ListSize);
                return false;
            }
            int32 Field = Fbx.AddField(Parent, Previous, (uint32)Position, (char const *)Bytes + Position + HeaderSize,
                                       NameLength);
            if (Field < 0) return false;
            Previous = Field;
            int64 ValuesEnd = ValuesStart + (int64)ListSize;
            if (!ParseValues(Field, ValuesStart, ValuesEnd, ValueCount)) return false;
            if (ValuesEnd < (int64)EndOffset) {
                if (!ParseList(ValuesEnd, (int64)EndOffset, Field, Depth + 1)) return false;
            }
            Position = (int64)EndOffset;
        }
    }
};

bool KFbx::ParseBinary()
{
    fbx_binary_parser Parser = {*this, Bytes, ByteCount, BigEndian != 0, WideRecords != 0, WideRecords ? 25 : 13};
    return Parser.ParseList(27, ByteCount, -1, 0);
}
