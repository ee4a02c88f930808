// Streams: file_reader and file_writer are records of callbacks so that a
// file on disk and a block of memory are interchangeable. Writers compute the
// CRC-32 of what passes through them on request.
#pragma once

#include "foundation/tessel_types.h"

struct file_writer;
struct file_reader;

typedef void (*delete_file_writer_callback)(file_writer *Writer);
typedef int32 (*seek_writer_callback)(file_writer *Writer, int32 Offset, int32 Mode);
typedef bool (*write_callback)(file_writer *Writer, int32 Size, void const *Data);
typedef void (*begin_crc_callback)(file_writer *Writer);
typedef uint32 (*end_crc_callback)(file_writer *Writer);

enum seek_mode
{
    SeekMode_FromStart = 0,
    SeekMode_FromEnd = 1,
    SeekMode_FromCurrentPosition = 2,
};

#pragma pack(push, 4)
struct file_writer
{
    delete_file_writer_callback DeleteFileWriterCallback;
    seek_writer_callback SeekWriterCallback;
    write_callback WriteCallback;
    begin_crc_callback BeginCRCCallback;
    end_crc_callback EndCRCCallback;
    bool8 CRCActive;
    uint32 CRC;
};

typedef void (*close_file_reader_callback)(file_reader *Reader);
typedef int32 (*read_at_most_callback)(file_reader *Reader, int32 FilePosition, int32 Size, void *Buffer);
typedef bool (*get_reader_size_callback)(file_reader *Reader, int32 *Size);

struct file_reader
{
    close_file_reader_callback CloseFileReaderCallback;
    read_at_most_callback ReadAtMostCallback;
    get_reader_size_callback GetReaderSizeCallback;
};
#pragma pack(pop)

// Shared helpers for writer implementations.
bool InitializeFileWriter(file_writer &Writer, delete_file_writer_callback Delete, seek_writer_callback Seek,
                          write_callback Write, begin_crc_callback BeginCRC, end_crc_callback EndCRC);
bool InitializeFileReader(file_reader &Reader, close_file_reader_callback Close, read_at_most_callback ReadAtMost,
                          get_reader_size_callback GetSize);
void DefaultBeginCRC(file_writer *Writer);
uint32 DefaultEndCRC(file_writer *Writer);

// Thin wrappers over the callbacks.
inline void DeleteFileWriter(file_writer *Writer)
{
    if (Writer) Writer->DeleteFileWriterCallback(Writer);
}
inline bool Write(file_writer *Writer, int32 Size, void const *Data)
{
    return Writer->WriteCallback(Writer, Size, Data);
}
inline int32 SeekWriterFromStart(file_writer *Writer, int32 Offset)
{
    return Writer->SeekWriterCallback(Writer, Offset, SeekMode_FromStart);
}
inline int32 SeekWriterFromEnd(file_writer *Writer, int32 Offset)
{
    return Writer->SeekWriterCallback(Writer, Offset, SeekMode_FromEnd);
}
inline int32 SeekWriterFromCurrentPosition(file_writer *Writer, int32 Offset)
{
    return Writer->SeekWriterCallback(Writer, Offset, SeekMode_FromCurrentPosition);
}
inline int32 GetWriterPosition(file_writer *Writer)
{
    return SeekWriterFromCurrentPosition(Writer, 0);
}
inline void BeginWriterCRC(file_writer *Writer)
{
    Writer->BeginCRCCallback(Writer);
}
inline uint32 EndWriterCRC(file_writer *Writer)
{
    return Writer->EndCRCCallback(Writer);
}
inline void CloseFileReader(file_reader *Reader)
{
    if (Reader) Reader->CloseFileReaderCallback(Reader);
}
inline int32 ReadAtMost(file_reader *Reader, int32 Position, int32 Size, void *Buffer)
{
    return Reader->ReadAtMostCallback(Reader, Position, Size, Buffer);
}
inline bool ReadExactly(file_reader *Reader, int32 Position, int32 Size, void *Buffer)
{
    return ReadAtMost(Reader, Position, Size, Buffer) == Size;
}
bool GetReaderSize(file_reader *Reader, int32 *Size);

// CRC-32 (reflected, polynomial 0xEDB88320).
uint32 BeginCRC32();
uint32 UpdateCRC32(uint32 CRC, int32 Size, void const *Data);
uint32 EndCRC32(uint32 CRC);
uint32 ComputeCRC32(int32 Size, void const *Data);

// Memory forms.
file_writer *CreateMemoryFileWriter(int32 BlockSize);
bool StealMemoryWriterBuffer(file_writer *Writer, uint8 **BufferPtr, int32 *BufferSize);
void FreeMemoryWriterBuffer(uint8 *Buffer);
file_reader *CreateMemoryFileReader(int32 MemorySize, void const *Memory);

// Disk forms (platform layer).
file_writer *CreatePlatformFileWriter(char const *FileName, bool Truncate);
file_reader *CreatePlatformFileReader(char const *FileName);

bool ConcatenateFile(file_writer *Writer, char const *FileName, int32 *BytesCopied);
bool CopyReaderToWriter(file_writer *Writer, file_reader *Reader, int32 *BytesCopied);
bool AppendStringToFile(char const *FileName, char const *String);
bool WritePadding(file_writer *Writer);
// Writes 0 bytes up to a multiple of Alignment of the position.
bool WritePaddingTo(file_writer *Writer, int32 Alignment);

// Reads a whole file into one block from the allocation hook (free with
// TesselFree). A terminating 0 byte is appended (not counted in Size).
uint8 *ReadEntireFile(char const *FileName, int64 *Size);
