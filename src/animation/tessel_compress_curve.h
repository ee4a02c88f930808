// Curve compression: one stream of equally spaced samples becomes the
// smallest curve, among the formats a caller allows, that reproduces it
// within a tolerance.
#pragma once

#include "animation/tessel_bspline_solver.h"
#include "animation/tessel_curve.h"

enum solver_flags : uint32
{
    SolverNormalized = 0x01,     // unit quaternions: 1 - dot metric, normalised evaluation
    SolverAllowJumps = 0x02,     // samples are tested against JumpThreshold
    SolverAllowCreases = 0x04,   // samples are tested against CreaseThreshold
    SolverSeedStartKnots = 0x10, // Degree - 1 knots right after the start, kept by elimination
    SolverPinEndpoints = 0x20,   // first and last control point sit on the first and last sample
    SolverEliminateKnots = 0x40, // try removing knots after the fit
};

#pragma pack(push, 4)
struct compress_curve_parameters
{
    int32 Degree;
    uint8 AllowReduction;
    uint8 AllowReductionOnMissedTolerance;
    real32 ErrorTolerance;
    real32 JumpThreshold;
    real32 CreaseThreshold;
    data_type_definition **CompressionTypes;
    int32 CompressionTypeCount;
    data_type_definition *ConstantType;
    data_type_definition *IdentityType;
    real32 const *IdentityVector;
};

struct curve_error_report
{
    int32 KnotIndex;   // of the worst sample; -1 when no sample had an error
    int32 SampleIndex; // -1 likewise
    real32 MaxSquaredError;
    real32 SumSquaredError;
};
#pragma pack(pop)

// A curve of its own allocation (FreeCurve) or null. AchievedTolerance,
// when given, receives whether the plain float fit met the tolerance.
curve2 *CompressCurve(bspline_solver &Solver, uint32 SolverFlags, compress_curve_parameters const &Params,
                      real32 const *Samples, int32 Dimension, int32 SampleCount, real32 TimeStep,
                      uint8 *AchievedTolerance);

bool CompressionParamsAreValid(compress_curve_parameters const &Params, uint32 SolverFlags);

// The fit loop for one format; SizeLimit 0 means none.
curve2 *FitBSpline(bspline_solver &Solver, uint32 SolverFlags, int32 Degree, real32 ErrorTolerance,
                   real32 JumpThreshold, real32 CreaseThreshold, real32 const *Samples, int32 Dimension,
                   int32 SampleCount, real32 TimeStep, data_type_definition *CurveFormat, int32 SizeLimit,
                   uint8 *AchievedTolerance, int32 *ResultingSize);

// Initial knots in sample units: start seeds, creases and jumps. Returns the
// new knot count (Knots holds {0, SampleCount - 1} on entry).
int32 PlaceInitialKnots(uint32 SolverFlags, int32 Degree, real32 JumpThreshold, real32 CreaseThreshold, int32 KnotCount,
                        real32 *Knots, int32 MaxKnots, real32 const *Samples, int32 Dimension, int32 SampleCount);

// One refinement pass: every span holding an error above the tolerance is
// split at its middle. Returns true when a knot was added.
bool RefineKnots(uint32 SolverFlags, int32 &KnotCount, real32 *NewKnots, int32 MaxKnots, curve2 const &Curve,
                 real32 *Knots, real32 ErrorTolerance, int32 Dimension, int32 SampleCount, real32 const *Samples,
                 bool &Failed, bspline_solver *Scratch = 0);

// Knot removal while the error stays within the tolerance; null if nothing
// was removed.
curve2 *EliminateKnots(bspline_solver &Solver, uint32 SolverFlags, int32 Degree, real32 ErrorTolerance,
                       curve2 const &Curve, real32 const *Samples, int32 Dimension, int32 SampleCount);

// Whether Count values of Dimension floats are all within Tolerance of the
// first (then Degree 0 and KnotCount 1) or of IdentityVector (Degree 0,
// KnotCount 0). Degree and KnotCount stay as they are otherwise.
bool CurveIsReducible(uint32 SolverFlags, int32 Dimension, int32 Count, real32 const *Values,
                      real32 const *IdentityVector, real32 Tolerance, int32 &Degree, int32 &KnotCount);

// The error of Curve at every sample; sample j sits at j * Duration /
// (SampleCount - 1). With a solver, a quantised curve is decoded once into
// its scratch buffer instead of at every sample (the figures are the same).
void MeasureCurveError(uint32 SolverFlags, int32 Degree, int32 Dimension, real32 Duration, curve2 const &Curve,
                       int32 SampleCount, real32 const *Samples, real32 const *IdentityVector,
                       curve_error_report *Result, bspline_solver *Scratch = 0);
