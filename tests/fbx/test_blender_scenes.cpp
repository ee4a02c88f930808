// Rigged, animated scenes written by Blender, checked against the values
// Blender computed when it wrote them: hierarchy, bind matrices of the skin
// clusters, and world matrices and local values sampled through the takes.
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "fbx_scene_test_helpers.h"
#include "support/test_log_capture.h"

namespace {

// Just enough JSON for the reference files.
struct json
{
    enum kind
    {
        Null,
        Bool,
        Number,
        String,
        Array,
        Object
    } Kind = Null;
    double Value = 0.0;
    std::string Text;
    std::vector<json> Items;
    std::vector<std::pair<std::string, json>> Members;

    json const &operator[](char const *Name) const
    {
        static json const Missing;
        for (auto const &Member : Members)
            if (Member.first == Name) return Member.second;
        return Missing;
    }
    json const &operator[](size_t Index) const { return Items[Index]; }
};

struct json_parser
{
    char const *At;
    void Skip()
    {
        while (*At == ' ' || *At == '\n' || *At == '\r' || *At == '\t' || *At == ',' || *At == ':') ++At;
    }
    std::string ParseString()
    {
        std::string Result;
        for (++At; *At && *At != '"'; ++At) {
            if (*At == '\\' && At[1]) ++At;
            Result += *At;
        }
        if (*At) ++At;
        return Result;
    }
    json Parse()
    {
        Skip();
        json Result;
        if (*At == '{') {
            Result.Kind = json::Object;
            ++At;
            for (Skip(); *At && *At != '}'; Skip()) {
                std::string Name = ParseString();
                Result.Members.emplace_back(Name, Parse());
            }
            if (*At) ++At;
        } else if (*At == '[') {
            Result.Kind = json::Array;
            ++At;
            for (Skip(); *At && *At != ']'; Skip()) Result.Items.push_back(Parse());
            if (*At) ++At;
        } else if (*At == '"') {
            Result.Kind = json::String;
            Result.Text = ParseString();
        } else if (strncmp(At, "null", 4) == 0)
            At += 4;
        else if (strncmp(At, "true", 4) == 0) {
            Result.Kind = json::Bool;
            Result.Value = 1;
            At += 4;
        } else if (strncmp(At, "false", 5) == 0) {
            Result.Kind = json::Bool;
            At += 5;
        } else {
            char *End = nullptr;
            Result.Kind = json::Number;
            Result.Value = strtod(At, &End);
            At = (End && End != At) ? End : At + 1;
        }
        return Result;
    }
};

bool ReadJson(std::string const &Path, json &Result)
{
    std::ifstream File(Path);
    if (!File) return false;
    std::stringstream Buffer;
    Buffer << File.rdbuf();
    std::string Text = Buffer.str();
    json_parser Parser{Text.c_str()};
    Result = Parser.Parse();
    return Result.Kind == json::Object;
}

// Blender works in 32-bit floats and the file rounds to 6 decimals.
void ExpectRowsNear(AffineMatrix const &Actual, json const &Rows, std::string const &What)
{
    ASSERT_EQ(Rows.Items.size(), 4u) << What;
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column) {
            double Expected = Rows[Row][Column].Value;
            EXPECT_NEAR(Actual.mData[Row][Column], Expected, 2e-4 + 2e-5 * std::fabs(Expected))
                << What << " [" << Row << "][" << Column << "]";
        }
}

AffineMatrix FromRows(json const &Rows)
{
    AffineMatrix Result;
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column) Result.mData[Row][Column] = Rows[Row][Column].Value;
    return Result;
}

KFbxCluster *FindCluster(KFbxMesh *Mesh, std::string const &Bone)
{
    KFbxSkin *Skin = Mesh ? (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin) : nullptr;
    for (int32 Index = 0; Skin && Index < Skin->GetClusterCount(); ++Index) {
        KFbxCluster *Cluster = Skin->GetCluster(Index);
        if (Cluster->GetLink() && Bone == Cluster->GetLink()->GetName()) return Cluster;
    }
    return nullptr;
}

void CheckAgainstBlender(std::string const &Base)
{
    std::string FbxPath = std::string(TESSEL_SOURCE_DIR) + "/" + Base + ".fbx";
    json Reference;
    if (!ReadJson(std::string(TESSEL_SOURCE_DIR) + "/" + Base + ".json", Reference)) {
        GTEST_SKIP() << "reference values of " << Base << " are missing";
    }
    int32 LiveBefore = LiveBlocks();
    {
        KFbxSdkManager *Manager = nullptr;
        KFbxScene *Scene = nullptr;
        char Error[256];
        ASSERT_TRUE(LoadFBXSceneFromFile(FbxPath.c_str(), &Manager, &Scene, Error, sizeof(Error)))
            << FbxPath << ": " << Error;
        loaded_scene Owner;
        Owner.Manager = Manager;
        Owner.Scene = Scene;
        KFbxNode *Root = Scene->GetRootNode();
        EXPECT_EQ(Scene->GetGlobalSettings().GetFrameTimeMode(), FbxTimeMode_30);

        for (json const &Node : Reference["nodes"].Items) {
            KFbxNode *Found = FindFbxNode(Root, Node["name"].Text.c_str());
            ASSERT_NE(Found, nullptr) << Node["name"].Text;
            ASSERT_NE(Found->GetParent(), nullptr);
            if (Node["parent"].Kind == json::String)
                EXPECT_EQ(Node["parent"].Text, Found->GetParent()->GetName());
            else
                EXPECT_EQ(Found->GetParent(), Root) << Node["name"].Text;
            EXPECT_EQ(Found->GetMesh() != nullptr, Node["type"].Text == "Mesh") << Node["name"].Text;
        }

        for (json const &MeshReference : Reference["meshes"].Items) {
            KFbxNode *MeshNode = FindFbxNode(Root, MeshReference["name"].Text.c_str());
            ASSERT_NE(MeshNode, nullptr);
            KFbxMesh *Mesh = MeshNode->GetMesh();
            ASSERT_NE(Mesh, nullptr);
            EXPECT_EQ(Mesh->GetControlPointsCount(), (int32)MeshReference["control_points"].Value);
            EXPECT_EQ(Mesh->GetPolygonCount(), (int32)MeshReference["polygons"].Value);
            EXPECT_EQ(Mesh->GetPolygonVertexCount(), (int32)MeshReference["polygon_vertices"].Value);
            for (json const &ClusterReference : MeshReference["clusters"].Items) {
                std::string Bone = ClusterReference["bone"].Text;
                KFbxCluster *Cluster = FindCluster(Mesh, Bone);
                ASSERT_NE(Cluster, nullptr) << Bone;
                EXPECT_EQ(Cluster->GetControlPointIndicesCount(), (int32)ClusterReference["control_points"].Value)
                    << Bone;
                double Sum = 0.0;
                for (int32 Index = 0; Index < Cluster->GetControlPointIndicesCount(); ++Index)
                    Sum += Cluster->GetControlPointWeights()[Index];
                EXPECT_NEAR(Sum, ClusterReference["weight_sum"].Value, 1e-3) << Bone;
                AffineMatrix Matrix;
                ExpectRowsNear(Cluster->GetTransformLinkMatrix(Matrix), ClusterReference["transform_link"],
                               Bone + " link");
                // The answer is the inverse of the stored Transform.
                ExpectRowsNear(Cluster->GetTransformMatrix(Matrix).Inverse(), ClusterReference["transform"],
                               Bone + " transform");
                // The rest pose of a bone is its cluster's link matrix.
                for (json const &Node : Reference["nodes"].Items)
                    if (Node["name"].Text == Bone)
                        ExpectRowsNear(FromRows(ClusterReference["transform_link"]), Node["bind_world"],
                                       Bone + " bind world");
            }
        }

        for (json const &Take : Reference["takes"].Items) {
            char const *Name = Take["name"].Text.c_str();
            KFbxTakeInfo *Info = Scene->GetTakeInfo(Name);
            ASSERT_NE(Info, nullptr) << Name;
            double FramesPerSecond = Take["fps"].Value;
            int64 FrameTicks = KTime::GetTicksPerFrame(FbxTimeMode_30);
            EXPECT_EQ(Info->mLocalTimeSpan.GetStart().Get(), (int64)Take["start_frame"].Value * FrameTicks) << Name;
            EXPECT_EQ(Info->mLocalTimeSpan.GetStop().Get(), (int64)Take["end_frame"].Value * FrameTicks) << Name;
            EXPECT_EQ(Info->mLocalTimeSpan.GetDuration().GetFrame(true, 0),
                      (int64)(Take["end_frame"].Value - Take["start_frame"].Value));
            EXPECT_EQ(FramesPerSecond, 30.0);
            Scene->SetCurrentTake(Name);
            for (json const &Sample : Take["samples"].Items) {
                KTime Time((int64)Sample["frame"].Value * FrameTicks);
                for (auto const &Entry : Sample["nodes"].Members) {
                    KFbxNode *Node = FindFbxNode(Root, Entry.first.c_str());
                    ASSERT_NE(Node, nullptr) << Entry.first;
                    std::string What =
                        std::string(Name) + " frame " + std::to_string((int)Sample["frame"].Value) + " " + Entry.first;
                    ExpectRowsNear(Node->GetGlobalTransformAtTime(Time), Entry.second["world"], What);
                    KFbxVector4 Translation = Node->GetLocalTranslation(Time);
                    KFbxVector4 Scaling = Node->GetLocalScaling(Time);
                    for (int Axis = 0; Axis < 3; ++Axis) {
                        double T = Entry.second["translation"][Axis].Value, S = Entry.second["scale"][Axis].Value;
                        EXPECT_NEAR(Translation[Axis], T, 1e-4 + 1e-5 * std::fabs(T)) << What;
                        EXPECT_NEAR(Scaling[Axis], S, 1e-4 + 1e-5 * std::fabs(S)) << What;
                    }
                }
            }
        }
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

} // namespace

TEST(BlenderScenes, BranchingRigMatchesBlender)
{
    CheckAgainstBlender("tests/data/blender/branching_rig");
}

TEST(BlenderScenes, ScaledTailMatchesBlender)
{
    CheckAgainstBlender("tests/data/blender/tail_scale");
}

TEST(BlenderScenes, BundledArmExampleMatchesBlender)
{
    CheckAgainstBlender("examples/rigged_arm");
}
