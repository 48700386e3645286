#include "lx/LXWaveformCache.h"

#include "lx/LXFile.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDir>
#include <QSaveFile>
#include <QStandardPaths>

namespace {
constexpr quint32 kMagic = 0x43575746; // "CWWF"
constexpr quint32 kVersion = 1;
} // namespace

struct LXWaveformCache::Entry {
    QString path;
    qint64 size = -1;
    QDateTime modified;
    QVariantMap analysis;
    LXWaveformOverview overview;
};

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

bool LXWaveformCache::load(const QString& audioPath, Entry* entry) const {
    QFile file(entryPath(audioPath));
    if (!file.open(QIODevice::ReadOnly)) return false;
    QDataStream in(&file);
    quint32 magic = 0, version = 0;
    in >> magic >> version;
    if (magic != kMagic || version != kVersion) return false;
    in >> entry->path >> entry->size >> entry->modified >> entry->analysis >> entry->overview.channels >>
        entry->overview.framesPerPoint >> entry->overview.minima >> entry->overview.maxima;
    if (in.status() != QDataStream::Ok || entry->path != audioPath) return false;
    // Stale once the file changed.
    return LXFile::sizeOfFileAtPath(audioPath) == entry->size &&
           LXFile::modificationDateOfFileAtPath(audioPath) == entry->modified;
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

bool LXWaveformCache::store(const QString& path, const QVariantMap& analysis,
                            const LXWaveformOverview& overview) {
    QMutexLocker lock(&m_mutex);
    if (!m_enabled || !QDir().mkpath(m_directory)) return false;
    QSaveFile file(entryPath(path));
    if (!file.open(QIODevice::WriteOnly)) return false;
    QDataStream out(&file);
    out << kMagic << kVersion << path << qint64(LXFile::sizeOfFileAtPath(path))
        << LXFile::modificationDateOfFileAtPath(path) << analysis << overview.channels
        << overview.framesPerPoint << overview.minima << overview.maxima;
    return file.commit();
}

void LXWaveformCache::moveEntry(const QString& from, const QString& to) {
    QMutexLocker lock(&m_mutex);
    QFile file(entryPath(from));
    if (!file.open(QIODevice::ReadOnly)) return;
    QDataStream in(&file);
    quint32 magic = 0, version = 0;
    Entry entry;
    in >> magic >> version >> entry.path >> entry.size >> entry.modified >> entry.analysis >>
        entry.overview.channels >> entry.overview.framesPerPoint >> entry.overview.minima >>
        entry.overview.maxima;
    file.close();
    QFile::remove(entryPath(from));
    if (magic != kMagic || version != kVersion || in.status() != QDataStream::Ok) return;
    QSaveFile moved(entryPath(to));
    if (!moved.open(QIODevice::WriteOnly)) return;
    QDataStream out(&moved);
    // A rename keeps size and modification time, so the entry stays current under its new path.
    out << kMagic << kVersion << to << entry.size << entry.modified << entry.analysis
        << entry.overview.channels << entry.overview.framesPerPoint << entry.overview.minima
        << entry.overview.maxima;
    moved.commit();
}

void LXWaveformCache::removeEntryAtPath(const QString& path) {
    QMutexLocker lock(&m_mutex);
    QFile::remove(entryPath(path));
}

void LXWaveformCache::removeAll() {
    QMutexLocker lock(&m_mutex);
    QDir(m_directory).removeRecursively();
}
