// Operations on finished triangle data: index widths and winding.
#pragma once

#include "format/tessel_schema.h"

// Widths are 1, 2 or 4 bytes. Widening zero-extends; narrowing keeps the low
// bytes (the caller makes sure the values fit) and may run in place.
void ConvertIndices(int32 IndexCount, int32 FromBytesPerIndex, void const *FromIndices, int32 ToBytesPerIndex,
                    void *ToIndices);

// Reverses every triangle (x0 x1 x2 becomes x2 x1 x0) in both index lists
// and keeps SideToNeighborMap true of the new side order.
void InvertTriTopologyWinding(tri_topology *Topology);
