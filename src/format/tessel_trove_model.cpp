#include "format/tessel_trove_model.h"

#include <cstring>

int32 GetModelArrayUnits(uint32 MaxSymbols, uint32 Alphabet, bool Encoder)
{
    int32 Units = (int32)(MaxSymbols + 2) + (int32)(MaxSymbols + 1);
    if (Encoder) {
        Units += (int32)Alphabet + (int32)(MaxSymbols + 1);
    } else {
        Units += (int32)(MaxSymbols + 1);
        Units += (int32)GetLookupBuckets(MaxSymbols) * TroveLookupUnits;
    }
    // Keeps every model's arrays on a 4-byte boundary.
    return (Units + 1) & ~1;
}

void PlaceModel(trove_model &Model, uint16 *Memory, uint32 MaxSymbols, uint32 Alphabet, bool Encoder)
{
    Model.Alphabet = Alphabet;
    Model.Cumulative = Memory;
    Memory += MaxSymbols + 2;
    Model.Counts = Memory;
    Memory += MaxSymbols + 1;
    Model.RankMap = Memory;
    Model.Lookup = 0;
    Model.LookupShift = MaxSymbols >= TroveFineLookupMinimum ? TroveFineLookupShift : TroveCoarseLookupShift;
    if (Encoder) {
        Memory += Alphabet;
        Model.SymbolMap = Memory;
    } else {
        Model.SymbolMap = 0;
        Memory += MaxSymbols + 1;
        if (MaxSymbols >= TroveLookupMinimum) Model.Lookup = Memory;
    }
}

void ResetModel(trove_model &Model, uint32 MaxSymbols, bool Encoder)
{
    uint32 Highest = Model.Alphabet ? Model.Alphabet - 1 : 0;
    uint32 MaxTotal = Highest * 32;
    if (MaxTotal < 256) MaxTotal = 256;
    if (MaxTotal > 15160) MaxTotal = 15160;
    uint32 MaxIncrement = 128;
    if (Highest * 2 >= 128) {
        MaxIncrement = Highest * 2;
        if (MaxIncrement > MaxTotal / 2 - 32) MaxIncrement = MaxTotal / 2 - 32;
    }

    Model.Total = 4;
    Model.NextRebuild = 8;
    Model.MaxIncrement = (uint16)MaxIncrement;
    Model.Increment = 4;
    Model.MaxTotal = (uint16)MaxTotal;
    Model.SymbolCount = 0;
    Model.CodedCount = 0;
    Model.MaxSymbols = (uint16)MaxSymbols;
    Model.HighWater = 0;
    memset(Model.Cumulative, 0, sizeof(uint16) * (MaxSymbols + 2));
    memset(Model.Counts, 0, sizeof(uint16) * (MaxSymbols + 1));
    Model.Cumulative[0] = TroveCumulativeBase;
    Model.Cumulative[1] = TroveCumulativeTop;
    Model.Counts[0] = 4;
    Model.LargestCount = 0;
    if (Encoder) {
        memset(Model.RankMap, 0, sizeof(uint16) * Model.Alphabet);
        memset(Model.SymbolMap, 0, sizeof(uint16) * (MaxSymbols + 1));
    } else {
        memset(Model.RankMap, 0, sizeof(uint16) * (MaxSymbols + 1));
    }
}

// Halves all counts; symbols seen at most once leave the model, and the most
// frequent one moves to the last rank.
static void HalveModel(trove_model &Model, bool Encoder)
{
    uint16 *RankToSymbol = Encoder ? Model.SymbolMap : Model.RankMap;
    uint16 *Counts = Model.Counts;
    Counts[0] >>= 1;
    uint32 Total = Counts[0];
    uint32 Rank = 1;
    while (Rank <= Model.SymbolCount) {
        uint32 Last = Model.SymbolCount;
        if (Counts[Rank] <= 1) {
            if (Rank != Last) {
                Counts[Rank] = Counts[Last];
                RankToSymbol[Rank] = RankToSymbol[Last];
            }
            Counts[Last] = 0;
            RankToSymbol[Last] = 0;
            --Model.SymbolCount;
            continue;
        }
        Counts[Rank] >>= 1;
        Total += Counts[Rank];
        ++Rank;
    }

    uint32 Last = Model.SymbolCount;
    Model.LargestCount = Last ? Counts[1] : 0;
    if (Last > 1) {
        uint32 Best = 1;
        for (uint32 Scan = 2; Scan <= Last; ++Scan) {
            if (Counts[Scan] > Counts[Best]) Best = Scan;
        }
        Model.LargestCount = Counts[Best];
        uint16 Count = Counts[Best];
        Counts[Best] = Counts[Last];
        Counts[Last] = Count;
        uint16 Symbol = RankToSymbol[Best];
        RankToSymbol[Best] = RankToSymbol[Last];
        RankToSymbol[Last] = Symbol;
    }
    if (Model.SymbolCount != Model.MaxSymbols && Counts[0] == 0) {
        Counts[0] = 1;
        Total += 1;
    }
    Model.Total = (uint16)Total;

    if (Encoder) {
        memset(Model.RankMap, 0, sizeof(uint16) * Model.Alphabet);
        for (uint32 Scan = 1; Scan <= Model.SymbolCount; ++Scan) Model.RankMap[Model.SymbolMap[Scan]] = (uint16)Scan;
    }
}

void RebuildModel(trove_model &Model, bool Encoder)
{
    if (Model.MaxTotal <= Model.NextRebuild) HalveModel(Model, Encoder);

    uint32 Scale = 0x20000u / (Model.Total ? Model.Total : 1);
    // Locals throughout: the tables are 16-bit like the model's fields, so
    // the compiler would otherwise read the fields again after every store.
    uint16 *Cumulative = Model.Cumulative;
    uint16 const *Counts = Model.Counts;
    uint32 Coded = Model.SymbolCount;
    uint32 Start = TroveCumulativeBase;
    Cumulative[0] = (uint16)Start;
    for (uint32 Rank = 0; Rank < Coded; ++Rank) {
        Start = (uint16)(Start + ((Counts[Rank] * Scale) >> 3));
        Cumulative[Rank + 1] = (uint16)Start;
    }
    Cumulative[Coded + 1] = TroveCumulativeTop;
    Model.CodedCount = (uint16)Coded;
    if (!Encoder && Coded >= TroveLookupMinimum) {
        // A bucket takes the first rank whose interval ends above the
        // bucket's start: each rank fills the buckets that start before its
        // end and after the previous rank's (the top rank's end covers the
        // rest).
        uint16 *Lookup = Model.Lookup;
        uint32 Bucket = 0;
        uint32 Shift = Model.LookupShift;
        uint32 Round = (1u << Shift) - 1;
        for (uint32 Rank = 0; Rank <= Coded; ++Rank) {
            uint32 End = Cumulative[Rank + 1];
            uint32 Stop = (End - TroveCumulativeBase + Round) >> Shift;
            uint32 Begin = Cumulative[Rank];
            uint64 Entry = (Begin - TroveCumulativeBase) | ((End - Begin) << 16) | ((uint64)Rank << 32);
            for (; Bucket < Stop; ++Bucket) memcpy(Lookup + Bucket * TroveLookupUnits, &Entry, sizeof(Entry));
        }
    }

    if ((uint32)Model.Increment * 2 <= Model.MaxIncrement) {
        Model.Increment = (uint16)(Model.Increment * 2);
        Model.NextRebuild = (uint16)(Model.Total + Model.Increment);
    } else {
        Model.NextRebuild = (uint16)(Model.Total + Model.MaxIncrement);
    }
}

// A new symbol takes the next rank; the last one allowed closes the escape.
static uint32 AddModelSymbol(trove_model &Model)
{
    uint32 Rank = ++Model.SymbolCount;
    if (Rank > Model.HighWater) Model.HighWater = Rank;
    if (Model.SymbolCount == Model.MaxSymbols) {
        Model.Total = (uint16)(Model.Total - Model.Counts[0]);
        Model.Counts[0] = 0;
    }
    return Rank;
}

void EncodeModelSymbol(range_encoder &Encoder, trove_model &Model, uint32 Symbol, uint32 RawAlphabet)
{
    RebuildModelIfDue(Model, true);
    uint32 Rank = Model.RankMap[Symbol];
    uint32 Coded = Rank > Model.CodedCount ? 0 : Rank;
    uint32 Start = Model.Cumulative[Coded] - TroveCumulativeBase;
    EncodeRangeShift(Encoder, Start, Model.Cumulative[Coded + 1] - Model.Cumulative[Coded], TroveModelBits);
    uint32 Count = ++Model.Counts[Coded];
    ++Model.Total;
    if (Coded != 0) {
        if (Count > Model.LargestCount) Model.LargestCount = (uint16)Count;
        return;
    }

    if (Rank != 0) {
        EncodeRange(Encoder, 1, 1, 2);
        EncodeUniform(Encoder, Rank - Model.CodedCount - 1, Model.SymbolCount - Model.CodedCount);
    } else {
        if (Model.SymbolCount != Model.CodedCount) EncodeRange(Encoder, 0, 1, 2);
        Rank = AddModelSymbol(Model);
        Model.RankMap[Symbol] = (uint16)Rank;
        Model.SymbolMap[Rank] = (uint16)Symbol;
        EncodeUniform(Encoder, Symbol, RawAlphabet);
    }
    Model.Counts[Rank] = (uint16)(Model.Counts[Rank] + 2);
    Model.Total = (uint16)(Model.Total + 2);
    if (Model.Counts[Rank] > Model.LargestCount) Model.LargestCount = Model.Counts[Rank];
}

bool DecodeEscapedSymbol(range_decoder &Decoder, trove_model &Model, uint32 RawAlphabet, uint32 *Symbol)
{
    uint32 Rank;
    bool Known = false;
    if (Model.SymbolCount != Model.CodedCount) {
        uint32 Bit = DecodeRange(Decoder, 2);
        DecodeRangeDone(Decoder, Bit, 1, 2);
        Known = Bit != 0;
    }
    if (Known) {
        Rank = Model.CodedCount + 1 + DecodeUniform(Decoder, Model.SymbolCount - Model.CodedCount);
        *Symbol = Model.RankMap[Rank];
    } else {
        if (Model.SymbolCount >= Model.MaxSymbols || RawAlphabet == 0) return false;
        Rank = AddModelSymbol(Model);
        *Symbol = DecodeUniform(Decoder, RawAlphabet);
        Model.RankMap[Rank] = (uint16)*Symbol;
    }
    Model.Counts[Rank] = (uint16)(Model.Counts[Rank] + 2);
    Model.Total = (uint16)(Model.Total + 2);
    return true;
}

uint32 GetHighAlphabet(uint32 WindowLimit)
{
    return (WindowLimit >> 10) + 1;
}

uint32 GetMiddleAlphabet(uint32 WindowLimit)
{
    return (WindowLimit >> 2) < 256 ? (WindowLimit >> 2) + 1 : 256;
}

uint32 GetLowAlphabet(uint32 WindowLimit)
{
    return WindowLimit < 4 ? WindowLimit + 1 : 4;
}

static uint32 Smaller(uint32 A, uint32 B)
{
    return A < B ? A : B;
}

trove_parameters MakeTroveParameters(uint32 LiteralHighWater, uint32 HighHighWater,
                                     uint32 const LengthGroupHighWater[4])
{
    trove_parameters Parameters;
    Parameters.Words[0] = TroveLiteralAlphabet | ((uint32)TroveWindowLimit << 9);
    uint32 HighSize = Smaller((HighHighWater + 1) << 10, TroveWindowLimit);
    Parameters.Words[1] = Smaller(LiteralHighWater, TroveLiteralAlphabet) | (HighSize << 9);
    uint32 Word = 0;
    for (int32 Group = 0; Group < 4; ++Group) {
        Word = (Word << 8) | Smaller(LengthGroupHighWater[Group] + 1, TroveLengthAlphabet);
    }
    Parameters.Words[2] = Word;
    return Parameters;
}

bool GetTroveModelSizes(trove_parameters const &Parameters, trove_model_sizes &Sizes)
{
    Sizes.LiteralAlphabet = Parameters.Words[0] & 0x1FF;
    Sizes.WindowLimit = Parameters.Words[0] >> 9;
    if (Sizes.LiteralAlphabet != TroveLiteralAlphabet || Sizes.WindowLimit == 0 ||
        Sizes.WindowLimit > TroveWindowLimit) {
        return false;
    }
    // A model never reaches its limit unless it held its whole alphabet,
    // so each limit is one above the most symbols the encoder saw.
    Sizes.LiteralMaxSymbols = Smaller((Parameters.Words[1] & 0x1FF) + 1, TroveLiteralAlphabet);
    Sizes.HighMaxSymbols = Smaller((Parameters.Words[1] >> 19) + 1, GetHighAlphabet(Sizes.WindowLimit));
    for (int32 Group = 0; Group < 4; ++Group) {
        Sizes.LengthMaxSymbols[Group] = Smaller((Parameters.Words[2] >> (24 - 8 * Group)) & 0xFF, TroveLengthAlphabet);
    }
    return true;
}
