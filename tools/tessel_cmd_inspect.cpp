// tessel inspect
#include <cstdio>

#include "tessel_commands.h"

int RunInspectCommand(int ArgumentCount, char **Arguments)
{
    fprintf(stderr, "tessel inspect: not available yet\n");
    return 1;
}
