// A prepared conversion gives the same bytes as the by-name conversion.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "format/tessel_data_type_io.h"
#include "format/tessel_schema.h"

namespace {

data_type_definition Wide[] = {
    {Real32Member, "Position", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "BoneWeights", 0, 4, {0, 0, 0}, 0},
    {Int32Member, "BoneIndices", 0, 4, {0, 0, 0}, 0},
    {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 4, {0, 0, 0}, 0},
    {Real32Member, "Extra", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};
data_type_definition Narrow[] = {
    {Real16Member, "position", 0, 3, {0, 0, 0}, 0},
    {NormalUInt8Member, "BoneWeights", 0, 4, {0, 0, 0}, 0},
    {UInt8Member, "BoneIndices", 0, 4, {0, 0, 0}, 0},
    {BinormalInt16Member, "Normal", 0, 3, {0, 0, 0}, 0},
    {TransformMember, "Placement", 0, 0, {0, 0, 0}, 0},
    {Real32Member, "TextureCoordinates0", 0, 2, {0, 0, 0}, 0},
    {EndMember, 0, 0, 0, {0, 0, 0}, 0},
};

} // namespace

TEST(ConversionPlan, MatchesConversionByName)
{
    std::mt19937 Random(11);
    std::uniform_real_distribution<float> Value(-1.0f, 1.0f);
    data_type_definition const *Pairs[][2] = {{Wide, Narrow}, {Narrow, Wide}, {Wide, Wide}};
    for (auto const &Pair : Pairs) {
        conversion_plan *Plan = NewConversionPlan(Pair[0], Pair[1]);
        ASSERT_NE(Plan, nullptr);
        std::vector<uint8> Source(GetTotalObjectSize(Pair[0]));
        int32 Size = GetTotalObjectSize(Pair[1]);
        for (int32 Trial = 0; Trial < 50; ++Trial) {
            for (size_t Index = 0; Index + 4 <= Source.size(); Index += 4) {
                float V = Value(Random);
                memcpy(&Source[Index], &V, 4);
            }
            for (bool Clear : {true, false}) {
                std::vector<uint8> Expected(Size, 0x5A), Actual(Size, 0x5A);
                if (Clear)
                    ConvertSingleObject(Pair[0], Source.data(), Pair[1], Expected.data());
                else
                    MergeSingleObject(Pair[0], Source.data(), Pair[1], Expected.data());
                ConvertWithPlan(Plan, Source.data(), Actual.data(), Clear);
                ASSERT_EQ(Expected, Actual) << "trial " << Trial << (Clear ? " convert" : " merge");
            }
        }
        FreeConversionPlan(Plan);
    }
}
