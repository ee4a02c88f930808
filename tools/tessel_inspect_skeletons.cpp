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

std::string Format(char const *Pattern, double A, double B, double C)
{
    char Buffer[128];
    snprintf(Buffer, sizeof(Buffer), Pattern, A, B, C);
    return Buffer;
}

std::string Vector3(real32 const *V)
{
    return Format("(%.6g, %.6g, %.6g)", V[0], V[1], V[2]);
}

std::string Quaternion(real32 const *Q)
{
    char Buffer[128];
    snprintf(Buffer, sizeof(Buffer), "(%.6g, %.6g, %.6g, %.6g)", Q[0], Q[1], Q[2], Q[3]);
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
        if (!Unit) Text += "  scale " + Format("(%.6g, %.6g, %.6g)", T.ScaleShear[0][0], T.ScaleShear[1][1], T.ScaleShear[2][2]);
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

void DescribeSkeleton(skeleton const &Skeleton, std::string &Out)
{
    Out += "\n  " + Name(Skeleton.Name) + ": " + std::to_string(Skeleton.BoneCount) + " bones, LOD type " +
           std::to_string(Skeleton.LODType);
    // Bones stand parents first, so a bone's depth follows from its parent's.
    std::vector<int> Depth((size_t)(Skeleton.BoneCount > 0 ? Skeleton.BoneCount : 0), 0);
    for (int32 Index = 0; Index < Skeleton.BoneCount; ++Index) {
        bone const &Bone = Skeleton.Bones[Index];
        int32 Parent = Bone.ParentIndex;
        bool Known = Parent >= 0 && Parent < Index;
        Depth[Index] = Known ? Depth[Parent] + 1 : 0;
        char Head[64];
        snprintf(Head, sizeof(Head), "[%d] ", Index);
        Out += "\n    " + std::string((size_t)Depth[Index] * 2, ' ') + Head + Name(Bone.Name);
        if (Parent >= 0 && !Known) Out += "  (parent " + std::to_string(Parent) + " out of order)";
        char LOD[48];
        snprintf(LOD, sizeof(LOD), "  LOD error %.6g", Bone.LODError);
        Out += std::string(LOD) + "  " + DescribeTransform(Bone.Transform);
    }
}

void DescribeModel(model const &Model, std::string &Out)
{
    Out += "\n  " + Name(Model.Name) + ": skeleton " + (Model.Skeleton ? Name(Model.Skeleton->Name) : "none") +
           ", " + std::to_string(Model.MeshBindingCount) + (Model.MeshBindingCount == 1 ? " mesh" : " meshes");
    Out += "\n    placement " + (Model.InitialPlacement.Flags == 0 && Model.InitialPlacement.Position[0] == 0 &&
                                         Model.InitialPlacement.Position[1] == 0 &&
                                         Model.InitialPlacement.Position[2] == 0
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
    file_info const *Info = (file_info const *)GetLoadedFileRootObject(File, 0);
    if (!Info) return "\nSkeletons: shown only for files with 64-bit pointers";
    std::string Out = "\nSkeletons: " + std::to_string(Info->SkeletonCount);
    for (int32 Index = 0; Index < Info->SkeletonCount; ++Index) {
        if (Info->Skeletons[Index]) DescribeSkeleton(*Info->Skeletons[Index], Out);
    }
    Out += "\nModels: " + std::to_string(Info->ModelCount);
    for (int32 Index = 0; Index < Info->ModelCount; ++Index) {
        if (Info->Models[Index]) DescribeModel(*Info->Models[Index], Out);
    }
    return Out;
}
