// The part of `tessel inspect` that shows a TS2 file's meshes: layout,
// counts, material groups, bone bindings with their boxes and, on request,
// the first vertices, so that an export's geometry can be checked by eye.
#include <cmath>
#include <cstdio>
#include <string>

#include "format/tessel_data_type_definitions.h"
#include "format/tessel_file_format.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "tessel_inspect_meshes.h"

namespace {

std::string Name(char const *Text)
{
    return Text ? "\"" + std::string(Text) + "\"" : std::string("(unnamed)");
}

std::string Number(double Value)
{
    char Buffer[48];
    snprintf(Buffer, sizeof(Buffer), "%.6g", std::fabs(Value) < 5e-7 ? 0.0 : Value);
    return Buffer;
}

std::string Vector3(real32 const *V)
{
    return "(" + Number(V[0]) + ", " + Number(V[1]) + ", " + Number(V[2]) + ")";
}

bool IsIntegerKind(member_type Kind)
{
    return Kind == Int8Member || Kind == UInt8Member || Kind == Int16Member || Kind == UInt16Member ||
           Kind == Int32Member || Kind == UInt32Member;
}

void DescribeLayout(vertex_data const &Data, std::string &Out)
{
    Out += "\n    layout:";
    int32 Index = 0;
    for (data_type_definition const *Member = Data.Vertices.Type; Member && Member->Type != EndMember;
         ++Member, ++Index) {
        Out += "\n      " + std::string(Member->Name ? Member->Name : "?") + " " + GetMemberKindName(Member->Type) +
               "[" + std::to_string(GetMemberArrayWidth(*Member)) + "]";
        if (Index < Data.VertexComponentNameCount && Data.VertexComponentNames[Index]) {
            Out += "  from " + Name(Data.VertexComponentNames[Index]);
        }
    }
}

void DescribeVertices(vertex_data const &Data, int VertexCount, std::string &Out)
{
    data_type_definition const *Layout = Data.Vertices.Type;
    int32 Size = GetTotalObjectSize(Layout);
    int32 Count = Data.Vertices.Count < VertexCount ? Data.Vertices.Count : VertexCount;
    Out += "\n    first " + std::to_string(Count) + (Count == 1 ? " vertex:" : " vertices:");
    for (int32 Vertex = 0; Vertex < Count; ++Vertex) {
        uint8 const *Bytes = (uint8 const *)Data.Vertices.Array + (intaddrx)Size * Vertex;
        Out += "\n      [" + std::to_string(Vertex) + "]";
        for (data_type_definition const *Member = Layout; Member->Type != EndMember; ++Member) {
            int32 Unit = GetMemberUnitSize(*Member);
            Out += std::string(" ") + (Member->Name ? Member->Name : "?") + " (";
            for (int32 Element = 0; Element < GetMemberArrayWidth(*Member); ++Element) {
                if (Element) Out += ", ";
                uint8 const *At = Bytes + Unit * Element;
                Out += IsIntegerKind(Member->Type) ? std::to_string(ReadMemberElementAsInteger(Member->Type, At))
                                                   : Number(ReadMemberElementAsReal(Member->Type, At));
            }
            Out += ")";
            Bytes += GetMemberTypeSize(*Member);
        }
    }
}

void DescribeMesh(mesh const &Mesh, int VertexCount, std::string &Out)
{
    Out += "\n  " + Name(Mesh.Name);
    vertex_data const *Data = Mesh.PrimaryVertexData;
    tri_topology const *Topology = Mesh.PrimaryTopology;
    if (!Data || !Topology) {
        Out += ": no geometry";
        return;
    }
    bool Narrow = Topology->Indices16 != 0;
    int32 Indices = Narrow ? Topology->Index16Count : Topology->IndexCount;
    Out += ": " + std::to_string(Data->Vertices.Count) + " vertices, " + std::to_string(Indices / 3) + " triangles, " +
           (Narrow ? "16" : "32") + "-bit indices";
    DescribeLayout(*Data, Out);
    Out += "\n    material groups: " + std::to_string(Topology->GroupCount);
    for (int32 Group = 0; Group < Topology->GroupCount; ++Group) {
        tri_material_group const &G = Topology->Groups[Group];
        Out += "\n      [" + std::to_string(Group) + "] material " + std::to_string(G.MaterialIndex) + ": triangles " +
               std::to_string(G.TriFirst) + " to " + std::to_string(G.TriFirst + G.TriCount - 1) + " (" +
               std::to_string(G.TriCount) + ")";
    }
    Out += "\n    bone bindings: " + std::to_string(Mesh.BoneBindingCount);
    for (int32 Binding = 0; Binding < Mesh.BoneBindingCount; ++Binding) {
        bone_binding const &B = Mesh.BoneBindings[Binding];
        Out += "\n      [" + std::to_string(Binding) + "] " + Name(B.BoneName) + "  box " + Vector3(B.OBBMin) + " to " +
               Vector3(B.OBBMax);
        if (B.TriangleCount) Out += "  " + std::to_string(B.TriangleCount) + " triangles";
    }
    if (VertexCount > 0) DescribeVertices(*Data, VertexCount, Out);
}

} // namespace

std::string DescribeMeshes(loaded_file const &File, int VertexCount)
{
    if (File.Header.TypeTag != (uint32)TesselStandardFileTypeTag) return "";
    // Only a root that really is this exporter's file_info can be read as one.
    file_info const *Info = (file_info const *)GetLoadedFileRootObjectOfType(File, FileInfoType);
    if (!Info) return "";
    std::string Out = "\nMeshes: " + std::to_string(Info->MeshCount);
    for (int32 Index = 0; Index < Info->MeshCount; ++Index) {
        if (Info->Meshes[Index]) DescribeMesh(*Info->Meshes[Index], VertexCount, Out);
    }
    return Out;
}
