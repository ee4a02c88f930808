#include "format/tessel_data_type_io.h"

#include <cstring>

#include "format/tessel_schema.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"

namespace {

struct conversion_state
{
    bool ClearUnmatched;
    // Text that a conversion prints into a string member is placed here,
    // starting at the destination object's first byte.
    uint8 *StringBuffer;
};

bool KindCanOnlyCopy(member_type Kind)
{
    switch (Kind) {
    case ReferenceMember:
    case ReferenceToArrayMember:
    case ArrayOfReferencesMember:
    case VariantReferenceMember:
    case ReferenceToVariantArrayMember:
    case TransformMember:
    case EmptyReferenceMember: return true;
    default: return false;
    }
}

int64 RoundReal(real64 Value)
{
    return (int64)(Value + 0.5);
}

void StoreElement(member_type Kind, member_type SourceKind, void const *SourceElement, void *Element)
{
    switch (Kind) {
    case Real32Member:
        StoreUnaligned<real32>(Element, (real32)ReadMemberElementAsReal(SourceKind, SourceElement));
        break;
    case Int8Member:
    case UInt8Member: *(uint8 *)Element = (uint8)ReadMemberElementAsInteger(SourceKind, SourceElement); break;
    case Int16Member:
    case UInt16Member:
        StoreUnaligned<uint16>(Element, (uint16)ReadMemberElementAsInteger(SourceKind, SourceElement));
        break;
    case Int32Member:
    case UInt32Member:
        StoreUnaligned<uint32>(Element, (uint32)ReadMemberElementAsInteger(SourceKind, SourceElement));
        break;
    case BinormalInt8Member:
        *(int8 *)Element = (int8)RoundReal(ReadMemberElementAsReal(SourceKind, SourceElement) * 127.0);
        break;
    case NormalUInt8Member:
        *(uint8 *)Element = (uint8)RoundReal(ReadMemberElementAsReal(SourceKind, SourceElement) * 255.0);
        break;
    case BinormalInt16Member:
        StoreUnaligned<int16>(Element, (int16)RoundReal(ReadMemberElementAsReal(SourceKind, SourceElement) * 32767.0));
        break;
    case NormalUInt16Member:
        StoreUnaligned<uint16>(Element,
                               (uint16)RoundReal(ReadMemberElementAsReal(SourceKind, SourceElement) * 65535.0));
        break;
    case Real16Member:
        StoreUnaligned<uint16>(Element, Real16FromReal32((real32)ReadMemberElementAsReal(SourceKind, SourceElement)));
        break;
    default: break;
    }
}

// Prints one source value as text into the state's string buffer and
// points the destination slot at it.
void ConvertToString(conversion_state &State, data_type_definition const &SourceMember, void const *Source,
                     void *Destination)
{
    char Text[128];
    Text[0] = 0;
    switch (SourceMember.Type) {
    case StringMember: {
        char const *String = (char const *)LoadPointer(Source);
        CopyStringMaximum(Text, (int32)sizeof(Text), String ? String : "");
        break;
    }
    case Real32Member:
    case Real16Member:
        ConvertReal64ToString((int32)sizeof(Text), Text, ReadMemberElementAsReal(SourceMember.Type, Source), 10, 6,
                              LowerCaseDigits);
        break;
    default:
        ConvertInt64ToString((int32)sizeof(Text), Text, ReadMemberElementAsInteger(SourceMember.Type, Source), 10,
                             LowerCaseDigits);
        break;
    }
    int64 Length = StringLength(Text) + 1;
    int32 Advance = 0;
    CheckConvertToInt32(Advance, (Length + 3) & ~(int64)3, LogCategory_DataTypes, TESSEL_NOTHING);
    std::memcpy(State.StringBuffer, Text, (size_t)Length);
    StorePointer(Destination, State.StringBuffer);
    State.StringBuffer += Advance;
}

void ConvertValue(conversion_state &State, data_type_definition const &SourceMember, void const *Source,
                  data_type_definition const &DestinationMember, void *Destination)
{
    member_type Kind = DestinationMember.Type;
    if (SourceMember.Type == Kind) {
        int32 SourceSize = GetMemberTypeSize(SourceMember);
        int32 DestinationSize = GetMemberTypeSize(DestinationMember);
        std::memcpy(Destination, Source, (size_t)(SourceSize < DestinationSize ? SourceSize : DestinationSize));
        return;
    }
    if (KindCanOnlyCopy(Kind)) {
        return; // already cleared in the convert form
    }
    if (Kind == StringMember) {
        ConvertToString(State, SourceMember, Source, Destination);
        return;
    }

    int32 SourceWidth = GetMemberArrayWidth(SourceMember);
    int32 DestinationWidth = GetMemberArrayWidth(DestinationMember);
    int32 Count = SourceWidth < DestinationWidth ? SourceWidth : DestinationWidth;
    int32 SourceUnit = GetMemberUnitSize(SourceMember);
    int32 DestinationUnit = GetMemberUnitSize(DestinationMember);
    for (int32 Index = 0; Index < Count; ++Index) {
        StoreElement(Kind, SourceMember.Type, (uint8 const *)Source + Index * SourceUnit,
                     (uint8 *)Destination + Index * DestinationUnit);
    }
}

void ConvertMembers(conversion_state &State, data_type_definition const *SourceType, void const *Source,
                    data_type_definition const *DestinationType, void *Destination)
{
    if (!DestinationType || !Destination) {
        return;
    }
    uint8 *Address = (uint8 *)Destination;
    for (data_type_definition const *Member = DestinationType; Member->Type != EndMember; ++Member) {
        int32 MemberSize = GetMemberTypeSize(*Member);
        if (State.ClearUnmatched) {
            data_type_definition Single[2] = {*Member, {EndMember}};
            ClearObject(Single, Address);
        }

        matched_member Match;
        if (Source && FindMatchingMember(SourceType, Source, Member->Name, Match)) {
            if (Match.Member->Type == InlineMember && Member->Type == InlineMember) {
                int32 SourceWidth = GetMemberArrayWidth(*Match.Member);
                int32 DestinationWidth = GetMemberArrayWidth(*Member);
                int32 Count = SourceWidth < DestinationWidth ? SourceWidth : DestinationWidth;
                int32 SourceUnit = GetMemberUnitSize(*Match.Member);
                int32 DestinationUnit = GetMemberUnitSize(*Member);
                for (int32 Index = 0; Index < Count; ++Index) {
                    ConvertMembers(State, Match.Member->ReferenceType, (uint8 *)Match.Address + Index * SourceUnit,
                                   Member->ReferenceType, Address + Index * DestinationUnit);
                }
            } else {
                ConvertValue(State, *Match.Member, Match.Address, *Member, Address);
            }
        } else if (DataTypesAreEqual(Member, Curve2Type)) {
            // The rest of the destination is a curve that the source doesn't
            // have: leave it as it is.
            break;
        }
        Address += MemberSize;
    }
}

void ConvertObject(bool ClearUnmatched, data_type_definition const *SourceType, void const *Source,
                   data_type_definition const *DestinationType, void *Destination)
{
    conversion_state State = {ClearUnmatched, (uint8 *)Destination};
    ConvertMembers(State, SourceType, Source, DestinationType, Destination);
}

bool IsIntegerKind(member_type Kind)
{
    switch (Kind) {
    case Int8Member:
    case UInt8Member:
    case Int16Member:
    case UInt16Member:
    case Int32Member:
    case UInt32Member: return true;
    default: return false;
    }
}

} // namespace

void ConvertSingleObject(data_type_definition const *SourceType, void const *Source,
                         data_type_definition const *DestinationType, void *Destination)
{
    ConvertObject(true, SourceType, Source, DestinationType, Destination);
}

void MergeSingleObject(data_type_definition const *SourceType, void const *Source,
                       data_type_definition const *DestinationType, void *Destination)
{
    ConvertObject(false, SourceType, Source, DestinationType, Destination);
}

void ConvertObjects(int32 Count, data_type_definition const *SourceType, void const *Source,
                    data_type_definition const *DestinationType, void *Destination)
{
    int32 SourceSize = GetTotalObjectSize(SourceType);
    int32 DestinationSize = GetTotalObjectSize(DestinationType);
    for (int32 Index = 0; Index < Count; ++Index) {
        ConvertSingleObject(SourceType, (uint8 const *)Source + (intaddrx)Index * SourceSize, DestinationType,
                            (uint8 *)Destination + (intaddrx)Index * DestinationSize);
    }
}

bool ConvertIntegerArray(int32 Count, member_type SourceKind, void const *Source, member_type DestinationKind,
                         void *Destination)
{
    CheckCondition(IsIntegerKind(SourceKind) && IsIntegerKind(DestinationKind), LogCategory_DataTypes, false);
    if (Count <= 0) {
        return true;
    }
    CheckPointer(Source, LogCategory_DataTypes, false);
    CheckPointer(Destination, LogCategory_DataTypes, false);
    intaddrx SourceUnit = GetMemberKindSize(SourceKind, 64);
    intaddrx DestinationUnit = GetMemberKindSize(DestinationKind, 64);
    uint8 const *From = (uint8 const *)Source;
    uint8 *To = (uint8 *)Destination;
    // Front to back is safe when the destination doesn't run ahead of the
    // source; otherwise (widening in place) go back to front.
    bool Backward = DestinationUnit > SourceUnit && To > From && To < From + Count * SourceUnit + 1;
    Backward = Backward || (DestinationUnit > SourceUnit && To == From);
    for (int32 Step = 0; Step < Count; ++Step) {
        int32 Index = Backward ? Count - 1 - Step : Step;
        int64 Value = ReadMemberElementAsInteger(SourceKind, From + Index * SourceUnit);
        uint8 *Element = To + Index * DestinationUnit;
        switch (DestinationUnit) {
        case 1: *Element = (uint8)Value; break;
        case 2: StoreUnaligned<uint16>(Element, (uint16)Value); break;
        default: StoreUnaligned<uint32>(Element, (uint32)Value); break;
        }
    }
    return true;
}

struct conversion_plan
{
    data_type_definition const *SourceType;
    data_type_definition const *DestinationType;
    // Layouts with inline members, strings or trailing curves take the
    // general path; the plan then only remembers the two types.
    bool General;
    // Every member clears to zero bytes: one clear of the whole object.
    bool PlainClear;
    int32 DestinationSize;
    int32 StepCount;
    struct step
    {
        data_type_definition Destination[2]; // the member and an end record, for clearing
        data_type_definition const *SourceMember;
        int32 SourceOffset;
        int32 DestinationOffset;
        int32 DestinationSize;
        bool PlainClear;
        // How the value converts, worked out once (as ConvertValue would):
        // copied (CopySize bytes), left cleared, or element by element.
        enum
        {
            CopyValue,
            LeaveValue,
            ConvertElements
        } Mode;
        int32 CopySize;
        int32 ElementCount;
        int32 SourceUnit;
        int32 DestinationUnit;
    } * Steps;
};

conversion_plan *NewConversionPlan(data_type_definition const *SourceType, data_type_definition const *DestinationType)
{
    CheckPointer(SourceType, LogCategory_DataTypes, 0);
    CheckPointer(DestinationType, LogCategory_DataTypes, 0);
    int32 Count = GetMemberCount(DestinationType);
    conversion_plan *Plan = (conversion_plan *)TesselAllocate(sizeof(conversion_plan));
    if (!Plan) return 0;
    Plan->SourceType = SourceType;
    Plan->DestinationType = DestinationType;
    Plan->General = false;
    Plan->PlainClear = true;
    Plan->StepCount = Count;
    Plan->Steps =
        Count > 0 ? (conversion_plan::step *)TesselAllocate((intaddrx)sizeof(conversion_plan::step) * Count) : 0;
    if (Count > 0 && !Plan->Steps) {
        TesselFree(Plan);
        return 0;
    }
    int32 Offset = 0;
    for (int32 Index = 0; Index < Count; ++Index) {
        data_type_definition const &Member = DestinationType[Index];
        conversion_plan::step &Step = Plan->Steps[Index];
        Step.Destination[0] = Member;
        memset(&Step.Destination[1], 0, sizeof(Step.Destination[1]));
        Step.DestinationOffset = Offset;
        Step.DestinationSize = GetMemberTypeSize(Member);
        Step.PlainClear = Member.Type != TransformMember && Member.Type != InlineMember;
        matched_member Match;
        Step.SourceMember = FindMatchingMember(SourceType, 0, Member.Name, Match) ? Match.Member : 0;
        Step.SourceOffset = 0;
        if (Step.SourceMember) {
            for (data_type_definition const *Walk = SourceType; Walk != Step.SourceMember; ++Walk) {
                Step.SourceOffset += GetMemberTypeSize(*Walk);
            }
        }
        bool Complicated = Member.Type == InlineMember || Member.Type == StringMember ||
                           (Step.SourceMember &&
                            (Step.SourceMember->Type == InlineMember || Step.SourceMember->Type == StringMember)) ||
                           (!Step.SourceMember && DataTypesAreEqual(&Member, Curve2Type));
        if (Complicated) Plan->General = true;
        if (!Step.PlainClear) Plan->PlainClear = false;
        Step.Mode = conversion_plan::step::LeaveValue;
        Step.CopySize = Step.ElementCount = Step.SourceUnit = Step.DestinationUnit = 0;
        if (Step.SourceMember && Step.SourceMember->Type == Member.Type) {
            int32 SourceSize = GetMemberTypeSize(*Step.SourceMember);
            Step.Mode = conversion_plan::step::CopyValue;
            Step.CopySize = SourceSize < Step.DestinationSize ? SourceSize : Step.DestinationSize;
        } else if (Step.SourceMember && !KindCanOnlyCopy(Member.Type)) {
            int32 SourceWidth = GetMemberArrayWidth(*Step.SourceMember);
            int32 DestinationWidth = GetMemberArrayWidth(Member);
            Step.Mode = conversion_plan::step::ConvertElements;
            Step.ElementCount = SourceWidth < DestinationWidth ? SourceWidth : DestinationWidth;
            Step.SourceUnit = GetMemberUnitSize(*Step.SourceMember);
            Step.DestinationUnit = GetMemberUnitSize(Member);
        }
        Offset += Step.DestinationSize;
    }
    Plan->DestinationSize = Offset;
    return Plan;
}

void FreeConversionPlan(conversion_plan *Plan)
{
    if (!Plan) return;
    TesselFree(Plan->Steps);
    TesselFree(Plan);
}

void ConvertWithPlan(conversion_plan const *Plan, void const *Source, void *Destination, bool ClearUnmatched)
{
    CheckPointer(Plan, LogCategory_DataTypes, TESSEL_NOTHING);
    if (Plan->General || !Source) {
        ConvertObject(ClearUnmatched, Plan->SourceType, Source, Plan->DestinationType, Destination);
        return;
    }
    uint8 const *From = (uint8 const *)Source;
    uint8 *To = (uint8 *)Destination;
    if (ClearUnmatched && Plan->PlainClear) {
        memset(To, 0, (size_t)Plan->DestinationSize);
        ClearUnmatched = false;
    }
    for (int32 Index = 0; Index < Plan->StepCount; ++Index) {
        conversion_plan::step const &Step = Plan->Steps[Index];
        uint8 *Address = To + Step.DestinationOffset;
        if (ClearUnmatched) {
            if (Step.PlainClear)
                memset(Address, 0, (size_t)Step.DestinationSize);
            else
                ClearObject(Step.Destination, Address);
        }
        switch (Step.Mode) {
        case conversion_plan::step::CopyValue:
            std::memcpy(Address, From + Step.SourceOffset, (size_t)Step.CopySize);
            break;
        case conversion_plan::step::ConvertElements:
            for (int32 Element = 0; Element < Step.ElementCount; ++Element) {
                StoreElement(Step.Destination[0].Type, Step.SourceMember->Type,
                             From + Step.SourceOffset + Element * Step.SourceUnit,
                             Address + Element * Step.DestinationUnit);
            }
            break;
        case conversion_plan::step::LeaveValue: break;
        }
    }
}
