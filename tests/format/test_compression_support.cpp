#include "test_compression_support.h"

#include <cmath>
#include <cstring>

#include "format/tessel_file_compressor.h"
#include "foundation/tessel_file_io.h"

byte_vector MakeRandomBytes(size_t Size, uint32_t Seed)
{
    test_random Random(Seed);
    byte_vector Bytes(Size);
    for (uint8_t &Byte : Bytes) Byte = (uint8_t)(Random.Next() >> 24);
    return Bytes;
}

byte_vector MakeText(size_t Size, uint32_t Seed)
{
    static char const *const Words[] = {"mesh",   "vertex", "the",     "bone",   "of",   "animation", "a",
                                        "curve",  "track",  "section", "and",    "file", "texture",   "in",
                                        "normal", "skin",   "weight",  "matrix", "to",   "model",     "is"};
    test_random Random(Seed);
    byte_vector Bytes;
    while (Bytes.size() < Size) {
        char const *Word = Words[Random.Next() % (sizeof(Words) / sizeof(Words[0]))];
        Bytes.insert(Bytes.end(), Word, Word + strlen(Word));
        Bytes.push_back(Random.Next() % 11 == 0 ? '\n' : ' ');
    }
    Bytes.resize(Size);
    return Bytes;
}

byte_vector MakeVertexArrays(int GridSize)
{
    byte_vector Bytes;
    auto PushFloat = [&](float Value) {
        uint8_t Raw[4];
        memcpy(Raw, &Value, 4);
        Bytes.insert(Bytes.end(), Raw, Raw + 4);
    };
    for (int Y = 0; Y < GridSize; ++Y) {
        for (int X = 0; X < GridSize; ++X) {
            float Height = 0.25f * std::sin(X * 0.3f) * std::cos(Y * 0.2f);
            PushFloat((float)X);
            PushFloat(Height);
            PushFloat((float)Y);
            PushFloat(0.0f);
            PushFloat(1.0f);
            PushFloat(0.0f);
            PushFloat(X / (float)GridSize);
            PushFloat(Y / (float)GridSize);
        }
    }
    for (int Y = 0; Y + 1 < GridSize; ++Y) {
        for (int X = 0; X + 1 < GridSize; ++X) {
            uint16_t Corner = (uint16_t)(Y * GridSize + X);
            uint16_t const Indices[6] = {Corner,
                                         (uint16_t)(Corner + 1),
                                         (uint16_t)(Corner + GridSize),
                                         (uint16_t)(Corner + 1),
                                         (uint16_t)(Corner + GridSize + 1),
                                         (uint16_t)(Corner + GridSize)};
            for (uint16_t Index : Indices) {
                Bytes.push_back((uint8_t)Index);
                Bytes.push_back((uint8_t)(Index >> 8));
            }
        }
    }
    return Bytes;
}

byte_vector MakeRepeatingPattern(size_t Size, size_t Period, uint32_t Seed)
{
    byte_vector Pattern = MakeRandomBytes(Period, Seed);
    byte_vector Bytes(Size);
    for (size_t Index = 0; Index < Size; ++Index) Bytes[Index] = Pattern[Index % Period];
    return Bytes;
}

bool CompressSection(int Format, bool ByteReverse, std::vector<byte_vector> const &Streams, byte_vector &Stored)
{
    uint32_t Total = 0;
    for (byte_vector const &Stream : Streams) Total += (uint32_t)Stream.size();
    file_writer *Writer = CreateMemoryFileWriter(65536);
    if (!Writer) return false;
    file_compressor *Compressor = BeginFileCompression(Total, (int32)Streams.size(), Format, ByteReverse, Writer);
    bool Result = Compressor != 0;
    for (byte_vector const &Stream : Streams) {
        Result = Result && CompressContentsOfMemory(Compressor, (int32)Stream.size(), Stream.data());
    }
    uint32 StoredSize = 0;
    if (Compressor) Result = EndFileCompression(Compressor, &StoredSize) && Result;
    uint8 *Buffer = 0;
    int32 BufferSize = 0;
    if (StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize)) {
        Stored.assign(Buffer, Buffer + BufferSize);
        FreeMemoryWriterBuffer(Buffer);
    } else {
        Stored.clear();
    }
    DeleteFileWriter(Writer);
    return Result && Stored.size() == StoredSize;
}

bool ExpandSection(int Format, bool ByteReverse, byte_vector const &Stored, std::vector<size_t> const &StreamSizes,
                   byte_vector &Expanded)
{
    int32 Stops[3] = {0, 0, 0};
    size_t End = 0;
    for (size_t Index = 0; Index < 3; ++Index) {
        if (Index < StreamSizes.size()) End += StreamSizes[Index];
        Stops[Index] = (int32)End;
    }
    Expanded.assign(End, 0xCD);
    return DecompressData(Format, ByteReverse, (int32)Stored.size(), Stored.data(), Stops[0], Stops[1], Stops[2],
                          Expanded.data());
}
