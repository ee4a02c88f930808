// Curves: the nineteen curve data formats behind a curve2, the table of
// operations each format provides, the curve_builder through which every
// curve is made, and evaluation of a curve at a time.
#pragma once

#include "foundation/tessel_memory.h"
#include "format/tessel_schema.h"

// Rows of the format table; the header's Format byte holds one of these.
enum curve_format
{
    CurveFormat_DaKeyframes32f = 0,
    CurveFormat_DaK32fC32f = 1,
    CurveFormat_DaIdentity = 2,
    CurveFormat_DaConstant32f = 3,
    CurveFormat_D3Constant32f = 4,
    CurveFormat_D4Constant32f = 5,
    CurveFormat_DaK16uC16u = 6,
    CurveFormat_DaK8uC8u = 7,
    CurveFormat_D4nK16uC15u = 8,
    CurveFormat_D4nK8uC7u = 9,
    CurveFormat_D3K16uC16u = 10,
    CurveFormat_D3K8uC8u = 11,
    CurveFormat_D9I1K16uC16u = 12,
    CurveFormat_D9I3K16uC16u = 13,
    CurveFormat_D9I1K8uC8u = 14,
    CurveFormat_D9I3K8uC8u = 15,
    CurveFormat_D3I1K32fC32f = 16,
    CurveFormat_D3I1K16uC16u = 17,
    CurveFormat_D3I1K8uC8u = 18,
};

// Largest dimension that evaluation handles with its stack scratch.
enum
{
    CurveMaxDimension = 64,
    CurveMaxDegree = 3
};

// One row of the dispatch table. Record is the curve's data record.
struct curve_format_operations
{
    data_type_definition *Type;
    char const *Name;
    int32 (*GetDimension)(void const *Record);
    int32 (*GetKnotCount)(void const *Record);
    int32 (*FindKnot)(void const *Record, real32 t);
    int32 (*FindCloseKnot)(void const *Record, real32 t, int32 Hint);
    void (*ExtractKnotValues)(void const *Record, int32 First, int32 Count, real32 *Knots, real32 *Controls,
                              real32 const *IdentityVector);
    void (*PreprocessSamples)(int32 Dimension, int32 SampleCount, real32 *Samples);
    void (*NoteSamples)(void *Record, int32 SampleCount, int32 Dimension, real32 const *Samples);
    void (*SetAllKnotValues)(void *Record, int32 KnotCount, int32 Dimension, real32 const *Knots,
                             real32 const *Controls);
    // Declares the record (at Owner + MemberOffset, or into *RecordPointer
    // when that is given) and its arrays.
    void (*AggrCurveData)(aggr_allocator &Allocator, int32 Dimension, int32 KnotCount, void **RecordPointer,
                          intaddrx OwnerOffset, intaddrx MemberOffset);
    void (*CopyCurve)(void *Record, void const *Source);
    void (*TransformSamples)(void *Record, int32 Dimension, real32 const *Scales, real32 const *Offsets,
                             int32 const *Permutation);
};

extern curve_format_operations const CurveFormatOperations[CurveFormatCount];

// Row of a format type, compared by structure; -1 if none matches.
int32 CurveFormatFromType(data_type_definition const *Type);

// Accessors. A curve with a missing record or an unknown format answers 0.
int32 CurveGetFormat(curve2 const &Curve);
int32 CurveGetDegree(curve2 const &Curve);
int32 CurveGetDimension(curve2 const &Curve);
int32 CurveGetKnotCount(curve2 const &Curve);
bool CurveIsIdentity(curve2 const &Curve);
bool CurveIsConstantOrIdentity(curve2 const &Curve);
bool CurveIsKeyframed(curve2 const &Curve);

// Index of the first knot above t; 0 below the first knot, n - 1 at or past
// the last one.
int32 CurveFindKnot(curve2 const &Curve, real32 t);
// The same answer; Hint (a nearby search's answer) is used when the knots
// around it confirm it.
int32 CurveFindCloseKnot(curve2 const &Curve, real32 t, int32 Hint);
// Dequantised knots and control points First .. First + Count - 1; either
// output may be null.
void CurveExtractKnotValues(curve2 const &Curve, int32 First, int32 Count, real32 *Knots, real32 *Controls,
                            real32 const *IdentityVector);
// new[i] = Scales[i] * old[Permutation[i]] + Offsets[i] on the stored data.
void CurveTransformSamples(curve2 &Curve, int32 Dimension, real32 const *Scales, real32 const *Offsets,
                           int32 const *Permutation);
// Rewrites knots and controls of an existing curve of the same shape.
void SetCurveKnotsAndControls(curve2 &Curve, int32 KnotCount, int32 Dimension, real32 const *Knots,
                              real32 const *Controls);

// ---------------------------------------------------------------------------
// The builder.

#pragma pack(push, 4)
struct curve_builder
{
    int32 FreeBuilderOnEnd;
    data_type_definition *FormatType;
    int32 FormatIndex;
    int32 Degree;
    int32 Dimension;
    int32 KnotCount;
    real32 const *KnotArray;
    real32 const *ControlArray;
    curve2 const *SourceCurve;
    int32 SampleCount;
    int32 SampleDimension;
    real32 const *TransformedSamples;
    real32 const *SourceSamples;
};
#pragma pack(pop)

void BeginCurveInPlace(curve_builder &Builder, data_type_definition *FormatType, int32 Degree, int32 Dimension,
                       int32 KnotCount);
curve_builder *BeginCurve(data_type_definition *FormatType, int32 Degree, int32 Dimension, int32 KnotCount);
void BeginCurveCopyInPlace(curve_builder &Builder, curve2 const &Source);
curve_builder *BeginCurveCopy(curve2 const &Source);
void PushCurveKnotArray(curve_builder &Builder, real32 const *KnotArray);
void PushCurveControlArray(curve_builder &Builder, real32 const *ControlArray);
void PushCurveSampleArrays(curve_builder &Builder, int32 SampleCount, int32 Dimension, real32 const *TransformedSamples,
                           real32 const *SourceSamples);
int32 GetResultingCurveSize(curve_builder const &Builder);
int32 GetResultingCurveDataSize(curve_builder const &Builder);
curve2 *EndCurve(curve_builder *Builder);
curve2 *EndCurveInPlace(curve_builder *Builder, curve2 *Curve, void *Memory);
void AbortCurveBuilder(curve_builder *Builder);

// Bytes of a copy of Curve (curve2 plus data); 0 for a broken curve.
int32 GetCurveSize(curve2 const &Curve);
// A new single-allocation copy.
curve2 *CopyCurve(curve2 const &Source);
void FreeCurve(curve2 *Curve);

// ---------------------------------------------------------------------------
// Evaluation.

// Basis weights of the Degree + 1 control points C[i - d] .. C[i] for t in
// the span that ends at *SpanEnd = K[i]; K[i - d] .. K[i + d - 1] are read.
void ComputeBSplineBasis(int32 Degree, real32 const *SpanEnd, real32 t, real32 *Slots);

// Value at t of a range of 2 d knots K[i - d] .. K[i + d - 1] (Knots points
// at K[i - d]) and d + 1 control points from C[i - d] on (Controls).
void SampleBSpline(int32 Degree, int32 Dimension, bool Normalize, real32 const *Knots, real32 const *Controls, real32 t,
                   real32 *Result);
// Value of a whole curve at t; KnotIndex comes from CurveFindKnot.
// Duration maps time to frames in keyframed curves.
void SampleCurve(int32 Dimension, bool Normalize, curve2 const &Curve, real32 Duration, int32 KnotIndex, real32 t,
                 real32 *Result, real32 const *IdentityVector);
// Finds the knot and samples; t is clamped to the curve's knot range.
void EvaluateCurve(int32 Dimension, bool Normalize, curve2 const &Curve, real32 Duration, real32 t, real32 *Result,
                   real32 const *IdentityVector);
