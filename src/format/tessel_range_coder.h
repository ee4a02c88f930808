// The range coder beneath Trove1: 31-bit arithmetic with the carry in bit 31
// of Low, bytes held back while they may still receive a carry, and a
// decoder that reads its input one bit out of step with the byte boundaries.
#pragma once

#include "foundation/tessel_types.h"

enum
{
    RangeCoderTopValue = 0x80000000u,
    RangeCoderBottomValue = 0x800000u,
    RangeCoderHeldMark = 0x7F800000u,
};

struct range_encoder;
// Gives the encoder a larger output buffer (moving the bytes written so far
// and the pointers); false when there is no more memory.
typedef bool (*grow_output_callback)(range_encoder &Encoder);

struct range_encoder
{
    uint32 Low;
    uint32 Range;
    uint32 Pending;
    // Points at the last byte written; the byte before the output is a
    // scratch byte so that the pointer may start one before it.
    uint8 *Output;
    uint8 *OutputStart;
    uint8 *OutputLimit;
    bool8 Overflowed;
    grow_output_callback GrowOutputCallback; // may be null
    void *GrowOutputData;
};

struct range_decoder
{
    // The offset into Range, doubled, with the input's next bit below it:
    // the input is read one bit out of step, and keeping that bit here
    // makes taking in a byte one shift and one or.
    uint32 Code;
    uint32 Range;
    uint32 Scale; // R of the value being read
    uint8 const *Input;
    uint8 const *InputEnd;
    // Bytes asked for past InputEnd. A sound stream needs only the few of
    // the encoder's flush; many more mean the data claims more than it holds.
    uint32 Overrun;
};

// Output must have room for one scratch byte before OutputStart; bytes land
// at OutputStart up to (not including) OutputLimit. Writing past the limit
// asks GrowOutputCallback for more room; without it the bytes are dropped
// and Overflowed is set.
void BeginRangeEncoder(range_encoder &Encoder, uint8 *OutputStart, uint8 *OutputLimit);
// Flushes the state; returns the number of bytes written from OutputStart.
uint32 EndRangeEncoder(range_encoder &Encoder);

void BeginRangeDecoder(range_decoder &Decoder, uint8 const *Input, uint8 const *InputEnd);

inline void PutEncoderByte(range_encoder &Encoder, uint32 Value)
{
    if (Encoder.Output + 1 >= Encoder.OutputLimit) {
        if (Encoder.Overflowed || !Encoder.GrowOutputCallback || !Encoder.GrowOutputCallback(Encoder)) {
            Encoder.Overflowed = true;
            return;
        }
    }
    *++Encoder.Output = (uint8)Value;
}

inline void ShiftEncoderLow(range_encoder &Encoder)
{
    if (Encoder.Low < RangeCoderHeldMark) {
        for (; Encoder.Pending; --Encoder.Pending) PutEncoderByte(Encoder, 0xFF);
        PutEncoderByte(Encoder, Encoder.Low >> 23);
    } else if (Encoder.Low >= RangeCoderTopValue) {
        if (!Encoder.Overflowed) ++*Encoder.Output;
        for (; Encoder.Pending; --Encoder.Pending) PutEncoderByte(Encoder, 0x00);
        PutEncoderByte(Encoder, Encoder.Low >> 23);
    } else {
        ++Encoder.Pending;
    }
}

inline void NormaliseRangeEncoder(range_encoder &Encoder)
{
    while (Encoder.Range <= RangeCoderBottomValue) {
        ShiftEncoderLow(Encoder);
        Encoder.Range <<= 8;
        Encoder.Low = (Encoder.Low << 8) & 0x7FFFFFFFu;
    }
}

// Codes [Start, Start + Size) of a total of 1 << Bits.
inline void EncodeRangeShift(range_encoder &Encoder, uint32 Start, uint32 Size, uint32 Bits)
{
    NormaliseRangeEncoder(Encoder);
    uint32 R = Encoder.Range >> Bits;
    Encoder.Low += R * Start;
    if (Start + Size >= (1u << Bits)) {
        Encoder.Range -= R * Start;
    } else {
        Encoder.Range = R * Size;
    }
}

// Codes [Start, Start + Size) of any Total.
inline void EncodeRange(range_encoder &Encoder, uint32 Start, uint32 Size, uint32 Total)
{
    NormaliseRangeEncoder(Encoder);
    uint32 R = Encoder.Range / Total;
    Encoder.Low += R * Start;
    if (Start + Size >= Total) {
        Encoder.Range -= R * Start;
    } else {
        Encoder.Range = R * Size;
    }
}

// A number in [0, Count) with equal probabilities.
inline void EncodeUniform(range_encoder &Encoder, uint32 Value, uint32 Count)
{
    EncodeRange(Encoder, Value, 1, Count);
}

inline uint32 NextDecoderByte(range_decoder &Decoder)
{
    // Past the end the input reads as zero bytes.
    if (Decoder.Input < Decoder.InputEnd) return *Decoder.Input++;
    ++Decoder.Overrun;
    return 0;
}

inline void NormaliseRangeDecoder(range_decoder &Decoder)
{
    while (Decoder.Range <= RangeCoderBottomValue) {
        Decoder.Code = (Decoder.Code << 8) | NextDecoderByte(Decoder);
        Decoder.Range <<= 8;
    }
}

// Reads a value of a total of 1 << Bits; follow with DecodeRangeDone.
inline uint32 DecodeRangeShift(range_decoder &Decoder, uint32 Bits)
{
    NormaliseRangeDecoder(Decoder);
    Decoder.Scale = Decoder.Range >> Bits;
    // The doubled offset over the doubled scale: the input bit below the
    // offset never reaches the next whole quotient.
    uint32 Value = Decoder.Code / (Decoder.Scale * 2);
    uint32 Last = (1u << Bits) - 1;
    return Value > Last ? Last : Value;
}

inline uint32 DecodeRange(range_decoder &Decoder, uint32 Total)
{
    NormaliseRangeDecoder(Decoder);
    Decoder.Scale = Decoder.Range / Total;
    // Halved here instead: the doubled scale of a total of 1 is 2^32.
    uint32 Value = (Decoder.Code >> 1) / Decoder.Scale;
    return Value > Total - 1 ? Total - 1 : Value;
}

// Removes the interval [Start, Start + Size) of Total found by the last read.
inline void DecodeRangeDone(range_decoder &Decoder, uint32 Start, uint32 Size, uint32 Total)
{
    Decoder.Code -= Decoder.Scale * 2 * Start;
    if (Start + Size >= Total) {
        Decoder.Range -= Decoder.Scale * Start;
    } else {
        Decoder.Range = Decoder.Scale * Size;
    }
}

inline uint32 DecodeUniform(range_decoder &Decoder, uint32 Count)
{
    uint32 Value = DecodeRange(Decoder, Count);
    DecodeRangeDone(Decoder, Value, 1, Count);
    return Value;
}
