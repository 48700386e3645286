// The commands that change the file list: add, group, remove, delete, trash, move, copy, repair, refresh
// and rename. Every one runs on the main thread.

#include "model/TWWorkspace.h"

#include "model/TWEntryTransfer.h"
#include "model/TWFileEntry.h"
#include "model/TWFolderEntry.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "model/TWSmartGroupEntry.h"
#include "platform/TWInteraction.h"

#include "lx/LXFile.h"

#include <QDir>
#include <QFileInfo>

QList<TWEntryPtr> TWWorkspace::addFiles(const QStringList& paths, TWEntry* target, qsizetype index) {
    TWEntry* parent = target ? target : m_rootGroup.get();
    if (index < 0 || index > parent->entryCount()) index = parent->entryCount();
    QList<TWEntryPtr> added;
    bool skippedReadOnly = false;
    for (const QString& given : paths) {
        const QString path = LXFile::conformPath(given);
        bool isDirectory = false;
        if (!LXFile::existsAtPath(path, &isDirectory)) continue;
        if (LXFile::isOnReadOnlyFileSystem(path)) { // items there cannot be processed in place
            skippedReadOnly = true;
            continue;
        }
        const QString extension = QFileInfo(path).suffix().toLower();
        TWEntryPtr entry;
        if (isDirectory) {
            entry = TWFolderEntry::create(path);
        } else if (extension == QLatin1String("clipwright")) {
            entry = TWGroupEntry::createWithClipwrightDocument(path);
        } else if (extension == QLatin1String("twwf")) {
            emit workflowFileDropped(path);
            continue;
        } else {
            entry = TWFileEntry::create(path);
        }
        if (!entry) continue;
        parent->insertEntry(entry, index);
        if (parent->indexOfEntry(entry.get()) < 0) continue; // an immutable container takes nothing
        ++index;
        added.append(entry);
    }
    if (target && target != m_rootGroup.get() && !target->isLeaf()) target->setExpanded(true);
    emit entriesReloaded();
    updateFilesTableInfoText();
    if (skippedReadOnly) {
        TWAlert alert;
        alert.style = TWAlertStyle::Informational;
        alert.title = QStringLiteral("Some items were not added to the list.");
        alert.message =
            QStringLiteral("Items cannot be added from a read-only disk, such as a CD. To use these "
                           "items, copy them to your hard drive first.");
        alert.buttons = {TWLocalizedString(QStringLiteral("OK"))};
        TWInteraction::current().runAlert(alert);
    }
    emit analyzeEntriesRequested();
    return added;
}

QList<TWEntryPtr> TWWorkspace::addFilesAfterSelectedEntry(const QStringList& paths) {
    const std::optional<qsizetype> index = indexForEntryAdd();
    if (!index) return {};
    return addFiles(paths, parentForEntryAdd(), *index);
}

std::shared_ptr<TWGroupEntry> TWWorkspace::addFilesToNewGroup(const QStringList& paths) {
    auto group = std::make_shared<TWGroupEntry>();
    m_rootGroup->addEntry(group);
    addFiles(paths, group.get(), 0);
    return group;
}

std::shared_ptr<TWGroupEntry> TWWorkspace::newGroup() {
    const std::optional<qsizetype> index = indexForEntryAdd();
    if (!canAddEntries() || !index) return nullptr;
    TWEntry* parent = parentForEntryAdd();
    auto group = std::make_shared<TWGroupEntry>();
    parent->insertEntry(group, *index);
    parent->setExpanded(true);
    emit entriesReloaded();
    setSelectedEntries({group});
    emit editNameRequested(group.get());
    return group;
}

bool TWWorkspace::newSmartGroup(const std::shared_ptr<TWSmartGroupEntry>& entry) {
    const std::optional<qsizetype> index = indexForEntryAdd();
    if (!entry || !canAddEntries() || !index) return false;
    TWEntry* parent = parentForEntryAdd();
    parent->insertEntry(entry, *index);
    parent->setExpanded(true);
    if (entry->status() == 0.0f) // the panel that confirmed it has not run it
        entry->refreshSmartGroup();
    emit entriesReloaded();
    updateFilesTableInfoText();
    return true;
}

void TWWorkspace::refreshSmartGroup() {
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        if (auto group = std::dynamic_pointer_cast<TWSmartGroupEntry>(entry)) group->refreshSmartGroup();
}

void TWWorkspace::convertToGroup() {
    QList<TWEntryPtr> converted;
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries)) {
        TWEntry* parent = entry->parent();
        if (entry->isLeaf() || !parent || parent->containerIsImmutable()) {
            converted.append(entry);
            continue;
        }
        const qsizetype index = parent->indexOfEntry(entry.get());
        if (index < 0) continue;
        // Out of the tree first, so that the group's adoption of its children is no change to the tree.
        parent->removeEntry(entry.get());
        auto group = TWGroupEntry::createWithEntry(*entry);
        group->setExpanded(entry->isExpanded());
        parent->insertEntry(group, index);
        converted.append(group);
    }
    emit entriesReloaded();
    setSelectedEntries(converted);
}

void TWWorkspace::remove() {
    // Backwards, as a table walks its selected rows: the rows above the current one keep their numbers.
    for (qsizetype i = m_selectedEntries.size() - 1; i >= 0; --i) {
        const TWEntryPtr& entry = m_selectedEntries.at(i);
        TWEntry* parent = entry->parent();
        if (entry->isRemovable() && parent && !parent->containerIsImmutable())
            parent->removeEntry(entry.get());
    }
    emit entriesReloaded();
    clearSelection();
    updateFilesTableInfoText();
}

void TWWorkspace::removeAll() {
    m_rootGroup->removeAllEntries();
    emit entriesReloaded();
    clearSelection();
    updateFilesTableInfoText();
}

bool TWWorkspace::deleteSelected() {
    TWAlert alert;
    alert.style = TWAlertStyle::Critical;
    alert.title = TWLocalizedString(QStringLiteral("Delete Files Alert"));
    alert.message = TWLocalizedString(QStringLiteral("Delete Files Message"));
    alert.buttons = {TWLocalizedString(QStringLiteral("Yes")), TWLocalizedString(QStringLiteral("No"))};
    if (TWInteraction::current().runAlert(alert) != 0) return false;

    emit stopPlaybackRequested();
    const QList<TWEntryPtr> selected = m_selectedEntries;
    // Each parent is told once, after every deletion, however many of its rows went; held, so that a
    // parent that leaves the tree as a deleted row itself is still there to be told.
    QList<TWEntryPtr> parents;
    QStringList failures;
    for (qsizetype i = selected.size() - 1; i >= 0; --i) {
        const TWEntryPtr& entry = selected.at(i);
        // A row whose file is still there stays, so the list never hides a file that exists.
        if (const LXStatus deleted = entry->deleteFiles(); !deleted) {
            failures.append(deleted.error().description());
            continue;
        }
        // Every row that stands for the same file goes; a group (no path) is only itself.
        const QString path = entry->path();
        QList<TWEntryPtr> rows = path.isEmpty() ? QList<TWEntryPtr>() : m_rootGroup->entriesWithPath(path);
        if (!rows.contains(entry)) rows.append(entry);
        for (const TWEntryPtr& row : std::as_const(rows)) {
            const TWEntryPtr parent = row->parent() ? row->parent()->weak_from_this().lock() : nullptr;
            if (!parent) continue;
            parent->removeEntry(row.get()); // a folder keeps its rows: its refresh below drops them
            if (!parents.contains(parent)) parents.append(parent);
        }
    }
    for (const TWEntryPtr& parent : std::as_const(parents)) {
        if (dynamic_cast<TWFolderEntry*>(parent.get())) parent->refresh();
        if (parent != m_rootGroup) emit entryAndChildrenChanged(parent.get());
    }
    if (parents.contains(m_rootGroup)) emit entriesReloaded();
    refreshSmartGroupEntries();
    clearSelection();
    updateFilesTableInfoText();
    if (!failures.isEmpty()) {
        alert.style = TWAlertStyle::Warning;
        alert.title = QStringLiteral("Some items could not be deleted.");
        alert.message = failures.join(u'\n');
        alert.buttons = {TWLocalizedString(QStringLiteral("OK"))};
        TWInteraction::current().runAlert(alert);
    }
    return true;
}

void TWWorkspace::moveToTrash() {
    emit stopPlaybackRequested();
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->moveToTrash();
    clearSelection();
    refreshEntries();
}

void TWWorkspace::moveTo(const QString& directory) {
    emit stopPlaybackRequested();
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->moveToPath(directory);
    refreshEntries();
}

std::shared_ptr<TWGroupEntry> TWWorkspace::copyTo(const QString& directory, bool intoNewGroup) {
    std::shared_ptr<TWGroupEntry> group;
    if (intoNewGroup) {
        group = std::make_shared<TWGroupEntry>();
        group->setName(QStringLiteral("Copied items"));
    }
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->copyToPath(directory, group.get());
    if (group) m_rootGroup->addEntry(group);
    refreshEntries();
    if (group) {
        group->setExpanded(true);
        setSelectedEntries({group});
    }
    return group;
}

void TWWorkspace::openInFinder() {
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->openInFinder();
}

void TWWorkspace::showInFinder() {
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->showInFinder();
}

void TWWorkspace::openWithApplication(const QString& application) {
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries))
        entry->openWithApplication(application);
}

void TWWorkspace::repair() {
    for (const TWEntryPtr& entry : QList<TWEntryPtr>(m_selectedEntries)) {
        entry->repair();
        reloadEntry(entry.get());
    }
    emit analyzeSelectionRequested();
}

void TWWorkspace::analyze() {
    emit analyzeSelectionRequested();
}

void TWWorkspace::refreshEntries() {
    m_rootGroup->refresh();
    emit entriesReloaded();
    updateFilesTableInfoText();
}

void TWWorkspace::refreshSmartGroupEntries() {
    for (const auto& group : m_rootGroup->entriesOfClass<TWSmartGroupEntry>()) {
        group->refreshSmartGroup();
        emit entryAndChildrenChanged(group.get());
    }
}

void TWWorkspace::renameEntry(const TWEntryPtr& entry, const QString& name) {
    if (!entry) return;
    if (dynamic_cast<TWFileEntry*>(entry.get())) {
        if (name == entry->name()) return;
        // Renaming a file is a one-action workflow, so that it can be undone like any other.
        emit renameFileRequested(
            {{QStringLiteral("class"), QStringLiteral("TWActionRenameFromTokens")},
             {QStringLiteral("source"), 1},
             {QStringLiteral("expression"), name},
             {QStringLiteral("destination"), QVariantMap{{QStringLiteral("toNewFile"), false}}}});
        return;
    }
    if (dynamic_cast<TWFolderEntry*>(entry.get())) {
        const QString oldPath = entry->path();
        const QString newPath = QFileInfo(oldPath).dir().filePath(name);
        if (name.isEmpty() || newPath == oldPath) return;
        if (LXFile::existsAtPath(newPath)) {
            TWShowTransferAlert(TWTransfer::Move, TWTransferFailure::Exists, entry->name());
            return;
        }
        if (const LXStatus moved = LXFile::movePath(oldPath, newPath); !moved) {
            TWShowTransferAlert(TWTransfer::Move, TWTransferFailure::Failed, entry->name(), moved.error());
            return;
        }
        for (const TWEntryPtr& same : m_rootGroup->entriesWithPath(oldPath)) {
            same->setPath(newPath);
            emit entryAndChildrenChanged(same.get());
        }
        return;
    }
    entry->setName(name);
    emit entryChanged(entry.get());
}
