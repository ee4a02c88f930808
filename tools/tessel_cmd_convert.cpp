// tessel convert: re-targets an existing TS2 file to another pointer size
// and/or byte order, without the FBX it came from.
#include <cstdio>
#include <cstring>

#include "format/tessel_file_format.h"
#include "format/tessel_platform_convert.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "tessel_commands.h"

static void PrintConvertHelp(FILE *Stream)
{
    fprintf(Stream, "usage: tessel convert IN.ts2 OUT.ts2 --platform PLATFORM\n"
                    "\n"
                    "Writes the object tree of IN.ts2 (any platform) for another runtime: every\n"
                    "object re-laid for the pointer size, every field in the byte order, sections\n"
                    "recompressed with their own compression. Converting back gives the original\n"
                    "bytes.\n"
                    "\n"
                    "PLATFORM is one of:\n"
                    "  native   this platform: 64-bit pointers, little-endian (same as 64le)\n"
                    "  32le     32-bit pointers, little-endian\n"
                    "  32be     32-bit pointers, big-endian\n"
                    "  64le     64-bit pointers, little-endian\n"
                    "  64be     64-bit pointers, big-endian\n"
                    "\n"
                    "Exit status: 0 written, 1 the input can't be read or converted, 2 bad usage.\n");
}

static file_magic_block const *PlatformByName(char const *Name)
{
    if (strcmp(Name, "native") == 0 || strcmp(Name, "64le") == 0) return &FileMagic64BitLittleEndian;
    if (strcmp(Name, "64be") == 0) return &FileMagic64BitBigEndian;
    if (strcmp(Name, "32le") == 0) return &FileMagic32BitLittleEndian;
    if (strcmp(Name, "32be") == 0) return &FileMagic32BitBigEndian;
    return 0;
}

static void PrintConvertLog(int32 Level, int32, char const *, int32, char const *Message, void *)
{
    if (Level < LogLevel_Warning) return;
    fprintf(stderr, "tessel convert: %s%s", Level >= LogLevel_Error ? "" : "warning: ", Message);
    size_t Length = strlen(Message);
    if (!Length || Message[Length - 1] != '\n') fputc('\n', stderr);
}

int RunConvertCommand(int ArgumentCount, char **Arguments)
{
    if (WantsHelp(ArgumentCount, Arguments)) {
        PrintConvertHelp(stdout);
        return 0;
    }
    char const *Paths[2] = {0, 0};
    int PathCount = 0;
    file_magic_block const *Target = 0;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        if (strcmp(Argument, "--platform") == 0) {
            if (Index + 1 >= ArgumentCount) {
                fprintf(stderr, "tessel convert: --platform needs a platform (see tessel convert --help)\n");
                return 2;
            }
            Target = PlatformByName(Arguments[++Index]);
            if (!Target) {
                fprintf(stderr, "tessel convert: unknown platform '%s' (native, 32le, 32be, 64le, 64be)\n",
                        Arguments[Index]);
                return 2;
            }
        } else if (Argument[0] == '-' && Argument[1] != 0) {
            fprintf(stderr, "tessel convert: unknown option '%s' (see tessel convert --help)\n", Argument);
            return 2;
        } else if (PathCount < 2) {
            Paths[PathCount++] = Argument;
        } else {
            fprintf(stderr, "tessel convert: too many arguments (see tessel convert --help)\n");
            return 2;
        }
    }
    if (PathCount != 2 || !Target) {
        fprintf(stderr, "usage: tessel convert IN.ts2 OUT.ts2 --platform PLATFORM (see tessel convert --help)\n");
        return 2;
    }

    int64 Size = 0;
    uint8 *Input = ReadEntireFile(Paths[0], &Size);
    if (!Input || Size > 0x7FFFFFFF) {
        if (Input) TesselFree(Input);
        fprintf(stderr, "tessel convert: unable to read %s\n", Paths[0]);
        return 1;
    }
    SetLogCallback(PrintConvertLog, 0);
    uint8 *Output = 0;
    int32 OutputSize = 0;
    bool Converted = PlatformConvertMemory((int32)Size, Input, *Target, &Output, &OutputSize);
    SetLogCallback(0, 0);
    TesselFree(Input);
    if (!Converted) {
        fprintf(stderr, "tessel convert: %s is not a TS2 file that can be converted\n", Paths[0]);
        return 1;
    }
    // The output is written only once the whole conversion has succeeded.
    file_writer *Writer = CreatePlatformFileWriter(Paths[1], true);
    bool Written = Writer && Write(Writer, OutputSize, Output);
    DeleteFileWriter(Writer);
    FreeMemoryWriterBuffer(Output);
    if (!Written) {
        fprintf(stderr, "tessel convert: unable to write %s\n", Paths[1]);
        DeleteFile(Paths[1]);
        return 1;
    }
    return 0;
}
