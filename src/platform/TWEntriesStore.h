#pragma once

#include "lx/LXResult.h"

#include <QDateTime>
#include <QString>
#include <QVariantMap>

#include <optional>

// The file list: the stored state of the workspace's root, a deep tree of property-list dictionaries, in
// a file of its own, "Entries.plist" beside the preferences, so that reading a preference never parses
// it. Only the window reads and writes it (when it opens and when it closes); the command line never
// does, except to move a list that an earlier version kept in the preferences (adopt()).
//
// Written atomically. A file that is not a property-list dictionary (or cannot be read) is never
// overwritten: load() says why, and the next write renames it "Entries.plist.damaged-<time>" first.
// Main thread.
class TWEntriesStore {
public:
    explicit TWEntriesStore(const QString& path);
    // "Entries.plist" in the folder of that preferences file.
    static QString pathBeside(const QString& preferencesPath);
    QString path() const { return m_path; }

    // The stored root; an empty map when nothing is stored.
    LXResult<QVariantMap> load();
    LXStatus save(const QVariantMap& root);
    // Stores a list found elsewhere. When the file already holds that list nothing is written; a file
    // that holds another list is kept as "Entries.plist.replaced-<time>", a damaged one as damaged.
    LXStatus adopt(const QVariantMap& root);

private:
    // What the file was when this object last read or wrote it: a file changed since must be read
    // again before it is replaced, to know whether it is damaged.
    struct Stamp {
        qint64 size = -1;
        QDateTime modified;
        bool operator==(const Stamp&) const = default;
    };
    std::optional<Stamp> stampOnDisk() const;
    LXStatus keepAside(const QString& kind);
    LXStatus write(const QVariantMap& root);

    QString m_path;
    std::optional<Stamp> m_seen;
    bool m_seenDamaged = false;
};
