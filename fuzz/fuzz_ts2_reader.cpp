// Fuzz target: the TS2 file reader on arbitrary bytes, then a walk of the
// object tree through the file's own type tables and a conversion to
// another platform.
#include <cstdint>
#include <cstring>
#include <set>

#include "format/tessel_file_reader.h"
#include "format/tessel_platform_convert.h"
#include "foundation/tessel_file_io.h"

namespace {

struct walk_state
{
    loaded_file const *File;
    std::set<uint64_t> Seen;
    int Budget;
};

void WalkObject(walk_state &State, file_section_reference Type, file_section_reference Object, int Depth);

void WalkTarget(walk_state &State, file_section_reference Type, file_section_reference Slot, int Depth)
{
    file_section_reference Target;
    if (ResolveFilePointer(*State.File, Slot, &Target)) WalkObject(State, Type, Target, Depth + 1);
}

void WalkObject(walk_state &State, file_section_reference Type, file_section_reference Object, int Depth)
{
    uint64_t Key = ((uint64_t)Object.SectionIndex << 32) | Object.Offset;
    if (Depth > 64 || --State.Budget < 0 || !State.Seen.insert(Key).second) return;
    uint32 Size = 0;
    if (!GetFileTypeObjectSize(*State.File, Type, &Size) || !GetLoadedFileBytes(*State.File, Object, Size)) return;

    uint32 const P = (uint32)State.File->PointerBits / 8;
    file_type_member Member;
    for (int32 Index = 0; GetFileTypeMember(*State.File, Type, Index, &Member); ++Index) {
        file_section_reference Slot = {Object.SectionIndex, Object.Offset + Member.SlotOffset};
        file_section_reference Target, VariantType;
        switch (Member.Kind) {
        case 1: WalkObject(State, Member.ReferenceType, Slot, Depth + 1); break;
        case 2: WalkTarget(State, Member.ReferenceType, Slot, Depth); break;
        case 3:
        case 4: {
            uint8 const *Count = GetLoadedFileBytes(*State.File, Slot, 4);
            file_section_reference ArraySlot = {Slot.SectionIndex, Slot.Offset + 4};
            uint32 ElementSize = P;
            if (Member.Kind == 3 && !GetFileTypeObjectSize(*State.File, Member.ReferenceType, &ElementSize)) break;
            if (Count && ResolveFilePointer(*State.File, ArraySlot, &Target)) {
                uint32 N;
                memcpy(&N, Count, 4);
                for (uint32 Element = 0; Element < N && Element < 64; ++Element) {
                    if (Member.Kind == 3) {
                        WalkObject(State, Member.ReferenceType,
                                   {Target.SectionIndex, Target.Offset + Element * ElementSize}, Depth + 1);
                    } else {
                        WalkTarget(State, Member.ReferenceType,
                                   {Target.SectionIndex, Target.Offset + Element * ElementSize}, Depth);
                    }
                }
            }
            break;
        }
        case 5:
            if (ResolveFilePointer(*State.File, Slot, &VariantType)) {
                WalkTarget(State, VariantType, {Slot.SectionIndex, Slot.Offset + P}, Depth);
            }
            break;
        case 8:
            if (ResolveFilePointer(*State.File, Slot, &Target)) GetLoadedFileString(*State.File, Target);
            break;
        default: break;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size > (1u << 24)) return 0;
    // What a tool that opens untrusted files would allow one of them.
    SetFileReaderMemoryLimit(64 << 20);
    loaded_file *File = LoadFileFromMemory((int32)Size, Data);
    if (!File) return 0;
    walk_state State = {File, {}, 10000};
    WalkObject(State, File->Header.RootObjectTypeDefinition, File->Header.RootObject, 0);
    void *RootType = 0;
    GetLoadedFileRootObject(*File, &RootType);
    FreeLoadedFile(File);
    // Whatever loads is also converted for another platform.
    uint8 *Converted = 0;
    int32 ConvertedSize = 0;
    PlatformConvertMemory((int32)Size, Data, FileMagic32BitBigEndian, &Converted, &ConvertedSize);
    if (Converted) FreeMemoryWriterBuffer(Converted);
    return 0;
}
