// The scene model's own rules: layer elements as files lay them out, take
// names and the current take, attributes, the writer registry and the
// release of everything with the manager.
#include "fbx_scene_test_helpers.h"
#include "support/test_log_capture.h"

namespace {

fbx_test_field LayeredMeshFile()
{
    fbx_test_field Root;
    Root.Add("FBXHeaderExtension").Add("FBXVersion", {FbxI(7400)});
    fbx_test_field &Objects = Root.Add("Objects");
    fbx_test_field &Model = Objects.Add("Model", {FbxL(1), FbxName("Model", "Quad"), FbxS("Mesh")});
    Model.Add("Version", {FbxI(232)});
    fbx_test_field &Geometry = Objects.Add("Geometry", {FbxL(2), FbxName("Geometry", "Quad"), FbxS("Mesh")});
    Geometry.Add("Vertices", {FbxArrayD({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0})});
    Geometry.Add("PolygonVertexIndex", {FbxArrayI({0, 1, 2, ~3})});
    auto Element = [&](char const *Kind, int Number, char const *Mapping, char const *Reference) -> fbx_test_field & {
        fbx_test_field &Field = Geometry.Add(Kind, {FbxI(Number)});
        Field.Add("Version", {FbxI(101)});
        Field.Add("Name", {FbxS(std::string("set") + std::to_string(Number))});
        Field.Add("MappingInformationType", {FbxS(Mapping)});
        Field.Add("ReferenceInformationType", {FbxS(Reference)});
        return Field;
    };
    fbx_test_field &Normals = Element("LayerElementNormal", 0, "ByPolygon", "IndexToDirect");
    Normals.Add("Normals", {FbxArrayD({0, 0, -1, 0, 0, 1})});
    Normals.Add("NormalsIndex", {FbxArrayI({1})});
    fbx_test_field &Direct = Element("LayerElementUV", 0, "ByPolygonVertex", "Direct");
    Direct.Add("UV", {FbxArrayD({0, 0, 1, 0, 1, 1, 0, 1})});
    fbx_test_field &ByPoint = Element("LayerElementUV", 1, "ByVertice", "IndexToDirect");
    ByPoint.Add("UV", {FbxArrayD({0.5, 0.5, 0.25, 0.25})});
    ByPoint.Add("UVIndex", {FbxArrayI({1, 0, 7, 1})}); // 7 leads nowhere
    fbx_test_field &Colors = Element("LayerElementColor", 0, "ByPolygonVertex", "IndexToDirect");
    Colors.Add("Colors", {FbxArrayD({1, 0, 0, 1, 0, 1, 0, 1})});
    Colors.Add("ColorIndex", {FbxArrayI({0, 1, 0, 1})});
    fbx_test_field &Layer0 = Geometry.Add("Layer", {FbxI(0)});
    for (auto Entry : {std::make_pair("LayerElementNormal", 0), std::make_pair("LayerElementUV", 0),
                       std::make_pair("LayerElementColor", 0)}) {
        fbx_test_field &Use = Layer0.Add("LayerElement");
        Use.Add("Type", {FbxS(Entry.first)});
        Use.Add("TypedIndex", {FbxI(Entry.second)});
    }
    fbx_test_field &Use = Geometry.Add("Layer", {FbxI(1)}).Add("LayerElement");
    Use.Add("Type", {FbxS("LayerElementUV")});
    Use.Add("TypedIndex", {FbxI(1)});
    fbx_test_field &Connections = Root.Add("Connections");
    Connections.Add("C", {FbxS("OO"), FbxL(2), FbxL(1)});
    Connections.Add("C", {FbxS("OO"), FbxL(1), FbxL(0)});
    return Root;
}

} // namespace

TEST(SceneModel, LayerElementsKeepTheirMappingAndUVSetsReadThroughIndices)
{
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(LayeredMeshFile(), FbxTestAscii(7400)), Loaded)) << Loaded.Error;
    KFbxMesh *Mesh = FindFbxNode(Loaded.Scene->GetRootNode(), "Quad")->GetMesh();
    ASSERT_NE(Mesh, nullptr);
    EXPECT_STREQ(Mesh->GetName(), "Quad");
    EXPECT_EQ(Mesh->GetLayerCount(), 2);
    EXPECT_EQ(Mesh->GetTextureLayerCount(), 2);
    EXPECT_EQ(Mesh->GetLayerCount(FbxLayerElement_VertexColor), 1);
    EXPECT_EQ(Mesh->GetLayerCount(FbxLayerElement_Normal), 1);

    // Normals by polygon through their index.
    for (int32 Corner = 0; Corner < 4; ++Corner) {
        KFbxVector4 Normal;
        EXPECT_TRUE(Mesh->GetPolygonVertexNormal(0, Corner, Normal));
        EXPECT_EQ(Normal[2], 1.0);
    }
    // The direct UV set answers its corner positions; the set by control
    // point answers through the control point, and a stray index reads as none.
    KFbxLayer *Second = Mesh->GetLayer(1, FbxLayerElement_TextureDiffuse);
    ASSERT_NE(Second, nullptr);
    KFbxLayerElementUV *ByPoint =
        static_cast<KFbxLayerElementUV *>(Second->GetLayerElementOfType(FbxLayerElement_TextureDiffuse));
    ASSERT_NE(ByPoint, nullptr);
    EXPECT_STREQ(ByPoint->GetName(), "set1");
    int32 const ExpectedSecond[4] = {1, 0, -1, 1};
    for (int32 Corner = 0; Corner < 4; ++Corner) {
        EXPECT_EQ(Mesh->GetTextureUVIndex(0, Corner), Corner);
        EXPECT_EQ(ByPoint->GetIndexArray().GetAt(Corner), ExpectedSecond[Corner]);
    }
    EXPECT_EQ(ByPoint->GetDirectArray().GetAt(1)[0], 0.25);
    EXPECT_EQ(Mesh->GetTextureUVIndex(0, 4), -1);
    EXPECT_EQ(Mesh->GetLayer(0)->GetLayerElementOfType(FbxLayerElement_UV), nullptr) << "only texture channels";

    // Vertex colors stay as the file stores them.
    KFbxLayerElementVertexColor *Colors = Mesh->GetLayer(0, FbxLayerElement_VertexColor)->GetVertexColors();
    ASSERT_NE(Colors, nullptr);
    EXPECT_EQ(Colors->GetMappingMode(), FbxMapping_ByPolygonVertex);
    EXPECT_EQ(Colors->GetReferenceMode(), FbxReference_IndexToDirect);
    ASSERT_EQ(Colors->GetDirectArray().GetCount(), 2);
    EXPECT_EQ(Colors->GetDirectArray()[1], KFbxColor(0, 1, 0, 1));

    // After triangulation the by-polygon normal repeats for both triangles.
    KFbxNode *Node = Mesh->GetNode();
    KFbxGeometryConverter Converter(Loaded.Manager);
    ASSERT_TRUE(Converter.TriangulateInPlace(Node));
    Mesh = Node->GetMesh();
    ASSERT_EQ(Mesh->GetPolygonCount(), 2);
    KFbxVector4 Normal;
    EXPECT_TRUE(Mesh->GetPolygonVertexNormal(1, 2, Normal));
    EXPECT_EQ(Normal[2], 1.0);
    EXPECT_EQ(Mesh->GetTextureUVIndex(1, 1), 3);
}

TEST(SceneModel, TakeNamesCurrentTakeAndMissingTimes)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    fbx_test_take Second = Scene.Takes[0];
    Second.Name = "Idle";
    Second.WriteLocalTime = false;
    Scene.Takes.push_back(Second);
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, FbxTestBinary(6100)), Loaded)) << Loaded.Error;
    KStringArray Names;
    Loaded.Scene->FillTakeNameArray(Names);
    ASSERT_EQ(Names.GetCount(), 3);
    EXPECT_STREQ(Names[0], "Default");
    EXPECT_STREQ(Names[1], "Wave");
    EXPECT_STREQ(Names[2], "Idle");
    EXPECT_EQ(Loaded.Scene->GetTakeInfo("wave"), nullptr) << "names match exactly";
    ASSERT_NE(Loaded.Scene->GetTakeInfo("Idle"), nullptr);
    EXPECT_EQ(Loaded.Scene->GetTakeInfo("Idle")->mLocalTimeSpan.GetDuration().Get(), 0);

    EXPECT_FALSE(Loaded.Scene->SetCurrentTake("Missing"));
    EXPECT_STREQ(Loaded.Scene->GetLastErrorString(), "Not all nodes have a take node called Missing");
    EXPECT_STREQ(Loaded.Scene->GetCurrentTakeName(), "Missing");
    KFbxNode *Lower = FindFbxNode(Loaded.Scene->GetRootNode(), "Lower");
    EXPECT_EQ(Lower->GetLocalRotation(KTime(FbxFrameTicks(10))), Lower->LclRotation) << "defaults without take data";
    EXPECT_TRUE(Loaded.Scene->SetCurrentTake("Default"));
}

TEST(SceneModel, AttributesRegistryAndRelease)
{
    log_capture Log;
    int32 LiveBefore = LiveBlocks();
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxNode *Node = KFbxNode::Create(Manager, "Holder");
    KFbxNode *Child = KFbxNode::Create(Manager, "Child");
    KFbxNodeAttribute *Bone = KFbxNodeAttribute::Create(Manager, "Holder", FbxAttribute_Skeleton);
    KFbxMesh *Mesh = KFbxMesh::Create(Manager, "Holder");
    Node->AddNodeAttribute(Bone);
    Node->AddNodeAttribute(Mesh);
    Scene->GetRootNode()->AddChild(Node);
    Node->AddChild(Child);
    Scene->AddNode(Node);
    EXPECT_EQ(Node->GetNodeAttribute(), Bone);
    EXPECT_EQ(Node->GetMesh(), Mesh) << "the first mesh attribute when the default is none";
    EXPECT_TRUE(Mesh->IsTriangleMesh()) << "no polygons";
    EXPECT_FALSE(Child->AddChild(Node)) << "no cycles";
    EXPECT_EQ(Child->GetParent(), Node);

    // Writers register one format per extension their description lists.
    static char const *const Extensions[] = {"TS2", "CLWXML", nullptr};
    static char const *const Descriptions[] = {"first", "second", nullptr};
    auto Describe = [](int32 Selector) -> char const *const * {
        return Selector == 0 ? Extensions : Selector == 1 ? Descriptions : nullptr;
    };
    auto CreateWriter = [](KFbxSdkManager &, int32) -> KFbxWriter * { return nullptr; };
    int32 First = -1, Count = 0;
    ASSERT_TRUE(Manager->GetIOPluginRegistry()->RegisterWriter(CreateWriter, Describe, First, Count, nullptr));
    EXPECT_EQ(Count, 2);
    EXPECT_STREQ(Manager->GetIOPluginRegistry()->GetWriterFormatExtension(First + 1), "CLWXML");
    auto Nothing = [](int32) -> char const *const * { return nullptr; };
    EXPECT_FALSE(Manager->GetIOPluginRegistry()->RegisterWriter(CreateWriter, Nothing, First, Count, nullptr));
    EXPECT_EQ(Count, 0);

    Manager->Destroy();
    EXPECT_EQ(LiveBlocks(), LiveBefore);
}
