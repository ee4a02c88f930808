// Reading TS2 files.
//
// Two levels:
// - The section reader (`file`): header, section table, sections read one by
//   one, decompressed and byte-reversed by streams. It works on locations and
//   never patches pointers; the platform conversion is built on it.
// - The loaded file (`loaded_file`): the whole file checked (sizes, offsets,
//   CRC), every section expanded, fixup and marshalling arrays loaded and
//   validated, mixed objects of a byte-reversed file put right by their type
//   tables, and, for files with 64-bit pointers, pointers applied so that the
//   root object can be used in memory. A walker that would rather follow
//   locations (any pointer size) uses ResolveFilePointer.
//
// Nothing here trusts the file: every offset, count and size is checked
// before use and a bad file gives a logged message and null/false.
#pragma once

#include "foundation/tessel_types.h"
#include "format/tessel_file_format.h"

struct file_reader;
struct data_type_definition;

#pragma pack(push, 4)

struct file
{
    bool8 IsByteReversed;
    bool8 IsPointerSizeDifferent;
    // Header and section table in one block of at least 72 bytes, in this
    // platform's byte order; the table is at Header->SectionArrayOffset.
    file_header *Header;
    uint32 HeaderBlockSize;
    // The magic block as read, its magic normalised to the platform's row.
    file_magic_block *SourceMagicValue;
    int32 SectionCount;
    void **Sections;
    bool8 *Marshalled;
    bool8 *IsUserMemory;
    void *ConversionBuffer;
};

#pragma pack(pop)

// Reads and checks the 32-byte magic block and the header block at Position.
// Returns the header block (free with TesselFree) or null.
file_header *ReadFileHeader(file_reader *Reader, int32 Position, bool *IsByteReversed, bool *IsPointerSizeDifferent,
                            file_magic_block *MagicBlock, uint32 *HeaderBlockSize);

// Header, section table and the record; no section is read yet.
file *ReadFileFromReader(file_reader *Reader);

// The section table; null when the header has none that fits its block.
file_section_header *GetFileSectionHeaders(file const &File);

// The most memory that the sections of one file may take when read into
// blocks of the reader's own (1 GiB unless set; 0 restores that). A file whose
// sections claim more is refused before anything is allocated. Process-wide.
void SetFileReaderMemoryLimit(int64 Bytes);
int64 GetFileReaderMemoryLimit();

bool ReadFileSection(file_reader *Reader, file &File, int32 SectionIndex);
// The same into Destination, which the caller owns (ExpandedDataSize rounded
// up to 4 bytes).
bool ReadFileSectionInPlace(file_reader *Reader, file &File, int32 SectionIndex, void *Destination);
void FreeFileSection(file &File, int32 SectionIndex);
void FreeAllFileSections(file &File);
void FreeFile(file *File);

// Arrays in this platform's byte order (free with TesselFree); a count of 0
// gives null and true.
bool LoadFixupArray(file_reader *Reader, file_section_header const &Section, bool IsByteReversed,
                    file_pointer_fixup **Array);
bool LoadMarshallingArray(file_reader *Reader, file_section_header const &Section, bool IsByteReversed,
                          file_mixed_marshalling_fixup **Array);

// ---------------------------------------------------------------------------
// Loaded files.

#pragma pack(push, 4)

struct loaded_file_section
{
    file_section_header Header;
    uint8 *Data; // ExpandedDataSize bytes, or null when empty
    // Sorted by FromOffset, all checked to lie inside the sections.
    file_pointer_fixup *Fixups;
    uint32 FixupCount;
    file_mixed_marshalling_fixup *Marshallings;
    uint32 MarshallingCount;
};

struct loaded_file
{
    file *File;
    int32 PointerBits;
    bool8 IsByteReversed;
    bool8 PointersApplied;
    uint32 FileSize; // bytes available to the reader
    file_magic_block Magic;
    file_header Header;
    int32 SectionCount;
    loaded_file_section *Sections;
};

#pragma pack(pop)

// Pointers are applied only to files with 64-bit pointers.
// LoadFileFromReader re-lays a file with 32-bit pointers for this platform
// first (PointerBits then says 64; Magic and IsByteReversed still describe
// the file as stored); LoadStoredFileFromReader keeps it as stored.
loaded_file *LoadFileFromReader(file_reader *Reader);
loaded_file *LoadStoredFileFromReader(file_reader *Reader);
loaded_file *LoadFileFromDisk(char const *FileName);
loaded_file *LoadFileFromMemory(int32 Size, void const *Memory);
void FreeLoadedFile(loaded_file *File);
// Stored over expanded bytes of the sections of the file at FileName: what
// section compression leaves (1 when it can't be read or holds no data).
double GetSectionCompressionRatio(char const *FileName);

// The root object and its type table as program memory; null unless the
// pointers were applied. What is reachable through the file's own type
// tables has been checked to lie inside the file; a program that reads the
// root as one of its own records should use the typed form below.
void *GetLoadedFileRootObject(loaded_file const &File, void **RootType);
// The root only when the file's root type has the same members (kinds,
// names, widths, referred types, recursively) as Expected, so that the
// program's record can be laid over it.
void *GetLoadedFileRootObjectOfType(loaded_file const &File, data_type_definition const *Expected);

// Walks every object, array, string and type table reachable from the root
// through the file's type tables and checks that each lies inside its
// section (LoadFileFromReader does this before applying pointers).
bool CheckLoadedFileTree(loaded_file const &File);
// True when the file's type table at Type has the members of Expected.
bool FileTypeMatches(loaded_file const &File, file_section_reference Type, data_type_definition const *Expected);

// Where the pointer slot at Slot leads; false for a null slot (no fixup).
bool ResolveFilePointer(loaded_file const &File, file_section_reference Slot, file_section_reference *Target);
// Bytes at Location when Size of them lie inside its section, else null.
uint8 const *GetLoadedFileBytes(loaded_file const &File, file_section_reference Location, uint32 Size);
// The zero-terminated string at Location, or null when it runs out of its
// section.
char const *GetLoadedFileString(loaded_file const &File, file_section_reference Location);

// ---------------------------------------------------------------------------
// Type tables as stored in a file, in either pointer size.

enum
{
    // Member records of a type table, in a 64-bit and a 32-bit file.
    FileTypeMemberSize64 = 44,
    FileTypeMemberSize32 = 32,
    // Member kinds of type tables (the values are the file format).
    FileMemberKindCount = 23,
    // Deepest nesting of inline members that a reader follows.
    MaxFileTypeDepth = 64,
};

struct file_type_member
{
    int32 Kind;
    char const *Name; // null when the slot is null or the string is bad
    bool8 HasReferenceType;
    file_section_reference ReferenceType;
    int32 ArrayWidth;  // 1 for a stored width of 0
    uint32 SlotOffset; // offset of this member in the object
    uint32 Size;       // bytes of the member in the object
};

// Element size of a kind for the pointer size; -1 for an unknown kind,
// 0 for InlineMember (sized by its type).
int32 GetFileMemberKindSize(int32 Kind, int32 PointerBits);
// Byte-reversal unit of a kind (0, 1, 2 or 4); InlineMember gives 0.
int32 GetFileMemberKindMarshalling(int32 Kind);
char const *GetFileMemberKindName(int32 Kind);

// Reads member MemberIndex of the type at Type; false at the end record or on
// a bad table (logged). Object offsets and sizes need the inline types,
// hence the walk of the members before it.
bool GetFileTypeMember(loaded_file const &File, file_section_reference Type, int32 MemberIndex,
                       file_type_member *Member);
// Member MemberIndex as stored, without SlotOffset and Size; false at the
// end record or on a bad record.
bool ReadFileTypeMemberRecord(loaded_file const &File, file_section_reference Type, int32 MemberIndex,
                              file_type_member *Member);
// Bytes of a member read by ReadFileTypeMemberRecord (inline types walked).
bool GetFileTypeMemberSize(loaded_file const &File, file_type_member const &Member, uint32 *Size);
// Object size of the type; false for tables that are bad or nest into
// themselves.
bool GetFileTypeObjectSize(loaded_file const &File, file_section_reference Type, uint32 *Size);
