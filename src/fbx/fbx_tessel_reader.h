// The scene readers: each walks an opened field container and fills a
// scene. FBX 7 keeps objects by id and animation in stacks, layers and curve
// nodes; FBX 6 keeps them by name with a Takes section; FBX 5 keeps models
// at the top level with their children and skin links inline.
#pragma once

#include "fbx/fbx_tessel_field_container.h"
#include "fbx/fbx_tessel_scene.h"

// What the readers of every version share: the field container they walk,
// the manager that owns what they make, and the text of the last failure.
class KFbxReader
{
public:
    KFbxReader(KFbx &Fbx, KFbxSdkManager &Manager) : mFbx(Fbx), mManager(Manager) { mError[0] = 0; }
    char const *GetError() const { return mError; }

protected:
    KFbx &mFbx;
    KFbxSdkManager &mManager;
    char mError[256];
};

// FBX 6. Read is false with GetError set when a section could not be read.
class KFbxReaderFbx6 : public KFbxReader
{
public:
    using KFbxReader::KFbxReader;
    bool Read(KFbxScene *Scene);
};

// FBX 7.
class KFbxReaderFbx7 : public KFbxReader
{
public:
    using KFbxReader::KFbxReader;
    bool Read(KFbxScene *Scene);
};

// FBX 5 (versions 5000 to 5999).
class KFbxReaderFbx : public KFbxReader
{
public:
    using KFbxReader::KFbxReader;
    bool Read(KFbxScene *Scene);
};

// Takes in the FBX 5 and 6 form (Take fields with Channel trees). Nodes are
// looked up by their full name ("Model::Cube"). With SetDefaults the
// channels' Default values of the current take also become the nodes'
// property values (FBX 5 keeps no other).
class fbx_object_table;
bool ReadFbxTakes(KFbx &Fbx, fbx_field const *Takes, KFbxScene *Scene, fbx_object_table &Objects, bool SetDefaults);
// FBX 5: the defaults of a "Transform" channel tree kept directly under a
// Model field become the node's local properties.
void ReadFbxModelTransformDefaults(KFbx &Fbx, fbx_field const *Model, KFbxNode *Node);
// Keys of one Channel field in the Key list form.
class KFCurve;
bool ReadFbxChannelCurve(KFbx &Fbx, fbx_field const *Channel, KFCurve *Curve);
// The Pre-Extrapolation and Post-Extrapolation children of a curve field
// (a Channel of FBX 5 and 6, an AnimationCurve of FBX 7).
void ReadFbxCurveExtrapolation(KFbx &Fbx, fbx_field const *Curve, KFCurve *Result);

// Sets the mode the scene counts frames in from the file's time mode.
void ApplyFbxSceneTimeMode(KFbxScene *Scene);
