// Basis conversion: one pass that brings every object of a file_info from
// the art tool's axes and units to the wanted ones.
//
// A conversion is an offset Affine3 and a 3x3 matrix Linear3x3 (row by row,
// for column vectors) with its inverse: a point p becomes Linear3x3 p +
// Affine3. Directions (tangents, binormals) go through Linear3x3, normals
// through the transpose of the inverse; a transform's position goes like a
// point and its orientation and scale/shear are conjugated:
// R' = Linear3x3 R InverseLinear3x3.
#pragma once

#include "foundation/tessel_types.h"

struct file_info;
struct skeleton;
struct mesh;
struct model;
struct track_group;
struct transform;
struct periodic_loop;
struct curve2;

enum basis_conversion_flags
{
    // Normals, tangents and binormals come out unit length (a vector too
    // short to have a direction becomes zero).
    BasisConversion_RenormalizeNormals = 0x1,
    // A mirroring conversion swaps two corners of every triangle, so that
    // triangles keep facing the same way.
    BasisConversion_ReorderTriangleIndices = 0x2,
};

// Linear3x3 = D T^t scaled by the ratio of units, where D holds the wanted
// axes and T the file's (ArtToolInfo) axes as columns; Affine3 = wanted
// origin - the file's origin. False (logged) without an ArtToolInfo or when
// the result can't be inverted.
bool ComputeBasisConversion(file_info const &FileInfo, real32 DesiredUnitsPerMeter, real32 const *DesiredOrigin,
                            real32 const *DesiredRight, real32 const *DesiredUp, real32 const *DesiredBack,
                            real32 *Affine3, real32 *Linear3x3, real32 *InverseLinear3x3);

// Skeletons, meshes, models and track groups of the file, in this order.
void TransformFile(file_info &FileInfo, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                   real32 AffineTolerance, real32 LinearTolerance, uint32 Flags);

void TransformSkeleton(skeleton &Skeleton, real32 const *Affine3, real32 const *Linear3x3,
                       real32 const *InverseLinear3x3, real32 AffineTolerance, real32 LinearTolerance, uint32 Flags);
void TransformMesh(mesh &Mesh, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                   real32 AffineTolerance, real32 LinearTolerance, uint32 Flags);
void TransformModel(model &Model, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3);
void TransformTrackGroup(track_group &Group, real32 const *Affine3, real32 const *Linear3x3,
                         real32 const *InverseLinear3x3, real32 AffineTolerance, real32 LinearTolerance);

// Curves of positions (3), orientations (4) and scale/shear matrices (9).
// A curve that is the identity or of another dimension is left alone (with
// a warning). When Linear is a signed permutation with one uniform scale the
// stored samples are moved in place (so quantised data stays bit-exact);
// otherwise every control is transformed and the curve requantised.
void TransformCurve3(real32 const *Affine3, real32 const *Linear3x3, real32 AffineTolerance, real32 LinearTolerance,
                     curve2 &Curve);
void TransformCurve4(real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                     real32 AffineTolerance, real32 LinearTolerance, curve2 &Curve);
void TransformCurve9(real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                     real32 AffineTolerance, real32 LinearTolerance, curve2 &Curve);

// One transform record: position like a point, orientation (keeping its
// length) and scale/shear conjugated; the flags are recomputed.
void TransformTransform(transform &Transform, real32 const *Affine3, real32 const *Linear3x3,
                        real32 const *InverseLinear3x3);
// A row-vector 4x4 matrix (as bones store their inverse world) taken as a
// linear block and a translation row, converted like a transform.
void TransformMatrix4x4(real32 *Matrix4x4, real32 const *Affine3, real32 const *Linear3x3,
                        real32 const *InverseLinear3x3);

// True when Linear is not a signed permutation with one uniform scale (so a
// curve must have its controls transformed rather than its samples moved).
// Permutation and Scales (3 each, may be null) receive the column each row
// takes its largest entry from, and that entry.
bool NeedsRefit(real32 const *Linear3x3, real32 const *InverseLinear3x3, real32 Tolerance, int32 *Permutation,
                real32 *Scales);

// Determinant of a 3x3 matrix given row by row.
real32 Determinant3x3(real32 const *Matrix3x3);
