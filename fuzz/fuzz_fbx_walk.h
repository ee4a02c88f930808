// Shared by the FBX fuzz targets: opens the bytes with the field container
// and touches every field, value and array in every way a reader can.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fbx/fbx_tessel_field_container.h"

inline void FuzzWalkFbxFields(KFbx &Fbx, fbx_field const *Parent, int32 Depth)
{
    for (fbx_field const *Field = Fbx.GetFirstChild(Parent); Field; Field = Fbx.GetNextSibling(Field))
    {
        Fbx.GetFieldName(Field);
        Fbx.GetDepth(Field);
        int32 Count = Fbx.GetValueCount(Field);
        for (int32 Index = 0; Index < Count; ++Index)
        {
            int64 Integer;
            real64 Real;
            bool Flag;
            char Character;
            char Text[16];
            uint8 const *Raw;
            int64 RawSize;
            Fbx.GetValueType(Field, Index);
            Fbx.GetValueInt64(Field, Index, &Integer);
            Fbx.GetValueReal64(Field, Index, &Real);
            Fbx.GetValueBool(Field, Index, &Flag);
            Fbx.GetValueChar(Field, Index, &Character);
            Fbx.CopyValueString(Field, Index, Text, sizeof(Text));
            Fbx.GetValueRaw(Field, Index, &Raw, &RawSize);
            int64 Elements = Fbx.GetArrayCount(Field, Index);
            if (Elements > 0)
            {
                int32 Types[] = {FbxValue_ArrayInt32, FbxValue_ArrayReal64, FbxValue_ArrayBool};
                for (int32 Type : Types)
                {
                    int64 Got = 0;
                    uint8 const *Data = (uint8 const *)Fbx.GetArrayData(Field, Index, Type, &Got);
                    volatile uint8 Sink = 0;
                    if (Data && Got > 0) Sink = Data[Got * GetFbxArrayElementSize(Type) - 1];
                    (void)Sink;
                }
                real64 Few[4];
                Fbx.CopyArray(Field, Index, FbxValue_ArrayReal64, Few, 4);
            }
        }
        real64 Numbers[8];
        Fbx.CopyNumbers(Field, FbxValue_ArrayReal64, Numbers, 8);
        Fbx.FindChild(Field, "a");
        FuzzWalkFbxFields(Fbx, Field, Depth + 1);
    }
}

inline void FuzzFbxFields(uint8_t const *Data, size_t Size)
{
    KFbx Fbx;
    if (Fbx.ProjectOpenMemory(Data, (int64)Size))
    {
        Fbx.FindPath(0, "FBXHeaderExtension/FBXVersion");
        FuzzWalkFbxFields(Fbx, 0, 0);
    }
}
