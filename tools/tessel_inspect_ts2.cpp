// tessel inspect for TS2 files.
#include <cstdio>

#include "tessel_commands.h"

int InspectTS2File(char const *Path, int ArgumentCount, char **Arguments)
{
    fprintf(stderr, "tessel inspect: reading TS2 files is not available yet\n");
    return 1;
}
