// AnimationDef files: any bytes either parse, fail or raise the parser's
// exception, and leave no memory behind.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <rapidxml/rapidxml.hpp>

#include "fbx_tool/fbx_tessel.h"
#include "foundation/tessel_memory.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *Data, size_t Size)
{
    if (Size > (1 << 20)) return 0;
    int32 Before = GetLiveBlockCount();
    char *Text = (char *)TesselAllocate((intaddrx)Size + 1);
    if (!Text) return 0;
    memcpy(Text, Data, Size);
    Text[Size] = 0;
    animation_def *Defs = nullptr;
    int32 Count = 0;
    try {
        if (ParseAnimationDefText(Text, &Defs, &Count)) {
            for (int32 Index = 0; Index < Count; ++Index) {
                if (!Defs[Index].Name || Defs[Index].StartFrame < 0 || Defs[Index].EndFrame < 0) abort();
            }
            FreeAnimationDefs(Defs, Count);
        }
    } catch (rapidxml::parse_error const &Error) {
        char const *Where = Error.where<char>();
        if (Where < Text || Where > Text + Size) abort();
    }
    TesselFree(Text);
    if (GetLiveBlockCount() != Before) abort();
    return 0;
}
