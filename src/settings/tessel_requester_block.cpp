// The requester block: a requester's values as little-endian 32-bit words,
// read by id and size so that settings may come and go between releases.
#include <cstring>

#include "foundation/tessel_log.h"
#include "settings/tessel_requester.h"
#include "settings/tessel_settings_words.h"

// ---------------------------------------------------------------------------
// Writing

static int32 SizeOfValue(setting const *Setting)
{
    switch (Setting->Kind) {
    case SettingKind_Checkbox:
    case SettingKind_Number:
    case SettingKind_Slider: return 8;
    case SettingKind_Combobox:
        if (!Setting->Value.Combobox.List) return 4;
        return 8 + SizeOfRequesterBlock(Setting->Value.Combobox.List);
    default: return 0; // spacers (and anything unknown) are not stored
    }
}

static bool IsStored(setting const *Setting)
{
    return SizeOfValue(Setting) > 0;
}

int32 SizeOfRequesterBlock(requester const *Requester)
{
    if (!Requester) return 0;
    int32 Size = 12; // magic, setting count, child count
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (IsStored(Setting)) Size += 8 + SizeOfValue(Setting);
    }
    for (requester const *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        Size += 8 + SizeOfRequesterBlock(Child);
    }
    return Size;
}

static void WriteValue(setting const *Setting, word_writer &Writer)
{
    switch (Setting->Kind) {
    case SettingKind_Checkbox:
        PutWord(Writer, Setting->Overridden ? 1u : 0u);
        PutWord(Writer, Setting->Value.Checkbox.Current ? 1u : 0u);
        break;
    case SettingKind_Number:
        PutFloat(Writer, Setting->Overridden ? 1.0f : 0.0f);
        PutFloat(Writer, Setting->Value.Number.Current);
        break;
    case SettingKind_Slider:
        PutWord(Writer, Setting->Overridden ? 1u : 0u);
        PutWord(Writer, (uint32)Setting->Value.Slider.Current);
        break;
    case SettingKind_Combobox: {
        combobox_value const &Combobox = Setting->Value.Combobox;
        PutWord(Writer, Setting->Overridden ? 1u : 0u);
        if (Combobox.List) {
            PutWord(Writer, Combobox.Current ? (uint32)Combobox.Current->Id : 0u);
            int32 ListSize = SizeOfRequesterBlock(Combobox.List);
            WriteRequesterBlock(Combobox.List, Writer.At, ListSize);
            Writer.At += ListSize;
        }
        break;
    }
    default: break;
    }
}

int32 WriteRequesterBlock(requester const *Requester, uint8 *Buffer, int32 Size)
{
    CheckPointer(Requester, LogCategory_Exporter, 0);
    CheckPointer(Buffer, LogCategory_Exporter, 0);
    int32 Needed = SizeOfRequesterBlock(Requester);
    CheckCondition(Size >= Needed, LogCategory_Exporter, 0);

    word_writer Writer = {Buffer};
    int32 SettingCount = 0;
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (IsStored(Setting)) ++SettingCount;
    }
    PutWord(Writer, (uint32)RequesterBlockMagic);
    PutWord(Writer, (uint32)SettingCount);
    for (setting const *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (!IsStored(Setting)) continue;
        PutWord(Writer, (uint32)Setting->Id);
        PutWord(Writer, (uint32)SizeOfValue(Setting));
        WriteValue(Setting, Writer);
    }

    int32 ChildCount = 0;
    for (requester const *Child = Requester->FirstChild; Child; Child = Child->NextSibling) ++ChildCount;
    PutWord(Writer, (uint32)ChildCount);
    for (requester const *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        int32 ChildSize = SizeOfRequesterBlock(Child);
        PutWord(Writer, (uint32)Child->Id);
        PutWord(Writer, (uint32)ChildSize);
        WriteRequesterBlock(Child, Writer.At, ChildSize);
        Writer.At += ChildSize;
    }
    return (int32)(Writer.At - Buffer);
}

// ---------------------------------------------------------------------------
// Reading

// Checks the framing of one requester block (magic, and that every entry's
// size stays inside the data) and returns its length, or -1. The contents of
// the entries are checked when they are read.
int32 MeasureRequesterBlock(uint8 const *Data, int32 Size)
{
    if (!Data || Size < 0) return -1;
    word_reader Reader = {Data, Data + Size};
    uint32 Magic, Count;
    if (!GetWord(Reader, &Magic) || Magic != (uint32)RequesterBlockMagic) return -1;
    if (!GetWord(Reader, &Count)) return -1;
    for (int32 Pass = 0; Pass < 2; ++Pass) {
        if (Pass == 1 && !GetWord(Reader, &Count)) return -1;
        for (uint32 Index = 0; Index < Count; ++Index) {
            uint32 Id, EntrySize;
            if (!GetWord(Reader, &Id) || !GetWord(Reader, &EntrySize)) return -1;
            if (!SkipBytes(Reader, EntrySize)) return -1;
        }
    }
    return (int32)(Reader.At - Data);
}

static setting *FindOwnSetting(requester *Requester, int32 Id)
{
    if (!Requester) return nullptr;
    for (setting *Setting = Requester->FirstSetting; Setting; Setting = Setting->Next) {
        if (Setting->Id == Id && Setting->Kind != SettingKind_Spacer) return Setting;
    }
    return nullptr;
}

static requester *FindOwnChild(requester *Requester, int32 Id)
{
    if (!Requester) return nullptr;
    for (requester *Child = Requester->FirstChild; Child; Child = Child->NextSibling) {
        if (Child->Id == Id) return Child;
    }
    return nullptr;
}

static thread_local bool StrictRead = false;
static thread_local int32 FlawCount = 0;

void BeginStrictSettingsRead()
{
    StrictRead = true;
    FlawCount = 0;
}

int32 EndStrictSettingsRead()
{
    StrictRead = false;
    return FlawCount;
}

void NoteSettingsFlaw(char const *What, int32 Id)
{
    ++FlawCount;
    if (StrictRead) TesselError(LogCategory_Exporter, "Damaged settings data: %s (id %d)", What, Id);
}

static bool IsFlag(uint32 Word)
{
    return Word == 0 || Word == 1;
}

// Reads one stored value into Setting. A value too short for the setting's
// kind (a kind that changed between releases) is ignored; values outside the
// setting's range are brought into it.
static void ReadValue(setting *Setting, uint8 const *Data, int32 Size)
{
    word_reader Reader = {Data, Data + Size};
    uint32 Overridden, Current;
    switch (Setting->Kind) {
    case SettingKind_Checkbox:
        if (Size != 8) NoteSettingsFlaw("a value of the wrong size", Setting->Id);
        if (Size < 8) return;
        GetWord(Reader, &Overridden);
        GetWord(Reader, &Current);
        if (!IsFlag(Overridden) || !IsFlag(Current))
            NoteSettingsFlaw("a checkbox that is neither 0 nor 1", Setting->Id);
        Setting->Overridden = Overridden ? 1 : 0;
        Setting->Value.Checkbox.Current = Current ? 1 : 0;
        break;
    case SettingKind_Number: {
        if (Size != 8) NoteSettingsFlaw("a value of the wrong size", Setting->Id);
        if (Size < 8) return;
        real32 FloatOverridden, Value;
        GetFloat(Reader, &FloatOverridden);
        GetFloat(Reader, &Value);
        if ((FloatOverridden != 0.0f && FloatOverridden != 1.0f) || Value != Value ||
            Value < Setting->Value.Number.LowerBound || Value > Setting->Value.Number.UpperBound) {
            NoteSettingsFlaw("a number out of its range", Setting->Id);
        }
        // NaN counts as set, like any value that is not 0.0.
        Setting->Overridden = (FloatOverridden != 0.0f) ? 1 : 0;
        number_value &Number = Setting->Value.Number;
        if (Value == Value) {
            if (Value < Number.LowerBound) Value = Number.LowerBound;
            if (Value > Number.UpperBound) Value = Number.UpperBound;
            Number.Current = Value;
        }
        break;
    }
    case SettingKind_Slider: {
        if (Size != 8) NoteSettingsFlaw("a value of the wrong size", Setting->Id);
        if (Size < 8) return;
        GetWord(Reader, &Overridden);
        GetWord(Reader, &Current);
        if (!IsFlag(Overridden) || (int32)Current < Setting->Value.Slider.LowerBound ||
            (int32)Current > Setting->Value.Slider.UpperBound) {
            NoteSettingsFlaw("a slider out of its range", Setting->Id);
        }
        Setting->Overridden = Overridden ? 1 : 0;
        slider_value &Slider = Setting->Value.Slider;
        int32 Position = (int32)Current;
        if (Position < Slider.LowerBound) Position = Slider.LowerBound;
        if (Position > Slider.UpperBound) Position = Slider.UpperBound;
        Slider.Current = Position;
        break;
    }
    case SettingKind_Combobox: {
        combobox_value &Combobox = Setting->Value.Combobox;
        if (Combobox.List ? Size < 8 : Size != 4) NoteSettingsFlaw("a value of the wrong size", Setting->Id);
        if (Size < 4) return;
        GetWord(Reader, &Overridden);
        if (!IsFlag(Overridden)) NoteSettingsFlaw("a choice flag that is neither 0 nor 1", Setting->Id);
        Setting->Overridden = Overridden ? 1 : 0;
        if (!Combobox.List || Size < 8) break;
        GetWord(Reader, &Current);
        if (Current == 0) {
            Combobox.Current = nullptr;
        } else if (requester *Choice = FindChoice(Setting, (int32)Current)) {
            Combobox.Current = Choice;
        } else {
            // a choice this release doesn't know keeps the current one
            NoteSettingsFlaw("an unknown choice", Setting->Id);
        }
        if (Size > 8 && ReadRequesterBlock(Combobox.List, Data + 8, Size - 8) != Size - 8) {
            NoteSettingsFlaw("a damaged list of choices", Setting->Id);
        }
        break;
    }
    default: break;
    }
}

int32 ReadRequesterBlock(requester *Requester, uint8 const *Data, int32 Size)
{
    if (!Data || Size < 0) return -1;
    int32 Length = MeasureRequesterBlock(Data, Size);
    if (Length < 0) {
        TesselError(LogCategory_Exporter, "Corrupted settings data encountered");
        return -1;
    }

    word_reader Reader = {Data, Data + Length};
    uint32 Word = 0, Count = 0, Id = 0, EntrySize = 0;
    GetWord(Reader, &Word);
    GetWord(Reader, &Count);
    for (uint32 Index = 0; Index < Count; ++Index) {
        GetWord(Reader, &Id);
        GetWord(Reader, &EntrySize);
        if (setting *Setting = FindOwnSetting(Requester, (int32)Id)) {
            ReadValue(Setting, Reader.At, (int32)EntrySize);
        } else if (Requester) {
            NoteSettingsFlaw("an unknown setting", (int32)Id);
        }
        SkipBytes(Reader, EntrySize);
    }
    GetWord(Reader, &Count);
    for (uint32 Index = 0; Index < Count; ++Index) {
        GetWord(Reader, &Id);
        GetWord(Reader, &EntrySize);
        if (requester *Child = FindOwnChild(Requester, (int32)Id)) {
            // A broken child is logged and skipped by its size.
            if (ReadRequesterBlock(Child, Reader.At, (int32)EntrySize) != (int32)EntrySize) {
                NoteSettingsFlaw("a damaged group of settings", (int32)Id);
            }
        } else if (Requester) {
            NoteSettingsFlaw("an unknown group of settings", (int32)Id);
        }
        SkipBytes(Reader, EntrySize);
    }
    return Length;
}
