// Allocation helpers of the FBX scene model. Every object, string and array
// of the model comes from the allocation hooks so that destroying the manager
// leaves no live block behind.
#pragma once

#include <cstdint>
#include <new>
#include <utility>

#include "fbx/fbx_tessel_memory_hint.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "foundation/tessel_types.h"

#define FbxNew(Type, ...)                                                                                              \
    FbxConstruct_<Type>(TesselAllocateAligned(alignof(Type) < 8 ? 8 : alignof(Type), sizeof(Type)), ##__VA_ARGS__)

template <typename T, typename... Args>
inline T *FbxConstruct_(void *Memory, Args &&...Arguments)
{
    if (!Memory) {
        return nullptr;
    }
    return new (Memory) T(std::forward<Args>(Arguments)...);
}

template <typename T>
inline void FbxDelete(T *Object)
{
    if (Object) {
        Object->~T();
        TesselFree(Object);
    }
}

// A heap copy of a string (or of its first Length bytes); free with TesselFree.
inline char *FbxCopyString(char const *String, int32 Length = -1)
{
    if (!String) {
        String = "";
        Length = 0;
    }
    if (Length < 0) {
        Length = StringLength(String);
    }
    char *Copy = (char *)TesselAllocate(Length + 1);
    if (Copy) {
        for (int32 Index = 0; Index < Length; ++Index) {
            Copy[Index] = String[Index];
        }
        Copy[Length] = 0;
    }
    return Copy;
}

// Growable array of plain values (numbers, records without destructors,
// pointers). Owner objects release what pointers point to themselves.
template <typename T>
struct fbx_array
{
    T *Data = nullptr;
    int32 Count = 0;
    int32 Capacity = 0;

    fbx_array() = default;
    fbx_array(fbx_array const &) = delete;
    fbx_array &operator=(fbx_array const &) = delete;
    ~fbx_array() { Clear(); }

    void Clear()
    {
        if (Data) {
            TesselFree(Data);
        }
        Data = nullptr;
        Count = 0;
        Capacity = 0;
    }
    // Room for exactly Wanted elements (Add grows by doubling instead).
    bool Reserve(int32 Wanted)
    {
        if (Wanted <= Capacity) {
            return true;
        }
        T *NewData = TesselAllocateArray(T, Wanted);
        if (!NewData) {
            return false;
        }
        AdviseLargeBlock(NewData, (int64)sizeof(T) * Wanted);
        for (int32 Index = 0; Index < Count; ++Index) {
            NewData[Index] = Data[Index];
        }
        if (Data) {
            TesselFree(Data);
        }
        Data = NewData;
        Capacity = Wanted;
        return true;
    }
    // Sets the count; new elements are value-initialised.
    bool Resize(int32 NewCount)
    {
        int32 OldCount = Count;
        if (!ResizeUninitialised(NewCount)) {
            return false;
        }
        for (int32 Index = OldCount; Index < NewCount; ++Index) {
            Data[Index] = T();
        }
        return true;
    }
    // Sets the count leaving new elements unset, for callers that write
    // every one of them right away.
    bool ResizeUninitialised(int32 NewCount)
    {
        if (NewCount < 0 || !Reserve(NewCount)) {
            return false;
        }
        Count = NewCount;
        return true;
    }
    bool Add(T const &Value)
    {
        if (Count == Capacity) {
            int64 NewCapacity = Capacity ? (int64)Capacity * 2 : 8;
            if (NewCapacity > INT32_MAX) {
                NewCapacity = INT32_MAX;
            }
            if (NewCapacity <= Count || !Reserve((int32)NewCapacity)) {
                return false;
            }
        }
        Data[Count++] = Value;
        return true;
    }
    void RemoveAt(int32 Index)
    {
        if (Index < 0 || Index >= Count) {
            return;
        }
        for (int32 At = Index + 1; At < Count; ++At) {
            Data[At - 1] = Data[At];
        }
        --Count;
    }
    int32 Find(T const &Value) const
    {
        for (int32 Index = 0; Index < Count; ++Index) {
            if (Data[Index] == Value) {
                return Index;
            }
        }
        return -1;
    }
    bool CopyFrom(fbx_array const &Other)
    {
        Count = 0;
        if (!Reserve(Other.Count)) {
            return false;
        }
        for (int32 Index = 0; Index < Other.Count; ++Index) {
            Data[Index] = Other.Data[Index];
        }
        Count = Other.Count;
        return true;
    }
    // The element, or a value-initialised one out of range.
    T GetAt(int32 Index) const { return (Index >= 0 && Index < Count) ? Data[Index] : T(); }
    T &operator[](int32 Index) { return Data[Index]; }
    T const &operator[](int32 Index) const { return Data[Index]; }
    int32 GetCount() const { return Count; }
};
