// Opening an FBX file and filling a scene from it, and a one-call loader
// with scene statistics for tools.
#pragma once

#include "fbx/fbx_tessel_scene.h"

class KFbx;

class KFbxIO : public KFbxObject
{
public:
    KFbxIO(KFbxSdkManager *Manager, char const *Name) : KFbxObject(Manager, Name) { mErrorText[0] = 0; }
    char const *GetLastErrorString() const { return mErrorText; }

protected:
    void SetError(char const *Format, ...);
    void ClearError() { mErrorText[0] = 0; }

private:
    char mErrorText[512];
};

class KFbxImporter : public KFbxIO
{
public:
    static KFbxImporter *Create(KFbxSdkManager *Manager, char const *Name);
    KFbxImporter(KFbxSdkManager *Manager, char const *Name);
    ~KFbxImporter() override;

    // Opens the file, detects binary or ASCII, and reads the header. Fails
    // with "Corrupted or invalid file." when the file cannot be read as FBX,
    // "FBX File version N is not supported in this product" for versions it
    // cannot read, and "Encryption type is not supported" for encrypted
    // files. FileFormat -1 detects the format.
    virtual bool Initialize(char const *FileName, int32 FileFormat = -1);
    // The same over a block of memory (copied).
    bool InitializeFromMemory(void const *Data, int64 Size);
    // Fills Scene; on failure the error text says why and the scene is not usable.
    bool Import(KFbxScene *Scene, void *Stream = nullptr);

    // Header values after Initialize.
    int32 GetFileVersionNumber() const { return mVersion; }
    void GetFileVersion(int32 &Major, int32 &Minor, int32 &Revision) const;
    char const *GetCreator() const { return mCreator; }
    bool IsBinary() const;
    struct time_stamp
    {
        int32 Year, Month, Day, Hour, Minute, Second, Millisecond;
    };
    time_stamp const &GetCreationTimeStamp() const { return mTimeStamp; }

private:
    bool Open(char const *FileName, void const *Data, int64 Size);

    KFbx *mFbx;
    int32 mVersion;
    char mCreator[256];
    time_stamp mTimeStamp;
};

// One call: a manager, a scene in it, and the file imported into it. On
// failure the manager is destroyed, both results are null and ErrorText (when
// given) holds the importer's message.
bool LoadFBXSceneFromFile(char const *Path, KFbxSdkManager **Manager, KFbxScene **Scene, char *ErrorText = nullptr,
                          int32 ErrorTextSize = 0);

struct fbx_scene_counts
{
    int32 NodeCount;         // without the root
    int32 MeshCount;         // nodes with a mesh
    int32 ControlPointCount; // over all meshes
    int32 PolygonCount;
    int32 TriangleCount; // polygons of n corners count n - 2
    int32 SkinCount;
    int32 SkinClusterCount; // clusters of all skins, linked or not
    int32 TakeCount;        // take records of the file
};
void CountFBXScene(KFbxScene *Scene, fbx_scene_counts *Counts);
