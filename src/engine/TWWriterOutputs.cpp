// The per-file loop's outputs of most actions: writers, saved in place (with undo) or as new files.

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

    TWMade make(LXAudioFile& file, TWFileEntry& entry, TWBusyEntry& busy, int index,
                TWFileReport& report) override {
        auto writer = std::make_unique<LXAudioFileWriter>(file);
        // New files are written where they will stay, so saving is a rename on one file system.
        if (m_run.toNewFile() && !m_run.directory().isEmpty()) writer->setDirectory(m_run.directory());
        writer->setDiscarding(m_run.options().dryRun);
        busy.mark();
        const TWOutcome outcome = m_run.action().processAudioFile(file, entry, m_run.instructions(), *writer, index);
        if (!outcome.note().isEmpty()) report.note = outcome.note();
        if (!outcome.lost().isEmpty()) report.lost = outcome.lost();
        if (outcome.goesOn()) report.after.merge(writer->levels());
        if (!outcome.goesOn() && outcome.kind() != TWOutcome::Kind::Unchanged) {
            writer->deleteOutput();
            return {outcome, nullptr};
        }
        return {outcome, std::make_unique<MadeWriter>(std::move(writer))};
    }

    TWOutcome keep(LXAudioFile& file, const TWFileEntryPtr& entry, TWMade& made, QList<TWFileEntryPtr>& results,
                   TWFileReport& report) override {
        LXAudioFileWriter& writer = *static_cast<MadeWriter&>(*made.output).writer;
        if (made.outcome.kind() == TWOutcome::Kind::Unchanged) {
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
        }
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
    struct MadeWriter : TWMadeOutput {
        explicit MadeWriter(std::unique_ptr<LXAudioFileWriter> made) : writer(std::move(made)) {}
        std::unique_ptr<LXAudioFileWriter> writer; // its temporary files go with it unless saved
    };

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
