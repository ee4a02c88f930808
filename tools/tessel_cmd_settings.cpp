// tessel settings: list the export settings, or write a settings file with
// some of them changed.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "foundation/tessel_log.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_settings_text.h"
#include "tessel_commands.h"

static void PrintSettingsHelp(FILE *Stream)
{
    fprintf(Stream, "usage: tessel settings [--read FILE] [--set \"Label=value\" ...] [--write FILE] [--verbose]\n"
                    "\n"
                    "Without --write, prints every export setting: category, label, id, kind,\n"
                    "current value and range. With --write, writes a settings file holding the\n"
                    "defaults with the --set values applied; 'tessel export --settings FILE'\n"
                    "uses it.\n"
                    "\n"
                    "options:\n"
                    "  --read FILE         start from the values of an existing settings file\n"
                    "  --set Label=value   change one setting (repeatable). Checkboxes take on/off,\n"
                    "                      numbers a decimal in range, sliders a position in range,\n"
                    "                      comboboxes a choice label or id. A label used in several\n"
                    "                      places is qualified by what contains it, outermost first,\n"
                    "                      separated by ':', e.g. \"Meshes:Include data in export\" or\n"
                    "                      \"Alpha:Zent1 still-image compression with alpha channel:Compression\"\n"
                    "  --write FILE        write the settings file; nothing is written on any error\n"
                    "  --verbose           with the listing, print each setting's help text\n"
                    "\n"
                    "examples:\n"
                    "  tessel settings --write fast.tss --set \"File compression=No compression\"\n"
                    "  tessel settings --write ppc.tss --set \"File platform=32-bit, big endian\" \\\n"
                    "      --set \"Object alignment=4\"\n");
}

static void PrintLogMessage(int32 Level, int32 Category, char const *File, int32 Line, char const *Message,
                            void *UserData)
{
    if (Level >= LogLevel_Warning) fprintf(stderr, "tessel settings: %s\n", Message);
}

static std::string PreviousChoices;

static void PrintRequester(requester const *Requester, int32 Indent, bool Verbose)
{
    char Value[256], Range[2048];
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (Setting->Kind == SettingKind_Spacer) {
            printf("\n");
            continue;
        }
        FormatSettingValue(Setting, Value, sizeof(Value));
        FormatSettingRange(Setting, Range, sizeof(Range));
        int32 LabelWidth = 44 - Indent;
        bool IsCombobox = Setting->Kind == SettingKind_Combobox;
        printf("%*s%-*s %6d  %-9s %-12s %s\n", Indent, "", LabelWidth < 1 ? 1 : LabelWidth, Setting->Label, Setting->Id,
               GetSettingKindName(Setting->Kind), Value, IsCombobox ? "" : Range);
        // The choices on a line of their own, left out when they repeat the
        // previous list (the section comboboxes all share theirs).
        if (IsCombobox && PreviousChoices != Range) {
            printf("%*s    choices: %s\n", Indent, "", Range);
            PreviousChoices = Range;
        }
        if (Verbose && Setting->Help && *Setting->Help) printf("%*s    %s\n", Indent, "", Setting->Help);

        if (Setting->Kind != SettingKind_Combobox || !Setting->Value.Combobox.List) continue;
        for (requester const *Choice = Setting->Value.Combobox.List->FirstChild; Choice; Choice = Choice->NextSibling) {
            if (!Choice->FirstSetting) continue;
            printf("%*s  [%s]%s\n", Indent, "", Choice->Label,
                   Choice == Setting->Value.Combobox.Current ? " (current)" : "");
            PrintRequester(Choice, Indent + 4, Verbose);
        }
    }
}

static void PrintTree(settings_node const *Node, bool Verbose)
{
    for (; Node; Node = Node->NextSibling) {
        if (Node->Requester) {
            printf("%s  (\"%s\", id %d)\n", Node->Name, Node->Requester->Label, Node->Requester->Id);
            PrintRequester(Node->Requester, 2, Verbose);
            printf("\n");
        }
        PrintTree(Node->FirstChild, Verbose);
    }
}

int RunSettingsCommand(int ArgumentCount, char **Arguments)
{
    if (WantsHelp(ArgumentCount, Arguments)) {
        PrintSettingsHelp(stdout);
        return 0;
    }
    char const *ReadPath = nullptr;
    char const *WritePath = nullptr;
    bool Verbose = false;
    std::vector<char const *> Assignments;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        bool HasValue = Index + 1 < ArgumentCount;
        if (strcmp(Argument, "--read") == 0 && HasValue) {
            ReadPath = Arguments[++Index];
        } else if (strcmp(Argument, "--write") == 0 && HasValue) {
            WritePath = Arguments[++Index];
        } else if (strcmp(Argument, "--set") == 0 && HasValue) {
            Assignments.push_back(Arguments[++Index]);
        } else if (strncmp(Argument, "--set=", 6) == 0) {
            Assignments.push_back(Argument + 6);
        } else if (strcmp(Argument, "--verbose") == 0) {
            Verbose = true;
        } else {
            fprintf(stderr, "tessel settings: unknown or incomplete argument '%s'\n\n", Argument);
            PrintSettingsHelp(stderr);
            return 2;
        }
    }

    SetLogCallback(PrintLogMessage, nullptr);
    settings_pools Pools;
    if (!InitializeSettingsPools(Pools)) return 1;
    int Status = 0;
    settings_node *Root = BuildDefaultSettingsTree(Pools);
    if (!Root) {
        fprintf(stderr, "tessel settings: unable to build the settings tree\n");
        Status = 1;
    }
    if (Status == 0 && ReadPath && !LoadSettingsFileStrictly(Root, ReadPath)) {
        fprintf(stderr, "tessel settings: settings file %s is damaged or unreadable\n", ReadPath);
        Status = 1;
    }
    for (size_t Index = 0; Status == 0 && Index < Assignments.size(); ++Index) {
        char Error[2048];
        if (!ApplySettingAssignment(Root, Assignments[Index], Error, sizeof(Error))) {
            fprintf(stderr, "tessel settings: %s\n", Error);
            Status = 1;
        }
    }
    if (Status == 0) {
        if (WritePath) {
            if (!WriteSettingsFile(Root, WritePath)) {
                fprintf(stderr, "tessel settings: unable to write %s\n", WritePath);
                Status = 1;
            }
        } else {
            PrintTree(Root, Verbose);
        }
    }
    FreeSettingsPools(Pools);
    SetLogCallback(nullptr, nullptr);
    return Status;
}
