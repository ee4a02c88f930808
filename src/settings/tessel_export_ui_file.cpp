// "File settings": platform, coordinate system, compression, alignments and
// the placement of every kind of data in the file's sections.
#include "foundation/tessel_types.h"
#include "settings/tessel_export_ui.h"
#include "settings/tessel_export_ui_builder.h"

static object_type_section_row const ObjectTypeSectionRows[] = {
    {SettingId_AnimationSection, "animation"},
    {SettingId_ArtToolInfoSection, "art_tool_info"},
    {SettingId_Curve2Section, "curve2"},
    {SettingId_ExporterInfoSection, "exporter_info"},
    {SettingId_MaterialMapSection, "material_map"},
    {SettingId_MaterialSection, "material"},
    {SettingId_BoneBindingSection, "bone_binding"},
    {SettingId_MaterialBindingSection, "material_binding"},
    {SettingId_MorphTargetSection, "morph_target"},
    {SettingId_MeshSection, "mesh"},
    {SettingId_ModelMeshBindingSection, "model_mesh_binding"},
    {SettingId_ModelSection, "model"},
    {SettingId_PeriodicLoopSection, "periodic_loop"},
    {SettingId_PixelLayoutSection, "pixel_layout"},
    {SettingId_BoneSection, "bone"},
    {SettingId_SkeletonSection, "skeleton"},
    {SettingId_StringsSection, "strings"},
    {SettingId_TextureMipLevelSection, "texture_mip_level"},
    {SettingId_TextureImageSection, "texture_image"},
    {SettingId_TextureSection, "texture"},
    {SettingId_VectorTrackSection, "vector_track"},
    {SettingId_TransformTrackSection, "transform_track"},
    {SettingId_TextTrackEntrySection, "text_track_entry"},
    {SettingId_TextTrackSection, "text_track"},
    {SettingId_TrackGroupSection, "track_group"},
    {SettingId_TriMaterialGroupSection, "tri_material_group"},
    {SettingId_TriAnnotationSetSection, "tri_annotation_set"},
    {SettingId_TriTopologySection, "tri_topology"},
    {SettingId_VertexAnnotationSetSection, "vertex_annotation_set"},
    {SettingId_VertexDataSection, "vertex_data"},
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

// A section combobox with a list of its own (id + ChoiceList_SectionOffset, same label):
// default placement, or one of the eight standard sections.
static void AddSectionCombobox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label)
{
    requester *Sections =
        List(Builder, Id + ChoiceList_SectionOffset, Label, "The file section for this type of data.");
    Choice(Builder, Sections, Choice_AllowDefaultPlacement, "(allow default placement)",
           "The type is stored wherever it would normally go, which in part depends on where other types go.");
    for (int32 Section = 0; Section < 8; ++Section) {
        Choice(Builder, Sections, Choice_FirstStandardSection + Section, StandardSectionNames[Section],
               "Put this type of data in this section.");
    }
    Combobox(Builder, Requester, Id, Label, "This combobox selects the file section in which to put this type of data",
             Sections, 124, true, true);
}

requester *BuildFileSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 69, "File settings", "Settings that affect the entire file.");

    Checkbox(Builder, R, SettingId_IncludeExporterInfo, "Include exporter info",
             "Store the exporter name and version in the file; recommended on.", true, true);
    Checkbox(Builder, R, 66, "Include art tool specific data",
             "Store extra attributes and properties of the item in the file.", true, true);

    // The platform list is labelled "Coordinate system"; the label is kept
    // because settings files and users have seen it.
    requester *Platforms =
        List(Builder, ChoiceList_FilePlatform, "Coordinate system", "Pointer size and byte order of the file.");
    Choice(Builder, Platforms, Choice_Native, "Native",
           "The pointer size and byte order for which the exporter was compiled.");
    Choice(Builder, Platforms, Choice_32BitLittleEndian, "32-bit, little endian",
           "32-bit pointers, little endian (x86).");
    Choice(Builder, Platforms, Choice_32BitBigEndian, "32-bit, big endian",
           "32-bit pointers, big endian (PowerPC, Cell).");
    Choice(Builder, Platforms, Choice_64BitLittleEndian, "64-bit, little endian",
           "64-bit pointers, little endian (x64).");
    Choice(Builder, Platforms, Choice_64BitBigEndian, "64-bit, big endian",
           "64-bit pointers, big endian (Cell in 64-bit mode).");
    Combobox(Builder, R, SettingId_FilePlatform, "File platform",
             "Pointer size and byte order for which the file is written.", Platforms, Choice_Native, true, true);

    requester *Systems =
        List(Builder, ChoiceList_CoordinateSystem, "Coordinate system", "Coordinate system of the file.");
    Choice(Builder, Systems, Choice_UseToolsCoordinates, "Use tool's coordinates",
           "The tool's coordinate system passes unchanged.");
    Choice(Builder, Systems, Choice_RightHandedYUp, "Right-handed, Y up", "");
    Choice(Builder, Systems, Choice_RightHandedZUp, "Right-handed, Z up", "");
    Choice(Builder, Systems, Choice_LeftHandedYUp, "Left-handed, Y up", "");
    Choice(Builder, Systems, Choice_LeftHandedZUp, "Left-handed, Z up", "");
    Combobox(Builder, R, SettingId_CoordinateSystem, "Coordinate system",
             "Coordinate system in which the file is natively stored.", Systems, Choice_UseToolsCoordinates, true,
             true);

    Checkbox(Builder, R, SettingId_RescaleSceneOnExport, "Rescale scene on export",
             "Rescale the scene during export to \"Units per Meter\".", false, true);
    Number(Builder, R, SettingId_UnitsPerMeter, "Units per Meter", "Desired output units per meter.", 0.0001f, 1000.0f,
           1.0f, true);
    Spacer(Builder, R, SettingId_SpacerAfterUnitsPerMeter);

    requester *Compressions =
        List(Builder, ChoiceList_FileCompression, "File compression", "Compression of the exported file.");
    Choice(Builder, Compressions, Choice_NoCompression, "No compression",
           "No file-level compression; larger files that load faster.");
    Choice(Builder, Compressions, Choice_Trove1Compression, "Trove-1 Compression",
           "The Trove file compressor; smaller files, slower loading.");
    Combobox(Builder, R, SettingId_FileCompression, "File compression", "Compression of the exported file.",
             Compressions, Choice_Trove1Compression, true, true);

    Slider(Builder, R, SettingId_ObjectAlignment, "Object alignment",
           "Alignment of the file's records; slider position n means 2^n bytes, default 4 bytes.", 0, 12, 2,
           PowerOfTwoSliderMapping, true);
    Slider(Builder, R, SettingId_VertexObjectAlignment, "Vertex object alignment",
           "Alignment of vertex buffers; slider position n means 2^n bytes, default 32 bytes.", 0, 12, 5,
           PowerOfTwoSliderMapping, true);
    Checkbox(Builder, R, SettingId_IncludeTypeTable, "Include type table",
             "Store the structural type information that lets later readers read the file; off makes the file "
             "readable by this SDK release only.",
             true, true);
    Spacer(Builder, R, SettingId_SpacerAfterIncludeTypeTable);

    AddSectionCombobox(Builder, R, SettingId_TypesDefaultSection, "Types default");
    AddSectionCombobox(Builder, R, SettingId_ObjectsDefaultSection, "Objects default");
    AddSectionCombobox(Builder, R, SettingId_RigidVerticesSection, "Rigid vertices");
    AddSectionCombobox(Builder, R, SettingId_RigidIndicesSection, "Rigid indices");
    AddSectionCombobox(Builder, R, SettingId_DeformableVerticesSection, "Deformable vertices");
    AddSectionCombobox(Builder, R, SettingId_DeformableIndicesSection, "Deformable indices");
    AddSectionCombobox(Builder, R, SettingId_PixelDataSection, "Pixel data");
    Spacer(Builder, R, SettingId_SpacerAfterPixelDataSection);

    for (object_type_section_row const &Row : ObjectTypeSectionRows) {
        AddSectionCombobox(Builder, R, Row.Id, Row.Label);
    }
    return Finish(Builder, R);
}
