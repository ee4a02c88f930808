// Read throughput of FBX files: the field container alone (parse, and parse
// with every array decoded), the full import into the scene model, and, when
// the benchmark was built with Assimp, Assimp's FBX importer on the same bytes
// in the same run. Files: the largest real files of the shared folder and a
// generated binary FBX 7 grid mesh of more than 100 MB.
//
// usage: bench_fbx_read [--size-mb N] [--files N] [FILE.fbx ...]
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_importer.h"

#ifdef TESSEL_BENCH_WITH_ASSIMP
#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#endif

namespace {

struct input
{
    std::string Label;
    std::vector<uint8_t> Bytes;
};

double Seconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Best time of several runs (at least two, and at least half a second of runs).
template <typename F>
double BestTime(F Run, bool *Ok)
{
    double Best = 1e30;
    double Began = Seconds();
    for (int Round = 0; Round < 50; ++Round) {
        double Start = Seconds();
        *Ok = Run();
        double Elapsed = Seconds() - Start;
        Best = std::min(Best, Elapsed);
        if (!*Ok) break;
        if (Round >= 1 && Seconds() - Began > 0.5) break;
    }
    return Best;
}

bool ParseOnly(input const &Input)
{
    KFbx Fbx;
    return Fbx.ProjectOpenMemory(Input.Bytes.data(), (int64)Input.Bytes.size());
}

bool ParseAndDecode(input const &Input)
{
    KFbx Fbx;
    if (!Fbx.ProjectOpenMemory(Input.Bytes.data(), (int64)Input.Bytes.size())) return false;
    std::vector<fbx_field const *> Stack = {nullptr};
    while (!Stack.empty()) {
        fbx_field const *Parent = Stack.back();
        Stack.pop_back();
        for (fbx_field const *Field = Fbx.GetFirstChild(Parent); Field; Field = Fbx.GetNextSibling(Field)) {
            Stack.push_back(Field);
            int32 Type = Fbx.GetValueCount(Field) == 1 ? Fbx.GetArrayElementType(Field, 0) : 0;
            if (Type == FbxValue_AsciiArray) Type = FbxValue_ArrayReal64;
            int64 Count = 0;
            if (Type && !Fbx.GetArrayData(Field, 0, Type, &Count)) return false;
        }
    }
    return true;
}

bool FullImport(input const &Input)
{
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    if (!Manager) return false;
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    bool Ok = Scene && Importer && Importer->InitializeFromMemory(Input.Bytes.data(), (int64)Input.Bytes.size()) &&
              Importer->Import(Scene);
    Manager->Destroy();
    return Ok;
}

#ifdef TESSEL_BENCH_WITH_ASSIMP
bool AssimpImport(input const &Input)
{
    Assimp::Importer Importer;
    aiScene const *Scene = Importer.ReadFileFromMemory(Input.Bytes.data(), Input.Bytes.size(), 0, "fbx");
    return Scene != nullptr;
}
#endif

// ---------------------------------------------------------------------------
// A binary FBX 7400 file: one grid mesh of Side x Side quads with normals by
// polygon vertex, under one model node.

struct binary_writer
{
    std::vector<uint8_t> Bytes;
    std::vector<size_t> Open;

    void Put(void const *Data, size_t Size)
    {
        Bytes.insert(Bytes.end(), (uint8_t const *)Data, (uint8_t const *)Data + Size);
    }
    void Put32(uint32_t Value) { Put(&Value, 4); }
    void Set32(size_t At, uint32_t Value) { memcpy(&Bytes[At], &Value, 4); }

    // Values are appended by the Value functions right after Begin.
    size_t ValueStart = 0;
    uint32_t ValueCount = 0;
    void Begin(char const *Name)
    {
        Open.push_back(Bytes.size());
        Put32(0);
        Put32(0);
        Put32(0);
        uint8_t Length = (uint8_t)strlen(Name);
        Put(&Length, 1);
        Put(Name, Length);
        ValueStart = Bytes.size();
        ValueCount = 0;
    }
    void EndValues()
    {
        size_t Header = Open.back();
        Set32(Header + 4, ValueCount);
        Set32(Header + 8, (uint32_t)(Bytes.size() - ValueStart));
    }
    void End()
    {
        size_t Header = Open.back();
        Open.pop_back();
        Bytes.insert(Bytes.end(), 13, 0);
        Set32(Header, (uint32_t)Bytes.size());
    }
    void EndLeaf()
    {
        size_t Header = Open.back();
        Open.pop_back();
        Set32(Header, (uint32_t)Bytes.size());
    }
    void I(int32_t Value)
    {
        Bytes.push_back('I');
        Put(&Value, 4);
        ++ValueCount;
    }
    void L(int64_t Value)
    {
        Bytes.push_back('L');
        Put(&Value, 8);
        ++ValueCount;
    }
    void D(double Value)
    {
        Bytes.push_back('D');
        Put(&Value, 8);
        ++ValueCount;
    }
    void S(std::string const &Value)
    {
        Bytes.push_back('S');
        Put32((uint32_t)Value.size());
        Put(Value.data(), Value.size());
        ++ValueCount;
    }
    template <typename T>
    void Array(char Type, std::vector<T> const &Values)
    {
        Bytes.push_back((uint8_t)Type);
        Put32((uint32_t)Values.size());
        Put32(0);
        Put32((uint32_t)(Values.size() * sizeof(T)));
        Put(Values.data(), Values.size() * sizeof(T));
        ++ValueCount;
    }
    void Leaf(char const *Name, int32_t Value)
    {
        Begin(Name);
        I(Value);
        EndValues();
        EndLeaf();
    }
    void Leaf(char const *Name, std::string const &Value)
    {
        Begin(Name);
        S(Value);
        EndValues();
        EndLeaf();
    }
};

std::vector<uint8_t> GenerateGridFile(int Side)
{
    binary_writer W;
    char const Header[] = "Kaydara FBX Binary  ";
    W.Put(Header, 21);
    uint8_t Marks[2] = {0x1A, 0};
    W.Put(Marks, 2);
    W.Put32(7400);

    W.Begin("FBXHeaderExtension");
    W.EndValues();
    W.Leaf("FBXHeaderVersion", 1003);
    W.Leaf("FBXVersion", 7400);
    W.Leaf("Creator", std::string("bench_fbx_read grid"));
    W.End();
    W.Begin("GlobalSettings");
    W.EndValues();
    W.Leaf("Version", 1000);
    W.Begin("Properties70");
    W.EndValues();
    W.Begin("P");
    W.S("UpAxis");
    W.S("int");
    W.S("Integer");
    W.S("");
    W.I(1);
    W.EndValues();
    W.EndLeaf();
    W.Begin("P");
    W.S("UnitScaleFactor");
    W.S("double");
    W.S("Number");
    W.S("");
    W.D(1.0);
    W.EndValues();
    W.EndLeaf();
    W.End();
    W.End();

    std::vector<double> Vertices;
    Vertices.reserve((size_t)(Side + 1) * (Side + 1) * 3);
    for (int Row = 0; Row <= Side; ++Row)
        for (int Column = 0; Column <= Side; ++Column) {
            Vertices.push_back(Column);
            Vertices.push_back(0.001 * ((Row * 7 + Column * 3) % 11));
            Vertices.push_back(Row);
        }
    std::vector<int32_t> Indices;
    Indices.reserve((size_t)Side * Side * 4);
    for (int Row = 0; Row < Side; ++Row)
        for (int Column = 0; Column < Side; ++Column) {
            int32_t Corner = Row * (Side + 1) + Column;
            Indices.push_back(Corner);
            Indices.push_back(Corner + Side + 1);
            Indices.push_back(Corner + Side + 2);
            Indices.push_back(~(Corner + 1));
        }
    std::vector<double> Normals(Indices.size() * 3, 0.0);
    for (size_t Index = 0; Index < Indices.size(); ++Index) Normals[Index * 3 + 1] = 1.0;

    W.Begin("Objects");
    W.EndValues();
    W.Begin("Geometry");
    W.L(100);
    W.S(std::string("Grid\0\x01Geometry", 14));
    W.S("Mesh");
    W.EndValues();
    W.Begin("Vertices");
    W.Array('d', Vertices);
    W.EndValues();
    W.EndLeaf();
    W.Begin("PolygonVertexIndex");
    W.Array('i', Indices);
    W.EndValues();
    W.EndLeaf();
    W.Leaf("GeometryVersion", 124);
    W.Begin("LayerElementNormal");
    W.I(0);
    W.EndValues();
    W.Leaf("Version", 101);
    W.Leaf("Name", std::string(""));
    W.Leaf("MappingInformationType", std::string("ByPolygonVertex"));
    W.Leaf("ReferenceInformationType", std::string("Direct"));
    W.Begin("Normals");
    W.Array('d', Normals);
    W.EndValues();
    W.EndLeaf();
    W.End();
    W.Begin("Layer");
    W.I(0);
    W.EndValues();
    W.Leaf("Version", 100);
    W.Begin("LayerElement");
    W.EndValues();
    W.Leaf("Type", std::string("LayerElementNormal"));
    W.Leaf("TypedIndex", 0);
    W.End();
    W.End();
    W.End(); // Geometry
    W.Begin("Model");
    W.L(200);
    W.S(std::string("Grid\0\x01Model", 11));
    W.S("Mesh");
    W.EndValues();
    W.Leaf("Version", 232);
    W.End();
    W.End(); // Objects

    W.Begin("Connections");
    W.EndValues();
    W.Begin("C");
    W.S("OO");
    W.L(200);
    W.L(0);
    W.EndValues();
    W.EndLeaf();
    W.Begin("C");
    W.S("OO");
    W.L(100);
    W.L(200);
    W.EndValues();
    W.EndLeaf();
    W.End();
    W.Bytes.insert(W.Bytes.end(), 13, 0);
    return W.Bytes;
}

bool ReadWholeFile(std::string const &Path, std::vector<uint8_t> &Bytes)
{
    std::ifstream File(Path, std::ios::binary);
    if (!File) return false;
    Bytes.assign(std::istreambuf_iterator<char>(File), std::istreambuf_iterator<char>());
    return true;
}

// The largest files of the shared folder, binary and ASCII.
std::vector<std::string> LargestSharedFiles(int Count)
{
    std::vector<std::pair<long, std::string>> Files;
    std::ifstream Table(std::string(TESSEL_SHARED_FBX_DIR) + "/EXPECTED.tsv");
    std::string Line;
    std::getline(Table, Line);
    while (std::getline(Table, Line)) {
        std::stringstream Stream(Line);
        std::string Path, Status, Bytes;
        std::getline(Stream, Path, '\t');
        std::getline(Stream, Status, '\t');
        std::getline(Stream, Bytes, '\t');
        if (Status == "ok") Files.push_back({atol(Bytes.c_str()), Path});
    }
    std::sort(Files.rbegin(), Files.rend());
    std::vector<std::string> Result;
    for (int Index = 0; Index < Count && Index < (int)Files.size(); ++Index)
        Result.push_back(std::string(TESSEL_SHARED_FBX_DIR) + "/" + Files[Index].second);
    return Result;
}

void Measure(input const &Input)
{
    double MegaBytes = Input.Bytes.size() / 1e6;
    bool Ok = false;
    printf("%-44.44s %8.2f MB", Input.Label.c_str(), MegaBytes);
    fflush(stdout);
    double Parse = BestTime([&] { return ParseOnly(Input); }, &Ok);
    printf(" | parse %8.1f MB/s%s", MegaBytes / Parse, Ok ? "" : " (failed)");
    fflush(stdout);
    double Decode = BestTime([&] { return ParseAndDecode(Input); }, &Ok);
    printf(" | +arrays %8.1f MB/s%s", MegaBytes / Decode, Ok ? "" : " (failed)");
    fflush(stdout);
    double Import = BestTime([&] { return FullImport(Input); }, &Ok);
    printf(" | import %8.1f MB/s%s", MegaBytes / Import, Ok ? "" : " (failed)");
    fflush(stdout);
#ifdef TESSEL_BENCH_WITH_ASSIMP
    double Assimp = BestTime([&] { return AssimpImport(Input); }, &Ok);
    printf(" | assimp %8.1f MB/s%s | import %.1fx faster", MegaBytes / Assimp, Ok ? "" : " (failed)", Assimp / Import);
#endif
    printf("\n");
}

} // namespace

int main(int ArgumentCount, char **Arguments)
{
    int SizeMB = 130;
    int FileCount = 6;
    std::vector<std::string> Paths;
    for (int Index = 1; Index < ArgumentCount; ++Index) {
        if (strcmp(Arguments[Index], "--size-mb") == 0 && Index + 1 < ArgumentCount)
            SizeMB = atoi(Arguments[++Index]);
        else if (strcmp(Arguments[Index], "--files") == 0 && Index + 1 < ArgumentCount)
            FileCount = atoi(Arguments[++Index]);
        else
            Paths.push_back(Arguments[Index]);
    }
#ifndef TESSEL_BENCH_WITH_ASSIMP
    printf("(built without Assimp: no baseline column)\n");
#endif
    struct stat Info;
    if (Paths.empty()) {
        if (stat(TESSEL_SHARED_FBX_DIR, &Info) != 0)
            printf("no real FBX files at %s: skipping them\n", TESSEL_SHARED_FBX_DIR);
        else
            Paths = LargestSharedFiles(FileCount);
    }
    for (std::string const &Path : Paths) {
        input Input;
        size_t Slash = Path.rfind('/');
        Input.Label = Slash == std::string::npos ? Path : Path.substr(Slash + 1);
        if (!ReadWholeFile(Path, Input.Bytes)) {
            printf("%s: cannot read\n", Path.c_str());
            continue;
        }
        Measure(Input);
    }
    if (SizeMB > 0) {
        // About 136 bytes a quad: 24 a control point, 16 of indices, 96 of normals.
        int Side = 1;
        while ((double)Side * Side * 136.0 < SizeMB * 1e6) Side += 16;
        input Input;
        Input.Bytes = GenerateGridFile(Side);
        char Label[64];
        snprintf(Label, sizeof(Label), "generated grid %dx%d (FBX 7400)", Side, Side);
        Input.Label = Label;
        Measure(Input);
    }
    return 0;
}
