// Checks of the test-only FBX writer's output, with a small independent
// record walker, so that reader tests can trust what they are fed.
#include "support/fbx_test_writer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <zlib.h>

namespace {

struct walked_field
{
    std::string Name;
    std::vector<char> Types;
    std::vector<std::string> Strings;
    std::vector<std::vector<uint8_t>> ArrayBytes; // inflated element bytes
    std::vector<walked_field> Children;
};

struct walker
{
    const std::vector<uint8_t> &Bytes;
    bool BigEndian;
    int Word;
    std::string Error;

    uint64_t Read(size_t At, int Size) const
    {
        uint64_t V = 0;
        for (int I = 0; I < Size; ++I) V |= (uint64_t)Bytes[At + I] << (BigEndian ? 8 * (Size - 1 - I) : 8 * I);
        return V;
    }

    // Reads the records from At up to and including the level's end record.
    bool Level(size_t &At, size_t Limit, std::vector<walked_field> &Out)
    {
        for (;;) {
            if (At + 3 * Word + 1 > Limit) return Fail("record header past its parent");
            uint64_t End = Read(At, Word), Count = Read(At + Word, Word), ListSize = Read(At + 2 * Word, Word);
            uint8_t NameLength = Bytes[At + 3 * Word];
            if (End == 0) {
                if (Count || ListSize || NameLength) return Fail("end record not all zero");
                At += 3 * Word + 1;
                return true;
            }
            if (End > Limit || End <= At) return Fail("end offset out of its parent");
            walked_field Field;
            size_t P = At + 3 * Word + 1;
            Field.Name.assign((const char *)&Bytes[P], NameLength);
            P += NameLength;
            size_t ListEnd = P + ListSize;
            for (uint64_t V = 0; V < Count; ++V)
                if (!Value(P, ListEnd, Field)) return false;
            if (P != ListEnd) return Fail("value list size mismatch in " + Field.Name);
            if (P < End && !Level(P, End, Field.Children)) return false;
            if (P != End) return Fail("children do not end at the end offset of " + Field.Name);
            Out.push_back(Field);
            At = End;
        }
    }

    bool Value(size_t &P, size_t Limit, walked_field &Field)
    {
        char Type = (char)Bytes[P++];
        Field.Types.push_back(Type);
        static const std::map<char, int> Scalars = {{'Y', 2}, {'C', 1}, {'I', 4}, {'F', 4}, {'D', 8}, {'L', 8}};
        static const std::map<char, int> Arrays = {{'i', 4}, {'f', 4}, {'d', 8}, {'l', 8}, {'b', 1}};
        if (Scalars.count(Type)) {
            P += Scalars.at(Type);
            return P <= Limit || Fail("scalar past list");
        }
        if (Type == 'S' || Type == 'R') {
            size_t Length = Read(P, 4);
            Field.Strings.emplace_back((const char *)&Bytes[P + 4], Length);
            P += 4 + Length;
            return P <= Limit || Fail("string past list");
        }
        if (!Arrays.count(Type)) return Fail(std::string("unknown type ") + Type);
        uint32_t Count = (uint32_t)Read(P, 4), Encoding = (uint32_t)Read(P + 4, 4), Size = (uint32_t)Read(P + 8, 4);
        std::vector<uint8_t> Data(Bytes.begin() + P + 12, Bytes.begin() + P + 12 + Size);
        P += 12 + Size;
        size_t Expected = (size_t)Count * Arrays.at(Type);
        if (Encoding == 1) {
            std::vector<uint8_t> Inflated(Expected);
            uLongf Length = (uLongf)Expected;
            if (uncompress(Inflated.data(), &Length, Data.data(), Size) != Z_OK || Length != Expected)
                return Fail("array does not inflate to its size");
            Data = Inflated;
        } else if (Encoding != 0 || Data.size() != Expected) {
            return Fail("raw array size mismatch");
        }
        Field.ArrayBytes.push_back(Data);
        return P <= Limit || Fail("array past list");
    }

    bool Fail(const std::string &Text)
    {
        Error = Text;
        return false;
    }
};

// Walks a whole binary file; checks the header on the way.
std::vector<walked_field> Walk(const std::vector<uint8_t> &Bytes, int Word, bool BigEndian, std::string &Error)
{
    std::vector<walked_field> Top;
    walker W{Bytes, BigEndian, Word, ""};
    size_t At = 27;
    if (!W.Level(At, Bytes.size(), Top)) Error = W.Error;
    return Top;
}

const walked_field *FindWalked(const std::vector<walked_field> &Fields, const std::string &Name)
{
    for (const walked_field &F : Fields)
        if (F.Name == Name) return &F;
    return nullptr;
}

fbx_test_field SampleTree()
{
    fbx_test_field Root;
    fbx_test_field &Objects = Root.Add("Objects");
    fbx_test_field &Model = Objects.Add("Model", {FbxL(5000000017LL), FbxName("Model", "Cube"), FbxS("Mesh")});
    Model.Add("Scalars",
              {FbxY(-2), FbxC('T'), FbxI(-7), FbxF(0.5f), FbxD(-1e300), FbxL(-3), FbxR(std::string("\0\1", 2))});
    std::vector<int32_t> Ints;
    for (int32_t I = 0; I < 200; ++I) Ints.push_back(I * 1000 - 7);
    Model.Add("Big", {FbxArrayI(Ints)});
    Model.Add("Small", {FbxArrayD({1.5, -2.25}), FbxArrayB({true, false, true})});
    Objects.Add("Empty");
    Root.Add("Quoted", {FbxS("say \"hi\"")});
    return Root;
}

} // namespace

TEST(FbxTestWriter, BinaryHeaderAndRecordLayoutForEachVersionAndByteOrder)
{
    struct
    {
        int32_t Version;
        bool BigEndian;
        int Word;
    } Cases[] = {{6100, false, 4}, {7400, true, 4}, {7500, false, 8}, {7700, true, 8}};
    for (const auto &C : Cases) {
        SCOPED_TRACE(C.Version);
        std::vector<uint8_t> Bytes = WriteFbxTestBinary(SampleTree(), FbxTestBinary(C.Version, C.BigEndian, 64));
        ASSERT_GT(Bytes.size(), 27u);
        EXPECT_EQ(0, std::memcmp(Bytes.data(), "Kaydara FBX Binary  \0\x1A", 22));
        EXPECT_EQ(C.BigEndian ? 1 : 0, Bytes[22]);
        uint32_t Version = C.BigEndian ? (Bytes[23] << 24 | Bytes[24] << 16 | Bytes[25] << 8 | Bytes[26])
                                       : (Bytes[26] << 24 | Bytes[25] << 16 | Bytes[24] << 8 | Bytes[23]);
        EXPECT_EQ((uint32_t)C.Version, Version);

        std::string Error;
        std::vector<walked_field> Top = Walk(Bytes, C.Word, C.BigEndian, Error);
        ASSERT_EQ("", Error);
        ASSERT_EQ(2u, Top.size());
        const walked_field *Model = FindWalked(Top[0].Children, "Model");
        ASSERT_NE(nullptr, Model);
        EXPECT_EQ(std::string("LSS"), std::string(Model->Types.begin(), Model->Types.end()));
        EXPECT_EQ(std::string("Cube\0\x01Model", 11), Model->Strings[0]);
        const walked_field *Scalars = FindWalked(Model->Children, "Scalars");
        ASSERT_NE(nullptr, Scalars);
        EXPECT_EQ(std::string("YCIFDLR"), std::string(Scalars->Types.begin(), Scalars->Types.end()));
        // A field with neither values nor children is still a block with an end record.
        const walked_field *Empty = FindWalked(Top[0].Children, "Empty");
        ASSERT_NE(nullptr, Empty);
        EXPECT_TRUE(Empty->Children.empty());
        // The footer starts on a 16-byte boundary and the file ends with it.
        EXPECT_EQ(0u, Bytes.size() % 16);
    }
}

TEST(FbxTestWriter, ArraysInflateAndSwapToTheirElements)
{
    for (bool BigEndian : {false, true}) {
        SCOPED_TRACE(BigEndian);
        std::vector<uint8_t> Bytes = WriteFbxTestBinary(SampleTree(), FbxTestBinary(7400, BigEndian, 64));
        std::string Error;
        std::vector<walked_field> Top = Walk(Bytes, 4, BigEndian, Error);
        ASSERT_EQ("", Error);
        const walked_field *Model = FindWalked(Top[0].Children, "Model");
        const walked_field *Big = FindWalked(Model->Children, "Big");
        ASSERT_EQ(1u, Big->ArrayBytes.size());
        ASSERT_EQ(800u, Big->ArrayBytes[0].size());
        // Element 3 is 2993 = 0x00000BB1.
        const uint8_t *E = &Big->ArrayBytes[0][12];
        EXPECT_EQ(BigEndian ? 0x0B : 0xB1, E[BigEndian ? 2 : 0]);
        EXPECT_EQ(BigEndian ? 0xB1 : 0x0B, E[BigEndian ? 3 : 1]);

        // Under the threshold arrays stay raw; doubles keep their bits.
        const walked_field *Small = FindWalked(Model->Children, "Small");
        ASSERT_EQ(2u, Small->ArrayBytes.size());
        uint8_t Bits[8];
        double Value = -2.25;
        std::memcpy(Bits, &Value, 8);
        for (int I = 0; I < 8; ++I) EXPECT_EQ(Bits[BigEndian ? 7 - I : I], Small->ArrayBytes[0][8 + I]);
        EXPECT_EQ((std::vector<uint8_t>{1, 0, 1}), Small->ArrayBytes[1]);
    }
    // Compression really happens above the threshold: the file is smaller.
    EXPECT_LT(WriteFbxTestBinary(SampleTree(), FbxTestBinary(7400, false, 64)).size(),
              WriteFbxTestBinary(SampleTree(), FbxTestBinary(7400)).size());
}

TEST(FbxTestWriter, AsciiCountedArraysAndPlainListsWithContinuations)
{
    fbx_test_format Format = FbxTestAscii(7400);
    Format.AsciiValuesPerLine = 50;
    std::vector<uint8_t> Seven = WriteFbxTestFields(SampleTree(), Format);
    std::string Text7(Seven.begin(), Seven.end());
    EXPECT_EQ(0u, Text7.find("; FBX 7.4.0 project file\n"));
    EXPECT_NE(std::string::npos, Text7.find("Model: 5000000017, \"Model::Cube\", \"Mesh\" {"));
    EXPECT_NE(std::string::npos, Text7.find("Big: *200 {\n\t\t\ta: -7,993,"));
    EXPECT_NE(std::string::npos, Text7.find("Small: *2 {\n\t\t\ta: 1.5,-2.25\n\t\t} ,*3 {"));
    EXPECT_NE(std::string::npos, Text7.find("Scalars: -2,T,-7,0.5,-1e+300,-3,\"AAE=\""));
    EXPECT_NE(std::string::npos, Text7.find("Quoted: \"say &quot;hi&quot;\""));
    EXPECT_NE(std::string::npos, Text7.find("Empty:  {\n\t}"));
    // Counted arrays break after a comma; the next line holds the next value.
    EXPECT_NE(std::string::npos, Text7.find(",48993,\n49993,"));

    Format.Version = 6100;
    std::vector<uint8_t> Six = WriteFbxTestFields(SampleTree(), Format);
    std::string Text6(Six.begin(), Six.end());
    EXPECT_EQ(0u, Text6.find("; FBX 6.1.0 project file\n"));
    EXPECT_NE(std::string::npos, Text6.find("Big: -7,993,"));
    EXPECT_NE(std::string::npos, Text6.find(",48993\n\t\t\t,49993,"));
    EXPECT_EQ(std::string::npos, Text6.find("*200"));
}

TEST(FbxTestWriter, SceneLayoutsAreConsistent)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();

    // Bind matrices: the cluster transform undoes the link, and the lower
    // bone sits where its ring of the tube is.
    const fbx_test_cluster &Lower = Scene.Meshes[0].Clusters[1];
    EXPECT_NEAR(2.0, Lower.TransformLink[12], 1e-12);
    EXPECT_NEAR(0.0, Lower.TransformLink[13], 1e-12);
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J) {
            double Sum = 0;
            for (int K = 0; K < 4; ++K) Sum += Lower.Transform[I * 4 + K] * Lower.TransformLink[K * 4 + J];
            EXPECT_NEAR(I == J ? 1.0 : 0.0, Sum, 1e-12);
        }
    // A 90-degree pre-rotation with the opposite rotation is no rotation at
    // all; the ZXY order of Lower with only X set is a plain X rotation.
    double Global[16];
    FbxTestNodeGlobal(Scene, 1, Global);
    EXPECT_NEAR(1.0, Global[0], 1e-12);
    EXPECT_NEAR(0.0, Global[1], 1e-12);
    FbxTestNodeGlobal(Scene, 2, Global);
    EXPECT_NEAR(std::cos(15 * M_PI / 180), Global[5], 1e-12);
    EXPECT_NEAR(std::sin(15 * M_PI / 180), Global[6], 1e-12);

    // FBX 7: every connection names objects that exist (or the root, 0),
    // and every object but the take stacks and the pose hangs somewhere.
    fbx_test_field Seven = BuildFbx7Scene(Scene);
    std::set<int64_t> Ids = {0}, Connected;
    for (const fbx_test_field &Object : Seven.Find("Objects")->Children) Ids.insert(Object.Values[0].Integer);
    for (const fbx_test_field &C : Seven.Find("Connections")->Children) {
        EXPECT_TRUE(Ids.count(C.Values[1].Integer)) << C.Values[1].Integer;
        EXPECT_TRUE(Ids.count(C.Values[2].Integer)) << C.Values[2].Integer;
        EXPECT_EQ(C.Values[0].Bytes == "OP" ? 4u : 3u, C.Values.size());
        Connected.insert(C.Values[1].Integer);
    }
    for (const fbx_test_field &Object : Seven.Find("Objects")->Children) {
        if (Object.Name != "Pose" && Object.Name != "AnimationStack") {
            EXPECT_TRUE(Connected.count(Object.Values[0].Integer)) << Object.Name;
        }
    }

    // FBX 6: the same by name, with "Model::Scene" as the root; every node has
    // its channels in every take.
    fbx_test_field Six = BuildFbx6Scene(Scene);
    std::set<std::string> Names = {"Model::Scene"};
    for (const fbx_test_field &Object : Six.Find("Objects")->Children)
        if (!Object.Values.empty()) Names.insert(Object.Values[0].Bytes);
    for (const fbx_test_field &C : Six.Find("Connections")->Children) {
        EXPECT_TRUE(Names.count(C.Values[1].Bytes)) << C.Values[1].Bytes;
        EXPECT_TRUE(Names.count(C.Values[2].Bytes)) << C.Values[2].Bytes;
    }
    const fbx_test_field *Takes = Six.Find("Takes");
    ASSERT_EQ(3u, Takes->Children.size());
    EXPECT_EQ("Wave", Takes->Find("Current")->Values[0].Bytes);
    for (const fbx_test_field &Take : Takes->Children)
        if (Take.Name == "Take") {
            size_t Models = 0;
            for (const fbx_test_field &Child : Take.Children) Models += Child.Name == "Model";
            EXPECT_EQ(Scene.Nodes.size(), Models);
        }
}
