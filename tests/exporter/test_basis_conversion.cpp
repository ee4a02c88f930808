// Coordinate systems and units: an export to another basis, read back and
// converted back with the inverse basis, is the default export again, with
// its triangles facing the same way; every default export has unit normals.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "animation/tessel_basis_conversion.h"
#include "animation/tessel_track_group.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "exporter_test_files.h"
#include "fbx_tool/fbx_tessel.h"
#include "format/tessel_data_type_io.h"
#include "format/tessel_file_reader.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_transform.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_settings_text.h"
#include "support/fbx_test_writer.h"
#include "support/test_log_capture.h"

namespace {

loaded_file *ExportAndLoad(std::string const &Input, std::string const &Settings, char const *AnimationDefs = nullptr)
{
    std::string Output = PrivateTemporaryDirectory() + "/output_basis.ts2";
    export_options Options = {nullptr, false, Settings.empty() ? nullptr : Settings.c_str()};
    bool Exported = false;
    ExportFBXFileWithOptions(Input.c_str(), Output.c_str(), AnimationDefs, Options, nullptr, &Exported);
    loaded_file *File = Exported ? LoadFileFromDisk(Output.c_str()) : nullptr;
    remove(Output.c_str());
    return File;
}

file_info *Root(loaded_file *File)
{
    return File ? (file_info *)GetLoadedFileRootObject(*File, nullptr) : nullptr;
}

std::vector<real32> Member(vertex_data const *Data, int32 Vertex, char const *Name)
{
    data_type_definition Layout[] = {{Real32Member, Name, 0, 3, {0, 0, 0}, 0}, {EndMember, 0, 0, 0, {0, 0, 0}, 0}};
    std::vector<real32> Values(3);
    uint8 const *Address =
        (uint8 const *)Data->Vertices.Array + (intaddrx)GetTotalObjectSize(Data->Vertices.Type) * Vertex;
    ConvertSingleObject(Data->Vertices.Type, Address, Layout, Values.data());
    return Values;
}

double Size(file_info const &Info)
{
    double Largest = 1e-6;
    for (int32 M = 0; M < Info.MeshCount; ++M) {
        vertex_data const *Data = Info.Meshes[M]->PrimaryVertexData;
        for (int32 V = 0; Data && V < Data->Vertices.Count; ++V)
            for (real32 C : Member(Data, V, "Position")) Largest = std::fmax(Largest, std::fabs(C));
    }
    return Largest;
}

// Converts File back to the basis of Default and compares every bone,
// model, vertex and index. Mirrored tells whether the conversion mirrored.
void ExpectSameAfterConvertingBack(file_info &Converted, file_info const &Default, bool *Mirrored)
{
    art_tool_info const &Want = *Default.ArtToolInfo;
    real32 Affine[3], Linear[9], Inverse[9];
    ASSERT_TRUE(ComputeBasisConversion(Converted, Want.UnitsPerMeter, Want.Origin, Want.RightVector, Want.UpVector,
                                       Want.BackVector, Affine, Linear, Inverse));
    *Mirrored = Determinant3x3(Linear) < 0;
    TransformFile(Converted, Affine, Linear, Inverse, 0.001f, 0.001f,
                  BasisConversion_RenormalizeNormals | BasisConversion_ReorderTriangleIndices);

    double const Tolerance = 1e-5 * Size(Default);
    ASSERT_EQ(Converted.SkeletonCount, Default.SkeletonCount);
    for (int32 S = 0; S < Default.SkeletonCount; ++S) {
        skeleton const &A = *Converted.Skeletons[S], &B = *Default.Skeletons[S];
        ASSERT_EQ(A.BoneCount, B.BoneCount);
        for (int32 Index = 0; Index < B.BoneCount; ++Index) {
            transform const &P = A.Bones[Index].Transform, &Q = B.Bones[Index].Transform;
            double Same = 0, Opposite = 0;
            for (int32 K = 0; K < 4; ++K) {
                Same = std::fmax(Same, std::fabs(P.Orientation[K] - Q.Orientation[K]));
                Opposite = std::fmax(Opposite, std::fabs(P.Orientation[K] + Q.Orientation[K]));
            }
            EXPECT_LT(std::fmin(Same, Opposite), 1e-4) << B.Bones[Index].Name;
            for (int32 K = 0; K < 3; ++K) EXPECT_NEAR(P.Position[K], Q.Position[K], Tolerance) << B.Bones[Index].Name;
            for (int32 K = 0; K < 9; ++K)
                EXPECT_NEAR((&P.ScaleShear[0][0])[K], (&Q.ScaleShear[0][0])[K], 1e-4) << B.Bones[Index].Name;
            for (int32 K = 0; K < 16; ++K) {
                double Scale = K >= 12 ? Tolerance : 1e-4;
                EXPECT_NEAR((&A.Bones[Index].InverseWorldTransform[0][0])[K],
                            (&B.Bones[Index].InverseWorldTransform[0][0])[K], Scale * 10)
                    << B.Bones[Index].Name << " " << K;
            }
        }
    }
    ASSERT_EQ(Converted.MeshCount, Default.MeshCount);
    for (int32 M = 0; M < Default.MeshCount; ++M) {
        mesh const &A = *Converted.Meshes[M], &B = *Default.Meshes[M];
        if (!B.PrimaryVertexData) continue;
        ASSERT_EQ(A.PrimaryVertexData->Vertices.Count, B.PrimaryVertexData->Vertices.Count);
        for (int32 V = 0; V < B.PrimaryVertexData->Vertices.Count; ++V) {
            std::vector<real32> PA = Member(A.PrimaryVertexData, V, "Position");
            std::vector<real32> PB = Member(B.PrimaryVertexData, V, "Position");
            std::vector<real32> NA = Member(A.PrimaryVertexData, V, "Normal");
            std::vector<real32> NB = Member(B.PrimaryVertexData, V, "Normal");
            for (int32 K = 0; K < 3; ++K) {
                ASSERT_NEAR(PA[K], PB[K], Tolerance) << B.Name << " vertex " << V;
                ASSERT_NEAR(NA[K], NB[K], 1e-4) << B.Name << " vertex " << V;
            }
        }
        tri_topology const *TA = A.PrimaryTopology, *TB = B.PrimaryTopology;
        ASSERT_EQ(TA->IndexCount, TB->IndexCount);
        for (int32 I = 0; I < TB->IndexCount; ++I) ASSERT_EQ(TA->Indices[I], TB->Indices[I]) << B.Name;
        for (int32 I = 0; I < TB->Index16Count; ++I) ASSERT_EQ(TA->Indices16[I], TB->Indices16[I]) << B.Name;
    }
    for (int32 M = 0; M < Default.ModelCount; ++M) {
        for (int32 K = 0; K < 3; ++K)
            EXPECT_NEAR(Converted.Models[M]->InitialPlacement.Position[K],
                        Default.Models[M]->InitialPlacement.Position[K], Tolerance);
    }
}

// World matrices (row vectors) of a skeleton's bones from its stored locals.
std::vector<std::vector<real32>> ComposeWorlds(skeleton const &Skeleton)
{
    std::vector<std::vector<real32>> Worlds(Skeleton.BoneCount, std::vector<real32>(16));
    for (int32 Index = 0; Index < Skeleton.BoneCount; ++Index) {
        real32 Local[16];
        BuildCompositeTransform4x4(Skeleton.Bones[Index].Transform, Local);
        int32 Parent = Skeleton.Bones[Index].ParentIndex;
        if (Parent < 0) {
            std::copy(Local, Local + 16, Worlds[Index].begin());
        } else {
            MatrixMultiply4x4(Local, Worlds[Parent].data(), Worlds[Index].data());
        }
    }
    return Worlds;
}

// The map between two files worked out from their axes and units: a scaled
// signed permutation Linear (column vectors); returns the scale.
double ConversionMap(art_tool_info const &From, art_tool_info const &To, double Linear[9])
{
    double const Scale = To.UnitsPerMeter / From.UnitsPerMeter;
    for (int R = 0; R < 3; ++R)
        for (int C = 0; C < 3; ++C)
            Linear[R * 3 + C] = (To.RightVector[R] * From.RightVector[C] + To.UpVector[R] * From.UpVector[C] +
                                 To.BackVector[R] * From.BackVector[C]) *
                                Scale;
    return Scale;
}

// The conversion seen from outside: positions go through Linear, normals
// through its inverse transpose, bone worlds W (column vectors) become
// Linear W Linear^-1; a mirroring Linear reverses each triangle once.
void ExpectForwardConversion(file_info const &Converted, file_info const &Default)
{
    double Linear[9];
    double const Scale = ConversionMap(*Default.ArtToolInfo, *Converted.ArtToolInfo, Linear);
    bool const Mirrors = Linear[0] * (Linear[4] * Linear[8] - Linear[5] * Linear[7]) -
                             Linear[1] * (Linear[3] * Linear[8] - Linear[5] * Linear[6]) +
                             Linear[2] * (Linear[3] * Linear[7] - Linear[4] * Linear[6]) <
                         0;
    double const Tolerance = 1e-5 * Size(Default) * Scale;
    for (int32 M = 0; M < Default.MeshCount; ++M) {
        vertex_data const *A = Default.Meshes[M]->PrimaryVertexData, *B = Converted.Meshes[M]->PrimaryVertexData;
        for (int32 V = 0; A && V < A->Vertices.Count; ++V) {
            std::vector<real32> P = Member(A, V, "Position"), Q = Member(B, V, "Position");
            std::vector<real32> N = Member(A, V, "Normal"), O = Member(B, V, "Normal");
            for (int R = 0; R < 3; ++R) {
                double Expected = Linear[R * 3] * P[0] + Linear[R * 3 + 1] * P[1] + Linear[R * 3 + 2] * P[2];
                ASSERT_NEAR(Q[R], Expected, Tolerance) << Default.Meshes[M]->Name << " vertex " << V;
                // A signed permutation with one scale: the normal turns alike.
                double Turned = (Linear[R * 3] * N[0] + Linear[R * 3 + 1] * N[1] + Linear[R * 3 + 2] * N[2]) / Scale;
                ASSERT_NEAR(O[R], Turned, 1e-4) << Default.Meshes[M]->Name << " vertex " << V;
            }
        }
        tri_topology const *TA = Default.Meshes[M]->PrimaryTopology, *TB = Converted.Meshes[M]->PrimaryTopology;
        if (!TA || !TB) continue;
        ASSERT_EQ(TA->IndexCount, TB->IndexCount);
        for (int32 I = 0; I + 2 < TA->IndexCount; I += 3) {
            ASSERT_EQ(TA->Indices[I], TB->Indices[Mirrors ? I + 2 : I]) << Default.Meshes[M]->Name;
            ASSERT_EQ(TA->Indices[I + 1], TB->Indices[I + 1]) << Default.Meshes[M]->Name;
            ASSERT_EQ(TA->Indices[I + 2], TB->Indices[Mirrors ? I : I + 2]) << Default.Meshes[M]->Name;
        }
        for (int32 I = 0; I + 2 < TA->Index16Count; I += 3) {
            ASSERT_EQ(TA->Indices16[I], TB->Indices16[Mirrors ? I + 2 : I]) << Default.Meshes[M]->Name;
            ASSERT_EQ(TA->Indices16[I + 1], TB->Indices16[I + 1]) << Default.Meshes[M]->Name;
            ASSERT_EQ(TA->Indices16[I + 2], TB->Indices16[Mirrors ? I : I + 2]) << Default.Meshes[M]->Name;
        }
    }
    for (int32 S = 0; S < Default.SkeletonCount; ++S) {
        std::vector<std::vector<real32>> Before = ComposeWorlds(*Default.Skeletons[S]);
        std::vector<std::vector<real32>> After = ComposeWorlds(*Converted.Skeletons[S]);
        for (size_t Bone = 0; Bone < Before.size(); ++Bone) {
            // Row vectors: the column-vector linear block is the transpose.
            for (int R = 0; R < 3; ++R) {
                double Position = 0;
                for (int K = 0; K < 3; ++K) Position += Linear[R * 3 + K] * Before[Bone][12 + K];
                EXPECT_NEAR(After[Bone][12 + R], Position, Tolerance) << Default.Skeletons[S]->Bones[Bone].Name;
                for (int C = 0; C < 3; ++C) {
                    // (L W L^-1)[R][C] with L a scaled signed permutation.
                    double Sum = 0;
                    for (int K = 0; K < 3; ++K)
                        for (int J = 0; J < 3; ++J)
                            Sum += Linear[R * 3 + K] * Before[Bone][J * 4 + K] * Linear[C * 3 + J] / (Scale * Scale);
                    EXPECT_NEAR(After[Bone][C * 4 + R], Sum, 1e-4 * (1 + std::fabs(Sum)))
                        << Default.Skeletons[S]->Bones[Bone].Name;
                }
            }
        }
    }
}

struct basis_case
{
    char const *Choice;
    bool Mirrors; // relative to right-handed Y up, the scenes' own system
};

} // namespace

TEST(BasisConversion, EveryCoordinateSystemAndUnitConvertsBackToTheDefault)
{
    std::string const Inputs[] = {
        std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx",
        SaveFbxTestFile("basis_arm.fbx", WriteFbxTestScene(MakeFbxTestArmScene(), FbxTestBinary(7400))),
    };
    basis_case const Cases[] = {{"Use tool's coordinates", false},
                                {"Right-handed, Y up", false},
                                {"Right-handed, Z up", false},
                                {"Left-handed, Y up", true},
                                {"Left-handed, Z up", true}};
    for (std::string const &Input : Inputs) {
        loaded_file *DefaultFile = ExportAndLoad(Input, "");
        file_info *Default = Root(DefaultFile);
        ASSERT_NE(Default, nullptr) << Input;
        ASSERT_NE(Default->ArtToolInfo, nullptr);
        for (basis_case const &Case : Cases) {
            for (char const *Units : {"", "1", "100"}) {
                SCOPED_TRACE(Input + " / " + Case.Choice + " / " + Units);
                std::vector<std::string> Assignments = {std::string("Coordinate system=") + Case.Choice};
                if (Units[0]) {
                    Assignments.push_back("Rescale scene on export=on");
                    Assignments.push_back(std::string("Units per Meter=") + Units);
                }
                loaded_file *File = ExportAndLoad(Input, WriteTestSettings("basis.tss", Assignments));
                file_info *Converted = Root(File);
                ASSERT_NE(Converted, nullptr);
                if (Units[0]) EXPECT_FLOAT_EQ(Converted->ArtToolInfo->UnitsPerMeter, (real32)atof(Units));
                ExpectForwardConversion(*Converted, *Default);
                bool Mirrored = false;
                ExpectSameAfterConvertingBack(*Converted, *Default, &Mirrored);
                EXPECT_EQ(Mirrored, Case.Mirrors);
                FreeLoadedFile(File);
            }
        }
        FreeLoadedFile(DefaultFile);
    }
    remove(Inputs[1].c_str());
}

TEST(BasisConversion, AnimationsFollowTheConversion)
{
    std::string Input = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm.fbx";
    std::string Defs = std::string(TESSEL_SOURCE_DIR) + "/examples/rigged_arm_animdefs.xml";
    loaded_file *DefaultFile = ExportAndLoad(Input, "", Defs.c_str());
    file_info *Default = Root(DefaultFile);
    ASSERT_NE(Default, nullptr);
    ASSERT_GT(Default->AnimationCount, 0);
    for (char const *Choice : {"Right-handed, Z up", "Left-handed, Y up", "Left-handed, Z up"}) {
        SCOPED_TRACE(Choice);
        loaded_file *File =
            ExportAndLoad(Input,
                          WriteTestSettings("anim.tss", {std::string("Coordinate system=") + Choice,
                                                         "Rescale scene on export=on", "Units per Meter=1"}),
                          Defs.c_str());
        file_info *Converted = Root(File);
        ASSERT_NE(Converted, nullptr);
        // Positions go through L, rotations R become L R L^-1.
        double L[9];
        double const Scale = ConversionMap(*Default->ArtToolInfo, *Converted->ArtToolInfo, L);
        ASSERT_EQ(Converted->AnimationCount, Default->AnimationCount);
        int32 Samples = 0;
        for (int32 A = 0; A < Default->AnimationCount; ++A) {
            animation const &Before = *Default->Animations[A], &After = *Converted->Animations[A];
            ASSERT_EQ(After.TrackGroupCount, Before.TrackGroupCount);
            for (int32 G = 0; G < Before.TrackGroupCount; ++G) {
                track_group const &P = *Before.TrackGroups[G], &Q = *After.TrackGroups[G];
                ASSERT_EQ(P.TransformTrackCount, Q.TransformTrackCount);
                for (int32 Track = 0; Track < P.TransformTrackCount; ++Track) {
                    for (int32 Step = 0; Step <= 10; ++Step) {
                        real32 Time = Before.Duration * Step / 10.0f;
                        transform X, Y;
                        SampleTransformTrack(P.TransformTracks[Track], Before.Duration, Time, X);
                        SampleTransformTrack(Q.TransformTracks[Track], After.Duration, Time, Y);
                        real32 RX[9], RY[9];
                        QuaternionToMatrix3x3(X.Orientation, RX);
                        QuaternionToMatrix3x3(Y.Orientation, RY);
                        for (int R = 0; R < 3; ++R) {
                            double Position =
                                L[R * 3] * X.Position[0] + L[R * 3 + 1] * X.Position[1] + L[R * 3 + 2] * X.Position[2];
                            EXPECT_NEAR(Y.Position[R], Position, 1e-4 * (1 + std::fabs(Position)))
                                << P.TransformTracks[Track].Name << " at " << Time;
                            for (int C = 0; C < 3; ++C) {
                                double Turned = 0;
                                for (int K = 0; K < 3; ++K)
                                    for (int J = 0; J < 3; ++J)
                                        Turned += L[R * 3 + K] * RX[K * 3 + J] * L[C * 3 + J] / (Scale * Scale);
                                EXPECT_NEAR(RY[R * 3 + C], Turned, 1e-4)
                                    << P.TransformTracks[Track].Name << " at " << Time;
                            }
                        }
                        ++Samples;
                    }
                }
            }
        }
        EXPECT_GT(Samples, 100);
        FreeLoadedFile(File);
    }
    FreeLoadedFile(DefaultFile);
}

TEST(BasisConversion, DefaultExportsOfTheSharedFilesHaveUnitNormals)
{
    std::vector<std::string> Files = ListSharedFBXFiles();
    if (Files.empty()) GTEST_SKIP() << "the shared FBX folder is missing";
    log_capture Quiet;
    int64 Unit = 0, Zero = 0;
    for (std::string const &Path : Files) {
        loaded_file *File = ExportAndLoad(Path, "");
        file_info *Info = Root(File);
        if (!Info) continue; // the damaged file of the corpus
        for (int32 M = 0; M < Info->MeshCount; ++M) {
            vertex_data const *Data = Info->Meshes[M]->PrimaryVertexData;
            if (!Data || !Data->Vertices.Type) continue;
            for (int32 V = 0; V < Data->Vertices.Count; ++V) {
                std::vector<real32> N = Member(Data, V, "Normal");
                double Length = std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]);
                if (Length == 0.0) {
                    ++Zero;
                } else {
                    ++Unit;
                    ASSERT_NEAR(Length, 1.0, 1e-5) << Path << " mesh " << Info->Meshes[M]->Name << " vertex " << V;
                }
            }
        }
        FreeLoadedFile(File);
    }
    RecordProperty("UnitNormals", (int)Unit);
    RecordProperty("ZeroNormals", (int)Zero);
    printf("unit normals %lld, zero normals %lld\n", (long long)Unit, (long long)Zero);
}
