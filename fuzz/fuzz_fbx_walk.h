// Shared by the FBX fuzz targets: opens the bytes with the field container
// and touches every field, value and array in every way a reader can, then
// imports them into a scene.
#pragma once

#include <cstddef>
#include <cstdint>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_node.h"

inline void FuzzWalkFbxFields(KFbx &Fbx, fbx_field const *Parent, int32 Depth)
{
    for (fbx_field const *Field = Fbx.GetFirstChild(Parent); Field; Field = Fbx.GetNextSibling(Field)) {
        Fbx.GetFieldName(Field);
        Fbx.GetDepth(Field);
        int32 Count = Fbx.GetValueCount(Field);
        for (int32 Index = 0; Index < Count; ++Index) {
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
            if (Elements > 0) {
                int32 Types[] = {FbxValue_ArrayInt32, FbxValue_ArrayReal64, FbxValue_ArrayBool};
                for (int32 Type : Types) {
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

inline void FuzzWalkFbxNodes(KFbxNode *Node, int32 Depth)
{
    if (!Node || Depth > 64) return;
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index) {
        KFbxNode *Child = Node->GetChild(Index);
        Child->GetGlobalTransformDefault();
        FuzzWalkFbxNodes(Child, Depth + 1);
    }
}

// The field level, then the whole import into a scene.
inline void FuzzFbxFields(uint8_t const *Data, size_t Size)
{
    {
        KFbx Fbx;
        if (Fbx.ProjectOpenMemory(Data, (int64)Size)) {
            Fbx.FindPath(0, "FBXHeaderExtension/FBXVersion");
            FuzzWalkFbxFields(Fbx, 0, 0);
            // The cursor over the first two levels.
            for (int32 Index = 0; Index < Fbx.FieldGetCount() && Index < 32; ++Index) {
                if (!Fbx.FieldReadBegin(Fbx.FieldGetName(Index))) continue;
                Fbx.FieldReadS();
                Fbx.FieldReadLL();
                Fbx.FieldReadCH();
                int64 Count;
                Fbx.FieldReadArray(FbxValue_ArrayInt32, &Count);
                if (Fbx.FieldReadBlockBegin()) {
                    if (Fbx.FieldReadBegin(Fbx.FieldGetName(0), Fbx.FieldGetInstanceCount(Fbx.FieldGetName(0)) - 1))
                        Fbx.FieldReadD();
                    Fbx.FieldReadBlockEnd();
                }
                Fbx.FieldReadEnd();
            }
        }
    }
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    if (!Manager) return;
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    if (Scene && Importer && Importer->InitializeFromMemory(Data, (int64)Size) && Importer->Import(Scene)) {
        fbx_scene_counts Counts;
        CountFBXScene(Scene, &Counts);
        FuzzWalkFbxNodes(Scene->GetRootNode(), 0);
    }
    Manager->Destroy();
}
