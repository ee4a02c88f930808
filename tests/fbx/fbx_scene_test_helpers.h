// Helpers of the scene model tests: loading written scenes, finding nodes,
// and plain 4x4 matrices (column vectors) to compute expectations without the
// model's own matrix code.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "fbx/fbx_tessel_importer.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_skin.h"
#include "support/fbx_test_writer.h"

struct loaded_scene
{
    KFbxSdkManager *Manager = nullptr;
    KFbxScene *Scene = nullptr;
    std::string Error;
    loaded_scene() = default;
    loaded_scene(loaded_scene const &) = delete;
    ~loaded_scene() { Release(); }
    void Release()
    {
        if (Manager) Manager->Destroy();
        Manager = nullptr;
        Scene = nullptr;
    }
};

inline bool LoadFbxBytes(std::vector<uint8_t> const &Bytes, loaded_scene &Result)
{
    Result.Release();
    Result.Manager = KFbxSdkManager::Create();
    Result.Scene = KFbxScene::Create(Result.Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Result.Manager, "");
    bool Ok = Importer->InitializeFromMemory(Bytes.data(), (int64)Bytes.size()) && Importer->Import(Result.Scene);
    Result.Error = Importer->GetLastErrorString();
    Importer->Destroy();
    return Ok;
}

inline KFbxNode *FindFbxNode(KFbxNode *Node, char const *Name)
{
    if (!Node) return nullptr;
    if (StringsAreExactlyEqual(Node->GetName(), Name)) return Node;
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index) {
        if (KFbxNode *Found = FindFbxNode(Node->GetChild(Index), Name)) return Found;
    }
    return nullptr;
}

// Column-vector 4x4: M[row][column], a point p maps to M p.
struct mat4
{
    double M[4][4];
};

inline mat4 Identity4()
{
    mat4 R = {};
    for (int I = 0; I < 4; ++I) R.M[I][I] = 1.0;
    return R;
}

inline mat4 operator*(mat4 const &A, mat4 const &B)
{
    mat4 R = {};
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J)
            for (int K = 0; K < 4; ++K) R.M[I][J] += A.M[I][K] * B.M[K][J];
    return R;
}

inline mat4 Translate4(double X, double Y, double Z)
{
    mat4 R = Identity4();
    R.M[0][3] = X;
    R.M[1][3] = Y;
    R.M[2][3] = Z;
    return R;
}

inline mat4 Scale4(double X, double Y, double Z)
{
    mat4 R = Identity4();
    R.M[0][0] = X;
    R.M[1][1] = Y;
    R.M[2][2] = Z;
    return R;
}

// Right-handed rotation about one axis, degrees.
inline mat4 Rotate4(int Axis, double Degrees)
{
    double A = Degrees * M_PI / 180.0, C = std::cos(A), S = std::sin(A);
    mat4 R = Identity4();
    int U = (Axis + 1) % 3, V = (Axis + 2) % 3;
    R.M[U][U] = C;
    R.M[U][V] = -S;
    R.M[V][U] = S;
    R.M[V][V] = C;
    return R;
}

// Euler rotation: the order's first axis turns first. Order 0..5 as in files.
inline mat4 Euler4(double const Degrees[3], int Order)
{
    static int const Axes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}, {2, 1, 0}};
    int const *O = Axes[Order % 6];
    return Rotate4(O[2], Degrees[O[2]]) * Rotate4(O[1], Degrees[O[1]]) * Rotate4(O[0], Degrees[O[0]]);
}

inline mat4 Transpose4(mat4 const &A)
{
    mat4 R;
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J) R.M[I][J] = A.M[J][I];
    return R;
}

inline void ExpectMatrixNear(AffineMatrix const &Actual, mat4 const &Expected, double Tolerance,
                             std::string const &What)
{
    for (int Row = 0; Row < 4; ++Row)
        for (int Column = 0; Column < 4; ++Column)
            EXPECT_NEAR(Actual.mData[Row][Column], Expected.M[Column][Row], Tolerance)
                << What << " element [" << Row << "][" << Column << "]";
}
