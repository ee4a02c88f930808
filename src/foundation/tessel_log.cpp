// The log and its sinks.
#include "foundation/tessel_log.h"

#include <cstdarg>
#include <cstring>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_string.h"

namespace {

uint8 CategoryFilter[LogCategory_Count];
log_callback Callback;
void *CallbackUserData;
char LogFileName[1024];
bool LogFileActive = true;
char LogBuffer[4096];

} // namespace

void SetLogCallback(log_callback NewCallback, void *UserData)
{
    Callback = NewCallback;
    CallbackUserData = UserData;
}

void SetLogFileName(char const *FileName)
{
    LogFileName[0] = 0;
    if (FileName) CopyStringMaximum(LogFileName, (int32)sizeof(LogFileName), FileName);
}

void SetLogCategoryFilter(int32 Category, uint8 Filtered)
{
    if (Category >= 0 && Category < LogCategory_Count) CategoryFilter[Category] = Filtered;
}

void Log(int32 Level, int32 Category, char const *File, int32 Line, char const *Format, ...)
{
    if (Level == LogLevel_None) return;
    if (Category >= 0 && Category < LogCategory_Count && CategoryFilter[Category] != 0) return;
    bool WantFile = LogFileName[0] != 0 && LogFileActive;
    if (!WantFile && !Callback) return;

    int32 PrefixLength = ConvertToStringArgs((int32)sizeof(LogBuffer), LogBuffer, "%s(%d): ", File, Line);
    va_list Arguments;
    va_start(Arguments, Format);
    ConvertToStringVar((int32)sizeof(LogBuffer) - PrefixLength, LogBuffer + PrefixLength, Format, Arguments);
    va_end(Arguments);

    if (WantFile) {
        LogFileActive = false;
        AppendStringToFile(LogFileName, LogBuffer);
        LogFileActive = true;
    }
    if (Callback) Callback(Level, Category, File, Line, LogBuffer + PrefixLength, CallbackUserData);
}
