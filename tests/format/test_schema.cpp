// The schema's type tables against the packed records and the file layout
// in both pointer sizes: a wrong kind, width or order in a table shows here.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "format/tessel_schema.h"

namespace {

struct record_layout
{
    data_type_definition *Type;
    size_t RecordSize;
    int32 Size64;
    int32 Size32;
    std::vector<int32> Offsets64;
    std::vector<int32> Offsets32;
};

int32 MemberSize(data_type_definition const &Member, int32 PointerBits);

int32 ObjectSize(data_type_definition const *Type, int32 PointerBits)
{
    int32 Size = 0;
    for (; Type->Type != EndMember; ++Type) {
        Size += MemberSize(*Type, PointerBits);
    }
    return Size;
}

int32 MemberSize(data_type_definition const &Member, int32 PointerBits)
{
    int32 Unit = Member.Type == InlineMember ? ObjectSize(Member.ReferenceType, PointerBits)
                                             : GetMemberKindSize(Member.Type, PointerBits);
    return Unit * GetMemberArrayWidth(Member);
}

std::vector<int32> Offsets(data_type_definition const *Type, int32 PointerBits)
{
    std::vector<int32> Result;
    int32 Offset = 0;
    for (; Type->Type != EndMember; ++Type) {
        Result.push_back(Offset);
        Offset += MemberSize(*Type, PointerBits);
    }
    return Result;
}

std::vector<record_layout> const Records = {
    {FileInfoType,
     sizeof(file_info),
     148,
     92,
     {0, 8, 16, 24, 36, 48, 60, 72, 84, 96, 108, 120, 132},
     {0, 4, 8, 12, 20, 28, 36, 44, 52, 60, 68, 76, 84}},
    {ArtToolInfoType,
     sizeof(art_tool_info),
     88,
     76,
     {0, 8, 12, 16, 20, 24, 36, 48, 60, 72},
     {0, 4, 8, 12, 16, 20, 32, 44, 56, 68}},
    {ExporterInfoType, sizeof(exporter_info), 40, 28, {0, 8, 12, 16, 20, 24}, {0, 4, 8, 12, 16, 20}},
    {TextureType, sizeof(texture), 92, 76, {0, 8, 12, 16, 20, 24, 28, 64, 76}, {0, 4, 8, 12, 16, 20, 24, 60, 68}},
    {TextureImageType, sizeof(texture_image), 12, 8, {0}, {0}},
    {TextureMIPLevelType, sizeof(texture_mip_level), 16, 12, {0, 4}, {0, 4}},
    {PixelLayoutType, sizeof(pixel_layout), 36, 36, {0, 4, 20}, {0, 4, 20}},
    {MaterialType, sizeof(material), 44, 24, {0, 8, 20, 28}, {0, 4, 12, 16}},
    {MaterialMapType, sizeof(material_map), 16, 8, {0, 8}, {0, 4}},
    {SkeletonType, sizeof(skeleton), 40, 24, {0, 8, 20, 24}, {0, 4, 12, 16}},
    {BoneType, sizeof(bone), 164, 152, {0, 8, 12, 80, 144, 148}, {0, 4, 8, 76, 140, 144}},
    {VertexDataType, sizeof(vertex_data), 44, 28, {0, 20, 32}, {0, 12, 20}},
    {VertexAnnotationSetType, sizeof(vertex_annotation_set), 44, 28, {0, 8, 28, 32}, {0, 4, 16, 20}},
    {TriTopologyType,
     sizeof(tri_topology),
     108,
     72,
     {0, 12, 24, 36, 48, 60, 72, 84, 96},
     {0, 8, 16, 24, 32, 40, 48, 56, 64}},
    {TriMaterialGroupType, sizeof(tri_material_group), 12, 12, {0, 4, 8}, {0, 4, 8}},
    {TriAnnotationSetType, sizeof(tri_annotation_set), 44, 28, {0, 8, 28, 32}, {0, 4, 16, 20}},
    {MeshType, sizeof(mesh), 76, 44, {0, 8, 16, 28, 36, 48, 60}, {0, 4, 8, 16, 20, 28, 36}},
    {MorphTargetType, sizeof(morph_target), 20, 12, {0, 8, 16}, {0, 4, 8}},
    {MaterialBindingType, sizeof(material_binding), 8, 4, {0}, {0}},
    {BoneBindingType, sizeof(bone_binding), 44, 36, {0, 8, 20, 32}, {0, 4, 16, 28}},
    {ModelType, sizeof(model), 112, 92, {0, 8, 16, 84, 96}, {0, 4, 8, 76, 84}},
    {ModelMeshBindingType, sizeof(model_mesh_binding), 8, 4, {0}, {0}},
    {AnimationType, sizeof(animation), 32, 24, {0, 8, 12, 16, 20}, {0, 4, 8, 12, 16}},
    {TrackGroupType,
     sizeof(track_group),
     172,
     136,
     {0, 8, 20, 32, 44, 56, 124, 128, 140, 148, 156},
     {0, 4, 12, 20, 28, 36, 104, 108, 120, 124, 128}},
    {VectorTrackType, sizeof(vector_track), 32, 20, {0, 8, 12, 16}, {0, 4, 8, 12}},
    {TransformTrackType, sizeof(transform_track), 60, 32, {0, 8, 12, 28, 44}, {0, 4, 8, 16, 24}},
    {TextTrackType, sizeof(text_track), 20, 12, {0, 8}, {0, 4}},
    {TextTrackEntryType, sizeof(text_track_entry), 12, 8, {0, 4}, {0, 4}},
    {PeriodicLoopType, sizeof(periodic_loop), 48, 48, {0, 4, 8, 12, 24, 36}, {0, 4, 8, 12, 24, 36}},
    {Curve2Type, sizeof(curve2), 16, 8, {0}, {0}},
    {OldCurveDataType, sizeof(old_curve_data), 28, 20, {}, {}},
    {CurveDataDaKeyframes32fType, sizeof(curve_data_da_keyframes32f), 16, 12, {}, {}},
    {CurveDataDaK32fC32fType, sizeof(curve_data_da_k32f_c32f), 28, 20, {}, {}},
    {CurveDataDaK16uC16uType, sizeof(curve_data_da_k16u_c16u), 28, 20, {}, {}},
    {CurveDataDaK8uC8uType, sizeof(curve_data_da_k8u_c8u), 28, 20, {}, {}},
    {CurveDataD3K16uC16uType, sizeof(curve_data_d3_k16u_c16u), 40, 36, {}, {}},
    {CurveDataD3K8uC8uType, sizeof(curve_data_d3_k8u_c8u), 40, 36, {}, {}},
    {CurveDataD4nK16uC15uType, sizeof(curve_data_d4n_k16u_c15u), 20, 16, {}, {}},
    {CurveDataD4nK8uC7uType, sizeof(curve_data_d4n_k8u_c7u), 20, 16, {}, {}},
    {CurveDataDaIdentityType, sizeof(curve_data_da_identity), 4, 4, {}, {}},
    {CurveDataDaConstant32fType, sizeof(curve_data_da_constant32f), 16, 12, {}, {}},
    {CurveDataD3Constant32fType, sizeof(curve_data_d3_constant32f), 16, 16, {}, {}},
    {CurveDataD4Constant32fType, sizeof(curve_data_d4_constant32f), 20, 20, {}, {}},
    {CurveDataD9I1K16uC16uType, sizeof(curve_data_d9i1_k16u_c16u), 24, 20, {}, {}},
    {CurveDataD9I3K16uC16uType, sizeof(curve_data_d9i3_k16u_c16u), 40, 36, {}, {}},
    {CurveDataD9I1K8uC8uType, sizeof(curve_data_d9i1_k8u_c8u), 24, 20, {}, {}},
    {CurveDataD9I3K8uC8uType, sizeof(curve_data_d9i3_k8u_c8u), 40, 36, {}, {}},
    {CurveDataD3I1K32fC32fType, sizeof(curve_data_d3i1_k32f_c32f), 40, 36, {}, {}},
    {CurveDataD3I1K16uC16uType, sizeof(curve_data_d3i1_k16u_c16u), 40, 36, {}, {}},
    {CurveDataD3I1K8uC8uType, sizeof(curve_data_d3i1_k8u_c8u), 40, 36, {}, {}},
};

TEST(Schema, TablesMatchRecordsInBothPointerSizes)
{
    for (record_layout const &Record : Records) {
        SCOPED_TRACE(Record.Size64);
        EXPECT_EQ(GetTotalObjectSize(Record.Type), (int32)Record.RecordSize) << Record.Type[0].Name;
        EXPECT_EQ(ObjectSize(Record.Type, 64), Record.Size64) << Record.Type[0].Name;
        EXPECT_EQ(ObjectSize(Record.Type, 32), Record.Size32) << Record.Type[0].Name;
        if (!Record.Offsets64.empty()) {
            EXPECT_EQ(Offsets(Record.Type, 64), Record.Offsets64) << Record.Type[0].Name;
            EXPECT_EQ(Offsets(Record.Type, 32), Record.Offsets32) << Record.Type[0].Name;
        }
    }
}

TEST(Schema, CurveFormatsAndVertexLayouts)
{
    // Every format but the oldest starts with the two-byte header, inline.
    std::set<data_type_definition *> Distinct;
    for (data_type_definition *Type : CurveFormatTypes) {
        ASSERT_EQ(Type[0].Type, InlineMember);
        EXPECT_EQ(Type[0].ReferenceType, CurveDataHeaderType);
        EXPECT_EQ(std::string(Type[0].Name).rfind("CurveDataHeader_", 0), 0u);
        Distinct.insert(Type);
    }
    EXPECT_EQ(Distinct.size(), (size_t)CurveFormatCount);
    for (int32 Row = 0; Row < CurveFormatCount; ++Row) {
        for (int32 Other = 0; Other < Row; ++Other) {
            EXPECT_FALSE(DataTypesAreEqual(CurveFormatTypes[Row], CurveFormatTypes[Other])) << Row << " " << Other;
        }
    }

    int32 const VertexBytes[StandardVertexLayoutCount] = {12, 20, 24, 36, 44, 44, 48, 60, 32, 56, 36, 60, 28, 40, 52,
                                                          52, 36, 60, 28, 40, 48, 52, 36, 60, 32, 44, 52, 56, 40, 64};
    for (int32 Row = 0; Row < StandardVertexLayoutCount; ++Row) {
        data_type_definition const *Layout = StandardVertexLayouts[Row];
        EXPECT_EQ(GetTotalObjectSize(Layout), VertexBytes[Row]) << "row " << Row + 1;
        // Weights and indices have equal widths wherever both occur.
        matched_member Weights, Indices;
        if (FindMatchingMember(Layout, 0, "BoneWeights", Weights) &&
            FindMatchingMember(Layout, 0, "BoneIndices", Indices)) {
            EXPECT_EQ(Weights.Member->ArrayWidth, Indices.Member->ArrayWidth) << "row " << Row + 1;
        }
    }
    EXPECT_EQ(StandardVertexLayouts[0], VertexP3Type);
    EXPECT_EQ(StandardVertexLayouts[7], VertexPNGBC3Type);
    EXPECT_EQ(StandardVertexLayouts[8], VertexPN3T2Type);
    EXPECT_EQ(GetTotalObjectSize(VertexBoneWeightsType), (int32)sizeof(vertex_bone_weights));
    EXPECT_EQ(GetTotalObjectSize(VertexTangentFrameType), (int32)sizeof(vertex_tangent_frame));
}

TEST(Schema, ObjectTypesByName)
{
    std::set<std::string> Names;
    for (standard_object_type const &Row : StandardObjectTypes) {
        EXPECT_TRUE(Names.insert(Row.Name).second) << Row.Name;
        EXPECT_EQ(FindStandardObjectType(Row.Name), Row.Type);
    }
    EXPECT_EQ(FindStandardObjectType("strings"), StringElementType);
    EXPECT_EQ(FindStandardObjectType("texture_mip_level"), TextureMIPLevelType);
    EXPECT_EQ(FindStandardObjectType("file_info"), nullptr);
    EXPECT_EQ(FindStandardObjectType("Mesh"), nullptr);
}

} // namespace
