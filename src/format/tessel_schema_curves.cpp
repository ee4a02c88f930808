// Type tables of the curve data records. A curve2's variant type is one of
// these; the format number in each record's header indexes CurveFormatTypes.
#include "format/tessel_schema.h"

data_type_definition CurveDataHeaderType[] = {
    {UInt8Member, "Format", 0},
    {UInt8Member, "Degree", 0},
    {EndMember},
};

// The oldest curve record, without the header.
data_type_definition OldCurveDataType[] = {
    {Int32Member, "Degree", 0},
    {ReferenceToArrayMember, "Knots", Real32ElementType},
    {ReferenceToArrayMember, "Controls", Real32ElementType},
    {EndMember},
};

data_type_definition CurveDataDaKeyframes32fType[] = {
    {InlineMember, "CurveDataHeader_DaKeyframes32f", CurveDataHeaderType},
    {Int16Member, "Dimension", 0},
    {ReferenceToArrayMember, "Controls", Real32ElementType},
    {EndMember},
};

data_type_definition CurveDataDaK32fC32fType[] = {
    {InlineMember, "CurveDataHeader_DaK32fC32f", CurveDataHeaderType},
    {Int16Member, "Padding", 0},
    {ReferenceToArrayMember, "Knots", Real32ElementType},
    {ReferenceToArrayMember, "Controls", Real32ElementType},
    {EndMember},
};

data_type_definition CurveDataDaIdentityType[] = {
    {InlineMember, "CurveDataHeader_DaIdentity", CurveDataHeaderType},
    {Int16Member, "Dimension", 0},
    {EndMember},
};

data_type_definition CurveDataDaConstant32fType[] = {
    {InlineMember, "CurveDataHeader_DaConstant32f", CurveDataHeaderType},
    {Int16Member, "Padding", 0},
    {ReferenceToArrayMember, "Controls", Real32ElementType},
    {EndMember},
};

data_type_definition CurveDataD3Constant32fType[] = {
    {InlineMember, "CurveDataHeader_D3Constant32f", CurveDataHeaderType},
    {Int16Member, "Padding", 0},
    {Real32Member, "Controls", 0, 3},
    {EndMember},
};

data_type_definition CurveDataD4Constant32fType[] = {
    {InlineMember, "CurveDataHeader_D4Constant32f", CurveDataHeaderType},
    {Int16Member, "Padding", 0},
    {Real32Member, "Controls", 0, 4},
    {EndMember},
};

data_type_definition CurveDataDaK16uC16uType[] = {
    {InlineMember, "CurveDataHeader_DaK16uC16u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {ReferenceToArrayMember, "ControlScaleOffsets", Real32ElementType},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataDaK8uC8uType[] = {
    {InlineMember, "CurveDataHeader_DaK8uC8u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {ReferenceToArrayMember, "ControlScaleOffsets", Real32ElementType},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition CurveDataD4nK16uC15uType[] = {
    {InlineMember, "CurveDataHeader_D4nK16uC15u", CurveDataHeaderType},
    {UInt16Member, "ScaleOffsetTableEntries", 0},
    {Real32Member, "OneOverKnotScale", 0},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataD4nK8uC7uType[] = {
    {InlineMember, "CurveDataHeader_D4nK8uC7u", CurveDataHeaderType},
    {UInt16Member, "ScaleOffsetTableEntries", 0},
    {Real32Member, "OneOverKnotScale", 0},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition CurveDataD3K16uC16uType[] = {
    {InlineMember, "CurveDataHeader_D3K16uC16u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataD3K8uC8uType[] = {
    {InlineMember, "CurveDataHeader_D3K8uC8u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition CurveDataD9I1K16uC16uType[] = {
    {InlineMember, "CurveDataHeader_D9I1K16uC16u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScale", 0},
    {Real32Member, "ControlOffset", 0},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataD9I3K16uC16uType[] = {
    {InlineMember, "CurveDataHeader_D9I3K16uC16u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataD9I1K8uC8uType[] = {
    {InlineMember, "CurveDataHeader_D9I1K8uC8u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScale", 0},
    {Real32Member, "ControlOffset", 0},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition CurveDataD9I3K8uC8uType[] = {
    {InlineMember, "CurveDataHeader_D9I3K8uC8u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition CurveDataD3I1K32fC32fType[] = {
    {InlineMember, "CurveDataHeader_D3I1K32fC32f", CurveDataHeaderType},
    {UInt16Member, "Padding", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", Real32ElementType},
    {EndMember},
};

data_type_definition CurveDataD3I1K16uC16uType[] = {
    {InlineMember, "CurveDataHeader_D3I1K16uC16u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt16ElementType},
    {EndMember},
};

data_type_definition CurveDataD3I1K8uC8uType[] = {
    {InlineMember, "CurveDataHeader_D3I1K8uC8u", CurveDataHeaderType},
    {UInt16Member, "OneOverKnotScaleTrunc", 0},
    {Real32Member, "ControlScales", 0, 3},
    {Real32Member, "ControlOffsets", 0, 3},
    {ReferenceToArrayMember, "KnotsControls", UInt8ElementType},
    {EndMember},
};

data_type_definition *const CurveFormatTypes[CurveFormatCount] = {
    CurveDataDaKeyframes32fType, CurveDataDaK32fC32fType,    CurveDataDaIdentityType, CurveDataDaConstant32fType,
    CurveDataD3Constant32fType,  CurveDataD4Constant32fType, CurveDataDaK16uC16uType, CurveDataDaK8uC8uType,
    CurveDataD4nK16uC15uType,    CurveDataD4nK8uC7uType,     CurveDataD3K16uC16uType, CurveDataD3K8uC8uType,
    CurveDataD9I1K16uC16uType,   CurveDataD9I3K16uC16uType,  CurveDataD9I1K8uC8uType, CurveDataD9I3K8uC8uType,
    CurveDataD3I1K32fC32fType,   CurveDataD3I1K16uC16uType,  CurveDataD3I1K8uC8uType,
};

static_assert(sizeof(old_curve_data) == 28, "old_curve_data size");
static_assert(sizeof(curve_data_da_keyframes32f) == 16, "curve_data_da_keyframes32f size");
static_assert(sizeof(curve_data_da_k32f_c32f) == 28, "curve_data_da_k32f_c32f size");
static_assert(sizeof(curve_data_da_identity) == 4, "curve_data_da_identity size");
static_assert(sizeof(curve_data_da_constant32f) == 16, "curve_data_da_constant32f size");
static_assert(sizeof(curve_data_d3_constant32f) == 16, "curve_data_d3_constant32f size");
static_assert(sizeof(curve_data_d4_constant32f) == 20, "curve_data_d4_constant32f size");
static_assert(sizeof(curve_data_da_k16u_c16u) == 28, "curve_data_da_k16u_c16u size");
static_assert(sizeof(curve_data_da_k8u_c8u) == 28, "curve_data_da_k8u_c8u size");
static_assert(sizeof(curve_data_d4n_k16u_c15u) == 20, "curve_data_d4n_k16u_c15u size");
static_assert(sizeof(curve_data_d4n_k8u_c7u) == 20, "curve_data_d4n_k8u_c7u size");
static_assert(sizeof(curve_data_d3_k16u_c16u) == 40, "curve_data_d3_k16u_c16u size");
static_assert(sizeof(curve_data_d3_k8u_c8u) == 40, "curve_data_d3_k8u_c8u size");
static_assert(sizeof(curve_data_d9i1_k16u_c16u) == 24, "curve_data_d9i1_k16u_c16u size");
static_assert(sizeof(curve_data_d9i3_k16u_c16u) == 40, "curve_data_d9i3_k16u_c16u size");
static_assert(sizeof(curve_data_d9i1_k8u_c8u) == 24, "curve_data_d9i1_k8u_c8u size");
static_assert(sizeof(curve_data_d9i3_k8u_c8u) == 40, "curve_data_d9i3_k8u_c8u size");
static_assert(sizeof(curve_data_d3i1_k32f_c32f) == 40, "curve_data_d3i1_k32f_c32f size");
static_assert(sizeof(curve_data_d3i1_k16u_c16u) == 40, "curve_data_d3i1_k16u_c16u size");
static_assert(sizeof(curve_data_d3i1_k8u_c8u) == 40, "curve_data_d3i1_k8u_c8u size");
