// Fixed-width scalar types used throughout Tessel.
#pragma once

#include <cstddef>
#include <cstdint>

typedef int8_t int8;
typedef uint8_t uint8;
typedef int16_t int16;
typedef uint16_t uint16;
typedef int32_t int32;
typedef uint32_t uint32;
typedef int64_t int64;
typedef uint64_t uint64;
typedef float real32;
typedef double real64;
typedef uint8 bool8;
typedef uint32 bool32;

// Pointer-sized integers (64-bit on every supported target).
typedef intptr_t intaddrx;
typedef uintptr_t uintaddrx;

static_assert(sizeof(intaddrx) == 8, "Tessel targets 64-bit platforms only");

#define TESSEL_ARRAY_COUNT(Array) ((int32)(sizeof(Array) / sizeof((Array)[0])))
#define TESSEL_OFFSET_OF(Type, Member) ((intaddrx)offsetof(Type, Member))
