#include "format/tessel_trove_decoder.h"

#include <cstring>

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "format/tessel_file_compressor.h"
#include "format/tessel_range_coder.h"
#include "format/tessel_trove_model.h"
#include "format/tessel_trove_parser.h"

namespace {

struct trove_decoder
{
    trove_model Literal[TroveLiteralModelCount];
    trove_model Length[TroveLengthModelCount];
    trove_model Low;
    trove_model High;
    trove_model Middle[TroveMiddleModelCount];
};

// The largest model of each kind that any of the records asks for.
struct decoder_capacity
{
    uint32 Literal;
    uint32 Length;
    uint32 High;
};

inline uint32 ReverseWord(uint32 Value)
{
    return (Value >> 24) | ((Value >> 8) & 0xFF00u) | ((Value << 8) & 0xFF0000u) | (Value << 24);
}

inline uint32 Larger(uint32 A, uint32 B)
{
    return A > B ? A : B;
}
inline uint32 Smaller(uint32 A, uint32 B)
{
    return A < B ? A : B;
}

int32 GetDecoderUnits(decoder_capacity const &Capacity)
{
    int32 Units = TroveLiteralModelCount * GetModelArrayUnits(Capacity.Literal, 0, false);
    Units += TroveLengthModelCount * GetModelArrayUnits(Capacity.Length, 0, false);
    Units += GetModelArrayUnits(TroveLowAlphabet, 0, false);
    Units += GetModelArrayUnits(Capacity.High, 0, false);
    Units += TroveMiddleModelCount * GetModelArrayUnits(TroveMaxAlphabet, 0, false);
    return Units;
}

uint16 *Place(trove_model &Model, uint16 *Memory, uint32 Capacity)
{
    PlaceModel(Model, Memory, Capacity, 0, false);
    return Memory + GetModelArrayUnits(Capacity, 0, false);
}

void PlaceDecoder(trove_decoder &Decoder, uint16 *Memory, decoder_capacity const &Capacity)
{
    for (int32 Index = 0; Index < TroveLiteralModelCount; ++Index) {
        Memory = Place(Decoder.Literal[Index], Memory, Capacity.Literal);
    }
    for (int32 Index = 0; Index < TroveLengthModelCount; ++Index) {
        Memory = Place(Decoder.Length[Index], Memory, Capacity.Length);
    }
    Memory = Place(Decoder.Low, Memory, TroveLowAlphabet);
    Memory = Place(Decoder.High, Memory, Capacity.High);
    for (int32 Index = 0; Index < TroveMiddleModelCount; ++Index) {
        Memory = Place(Decoder.Middle[Index], Memory, TroveMaxAlphabet);
    }
}

void ResetDecoderModel(trove_model &Model, uint32 MaxSymbols, uint32 Alphabet)
{
    Model.Alphabet = Alphabet;
    ResetModel(Model, MaxSymbols, false);
}

// A stream of Size bytes can only reach the middle models of distances
// below Size: the others are left as they are.
void ResetDecoder(trove_decoder &Decoder, trove_model_sizes const &Sizes, uint32 Size)
{
    for (int32 Index = 0; Index < TroveLiteralModelCount; ++Index) {
        ResetDecoderModel(Decoder.Literal[Index], Sizes.LiteralMaxSymbols, Sizes.LiteralAlphabet);
    }
    for (int32 Index = 0; Index < TroveLengthModelCount; ++Index) {
        int32 Group = Index < 64 ? Index / 16 : 3;
        ResetDecoderModel(Decoder.Length[Index], Sizes.LengthMaxSymbols[Group], TroveLengthAlphabet);
    }
    uint32 Low = GetLowAlphabet(Sizes.WindowLimit);
    ResetDecoderModel(Decoder.Low, Low, Low);
    ResetDecoderModel(Decoder.High, Sizes.HighMaxSymbols, GetHighAlphabet(Sizes.WindowLimit));
    uint32 Middle = GetMiddleAlphabet(Sizes.WindowLimit);
    uint32 MiddleCount = Size ? Smaller(((Size - 1) >> 10) + 1, TroveMiddleModelCount) : 0;
    for (uint32 Index = 0; Index < MiddleCount; ++Index) {
        ResetDecoderModel(Decoder.Middle[Index], Middle, Middle);
    }
}

enum
{
    TroveDecoderOverrunLimit = 16,
};

bool DecodeStreamSymbols(trove_decoder &Decoder, range_decoder &Coder, uint32 WindowLimit, uint8 *Output, uint32 Size);

// The coder is worked on as a local copy, which the compiler keeps in
// registers through the symbol loop.
bool DecodeStream(trove_decoder &Decoder, range_decoder &Shared, uint32 WindowLimit, uint8 *Output, uint32 Size)
{
    range_decoder Coder = Shared;
    bool Result = DecodeStreamSymbols(Decoder, Coder, WindowLimit, Output, Size);
    Shared = Coder;
    return Result;
}

__attribute__((always_inline)) inline bool DecodeStreamSymbols(trove_decoder &Decoder, range_decoder &Coder,
                                                               uint32 WindowLimit, uint8 *Output, uint32 Size)
{
    uint32 Context = 0;
    uint32 Position = 0;
    while (Position < Size) {
        // Decoding on from zeros past the stored bytes would fill any size
        // the section claims: a stream that runs out is corrupt.
        if (Coder.Overrun > TroveDecoderOverrunLimit) return false;
        uint32 Symbol;
        if (!DecodeModelSymbol(Coder, Decoder.Length[Context], TroveLengthAlphabet, &Symbol)) return false;
        Context = Symbol;
        if (Symbol == 0) {
            uint32 Byte;
            if (!DecodeModelSymbol(Coder, Decoder.Literal[Position & 3], TroveLiteralAlphabet, &Byte)) return false;
            Output[Position++] = (uint8)Byte;
            continue;
        }

        uint32 Length = GetTroveSymbolLength(Symbol);
        uint32 Window = Smaller(WindowLimit, Position);
        if (Window == 0) return false;
        uint32 Low, High, Middle;
        if (!DecodeModelSymbol(Coder, Decoder.Low, TroveLowAlphabet, &Low)) return false;
        if (!DecodeModelSymbol(Coder, Decoder.High, (Window >> 10) + 1, &High)) return false;
        // Only the middle models a stream of this size can reach were reset.
        if (High >= TroveMiddleModelCount || High > ((Size - 1) >> 10)) return false;
        uint32 MiddleAlphabet = Window < 1024 ? (Window >> 2) + 1 : 256;
        if (!DecodeModelSymbol(Coder, Decoder.Middle[High], MiddleAlphabet, &Middle)) return false;
        uint32 Distance = Low + 1 + 4 * Middle + 1024 * High;
        if (Distance > Position || Length > Size - Position) return false;

        uint8 *Target = Output + Position;
        uint8 const *Source = Target - Distance;
        if (Distance >= Length) {
            memcpy(Target, Source, Length);
        } else {
            // Overlapping: the copy repeats the last Distance bytes.
            for (uint32 Index = 0; Index < Length; ++Index) Target[Index] = Source[Index];
        }
        Position += Length;
    }
    return true;
}

} // namespace

bool DecodeTroveSection(bool ByteReverse, int32 CompressedSize, void const *Compressed, uint32 const Stops[3],
                        uint8 *Result)
{
    if (CompressedSize < TroveHeaderSize) {
        TesselError(LogCategory_Compression, "Trove1 section of %d bytes is shorter than its parameter records",
                    CompressedSize);
        return false;
    }
    if (Stops[0] > Stops[1] || Stops[1] > Stops[2]) {
        TesselError(LogCategory_Compression, "Stream ends %u, %u, %u are out of order", Stops[0], Stops[1], Stops[2]);
        return false;
    }

    trove_parameters Records[TroveStreamCount];
    memcpy(Records, Compressed, TroveHeaderSize);
    trove_model_sizes Sizes[TroveStreamCount];
    decoder_capacity Capacity = {1, 1, 1};
    for (int32 Stream = 0; Stream < TroveStreamCount; ++Stream) {
        if (ByteReverse) {
            for (int32 Word = 0; Word < 3; ++Word)
                Records[Stream].Words[Word] = ReverseWord(Records[Stream].Words[Word]);
        }
        if (!GetTroveModelSizes(Records[Stream], Sizes[Stream])) {
            TesselError(LogCategory_Compression, "Trove1 parameter record %d is invalid (0x%x, 0x%x, 0x%x)", Stream,
                        Records[Stream].Words[0], Records[Stream].Words[1], Records[Stream].Words[2]);
            return false;
        }
        Capacity.Literal = Larger(Capacity.Literal, Sizes[Stream].LiteralMaxSymbols);
        Capacity.High = Larger(Capacity.High, Sizes[Stream].HighMaxSymbols);
        for (int32 Group = 0; Group < 4; ++Group) {
            Capacity.Length = Larger(Capacity.Length, Sizes[Stream].LengthMaxSymbols[Group]);
        }
    }

    int32 WorkSize = (int32)sizeof(uint16) * GetDecoderUnits(Capacity);
    uint16 *Work = (uint16 *)TesselAllocate(WorkSize);
    if (!Work) {
        TesselError(LogCategory_Compression, "Trove1Decompress unable to alloc %d bytes", WorkSize);
        return false;
    }
    trove_decoder Decoder;
    PlaceDecoder(Decoder, Work, Capacity);

    uint8 const *Input = (uint8 const *)Compressed;
    range_decoder Coder;
    BeginRangeDecoder(Coder, Input + TroveHeaderSize, Input + CompressedSize);
    bool Result_ = true;
    uint32 Start = 0;
    for (int32 Stream = 0; Result_ && Stream < TroveStreamCount; ++Stream) {
        ResetDecoder(Decoder, Sizes[Stream], Stops[Stream] - Start);
        Result_ = DecodeStream(Decoder, Coder, Sizes[Stream].WindowLimit, Result + Start, Stops[Stream] - Start);
        Start = Stops[Stream];
    }
    TesselFree(Work);
    if (!Result_) TesselError(LogCategory_Compression, "Trove1 section data is corrupt");
    return Result_;
}
