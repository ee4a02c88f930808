// The Trove1 decoder: expands the coded streams of a section, one parameter
// record per stream, up to the given stream ends.
#pragma once

#include "foundation/tessel_types.h"

// Compressed holds CompressedSize bytes: the three parameter records (in
// the file's byte order; ByteReverse when that is the other one) and the
// coded bytes. Stops are the ends of the three streams in Result. False on
// any inconsistency; never touches memory outside the two buffers.
bool DecodeTroveSection(bool ByteReverse, int32 CompressedSize, void const *Compressed, uint32 const Stops[3],
                        uint8 *Result);
