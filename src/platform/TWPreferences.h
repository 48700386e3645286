#pragma once

#include <QMutex>
#include <QSet>
#include <QString>
#include <QVariant>
#include <QVariantMap>

// The user's preferences: an XML property list (~/.config/Clipwright/Clipwright.plist) read and written
// through QSettings, with registered defaults answering for keys that are not set. Each top-level key holds
// one property-list value. Changes stay in memory until synchronize(), which merges them with what other
// processes wrote meanwhile; unsaved changes are written when the object goes away. Thread-safe: every
// call takes one lock.
//
// The file list is not a preference: it lives in its own file (TWEntriesStore), because every command
// reads the preferences and a list of 100,000 entries took a second to parse. A file written by an
// earlier version that still holds it under "Entries" has it moved there when it is first read.
//
// A file that is not a property list is never overwritten: its values are ignored (the defaults answer),
// lastError() says why, and the next synchronize() with changes renames it to
// "Clipwright.plist.damaged-<timestamp>" before writing the new file.
class TWPreferences {
public:
    TWPreferences();
    explicit TWPreferences(const QString& path);
    ~TWPreferences();
    TWPreferences(const TWPreferences&) = delete;
    TWPreferences& operator=(const TWPreferences&) = delete;

    static TWPreferences& shared();
    void registerDefaults(const QVariantMap& defaults); // consulted when a key is not set
    // "Undo Enabled" YES, "Auto Analyze" YES, ... registered by every TWPreferences from the start.
    // "Waveform Color" is a dictionary of the components "red", "green", "blue" and "alpha" (0 to 1).
    static QVariantMap standardDefaults();
    QVariant value(const QString& key) const;
    bool boolValue(const QString& key) const;
    qint64 integerValue(const QString& key) const;
    double doubleValue(const QString& key) const;
    QString stringValue(const QString& key) const;
    bool contains(const QString& key) const; // set by the user, not only a default
    void setValue(const QString& key, const QVariant& value);
    void removeValue(const QString& key);
    bool synchronize();                // writes the file; false (and lastError) on failure
    QString path() const;              // ~/.config/Clipwright/Clipwright.plist
    void setPath(const QString& path); // tests; reloads from that file
    QString lastError() const; // e.g. why the file on disk could not be read (then it is left untouched)

    static QString defaultPath(); // in $XDG_CONFIG_HOME

private:
    void load();
    void moveEntriesOut();
    bool synchronizeLocked();
    bool moveDamagedFileAside();

    mutable QMutex m_mutex;
    QString m_path;
    QVariantMap m_defaults;
    QVariantMap m_values;    // what the file holds plus the changes not yet written
    QSet<QString> m_changed; // keys set or removed since the file was last written
    QString m_lastError;
    bool m_damaged = false; // the file on disk is not a property list: keep it, write beside it
};
