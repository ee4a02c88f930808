// The platform layer: what Tessel needs of the operating system. POSIX
// implementation; everything above it is portable.
#pragma once

#include "foundation/tessel_types.h"

// Platform heap beneath the tracking allocator.
void *PlatformAllocate(intaddrx Size);
void PlatformFree(void *Memory);

// The temporary directory, computed once: $TMPDIR if set, else /tmp; no
// trailing slash.
char const *GetTemporaryDirectory();

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
