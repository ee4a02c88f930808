// The stage that brings the whole file to the coordinate system and units
// the file settings ask for ("Coordinate system", "Rescale scene on
// export", "Units per Meter"). It runs in every export: even with the
// tool's own axes it makes every normal, tangent and binormal unit length.
#include <cmath>
#include <cstring>

#include "animation/tessel_basis_conversion.h"
#include "exporter/tessel_export_stages.h"
#include "exporter/tessel_scene_parser.h"
#include "format/tessel_data_type_io.h"
#include "format/tessel_schema.h"
#include "geometry/tessel_vertex_data.h"
#include "foundation/tessel_log.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

namespace {

struct wanted_axes
{
    int32 Choice;
    real32 Right[3], Up[3], Back[3];
};

wanted_axes const WantedAxes[] = {
    {Choice_RightHandedYUp, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
    {Choice_RightHandedZUp, {1, 0, 0}, {0, 0, 1}, {0, -1, 0}},
    {Choice_LeftHandedYUp, {1, 0, 0}, {0, 1, 0}, {0, 0, -1}},
    {Choice_LeftHandedZUp, {1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
};

// A normal that the conversion could not make unit length (the file gave a
// zero one) stays zero; each mesh that has one says so once.
void WarnOfZeroNormals(file_info const &FileInfo)
{
    static data_type_definition NormalLayout[] = {
        {Real32Member, "Normal", 0, 3, {0, 0, 0}, 0},
        {EndMember, 0, 0, 0, {0, 0, 0}, 0},
    };
    for (int32 Index = 0; Index < FileInfo.MeshCount; ++Index) {
        mesh const *Mesh = FileInfo.Meshes[Index];
        vertex_data const *Data = Mesh ? Mesh->PrimaryVertexData : 0;
        if (!Data || !Data->Vertices.Type || !FindVertexMember(Data->Vertices.Type, "Normal")) continue;
        int32 Size = GetTotalObjectSize(Data->Vertices.Type);
        int32 Zero = 0;
        conversion_plan *Read = NewConversionPlan(Data->Vertices.Type, NormalLayout);
        for (int32 Vertex = 0; Vertex < Data->Vertices.Count; ++Vertex) {
            real32 Normal[3];
            void const *Source = (uint8 const *)Data->Vertices.Array + (intaddrx)Vertex * Size;
            if (Read)
                ConvertWithPlan(Read, Source, Normal, true);
            else
                ConvertSingleObject(Data->Vertices.Type, Source, NormalLayout, Normal);
            if (Normal[0] == 0.0f && Normal[1] == 0.0f && Normal[2] == 0.0f) ++Zero;
        }
        FreeConversionPlan(Read);
        if (Zero > 0) {
            TesselWarning(LogCategory_BasisConversion, "Mesh %s has %d vertices with a zero normal; they keep it",
                          Mesh->Name ? Mesh->Name : "", Zero);
        }
    }
}

} // namespace

bool ApplyCoordinateSystem(scene_export_state *State, requester *FileSettings)
{
    CheckPointer(State, LogCategory_BasisConversion, false);
    art_tool_info *Tool = State->FileInfo.ArtToolInfo;
    CheckPointer(Tool, LogCategory_BasisConversion, false);

    real32 Origin[3] = {0, 0, 0}, Right[3] = {0, 0, 0}, Up[3] = {0, 0, 0}, Back[3] = {0, 0, 0};
    int32 Choice = GetSettingChoice(FileSettings, SettingId_CoordinateSystem);
    if (Choice == Choice_UseToolsCoordinates) {
        memcpy(Origin, Tool->Origin, sizeof(Origin));
        memcpy(Right, Tool->RightVector, sizeof(Right));
        memcpy(Up, Tool->UpVector, sizeof(Up));
        memcpy(Back, Tool->BackVector, sizeof(Back));
    } else {
        for (wanted_axes const &Row : WantedAxes) {
            if (Row.Choice != Choice) continue;
            memcpy(Right, Row.Right, sizeof(Right));
            memcpy(Up, Row.Up, sizeof(Up));
            memcpy(Back, Row.Back, sizeof(Back));
        }
    }
    real32 UnitsPerMeter = Tool->UnitsPerMeter;
    if (GetSettingBool(FileSettings, SettingId_RescaleSceneOnExport)) {
        UnitsPerMeter = GetSettingFloat(FileSettings, SettingId_UnitsPerMeter);
    }

    real32 Affine3[3], Linear3x3[9], InverseLinear3x3[9];
    if (!ComputeBasisConversion(State->FileInfo, UnitsPerMeter, Origin, Right, Up, Back, Affine3, Linear3x3,
                                InverseLinear3x3)) {
        // A tool that tells no usable axes or units keeps its own; the
        // vectors are still made unit length.
        TesselWarning(LogCategory_BasisConversion,
                      "The scene's coordinate system is unknown: it is written in the tool's own axes and units");
        real32 const Identity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1}, Zero[3] = {0, 0, 0};
        TransformFile(State->FileInfo, Zero, Identity, Identity, 0.0f, 0.0f, BasisConversion_RenormalizeNormals);
        WarnOfZeroNormals(State->FileInfo);
        return true;
    }
    real32 AffineTolerance = std::sqrt(Origin[0] * Origin[0] + Origin[1] * Origin[1] + Origin[2] * Origin[2]) * 0.001f;
    real32 LinearTolerance =
        std::sqrt(Linear3x3[0] * Linear3x3[0] + Linear3x3[1] * Linear3x3[1] + Linear3x3[2] * Linear3x3[2]) * 0.001f;
    TransformFile(State->FileInfo, Affine3, Linear3x3, InverseLinear3x3, AffineTolerance, LinearTolerance,
                  BasisConversion_RenormalizeNormals | BasisConversion_ReorderTriangleIndices);
    WarnOfZeroNormals(State->FileInfo);

    Tool->UnitsPerMeter = UnitsPerMeter;
    memcpy(Tool->Origin, Origin, sizeof(Origin));
    memcpy(Tool->RightVector, Right, sizeof(Right));
    memcpy(Tool->UpVector, Up, sizeof(Up));
    memcpy(Tool->BackVector, Back, sizeof(Back));
    return true;
}
