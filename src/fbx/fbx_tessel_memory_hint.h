// A hint for large blocks of the FBX reader.
#pragma once

#include <cstdint>

#include "foundation/tessel_types.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

// Asks the system to back the whole 2 MB pages of a large, freshly allocated
// block with huge pages before it is first written: filling hundreds of
// megabytes of mesh data otherwise costs one page fault every 4 KB. Only a
// hint; the block stays the allocator's own.
inline void AdviseLargeBlock(void *Block, int64 Size)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    uintptr_t const HugePage = (uintptr_t)1 << 21;
    if (!Block || Size < (int64)(4 * HugePage)) return;
    uintptr_t First = ((uintptr_t)Block + HugePage - 1) & ~(HugePage - 1);
    uintptr_t End = ((uintptr_t)Block + (uintptr_t)Size) & ~(HugePage - 1);
    if (End > First) madvise((void *)First, End - First, MADV_HUGEPAGE);
#else
    (void)Block;
    (void)Size;
#endif
}
