// tessel settings
#include <cstdio>

#include "tessel_commands.h"

int RunSettingsCommand(int ArgumentCount, char **Arguments)
{
    fprintf(stderr, "tessel settings: not available yet\n");
    return 1;
}
