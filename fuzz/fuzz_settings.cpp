// Settings files of any content: reading never crashes, and what a read
// leaves in the tree writes out and reads back to the same bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/tessel_memory.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"

static uint8 *Serialize(settings_node const *Root, int32 *Size)
{
    return WriteSettingsToMemory(Root, Size);
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size > (1u << 20)) return 0;
    settings_pools Pools;
    if (!InitializeSettingsPools(Pools)) return 0;
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    if (!Root) abort();
    ReadNodeBlock(Root, Data, (int32)Size);
    // The same bytes as a single requester block, as an object's stored block.
    ReadRequesterBlock(Root->FirstChild->Requester, Data, (int32)Size);

    int32 FirstSize = 0;
    uint8 *First = Serialize(Root, &FirstSize);
    settings_node *Again = BuildDefaultSettingsTree(Pools);
    if (!First || !Again || ReadNodeBlock(Again, First, FirstSize) != FirstSize) abort();
    int32 SecondSize = 0;
    uint8 *Second = Serialize(Again, &SecondSize);
    if (!Second || SecondSize != FirstSize || memcmp(First, Second, (size_t)FirstSize) != 0) abort();
    TesselFree(First);
    TesselFree(Second);
    FreeSettingsPools(Pools);
    return 0;
}
