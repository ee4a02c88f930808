// Settings as text: finding a setting by its label, reading a value typed by
// a user, and describing a value for display. Used by command-line tools.
#pragma once

#include "foundation/tessel_types.h"
#include "settings/tessel_export_ui_tunneling.h"

// A label path is the setting's label, optionally preceded by labels of what
// contains it, separated by ':' and in order from the outside in: the node
// name or category label ("Meshes", "Mesh settings"), and for a setting
// inside a choice the combobox and choice labels. Matching ignores case.
//   "File compression"
//   "Mesh settings:Include data in export"
//   "Alpha:Zent1 still-image compression with alpha channel:Compression"
struct setting_match
{
    settings_node *Node;
    setting *Setting;
};

// Fills up to MaxMatches and returns how many settings match in all.
int32 FindSettingsByLabelPath(settings_node *Root, char const *Path, setting_match *Matches, int32 MaxMatches);

// Writes the qualified label path of Setting under Node ("Meshes:Include data
// in export"); returns its length.
int32 FormatSettingPath(settings_node const *Node, setting const *Setting, char *Buffer, int32 Size);

// Sets Setting from Text: checkbox on/off/true/false/yes/no/1/0; number a
// decimal in range; slider an integer position in range; combobox a choice
// label or id. False, with a message for the user in Error, when the text is
// of the wrong kind or out of range; the setting is then unchanged.
bool SetSettingFromText(setting *Setting, char const *Text, char *Error, int32 ErrorSize);

// "Label=value" under Root: the label path must name exactly one setting.
bool ApplySettingAssignment(settings_node *Root, char const *Assignment, char *Error, int32 ErrorSize);

// The current value as a user reads it: "on", "0.01", "2 (4)", a choice label.
int32 FormatSettingValue(setting const *Setting, char *Buffer, int32 Size);
// The range: "0.0001 to 1000", "0 to 12 (1 to 4096)", the choices; empty for
// a checkbox.
int32 FormatSettingRange(setting const *Setting, char *Buffer, int32 Size);
char const *GetSettingKindName(int32 Kind);
