// Curve compression of any samples and parameters: NaN, infinities, huge
// values, no or one sample, negative tolerances, empty format lists. The
// answer is null or a valid curve, and nothing crashes or hangs.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "animation/tessel_compress_curve.h"

namespace {

int32 const MaxSamples = 256;
int32 const MaxDimension = 16;

struct byte_reader
{
    uint8_t const *Data;
    size_t Size;
    size_t At;
    uint8 Byte() { return At < Size ? Data[At++] : 0; }
    real32 Real()
    {
        uint32 Bits = 0;
        for (int32 i = 0; i < 4; ++i) Bits |= (uint32)Byte() << (8 * i);
        real32 Value;
        memcpy(&Value, &Bits, 4);
        return Value;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    static bspline_solver *Solver = AllocateBSplineSolver(3, MaxSamples, MaxDimension);
    if (!Solver) abort();
    byte_reader In = {Data, Size, 0};
    int32 Dimension = 1 + In.Byte() % MaxDimension;
    compress_curve_parameters Params = {};
    Params.Degree = (int32)(In.Byte() % 6) - 1; // -1 to 4; only 0 to 3 are valid
    uint32 Flags = In.Byte();
    uint8 Switches = In.Byte();
    Params.AllowReduction = Switches & 1;
    Params.AllowReductionOnMissedTolerance = (Switches >> 1) & 1;
    Params.ErrorTolerance = In.Real();
    Params.JumpThreshold = In.Real();
    Params.CreaseThreshold = In.Real();
    data_type_definition *Types[8];
    Params.CompressionTypeCount = In.Byte() % 9;
    for (int32 i = 0; i < Params.CompressionTypeCount; ++i) Types[i] = CurveFormatTypes[In.Byte() % CurveFormatCount];
    Params.CompressionTypes = Types;
    Params.ConstantType = CurveFormatTypes[In.Byte() % CurveFormatCount];
    real32 Identity[MaxDimension] = {};
    if (Switches & 4) {
        Params.IdentityType = CurveDataDaIdentityType;
        Params.IdentityVector = Identity;
    }
    int32 SampleCount = In.Byte() % (MaxSamples + 1);
    real32 TimeStep = (Switches & 8) ? In.Real() : 1.0f / 60.0f;
    // The rest are the samples, repeated when too short.
    size_t const Start = In.At;
    real32 *Samples = (real32 *)malloc(sizeof(real32) * (size_t)(SampleCount * Dimension + 1));
    for (int32 i = 0; i < SampleCount * Dimension; ++i) {
        if (In.At + 4 > Size) In.At = Start;
        Samples[i] = In.At + 4 <= Size ? In.Real() : (real32)i;
    }
    uint8 Achieved = 0;
    curve2 *Curve = CompressCurve(*Solver, Flags, Params, Samples, Dimension, SampleCount, TimeStep, &Achieved);
    if (Curve) {
        if (CurveGetFormat(*Curve) < 0 || GetCurveSize(*Curve) <= 0) abort();
        real32 Value[MaxDimension];
        for (int32 Step = 0; Step < 8; ++Step) {
            EvaluateCurve(Dimension, (Flags & SolverNormalized) != 0, *Curve, 1.0f, (real32)Step * 0.25f, Value,
                          Identity);
        }
        curve2 *Copy = CopyCurve(*Curve);
        if (!Copy || GetCurveSize(*Copy) != GetCurveSize(*Curve)) abort();
        FreeCurve(Copy);
        FreeCurve(Curve);
    }
    free(Samples);
    return 0;
}
