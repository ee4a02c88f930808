#include "support/test_log_capture.h"

#include "foundation/tessel_memory.h"

static void CaptureCallback(int32 Level, int32 Category, char const *, int32, char const *Message, void *UserData)
{
    ((log_capture *)UserData)->Entries.push_back({Level, Category, Message});
}

log_capture::log_capture()
{
    SetLogCallback(CaptureCallback, this);
}
log_capture::~log_capture()
{
    SetLogCallback(0, 0);
}

bool log_capture::Contains(std::string const &Fragment) const
{
    return CountContaining(Fragment) > 0;
}

int log_capture::CountContaining(std::string const &Fragment) const
{
    int Count = 0;
    for (entry const &Entry : Entries) Count += Entry.Text.find(Fragment) != std::string::npos;
    return Count;
}

int32 LiveBlocks()
{
    return GetLiveBlockCount();
}
