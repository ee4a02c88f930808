// Data type definitions: every record that reaches a file is described by a
// static array of member records ending in EndMember. The writer, the
// platform conversion and the vertex layout conversion walk these arrays
// instead of knowing the records, and the arrays themselves are written into
// the file so that it describes itself.
#pragma once

#include "foundation/tessel_types.h"

enum member_type : int32
{
    EndMember = 0,
    InlineMember = 1,
    ReferenceMember = 2,
    ReferenceToArrayMember = 3,
    ArrayOfReferencesMember = 4,
    VariantReferenceMember = 5,
    RemovedSwitchableMember = 6, // no longer valid; kept so old tables still parse
    ReferenceToVariantArrayMember = 7,
    StringMember = 8,
    TransformMember = 9,
    Real32Member = 10,
    Int8Member = 11,
    UInt8Member = 12,
    BinormalInt8Member = 13,
    NormalUInt8Member = 14,
    Int16Member = 15,
    UInt16Member = 16,
    BinormalInt16Member = 17,
    NormalUInt16Member = 18,
    Int32Member = 19,
    UInt32Member = 20,
    Real16Member = 21,
    EmptyReferenceMember = 22,

    OnePastLastMemberType
};

#pragma pack(push, 4)
// One member of a type. This record is itself a file format: it is copied
// into files as it stands (44 bytes with 64-bit pointers).
struct data_type_definition
{
    member_type Type;
    char const *Name;
    data_type_definition *ReferenceType;
    int32 ArrayWidth; // 0 means a single value
    int32 Extra[3];
    uintaddrx Ignored;
};

// The transform record (kind TransformMember), 68 bytes in every file.
struct transform
{
    int32 Flags; // bit 0 position, bit 1 orientation, bit 2 scale/shear
    real32 Position[3];
    real32 Orientation[4]; // quaternion x, y, z, w
    real32 ScaleShear[3][3];
};

// A variant reference: the type of the object, then the object.
struct variant
{
    data_type_definition *Type;
    void *Object;
};

// A reference to an array of records whose type travels with it.
struct variant_array
{
    data_type_definition *Type;
    int32 Count;
    void *Array;
};
#pragma pack(pop)

static_assert(sizeof(data_type_definition) == 44, "data_type_definition is a file record");
static_assert(TESSEL_OFFSET_OF(data_type_definition, Name) == 4, "data_type_definition layout");
static_assert(TESSEL_OFFSET_OF(data_type_definition, ReferenceType) == 12, "data_type_definition layout");
static_assert(TESSEL_OFFSET_OF(data_type_definition, ArrayWidth) == 20, "data_type_definition layout");
static_assert(TESSEL_OFFSET_OF(data_type_definition, Extra) == 24, "data_type_definition layout");
static_assert(TESSEL_OFFSET_OF(data_type_definition, Ignored) == 36, "data_type_definition layout");
static_assert(sizeof(transform) == 68, "transform is a file record");
static_assert(sizeof(variant) == 16, "variant layout");
static_assert(sizeof(variant_array) == 20, "variant array layout");

enum transform_flags
{
    HasPosition = 0x1,
    HasOrientation = 0x2,
    HasScaleShear = 0x4,
};

// Size of a 64-bit data_type_definition record in a file.
enum
{
    DataTypeDefinitionSize64 = 44,
    DataTypeDefinitionSize32 = 32
};

void MakeIdentityTransform(transform &Result);

// ---------------------------------------------------------------------------
// Measuring.

// Inline array width; 1 for ArrayWidth 0. Reference kinds can't be arrays.
int32 GetMemberArrayWidth(data_type_definition const &Member);
// Bytes of one element in the 64-bit layout.
int32 GetMemberUnitSize(data_type_definition const &Member);
// Unit size times array width.
int32 GetMemberTypeSize(data_type_definition const &Member);
// Element size of a kind for 32- or 64-bit pointers (0 for other widths).
int32 GetMemberKindSize(member_type Kind, int32 PointerBits);
// Width in bytes of the units that a byte-order change reverses, 0 for none.
uint32 GetMemberKindMarshalling(member_type Kind);
// Name of the kind as in generated headers ("tessel_real32"), and the
// enumeration's own name ("Real32Member"), for diagnostics.
char const *GetMemberKindTypeName(member_type Kind);
char const *GetMemberKindName(member_type Kind);
// True for kinds 2, 3, 4, 5, 7, 8 and 22, which hold pointers.
bool MemberKindIsReference(member_type Kind);

int32 GetTotalObjectSize(data_type_definition const *Type);
// Bytes of the table itself including the end record.
int32 GetTotalTypeSize(data_type_definition const *Type);
// Members before the end record.
int32 GetMemberCount(data_type_definition const *Type);
uint32 GetTypeMarshalling(data_type_definition const *Type);
bool IsMixedMarshalling(uint32 Marshalling);
bool TypeHasPointers(data_type_definition const *Type);
// True for a null type and for a table whose first record ends it.
bool TypeIsEmpty(data_type_definition const *Type);

// ---------------------------------------------------------------------------
// Objects.

// Writes the identity: transforms become the identity transform, inline
// members recurse, everything else is zeroed.
void ClearObject(data_type_definition const *Type, void *Object);

// Deep structural comparison; names compare exactly. A type B equal to
// Excluded compares unequal. Cycles are handled.
bool DataTypesAreEqual(data_type_definition const *A, data_type_definition const *B,
                       data_type_definition const *Excluded = 0);

struct matched_member
{
    data_type_definition const *Member;
    void *Address;
};
// Looks a member up by name with the system's name comparison (case
// insensitive unless a comparer is installed). Both results are null when
// there is no such member.
bool FindMatchingMember(data_type_definition const *Type, void const *Object, char const *Name, matched_member &Result);

// ---------------------------------------------------------------------------
// Unaligned access to the slots of packed records.

template <typename T>
inline T LoadUnaligned(void const *Address)
{
    T Value;
    __builtin_memcpy(&Value, Address, sizeof(T));
    return Value;
}
template <typename T>
inline void StoreUnaligned(void *Address, T Value)
{
    __builtin_memcpy(Address, &Value, sizeof(T));
}
inline void *LoadPointer(void const *Address)
{
    return LoadUnaligned<void *>(Address);
}
inline void StorePointer(void *Address, void const *Value)
{
    StoreUnaligned<void const *>(Address, Value);
}

// ---------------------------------------------------------------------------
// Walking an object: one call per member, in table order. Inline members
// are reported and then their elements' members at Depth + 1. The targets of
// references are not followed; the visitor does that if it wants to.

struct object_member_visit
{
    data_type_definition const *Member;
    member_type Kind;
    char const *Name;
    int32 Depth;
    int32 ArrayWidth;   // elements held inline (1 for single values)
    int32 ElementIndex; // for members of an inline element: which element
    void *Address;      // the member's first byte in the object

    // For reference kinds: what the slots hold.
    data_type_definition const *TargetType; // ReferenceType, or the variant's stored type
    int32 TargetCount;                      // array count; 1 for single references
    void *Target;                           // object, array, pointer array or string
};
// Return false to stop the walk.
typedef bool (*object_member_visitor)(object_member_visit const &Visit, void *UserData);
// False when the visitor stopped the walk.
bool VisitObjectMembers(data_type_definition const *Type, void *Object, object_member_visitor Visitor, void *UserData);

// Values of scalar members, element by element (as used by the conversion).
real64 ReadMemberElementAsReal(member_type Kind, void const *Element);
int64 ReadMemberElementAsInteger(member_type Kind, void const *Element);
