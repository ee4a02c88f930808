// Global transforms of nodes read from written FBX 6 and FBX 7 files, checked
// against matrices composed here from elementary transforms: pivots, offsets,
// pre and post rotation, every rotation order and the three inherit types.
#include "fbx_scene_test_helpers.h"

namespace {

struct layout
{
    char const *Name;
    fbx_test_format Format;
};

std::vector<layout> Layouts()
{
    return {
        {"fbx6 binary", FbxTestBinary(6100)}, {"fbx7 binary", FbxTestBinary(7400)}, {"fbx7 ascii", FbxTestAscii(7400)}};
}

fbx_test_node MakeNode(char const *Name, int32_t Parent)
{
    fbx_test_node Node;
    Node.Name = Name;
    Node.Parent = Parent;
    Node.Kind = "Null";
    return Node;
}

void SetVector(double Target[3], double X, double Y, double Z)
{
    Target[0] = X;
    Target[1] = Y;
    Target[2] = Z;
}

// The full local matrix of a node with every pivot and offset, composed from
// elementary transforms.
mat4 ComposedLocal(fbx_test_node const &N, bool UseOrderAndPrePost = true)
{
    mat4 Rotation = UseOrderAndPrePost ? Euler4(N.PreRotation, 0) * Euler4(N.Rotation, N.RotationOrder) *
                                             Transpose4(Euler4(N.PostRotation, 0))
                                       : Euler4(N.Rotation, 0);
    return Translate4(N.Translation[0], N.Translation[1], N.Translation[2]) *
           Translate4(N.RotationOffset[0], N.RotationOffset[1], N.RotationOffset[2]) *
           Translate4(N.RotationPivot[0], N.RotationPivot[1], N.RotationPivot[2]) * Rotation *
           Translate4(-N.RotationPivot[0], -N.RotationPivot[1], -N.RotationPivot[2]) *
           Translate4(N.ScalingOffset[0], N.ScalingOffset[1], N.ScalingOffset[2]) *
           Translate4(N.ScalingPivot[0], N.ScalingPivot[1], N.ScalingPivot[2]) *
           Scale4(N.Scaling[0], N.Scaling[1], N.Scaling[2]) *
           Translate4(-N.ScalingPivot[0], -N.ScalingPivot[1], -N.ScalingPivot[2]);
}

} // namespace

// Pivots, offsets and pre/post rotation compose in the right order for each
// rotation order; "order" 6 is rotation inactive, which ignores the order
// and the pre/post rotation but keeps pivots and offsets.
TEST(SceneTransforms, PivotsOffsetsAndPrePostRotationInEveryRotationOrder)
{
    for (int32_t Order = 0; Order <= 6; ++Order) {
        fbx_test_scene Scene;
        fbx_test_node Node = MakeNode("Pivoted", -1);
        SetVector(Node.Translation, 1.5, -2.0, 3.25);
        SetVector(Node.Rotation, 30.0, -50.0, 70.0);
        SetVector(Node.Scaling, 2.0, 0.5, 1.5);
        SetVector(Node.PreRotation, 10.0, 0.0, -20.0);
        SetVector(Node.PostRotation, 0.0, 15.0, 5.0);
        SetVector(Node.RotationOffset, 0.25, 0.5, -0.75);
        SetVector(Node.RotationPivot, 1.0, 2.0, 3.0);
        SetVector(Node.ScalingOffset, -0.5, 0.125, 0.0);
        SetVector(Node.ScalingPivot, 0.5, -1.0, 2.0);
        Node.RotationOrder = Order % 6 + (Order == 6 ? 5 : 0);
        Node.RotationActive = Order < 6;
        Scene.Nodes.push_back(Node);
        mat4 Expected = ComposedLocal(Node, Order < 6);
        for (layout const &Layout : Layouts()) {
            loaded_scene Loaded;
            ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, Layout.Format), Loaded)) << Loaded.Error;
            KFbxNode *Found = FindFbxNode(Loaded.Scene->GetRootNode(), "Pivoted");
            ASSERT_NE(Found, nullptr);
            std::string What = std::string(Layout.Name) + " order " + std::to_string(Order);
            ExpectMatrixNear(Found->GetGlobalTransformDefault(), Expected, 1e-9, What);
            ExpectMatrixNear(Found->GetGlobalTransformAtTime(KTime(12345)), Expected, 1e-9, What + " at a time");
        }
    }
}

TEST(SceneTransforms, InheritTypesAgainstTheirDefinitions)
{
    fbx_test_node Parent = MakeNode("Parent", -1);
    SetVector(Parent.Translation, 1.0, 2.0, 3.0);
    SetVector(Parent.Rotation, 10.0, 20.0, 30.0);
    SetVector(Parent.Scaling, 1.0, 2.0, 3.0);
    fbx_test_node Child = MakeNode("Child", 0);
    SetVector(Child.Translation, -2.0, 0.5, 4.0);
    SetVector(Child.Rotation, 40.0, -15.0, 5.0);
    SetVector(Child.Scaling, 2.0, 0.5, 1.0);

    mat4 ParentRotation = Euler4(Parent.Rotation, 0);
    mat4 ParentScale = Scale4(Parent.Scaling[0], Parent.Scaling[1], Parent.Scaling[2]);
    mat4 ParentGlobal =
        Translate4(Parent.Translation[0], Parent.Translation[1], Parent.Translation[2]) * ParentRotation * ParentScale;
    mat4 ChildRotation = Euler4(Child.Rotation, 0);
    // Where the child's origin lands is the same for all three types.
    mat4 Origin = ParentGlobal * Translate4(Child.Translation[0], Child.Translation[1], Child.Translation[2]);
    mat4 Position = Translate4(Origin.M[0][3], Origin.M[1][3], Origin.M[2][3]);

    mat4 Expected[3];
    // RrSs: rotations chain, scales multiply axis by axis without rotating.
    Expected[0] = Position * ParentRotation * ChildRotation *
                  Scale4(Parent.Scaling[0] * Child.Scaling[0], Parent.Scaling[1] * Child.Scaling[1],
                         Parent.Scaling[2] * Child.Scaling[2]);
    // RSrs: the plain product of parent and local matrices.
    Expected[1] = ParentGlobal * ComposedLocal(Child);
    // Rrs: the parent's scale is not inherited.
    Expected[2] =
        Position * ParentRotation * ChildRotation * Scale4(Child.Scaling[0], Child.Scaling[1], Child.Scaling[2]);

    for (int32_t Type = 0; Type < 3; ++Type) {
        fbx_test_scene Scene;
        Parent.InheritType = 1;
        Child.InheritType = Type;
        Scene.Nodes = {Parent, Child};
        for (layout const &Layout : Layouts()) {
            loaded_scene Loaded;
            ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, Layout.Format), Loaded)) << Loaded.Error;
            KFbxNode *Found = FindFbxNode(Loaded.Scene->GetRootNode(), "Child");
            ASSERT_NE(Found, nullptr);
            ASSERT_NE(Found->GetParent(), nullptr);
            EXPECT_STREQ(Found->GetParent()->GetName(), "Parent");
            ExpectMatrixNear(Found->GetGlobalTransformDefault(), Expected[Type], 1e-9,
                             std::string(Layout.Name) + " inherit type " + std::to_string(Type));
        }
    }
}

TEST(SceneTransforms, AnimatedLocalValuesFollowTheWrittenKeys)
{
    fbx_test_scene Scene = MakeFbxTestArmScene();
    ASSERT_FALSE(Scene.Takes.empty());
    fbx_test_take const &Take = Scene.Takes[0];
    for (layout const &Layout : Layouts()) {
        loaded_scene Loaded;
        ASSERT_TRUE(LoadFbxBytes(WriteFbxTestScene(Scene, Layout.Format), Loaded)) << Loaded.Error;
        KFbxTakeInfo *Info = Loaded.Scene->GetTakeInfo(Take.Name.c_str());
        ASSERT_NE(Info, nullptr) << Layout.Name;
        EXPECT_EQ(Info->mLocalTimeSpan.GetStart().Get(), Take.Start);
        EXPECT_EQ(Info->mLocalTimeSpan.GetStop().Get(), Take.Stop);
        Loaded.Scene->SetCurrentTake(Take.Name.c_str());
        EXPECT_STREQ(Loaded.Scene->GetCurrentTakeName(), Take.Name.c_str());
        for (fbx_test_curve const &Curve : Take.Curves) {
            KFbxNode *Node = FindFbxNode(Loaded.Scene->GetRootNode(), Scene.Nodes[Curve.Node].Name.c_str());
            ASSERT_NE(Node, nullptr);
            auto Sample = [&](int64_t Ticks) {
                KTime Time(Ticks);
                KFbxVector4 Value = Curve.Channel == 'T'   ? Node->GetLocalTranslation(Time)
                                    : Curve.Channel == 'R' ? Node->GetLocalRotation(Time)
                                                           : Node->GetLocalScaling(Time);
                return Value[Curve.Axis];
            };
            for (size_t Key = 0; Key < Curve.Keys.size(); ++Key) {
                fbx_test_key const &K = Curve.Keys[Key];
                EXPECT_NEAR(Sample(K.Time), K.Value, 1e-5) << Layout.Name << " key " << Key;
                if (Key + 1 == Curve.Keys.size()) continue;
                fbx_test_key const &Next = Curve.Keys[Key + 1];
                int64_t Middle = K.Time + (Next.Time - K.Time) / 2;
                double Fraction = (double)(Middle - K.Time) / (double)(Next.Time - K.Time);
                if (K.Interpolation == FbxTestLinear) {
                    EXPECT_NEAR(Sample(Middle), K.Value + Fraction * (Next.Value - K.Value), 1e-4) << Layout.Name;
                } else if (K.Interpolation == FbxTestConstant) {
                    EXPECT_NEAR(Sample(Middle), K.Value, 1e-6) << Layout.Name;
                }
            }
        }
        // The default take shows the property values.
        Loaded.Scene->SetCurrentTake("Default");
        KFbxNode *Lower = FindFbxNode(Loaded.Scene->GetRootNode(), "Lower");
        ASSERT_NE(Lower, nullptr);
        EXPECT_NEAR(Lower->GetLocalRotation(KTime(Take.Stop))[0], Scene.Nodes[2].Rotation[0], 1e-9);
    }
}
