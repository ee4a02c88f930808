// The scene readers: each walks an opened field container and fills a
// scene. FBX 7 keeps objects by id and animation in stacks, layers and curve
// nodes; FBX 6 keeps them by name with a Takes section; FBX 5 keeps models
// at the top level with their children and skin links inline.
#pragma once

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_scene.h"

class KFbxReaderFbx6
{
public:
    KFbxReaderFbx6(KFbx &Fbx, KFbxSdkManager &Manager) : mFbx(Fbx), mManager(Manager) { mError[0] = 0; }
    // False with GetError set when a section could not be read.
    bool Read(KFbxScene *Scene);
    char const *GetError() const { return mError; }

private:
    KFbx &mFbx;
    KFbxSdkManager &mManager;
    char mError[256];
};

class KFbxReaderFbx7
{
public:
    KFbxReaderFbx7(KFbx &Fbx, KFbxSdkManager &Manager) : mFbx(Fbx), mManager(Manager) { mError[0] = 0; }
    bool Read(KFbxScene *Scene);
    char const *GetError() const { return mError; }

private:
    KFbx &mFbx;
    KFbxSdkManager &mManager;
    char mError[256];
};

// FBX 5 (versions 5000 to 5999).
class KFbxReaderFbx
{
public:
    KFbxReaderFbx(KFbx &Fbx, KFbxSdkManager &Manager) : mFbx(Fbx), mManager(Manager) { mError[0] = 0; }
    bool Read(KFbxScene *Scene);
    char const *GetError() const { return mError; }

private:
    KFbx &mFbx;
    KFbxSdkManager &mManager;
    char mError[256];
};

// Takes in the FBX 5 and 6 form (Take fields with Channel trees). Nodes are
// looked up by their full name ("Model::Cube"). With SetDefaults the
// channels' Default values of the current take also become the nodes'
// property values (FBX 5 keeps no other).
class fbx_object_table;
bool ReadFbxTakes(KFbx &Fbx, fbx_field const *Takes, KFbxScene *Scene, fbx_object_table &Objects, bool SetDefaults);
// Keys of one Channel field in the Key list form.
class KFCurve;
bool ReadFbxChannelCurve(KFbx &Fbx, fbx_field const *Channel, KFCurve *Curve);

// Applies the scene's time mode to the process-wide default.
void ApplyFbxSceneTimeMode(KFbxScene *Scene);
