#pragma once

#include "engine/TWAction.h"

#include "lx/LXResult.h"

// The base of actions that make one new file of all their entries (append, join channels, mix). The loop
// confirms the destination and the instructions, counts the whole run as one step, lets each file that
// can be read give the output what it carries besides its samples (labels, metadata), sets the output up,
// and lets the action write the samples; the one result is a new entry named after the first file. Files
// that cannot be read are left out. Nothing is replaced, so there is nothing to undo; a stop or a cancel
// discards the output.
class TWCombiningAction : public TWAction {
public:
    bool onlyMakesNewFiles() const override { return true; }
    std::optional<TWActionError> processEntries(TWRunController& runs, const QList<TWFileEntryPtr>& entries,
                                                const QVariantMap& instructions,
                                                QList<TWFileEntryPtr>& results) final;

protected:
    // The words of an error of this action: "Appending the files".
    virtual QString processingPhase() const = 0;
    // What one input gives the output besides its samples, in entry order.
    virtual void gatherFromAudioFile(LXAudioFile& file, const TWFileEntry& entry, LXAudioFileWriter& writer);
    // The output's format, rate, depth and channels, from the inputs that can be read (their entries'
    // properties), after gathering and before any sample is written.
    virtual void setUpWriter(const QList<TWFileEntryPtr>& inputs, LXAudioFileWriter& writer) = 0;
    // Writes the output's samples from the inputs (open them with openInput).
    virtual TWOutcome combine(const QList<TWFileEntryPtr>& inputs, const QVariantMap& instructions,
                              LXAudioFileWriter& writer) = 0;
    // An input's file, with its entry answering the file's progress reports.
    static LXResult<std::unique_ptr<LXAudioFile>> openInput(const TWFileEntryPtr& entry);
};
