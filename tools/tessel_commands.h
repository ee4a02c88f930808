// Commands of the tessel command-line program. Each returns the process exit
// status; Arguments start after the command's name.
#pragma once

int RunExportCommand(int ArgumentCount, char **Arguments);
int RunSettingsCommand(int ArgumentCount, char **Arguments);
int RunInspectCommand(int ArgumentCount, char **Arguments);
int RunConvertCommand(int ArgumentCount, char **Arguments);
int RunAnimReportCommand(int ArgumentCount, char **Arguments);

// True when Arguments hold "--help" or "-h".
bool WantsHelp(int ArgumentCount, char **Arguments);

// `tessel inspect` detects the file's kind and hands over to one of these.
// Options are the command's remaining arguments (--json, --vertices N, ...).
int InspectTS2File(char const *Path, int ArgumentCount, char **Arguments);
int InspectFBXFile(char const *Path, int ArgumentCount, char **Arguments);
