// The TS2 on-disk format: magic block, file header, section table, pointer
// fixups and marshalling records, and the standard sections.
//
// Layout of a file as the builder writes it:
//   0    magic block (32 bytes)
//   32   file header (72 bytes)
//   104  section table (44 bytes a section)
//   then, each padded to 4: section data, fixup arrays, marshalling arrays.
// All multi-byte fields are in the byte order of the file's platform; all
// offsets are unsigned 32-bit file positions unless another base is named.
#pragma once

#include "foundation/tessel_types.h"

enum
{
    // Revision of the layout below.
    TesselFileFormatVersion = 7,
    // Opaque tag of the object schema revision, stored in TypeTag.
    TesselStandardFileTypeTag = (int32)0x80000031,
    FileMagicValueSize = 16,
    FileMagicBlockSize = 32,
    FileHeaderSize = 72,
    FileSectionHeaderSize = 44,
    FilePointerFixupSize = 12,
    FileMixedMarshallingFixupSize = 16,
    // Offset of the section table from the start of the header.
    FileSectionArrayOffset = FileHeaderSize,
    // Bytes of a copy block in every stream copy.
    FileCopyBlockSize = 65536,
};

// Bytes of the magic block, header and section table for SectionCount
// sections, as stored in TotalHeaderSize.
inline uint32 GetTotalHeaderSize(int32 SectionCount)
{
    return (uint32)(FileMagicBlockSize + FileHeaderSize + FileSectionHeaderSize * SectionCount);
}

enum standard_section_index
{
    StandardMainSection = 0,
    StandardRigidVertexSection = 1,
    StandardRigidIndexSection = 2,
    StandardDeformableVertexSection = 3,
    StandardDeformableIndexSection = 4,
    StandardTextureSection = 5,
    StandardDiscardableSection = 6,
    StandardUnloadedSection = 7,

    StandardSectionCount = 8
};

// "0 - StandardMainSection" ... "7 - StandardUnloadedSection"; any other
// index logs and gives "(non-standard section)".
char const *GetStandardSectionName(int32 SectionIndex);

enum file_compression_type
{
    NoCompression = 0,
    Trove0Compression = 1, // decoded only
    Trove1Compression = 2,

    OnePastLastCompressionType
};

// Streams of a section, by byte-reversal class of the objects they hold.
enum file_stream_index
{
    Stream32Bit = 0, // marshalling 0 or 4
    Stream16Bit = 1, // marshalling 2
    Stream8Bit = 2,  // everything else, mixed objects included

    StreamCount = 3
};

#pragma pack(push, 4)

struct file_magic_block
{
    uint8 MagicValue[FileMagicValueSize];
    uint32 TotalHeaderSize;
    uint32 HeaderFormat;
    uint32 Reserved[2];
};

// A location in a written file: section and offset in its expanded data.
struct file_section_reference
{
    uint32 SectionIndex;
    uint32 Offset;
};

struct file_header
{
    uint32 Version;
    uint32 TotalSize;
    uint32 CRC;
    uint32 SectionArrayOffset;
    uint32 SectionCount;
    file_section_reference RootObjectTypeDefinition;
    file_section_reference RootObject;
    uint32 TypeTag;
    uint32 ExtraTags[4];
    uint32 StringDatabaseCRC;
    uint32 Reserved[3];
};

struct file_section_header
{
    uint32 Format;
    uint32 DataOffset;
    uint32 DataSize;
    uint32 ExpandedDataSize;
    uint32 InternalAlignment;
    uint32 First16Bit;
    uint32 First8Bit;
    uint32 PointerFixupArrayOffset;
    uint32 PointerFixupArrayCount;
    uint32 MixedMarshallingFixupArrayOffset;
    uint32 MixedMarshallingFixupArrayCount;
};

struct file_pointer_fixup
{
    uint32 FromOffset;
    file_section_reference To;
};

struct file_mixed_marshalling_fixup
{
    uint32 Count;
    uint32 Offset;
    file_section_reference Type;
};

#pragma pack(pop)

static_assert(sizeof(file_magic_block) == FileMagicBlockSize, "magic block layout");
static_assert(sizeof(file_header) == FileHeaderSize, "file header layout");
static_assert(sizeof(file_section_header) == FileSectionHeaderSize, "section header layout");
static_assert(sizeof(file_pointer_fixup) == FilePointerFixupSize, "fixup layout");
static_assert(sizeof(file_mixed_marshalling_fixup) == FileMixedMarshallingFixupSize, "marshalling layout");

// Magic blocks (magic value followed by 16 zero bytes) of the four platforms.
// The builder's block selects the target platform of its output.
extern file_magic_block const FileMagic32BitLittleEndian;
extern file_magic_block const FileMagic32BitBigEndian;
extern file_magic_block const FileMagic64BitLittleEndian;
extern file_magic_block const FileMagic64BitBigEndian;
// Older files; recognised only when reading (32-bit pointers, byte order
// told by how it matches).
extern file_magic_block const FileMagicOld32Bit;

// This platform's own: 64-bit little-endian.
file_magic_block const &GetNativeFileMagicBlock();
// PointerBits 32 or 64; null for anything else.
file_magic_block const *GetPlatformFileMagicBlock(int32 PointerBits, bool LittleEndian);
// True when the 16 magic bytes are this platform's own.
bool IsNativeFileMagicValue(file_magic_block const &Block);

// Recognises a magic value as it stands or with each 32-bit word reversed.
// Unknown values log a warning and give false.
bool GetMagicInfo(file_magic_block const &Block, int32 *PointerBits, bool *IsLittleEndian);
// From a magic block as read from the start of a file: the header size (in
// this platform's byte order) and how the file differs from this platform.
bool IsTesselFileHeader(file_magic_block const &Block, uint32 *TotalHeaderSize, bool *IsByteReversed,
                        bool *IsPointerSizeDifferent);

// Reverses Count 32-bit (or 16-bit) units in place.
void Reverse32(int32 Count, void *Data);
void Reverse16(int32 Count, void *Data);
