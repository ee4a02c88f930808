// "File settings": platform, coordinate system, compression, alignments and
// the placement of every kind of data in the file's sections.
#include "foundation/tessel_types.h"
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_builder.h"

static object_type_section_row const ObjectTypeSectionRows[] = {
    {65537, "animation"},
    {65538, "art_tool_info"},
    {65539, "curve2"},
    {65540, "exporter_info"},
    {65541, "material_map"},
    {65542, "material"},
    {65543, "bone_binding"},
    {65544, "material_binding"},
    {65545, "morph_target"},
    {65546, "mesh"},
    {65547, "model_mesh_binding"},
    {65548, "model"},
    {65549, "periodic_loop"},
    {65550, "pixel_layout"},
    {65553, "bone"},
    {65554, "skeleton"},
    {65555, "strings"},
    {65556, "texture_mip_level"},
    {65557, "texture_image"},
    {65558, "texture"},
    {65559, "vector_track"},
    {65560, "transform_track"},
    {65561, "text_track_entry"},
    {65562, "text_track"},
    {65563, "track_group"},
    {65564, "tri_material_group"},
    {65565, "tri_annotation_set"},
    {65566, "tri_topology"},
    {65567, "vertex_annotation_set"},
    {65568, "vertex_data"},
};

int32 GetObjectTypeSectionRowCount()
{
    return TESSEL_ARRAY_COUNT(ObjectTypeSectionRows);
}

object_type_section_row const *GetObjectTypeSectionRows()
{
    return ObjectTypeSectionRows;
}

static char const *const StandardSectionNames[8] = {
    "0 - StandardMainSection",
    "1 - StandardRigidVertexSection",
    "2 - StandardRigidIndexSection",
    "3 - StandardDeformableVertexSection",
    "4 - StandardDeformableIndexSection",
    "5 - StandardTextureSection",
    "6 - StandardDiscardableSection",
    "7 - StandardUnloadedSection",
};

// A section combobox with a list of its own (id + 32768, same label):
// default placement, or one of the eight standard sections.
static void AddSectionCombobox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label)
{
    requester *Sections = List(Builder, Id + 32768, Label, "The file section for this type of data.");
    Choice(Builder, Sections, 124, "(allow default placement)",
           "The type is stored wherever it would normally go, which in part depends on where other types go.");
    for (int32 Section = 0; Section < 8; ++Section) {
        Choice(Builder, Sections, 131072 + Section, StandardSectionNames[Section],
               "Put this type of data in this section.");
    }
    Combobox(Builder, Requester, Id, Label, "This combobox selects the file section in which to put this type of data",
             Sections, 124, true, true);
}

requester *BuildFileSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 69, "File settings", "Settings that affect the entire file.");

    Checkbox(Builder, R, 94, "Include exporter info",
             "Store the exporter name and version in the file; recommended on.", true, true);
    Checkbox(Builder, R, 66, "Include art tool specific data",
             "Store extra attributes and properties of the item in the file.", true, true);

    // The platform list is labelled "Coordinate system"; the label is kept
    // because settings files and users have seen it.
    requester *Platforms = List(Builder, 213, "Coordinate system", "Pointer size and byte order of the file.");
    Choice(Builder, Platforms, 214, "Native", "The pointer size and byte order for which the exporter was compiled.");
    Choice(Builder, Platforms, 215, "32-bit, little endian", "32-bit pointers, little endian (x86).");
    Choice(Builder, Platforms, 216, "32-bit, big endian", "32-bit pointers, big endian (PowerPC, Cell).");
    Choice(Builder, Platforms, 217, "64-bit, little endian", "64-bit pointers, little endian (x64).");
    Choice(Builder, Platforms, 218, "64-bit, big endian", "64-bit pointers, big endian (Cell in 64-bit mode).");
    Combobox(Builder, R, 212, "File platform", "Pointer size and byte order for which the file is written.", Platforms,
             214, true, true);

    requester *Systems = List(Builder, 137, "Coordinate system", "Coordinate system of the file.");
    Choice(Builder, Systems, 142, "Use tool's coordinates", "The tool's coordinate system passes unchanged.");
    Choice(Builder, Systems, 138, "Right-handed, Y up", "");
    Choice(Builder, Systems, 139, "Right-handed, Z up", "");
    Choice(Builder, Systems, 140, "Left-handed, Y up", "");
    Choice(Builder, Systems, 141, "Left-handed, Z up", "");
    Combobox(Builder, R, 136, "Coordinate system", "Coordinate system in which the file is natively stored.", Systems,
             142, true, true);

    Checkbox(Builder, R, 144, "Rescale scene on export", "Rescale the scene during export to \"Units per Meter\".",
             false, true);
    Number(Builder, R, 145, "Units per Meter", "Desired output units per meter.", 0.0001f, 1000.0f, 1.0f, true);
    Spacer(Builder, R, 146);

    requester *Compressions = List(Builder, 71, "File compression", "Compression of the exported file.");
    Choice(Builder, Compressions, 72, "No compression", "No file-level compression; larger files that load faster.");
    Choice(Builder, Compressions, 133, "Trove-1 Compression",
           "The Trove file compressor; smaller files, slower loading.");
    Combobox(Builder, R, 70, "File compression", "Compression of the exported file.", Compressions, 133, true, true);

    Slider(Builder, R, 74, "Object alignment",
           "Alignment of the file's records; slider position n means 2^n bytes, default 4 bytes.", 0, 12, 2,
           PowerOfTwoSliderMapping, true);
    Slider(Builder, R, 87, "Vertex object alignment",
           "Alignment of vertex buffers; slider position n means 2^n bytes, default 32 bytes.", 0, 12, 5,
           PowerOfTwoSliderMapping, true);
    Checkbox(Builder, R, 95, "Include type table",
             "Store the structural type information that lets later readers read the file; off makes the file "
             "readable by this SDK release only.",
             true, true);
    Spacer(Builder, R, 123);

    AddSectionCombobox(Builder, R, 125, "Types default");
    AddSectionCombobox(Builder, R, 126, "Objects default");
    AddSectionCombobox(Builder, R, 127, "Rigid vertices");
    AddSectionCombobox(Builder, R, 128, "Rigid indices");
    AddSectionCombobox(Builder, R, 129, "Deformable vertices");
    AddSectionCombobox(Builder, R, 130, "Deformable indices");
    AddSectionCombobox(Builder, R, 132, "Pixel data");
    Spacer(Builder, R, 131);

    for (object_type_section_row const &Row : ObjectTypeSectionRows) {
        AddSectionCombobox(Builder, R, Row.Id, Row.Label);
    }
    return Finish(Builder, R);
}
