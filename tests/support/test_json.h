// A small JSON reader for test reference files: values, arrays and objects
// (members in file order), numbers as doubles. Not for untrusted input.
#pragma once

#include <string>
#include <utility>
#include <vector>

struct test_json
{
    enum kind
    {
        Null,
        Bool,
        Number,
        String,
        Array,
        Object
    };
    kind Kind = Null;
    double Value = 0.0; // Bool and Number
    std::string Text;
    std::vector<test_json> Items;                           // Array
    std::vector<std::pair<std::string, test_json>> Members; // Object

    // The member of that name, or null.
    test_json const *Find(std::string const &Name) const;
    // The numbers of an array (non-numbers read as 0).
    std::vector<double> Numbers() const;
};

// False on a syntax error.
bool ParseTestJson(std::string const &Text, test_json &Result);
// Reads and parses a file; false when it is missing or broken.
bool ReadTestJsonFile(std::string const &Path, test_json &Result);
