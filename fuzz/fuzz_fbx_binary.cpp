// Fuzz target: binary FBX through the field container. Inputs without the
// binary header get one, so that mutations stay in the record layer; the
// first byte after it picks the byte order and the record width.
#include <cstring>
#include <vector>

#include "fuzz_fbx_walk.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size >= 27 && ReadFbxBinaryHeader(Data, (int64)Size, 0, 0)) {
        FuzzFbxFields(Data, Size);
        return 0;
    }
    if (Size < 1) return 0;
    static char const Magic[] = "Kaydara FBX Binary  ";
    std::vector<uint8_t> Bytes(Magic, Magic + 21);
    Bytes.push_back(0x1A);
    uint8_t Mode = Data[0];
    bool BigEndian = (Mode & 1) != 0;
    uint32_t Version = (Mode & 2) ? 7500 : 7400;
    Bytes.push_back(BigEndian ? 1 : 0);
    for (int32 Index = 0; Index < 4; ++Index)
        Bytes.push_back((uint8_t)(Version >> (BigEndian ? 24 - 8 * Index : 8 * Index)));
    Bytes.insert(Bytes.end(), Data + 1, Data + Size);
    FuzzFbxFields(Bytes.data(), Bytes.size());
    return 0;
}
