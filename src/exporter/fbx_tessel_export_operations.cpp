#include "exporter/fbx_tessel_export_operations.h"

#include <cstring>

#include "exporter/tessel_export_progress.h"
#include "exporter/tessel_scene_parser.h"
#include "format/tessel_file_builder.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_version.h"
#include "settings/tessel_setting_ids.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui_tunneling.h"

static char const ExportTitle[] = "Tessel " TESSEL_VERSION_STRING " is Exporting a TS2 File";
static char const TemporaryFileRoot[] = "export_buffer";

// Magic value and 16 zero bytes per platform.
static uint8 const PlatformBlocks[][ExportPlatformBlockSize] = {
    // 64-bit little endian, this library's own platform
    {0xe5, 0x9b, 0x49, 0x5e, 0x6f, 0x63, 0x1f, 0x14, 0x1e, 0x13, 0xeb, 0xa9, 0x90, 0xbe, 0xed, 0xc4},
    // 32-bit little endian
    {0x29, 0xde, 0x6c, 0xc0, 0xba, 0xa4, 0x53, 0x2b, 0x25, 0xf5, 0xb7, 0xa5, 0xf6, 0x66, 0xe2, 0xee},
    // 32-bit big endian
    {0x0e, 0x11, 0x95, 0xb5, 0x6a, 0xa5, 0xb5, 0x4b, 0xeb, 0x28, 0x28, 0x50, 0x25, 0x78, 0xb3, 0x04},
    // 64-bit big endian
    {0x31, 0x95, 0xd4, 0xe3, 0x20, 0xdc, 0x4f, 0x62, 0xcc, 0x36, 0xd0, 0x3a, 0xb1, 0x82, 0xff, 0x89},
};

uint8 const *GetExportPlatformBlock(int32 Choice)
{
    switch (Choice) {
    case Choice_32BitLittleEndian: return PlatformBlocks[1];
    case Choice_32BitBigEndian: return PlatformBlocks[2];
    case Choice_64BitBigEndian: return PlatformBlocks[3];
    case Choice_Native:
    case Choice_64BitLittleEndian:
    default: return PlatformBlocks[0];
    }
}

int32 GetExportCompression(int32 Choice)
{
    if (Choice == Choice_Trove1Compression) return 2;
    return 0;
}

struct packaging_progress
{
    export_progress *Progress;
    int32 Start;
};

static void ReportPackaging(void *Data, int32 Done, int32 Total)
{
    packaging_progress *Packaging = (packaging_progress *)Data;
    AdvanceProgressTo(Packaging->Progress, (uint32)(Packaging->Start + Done));
}

// Opens the builder, runs the scene export and packages the file. Builder
// holds the open builder, so that the caller can abandon it after an
// exception; it is null again when this returns.
static bool WriteExportFile(scene_export_context *Context, requester *FileSettings, char const *OutputPath,
                            export_options const *Options, export_progress *Progress, file_builder *&Builder)
{
    file_magic_block Platform;
    memcpy(&Platform, GetExportPlatformBlock(GetSettingChoice(FileSettings, SettingId_FilePlatform)), sizeof(Platform));
    Builder =
        BeginFile(ExportSectionCount, (uint32)ExportFileTypeTag, Platform, GetTemporaryDirectory(), TemporaryFileRoot);
    bool Result = false;
    if (!Builder) {
        TesselError(LogCategory_ExportDriver, "Unable to create file writing buffer.");
    } else {
        int32 Compression = GetExportCompression(GetSettingChoice(FileSettings, SettingId_FileCompression));
        int32 ObjectAlignment = GetSettingInt(FileSettings, SettingId_ObjectAlignment);
        int32 VertexAlignment = GetSettingInt(FileSettings, SettingId_VertexObjectAlignment);
        // Section 5 holds pixel data and keeps the builder's own format.
        SetFileSectionFormat(Builder, 0, Compression, ObjectAlignment);
        SetFileSectionFormat(Builder, 1, Compression, VertexAlignment);
        SetFileSectionFormat(Builder, 2, Compression, ObjectAlignment);
        SetFileSectionFormat(Builder, 3, Compression, VertexAlignment);
        SetFileSectionFormat(Builder, 4, Compression, ObjectAlignment);
        SetFileSectionFormat(Builder, 6, Compression, ObjectAlignment);
        SetFileSectionFormat(Builder, 7, Compression, ObjectAlignment);

        if (ExportScene(Context, Options->SourceFileToEmbed, Builder, Progress) && KeepExporting(Progress)) {
            Result = true;
        }
    }

    if (Result) {
        SetProgressStage(Progress, "Packaging file");
        StepProgress(Progress, "");
        file_builder *Ending = Builder;
        Builder = 0;
        // Section compression is most of the packaging: its steps join the
        // total and the bar follows the coded bytes.
        packaging_progress Packaging = {Progress, GetProgressPosition(Progress)};
        if (Progress) {
            AddProgressTotal(Progress, GetFileBuilderPackagingSteps(Ending));
            SetFileBuilderProgress(Ending, ReportPackaging, &Packaging);
        }
        Result = EndFile(Ending, OutputPath);
    } else if (Builder) {
        AbortFile(Builder);
        Builder = 0;
    }
    // The last word is the truth: "Export Complete" only with a file.
    SetProgressStage(Progress, Result ? "Export Complete" : "Export Aborted");
    StepProgress(Progress, "");
    return Result;
}

bool RunExport(tool_interface *Tool, char const *OutputPath, export_options const *Options,
               ExportProgressCallback ProgressCallback)
{
    CheckPointer(OutputPath, LogCategory_ExportDriver, false);
    CheckPointer(Options, LogCategory_ExportDriver, false);

    bool Result = false;
    export_progress *Progress = 0;
    scene_export_context *Context = BeginSceneExport(Tool);
    if (Context) {
        if (Options->SettingsFileName) LoadSettingsFile(Context->Settings, Options->SettingsFileName);
        requester *FileSettings = FindRequesterInTree(Context->Settings, SettingsCategory_File);
        if (Options->ShowProgress) {
            Progress = BeginProgress(ProgressCallback);
            SetProgressTitle(Progress, ExportTitle);
        }
        file_builder *Builder = 0;
        try {
            Result = WriteExportFile(Context, FileSettings, OutputPath, Options, Progress, Builder);
        } catch (...) {
            // Nothing leaves the driver: the export counts as failed and a
            // builder still open is abandoned with its temporary files.
            Result = false;
            if (Builder) AbortFile(Builder);
        }
    }
    EndProgress(Progress);
    EndSceneExport(Context);
    return Result;
}
