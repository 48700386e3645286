// The per-file loop: each file of the entries turns into outputs through the action's hooks, saved in
// place (with undo) or as new files. Every action of this shape shares it, exports included.

#include "engine/TWAction.h"
#include "engine/TWActionRun.h"
#include "engine/TWFileLocks.h"
#include "engine/TWFileOutputs.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWriterSaving.h"

#include "model/TWFileEntry.h"
#include "platform/TWPreferences.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"
#include "lx/LXProcess.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLocale>

const QString kUndoFolderLimit = QStringLiteral("Undo Folder Limit"); // megabytes, 0 for none

// Writers, saved as new files or in place of their source, with the undo journal holding each replaced
// file before it is replaced.
class TWWriterOutputs : public TWFileOutputs {
public:
    explicit TWWriterOutputs(TWActionRun& run)
        : m_run(run), m_keepUndo(run.context().preferences.boolValue(QStringLiteral("Undo Enabled"))) {}

    TWOutcome make(LXAudioFile& file, const TWFileEntryPtr& entry, TWBusyEntry& busy, int index,
                   QList<TWFileEntryPtr>& results, TWFileReport& report) override {
        LXAudioFileWriter writer(file);
        // New files are written where they will stay, so saving is a rename on one file system.
        if (m_run.toNewFile() && !m_run.directory().isEmpty()) writer.setDirectory(m_run.directory());
        writer.setDiscarding(m_run.options().dryRun);
        busy.mark();
        const TWOutcome outcome =
            m_run.action().processAudioFile(file, *entry, m_run.instructions(), writer, index);
        if (!outcome.note().isEmpty()) report.note = outcome.note();
        if (!outcome.lost().isEmpty()) report.lost = outcome.lost();
        switch (outcome.kind()) {
        case TWOutcome::Kind::Continue:
            report.after.merge(writer.levels());
            report.outcome = TWFileReport::Outcome::Changed; // unless the save fails or is given up
            if (m_run.options().dryRun) {
                if (!m_run.toNewFile()) LX_TRY(TWExtension::checkInPlace(file)); // what the real run refuses
                report.outputs.append(m_run.toNewFile() ? m_run.newFilePathFor(writer, *entry)
                                                        : TWExtension::inPlacePath(writer, file));
                results.append(entry); // the next action sees the file as it is
                return TWOutcome::success();
            }
            if (!m_run.toNewFile()) return saveInPlace(writer, file, entry, results, report);
            return keepNew(writer, entry, results, report);
        case TWOutcome::Kind::Unchanged:
            report.after.merge(report.before);
            if (!m_run.toNewFile()) {
                results.append(entry);
                return TWOutcome::success();
            }
            if (m_run.options().dryRun) {
                report.outputs.append(m_run.newFilePathFor(file, *entry));
                results.append(entry);
                return TWOutcome::success();
            }
            return keepCopy(file, entry, results, report);
        case TWOutcome::Kind::Stopped:
        case TWOutcome::Kind::Cancelled:
        case TWOutcome::Kind::Failed:
            writer.deleteOutput();
            return outcome;
        }
        return outcome;
    }

    LXStatus claim(const QString& path) override {
        if (m_run.toNewFile() || m_run.options().dryRun) return {};
        TWUndoJournal& journal = m_run.context().journal;
        if (!m_readied) {
            // An undo or redo killed half-way is finished before any file of it is read again.
            auto finished = journal.finishInterrupted();
            if (!finished)
                return LXError(finished.error().code(),
                               QStringLiteral("left as it was, since an interrupted undo could not be finished "
                                              "(%1); run 'clipwright undo' first")
                                   .arg(finished.error().description()),
                               path);
            m_readied = true;
        }
        if (!m_locks.tryLock(path))
            return LXError(LXErrWriteFailed,
                           QStringLiteral("left as it was: another clipwright run or an undo is changing it now"),
                           path);
        return {};
    }

    void takeBack() override {
        // New files are the run's own: they go (only those it made: a split set's other members may not be).
        for (const QString& made : std::as_const(m_made))
            QFile::remove(made);
        // In the order the files were replaced.
        for (TWSaveInfo& info : m_saves) {
            if (info.undoPaths().isEmpty()) continue; // kept no copy: nothing to put back
            if (info.restorePaths()) m_run.repointEntries(info.formerLeadPath(), info.currentLeadPath());
        }
        if (m_step) m_run.context().journal.discardStep(*m_step);
    }

    std::optional<qint64> finish() override {
        if (m_step) {
            const qint64 megabytes = m_run.context().preferences.value(kUndoFolderLimit).toLongLong();
            const TWUndoJournal::Trim trim = m_run.context().journal.closeStep(*m_step, megabytes << 20);
            if (trim.steps > 0) {
                const QLocale c = QLocale::c();
                const QString size = c.formattedDataSize(trim.bytes, 1);
                m_run.notice((trim.steps == 1 ? QStringLiteral("Dropped the oldest undo step (%1)").arg(size)
                                              : QStringLiteral("Dropped the %1 oldest undo steps (%2)")
                                                    .arg(trim.steps)
                                                    .arg(size)) +
                             QStringLiteral(" to keep the undo folder under %1 (the preference \"%2\").")
                                 .arg(c.formattedDataSize(megabytes << 20, 0), kUndoFolderLimit));
            }
        }
        m_locks.releaseAll();
        return m_saves.isEmpty() ? std::nullopt : m_step;
    }

private:
    // A file not replaced because the journal could not take its record: named with the journal's reason.
    static LXFileError unrecorded(const QString& path, const LXError& why) {
        return LXFileError(QStringLiteral("left as it was, since its undo record could not be kept: %1 (%2)")
                               .arg(why.message(), why.path()),
                           path, why.errnum());
    }

    // The writer saved as a new file, or a copy of an unchanged source; kept with every file it is.
    TWOutcome keepNew(LXAudioFileWriter& writer, const TWFileEntryPtr& entry, QList<TWFileEntryPtr>& results,
                      TWFileReport& report) {
        const LXResult<TWFileEntryPtr> made = m_run.newEntryFromSource(writer, entry);
        QStringList files;
        for (int i = 0; made && i < writer.numberOfFiles(); ++i)
            files.append(writer.savedPath(i));
        return keep(made, files, results, report);
    }
    TWOutcome keepCopy(LXAudioFile& file, const TWFileEntryPtr& entry, QList<TWFileEntryPtr>& results,
                       TWFileReport& report) {
        const LXResult<TWFileEntryPtr> made = m_run.newEntryFromSource(file, entry);
        if (!made) return made.error();
        // A split set's copy took free names for all its members, so the members beside its lead are its own.
        const QString lead = (*made)->path();
        return keep(made, file.isInterleaved() ? QStringList{lead} : LXAudioFile::splitSetMembers(lead), results,
                    report);
    }
    TWOutcome keep(const LXResult<TWFileEntryPtr>& made, const QStringList& files, QList<TWFileEntryPtr>& results,
                   TWFileReport& report) {
        if (!made) return made.error();
        m_made += files;
        results.append(*made);
        report.outputs.append((*made)->path());
        return TWOutcome::success();
    }

    TWOutcome saveInPlace(LXAudioFileWriter& writer, const LXAudioFile& file, const TWFileEntryPtr& entry,
                          QList<TWFileEntryPtr>& results, TWFileReport& report) {
        TWUndoJournal& journal = m_run.context().journal;
        if (m_keepUndo && !m_step) {
            const LXResult<qint64> step = journal.beginStep(m_run.action().name());
            if (!step) {
                writer.deleteOutput();
                return unrecorded(entry->path(), step.error());
            }
            m_step = *step;
        }
        TWExtension::TWCommitHooks hooks;
        hooks.beforeCommit = [&](const TWSaveInfo& info) -> LXStatus {
            if (!m_step) return {};
            if (LXStatus recorded = journal.recordSave(*m_step, info); !recorded)
                return unrecorded(entry->path(), recorded.error());
            return {};
        };
        hooks.abandoned = [&](const TWSaveInfo& info) {
            if (m_step) journal.forgetSave(*m_step, info);
        };
        auto saved = TWExtension::saveInPlaceOf(writer, file, m_keepUndo, m_run.context().interaction, hooks);
        if (!saved) return saved.error();
        results.append(entry);
        if (!saved->has_value()) { // the user gave up the save: nothing changed
            report.outcome = TWFileReport::Outcome::Unchanged;
            return TWOutcome::success();
        }
        const TWSaveInfo& info = **saved;
        // Saved where a symbolic link leads, the entry keeps the link's path.
        if (LXFile::resolvedLinkPath(entry->path()) != info.currentLeadPath())
            entry->setPath(info.currentLeadPath());
        report.outputs.append(entry->path());
        entry->refreshNow();
        m_run.repointEntries(info.formerLeadPath(), info.currentLeadPath());
        m_saves.append(info);
        return TWOutcome::success();
    }

    TWActionRun& m_run;
    const bool m_keepUndo;
    std::optional<qint64> m_step; // the journal's step of this run's in-place saves
    QList<TWSaveInfo> m_saves;
    QStringList m_made; // the new files (each member of a split set), which a cancel removes
    TWFileLocks m_locks; // the files this run changes in place, held until it ends
    bool m_readied = false;
};

std::unique_ptr<TWFileOutputs> TWAction::makeOutputs(TWActionRun& run) {
    return std::make_unique<TWWriterOutputs>(run);
}

namespace {

TWFileReport::Outcome reportedOutcome(TWOutcome::Kind kind) {
    switch (kind) {
    case TWOutcome::Kind::Stopped:
        return TWFileReport::Outcome::Stopped;
    case TWOutcome::Kind::Cancelled:
        return TWFileReport::Outcome::Cancelled;
    default:
        return TWFileReport::Outcome::Failed;
    }
}

} // namespace

std::optional<TWActionError> TWAction::processEntries(TWRunController& runs,
                                                      const QList<TWFileEntryPtr>& entries,
                                                      const QVariantMap& instructions,
                                                      QList<TWFileEntryPtr>& results) {
    TWActionRun run(*this, runs, instructions);
    if (auto error = run.confirm(entries, true)) return error;
    const TWRunOptions options = run.options();
    if (!options.dryRun) run.sweepTemporaryFiles(entries);
    const std::unique_ptr<TWFileOutputs> outputs = makeOutputs(run);

    run.willProcess(entries.size());
    TWOutcome outcome = preProcessWithEntries(entries, instructions);
    for (const TWFileEntryPtr& entry : entries) {
        if (!outcome.goesOn()) break;
        QElapsedTimer clock;
        clock.start();
        TWFileReport report;
        report.input = entry->path();
        const LXStatus claimed = outputs->claim(entry->path());
        auto opened = claimed ? LXAudioFile::open(entry->path())
                              : LXResult<std::unique_ptr<LXAudioFile>>(claimed.error());
        if (!opened) { // a file that cannot be opened (or changed now) gives nothing and ends nothing
            report.outcome = TWFileReport::Outcome::Skipped;
            report.note = opened.error().description();
            run.reportFile(report);
            continue;
        }
        {
            LXAudioFile& file = **opened;
            file.setProgressDelegate(entry.get());
            TWBusyEntry busy(*entry);
            run.willProcessEntry(entry);
            if (options.measureLevels) {
                LXSignalMeter before(file.encoding());
                outcome = LXMeasure(file, before, 0, file.frames(), file.channelSet());
                if (outcome.goesOn()) report.before = before;
            }
            const int count =
                outcome.goesOn() ? numberOfNewEntriesForAudioFile(file, *entry, instructions) : 0;
            for (int index = 0; outcome.goesOn() && index < count; ++index)
                outcome = outputs->make(file, entry, busy, index, results, report);
        }
        run.didProcessEntry(entry);
        if (!outcome.goesOn()) {
            report.outcome = reportedOutcome(outcome.kind());
            report.note = TWActionRun::errorFor(outcome, TWActionPhase::ProcessingFiles)->failureReason();
            if (outcome.kind() == TWOutcome::Kind::Failed && options.keepGoing) {
                report.outcome = TWFileReport::Outcome::Skipped;
                outcome = TWOutcome::success();
            }
        }
        report.seconds = double(clock.nsecsElapsed()) / 1e9;
        run.reportFile(report);
        if (outcome.goesOn()) outcome = run.stopRequested(); // also between files that needed no work
    }

    if (outcome.kind() == TWOutcome::Kind::Cancelled)
        outputs->takeBack(); // nothing to undo and nothing to report
    else
        run.didProcess(results, outputs->finish());
    postProcess();
    return TWActionRun::errorFor(outcome, TWActionPhase::ProcessingFiles);
}
