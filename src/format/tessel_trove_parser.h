// The Trove1 encoder: a match finder over the latest position of each
// 2-byte key and two hash chains (keys of the first 3 and 4 bytes) and a parser that prices every
// choice with the adaptive models it codes with, then codes its decisions
// through the range coder.
#pragma once

#include "foundation/tessel_types.h"
#include "format/tessel_range_coder.h"
#include "format/tessel_trove_model.h"

enum
{
    // The ring of match nodes covers the whole window.
    TroveRingSize = TroveWindowLimit + 1,
    // Bytes readable past the end of a stream given to the parser (all zero).
    TroveInputPadding = 8,
};

// A position in the 3-byte chains, by ring slot: the chain's next older
// position and the first 4 bytes at the position. Positions in these chains
// and in the table of 2-byte keys count from the encoder's first stream on
// (each stream starts at least a ring's length past the last one's end, on
// a whole number of rings), so an entry left from an earlier stream or out
// of the window shows it by its distance alone, and nothing is unlinked
// when a position leaves the window.
struct trove_link
{
    uint32 NextMiddle;
    uint32 Key;
};

// A position of the 4-byte chains. A stream is cut into blocks of a ring's
// length; a block's chains lie one after another, each in order of
// position, so that a search reads them without following links: first
// in the present block, then in the one before.
struct trove_chain_entry
{
    uint32 Position;
    uint32 Key;   // the first 4 bytes at the position
    uint32 After; // the 4 bytes after those
};

struct trove_chain_bounds
{
    uint32 Start; // the chain's first entry
    uint32 End;   // the end of those entered so far
};

struct trove_chain_block
{
    trove_chain_entry *Entries;
    trove_chain_bounds *Chains; // by bucket
    // The positions it was laid out for, whether its bounds are all zero,
    // and whether only the chains of those positions were set (a short
    // block is laid out without touching the whole table).
    uint32 First;
    uint32 End;
    bool8 Clean;
    bool8 Sparse;
};

struct trove_encoder
{
    range_encoder Coder;
    trove_model Literal[TroveLiteralModelCount];
    trove_model Length[TroveLengthModelCount];
    trove_model Low;
    trove_model High;
    trove_model Middle[TroveMiddleModelCount];

    // By ring slot.
    trove_link *Links;
    uint32 RingMask;
    // The latest position of each 2-byte key.
    uint32 *ShortKeyPositions;
    // The latest position of each 3-byte chain (2^MiddleHashBits of them,
    // by a hash of the key).
    uint32 *MiddleHeads;
    uint32 MiddleHashBits;
    // The 4-byte chains: LongHeadCount of them, by the key folded to that
    // count (floor(2^64 / LongHeadCount) + 1 folds by multiplication).
    uint32 LongHeadCount;
    uint64 LongHeadReciprocal;
    trove_chain_block Blocks[2];
    // The present block (0 or 1), where it ends, and whether the other one
    // holds the block before it.
    int32 Block;
    uint32 BlockEnd;
    bool8 HavePreviousBlock;
    // The position of this stream's first byte, counted as above, and that
    // of the next stream (0xFFFFFFFF or more: the tables must start over).
    uint32 Base;
    uint64 NextBase;
    uint32 Run;
    bool8 RunValid;
    uint32 Skip;

    // Lower bound of the price of any distance under the low and high
    // models, kept until a match changes them or the high alphabet grows.
    bool8 DistanceBoundValid;
    uint32 DistanceBoundAlphabet;
    double DistanceBound;
    // The same for each middle model at its full alphabet, and their least.
    double MiddleBounds[TroveMiddleModelCount];
    double SmallestMiddleBound;

    int32 StreamsCoded;
    trove_parameters Parameters[3];

    // What a stream start must put back: the middle models a match has coded
    // with (all of them at first, when the memory is new).
    bool8 AllMiddlesUsed;
    uint8 MiddleUsed[TroveMiddleModelCount];

    // Told the bytes of a stream parsed since its last call, every
    // TroveProgressInterval bytes and at the stream's end (may be null).
    void (*ProgressCallback)(void *Data, uint32 Bytes);
    void *ProgressData;
};

enum
{
    TroveProgressInterval = 1 << 16,
};

// Work memory of an encoder whose largest stream is MaxStreamSize bytes:
// the models, the match nodes and the chain heads (not the output).
intaddrx GetTroveEncoderWorkSize(uint32 MaxStreamSize);
// Points the encoder's arrays into Memory (GetTroveEncoderWorkSize bytes,
// 8-aligned) and starts the range coder on the output buffer, which must
// have one writable byte before OutputStart.
void BeginTroveEncoder(trove_encoder &Encoder, void *Memory, uint32 MaxStreamSize, uint8 *OutputStart,
                       uint8 *OutputLimit);
// Codes one stream. Data must be followed by TroveInputPadding zero bytes.
// Stores the stream's parameter record.
void EncodeTroveStream(trove_encoder &Encoder, uint8 const *Data, uint32 Size);
// Flushes the coder; the coded byte count, or false when the output
// buffer was too small.
bool EndTroveEncoder(trove_encoder &Encoder, uint32 *CodedSize);

// How the parser snaps a match length to one it can code (0 below 2), and
// the length symbol of a codable length.
uint32 SnapTroveMatchLength(uint32 Length);
uint32 GetTroveLengthSymbol(uint32 Length);
// The length a length symbol stands for (symbols 1 to 64).
uint32 GetTroveSymbolLength(uint32 Symbol);
