// tessel: the command-line face of the exporter.
#include <cstdio>
#include <cstring>

#include "tessel_commands.h"

struct command_entry
{
    char const *Name;
    int (*Run)(int ArgumentCount, char **Arguments);
    char const *Summary;
};

static command_entry const Commands[] = {
    {"export", RunExportCommand, "convert an FBX file to a TS2 file"},
    {"convert", RunConvertCommand, "write a TS2 file for another pointer size or byte order"},
    {"inspect", RunInspectCommand, "show what a TS2 or FBX file holds"},
    {"settings", RunSettingsCommand, "list the export settings or write a settings file"},
    {"anim-report", RunAnimReportCommand, "report bone animation bytes and world errors"},
};

bool WantsHelp(int ArgumentCount, char **Arguments)
{
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        if (strcmp(Arguments[Index], "--help") == 0 || strcmp(Arguments[Index], "-h") == 0) return true;
    }
    return false;
}

static void PrintUsage(FILE *Stream)
{
    fprintf(Stream, "usage: tessel <command> [arguments]\n\ncommands:\n");
    for (command_entry const &Command : Commands) {
        fprintf(Stream, "  %-12s %s\n", Command.Name, Command.Summary);
    }
    fprintf(Stream, "\n'tessel <command> --help' describes a command.\n");
}

int main(int ArgumentCount, char **Arguments)
{
    if (ArgumentCount < 2) {
        PrintUsage(stderr);
        return 2;
    }
    char const *Name = Arguments[1];
    if (strcmp(Name, "--help") == 0 || strcmp(Name, "-h") == 0 || strcmp(Name, "help") == 0) {
        PrintUsage(stdout);
        return 0;
    }
    for (command_entry const &Command : Commands) {
        if (strcmp(Name, Command.Name) == 0) return Command.Run(ArgumentCount - 2, Arguments + 2);
    }
    fprintf(stderr, "tessel: unknown command '%s'\n\n", Name);
    PrintUsage(stderr);
    return 2;
}
