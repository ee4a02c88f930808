// Fuzz target: ASCII FBX through the field container.
#include "fuzz_fbx_walk.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size >= 27 && ReadFbxBinaryHeader(Data, (int64)Size, 0, 0)) return 0;
    FuzzFbxFields(Data, Size);
    return 0;
}
