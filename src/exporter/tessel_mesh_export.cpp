#include "exporter/tessel_mesh_export.h"

#include <cmath>
#include <cstring>

#include "exporter/tessel_scene_graph.h"
#include "exporter/tessel_tool_interface.h"
#include "exporter/tessel_scene_parser.h"
#include "exporter/tessel_skeleton_export.h"
#include "format/tessel_data_type_definitions.h"
#include "format/tessel_schema.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"
#include "foundation/tessel_string.h"
#include "geometry/tessel_mesh_builder.h"
#include "geometry/tessel_transform.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

namespace {

real32 const EmptyBoxMin = 3.4028235e38f;
real32 const EmptyBoxMax = -3.4028235e38f;

// The count of channels a vertex gets: none if not allowed, at most the
// setting's number, and exactly that number when dummies fill the gap.
int32 ClampChannelCount(settings_node const *Settings, int32 Count, int32 AllowId, int32 NumberId, int32 DummiesId)
{
    if (!GetSettingBool(Settings, AllowId)) return 0;
    int32 Number = GetSettingInt(Settings, NumberId);
    if (Count > Number) Count = Number;
    if (Count < Number && GetSettingBool(Settings, DummiesId)) Count = Number;
    return Count;
}

void AppendMember(data_type_definition *Layout, char const **Names, int32 &Count, member_type Type, char const *Name,
                  int32 Width, char const *ToolName)
{
    Layout[Count].Type = Type;
    Layout[Count].Name = Name;
    Layout[Count].ArrayWidth = Width;
    Names[Count] = ToolName;
    ++Count;
}

// Into the bone's space at rest: the stored inverse world of the bone, or
// for a node without one the inverse of its bind world.
void MakePlacement(tool_interface *Tool, tool_node *Node, bone_placement &Placement)
{
    Placement.IsSet = true;
    if (Node->FileBone) {
        memcpy(Placement.Matrix, &Node->FileBone->InverseWorldTransform[0][0], sizeof(Placement.Matrix));
        return;
    }
    transform World;
    GetNodeBindTransform(Tool, Node, 0, &World);
    real64 WorldMatrix[16], Inverse[16];
    TransformToMatrix4x4(World, WorldMatrix);
    InvertAffine4x4(WorldMatrix, Inverse);
    for (int32 Element = 0; Element < 16; ++Element) Placement.Matrix[Element] = (real32)Inverse[Element];
}

void MakeEmptyBinding(bone_binding &Binding, char const *Name)
{
    ClearObject(BoneBindingType, &Binding);
    Binding.BoneName = (char *)Name;
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Binding.OBBMin[Axis] = EmptyBoxMin;
        Binding.OBBMax[Axis] = EmptyBoxMax;
    }
}

// "Morph Targets" decides how many targets the mesh may get.
int32 GetMeshMorphTargetCount(scene_export_state *State, tool_mesh *Mesh)
{
    settings_node const *Settings = Mesh->Settings;
    int32 Choice = GetSettingChoice(Settings, SettingId_MorphTargets);
    int32 Count = 0;
    if (Choice == Choice_LookForMorphModifierMeshes && HasMorphTargets(State->Tool, Mesh)) {
        Count = GetMorphTargetCount(State->Tool, Mesh);
    } else if (Choice == Choice_ExtractMeshFrameByFrame) {
        if (GetSettingBool(Settings, SettingId_SetTotalFrameCount)) {
            Count = (int32)(GetSettingFloat(Settings, SettingId_FrameCount) + 0.5f);
        } else {
            Count = GetMorphFrameCount(State->Tool);
        }
        if (Count > State->MorphTargetLimit) {
            TesselWarning(LogCategory_Exporter,
                          "Morph target count of %i exceeds limit of %i - count has been clamped.", Count,
                          State->MorphTargetLimit);
            Count = State->MorphTargetLimit;
        }
    }
    return Count;
}

// Bindings and placements: one per cluster of the skin, or one for the
// node the mesh hangs on.
bone_placement *BindBones(scene_export_state *State, tool_mesh *Mesh, tool_mesh_skin *Skin, mesh *FileMesh)
{
    tool_interface *Tool = State->Tool;
    int32 Count = Skin ? GetSkinBoneCount(Skin) : 1;
    bone_placement *Placements = TesselAllocateArray(bone_placement, Count > 0 ? Count : 1);
    if (!Placements) return 0;
    memset(Placements, 0, sizeof(bone_placement) * (size_t)(Count > 0 ? Count : 1));

    if (Skin) {
        FileMesh->BoneBindings = ArenaPush<bone_binding>(State->Arena, Count > 0 ? Count : 1);
        if (!FileMesh->BoneBindings) return Placements;
        FileMesh->BoneBindingCount = Count;
        tool_node *MeshNode = GetMeshNode(Tool, Mesh);
        for (int32 Index = 0; Index < Count; ++Index) {
            tool_node *Node = GetSkinBoneNode(Tool, Skin, Index);
            // Points no cluster weighs follow the mesh's node, or the nearest
            // bone above it when the node is no bone.
            if (Node && Node == MeshNode && !IsBoneIncluded(Node->Settings)) {
                tool_node *Walk = GetNodeParent(Tool, Node);
                while (Walk && !IsBoneIncluded(Walk->Settings)) Walk = GetNodeParent(Tool, Walk);
                if (Walk) Node = Walk;
            }
            MakeEmptyBinding(FileMesh->BoneBindings[Index], Node ? GetNodeName(Tool, Node, State->Strings) : 0);
            if (Node) {
                MakePlacement(Tool, Node, Placements[Index]);
            } else {
                MatrixIdentity4x4(Placements[Index].Matrix);
                Placements[Index].IsSet = true;
            }
        }
        return Placements;
    }

    tool_node *Node = GetMeshNode(Tool, Mesh);
    if (Node && GetSettingBool(Mesh->Settings, SettingId_BindMeshesToNearestParent)) {
        tool_node *Walk = Node;
        while (Walk && !IsBoneIncluded(Walk->Settings)) Walk = GetNodeParent(Tool, Walk);
        if (Walk) Node = Walk;
    }
    if (Node) {
        FileMesh->BoneBindings = ArenaPush<bone_binding>(State->Arena, 1);
        if (!FileMesh->BoneBindings) return Placements;
        FileMesh->BoneBindingCount = 1;
        MakeEmptyBinding(FileMesh->BoneBindings[0], GetNodeName(Tool, Node, State->Strings));
        MakePlacement(Tool, Node, Placements[0]);
    }
    return Placements;
}

} // namespace

data_type_definition *BuildVertexType(tool_mesh_data *MeshData, memory_arena *Arena, string_table *Strings,
                                      int32 BonesPerVertex, int32 BoneWeightFormat, int32 BoneCount,
                                      settings_node const *Settings, int32 *ColorCount, int32 *CoordinateCount,
                                      int32 *NameCount, char const ***Names)
{
    CheckPointer(Arena, LogCategory_Exporter, 0);
    bool HasBones = BonesPerVertex >= 1 && BoneCount >= 2;
    int32 Coordinates =
        ClampChannelCount(Settings, GetMeshTextureCoordinateChannelCount(MeshData), SettingId_AllowTextureCoordinates,
                          SettingId_CoordsPerVertex, SettingId_InsertDummyCoordsIfMissing);
    int32 Colors = ClampChannelCount(Settings, GetMeshColorChannelCount(MeshData), SettingId_AllowVertexColors,
                                     SettingId_ColorsPerVertex, SettingId_InsertDummyColorsIfMissing);
    int32 Slots = Colors + Coordinates + 8;
    data_type_definition *Layout = ArenaPush<data_type_definition>(Arena, Slots);
    char const **ToolNames = ArenaPush<char const *>(Arena, Slots);
    if (!Layout || !ToolNames) return 0;
    memset(Layout, 0, sizeof(data_type_definition) * (size_t)Slots);
    memset(ToolNames, 0, sizeof(char const *) * (size_t)Slots);

    int32 Count = 0;
    AppendMember(Layout, ToolNames, Count, Real32Member, "Position", 3, GetPositionComponentName(MeshData, Strings));
    if (HasBones && BonesPerVertex != 1) {
        member_type WeightType = BoneWeightFormat == Choice_Float16   ? Real16Member
                                 : BoneWeightFormat == Choice_Float32 ? Real32Member
                                                                      : NormalUInt8Member;
        AppendMember(Layout, ToolNames, Count, WeightType, "BoneWeights", BonesPerVertex,
                     GetBoneWeightsComponentName(MeshData, Strings));
        AppendMember(Layout, ToolNames, Count, UInt8Member, "BoneIndices", BonesPerVertex,
                     GetBoneIndicesComponentName(MeshData, Strings));
    } else if (HasBones) {
        // A single bone index stands alone; its tool name is the weights' name.
        AppendMember(Layout, ToolNames, Count, UInt32Member, "BoneIndices", 1,
                     GetBoneWeightsComponentName(MeshData, Strings));
    }
    AppendMember(Layout, ToolNames, Count, Real32Member, "Normal", 3, GetNormalComponentName(MeshData, Strings));
    if (GetSettingBool(Settings, SettingId_IncludeTangentVectors)) {
        AppendMember(Layout, ToolNames, Count, Real32Member, "Tangent", 3, GetTangentComponentName(MeshData, Strings));
    }
    if (GetSettingBool(Settings, SettingId_IncludeBinormalVectors)) {
        AppendMember(Layout, ToolNames, Count, Real32Member, "Binormal", 3,
                     GetBinormalComponentName(MeshData, Strings));
    }
    if (GetSettingBool(Settings, SettingId_IncludeCrossVectors)) {
        AppendMember(Layout, ToolNames, Count, Real32Member, "TangentBinormalCross", 3,
                     GetTangentBinormalCrossComponentName(MeshData, Strings));
    }
    char Name[64];
    int32 ColorWidth = GetSettingInt(Settings, SettingId_ElementsPerColor);
    for (int32 Channel = 0; Channel < Colors; ++Channel) {
        ConvertToStringArgs(sizeof(Name), Name, "%s%d", "DiffuseColor", Channel);
        AppendMember(Layout, ToolNames, Count, Real32Member, ArenaCopyString(Arena, Name), ColorWidth,
                     GetColorComponentName(MeshData, Strings, Channel));
    }
    int32 CoordinateWidth = GetSettingInt(Settings, SettingId_ElementsPerCoord);
    for (int32 Channel = 0; Channel < Coordinates; ++Channel) {
        ConvertToStringArgs(sizeof(Name), Name, "%s%d", "TextureCoordinates", Channel);
        AppendMember(Layout, ToolNames, Count, Real32Member, ArenaCopyString(Arena, Name), CoordinateWidth,
                     GetTextureCoordinateComponentName(MeshData, Strings, Channel));
    }
    Layout[Count].Type = EndMember;

    if (ColorCount) *ColorCount = Colors;
    if (CoordinateCount) *CoordinateCount = Coordinates;
    if (NameCount) *NameCount = Count;
    if (Names) *Names = ToolNames;
    return Layout;
}

void GatherVertices(scene_export_state *State, tool_mesh_data *MeshData, tool_mesh_skin *Skin, int32 VertexCount,
                    mesh_builder *Builder)
{
    for (int32 Vertex = 0; Vertex < VertexCount; ++Vertex) {
        real32 Position[3];
        GetVertexPosition(MeshData, Vertex, Position);
        SetPosition(Builder, Position[0], Position[1], Position[2]);
        if (Skin) {
            int32 Influences = GetVertexBoneCount(Skin, Vertex);
            for (int32 N = 0; N < Influences; ++N) {
                int32 Bone = 0;
                real32 Weight = 0.0f;
                if (GetVertexBoneWeight(State->Tool, Skin, Vertex, N, &Bone, &Weight)) AddWeight(Builder, Bone, Weight);
            }
        }
        PushVertex(Builder);
    }
}

namespace {

// The triangle annotation of one set for the triangle just pushed; with
// Indexed, equal records are kept once.
void GatherTriangleAnnotation(tool_triangle_iterator *Iterator, memory_arena *Arena, tri_annotation_set &Set,
                              int32 SetIndex, bool Indexed)
{
    data_type_definition *Type = Set.TriAnnotations.Type;
    int32 Size = Type ? GetTotalObjectSize(Type) : 0;
    uint8 *Records = (uint8 *)Set.TriAnnotations.Array;
    if (!Records || Size <= 0) return;
    uint8 *Next = Records + (intaddrx)Size * Set.TriAnnotations.Count;
    bool Found = GetTriangleAnnotation(Iterator, SetIndex, Arena, Type, Next);
    if (!Indexed) {
        if (!Found) ClearObject(Type, Next);
        ++Set.TriAnnotations.Count;
        return;
    }
    int32 Index = -1;
    if (Found) {
        for (int32 Kept = 0; Kept < Set.TriAnnotations.Count && Index < 0; ++Kept) {
            if (memcmp(Records + (intaddrx)Size * Kept, Next, (size_t)Size) == 0) Index = Kept;
        }
        if (Index < 0) Index = Set.TriAnnotations.Count++;
    }
    Set.TriAnnotationIndices[Set.TriAnnotationIndexCount++] = Index;
}

} // namespace

void GatherTriangles(scene_export_state *State, settings_node const *Settings, tool_mesh_data *MeshData,
                     int32 TriangleCount, int32 ColorCount, int32 CoordinateCount, mesh_builder *Builder,
                     tool_material_data *Materials, int32 AnnotationCount, tri_annotation_set *AnnotationSets,
                     bool DoubleTwoSided, bool FlipU, bool FlipV, tool_mesh *Mesh)
{
    if (TriangleCount <= 0) return;
    bool Indexed = GetSettingBool(Settings, SettingId_UseIndexedTriangleAnnotation);
    int32 Capacity = DoubleTwoSided ? 2 * TriangleCount : TriangleCount;
    for (int32 Set = 0; Set < AnnotationCount; ++Set) {
        tri_annotation_set &Annotations = AnnotationSets[Set];
        data_type_definition *Type = Annotations.TriAnnotations.Type;
        int32 Size = Type ? GetTotalObjectSize(Type) : 0;
        Annotations.TriAnnotations.Count = 0;
        Annotations.TriAnnotations.Array = Size > 0 ? ArenaAllocate(State->Arena, (intaddrx)Size * Capacity) : 0;
        if (Indexed) {
            Annotations.TriAnnotationIndexCount = 0;
            Annotations.TriAnnotationIndices = ArenaPush<int32>(State->Arena, Capacity);
        }
        Annotations.IndicesMapFromTriToAnnotation = 1;
    }

    // Tangent frames come from the mesh builder, never from the tool: no
    // setting asks a tool for its own.
    tool_triangle_iterator *Iterator = BeginTriangles(MeshData);
    if (!Iterator) return;

    for (; HasTriangle(Iterator); NextTriangle(Iterator)) {
        bool IsDouble = DoubleTwoSided && IsTriangleTwoSided(Iterator, State->Tool, Materials);
        for (int32 Side = 0; Side < (IsDouble ? 2 : 1); ++Side) {
            bool Back = Side == 1;
            for (int32 Corner = 0; Corner < 3; ++Corner) {
                int32 Source = Back ? 2 - Corner : Corner;
                SetVertexIndex(Builder, Corner, GetCornerVertex(Iterator, Source));
                SetPolygonSource(Builder, GetTriangleIndex(Iterator));
                SetCornerSource(Builder, Corner, GetCornerSource(Iterator, Source));
                real32 Normal[3];
                GetCornerNormal(Iterator, Source, Normal);
                if (Back) {
                    for (real32 &Component : Normal) Component = -Component;
                }
                SetCornerNormal(Builder, Corner, Normal[0], Normal[1], Normal[2]);
                int32 Channel = 0;
                for (int32 Color = 0; Color < ColorCount; ++Color) {
                    real32 Values[4];
                    GetCornerColor(Iterator, Source, Color, Values);
                    SetCornerChannel(Builder, Corner, Channel++, Values);
                }
                for (int32 Set = 0; Set < CoordinateCount; ++Set) {
                    real32 Values[4];
                    GetCornerTextureCoordinates(Iterator, Source, Set, Values);
                    if (FlipU) Values[0] = 1.0f - Values[0];
                    if (FlipV) Values[1] = 1.0f - Values[1];
                    SetCornerChannel(Builder, Corner, Channel++, Values);
                }
            }
            SetMaterial(Builder, GetTriangleMaterial(Iterator));
            PushTriangle(Builder);
            for (int32 Set = 0; Set < AnnotationCount; ++Set) {
                GatherTriangleAnnotation(Iterator, State->Arena, AnnotationSets[Set], Set, Indexed);
            }
        }
    }
    EndTriangles(Iterator);
}

void ExportPolygonMesh(scene_export_state *State, tool_mesh *Mesh, tool_mesh_skin *Skin, tool_material_data *Materials,
                       mesh *FileMesh, bone_placement *Placements)
{
    settings_node const *Settings = Mesh->Settings;
    int32 WeightFormat = GetSettingChoice(Settings, SettingId_BoneWeightFormat);
    int32 BonesPerVertex = (Skin && GetSettingBool(Settings, SettingId_AllowVertexWeighting))
                               ? GetSettingInt(Settings, SettingId_BonesPerVertex)
                               : 0;
    tool_mesh_data *MeshData = BeginMeshData(State->Tool, Mesh);
    if (!MeshData) {
        TesselWarning(LogCategory_Exporter, "Unable to parse mesh %s", FileMesh->Name ? FileMesh->Name : "");
        return;
    }
    int32 VertexCount = GetMeshVertexCount(MeshData);
    int32 TriangleCount = GetMeshTriangleCount(MeshData);
    int32 MaterialCount = GetMeshMaterialCount(MeshData);
    int32 BoneCount = Skin ? GetSkinBoneCount(Skin) : 0;

    // A mesh bound to one cluster is rigid.
    mesh_sections Sections;
    if (BoneCount <= 1) {
        Sections.Vertices = GetSectionSetting(State->FileSettings, SettingId_RigidVerticesSection, 1);
        Sections.Indices = GetSectionSetting(State->FileSettings, SettingId_RigidIndicesSection, 2);
    } else {
        Sections.Vertices = GetSectionSetting(State->FileSettings, SettingId_DeformableVerticesSection, 3);
        Sections.Indices = GetSectionSetting(State->FileSettings, SettingId_DeformableIndicesSection, 4);
    }

    int32 ColorCount = 0, CoordinateCount = 0, NameCount = 0;
    char const **Names = 0;
    data_type_definition *Layout =
        BuildVertexType(MeshData, State->Arena, State->Strings, BonesPerVertex, WeightFormat, BoneCount, Settings,
                        &ColorCount, &CoordinateCount, &NameCount, &Names);
    bool DoubleTwoSided = GetSettingBool(Settings, SettingId_Double2SidedTriangles);
    int32 TriangleCapacity = DoubleTwoSided ? 2 * TriangleCount : TriangleCount;
    mesh_builder *Builder = Layout ? BeginMesh(VertexCount, TriangleCapacity, MaterialCount, BoneCount, Layout) : 0;
    if (!Builder) {
        TesselWarning(LogCategory_Exporter, "Unable to convert mesh %s", FileMesh->Name ? FileMesh->Name : "");
        EndMeshData(MeshData);
        return;
    }
    GatherVertices(State, MeshData, Skin, VertexCount, Builder);
    SetChannelNames(Builder, NameCount, Names);

    int32 AnnotationCount = 0;
    tri_annotation_set *AnnotationSets = 0;
    if (GetSettingBool(Settings, SettingId_IncludeTriangleAnnotation)) {
        AnnotationCount = GetTriangleAnnotationCount(MeshData);
        AnnotationSets = AnnotationCount > 0 ? ArenaPush<tri_annotation_set>(State->Arena, AnnotationCount) : 0;
        if (!AnnotationSets) AnnotationCount = 0;
        for (int32 Set = 0; Set < AnnotationCount; ++Set) {
            ClearObject(TriAnnotationSetType, &AnnotationSets[Set]);
            AnnotationSets[Set].Name = (char *)GetTriangleAnnotationName(MeshData, Set, State->Arena);
            AnnotationSets[Set].TriAnnotations.Type = GetTriangleAnnotationType(MeshData, Set, State->Arena);
        }
    }

    GatherTriangles(State, Settings, MeshData, TriangleCount, ColorCount, CoordinateCount, Builder, Materials,
                    AnnotationCount, AnnotationSets, DoubleTwoSided,
                    GetSettingBool(Settings, SettingId_FlipUCoordinate),
                    GetSettingBool(Settings, SettingId_FlipVCoordinate), Mesh);

    if ((GetSettingBool(Settings, SettingId_IncludeTangentVectors) ||
         GetSettingBool(Settings, SettingId_IncludeBinormalVectors) ||
         GetSettingBool(Settings, SettingId_IncludeCrossVectors))) {
        real32 Degrees = GetSettingFloat(Settings, SettingId_TangentMergingTolerance);
        SetTangentMergingTolerance(Builder, std::cos(Degrees * (3.1415927f / 180.0f)));
        BuildTangentSpace(Builder);
    }

    // Morph targets come from the tool alone; "Create vertex morph curves"
    // counts only when the mesh is extracted frame by frame.
    bool WithMorphCurves = GetSettingChoice(Settings, SettingId_MorphTargets) == Choice_ExtractMeshFrameByFrame &&
                           GetSettingBool(Settings, SettingId_CreateVertexMorphCurves);

    int32 VertexSize = GetResultingVertexDataSize(Builder);
    int32 TopologySize = GetResultingTopologySize(Builder);
    void *VertexMemory = VertexSize > 0 ? ArenaAllocate(State->Arena, VertexSize) : 0;
    void *TopologyMemory = TopologySize > 0 ? ArenaAllocate(State->Arena, TopologySize) : 0;
    vertex_data *VertexData = 0;
    tri_topology *Topology = 0;
    EndMesh(Builder, VertexMemory, TopologyMemory, &VertexData, &Topology);
    if (VertexData && Topology) {
        FinishMesh(State, Mesh, MeshData, Builder, FileMesh, VertexData, Topology, AnnotationCount, AnnotationSets,
                   Placements, Skin ? BoneCount : 1, Sections, WithMorphCurves);
    }
    FreeBuilder(Builder);
    EndMeshData(MeshData);
}

bool ExportMesh(scene_export_state *State, tool_mesh *Mesh)
{
    CheckPointer(State, LogCategory_Exporter, false);
    CheckPointer(Mesh, LogCategory_Exporter, false);
    mesh *FileMesh = ArenaPush<mesh>(State->Arena);
    if (!FileMesh) return false;
    ClearObject(MeshType, FileMesh);
    AddMesh(State, FileMesh);
    Mesh->FileMesh = FileMesh;
    settings_node const *Settings = Mesh->Settings;
    FileMesh->Name = (char *)GetMeshName(State->Tool, Mesh, State->Strings,
                                         GetSettingBool(Settings, SettingId_UseFullMeshPathnames));

    if (IsDataIncluded(Settings)) {
        int32 MorphTargetCount = GetMeshMorphTargetCount(State, Mesh);
        FileMesh->MorphTargets = ArenaPush<morph_target>(State->Arena, MorphTargetCount + 1);
        if (FileMesh->MorphTargets)
            memset(FileMesh->MorphTargets, 0, sizeof(morph_target) * (size_t)(MorphTargetCount + 1));

        tool_mesh_skin *Skin = GetMeshSkin(State->Tool, Mesh);
        bone_placement *Placements = BindBones(State, Mesh, Skin, FileMesh);
        tool_material_data *Materials = GetMeshMaterials(State->Tool, Mesh);

        if (Placements) {
            int32 Kind = GetMeshKind(State->Tool, Mesh);
            if (Kind == ToolMeshKind_Polygons) {
                ExportPolygonMesh(State, Mesh, Skin, Materials, FileMesh, Placements);
            } else if (Kind != ToolMeshKind_Patches && Kind != ToolMeshKind_Curves) {
                TesselWarning(LogCategory_Exporter, "Unrecognized mesh type encountered");
            }
        }

        tri_topology *Topology = FileMesh->PrimaryTopology;
        if (Materials && Topology && Topology->GroupCount > 0) {
            FileMesh->MaterialBindings = ArenaPush<material_binding>(State->Arena, Topology->GroupCount);
            if (FileMesh->MaterialBindings) {
                FileMesh->MaterialBindingCount = Topology->GroupCount;
                for (int32 Group = 0; Group < Topology->GroupCount; ++Group) {
                    tool_material *Material =
                        GetMeshMaterial(State->Tool, Materials, Topology->Groups[Group].MaterialIndex);
                    Topology->Groups[Group].MaterialIndex = Group;
                    FileMesh->MaterialBindings[Group].Material = Material ? Material->FileMaterial : 0;
                }
            }
        }
        ReleaseMeshSkin(Skin);
        ReleaseMeshMaterials(State->Tool, Materials);

        // A box that no vertex reached is empty at the origin.
        for (int32 Binding = 0; Binding < FileMesh->BoneBindingCount; ++Binding) {
            bone_binding &Bone = FileMesh->BoneBindings[Binding];
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                if (Bone.OBBMin[Axis] > Bone.OBBMax[Axis]) Bone.OBBMin[Axis] = Bone.OBBMax[Axis] = 0.0f;
            }
        }
        if (Placements) TesselFree(Placements);
        if (!GetSettingBool(Settings, SettingId_PreserveBonesAffectingNoVerts)) RemoveUnusedBoneBindings(FileMesh);
    }
    if (IsArtToolDataIncluded(Settings)) {
        AddMeshData(State->Tool, Mesh, FileMesh, IsOnlyUserAttributes(Settings), State->Arena, State->Strings);
    }
    return true;
}
