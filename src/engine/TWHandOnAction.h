#pragma once

#include "engine/TWAction.h"

// The base of actions that hand files on without changing them (an archive, an upload). The loop
// confirms the instructions (and a chosen folder), and hands the entries on one by one, or all in one
// step; the results are the entries themselves, and nothing is recorded for undo.
class TWHandOnAction : public TWAction {
public:
    std::optional<TWActionError> processEntries(TWRunController& runs, const QList<TWFileEntryPtr>& entries,
                                                const QVariantMap& instructions,
                                                QList<TWFileEntryPtr>& results) final;

protected:
    // The words of an error of this action: "Sending via FTP".
    virtual QString processingPhase() const = 0;
    // One step for all the entries (an archive) rather than one per entry (an upload).
    virtual bool handsOnTogether() const { return false; }
    virtual TWOutcome handOnEntry(const TWFileEntryPtr& entry, const QVariantMap& instructions);
    virtual TWOutcome handOnEntries(const QList<TWFileEntryPtr>& entries, const QVariantMap& instructions);
    // The run under way, from the first hook to postProcess.
    TWActionRun& run() const { return *m_run; }
    // The files an entry stands for: every member of a split set ("take.L", "take.R"), else its path.
    static QStringList filesOf(const TWFileEntry& entry);

private:
    TWActionRun* m_run = nullptr;
};
