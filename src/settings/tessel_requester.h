// Requesters and settings: typed lists of export settings with child
// requesters, the searches and getters the exporter reads them through,
// deep copies, propagation of values between copies, and the requester block
// in which a requester's values are stored.
//
// A requester is what a settings dialog would show: a label, a help text, an
// id, a list of settings and child requesters. The choices of a combobox are
// requesters too (the children of the combobox's list requester), and a
// choice may hold settings of its own that only matter while it is current.
//
// Every requester and setting comes from the fixed pools of a settings_pools
// record and goes away with it; nothing here is freed one by one.
#pragma once

#include "foundation/tessel_memory.h"
#include "foundation/tessel_stack_allocator.h"
#include "foundation/tessel_types.h"

struct requester;
struct setting;
struct settings_node;

// Stored in setting::Kind; the numbers are part of the settings' identity.
enum setting_kind
{
    SettingKind_Checkbox = 1,
    SettingKind_Number = 2,
    SettingKind_Slider = 4,
    SettingKind_Spacer = 6,
    SettingKind_Combobox = 7,
};

// Maps a slider position to the value the exporter reads.
typedef int32 (*slider_mapping_callback)(int32 Position);
int32 IdentitySliderMapping(int32 Position);
// 1 << (Position & 31): alignments in bytes, texture sizes in pixels.
int32 PowerOfTwoSliderMapping(int32 Position);

#pragma pack(push, 4)
struct checkbox_value
{
    uint8 Default;
    uint8 Current;
};

// Also integer edit boxes, with integer bounds and default held as floats.
struct number_value
{
    real32 UpperBound;
    real32 LowerBound;
    real32 Default;
    real32 Current;
};

struct slider_value
{
    int32 UpperBound;
    int32 LowerBound;
    int32 Default;
    int32 Current;
    slider_mapping_callback Mapping;
};

struct combobox_value
{
    requester *List;    // its children are the choices
    requester *Current; // null for none
    int32 Plain;        // 1 for a plain combobox, 0 for a texture-format one
};

union setting_value
{
    checkbox_value Checkbox;
    number_value Number;
    slider_value Slider;
    combobox_value Combobox;
    uint8 Storage[128];
};

struct setting
{
    char const *Label;
    char const *Help;
    int32 Id;
    bool8 Overridden; // this copy holds a value of its own
    setting *EnabledBy;
    int32 Detailed;
    int32 Kind;
    setting_value Value;
    setting *Next;
};

// The fixed allocators of one settings tree: requesters, settings and tree
// nodes, plus an arena for the copied node names.
struct settings_pools
{
    stack_allocator Requesters;
    stack_allocator Settings;
    stack_allocator TreeNodes;
    memory_arena *Strings;
};

struct requester
{
    settings_pools *Owner;
    stack_allocator *RequesterPool;
    stack_allocator *SettingPool;
    char const *Label;
    char const *Help;
    int32 Id;
    requester *FirstChild;
    requester *LastChild;
    setting *FirstSetting;
    setting *LastSetting;
    requester *NextSibling;
};
#pragma pack(pop)

// Block sizes of the three pools.
enum
{
    RequesterPoolBlockSize = 1024,
    SettingPoolBlockSize = 4096,
    TreeNodePoolBlockSize = 4096,
};

bool InitializeSettingsPools(settings_pools &Pools);
// Releases every requester, setting and node made from the pools.
void FreeSettingsPools(settings_pools &Pools);

// ---------------------------------------------------------------------------
// Building. Labels and help texts are not copied: they must outlive the pools
// (the built-in trees use literals). EnabledBy may be null.

requester *NewRequester(settings_pools &Pools, int32 Id, char const *Label, char const *Help);
void AddChildRequester(requester *Parent, requester *Child);

setting *AddCheckbox(requester *Requester, int32 Id, char const *Label, char const *Help, bool Default, bool Detailed,
                     setting *EnabledBy);
setting *AddNumber(requester *Requester, int32 Id, char const *Label, char const *Help, real32 LowerBound,
                   real32 UpperBound, real32 Default, bool Detailed, setting *EnabledBy);
setting *AddSlider(requester *Requester, int32 Id, char const *Label, char const *Help, int32 LowerBound,
                   int32 UpperBound, int32 Default, slider_mapping_callback Mapping, bool Detailed, setting *EnabledBy);
setting *AddSpacer(requester *Requester, int32 Id, setting *EnabledBy);
// The current choice starts as the child of List with DefaultChoiceId (or none).
setting *AddCombobox(requester *Requester, int32 Id, char const *Label, char const *Help, requester *List,
                     int32 DefaultChoiceId, bool Plain, bool Detailed, setting *EnabledBy);
// A choice of a list: a child requester of the list.
requester *AddChoice(requester *List, int32 Id, char const *Label, char const *Help);

// ---------------------------------------------------------------------------
// Searching.

// Depth first: the requester's settings in order, searching into every
// combobox's list (all of its choices) before going on, then the child
// requesters in order. A requester's own id is never matched. Null when the
// id is absent.
setting *FindSettingInRequester(requester const *Requester, int32 Id);
// Walks up from Node to the first node with a requester, then searches it.
setting *FindSetting(settings_node const *Node, int32 Id);
// The requester with Id: Requester itself or a descendant (depth first).
requester *FindRequester(requester const *Requester, int32 Id);
// The child of a combobox's list with the given choice id, or null.
requester *FindChoice(setting const *Combobox, int32 ChoiceId);

// ---------------------------------------------------------------------------
// Reading values. An id that is absent reads as 0, 0.0 or false, silently.

// The value of one setting: checkbox 0 or 1; number rounded (plus 0.5,
// truncated); slider through its mapping; else 0.
int32 GetSettingValueInt(setting const *Setting);
// Checkbox and slider as their integer; number as is; else 0.
real32 GetSettingValueFloat(setting const *Setting);

bool GetSettingBool(settings_node const *Node, int32 Id);
int32 GetSettingInt(settings_node const *Node, int32 Id);
real32 GetSettingFloat(settings_node const *Node, int32 Id);
// The id of a combobox's current choice; 0 if it is no combobox or has none.
int32 GetSettingChoice(settings_node const *Node, int32 Id);
// GetSettingInt of Id searched in the current choice of ComboboxId only.
int32 GetSettingChoiceInt(settings_node const *Node, int32 ComboboxId, int32 Id);
bool GetSettingChoiceBool(settings_node const *Node, int32 ComboboxId, int32 Id);

// The same, on a requester directly (e.g. "File settings" found by id).
bool GetSettingBool(requester const *Requester, int32 Id);
int32 GetSettingInt(requester const *Requester, int32 Id);
real32 GetSettingFloat(requester const *Requester, int32 Id);
int32 GetSettingChoice(requester const *Requester, int32 Id);
int32 GetSettingChoiceInt(requester const *Requester, int32 ComboboxId, int32 Id);
bool GetSettingChoiceBool(requester const *Requester, int32 ComboboxId, int32 Id);

// Inclusion questions of an object's settings.
bool IsReferenceIncluded(settings_node const *Node); // "Include reference in export"
bool IsDataIncluded(settings_node const *Node);      // reference and "Include data in export"
bool IsArtToolDataIncluded(settings_node const *Node);
bool IsOnlyUserAttributes(settings_node const *Node);

// A file section combobox: the choice "(allow default placement)" yields
// BuiltInSection, any other choice its standard section number.
int32 GetSectionSetting(settings_node const *Node, int32 Id, int32 BuiltInSection);
int32 GetSectionSetting(requester const *Requester, int32 Id, int32 BuiltInSection);

// ---------------------------------------------------------------------------
// Changing values. Each checks kind and range, marks the setting Overridden
// and returns false (changing nothing) on a mismatch.

bool SetSettingBool(setting *Setting, bool Value);
bool SetSettingNumber(setting *Setting, real32 Value);
bool SetSettingSliderPosition(setting *Setting, int32 Position);
bool SetSettingChoice(setting *Setting, int32 ChoiceId);

// ---------------------------------------------------------------------------
// Copying and propagation.

// Deep copy from the source's own pools: settings (with EnabledBy translated
// into the copy), combobox lists with their current choice, child requesters.
requester *DuplicateRequester(requester const *Source);

// For each setting of Target, the setting with the same id in Source (by the
// search of FindSettingInRequester) is taken over when Force is set or the
// target is not Overridden: the Overridden flag, and the value if the kinds
// agree (for a combobox the choice with the same id in the target's own
// list). Combobox lists and child requesters with equal ids follow.
void ApplySettings(requester *Target, requester const *Source, bool Force);

// ---------------------------------------------------------------------------
// Requester block: little-endian 32-bit words, magic 0xCA5EEEEE, settings by
// id and size, then child requesters by id and size. Spacers are not stored.

enum
{
    RequesterBlockMagic = (int32)0xCA5EEEEE,
    NodeBlockMagic = (int32)0xCA5EBABA,
};

int32 SizeOfRequesterBlock(requester const *Requester);
// Writes SizeOfRequesterBlock bytes; returns them, or 0 if Size is too small.
int32 WriteRequesterBlock(requester const *Requester, uint8 *Buffer, int32 Size);
// The length of a well-formed block at Data (magic, and every entry's size
// inside the data), or -1; logs nothing.
int32 MeasureRequesterBlock(uint8 const *Data, int32 Size);
// Reads values by id into Requester (null reads nothing but still walks the
// block). Unknown ids are skipped by their size. Returns the bytes the block
// took, or -1 when it is malformed ("Corrupted settings data encountered").
int32 ReadRequesterBlock(requester *Requester, uint8 const *Data, int32 Size);

// Strict reading. Between Begin and End, everything that a lenient read
// passes over (an unknown id, a value of the wrong size or out of range, a
// damaged nested block, bytes left over) is logged as an error and counted;
// End returns the count. Reading itself is unchanged. Per thread.
void BeginStrictSettingsRead();
int32 EndStrictSettingsRead();
// Counts (and, while strict, logs) one flaw of the data being read.
void NoteSettingsFlaw(char const *What, int32 Id);
