#pragma once

#include <QMutex>
#include <QString>
#include <QVariantMap>
#include <QVector>

// The results of analysing a file: its levels and a waveform overview (per channel, the minimum and
// maximum of each block of framesPerPoint frames).
struct LXWaveformOverview {
    int channels = 0;
    int framesPerPoint = 0;
    QVector<float> minima; // point-major: point * channels + channel
    QVector<float> maxima;
};

// Analysis results kept on disk under ~/.cache/Clipwright/waveforms, one small file per audio file,
// keyed by path and valid while the file's size and modification time are unchanged. Moves and
// deletions of audio files are told to the cache so that entries follow their files. Thread-safe.
class LXWaveformCache {
public:
    static LXWaveformCache& shared();

    void setDirectory(const QString& directory); // tests and the preferences move it
    QString directory() const;
    void setEnabled(bool enabled);
    bool isEnabled() const;

    // "max", "rms", "clipped", "difference" of a current entry; empty when there is none.
    QVariantMap analysisForPath(const QString& path) const;
    bool hasEntryForPath(const QString& path) const;
    bool overviewForPath(const QString& path, LXWaveformOverview* overview) const;

    bool store(const QString& path, const QVariantMap& analysis, const LXWaveformOverview& overview);
    void moveEntry(const QString& from, const QString& to);
    void removeEntryAtPath(const QString& path);
    void removeAll();

private:
    LXWaveformCache();
    QString entryPath(const QString& audioPath) const;
    struct Entry;
    bool load(const QString& audioPath, Entry* entry) const;

    mutable QMutex m_mutex;
    QString m_directory;
    bool m_enabled = true;
};
