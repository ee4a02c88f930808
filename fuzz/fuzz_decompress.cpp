// Section decoding on arbitrary input: it may fail or give wrong bytes, but
// must not crash, hang, or touch memory outside its buffers.
//
// Input: byte 0 holds flags (bit 0 byte-reversed records, bits 1-2 the
// format: 0 and 1 Trove1, 2 stored, 3 the old format), bytes 1-6 the three
// stream sizes (16-bit little-endian each, at most 16 KB are used), the rest
// is the stored section. With bit 7 set the rest is instead compressed and
// decoded again, and must come back unchanged (unless built with
// TESSEL_FUZZ_DECODE_ONLY, which keeps a fuzzing session on the decoder).
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "format/tessel_file_compressor.h"
#include "foundation/tessel_file_io.h"

static uint32_t ReadSize(uint8_t const *Data)
{
    return (uint32_t)(Data[0] | (Data[1] << 8)) & 0x3FFF;
}

static void RoundTrip(bool Reverse, uint32_t const Sizes[3], uint8_t const *Data, size_t Size)
{
    uint32_t Total = 0;
    uint32_t Lengths[3];
    for (int Stream = 0; Stream < 3; ++Stream) {
        Lengths[Stream] = Sizes[Stream] < Size - Total ? Sizes[Stream] : (uint32_t)(Size - Total);
        Total += Lengths[Stream];
    }
    file_writer *Writer = CreateMemoryFileWriter(65536);
    file_compressor *Compressor = BeginFileCompression(Total, 3, Trove1Compression, Reverse, Writer);
    if (!Compressor) abort();
    uint32_t Offset = 0;
    for (int Stream = 0; Stream < 3; ++Stream) {
        if (!CompressContentsOfMemory(Compressor, (int32)Lengths[Stream], Data + Offset)) abort();
        Offset += Lengths[Stream];
    }
    uint32 Stored = 0;
    if (!EndFileCompression(Compressor, &Stored)) abort();
    uint8 *Buffer = 0;
    int32 BufferSize = 0;
    if (!StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize) || (uint32)BufferSize != Stored) abort();
    DeleteFileWriter(Writer);
    uint8_t *Expanded = (uint8_t *)malloc(Total + 1);
    int32 Stop0 = (int32)Lengths[0], Stop1 = Stop0 + (int32)Lengths[1], Stop2 = (int32)Total;
    if (!DecompressData(Trove1Compression, Reverse, BufferSize, Buffer, Stop0, Stop1, Stop2, Expanded)) abort();
    if (memcmp(Expanded, Data, Total) != 0) abort();
    free(Expanded);
    FreeMemoryWriterBuffer(Buffer);
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size)
{
    if (Size < 7) return 0;
    uint8_t Flags = Data[0];
    bool Reverse = (Flags & 1) != 0;
    uint32_t Sizes[3] = {ReadSize(Data + 1), ReadSize(Data + 3), ReadSize(Data + 5)};
    Data += 7;
    Size -= 7;
#ifndef TESSEL_FUZZ_DECODE_ONLY
    if (Flags & 0x80) {
        RoundTrip(Reverse, Sizes, Data, Size);
        return 0;
    }
#endif

    static int32_t const Formats[4] = {Trove1Compression, Trove1Compression, NoCompression, Trove0Compression};
    int32_t Format = Formats[(Flags >> 1) & 3];
    int32_t Stop0 = (int32_t)Sizes[0];
    int32_t Stop1 = Stop0 + (int32_t)Sizes[1];
    int32_t Stop2 = Stop1 + (int32_t)Sizes[2];
    // Exactly sized copies, so that the sanitizers see any access past them.
    uint8_t *Stored = (uint8_t *)malloc(Size ? Size : 1);
    memcpy(Stored, Data, Size);
    uint8_t *Expanded = (uint8_t *)malloc(Stop2 ? (size_t)Stop2 : 1);
    DecompressData(Format, Reverse, (int32_t)Size, Stored, Stop0, Stop1, Stop2, Expanded);
    free(Expanded);
    free(Stored);
    return 0;
}
