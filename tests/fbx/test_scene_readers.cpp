// Reader details that the scene builders do not reach: the letters of FBX 6
// key lists, animation layers of FBX 7 stacks, and the FBX 5 layout with
// inline skin links and transforms that live in the takes.
#include "fbx_scene_test_helpers.h"
#include "fbx/fbx_tessel_reader.h"
#include "fbx/fbx_tessel_reader_common.h"

namespace {

int64_t ObjectId(fbx_test_field &Tree, char const *Kind, std::string const &Name)
{
    for (fbx_test_field &Object : Tree.Find("Objects")->Children)
        if (Object.Name == Kind && (Name.empty() || Object.Values[1].Bytes.find(Name) != std::string::npos))
            return Object.Values[0].Integer;
    return -1;
}

} // namespace

TEST(SceneReaders, Fbx6KeyListLetters)
{
    std::string Text = "; FBX 6.1.0 project file\n"
                       "Channel: \"X\" {\n"
                       "  Default: 4.5\n  KeyVer: 4005\n  KeyCount: 6\n"
                       "  Key: 0,1,C,n,10,2,L,20,3,U,s,0.5,-0.5,n,30,4,U,a,n,40,5,U,b,1,2,c,a,0.25,0.75\n"
                       "     ,50,6,T,t,0.5,0.25,-0.125,n\n"
                       "  Pre-Extrapolation: {\n    Type: M\n    Repetition: 3\n  }\n"
                       "  Post-Extrapolation: {\n    Type: K\n    Repetition: -1\n  }\n"
                       "}\n";
    KFbx Fbx;
    ASSERT_TRUE(Fbx.ProjectOpenMemory(Text.data(), (int64)Text.size())) << Fbx.GetErrorText();
    KFCurve Curve;
    ASSERT_TRUE(ReadFbxChannelCurve(Fbx, Fbx.FindChild(nullptr, "Channel"), &Curve));
    EXPECT_EQ(Curve.GetValue(), 4.5f);
    ASSERT_EQ(Curve.KeyGetCount(), 6);
    EXPECT_EQ(Curve.KeyGet(0).Flags, (uint32)(FbxKey_Constant | FbxKey_ConstantNext));
    EXPECT_EQ(Curve.KeyGet(1).Flags, (uint32)FbxKey_Linear);
    EXPECT_EQ(Curve.KeyGet(2).Flags, (uint32)(FbxKey_Cubic | FbxKey_TangentUser));
    EXPECT_EQ(Curve.KeyGet(2).GetRightSlope(), 0.5f);
    // An automatic key without stored slopes takes the slope between its
    // neighbours (value 3 at tick 20 and 5 at tick 40), on both sides.
    float Between = (float)(2.0 / (20.0 / (double)KTime::TicksPerSecond));
    EXPECT_EQ(Curve.KeyGet(3).Flags, (uint32)(FbxKey_Cubic | FbxKey_TangentAuto));
    EXPECT_FLOAT_EQ(Curve.KeyGet(3).GetRightSlope(), Between);
    EXPECT_FLOAT_EQ(Curve.KeyGet(2).GetNextLeftSlope(), Between);
    KFCurveKey const &Broken = Curve.KeyGet(4);
    EXPECT_EQ(Broken.Flags, (uint32)(FbxKey_Cubic | FbxKey_TangentBroken | FbxKey_ClampFlat | FbxKey_WeightedMask));
    EXPECT_NEAR(Broken.GetRightWeight(), 0.25, 1e-4);
    EXPECT_NEAR(Broken.GetNextLeftWeight(), 0.75, 1e-4);
    EXPECT_EQ(Curve.KeyGet(5).Flags, (uint32)(FbxKey_Cubic | FbxKey_TangentTCB));
    EXPECT_EQ(Curve.KeyGet(5).Data[2].Float, -0.125f);
    EXPECT_EQ(Curve.KeyGet(5).Time.Get(), 50);
    EXPECT_EQ(Curve.GetPreExtrapolation(), FbxExtrapolation_MirrorRepetition);
    EXPECT_EQ(Curve.GetPreExtrapolationCount(), 3);
    EXPECT_EQ(Curve.GetPostExtrapolation(), FbxExtrapolation_KeepSlope);
    EXPECT_EQ(Curve.GetPostExtrapolationCount(), -1);

    // Older key versions (FBX 5 files) write weight letters too.
    std::string Old = "Channel: \"X\" {\n  KeyVer: 4002\n  KeyCount: 2\n"
                      "  Key: 0,90,U,s,0,-0,l,0.3332,15,216.3,U,s,0,0,n\n}\n";
    KFbx OldFbx;
    ASSERT_TRUE(OldFbx.ProjectOpenMemory(Old.data(), (int64)Old.size())) << OldFbx.GetErrorText();
    KFCurve OldCurve;
    ASSERT_TRUE(ReadFbxChannelCurve(OldFbx, OldFbx.FindChild(nullptr, "Channel"), &OldCurve));
    ASSERT_EQ(OldCurve.KeyGetCount(), 2);
    EXPECT_EQ(OldCurve.KeyGet(1).Value, 216.3f);
    EXPECT_NEAR(OldCurve.KeyGet(0).GetNextLeftWeight(), 0.3332, 1e-4);
}

TEST(SceneReaders, Fbx7AnimationLayersAndExtrapolationAddOnTopOfTheBase)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    fbx_test_field Tree = BuildFbx7Scene(Scene, 7400);
    int64_t Stack = ObjectId(Tree, "AnimationStack", "");
    int64_t Lower = ObjectId(Tree, "Model", "Lower");
    ASSERT_GT(Stack, 0);
    ASSERT_GT(Lower, 0);
    fbx_test_field &Objects = *Tree.Find("Objects");
    fbx_test_field &Connections = *Tree.Find("Connections");
    int64_t Layer = 900001, CurveNode = 900002, Curve = 900003;
    fbx_test_field &LayerField = Objects.Add("AnimationLayer", {FbxL(Layer), FbxName("AnimLayer", "Extra"), FbxS("")});
    Objects.Add("AnimationCurveNode", {FbxL(CurveNode), FbxName("AnimCurveNode", "T"), FbxS("")});
    fbx_test_field &CurveField = Objects.Add("AnimationCurve", {FbxL(Curve), FbxName("AnimCurve", ""), FbxS("")});
    CurveField.Add("Default", {FbxD(0.0)});
    CurveField.Add("KeyVer", {FbxI(4008)});
    CurveField.Add("KeyTime", {FbxArrayL({0, FbxFrameTicks(30)})});
    CurveField.Add("KeyValueFloat", {FbxArrayF({10.0f, 40.0f})});
    CurveField.Add("KeyAttrFlags", {FbxArrayI({FbxKey_Linear})});
    CurveField.Add("KeyAttrDataFloat", {FbxArrayF({0, 0, 0, 0})});
    CurveField.Add("KeyAttrRefCount", {FbxArrayI({2})});
    // Before the first key the curve climbs on in relative cycles; after the
    // last it mirrors back once, then stays where that cycle ended.
    fbx_test_field &Pre = CurveField.Add("Pre-Extrapolation");
    Pre.Add("Type", {FbxC('A')});
    Pre.Add("Repetition", {FbxI(-1)});
    fbx_test_field &Post = CurveField.Add("Post-Extrapolation");
    Post.Add("Type", {FbxC('M')});
    Post.Add("Repetition", {FbxI(1)});
    Connections.Add("C", {FbxS("OO"), FbxL(Layer), FbxL(Stack)});
    Connections.Add("C", {FbxS("OO"), FbxL(CurveNode), FbxL(Layer)});
    Connections.Add("C", {FbxS("OP"), FbxL(CurveNode), FbxL(Lower), FbxS("Lcl Translation")});
    Connections.Add("C", {FbxS("OP"), FbxL(Curve), FbxL(CurveNode), FbxS("d|X")});

    // The whole layer, then half of it.
    for (double Weight : {1.0, 0.5}) {
        if (Weight != 1.0)
            LayerField.Add("Properties70")
                .Add("P", {FbxS("Weight"), FbxS("Number"), FbxS(""), FbxS("A"), FbxD(Weight * 100.0)});
        for (fbx_test_format Format : {FbxTestBinary(7400), FbxTestAscii(7400)}) {
            loaded_scene Loaded;
            ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(Tree, Format), Loaded)) << Loaded.Error;
            KFbxNode *Node = FindFbxNode(Loaded.Scene->GetRootNode(), "Lower");
            ASSERT_NE(Node, nullptr);
            Loaded.Scene->SetCurrentTake(Scene.Takes[0].Name.c_str());
            // Lower has no translation curves of its own: the layer adds to the property value.
            double const Base = Scene.Nodes[2].Translation[0];
            auto X = [&](double Frame) { return Node->GetLocalTranslation(KTime(FbxFrameTicks(Frame)))[0]; };
            EXPECT_NEAR(X(0), Base + 10.0 * Weight, 1e-6);
            EXPECT_NEAR(X(15), Base + 25.0 * Weight, 1e-5);
            EXPECT_NEAR(Node->GetLocalTranslation(KTime(0))[1], Scene.Nodes[2].Translation[1], 1e-9);
            EXPECT_NEAR(X(-15), Base - 5.0 * Weight, 1e-4);
            EXPECT_NEAR(X(40), Base + 30.0 * Weight, 1e-4);
            EXPECT_NEAR(X(90), Base + 10.0 * Weight, 1e-4);
        }
    }
}

TEST(SceneReaders, Fbx5ModelsWithChildrenLinksAndTakeDefaults)
{
    fbx_test_field Root;
    fbx_test_field &Header = Root.Add("FBXHeaderExtension");
    Header.Add("FBXVersion", {FbxI(5800)});
    fbx_test_field &Bone = Root.Add("Model", {FbxS("Model::Bone")});
    Bone.Add("Version", {FbxI(194)});
    Bone.Add("Children", {FbxS("Model::Tip")});
    Root.Add("Model", {FbxS("Model::Tip")}).Add("Version", {FbxI(194)});
    fbx_test_field &Box = Root.Add("Model", {FbxS("Model::Box")});
    Box.Add("Vertices", {FbxD(0), FbxD(0), FbxD(0), FbxD(1), FbxD(0), FbxD(0), FbxD(0), FbxD(1), FbxD(0)});
    Box.Add("PolygonVertexIndex", {FbxI(0), FbxI(1), FbxI(~2)});
    fbx_test_field &Link = Box.Add("Link", {FbxS("Bone")});
    Link.Add("Indexes", {FbxI(0), FbxI(2)});
    Link.Add("Weights", {FbxD(1.0), FbxD(0.5)});
    std::vector<fbx_test_value> Matrix;
    for (int Index = 0; Index < 16; ++Index) Matrix.push_back(FbxD(Index % 5 == 0 ? 1.0 : 0.0));
    Link.Add("Transform", Matrix);
    Link.Add("TransformLink", Matrix);
    fbx_test_field &Takes = Root.Add("Takes");
    Takes.Add("Current", {FbxS("Take 001")});
    fbx_test_field &Take = Takes.Add("Take", {FbxS("Take 001")});
    Take.Add("LocalTime", {FbxL(0), FbxL(FbxFrameTicks(10))});
    fbx_test_field &Animated = Take.Add("Model", {FbxS("Model::Tip")});
    fbx_test_field &Transform = Animated.Add("Channel", {FbxS("Transform")});
    fbx_test_field &T = Transform.Add("Channel", {FbxS("T")});
    char const *Axes[3] = {"X", "Y", "Z"};
    for (int Axis = 0; Axis < 3; ++Axis) T.Add("Channel", {FbxS(Axes[Axis])}).Add("Default", {FbxD(Axis + 1.0)});
    T.Add("LayerType", {FbxI(1)});

    for (fbx_test_format Format : {FbxTestAscii(6100), FbxTestBinary(6100)}) {
        loaded_scene Loaded;
        ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(Root, Format), Loaded)) << Loaded.Error;
        KFbxNode *Tip = FindFbxNode(Loaded.Scene->GetRootNode(), "Tip");
        ASSERT_NE(Tip, nullptr);
        ASSERT_NE(Tip->GetParent(), nullptr);
        EXPECT_STREQ(Tip->GetParent()->GetName(), "Bone");
        EXPECT_EQ(Tip->GetGlobalTransformDefault().GetT(), KFbxVector4(1.0, 2.0, 3.0, 1.0)) << "defaults from the take";
        KFbxMesh *Mesh = FindFbxNode(Loaded.Scene->GetRootNode(), "Box")->GetMesh();
        ASSERT_NE(Mesh, nullptr);
        EXPECT_EQ(Mesh->GetPolygonCount(), 1);
        KFbxSkin *Skin = (KFbxSkin *)Mesh->GetDeformer(0, FbxDeformer_Skin);
        ASSERT_NE(Skin, nullptr);
        ASSERT_EQ(Skin->GetClusterCount(), 1);
        EXPECT_EQ(Skin->GetCluster(0)->GetLink(), FindFbxNode(Loaded.Scene->GetRootNode(), "Bone"));
        EXPECT_EQ(Skin->GetCluster(0)->GetControlPointWeights()[1], 0.5);
        ASSERT_NE(Loaded.Scene->GetTakeInfo("Take 001"), nullptr);
    }
}

// An ASCII file cut at the end of a top-level block still parses as text;
// without its objects or their connections it must be refused, not read as
// an empty scene. A cut inside a block is refused by the parser.
TEST(SceneReaders, AsciiFilesCutShortAreRefused)
{
    FILE *File = fopen(TESSEL_SOURCE_DIR "/fuzz/corpus/fbx_ascii/arm_6100.fbx", "rb");
    ASSERT_NE(File, nullptr);
    std::vector<uint8_t> Whole;
    for (int Byte; (Byte = fgetc(File)) != EOF;) Whole.push_back((uint8_t)Byte);
    fclose(File);
    std::string Text(Whole.begin(), Whole.end());

    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(Whole, Loaded)) << Loaded.Error;
    struct
    {
        char const *CutBefore;
        char const *Missing;
    } const Cuts[] = {{"\nDefinitions:", "Objects"}, {"\nConnections:", "Connections"}};
    for (auto const &Cut : Cuts) {
        size_t At = Text.find(Cut.CutBefore);
        ASSERT_NE(At, std::string::npos);
        std::vector<uint8_t> Short(Whole.begin(), Whole.begin() + (long)At + 1);
        EXPECT_FALSE(LoadFbxBytes(Short, Loaded)) << Cut.CutBefore;
        EXPECT_NE(Loaded.Error.find(Cut.Missing), std::string::npos) << Loaded.Error;
    }
    std::vector<uint8_t> MidBlock(Whole.begin(), Whole.begin() + (long)Whole.size() / 20);
    EXPECT_FALSE(LoadFbxBytes(MidBlock, Loaded));
}

TEST(SceneReaders, Fbx7AsciiSlopesWrittenAsFloatBits)
{
    // Some programs write a key's slopes in ASCII files as the integers of
    // their float bits, others as decimals: both must read the same.
    auto Bits = [](float Value) {
        int32_t Word;
        memcpy(&Word, &Value, 4);
        return (int64_t)Word;
    };
    uint32_t WeightWord = (3333u << 16) | 3333u;
    float Weights;
    memcpy(&Weights, &WeightWord, 4);
    double Samples[2][3];
    for (int Variant = 0; Variant < 2; ++Variant) {
        fbx_test_scene Scene = MakeFbxTestArmScene();
        fbx_test_field Tree = BuildFbx7Scene(Scene, 7400);
        int64_t Stack = ObjectId(Tree, "AnimationStack", "");
        int64_t Lower = ObjectId(Tree, "Model", "Lower");
        fbx_test_field &Objects = *Tree.Find("Objects");
        fbx_test_field &Connections = *Tree.Find("Connections");
        int64_t Layer = 900001, CurveNode = 900002, Curve = 900003;
        Objects.Add("AnimationLayer", {FbxL(Layer), FbxName("AnimLayer", "Extra"), FbxS("")});
        Objects.Add("AnimationCurveNode", {FbxL(CurveNode), FbxName("AnimCurveNode", "T"), FbxS("")});
        fbx_test_field &Field = Objects.Add("AnimationCurve", {FbxL(Curve), FbxName("AnimCurve", ""), FbxS("")});
        Field.Add("Default", {FbxD(0.0)});
        Field.Add("KeyVer", {FbxI(4008)});
        Field.Add("KeyTime", {FbxArrayL({0, FbxFrameTicks(30)})});
        Field.Add("KeyValueFloat", {FbxArrayF({10.0f, 40.0f})});
        Field.Add("KeyAttrFlags", {FbxArrayI({FbxKey_Cubic | FbxKey_TangentUser})});
        if (Variant == 0) {
            Field.Add("KeyAttrDataFloat", {FbxArrayF({2.5f, -3.5f, Weights, 0})});
        } else {
            Field.Add("KeyAttrDataFloat", {FbxArrayI({Bits(2.5f), Bits(-3.5f), (int64_t)WeightWord, 0})});
        }
        Field.Add("KeyAttrRefCount", {FbxArrayI({2})});
        Connections.Add("C", {FbxS("OO"), FbxL(Layer), FbxL(Stack)});
        Connections.Add("C", {FbxS("OO"), FbxL(CurveNode), FbxL(Layer)});
        Connections.Add("C", {FbxS("OP"), FbxL(CurveNode), FbxL(Lower), FbxS("Lcl Translation")});
        Connections.Add("C", {FbxS("OP"), FbxL(Curve), FbxL(CurveNode), FbxS("d|X")});

        loaded_scene Loaded;
        ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(Tree, FbxTestAscii(7400)), Loaded)) << Loaded.Error;
        KFbxNode *Node = FindFbxNode(Loaded.Scene->GetRootNode(), "Lower");
        ASSERT_NE(Node, nullptr);
        Loaded.Scene->SetCurrentTake(Scene.Takes[0].Name.c_str());
        for (int Step = 0; Step < 3; ++Step)
            Samples[Variant][Step] = Node->GetLocalTranslation(KTime(FbxFrameTicks(5 + 10 * Step)))[0];
    }
    for (int Step = 0; Step < 3; ++Step) EXPECT_NEAR(Samples[1][Step], Samples[0][Step], 1e-5) << Step;
}

namespace {

void ExpectSameNodeProperties(KFbxNode const &Actual, KFbxNode const &Expected, char const *Name)
{
    auto Vectors = [&](KFbxVector4 const &A, KFbxVector4 const &B, char const *Member) {
        for (int32 Axis = 0; Axis < 4; ++Axis) EXPECT_EQ(A[Axis], B[Axis]) << Name << " " << Member << " " << Axis;
    };
    auto Optional = [&](fbx_optional_vector const &A, fbx_optional_vector const &B, char const *Member) {
        EXPECT_EQ(A.InUse, B.InUse) << Name << " " << Member;
        Vectors(A.Value, B.Value, Member);
    };
    auto Limits = [&](fbx_limits const &A, fbx_limits const &B, char const *Member) {
        EXPECT_EQ(A.Active, B.Active) << Name << " " << Member;
        EXPECT_EQ(A.Bits, B.Bits) << Name << " " << Member;
        Vectors(A.Min, B.Min, Member);
        Vectors(A.Max, B.Max, Member);
    };
    Vectors(Actual.LclTranslation, Expected.LclTranslation, "LclTranslation");
    Vectors(Actual.LclRotation, Expected.LclRotation, "LclRotation");
    Vectors(Actual.LclScaling, Expected.LclScaling, "LclScaling");
    Optional(Actual.RotationOffset, Expected.RotationOffset, "RotationOffset");
    Optional(Actual.RotationPivot, Expected.RotationPivot, "RotationPivot");
    Optional(Actual.ScalingOffset, Expected.ScalingOffset, "ScalingOffset");
    Optional(Actual.ScalingPivot, Expected.ScalingPivot, "ScalingPivot");
    EXPECT_EQ(Actual.RotationOrder, Expected.RotationOrder) << Name;
    EXPECT_EQ(Actual.RotationActive, Expected.RotationActive) << Name;
    EXPECT_EQ(Actual.RotationSpaceForLimitOnly, Expected.RotationSpaceForLimitOnly) << Name;
    EXPECT_EQ(Actual.InheritType, Expected.InheritType) << Name;
    Optional(Actual.PreRotation, Expected.PreRotation, "PreRotation");
    Optional(Actual.PostRotation, Expected.PostRotation, "PostRotation");
    Limits(Actual.TranslationLimits, Expected.TranslationLimits, "TranslationLimits");
    Limits(Actual.RotationLimits, Expected.RotationLimits, "RotationLimits");
    Limits(Actual.ScalingLimits, Expected.ScalingLimits, "ScalingLimits");
    EXPECT_EQ(Actual.QuaternionInterpolate, Expected.QuaternionInterpolate) << Name;
    Vectors(Actual.GeometricTranslation, Expected.GeometricTranslation, "GeometricTranslation");
    Vectors(Actual.GeometricRotation, Expected.GeometricRotation, "GeometricRotation");
    Vectors(Actual.GeometricScaling, Expected.GeometricScaling, "GeometricScaling");
}

} // namespace

TEST(SceneReaders, Fbx7ModelTemplateGivesEveryModelItsProperties)
{
    // A template that moves every property a model reads away from its
    // default, a model that lists none of its own and one that overrides
    // some: each must read as the template and then its own properties
    // applied to a fresh node.
    char const *Vector3[] = {"Lcl Translation",   "Lcl Rotation",     "Lcl Scaling",    "GeometricTranslation",
                             "GeometricRotation", "GeometricScaling", "PreRotation",    "PostRotation",
                             "ScalingOffset",     "ScalingPivot",     "RotationOffset", "RotationPivot",
                             "TranslationMin",    "TranslationMax",   "ScalingMin",     "ScalingMax",
                             "RotationMin",       "RotationMax"};
    char const *Flags[] = {"QuaternionInterpolate", "RotationActive", "RotationSpaceForLimitOnly",
                           "TranslationActive",     "ScalingActive",  "TranslationMinX",
                           "TranslationMaxZ",       "ScalingMinY",    "ScalingMaxX",
                           "RotationMinZ",          "RotationMaxY"};
    std::string Template;
    int Step = 1;
    for (char const *Name : Vector3) {
        Template += std::string("\t\t\t\tP: \"") + Name + "\", \"Vector3D\", \"\", \"A\"," + std::to_string(Step) +
                    "," + std::to_string(Step + 1) + ".5,-" + std::to_string(Step + 2) + "\n";
        Step += 3;
    }
    for (char const *Name : Flags) Template += std::string("\t\t\t\tP: \"") + Name + "\", \"bool\", \"\", \"\",1\n";
    Template += "\t\t\t\tP: \"InheritType\", \"enum\", \"\", \"\",2\n"
                "\t\t\t\tP: \"RotationOrder\", \"enum\", \"\", \"\",4\n";
    std::string File = "; FBX 7.4.0 project file\n"
                       "FBXHeaderExtension:  {\n\tFBXVersion: 7400\n}\n"
                       "Definitions:  {\n\tObjectType: \"Model\" {\n\t\tPropertyTemplate: \"FbxNode\" {\n"
                       "\t\t\tProperties70:  {\n" +
                       Template +
                       "\t\t\t}\n\t\t}\n\t}\n}\n"
                       "Objects:  {\n"
                       "\tModel: 1, \"Model::Plain\", \"Null\" {\n\t}\n"
                       "\tModel: 2, \"Model::Own\", \"Null\" {\n\t\tProperties70:  {\n"
                       "\t\t\tP: \"Lcl Rotation\", \"Lcl Rotation\", \"\", \"A\",10,20,30\n"
                       "\t\t\tP: \"RotationActive\", \"bool\", \"\", \"\",0\n"
                       "\t\t\tP: \"ScalingMinY\", \"bool\", \"\", \"\",0\n"
                       "\t\t\tP: \"InheritType\", \"enum\", \"\", \"\",1\n"
                       "\t\t}\n\t}\n}\n"
                       "Connections:  {\n\tC: \"OO\",1,0\n\tC: \"OO\",2,0\n}\n";
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(std::vector<uint8_t>(File.begin(), File.end()), Loaded)) << Loaded.Error;
    KFbx Fbx;
    ASSERT_TRUE(Fbx.ProjectOpenMemory(File.data(), (int64)File.size())) << Fbx.GetErrorText();
    fbx_field const *TemplateField = Fbx.FindPath(nullptr, "Definitions/ObjectType/PropertyTemplate");
    fbx_field const *Model = Fbx.FindPath(nullptr, "Objects/Model");
    for (char const *Name : {"Plain", "Own"}) {
        KFbxNode *Node = FindFbxNode(Loaded.Scene->GetRootNode(), Name);
        ASSERT_NE(Node, nullptr) << Name;
        KFbxNode *Expected = KFbxNode::Create(nullptr, Name);
        ReadFbxNodeProperties(Fbx, TemplateField, Expected);
        ReadFbxNodeProperties(Fbx, Model, Expected);
        ExpectSameNodeProperties(*Node, *Expected, Name);
        Expected->Destroy();
        Model = Fbx.GetNextSibling(Model);
    }
    // The template did reach the plain model.
    KFbxNode *Plain = FindFbxNode(Loaded.Scene->GetRootNode(), "Plain");
    EXPECT_EQ(Plain->ScalingPivot.Value[2], -30.0);
    EXPECT_EQ(Plain->RotationOrder, 4);
    EXPECT_TRUE(Plain->RotationLimits.Active);
}
