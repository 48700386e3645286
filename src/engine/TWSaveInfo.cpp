#include "engine/TWSaveInfo.h"

#include "platform/TWSupportFolders.h"

#include "lx/LXAudioFile.h"
#include "lx/LXFile.h"
#include "lx/LXWaveformCache.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>

#include <unistd.h>

namespace {

double microsecondsNow() {
    using namespace std::chrono;
    return double(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
}

// Names planned in advance must differ even for two files of one name planned within a microsecond.
double freshMicroseconds() {
    static std::atomic<double> last = 0;
    double time = microsecondsNow(), seen = last.load();
    do {
        time = std::max(time, seen + 1.0);
    } while (!last.compare_exchange_weak(seen, time));
    return time;
}

// A hard link where the file system allows it, else a copy made under a temporary name and renamed, so
// that a copy found under its final name is always whole. Fails with EEXIST when `to` is taken.
LXStatus linkOrCopy(const QString& from, const QString& to) {
    const QString folder = QFileInfo(to).path();
    if (::link(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return LXFile::syncPath(folder);
    if (errno != EXDEV && errno != EPERM && errno != EMLINK && errno != EOPNOTSUPP)
        return LXFileError::fromErrno(QStringLiteral("cannot keep an undo copy"), errno == EEXIST ? to : from);
    if (LXFile::existsAtPath(to))
        return LXFileError(QStringLiteral("cannot keep an undo copy"), to, EEXIST);
    const QString part = to + QStringLiteral(".part");
    (void)LXFile::deleteFileAtPath(part);
    LX_TRY(LXFile::copyPath(from, part));
    LX_TRY(LXFile::syncPath(part));
    return LXFile::movePath(part, to);
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
        const LXStatus copied = linkOrCopy(path, target);
        if (copied) return target;
        if (copied.error().errnum() != EEXIST || copied.error().path() != target) return copied.error();
    }
}

QString TWSaveInfo::stampOf(const QString& path) {
    const std::optional<LXFile::LXFileVersion> version = LXFile::versionOfPath(path);
    const QByteArray fingerprint = LXFile::fingerprintOfPath(path);
    if (!version || fingerprint.isEmpty()) return {};
    return QStringLiteral("%1:%2:%3")
        .arg(qint64(version->size))
        .arg(qint64(version->modifiedNs))
        .arg(QString::fromLatin1(fingerprint.toHex().left(16)));
}

void TWSaveInfo::stampCurrentFrom(const QStringList& paths) {
    m_stamps.clear();
    for (const QString& path : paths)
        m_stamps.append(stampOf(path));
}

bool TWSaveInfo::canRestore() const {
    return !m_undo.isEmpty() && std::all_of(m_undo.begin(), m_undo.end(), [](const QString& path) {
        return LXFile::existsAtPath(path);
    });
}

bool TWSaveInfo::currentFilesExist() const {
    return std::all_of(m_current.begin(), m_current.end(), [](const QString& path) {
        return LXFile::existsAtPath(path);
    });
}

bool TWSaveInfo::neverSaved() const {
    if (m_undo.isEmpty()) return false;
    for (qsizetype i = 0; i < m_former.size() && i < m_undo.size(); ++i) {
        const auto identity = LXFile::identityOfPath(m_undo[i]);
        if (!identity || LXFile::identityOfPath(m_former[i]) != identity) return false;
    }
    return std::none_of(m_current.begin(), m_current.end(), [this](const QString& path) {
        return !m_former.contains(path) && LXFile::existsAtPath(path);
    });
}

QString TWSaveInfo::obstacle() const {
    if (m_undo.isEmpty()) return QStringLiteral("no earlier version of it was kept");
    if (!canRestore()) return QStringLiteral("its kept copy is gone from the undo folder");
    for (qsizetype i = 0; i < m_current.size(); ++i) {
        if (!LXFile::existsAtPath(m_current[i])) return QStringLiteral("it is no longer there");
        if (i < m_stamps.size() && !m_stamps[i].isEmpty() && stampOf(m_current[i]) != m_stamps[i])
            return QStringLiteral("it was changed since, by another program or run");
    }
    return {};
}

TWSaveInfo TWSaveInfo::planSwitch(bool withoutCopies) const {
    TWSaveInfo planned;
    planned.m_current = m_former;
    planned.m_former = m_current;
    if (!withoutCopies)
        for (const QString& path : m_current)
            planned.m_undo.append(TWSupportFolders::undoDirectory() + u'/' + undoName(path, freshMicroseconds()));
    planned.stampCurrentFrom(m_undo); // the kept copies become the current files
    return planned;
}

LXStatus TWSaveInfo::switchTo(const TWSaveInfo& planned) {
    // Three phases, each of which a later attempt can tell done from the disk: copies of the current
    // files under their planned names (all made before any kept copy moves), the kept copies back over
    // the former paths, then the current files that have no place any more.
    const bool renamesBegun = !canRestore();
    if (!renamesBegun) {
        LX_TRY(TWSupportFolders::createPrivateDirectory(TWSupportFolders::undoDirectory()));
        for (qsizetype i = 0; i < planned.m_undo.size(); ++i) {
            if (LXFile::existsAtPath(planned.m_undo[i])) continue;
            LX_TRY(linkOrCopy(m_current.value(i), planned.m_undo[i]));
            LXWaveformCache::shared().moveEntry(m_current[i], planned.m_undo[i]);
        }
    }
    for (qsizetype i = 0; i < m_former.size() && i < m_undo.size(); ++i)
        if (LXFile::existsAtPath(m_undo[i])) LX_TRY(moveAndTell(m_undo[i], m_former[i]));
    for (qsizetype i = 0; i < m_current.size(); ++i) {
        const QString& path = m_current[i];
        if (m_former.contains(path) || i >= planned.m_undo.size()) continue;
        if (LXFile::identityOfPath(path) == LXFile::identityOfPath(planned.m_undo[i])) deleteAndForget(path);
    }
    *this = planned;
    return {};
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
    return switchTo(planSwitch());
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
    QVariantMap map{{QStringLiteral("currentPaths"), m_current},
                    {QStringLiteral("formerPaths"), m_former},
                    {QStringLiteral("undoPaths"), m_undo}};
    if (!m_stamps.isEmpty()) map.insert(QStringLiteral("currentStamps"), m_stamps);
    return map;
}

TWSaveInfo TWSaveInfo::fromPropertyList(const QVariantMap& map) {
    TWSaveInfo info;
    info.m_current = map.value(QStringLiteral("currentPaths")).toStringList();
    info.m_former = map.value(QStringLiteral("formerPaths")).toStringList();
    info.m_undo = map.value(QStringLiteral("undoPaths")).toStringList();
    info.m_stamps = map.value(QStringLiteral("currentStamps")).toStringList();
    return info;
}
