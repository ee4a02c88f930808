// Settings as text: label paths, parsing of typed values, display.
#include "settings/tessel_settings_text.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "foundation/tessel_string.h"

// ---------------------------------------------------------------------------
// Walking every setting with the labels of what contains it

enum
{
    MaxContextDepth = 16,
    MaxPathSegments = 16,
    MaxSegmentLength = 256,
};

struct setting_visit
{
    settings_node *Node;
    setting *Setting;
    char const *Context[MaxContextDepth];
    int32 ContextCount;
};

typedef bool (*setting_visitor)(setting_visit const &Visit, void *UserData); // false stops

static bool VisitRequester(setting_visit &Visit, requester *Requester, setting_visitor Visitor, void *UserData)
{
    for (setting *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        Visit.Setting = Setting;
        if (Setting->Label && !Visitor(Visit, UserData)) return false;
        if (Setting->Kind != SettingKind_Combobox || !Setting->Value.Combobox.List) continue;
        if (Visit.ContextCount + 2 > MaxContextDepth) continue;
        for (requester *Choice = Setting->Value.Combobox.List->FirstChild; Choice; Choice = Choice->NextSibling) {
            Visit.Context[Visit.ContextCount] = Setting->Label;
            Visit.Context[Visit.ContextCount + 1] = Choice->Label;
            Visit.ContextCount += 2;
            bool Going = VisitRequester(Visit, Choice, Visitor, UserData);
            Visit.ContextCount -= 2;
            if (!Going) return false;
        }
    }
    for (requester *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        if (Visit.ContextCount + 1 > MaxContextDepth) break;
        Visit.Context[Visit.ContextCount++] = Child->Label;
        bool Going = VisitRequester(Visit, Child, Visitor, UserData);
        --Visit.ContextCount;
        if (!Going) return false;
    }
    return true;
}

static bool VisitNode(settings_node *Node, setting_visitor Visitor, void *UserData)
{
    for (; Node; Node = Node->NextSibling) {
        if (Node->Requester) {
            setting_visit Visit = {};
            Visit.Node = Node;
            Visit.Context[0] = Node->Name;
            Visit.Context[1] = Node->Requester->Label;
            Visit.ContextCount = 2;
            if (!VisitRequester(Visit, Node->Requester, Visitor, UserData)) return false;
        }
        if (!VisitNode(Node->FirstChild, Visitor, UserData)) return false;
    }
    return true;
}

static void VisitTree(settings_node *Root, setting_visitor Visitor, void *UserData)
{
    if (!Root) return;
    if (Root->Requester) {
        setting_visit Visit = {};
        Visit.Node = Root;
        Visit.Context[0] = Root->Name;
        Visit.Context[1] = Root->Requester->Label;
        Visit.ContextCount = 2;
        if (!VisitRequester(Visit, Root->Requester, Visitor, UserData)) return;
    }
    VisitNode(Root->FirstChild, Visitor, UserData);
}

// ---------------------------------------------------------------------------
// Label paths

struct label_path
{
    char Segments[MaxPathSegments][MaxSegmentLength];
    int32 Count;
};

static void TrimInto(char *To, int32 Size, char const *From, int32 Length)
{
    while (Length > 0 && (*From == ' ' || *From == '\t')) {
        ++From;
        --Length;
    }
    while (Length > 0 && (From[Length - 1] == ' ' || From[Length - 1] == '\t')) --Length;
    if (Length >= Size) Length = Size - 1;
    memcpy(To, From, (size_t)Length);
    To[Length] = 0;
}

static bool ParseLabelPath(char const *Path, int32 Length, label_path &Result)
{
    Result.Count = 0;
    char const *End = Path + Length;
    while (true) {
        char const *Colon = Path;
        while (Colon < End && *Colon != ':') ++Colon;
        if (Result.Count == MaxPathSegments) return false;
        TrimInto(Result.Segments[Result.Count++], MaxSegmentLength, Path, (int32)(Colon - Path));
        if (Colon == End) break;
        Path = Colon + 1;
    }
    return Result.Segments[Result.Count - 1][0] != 0;
}

static bool Matches(setting_visit const &Visit, label_path const &Path)
{
    if (!StringsAreEqual(Visit.Setting->Label, Path.Segments[Path.Count - 1])) return false;
    int32 Context = 0;
    for (int32 Segment = 0; Segment < Path.Count - 1; ++Segment) {
        while (Context < Visit.ContextCount &&
               !(Visit.Context[Context] && StringsAreEqual(Visit.Context[Context], Path.Segments[Segment]))) {
            ++Context;
        }
        if (Context == Visit.ContextCount) return false;
        ++Context;
    }
    return true;
}

struct find_state
{
    label_path const *Path;
    setting_match *Matches;
    int32 MaxMatches;
    int32 Count;
};

static bool CollectMatch(setting_visit const &Visit, void *UserData)
{
    find_state &State = *(find_state *)UserData;
    if (Visit.Setting->Kind == SettingKind_Spacer || !Matches(Visit, *State.Path)) return true;
    if (State.Count < State.MaxMatches) State.Matches[State.Count] = {Visit.Node, Visit.Setting};
    ++State.Count;
    return true;
}

static int32 FindByParsedPath(settings_node *Root, label_path const &Path, setting_match *Matches, int32 MaxMatches)
{
    find_state State = {&Path, Matches, Matches ? MaxMatches : 0, 0};
    VisitTree(Root, CollectMatch, &State);
    return State.Count;
}

int32 FindSettingsByLabelPath(settings_node *Root, char const *Path, setting_match *Matches, int32 MaxMatches)
{
    label_path Parsed;
    if (!Root || !Path || !ParseLabelPath(Path, (int32)strlen(Path), Parsed)) return 0;
    return FindByParsedPath(Root, Parsed, Matches, MaxMatches);
}

struct path_state
{
    setting const *Target;
    char *Buffer;
    int32 Size;
    int32 Length;
};

static bool WritePath(setting_visit const &Visit, void *UserData)
{
    path_state &State = *(path_state *)UserData;
    if (Visit.Setting != State.Target) return true;
    // The node name, then the combobox and choice labels, then the label.
    int32 Length = snprintf(State.Buffer, (size_t)State.Size, "%s", Visit.Node->Name);
    for (int32 Index = 2; Index < Visit.ContextCount; ++Index) {
        if (Length >= State.Size) break;
        Length += snprintf(State.Buffer + Length, (size_t)(State.Size - Length), ":%s", Visit.Context[Index]);
    }
    if (Length < State.Size) {
        Length += snprintf(State.Buffer + Length, (size_t)(State.Size - Length), ":%s", Visit.Setting->Label);
    }
    State.Length = Length;
    return false;
}

int32 FormatSettingPath(settings_node const *Node, setting const *Setting, char *Buffer, int32 Size)
{
    if (!Buffer || Size <= 0) return 0;
    Buffer[0] = 0;
    if (!Node || !Setting) return 0;
    path_state State = {Setting, Buffer, Size, 0};
    setting_visit Visit = {};
    Visit.Node = (settings_node *)Node;
    Visit.Context[0] = Node->Name;
    Visit.Context[1] = Node->Requester ? Node->Requester->Label : "";
    Visit.ContextCount = 2;
    if (Node->Requester) VisitRequester(Visit, Node->Requester, WritePath, &State);
    return State.Length;
}

// ---------------------------------------------------------------------------
// Values

char const *GetSettingKindName(int32 Kind)
{
    switch (Kind) {
    case SettingKind_Checkbox: return "checkbox";
    case SettingKind_Number: return "number";
    case SettingKind_Slider: return "slider";
    case SettingKind_Spacer: return "spacer";
    case SettingKind_Combobox: return "combobox";
    default: return "unknown";
    }
}

// The shortest text that reads back as the same float.
static int32 FormatReal(char *Buffer, int32 Size, real32 Value)
{
    int32 Length = 0;
    for (int32 Precision = 6; Precision <= 9; ++Precision) {
        Length = snprintf(Buffer, (size_t)Size, "%.*g", Precision, (double)Value);
        if (strtof(Buffer, nullptr) == Value) break;
    }
    return Length;
}

static bool ParseInteger(char const *Text, int32 *Value)
{
    errno = 0;
    char *End;
    long Parsed = strtol(Text, &End, 10);
    if (End == Text || *End || errno || Parsed < INT32_MIN || Parsed > INT32_MAX) return false;
    *Value = (int32)Parsed;
    return true;
}

static bool ParseReal(char const *Text, real32 *Value)
{
    errno = 0;
    char *End;
    float Parsed = strtof(Text, &End);
    if (End == Text || *End || errno || !std::isfinite(Parsed)) return false;
    *Value = Parsed;
    return true;
}

static void Fail(char *Error, int32 ErrorSize, char const *Format, char const *A, char const *B = "",
                 char const *C = "")
{
    if (Error && ErrorSize > 0) snprintf(Error, (size_t)ErrorSize, Format, A, B, C);
}

bool SetSettingFromText(setting *Setting, char const *Text, char *Error, int32 ErrorSize)
{
    if (!Setting || !Text) return false;
    char Range[1024];
    FormatSettingRange(Setting, Range, sizeof(Range));
    char const *Label = Setting->Label ? Setting->Label : "(spacer)";
    switch (Setting->Kind) {
    case SettingKind_Checkbox: {
        static char const *const On[] = {"on", "true", "yes", "1"};
        static char const *const Off[] = {"off", "false", "no", "0"};
        for (char const *Word : On) {
            if (StringsAreEqual(Text, Word)) return SetSettingBool(Setting, true);
        }
        for (char const *Word : Off) {
            if (StringsAreEqual(Text, Word)) return SetSettingBool(Setting, false);
        }
        Fail(Error, ErrorSize, "\"%s\" is a checkbox: expected on or off, not \"%s\"", Label, Text);
        return false;
    }
    case SettingKind_Number: {
        real32 Value;
        if (!ParseReal(Text, &Value)) {
            Fail(Error, ErrorSize, "\"%s\" is a number: \"%s\" is not one", Label, Text);
            return false;
        }
        if (!SetSettingNumber(Setting, Value)) {
            Fail(Error, ErrorSize, "\"%s\": %s is out of range (%s)", Label, Text, Range);
            return false;
        }
        return true;
    }
    case SettingKind_Slider: {
        int32 Position;
        if (!ParseInteger(Text, &Position)) {
            Fail(Error, ErrorSize, "\"%s\" is a slider: expected a whole position, not \"%s\"", Label, Text);
            return false;
        }
        if (!SetSettingSliderPosition(Setting, Position)) {
            Fail(Error, ErrorSize, "\"%s\": position %s is out of range (%s)", Label, Text, Range);
            return false;
        }
        return true;
    }
    case SettingKind_Combobox: {
        requester *List = Setting->Value.Combobox.List;
        for (requester *Choice = List ? List->FirstChild : nullptr; Choice; Choice = Choice->NextSibling) {
            if (Choice->Label && StringsAreEqual(Choice->Label, Text)) return SetSettingChoice(Setting, Choice->Id);
        }
        int32 Id;
        if (ParseInteger(Text, &Id) && SetSettingChoice(Setting, Id)) return true;
        Fail(Error, ErrorSize, "\"%s\" has no choice \"%s\"; the choices are: %s", Label, Text, Range);
        return false;
    }
    default: Fail(Error, ErrorSize, "\"%s\" holds no value", Label); return false;
    }
}

bool ApplySettingAssignment(settings_node *Root, char const *Assignment, char *Error, int32 ErrorSize)
{
    if (Error && ErrorSize > 0) Error[0] = 0;
    char const *Equals = Assignment ? strchr(Assignment, '=') : nullptr;
    if (!Equals) {
        Fail(Error, ErrorSize, "\"%s\" is not of the form Label=value", Assignment ? Assignment : "");
        return false;
    }
    label_path Path;
    if (!ParseLabelPath(Assignment, (int32)(Equals - Assignment), Path)) {
        Fail(Error, ErrorSize, "\"%s\" names no setting", Assignment);
        return false;
    }
    char Value[MaxSegmentLength];
    TrimInto(Value, sizeof(Value), Equals + 1, (int32)strlen(Equals + 1));

    setting_match Found[4];
    int32 Count = FindByParsedPath(Root, Path, Found, 4);
    char Label[MaxSegmentLength];
    TrimInto(Label, sizeof(Label), Assignment, (int32)(Equals - Assignment));
    if (Count == 0) {
        Fail(Error, ErrorSize, "no setting is labelled \"%s\" (see 'tessel settings')", Label);
        return false;
    }
    if (Count > 1) {
        char First[512], Second[512];
        FormatSettingPath(Found[0].Node, Found[0].Setting, First, sizeof(First));
        FormatSettingPath(Found[1].Node, Found[1].Setting, Second, sizeof(Second));
        Fail(Error, ErrorSize, "\"%s\" is ambiguous; qualify it, e.g. \"%s\" or \"%s\"", Label, First, Second);
        return false;
    }
    return SetSettingFromText(Found[0].Setting, Value, Error, ErrorSize);
}

int32 FormatSettingValue(setting const *Setting, char *Buffer, int32 Size)
{
    if (!Buffer || Size <= 0) return 0;
    Buffer[0] = 0;
    if (!Setting) return 0;
    switch (Setting->Kind) {
    case SettingKind_Checkbox:
        return snprintf(Buffer, (size_t)Size, "%s", Setting->Value.Checkbox.Current ? "on" : "off");
    case SettingKind_Number: return FormatReal(Buffer, Size, Setting->Value.Number.Current);
    case SettingKind_Slider: {
        int32 Position = Setting->Value.Slider.Current;
        int32 Value = GetSettingValueInt(Setting);
        if (Value == Position) return snprintf(Buffer, (size_t)Size, "%d", Position);
        return snprintf(Buffer, (size_t)Size, "%d (%d)", Position, Value);
    }
    case SettingKind_Combobox: {
        requester const *Current = Setting->Value.Combobox.Current;
        return snprintf(Buffer, (size_t)Size, "%s", Current ? Current->Label : "(none)");
    }
    default: return 0;
    }
}

int32 FormatSettingRange(setting const *Setting, char *Buffer, int32 Size)
{
    if (!Buffer || Size <= 0) return 0;
    Buffer[0] = 0;
    if (!Setting) return 0;
    switch (Setting->Kind) {
    case SettingKind_Number: {
        char Low[32], High[32];
        FormatReal(Low, sizeof(Low), Setting->Value.Number.LowerBound);
        FormatReal(High, sizeof(High), Setting->Value.Number.UpperBound);
        return snprintf(Buffer, (size_t)Size, "%s to %s", Low, High);
    }
    case SettingKind_Slider: {
        slider_value const &Slider = Setting->Value.Slider;
        slider_mapping_callback Mapping = Slider.Mapping ? Slider.Mapping : IdentitySliderMapping;
        if (Mapping(Slider.LowerBound) == Slider.LowerBound && Mapping(Slider.UpperBound) == Slider.UpperBound) {
            return snprintf(Buffer, (size_t)Size, "%d to %d", Slider.LowerBound, Slider.UpperBound);
        }
        return snprintf(Buffer, (size_t)Size, "%d to %d (%d to %d)", Slider.LowerBound, Slider.UpperBound,
                        Mapping(Slider.LowerBound), Mapping(Slider.UpperBound));
    }
    case SettingKind_Combobox: {
        int32 Length = 0;
        requester const *List = Setting->Value.Combobox.List;
        for (requester const *Choice = List ? List->FirstChild : nullptr; Choice && Length < Size;
             Choice = Choice->NextSibling) {
            Length += snprintf(Buffer + Length, (size_t)(Size - Length), "%s%s", Length ? " | " : "", Choice->Label);
        }
        return Length < Size ? Length : Size - 1;
    }
    default: return 0;
    }
}
