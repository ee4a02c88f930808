// Fixed vertex layouts. Most meshes carry a layout built at run time; these
// are the standard ones, plus the working layouts through which code reads
// and writes vertices of any layout by member names.
#include "format/tessel_schema.h"

data_type_definition VertexP3Type[] = {
    {Real32Member, "Position", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout02Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout03Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout04Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout05Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout06Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {Real32Member, "Tangent", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout07Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {EndMember},
};

data_type_definition VertexPNGBC3Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TangentBinormalCross", 0, 3},
    {EndMember},
};

data_type_definition VertexPN3T2Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout10Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout11Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout12Type[] = {
    {Real32Member, "Position", 0, 3},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout13Type[] = {
    {Real32Member, "Position", 0, 3},
    {UInt32Member, "BoneIndices", 0, 1},
    {Real32Member, "Normal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout14Type[] = {
    {Real32Member, "Position", 0, 3},
    {UInt32Member, "BoneIndices", 0, 1},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout15Type[] = {
    {Real32Member, "Position", 0, 3}, {UInt32Member, "BoneIndices", 0, 1},         {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},  {Real32Member, "TextureCoordinates0", 0, 3}, {EndMember},
};

static data_type_definition VertexLayout16Type[] = {
    {Real32Member, "Position", 0, 3}, {UInt32Member, "BoneIndices", 0, 1}, {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},  {Real32Member, "Binormal", 0, 3},    {EndMember},
};

static data_type_definition VertexLayout17Type[] = {
    {Real32Member, "Position", 0, 3},
    {UInt32Member, "BoneIndices", 0, 1},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout18Type[] = {
    {Real32Member, "Position", 0, 3},
    {UInt32Member, "BoneIndices", 0, 1},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout19Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 2},
    {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout20Type[] = {
    {Real32Member, "Position", 0, 3}, {NormalUInt8Member, "BoneWeights", 0, 2}, {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},   {Real32Member, "Tangent", 0, 3},          {EndMember},
};

static data_type_definition VertexLayout21Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 2},
    {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout22Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 2},
    {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout23Type[] = {
    {Real32Member, "Position", 0, 3}, {NormalUInt8Member, "BoneWeights", 0, 2},    {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},   {Real32Member, "TextureCoordinates0", 0, 2}, {EndMember},
};

static data_type_definition VertexLayout24Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 2},
    {UInt8Member, "BoneIndices", 0, 2},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout25Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 4},
    {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout26Type[] = {
    {Real32Member, "Position", 0, 3}, {NormalUInt8Member, "BoneWeights", 0, 4}, {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},   {Real32Member, "Tangent", 0, 3},          {EndMember},
};

static data_type_definition VertexLayout27Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 4},
    {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

static data_type_definition VertexLayout28Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 4},
    {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {EndMember},
};

static data_type_definition VertexLayout29Type[] = {
    {Real32Member, "Position", 0, 3}, {NormalUInt8Member, "BoneWeights", 0, 4},    {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},   {Real32Member, "TextureCoordinates0", 0, 2}, {EndMember},
};

static data_type_definition VertexLayout30Type[] = {
    {Real32Member, "Position", 0, 3},
    {NormalUInt8Member, "BoneWeights", 0, 4},
    {UInt8Member, "BoneIndices", 0, 4},
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TextureCoordinates0", 0, 2},
    {EndMember},
};

data_type_definition *const StandardVertexLayouts[StandardVertexLayoutCount] = {
    VertexP3Type,       VertexLayout02Type, VertexLayout03Type, VertexLayout04Type, VertexLayout05Type,
    VertexLayout06Type, VertexLayout07Type, VertexPNGBC3Type,   VertexPN3T2Type,    VertexLayout10Type,
    VertexLayout11Type, VertexLayout12Type, VertexLayout13Type, VertexLayout14Type, VertexLayout15Type,
    VertexLayout16Type, VertexLayout17Type, VertexLayout18Type, VertexLayout19Type, VertexLayout20Type,
    VertexLayout21Type, VertexLayout22Type, VertexLayout23Type, VertexLayout24Type, VertexLayout25Type,
    VertexLayout26Type, VertexLayout27Type, VertexLayout28Type, VertexLayout29Type, VertexLayout30Type,
};

data_type_definition VertexBoneWeightsType[] = {
    {Real32Member, "BoneWeights", 0, MaximumWeightsPerVertex},
    {UInt32Member, "BoneIndices", 0, MaximumWeightsPerVertex},
    {EndMember},
};

data_type_definition VertexTangentFrameType[] = {
    {Real32Member, "Normal", 0, 3},
    {Real32Member, "Tangent", 0, 3},
    {Real32Member, "Binormal", 0, 3},
    {Real32Member, "TangentBinormalCross", 0, 3},
    {EndMember},
};

data_type_definition VertexChannelType[] = {
    {Real32Member, "Channel", 0, 4},
    {EndMember},
};
