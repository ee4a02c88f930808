// The log and its sinks.
#include "foundation/tessel_log.h"

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <mutex>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_string.h"

namespace {

// Any thread may log. Each message is formatted on the logging thread's own
// stack; the filters are atomics; the sinks sit behind one lock, which also
// hands them one whole message at a time. The lock is recursive because a
// sink may log (a failed append to the log file does).
std::atomic<uint8> CategoryFilter[LogCategory_Count];
std::recursive_mutex SinkLock;
log_callback Callback;  // under SinkLock
void *CallbackUserData; // under SinkLock
char LogFileName[1024]; // under SinkLock
std::atomic<bool> HaveSink{false};
// Set while this thread appends to the log file, so that a message about a
// failed append goes to the callback only.
thread_local bool WritingLogFile = false;

int32 const LogTextSize = 4096;

void UpdateHaveSink()
{
    HaveSink.store(Callback != 0 || LogFileName[0] != 0, std::memory_order_release);
}

} // namespace

void SetLogCallback(log_callback NewCallback, void *UserData)
{
    std::lock_guard<std::recursive_mutex> Lock(SinkLock);
    Callback = NewCallback;
    CallbackUserData = UserData;
    UpdateHaveSink();
}

void SetLogFileName(char const *FileName)
{
    std::lock_guard<std::recursive_mutex> Lock(SinkLock);
    LogFileName[0] = 0;
    if (FileName) CopyStringMaximum(LogFileName, (int32)sizeof(LogFileName), FileName);
    UpdateHaveSink();
}

void SetLogCategoryFilter(int32 Category, uint8 Filtered)
{
    if (Category >= 0 && Category < LogCategory_Count)
        CategoryFilter[Category].store(Filtered, std::memory_order_relaxed);
}

void Log(int32 Level, int32 Category, char const *File, int32 Line, char const *Format, ...)
{
    if (Level == LogLevel_None) return;
    if (Category >= 0 && Category < LogCategory_Count &&
        CategoryFilter[Category].load(std::memory_order_relaxed) != 0) {
        return;
    }
    if (!HaveSink.load(std::memory_order_acquire)) return;

    char Text[LogTextSize];
    int32 PrefixLength = ConvertToStringArgs(LogTextSize, Text, "%s(%d): ", File, Line);
    va_list Arguments;
    va_start(Arguments, Format);
    ConvertToStringVar(LogTextSize - PrefixLength, Text + PrefixLength, Format, Arguments);
    va_end(Arguments);

    std::lock_guard<std::recursive_mutex> Lock(SinkLock);
    if (LogFileName[0] != 0 && !WritingLogFile) {
        WritingLogFile = true;
        AppendStringToFile(LogFileName, Text);
        WritingLogFile = false;
    }
    if (Callback) Callback(Level, Category, File, Line, Text + PrefixLength, CallbackUserData);
}
