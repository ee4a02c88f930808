#include "fbx_tool/fbx_tessel.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <rapidxml/rapidxml.hpp>

#include "exporter/fbx_tessel_export_operations.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

// The parser's own pool goes through the allocation hooks too.
static void *AllocateParserMemory(std::size_t Size)
{
    return TesselAllocate(Size);
}

static void FreeParserMemory(void *Memory)
{
    TesselFree(Memory);
}

static char *CopyToHeap(char const *Text, intaddrx Length)
{
    char *Copy = (char *)TesselAllocate(Length + 1);
    if (Copy) {
        memcpy(Copy, Text, (size_t)Length);
        Copy[Length] = 0;
    }
    return Copy;
}

int32 ParseFrameNumber(char const *Text, int32 Length)
{
    char Buffer[256];
    if (!Text || Length < 0) Length = 0;
    if (Length > (int32)sizeof(Buffer) - 1) Length = (int32)sizeof(Buffer) - 1;
    memcpy(Buffer, Text ? Text : "", (size_t)Length);
    Buffer[Length] = 0;
    for (char *Character = Buffer; *Character; ++Character) {
        if (*Character < '0' || *Character > '9') {
            *Character = 0;
            break;
        }
    }
    // Digits beyond what an int32 holds read as the largest frame rather
    // than wrapping to a negative one.
    long long Value = strtoll(Buffer, 0, 10);
    return Value > INT32_MAX ? INT32_MAX : (int32)Value;
}

// The whole file as NUL-terminated text, or null.
static char *ReadAnimationDefText(char const *Path)
{
    FILE *File = fopen(Path, "r");
    if (!File) return 0;
    char *Text = 0;
    long Size = -1;
    if (fseek(File, 0, SEEK_END) == 0) Size = ftell(File);
    // A folder opens as a file here and reports an absurd size: refuse it
    // along with anything too large to be an AnimationDef file.
    if (Size > 0 && Size < INT32_MAX && fseek(File, 0, SEEK_SET) == 0) {
        Text = (char *)TesselAllocate((intaddrx)Size + 1);
        if (Text) {
            // In text mode fewer bytes than the size may arrive.
            size_t ReadSize = fread(Text, 1, (size_t)Size, File);
            if (ReadSize == 0) {
                TesselFree(Text);
                Text = 0;
            } else {
                Text[ReadSize] = 0;
            }
        }
    }
    fclose(File);
    return Text;
}

// Where the last malformed AnimationDef file went wrong: a copy of the text
// from that place to the end of its line, and the line number.
static char AnimationDefErrorText[128];
static int32 AnimationDefErrorLine = 0;

static void SetAnimationDefErrorPlace(char const *Text, char const *Where)
{
    AnimationDefErrorText[0] = 0;
    AnimationDefErrorLine = 0;
    if (!Text || !Where || Where < Text) return;
    AnimationDefErrorLine = 1;
    // The parser has put terminators into the text: count up to Where only.
    for (char const *Character = Text; Character < Where; ++Character) {
        if (*Character == '\n') ++AnimationDefErrorLine;
    }
    int32 Length = 0;
    while (Length < (int32)sizeof(AnimationDefErrorText) - 1 && Where[Length] && Where[Length] != '\n' &&
           Where[Length] != '\r') {
        AnimationDefErrorText[Length] = Where[Length];
        ++Length;
    }
    AnimationDefErrorText[Length] = 0;
}

int32 GetAnimationDefErrorLine()
{
    return AnimationDefErrorLine;
}

static rapidxml::xml_node<> *NextAnimationDef(rapidxml::xml_node<> *Node)
{
    return Node->next_sibling("AnimationDef", 0, false);
}

static void FillAnimationDefs(rapidxml::xml_node<> *Root, animation_def *Defs, int32 Count)
{
    rapidxml::xml_node<> *Node = Root->first_node("AnimationDef", 0, false);
    for (int32 Index = 0; Index < Count; ++Index) {
        animation_def &Def = Defs[Index];
        rapidxml::xml_attribute<> *Name = Node ? Node->first_attribute("name", 0, true) : 0;
        rapidxml::xml_attribute<> *Start = Node ? Node->first_attribute("start", 0, true) : 0;
        rapidxml::xml_attribute<> *End = Node ? Node->first_attribute("end", 0, true) : 0;
        if (Name && Start && End) {
            Def.Name = CopyToHeap(Name->value(), (intaddrx)Name->value_size());
            Def.StartFrame = ParseFrameNumber(Start->value(), (int32)Start->value_size());
            Def.EndFrame = ParseFrameNumber(End->value(), (int32)End->value_size());
            Node = NextAnimationDef(Node);
        } else {
            // The walk stays on a bad element, so it and every entry after
            // it read as errors.
            Def.Name = CopyToHeap("Error", 5);
            Def.StartFrame = 0;
            Def.EndFrame = 0;
        }
    }
}

bool ParseAnimationDefText(char *Text, animation_def **AnimationDefs, int32 *AnimationDefCount)
{
    CheckPointer(Text, LogCategory_ExportDriver, false);
    CheckPointer(AnimationDefs, LogCategory_ExportDriver, false);
    CheckPointer(AnimationDefCount, LogCategory_ExportDriver, false);

    rapidxml::xml_document<> Document;
    Document.set_allocator(AllocateParserMemory, FreeParserMemory);
    Document.parse<0>(Text);

    rapidxml::xml_node<> *Root = Document.first_node();
    if (!Root) return false;
    int32 Count = 0;
    for (rapidxml::xml_node<> *Node = Root->first_node("AnimationDef", 0, false); Node; Node = NextAnimationDef(Node)) {
        ++Count;
    }
    *AnimationDefCount = 0;
    if (Count < 1) return false;
    animation_def *Defs = TesselAllocateArray(animation_def, Count);
    if (!Defs) return false;
    memset(Defs, 0, sizeof(animation_def) * (size_t)Count);
    FillAnimationDefs(Root, Defs, Count);
    *AnimationDefs = Defs;
    *AnimationDefCount = Count;
    return true;
}

bool ReadAnimationDefFile(char const *Path, animation_def **AnimationDefs, int32 *AnimationDefCount)
{
    CheckPointer(Path, LogCategory_ExportDriver, false);
    char *Text = ReadAnimationDefText(Path);
    if (!Text) return false;

    bool Result = false;
    try {
        Result = ParseAnimationDefText(Text, AnimationDefs, AnimationDefCount);
    } catch (rapidxml::parse_error const &Error) {
        // The text goes away here, so the exception that leaves carries a
        // copy of the place instead.
        char *Where = Error.where<char>();
        SetAnimationDefErrorPlace(Text, Where);
        TesselFree(Text);
        throw rapidxml::parse_error(Error.what(), AnimationDefErrorText);
    } catch (...) {
        TesselFree(Text);
        throw;
    }
    TesselFree(Text);
    return Result;
}

void FreeAnimationDefs(animation_def *AnimationDefs, int32 AnimationDefCount)
{
    for (int32 Index = 0; Index < AnimationDefCount; ++Index) {
        TesselFree(AnimationDefs[Index].Name);
    }
    TesselFree(AnimationDefs);
}

// Releases everything the entry made for one call.
static void ReleaseExport(fbx_tool_interface *Tool)
{
    fbx_tool::DestroyFBXScene(Tool->FBX);
    Tool->FBX = 0;
    FreeAnimationDefs(Tool->AnimationDefs, Tool->AnimationDefCount);
    Tool->AnimationDefs = 0;
    Tool->AnimationDefCount = 0;
    fbx_tool::DestroyToolInterface(Tool);
}

bool ExportFBXFileWithOptions(char const *FBXPath, char const *OutputPath, char const *AnimationDefPath,
                              export_options const &Options, ExportProgressCallback ProgressCallback, bool *Exported)
{
    if (Exported) *Exported = false;
    CheckPointer(FBXPath, LogCategory_ExportDriver, false);
    CheckPointer(OutputPath, LogCategory_ExportDriver, false);

    fbx_tool_interface *Tool = fbx_tool::CreateToolInterface(FBXPath);
    if (!Tool) return false;
    if (!Tool->FBX) {
        TesselError(LogCategory_ExportDriver, "Unable to load FBX file %s", FBXPath);
        ReleaseExport(Tool);
        return false;
    }

    if (AnimationDefPath) {
        bool Read = false;
        try {
            Read = ReadAnimationDefFile(AnimationDefPath, &Tool->AnimationDefs, &Tool->AnimationDefCount);
        } catch (...) {
            ReleaseExport(Tool);
            throw;
        }
        if (!Read) {
            TesselError(LogCategory_ExportDriver,
                        "Unable to read AnimationDef file %s: missing, unreadable or without any AnimationDef",
                        AnimationDefPath);
            ReleaseExport(Tool);
            return false;
        }
    }

    bool Result = RunExport(Tool, OutputPath, &Options, ProgressCallback);
    if (Exported) *Exported = Result;

    ReleaseExport(Tool);
    return true;
}

extern "C" TESSEL_API bool ExportFBXFile(char const *fbxPath, char const *outputPath, char const *animationDefPath,
                                         ExportProgressCallback progressCallback)
{
    export_options Options;
    Options.SourceFileToEmbed = 0;
    Options.ShowProgress = true;
    Options.SettingsFileName = 0;
    bool Exported = false;
    ExportFBXFileWithOptions(fbxPath, outputPath, animationDefPath, Options, progressCallback, &Exported);
    return Exported;
}
