// The FBX 7 reader: objects by 64-bit id, C connections, geometry and node
// attribute objects, and animation stacks with their layers, curve nodes and
// curves, turned into the same takes and curve node trees as FBX 6 has.
#include <algorithm>
#include <cstdio>
#include <cmath>
#include <cstring>

#include "fbx/fbx_tessel_reader.h"
#include "fbx/fbx_tessel_reader_common.h"

namespace {

struct connection
{
    int64 Source;
    int64 Destination;
    char Property[32]; // empty for object-to-object
};

// Positions of the connections ordered by the id at one end, and by
// position among equal ids, so that an object's connections are found
// without scanning all of them and still come in file order.
struct link_index
{
    fbx_array<int32> Order;
    bool BySource = false;
};

int64 LinkEnd(connection const &Link, bool BySource)
{
    return BySource ? Link.Source : Link.Destination;
}

bool BuildLinkIndex(fbx_array<connection> const &Links, bool BySource, link_index &Index)
{
    Index.BySource = BySource;
    if (!Index.Order.ResizeUninitialised(Links.Count)) {
        return false;
    }
    for (int32 Position = 0; Position < Links.Count; ++Position) {
        Index.Order[Position] = Position;
    }
    std::sort(Index.Order.Data, Index.Order.Data + Index.Order.Count, [&](int32 A, int32 B) {
        int64 KeyA = LinkEnd(Links[A], BySource), KeyB = LinkEnd(Links[B], BySource);
        return KeyA < KeyB || (KeyA == KeyB && A < B);
    });
    return true;
}

// The range [*First, *End) of Index.Order holding the connections with Id at its end.
void FindLinks(fbx_array<connection> const &Links, link_index const &Index, int64 Id, int32 *First, int32 *End)
{
    int32 const *Begin = Index.Order.Data, *Finish = Index.Order.Data + Index.Order.Count;
    int32 const *Low = std::lower_bound(
        Begin, Finish, Id, [&](int32 Position, int64 Key) { return LinkEnd(Links[Position], Index.BySource) < Key; });
    int32 const *High = std::upper_bound(
        Low, Finish, Id, [&](int64 Key, int32 Position) { return Key < LinkEnd(Links[Position], Index.BySource); });
    *First = (int32)(Low - Begin);
    *End = (int32)(High - Begin);
}

struct anim_stack
{
    KTimeSpan Local;
    KTimeSpan Reference;
    bool HasLocal;
    bool HasReference;
};

struct anim_layer
{
    real64 Weight; // percent
    int32 BlendMode;
    int32 RotationAccumulation;
    int32 ScaleAccumulation;
};

struct anim_curve_node
{
    real64 Defaults[3];
};

} // namespace

static int32 AttributeTypeOfSubType(char const *SubType)
{
    if (strcmp(SubType, "LimbNode") == 0 || strcmp(SubType, "Limb") == 0 || strcmp(SubType, "Root") == 0)
        return FbxAttribute_Skeleton;
    if (strcmp(SubType, "Camera") == 0) return FbxAttribute_Camera;
    if (strcmp(SubType, "Light") == 0) return FbxAttribute_Light;
    if (strcmp(SubType, "Marker") == 0) return FbxAttribute_Marker;
    if (strcmp(SubType, "Null") == 0) return FbxAttribute_Null;
    return FbxAttribute_Unidentified;
}

template <typename apply>
static void WalkProperties70(KFbx &Fbx, fbx_field const *Object, apply Apply)
{
    fbx_field const *Block = Fbx.FindChild(Object, "Properties70");
    for (fbx_field const *P = Fbx.FindChild(Block, "P"); P; P = Fbx.FindNextSibling(P, "P")) {
        char Name[64];
        ReadFbxString(Fbx, P, 0, Name, sizeof(Name));
        Apply(Name, P);
    }
}

// The property template of an object type in Definitions: objects list only
// the properties that differ from it.
static fbx_field const *FindPropertyTemplate(KFbx &Fbx, char const *ObjectType)
{
    fbx_field const *Definitions = Fbx.FindChild(nullptr, "Definitions");
    for (fbx_field const *Type = Fbx.FindChild(Definitions, "ObjectType"); Type;
         Type = Fbx.FindNextSibling(Type, "ObjectType")) {
        if (Fbx.ValueStringIs(Type, 0, ObjectType)) {
            return Fbx.FindChild(Type, "PropertyTemplate");
        }
    }
    return nullptr;
}

// Keys of an AnimationCurve object: times, values, and attributes shared by
// runs of keys (flags, four data words, reference counts).
static bool ReadAnimationCurve(KFbx &Fbx, fbx_field const *Object, KFCurve *Curve)
{
    Curve->SetValue((real32)Fbx.GetReal64(Fbx.FindChild(Object, "Default"), 0, 0.0));
    ReadFbxCurveExtrapolation(Fbx, Object, Curve);
    int64 TimeCount = 0, ValueCount = 0, FlagCount = 0, DataCount = 0, RefCount = 0;
    fbx_field const *Times = Fbx.FindChild(Object, "KeyTime");
    fbx_field const *Values = Fbx.FindChild(Object, "KeyValueFloat");
    if (!Values) {
        Values = Fbx.FindChild(Object, "KeyValueDouble");
    }
    int64 const *TimeData = (int64 const *)Fbx.GetArrayData(Times, 0, FbxValue_ArrayInt64, &TimeCount);
    real64 const *ValueData = (real64 const *)Fbx.GetArrayData(Values, 0, FbxValue_ArrayReal64, &ValueCount);
    int32 const *Flags =
        (int32 const *)Fbx.GetArrayData(Fbx.FindChild(Object, "KeyAttrFlags"), 0, FbxValue_ArrayInt32, &FlagCount);
    int32 const *Refs =
        (int32 const *)Fbx.GetArrayData(Fbx.FindChild(Object, "KeyAttrRefCount"), 0, FbxValue_ArrayInt32, &RefCount);
    fbx_field const *DataField = Fbx.FindChild(Object, "KeyAttrDataFloat");
    // Binary files keep the data words as float bits; ASCII files write the
    // weight and velocity words as integers.
    bool Binary = Fbx.IsBinary();
    real32 const *DataBits = nullptr;
    real64 const *DataText = nullptr;
    if (Binary) {
        DataBits = (real32 const *)Fbx.GetArrayData(DataField, 0, FbxValue_ArrayReal32, &DataCount);
    } else {
        DataText = (real64 const *)Fbx.GetArrayData(DataField, 0, FbxValue_ArrayReal64, &DataCount);
    }
    if (TimeCount > 0 && (!TimeData || !ValueData)) {
        return false;
    }
    int64 Count = (TimeCount < ValueCount) ? TimeCount : ValueCount;
    Curve->KeyReserve((int32)Count);
    int64 Attribute = 0;
    int64 UsedByAttribute = 0;
    for (int64 Index = 0; Index < Count; ++Index) {
        while (Refs && Attribute < RefCount && UsedByAttribute >= Refs[Attribute]) {
            ++Attribute;
            UsedByAttribute = 0;
        }
        int64 Use = (Attribute < FlagCount) ? Attribute : FlagCount - 1;
        uint32 KeyFlags = (Use >= 0 && Flags) ? (uint32)Flags[Use] : (uint32)FbxKey_Linear;
        KFCurveKey Key = MakeCurveKey(KTime(TimeData[Index]), (real32)ValueData[Index], KeyFlags);
        if (Use >= 0 && 4 * Use + 3 < DataCount) {
            for (int32 Word = 0; Word < 4; ++Word) {
                if (Binary) {
                    memcpy(&Key.Data[Word].Word, &DataBits[4 * Use + Word], 4);
                } else if (Word < 2) {
                    // Slopes are written as decimals by some programs and as
                    // the integer of their float bits by others; a whole
                    // number too large to be a slope is such bits.
                    real64 Text = DataText[4 * Use + Word];
                    if (std::fabs(Text) >= 65536.0 && Text == std::floor(Text) && std::fabs(Text) < 4294967296.0) {
                        uint32 Bits = (uint32)(int64)Text;
                        memcpy(&Key.Data[Word].Word, &Bits, 4);
                    } else {
                        Key.Data[Word].Float = (real32)Text;
                    }
                } else {
                    Key.Data[Word].Word = (uint32)(int64)DataText[4 * Use + Word];
                }
            }
        }
        Curve->KeyAppend(Key);
        ++UsedByAttribute;
    }
    FillFbxAutomaticSlopes(Curve, false);
    return true;
}

static KTime ReadTimeProperty(KFbx &Fbx, fbx_field const *P)
{
    return KTime(Fbx.GetInt64(P, 4, 0));
}

// Puts one curve node of one layer into a model's take tree. The first layer
// fills the channel node itself; later layers chain below it.
static void AttachCurveNode(KFbx &Fbx, KFbxNode *Node, char const *TakeName, char Channel, int32 LayerIndex,
                            anim_layer const &Layer, fbx_field const *WeightCurve, KFCurveNode *Components[3])
{
    KFCurveNode *Transform = Node->GetOrAddTakeNode(TakeName, "Transform");
    if (!Transform) {
        return;
    }
    char ChannelName[2] = {Channel, 0};
    KFCurveNode *Base = Transform->FindOrAddChild(ChannelName);
    if (!Base) {
        return;
    }
    static char const *const Axes[3] = {"X", "Y", "Z"};
    KFCurveNode *Target = Base;
    bool Fresh = Base->GetCount() == 0;
    if (!Fresh || LayerIndex > 0) {
        if (Fresh) {
            // The layers below have no curves here: the defaults stand.
            for (int32 Axis = 0; Axis < 3; ++Axis) {
                Base->Add(FbxNew(KFCurveNode, Axes[Axis]));
            }
        }
        // A later layer (or a second curve node on the same layer).
        KFCurveNode *Last = Base;
        while (Last->GetLayer()) {
            Last = Last->GetLayer();
        }
        Target = FbxNew(KFCurveNode, ChannelName);
        if (!Target) {
            return;
        }
        Last->SetLayer(Target);
        int32 Type = FbxCurveNodeType_Additive;
        if (Layer.BlendMode == 1 || Layer.BlendMode == 2) {
            Type = FbxCurveNodeType_Override;
        } else if (Channel == 'R' && Layer.RotationAccumulation == 0) {
            Type = FbxCurveNodeType_RotationCompose;
        } else if (Channel == 'S' && Layer.ScaleAccumulation == 0) {
            Type = FbxCurveNodeType_Multiply;
        }
        Target->SetType(Type);
        Target->SetLayerWeight(Layer.Weight / 100.0);
        KFCurve *Weight = WeightCurve ? Target->WeightCurveCreate() : nullptr;
        if (Weight && !ReadAnimationCurve(Fbx, WeightCurve, Weight)) {
            Weight->KeyClear();
        }
    }
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        KFCurveNode *Component = Components[Axis];
        Components[Axis] = nullptr;
        if (!Component) {
            Component = FbxNew(KFCurveNode, Axes[Axis]);
        }
        Target->Add(Component);
    }
}

bool KFbxReaderFbx7::Read(KFbxScene *Scene)
{
    CheckPointer(Scene, LogCategory_FBX, false);
    fbx_object_table Objects;
    Objects.Add(0, nullptr, Scene->GetRootNode(), FbxObjectKind_Node, nullptr);

    // Extra records of animation objects, kept by object table index.
    fbx_array<anim_stack> Stacks;
    fbx_array<anim_layer> Layers;
    fbx_array<anim_curve_node> CurveNodes;

    fbx_field const *ModelTemplate = FindPropertyTemplate(mFbx, "Model");
    // The template's properties on a fresh node, made once (owned by no
    // manager) and copied into every model.
    struct scratch_node
    {
        KFbxNode *Node = nullptr;
        ~scratch_node()
        {
            if (Node) Node->Destroy();
        }
    } ModelDefaults;
    if (ModelTemplate) {
        ModelDefaults.Node = KFbxNode::Create(nullptr, "");
        if (ModelDefaults.Node) ReadFbxNodeProperties(mFbx, ModelTemplate, ModelDefaults.Node);
    }
    fbx_field const *StackTemplate = FindPropertyTemplate(mFbx, "AnimationStack");
    fbx_field const *LayerTemplate = FindPropertyTemplate(mFbx, "AnimationLayer");

    fbx_field const *ObjectsField = mFbx.FindChild(nullptr, "Objects");
    for (fbx_field const *Object = mFbx.GetFirstChild(ObjectsField); Object; Object = mFbx.GetNextSibling(Object)) {
        int64 Id = 0;
        if (!mFbx.GetValueInt64(Object, 0, &Id)) {
            continue;
        }
        char FullName[512], SubType[64];
        ReadFbxString(mFbx, Object, 1, FullName, sizeof(FullName));
        ReadFbxString(mFbx, Object, 2, SubType, sizeof(SubType));
        char const *Name = StripFbxClassPrefix(FullName);
        if (mFbx.FieldNameIs(Object, "Model")) {
            KFbxNode *Node = KFbxNode::Create(&mManager, Name);
            if (!Node) {
                return false;
            }
            if (ModelDefaults.Node) {
                CopyFbxNodeProperties(*ModelDefaults.Node, *Node);
            } else if (ModelTemplate) {
                ReadFbxNodeProperties(mFbx, ModelTemplate, Node);
            }
            ReadFbxNodeProperties(mFbx, Object, Node);
            Scene->AddNode(Node);
            Objects.Add(Id, nullptr, Node, FbxObjectKind_Node, Object);
        } else if (mFbx.FieldNameIs(Object, "Geometry") && strcmp(SubType, "Mesh") == 0) {
            KFbxMesh *Mesh = KFbxMesh::Create(&mManager, Name);
            if (!Mesh || !ReadFbxMeshGeometry(mFbx, Object, Mesh)) {
                snprintf(mError, sizeof(mError), "Could not read the geometry %.200s", FullName);
                return false;
            }
            Scene->AddMember(Mesh);
            Objects.Add(Id, nullptr, Mesh, FbxObjectKind_Mesh, Object);
        } else if (mFbx.FieldNameIs(Object, "NodeAttribute")) {
            KFbxNodeAttribute *Attribute = KFbxNodeAttribute::Create(&mManager, Name, AttributeTypeOfSubType(SubType));
            if (!Attribute) {
                return false;
            }
            Scene->AddMember(Attribute);
            Objects.Add(Id, nullptr, Attribute, FbxObjectKind_Attribute, Object);
        } else if (mFbx.FieldNameIs(Object, "Deformer") && strcmp(SubType, "Skin") == 0) {
            KFbxSkin *Skin = KFbxSkin::Create(&mManager, Name);
            if (!Skin) {
                return false;
            }
            ReadFbxSkinData(mFbx, Object, Skin);
            Scene->AddMember(Skin);
            Objects.Add(Id, nullptr, Skin, FbxObjectKind_Skin, Object);
        } else if (mFbx.FieldNameIs(Object, "Deformer") && strcmp(SubType, "Cluster") == 0) {
            KFbxCluster *Cluster = KFbxCluster::Create(&mManager, Name);
            if (!Cluster || !ReadFbxClusterData(mFbx, Object, Cluster)) {
                snprintf(mError, sizeof(mError), "Could not read the cluster %.200s", FullName);
                return false;
            }
            Scene->AddMember(Cluster);
            Objects.Add(Id, nullptr, Cluster, FbxObjectKind_Cluster, Object);
        } else if (mFbx.FieldNameIs(Object, "AnimationStack")) {
            anim_stack Stack = {};
            auto ReadStack = [&](char const *Property, fbx_field const *P) {
                if (strcmp(Property, "LocalStart") == 0) {
                    Stack.Local.SetStart(ReadTimeProperty(mFbx, P));
                    Stack.HasLocal = true;
                } else if (strcmp(Property, "LocalStop") == 0) {
                    Stack.Local.SetStop(ReadTimeProperty(mFbx, P));
                    Stack.HasLocal = true;
                } else if (strcmp(Property, "ReferenceStart") == 0) {
                    Stack.Reference.SetStart(ReadTimeProperty(mFbx, P));
                    Stack.HasReference = true;
                } else if (strcmp(Property, "ReferenceStop") == 0) {
                    Stack.Reference.SetStop(ReadTimeProperty(mFbx, P));
                    Stack.HasReference = true;
                }
            };
            WalkProperties70(mFbx, StackTemplate, ReadStack);
            WalkProperties70(mFbx, Object, ReadStack);
            if (Stacks.Add(Stack)) {
                Objects.Add(Id, nullptr, (void *)(intaddrx)(Stacks.Count - 1), FbxObjectKind_AnimStack, Object);
            }
        } else if (mFbx.FieldNameIs(Object, "AnimationLayer")) {
            anim_layer Layer = {100.0, 0, 0, 0};
            auto ReadLayer = [&](char const *Property, fbx_field const *P) {
                if (strcmp(Property, "Weight") == 0)
                    Layer.Weight = mFbx.GetReal64(P, 4, 100.0);
                else if (strcmp(Property, "BlendMode") == 0)
                    Layer.BlendMode = mFbx.GetInt32(P, 4, 0);
                else if (strcmp(Property, "RotationAccumulationMode") == 0)
                    Layer.RotationAccumulation = mFbx.GetInt32(P, 4, 0);
                else if (strcmp(Property, "ScaleAccumulationMode") == 0)
                    Layer.ScaleAccumulation = mFbx.GetInt32(P, 4, 0);
            };
            WalkProperties70(mFbx, LayerTemplate, ReadLayer);
            WalkProperties70(mFbx, Object, ReadLayer);
            if (Layers.Add(Layer)) {
                Objects.Add(Id, nullptr, (void *)(intaddrx)(Layers.Count - 1), FbxObjectKind_AnimLayer, Object);
            }
        } else if (mFbx.FieldNameIs(Object, "AnimationCurveNode")) {
            anim_curve_node CurveNode = {{0.0, 0.0, 0.0}};
            WalkProperties70(mFbx, Object, [&](char const *Property, fbx_field const *P) {
                if (Property[0] == 'd' && Property[1] == '|' && Property[2] >= 'X' && Property[2] <= 'Z' &&
                    !Property[3]) {
                    CurveNode.Defaults[Property[2] - 'X'] = mFbx.GetReal64(P, 4, 0.0);
                }
            });
            if (CurveNodes.Add(CurveNode)) {
                Objects.Add(Id, nullptr, (void *)(intaddrx)(CurveNodes.Count - 1), FbxObjectKind_AnimCurveNode, Object);
            }
        } else if (mFbx.FieldNameIs(Object, "AnimationCurve")) {
            Objects.Add(Id, nullptr, nullptr, FbxObjectKind_AnimCurve, Object);
        }
    }

    fbx_field const *Settings = mFbx.FindChild(nullptr, "GlobalSettings");
    if (Settings) {
        ReadFbxGlobalSettings(mFbx, Settings, Scene->GetGlobalSettings());
    }
    ApplyFbxSceneTimeMode(Scene);

    // Connections, in file order.
    fbx_array<connection> Links;
    fbx_field const *Connections = mFbx.FindChild(nullptr, "Connections");
    for (fbx_field const *C = mFbx.GetFirstChild(Connections); C; C = mFbx.GetNextSibling(C)) {
        if (!mFbx.FieldNameIs(C, "C") && !mFbx.FieldNameIs(C, "Connect")) {
            continue;
        }
        connection Link = {};
        char Kind[8];
        ReadFbxString(mFbx, C, 0, Kind, sizeof(Kind));
        if (!mFbx.GetValueInt64(C, 1, &Link.Source) || !mFbx.GetValueInt64(C, 2, &Link.Destination)) {
            continue;
        }
        if (strcmp(Kind, "OP") == 0) {
            ReadFbxString(mFbx, C, 3, Link.Property, sizeof(Link.Property));
            if (!Link.Property[0]) {
                strcpy(Link.Property, "?");
            }
        } else if (strcmp(Kind, "OO") != 0) {
            continue;
        }
        Links.Add(Link);
    }

    // Scene structure.
    for (int32 Index = 0; Index < Links.Count; ++Index) {
        connection const &Link = Links[Index];
        fbx_object_entry *Source = Objects.FindById(Link.Source);
        fbx_object_entry *Destination = Objects.FindById(Link.Destination);
        if (!Source || !Destination) {
            continue;
        }
        switch (Source->Kind) {
        case FbxObjectKind_Node:
            if (Destination->Kind == FbxObjectKind_Node && !Link.Property[0]) {
                ((KFbxNode *)Destination->Object)->AddChild((KFbxNode *)Source->Object);
            } else if (Destination->Kind == FbxObjectKind_Cluster) {
                KFbxCluster *Cluster = (KFbxCluster *)Destination->Object;
                if (!Cluster->GetLink()) {
                    Cluster->SetLink((KFbxNode *)Source->Object);
                }
            }
            break;
        case FbxObjectKind_Mesh:
        case FbxObjectKind_Attribute:
            if (Destination->Kind == FbxObjectKind_Node && Destination->Object != Scene->GetRootNode()) {
                ((KFbxNode *)Destination->Object)->AddNodeAttribute((KFbxNodeAttribute *)Source->Object);
            }
            break;
        case FbxObjectKind_Skin:
            if (Destination->Kind == FbxObjectKind_Mesh) {
                ((KFbxMesh *)Destination->Object)->AddDeformer((KFbxSkin *)Source->Object);
            }
            break;
        case FbxObjectKind_Cluster:
            if (Destination->Kind == FbxObjectKind_Skin) {
                ((KFbxSkin *)Destination->Object)->AddCluster((KFbxCluster *)Source->Object);
            }
            break;
        default: break;
        }
    }
    KFbxNode *Root = Scene->GetRootNode();
    for (int32 Index = 0; Index < Objects.GetCount(); ++Index) {
        fbx_object_entry &Entry = Objects[Index];
        if (Entry.Kind == FbxObjectKind_Node && Entry.Object != Root && !((KFbxNode *)Entry.Object)->GetParent()) {
            Root->AddChild((KFbxNode *)Entry.Object);
        }
    }

    for (fbx_field const *Object = mFbx.FindChild(ObjectsField, "Pose"); Object;
         Object = mFbx.FindNextSibling(Object, "Pose")) {
        ReadFbxBindPose(mFbx, Object, Objects, true);
    }
    DropFbxSkinIndicesOutsideMeshes(Scene);
    link_index BySource, ByDestination;
    if (!BuildLinkIndex(Links, true, BySource) || !BuildLinkIndex(Links, false, ByDestination)) {
        TesselError(LogCategory_FBX, "Out of memory for %d connections", Links.Count);
        return false;
    }
    // Takes from the Takes section, then the stacks.
    fbx_field const *Takes = mFbx.FindChild(nullptr, "Takes");
    for (int32 Index = 0; Index < Objects.GetCount(); ++Index) {
        fbx_object_entry &StackEntry = Objects[Index];
        if (StackEntry.Kind != FbxObjectKind_AnimStack) {
            continue;
        }
        anim_stack const &Stack = Stacks[(int32)(intaddrx)StackEntry.Object];
        char FullName[512];
        ReadFbxString(mFbx, StackEntry.Field, 1, FullName, sizeof(FullName));
        char const *TakeName = StripFbxClassPrefix(FullName);
        KTimeSpan Local = Stack.Local, Reference = Stack.Reference;
        for (fbx_field const *Take = mFbx.FindChild(Takes, "Take"); Take; Take = mFbx.FindNextSibling(Take, "Take")) {
            if (!mFbx.ValueStringIs(Take, 0, TakeName)) {
                continue;
            }
            fbx_field const *LocalTime = mFbx.FindChild(Take, "LocalTime");
            fbx_field const *ReferenceTime = mFbx.FindChild(Take, "ReferenceTime");
            if (!Stack.HasLocal && LocalTime) {
                Local.Set(KTime(mFbx.GetInt64(LocalTime, 0, 0)), KTime(mFbx.GetInt64(LocalTime, 1, 0)));
            }
            if (!Stack.HasReference && ReferenceTime) {
                Reference.Set(KTime(mFbx.GetInt64(ReferenceTime, 0, 0)), KTime(mFbx.GetInt64(ReferenceTime, 1, 0)));
            }
        }
        if (!Stack.HasReference && Stack.HasLocal) {
            Reference = Local;
        }
        Scene->SetTakeInfo(TakeName, Local, Reference);

        // Layers of this stack in connection order, and their curve nodes.
        int32 LayerIndex = 0;
        int32 FirstLayer, EndLayer;
        FindLinks(Links, ByDestination, StackEntry.Id, &FirstLayer, &EndLayer);
        for (int32 LayerAt = FirstLayer; LayerAt < EndLayer; ++LayerAt) {
            int32 L = ByDestination.Order[LayerAt];
            fbx_object_entry *LayerEntry = Objects.FindById(Links[L].Source);
            if (!LayerEntry || LayerEntry->Kind != FbxObjectKind_AnimLayer) {
                continue;
            }
            anim_layer const &Layer = Layers[(int32)(intaddrx)LayerEntry->Object];
            int32 FirstNode, EndNode;
            FindLinks(Links, ByDestination, LayerEntry->Id, &FirstNode, &EndNode);
            // An animated weight: a curve node on the layer's "Weight".
            fbx_field const *WeightCurve = nullptr;
            for (int32 NodeAt = FirstNode; NodeAt < EndNode && !WeightCurve; ++NodeAt) {
                int32 N = ByDestination.Order[NodeAt];
                fbx_object_entry *NodeEntry = Objects.FindById(Links[N].Source);
                if (!NodeEntry || NodeEntry->Kind != FbxObjectKind_AnimCurveNode ||
                    strcmp(Links[N].Property, "Weight") != 0) {
                    continue;
                }
                int32 FirstCurve, EndCurve;
                FindLinks(Links, ByDestination, NodeEntry->Id, &FirstCurve, &EndCurve);
                for (int32 CurveAt = FirstCurve; CurveAt < EndCurve && !WeightCurve; ++CurveAt) {
                    int32 K = ByDestination.Order[CurveAt];
                    fbx_object_entry *CurveEntry = Objects.FindById(Links[K].Source);
                    if (CurveEntry && CurveEntry->Kind == FbxObjectKind_AnimCurve &&
                        strcmp(Links[K].Property, "d|Weight") == 0) {
                        WeightCurve = CurveEntry->Field;
                    }
                }
            }
            for (int32 NodeAt = FirstNode; NodeAt < EndNode; ++NodeAt) {
                int32 N = ByDestination.Order[NodeAt];
                fbx_object_entry *NodeEntry = Objects.FindById(Links[N].Source);
                if (!NodeEntry || NodeEntry->Kind != FbxObjectKind_AnimCurveNode) {
                    continue;
                }
                // The model property this curve node drives.
                KFbxNode *Model = nullptr;
                char Channel = 0;
                int32 FirstTarget, EndTarget;
                FindLinks(Links, BySource, NodeEntry->Id, &FirstTarget, &EndTarget);
                for (int32 TargetAt = FirstTarget; TargetAt < EndTarget && !Model; ++TargetAt) {
                    int32 M = BySource.Order[TargetAt];
                    if (!Links[M].Property[0]) {
                        continue;
                    }
                    fbx_object_entry *ModelEntry = Objects.FindById(Links[M].Destination);
                    if (!ModelEntry || ModelEntry->Kind != FbxObjectKind_Node) {
                        continue;
                    }
                    char const *Property = Links[M].Property;
                    Channel = strcmp(Property, "Lcl Translation") == 0 ? 'T'
                              : strcmp(Property, "Lcl Rotation") == 0  ? 'R'
                              : strcmp(Property, "Lcl Scaling") == 0   ? 'S'
                                                                       : 0;
                    if (Channel) {
                        Model = (KFbxNode *)ModelEntry->Object;
                    }
                }
                if (!Model) {
                    continue;
                }
                KFCurveNode *Components[3] = {nullptr, nullptr, nullptr};
                int32 FirstCurve, EndCurve;
                FindLinks(Links, ByDestination, NodeEntry->Id, &FirstCurve, &EndCurve);
                for (int32 CurveAt = FirstCurve; CurveAt < EndCurve; ++CurveAt) {
                    int32 K = ByDestination.Order[CurveAt];
                    char const *Property = Links[K].Property;
                    if (Property[0] != 'd' || Property[1] != '|' || Property[2] < 'X' || Property[2] > 'Z' ||
                        Property[3]) {
                        continue;
                    }
                    fbx_object_entry *CurveEntry = Objects.FindById(Links[K].Source);
                    int32 Axis = Property[2] - 'X';
                    if (!CurveEntry || CurveEntry->Kind != FbxObjectKind_AnimCurve || Components[Axis]) {
                        continue;
                    }
                    char AxisName[2] = {Property[2], 0};
                    Components[Axis] = FbxNew(KFCurveNode, AxisName);
                    KFCurve *Curve = Components[Axis] ? Components[Axis]->FCurveCreate() : nullptr;
                    if (!Curve || !ReadAnimationCurve(mFbx, CurveEntry->Field, Curve)) {
                        TesselWarning(LogCategory_FBX, "Animation curve %I64d could not be read", Links[K].Source);
                        FbxDelete(Components[Axis]);
                        Components[Axis] = nullptr;
                    }
                }
                if (Components[0] || Components[1] || Components[2]) {
                    AttachCurveNode(mFbx, Model, TakeName, Channel, LayerIndex, Layer, WeightCurve, Components);
                }
                for (int32 Axis = 0; Axis < 3; ++Axis) {
                    FbxDelete(Components[Axis]);
                }
            }
            ++LayerIndex;
        }
    }
    return true;
}
