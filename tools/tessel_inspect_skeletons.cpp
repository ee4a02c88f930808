// The part of `tessel inspect` that shows a TS2 file's skeletons as bone
// trees and its models with their placement, in plain text, so that a rig
// can be read at a glance without walking the whole object tree.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "format/tessel_file_format.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "tessel_inspect_skeletons.h"

namespace {

// Float noise around zero (1e-9 and the like) reads as 0.
double Clean(double Value)
{
    return std::fabs(Value) < 5e-7 ? 0.0 : Value;
}

std::string Format(char const *Pattern, double A, double B, double C)
{
    char Buffer[128];
    snprintf(Buffer, sizeof(Buffer), Pattern, Clean(A), Clean(B), Clean(C));
    return Buffer;
}

std::string Vector3(real32 const *V)
{
    return Format("(%.6g, %.6g, %.6g)", V[0], V[1], V[2]);
}

std::string Quaternion(real32 const *Q)
{
    char Buffer[128];
    snprintf(Buffer, sizeof(Buffer), "(%.6g, %.6g, %.6g, %.6g)", Clean(Q[0]), Clean(Q[1]), Clean(Q[2]), Clean(Q[3]));
    return Buffer;
}

// Position, orientation and scale/shear; the scale as three factors when
// there is no shear.
std::string DescribeTransform(transform const &T)
{
    std::string Text = "position " + Vector3(T.Position) + "  orientation " + Quaternion(T.Orientation);
    bool Diagonal = T.ScaleShear[0][1] == 0 && T.ScaleShear[0][2] == 0 && T.ScaleShear[1][0] == 0 &&
                    T.ScaleShear[1][2] == 0 && T.ScaleShear[2][0] == 0 && T.ScaleShear[2][1] == 0;
    if (Diagonal) {
        bool Unit = std::fabs(T.ScaleShear[0][0] - 1) < 1e-5f && std::fabs(T.ScaleShear[1][1] - 1) < 1e-5f &&
                    std::fabs(T.ScaleShear[2][2] - 1) < 1e-5f;
        if (!Unit)
            Text +=
                "  scale " + Format("(%.6g, %.6g, %.6g)", T.ScaleShear[0][0], T.ScaleShear[1][1], T.ScaleShear[2][2]);
    } else {
        Text += "  scale/shear (" + Vector3(T.ScaleShear[0]) + ", " + Vector3(T.ScaleShear[1]) + ", " +
                Vector3(T.ScaleShear[2]) + ")";
    }
    return Text;
}

std::string Name(char const *Text)
{
    return Text ? "\"" + std::string(Text) + "\"" : std::string("(unnamed)");
}

void DescribeBone(skeleton const &Skeleton, std::vector<std::vector<int32>> const &Children, int32 Index, int Depth,
                  std::string &Out)
{
    bone const &Bone = Skeleton.Bones[Index];
    char Head[96];
    snprintf(Head, sizeof(Head), "[%d] ", Index);
    char LOD[48];
    snprintf(LOD, sizeof(LOD), "  LOD error %.6g", Bone.LODError);
    Out += "\n    " + std::string((size_t)Depth * 2, ' ') + Head + Name(Bone.Name) + LOD + "  " +
           DescribeTransform(Bone.Transform);
    for (int32 Child : Children[(size_t)Index]) DescribeBone(Skeleton, Children, Child, Depth + 1, Out);
}

// The bones as a tree, children below their parent and indented one step;
// the numbers are the bones' indices in the file, whose order is by LOD.
void DescribeSkeleton(skeleton const &Skeleton, std::string &Out)
{
    Out += "\n  " + Name(Skeleton.Name) + ": " + std::to_string(Skeleton.BoneCount) + " bones, LOD type " +
           std::to_string(Skeleton.LODType);
    int32 Count = Skeleton.BoneCount > 0 ? Skeleton.BoneCount : 0;
    std::vector<std::vector<int32>> Children((size_t)Count);
    std::vector<int32> Roots;
    for (int32 Index = 0; Index < Count; ++Index) {
        int32 Parent = Skeleton.Bones[Index].ParentIndex;
        // Parents stand first; anything else would not be a tree.
        if (Parent >= 0 && Parent < Index) {
            Children[(size_t)Parent].push_back(Index);
        } else {
            if (Parent != -1)
                Out +=
                    "\n    bone " + std::to_string(Index) + " has parent " + std::to_string(Parent) + ", not before it";
            Roots.push_back(Index);
        }
    }
    for (int32 Root : Roots) DescribeBone(Skeleton, Children, Root, 0, Out);
}

void DescribeModel(model const &Model, std::string &Out)
{
    Out += "\n  " + Name(Model.Name) + ": skeleton " + (Model.Skeleton ? Name(Model.Skeleton->Name) : "none") + ", " +
           std::to_string(Model.MeshBindingCount) + (Model.MeshBindingCount == 1 ? " mesh" : " meshes");
    Out +=
        "\n    placement " + (Model.InitialPlacement.Flags == 0 && Model.InitialPlacement.Position[0] == 0 &&
                                      Model.InitialPlacement.Position[1] == 0 && Model.InitialPlacement.Position[2] == 0
                                  ? std::string("identity")
                                  : DescribeTransform(Model.InitialPlacement));
    for (int32 Index = 0; Index < Model.MeshBindingCount; ++Index) {
        mesh const *Mesh = Model.MeshBindings[Index].Mesh;
        Out += "\n    mesh " + Name(Mesh ? Mesh->Name : 0);
    }
}

} // namespace

std::string DescribeSkeletonsAndModels(loaded_file const &File)
{
    if (File.Header.TypeTag != (uint32)TesselStandardFileTypeTag) return "";
    // Only a root that really is this exporter's file_info can be read as one.
    file_info const *Info = (file_info const *)GetLoadedFileRootObjectOfType(File, FileInfoType);
    if (!Info) return "";
    std::string Out;
    if (art_tool_info const *Tool = Info->ArtToolInfo) {
        // The basis the file's coordinates are in, after any conversion.
        char Units[32];
        snprintf(Units, sizeof(Units), "%g", (double)Tool->UnitsPerMeter);
        Out += "\nArt tool: " + Name(Tool->FromArtToolName) + " " + std::to_string(Tool->ArtToolMajorRevision) + "." +
               std::to_string(Tool->ArtToolMinorRevision) + ", " + Units + " units per meter, right " +
               Vector3(Tool->RightVector) + ", up " + Vector3(Tool->UpVector) + ", back " + Vector3(Tool->BackVector) +
               ", origin " + Vector3(Tool->Origin);
    }
    Out += "\nSkeletons: " + std::to_string(Info->SkeletonCount);
    for (int32 Index = 0; Index < Info->SkeletonCount; ++Index) {
        if (Info->Skeletons[Index]) DescribeSkeleton(*Info->Skeletons[Index], Out);
    }
    Out += "\nModels: " + std::to_string(Info->ModelCount);
    for (int32 Index = 0; Index < Info->ModelCount; ++Index) {
        if (Info->Models[Index]) DescribeModel(*Info->Models[Index], Out);
    }
    return Out;
}
