// The bounded formatter, comparisons, wildcards and half floats.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "foundation/tessel_string.h"

static std::string Format(char const *FormatText, ...)
{
    char Buffer[256];
    va_list Arguments;
    va_start(Arguments, FormatText);
    ConvertToStringVar(sizeof(Buffer), Buffer, FormatText, Arguments);
    va_end(Arguments);
    return Buffer;
}

TEST(Formatter, ConversionsOfTheSubset)
{
    EXPECT_EQ(Format("%s(%d): %u %x %X %o", "file.cpp", -12, 42u, 255u, 255u, 8u), "file.cpp(-12): 42 ff FF 10");
    EXPECT_EQ(Format("%I64d and %I64u", (int64)-5000000000LL, (uint64)6000000000ULL), "-5000000000 and 6000000000");
    EXPECT_EQ(Format("%Id", (int64)1 << 40), "1099511627776");
    EXPECT_EQ(Format("%5d|%-3d|%08x", 7, 8, 9u), "7|8|9"); // widths and flags are ignored
    EXPECT_EQ(Format("%.2f %f", 1.5, 0.0), "1.50 0.000000");
    EXPECT_EQ(Format("%.3f", -2.25), "-2.250");
    EXPECT_EQ(Format("%c%c", 'o', 'k'), "ok");
    EXPECT_EQ(Format("[%s]", (char const *)nullptr), "[]");
    EXPECT_EQ(Format("%l|", 3, "abcdef"), "abc|");
    EXPECT_EQ(Format("100%%"), "100%");
    EXPECT_EQ(Format("%e%d", 5), "5"); // %e takes nothing: arguments shift
    EXPECT_EQ(Format("%*d", 99, 3), "3");
    EXPECT_EQ(Format("end%"), "end");
}

TEST(Formatter, BufferBoundaries)
{
    char Buffer[8];
    memset(Buffer, 'x', sizeof(Buffer));
    EXPECT_EQ(ConvertToStringArgs(0, Buffer, "abc"), 0);
    EXPECT_EQ(Buffer[0], 'x');
    EXPECT_EQ(ConvertToStringArgs(1, Buffer, "abc"), 0);
    EXPECT_EQ(Buffer[0], 0);
    EXPECT_EQ(ConvertToStringArgs(4, Buffer, "abcdef"), 3);
    EXPECT_STREQ(Buffer, "abc");
}

TEST(Formatter, RealConversionSpecialValues)
{
    char Buffer[32];
    ConvertReal64ToString(sizeof(Buffer), Buffer, INFINITY, 10, 2, LowerCaseDigits);
    EXPECT_STREQ(Buffer, "(infinity)");
    ConvertReal64ToString(sizeof(Buffer), Buffer, -INFINITY, 10, 2, LowerCaseDigits);
    EXPECT_STREQ(Buffer, "(-infinity)");
    ConvertReal64ToString(sizeof(Buffer), Buffer, NAN, 10, 2, LowerCaseDigits);
    EXPECT_STREQ(Buffer, "(qnan)");
    ConvertReal64ToString(sizeof(Buffer), Buffer, 123.25, 10, 2, LowerCaseDigits);
    EXPECT_STREQ(Buffer, "123.25");
    ConvertReal64ToString(sizeof(Buffer), Buffer, 0.5, 2, 3, LowerCaseDigits);
    EXPECT_STREQ(Buffer, "0.100");
}

TEST(Strings, ComparisonCopyAndNumbers)
{
    EXPECT_TRUE(StringsAreEqual("AnimationDef", "animationdef"));
    EXPECT_TRUE(StringsAreEqual(nullptr, nullptr));
    EXPECT_FALSE(StringsAreEqual("a", nullptr));
    EXPECT_FALSE(StringsAreExactlyEqual("Name", "name"));
    EXPECT_LT(StringDifference(nullptr, "a"), 0);
    EXPECT_GT(StringDifference("b", "a"), 0);
    char Small[4];
    EXPECT_EQ(CopyStringMaximum(Small, sizeof(Small), "overflow"), 3);
    EXPECT_STREQ(Small, "ove");
    char Copy[8];
    EXPECT_EQ(CopyString("abc", Copy), 4);
    EXPECT_DOUBLE_EQ(ConvertToReal64("-12.75", true), -12.75);
    EXPECT_DOUBLE_EQ(ConvertToReal64("12.75", false), 12.0);
    EXPECT_EQ(ConvertToInt32("-7.9"), -7);
}

TEST(Strings, WildcardsCaptureWhatTheyMatch)
{
    char Captured[64];
    EXPECT_TRUE(WildCardMatch("Bip01_L_Hand", "bip01_*_hand", Captured));
    EXPECT_STREQ(Captured, "L");
    EXPECT_TRUE(WildCardMatch("Root", "R??t", Captured));
    EXPECT_STREQ(Captured, "oo");
    EXPECT_TRUE(WildCardMatch("mesh_lod2", "mesh_*", Captured));
    EXPECT_STREQ(Captured, "lod2");
    EXPECT_FALSE(WildCardMatch("Root", "Roo", Captured));
    EXPECT_FALSE(WildCardMatch("Ro", "R??t", Captured));
    EXPECT_TRUE(WildCardMatch("anything", nullptr, nullptr));
    EXPECT_TRUE(IsPlainWildcard("*"));
    EXPECT_FALSE(IsPlainWildcard("a*"));
}

TEST(HalfFloats, RoundTripAndSpecials)
{
    EXPECT_EQ(Real16FromReal32(1.0f), 0x3C00);
    EXPECT_EQ(Real16FromReal32(-2.0f), 0xC000);
    EXPECT_EQ(Real32FromReal16(0x3555), 0.333251953125f);
    EXPECT_EQ(Real32FromReal16(0x0001), std::ldexp(1.0f, -24)); // smallest subnormal
    EXPECT_TRUE(std::isinf(Real32FromReal16(Real16FromReal32(1e6f))));
    for (uint32 Bits = 0; Bits < 0x7C00; ++Bits) {
        ASSERT_EQ(Real16FromReal32(Real32FromReal16((uint16)Bits)), Bits);
    }
}
