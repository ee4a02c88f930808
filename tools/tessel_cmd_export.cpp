// tessel export
#include <cstdio>

#include "tessel_commands.h"

int RunExportCommand(int ArgumentCount, char **Arguments)
{
    fprintf(stderr, "tessel export: not available yet\n");
    return 1;
}
