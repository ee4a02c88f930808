#include "format/tessel_trove_parser.h"

#include <cmath>
#include <cstring>

namespace {

// The 4-byte chains: the key folded (remainder plus quotient) until it
// fits the table. Each fold keeps the key's remainder by one less than the
// table size, so the result is that remainder, except that a remainder of
// 0 may come out as 0 or as the last entry: only then is the fold done, each
// division as a multiplication by the table's reciprocal (exact for any
// 32-bit key).
enum
{
    LongHeadCount = TroveRingSize / 4 - 41,
};

uint32 GetLongHeadCount()
{
    return LongHeadCount;
}

inline uint32 GetLongBucket(trove_encoder const &Encoder, uint32 Key)
{
    uint32 Remainder = Key % (uint32)(LongHeadCount - 1);
    if (Remainder != 0) return Remainder;
    uint64 const Reciprocal = Encoder.LongHeadReciprocal;
    while (Key >= (uint32)LongHeadCount) {
        uint32 Quotient = (uint32)(((unsigned __int128)Key * Reciprocal) >> 64);
        Key = (Key - Quotient * (uint32)LongHeadCount) + Quotient;
    }
    return Key;
}

// The 3-byte chains: as many as ring slots (at least 2^11).
uint32 GetMiddleHashBits(uint32 RingSize)
{
    uint32 Bits = 11;
    while ((1u << Bits) < RingSize) ++Bits;
    return Bits;
}

inline uint32 GetMiddleBucket(trove_encoder const &Encoder, uint32 Key)
{
    return ((Key & 0xFFFFFFu) * 2654435761u) >> (32 - Encoder.MiddleHashBits);
}

inline uint32 Load32(uint8 const *Data)
{
    uint32 Value;
    memcpy(&Value, Data, 4);
    return Value;
}

inline uint64 Load64(uint8 const *Data)
{
    uint64 Value;
    memcpy(&Value, Data, 8);
    return Value;
}

inline uint32 Smaller(uint32 A, uint32 B)
{
    return A < B ? A : B;
}

struct stream_state
{
    uint8 const *Data;
    uint32 Size;
};

// --- chains ---------------------------------------------------------------

// Clears the position tables: positions then start a ring's length on, so
// that an empty entry (0) is out of any window.
void ClearPositionTables(trove_encoder &Encoder)
{
    memset(Encoder.ShortKeyPositions, 0, sizeof(uint32) * 65536);
    memset(Encoder.MiddleHeads, 0, sizeof(uint32) << Encoder.MiddleHashBits);
    Encoder.Base = Encoder.RingMask + 1;
    Encoder.NextBase = Encoder.Base;
}

// Puts a block's bounds back to zero: by its positions (in Data) when only
// their chains were set, whole otherwise.
void ClearChainBlock(trove_encoder &Encoder, trove_chain_block &Block, uint8 const *Data)
{
    if (Block.Clean) return;
    if (Block.Sparse) {
        for (uint32 Position = Block.First; Position < Block.End; ++Position) {
            trove_chain_bounds &Chain = Block.Chains[GetLongBucket(Encoder, Load32(Data + Position))];
            Chain.Start = Chain.End = 0;
        }
    } else {
        memset(Block.Chains, 0, sizeof(trove_chain_bounds) * Encoder.LongHeadCount);
    }
    Block.Clean = true;
}

// Lays out the 4-byte chains of the block from First on: one place for
// every position, though positions inside a run are not entered.
void StartChainBlock(trove_encoder &Encoder, stream_state const &Stream, uint32 First)
{
    if (First != 0) {
        Encoder.Block ^= 1;
        Encoder.HavePreviousBlock = true;
    }
    uint32 End = Stream.Size - First > Encoder.RingMask ? First + Encoder.RingMask + 1 : Stream.Size;
    Encoder.BlockEnd = End;
    trove_chain_block &Block = Encoder.Blocks[Encoder.Block];
    // A block of this stream is cleared by its positions; one left by an
    // earlier stream was either cleared at that stream's end or is whole.
    ClearChainBlock(Encoder, Block, Stream.Data);
    Block.First = First;
    Block.End = End;
    Block.Clean = false;
    Block.Sparse = (End - First) * 4 < Encoder.LongHeadCount;
    trove_chain_bounds *Chains = Block.Chains;
    uint32 Sum = 0;
    if (Block.Sparse) {
        // The chains in use are listed where the entries will go.
        uint32 *Used = reinterpret_cast<uint32 *>(Block.Entries);
        uint32 UsedCount = 0;
        for (uint32 Position = First; Position < End; ++Position) {
            uint32 Bucket = GetLongBucket(Encoder, Load32(Stream.Data + Position));
            if (Chains[Bucket].End++ == 0) Used[UsedCount++] = Bucket;
        }
        for (uint32 Index = 0; Index < UsedCount; ++Index) {
            trove_chain_bounds &Chain = Chains[Used[Index]];
            uint32 Count = Chain.End;
            Chain.Start = Chain.End = Sum;
            Sum += Count;
        }
        return;
    }
    for (uint32 Position = First; Position < End; ++Position) {
        ++Chains[GetLongBucket(Encoder, Load32(Stream.Data + Position))].End;
    }
    for (uint32 Bucket = 0; Bucket < Encoder.LongHeadCount; ++Bucket) {
        uint32 Count = Chains[Bucket].End;
        Chains[Bucket].Start = Chains[Bucket].End = Sum;
        Sum += Count;
    }
}

void StartMatchFinder(trove_encoder &Encoder, stream_state const &Stream)
{
    Encoder.Run = 0;
    Encoder.RunValid = false;
    Encoder.Skip = 0;
    // Each stream starts at least a ring's length past the last one's end;
    // before the positions could overflow, the tables start over.
    if ((uint64)Encoder.NextBase + Stream.Size > 0xFFFFFFFFu) ClearPositionTables(Encoder);
    Encoder.Base = (uint32)Encoder.NextBase;
    // On a whole number of rings, so that a position's slot is the same
    // counted from here or from the stream's start.
    uint64 const Ring = Encoder.RingMask + 1;
    Encoder.NextBase = ((uint64)Encoder.Base + Stream.Size + 2 * Ring - 1) / Ring * Ring;
    Encoder.Block = 0;
    Encoder.HavePreviousBlock = false;
    StartChainBlock(Encoder, Stream, 0);
}

// Enters Position in the match finder, unless it lies inside a run of one
// byte (of which only the last three positions are entered).
void InsertPosition(trove_encoder &Encoder, stream_state const &Stream, uint32 Position)
{
    if (Position >= Encoder.BlockEnd) StartChainBlock(Encoder, Stream, Encoder.BlockEnd);
    uint8 const *Data = Stream.Data;
    uint8 First = Data[Position];
    if (!Encoder.RunValid) {
        uint32 Run = 0;
        while (Position + Run + 1 < Stream.Size && Data[Position + Run + 1] == First) ++Run;
        Encoder.Run = Run;
        Encoder.RunValid = true;
    }

    if (Encoder.Skip < 3) {
        uint32 Key = Load32(Data + Position);
        uint32 Absolute = Encoder.Base + Position;
        trove_chain_block &Block = Encoder.Blocks[Encoder.Block];
        trove_chain_entry &Entry = Block.Entries[Block.Chains[GetLongBucket(Encoder, Key)].End++];
        Entry.Position = Position;
        Entry.Key = Key;
        Entry.After = Load32(Data + Position + 4);
        trove_link &Link = Encoder.Links[Position & Encoder.RingMask];
        Link.Key = Key;
        uint32 &MiddleHead = Encoder.MiddleHeads[GetMiddleBucket(Encoder, Key)];
        Link.NextMiddle = MiddleHead;
        MiddleHead = Absolute;
        Encoder.ShortKeyPositions[Key & 0xFFFF] = Absolute;
        Encoder.Skip = Encoder.Run;
    }

    uint32 Run = Encoder.Run;
    bool Extends = Run != 0 && Position + Run + 1 < Stream.Size && Data[Position + Run + 1] == First;
    if (!Extends && Run) --Encoder.Run;
    if (Encoder.Skip) --Encoder.Skip;
    if (Encoder.Run == 0) Encoder.RunValid = false;

    // The next position's search and entry start at its chain and key
    // tables: they are fetched while this one's work goes on (unless a run
    // keeps it out of the chains).
    if (Encoder.Skip < 3 && Position + 3 < Encoder.BlockEnd) {
        // What the search two positions on reads first (its table entries
        // were fetched a position ago), and the table entries of the one
        // after.
        trove_chain_block const &Block = Encoder.Blocks[Encoder.Block];
        uint32 const Mask = Encoder.RingMask;
        uint32 Soon = Load32(Data + Position + 2);
        __builtin_prefetch(&Block.Entries[Block.Chains[GetLongBucket(Encoder, Soon)].End - 1]);
        __builtin_prefetch(&Encoder.Links[Encoder.MiddleHeads[GetMiddleBucket(Encoder, Soon)] & Mask]);
        uint32 Later = Load32(Data + Position + 3);
        __builtin_prefetch(&Block.Chains[GetLongBucket(Encoder, Later)]);
        __builtin_prefetch(&Encoder.MiddleHeads[GetMiddleBucket(Encoder, Later)]);
        __builtin_prefetch(&Encoder.ShortKeyPositions[Later & 0xFFFF]);
    }
}

uint32 GetMatchLength(uint8 const *Data, uint32 Position, uint32 Candidate, uint32 MaxLength)
{
    uint32 Length = 0;
    while (Length + 8 <= MaxLength) {
        uint64 Difference = Load64(Data + Position + Length) ^ Load64(Data + Candidate + Length);
        if (Difference) return Length + ((uint32)__builtin_ctzll(Difference) >> 3);
        Length += 8;
    }
    while (Length < MaxLength && Data[Position + Length] == Data[Candidate + Length]) ++Length;
    return Length;
}

// --- pricing --------------------------------------------------------------

struct distance_alphabets
{
    uint32 Window; // W': the window limit or the bytes coded so far
    uint32 High;
    uint32 Middle;
};

inline distance_alphabets GetDistanceAlphabets(uint32 Position)
{
    distance_alphabets Alphabets;
    Alphabets.Window = Smaller(TroveWindowLimit, Position);
    Alphabets.High = (Alphabets.Window >> 10) + 1;
    Alphabets.Middle = Alphabets.Window < 1024 ? (Alphabets.Window >> 2) + 1 : 256;
    return Alphabets;
}

inline double PriceDistance(trove_encoder const &Encoder, uint32 Distance, distance_alphabets const &Alphabets)
{
    uint32 Value = Distance - 1;
    uint32 High = Value >> 10;
    return GetInverseProbability(Encoder.Low, Value & 3, TroveLowAlphabet) *
           GetInverseProbability(Encoder.High, High, Alphabets.High) *
           GetInverseProbability(Encoder.Middle[High], (Value >> 2) & 0xFF, Alphabets.Middle);
}

inline double PriceLength(trove_encoder const &Encoder, uint32 Context, uint32 Symbol)
{
    return GetInverseProbability(Encoder.Length[Context], Symbol, TroveLengthAlphabet);
}

inline double PriceLiteral(trove_encoder const &Encoder, uint32 Context, uint32 Position, uint8 Byte)
{
    return PriceLength(Encoder, Context, 0) *
           GetInverseProbability(Encoder.Literal[Position & 3], Byte, TroveLiteralAlphabet);
}

struct trove_match
{
    uint32 Length; // snapped; 0 when no match beats a literal
    uint32 Distance;
};

struct match_search
{
    trove_match Best;
    double BestCost; // log2 per byte
    // The least cost per byte any match of a length symbol can have, by
    // symbol, whatever its distance (filled as symbols come up).
    double LowestCost[TroveLengthAlphabet];
    uint64 LowestCostKnown; // by bit Symbol - 1 (match symbols are 1 to 64)
    // The length prices of those symbols, and the low prices as they come up.
    double LengthPrice[TroveLengthAlphabet];
    double LowPrice[TroveLowAlphabet];
    uint8 LowPriceKnown[TroveLowAlphabet];
    double DistanceBound;
    // A product of inverse probabilities above Ceiling[symbol] costs more
    // per byte than the best so far (filled as symbols come up, cleared
    // when the best changes).
    double Ceiling[TroveLengthAlphabet];
    uint64 CeilingKnown; // as LowestCostKnown
    // The least distance price within the present 1024-byte band of
    // distances (the high value is known, low and middle are bounded).
    double LowBound;
    uint32 BandHigh;
    double BandBound;
    double BandHighPrice;
    // By length below 8: whether a match of that length may still beat the
    // best (valid where ShortLengthsKnown has the length's bit; cleared when
    // the best changes).
    uint32 ShortLengthsKnown;
    uint32 ShortLengthsViable;
};

// Candidates whose least possible cost is this much above the best so far
// are passed over unpriced; the margin is far above any rounding of log2.
double const PriceMargin = 1e-9;

inline double GetLowestCost(trove_encoder const &Encoder, uint32 Context, uint32 Symbol, uint32 Snapped,
                            match_search &Search)
{
    uint64 const Bit = (uint64)1 << (Symbol - 1);
    if (!(Search.LowestCostKnown & Bit)) {
        Search.LengthPrice[Symbol] = PriceLength(Encoder, Context, Symbol);
        Search.LowestCost[Symbol] = std::log2(Search.LengthPrice[Symbol] * Search.DistanceBound) / (double)Snapped;
        Search.LowestCostKnown |= Bit;
    }
    return Search.LowestCost[Symbol];
}

inline bool MayBeatBest(trove_encoder const &Encoder, uint32 Context, uint32 Symbol, uint32 Snapped,
                        match_search &Search)
{
    return GetLowestCost(Encoder, Context, Symbol, Snapped, Search) <= Search.BestCost + PriceMargin;
}

// A product above the ceiling has log2(product) / Snapped at least the best
// cost: the relative margin is far above the rounding of log2, exp2 and the
// product, so only candidates that can't win are passed over.
inline double GetCeiling(uint32 Symbol, uint32 Snapped, match_search &Search)
{
    uint64 const Bit = (uint64)1 << (Symbol - 1);
    if (!(Search.CeilingKnown & Bit)) {
        Search.Ceiling[Symbol] = std::exp2(Search.BestCost * (double)Snapped) * (1.0 + 1e-6);
        Search.CeilingKnown |= Bit;
    }
    return Search.Ceiling[Symbol];
}

// The smallest inverse probability any symbol below Alphabet can have.
double GetSmallestInverseProbability(trove_model const &Model, uint32 Alphabet);

// The least price of a distance whose high value is High: the high price
// itself times the least low and middle prices, multiplied in the order
// PriceDistance uses, so that rounding keeps it at or below every price.
inline double GetBandBound(trove_encoder const &Encoder, uint32 High, distance_alphabets const &Alphabets,
                           match_search &Search)
{
    if (Search.BandHigh != High) {
        double Middle = Alphabets.Middle == 256 ? Encoder.MiddleBounds[High] : 1.0;
        Search.BandHighPrice = GetInverseProbability(Encoder.High, High, Alphabets.High);
        Search.BandBound = Search.LowBound * Search.BandHighPrice * Middle;
        Search.BandHigh = High;
    }
    return Search.BandBound;
}

// PriceDistance, in the same order of operations, from the prices this
// search has already looked up (the distance's band must be the one of the
// last GetBandBound).
inline double PriceDistanceInBand(trove_encoder const &Encoder, uint32 Distance, distance_alphabets const &Alphabets,
                                  match_search &Search)
{
    uint32 Value = Distance - 1;
    uint32 Low = Value & 3;
    if (!Search.LowPriceKnown[Low]) {
        Search.LowPrice[Low] = GetInverseProbability(Encoder.Low, Low, TroveLowAlphabet);
        Search.LowPriceKnown[Low] = 1;
    }
    return Search.LowPrice[Low] * Search.BandHighPrice *
           GetInverseProbability(Encoder.Middle[Value >> 10], (Value >> 2) & 0xFF, Alphabets.Middle);
}

// Prices a match of Length bytes, Distance bytes back, against the best so
// far.
inline __attribute__((always_inline)) void WeighMatch(trove_encoder const &Encoder, uint32 Context, uint32 Length,
                                                      uint32 Distance, distance_alphabets const &Alphabets,
                                                      match_search &Search)
{
    uint32 Snapped = SnapTroveMatchLength(Length);
    uint32 Symbol = GetTroveLengthSymbol(Snapped);
    if (Snapped >= 2 && MayBeatBest(Encoder, Context, Symbol, Snapped, Search)) {
        double LengthPrice = Search.LengthPrice[Symbol];
        double Ceiling = GetCeiling(Symbol, Snapped, Search);
        if (LengthPrice * GetBandBound(Encoder, (Distance - 1) >> 10, Alphabets, Search) <= Ceiling) {
            double Product = LengthPrice * PriceDistanceInBand(Encoder, Distance, Alphabets, Search);
            if (Product <= Ceiling) {
                double Cost = std::log2(Product) / (double)Snapped;
                if (Cost < Search.BestCost) {
                    Search.BestCost = Cost;
                    Search.Best.Length = Snapped;
                    Search.Best.Distance = Distance;
                    Search.CeilingKnown = 0;
                    Search.ShortLengthsKnown = 0;
                }
            }
        }
    }
}

// Prices the candidate Distance bytes back, whose first 4 bytes are Key,
// against the best so far; its match length.
inline __attribute__((always_inline)) uint32 WeighCandidate(trove_encoder const &Encoder, stream_state const &Stream,
                                                            uint32 Position, uint32 Context, uint32 Word, uint32 Key,
                                                            uint32 Distance, uint32 MaxLength,
                                                            distance_alphabets const &Alphabets, match_search &Search)
{
    // The keys give the length up to 4 bytes without touching the data.
    uint32 Difference = Key ^ Word;
    if (Difference & 0xFF) return 0;
    uint32 Length;
    if (Difference) {
        Length = Smaller((uint32)__builtin_ctz(Difference) >> 3, MaxLength);
    } else {
        uint32 Candidate = Position - Distance;
        Length = MaxLength <= 4 ? MaxLength : 4 + GetMatchLength(Stream.Data, Position + 4, Candidate + 4, MaxLength - 4);
    }
    WeighMatch(Encoder, Context, Length, Distance, Alphabets, Search);
    return Length;
}

// Searches a 4-byte chain of one block, newest first, down to the window's
// start; 1 when it stopped at a match of MaxLength bytes, 0 when it came to
// the window's start, 2 when it came to the block's start.
inline int32 SearchChainBlock(trove_encoder const &Encoder, trove_chain_block const &Block, uint32 Bucket,
                              stream_state const &Stream, uint32 Position, uint32 Context, uint32 Word,
                              uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    trove_chain_entry const *Entries = Block.Entries;
    trove_chain_bounds const Bounds = Block.Chains[Bucket];
    uint32 const After = Load32(Stream.Data + Position + 4);
    for (uint32 Index = Bounds.End; Index-- > Bounds.Start;) {
        trove_chain_entry const &Entry = Entries[Index];
        uint32 Distance = Position - Entry.Position;
        if (Distance > Alphabets.Window) return 0;
        // The entry gives the length up to 8 bytes without touching the data.
        uint32 Difference = Entry.Key ^ Word;
        if (Difference & 0xFF) continue;
        uint64 Both = ((uint64)(Entry.After ^ After) << 32) | Difference;
        uint32 Length;
        if (Both) {
            Length = Smaller((uint32)__builtin_ctzll(Both) >> 3, MaxLength);
            // Most short matches can't win: known by length without pricing.
            uint32 Bit = 1u << Length;
            if (!(Search.ShortLengthsKnown & Bit)) {
                Search.ShortLengthsKnown |= Bit;
                uint32 Snapped = SnapTroveMatchLength(Length);
                bool Viable = Snapped >= 2 &&
                              MayBeatBest(Encoder, Context, GetTroveLengthSymbol(Snapped), Snapped, Search);
                Search.ShortLengthsViable = (Search.ShortLengthsViable & ~Bit) | (Viable ? Bit : 0);
            }
            if (!(Search.ShortLengthsViable & Bit)) {
                if (Length >= MaxLength) return 1;
                continue;
            }
        } else {
            Length = MaxLength <= 8 ? MaxLength
                                    : 8 + GetMatchLength(Stream.Data, Position + 8, Entry.Position + 8, MaxLength - 8);
        }
        WeighMatch(Encoder, Context, Length, Distance, Alphabets, Search);
        if (Length >= MaxLength) return 1;
    }
    return 2;
}

// Searches the 4-byte chain, newest first, and stops at the first match of
// MaxLength bytes; true when no such match was met. Keys that only share
// the chain are passed over by their first bytes.
bool SearchLongChain(trove_encoder &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                     uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    if (Position >= Encoder.BlockEnd) StartChainBlock(Encoder, Stream, Encoder.BlockEnd);
    uint32 Word = Load32(Stream.Data + Position);
    uint32 Bucket = GetLongBucket(Encoder, Word);
    int32 Stop = SearchChainBlock(Encoder, Encoder.Blocks[Encoder.Block], Bucket, Stream, Position, Context, Word,
                                  MaxLength, Alphabets, Search);
    if (Stop == 2 && Encoder.HavePreviousBlock) {
        Stop = SearchChainBlock(Encoder, Encoder.Blocks[Encoder.Block ^ 1], Bucket, Stream, Position, Context, Word,
                                MaxLength, Alphabets, Search);
    }
    return Stop != 1;
}

// The latest position with the same first 3 bytes, when in the window.
void SearchMiddleChain(trove_encoder const &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                       uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    uint32 Word = Load32(Stream.Data + Position);
    uint32 const Absolute = Encoder.Base + Position;
    uint32 Node = Encoder.MiddleHeads[GetMiddleBucket(Encoder, Word)];
    for (;;) {
        uint32 Distance = Absolute - Node;
        if (Distance - 1 >= Alphabets.Window) return;
        trove_link const &Link = Encoder.Links[Node & Encoder.RingMask];
        if (((Link.Key ^ Word) & 0xFFFFFFu) == 0) {
            WeighCandidate(Encoder, Stream, Position, Context, Word, Link.Key, Distance, MaxLength, Alphabets, Search);
            return;
        }
        Node = Link.NextMiddle;
    }
}

// The latest position with the same first 2 bytes, when in the window.
void SearchShortKey(trove_encoder const &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                    uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    uint32 Word = Load32(Stream.Data + Position);
    uint32 Distance = Encoder.Base + Position - Encoder.ShortKeyPositions[Word & 0xFFFF];
    if (Distance - 1 >= Alphabets.Window) return;
    uint32 Key = Load32(Stream.Data + Position - Distance);
    WeighCandidate(Encoder, Stream, Position, Context, Word, Key, Distance, MaxLength, Alphabets, Search);
}

// The smallest inverse probability any symbol below Alphabet can have.
double GetSmallestInverseProbability(trove_model const &Model, uint32 Alphabet)
{
    uint32 Largest = Model.LargestCount;
    double Smallest = 1e300;
    if (Largest) Smallest = (double)Model.Total / (double)Largest;
    if (Model.SymbolCount < Alphabet) {
        double Unseen = (double)Alphabet * (double)Model.Total / (double)(Model.Counts[0] ? Model.Counts[0] : 1);
        if (Unseen < Smallest) Smallest = Unseen;
    }
    return Smallest;
}

double GetDistanceBound(trove_encoder &Encoder, distance_alphabets const &Alphabets)
{
    if (!Encoder.DistanceBoundValid || Encoder.DistanceBoundAlphabet != (Alphabets.High | (Alphabets.Middle << 16))) {
        // While the window is short the middle alphabet is too; a middle
        // price is then only known to be at least 1.
        double Middle = Alphabets.Middle == 256 ? Encoder.SmallestMiddleBound : 1.0;
        Encoder.DistanceBound = GetSmallestInverseProbability(Encoder.Low, TroveLowAlphabet) *
                                GetSmallestInverseProbability(Encoder.High, Alphabets.High) * Middle;
        Encoder.DistanceBoundAlphabet = Alphabets.High | (Alphabets.Middle << 16);
        Encoder.DistanceBoundValid = true;
    }
    return Encoder.DistanceBound;
}

// Whether no match of the lengths 2 and 3 (those up to MaxLength) can cost
// less per byte than the best so far, whatever its distance. The margin
// keeps rounding from ever dropping a candidate that would have won.
// (The search's distance bound is this search's GetDistanceBound, so the
// least costs it keeps are the ones this would compute.)
bool ShortMatchesCannotWin(trove_encoder const &Encoder, uint32 Context, uint32 MaxLength, match_search &Search)
{
    for (uint32 Length = 2; Length <= 3 && Length <= MaxLength; ++Length) {
        double Cheapest = GetLowestCost(Encoder, Context, Length - 1, Length, Search);
        if (Cheapest < Search.BestCost + 1e-9) return false;
    }
    return true;
}

trove_match FindMatch(trove_encoder &Encoder, stream_state const &Stream, uint32 Position, uint32 Context)
{
    match_search Search;
    Search.Best.Length = 0;
    Search.Best.Distance = 0;
    uint32 Left = Stream.Size - Position;
    distance_alphabets Alphabets = GetDistanceAlphabets(Position);
    if (Left < 2 || Alphabets.Window == 0) return Search.Best;
    Search.BestCost = std::log2(PriceLiteral(Encoder, Context, Position, Stream.Data[Position]));
    Search.DistanceBound = GetDistanceBound(Encoder, Alphabets);
    Search.LowestCostKnown = 0;
    Search.CeilingKnown = 0;
    Search.ShortLengthsKnown = 0;
    Search.LowBound = GetSmallestInverseProbability(Encoder.Low, TroveLowAlphabet);
    Search.BandHigh = ~0u;
    memset(Search.LowPriceKnown, 0, sizeof(Search.LowPriceKnown));
    uint32 MaxLength = Smaller(TroveMaxMatchLength, Left);
    // Every node of the shorter chains is also in the 4-byte chain, so when
    // that chain was walked to its end, the shorter ones can only add matches
    // of 2 or 3 bytes; their walks are skipped when such matches can't win.
    bool LongOnesSeen = MaxLength < 4;
    if (Left >= 3) {
        LongOnesSeen = SearchLongChain(Encoder, Stream, Position, Context, MaxLength, Alphabets, Search) || LongOnesSeen;
    }
    if (Search.Best.Length < 4 && Left >= 3) {
        if (!LongOnesSeen || !ShortMatchesCannotWin(Encoder, Context, MaxLength, Search)) {
            SearchMiddleChain(Encoder, Stream, Position, Context, MaxLength, Alphabets, Search);
        }
    }
    if (Search.Best.Length < 3 && Left >= 2) {
        if (!LongOnesSeen || !ShortMatchesCannotWin(Encoder, Context, MaxLength, Search)) {
            SearchShortKey(Encoder, Stream, Position, Context, MaxLength, Alphabets, Search);
        }
    }
    return Search.Best;
}

// --- coding ---------------------------------------------------------------

void ResetModels(trove_encoder &Encoder)
{
    for (int32 Index = 0; Index < TroveLiteralModelCount; ++Index) {
        ResetModel(Encoder.Literal[Index], TroveLiteralAlphabet, true);
    }
    for (int32 Index = 0; Index < TroveLengthModelCount; ++Index) {
        ResetModel(Encoder.Length[Index], TroveLengthAlphabet, true);
    }
    ResetModel(Encoder.Low, TroveLowAlphabet, true);
    ResetModel(Encoder.High, GetHighAlphabet(TroveWindowLimit), true);
    // A middle model no match has coded with is still as reset.
    for (int32 Index = 0; Index < TroveMiddleModelCount; ++Index) {
        if (!Encoder.AllMiddlesUsed && !Encoder.MiddleUsed[Index]) continue;
        ResetModel(Encoder.Middle[Index], GetMiddleAlphabet(TroveWindowLimit), true);
        Encoder.MiddleUsed[Index] = 0;
    }
    Encoder.AllMiddlesUsed = false;
}

trove_parameters GetStreamParameters(trove_encoder const &Encoder)
{
    uint32 Literal = 0;
    for (int32 Index = 0; Index < TroveLiteralModelCount; ++Index) {
        if (Encoder.Literal[Index].HighWater > Literal) Literal = Encoder.Literal[Index].HighWater;
    }
    uint32 Groups[4] = {0, 0, 0, 0};
    for (int32 Index = 0; Index < TroveLengthModelCount; ++Index) {
        int32 Group = Index < 64 ? Index / 16 : 3;
        if (Encoder.Length[Index].HighWater > Groups[Group]) Groups[Group] = Encoder.Length[Index].HighWater;
    }
    return MakeTroveParameters(Literal, Encoder.High.HighWater, Groups);
}

void EmitLiteral(trove_encoder &Encoder, uint32 &Context, uint32 Position, uint8 Byte)
{
    EncodeModelSymbol(Encoder.Coder, Encoder.Length[Context], 0, TroveLengthAlphabet);
    Context = 0;
    EncodeModelSymbol(Encoder.Coder, Encoder.Literal[Position & 3], Byte, TroveLiteralAlphabet);
}

void EmitMatch(trove_encoder &Encoder, uint32 &Context, uint32 Position, trove_match const &Match)
{
    Encoder.DistanceBoundValid = false;
    distance_alphabets Alphabets = GetDistanceAlphabets(Position);
    uint32 Symbol = GetTroveLengthSymbol(Match.Length);
    EncodeModelSymbol(Encoder.Coder, Encoder.Length[Context], Symbol, TroveLengthAlphabet);
    Context = Symbol;
    uint32 Value = Match.Distance - 1;
    uint32 High = Value >> 10;
    EncodeModelSymbol(Encoder.Coder, Encoder.Low, Value & 3, TroveLowAlphabet);
    EncodeModelSymbol(Encoder.Coder, Encoder.High, High, Alphabets.High);
    EncodeModelSymbol(Encoder.Coder, Encoder.Middle[High], (Value >> 2) & 0xFF, Alphabets.Middle);
    Encoder.MiddleUsed[High] = 1;
    Encoder.MiddleBounds[High] = GetSmallestInverseProbability(Encoder.Middle[High], 256);
    double Smallest = Encoder.MiddleBounds[0];
    for (int32 Index = 1; Index < TroveMiddleModelCount; ++Index) {
        if (Encoder.MiddleBounds[Index] < Smallest) Smallest = Encoder.MiddleBounds[Index];
    }
    Encoder.SmallestMiddleBound = Smallest;
}

// Whether a run of literals prices below a short match: the bytes are
// weighed one after another as if each literal had already been coded.
bool LiteralsBeatMatch(trove_encoder &Encoder, stream_state const &Stream, uint32 Position, uint32 Length,
                       double MatchProduct, double LiteralProduct)
{
    uint8 const *Data = Stream.Data;
    trove_model *Weighted[8];
    uint32 WeightedRanks[8];
    uint32 WeightCount = 0;
    double Product = LiteralProduct;
    for (uint32 Index = 1; Index < Length && Product <= MatchProduct; ++Index) {
        trove_model &Model = Encoder.Literal[(Position + Index - 1) & 3];
        uint32 Rank = Model.RankMap[Data[Position + Index - 1]];
        if (Rank) {
            ++Model.Counts[Rank];
            ++Model.Total;
            Weighted[WeightCount] = &Model;
            WeightedRanks[WeightCount++] = Rank;
        }
        Product *= PriceLength(Encoder, 0, 0) * GetInverseProbability(Encoder.Literal[(Position + Index) & 3],
                                                                      Data[Position + Index], TroveLiteralAlphabet);
    }
    while (WeightCount) {
        --WeightCount;
        --Weighted[WeightCount]->Counts[WeightedRanks[WeightCount]];
        --Weighted[WeightCount]->Total;
    }
    return MatchProduct > Product;
}

} // namespace

uint32 SnapTroveMatchLength(uint32 Length)
{
    if (Length >= 512) return 512;
    if (Length >= 256) return 256;
    if (Length >= 192) return 192;
    // Exactly 128 goes down to 61 like the lengths below it.
    if (Length > 128) return 128;
    if (Length > 61) return 61;
    return Length < 2 ? 0 : Length;
}

uint32 GetTroveLengthSymbol(uint32 Length)
{
    switch (Length) {
    case 512: return 64;
    case 256: return 63;
    case 192: return 62;
    case 128: return 61;
    default: return Length - 1;
    }
}

uint32 GetTroveSymbolLength(uint32 Symbol)
{
    static uint32 const LongLengths[4] = {128, 192, 256, 512};
    return Symbol < 61 ? Symbol + 1 : LongLengths[(Symbol - 61) & 3];
}

static int32 GetRingSize(uint32 MaxStreamSize)
{
    // A ring at least as long as the stream never wraps, so a smaller one
    // finds exactly what the full window would.
    uint32 Size = 1024;
    while (Size < MaxStreamSize && Size < (uint32)TroveRingSize) Size <<= 1;
    return (int32)Size;
}

static int32 GetModelUnits()
{
    int32 Units = TroveLiteralModelCount * GetModelArrayUnits(TroveLiteralAlphabet, TroveLiteralAlphabet, true);
    Units += TroveLengthModelCount * GetModelArrayUnits(TroveLengthAlphabet, TroveLengthAlphabet, true);
    Units += GetModelArrayUnits(TroveLowAlphabet, TroveLowAlphabet, true);
    uint32 High = GetHighAlphabet(TroveWindowLimit);
    Units += GetModelArrayUnits(High, High, true);
    uint32 Middle = GetMiddleAlphabet(TroveWindowLimit);
    Units += TroveMiddleModelCount * GetModelArrayUnits(Middle, Middle, true);
    return Units;
}

intaddrx GetTroveEncoderWorkSize(uint32 MaxStreamSize)
{
    intaddrx Ring = GetRingSize(MaxStreamSize);
    intaddrx Size = (intaddrx)sizeof(trove_link) * Ring;
    Size += (intaddrx)sizeof(uint32) * 65536;
    Size += (intaddrx)sizeof(uint32) << GetMiddleHashBits((uint32)Ring);
    // A second block only when a stream may be longer than the ring.
    intaddrx Blocks = MaxStreamSize > (uint32)Ring ? 2 : 1;
    Size += Blocks * ((intaddrx)sizeof(trove_chain_entry) * Ring + (intaddrx)sizeof(trove_chain_bounds) * GetLongHeadCount());
    Size += (intaddrx)sizeof(uint16) * GetModelUnits();
    return (Size + 7) & ~(intaddrx)7;
}

static uint16 *PlaceEncoderModel(trove_model &Model, uint16 *Memory, uint32 Alphabet)
{
    PlaceModel(Model, Memory, Alphabet, Alphabet, true);
    return Memory + GetModelArrayUnits(Alphabet, Alphabet, true);
}

void BeginTroveEncoder(trove_encoder &Encoder, void *Memory, uint32 MaxStreamSize, uint8 *OutputStart,
                       uint8 *OutputLimit)
{
    uint8 *Cursor = (uint8 *)Memory;
    int32 RingSize = GetRingSize(MaxStreamSize);
    Encoder.RingMask = (uint32)RingSize - 1;
    Encoder.Links = (trove_link *)Cursor;
    Cursor += sizeof(trove_link) * (size_t)RingSize;
    Encoder.ShortKeyPositions = (uint32 *)Cursor;
    Cursor += sizeof(uint32) * 65536;
    Encoder.MiddleHeads = (uint32 *)Cursor;
    Encoder.MiddleHashBits = GetMiddleHashBits((uint32)RingSize);
    Cursor += sizeof(uint32) << Encoder.MiddleHashBits;
    Encoder.LongHeadCount = GetLongHeadCount();
    Encoder.LongHeadReciprocal = ~(uint64)0 / Encoder.LongHeadCount + 1;
    for (int32 Index = 0; Index < 2; ++Index) {
        trove_chain_block &Block = Encoder.Blocks[Index];
        Block.Clean = false;
        Block.Sparse = false;
        Block.First = Block.End = 0;
        if (Index == 1 && MaxStreamSize <= (uint32)RingSize) {
            Block.Entries = 0;
            Block.Chains = 0;
            continue;
        }
        Block.Entries = (trove_chain_entry *)Cursor;
        Cursor += sizeof(trove_chain_entry) * (size_t)RingSize;
        Block.Chains = (trove_chain_bounds *)Cursor;
        Cursor += sizeof(trove_chain_bounds) * Encoder.LongHeadCount;
    }
    uint16 *Units = (uint16 *)Cursor;
    for (int32 Index = 0; Index < TroveLiteralModelCount; ++Index) {
        Units = PlaceEncoderModel(Encoder.Literal[Index], Units, TroveLiteralAlphabet);
    }
    for (int32 Index = 0; Index < TroveLengthModelCount; ++Index) {
        Units = PlaceEncoderModel(Encoder.Length[Index], Units, TroveLengthAlphabet);
    }
    Units = PlaceEncoderModel(Encoder.Low, Units, TroveLowAlphabet);
    Units = PlaceEncoderModel(Encoder.High, Units, GetHighAlphabet(TroveWindowLimit));
    for (int32 Index = 0; Index < TroveMiddleModelCount; ++Index) {
        Units = PlaceEncoderModel(Encoder.Middle[Index], Units, GetMiddleAlphabet(TroveWindowLimit));
    }
    ClearPositionTables(Encoder);
    Encoder.StreamsCoded = 0;
    Encoder.AllMiddlesUsed = true;
    memset(Encoder.MiddleUsed, 0, sizeof(Encoder.MiddleUsed));
    Encoder.ProgressCallback = 0;
    Encoder.ProgressData = 0;
    BeginRangeEncoder(Encoder.Coder, OutputStart, OutputLimit);
}

void EncodeTroveStream(trove_encoder &Encoder, uint8 const *Data, uint32 Size)
{
    if (Size == 0) {
        // An empty stream codes nothing: its record is that of models as
        // reset, and the models and match finder are left for the next.
        uint32 const NoGroups[4] = {0, 0, 0, 0};
        if (Encoder.StreamsCoded < 3) Encoder.Parameters[Encoder.StreamsCoded] = MakeTroveParameters(0, 0, NoGroups);
        ++Encoder.StreamsCoded;
        return;
    }
    ResetModels(Encoder);
    Encoder.DistanceBoundValid = false;
    for (int32 Index = 0; Index < TroveMiddleModelCount; ++Index) {
        Encoder.MiddleBounds[Index] = GetSmallestInverseProbability(Encoder.Middle[Index], 256);
    }
    Encoder.SmallestMiddleBound = Encoder.MiddleBounds[0];
    stream_state Stream;
    Stream.Data = Data;
    Stream.Size = Size;
    StartMatchFinder(Encoder, Stream);

    uint32 Context = 0;
    uint32 Position = 0;
    bool HaveLazy = false;
    trove_match Lazy = {0, 0};
    uint32 Reported = 0;
    while (Position < Size) {
        if (Position - Reported >= TroveProgressInterval && Encoder.ProgressCallback) {
            Encoder.ProgressCallback(Encoder.ProgressData, Position - Reported);
            Reported = Position;
        }
        trove_match Match = HaveLazy ? Lazy : FindMatch(Encoder, Stream, Position, Context);
        HaveLazy = false;
        InsertPosition(Encoder, Stream, Position);

        bool Literal = Match.Length < 2;
        if (!Literal && Match.Length < 6) {
            distance_alphabets Alphabets = GetDistanceAlphabets(Position);
            double DistancePrice = PriceDistance(Encoder, Match.Distance, Alphabets);
            double MatchProduct = PriceLength(Encoder, Context, GetTroveLengthSymbol(Match.Length)) * DistancePrice;
            double LiteralProduct = PriceLiteral(Encoder, Context, Position, Data[Position]);
            Literal = LiteralsBeatMatch(Encoder, Stream, Position, Match.Length, MatchProduct, LiteralProduct);
            if (!Literal && Position + 1 < Size) {
                // Lazy step: would a literal and then a match at the next
                // position do better?
                Lazy = FindMatch(Encoder, Stream, Position + 1, 0);
                HaveLazy = true;
                if (Lazy.Length >= 2) {
                    double Product =
                        LiteralProduct * PriceLength(Encoder, 0, GetTroveLengthSymbol(Lazy.Length)) * DistancePrice;
                    double LazyRate = (double)(Lazy.Length + 1) / std::log2(Product);
                    double PresentRate = (double)Match.Length / std::log2(MatchProduct);
                    Literal = LazyRate > PresentRate;
                }
            }
        }

        if (Literal) {
            EmitLiteral(Encoder, Context, Position, Data[Position]);
            ++Position;
            continue;
        }
        HaveLazy = false;
        EmitMatch(Encoder, Context, Position, Match);
        uint32 End = Position + Match.Length;
        for (++Position; Position < End; ++Position) {
            if (Size - Position > 2) InsertPosition(Encoder, Stream, Position);
        }
    }

    // Short blocks are cleared while their positions can still be read.
    for (int32 Index = 0; Index < 2; ++Index) {
        if (Encoder.Blocks[Index].Sparse) ClearChainBlock(Encoder, Encoder.Blocks[Index], Data);
    }
    if (Size > Reported && Encoder.ProgressCallback) Encoder.ProgressCallback(Encoder.ProgressData, Size - Reported);
    if (Encoder.StreamsCoded < 3) Encoder.Parameters[Encoder.StreamsCoded] = GetStreamParameters(Encoder);
    ++Encoder.StreamsCoded;
}

bool EndTroveEncoder(trove_encoder &Encoder, uint32 *CodedSize)
{
    *CodedSize = EndRangeEncoder(Encoder.Coder);
    return !Encoder.Coder.Overflowed;
}
