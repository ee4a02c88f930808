// Adaptive frequency models of the Trove1 coder and the per-stream parameter
// record that tells the decoder how large its models must be.
//
// Symbols get ranks from 1 in the order they first appear; rank 0 is the
// escape that announces a symbol the cumulative table doesn't cover yet.
// Counts are 16-bit; the cumulative table is rebuilt at growing intervals and
// always spans 16384, so a symbol is coded with a 14-bit interval.
#pragma once

#include <cstring>

#include "foundation/tessel_types.h"
#include "format/tessel_range_coder.h"

enum
{
    TroveLiteralAlphabet = 256,
    TroveLiteralModelCount = 4,
    TroveLengthAlphabet = 65,
    TroveLengthModelCount = 65,
    TroveLowAlphabet = 4,
    TroveMiddleModelCount = 256,
    TroveMaxAlphabet = 256,
    TroveWindowLimit = 0x3FFFF,
    TroveModelBits = 14,
    TroveCumulativeBase = 32768,
    TroveCumulativeTop = 49152,
    // Longest match the parser emits.
    TroveMaxMatchLength = 512,
};

struct trove_model
{
    uint16 Total;
    uint16 NextRebuild;
    uint16 MaxIncrement;
    uint16 Increment;
    uint16 MaxTotal;
    uint16 SymbolCount;
    uint16 CodedCount;
    uint16 MaxSymbols;
    // Encoder: the largest count of a symbol (rank 1 on), kept as counts
    // change so that the parser's price bounds need no scan.
    uint16 LargestCount;
    uint32 HighWater;
    uint32 Alphabet;    // symbol values are below this
    uint16 *Cumulative; // MaxSymbols + 2 entries
    uint16 *Counts;     // MaxSymbols + 1 entries
    // Encoder: rank of a symbol (Alphabet entries), 0 if none.
    // Decoder: symbol of a rank (MaxSymbols + 1 entries).
    uint16 *RankMap;
    uint16 *SymbolMap; // Encoder only: symbol of a rank.
    // Decoder of a model that may hold TroveLookupMinimum symbols or more:
    // by each 2^LookupShift values of the coded interval, the rank whose
    // interval holds the first (valid while CodedCount >= TroveLookupMinimum),
    // with the rank's interval, so that the common case needs one read
    // (TroveLookupUnits each, see ReadLookupEntry).
    uint16 *Lookup;
    uint32 LookupShift;
};

enum
{
    TroveLookupMinimum = 4,
    // Models of this many symbols or more get the fine lookup.
    TroveFineLookupMinimum = 128,
    TroveCoarseLookupShift = TroveModelBits - 6,
    TroveFineLookupShift = TroveModelBits - 8,
    TroveLookupUnits = 4,
};

// Entries of the lookup of a decoder model of MaxSymbols (0 for none).
inline uint32 GetLookupBuckets(uint32 MaxSymbols)
{
    if (MaxSymbols < TroveLookupMinimum) return 0;
    uint32 Shift = MaxSymbols >= TroveFineLookupMinimum ? TroveFineLookupShift : TroveCoarseLookupShift;
    return 1u << (TroveModelBits - Shift);
}

// One lookup entry: the start and size of the interval (relative to the
// coded interval's base) in the low two units, the rank in the third.
inline uint64 ReadLookupEntry(uint16 const *Lookup, uint32 Bucket)
{
    uint64 Entry;
    memcpy(&Entry, Lookup + (size_t)Bucket * TroveLookupUnits, sizeof(Entry));
    return Entry;
}

// Entries of the uint16 arrays one model needs.
int32 GetModelArrayUnits(uint32 MaxSymbols, uint32 Alphabet, bool Encoder);
// Points the model's arrays into Memory (GetModelArrayUnits entries).
void PlaceModel(trove_model &Model, uint16 *Memory, uint32 MaxSymbols, uint32 Alphabet, bool Encoder);
// Back to the initial state: nothing seen, only the escape.
void ResetModel(trove_model &Model, uint32 MaxSymbols, bool Encoder);

// Rebuilds the cumulative table when it is due (halving first when the
// counts have grown too large). RankToSymbol is SymbolMap in the encoder and
// RankMap in the decoder.
void RebuildModel(trove_model &Model, bool Encoder);

inline void RebuildModelIfDue(trove_model &Model, bool Encoder)
{
    if (Model.Total >= Model.NextRebuild) RebuildModel(Model, Encoder);
}

// Codes Symbol; a symbol the model has never held goes out raw, uniform in
// [0, RawAlphabet).
void EncodeModelSymbol(range_encoder &Encoder, trove_model &Model, uint32 Symbol, uint32 RawAlphabet);
// The rest of DecodeModelSymbol after the escape was read.
bool DecodeEscapedSymbol(range_decoder &Decoder, trove_model &Model, uint32 RawAlphabet, uint32 *Symbol);

// False when the data asks for more distinct symbols than the model allows.
// Inlined: the decoder loop is a chain of these, one after another.
__attribute__((always_inline)) inline bool DecodeModelSymbol(range_decoder &Decoder, trove_model &Model,
                                                             uint32 RawAlphabet, uint32 *Symbol)
{
    RebuildModelIfDue(Model, false);
    uint32 Value = DecodeRangeShift(Decoder, TroveModelBits);
    uint16 const *Cumulative = Model.Cumulative;
    // The last rank whose interval starts at or below Value (rank 0 always
    // does): from the lookup and a short walk in a large model, by halving
    // without branches in a small one. Start and Size are relative to the
    // coded interval.
    uint32 Coded, Start, Size;
    if (Model.CodedCount >= TroveLookupMinimum) {
        uint64 Entry = ReadLookupEntry(Model.Lookup, Value >> Model.LookupShift);
        Start = (uint16)Entry;
        Size = (uint32)Entry >> 16;
        Coded = (uint32)(Entry >> 32);
        while (Start + Size <= Value) {
            ++Coded;
            Start = (uint32)Cumulative[Coded] - TroveCumulativeBase;
            Size = (uint32)Cumulative[Coded + 1] - Cumulative[Coded];
        }
    } else {
        uint32 Low = 0;
        uint32 Count = (uint32)Model.CodedCount + 1;
        while (Count > 1) {
            uint32 Half = Count >> 1;
            Low = Cumulative[Low + Half] <= Value + TroveCumulativeBase ? Low + Half : Low;
            Count -= Half;
        }
        Coded = Low;
        Start = (uint32)Cumulative[Coded] - TroveCumulativeBase;
        Size = (uint32)Cumulative[Coded + 1] - Cumulative[Coded];
    }
    if (Size == 0) return false;
    DecodeRangeDone(Decoder, Start, Size, 1u << TroveModelBits);
    ++Model.Counts[Coded];
    ++Model.Total;
    if (Coded != 0) {
        *Symbol = Model.RankMap[Coded];
        return true;
    }
    // The escape goes through a copy of the coder, so that a caller's coder
    // never has its address taken and may live in registers.
    range_decoder Escaped = Decoder;
    bool Known = DecodeEscapedSymbol(Escaped, Model, RawAlphabet, Symbol);
    Decoder = Escaped;
    return Known;
}

// The inverse probability the parser prices a symbol with: Total / count,
// or Alphabet * Total / escape count for a symbol not held.
inline double GetInverseProbability(trove_model const &Model, uint32 Symbol, uint32 Alphabet)
{
    uint32 Rank = Model.RankMap[Symbol];
    if (Rank) return (double)Model.Total / (double)Model.Counts[Rank];
    uint32 Escape = Model.Counts[0] ? Model.Counts[0] : 1;
    return (double)Alphabet * (double)Model.Total / (double)Escape;
}

// ---------------------------------------------------------------------------
// Parameter record: three 32-bit words per stream.

struct trove_parameters
{
    uint32 Words[3];
};

// The model sizes a decoder sets up from a record.
struct trove_model_sizes
{
    uint32 LiteralAlphabet;
    uint32 WindowLimit;
    uint32 LiteralMaxSymbols;
    uint32 HighMaxSymbols;
    uint32 LengthMaxSymbols[4]; // by group of 16 length models; group 3 also the 65th
};

// Alphabets that follow from a window limit.
uint32 GetHighAlphabet(uint32 WindowLimit);
uint32 GetMiddleAlphabet(uint32 WindowLimit);
uint32 GetLowAlphabet(uint32 WindowLimit);

// From the most distinct symbols each model held in the stream.
trove_parameters MakeTroveParameters(uint32 LiteralHighWater, uint32 HighHighWater,
                                     uint32 const LengthGroupHighWater[4]);
// False when the record can't describe a stream this decoder can read.
bool GetTroveModelSizes(trove_parameters const &Parameters, trove_model_sizes &Sizes);
