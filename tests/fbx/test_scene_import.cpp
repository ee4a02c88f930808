// Importing whole scenes: one scene written in every encoding gives the same
// model, refused files give their messages and leave nothing allocated, and
// meshes keep their layers and skins through triangulation.
#include <cstdio>
#include <sstream>

#include "fbx_scene_test_helpers.h"
#include "support/test_log_capture.h"

namespace {

void DigestMatrix(std::ostringstream &Out, AffineMatrix const &Matrix)
{
    char Text[64];
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column) {
            snprintf(Text, sizeof(Text), "%.6f ", Matrix.mData[Row][Column] + 0.0);
            Out << Text;
        }
    Out << "\n";
}

void DigestNode(std::ostringstream &Out, KFbxNode *Node, std::vector<int64_t> const &Times, int Depth)
{
    Out << std::string(Depth, ' ') << Node->GetName() << "\n";
    DigestMatrix(Out, Node->GetGlobalTransformDefault());
    for (int64_t Time : Times) DigestMatrix(Out, Node->GetGlobalTransformAtTime(KTime(Time)));
    if (KFbxMesh *Mesh = Node->GetMesh()) {
        Out << "mesh " << Mesh->GetControlPointsCount() << " points " << Mesh->GetPolygonCount() << " polygons\n";
        for (int32 Point = 0; Point < Mesh->GetControlPointsCount(); ++Point)
            Out << Mesh->GetControlPoints()[Point][0] << "," << Mesh->GetControlPoints()[Point][1] << ","
                << Mesh->GetControlPoints()[Point][2] << " ";
        for (int32 Polygon = 0; Polygon < Mesh->GetPolygonCount(); ++Polygon) {
            Out << "\np";
            for (int32 Corner = 0; Corner < Mesh->GetPolygonSize(Polygon); ++Corner) {
                KFbxVector4 Normal;
                Mesh->GetPolygonVertexNormal(Polygon, Corner, Normal);
                Out << " " << Mesh->GetPolygonVertex(Polygon, Corner) << "/" << Mesh->GetTextureUVIndex(Polygon, Corner)
                    << "/" << Normal[0] << "," << Normal[1] << "," << Normal[2];
            }
        }
        Out << "\nuv sets " << Mesh->GetTextureLayerCount() << " color sets "
            << Mesh->GetLayerCount(FbxLayerElement_VertexColor) << "\n";
        for (int32 Skin = 0; Skin < Mesh->GetDeformerCount(FbxDeformer_Skin); ++Skin) {
            KFbxSkin *Deformer = (KFbxSkin *)Mesh->GetDeformer(Skin, FbxDeformer_Skin);
            for (int32 Index = 0; Index < Deformer->GetClusterCount(); ++Index) {
                KFbxCluster *Cluster = Deformer->GetCluster(Index);
                Out << "cluster " << (Cluster->GetLink() ? Cluster->GetLink()->GetName() : "-") << ":";
                for (int32 Point = 0; Point < Cluster->GetControlPointIndicesCount(); ++Point)
                    Out << " " << Cluster->GetControlPointIndices()[Point] << "*"
                        << Cluster->GetControlPointWeights()[Point];
                Out << "\n";
                AffineMatrix Matrix;
                DigestMatrix(Out, Cluster->GetTransformMatrix(Matrix));
                DigestMatrix(Out, Cluster->GetTransformLinkMatrix(Matrix));
            }
        }
    }
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index)
        DigestNode(Out, Node->GetChild(Index), Times, Depth + 1);
}

std::string DigestScene(KFbxScene *Scene)
{
    std::ostringstream Out;
    KStringArray Names;
    Scene->FillTakeNameArray(Names);
    std::vector<int64_t> Times;
    for (int32 Index = 0; Index < Names.GetCount(); ++Index) {
        Out << "take " << Names[Index];
        if (KFbxTakeInfo *Info = Scene->GetTakeInfo(Names[Index])) {
            Out << " " << Info->mLocalTimeSpan.GetStart().Get() << ".." << Info->mLocalTimeSpan.GetStop().Get();
            for (int Step = 0; Step <= 6; ++Step)
                Times.push_back(Info->mLocalTimeSpan.GetStart().Get() +
                                Info->mLocalTimeSpan.GetDuration().Get() * Step / 5); // one past the end
            Scene->SetCurrentTake(Names[Index]);
        }
        Out << "\n";
    }
    KFbxGlobalSettings &Settings = Scene->GetGlobalSettings();
    Out << "axes " << Settings.FindProperty("UpAxis").Get() << Settings.FindProperty("FrontAxisSign").Get()
        << Settings.FindProperty("CoordAxis").Get() << " unit " << Settings.GetSystemUnit().GetScaleFactor() << " mode "
        << Settings.GetTimeMode() << "\n";
    DigestNode(Out, Scene->GetRootNode(), Times, 0);
    return Out.str();
}

std::vector<uint8_t> Bytes(std::string const &Text)
{
    return std::vector<uint8_t>(Text.begin(), Text.end());
}

} // namespace

TEST(SceneImport, EveryEncodingOfOneSceneGivesTheSameModel)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.UnitScaleFactor = 2.54;
    struct variant
    {
        char const *Name;
        fbx_test_format Format;
    };
    std::vector<variant> Variants = {
        {"6100 binary", FbxTestBinary(6100)},
        {"6100 big-endian", FbxTestBinary(6100, true)},
        {"6100 ascii", FbxTestAscii(6100)},
        {"7400 binary", FbxTestBinary(7400)},
        {"7400 big-endian", FbxTestBinary(7400, true)},
        {"7400 zlib arrays", FbxTestBinary(7400, false, 16)},
        {"7500 wide records", FbxTestBinary(7500, false, 64)},
        {"7500 big-endian", FbxTestBinary(7500, true)},
        {"7400 ascii", FbxTestAscii(7400)},
    };
    int32 LiveBefore = LiveBlocks();
    std::string Reference;
    for (variant const &Variant : Variants) {
        loaded_scene Loaded;
        ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, Variant.Format), Loaded))
            << Variant.Name << ": " << Loaded.Error;
        std::string Digest = DigestScene(Loaded.Scene);
        if (Reference.empty()) {
            Reference = Digest;
            EXPECT_NE(Digest.find("cluster Upper"), std::string::npos) << Digest;
            EXPECT_NE(Digest.find("take Wave"), std::string::npos) << Digest;
            EXPECT_NE(Digest.find("unit 2.54"), std::string::npos) << Digest;
        } else {
            EXPECT_EQ(Digest, Reference) << Variant.Name;
        }
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore) << "import and destroy leave blocks behind";
}

TEST(SceneImport, RefusedFilesSayWhyAndLeaveNothingBehind)
{
    log_capture Log;
    int32 LiveBefore = LiveBlocks();
    fbx_test_scene Scene = MakeFbxTestArmScene();

    fbx_test_field Future = BuildFbx7Scene(Scene, 7400);
    Future.Find("FBXHeaderExtension")->Find("FBXVersion")->Values[0] = FbxI(8000);
    fbx_test_format FutureFormat = FbxTestBinary(8000);
    fbx_test_field Encrypted = BuildFbx7Scene(Scene, 7400);
    Encrypted.Find("FBXHeaderExtension")->Find("EncryptionType")->Values[0] = FbxI(1);
    fbx_test_field Ancient = BuildFbx6Scene(Scene, 6100);
    Ancient.Find("FBXHeaderExtension")->Find("FBXVersion")->Values[0] = FbxI(3000);

    struct refused
    {
        std::vector<uint8_t> Bytes;
        char const *Message;
    };
    std::vector<refused> Cases = {
        {Bytes("this is not an FBX file at all"), "Corrupted or invalid file."},
        {{}, "Corrupted or invalid file."},
        {WriteFbxTestFields(Future, FutureFormat), "FBX File version 8000 is not supported in this product"},
        {WriteFbxTestFields(Encrypted, FbxTestBinary(7400)), "Encryption type is not supported"},
        {WriteFbxTestFields(Ancient, FbxTestBinary(6100)), "FBX File version 3000 is not supported in this product"},
    };
    for (refused const &Case : Cases) {
        loaded_scene Loaded;
        EXPECT_FALSE(LoadFbxBytes(Case.Bytes, Loaded));
        EXPECT_EQ(Loaded.Error, Case.Message);
    }
    // A missing path fails the same way through the one-call loader.
    KFbxSdkManager *Manager = nullptr;
    KFbxScene *Loaded = nullptr;
    char Error[256];
    EXPECT_FALSE(LoadFBXSceneFromFile("/nonexistent/scene.fbx", &Manager, &Loaded, Error, sizeof(Error)));
    EXPECT_STREQ(Error, "Corrupted or invalid file.");
    EXPECT_EQ(Manager, nullptr);

    // Truncated files never crash; whatever loads is released in full.
    std::vector<uint8_t> Whole = WriteFbxTestScene(Scene, FbxTestBinary(7400, false, 16));
    for (size_t Cut = 27; Cut < Whole.size(); Cut += Whole.size() / 37) {
        loaded_scene Part;
        LoadFbxBytes(std::vector<uint8_t>(Whole.begin(), Whole.begin() + Cut), Part);
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}

TEST(SceneImport, PolygonListsLayersAndSkinsThroughTriangulation)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.Meshes[0].EndMarkOnLastPolygon = false;
    Scene.Meshes[0].Polygons.push_back({0, 1, 5, 9, 8}); // a pentagon last, without its end mark
    for (int Corner = 0; Corner < 5; ++Corner) {
        Scene.Meshes[0].Normals.insert(Scene.Meshes[0].Normals.end(), {0.0, 0.0, 1.0 + Corner});
        Scene.Meshes[0].UVIndex.push_back(Corner);
    }
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, FbxTestBinary(7400)), Loaded)) << Loaded.Error;
    KFbxNode *Node = FindFbxNode(Loaded.Scene->GetRootNode(), "Arm");
    ASSERT_NE(Node, nullptr);
    KFbxMesh *Mesh = Node->GetMesh();
    ASSERT_NE(Mesh, nullptr);
    ASSERT_EQ(Mesh->GetPolygonCount(), (int32)Scene.Meshes[0].Polygons.size());
    EXPECT_EQ(Mesh->GetPolygonSize(Mesh->GetPolygonCount() - 1), 5);
    EXPECT_EQ(Mesh->GetPolygonVertex(Mesh->GetPolygonCount() - 1, 4), 8);
    EXPECT_EQ(Mesh->GetPolygonVertex(0, 4), -1);
    EXPECT_EQ(Mesh->GetPolygonVertex(-1, 0), -1);
    EXPECT_FALSE(Mesh->IsTriangleMesh());

    // What each polygon corner reads before triangulation.
    struct corner
    {
        int32 Point, UV;
        double NormalZ;
    };
    std::vector<std::vector<corner>> Before;
    for (int32 Polygon = 0; Polygon < Mesh->GetPolygonCount(); ++Polygon) {
        Before.emplace_back();
        for (int32 Corner = 0; Corner < Mesh->GetPolygonSize(Polygon); ++Corner) {
            KFbxVector4 Normal;
            Mesh->GetPolygonVertexNormal(Polygon, Corner, Normal);
            Before.back().push_back(
                {Mesh->GetPolygonVertex(Polygon, Corner), Mesh->GetTextureUVIndex(Polygon, Corner), Normal[2]});
        }
    }

    KFbxGeometryConverter Converter(Loaded.Manager);
    ASSERT_TRUE(Converter.TriangulateInPlace(Node));
    KFbxMesh *Triangles = Node->GetMesh();
    ASSERT_NE(Triangles, nullptr);
    EXPECT_TRUE(Triangles->IsTriangleMesh());
    EXPECT_EQ(Triangles->GetNode(), Node);
    EXPECT_EQ(Triangles->GetDeformerCount(FbxDeformer_Skin), 1);
    EXPECT_EQ(Triangles->GetControlPointsCount(), 12);

    // Zig-zag order: a quad gives (0 1 2) (2 3 0), a pentagon adds (0 3 4).
    int32 const Pattern[3][3] = {{0, 1, 2}, {2, 3, 0}, {0, 3, 4}};
    int32 Triangle = 0;
    for (std::vector<corner> const &Polygon : Before) {
        int32 Count = (int32)Polygon.size() - 2;
        for (int32 Made = 0; Made < Count; ++Made, ++Triangle) {
            for (int32 Corner = 0; Corner < 3; ++Corner) {
                corner const &Source = Polygon[Count == 1 ? Corner : Pattern[Made][Corner]];
                KFbxVector4 Normal;
                Triangles->GetPolygonVertexNormal(Triangle, Corner, Normal);
                EXPECT_EQ(Triangles->GetPolygonVertex(Triangle, Corner), Source.Point) << "triangle " << Triangle;
                EXPECT_EQ(Triangles->GetTextureUVIndex(Triangle, Corner), Source.UV) << "triangle " << Triangle;
                EXPECT_EQ(Normal[2], Source.NormalZ) << "triangle " << Triangle;
            }
        }
    }
    EXPECT_EQ(Triangles->GetPolygonCount(), Triangle);

    int32 Hexagon[12];
    ASSERT_EQ(TriangulatePolygonCorners(6, Hexagon), 4);
    int32 const Expected[12] = {0, 1, 2, 2, 3, 0, 0, 3, 5, 3, 4, 5};
    for (int Index = 0; Index < 12; ++Index) EXPECT_EQ(Hexagon[Index], Expected[Index]);
}

TEST(SceneImport, ClusterMatricesAndMissingLayers)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    Scene.Meshes[0].Normals.clear();
    FbxTestTranslation(Scene.Meshes[0].Clusters[1].Transform, -2.0, 0.5, 0.0);
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, FbxTestBinary(6100)), Loaded)) << Loaded.Error;
    KFbxMesh *Mesh = FindFbxNode(Loaded.Scene->GetRootNode(), "Arm")->GetMesh();
    ASSERT_NE(Mesh, nullptr);
    KFbxVector4 Normal;
    EXPECT_FALSE(Mesh->GetPolygonVertexNormal(0, 0, Normal));
    EXPECT_EQ(Normal, KFbxVector4());

    // The cluster answers the inverse of the stored Transform.
    KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
    ASSERT_NE(Skin, nullptr);
    ASSERT_EQ(Skin->GetClusterCount(), 2);
    KFbxCluster *Cluster = Skin->GetCluster(1);
    ASSERT_NE(Cluster->GetLink(), nullptr);
    EXPECT_STREQ(Cluster->GetLink()->GetName(), "Lower");
    AffineMatrix Inverse;
    Cluster->GetTransformMatrix(Inverse);
    KFbxVector4 Moved = Inverse.MultT(KFbxVector4(0.0, 0.0, 0.0));
    EXPECT_NEAR(Moved[0], 2.0, 1e-12);
    EXPECT_NEAR(Moved[1], -0.5, 1e-12);

    // Clusters can be taken out and put back in another order.
    KFbxCluster *First = Skin->GetCluster(0);
    EXPECT_EQ(Skin->RemoveCluster(First), 0);
    Skin->AddCluster(First);
    EXPECT_EQ(Skin->GetCluster(0), Cluster);
    EXPECT_EQ(Skin->GetCluster(1), First);
}

TEST(SceneImport, InstancedMeshesTriangulateForEveryNode)
{
    int32 LiveBefore = LiveBlocks();
    {
        fbx_test_scene Scene = MakeFbxTestArmScene();
        fbx_test_field Tree = BuildFbx7Scene(Scene, 7400);
        int64_t Geometry = -1;
        for (fbx_test_field &Object : Tree.Find("Objects")->Children)
            if (Object.Name == "Geometry") Geometry = Object.Values[0].Integer;
        ASSERT_GT(Geometry, 0);
        Tree.Find("Objects")
            ->Add("Model", {FbxL(777), FbxName("Model", "Copy"), FbxS("Mesh")})
            .Add("Version", {FbxI(232)});
        Tree.Find("Connections")->Add("C", {FbxS("OO"), FbxL(777), FbxL(0)});
        Tree.Find("Connections")->Add("C", {FbxS("OO"), FbxL(Geometry), FbxL(777)});
        loaded_scene Loaded;
        ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(Tree, FbxTestBinary(7400)), Loaded)) << Loaded.Error;
        KFbxNode *Nodes[2] = {FindFbxNode(Loaded.Scene->GetRootNode(), "Arm"),
                              FindFbxNode(Loaded.Scene->GetRootNode(), "Copy")};
        ASSERT_NE(Nodes[0], nullptr);
        ASSERT_NE(Nodes[1], nullptr);
        ASSERT_EQ(Nodes[0]->GetMesh(), Nodes[1]->GetMesh());
        KFbxGeometryConverter Converter(Loaded.Manager);
        for (KFbxNode *Node : Nodes) {
            ASSERT_TRUE(Converter.TriangulateInPlace(Node));
            KFbxMesh *Mesh = Node->GetMesh();
            EXPECT_TRUE(Mesh->IsTriangleMesh());
            EXPECT_EQ(Mesh->GetNode(), Node);
            EXPECT_EQ(Mesh->GetDeformerCount(FbxDeformer_Skin), 1);
            EXPECT_EQ(Mesh->GetTextureLayerCount(), 1);
            KFbxVector4 Normal;
            EXPECT_TRUE(Mesh->GetPolygonVertexNormal(0, 0, Normal));
            EXPECT_NE(Mesh->GetTextureUVIndex(0, 0), -1);
        }
        EXPECT_NE(Nodes[0]->GetMesh(), Nodes[1]->GetMesh());
    }
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}
