// Vertex layouts and the helpers that work through them. A layout is a data
// type definition; "Position", "Normal", "Tangent", "Binormal",
// "TangentBinormalCross", "BoneIndices" and "BoneWeights" are the standard
// members, every other member is a channel ("TextureCoordinates0",
// "DiffuseColor0", ...).
#pragma once

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_schema.h"

bool IsStandardVertexMember(char const *Name);
int32 GetVertexComponentCount(data_type_definition const *Layout);
int32 GetVertexChannelCount(data_type_definition const *Layout);
int32 GetVertexBoneCount(data_type_definition const *Layout);
// The member of that name, or null.
data_type_definition const *FindVertexMember(data_type_definition const *Layout, char const *Name);

// Quantised weights are nudged so that they sum to exactly the value that
// stands for 1.0 (255 for NormalUInt8Member, ...). Real members are left alone.
void EnsureExactOneNorm(data_type_definition const &Member, void *MemberData);

bool GetSingleVertex(vertex_data const *VertexData, int32 VertexIndex, data_type_definition const *As, void *Dest);
void ConvertVertices(int32 Count, data_type_definition const *Layout, void const *Vertices,
                     data_type_definition const *DestinationLayout, void *Destination);
void SetVertexPosition(data_type_definition const *Layout, void *Vertex, real32 const *Position);
void SetVertexNormal(data_type_definition const *Layout, void *Vertex, real32 const *Normal);
void SetVertexColor(data_type_definition const *Layout, void *Vertex, int32 Channel, real32 const *Color);
void SetVertexUVW(data_type_definition const *Layout, void *Vertex, int32 Channel, real32 const *UVW);

// Affine3 is a translation; the matrices are 9 reals, row by row. Positions,
// tangents and binormals go through Linear3x3 (x' = x m0 + y m1 + z m2),
// normals and cross vectors through the transposed InverseLinear3x3 (or
// Linear3x3 when TreatAsDeltas).
void TransformVertices(int32 Count, data_type_definition const *Layout, void *Vertices, real32 const *Affine3,
                       real32 const *Linear3x3, real32 const *InverseLinear3x3, bool Normalize, bool TreatAsDeltas);

// Divides by the length above 0.00001, else zeroes; returns the length or 0.
real32 NormalizeVector3(real32 *Vector);
