// The manager, the writer registry, global settings, takes and the scene.
#include "fbx/fbx_tessel_scene.h"

#include <cstdio>

KFbxSdkManager::KFbxSdkManager() : mRegistry(nullptr) {}

KFbxSdkManager::~KFbxSdkManager() {}

KFbxSdkManager *KFbxSdkManager::Create()
{
    KFbxSdkManager *Manager = FbxNew(KFbxSdkManager);
    if (!Manager) {
        return nullptr;
    }
    Manager->mRegistry = FbxNew(KFbxIOPluginRegistry);
    if (!Manager->mRegistry) {
        FbxDelete(Manager);
        return nullptr;
    }
    return Manager;
}

void KFbxSdkManager::Destroy()
{
    // Newest first, so that a scene goes before the manager-level objects it
    // was created after; no destructor reaches into another object.
    while (mObjects.Count > 0) {
        KFbxObject *Object = mObjects[mObjects.Count - 1];
        mObjects.RemoveAt(mObjects.Count - 1);
        Object->DetachFromManager();
        FbxDelete(Object);
    }
    FbxDelete(mRegistry);
    FbxDelete(this);
}

void KFbxSdkManager::GetFileFormatVersion(int32 &Major, int32 &Minor, int32 &Revision)
{
    Major = 7;
    Minor = 5;
    Revision = 0;
}

bool KFbxSdkManager::RegisterObject(KFbxObject *Object)
{
    if (!mObjects.Add(Object)) {
        TesselError(LogCategory_FBX, "Out of memory registering object %s", Object->GetName());
        return false;
    }
    return true;
}

void KFbxSdkManager::UnregisterObject(KFbxObject *Object)
{
    // Objects mostly go newest first: search from the end.
    for (int32 Index = mObjects.Count - 1; Index >= 0; --Index) {
        if (mObjects[Index] == Object) {
            mObjects.RemoveAt(Index);
            return;
        }
    }
}

// ---------------------------------------------------------------------------

bool KFbxIOPluginRegistry::RegisterWriter(fbx_writer_create_function Create,
                                          fbx_writer_description_function Description, int32 &FirstFormatId,
                                          int32 &FormatCount, fbx_io_settings_function IOSettings)
{
    FirstFormatId = -1;
    FormatCount = 0;
    CheckPointer(Create, LogCategory_FBX, false);
    CheckPointer(Description, LogCategory_FBX, false);
    char const *const *Extensions = Description(0);
    int32 Count = 0;
    while (Extensions && Extensions[Count]) {
        ++Count;
    }
    if (Count < 1) {
        return false;
    }
    writer_entry Entry = {Create, Description, IOSettings, mWriterFormatCount, Count};
    if (!mWriters.Add(Entry)) {
        return false;
    }
    FirstFormatId = mWriterFormatCount;
    FormatCount = Count;
    mWriterFormatCount += Count;
    return true;
}

KFbxIOPluginRegistry::writer_entry const *KFbxIOPluginRegistry::FindWriter(int32 FormatId, int32 *IndexInEntry) const
{
    for (int32 Index = 0; Index < mWriters.Count; ++Index) {
        writer_entry const &Entry = mWriters[Index];
        if (FormatId >= Entry.FirstFormatId && FormatId < Entry.FirstFormatId + Entry.FormatCount) {
            *IndexInEntry = FormatId - Entry.FirstFormatId;
            return &Entry;
        }
    }
    return nullptr;
}

char const *KFbxIOPluginRegistry::GetWriterFormatExtension(int32 FormatId) const
{
    int32 At = 0;
    writer_entry const *Entry = FindWriter(FormatId, &At);
    char const *const *List = Entry ? Entry->Description(0) : nullptr;
    return List ? List[At] : nullptr;
}

char const *KFbxIOPluginRegistry::GetWriterFormatDescription(int32 FormatId) const
{
    int32 At = 0;
    writer_entry const *Entry = FindWriter(FormatId, &At);
    char const *const *List = Entry ? Entry->Description(1) : nullptr;
    return List ? List[At] : nullptr;
}

KFbxWriter *KFbxIOPluginRegistry::CreateWriter(KFbxSdkManager &Manager, int32 FormatId) const
{
    int32 At = 0;
    writer_entry const *Entry = FindWriter(FormatId, &At);
    return Entry ? Entry->Create(Manager, FormatId) : nullptr;
}

// ---------------------------------------------------------------------------

KFbxGlobalSettings::KFbxGlobalSettings(KFbxSdkManager *Manager, char const *Name) : KFbxObject(Manager, Name) {}

KFbxProperty KFbxGlobalSettings::FindProperty(char const *Name) const
{
    struct named_int
    {
        char const *Name;
        int32 const *Value;
    };
    named_int const Integers[] = {
        {"UpAxis", &UpAxis},       {"UpAxisSign", &UpAxisSign},
        {"FrontAxis", &FrontAxis}, {"FrontAxisSign", &FrontAxisSign},
        {"CoordAxis", &CoordAxis}, {"CoordAxisSign", &CoordAxisSign},
        {"TimeMode", &TimeMode},
    };
    if (!Name) {
        return KFbxProperty();
    }
    for (named_int const &Entry : Integers) {
        if (StringsAreExactlyEqual(Entry.Name, Name)) {
            return KFbxProperty(*Entry.Value, (real64)*Entry.Value);
        }
    }
    if (StringsAreExactlyEqual(Name, "UnitScaleFactor")) {
        return KFbxProperty((int32)UnitScaleFactor, UnitScaleFactor);
    }
    if (StringsAreExactlyEqual(Name, "CustomFrameRate")) {
        return KFbxProperty((int32)CustomFrameRate, CustomFrameRate);
    }
    return KFbxProperty();
}

KFbxTakeInfo::KFbxTakeInfo(char const *Name) : mName(FbxCopyString(Name)) {}

KFbxTakeInfo::~KFbxTakeInfo()
{
    TesselFree(mName);
}

bool KStringArray::Add(char const *String)
{
    char *Copy = FbxCopyString(String);
    if (!Copy || !mStrings.Add(Copy)) {
        TesselFree(Copy);
        return false;
    }
    return true;
}

bool KStringArray::Contains(char const *String) const
{
    for (int32 Index = 0; Index < mStrings.Count; ++Index) {
        if (StringsAreExactlyEqual(mStrings[Index], String)) {
            return true;
        }
    }
    return false;
}

void KStringArray::Clear()
{
    for (int32 Index = 0; Index < mStrings.Count; ++Index) {
        TesselFree(mStrings[Index]);
    }
    mStrings.Clear();
}

bool KFbxCollection::AddMember(KFbxTakeNodeContainer *Member)
{
    if (!Member || mMembers.Find(Member) >= 0) {
        return Member != nullptr;
    }
    return mMembers.Add(Member);
}

void KFbxCollection::RemoveMember(KFbxTakeNodeContainer *Member)
{
    int32 Index = mMembers.Find(Member);
    if (Index >= 0) {
        mMembers.RemoveAt(Index);
    }
}

// ---------------------------------------------------------------------------

KFbxScene::KFbxScene(KFbxSdkManager *Manager, char const *Name)
    : KFbxDocument(Manager, Name), mRootNode(nullptr), mGlobalSettings(nullptr), mCurrentTake(FbxCopyString("Default"))
{
    mErrorText[0] = 0;
}

KFbxScene::~KFbxScene()
{
    for (int32 Index = 0; Index < mTakeInfos.Count; ++Index) {
        FbxDelete(mTakeInfos[Index]);
    }
    TesselFree(mCurrentTake);
}

KFbxScene *KFbxScene::Create(KFbxSdkManager *Manager, char const *Name)
{
    CheckPointer(Manager, LogCategory_FBX, nullptr);
    KFbxScene *Scene = FbxKeepWhole(FbxNew(KFbxScene, Manager, Name));
    if (!Scene) {
        return nullptr;
    }
    Scene->mRootNode = KFbxNode::Create(Manager, "RootNode");
    Scene->mGlobalSettings = FbxKeepWhole(FbxNew(KFbxGlobalSettings, Manager, "GlobalSettings"));
    if (!Scene->mRootNode || !Scene->mGlobalSettings || !Scene->mCurrentTake) {
        if (Scene->mRootNode) Scene->mRootNode->Destroy();
        if (Scene->mGlobalSettings) Scene->mGlobalSettings->Destroy();
        Scene->Destroy();
        return nullptr;
    }
    Scene->mRootNode->SetScene(Scene);
    return Scene;
}

bool KFbxScene::AddNode(KFbxNode *Node)
{
    CheckPointer(Node, LogCategory_FBX, false);
    Node->SetScene(this);
    bool Result = AddMember(Node);
    for (int32 Index = 0; Index < Node->GetNodeAttributeCount(); ++Index) {
        Result = AddMember(Node->GetNodeAttributeByIndex(Index)) && Result;
    }
    return Result;
}

void KFbxScene::FillTakeNameArray(KStringArray &Names) const
{
    Names.Clear();
    if (GetMemberCount() > 0) {
        Names.Add("Default");
    }
    for (int32 Member = 0; Member < GetMemberCount(); ++Member) {
        KFbxTakeNodeContainer *Container = GetMember(Member);
        for (int32 Take = 0; Take < Container->GetTakeNodeCount(); ++Take) {
            char const *Name = Container->GetTakeNodeName(Take);
            if (!Names.Contains(Name)) {
                Names.Add(Name);
            }
        }
    }
}

KFbxTakeInfo *KFbxScene::GetTakeInfo(char const *Name) const
{
    if (!Name) {
        return nullptr;
    }
    for (int32 Index = 0; Index < mTakeInfos.Count; ++Index) {
        if (StringsAreExactlyEqual(mTakeInfos[Index]->GetName(), Name)) {
            return mTakeInfos[Index];
        }
    }
    return nullptr;
}

bool KFbxScene::SetTakeInfo(char const *Name, KTimeSpan LocalTimeSpan, KTimeSpan ReferenceTimeSpan)
{
    CheckPointer(Name, LogCategory_FBX, false);
    KFbxTakeInfo *Info = GetTakeInfo(Name);
    if (!Info) {
        Info = FbxNew(KFbxTakeInfo, Name);
        if (!Info || !Info->GetName() || !mTakeInfos.Add(Info)) {
            FbxDelete(Info);
            return false;
        }
    }
    Info->mLocalTimeSpan = LocalTimeSpan;
    Info->mReferenceTimeSpan = ReferenceTimeSpan;
    return true;
}

bool KFbxScene::SetCurrentTake(char const *Name)
{
    CheckPointer(Name, LogCategory_FBX, false);
    // Sampling makes the same take current before every sample: that costs
    // one comparison.
    if (mCurrentTake && StringsAreExactlyEqual(mCurrentTake, Name) && mCheckedMemberCount == GetMemberCount()) {
        return mCurrentTakeComplete;
    }
    char *Copy = FbxCopyString(Name);
    if (!Copy) {
        return false;
    }
    bool Changed = !mCurrentTake || !StringsAreExactlyEqual(mCurrentTake, Name);
    TesselFree(mCurrentTake);
    mCurrentTake = Copy;
    if (Changed && ++mTakeGeneration == 0) {
        mTakeGeneration = 1;
    }
    mCheckedMemberCount = GetMemberCount();
    mCurrentTakeComplete = false;
    for (int32 Member = 0; Member < GetMemberCount(); ++Member) {
        if (!GetMember(Member)->HasTakeNode(Name)) {
            snprintf(mErrorText, sizeof(mErrorText), "Not all nodes have a take node called %s", Name);
            return false;
        }
    }
    mCurrentTakeComplete = true;
    mErrorText[0] = 0;
    return true;
}
