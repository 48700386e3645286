#pragma once

#include "lx/LXResult.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <atomic>
#include <cstdint>

class TWPredicate;

struct TWIndexScanStatistics {
    int64_t files = 0;       // regular files seen
    int64_t directories = 0; // below the scope
    int64_t updated = 0;     // rows written: new or changed entries
    int64_t opened = 0;      // audio files opened to read their properties
    int64_t removed = 0;     // rows of entries that are gone
    bool cancelled = false;
};

// Clipwright's index of file metadata: an SQLite database with one row per file or folder (path, name,
// directory, kind, size, dates, content types, and for audio files the properties the framework reads:
// rate, channels, bit depth, frames, duration, format, tempo, key, base note and text metadata).
//
// Every call opens its own connection on the calling thread and closes it before returning, so one
// object may be used from any number of threads at once. Scans in one process take turns (they would
// open the same files); SQLite's locking (WAL, busy timeout) keeps other processes out of the way.
// Needs a QCoreApplication: Qt loads the SQLite driver as a plug-in.
class TWMetadataIndex {
public:
    explicit TWMetadataIndex(QString databasePath = defaultDatabasePath());

    // GenericCacheLocation + "/Clipwright/index.sqlite", unless tests have set another.
    static QString defaultDatabasePath();
    static void setDefaultDatabasePath(const QString& path); // empty restores the standard one
    const QString& databasePath() const { return m_path; }

    // Brings the rows under the directory up to date: walks the tree (hidden entries and symbolic
    // links are left out), writes rows for new and changed entries and deletes the rows of entries
    // that are gone. An entry whose size, modification time and inode equal its row is not looked at
    // again; audio files (known extension, or content the framework recognises) are opened for their
    // properties. A scope that does not exist loses all its rows. Returns early, keeping what it
    // wrote, when `cancel` becomes true.
    LXResult<TWIndexScanStatistics> scan(const QString& scope, const std::atomic<bool>* cancel = nullptr);

    // Paths of the entries below any of the scopes (not the scopes themselves) that the predicate
    // accepts, sorted.
    LXResult<QStringList> search(const TWPredicate& predicate, const QStringList& scopes) const;

    // The stored row of one path, column name to value; empty when the index has no such row.
    LXResult<QVariantMap> record(const QString& path) const;

    // Audio files opened by every index of this process since it started: tests compare it before and
    // after a scan.
    static int64_t audioFilesOpened();

private:
    QString m_path;
};
