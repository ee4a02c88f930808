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

// A position in the match finder, by ring slot: the next older position of
// its 4-byte chain and of its 3-byte chain, and the first 4 bytes at it.
// Positions count from the encoder's first stream on (each stream starts at
// least a ring's length past the last one's end, on a whole number of
// rings), so an entry left from an earlier stream or out of the window
// shows it by its distance alone, and nothing is unlinked when a position
// leaves the window.
struct trove_link
{
    uint32 NextLong;
    uint32 NextMiddle;
    uint32 Key;
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
    // by a hash of the key), and of each 4-byte chain (LongHeadCount of
    // them, by the key folded to that count).
    uint32 *MiddleHeads;
    uint32 MiddleHashBits;
    uint32 *LongHeads;
    uint32 LongHeadCount;
    // floor(2^64 / LongHeadCount) + 1: bucket folding by multiplication.
    uint64 LongHeadReciprocal;
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
