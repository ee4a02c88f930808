// Collects log messages during a test (installs the log callback while alive).
#pragma once

#include <string>
#include <vector>

#include "foundation/tessel_log.h"

struct log_capture
{
    struct entry
    {
        int32 Level;
        int32 Category;
        std::string Text;
    };
    std::vector<entry> Entries;

    log_capture();
    ~log_capture();
    bool Contains(std::string const &Fragment) const;
    int CountContaining(std::string const &Fragment) const;
};

// Live tracked blocks right now; tests compare before and after.
int32 LiveBlocks();
