// The importer: file checks, reader choice by version, and the loader.
#include "fbx/fbx_tessel_importer.h"

#include <cstdarg>
#include <cstdio>

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_mesh.h"
#include "fbx/fbx_tessel_reader.h"
#include "fbx/fbx_tessel_skin.h"
#include "platform/tessel_platform.h"

void KFbxIO::SetError(char const *Format, ...)
{
    va_list Arguments;
    va_start(Arguments, Format);
    vsnprintf(mErrorText, sizeof(mErrorText), Format, Arguments);
    va_end(Arguments);
}

KFbxImporter *KFbxImporter::Create(KFbxSdkManager *Manager, char const *Name)
{
    return FbxKeepWhole(FbxNew(KFbxImporter, Manager, Name));
}

KFbxImporter::KFbxImporter(KFbxSdkManager *Manager, char const *Name)
    : KFbxIO(Manager, Name), mFbx(nullptr), mVersion(0), mTimeStamp()
{
    mCreator[0] = 0;
}

KFbxImporter::~KFbxImporter()
{
    FbxDelete(mFbx);
}

bool KFbxImporter::IsBinary() const
{
    return mFbx && mFbx->IsBinary();
}

void KFbxImporter::GetFileVersion(int32 &Major, int32 &Minor, int32 &Revision) const
{
    Major = mVersion / 1000;
    Minor = (mVersion % 1000) / 100;
    Revision = mVersion % 100;
}

bool KFbxImporter::Initialize(char const *FileName, int32 FileFormat)
{
    return Open(FileName, nullptr, 0);
}

bool KFbxImporter::InitializeFromMemory(void const *Data, int64 Size)
{
    return Open(nullptr, Data, Size);
}

// The top-level block that every file of this version has and this one
// lacks, or null. FBX 6 and 7 keep their objects in "Objects" and the links
// between them in "Connections"; FBX 5 puts each "Model" at the top.
static char const *FindMissingSection(KFbx const &Fbx, int32 Version)
{
    if (Version < 6000) return Fbx.FindChild(nullptr, "Model") ? nullptr : "Model";
    if (!Fbx.FindChild(nullptr, "Objects")) return "Objects";
    if (!Fbx.FindChild(nullptr, "Connections")) return "Connections";
    return nullptr;
}

bool KFbxImporter::Open(char const *FileName, void const *Data, int64 Size)
{
    ClearError();
    FbxDelete(mFbx);
    mFbx = nullptr;
    mVersion = 0;
    mCreator[0] = 0;
    if (!FileName && !Data) {
        SetError("Corrupted or invalid file.");
        return false;
    }
    mFbx = FbxNew(KFbx);
    bool Opened = mFbx && (FileName ? mFbx->ProjectOpenFile(FileName) : mFbx->ProjectOpenMemory(Data, Size));
    if (!Opened) {
        if (mFbx) {
            TesselWarning(LogCategory_FBX, "%s: %s", FileName ? FileName : "memory", mFbx->GetErrorText());
        }
        FbxDelete(mFbx);
        mFbx = nullptr;
        SetError("Corrupted or invalid file.");
        return false;
    }
    fbx_field const *Header = mFbx->FindChild(nullptr, "FBXHeaderExtension");
    // The header extension's version wins: old binary files carry an older
    // number in the binary header than the layout they use.
    mVersion = mFbx->GetInt32(mFbx->FindChild(Header, "FBXVersion"), 0, 0);
    if (mVersion <= 0) {
        mVersion = mFbx->GetFileVersion();
    }
    int32 Encryption = mFbx->GetInt32(mFbx->FindChild(Header, "EncryptionType"), 0, 0);
    fbx_field const *Stamp = mFbx->FindChild(Header, "CreationTimeStamp");
    mTimeStamp.Year = mFbx->GetInt32(mFbx->FindChild(Stamp, "Year"), 0, 0);
    mTimeStamp.Month = mFbx->GetInt32(mFbx->FindChild(Stamp, "Month"), 0, 0);
    mTimeStamp.Day = mFbx->GetInt32(mFbx->FindChild(Stamp, "Day"), 0, 0);
    mTimeStamp.Hour = mFbx->GetInt32(mFbx->FindChild(Stamp, "Hour"), 0, 0);
    mTimeStamp.Minute = mFbx->GetInt32(mFbx->FindChild(Stamp, "Minute"), 0, 0);
    mTimeStamp.Second = mFbx->GetInt32(mFbx->FindChild(Stamp, "Second"), 0, 0);
    mTimeStamp.Millisecond = mFbx->GetInt32(mFbx->FindChild(Stamp, "Millisecond"), 0, 0);
    fbx_field const *Creator = mFbx->FindChild(Header, "Creator");
    if (!Creator) {
        Creator = mFbx->FindChild(nullptr, "Creator");
    }
    if (mFbx->CopyValueString(Creator, 0, mCreator, sizeof(mCreator)) < 0) {
        mCreator[0] = 0;
    }

    bool Ok = true;
    if (Encryption != 0) {
        SetError("Encryption type is not supported");
        Ok = false;
    } else if (mVersion <= 0) {
        SetError("Corrupted or invalid file.");
        Ok = false;
    } else if (mVersion / 1000 > 7 || mVersion < 5000) {
        SetError("FBX File version %d is not supported in this product", mVersion);
        Ok = false;
    } else if (char const *Missing = FindMissingSection(*mFbx, mVersion)) {
        // A file cut short at the end of a top-level block still parses;
        // without its objects or their connections it would read as an
        // empty scene.
        SetError("The file ends early: its %s section is missing", Missing);
        TesselWarning(LogCategory_FBX, "%s: %s", FileName ? GetBaseFileName(FileName) : "memory", GetLastErrorString());
        Ok = false;
    }
    if (!Ok) {
        FbxDelete(mFbx);
        mFbx = nullptr;
    }
    return Ok;
}

bool KFbxImporter::Import(KFbxScene *Scene, void *Stream)
{
    if (!mFbx) {
        if (!GetLastErrorString()[0]) {
            SetError("Corrupted or invalid file.");
        }
        return false;
    }
    CheckPointer(Scene, LogCategory_FBX, false);
    bool Ok;
    char const *Error;
    KFbxSdkManager &Manager = *GetFbxSdkManager();
    if (mVersion >= 7000) {
        KFbxReaderFbx7 Reader(*mFbx, Manager);
        Ok = Reader.Read(Scene);
        Error = Ok ? "" : Reader.GetError();
        if (!Ok) SetError("%s", Error[0] ? Error : "Corrupted or invalid file.");
    } else if (mVersion >= 6000) {
        KFbxReaderFbx6 Reader(*mFbx, Manager);
        Ok = Reader.Read(Scene);
        Error = Ok ? "" : Reader.GetError();
        if (!Ok) SetError("%s", Error[0] ? Error : "Corrupted or invalid file.");
    } else {
        KFbxReaderFbx Reader(*mFbx, Manager);
        Ok = Reader.Read(Scene);
        Error = Ok ? "" : Reader.GetError();
        if (!Ok) SetError("%s", Error[0] ? Error : "Corrupted or invalid file.");
    }
    // The file's fields are no longer needed once the scene stands.
    FbxDelete(mFbx);
    mFbx = nullptr;
    return Ok;
}

bool LoadFBXSceneFromFile(char const *Path, KFbxSdkManager **ManagerResult, KFbxScene **SceneResult, char *ErrorText,
                          int32 ErrorTextSize)
{
    if (ErrorText && ErrorTextSize > 0) {
        ErrorText[0] = 0;
    }
    CheckPointer(ManagerResult, LogCategory_FBX, false);
    CheckPointer(SceneResult, LogCategory_FBX, false);
    *ManagerResult = nullptr;
    *SceneResult = nullptr;
    KFbxSdkManager *Manager = KFbxSdkManager::Create();
    if (!Manager) {
        return false;
    }
    KFbxScene *Scene = KFbxScene::Create(Manager, "");
    KFbxImporter *Importer = KFbxImporter::Create(Manager, "");
    bool Ok = Scene && Importer && Importer->Initialize(Path, -1) && Importer->Import(Scene);
    if (!Ok) {
        if (ErrorText && ErrorTextSize > 0 && Importer) {
            snprintf(ErrorText, (size_t)ErrorTextSize, "%s", Importer->GetLastErrorString());
        }
        Manager->Destroy();
        return false;
    }
    Importer->Destroy();
    *ManagerResult = Manager;
    *SceneResult = Scene;
    return true;
}

static void CountNode(KFbxNode *Node, fbx_scene_counts *Counts, int32 Depth)
{
    for (int32 Index = 0; Index < Node->GetChildCount(); ++Index) {
        KFbxNode *Child = Node->GetChild(Index);
        ++Counts->NodeCount;
        if (KFbxMesh *Mesh = Child->GetMesh()) {
            ++Counts->MeshCount;
            Counts->ControlPointCount += Mesh->GetControlPointsCount();
            Counts->PolygonCount += Mesh->GetPolygonCount();
            for (int32 Polygon = 0; Polygon < Mesh->GetPolygonCount(); ++Polygon) {
                int32 Size = Mesh->GetPolygonSize(Polygon);
                Counts->TriangleCount += (Size >= 3) ? Size - 2 : 0;
            }
            for (int32 Skin = 0; Skin < Mesh->GetDeformerCount(FbxDeformer_Skin); ++Skin) {
                ++Counts->SkinCount;
                Counts->SkinClusterCount += ((KFbxSkin *)Mesh->GetDeformer(Skin, FbxDeformer_Skin))->GetClusterCount();
            }
        }
        if (Depth < 4096) {
            CountNode(Child, Counts, Depth + 1);
        }
    }
}

void CountFBXScene(KFbxScene *Scene, fbx_scene_counts *Counts)
{
    if (!Counts) {
        return;
    }
    *Counts = fbx_scene_counts();
    if (!Scene) {
        return;
    }
    CountNode(Scene->GetRootNode(), Counts, 0);
    Counts->TakeCount = Scene->GetTakeInfoCount();
}
