// The FBX field container over files from the test writer and hand-built
// bytes: both byte orders, both record widths, raw and zlib arrays, the ASCII
// forms, and broken input (truncation, absurd sizes, deep nesting).
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_field_internal.h"
#include "support/fbx_test_writer.h"
#include "support/test_log_capture.h"

namespace {

fbx_test_field SampleTree()
{
    fbx_test_field Root;
    fbx_test_field &Header = Root.Add("FBXHeaderExtension");
    Header.Add("FBXVersion", {FbxI(7400)});
    Header.Add("Creator", {FbxS("Writer \"quoted\"")});
    fbx_test_field &Objects = Root.Add("Objects");
    fbx_test_field &Model = Objects.Add("Model", {FbxL(123456789012345LL), FbxName("Model", "Cube"), FbxS("Mesh")});
    Model.Add("Scalars", {FbxY(-12), FbxC('T'), FbxI(-70000), FbxF(1.5f), FbxD(-2.25), FbxL(-46186158000LL)});
    Model.Add("Blob", {FbxR(std::string("a\0b", 3))});
    fbx_test_field &Mesh = Objects.Add("Geometry", {FbxL(7), FbxName("Geometry", ""), FbxS("Mesh")});
    std::vector<double> Vertices;
    for (int Index = 0; Index < 300; ++Index) Vertices.push_back(Index * 0.5 - 10.0);
    Mesh.Add("Vertices", {FbxArrayD(Vertices)});
    Mesh.Add("PolygonVertexIndex", {FbxArrayI({0, 1, -3, 2, 3, -5})});
    Mesh.Add("Floats", {FbxArrayF({0.25f, -1.0f})});
    Mesh.Add("Times", {FbxArrayL({0, 46186158000LL, -5})});
    Mesh.Add("Flags", {FbxArrayB({true, false, true})});
    Mesh.Add("Empty", {FbxArrayI({})});
    Mesh.Add("List", {FbxD(1.0), FbxD(2.5), FbxI(3)});
    return Root;
}

bool Open(KFbx &Fbx, std::vector<uint8_t> const &Bytes)
{
    return Fbx.ProjectOpenMemory(Bytes.data(), (int64)Bytes.size());
}

std::vector<uint8_t> Text(std::string const &String)
{
    return std::vector<uint8_t>(String.begin(), String.end());
}

std::string StringValue(KFbx const &Fbx, fbx_field const *Field, int32 Index)
{
    char Buffer[256];
    return Fbx.CopyValueString(Field, Index, Buffer, sizeof(Buffer)) < 0 ? "<none>" : Buffer;
}

// The same with every byte, zero bytes included.
std::string WholeStringValue(KFbx const &Fbx, fbx_field const *Field, int32 Index)
{
    char const *Data;
    int32 Length;
    return Fbx.GetValueString(Field, Index, &Data, &Length) ? std::string(Data, (size_t)Length) : "<none>";
}

// Checks every value of SampleTree as the container reads it back.
void CheckSampleTree(KFbx &Fbx, bool Binary)
{
    ASSERT_EQ(Fbx.IsBinary(), Binary);
    EXPECT_EQ(Fbx.GetFileVersion(), 7400 + (Fbx.HasWideRecords() ? 100 : 0));
    EXPECT_EQ(StringValue(Fbx, Fbx.FindPath(0, "FBXHeaderExtension/Creator"), 0), "Writer \"quoted\"");

    fbx_field const *Objects = Fbx.FindChild(0, "Objects");
    ASSERT_TRUE(Objects);
    EXPECT_EQ(Fbx.GetChildCount(Objects), 2);
    fbx_field const *Model = Fbx.FindChild(Objects, "Model");
    ASSERT_TRUE(Model);
    EXPECT_EQ(Fbx.GetParent(Model), Objects);
    EXPECT_EQ(Fbx.GetInt64(Model, 0), 123456789012345LL);
    EXPECT_TRUE(Fbx.ValueStringIs(Model, 1, "Model::Cube"));
    EXPECT_TRUE(Fbx.ValueStringIs(Model, 2, "Mesh"));
    EXPECT_TRUE(Fbx.ValueStringIs(Fbx.FindChild(Objects, "Geometry"), 1, "Geometry::"));

    fbx_field const *Scalars = Fbx.FindChild(Model, "Scalars");
    ASSERT_EQ(Fbx.GetValueCount(Scalars), 6);
    if (Binary) {
        char const Types[] = "YCIFDL";
        for (int32 Index = 0; Index < 6; ++Index) EXPECT_EQ(Fbx.GetValueType(Scalars, Index), Types[Index]);
    } else {
        for (int32 Index = 0; Index < 6; ++Index) EXPECT_EQ(Fbx.GetValueType(Scalars, Index), FbxValue_String);
    }
    EXPECT_EQ(Fbx.GetInt32(Scalars, 0), -12);
    char Character = 0;
    bool Flag = false;
    EXPECT_TRUE(Fbx.GetValueChar(Scalars, 1, &Character));
    EXPECT_EQ(Character, 'T');
    EXPECT_TRUE(Fbx.GetValueBool(Scalars, 1, &Flag));
    EXPECT_TRUE(Flag);
    EXPECT_EQ(Fbx.GetInt32(Scalars, 2), -70000);
    EXPECT_DOUBLE_EQ(Fbx.GetReal64(Scalars, 3), 1.5);
    EXPECT_DOUBLE_EQ(Fbx.GetReal64(Scalars, 4), -2.25);
    EXPECT_EQ(Fbx.GetInt64(Scalars, 5), -46186158000LL);
    int32 Narrow = 0;
    EXPECT_FALSE(Fbx.GetValueInt32(Scalars, 5, &Narrow)) << "a 64-bit value does not fit in 32 bits";
    EXPECT_EQ(Fbx.GetValueType(Scalars, 6), 0);
    EXPECT_EQ(Fbx.GetInt32(Scalars, -1, 99), 99);

    fbx_field const *Mesh = Fbx.FindChild(Objects, "Geometry");
    fbx_field const *Vertices = Fbx.FindChild(Mesh, "Vertices");
    ASSERT_EQ(Fbx.GetArrayCount(Vertices, 0), 300);
    EXPECT_EQ(Fbx.GetArrayElementType(Vertices, 0), Binary ? FbxValue_ArrayReal64 : FbxValue_AsciiArray);
    int64 Count = 0;
    real64 const *Reals = (real64 const *)Fbx.GetArrayData(Vertices, 0, FbxValue_ArrayReal64, &Count);
    ASSERT_TRUE(Reals);
    ASSERT_EQ(Count, 300);
    for (int32 Index = 0; Index < 300; ++Index) ASSERT_EQ(Reals[Index], Index * 0.5 - 10.0) << Index;
    EXPECT_EQ(Fbx.GetArrayData(Vertices, 0, FbxValue_ArrayReal64, &Count), Reals) << "cached on first use";
    int32 Truncated[4];
    EXPECT_EQ(Fbx.CopyArray(Vertices, 0, FbxValue_ArrayInt32, Truncated, 4), 4);
    EXPECT_EQ(Truncated[1], -9);

    int32 Indices[6];
    EXPECT_EQ(Fbx.CopyNumbers(Fbx.FindChild(Mesh, "PolygonVertexIndex"), FbxValue_ArrayInt32, Indices, 6), 6);
    EXPECT_EQ(Indices[2], -3);
    EXPECT_EQ(Indices[5], -5);
    real32 Floats[2];
    EXPECT_EQ(Fbx.CopyArray(Fbx.FindChild(Mesh, "Floats"), 0, FbxValue_ArrayReal32, Floats, 2), 2);
    EXPECT_EQ(Floats[0], 0.25f);
    int64 Times[3];
    EXPECT_EQ(Fbx.CopyArray(Fbx.FindChild(Mesh, "Times"), 0, FbxValue_ArrayInt64, Times, 3), 3);
    EXPECT_EQ(Times[1], 46186158000LL);
    uint8 Flags[3];
    EXPECT_EQ(Fbx.CopyArray(Fbx.FindChild(Mesh, "Flags"), 0, FbxValue_ArrayBool, Flags, 3), 3);
    EXPECT_EQ(Flags[0] * 4 + Flags[1] * 2 + Flags[2], 5);
    EXPECT_EQ(Fbx.GetArrayCount(Fbx.FindChild(Mesh, "Empty"), 0), 0);

    // Elements read in place where the file holds them as asked (possibly
    // unaligned), else converted: the same numbers in every encoding.
    uint8 const *InPlace =
        (uint8 const *)Fbx.GetArrayElements(Fbx.FindChild(Mesh, "PolygonVertexIndex"), 0, FbxValue_ArrayInt32, &Count);
    ASSERT_TRUE(InPlace);
    ASSERT_EQ(Count, 6);
    memcpy(Indices, InPlace, sizeof(Indices));
    EXPECT_EQ(Indices[0] + Indices[1] * 10 + Indices[4] * 100 + Indices[5] * 1000, 10 + 300 - 5000);
    InPlace = (uint8 const *)Fbx.GetArrayElements(Fbx.FindChild(Mesh, "Times"), 0, FbxValue_ArrayInt64, &Count);
    ASSERT_TRUE(InPlace);
    ASSERT_EQ(Count, 3);
    memcpy(Times, InPlace, sizeof(Times));
    EXPECT_EQ(Times[1], 46186158000LL);
    EXPECT_EQ(Times[2], -5);
    int32 const *Converted = (int32 const *)Fbx.GetArrayElements(Vertices, 0, FbxValue_ArrayInt32, &Count);
    ASSERT_TRUE(Converted);
    ASSERT_EQ(Count, 300);
    EXPECT_EQ(Converted[1], -9);

    fbx_field const *List = Fbx.FindChild(Mesh, "List");
    EXPECT_EQ(Fbx.GetNumberCount(List), 3);
    real64 Numbers[3];
    EXPECT_EQ(Fbx.CopyNumbers(List, FbxValue_ArrayReal64, Numbers, 3), 3);
    EXPECT_EQ(Numbers[1], 2.5);
    EXPECT_EQ(Numbers[2], 3.0);
}

} // namespace

TEST(FbxFields, BinaryInBothByteOrdersRecordWidthsAndEncodings)
{
    struct variant
    {
        int32_t Version;
        bool BigEndian;
        int32_t Compress;
    };
    variant const Variants[] = {
        {7400, false, -1}, {7400, true, -1}, {7500, false, -1}, {7500, true, -1},
        {7400, false, 0},  {7500, true, 0},  {7400, false, 64},
    };
    int32 LiveBefore = LiveBlocks();
    for (variant const &Variant : Variants) {
        SCOPED_TRACE(testing::Message() << Variant.Version << (Variant.BigEndian ? " BE" : " LE")
                                        << " zlib>=" << Variant.Compress);
        fbx_test_field Root = SampleTree();
        Root.Find("FBXHeaderExtension")->Find("FBXVersion")->Values[0] = FbxI(Variant.Version);
        std::vector<uint8_t> Bytes =
            WriteFbxTestBinary(Root, FbxTestBinary(Variant.Version, Variant.BigEndian, Variant.Compress));
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Bytes)) << Fbx.GetErrorText();
        EXPECT_EQ(Fbx.IsBigEndian(), Variant.BigEndian);
        EXPECT_EQ(Fbx.HasWideRecords(), Variant.Version >= 7500);
        CheckSampleTree(Fbx, true);
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore) << "closing releases the file, the tables and the array caches";
}

TEST(FbxFields, AsciiCountedArraysAndPlainLists)
{
    for (int32_t PerLine : {1, 7, 1000}) {
        fbx_test_format Format = FbxTestAscii(7400);
        Format.AsciiValuesPerLine = PerLine;
        std::string Written = WriteFbxTestAscii(SampleTree(), Format);
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Text(Written))) << Fbx.GetErrorText();
        CheckSampleTree(Fbx, false);
    }
    // FBX 6 keeps long lists as plain values continued on the next lines.
    fbx_test_field Root;
    std::vector<fbx_test_value> Values;
    for (int Index = 0; Index < 50; ++Index) Values.push_back(FbxD(Index * 0.25));
    Root.Add("Objects").Add("Model", {FbxName("Model", "Box"), FbxS("Mesh")}).Add("Vertices", Values);
    fbx_test_format Format = FbxTestAscii(6100);
    Format.AsciiValuesPerLine = 8;
    KFbx Fbx;
    ASSERT_TRUE(Open(Fbx, Text(WriteFbxTestAscii(Root, Format)))) << Fbx.GetErrorText();
    fbx_field const *Vertices = Fbx.FindPath(0, "Objects/Model/Vertices");
    ASSERT_EQ(Fbx.GetNumberCount(Vertices), 50);
    std::vector<real64> Read(50);
    EXPECT_EQ(Fbx.CopyNumbers(Vertices, FbxValue_ArrayReal64, Read.data(), 50), 50);
    EXPECT_EQ(Read[49], 49 * 0.25);
}

TEST(FbxFields, AsciiQuirks)
{
    char const *Source = "; FBX 6.1.0 project file\n"
                         "; a comment {with} \"odd\" characters:\n"
                         "Objects:  {\n"
                         "    Model: \"Model::A &quot;B&quot;\", \"Mesh\" {\n"
                         "        ; a comment inside a block\n"
                         "        Vertices: 1,2.5,-3e2\n"
                         ",4\n"
                         "        Key: \n"
                         "            0,1.5,L,\n"
                         "            46186158000,-2,C,n\n"
                         "        Empty: \n"
                         "        Content: , \"data\"\n"
                         "        Time: 00:01:02, T\n"
                         "        Special: 1.#INF, -1.#IND, 1.#QNAN, inf\n"
                         "        Array: *3 {\n"
                         "            a: 7,8,\n"
                         "9\n"
                         "        }\n"
                         "    }\n"
                         "}\n";
    for (char const *LineEnd : {"\n", "\r\n", "\r"}) {
        std::string Lines;
        for (char const *At = Source; *At; ++At) Lines += *At == '\n' ? std::string(LineEnd) : std::string(1, *At);
        KFbx Other;
        ASSERT_TRUE(Open(Other, Text(Lines))) << Other.GetErrorText();
        EXPECT_EQ(Other.GetFieldCount(), 10) << "line end of " << strlen(LineEnd) << " bytes";
        EXPECT_EQ(Other.GetValueCount(Other.FindPath(0, "Objects/Model/Key")), 7);
    }
    KFbx Fbx;
    ASSERT_TRUE(Open(Fbx, Text(Source))) << Fbx.GetErrorText();
    EXPECT_EQ(Fbx.GetFileVersion(), 6100);
    fbx_field const *Model = Fbx.FindPath(0, "Objects/Model");
    EXPECT_EQ(StringValue(Fbx, Model, 0), "Model::A \"B\"");
    fbx_field const *Vertices = Fbx.FindChild(Model, "Vertices");
    ASSERT_EQ(Fbx.GetValueCount(Vertices), 4) << "a line starting with a comma continues the list";
    EXPECT_EQ(Fbx.GetReal64(Vertices, 2), -300.0);
    EXPECT_EQ(Fbx.GetInt32(Vertices, 1), 2) << "integers from fractional text truncate";
    fbx_field const *Key = Fbx.FindChild(Model, "Key");
    ASSERT_EQ(Fbx.GetValueCount(Key), 7) << "values may start on the line after the name";
    EXPECT_EQ(Fbx.GetInt64(Key, 3), 46186158000LL);
    char Interpolation = 0;
    EXPECT_TRUE(Fbx.GetValueChar(Key, 2, &Interpolation));
    EXPECT_EQ(Interpolation, 'L');
    EXPECT_EQ(Fbx.GetValueCount(Fbx.FindChild(Model, "Empty")), 0);
    fbx_field const *Content = Fbx.FindChild(Model, "Content");
    ASSERT_EQ(Fbx.GetValueCount(Content), 2);
    EXPECT_EQ(StringValue(Fbx, Content, 0), "");
    fbx_field const *Time = Fbx.FindChild(Model, "Time");
    EXPECT_EQ(StringValue(Fbx, Time, 0), "00:01:02");
    bool Flag = false;
    EXPECT_TRUE(Fbx.GetValueBool(Time, 1, &Flag) && Flag);
    real64 Special[4];
    ASSERT_EQ(Fbx.CopyNumbers(Fbx.FindChild(Model, "Special"), FbxValue_ArrayReal64, Special, 4), 4);
    EXPECT_TRUE(Special[0] > 1e308 && Special[1] != Special[1] && Special[2] != Special[2] && Special[3] > 1e308);
    fbx_field const *Array = Fbx.FindChild(Model, "Array");
    EXPECT_EQ(Fbx.GetValueType(Array, 0), FbxValue_AsciiArray);
    EXPECT_EQ(StringValue(Fbx, Array, 0), "*3");
    int64 Elements[3];
    EXPECT_EQ(Fbx.CopyNumbers(Array, FbxValue_ArrayInt64, Elements, 3), 3);
    EXPECT_EQ(Elements[2], 9);
    // Text that is not a number does not convert.
    EXPECT_EQ(Fbx.CopyNumbers(Key, FbxValue_ArrayReal64, std::vector<real64>(7).data(), 7), -1);
}

TEST(FbxFields, MalformedAsciiIsRefused)
{
    char const *Cases[] = {
        "",                          // no fields at all
        "Objects: {\n  Model: 1\n",  // missing brace
        "Objects: 1\n}\n",           // stray brace
        "Name: \"open string\n",     // unterminated quote
        "Name 1, 2\n",               // missing colon
        "Name: 1 2\n",               // two values without a comma
        "Kaydara FBX Binary   \x1a", // a damaged binary header reads as text
    };
    for (char const *Case : Cases) {
        KFbx Fbx;
        EXPECT_FALSE(Open(Fbx, Text(Case))) << Case;
        EXPECT_STRNE(Fbx.GetErrorText(), "") << Case;
        EXPECT_FALSE(Fbx.IsOpen());
    }
}

TEST(FbxFields, TruncationAtEveryLengthFailsCleanly)
{
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();
    fbx_test_field Root = SampleTree();
    for (bool Wide : {false, true}) {
        fbx_test_format Format = FbxTestBinary(Wide ? 7500 : 7400, Wide, 32);
        Format.WriteFooter = false;
        std::vector<uint8_t> Bytes = WriteFbxTestBinary(Root, Format);
        for (size_t Length = 0; Length < Bytes.size(); ++Length) {
            std::vector<uint8_t> Cut(Bytes.begin(), Bytes.begin() + Length);
            KFbx Fbx;
            ASSERT_FALSE(Open(Fbx, Cut)) << "binary cut at " << Length;
        }
        KFbx Whole;
        EXPECT_TRUE(Open(Whole, Bytes)) << Whole.GetErrorText();
    }
    // Text: a cut after a top-level field's closing brace, or after the
    // colon of its name (a field without values), with only blanks or
    // comments after it, leaves a valid, shorter file of the fields before
    // the cut; every other cut fails with a reason.
    std::string Ascii = WriteFbxTestAscii(Root, FbxTestAscii(7400));
    int32 Depth = 0, Fields = 0;
    bool Between = false, InComment = false;
    int32 Valid = 0;
    for (size_t Length = 0; Length <= Ascii.size(); ++Length) {
        KFbx Fbx;
        bool Opened = Open(Fbx, Text(Ascii.substr(0, Length)));
        EXPECT_EQ(Opened, Between) << "text cut at " << Length;
        if (Opened) {
            ++Valid;
            EXPECT_EQ(Fbx.GetChildCount(0), Fields) << "text cut at " << Length;
        } else {
            EXPECT_STRNE(Fbx.GetErrorText(), "") << "text cut at " << Length;
        }
        if (Length == Ascii.size()) break;
        char Character = Ascii[Length];
        bool Blank = Character == ' ' || Character == '\t' || Character == '\r' || Character == '\n';
        if (InComment) {
            InComment = Character != '\n';
        } else if (Character == ';') {
            InComment = true;
        } else if (Character == ':' && Depth == 0) {
            ++Fields; // counted from its name on; whole once the block closes
            Between = true;
            continue;
        } else if (Character == '{') {
            ++Depth;
        } else if (Character == '}') {
            Between = --Depth == 0;
            continue;
        }
        Between = Between && Depth == 0 && (Blank || InComment);
    }
    EXPECT_GE(Valid, 4) << "each top-level field, with and without its block";
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

namespace {

// Hand-built 32-bit little-endian binary files.
struct binary_builder
{
    std::vector<uint8_t> Bytes;
    binary_builder()
    {
        char const Header[] = "Kaydara FBX Binary  ";
        Bytes.assign(Header, Header + 21);
        Bytes.push_back(0x1A);
        Bytes.push_back(0);
        Put32(7300);
    }
    void Put32(uint32_t Value)
    {
        for (int Shift = 0; Shift < 32; Shift += 8) Bytes.push_back((uint8_t)(Value >> Shift));
    }
    void Set32(size_t At, uint32_t Value)
    {
        for (int Shift = 0; Shift < 32; Shift += 8) Bytes[At + Shift / 8] = (uint8_t)(Value >> Shift);
    }
    // Opens a record; returns where its header is, for Close.
    size_t Open(char const *Name, uint32_t ValueCount, std::vector<uint8_t> const &Values)
    {
        size_t At = Bytes.size();
        Put32(0);
        Put32(ValueCount);
        Put32((uint32_t)Values.size());
        Bytes.push_back((uint8_t)strlen(Name));
        Bytes.insert(Bytes.end(), Name, Name + strlen(Name));
        Bytes.insert(Bytes.end(), Values.begin(), Values.end());
        return At;
    }
    void Close(size_t At, bool WithChildren)
    {
        if (WithChildren) Bytes.insert(Bytes.end(), 13, 0);
        Set32(At, (uint32_t)Bytes.size());
    }
    std::vector<uint8_t> Finish()
    {
        Bytes.insert(Bytes.end(), 13, 0);
        return Bytes;
    }
};

std::vector<uint8_t> ArrayValue(char Type, uint32_t Count, uint32_t Encoding, std::vector<uint8_t> const &Data)
{
    binary_builder Scratch;
    Scratch.Bytes.clear();
    Scratch.Bytes.push_back((uint8_t)Type);
    Scratch.Put32(Count);
    Scratch.Put32(Encoding);
    Scratch.Put32((uint32_t)Data.size());
    Scratch.Bytes.insert(Scratch.Bytes.end(), Data.begin(), Data.end());
    return Scratch.Bytes;
}

} // namespace

TEST(FbxFields, AbsurdSizesFailOrReadEmptyWithoutHugeAllocations)
{
    log_capture Quiet;
    int32 LiveBefore = LiveBlocks();
    {
        // Array headers that do not match their data read as empty.
        binary_builder Builder;
        size_t Field = Builder.Open("A", 3, [] {
            std::vector<uint8_t> Values = ArrayValue('d', 0x7FFFFFFF, 0, std::vector<uint8_t>(8));
            std::vector<uint8_t> Zlib = ArrayValue('i', 0xFFFFFFFF, 1, std::vector<uint8_t>(4, 0x78));
            std::vector<uint8_t> Odd = ArrayValue('f', 2, 7, std::vector<uint8_t>(8));
            Values.insert(Values.end(), Zlib.begin(), Zlib.end());
            Values.insert(Values.end(), Odd.begin(), Odd.end());
            return Values;
        }());
        Builder.Close(Field, false);
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Builder.Finish())) << Fbx.GetErrorText();
        fbx_field const *A = Fbx.FindChild(0, "A");
        for (int32 Index = 0; Index < 3; ++Index) EXPECT_EQ(Fbx.GetArrayCount(A, Index), 0) << Index;
        int64 Count = -1;
        EXPECT_TRUE(Fbx.GetArrayData(A, 1, FbxValue_ArrayInt32, &Count));
        EXPECT_EQ(Count, 0);
    }
    {
        // A zlib stream that is not one: a clean failure with the zlib text.
        binary_builder Builder;
        size_t Field = Builder.Open("Broken", 1, ArrayValue('d', 4, 1, std::vector<uint8_t>(20, 0x55)));
        Builder.Close(Field, false);
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Builder.Finish()));
        fbx_field const *Broken = Fbx.FindChild(0, "Broken");
        real64 Out[4];
        EXPECT_EQ(Fbx.CopyArray(Broken, 0, FbxValue_ArrayReal64, Out, 4), -1);
        EXPECT_NE(std::string(Fbx.GetErrorText()).find("Broken: zlib error: "), std::string::npos);
        EXPECT_FALSE(Fbx.GetArrayData(Broken, 0, FbxValue_ArrayReal64, 0));
    }
    {
        // A string longer than its value list is capped at the list's end.
        binary_builder Builder;
        std::vector<uint8_t> Values = {'S', 0xFF, 0xFF, 0xFF, 0x7F, 'a', 'b'};
        size_t Field = Builder.Open("Name", 1, Values);
        Builder.Close(Field, false);
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Builder.Finish()));
        EXPECT_TRUE(Fbx.ValueStringIs(Fbx.FindChild(0, "Name"), 0, "ab"));
    }
    // Broken record headers.
    struct broken
    {
        char const *What;
        uint32_t ValueCount;
        uint32_t ListSize;
        int32_t EndDelta;
    };
    broken const Cases[] = {
        {"value count above the list size", 0x7FFFFFFF, 5, 0},
        {"end offset beyond the file", 1, 5, 1000000},
        {"end offset before the values", 1, 5, -3},
        {"list longer than the record", 1, 500, 0},
        {"values shorter than their count", 2, 5, 0},
    };
    for (broken const &Case : Cases) {
        binary_builder Builder;
        size_t Field = Builder.Open("X", Case.ValueCount, {'I', 1, 0, 0, 0});
        Builder.Set32(Field + 8, Case.ListSize);
        Builder.Set32(Field, (uint32_t)((int64_t)Builder.Bytes.size() + Case.EndDelta));
        KFbx Fbx;
        EXPECT_FALSE(Open(Fbx, Builder.Finish())) << Case.What;
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(FbxFields, DeepNestingIsLimited)
{
    log_capture Quiet;
    for (int32_t Depth : {100, 5000}) {
        bool Allowed = Depth <= FbxMaximumFieldDepth;
        std::string Ascii;
        for (int32_t Level = 0; Level < Depth; ++Level) Ascii += "N: {\n";
        Ascii += std::string((size_t)Depth, '}');
        KFbx FromText;
        EXPECT_EQ(Open(FromText, Text(Ascii)), Allowed) << Depth;

        binary_builder Builder;
        std::vector<size_t> Open_;
        for (int32_t Level = 0; Level < Depth; ++Level) Open_.push_back(Builder.Open("N", 0, {}));
        while (!Open_.empty()) {
            Builder.Close(Open_.back(), true);
            Open_.pop_back();
        }
        KFbx FromBinary;
        EXPECT_EQ(Open(FromBinary, Builder.Finish()), Allowed) << Depth;
        if (!Allowed) {
            EXPECT_NE(std::string(FromBinary.GetErrorText()).find("nested"), std::string::npos);
        } else {
            EXPECT_EQ(FromBinary.GetFieldCount(), Depth);
        }
    }
}

TEST(FbxFields, CursorReadsFieldsAndValuesInTurn)
{
    for (bool Binary : {true, false}) {
        SCOPED_TRACE(Binary ? "binary" : "ASCII");
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, WriteFbxTestFields(SampleTree(), Binary ? FbxTestBinary(7400) : FbxTestAscii(7400))));
        EXPECT_EQ(Fbx.FieldGetCount(), 2);
        EXPECT_STREQ(Fbx.FieldGetName(1), "Objects");
        ASSERT_TRUE(Fbx.FieldReadBegin("Objects"));
        ASSERT_TRUE(Fbx.FieldReadBlockBegin());
        EXPECT_EQ(Fbx.FieldGetInstanceCount("Model"), 1);
        EXPECT_FALSE(Fbx.FieldReadBegin("Model", 1));
        ASSERT_TRUE(Fbx.FieldReadBegin("Model"));
        EXPECT_EQ(Fbx.FieldReadLL(), 123456789012345LL);
        EXPECT_STREQ(Fbx.FieldReadS(), "Model::Cube");
        EXPECT_STREQ(Fbx.FieldReadS(), "Mesh");
        EXPECT_STREQ(Fbx.FieldReadS(), "") << "past the last value";
        ASSERT_TRUE(Fbx.FieldReadBlockBegin());
        ASSERT_TRUE(Fbx.FieldReadBegin("Scalars"));
        EXPECT_EQ(Fbx.FieldReadI(), -12);
        EXPECT_EQ(Fbx.FieldReadCH(), 'T');
        EXPECT_EQ(Fbx.FieldReadI(), -70000);
        EXPECT_EQ(Fbx.FieldReadF(), 1.5f);
        EXPECT_EQ(Fbx.FieldReadD(), -2.25);
        Fbx.FieldReadEnd();
        Fbx.FieldReadBlockEnd();
        EXPECT_EQ(Fbx.FieldGetCurrent(), Fbx.FindPath(0, "Objects/Model"));
        ASSERT_TRUE(Fbx.FieldReadBegin("Geometry"));
        ASSERT_TRUE(Fbx.FieldReadBlockBegin());
        ASSERT_TRUE(Fbx.FieldReadBegin("PolygonVertexIndex"));
        int64 Count = 0;
        int32 const *Indices = (int32 const *)Fbx.FieldReadArray(FbxValue_ArrayInt32, &Count);
        ASSERT_TRUE(Indices);
        EXPECT_EQ(Count, 6);
        EXPECT_EQ(Indices[5], -5);
    }
}

// A huge file that is neither binary FBX nor text is refused by its first
// bytes, before any of it is read into memory; a FIFO is not waited on.
TEST(FbxFields, FilesAreJudgedBeforeTheyAreReadWhole)
{
    std::string Path = SaveFbxTestFile("sparse.fbx", std::vector<uint8_t>(16, 0));
    ASSERT_FALSE(Path.empty());
    ASSERT_EQ(truncate(Path.c_str(), 0x7FFFFFFF), 0);
    log_capture Quiet;
    int32 Live = LiveBlocks();
    KFbx Fbx;
    EXPECT_FALSE(Fbx.ProjectOpenFile(Path.c_str()));
    EXPECT_NE(std::string(Fbx.GetErrorText()).find("neither"), std::string::npos) << Fbx.GetErrorText();
    EXPECT_EQ(Live, LiveBlocks());
    remove(Path.c_str());

    std::string Fifo = Path + ".fifo";
    ASSERT_EQ(mkfifo(Fifo.c_str(), 0600), 0);
    EXPECT_FALSE(Fbx.ProjectOpenFile(Fifo.c_str()));
    remove(Fifo.c_str());
}

// Text numbers read exactly as the general parser reads them, bit for bit:
// plain decimals of every length around the exact-double limits (2^53 as
// digits, 22 places, 19 digits), signs, leading zeros, and the forms that
// must fall through (exponents, lone points, special values).
TEST(FbxFields, TextNumbersReadAsTheGeneralParser)
{
    std::vector<std::string> Texts = {"0",
                                      "-0",
                                      "+0.5",
                                      "+-3",
                                      "0.0",
                                      "-0.000",
                                      "007.25",
                                      "1.",
                                      ".5",
                                      "-",
                                      "+",
                                      "1e5",
                                      "-2.5E-3",
                                      "1.#INF",
                                      "-1.#IND",
                                      "9007199254740992",
                                      "9007199254740993",
                                      "900719925474099.3",
                                      "0.0000000000000000000001",
                                      "0.00000000000000000000001",
                                      "18446744073709551615",
                                      "12345678901234567890.5",
                                      "1.5x",
                                      "--1",
                                      "7",
                                      "a",
                                      "e",
                                      "1e",
                                      "1e+",
                                      "1E+22",
                                      "1e23",
                                      "-1.5e-22",
                                      "123456.5e-17",
                                      "2.5e-30",
                                      "1e00005",
                                      "5e-324"};
    uint64_t Seed = 99;
    auto Next = [&] { return Seed = Seed * 6364136223846793005ull + 1442695040888963407ull; };
    for (int Round = 0; Round < 20000; ++Round) {
        std::string Text = Next() % 3 == 0 ? "-" : "";
        int Digits = 1 + (int)(Next() % 21);
        int Point = (int)(Next() % (Digits + 1));
        for (int Index = 0; Index < Digits; ++Index) {
            if (Index == Point && Index > 0) Text += '.';
            Text += (char)('0' + (Next() >> 33) % 10);
        }
        // Exponents, some beyond what stays exact.
        if (Next() % 3 == 0) {
            Text += Next() % 2 ? "e" : "E";
            uint64_t Sign = Next() % 3;
            Text += Sign == 0 ? "-" : Sign == 1 ? "+" : "";
            Text += std::to_string((Next() >> 33) % 40);
        }
        Texts.push_back(Text);
    }
    for (std::string const &Text : Texts) {
        char const *Start = Text.c_str() + (Text[0] == '+' ? 1 : 0);
        char const *End = Text.c_str() + Text.size();
        double Expected = 0;
        auto Parsed = std::from_chars(Start, End, Expected);
        double Real = 0;
        bool Ok = ParseFbxTextReal64(Text.c_str(), (int32)Text.size(), &Real);
        if (Parsed.ec == std::errc() && Parsed.ptr == End) {
            ASSERT_TRUE(Ok) << Text;
            EXPECT_EQ(memcmp(&Real, &Expected, 8), 0) << Text << ": " << Real << " against " << Expected;
        } else if (Text.find('#') == std::string::npos) {
            EXPECT_FALSE(Ok) << Text;
        }
        long long ExpectedInteger = 0;
        auto ParsedInteger = std::from_chars(Start, End, ExpectedInteger);
        int64 Read = 0;
        Ok = ParseFbxTextInt64(Text.c_str(), (int32)Text.size(), &Read);
        if (ParsedInteger.ec == std::errc() && ParsedInteger.ptr == End) {
            ASSERT_TRUE(Ok) << Text;
            EXPECT_EQ(Read, ExpectedInteger) << Text;
        }
    }

    // Counted arrays decode their elements as the value accessors read them,
    // in every element type, the last element right before the file's end.
    std::vector<std::string> Numbers;
    for (std::string const &Text : Texts) {
        real64 Real;
        int64 Integer;
        if (Text.find('#') == std::string::npos && ParseFbxTextReal64(Text.c_str(), (int32)Text.size(), &Real) &&
            ParseFbxTextInt64(Text.c_str(), (int32)Text.size(), &Integer))
            Numbers.push_back(Text);
    }
    std::string File = "Numbers: *" + std::to_string(Numbers.size()) + " {\n\ta: ";
    for (size_t Index = 0; Index < Numbers.size(); ++Index) File += (Index ? "," : "") + Numbers[Index];
    File += "}";
    KFbx Fbx;
    ASSERT_TRUE(Open(Fbx, ::Text(File))) << Fbx.GetErrorText();
    fbx_field const *Field = Fbx.FindChild(nullptr, "Numbers");
    fbx_field const *Elements = Fbx.FindChild(Field, "a");
    int64 Count = (int64)Numbers.size();
    std::vector<real64> Reals(Count);
    std::vector<real32> Floats(Count);
    std::vector<int64> Wide(Count);
    std::vector<int32> Narrow(Count);
    ASSERT_EQ(Fbx.CopyArray(Field, 0, FbxValue_ArrayReal64, Reals.data(), Count), Count);
    ASSERT_EQ(Fbx.CopyArray(Field, 0, FbxValue_ArrayReal32, Floats.data(), Count), Count);
    ASSERT_EQ(Fbx.CopyArray(Field, 0, FbxValue_ArrayInt64, Wide.data(), Count), Count);
    ASSERT_EQ(Fbx.CopyArray(Field, 0, FbxValue_ArrayInt32, Narrow.data(), Count), Count);
    for (int32 Index = 0; Index < (int32)Numbers.size(); ++Index) {
        real64 Real = Fbx.GetReal64(Elements, Index);
        real32 Float = (real32)Real;
        int64 Integer = Fbx.GetInt64(Elements, Index);
        EXPECT_EQ(memcmp(&Reals[Index], &Real, 8), 0) << Numbers[Index];
        EXPECT_EQ(memcmp(&Floats[Index], &Float, 4), 0) << Numbers[Index];
        EXPECT_EQ(Wide[Index], Integer) << Numbers[Index];
        EXPECT_EQ(Narrow[Index], (int32)std::clamp<int64>(Integer, INT32_MIN, INT32_MAX)) << Numbers[Index];
    }
}

TEST(FbxFields, ListsMixingTextAndTypedNumbersConvertInOrder)
{
    // Binary lists may hold numbers as text and typed values in one list:
    // each converts as the value accessors read it, whatever came before.
    fbx_test_field Root;
    Root.Add("Mixed", {FbxS("1.5"), FbxS("-2e3"), FbxD(0.25), FbxS("7"), FbxI(-4), FbxS("+0.5")});
    KFbx Fbx;
    ASSERT_TRUE(Open(Fbx, WriteFbxTestBinary(Root, FbxTestBinary(7400)))) << Fbx.GetErrorText();
    fbx_field const *Mixed = Fbx.FindChild(nullptr, "Mixed");
    real64 Reals[6];
    ASSERT_EQ(Fbx.CopyNumbers(Mixed, FbxValue_ArrayReal64, Reals, 6), 6);
    real64 const Expected[6] = {1.5, -2000.0, 0.25, 7.0, -4.0, 0.5};
    for (int32 Index = 0; Index < 6; ++Index) EXPECT_EQ(Reals[Index], Expected[Index]) << Index;
    int32 Integers[6];
    ASSERT_EQ(Fbx.CopyNumbers(Mixed, FbxValue_ArrayInt32, Integers, 6), 6);
    int32 const Truncated[6] = {1, -2000, 0, 7, -4, 0};
    for (int32 Index = 0; Index < 6; ++Index) EXPECT_EQ(Integers[Index], Truncated[Index]) << Index;
}

TEST(FbxFields, QuotedStringsAndCommentsOfEveryLength)
{
    // Strings and comments around the sixteen-byte steps of the scans, with
    // entities, zero bytes and the file's end right after them.
    for (int Length = 0; Length <= 40; ++Length) {
        std::string Plain(Length, 'x'), Escaped = Plain, WithZero = Plain;
        for (int Index = 0; Index < Length; ++Index) Plain[Index] = (char)('a' + Index % 26);
        Escaped = Plain;
        if (Length > 2) Escaped.replace(Length / 2, 1, "&quot;");
        if (Length > 0) WithZero[Length - 1] = '\0';
        std::string Expected = Escaped;
        if (Length > 2) Expected.replace(Length / 2, 6, "\"");
        std::string Comment = ";" + Plain;
        if (Length > 3) Comment[Length / 3] = '\0';
        std::string File = Comment + "\nP: \"" + Plain + "\", \"" + Escaped + "\",1,\"" + WithZero + "\" ,\"\", 2\r" +
                           Comment + "\rQ: \"" + Escaped + "\"";
        KFbx Fbx;
        ASSERT_TRUE(Open(Fbx, Text(File))) << Fbx.GetErrorText() << " at length " << Length;
        ASSERT_EQ(Fbx.GetFieldCount(), 2) << Length;
        fbx_field const *P = Fbx.FindChild(nullptr, "P");
        ASSERT_EQ(Fbx.GetValueCount(P), 6) << Length;
        EXPECT_EQ(WholeStringValue(Fbx, P, 0), Plain);
        EXPECT_EQ(WholeStringValue(Fbx, P, 1), Expected);
        EXPECT_EQ(Fbx.GetInt32(P, 2), 1);
        EXPECT_EQ(WholeStringValue(Fbx, P, 3), WithZero);
        EXPECT_EQ(WholeStringValue(Fbx, P, 4), "");
        EXPECT_EQ(Fbx.GetInt32(P, 5), 2);
        EXPECT_EQ(WholeStringValue(Fbx, Fbx.FindChild(nullptr, "Q"), 0), Expected);
        KFbx Cut;
        EXPECT_FALSE(Open(Cut, Text("Q: \"" + Plain))) << "unterminated at length " << Length;
    }
}
