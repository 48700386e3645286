// The per-file loop: each file of the entries turns into outputs through the action's hooks, saved in
// place (with undo) or as new files. Every action of this shape shares it, exports included.

#include "engine/TWAction.h"
#include "engine/TWActionRun.h"
#include "engine/TWFileOutputs.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWriterSaving.h"

#include "model/TWFileEntry.h"
#include "platform/TWPreferences.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

// Writers, saved as new files or in place of their source, with the undo journal holding each replaced
// file before it is replaced.
class TWWriterOutputs : public TWFileOutputs {
public:
    explicit TWWriterOutputs(TWActionRun& run)
        : m_run(run), m_keepUndo(run.context().preferences.boolValue(QStringLiteral("Undo Enabled"))) {}

    TWOutcome make(LXAudioFile& file, const TWFileEntryPtr& entry, TWBusyEntry& busy, int index,
                   QList<TWFileEntryPtr>& results) override {
        LXAudioFileWriter writer(file);
        // New files are written where they will stay, so saving is a rename on one file system.
        if (m_run.toNewFile() && !m_run.directory().isEmpty()) writer.setDirectory(m_run.directory());
        busy.mark();
        const TWOutcome outcome =
            m_run.action().processAudioFile(file, *entry, m_run.instructions(), writer, index);
        switch (outcome.kind()) {
        case TWOutcome::Kind::Continue:
            return m_run.toNewFile() ? keep(m_run.newEntryFromSource(writer, entry), results)
                                     : saveInPlace(writer, file, entry, results);
        case TWOutcome::Kind::Unchanged:
            if (m_run.toNewFile()) return keep(m_run.newEntryFromSource(file, entry), results);
            results.append(entry);
            return TWOutcome::success();
        case TWOutcome::Kind::Stopped:
        case TWOutcome::Kind::Cancelled:
        case TWOutcome::Kind::Failed:
            writer.deleteOutput();
            return outcome;
        }
        return outcome;
    }

    void takeBack() override {
        // In the order the files were replaced.
        for (TWSaveInfo& info : m_saves) {
            if (info.undoPaths().isEmpty()) continue; // kept no copy: nothing to put back
            if (info.restorePaths()) m_run.repointEntries(info.formerLeadPath(), info.currentLeadPath());
        }
        if (m_step) m_run.context().journal.discardStep(*m_step);
    }

    std::optional<qint64> finish() override {
        if (m_step) m_run.context().journal.closeStep(*m_step);
        return m_saves.isEmpty() ? std::nullopt : m_step;
    }

private:
    static TWOutcome keep(const LXResult<TWFileEntryPtr>& made, QList<TWFileEntryPtr>& results) {
        if (!made) return made.error();
        results.append(*made);
        return TWOutcome::success();
    }

    TWOutcome saveInPlace(LXAudioFileWriter& writer, const LXAudioFile& file, const TWFileEntryPtr& entry,
                          QList<TWFileEntryPtr>& results) {
        TWUndoJournal& journal = m_run.context().journal;
        if (m_keepUndo && !m_step) m_step = journal.beginStep(m_run.action().name());
        const auto beforeCommit = [&](const TWSaveInfo& info) {
            if (m_step) journal.recordSave(*m_step, info);
        };
        auto saved =
            TWExtension::saveInPlaceOf(writer, file, m_keepUndo, m_run.context().interaction, beforeCommit);
        if (!saved) return saved.error();
        results.append(entry);
        if (!saved->has_value()) return TWOutcome::success(); // the user gave up the save: nothing changed
        const TWSaveInfo& info = **saved;
        entry->setPath(info.currentLeadPath());
        entry->refreshNow();
        m_run.repointEntries(info.formerLeadPath(), info.currentLeadPath());
        m_saves.append(info);
        return TWOutcome::success();
    }

    TWActionRun& m_run;
    const bool m_keepUndo;
    std::optional<qint64> m_step; // the journal's step of this run's in-place saves
    QList<TWSaveInfo> m_saves;
};

std::unique_ptr<TWFileOutputs> TWAction::makeOutputs(TWActionRun& run) {
    return std::make_unique<TWWriterOutputs>(run);
}

std::optional<TWActionError> TWAction::processEntries(TWRunController& runs,
                                                      const QList<TWFileEntryPtr>& entries,
                                                      const QVariantMap& instructions,
                                                      QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries, true)) return error;
    run.sweepTemporaryFiles(entries);
    const std::unique_ptr<TWFileOutputs> outputs = makeOutputs(run);

    run.willProcess(entries.size());
    TWOutcome outcome = preProcessWithEntries(entries, instructions);
    for (const TWFileEntryPtr& entry : entries) {
        if (!outcome.goesOn()) break;
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) continue; // a file that cannot be opened gives nothing, silently
        {
            LXAudioFile& file = **opened;
            file.setProgressDelegate(entry.get());
            TWBusyEntry busy(*entry);
            run.willProcessEntry(entry);
            const int count = numberOfNewEntriesForAudioFile(file, *entry, instructions);
            for (int index = 0; outcome.goesOn() && index < count; ++index)
                outcome = outputs->make(file, entry, busy, index, results);
        }
        run.didProcessEntry(entry);
        if (outcome.goesOn()) outcome = run.stopRequested(); // also between files that needed no work
    }

    if (outcome.kind() == TWOutcome::Kind::Cancelled)
        outputs->takeBack(); // nothing to undo and nothing to report
    else
        run.didProcess(results, outputs->finish());
    postProcess();
    return TWActionRun::errorFor(outcome, TWActionPhase::ProcessingFiles);
}
