#include "support/test_json.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

struct json_parser
{
    char const *At;
    char const *End;

    void SkipSpace()
    {
        while (At < End && (*At == ' ' || *At == '\n' || *At == '\r' || *At == '\t')) ++At;
    }

    bool ParseString(std::string &Out)
    {
        if (At >= End || *At != '"') return false;
        ++At;
        while (At < End && *At != '"') {
            if (*At == '\\' && At + 1 < End) {
                ++At;
                char Escaped = *At;
                if (Escaped == 'u' && At + 4 < End) {
                    // Only the code points below 0x80 matter to the tests.
                    unsigned Code = (unsigned)strtoul(std::string(At + 1, At + 5).c_str(), nullptr, 16);
                    Out += Code < 0x80 ? (char)Code : '?';
                    At += 5;
                    continue;
                }
                Out += Escaped == 'n' ? '\n' : Escaped == 't' ? '\t' : Escaped;
                ++At;
                continue;
            }
            Out += *At++;
        }
        if (At >= End) return false;
        ++At;
        return true;
    }

    bool Parse(test_json &Out, int Depth)
    {
        if (Depth > 200) return false;
        SkipSpace();
        if (At >= End) return false;
        if (*At == '{') {
            Out.Kind = test_json::Object;
            ++At;
            SkipSpace();
            if (At < End && *At == '}') return ++At, true;
            for (;;) {
                SkipSpace();
                std::pair<std::string, test_json> Member;
                if (!ParseString(Member.first)) return false;
                SkipSpace();
                if (At >= End || *At != ':') return false;
                ++At;
                if (!Parse(Member.second, Depth + 1)) return false;
                Out.Members.push_back(std::move(Member));
                SkipSpace();
                if (At < End && *At == ',') {
                    ++At;
                    continue;
                }
                if (At < End && *At == '}') return ++At, true;
                return false;
            }
        }
        if (*At == '[') {
            Out.Kind = test_json::Array;
            ++At;
            SkipSpace();
            if (At < End && *At == ']') return ++At, true;
            for (;;) {
                Out.Items.emplace_back();
                if (!Parse(Out.Items.back(), Depth + 1)) return false;
                SkipSpace();
                if (At < End && *At == ',') {
                    ++At;
                    continue;
                }
                if (At < End && *At == ']') return ++At, true;
                return false;
            }
        }
        if (*At == '"') {
            Out.Kind = test_json::String;
            return ParseString(Out.Text);
        }
        if (End - At >= 4 && strncmp(At, "null", 4) == 0) return At += 4, true;
        if (End - At >= 4 && strncmp(At, "true", 4) == 0) {
            Out.Kind = test_json::Bool;
            Out.Value = 1.0;
            return At += 4, true;
        }
        if (End - At >= 5 && strncmp(At, "false", 5) == 0) {
            Out.Kind = test_json::Bool;
            return At += 5, true;
        }
        char *NumberEnd = nullptr;
        std::string Copy(At, (size_t)std::min<long>(End - At, 64));
        Out.Value = strtod(Copy.c_str(), &NumberEnd);
        if (NumberEnd == Copy.c_str()) return false;
        Out.Kind = test_json::Number;
        At += NumberEnd - Copy.c_str();
        return true;
    }
};

} // namespace

test_json const *test_json::Find(std::string const &Name) const
{
    for (auto const &Member : Members) {
        if (Member.first == Name) return &Member.second;
    }
    return nullptr;
}

std::vector<double> test_json::Numbers() const
{
    std::vector<double> Result;
    for (test_json const &Item : Items) Result.push_back(Item.Kind == Number ? Item.Value : 0.0);
    return Result;
}

bool ParseTestJson(std::string const &Text, test_json &Result)
{
    json_parser Parser = {Text.data(), Text.data() + Text.size()};
    Result = test_json();
    return Parser.Parse(Result, 0);
}

bool ReadTestJsonFile(std::string const &Path, test_json &Result)
{
    std::ifstream In(Path, std::ios::binary);
    if (!In) return false;
    std::string Text((std::istreambuf_iterator<char>(In)), std::istreambuf_iterator<char>());
    return ParseTestJson(Text, Result);
}
