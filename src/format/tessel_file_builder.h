// file_builder: collects the objects of a TS2 file in three byte streams per
// section (spilled to temporary files as they come), remembers the pointer
// fixups and marshalling records, and at the end compresses the sections,
// lays the file out and stamps the header and CRC.
//
// Calling order: BeginFile; SetFileSectionFormat per section; any number of
// WriteSectionData / AddFixup / AddMarshalling; SetFileRoots; then EndFile
// (or EndFileToWriter) on success, AbortFile otherwise. Both ends free the
// builder and delete its temporary files.
#pragma once

#include "foundation/tessel_stack_allocator.h"
#include "foundation/tessel_types.h"
#include "format/tessel_file_format.h"

struct file_writer;

enum
{
    // Room for the whole temporary directory and the builder's own folder.
    FileBuilderPathSize = 4096 + 64,
    // Fixup and marshalling units per block of their stack allocators.
    FileBuilderUnitsPerBlock = 256,
};

#pragma pack(push, 4)

// A position while a file is being built: section, stream and offset in
// that stream.
struct file_location
{
    int32 SectionIndex;
    int32 StreamIndex;
    uint32 Offset;
};

struct file_builder_fixup
{
    file_location From;
    file_location To;
    file_builder_fixup *Next;
};

struct file_builder_marshalling
{
    int32 Count;
    file_location Type;
    file_location Object;
    file_builder_marshalling *Next;
};

struct file_builder_section
{
    file_section_header Header; // the 44 bytes of the section record

    uint32 StreamSize[StreamCount];
    file_writer *StreamWriters[StreamCount];
    // Write-behind buffers of FileCopyBlockSize bytes in front of the
    // writers (allocated on first use) and the bytes waiting in them.
    void *StreamBuffers[StreamCount];
    uint32 StreamBufferFill[StreamCount];
    void *CompressedData;
    uint32 CompressedSize;

    file_builder_fixup *FirstFixup;
    file_builder_fixup *LastFixup;
    file_builder_marshalling *FirstMarshalling;
    file_builder_marshalling *LastMarshalling;
};

struct file_builder
{
    file_magic_block PlatformMagicValue;
    bool8 ExcludeTypeTreeInConversion;

    stack_allocator FixupAllocator;
    stack_allocator MarshallingAllocator;

    uint32 FileTypeTag;
    uint32 StringDatabaseCRC;
    uint32 ExtraTags[4];

    // The builder's private folder (Root_XXXXXX in the directory given to
    // BeginFile), which holds its temporary files; removed at the end.
    char TemporaryDirectory[FileBuilderPathSize];
    char FileNameRoot[FileBuilderPathSize];
    bool8 UseTemporaryFiles;

    file_location RootObject;
    file_location RootType;

    int32 SectionCount;
    file_builder_section *Sections;

    bool8 Healthy;

    // Packaging progress (see SetFileBuilderProgress).
    void (*PackagingProgress)(void *Data, int32 Done, int32 Total);
    void *PackagingProgressData;
};

#pragma pack(pop)

// Null when the temporary files can't be created. MagicBlock selects the
// target platform; a non-native one needs the platform conversion at the end.
file_builder *BeginFile(int32 SectionCount, uint32 FileTypeTag, file_magic_block const &MagicBlock,
                        char const *TemporaryDirectory, char const *FileNameRoot);

// Compression 0 (none) or 2 (Trove1); 1 is taken as 2. Alignment in bytes.
void SetFileSectionFormat(file_builder *Builder, int32 SectionIndex, int32 CompressionType, int32 Alignment);

// Appends Size bytes to the stream that Marshalling selects (0 and 4: stream
// 0, 2: stream 1, others: stream 2) and pads it to the section's alignment.
// Result (optional) gets the position before the write.
void WriteSectionData(file_builder *Builder, int32 SectionIndex, uint32 Marshalling, int32 Size, void const *Data,
                      file_location *Result);

// Result is Location moved Delta bytes further in the same stream.
void OffsetLocation(file_builder *Builder, file_location const &Location, int32 Delta, file_location *Result);

// The 8-byte pointer slot at From + Delta will point to To.
void AddFixup(file_builder *Builder, file_location const &From, int32 Delta, file_location const &To);

// Count objects at Object have mixed units; their type table is at Type.
void AddMarshalling(file_builder *Builder, file_location const &Type, file_location const &Object, int32 Count);

void SetFileRoots(file_builder *Builder, file_location const &TypeLocation, file_location const &ObjectLocation);

// Finishes to FileName. The file is written whole under a temporary name in
// FileName's folder and renamed over FileName only when complete and flushed;
// on failure what was at FileName stays as it was. A FileName that is not a
// regular file (or a link to one) is refused. The builder is freed in every
// case. True on success.
bool EndFile(file_builder *Builder, char const *FileName);
// Finishes to Writer, which must be seekable. Frees the builder.
bool EndFileToWriter(file_builder *Builder, file_writer *Writer);
// Compressed sections are coded on worker threads (see SetWorkerThreadCount);
// the file's bytes are the same whatever their count. While they code, the
// thread that ends the file calls Callback with the packaging steps done out
// of Total: one step per FileBuilderPackagingStepBytes of expanded data in
// compressed sections, rounded up. A successful end reports Done == Total.
void SetFileBuilderProgress(file_builder *Builder, void (*Callback)(void *Data, int32 Done, int32 Total), void *Data);
// The Total that ending the file now would report.
int32 GetFileBuilderPackagingSteps(file_builder const *Builder);

enum
{
    FileBuilderPackagingStepBytes = 1 << 16,
};

// Frees everything and deletes the temporary files.
void AbortFile(file_builder *Builder);

// Stream that WriteSectionData picks for a marshalling value.
int32 GetStreamForMarshalling(uint32 Marshalling);
