// The category requesters of the export settings and everything in them.
// The order of settings within a requester is the order a user sees them in
// and the order of a written settings file; ids never change.
#include "settings/tessel_export_ui.h"

#include "foundation/tessel_log.h"
#include "settings/tessel_export_ui_builder.h"

// ---------------------------------------------------------------------------
// Shared blocks

// First in every object category: what of the item reaches the file.
static void AddInclusionBlock(ui_builder &Builder, requester *Requester)
{
    Checkbox(Builder, Requester, SettingId_IncludeReferenceInExport, "Include reference in export",
             "Any mention of the item in the file at all. Off: neither a record nor its data.", true, false);
    Checkbox(Builder, Requester, SettingId_IncludeDataInExport, "Include data in export",
             "Store the item's data. Off: a reference that the object existed can stay, without the data.", true, true);
    Checkbox(Builder, Requester, SettingId_IncludeArtToolSpecificData, "Include art tool specific data",
             "Store extra attributes and properties of the item in the file.", true, true);
    Checkbox(Builder, Requester, SettingId_OnlyUserAttributes, "Only User Attributes",
             "Export only attributes that the user created (through script or the tool interface), as far as "
             "that can be determined.",
             false, true);
    Spacer(Builder, Requester, SettingId_SpacerAfterOnlyUserAttributes);
}

static void AddMoveToOrigin(ui_builder &Builder, requester *Requester)
{
    Checkbox(Builder, Requester, SettingId_MoveToOrigin, "Move to Origin",
             "Move the model's first bone to the origin; the model's initial placement moves it back.", true, true);
}

// Position, orientation and scale/shear fitting of bone animation; in
// "Animation settings" (with the vector track block) and "Bone animation
// settings" (without).
static void AddCurveBlock(ui_builder &Builder, requester *Requester, bool WithVectorTracks)
{
    requester *R = Requester;
    Checkbox(Builder, R, SettingId_ReduceCurvesWherePossible, "Reduce curves where possible",
             "Reduce generated curves to lower-degree splines where they can be; recommended on.", true, true);
    Checkbox(Builder, R, SettingId_CompressAnimationData, "Compress animation data",
             "Compress animation data as b-spline curves; off: raw snapshots of the skeleton at every timestep.", true,
             true);
    Checkbox(Builder, R, SettingId_UseQuantizedCurves, "Use quantized curves",
             "The exporter will use quantized curve format where appropriate.", true, true);
    Checkbox(Builder, R, SettingId_QuantOnMissedTolerance, "Quant. on missed tolerance",
             "The exporter aggressively attempts to reduce the space used by animations that cannot be fit with a "
             "bspline to the specified tolerance.",
             true, true);
    Checkbox(Builder, R, SettingId_AggressiveAnimationCompression, "Aggressive animation compression",
             "The exporter aggressively attempts to eliminate unnecessary knots as a post-process in the "
             "compression step.",
             false, true, SettingId_CompressAnimationData);

    Slider(Builder, R, SettingId_PositionCurveType, "Position curve type",
           "Degree of the b-spline fitted to the translational movement of the animation: 0 still frames, 3 full "
           "cubic, 2 the usual choice.",
           0, 3, 2, IdentitySliderMapping, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_PositionCurveTolerance, "Position curve tolerance",
           "Fitting tolerance for the translational movement of the animation, expressed in tool units.", 0.00001f,
           10000.0f, 0.01f, false, SettingId_CompressAnimationData);
    Checkbox(Builder, R, SettingId_AllowPositionJumps, "Allow position jumps",
             "The fitter may use discontinuous jumps in the position of an object if it thinks it matches the "
             "motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_PositionJumpTolerance, "Position jump tolerance",
           "Size of jump of the position of an object above which the fitter treats it as a jump.", 0.00001f, 10000.0f,
           10.0f, true, SettingId_AllowPositionJumps);
    Checkbox(Builder, R, SettingId_AllowPositionCreasing, "Allow position creasing",
             "The fitter may use sharp creases in the position curve of an object if it thinks it matches the "
             "motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_PositionCreaseTolerance, "Position crease tolerance",
           "Sharpness of turn of the position of an object above which the fitter makes a crease.", 0.00001f, 10000.0f,
           10.0f, true, SettingId_AllowPositionCreasing);
    Spacer(Builder, R, SettingId_SpacerAfterPositionCreaseTolerance, SettingId_CompressAnimationData);

    Slider(Builder, R, SettingId_OrientationCurveType, "Orientation curve type",
           "Degree of the b-spline fitted to the rotational movement of the animation: 0 still frames, 3 full "
           "cubic, 2 the usual choice.",
           0, 3, 2, IdentitySliderMapping, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_OrientationCurveTolerance, "Orientation curve tolerance",
           "Fitting tolerance for the rotational movement of the animation, expressed in degrees of rotation.",
           0.00001f, 720.0f, 0.1f, false, SettingId_CompressAnimationData);
    Checkbox(Builder, R, SettingId_AllowOrientationJumps, "Allow orientation jumps",
             "The fitter may use discontinuous jumps in the orientation of an object if it thinks it matches the "
             "motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_OrientationJumpTolerance, "Orientation jump tolerance",
           "Size of jump of the orientation of an object above which the fitter treats it as a jump.", 0.00001f, 720.0f,
           10.0f, true, SettingId_AllowOrientationJumps);
    Checkbox(Builder, R, SettingId_AllowOrientationCreasing, "Allow orientation creasing",
             "The fitter may use sharp creases in the orientation curve of an object if it thinks it matches the "
             "motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_OrientationCreaseTolerance, "Orientation crease tolerance",
           "Sharpness of turn of the orientation of an object above which the fitter makes a crease.", 0.00001f, 720.0f,
           10.0f, true, SettingId_AllowOrientationCreasing);
    Spacer(Builder, R, SettingId_SpacerAfterOrientationCreaseTolerance, SettingId_CompressAnimationData);

    Slider(Builder, R, SettingId_ScaleShearCurveType, "Scale/shear curve type",
           "Degree of the b-spline fitted to the scaling and shearing of the animation: 0 still frames, 3 full "
           "cubic, 2 the usual choice.",
           0, 3, 2, IdentitySliderMapping, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_ScaleShearCurveTolerance, "Scale/shear curve tolerance",
           "Fitting tolerance for the scaling and shearing of the animation.", 0.00001f, 10000.0f, 0.001f, false,
           SettingId_CompressAnimationData);
    Checkbox(Builder, R, SettingId_AllowScaleShearJumps, "Allow scale/shear jumps",
             "The fitter may use discontinuous jumps in the scaling and shearing of an object if it thinks it "
             "matches the motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_ScaleShearJumpTolerance, "Scale/shear jump tolerance",
           "Size of jump of the scaling and shearing of an object above which the fitter treats it as a jump.",
           0.00001f, 10000.0f, 1.0f, true, SettingId_AllowScaleShearJumps);
    Checkbox(Builder, R, SettingId_AllowScaleShearCreasing, "Allow scale/shear creasing",
             "The fitter may use sharp creases in the scaling and shearing curve of an object if it thinks it "
             "matches the motion best.",
             false, true, SettingId_CompressAnimationData);
    Number(Builder, R, SettingId_ScaleShearCreaseTolerance, "Scale/shear crease tolerance",
           "This value determines how sharp a scale an object must make before the motion fitter decides that it "
           "should scale stiffly instead of smoothly.",
           0.00001f, 10000.0f, 1.0f, true, SettingId_AllowScaleShearCreasing);
    Spacer(Builder, R, SettingId_SpacerAfterScaleShearCreaseTolerance, SettingId_CompressAnimationData);

    if (WithVectorTracks) {
        Checkbox(Builder, R, SettingId_DontOversampleVectorTracks, "Don't oversample vector tracks",
                 "Sample vector tracks on frame boundaries only, whatever the overall oversampling.", false, true);
        Checkbox(Builder, R, SettingId_ProtectConstantTracks, "Protect constant tracks",
                 "Keep vector tracks as curves even if the value never changes.", false, true);
        Slider(Builder, R, SettingId_VectorTrackCurveType, "VectorTrack Curve type",
               "Degree of the b-spline fitted to the source curve: 0 still frames, 3 full cubic, 2 the usual "
               "choice.",
               0, 3, 2, IdentitySliderMapping, true);
        Number(Builder, R, SettingId_VectorTrackCurveTolerance, "VectorTrack Curve tolerance",
               "Fitting tolerance for the translational movement of the animation, expressed in tool units.", 0.00001f,
               10000.0f, 0.001f, false);
        Checkbox(Builder, R, SettingId_AllowVectorTrackJumps, "Allow VectorTrack jumps",
                 "The fitter may use discontinuous jumps in the position of an object if it thinks it matches the "
                 "motion best.",
                 false, true);
        Number(Builder, R, SettingId_VectorTrackJumpTolerance, "VectorTrack jump tolerance",
               "Size of jump of the position of an object above which the fitter treats it as a jump.", 0.00001f,
               10000.0f, 10.0f, true);
        Checkbox(Builder, R, SettingId_AllowVectorTrackCreasing, "Allow VectorTrack creasing",
                 "The fitter may use sharp creases in the position curve of an object if it thinks it matches the "
                 "motion best.",
                 false, true);
        Number(Builder, R, SettingId_VectorTrackCreaseTolerance, "VectorTrack crease tolerance",
               "Sharpness of turn of the position of an object above which the fitter makes a crease.", 0.00001f,
               10000.0f, 10.0f, true);
    }

    Checkbox(Builder, R, SettingId_UseAccumulatorNeighborhood, "Use Accumulator Neighborhood",
             "A slightly altered blending mode is used when the track is neighbourhooded to the rest pose.", false,
             true);
}

// ---------------------------------------------------------------------------
// Categories

requester *BuildRootSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 1, "Root settings", "All the export settings.");
    Number(Builder, R, SettingId_MainWindowWidth, "Main window width",
           "Width of the settings window (kept for the settings file; nothing in the exporter reads it).", 600.0f,
           4096.0f, 640.0f, true);
    Number(Builder, R, SettingId_MainWindowHeight, "Main window height",
           "Height of the settings window (kept for the settings file; nothing in the exporter reads it).", 300.0f,
           4096.0f, 480.0f, true);
    Checkbox(Builder, R, SettingId_AutoCloseOnExit, "Auto close on exit",
             "The progress window closes itself when the export is complete.", false, false);
    Checkbox(Builder, R, SettingId_DetailedSettings, "Detailed Settings",
             "The settings user interface shows every setting.", true, false);
    return Finish(Builder, R);
}

// ---------------------------------------------------------------------------

requester *BuildMaterialSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 9, "Material settings", "How materials are exported.");
    AddInclusionBlock(Builder, R);
    return Finish(Builder, R);
}

requester *BuildModelSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R =
        Category(Builder, 17, "Model settings", "The structural records that say what constitutes each model.");
    AddInclusionBlock(Builder, R);
    AddMoveToOrigin(Builder, R);
    return Finish(Builder, R);
}

requester *BuildBoneSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 17, "Bone settings", "How the bones of a model are exported.");
    AddInclusionBlock(Builder, R);
    return Finish(Builder, R);
}

requester *BuildAnimationSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 4, "Animation settings", "How the entire animation of the scene is exported.");
    AddInclusionBlock(Builder, R);
    Slider(Builder, R, SettingId_Oversampling, "Oversampling", "Samples per frame of the animation; 2x is recommended.",
           1, 8, 2, IdentitySliderMapping, true);
    Spacer(Builder, R, SettingId_SpacerAfterOversampling);

    requester *RootMotion =
        List(Builder, ChoiceList_RootMotionTypes, "Root Motion Types", "How root motion is stored.");
    Choice(Builder, RootMotion, Choice_NoRootMotionAccumulation, "No root motion accumulation",
           "The animation stays as it is.");
    requester *Extraction =
        Choice(Builder, RootMotion, Choice_ConstantMotionExtractionCME, "Constant Motion Extraction (CME)",
               "Root motion is stored as a constant movement plus a non-constant offset.");
    static char const *const ToleranceHelp = "Threshold that decides whether a root bone has been displaced for "
                                             "accumulation or has effectively stayed in place.";
    Number(Builder, Extraction, SettingId_XPositionTolerance, "X Position Tolerance", ToleranceHelp, 0.00001f, 10000.0f,
           10.0f, true);
    Number(Builder, Extraction, SettingId_YPositionTolerance, "Y Position Tolerance", ToleranceHelp, 0.00001f, 10000.0f,
           10.0f, true);
    Number(Builder, Extraction, SettingId_ZPositionTolerance, "Z Position Tolerance", ToleranceHelp, 0.00001f, 10000.0f,
           10.0f, true);
    Number(Builder, Extraction, SettingId_XRotationTolerance, "X Rotation Tolerance", ToleranceHelp, 0.00001f, 360.0f,
           10.0f, true);
    Number(Builder, Extraction, SettingId_YRotationTolerance, "Y Rotation Tolerance", ToleranceHelp, 0.00001f, 360.0f,
           10.0f, true);
    Number(Builder, Extraction, SettingId_ZRotationTolerance, "Z Rotation Tolerance", ToleranceHelp, 0.00001f, 360.0f,
           10.0f, true);
    Choice(Builder, RootMotion, Choice_VariableDeltaAccumulationVDA, "Variable Delta Accumulation (VDA)",
           "Root motion is stored as a regular curve and accumulation is calculated at run-time.");
    Combobox(Builder, R, SettingId_RootMotionType, "Root Motion Type",
             "How looping animations that move the model are played back.", RootMotion, Choice_NoRootMotionAccumulation,
             true, true);
    Spacer(Builder, R, SettingId_SpacerAfterRootMotionType);

    AddMoveToOrigin(Builder, R);
    AddCurveBlock(Builder, R, true);
    Number(Builder, R, SettingId_MaximumWorldError, "Maximum world error",
           "Largest distance, in the scene's units, between where a point near any bone should be and where the "
           "compressed animation puts it; the bones' tolerances are then derived from the skeleton and refined "
           "until every bone meets it. 0 turns it off: the curve tolerances apply as they are.",
           0.0f, 10000.0f, 0.0f, true);
    Number(Builder, R, SettingId_VirtualVertexDistance, "Virtual vertex distance",
           "How far from each bone, along its three axes, the points measured for the maximum world error sit, in "
           "the scene's units. 0 means 3 cm.",
           0.0f, 10000.0f, 0.0f, true);
    return Finish(Builder, R);
}

requester *BuildBoneAnimationSettings(settings_pools &Pools)
{
    ui_builder Builder = {&Pools, false};
    requester *R = Category(Builder, 65, "Bone animation settings",
                            "Per-bone settings of an animation: leave bones out, or change the accuracy of motion "
                            "compression for particular bones.");
    AddInclusionBlock(Builder, R);
    Spacer(Builder, R, 62);
    AddCurveBlock(Builder, R, false);
    return Finish(Builder, R);
}

// ---------------------------------------------------------------------------
// Shared helpers of the builders

requester *Category(ui_builder &Builder, int32 Id, char const *Label, char const *Help)
{
    requester *Result = NewRequester(*Builder.Pools, Id, Label, Help);
    if (!Result) Builder.Failed = true;
    return Result;
}

requester *List(ui_builder &Builder, int32 Id, char const *Label, char const *Help)
{
    return Category(Builder, Id, Label, Help);
}

requester *Choice(ui_builder &Builder, requester *List, int32 Id, char const *Label, char const *Help)
{
    requester *Result = List ? AddChoice(List, Id, Label, Help) : nullptr;
    if (!Result) Builder.Failed = true;
    return Result;
}

static setting *Dependency(requester *Requester, int32 EnabledById)
{
    return EnabledById ? FindSettingInRequester(Requester, EnabledById) : nullptr;
}

static setting *Check(ui_builder &Builder, setting *Result)
{
    if (!Result) Builder.Failed = true;
    return Result;
}

setting *Checkbox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                  bool Default, bool Detailed, int32 EnabledById)
{
    if (!Requester) return Check(Builder, nullptr);
    return Check(Builder,
                 AddCheckbox(Requester, Id, Label, Help, Default, Detailed, Dependency(Requester, EnabledById)));
}

setting *Number(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                real32 LowerBound, real32 UpperBound, real32 Default, bool Detailed, int32 EnabledById)
{
    if (!Requester) return Check(Builder, nullptr);
    return Check(Builder, AddNumber(Requester, Id, Label, Help, LowerBound, UpperBound, Default, Detailed,
                                    Dependency(Requester, EnabledById)));
}

setting *Slider(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                int32 LowerBound, int32 UpperBound, int32 Default, slider_mapping_callback Mapping, bool Detailed,
                int32 EnabledById)
{
    if (!Requester) return Check(Builder, nullptr);
    return Check(Builder, AddSlider(Requester, Id, Label, Help, LowerBound, UpperBound, Default, Mapping, Detailed,
                                    Dependency(Requester, EnabledById)));
}

setting *Spacer(ui_builder &Builder, requester *Requester, int32 Id, int32 EnabledById)
{
    if (!Requester) return Check(Builder, nullptr);
    return Check(Builder, AddSpacer(Requester, Id, Dependency(Requester, EnabledById)));
}

setting *Combobox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                  requester *List, int32 DefaultChoiceId, bool Plain, bool Detailed, int32 EnabledById)
{
    if (!Requester || !List) return Check(Builder, nullptr);
    return Check(Builder, AddCombobox(Requester, Id, Label, Help, List, DefaultChoiceId, Plain, Detailed,
                                      Dependency(Requester, EnabledById)));
}

requester *Finish(ui_builder &Builder, requester *Requester)
{
    if (Builder.Failed) {
        TesselError(LogCategory_Exporter, "Unable to build the settings requester %s",
                    Requester ? Requester->Label : "(none)");
        return nullptr;
    }
    return Requester;
}

// Used by the builders of this file.
void AddInclusionSettings(ui_builder &Builder, requester *Requester)
{
    AddInclusionBlock(Builder, Requester);
}
