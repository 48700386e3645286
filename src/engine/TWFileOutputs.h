#pragma once

#include "engine/TWFileReport.h"
#include "engine/TWOutcome.h"

#include "lx/LXResult.h"

#include "model/TWEntry.h"

#include <optional>

class LXAudioFile;
class TWBusyEntry;

// Where the per-file loop's outputs go, and what a cancel takes back. Writers saved in place or as new
// files (TWAction), or files of a format of the action's own (TWActionExport): the loop is the same.
class TWFileOutputs {
public:
    virtual ~TWFileOutputs() = default;
    // Before the file is opened: may this run change it? An in-place run holds each file until it ends,
    // and refuses a file that another run or an undo holds (the error says so).
    virtual LXStatus claim(const QString& path) {
        (void)path;
        return {};
    }
    // Makes output `index` of the opened file through the action's hook and keeps it, appending the entries
    // that show it to results and what it became to the file's report. Unchanged counts as success here,
    // once dealt with. In a dry run nothing is kept: the report says what would be.
    virtual TWOutcome make(LXAudioFile& file, const TWFileEntryPtr& entry, TWBusyEntry& busy, int index,
                           QList<TWFileEntryPtr>& results, TWFileReport& report) = 0;
    // The run was cancelled: what it made goes back (in-place files restored, exports deleted).
    virtual void takeBack() = 0;
    // The run ended otherwise: what undoes it, a step of the undo journal when it replaced files.
    virtual std::optional<qint64> finish() { return std::nullopt; }
};
