// The library's entry: ExportFBXFile (declared in tessel/tessel.h), the
// AnimationDef file and the options the entry hands to the driver.
#pragma once

#include "foundation/tessel_types.h"
#include "exporter/fbx_tessel_export_operations.h"
#include "tessel/tessel.h"

// One named frame range of the timeline.
struct animation_def
{
    char *Name; // heap copy; "Error" (also a heap copy) for a bad entry
    int32 StartFrame;
    int32 EndFrame;
};

// Reads the AnimationDef file: the children named "AnimationDef" (any case)
// of the document's first element, each with the attributes "name", "start"
// and "end" (exact case). An entry that lacks one of them, and every entry
// after it, reads as "Error" with frames 0 and 0. False when the file can't
// be read or holds no AnimationDef. A malformed file raises
// rapidxml::parse_error.
bool ReadAnimationDefFile(char const *Path, animation_def **AnimationDefs, int32 *AnimationDefCount);
// The same over NUL-terminated text in memory, parsed in place; a
// parse_error's where() points into Text.
bool ParseAnimationDefText(char *Text, animation_def **AnimationDefs, int32 *AnimationDefCount);
// After a parse_error: the 1-based line of the place where() points to
// (where() itself holds a copy of the text from there to the end of that
// line, valid until the next malformed file).
int32 GetAnimationDefErrorLine();
// Releases each name, then the array. Accepts a null array.
void FreeAnimationDefs(animation_def *AnimationDefs, int32 AnimationDefCount);

// The leading digits of at most 255 characters of Text as a number; 0 when
// there are none. There are no negative frames.
int32 ParseFrameNumber(char const *Text, int32 Length);

// ExportFBXFile with the driver's options. False when the inputs can't be
// read and nothing ran; Exported, if given, tells whether the output file
// was written (ExportFBXFile's own result). Same exceptions as ExportFBXFile.
bool ExportFBXFileWithOptions(char const *FBXPath, char const *OutputPath, char const *AnimationDefPath,
                              export_options const &Options, ExportProgressCallback ProgressCallback, bool *Exported);
