// tessel export IN OUT [--animdefs FILE] [--settings FILE] [--threads N]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include <rapidxml/rapidxml.hpp>

#include "animation/tessel_compression_queue.h"
#include "fbx_tool/fbx_tessel.h"
#include "foundation/tessel_log.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "tessel_commands.h"

static void PrintExportUsage(FILE *Stream)
{
    fprintf(Stream, "usage: tessel export INPUT.fbx OUTPUT.ts2 [--animdefs FILE] [--settings FILE] [--threads N]\n"
                    "\n"
                    "Converts an FBX scene (binary or ASCII, FBX 6 or 7) to a TS2 file.\n"
                    "\n"
                    "options:\n"
                    "  --animdefs FILE  XML file whose <AnimationDef name=\"...\" start=\"N\" end=\"N\"/>\n"
                    "                   elements cut the timeline into named animations; without it\n"
                    "                   every take becomes one animation\n"
                    "  --settings FILE  settings file to apply before the export (see 'tessel settings')\n"
                    "  --threads N      curve fitting workers, 1 to 64 (default: the processor count,\n"
                    "                   at most 8); the file is the same for any N\n"
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

// A regular file that can be opened; FIFOs and devices are refused before
// anything would wait on them.
static bool IsReadableFile(char const *Path)
{
    return FileExists(Path) && access(Path, R_OK) == 0;
}

// Everything that can be judged before the scene is read: inputs that are
// regular files, an output that is none of them, a settings file that is
// whole. False when the export must not start (the reason printed).
static bool CheckExportPaths(char const *InputPath, char const *OutputPath, char const *AnimationDefPath,
                             char const *SettingsPath)
{
    struct
    {
        char const *Path;
        char const *What;
    } const Inputs[] = {
        {InputPath, "input file"}, {AnimationDefPath, "AnimationDef file"}, {SettingsPath, "settings file"}};
    for (auto const &Input : Inputs) {
        if (!Input.Path) continue;
        if (!IsReadableFile(Input.Path)) {
            fprintf(stderr, "tessel export: cannot read %s %s%s\n", Input.What, Input.Path,
                    access(Input.Path, F_OK) == 0 ? " (not a regular file)" : "");
            return false;
        }
        if (IsSameFile(Input.Path, OutputPath)) {
            fprintf(stderr, "tessel export: the output %s is the %s itself; refusing to overwrite it\n", OutputPath,
                    Input.What);
            return false;
        }
    }
    if (!CheckOutputPath(OutputPath)) return false;
    if (SettingsPath) {
        // The library falls back to defaults on a damaged file; the command
        // line refuses it, so that a half-applied file never goes unnoticed.
        settings_pools Pools;
        bool Whole = false;
        if (InitializeSettingsPools(Pools)) {
            settings_node *Root = BuildDefaultSettingsTree(Pools);
            Whole = Root && LoadSettingsFileStrictly(Root, SettingsPath);
            FreeSettingsPools(Pools);
        }
        if (!Whole) {
            fprintf(stderr, "tessel export: settings file %s is damaged or unreadable; nothing exported\n",
                    SettingsPath);
            return false;
        }
    }
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
        } else if (strcmp(Argument, "--threads") == 0) {
            char *End = 0;
            long Count = Index + 1 < ArgumentCount ? strtol(Arguments[Index + 1], &End, 10) : 0;
            if (!End || *End || Count < 1 || Count > 64) {
                fprintf(stderr, "tessel export: --threads needs a number from 1 to 64\n");
                return 2;
            }
            SetCompressionThreadCount((int32)Count);
            ++Index;
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

    memset(&Display, 0, sizeof(Display));
    Display.Terminal = isatty(fileno(stderr)) != 0;
    SetLogCallback(ShowLogMessage, 0);
    if (!CheckExportPaths(InputPath, OutputPath, AnimationDefPath, SettingsPath)) {
        SetLogCallback(0, 0);
        return 1;
    }

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
