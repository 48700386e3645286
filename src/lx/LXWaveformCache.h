#pragma once

#include "lx/LXFile.h"

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
    // What tells the analysed file from a later one at its path: its version (LXFile::versionOfPath; size
    // and modification time alone miss a rewrite that sets the old time back) and, so that an entry can
    // follow its file across a rename (which sets the change time), a fingerprint: a hash of the first and
    // last 64 KiB. A lookup costs one stat; a change of permissions or attributes costs a fresh analysis,
    // never a stale one.
    struct Stamp {
        LXFile::LXFileVersion version;
        QByteArray fingerprint;
    };
    static std::optional<Stamp> stampOfPath(const QString& path); // nullopt when missing or unreadable

    static LXWaveformCache& shared();

    void setDirectory(const QString& directory); // tests and the preferences move it
    QString directory() const;
    void setEnabled(bool enabled);
    bool isEnabled() const;

    // "max", "rms", "clipped", "difference", "loudness" (LUFS), "loudnessRange" (LU) and "truePeak" (an
    // amplitude) of a current entry; empty when there is none.
    QVariantMap analysisForPath(const QString& path) const;
    bool hasEntryForPath(const QString& path) const;
    bool overviewForPath(const QString& path, LXWaveformOverview* overview) const;

    // stamp: the file's, taken before it was read, so that a change during the analysis makes the entry
    // stale.
    bool store(const QString& path, const Stamp& stamp, const QVariantMap& analysis,
               const LXWaveformOverview& overview);
    void moveEntry(const QString& from, const QString& to);
    void removeEntryAtPath(const QString& path);
    void removeAll();

private:
    LXWaveformCache();
    QString entryPath(const QString& audioPath) const;
    struct Entry;
    // Whatever is kept, current or not; without the overview, its arrays are left unread.
    bool read(const QString& audioPath, Entry* entry, bool withOverview = true) const;
    bool load(const QString& audioPath, Entry* entry, bool withOverview = true) const; // only a current entry
    bool write(const Entry& entry) const;

    mutable QMutex m_mutex;
    QString m_directory;
    bool m_enabled = true;
};
