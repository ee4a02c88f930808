// The export settings: every category requester with its settings, ids,
// kinds, ranges, defaults and dependencies. The ids never change: they are
// what a settings file stores and what the exporter asks for.
#pragma once

#include "foundation/tessel_types.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_setting_ids.h"

// The 30 object types that a file section combobox can force into a section.
struct object_type_section_row
{
    int32 Id;          // also the id of its section combobox
    char const *Label; // the object type's name
};
int32 GetObjectTypeSectionRowCount();
object_type_section_row const *GetObjectTypeSectionRows();

// Each builder makes a new requester from the pools, with every setting at
// its default; null when the pools run out.
requester *BuildRootSettings(settings_pools &Pools);
requester *BuildFileSettings(settings_pools &Pools);
requester *BuildTextureSettings(settings_pools &Pools);
requester *BuildMaterialSettings(settings_pools &Pools);
requester *BuildMeshSettings(settings_pools &Pools);
requester *BuildModelSettings(settings_pools &Pools);
requester *BuildBoneSettings(settings_pools &Pools);
requester *BuildAnimationSettings(settings_pools &Pools);
requester *BuildBoneAnimationSettings(settings_pools &Pools);
