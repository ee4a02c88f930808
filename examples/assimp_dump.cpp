// Prints what Assimp (an independent FBX reader) finds in a file, as JSON, for
// examples/verify_scenes.py: the node tree with local matrices, the meshes
// with their first UVs and colors and their bones' offset matrices, and every
// animation channel's keys.
// Matrices are printed as Assimp keeps them: row-major for column vectors
// (the translation in elements 3, 7, 11).
//
// Not part of the build. Build and run by hand (Debian's libassimp-dev):
//   g++ -std=c++17 -O1 examples/assimp_dump.cpp -lassimp -o /tmp/assimp_dump
//   /tmp/assimp_dump examples/rigged_arm.fbx
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/scene.h>

#include <cstdio>

static void PrintMatrix(const aiMatrix4x4 &M)
{
    const float *P = &M.a1;
    printf("[");
    for (int I = 0; I < 16; ++I) printf("%s%.9g", I ? "," : "", P[I]);
    printf("]");
}

static void PrintNodes(const aiNode *Node, const aiNode *Parent, bool &First)
{
    printf("%s\n  {\"name\": \"%s\", \"parent\": ", First ? "" : ",", Node->mName.C_Str());
    First = false;
    if (Parent)
        printf("\"%s\"", Parent->mName.C_Str());
    else
        printf("null");
    printf(", \"local\": ");
    PrintMatrix(Node->mTransformation);
    printf(", \"meshes\": [");
    for (unsigned I = 0; I < Node->mNumMeshes; ++I) printf("%s%u", I ? "," : "", Node->mMeshes[I]);
    printf("]}");
    for (unsigned I = 0; I < Node->mNumChildren; ++I) PrintNodes(Node->mChildren[I], Node, First);
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: assimp_dump file.fbx\n");
        return 2;
    }
    Assimp::Importer Importer;
    Importer.SetPropertyBool(AI_CONFIG_IMPORT_FBX_PRESERVE_PIVOTS, false);
    const aiScene *Scene = Importer.ReadFile(argv[1], 0);
    if (!Scene) {
        fprintf(stderr, "%s\n", Importer.GetErrorString());
        return 1;
    }

    printf("{\"nodes\": [");
    bool First = true;
    PrintNodes(Scene->mRootNode, nullptr, First);
    printf("],\n\"meshes\": [");
    for (unsigned M = 0; M < Scene->mNumMeshes; ++M) {
        const aiMesh *Mesh = Scene->mMeshes[M];
        printf("%s\n  {\"name\": \"%s\", \"faces\": %u, \"uvs\": [", M ? "," : "", Mesh->mName.C_Str(),
               Mesh->mNumFaces);
        // The first 8 vertices of every UV set and color set; without
        // post-processing the vertices are the polygon corners in order.
        unsigned Corners = Mesh->mNumVertices < 8 ? Mesh->mNumVertices : 8;
        for (unsigned Set = 0; Set < AI_MAX_NUMBER_OF_TEXTURECOORDS && Mesh->mTextureCoords[Set]; ++Set) {
            printf("%s[", Set ? "," : "");
            for (unsigned V = 0; V < Corners; ++V)
                printf("%s[%.9g,%.9g]", V ? "," : "", Mesh->mTextureCoords[Set][V].x, Mesh->mTextureCoords[Set][V].y);
            printf("]");
        }
        printf("], \"colors\": [");
        for (unsigned Set = 0; Set < AI_MAX_NUMBER_OF_COLOR_SETS && Mesh->mColors[Set]; ++Set) {
            printf("%s[", Set ? "," : "");
            for (unsigned V = 0; V < Corners; ++V) {
                const aiColor4D &C = Mesh->mColors[Set][V];
                printf("%s[%.9g,%.9g,%.9g,%.9g]", V ? "," : "", C.r, C.g, C.b, C.a);
            }
            printf("]");
        }
        printf("], \"bones\": [");
        for (unsigned B = 0; B < Mesh->mNumBones; ++B) {
            const aiBone *Bone = Mesh->mBones[B];
            printf("%s\n    {\"name\": \"%s\", \"weights\": %u, \"offset\": ", B ? "," : "", Bone->mName.C_Str(),
                   Bone->mNumWeights);
            PrintMatrix(Bone->mOffsetMatrix);
            printf("}");
        }
        printf("]}");
    }
    printf("],\n\"animations\": [");
    for (unsigned A = 0; A < Scene->mNumAnimations; ++A) {
        const aiAnimation *Anim = Scene->mAnimations[A];
        printf("%s\n  {\"name\": \"%s\", \"duration\": %.9g, \"ticks_per_second\": %.9g, \"channels\": [", A ? "," : "",
               Anim->mName.C_Str(), Anim->mDuration, Anim->mTicksPerSecond);
        for (unsigned C = 0; C < Anim->mNumChannels; ++C) {
            const aiNodeAnim *Channel = Anim->mChannels[C];
            printf("%s\n    {\"node\": \"%s\", \"position\": [", C ? "," : "", Channel->mNodeName.C_Str());
            for (unsigned K = 0; K < Channel->mNumPositionKeys; ++K) {
                const aiVectorKey &Key = Channel->mPositionKeys[K];
                printf("%s[%.9g,%.9g,%.9g,%.9g]", K ? "," : "", Key.mTime, Key.mValue.x, Key.mValue.y, Key.mValue.z);
            }
            printf("], \"rotation\": [");
            for (unsigned K = 0; K < Channel->mNumRotationKeys; ++K) {
                const aiQuatKey &Key = Channel->mRotationKeys[K];
                printf("%s[%.9g,%.9g,%.9g,%.9g,%.9g]", K ? "," : "", Key.mTime, Key.mValue.x, Key.mValue.y,
                       Key.mValue.z, Key.mValue.w);
            }
            printf("], \"scaling\": [");
            for (unsigned K = 0; K < Channel->mNumScalingKeys; ++K) {
                const aiVectorKey &Key = Channel->mScalingKeys[K];
                printf("%s[%.9g,%.9g,%.9g,%.9g]", K ? "," : "", Key.mTime, Key.mValue.x, Key.mValue.y, Key.mValue.z);
            }
            printf("]}");
        }
        printf("]}");
    }
    printf("]}\n");
    return 0;
}
