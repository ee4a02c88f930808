// Deterministic inputs and a round-trip helper for the section compression tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

typedef std::vector<uint8_t> byte_vector;

// xorshift32: the same bytes on every run.
struct test_random
{
    uint32_t State;
    explicit test_random(uint32_t Seed) : State(Seed ? Seed : 1) {}
    uint32_t Next()
    {
        State ^= State << 13;
        State ^= State >> 17;
        State ^= State << 5;
        return State;
    }
};

byte_vector MakeRandomBytes(size_t Size, uint32_t Seed);
byte_vector MakeText(size_t Size, uint32_t Seed);
// Interleaved position/normal/uv floats of a wavy grid, then 16-bit indices.
byte_vector MakeVertexArrays(int GridSize);
byte_vector MakeRepeatingPattern(size_t Size, size_t Period, uint32_t Seed);

// Compresses the streams as one section through the public interface.
// Returns false when any call fails.
bool CompressSection(int Format, bool ByteReverse, std::vector<byte_vector> const &Streams, byte_vector &Stored);
// Expands a stored section of the given streams' sizes.
bool ExpandSection(int Format, bool ByteReverse, byte_vector const &Stored, std::vector<size_t> const &StreamSizes,
                   byte_vector &Expanded);
