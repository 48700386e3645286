#pragma once

#include "engine/TWAction.h"

// The base of actions that change what describes a file (its name, creator, metadata) and not its audio.
// The loop confirms the instructions, lets the action change each entry in turn and collects, for each
// change, the instructions that set the old value back: undoing the run runs those, which leave the
// instructions that redo it. A cancel sets the changes made so far back at once; a stop keeps them,
// undoable.
class TWDescriptiveAction : public TWAction {
public:
    std::optional<TWActionError> processEntries(TWRunController& runs, const QList<TWFileEntryPtr>& entries,
                                                const QVariantMap& instructions,
                                                QList<TWFileEntryPtr>& results) final;

protected:
    // The words of an error of this action: "Renaming the files".
    virtual QString processingPhase() const { return TWActionPhase::ProcessingFiles; }
    // Changes one entry's file. Appends to undo the instructions that set it back ("source" 3, "class",
    // "paths" and the old value under the action's key) and to results the entries that show the file
    // afterwards (the entry itself, or a new entry for a copy).
    virtual TWOutcome changeEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions,
                                  QVariantList& undo, QList<TWFileEntryPtr>& results) = 0;
};
