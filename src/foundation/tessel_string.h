// Tessel's own bounded formatter and string operations. The formatter's
// conversions are a fixed subset: %c %d %i %u %x %X %o %f %s %l (length,
// string) %n, with the I, I32 and I64 size prefixes; widths and flags are
// read and ignored; %e %g %E %G %S %C end a conversion without consuming an
// argument.
#pragma once

#include <cstdarg>

#include "foundation/tessel_types.h"

int32 ConvertToStringVar(int32 Size, char *Buffer, char const *Format, va_list Arguments);
int32 ConvertToStringArgs(int32 Size, char *Buffer, char const *Format, ...);
int32 ConvertUInt64ToString(int32 Size, char *Buffer, uint64 Value, uint32 Radix, char const *Digits);
int32 ConvertInt64ToString(int32 Size, char *Buffer, int64 Value, uint32 Radix, char const *Digits);
int32 ConvertReal64ToString(int32 Size, char *Buffer, real64 Value, uint32 Radix, int32 Decimals, char const *Digits);

extern char const *const LowerCaseDigits; // "0123456789abcdefghijklmnopqrstuvwxyz"
extern char const *const UpperCaseDigits; // "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"

int32 StringLength(char const *String);
bool StringsAreEqual(char const *A, char const *B);          // case-insensitive
bool StringsAreEqualLowercase(char const *A, char const *B); // alias of the above
bool StringsAreExactlyEqual(char const *A, char const *B);
int32 StringDifference(char const *A, char const *B);
int32 CopyString(char const *From, char *To);
int32 CopyStringMaximum(char *To, int32 Size, char const *From);
real64 ConvertToReal64(char const *String, bool AllowFraction);
int32 ConvertToInt32(char const *String);
bool WildCardMatch(char const *Name, char const *Pattern, char *Captured);
bool IsPlainWildcard(char const *Pattern);

typedef bool (*string_comparison_callback)(char const *A, char const *B);
void SetStringComparisonCallback(string_comparison_callback Callback);

// IEEE 754 binary16.
real32 Real32FromReal16(uint16 Value);
uint16 Real16FromReal32(real32 Value);
