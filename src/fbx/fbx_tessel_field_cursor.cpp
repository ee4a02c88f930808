// The field container's cursor: sequential reading of fields and values, a
// thin layer over the tree accessors.
#include <cstring>

#include "fbx/fbx_tessel_field_container.h"

void KFbx::ResetCursor()
{
    CursorBlocks[0] = 0;
    CursorDepth = 1;
    CursorField = 0;
    CursorValue = 0;
    CursorText[0] = 0;
}

static fbx_field const *FindInstance(KFbx const &Fbx, fbx_field const *Block, char const *Name, int32 Instance)
{
    if (Instance < 0) return 0;
    for (fbx_field const *Field = Fbx.FindChild(Block, Name); Field; Field = Fbx.FindNextSibling(Field, Name)) {
        if (Instance-- == 0) return Field;
    }
    return 0;
}

bool KFbx::FieldReadBegin(char const *Name, int32 Instance)
{
    if (!Open || !Name) return false;
    fbx_field const *Field = FindInstance(*this, CursorBlocks[CursorDepth - 1], Name, Instance);
    if (!Field) return false;
    CursorField = Field;
    CursorValue = 0;
    return true;
}

void KFbx::FieldReadEnd()
{
    CursorField = 0;
    CursorValue = 0;
}

bool KFbx::FieldReadBlockBegin()
{
    if (!CursorField || CursorDepth >= FbxMaximumCursorDepth) return false;
    CursorBlocks[CursorDepth++] = CursorField;
    CursorField = 0;
    CursorValue = 0;
    return true;
}

void KFbx::FieldReadBlockEnd()
{
    if (CursorDepth <= 1) return;
    CursorField = CursorBlocks[--CursorDepth];
    CursorValue = GetValueCount(CursorField);
}

int32 KFbx::FieldGetCount() const
{
    return Open ? GetChildCount(CursorBlocks[CursorDepth - 1]) : 0;
}

char const *KFbx::FieldGetName(int32 Index) const
{
    if (!Open || Index < 0) return "";
    fbx_field const *Field = GetFirstChild(CursorBlocks[CursorDepth - 1]);
    while (Field && Index-- > 0) Field = GetNextSibling(Field);
    return GetFieldName(Field);
}

int32 KFbx::FieldGetInstanceCount(char const *Name) const
{
    int32 Count = 0;
    if (!Open || !Name) return 0;
    for (fbx_field const *Field = FindChild(CursorBlocks[CursorDepth - 1], Name); Field;
         Field = FindNextSibling(Field, Name))
        ++Count;
    return Count;
}

fbx_field const *KFbx::FieldGetCurrent() const
{
    return CursorField;
}

char KFbx::FieldReadCH()
{
    char Result = 0;
    if (!GetValueChar(CursorField, CursorValue, &Result)) {
        int64 Number;
        if (GetValueInt64(CursorField, CursorValue, &Number)) Result = (char)Number;
    }
    ++CursorValue;
    return Result;
}

int32 KFbx::FieldReadI()
{
    int32 Result = GetInt32(CursorField, CursorValue, 0);
    ++CursorValue;
    return Result;
}

int64 KFbx::FieldReadLL()
{
    int64 Result = GetInt64(CursorField, CursorValue, 0);
    ++CursorValue;
    return Result;
}

real32 KFbx::FieldReadF()
{
    real32 Result = (real32)GetReal64(CursorField, CursorValue, 0.0);
    ++CursorValue;
    return Result;
}

real64 KFbx::FieldReadD()
{
    real64 Result = GetReal64(CursorField, CursorValue, 0.0);
    ++CursorValue;
    return Result;
}

char const *KFbx::FieldReadS()
{
    if (CopyValueString(CursorField, CursorValue, CursorText, (int32)sizeof(CursorText)) < 0) CursorText[0] = 0;
    ++CursorValue;
    return CursorText;
}

void const *KFbx::FieldReadArray(int32 ElementType, int64 *Count)
{
    void const *Result = GetArrayData(CursorField, CursorValue, ElementType, Count);
    ++CursorValue;
    return Result;
}
