#include "animation/tessel_track_group_sampler.h"

#include "foundation/tessel_log.h"
#include "foundation/tessel_memory.h"

#include <cstring>

void EndSampledAnimation(track_group_sampler *Sampler)
{
    if (!Sampler) return;
    real32 **Tables[3] = {Sampler->TrackPositionSamples, Sampler->TrackOrientationSamples,
                          Sampler->TrackScaleShearSamples};
    for (real32 **Table : Tables) {
        if (!Table) continue;
        for (int32 Track = 0; Track < Sampler->TrackCount; ++Track) TesselFree(Table[Track]);
        TesselFree(Table);
    }
    TesselFree(Sampler);
}

track_group_sampler *BeginSampledAnimation(int32 TrackCount, int32 SampleCount)
{
    CheckCondition(TrackCount >= 0 && SampleCount >= 0, LogCategory_TrackGroups, 0);
    track_group_sampler *Sampler = (track_group_sampler *)TesselAllocate(sizeof(track_group_sampler));
    if (!Sampler) return 0;
    memset(Sampler, 0, sizeof(*Sampler));
    Sampler->TrackCount = TrackCount;
    Sampler->SampleCount = SampleCount;
    int32 const Widths[3] = {3, 4, 9};
    real32 ***Tables[3] = {&Sampler->TrackPositionSamples, &Sampler->TrackOrientationSamples,
                           &Sampler->TrackScaleShearSamples};
    for (int32 Kind = 0; Kind < 3; ++Kind) {
        real32 **Table = (real32 **)TesselAllocate(sizeof(real32 *) * (intaddrx)(TrackCount ? TrackCount : 1));
        if (!Table) {
            EndSampledAnimation(Sampler);
            return 0;
        }
        memset(Table, 0, sizeof(real32 *) * (size_t)(TrackCount ? TrackCount : 1));
        *Tables[Kind] = Table;
        intaddrx Bytes = (intaddrx)sizeof(real32) * Widths[Kind] * (intaddrx)SampleCount;
        for (int32 Track = 0; Track < TrackCount; ++Track) {
            Table[Track] = (real32 *)TesselAllocate(Bytes ? Bytes : 4);
            if (!Table[Track]) {
                EndSampledAnimation(Sampler);
                return 0;
            }
            memset(Table[Track], 0, (size_t)(Bytes ? Bytes : 4));
        }
    }
    return Sampler;
}

void SetTransformSample(track_group_sampler *Sampler, int32 TrackIndex, real32 const *Position,
                        real32 const *Orientation, real32 const *ScaleShear)
{
    CheckPointer(Sampler, LogCategory_TrackGroups, TESSEL_NOTHING);
    CheckIndex(TrackIndex, Sampler->TrackCount, LogCategory_TrackGroups, TESSEL_NOTHING);
    int32 Sample = Sampler->SampleIndex;
    if (Sample < 0 || Sample >= Sampler->SampleCount) return;
    memcpy(Sampler->TrackPositionSamples[TrackIndex] + 3 * Sample, Position, 3 * sizeof(real32));
    memcpy(Sampler->TrackOrientationSamples[TrackIndex] + 4 * Sample, Orientation, 4 * sizeof(real32));
    memcpy(Sampler->TrackScaleShearSamples[TrackIndex] + 9 * Sample, ScaleShear, 9 * sizeof(real32));
}

void AdvanceSampler(track_group_sampler *Sampler)
{
    CheckPointer(Sampler, LogCategory_TrackGroups, TESSEL_NOTHING);
    ++Sampler->SampleIndex;
}

real32 *GetPositionSamples(track_group_sampler *Sampler, int32 TrackIndex)
{
    CheckPointer(Sampler, LogCategory_TrackGroups, 0);
    CheckIndex(TrackIndex, Sampler->TrackCount, LogCategory_TrackGroups, 0);
    CheckPointer(Sampler->TrackPositionSamples[TrackIndex], LogCategory_TrackGroups, 0);
    return Sampler->TrackPositionSamples[TrackIndex];
}

real32 *GetOrientationSamples(track_group_sampler *Sampler, int32 TrackIndex)
{
    CheckPointer(Sampler, LogCategory_TrackGroups, 0);
    CheckIndex(TrackIndex, Sampler->TrackCount, LogCategory_TrackGroups, 0);
    CheckPointer(Sampler->TrackOrientationSamples[TrackIndex], LogCategory_TrackGroups, 0);
    return Sampler->TrackOrientationSamples[TrackIndex];
}

real32 *GetScaleShearSamples(track_group_sampler *Sampler, int32 TrackIndex)
{
    CheckPointer(Sampler, LogCategory_TrackGroups, 0);
    CheckIndex(TrackIndex, Sampler->TrackCount, LogCategory_TrackGroups, 0);
    CheckPointer(Sampler->TrackScaleShearSamples[TrackIndex], LogCategory_TrackGroups, 0);
    return Sampler->TrackScaleShearSamples[TrackIndex];
}
