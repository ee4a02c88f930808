// The curve formats: quantisation and dequantisation of each, the dispatch
// table, the curve_builder and evaluation.
#include "animation/tessel_curve.h"

#include "foundation/tessel_log.h"

#include <cmath>
#include <cstring>

namespace {

// ---------------------------------------------------------------------------
// Quantisation helpers.

template <typename T>
struct word_limits;
template <>
struct word_limits<uint8>
{
    static constexpr uint32 Max = 255;
    static constexpr uint32 QuatMax = 127;
    static constexpr uint32 TopBit = 0x80;
};
template <>
struct word_limits<uint16>
{
    static constexpr uint32 Max = 65535;
    static constexpr uint32 QuatMax = 32767;
    static constexpr uint32 TopBit = 0x8000;
};

// truncate(x + 0.5) clamped to [0, Max]; NaN gives 0.
inline uint32 QuantizeReal(real32 x, uint32 Max)
{
    if (!(x > 0.0f)) return 0;
    if (!(x < (real32)Max)) return Max;
    uint32 Raw = (uint32)(x + 0.5f);
    return Raw > Max ? Max : Raw;
}

inline real32 RealFromBits(uint32 Bits)
{
    real32 Value;
    memcpy(&Value, &Bits, sizeof(Value));
    return Value;
}

inline uint32 BitsFromReal(real32 Value)
{
    uint32 Bits;
    memcpy(&Bits, &Value, sizeof(Bits));
    return Bits;
}

// A knot scale that can't be used (the last knot is 0, or the data is not
// finite) is replaced by 1, in the encoder and the decoder alike.
inline real32 UsableScale(real32 Scale)
{
    return (Scale > 0.0f && Scale < INFINITY) ? Scale : 1.0f;
}

inline real32 KnotScaleFromTrunc(uint16 Trunc)
{
    return UsableScale(RealFromBits((uint32)Trunc << 16));
}

inline uint16 TruncatedKnotScale(real32 const *Knots, int32 KnotCount, uint32 Max)
{
    real32 Last = KnotCount > 0 ? Knots[KnotCount - 1] : 0.0f;
    real32 Scale = UsableScale((real32)Max / Last);
    return (uint16)(BitsFromReal(Scale) >> 16);
}

inline real32 ControlScale(real32 Min, real32 Max, uint32 Levels)
{
    real32 Scale = (Max - Min) / (real32)Levels;
    return Scale == 0.0f ? 1.0f : Scale;
}

// Index of the first stored knot above Raw, or Count - 1.
template <typename T>
int32 FirstStoredKnotAbove(T const *Knots, int32 Count, uint32 Raw)
{
    int32 Low = 0;
    int32 High = Count;
    while (Low < High) {
        int32 Middle = (Low + High) >> 1;
        if ((uint32)Knots[Middle] > Raw) {
            High = Middle;
        } else {
            Low = Middle + 1;
        }
    }
    return Low < Count ? Low : Count - 1;
}

// A hint (the answer of a nearby search) is taken only when the knots on
// both sides confirm it, so it never changes the result.
int32 FirstRealKnotAbove(real32 const *Knots, int32 Count, real32 t, int32 Hint)
{
    if (Count <= 0) return 0;
    if (!(t >= Knots[0])) return 0;
    if (Hint > 0 && Hint < Count && Knots[Hint - 1] <= t && Knots[Hint] > t) return Hint;
    int32 Low = 0;
    int32 High = Count;
    while (Low < High) {
        int32 Middle = (Low + High) >> 1;
        if (Knots[Middle] > t) {
            High = Middle;
        } else {
            Low = Middle + 1;
        }
    }
    return Low < Count ? Low : Count - 1;
}

template <typename T>
int32 FindQuantizedKnot(T const *Knots, int32 Count, real32 Scale, real32 t, int32 Hint)
{
    if (Count <= 0) return 0;
    real32 x = t * Scale;
    if (!(x >= (real32)Knots[0])) return 0;
    uint32 Raw = QuantizeReal(x, 0xFFFFFFFFu >> 1);
    if (Hint > 0 && Hint < Count && (uint32)Knots[Hint - 1] <= Raw && (uint32)Knots[Hint] > Raw) return Hint;
    return FirstStoredKnotAbove(Knots, Count, Raw);
}

// ---------------------------------------------------------------------------
// The quaternion scale/offset table.

real32 const QuaternionTable[16][2] = {
    {1.4142135f, -0.7071068f},  {0.7071068f, -0.3535534f}, {0.3535534f, -0.5303301f}, {0.3535534f, -0.1767767f},
    {0.3535534f, 0.1767767f},   {0.1767767f, -0.1767767f}, {0.1767767f, -0.0883883f}, {0.1767767f, 0.0f},
    {-1.4142135f, 0.7071068f},  {-0.7071068f, 0.3535534f}, {-0.3535534f, 0.5303301f}, {-0.3535534f, 0.1767767f},
    {-0.3535534f, -0.1767767f}, {-0.1767767f, 0.1767767f}, {-0.1767767f, 0.0883883f}, {-0.1767767f, -0.0f},
};

template <typename T>
real32 QuaternionStep();
template <>
real32 QuaternionStep<uint16>()
{
    return 3.051851e-5f;
}
template <>
real32 QuaternionStep<uint8>()
{
    return 1.0f / 127.0f;
}

template <typename T>
void DecodeQuaternion(T const *Triple, uint16 Entries, real32 *Result)
{
    uint32 const Top = word_limits<T>::TopBit;
    int32 Largest = ((Triple[1] & Top) ? 2 : 0) | ((Triple[2] & Top) ? 1 : 0);
    real32 Sum = 0.0f;
    for (int32 Word = 0; Word < 3; ++Word) {
        int32 Component = (Largest + 1 + Word) & 3;
        int32 Entry = (Entries >> (4 * Component)) & 15;
        real32 Value = QuaternionTable[Entry][1] +
                       QuaternionTable[Entry][0] * QuaternionStep<T>() * (real32)(Triple[Word] & (Top - 1));
        Result[Component] = Value;
        Sum += Value * Value;
    }
    real32 Rest = 1.0f - Sum;
    real32 Dropped = Rest > 0.0f ? sqrtf(Rest) : 0.0f;
    Result[Largest] = (Triple[0] & Top) ? -Dropped : Dropped;
}

// ---------------------------------------------------------------------------
// Per-format facts.

enum format_family
{
    Family_Keyframes,
    Family_Float,
    Family_Identity,
    Family_ConstantArray,
    Family_ConstantInline,
    Family_DaQuant,
    Family_D4n,
    Family_D3Quant,
    Family_D9I1,
    Family_D9I3,
    Family_D3I1,
};

struct format_facts
{
    format_family Family;
    int32 FixedDimension; // 0: from the data
    int32 StoredWidth;    // values per knot after the knots, integer rows
};

format_facts const FormatFacts[CurveFormatCount] = {
    {Family_Keyframes, 0, 0},     {Family_Float, 0, 0},          {Family_Identity, 0, 0},
    {Family_ConstantArray, 0, 0}, {Family_ConstantInline, 3, 0}, {Family_ConstantInline, 4, 0},
    {Family_DaQuant, 0, 0},       {Family_DaQuant, 0, 0},        {Family_D4n, 4, 3},
    {Family_D4n, 4, 3},           {Family_D3Quant, 3, 3},        {Family_D3Quant, 3, 3},
    {Family_D9I1, 9, 1},          {Family_D9I3, 9, 3},           {Family_D9I1, 9, 1},
    {Family_D9I3, 9, 3},          {Family_D3I1, 3, 1},           {Family_D3I1, 3, 1},
    {Family_D3I1, 3, 1},
};

// Record types by row.
template <int Row>
struct row_record;
template <>
struct row_record<0>
{
    typedef curve_data_da_keyframes32f type;
};
template <>
struct row_record<1>
{
    typedef curve_data_da_k32f_c32f type;
};
template <>
struct row_record<2>
{
    typedef curve_data_da_identity type;
};
template <>
struct row_record<3>
{
    typedef curve_data_da_constant32f type;
};
template <>
struct row_record<4>
{
    typedef curve_data_d3_constant32f type;
};
template <>
struct row_record<5>
{
    typedef curve_data_d4_constant32f type;
};
template <>
struct row_record<6>
{
    typedef curve_data_da_k16u_c16u type;
    typedef uint16 word;
};
template <>
struct row_record<7>
{
    typedef curve_data_da_k8u_c8u type;
    typedef uint8 word;
};
template <>
struct row_record<8>
{
    typedef curve_data_d4n_k16u_c15u type;
    typedef uint16 word;
};
template <>
struct row_record<9>
{
    typedef curve_data_d4n_k8u_c7u type;
    typedef uint8 word;
};
template <>
struct row_record<10>
{
    typedef curve_data_d3_k16u_c16u type;
    typedef uint16 word;
};
template <>
struct row_record<11>
{
    typedef curve_data_d3_k8u_c8u type;
    typedef uint8 word;
};
template <>
struct row_record<12>
{
    typedef curve_data_d9i1_k16u_c16u type;
    typedef uint16 word;
};
template <>
struct row_record<13>
{
    typedef curve_data_d9i3_k16u_c16u type;
    typedef uint16 word;
};
template <>
struct row_record<14>
{
    typedef curve_data_d9i1_k8u_c8u type;
    typedef uint8 word;
};
template <>
struct row_record<15>
{
    typedef curve_data_d9i3_k8u_c8u type;
    typedef uint8 word;
};
template <>
struct row_record<16>
{
    typedef curve_data_d3i1_k32f_c32f type;
    typedef real32 word;
};
template <>
struct row_record<17>
{
    typedef curve_data_d3i1_k16u_c16u type;
    typedef uint16 word;
};
template <>
struct row_record<18>
{
    typedef curve_data_d3i1_k8u_c8u type;
    typedef uint8 word;
};

template <int Row>
constexpr format_family FamilyOf()
{
    return Row == 0                 ? Family_Keyframes
           : Row == 1               ? Family_Float
           : Row == 2               ? Family_Identity
           : Row == 3               ? Family_ConstantArray
           : Row <= 5               ? Family_ConstantInline
           : Row <= 7               ? Family_DaQuant
           : Row <= 9               ? Family_D4n
           : Row <= 11              ? Family_D3Quant
           : Row == 12 || Row == 14 ? Family_D9I1
           : Row == 13 || Row == 15 ? Family_D9I3
                                    : Family_D3I1;
}

template <int Row>
constexpr int32 FixedDimensionOf()
{
    return Row == 4                                ? 3
           : Row == 5                              ? 4
           : (Row == 8 || Row == 9)                ? 4
           : (Row == 10 || Row == 11 || Row >= 16) ? 3
           : (Row >= 12 && Row <= 15)              ? 9
                                                   : 0;
}

template <int Row>
constexpr int32 StoredWidthOf()
{
    return (FamilyOf<Row>() == Family_D9I1 || FamilyOf<Row>() == Family_D3I1) ? 1 : 3;
}

// Integer rows keep their knots and values in one array.
template <int Row>
int32 IntegerKnotCount(void const *Record)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    int32 Count = R.KnotControlCount;
    if constexpr (FamilyOf<Row>() == Family_DaQuant) {
        int32 Dimension = R.ControlScaleOffsetCount / 2;
        return Count / (Dimension + 1);
    } else {
        return Count / (StoredWidthOf<Row>() + 1);
    }
}

// ---------------------------------------------------------------------------
// Operations, one instance per row.

template <int Row>
int32 OpGetDimension(void const *Record)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    if constexpr (Family == Family_Keyframes || Family == Family_Identity) {
        return R.Dimension;
    } else if constexpr (Family == Family_Float) {
        return R.KnotCount > 0 ? R.ControlCount / R.KnotCount : 0;
    } else if constexpr (Family == Family_ConstantArray) {
        return R.ControlCount;
    } else if constexpr (Family == Family_DaQuant) {
        return R.ControlScaleOffsetCount / 2;
    } else {
        return FixedDimensionOf<Row>();
    }
}

template <int Row>
int32 OpGetKnotCount(void const *Record)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    if constexpr (Family == Family_Keyframes) {
        return R.Dimension > 0 ? R.ControlCount / R.Dimension : 0;
    } else if constexpr (Family == Family_Float) {
        return R.KnotCount;
    } else if constexpr (Family == Family_Identity) {
        return 0;
    } else if constexpr (Family == Family_ConstantArray || Family == Family_ConstantInline) {
        return 1;
    } else {
        return IntegerKnotCount<Row>(Record);
    }
}

template <int Row>
int32 OpFindCloseKnot(void const *Record, real32 t, int32 Hint)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    int32 Count = OpGetKnotCount<Row>(Record);
    if constexpr (Family == Family_Keyframes) {
        if (Count <= 0 || !(t >= 0.0f)) return 0;
        if (!(t < (real32)(Count - 1))) return Count - 1;
        return (int32)t + 1;
    } else if constexpr (Family == Family_Float) {
        return FirstRealKnotAbove(R.Knots, Count, t, Hint);
    } else if constexpr (Family == Family_Identity || Family == Family_ConstantArray ||
                         Family == Family_ConstantInline) {
        return 0;
    } else if constexpr (Row == 16) {
        return FirstRealKnotAbove(R.KnotsControls, Count, t, Hint);
    } else if constexpr (Family == Family_D4n) {
        return FindQuantizedKnot(R.KnotsControls, Count, UsableScale(R.OneOverKnotScale), t, Hint);
    } else {
        return FindQuantizedKnot(R.KnotsControls, Count, KnotScaleFromTrunc(R.OneOverKnotScaleTrunc), t, Hint);
    }
}

template <int Row>
int32 OpFindKnot(void const *Record, real32 t)
{
    return OpFindCloseKnot<Row>(Record, t, -1);
}

template <int Row>
real32 KnotDecodeFactor(void const *Record)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    if constexpr (Row == 16) {
        return 1.0f;
    } else if constexpr (FamilyOf<Row>() == Family_D4n) {
        return 1.0f / UsableScale(R.OneOverKnotScale);
    } else {
        return 1.0f / KnotScaleFromTrunc(R.OneOverKnotScaleTrunc);
    }
}

template <int Row>
void OpExtractKnotValues(void const *Record, int32 First, int32 Count, real32 *Knots, real32 *Controls,
                         real32 const *IdentityVector)
{
    typedef typename row_record<Row>::type record;
    record const &R = *(record const *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    int32 const Dimension = OpGetDimension<Row>(Record);
    if constexpr (Family == Family_Keyframes) {
        for (int32 Index = 0; Index < Count; ++Index) {
            if (Knots) Knots[Index] = (real32)(First + Index);
            if (Controls)
                memcpy(Controls + Index * Dimension, R.Controls + (First + Index) * Dimension,
                       sizeof(real32) * Dimension);
        }
    } else if constexpr (Family == Family_Float) {
        if (Knots) memcpy(Knots, R.Knots + First, sizeof(real32) * Count);
        if (Controls) memcpy(Controls, R.Controls + First * Dimension, sizeof(real32) * Count * Dimension);
    } else if constexpr (Family == Family_Identity) {
        for (int32 Index = 0; Index < Count; ++Index) {
            if (Knots) Knots[Index] = 0.0f;
            if (Controls) {
                for (int32 c = 0; c < Dimension; ++c) {
                    Controls[Index * Dimension + c] = IdentityVector ? IdentityVector[c] : 0.0f;
                }
            }
        }
    } else if constexpr (Family == Family_ConstantArray || Family == Family_ConstantInline) {
        for (int32 Index = 0; Index < Count; ++Index) {
            if (Knots) Knots[Index] = 0.0f;
            if (Controls) memcpy(Controls + Index * Dimension, &R.Controls[0], sizeof(real32) * Dimension);
        }
    } else {
        typedef typename row_record<Row>::word word;
        int32 const KnotCount = OpGetKnotCount<Row>(Record);
        word const *Stored = R.KnotsControls;
        if (Knots) {
            real32 const Factor = KnotDecodeFactor<Row>(Record);
            for (int32 Index = 0; Index < Count; ++Index) {
                Knots[Index] = (Row == 16) ? (real32)Stored[First + Index] : (real32)Stored[First + Index] * Factor;
            }
        }
        if (!Controls) return;
        word const *Values = Stored + KnotCount;
        for (int32 Index = 0; Index < Count; ++Index) {
            int32 Knot = First + Index;
            real32 *Out = Controls + Index * Dimension;
            if constexpr (Family == Family_DaQuant) {
                word const *Raw = Values + Knot * Dimension;
                for (int32 c = 0; c < Dimension; ++c) {
                    Out[c] = R.ControlScaleOffsets[Dimension + c] + R.ControlScaleOffsets[c] * (real32)Raw[c];
                }
            } else if constexpr (Family == Family_D4n) {
                DecodeQuaternion(Values + Knot * 3, R.ScaleOffsetTableEntries, Out);
            } else if constexpr (Family == Family_D3Quant) {
                word const *Raw = Values + Knot * 3;
                for (int32 c = 0; c < 3; ++c) Out[c] = R.ControlOffsets[c] + R.ControlScales[c] * (real32)Raw[c];
            } else if constexpr (Family == Family_D9I1) {
                real32 Value = R.ControlOffset + R.ControlScale * (real32)Values[Knot];
                for (int32 c = 0; c < 9; ++c) Out[c] = 0.0f;
                Out[0] = Out[4] = Out[8] = Value;
            } else if constexpr (Family == Family_D9I3) {
                word const *Raw = Values + Knot * 3;
                for (int32 c = 0; c < 9; ++c) Out[c] = 0.0f;
                for (int32 c = 0; c < 3; ++c) Out[4 * c] = R.ControlOffsets[c] + R.ControlScales[c] * (real32)Raw[c];
            } else {
                real32 u = (real32)Values[Knot];
                for (int32 c = 0; c < 3; ++c) Out[c] = R.ControlOffsets[c] + R.ControlScales[c] * u;
            }
        }
    }
}

void OpPreprocessSamples(int32, int32, real32 *) {}
void OpNoteSamples(void *, int32, int32, real32 const *) {}

template <typename word>
void StoreKnots(word *Stored, int32 KnotCount, real32 const *Knots, real32 Scale)
{
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        Stored[Index] = (word)QuantizeReal(Knots[Index] * Scale, word_limits<word>::Max);
    }
}

// Min and max of component Component (of Stride values per control).
void ComponentRange(real32 const *Controls, int32 KnotCount, int32 Stride, int32 Component, real32 &Min, real32 &Max)
{
    Min = KnotCount > 0 ? Controls[Component] : 0.0f;
    Max = Min;
    for (int32 Index = 1; Index < KnotCount; ++Index) {
        real32 Value = Controls[Index * Stride + Component];
        if (Value < Min) Min = Value;
        if (Value > Max) Max = Value;
    }
}

// A control normalised (a zero one becomes the identity); returns the index
// of the component of greatest magnitude, the first one on a tie.
inline int32 NormalizedQuaternion(real32 const *Source, real32 *q)
{
    real32 Length =
        sqrtf(Source[0] * Source[0] + Source[1] * Source[1] + Source[2] * Source[2] + Source[3] * Source[3]);
    if (Length > 0.0f) {
        for (int32 c = 0; c < 4; ++c) q[c] = Source[c] / Length;
    } else {
        q[0] = q[1] = q[2] = 0.0f;
        q[3] = 1.0f;
    }
    int32 Largest = 0;
    for (int32 c = 1; c < 4; ++c) {
        if (fabsf(q[c]) > fabsf(q[Largest])) Largest = c;
    }
    return Largest;
}

template <typename word>
void EncodeQuaternions(word *Stored, int32 KnotCount, real32 const *Controls, uint16 &Entries)
{
    uint32 const Top = word_limits<word>::TopBit;
    uint32 const B = word_limits<word>::QuatMax;
    real32 Min[4] = {2.0f, 2.0f, 2.0f, 2.0f};
    real32 Max[4] = {-2.0f, -2.0f, -2.0f, -2.0f};
    // The first knots' normalised values are kept for the second pass.
    int32 const CacheCount = 1024;
    real32 Cache[CacheCount][4];
    // First pass: ranges of the components that get stored.
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        real32 Local[4];
        real32 *q = Index < CacheCount ? Cache[Index] : Local;
        int32 Largest = NormalizedQuaternion(Controls + 4 * Index, q);
        for (int32 c = 0; c < 4; ++c) {
            if (c == Largest) continue;
            if (q[c] < Min[c]) Min[c] = q[c];
            if (q[c] > Max[c]) Max[c] = q[c];
        }
    }
    real32 Scale[4];
    real32 Offset[4];
    Entries = 0;
    for (int32 c = 0; c < 4; ++c) {
        int32 Entry = 0;
        if (Min[c] == 2.0f && Max[c] == -2.0f) {
            Scale[c] = 1.0f;
            Offset[c] = 0.0f;
        } else {
            for (int32 Candidate = 7; Candidate >= 0; --Candidate) {
                real32 EntryOffset = QuaternionTable[Candidate][1];
                if (EntryOffset <= Min[c] && EntryOffset + QuaternionTable[Candidate][0] >= Max[c]) {
                    Entry = Candidate;
                    break;
                }
            }
            Scale[c] = QuaternionTable[Entry][0] * QuaternionStep<word>();
            Offset[c] = QuaternionTable[Entry][1];
        }
        Entries = (uint16)(Entries | (Entry << (4 * c)));
    }
    word *Triples = Stored + KnotCount;
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        real32 Local[4];
        real32 const *q = Local;
        int32 Largest;
        if (Index < CacheCount) {
            q = Cache[Index];
            Largest = 0;
            for (int32 c = 1; c < 4; ++c) {
                if (fabsf(q[c]) > fabsf(q[Largest])) Largest = c;
            }
        } else {
            Largest = NormalizedQuaternion(Controls + 4 * Index, Local);
        }
        word *Triple = Triples + 3 * Index;
        for (int32 Word = 0; Word < 3; ++Word) {
            int32 c = (Largest + 1 + Word) & 3;
            Triple[Word] = (word)QuantizeReal((q[c] - Offset[c]) / Scale[c], B);
        }
        if (q[Largest] < 0.0f) Triple[0] = (word)(Triple[0] | Top);
        if (Largest & 2) Triple[1] = (word)(Triple[1] | Top);
        if (Largest & 1) Triple[2] = (word)(Triple[2] | Top);
    }
}

// Principal axis projection of three-dimensional controls.
template <typename word>
void EncodeAxisProjection(word *Values, int32 KnotCount, real32 const *Controls, real32 *Scales, real32 *Offsets)
{
    real32 Mean[3] = {0.0f, 0.0f, 0.0f};
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        for (int32 c = 0; c < 3; ++c) Mean[c] += Controls[3 * Index + c];
    }
    real32 const InverseCount = KnotCount > 0 ? 1.0f / (real32)KnotCount : 0.0f;
    for (int32 c = 0; c < 3; ++c) Mean[c] *= InverseCount;
    real32 Covariance[3][3] = {};
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        real32 d[3];
        for (int32 c = 0; c < 3; ++c) d[c] = Controls[3 * Index + c] - Mean[c];
        for (int32 r = 0; r < 3; ++r) {
            for (int32 c = 0; c < 3; ++c) Covariance[r][c] += d[r] * d[c];
        }
    }
    for (int32 r = 0; r < 3; ++r) {
        for (int32 c = 0; c < 3; ++c) Covariance[r][c] *= InverseCount;
    }
    real32 Axis[3] = {1.0f, 2.0f, 3.0f};
    for (int32 Iteration = 0; Iteration < 25; ++Iteration) {
        real32 Next[3];
        for (int32 r = 0; r < 3; ++r) {
            Next[r] = Covariance[r][0] * Axis[0] + Covariance[r][1] * Axis[1] + Covariance[r][2] * Axis[2];
        }
        real32 Length = sqrtf(Next[0] * Next[0] + Next[1] * Next[1] + Next[2] * Next[2]);
        if (!(Length > 0.0f)) break;
        for (int32 c = 0; c < 3; ++c) Axis[c] = Next[c] / Length;
    }
    real32 Min = 0.0f;
    real32 Max = 0.0f;
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        real32 const *C = Controls + 3 * Index;
        real32 Dot = C[0] * Axis[0] + C[1] * Axis[1] + C[2] * Axis[2];
        if (Index == 0 || Dot < Min) Min = Dot;
        if (Index == 0 || Dot > Max) Max = Dot;
    }
    real32 MeanDot = Mean[0] * Axis[0] + Mean[1] * Axis[1] + Mean[2] * Axis[2];
    if (Min == Max) {
        for (int32 c = 0; c < 3; ++c) {
            Offsets[c] = KnotCount > 0 ? Controls[c] : 0.0f;
            Scales[c] = 1.0f;
        }
    } else {
        for (int32 c = 0; c < 3; ++c) {
            Scales[c] = Axis[c] * (Max - Min);
            Offsets[c] = Mean[c] - Axis[c] * (MeanDot - Min);
        }
    }
    real32 ScaleLength2 = Scales[0] * Scales[0] + Scales[1] * Scales[1] + Scales[2] * Scales[2];
    for (int32 Index = 0; Index < KnotCount; ++Index) {
        real32 const *C = Controls + 3 * Index;
        real32 u =
            ((C[0] - Offsets[0]) * Scales[0] + (C[1] - Offsets[1]) * Scales[1] + (C[2] - Offsets[2]) * Scales[2]) /
            ScaleLength2;
        if constexpr (sizeof(word) == 4) {
            Values[Index] = u;
        } else {
            Values[Index] = (word)QuantizeReal(u * (real32)word_limits<word>::Max, word_limits<word>::Max);
        }
    }
    if constexpr (sizeof(word) != 4) {
        for (int32 c = 0; c < 3; ++c) Scales[c] /= (real32)word_limits<word>::Max;
    }
}

template <int Row>
void OpSetAllKnotValues(void *Record, int32 KnotCount, int32 Dimension, real32 const *Knots, real32 const *Controls)
{
    typedef typename row_record<Row>::type record;
    record &R = *(record *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    if constexpr (Family == Family_Keyframes) {
        R.Dimension = (int16)Dimension;
        if (Controls && KnotCount > 0) memcpy(R.Controls, Controls, sizeof(real32) * KnotCount * Dimension);
    } else if constexpr (Family == Family_Float) {
        if (Knots && KnotCount > 0) memcpy(R.Knots, Knots, sizeof(real32) * KnotCount);
        if (Controls && KnotCount > 0) memcpy(R.Controls, Controls, sizeof(real32) * KnotCount * Dimension);
    } else if constexpr (Family == Family_Identity) {
        R.Dimension = (int16)Dimension;
    } else if constexpr (Family == Family_ConstantArray || Family == Family_ConstantInline) {
        if (Controls) memcpy(&R.Controls[0], Controls, sizeof(real32) * Dimension);
    } else {
        typedef typename row_record<Row>::word word;
        word *Stored = R.KnotsControls;
        word *Values = Stored + KnotCount;
        if constexpr (Row == 16) {
            if (Knots) memcpy(Stored, Knots, sizeof(real32) * KnotCount);
        } else if constexpr (Family == Family_D4n) {
            real32 Last = KnotCount > 0 ? Knots[KnotCount - 1] : 0.0f;
            R.OneOverKnotScale = UsableScale((real32)word_limits<word>::Max / Last);
            StoreKnots(Stored, KnotCount, Knots, R.OneOverKnotScale);
        } else {
            R.OneOverKnotScaleTrunc = TruncatedKnotScale(Knots, KnotCount, word_limits<word>::Max);
            StoreKnots(Stored, KnotCount, Knots, KnotScaleFromTrunc(R.OneOverKnotScaleTrunc));
        }
        constexpr uint32 Levels = sizeof(word) == 4 ? 0 : (sizeof(word) == 2 ? 65535 : 255);
        if constexpr (Family == Family_DaQuant) {
            for (int32 c = 0; c < Dimension; ++c) {
                real32 Min, Max;
                ComponentRange(Controls, KnotCount, Dimension, c, Min, Max);
                real32 Scale = ControlScale(Min, Max, Levels);
                R.ControlScaleOffsets[c] = Scale;
                R.ControlScaleOffsets[Dimension + c] = Min;
                for (int32 Index = 0; Index < KnotCount; ++Index) {
                    Values[Index * Dimension + c] =
                        (word)QuantizeReal((Controls[Index * Dimension + c] - Min) / Scale, Levels);
                }
            }
        } else if constexpr (Family == Family_D4n) {
            EncodeQuaternions(Stored, KnotCount, Controls, R.ScaleOffsetTableEntries);
        } else if constexpr (Family == Family_D3Quant || Family == Family_D9I3) {
            int32 const Stride = Family == Family_D3Quant ? 3 : 9;
            for (int32 c = 0; c < 3; ++c) {
                int32 const Component = Family == Family_D3Quant ? c : 4 * c;
                real32 Min, Max;
                ComponentRange(Controls, KnotCount, Stride, Component, Min, Max);
                real32 Scale = ControlScale(Min, Max, Levels);
                R.ControlScales[c] = Scale;
                R.ControlOffsets[c] = Min;
                for (int32 Index = 0; Index < KnotCount; ++Index) {
                    Values[Index * 3 + c] =
                        (word)QuantizeReal((Controls[Index * Stride + Component] - Min) / Scale, Levels);
                }
            }
        } else if constexpr (Family == Family_D9I1) {
            real32 Min, Max;
            ComponentRange(Controls, KnotCount, 9, 0, Min, Max);
            real32 Scale = ControlScale(Min, Max, Levels);
            R.ControlScale = Scale;
            R.ControlOffset = Min;
            for (int32 Index = 0; Index < KnotCount; ++Index) {
                // The clamp is to the 16-bit range in both widths; min and max
                // keep the value inside the narrower one.
                Values[Index] = (word)QuantizeReal((Controls[Index * 9] - Min) / Scale, 65535);
            }
        } else {
            EncodeAxisProjection(Values, KnotCount, Controls, R.ControlScales, R.ControlOffsets);
        }
    }
}

template <int Row>
void OpAggrCurveData(aggr_allocator &Allocator, int32 Dimension, int32 KnotCount, void **RecordPointer,
                     intaddrx OwnerOffset, intaddrx MemberOffset)
{
    typedef typename row_record<Row>::type record;
    intaddrx Offset = RecordPointer ? AggregateAllocate_(Allocator, RecordPointer, sizeof(record))
                                    : AggregateAllocateMember(Allocator, OwnerOffset, MemberOffset, sizeof(record));
    constexpr format_family Family = FamilyOf<Row>();
    if constexpr (Family == Family_Keyframes) {
        AggregateAllocateArray(Allocator, Offset, offsetof(record, ControlCount), offsetof(record, Controls),
                               KnotCount * Dimension, sizeof(real32));
    } else if constexpr (Family == Family_Float) {
        AggregateAllocateArray(Allocator, Offset, offsetof(record, KnotCount), offsetof(record, Knots), KnotCount,
                               sizeof(real32));
        AggregateAllocateArray(Allocator, Offset, offsetof(record, ControlCount), offsetof(record, Controls),
                               KnotCount * Dimension, sizeof(real32));
    } else if constexpr (Family == Family_ConstantArray) {
        AggregateAllocateArray(Allocator, Offset, offsetof(record, ControlCount), offsetof(record, Controls), Dimension,
                               sizeof(real32));
    } else if constexpr (Family == Family_DaQuant) {
        typedef typename row_record<Row>::word word;
        AggregateAllocateArray(Allocator, Offset, offsetof(record, ControlScaleOffsetCount),
                               offsetof(record, ControlScaleOffsets), 2 * Dimension, sizeof(real32));
        AggregateAllocateArray(Allocator, Offset, offsetof(record, KnotControlCount), offsetof(record, KnotsControls),
                               KnotCount * (Dimension + 1), sizeof(word));
    } else if constexpr (Family != Family_Identity && Family != Family_ConstantInline) {
        typedef typename row_record<Row>::word word;
        AggregateAllocateArray(Allocator, Offset, offsetof(record, KnotControlCount), offsetof(record, KnotsControls),
                               KnotCount * (StoredWidthOf<Row>() + 1), sizeof(word));
    }
}

// Copies everything but the array addresses, then the arrays' content.
template <typename record, typename element>
void CopyArray(record &Target, record const &Source, element *record::*Pointer, int32 record::*Count)
{
    if (Target.*Count > 0 && Source.*Pointer) {
        memcpy(Target.*Pointer, Source.*Pointer, sizeof(element) * (size_t)(Target.*Count));
    }
}

template <int Row>
void OpCopyCurve(void *Record, void const *SourceRecord)
{
    typedef typename row_record<Row>::type record;
    record &R = *(record *)Record;
    record const &S = *(record const *)SourceRecord;
    constexpr format_family Family = FamilyOf<Row>();
    record Saved;
    memcpy(&Saved, &R, sizeof(record));
    memcpy(&R, &S, sizeof(record));
    if constexpr (Family == Family_Keyframes || Family == Family_ConstantArray) {
        R.Controls = Saved.Controls;
        R.ControlCount = Saved.ControlCount;
        CopyArray(R, S, &record::Controls, &record::ControlCount);
    } else if constexpr (Family == Family_Float) {
        R.Knots = Saved.Knots;
        R.KnotCount = Saved.KnotCount;
        R.Controls = Saved.Controls;
        R.ControlCount = Saved.ControlCount;
        CopyArray(R, S, &record::Knots, &record::KnotCount);
        CopyArray(R, S, &record::Controls, &record::ControlCount);
    } else if constexpr (Family == Family_Identity || Family == Family_ConstantInline) {
    } else {
        if constexpr (Family == Family_DaQuant) {
            R.ControlScaleOffsets = Saved.ControlScaleOffsets;
            R.ControlScaleOffsetCount = Saved.ControlScaleOffsetCount;
            CopyArray(R, S, &record::ControlScaleOffsets, &record::ControlScaleOffsetCount);
        }
        R.KnotsControls = Saved.KnotsControls;
        R.KnotControlCount = Saved.KnotControlCount;
        CopyArray(R, S, &record::KnotsControls, &record::KnotControlCount);
    }
}

void TransformControls(real32 *Controls, int32 Count, int32 Dimension, real32 const *Scales, real32 const *Offsets,
                       int32 const *Permutation)
{
    real32 Old[CurveMaxDimension];
    if (Dimension > CurveMaxDimension) return;
    for (int32 Index = 0; Index < Count; ++Index) {
        real32 *C = Controls + Index * Dimension;
        memcpy(Old, C, sizeof(real32) * Dimension);
        for (int32 i = 0; i < Dimension; ++i) C[i] = Scales[i] * Old[Permutation[i]] + Offsets[i];
    }
}

template <typename word>
void PermuteRaw(word *Values, int32 Count, int32 Width, int32 const *Permutation)
{
    word Old[CurveMaxDimension];
    if (Width > CurveMaxDimension) return;
    for (int32 Index = 0; Index < Count; ++Index) {
        word *V = Values + Index * Width;
        memcpy(Old, V, sizeof(word) * Width);
        for (int32 i = 0; i < Width; ++i) V[i] = Old[Permutation[i]];
    }
}

void TransformScaleOffsets(real32 *Scale, real32 *Offset, int32 Width, real32 const *Scales, real32 const *Offsets,
                           int32 const *Permutation, int32 const *Components)
{
    real32 OldScale[CurveMaxDimension];
    real32 OldOffset[CurveMaxDimension];
    memcpy(OldScale, Scale, sizeof(real32) * Width);
    memcpy(OldOffset, Offset, sizeof(real32) * Width);
    for (int32 i = 0; i < Width; ++i) {
        int32 Target = Components ? Components[i] : i;
        int32 Source = Permutation[Target];
        if (Components) {
            // Map a full-vector component back to its stored slot.
            int32 Slot = 0;
            for (int32 s = 0; s < Width; ++s) {
                if (Components[s] == Source) Slot = s;
            }
            Source = Slot;
        }
        Scale[i] = Scales[Target] * OldScale[Source];
        Offset[i] = Scales[Target] * OldOffset[Source] + Offsets[Target];
    }
}

template <int Row>
void OpTransformSamples(void *Record, int32 Dimension, real32 const *Scales, real32 const *Offsets,
                        int32 const *Permutation)
{
    typedef typename row_record<Row>::type record;
    record &R = *(record *)Record;
    constexpr format_family Family = FamilyOf<Row>();
    int32 const KnotCount = OpGetKnotCount<Row>(Record);
    if (Dimension != OpGetDimension<Row>(Record) || Dimension > CurveMaxDimension) return;
    for (int32 i = 0; i < Dimension; ++i) {
        if (Permutation[i] < 0 || Permutation[i] >= Dimension) return;
    }
    if constexpr (Family == Family_Keyframes || Family == Family_Float) {
        TransformControls(R.Controls, KnotCount, Dimension, Scales, Offsets, Permutation);
    } else if constexpr (Family == Family_ConstantArray || Family == Family_ConstantInline) {
        TransformControls(&R.Controls[0], 1, Dimension, Scales, Offsets, Permutation);
    } else if constexpr (Family == Family_DaQuant) {
        TransformScaleOffsets(R.ControlScaleOffsets, R.ControlScaleOffsets + Dimension, Dimension, Scales, Offsets,
                              Permutation, 0);
        PermuteRaw(R.KnotsControls + KnotCount, KnotCount, Dimension, Permutation);
    } else if constexpr (Family == Family_D3Quant) {
        TransformScaleOffsets(R.ControlScales, R.ControlOffsets, 3, Scales, Offsets, Permutation, 0);
        PermuteRaw(R.KnotsControls + KnotCount, KnotCount, 3, Permutation);
    } else if constexpr (Family == Family_D9I3) {
        static int32 const Diagonal[3] = {0, 4, 8};
        int32 Triple[3];
        for (int32 i = 0; i < 3; ++i) Triple[i] = Permutation[Diagonal[i]] / 4;
        TransformScaleOffsets(R.ControlScales, R.ControlOffsets, 3, Scales, Offsets, Permutation, Diagonal);
        PermuteRaw(R.KnotsControls + KnotCount, KnotCount, 3, Triple);
    } else if constexpr (Family == Family_D9I1) {
        R.ControlScale *= Scales[0];
        R.ControlOffset = R.ControlOffset * Scales[0] + Offsets[0];
    } else if constexpr (Family == Family_D3I1) {
        real32 OldScale[3], OldOffset[3];
        memcpy(OldScale, R.ControlScales, sizeof(OldScale));
        memcpy(OldOffset, R.ControlOffsets, sizeof(OldOffset));
        for (int32 i = 0; i < 3; ++i) {
            R.ControlScales[i] = Scales[i] * OldScale[Permutation[i]];
            R.ControlOffsets[i] = Scales[i] * OldOffset[Permutation[i]] + Offsets[i];
        }
    } else if constexpr (Family == Family_D4n) {
        typedef typename row_record<Row>::word word;
        uint32 const Top = word_limits<word>::TopBit;
        uint16 Entries = 0;
        int32 Inverse[4];
        for (int32 i = 0; i < 4; ++i) {
            int32 Entry = (R.ScaleOffsetTableEntries >> (4 * Permutation[i])) & 15;
            if (Scales[i] < 0.0f) Entry ^= 8;
            Entries = (uint16)(Entries | (Entry << (4 * i)));
            Inverse[Permutation[i]] = i;
        }
        R.ScaleOffsetTableEntries = Entries;
        word *Triples = R.KnotsControls + KnotCount;
        for (int32 Index = 0; Index < KnotCount; ++Index) {
            word *Triple = Triples + 3 * Index;
            int32 OldLargest = ((Triple[1] & Top) ? 2 : 0) | ((Triple[2] & Top) ? 1 : 0);
            bool Negative = (Triple[0] & Top) != 0;
            uint32 Raw[4] = {0, 0, 0, 0};
            for (int32 Word = 0; Word < 3; ++Word) Raw[(OldLargest + 1 + Word) & 3] = Triple[Word] & (Top - 1);
            int32 Largest = Inverse[OldLargest];
            if (Scales[Largest] < 0.0f) Negative = !Negative;
            for (int32 Word = 0; Word < 3; ++Word) {
                int32 c = (Largest + 1 + Word) & 3;
                Triple[Word] = (word)Raw[Permutation[c]];
            }
            if (Negative) Triple[0] = (word)(Triple[0] | Top);
            if (Largest & 2) Triple[1] = (word)(Triple[1] | Top);
            if (Largest & 1) Triple[2] = (word)(Triple[2] | Top);
        }
    }
}

template <int Row>
constexpr curve_format_operations MakeOperations(data_type_definition *Type, char const *Name)
{
    return {Type,
            Name,
            OpGetDimension<Row>,
            OpGetKnotCount<Row>,
            OpFindKnot<Row>,
            OpFindCloseKnot<Row>,
            OpExtractKnotValues<Row>,
            OpPreprocessSamples,
            OpNoteSamples,
            OpSetAllKnotValues<Row>,
            OpAggrCurveData<Row>,
            OpCopyCurve<Row>,
            OpTransformSamples<Row>};
}

} // namespace

curve_format_operations const CurveFormatOperations[CurveFormatCount] = {
    MakeOperations<0>(CurveDataDaKeyframes32fType, "DaKeyframes32f"),
    MakeOperations<1>(CurveDataDaK32fC32fType, "DaK32fC32f"),
    MakeOperations<2>(CurveDataDaIdentityType, "DaIdentity"),
    MakeOperations<3>(CurveDataDaConstant32fType, "DaConstant32f"),
    MakeOperations<4>(CurveDataD3Constant32fType, "D3Constant32f"),
    MakeOperations<5>(CurveDataD4Constant32fType, "D4Constant32f"),
    MakeOperations<6>(CurveDataDaK16uC16uType, "DaK16uC16u"),
    MakeOperations<7>(CurveDataDaK8uC8uType, "DaK8uC8u"),
    MakeOperations<8>(CurveDataD4nK16uC15uType, "D4nK16uC15u"),
    MakeOperations<9>(CurveDataD4nK8uC7uType, "D4nK8uC7u"),
    MakeOperations<10>(CurveDataD3K16uC16uType, "D3K16uC16u"),
    MakeOperations<11>(CurveDataD3K8uC8uType, "D3K8uC8u"),
    MakeOperations<12>(CurveDataD9I1K16uC16uType, "D9I1K16uC16u"),
    MakeOperations<13>(CurveDataD9I3K16uC16uType, "D9I3K16uC16u"),
    MakeOperations<14>(CurveDataD9I1K8uC8uType, "D9I1K8uC8u"),
    MakeOperations<15>(CurveDataD9I3K8uC8uType, "D9I3K8uC8u"),
    MakeOperations<16>(CurveDataD3I1K32fC32fType, "D3I1K32fC32f"),
    MakeOperations<17>(CurveDataD3I1K16uC16uType, "D3I1K16uC16u"),
    MakeOperations<18>(CurveDataD3I1K8uC8uType, "D3I1K8uC8u"),
};

int32 CurveFormatFromType(data_type_definition const *Type)
{
    if (!Type) return -1;
    for (int32 Row = 0; Row < CurveFormatCount; ++Row) {
        if (CurveFormatOperations[Row].Type == Type) return Row;
    }
    for (int32 Row = 0; Row < CurveFormatCount; ++Row) {
        if (DataTypesAreEqual(CurveFormatOperations[Row].Type, Type)) return Row;
    }
    return -1;
}

// ---------------------------------------------------------------------------
// Accessors.

namespace {

curve_format_operations const *OperationsOf(curve2 const &Curve)
{
    curve_data_header const *Header = (curve_data_header const *)Curve.CurveData.Object;
    if (!Header || Header->Format >= CurveFormatCount) return 0;
    return &CurveFormatOperations[Header->Format];
}

} // namespace

int32 CurveGetFormat(curve2 const &Curve)
{
    curve_data_header const *Header = (curve_data_header const *)Curve.CurveData.Object;
    return (Header && Header->Format < CurveFormatCount) ? Header->Format : -1;
}

int32 CurveGetDegree(curve2 const &Curve)
{
    curve_data_header const *Header = (curve_data_header const *)Curve.CurveData.Object;
    return Header ? Header->Degree : 0;
}

int32 CurveGetDimension(curve2 const &Curve)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    return Ops ? Ops->GetDimension(Curve.CurveData.Object) : 0;
}

int32 CurveGetKnotCount(curve2 const &Curve)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    return Ops ? Ops->GetKnotCount(Curve.CurveData.Object) : 0;
}

static bool FloatCurveCounts(curve2 const &Curve, int32 &KnotCount, int32 &ControlCount)
{
    if (CurveGetFormat(Curve) != CurveFormat_DaK32fC32f) return false;
    curve_data_da_k32f_c32f const &R = *(curve_data_da_k32f_c32f const *)Curve.CurveData.Object;
    KnotCount = R.KnotCount;
    ControlCount = R.ControlCount;
    return true;
}

bool CurveIsIdentity(curve2 const &Curve)
{
    int32 Format = CurveGetFormat(Curve);
    int32 Knots, Controls;
    return Format == CurveFormat_DaIdentity ||
           (FloatCurveCounts(Curve, Knots, Controls) && Knots == 0 && Controls == 0);
}

bool CurveIsConstantOrIdentity(curve2 const &Curve)
{
    int32 Format = CurveGetFormat(Curve);
    if (Format >= CurveFormat_DaIdentity && Format <= CurveFormat_D4Constant32f) return true;
    int32 Knots, Controls;
    return FloatCurveCounts(Curve, Knots, Controls) && ((Knots == 0 && Controls == 0) || Knots == 1);
}

bool CurveIsKeyframed(curve2 const &Curve)
{
    int32 Format = CurveGetFormat(Curve);
    int32 Knots, Controls;
    return Format == CurveFormat_DaKeyframes32f ||
           (FloatCurveCounts(Curve, Knots, Controls) && Knots == 0 && Controls > 0);
}

int32 CurveFindKnot(curve2 const &Curve, real32 t)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    return Ops ? Ops->FindKnot(Curve.CurveData.Object, t) : 0;
}

int32 CurveFindCloseKnot(curve2 const &Curve, real32 t, int32 Hint)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    return Ops ? Ops->FindCloseKnot(Curve.CurveData.Object, t, Hint) : 0;
}

void CurveExtractKnotValues(curve2 const &Curve, int32 First, int32 Count, real32 *Knots, real32 *Controls,
                            real32 const *IdentityVector)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    if (!Ops) return;
    int32 KnotCount = Ops->GetKnotCount(Curve.CurveData.Object);
    if (First < 0 || Count < 0 || First + Count > (CurveIsIdentity(Curve) ? Count : KnotCount)) {
        TesselError(LogCategory_Curves, "%s %d is out of range [0, %d)", "First + Count", First + Count, KnotCount + 1);
        return;
    }
    Ops->ExtractKnotValues(Curve.CurveData.Object, First, Count, Knots, Controls, IdentityVector);
}

void CurveTransformSamples(curve2 &Curve, int32 Dimension, real32 const *Scales, real32 const *Offsets,
                           int32 const *Permutation)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    CheckPointer(Ops, LogCategory_Curves, TESSEL_NOTHING);
    CheckPointer(Scales, LogCategory_Curves, TESSEL_NOTHING);
    CheckPointer(Offsets, LogCategory_Curves, TESSEL_NOTHING);
    CheckPointer(Permutation, LogCategory_Curves, TESSEL_NOTHING);
    Ops->TransformSamples(Curve.CurveData.Object, Dimension, Scales, Offsets, Permutation);
}

void SetCurveKnotsAndControls(curve2 &Curve, int32 KnotCount, int32 Dimension, real32 const *Knots,
                              real32 const *Controls)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    CheckPointer(Ops, LogCategory_Curves, TESSEL_NOTHING);
    if (Ops->GetDimension(Curve.CurveData.Object) != Dimension) {
        TesselError(LogCategory_Curves, "Curve and argument dimensions do not match");
        return;
    }
    if (Ops->GetKnotCount(Curve.CurveData.Object) != KnotCount) {
        TesselError(LogCategory_Curves, "Curve and argument knot counts do not match");
        return;
    }
    Ops->SetAllKnotValues(Curve.CurveData.Object, KnotCount, Dimension, Knots, Controls);
}

// ---------------------------------------------------------------------------
// The builder.

void BeginCurveInPlace(curve_builder &Builder, data_type_definition *FormatType, int32 Degree, int32 Dimension,
                       int32 KnotCount)
{
    memset(&Builder, 0, sizeof(Builder));
    Builder.FormatType = FormatType;
    Builder.FormatIndex = CurveFormatFromType(FormatType);
    if (Builder.FormatIndex < 0) {
        TesselError(LogCategory_Curves, "Invalid format specified for a tessel_curve2 - creating this curve will fail");
    }
    Builder.Degree = Degree;
    Builder.Dimension = Dimension;
    Builder.KnotCount = KnotCount;
    Builder.SampleCount = -1;
    Builder.SampleDimension = -1;
}

curve_builder *BeginCurve(data_type_definition *FormatType, int32 Degree, int32 Dimension, int32 KnotCount)
{
    curve_builder *Builder = (curve_builder *)TesselAllocate(sizeof(curve_builder));
    if (!Builder) return 0;
    BeginCurveInPlace(*Builder, FormatType, Degree, Dimension, KnotCount);
    Builder->FreeBuilderOnEnd = 1;
    return Builder;
}

void BeginCurveCopyInPlace(curve_builder &Builder, curve2 const &Source)
{
    BeginCurveInPlace(Builder, Source.CurveData.Type, CurveGetDegree(Source), CurveGetDimension(Source),
                      CurveGetKnotCount(Source));
    Builder.SourceCurve = &Source;
}

curve_builder *BeginCurveCopy(curve2 const &Source)
{
    curve_builder *Builder = (curve_builder *)TesselAllocate(sizeof(curve_builder));
    if (!Builder) return 0;
    BeginCurveCopyInPlace(*Builder, Source);
    Builder->FreeBuilderOnEnd = 1;
    return Builder;
}

void PushCurveKnotArray(curve_builder &Builder, real32 const *KnotArray)
{
    Builder.KnotArray = KnotArray;
    Builder.SourceCurve = 0;
}

void PushCurveControlArray(curve_builder &Builder, real32 const *ControlArray)
{
    Builder.ControlArray = ControlArray;
    Builder.SourceCurve = 0;
}

void PushCurveSampleArrays(curve_builder &Builder, int32 SampleCount, int32 Dimension, real32 const *TransformedSamples,
                           real32 const *SourceSamples)
{
    Builder.SampleCount = SampleCount;
    Builder.SampleDimension = Dimension;
    Builder.TransformedSamples = TransformedSamples;
    Builder.SourceSamples = SourceSamples;
}

namespace {

// A format with a fixed dimension can't hold data of another; counts are
// not negative.
bool BuilderShapeIsValid(curve_builder const &Builder)
{
    if (Builder.FormatIndex < 0 || Builder.FormatIndex >= CurveFormatCount) return false;
    int32 Fixed = FormatFacts[Builder.FormatIndex].FixedDimension;
    if (Fixed && Builder.Dimension != Fixed) return false;
    if (Builder.Dimension < 0 || Builder.Dimension > 32767 || Builder.KnotCount < 0) return false;
    if (Builder.Degree < 0 || Builder.Degree > 255) return false;
    return true;
}

void DeclareCurveData(curve_builder const &Builder, aggr_allocator &Allocator, void **RecordPointer,
                      intaddrx OwnerOffset, intaddrx MemberOffset)
{
    CurveFormatOperations[Builder.FormatIndex].AggrCurveData(Allocator, Builder.Dimension, Builder.KnotCount,
                                                             RecordPointer, OwnerOffset, MemberOffset);
}

int32 CheckedSize(intaddrx Size)
{
    int32 Result = 0;
    CheckConvertToInt32(Result, Size, LogCategory_Curves, 0);
    return Result;
}

void FreeOwnedBuilder(curve_builder *Builder)
{
    if (Builder && Builder->FreeBuilderOnEnd) TesselFree(Builder);
}

// The refusals common to both ends; true when the curve can be built.
bool BuilderCanEnd(curve_builder const &Builder)
{
    if (Builder.FormatIndex < 0 || Builder.FormatIndex >= CurveFormatCount) {
        TesselError(LogCategory_Curves, "Invalid format specified for a tessel_curve2 - returning NULL");
        return false;
    }
    if (!BuilderShapeIsValid(Builder)) {
        TesselError(LogCategory_Curves, "Curve and argument dimensions do not match");
        return false;
    }
    if (!Builder.SourceCurve && !Builder.ControlArray && Builder.KnotCount != 0) {
        TesselError(LogCategory_Curves,
                    "Need either a source curve to copy, or both knot and control arrays - returning NULL");
        return false;
    }
    if (!Builder.SourceCurve && Builder.ControlArray && !Builder.KnotArray) {
        bool Keyframes = Builder.FormatIndex == CurveFormat_DaKeyframes32f && Builder.Degree == 0;
        if (Builder.KnotCount != 1 && !Keyframes) {
            TesselError(LogCategory_Curves, "Unknown curve type - returning NULL");
            return false;
        }
    }
    return true;
}

void FillCurveData(curve_builder const &Builder, void *Record)
{
    curve_data_header *Header = (curve_data_header *)Record;
    Header->Format = (uint8)Builder.FormatIndex;
    Header->Degree = (uint8)Builder.Degree;
    curve_format_operations const &Ops = CurveFormatOperations[Builder.FormatIndex];
    if (Builder.SampleCount >= 0) {
        Ops.NoteSamples(Record, Builder.SampleCount, Builder.SampleDimension, Builder.TransformedSamples);
    }
    if (Builder.SourceCurve) {
        Ops.CopyCurve(Record, Builder.SourceCurve->CurveData.Object);
    } else {
        static real32 const ZeroKnot = 0.0f;
        Ops.SetAllKnotValues(Record, Builder.KnotCount, Builder.Dimension,
                             Builder.KnotArray ? Builder.KnotArray : &ZeroKnot, Builder.ControlArray);
    }
}

} // namespace

int32 GetResultingCurveDataSize(curve_builder const &Builder)
{
    if (Builder.FormatIndex < 0 || Builder.FormatIndex >= CurveFormatCount) {
        TesselError(LogCategory_Curves, "Invalid format specified for a tessel_curve2 - returning size of 0");
        return 0;
    }
    if (!BuilderShapeIsValid(Builder)) return 0;
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    void *Record = 0;
    DeclareCurveData(Builder, Allocator, &Record, 0, 0);
    return CheckedSize(EndAggregateSize(Allocator));
}

int32 GetResultingCurveSize(curve_builder const &Builder)
{
    if (Builder.FormatIndex < 0 || Builder.FormatIndex >= CurveFormatCount) {
        TesselError(LogCategory_Curves, "Invalid format specified for a tessel_curve2 - returning size of 0");
        return 0;
    }
    if (!BuilderShapeIsValid(Builder)) return 0;
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    curve2 *Curve = 0;
    intaddrx Offset = AggregateAllocate(Allocator, &Curve, sizeof(curve2));
    DeclareCurveData(Builder, Allocator, 0, Offset, offsetof(curve2, CurveData) + offsetof(variant, Object));
    return CheckedSize(EndAggregateSize(Allocator));
}

curve2 *EndCurve(curve_builder *Builder)
{
    if (!Builder) {
        TesselError(LogCategory_Curves, "Invalid curve_builder address - returning NULL");
        return 0;
    }
    if (!BuilderCanEnd(*Builder) || GetResultingCurveSize(*Builder) <= 0) {
        FreeOwnedBuilder(Builder);
        return 0;
    }
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateClear(Allocator);
    curve2 *Curve = 0;
    intaddrx Offset = AggregateAllocate(Allocator, &Curve, sizeof(curve2));
    DeclareCurveData(*Builder, Allocator, 0, Offset, offsetof(curve2, CurveData) + offsetof(variant, Object));
    if (!EndAggregateAllocation(Allocator) || !Curve) {
        TesselError(LogCategory_Curves, "Out of memory or invalid address for curve - returning NULL");
        FreeOwnedBuilder(Builder);
        return 0;
    }
    Curve->CurveData.Type = Builder->FormatType;
    FillCurveData(*Builder, Curve->CurveData.Object);
    FreeOwnedBuilder(Builder);
    return Curve;
}

curve2 *EndCurveInPlace(curve_builder *Builder, curve2 *Curve, void *Memory)
{
    if (!Builder) {
        TesselError(LogCategory_Curves, "Invalid curve_builder address - returning NULL");
        return 0;
    }
    if (!BuilderCanEnd(*Builder)) {
        FreeOwnedBuilder(Builder);
        return 0;
    }
    if (!Curve || !Memory) {
        TesselError(LogCategory_Curves, "Out of memory or invalid address for curve - returning NULL");
        FreeOwnedBuilder(Builder);
        return 0;
    }
    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateClear(Allocator);
    void *Record = 0;
    DeclareCurveData(*Builder, Allocator, &Record, 0, 0);
    EndAggregatePlacement(Allocator, Memory);
    Curve->CurveData.Type = Builder->FormatType;
    Curve->CurveData.Object = Record;
    FillCurveData(*Builder, Record);
    FreeOwnedBuilder(Builder);
    return Curve;
}

void AbortCurveBuilder(curve_builder *Builder)
{
    FreeOwnedBuilder(Builder);
}

int32 GetCurveSize(curve2 const &Curve)
{
    if (CurveGetFormat(Curve) < 0) return 0;
    curve_builder Builder;
    BeginCurveCopyInPlace(Builder, Curve);
    return GetResultingCurveSize(Builder);
}

curve2 *CopyCurve(curve2 const &Source)
{
    if (CurveGetFormat(Source) < 0) {
        TesselError(LogCategory_Curves, "Invalid format specified for a tessel_curve2 - returning NULL");
        return 0;
    }
    curve_builder Builder;
    BeginCurveCopyInPlace(Builder, Source);
    return EndCurve(&Builder);
}

void FreeCurve(curve2 *Curve)
{
    if (Curve) TesselFree(Curve);
}

// ---------------------------------------------------------------------------
// Evaluation.

namespace {

inline real32 Ratio(real32 Numerator, real32 Denominator)
{
    return Denominator > 0.0f ? Numerator / Denominator : 0.0f;
}

void RecurseBasis(int32 Degree, int32 Level, real32 const *K, real32 t, real32 Weight, real32 *Slot)
{
    if (Level == 0) {
        *Slot += Weight;
        return;
    }
    real32 u = Ratio(t - K[-1], K[Degree - Level] - K[-1]);
    RecurseBasis(Degree, Level - 1, K - 1, t, Weight * (1.0f - u), Slot - 1);
    RecurseBasis(Degree, Level - 1, K, t, Weight * u, Slot);
}

} // namespace

void ComputeBSplineBasis(int32 Degree, real32 const *K, real32 t, real32 *Slots)
{
    switch (Degree) {
    case 0: Slots[0] = 1.0f; break;
    case 1: {
        real32 u = Ratio(t - K[-1], K[0] - K[-1]);
        Slots[0] = 1.0f - u;
        Slots[1] = u;
    } break;
    case 2: {
        real32 a = K[-2], b = K[-1], c = K[0], e = K[1];
        real32 p = Ratio(t - b, c - b);
        real32 q = Ratio(t - a, c - a);
        real32 r = Ratio(t - b, e - b);
        real32 Left = q + p - p * q;
        Slots[0] = 1.0f - Left;
        Slots[2] = p * r;
        Slots[1] = Left - p * r;
    } break;
    case 3: {
        real32 a = K[-3], b = K[-2], c = K[-1], e = K[0], f = K[1], g = K[2];
        real32 p = Ratio(t - c, e - c);
        real32 q = Ratio(t - b, e - b);
        real32 r = Ratio(t - c, f - c);
        real32 s = Ratio(t - a, e - a);
        real32 w = Ratio(t - b, f - b);
        real32 x = Ratio(t - c, g - c);
        real32 A = (1.0f - p) * (1.0f - q);
        real32 B = (1.0f - p) * q;
        real32 E = p * (1.0f - r);
        Slots[0] = A * (1.0f - s);
        Slots[1] = A * s + B * (1.0f - w) + E * (1.0f - w);
        Slots[2] = B * w + E * w + p * r * (1.0f - x);
        Slots[3] = p * r * x;
    } break;
    default:
        for (int32 k = 0; k <= Degree; ++k) Slots[k] = 0.0f;
        RecurseBasis(Degree, Degree, K, t, 1.0f, Slots + Degree);
        break;
    }
}

namespace {

typedef void (*bspline_evaluator)(int32 Dimension, real32 const *Knots, real32 const *Controls, real32 t,
                                  real32 *Result);

inline void NormalizeVector(int32 Dimension, real32 *Result)
{
    real32 Length2 = 0.0f;
    for (int32 c = 0; c < Dimension; ++c) Length2 += Result[c] * Result[c];
    if (Length2 > 0.0f) {
        real32 Inverse = 1.0f / sqrtf(Length2);
        for (int32 c = 0; c < Dimension; ++c) Result[c] *= Inverse;
    }
}

// Dim 0 stands for "any": the loop bound comes from the argument.
template <int Degree, int Dim, bool Normalize>
void EvaluateBSpline(int32 Dimension, real32 const *Knots, real32 const *Controls, real32 t, real32 *Result)
{
    int32 const D = Dim ? Dim : Dimension;
    if constexpr (Degree == 0) {
        for (int32 c = 0; c < D; ++c) Result[c] = Controls[c];
        return;
    } else {
        real32 Slots[Degree + 1];
        ComputeBSplineBasis(Degree, Knots + Degree, t, Slots);
        for (int32 c = 0; c < D; ++c) {
            real32 Value = 0.0f;
            for (int32 k = 0; k <= Degree; ++k) Value += Slots[k] * Controls[k * D + c];
            Result[c] = Value;
        }
        if constexpr (Normalize) NormalizeVector(D, Result);
    }
}

template <int Degree, bool Normalize>
constexpr bspline_evaluator EvaluatorFor(int32 DimensionSlot)
{
    return DimensionSlot == 0   ? EvaluateBSpline<Degree, 1, Normalize>
           : DimensionSlot == 1 ? EvaluateBSpline<Degree, 2, Normalize>
           : DimensionSlot == 2 ? EvaluateBSpline<Degree, 3, Normalize>
           : DimensionSlot == 3 ? EvaluateBSpline<Degree, 4, Normalize>
                                : EvaluateBSpline<Degree, 9, Normalize>;
}

#define TESSEL_EVALUATOR_ROW(Degree, Normalize)                                                                        \
    {                                                                                                                  \
        EvaluatorFor<Degree, Normalize>(0), EvaluatorFor<Degree, Normalize>(1), EvaluatorFor<Degree, Normalize>(2),    \
            EvaluatorFor<Degree, Normalize>(3), EvaluatorFor<Degree, Normalize>(4)                                     \
    }

// Specialised evaluators by [Normalize][Degree][dimension 1, 2, 3, 4, 9].
bspline_evaluator const SpecialisedEvaluators[2][4][5] = {
    {TESSEL_EVALUATOR_ROW(0, false), TESSEL_EVALUATOR_ROW(1, false), TESSEL_EVALUATOR_ROW(2, false),
     TESSEL_EVALUATOR_ROW(3, false)},
    {TESSEL_EVALUATOR_ROW(0, true), TESSEL_EVALUATOR_ROW(1, true), TESSEL_EVALUATOR_ROW(2, true),
     TESSEL_EVALUATOR_ROW(3, true)},
};
bspline_evaluator const GeneralEvaluators[2][4] = {
    {EvaluateBSpline<0, 0, false>, EvaluateBSpline<1, 0, false>, EvaluateBSpline<2, 0, false>,
     EvaluateBSpline<3, 0, false>},
    {EvaluateBSpline<0, 0, true>, EvaluateBSpline<1, 0, true>, EvaluateBSpline<2, 0, true>,
     EvaluateBSpline<3, 0, true>},
};

inline int32 DimensionSlot(int32 Dimension)
{
    switch (Dimension) {
    case 1: return 0;
    case 2: return 1;
    case 3: return 2;
    case 4: return 3;
    case 9: return 4;
    default: return -1;
    }
}

void EnsureContinuity(int32 Count, real32 *Quaternions)
{
    for (int32 Index = 1; Index < Count; ++Index) {
        real32 *Previous = Quaternions + 4 * (Index - 1);
        real32 *Current = Quaternions + 4 * Index;
        real32 Dot =
            Previous[0] * Current[0] + Previous[1] * Current[1] + Previous[2] * Current[2] + Previous[3] * Current[3];
        if (Dot < 0.0f) {
            for (int32 c = 0; c < 4; ++c) Current[c] = -Current[c];
        }
    }
}

} // namespace

void SampleBSpline(int32 Degree, int32 Dimension, bool Normalize, real32 const *Knots, real32 const *Controls, real32 t,
                   real32 *Result)
{
    if (Degree < 0 || Degree > CurveMaxDegree) {
        TesselError(LogCategory_BSpline, "%s %d is out of range [0, %d)", "Degree", Degree, 4);
        return;
    }
    int32 Slot = DimensionSlot(Dimension);
    bspline_evaluator Evaluator =
        Slot >= 0 ? SpecialisedEvaluators[Normalize][Degree][Slot] : GeneralEvaluators[Normalize][Degree];
    Evaluator(Dimension, Knots, Controls, t, Result);
}

void SampleCurve(int32 Dimension, bool Normalize, curve2 const &Curve, real32 Duration, int32 KnotIndex, real32 t,
                 real32 *Result, real32 const *IdentityVector)
{
    curve_format_operations const *Ops = OperationsOf(Curve);
    if (!Ops || Dimension <= 0 || Dimension > CurveMaxDimension) {
        for (int32 c = 0; c < Dimension && c < CurveMaxDimension; ++c) Result[c] = 0.0f;
        return;
    }
    void const *Record = Curve.CurveData.Object;
    if (CurveIsIdentity(Curve)) {
        for (int32 c = 0; c < Dimension; ++c) Result[c] = IdentityVector ? IdentityVector[c] : 0.0f;
        return;
    }
    if (CurveIsKeyframed(Curve)) {
        // Keyframes are equally spaced over the duration; the nearest one
        // holds.
        int32 ControlCount;
        real32 const *Frames;
        if (CurveGetFormat(Curve) == CurveFormat_DaKeyframes32f) {
            curve_data_da_keyframes32f const &R = *(curve_data_da_keyframes32f const *)Record;
            ControlCount = R.Dimension == Dimension ? R.ControlCount : 0;
            Frames = R.Controls;
        } else {
            curve_data_da_k32f_c32f const &R = *(curve_data_da_k32f_c32f const *)Record;
            ControlCount = R.ControlCount;
            Frames = R.Controls;
        }
        int32 FrameCount = ControlCount / Dimension;
        if (FrameCount <= 0) {
            for (int32 c = 0; c < Dimension; ++c) Result[c] = 0.0f;
            return;
        }
        real32 Frame = Duration > 0.0f ? t * (real32)(FrameCount - 1) / Duration : 0.0f;
        int32 Index = Frame > 0.0f ? (int32)fminf(Frame + 0.5f, (real32)(FrameCount - 1)) : 0;
        memcpy(Result, Frames + Index * Dimension, sizeof(real32) * Dimension);
        return;
    }
    if (Ops->GetDimension(Record) != Dimension) {
        for (int32 c = 0; c < Dimension; ++c) Result[c] = 0.0f;
        return;
    }
    if (CurveIsConstantOrIdentity(Curve)) {
        Ops->ExtractKnotValues(Record, 0, 1, 0, Result, IdentityVector);
        return;
    }
    int32 const KnotCount = Ops->GetKnotCount(Record);
    int32 Degree = CurveGetDegree(Curve);
    if (Degree > CurveMaxDegree) {
        TesselError(LogCategory_BSpline, "%s %d is out of range [0, %d)", "Degree", Degree, 4);
        for (int32 c = 0; c < Dimension; ++c) Result[c] = 0.0f;
        return;
    }
    if (KnotIndex >= KnotCount) KnotIndex = KnotCount - 1;
    if (KnotIndex < 0) KnotIndex = 0;
    int32 const First = KnotIndex - Degree;
    int32 const KnotEnd = KnotIndex + Degree; // one past the last knot of the range
    int32 const ControlEnd = KnotIndex + 1;   // one past the last control point
    if (First >= 0 && KnotEnd <= KnotCount && CurveGetFormat(Curve) == CurveFormat_DaK32fC32f) {
        curve_data_da_k32f_c32f const &R = *(curve_data_da_k32f_c32f const *)Record;
        SampleBSpline(Degree, Dimension, Normalize, R.Knots + First, R.Controls + First * Dimension, t, Result);
        return;
    }
    real32 Knots[2 * CurveMaxDegree + 1];
    real32 Controls[(CurveMaxDegree + 1) * CurveMaxDimension];
    int32 const InsideFirst = First < 0 ? 0 : First;
    int32 const InsideKnotEnd = KnotEnd < KnotCount ? KnotEnd : KnotCount;
    int32 const InsideControlEnd = ControlEnd < KnotCount ? ControlEnd : KnotCount;
    bool Padded = First < 0 || KnotEnd > KnotCount;
    if (InsideKnotEnd > InsideFirst) {
        Ops->ExtractKnotValues(Record, InsideFirst, InsideKnotEnd - InsideFirst, Knots + (InsideFirst - First), 0,
                               IdentityVector);
    }
    if (InsideControlEnd > InsideFirst) {
        Ops->ExtractKnotValues(Record, InsideFirst, InsideControlEnd - InsideFirst, 0,
                               Controls + (InsideFirst - First) * Dimension, IdentityVector);
    }
    for (int32 Index = First; Index < InsideFirst; ++Index) {
        Knots[Index - First] = Knots[InsideFirst - First];
        memcpy(Controls + (Index - First) * Dimension, Controls + (InsideFirst - First) * Dimension,
               sizeof(real32) * Dimension);
    }
    for (int32 Index = InsideKnotEnd; Index < KnotEnd; ++Index) Knots[Index - First] = Knots[InsideKnotEnd - 1 - First];
    if (Padded && Normalize && Dimension == 4) EnsureContinuity(Degree + 1, Controls);
    SampleBSpline(Degree, Dimension, Normalize, Knots, Controls, t, Result);
}

void EvaluateCurve(int32 Dimension, bool Normalize, curve2 const &Curve, real32 Duration, real32 t, real32 *Result,
                   real32 const *IdentityVector)
{
    int32 KnotCount = CurveGetKnotCount(Curve);
    if (KnotCount > 0 && !CurveIsKeyframed(Curve)) {
        real32 Range[2];
        CurveExtractKnotValues(Curve, 0, 1, Range, 0, IdentityVector);
        CurveExtractKnotValues(Curve, KnotCount - 1, 1, Range + 1, 0, IdentityVector);
        if (t < Range[0]) t = Range[0];
        if (t > Range[1]) t = Range[1];
    }
    SampleCurve(Dimension, Normalize, Curve, Duration, CurveFindKnot(Curve, t), t, Result, IdentityVector);
}
