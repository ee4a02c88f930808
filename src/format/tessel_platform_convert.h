// Platform conversion: re-lays a finished TS2 file for another pointer size
// and/or byte order. It knows nothing of the records: it walks the type
// tables that the file carries, re-lays every object, array, string and type
// table for the target's pointer size, writes every field in the target's
// byte order by its member kind, translates the fixups and marshalling
// records, recompresses the sections with their own format and writes the
// target file.
//
// Objects keep their order within each section stream, and the target is
// laid out like a built file (data, then fixups, then marshalling records),
// so converting a file and converting the result back gives the original
// bytes.
#pragma once

#include "foundation/tessel_types.h"
#include "format/tessel_file_format.h"

struct file_reader;
struct file_writer;
struct loaded_file;

// Reads the file behind Source (any of the four platforms) and writes it to
// Target for the platform of TargetMagic. A converted file always keeps its
// type tables: ExcludeTypeTree is accepted and has no effect. Equal source
// and target platforms warn and still give a valid file. False (logged) on
// any failure; Target may then hold a partial file.
bool PlatformConvertReaderToWriter(file_reader *Source, file_writer *Target, file_magic_block const &TargetMagic,
                                   bool ExcludeTypeTree);

// The same with the compression of each target section given (Formats[i]
// for section i < FormatCount) instead of kept from the source: the file
// builder lays out its own form uncompressed and lets the conversion
// compress once.
bool PlatformConvertReaderToWriterWithFormats(file_reader *Source, file_writer *Target,
                                              file_magic_block const &TargetMagic, int32 FormatCount,
                                              uint32 const *Formats);

// The same for a file that the reader has already loaded (in its stored
// pointer size); Reader is the one it was loaded from.
bool PlatformConvertLoadedFileToWriter(file_reader *Reader, loaded_file const &Source, file_writer *Target,
                                       file_magic_block const &TargetMagic);

// Whole files in memory. Result is freed with FreeMemoryWriterBuffer.
bool PlatformConvertMemory(int32 Size, void const *Data, file_magic_block const &TargetMagic, uint8 **Result,
                           int32 *ResultSize);

// The reader's hook: Stored was loaded from Reader with another pointer size
// than this platform's; the result is the same file re-laid for this
// platform and loaded with its pointers applied, or null when the conversion
// fails. Its Magic and IsByteReversed still describe the file as stored.
loaded_file *LoadConvertedToNative(file_reader *Reader, loaded_file const &Stored);
