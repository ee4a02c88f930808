// Measuring, clearing and comparing types; conversion and merging of objects
// by member names; integer array conversion.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "format/tessel_data_type_io.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_string.h"
#include "support/test_log_capture.h"

namespace {

// The first Count elements of an array, as numbers, to compare in one go.
template <typename T>
std::vector<double> Values(T const *Array, int Count)
{
    return std::vector<double>(Array, Array + Count);
}

data_type_definition Inner[] = {{Int16Member, "A"}, {Real32Member, "B", 0, 2}, {EndMember}};
data_type_definition Outer[] = {
    {UInt8Member, "Tag"}, {InlineMember, "Pair", Inner, 2}, {TransformMember, "Placement"}, {EndMember}};

TEST(DataTypes, Measuring)
{
    data_type_definition Empty[] = {{EndMember}};
    EXPECT_EQ(GetTotalObjectSize(Empty), 0);
    EXPECT_EQ(GetTotalTypeSize(Empty), 44);
    EXPECT_EQ(GetTotalObjectSize(0), 0);
    EXPECT_EQ(GetTotalTypeSize(0), 0);

    // Widths 0 and 1 are the same; inline members take their type's size.
    data_type_definition Widths[] = {{Real32Member, "A", 0, 0}, {Real32Member, "B", 0, 1}, {EndMember}};
    EXPECT_EQ(GetTotalObjectSize(Widths), 8);
    EXPECT_EQ(GetTotalObjectSize(Inner), 10);
    EXPECT_EQ(GetTotalObjectSize(Outer), 1 + 20 + 68);
    EXPECT_EQ(GetTotalTypeSize(Outer), 4 * 44);

    EXPECT_EQ(GetMemberKindSize(ReferenceToVariantArrayMember, 32), 12);
    EXPECT_EQ(GetMemberKindSize(ReferenceToVariantArrayMember, 64), 20);
    EXPECT_EQ(GetMemberKindSize(VariantReferenceMember, 16), 0);

    log_capture Log;
    // A reference kind can't be an array: logged, counted as one.
    data_type_definition BadWidth = {StringMember, "S", 0, 3};
    EXPECT_EQ(GetMemberArrayWidth(BadWidth), 1);
    EXPECT_TRUE(Log.Contains("Member.ArrayWidth == 0"));
    EXPECT_EQ(GetMemberKindSize(InlineMember, 64), 0);
    EXPECT_TRUE(Log.Contains("Type != InlineMember"));
    data_type_definition NullInline = {InlineMember, "I", 0};
    EXPECT_EQ(GetMemberUnitSize(NullInline), 0);
    EXPECT_TRUE(Log.Contains("Member.ReferenceType is not allowed to be NULL"));
}

TEST(DataTypes, MarshallingAndPointers)
{
    // Inline members count: int16 (2) | real32 (4) | uint8 (1) | transform (4).
    EXPECT_EQ(GetTypeMarshalling(Outer), 7u);
    EXPECT_TRUE(IsMixedMarshalling(GetTypeMarshalling(Outer)));
    EXPECT_FALSE(IsMixedMarshalling(GetTypeMarshalling(BoneType)));
    EXPECT_FALSE(IsMixedMarshalling(0));
    // A curve record: uint8 header, then int16, then a count: mixed.
    EXPECT_TRUE(IsMixedMarshalling(GetTypeMarshalling(CurveDataDaKeyframes32fType)));

    EXPECT_FALSE(TypeHasPointers(Outer));
    EXPECT_FALSE(TypeHasPointers(PixelLayoutType));
    data_type_definition NullReference[] = {{ReferenceMember, "R", 0}, {EndMember}};
    EXPECT_FALSE(TypeHasPointers(NullReference));
    // Through an inline member.
    EXPECT_TRUE(TypeHasPointers(VectorTrackType));
    data_type_definition HoldsCurve[] = {{InlineMember, "C", Curve2Type}, {EndMember}};
    EXPECT_TRUE(TypeHasPointers(HoldsCurve));
}

TEST(DataTypes, ClearObjectWritesIdentity)
{
    uint8 Object[89];
    std::memset(Object, 0xAB, sizeof(Object));
    ClearObject(Outer, Object);
    EXPECT_EQ(Values(Object, 21), std::vector<double>(21, 0.0));
    transform Placement;
    std::memcpy(&Placement, Object + 21, sizeof(Placement));
    EXPECT_EQ(Placement.Flags, 0);
    EXPECT_EQ(Placement.Orientation[3], 1.0f);
    EXPECT_EQ(Placement.ScaleShear[1][1], 1.0f);
    EXPECT_EQ(Placement.ScaleShear[0][1], 0.0f);
}

TEST(DataTypes, StructuralComparison)
{
    // Two distinct copies of a recursive pair of types.
    static data_type_definition MapA[2], MaterialA[3], MapB[2], MaterialB[3];
    data_type_definition MaterialRows[] = {{StringMember, "Name"}, {ReferenceToArrayMember, "Maps", 0}, {EndMember}};
    data_type_definition MapRows[] = {{ReferenceMember, "Map", 0}, {EndMember}};
    std::memcpy(MaterialA, MaterialRows, sizeof(MaterialRows));
    std::memcpy(MaterialB, MaterialRows, sizeof(MaterialRows));
    std::memcpy(MapA, MapRows, sizeof(MapRows));
    std::memcpy(MapB, MapRows, sizeof(MapRows));
    MaterialA[1].ReferenceType = MapA;
    MapA[0].ReferenceType = MaterialA;
    MaterialB[1].ReferenceType = MapB;
    MapB[0].ReferenceType = MaterialB;
    EXPECT_TRUE(DataTypesAreEqual(MaterialA, MaterialB));
    EXPECT_FALSE(DataTypesAreEqual(MaterialA, MaterialB, MapB));
    EXPECT_FALSE(DataTypesAreEqual(MaterialA, 0));
    EXPECT_TRUE(DataTypesAreEqual(0, 0));

    // Names compare exactly here, but members are found case-insensitively.
    data_type_definition Lower[] = {{Real32Member, "position", 0, 3}, {EndMember}};
    EXPECT_FALSE(DataTypesAreEqual(Lower, VertexP3Type));
    data_type_definition Longer[] = {{Real32Member, "Position", 0, 3}, {Real32Member, "W"}, {EndMember}};
    EXPECT_FALSE(DataTypesAreEqual(Longer, VertexP3Type));
    data_type_definition Wider[] = {{Real32Member, "Position", 0, 4}, {EndMember}};
    EXPECT_FALSE(DataTypesAreEqual(Wider, VertexP3Type));

    real32 Vertex[3] = {1, 2, 3};
    matched_member Match;
    ASSERT_TRUE(FindMatchingMember(VertexPNGBC3Type, Vertex, "NORMAL", Match));
    EXPECT_EQ((uint8 *)Match.Address - (uint8 *)Vertex, 12);
    EXPECT_FALSE(FindMatchingMember(VertexPNGBC3Type, Vertex, "Color", Match));
    EXPECT_EQ(Match.Member, nullptr);
    EXPECT_EQ(Match.Address, nullptr);

    // The removed kind warns and the comparison goes on with the next member.
    log_capture Log;
    data_type_definition OldA[] = {{RemovedSwitchableMember, "S", Inner}, {Int32Member, "I"}, {EndMember}};
    data_type_definition OldB[] = {{RemovedSwitchableMember, "S", Outer}, {Int32Member, "I"}, {EndMember}};
    data_type_definition OldC[] = {{RemovedSwitchableMember, "S", Outer}, {Int16Member, "I"}, {EndMember}};
    EXPECT_TRUE(DataTypesAreEqual(OldA, OldB));
    EXPECT_FALSE(DataTypesAreEqual(OldA, OldC));
    EXPECT_TRUE(Log.Contains("Switchable types no longer supported"));
}

struct visit_record
{
    std::string Name;
    member_type Kind;
    int32 Depth;
    int32 Count;
    void *Target;
};

bool RecordVisit(object_member_visit const &Visit, void *UserData)
{
    ((std::vector<visit_record> *)UserData)
        ->push_back({Visit.Name ? Visit.Name : "", Visit.Kind, Visit.Depth, Visit.TargetCount, Visit.Target});
    return true;
}

TEST(DataTypes, VisitingAnObjectReportsSlots)
{
    real32 Controls[3] = {1, 2, 3};
    curve_data_da_constant32f Constant = {{3, 0}, 0, 3, Controls};
    vector_track Track = {};
    Track.Name = (char *)"track";
    Track.ValueCurve.CurveData = {CurveDataDaConstant32fType, &Constant};
    std::vector<visit_record> Visits;
    ASSERT_TRUE(VisitObjectMembers(VectorTrackType, &Track, RecordVisit, &Visits));
    ASSERT_EQ(Visits.size(), 5u);
    EXPECT_EQ(Visits[0].Target, Track.Name);
    EXPECT_EQ(Visits[3].Name, "ValueCurve");
    EXPECT_EQ(Visits[3].Kind, InlineMember);
    EXPECT_EQ(Visits[4].Name, "CurveData");
    EXPECT_EQ(Visits[4].Depth, 1);
    EXPECT_EQ(Visits[4].Target, &Constant);

    // The variant's record, walked through its own type.
    Visits.clear();
    ASSERT_TRUE(VisitObjectMembers(CurveDataDaConstant32fType, &Constant, RecordVisit, &Visits));
    ASSERT_EQ(Visits.size(), 5u); // header, its two members, padding, controls
    EXPECT_EQ(Visits[4].Kind, ReferenceToArrayMember);
    EXPECT_EQ(Visits[4].Count, 3);
    EXPECT_EQ(Visits[4].Target, Controls);
}

#pragma pack(push, 4)
struct wide_vertex
{
    real32 Position[3];
    real32 Weights[3];
    uint32 Big;
    int8 Signed[2];
};
struct narrow_vertex
{
    real32 position[2];
    real32 Signed[2];
    real32 Big;
    uint16 Half;
    uint8 Weights[3];
};
#pragma pack(pop)
data_type_definition WideType[] = {{Real32Member, "Position", 0, 3},
                                   {Real32Member, "Weights", 0, 3},
                                   {UInt32Member, "Big"},
                                   {Int8Member, "Signed", 0, 2},
                                   {EndMember}};
data_type_definition NarrowType[] = {
    {Real32Member, "position", 0, 2}, {Real32Member, "Signed", 0, 2},       {Real32Member, "Big"},
    {Real16Member, "Half"},           {NormalUInt8Member, "Weights", 0, 3}, {EndMember}};

TEST(Conversion, ByMemberNames)
{
    wide_vertex Wide = {{1.5f, 2.5f, 3.5f}, {0.25f, 1.0f, 0.0f}, 7, {-1, 5}};
    narrow_vertex Narrow;
    std::memset(&Narrow, 0x55, sizeof(Narrow));
    ConvertSingleObject(WideType, &Wide, NarrowType, &Narrow);
    // Width 3 into width 2: the first two elements; names match in any case.
    EXPECT_EQ(Values(Narrow.position, 2), (std::vector<double>{1.5, 2.5}));
    EXPECT_EQ(Values(Narrow.Signed, 2), (std::vector<double>{255, 5}));      // an int8 reads as its unsigned byte
    EXPECT_EQ(Values(Narrow.Weights, 3), (std::vector<double>{64, 255, 0})); // 0.25 * 255 + 0.5
    // An unsigned 32-bit source has no float reading.
    EXPECT_EQ(Narrow.Big, 0.0f);
    // Unmatched: cleared by convert.
    EXPECT_EQ(Narrow.Half, 0);

    // Width 2 into width 3: the third is cleared, or kept when merging.
    wide_vertex Back;
    std::memset(&Back, 0x55, sizeof(Back));
    Back.Position[2] = 9.0f;
    MergeSingleObject(NarrowType, &Narrow, WideType, &Back);
    EXPECT_EQ(Back.Position[1], 2.5f);
    EXPECT_EQ(Back.Position[2], 9.0f);
    EXPECT_EQ(Back.Signed[0], -1); // 255 truncated to a byte
    EXPECT_EQ(Back.Weights[0], 64 / 255.0f);
    ConvertSingleObject(NarrowType, &Narrow, WideType, &Back);
    EXPECT_EQ(Back.Position[2], 0.0f);
    EXPECT_EQ(Back.Big, 0u); // a real32 of 0 rounds to 0
}

TEST(Conversion, QuantisedAndHalfKinds)
{
    data_type_definition Reals[] = {{Real32Member, "V", 0, 4}, {EndMember}};
    data_type_definition Binormal8[] = {{BinormalInt8Member, "V", 0, 4}, {EndMember}};
    data_type_definition Normal16[] = {{NormalUInt16Member, "V", 0, 4}, {EndMember}};
    data_type_definition Halves[] = {{Real16Member, "V", 0, 4}, {EndMember}};
    data_type_definition Ints[] = {{Int32Member, "V", 0, 4}, {EndMember}};
    real32 Source[4] = {1.0f, 0.5f, -1.0f, 0.0f};

    int8 B8[4];
    ConvertSingleObject(Reals, Source, Binormal8, B8);
    EXPECT_EQ(Values(B8, 3), (std::vector<double>{127, 64, -126})); // -127 + 0.5 truncates toward zero
    uint16 N16[4];
    ConvertSingleObject(Reals, Source, Normal16, N16);
    EXPECT_EQ(Values(N16, 2), (std::vector<double>{65535, 32768}));

    // Integer readings of normalised kinds are the sign test.
    int32 Signs[4];
    ConvertSingleObject(Binormal8, B8, Ints, Signs);
    EXPECT_EQ(Values(Signs, 4), (std::vector<double>{1, 1, -1, 0}));

    uint16 H[4];
    ConvertSingleObject(Reals, Source, Halves, H);
    EXPECT_EQ(H[0], 0x3C00);
    EXPECT_EQ(H[2], 0xBC00);
    real32 Again[4];
    ConvertSingleObject(Halves, H, Reals, Again);
    EXPECT_EQ(Again[1], 0.5f);
    EXPECT_EQ(Again[2], -1.0f);
}

TEST(Conversion, PointersTransformsAndInlineMembers)
{
    // Pointers convert only from the same kind; transforms only from transforms.
    data_type_definition FromInts[] = {{Int32Member, "R"}, {Int32Member, "T"}, {EndMember}};
    data_type_definition ToRefs[] = {{ReferenceMember, "R", Inner}, {TransformMember, "T"}, {EndMember}};
    int32 Ints[2] = {5, 6};
    uint8 Refs[76];
    std::memset(Refs, 0x11, sizeof(Refs));
    ConvertSingleObject(FromInts, Ints, ToRefs, Refs);
    EXPECT_EQ(LoadPointer(Refs), nullptr);
    transform T;
    std::memcpy(&T, Refs + 8, sizeof(T));
    EXPECT_EQ(T.Orientation[3], 1.0f);

    // Inline members convert element pairs by names, recursively.
    data_type_definition InnerInts[] = {{Int32Member, "A"}, {EndMember}};
    data_type_definition OuterInts[] = {{InlineMember, "Pair", InnerInts, 3}, {EndMember}};
    uint8 Source[89] = {};
    ClearObject(Outer, Source);
    StoreUnaligned<int16>(Source + 1, -3);
    StoreUnaligned<int16>(Source + 11, 12);
    int32 Destination[3] = {9, 9, 9};
    MergeSingleObject(Outer, Source, OuterInts, Destination);
    EXPECT_EQ(Values(Destination, 3), (std::vector<double>{-3, 12, 9}));
}

TEST(Conversion, IntegerArrays)
{
    int32 Indices[5] = {0, 1, 65535, 70000, -2};
    ASSERT_TRUE(ConvertIntegerArray(5, Int32Member, Indices, UInt16Member, Indices));
    uint16 const *Narrow = (uint16 const *)Indices;
    EXPECT_EQ(Values(Narrow, 5), (std::vector<double>{0, 1, 65535, (uint16)70000, 65534}));

    // Widening in place walks back to front.
    int16 Buffer[8] = {-1, 2, -3, 4};
    ASSERT_TRUE(ConvertIntegerArray(4, Int16Member, Buffer, Int32Member, Buffer));
    int32 const *Wide = (int32 const *)Buffer;
    EXPECT_EQ(Values(Wide, 4), (std::vector<double>{-1, 2, -3, 4}));

    log_capture Log;
    EXPECT_FALSE(ConvertIntegerArray(1, Real32Member, Buffer, Int32Member, Buffer));
}

} // namespace
