// Platform conversion figures: a large export converted to each platform and
// back, next to loading the same file (decompressing and checking its
// sections, the first step of every conversion) as the baseline.
//
//   bench_platform [--repeat N] [file.ts2 | file.fbx ...]
//
// Without files the shared FBX file named below is exported first. Each file
// is measured as it is and with its sections stored uncompressed, which
// shows the re-laying apart from the section coder. Speeds
// are MB (2^20 bytes) of expanded section data per second of this thread's
// processor time, the best of N runs (default 5).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "fbx_tool/fbx_tessel.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "fbx_tool/fbx_tessel_tool_interface.h"
#include "format/tessel_file_compressor.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_platform_convert.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"

namespace {

typedef std::vector<uint8_t> bytes;

// The largest TS2 export among the shared files.
char const *const DefaultScene =
    "/quaternius-kenney/FreeModels by Quaternius[Patreon]/Characters and Animals/Animal Pack Vol.2 - Jul 2017/FBX/"
    "Eagle.fbx";

double ProcessorSeconds()
{
    timespec Time;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &Time);
    return Time.tv_sec + Time.tv_nsec * 1e-9;
}

bool ReadBytes(std::string const &Path, bytes &Out)
{
    int64 Size = 0;
    uint8 *Data = ReadEntireFile(Path.c_str(), &Size);
    if (!Data) return false;
    Out.assign(Data, Data + Size);
    TesselFree(Data);
    return true;
}

bool Export(std::string const &Scene, bytes &Out)
{
    std::string Output = "/tmp/bench_platform_" + std::to_string((long)clock()) + ".ts2";
    fbx_tool_interface *Tool = fbx_tool::CreateToolInterface(Scene.c_str());
    export_options Options = {};
    bool Written = Tool && Tool->FBX && RunExport(Tool, Output.c_str(), &Options, nullptr);
    if (Tool) fbx_tool::DestroyToolInterface(Tool);
    Written = Written && ReadBytes(Output, Out);
    remove(Output.c_str());
    return Written;
}

bytes Convert(bytes const &File, file_magic_block const &Target)
{
    uint8 *Buffer = 0;
    int32 Size = 0;
    bytes Result;
    if (PlatformConvertMemory((int32)File.size(), File.data(), Target, &Buffer, &Size)) {
        Result.assign(Buffer, Buffer + Size);
    }
    FreeMemoryWriterBuffer(Buffer);
    return Result;
}

uint32 Get(bytes const &File, size_t Offset)
{
    uint32 Value = 0;
    memcpy(&Value, &File[Offset], 4);
    return Value;
}

void Put(bytes &File, size_t Offset, uint32 Value)
{
    memcpy(&File[Offset], &Value, 4);
}

// The same file (of this platform) with every section stored uncompressed,
// to measure the re-laying without the section coder.
bytes StoreUncompressed(bytes const &File)
{
    uint32 const Count = Get(File, 48);
    bytes Out(File.begin(), File.begin() + 104 + 44 * Count);
    Out.resize((Out.size() + 3) & ~(size_t)3, 0);
    std::vector<bytes> Sections(Count);
    for (uint32 Index = 0; Index < Count; ++Index) {
        size_t Record = 104 + 44 * Index;
        uint32 Format = Get(File, Record), Offset = Get(File, Record + 4), Size = Get(File, Record + 8);
        bytes &Data = Sections[Index];
        Data.assign(Get(File, Record + 12), 0);
        if (Data.empty()) continue;
        if (Format == 0) {
            memcpy(Data.data(), &File[Offset], Size);
        } else {
            bytes Stored(File.begin() + Offset, File.begin() + Offset + Size);
            Stored.resize(Size + TrovePaddingBytes + 4, 0);
            DecompressData((int32)Format, false, (int32)Size, Stored.data(), (int32)Get(File, Record + 20),
                           (int32)Get(File, Record + 24), (int32)Data.size(), Data.data());
        }
    }
    for (uint32 Index = 0; Index < Count; ++Index) {
        size_t Record = 104 + 44 * Index;
        Put(Out, Record, 0);
        Put(Out, Record + 4, (uint32)Out.size());
        Put(Out, Record + 8, (uint32)Sections[Index].size());
        Out.insert(Out.end(), Sections[Index].begin(), Sections[Index].end());
        Out.resize((Out.size() + 3) & ~(size_t)3, 0);
    }
    for (int Array = 0; Array < 2; ++Array) {
        for (uint32 Index = 0; Index < Count; ++Index) {
            size_t Record = 104 + 44 * Index + (Array ? 36 : 28);
            uint32 Offset = Get(File, Record), Size = Get(File, Record + 4) * (Array ? 16 : 12);
            Put(Out, Record, (uint32)Out.size());
            Out.insert(Out.end(), File.begin() + Offset, File.begin() + Offset + Size);
        }
    }
    Put(Out, 36, (uint32)Out.size());
    Put(Out, 40, ComputeCRC32((int32)Out.size() - 104, &Out[104]));
    return Out;
}

double ExpandedBytes(bytes const &File)
{
    loaded_file *Loaded = LoadFileFromMemory((int32)File.size(), File.data());
    if (!Loaded) return 0;
    double Total = 0;
    for (int32 Index = 0; Index < Loaded->SectionCount; ++Index) {
        Total += Loaded->Sections[Index].Header.ExpandedDataSize;
    }
    FreeLoadedFile(Loaded);
    return Total;
}

// Best processor time of Repeat runs of Work.
template <typename work>
double Best(int Repeat, work Work)
{
    double BestTime = 1e30;
    for (int Run = 0; Run < Repeat; ++Run) {
        double Start = ProcessorSeconds();
        Work();
        double Time = ProcessorSeconds() - Start;
        if (Time < BestTime) BestTime = Time;
    }
    return BestTime;
}

void Measure(char const *Label, bytes const &Native, int Repeat)
{
    double Expanded = ExpandedBytes(Native) / 1048576.0;
    printf("%s: %zu bytes stored, %.2f MB expanded\n", Label, Native.size(), Expanded);
    double Load = Best(Repeat, [&] {
        file_reader *Reader = CreateMemoryFileReader((int32)Native.size(), Native.data());
        FreeLoadedFile(LoadStoredFileFromReader(Reader));
        CloseFileReader(Reader);
    });
    printf("  %-28s %8.1f MB/s\n", "load and check (baseline)", Expanded / Load);

    struct target
    {
        char const *Name;
        file_magic_block const *Magic;
    };
    target const Targets[] = {{"32-bit little-endian", &FileMagic32BitLittleEndian},
                              {"32-bit big-endian", &FileMagic32BitBigEndian},
                              {"64-bit big-endian", &FileMagic64BitBigEndian},
                              {"64-bit little-endian (same)", &FileMagic64BitLittleEndian}};
    for (target const &Target : Targets) {
        bytes Converted;
        double Time = Best(Repeat, [&] { Converted = Convert(Native, *Target.Magic); });
        if (Converted.empty()) {
            printf("  %-28s failed\n", Target.Name);
            continue;
        }
        bytes Back;
        double BackTime = Best(Repeat, [&] { Back = Convert(Converted, GetNativeFileMagicBlock()); });
        printf("  to %-25s %8.1f MB/s (%.2fx the load)  back %8.1f MB/s  %zu bytes%s\n", Target.Name, Expanded / Time,
               Time / Load, Expanded / BackTime, Converted.size(), Back == Native ? "" : "  BACK DIFFERS");
    }
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    int Repeat = 5;
    std::vector<std::string> Files;
    for (int Index = 1; Index < ArgumentCount; ++Index) {
        std::string Argument = Arguments[Index];
        if (Argument == "--repeat" && Index + 1 < ArgumentCount) {
            Repeat = atoi(Arguments[++Index]);
            if (Repeat < 1) Repeat = 1;
        } else if (Argument == "--help" || Argument == "-h") {
            printf("usage: bench_platform [--repeat N] [file.ts2 | file.fbx ...]\n");
            return 0;
        } else {
            Files.push_back(Argument);
        }
    }
    if (Files.empty()) Files.push_back(std::string(TESSEL_SHARED_FBX_DIR) + DefaultScene);
    for (std::string const &File : Files) {
        bytes Native;
        bool IsScene = File.size() > 4 &&
                       (File.compare(File.size() - 4, 4, ".fbx") == 0 || File.compare(File.size() - 4, 4, ".FBX") == 0);
        if (!(IsScene ? Export(File, Native) : ReadBytes(File, Native))) {
            fprintf(stderr, "cannot %s %s\n", IsScene ? "export" : "read", File.c_str());
            continue;
        }
        std::string Label = File.substr(File.find_last_of('/') + 1);
        Measure(Label.c_str(), Native, Repeat);
        Measure((Label + ", sections stored uncompressed").c_str(), StoreUncompressed(Native), Repeat);
    }
    return 0;
}
