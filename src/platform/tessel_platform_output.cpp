// POSIX platform layer: private temporary folders and outputs that replace a
// file only when they are complete.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "platform/tessel_platform.h"

namespace {

#pragma pack(push, 4)
// Forwards to a platform writer on the temporary file and remembers where
// it goes.
struct output_writer
{
    file_writer Base;
    file_writer *Inner;
    int Handle;
    bool8 Unnamed;       // O_TMPFILE: nothing on disk has a name yet
    char *TemporaryName; // the named temporary file otherwise
    char *TargetName;    // the path that the finished file replaces
    char *DirectoryName; // the folder of both
};
#pragma pack(pop)

char *CopyText(std::string const &Text)
{
    char *Copy = (char *)TesselAllocate((intaddrx)Text.size() + 1);
    if (Copy) memcpy(Copy, Text.c_str(), Text.size() + 1);
    return Copy;
}

std::string DirectoryOf(std::string const &Path)
{
    size_t Slash = Path.rfind('/');
    if (Slash == std::string::npos) return ".";
    if (Slash == 0) return "/";
    return Path.substr(0, Slash);
}

// Random letters for names that no one else can guess.
void FillRandomLetters(char *Text, int32 Count)
{
    static char const Letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    uint8 Bytes[32];
    if (Count > (int32)sizeof(Bytes)) Count = (int32)sizeof(Bytes);
    if (getrandom(Bytes, (size_t)Count, 0) != Count) {
        // No entropy source: still unique in this process, and the exclusive
        // create below refuses anything that is already there.
        static uint32 Fallback = 0x9e3779b9u;
        for (int32 Index = 0; Index < Count; ++Index) {
            Fallback = Fallback * 1664525u + 1013904223u + (uint32)getpid();
            Bytes[Index] = (uint8)(Fallback >> 24);
        }
    }
    for (int32 Index = 0; Index < Count; ++Index) Text[Index] = Letters[Bytes[Index] % (sizeof(Letters) - 1)];
}

// Where an output for FileName really goes: the path itself, or the file a
// link points at. False (logged) for anything that is not a regular file.
bool ResolveOutputPath(char const *FileName, std::string *Target, struct stat *Existing, bool *Exists)
{
    *Exists = false;
    struct stat Info;
    if (lstat(FileName, &Info) != 0) {
        if (errno != ENOENT) {
            ReportPlatformError("lstat", __FILE__, __LINE__, false);
            TesselError(LogCategory_FileWriting, "Unable to write to %s", FileName);
            return false;
        }
        *Target = FileName;
        return true;
    }
    if (S_ISLNK(Info.st_mode) && stat(FileName, &Info) == 0 && S_ISREG(Info.st_mode)) {
        char *Resolved = realpath(FileName, 0);
        if (!Resolved || stat(Resolved, &Info) != 0) {
            if (Resolved) free(Resolved);
            TesselError(LogCategory_FileWriting, "%s is a link to nothing; refusing to write through it", FileName);
            return false;
        }
        *Target = Resolved;
        free(Resolved);
    } else if (S_ISLNK(Info.st_mode) && stat(FileName, &Info) != 0) {
        TesselError(LogCategory_FileWriting, "%s is a link to nothing; refusing to write through it", FileName);
        return false;
    } else {
        *Target = FileName;
    }
    if (!S_ISREG(Info.st_mode)) {
        TesselError(LogCategory_FileWriting,
                    "%s is not a regular file (a folder, device, pipe or socket); TS2 files are written only to "
                    "regular files",
                    FileName);
        return false;
    }
    *Existing = Info;
    *Exists = true;
    return true;
}

void DeleteOutputWriterRecord(output_writer *Writer)
{
    DeleteFileWriter(Writer->Inner);
    if (Writer->TemporaryName) {
        unlink(Writer->TemporaryName);
        TesselFree(Writer->TemporaryName);
    }
    if (Writer->TargetName) TesselFree(Writer->TargetName);
    if (Writer->DirectoryName) TesselFree(Writer->DirectoryName);
    TesselFree(Writer);
}

void DiscardOutputWriter(file_writer *Base)
{
    DeleteOutputWriterRecord((output_writer *)Base);
}

int32 SeekOutputWriter(file_writer *Base, int32 Offset, int32 Mode)
{
    output_writer *Writer = (output_writer *)Base;
    return Writer->Inner->SeekWriterCallback(Writer->Inner, Offset, Mode);
}

bool WriteOutputWriter(file_writer *Base, int32 Size, void const *Data)
{
    output_writer *Writer = (output_writer *)Base;
    if (Size < 0) return false;
    if (Writer->Base.CRCActive) Writer->Base.CRC = UpdateCRC32(Writer->Base.CRC, Size, Data);
    return Writer->Inner->WriteCallback(Writer->Inner, Size, Data);
}

// A fresh name next to the target, made with the temporary file's own
// exclusive create (mkstemp) or as a hard link to the unnamed file.
std::string TemporaryNameFor(output_writer const *Writer)
{
    std::string Base = GetBaseFileName(Writer->TargetName);
    if (Base.size() > 200) Base.resize(200);
    return std::string(Writer->DirectoryName) + "/." + Base + ".tessel-";
}

// The process's umask without changing it (umask() would, for a moment,
// for every thread).
mode_t GetProcessUmask()
{
    mode_t Mask = 022;
    if (FILE *Status = fopen("/proc/self/status", "r")) {
        char Line[256];
        while (fgets(Line, sizeof(Line), Status)) {
            unsigned Value;
            if (sscanf(Line, "Umask: %o", &Value) == 1) {
                Mask = (mode_t)Value;
                break;
            }
        }
        fclose(Status);
    }
    return Mask;
}

void SyncDirectory(char const *DirectoryName)
{
    int Handle = open(DirectoryName, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (Handle < 0) return;
    fsync(Handle);
    close(Handle);
}

} // namespace

bool CreatePrivateDirectory(char const *Parent, char const *Root, char *Result, int32 ResultSize)
{
    CheckPointer(Root, LogCategory_FileWriting, false);
    CheckPointer(Result, LogCategory_FileWriting, false);
    if (!Parent) Parent = GetTemporaryDirectory();
    if (!Parent) return false;
    std::string Path = std::string(Parent) + "/" + Root + "_XXXXXX";
    if ((int32)Path.size() >= ResultSize) {
        TesselError(LogCategory_FileWriting, "The temporary folder name %s is longer than %d characters", Path.c_str(),
                    ResultSize - 1);
        return false;
    }
    memcpy(Result, Path.c_str(), Path.size() + 1);
    // mkdtemp makes the folder with mode 0700 and fails rather than reuse
    // anything that is already there.
    if (!mkdtemp(Result)) {
        ReportPlatformError("mkdtemp", __FILE__, __LINE__, false);
        TesselError(LogCategory_FileWriting, "Unable to create a temporary folder in %s", Parent);
        Result[0] = 0;
        return false;
    }
    return true;
}

bool RemoveDirectory(char const *Path)
{
    return Path && Path[0] && rmdir(Path) == 0;
}

bool CheckOutputPath(char const *FileName)
{
    CheckPointer(FileName, LogCategory_FileWriting, false);
    std::string Target;
    struct stat Existing;
    bool Exists = false;
    if (!ResolveOutputPath(FileName, &Target, &Existing, &Exists)) return false;
    std::string Directory = DirectoryOf(Target);
    if (access(Directory.c_str(), W_OK | X_OK) != 0) {
        TesselError(LogCategory_FileWriting, "Unable to write to the folder %s", Directory.c_str());
        return false;
    }
    return true;
}

file_writer *CreateOutputFileWriter(char const *FileName)
{
    CheckPointer(FileName, LogCategory_FileWriting, 0);
    std::string Target;
    struct stat Existing;
    bool Exists = false;
    if (!ResolveOutputPath(FileName, &Target, &Existing, &Exists)) return 0;

    output_writer *Writer = (output_writer *)TesselAllocate(sizeof(output_writer));
    if (!Writer) return 0;
    memset(Writer, 0, sizeof(*Writer));
    Writer->Handle = -1;
    Writer->TargetName = CopyText(Target);
    Writer->DirectoryName = CopyText(DirectoryOf(Target));
    if (!Writer->TargetName || !Writer->DirectoryName) {
        DeleteOutputWriterRecord(Writer);
        return 0;
    }

    // A file with no name first: a process killed before the end leaves
    // nothing in the output's folder.
    // The unnamed file is given its name through /proc at the end.
    mode_t Mode = Exists ? (Existing.st_mode & 07777) : 0644;
    int Handle =
        access("/proc/self/fd", X_OK) == 0 ? open(Writer->DirectoryName, O_TMPFILE | O_WRONLY | O_CLOEXEC, Mode) : -1;
    if (Handle >= 0) {
        Writer->Unnamed = true;
        if (Exists && fchmod(Handle, Mode) != 0) ReportPlatformError("fchmod", __FILE__, __LINE__, false);
    } else {
        std::string Name = TemporaryNameFor(Writer) + "XXXXXX";
        Writer->TemporaryName = CopyText(Name);
        if (Writer->TemporaryName) Handle = mkostemp(Writer->TemporaryName, O_CLOEXEC);
        if (Handle < 0) {
            ReportPlatformError("mkstemp", __FILE__, __LINE__, false);
            TesselError(LogCategory_FileWriting, "Unable to create a temporary file next to %s", FileName);
            if (Writer->TemporaryName) TesselFree(Writer->TemporaryName);
            Writer->TemporaryName = 0;
            DeleteOutputWriterRecord(Writer);
            return 0;
        }
        // mkstemp makes the file for its owner alone; an output gets the
        // mode of the file it replaces, or the usual one.
        if (fchmod(Handle, Exists ? Mode : (Mode & ~GetProcessUmask())) != 0) {
            ReportPlatformError("fchmod", __FILE__, __LINE__, false);
        }
    }
    Writer->Handle = Handle;
    Writer->Inner = CreatePlatformFileWriterForHandle(Handle);
    if (!Writer->Inner) {
        close(Handle);
        DeleteOutputWriterRecord(Writer);
        return 0;
    }
    InitializeFileWriter(Writer->Base, DiscardOutputWriter, SeekOutputWriter, WriteOutputWriter, DefaultBeginCRC,
                         DefaultEndCRC);
    return &Writer->Base;
}

bool CommitOutputFileWriter(file_writer *Base)
{
    CheckPointer(Base, LogCategory_FileWriting, false);
    output_writer *Writer = (output_writer *)Base;
    bool Result = fsync(Writer->Handle) == 0;
    if (!Result) ReportPlatformError("fsync", __FILE__, __LINE__, false);

    if (Result && Writer->Unnamed) {
        // Give the unnamed file a fresh name beside the target, then move it
        // over the target in one step.
        char Link[64];
        snprintf(Link, sizeof(Link), "/proc/self/fd/%d", Writer->Handle);
        std::string Prefix = TemporaryNameFor(Writer);
        Result = false;
        for (int32 Attempt = 0; Attempt < 16 && !Result; ++Attempt) {
            char Letters[13] = {0};
            FillRandomLetters(Letters, 12);
            std::string Name = Prefix + Letters;
            if (linkat(AT_FDCWD, Link, AT_FDCWD, Name.c_str(), AT_SYMLINK_FOLLOW) == 0) {
                Writer->TemporaryName = CopyText(Name);
                Result = Writer->TemporaryName != 0;
                if (!Result) unlink(Name.c_str());
            } else if (errno != EEXIST) {
                ReportPlatformError("linkat", __FILE__, __LINE__, false);
                break;
            }
        }
    }
    if (Result && rename(Writer->TemporaryName, Writer->TargetName) != 0) {
        ReportPlatformError("rename", __FILE__, __LINE__, false);
        Result = false;
    }
    if (Result) {
        // The name is the target's now: nothing left to remove.
        TesselFree(Writer->TemporaryName);
        Writer->TemporaryName = 0;
        SyncDirectory(Writer->DirectoryName);
    } else {
        TesselError(LogCategory_FileWriting, "Unable to put the finished file in place at %s", Writer->TargetName);
    }
    DeleteOutputWriterRecord(Writer);
    return Result;
}

bool IsSameFile(char const *PathA, char const *PathB)
{
    struct stat InfoA, InfoB;
    if (!PathA || !PathB || stat(PathA, &InfoA) != 0 || stat(PathB, &InfoB) != 0) return false;
    return InfoA.st_dev == InfoB.st_dev && InfoA.st_ino == InfoB.st_ino;
}
