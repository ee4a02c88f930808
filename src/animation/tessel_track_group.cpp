#include "animation/tessel_track_group.h"

#include "animation/tessel_curve.h"
#include "foundation/tessel_log.h"
#include "foundation/tessel_string.h"
#include "geometry/tessel_transform.h"

namespace {

curve_data_da_identity MakeIdentity(int32 Dimension)
{
    curve_data_da_identity Record = {};
    Record.CurveDataHeader.Format = CurveFormat_DaIdentity;
    Record.CurveDataHeader.Degree = 0;
    Record.Dimension = (int16)Dimension;
    return Record;
}

// Never written to: curves that point here are left alone by every pass
// that edits curves in place.
curve_data_da_identity SharedIdentityCurves[IdentityCurveMaxDimension + 1] = {
    MakeIdentity(0),  MakeIdentity(1),  MakeIdentity(2),  MakeIdentity(3),  MakeIdentity(4),  MakeIdentity(5),
    MakeIdentity(6),  MakeIdentity(7),  MakeIdentity(8),  MakeIdentity(9),  MakeIdentity(10), MakeIdentity(11),
    MakeIdentity(12), MakeIdentity(13), MakeIdentity(14), MakeIdentity(15), MakeIdentity(16),
};

} // namespace

void GetTrackGroupFlags(track_group const &Group, uint32 *Flags, uint32 *Mask)
{
    uint32 Word = (uint32)Group.AccumulationFlags;
    if (Flags) *Flags = Word & 0xFFFFu;
    if (Mask) *Mask = Word >> 16;
}

void SetTrackGroupFlags(track_group &Group, uint32 Flags, uint32 Mask)
{
    Group.AccumulationFlags = (int32)((Flags & 0xFFFFu) | (Mask << 16));
}

int32 CompareTrackNames(char const *A, char const *B)
{
    return StringDifference(A, B);
}

bool FindTrackByName(track_group const *Group, char const *Name, int32 &Index)
{
    Index = -1;
    if (!Group || !Name) return false;
    uint32 Flags = 0;
    GetTrackGroupFlags(*Group, &Flags, 0);
    if (!(Flags & TrackGroup_SortedByName)) {
        for (int32 Track = 0; Track < Group->TransformTrackCount; ++Track) {
            if (StringsAreExactlyEqual(Group->TransformTracks[Track].Name, Name)) {
                Index = Track;
                return true;
            }
        }
        return false;
    }
    int32 Low = 0;
    int32 High = Group->TransformTrackCount;
    while (Low < High) {
        int32 Middle = Low + (High - Low) / 2;
        int32 Order = CompareTrackNames(Group->TransformTracks[Middle].Name, Name);
        if (Order < 0) {
            Low = Middle + 1;
        } else {
            High = Middle;
        }
    }
    if (Low < Group->TransformTrackCount && CompareTrackNames(Group->TransformTracks[Low].Name, Name) == 0) {
        Index = Low;
        return true;
    }
    return false;
}

bool TransformTrackHasKeyframedCurve(transform_track const &Track)
{
    return CurveIsKeyframed(Track.PositionCurve) || CurveIsKeyframed(Track.OrientationCurve) ||
           CurveIsKeyframed(Track.ScaleShearCurve);
}

void *GetSharedIdentityCurveData(int32 Dimension)
{
    if (Dimension < 0 || Dimension > IdentityCurveMaxDimension) return 0;
    return &SharedIdentityCurves[Dimension];
}

bool SetSharedIdentityCurve(curve2 &Curve, int32 Dimension)
{
    void *Record = GetSharedIdentityCurveData(Dimension);
    if (!Record) return false;
    Curve.CurveData.Type = CurveDataDaIdentityType;
    Curve.CurveData.Object = Record;
    return true;
}

void SampleTransformTrack(transform_track const &Track, real32 Duration, real32 t, transform &Result)
{
    real32 Position[3] = {0, 0, 0};
    real32 Orientation[4] = {0, 0, 0, 1};
    real32 ScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    real32 const ZeroPosition[3] = {0, 0, 0};
    real32 const UnitOrientation[4] = {0, 0, 0, 1};
    real32 const UnitScaleShear[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (Track.PositionCurve.CurveData.Object) {
        EvaluateCurve(3, false, Track.PositionCurve, Duration, t, Position, ZeroPosition);
    }
    if (Track.OrientationCurve.CurveData.Object) {
        EvaluateCurve(4, true, Track.OrientationCurve, Duration, t, Orientation, UnitOrientation);
    }
    if (Track.ScaleShearCurve.CurveData.Object) {
        EvaluateCurve(9, false, Track.ScaleShearCurve, Duration, t, ScaleShear, UnitScaleShear);
    }
    NormalizeQuaternion(Orientation);
    SetTransform(Result, Position, Orientation, ScaleShear);
}
