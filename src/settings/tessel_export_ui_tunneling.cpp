// The settings tree: nodes, inheritance of requesters, spreading values down
// the tree, node blocks and the settings file.
#include "settings/tessel_export_ui_tunneling.h"

#include <cstring>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "settings/tessel_export_ui.h"
#include "settings/tessel_settings_words.h"

settings_node *NewSettingsNode(settings_pools &Pools, settings_node *Parent, char const *Name, requester *Requester)
{
    int32 Index;
    settings_node *Node = (settings_node *)NewStackUnit(Pools.TreeNodes, &Index);
    if (!Node) {
        TesselError(LogCategory_Exporter, "Out of space for settings tree nodes");
        return nullptr;
    }
    memset(Node, 0, sizeof(*Node));
    Node->Parent = Parent;
    Node->Name = ArenaCopyString(Pools.Strings, Name ? Name : "");
    Node->ChildGroupLabel = Node->Name;
    Node->Requester = Requester;
    if (Parent) {
        if (Parent->LastChild) {
            Parent->LastChild->NextSibling = Node;
        } else {
            Parent->FirstChild = Node;
        }
        Parent->LastChild = Node;
    }
    return Node;
}

void SetChildGroupLabel(settings_node *Node, char const *Label)
{
    if (Node) Node->ChildGroupLabel = Label;
}

requester *GetNodeRequester(settings_node const *Node)
{
    for (; Node; Node = Node->Parent) {
        if (Node->Requester) return Node->Requester;
    }
    return nullptr;
}

settings_node *FindSettingsNode(settings_node const *Node, int32 Id)
{
    if (!Node) return nullptr;
    if (Node->Requester && Node->Requester->Id == Id) return (settings_node *)Node;
    for (settings_node const *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
        if (settings_node *Found = FindSettingsNode(Child, Id)) return Found;
    }
    return nullptr;
}

requester *FindRequesterInTree(settings_node const *Node, int32 Id)
{
    settings_node *Found = FindSettingsNode(Node, Id);
    return Found ? Found->Requester : nullptr;
}

settings_node *BuildDefaultSettingsTree(settings_pools &Pools)
{
    requester *RootRequester = BuildRootSettings(Pools);
    settings_node *Root = RootRequester ? NewSettingsNode(Pools, nullptr, "Settings", RootRequester) : nullptr;
    if (!Root) return nullptr;

    struct category
    {
        char const *Name;
        requester *(*Build)(settings_pools &Pools);
    };
    static category const Categories[] = {
        {"File", BuildFileSettings},   {"Textures", BuildTextureSettings}, {"Materials", BuildMaterialSettings},
        {"Meshes", BuildMeshSettings}, {"Models", BuildModelSettings},     {"Animations", BuildAnimationSettings},
    };
    for (category const &Category : Categories) {
        requester *Requester = Category.Build(Pools);
        if (!Requester || !NewSettingsNode(Pools, Root, Category.Name, Requester)) return nullptr;
    }
    return Root;
}

// ---------------------------------------------------------------------------
// Node blocks

static int32 const EmptyRequesterBlockSize = 12;

static int32 SizeOfNodeRequesterBlock(settings_node const *Node)
{
    return Node->Requester ? SizeOfRequesterBlock(Node->Requester) : EmptyRequesterBlockSize;
}

int32 SizeOfNodeBlock(settings_node const *Node, int32 Depth)
{
    if (!Node) return 0;
    int32 Size = 4 + SizeOfNodeRequesterBlock(Node) + 4;
    if (Depth > 0) {
        for (settings_node const *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
            if (Child->Requester) Size += 8 + SizeOfNodeBlock(Child, Depth - 1);
        }
    }
    return Size;
}

int32 WriteNodeBlock(settings_node const *Node, int32 Depth, uint8 *Buffer, int32 Size)
{
    CheckPointer(Node, LogCategory_Exporter, 0);
    CheckPointer(Buffer, LogCategory_Exporter, 0);
    CheckCondition(Size >= SizeOfNodeBlock(Node, Depth), LogCategory_Exporter, 0);

    word_writer Writer = {Buffer};
    PutWord(Writer, (uint32)NodeBlockMagic);
    if (Node->Requester) {
        int32 RequesterSize = SizeOfRequesterBlock(Node->Requester);
        WriteRequesterBlock(Node->Requester, Writer.At, RequesterSize);
        Writer.At += RequesterSize;
    } else {
        PutWord(Writer, (uint32)RequesterBlockMagic);
        PutWord(Writer, 0);
        PutWord(Writer, 0);
    }

    int32 ChildCount = 0;
    if (Depth > 0) {
        for (settings_node const *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
            if (Child->Requester) ++ChildCount;
        }
    }
    PutWord(Writer, (uint32)ChildCount);
    if (ChildCount > 0) {
        for (settings_node const *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
            if (!Child->Requester) continue;
            int32 ChildSize = SizeOfNodeBlock(Child, Depth - 1);
            PutWord(Writer, (uint32)Child->Requester->Id);
            PutWord(Writer, (uint32)ChildSize);
            WriteNodeBlock(Child, Depth - 1, Writer.At, ChildSize);
            Writer.At += ChildSize;
        }
    }
    return (int32)(Writer.At - Buffer);
}

// The framing of a node block, or -1.
static int32 MeasureNodeBlock(uint8 const *Data, int32 Size)
{
    word_reader Reader = {Data, Data + Size};
    uint32 Magic, Count;
    if (!GetWord(Reader, &Magic) || Magic != (uint32)NodeBlockMagic) return -1;
    int32 RequesterSize = MeasureRequesterBlock(Reader.At, (int32)(Reader.End - Reader.At));
    if (RequesterSize < 0) return -1;
    Reader.At += RequesterSize;
    if (!GetWord(Reader, &Count)) return -1;
    for (uint32 Index = 0; Index < Count; ++Index) {
        uint32 Id, EntrySize;
        if (!GetWord(Reader, &Id) || !GetWord(Reader, &EntrySize) || !SkipBytes(Reader, EntrySize)) return -1;
    }
    return (int32)(Reader.At - Data);
}

int32 ReadNodeBlock(settings_node *Node, uint8 const *Data, int32 Size)
{
    int32 Length = (Data && Size >= 0) ? MeasureNodeBlock(Data, Size) : -1;
    if (Length < 0) {
        TesselError(LogCategory_Exporter, "Corrupted settings data encountered");
        return -1;
    }

    word_reader Reader = {Data + 4, Data + Length};
    int32 RequesterSize = ReadRequesterBlock(Node ? Node->Requester : nullptr, Reader.At, Length - 4);
    Reader.At += RequesterSize;
    uint32 Count = 0, Id = 0, EntrySize = 0;
    GetWord(Reader, &Count);
    for (uint32 Index = 0; Index < Count; ++Index) {
        GetWord(Reader, &Id);
        GetWord(Reader, &EntrySize);
        bool Found = false;
        for (settings_node *Child = Node ? Node->FirstChild : nullptr; Child; Child = Child->NextSibling) {
            if (Child->Requester && Child->Requester->Id == (int32)Id) {
                if (ReadNodeBlock(Child, Reader.At, (int32)EntrySize) != (int32)EntrySize) {
                    NoteSettingsFlaw("a damaged block of an object's settings", (int32)Id);
                }
                Found = true;
                break;
            }
        }
        if (!Found && Node) NoteSettingsFlaw("settings of an unknown object", (int32)Id);
        SkipBytes(Reader, EntrySize);
    }
    return Length;
}

// ---------------------------------------------------------------------------
// Attaching and spreading

static settings_node *NearestNodeWithRequester(settings_node *Node)
{
    for (; Node; Node = Node->Parent) {
        if (Node->Requester) return Node;
    }
    return nullptr;
}

bool AttachSettings(settings_node *Node, uint8 const *Block, int32 BlockSize)
{
    CheckPointer(Node, LogCategory_Exporter, false);
    settings_node *Ancestor = nullptr;
    if (!Node->Requester) {
        Ancestor = NearestNodeWithRequester(Node->Parent);
        requester *Copy = Ancestor ? DuplicateRequester(Ancestor->Requester) : nullptr;
        if (!Copy) {
            TesselError(LogCategory_Exporter, "Unable to duplicate a requestor for a settings item");
            return false;
        }
        Node->Requester = Copy;
    }
    if (!Block) return true;
    if (ReadRequesterBlock(Node->Requester, Block, BlockSize) >= 0) return true;

    // The object's own block is unreadable: it follows its category.
    if (Ancestor) {
        int32 Size = SizeOfNodeBlock(Ancestor, 0);
        uint8 *Buffer = (uint8 *)TesselAllocate(Size);
        if (Buffer) {
            WriteNodeBlock(Ancestor, 0, Buffer, Size);
            ReadNodeBlock(Node, Buffer, Size);
            TesselFree(Buffer);
        }
    }
    return false;
}

void SpreadSettings(settings_node *Node, requester const *Source, bool Force, bool ChildForce)
{
    if (!Node) return;
    if (Node->Requester && Source) ApplySettings(Node->Requester, Source, Force);
    requester const *Down = Node->Requester ? Node->Requester : Source;
    for (settings_node *Child = Node->FirstChild; Child; Child = Child->NextSibling) {
        SpreadSettings(Child, Down, ChildForce, ChildForce);
    }
}

// ---------------------------------------------------------------------------
// The settings file

static int32 const AllLevels = 1 << 20;

bool LoadSettingsFile(settings_node *Root, char const *FileName)
{
    CheckPointer(Root, LogCategory_Exporter, false);
    CheckPointer(FileName, LogCategory_Exporter, false);

    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) {
        TesselError(LogCategory_Exporter, "Unable to open settings file");
        return false;
    }
    int32 Size = 0;
    if (!GetReaderSize(Reader, &Size) || Size < 0) {
        CloseFileReader(Reader);
        TesselError(LogCategory_Exporter, "Unable to read settings from file");
        return false;
    }
    uint8 *Buffer = (uint8 *)TesselAllocate(Size > 0 ? Size : 1);
    if (!Buffer) {
        CloseFileReader(Reader);
        TesselError(LogCategory_Exporter, "Unable to allocate file reading buffer");
        return false;
    }
    bool Read = ReadExactly(Reader, 0, Size, Buffer);
    CloseFileReader(Reader);
    if (!Read) {
        TesselFree(Buffer);
        TesselError(LogCategory_Exporter, "Unable to read settings from file");
        return false;
    }

    bool Result = ReadNodeBlock(Root, Buffer, Size) >= 0;
    TesselFree(Buffer);
    if (Result) {
        for (settings_node *Child = Root->FirstChild; Child; Child = Child->NextSibling) {
            SpreadSettings(Child, Root->Requester, false, false);
        }
    }
    return Result;
}

bool LoadSettingsFileStrictly(settings_node *Root, char const *FileName)
{
    CheckPointer(Root, LogCategory_Exporter, false);
    CheckPointer(FileName, LogCategory_Exporter, false);
    uint8 *Buffer = 0;
    int32 Size = 0;
    file_reader *Reader = CreatePlatformFileReader(FileName);
    bool Read = Reader && GetReaderSize(Reader, &Size) && Size >= 0 &&
                (Buffer = (uint8 *)TesselAllocate(Size > 0 ? Size : 1)) != 0 && ReadExactly(Reader, 0, Size, Buffer);
    if (Reader) CloseFileReader(Reader);
    if (!Read) {
        if (Buffer) TesselFree(Buffer);
        TesselError(LogCategory_Exporter, "Unable to read settings from file");
        return false;
    }
    BeginStrictSettingsRead();
    int32 Length = ReadNodeBlock(Root, Buffer, Size);
    if (Length >= 0 && Length != Size) NoteSettingsFlaw("bytes after the end of the settings", Size - Length);
    int32 Flaws = EndStrictSettingsRead();
    TesselFree(Buffer);
    if (Length < 0 || Flaws > 0) return false;
    for (settings_node *Child = Root->FirstChild; Child; Child = Child->NextSibling) {
        SpreadSettings(Child, Root->Requester, false, false);
    }
    return true;
}

uint8 *WriteSettingsToMemory(settings_node const *Root, int32 *Size)
{
    CheckPointer(Root, LogCategory_Exporter, nullptr);
    CheckPointer(Size, LogCategory_Exporter, nullptr);
    int32 BlockSize = SizeOfNodeBlock(Root, AllLevels);
    uint8 *Buffer = (uint8 *)TesselAllocate(BlockSize);
    if (!Buffer) return nullptr;
    *Size = WriteNodeBlock(Root, AllLevels, Buffer, BlockSize);
    return Buffer;
}

bool WriteSettingsFile(settings_node const *Root, char const *FileName)
{
    CheckPointer(FileName, LogCategory_Exporter, false);
    int32 Size = 0;
    uint8 *Buffer = WriteSettingsToMemory(Root, &Size);
    if (!Buffer) return false;
    // Replaced whole or not at all, like an exported file.
    file_writer *Writer = CreateOutputFileWriter(FileName);
    bool Result = Writer && Write(Writer, Size, Buffer);
    if (Result) {
        Result = CommitOutputFileWriter(Writer);
    } else {
        DeleteFileWriter(Writer);
    }
    TesselFree(Buffer);
    if (!Result) TesselError(LogCategory_Exporter, "Unable to write settings file %s", FileName);
    return Result;
}
