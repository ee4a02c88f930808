// Requesters and settings: pools, building, searching, reading, changing,
// deep copies and propagation.
#include "settings/tessel_requester.h"

#include <cmath>
#include <cstring>

#include "foundation/tessel_log.h"
#include "settings/tessel_export_ui_tunneling.h"
#include "settings/tessel_setting_ids.h"

int32 IdentitySliderMapping(int32 Position)
{
    return Position;
}

int32 PowerOfTwoSliderMapping(int32 Position)
{
    return (int32)(1u << (Position & 31));
}

bool InitializeSettingsPools(settings_pools &Pools)
{
    memset(&Pools, 0, sizeof(Pools));
    bool Result = StackInitialize(Pools.Requesters, (int32)sizeof(requester), RequesterPoolBlockSize) &&
                  StackInitialize(Pools.Settings, (int32)sizeof(setting), SettingPoolBlockSize) &&
                  StackInitialize(Pools.TreeNodes, (int32)sizeof(settings_node), TreeNodePoolBlockSize);
    if (Result) {
        Pools.Strings = NewMemoryArena();
        Result = Pools.Strings != nullptr;
    }
    if (!Result) {
        TesselError(LogCategory_Exporter, "Unable to create the settings pools");
        FreeSettingsPools(Pools);
    }
    return Result;
}

void FreeSettingsPools(settings_pools &Pools)
{
    StackCleanUp(Pools.Requesters);
    StackCleanUp(Pools.Settings);
    StackCleanUp(Pools.TreeNodes);
    if (Pools.Strings) FreeMemoryArena(Pools.Strings);
    Pools.Strings = nullptr;
}

// ---------------------------------------------------------------------------
// Building

static requester *NewRequesterIn(settings_pools *Owner, int32 Id, char const *Label, char const *Help)
{
    int32 Index;
    requester *Result = (requester *)NewStackUnit(Owner->Requesters, &Index);
    if (!Result) {
        TesselError(LogCategory_Exporter, "Out of space for settings requesters");
        return nullptr;
    }
    memset(Result, 0, sizeof(*Result));
    Result->Owner = Owner;
    Result->RequesterPool = &Owner->Requesters;
    Result->SettingPool = &Owner->Settings;
    Result->Label = Label;
    Result->Help = Help;
    Result->Id = Id;
    return Result;
}

requester *NewRequester(settings_pools &Pools, int32 Id, char const *Label, char const *Help)
{
    return NewRequesterIn(&Pools, Id, Label, Help);
}

void AddChildRequester(requester *Parent, requester *Child)
{
    if (!Parent || !Child) return;
    Child->NextSibling = nullptr;
    if (Parent->LastChild) {
        Parent->LastChild->NextSibling = Child;
    } else {
        Parent->FirstChild = Child;
    }
    Parent->LastChild = Child;
}

// A zeroed setting appended to the requester's list.
static setting *NewSetting(requester *Requester, int32 Id, int32 Kind, char const *Label, char const *Help,
                           bool Detailed, setting *EnabledBy)
{
    CheckPointer(Requester, LogCategory_Exporter, nullptr);
    int32 Index;
    setting *Result = (setting *)NewStackUnit(*Requester->SettingPool, &Index);
    if (!Result) {
        TesselError(LogCategory_Exporter, "Out of space for settings");
        return nullptr;
    }
    memset(Result, 0, sizeof(*Result));
    Result->Label = Label;
    Result->Help = Help;
    Result->Id = Id;
    Result->Kind = Kind;
    Result->Detailed = Detailed ? 1 : 0;
    Result->EnabledBy = EnabledBy;
    if (Requester->LastSetting) {
        Requester->LastSetting->Next = Result;
    } else {
        Requester->FirstSetting = Result;
    }
    Requester->LastSetting = Result;
    return Result;
}

setting *AddCheckbox(requester *Requester, int32 Id, char const *Label, char const *Help, bool Default, bool Detailed,
                     setting *EnabledBy)
{
    setting *Result = NewSetting(Requester, Id, SettingKind_Checkbox, Label, Help, Detailed, EnabledBy);
    if (Result) {
        Result->Value.Checkbox.Default = Default ? 1 : 0;
        Result->Value.Checkbox.Current = Default ? 1 : 0;
    }
    return Result;
}

setting *AddNumber(requester *Requester, int32 Id, char const *Label, char const *Help, real32 LowerBound,
                   real32 UpperBound, real32 Default, bool Detailed, setting *EnabledBy)
{
    setting *Result = NewSetting(Requester, Id, SettingKind_Number, Label, Help, Detailed, EnabledBy);
    if (Result) {
        Result->Value.Number.LowerBound = LowerBound;
        Result->Value.Number.UpperBound = UpperBound;
        Result->Value.Number.Default = Default;
        Result->Value.Number.Current = Default;
    }
    return Result;
}

setting *AddSlider(requester *Requester, int32 Id, char const *Label, char const *Help, int32 LowerBound,
                   int32 UpperBound, int32 Default, slider_mapping_callback Mapping, bool Detailed, setting *EnabledBy)
{
    setting *Result = NewSetting(Requester, Id, SettingKind_Slider, Label, Help, Detailed, EnabledBy);
    if (Result) {
        Result->Value.Slider.LowerBound = LowerBound;
        Result->Value.Slider.UpperBound = UpperBound;
        Result->Value.Slider.Default = Default;
        Result->Value.Slider.Current = Default;
        Result->Value.Slider.Mapping = Mapping ? Mapping : IdentitySliderMapping;
    }
    return Result;
}

setting *AddSpacer(requester *Requester, int32 Id, setting *EnabledBy)
{
    return NewSetting(Requester, Id, SettingKind_Spacer, nullptr, nullptr, false, EnabledBy);
}

setting *AddCombobox(requester *Requester, int32 Id, char const *Label, char const *Help, requester *List,
                     int32 DefaultChoiceId, bool Plain, bool Detailed, setting *EnabledBy)
{
    setting *Result = NewSetting(Requester, Id, SettingKind_Combobox, Label, Help, Detailed, EnabledBy);
    if (Result) {
        Result->Value.Combobox.List = List;
        Result->Value.Combobox.Plain = Plain ? 1 : 0;
        Result->Value.Combobox.Current = FindChoice(Result, DefaultChoiceId);
    }
    return Result;
}

requester *AddChoice(requester *List, int32 Id, char const *Label, char const *Help)
{
    CheckPointer(List, LogCategory_Exporter, nullptr);
    requester *Choice = NewRequesterIn(List->Owner, Id, Label, Help);
    AddChildRequester(List, Choice);
    return Choice;
}

// ---------------------------------------------------------------------------
// Searching

setting *FindSettingInRequester(requester const *Requester, int32 Id)
{
    if (!Requester) return nullptr;
    for (setting *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (Setting->Id == Id) return Setting;
        if (Setting->Kind == SettingKind_Combobox) {
            if (setting *Found = FindSettingInRequester(Setting->Value.Combobox.List, Id)) return Found;
        }
    }
    for (requester *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        if (setting *Found = FindSettingInRequester(Child, Id)) return Found;
    }
    return nullptr;
}

setting *FindSetting(settings_node const *Node, int32 Id)
{
    return FindSettingInRequester(GetNodeRequester(Node), Id);
}

requester *FindRequester(requester const *Requester, int32 Id)
{
    if (!Requester) return nullptr;
    if (Requester->Id == Id) return (requester *)Requester;
    for (requester *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        if (requester *Found = FindRequester(Child, Id)) return Found;
    }
    return nullptr;
}

requester *FindChoice(setting const *Combobox, int32 ChoiceId)
{
    if (!Combobox || Combobox->Kind != SettingKind_Combobox || !Combobox->Value.Combobox.List) return nullptr;
    for (requester *Choice = Combobox->Value.Combobox.List->FirstChild; Choice; Choice = Choice->NextSibling) {
        if (Choice->Id == ChoiceId) return Choice;
    }
    return nullptr;
}

// ---------------------------------------------------------------------------
// Reading values

int32 GetSettingValueInt(setting const *Setting)
{
    if (!Setting) return 0;
    switch (Setting->Kind) {
    case SettingKind_Checkbox: return Setting->Value.Checkbox.Current ? 1 : 0;
    case SettingKind_Number: {
        // Rounds half up by adding 0.5 and truncating toward zero, so -0.7
        // reads as 0.
        real32 Value = Setting->Value.Number.Current + 0.5f;
        if (!(Value == Value)) return 0;
        if (Value >= 2147483647.0f) return INT32_MAX;
        if (Value <= -2147483648.0f) return INT32_MIN;
        return (int32)Value;
    }
    case SettingKind_Slider: {
        slider_mapping_callback Mapping = Setting->Value.Slider.Mapping;
        return Mapping ? Mapping(Setting->Value.Slider.Current) : Setting->Value.Slider.Current;
    }
    default: return 0;
    }
}

real32 GetSettingValueFloat(setting const *Setting)
{
    if (!Setting) return 0.0f;
    switch (Setting->Kind) {
    case SettingKind_Checkbox:
    case SettingKind_Slider: return (real32)GetSettingValueInt(Setting);
    case SettingKind_Number: return Setting->Value.Number.Current;
    default: return 0.0f;
    }
}

static int32 ChoiceOf(setting const *Setting)
{
    if (!Setting || Setting->Kind != SettingKind_Combobox || !Setting->Value.Combobox.Current) return 0;
    return Setting->Value.Combobox.Current->Id;
}

// The setting a getter reads; an id that no definition has is logged (once).
static setting *FindForGetter(requester const *Requester, int32 Id)
{
    setting *Setting = FindSettingInRequester(Requester, Id);
    if (!Setting) ReportUndefinedSettingId(Id);
    return Setting;
}

static int32 ChoiceIntOf(setting const *Combobox, int32 Id)
{
    if (!Combobox || Combobox->Kind != SettingKind_Combobox) return 0;
    return GetSettingValueInt(FindForGetter(Combobox->Value.Combobox.Current, Id));
}

bool GetSettingBool(requester const *Requester, int32 Id)
{
    return GetSettingInt(Requester, Id) != 0;
}

int32 GetSettingInt(requester const *Requester, int32 Id)
{
    return GetSettingValueInt(FindForGetter(Requester, Id));
}

real32 GetSettingFloat(requester const *Requester, int32 Id)
{
    return GetSettingValueFloat(FindForGetter(Requester, Id));
}

int32 GetSettingChoice(requester const *Requester, int32 Id)
{
    return ChoiceOf(FindForGetter(Requester, Id));
}

int32 GetSettingChoiceInt(requester const *Requester, int32 ComboboxId, int32 Id)
{
    return ChoiceIntOf(FindForGetter(Requester, ComboboxId), Id);
}

bool GetSettingChoiceBool(requester const *Requester, int32 ComboboxId, int32 Id)
{
    return GetSettingChoiceInt(Requester, ComboboxId, Id) != 0;
}

bool GetSettingBool(settings_node const *Node, int32 Id)
{
    return GetSettingBool(GetNodeRequester(Node), Id);
}

int32 GetSettingInt(settings_node const *Node, int32 Id)
{
    return GetSettingInt(GetNodeRequester(Node), Id);
}

real32 GetSettingFloat(settings_node const *Node, int32 Id)
{
    return GetSettingFloat(GetNodeRequester(Node), Id);
}

int32 GetSettingChoice(settings_node const *Node, int32 Id)
{
    return GetSettingChoice(GetNodeRequester(Node), Id);
}

int32 GetSettingChoiceInt(settings_node const *Node, int32 ComboboxId, int32 Id)
{
    return GetSettingChoiceInt(GetNodeRequester(Node), ComboboxId, Id);
}

bool GetSettingChoiceBool(settings_node const *Node, int32 ComboboxId, int32 Id)
{
    return GetSettingChoiceInt(Node, ComboboxId, Id) != 0;
}

bool IsReferenceIncluded(settings_node const *Node)
{
    return Node && GetSettingBool(Node, SettingId_IncludeReferenceInExport);
}

bool IsDataIncluded(settings_node const *Node)
{
    return IsReferenceIncluded(Node) && GetSettingBool(Node, SettingId_IncludeDataInExport);
}

bool IsArtToolDataIncluded(settings_node const *Node)
{
    return Node && GetSettingBool(Node, SettingId_IncludeArtToolSpecificData);
}

bool IsOnlyUserAttributes(settings_node const *Node)
{
    return Node && GetSettingBool(Node, SettingId_OnlyUserAttributes);
}

enum
{
    StandardSectionCount = 8,
};

int32 GetSectionSetting(requester const *Requester, int32 Id, int32 BuiltInSection)
{
    int32 Choice = GetSettingChoice(Requester, Id);
    // A missing combobox or an unknown choice places the data by default too.
    if (Choice == Choice_AllowDefaultPlacement || Choice < Choice_FirstStandardSection ||
        Choice >= Choice_FirstStandardSection + StandardSectionCount) {
        return BuiltInSection;
    }
    return Choice - Choice_FirstStandardSection;
}

int32 GetSectionSetting(settings_node const *Node, int32 Id, int32 BuiltInSection)
{
    return GetSectionSetting(GetNodeRequester(Node), Id, BuiltInSection);
}

// ---------------------------------------------------------------------------
// Changing values

bool SetSettingBool(setting *Setting, bool Value)
{
    CheckPointer(Setting, LogCategory_Exporter, false);
    CheckCondition(Setting->Kind == SettingKind_Checkbox, LogCategory_Exporter, false);
    Setting->Value.Checkbox.Current = Value ? 1 : 0;
    Setting->Overridden = 1;
    return true;
}

bool SetSettingNumber(setting *Setting, real32 Value)
{
    CheckPointer(Setting, LogCategory_Exporter, false);
    CheckCondition(Setting->Kind == SettingKind_Number, LogCategory_Exporter, false);
    number_value &Number = Setting->Value.Number;
    if (!(Value >= Number.LowerBound && Value <= Number.UpperBound)) return false;
    Number.Current = Value;
    Setting->Overridden = 1;
    return true;
}

bool SetSettingSliderPosition(setting *Setting, int32 Position)
{
    CheckPointer(Setting, LogCategory_Exporter, false);
    CheckCondition(Setting->Kind == SettingKind_Slider, LogCategory_Exporter, false);
    slider_value &Slider = Setting->Value.Slider;
    if (Position < Slider.LowerBound || Position > Slider.UpperBound) return false;
    Slider.Current = Position;
    Setting->Overridden = 1;
    return true;
}

bool SetSettingChoice(setting *Setting, int32 ChoiceId)
{
    CheckPointer(Setting, LogCategory_Exporter, false);
    CheckCondition(Setting->Kind == SettingKind_Combobox, LogCategory_Exporter, false);
    requester *Choice = FindChoice(Setting, ChoiceId);
    if (!Choice) return false;
    Setting->Value.Combobox.Current = Choice;
    Setting->Overridden = 1;
    return true;
}

// ---------------------------------------------------------------------------
// Copying and propagation

requester *DuplicateRequester(requester const *Source)
{
    CheckPointer(Source, LogCategory_Exporter, nullptr);
    requester *Copy = NewRequesterIn(Source->Owner, Source->Id, Source->Label, Source->Help);
    if (!Copy) return nullptr;

    for (setting const *From = Source->FirstSetting; From; From = From->Next) {
        setting *To = NewSetting(Copy, From->Id, From->Kind, From->Label, From->Help, From->Detailed != 0, nullptr);
        if (!To) return nullptr;
        To->Detailed = From->Detailed;
        To->Overridden = From->Overridden;
        To->Value = From->Value;
        if (From->Kind == SettingKind_Combobox && From->Value.Combobox.List) {
            To->Value.Combobox.List = DuplicateRequester(From->Value.Combobox.List);
            if (!To->Value.Combobox.List) return nullptr;
            To->Value.Combobox.Current =
                From->Value.Combobox.Current ? FindChoice(To, From->Value.Combobox.Current->Id) : nullptr;
        }
    }

    // EnabledBy points into the copy where the dependency is in the same
    // chain; a link outside it is dropped.
    setting *To = Copy->FirstSetting;
    for (setting const *From = Source->FirstSetting; From; From = From->Next, To = To->Next) {
        if (!From->EnabledBy) continue;
        setting *CopyWalk = Copy->FirstSetting;
        for (setting const *Walk = Source->FirstSetting; Walk; Walk = Walk->Next, CopyWalk = CopyWalk->Next) {
            if (Walk == From->EnabledBy) {
                To->EnabledBy = CopyWalk;
                break;
            }
        }
    }

    for (requester const *Child = Source->FirstChild; Child; Child = Child->NextSibling) {
        requester *ChildCopy = DuplicateRequester(Child);
        if (!ChildCopy) return nullptr;
        AddChildRequester(Copy, ChildCopy);
    }
    return Copy;
}

void ApplySettings(requester *Target, requester const *Source, bool Force)
{
    if (!Target || !Source) return;
    for (setting *To = Target->FirstSetting; To; To = To->Next) {
        setting const *From = FindSettingInRequester(Source, To->Id);
        if (!From) continue;
        bool SameKind = From->Kind == To->Kind;
        if (Force || !To->Overridden) {
            To->Overridden = From->Overridden;
            if (SameKind) {
                switch (To->Kind) {
                case SettingKind_Checkbox: To->Value.Checkbox.Current = From->Value.Checkbox.Current; break;
                case SettingKind_Number: To->Value.Number.Current = From->Value.Number.Current; break;
                case SettingKind_Slider: To->Value.Slider.Current = From->Value.Slider.Current; break;
                case SettingKind_Combobox:
                    To->Value.Combobox.Current =
                        From->Value.Combobox.Current ? FindChoice(To, From->Value.Combobox.Current->Id) : nullptr;
                    break;
                default: break;
                }
            }
        }
        if (SameKind && To->Kind == SettingKind_Combobox) {
            ApplySettings(To->Value.Combobox.List, From->Value.Combobox.List, Force);
        }
    }
    for (requester *Child = Target->FirstChild; Child; Child = Child->NextSibling) {
        for (requester const *From = Source->FirstChild; From; From = From->NextSibling) {
            if (From->Id == Child->Id) {
                ApplySettings(Child, From, Force);
                break;
            }
        }
    }
}
