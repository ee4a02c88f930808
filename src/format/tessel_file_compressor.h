// Section compression: the layer the file builder drives to store the three
// streams of a section either raw (format 0) or coded with Trove1 (format 2),
// and the decoder the file reader uses to expand a stored section.
//
// Writing a section:
//   file_compressor *C = BeginFileCompression(ExpandedSize, 3, Format, ByteReverse, Writer);
//   CompressContentsOfFile(C, StreamSize[0], Stream0Name);   // once per stream,
//   CompressContentsOfFile(C, StreamSize[1], Stream1Name);   // in stream order,
//   CompressContentsOfFile(C, StreamSize[2], Stream2Name);   // empty ones too
//   uint32 StoredSize; EndFileCompression(C, &StoredSize);   // writes and frees
//
// Reading it back: allocate the stored bytes plus TrovePaddingBytes, read
// DataSize bytes, then DecompressData(Format, IsByteReversed, DataSize, Buffer,
// First16Bit, First8Bit, ExpandedDataSize, Destination).
#pragma once

#include "foundation/tessel_types.h"
#include "format/tessel_file_format.h"

struct file_writer;
struct file_reader;
struct file_compressor;

// A Trove1 section starts with one 12-byte parameter record per stream.
enum
{
    TroveStreamCount = 3,
    TroveParameterRecordSize = 12,
    TroveHeaderSize = TroveStreamCount * TroveParameterRecordSize,
    // Readers allocate this many bytes past DataSize of a compressed section.
    TrovePaddingBytes = 4,
};

// Begins a compressed (or raw) section of ExpandedSize bytes in StreamCount
// streams (at most 3). Format is a file_compression_type: 0 stores the
// bytes, 2 codes them with Trove1; 1 (Trove0) can only be decoded, so the
// compress operations refuse it. ByteReverse stores the Trove1 parameter
// records in the other byte order. Nothing reaches Writer before
// EndFileCompression for format 2. Returns null when the work memory can't
// be allocated or an argument is invalid.
file_compressor *BeginFileCompression(uint32 ExpandedSize, int32 StreamCount, int32 Format, bool ByteReverse,
                                      file_writer *Writer);

// Each call adds the next stream, Size bytes long. False on a short read,
// a refused format, or more bytes or streams than announced.
bool CompressContentsOfFile(file_compressor *Compressor, int32 Size, char const *FileName);
bool CompressContentsOfReader(file_compressor *Compressor, int32 Size, file_reader *Reader);
bool CompressContentsOfMemory(file_compressor *Compressor, int32 Size, void const *Data);

// Progress of a Trove1 section: Callback is told the expanded bytes coded
// since its last call, as the coding goes, on the thread that codes.
// Stored sections report nothing.
void SetFileCompressionProgress(file_compressor *Compressor, void (*Callback)(void *Data, uint32 Bytes), void *Data);

// Finishes the coder, writes the stored bytes to the writer, reports their
// count in ResultSize (may be null) and frees the compressor, also when it
// fails. Streams never added are stored as empty streams.
bool EndFileCompression(file_compressor *Compressor, uint32 *ResultSize);

// Expands a stored section into Result, which holds at least Stop2 bytes.
// Stop0, Stop1 and Stop2 are the ends of streams 0, 1 and 2 in the expanded
// data (First16Bit, First8Bit, ExpandedDataSize). Compressed is not
// modified. False, with a logged reason, for data that doesn't decode to
// exactly those stops; never reads or writes outside the given buffers.
bool DecompressData(int32 Format, bool ByteReverse, int32 CompressedSize, void const *Compressed, int32 Stop0,
                    int32 Stop1, int32 Stop2, void *Result);

// Upper bound of the stored size of a section (what BeginFileCompression
// reserves for the coded output).
uint32 GetMaximumCompressedSize(uint32 ExpandedSize, int32 StreamCount);
