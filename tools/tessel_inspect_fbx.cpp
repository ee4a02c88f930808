// tessel inspect for FBX files: the file's header, global settings, node
// tree, meshes, skins and takes as the scene model reads them, as text or as
// one JSON object; or the raw field tree (--fields).
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_node.h"
#include "fbx/fbx_tessel_skin.h"
#include "tessel_commands.h"

namespace {

struct fbx_inspect_options
{
    bool Json = false;
    bool Fields = false;
    int MaxValues = 8;
    int MaxClusters = 64;
};

void PrintFbxInspectHelp(FILE *Stream)
{
    fprintf(Stream, "usage: tessel inspect FILE.fbx [options]\n"
                    "\n"
                    "Reads an FBX file (binary or ASCII, FBX 6 and 7) into the scene model and shows\n"
                    "its version, creator, axes, unit and time mode, the node tree with attribute\n"
                    "types, meshes (control points, polygons, layers), skins (clusters, weights) and\n"
                    "takes (time spans, curve and key counts).\n"
                    "\n"
                    "Options:\n"
                    "  --json              print one JSON object instead of text\n"
                    "  --fields            print the file's raw field tree instead of the scene\n"
                    "  --max-values N      with --fields, values shown per field (default 8, 0: all)\n"
                    "  --max-clusters N    clusters listed per skin in text (default 64, 0: all)\n"
                    "  -h, --help          show this text\n");
}

// ---------------------------------------------------------------------------
// Text helpers

std::string JsonString(char const *Text)
{
    std::string Out = "\"";
    for (unsigned char const *At = (unsigned char const *)(Text ? Text : ""); *At; ++At) {
        switch (*At) {
        case '"': Out += "\\\""; break;
        case '\\': Out += "\\\\"; break;
        case '\n': Out += "\\n"; break;
        case '\r': Out += "\\r"; break;
        case '\t': Out += "\\t"; break;
        default:
            if (*At < 0x20) {
                char Escape[8];
                snprintf(Escape, sizeof(Escape), "\\u%04x", *At);
                Out += Escape;
            } else {
                Out += (char)*At;
            }
        }
    }
    return Out + "\"";
}

std::string JsonNumber(double Value)
{
    if (Value != Value || Value > 1e300 || Value < -1e300) return "null";
    char Buffer[64];
    snprintf(Buffer, sizeof(Buffer), "%.17g", Value);
    return Buffer;
}

char const *AttributeTypeName(KFbxNode *Node)
{
    KFbxNodeAttribute *Attribute = Node->GetNodeAttribute();
    if (!Attribute) return "None";
    switch (Attribute->GetAttributeType()) {
    case FbxAttribute_Unidentified: return "Unidentified";
    case FbxAttribute_Null: return "Null";
    case FbxAttribute_Marker: return "Marker";
    case FbxAttribute_Skeleton: return "Skeleton";
    case FbxAttribute_Mesh: return "Mesh";
    case FbxAttribute_Nurb: return "Nurb";
    case FbxAttribute_Patch: return "Patch";
    case FbxAttribute_Camera: return "Camera";
    case FbxAttribute_Light: return "Light";
    default: return "Other";
    }
}

char const *MappingName(int32 Mode)
{
    switch (Mode) {
    case 1: return "ByVertice";
    case 2: return "ByPolygonVertex";
    case 3: return "ByPolygon";
    default: return "None";
    }
}

char const *ReferenceName(int32 Mode)
{
    return Mode == 0 ? "Direct" : Mode == 2 ? "IndexToDirect" : "Index";
}

char const *AxisName(int32 Axis)
{
    return Axis == 0 ? "X" : Axis == 1 ? "Y" : Axis == 2 ? "Z" : "?";
}

// ---------------------------------------------------------------------------
// What is printed, gathered once for both forms.

struct take_summary
{
    std::string Name;
    double Start;
    double Stop;
    int32 CurveCount;
    int64 KeyCount;
};

void CountCurves(KFCurveNode *Node, int32 *Curves, int64 *Keys, int32 Depth)
{
    if (!Node || Depth > 64) return;
    if (KFCurve *Curve = Node->FCurveGet()) {
        ++*Curves;
        *Keys += Curve->KeyGetCount();
    }
    for (int32 Index = 0; Index < Node->GetCount(); ++Index) CountCurves(Node->Get(Index), Curves, Keys, Depth + 1);
}

take_summary SummarizeTake(KFbxScene *Scene, KFbxTakeInfo *Take)
{
    take_summary Summary;
    Summary.Name = Take->GetName();
    Summary.Start = Take->mLocalTimeSpan.GetStart().GetSecondDouble();
    Summary.Stop = Take->mLocalTimeSpan.GetStop().GetSecondDouble();
    Summary.CurveCount = 0;
    Summary.KeyCount = 0;
    for (int32 Index = 0; Index < Scene->GetMemberCount(); ++Index) {
        KFbxTakeNodeContainer *Member = Scene->GetMember(Index);
        if (Member) CountCurves(Member->FindTakeNode(Take->GetName()), &Summary.CurveCount, &Summary.KeyCount, 0);
    }
    return Summary;
}

struct mesh_entry
{
    KFbxNode *Node;
    KFbxMesh *Mesh;
};

void GatherMeshes(KFbxNode *Node, std::string &Tree, bool Text, int32 Depth, mesh_entry *Meshes, int32 *MeshCount,
                  int32 Capacity)
{
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index) {
        KFbxNode *Child = Node->GetChild(Index);
        if (Text) {
            Tree += std::string((size_t)(2 * Depth + 2), ' ');
            Tree += Child->GetName();
            Tree += " [";
            Tree += AttributeTypeName(Child);
            Tree += "]\n";
        }
        if (KFbxMesh *Mesh = Child->GetMesh()) {
            if (*MeshCount < Capacity) Meshes[*MeshCount] = mesh_entry{Child, Mesh};
            ++*MeshCount;
        }
        if (Depth < 256) GatherMeshes(Child, Tree, Text, Depth + 1, Meshes, MeshCount, Capacity);
    }
}

void PrintLayers(KFbxMesh *Mesh)
{
    for (int32 Index = 0; Index < Mesh->GetLayerCount(); ++Index) {
        KFbxLayer *Layer = Mesh->GetLayer(Index);
        if (!Layer) continue;
        printf("      layer %d:", Index);
        KFbxLayerElement *Elements[] = {Layer->GetNormals(), Layer->GetUVs(), Layer->GetVertexColors(),
                                        Layer->GetLayerElementOfType(FbxLayerElement_TextureDiffuse)};
        char const *Labels[] = {"normals", "uv", "colors", "diffuse uv"};
        bool Any = false;
        for (int32 Element = 0; Element < 4; ++Element) {
            KFbxLayerElement *Item = Elements[Element];
            if (!Item || (Element == 3 && Item == Elements[1])) continue;
            printf("%s %s%s%s%s (%s, %s, %d items, %d indices)", Any ? "," : "", Labels[Element],
                   Item->GetName()[0] ? " \"" : "", Item->GetName(), Item->GetName()[0] ? "\"" : "",
                   MappingName(Item->GetMappingMode()), ReferenceName(Item->GetReferenceMode()), Item->GetDirectCount(),
                   Item->GetIndexArray().Count);
            Any = true;
        }
        printf("%s\n", Any ? "" : " (nothing the exporter reads)");
    }
}

// ---------------------------------------------------------------------------
// The raw field tree

void PrintFieldValues(KFbx &Fbx, fbx_field const *Field, int MaxValues)
{
    int32 Count = Fbx.GetValueCount(Field);
    for (int32 Index = 0; Index < Count; ++Index) {
        if (MaxValues > 0 && Index >= MaxValues) {
            printf(" ... (%d values)", Count);
            return;
        }
        printf(Index ? ", " : " ");
        int32 Type = Fbx.GetValueType(Field, Index);
        if (Type == FbxValue_String || Type == FbxValue_Raw) {
            char Text[96];
            int32 Length = Fbx.CopyValueString(Field, Index, Text, sizeof(Text));
            for (char *At = Text; *At; ++At) {
                if ((unsigned char)*At < 0x20) *At = '.';
            }
            if (Type == FbxValue_Raw)
                printf("<%d bytes>", Length);
            else
                printf("\"%s%s\"", Text, Length >= (int32)sizeof(Text) ? "..." : "");
        } else if (Type == FbxValue_AsciiArray || IsFbxArrayType(Type)) {
            printf("%c[%lld]", Type, (long long)Fbx.GetArrayCount(Field, Index));
        } else if (Type == FbxValue_Real32 || Type == FbxValue_Real64) {
            printf("%g", Fbx.GetReal64(Field, Index));
        } else if (Type == FbxValue_Bool) {
            char Character = 0;
            Fbx.GetValueChar(Field, Index, &Character);
            if (Character >= 0x20 && Character < 0x7F)
                printf("'%c'", Character);
            else
                printf("%d", (int)(unsigned char)Character);
        } else {
            printf("%lld", (long long)Fbx.GetInt64(Field, Index));
        }
    }
}

int PrintFieldTree(char const *Path, fbx_inspect_options const &Options)
{
    KFbx Fbx;
    if (!Fbx.ProjectOpenFile(Path)) {
        fprintf(stderr, "tessel inspect: %s: %s\n", Path, Fbx.GetErrorText());
        return 1;
    }
    printf("%s: FBX %d, %s%s, %d fields\n", Path, Fbx.GetFileVersion(), Fbx.IsBinary() ? "binary" : "ASCII",
           Fbx.IsBinary() ? (Fbx.IsBigEndian() ? " big-endian" : " little-endian") : "", Fbx.GetFieldCount());
    // Depth-first without recursion: the container limits nesting anyway.
    fbx_field const *Field = Fbx.GetFirstChild(0);
    int32 Depth = 0;
    while (Field) {
        printf("%*s%s:", 2 * Depth, "", Fbx.GetFieldName(Field));
        PrintFieldValues(Fbx, Field, Options.MaxValues);
        printf("\n");
        if (fbx_field const *Child = Fbx.GetFirstChild(Field)) {
            Field = Child;
            ++Depth;
            continue;
        }
        while (Field && !Fbx.GetNextSibling(Field)) {
            Field = Fbx.GetParent(Field);
            --Depth;
        }
        if (Field) Field = Fbx.GetNextSibling(Field);
    }
    return 0;
}

} // namespace

int InspectFBXFile(char const *Path, int ArgumentCount, char **Arguments)
{
    fbx_inspect_options Options;
    for (int Index = 0; Index < ArgumentCount; ++Index) {
        char const *Argument = Arguments[Index];
        if (strcmp(Argument, "-h") == 0 || strcmp(Argument, "--help") == 0) {
            PrintFbxInspectHelp(stdout);
            return 0;
        } else if (strcmp(Argument, "--json") == 0) {
            Options.Json = true;
        } else if (strcmp(Argument, "--fields") == 0) {
            Options.Fields = true;
        } else if ((strcmp(Argument, "--max-values") == 0 || strcmp(Argument, "--max-clusters") == 0) &&
                   Index + 1 < ArgumentCount) {
            int Value = atoi(Arguments[++Index]);
            if (Value < 0) Value = 0;
            (strcmp(Argument, "--max-values") == 0 ? Options.MaxValues : Options.MaxClusters) = Value;
        } else {
            fprintf(stderr, "tessel inspect: unknown option %s for an FBX file\n", Argument);
            PrintFbxInspectHelp(stderr);
            return 2;
        }
    }
    if (!Path) {
        PrintFbxInspectHelp(stderr);
        return 2;
    }
    if (Options.Fields) return PrintFieldTree(Path, Options);

    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    if (!Manager) {
        fprintf(stderr, "tessel inspect: out of memory\n");
        return 1;
    }
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    // The importer lets go of the file's fields after Import: ask about the
    // file in between.
    bool Binary = false;
    bool Ok = Scene && Importer && Importer->Initialize(Path, -1);
    if (Ok) {
        Binary = Importer->IsBinary();
        Ok = Importer->Import(Scene);
    }
    if (!Ok) {
        fprintf(stderr, "tessel inspect: %s: %s\n", Path,
                Importer && Importer->GetLastErrorString()[0] ? Importer->GetLastErrorString()
                                                              : "Corrupted or invalid file.");
        Manager->Destroy();
        return 1;
    }
    int32 Version = Importer->GetFileVersionNumber();
    std::string Creator = Importer->GetCreator();

    KFbxGlobalSettings &Settings = Scene->GetGlobalSettings();
    int32 UpAxis = Settings.FindProperty("UpAxis").Get(), UpSign = Settings.FindProperty("UpAxisSign").Get();
    int32 FrontAxis = Settings.FindProperty("FrontAxis").Get(),
          FrontSign = Settings.FindProperty("FrontAxisSign").Get();
    int32 CoordAxis = Settings.FindProperty("CoordAxis").Get(),
          CoordSign = Settings.FindProperty("CoordAxisSign").Get();
    double Unit = Settings.GetSystemUnit().GetScaleFactor();
    int32 TimeMode = Settings.GetTimeMode();

    fbx_scene_counts Counts;
    CountFBXScene(Scene, &Counts);
    std::string Tree;
    static mesh_entry Meshes[4096];
    int32 MeshCount = 0;
    GatherMeshes(Scene->GetRootNode(), Tree, !Options.Json, 0, Meshes, &MeshCount, 4096);
    if (MeshCount > 4096) MeshCount = 4096;
    int32 TakeCount = Scene->GetTakeInfoCount();

    if (Options.Json) {
        printf("{\"file\": %s, \"version\": %d, \"binary\": %s, \"creator\": %s,\n", JsonString(Path).c_str(), Version,
               Binary ? "true" : "false", JsonString(Creator.c_str()).c_str());
        printf(" \"up_axis\": %d, \"up_axis_sign\": %d, \"front_axis\": %d, \"front_axis_sign\": %d, "
               "\"coord_axis\": %d, \"coord_axis_sign\": %d, \"unit_scale_factor\": %s, \"time_mode\": %d,\n",
               UpAxis, UpSign, FrontAxis, FrontSign, CoordAxis, CoordSign, JsonNumber(Unit).c_str(), TimeMode);
        printf(" \"node_count\": %d, \"mesh_count\": %d, \"control_point_count\": %d, \"polygon_count\": %d, "
               "\"triangle_count\": %d, \"skin_count\": %d, \"skin_cluster_count\": %d,\n",
               Counts.NodeCount, Counts.MeshCount, Counts.ControlPointCount, Counts.PolygonCount, Counts.TriangleCount,
               Counts.SkinCount, Counts.SkinClusterCount);
        printf(" \"meshes\": [");
        for (int32 Index = 0; Index < MeshCount; ++Index) {
            KFbxMesh *Mesh = Meshes[Index].Mesh;
            int32 Clusters = 0;
            for (int32 Skin = 0; Skin < Mesh->GetDeformerCount(FbxDeformer_Skin); ++Skin)
                Clusters += ((KFbxSkin *)Mesh->GetDeformer(Skin, FbxDeformer_Skin))->GetClusterCount();
            printf("%s\n  {\"node\": %s, \"control_points\": %d, \"polygons\": %d, \"layers\": %d, "
                   "\"skin_clusters\": %d}",
                   Index ? "," : "", JsonString(Meshes[Index].Node->GetName()).c_str(), Mesh->GetControlPointsCount(),
                   Mesh->GetPolygonCount(), Mesh->GetLayerCount(), Clusters);
        }
        printf("],\n \"takes\": [");
        for (int32 Index = 0; Index < TakeCount; ++Index) {
            take_summary Take = SummarizeTake(Scene, Scene->GetTakeInfoByIndex(Index));
            printf("%s\n  {\"name\": %s, \"start\": %s, \"stop\": %s, \"curve_count\": %d, \"key_count\": %lld}",
                   Index ? "," : "", JsonString(Take.Name.c_str()).c_str(), JsonNumber(Take.Start).c_str(),
                   JsonNumber(Take.Stop).c_str(), Take.CurveCount, (long long)Take.KeyCount);
        }
        printf("]}\n");
        Manager->Destroy();
        return 0;
    }

    printf("%s: FBX %d, %s\n", Path, Version, Binary ? "binary" : "ASCII");
    printf("  creator     %s\n", Creator.empty() ? "(none)" : Creator.c_str());
    printf("  axes        up %c%s, front %c%s, coord %c%s\n", UpSign < 0 ? '-' : '+', AxisName(UpAxis),
           FrontSign < 0 ? '-' : '+', AxisName(FrontAxis), CoordSign < 0 ? '-' : '+', AxisName(CoordAxis));
    printf("  unit        %g cm\n", Unit);
    printf("  time mode   %d (%g frames a second)\n", TimeMode,
           KTime::GetFrameRate(TimeMode, Settings.CustomFrameRate));
    printf("\nNodes (%d):\n%s", Counts.NodeCount, Tree.c_str());
    printf("\nMeshes (%d): %d control points, %d polygons, %d triangles\n", Counts.MeshCount, Counts.ControlPointCount,
           Counts.PolygonCount, Counts.TriangleCount);
    for (int32 Index = 0; Index < MeshCount; ++Index) {
        KFbxMesh *Mesh = Meshes[Index].Mesh;
        printf("  %s: %d control points, %d polygons%s, %d layers\n", Meshes[Index].Node->GetName(),
               Mesh->GetControlPointsCount(), Mesh->GetPolygonCount(), Mesh->IsTriangleMesh() ? " (all triangles)" : "",
               Mesh->GetLayerCount());
        PrintLayers(Mesh);
        for (int32 Skin = 0; Skin < Mesh->GetDeformerCount(FbxDeformer_Skin); ++Skin) {
            KFbxSkin *Deformer = (KFbxSkin *)Mesh->GetDeformer(Skin, FbxDeformer_Skin);
            printf("      skin %d: %d clusters\n", Skin, Deformer->GetClusterCount());
            for (int32 Cluster = 0; Cluster < Deformer->GetClusterCount(); ++Cluster) {
                if (Options.MaxClusters > 0 && Cluster >= Options.MaxClusters) {
                    printf("        ...\n");
                    break;
                }
                KFbxCluster *Item = Deformer->GetCluster(Cluster);
                double Sum = 0.0;
                for (int32 Weight = 0; Weight < Item->GetControlPointIndicesCount(); ++Weight)
                    Sum += Item->GetControlPointWeights()[Weight];
                printf("        %s: %d weights (sum %.4g)\n",
                       Item->GetLink() ? Item->GetLink()->GetName() : "(no link)", Item->GetControlPointIndicesCount(),
                       Sum);
            }
        }
    }
    printf("\nTakes (%d):\n", TakeCount);
    for (int32 Index = 0; Index < TakeCount; ++Index) {
        take_summary Take = SummarizeTake(Scene, Scene->GetTakeInfoByIndex(Index));
        printf("  \"%s\": %.4f s to %.4f s, %d curves, %lld keys\n", Take.Name.c_str(), Take.Start, Take.Stop,
               Take.CurveCount, (long long)Take.KeyCount);
    }
    Manager->Destroy();
    return 0;
}
