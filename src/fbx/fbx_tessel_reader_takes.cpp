// Takes of FBX 5 and 6 files: the take records and the Channel trees with
// their key lists.
#include <cmath>
#include <cstdio>
#include <cstring>

#include "fbx/fbx_tessel_reader.h"
#include "fbx/fbx_tessel_reader_common.h"

static bool IsLetterValue(KFbx &Fbx, fbx_field const *Field, int32 Index, char *Letter)
{
    if (Index >= Fbx.GetValueCount(Field)) {
        return false;
    }
    // The letters of text files: one character that is not a digit (the
    // only one-character numbers) is a letter, as the general test finds.
    char const *Text;
    int32 Length;
    if (Fbx.GetValueType(Field, Index) == FbxValue_String && Fbx.GetValueString(Field, Index, &Text, &Length) &&
        Length == 1) {
        if (Text[0] >= '0' && Text[0] <= '9') {
            return false;
        }
        *Letter = Text[0];
        return true;
    }
    if (IsFbxNumberValue(Fbx, Field, Index)) {
        return false;
    }
    return Fbx.GetValueChar(Field, Index, Letter);
}

// Reads up to Count numbers from Index on, stopping at the first non-number.
static int32 ReadFloats(KFbx &Fbx, fbx_field const *Field, int32 &Index, int32 Count, real64 *Values)
{
    // As IsFbxNumberValue, keeping the number it reads.
    int32 Read = 0;
    while (Read < Count && Index < Fbx.GetValueCount(Field)) {
        int32 Type = Fbx.GetValueType(Field, Index);
        real64 Value;
        if (Type == 0 || Type == FbxValue_Bool || Type == FbxValue_Raw || IsFbxArrayType(Type) ||
            !Fbx.GetValueReal64(Field, Index, &Value)) {
            break;
        }
        Values[Read++] = Value;
        ++Index;
    }
    return Read;
}

static int32 ExtrapolationMode(char Letter)
{
    switch (Letter) {
    case 'C': return FbxExtrapolation_Constant;
    case 'R': return FbxExtrapolation_Repetition;
    case 'M': return FbxExtrapolation_MirrorRepetition;
    case 'K': return FbxExtrapolation_KeepSlope;
    case 'A': return FbxExtrapolation_RelativeRepetition;
    default: return FbxExtrapolation_None;
    }
}

static void ReadExtrapolation(KFbx &Fbx, fbx_field const *Field, int32 *Mode, int32 *Count)
{
    if (!Field) {
        return;
    }
    char Letter = 0;
    if (Fbx.GetValueChar(Fbx.FindChild(Field, "Type"), 0, &Letter)) {
        *Mode = ExtrapolationMode(Letter);
    }
    *Count = Fbx.GetInt32(Fbx.FindChild(Field, "Repetition"), 0, -1);
}

void ReadFbxCurveExtrapolation(KFbx &Fbx, fbx_field const *Curve, KFCurve *Result)
{
    int32 PreMode = FbxExtrapolation_Constant, PreCount = -1;
    int32 PostMode = FbxExtrapolation_Constant, PostCount = -1;
    ReadExtrapolation(Fbx, Fbx.FindChild(Curve, "Pre-Extrapolation"), &PreMode, &PreCount);
    ReadExtrapolation(Fbx, Fbx.FindChild(Curve, "Post-Extrapolation"), &PostMode, &PostCount);
    Result->SetPreExtrapolation(PreMode, PreCount);
    Result->SetPostExtrapolation(PostMode, PostCount);
}

static int32 WeightToFixed(real64 Weight)
{
    // Weights are written as fractions; larger values are already fixed point.
    real64 Fixed = (Weight <= 1.0) ? Weight * 9999.0 : Weight;
    if (Fixed < 0.0) Fixed = 0.0;
    if (Fixed > 65535.0) Fixed = 65535.0;
    return (int32)std::lround(Fixed);
}

bool ReadFbxChannelCurve(KFbx &Fbx, fbx_field const *Channel, KFCurve *Curve)
{
    Curve->SetValue((real32)Fbx.GetReal64(Fbx.FindChild(Channel, "Default"), 0, 0.0));
    ReadFbxCurveExtrapolation(Fbx, Channel, Curve);

    fbx_field const *Keys = Fbx.FindChild(Channel, "Key");
    if (!Keys) {
        return true;
    }
    int32 Expected = Fbx.GetInt32(Fbx.FindChild(Channel, "KeyCount"), 0, -1);
    int32 ValueCount = Fbx.GetValueCount(Keys);
    // A key takes at least three values: room for the keys the list can hold.
    Curve->KeyReserve(Expected < ValueCount / 3 ? Expected : ValueCount / 3);
    int32 At = 0;
    int32 Read = 0;
    bool MissingSlopes = false;
    while (At + 2 < ValueCount && (Expected < 0 || Read < Expected)) {
        int64 Ticks = 0;
        real64 Value = 0.0;
        char Letter = 0;
        if (!Fbx.GetValueInt64(Keys, At, &Ticks) || !Fbx.GetValueReal64(Keys, At + 1, &Value) ||
            !IsLetterValue(Fbx, Keys, At + 2, &Letter)) {
            TesselWarning(LogCategory_FBX, "Channel %s: key %d is malformed; the rest of the keys is dropped",
                          Fbx.GetFieldName(Channel), Read);
            break;
        }
        At += 3;
        KFCurveKey Key = MakeCurveKey(KTime(Ticks), (real32)Value, 0);
        char Next = 0;
        switch (Letter) {
        case 'C':
        case 'A':
        case 'Z':
            Key.Flags = FbxKey_Constant;
            if (IsLetterValue(Fbx, Keys, At, &Next)) {
                ++At;
                if (Next == 'n') {
                    Key.Flags |= FbxKey_ConstantNext;
                }
            }
            break;
        case 'L': Key.Flags = FbxKey_Linear; break;
        case 'U':
        case 'T':
        case 'B':
        case 'H':
        case 'I':
        case 'O':
        case 'R': {
            Key.Flags = FbxKey_Cubic | ((Letter == 'T') ? FbxKey_TangentTCB : FbxKey_TangentAuto);
            real64 Numbers[3] = {0.0, 0.0, 0.0};
            if (IsLetterValue(Fbx, Keys, At, &Next)) {
                ++At;
                char Tangent = (Next >= 'A' && Next <= 'Z') ? (char)(Next - 'A' + 'a') : Next;
                switch (Tangent) {
                case 'a':
                case 'p':
                    Key.Flags = FbxKey_Cubic | FbxKey_TangentAuto;
                    if (ReadFloats(Fbx, Keys, At, 2, Numbers) == 0) {
                        // Computed from the neighbours once all keys are in.
                        Key.Data[0].Word = 0x7FC00000u;
                        MissingSlopes = true;
                    } else {
                        Key.Data[0].Float = (real32)Numbers[0];
                        Key.Data[1].Float = (real32)Numbers[1];
                    }
                    break;
                case 's':
                case 'b':
                case 'q':
                    Key.Flags = FbxKey_Cubic | (Tangent == 's'   ? FbxKey_TangentUser
                                                : Tangent == 'b' ? FbxKey_TangentBroken
                                                                 : FbxKey_TangentAutoBreak);
                    ReadFloats(Fbx, Keys, At, 2, Numbers);
                    Key.Data[0].Float = (real32)Numbers[0];
                    Key.Data[1].Float = (real32)Numbers[1];
                    break;
                case 'd':
                    Key.Flags = FbxKey_Cubic | FbxKey_TangentAuto;
                    ReadFloats(Fbx, Keys, At, 1, Numbers);
                    Key.Data[3].Float = (real32)Numbers[0];
                    break;
                case 't':
                    Key.Flags = FbxKey_Cubic | FbxKey_TangentTCB;
                    ReadFloats(Fbx, Keys, At, 3, Numbers);
                    Key.Data[0].Float = (real32)Numbers[0];
                    Key.Data[1].Float = (real32)Numbers[1];
                    Key.Data[2].Float = (real32)Numbers[2];
                    break;
                default: break;
                }
            }
            // Clamp and weight letters may follow (key versions before 4005
            // write them too, as in "U s 0 0 l 0.333").
            while (IsLetterValue(Fbx, Keys, At, &Next)) {
                ++At;
                if (Next == 'c') {
                    Key.Flags |= FbxKey_ClampFlat;
                    continue;
                }
                if (Next == 'a' || Next == 'r' || Next == 'l') {
                    real64 Weights[2] = {1.0 / 3.0, 1.0 / 3.0};
                    int32 Right = FbxDefaultKeyWeight, Left = FbxDefaultKeyWeight;
                    if (Next == 'a') {
                        ReadFloats(Fbx, Keys, At, 2, Weights);
                        Right = WeightToFixed(Weights[0]);
                        Left = WeightToFixed(Weights[1]);
                        Key.Flags |= FbxKey_WeightedRight | FbxKey_WeightedNextLeft;
                    } else if (Next == 'r') {
                        ReadFloats(Fbx, Keys, At, 1, Weights);
                        Right = WeightToFixed(Weights[0]);
                        Key.Flags |= FbxKey_WeightedRight;
                    } else {
                        ReadFloats(Fbx, Keys, At, 1, Weights + 1);
                        Left = WeightToFixed(Weights[1]);
                        Key.Flags |= FbxKey_WeightedNextLeft;
                    }
                    if (Key.GetInterpolation() == FbxKey_Cubic &&
                        (Key.Flags & FbxKey_TangentMask) != FbxKey_TangentTCB) {
                        Key.SetWeights(Right, Left);
                    }
                }
                break;
            }
            break;
        }
        default:
            TesselWarning(LogCategory_FBX,
                          "Channel %s: unknown interpolation letter %c; the rest of the keys is dropped",
                          Fbx.GetFieldName(Channel), Letter);
            At = ValueCount;
            continue;
        }
        Curve->KeyAppend(Key);
        ++Read;
    }
    if (MissingSlopes) {
        FillFbxAutomaticSlopes(Curve, true);
    }
    return true;
}

// A Channel field and its sub-channels as a curve node tree.
static KFCurveNode *ReadChannel(KFbx &Fbx, fbx_field const *Channel, int32 Depth)
{
    char Name[128];
    ReadFbxString(Fbx, Channel, 0, Name, sizeof(Name));
    KFCurveNode *Node = FbxNew(KFCurveNode, Name);
    if (!Node) {
        return nullptr;
    }
    if (Depth > 32) {
        return Node;
    }
    bool HasChildren = false;
    for (fbx_field const *Child = Fbx.FindChild(Channel, "Channel"); Child;
         Child = Fbx.FindNextSibling(Child, "Channel")) {
        Node->Add(ReadChannel(Fbx, Child, Depth + 1));
        HasChildren = true;
    }
    if (Fbx.FindChild(Channel, "Key") || (!HasChildren && Fbx.FindChild(Channel, "Default"))) {
        KFCurve *Curve = Node->FCurveCreate();
        if (Curve) {
            ReadFbxChannelCurve(Fbx, Channel, Curve);
        }
    }
    int32 LayerType = Fbx.GetInt32(Fbx.FindChild(Channel, "LayerType"), 0, -1);
    if (LayerType >= 0) {
        Node->SetType(LayerType == 1 ? FbxCurveNodeType_Additive : LayerType);
    }
    return Node;
}

// The default of a component of a channel tree, or Fallback.
static real64 ChannelDefault(KFCurveNode *Transform, char const *Channel, int32 Axis, real64 Fallback)
{
    static char const *const Axes[3] = {"X", "Y", "Z"};
    KFCurveNode *Node = Transform ? Transform->FindChild(Channel) : nullptr;
    Node = Node ? Node->FindChild(Axes[Axis]) : nullptr;
    return (Node && Node->FCurveGet()) ? Node->FCurveGet()->GetValue() : Fallback;
}

void ReadFbxModelTransformDefaults(KFbx &Fbx, fbx_field const *Model, KFbxNode *Node)
{
    for (fbx_field const *Channel = Fbx.FindChild(Model, "Channel"); Channel;
         Channel = Fbx.FindNextSibling(Channel, "Channel")) {
        if (!Fbx.ValueStringIs(Channel, 0, "Transform")) {
            continue;
        }
        KFCurveNode *Transform = ReadChannel(Fbx, Channel, 0);
        if (!Transform) {
            return;
        }
        for (int32 Axis = 0; Axis < 3; ++Axis) {
            Node->LclTranslation[Axis] = ChannelDefault(Transform, "T", Axis, Node->LclTranslation[Axis]);
            Node->LclRotation[Axis] = ChannelDefault(Transform, "R", Axis, Node->LclRotation[Axis]);
            Node->LclScaling[Axis] = ChannelDefault(Transform, "S", Axis, Node->LclScaling[Axis]);
        }
        FbxDelete(Transform);
        return;
    }
}

static KTimeSpan ReadSpan(KFbx &Fbx, fbx_field const *Field)
{
    if (!Field) {
        return KTimeSpan();
    }
    return KTimeSpan(KTime(Fbx.GetInt64(Field, 0, 0)), KTime(Fbx.GetInt64(Field, 1, 0)));
}

bool ReadFbxTakes(KFbx &Fbx, fbx_field const *Takes, KFbxScene *Scene, fbx_object_table &Objects, bool SetDefaults)
{
    if (!Takes) {
        return true;
    }
    char Current[256];
    ReadFbxString(Fbx, Fbx.FindChild(Takes, "Current"), 0, Current, sizeof(Current));
    for (fbx_field const *Take = Fbx.FindChild(Takes, "Take"); Take; Take = Fbx.FindNextSibling(Take, "Take")) {
        char TakeName[256];
        ReadFbxString(Fbx, Take, 0, TakeName, sizeof(TakeName));
        Scene->SetTakeInfo(TakeName, ReadSpan(Fbx, Fbx.FindChild(Take, "LocalTime")),
                           ReadSpan(Fbx, Fbx.FindChild(Take, "ReferenceTime")));
        bool IsCurrent =
            StringsAreExactlyEqual(TakeName, Current) || (!Current[0] && Take == Fbx.FindChild(Takes, "Take"));
        for (fbx_field const *Model = Fbx.GetFirstChild(Take); Model; Model = Fbx.GetNextSibling(Model)) {
            if (Fbx.GetValueCount(Model) < 1 || !Fbx.FindChild(Model, "Channel")) {
                continue;
            }
            char Key[512];
            ReadFbxString(Fbx, Model, 0, Key, sizeof(Key));
            fbx_object_entry *Entry = Objects.FindByKey(Key);
            if (!Entry) {
                char Prefixed[512];
                snprintf(Prefixed, sizeof(Prefixed), "Model::%.480s", Key);
                Entry = Objects.FindByKey(Prefixed);
            }
            if (!Entry || Entry->Kind != FbxObjectKind_Node) {
                continue;
            }
            KFbxNode *Node = (KFbxNode *)Entry->Object;
            for (fbx_field const *Channel = Fbx.FindChild(Model, "Channel"); Channel;
                 Channel = Fbx.FindNextSibling(Channel, "Channel")) {
                if (!Fbx.ValueStringIs(Channel, 0, "Transform")) {
                    continue;
                }
                KFCurveNode *Transform = ReadChannel(Fbx, Channel, 0);
                if (!Transform) {
                    return false;
                }
                if (SetDefaults && IsCurrent) {
                    for (int32 Axis = 0; Axis < 3; ++Axis) {
                        Node->LclTranslation[Axis] = ChannelDefault(Transform, "T", Axis, Node->LclTranslation[Axis]);
                        Node->LclRotation[Axis] = ChannelDefault(Transform, "R", Axis, Node->LclRotation[Axis]);
                        Node->LclScaling[Axis] = ChannelDefault(Transform, "S", Axis, Node->LclScaling[Axis]);
                    }
                }
                if (!Node->AddTakeNode(TakeName, Transform)) {
                    return false;
                }
                break;
            }
        }
    }
    return true;
}

void ApplyFbxSceneTimeMode(KFbxScene *Scene)
{
    KFbxGlobalSettings &Settings = Scene->GetGlobalSettings();
    // A file without a time mode of its own means 30 frames a second.
    bool Known = Settings.TimeMode > 0 && Settings.TimeMode < FbxTimeMode_Count;
    Settings.FrameTimeMode = Known ? Settings.TimeMode : FbxTimeMode_30;
    Settings.FrameCustomRate = (Settings.FrameTimeMode == FbxTimeMode_Custom && Settings.CustomFrameRate > 0.0)
                                   ? Settings.CustomFrameRate
                                   : 30.0;
}
