#include "exporter/tessel_export_progress.h"

#include <cstring>

#include "foundation/tessel_memory.h"

static_assert(sizeof(export_progress) == 40, "export_progress crosses the library boundary with a fixed layout");

// One slot for the whole library: one export at a time.
static ExportProgressCallback ProgressCallback = 0;

// Text log of the steps (four spaces, the item, CR LF). It has no sink in
// this library.
static void WriteProgressLog(char const *Text) {}

static void ReportProgress(export_progress *Progress)
{
    if (Progress && ProgressCallback) {
        // The host gets a copy, so nothing it writes reaches the export.
        export_progress Copy;
        memcpy(&Copy, Progress, sizeof(Copy));
        ProgressCallback(&Copy);
    }
}

export_progress *BeginProgress(ExportProgressCallback Callback)
{
    export_progress *Progress = (export_progress *)TesselAllocate(sizeof(export_progress));
    if (Progress) memset(Progress, 0, sizeof(*Progress));
    ProgressCallback = Callback;
    return Progress;
}

void EndProgress(export_progress *Progress)
{
    ProgressCallback = 0;
    if (Progress) TesselFree(Progress);
}

void SetProgressTitle(export_progress *Progress, char const *Title)
{
    if (!Progress) return;
    Progress->Title = Title;
    ReportProgress(Progress);
}

void SetProgressStage(export_progress *Progress, char const *Stage)
{
    if (!Progress) return;
    Progress->Stage = Stage;
    WriteProgressLog(Stage);
    ReportProgress(Progress);
}

void SetProgressTotal(export_progress *Progress, int32 Total)
{
    if (!Progress) return;
    Progress->Total = (uint32)Total;
    Progress->Position = 0;
    ReportProgress(Progress);
}

void StepProgress(export_progress *Progress, char const *Item)
{
    if (!Progress) return;
    if (!Item) Item = "(unnamed)";
    ++Progress->Position;
    Progress->Item = Item;
    WriteProgressLog(Item);
    ReportProgress(Progress);
}

void AddProgressTotal(export_progress *Progress, int32 More)
{
    if (!Progress || More <= 0) return;
    Progress->Total += (uint32)More;
    ReportProgress(Progress);
}

void AdvanceProgressTo(export_progress *Progress, uint32 Position)
{
    if (!Progress || Position <= Progress->Position) return;
    Progress->Position = Position;
    ReportProgress(Progress);
}

bool KeepExporting(export_progress *Progress)
{
    if (!Progress) return true;
    ReportProgress(Progress);
    return Progress->Abort == 0;
}

int32 GetProgressPosition(export_progress const *Progress)
{
    return Progress ? (int32)Progress->Position : -1;
}
