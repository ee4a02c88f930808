// Magic values, standard sections and byte reversal of the TS2 format.
#include "format/tessel_file_format.h"

#include <cstring>

#include "foundation/tessel_log.h"

file_magic_block const FileMagic32BitLittleEndian = {
    {0x29, 0xDE, 0x6C, 0xC0, 0xBA, 0xA4, 0x53, 0x2B, 0x25, 0xF5, 0xB7, 0xA5, 0xF6, 0x66, 0xE2, 0xEE}, 0, 0, {0, 0}};
file_magic_block const FileMagic32BitBigEndian = {
    {0x0E, 0x11, 0x95, 0xB5, 0x6A, 0xA5, 0xB5, 0x4B, 0xEB, 0x28, 0x28, 0x50, 0x25, 0x78, 0xB3, 0x04}, 0, 0, {0, 0}};
file_magic_block const FileMagic64BitLittleEndian = {
    {0xE5, 0x9B, 0x49, 0x5E, 0x6F, 0x63, 0x1F, 0x14, 0x1E, 0x13, 0xEB, 0xA9, 0x90, 0xBE, 0xED, 0xC4}, 0, 0, {0, 0}};
file_magic_block const FileMagic64BitBigEndian = {
    {0x31, 0x95, 0xD4, 0xE3, 0x20, 0xDC, 0x4F, 0x62, 0xCC, 0x36, 0xD0, 0x3A, 0xB1, 0x82, 0xFF, 0x89}, 0, 0, {0, 0}};
file_magic_block const FileMagicOld32Bit = {
    {0xB8, 0x67, 0xB0, 0xCA, 0xF8, 0x6D, 0xB1, 0x0F, 0x84, 0x72, 0x8C, 0x7E, 0x5E, 0x19, 0x00, 0x1E}, 0, 0, {0, 0}};

static char const *const StandardSectionNames[StandardSectionCount] = {
    "0 - StandardMainSection",
    "1 - StandardRigidVertexSection",
    "2 - StandardRigidIndexSection",
    "3 - StandardDeformableVertexSection",
    "4 - StandardDeformableIndexSection",
    "5 - StandardTextureSection",
    "6 - StandardDiscardableSection",
    "7 - StandardUnloadedSection",
};

char const *GetStandardSectionName(int32 SectionIndex)
{
    CheckIndex(SectionIndex, StandardSectionCount, LogCategory_FileWriting, "(non-standard section)");
    return StandardSectionNames[SectionIndex];
}

void Reverse32(int32 Count, void *Data)
{
    uint8 *Bytes = (uint8 *)Data;
    for (int32 Index = 0; Index < Count; ++Index, Bytes += 4) {
        uint8 A = Bytes[0], B = Bytes[1];
        Bytes[0] = Bytes[3];
        Bytes[1] = Bytes[2];
        Bytes[2] = B;
        Bytes[3] = A;
    }
}

void Reverse16(int32 Count, void *Data)
{
    uint8 *Bytes = (uint8 *)Data;
    for (int32 Index = 0; Index < Count; ++Index, Bytes += 2) {
        uint8 A = Bytes[0];
        Bytes[0] = Bytes[1];
        Bytes[1] = A;
    }
}

file_magic_block const &GetNativeFileMagicBlock()
{
    return FileMagic64BitLittleEndian;
}

file_magic_block const *GetPlatformFileMagicBlock(int32 PointerBits, bool LittleEndian)
{
    if (PointerBits == 32) return LittleEndian ? &FileMagic32BitLittleEndian : &FileMagic32BitBigEndian;
    if (PointerBits == 64) return LittleEndian ? &FileMagic64BitLittleEndian : &FileMagic64BitBigEndian;
    return 0;
}

bool IsNativeFileMagicValue(file_magic_block const &Block)
{
    return memcmp(Block.MagicValue, FileMagic64BitLittleEndian.MagicValue, FileMagicValueSize) == 0;
}

// 0: no match, 1: as it stands, 2: with each 32-bit word reversed.
static int32 MatchMagic(uint8 const *Value, file_magic_block const &Known)
{
    if (memcmp(Value, Known.MagicValue, FileMagicValueSize) == 0) return 1;
    uint8 Reversed[FileMagicValueSize];
    memcpy(Reversed, Known.MagicValue, FileMagicValueSize);
    Reverse32(FileMagicValueSize / 4, Reversed);
    if (memcmp(Value, Reversed, FileMagicValueSize) == 0) return 2;
    return 0;
}

bool GetMagicInfo(file_magic_block const &Block, int32 *PointerBits, bool *IsLittleEndian)
{
    CheckPointer(PointerBits, LogCategory_FileReading, false);
    CheckPointer(IsLittleEndian, LogCategory_FileReading, false);

    int32 Match = MatchMagic(Block.MagicValue, FileMagicOld32Bit);
    if (Match) {
        *PointerBits = 32;
        *IsLittleEndian = (Match == 1);
        return true;
    }

    struct platform_row
    {
        file_magic_block const *Magic;
        int32 PointerBits;
        bool LittleEndian;
    };
    platform_row const Rows[] = {
        {&FileMagic32BitLittleEndian, 32, true},
        {&FileMagic32BitBigEndian, 32, false},
        {&FileMagic64BitLittleEndian, 64, true},
        {&FileMagic64BitBigEndian, 64, false},
    };
    for (platform_row const &Row : Rows) {
        if (MatchMagic(Block.MagicValue, *Row.Magic)) {
            *PointerBits = Row.PointerBits;
            *IsLittleEndian = Row.LittleEndian;
            return true;
        }
    }

    uint32 Words[4];
    memcpy(Words, Block.MagicValue, sizeof(Words));
    TesselWarning(LogCategory_FileReading, "Magic value (0x%x, 0x%x, 0x%x, 0x%x) doesn't match any known file format",
                  Words[0], Words[1], Words[2], Words[3]);
    return false;
}

bool IsTesselFileHeader(file_magic_block const &Block, uint32 *TotalHeaderSize, bool *IsByteReversed,
                        bool *IsPointerSizeDifferent)
{
    CheckPointer(TotalHeaderSize, LogCategory_FileReading, false);
    CheckPointer(IsByteReversed, LogCategory_FileReading, false);
    CheckPointer(IsPointerSizeDifferent, LogCategory_FileReading, false);

    int32 PointerBits = 0;
    bool LittleEndian = true;
    if (!GetMagicInfo(Block, &PointerBits, &LittleEndian)) return false;

    *IsByteReversed = !LittleEndian;
    *IsPointerSizeDifferent = (PointerBits != 64);
    *TotalHeaderSize = Block.TotalHeaderSize;
    if (*IsByteReversed) Reverse32(1, TotalHeaderSize);
    return true;
}
