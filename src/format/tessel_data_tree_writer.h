// The data tree writer: walks an object graph directed only by type tables
// and hands every object, array, string and type table to a file_builder,
// with a fixup for each pointer slot. It decides the section of every object,
// writes each object once however many pointers lead to it, merges equal
// type tables and equal strings, and normalises degenerate references in the
// objects (in place) before they are copied.
//
// Calling order: BeginFileDataTreeWriting; SetFileSectionForObject and
// SetFileSectionForObjectsOfType as wanted; SetFileWriterFlags;
// WriteDataTreeToFileBuilder; EndFileDataTreeWriting. Nobody else may read
// the objects while they are written.
#pragma once

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_builder.h"
#include "foundation/tessel_pointer_hash.h"
#include "foundation/tessel_stack_allocator.h"

enum file_data_tree_flags
{
    // Leave the root's type tree out: the root type becomes an empty table.
    // Variant data still carries its types.
    ExcludeTypeTree = 0x1,
};

enum
{
    // Entries are added in blocks of this many; there is no upper limit.
    ObjectEntriesPerBlock = 4096,
};

#pragma pack(push, 4)
struct object_entry
{
    uint32 LastTraversal;    // traversal in which the object was written; 0: never
    file_location Position;  // the section holds before the write, all of it after
    bool8 Placed;            // section set explicitly
    int32 ChildSectionIndex; // for the entry of a type: section of its objects
};

struct string_table;

struct file_data_tree_writer
{
    data_type_definition *RootObjectTypeDefinition;
    void *RootObject;
    uint32 TraversalNumber;
    uint32 Flags;
    int32 DefaultTypeSectionIndex;
    int32 DefaultObjectSectionIndex;

    int32 ObjectEntryCount;
    stack_allocator ObjectEntries; // object_entry units; addresses never move
    pointer_hash DataHash;         // object pointer to its entry; null key: the defaults

    avl_tree TypeTable;        // CRC of a type table to a chain of type_table_link
    stack_allocator TypeLinks; // type_table_link units

    string_table *Strings; // during a write only
    file_builder *Builder; // during a write only
};
#pragma pack(pop)

// Null when memory runs out.
file_data_tree_writer *BeginFileDataTreeWriting(data_type_definition *RootType, void *RootObject,
                                                int32 DefaultTypeSectionIndex, int32 DefaultObjectSectionIndex);
void SetFileWriterFlags(file_data_tree_writer *Writer, uint32 Flags);
// Every object of Type that has no explicit section goes to SectionIndex.
// Arrays follow the object that owns them instead.
void SetFileSectionForObjectsOfType(file_data_tree_writer *Writer, data_type_definition const *Type,
                                    int32 SectionIndex);
// Object (or the array that starts at it) goes to SectionIndex.
void SetFileSectionForObject(file_data_tree_writer *Writer, void const *Object, int32 SectionIndex);
// False only when the string table can't be made; builder failures show in
// the builder's end call.
bool WriteDataTreeToFileBuilder(file_data_tree_writer *Writer, file_builder *Builder);
void EndFileDataTreeWriting(file_data_tree_writer *Writer);

// CRC of a type table by kinds, names, widths and referred types, the key
// under which equal tables are merged.
uint32 ComputeTypeTableCRC(data_type_definition const *Type);
