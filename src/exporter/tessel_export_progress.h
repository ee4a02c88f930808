// Progress reporting: the record a host sees through its callback.
#pragma once

#include "foundation/tessel_types.h"
#include "tessel/tessel.h"

// Makes a zeroed record and stores Callback in the library's one callback
// slot. The record is made even when Callback is null.
export_progress *BeginProgress(ExportProgressCallback Callback);
// Releases the record and clears the callback slot.
void EndProgress(export_progress *Progress);

// Every operation below does nothing on a null record and ends by reporting
// a copy of the record to the callback. Strings are only pointed to.
void SetProgressTitle(export_progress *Progress, char const *Title);
void SetProgressStage(export_progress *Progress, char const *Stage);
// Sets Total and puts Position back to 0.
void SetProgressTotal(export_progress *Progress, int32 Total);
// Advances Position by one; a null Item reads "(unnamed)".
void StepProgress(export_progress *Progress, char const *Item);
// Raises Total by More, keeping Position.
void AddProgressTotal(export_progress *Progress, int32 More);
// Moves Position forward to Position (never back), reporting only a change.
void AdvanceProgressTo(export_progress *Progress, uint32 Position);
// Reports, then tells whether Abort is still 0. True for a null record.
bool KeepExporting(export_progress *Progress);
// -1 for a null record.
int32 GetProgressPosition(export_progress const *Progress);
