#include "lx/LXWaveformCache.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
constexpr quint32 kMagic = 0x43575746; // "CWWF"
constexpr quint32 kVersion = 3;        // 2: the stamp replaced size and modification date; 3: loudness

// The same file, whatever its change time says.
bool sameFile(const LXFile::LXFileVersion& a, const LXFile::LXFileVersion& b) {
    return a.identity == b.identity && a.size == b.size && a.modifiedNs == b.modifiedNs;
}

QDataStream& operator<<(QDataStream& out, const LXWaveformCache::Stamp& stamp) {
    const LXFile::LXFileVersion& v = stamp.version;
    return out << quint64(v.identity.device) << quint64(v.identity.inode) << qint64(v.size)
               << qint64(v.modifiedNs) << qint64(v.changedNs) << stamp.fingerprint;
}

QDataStream& operator>>(QDataStream& in, LXWaveformCache::Stamp& stamp) {
    quint64 device = 0, inode = 0;
    qint64 size = 0, modified = 0, changed = 0;
    in >> device >> inode >> size >> modified >> changed >> stamp.fingerprint;
    stamp.version = {{device, inode}, size, modified, changed};
    return in;
}
} // namespace

struct LXWaveformCache::Entry {
    QString path;
    Stamp stamp;
    QVariantMap analysis;
    LXWaveformOverview overview;
};

std::optional<LXWaveformCache::Stamp> LXWaveformCache::stampOfPath(const QString& path) {
    const std::optional<LXFile::LXFileVersion> version = LXFile::versionOfPath(path);
    if (!version) return std::nullopt;
    QByteArray fingerprint = LXFile::fingerprintOfPath(path);
    if (fingerprint.isEmpty()) return std::nullopt;
    return Stamp{*version, std::move(fingerprint)};
}

LXWaveformCache& LXWaveformCache::shared() {
    static LXWaveformCache cache;
    return cache;
}

LXWaveformCache::LXWaveformCache() {
    m_directory = QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
                  QStringLiteral("/Clipwright/waveforms");
}

void LXWaveformCache::setDirectory(const QString& directory) {
    QMutexLocker lock(&m_mutex);
    m_directory = directory;
}

QString LXWaveformCache::directory() const {
    QMutexLocker lock(&m_mutex);
    return m_directory;
}

void LXWaveformCache::setEnabled(bool enabled) {
    QMutexLocker lock(&m_mutex);
    m_enabled = enabled;
}

bool LXWaveformCache::isEnabled() const {
    QMutexLocker lock(&m_mutex);
    return m_enabled;
}

QString LXWaveformCache::entryPath(const QString& audioPath) const {
    const QByteArray hash = QCryptographicHash::hash(audioPath.toUtf8(), QCryptographicHash::Sha1).toHex();
    return m_directory + u'/' + QString::fromLatin1(hash) + QStringLiteral(".wfc");
}

bool LXWaveformCache::read(const QString& audioPath, Entry* entry, bool withOverview) const {
    QFile file(entryPath(audioPath));
    if (!file.open(QIODevice::ReadOnly)) return false;
    QDataStream in(&file);
    quint32 magic = 0, version = 0;
    in >> magic >> version;
    if (magic != kMagic || version != kVersion) return false;
    in >> entry->path >> entry->stamp >> entry->analysis;
    // The overview's arrays, read a float at a time, cost more than all the rest.
    if (withOverview)
        in >> entry->overview.channels >> entry->overview.framesPerPoint >> entry->overview.minima >>
            entry->overview.maxima;
    return in.status() == QDataStream::Ok && entry->path == audioPath;
}

bool LXWaveformCache::load(const QString& audioPath, Entry* entry, bool withOverview) const {
    if (!read(audioPath, entry, withOverview)) return false;
    return LXFile::versionOfPath(audioPath) == entry->stamp.version;
}

bool LXWaveformCache::write(const Entry& entry) const {
    if (!QDir().mkpath(m_directory)) return false;
    QSaveFile file(entryPath(entry.path));
    if (!file.open(QIODevice::WriteOnly)) return false;
    QDataStream out(&file);
    out << kMagic << kVersion << entry.path << entry.stamp << entry.analysis << entry.overview.channels
        << entry.overview.framesPerPoint << entry.overview.minima << entry.overview.maxima;
    return file.commit();
}

QVariantMap LXWaveformCache::analysisForPath(const QString& path) const {
    QMutexLocker lock(&m_mutex);
    Entry entry;
    if (!m_enabled || !load(path, &entry, false)) return {};
    return entry.analysis;
}

bool LXWaveformCache::hasEntryForPath(const QString& path) const {
    QMutexLocker lock(&m_mutex);
    Entry entry;
    return m_enabled && load(path, &entry, false);
}

bool LXWaveformCache::overviewForPath(const QString& path, LXWaveformOverview* overview) const {
    QMutexLocker lock(&m_mutex);
    Entry entry;
    if (!m_enabled || !load(path, &entry)) return false;
    *overview = entry.overview;
    return true;
}

bool LXWaveformCache::store(const QString& path, const Stamp& stamp, const QVariantMap& analysis,
                            const LXWaveformOverview& overview) {
    QMutexLocker lock(&m_mutex);
    return m_enabled && write(Entry{path, stamp, analysis, overview});
}

void LXWaveformCache::moveEntry(const QString& from, const QString& to) {
    QMutexLocker lock(&m_mutex);
    Entry entry;
    const bool kept = read(from, &entry);
    QFile::remove(entryPath(from));
    if (!kept) return;
    // The rename gave the file a new change time; the entry follows only the file it was made of.
    const std::optional<Stamp> moved = stampOfPath(to);
    if (!moved || !sameFile(moved->version, entry.stamp.version) ||
        moved->fingerprint != entry.stamp.fingerprint)
        return;
    entry.path = to;
    entry.stamp = *moved;
    (void)write(entry);
}

void LXWaveformCache::removeEntryAtPath(const QString& path) {
    QMutexLocker lock(&m_mutex);
    QFile::remove(entryPath(path));
}

void LXWaveformCache::removeAll() {
    QMutexLocker lock(&m_mutex);
    QDir(m_directory).removeRecursively();
}
