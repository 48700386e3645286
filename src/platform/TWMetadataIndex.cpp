#include "platform/TWMetadataIndex.h"

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFilename.h"
#include "lx/LXFile.h"
#include "lx/LXWaveformCache.h"
#include "platform/TWPredicate.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>
#include <chrono>
#include <cmath>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// Raise when the columns change: an index of another version is dropped and rebuilt (it is a cache).
constexpr int kSchemaVersion = 2;
// Rows written per transaction: one commit per row would cost a sync each; 500 keeps a cancelled scan's
// work and the writer's lock short.
constexpr int kRowsPerTransaction = 500;

std::atomic<int64_t> g_audioFilesOpened{0};
// Scans in one process take turns: two smart groups refreshing the same folder would open every
// file twice. A plain mutex polled with try_lock: ThreadSanitizer (GCC 12) does not see the
// pthread_mutex_clocklock behind std::timed_mutex, nor the futex behind a contended QMutex.
std::mutex g_scanMutex;

std::mutex g_defaultPathMutex;
QString g_defaultPath; // guarded by g_defaultPathMutex

const char* const kColumns[] = {
    "path",     "name",       "name_f",      "directory",    "kind",     "types",     "size",
    "created",  "modified",   "mtime_ns",    "inode",        "format",   "rate",      "channels",
    "bits",     "samples",    "duration",    "tempo",        "root_key", "base_note", "title",
    "title_f",  "artist",     "artist_f",    "album",        "album_f",  "genre",     "genre_f",
    "comments", "comments_f", "description", "description_f", "peak",    "rms",       "loudness",
    "loudness_range", "true_peak"};
constexpr int kColumnCount = int(std::size(kColumns));

const char* const kSchema = R"(CREATE TABLE items (
    path TEXT PRIMARY KEY NOT NULL,
    name TEXT NOT NULL,
    name_f TEXT NOT NULL,
    directory TEXT NOT NULL,
    kind TEXT NOT NULL,
    types TEXT NOT NULL,
    size INTEGER NOT NULL,
    created REAL,
    modified REAL,
    mtime_ns INTEGER NOT NULL,
    inode INTEGER NOT NULL,
    format TEXT,
    rate REAL,
    channels INTEGER,
    bits INTEGER,
    samples INTEGER,
    duration REAL,
    tempo REAL,
    root_key INTEGER,
    base_note INTEGER,
    title TEXT, title_f TEXT,
    artist TEXT, artist_f TEXT,
    album TEXT, album_f TEXT,
    genre TEXT, genre_f TEXT,
    comments TEXT, comments_f TEXT,
    description TEXT, description_f TEXT,
    peak REAL, rms REAL,
    loudness REAL, loudness_range REAL, true_peak REAL
) WITHOUT ROWID)";

LXError sqlError(int32_t code, const QString& what, const QSqlError& error, const QString& path) {
    return LXError(code, QStringLiteral("%1: %2").arg(what, error.text()), path);
}

// One connection, private to the calling thread and to one call. Qt's connections may be used only on
// the thread that made them; the name makes each one distinct in Qt's registry.
class Connection {
public:
    static LXResult<std::unique_ptr<Connection>> open(const QString& path) {
        if (!QCoreApplication::instance())
            return LXError(
                LXErrUnsupported,
                QStringLiteral("the metadata index needs a QCoreApplication to load the SQLite driver"),
                path);
        if (!QDir().mkpath(QFileInfo(path).absolutePath()))
            return LXFileError(QStringLiteral("Cannot create the folder of the metadata index"), path,
                               EACCES);
        std::unique_ptr<Connection> connection(new Connection(path));
        QSqlDatabase& db = connection->m_db;
        if (!db.isValid())
            return LXError(LXErrUnsupported,
                           QStringLiteral("Qt's SQLite driver is missing (package libqt6sql6-sqlite)"), path);
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000"));
        if (!db.open())
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot open the metadata index"), db.lastError(),
                            path);
        if (auto status = connection->prepareSchema(); !status) {
            if (status.error().code() != LXErrDamaged) return status.error();
            // An index that is not a database at all (a crash, a stray file) is only a cache: start over.
            connection.reset();
            for (const char* suffix : {"", "-wal", "-shm", "-journal"})
                QFile::remove(path + QLatin1String(suffix));
            connection.reset(new Connection(path));
            connection->m_db.setDatabaseName(path);
            connection->m_db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=10000"));
            if (!connection->m_db.open())
                return sqlError(LXErrReadFailed, QStringLiteral("Cannot open the metadata index"),
                                connection->m_db.lastError(), path);
            LX_TRY(connection->prepareSchema());
        }
        return connection;
    }

    ~Connection() {
        m_db.close();
        m_db = QSqlDatabase();
        QSqlDatabase::removeDatabase(m_name);
    }

    QSqlDatabase& db() { return m_db; }
    const QString& path() const { return m_path; }

    LXStatus exec(const QString& sql) {
        QSqlQuery query(m_db);
        if (!query.exec(sql))
            return sqlError(LXErrWriteFailed, QStringLiteral("Cannot update the metadata index"),
                            query.lastError(), m_path);
        return {};
    }

private:
    explicit Connection(const QString& path) : m_path(path) {
        static std::atomic<int> serial{0};
        m_name = QStringLiteral("TWMetadataIndex-%1").arg(serial.fetch_add(1));
        m_db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_name);
    }

    int userVersion() {
        QSqlQuery query(m_db);
        if (query.exec(QStringLiteral("PRAGMA user_version")) && query.next()) return query.value(0).toInt();
        return -1;
    }

    LXStatus prepareSchema() {
        // WAL lets searches read while a scan writes; NORMAL sync is safe with WAL and the index can be
        // rebuilt anyway.
        {
            QSqlQuery query(m_db);
            if (!query.exec(QStringLiteral("PRAGMA journal_mode=WAL"))) {
                // SQLITE_CORRUPT (11) and SQLITE_NOTADB (26) mean the file is beyond use; anything else
                // (a lock held too long) is passed on.
                const QString code = query.lastError().nativeErrorCode();
                const bool damaged = code == u"11" || code == u"26";
                return sqlError(damaged ? LXErrDamaged : LXErrReadFailed,
                                QStringLiteral("The metadata index is unreadable"), query.lastError(),
                                m_path);
            }
        }
        LX_TRY(exec(QStringLiteral("PRAGMA synchronous=NORMAL")));
        if (userVersion() == kSchemaVersion) return {};
        LX_TRY(exec(QStringLiteral("BEGIN IMMEDIATE")));
        // Another connection may have built it while this one waited for the lock.
        if (userVersion() != kSchemaVersion) {
            for (const QString& sql :
                 {QStringLiteral("DROP TABLE IF EXISTS items"), QString::fromLatin1(kSchema),
                  QStringLiteral("PRAGMA user_version=%1").arg(kSchemaVersion)}) {
                if (auto status = exec(sql); !status) {
                    (void)exec(QStringLiteral("ROLLBACK"));
                    return status;
                }
            }
        }
        return exec(QStringLiteral("COMMIT"));
    }

    QString m_path;
    QString m_name;
    QSqlDatabase m_db;
};

// What decides whether a row is current.
struct Stamp {
    int64_t size = 0;
    int64_t mtimeNs = 0;
    int64_t inode = 0;
    bool operator==(const Stamp&) const = default;
};

// A row of an audio file whose loudness was not yet measured: analysing the file later changes the cache,
// not the file, so the scan looks there again.
struct Known {
    Stamp stamp;
    bool awaitsLoudness = false;
};

// A level as the index stores it: decibels, so that a query reads as the details show it; silence is
// minus infinity, which every threshold exceeds.
QVariant decibels(const QVariant& amplitude) {
    if (!amplitude.isValid()) return {};
    const double value = std::fabs(amplitude.toDouble());
    return value > 0.0 ? 20.0 * std::log10(value) : -std::numeric_limits<double>::infinity();
}

double seconds(const statx_timestamp& t) {
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

QString typeTree(const QStringList& types) {
    return u'|' + types.join(u'|') + u'|';
}

QStringList audioTypes(uint32_t format) {
    QStringList types;
    switch (format) {
    case LXFormat::WAVE:
        types = {"com.microsoft.waveform-audio"};
        break;
    case LXFormat::RF64:
        types = {"org.ebu.rf64", "com.microsoft.waveform-audio"};
        break;
    case LXFormat::AIFF:
        types = {"public.aiff-audio"};
        break;
    case LXFormat::AIFC:
        types = {"public.aifc-audio"};
        break;
    case LXFormat::CAF:
        types = {"com.apple.coreaudio-format"};
        break;
    case LXFormat::AU:
        types = {"public.au-audio"};
        break;
    case LXFormat::W64:
        types = {"com.sony.wave64-audio"};
        break;
    case LXFormat::FLAC:
        types = {"org.xiph.flac"};
        break;
    case LXFormat::Ogg:
        types = {"org.xiph.ogg-audio"};
        break;
    case LXFormat::Opus:
        types = {"org.xiph.opus", "org.xiph.ogg-audio"};
        break;
    case LXFormat::MP3:
        types = {"public.mp3"};
        break;
    case LXFormat::SD2:
        types = {"com.digidesign.sd2-audio"};
        break;
    default:
        break;
    }
    return types + QStringList{"public.audio", "public.data", "public.item", "public.content"};
}

QString fourCharacters(uint32_t code) {
    QString text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += QChar(char16_t((code >> shift) & 0xFF));
    return text.trimmed();
}

bool hasAudioExtension(const QString& name) {
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0) return false;
    const QString extension = name.mid(dot + 1).toLower();
    return LXFormat::fromExtension(extension) != LXFormat::Unknown || extension == u"wave" ||
           extension == u"bwf" || extension == u"rf64";
}

// The members of a split set after the first are indexed as plain files: the set is found, and listed,
// under its lead member.
bool isTrailingSplitMember(const QString& path) {
    if (!LXAudioFilename::isSplitMember(path)) return false;
    const QString lead = LXAudioFilename::leadPathOfSplitMember(path);
    return lead != path && LXFile::existsAtPath(lead);
}

// Writes rows in transactions of kRowsPerTransaction.
class RowWriter {
public:
    explicit RowWriter(Connection& connection) : m_connection(connection), m_query(connection.db()) {}
    ~RowWriter() {
        if (m_open) (void)m_connection.exec(QStringLiteral("ROLLBACK"));
    }

    LXStatus prepare() {
        QStringList names, marks;
        for (const char* column : kColumns) {
            names.append(QLatin1String(column));
            marks.append(QStringLiteral("?"));
        }
        if (!m_query.prepare(QStringLiteral("INSERT OR REPLACE INTO items (%1) VALUES (%2)")
                                 .arg(names.join(u','), marks.join(u','))) ||
            !m_delete.prepare(QStringLiteral("DELETE FROM items WHERE path = ?")))
            return sqlError(LXErrWriteFailed, QStringLiteral("Cannot prepare the metadata index"),
                            m_query.lastError(), m_connection.path());
        return {};
    }

    LXStatus write(const QVariantList& row) {
        LX_TRY(begin());
        for (int i = 0; i < kColumnCount; ++i)
            m_query.bindValue(i, row.at(i));
        if (!m_query.exec())
            return sqlError(LXErrWriteFailed, QStringLiteral("Cannot write to the metadata index"),
                            m_query.lastError(), m_connection.path());
        return counted();
    }

    LXStatus remove(const QString& path) {
        LX_TRY(begin());
        m_delete.bindValue(0, path);
        if (!m_delete.exec())
            return sqlError(LXErrWriteFailed, QStringLiteral("Cannot delete from the metadata index"),
                            m_delete.lastError(), m_connection.path());
        return counted();
    }

    LXStatus commit() {
        if (!m_open) return {};
        m_open = false;
        m_pending = 0;
        return m_connection.exec(QStringLiteral("COMMIT"));
    }

private:
    LXStatus begin() {
        if (m_open) return {};
        // IMMEDIATE takes the write lock now, so the busy timeout applies; a deferred transaction that
        // upgrades later can fail at once when another process wrote in between.
        LX_TRY(m_connection.exec(QStringLiteral("BEGIN IMMEDIATE")));
        m_open = true;
        return {};
    }
    LXStatus counted() {
        if (++m_pending >= kRowsPerTransaction) return commit();
        return {};
    }

    Connection& m_connection;
    QSqlQuery m_query;
    QSqlQuery m_delete{m_connection.db()};
    bool m_open = false;
    int m_pending = 0;
};

class Scanner {
public:
    Scanner(Connection& connection, const QString& databasePath, const std::atomic<bool>* cancel)
        : m_connection(connection), m_writer(connection), m_cancel(cancel),
          m_databasePath(QFileInfo(databasePath).absoluteFilePath()),
          m_databaseDirectory(QFileInfo(databasePath).absolutePath()) {}

    LXResult<TWIndexScanStatistics> run(const QString& scope) {
        LX_TRY(m_writer.prepare());
        LX_TRY(loadKnownRows(scope));
        struct stat st;
        if (::stat(QFile::encodeName(scope).constData(), &st) == 0 && S_ISDIR(st.st_mode)) {
            std::vector<QString> pending{scope};
            while (!pending.empty() && !cancelled()) {
                const QString directory = pending.back();
                pending.pop_back();
                LX_TRY(scanDirectory(directory, &pending));
            }
        }
        if (cancelled()) {
            m_stats.cancelled = true;
        } else {
            for (auto it = m_known.cbegin(); it != m_known.cend(); ++it) {
                LX_TRY(m_writer.remove(it.key()));
                ++m_stats.removed;
            }
        }
        LX_TRY(m_writer.commit());
        return m_stats;
    }

private:
    bool cancelled() const { return m_cancel && m_cancel->load(std::memory_order_relaxed); }

    LXStatus loadKnownRows(const QString& scope) {
        QSqlQuery query(m_connection.db());
        query.setForwardOnly(true);
        const QString prefix = scope.endsWith(u'/') ? scope : scope + u'/';
        QString upper = prefix;
        upper.back() = QChar(u'/' + 1);
        if (!query.prepare(
                QStringLiteral("SELECT path, size, mtime_ns, inode, kind = 'public.audio' AND loudness IS NULL "
                               "FROM items WHERE path > ? AND path < ?")))
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot read the metadata index"),
                            query.lastError(), m_connection.path());
        query.addBindValue(prefix);
        query.addBindValue(upper);
        if (!query.exec())
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot read the metadata index"),
                            query.lastError(), m_connection.path());
        while (query.next())
            m_known.insert(query.value(0).toString(),
                           Known{Stamp{query.value(1).toLongLong(), query.value(2).toLongLong(),
                                       query.value(3).toLongLong()},
                                 query.value(4).toBool()});
        return {};
    }

    LXStatus scanDirectory(const QString& directory, std::vector<QString>* pending) {
        const int fd = ::open(QFile::encodeName(directory).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return {}; // unreadable: its rows go as if it were empty
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            ::close(fd);
            return {};
        }
        std::unique_ptr<DIR, int (*)(DIR*)> closer(dir, ::closedir);
        while (const dirent* entry = ::readdir(dir)) {
            if (cancelled()) return {};
            if (entry->d_name[0] == '.') // hidden, ".", "..", and the writers' temporary files
                continue;
            struct statx stx;
            if (::statx(fd, entry->d_name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                        STATX_BASIC_STATS | STATX_BTIME, &stx) != 0)
                continue;
            const bool isDirectory = S_ISDIR(stx.stx_mode);
            if (!isDirectory && !S_ISREG(stx.stx_mode)) continue; // symbolic links, devices, pipes, sockets
            const QString name = QFile::decodeName(entry->d_name);
            const QString path = directory == u"/" ? u'/' + name : directory + u'/' + name;
            if (isDirectory) {
                if (path == m_databaseDirectory) continue;
                ++m_stats.directories;
                pending->push_back(path);
            } else {
                if (path.startsWith(m_databasePath)) // the index itself and its journal
                    continue;
                ++m_stats.files;
            }
            const Stamp stamp{isDirectory ? 0 : int64_t(stx.stx_size),
                              int64_t(stx.stx_mtime.tv_sec) * 1000000000 + stx.stx_mtime.tv_nsec,
                              int64_t(stx.stx_ino)};
            const auto known = m_known.constFind(path);
            if (known != m_known.cend()) {
                const bool current =
                    known->stamp == stamp &&
                    !(known->awaitsLoudness &&
                      LXWaveformCache::shared().analysisForPath(path).contains(QStringLiteral("loudness")));
                m_known.erase(known);
                if (current) continue;
            }
            LX_TRY(m_writer.write(row(path, name, directory, isDirectory, stamp, stx)));
            ++m_stats.updated;
        }
        return {};
    }

    QVariantList row(const QString& path, const QString& name, const QString& directory, bool isDirectory,
                     const Stamp& stamp, const struct statx& stx) {
        QVariantList r;
        r.reserve(kColumnCount);
        const double modified = seconds(stx.stx_mtime);
        const double created = (stx.stx_mask & STATX_BTIME) ? seconds(stx.stx_btime) : modified;
        QString kind = QStringLiteral("public.data");
        QStringList types = {QStringLiteral("public.data"), QStringLiteral("public.item")};
        QVariantMap info;
        if (isDirectory) {
            kind = QStringLiteral("public.folder");
            types = {QStringLiteral("public.folder"), QStringLiteral("public.directory"),
                     QStringLiteral("public.item")};
        } else if (!isTrailingSplitMember(path) &&
                   (hasAudioExtension(name) || LXFile::typeCodeAtPath(path) != 0)) {
            ++m_stats.opened;
            g_audioFilesOpened.fetch_add(1, std::memory_order_relaxed);
            if (auto file = LXAudioFile::open(path)) {
                info = (*file)->fileEntry();
                kind = QStringLiteral("public.audio");
                types = audioTypes((*file)->format());
            }
        }
        auto value = [&](const char* key) { return info.value(QLatin1String(key)); };
        auto text = [&](const char* key) {
            const QVariant v = value(key);
            return v.isValid() ? v.toString() : QVariant();
        };
        auto folded = [&](const char* key) {
            const QVariant v = value(key);
            return v.isValid() ? TWPredicate::foldText(v.toString()) : QVariant();
        };
        r << path << name << TWPredicate::foldText(name) << directory << kind << typeTree(types)
          << qint64(stamp.size) << created << modified << qint64(stamp.mtimeNs) << qint64(stamp.inode);
        r << (info.isEmpty() ? QVariant() : QVariant(fourCharacters(uint32_t(value("format").toLongLong()))))
          << value("rate") << value("channels") << value("range") << value("samples") << value("length")
          << value("tempo") << value("key") << value("baseNote");
        for (const char* key : {"title", "artist", "album", "genre", "comments", "description"})
            r << text(key) << folded(key);
        r << decibels(value("max")) << decibels(value("rms")) << value("loudness") << value("loudnessRange")
          << decibels(value("truePeak"));
        return r;
    }

    Connection& m_connection;
    RowWriter m_writer;
    const std::atomic<bool>* m_cancel;
    QString m_databasePath;
    QString m_databaseDirectory;
    QHash<QString, Known> m_known; // rows under the scope not yet seen on disk
    TWIndexScanStatistics m_stats;
};

} // namespace

TWMetadataIndex::TWMetadataIndex(QString databasePath) : m_path(std::move(databasePath)) {}

QString TWMetadataIndex::defaultDatabasePath() {
    {
        const std::lock_guard lock(g_defaultPathMutex);
        if (!g_defaultPath.isEmpty()) return g_defaultPath;
    }
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) +
           QStringLiteral("/Clipwright/index.sqlite");
}

void TWMetadataIndex::setDefaultDatabasePath(const QString& path) {
    const std::lock_guard lock(g_defaultPathMutex);
    g_defaultPath = path;
}

int64_t TWMetadataIndex::audioFilesOpened() {
    return g_audioFilesOpened.load();
}

LXResult<TWIndexScanStatistics> TWMetadataIndex::scan(const QString& scopeIn,
                                                      const std::atomic<bool>* cancel) {
    const QString scope = LXFile::conformPath(scopeIn);
    if (scope.isEmpty()) return LXError(LXErrInvalidParameter, QStringLiteral("No folder to index"));
    std::unique_lock<std::mutex> lock(g_scanMutex, std::defer_lock);
    while (!lock.try_lock()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        if (cancel && cancel->load()) {
            TWIndexScanStatistics stats;
            stats.cancelled = true;
            return stats;
        }
    }
    auto connection = Connection::open(m_path);
    if (!connection) return connection.error();
    Scanner scanner(**connection, m_path, cancel);
    return scanner.run(scope);
}

LXResult<QStringList> TWMetadataIndex::search(const TWPredicate& predicate, const QStringList& scopes) const {
    auto connection = Connection::open(m_path);
    if (!connection) return connection.error();
    QStringList results;
    {
        QStringList within;
        QVariantList bindings;
        for (const QString& scopeIn : scopes) {
            const QString scope = LXFile::conformPath(scopeIn);
            if (scope.isEmpty()) continue;
            const QString prefix = scope.endsWith(u'/') ? scope : scope + u'/';
            QString upper = prefix;
            upper.back() = QChar(u'/' + 1);
            within.append(QStringLiteral("(path > ? AND path < ?)"));
            bindings << prefix << upper;
        }
        if (within.isEmpty()) return results;
        QSqlQuery query((*connection)->db());
        query.setForwardOnly(true);
        const QString sql = QStringLiteral("SELECT path FROM items WHERE (%1) AND %2 ORDER BY path")
                                .arg(within.join(QStringLiteral(" OR ")), predicate.sqlWhere());
        if (!query.prepare(sql))
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot search the metadata index"),
                            query.lastError(), m_path);
        for (const QVariant& value : bindings)
            query.addBindValue(value);
        for (const QVariant& value : predicate.bindings())
            query.addBindValue(value);
        if (!query.exec())
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot search the metadata index"),
                            query.lastError(), m_path);
        while (query.next())
            results.append(query.value(0).toString());
    }
    return results;
}

LXResult<QVariantMap> TWMetadataIndex::record(const QString& path) const {
    auto connection = Connection::open(m_path);
    if (!connection) return connection.error();
    QVariantMap map;
    {
        QSqlQuery query((*connection)->db());
        if (!query.prepare(QStringLiteral("SELECT * FROM items WHERE path = ?")))
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot read the metadata index"),
                            query.lastError(), m_path);
        query.addBindValue(LXFile::conformPath(path));
        if (!query.exec())
            return sqlError(LXErrReadFailed, QStringLiteral("Cannot read the metadata index"),
                            query.lastError(), m_path);
        if (query.next()) {
            const QSqlRecord record = query.record();
            for (int i = 0; i < record.count(); ++i)
                map.insert(record.fieldName(i), query.value(i));
        }
    }
    return map;
}
