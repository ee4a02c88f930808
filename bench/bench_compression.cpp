// Section compression figures: stored size and encode/decode speed of Trove1
// next to zlib levels 6 and 9, over a fixed set of generated inputs and any
// files named on the command line.
//
//   bench_compression [--size-mb N] [--only NAME] [--trove-only] [file.ts2 ...]
//
// --size-mb sets the size of the large section-like input (default 8).
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
            uint16_t const Corners[6] = {(uint16_t)Vertex, (uint16_t)(Vertex + 1), (uint16_t)(Vertex + 63),
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
template <typename F> double TimeIt(F Action, double MinSeconds)
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

figures MeasureTrove(bytes const &Input, double MinSeconds)
{
    figures Result = {0, 0, 0, 0, false};
    bytes Stored;
    Result.EncodeSeconds = TimeIt(
        [&] {
            file_writer *Writer = CreateMemoryFileWriter(1 << 20);
            file_compressor *Compressor = BeginFileCompression((uint32)Input.size(), 1, 2, false, Writer);
            CompressContentsOfMemory(Compressor, (int32)Input.size(), Input.data());
            uint32 Size = 0;
            EndFileCompression(Compressor, &Size);
            uint8 *Buffer = 0;
            int32 BufferSize = 0;
            if (StealMemoryWriterBuffer(Writer, &Buffer, &BufferSize)) {
                Stored.assign(Buffer, Buffer + BufferSize);
                FreeMemoryWriterBuffer(Buffer);
            }
            DeleteFileWriter(Writer);
        },
        MinSeconds);
    Result.Stored = Stored.size();
    Result.CRC = ComputeCRC32((int32)Stored.size(), Stored.data());
    bytes Expanded(Input.size() + 4);
    bool Decoded = false;
    Result.DecodeSeconds = TimeIt(
        [&] {
            Decoded = DecompressData(2, false, (int32)Stored.size(), Stored.data(), (int32)Input.size(),
                                     (int32)Input.size(), (int32)Input.size(), Expanded.data());
        },
        MinSeconds);
    Result.Correct = Decoded && memcmp(Expanded.data(), Input.data(), Input.size()) == 0;
    return Result;
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
        printf("%-22s %-7s %10zu -> %10zu  ratio %6.3f  encode %8.2f MB/s  decode %8.2f MB/s  crc %08x%s\n",
               Name, Labels[Index], Input.size(), F.Stored, Input.size() ? (double)F.Stored / Input.size() : 0.0,
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
        int64 Size = 0;
        uint8 *Data = ReadEntireFile(File.c_str(), &Size);
        if (!Data) {
            fprintf(stderr, "cannot read %s\n", File.c_str());
            continue;
        }
        Report(File.c_str(), bytes(Data, Data + Size));
        TesselFree(Data);
    }
    return 0;
}
