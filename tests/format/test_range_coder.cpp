#include <gtest/gtest.h>

#include <vector>

#include "format/tessel_range_coder.h"

namespace {

struct coded_value
{
    bool Shifted; // a 14-bit interval, else a uniform value
    uint32 Start;
    uint32 Size; // uniform: the count
};

uint32 NextRandom(uint32 &State)
{
    State ^= State << 13;
    State ^= State >> 17;
    State ^= State << 5;
    return State;
}

// Uniform values of every awkward count (1 codes nothing but still divides
// the whole range, which is 2^31 at the start and after runs of halvings)
// mixed with 14-bit intervals, the last of which takes the rest of the range.
std::vector<coded_value> MakeValues()
{
    std::vector<coded_value> Values = {{false, 0, 1}, {false, 0, 1}, {false, 1, 2}};
    for (int Halving = 0; Halving < 40; ++Halving) Values.push_back({false, (uint32)Halving & 1, 2});
    Values.push_back({false, 0, 1});
    uint32 const Counts[] = {1, 2, 3, 65, 255, 256, 16383, 16384};
    uint32 State = 2024;
    for (int Index = 0; Index < 20000; ++Index) {
        uint32 Pick = NextRandom(State);
        if (Pick % 3 == 0) {
            uint32 Count = Pick % 5 == 0 ? 1 + NextRandom(State) % 16384 : Counts[NextRandom(State) % 8];
            Values.push_back({false, NextRandom(State) % Count, Count});
        } else {
            uint32 Start = NextRandom(State) % 16384;
            uint32 Size = Pick % 7 == 0 ? 16384 - Start : 1 + NextRandom(State) % (16384 - Start);
            Values.push_back({true, Start, Size});
        }
    }
    return Values;
}

TEST(RangeCoder, UniformValuesAndIntervalsReadBackExactly)
{
    std::vector<coded_value> const Values = MakeValues();
    std::vector<uint8> Buffer(1 << 20);
    range_encoder Encoder;
    BeginRangeEncoder(Encoder, Buffer.data() + 1, Buffer.data() + Buffer.size());
    for (coded_value const &Value : Values) {
        if (Value.Shifted) {
            EncodeRangeShift(Encoder, Value.Start, Value.Size, 14);
        } else {
            EncodeUniform(Encoder, Value.Start, Value.Size);
        }
    }
    uint32 Written = EndRangeEncoder(Encoder);
    ASSERT_FALSE(Encoder.Overflowed);

    range_decoder Decoder;
    BeginRangeDecoder(Decoder, Buffer.data() + 1, Buffer.data() + 1 + Written);
    for (size_t Index = 0; Index < Values.size(); ++Index) {
        coded_value const &Value = Values[Index];
        SCOPED_TRACE(Index);
        if (Value.Shifted) {
            uint32 Read = DecodeRangeShift(Decoder, 14);
            ASSERT_GE(Read, Value.Start);
            ASSERT_LT(Read, Value.Start + Value.Size);
            DecodeRangeDone(Decoder, Value.Start, Value.Size, 1u << 14);
        } else {
            ASSERT_EQ(DecodeUniform(Decoder, Value.Size), Value.Start);
        }
    }
    EXPECT_EQ(Decoder.Overrun, 0u);
}

} // namespace
