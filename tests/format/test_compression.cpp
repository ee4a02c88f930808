#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

#include "format/tessel_file_compressor.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_trove_parser.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"
#include "platform/tessel_platform.h"
#include "support/test_log_capture.h"
#include "test_compression_support.h"

namespace {

struct named_section
{
    char const *Name;
    std::vector<byte_vector> Streams;
};

byte_vector Concatenate(std::vector<byte_vector> const &Streams)
{
    byte_vector All;
    for (byte_vector const &Stream : Streams) All.insert(All.end(), Stream.begin(), Stream.end());
    return All;
}

std::vector<size_t> SizesOf(std::vector<byte_vector> const &Streams)
{
    std::vector<size_t> Sizes;
    for (byte_vector const &Stream : Streams) Sizes.push_back(Stream.size());
    return Sizes;
}

// Data that repeats a block exactly at the largest distance the window
// allows, and once more beyond it.
byte_vector MakeWindowCrossing()
{
    byte_vector Block = MakeRandomBytes(4096, 77);
    byte_vector Data = Block;
    byte_vector Filler = MakeRandomBytes(0x3FFFF - Block.size(), 78);
    Data.insert(Data.end(), Filler.begin(), Filler.end());
    Data.insert(Data.end(), Block.begin(), Block.end());
    byte_vector More = MakeRandomBytes(0x40000, 79);
    Data.insert(Data.end(), More.begin(), More.end());
    Data.insert(Data.end(), Block.begin(), Block.end());
    return Data;
}

// Text, runs, vertex arrays and random bytes in turn, longer than the window.
byte_vector MakeWrappingMix()
{
    byte_vector Data;
    for (uint32_t Round = 0; Data.size() < 0x60000; ++Round) {
        byte_vector Pieces[4] = {MakeText(30000 + 7000 * (Round % 3), 40 + Round), byte_vector(900 + 300 * Round, 0x20),
                                 MakeVertexArrays(30 + (int)Round), MakeRandomBytes(2000, 60 + Round)};
        for (byte_vector const &Piece : Pieces) Data.insert(Data.end(), Piece.begin(), Piece.end());
    }
    return Data;
}

std::vector<named_section> MakeRoundTripSet()
{
    byte_vector AllValues(256);
    for (int Value = 0; Value < 256; ++Value) AllValues[Value] = (uint8_t)Value;
    byte_vector AllValuesTwice = AllValues;
    AllValuesTwice.insert(AllValuesTwice.end(), AllValues.rbegin(), AllValues.rend());
    byte_vector AllValuesReversed(AllValues.rbegin(), AllValues.rend());

    return {
        {"empty", {{}}},
        {"one byte", {{0x5A}}},
        {"all byte values", {AllValuesTwice}},
        {"long run", {byte_vector(300000, 0xAB)}},
        {"runs of changing bytes", {MakeRepeatingPattern(5000, 1, 1), byte_vector(1000, 0), byte_vector(7, 1)}},
        {"distance 2", {MakeRepeatingPattern(4000, 2, 2)}},
        {"distance 3", {MakeRepeatingPattern(4001, 3, 3)}},
        {"period 129", {MakeRepeatingPattern(20000, 129, 4)}},
        {"random", {MakeRandomBytes(70000, 5)}},
        {"text", {MakeText(100000, 6)}},
        {"vertex arrays", {MakeVertexArrays(120)}},
        {"window crossing", {MakeWindowCrossing()}},
        {"three streams", {MakeVertexArrays(40), MakeRepeatingPattern(3000, 6, 7), MakeText(517, 8)}},
        // Nothing but new symbols: more than the reserved worst case.
        {"new symbols in every stream", {AllValues, AllValuesReversed, AllValues}},
        {"empty middle stream", {MakeText(999, 9), {}, MakeRandomBytes(33, 10)}},
        // The first stream reaches far distances; the short ones after it may
        // only use the few distance models their own size allows.
        {"far matches, then short streams",
         {MakeWindowCrossing(), MakeRepeatingPattern(5000, 2500, 11), MakeRepeatingPattern(1100, 1030, 12)}},
    };
}

TEST(Compression, Trove1RoundTripsEveryKindOfInput)
{
    int32 LiveBefore = LiveBlocks();
    for (named_section const &Section : MakeRoundTripSet()) {
        for (bool Reverse : {false, true}) {
            SCOPED_TRACE(std::string(Section.Name) + (Reverse ? " (byte-reversed)" : ""));
            byte_vector Stored;
            ASSERT_TRUE(CompressSection(Trove1Compression, Reverse, Section.Streams, Stored));
            byte_vector Original = Concatenate(Section.Streams);
            byte_vector Expanded;
            ASSERT_TRUE(ExpandSection(Trove1Compression, Reverse, Stored, SizesOf(Section.Streams), Expanded));
            EXPECT_TRUE(Expanded == Original);
            // Decoding with the wrong byte order must fail, not crash.
            byte_vector Wrong;
            log_capture Quiet;
            if (ExpandSection(Trove1Compression, !Reverse, Stored, SizesOf(Section.Streams), Wrong)) {
                EXPECT_EQ(Wrong.size(), Original.size());
            }
        }
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(Compression, Trove1ShrinksRedundantDataAndBarelyGrowsRandomData)
{
    struct expectation
    {
        byte_vector Data;
        double MaxRatio; // stored / expanded
    };
    expectation const Cases[] = {
        {byte_vector(1 << 20, 0), 0.002},
        {MakeText(200000, 11), 0.45},
        {MakeVertexArrays(150), 0.6},
        {MakeRandomBytes(100000, 12), 1.02},
    };
    for (expectation const &Case : Cases) {
        byte_vector Stored;
        ASSERT_TRUE(CompressSection(Trove1Compression, false, {Case.Data}, Stored));
        EXPECT_LT((double)Stored.size(), Case.MaxRatio * (double)Case.Data.size() + 64) << Case.Data.size();
    }
}

// The exact coded bytes of a few inputs: a change to the coder, the models or
// the parser's choices shows up here.
TEST(Compression, Trove1OutputIsPinned)
{
    struct pinned
    {
        char const *Name;
        std::vector<byte_vector> Streams;
        uint32 Size;
        uint32 CRC;
    };
    pinned const Cases[] = {
        {"text", {MakeText(20000, 21)}, 4625, 0x463BCF1Au},
        {"vertex arrays", {MakeVertexArrays(60), MakeRepeatingPattern(999, 3, 22), {}}, 37336, 0x47104951u},
        {"runs", {byte_vector(70000, 7), MakeRepeatingPattern(3000, 1, 23)}, 327, 0x9DFCB98Eu},
        {"random", {MakeRandomBytes(5000, 24)}, 5464, 0xB3293C4Du},
        // Longer than the window: the ring wraps, nodes of runs move on at
        // its far end, and distances spread over many high values.
        {"wrapping ring", {MakeWrappingMix()}, 93771, 0xF8D72AF2u},
        // A stream after one with the same bytes: nothing of the first may
        // be left in the match finder.
        {"repeated streams", {MakeText(9000, 25), MakeText(9000, 25), MakeRandomBytes(3000, 26)}, 7860, 0xAA383BB3u},
        // Streams longer and shorter than the ring in one section: the match
        // finder lays each out its own way and must leave nothing behind.
        {"long, short, long", {MakeWrappingMix(), MakeText(3000, 27), MakeWindowCrossing()}, 627129, 0x992F3B35u},
        {"short, long, short", {MakeVertexArrays(20), MakeWrappingMix(), MakeRepeatingPattern(700, 5, 28)}, 98263, 0xB392CFF3u},
    };
    for (pinned const &Case : Cases) {
        byte_vector Stored;
        ASSERT_TRUE(CompressSection(Trove1Compression, false, Case.Streams, Stored));
        uint32 CRC = ComputeCRC32((int32)Stored.size(), Stored.data());
        EXPECT_EQ(Stored.size(), Case.Size) << Case.Name;
        EXPECT_EQ(CRC, Case.CRC) << Case.Name;
    }
}

TEST(Compression, ParameterRecordsDescribeEachStream)
{
    byte_vector Stored;
    // Stream 0 uses three distinct bytes, stream 1 none, stream 2 all of them.
    byte_vector AllValues(256);
    for (int Value = 0; Value < 256; ++Value) AllValues[Value] = (uint8_t)Value;
    ASSERT_TRUE(CompressSection(Trove1Compression, false, {{1, 2, 3, 1, 2, 3}, {}, AllValues}, Stored));
    ASSERT_GE(Stored.size(), (size_t)TroveHeaderSize);
    uint32 Words[9];
    memcpy(Words, Stored.data(), sizeof(Words));
    for (int Stream = 0; Stream < 3; ++Stream) EXPECT_EQ(Words[Stream * 3], 256u | (0x3FFFFu << 9));
    EXPECT_EQ(Words[1] & 0x1FF, 1u); // one byte value per address modulo 4
    EXPECT_EQ(Words[4] & 0x1FF, 0u);
    EXPECT_EQ(Words[4] >> 9, 1u << 10); // empty: one above no symbols, in units of 1024
    EXPECT_EQ(Words[5], 0x01010101u);   // no length symbols in any group
    // With every byte value in a row the four literal models hold 64 each.
    EXPECT_EQ(Words[7] & 0x1FF, 64u);

    byte_vector Reversed;
    ASSERT_TRUE(CompressSection(Trove1Compression, true, {{1, 2, 3, 1, 2, 3}, {}, AllValues}, Reversed));
    ASSERT_EQ(Reversed.size(), Stored.size());
    EXPECT_EQ(Reversed[0], Stored[3]);
    EXPECT_EQ(Reversed[3], Stored[0]);
    EXPECT_TRUE(std::equal(Stored.begin() + TroveHeaderSize, Stored.end(), Reversed.begin() + TroveHeaderSize));
}

TEST(Compression, MatchLengthsSnapToCodableOnes)
{
    // (length, snapped): exactly 128 stays below.
    uint32 const Cases[][2] = {{1, 0}, {61, 61}, {128, 61}, {129, 128}, {200, 192}, {511, 256}, {100000, 512}};
    for (auto const &Case : Cases) EXPECT_EQ(SnapTroveMatchLength(Case[0]), Case[1]) << Case[0];
    for (uint32 Symbol = 1; Symbol < 65; ++Symbol) {
        EXPECT_EQ(GetTroveLengthSymbol(GetTroveSymbolLength(Symbol)), Symbol);
    }
}

TEST(Compression, StoredFormatPassesBytesThrough)
{
    std::vector<byte_vector> Streams = {MakeText(100, 31), {}, MakeRandomBytes(17, 32)};
    byte_vector Stored;
    ASSERT_TRUE(CompressSection(NoCompression, false, Streams, Stored));
    EXPECT_TRUE(Stored == Concatenate(Streams));
    byte_vector Expanded;
    ASSERT_TRUE(ExpandSection(NoCompression, false, Stored, SizesOf(Streams), Expanded));
    EXPECT_TRUE(Expanded == Stored);
    Stored.pop_back();
    log_capture Log;
    EXPECT_FALSE(ExpandSection(NoCompression, false, Stored, SizesOf(Streams), Expanded));
}

TEST(Compression, RefusedFormatsAndMisuse)
{
    int32 LiveBefore = LiveBlocks();
    file_writer *Writer = CreateMemoryFileWriter(1024);
    uint8 const Data[4] = {1, 2, 3, 4};
    {
        log_capture Log;
        file_compressor *Old = BeginFileCompression(4, 1, Trove0Compression, false, Writer);
        ASSERT_NE(Old, nullptr);
        EXPECT_FALSE(CompressContentsOfMemory(Old, 4, Data));
        EXPECT_FALSE(EndFileCompression(Old, 0));

        file_compressor *Unknown = BeginFileCompression(4, 1, 7, false, Writer);
        ASSERT_NE(Unknown, nullptr);
        EXPECT_FALSE(CompressContentsOfMemory(Unknown, 4, Data));
        EXPECT_FALSE(EndFileCompression(Unknown, 0));
        EXPECT_GE(Log.CountContaining("Unrecognized compression type 7"), 1);
        for (auto const &Entry : Log.Entries) EXPECT_EQ(Entry.Category, 19);

        byte_vector Out(8);
        EXPECT_FALSE(DecompressData(Trove0Compression, false, 4, Data, 0, 0, 4, Out.data()));
        EXPECT_FALSE(DecompressData(9, false, 4, Data, 0, 0, 4, Out.data()));
        EXPECT_TRUE(Log.Contains("Unrecognized compression type 9"));

        // More bytes or streams than announced.
        file_compressor *Small = BeginFileCompression(4, 1, Trove1Compression, false, Writer);
        EXPECT_FALSE(CompressContentsOfMemory(Small, 5, Data));
        EXPECT_TRUE(CompressContentsOfMemory(Small, 4, Data));
        EXPECT_FALSE(CompressContentsOfMemory(Small, 0, Data));
        EXPECT_TRUE(EndFileCompression(Small, 0));
    }
    DeleteFileWriter(Writer);
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(Compression, StreamsFromFilesAndShortReads)
{
    char Name[1024];
    snprintf(Name, sizeof(Name), "%s/compression_test_%d.bin", GetTemporaryDirectory(), (int)GetProcessIdentifier());
    byte_vector Text = MakeText(5000, 41);
    FILE *File = fopen(Name, "wb");
    ASSERT_NE(File, nullptr);
    fwrite(Text.data(), 1, Text.size(), File);
    fclose(File);

    for (int Format : {NoCompression, Trove1Compression}) {
        file_writer *Writer = CreateMemoryFileWriter(4096);
        file_compressor *Compressor = BeginFileCompression(10000, 3, Format, false, Writer);
        EXPECT_TRUE(CompressContentsOfFile(Compressor, 5000, Name));
        {
            log_capture Log;
            EXPECT_FALSE(CompressContentsOfFile(Compressor, 5001, Name)); // file is shorter
        }
        uint32 Size = 0;
        EndFileCompression(Compressor, &Size);
        uint8 *Buffer = 0;
        int32 BufferSize = 0;
        ASSERT_TRUE(StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize));
        byte_vector Stored(Buffer, Buffer + BufferSize);
        FreeMemoryWriterBuffer(Buffer);
        DeleteFileWriter(Writer);
        byte_vector Expanded;
        ASSERT_TRUE(ExpandSection(Format, false, Stored, {5000}, Expanded));
        EXPECT_TRUE(Expanded == Text);
    }
    DeleteFile(Name);
}

// Truncated and damaged sections: the decoder returns false or wrong bytes
// but never reads or writes outside its buffers (the sanitizer build checks).
TEST(Compression, DecoderSurvivesDamagedInput)
{
    std::vector<byte_vector> Streams = {MakeVertexArrays(30), MakeText(2000, 51), MakeRandomBytes(300, 52)};
    byte_vector Stored;
    ASSERT_TRUE(CompressSection(Trove1Compression, false, Streams, Stored));
    std::vector<size_t> Sizes = SizesOf(Streams);
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();

    for (size_t Length = 0; Length < Stored.size(); Length += 1 + Length / 4) {
        byte_vector Cut(Stored.begin(), Stored.begin() + Length), Expanded;
        ExpandSection(Trove1Compression, false, Cut, Sizes, Expanded);
    }
    test_random Random(53);
    int Failures = 0;
    for (int Trial = 0; Trial < 300; ++Trial) {
        byte_vector Damaged = Stored, Expanded;
        int Flips = 1 + (int)(Random.Next() % 4);
        for (int Flip = 0; Flip < Flips; ++Flip)
            Damaged[Random.Next() % Damaged.size()] ^= (uint8_t)(1 + Random.Next() % 255);
        if (!ExpandSection(Trove1Compression, false, Damaged, Sizes, Expanded)) ++Failures;
    }
    EXPECT_GT(Failures, 0);
    // A section that claims far more than its stored bytes code is refused
    // as soon as the decoder runs out of them, not filled from zeros.
    size_t Real = Concatenate(Streams).size();
    for (size_t Scale : {2, 64}) {
        byte_vector Claimed(Real * Scale, 0xAB);
        int32 Stop1 = (int32)(Sizes[0] + Sizes[1]);
        EXPECT_FALSE(DecompressData(Trove1Compression, false, (int32)Stored.size(), Stored.data(), (int32)Sizes[0],
                                    Stop1, (int32)Claimed.size(), Claimed.data()));
        size_t Written = Claimed.size();
        while (Written > 0 && Claimed[Written - 1] == 0xAB) --Written;
        EXPECT_LT(Written, Real + 4096) << Scale;
    }
    // Stops out of order are refused before decoding.
    byte_vector Out(Concatenate(Streams).size());
    EXPECT_FALSE(DecompressData(Trove1Compression, false, (int32)Stored.size(), Stored.data(), 10, 5, 20, Out.data()));
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

} // namespace

// A file exported from a CC0 scene (a siege tower of the Kenney castle kit)
// by this encoder: its sections must expand, and coding the expanded streams
// again must give exactly the stored bytes.
TEST(Compression, ExportedSectionsDecodeAndCodeToTheSameBytes)
{
    char const *Name = TESSEL_SOURCE_DIR "/tests/format/test_compression_siege_tower_ts2.bin";
    int64 FileSize = 0;
    uint8 *Bytes = ReadEntireFile(Name, &FileSize);
    ASSERT_NE(Bytes, nullptr) << Name;
    file_reader *Reader = CreateMemoryFileReader((int32)FileSize, Bytes);
    file *File = ReadFileFromReader(Reader);
    ASSERT_NE(File, nullptr);
    file_section_header const *Headers = GetFileSectionHeaders(*File);
    int Coded = 0;
    for (int32 Index = 0; Index < File->SectionCount; ++Index) {
        file_section_header const &Header = Headers[Index];
        if (Header.ExpandedDataSize == 0 || Header.Format != Trove1Compression) continue;
        SCOPED_TRACE(Index);
        ASSERT_TRUE(ReadFileSection(Reader, *File, Index));
        uint8_t const *Expanded = (uint8_t const *)File->Sections[Index];
        std::vector<byte_vector> Streams = {
            byte_vector(Expanded, Expanded + Header.First16Bit),
            byte_vector(Expanded + Header.First16Bit, Expanded + Header.First8Bit),
            byte_vector(Expanded + Header.First8Bit, Expanded + Header.ExpandedDataSize)};
        byte_vector Stored;
        ASSERT_TRUE(CompressSection(Trove1Compression, false, Streams, Stored));
        ASSERT_EQ(Stored.size(), Header.DataSize);
        EXPECT_EQ(memcmp(Stored.data(), Bytes + Header.DataOffset, Stored.size()), 0);
        ++Coded;
    }
    EXPECT_GE(Coded, 3);
    FreeFile(File);

    // The reader's memory limit holds for the sections of one file together.
    File = ReadFileFromReader(Reader);
    ASSERT_NE(File, nullptr);
    Headers = GetFileSectionHeaders(*File);
    uint32 Total = 0;
    for (int32 Index = 0; Index < File->SectionCount; ++Index) Total += (Headers[Index].ExpandedDataSize + 3) & ~3u;
    SetFileReaderMemoryLimit(Total - 4);
    bool AllRead = true;
    {
        log_capture Quiet;
        for (int32 Index = 0; Index < File->SectionCount; ++Index)
            AllRead = ReadFileSection(Reader, *File, Index) && AllRead;
        EXPECT_TRUE(Quiet.Contains("limit"));
    }
    EXPECT_FALSE(AllRead);
    SetFileReaderMemoryLimit(0);
    FreeFile(File);
    CloseFileReader(Reader);
    TesselFree(Bytes);
}
