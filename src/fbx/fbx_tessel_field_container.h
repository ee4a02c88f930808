// The FBX field container: a tree of named fields with typed values, read
// from a binary FBX file (either byte order, 32- or 64-bit record headers) or
// from an ASCII FBX file.
//
// The whole file is read into one block once. Parsing builds three flat
// tables (fields, values, names); values stay in the file's bytes until they
// are asked for. Arrays are inflated (zlib) or converted (ASCII text) on first
// use and kept until the container closes. Every table grows with what the
// file really holds (a small multiple of its size), and an array never
// inflates beyond what its stored bytes can produce, so absurd counts fail
// or read as empty instead of allocating.
//
// Navigation:
//   KFbx Fbx;
//   if (Fbx.ProjectOpenFile("scene.fbx")) {
//       fbx_field const *Objects = Fbx.FindChild(nullptr, "Objects");
//       for (fbx_field const *Object = Fbx.GetFirstChild(Objects); Object;
//            Object = Fbx.GetNextSibling(Object)) {
//           char const *Kind = Fbx.GetFieldName(Object);   // "Model", "Geometry", ...
//           int64 Id = Fbx.GetInt64(Object, 0);
//       }
//   }
//
// A null parent stands for the top level of the file. Accessors with a bad
// field, a bad value index or an impossible conversion return false, 0 or
// null; none of them logs, so that probing for optional values stays quiet.
// Only a broken zlib stream is logged (and kept in GetErrorText) when an
// array is decoded.
#pragma once

#include "foundation/tessel_types.h"

// Type letters of values. ASCII files keep their values as text: every ASCII
// value reports FbxValue_String, except the "*n" mark of a counted array,
// which reports FbxValue_AsciiArray; the numeric accessors convert the text.
enum fbx_value_type
{
    FbxValue_None = 0,
    FbxValue_Int16 = 'Y',
    FbxValue_Bool = 'C', // boolean or character
    FbxValue_Int32 = 'I',
    FbxValue_Real32 = 'F',
    FbxValue_Real64 = 'D',
    FbxValue_Int64 = 'L', // also a KTime
    FbxValue_String = 'S',
    FbxValue_Raw = 'R',
    FbxValue_ArrayInt32 = 'i',
    FbxValue_ArrayReal32 = 'f',
    FbxValue_ArrayReal64 = 'd',
    FbxValue_ArrayInt64 = 'l',
    FbxValue_ArrayBool = 'b',
    FbxValue_AsciiArray = 'a',
};

// Element types that array accessors convert to (a subset of the above):
// FbxValue_ArrayInt32 (int32), FbxValue_ArrayInt64 (int64),
// FbxValue_ArrayReal32 (real32), FbxValue_ArrayReal64 (real64) and
// FbxValue_ArrayBool (uint8, 0 or 1).
int32 GetFbxArrayElementSize(int32 ElementType);
bool IsFbxArrayType(int32 Type);

// Limits of the parsers.
enum
{
    FbxMaximumFieldDepth = 128,
    // Inflated arrays may be at most this many times their stored size (zlib
    // cannot expand more than about 1032:1) ...
    FbxMaximumInflateRatio = 1100,
    FbxMaximumCursorDepth = FbxMaximumFieldDepth + 2,
};
// ... and never more than this many bytes.
constexpr int64 FbxMaximumArrayBytes = (int64)1 << 31;
// Zero bytes after the file's bytes in the container: the text scanners
// read up to 16 bytes at a time and may look that far past the end.
constexpr int64 FbxBytePadding = 32;

// Records of the tables. Callers only hold pointers to fields; the members
// are private to the container.
#pragma pack(push, 4)
struct fbx_field
{
    uint32 NameOffset; // into the name table
    int32 Parent;      // field indices; -1 for none
    int32 FirstChild;
    int32 NextSibling;
    int32 ChildCount;
    uint32 FirstValue; // into the value table
    uint32 ValueCount;
    uint32 FileOffset; // where the field starts in the file, for messages
};

struct fbx_value
{
    uint32 Offset; // into the file's bytes
    uint32 Size;   // byte count of strings, raw data and ASCII text; slot of arrays
    uint8 Type;
    uint8 Pad[3];
};

struct fbx_array_slot
{
    void *Data; // converted elements, from the allocation hooks
    int64 Count;
    int32 DataType; // element type of Data
    int32 State;    // 0 untouched, 1 ready, 2 failed
};
#pragma pack(pop)

class KFbx
{
public:
    KFbx();
    ~KFbx();
    KFbx(KFbx const &) = delete;
    KFbx &operator=(KFbx const &) = delete;

    // Opening. Both read the whole file (or copy the block) and parse it; a
    // container that is already open closes first. On failure the container
    // stays closed and GetErrorText says why.
    bool ProjectOpenFile(char const *FileName);
    bool ProjectOpenMemory(void const *Data, int64 Size);
    void ProjectClose();

    bool IsOpen() const;
    bool IsBinary() const;
    bool IsBigEndian() const;
    // 64-bit record headers (binary 7500 and above).
    bool HasWideRecords() const;
    // Binary: the version of the header. ASCII: FBXHeaderExtension/FBXVersion,
    // else the "; FBX 7.4.0 project file" comment, else 0.
    int32 GetFileVersion() const;
    int64 GetFileSize() const;
    char const *GetErrorText() const;

    // Tree. A null Parent means the top level.
    fbx_field const *GetFirstChild(fbx_field const *Parent) const;
    fbx_field const *GetNextSibling(fbx_field const *Field) const;
    fbx_field const *GetParent(fbx_field const *Field) const;
    int32 GetChildCount(fbx_field const *Parent) const;
    // First child with that name (exact, case-sensitive), or null.
    fbx_field const *FindChild(fbx_field const *Parent, char const *Name) const;
    // The next sibling after Field with that name, or null.
    fbx_field const *FindNextSibling(fbx_field const *Field, char const *Name) const;
    // Follows a path of child names separated by '/', e.g. "FBXHeaderExtension/FBXVersion".
    fbx_field const *FindPath(fbx_field const *Parent, char const *Path) const;
    int32 GetFieldCount() const;                  // all fields of the file
    int32 GetDepth(fbx_field const *Field) const; // 0 at the top level

    char const *GetFieldName(fbx_field const *Field) const; // "" for null
    bool FieldNameIs(fbx_field const *Field, char const *Name) const;
    uint32 GetFieldFileOffset(fbx_field const *Field) const;

    // Values.
    int32 GetValueCount(fbx_field const *Field) const;
    // A type letter (fbx_value_type), or 0 when out of range.
    int32 GetValueType(fbx_field const *Field, int32 Index) const;

    // Numbers, converted from any numeric type (and from ASCII text). False
    // when out of range or not a number.
    bool GetValueInt32(fbx_field const *Field, int32 Index, int32 *Result) const;
    bool GetValueInt64(fbx_field const *Field, int32 Index, int64 *Result) const;
    bool GetValueReal64(fbx_field const *Field, int32 Index, real64 *Result) const;
    // 'T', 'Y', 1 and nonzero numbers are true; 'F', 'N', 0 false.
    bool GetValueBool(fbx_field const *Field, int32 Index, bool *Result) const;
    // The character of a 'C' value, or the first character of an ASCII value.
    bool GetValueChar(fbx_field const *Field, int32 Index, char *Result) const;
    // Shorthands returning Default when the value is missing or not a number.
    int32 GetInt32(fbx_field const *Field, int32 Index, int32 Default = 0) const;
    int64 GetInt64(fbx_field const *Field, int32 Index, int64 Default = 0) const;
    real64 GetReal64(fbx_field const *Field, int32 Index, real64 Default = 0.0) const;

    // Strings (S values, and every ASCII value). The view points into the
    // container's copy of the file and is not zero-terminated. Binary object
    // names (Name \0 \1 Class) read as "Class::Name"; ASCII "&quot;" reads as '"'.
    bool GetValueString(fbx_field const *Field, int32 Index, char const **Data, int32 *Length) const;
    // Copies with a terminating zero, truncating to BufferSize - 1 bytes;
    // returns the full length, or -1 when there is no such string.
    int32 CopyValueString(fbx_field const *Field, int32 Index, char *Buffer, int32 BufferSize) const;
    // Exact comparison with a zero-terminated text.
    bool ValueStringIs(fbx_field const *Field, int32 Index, char const *Text) const;
    // Raw bytes of an R value (also of an S value).
    bool GetValueRaw(fbx_field const *Field, int32 Index, uint8 const **Data, int64 *Size) const;

    // Arrays: binary i f d l b values and ASCII counted arrays ("*n" followed
    // by a block with the field "a"). Element type: the stored letter, or
    // FbxValue_AsciiArray for ASCII, which converts to any element type.
    int64 GetArrayCount(fbx_field const *Field, int32 Index) const;
    int32 GetArrayElementType(fbx_field const *Field, int32 Index) const;
    // Copies up to Count elements converted to ElementType into Buffer;
    // returns the number of elements copied, or -1 on failure (not an array,
    // a broken zlib stream, text that is not a number).
    int64 CopyArray(fbx_field const *Field, int32 Index, int32 ElementType, void *Buffer, int64 Count);
    // The elements in ElementType, native byte order, converted on the first
    // call and cached until the container closes. Null on failure.
    void const *GetArrayData(fbx_field const *Field, int32 Index, int32 ElementType, int64 *Count);
    // The same elements without any copy when the file already stores them
    // that way (an uncompressed binary array of ElementType in native byte
    // order): then the pointer is into the file's bytes and may be unaligned,
    // so read elements with memcpy. Otherwise as GetArrayData.
    void const *GetArrayElements(fbx_field const *Field, int32 Index, int32 ElementType, int64 *Count);

    // Number lists regardless of how the file stores them: if the field has a
    // single array value, that array; otherwise all of the field's values in
    // order (FBX 6 stores long lists as plain values).
    int64 GetNumberCount(fbx_field const *Field) const;
    int64 CopyNumbers(fbx_field const *Field, int32 ElementType, void *Buffer, int64 Count);

    // Sequential reading, block by block, as readers written against a
    // cursor expect it. FieldReadBegin makes the Instance-th field of that
    // name in the current block current; the FieldRead* calls then return its
    // values in turn (a missing or unconvertible value reads as 0 or "").
    // FieldReadBlockBegin enters the current field's children.
    bool FieldReadBegin(char const *Name, int32 Instance = 0);
    void FieldReadEnd();
    bool FieldReadBlockBegin();
    void FieldReadBlockEnd();
    int32 FieldGetCount() const;                 // fields of the current block
    char const *FieldGetName(int32 Index) const; // "" when out of range
    int32 FieldGetInstanceCount(char const *Name) const;
    fbx_field const *FieldGetCurrent() const;
    char FieldReadCH();
    int32 FieldReadI();
    int64 FieldReadLL();
    real32 FieldReadF();
    real64 FieldReadD();
    // The string of the next value, zero-terminated in a buffer of the
    // container that the next FieldReadS overwrites (long strings truncate).
    char const *FieldReadS();
    // The next value as an array: elements in ElementType, cached as by GetArrayData.
    void const *FieldReadArray(int32 ElementType, int64 *Count);

private:
    bool Parse();
    void ResetCursor();
    void ClearState();
    bool ParseBinary();
    bool ParseAscii();
    void Fail(char const *Format, ...);
    fbx_value const *GetValue(fbx_field const *Field, int32 Index) const;
    bool HoldsField(fbx_field const *Field) const;
    bool DecodeArray(fbx_value const &Value, fbx_field const *Field, int32 ElementType, void *Buffer, int64 Count);
    int64 ArrayCountOfValue(fbx_value const &Value, fbx_field const *Field) const;
    fbx_field const *AsciiArrayField(fbx_field const *Field) const;
    // Table growth during parsing; false (with the error set) when out of memory.
    int32 AddField(int32 Parent, int32 PreviousSibling, uint32 FileOffset, char const *Name, int32 NameLength);
    bool AddValue(int32 Type, uint32 Offset, uint32 Size);
    int32 AddSlot();
    friend struct fbx_binary_parser;
    friend struct fbx_ascii_parser;

    uint8 *Bytes; // the file, followed by FbxBytePadding zero bytes
    int64 ByteCount;
    fbx_field *Fields;
    int32 FieldCount;
    int32 FieldCapacity;
    fbx_value *Values;
    uint32 ValueCount;
    uint32 ValueCapacity;
    char *Names;
    uint32 NameSize;
    uint32 NameCapacity;
    fbx_array_slot *Slots;
    uint32 SlotCount;
    uint32 SlotCapacity;
    int32 FirstTopField;
    int32 TopFieldCount;
    int32 Version;
    bool8 Open;
    bool8 Binary;
    bool8 BigEndian;
    bool8 WideRecords;
    char ErrorText[256];
    // The cursor: the blocks entered (the owning field of each; null for the
    // top level), the current field and the position in its values.
    fbx_field const *CursorBlocks[FbxMaximumCursorDepth];
    int32 CursorDepth;
    fbx_field const *CursorField;
    int32 CursorValue;
    char CursorText[1024];
};

// The accessors the readers call for every value, inline.
inline bool KFbx::HoldsField(fbx_field const *Field) const
{
    return Field && Field >= Fields && Field < Fields + FieldCount;
}

inline fbx_value const *KFbx::GetValue(fbx_field const *Field, int32 Index) const
{
    if (!HoldsField(Field)) return 0;
    if (Index < 0 || (uint32)Index >= Field->ValueCount) return 0;
    return &Values[Field->FirstValue + (uint32)Index];
}

inline int32 KFbx::GetValueCount(fbx_field const *Field) const
{
    return HoldsField(Field) ? (int32)Field->ValueCount : 0;
}

inline int32 KFbx::GetValueType(fbx_field const *Field, int32 Index) const
{
    fbx_value const *Value = GetValue(Field, Index);
    return Value ? Value->Type : 0;
}

inline fbx_field const *KFbx::GetNextSibling(fbx_field const *Field) const
{
    if (!HoldsField(Field)) return 0;
    return Field->NextSibling >= 0 ? &Fields[Field->NextSibling] : 0;
}

// Detects the 27-byte binary header. Returns true with the byte order and
// version when the header text matches (case-insensitive).
bool ReadFbxBinaryHeader(uint8 const *Data, int64 Size, bool *BigEndian, int32 *Version);
