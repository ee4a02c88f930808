// `tessel inspect` on TS2 files, and exports of a scene through the
// command-line program: repeatable bytes, a valid header, and the exporter's
// records visible in the JSON. Needs the tessel program of this build.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_builder.h"
#include "format/tessel_file_reader.h"
#include "foundation/tessel_file_io.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_version.h"
#include "platform/tessel_platform.h"
#include "support/fbx_test_writer.h"
#include "support/test_command.h"

namespace {

// Runs the program with its errors discarded; stdout in Output, the exit
// status as the result.
int RunTessel(std::string const &Arguments, std::string *Output)
{
    command_result Result = ::RunTessel(Arguments, false);
    *Output = Result.Output;
    return Result.Status;
}

std::string TempPath(char const *Name)
{
    return std::string(GetTemporaryDirectory()) + "/inspect_" + std::to_string(GetProcessIdentifier()) + "_" + Name;
}

std::vector<uint8_t> ReadBytes(std::string const &Path)
{
    int64 Size = 0;
    uint8 *Data = ReadEntireFile(Path.c_str(), &Size);
    std::vector<uint8_t> Bytes(Data, Data + (Data ? Size : 0));
    if (Data) TesselFree(Data);
    return Bytes;
}

data_type_definition LeafType[] = {{Int32Member, "Number"}, {EndMember}};
data_type_definition PairType[] = {
    {ReferenceMember, "First", LeafType}, {ReferenceMember, "Second", LeafType}, {StringMember, "Label"}, {EndMember}};

// Writes a type table by hand: records, names, referred types.
file_location WriteType(file_builder *Builder, data_type_definition const *Type, file_location const *Referred)
{
    int32 Count = 0;
    while (Type[Count].Type != EndMember) ++Count;
    file_location Table, Name;
    WriteSectionData(Builder, 6, 4, (Count + 1) * 44, Type, &Table);
    for (int32 Index = 0; Index < Count; ++Index) {
        WriteSectionData(Builder, 6, 1, (int32)strlen(Type[Index].Name) + 1, Type[Index].Name, &Name);
        AddFixup(Builder, Table, Index * 44 + 4, Name);
        if (Type[Index].ReferenceType) AddFixup(Builder, Table, Index * 44 + 12, *Referred);
    }
    return Table;
}

} // namespace

class InspectTS2 : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (TesselProgramPath().empty()) GTEST_SKIP() << "the tessel program is not built";
    }
};

TEST_F(InspectTS2, SharedObjectsPrintOnceAndJsonIsKeyedByMembers)
{
    std::string Path = TempPath("pair.ts2");
    file_builder *Builder =
        BeginFile(8, TesselStandardFileTypeTag, GetNativeFileMagicBlock(), GetTemporaryDirectory(), "export_buffer");
    ASSERT_NE(nullptr, Builder);
    uint8 Pair[24] = {};
    int32 Number = -42;
    file_location PairAt, LeafAt, LabelAt;
    WriteSectionData(Builder, 0, 0, sizeof(Pair), Pair, &PairAt);
    WriteSectionData(Builder, 0, 4, 4, &Number, &LeafAt);
    WriteSectionData(Builder, 0, 1, 7, "q\"uote", &LabelAt);
    AddFixup(Builder, PairAt, 0, LeafAt);
    AddFixup(Builder, PairAt, 8, LeafAt);
    AddFixup(Builder, PairAt, 16, LabelAt);
    file_location LeafType_ = WriteType(Builder, LeafType, 0);
    SetFileRoots(Builder, WriteType(Builder, PairType, &LeafType_), PairAt);
    ASSERT_TRUE(EndFile(Builder, Path.c_str()));

    std::string Output;
    ASSERT_EQ(0, RunTessel("inspect --json '" + Path + "'", &Output));
    EXPECT_NE(std::string::npos, Output.find("\"First\": {\n      \"Number\": -42\n    }")) << Output;
    EXPECT_NE(std::string::npos, Output.find("\"Second\": {\n      \"$ref\": \"/Root/First\"\n    }")) << Output;
    EXPECT_NE(std::string::npos, Output.find("\"Label\": \"q\\\"uote\"")) << Output;
    EXPECT_NE(std::string::npos, Output.find("\"TotalHeaderSize\": 456"));

    ASSERT_EQ(0, RunTessel("inspect '" + Path + "'", &Output));
    EXPECT_NE(std::string::npos, Output.find("Second: -> /Root/First")) << Output;
    EXPECT_NE(std::string::npos, Output.find("0 - StandardMainSection"));

    // A damaged file is refused with a status, not a crash.
    std::vector<uint8_t> Bytes = ReadBytes(Path);
    Bytes[Bytes.size() - 5] ^= 0xFF;
    FILE *File = fopen(Path.c_str(), "wb");
    fwrite(Bytes.data(), 1, Bytes.size(), File);
    fclose(File);
    EXPECT_EQ(1, RunTessel("inspect '" + Path + "'", &Output));
    remove(Path.c_str());
}

TEST_F(InspectTS2, ShowsFilesWithThirtyTwoBitPointers)
{
    // Root {Int32 Value = 7; String Name = "hi"} with 32-byte member records.
    std::string Path = TempPath("pointer32.ts2");
    std::vector<uint8_t> Bytes(456, 0);
    auto Put = [&](size_t Offset, uint32 Value) { memcpy(&Bytes[Offset], &Value, 4); };
    memcpy(Bytes.data(), FileMagic32BitLittleEndian.MagicValue, 16);
    Put(16, 456), Put(32, 7), Put(44, 72), Put(48, 8), Put(52, 6);
    uint8 Data[12 + 112] = {7, 0, 0, 0, 0, 0, 0, 0, 'h', 'i'};
    Data[12] = Int32Member;
    Data[12 + 32] = StringMember;
    memcpy(Data + 12 + 96, "Value", 6);
    memcpy(Data + 12 + 104, "Name", 5);
    Bytes.insert(Bytes.end(), Data, Data + sizeof(Data));
    uint32 const Fixups[] = {4, 0, 8, 4, 6, 96, 36, 6, 104};
    Bytes.insert(Bytes.end(), (uint8 const *)Fixups, (uint8 const *)Fixups + sizeof(Fixups));
    for (int Index = 0; Index < 8; ++Index) {
        uint32 Table = 104 + 44 * Index;
        uint32 Offset = Index == 0 ? 456 : (Index == 6 ? 468 : 580);
        uint32 Size = Index == 0 ? 12 : (Index == 6 ? 112 : 0);
        uint32 Stream2 = Index == 0 ? 8 : (Index == 6 ? 96 : 0);
        Put(Table + 4, Offset), Put(Table + 8, Size), Put(Table + 12, Size), Put(Table + 16, 4);
        Put(Table + 20, Stream2), Put(Table + 24, Stream2);
        Put(Table + 28, Index == 6 ? 592 : 580), Put(Table + 32, Index == 0 ? 1 : (Index == 6 ? 2 : 0));
        Put(Table + 36, 616);
    }
    Put(36, (uint32)Bytes.size());
    Put(40, ComputeCRC32((int32)Bytes.size() - 104, Bytes.data() + 104));
    FILE *File = fopen(Path.c_str(), "wb");
    fwrite(Bytes.data(), 1, Bytes.size(), File);
    fclose(File);

    std::string Output;
    ASSERT_EQ(0, RunTessel("inspect --json '" + Path + "'", &Output));
    EXPECT_NE(std::string::npos, Output.find("\"Platform\": \"32-bit little-endian\""));
    EXPECT_NE(std::string::npos, Output.find("\"Value\": 7,\n    \"Name\": \"hi\"")) << Output;
    remove(Path.c_str());
}

TEST_F(InspectTS2, ExportsAreRepeatableAndCarryExporterInfo)
{
    fbx_test_scene Scene;
    std::string Input = SaveFbxTestFile("inspect_empty_scene.fbx", WriteFbxTestScene(Scene, FbxTestBinary(7400)));
    std::string OutputA = TempPath("a.ts2"), OutputB = TempPath("b.ts2"), Output;
    ASSERT_EQ(0, RunTessel("export '" + Input + "' '" + OutputA + "'", &Output));
    ASSERT_EQ(0, RunTessel("export '" + Input + "' '" + OutputB + "'", &Output));
    std::vector<uint8_t> A = ReadBytes(OutputA);
    EXPECT_EQ(A, ReadBytes(OutputB));

    loaded_file *File = LoadFileFromDisk(OutputA.c_str());
    ASSERT_NE(nullptr, File);
    EXPECT_EQ(456u, File->Magic.TotalHeaderSize);
    EXPECT_EQ(8, File->SectionCount);
    EXPECT_EQ(A.size(), File->Header.TotalSize);
    EXPECT_EQ(0x80000031u, File->Header.TypeTag);
    FreeLoadedFile(File);

    ASSERT_EQ(0, RunTessel("inspect --json '" + OutputA + "'", &Output));
    EXPECT_NE(std::string::npos,
              Output.find("\"ExporterName\": \"Tessel Standard Exporter, SDK version " TESSEL_VERSION_STRING "\""));
    EXPECT_NE(std::string::npos, Output.find("\"ArtToolInfo\": {"));
    EXPECT_NE(std::string::npos, Output.find("\"FromArtToolName\": "));
    remove(OutputA.c_str());
    remove(OutputB.c_str());
    remove(Input.c_str());
}
