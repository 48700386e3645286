#pragma once

#include "lx/LXAnnotations.h"
#include "lx/LXAudioBackend.h"
#include "lx/LXFileDescriptor.h"
#include "lx/LXResult.h"
#include "lx/dsp/LXSignalMeter.h"

#include <QString>
#include <QStringList>
#include <memory>
#include <optional>
#include <vector>

class LXAudioFile;

// Writes one audio file (or a split set of mono files) into temporary files in the destination
// folder; saving gives each temporary file its final path with an atomic rename, so a reader never
// sees half a file under a real name. Until then nothing outside the temporary files is touched, and
// a writer destroyed unsaved deletes them.
//
// Set the format first, then write frames (writeFrames, or beginWrite / writeSample / endWrite);
// labels and metadata may change until endWrite. Not thread-safe.
class LXAudioFileWriter {
public:
    // An empty writer: 16-bit stereo WAV at 44100 Hz into the given folder (the current folder when empty).
    explicit LXAudioFileWriter(const QString& directory = {});
    // The source's format, depth, rate, channels, layout, metadata, labels, unknown chunks and tags
    // (ID3v2 frames, Vorbis comments, pictures), into the source's folder.
    explicit LXAudioFileWriter(const LXAudioFile& source);
    ~LXAudioFileWriter();
    LXAudioFileWriter(const LXAudioFileWriter&) = delete;
    LXAudioFileWriter& operator=(const LXAudioFileWriter&) = delete;

    // Global default for setWriteUnusedChunks, from the user's "Retain Unrecognized Data".
    static void setRetainUnrecognizedDataDefault(bool retain);
    static bool retainUnrecognizedDataDefault();
    // Global: a writer made from a source whose codec cannot be written back re-encodes it into the
    // container's plain samples (false: it refuses to write). The command line's --accept-reencode.
    static void setAcceptReencodingDefault(bool accept);
    // Whether this build writes that container with that codec, sample size, rate and channels.
    static bool canWrite(const LXStreamDescription& desc);
    // The container and codec of a source that a writer mirroring it cannot write back, in words
    // ("MPEG Layer 3 (MPEG Layer 2)", "64-bit integer samples"); nothing when it can.
    static std::optional<QString> reencodingOf(const LXStreamDescription& source);

    void setFormat(uint32_t format);
    void setRate(double rate);
    void setDepth(int bits);      // integer PCM of that many bits
    void setFloat(int bits = 32); // IEEE float of 32 or 64 bits
    void setEncoding(const LXSampleEncoding& encoding);
    void setChannels(int channels);
    void setInterleaved(bool interleaved); // false: one mono file per channel
    void setDirectory(const QString& directory);
    // Unused chunks are those this framework does not interpret (LXAnnotations::unknownChunks), which a
    // rewrite otherwise carries over byte for byte.
    void setWriteUnusedChunks(bool write) { m_writeUnusedChunks = write; }
    // Analysis data is what a file says it measured of its own samples: the loudness fields of its
    // broadcast chunk ("loudnessValue", "loudnessRange", "maxTruePeakLevel", "maxMomentaryLoudness",
    // "maxShortTermLoudness"). Our own analysis lives in LXWaveformCache, never in the file, and peak and
    // overview chunks (PEAK, levl) are dropped on reading, as a rewrite would make them stale.
    void setWriteAnalysis(bool write) { m_writeAnalysis = write; }
    bool writesAnalysis() const { return m_writeAnalysis; }

    uint32_t format() const { return m_desc.format; }
    QString formatExtension() const;
    int depth() const { return m_desc.encoding.bits; }
    bool isFloat() const { return m_desc.encoding.isFloat(); }
    double rate() const { return m_desc.rate; }
    int channels() const { return m_desc.channels; }
    bool isInterleaved() const { return m_interleaved; }
    int numberOfFiles() const { return m_interleaved ? 1 : m_desc.channels; }
    const QString& directory() const { return m_directory; }
    const LXStreamDescription& description() const { return m_desc; }
    int64_t framesWritten() const { return m_framesWritten; }
    // The writer's file holds 32-bit integers, which need double precision to pass through unchanged.
    bool needsDoublePrecision() const;
    // Peak, RMS and clipped samples of what was written, as the output's encoding stores it (from
    // beginWrite on).
    const LXSignalMeter& levels() const { return m_levels; }

    // A writer that makes no file: frames are measured and counted, and nothing reaches the disk (a dry
    // run). Set before writing; such a writer cannot be saved.
    void setDiscarding(bool discarding) { m_discarding = discarding; }

    LXAnnotations& annotations() { return m_annotations; }
    LXMetadata& metadata() { return m_annotations.metadata; }
    LXLabelList& markerList() { return m_annotations.labels.markers; }
    LXLabelList& sliceList() { return m_annotations.labels.slices; }
    LXLabelList& regionList() { return m_annotations.labels.regions; }
    LXLabelList& loopList() { return m_annotations.labels.loops; }
    void addMetadata(const LXMetadata& metadata, bool overwrite) {
        m_annotations.metadata.addMetadata(metadata, overwrite);
    }

    // Writing. beginWrite is implicit in the first writeFrames.
    LXStatus beginWrite();
    LXStatus writeFrames(const float* interleaved, int64_t frames);
    LXStatus writeFrames(const double* interleaved, int64_t frames);
    // Sample by sample: a frame is complete once each of its channels was written.
    void writeSample(float sample, int channel);
    LXStatus endWrite(); // completes and syncs the temporary files

    // A change of descriptive data alone: the source's files byte for byte, with the writer's metadata in
    // their tags. For formats whose audio a rewrite would encode again (MP3, Ogg, Opus) or need not touch
    // (FLAC). Only for a writer made from that source, before anything is written; the output is then
    // finished, ready to save.
    LXStatus copyVerbatim(const LXAudioFile& source);
    // Whether the writer's format has a place for the metadata key: every key in WAV and AIFF files,
    // the tag fields (lx/LXTags.h) in MP3, FLAC, Ogg and Opus files, none in the others.
    bool canHold(const QString& key) const;

    // Saving: gives file i its final path (an atomic rename over whatever is there) and syncs the
    // folder. Call after endWrite, once per file.
    QString temporaryPath(int file) const;
    QString savedPath(int file) const; // empty until saved
    LXStatus saveFile(int file, const QString& path);

    // Discards the output: deletes the temporary files (and any saved ones).
    void deleteOutput();

    // The temporary files of writers that died (a killed process) in the folder: deleted once no writer
    // holds them and they are more than a few seconds old.
    static void removeAbandonedTemporaryFiles(const QString& directory);
    static constexpr const char* kTemporarySuffix = ".cwtmp";

private:
    LXStatus flushSamples();
    LXStatus openSinks();
    template <typename T> LXStatus writeInterleaved(const T* interleaved, int64_t frames);

    LXStreamDescription m_desc;
    bool m_interleaved = true;
    QString m_directory;
    QString m_baseName = QStringLiteral("Untitled");
    LXAnnotations m_annotations;
    uint32_t m_sourceFormat = LXFormat::Unknown; // the container the unknown chunks came from, if any
    // The source's tags (lx/LXTags.h) reach the lead file once it is written; what the writer's metadata
    // changed from the source's wins.
    QString m_tagSourcePath; // empty when the source has no tags of that kind
    LXMetadata m_sourceMetadata;
    std::optional<QString> m_sourceExtension;     // the source's own, kept while the format is the same
    bool m_writeUnusedChunks = true;
    bool m_writeAnalysis = true;
    bool m_discarding = false;
    LXSignalMeter m_levels;

    enum class State { Setup, Writing, Finished, Failed };
    State m_state = State::Setup;
    std::vector<std::unique_ptr<LXAudioSink>> m_sinks;
    QStringList m_tempPaths;
    std::vector<LXFileDescriptor> m_tempLocks; // held until the writer goes
    QStringList m_savedPaths;
    int64_t m_framesWritten = 0;

    // writeSample's buffer: whole frames, flushed in blocks.
    std::vector<float> m_sampleBuffer;
    int64_t m_bufferedFrames = 0;
    int m_nextChannel = 0;
    std::vector<float> m_deinterleave;
    std::vector<double> m_deinterleaveDouble;
    std::optional<LXError> m_sampleError;
};
