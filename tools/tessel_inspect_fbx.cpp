// tessel inspect for FBX files.
#include <cstdio>

#include "tessel_commands.h"

int InspectFBXFile(char const *Path, int ArgumentCount, char **Arguments)
{
    fprintf(stderr, "tessel inspect: reading FBX files is not available yet\n");
    return 1;
}
