// The standard object schema: every record of an exported file's object tree,
// twice: as packed records that the exporter fills, and as the type tables
// that the data tree writer walks and writes into the file. Both must agree
// byte for byte; tessel_schema.cpp checks the layout at compile time.
//
// An array reference is a count followed by a pointer; a variant is a type
// pointer followed by an object pointer; a variant array is type, count,
// array. Records are packed at 4 bytes, so pointers may sit at offsets that
// are not multiples of 8.
#pragma once

#include "format/tessel_data_type_definitions.h"

struct art_tool_info;
struct exporter_info;
struct texture;
struct material;
struct skeleton;
struct vertex_data;
struct tri_topology;
struct mesh;
struct model;
struct track_group;
struct animation;
struct periodic_loop;
struct transform_track;

#pragma pack(push, 4)

struct file_info
{
    art_tool_info *ArtToolInfo;
    exporter_info *ExporterInfo;
    char *FromFileName;
    int32 TextureCount;
    texture **Textures;
    int32 MaterialCount;
    material **Materials;
    int32 SkeletonCount;
    skeleton **Skeletons;
    int32 VertexDataCount;
    vertex_data **VertexDatas;
    int32 TriTopologyCount;
    tri_topology **TriTopologies;
    int32 MeshCount;
    mesh **Meshes;
    int32 ModelCount;
    model **Models;
    int32 TrackGroupCount;
    track_group **TrackGroups;
    int32 AnimationCount;
    animation **Animations;
    variant ExtendedData;
};

struct art_tool_info
{
    char *FromArtToolName;
    int32 ArtToolMajorRevision;
    int32 ArtToolMinorRevision;
    int32 ArtToolPointerSize;
    real32 UnitsPerMeter;
    real32 Origin[3];
    real32 RightVector[3];
    real32 UpVector[3];
    real32 BackVector[3];
    variant ExtendedData;
};

struct exporter_info
{
    char *ExporterName;
    int32 ExporterMajorRevision;
    int32 ExporterMinorRevision;
    int32 ExporterCustomization;
    int32 ExporterBuildNumber;
    variant ExtendedData;
};

struct pixel_layout
{
    int32 BytesPerPixel;
    int32 ShiftForComponent[4];
    int32 BitsForComponent[4];
};

struct texture_mip_level
{
    int32 Stride;
    int32 PixelByteCount;
    uint8 *PixelBytes;
};

struct texture_image
{
    int32 MIPLevelCount;
    texture_mip_level *MIPLevels;
};

struct texture
{
    char *FromFileName;
    int32 TextureType;
    int32 Width;
    int32 Height;
    int32 Encoding;
    int32 SubFormat;
    pixel_layout Layout;
    int32 ImageCount;
    texture_image *Images;
    variant ExtendedData;
};

struct material_map;

struct material
{
    char *Name;
    int32 MapCount;
    material_map *Maps;
    texture *Texture;
    variant ExtendedData;
};

struct material_map
{
    char *Usage;
    material *Map;
};

struct bone
{
    char *Name;
    int32 ParentIndex;
    transform Transform;
    real32 InverseWorldTransform[4][4];
    real32 LODError;
    variant ExtendedData;
};

struct skeleton
{
    char *Name;
    int32 BoneCount;
    bone *Bones;
    int32 LODType;
    variant ExtendedData;
};

struct vertex_annotation_set
{
    char *Name;
    variant_array VertexAnnotations;
    int32 IndicesMapFromVertexToAnnotation;
    int32 VertexAnnotationIndexCount;
    int32 *VertexAnnotationIndices;
};

struct vertex_data
{
    variant_array Vertices;
    int32 VertexComponentNameCount;
    char **VertexComponentNames;
    int32 VertexAnnotationSetCount;
    vertex_annotation_set *VertexAnnotationSets;
};

struct tri_material_group
{
    int32 MaterialIndex;
    int32 TriFirst;
    int32 TriCount;
};

struct tri_annotation_set
{
    char *Name;
    variant_array TriAnnotations;
    int32 IndicesMapFromTriToAnnotation;
    int32 TriAnnotationIndexCount;
    int32 *TriAnnotationIndices;
};

struct tri_topology
{
    int32 GroupCount;
    tri_material_group *Groups;
    int32 IndexCount;
    int32 *Indices;
    int32 Index16Count;
    int16 *Indices16;
    int32 VertexToVertexCount;
    int32 *VertexToVertexMap;
    int32 VertexToTriangleCount;
    int32 *VertexToTriangleMap;
    int32 SideToNeighborCount;
    int32 *SideToNeighborMap;
    int32 BonesForTriangleCount;
    int32 *BonesForTriangle;
    int32 TriangleToBoneCount;
    int32 *TriangleToBoneIndices;
    int32 TriAnnotationSetCount;
    tri_annotation_set *TriAnnotationSets;
};

struct morph_target
{
    char *ScalarName;
    vertex_data *VertexData;
    int32 DataIsDeltas;
};

struct material_binding
{
    material *Material;
};

struct bone_binding
{
    char *BoneName;
    real32 OBBMin[3];
    real32 OBBMax[3];
    int32 TriangleCount;
    int32 *TriangleIndices;
};

struct mesh
{
    char *Name;
    vertex_data *PrimaryVertexData;
    int32 MorphTargetCount;
    morph_target *MorphTargets;
    tri_topology *PrimaryTopology;
    int32 MaterialBindingCount;
    material_binding *MaterialBindings;
    int32 BoneBindingCount;
    bone_binding *BoneBindings;
    variant ExtendedData;
};

struct model_mesh_binding
{
    mesh *Mesh;
};

struct model
{
    char *Name;
    skeleton *Skeleton;
    transform InitialPlacement;
    int32 MeshBindingCount;
    model_mesh_binding *MeshBindings;
    variant ExtendedData;
};

struct animation
{
    char *Name;
    real32 Duration;
    real32 TimeStep;
    real32 Oversampling;
    int32 TrackGroupCount;
    track_group **TrackGroups;
};

// A curve: a variant whose type is one of the curve data types below.
struct curve2
{
    variant CurveData;
};
typedef curve2 tessel_curve2;

struct vector_track
{
    char *Name;
    uint32 TrackKey;
    int32 Dimension;
    curve2 ValueCurve;
};

struct transform_track
{
    char *Name;
    int32 Flags;
    curve2 OrientationCurve;
    curve2 PositionCurve;
    curve2 ScaleShearCurve;
};

struct text_track_entry
{
    real32 TimeStamp;
    char *Text;
};

struct text_track
{
    char *Name;
    int32 EntryCount;
    text_track_entry *Entries;
};

struct periodic_loop
{
    real32 Radius;
    real32 dAngle;
    real32 dZ;
    real32 BasisX[3];
    real32 BasisY[3];
    real32 Axis[3];
};

struct track_group
{
    char *Name;
    int32 VectorTrackCount;
    vector_track *VectorTracks;
    int32 TransformTrackCount;
    transform_track *TransformTracks;
    int32 TransformLODErrorCount;
    real32 *TransformLODErrors;
    int32 TextTrackCount;
    text_track *TextTracks;
    transform InitialPlacement;
    int32 AccumulationFlags;
    real32 LoopTranslation[3];
    periodic_loop *PeriodicLoop;
    transform_track *RootMotion;
    variant ExtendedData;
};

// ---------------------------------------------------------------------------
// Curve data records. All but the oldest begin with the two-byte header.

struct curve_data_header
{
    uint8 Format;
    uint8 Degree;
};

struct old_curve_data
{
    int32 Degree;
    int32 KnotCount;
    real32 *Knots;
    int32 ControlCount;
    real32 *Controls;
};

struct curve_data_da_keyframes32f
{
    curve_data_header CurveDataHeader;
    int16 Dimension;
    int32 ControlCount;
    real32 *Controls;
};

struct curve_data_da_k32f_c32f
{
    curve_data_header CurveDataHeader;
    int16 Padding;
    int32 KnotCount;
    real32 *Knots;
    int32 ControlCount;
    real32 *Controls;
};

struct curve_data_da_k16u_c16u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    int32 ControlScaleOffsetCount;
    real32 *ControlScaleOffsets;
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_da_k8u_c8u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    int32 ControlScaleOffsetCount;
    real32 *ControlScaleOffsets;
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

struct curve_data_d3_k16u_c16u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_d3_k8u_c8u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

struct curve_data_d4n_k16u_c15u
{
    curve_data_header CurveDataHeader;
    uint16 ScaleOffsetTableEntries;
    real32 OneOverKnotScale;
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_d4n_k8u_c7u
{
    curve_data_header CurveDataHeader;
    uint16 ScaleOffsetTableEntries;
    real32 OneOverKnotScale;
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

struct curve_data_da_identity
{
    curve_data_header CurveDataHeader;
    int16 Dimension;
};

struct curve_data_da_constant32f
{
    curve_data_header CurveDataHeader;
    int16 Padding;
    int32 ControlCount;
    real32 *Controls;
};

struct curve_data_d3_constant32f
{
    curve_data_header CurveDataHeader;
    int16 Padding;
    real32 Controls[3];
};

struct curve_data_d4_constant32f
{
    curve_data_header CurveDataHeader;
    int16 Padding;
    real32 Controls[4];
};

struct curve_data_d9i1_k16u_c16u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScale;
    real32 ControlOffset;
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_d9i3_k16u_c16u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_d9i1_k8u_c8u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScale;
    real32 ControlOffset;
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

struct curve_data_d9i3_k8u_c8u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

struct curve_data_d3i1_k32f_c32f
{
    curve_data_header CurveDataHeader;
    uint16 Padding;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    real32 *KnotsControls;
};

struct curve_data_d3i1_k16u_c16u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint16 *KnotsControls;
};

struct curve_data_d3i1_k8u_c8u
{
    curve_data_header CurveDataHeader;
    uint16 OneOverKnotScaleTrunc;
    real32 ControlScales[3];
    real32 ControlOffsets[3];
    int32 KnotControlCount;
    uint8 *KnotsControls;
};

// ---------------------------------------------------------------------------
// Fixed vertex layouts that code names directly, and the working layouts.

struct vertex_p3
{
    real32 Position[3];
};

struct vertex_pngbc3
{
    real32 Position[3];
    real32 Normal[3];
    real32 Tangent[3];
    real32 Binormal[3];
    real32 TangentBinormalCross[3];
};

struct vertex_pn3_t2
{
    real32 Position[3];
    real32 Normal[3];
    real32 TextureCoordinates0[2];
};

enum
{
    MaximumWeightsPerVertex = 256
};

struct vertex_bone_weights
{
    real32 BoneWeights[MaximumWeightsPerVertex];
    uint32 BoneIndices[MaximumWeightsPerVertex];
};

struct vertex_tangent_frame
{
    real32 Normal[3];
    real32 Tangent[3];
    real32 Binormal[3];
    real32 TangentBinormalCross[3];
};

struct vertex_channel
{
    real32 Channel[4];
};

#pragma pack(pop)

// ---------------------------------------------------------------------------
// Type tables of the records above.

extern data_type_definition FileInfoType[];
extern data_type_definition ArtToolInfoType[];
extern data_type_definition ExporterInfoType[];
extern data_type_definition TextureType[];
extern data_type_definition TextureImageType[];
extern data_type_definition TextureMIPLevelType[];
extern data_type_definition PixelLayoutType[];
extern data_type_definition MaterialType[];
extern data_type_definition MaterialMapType[];
extern data_type_definition SkeletonType[];
extern data_type_definition BoneType[];
extern data_type_definition VertexDataType[];
extern data_type_definition VertexAnnotationSetType[];
extern data_type_definition TriTopologyType[];
extern data_type_definition TriMaterialGroupType[];
extern data_type_definition TriAnnotationSetType[];
extern data_type_definition MeshType[];
extern data_type_definition MorphTargetType[];
extern data_type_definition MaterialBindingType[];
extern data_type_definition BoneBindingType[];
extern data_type_definition ModelType[];
extern data_type_definition ModelMeshBindingType[];
extern data_type_definition AnimationType[];
extern data_type_definition TrackGroupType[];
extern data_type_definition VectorTrackType[];
extern data_type_definition TransformTrackType[];
extern data_type_definition TextTrackType[];
extern data_type_definition TextTrackEntryType[];
extern data_type_definition PeriodicLoopType[];
extern data_type_definition Curve2Type[];

// Element types: one-member tables that describe arrays of plain values.
extern data_type_definition Real32ElementType[];
extern data_type_definition UInt16ElementType[];
extern data_type_definition UInt8ElementType[];
extern data_type_definition StringElementType[]; // the type of every string object
extern data_type_definition Int16ElementType[];
extern data_type_definition Int32ElementType[];
extern data_type_definition UInt32ElementType[];
extern data_type_definition Real32x3ElementType[];
extern data_type_definition Real32x4ElementType[];
extern data_type_definition TransformElementType[];
extern data_type_definition Matrix4x4ElementType[];

// An empty table (just the end record).
extern data_type_definition EmptyType[];

// Curve data types. The row of the format table is the index into
// CurveFormatTypes; OldCurveDataType has no row.
extern data_type_definition CurveDataHeaderType[];
extern data_type_definition OldCurveDataType[];
extern data_type_definition CurveDataDaKeyframes32fType[];
extern data_type_definition CurveDataDaK32fC32fType[];
extern data_type_definition CurveDataDaIdentityType[];
extern data_type_definition CurveDataDaConstant32fType[];
extern data_type_definition CurveDataD3Constant32fType[];
extern data_type_definition CurveDataD4Constant32fType[];
extern data_type_definition CurveDataDaK16uC16uType[];
extern data_type_definition CurveDataDaK8uC8uType[];
extern data_type_definition CurveDataD4nK16uC15uType[];
extern data_type_definition CurveDataD4nK8uC7uType[];
extern data_type_definition CurveDataD3K16uC16uType[];
extern data_type_definition CurveDataD3K8uC8uType[];
extern data_type_definition CurveDataD9I1K16uC16uType[];
extern data_type_definition CurveDataD9I3K16uC16uType[];
extern data_type_definition CurveDataD9I1K8uC8uType[];
extern data_type_definition CurveDataD9I3K8uC8uType[];
extern data_type_definition CurveDataD3I1K32fC32fType[];
extern data_type_definition CurveDataD3I1K16uC16uType[];
extern data_type_definition CurveDataD3I1K8uC8uType[];

enum
{
    CurveFormatCount = 19
};
// Indexed by the format number stored in each curve's header.
extern data_type_definition *const CurveFormatTypes[CurveFormatCount];

// Standard vertex layouts, rows 1 to 30 at indices 0 to 29.
enum
{
    StandardVertexLayoutCount = 30
};
extern data_type_definition *const StandardVertexLayouts[StandardVertexLayoutCount];
extern data_type_definition VertexP3Type[];     // row 1: positions only (vertex_p3)
extern data_type_definition VertexPNGBC3Type[]; // row 8: vertex_pngbc3
extern data_type_definition VertexPN3T2Type[];  // row 9: vertex_pn3_t2
// Working layouts, never a file's vertex type by themselves.
extern data_type_definition VertexBoneWeightsType[];  // vertex_bone_weights
extern data_type_definition VertexTangentFrameType[]; // vertex_tangent_frame
extern data_type_definition VertexChannelType[];      // vertex_channel

// The object types by the names the section settings use ("mesh",
// "strings", ...), in the order of those settings; file_info has no row.
enum
{
    StandardObjectTypeCount = 30
};
struct standard_object_type
{
    char const *Name;
    data_type_definition *Type;
};
extern standard_object_type const StandardObjectTypes[StandardObjectTypeCount];
// Case-sensitive lookup; null when there is no such name.
data_type_definition *FindStandardObjectType(char const *Name);
