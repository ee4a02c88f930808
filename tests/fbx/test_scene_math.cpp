// Euler rotations in every order, time conversions and transform limits.
#include "fbx_scene_test_helpers.h"

TEST(SceneMath, EulerOrdersBuildAndReadBackTheirRotations)
{
    double const AngleSets[][3] = {{30, -50, 70}, {-170, 10, 95}, {5, 89.9, -40}, {0, -90, 0}};
    for (int32 Order = 0; Order < 6; ++Order) {
        for (auto const &Set : AngleSets) {
            KFbxVector4 Angles(Set[0], Set[1], Set[2]);
            AffineMatrix Matrix = EulerToMatrix(Angles, Order);
            ExpectMatrixNear(Matrix, Euler4(Set, Order), 1e-12, "order " + std::to_string(Order));
            // Read back: any angles that build the same rotation will do.
            AffineMatrix Again = EulerToMatrix(MatrixToEuler(Matrix, Order), Order);
            ExpectMatrixNear(Again, Euler4(Set, Order), 1e-9, "round trip order " + std::to_string(Order));
            AffineMatrix FromQuaternion = QuaternionToMatrix(MatrixToQuaternion(Matrix));
            ExpectMatrixNear(FromQuaternion, Euler4(Set, Order), 1e-9, "quaternion order " + std::to_string(Order));
        }
    }
    // Taking a matrix apart and composing it again, with a mirror.
    AffineMatrix Matrix(KFbxVector4(1, 2, 3), KFbxVector4(20, 30, 40), KFbxVector4(-2, -0.5, -1));
    AffineMatrix Again(Matrix.GetT(), Matrix.GetR(), Matrix.GetS());
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column)
            EXPECT_NEAR(Again.mData[Row][Column], Matrix.mData[Row][Column], 1e-9);
    AffineMatrix Identity = Matrix * Matrix.Inverse();
    ExpectMatrixNear(Identity, Identity4(), 1e-12, "inverse");
}

TEST(SceneMath, TimeModesFramesAndFields)
{
    EXPECT_EQ(KTime::GetFrameRate(FbxTimeMode_24), 24.0);
    EXPECT_EQ(KTime::GetFrameRate(99), 30.0);
    KTime Time;
    Time.SetTime(0, 0, 0, 0, 21, 0, FbxTimeMode_30);
    EXPECT_EQ(Time.Get(), 10 * 1539538600LL + 1539538600LL / 2) << "21 fields are 10.5 frames";
    EXPECT_EQ(Time.GetFrame(true, FbxTimeMode_30), 10);
    Time.SetTime(0, 0, 0, 0, 21, 0, FbxTimeMode_24);
    EXPECT_EQ(Time.Get(), 0) << "modes without fields ignore them";
    Time.SetTime(0, 0, 2, 3, 0, 0, FbxTimeMode_PAL);
    EXPECT_EQ(Time.Get(), 2 * KTime::TicksPerSecond + 3 * 1847446320LL);
    EXPECT_EQ(Time.GetFrame(true, FbxTimeMode_PAL), 53);
    EXPECT_EQ(KTime(-1539538600LL * 3 / 2).GetFrame(true, FbxTimeMode_30), -1) << "truncated toward zero";
    KTimeSpan Span(KTime(500), KTime(200));
    EXPECT_EQ(Span.GetDuration().Get(), -300);
}

TEST(SceneMath, EachSceneKeepsItsOwnTimeMode)
{
    EXPECT_EQ(KTime::GetFrameRate(FbxTimeMode_Custom, 12.5), 12.5);
    EXPECT_EQ(KTime::GetFrameRate(FbxTimeMode_Custom), 30.0);
    EXPECT_EQ(KTime::GetFrameRate(FbxTimeMode_Default), 30.0);

    fbx_test_scene Film, Unnamed;
    Film.TimeMode = FbxTimeMode_24;
    Unnamed.TimeMode = 0; // the file names no mode of its own
    loaded_scene A, B;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Film, FbxTestBinary(7400)), A)) << A.Error;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Unnamed, FbxTestAscii(6100)), B)) << B.Error;
    // Loading B changes nothing of A.
    EXPECT_EQ(A.Scene->GetGlobalSettings().GetFrameTimeMode(), FbxTimeMode_24);
    EXPECT_EQ(B.Scene->GetGlobalSettings().GetFrameTimeMode(), FbxTimeMode_30);
    EXPECT_EQ(B.Scene->GetGlobalSettings().GetFrameCustomRate(), 30.0);
}

TEST(SceneMath, LimitsClampOnlyEnabledBounds)
{
    fbx_test_scene Scene;
    fbx_test_node Node;
    Node.Name = "Limited";
    Node.Kind = "Null";
    Node.Translation[0] = 5.0;
    Node.Translation[1] = 5.0;
    Node.Scaling[2] = 0.1;
    Scene.Nodes.push_back(Node);
    fbx_test_field Tree = BuildFbx7Scene(Scene, 7400);
    fbx_test_field *Model = nullptr;
    for (fbx_test_field &Object : Tree.Find("Objects")->Children)
        if (Object.Name == "Model") Model = &Object;
    ASSERT_NE(Model, nullptr);
    fbx_test_field &Properties = *Model->Find("Properties70");
    auto Add = [&](char const *Name, std::vector<fbx_test_value> Values) {
        std::vector<fbx_test_value> All = {FbxS(Name), FbxS("x"), FbxS(""), FbxS("A")};
        All.insert(All.end(), Values.begin(), Values.end());
        Properties.Add("P", All);
    };
    Add("TranslationActive", {FbxI(1)});
    Add("TranslationMax", {FbxD(1.0), FbxD(1.0), FbxD(1.0)});
    Add("TranslationMaxX", {FbxI(1)});
    Add("ScalingActive", {FbxI(1)});
    Add("ScalingMin", {FbxD(0.5), FbxD(0.5), FbxD(0.5)});
    Add("ScalingMinZ", {FbxI(1)});
    loaded_scene Loaded;
    ASSERT_TRUE(LoadFbxBytes(WriteFbxTestFields(Tree, FbxTestBinary(7400)), Loaded)) << Loaded.Error;
    KFbxNode *Found = FindFbxNode(Loaded.Scene->GetRootNode(), "Limited");
    ASSERT_NE(Found, nullptr);
    EXPECT_EQ(Found->GetLocalTranslation(KTime(), false)[0], 5.0);
    EXPECT_EQ(Found->GetLocalTranslation(KTime(), true)[0], 1.0);
    EXPECT_EQ(Found->GetLocalTranslation(KTime(), true)[1], 5.0) << "no bound enabled on Y";
    EXPECT_EQ(Found->GetLocalScaling(KTime(), true)[2], 0.5);
    AffineMatrix Global = Found->GetGlobalTransformDefault();
    EXPECT_EQ(Global.mData[3][0], 1.0);
    EXPECT_EQ(Global.mData[2][2], 0.5);
}
