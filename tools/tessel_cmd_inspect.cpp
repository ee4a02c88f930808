// tessel inspect: tells a TS2 file from an FBX file by its first bytes and
// hands over to the matching inspector.
#include <cstdio>
#include <cstring>

#include "format/tessel_file_format.h"
#include "platform/tessel_platform.h"
#include "tessel_commands.h"

static void PrintInspectHelp(FILE *Stream)
{
    fprintf(Stream, "usage: tessel inspect FILE [options]\n"
                    "\n"
                    "Shows what a TS2 or FBX file holds. The kind of file is told by its first bytes.\n"
                    "\n"
                    "TS2 files: the header, the section table and the object tree, walked through\n"
                    "the file's own type tables. Options:\n"
                    "  --json              print JSON (objects keyed by member names, arrays as lists,\n"
                    "                      an object reached again as {\"$ref\": \"<path where it was printed>\"})\n"
                    "  --header            print only the header and the section table\n"
                    "  --max-elements N    print at most N elements of each array (text: 16,\n"
                    "                      JSON: all; 0 means all)\n"
                    "  --vertices N        list the first N vertices of each mesh\n"
                    "  --sample TIME       print every bone's local and world transform at TIME\n"
                    "                      seconds of each animation, from the stored curves\n"
                    "\n"
                    "FBX files: see the options of the FBX inspector (--json, --vertices N, ...).\n");
}

// A TS2 file starts with one of the known magic values, as it stands or with
// its 32-bit words reversed.
static bool StartsLikeTS2(uint8 const *Bytes)
{
    file_magic_block const *Known[] = {&FileMagic32BitLittleEndian, &FileMagic32BitBigEndian,
                                       &FileMagic64BitLittleEndian, &FileMagic64BitBigEndian, &FileMagicOld32Bit};
    for (file_magic_block const *Magic : Known) {
        if (memcmp(Bytes, Magic->MagicValue, FileMagicValueSize) == 0) return true;
        uint8 Reversed[FileMagicValueSize];
        memcpy(Reversed, Magic->MagicValue, FileMagicValueSize);
        Reverse32(FileMagicValueSize / 4, Reversed);
        if (memcmp(Bytes, Reversed, FileMagicValueSize) == 0) return true;
    }
    return false;
}

int RunInspectCommand(int ArgumentCount, char **Arguments)
{
    if (WantsHelp(ArgumentCount, Arguments)) {
        PrintInspectHelp(stdout);
        return 0;
    }
    char const *Path = 0;
    int Rest = 0;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        if (Arguments[Index][0] != '-') {
            Path = Arguments[Index];
            Rest = Index;
            break;
        }
        // Options with a value come before the path only as pairs.
        if (strcmp(Arguments[Index], "--max-elements") == 0 || strcmp(Arguments[Index], "--vertices") == 0) ++Index;
    }
    if (!Path) {
        PrintInspectHelp(stderr);
        return 2;
    }

    // Only regular files: a FIFO would be waited on forever.
    FILE *File = FileExists(Path) ? fopen(Path, "rb") : 0;
    if (!File) {
        fprintf(stderr, "tessel inspect: can't open %s\n", Path);
        return 1;
    }
    uint8 Start[FileMagicValueSize] = {};
    size_t Read = fread(Start, 1, sizeof(Start), File);
    fclose(File);

    // The remaining arguments without the path go to the inspector.
    char *Options[256];
    int OptionCount = 0;
    for (int Index = 0; Index < ArgumentCount && OptionCount < 256; ++Index) {
        if (Index != Rest) Options[OptionCount++] = Arguments[Index];
    }
    if (Read == sizeof(Start) && StartsLikeTS2(Start)) return InspectTS2File(Path, OptionCount, Options);
    return InspectFBXFile(Path, OptionCount, Options);
}
