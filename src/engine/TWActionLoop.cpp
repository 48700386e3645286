// The processing loop that carries one action over its entries, and the notifications it sends to the
// workspace.

#include "engine/TWAction.h"
#include "engine/TWHandOver.h"
#include "engine/TWSaveInfo.h"
#include "engine/TWUndoJournal.h"
#include "engine/TWWriterSaving.h"

#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"

#include <QFileInfo>
#include <QSet>

namespace {

const QString kDestination = QStringLiteral("destination");

// The work thread never waits for the main thread: workspace changes are handed over and run later.
void onMainThread(std::function<void()> work) {
    if (TWAction::isInMainThread())
        work();
    else
        TWHandOver(&TWWorkspace::workspace(), std::move(work));
}

QString directoryOf(const QString& path) {
    return QFileInfo(path).path();
}

TWActionError failure(int32_t code, const QString& phase, const std::optional<LXError>& cause = {}) {
    return cause ? TWActionError::errorWithCode(code, phase, *cause)
                 : TWActionError::errorWithCode(code, phase);
}

} // namespace

void TWRepointEntries(const QString& from, const QString& to) {
    onMainThread([from, to] {
        TWWorkspace& workspace = TWWorkspace::workspace();
        for (const TWEntryPtr& entry : workspace.rootGroup()->entriesWithPath(from)) {
            entry->setPath(to);
            entry->refresh();
            workspace.reloadEntry(entry.get());
        }
    });
}

std::optional<TWActionError> TWAction::processEntries(const QList<TWFileEntryPtr>& entries,
                                                      const QVariantMap& instructions,
                                                      QList<TWFileEntryPtr>& results) {
    const QVariantMap destination = instructions.value(kDestination).toMap();
    const QString directory = destination.value(QStringLiteral("directory")).toString();
    const bool toNewFile = onlyMakesNewFiles() || destination.value(QStringLiteral("toNewFile")).toBool();

    if (directory.isEmpty()) {
        for (const TWFileEntryPtr& entry : entries)
            if (!LXFile::isWritableDirectory(directoryOf(entry->path())))
                return failure(LXReadOnlyDestination, TWActionPhase::ConfirmingDestination);
    } else {
        bool isDirectory = false;
        if (!LXFile::existsAtPath(directory, &isDirectory) || !isDirectory)
            return failure(LXMissingDestination, TWActionPhase::ConfirmingDestination);
    }
    if (!requiredInstructionKeysExist(instructions))
        return failure(LXMissingInstructions, TWActionPhase::ConfirmingInstructions);

    // What a killed run left behind in the folders this run writes to goes now.
    QSet<QString> folders;
    for (const TWFileEntryPtr& entry : entries)
        folders.insert(directoryOf(entry->path()));
    if (!directory.isEmpty()) folders.insert(directory);
    for (const QString& folder : folders)
        LXAudioFileWriter::removeAbandonedTemporaryFiles(folder);

    const bool keepUndo = TWPreferences::shared().boolValue(QStringLiteral("Undo Enabled"));
    TWUndoJournal& journal = TWUndoJournal::shared();
    m_journalStep.reset();
    QList<TWSaveInfo> undoList;
    std::optional<LXError> cause;

    notifyWillProcessWithAction(entries.size());
    int32_t code = preProcessWithEntries(entries, instructions);

    for (const TWFileEntryPtr& entry : entries) {
        if (code != LXContinue) break;
        auto opened = LXAudioFile::open(entry->path());
        if (!opened) continue; // a file that cannot be opened gives nothing, silently
        LXAudioFile& file = **opened;
        file.setProgressDelegate(entry.get());
        entry->pushStatus(TWStatus::Processing);
        notifyWillProcessEntry(entry);

        const int outputs = numberOfNewEntriesForAudioFile(file, *entry, instructions);
        for (int index = 0; code == LXContinue && index < outputs; ++index) {
            LXAudioFileWriter writer(file);
            // New files are written where they will stay, so saving is a rename on one file system.
            if (toNewFile && !directory.isEmpty()) writer.setDirectory(directory);
            entry->setStatus(TWStatus::Processing);
            code = processAudioFile(file, *entry, instructions, writer, index);

            if (code == LXContinue && toNewFile) {
                TWFileEntryPtr made = newEntryFromSource(writer, entry, destination, cause);
                if (!made) {
                    code = cause->code();
                    break;
                }
                results.append(made);
                if (index + 1 == outputs) entry->popStatus();
            } else if (code == LXContinue) {
                if (keepUndo && !m_journalStep) m_journalStep = journal.beginStep(name());
                const auto beforeCommit = [&](const TWSaveInfo& info) {
                    if (m_journalStep) journal.recordSave(*m_journalStep, info);
                };
                auto saved = TWExtension::saveInPlaceOf(writer, file, keepUndo, beforeCommit);
                if (!saved) {
                    cause = saved.error();
                    code = cause->code();
                    break;
                }
                if (!saved->has_value()) {
                    // The user gave up the save: the entry keeps its file and its path.
                    entry->popStatus();
                    results.append(entry);
                    continue;
                }
                const TWSaveInfo& info = **saved;
                entry->setPath(info.currentLeadPath());
                entry->refreshNow();
                TWRepointEntries(info.formerLeadPath(), info.currentLeadPath());
                results.append(entry);
                undoList.append(info);
            } else if (code == LXUnchanged && toNewFile) {
                code = LXContinue;
                TWFileEntryPtr copy = newEntryFromSource(file, entry, destination, cause);
                if (!copy) {
                    code = cause->code();
                    break;
                }
                results.append(copy);
                entry->popStatus();
            } else if (code == LXUnchanged) {
                entry->popStatus();
                results.append(entry);
                code = LXContinue;
            } else if (code == LXStopped || code == LXCancelled) {
                writer.deleteOutput();
                entry->popStatus();
            } else if (file.lastError() && file.lastError()->code() == code) {
                cause = file.lastError();
            }
        }
        notifyDidProcessEntry(entry);
    }

    if (code == LXCancelled) {
        // A cancel puts back every file this action replaced, in the order they were replaced.
        for (TWSaveInfo& info : undoList) {
            if (info.undoPaths().isEmpty()) continue; // kept no copy: nothing to put back
            if (const LXStatus restored = info.restorePaths(); !restored) {
                cause = restored.error();
                continue;
            }
            TWRepointEntries(info.formerLeadPath(), info.currentLeadPath());
        }
        if (m_journalStep) journal.discardStep(*m_journalStep);
    } else {
        if (m_journalStep) journal.closeStep(*m_journalStep);
        notifyDidProcessWithAction(undoList, results, QStringLiteral("undoProcess:"));
    }
    postProcess();
    if (code != LXContinue) return failure(code, TWActionPhase::ProcessingFiles, cause);
    return std::nullopt;
}

// New files ---------------------------------------------------------------------------------------------

TWFileEntryPtr TWAction::newEntryFromSource(LXAudioFileWriter& writer, const TWFileEntryPtr& entry,
                                            const QVariantMap& destination, std::optional<LXError>& error) {
    QString directory = destination.value(QStringLiteral("directory")).toString();
    if (directory.isEmpty()) directory = directoryOf(entry->path());
    const QString proposed = directory + u'/' + QFileInfo(entry->path()).fileName();
    auto saved = TWExtension::saveNewFileToPath(writer, proposed, forceCounting());
    if (!saved) {
        error = saved.error();
        return nullptr;
    }
    return adoptNewFile(*saved, entry, destination);
}

TWFileEntryPtr TWAction::newEntryFromSource(LXAudioFile& file, const TWFileEntryPtr& entry,
                                            const QVariantMap& destination, std::optional<LXError>& error) {
    QString directory = destination.value(QStringLiteral("directory")).toString();
    if (directory.isEmpty()) directory = directoryOf(entry->path());
    auto copied = file.duplicateToPath(directory + u'/' + QFileInfo(entry->path()).fileName());
    if (!copied) {
        error = copied.error();
        return nullptr;
    }
    return adoptNewFile(*copied, entry, destination);
}

TWFileEntryPtr TWAction::adoptNewFile(const QString& path, const TWFileEntryPtr& source,
                                      const QVariantMap& destination) {
    TWFileEntryPtr made = TWFileEntry::create(path);
    if (!made) {
        made = std::make_shared<TWFileEntry>();
        made->setPath(path);
    }
    if (!destination.value(QStringLiteral("addToList"), true).toBool()) return made;

    // The tree belongs to the main thread: the new entry joins it there, after its source.
    TWEntry* parent = source->parent();
    std::weak_ptr<TWEntry> weakParent = parent ? parent->weak_from_this() : std::weak_ptr<TWEntry>();
    std::weak_ptr<TWFileEntry> weakSource = source;
    const QString directory = directoryOf(path);
    onMainThread([weakParent, weakSource, made, directory] {
        TWWorkspace& workspace = TWWorkspace::workspace();
        const TWEntryPtr container = weakParent.lock();
        const TWFileEntryPtr from = weakSource.lock();
        if (container && from && !container->containerIsImmutable()) {
            container->insertEntry(made, container->indexOfEntry(from.get()) + 1);
            workspace.reloadEntryAndChildren(container.get());
        }
        for (const TWEntryPtr& folder : workspace.rootGroup()->entriesWithPath(directory)) {
            folder->refresh();
            workspace.reloadEntryAndChildren(folder.get());
        }
    });
    return made;
}

// Notifications -----------------------------------------------------------------------------------------

void TWAction::notifyWillProcessWithAction(qsizetype count) {
    const QVariantMap info{{QStringLiteral("title"), verb()}, {QStringLiteral("maximum"), qint64(count)}};
    onMainThread([info] { TWWorkspace::workspace().willProcessWithAction(info); });
}

void TWAction::notifyWillProcessEntry(const TWFileEntryPtr& entry) {
    onMainThread([entry] { TWWorkspace::workspace().willProcessEntry(entry); });
}

void TWAction::notifyDidProcessEntry(const TWFileEntryPtr& entry) {
    onMainThread([entry] { TWWorkspace::workspace().didProcessEntry(entry); });
}

void TWAction::notifyDidProcessWithAction(const QList<TWSaveInfo>& undoList,
                                          const QList<TWFileEntryPtr>& results, const QString& undoSelector) {
    QStringList paths;
    for (const TWFileEntryPtr& entry : results)
        entry->addFileEntryPathsToArray(paths);
    QVariantMap info{{QStringLiteral("actionName"), name()}, {QStringLiteral("results"), paths}};
    if (!undoList.isEmpty() && m_journalStep) {
        info.insert(QStringLiteral("undoStep"), *m_journalStep);
        info.insert(QStringLiteral("undoSelector"), undoSelector);
    }
    onMainThread([info] { TWWorkspace::workspace().didProcessWithAction(info); });
}
