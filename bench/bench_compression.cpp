// Section compression figures: stored size and encode/decode speed of Trove1
// next to zlib levels 6 and 9, over a fixed set of generated inputs and any
// files named on the command line.
//
//   bench_compression [--size-mb N] [--only NAME] [--trove-only] [file.ts2 ...]
//
// --size-mb sets the size of the large section-like input (default 8).
// A TS2 file on the command line is measured by its expanded sections, each
// coded on its own in its three streams as the file builder does.
// Speeds are in MB (2^20 bytes) of expanded data per second of this thread's
// processor time.
#include <zlib.h>

#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "format/tessel_file_compressor.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"

namespace {

typedef std::vector<uint8_t> bytes;

struct random_source
{
    uint32_t State;
    uint32_t Next()
    {
        State ^= State << 13;
        State ^= State >> 17;
        State ^= State << 5;
        return State;
    }
    float Unit() { return (Next() >> 8) / 16777216.0f; }
};

void PushFloat(bytes &Out, float Value)
{
    uint8_t Raw[4];
    memcpy(Raw, &Value, 4);
    Out.insert(Out.end(), Raw, Raw + 4);
}

void PushU32(bytes &Out, uint32_t Value)
{
    for (int Shift = 0; Shift < 32; Shift += 8) Out.push_back((uint8_t)(Value >> Shift));
}

bytes MakeText(size_t Size)
{
    static char const *const Words[] = {"the",   "mesh",     "of",      "a",     "bone",   "animation", "curve",
                                        "and",   "vertex",   "texture", "to",    "is",     "material",  "model",
                                        "track", "skeleton", "in",      "with",  "normal", "position",  "weight",
                                        "for",   "section",  "file",    "index", "root",   "transform", "frame"};
    random_source Random = {12345};
    bytes Out;
    while (Out.size() < Size) {
        char const *Word = Words[Random.Next() % (sizeof(Words) / sizeof(Words[0]))];
        Out.insert(Out.end(), Word, Word + strlen(Word));
        uint32_t Pick = Random.Next() % 16;
        Out.push_back(Pick == 0 ? '\n' : Pick == 1 ? ',' : ' ');
    }
    Out.resize(Size);
    return Out;
}

bytes MakeRandom(size_t Size)
{
    random_source Random = {777};
    bytes Out(Size);
    for (uint8_t &Byte : Out) Byte = (uint8_t)(Random.Next() >> 24);
    return Out;
}

bytes MakeRuns(size_t Size)
{
    random_source Random = {99};
    bytes Out;
    while (Out.size() < Size) {
        size_t Length = 1 + Random.Next() % 2000;
        Out.insert(Out.end(), Length, (uint8_t)(Random.Next() % 4));
    }
    Out.resize(Size);
    return Out;
}

// Interleaved vertices of a noisy terrain: position, normal, uv.
bytes MakeVertexArrays(size_t Size)
{
    random_source Random = {4242};
    bytes Out;
    int Grid = 256;
    for (int Index = 0; Out.size() < Size; ++Index) {
        int X = Index % Grid, Y = Index / Grid;
        float Height = 3.0f * std::sin(X * 0.05f) * std::cos(Y * 0.07f) + 0.01f * Random.Unit();
        PushFloat(Out, X * 0.5f);
        PushFloat(Out, Height);
        PushFloat(Out, Y * 0.5f);
        float NX = -0.15f * std::cos(X * 0.05f), NZ = 0.2f * std::sin(Y * 0.07f);
        float Length = std::sqrt(NX * NX + 1.0f + NZ * NZ);
        PushFloat(Out, NX / Length);
        PushFloat(Out, 1.0f / Length);
        PushFloat(Out, NZ / Length);
        PushFloat(Out, X / (float)Grid);
        PushFloat(Out, Y / (float)Grid);
    }
    Out.resize(Size);
    return Out;
}

// What a section of an exported file holds: records with offsets and counts,
// vertex arrays with bone weights, 16-bit indices, sampled curve knots and
// names, laid out as the three streams would be (32-bit, 16-bit, 8-bit).
bytes MakeSectionLike(size_t Size)
{
    random_source Random = {2024};
    bytes Words, Halves, Chars;
    size_t Meshes = 0;
    while (Words.size() + Halves.size() + Chars.size() < Size) {
        ++Meshes;
        // A mesh record: counts, offsets, bounds.
        PushU32(Words, 0x00010000u + (uint32_t)Meshes);
        uint32_t VertexCount = 200 + Random.Next() % 3000;
        PushU32(Words, VertexCount);
        PushU32(Words, (uint32_t)Words.size() + 64);
        PushU32(Words, 0);
        for (int Bound = 0; Bound < 6; ++Bound) PushFloat(Words, (Random.Unit() - 0.5f) * 100.0f);
        // Skinned vertices: position, 4 weights as bytes packed in a word, 4 bone indices, normal, uv.
        float CX = Random.Unit() * 10, CY = Random.Unit() * 10;
        for (uint32_t Vertex = 0; Vertex < VertexCount; ++Vertex) {
            float Angle = Vertex * 0.1f, Ring = (float)(Vertex / 63);
            PushFloat(Words, CX + std::cos(Angle) * (1.0f + 0.01f * Ring));
            PushFloat(Words, CY + Ring * 0.05f);
            PushFloat(Words, std::sin(Angle) * (1.0f + 0.01f * Ring));
            uint32_t Weight = 128 + Random.Next() % 128;
            PushU32(Words, Weight | ((255 - Weight) << 8));
            PushU32(Words, (Vertex / 40) | ((Vertex / 40 + 1) << 8));
            PushFloat(Words, std::cos(Angle));
            PushFloat(Words, 0.0f);
            PushFloat(Words, std::sin(Angle));
            PushFloat(Words, Vertex % 63 / 63.0f);
            PushFloat(Words, Ring / 50.0f);
        }
        // Triangle strips of a ring mesh as 16-bit indices.
        for (uint32_t Vertex = 0; Vertex + 64 < VertexCount; ++Vertex) {
            uint16_t const Corners[6] = {(uint16_t)Vertex,       (uint16_t)(Vertex + 1),  (uint16_t)(Vertex + 63),
                                         (uint16_t)(Vertex + 1), (uint16_t)(Vertex + 64), (uint16_t)(Vertex + 63)};
            for (uint16_t Corner : Corners) {
                Halves.push_back((uint8_t)Corner);
                Halves.push_back((uint8_t)(Corner >> 8));
            }
        }
        // Curve knots and controls of an animation track.
        uint32_t Knots = 30 + Random.Next() % 200;
        for (uint32_t Knot = 0; Knot < Knots; ++Knot) {
            PushFloat(Words, Knot / 30.0f);
            PushFloat(Words, std::sin(Knot * 0.2f + (float)Meshes));
            PushFloat(Words, 0.5f * std::cos(Knot * 0.13f));
            PushFloat(Words, 0.0f);
            PushFloat(Words, 1.0f);
        }
        char Name[64];
        snprintf(Name, sizeof(Name), "Character_%02u|Mesh_LOD%u|Bone_%03u", (unsigned)(Meshes % 7),
                 (unsigned)(Meshes % 3), (unsigned)(Random.Next() % 120));
        Chars.insert(Chars.end(), Name, Name + strlen(Name) + 1);
    }
    bytes Out = Words;
    Out.insert(Out.end(), Halves.begin(), Halves.end());
    Out.insert(Out.end(), Chars.begin(), Chars.end());
    Out.resize(Size);
    return Out;
}

// Processor time of this thread: the machine may be busy with other work,
// and the coders are single-threaded.
double Now()
{
    timespec Time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &Time);
    return Time.tv_sec + Time.tv_nsec * 1e-9;
}

struct figures
{
    size_t Stored;
    uint32_t CRC; // of the stored bytes, to see that a faster encoder still writes the same ones
    double EncodeSeconds;
    double DecodeSeconds;
    bool Correct;
};

// Repeats Action until it has run for at least MinSeconds; seconds per run.
template <typename F>
double TimeIt(F Action, double MinSeconds)
{
    int Runs = 0;
    double Start = Now(), Elapsed = 0;
    do {
        Action();
        ++Runs;
        Elapsed = Now() - Start;
    } while (Elapsed < MinSeconds);
    return Elapsed / Runs;
}

// A section: its expanded bytes and the ends of its three streams.
struct section_input
{
    bytes Data;
    uint32_t Stops[3];
};

figures MeasureTroveSections(std::vector<section_input> const &Sections, double MinSeconds)
{
    figures Result = {0, 0, 0, 0, false};
    std::vector<bytes> Stored(Sections.size());
    Result.EncodeSeconds = TimeIt(
        [&] {
            for (size_t Index = 0; Index < Sections.size(); ++Index) {
                section_input const &Section = Sections[Index];
                file_writer *Writer = CreateMemoryFileWriter(1 << 20);
                file_compressor *Compressor = BeginFileCompression((uint32)Section.Data.size(), 3, 2, false, Writer);
                uint32_t Start = 0;
                for (int Stream = 0; Stream < 3; ++Stream) {
                    CompressContentsOfMemory(Compressor, (int32)(Section.Stops[Stream] - Start),
                                             Section.Data.data() + Start);
                    Start = Section.Stops[Stream];
                }
                uint32 Size = 0;
                EndFileCompression(Compressor, &Size);
                uint8 *Buffer = 0;
                int32 BufferSize = 0;
                if (StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize)) {
                    Stored[Index].assign(Buffer, Buffer + BufferSize);
                    FreeMemoryWriterBuffer(Buffer);
                }
                DeleteFileWriter(Writer);
            }
        },
        MinSeconds);
    uint32_t CRC = BeginCRC32();
    for (bytes const &Piece : Stored) {
        Result.Stored += Piece.size();
        CRC = UpdateCRC32(CRC, (int32)Piece.size(), Piece.data());
    }
    Result.CRC = EndCRC32(CRC);
    bool Decoded = true;
    std::vector<bytes> Expanded(Sections.size());
    for (size_t Index = 0; Index < Sections.size(); ++Index) Expanded[Index].resize(Sections[Index].Data.size() + 4);
    Result.DecodeSeconds = TimeIt(
        [&] {
            for (size_t Index = 0; Index < Sections.size(); ++Index) {
                section_input const &Section = Sections[Index];
                Decoded =
                    DecompressData(2, false, (int32)Stored[Index].size(), Stored[Index].data(), (int32)Section.Stops[0],
                                   (int32)Section.Stops[1], (int32)Section.Stops[2], Expanded[Index].data()) &&
                    Decoded;
            }
        },
        MinSeconds);
    Result.Correct = Decoded;
    for (size_t Index = 0; Index < Sections.size(); ++Index) {
        Result.Correct = Result.Correct &&
                         memcmp(Expanded[Index].data(), Sections[Index].Data.data(), Sections[Index].Data.size()) == 0;
    }
    return Result;
}

figures MeasureTrove(bytes const &Input, double MinSeconds)
{
    uint32_t Size = (uint32_t)Input.size();
    return MeasureTroveSections({{Input, {Size, Size, Size}}}, MinSeconds);
}

figures MeasureZlib(bytes const &Input, int Level, double MinSeconds)
{
    figures Result = {0, 0, 0, 0, false};
    bytes Stored(compressBound(Input.size()));
    uLongf StoredSize = 0;
    Result.EncodeSeconds = TimeIt(
        [&] {
            StoredSize = Stored.size();
            compress2(Stored.data(), &StoredSize, Input.data(), Input.size(), Level);
        },
        MinSeconds);
    Result.Stored = StoredSize;
    Result.CRC = ComputeCRC32((int32)StoredSize, Stored.data());
    bytes Expanded(Input.size());
    int Status = Z_OK;
    Result.DecodeSeconds = TimeIt(
        [&] {
            uLongf Size = Expanded.size();
            Status = uncompress(Expanded.data(), &Size, Stored.data(), StoredSize);
        },
        MinSeconds);
    Result.Correct = Status == Z_OK && Expanded == Input;
    return Result;
}

bool TroveOnly = false;

// zlib gets the sections of a file one after another in one buffer.
void ReportSections(char const *Name, std::vector<section_input> const &Sections)
{
    bytes All;
    for (section_input const &Section : Sections) All.insert(All.end(), Section.Data.begin(), Section.Data.end());
    double const MinSeconds = All.size() > (4u << 20) ? 0.0 : 0.3;
    double MB = All.size() / 1048576.0;
    figures Coders[3] = {MeasureTroveSections(Sections, MinSeconds), {}, {}};
    if (!TroveOnly) {
        Coders[1] = MeasureZlib(All, 6, MinSeconds);
        Coders[2] = MeasureZlib(All, 9, MinSeconds);
    }
    char const *Labels[3] = {"Trove1", "zlib-6", "zlib-9"};
    for (int Index = 0; Index < (TroveOnly ? 1 : 3); ++Index) {
        figures const &F = Coders[Index];
        printf("%-22s %-7s %10zu -> %10zu  ratio %6.3f  encode %8.2f MB/s  decode %8.2f MB/s  crc %08x%s\n", Name,
               Labels[Index], All.size(), F.Stored, All.size() ? (double)F.Stored / All.size() : 0.0,
               MB / F.EncodeSeconds, MB / F.DecodeSeconds, F.CRC, F.Correct ? "" : "  ROUND TRIP FAILED");
    }
    fflush(stdout);
}

// The expanded sections of a TS2 file, as the file builder compressed them.
bool LoadFileSections(char const *FileName, std::vector<section_input> &Sections)
{
    file_reader *Reader = CreatePlatformFileReader(FileName);
    if (!Reader) return false;
    file *File = ReadFileFromReader(Reader);
    bool Result = File != 0;
    if (File) {
        file_section_header const *Headers = GetFileSectionHeaders(*File);
        for (int32 Index = 0; Result && Index < File->SectionCount; ++Index) {
            file_section_header const &Header = Headers[Index];
            if (Header.ExpandedDataSize == 0) continue;
            Result = ReadFileSection(Reader, *File, Index);
            if (!Result) break;
            uint8_t const *Data = (uint8_t const *)File->Sections[Index];
            section_input Section;
            Section.Data.assign(Data, Data + Header.ExpandedDataSize);
            Section.Stops[0] = Header.First16Bit;
            Section.Stops[1] = Header.First8Bit;
            Section.Stops[2] = Header.ExpandedDataSize;
            Sections.push_back(Section);
        }
        FreeFile(File);
    }
    CloseFileReader(Reader);
    return Result;
}

void Report(char const *Name, bytes const &Input)
{
    double const MinSeconds = Input.size() > (4u << 20) ? 0.0 : 0.3;
    double MB = Input.size() / 1048576.0;
    figures Coders[3] = {MeasureTrove(Input, MinSeconds), {}, {}};
    if (!TroveOnly) {
        Coders[1] = MeasureZlib(Input, 6, MinSeconds);
        Coders[2] = MeasureZlib(Input, 9, MinSeconds);
    }
    char const *Labels[3] = {"Trove1", "zlib-6", "zlib-9"};
    for (int Index = 0; Index < (TroveOnly ? 1 : 3); ++Index) {
        figures const &F = Coders[Index];
        printf("%-22s %-7s %10zu -> %10zu  ratio %6.3f  encode %8.2f MB/s  decode %8.2f MB/s  crc %08x%s\n", Name,
               Labels[Index], Input.size(), F.Stored, Input.size() ? (double)F.Stored / Input.size() : 0.0,
               MB / F.EncodeSeconds, MB / F.DecodeSeconds, F.CRC, F.Correct ? "" : "  ROUND TRIP FAILED");
    }
    fflush(stdout);
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    size_t LargeSize = 8u << 20;
    std::string Only;
    std::vector<std::string> Files;
    for (int Index = 1; Index < ArgumentCount; ++Index) {
        std::string Argument = Arguments[Index];
        if (Argument == "--size-mb" && Index + 1 < ArgumentCount) {
            LargeSize = (size_t)atof(Arguments[++Index]) * 1048576;
        } else if (Argument == "--only" && Index + 1 < ArgumentCount) {
            Only = Arguments[++Index];
        } else if (Argument == "--trove-only") {
            TroveOnly = true;
        } else if (Argument == "--help" || Argument == "-h") {
            printf("usage: bench_compression [--size-mb N] [--only NAME] [--trove-only] [file ...]\n");
            return 0;
        } else {
            Files.push_back(Argument);
        }
    }

    struct input
    {
        char const *Name;
        bytes (*Make)(size_t);
        size_t Size;
    };
    input const Inputs[] = {
        {"section-like 1MB", MakeSectionLike, 1u << 20},
        {"text 1MB", MakeText, 1u << 20},
        {"random 1MB", MakeRandom, 1u << 20},
        {"runs 1MB", MakeRuns, 1u << 20},
        {"vertex arrays 1MB", MakeVertexArrays, 1u << 20},
        {"section-like large", MakeSectionLike, LargeSize},
    };
    for (input const &Input : Inputs) {
        if (!Only.empty() && std::string(Input.Name).find(Only) == std::string::npos) continue;
        Report(Input.Name, Input.Make(Input.Size));
    }
    for (std::string const &File : Files) {
        std::vector<section_input> Sections;
        if (!LoadFileSections(File.c_str(), Sections)) {
            fprintf(stderr, "cannot read the sections of %s\n", File.c_str());
            continue;
        }
        std::string Label = File.substr(File.find_last_of('/') + 1);
        ReportSections(Label.c_str(), Sections);
    }
    return 0;
}
