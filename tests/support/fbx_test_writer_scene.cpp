// Test-only FBX writer: scene description to FBX 6 or FBX 7 field trees.
#include "support/fbx_test_writer.h"

#include <cmath>
#include <cstring>

// ---------------------------------------------------------------------------
// Matrices. Internally column vectors (M[r][c], p' = M p); the file form is
// row-major with rows as axis images, i.e. the transpose.
// ---------------------------------------------------------------------------

namespace {

struct mat4
{
    double M[4][4];
};

mat4 Identity()
{
    mat4 R = {};
    for (int I = 0; I < 4; ++I) R.M[I][I] = 1.0;
    return R;
}

mat4 Mul(const mat4 &A, const mat4 &B)
{
    mat4 R = {};
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J)
            for (int K = 0; K < 4; ++K) R.M[I][J] += A.M[I][K] * B.M[K][J];
    return R;
}

mat4 Translate(const double V[3], double Sign = 1.0)
{
    mat4 R = Identity();
    for (int I = 0; I < 3; ++I) R.M[I][3] = Sign * V[I];
    return R;
}

mat4 Scale(const double V[3])
{
    mat4 R = Identity();
    for (int I = 0; I < 3; ++I) R.M[I][I] = V[I];
    return R;
}

mat4 AxisRotation(int Axis, double Degrees)
{
    double A = Degrees * 0.017453292519943295, C = std::cos(A), S = std::sin(A);
    int P = (Axis + 1) % 3, Q = (Axis + 2) % 3;
    mat4 R = Identity();
    R.M[P][P] = C;
    R.M[P][Q] = -S;
    R.M[Q][P] = S;
    R.M[Q][Q] = C;
    return R;
}

// Euler angles applied in the order the RotationOrder value names, first axis first.
mat4 EulerRotation(const double Degrees[3], int32_t Order)
{
    static const int Axes[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 2, 0}, {1, 0, 2}, {2, 0, 1}, {2, 1, 0}};
    const int *A = Axes[(Order >= 0 && Order < 6) ? Order : 0];
    mat4 R = Identity();
    for (int I = 0; I < 3; ++I) R = Mul(AxisRotation(A[I], Degrees[A[I]]), R);
    return R;
}

mat4 Transposed(const mat4 &A)
{
    mat4 R;
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J) R.M[I][J] = A.M[J][I];
    return R;
}

mat4 Inverse(const mat4 &A)
{
    mat4 L = A, R = Identity();
    for (int Col = 0; Col < 4; ++Col) {
        int Pivot = Col;
        for (int Row = Col + 1; Row < 4; ++Row)
            if (std::fabs(L.M[Row][Col]) > std::fabs(L.M[Pivot][Col])) Pivot = Row;
        std::swap(L.M[Col], L.M[Pivot]);
        std::swap(R.M[Col], R.M[Pivot]);
        double D = L.M[Col][Col];
        if (D == 0.0) return Identity();
        for (int J = 0; J < 4; ++J) {
            L.M[Col][J] /= D;
            R.M[Col][J] /= D;
        }
        for (int Row = 0; Row < 4; ++Row) {
            if (Row == Col) continue;
            double F = L.M[Row][Col];
            for (int J = 0; J < 4; ++J) {
                L.M[Row][J] -= F * L.M[Col][J];
                R.M[Row][J] -= F * R.M[Col][J];
            }
        }
    }
    return R;
}

void ToFile(const mat4 &A, double Out[16])
{
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J) Out[I * 4 + J] = A.M[J][I];
}

mat4 FromFile(const double In[16])
{
    mat4 R;
    for (int I = 0; I < 4; ++I)
        for (int J = 0; J < 4; ++J) R.M[J][I] = In[I * 4 + J];
    return R;
}

mat4 LocalMatrix(const fbx_test_node &Node)
{
    mat4 R = EulerRotation(Node.Rotation, Node.RotationActive ? Node.RotationOrder : 0);
    if (Node.RotationActive)
        R = Mul(Mul(EulerRotation(Node.PreRotation, 0), R), Transposed(EulerRotation(Node.PostRotation, 0)));
    mat4 L = Translate(Node.Translation);
    L = Mul(L, Translate(Node.RotationOffset));
    L = Mul(L, Translate(Node.RotationPivot));
    L = Mul(L, R);
    L = Mul(L, Translate(Node.RotationPivot, -1.0));
    L = Mul(L, Translate(Node.ScalingOffset));
    L = Mul(L, Translate(Node.ScalingPivot));
    L = Mul(L, Scale(Node.Scaling));
    L = Mul(L, Translate(Node.ScalingPivot, -1.0));
    return L;
}

mat4 GlobalMatrix(const fbx_test_scene &Scene, int32_t Index)
{
    const fbx_test_node &Node = Scene.Nodes[Index];
    mat4 L = LocalMatrix(Node);
    if (Node.Parent < 0 || Node.Parent >= (int32_t)Scene.Nodes.size()) return L;
    return Mul(GlobalMatrix(Scene, Node.Parent), L);
}

bool NonZero(const double V[3])
{
    return V[0] != 0.0 || V[1] != 0.0 || V[2] != 0.0;
}

std::vector<double> Matrix16(const double M[16])
{
    return std::vector<double>(M, M + 16);
}

} // namespace

void FbxTestIdentity(double Matrix[16])
{
    ToFile(Identity(), Matrix);
}

void FbxTestTranslation(double Matrix[16], double X, double Y, double Z)
{
    double V[3] = {X, Y, Z};
    ToFile(Translate(V), Matrix);
}

void FbxTestNodeGlobal(const fbx_test_scene &Scene, int32_t Node, double Matrix[16])
{
    if (Node < 0 || Node >= (int32_t)Scene.Nodes.size()) {
        FbxTestIdentity(Matrix);
        return;
    }
    ToFile(GlobalMatrix(Scene, Node), Matrix);
}

void FbxTestInverse(const double Matrix[16], double Inverse16[16])
{
    ToFile(Inverse(FromFile(Matrix)), Inverse16);
}

fbx_test_cluster::fbx_test_cluster()
{
    FbxTestIdentity(Transform);
    FbxTestIdentity(TransformLink);
}

// ---------------------------------------------------------------------------
// Shared pieces
// ---------------------------------------------------------------------------

namespace {

const char *MappingWord(fbx_test_mapping Mapping)
{
    switch (Mapping) {
    case FbxTestByControlPoint: return "ByVertice";
    case FbxTestByPolygon: return "ByPolygon";
    default: return "ByPolygonVertex";
    }
}

const char *AxisName(int32_t Axis)
{
    return Axis == 0 ? "X" : Axis == 1 ? "Y" : "Z";
}

const char *ChannelProperty(char Channel)
{
    return Channel == 'T' ? "Lcl Translation" : Channel == 'R' ? "Lcl Rotation" : "Lcl Scaling";
}

const double *ChannelDefault(const fbx_test_node &Node, char Channel)
{
    return Channel == 'T' ? Node.Translation : Channel == 'R' ? Node.Rotation : Node.Scaling;
}

// Appends the geometry fields shared by both layouts: Vertices,
// PolygonVertexIndex, GeometryVersion, layer elements and Layer 0.
void AddGeometryFields(fbx_test_field &Geometry, const fbx_test_mesh &Mesh, bool Fbx7)
{
    std::vector<int32_t> Indices;
    for (size_t P = 0; P < Mesh.Polygons.size(); ++P) {
        const std::vector<int32_t> &Polygon = Mesh.Polygons[P];
        for (size_t I = 0; I < Polygon.size(); ++I) {
            bool Last = I + 1 == Polygon.size();
            bool Mark = Last && (Mesh.EndMarkOnLastPolygon || P + 1 < Mesh.Polygons.size());
            Indices.push_back(Mark ? ~Polygon[I] : Polygon[I]);
        }
    }
    Geometry.Add("Vertices", {FbxArrayD(Mesh.ControlPoints)});
    Geometry.Add("PolygonVertexIndex", {FbxArrayI(Indices)});
    Geometry.Add("GeometryVersion", {FbxI(124)});

    fbx_test_field Layer;
    Layer.Name = "Layer";
    Layer.Values = {FbxI(0)};
    Layer.Add("Version", {FbxI(100)});
    auto LayerEntry = [&Layer](const char *Type) {
        fbx_test_field &Entry = Layer.Add("LayerElement");
        Entry.Add("Type", {FbxS(Type)});
        Entry.Add("TypedIndex", {FbxI(0)});
    };

    if (!Mesh.Normals.empty()) {
        fbx_test_field &E = Geometry.Add("LayerElementNormal", {FbxI(0)});
        E.Add("Version", {FbxI(101)});
        E.Add("Name", {FbxS("")});
        E.Add("MappingInformationType", {FbxS(MappingWord(Mesh.NormalMapping))});
        E.Add("ReferenceInformationType", {FbxS("Direct")});
        E.Add("Normals", {FbxArrayD(Mesh.Normals)});
        LayerEntry("LayerElementNormal");
    }
    if (!Mesh.Colors.empty()) {
        fbx_test_field &E = Geometry.Add("LayerElementColor", {FbxI(0)});
        E.Add("Version", {FbxI(101)});
        E.Add("Name", {FbxS("Col")});
        E.Add("MappingInformationType", {FbxS("ByVertice")});
        E.Add("ReferenceInformationType", {FbxS("Direct")});
        E.Add("Colors", {FbxArrayD(Mesh.Colors)});
        LayerEntry("LayerElementColor");
    }
    if (!Mesh.UVs.empty()) {
        fbx_test_field &E = Geometry.Add("LayerElementUV", {FbxI(0)});
        E.Add("Version", {FbxI(101)});
        E.Add("Name", {FbxS(Mesh.UVSetName)});
        E.Add("MappingInformationType", {FbxS("ByPolygonVertex")});
        E.Add("ReferenceInformationType", {FbxS("IndexToDirect")});
        E.Add("UV", {FbxArrayD(Mesh.UVs)});
        E.Add("UVIndex", {FbxArrayI(Mesh.UVIndex)});
        LayerEntry("LayerElementUV");
    }
    // A smoothing element, which readers pass over.
    {
        fbx_test_field &E = Geometry.Add("LayerElementSmoothing", {FbxI(0)});
        E.Add("Version", {FbxI(102)});
        E.Add("Name", {FbxS("")});
        E.Add("MappingInformationType", {FbxS("ByPolygon")});
        E.Add("ReferenceInformationType", {FbxS("Direct")});
        E.Add("Smoothing", {FbxArrayI(std::vector<int32_t>(Mesh.Polygons.size(), 1))});
    }
    Geometry.Children.push_back(Layer);
}

void AddHeaderExtension(fbx_test_field &Root, const fbx_test_scene &Scene, int32_t Version)
{
    fbx_test_field &Header = Root.Add("FBXHeaderExtension");
    Header.Add("FBXHeaderVersion", {FbxI(1003)});
    Header.Add("FBXVersion", {FbxI(Version)});
    Header.Add("EncryptionType", {FbxI(0)});
    fbx_test_field &Stamp = Header.Add("CreationTimeStamp");
    Stamp.Add("Version", {FbxI(1000)});
    Stamp.Add("Year", {FbxI(2026)});
    Stamp.Add("Month", {FbxI(1)});
    Stamp.Add("Day", {FbxI(2)});
    Stamp.Add("Hour", {FbxI(3)});
    Stamp.Add("Minute", {FbxI(4)});
    Stamp.Add("Second", {FbxI(5)});
    Stamp.Add("Millisecond", {FbxI(6)});
    Header.Add("Creator", {FbxS(Scene.Creator)});
}

// Properties of a model, in either property syntax.
struct property_writer
{
    fbx_test_field *Block;
    bool Fbx7;

    void Add(const char *Name, const char *Type, const char *Label, const char *Flags,
             std::vector<fbx_test_value> Values)
    {
        std::vector<fbx_test_value> All = {FbxS(Name), FbxS(Type)};
        if (Fbx7) All.push_back(FbxS(Label));
        All.push_back(FbxS(Flags));
        for (fbx_test_value &V : Values) All.push_back(V);
        Block->Add(Fbx7 ? "P" : "Property", All);
    }
    void Vector(const char *Name, const double V[3], const char *Type = "Vector3D", const char *Flags = "")
    {
        const char *Label = std::strncmp(Type, "Lcl", 3) == 0 ? "" : "Vector";
        Add(Name, Type, Label, Flags, {FbxD(V[0]), FbxD(V[1]), FbxD(V[2])});
    }
    void Int(const char *Name, const char *Type, int32_t Value)
    {
        Add(Name, Type, std::strcmp(Type, "int") == 0 ? "Integer" : "", "", {FbxI(Value)});
    }
};

void AddModelProperties(fbx_test_field &Model, const fbx_test_node &Node, bool Fbx7)
{
    property_writer P = {&Model.Add(Fbx7 ? "Properties70" : "Properties60"), Fbx7};
    const char *Animatable = Fbx7 ? "A" : "A+";
    P.Vector("Lcl Translation", Node.Translation, "Lcl Translation", Animatable);
    P.Vector("Lcl Rotation", Node.Rotation, "Lcl Rotation", Animatable);
    P.Vector("Lcl Scaling", Node.Scaling, "Lcl Scaling", Animatable);
    P.Int("RotationOrder", "enum", Node.RotationOrder);
    P.Int("RotationActive", "bool", Node.RotationActive ? 1 : 0);
    P.Int("InheritType", "enum", Node.InheritType);
    if (NonZero(Node.PreRotation)) P.Vector("PreRotation", Node.PreRotation);
    if (NonZero(Node.PostRotation)) P.Vector("PostRotation", Node.PostRotation);
    if (NonZero(Node.RotationOffset)) P.Vector("RotationOffset", Node.RotationOffset);
    if (NonZero(Node.RotationPivot)) P.Vector("RotationPivot", Node.RotationPivot);
    if (NonZero(Node.ScalingOffset)) P.Vector("ScalingOffset", Node.ScalingOffset);
    if (NonZero(Node.ScalingPivot)) P.Vector("ScalingPivot", Node.ScalingPivot);
    if (NonZero(Node.GeometricTranslation)) P.Vector("GeometricTranslation", Node.GeometricTranslation);
    if (NonZero(Node.GeometricRotation)) P.Vector("GeometricRotation", Node.GeometricRotation);
    const double Unit[3] = {1, 1, 1};
    if (std::memcmp(Node.GeometricScaling, Unit, sizeof(Unit)) != 0)
        P.Vector("GeometricScaling", Node.GeometricScaling);
    // A property no reader here needs, to be passed over.
    P.Add("Show", "bool", "", "", {FbxI(1)});
}

void AddGlobalSettings(fbx_test_field &Parent, const fbx_test_scene &Scene, bool Fbx7)
{
    fbx_test_field &Settings = Parent.Add("GlobalSettings");
    Settings.Add("Version", {FbxI(1000)});
    property_writer P = {&Settings.Add(Fbx7 ? "Properties70" : "Properties60"), Fbx7};
    P.Int("UpAxis", "int", Scene.UpAxis);
    P.Int("UpAxisSign", "int", Scene.UpAxisSign);
    P.Int("FrontAxis", "int", Scene.FrontAxis);
    P.Int("FrontAxisSign", "int", Scene.FrontAxisSign);
    P.Int("CoordAxis", "int", Scene.CoordAxis);
    P.Int("CoordAxisSign", "int", Scene.CoordAxisSign);
    P.Add("UnitScaleFactor", "double", "Number", "", {FbxD(Scene.UnitScaleFactor)});
    P.Int("TimeMode", "enum", Scene.TimeMode);
    if (!Scene.Takes.empty()) {
        P.Add("TimeSpanStart", "KTime", "Time", "", {FbxL(Scene.Takes[0].Start)});
        P.Add("TimeSpanStop", "KTime", "Time", "", {FbxL(Scene.Takes[0].Stop)});
    }
}

void AddTakeHeader(fbx_test_field &Take, const fbx_test_take &Info)
{
    std::string File = Info.Name;
    for (char &C : File)
        if (C == ' ') C = '_';
    Take.Add("FileName", {FbxS(File + ".tak")});
    if (Info.WriteLocalTime) Take.Add("LocalTime", {FbxL(Info.Start), FbxL(Info.Stop)});
    Take.Add("ReferenceTime", {FbxL(Info.Start), FbxL(Info.Stop)});
}

std::string ModelKind6(const fbx_test_node &Node)
{
    return Node.Kind == "LimbNode" ? "Limb" : Node.Kind;
}

std::string NodeName(const fbx_test_scene &Scene, int32_t Index)
{
    return Scene.Nodes[Index].Name;
}

bool HasLink(const fbx_test_scene &Scene, const fbx_test_cluster &Cluster)
{
    return Cluster.Bone >= 0 && Cluster.Bone < (int32_t)Scene.Nodes.size();
}

std::string ClusterBoneName(const fbx_test_scene &Scene, const fbx_test_cluster &Cluster)
{
    return HasLink(Scene, Cluster) ? NodeName(Scene, Cluster.Bone) : "Unlinked";
}

// Frame rate words of the old settings block, by time mode.
const char *FrameRateWord(int32_t TimeMode)
{
    switch (TimeMode) {
    case 1: return "120";
    case 2: return "100";
    case 3: return "60";
    case 4: return "50";
    case 5: return "48";
    case 9: return "29.97";
    case 10: return "25";
    case 11: return "24";
    case 12: return "1000";
    default: return "30";
    }
}

} // namespace

// ---------------------------------------------------------------------------
// FBX 6 layout
// ---------------------------------------------------------------------------

fbx_test_field BuildFbx6Scene(const fbx_test_scene &Scene, int32_t Version)
{
    fbx_test_field Root;
    AddHeaderExtension(Root, Scene, Version);
    Root.Add("CreationTime", {FbxS("2026-01-02 03:04:05:006")});
    Root.Add("Creator", {FbxS(Scene.Creator)});

    int32_t Deformers = 0;
    for (const fbx_test_mesh &Mesh : Scene.Meshes)
        if (!Mesh.Clusters.empty()) Deformers += 1 + (int32_t)Mesh.Clusters.size();
    fbx_test_field &Definitions = Root.Add("Definitions");
    Definitions.Add("Version", {FbxI(100)});
    Definitions.Add("Count", {FbxI((int32_t)Scene.Nodes.size() + Deformers + 1)});
    Definitions.Add("ObjectType", {FbxS("Model")}).Add("Count", {FbxI((int32_t)Scene.Nodes.size())});
    Definitions.Add("ObjectType", {FbxS("Deformer")}).Add("Count", {FbxI(Deformers)});
    Definitions.Add("ObjectType", {FbxS("GlobalSettings")}).Add("Count", {FbxI(1)});

    fbx_test_field &Objects = Root.Add("Objects");
    fbx_test_field Connections;
    Connections.Name = "Connections";
    auto Connect = [&Connections](const std::string &Child, const std::string &Parent) {
        Connections.Add("Connect", {FbxS("OO"), FbxS(Child), FbxS(Parent)});
    };

    for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
        const fbx_test_node &Node = Scene.Nodes[N];
        fbx_test_field &Model = Objects.Add("Model", {FbxName("Model", Node.Name), FbxS(ModelKind6(Node))});
        Model.Add("Version", {FbxI(232)});
        AddModelProperties(Model, Node, false);
        Model.Add("MultiLayer", {FbxI(0)});
        Model.Add("MultiTake", {FbxI(1)});
        Model.Add("Shading", {FbxC('Y')});
        Model.Add("Culling", {FbxS("CullingOff")});
        if (Node.Kind == "LimbNode") Model.Add("TypeFlags", {FbxS("Skeleton")});
        if (Node.Mesh >= 0 && Node.Mesh < (int32_t)Scene.Meshes.size())
            AddGeometryFields(Model, Scene.Meshes[Node.Mesh], false);

        Connect("Model::" + Node.Name, Node.Parent >= 0 ? "Model::" + NodeName(Scene, Node.Parent) : "Model::Scene");
    }

    for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
        const fbx_test_node &Node = Scene.Nodes[N];
        if (Node.Mesh < 0 || Node.Mesh >= (int32_t)Scene.Meshes.size()) continue;
        const fbx_test_mesh &Mesh = Scene.Meshes[Node.Mesh];
        if (Mesh.Clusters.empty()) continue;

        std::string SkinName = "Skin " + Node.Name;
        fbx_test_field &Skin = Objects.Add("Deformer", {FbxName("Deformer", SkinName), FbxS("Skin")});
        Skin.Add("Version", {FbxI(100)});
        Skin.Add("MultiLayer", {FbxI(0)});
        Skin.Add("Type", {FbxS("Skin")});
        Skin.Add("Properties60");
        Skin.Add("Link_DeformAcuracy", {FbxD(50)});
        Connect("Deformer::" + SkinName, "Model::" + Node.Name);

        for (const fbx_test_cluster &Cluster : Mesh.Clusters) {
            std::string ClusterName = "Cluster " + Node.Name + " " + ClusterBoneName(Scene, Cluster);
            fbx_test_field &C = Objects.Add("Deformer", {FbxName("SubDeformer", ClusterName), FbxS("Cluster")});
            C.Add("Version", {FbxI(100)});
            C.Add("MultiLayer", {FbxI(0)});
            C.Add("Type", {FbxS("Cluster")});
            C.Add("Properties60").Add("Property", {FbxS("SrcModelReference"), FbxS("object"), FbxS("")});
            C.Add("UserData", {FbxS(""), FbxS("")});
            C.Add("Indexes", {FbxArrayI(Cluster.Indexes)});
            C.Add("Weights", {FbxArrayD(Cluster.Weights)});
            C.Add("Transform", {FbxArrayD(Matrix16(Cluster.Transform))});
            C.Add("TransformLink", {FbxArrayD(Matrix16(Cluster.TransformLink))});
            Connect("SubDeformer::" + ClusterName, "Deformer::" + SkinName);
            if (HasLink(Scene, Cluster))
                Connect("Model::" + NodeName(Scene, Cluster.Bone), "SubDeformer::" + ClusterName);
        }
    }

    // A material on every mesh node, which readers pass over.
    fbx_test_field &Material = Objects.Add("Material", {FbxName("Material", "Default"), FbxS("")});
    Material.Add("Version", {FbxI(102)});
    Material.Add("ShadingModel", {FbxS("lambert")});
    Material.Add("Properties60")
        .Add("Property", {FbxS("DiffuseColor"), FbxS("ColorRGB"), FbxS(""), FbxD(0.8), FbxD(0.8), FbxD(0.8)});
    for (const fbx_test_node &Node : Scene.Nodes)
        if (Node.Mesh >= 0) Connect("Material::Default", "Model::" + Node.Name);

    AddGlobalSettings(Objects, Scene, false);
    Root.Children.push_back(Connections);

    fbx_test_field &Takes = Root.Add("Takes");
    Takes.Add("Current", {FbxS(Scene.Takes.empty() ? "" : Scene.Takes[0].Name)});
    for (const fbx_test_take &Info : Scene.Takes) {
        fbx_test_field &Take = Takes.Add("Take", {FbxS(Info.Name)});
        AddTakeHeader(Take, Info);
        for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
            const fbx_test_node &Node = Scene.Nodes[N];
            fbx_test_field &Model = Take.Add("Model", {FbxName("Model", Node.Name)});
            Model.Add("Version", {FbxD(1.1)});
            fbx_test_field &Transform = Model.Add("Channel", {FbxS("Transform")});
            const char Channels[3] = {'T', 'R', 'S'};
            for (int C = 0; C < 3; ++C) {
                fbx_test_field &Channel = Transform.Add("Channel", {FbxS(std::string(1, Channels[C]))});
                for (int32_t Axis = 0; Axis < 3; ++Axis) {
                    fbx_test_field &Component = Channel.Add("Channel", {FbxS(AxisName(Axis))});
                    Component.Add("Default", {FbxD(ChannelDefault(Node, Channels[C])[Axis])});
                    const fbx_test_curve *Curve = nullptr;
                    for (const fbx_test_curve &Candidate : Info.Curves)
                        if (Candidate.Node == (int32_t)N && Candidate.Channel == Channels[C] && Candidate.Axis == Axis)
                            Curve = &Candidate;
                    if (Curve) {
                        Component.Add("KeyVer", {FbxI(4005)});
                        Component.Add("KeyCount", {FbxI((int32_t)Curve->Keys.size())});
                        fbx_test_field &Keys = Component.Add("Key");
                        for (const fbx_test_key &Key : Curve->Keys) {
                            Keys.Values.push_back(FbxL(Key.Time));
                            Keys.Values.push_back(FbxD(Key.Value));
                            if (Key.Interpolation == FbxTestConstant) {
                                Keys.Values.push_back(FbxC('C'));
                                Keys.Values.push_back(FbxC('s'));
                            } else if (Key.Interpolation == FbxTestLinear) {
                                Keys.Values.push_back(FbxC('L'));
                            } else {
                                Keys.Values.push_back(FbxC('U'));
                                Keys.Values.push_back(FbxC('s'));
                                Keys.Values.push_back(FbxD(Key.RightSlope));
                                Keys.Values.push_back(FbxD(Key.NextLeftSlope));
                                Keys.Values.push_back(FbxC('n'));
                            }
                        }
                    }
                    Component.Add("Color", {FbxD(Axis == 0), FbxD(Axis == 1), FbxD(Axis == 2)});
                }
                Channel.Add("LayerType", {FbxI(C + 1)});
            }
        }
    }

    // The settings block that FBX 6 files still carry at their end.
    fbx_test_field &Version5 = Root.Add("Version5");
    fbx_test_field &Ambient = Version5.Add("AmbientRenderSettings");
    Ambient.Add("Version", {FbxI(101)});
    Ambient.Add("AmbientLightColor", {FbxD(0), FbxD(0), FbxD(0), FbxD(1)});
    fbx_test_field &Settings = Version5.Add("Settings");
    Settings.Add("FrameRate", {FbxS(FrameRateWord(Scene.TimeMode))});
    Settings.Add("TimeFormat", {FbxI(1)});
    Settings.Add("SnapOnFrames", {FbxI(0)});
    Settings.Add("ReferenceTimeIndex", {FbxI(-1)});
    Settings.Add("TimeLineStartTime", {FbxL(Scene.Takes.empty() ? 0 : Scene.Takes[0].Start)});
    Settings.Add("TimeLineStopTime", {FbxL(Scene.Takes.empty() ? 0 : Scene.Takes[0].Stop)});
    return Root;
}

// ---------------------------------------------------------------------------
// FBX 7 layout
// ---------------------------------------------------------------------------

fbx_test_field BuildFbx7Scene(const fbx_test_scene &Scene, int32_t Version)
{
    fbx_test_field Root;
    AddHeaderExtension(Root, Scene, Version);
    Root.Add("FileId", {FbxR(std::string("\x28\xb3\x2a\xeb\xb6\x24\xcc\xc2\xbf\xc8\xb0\x2a\xa9\x2b\xfc\xf1", 16))});
    Root.Add("CreationTime", {FbxS("2026-01-02 03:04:05:006")});
    Root.Add("Creator", {FbxS(Scene.Creator)});
    AddGlobalSettings(Root, Scene, true);

    // Ids above 2^32, so that a reader keeping them in 32 bits goes wrong.
    int64_t NextId = 5000000000LL;
    auto NewId = [&NextId]() { return NextId += 17; };

    fbx_test_field Objects;
    Objects.Name = "Objects";
    fbx_test_field Connections;
    Connections.Name = "Connections";
    auto ConnectOO = [&Connections](int64_t Child, int64_t Parent) {
        Connections.Add("C", {FbxS("OO"), FbxL(Child), FbxL(Parent)});
    };
    auto ConnectOP = [&Connections](int64_t Child, int64_t Parent, const std::string &Property) {
        Connections.Add("C", {FbxS("OP"), FbxL(Child), FbxL(Parent), FbxS(Property)});
    };

    std::vector<int64_t> ModelIds;
    int32_t AttributeCount = 0, GeometryCount = 0, DeformerCount = 0;
    for (size_t N = 0; N < Scene.Nodes.size(); ++N) ModelIds.push_back(NewId());

    for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
        const fbx_test_node &Node = Scene.Nodes[N];
        bool HasMesh = Node.Mesh >= 0 && Node.Mesh < (int32_t)Scene.Meshes.size();
        if (HasMesh) {
            const fbx_test_mesh &Mesh = Scene.Meshes[Node.Mesh];
            int64_t GeometryId = NewId();
            fbx_test_field &Geometry =
                Objects.Add("Geometry", {FbxL(GeometryId), FbxName("Geometry", Node.Name), FbxS("Mesh")});
            Geometry.Add("Properties70");
            AddGeometryFields(Geometry, Mesh, true);
            ConnectOO(GeometryId, ModelIds[N]);
            ++GeometryCount;

            if (!Mesh.Clusters.empty()) {
                int64_t SkinId = NewId();
                fbx_test_field &Skin =
                    Objects.Add("Deformer", {FbxL(SkinId), FbxName("Deformer", Node.Name), FbxS("Skin")});
                Skin.Add("Version", {FbxI(101)});
                Skin.Add("Link_DeformAcuracy", {FbxD(50)});
                if (!Mesh.SkinningType.empty()) Skin.Add("SkinningType", {FbxS(Mesh.SkinningType)});
                ConnectOO(SkinId, GeometryId);
                ++DeformerCount;
                for (const fbx_test_cluster &Cluster : Mesh.Clusters) {
                    int64_t ClusterId = NewId();
                    fbx_test_field &C = Objects.Add(
                        "Deformer",
                        {FbxL(ClusterId), FbxName("SubDeformer", ClusterBoneName(Scene, Cluster)), FbxS("Cluster")});
                    C.Add("Version", {FbxI(100)});
                    C.Add("UserData", {FbxS(""), FbxS("")});
                    C.Add("Indexes", {FbxArrayI(Cluster.Indexes)});
                    C.Add("Weights", {FbxArrayD(Cluster.Weights)});
                    C.Add("Transform", {FbxArrayD(Matrix16(Cluster.Transform))});
                    C.Add("TransformLink", {FbxArrayD(Matrix16(Cluster.TransformLink))});
                    ConnectOO(ClusterId, SkinId);
                    if (HasLink(Scene, Cluster)) ConnectOO(ModelIds[Cluster.Bone], ClusterId);
                    ++DeformerCount;
                }
            }
        } else {
            int64_t AttributeId = NewId();
            fbx_test_field &Attribute =
                Objects.Add("NodeAttribute", {FbxL(AttributeId), FbxName("NodeAttribute", Node.Name), FbxS(Node.Kind)});
            if (Node.Kind == "LimbNode")
                property_writer{&Attribute.Add("Properties70"), true}.Add("Size", "double", "Number", "", {FbxD(10.0)});
            Attribute.Add("TypeFlags", {FbxS(Node.Kind == "LimbNode" ? "Skeleton" : Node.Kind)});
            ConnectOO(AttributeId, ModelIds[N]);
            ++AttributeCount;
        }

        fbx_test_field &Model = Objects.Add("Model", {FbxL(ModelIds[N]), FbxName("Model", Node.Name), FbxS(Node.Kind)});
        Model.Add("Version", {FbxI(232)});
        AddModelProperties(Model, Node, true);
        Model.Add("Shading", {FbxC('T')});
        Model.Add("Culling", {FbxS("CullingOff")});
        ConnectOO(ModelIds[N], Node.Parent >= 0 ? ModelIds[Node.Parent] : 0);
    }

    // A material on every mesh node and a bind pose, which readers pass over.
    int64_t MaterialId = NewId();
    fbx_test_field &Material = Objects.Add("Material", {FbxL(MaterialId), FbxName("Material", "Default"), FbxS("")});
    Material.Add("Version", {FbxI(102)});
    Material.Add("ShadingModel", {FbxS("lambert")});
    property_writer{&Material.Add("Properties70"), true}.Add("DiffuseColor", "Color", "", "A",
                                                             {FbxD(0.8), FbxD(0.8), FbxD(0.8)});
    fbx_test_field &Pose = Objects.Add("Pose", {FbxL(NewId()), FbxName("Pose", "BindPose"), FbxS("BindPose")});
    Pose.Add("Type", {FbxS("BindPose")});
    Pose.Add("Version", {FbxI(100)});
    int32_t PoseNodes = 0;
    for (const fbx_test_node &Node : Scene.Nodes) PoseNodes += Node.BindPoseKind != 2;
    Pose.Add("NbPoseNodes", {FbxI(PoseNodes)});
    for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
        if (Scene.Nodes[N].Mesh >= 0) ConnectOO(MaterialId, ModelIds[N]);
        if (Scene.Nodes[N].BindPoseKind == 2) continue;
        double Global[16];
        FbxTestNodeGlobal(Scene, (int32_t)N, Global);
        if (Scene.Nodes[N].BindPoseKind == 1) std::memcpy(Global, Scene.Nodes[N].BindPose, sizeof(Global));
        fbx_test_field &PoseNode = Pose.Add("PoseNode");
        PoseNode.Add("Node", {FbxL(ModelIds[N])});
        PoseNode.Add("Matrix", {FbxArrayD(Matrix16(Global))});
    }

    // Animation: one stack and one base layer per take, a curve node per
    // animated channel of a node, a curve per animated component.
    int32_t CurveNodeCount = 0, CurveCount = 0;
    for (const fbx_test_take &Take : Scene.Takes) {
        int64_t StackId = NewId(), LayerId = NewId();
        fbx_test_field &Stack =
            Objects.Add("AnimationStack", {FbxL(StackId), FbxName("AnimStack", Take.Name), FbxS("")});
        property_writer P = {&Stack.Add("Properties70"), true};
        if (Take.WriteLocalTime) {
            P.Add("LocalStart", "KTime", "Time", "", {FbxL(Take.Start)});
            P.Add("LocalStop", "KTime", "Time", "", {FbxL(Take.Stop)});
        }
        P.Add("ReferenceStart", "KTime", "Time", "", {FbxL(Take.Start)});
        P.Add("ReferenceStop", "KTime", "Time", "", {FbxL(Take.Stop)});
        Objects.Add("AnimationLayer", {FbxL(LayerId), FbxName("AnimLayer", "BaseLayer"), FbxS("")}).Block = true;
        ConnectOO(LayerId, StackId);

        for (size_t N = 0; N < Scene.Nodes.size(); ++N) {
            const char Channels[3] = {'T', 'R', 'S'};
            for (char Channel : Channels) {
                const fbx_test_curve *Curves[3] = {nullptr, nullptr, nullptr};
                bool Any = false;
                for (const fbx_test_curve &Curve : Take.Curves)
                    if (Curve.Node == (int32_t)N && Curve.Channel == Channel && Curve.Axis >= 0 && Curve.Axis < 3) {
                        Curves[Curve.Axis] = &Curve;
                        Any = true;
                    }
                if (!Any) continue;

                const double *Default = ChannelDefault(Scene.Nodes[N], Channel);
                int64_t NodeId = NewId();
                fbx_test_field &CurveNode = Objects.Add(
                    "AnimationCurveNode", {FbxL(NodeId), FbxName("AnimCurveNode", std::string(1, Channel)), FbxS("")});
                property_writer NodeProperties = {&CurveNode.Add("Properties70"), true};
                for (int32_t Axis = 0; Axis < 3; ++Axis)
                    NodeProperties.Add((std::string("d|") + AxisName(Axis)).c_str(), "Number", "", "A",
                                       {FbxD(Default[Axis])});
                ConnectOO(NodeId, LayerId);
                ConnectOP(NodeId, ModelIds[N], ChannelProperty(Channel));
                ++CurveNodeCount;

                for (int32_t Axis = 0; Axis < 3; ++Axis) {
                    if (!Curves[Axis]) continue;
                    std::vector<int64_t> Times;
                    std::vector<float> Values, Data;
                    std::vector<int32_t> Flags, RefCounts;
                    for (const fbx_test_key &Key : Curves[Axis]->Keys) {
                        Times.push_back(Key.Time);
                        Values.push_back(Key.Value);
                        int32_t Flag = Key.Interpolation == FbxTestConstant ? 0x02
                                       : Key.Interpolation == FbxTestLinear ? 0x04
                                                                            : 0x08 | 0x400;
                        Flags.push_back(Flag);
                        // Slopes, then both weights 3333 (1/3) in one word, then velocities.
                        float Weights;
                        uint32_t WeightBits = (3333u << 16) | 3333u;
                        std::memcpy(&Weights, &WeightBits, 4);
                        Data.insert(Data.end(), {Key.RightSlope, Key.NextLeftSlope, Weights, 0.0f});
                        RefCounts.push_back(1);
                    }
                    int64_t CurveId = NewId();
                    fbx_test_field &Curve =
                        Objects.Add("AnimationCurve", {FbxL(CurveId), FbxName("AnimCurve", ""), FbxS("")});
                    Curve.Add("Default", {FbxD(Default[Axis])});
                    Curve.Add("KeyVer", {FbxI(4009)});
                    Curve.Add("KeyTime", {FbxArrayL(Times)});
                    Curve.Add("KeyValueFloat", {FbxArrayF(Values)});
                    Curve.Add("KeyAttrFlags", {FbxArrayI(Flags)});
                    Curve.Add("KeyAttrDataFloat", {FbxArrayF(Data)});
                    Curve.Add("KeyAttrRefCount", {FbxArrayI(RefCounts)});
                    ConnectOP(CurveId, NodeId, std::string("d|") + AxisName(Axis));
                    ++CurveCount;
                }
            }
        }
    }

    fbx_test_field &Definitions = Root.Add("Definitions");
    Definitions.Add("Version", {FbxI(100)});
    struct
    {
        const char *Type;
        int32_t Count;
    } Types[] = {{"GlobalSettings", 1},
                 {"Model", (int32_t)Scene.Nodes.size()},
                 {"NodeAttribute", AttributeCount},
                 {"Geometry", GeometryCount},
                 {"Deformer", DeformerCount},
                 {"Material", 1},
                 {"Pose", 1},
                 {"AnimationStack", (int32_t)Scene.Takes.size()},
                 {"AnimationLayer", (int32_t)Scene.Takes.size()},
                 {"AnimationCurveNode", CurveNodeCount},
                 {"AnimationCurve", CurveCount}};
    int32_t Total = 0;
    for (auto &T : Types) Total += T.Count;
    Definitions.Add("Count", {FbxI(Total)});
    for (auto &T : Types)
        if (T.Count > 0) Definitions.Add("ObjectType", {FbxS(T.Type)}).Add("Count", {FbxI(T.Count)});

    Root.Children.push_back(Objects);
    Root.Children.push_back(Connections);

    fbx_test_field &Takes = Root.Add("Takes");
    Takes.Add("Current", {FbxS(Scene.Takes.empty() ? "" : Scene.Takes[0].Name)});
    for (const fbx_test_take &Info : Scene.Takes) AddTakeHeader(Takes.Add("Take", {FbxS(Info.Name)}), Info);
    return Root;
}

std::vector<uint8_t> WriteFbxTestScene(const fbx_test_scene &Scene, const fbx_test_format &Format)
{
    fbx_test_field Root =
        Format.Version >= 7000 ? BuildFbx7Scene(Scene, Format.Version) : BuildFbx6Scene(Scene, Format.Version);
    return WriteFbxTestFields(Root, Format);
}

// ---------------------------------------------------------------------------
// The ready-made arm
// ---------------------------------------------------------------------------

fbx_test_scene MakeFbxTestArmScene()
{
    fbx_test_scene Scene;
    Scene.Nodes.resize(4);

    fbx_test_node &Root = Scene.Nodes[0];
    Root.Name = "Root";
    Root.RotationPivot[0] = 0.25;

    fbx_test_node &Upper = Scene.Nodes[1];
    Upper.Name = "Upper";
    Upper.Parent = 0;
    Upper.Translation[1] = 0.0;
    Upper.PreRotation[2] = 90.0;
    Upper.Rotation[2] = -90.0;

    fbx_test_node &Lower = Scene.Nodes[2];
    Lower.Name = "Lower";
    Lower.Parent = 1;
    Lower.Translation[0] = 2.0;
    Lower.Rotation[0] = 15.0;
    Lower.RotationOrder = 4; // ZXY

    fbx_test_node &Arm = Scene.Nodes[3];
    Arm.Name = "Arm";
    Arm.Kind = "Mesh";
    Arm.Mesh = 0;

    // A square tube along +X: 3 rings of 4 points at x = 0, 2, 4, eight side
    // quads, a quad cap at x = 0 and two triangles closing x = 4.
    Scene.Meshes.resize(1);
    fbx_test_mesh &Mesh = Scene.Meshes[0];
    const double Ring[4][2] = {{0.5, 0.5}, {-0.5, 0.5}, {-0.5, -0.5}, {0.5, -0.5}};
    for (int R = 0; R < 3; ++R)
        for (int S = 0; S < 4; ++S)
            Mesh.ControlPoints.insert(Mesh.ControlPoints.end(), {2.0 * R, Ring[S][0], Ring[S][1]});
    for (int R = 0; R < 2; ++R)
        for (int S = 0; S < 4; ++S)
            Mesh.Polygons.push_back({R * 4 + S, R * 4 + (S + 1) % 4, (R + 1) * 4 + (S + 1) % 4, (R + 1) * 4 + S});
    Mesh.Polygons.push_back({0, 3, 2, 1});
    Mesh.Polygons.push_back({8, 9, 10});
    Mesh.Polygons.push_back({8, 10, 11});

    // Flat normals (Newell), UVs by control point through the index array.
    for (const std::vector<int32_t> &Polygon : Mesh.Polygons) {
        double N[3] = {0, 0, 0};
        for (size_t I = 0; I < Polygon.size(); ++I) {
            const double *A = &Mesh.ControlPoints[3 * Polygon[I]];
            const double *B = &Mesh.ControlPoints[3 * Polygon[(I + 1) % Polygon.size()]];
            N[0] += (A[1] - B[1]) * (A[2] + B[2]);
            N[1] += (A[2] - B[2]) * (A[0] + B[0]);
            N[2] += (A[0] - B[0]) * (A[1] + B[1]);
        }
        double Length = std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]);
        for (size_t I = 0; I < Polygon.size(); ++I) {
            Mesh.Normals.insert(Mesh.Normals.end(), {N[0] / Length, N[1] / Length, N[2] / Length});
            Mesh.UVIndex.push_back(Polygon[I]);
        }
    }
    for (int R = 0; R < 3; ++R)
        for (int S = 0; S < 4; ++S) Mesh.UVs.insert(Mesh.UVs.end(), {R / 2.0, S / 4.0});

    // Ring 0 follows Upper, ring 2 Lower, the middle ring half and half.
    Mesh.Clusters.resize(2);
    Mesh.Clusters[0].Bone = 1;
    Mesh.Clusters[1].Bone = 2;
    for (int32_t P = 0; P < 12; ++P) {
        int32_t R = P / 4;
        if (R < 2) {
            Mesh.Clusters[0].Indexes.push_back(P);
            Mesh.Clusters[0].Weights.push_back(R == 0 ? 1.0 : 0.5);
        }
        if (R > 0) {
            Mesh.Clusters[1].Indexes.push_back(P);
            Mesh.Clusters[1].Weights.push_back(R == 2 ? 1.0 : 0.5);
        }
    }
    for (fbx_test_cluster &Cluster : Mesh.Clusters) {
        FbxTestNodeGlobal(Scene, Cluster.Bone, Cluster.TransformLink); // all linked here
        FbxTestInverse(Cluster.TransformLink, Cluster.Transform);
    }

    fbx_test_take Wave;
    Wave.Name = "Wave";
    Wave.Stop = FbxFrameTicks(30);
    fbx_test_curve UpperZ;
    UpperZ.Node = 1;
    UpperZ.Channel = 'R';
    UpperZ.Axis = 2;
    UpperZ.Keys = {{FbxFrameTicks(0), -90.0f, FbxTestLinear},
                   {FbxFrameTicks(15), -45.0f, FbxTestLinear},
                   {FbxFrameTicks(30), -90.0f, FbxTestLinear}};
    fbx_test_curve LowerX;
    LowerX.Node = 2;
    LowerX.Channel = 'R';
    LowerX.Axis = 0;
    LowerX.Keys = {{FbxFrameTicks(0), 15.0f, FbxTestCubic, 0.0f, 0.0f},
                   {FbxFrameTicks(30), 75.0f, FbxTestCubic, 0.0f, 0.0f}};
    fbx_test_curve RootY;
    RootY.Node = 0;
    RootY.Channel = 'T';
    RootY.Axis = 1;
    RootY.Keys = {{FbxFrameTicks(0), 0.0f, FbxTestConstant},
                  {FbxFrameTicks(10), 1.0f, FbxTestConstant},
                  {FbxFrameTicks(20), 0.0f, FbxTestConstant}};
    Wave.Curves = {UpperZ, LowerX, RootY};

    fbx_test_take Idle;
    Idle.Name = "Idle";
    Idle.Stop = FbxFrameTicks(10);
    fbx_test_curve RootX;
    RootX.Node = 0;
    RootX.Channel = 'T';
    RootX.Axis = 0;
    RootX.Keys = {{FbxFrameTicks(0), 0.0f, FbxTestLinear}, {FbxFrameTicks(10), 0.5f, FbxTestLinear}};
    Idle.Curves = {RootX};

    Scene.Takes = {Wave, Idle};
    return Scene;
}
