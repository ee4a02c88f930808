// Linked into every test program: the tests keep the list of live blocks
// (which optimised builds leave off), so that a leak report names the line
// that allocated the block.
#include "foundation/tessel_memory.h"

namespace {

struct allocation_tracking_on
{
    allocation_tracking_on() { SetAllocationTracking(true); }
} AllocationTrackingOn;

} // namespace
