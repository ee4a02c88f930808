// Test helpers for anything typed by data type definitions: fill every
// member of an object of any type with non-trivial values (allocating the
// arrays, strings and referred objects it needs), and compare two objects
// member by member through their types.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_data_tree_writer.h"
#include "format/tessel_file_reader.h"

// Owns everything the filler allocates.
struct test_object_pool
{
    std::vector<std::unique_ptr<uint8[]>> Blocks;
    std::vector<std::string> RecentStrings;

    void *Allocate(size_t Size);
    char *CopyString(std::string const &Text);
};

struct test_fill_options
{
    uint32 Seed = 1;
    int32 MaxDepth = 5;      // references deeper than this stay null
    int32 MaxArrayCount = 3; // arrays hold 1 to this many elements
    // Type for ExtendedData variants and annotation arrays; a default with
    // mixed byte-reversal units is used when null.
    data_type_definition *VariantType = 0;
};

// Fills Object (of Type) and everything it refers to. Curves get one of the
// curve data types; variant arrays of vertex_data get a standard layout.
void FillTestObject(test_object_pool &Pool, data_type_definition const *Type, void *Object, test_fill_options &Options);
// Allocates and fills one object.
void *NewTestObject(test_object_pool &Pool, data_type_definition const *Type, test_fill_options &Options);

// Deep comparison of two objects through their own types (which must agree
// in kinds, names and widths). Scalars compare bit for bit. On a difference,
// Difference names the member path and returns false.
bool CompareTestObjects(data_type_definition const *TypeA, void const *A, data_type_definition const *TypeB,
                        void const *B, std::string *Difference);

// Writes the tree under Root through a data tree writer into a builder of 8
// uncompressed sections (in memory) and loads the result. Setup, when given,
// runs on the writer and builder before the write (sections, alignments,
// flags). Null when any step fails.
struct test_tree_setup
{
    uint32 WriterFlags = 0;
    int32 DefaultTypeSection = 6;
    int32 DefaultObjectSection = 0;
    int32 Alignment[8] = {4, 4, 4, 4, 4, 4, 4, 4};
    void (*Setup)(file_data_tree_writer *Writer, void *UserData) = 0;
    void *UserData = 0;
};
loaded_file *WriteTreeAndLoad(data_type_definition *Type, void *Root, test_tree_setup const &Setup);

// Section whose loaded data holds Pointer, or -1.
int32 FindLoadedSection(loaded_file const &File, void const *Pointer);
