#include "lx/LXWaveformCache.h"


#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>

#include <sys/stat.h>

namespace {
constexpr quint32 kMagic = 0x43575746; // "CWWF"
constexpr quint32 kVersion = 2;        // 2: the stamp replaced size and modification date
constexpr qint64 kFingerprintBytes = 64 * 1024;

qint64 nanoseconds(const struct timespec& time) {
    return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// The stamp without its fingerprint: one stat, following links (the analysis is of the target's audio).
std::optional<LXWaveformCache::Stamp> statStamp(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) return std::nullopt;
    LXWaveformCache::Stamp stamp;
    stamp.device = st.st_dev;
    stamp.inode = st.st_ino;
    stamp.size = st.st_size;
    stamp.modifiedNs = nanoseconds(st.st_mtim);
    stamp.changedNs = nanoseconds(st.st_ctim);
    return stamp;
}

bool sameFile(const LXWaveformCache::Stamp& a, const LXWaveformCache::Stamp& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size && a.modifiedNs == b.modifiedNs;
}

QDataStream& operator<<(QDataStream& out, const LXWaveformCache::Stamp& stamp) {
    return out << stamp.device << stamp.inode << stamp.size << stamp.modifiedNs << stamp.changedNs
               << stamp.fingerprint;
}

QDataStream& operator>>(QDataStream& in, LXWaveformCache::Stamp& stamp) {
    return in >> stamp.device >> stamp.inode >> stamp.size >> stamp.modifiedNs >> stamp.changedNs >>
           stamp.fingerprint;
}
} // namespace

struct LXWaveformCache::Entry {
    QString path;
    Stamp stamp;
    QVariantMap analysis;
    LXWaveformOverview overview;
};

std::optional<LXWaveformCache::Stamp> LXWaveformCache::stampOfPath(const QString& path) {
    std::optional<Stamp> stamp = statStamp(path);
    QFile file(path);
    if (!stamp || !file.open(QIODevice::ReadOnly)) return std::nullopt;
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(file.read(kFingerprintBytes));
    if (stamp->size > kFingerprintBytes && file.seek(std::max(kFingerprintBytes, stamp->size - kFingerprintBytes)))
        hash.addData(file.read(kFingerprintBytes));
    stamp->fingerprint = hash.result();
    return stamp;
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

bool LXWaveformCache::read(const QString& audioPath, Entry* entry) const {
    QFile file(entryPath(audioPath));
    if (!file.open(QIODevice::ReadOnly)) return false;
    QDataStream in(&file);
    quint32 magic = 0, version = 0;
    in >> magic >> version;
    if (magic != kMagic || version != kVersion) return false;
    in >> entry->path >> entry->stamp >> entry->analysis >> entry->overview.channels >>
        entry->overview.framesPerPoint >> entry->overview.minima >> entry->overview.maxima;
    return in.status() == QDataStream::Ok && entry->path == audioPath;
}

bool LXWaveformCache::load(const QString& audioPath, Entry* entry) const {
    if (!read(audioPath, entry)) return false;
    const std::optional<Stamp> now = statStamp(audioPath);
    return now && sameFile(*now, entry->stamp) && now->changedNs == entry->stamp.changedNs;
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
    if (!m_enabled || !load(path, &entry)) return {};
    return entry.analysis;
}

bool LXWaveformCache::hasEntryForPath(const QString& path) const {
    QMutexLocker lock(&m_mutex);
    Entry entry;
    return m_enabled && load(path, &entry);
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
    if (!moved || !sameFile(*moved, entry.stamp) || moved->fingerprint != entry.stamp.fingerprint) return;
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
