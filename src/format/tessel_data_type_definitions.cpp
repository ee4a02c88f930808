#include "format/tessel_data_type_definitions.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_string.h"

namespace {

struct member_kind_info
{
    char const *Name;
    int32 Size32;
    int32 Size64;
    uint32 Marshalling;
    char const *TypeName;
};

// Indexed by member_type.
member_kind_info const MemberKinds[OnePastLastMemberType] = {
    {"EndMember", 0, 0, 0, ""},
    {"InlineMember", 0, 0, 0, ""},
    {"ReferenceMember", 4, 8, 0, "void *"},
    {"ReferenceToArrayMember", 8, 12, 4, "void *"},
    {"ArrayOfReferencesMember", 8, 12, 4, "void **"},
    {"VariantReferenceMember", 8, 16, 0, "void *"},
    {"__REMOVED", 0, 0, 0, "unsupported"},
    {"ReferenceToVariantArrayMember", 12, 20, 4, "void *"},
    {"StringMember", 4, 8, 4, "char *"},
    {"TransformMember", 68, 68, 4, "tessel_transform"},
    {"Real32Member", 4, 4, 4, "tessel_real32"},
    {"Int8Member", 1, 1, 1, "tessel_int8"},
    {"UInt8Member", 1, 1, 1, "tessel_uint8"},
    {"BinormalInt8Member", 1, 1, 1, "tessel_int8"},
    {"NormalUInt8Member", 1, 1, 1, "tessel_uint8"},
    {"Int16Member", 2, 2, 2, "tessel_int16"},
    {"UInt16Member", 2, 2, 2, "tessel_uint16"},
    {"BinormalInt16Member", 2, 2, 2, "tessel_int16"},
    {"NormalUInt16Member", 2, 2, 2, "tessel_uint16"},
    {"Int32Member", 4, 4, 4, "tessel_int32"},
    {"UInt32Member", 4, 4, 4, "tessel_uint32"},
    {"Real16Member", 2, 2, 2, "tessel_real16"},
    {"EmptyReferenceMember", 4, 8, 0, "void *"},
};

bool KindIsValid(member_type Kind)
{
    return Kind >= EndMember && Kind < OnePastLastMemberType;
}

// Pairs of types being compared, kept on the stack to survive cycles.
struct type_pair_chain
{
    data_type_definition const *A;
    data_type_definition const *B;
    type_pair_chain const *Previous;
};

bool PairIsOnChain(type_pair_chain const *Chain, data_type_definition const *A, data_type_definition const *B)
{
    for (; Chain; Chain = Chain->Previous) {
        if ((Chain->A == A && Chain->B == B) || (Chain->A == B && Chain->B == A)) {
            return true;
        }
    }
    return false;
}

bool NamesAreExactlyEqual(char const *A, char const *B)
{
    if (!A || !B) {
        return A == B;
    }
    return std::strcmp(A, B) == 0;
}

bool TypesAreEqualOnChain(data_type_definition const *A, data_type_definition const *B,
                          data_type_definition const *Excluded, type_pair_chain const *Chain)
{
    if (Excluded && B == Excluded) {
        return false;
    }
    if (A == B) {
        return true;
    }
    if (!A || !B) {
        return false;
    }
    if (PairIsOnChain(Chain, A, B)) {
        return true;
    }
    type_pair_chain Link = {A, B, Chain};

    while (A->Type != EndMember && B->Type != EndMember) {
        if (A->Type != B->Type || A->ArrayWidth != B->ArrayWidth || !NamesAreExactlyEqual(A->Name, B->Name)) {
            return false;
        }
        if (A->Type == RemovedSwitchableMember) {
            TesselWarning(LogCategory_DataTypeWarnings, "Switchable types no longer supported in Tessel 2.7+");
        } else if (!TypesAreEqualOnChain(A->ReferenceType, B->ReferenceType, Excluded, &Link)) {
            // Two nulls come out equal through the pointer test above.
            return false;
        }
        ++A;
        ++B;
    }
    return A->Type == EndMember && B->Type == EndMember;
}

void ClearMember(data_type_definition const &Member, uint8 *Address)
{
    int32 Width = GetMemberArrayWidth(Member);
    if (Member.Type == TransformMember) {
        for (int32 Index = 0; Index < Width; ++Index) {
            transform Identity;
            MakeIdentityTransform(Identity);
            std::memcpy(Address + Index * (intaddrx)sizeof(transform), &Identity, sizeof(transform));
        }
    } else if (Member.Type == InlineMember) {
        int32 UnitSize = GetMemberUnitSize(Member);
        for (int32 Index = 0; Index < Width; ++Index) {
            ClearObject(Member.ReferenceType, Address + Index * UnitSize);
        }
    } else {
        std::memset(Address, 0, (size_t)GetMemberTypeSize(Member));
    }
}

bool TypeHasPointersOnChain(data_type_definition const *Type, type_pair_chain const *Chain)
{
    if (!Type || PairIsOnChain(Chain, Type, Type)) {
        return false;
    }
    type_pair_chain Link = {Type, Type, Chain};
    for (data_type_definition const *Member = Type; Member->Type != EndMember; ++Member) {
        switch (Member->Type) {
        case InlineMember:
            if (TypeHasPointersOnChain(Member->ReferenceType, &Link)) {
                return true;
            }
            break;
        case VariantReferenceMember:
        case ReferenceToVariantArrayMember:
        case StringMember: return true;
        case ReferenceMember:
        case ReferenceToArrayMember:
        case ArrayOfReferencesMember:
        case EmptyReferenceMember:
            if (Member->ReferenceType) {
                return true;
            }
            break;
        default: break;
        }
    }
    return false;
}

} // namespace

void MakeIdentityTransform(transform &Result)
{
    std::memset(&Result, 0, sizeof(Result));
    Result.Orientation[3] = 1.0f;
    Result.ScaleShear[0][0] = 1.0f;
    Result.ScaleShear[1][1] = 1.0f;
    Result.ScaleShear[2][2] = 1.0f;
}

int32 GetMemberArrayWidth(data_type_definition const &Member)
{
    if (MemberKindIsReference(Member.Type) && Member.ArrayWidth != 0) {
        TesselError(LogCategory_DataTypes, "%s was not true", "Member.ArrayWidth == 0");
        return 1;
    }
    return Member.ArrayWidth > 0 ? Member.ArrayWidth : 1;
}

int32 GetMemberUnitSize(data_type_definition const &Member)
{
    if (Member.Type == InlineMember) {
        CheckPointer(Member.ReferenceType, LogCategory_DataTypes, 0);
        return GetTotalObjectSize(Member.ReferenceType);
    }
    return GetMemberKindSize(Member.Type, 64);
}

int32 GetMemberTypeSize(data_type_definition const &Member)
{
    return GetMemberUnitSize(Member) * GetMemberArrayWidth(Member);
}

int32 GetMemberKindSize(member_type Type, int32 PointerBits)
{
    CheckCondition(Type != InlineMember, LogCategory_DataTypes, 0);
    if (!KindIsValid(Type)) {
        return 0;
    }
    if (PointerBits == 32) {
        return MemberKinds[Type].Size32;
    }
    if (PointerBits == 64) {
        return MemberKinds[Type].Size64;
    }
    return 0;
}

uint32 GetMemberKindMarshalling(member_type Kind)
{
    return KindIsValid(Kind) ? MemberKinds[Kind].Marshalling : 0;
}

char const *GetMemberKindTypeName(member_type Kind)
{
    return KindIsValid(Kind) ? MemberKinds[Kind].TypeName : "unsupported";
}

char const *GetMemberKindName(member_type Kind)
{
    return KindIsValid(Kind) ? MemberKinds[Kind].Name : "(unknown member kind)";
}

bool MemberKindIsReference(member_type Kind)
{
    switch (Kind) {
    case ReferenceMember:
    case ReferenceToArrayMember:
    case ArrayOfReferencesMember:
    case VariantReferenceMember:
    case ReferenceToVariantArrayMember:
    case StringMember:
    case EmptyReferenceMember: return true;
    default: return false;
    }
}

int32 GetTotalObjectSize(data_type_definition const *Type)
{
    int32 Size = 0;
    if (Type) {
        for (; Type->Type != EndMember; ++Type) {
            Size += GetMemberTypeSize(*Type);
        }
    }
    return Size;
}

int32 GetTotalTypeSize(data_type_definition const *Type)
{
    if (!Type) {
        return 0;
    }
    return (GetMemberCount(Type) + 1) * (int32)sizeof(data_type_definition);
}

int32 GetMemberCount(data_type_definition const *Type)
{
    int32 Count = 0;
    if (Type) {
        while (Type[Count].Type != EndMember) {
            ++Count;
        }
    }
    return Count;
}

uint32 GetTypeMarshalling(data_type_definition const *Type)
{
    uint32 Marshalling = 0;
    if (Type) {
        for (; Type->Type != EndMember; ++Type) {
            if (Type->Type == InlineMember) {
                // A record can't hold itself inline, so this recursion ends.
                Marshalling |= GetTypeMarshalling(Type->ReferenceType);
            } else {
                Marshalling |= GetMemberKindMarshalling(Type->Type);
            }
        }
    }
    return Marshalling;
}

bool IsMixedMarshalling(uint32 Marshalling)
{
    return (Marshalling & (Marshalling - 1)) != 0;
}

bool TypeHasPointers(data_type_definition const *Type)
{
    return TypeHasPointersOnChain(Type, 0);
}

bool TypeIsEmpty(data_type_definition const *Type)
{
    return !Type || Type->Type == EndMember;
}

void ClearObject(data_type_definition const *Type, void *Object)
{
    if (!Type || !Object) {
        return;
    }
    uint8 *Address = (uint8 *)Object;
    for (; Type->Type != EndMember; ++Type) {
        ClearMember(*Type, Address);
        Address += GetMemberTypeSize(*Type);
    }
}

bool DataTypesAreEqual(data_type_definition const *A, data_type_definition const *B,
                       data_type_definition const *Excluded)
{
    return TypesAreEqualOnChain(A, B, Excluded, 0);
}

bool FindMatchingMember(data_type_definition const *Type, void const *Object, char const *Name, matched_member &Result)
{
    Result.Member = 0;
    Result.Address = 0;
    if (!Type || !Name) {
        return false;
    }
    uint8 *Address = (uint8 *)Object;
    for (; Type->Type != EndMember; ++Type) {
        if (Type->Name && StringsAreEqual(Type->Name, Name)) {
            Result.Member = Type;
            Result.Address = Address;
            return true;
        }
        if (Address) {
            Address += GetMemberTypeSize(*Type);
        }
    }
    return false;
}

bool VisitObjectMembers(data_type_definition const *Type, void *Object, object_member_visitor Visitor, void *UserData)
{
    struct walker
    {
        object_member_visitor Visitor;
        void *UserData;

        bool Walk(data_type_definition const *Type, uint8 *Address, int32 Depth, int32 ElementIndex)
        {
            if (!Type || Depth > 64) {
                return true;
            }
            for (; Type->Type != EndMember; ++Type) {
                object_member_visit Visit = {};
                Visit.Member = Type;
                Visit.Kind = Type->Type;
                Visit.Name = Type->Name;
                Visit.Depth = Depth;
                Visit.ArrayWidth = GetMemberArrayWidth(*Type);
                Visit.ElementIndex = ElementIndex;
                Visit.Address = Address;
                Visit.TargetType = Type->ReferenceType;
                switch (Type->Type) {
                case ReferenceMember:
                case StringMember:
                    Visit.TargetCount = 1;
                    Visit.Target = LoadPointer(Address);
                    break;
                case ReferenceToArrayMember:
                case ArrayOfReferencesMember:
                    Visit.TargetCount = LoadUnaligned<int32>(Address);
                    Visit.Target = LoadPointer(Address + 4);
                    break;
                case VariantReferenceMember:
                    Visit.TargetType = (data_type_definition const *)LoadPointer(Address);
                    Visit.TargetCount = 1;
                    Visit.Target = LoadPointer(Address + 8);
                    break;
                case ReferenceToVariantArrayMember:
                    Visit.TargetType = (data_type_definition const *)LoadPointer(Address);
                    Visit.TargetCount = LoadUnaligned<int32>(Address + 8);
                    Visit.Target = LoadPointer(Address + 12);
                    break;
                default: break;
                }
                if (!Visitor(Visit, UserData)) {
                    return false;
                }
                if (Type->Type == InlineMember) {
                    int32 UnitSize = GetMemberUnitSize(*Type);
                    for (int32 Index = 0; Index < Visit.ArrayWidth; ++Index) {
                        if (!Walk(Type->ReferenceType, Address + Index * UnitSize, Depth + 1, Index)) {
                            return false;
                        }
                    }
                }
                Address += GetMemberTypeSize(*Type);
            }
            return true;
        }
    };
    CheckPointer(Visitor, LogCategory_DataTypes, false);
    if (!Object) {
        return true;
    }
    walker Walker = {Visitor, UserData};
    return Walker.Walk(Type, (uint8 *)Object, 0, 0);
}

real64 ReadMemberElementAsReal(member_type Kind, void const *Element)
{
    switch (Kind) {
    case StringMember: {
        char const *String = (char const *)LoadPointer(Element);
        return String ? ConvertToReal64(String, true) : 0.0;
    }
    case Real32Member: return LoadUnaligned<real32>(Element);
    // Both byte kinds read unsigned, so an int8 of -1 reads as 255.
    case Int8Member:
    case UInt8Member: return *(uint8 const *)Element;
    case BinormalInt8Member: return *(int8 const *)Element / 127.0;
    case NormalUInt8Member: return *(uint8 const *)Element / 255.0;
    case Int16Member: return LoadUnaligned<int16>(Element);
    case UInt16Member: return LoadUnaligned<uint16>(Element);
    case BinormalInt16Member: return LoadUnaligned<int16>(Element) / 32767.0;
    case NormalUInt16Member: return LoadUnaligned<uint16>(Element) / 65535.0;
    case Int32Member: return LoadUnaligned<int32>(Element);
    case Real16Member: return Real32FromReal16(LoadUnaligned<uint16>(Element));
    default: return 0.0; // UInt32Member included: it has no float reading
    }
}

namespace {
int64 RoundToInteger(real64 Value)
{
    return (int64)(Value + 0.5);
}

int64 SignOfNormalised(int64 Value, int64 Scale)
{
    int64 Half = Scale / 2;
    return Value > Half ? 1 : (Value < -Half ? -1 : 0);
}
} // namespace

int64 ReadMemberElementAsInteger(member_type Kind, void const *Element)
{
    switch (Kind) {
    case StringMember: {
        char const *String = (char const *)LoadPointer(Element);
        return String ? RoundToInteger(ConvertToReal64(String, true)) : 0;
    }
    case Real32Member: return RoundToInteger(LoadUnaligned<real32>(Element));
    case Int8Member: return *(int8 const *)Element;
    case UInt8Member: return *(uint8 const *)Element;
    case BinormalInt8Member: return SignOfNormalised(*(int8 const *)Element, 127);
    case NormalUInt8Member: return SignOfNormalised(*(uint8 const *)Element, 255);
    case Int16Member: return LoadUnaligned<int16>(Element);
    case UInt16Member: return LoadUnaligned<uint16>(Element);
    case BinormalInt16Member: return SignOfNormalised(LoadUnaligned<int16>(Element), 32767);
    case NormalUInt16Member: return SignOfNormalised(LoadUnaligned<uint16>(Element), 65535);
    case Int32Member: return LoadUnaligned<int32>(Element);
    case UInt32Member: return LoadUnaligned<uint32>(Element);
    case Real16Member: return RoundToInteger(Real32FromReal16(LoadUnaligned<uint16>(Element)));
    default: return 0;
    }
}
