#include "geometry/tessel_tri_topology.h"

#include <cstring>

#include "foundation/tessel_log.h"

static bool IsIndexWidth(int32 Width)
{
    return Width == 1 || Width == 2 || Width == 4;
}

static uint32 ReadIndex(uint8 const *Indices, int32 Width, int32 Index)
{
    switch (Width) {
    case 1: return Indices[Index];
    case 2: {
        uint16 Value;
        memcpy(&Value, Indices + Index * 2, 2);
        return Value;
    }
    default: {
        uint32 Value;
        memcpy(&Value, Indices + Index * 4, 4);
        return Value;
    }
    }
}

static void WriteIndex(uint8 *Indices, int32 Width, int32 Index, uint32 Value)
{
    switch (Width) {
    case 1: Indices[Index] = (uint8)Value; break;
    case 2: {
        uint16 Narrow = (uint16)Value;
        memcpy(Indices + Index * 2, &Narrow, 2);
        break;
    }
    default: memcpy(Indices + Index * 4, &Value, 4); break;
    }
}

void ConvertIndices(int32 IndexCount, int32 FromBytesPerIndex, void const *FromIndices, int32 ToBytesPerIndex,
                    void *ToIndices)
{
    if (!IsIndexWidth(FromBytesPerIndex)) {
        TesselError(LogCategory_TriTopology, "Illegal value for FromBytesPerIndex (%d)", FromBytesPerIndex);
        return;
    }
    if (!IsIndexWidth(ToBytesPerIndex)) {
        TesselError(LogCategory_TriTopology, "Illegal value for ToBytesPerIndex (%d)", ToBytesPerIndex);
        return;
    }
    if (IndexCount <= 0) return;
    uint8 const *From = (uint8 const *)FromIndices;
    uint8 *To = (uint8 *)ToIndices;
    if (FromBytesPerIndex == ToBytesPerIndex) {
        memmove(To, From, (size_t)IndexCount * (size_t)FromBytesPerIndex);
    } else if (ToBytesPerIndex < FromBytesPerIndex) {
        for (int32 Index = 0; Index < IndexCount; ++Index)
            WriteIndex(To, ToBytesPerIndex, Index, ReadIndex(From, FromBytesPerIndex, Index));
    } else {
        for (int32 Index = IndexCount - 1; Index >= 0; --Index)
            WriteIndex(To, ToBytesPerIndex, Index, ReadIndex(From, FromBytesPerIndex, Index));
    }
}

template <typename index_type>
static void SwapFirstAndLast(int32 Count, index_type *Indices)
{
    for (int32 First = 0; First + 3 <= Count; First += 3) {
        index_type Swap = Indices[First];
        Indices[First] = Indices[First + 2];
        Indices[First + 2] = Swap;
    }
}

void InvertTriTopologyWinding(tri_topology *Topology)
{
    CheckPointer(Topology, LogCategory_TriTopology, TESSEL_NOTHING);
    if (Topology->Indices) SwapFirstAndLast(Topology->IndexCount, Topology->Indices);
    if (Topology->Indices16) SwapFirstAndLast(Topology->Index16Count, Topology->Indices16);
    int32 *Map = Topology->SideToNeighborMap;
    if (!Map) return;
    for (int32 First = 0; First + 3 <= Topology->SideToNeighborCount; First += 3) {
        int32 Swap = Map[First];
        Map[First] = Map[First + 1];
        Map[First + 1] = Swap;
        for (int32 Side = First; Side < First + 3; ++Side) {
            int32 Corner = Map[Side] & 3;
            if (Corner == 0)
                Map[Side] = (Map[Side] & ~3) | 1;
            else if (Corner == 1)
                Map[Side] = Map[Side] & ~3;
        }
    }
}
