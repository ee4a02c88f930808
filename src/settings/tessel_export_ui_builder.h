// Helpers shared by the builders of the category requesters: each adds one
// item and remembers a failure, so that a builder checks once at the end.
// Dependencies are given by the id of a setting already in the requester.
#pragma once

#include "settings/tessel_requester.h"

struct ui_builder
{
    settings_pools *Pools;
    bool Failed;
};

requester *Category(ui_builder &Builder, int32 Id, char const *Label, char const *Help);
// A choice list, to be handed to Combobox.
requester *List(ui_builder &Builder, int32 Id, char const *Label, char const *Help);
requester *Choice(ui_builder &Builder, requester *List, int32 Id, char const *Label, char const *Help);

setting *Checkbox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                  bool Default, bool Detailed, int32 EnabledById = 0);
setting *Number(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                real32 LowerBound, real32 UpperBound, real32 Default, bool Detailed, int32 EnabledById = 0);
setting *Slider(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                int32 LowerBound, int32 UpperBound, int32 Default, slider_mapping_callback Mapping, bool Detailed,
                int32 EnabledById = 0);
setting *Spacer(ui_builder &Builder, requester *Requester, int32 Id, int32 EnabledById = 0);
setting *Combobox(ui_builder &Builder, requester *Requester, int32 Id, char const *Label, char const *Help,
                  requester *List, int32 DefaultChoiceId, bool Plain, bool Detailed, int32 EnabledById = 0);

// Null (and a logged error) if anything failed.
requester *Finish(ui_builder &Builder, requester *Requester);

// "Include reference in export", "Include data in export", "Include art tool
// specific data", "Only User Attributes" and a spacer.
void AddInclusionSettings(ui_builder &Builder, requester *Requester);
