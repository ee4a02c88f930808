#include "settings/tessel_setting_ids.h"

#include <algorithm>
#include <atomic>
#include <iterator>

#include "foundation/tessel_log.h"

// Every setting id of the definitions, ascending.
static int32 const DefinedSettingIds[] = {
    2,     7,     8,     11,    12,    13,    14,    15,    16,    19,    24,    27,    28,    36,    52,    53,
    55,    56,    58,    59,    61,    62,    66,    67,    68,    70,    74,    75,    76,    77,    79,    80,
    81,    82,    83,    84,    85,    86,    87,    88,    89,    90,    91,    92,    93,    94,    95,    97,
    98,    99,    100,   101,   102,   103,   104,   105,   106,   114,   115,   117,   118,   120,   121,   123,
    125,   126,   127,   128,   129,   130,   131,   132,   136,   143,   144,   145,   146,   147,   148,   149,
    150,   151,   152,   153,   154,   155,   156,   157,   158,   159,   160,   161,   162,   163,   165,   166,
    173,   174,   185,   186,   188,   189,   190,   191,   192,   193,   194,   195,   196,   197,   198,   199,
    200,   201,   202,   203,   204,   205,   206,   207,   210,   211,   212,   219,   220,   221,   222,   223,
    224,   225,   226,   227,   228,   229,   230,   231,   232,   233,   234,   235,   237,   242,   243,   244,
    245,   246,   247,   248,   251,   252,   253,   254,   255,   65537, 65538, 65539, 65540, 65541, 65542, 65543,
    65544, 65545, 65546, 65547, 65548, 65549, 65550, 65553, 65554, 65555, 65556, 65557, 65558, 65559, 65560, 65561,
    65562, 65563, 65564, 65565, 65566, 65567, 65568,
};

bool IsDefinedSettingId(int32 Id)
{
    return std::binary_search(std::begin(DefinedSettingIds), std::end(DefinedSettingIds), Id);
}

// One bit per id below the limit, so that each is reported once.
enum
{
    ReportedIdLimit = 1 << 16,
};
static std::atomic<uint32> ReportedIds[ReportedIdLimit / 32];

void ReportUndefinedSettingId(int32 Id)
{
    if (IsDefinedSettingId(Id)) return;
    if (Id >= 0 && Id < ReportedIdLimit) {
        uint32 Bit = 1u << (Id % 32);
        if (ReportedIds[Id / 32].fetch_or(Bit, std::memory_order_relaxed) & Bit) return;
    }
    TesselError(LogCategory_Exporter, "Setting id %d is asked for but no settings define it: it reads as 0", Id);
}
