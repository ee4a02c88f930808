// ASCII FBX: "Name: value, value, ... { children }" with ';' comments.
// Values stay text in the file's bytes; quoted strings are unquoted in place
// ("&quot;" becomes '"'). A long value list continues on the next line after
// a trailing comma or on a line that starts with a comma. A counted array is
// the value "*n" followed by a block whose field "a" holds the elements.
#include <charconv>
#include <cmath>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_field_internal.h"

static inline bool IsBlank(char Character)
{
    return Character == ' ' || Character == '\t' || Character == '\f' || Character == '\v';
}

// Lines end in LF, CR LF or a lone CR.
static inline bool IsLineEnd(char Character)
{
    return Character == '\n' || Character == '\r';
}

// Characters that end a bare word or a field name, as a table: the word
// loops are most of the reading.
struct word_end_table
{
    bool Ends[256];
    // Characters that start a bare word: not an end and not the '*' of an
    // array mark.
    bool Starts[256];
    constexpr word_end_table() : Ends(), Starts()
    {
        char const Enders[] = {0, ' ', '\t', '\f', '\v', '\n', '\r', ',', ':', '{', '}', '"', ';'};
        for (char Character : Enders) Ends[(unsigned char)Character] = true;
        for (int Character = 0; Character < 256; ++Character) Starts[Character] = !Ends[Character] && Character != '*';
    }
};
static constexpr word_end_table WordEnds;

static inline bool EndsWord(char Character)
{
    return WordEnds.Ends[(unsigned char)Character];
}

// The first '"', '&' or zero byte at or after At. With SSE2, sixteen
// characters are tested at once; the container's zero padding after the
// file makes those reads safe (the zero that ends the text stops the scan).
static inline char *SkipToQuoteStop(char *At)
{
#if defined(__SSE2__)
    __m128i const Zero = _mm_setzero_si128(), Quote = _mm_set1_epi8('"'), Ampersand = _mm_set1_epi8('&');
    for (;;) {
        __m128i Chunk = _mm_loadu_si128((__m128i const *)At);
        __m128i Stops = _mm_or_si128(_mm_cmpeq_epi8(Chunk, Zero),
                                     _mm_or_si128(_mm_cmpeq_epi8(Chunk, Quote), _mm_cmpeq_epi8(Chunk, Ampersand)));
        int Mask = _mm_movemask_epi8(Stops);
        if (Mask) return At + __builtin_ctz((unsigned)Mask);
        At += 16;
    }
#else
    while (*At != '"' && *At != '&' && *At != 0) ++At;
    return At;
#endif
}

// The first line end at or after At, or End: comments are long enough for
// SkipToQuoteStop's way of reading.
static inline char const *SkipToLineEnd(char const *At, char const *End)
{
#if defined(__SSE2__)
    __m128i const Zero = _mm_setzero_si128(), NewLine = _mm_set1_epi8('\n'), Return = _mm_set1_epi8('\r');
    for (;;) {
        __m128i Chunk = _mm_loadu_si128((__m128i const *)At);
        __m128i Stops = _mm_or_si128(_mm_cmpeq_epi8(Chunk, Zero),
                                     _mm_or_si128(_mm_cmpeq_epi8(Chunk, NewLine), _mm_cmpeq_epi8(Chunk, Return)));
        int Mask = _mm_movemask_epi8(Stops);
        if (!Mask) {
            At += 16;
            continue;
        }
        At += __builtin_ctz((unsigned)Mask);
        // A zero byte inside the file is part of the comment.
        if (*At || At >= End) return At < End ? At : End;
        ++At;
    }
#else
    while (At < End && !IsLineEnd(*At)) ++At;
    return At;
#endif
}

struct fbx_ascii_parser
{
    KFbx &Fbx;
    char *Text;
    int64 Size;
    int64 Position;

    char Peek() const { return Position < Size ? Text[Position] : 0; }

    int32 LineAt(int64 At) const
    {
        int32 Line = 1;
        for (int64 Index = 0; Index < At && Index < Size; ++Index) {
            if (Text[Index] == '\n') ++Line;
        }
        return Line;
    }

    // The scanning loops work on a local pointer and rely on the zero byte
    // that follows the file's bytes: it ends every word and every run of
    // blanks.
    void SkipBlanks()
    {
        char const *At = Text + Position;
        while (IsBlank(*At)) ++At;
        Position = At - Text;
    }

    // Blanks, line ends and comments.
    void SkipSpace()
    {
        char const *At = Text + Position;
        char const *End = Text + Size;
        for (;;) {
            char Character = *At;
            if (IsBlank(Character) || IsLineEnd(Character)) {
                ++At;
            } else if (Character == ';' && At < End) {
                At = SkipToLineEnd(At, End);
            } else {
                break;
            }
        }
        Position = At - Text;
    }

    // True when a field name ("Word:") starts at the current position.
    bool AtFieldName() const
    {
        char const *At = Text + Position;
        while (!EndsWord(*At)) ++At;
        if (At == Text + Position) return false;
        while (IsBlank(*At)) ++At;
        return *At == ':';
    }

    bool ParseQuoted()
    {
        int64 Start = Position + 1;
        // One pass finds the closing quote and the first '&' (strings are
        // mostly short); a zero byte stops it only at the end of the file.
        char *At = Text + Start;
        char *Mark = 0;
        for (;;) {
            At = SkipToQuoteStop(At);
            if (*At == '"') break;
            if (*At == '&') {
                if (!Mark) Mark = At;
            } else if (At >= Text + Size) {
                Fbx.Fail("Unterminated string at line %d", LineAt(Position));
                return false;
            }
            ++At;
        }
        int64 End = At - Text;
        // Text without an '&' stays where it is.
        int64 Write = Mark ? Mark - Text : End;
        for (int64 Read = Write; Read < End;) {
            if (Text[Read] == '&' && End - Read >= 6 && memcmp(Text + Read, "&quot;", 6) == 0) {
                Text[Write++] = '"';
                Read += 6;
            } else {
                Text[Write++] = Text[Read++];
            }
        }
        Position = End + 1;
        return AddValue(FbxValue_String, (uint32)Start, (uint32)(Write - Start));
    }

    bool ParseValue()
    {
        char Character = Peek();
        if (Character == '"') return ParseQuoted();
        int64 Start = Position;
        char const *At = Text + Position;
        while (!EndsWord(*At)) ++At;
        // A ':' inside a bare word (e.g. a time "00:01") belongs to it.
        while (*At == ':') {
            ++At;
            while (!EndsWord(*At)) ++At;
        }
        Position = At - Text;
        if (Position == Start) {
            Fbx.Fail("Unexpected character '%c' at line %d", Character, LineAt(Position));
            return false;
        }
        if (Text[Start] == '*') {
            int32 Slot = Fbx.AddSlot();
            return Slot >= 0 && AddValue(FbxValue_AsciiArray, (uint32)Start, (uint32)Slot);
        }
        return AddValue(FbxValue_String, (uint32)Start, (uint32)(Position - Start));
    }

    // After a value: the bare words and quoted strings that follow on the
    // line, each after a comma and blanks, as the general loop would read
    // them. Stops before anything else (Comma tells whether a comma was
    // taken last).
    bool ParseBareValues(bool &Comma)
    {
        // The table's end is kept in locals while the run lasts.
        fbx_value *List = Fbx.Values;
        uint32 Count = Fbx.ValueCount, Capacity = Fbx.ValueCapacity, Added = 0;
        auto Settle = [&] {
            Fbx.ValueCount = Count;
            Fbx.Fields[Fbx.FieldCount - 1].ValueCount += Added;
            Added = 0;
        };
        char const *At = Text + Position;
        for (;;) {
            // Lists of numbers: a comma right before a word, in a loop of its
            // own that leaves everything else (blanks, quotes, a ':' in the
            // word, a full table) to the general steps below.
            while (At[0] == ',' && WordEnds.Starts[(unsigned char)At[1]] && Count < Capacity) {
                char const *Start = At + 1;
                char const *WordEnd = Start + 1;
                while (!EndsWord(*WordEnd)) ++WordEnd;
                if (*WordEnd == ':') break;
                fbx_value &Value = List[Count++];
                Value.Offset = (uint32)(Start - Text);
                Value.Size = (uint32)(WordEnd - Start);
                Value.Type = FbxValue_String;
                Value.Pad[0] = Value.Pad[1] = Value.Pad[2] = 0;
                ++Added;
                At = WordEnd;
            }
            while (IsBlank(*At)) ++At;
            if (*At != ',') {
                Comma = false;
                break;
            }
            ++At;
            while (IsBlank(*At)) ++At;
            if (*At == '"') {
                // A quoted string, as the general loop would read it next.
                Settle();
                Position = At - Text;
                if (!ParseQuoted()) return false;
                At = Text + Position;
                List = Fbx.Values;
                Count = Fbx.ValueCount;
                Capacity = Fbx.ValueCapacity;
                continue;
            }
            if (EndsWord(*At) || *At == '*') {
                Comma = true;
                break;
            }
            char const *Start = At;
            while (!EndsWord(*At)) ++At;
            while (*At == ':') {
                ++At;
                while (!EndsWord(*At)) ++At;
            }
            if (Count >= Capacity) {
                Settle();
                if (!Fbx.AddValue(FbxValue_String, (uint32)(Start - Text), (uint32)(At - Start))) return false;
                List = Fbx.Values;
                Count = Fbx.ValueCount;
                Capacity = Fbx.ValueCapacity;
                continue;
            }
            fbx_value &Value = List[Count++];
            Value.Offset = (uint32)(Start - Text);
            Value.Size = (uint32)(At - Start);
            Value.Type = FbxValue_String;
            Value.Pad[0] = Value.Pad[1] = Value.Pad[2] = 0;
            ++Added;
        }
        Settle();
        Position = At - Text;
        return true;
    }

    // The container's AddValue with room to spare done here.
    bool AddValue(int32 Type, uint32 Offset, uint32 Length)
    {
        if (Fbx.ValueCount >= Fbx.ValueCapacity) return Fbx.AddValue(Type, Offset, Length);
        fbx_value &Value = Fbx.Values[Fbx.ValueCount++];
        Value.Offset = Offset;
        Value.Size = Length;
        Value.Type = (uint8)Type;
        Value.Pad[0] = Value.Pad[1] = Value.Pad[2] = 0;
        ++Fbx.Fields[Fbx.FieldCount - 1].ValueCount;
        return true;
    }

    // After the colon: values, then optionally a child block.
    bool ParseFieldBody(int32 Field, int32 Depth)
    {
        bool ExpectValue = true;
        bool AfterComma = false;
        bool AnyValue = false;
        for (;;) {
            SkipBlanks();
            char Character = Peek();
            if (IsLineEnd(Character) || Character == ';') {
                // The list may go on on the next line: after a trailing comma,
                // with a leading comma, or (for an empty list) with the values
                // of a field whose first value starts the next line.
                SkipSpace();
                Character = Peek();
                if (Character == ',' && !ExpectValue) {
                    ++Position;
                    ExpectValue = AfterComma = true;
                    continue;
                }
                if (Character == '{') return ParseBlock(Field, Depth);
                if (!ExpectValue) return true;
                if (!AfterComma && (AnyValue || Character == '}' || Character == 0 || AtFieldName())) return true;
            }
            if (Character == 0) {
                if (Position < Size) {
                    Fbx.Fail("Unexpected zero byte at line %d", LineAt(Position));
                    return false;
                }
                return true;
            }
            if (Character == '{') return ParseBlock(Field, Depth);
            if (Character == '}') return true;
            if (ExpectValue) {
                // An empty value ("Content: ,") reads as an empty string.
                if (Character == ',') {
                    if (!AddValue(FbxValue_String, (uint32)Position, 0)) return false;
                    ExpectValue = AfterComma = false;
                } else {
                    bool Comma = false;
                    if (!ParseValue() || !ParseBareValues(Comma)) return false;
                    ExpectValue = AfterComma = Comma;
                }
                AnyValue = true;
                continue;
            }
            if (Character == ',') {
                ++Position;
                ExpectValue = AfterComma = true;
                continue;
            }
            Fbx.Fail("Unexpected character '%c' after a value at line %d", Character, LineAt(Position));
            return false;
        }
    }

    bool ParseBlock(int32 Field, int32 Depth)
    {
        ++Position; // '{'
        if (!ParseFields(Field, Depth + 1, true)) return false;
        return true;
    }

    bool ParseFields(int32 Parent, int32 Depth, bool InBlock)
    {
        if (Depth > FbxMaximumFieldDepth) {
            Fbx.Fail("FBX fields are nested deeper than %d levels (line %d)", (int32)FbxMaximumFieldDepth,
                     LineAt(Position));
            return false;
        }
        int32 Previous = -1;
        for (;;) {
            SkipSpace();
            char Character = Peek();
            if (Position >= Size) {
                if (!InBlock) return true;
                Fbx.Fail("The file ends inside a block (a '}' is missing)");
                return false;
            }
            if (Character == '}') {
                if (!InBlock) {
                    Fbx.Fail("Unexpected '}' at line %d", LineAt(Position));
                    return false;
                }
                ++Position;
                return true;
            }
            int64 Start = Position;
            char const *At = Text + Position;
            while (!EndsWord(*At)) ++At;
            Position = At - Text;
            int64 NameEnd = Position;
            SkipBlanks();
            if (NameEnd == Start || Peek() != ':' || NameEnd - Start > 255) {
                Fbx.Fail("Expected a field name and ':' at line %d", LineAt(Start));
                return false;
            }
            ++Position;
            int32 Field = Fbx.AddField(Parent, Previous, (uint32)Start, Text + Start, (int32)(NameEnd - Start));
            if (Field < 0) return false;
            Previous = Field;
            if (!ParseFieldBody(Field, Depth)) return false;
        }
    }
};

// "; FBX 7.4.0 project file" in the leading comments gives 7400.
static int32 VersionFromComment(char const *Text, int64 Size)
{
    int64 Position = 0;
    while (Position < Size) {
        while (Position < Size && (IsBlank(Text[Position]) || IsLineEnd(Text[Position]))) ++Position;
        if (Position >= Size || Text[Position] != ';') return 0;
        int64 LineEnd = Position;
        while (LineEnd < Size && !IsLineEnd(Text[LineEnd])) ++LineEnd;
        for (int64 At = Position; At + 9 <= LineEnd; ++At) {
            if (memcmp(Text + At, "FBX ", 4) == 0 && Text[At + 4] >= '1' && Text[At + 4] <= '9' &&
                Text[At + 5] == '.' && Text[At + 6] >= '0' && Text[At + 6] <= '9' && Text[At + 7] == '.' &&
                Text[At + 8] >= '0' && Text[At + 8] <= '9') {
                return (Text[At + 4] - '0') * 1000 + (Text[At + 6] - '0') * 100 + (Text[At + 8] - '0') * 10;
            }
        }
        Position = LineEnd;
    }
    return 0;
}

bool KFbx::ParseAscii()
{
    Binary = BigEndian = WideRecords = false;
    fbx_ascii_parser Parser = {*this, (char *)Bytes, ByteCount, 0};
    // A UTF-8 byte order mark is allowed before the text.
    if (ByteCount >= 3 && Bytes[0] == 0xEF && Bytes[1] == 0xBB && Bytes[2] == 0xBF) Parser.Position = 3;
    if (!Parser.ParseFields(-1, 0, false)) return false;
    Version = VersionFromComment((char const *)Bytes, ByteCount);
    // The header's own version wins over the comment.
    fbx_field const *VersionField = 0;
    for (int32 Index = FirstTopField; Index >= 0; Index = Fields[Index].NextSibling) {
        if (strcmp(Names + Fields[Index].NameOffset, "FBXHeaderExtension") == 0) {
            for (int32 Child = Fields[Index].FirstChild; Child >= 0; Child = Fields[Child].NextSibling) {
                if (strcmp(Names + Fields[Child].NameOffset, "FBXVersion") == 0) {
                    VersionField = &Fields[Child];
                    break;
                }
            }
            break;
        }
    }
    int32 HeaderVersion;
    if (VersionField && GetValueInt32(VersionField, 0, &HeaderVersion)) Version = HeaderVersion;
    return true;
}

// ---------------------------------------------------------------------------
// Numbers in text

static char const *SkipPlus(char const *Text, char const *End)
{
    return (Text < End && *Text == '+') ? Text + 1 : Text;
}

bool ParseFbxTextReal64(char const *Text, int32 Length, real64 *Result)
{
    if (!Text || Length <= 0) return false;
    // One character (key letters of curves are probed as numbers first):
    // only a digit is a number.
    if (Length == 1) {
        if (!IsFbxDigit(Text[0])) return false;
        *Result = (real64)(Text[0] - '0');
        return true;
    }
    char const *End = Text + Length;
    char const *Start = SkipPlus(Text, End);
    if (ParseFbxPlainDecimal(Start, End, Result)) return true;
    std::from_chars_result Parsed = std::from_chars(Start, End, *Result);
    if (Parsed.ec == std::errc() && Parsed.ptr == End) return true;
    // Older writers print special values as "1.#INF", "-1.#IND" or "1.#QNAN".
    char const *Mark = (char const *)memchr(Start, '#', (size_t)(End - Start));
    if (!Mark || Mark == Start || Mark[-1] != '.') return false;
    bool Negative = *Start == '-';
    bool Infinite = End - Mark >= 4 && memcmp(Mark, "#INF", 4) == 0;
    *Result = Infinite ? (Negative ? -HUGE_VAL : HUGE_VAL) : NAN;
    return true;
}

bool ParseFbxTextInt64(char const *Text, int32 Length, int64 *Result)
{
    if (!Text || Length <= 0) return false;
    char const *End = Text + Length;
    char const *Start = SkipPlus(Text, End);
    if (ParseFbxPlainInteger(Start, End, Result)) return true;
    std::from_chars_result Parsed = std::from_chars(Start, End, *Result);
    if (Parsed.ec == std::errc() && Parsed.ptr == End) return true;
    real64 Real;
    if (!ParseFbxTextReal64(Text, Length, &Real)) return false;
    if (!(Real > -9.2233720368547758e18 && Real < 9.2233720368547758e18)) return false;
    *Result = (int64)Real;
    return true;
}

bool ParseFbxTextBool(char const *Text, int32 Length, bool *Result)
{
    if (!Text || Length != 1) return false;
    switch (Text[0]) {
    case 'T':
    case 'Y':
    case 't':
    case 'y': *Result = true; return true;
    case 'F':
    case 'N':
    case 'f':
    case 'n': *Result = false; return true;
    default: return false;
    }
}
