// The FBX field container: opening, the tables, navigation and value access.
// The two parsers live in fbx_tessel_binary_parser.cpp and
// fbx_tessel_ascii_parser.cpp.
#include "fbx/fbx_tessel_field_container.h"

#include <zlib.h>

#include <cstdarg>
#include <cstring>

#include "fbx/fbx_tessel_field_internal.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "platform/tessel_platform.h"

// Files must be addressable with the 32-bit offsets of the value table.
static int64 const MaximumFileSize = (int64)0xFFFFFFF0u;

int32 GetFbxArrayElementSize(int32 ElementType)
{
    switch (ElementType) {
    case FbxValue_ArrayInt32:
    case FbxValue_ArrayReal32: return 4;
    case FbxValue_ArrayReal64:
    case FbxValue_ArrayInt64: return 8;
    case FbxValue_ArrayBool: return 1;
    default: return 0;
    }
}

bool IsFbxArrayType(int32 Type)
{
    return GetFbxArrayElementSize(Type) != 0;
}

bool ReadFbxBinaryHeader(uint8 const *Data, int64 Size, bool *BigEndian, int32 *Version)
{
    static char const Magic[21] = "Kaydara FBX Binary  ";
    if (!Data || Size < 27) return false;
    for (int32 Index = 0; Index < 21; ++Index) {
        uint8 A = Data[Index];
        uint8 B = (uint8)Magic[Index];
        if (A >= 'A' && A <= 'Z') A = (uint8)(A - 'A' + 'a');
        if (B >= 'A' && B <= 'Z') B = (uint8)(B - 'A' + 'a');
        if (A != B) return false;
    }
    bool Big = Data[22] != 0;
    if (BigEndian) *BigEndian = Big;
    if (Version) *Version = (int32)LoadFbxU32(Data + 23, Big);
    return true;
}

KFbx::KFbx()
{
    ClearState();
    ErrorText[0] = 0;
}

// Forgets everything the container holds; frees nothing.
void KFbx::ClearState()
{
    Bytes = 0;
    ByteCount = 0;
    Fields = 0;
    FieldCount = FieldCapacity = 0;
    Values = 0;
    ValueCount = ValueCapacity = 0;
    Names = 0;
    NameSize = NameCapacity = 0;
    Slots = 0;
    SlotCount = SlotCapacity = 0;
    FirstTopField = -1;
    TopFieldCount = 0;
    Version = 0;
    Open = Binary = BigEndian = WideRecords = false;
    ResetCursor();
}

KFbx::~KFbx()
{
    ProjectClose();
}

void KFbx::ProjectClose()
{
    for (uint32 Index = 0; Index < SlotCount; ++Index) {
        if (Slots[Index].Data) TesselFree(Slots[Index].Data);
    }
    if (Slots) TesselFree(Slots);
    if (Names) TesselFree(Names);
    if (Values) TesselFree(Values);
    if (Fields) TesselFree(Fields);
    if (Bytes) TesselFree(Bytes);
    ClearState();
}

void KFbx::Fail(char const *Format, ...)
{
    va_list Arguments;
    va_start(Arguments, Format);
    ConvertToStringVar((int32)sizeof(ErrorText), ErrorText, Format, Arguments);
    va_end(Arguments);
    TesselError(LogCategory_FBX, "%s", ErrorText);
}

// A binary FBX header, or text (no zero byte) at the start of the file.
static bool LooksLikeFbx(file_reader *Reader, int32 Size)
{
    uint8 Start[4096];
    int32 Count = Size < (int32)sizeof(Start) ? Size : (int32)sizeof(Start);
    if (ReadAtMost(Reader, 0, Count, Start) != Count) return false;
    return ReadFbxBinaryHeader(Start, Count, 0, 0) || !memchr(Start, 0, (size_t)Count);
}

bool KFbx::ProjectOpenFile(char const *FileName)
{
    ProjectClose();
    ErrorText[0] = 0;
    if (!FileName) {
        Fail("FileName is not allowed to be NULL");
        return false;
    }
    // Read straight into the container's block, hinted before the first write.
    file_reader *Reader = CreatePlatformFileReader(FileName);
    int32 Size = 0;
    if (Reader && GetReaderSize(Reader, &Size) && Size >= 0 && !LooksLikeFbx(Reader, Size)) {
        // Judged by its first bytes before the whole file is read.
        CloseFileReader(Reader);
        Fail("%s is neither a binary FBX file nor text", GetBaseFileName(FileName));
        return false;
    }
    if (Reader && Size >= 0) {
        Bytes = (uint8 *)TesselAllocate((intaddrx)Size + FbxBytePadding);
        AdviseLargeBlock(Bytes, (int64)Size + FbxBytePadding);
        if (Bytes && Size > 0 && !ReadExactly(Reader, 0, Size, Bytes)) {
            TesselFree(Bytes);
            Bytes = 0;
        }
    }
    if (Reader) CloseFileReader(Reader);
    if (!Bytes) {
        Fail("Unable to read %s", FileName);
        return false;
    }
    memset(Bytes + Size, 0, FbxBytePadding);
    ByteCount = Size;
    return Parse();
}

bool KFbx::ProjectOpenMemory(void const *Data, int64 Size)
{
    ProjectClose();
    ErrorText[0] = 0;
    if (!Data && Size != 0) {
        Fail("Data is not allowed to be NULL");
        return false;
    }
    if (Size < 0 || Size > MaximumFileSize) {
        Fail("An FBX file of %I64d bytes is not supported", Size);
        return false;
    }
    Bytes = (uint8 *)TesselAllocate(Size + FbxBytePadding);
    if (!Bytes) {
        Fail("Out of memory for an FBX file of %I64d bytes", Size);
        return false;
    }
    AdviseLargeBlock(Bytes, Size + FbxBytePadding);
    if (Size) memcpy(Bytes, Data, (size_t)Size);
    memset(Bytes + Size, 0, FbxBytePadding);
    ByteCount = Size;
    return Parse();
}

static bool GrowTable(void **Table, uint32 *Capacity, uint32 Needed, int32 UnitSize);

bool KFbx::Parse()
{
    if (ByteCount > MaximumFileSize) {
        Fail("An FBX file of %I64d bytes is not supported", ByteCount);
        ProjectClose();
        return false;
    }
    bool Big = false;
    int32 HeaderVersion = 0;
    bool Result;
    if (ReadFbxBinaryHeader(Bytes, ByteCount, &Big, &HeaderVersion)) {
        Binary = true;
        BigEndian = Big;
        Version = HeaderVersion;
        WideRecords = HeaderVersion >= 7500;
        Result = ParseBinary();
    } else {
        // Text: the tables start at about the size the text will need (a
        // value takes a few bytes of it, a field a line), so that they rarely
        // grow and copy. Pages never reached are never touched; a reservation
        // that fails leaves the tables to grow as they go.
        uint64 Estimate = (uint64)ByteCount / 6 + 256;
        if (Estimate > ((uint64)1 << 24)) Estimate = (uint64)1 << 24;
        GrowTable((void **)&Values, &ValueCapacity, (uint32)Estimate, (int32)sizeof(fbx_value));
        uint32 Capacity = (uint32)FieldCapacity;
        if (GrowTable((void **)&Fields, &Capacity, (uint32)(Estimate / 6), (int32)sizeof(fbx_field)))
            FieldCapacity = (int32)Capacity;
        GrowTable((void **)&Names, &NameCapacity, (uint32)Estimate, 1);
        Result = ParseAscii();
    }
    if (Result && FieldCount == 0) {
        Fail("The file holds no FBX fields");
        Result = false;
    }
    if (!Result) {
        ProjectClose();
        return false;
    }
    Open = true;
    ResetCursor();
    return true;
}

// ---------------------------------------------------------------------------
// Tables

static bool GrowTable(void **Table, uint32 *Capacity, uint32 Needed, int32 UnitSize)
{
    if (Needed <= *Capacity) return true;
    uint64 NewCapacity = *Capacity ? (uint64)*Capacity * 2 : 256;
    while (NewCapacity < Needed) NewCapacity *= 2;
    if (NewCapacity > 0xFFFFFFFFu) NewCapacity = 0xFFFFFFFFu;
    if (NewCapacity < Needed) return false;
    void *NewTable = TesselAllocateAligned(8, (intaddrx)(NewCapacity * (uint64)UnitSize));
    if (!NewTable) return false;
    if (*Table) {
        memcpy(NewTable, *Table, (size_t)*Capacity * (size_t)UnitSize);
        TesselFree(*Table);
    }
    *Table = NewTable;
    *Capacity = (uint32)NewCapacity;
    return true;
}

int32 KFbx::AddField(int32 Parent, int32 PreviousSibling, uint32 FileOffset, char const *Name, int32 NameLength)
{
    if (FieldCount == INT32_MAX) return -1;
    uint32 Capacity = (uint32)FieldCapacity;
    if (FieldCount >= FieldCapacity &&
        !GrowTable((void **)&Fields, &Capacity, (uint32)FieldCount + 1, (int32)sizeof(fbx_field))) {
        Fail("Out of memory for FBX fields");
        return -1;
    }
    FieldCapacity = (int32)Capacity;
    if ((uint64)NameSize + (uint64)NameLength + 1 > 0xFFFFFFF0u ||
        (NameSize + (uint32)NameLength + 1 > NameCapacity &&
         !GrowTable((void **)&Names, &NameCapacity, NameSize + (uint32)NameLength + 1, 1))) {
        Fail("Out of memory for FBX field names");
        return -1;
    }
    int32 Index = FieldCount++;
    fbx_field &Field = Fields[Index];
    Field.NameOffset = NameSize;
    if (NameLength <= 16 && NameSize + 16 <= NameCapacity && !Binary) {
        // Most names are short: one fixed copy, no call. The text is padded
        // (FbxBytePadding), so reading 16 bytes of it is safe.
        memcpy(Names + NameSize, Name, 16);
    } else {
        memcpy(Names + NameSize, Name, (size_t)NameLength);
    }
    Names[NameSize + (uint32)NameLength] = 0;
    NameSize += (uint32)NameLength + 1;
    Field.Parent = Parent;
    Field.FirstChild = -1;
    Field.NextSibling = -1;
    Field.ChildCount = 0;
    Field.FirstValue = ValueCount;
    Field.ValueCount = 0;
    Field.FileOffset = FileOffset;
    if (PreviousSibling >= 0)
        Fields[PreviousSibling].NextSibling = Index;
    else if (Parent >= 0)
        Fields[Parent].FirstChild = Index;
    else
        FirstTopField = Index;
    if (Parent >= 0)
        ++Fields[Parent].ChildCount;
    else
        ++TopFieldCount;
    return Index;
}

bool KFbx::AddValue(int32 Type, uint32 Offset, uint32 Size)
{
    if (ValueCount >= ValueCapacity &&
        !GrowTable((void **)&Values, &ValueCapacity, ValueCount + 1, (int32)sizeof(fbx_value))) {
        Fail("Out of memory for FBX values");
        return false;
    }
    fbx_value &Value = Values[ValueCount++];
    Value.Offset = Offset;
    Value.Size = Size;
    Value.Type = (uint8)Type;
    Value.Pad[0] = Value.Pad[1] = Value.Pad[2] = 0;
    ++Fields[FieldCount - 1].ValueCount;
    return true;
}

int32 KFbx::AddSlot()
{
    if (!GrowTable((void **)&Slots, &SlotCapacity, SlotCount + 1, (int32)sizeof(fbx_array_slot))) {
        Fail("Out of memory for FBX arrays");
        return -1;
    }
    fbx_array_slot &Slot = Slots[SlotCount];
    Slot.Data = 0;
    Slot.Count = 0;
    Slot.DataType = 0;
    Slot.State = 0;
    return (int32)SlotCount++;
}

// ---------------------------------------------------------------------------
// File facts and navigation

bool KFbx::IsOpen() const
{
    return Open;
}
bool KFbx::IsBinary() const
{
    return Open && Binary;
}
bool KFbx::IsBigEndian() const
{
    return Open && BigEndian;
}
bool KFbx::HasWideRecords() const
{
    return Open && WideRecords;
}
int32 KFbx::GetFileVersion() const
{
    return Open ? Version : 0;
}
int64 KFbx::GetFileSize() const
{
    return ByteCount;
}
char const *KFbx::GetErrorText() const
{
    return ErrorText;
}
int32 KFbx::GetFieldCount() const
{
    return FieldCount;
}

#define FIELD_INDEX(Field) ((int32)((Field)-Fields))

static inline bool FieldBelongs(fbx_field const *Field, fbx_field const *Fields, int32 FieldCount)
{
    return Field && Field >= Fields && Field < Fields + FieldCount;
}

fbx_field const *KFbx::GetFirstChild(fbx_field const *Parent) const
{
    if (!Open) return 0;
    if (!Parent) return FirstTopField >= 0 ? &Fields[FirstTopField] : 0;
    if (!FieldBelongs(Parent, Fields, FieldCount)) return 0;
    return Parent->FirstChild >= 0 ? &Fields[Parent->FirstChild] : 0;
}

fbx_field const *KFbx::GetParent(fbx_field const *Field) const
{
    if (!FieldBelongs(Field, Fields, FieldCount)) return 0;
    return Field->Parent >= 0 ? &Fields[Field->Parent] : 0;
}

int32 KFbx::GetChildCount(fbx_field const *Parent) const
{
    if (!Open) return 0;
    if (!Parent) return TopFieldCount;
    if (!FieldBelongs(Parent, Fields, FieldCount)) return 0;
    return Parent->ChildCount;
}

int32 KFbx::GetDepth(fbx_field const *Field) const
{
    if (!FieldBelongs(Field, Fields, FieldCount)) return 0;
    int32 Depth = 0;
    while (Field->Parent >= 0) {
        Field = &Fields[Field->Parent];
        ++Depth;
    }
    return Depth;
}

char const *KFbx::GetFieldName(fbx_field const *Field) const
{
    if (!FieldBelongs(Field, Fields, FieldCount)) return "";
    return Names + Field->NameOffset;
}

bool KFbx::FieldNameIs(fbx_field const *Field, char const *Name) const
{
    if (!Name || !FieldBelongs(Field, Fields, FieldCount)) return false;
    // Names are short and mostly differ early: compared in place.
    char const *Own = Names + Field->NameOffset;
    while (*Own && *Own == *Name) {
        ++Own;
        ++Name;
    }
    return *Own == *Name;
}

uint32 KFbx::GetFieldFileOffset(fbx_field const *Field) const
{
    return FieldBelongs(Field, Fields, FieldCount) ? Field->FileOffset : 0;
}

fbx_field const *KFbx::FindChild(fbx_field const *Parent, char const *Name) const
{
    for (fbx_field const *Child = GetFirstChild(Parent); Child; Child = GetNextSibling(Child)) {
        if (FieldNameIs(Child, Name)) return Child;
    }
    return 0;
}

fbx_field const *KFbx::FindNextSibling(fbx_field const *Field, char const *Name) const
{
    for (fbx_field const *Next = GetNextSibling(Field); Next; Next = GetNextSibling(Next)) {
        if (FieldNameIs(Next, Name)) return Next;
    }
    return 0;
}

fbx_field const *KFbx::FindPath(fbx_field const *Parent, char const *Path) const
{
    if (!Path || !Open) return 0;
    fbx_field const *Current = Parent;
    char Part[256];
    while (*Path) {
        int32 Length = 0;
        while (Path[Length] && Path[Length] != '/') ++Length;
        if (Length == 0 || Length >= (int32)sizeof(Part)) return 0;
        memcpy(Part, Path, (size_t)Length);
        Part[Length] = 0;
        Current = FindChild(Current, Part);
        if (!Current) return 0;
        Path += Length;
        if (*Path == '/') ++Path;
    }
    return Current;
}

// ---------------------------------------------------------------------------
// Values

static bool BoolFromChar(uint8 Character, bool *Result)
{
    switch (Character) {
    case 'T':
    case 'Y':
    case 't':
    case 'y':
    case 1: *Result = true; return true;
    case 'F':
    case 'N':
    case 'f':
    case 'n':
    case 0: *Result = false; return true;
    default: *Result = true; return true;
    }
}

bool KFbx::GetValueInt64(fbx_field const *Field, int32 Index, int64 *Result) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !Result) return false;
    uint8 const *Data = Bytes + Value->Offset;
    switch (Value->Type) {
    case FbxValue_Int16: *Result = (int16)LoadFbxU16(Data, BigEndian); return true;
    case FbxValue_Bool: {
        bool Flag;
        uint8 Character = Data[0];
        if (Character == 'T' || Character == 'Y' || Character == 'F' || Character == 'N' || Character <= 1) {
            BoolFromChar(Character, &Flag);
            *Result = Flag ? 1 : 0;
        } else {
            *Result = (int8)Character;
        }
        return true;
    }
    case FbxValue_Int32: *Result = (int32)LoadFbxU32(Data, BigEndian); return true;
    case FbxValue_Int64: *Result = (int64)LoadFbxU64(Data, BigEndian); return true;
    case FbxValue_Real32:
    case FbxValue_Real64: {
        real64 Real;
        if (!GetValueReal64(Field, Index, &Real)) return false;
        if (!(Real > -9.2233720368547758e18 && Real < 9.2233720368547758e18)) return false;
        *Result = (int64)Real;
        return true;
    }
    case FbxValue_String: return ParseFbxTextInt64((char const *)Data, (int32)Value->Size, Result);
    default: return false;
    }
}

bool KFbx::GetValueReal64(fbx_field const *Field, int32 Index, real64 *Result) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !Result) return false;
    uint8 const *Data = Bytes + Value->Offset;
    switch (Value->Type) {
    case FbxValue_Real32: {
        uint32 Bits = LoadFbxU32(Data, BigEndian);
        real32 Real;
        memcpy(&Real, &Bits, 4);
        *Result = Real;
        return true;
    }
    case FbxValue_Real64: {
        uint64 Bits = LoadFbxU64(Data, BigEndian);
        memcpy(Result, &Bits, 8);
        return true;
    }
    case FbxValue_Int16:
    case FbxValue_Bool:
    case FbxValue_Int32:
    case FbxValue_Int64: {
        int64 Integer;
        if (!GetValueInt64(Field, Index, &Integer)) return false;
        *Result = (real64)Integer;
        return true;
    }
    case FbxValue_String: return ParseFbxTextReal64((char const *)Data, (int32)Value->Size, Result);
    default: return false;
    }
}

bool KFbx::GetValueInt32(fbx_field const *Field, int32 Index, int32 *Result) const
{
    int64 Wide;
    if (!Result || !GetValueInt64(Field, Index, &Wide)) return false;
    if (Wide < INT32_MIN || Wide > INT32_MAX) return false;
    *Result = (int32)Wide;
    return true;
}

bool KFbx::GetValueBool(fbx_field const *Field, int32 Index, bool *Result) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !Result) return false;
    if (Value->Type == FbxValue_Bool) return BoolFromChar(Bytes[Value->Offset], Result);
    if (Value->Type == FbxValue_String &&
        ParseFbxTextBool((char const *)Bytes + Value->Offset, (int32)Value->Size, Result))
        return true;
    real64 Real;
    if (!GetValueReal64(Field, Index, &Real)) return false;
    *Result = Real != 0.0;
    return true;
}

bool KFbx::GetValueChar(fbx_field const *Field, int32 Index, char *Result) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !Result) return false;
    if (Value->Type == FbxValue_Bool) {
        *Result = (char)Bytes[Value->Offset];
        return true;
    }
    if (Value->Type == FbxValue_String && Value->Size > 0) {
        *Result = (char)Bytes[Value->Offset];
        return true;
    }
    return false;
}

int32 KFbx::GetInt32(fbx_field const *Field, int32 Index, int32 Default) const
{
    int32 Result;
    return GetValueInt32(Field, Index, &Result) ? Result : Default;
}

int64 KFbx::GetInt64(fbx_field const *Field, int32 Index, int64 Default) const
{
    int64 Result;
    return GetValueInt64(Field, Index, &Result) ? Result : Default;
}

real64 KFbx::GetReal64(fbx_field const *Field, int32 Index, real64 Default) const
{
    real64 Result;
    return GetValueReal64(Field, Index, &Result) ? Result : Default;
}

bool KFbx::GetValueString(fbx_field const *Field, int32 Index, char const **Data, int32 *Length) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value) return false;
    char const *Text = (char const *)Bytes + Value->Offset;
    int32 TextLength;
    if (Value->Type == FbxValue_String || Value->Type == FbxValue_Raw) {
        TextLength = (int32)Value->Size;
    } else if (Value->Type == FbxValue_AsciiArray) {
        // The "*n" mark as written.
        TextLength = 1;
        while (Text[TextLength] >= '0' && Text[TextLength] <= '9') ++TextLength;
    } else {
        return false;
    }
    if (Data) *Data = Text;
    if (Length) *Length = TextLength;
    return true;
}

int32 KFbx::CopyValueString(fbx_field const *Field, int32 Index, char *Buffer, int32 BufferSize) const
{
    char const *Text;
    int32 Length;
    if (!GetValueString(Field, Index, &Text, &Length)) return -1;
    if (Buffer && BufferSize > 0) {
        int32 Copied = Length < BufferSize - 1 ? Length : BufferSize - 1;
        memcpy(Buffer, Text, (size_t)Copied);
        Buffer[Copied] = 0;
    }
    return Length;
}

bool KFbx::ValueStringIs(fbx_field const *Field, int32 Index, char const *Text) const
{
    char const *Data;
    int32 Length;
    if (!Text || !GetValueString(Field, Index, &Data, &Length)) return false;
    return (int32)strlen(Text) == Length && memcmp(Data, Text, (size_t)Length) == 0;
}

bool KFbx::GetValueRaw(fbx_field const *Field, int32 Index, uint8 const **Data, int64 *Size) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || (Value->Type != FbxValue_Raw && Value->Type != FbxValue_String)) return false;
    if (Data) *Data = Bytes + Value->Offset;
    if (Size) *Size = Value->Size;
    return true;
}

// ---------------------------------------------------------------------------
// Arrays

fbx_field const *KFbx::AsciiArrayField(fbx_field const *Field) const
{
    return FindChild(Field, "a");
}

// Element count of a stored binary array, 0 when its header is inconsistent
// (which reads as an empty array).
static int64 BinaryArrayCount(uint8 const *Header, int32 Type, bool BigEndian)
{
    uint32 Count = LoadFbxU32(Header, BigEndian);
    uint32 Encoding = LoadFbxU32(Header + 4, BigEndian);
    uint32 StoredSize = LoadFbxU32(Header + 8, BigEndian);
    int64 Bytes = (int64)Count * GetFbxArrayElementSize(Type);
    if (Encoding == 0) return Bytes == (int64)StoredSize ? (int64)Count : 0;
    if (Encoding == 1) {
        if (Bytes > FbxMaximumArrayBytes) return 0;
        if (Bytes > (int64)StoredSize * FbxMaximumInflateRatio + 64) return 0;
        return Count;
    }
    return 0;
}

int64 KFbx::ArrayCountOfValue(fbx_value const &Value, fbx_field const *Field) const
{
    if (Value.Type == FbxValue_AsciiArray) {
        fbx_field const *Elements = AsciiArrayField(Field);
        return Elements ? Elements->ValueCount : 0;
    }
    if (!IsFbxArrayType(Value.Type)) return 0;
    return BinaryArrayCount(Bytes + Value.Offset, Value.Type, BigEndian);
}

int64 KFbx::GetArrayCount(fbx_field const *Field, int32 Index) const
{
    fbx_value const *Value = GetValue(Field, Index);
    return Value ? ArrayCountOfValue(*Value, Field) : 0;
}

int32 KFbx::GetArrayElementType(fbx_field const *Field, int32 Index) const
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || (!IsFbxArrayType(Value->Type) && Value->Type != FbxValue_AsciiArray)) return 0;
    return Value->Type;
}

// Converts Count elements from stored form (in the given byte order) to
// ElementType. Source and destination do not overlap.
static void ConvertElements(uint8 const *Source, int32 SourceType, bool Swap, int64 Count, int32 ElementType,
                            void *Destination)
{
    int32 SourceSize = GetFbxArrayElementSize(SourceType);
    if (SourceType == ElementType && !Swap) {
        memcpy(Destination, Source, (size_t)(Count * SourceSize));
        return;
    }
    uint8 *Out = (uint8 *)Destination;
    for (int64 Index = 0; Index < Count; ++Index) {
        uint8 const *In = Source + Index * SourceSize;
        int64 Integer = 0;
        real64 Real = 0.0;
        bool IsReal = false;
        switch (SourceType) {
        case FbxValue_ArrayInt32: Integer = (int32)LoadFbxU32(In, Swap); break;
        case FbxValue_ArrayInt64: Integer = (int64)LoadFbxU64(In, Swap); break;
        case FbxValue_ArrayBool: Integer = In[0] != 0; break;
        case FbxValue_ArrayReal32: {
            uint32 Bits = LoadFbxU32(In, Swap);
            real32 Value;
            memcpy(&Value, &Bits, 4);
            Real = Value;
            IsReal = true;
            break;
        }
        case FbxValue_ArrayReal64: {
            uint64 Bits = LoadFbxU64(In, Swap);
            memcpy(&Real, &Bits, 8);
            IsReal = true;
            break;
        }
        }
        if (IsReal && ElementType != FbxValue_ArrayReal32 && ElementType != FbxValue_ArrayReal64) {
            // Integers from reals: truncate, saturating out-of-range and NaN values.
            if (Real != Real)
                Integer = 0;
            else if (Real >= 9.2233720368547758e18)
                Integer = INT64_MAX;
            else if (Real <= -9.2233720368547758e18)
                Integer = INT64_MIN;
            else
                Integer = (int64)Real;
        }
        switch (ElementType) {
        case FbxValue_ArrayInt32: {
            int32 Value = (int32)(Integer < INT32_MIN ? INT32_MIN : Integer > INT32_MAX ? INT32_MAX : Integer);
            memcpy(Out + Index * 4, &Value, 4);
            break;
        }
        case FbxValue_ArrayInt64: memcpy(Out + Index * 8, &Integer, 8); break;
        case FbxValue_ArrayBool: Out[Index] = IsReal ? (Real != 0.0) : (Integer != 0); break;
        case FbxValue_ArrayReal32: {
            real32 Value = IsReal ? (real32)Real : (real32)Integer;
            memcpy(Out + Index * 4, &Value, 4);
            break;
        }
        case FbxValue_ArrayReal64: {
            real64 Value = IsReal ? Real : (real64)Integer;
            memcpy(Out + Index * 8, &Value, 8);
            break;
        }
        }
    }
}

// Stores one converted scalar of a text or binary value list.
static void StoreElement(int32 ElementType, void *Buffer, int64 Index, int64 Integer, real64 Real, bool IsReal)
{
    uint8 Stored[8];
    memcpy(Stored, IsReal ? (void const *)&Real : (void const *)&Integer, 8);
    ConvertElements(Stored, IsReal ? FbxValue_ArrayReal64 : FbxValue_ArrayInt64, false, 1, ElementType,
                    (uint8 *)Buffer + Index * GetFbxArrayElementSize(ElementType));
}

// One scalar value of a list, as an integer or a real, whichever it holds.
static bool ReadScalar(KFbx const &Fbx, fbx_field const *Field, int32 Index, int32 ElementType, int64 *Integer,
                       real64 *Real, bool *IsReal)
{
    int32 Type = Fbx.GetValueType(Field, Index);
    bool WantReal = ElementType == FbxValue_ArrayReal32 || ElementType == FbxValue_ArrayReal64;
    if (Type == FbxValue_Real32 || Type == FbxValue_Real64 || (Type == FbxValue_String && WantReal)) {
        *IsReal = true;
        return Fbx.GetValueReal64(Field, Index, Real);
    }
    if (ElementType == FbxValue_ArrayBool) {
        bool Flag;
        if (!Fbx.GetValueBool(Field, Index, &Flag)) return false;
        *IsReal = false;
        *Integer = Flag ? 1 : 0;
        return true;
    }
    *IsReal = false;
    return Fbx.GetValueInt64(Field, Index, Integer);
}

// Count values of a list (a text array's elements or a field's own values)
// into Buffer: text straight through the number parsers, other kinds through
// ReadScalar, with the conversions of ReadScalar and StoreElement.
static bool DecodeTextNumbers(KFbx const &Fbx, uint8 const *Bytes, fbx_field const *Field, fbx_value const *List,
                              int64 Count, int32 ElementType, void *Buffer)
{
    bool Numeric = ElementType == FbxValue_ArrayReal32 || ElementType == FbxValue_ArrayReal64 ||
                   ElementType == FbxValue_ArrayInt32 || ElementType == FbxValue_ArrayInt64;
    uint8 *Out = (uint8 *)Buffer;
    int64 Index = 0;
    if (ElementType == FbxValue_ArrayReal64) {
        // The common case in a loop of its own; the general loop below goes
        // on from the first element that is not text.
        for (; Index < Count && List[Index].Type == FbxValue_String; ++Index) {
            char const *Text = (char const *)Bytes + List[Index].Offset;
            int32 Length = (int32)List[Index].Size;
            real64 Real;
            bool Plain = EndsFbxNumber(Text[Length]) ? ParseFbxPlainDecimalBeforeStop(Text, Text + Length, &Real)
                                                     : ParseFbxPlainDecimal(Text, Text + Length, &Real);
            if (!Plain && !ParseFbxTextReal64(Text, Length, &Real)) return false;
            memcpy(Out + Index * 8, &Real, 8);
        }
    }
    for (; Index < Count; ++Index) {
        fbx_value const &Element = List[Index];
        if (Element.Type != FbxValue_String || !Numeric) {
            int64 Integer = 0;
            real64 Real = 0.0;
            bool IsReal = false;
            if (!ReadScalar(Fbx, Field, (int32)Index, ElementType, &Integer, &Real, &IsReal)) return false;
            StoreElement(ElementType, Buffer, Index, Integer, Real, IsReal);
            continue;
        }
        char const *Text = (char const *)Bytes + Element.Offset;
        int32 Length = (int32)Element.Size;
        switch (ElementType) {
        case FbxValue_ArrayReal32:
        case FbxValue_ArrayReal64: {
            real64 Real;
            bool Plain = EndsFbxNumber(Text[Length]) ? ParseFbxPlainDecimalBeforeStop(Text, Text + Length, &Real)
                                                     : ParseFbxPlainDecimal(Text, Text + Length, &Real);
            if (!Plain && !ParseFbxTextReal64(Text, Length, &Real)) return false;
            if (ElementType == FbxValue_ArrayReal64) {
                memcpy(Out + Index * 8, &Real, 8);
            } else {
                real32 Narrow = (real32)Real;
                memcpy(Out + Index * 4, &Narrow, 4);
            }
            break;
        }
        default: {
            int64 Integer;
            bool Plain = EndsFbxNumber(Text[Length]) ? ParseFbxPlainIntegerBeforeStop(Text, Text + Length, &Integer)
                                                     : ParseFbxPlainInteger(Text, Text + Length, &Integer);
            if (!Plain && !ParseFbxTextInt64(Text, Length, &Integer)) return false;
            if (ElementType == FbxValue_ArrayInt64) {
                memcpy(Out + Index * 8, &Integer, 8);
            } else {
                int32 Narrow = (int32)(Integer < INT32_MIN ? INT32_MIN : Integer > INT32_MAX ? INT32_MAX : Integer);
                memcpy(Out + Index * 4, &Narrow, 4);
            }
            break;
        }
        }
    }
    return true;
}

bool KFbx::DecodeArray(fbx_value const &Value, fbx_field const *Field, int32 ElementType, void *Buffer, int64 Count)
{
    if (Count <= 0) return true;
    if (Value.Type == FbxValue_AsciiArray) {
        fbx_field const *Elements = AsciiArrayField(Field);
        if (Elements && Count <= (int64)Elements->ValueCount)
            return DecodeTextNumbers(*this, Bytes, Elements, Values + Elements->FirstValue, Count, ElementType, Buffer);
        for (int64 Index = 0; Index < Count; ++Index) {
            int64 Integer = 0;
            real64 Real = 0.0;
            bool IsReal = false;
            if (!ReadScalar(*this, Elements, (int32)Index, ElementType, &Integer, &Real, &IsReal)) return false;
            StoreElement(ElementType, Buffer, Index, Integer, Real, IsReal);
        }
        return true;
    }
    uint8 const *Header = Bytes + Value.Offset;
    uint32 Encoding = LoadFbxU32(Header + 4, BigEndian);
    uint32 StoredSize = LoadFbxU32(Header + 8, BigEndian);
    uint8 const *Stored = Header + 12;
    if (Encoding == 0) {
        ConvertElements(Stored, Value.Type, BigEndian, Count, ElementType, Buffer);
        return true;
    }
    // zlib: inflate the whole array, straight into Buffer when no conversion is needed.
    int64 Total = ArrayCountOfValue(Value, Field);
    int64 InflatedSize = Total * GetFbxArrayElementSize(Value.Type);
    bool Direct = ElementType == Value.Type && !BigEndian && Count == Total;
    uint8 *Inflated = Direct ? (uint8 *)Buffer : (uint8 *)TesselAllocateAligned(8, InflatedSize ? InflatedSize : 1);
    if (!Inflated) {
        Fail("%s: out of memory inflating %I64d bytes", GetFieldName(Field), InflatedSize);
        return false;
    }
    if (!Direct) AdviseLargeBlock(Inflated, InflatedSize);
    z_stream Stream;
    memset(&Stream, 0, sizeof(Stream));
    bool Ok = inflateInit(&Stream) == Z_OK;
    if (Ok) {
        Stream.next_in = (Bytef *)Stored;
        Stream.avail_in = StoredSize;
        Stream.next_out = Inflated;
        Stream.avail_out = (uInt)InflatedSize;
        int Status = inflate(&Stream, Z_FINISH);
        if (Status != Z_STREAM_END || (int64)Stream.total_out != InflatedSize) {
            Fail("%s: zlib error: %s", GetFieldName(Field),
                 Stream.msg ? Stream.msg : (Status == Z_STREAM_END ? "wrong inflated size" : "stream incomplete"));
            Ok = false;
        }
        inflateEnd(&Stream);
    } else {
        Fail("%s: zlib error: %s", GetFieldName(Field), "initialisation failed");
    }
    if (Ok && !Direct) ConvertElements(Inflated, Value.Type, BigEndian, Count, ElementType, Buffer);
    if (!Direct) TesselFree(Inflated);
    return Ok;
}

int64 KFbx::CopyArray(fbx_field const *Field, int32 Index, int32 ElementType, void *Buffer, int64 Count)
{
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !IsFbxArrayType(ElementType) || Count < 0 || (!Buffer && Count > 0)) return -1;
    if (!IsFbxArrayType(Value->Type) && Value->Type != FbxValue_AsciiArray) return -1;
    int64 Total = ArrayCountOfValue(*Value, Field);
    int64 Wanted = Count < Total ? Count : Total;
    bool Compressed = Value->Type != FbxValue_AsciiArray && LoadFbxU32(Bytes + Value->Offset + 4, BigEndian) == 1;
    if (Compressed && Wanted > 0) {
        // Inflate once into the cache, then copy from there.
        int64 CachedCount = 0;
        void const *Cached = GetArrayData(Field, Index, Value->Type, &CachedCount);
        if (!Cached) return -1;
        ConvertElements((uint8 const *)Cached, Value->Type, false, Wanted, ElementType, Buffer);
        return Wanted;
    }
    if (!DecodeArray(*Value, Field, ElementType, Buffer, Wanted)) return -1;
    return Wanted;
}

void const *KFbx::GetArrayData(fbx_field const *Field, int32 Index, int32 ElementType, int64 *Count)
{
    if (Count) *Count = 0;
    fbx_value const *Value = GetValue(Field, Index);
    if (!Value || !IsFbxArrayType(ElementType)) return 0;
    if (!IsFbxArrayType(Value->Type) && Value->Type != FbxValue_AsciiArray) return 0;
    fbx_array_slot &Slot = Slots[Value->Size];
    if (Slot.State == 2) return 0;
    if (Slot.State == 1 && Slot.DataType == ElementType) {
        if (Count) *Count = Slot.Count;
        return Slot.Data;
    }
    int64 Total = ArrayCountOfValue(*Value, Field);
    int64 Size = Total * GetFbxArrayElementSize(ElementType);
    void *Data = TesselAllocateAligned(8, Size ? Size : 1);
    if (!Data) {
        Fail("%s: out of memory for an array of %I64d bytes", GetFieldName(Field), Size);
        return 0;
    }
    AdviseLargeBlock(Data, Size);
    bool Ok;
    if (Slot.State == 1 && Slot.DataType == Value->Type) {
        // Already inflated in its stored type: convert from the cache.
        ConvertElements((uint8 const *)Slot.Data, Value->Type, false, Total, ElementType, Data);
        Ok = true;
    } else {
        Ok = DecodeArray(*Value, Field, ElementType, Data, Total);
    }
    if (!Ok) {
        TesselFree(Data);
        // A broken stream stays broken; text that is not a number may still
        // convert to another type, so only binary failures are final.
        if (Value->Type != FbxValue_AsciiArray) Slot.State = 2;
        return 0;
    }
    if (Slot.Data) TesselFree(Slot.Data);
    Slot.Data = Data;
    Slot.Count = Total;
    Slot.DataType = ElementType;
    Slot.State = 1;
    if (Count) *Count = Total;
    return Data;
}

void const *KFbx::GetArrayElements(fbx_field const *Field, int32 Index, int32 ElementType, int64 *Count)
{
    fbx_value const *Value = GetValue(Field, Index);
    if (Value && Value->Type == ElementType && IsFbxArrayType(ElementType) && !BigEndian &&
        LoadFbxU32(Bytes + Value->Offset + 4, false) == 0) {
        if (Count) *Count = ArrayCountOfValue(*Value, Field);
        return Bytes + Value->Offset + 12;
    }
    return GetArrayData(Field, Index, ElementType, Count);
}

int64 KFbx::GetNumberCount(fbx_field const *Field) const
{
    if (!FieldBelongs(Field, Fields, FieldCount)) return 0;
    if (Field->ValueCount == 1) {
        fbx_value const &Value = Values[Field->FirstValue];
        if (IsFbxArrayType(Value.Type) || Value.Type == FbxValue_AsciiArray) return ArrayCountOfValue(Value, Field);
    }
    return Field->ValueCount;
}

int64 KFbx::CopyNumbers(fbx_field const *Field, int32 ElementType, void *Buffer, int64 Count)
{
    if (!FieldBelongs(Field, Fields, FieldCount) || !IsFbxArrayType(ElementType) || Count < 0 || (!Buffer && Count > 0))
        return -1;
    if (Field->ValueCount == 1) {
        fbx_value const &Value = Values[Field->FirstValue];
        if (IsFbxArrayType(Value.Type) || Value.Type == FbxValue_AsciiArray)
            return CopyArray(Field, 0, ElementType, Buffer, Count);
    }
    int64 Wanted = Count < (int64)Field->ValueCount ? Count : (int64)Field->ValueCount;
    if (!DecodeTextNumbers(*this, Bytes, Field, Values + Field->FirstValue, Wanted, ElementType, Buffer)) return -1;
    return Wanted;
}
