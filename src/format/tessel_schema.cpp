// Type tables of the standard records, the element types and the table of
// object types by name. The packed records of tessel_schema.h must have
// exactly the layout that these tables describe; the checks at the end of
// this file hold the two together.
#include "format/tessel_schema.h"

#include <cstddef>
#include <cstring>

data_type_definition FileInfoType[] = {
    {ReferenceMember, "ArtToolInfo", ArtToolInfoType},
    {ReferenceMember, "ExporterInfo", ExporterInfoType},
    {StringMember, "FromFileName", 0},
    {ArrayOfReferencesMember, "Textures", TextureType},
    {ArrayOfReferencesMember, "Materials", MaterialType},
    {ArrayOfReferencesMember, "Skeletons", SkeletonType},
    {ArrayOfReferencesMember, "VertexDatas", VertexDataType},
    {ArrayOfReferencesMember, "TriTopologies", TriTopologyType},
    {ArrayOfReferencesMember, "Meshes", MeshType},
    {ArrayOfReferencesMember, "Models", ModelType},
    {ArrayOfReferencesMember, "TrackGroups", TrackGroupType},
    {ArrayOfReferencesMember, "Animations", AnimationType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition ArtToolInfoType[] = {
    {StringMember, "FromArtToolName", 0},
    {Int32Member, "ArtToolMajorRevision", 0},
    {Int32Member, "ArtToolMinorRevision", 0},
    {Int32Member, "ArtToolPointerSize", 0},
    {Real32Member, "UnitsPerMeter", 0},
    {Real32Member, "Origin", 0, 3},
    {Real32Member, "RightVector", 0, 3},
    {Real32Member, "UpVector", 0, 3},
    {Real32Member, "BackVector", 0, 3},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition ExporterInfoType[] = {
    {StringMember, "ExporterName", 0},
    {Int32Member, "ExporterMajorRevision", 0},
    {Int32Member, "ExporterMinorRevision", 0},
    {Int32Member, "ExporterCustomization", 0},
    {Int32Member, "ExporterBuildNumber", 0},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition TextureType[] = {
    {StringMember, "FromFileName", 0},
    {Int32Member, "TextureType", 0},
    {Int32Member, "Width", 0},
    {Int32Member, "Height", 0},
    {Int32Member, "Encoding", 0},
    {Int32Member, "SubFormat", 0},
    {InlineMember, "Layout", PixelLayoutType},
    {ReferenceToArrayMember, "Images", TextureImageType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition TextureImageType[] = {
    {ReferenceToArrayMember, "MIPLevels", TextureMIPLevelType},
    {EndMember},
};

data_type_definition TextureMIPLevelType[] = {
    {Int32Member, "Stride", 0},
    {ReferenceToArrayMember, "PixelBytes", UInt8ElementType},
    {EndMember},
};

data_type_definition PixelLayoutType[] = {
    {Int32Member, "BytesPerPixel", 0},
    {Int32Member, "ShiftForComponent", 0, 4},
    {Int32Member, "BitsForComponent", 0, 4},
    {EndMember},
};

data_type_definition MaterialType[] = {
    {StringMember, "Name", 0},
    {ReferenceToArrayMember, "Maps", MaterialMapType},
    {ReferenceMember, "Texture", TextureType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition MaterialMapType[] = {
    {StringMember, "Usage", 0},
    {ReferenceMember, "Map", MaterialType},
    {EndMember},
};

data_type_definition SkeletonType[] = {
    {StringMember, "Name", 0},
    {ReferenceToArrayMember, "Bones", BoneType},
    {Int32Member, "LODType", 0},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition BoneType[] = {
    {StringMember, "Name", 0},
    {Int32Member, "ParentIndex", 0},
    {TransformMember, "Transform", 0},
    {Real32Member, "InverseWorldTransform", 0, 16},
    {Real32Member, "LODError", 0},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition VertexDataType[] = {
    {ReferenceToVariantArrayMember, "Vertices", 0},
    {ReferenceToArrayMember, "VertexComponentNames", StringElementType},
    {ReferenceToArrayMember, "VertexAnnotationSets", VertexAnnotationSetType},
    {EndMember},
};

data_type_definition VertexAnnotationSetType[] = {
    {StringMember, "Name", 0},
    {ReferenceToVariantArrayMember, "VertexAnnotations", 0},
    {Int32Member, "IndicesMapFromVertexToAnnotation", 0},
    {ReferenceToArrayMember, "VertexAnnotationIndices", Int32ElementType},
    {EndMember},
};

data_type_definition TriTopologyType[] = {
    {ReferenceToArrayMember, "Groups", TriMaterialGroupType},
    {ReferenceToArrayMember, "Indices", Int32ElementType},
    {ReferenceToArrayMember, "Indices16", Int16ElementType},
    {ReferenceToArrayMember, "VertexToVertexMap", Int32ElementType},
    {ReferenceToArrayMember, "VertexToTriangleMap", Int32ElementType},
    {ReferenceToArrayMember, "SideToNeighborMap", Int32ElementType},
    {ReferenceToArrayMember, "BonesForTriangle", Int32ElementType},
    {ReferenceToArrayMember, "TriangleToBoneIndices", Int32ElementType},
    {ReferenceToArrayMember, "TriAnnotationSets", TriAnnotationSetType},
    {EndMember},
};

data_type_definition TriMaterialGroupType[] = {
    {Int32Member, "MaterialIndex", 0},
    {Int32Member, "TriFirst", 0},
    {Int32Member, "TriCount", 0},
    {EndMember},
};

data_type_definition TriAnnotationSetType[] = {
    {StringMember, "Name", 0},
    {ReferenceToVariantArrayMember, "TriAnnotations", 0},
    {Int32Member, "IndicesMapFromTriToAnnotation", 0},
    {ReferenceToArrayMember, "TriAnnotationIndices", Int32ElementType},
    {EndMember},
};

data_type_definition MeshType[] = {
    {StringMember, "Name", 0},
    {ReferenceMember, "PrimaryVertexData", VertexDataType},
    {ReferenceToArrayMember, "MorphTargets", MorphTargetType},
    {ReferenceMember, "PrimaryTopology", TriTopologyType},
    {ReferenceToArrayMember, "MaterialBindings", MaterialBindingType},
    {ReferenceToArrayMember, "BoneBindings", BoneBindingType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition MorphTargetType[] = {
    {StringMember, "ScalarName", 0},
    {ReferenceMember, "VertexData", VertexDataType},
    {Int32Member, "DataIsDeltas", 0},
    {EndMember},
};

data_type_definition MaterialBindingType[] = {
    {ReferenceMember, "Material", MaterialType},
    {EndMember},
};

data_type_definition BoneBindingType[] = {
    {StringMember, "BoneName", 0},
    {Real32Member, "OBBMin", 0, 3},
    {Real32Member, "OBBMax", 0, 3},
    {ReferenceToArrayMember, "TriangleIndices", Int32ElementType},
    {EndMember},
};

data_type_definition ModelType[] = {
    {StringMember, "Name", 0},
    {ReferenceMember, "Skeleton", SkeletonType},
    {TransformMember, "InitialPlacement", 0},
    {ReferenceToArrayMember, "MeshBindings", ModelMeshBindingType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition ModelMeshBindingType[] = {
    {ReferenceMember, "Mesh", MeshType},
    {EndMember},
};

data_type_definition AnimationType[] = {
    {StringMember, "Name", 0},
    {Real32Member, "Duration", 0},
    {Real32Member, "TimeStep", 0},
    {Real32Member, "Oversampling", 0},
    {ArrayOfReferencesMember, "TrackGroups", TrackGroupType},
    {EndMember},
};

data_type_definition TrackGroupType[] = {
    {StringMember, "Name", 0},
    {ReferenceToArrayMember, "VectorTracks", VectorTrackType},
    {ReferenceToArrayMember, "TransformTracks", TransformTrackType},
    {ReferenceToArrayMember, "TransformLODErrors", Real32ElementType},
    {ReferenceToArrayMember, "TextTracks", TextTrackType},
    {TransformMember, "InitialPlacement", 0},
    {Int32Member, "AccumulationFlags", 0},
    {Real32Member, "LoopTranslation", 0, 3},
    {ReferenceMember, "PeriodicLoop", PeriodicLoopType},
    {ReferenceMember, "RootMotion", TransformTrackType},
    {VariantReferenceMember, "ExtendedData", 0},
    {EndMember},
};

data_type_definition VectorTrackType[] = {
    {StringMember, "Name", 0},
    {UInt32Member, "TrackKey", 0},
    {Int32Member, "Dimension", 0},
    {InlineMember, "ValueCurve", Curve2Type},
    {EndMember},
};

data_type_definition TransformTrackType[] = {
    {StringMember, "Name", 0},
    {Int32Member, "Flags", 0},
    {InlineMember, "OrientationCurve", Curve2Type},
    {InlineMember, "PositionCurve", Curve2Type},
    {InlineMember, "ScaleShearCurve", Curve2Type},
    {EndMember},
};

data_type_definition TextTrackType[] = {
    {StringMember, "Name", 0},
    {ReferenceToArrayMember, "Entries", TextTrackEntryType},
    {EndMember},
};

data_type_definition TextTrackEntryType[] = {
    {Real32Member, "TimeStamp", 0},
    {StringMember, "Text", 0},
    {EndMember},
};

data_type_definition PeriodicLoopType[] = {
    {Real32Member, "Radius", 0},
    {Real32Member, "dAngle", 0},
    {Real32Member, "dZ", 0},
    {Real32Member, "BasisX", 0, 3},
    {Real32Member, "BasisY", 0, 3},
    {Real32Member, "Axis", 0, 3},
    {EndMember},
};

data_type_definition Curve2Type[] = {
    {VariantReferenceMember, "CurveData", 0},
    {EndMember},
};

// Element types: arrays of plain values still refer to a type table.
data_type_definition Real32ElementType[] = {{Real32Member, "Real32", 0}, {EndMember}};
data_type_definition UInt16ElementType[] = {{UInt16Member, "UInt16", 0}, {EndMember}};
data_type_definition UInt8ElementType[] = {{UInt8Member, "UInt8", 0}, {EndMember}};
data_type_definition StringElementType[] = {{StringMember, "String", 0}, {EndMember}};
data_type_definition Int16ElementType[] = {{Int16Member, "Int16", 0}, {EndMember}};
data_type_definition Int32ElementType[] = {{Int32Member, "Int32", 0}, {EndMember}};
data_type_definition UInt32ElementType[] = {{UInt32Member, "UInt32", 0}, {EndMember}};
data_type_definition Real32x3ElementType[] = {{Real32Member, "Real32", 0, 3}, {EndMember}};
data_type_definition Real32x4ElementType[] = {{Real32Member, "Real32", 0, 4}, {EndMember}};
data_type_definition TransformElementType[] = {{TransformMember, "Transform", 0}, {EndMember}};
data_type_definition Matrix4x4ElementType[] = {{Real32Member, "Matrix4x4", 0, 16}, {EndMember}};
data_type_definition EmptyType[] = {{EndMember}};

standard_object_type const StandardObjectTypes[StandardObjectTypeCount] = {
    {"animation", AnimationType},
    {"art_tool_info", ArtToolInfoType},
    {"curve2", Curve2Type},
    {"exporter_info", ExporterInfoType},
    {"material_map", MaterialMapType},
    {"material", MaterialType},
    {"bone_binding", BoneBindingType},
    {"material_binding", MaterialBindingType},
    {"morph_target", MorphTargetType},
    {"mesh", MeshType},
    {"model_mesh_binding", ModelMeshBindingType},
    {"model", ModelType},
    {"periodic_loop", PeriodicLoopType},
    {"pixel_layout", PixelLayoutType},
    {"bone", BoneType},
    {"skeleton", SkeletonType},
    {"strings", StringElementType},
    {"texture_mip_level", TextureMIPLevelType},
    {"texture_image", TextureImageType},
    {"texture", TextureType},
    {"vector_track", VectorTrackType},
    {"transform_track", TransformTrackType},
    {"text_track_entry", TextTrackEntryType},
    {"text_track", TextTrackType},
    {"track_group", TrackGroupType},
    {"tri_material_group", TriMaterialGroupType},
    {"tri_annotation_set", TriAnnotationSetType},
    {"tri_topology", TriTopologyType},
    {"vertex_annotation_set", VertexAnnotationSetType},
    {"vertex_data", VertexDataType},
};

data_type_definition *FindStandardObjectType(char const *Name)
{
    if (!Name) {
        return 0;
    }
    for (standard_object_type const &Row : StandardObjectTypes) {
        if (std::strcmp(Row.Name, Name) == 0) {
            return Row.Type;
        }
    }
    return 0;
}

// Layout checks: offsets in a 64-bit file, and record sizes. For array
// references the pointer follows its 4-byte count.
#define LAYOUT(Record, Member, Offset) static_assert(offsetof(Record, Member) == (Offset), #Record "." #Member)
#define SIZE(Record, Size) static_assert(sizeof(Record) == (Size), #Record " size")

LAYOUT(file_info, ArtToolInfo, 0);
LAYOUT(file_info, ExporterInfo, 8);
LAYOUT(file_info, FromFileName, 16);
LAYOUT(file_info, Textures, 28);
LAYOUT(file_info, Materials, 40);
LAYOUT(file_info, Skeletons, 52);
LAYOUT(file_info, VertexDatas, 64);
LAYOUT(file_info, TriTopologies, 76);
LAYOUT(file_info, Meshes, 88);
LAYOUT(file_info, Models, 100);
LAYOUT(file_info, TrackGroups, 112);
LAYOUT(file_info, Animations, 124);
LAYOUT(file_info, ExtendedData, 132);
SIZE(file_info, 148);
LAYOUT(art_tool_info, FromArtToolName, 0);
LAYOUT(art_tool_info, ArtToolMajorRevision, 8);
LAYOUT(art_tool_info, ArtToolMinorRevision, 12);
LAYOUT(art_tool_info, ArtToolPointerSize, 16);
LAYOUT(art_tool_info, UnitsPerMeter, 20);
LAYOUT(art_tool_info, Origin, 24);
LAYOUT(art_tool_info, RightVector, 36);
LAYOUT(art_tool_info, UpVector, 48);
LAYOUT(art_tool_info, BackVector, 60);
LAYOUT(art_tool_info, ExtendedData, 72);
SIZE(art_tool_info, 88);
LAYOUT(exporter_info, ExporterName, 0);
LAYOUT(exporter_info, ExporterMajorRevision, 8);
LAYOUT(exporter_info, ExporterMinorRevision, 12);
LAYOUT(exporter_info, ExporterCustomization, 16);
LAYOUT(exporter_info, ExporterBuildNumber, 20);
LAYOUT(exporter_info, ExtendedData, 24);
SIZE(exporter_info, 40);
LAYOUT(texture, FromFileName, 0);
LAYOUT(texture, TextureType, 8);
LAYOUT(texture, Width, 12);
LAYOUT(texture, Height, 16);
LAYOUT(texture, Encoding, 20);
LAYOUT(texture, SubFormat, 24);
LAYOUT(texture, Layout, 28);
LAYOUT(texture, Images, 68);
LAYOUT(texture, ExtendedData, 76);
SIZE(texture, 92);
LAYOUT(texture_image, MIPLevels, 4);
SIZE(texture_image, 12);
LAYOUT(texture_mip_level, Stride, 0);
LAYOUT(texture_mip_level, PixelBytes, 8);
SIZE(texture_mip_level, 16);
LAYOUT(pixel_layout, BytesPerPixel, 0);
LAYOUT(pixel_layout, ShiftForComponent, 4);
LAYOUT(pixel_layout, BitsForComponent, 20);
SIZE(pixel_layout, 36);
LAYOUT(material, Name, 0);
LAYOUT(material, Maps, 12);
LAYOUT(material, Texture, 20);
LAYOUT(material, ExtendedData, 28);
SIZE(material, 44);
LAYOUT(material_map, Usage, 0);
LAYOUT(material_map, Map, 8);
SIZE(material_map, 16);
LAYOUT(skeleton, Name, 0);
LAYOUT(skeleton, Bones, 12);
LAYOUT(skeleton, LODType, 20);
LAYOUT(skeleton, ExtendedData, 24);
SIZE(skeleton, 40);
LAYOUT(bone, Name, 0);
LAYOUT(bone, ParentIndex, 8);
LAYOUT(bone, Transform, 12);
LAYOUT(bone, InverseWorldTransform, 80);
LAYOUT(bone, LODError, 144);
LAYOUT(bone, ExtendedData, 148);
SIZE(bone, 164);
LAYOUT(vertex_data, Vertices, 0);
LAYOUT(vertex_data, VertexComponentNames, 24);
LAYOUT(vertex_data, VertexAnnotationSets, 36);
SIZE(vertex_data, 44);
LAYOUT(vertex_annotation_set, Name, 0);
LAYOUT(vertex_annotation_set, VertexAnnotations, 8);
LAYOUT(vertex_annotation_set, IndicesMapFromVertexToAnnotation, 28);
LAYOUT(vertex_annotation_set, VertexAnnotationIndices, 36);
SIZE(vertex_annotation_set, 44);
LAYOUT(tri_topology, Groups, 4);
LAYOUT(tri_topology, Indices, 16);
LAYOUT(tri_topology, Indices16, 28);
LAYOUT(tri_topology, VertexToVertexMap, 40);
LAYOUT(tri_topology, VertexToTriangleMap, 52);
LAYOUT(tri_topology, SideToNeighborMap, 64);
LAYOUT(tri_topology, BonesForTriangle, 76);
LAYOUT(tri_topology, TriangleToBoneIndices, 88);
LAYOUT(tri_topology, TriAnnotationSets, 100);
SIZE(tri_topology, 108);
LAYOUT(tri_material_group, MaterialIndex, 0);
LAYOUT(tri_material_group, TriFirst, 4);
LAYOUT(tri_material_group, TriCount, 8);
SIZE(tri_material_group, 12);
LAYOUT(tri_annotation_set, Name, 0);
LAYOUT(tri_annotation_set, TriAnnotations, 8);
LAYOUT(tri_annotation_set, IndicesMapFromTriToAnnotation, 28);
LAYOUT(tri_annotation_set, TriAnnotationIndices, 36);
SIZE(tri_annotation_set, 44);
LAYOUT(mesh, Name, 0);
LAYOUT(mesh, PrimaryVertexData, 8);
LAYOUT(mesh, MorphTargets, 20);
LAYOUT(mesh, PrimaryTopology, 28);
LAYOUT(mesh, MaterialBindings, 40);
LAYOUT(mesh, BoneBindings, 52);
LAYOUT(mesh, ExtendedData, 60);
SIZE(mesh, 76);
LAYOUT(morph_target, ScalarName, 0);
LAYOUT(morph_target, VertexData, 8);
LAYOUT(morph_target, DataIsDeltas, 16);
SIZE(morph_target, 20);
LAYOUT(material_binding, Material, 0);
SIZE(material_binding, 8);
LAYOUT(bone_binding, BoneName, 0);
LAYOUT(bone_binding, OBBMin, 8);
LAYOUT(bone_binding, OBBMax, 20);
LAYOUT(bone_binding, TriangleIndices, 36);
SIZE(bone_binding, 44);
LAYOUT(model, Name, 0);
LAYOUT(model, Skeleton, 8);
LAYOUT(model, InitialPlacement, 16);
LAYOUT(model, MeshBindings, 88);
LAYOUT(model, ExtendedData, 96);
SIZE(model, 112);
LAYOUT(model_mesh_binding, Mesh, 0);
SIZE(model_mesh_binding, 8);
LAYOUT(animation, Name, 0);
LAYOUT(animation, Duration, 8);
LAYOUT(animation, TimeStep, 12);
LAYOUT(animation, Oversampling, 16);
LAYOUT(animation, TrackGroups, 24);
SIZE(animation, 32);
LAYOUT(track_group, Name, 0);
LAYOUT(track_group, VectorTracks, 12);
LAYOUT(track_group, TransformTracks, 24);
LAYOUT(track_group, TransformLODErrors, 36);
LAYOUT(track_group, TextTracks, 48);
LAYOUT(track_group, InitialPlacement, 56);
LAYOUT(track_group, AccumulationFlags, 124);
LAYOUT(track_group, LoopTranslation, 128);
LAYOUT(track_group, PeriodicLoop, 140);
LAYOUT(track_group, RootMotion, 148);
LAYOUT(track_group, ExtendedData, 156);
SIZE(track_group, 172);
LAYOUT(vector_track, Name, 0);
LAYOUT(vector_track, TrackKey, 8);
LAYOUT(vector_track, Dimension, 12);
LAYOUT(vector_track, ValueCurve, 16);
SIZE(vector_track, 32);
LAYOUT(transform_track, Name, 0);
LAYOUT(transform_track, Flags, 8);
LAYOUT(transform_track, OrientationCurve, 12);
LAYOUT(transform_track, PositionCurve, 28);
LAYOUT(transform_track, ScaleShearCurve, 44);
SIZE(transform_track, 60);
LAYOUT(text_track, Name, 0);
LAYOUT(text_track, Entries, 12);
SIZE(text_track, 20);
LAYOUT(text_track_entry, TimeStamp, 0);
LAYOUT(text_track_entry, Text, 4);
SIZE(text_track_entry, 12);
LAYOUT(periodic_loop, Radius, 0);
LAYOUT(periodic_loop, dAngle, 4);
LAYOUT(periodic_loop, dZ, 8);
LAYOUT(periodic_loop, BasisX, 12);
LAYOUT(periodic_loop, BasisY, 24);
LAYOUT(periodic_loop, Axis, 36);
SIZE(periodic_loop, 48);
LAYOUT(curve2, CurveData, 0);
SIZE(curve2, 16);
