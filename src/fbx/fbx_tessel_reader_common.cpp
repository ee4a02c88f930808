// Shared reading of names, properties, geometry and cluster data.
#include "fbx/fbx_tessel_reader_common.h"

#include <cstring>

char const *StripFbxClassPrefix(char const *Name)
{
    if (!Name) {
        return "";
    }
    char const *Separator = strstr(Name, "::");
    return Separator ? Separator + 2 : Name;
}

char const *ReadFbxString(KFbx &Fbx, fbx_field const *Field, int32 Index, char *Buffer, int32 Size)
{
    if (Fbx.CopyValueString(Field, Index, Buffer, Size) < 0) {
        Buffer[0] = 0;
    }
    return Buffer;
}

bool IsFbxNumberValue(KFbx &Fbx, fbx_field const *Field, int32 Index)
{
    int32 Type = Fbx.GetValueType(Field, Index);
    if (Type == 0 || Type == FbxValue_Bool || Type == FbxValue_Raw || IsFbxArrayType(Type)) {
        return false;
    }
    real64 Value;
    return Fbx.GetValueReal64(Field, Index, &Value);
}

// ---------------------------------------------------------------------------
// Properties.

static KFbxVector4 ReadVector3(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, KFbxVector4 Default)
{
    KFbxVector4 Result = Default;
    for (int32 Axis = 0; Axis < 3; ++Axis) {
        Result[Axis] = Fbx.GetReal64(Property, ValueIndex + Axis, Default[Axis]);
    }
    return Result;
}

static bool ReadFlag(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex)
{
    bool Value = false;
    if (Fbx.GetValueBool(Property, ValueIndex, &Value)) {
        return Value;
    }
    return Fbx.GetInt32(Property, ValueIndex, 0) != 0;
}

// A property name as ReadFbxString copies it, with its length, so that
// comparisons with known names are a length test and a fixed compare.
struct property_name
{
    char Text[128];
    int32 Length;

    template <size_t Size>
    bool Is(char const (&Literal)[Size]) const
    {
        return Length == (int32)Size - 1 && memcmp(Text, Literal, Size - 1) == 0;
    }
    // The same for the name after its first Skip characters.
    template <size_t Size>
    bool RestIs(int32 Skip, char const (&Literal)[Size]) const
    {
        return Length - Skip == (int32)Size - 1 && memcmp(Text + Skip, Literal, Size - 1) == 0;
    }
    template <size_t Size>
    bool StartsWith(char const (&Literal)[Size]) const
    {
        return Length >= (int32)Size - 1 && memcmp(Text, Literal, Size - 1) == 0;
    }
};

// Limits: "<Prefix>Active", "<Prefix>Min", "<Prefix>Max", "<Prefix>MinX" ...
template <size_t PrefixSize>
static bool ApplyLimitProperty(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, property_name const &Name,
                               char const (&Prefix)[PrefixSize], fbx_limits &Limits)
{
    int32 PrefixLength = (int32)PrefixSize - 1;
    if (!Name.StartsWith(Prefix)) {
        return false;
    }
    if (Name.RestIs(PrefixLength, "Active")) {
        Limits.Active = ReadFlag(Fbx, Property, ValueIndex);
        return true;
    }
    if (Name.RestIs(PrefixLength, "Min")) {
        Limits.Min = ReadVector3(Fbx, Property, ValueIndex, Limits.Min);
        return true;
    }
    if (Name.RestIs(PrefixLength, "Max")) {
        Limits.Max = ReadVector3(Fbx, Property, ValueIndex, Limits.Max);
        return true;
    }
    char const *Rest = Name.Text + PrefixLength;
    bool IsMin = strncmp(Rest, "Min", 3) == 0;
    bool IsMax = strncmp(Rest, "Max", 3) == 0;
    if ((IsMin || IsMax) && Rest[3] >= 'X' && Rest[3] <= 'Z' && Rest[4] == 0) {
        uint32 Bit = (IsMin ? (uint32)FbxLimit_MinX : (uint32)FbxLimit_MaxX) << (Rest[3] - 'X');
        if (ReadFlag(Fbx, Property, ValueIndex)) {
            Limits.Bits |= Bit;
        } else {
            Limits.Bits &= ~Bit;
        }
        return true;
    }
    return false;
}

void ApplyFbxNodeProperty(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, KFbxNode *Node)
{
    property_name Name;
    ReadFbxString(Fbx, Property, 0, Name.Text, sizeof(Name.Text));
    Name.Length = (int32)strlen(Name.Text);
    auto Optional = [&](fbx_optional_vector &Member) {
        Member.Value = ReadVector3(Fbx, Property, ValueIndex, KFbxVector4());
        Member.InUse = true;
    };
    // Only the names that start with the same letter are compared.
    switch (Name.Text[0]) {
    case 'L':
        if (Name.Is("Lcl Translation")) {
            Node->LclTranslation = ReadVector3(Fbx, Property, ValueIndex, Node->LclTranslation);
        } else if (Name.Is("Lcl Rotation")) {
            Node->LclRotation = ReadVector3(Fbx, Property, ValueIndex, Node->LclRotation);
        } else if (Name.Is("Lcl Scaling")) {
            Node->LclScaling = ReadVector3(Fbx, Property, ValueIndex, Node->LclScaling);
        }
        return;
    case 'G':
        if (Name.Is("GeometricTranslation")) {
            Node->GeometricTranslation = ReadVector3(Fbx, Property, ValueIndex, KFbxVector4());
        } else if (Name.Is("GeometricRotation")) {
            Node->GeometricRotation = ReadVector3(Fbx, Property, ValueIndex, KFbxVector4());
        } else if (Name.Is("GeometricScaling")) {
            Node->GeometricScaling = ReadVector3(Fbx, Property, ValueIndex, KFbxVector4(1.0, 1.0, 1.0));
        }
        return;
    case 'P':
        if (Name.Is("PreRotation")) {
            Optional(Node->PreRotation);
        } else if (Name.Is("PostRotation")) {
            Optional(Node->PostRotation);
        }
        return;
    case 'Q':
        if (Name.Is("QuaternionInterpolate")) Node->QuaternionInterpolate = Fbx.GetInt32(Property, ValueIndex, 0) != 0;
        return;
    case 'I':
        if (Name.Is("InheritType")) {
            int32 Type = Fbx.GetInt32(Property, ValueIndex, 0);
            Node->InheritType = (Type >= 0 && Type <= FbxInherit_Rrs) ? Type : FbxInherit_RrSs;
        }
        return;
    case 'T': ApplyLimitProperty(Fbx, Property, ValueIndex, Name, "Translation", Node->TranslationLimits); return;
    case 'S':
        if (Name.Is("ScalingOffset")) {
            Optional(Node->ScalingOffset);
        } else if (Name.Is("ScalingPivot")) {
            Optional(Node->ScalingPivot);
        } else {
            ApplyLimitProperty(Fbx, Property, ValueIndex, Name, "Scaling", Node->ScalingLimits);
        }
        return;
    case 'R':
        if (Name.Is("RotationOffset")) {
            Optional(Node->RotationOffset);
        } else if (Name.Is("RotationPivot")) {
            Optional(Node->RotationPivot);
        } else if (Name.Is("RotationOrder")) {
            int32 Order = Fbx.GetInt32(Property, ValueIndex, 0);
            Node->RotationOrder = (Order >= 0 && Order <= FbxRotationOrder_SphericXYZ) ? Order : 0;
        } else if (Name.Is("RotationActive")) {
            Node->RotationActive = ReadFlag(Fbx, Property, ValueIndex);
            Node->RotationLimits.Active = Node->RotationActive;
        } else if (Name.Is("RotationSpaceForLimitOnly")) {
            Node->RotationSpaceForLimitOnly = ReadFlag(Fbx, Property, ValueIndex);
        } else if (Name.StartsWith("Rotation") &&
                   (strncmp(Name.Text + 8, "Min", 3) == 0 || strncmp(Name.Text + 8, "Max", 3) == 0)) {
            ApplyLimitProperty(Fbx, Property, ValueIndex, Name, "Rotation", Node->RotationLimits);
        }
        return;
    default: return;
    }
}

void CopyFbxNodeProperties(KFbxNode const &From, KFbxNode &To)
{
    To.LclTranslation = From.LclTranslation;
    To.LclRotation = From.LclRotation;
    To.LclScaling = From.LclScaling;
    To.RotationOffset = From.RotationOffset;
    To.RotationPivot = From.RotationPivot;
    To.ScalingOffset = From.ScalingOffset;
    To.ScalingPivot = From.ScalingPivot;
    To.RotationOrder = From.RotationOrder;
    To.RotationActive = From.RotationActive;
    To.RotationSpaceForLimitOnly = From.RotationSpaceForLimitOnly;
    To.InheritType = From.InheritType;
    To.PreRotation = From.PreRotation;
    To.PostRotation = From.PostRotation;
    To.TranslationLimits = From.TranslationLimits;
    To.RotationLimits = From.RotationLimits;
    To.ScalingLimits = From.ScalingLimits;
    To.QuaternionInterpolate = From.QuaternionInterpolate;
    To.GeometricTranslation = From.GeometricTranslation;
    To.GeometricRotation = From.GeometricRotation;
    To.GeometricScaling = From.GeometricScaling;
}

void ApplyFbxGlobalSetting(KFbx &Fbx, fbx_field const *Property, int32 ValueIndex, KFbxGlobalSettings &Settings)
{
    char Name[64];
    ReadFbxString(Fbx, Property, 0, Name, sizeof(Name));
    // Names are told apart by length first (most settings are none of these).
    size_t Length = strlen(Name);
    struct int_entry
    {
        char const *Name;
        size_t Length;
        int32 *Member;
    };
    int_entry const Integers[] = {
        {"UpAxis", 6, &Settings.UpAxis},       {"UpAxisSign", 10, &Settings.UpAxisSign},
        {"FrontAxis", 9, &Settings.FrontAxis}, {"FrontAxisSign", 13, &Settings.FrontAxisSign},
        {"CoordAxis", 9, &Settings.CoordAxis}, {"CoordAxisSign", 13, &Settings.CoordAxisSign},
        {"TimeMode", 8, &Settings.TimeMode},
    };
    for (int_entry const &Entry : Integers) {
        if (Length == Entry.Length && memcmp(Name, Entry.Name, Length) == 0) {
            *Entry.Member = Fbx.GetInt32(Property, ValueIndex, *Entry.Member);
            return;
        }
    }
    if (Length == 15 && memcmp(Name, "UnitScaleFactor", 15) == 0) {
        Settings.UnitScaleFactor = Fbx.GetReal64(Property, ValueIndex, Settings.UnitScaleFactor);
    } else if (Length == 15 && memcmp(Name, "CustomFrameRate", 15) == 0) {
        Settings.CustomFrameRate = Fbx.GetReal64(Property, ValueIndex, Settings.CustomFrameRate);
    }
}

// Properties70 "P" fields have name, type, label, flags, values; Properties60
// "Property" fields name, type, flags, values.
template <typename apply>
static void WalkProperties(KFbx &Fbx, fbx_field const *Object, apply Apply)
{
    fbx_field const *Block70 = Fbx.FindChild(Object, "Properties70");
    if (Block70) {
        for (fbx_field const *P = Fbx.FindChild(Block70, "P"); P; P = Fbx.FindNextSibling(P, "P")) {
            Apply(P, 4);
        }
    }
    fbx_field const *Block60 = Fbx.FindChild(Object, "Properties60");
    if (Block60) {
        for (fbx_field const *P = Fbx.FindChild(Block60, "Property"); P; P = Fbx.FindNextSibling(P, "Property")) {
            Apply(P, 3);
        }
    }
}

void ReadFbxNodeProperties(KFbx &Fbx, fbx_field const *Object, KFbxNode *Node)
{
    WalkProperties(Fbx, Object,
                   [&](fbx_field const *P, int32 ValueIndex) { ApplyFbxNodeProperty(Fbx, P, ValueIndex, Node); });
}

void ReadFbxGlobalSettings(KFbx &Fbx, fbx_field const *Object, KFbxGlobalSettings &Settings)
{
    WalkProperties(Fbx, Object,
                   [&](fbx_field const *P, int32 ValueIndex) { ApplyFbxGlobalSetting(Fbx, P, ValueIndex, Settings); });
}

// ---------------------------------------------------------------------------
// Geometry.

// A number list as a temporary block from the hooks; null when empty.
template <typename T>
static T *ReadNumbers(KFbx &Fbx, fbx_field const *Field, int32 ElementType, int32 *Count)
{
    *Count = 0;
    if (!Field) {
        return nullptr;
    }
    int64 Total = Fbx.GetNumberCount(Field);
    if (Total <= 0 || Total > 0x7FFFFFF0 / (int64)sizeof(T)) {
        return nullptr;
    }
    T *Data = TesselAllocateArray(T, Total);
    if (!Data) {
        return nullptr;
    }
    int64 Copied = Fbx.CopyNumbers(Field, ElementType, Data, Total);
    if (Copied <= 0) {
        TesselFree(Data);
        return nullptr;
    }
    *Count = (int32)Copied;
    return Data;
}

// A number list in one element type: the container's own elements when it
// holds them in that type (read in place, possibly unaligned), else a
// converted temporary block.
struct number_list
{
    uint8 const *Data = nullptr;
    int32 Count = 0;
    void *Owned = nullptr;

    number_list() = default;
    number_list(number_list const &) = delete;
    number_list &operator=(number_list const &) = delete;
    ~number_list()
    {
        if (Owned) {
            TesselFree(Owned);
        }
    }
};

template <typename T>
static void ReadNumberList(KFbx &Fbx, fbx_field const *Field, int32 ElementType, number_list &List)
{
    if (Field && Fbx.GetValueCount(Field) == 1 && Fbx.GetArrayElementType(Field, 0) == ElementType) {
        int64 Total = 0;
        void const *Data = Fbx.GetArrayElements(Field, 0, ElementType, &Total);
        if (Data && Total > 0 && Total <= 0x7FFFFFF0 / (int64)sizeof(T)) {
            List.Data = (uint8 const *)Data;
            List.Count = (int32)Total;
        }
        return;
    }
    List.Owned = ReadNumbers<T>(Fbx, Field, ElementType, &List.Count);
    List.Data = (uint8 const *)List.Owned;
}

template <typename T>
static inline T NumberAt(number_list const &List, int32 Index)
{
    T Value;
    memcpy(&Value, List.Data + (size_t)Index * sizeof(T), sizeof(T));
    return Value;
}

static int32 ParseMappingMode(char const *Text)
{
    if (strcmp(Text, "ByVertice") == 0 || strcmp(Text, "ByVertex") == 0 || strcmp(Text, "ByControlPoint") == 0)
        return FbxMapping_ByControlPoint;
    if (strcmp(Text, "ByPolygonVertex") == 0) return FbxMapping_ByPolygonVertex;
    if (strcmp(Text, "ByPolygon") == 0 || strcmp(Text, "ByFace") == 0) return FbxMapping_ByPolygon;
    if (strcmp(Text, "ByEdge") == 0) return FbxMapping_ByEdge;
    if (strcmp(Text, "AllSame") == 0) return FbxMapping_AllSame;
    return FbxMapping_None;
}

static int32 ParseReferenceMode(char const *Text)
{
    // "Index" is the older spelling of index-to-direct.
    if (strcmp(Text, "IndexToDirect") == 0 || strcmp(Text, "Index") == 0) return FbxReference_IndexToDirect;
    return FbxReference_Direct;
}

struct layer_element_kind
{
    char const *FieldName;
    char const *DirectName;
    char const *IndexName;
    int32 Type;
    int32 Components;
};

static layer_element_kind const LayerElementKinds[] = {
    {"LayerElementNormal", "Normals", "NormalsIndex", FbxLayerElement_Normal, 3},
    {"LayerElementUV", "UV", "UVIndex", FbxLayerElement_UV, 2},
    {"LayerElementColor", "Colors", "ColorIndex", FbxLayerElement_VertexColor, 4},
};

static KFbxLayerElement *ReadLayerElement(KFbx &Fbx, fbx_field const *Field, layer_element_kind const &Kind)
{
    char Text[256];
    ReadFbxString(Fbx, Fbx.FindChild(Field, "Name"), 0, Text, sizeof(Text));
    KFbxLayerElement *Element = nullptr;
    switch (Kind.Type) {
    case FbxLayerElement_Normal: Element = FbxNew(KFbxLayerElementNormal, Text); break;
    case FbxLayerElement_UV: Element = FbxNew(KFbxLayerElementUV, Text); break;
    default: Element = FbxNew(KFbxLayerElementVertexColor, Text); break;
    }
    if (!Element) {
        return nullptr;
    }
    ReadFbxString(Fbx, Fbx.FindChild(Field, "MappingInformationType"), 0, Text, sizeof(Text));
    Element->SetMappingMode(ParseMappingMode(Text));
    ReadFbxString(Fbx, Fbx.FindChild(Field, "ReferenceInformationType"), 0, Text, sizeof(Text));
    Element->SetReferenceMode(ParseReferenceMode(Text));

    number_list Values;
    ReadNumberList<real64>(Fbx, Fbx.FindChild(Field, Kind.DirectName), FbxValue_ArrayReal64, Values);
    int32 Items = Values.Count / Kind.Components;
    bool Ok = true;
    switch (Kind.Type) {
    case FbxLayerElement_Normal: {
        fbx_array<KFbxVector4> &Array = static_cast<KFbxLayerElementNormal *>(Element)->GetDirectArray();
        Ok = Array.ResizeUninitialised(Items);
        for (int32 Index = 0; Ok && Index < Items; ++Index)
            Array[Index] = KFbxVector4(NumberAt<real64>(Values, 3 * Index), NumberAt<real64>(Values, 3 * Index + 1),
                                       NumberAt<real64>(Values, 3 * Index + 2), 0.0);
        break;
    }
    case FbxLayerElement_UV: {
        fbx_array<KFbxVector2> &Array = static_cast<KFbxLayerElementUV *>(Element)->GetDirectArray();
        Ok = Array.ResizeUninitialised(Items);
        for (int32 Index = 0; Ok && Index < Items; ++Index)
            Array[Index] = KFbxVector2(NumberAt<real64>(Values, 2 * Index), NumberAt<real64>(Values, 2 * Index + 1));
        break;
    }
    default: {
        fbx_array<KFbxColor> &Array = static_cast<KFbxLayerElementVertexColor *>(Element)->GetDirectArray();
        Ok = Array.ResizeUninitialised(Items);
        for (int32 Index = 0; Ok && Index < Items; ++Index)
            Array[Index] = KFbxColor(NumberAt<real64>(Values, 4 * Index), NumberAt<real64>(Values, 4 * Index + 1),
                                     NumberAt<real64>(Values, 4 * Index + 2), NumberAt<real64>(Values, 4 * Index + 3));
        break;
    }
    }

    if (Element->GetReferenceMode() != FbxReference_Direct) {
        number_list Indices;
        ReadNumberList<int32>(Fbx, Fbx.FindChild(Field, Kind.IndexName), FbxValue_ArrayInt32, Indices);
        fbx_array<int32> &Array = Element->GetIndexArray();
        Ok = Ok && Array.ResizeUninitialised(Indices.Count);
        int32 DirectCount = Element->GetDirectCount();
        for (int32 Index = 0; Ok && Index < Indices.Count; ++Index) {
            // An index that leads nowhere reads as none.
            int32 Value = NumberAt<int32>(Indices, Index);
            Array[Index] = (Value >= 0 && Value < DirectCount) ? Value : -1;
        }
    }
    if (!Ok) {
        FbxDelete(Element);
        return nullptr;
    }
    return Element;
}

// UV sets are read through an index by polygon vertex; other layouts are
// brought to that form so that every UV set answers the same way.
static void NormaliseUVElement(KFbxMesh *Mesh, KFbxLayerElement *Element)
{
    fbx_array<int32> &Indices = Element->GetIndexArray();
    int32 Corners = Mesh->GetPolygonVertexCount();
    if (Element->GetMappingMode() == FbxMapping_ByPolygonVertex && Element->GetReferenceMode() == FbxReference_Direct) {
        if (Indices.Resize(Corners)) {
            for (int32 Index = 0; Index < Corners; ++Index) Indices[Index] = Index;
            Element->SetReferenceMode(FbxReference_IndexToDirect);
        }
    } else if (Element->GetMappingMode() == FbxMapping_ByControlPoint) {
        fbx_array<int32> ByPoint;
        if (Element->GetReferenceMode() != FbxReference_Direct && !ByPoint.CopyFrom(Indices)) {
            return;
        }
        bool Direct = Element->GetReferenceMode() == FbxReference_Direct;
        if (Indices.Resize(Corners)) {
            int32 const *Points = Mesh->GetPolygonVertices();
            for (int32 Index = 0; Index < Corners; ++Index) {
                Indices[Index] = Direct ? Points[Index] : ByPoint.GetAt(Points[Index]);
            }
            Element->SetMappingMode(FbxMapping_ByPolygonVertex);
            Element->SetReferenceMode(FbxReference_IndexToDirect);
        }
    }
}

static void PlaceLayerElement(KFbxMesh *Mesh, int32 LayerIndex, KFbxLayerElement *Element)
{
    KFbxLayer *Layer = Mesh->GetOrCreateLayer(LayerIndex);
    if (!Layer) {
        return;
    }
    Layer->SetLayerElement(Element->GetType(), Element);
    if (Element->GetType() == FbxLayerElement_UV) {
        // A layer's UV set is its diffuse channel.
        Layer->SetLayerElement(FbxLayerElement_TextureDiffuse, Element);
    }
}

void ReadFbxModelNormals(KFbx &Fbx, fbx_field const *Object, KFbxMesh *Mesh)
{
    fbx_field const *Field = Fbx.FindChild(Object, "Normals");
    if (!Field || Fbx.GetFirstChild(Field) || Mesh->GetLayerCount(FbxLayerElement_Normal) > 0) {
        return;
    }
    number_list Values;
    ReadNumberList<real64>(Fbx, Field, FbxValue_ArrayReal64, Values);
    int32 Items = Values.Count / 3;
    int32 Mapping = FbxMapping_None;
    if (Items > 0 && Items == Mesh->GetControlPointsCount()) {
        Mapping = FbxMapping_ByControlPoint;
    } else if (Items > 0 && Items == Mesh->GetPolygonVertexCount()) {
        Mapping = FbxMapping_ByPolygonVertex;
    } else {
        return;
    }
    KFbxLayerElementNormal *Element = FbxNew(KFbxLayerElementNormal, "");
    if (!Element) {
        return;
    }
    Element->SetMappingMode(Mapping);
    Element->SetReferenceMode(FbxReference_Direct);
    fbx_array<KFbxVector4> &Array = Element->GetDirectArray();
    if (!Array.ResizeUninitialised(Items)) {
        FbxDelete(Element);
        return;
    }
    for (int32 Index = 0; Index < Items; ++Index) {
        Array[Index] = KFbxVector4(NumberAt<real64>(Values, 3 * Index), NumberAt<real64>(Values, 3 * Index + 1),
                                   NumberAt<real64>(Values, 3 * Index + 2), 0.0);
    }
    if (!Mesh->AdoptLayerElement(Element)) {
        return;
    }
    PlaceLayerElement(Mesh, 0, Element);
}

bool ReadFbxMeshGeometry(KFbx &Fbx, fbx_field const *Object, KFbxMesh *Mesh)
{
    number_list Points;
    ReadNumberList<real64>(Fbx, Fbx.FindChild(Object, "Vertices"), FbxValue_ArrayReal64, Points);
    int32 PointCount = Points.Count / 3;
    if (!Mesh->InitControlPoints(PointCount)) {
        return false;
    }
    KFbxVector4 *Target = Mesh->GetControlPoints();
    for (int32 Index = 0; Index < PointCount; ++Index) {
        Target[Index] = KFbxVector4(NumberAt<real64>(Points, 3 * Index), NumberAt<real64>(Points, 3 * Index + 1),
                                    NumberAt<real64>(Points, 3 * Index + 2), 0.0);
    }

    number_list Indices;
    ReadNumberList<int32>(Fbx, Fbx.FindChild(Object, "PolygonVertexIndex"), FbxValue_ArrayInt32, Indices);
    int32 Count = PointCount == 0 ? 0 : Indices.Count;
    // Room for exactly the polygons and corners of the list: a polygon ends
    // at each negative index, and an unterminated tail is one more.
    int32 PolygonCount = 0;
    for (int32 Index = 0; Index < Count; ++Index) {
        PolygonCount += NumberAt<int32>(Indices, Index) < 0;
    }
    if (Count > 0 && NumberAt<int32>(Indices, Count - 1) >= 0) {
        ++PolygonCount;
    }
    Mesh->ReservePolygons(PolygonCount, Count);
    bool Open = false;
    int32 BadCorners = 0;
    for (int32 Index = 0; Index < Count; ++Index) {
        if (!Open) {
            Mesh->BeginPolygon(-1);
            Open = true;
        }
        int32 Value = NumberAt<int32>(Indices, Index);
        bool Last = Value < 0;
        int32 Point = Last ? ~Value : Value;
        if (Point >= PointCount) {
            // Kept in place (so that per-corner layers stay aligned) but
            // pointed at the first control point.
            if (BadCorners++ == 0) {
                TesselWarning(LogCategory_FBX, "Mesh %s: polygon vertex %d refers to control point %d of %d",
                              Mesh->GetName(), Index, Point, PointCount);
            }
            Point = 0;
        }
        Mesh->AddPolygon(Point);
        if (Last) {
            Mesh->EndPolygon();
            Open = false;
        }
    }
    if (Open) {
        Mesh->EndPolygon();
    }

    // Layer elements, by kind and number.
    struct numbered
    {
        KFbxLayerElement *Element;
        int32 Number;
    };
    fbx_array<numbered> Elements;
    for (layer_element_kind const &Kind : LayerElementKinds) {
        for (fbx_field const *Field = Fbx.FindChild(Object, Kind.FieldName); Field;
             Field = Fbx.FindNextSibling(Field, Kind.FieldName)) {
            KFbxLayerElement *Element = ReadLayerElement(Fbx, Field, Kind);
            if (!Element || !Mesh->AdoptLayerElement(Element)) {
                continue;
            }
            if (Element->GetType() == FbxLayerElement_UV) {
                NormaliseUVElement(Mesh, Element);
            }
            numbered Entry = {Element, Fbx.GetInt32(Field, 0, 0)};
            Elements.Add(Entry);
        }
    }
    fbx_field const *LayerField = Fbx.FindChild(Object, "Layer");
    if (!LayerField) {
        // Without a layer table, element n of each kind goes to layer n.
        for (int32 Index = 0; Index < Elements.Count; ++Index) {
            PlaceLayerElement(Mesh, Elements[Index].Number, Elements[Index].Element);
        }
        return true;
    }
    for (; LayerField; LayerField = Fbx.FindNextSibling(LayerField, "Layer")) {
        int32 LayerIndex = Fbx.GetInt32(LayerField, 0, 0);
        for (fbx_field const *Entry = Fbx.FindChild(LayerField, "LayerElement"); Entry;
             Entry = Fbx.FindNextSibling(Entry, "LayerElement")) {
            char Type[64];
            ReadFbxString(Fbx, Fbx.FindChild(Entry, "Type"), 0, Type, sizeof(Type));
            int32 TypedIndex = Fbx.GetInt32(Fbx.FindChild(Entry, "TypedIndex"), 0, 0);
            int32 WantedType = -1;
            for (layer_element_kind const &Kind : LayerElementKinds) {
                if (strcmp(Type, Kind.FieldName) == 0) {
                    WantedType = Kind.Type;
                }
            }
            for (int32 Index = 0; WantedType >= 0 && Index < Elements.Count; ++Index) {
                if (Elements[Index].Element->GetType() == WantedType && Elements[Index].Number == TypedIndex) {
                    PlaceLayerElement(Mesh, LayerIndex, Elements[Index].Element);
                    break;
                }
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------------------
// Clusters.

static bool ReadMatrix(KFbx &Fbx, fbx_field const *Field, AffineMatrix &Matrix)
{
    real64 Values[16];
    if (!Field || Fbx.GetNumberCount(Field) < 16 || Fbx.CopyNumbers(Field, FbxValue_ArrayReal64, Values, 16) != 16) {
        return false;
    }
    for (int32 Row = 0; Row < 4; ++Row) {
        for (int32 Column = 0; Column < 4; ++Column) {
            Matrix.mData[Row][Column] = Values[4 * Row + Column];
        }
    }
    return true;
}

void FillFbxAutomaticSlopes(KFCurve *Curve, bool OnlyMissing)
{
    int32 Count = Curve->KeyGetCount();
    for (int32 Index = 0; Index < Count; ++Index) {
        KFCurveKey &Key = Curve->KeyGet(Index);
        uint32 Tangent = Key.Flags & FbxKey_TangentMask;
        bool Automatic = Key.GetInterpolation() == FbxKey_Cubic &&
                         (Tangent == FbxKey_TangentAuto || Tangent == FbxKey_TangentAutoBreak || Tangent == 0);
        bool Missing = Key.Data[0].Float != Key.Data[0].Float; // NaN marks a missing slope
        if (!Automatic || (OnlyMissing && !Missing)) {
            if (Missing) {
                Key.Data[0].Float = 0.0f;
            }
            continue;
        }
        real32 Slope = 0.0f;
        if (Index > 0 && Index + 1 < Count) {
            KFCurveKey const &Previous = Curve->KeyGet(Index - 1);
            KFCurveKey const &Next = Curve->KeyGet(Index + 1);
            real64 Span = (real64)(Next.Time.Get() - Previous.Time.Get()) / (real64)KTime::TicksPerSecond;
            Slope = (Span > 0.0) ? (real32)((Next.Value - Previous.Value) / Span) : 0.0f;
        }
        Key.Data[0].Float = Slope;
        if (Index > 0) {
            Curve->KeyGet(Index - 1).Data[1].Float = Slope;
        }
    }
}

void DropFbxSkinIndicesOutsideMeshes(KFbxScene *Scene)
{
    for (int32 Member = 0; Member < Scene->GetMemberCount(); ++Member) {
        KFbxNodeAttribute *Attribute = dynamic_cast<KFbxNodeAttribute *>(Scene->GetMember(Member));
        if (!Attribute || Attribute->GetAttributeType() != FbxAttribute_Mesh) {
            continue;
        }
        KFbxMesh *Mesh = static_cast<KFbxMesh *>(Attribute);
        for (int32 Skin = 0; Skin < Mesh->GetDeformerCount(FbxDeformer_Skin); ++Skin) {
            KFbxSkin *Deformer = static_cast<KFbxSkin *>(Mesh->GetDeformer(Skin, FbxDeformer_Skin));
            for (int32 Index = 0; Index < Deformer->GetClusterCount(); ++Index) {
                int32 Dropped = Deformer->GetCluster(Index)->DropControlPointsFrom(Mesh->GetControlPointsCount());
                if (Dropped > 0) {
                    TesselWarning(LogCategory_FBX, "Cluster %s: %d influences outside mesh %s were dropped",
                                  Deformer->GetCluster(Index)->GetName(), Dropped, Mesh->GetName());
                }
            }
        }
    }
}

bool ReadFbxClusterData(KFbx &Fbx, fbx_field const *Object, KFbxCluster *Cluster)
{
    int32 IndexCount = 0, WeightCount = 0;
    int32 *Indices = ReadNumbers<int32>(Fbx, Fbx.FindChild(Object, "Indexes"), FbxValue_ArrayInt32, &IndexCount);
    real64 *Weights = ReadNumbers<real64>(Fbx, Fbx.FindChild(Object, "Weights"), FbxValue_ArrayReal64, &WeightCount);
    bool Ok = true;
    for (int32 Index = 0; Ok && Index < IndexCount; ++Index) {
        Ok = Cluster->AddControlPointIndex(Indices[Index], Index < WeightCount ? Weights[Index] : 0.0);
    }
    TesselFree(Indices);
    TesselFree(Weights);
    AffineMatrix Matrix;
    if (ReadMatrix(Fbx, Fbx.FindChild(Object, "Transform"), Matrix)) {
        Cluster->SetTransformMatrix(Matrix);
    }
    if (ReadMatrix(Fbx, Fbx.FindChild(Object, "TransformLink"), Matrix)) {
        Cluster->SetTransformLinkMatrix(Matrix);
    }
    return Ok;
}

void ReadFbxSkinData(KFbx &Fbx, fbx_field const *Object, KFbxSkin *Skin)
{
    char Type[32];
    ReadFbxString(Fbx, Fbx.FindChild(Object, "SkinningType"), 0, Type, sizeof(Type));
    if (strcmp(Type, "Rigid") == 0) {
        Skin->SkinningType = FbxSkinning_Rigid;
    } else if (strcmp(Type, "DualQuaternion") == 0) {
        Skin->SkinningType = FbxSkinning_DualQuaternion;
    } else if (strcmp(Type, "Blend") == 0) {
        Skin->SkinningType = FbxSkinning_Blend;
    }
}

void ReadFbxBindPose(KFbx &Fbx, fbx_field const *Pose, fbx_object_table &Objects, bool ById)
{
    char Type[32];
    ReadFbxString(Fbx, Fbx.FindChild(Pose, "Type"), 0, Type, sizeof(Type));
    if (strcmp(Type, "BindPose") != 0) {
        return;
    }
    for (fbx_field const *Entry = Fbx.FindChild(Pose, "PoseNode"); Entry;
         Entry = Fbx.FindNextSibling(Entry, "PoseNode")) {
        fbx_field const *NodeField = Fbx.FindChild(Entry, "Node");
        fbx_object_entry *Object = nullptr;
        if (ById) {
            int64 Id = 0;
            if (NodeField && Fbx.GetValueInt64(NodeField, 0, &Id)) {
                Object = Objects.FindById(Id);
            }
        } else {
            char Key[512];
            Object = Objects.FindByKey(ReadFbxString(Fbx, NodeField, 0, Key, sizeof(Key)));
        }
        AffineMatrix Matrix;
        if (!Object || Object->Kind != FbxObjectKind_Node || !ReadMatrix(Fbx, Fbx.FindChild(Entry, "Matrix"), Matrix)) {
            continue;
        }
        // The first bind pose that names a node holds for it.
        KFbxNode *Node = (KFbxNode *)Object->Object;
        if (!Node->HasBindPoseMatrix) {
            Node->HasBindPoseMatrix = true;
            Node->BindPoseMatrix = Matrix;
        }
    }
}

// ---------------------------------------------------------------------------
// Object table: open addressing over entry indices.

fbx_object_table::~fbx_object_table()
{
    for (int32 Index = 0; Index < mEntries.Count; ++Index) {
        TesselFree(mEntries[Index].Key);
    }
}

uint64 fbx_object_table::HashKey(int64 Id, char const *Key) const
{
    uint64 Hash = 1469598103934665603ULL ^ (uint64)Id;
    if (Key) {
        for (char const *At = Key; *At; ++At) {
            Hash = (Hash ^ (uint8)*At) * 1099511628211ULL;
        }
    }
    Hash ^= Hash >> 29;
    Hash *= 0xBF58476D1CE4E5B9ULL;
    Hash ^= Hash >> 32;
    return Hash;
}

bool fbx_object_table::Rehash(int32 Size)
{
    if (!mBuckets.Resize(0) || !mBuckets.Resize(Size)) {
        return false;
    }
    for (int32 Index = 0; Index < mEntries.Count; ++Index) {
        uint64 Slot = HashKey(mEntries[Index].Id, mEntries[Index].Key) & (uint64)(Size - 1);
        while (mBuckets[(int32)Slot] != 0) {
            Slot = (Slot + 1) & (uint64)(Size - 1);
        }
        mBuckets[(int32)Slot] = Index + 1;
    }
    return true;
}

bool fbx_object_table::Add(int64 Id, char const *Key, void *Object, int32 Kind, fbx_field const *Field)
{
    if (Find(Id, Key)) {
        // The first object of a name or id wins.
        return false;
    }
    fbx_object_entry Entry = {Id, Key ? FbxCopyString(Key) : nullptr, Object, Kind, Field};
    if ((Key && !Entry.Key) || !mEntries.Add(Entry)) {
        TesselFree(Entry.Key);
        return false;
    }
    if (mEntries.Count * 2 > mBuckets.Count) {
        int32 Size = 64;
        while (Size < mEntries.Count * 4) {
            Size *= 2;
        }
        return Rehash(Size);
    }
    uint64 Slot = HashKey(Id, Key) & (uint64)(mBuckets.Count - 1);
    while (mBuckets[(int32)Slot] != 0) {
        Slot = (Slot + 1) & (uint64)(mBuckets.Count - 1);
    }
    mBuckets[(int32)Slot] = mEntries.Count;
    return true;
}

fbx_object_entry *fbx_object_table::Find(int64 Id, char const *Key)
{
    if (mBuckets.Count == 0) {
        return nullptr;
    }
    uint64 Slot = HashKey(Id, Key) & (uint64)(mBuckets.Count - 1);
    while (mBuckets[(int32)Slot] != 0) {
        fbx_object_entry &Entry = mEntries[mBuckets[(int32)Slot] - 1];
        if (Entry.Id == Id && ((!Key && !Entry.Key) || (Key && Entry.Key && strcmp(Key, Entry.Key) == 0))) {
            return &Entry;
        }
        Slot = (Slot + 1) & (uint64)(mBuckets.Count - 1);
    }
    return nullptr;
}

fbx_object_entry *fbx_object_table::FindById(int64 Id)
{
    return Find(Id, nullptr);
}

fbx_object_entry *fbx_object_table::FindByKey(char const *Key)
{
    return Key ? Find(0, Key) : nullptr;
}
