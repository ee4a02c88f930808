// tessel inspect for TS2 files: header, section table and the object tree,
// walked through the type tables that the file carries. Works on locations
// (section, offset) rather than on pointers, so files of any pointer size and
// byte order can be shown.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_string.h"
#include "tessel_commands.h"
#include "tessel_inspect_meshes.h"
#include "tessel_inspect_skeletons.h"

namespace {

enum
{
    MaxPrintDepth = 200,
    DefaultTextElements = 16,
};

// Emits a tree of objects, arrays and scalars as JSON or as indented text.
struct tree_printer
{
    bool Json = false;
    std::string Out;
    struct level
    {
        bool IsArray;
        int Count;
    };
    std::vector<level> Levels;
    std::string PendingKey;
    bool HasKey = false;

    void Indent(size_t Depth) { Out.append(Depth * 2, ' '); }

    // Starts an item in the current container: separator, indentation, key.
    void StartItem()
    {
        if (Levels.empty()) return;
        level &Level = Levels.back();
        if (Json) {
            Out += Level.Count ? ",\n" : "\n";
            Indent(Levels.size());
            if (!Level.IsArray) Out += Quote(PendingKey) + ": ";
        } else {
            Out += "\n";
            Indent(Levels.size() - 1);
            if (Level.IsArray)
                Out += "[" + std::to_string(Level.Count) + "] ";
            else
                Out += PendingKey + ": ";
        }
        ++Level.Count;
        HasKey = false;
    }

    void Key(std::string const &Name)
    {
        PendingKey = Name;
        HasKey = true;
    }

    void Begin(bool IsArray, std::string const &TextLabel)
    {
        StartItem();
        if (Json)
            Out += IsArray ? "[" : "{";
        else if (TextLabel.empty() && !Out.empty() && Out.back() == ' ')
            Out.pop_back();
        else
            Out += TextLabel;
        Levels.push_back({IsArray, 0});
    }
    void BeginObject(std::string const &TextLabel = "") { Begin(false, TextLabel); }
    void BeginArray(std::string const &TextLabel = "") { Begin(true, TextLabel); }

    void End()
    {
        level Level = Levels.back();
        Levels.pop_back();
        if (Json) {
            if (Level.Count) {
                Out += "\n";
                Indent(Levels.size());
            }
            Out += Level.IsArray ? "]" : "}";
        }
    }

    // A value already formatted for the mode (JSON text, or plain text).
    void Raw(std::string const &Text)
    {
        StartItem();
        Out += Text;
    }
    void String(char const *Text) { Raw(Json ? Quote(Text) : (std::string("\"") + Text + "\"")); }

    static std::string Quote(std::string const &Text)
    {
        std::string Result = "\"";
        for (unsigned char Character : Text) {
            char Escape[8];
            if (Character == '"' || Character == '\\') {
                Result += '\\';
                Result += (char)Character;
            } else if (Character < 0x20 || Character >= 0x7F) {
                snprintf(Escape, sizeof(Escape), "\\u%04x", Character);
                Result += Escape;
            } else {
                Result += (char)Character;
            }
        }
        return Result + "\"";
    }
};

struct inspector
{
    loaded_file const *File = 0;
    tree_printer Printer;
    uint32 MaxElements = 0; // 0: all
    uint32 PointerSize = 8;
    // Object location -> path where it was printed.
    std::map<uint64, std::string> Printed;
    int Depth = 0;
};

uint64 LocationKey(file_section_reference Location)
{
    return ((uint64)Location.SectionIndex << 32) | Location.Offset;
}

file_section_reference Advance(file_section_reference Location, uint64 Delta)
{
    uint64 Offset = (uint64)Location.Offset + Delta;
    Location.Offset = Offset > 0xFFFFFFFFu ? 0xFFFFFFFFu : (uint32)Offset;
    return Location;
}

std::string FormatReal(inspector &Inspector, double Value)
{
    if (!std::isfinite(Value)) {
        std::string Text = std::isnan(Value) ? "nan" : (Value > 0 ? "inf" : "-inf");
        return Inspector.Printer.Json ? "\"" + Text + "\"" : Text;
    }
    char Buffer[64];
    snprintf(Buffer, sizeof(Buffer), "%.9g", Value);
    return Buffer;
}

// One element of a scalar kind, formatted; false when it lies outside.
bool FormatScalar(inspector &Inspector, int32 Kind, uint8 const *Bytes, std::string *Text)
{
    char Buffer[64];
    switch (Kind) {
    case 10: {
        real32 V;
        memcpy(&V, Bytes, 4);
        *Text = FormatReal(Inspector, V);
        return true;
    }
    case 21: {
        uint16 V;
        memcpy(&V, Bytes, 2);
        *Text = FormatReal(Inspector, Real32FromReal16(V));
        return true;
    }
    case 11:
    case 13: snprintf(Buffer, sizeof(Buffer), "%d", (int)(int8)Bytes[0]); break;
    case 12:
    case 14: snprintf(Buffer, sizeof(Buffer), "%u", (unsigned)Bytes[0]); break;
    case 15:
    case 17: {
        int16 V;
        memcpy(&V, Bytes, 2);
        snprintf(Buffer, sizeof(Buffer), "%d", (int)V);
        break;
    }
    case 16:
    case 18: {
        uint16 V;
        memcpy(&V, Bytes, 2);
        snprintf(Buffer, sizeof(Buffer), "%u", (unsigned)V);
        break;
    }
    case 19: {
        int32 V;
        memcpy(&V, Bytes, 4);
        snprintf(Buffer, sizeof(Buffer), "%d", V);
        break;
    }
    case 20: {
        uint32 V;
        memcpy(&V, Bytes, 4);
        snprintf(Buffer, sizeof(Buffer), "%u", V);
        break;
    }
    default: return false;
    }
    *Text = Buffer;
    return true;
}

void PrintInvalid(inspector &Inspector, char const *What)
{
    Inspector.Printer.Raw(Inspector.Printer.Json ? tree_printer::Quote(std::string("<") + What + ">")
                                                 : std::string("<") + What + ">");
}

void PrintObject(inspector &Inspector, file_section_reference Type, file_section_reference Object,
                 std::string const &Path);

void PrintReferenceTarget(inspector &Inspector, file_section_reference Type, file_section_reference Target,
                          std::string const &Path)
{
    auto Found = Inspector.Printed.find(LocationKey(Target));
    if (Found != Inspector.Printed.end()) {
        if (Inspector.Printer.Json) {
            Inspector.Printer.BeginObject();
            Inspector.Printer.Key("$ref");
            Inspector.Printer.String(Found->second.c_str());
            Inspector.Printer.End();
        } else {
            Inspector.Printer.Raw("-> " + Found->second);
        }
        return;
    }
    Inspector.Printed[LocationKey(Target)] = Path;
    PrintObject(Inspector, Type, Target, Path);
}

// Count elements of Type from Array, each ElementSize bytes.
void PrintArray(inspector &Inspector, file_section_reference Type, file_section_reference Array, uint32 Count,
                std::string const &Path)
{
    uint32 ElementSize = 0;
    if (!GetFileTypeObjectSize(*Inspector.File, Type, &ElementSize)) return PrintInvalid(Inspector, "bad type");
    if (!GetLoadedFileBytes(*Inspector.File, Array, (uint32)std::min<uint64>((uint64)ElementSize * Count, ~0u)) ||
        (uint64)ElementSize * Count > 0xFFFFFFFFu) {
        return PrintInvalid(Inspector, "array outside its section");
    }
    auto Found = Inspector.Printed.find(LocationKey(Array));
    if (Found != Inspector.Printed.end()) {
        return PrintReferenceTarget(Inspector, Type, Array, Path);
    }
    Inspector.Printed[LocationKey(Array)] = Path;
    uint32 Shown = Inspector.MaxElements && Count > Inspector.MaxElements ? Inspector.MaxElements : Count;
    Inspector.Printer.BeginArray(std::to_string(Count) + " elements");
    for (uint32 Index = 0; Index < Shown; ++Index) {
        PrintObject(Inspector, Type, Advance(Array, (uint64)Index * ElementSize), Path + "/" + std::to_string(Index));
    }
    if (Shown < Count) {
        if (Inspector.Printer.Json) {
            Inspector.Printer.BeginObject();
            Inspector.Printer.Key("$more");
            Inspector.Printer.Raw(std::to_string(Count - Shown));
            Inspector.Printer.End();
        } else {
            Inspector.Printer.Raw("... " + std::to_string(Count - Shown) + " more");
        }
    }
    Inspector.Printer.End();
}

bool ReadUInt32At(inspector &Inspector, file_section_reference Location, uint32 *Value)
{
    uint8 const *Bytes = GetLoadedFileBytes(*Inspector.File, Location, 4);
    if (Bytes) memcpy(Value, Bytes, 4);
    return Bytes != 0;
}

void PrintString(inspector &Inspector, file_section_reference Slot)
{
    file_section_reference Target;
    if (!ResolveFilePointer(*Inspector.File, Slot, &Target)) return Inspector.Printer.Raw("null");
    char const *Text = GetLoadedFileString(*Inspector.File, Target);
    if (!Text) return PrintInvalid(Inspector, "string outside its section");
    Inspector.Printer.String(Text);
}

void PrintTransform(inspector &Inspector, uint8 const *Bytes)
{
    tree_printer &Printer = Inspector.Printer;
    int32 Flags;
    memcpy(&Flags, Bytes, 4);
    auto List = [&](int32 First, int32 Count) {
        std::string Text = "[";
        for (int32 Index = 0; Index < Count; ++Index) {
            real32 Value;
            memcpy(&Value, Bytes + 4 + 4 * (First + Index), 4);
            Text += (Index ? ", " : "") + FormatReal(Inspector, Value);
        }
        return Text + "]";
    };
    Printer.BeginObject();
    Printer.Key("Flags");
    Printer.Raw(std::to_string(Flags));
    Printer.Key("Position");
    Printer.Raw(List(0, 3));
    Printer.Key("Orientation");
    Printer.Raw(List(3, 4));
    Printer.Key("ScaleShear");
    Printer.Raw("[" + List(7, 3) + ", " + List(10, 3) + ", " + List(13, 3) + "]");
    Printer.End();
}

void PrintMember(inspector &Inspector, file_type_member const &Member, file_section_reference Slot,
                 std::string const &Path)
{
    loaded_file const &File = *Inspector.File;
    tree_printer &Printer = Inspector.Printer;
    uint32 const P = Inspector.PointerSize;
    uint8 const *Bytes = GetLoadedFileBytes(File, Slot, Member.Size);
    if (!Bytes) return PrintInvalid(Inspector, "member outside its section");
    file_section_reference Target, Type;

    switch (Member.Kind) {
    case 1: { // inline
        if (Member.ArrayWidth == 1) return PrintObject(Inspector, Member.ReferenceType, Slot, Path);
        uint32 Unit = Member.Size / (uint32)Member.ArrayWidth;
        Printer.BeginArray();
        for (int32 Index = 0; Index < Member.ArrayWidth; ++Index) {
            PrintObject(Inspector, Member.ReferenceType, Advance(Slot, (uint64)Index * Unit),
                        Path + "/" + std::to_string(Index));
        }
        return Printer.End();
    }
    case 2: // reference
        if (!ResolveFilePointer(File, Slot, &Target)) return Printer.Raw("null");
        if (!Member.HasReferenceType) return PrintInvalid(Inspector, "reference without a type");
        return PrintReferenceTarget(Inspector, Member.ReferenceType, Target, Path);
    case 3: { // count, pointer to array
        uint32 Count = 0;
        ReadUInt32At(Inspector, Slot, &Count);
        if (!ResolveFilePointer(File, Advance(Slot, 4), &Target) || Count == 0) return Printer.Raw("[]");
        if (!Member.HasReferenceType) return PrintInvalid(Inspector, "array without a type");
        return PrintArray(Inspector, Member.ReferenceType, Target, Count, Path);
    }
    case 4: { // count, pointer to array of pointers
        uint32 Count = 0;
        ReadUInt32At(Inspector, Slot, &Count);
        file_section_reference Array;
        if (!ResolveFilePointer(File, Advance(Slot, 4), &Array) || Count == 0) return Printer.Raw("[]");
        if (!Member.HasReferenceType ||
            !GetLoadedFileBytes(File, Array, (uint32)std::min<uint64>((uint64)Count * P, ~0u)))
            return PrintInvalid(Inspector, "references outside their section");
        uint32 Shown = Inspector.MaxElements && Count > Inspector.MaxElements ? Inspector.MaxElements : Count;
        Printer.BeginArray(std::to_string(Count) + " references");
        for (uint32 Index = 0; Index < Shown; ++Index) {
            if (!ResolveFilePointer(File, Advance(Array, (uint64)Index * P), &Target)) {
                Printer.Raw("null");
                continue;
            }
            PrintReferenceTarget(Inspector, Member.ReferenceType, Target, Path + "/" + std::to_string(Index));
        }
        if (Shown < Count)
            Printer.Raw(Printer.Json ? "{\"$more\": " + std::to_string(Count - Shown) + "}"
                                     : "... " + std::to_string(Count - Shown) + " more");
        return Printer.End();
    }
    case 5: // type, object
        if (!ResolveFilePointer(File, Slot, &Type) || !ResolveFilePointer(File, Advance(Slot, P), &Target))
            return Printer.Raw("null");
        return PrintReferenceTarget(Inspector, Type, Target, Path);
    case 7: { // type, count, array
        uint32 Count = 0;
        ReadUInt32At(Inspector, Advance(Slot, P), &Count);
        if (!ResolveFilePointer(File, Slot, &Type) || !ResolveFilePointer(File, Advance(Slot, P + 4), &Target) ||
            Count == 0)
            return Printer.Raw("[]");
        return PrintArray(Inspector, Type, Target, Count, Path);
    }
    case 8: return PrintString(Inspector, Slot);
    case 9: return PrintTransform(Inspector, Bytes);
    case 22: return Printer.Raw("null");
    default: {
        int32 Unit = GetFileMemberKindSize(Member.Kind, File.PointerBits);
        std::string Text;
        if (Unit <= 0) return PrintInvalid(Inspector, "unknown member kind");
        if (Member.ArrayWidth == 1) {
            FormatScalar(Inspector, Member.Kind, Bytes, &Text);
            return Printer.Raw(Text);
        }
        std::string List = "[";
        for (int32 Index = 0; Index < Member.ArrayWidth; ++Index) {
            FormatScalar(Inspector, Member.Kind, Bytes + Index * Unit, &Text);
            List += (Index ? ", " : "") + Text;
        }
        return Printer.Raw(List + "]");
    }
    }
}

void PrintObject(inspector &Inspector, file_section_reference Type, file_section_reference Object,
                 std::string const &Path)
{
    if (Inspector.Depth >= MaxPrintDepth) return PrintInvalid(Inspector, "nested too deeply");
    uint32 Size = 0;
    if (!GetFileTypeObjectSize(*Inspector.File, Type, &Size)) return PrintInvalid(Inspector, "bad type table");
    if (!GetLoadedFileBytes(*Inspector.File, Object, Size))
        return PrintInvalid(Inspector, "object outside its section");

    ++Inspector.Depth;
    Inspector.Printer.BeginObject();
    file_type_member Member;
    for (int32 Index = 0; GetFileTypeMember(*Inspector.File, Type, Index, &Member); ++Index) {
        std::string Name = Member.Name ? Member.Name : "(unnamed " + std::to_string(Index) + ")";
        Inspector.Printer.Key(Name);
        PrintMember(Inspector, Member, Advance(Object, Member.SlotOffset), Path + "/" + Name);
    }
    Inspector.Printer.End();
    --Inspector.Depth;
}

char const *FormatName(uint32 Format)
{
    switch (Format) {
    case 0: return "none";
    case 1: return "Trove0";
    case 2: return "Trove1";
    default: return "unknown";
    }
}

void PrintHeader(inspector &Inspector, char const *Path)
{
    loaded_file const &File = *Inspector.File;
    tree_printer &Printer = Inspector.Printer;
    file_header const &Header = File.Header;
    char Hex[32];
    auto HexValue = [&](uint32 Value) {
        snprintf(Hex, sizeof(Hex), "0x%08X", Value);
        return Printer.Json ? tree_printer::Quote(Hex) : std::string(Hex);
    };

    Printer.Key("File");
    Printer.String(Path);
    Printer.Key("Platform");
    Printer.String(
        (std::to_string(File.PointerBits) + "-bit " + (File.IsByteReversed ? "big-endian" : "little-endian")).c_str());
    Printer.Key("TotalHeaderSize");
    Printer.Raw(std::to_string(File.Magic.TotalHeaderSize));
    Printer.Key("HeaderFormat");
    Printer.Raw(std::to_string(File.Magic.HeaderFormat));
    Printer.Key("Version");
    Printer.Raw(std::to_string(Header.Version));
    Printer.Key("TotalSize");
    Printer.Raw(std::to_string(Header.TotalSize));
    Printer.Key("CRC");
    Printer.Raw(HexValue(Header.CRC));
    Printer.Key("TypeTag");
    Printer.Raw(HexValue(Header.TypeTag));
    Printer.Key("StringDatabaseCRC");
    Printer.Raw(HexValue(Header.StringDatabaseCRC));
    Printer.Key("RootObjectTypeDefinition");
    Printer.Raw(Printer.Json ? "{\"Section\": " + std::to_string(Header.RootObjectTypeDefinition.SectionIndex) +
                                   ", \"Offset\": " + std::to_string(Header.RootObjectTypeDefinition.Offset) + "}"
                             : "section " + std::to_string(Header.RootObjectTypeDefinition.SectionIndex) + " offset " +
                                   std::to_string(Header.RootObjectTypeDefinition.Offset));
    Printer.Key("RootObject");
    Printer.Raw(Printer.Json ? "{\"Section\": " + std::to_string(Header.RootObject.SectionIndex) +
                                   ", \"Offset\": " + std::to_string(Header.RootObject.Offset) + "}"
                             : "section " + std::to_string(Header.RootObject.SectionIndex) + " offset " +
                                   std::to_string(Header.RootObject.Offset));

    Printer.Key("Sections");
    Printer.BeginArray(std::to_string(File.SectionCount));
    for (int32 Index = 0; Index < File.SectionCount; ++Index) {
        file_section_header const &Section = File.Sections[Index].Header;
        char const *Name = Index < StandardSectionCount ? GetStandardSectionName(Index) : "(non-standard section)";
        if (Printer.Json) {
            Printer.BeginObject();
            Printer.Key("Name");
            Printer.String(Name);
            Printer.Key("Format");
            Printer.Raw(std::to_string(Section.Format));
            struct field
            {
                char const *Key;
                uint32 Value;
            } const Fields[] = {
                {"DataOffset", Section.DataOffset},
                {"DataSize", Section.DataSize},
                {"ExpandedDataSize", Section.ExpandedDataSize},
                {"InternalAlignment", Section.InternalAlignment},
                {"First16Bit", Section.First16Bit},
                {"First8Bit", Section.First8Bit},
                {"PointerFixupArrayOffset", Section.PointerFixupArrayOffset},
                {"PointerFixupArrayCount", Section.PointerFixupArrayCount},
                {"MixedMarshallingFixupArrayOffset", Section.MixedMarshallingFixupArrayOffset},
                {"MixedMarshallingFixupArrayCount", Section.MixedMarshallingFixupArrayCount},
            };
            for (field const &Field : Fields) {
                Printer.Key(Field.Key);
                Printer.Raw(std::to_string(Field.Value));
            }
            Printer.End();
        } else {
            char Line[512];
            snprintf(Line, sizeof(Line),
                     "%-36s format %u (%s), at %u, stored %u, expanded %u, alignment %u, streams 0/%u/%u, "
                     "fixups %u, marshallings %u",
                     Name, Section.Format, FormatName(Section.Format), Section.DataOffset, Section.DataSize,
                     Section.ExpandedDataSize, Section.InternalAlignment, Section.First16Bit, Section.First8Bit,
                     Section.PointerFixupArrayCount, Section.MixedMarshallingFixupArrayCount);
            Printer.Raw(Line);
        }
    }
    Printer.End();
}

void PrintLogToStderr(int32 Level, int32, char const *, int32, char const *Message, void *)
{
    if (Level >= LogLevel_Warning) {
        fprintf(stderr, "tessel inspect: %s%s", Level >= LogLevel_Error ? "" : "warning: ", Message);
        size_t Length = strlen(Message);
        if (!Length || Message[Length - 1] != '\n') fputc('\n', stderr);
    }
}

} // namespace

int InspectTS2File(char const *Path, int ArgumentCount, char **Arguments)
{
    bool Json = false, HeaderOnly = false;
    long MaxElements = -1;
    long Vertices = 0;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        if (strcmp(Argument, "--json") == 0) {
            Json = true;
        } else if (strcmp(Argument, "--header") == 0) {
            HeaderOnly = true;
        } else if (strcmp(Argument, "--max-elements") == 0 && Index + 1 < ArgumentCount) {
            char *End = 0;
            MaxElements = strtol(Arguments[++Index], &End, 10);
            if (*End || MaxElements < 0) {
                fprintf(stderr, "tessel inspect: --max-elements needs a count, not '%s'\n", Arguments[Index]);
                return 2;
            }
        } else if (strcmp(Argument, "--vertices") == 0 && Index + 1 < ArgumentCount) {
            char *End = 0;
            Vertices = strtol(Arguments[++Index], &End, 10);
            if (*End || Vertices < 0) {
                fprintf(stderr, "tessel inspect: --vertices needs a count, not '%s'\n", Arguments[Index]);
                return 2;
            }
        } else {
            fprintf(stderr, "tessel inspect: unknown option '%s' (see tessel inspect --help)\n", Argument);
            return 2;
        }
    }

    SetLogCallback(PrintLogToStderr, 0);
    // The header and the tree are shown as stored; the summaries read the
    // root as this program's records, for which a file with other pointers
    // is loaded again re-laid for this platform.
    file_reader *Reader = CreatePlatformFileReader(Path);
    loaded_file *File = Reader ? LoadStoredFileFromReader(Reader) : 0;
    loaded_file *Native = File;
    if (File && File->PointerBits != 64) Native = LoadFileFromReader(Reader);
    if (Reader) CloseFileReader(Reader);
    if (!File) {
        SetLogCallback(0, 0);
        fprintf(stderr, "tessel inspect: %s is not a readable TS2 file\n", Path);
        return 1;
    }

    inspector Inspector;
    Inspector.File = File;
    Inspector.PointerSize = (uint32)File->PointerBits / 8;
    Inspector.Printer.Json = Json;
    Inspector.MaxElements = MaxElements >= 0 ? (uint32)MaxElements : (Json ? 0u : (uint32)DefaultTextElements);

    tree_printer &Printer = Inspector.Printer;
    if (Json)
        Printer.BeginObject();
    else
        Printer.Levels.push_back({false, 0});
    PrintHeader(Inspector, Path);
    // The summaries read the root as this program's file_info record, which
    // is safe only when the file's root type is exactly that record.
    bool StandardRoot = Native && FileTypeMatches(*Native, Native->Header.RootObjectTypeDefinition, FileInfoType);
    if (!Json && !HeaderOnly && StandardRoot) Printer.Out += DescribeSkeletonsAndModels(*Native);
    if (!Json && !HeaderOnly && StandardRoot) Printer.Out += DescribeMeshes(*Native, (int)Vertices);
    if (!HeaderOnly) {
        Printer.Key("Root");
        Inspector.Printed[LocationKey(File->Header.RootObject)] = "/Root";
        PrintObject(Inspector, File->Header.RootObjectTypeDefinition, File->Header.RootObject, "/Root");
    }
    if (Json) Printer.End();
    Printer.Out += "\n";
    fputs(Json ? Printer.Out.c_str() : Printer.Out.c_str() + 1, stdout);

    if (Native != File) FreeLoadedFile(Native);
    FreeLoadedFile(File);
    SetLogCallback(0, 0);
    return 0;
}
