#include "engine/TWActionRun.h"

#include "engine/TWAction.h"
#include "engine/TWCommonKeys.h"
#include "engine/TWWriterSaving.h"

#include "model/TWFileEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWHandOver.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"

#include <QFileInfo>
#include <QSet>

namespace {

QString folderOf(const QString& path) {
    return QFileInfo(path).path();
}

} // namespace

TWActionRun::TWActionRun(TWAction& action, TWRunController& runs, const QVariantMap& instructions)
    : m_action(action), m_runs(runs), m_instructions(instructions),
      m_destination(TWKeys::destination(instructions)), m_directory(TWKeys::directory(m_destination)),
      // An action that only changes files in place never makes new ones, whatever the destination says.
      m_toNewFile(!action.onlyInPlace() && (action.onlyMakesNewFiles() || TWKeys::toNewFile(m_destination))) {}

QString TWActionRun::folderFor(const TWFileEntry& entry) const {
    return m_directory.isEmpty() ? folderOf(entry.path()) : m_directory;
}

// Confirmations
// ----------------------------------------------------------------------------------------------

std::optional<TWActionError> TWActionRun::confirm(const QList<TWFileEntryPtr>& entries,
                                                  bool checkSources) const {
    if (!m_directory.isEmpty()) {
        bool isDirectory = false;
        if (!LXFile::existsAtPath(m_directory, &isDirectory) || !isDirectory)
            return TWActionError::errorWithCode(LXMissingDestination, TWActionPhase::ConfirmingDestination);
    } else if (checkSources) {
        for (const TWFileEntryPtr& entry : entries)
            if (const LXStatus writable = LXFile::canWriteInDirectory(folderOf(entry->path())); !writable) {
                // The general reason, then the folder and the system's own (no permission, a read-only disk).
                const LXError cause(LXReadOnlyDestination,
                                    TWActionError::failureReasonForError(LXReadOnlyDestination) + u' ' +
                                        writable.error().description());
                return TWActionError::errorWithCode(LXReadOnlyDestination,
                                                    TWActionPhase::ConfirmingDestination, cause);
            }
    }
    if (!m_action.requiredInstructionKeysExist(m_instructions))
        return TWActionError::errorWithCode(LXMissingInstructions, TWActionPhase::ConfirmingInstructions);
    return std::nullopt;
}

void TWActionRun::sweepTemporaryFiles(const QList<TWFileEntryPtr>& entries) const {
    QSet<QString> folders;
    for (const TWFileEntryPtr& entry : entries)
        folders.insert(folderOf(entry->path()));
    if (!m_directory.isEmpty()) folders.insert(m_directory);
    for (const QString& folder : std::as_const(folders))
        LXAudioFileWriter::removeAbandonedTemporaryFiles(folder);
}

// Reports
// ------------------------------------------------------------------------------------------------------

void TWActionRun::willProcess(qsizetype steps) {
    m_runs.willProcessWithAction({m_action.verb(), steps});
}

void TWActionRun::willProcessEntry(const TWFileEntryPtr& entry) {
    m_runs.willProcessEntry(entry);
}

void TWActionRun::didProcessEntry(const TWFileEntryPtr& entry) {
    m_runs.didProcessEntry(entry);
}

void TWActionRun::didProcess(const QList<TWFileEntryPtr>& results, std::optional<qint64> undoStep,
                             const QVariantList& undoInstructions, bool putBack) {
    TWActionEnded ended;
    ended.actionName = m_action.name();
    for (const TWFileEntryPtr& entry : results)
        entry->addFileEntryPathsToArray(ended.results);
    ended.undoStep = undoStep;
    ended.undoInstructions = undoInstructions;
    ended.putBack = putBack;
    m_runs.didProcessWithAction(ended);
}

void TWActionRun::reportFile(TWFileReport report) {
    report.actionName = m_action.name();
    report.dryRun = options().dryRun;
    m_runs.reportFile(report);
}

void TWActionRun::notice(const QString& text) {
    m_runs.notice(text);
}

void TWActionRun::reportUntried(const QList<TWFileEntryPtr>& entries, QList<TWFileEntryPtr>& results) {
    for (const TWFileEntryPtr& entry : entries) {
        TWFileReport report;
        report.input = entry->path();
        report.outcome = TWFileReport::Outcome::Untried;
        reportFile(report);
    }
    results.append(entries);
}

TWOutcome TWActionRun::stopRequested() const {
    return TWOutcome::fromCode(m_runs.stopCode());
}

std::optional<TWActionError> TWActionRun::errorFor(const TWOutcome& outcome, const QString& phase) {
    if (outcome.goesOn() || outcome.kind() == TWOutcome::Kind::Unchanged) return std::nullopt;
    if (outcome.reason()) return TWActionError::errorWithCode(outcome.code(), phase, *outcome.reason());
    return TWActionError::errorWithCode(outcome.code(), phase);
}

// New files
// ----------------------------------------------------------------------------------------------------

void TWActionRun::onMainThread(std::function<void()> work) const {
    if (TWAction::isInMainThread())
        work();
    else
        TWHandOver(&context().workspace, std::move(work));
}

QString TWActionRun::proposedPathFor(const TWFileEntry& entry) const {
    return folderFor(entry) + u'/' + QFileInfo(entry.path()).fileName();
}

LXResult<TWFileEntryPtr> TWActionRun::newEntryFromSource(LXAudioFileWriter& writer,
                                                         const TWFileEntryPtr& entry) {
    auto saved = TWExtension::saveNewFileToPath(writer, proposedPathFor(*entry), m_action.forceCounting(),
                                                {entry->path()});
    if (!saved) return saved.error();
    return adoptNewFile(*saved, entry);
}

LXResult<TWFileEntryPtr> TWActionRun::newEntryFromSource(LXAudioFile& file, const TWFileEntryPtr& entry) {
    auto copied = file.duplicateToPath(proposedPathFor(*entry));
    if (!copied) return copied.error();
    return adoptNewFile(*copied, entry);
}

QString TWActionRun::newFilePathFor(const LXAudioFileWriter& writer, const TWFileEntry& entry) const {
    return TWExtension::newFilePath(writer, proposedPathFor(entry), m_action.forceCounting());
}

QString TWActionRun::newFilePathFor(const LXAudioFile& file, const TWFileEntry& entry) const {
    return file.duplicatePaths(proposedPathFor(entry)).value(0);
}

TWFileEntryPtr TWActionRun::adoptNewFile(const QString& path, const TWFileEntryPtr& source) {
    TWFileEntryPtr made = TWFileEntry::create(path);
    if (!made) {
        made = std::make_shared<TWFileEntry>();
        made->setPath(path);
    }
    if (!TWKeys::addToList(m_destination)) return made;

    // The tree belongs to the main thread: the new entry joins it there, after its source.
    TWEntry* parent = source->parent();
    std::weak_ptr<TWEntry> weakParent = parent ? parent->weak_from_this() : std::weak_ptr<TWEntry>();
    std::weak_ptr<TWFileEntry> weakSource = source;
    const QString directory = folderOf(path);
    TWWorkspace* workspace = &context().workspace;
    onMainThread([workspace, weakParent, weakSource, made, directory] {
        const TWEntryPtr container = weakParent.lock();
        const TWFileEntryPtr from = weakSource.lock();
        if (container && from && !container->containerIsImmutable()) {
            container->insertEntry(made, container->indexOfEntry(from.get()) + 1);
            workspace->reloadEntryAndChildren(container.get());
        }
        for (const TWEntryPtr& folder : workspace->rootGroup()->entriesWithPath(directory)) {
            folder->refresh();
            workspace->reloadEntryAndChildren(folder.get());
        }
    });
    return made;
}

void TWActionRun::repointEntries(const QString& from, const QString& to) {
    TWWorkspace* workspace = &context().workspace;
    onMainThread([workspace, from, to] {
        for (const TWEntryPtr& entry : workspace->rootGroup()->entriesWithPath(from)) {
            entry->setPath(to);
            entry->refresh();
            workspace->reloadEntry(entry.get());
        }
    });
}
