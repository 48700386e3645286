#pragma once

#include <QMutex>
#include <QString>
#include <QVariantMap>
#include <QVector>

#include <optional>

// The results of analysing a file: its levels and a waveform overview (per channel, the minimum and
// maximum of each block of framesPerPoint frames).
struct LXWaveformOverview {
    int channels = 0;
    int framesPerPoint = 0;
    QVector<float> minima; // point-major: point * channels + channel
    QVector<float> maxima;
};

// Analysis results kept on disk under ~/.cache/Clipwright/waveforms, one small file per audio file,
// keyed by path and valid while the file is the one analysed (see Stamp). Moves and deletions of audio
// files are told to the cache so that entries follow their files. Thread-safe.
class LXWaveformCache {
public:
    // What tells the analysed file from a later one at its path. Size and modification time alone are
    // not enough: another program may rewrite a file and set its old time back (touch -r), and two writes
    // within the file system's time granularity leave the time as it was. Every write, rename, link and
    // change of attributes sets the change time, which no user can set, so an entry is current only while
    // device, inode, size and both times (to the nanosecond) are unchanged: one stat per lookup. A
    // permission or attribute change costs a fresh analysis, never a stale one.
    // A rename sets the change time too, so a move cannot keep the stamp; it carries an entry across when
    // inode, size, modification time and the fingerprint (a hash of the first and last 64 KiB) still
    // match, which a rewrite before the move would have to leave intact in all three.
    struct Stamp {
        quint64 device = 0, inode = 0;
        qint64 size = -1, modifiedNs = 0, changedNs = 0;
        QByteArray fingerprint;
    };
    static std::optional<Stamp> stampOfPath(const QString& path); // nullopt when missing or unreadable

    static LXWaveformCache& shared();

    void setDirectory(const QString& directory); // tests and the preferences move it
    QString directory() const;
    void setEnabled(bool enabled);
    bool isEnabled() const;

    // "max", "rms", "clipped", "difference" of a current entry; empty when there is none.
    QVariantMap analysisForPath(const QString& path) const;
    bool hasEntryForPath(const QString& path) const;
    bool overviewForPath(const QString& path, LXWaveformOverview* overview) const;

    // stamp: the file's, taken before it was read, so that a change during the analysis makes the entry stale.
    bool store(const QString& path, const Stamp& stamp, const QVariantMap& analysis,
               const LXWaveformOverview& overview);
    void moveEntry(const QString& from, const QString& to);
    void removeEntryAtPath(const QString& path);
    void removeAll();

private:
    LXWaveformCache();
    QString entryPath(const QString& audioPath) const;
    struct Entry;
    bool read(const QString& audioPath, Entry* entry) const; // whatever is kept, current or not
    bool load(const QString& audioPath, Entry* entry) const; // only a current entry
    bool write(const Entry& entry) const;

    mutable QMutex m_mutex;
    QString m_directory;
    bool m_enabled = true;
};
