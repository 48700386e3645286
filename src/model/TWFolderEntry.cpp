#include "model/TWFolderEntry.h"

#include "model/TWEntryTransfer.h"
#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWDesktop.h"

#include "lx/LXAudioFilename.h"
#include "lx/LXFile.h"
#include "lx/LXTemporaryFile.h"
#include "lx/LXWaveformCache.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <vector>

namespace {

// The folders being read on this thread, outermost first. A subfolder that is one of them is a link back
// up the tree: reading it would never end, so it is left out.
thread_local std::vector<LXFile::LXFileIdentity> t_foldersBeingRead;

bool isBeingRead(const QString& path) {
    const std::optional<LXFile::LXFileIdentity> identity = LXFile::identityOfPath(path);
    if (!identity) return false;
    for (const LXFile::LXFileIdentity& folder : t_foldersBeingRead)
        if (folder == *identity) return true;
    return false;
}

// Marks a folder as being read for its lifetime. A folder read on its own (not from its parent's reading)
// first marks the folders above it in the tree.
class TWReadingFolder {
public:
    explicit TWReadingFolder(const TWEntry& folder) {
        if (t_foldersBeingRead.empty())
            for (const TWEntry* above = folder.parent(); above; above = above->parent())
                if (dynamic_cast<const TWFolderEntry*>(above)) mark(above->path());
        mark(folder.path());
    }
    ~TWReadingFolder() { t_foldersBeingRead.resize(t_foldersBeingRead.size() - m_marked); }
    TWReadingFolder(const TWReadingFolder&) = delete;
    TWReadingFolder& operator=(const TWReadingFolder&) = delete;

private:
    void mark(const QString& path) {
        if (const auto identity = LXFile::identityOfPath(path)) {
            t_foldersBeingRead.push_back(*identity);
            ++m_marked;
        }
    }
    size_t m_marked = 0;
};

QString fileNameOf(const QString& path) {
    return QFileInfo(path).fileName();
}

QString joinPath(const QString& directory, const QString& name) {
    return directory.endsWith(u'/') ? directory + name : directory + u'/' + name;
}

} // namespace

TWFolderEntry::TWFolderEntry() {
    m_isLeaf = false;
    m_containerIsImmutable = true;
}

std::shared_ptr<TWFolderEntry> TWFolderEntry::create(const QString& path) {
    auto folder = std::make_shared<TWFolderEntry>();
    folder->setPath(path);
    folder->refresh();
    return folder;
}

void TWFolderEntry::setPath(const QString& path) {
    TWEntry::setPath(path);
    for (const TWEntryPtr& child : entries())
        child->setPath(joinPath(path, fileNameOf(child->path())));
}

QString TWFolderEntry::name() const {
    return fileNameOf(path());
}

TWEntryColor TWFolderEntry::color() const {
    return status() == -1.0f ? TWEntryColor::Grey : TWEntryColor::Black;
}

void TWFolderEntry::refresh() {
    const QString path = this->path();
    bool isDirectory = false;
    if (!LXFile::existsAtPath(path, &isDirectory)) {
        m_status.store(-1.0f, std::memory_order_relaxed);
        replaceEntries({}); // the folder fills itself: its own changes ignore the immutable flag
        return;
    }
    m_status.store(0.0f, std::memory_order_relaxed);
    const TWReadingFolder reading(*this);
    QStringList names = isDirectory ? LXFile::contentsOfDirectoryAtPath(path) : QStringList();
    // A writer's file is no row of its own, neither while it writes nor after it was killed.
    names.removeIf(LXIsTemporaryFileName);

    QSet<QString> childPaths;
    for (const TWEntryPtr& child : entries())
        childPaths.insert(child->path());
    // Each split set of mono files is listed once, under its lead member.
    QStringList newPaths;
    QSet<QString> kept;
    for (const QString& name : names) {
        const QString listed = LXAudioFilename(joinPath(path, name)).path();
        if (!childPaths.contains(listed) && !kept.contains(listed)) {
            kept.insert(listed);
            newPaths.append(listed);
        }
    }

    // The children that stay are refreshed where they stand (a subfolder tells its own changes); then the
    // stale ones go and the new ones come in one change of this folder's children.
    const QSet<QString> nameSet(names.cbegin(), names.cend());
    QList<TWEntryPtr> children = entries();
    children.removeIf([&](const TWEntryPtr& child) { return !nameSet.contains(fileNameOf(child->path())); });
    for (const TWEntryPtr& child : std::as_const(children))
        child->refresh();

    for (const QString& newPath : std::as_const(newPaths)) {
        bool isFolder = false;
        if (!LXFile::existsAtPath(newPath, &isFolder) || (isFolder && isBeingRead(newPath))) continue;
        TWEntryPtr entry =
            isFolder ? TWEntryPtr(TWFolderEntry::create(newPath)) : TWEntryPtr(TWFileEntry::create(newPath));
        if (entry) children.append(entry);
    }
    // Subfolders sorted themselves when they were read.
    sortEntries(children, TWWorkspace::workspace().sortDescriptors());
    replaceEntries(children);
}

void TWFolderEntry::moveToPath(const QString& directory) {
    const std::optional<QString> target = TWTransferTarget(TWTransfer::Move, {path()}, directory);
    if (!target) return;
    QStringList filePaths;
    addFileEntryPathsToArray(filePaths);
    if (const LXStatus moved = LXFile::movePath(path(), *target); !moved) {
        TWShowTransferAlert(TWTransfer::Move, TWTransferFailure::Failed, name(), moved.error());
        return;
    }
    setPath(*target);
    // The cached overviews of the files inside follow them.
    QStringList movedPaths;
    addFileEntryPathsToArray(movedPaths);
    for (qsizetype i = 0; i < filePaths.size() && i < movedPaths.size(); ++i)
        LXWaveformCache::shared().moveEntry(filePaths.at(i), movedPaths.at(i));
}

void TWFolderEntry::copyToPath(const QString& directory, TWEntry* group) {
    const std::optional<QString> target = TWTransferTarget(TWTransfer::Copy, {path()}, directory);
    if (!target) return;
    if (const LXStatus copied = LXFile::copyPath(path(), *target); !copied) {
        TWShowTransferAlert(TWTransfer::Copy, TWTransferFailure::Failed, name(), copied.error());
        return;
    }
    auto copy = std::make_shared<TWFolderEntry>();
    copy->setPath(*target);
    if (group) group->addEntry(copy);
}

void TWFolderEntry::moveToTrash() {
    const TWEntryPtr self = weak_from_this().lock(); // leaving the parent may release this entry
    if (const LXStatus trashed = TWDesktop::moveToTrash(path()); !trashed) {
        qWarning("%s", qPrintable(trashed.error().description()));
        return;
    }
    if (TWEntry* parent = this->parent()) parent->removeEntry(this);
}

LXStatus TWFolderEntry::deleteFiles() {
    return LXFile::deleteFileAtPath(path());
}

void TWFolderEntry::openInFinder() {
    TWDesktop::openPath(path());
}

void TWFolderEntry::showInFinder() {
    TWDesktop::revealPath(path());
}

QVariantMap TWFolderEntry::state() const {
    QVariantMap state = TWEntry::state();
    state.insert(QStringLiteral("path"), path());
    return state;
}

void TWFolderEntry::setState(const QVariantMap& state) {
    TWEntry::setPath(state.value(QStringLiteral("path")).toString());
}
