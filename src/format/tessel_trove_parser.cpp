#include "format/tessel_trove_parser.h"

#include <cmath>
#include <cstring>

namespace {

uint32 const NoNode = 0xFFFFFFFFu;
uint32 const NotLinked = 0xFFFFFFFEu;
uint32 const HeadLink = 0x80000000u;

// Chain 0 keys on 2 bytes, chain 1 on 3, chain 2 on 4.
uint32 const KeyMasks[TroveChainCount] = {0xFFFFu, 0xFFFFFFu, 0xFFFFFFFFu};
// An older node of chain 1 this much alike is dropped when a new one is
// linked (chain 0 keeps the latest position of a key, chain 2 keeps all).
uint32 const DuplicateMask = 0x0FFFFFFFu;

uint32 GetChainTableSize(int32 Chain)
{
    uint32 const Window = TroveRingSize;
    uint32 const Divisors[TroveChainCount] = {16, 8, 4};
    uint32 const Limits[TroveChainCount] = {14, 36, 48};
    uint32 const Less[TroveChainCount] = {7, 29, 41};
    uint32 Size = Window / Divisors[Chain];
    return Size > Limits[Chain] ? Size - Less[Chain] : 7;
}

inline uint32 HashLongKey(trove_encoder const &Encoder, uint32 Key)
{
    return ((Key & 0x0FFFFFFFu) * 2654435761u) >> (32 - Encoder.LongKeyHashBits);
}

// Twice as many count entries as ring slots, at most 2^20.
uint32 GetLongKeyHashBits(uint32 RingSize)
{
    uint32 Bits = 11;
    while ((1u << Bits) < RingSize * 2 && Bits < 20) ++Bits;
    return Bits;
}

// The chain table entry of a key: folded (remainder plus quotient) until it
// fits, each division done as a multiplication by the table's reciprocal,
// which is exact for any 32-bit key.
inline uint32 GetBucket(trove_encoder const &Encoder, int32 Chain, uint32 Key)
{
    uint32 const TableSize = Encoder.HeadCount[Chain];
    uint64 const Reciprocal = Encoder.HeadReciprocal[Chain];
    while (Key >= TableSize) {
        uint32 Quotient = (uint32)(((unsigned __int128)Key * Reciprocal) >> 64);
        Key = (Key - Quotient * TableSize) + Quotient;
    }
    return Key;
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

inline uint32 KeyOf(trove_encoder const &Encoder, uint32 Index)
{
    return Encoder.LongLinks[Index].Key;
}

// Chain 1, the 3-byte chain, links ring slots both ways: a node leaves it
// when a newer position of the same 28-bit prefix comes in.
inline void Unlink(trove_encoder &Encoder, uint32 Index)
{
    trove_slot *Slots = Encoder.Slots;
    uint32 Prev = Slots[Index].Prev;
    if (Prev == NotLinked) return;
    uint32 Next = Slots[Index].Next;
    if (Prev & HeadLink) {
        Encoder.Heads[1][Prev & ~HeadLink] = Next;
    } else {
        Slots[Prev].Next = Next;
    }
    if (Next != NoNode) Slots[Next].Prev = Prev;
    Slots[Index].Prev = NotLinked;
    Slots[Index].Next = NoNode;
    --Encoder.LongKeyCounts[HashLongKey(Encoder, KeyOf(Encoder, Index))];
}

// Node To takes From's place in the 3-byte chain (To's key is already set).
inline void Replace(trove_encoder &Encoder, uint32 From, uint32 To)
{
    trove_slot *Slots = Encoder.Slots;
    uint32 Prev = Slots[From].Prev;
    uint32 Next = Slots[From].Next;
    Slots[To].Prev = Prev;
    Slots[To].Next = Next;
    if (Prev & HeadLink) {
        Encoder.Heads[1][Prev & ~HeadLink] = To;
    } else {
        Slots[Prev].Next = To;
    }
    if (Next != NoNode) Slots[Next].Prev = To;
    Slots[From].Prev = NotLinked;
    Slots[From].Next = NoNode;
}

// Links a node whose key is already set at the head of the 3-byte chain.
inline void LinkHead(trove_encoder &Encoder, uint32 Bucket, uint32 Index)
{
    trove_slot *Slots = Encoder.Slots;
    uint32 First = Encoder.Heads[1][Bucket];
    Slots[Index].Next = First;
    Slots[Index].Prev = HeadLink | Bucket;
    if (First != NoNode) Slots[First].Prev = Index;
    Encoder.Heads[1][Bucket] = Index;
}

// Clears the position tables: positions then start a ring's length on, so
// that an empty entry (0) is out of any window.
void ClearPositionTables(trove_encoder &Encoder)
{
    memset(Encoder.Heads[2], 0, sizeof(uint32) * Encoder.HeadCount[2]);
    memset(Encoder.ShortKeyPositions, 0, sizeof(uint32) * 65536);
    Encoder.Base = Encoder.RingMask + 1;
    Encoder.NextBase = Encoder.Base;
}

void ClearMatchFinder(trove_encoder &Encoder, uint32 Size)
{
    Encoder.Run = 0;
    Encoder.RunValid = false;
    Encoder.Skip = 0;
    // Each stream starts at least a ring's length past the last one's end;
    // before the positions could overflow, the tables start over.
    if ((uint64)Encoder.NextBase + Size > 0xFFFFFFFFu) ClearPositionTables(Encoder);
    Encoder.Base = Encoder.NextBase;
    // On a whole number of rings, so that a position's slot is the same
    // counted from here or from the stream's start.
    uint64 const Ring = Encoder.RingMask + 1;
    Encoder.NextBase = ((uint64)Encoder.Base + Size + 2 * Ring - 1) / Ring * Ring;
    // An unused match finder is still clear.
    if (!Encoder.MatchFinderUsed) return;
    Encoder.MatchFinderUsed = false;
    // New memory is cleared whole.
    bool Whole = Encoder.UsedSlots > Encoder.RingMask;
    uint32 Count = Whole ? Encoder.RingMask + 1 : Encoder.UsedSlots;
    uint32 TableEntries = (1u << Encoder.LongKeyHashBits) + Encoder.HeadCount[1];
    trove_slot *Slots = Encoder.Slots;
    if (!Whole && Count * 8 < TableEntries) {
        // Few slots were used: only the table entries of their nodes can be
        // set (a set entry always names a linked node with its key).
        for (uint32 Index = 0; Index < Count; ++Index) {
            if (Slots[Index].Prev == NotLinked) continue;
            uint32 Key = KeyOf(Encoder, Index);
            Encoder.Heads[1][GetBucket(Encoder, 1, Key & KeyMasks[1])] = NoNode;
            Encoder.LongKeyCounts[HashLongKey(Encoder, Key)] = 0;
        }
    } else {
        memset(Encoder.Heads[1], 0xFF, sizeof(uint32) * Encoder.HeadCount[1]);
        memset(Encoder.LongKeyCounts, 0, sizeof(uint16) << Encoder.LongKeyHashBits);
    }
    trove_slot Clear;
    Clear.Next = NoNode;
    Clear.Prev = NotLinked;
    Clear.Run = 0;
    for (uint32 Index = 0; Index < Count; ++Index) Slots[Index] = Clear;
}

// Retires the oldest node of the ring and enters Position in the chains.
void InsertPosition(trove_encoder &Encoder, stream_state const &Stream, uint32 Position)
{
    uint8 const *Data = Stream.Data;
    uint32 Slot = Position & Encoder.RingMask;
    trove_slot *Slots = Encoder.Slots;
    if (Slots[Slot].Prev != NotLinked) {
        // The node stands for the position one ring length back.
        if (Slots[Slot].Run >= 4) {
            // One node keeps standing for the run: the same bytes one
            // position further on.
            uint32 NextSlot = (Slot + 1) & Encoder.RingMask;
            Unlink(Encoder, NextSlot);
            Encoder.LongLinks[NextSlot].Key = Load32(Data + Position - Encoder.RingMask);
            Replace(Encoder, Slot, NextSlot);
            Slots[NextSlot].Run = Slots[Slot].Run - 1;
        } else {
            Unlink(Encoder, Slot);
        }
    }

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
        Slots[Slot].Run = Encoder.Run;
        trove_long_link &Link = Encoder.LongLinks[Slot];
        Link.Key = Key;
        uint32 &Head = Encoder.Heads[2][GetBucket(Encoder, 2, Key)];
        Link.Next = Head;
        Head = Absolute;
        Encoder.ShortKeyPositions[Key & 0xFFFF] = Absolute;
        // The 3-byte chain never holds two nodes of one 28-bit prefix, so the
        // walk ends at the first, and only runs when the hash says one may be there.
        uint16 &Count = Encoder.LongKeyCounts[HashLongKey(Encoder, Key)];
        bool MayHaveOlder = Count != 0;
        LinkHead(Encoder, GetBucket(Encoder, 1, Key & KeyMasks[1]), Slot);
        ++Count;
        if (MayHaveOlder) {
            for (uint32 Scan = Slots[Slot].Next; Scan != NoNode; Scan = Slots[Scan].Next) {
                if (((KeyOf(Encoder, Scan) ^ Key) & DuplicateMask) == 0) {
                    Unlink(Encoder, Scan);
                    break;
                }
            }
        }
        Encoder.Skip = Encoder.Run;
    }

    uint32 Run = Encoder.Run;
    bool Extends = Run != 0 && Position + Run + 1 < Stream.Size && Data[Position + Run + 1] == First;
    if (!Extends && Run) --Encoder.Run;
    if (Encoder.Skip) --Encoder.Skip;
    if (Encoder.Run == 0) Encoder.RunValid = false;

    // The next position's search and entry start at its chain heads and key
    // tables: they are fetched while this one's work goes on (unless a run
    // keeps it out of the chains).
    if (Encoder.Skip < 3 && Position + 1 < Stream.Size) {
        uint32 Next = Load32(Data + Position + 1);
        __builtin_prefetch(&Encoder.Heads[1][GetBucket(Encoder, 1, Next & KeyMasks[1])]);
        __builtin_prefetch(&Encoder.Heads[2][GetBucket(Encoder, 2, Next)]);
        __builtin_prefetch(&Encoder.ShortKeyPositions[Next & 0xFFFF]);
        __builtin_prefetch(&Encoder.LongKeyCounts[HashLongKey(Encoder, Next)]);
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
    uint8 LowestCostKnown[TroveLengthAlphabet];
    double DistanceBound;
    // A product of inverse probabilities above Ceiling[symbol] costs more
    // per byte than the best so far (filled as symbols come up, cleared
    // when the best changes).
    double Ceiling[TroveLengthAlphabet];
    uint8 CeilingKnown[TroveLengthAlphabet];
    // The least distance price within the present 1024-byte band of
    // distances (the high value is known, low and middle are bounded).
    double LowBound;
    uint32 BandHigh;
    double BandBound;
};

// Candidates whose least possible cost is this much above the best so far
// are passed over unpriced; the margin is far above any rounding of log2.
double const PriceMargin = 1e-9;

inline double GetLowestCost(trove_encoder const &Encoder, uint32 Context, uint32 Symbol, uint32 Snapped,
                            match_search &Search)
{
    if (!Search.LowestCostKnown[Symbol]) {
        Search.LowestCost[Symbol] =
            std::log2(PriceLength(Encoder, Context, Symbol) * Search.DistanceBound) / (double)Snapped;
        Search.LowestCostKnown[Symbol] = 1;
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
    if (!Search.CeilingKnown[Symbol]) {
        Search.Ceiling[Symbol] = std::exp2(Search.BestCost * (double)Snapped) * (1.0 + 1e-6);
        Search.CeilingKnown[Symbol] = 1;
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
        Search.BandBound = Search.LowBound * GetInverseProbability(Encoder.High, High, Alphabets.High) * Middle;
        Search.BandHigh = High;
    }
    return Search.BandBound;
}

// Prices the candidate Distance bytes back, whose first 4 bytes are Key,
// against the best so far; its match length.
inline uint32 WeighCandidate(trove_encoder const &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                             uint32 Word, uint32 Key, uint32 Distance, uint32 MaxLength,
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
    uint32 Snapped = SnapTroveMatchLength(Length);
    uint32 Symbol = GetTroveLengthSymbol(Snapped);
    if (Snapped >= 2 && MayBeatBest(Encoder, Context, Symbol, Snapped, Search)) {
        double LengthPrice = PriceLength(Encoder, Context, Symbol);
        double Ceiling = GetCeiling(Symbol, Snapped, Search);
        if (LengthPrice * GetBandBound(Encoder, (Distance - 1) >> 10, Alphabets, Search) <= Ceiling) {
            double Product = LengthPrice * PriceDistance(Encoder, Distance, Alphabets);
            if (Product <= Ceiling) {
                double Cost = std::log2(Product) / (double)Snapped;
                if (Cost < Search.BestCost) {
                    Search.BestCost = Cost;
                    Search.Best.Length = Snapped;
                    Search.Best.Distance = Distance;
                    memset(Search.CeilingKnown, 0, sizeof(Search.CeilingKnown));
                }
            }
        }
    }
    return Length;
}

// Searches the 4-byte chain, newest first, and stops at the first match of
// MaxLength bytes; true when no such match was met.
bool SearchLongChain(trove_encoder const &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                     uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    uint32 Word = Load32(Stream.Data + Position);
    uint32 const Absolute = Encoder.Base + Position;
    uint32 Node = Encoder.Heads[2][GetBucket(Encoder, 2, Word)];
    // The chain runs from newer to older positions: the first one out of
    // the window ends it (every position within it still has its slot).
    for (;;) {
        uint32 Distance = Absolute - Node;
        if (Distance - 1 >= Alphabets.Window) return true;
        trove_long_link const &Link = Encoder.LongLinks[Node & Encoder.RingMask];
        uint32 Length = WeighCandidate(Encoder, Stream, Position, Context, Word, Link.Key, Distance, MaxLength,
                                       Alphabets, Search);
        if (Length >= MaxLength) return false;
        Node = Link.Next;
    }
}

// Searches the 3-byte chain; it stops at its first match of 3 bytes.
void SearchMiddleChain(trove_encoder const &Encoder, stream_state const &Stream, uint32 Position, uint32 Context,
                       uint32 MaxLength, distance_alphabets const &Alphabets, match_search &Search)
{
    uint32 Word = Load32(Stream.Data + Position);
    uint32 Index = Encoder.Heads[1][GetBucket(Encoder, 1, Word & KeyMasks[1])];
    uint32 const Mask = Encoder.RingMask;
    for (; Index != NoNode; Index = Encoder.Slots[Index].Next) {
        // Every position before this one is in the ring, so the node's slot
        // tells its distance.
        uint32 Distance = 1 + ((Position - 1 - Index) & Mask);
        if (Distance > Alphabets.Window) continue;
        uint32 Length = WeighCandidate(Encoder, Stream, Position, Context, Word, KeyOf(Encoder, Index), Distance,
                                       MaxLength, Alphabets, Search);
        if (Length >= 3) return;
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
    double Smallest = 1e300;
    uint32 Largest = 0;
    for (uint32 Rank = 1; Rank <= Model.SymbolCount; ++Rank) {
        if (Model.Counts[Rank] > Largest) Largest = Model.Counts[Rank];
    }
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
    memset(Search.LowestCostKnown, 0, sizeof(Search.LowestCostKnown));
    memset(Search.CeilingKnown, 0, sizeof(Search.CeilingKnown));
    Search.LowBound = GetSmallestInverseProbability(Encoder.Low, TroveLowAlphabet);
    Search.BandHigh = ~0u;
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
    intaddrx Size = ((intaddrx)sizeof(trove_slot) + (intaddrx)sizeof(trove_long_link)) * Ring;
    Size += (intaddrx)sizeof(uint32) * 65536;
    Size += (intaddrx)sizeof(uint16) << GetLongKeyHashBits((uint32)Ring);
    for (int32 Chain = 1; Chain < TroveChainCount; ++Chain) Size += (intaddrx)sizeof(uint32) * GetChainTableSize(Chain);
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
    Encoder.LongLinks = (trove_long_link *)Cursor;
    Cursor += sizeof(trove_long_link) * (size_t)RingSize;
    Encoder.Slots = (trove_slot *)Cursor;
    Cursor += sizeof(trove_slot) * (size_t)RingSize;
    Encoder.ShortKeyPositions = (uint32 *)Cursor;
    Cursor += sizeof(uint32) * 65536;
    Encoder.LongKeyCounts = (uint16 *)Cursor;
    Encoder.LongKeyHashBits = GetLongKeyHashBits((uint32)RingSize);
    Cursor += sizeof(uint16) << Encoder.LongKeyHashBits;
    // The 2-byte keys need no chain: only the latest position of a key is kept.
    Encoder.Heads[0] = 0;
    Encoder.HeadCount[0] = 0;
    Encoder.HeadReciprocal[0] = 0;
    for (int32 Chain = 1; Chain < TroveChainCount; ++Chain) {
        Encoder.Heads[Chain] = (uint32 *)Cursor;
        Encoder.HeadCount[Chain] = GetChainTableSize(Chain);
        Encoder.HeadReciprocal[Chain] = ~(uint64)0 / Encoder.HeadCount[Chain] + 1;
        Cursor += sizeof(uint32) * Encoder.HeadCount[Chain];
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
    Encoder.MatchFinderUsed = true;
    Encoder.UsedSlots = ~0u;
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
    ClearMatchFinder(Encoder, Size);
    Encoder.MatchFinderUsed = true;
    // Positions enter their own slots; a retired run node moves one on.
    Encoder.UsedSlots = Size < Encoder.RingMask ? Size + 1 : ~0u;
    Encoder.DistanceBoundValid = false;
    for (int32 Index = 0; Index < TroveMiddleModelCount; ++Index) {
        Encoder.MiddleBounds[Index] = GetSmallestInverseProbability(Encoder.Middle[Index], 256);
    }
    Encoder.SmallestMiddleBound = Encoder.MiddleBounds[0];
    stream_state Stream;
    Stream.Data = Data;
    Stream.Size = Size;

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

    if (Size > Reported && Encoder.ProgressCallback) Encoder.ProgressCallback(Encoder.ProgressData, Size - Reported);
    if (Encoder.StreamsCoded < 3) Encoder.Parameters[Encoder.StreamsCoded] = GetStreamParameters(Encoder);
    ++Encoder.StreamsCoded;
}

bool EndTroveEncoder(trove_encoder &Encoder, uint32 *CodedSize)
{
    *CodedSize = EndRangeEncoder(Encoder.Coder);
    return !Encoder.Coder.Overflowed;
}
