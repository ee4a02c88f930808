// Test-only FBX writer: field tree, binary and ASCII output, scene builders.
#include "support/fbx_test_writer.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <zlib.h>

// ---------------------------------------------------------------------------
// Values and fields
// ---------------------------------------------------------------------------

fbx_test_value FbxY(int16_t Value)
{
    fbx_test_value V;
    V.Type = 'Y';
    V.Integer = Value;
    return V;
}
fbx_test_value FbxC(char Value)
{
    fbx_test_value V;
    V.Type = 'C';
    V.Integer = (uint8_t)Value;
    return V;
}
fbx_test_value FbxI(int32_t Value)
{
    fbx_test_value V;
    V.Type = 'I';
    V.Integer = Value;
    return V;
}
fbx_test_value FbxF(float Value)
{
    fbx_test_value V;
    V.Type = 'F';
    V.Real = Value;
    return V;
}
fbx_test_value FbxD(double Value)
{
    fbx_test_value V;
    V.Type = 'D';
    V.Real = Value;
    return V;
}
fbx_test_value FbxL(int64_t Value)
{
    fbx_test_value V;
    V.Type = 'L';
    V.Integer = Value;
    return V;
}
fbx_test_value FbxS(const std::string &Value)
{
    fbx_test_value V;
    V.Type = 'S';
    V.Bytes = Value;
    return V;
}
fbx_test_value FbxR(const std::string &Bytes)
{
    fbx_test_value V;
    V.Type = 'R';
    V.Bytes = Bytes;
    return V;
}

fbx_test_value FbxName(const std::string &Class, const std::string &Name)
{
    fbx_test_value V = FbxS(Class + "::" + Name);
    V.ObjectName = true;
    return V;
}

fbx_test_value FbxArrayI(const std::vector<int32_t> &Values)
{
    fbx_test_value V;
    V.Type = 'i';
    V.Integers.assign(Values.begin(), Values.end());
    return V;
}
fbx_test_value FbxArrayF(const std::vector<float> &Values)
{
    fbx_test_value V;
    V.Type = 'f';
    V.Reals.assign(Values.begin(), Values.end());
    return V;
}
fbx_test_value FbxArrayD(const std::vector<double> &Values)
{
    fbx_test_value V;
    V.Type = 'd';
    V.Reals = Values;
    return V;
}
fbx_test_value FbxArrayL(const std::vector<int64_t> &Values)
{
    fbx_test_value V;
    V.Type = 'l';
    V.Integers = Values;
    return V;
}
fbx_test_value FbxArrayB(const std::vector<bool> &Values)
{
    fbx_test_value V;
    V.Type = 'b';
    for (bool B : Values) V.Integers.push_back(B ? 1 : 0);
    return V;
}

fbx_test_field &fbx_test_field::Add(const std::string &ChildName, std::vector<fbx_test_value> ChildValues)
{
    Children.push_back(fbx_test_field());
    Children.back().Name = ChildName;
    Children.back().Values = std::move(ChildValues);
    return Children.back();
}

fbx_test_field *fbx_test_field::Find(const std::string &ChildName)
{
    for (fbx_test_field &Child : Children)
        if (Child.Name == ChildName) return &Child;
    return nullptr;
}

const fbx_test_field *fbx_test_field::Find(const std::string &ChildName) const
{
    return const_cast<fbx_test_field *>(this)->Find(ChildName);
}

fbx_test_format FbxTestBinary(int32_t Version, bool BigEndian, int32_t CompressMinBytes)
{
    fbx_test_format Format;
    Format.Version = Version;
    Format.Binary = true;
    Format.BigEndian = BigEndian;
    Format.CompressMinBytes = CompressMinBytes;
    return Format;
}

fbx_test_format FbxTestAscii(int32_t Version)
{
    fbx_test_format Format;
    Format.Version = Version;
    Format.Binary = false;
    return Format;
}

static bool IsArrayType(char Type)
{
    return Type == 'i' || Type == 'f' || Type == 'd' || Type == 'l' || Type == 'b';
}

// ---------------------------------------------------------------------------
// Binary
// ---------------------------------------------------------------------------

namespace {

struct binary_out
{
    std::vector<uint8_t> Bytes;
    bool BigEndian = false;

    void Raw(const void *Data, size_t Size)
    {
        const uint8_t *P = (const uint8_t *)Data;
        Bytes.insert(Bytes.end(), P, P + Size);
    }
    // Appends Size bytes of Value in the file's byte order.
    void Word(uint64_t Value, int Size)
    {
        for (int I = 0; I < Size; ++I) {
            int Shift = BigEndian ? 8 * (Size - 1 - I) : 8 * I;
            Bytes.push_back((uint8_t)(Value >> Shift));
        }
    }
    void Patch(size_t At, uint64_t Value, int Size)
    {
        for (int I = 0; I < Size; ++I) {
            int Shift = BigEndian ? 8 * (Size - 1 - I) : 8 * I;
            Bytes[At + I] = (uint8_t)(Value >> Shift);
        }
    }
};

uint32_t FloatBits(float Value)
{
    uint32_t B;
    std::memcpy(&B, &Value, 4);
    return B;
}
uint64_t DoubleBits(double Value)
{
    uint64_t B;
    std::memcpy(&B, &Value, 8);
    return B;
}

std::string BinaryString(const fbx_test_value &Value)
{
    if (!Value.ObjectName) return Value.Bytes;
    size_t Split = Value.Bytes.find("::");
    if (Split == std::string::npos) return Value.Bytes;
    std::string Result = Value.Bytes.substr(Split + 2);
    Result.push_back('\0');
    Result.push_back('\x01');
    Result += Value.Bytes.substr(0, Split);
    return Result;
}

void WriteBinaryValue(binary_out &Out, const fbx_test_value &Value, const fbx_test_format &Format)
{
    Out.Bytes.push_back((uint8_t)Value.Type);
    switch (Value.Type) {
    case 'Y': Out.Word((uint64_t)Value.Integer, 2); return;
    case 'C': Out.Bytes.push_back((uint8_t)Value.Integer); return;
    case 'I': Out.Word((uint64_t)Value.Integer, 4); return;
    case 'F': Out.Word(FloatBits((float)Value.Real), 4); return;
    case 'D': Out.Word(DoubleBits(Value.Real), 8); return;
    case 'L': Out.Word((uint64_t)Value.Integer, 8); return;
    case 'S':
    case 'R': {
        std::string Text = Value.Type == 'S' ? BinaryString(Value) : Value.Bytes;
        Out.Word(Text.size(), 4);
        Out.Raw(Text.data(), Text.size());
        return;
    }
    default: break;
    }

    // Arrays: element bytes in the file's order, then maybe deflated.
    binary_out Elements;
    Elements.BigEndian = Out.BigEndian;
    size_t Count = 0;
    switch (Value.Type) {
    case 'i':
        for (int64_t V : Value.Integers) Elements.Word((uint64_t)V, 4);
        Count = Value.Integers.size();
        break;
    case 'l':
        for (int64_t V : Value.Integers) Elements.Word((uint64_t)V, 8);
        Count = Value.Integers.size();
        break;
    case 'b':
        for (int64_t V : Value.Integers) Elements.Word((uint64_t)V, 1);
        Count = Value.Integers.size();
        break;
    case 'f':
        for (double V : Value.Reals) Elements.Word(FloatBits((float)V), 4);
        Count = Value.Reals.size();
        break;
    case 'd':
        for (double V : Value.Reals) Elements.Word(DoubleBits(V), 8);
        Count = Value.Reals.size();
        break;
    default: break;
    }

    uint32_t Encoding = 0;
    std::vector<uint8_t> Stored = Elements.Bytes;
    if (Format.CompressMinBytes >= 0 && Elements.Bytes.size() >= (size_t)Format.CompressMinBytes) {
        uLongf Size = compressBound((uLong)Elements.Bytes.size());
        Stored.resize(Size);
        if (compress2(Stored.data(), &Size, Elements.Bytes.data(), (uLong)Elements.Bytes.size(),
                      Z_DEFAULT_COMPRESSION) == Z_OK) {
            Stored.resize(Size);
            Encoding = 1;
        } else {
            Stored = Elements.Bytes;
        }
    }
    Out.Word(Count, 4);
    Out.Word(Encoding, 4);
    Out.Word(Stored.size(), 4);
    Out.Raw(Stored.data(), Stored.size());
}

void WriteBinaryField(binary_out &Out, const fbx_test_field &Field, const fbx_test_format &Format, int HeaderWord)
{
    size_t Start = Out.Bytes.size();
    Out.Word(0, HeaderWord); // end offset, patched below
    Out.Word(Field.Values.size(), HeaderWord);
    Out.Word(0, HeaderWord); // value list size, patched below
    Out.Bytes.push_back((uint8_t)Field.Name.size());
    Out.Raw(Field.Name.data(), Field.Name.size());

    size_t ValuesStart = Out.Bytes.size();
    for (const fbx_test_value &Value : Field.Values) WriteBinaryValue(Out, Value, Format);
    size_t ValuesSize = Out.Bytes.size() - ValuesStart;

    for (const fbx_test_field &Child : Field.Children) WriteBinaryField(Out, Child, Format, HeaderWord);
    // A field with children, or with nothing at all, is a block and ends in a
    // zero record.
    if (Field.Block || !Field.Children.empty() || Field.Values.empty())
        Out.Bytes.insert(Out.Bytes.end(), 3 * HeaderWord + 1, 0);

    Out.Patch(Start, Out.Bytes.size(), HeaderWord);
    Out.Patch(Start + 2 * HeaderWord, ValuesSize, HeaderWord);
}

} // namespace

std::vector<uint8_t> WriteFbxTestBinary(const fbx_test_field &Root, const fbx_test_format &Format)
{
    binary_out Out;
    Out.BigEndian = Format.BigEndian;
    static const char Magic[] = "Kaydara FBX Binary  ";
    Out.Raw(Magic, sizeof(Magic)); // 20 characters and the zero byte
    Out.Bytes.push_back(0x1A);
    Out.Bytes.push_back(Format.BigEndian ? 1 : 0);
    Out.Word((uint32_t)Format.Version, 4);

    bool Wide = Format.WideRecords < 0 ? Format.Version >= 7500 : Format.WideRecords != 0;
    int HeaderWord = Wide ? 8 : 4;
    for (const fbx_test_field &Field : Root.Children) WriteBinaryField(Out, Field, Format, HeaderWord);
    Out.Bytes.insert(Out.Bytes.end(), 3 * HeaderWord + 1, 0);

    if (Format.WriteFooter) {
        // Padding to 16 bytes, then 128 bytes: extension offset, version,
        // zeros, and a 16-byte mark of this writer's own.
        while (Out.Bytes.size() % 16) Out.Bytes.push_back(0);
        Out.Word(0, 4);
        Out.Word((uint32_t)Format.Version, 4);
        Out.Bytes.insert(Out.Bytes.end(), 104, 0);
        static const char Mark[17] = "tessel-test-fbx!";
        Out.Raw(Mark, 16);
    }
    return Out.Bytes;
}

// ---------------------------------------------------------------------------
// ASCII
// ---------------------------------------------------------------------------

namespace {

std::string FormatReal(double Value, bool Single)
{
    char Buffer[64];
    std::to_chars_result R = Single ? std::to_chars(Buffer, Buffer + sizeof(Buffer), (float)Value)
                                    : std::to_chars(Buffer, Buffer + sizeof(Buffer), Value);
    return std::string(Buffer, R.ptr);
}

std::string QuoteString(const std::string &Text)
{
    std::string Result = "\"";
    for (char C : Text) {
        if (C == '"')
            Result += "&quot;";
        else
            Result.push_back(C);
    }
    Result.push_back('"');
    return Result;
}

std::string FormatScalar(const fbx_test_value &Value)
{
    switch (Value.Type) {
    case 'Y':
    case 'I':
    case 'L': return std::to_string(Value.Integer);
    case 'C': return std::string(1, (char)Value.Integer);
    case 'F': return FormatReal(Value.Real, true);
    case 'D': return FormatReal(Value.Real, false);
    case 'S': return QuoteString(Value.Bytes);
    case 'R': {
        // Raw bytes as quoted base64.
        static const char Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string Result = "\"";
        const std::string &B = Value.Bytes;
        for (size_t I = 0; I < B.size(); I += 3) {
            uint32_t N = (uint8_t)B[I] << 16;
            if (I + 1 < B.size()) N |= (uint8_t)B[I + 1] << 8;
            if (I + 2 < B.size()) N |= (uint8_t)B[I + 2];
            Result.push_back(Digits[(N >> 18) & 63]);
            Result.push_back(Digits[(N >> 12) & 63]);
            Result.push_back(I + 1 < B.size() ? Digits[(N >> 6) & 63] : '=');
            Result.push_back(I + 2 < B.size() ? Digits[N & 63] : '=');
        }
        return Result + "\"";
    }
    default: return "";
    }
}

std::vector<std::string> FormatArrayElements(const fbx_test_field &Field, const fbx_test_value &Value)
{
    std::vector<std::string> Result;
    if (Value.Type == 'f' || Value.Type == 'd') {
        // Key attribute data keeps its weight word as the integer of its bits.
        bool KeyData = Field.Name == "KeyAttrDataFloat" && Value.Type == 'f';
        for (size_t I = 0; I < Value.Reals.size(); ++I) {
            if (KeyData && I % 4 == 2)
                Result.push_back(std::to_string(FloatBits((float)Value.Reals[I])));
            else
                Result.push_back(FormatReal(Value.Reals[I], Value.Type == 'f'));
        }
    } else {
        for (int64_t V : Value.Integers) Result.push_back(std::to_string(V));
    }
    return Result;
}

void WriteAsciiField(std::string &Out, const fbx_test_field &Field, const fbx_test_format &Format, int Depth)
{
    std::string Indent(Depth, '\t');
    Out += Indent + Field.Name + ": ";
    const int32_t PerLine = Format.AsciiValuesPerLine > 0 ? Format.AsciiValuesPerLine : 1 << 30;
    bool Counted = Format.Version >= 7000;

    bool HasCountedArray = false;
    for (size_t I = 0; I < Field.Values.size(); ++I) {
        const fbx_test_value &Value = Field.Values[I];
        if (I > 0) Out += (Field.Values[I - 1].Type == 'S' || Value.Type == 'S') ? ", " : ",";
        if (!IsArrayType(Value.Type)) {
            Out += FormatScalar(Value);
            continue;
        }
        std::vector<std::string> Elements = FormatArrayElements(Field, Value);
        if (Counted) {
            // *n { a: ... }, long lists broken after a comma.
            Out += "*" + std::to_string(Elements.size()) + " {\n" + Indent + "\ta: ";
            for (size_t E = 0; E < Elements.size(); ++E) {
                if (E > 0) Out += (E % PerLine == 0) ? ",\n" : ",";
                Out += Elements[E];
            }
            Out += "\n" + Indent + "} ";
            HasCountedArray = true;
        } else {
            // Plain list; continuation lines start with the comma.
            for (size_t E = 0; E < Elements.size(); ++E) {
                if (E > 0) Out += (E % PerLine == 0) ? "\n" + Indent + "\t," : ",";
                Out += Elements[E];
            }
        }
    }

    bool Block = Field.Block || !Field.Children.empty() || Field.Values.empty();
    if (Block) {
        Out += " {\n";
        for (const fbx_test_field &Child : Field.Children) WriteAsciiField(Out, Child, Format, Depth + 1);
        Out += Indent + "}\n";
    } else {
        if (HasCountedArray) Out.pop_back(); // the blank after the array's brace
        Out += "\n";
    }
}

} // namespace

std::string WriteFbxTestAscii(const fbx_test_field &Root, const fbx_test_format &Format)
{
    int32_t Major = Format.Version / 1000, Minor = (Format.Version / 100) % 10, Patch = (Format.Version / 10) % 10;
    std::string Out = "; FBX " + std::to_string(Major) + "." + std::to_string(Minor) + "." + std::to_string(Patch) +
                      " project file\n; Written by the Tessel test writer\n; "
                      "----------------------------------------------------\n\n";
    for (const fbx_test_field &Field : Root.Children) {
        WriteAsciiField(Out, Field, Format, 0);
        Out += "\n";
    }
    return Out;
}

std::vector<uint8_t> WriteFbxTestFields(const fbx_test_field &Root, const fbx_test_format &Format)
{
    if (Format.Binary) return WriteFbxTestBinary(Root, Format);
    std::string Text = WriteFbxTestAscii(Root, Format);
    return std::vector<uint8_t>(Text.begin(), Text.end());
}

std::string SaveFbxTestFile(const std::string &FileName, const std::vector<uint8_t> &Bytes)
{
    const char *Dir = getenv("TMPDIR");
    std::string Path = std::string(Dir && *Dir ? Dir : "/tmp") + "/tessel_" + std::to_string(getpid()) + "_" + FileName;
    FILE *File = fopen(Path.c_str(), "wb");
    if (!File) return "";
    bool Ok = fwrite(Bytes.data(), 1, Bytes.size(), File) == Bytes.size();
    Ok = fclose(File) == 0 && Ok;
    return Ok ? Path : "";
}
