// tessel export IN OUT [--animdefs FILE] [--settings FILE]
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <rapidxml/rapidxml.hpp>

#include "fbx_tool/fbx_tessel.h"
#include "foundation/tessel_log.h"
#include "platform/tessel_platform.h"
#include "tessel_commands.h"

static void PrintExportUsage(FILE *Stream)
{
    fprintf(Stream, "usage: tessel export INPUT.fbx OUTPUT.ts2 [--animdefs FILE] [--settings FILE]\n"
                    "\n"
                    "Converts an FBX scene (binary or ASCII, FBX 6 or 7) to a TS2 file.\n"
                    "\n"
                    "options:\n"
                    "  --animdefs FILE  XML file whose <AnimationDef name=\"...\" start=\"N\" end=\"N\"/>\n"
                    "                   elements cut the timeline into named animations; without it\n"
                    "                   every take becomes one animation\n"
                    "  --settings FILE  settings file to apply before the export (see 'tessel settings')\n"
                    "  -h, --help       show this text\n"
                    "\n"
                    "The exit status is 0 only when the output file was written.\n");
}

// Progress: a bar redrawn in place on a terminal, one line per stage
// otherwise.
struct progress_display
{
    bool Terminal;
    bool BarDrawn;
    bool TitleShown;
    char LastStage[64];
    uint32 StagePosition; // position when the stage began: older items belong to the stage before
};

static progress_display Display;

static void EndProgressBar()
{
    if (Display.BarDrawn) {
        fputc('\n', stderr);
        Display.BarDrawn = false;
    }
}

static void ShowProgress(export_progress const *Progress)
{
    char const *Stage = Progress->Stage ? Progress->Stage : "";
    bool NewStage = strncmp(Stage, Display.LastStage, sizeof(Display.LastStage) - 1) != 0;
    if (NewStage) {
        snprintf(Display.LastStage, sizeof(Display.LastStage), "%s", Stage);
        Display.StagePosition = Progress->Position;
    }

    if (!Display.Terminal) {
        if (Progress->Title && !Display.TitleShown) fprintf(stderr, "%s\n", Progress->Title);
        if (Progress->Title) Display.TitleShown = true;
        if (NewStage && Stage[0]) fprintf(stderr, "  %s\n", Stage);
        return;
    }
    enum
    {
        BarWidth = 30
    };
    uint32 Total = Progress->Total;
    uint32 Position = Progress->Position;
    if (Total && Position > Total) Position = Total;
    int Filled = Total ? (int)((uint64)Position * BarWidth / Total) : 0;
    int Percent = Total ? (int)((uint64)Position * 100 / Total) : 0;
    char Bar[BarWidth + 1];
    for (int Index = 0; Index < BarWidth; ++Index) Bar[Index] = Index < Filled ? '#' : '.';
    Bar[BarWidth] = 0;
    char const *Item = (Progress->Item && Progress->Position > Display.StagePosition) ? Progress->Item : "";
    fprintf(stderr, "\r\033[K[%s] %3d%% %s %.40s", Bar, Percent, Stage, Item);
    fflush(stderr);
    Display.BarDrawn = true;
}

static void ShowLogMessage(int32 Level, int32 Category, char const *File, int32 Line, char const *Message,
                           void *UserData)
{
    if (Level < LogLevel_Warning) return;
    EndProgressBar();
    fprintf(stderr, "tessel export: %s: %s\n", Level >= LogLevel_Error ? "error" : "warning", Message);
}

static bool IsReadableFile(char const *Path)
{
    FILE *File = fopen(Path, "rb");
    if (!File) return false;
    fclose(File);
    return true;
}

int RunExportCommand(int ArgumentCount, char **Arguments)
{
    if (WantsHelp(ArgumentCount, Arguments)) {
        PrintExportUsage(stdout);
        return 0;
    }
    char const *Paths[2] = {0, 0};
    int PathCount = 0;
    char const *AnimationDefPath = 0;
    char const *SettingsPath = 0;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        if (strcmp(Argument, "--animdefs") == 0 || strcmp(Argument, "--settings") == 0) {
            if (Index + 1 >= ArgumentCount) {
                fprintf(stderr, "tessel export: %s needs a file name\n", Argument);
                return 2;
            }
            (Argument[2] == 'a' ? AnimationDefPath : SettingsPath) = Arguments[++Index];
        } else if (Argument[0] == '-' && Argument[1]) {
            fprintf(stderr, "tessel export: unknown option '%s'\n\n", Argument);
            PrintExportUsage(stderr);
            return 2;
        } else if (PathCount < 2) {
            Paths[PathCount++] = Argument;
        } else {
            fprintf(stderr, "tessel export: too many arguments\n\n");
            PrintExportUsage(stderr);
            return 2;
        }
    }
    if (PathCount != 2) {
        PrintExportUsage(stderr);
        return 2;
    }
    char const *InputPath = Paths[0];
    char const *OutputPath = Paths[1];
    if (!IsReadableFile(InputPath)) {
        fprintf(stderr, "tessel export: cannot read input file %s\n", InputPath);
        return 1;
    }
    if (SettingsPath && !IsReadableFile(SettingsPath)) {
        fprintf(stderr, "tessel export: cannot read settings file %s\n", SettingsPath);
        return 1;
    }

    memset(&Display, 0, sizeof(Display));
    Display.Terminal = isatty(fileno(stderr)) != 0;
    SetLogCallback(ShowLogMessage, 0);

    export_options Options;
    Options.SourceFileToEmbed = 0;
    Options.ShowProgress = true;
    Options.SettingsFileName = SettingsPath;

    bool Accepted = false;
    bool Exported = false;
    try {
        Accepted = ExportFBXFileWithOptions(InputPath, OutputPath, AnimationDefPath, Options, ShowProgress, &Exported);
    } catch (rapidxml::parse_error const &Error) {
        EndProgressBar();
        SetLogCallback(0, 0);
        fprintf(stderr, "tessel export: malformed AnimationDef file %s, line %d: %s at '%s'\n", AnimationDefPath,
                (int)GetAnimationDefErrorLine(), Error.what(), Error.where<char>());
        return 1;
    }
    EndProgressBar();
    SetLogCallback(0, 0);

    if (!Accepted) {
        // The log has said why.
        fprintf(stderr, "tessel export: nothing exported\n");
        return 1;
    }
    if (!Exported || !FileExists(OutputPath)) {
        fprintf(stderr, "tessel export: export failed, no output file written to %s\n", OutputPath);
        return 1;
    }
    printf("wrote %s (%lld bytes)\n", OutputPath, (long long)GetFileSize(OutputPath));
    return 0;
}
