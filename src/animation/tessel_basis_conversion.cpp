#include "animation/tessel_basis_conversion.h"

#include <cmath>
#include <cstring>

#include "animation/tessel_curve.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_log.h"
#include "geometry/tessel_transform.h"
#include "geometry/tessel_tri_topology.h"
#include "geometry/tessel_vertex_data.h"

namespace {

// 3x3 matrices here are 9 values row by row, for column vectors.
void Multiply3x3(real32 const *A, real32 const *B, real32 *Result)
{
    real32 Product[9];
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            Product[Row * 3 + Column] = A[Row * 3 + 0] * B[0 * 3 + Column] + A[Row * 3 + 1] * B[1 * 3 + Column] +
                                        A[Row * 3 + 2] * B[2 * 3 + Column];
        }
    }
    memcpy(Result, Product, sizeof(Product));
}

// Linear * M * Inverse.
void Conjugate3x3(real32 const *Linear, real32 const *M, real32 const *Inverse, real32 *Result)
{
    real32 Left[9];
    Multiply3x3(Linear, M, Left);
    Multiply3x3(Left, Inverse, Result);
}

void Apply3x3(real32 const *M, real32 const *Vector, real32 *Result)
{
    real32 Out[3];
    for (int32 Row = 0; Row < 3; ++Row) {
        Out[Row] = M[Row * 3 + 0] * Vector[0] + M[Row * 3 + 1] * Vector[1] + M[Row * 3 + 2] * Vector[2];
    }
    memcpy(Result, Out, sizeof(Out));
}

bool Invert3x3(real32 const *M, real32 *Result)
{
    double const A = M[0], B = M[1], C = M[2], D = M[3], E = M[4], F = M[5], G = M[6], H = M[7], I = M[8];
    double const Det = A * (E * I - F * H) - B * (D * I - F * G) + C * (D * H - E * G);
    if (!(std::fabs(Det) > 1e-30)) return false;
    double const Inverse[9] = {(E * I - F * H),  -(B * I - C * H), (B * F - C * E),  -(D * I - F * G), (A * I - C * G),
                               -(A * F - C * D), (D * H - E * G),  -(A * H - B * G), (A * E - B * D)};
    for (int32 Index = 0; Index < 9; ++Index) Result[Index] = (real32)(Inverse[Index] / Det);
    return true;
}

// The quaternion (x, y, z, w) of a rotation matrix, by the largest of the
// four candidate divisors; w comes out non-negative.
void Matrix3x3ToQuaternion(real32 const *M, real32 *Q)
{
    double const Trace = (double)M[0] + M[4] + M[8];
    double X, Y, Z, W;
    if (Trace > 0.0) {
        double S = std::sqrt(Trace + 1.0) * 2.0;
        W = 0.25 * S;
        X = (M[7] - M[5]) / S;
        Y = (M[2] - M[6]) / S;
        Z = (M[3] - M[1]) / S;
    } else if (M[0] > M[4] && M[0] > M[8]) {
        double S = std::sqrt(1.0 + M[0] - M[4] - M[8]) * 2.0;
        W = (M[7] - M[5]) / S;
        X = 0.25 * S;
        Y = (M[1] + M[3]) / S;
        Z = (M[2] + M[6]) / S;
    } else if (M[4] > M[8]) {
        double S = std::sqrt(1.0 + M[4] - M[0] - M[8]) * 2.0;
        W = (M[2] - M[6]) / S;
        X = (M[1] + M[3]) / S;
        Y = 0.25 * S;
        Z = (M[5] + M[7]) / S;
    } else {
        double S = std::sqrt(1.0 + M[8] - M[0] - M[4]) * 2.0;
        W = (M[3] - M[1]) / S;
        X = (M[2] + M[6]) / S;
        Y = (M[5] + M[7]) / S;
        Z = 0.25 * S;
    }
    double Length = std::sqrt(X * X + Y * Y + Z * Z + W * W);
    if (Length > 0.0) {
        X /= Length;
        Y /= Length;
        Z /= Length;
        W /= Length;
    }
    if (W < 0.0) {
        X = -X;
        Y = -Y;
        Z = -Z;
        W = -W;
    }
    Q[0] = (real32)X;
    Q[1] = (real32)Y;
    Q[2] = (real32)Z;
    Q[3] = (real32)W;
}

// The orientation rule for one quaternion: its length kept, its rotation R
// turned into Linear R Inverse. A conjugation keeps the scalar part, so the
// result takes the sign that keeps w's sign; where w is about zero it takes
// the sign nearer to Previous (if given), so that curves stay continuous.
void ConjugateQuaternion(real32 *Q, real32 const *Linear3x3, real32 const *InverseLinear3x3, real32 const *Previous)
{
    real32 Length = std::sqrt(Q[0] * Q[0] + Q[1] * Q[1] + Q[2] * Q[2] + Q[3] * Q[3]);
    if (!(Length > 0.0f)) return;
    real32 const W = Q[3] / Length;
    real32 Unit[4] = {Q[0] / Length, Q[1] / Length, Q[2] / Length, W};
    real32 Rotation[9];
    QuaternionToMatrix3x3(Unit, Rotation);
    Conjugate3x3(Linear3x3, Rotation, InverseLinear3x3, Rotation);
    Matrix3x3ToQuaternion(Rotation, Q);
    bool Flip = W < 0.0f;
    if (std::fabs(W) < 1e-3f && Previous) {
        real32 Dot = Q[0] * Previous[0] + Q[1] * Previous[1] + Q[2] * Previous[2] + Q[3] * Previous[3];
        Flip = Dot < 0.0f;
    }
    for (int32 Component = 0; Component < 4; ++Component) Q[Component] *= Flip ? -Length : Length;
}

bool IsIdentityConversion(real32 const *Affine3, real32 const *Linear3x3)
{
    for (int32 Index = 0; Index < 9; ++Index) {
        if (Linear3x3[Index] != (Index % 4 == 0 ? 1.0f : 0.0f)) return false;
    }
    return Affine3[0] == 0.0f && Affine3[1] == 0.0f && Affine3[2] == 0.0f;
}

void TransformVertexData(vertex_data *VertexData, real32 const *Affine3, real32 const *Linear3x3,
                         real32 const *InverseLinear3x3, bool Normalize, bool TreatAsDeltas)
{
    if (!VertexData || !VertexData->Vertices.Type || !VertexData->Vertices.Array) return;
    TransformVertices(VertexData->Vertices.Count, VertexData->Vertices.Type, VertexData->Vertices.Array, Affine3,
                      Linear3x3, InverseLinear3x3, Normalize, TreatAsDeltas);
}

} // namespace

real32 Determinant3x3(real32 const *M)
{
    return M[0] * (M[4] * M[8] - M[5] * M[7]) - M[1] * (M[3] * M[8] - M[5] * M[6]) + M[2] * (M[3] * M[7] - M[4] * M[6]);
}

bool ComputeBasisConversion(file_info const &FileInfo, real32 DesiredUnitsPerMeter, real32 const *DesiredOrigin,
                            real32 const *DesiredRight, real32 const *DesiredUp, real32 const *DesiredBack,
                            real32 *Affine3, real32 *Linear3x3, real32 *InverseLinear3x3)
{
    CheckPointer(FileInfo.ArtToolInfo, LogCategory_BasisConversion, false);
    art_tool_info const &Tool = *FileInfo.ArtToolInfo;
    if (!(Tool.UnitsPerMeter > 0.0f) || !(DesiredUnitsPerMeter > 0.0f)) {
        TesselWarning(LogCategory_BasisConversion, "Units per meter must be above 0 (file %f, wanted %f)",
                      (double)Tool.UnitsPerMeter, (double)DesiredUnitsPerMeter);
        return false;
    }
    // D has the wanted axes as columns; T^t has the file's axes as rows.
    real32 const *Wanted[3] = {DesiredRight, DesiredUp, DesiredBack};
    real32 const *Have[3] = {Tool.RightVector, Tool.UpVector, Tool.BackVector};
    real32 const Scale = DesiredUnitsPerMeter / Tool.UnitsPerMeter;
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) {
            real32 Sum = 0.0f;
            for (int32 Axis = 0; Axis < 3; ++Axis) Sum += Wanted[Axis][Row] * Have[Axis][Column];
            Linear3x3[Row * 3 + Column] = Sum * Scale;
        }
    }
    if (!Invert3x3(Linear3x3, InverseLinear3x3)) {
        TesselWarning(LogCategory_BasisConversion, "The coordinate systems give a conversion that can't be inverted");
        return false;
    }
    for (int32 Axis = 0; Axis < 3; ++Axis) Affine3[Axis] = DesiredOrigin[Axis] - Tool.Origin[Axis];
    return true;
}

void TransformTransform(transform &Transform, real32 const *Affine3, real32 const *Linear3x3,
                        real32 const *InverseLinear3x3)
{
    Apply3x3(Linear3x3, Transform.Position, Transform.Position);
    for (int32 Axis = 0; Axis < 3; ++Axis) Transform.Position[Axis] += Affine3[Axis];

    ConjugateQuaternion(Transform.Orientation, Linear3x3, InverseLinear3x3, 0);
    Conjugate3x3(Linear3x3, &Transform.ScaleShear[0][0], InverseLinear3x3, &Transform.ScaleShear[0][0]);
    SetTransformFlags(Transform);
}

void TransformMatrix4x4(real32 *M, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3)
{
    // Row vectors: the linear block's transpose is the column-vector matrix.
    real32 Block[9];
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) Block[Row * 3 + Column] = M[Column * 4 + Row];
    }
    Conjugate3x3(Linear3x3, Block, InverseLinear3x3, Block);
    for (int32 Row = 0; Row < 3; ++Row) {
        for (int32 Column = 0; Column < 3; ++Column) M[Column * 4 + Row] = Block[Row * 3 + Column];
    }
    real32 Translation[3] = {M[12], M[13], M[14]};
    Apply3x3(Linear3x3, Translation, Translation);
    for (int32 Axis = 0; Axis < 3; ++Axis) M[12 + Axis] = Translation[Axis] + Affine3[Axis];
}

void TransformSkeleton(skeleton &Skeleton, real32 const *Affine3, real32 const *Linear3x3,
                       real32 const *InverseLinear3x3, real32 AffineTolerance, real32 LinearTolerance, uint32 Flags)
{
    for (int32 Index = 0; Index < Skeleton.BoneCount; ++Index) {
        bone &Bone = Skeleton.Bones[Index];
        TransformTransform(Bone.Transform, Affine3, Linear3x3, InverseLinear3x3);
        TransformMatrix4x4(&Bone.InverseWorldTransform[0][0], Affine3, Linear3x3, InverseLinear3x3);
    }
}

void TransformMesh(mesh &Mesh, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                   real32 AffineTolerance, real32 LinearTolerance, uint32 Flags)
{
    bool const Normalize = (Flags & BasisConversion_RenormalizeNormals) != 0;
    TransformVertexData(Mesh.PrimaryVertexData, Affine3, Linear3x3, InverseLinear3x3, Normalize, false);
    for (int32 Target = 0; Target < Mesh.MorphTargetCount; ++Target) {
        morph_target &Morph = Mesh.MorphTargets[Target];
        bool Deltas = Morph.DataIsDeltas != 0;
        TransformVertexData(Morph.VertexData, Affine3, Linear3x3, InverseLinear3x3, Normalize && !Deltas, Deltas);
    }
    if ((Flags & BasisConversion_ReorderTriangleIndices) && Mesh.PrimaryTopology && Determinant3x3(Linear3x3) < 0.0f) {
        InvertTriTopologyWinding(Mesh.PrimaryTopology);
    }
    // Bone boxes stand in the bones' own spaces, which turn with the basis
    // but do not move: the corners go through the linear part alone.
    for (int32 Binding = 0; Binding < Mesh.BoneBindingCount; ++Binding) {
        bone_binding &Box = Mesh.BoneBindings[Binding];
        real32 Low[3], High[3];
        for (int32 Corner = 0; Corner < 8; ++Corner) {
            real32 Point[3] = {(Corner & 1) ? Box.OBBMax[0] : Box.OBBMin[0],
                               (Corner & 2) ? Box.OBBMax[1] : Box.OBBMin[1],
                               (Corner & 4) ? Box.OBBMax[2] : Box.OBBMin[2]};
            Apply3x3(Linear3x3, Point, Point);
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                Low[Axis] = Corner == 0 ? Point[Axis] : std::fmin(Low[Axis], Point[Axis]);
                High[Axis] = Corner == 0 ? Point[Axis] : std::fmax(High[Axis], Point[Axis]);
            }
        }
        memcpy(Box.OBBMin, Low, sizeof(Low));
        memcpy(Box.OBBMax, High, sizeof(High));
    }
}

void TransformModel(model &Model, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3)
{
    TransformTransform(Model.InitialPlacement, Affine3, Linear3x3, InverseLinear3x3);
}

namespace {

// Knots and controls of a curve, on the stack for small curves.
struct curve_values
{
    enum
    {
        StackKnots = 64,
        MaximumDimension = 9,
    };
    real32 StackKnotValues[StackKnots];
    real32 StackControlValues[StackKnots * MaximumDimension];
    real32 *Knots = 0;
    real32 *Controls = 0;
    real32 *Heap = 0;
    int32 Count = 0;

    bool Extract(curve2 const &Curve, int32 Dimension, real32 const *IdentityVector)
    {
        Count = CurveGetKnotCount(Curve);
        if (Count < 1) Count = 1;
        if (Count <= StackKnots) {
            Knots = StackKnotValues;
            Controls = StackControlValues;
        } else {
            Heap = TesselAllocateArray(real32, (intaddrx)Count * (Dimension + 1));
            if (!Heap) return false;
            Knots = Heap;
            Controls = Heap + Count;
        }
        CurveExtractKnotValues(Curve, 0, Count, Knots, Controls, IdentityVector);
        return true;
    }

    ~curve_values()
    {
        if (Heap) TesselFree(Heap);
    }
};

bool CurveCanBeTransformed(curve2 const &Curve, int32 Dimension)
{
    if (CurveIsIdentity(Curve)) {
        TesselWarning(LogCategory_BasisConversion, "Curve is the identity value - can't transform it");
        return false;
    }
    if (CurveGetDimension(Curve) != Dimension) {
        TesselWarning(LogCategory_BasisConversion, "Curve does not have dimension=%d", Dimension);
        return false;
    }
    return true;
}

} // namespace

void TransformCurve3(real32 const *Affine3, real32 const *Linear3x3, real32 AffineTolerance, real32 LinearTolerance,
                     curve2 &Curve)
{
    if (!CurveCanBeTransformed(Curve, 3)) return;
    int32 Permutation[3];
    real32 Scales[3];
    if (NeedsRefit(Linear3x3, 0, LinearTolerance, Permutation, Scales)) {
        curve_values Values;
        real32 const Zero[3] = {0, 0, 0};
        if (!Values.Extract(Curve, 3, Zero)) return;
        for (int32 Control = 0; Control < Values.Count; ++Control) {
            real32 *Point = Values.Controls + Control * 3;
            Apply3x3(Linear3x3, Point, Point);
            for (int32 Axis = 0; Axis < 3; ++Axis) Point[Axis] += Affine3[Axis];
        }
        SetCurveKnotsAndControls(Curve, Values.Count, 3, Values.Knots, Values.Controls);
    } else {
        CurveTransformSamples(Curve, 3, Scales, Affine3, Permutation);
    }
}

void TransformCurve4(real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                     real32 AffineTolerance, real32 LinearTolerance, curve2 &Curve)
{
    if (!CurveCanBeTransformed(Curve, 4)) return;
    if (NeedsRefit(Linear3x3, InverseLinear3x3, LinearTolerance, 0, 0)) {
        curve_values Values;
        real32 const Identity[4] = {0, 0, 0, 1};
        if (!Values.Extract(Curve, 4, Identity)) return;
        for (int32 Control = 0; Control < Values.Count; ++Control) {
            real32 *Q = Values.Controls + Control * 4;
            ConjugateQuaternion(Q, Linear3x3, InverseLinear3x3, Control > 0 ? Q - 4 : 0);
        }
        SetCurveKnotsAndControls(Curve, Values.Count, 4, Values.Knots, Values.Controls);
        return;
    }
    // A signed permutation of the vector part, found by turning one test
    // quaternion per axis.
    int32 Permutation[4] = {0, 1, 2, 3};
    real32 Scales[4] = {1, 1, 1, 1};
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        real32 Test[4] = {0, 0, 0, 0.6f};
        Test[Axis] = 0.8f;
        ConjugateQuaternion(Test, Linear3x3, InverseLinear3x3, 0);
        if (Test[3] < 0.0f) {
            for (real32 &Component : Test) Component = -Component;
        }
        for (int32 Place = 0; Place < 3; ++Place) {
            if (std::fabs(Test[Place]) > 0.8f - 0.05f) {
                Permutation[Place] = Axis;
                Scales[Place] = Test[Place] < 0.0f ? -1.0f : 1.0f;
            }
        }
    }
    real32 const Zero[4] = {0, 0, 0, 0};
    CurveTransformSamples(Curve, 4, Scales, Zero, Permutation);
}

void TransformCurve9(real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                     real32 AffineTolerance, real32 LinearTolerance, curve2 &Curve)
{
    if (!CurveCanBeTransformed(Curve, 9)) return;
    if (NeedsRefit(Linear3x3, InverseLinear3x3, LinearTolerance, 0, 0)) {
        curve_values Values;
        real32 const Identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        if (!Values.Extract(Curve, 9, Identity)) return;
        for (int32 Control = 0; Control < Values.Count; ++Control) {
            real32 *Matrix = Values.Controls + Control * 9;
            Conjugate3x3(Linear3x3, Matrix, InverseLinear3x3, Matrix);
        }
        SetCurveKnotsAndControls(Curve, Values.Count, 9, Values.Knots, Values.Controls);
        return;
    }
    int32 Permutation[9];
    real32 Scales[9];
    for (int32 Component = 0; Component < 9; ++Component) {
        Permutation[Component] = Component;
        Scales[Component] = 1.0f;
    }
    for (int32 Component = 0; Component < 9; ++Component) {
        real32 Unit[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
        Unit[Component] = 1.0f;
        Conjugate3x3(Linear3x3, Unit, InverseLinear3x3, Unit);
        for (int32 Place = 0; Place < 9; ++Place) {
            if (std::fabs(Unit[Place]) > LinearTolerance) {
                Permutation[Place] = Component;
                Scales[Place] = Unit[Place] < 0.0f ? -1.0f : 1.0f;
            }
        }
    }
    real32 const Zero[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    CurveTransformSamples(Curve, 9, Scales, Zero, Permutation);
}

void TransformTrackGroup(track_group &Group, real32 const *Affine3, real32 const *Linear3x3,
                         real32 const *InverseLinear3x3, real32 AffineTolerance, real32 LinearTolerance)
{
    // Curves of a track group hold motion relative to the group: no offset.
    real32 const Zero[3] = {0, 0, 0};
    for (int32 Index = 0; Index < Group.TransformTrackCount; ++Index) {
        transform_track &Track = Group.TransformTracks[Index];
        if (!CurveIsIdentity(Track.PositionCurve))
            TransformCurve3(Zero, Linear3x3, 1.0f, LinearTolerance, Track.PositionCurve);
        if (!CurveIsIdentity(Track.OrientationCurve))
            TransformCurve4(Zero, Linear3x3, InverseLinear3x3, 1.0f, LinearTolerance, Track.OrientationCurve);
        if (!CurveIsIdentity(Track.ScaleShearCurve))
            TransformCurve9(Zero, Linear3x3, InverseLinear3x3, 1.0f, LinearTolerance, Track.ScaleShearCurve);
    }
    Apply3x3(Linear3x3, Group.LoopTranslation, Group.LoopTranslation);
    if (periodic_loop *Loop = Group.PeriodicLoop) {
        Apply3x3(Linear3x3, Loop->BasisX, Loop->BasisX);
        Apply3x3(Linear3x3, Loop->BasisY, Loop->BasisY);
        Apply3x3(Linear3x3, Loop->Axis, Loop->Axis);
        Loop->dZ *= NormalizeVector3(Loop->Axis);
        Loop->Radius *= NormalizeVector3(Loop->BasisX);
        NormalizeVector3(Loop->BasisY);
    }
    TransformTransform(Group.InitialPlacement, Affine3, Linear3x3, InverseLinear3x3);
}

void TransformFile(file_info &FileInfo, real32 const *Affine3, real32 const *Linear3x3, real32 const *InverseLinear3x3,
                   real32 AffineTolerance, real32 LinearTolerance, uint32 Flags)
{
    // Nothing moves under the identity; only the vectors are made unit
    // length, which keeps every other byte as it was.
    bool const Identity = IsIdentityConversion(Affine3, Linear3x3);
    if (!Identity) {
        for (int32 Index = 0; Index < FileInfo.SkeletonCount; ++Index) {
            if (FileInfo.Skeletons[Index]) {
                TransformSkeleton(*FileInfo.Skeletons[Index], Affine3, Linear3x3, InverseLinear3x3, AffineTolerance,
                                  LinearTolerance, Flags);
            }
        }
    }
    for (int32 Index = 0; Index < FileInfo.MeshCount; ++Index) {
        if (FileInfo.Meshes[Index]) {
            TransformMesh(*FileInfo.Meshes[Index], Affine3, Linear3x3, InverseLinear3x3, AffineTolerance,
                          LinearTolerance, Flags);
        }
    }
    if (Identity) return;
    for (int32 Index = 0; Index < FileInfo.ModelCount; ++Index) {
        if (FileInfo.Models[Index]) TransformModel(*FileInfo.Models[Index], Affine3, Linear3x3, InverseLinear3x3);
    }
    for (int32 Index = 0; Index < FileInfo.TrackGroupCount; ++Index) {
        if (FileInfo.TrackGroups[Index]) {
            TransformTrackGroup(*FileInfo.TrackGroups[Index], Affine3, Linear3x3, InverseLinear3x3, AffineTolerance,
                                LinearTolerance);
        }
    }
}

bool NeedsRefit(real32 const *Linear, real32 const *Inverse, real32 Tolerance, int32 *Permutation, real32 *Scales)
{
    bool Refit = false;
    if (Inverse) {
        real32 Product[9];
        Multiply3x3(Linear, Inverse, Product);
        for (int32 Index = 0; Index < 9; ++Index) {
            real32 Difference = Product[Index] - (Index % 4 == 0 ? 1.0f : 0.0f);
            if (Difference * Difference > Tolerance * Tolerance) Refit = true;
        }
    }
    int32 Chosen[3];
    real32 Entries[3];
    for (int32 Row = 0; Row < 3; ++Row) {
        int32 Best = 0;
        for (int32 Column = 1; Column < 3; ++Column) {
            if (std::fabs(Linear[Row * 3 + Column]) > std::fabs(Linear[Row * 3 + Best])) Best = Column;
        }
        Chosen[Row] = Best;
        Entries[Row] = Linear[Row * 3 + Best];
        for (int32 Column = 0; Column < 3; ++Column) {
            if (Column != Best && std::fabs(Linear[Row * 3 + Column]) > Tolerance) Refit = true;
        }
    }
    if (Chosen[0] == Chosen[1] || Chosen[1] == Chosen[2] || Chosen[0] == Chosen[2]) Refit = true;
    for (int32 A = 0; A < 3; ++A) {
        for (int32 B = A + 1; B < 3; ++B) {
            if (std::fabs(std::fabs(Entries[A]) - std::fabs(Entries[B])) > Tolerance) Refit = true;
        }
    }
    if (Permutation) memcpy(Permutation, Chosen, sizeof(Chosen));
    if (Scales) memcpy(Scales, Entries, sizeof(Entries));
    return Refit;
}
