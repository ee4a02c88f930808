#include "format/tessel_file_compressor.h"

#include <cstring>

#include "foundation/tessel_file_io.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "format/tessel_trove_decoder.h"
#include "format/tessel_trove_parser.h"

struct file_compressor
{
    int32 Format;
    file_writer *Writer;
    bool8 ByteReverse;
    uint32 Size; // bytes passed through in format 0
    int32 StreamCount;
    int32 StreamsAdded;
    uint32 ExpandedSize;
    uint32 BytesAdded;
    bool8 Healthy;
    trove_encoder *Trove;
    uint8 *Output; // one scratch byte, then the coded bytes
    uint32 OutputCapacity;
    bool8 OutputGrown; // Output is a block of its own, not in the aggregate
};

namespace {

int32 const CopyBlockSize = 65536;

inline uint32 ReverseWord(uint32 Value)
{
    return (Value >> 24) | ((Value >> 8) & 0xFF00u) | ((Value << 8) & 0xFF0000u) | (Value << 24);
}

// Whether the compressor takes another stream of Size bytes; logs why not.
bool AcceptStream(file_compressor *Compressor, int32 Size)
{
    CheckPointer(Compressor, LogCategory_Compression, false);
    if (Compressor->Format == Trove0Compression) {
        TesselError(LogCategory_Compression, "Trove0 compression is not supported for writing");
        return false;
    }
    if (Compressor->Format != NoCompression && Compressor->Format != Trove1Compression) {
        TesselError(LogCategory_Compression, "Unrecognized compression type %d", Compressor->Format);
        return false;
    }
    CheckCondition(Size >= 0, LogCategory_Compression, false);
    CheckIndex(Compressor->StreamsAdded, Compressor->StreamCount, LogCategory_Compression, false);
    if ((uint64)Compressor->BytesAdded + (uint32)Size > Compressor->ExpandedSize) {
        TesselError(LogCategory_Compression, "Stream of %d bytes exceeds the announced section size %u", Size,
                    Compressor->ExpandedSize);
        return false;
    }
    return Compressor->Healthy;
}

void CountStream(file_compressor *Compressor, int32 Size)
{
    ++Compressor->StreamsAdded;
    Compressor->BytesAdded += (uint32)Size;
}

// Codes a stream held in a buffer with TroveInputPadding zero bytes after it.
void CodeTroveStream(file_compressor *Compressor, uint8 const *Padded, int32 Size)
{
    EncodeTroveStream(*Compressor->Trove, Padded, (uint32)Size);
    CountStream(Compressor, Size);
}

uint8 *AllocatePaddedStream(int32 Size)
{
    uint8 *Buffer = (uint8 *)TesselAllocate((intaddrx)Size + TroveInputPadding);
    if (Buffer) memset(Buffer + Size, 0, TroveInputPadding);
    return Buffer;
}

// Data that the models fit badly can code to more than the reserved worst
// case; the output then moves to a block twice as large.
bool GrowTroveOutput(range_encoder &Coder)
{
    file_compressor *Compressor = (file_compressor *)Coder.GrowOutputData;
    uint64 Capacity = (uint64)Compressor->OutputCapacity * 2;
    if (Capacity > 0x7FFFFFF0u) return false;
    uint8 *Output = (uint8 *)TesselAllocate((intaddrx)Capacity + 1);
    if (!Output) return false;
    intaddrx Used = Coder.Output - Compressor->Output; // scratch byte up to the last byte written
    memcpy(Output, Compressor->Output, (size_t)Used + 1);
    if (Compressor->OutputGrown) TesselFree(Compressor->Output);
    Compressor->Output = Output;
    Compressor->OutputCapacity = (uint32)Capacity;
    Compressor->OutputGrown = true;
    Coder.OutputStart = Output + 1;
    Coder.Output = Output + Used;
    Coder.OutputLimit = Output + 1 + Capacity;
    return true;
}

} // namespace

uint32 GetMaximumCompressedSize(uint32 ExpandedSize, int32 StreamCount)
{
    uint64 Size =
        12 * (uint64)(StreamCount > 0 ? StreamCount : 0) + ((uint64)ExpandedSize * 9 + 7) / 8 + TroveHeaderSize;
    return Size > 0xFFFFFFFFu ? 0xFFFFFFFFu : (uint32)Size;
}

file_compressor *BeginFileCompression(uint32 ExpandedSize, int32 StreamCount, int32 Format, bool ByteReverse,
                                      file_writer *Writer)
{
    CheckPointer(Writer, LogCategory_Compression, 0);
    CheckRange(StreamCount, 0, TroveStreamCount, LogCategory_Compression, 0);
    if (ExpandedSize > 0x7FFFFFF0u) {
        TesselError(LogCategory_Compression, "Section of %u bytes is too large to compress", ExpandedSize);
        return 0;
    }

    aggr_allocator Allocator;
    BeginAggregateAllocation(Allocator);
    SetAggregateAlignment(Allocator, 8);
    file_compressor *Compressor = 0;
    trove_encoder *Trove = 0;
    void *Work = 0;
    uint8 *Output = 0;
    uint32 OutputCapacity = 0;
    AggregateAllocate(Allocator, &Compressor, sizeof(file_compressor));
    if (Format == Trove1Compression) {
        // The worst case less the records, plus room for the coder's final
        // bytes and its scratch byte.
        OutputCapacity = GetMaximumCompressedSize(ExpandedSize, TroveStreamCount) - TroveHeaderSize + 64;
        AggregateAllocate(Allocator, &Trove, sizeof(trove_encoder));
        AggregateAllocate(Allocator, &Work, GetTroveEncoderWorkSize(ExpandedSize));
        AggregateAllocate(Allocator, &Output, (intaddrx)OutputCapacity + 1);
    }
    if (!EndAggregateAllocation(Allocator)) return 0;

    memset(Compressor, 0, sizeof(*Compressor));
    Compressor->Format = Format;
    Compressor->Writer = Writer;
    Compressor->ByteReverse = ByteReverse;
    Compressor->StreamCount = StreamCount;
    Compressor->ExpandedSize = ExpandedSize;
    Compressor->Healthy = true;
    if (Format == Trove1Compression) {
        Compressor->Trove = Trove;
        Compressor->Output = Output;
        Compressor->OutputCapacity = OutputCapacity;
        BeginTroveEncoder(*Trove, Work, ExpandedSize, Output + 1, Output + 1 + OutputCapacity);
        Trove->Coder.GrowOutputCallback = GrowTroveOutput;
        Trove->Coder.GrowOutputData = Compressor;
    }
    return Compressor;
}

void SetFileCompressionProgress(file_compressor *Compressor, void (*Callback)(void *Data, uint32 Bytes), void *Data)
{
    if (!Compressor || !Compressor->Trove) return;
    Compressor->Trove->ProgressCallback = Callback;
    Compressor->Trove->ProgressData = Data;
}

bool CompressContentsOfMemory(file_compressor *Compressor, int32 Size, void const *Data)
{
    if (!AcceptStream(Compressor, Size)) return false;
    if (Size > 0) CheckPointer(Data, LogCategory_Compression, false);

    if (Compressor->Format == NoCompression) {
        if (Size > 0 && !Write(Compressor->Writer, Size, Data)) {
            Compressor->Healthy = false;
            return false;
        }
        Compressor->Size += (uint32)Size;
        CountStream(Compressor, Size);
        return true;
    }

    uint8 *Padded = AllocatePaddedStream(Size);
    if (!Padded) return false;
    if (Size > 0) memcpy(Padded, Data, (size_t)Size);
    CodeTroveStream(Compressor, Padded, Size);
    TesselFree(Padded);
    return true;
}

bool CompressContentsOfReader(file_compressor *Compressor, int32 Size, file_reader *Reader)
{
    if (!AcceptStream(Compressor, Size)) return false;
    CheckPointer(Reader, LogCategory_Compression, false);

    if (Compressor->Format == NoCompression) {
        uint8 *Block = (uint8 *)TesselAllocate(CopyBlockSize);
        if (!Block) return false;
        bool Result = true;
        for (int32 Done = 0; Result && Done < Size;) {
            int32 Piece = Size - Done < CopyBlockSize ? Size - Done : CopyBlockSize;
            Result = ReadExactly(Reader, Done, Piece, Block) && Write(Compressor->Writer, Piece, Block);
            Done += Piece;
        }
        TesselFree(Block);
        if (!Result) {
            Compressor->Healthy = false;
            return false;
        }
        Compressor->Size += (uint32)Size;
        CountStream(Compressor, Size);
        return true;
    }

    uint8 *Padded = AllocatePaddedStream(Size);
    if (!Padded) return false;
    bool Result = Size == 0 || ReadExactly(Reader, 0, Size, Padded);
    if (Result) {
        CodeTroveStream(Compressor, Padded, Size);
    } else {
        TesselError(LogCategory_Compression, "Short read of a %d byte stream", Size);
    }
    TesselFree(Padded);
    return Result;
}

bool CompressContentsOfFile(file_compressor *Compressor, int32 Size, char const *FileName)
{
    if (!AcceptStream(Compressor, Size)) return false;
    CheckPointer(FileName, LogCategory_Compression, false);
    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) {
        TesselError(LogCategory_Compression, "Unable to open %s for compression", FileName);
        return false;
    }
    bool Result = CompressContentsOfReader(Compressor, Size, Reader);
    CloseFileReader(Reader);
    return Result;
}

bool EndFileCompression(file_compressor *Compressor, uint32 *ResultSize)
{
    CheckPointer(Compressor, LogCategory_Compression, false);
    if (ResultSize) *ResultSize = 0;
    bool Result = Compressor->Healthy;
    if (Compressor->Format == NoCompression) {
        if (ResultSize) *ResultSize = Compressor->Size;
    } else if (Compressor->Format == Trove1Compression) {
        trove_encoder &Trove = *Compressor->Trove;
        // Streams never added are stored as empty ones.
        while (Trove.StreamsCoded < TroveStreamCount) EncodeTroveStream(Trove, 0, 0);
        uint32 CodedSize = 0;
        if (!EndTroveEncoder(Trove, &CodedSize)) {
            TesselError(LogCategory_Compression, "Unable to grow the Trove1 output beyond %u bytes",
                        Compressor->OutputCapacity);
            Result = false;
        }
        uint32 Records[TroveStreamCount * 3];
        for (int32 Stream = 0; Stream < TroveStreamCount; ++Stream) {
            for (int32 Word = 0; Word < 3; ++Word) {
                uint32 Value = Trove.Parameters[Stream].Words[Word];
                Records[Stream * 3 + Word] = Compressor->ByteReverse ? ReverseWord(Value) : Value;
            }
        }
        Result = Result && Write(Compressor->Writer, TroveHeaderSize, Records) &&
                 Write(Compressor->Writer, (int32)CodedSize, Compressor->Output + 1);
        if (Result && ResultSize) *ResultSize = TroveHeaderSize + CodedSize;
        if (Compressor->OutputGrown) TesselFree(Compressor->Output);
    } else {
        if (Compressor->Format != Trove0Compression) {
            TesselError(LogCategory_Compression, "Unrecognized compression type %d", Compressor->Format);
        }
        Result = false;
    }
    TesselFree(Compressor);
    return Result;
}

bool DecompressData(int32 Format, bool ByteReverse, int32 CompressedSize, void const *Compressed, int32 Stop0,
                    int32 Stop1, int32 Stop2, void *Result)
{
    if (Stop0 < 0 || Stop1 < Stop0 || Stop2 < Stop1) {
        TesselError(LogCategory_Compression, "Stream ends %d, %d, %d are out of order", Stop0, Stop1, Stop2);
        return false;
    }
    CheckCondition(CompressedSize >= 0, LogCategory_Compression, false);
    if (CompressedSize > 0) CheckPointer(Compressed, LogCategory_Compression, false);
    if (Stop2 > 0) CheckPointer(Result, LogCategory_Compression, false);

    switch (Format) {
    case NoCompression:
        if (CompressedSize < Stop2) {
            TesselError(LogCategory_Compression, "Stored section of %d bytes is shorter than its %d expanded bytes",
                        CompressedSize, Stop2);
            return false;
        }
        if (Stop2 > 0) memcpy(Result, Compressed, (size_t)Stop2);
        return true;
    case Trove0Compression:
        TesselError(LogCategory_Compression, "Trove0 compressed sections are not supported by this reader");
        return false;
    case Trove1Compression: {
        uint32 Stops[TroveStreamCount] = {(uint32)Stop0, (uint32)Stop1, (uint32)Stop2};
        return DecodeTroveSection(ByteReverse, CompressedSize, Compressed, Stops, (uint8 *)Result);
    }
    default: TesselError(LogCategory_Compression, "Unrecognized compression type %d", Format); return false;
    }
}
