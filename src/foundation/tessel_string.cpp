// Bounded formatter, comparisons, number parsing and the wildcard matcher.
#include "foundation/tessel_string.h"

#include <atomic>
#include <cmath>
#include <cstring>

#include "foundation/tessel_log.h"

char const *const LowerCaseDigits = "0123456789abcdefghijklmnopqrstuvwxyz";
char const *const UpperCaseDigits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

namespace {

std::atomic<string_comparison_callback> ComparisonCallback{nullptr};

enum character_flag
{
    CharFlag_Digit = 1,
};

struct character_table
{
    uint8 Flags[256];
    character_table()
    {
        memset(Flags, 0, sizeof(Flags));
        for (int32 Character = '0'; Character <= '9'; ++Character) Flags[Character] |= CharFlag_Digit;
    }
};
character_table const Characters;

inline bool IsDigit(char Character)
{
    return (Characters.Flags[(uint8)Character] & CharFlag_Digit) != 0;
}

inline char ToLower(char Character)
{
    return (Character >= 'A' && Character <= 'Z') ? (char)(Character - 'A' + 'a') : Character;
}

// Output cursor that refuses to write with fewer than 2 characters of room,
// keeping space for the terminator.
struct text_output
{
    char *Buffer;
    int32 Size;
    int32 Count;

    void Put(char Character)
    {
        if (Size - Count >= 2) Buffer[Count++] = Character;
    }
    void PutString(char const *Text, int32 Length)
    {
        for (int32 Index = 0; Index < Length; ++Index) Put(Text[Index]);
    }
    int32 Finish()
    {
        if (Size <= 0) return 0;
        if (Count >= Size) {
            Count = Size - 1;
        }
        Buffer[Count] = 0;
        return Count;
    }
};

int32 WriteUnsigned(char *Buffer, uint64 Value, uint32 Radix, char const *Digits)
{
    // Digits in reverse, then turned around; Buffer holds at least 65 characters.
    int32 Length = 0;
    do {
        Buffer[Length++] = Digits[Value % Radix];
        Value /= Radix;
    } while (Value);
    for (int32 Low = 0, High = Length - 1; Low < High; ++Low, --High) {
        char Swap = Buffer[Low];
        Buffer[Low] = Buffer[High];
        Buffer[High] = Swap;
    }
    return Length;
}

void PutReal(text_output &Output, real64 Value, uint32 Radix, int32 Decimals, char const *Digits)
{
    if (Value == 0.0) {
        Output.Put('0');
        Output.Put('.');
        for (int32 Index = 0; Index < Decimals; ++Index) Output.Put('0');
        return;
    }
    if (std::isinf(Value)) {
        char const *Text = Value > 0 ? "(infinity)" : "(-infinity)";
        Output.PutString(Text, (int32)strlen(Text));
        return;
    }
    if (std::isnan(Value)) {
        uint64 Bits;
        memcpy(&Bits, &Value, sizeof(Bits));
        bool Quiet = (Bits & 0x0008000000000000ull) != 0;
        char const *Text = Quiet ? "(qnan)" : "(snan)";
        Output.PutString(Text, (int32)strlen(Text));
        return;
    }
    if (Value < 0) {
        Output.Put('-');
        Value = -Value;
    }
    real32 const RadixF = (real32)Radix;
    real32 Whole = (real32)Value;
    char IntegerDigits[64];
    int32 Length = 0;
    if (Whole < 1.0f) {
        IntegerDigits[Length++] = '0';
    } else {
        while (Whole >= 1.0f && Length < (int32)sizeof(IntegerDigits)) {
            int32 Digit = (int32)fmodf(Whole, RadixF);
            if (Digit < 0) Digit = 0;
            if (Digit >= (int32)Radix) Digit = (int32)Radix - 1;
            IntegerDigits[Length++] = Digits[Digit];
            Whole /= RadixF;
        }
    }
    for (int32 Index = Length - 1; Index >= 0; --Index) Output.Put(IntegerDigits[Index]);

    real32 Fraction = fmodf((real32)Value, 1.0f);
    if (Fraction < 0) Fraction = -Fraction;
    Output.Put('.');
    for (int32 Index = 0; Index < Decimals; ++Index) {
        Fraction *= RadixF;
        int32 Digit = (int32)Fraction;
        if (Digit < 0) Digit = 0;
        if (Digit >= (int32)Radix) Digit = (int32)Radix - 1;
        Output.Put(Digits[Digit]);
        Fraction -= (real32)Digit;
    }
}

} // namespace

int32 ConvertToStringVar(int32 Size, char *Buffer, char const *Format, va_list Arguments)
{
    if (Size <= 0 || !Buffer) return 0;
    text_output Output = {Buffer, Size, 0};
    if (!Format) return Output.Finish();

    va_list Args;
    va_copy(Args, Arguments);
    char const *At = Format;
    while (*At) {
        if (*At != '%') {
            Output.Put(*At++);
            continue;
        }
        ++At;
        int32 Bits = 32;
        int32 Decimals = 6;
        bool Done = false;
        while (!Done) {
            char Character = *At;
            if (Character == 0) {
                // A format that ends just behind "%".
                Done = true;
                break;
            }
            ++At;
            switch (Character) {
            case ' ':
            case '#':
            case '+':
            case '-':
            case '0': break;
            case '1':
            case '2':
            case '3':
            case '4':
            case '5':
            case '6':
            case '7':
            case '8':
            case '9':
                while (IsDigit(*At)) ++At;
                break;
            case '*': (void)va_arg(Args, int); break;
            case '.':
                Decimals = 0;
                while (IsDigit(*At)) Decimals = Decimals * 10 + (*At++ - '0');
                break;
            case 'I':
                if (At[0] == '3' && At[1] == '2') {
                    Bits = 32;
                    At += 2;
                } else if (At[0] == '6' && At[1] == '4') {
                    Bits = 64;
                    At += 2;
                } else if (IsDigit(At[0])) {
                    ++At;
                    Done = true;
                } else {
                    Bits = 64;
                }
                break;
            case 'c':
                Output.Put((char)va_arg(Args, int));
                Done = true;
                break;
            case 'd':
            case 'i': {
                int64 Value = Bits == 64 ? va_arg(Args, int64) : (int64)va_arg(Args, int32);
                char Text[72];
                int32 Length = ConvertInt64ToString((int32)sizeof(Text), Text, Value, 10, LowerCaseDigits);
                Output.PutString(Text, Length);
                Done = true;
                break;
            }
            case 'u':
            case 'x':
            case 'X':
            case 'o': {
                uint64 Value = Bits == 64 ? va_arg(Args, uint64) : (uint64)va_arg(Args, uint32);
                uint32 Radix = Character == 'u' ? 10 : (Character == 'o' ? 8 : 16);
                char Text[72];
                int32 Length = ConvertUInt64ToString((int32)sizeof(Text), Text, Value, Radix,
                                                     Character == 'X' ? UpperCaseDigits : LowerCaseDigits);
                Output.PutString(Text, Length);
                Done = true;
                break;
            }
            case 'f':
                PutReal(Output, va_arg(Args, double), 10, Decimals, LowerCaseDigits);
                Done = true;
                break;
            case 's': {
                char const *Text = va_arg(Args, char const *);
                if (Text) Output.PutString(Text, (int32)strlen(Text));
                Done = true;
                break;
            }
            case 'l': {
                int32 Length = va_arg(Args, int32);
                char const *Text = va_arg(Args, char const *);
                if (Text) {
                    for (int32 Index = 0; Index < Length && Text[Index]; ++Index) Output.Put(Text[Index]);
                }
                Done = true;
                break;
            }
            case 'n':
                (void)va_arg(Args, void *);
                Done = true;
                break;
            case 'C':
            case 'E':
            case 'G':
            case 'S':
            case 'e':
            case 'g': Done = true; break;
            default:
                Output.Put(Character);
                Done = true;
                break;
            }
        }
    }
    va_end(Args);
    return Output.Finish();
}

int32 ConvertToStringArgs(int32 Size, char *Buffer, char const *Format, ...)
{
    va_list Arguments;
    va_start(Arguments, Format);
    int32 Result = ConvertToStringVar(Size, Buffer, Format, Arguments);
    va_end(Arguments);
    return Result;
}

int32 ConvertUInt64ToString(int32 Size, char *Buffer, uint64 Value, uint32 Radix, char const *Digits)
{
    if (Size <= 0 || !Buffer || Radix < 2 || Radix > 36) return 0;
    char Text[72];
    int32 Length = WriteUnsigned(Text, Value, Radix, Digits ? Digits : LowerCaseDigits);
    text_output Output = {Buffer, Size, 0};
    Output.PutString(Text, Length);
    return Output.Finish();
}

int32 ConvertInt64ToString(int32 Size, char *Buffer, int64 Value, uint32 Radix, char const *Digits)
{
    if (Size <= 0 || !Buffer || Radix < 2 || Radix > 36) return 0;
    char Text[72];
    int32 Length = 0;
    uint64 Magnitude = (uint64)Value;
    if (Value < 0) {
        Text[Length++] = '-';
        Magnitude = 0 - Magnitude;
    }
    Length += WriteUnsigned(Text + Length, Magnitude, Radix, Digits ? Digits : LowerCaseDigits);
    text_output Output = {Buffer, Size, 0};
    Output.PutString(Text, Length);
    return Output.Finish();
}

int32 ConvertReal64ToString(int32 Size, char *Buffer, real64 Value, uint32 Radix, int32 Decimals, char const *Digits)
{
    if (Size <= 0 || !Buffer || Radix < 2 || Radix > 36) return 0;
    text_output Output = {Buffer, Size, 0};
    PutReal(Output, Value, Radix, Decimals, Digits ? Digits : LowerCaseDigits);
    return Output.Finish();
}

int32 StringLength(char const *String)
{
    return String ? (int32)strlen(String) : 0;
}

bool StringsAreEqual(char const *A, char const *B)
{
    if (string_comparison_callback Compare = ComparisonCallback.load(std::memory_order_relaxed)) return Compare(A, B);
    if (!A || !B) return A == B;
    while (*A && ToLower(*A) == ToLower(*B)) {
        ++A;
        ++B;
    }
    return ToLower(*A) == ToLower(*B);
}

bool StringsAreEqualLowercase(char const *A, char const *B)
{
    return StringsAreEqual(A, B);
}

bool StringsAreExactlyEqual(char const *A, char const *B)
{
    return StringDifference(A, B) == 0;
}

int32 StringDifference(char const *A, char const *B)
{
    if (!A && !B) return 0;
    if (!A) return -1;
    if (!B) return 1;
    while (*A && *A == *B) {
        ++A;
        ++B;
    }
    return (int32)(int8)*A - (int32)(int8)*B;
}

int32 CopyString(char const *From, char *To)
{
    CheckPointer(From, LogCategory_Strings, 0);
    CheckPointer(To, LogCategory_Strings, 0);
    int32 Count = 0;
    do {
        To[Count] = From[Count];
    } while (From[Count++]);
    return Count;
}

int32 CopyStringMaximum(char *To, int32 Size, char const *From)
{
    CheckPointer(To, LogCategory_Strings, 0);
    CheckPointer(From, LogCategory_Strings, 0);
    if (Size <= 0) return 0;
    int32 Length = StringLength(From);
    int32 Copied = Length < Size - 1 ? Length : Size - 1;
    memcpy(To, From, (size_t)Copied);
    To[Copied] = 0;
    if (Copied < Length) {
        TesselWarning(LogCategory_Strings,
                      "String overflow in StringEquals (Source is %d characters, but dest can only hold %d)", Length,
                      Size - 1);
    }
    return Copied;
}

real64 ConvertToReal64(char const *String, bool AllowFraction)
{
    if (!String) return 0.0;
    real64 Sign = 1.0;
    if (*String == '-') {
        Sign = -1.0;
        ++String;
    } else if (*String == '+') {
        ++String;
    }
    real64 Value = 0.0;
    while (IsDigit(*String)) Value = Value * 10.0 + (*String++ - '0');
    if (AllowFraction && *String == '.') {
        ++String;
        real64 Scale = 0.1;
        while (IsDigit(*String)) {
            Value += Scale * (*String++ - '0');
            Scale *= 0.1;
        }
    }
    return Sign * Value;
}

int32 ConvertToInt32(char const *String)
{
    return (int32)ConvertToReal64(String, true);
}

static bool MatchFrom(char const *Name, char const *Pattern, char const *PatternEnd, char *Captured)
{
    while (Pattern < PatternEnd) {
        if (*Pattern == '?') {
            if (!*Name) return false;
            if (Captured) *Captured++ = *Name;
            ++Name;
            ++Pattern;
            continue;
        }
        if (*Pattern == '*') {
            ++Pattern;
            char const *Literal = Pattern;
            while (Pattern < PatternEnd && *Pattern != '?' && *Pattern != '*') ++Pattern;
            int32 LiteralLength = (int32)(Pattern - Literal);
            if (LiteralLength == 0) {
                if (Pattern < PatternEnd) {
                    // "*" straight before another wildcard: try every split.
                    for (char const *Try = Name;; ++Try) {
                        char *Next = Captured;
                        if (Captured) {
                            memcpy(Captured, Name, (size_t)(Try - Name));
                            Next = Captured + (Try - Name);
                        }
                        if (MatchFrom(Try, Pattern, PatternEnd, Next)) return true;
                        if (!*Try) return false;
                    }
                }
                // A trailing "*" takes the rest of the name.
                int32 Rest = StringLength(Name);
                if (Captured) {
                    memcpy(Captured, Name, (size_t)Rest);
                    Captured[Rest] = 0;
                }
                return true;
            }
            for (char const *Try = Name; *Try; ++Try) {
                int32 Index = 0;
                while (Index < LiteralLength && Try[Index] && ToLower(Try[Index]) == ToLower(Literal[Index])) ++Index;
                if (Index != LiteralLength) continue;
                char *Next = Captured;
                if (Captured) {
                    memcpy(Captured, Name, (size_t)(Try - Name));
                    Next = Captured + (Try - Name);
                }
                if (MatchFrom(Try + LiteralLength, Pattern, PatternEnd, Next)) return true;
            }
            if (Captured) *Captured = 0;
            return false;
        }
        if (ToLower(*Name) != ToLower(*Pattern) || !*Name) return false;
        ++Name;
        ++Pattern;
    }
    if (Captured) *Captured = 0;
    return *Name == 0;
}

bool WildCardMatch(char const *Name, char const *Pattern, char *Captured)
{
    if (Captured) *Captured = 0;
    if (!Pattern) {
        if (Captured && Name) CopyString(Name, Captured);
        return true;
    }
    if (!Name) Name = "";
    // Alternatives are separated by ";".
    char const *Start = Pattern;
    for (;;) {
        char const *End = Start;
        while (*End && *End != ';') ++End;
        if (MatchFrom(Name, Start, End, Captured)) return true;
        if (!*End) return false;
        Start = End + 1;
    }
}

bool IsPlainWildcard(char const *Pattern)
{
    return !Pattern || StringsAreExactlyEqual(Pattern, "*");
}

void SetStringComparisonCallback(string_comparison_callback Callback)
{
    ComparisonCallback.store(Callback, std::memory_order_relaxed);
}

real32 Real32FromReal16(uint16 Value)
{
    uint32 Sign = (uint32)(Value & 0x8000) << 16;
    int32 Exponent = (Value >> 10) & 0x1F;
    uint32 Fraction = Value & 0x3FF;
    uint32 Bits;
    if (Exponent == 31) {
        Bits = Sign | 0x7F800000u | (Fraction << 13);
    } else if (Exponent == 0) {
        if (Fraction == 0) {
            Bits = Sign;
        } else {
            int32 Shifts = 0;
            while (!(Fraction & 0x400)) {
                Fraction <<= 1;
                ++Shifts;
            }
            Fraction &= 0x3FF;
            Bits = Sign | ((uint32)(113 - Shifts) << 23) | (Fraction << 13);
        }
    } else {
        Bits = Sign | ((uint32)(Exponent + 112) << 23) | (Fraction << 13);
    }
    real32 Result;
    memcpy(&Result, &Bits, sizeof(Result));
    return Result;
}

uint16 Real16FromReal32(real32 Value)
{
    // Round to nearest even.
    uint32 Bits;
    memcpy(&Bits, &Value, sizeof(Bits));
    uint16 Sign = (uint16)((Bits >> 16) & 0x8000);
    int32 Exponent = (int32)((Bits >> 23) & 0xFF);
    uint32 Fraction = Bits & 0x7FFFFF;
    if (Exponent == 255) return (uint16)(Sign | 0x7C00 | (Fraction ? 0x200 : 0));
    int32 HalfExponent = Exponent - 112;
    if (HalfExponent >= 31) return (uint16)(Sign | 0x7C00);
    if (HalfExponent <= 0) {
        if (HalfExponent < -10) return Sign;
        Fraction |= 0x800000;
        int32 Shift = 14 - HalfExponent;
        uint32 Half = Fraction >> Shift;
        uint32 Remainder = Fraction & ((1u << Shift) - 1);
        uint32 Midpoint = 1u << (Shift - 1);
        if (Remainder > Midpoint || (Remainder == Midpoint && (Half & 1))) ++Half;
        return (uint16)(Sign | Half);
    }
    uint32 Half = ((uint32)HalfExponent << 10) | (Fraction >> 13);
    uint32 Remainder = Fraction & 0x1FFF;
    if (Remainder > 0x1000 || (Remainder == 0x1000 && (Half & 1))) ++Half;
    return (uint16)(Sign | Half);
}
