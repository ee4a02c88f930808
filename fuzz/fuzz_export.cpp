// Fuzz target: the whole export of a fuzzed FBX scene, from the import
// through every export stage to a finished TS2 file in memory. The scene
// goes to disk first (the tool interface reads files) in a private folder.
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "exporter/fbx_tessel_export_operations.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "exporter/tessel_scene_parser.h"
#include "format/tessel_file_builder.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_requester.h"

namespace {

enum
{
    CompressionSettingsId = 70,
    FileSettingsId = 69,
};

char Folder[TemporaryDirectorySize + 64];
std::string Path;

void RemoveSceneFolder()
{
    unlink(Path.c_str());
    RemoveDirectory(Folder);
}

std::string const &ScenePath()
{
    if (Path.empty()) {
        if (!CreatePrivateDirectory(0, "fuzz_export", Folder, (int32)sizeof(Folder))) abort();
        Path = std::string(Folder) + "/scene.fbx";
        atexit(RemoveSceneFolder);
    }
    return Path;
}

void Quiet(int32, int32, char const *, int32, char const *, void *) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size > (1u << 20)) return 0;
    SetLogCallback(Quiet, 0);
    std::string const &Path = ScenePath();
    FILE *File = fopen(Path.c_str(), "wb");
    if (!File) abort();
    fwrite(Data, 1, Size, File);
    fclose(File);

    fbx_tool_interface *Tool = fbx_tool::CreateToolInterface(Path.c_str());
    scene_export_context *Context = Tool && Tool->FBX ? BeginSceneExport(Tool) : 0;
    if (Context) {
        requester *FileSettings = FindRequesterInTree(Context->Settings, FileSettingsId);
        file_magic_block Platform;
        memcpy(&Platform, GetExportPlatformBlock(0), sizeof(Platform));
        file_builder *Builder =
            BeginFile(ExportSectionCount, (uint32)ExportFileTypeTag, Platform, GetTemporaryDirectory(), "fuzz_export");
        if (Builder) {
            int32 Compression = GetExportCompression(GetSettingChoice(FileSettings, CompressionSettingsId));
            for (int32 Section = 0; Section < ExportSectionCount; ++Section) {
                SetFileSectionFormat(Builder, Section, Compression, 4);
            }
            bool Exported = false;
            try {
                Exported = ExportScene(Context, 0, Builder, 0);
            } catch (...) {
                Exported = false;
            }
            if (Exported) {
                file_writer *Writer = CreateMemoryFileWriter(65536);
                if (EndFileToWriter(Builder, Writer)) {
                    // What was written must read back.
                    uint8 *Buffer = 0;
                    int32 BufferSize = 0;
                    if (StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize)) {
                        loaded_file *Loaded = LoadFileFromMemory(BufferSize, Buffer);
                        if (!Loaded) abort();
                        FreeLoadedFile(Loaded);
                        FreeMemoryWriterBuffer(Buffer);
                    }
                }
                DeleteFileWriter(Writer);
            } else {
                AbortFile(Builder);
            }
        }
    }
    EndSceneExport(Context);
    if (Tool) {
        fbx_tool::DestroyFBXScene(Tool->FBX);
        Tool->FBX = 0;
        fbx_tool::DestroyToolInterface(Tool);
    }
    SetLogCallback(0, 0);
    return 0;
}
