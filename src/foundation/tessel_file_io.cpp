// CRC-32, memory writer and reader, and stream helpers.
#include "foundation/tessel_file_io.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_string.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"

namespace {

struct crc_table
{
    uint32 Entries[256];
    crc_table()
    {
        for (uint32 Index = 0; Index < 256; ++Index) {
            uint32 Value = Index;
            for (int32 Bit = 0; Bit < 8; ++Bit) Value = (Value & 1) ? (Value >> 1) ^ 0xEDB88320u : Value >> 1;
            Entries[Index] = Value;
        }
    }
};
crc_table const CRCTable;

#pragma pack(push, 4)
struct memory_writer
{
    file_writer Base;
    bool8 Stolen;
    uint8 *Buffer;
    int32 Capacity;
    int32 BlockSize;
    int32 Position;
    int32 Size;
};

struct memory_reader
{
    file_reader Base;
    int32 Size;
    uint8 const *Memory;
};
#pragma pack(pop)

bool GrowMemoryWriter(memory_writer *Writer, int64 Wanted)
{
    if (Wanted <= Writer->Capacity) return true;
    int64 NewCapacity = ((Wanted + Writer->BlockSize - 1) / Writer->BlockSize) * (int64)Writer->BlockSize;
    uint8 *NewBuffer = NewCapacity <= INT32_MAX ? (uint8 *)TesselAllocate(NewCapacity) : 0;
    if (!NewBuffer) {
        TesselError(LogCategory_FileWriting, "Unable to grow memory stream to requested size [r: %d curr: %d]",
                    (int32)Wanted, Writer->Capacity);
        return false;
    }
    if (Writer->Buffer) {
        memcpy(NewBuffer, Writer->Buffer, (size_t)Writer->Size);
        TesselFree(Writer->Buffer);
    }
    // The gap between the old size and a seek target stays as it is; zero
    // it anyway so that no stale heap bytes ever reach a file.
    memset(NewBuffer + Writer->Size, 0, (size_t)(NewCapacity - Writer->Size));
    Writer->Buffer = NewBuffer;
    Writer->Capacity = (int32)NewCapacity;
    return true;
}

void DeleteMemoryWriter(file_writer *Base)
{
    memory_writer *Writer = (memory_writer *)Base;
    TesselFree(Writer->Buffer);
    TesselFree(Writer);
}

int32 SeekMemoryWriter(file_writer *Base, int32 Offset, int32 Mode)
{
    memory_writer *Writer = (memory_writer *)Base;
    int64 Target;
    switch (Mode) {
    case SeekMode_FromStart: Target = Offset; break;
    case SeekMode_FromEnd: Target = (int64)Writer->Size - Offset; break;
    case SeekMode_FromCurrentPosition: Target = (int64)Writer->Position + Offset; break;
    default: return 0;
    }
    if (Target < 0) {
        TesselError(LogCategory_FileWriting, "Attempting to seek before beginning of a memory stream [r: %d]",
                    (int32)Target);
        Target = 0;
    }
    if (Target > INT32_MAX) Target = INT32_MAX;
    if (Target > Writer->Capacity && !GrowMemoryWriter(Writer, Target)) return Writer->Position;
    Writer->Position = (int32)Target;
    return Writer->Position;
}

bool WriteMemoryWriter(file_writer *Base, int32 Size, void const *Data)
{
    memory_writer *Writer = (memory_writer *)Base;
    if (Size < 0) return false;
    if (Size == 0) return true;
    int64 End = (int64)Writer->Position + Size;
    if (End > INT32_MAX || !GrowMemoryWriter(Writer, End)) return false;
    if (Writer->Base.CRCActive) Writer->Base.CRC = UpdateCRC32(Writer->Base.CRC, Size, Data);
    memcpy(Writer->Buffer + Writer->Position, Data, (size_t)Size);
    Writer->Position = (int32)End;
    if (Writer->Position > Writer->Size) Writer->Size = Writer->Position;
    return true;
}

void CloseMemoryReader(file_reader *Base)
{
    TesselFree(Base);
}

int32 ReadMemoryReader(file_reader *Base, int32 FilePosition, int32 Size, void *Buffer)
{
    memory_reader *Reader = (memory_reader *)Base;
    if (FilePosition < 0 || FilePosition > Reader->Size) {
        TesselError(LogCategory_FileReading, "%s %d is out of range [%d, %d]", "FilePosition", FilePosition, 0,
                    Reader->Size);
        return 0;
    }
    if (Size <= 0) return 0;
    int32 Available = Reader->Size - FilePosition;
    int32 Count = Size < Available ? Size : Available;
    memcpy(Buffer, Reader->Memory + FilePosition, (size_t)Count);
    return Count;
}

bool GetMemoryReaderSize(file_reader *Base, int32 *Size)
{
    *Size = ((memory_reader *)Base)->Size;
    return true;
}

} // namespace

uint32 BeginCRC32()
{
    return 0xFFFFFFFFu;
}

uint32 UpdateCRC32(uint32 CRC, int32 Size, void const *Data)
{
    uint8 const *Bytes = (uint8 const *)Data;
    for (int32 Index = 0; Index < Size; ++Index) CRC = CRCTable.Entries[(CRC ^ Bytes[Index]) & 0xFF] ^ (CRC >> 8);
    return CRC;
}

uint32 EndCRC32(uint32 CRC)
{
    return ~CRC;
}

uint32 ComputeCRC32(int32 Size, void const *Data)
{
    return EndCRC32(UpdateCRC32(BeginCRC32(), Size, Data));
}

void DefaultBeginCRC(file_writer *Writer)
{
    Writer->CRCActive = true;
    Writer->CRC = BeginCRC32();
}

uint32 DefaultEndCRC(file_writer *Writer)
{
    Writer->CRCActive = false;
    return EndCRC32(Writer->CRC);
}

bool InitializeFileWriter(file_writer &Writer, delete_file_writer_callback Delete, seek_writer_callback Seek,
                          write_callback WriteFunction, begin_crc_callback BeginCRC, end_crc_callback EndCRC)
{
    CheckPointer(Delete, LogCategory_FileWriting, false);
    CheckPointer(Seek, LogCategory_FileWriting, false);
    CheckPointer(WriteFunction, LogCategory_FileWriting, false);
    CheckPointer(BeginCRC, LogCategory_FileWriting, false);
    CheckPointer(EndCRC, LogCategory_FileWriting, false);
    Writer.DeleteFileWriterCallback = Delete;
    Writer.SeekWriterCallback = Seek;
    Writer.WriteCallback = WriteFunction;
    Writer.BeginCRCCallback = BeginCRC;
    Writer.EndCRCCallback = EndCRC;
    Writer.CRCActive = false;
    Writer.CRC = 0;
    return true;
}

bool InitializeFileReader(file_reader &Reader, close_file_reader_callback Close,
                          read_at_most_callback ReadAtMostFunction, get_reader_size_callback GetSize)
{
    CheckPointer(Close, LogCategory_FileReading, false);
    CheckPointer(ReadAtMostFunction, LogCategory_FileReading, false);
    CheckPointer(GetSize, LogCategory_FileReading, false);
    Reader.CloseFileReaderCallback = Close;
    Reader.ReadAtMostCallback = ReadAtMostFunction;
    Reader.GetReaderSizeCallback = GetSize;
    return true;
}

bool GetReaderSize(file_reader *Reader, int32 *Size)
{
    CheckPointer(Reader, LogCategory_FileReading, false);
    CheckPointer(Size, LogCategory_FileReading, false);
    return Reader->GetReaderSizeCallback(Reader, Size);
}

file_writer *CreateMemoryFileWriter(int32 BlockSize)
{
    CheckCondition(BlockSize > 0, LogCategory_FileWriting, 0);
    memory_writer *Writer = (memory_writer *)TesselAllocate(sizeof(memory_writer));
    if (!Writer) {
        TesselError(LogCategory_FileWriting, "Unable to allocate a memory writer...");
        return 0;
    }
    memset(Writer, 0, sizeof(*Writer));
    InitializeFileWriter(Writer->Base, DeleteMemoryWriter, SeekMemoryWriter, WriteMemoryWriter, DefaultBeginCRC,
                         DefaultEndCRC);
    Writer->BlockSize = BlockSize;
    return &Writer->Base;
}

bool StealMemoryWriterBuffer(file_writer *Base, uint8 **BufferPtr, int32 *BufferSize)
{
    CheckPointer(BufferPtr, LogCategory_FileWriting, false);
    CheckPointer(BufferSize, LogCategory_FileWriting, false);
    *BufferPtr = 0;
    *BufferSize = 0;
    CheckPointer(Base, LogCategory_FileWriting, false);
    memory_writer *Writer = (memory_writer *)Base;
    if (Writer->Stolen) return false;
    *BufferPtr = Writer->Buffer;
    *BufferSize = Writer->Size;
    Writer->Stolen = true;
    Writer->Buffer = 0;
    Writer->Capacity = Writer->Size = Writer->Position = 0;
    return true;
}

void FreeMemoryWriterBuffer(uint8 *Buffer)
{
    TesselFree(Buffer);
}

file_reader *CreateMemoryFileReader(int32 MemorySize, void const *Memory)
{
    CheckCondition(MemorySize >= 0, LogCategory_FileReading, 0);
    CheckCondition(Memory != 0 || MemorySize == 0, LogCategory_FileReading, 0);
    memory_reader *Reader = (memory_reader *)TesselAllocate(sizeof(memory_reader));
    if (!Reader) return 0;
    InitializeFileReader(Reader->Base, CloseMemoryReader, ReadMemoryReader, GetMemoryReaderSize);
    Reader->Size = MemorySize;
    Reader->Memory = (uint8 const *)Memory;
    return &Reader->Base;
}

bool CopyReaderToWriter(file_writer *Writer, file_reader *Reader, int32 *BytesCopied)
{
    if (BytesCopied) *BytesCopied = 0;
    CheckPointer(Writer, LogCategory_FileWriting, false);
    CheckPointer(Reader, LogCategory_FileWriting, false);
    int32 const BufferSize = 65536;
    uint8 *Buffer = (uint8 *)TesselAllocate(BufferSize);
    if (!Buffer) return false;
    int32 Position = 0;
    bool Result = true;
    for (;;) {
        int32 Read = ReadAtMost(Reader, Position, BufferSize, Buffer);
        if (Read <= 0) break;
        if (!Write(Writer, Read, Buffer)) {
            Result = false;
            break;
        }
        Position += Read;
    }
    TesselFree(Buffer);
    if (BytesCopied) *BytesCopied = Position;
    return Result;
}

bool ConcatenateFile(file_writer *Writer, char const *FileName, int32 *BytesCopied)
{
    if (BytesCopied) *BytesCopied = 0;
    CheckPointer(FileName, LogCategory_FileWriting, false);
    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) return false;
    bool Result = CopyReaderToWriter(Writer, Reader, BytesCopied);
    CloseFileReader(Reader);
    return Result;
}

bool AppendStringToFile(char const *Filename, char const *String)
{
    CheckPointer(Filename, LogCategory_FileOperations, false);
    CheckPointer(String, LogCategory_FileOperations, false);
    file_writer *Writer = CreatePlatformFileWriter(Filename, false);
    if (!Writer) return false;
    SeekWriterFromEnd(Writer, 0);
    bool Result = Write(Writer, StringLength(String), String) && Write(Writer, 1, "\n");
    DeleteFileWriter(Writer);
    return Result;
}

bool WritePaddingTo(file_writer *Writer, int32 Alignment)
{
    CheckPointer(Writer, LogCategory_FileWriting, false);
    CheckCondition(Alignment > 0, LogCategory_FileWriting, false);
    static uint8 const Zeros[256] = {};
    int32 Position = GetWriterPosition(Writer);
    int32 Padding = (Alignment - Position % Alignment) % Alignment;
    while (Padding > 0) {
        int32 Piece = Padding < (int32)sizeof(Zeros) ? Padding : (int32)sizeof(Zeros);
        if (!Write(Writer, Piece, Zeros)) return false;
        Padding -= Piece;
    }
    return true;
}

bool WritePadding(file_writer *Writer)
{
    return WritePaddingTo(Writer, 4);
}
