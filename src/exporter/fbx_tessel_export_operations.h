// The export driver: opens the output, runs the scene export into it and
// packages the file.
#pragma once

#include "foundation/tessel_types.h"
#include "tessel/tessel.h"

struct tool_interface;

struct export_options
{
    char const *SourceFileToEmbed; // bytes stored in the file's ExtendedData
    bool ShowProgress;
    char const *SettingsFileName; // settings file applied before the export
};

enum
{
    ExportSectionCount = 8,
    ExportFileTypeTag = (int32)0x80000031,
    ExportPlatformBlockSize = 32,
};

// Runs one export of Tool's scene to OutputPath. True when the file was
// written. Never throws.
bool RunExport(tool_interface *Tool, char const *OutputPath, export_options const *Options,
               ExportProgressCallback ProgressCallback);

// The 32-byte platform block for a choice of "File platform"; any unknown
// choice gives the native block.
uint8 const *GetExportPlatformBlock(int32 Choice);
// Section format for a choice of "File compression": 0 none, 2 Trove1.
int32 GetExportCompression(int32 Choice);
