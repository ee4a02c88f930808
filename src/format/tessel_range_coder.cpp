#include "format/tessel_range_coder.h"

void BeginRangeEncoder(range_encoder &Encoder, uint8 *OutputStart, uint8 *OutputLimit)
{
    Encoder.Low = 0;
    Encoder.Range = RangeCoderTopValue;
    Encoder.Pending = 0;
    Encoder.OutputStart = OutputStart;
    Encoder.Output = OutputStart - 1;
    Encoder.OutputLimit = OutputLimit;
    Encoder.Overflowed = false;
    Encoder.GrowOutputCallback = 0;
    Encoder.GrowOutputData = 0;
}

uint32 EndRangeEncoder(range_encoder &Encoder)
{
    NormaliseRangeEncoder(Encoder);
    uint32 Value = Encoder.Low >> 23;
    if (Value < 256) {
        for (; Encoder.Pending; --Encoder.Pending) PutEncoderByte(Encoder, 0xFF);
    } else {
        if (!Encoder.Overflowed) ++*Encoder.Output;
        for (; Encoder.Pending; --Encoder.Pending) PutEncoderByte(Encoder, 0x00);
    }
    PutEncoderByte(Encoder, Value);
    PutEncoderByte(Encoder, Encoder.Low >> 15);
    PutEncoderByte(Encoder, Encoder.Low >> 7);
    PutEncoderByte(Encoder, Encoder.Low << 1);
    return (uint32)(Encoder.Output + 1 - Encoder.OutputStart);
}

void BeginRangeDecoder(range_decoder &Decoder, uint8 const *Input, uint8 const *InputEnd)
{
    Decoder.Input = Input;
    Decoder.InputEnd = InputEnd;
    Decoder.Overrun = 0;
    Decoder.Code = NextDecoderByte(Decoder);
    Decoder.Range = 128;
    Decoder.Scale = 1;
}
