// The platform layer: what Tessel needs of the operating system. POSIX
// implementation; everything above it is portable.
#pragma once

#include "foundation/tessel_types.h"

// Platform heap beneath the tracking allocator.
void *PlatformAllocate(intaddrx Size);
void PlatformFree(void *Memory);

enum
{
    // Longest temporary directory kept whole, with its terminating zero.
    TemporaryDirectorySize = 4096,
};

// The temporary directory, computed once: $TMPDIR if set, else /tmp; no
// trailing slash. Null (logged) when $TMPDIR does not fit in
// TemporaryDirectorySize: it is never cut.
char const *GetTemporaryDirectory();

// The part of Path after its last slash.
char const *GetBaseFileName(char const *Path);

bool FileExists(char const *FileName);
bool DeleteFile(char const *FileName);
// 0 when the file is missing (logged).
int64 GetFileSize(char const *FileName);

// Process id and a process-wide counter, for names of temporary files that
// never collide between concurrent exports.
int32 GetProcessIdentifier();
int32 NextUniqueCounter();

// Logs a failed platform call with the system's text for errno.
void ReportPlatformError(char const *CallName, char const *File, int32 Line, bool Fatal);

// Number of processors available to this process (at least 1).
int32 GetProcessorCount();

struct file_writer;

// A new file only: fails if anything, a link included, is already at
// FileName. Readable and writable by the owner alone.
file_writer *CreateExclusiveFileWriter(char const *FileName);
// A writer on an open POSIX file descriptor, which it closes when deleted.
file_writer *CreatePlatformFileWriterForHandle(int Handle);

// Makes Parent/Root_XXXXXX (random letters), a folder that only this user
// can enter, and puts its path in Result. Parent may be null (the temporary
// directory).
bool CreatePrivateDirectory(char const *Parent, char const *Root, char *Result, int32 ResultSize);
// Removes an empty folder.
bool RemoveDirectory(char const *Path);

// Safe output. The output is written whole under a temporary name in its
// own folder (a file with no name at all where the file system allows) and
// put in place only when complete and flushed to disk; until then a file
// already at that path stays as it was.
//
// CheckOutputPath says (and logs why not) whether FileName can take an
// output: missing, a regular file or a link to one. Anything else (a
// folder, a FIFO, a device, a link to nothing) is refused.
bool CheckOutputPath(char const *FileName);
// Null (logged) when the path is refused or the temporary file can't be
// made. Deleting the writer discards what was written and leaves the path
// alone.
file_writer *CreateOutputFileWriter(char const *FileName);
// Flushes, puts the file in place and frees the writer; on failure the old
// file stays and nothing is left behind. True when the output is in place.
bool CommitOutputFileWriter(file_writer *Writer);

// True when both paths name the same file (device and inode, links
// followed). False if either is missing.
bool IsSameFile(char const *PathA, char const *PathB);
