// Helpers shared by the field container and its two parsers.
#pragma once

#include <cstring>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_memory_hint.h"

inline uint16 LoadFbxU16(uint8 const *Data, bool BigEndian)
{
    uint16 Value;
    memcpy(&Value, Data, 2);
    return BigEndian ? __builtin_bswap16(Value) : Value;
}

inline uint32 LoadFbxU32(uint8 const *Data, bool BigEndian)
{
    uint32 Value;
    memcpy(&Value, Data, 4);
    return BigEndian ? __builtin_bswap32(Value) : Value;
}

inline uint64 LoadFbxU64(uint8 const *Data, bool BigEndian)
{
    uint64 Value;
    memcpy(&Value, Data, 8);
    return BigEndian ? __builtin_bswap64(Value) : Value;
}

// Size in bytes of the fixed-size scalar types, 0 for the others.
inline int32 GetFbxScalarSize(int32 Type)
{
    switch (Type) {
    case FbxValue_Int16: return 2;
    case FbxValue_Bool: return 1;
    case FbxValue_Int32:
    case FbxValue_Real32: return 4;
    case FbxValue_Real64:
    case FbxValue_Int64: return 8;
    default: return 0;
    }
}

inline bool IsFbxDigit(char Character)
{
    return (unsigned char)(Character - '0') < 10;
}

// "-ddd.ddd" or "-ddd.ddde-dd" with at most 2^53 as its digits and a power
// of ten of at most 22 either way: both the digits and the power of ten are
// exact doubles, so one division or multiplication gives the correctly
// rounded value, as the general parser would. False for
// any other text, which the general parser then reads. Inline: the array
// decoders call it for every element.
#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline bool
ParseFbxPlainDecimal(char const *Text, char const *End, real64 *Result)
{
    static constexpr real64 PowersOfTen[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                               1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    char const *At = Text;
    bool Negative = At < End && *At == '-';
    if (Negative) ++At;
    // More than 19 digits may wrap the sum: such text is refused below.
    uint64 Digits = 0;
    char const *First = At;
    while (At < End && IsFbxDigit(*At)) Digits = Digits * 10 + (uint64)(*At++ - '0');
    int64 DigitCount = At - First;
    if (DigitCount == 0) return false;
    int32 Scale = 0;
    if (At < End && *At == '.') {
        char const *Fraction = ++At;
        while (At < End && IsFbxDigit(*At)) Digits = Digits * 10 + (uint64)(*At++ - '0');
        if (At == Fraction) return false;
        Scale = (int32)(At - Fraction);
        DigitCount += Scale;
    }
    // An exponent ("e-05") moves the power of ten; within 22 either way it
    // stays exact, so that one multiplication or division still rounds once.
    int32 Power = -Scale;
    if (At < End && (*At == 'e' || *At == 'E')) {
        ++At;
        bool NegativePower = At < End && *At == '-';
        if (At < End && (*At == '-' || *At == '+')) ++At;
        char const *PowerDigits = At;
        int32 Exponent = 0;
        while (At < End && IsFbxDigit(*At) && At - PowerDigits < 4) Exponent = Exponent * 10 + (*At++ - '0');
        if (At == PowerDigits) return false;
        Power += NegativePower ? -Exponent : Exponent;
    }
    if (At != End || DigitCount > 19 || Digits > ((uint64)1 << 53) || Power < -22 || Power > 22) return false;
    real64 Value = (real64)Digits;
    if (Power > 0) Value *= PowersOfTen[Power];
    if (Power < 0) Value /= PowersOfTen[-Power];
    *Result = Negative ? -Value : Value;
    return true;
}

// "-ddd" of at most 18 digits; false for any other text.
inline bool ParseFbxPlainInteger(char const *Text, char const *End, int64 *Result)
{
    char const *At = Text;
    bool Negative = At < End && *At == '-';
    if (Negative) ++At;
    if (At == End || End - At > 18) return false;
    int64 Value = 0;
    for (; At < End; ++At) {
        if (!IsFbxDigit(*At)) return false;
        Value = Value * 10 + (*At - '0');
    }
    *Result = Negative ? -Value : Value;
    return true;
}

// The same two for text whose next character (at End) cannot continue a
// number (a digit, '.', 'e', 'E', '+' or '-'): the loops stop on that
// character instead of testing End at every digit. Same results.
struct fbx_number_character_table
{
    bool Continues[256];
    constexpr fbx_number_character_table() : Continues()
    {
        for (char Character : "0123456789.eE+-") Continues[(unsigned char)Character] = Character != 0;
    }
};
inline constexpr fbx_number_character_table FbxNumberCharacters;

inline bool EndsFbxNumber(char Character)
{
    return !FbxNumberCharacters.Continues[(unsigned char)Character];
}

#if defined(__GNUC__)
__attribute__((always_inline))
#endif
inline bool
ParseFbxPlainDecimalBeforeStop(char const *Text, char const *End, real64 *Result)
{
    static constexpr real64 PowersOfTen[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                               1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    char const *At = Text;
    bool Negative = *At == '-';
    At += Negative;
    uint64 Digits = 0;
    char const *First = At;
    for (uint32 Digit; (Digit = (uint32)(unsigned char)*At - '0') < 10; ++At) Digits = Digits * 10 + Digit;
    int64 DigitCount = At - First;
    if (DigitCount == 0) return false;
    int32 Scale = 0;
    if (*At == '.') {
        char const *Fraction = ++At;
        for (uint32 Digit; (Digit = (uint32)(unsigned char)*At - '0') < 10; ++At) Digits = Digits * 10 + Digit;
        if (At == Fraction) return false;
        Scale = (int32)(At - Fraction);
        DigitCount += Scale;
    }
    int32 Power = -Scale;
    if (*At == 'e' || *At == 'E') {
        ++At;
        bool NegativePower = *At == '-';
        if (*At == '-' || *At == '+') ++At;
        char const *PowerDigits = At;
        int32 Exponent = 0;
        while (IsFbxDigit(*At) && At - PowerDigits < 4) Exponent = Exponent * 10 + (*At++ - '0');
        if (At == PowerDigits) return false;
        Power += NegativePower ? -Exponent : Exponent;
    }
    if (At != End || DigitCount > 19 || Digits > ((uint64)1 << 53) || Power < -22 || Power > 22) return false;
    real64 Value = (real64)Digits;
    if (Power > 0) Value *= PowersOfTen[Power];
    if (Power < 0) Value /= PowersOfTen[-Power];
    *Result = Negative ? -Value : Value;
    return true;
}

inline bool ParseFbxPlainIntegerBeforeStop(char const *Text, char const *End, int64 *Result)
{
    char const *At = Text;
    bool Negative = *At == '-';
    At += Negative;
    char const *First = At;
    // A longer run may wrap the sum: it is refused below.
    uint64 Value = 0;
    for (uint32 Digit; (Digit = (uint32)(unsigned char)*At - '0') < 10; ++At) Value = Value * 10 + Digit;
    if (At != End || At == First || At - First > 18) return false;
    *Result = Negative ? -(int64)Value : (int64)Value;
    return true;
}

// Numbers in ASCII text (also used for binary strings). The text need not be
// zero-terminated. An integer reading accepts a fractional number and
// truncates it when it fits.
bool ParseFbxTextInt64(char const *Text, int32 Length, int64 *Result);
bool ParseFbxTextReal64(char const *Text, int32 Length, real64 *Result);
// T, Y and F, N as booleans.
bool ParseFbxTextBool(char const *Text, int32 Length, bool *Result);
