// The manager that owns every object, the scene with its root node, global
// settings and takes, and the table of registered file writers.
#pragma once

#include "fbx/fbx_tessel_node.h"

class KFbxScene;
class KFbxIOPluginRegistry;

class KFbxSdkManager
{
public:
    static KFbxSdkManager *Create();
    // Destroys every object the manager still owns, then the manager.
    void Destroy();

    KFbxIOPluginRegistry *GetIOPluginRegistry() const { return mRegistry; }
    // The newest file format version the readers understand.
    static void GetFileFormatVersion(int32 &Major, int32 &Minor, int32 &Revision);

    // Bookkeeping of KFbxObject.
    bool RegisterObject(KFbxObject *Object);
    void UnregisterObject(KFbxObject *Object);
    int32 GetObjectCount() const { return mObjects.Count; }

    // Use Create and Destroy.
    KFbxSdkManager();
    ~KFbxSdkManager();
    KFbxSdkManager(KFbxSdkManager const &) = delete;
    KFbxSdkManager &operator=(KFbxSdkManager const &) = delete;

private:
    fbx_array<KFbxObject *> mObjects;
    KFbxIOPluginRegistry *mRegistry;
};

// ---------------------------------------------------------------------------
// Writers. Only their registration exists: the library's output never goes
// through them.

class KFbxWriter
{
public:
    virtual ~KFbxWriter() {}
    virtual bool FileCreate(char const *FileName) = 0;
    virtual bool FileClose() = 0;
    virtual bool IsFileOpen() = 0;
    virtual void *GetWriteOptions() = 0;
    virtual bool Write(KFbxScene *Scene) = 0;
    virtual bool PreprocessScene(KFbxScene &Scene) = 0;
    virtual bool PostprocessScene(KFbxScene &Scene) = 0;
    virtual bool SupportsStreams() const { return false; }
    virtual bool FileCreateStream(void *Stream) { return false; }
    virtual void SetProgressHandler(void *Handler) {}
    virtual void PluginWriteParameters(void *Parameters) {}
};

typedef KFbxWriter *(*fbx_writer_create_function)(KFbxSdkManager &Manager, int32 FormatId);
// Selector 0: extensions, 1: descriptions, 2: versions; a null-terminated
// list, or null for an unknown selector.
typedef char const *const *(*fbx_writer_description_function)(int32 Selector);
typedef void (*fbx_io_settings_function)(void *Settings);

class KFbxIOPluginRegistry
{
public:
    // Registers one writer for every extension its description lists.
    // FirstFormatId and FormatCount tell which format ids it received.
    bool RegisterWriter(fbx_writer_create_function Create, fbx_writer_description_function Description,
                        int32 &FirstFormatId, int32 &FormatCount, fbx_io_settings_function IOSettings);
    int32 GetWriterFormatCount() const { return mWriterFormatCount; }
    // Extension and description of a registered writer format.
    char const *GetWriterFormatExtension(int32 FormatId) const;
    char const *GetWriterFormatDescription(int32 FormatId) const;
    KFbxWriter *CreateWriter(KFbxSdkManager &Manager, int32 FormatId) const;

private:
    struct writer_entry
    {
        fbx_writer_create_function Create;
        fbx_writer_description_function Description;
        fbx_io_settings_function IOSettings;
        int32 FirstFormatId;
        int32 FormatCount;
    };
    writer_entry const *FindWriter(int32 FormatId, int32 *IndexInEntry) const;

    fbx_array<writer_entry> mWriters;
    int32 mWriterFormatCount = 0;
};

// ---------------------------------------------------------------------------
// Scene.

struct KFbxSystemUnit
{
    real64 ScaleFactor; // centimetres per unit
    real64 Multiplier;
    real64 GetScaleFactor() const { return ScaleFactor; }
    real64 GetMultiplier() const { return Multiplier; }
};

// A property looked up by name; holds a copy of its value.
class KFbxProperty
{
public:
    KFbxProperty() : mValid(false), mInteger(0), mReal(0.0) {}
    KFbxProperty(int32 Integer, real64 Real) : mValid(true), mInteger(Integer), mReal(Real) {}
    bool IsValid() const { return mValid; }
    int32 Get() const { return mInteger; }
    real64 GetDouble() const { return mReal; }

private:
    bool mValid;
    int32 mInteger;
    real64 mReal;
};

class KFbxGlobalSettings : public KFbxObject
{
public:
    KFbxGlobalSettings(KFbxSdkManager *Manager, char const *Name);

    // "UpAxis", "UpAxisSign", "FrontAxis", "FrontAxisSign", "CoordAxis",
    // "CoordAxisSign", "UnitScaleFactor", "TimeMode", "CustomFrameRate";
    // exact names.
    KFbxProperty FindProperty(char const *Name) const;
    KFbxSystemUnit GetSystemUnit() const { return KFbxSystemUnit{UnitScaleFactor, 1.0}; }
    int32 GetTimeMode() const { return TimeMode; }
    // The mode the scene's frames are counted in, set when the file is read:
    // its own time mode, or 30 frames a second when it names none; the
    // custom rate goes with the custom mode (30 when the file gives none).
    // Each scene keeps its own, so scenes loaded on several threads do not
    // meet.
    int32 GetFrameTimeMode() const { return FrameTimeMode; }
    real64 GetFrameCustomRate() const { return FrameCustomRate; }

    int32 UpAxis = 1;
    int32 UpAxisSign = 1;
    int32 FrontAxis = 2;
    int32 FrontAxisSign = 1;
    int32 CoordAxis = 0;
    int32 CoordAxisSign = 1;
    real64 UnitScaleFactor = 1.0;
    int32 TimeMode = 0;
    real64 CustomFrameRate = -1.0;
    int32 FrameTimeMode = FbxTimeMode_30;
    real64 FrameCustomRate = 30.0;
};

class KFbxTakeInfo
{
public:
    explicit KFbxTakeInfo(char const *Name);
    ~KFbxTakeInfo();
    KFbxTakeInfo(KFbxTakeInfo const &) = delete;
    KFbxTakeInfo &operator=(KFbxTakeInfo const &) = delete;

    char const *GetName() const { return mName; }
    KTimeSpan mLocalTimeSpan;
    KTimeSpan mReferenceTimeSpan;

private:
    char *mName;
};

// Owned copies of strings.
class KStringArray
{
public:
    KStringArray() {}
    ~KStringArray() { Clear(); }
    KStringArray(KStringArray const &) = delete;
    KStringArray &operator=(KStringArray const &) = delete;

    int32 GetCount() const { return mStrings.Count; }
    char const *GetAt(int32 Index) const { return mStrings.GetAt(Index); }
    char const *operator[](int32 Index) const { return mStrings.GetAt(Index); }
    bool Add(char const *String);
    bool Contains(char const *String) const;
    void Clear();

private:
    fbx_array<char *> mStrings;
};

class KFbxCollection : public KFbxObject
{
public:
    KFbxCollection(KFbxSdkManager *Manager, char const *Name) : KFbxObject(Manager, Name) {}
    int32 GetMemberCount() const { return mMembers.Count; }
    KFbxTakeNodeContainer *GetMember(int32 Index) const { return mMembers.GetAt(Index); }
    bool AddMember(KFbxTakeNodeContainer *Member);
    void RemoveMember(KFbxTakeNodeContainer *Member);

private:
    fbx_array<KFbxTakeNodeContainer *> mMembers;
};

class KFbxDocument : public KFbxCollection
{
public:
    KFbxDocument(KFbxSdkManager *Manager, char const *Name) : KFbxCollection(Manager, Name) {}
};

class KFbxScene : public KFbxDocument
{
public:
    static KFbxScene *Create(KFbxSdkManager *Manager, char const *Name);
    KFbxScene(KFbxSdkManager *Manager, char const *Name);
    ~KFbxScene() override;

    KFbxNode *GetRootNode() const { return mRootNode; }
    KFbxGlobalSettings &GetGlobalSettings() const { return *mGlobalSettings; }

    // Take names of every member's take data, each once, in order of first
    // appearance, member by member.
    void FillTakeNameArray(KStringArray &Names) const;
    // Exact, case-sensitive.
    KFbxTakeInfo *GetTakeInfo(char const *Name) const;
    // Adds a copy of Info, replacing one of the same name.
    bool SetTakeInfo(char const *Name, KTimeSpan LocalTimeSpan, KTimeSpan ReferenceTimeSpan);
    int32 GetTakeInfoCount() const { return mTakeInfos.Count; }
    KFbxTakeInfo *GetTakeInfoByIndex(int32 Index) const { return mTakeInfos.GetAt(Index); }

    // Makes the take current, whether or not every member has data for it;
    // the result says whether all have.
    bool SetCurrentTake(char const *Name);
    char const *GetCurrentTakeName() const { return mCurrentTake; }
    // Changes whenever another take becomes current; never 0.
    uint32 GetTakeGeneration() const { return mTakeGeneration; }
    char const *GetLastErrorString() const { return mErrorText; }

    // Adds a node (and its attributes) to the member list and gives it this scene.
    bool AddNode(KFbxNode *Node);

private:
    KFbxNode *mRootNode;
    KFbxGlobalSettings *mGlobalSettings;
    fbx_array<KFbxTakeInfo *> mTakeInfos;
    char *mCurrentTake;
    uint32 mTakeGeneration = 1;
    // What SetCurrentTake answered for the current take, over how many members.
    bool mCurrentTakeComplete = false;
    int32 mCheckedMemberCount = -1;
    char mErrorText[256];
};
