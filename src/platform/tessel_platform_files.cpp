// POSIX platform layer: heap, file handles, temporary directory, errors.
#include "platform/tessel_platform.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"

namespace {

#pragma pack(push, 4)
struct platform_writer
{
    file_writer Base;
    int Handle;
};

struct platform_reader
{
    file_reader Base;
    int Handle;
};
#pragma pack(pop)

void DeletePlatformWriter(file_writer *Base)
{
    platform_writer *Writer = (platform_writer *)Base;
    if (close(Writer->Handle) != 0) ReportPlatformError("close", __FILE__, __LINE__, false);
    TesselFree(Writer);
}

int32 SeekPlatformWriter(file_writer *Base, int32 Offset, int32 Mode)
{
    platform_writer *Writer = (platform_writer *)Base;
    off_t Result;
    switch (Mode) {
    case SeekMode_FromStart: Result = lseek(Writer->Handle, Offset, SEEK_SET); break;
    case SeekMode_FromEnd: Result = lseek(Writer->Handle, -(off_t)Offset, SEEK_END); break;
    case SeekMode_FromCurrentPosition: Result = lseek(Writer->Handle, Offset, SEEK_CUR); break;
    default: return 0;
    }
    if (Result < 0) {
        ReportPlatformError("lseek", __FILE__, __LINE__, false);
        return 0;
    }
    return (int32)Result;
}

bool WritePlatformWriter(file_writer *Base, int32 Size, void const *Data)
{
    platform_writer *Writer = (platform_writer *)Base;
    if (Size < 0) return false;
    if (Writer->Base.CRCActive) Writer->Base.CRC = UpdateCRC32(Writer->Base.CRC, Size, Data);
    uint8 const *Bytes = (uint8 const *)Data;
    int32 Remaining = Size;
    while (Remaining > 0) {
        ssize_t Written = write(Writer->Handle, Bytes, (size_t)Remaining);
        if (Written < 0 && errno == EINTR) continue;
        if (Written <= 0) {
            ReportPlatformError("write", __FILE__, __LINE__, false);
            return false;
        }
        Bytes += Written;
        Remaining -= (int32)Written;
    }
    return true;
}

void ClosePlatformReader(file_reader *Base)
{
    platform_reader *Reader = (platform_reader *)Base;
    close(Reader->Handle);
    TesselFree(Reader);
}

int32 ReadPlatformReader(file_reader *Base, int32 FilePosition, int32 Size, void *Buffer)
{
    platform_reader *Reader = (platform_reader *)Base;
    if (Size <= 0 || FilePosition < 0) return 0;
    int32 Total = 0;
    while (Total < Size) {
        ssize_t Read =
            pread(Reader->Handle, (uint8 *)Buffer + Total, (size_t)(Size - Total), (off_t)FilePosition + Total);
        if (Read < 0 && errno == EINTR) continue;
        if (Read < 0) {
            ReportPlatformError("pread", __FILE__, __LINE__, false);
            break;
        }
        if (Read == 0) break;
        Total += (int32)Read;
    }
    return Total;
}

bool GetPlatformReaderSize(file_reader *Base, int32 *Size)
{
    platform_reader *Reader = (platform_reader *)Base;
    struct stat Info;
    if (fstat(Reader->Handle, &Info) != 0) {
        ReportPlatformError("fstat", __FILE__, __LINE__, false);
        return false;
    }
    if (Info.st_size > 0x7FFFFFFF) {
        TesselError(LogCategory_FileReading, "%s %I64d is out of range for int%d %s", "FileSize", (int64)Info.st_size,
                    32, "Size");
        return false;
    }
    *Size = (int32)Info.st_size;
    return true;
}

std::atomic<int32> UniqueCounter{0};

// The whole of $TMPDIR is kept; a longer one is refused, never cut.
struct temporary_directory
{
    char Path[TemporaryDirectorySize];
    bool Valid;
    temporary_directory()
    {
        char const *Variable = getenv("TMPDIR");
        if (!Variable || !Variable[0]) Variable = "/tmp";
        Valid = strlen(Variable) < sizeof(Path);
        if (!Valid) {
            Path[0] = 0;
            return;
        }
        CopyStringMaximum(Path, (int32)sizeof(Path), Variable);
        int32 Length = StringLength(Path);
        for (int32 Index = 0; Index < Length; ++Index) {
            if (Path[Index] == '\\') Path[Index] = '/';
        }
        while (Length > 1 && Path[Length - 1] == '/') Path[--Length] = 0;
    }
};

} // namespace

void *PlatformAllocate(intaddrx Size)
{
    return Size >= 0 ? malloc((size_t)(Size ? Size : 1)) : 0;
}

void PlatformFree(void *Memory)
{
    free(Memory);
}

void ReportPlatformError(char const *CallName, char const *File, int32 Line, bool Fatal)
{
    int Error = errno;
    char const *Text = Error ? strerror(Error) : "unknown platform error";
    Log(Fatal ? LogLevel_Error : LogLevel_Warning, LogCategory_Platform, File, Line,
        "%s failed with error \"%s\" at %s(%d)", CallName, Text, GetBaseFileName(File), Line);
}

file_writer *CreatePlatformFileWriter(char const *FileName, bool Truncate)
{
    CheckPointer(FileName, LogCategory_FileWriting, 0);
    int Flags = O_WRONLY | O_CREAT | O_CLOEXEC | (Truncate ? O_TRUNC : 0);
    int Handle = open(FileName, Flags, 0644);
    if (Handle < 0) {
        ReportPlatformError("open", __FILE__, __LINE__, false);
        return 0;
    }
    return CreatePlatformFileWriterForHandle(Handle);
}

file_writer *CreateExclusiveFileWriter(char const *FileName)
{
    CheckPointer(FileName, LogCategory_FileWriting, 0);
    int Handle = open(FileName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (Handle < 0) {
        ReportPlatformError("open", __FILE__, __LINE__, false);
        return 0;
    }
    return CreatePlatformFileWriterForHandle(Handle);
}

file_writer *CreatePlatformFileWriterForHandle(int Handle)
{
    platform_writer *Writer = (platform_writer *)TesselAllocate(sizeof(platform_writer));
    if (!Writer) {
        close(Handle);
        return 0;
    }
    InitializeFileWriter(Writer->Base, DeletePlatformWriter, SeekPlatformWriter, WritePlatformWriter, DefaultBeginCRC,
                         DefaultEndCRC);
    Writer->Handle = Handle;
    return &Writer->Base;
}

file_reader *CreatePlatformFileReader(char const *FileName)
{
    CheckPointer(FileName, LogCategory_FileReading, 0);
    // Opened without blocking, so that a FIFO with no writer is refused
    // rather than waited for; only regular files are read.
    int Handle = open(FileName, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (Handle < 0) {
        ReportPlatformError("open", __FILE__, __LINE__, false);
        return 0;
    }
    struct stat Info;
    if (fstat(Handle, &Info) != 0 || !S_ISREG(Info.st_mode)) {
        TesselError(LogCategory_FileReading, "%s is not a regular file", GetBaseFileName(FileName));
        close(Handle);
        return 0;
    }
    fcntl(Handle, F_SETFL, fcntl(Handle, F_GETFL) & ~O_NONBLOCK);
    platform_reader *Reader = (platform_reader *)TesselAllocate(sizeof(platform_reader));
    if (!Reader) {
        close(Handle);
        return 0;
    }
    InitializeFileReader(Reader->Base, ClosePlatformReader, ReadPlatformReader, GetPlatformReaderSize);
    Reader->Handle = Handle;
    return &Reader->Base;
}

char const *GetTemporaryDirectory()
{
    // Computed by the first caller; the others wait for it.
    static temporary_directory const Directory;
    if (!Directory.Valid) {
        TesselError(LogCategory_Platform, "The temporary directory ($TMPDIR) is longer than %d characters",
                    (int32)sizeof(Directory.Path) - 1);
        return 0;
    }
    return Directory.Path;
}

char const *GetBaseFileName(char const *Path)
{
    if (!Path) return Path;
    char const *Slash = strrchr(Path, '/');
    return Slash ? Slash + 1 : Path;
}

bool FileExists(char const *FileName)
{
    struct stat Info;
    return FileName && stat(FileName, &Info) == 0 && S_ISREG(Info.st_mode);
}

bool DeleteFile(char const *FileName)
{
    return FileName && unlink(FileName) == 0;
}

int64 GetFileSize(char const *FileName)
{
    struct stat Info;
    if (!FileName || stat(FileName, &Info) != 0) {
        TesselError(LogCategory_FileOperations, "Unable to get file size for %s", FileName);
        return 0;
    }
    if ((uint64)Info.st_size > 0xFFFFFFFFull) {
        TesselError(LogCategory_FileOperations, "File %s is too long (> 4 gigs)", FileName);
    }
    return (int64)Info.st_size;
}

int32 GetProcessIdentifier()
{
    return (int32)getpid();
}

int32 NextUniqueCounter()
{
    return UniqueCounter.fetch_add(1) + 1;
}

int32 GetProcessorCount()
{
    unsigned Count = std::thread::hardware_concurrency();
    return Count ? (int32)Count : 1;
}

uint8 *ReadEntireFile(char const *FileName, int64 *Size)
{
    if (Size) *Size = 0;
    CheckPointer(FileName, LogCategory_FileReading, 0);
    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) return 0;
    int32 FileSize = 0;
    uint8 *Buffer = 0;
    if (GetReaderSize(Reader, &FileSize)) {
        Buffer = (uint8 *)TesselAllocate((intaddrx)FileSize + 1);
        if (Buffer) {
            if (ReadAtMost(Reader, 0, FileSize, Buffer) != FileSize) {
                TesselError(LogCategory_FileReading, "Unable to read %s", FileName);
                TesselFree(Buffer);
                Buffer = 0;
            } else {
                Buffer[FileSize] = 0;
                if (Size) *Size = FileSize;
            }
        }
    }
    CloseFileReader(Reader);
    return Buffer;
}
