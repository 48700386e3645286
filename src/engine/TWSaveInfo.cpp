#include "engine/TWSaveInfo.h"

#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"
#include "lx/LXWaveformCache.h"

#include <QFileInfo>

#include <cerrno>
#include <chrono>
#include <unistd.h>

namespace {

double microsecondsNow() {
    using namespace std::chrono;
    return double(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

// Every move and deletion is told to the waveform cache, so cached overviews follow the files.
void deleteAndForget(const QString& path) {
    if (!LXFile::existsAtPath(path)) return;
    if (LXFile::deleteFileAtPath(path)) LXWaveformCache::shared().removeEntryAtPath(path);
}

LXStatus moveAndTell(const QString& from, const QString& to) {
    LX_TRY(LXFile::movePath(from, to));
    LXWaveformCache::shared().moveEntry(from, to);
    return {};
}

} // namespace

void TWSaveInfo::addCurrentPathsFromAudioFile(const LXAudioFile& file) {
    if (file.isInterleaved())
        m_current.append(file.path());
    else
        for (int channel = 0; channel < file.numberOfChannels(); ++channel)
            m_current.append(file.pathForChannel(channel));
}

QString TWSaveInfo::undoName(const QString& path, double microseconds) {
    const QFileInfo info(path);
    const QString extension = info.suffix();
    return QStringLiteral("%1_%2%3%4")
        .arg(info.completeBaseName(), QString::number(microseconds, 'f', 0),
             extension.isEmpty() ? QString() : QStringLiteral("."), extension);
}

LXResult<QString> TWSaveInfo::copyPathToUndo(const QString& path) {
    const QString folder = TWSupportFolders::undoDirectory();
    LX_TRY(TWSupportFolders::createPrivateDirectory(folder));
    // The clock may not move between two calls: a taken name is tried again one microsecond on.
    for (double time = microsecondsNow();; time += 1.0) {
        const QString target = folder + u'/' + undoName(path, time);
        if (::link(QFile::encodeName(path).constData(), QFile::encodeName(target).constData()) == 0) {
            LX_TRY(LXFile::syncPath(folder));
            return target;
        }
        if (errno == EEXIST) continue;
        if (errno != EXDEV && errno != EPERM && errno != EMLINK && errno != EOPNOTSUPP)
            return LXFileError::fromErrno(QStringLiteral("cannot keep an undo copy"), path);
        // Another file system: a real copy.
        if (LXFile::existsAtPath(target)) continue;
        LX_TRY(LXFile::copyPath(path, target));
        LX_TRY(LXFile::syncPath(target));
        return target;
    }
}

void TWSaveInfo::setPaths(const QStringList& current, const QStringList& former, const QStringList& undo) {
    m_current = current;
    m_former = former;
    m_undo = undo;
}

LXStatus TWSaveInfo::moveUndoPathsToFormer() {
    for (qsizetype i = 0; i < m_former.size() && i < m_undo.size(); ++i)
        LX_TRY(moveAndTell(m_undo[i], m_former[i]));
    m_undo.clear();
    m_current = m_former;
    m_former.clear();
    return {};
}

LXStatus TWSaveInfo::switchPaths() {
    // Copies of the current files first: until the former files are back, both versions stay whole.
    QStringList newUndo;
    for (const QString& path : m_current) {
        auto copy = copyPathToUndo(path);
        if (!copy) {
            removeFilesAtPaths(newUndo);
            return copy.error();
        }
        newUndo.append(*copy);
        LXWaveformCache::shared().moveEntry(path, *copy);
    }
    const QStringList oldCurrent = m_current;
    LX_TRY(moveUndoPathsToFormer());
    for (const QString& path : oldCurrent)
        if (!m_current.contains(path)) deleteAndForget(path);
    m_former = oldCurrent;
    m_undo = newUndo;
    return {};
}

LXStatus TWSaveInfo::restorePaths() {
    const QStringList oldCurrent = m_current;
    LX_TRY(moveUndoPathsToFormer());
    for (const QString& path : oldCurrent)
        if (!m_current.contains(path)) deleteAndForget(path);
    m_former = oldCurrent;
    return {};
}

void TWSaveInfo::removeUndoPaths() {
    removeFilesAtPaths(m_undo);
    m_undo.clear();
}

void TWSaveInfo::removeFilesAtPaths(const QStringList& paths) {
    for (const QString& path : paths)
        deleteAndForget(path);
}

QVariantMap TWSaveInfo::toPropertyList() const {
    return {{QStringLiteral("currentPaths"), m_current},
            {QStringLiteral("formerPaths"), m_former},
            {QStringLiteral("undoPaths"), m_undo}};
}

TWSaveInfo TWSaveInfo::fromPropertyList(const QVariantMap& map) {
    TWSaveInfo info;
    info.m_current = map.value(QStringLiteral("currentPaths")).toStringList();
    info.m_former = map.value(QStringLiteral("formerPaths")).toStringList();
    info.m_undo = map.value(QStringLiteral("undoPaths")).toStringList();
    return info;
}
