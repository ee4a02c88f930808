// The log: levels, numbered categories, a per-category filter and
// optional sinks (a log file and/or a callback). The library installs no
// sink; a host or the command-line program may.
#pragma once

#include "foundation/tessel_types.h"

enum log_level
{
    LogLevel_None = 0,
    LogLevel_Warning = 2,
    LogLevel_Error = 3,
};

// Category numbers are part of the log contract and never change.
enum log_category
{
    LogCategory_DataTypeWarnings = 0,
    LogCategory_Platform = 3,
    LogCategory_ExportDriver = 12,
    LogCategory_FileWriting = 16,
    LogCategory_FileReading = 17,
    LogCategory_Exporter = 18,
    LogCategory_Compression = 19,
    LogCategory_Strings = 20,
    LogCategory_StringTable = 21,
    LogCategory_MeshBuilder = 22,
    LogCategory_TriTopology = 23,
    LogCategory_Skeleton = 25,
    LogCategory_AnimationBinding = 26,
    LogCategory_Textures = 28,
    LogCategory_BSpline = 29,
    LogCategory_PointerHash = 30,
    LogCategory_DataTypes = 33,
    LogCategory_Retargeting = 36,
    LogCategory_StackAllocator = 37,
    LogCategory_LocalPose = 41,
    LogCategory_WorldPose = 42,
    LogCategory_ControlledAnimation = 44,
    LogCategory_BasisConversion = 46,
    LogCategory_Memory = 48,
    LogCategory_Curves = 53,
    LogCategory_TrackGroups = 54,
    LogCategory_MemoryArena = 59,
    LogCategory_FileOperations = 60,
    // The FBX front end has no number in the historical table; it uses its own.
    LogCategory_FBX = 61,

    LogCategory_Count = 64
};

// Receives the message text without the "file(line): " prefix.
typedef void (*log_callback)(int32 Level, int32 Category, char const *File, int32 Line, char const *Message,
                             void *UserData);

// Formats with the Tessel formatter (see tessel_string.h), prefixes
// "%s(%d): " with File and Line, and hands the text to the sinks. A no-op when
// Level is 0, the category is filtered, or no sink is installed.
void Log(int32 Level, int32 Category, char const *File, int32 Line, char const *Format, ...);

// Any thread may log at any time. The sinks receive one message at a time
// (a callback need not be reentrant from several threads), on the thread
// that logged it.
//
// Sinks. Passing null removes the sink.
void SetLogCallback(log_callback Callback, void *UserData);
void SetLogFileName(char const *FileName);
// One byte per category; 0 lets messages through (the default for all).
void SetLogCategoryFilter(int32 Category, uint8 Filtered);

#define TesselLog(Level, Category, ...) Log((Level), (Category), __FILE__, __LINE__, __VA_ARGS__)
#define TesselError(Category, ...) Log(LogLevel_Error, (Category), __FILE__, __LINE__, __VA_ARGS__)
#define TesselWarning(Category, ...) Log(LogLevel_Warning, (Category), __FILE__, __LINE__, __VA_ARGS__)

// Precondition checks: log at level 3 and return the given value. They are
// soft assertions; the caller chains the result.
#define CheckPointer(Pointer, Category, ReturnValue)                                                                   \
    do {                                                                                                               \
        if (!(Pointer)) {                                                                                              \
            TesselError((Category), "%s is not allowed to be NULL", #Pointer);                                         \
            return ReturnValue;                                                                                        \
        }                                                                                                              \
    } while (0)

#define CheckCondition(Condition, Category, ReturnValue)                                                               \
    do {                                                                                                               \
        if (!(Condition)) {                                                                                            \
            TesselError((Category), "%s was not true", #Condition);                                                    \
            return ReturnValue;                                                                                        \
        }                                                                                                              \
    } while (0)

// Index in [0, Count).
#define CheckIndex(Index, Count, Category, ReturnValue)                                                                \
    do {                                                                                                               \
        if ((Index) < 0 || (Index) >= (Count)) {                                                                       \
            TesselError((Category), "%s %d is out of range [0, %d)", #Index, (int32)(Index), (int32)(Count));          \
            return ReturnValue;                                                                                        \
        }                                                                                                              \
    } while (0)

// Value in [Low, High], both inclusive.
#define CheckRange(Value, Low, High, Category, ReturnValue)                                                            \
    do {                                                                                                               \
        if ((Value) < (Low) || (Value) > (High)) {                                                                     \
            TesselError((Category), "%s %d is out of range [%d, %d]", #Value, (int32)(Value), (int32)(Low),            \
                        (int32)(High));                                                                                \
            return ReturnValue;                                                                                        \
        }                                                                                                              \
    } while (0)

// Narrowing a 64-bit size to 32 bits.
#define CheckConvertToInt32(Destination, Source, Category, ReturnValue)                                                \
    do {                                                                                                               \
        int64 CheckedValue_ = (int64)(Source);                                                                         \
        if (CheckedValue_ < INT32_MIN || CheckedValue_ > INT32_MAX) {                                                  \
            TesselError((Category), "%s %I64d is out of range for int%d %s", #Source, CheckedValue_, 32,               \
                        #Destination);                                                                                 \
            return ReturnValue;                                                                                        \
        }                                                                                                              \
        (Destination) = (int32)CheckedValue_;                                                                          \
    } while (0)

#define TESSEL_NOTHING
