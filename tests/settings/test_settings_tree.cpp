// The settings users rely on: every id with its label, kind, range, default,
// detail flag and dependency; the order of the categories; the choice lists;
// the getters' rules.
#include <string>
#include <vector>

#include "settings_test_fixture.h"
#include "settings/tessel_setting_ids.h"

namespace {

enum
{
    KCheckbox = 1,
    KNumber = 2,
    KSlider = 4,
    KCombobox = 7
};

// Group, id, label, kind, lower and upper bound, default (a choice id for a
// combobox, -1 where it depends on the place), Detailed (-1 unknown),
// EnabledBy id.
struct expected_setting
{
    char const *Group;
    int32 Id;
    char const *Label;
    int32 Kind;
    double Lower, Upper, Default;
    int32 Detailed;
    int32 EnabledBy;
};

expected_setting const ExpectedSettings[] = {
    {"Inclusion", 75, "Include reference in export", KCheckbox, 0, 0, 1, 0, 0},
    {"Inclusion", 2, "Include data in export", KCheckbox, 0, 0, 1, 1, 0},
    {"Inclusion", 66, "Include art tool specific data", KCheckbox, 0, 0, 1, 1, 0},
    {"Inclusion", 251, "Only User Attributes", KCheckbox, 0, 0, 0, 1, 0},
    {"Model", 97, "Move to Origin", KCheckbox, 0, 0, 1, -1, 0},
    {"Root", 147, "Main window width", KNumber, 600, 4096, 640, 1, 0},
    {"Root", 148, "Main window height", KNumber, 300, 4096, 480, 1, 0},
    {"Root", 67, "Auto close on exit", KCheckbox, 0, 0, 0, 0, 0},
    {"Root", 228, "Detailed Settings", KCheckbox, 0, 0, 1, 0, 0},
    {"File", 66, "Include art tool specific data", KCheckbox, 0, 0, 1, 1, 0},
    {"File", 94, "Include exporter info", KCheckbox, 0, 0, 1, 1, 0},
    {"File", 212, "File platform", KCombobox, 0, 0, 214, 1, 0},
    {"File", 136, "Coordinate system", KCombobox, 0, 0, 142, 1, 0},
    {"File", 144, "Rescale scene on export", KCheckbox, 0, 0, 0, 1, 0},
    {"File", 145, "Units per Meter", KNumber, 0.0001, 1000, 1, 1, 0},
    {"File", 70, "File compression", KCombobox, 0, 0, 133, 1, 0},
    {"File", 74, "Object alignment", KSlider, 0, 12, 2, 1, 0},
    {"File", 87, "Vertex object alignment", KSlider, 0, 12, 5, 1, 0},
    {"File", 95, "Include type table", KCheckbox, 0, 0, 1, 1, 0},
    {"Texture", 12, "Force width to closest power of 2", KCheckbox, 0, 0, 1, 1, 0},
    {"Texture", 13, "Maximum width", KSlider, 0, 12, 8, 1, 0},
    {"Texture", 15, "Force height to closest power of 2", KCheckbox, 0, 0, 1, 1, 0},
    {"Texture", 16, "Maximum height", KSlider, 0, 12, 8, 1, 0},
    {"Texture", 27, "Generate MIP maps", KCheckbox, 0, 0, 0, 1, 0},
    {"Texture", 253, "Full mip series", KCheckbox, 0, 0, 0, 1, 0},
    {"Texture", 233, "Flip texture vertically", KCheckbox, 0, 0, 0, 1, 0},
    {"Texture", 234, "Flip texture horizontally", KCheckbox, 0, 0, 0, 1, 0},
    {"Texture", 248, "Treat Alpha = 1 textures as RGB", KCheckbox, 0, 0, 0, 1, 0},
    {"Texture", 19, "No alpha", KCombobox, 0, 0, 134, 1, 0},
    {"Texture", 36, "Alpha", KCombobox, 0, 0, 135, 1, 0},
    {"Texture", 103, "Normal/bump without alpha", KCombobox, 0, 0, 134, 1, 0},
    {"Texture", 105, "Normal/bump with alpha", KCombobox, 0, 0, 135, 1, 0},
    {"TextureChoice", 24, "Compression", KSlider, 1, 64, 15, 1, 0},
    {"TextureChoice", 106, "Compress in YUV space", KCheckbox, 0, 0, -1, 1, 0},
    {"Mesh", 246, "Use Full Mesh pathnames", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 247, "Preserve Bones affecting no verts", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 174, "Bind meshes to nearest parent", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 76, "Truncate vertex indices to 16-bit", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 143, "Use clockwise triangles", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 186, "Double 2-sided Triangles", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 7, "Allow vertex weighting", KCheckbox, 0, 0, 1, 1, 0},
    {"Mesh", 8, "Bones per vertex", KSlider, 1, 16, 4, 1, 7},
    {"Mesh", 255, "Bone Weight Format", KCombobox, 0, 0, 256, 1, 7},
    {"Mesh", 81, "Allow texture coordinates", KCheckbox, 0, 0, 1, 1, 0},
    {"Mesh", 82, "Coords per vertex", KSlider, 1, 64, 1, 1, 81},
    {"Mesh", 88, "Insert dummy coords if missing", KCheckbox, 0, 0, 1, 1, 81},
    {"Mesh", 83, "Elements per coord", KSlider, 1, 4, 2, 1, 81},
    {"Mesh", 244, "Flip U Coordinate", KCheckbox, 0, 0, 0, 1, 81},
    {"Mesh", 243, "Flip V Coordinate", KCheckbox, 0, 0, 0, 1, 81},
    {"Mesh", 84, "Allow vertex colors", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 85, "Colors per vertex", KSlider, 1, 64, 1, 1, 84},
    {"Mesh", 89, "Insert dummy colors if missing", KCheckbox, 0, 0, 1, 1, 84},
    {"Mesh", 86, "Elements per color", KSlider, 1, 4, 3, 1, 84},
    {"Mesh", 99, "Include tangent vectors", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 100, "Include binormal vectors", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 101, "Include cross vectors", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 211, "Tangent merging tolerance", KNumber, 0, 180, 75, 1, 0},
    {"Mesh", 98, "Include per-bone triangle arrays", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 77, "Include topology information", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 90, "Include vertex annotation", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 91, "Use indexed vertex annotation", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 92, "Include triangle annotation", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 93, "Use indexed triangle annotation", KCheckbox, 0, 0, 0, 1, 0},
    {"Mesh", 237, "Morph Targets", KCombobox, 0, 0, 239, 1, 0},
    {"MeshChoice", 242, "Store morph targets as deltas from the base mesh", KCheckbox, 0, 0, 1, 1, 0},
    {"MeshChoice", 165, "Set total frame count", KCheckbox, 0, 0, 0, 1, 0},
    {"MeshChoice", 166, "Frame count", KNumber, 1, 10000, 10, 1, 0},
    {"MeshChoice", 210, "Relative to bone animation", KCheckbox, 0, 0, 0, 1, 0},
    {"MeshChoice", 188, "Create vertex morph curves", KCheckbox, 0, 0, 0, 1, 0},
    {"MeshChoice", 230, "Use quantized curves", KCheckbox, 0, 0, 1, 1, 188},
    {"MeshChoice", 231, "Quant. on missed tolerance", KCheckbox, 0, 0, 1, 1, 230},
    {"MeshChoice", 232, "Aggressive animation compression", KCheckbox, 0, 0, 0, 1, 188},
    {"MeshChoice", 189, "Position curve type", KSlider, 0, 3, 2, 1, 188},
    {"MeshChoice", 190, "Position curve tolerance", KNumber, 0.00001, 10000, 0.01, 1, 188},
    {"MeshChoice", 191, "Position jump tolerance", KNumber, 0.00001, 10000, 10, 1, 188},
    {"MeshChoice", 192, "Position crease tolerance", KNumber, 0.00001, 10000, 10, 1, 188},
    {"MeshChoice", 194, "Normal curve type", KSlider, 0, 3, 1, 1, 188},
    {"MeshChoice", 195, "Normal curve tolerance", KNumber, 0.00001, 2, 0.01, 1, 188},
    {"MeshChoice", 196, "Normal jump tolerance", KNumber, 0.00001, 2, 0.2, 1, 188},
    {"MeshChoice", 197, "Normal crease tolerance", KNumber, 0.00001, 2, 0.2, 1, 188},
    {"MeshChoice", 200, "Color curve type", KSlider, 0, 3, 1, 1, 188},
    {"MeshChoice", 199, "Color curve tolerance", KNumber, 0.00001, 1, 0.01, 1, 188},
    {"MeshChoice", 201, "Color jump tolerance", KNumber, 0.00001, 1, 0.2, 1, 188},
    {"MeshChoice", 202, "Color crease tolerance", KNumber, 0.00001, 1, 0.2, 1, 188},
    {"MeshChoice", 204, "Texture coordinate curve type", KSlider, 0, 3, 1, 1, 188},
    {"MeshChoice", 205, "Texture coordinate curve tolerance", KNumber, 0.00001, 1, 0.0009765625, 1, 188},
    {"MeshChoice", 206, "Texture coordinate jump tolerance", KNumber, 0.00001, 1, 0.1, 1, 188},
    {"MeshChoice", 207, "Texture coordinate crease tolerance", KNumber, 0.00001, 1, 0.1, 1, 188},
    {"Animation", 173, "Oversampling", KSlider, 1, 8, 2, 1, 0},
    {"Animation", 185, "Root Motion Type", KCombobox, 0, 0, 176, 1, 0},
    // This exporter's own, beyond the standard set.
    {"Animation", 70001, "Maximum world error", KNumber, 0, 10000, 0, 1, 0},
    {"Animation", 70002, "Virtual vertex distance", KNumber, 0, 10000, 0, 1, 0},
    {"RootMotion", 158, "X Position Tolerance", KNumber, 0.00001, 10000, 10, 1, 0},
    {"RootMotion", 159, "Y Position Tolerance", KNumber, 0.00001, 10000, 10, 1, 0},
    {"RootMotion", 160, "Z Position Tolerance", KNumber, 0.00001, 10000, 10, 1, 0},
    {"RootMotion", 161, "X Rotation Tolerance", KNumber, 0.00001, 360, 10, 1, 0},
    {"RootMotion", 162, "Y Rotation Tolerance", KNumber, 0.00001, 360, 10, 1, 0},
    {"RootMotion", 163, "Z Rotation Tolerance", KNumber, 0.00001, 360, 10, 1, 0},
    {"Curve", 68, "Reduce curves where possible", KCheckbox, 0, 0, 1, 1, 0},
    {"Curve", 52, "Compress animation data", KCheckbox, 0, 0, 1, 1, 0},
    {"Curve", 219, "Use quantized curves", KCheckbox, 0, 0, 1, 1, 0},
    {"Curve", 220, "Quant. on missed tolerance", KCheckbox, 0, 0, 1, 1, 0},
    {"Curve", 227, "Aggressive animation compression", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 53, "Position curve type", KSlider, 0, 3, 2, 1, 52},
    {"Curve", 149, "Position curve tolerance", KNumber, 0.00001, 10000, 0.01, 0, 52},
    {"Curve", 114, "Allow position jumps", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 152, "Position jump tolerance", KNumber, 0.00001, 10000, 10, 1, 114},
    {"Curve", 115, "Allow position creasing", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 153, "Position crease tolerance", KNumber, 0.00001, 10000, 10, 1, 115},
    {"Curve", 56, "Orientation curve type", KSlider, 0, 3, 2, 1, 52},
    {"Curve", 150, "Orientation curve tolerance", KNumber, 0.00001, 720, 0.1, 0, 52},
    {"Curve", 117, "Allow orientation jumps", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 154, "Orientation jump tolerance", KNumber, 0.00001, 720, 10, 1, 117},
    {"Curve", 118, "Allow orientation creasing", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 155, "Orientation crease tolerance", KNumber, 0.00001, 720, 10, 1, 118},
    {"Curve", 59, "Scale/shear curve type", KSlider, 0, 3, 2, 1, 52},
    {"Curve", 151, "Scale/shear curve tolerance", KNumber, 0.00001, 10000, 0.001, 0, 52},
    {"Curve", 120, "Allow scale/shear jumps", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 156, "Scale/shear jump tolerance", KNumber, 0.00001, 10000, 1, 1, 120},
    {"Curve", 121, "Allow scale/shear creasing", KCheckbox, 0, 0, 0, 1, 52},
    {"Curve", 157, "Scale/shear crease tolerance", KNumber, 0.00001, 10000, 1, 1, 121},
    {"Curve", 229, "Use Accumulator Neighborhood", KCheckbox, 0, 0, 0, 1, 0},
    {"VectorTrack", 245, "Don't oversample vector tracks", KCheckbox, 0, 0, 0, 1, 0},
    {"VectorTrack", 252, "Protect constant tracks", KCheckbox, 0, 0, 0, 1, 0},
    {"VectorTrack", 221, "VectorTrack Curve type", KSlider, 0, 3, 2, 1, 0},
    {"VectorTrack", 222, "VectorTrack Curve tolerance", KNumber, 0.00001, 10000, 0.001, 0, 0},
    {"VectorTrack", 225, "Allow VectorTrack jumps", KCheckbox, 0, 0, 0, 1, 0},
    {"VectorTrack", 223, "VectorTrack jump tolerance", KNumber, 0.00001, 10000, 10, 1, 0},
    {"VectorTrack", 226, "Allow VectorTrack creasing", KCheckbox, 0, 0, 0, 1, 0},
    {"VectorTrack", 224, "VectorTrack crease tolerance", KNumber, 0.00001, 10000, 10, 1, 0},
};

// Which categories hold each group.
struct group_place
{
    char const *Group;
    std::vector<std::string> Categories;
};
std::vector<group_place> const GroupPlaces = {
    {"Inclusion", {"Texture", "Material", "Mesh", "Model", "Bone", "Animation", "BoneAnimation"}},
    {"Model", {"Model", "Animation"}},
    {"Root", {"Root"}},
    {"File", {"File"}},
    {"Texture", {"Texture"}},
    {"TextureChoice", {"Texture"}},
    {"Mesh", {"Mesh"}},
    {"MeshChoice", {"Mesh"}},
    {"Animation", {"Animation"}},
    {"RootMotion", {"Animation"}},
    {"Curve", {"Animation", "BoneAnimation"}},
    {"VectorTrack", {"Animation"}},
};

requester *BuildCategory(settings_pools &Pools, std::string const &Name)
{
    if (Name == "Root") return BuildRootSettings(Pools);
    if (Name == "File") return BuildFileSettings(Pools);
    if (Name == "Texture") return BuildTextureSettings(Pools);
    if (Name == "Material") return BuildMaterialSettings(Pools);
    if (Name == "Mesh") return BuildMeshSettings(Pools);
    if (Name == "Model") return BuildModelSettings(Pools);
    if (Name == "Bone") return BuildBoneSettings(Pools);
    if (Name == "Animation") return BuildAnimationSettings(Pools);
    if (Name == "BoneAnimation") return BuildBoneAnimationSettings(Pools);
    return nullptr;
}

std::vector<int32> SettingIds(requester const *Requester)
{
    std::vector<int32> Ids;
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) Ids.push_back(Setting->Id);
    return Ids;
}

std::vector<int32> ChoiceIds(setting const *Combobox)
{
    std::vector<int32> Ids;
    for (requester const *Choice = Combobox->Value.Combobox.List->FirstChild; Choice; Choice = Choice->NextSibling) {
        Ids.push_back(Choice->Id);
    }
    return Ids;
}

} // namespace

TEST_F(settings_test, EverySettingHasItsIdLabelKindRangeAndDefault)
{
    int Checked = 0;
    for (group_place const &Place : GroupPlaces) {
        for (std::string const &Category : Place.Categories) {
            requester *Requester = BuildCategory(Pools, Category);
            ASSERT_NE(Requester, nullptr) << Category;
            for (expected_setting const &Expected : ExpectedSettings) {
                if (std::string(Expected.Group) != Place.Group) continue;
                SCOPED_TRACE(Category + " id " + std::to_string(Expected.Id));
                setting const *Setting = FindSettingInRequester(Requester, Expected.Id);
                ASSERT_NE(Setting, nullptr);
                EXPECT_STREQ(Setting->Label, Expected.Label);
                EXPECT_EQ(Setting->Kind, Expected.Kind);
                if (Expected.Detailed >= 0) {
                    EXPECT_EQ(Setting->Detailed, Expected.Detailed);
                }
                EXPECT_EQ(Setting->EnabledBy ? Setting->EnabledBy->Id : 0, Expected.EnabledBy);
                EXPECT_EQ(Setting->Overridden, 0);
                if (Expected.Kind == KNumber) {
                    EXPECT_FLOAT_EQ(Setting->Value.Number.LowerBound, (real32)Expected.Lower);
                    EXPECT_FLOAT_EQ(Setting->Value.Number.UpperBound, (real32)Expected.Upper);
                    EXPECT_FLOAT_EQ(GetSettingFloat(Requester, Expected.Id), (real32)Expected.Default);
                } else if (Expected.Kind == KSlider) {
                    EXPECT_EQ(Setting->Value.Slider.LowerBound, (int32)Expected.Lower);
                    EXPECT_EQ(Setting->Value.Slider.UpperBound, (int32)Expected.Upper);
                    EXPECT_EQ(Setting->Value.Slider.Current, (int32)Expected.Default);
                } else if (Expected.Kind == KCombobox) {
                    EXPECT_EQ(GetSettingChoice(Requester, Expected.Id), (int32)Expected.Default);
                } else if (Expected.Default >= 0) {
                    EXPECT_EQ(GetSettingInt(Requester, Expected.Id), (int32)Expected.Default);
                }
                ++Checked;
            }
        }
    }
    EXPECT_EQ(Checked, 179); // every row in every category that holds it
    // The vector track block belongs to the whole animation only.
    EXPECT_EQ(FindSettingInRequester(BuildBoneAnimationSettings(Pools), 221), nullptr);
    EXPECT_EQ(FindSettingInRequester(BuildModelSettings(Pools), 53), nullptr);
}

TEST_F(settings_test, CategoriesKeepTheirIdsAndOrder)
{
    requester *Texture = BuildTextureSettings(Pools);
    EXPECT_EQ(Texture->Id, 10);
    EXPECT_EQ(SettingIds(Texture), (std::vector<int32>{75, 2,   66,  251, 80,  12, 13, 11, 15,  16,  14,  27, 253,
                                                       28, 233, 234, 235, 248, 19, 79, 36, 102, 103, 104, 105}));
    requester *Mesh = BuildMeshSettings(Pools);
    EXPECT_EQ(Mesh->Id, 6);
    EXPECT_EQ(SettingIds(Mesh),
              (std::vector<int32>{75,  2,   66, 251, 80, 246, 247, 174, 76,  143, 186, 7,  8,  255, 81, 82, 88, 83,
                                  244, 243, 84, 85,  89, 86,  99,  100, 101, 211, 98,  77, 90, 91,  92, 93, 237}));
    requester *FrameByFrame = FindChoice(FindSettingInRequester(Mesh, SettingId_MorphTargets), 241);
    ASSERT_NE(FrameByFrame, nullptr);
    EXPECT_EQ(SettingIds(FrameByFrame),
              (std::vector<int32>{165, 166, 210, 188, 230, 231, 232, 189, 190, 191, 192, 193, 194,
                                  195, 196, 197, 198, 200, 199, 201, 202, 203, 204, 205, 206, 207}));
    requester *BoneAnimation = BuildBoneAnimationSettings(Pools);
    EXPECT_EQ(BoneAnimation->Id, 65);
    EXPECT_EQ(SettingIds(BoneAnimation),
              (std::vector<int32>{75, 2,  66,  251, 80,  62,  68,  52, 219, 220, 227, 53,  149, 114, 152, 115, 153,
                                  55, 56, 150, 117, 154, 118, 155, 58, 59,  151, 120, 156, 121, 157, 61,  229}));
    for (int32 Spacer : {55, 58, 61}) {
        setting *Found = FindSettingInRequester(BoneAnimation, Spacer);
        EXPECT_EQ(Found->Kind, 6);
        ASSERT_NE(Found->EnabledBy, nullptr);
        EXPECT_EQ(Found->EnabledBy->Id, 52);
    }
    EXPECT_EQ(SettingIds(BuildRootSettings(Pools)), (std::vector<int32>{147, 148, 67, 228}));
    EXPECT_EQ(BuildRootSettings(Pools)->Id, 1);
    EXPECT_EQ(BuildMaterialSettings(Pools)->Id, 9);
    EXPECT_EQ(BuildAnimationSettings(Pools)->Id, 4);

    // "Model settings" and "Bone settings" share id 17 and differ in content.
    requester *Model = BuildModelSettings(Pools);
    requester *Bone = BuildBoneSettings(Pools);
    EXPECT_EQ(Model->Id, 17);
    EXPECT_EQ(Bone->Id, 17);
    EXPECT_STREQ(Model->Label, "Model settings");
    EXPECT_STREQ(Bone->Label, "Bone settings");
    EXPECT_EQ(SettingIds(Model), (std::vector<int32>{75, 2, 66, 251, 80, 97}));
    EXPECT_EQ(SettingIds(Bone), (std::vector<int32>{75, 2, 66, 251, 80}));

    settings_node *Root = Tree();
    std::vector<std::string> Names;
    for (settings_node *Node = Root->FirstChild; Node; Node = Node->NextSibling) Names.push_back(Node->Name);
    EXPECT_EQ(Names, (std::vector<std::string>{"File", "Textures", "Materials", "Meshes", "Models", "Animations"}));
    EXPECT_EQ(FindRequesterInTree(Root, 69), Child(Root, "File")->Requester);
}

TEST_F(settings_test, ChoiceListsHoldTheirChoices)
{
    requester *File = BuildFileSettings(Pools);
    struct list_case
    {
        int32 Combobox, List;
        char const *Label;
        std::vector<int32> Choices;
    };
    std::vector<list_case> const FileLists = {
        {212, 213, "Coordinate system", {214, 215, 216, 217, 218}},
        {136, 137, nullptr, {142, 138, 139, 140, 141}},
        {70, 71, nullptr, {72, 133}},
    };
    for (list_case const &Case : FileLists) {
        setting *Combobox = FindSettingInRequester(File, Case.Combobox);
        EXPECT_EQ(Combobox->Value.Combobox.List->Id, Case.List);
        if (Case.Label) {
            EXPECT_STREQ(Combobox->Value.Combobox.List->Label, Case.Label);
        }
        EXPECT_EQ(ChoiceIds(Combobox), Case.Choices);
        EXPECT_EQ(Combobox->Value.Combobox.Plain, 1);
    }
    EXPECT_STREQ(FindChoice(FindSettingInRequester(File, SettingId_FilePlatform), 216)->Label, "32-bit, big endian");
    EXPECT_STREQ(FindChoice(FindSettingInRequester(File, SettingId_FileCompression), 72)->Label, "No compression");

    // Seven fixed section comboboxes and one per object type, each with its
    // own list: default placement, then the eight standard sections.
    std::vector<int32> Sections = {125, 126, 127, 128, 129, 130, 132};
    ASSERT_EQ(GetObjectTypeSectionRowCount(), 30);
    for (int32 Row = 0; Row < 30; ++Row) Sections.push_back(GetObjectTypeSectionRows()[Row].Id);
    EXPECT_EQ(GetObjectTypeSectionRows()[0].Id, 65537);
    EXPECT_STREQ(GetObjectTypeSectionRows()[14].Label, "bone");
    EXPECT_EQ(GetObjectTypeSectionRows()[14].Id, 65553);
    EXPECT_STREQ(GetObjectTypeSectionRows()[29].Label, "vertex_data");
    for (int32 Id : Sections) {
        setting *Combobox = FindSettingInRequester(File, Id);
        ASSERT_NE(Combobox, nullptr) << Id;
        EXPECT_EQ(Combobox->Value.Combobox.List->Id, Id + 32768);
        EXPECT_STREQ(Combobox->Value.Combobox.List->Label, Combobox->Label);
        EXPECT_EQ(ChoiceIds(Combobox),
                  (std::vector<int32>{124, 131072, 131073, 131074, 131075, 131076, 131077, 131078, 131079}));
        EXPECT_EQ(GetSettingChoice(File, Id), 124);
    }
    EXPECT_STREQ(FindChoice(FindSettingInRequester(File, SettingId_MeshSection), 131075)->Label,
                 "3 - StandardDeformableVertexSection");
    EXPECT_EQ(FindSettingInRequester(File, 65551), nullptr);

    requester *Texture = BuildTextureSettings(Pools);
    for (int32 Id : {19, 36, 103, 105}) {
        setting *Combobox = FindSettingInRequester(Texture, Id);
        EXPECT_EQ(Combobox->Value.Combobox.List->Id, 23);
        EXPECT_STREQ(Combobox->Value.Combobox.List->Label, "Compression Types");
        EXPECT_EQ(ChoiceIds(Combobox), (std::vector<int32>{20, 42, 134, 135, 22, 49, 50, 51, 34, 236}));
        EXPECT_EQ(Combobox->Value.Combobox.Plain, 0);
    }
    setting *Weights = FindSettingInRequester(BuildMeshSettings(Pools), 255);
    EXPECT_EQ(Weights->Value.Combobox.List->Id, 33023);
    EXPECT_EQ(ChoiceIds(Weights), (std::vector<int32>{256, 257, 258}));
    setting *RootMotion = FindSettingInRequester(BuildAnimationSettings(Pools), 185);
    EXPECT_EQ(RootMotion->Value.Combobox.List->Id, 175);
    EXPECT_STREQ(RootMotion->Value.Combobox.List->Label, "Root Motion Types");
    EXPECT_EQ(ChoiceIds(RootMotion), (std::vector<int32>{176, 177, 178}));
}
