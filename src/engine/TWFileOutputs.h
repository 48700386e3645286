#pragma once

#include "engine/TWFileReport.h"
#include "engine/TWOutcome.h"

#include "lx/LXResult.h"

#include "model/TWEntry.h"

#include <memory>
#include <optional>

class LXAudioFile;
class TWBusyEntry;
class TWFileEntry;

// An output the action made that is not kept yet: a writer, or an export's temporary file. Dropped
// unkept, it deletes what it holds.
class TWMadeOutput {
public:
    virtual ~TWMadeOutput() = default;
};

// What making one output gave: the action's outcome, and when it goes on or leaves the file unchanged,
// the output to keep (none in a dry run of an export, which writes nothing).
struct TWMade {
    TWOutcome outcome;
    std::unique_ptr<TWMadeOutput> output;
};

// Where the per-file loop's outputs go, and what a cancel takes back. Writers saved in place or as new
// files (TWAction), or files of a format of the action's own (TWActionExport): the loop is the same.
//
// Making and keeping are apart so that the heavy part can run for two files at once: make() may run on
// any thread and touches nothing of the outputs' own; keep(), claim(), takeBack() and finish() run on the
// loop's thread, one file at a time, in the entries' order.
class TWFileOutputs {
public:
    virtual ~TWFileOutputs() = default;
    // Before the file is opened: may this run change it? An in-place run holds each file until it ends,
    // and refuses a file that another run or an undo holds (the error says so).
    virtual LXStatus claim(const QString& path) {
        (void)path;
        return {};
    }
    // Makes output `index` of the opened file through the action's hook, noting in the report what the
    // action said of it. Nothing is kept yet.
    virtual TWMade make(LXAudioFile& file, TWFileEntry& entry, TWBusyEntry& busy, int index,
                        TWFileReport& report) = 0;
    // Keeps what make() made, appending the entries that show it to results and what it became to the
    // report. Unchanged counts as success here, once dealt with. In a dry run nothing is kept: the report
    // says what would be.
    virtual TWOutcome keep(LXAudioFile& file, const TWFileEntryPtr& entry, TWMade& made,
                           QList<TWFileEntryPtr>& results, TWFileReport& report) = 0;
    // The run was cancelled: what it kept goes back (in-place files restored, exports deleted).
    virtual void takeBack() = 0;
    // The run ended otherwise: what undoes it, a step of the undo journal when it replaced files.
    virtual std::optional<qint64> finish() { return std::nullopt; }
};
