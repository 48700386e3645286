// The workspace's model: the tree, the selection, the stop code, redisplay requests and persistence. The
// commands that change the file list are in TWWorkspaceFiles.cpp.

#include "model/TWWorkspace.h"

#include "model/TWAddPosition.h"
#include "model/TWDragAndDrop.h"
#include "model/TWFileEntry.h"
#include "model/TWFormatters.h"
#include "model/TWGroupEntry.h"
#include "model/TWLocalizedStrings.h"
#include "platform/TWEntriesStore.h"
#include "platform/TWHandOver.h"
#include "platform/TWPreferences.h"

#include "lx/LXAudioFile.h"

#include <QCoreApplication>
#include <QThread>

TWWorkspace& TWWorkspace::workspace() {
    // Never destroyed: entries and queries may still be referred to while the program exits.
    static TWWorkspace* const instance = [] {
        auto* workspace = new TWWorkspace;
        if (QCoreApplication* app = QCoreApplication::instance()) workspace->moveToThread(app->thread());
        return workspace;
    }();
    return *instance;
}

TWWorkspace::TWWorkspace()
    : m_rootGroup(std::make_shared<TWGroupEntry>()), m_formatters(std::make_unique<TWFormatters>()),
      m_sortDescriptors({TWSortDescriptor{QStringLiteral("name"), true}}), m_stopWorking(LXContinue) {
    m_rootGroup->setName(QStringLiteral("root"));
    m_rootGroup->setExpanded(true);
    m_rootGroup->setObserver(this);
    const TWPreferences& preferences = TWPreferences::shared();
    if (preferences.value(QStringLiteral("Time Format")).isValid())
        m_formatters->setTimeFormat(int(preferences.integerValue(QStringLiteral("Time Format"))));
    if (preferences.value(QStringLiteral("Range Format")).isValid())
        m_formatters->setRangeFormat(int(preferences.integerValue(QStringLiteral("Range Format"))));
}

TWWorkspace::~TWWorkspace() = default;

// Tree -----------------------------------------------------------------------------------------------------

const QList<TWEntryPtr>& TWWorkspace::entries() const {
    return m_rootGroup->entries();
}

QList<TWFileEntryPtr> TWWorkspace::fileEntries() const {
    QList<TWFileEntryPtr> files;
    m_rootGroup->addFileEntriesToArray(files);
    return files;
}

QList<TWEntryPtr> TWWorkspace::entriesFromPaths(const QStringList& paths) const {
    QList<TWEntryPtr> found;
    for (const QString& path : paths)
        if (TWEntryPtr entry = m_rootGroup->entryWithPath(path, true)) found.append(entry);
    return found;
}

QList<TWSortDescriptor> TWWorkspace::sortDescriptors() const {
    std::lock_guard lock(m_sortMutex);
    return m_sortDescriptors;
}

void TWWorkspace::setSortDescriptors(const QList<TWSortDescriptor>& descriptors) {
    {
        std::lock_guard lock(m_sortMutex);
        m_sortDescriptors = descriptors;
    }
    m_rootGroup->sortEntriesWithDescriptors(descriptors);
    emit entriesReloaded();
}

// Selection ------------------------------------------------------------------------------------------------

void TWWorkspace::setSelectedEntries(const QList<TWEntryPtr>& entries) {
    emit stopPlaybackRequested();
    if (m_selectedFileEntries.size() == 1) emit entryChanged(m_selectedFileEntries.first().get());
    m_selectedEntries = entries;
    m_selectedFileEntries.clear();
    // One set for the whole selection: a set per row made selecting n rows cost n squared.
    QSet<const TWEntry*> held;
    held.reserve(entries.size());
    for (const TWEntryPtr& entry : entries)
        entry->addFileEntriesToArray(m_selectedFileEntries, held);
    emit selectionChanged();
    updateFilesTableInfoText();
}

TWFileEntryPtr TWWorkspace::selectedFileEntry() const {
    return m_selectedFileEntries.isEmpty() ? nullptr : m_selectedFileEntries.first();
}

std::unique_ptr<LXAudioFile> TWWorkspace::selectedAudioFile() const {
    const TWFileEntryPtr entry = selectedFileEntry();
    return entry ? entry->audioFile() : nullptr;
}

// Changes to the tree ---------------------------------------------------------------------------------------

void TWWorkspace::willInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) {
    Q_ASSERT(QThread::currentThread() == thread());
    emit entriesAboutToBeInserted(&parent, first, last);
}

void TWWorkspace::didInsertEntries(TWEntry& parent, qsizetype first, qsizetype last) {
    emit entriesInserted(&parent, first, last);
}

void TWWorkspace::willRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) {
    Q_ASSERT(QThread::currentThread() == thread());
    emit entriesAboutToBeRemoved(&parent, first, last);
}

void TWWorkspace::didRemoveEntries(TWEntry& parent, qsizetype first, qsizetype last) {
    emit entriesRemoved(&parent, first, last);
}

void TWWorkspace::willMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                                  qsizetype destinationRow) {
    Q_ASSERT(QThread::currentThread() == thread());
    emit entriesAboutToBeMoved(&source, first, last, &destination, destinationRow);
}

void TWWorkspace::didMoveEntries(TWEntry& source, qsizetype first, qsizetype last, TWEntry& destination,
                                 qsizetype destinationRow) {
    emit entriesMoved(&source, first, last, &destination, destinationRow);
}

void TWWorkspace::willResetEntries(TWEntry& parent) {
    Q_ASSERT(QThread::currentThread() == thread());
    emit entriesAboutToBeReset(&parent);
}

void TWWorkspace::didResetEntries(TWEntry& parent) {
    emit entriesReset(&parent);
}

// Work and redisplay ----------------------------------------------------------------------------------------

void TWWorkspace::postReload(TWEntry* entry, bool withChildren) {
    if (!entry) return;
    if (QThread::currentThread() == thread()) {
        if (withChildren)
            emit entryAndChildrenChanged(entry);
        else
            emit entryChanged(entry);
        return;
    }
    // From another thread: the entry may be gone by the time the main thread gets here, so only a weak
    // reference travels. An entry no shared pointer owns cannot be checked and is not announced.
    std::weak_ptr<TWEntry> weak = entry->weak_from_this();
    TWHandOver(this, [this, weak, withChildren] {
        if (const TWEntryPtr held = weak.lock()) {
            if (withChildren)
                emit entryAndChildrenChanged(held.get());
            else
                emit entryChanged(held.get());
        }
    });
}

void TWWorkspace::reloadEntry(TWEntry* entry) {
    postReload(entry, false);
}

void TWWorkspace::reloadEntryAndChildren(TWEntry* entry) {
    postReload(entry, true);
}

void TWWorkspace::reloadAll() {
    if (QThread::currentThread() == thread())
        emit entriesReloaded();
    else
        TWHandOver(this, [this] { emit entriesReloaded(); });
}

// Add position ----------------------------------------------------------------------------------------------

bool TWWorkspace::canAddEntries() const {
    return TWAddPosition::canAddEntries(m_selectedEntries);
}

TWEntry* TWWorkspace::parentForEntryAdd() const {
    return TWAddPosition::parentForEntryAdd(m_selectedEntries, m_rootGroup.get());
}

std::optional<qsizetype> TWWorkspace::indexForEntryAdd() const {
    return TWAddPosition::indexForEntryAdd(m_selectedEntries, m_rootGroup.get());
}

// Info text -------------------------------------------------------------------------------------------------

void TWWorkspace::visibleRows(const TWEntry& entry, qsizetype& count) const {
    for (const TWEntryPtr& child : entry.entries()) {
        ++count;
        if (!child->isLeaf() && child->isExpanded()) visibleRows(*child, count);
    }
}

qsizetype TWWorkspace::visibleRowCount() const {
    qsizetype count = 0;
    visibleRows(*m_rootGroup, count);
    return count;
}

QString TWWorkspace::infoText() const {
    const qsizetype rows = visibleRowCount();
    if (!m_selectedEntries.isEmpty())
        return TWLocalizedString(QStringLiteral("%d of %d selected")).arg(m_selectedEntries.size()).arg(rows);
    return TWLocalizedString(QStringLiteral("%d item%@"))
        .arg(rows)
        .arg(rows == 1 ? QString() : QStringLiteral("s"));
}

void TWWorkspace::updateFilesTableInfoText() {
    emit infoTextChanged(infoText());
}

// Dragging --------------------------------------------------------------------------------------------------

bool TWWorkspace::beginDrag(const QList<TWEntryPtr>& entries) {
    if (!TWDragAndDrop::canWriteRows(entries)) return false;
    m_draggingParent = entries.first()->parent();
    m_draggingEntries = entries;
    return true;
}

void TWWorkspace::endDrag() {
    m_draggingParent = nullptr;
    m_draggingEntries.clear();
}

// Persistence -----------------------------------------------------------------------------------------------

TWEntriesStore& TWWorkspace::entriesStore() {
    // Beside the preferences wherever they are (tests move them).
    const QString path = TWEntriesStore::pathBeside(TWPreferences::shared().path());
    if (!m_entriesStore || m_entriesStore->path() != path)
        m_entriesStore = std::make_unique<TWEntriesStore>(path);
    return *m_entriesStore;
}

bool TWWorkspace::saveEntries() {
    if (const LXStatus saved = entriesStore().save(m_rootGroup->state()); !saved) {
        qWarning("The file list could not be saved: %s", qPrintable(saved.error().description()));
        return false;
    }
    return true;
}

void TWWorkspace::loadEntries() {
    clearSelection();
    m_rootGroup->removeAllEntries();
    const LXResult<QVariantMap> stored = entriesStore().load();
    if (!stored) {
        qWarning("%s", qPrintable(stored.error().description()));
    } else if (!stored->isEmpty()) {
        m_rootGroup->setState(*stored);
        m_rootGroup->setName(QStringLiteral("root"));
    }
    refreshEntries();
}

// Runs, analysis and undo ---------------------------------------------------------------------------------

void TWWorkspace::performInstructions(const QVariantList& instructions, bool inWorkThread) {
    if (m_runService) m_runService->performInstructions(instructions, inWorkThread);
}

void TWWorkspace::analyzeEntries() {
    if (m_runService) m_runService->analyzeEntries();
}

void TWWorkspace::analyzeSelectedEntries() {
    if (m_runService) m_runService->analyzeSelectedEntries();
}

void TWWorkspace::undoInstructions(const QVariantList& instructions) {
    if (m_runService) m_runService->undoInstructions(instructions);
}

bool TWWorkspace::flushUndoWithInteraction(bool interactive) {
    return m_runService && m_runService->flushUndoWithInteraction(interactive);
}

bool TWWorkspace::isWorking() const {
    return m_runService && m_runService->isWorking();
}
