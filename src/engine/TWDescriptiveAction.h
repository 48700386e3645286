#pragma once

#include "engine/TWAction.h"

class LXMetadata;

// The base of actions that change what describes a file (its name, creator, metadata) and not its audio.
// The loop confirms the instructions, lets the action change each entry in turn, reports what became of
// each file and collects, for each change, the instructions that set the old value back: undoing the run
// runs those, which leave the instructions that redo it. A cancel sets the changes made so far back at
// once; a stop keeps them, undoable.
class TWDescriptiveAction : public TWAction {
public:
    std::optional<TWActionError> processEntries(TWRunController& runs, const QList<TWFileEntryPtr>& entries,
                                                const QVariantMap& instructions,
                                                QList<TWFileEntryPtr>& results) final;

protected:
    // The words of an error of this action: "Renaming the files".
    virtual QString processingPhase() const { return TWActionPhase::ProcessingFiles; }
    // Whether a file the hook fails on is skipped, with its reason, and the run goes on with the next one
    // (as with --keep-going); otherwise the failure ends the run.
    virtual bool skipsFailedFiles() const { return false; }
    // Changes one entry's file. Appends to undo the instructions that set it back ("source" 3, "class",
    // "paths" and the old value under the action's key) and to results the entries that show the file
    // afterwards (the entry itself, or a new entry for a copy). Unchanged goes on with the next entry.
    virtual TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions,
                                  QVariantList& undo, QList<TWFileEntryPtr>& results) = 0;

    // What changeEntry answers for a file it cannot read: the file is skipped, as the per-file loop skips
    // it, and the run goes on.
    TWOutcome skip(const LXError& why);
    // The run going on, while changeEntry is called.
    TWActionRun& run() const { return *m_run; }
    // Replaces the file with one whose metadata is `metadata` and whose audio is untouched (samples copied
    // exactly, or a compressed file copied byte for byte with new tags), keeping the file's permissions,
    // owner, attributes and links, and shows the change in every entry of the file. Fails, naming the
    // file, when its format has no place for a key that changes or another run is changing it.
    TWOutcome saveMetadata(LXAudioFile& file, const LXMetadata& metadata);

private:
    TWActionRun* m_run = nullptr;
    std::optional<LXError> m_skipped; // why the entry being changed was skipped
};
