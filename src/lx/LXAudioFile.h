#pragma once

#include "lx/LXAnnotations.h"
#include "lx/LXAudioBackend.h"
#include "lx/LXAudioFilename.h"
#include "lx/LXChannelSet.h"
#include "lx/LXProgressDelegate.h"
#include "lx/LXRange.h"
#include "lx/LXResult.h"
#include "lx/dsp/LXFade.h"

#include <QList>
#include <QString>
#include <QVariantMap>
#include <memory>
#include <optional>
#include <vector>

class LXAudioFileWriter;

// Rubber Band's engines: the finer one (R3, the better sound), the faster one (R2), and the finer one
// keeping formants, so that a voice shifted in pitch keeps its timbre.
enum class LXTimePitchEngine { Finer = 0, Faster = 1, FinerFormants = 2 };

// A change of duration and pitch: the output lasts `factor` times as long, `cents` higher.
struct LXTimePitch {
    double factor = 1.0;
    int cents = 0;
    LXTimePitchEngine engine = LXTimePitchEngine::Finer;
};

// An audio file opened for reading: one file, or a split set of mono files (name.L, name.R, ...) seen
// as one file of several channels. Signal processing is not here: whole-file operations run a kernel
// (lx/dsp) over the file's blocks with LXProcess or LXMeasure (lx/LXProcess.h), which report progress
// to the file's delegate once a block and end when it answers anything but LXContinue.
// Not thread-safe: one thread uses one object.
class LXAudioFile {
public:
    static LXResult<std::unique_ptr<LXAudioFile>> open(const QString& path);
    ~LXAudioFile();

    // A readable file whose header needed patching up (sizes that disagree with the file's length,
    // a streamed header): its code is LXErrRepairable.
    const std::optional<LXError>& warning() const { return m_warning; }

    QString path() const { return m_paths.first(); }
    const QStringList& paths() const { return m_paths; } // one per channel for a split set
    QString pathForChannel(int channel) const;
    bool isInterleaved() const { return m_paths.size() == 1; }
    QString displayName() const;
    LXAudioFilename filename() const;

    uint32_t format() const { return m_desc.format; }
    QString formatExtension() const;
    const LXSampleEncoding& encoding() const { return m_desc.encoding; }
    int depth() const { return m_desc.encoding.bits; }
    bool isFloat() const { return m_desc.encoding.isFloat(); }
    double rate() const { return m_desc.rate; }
    int numberOfChannels() const { return m_desc.channels; }
    int64_t frames() const { return m_desc.frames; }
    double length() const { return m_desc.rate > 0 ? double(m_desc.frames) / m_desc.rate : 0.0; }
    LXRange range() const { return LXRange::fromFrames(0, m_desc.frames, m_desc.rate); }
    LXChannelSet channelSet() const;
    const LXStreamDescription& description() const { return m_desc; }

    // Reading. Frames past the end read as silence; the result counts the frames inside the file. A
    // decoder that ends before the length its header gave shortens frames() to where it ended.
    LXResult<int64_t> readFrames(int64_t start, int64_t count, float* interleaved);
    LXResult<int64_t> readFrames(int64_t start, int64_t count, double* interleaved);
    // One sample, through a block cache: cheap in a loop over frames. Silence past the end, for a
    // channel the file lacks, and after a read error.
    float readSample(int64_t frame, int channel);

    void setProgressDelegate(LXProgressDelegate* delegate) { m_delegate = delegate; }
    LXProgressDelegate* progressDelegate() const { return m_delegate; }

    const LXAnnotations& annotations() const { return m_annotations; }
    const LXMetadata& metadata() const { return m_annotations.metadata; }
    const LXLabelList& markerList() const { return m_annotations.labels.markers; }
    const LXLabelList& sliceList() const { return m_annotations.labels.slices; }
    const LXLabelList& regionList() const { return m_annotations.labels.regions; }
    const LXLabelList& loopList() const { return m_annotations.labels.loops; }

    // The information keys of a file entry: format, rate, channels, samples, length, range (bits),
    // fileSize, metadata, and cached analysis (max, rms, clipped, difference) when present.
    QVariantMap fileEntry() const;

    // Copies and edits (LXAudioFileCopies.cpp), through LXProcess: every sample outside a fade keeps its
    // value, and labels and the time reference follow the audio (LXFollowPieces). They fail as LXProcess
    // does (lx/LXProcess.h).
    LXStatus copyRange(const LXRange& range, LXAudioFileWriter& writer); // only that stretch
    LXStatus snip(const LXRange& range, LXAudioFileWriter& writer);      // all but that stretch
    LXStatus pad(int64_t framesBefore, int64_t framesAfter, LXAudioFileWriter& writer); // silence around
    LXStatus copyToWriter(LXAudioFileWriter& writer);
    LXStatus copyChannels(const LXChannelSet& channels, LXAudioFileWriter& writer);
    // The whole file with a gain ramp (lx/dsp/LXFade.h): a fade in over frames [0, anchor), or a fade out
    // over [anchor, frames()).
    LXStatus fade(LXAudioFileWriter& writer, LXFadeType type, int64_t anchor, double curve);

    // The whole file stretched in time and shifted in pitch (LXAudioFileTimePitch.cpp), exactly
    // round(frames() x factor) frames long, its labels stretched with it. Reports progress and stops as
    // LXProcess does.
    LXStatus changeTimePitch(const LXTimePitch& change, LXAudioFileWriter& writer);

    // Searches (LXAudioFileSearches.cpp). They read in blocks from the nearest end, report progress to the
    // delegate and stop when it says so; a read error fails them.
    // By level, as lx/dsp/LXThreshold.h defines reaching one: the first frame that reaches the level (the
    // file's length when none does), and the frame after the last one that does (0 when none does). In
    // seconds, the same positions.
    LXResult<int64_t> startAtThreshold(float level);
    LXResult<int64_t> endAtThreshold(float level);
    LXResult<double> firstPositionOverThreshold(float level);
    LXResult<double> lastPositionOverThreshold(float level);
    // Zero crossings. A cut falls between two frames; the place between frames f - 1 and f is a crossing
    // when the sum of the channels (their mix) is zero at one of them or has opposite signs at the two, and
    // the file's start and end always are. Summing lets a crossing of a several-channel file be found at
    // all (channels rarely cross at the same frame); where the channels are alike it is each channel's
    // own crossing. The nearest crossing at or before a frame, and at or after it (frames clamped to the
    // file); in seconds, the same.
    LXResult<int64_t> previousZeroCross(int64_t frame);
    LXResult<int64_t> nextZeroCross(int64_t frame);
    LXResult<double> positionOfZeroCrossingBefore(double seconds);
    LXResult<double> positionOfZeroCrossingAfter(double seconds);
    // The nearer of the two (the earlier when both are as near).
    LXResult<int64_t> nearestZeroCross(int64_t frame);
    LXResult<double> positionOfZeroCrossingNearestTo(double seconds);

    // The tempo the file states (acid chunk, tags), in beats per minute; 0 when it states none.
    float tempo() const { return metadata().value(QStringLiteral("tempo")).toFloat(); }

    // Estimates from the audio (LXAudioFileEstimates.cpp), read in blocks through LXMeasure (progress to
    // the delegate, stopped when it says so; a read error fails them).
    // The MIDI note nearest to the dominant pitch of frames [from, to) of those channels mixed (see
    // lx/dsp/LXPitchDetector.h); none for silence or sound without a steady pitch.
    LXResult<std::optional<int>> pitch(int64_t from, int64_t to, const LXChannelSet& channels);
    // The tempo of the whole file's beats, in beats per minute (lx/dsp/LXTempoMeter.h); 0 when no steady
    // beat is heard: silence, a single hit, or less than about four beats.
    LXResult<double> tempoGuess();

    // The regions of the file that rise to a level and fall back below another,
    // in the order of the file, in seconds with the file's rate set. Levels are linear amplitudes and reached
    // as lx/dsp/LXThreshold.h defines it. A region opens at the first frame that reaches `attack`; it closes
    // once the level has stayed below `release` for `interval` seconds (an interval of 0 closes it at the
    // first frame below), and ends just after the last frame that reached `release` (or the file's end).
    // With zeroCross each start moves back to previousZeroCross and each end forward to nextZeroCross, never
    // into the region before or after. A file that never reaches `attack` gives no region. Read in blocks
    // from the start, reporting progress and stopping as the searches above do.
    LXResult<QList<LXRange>> thresholdArray(float attack, float release, double interval, bool zeroCross);

    // Whether the cache holds a current overview of this file (see LXAnalyze in lx/LXAnalysis.h).
    bool hasWaveformsOfType(int type) const;

    // File operations on every file of the set. The object then names the new files.
    LXResult<QString> duplicateToPath(const QString& proposedPath); // copy under the first free name
    QStringList duplicatePaths(const QString& proposedPath) const;  // the names that copy would take
    LXStatus moveToPath(const QString& path);
    // Renames every file of the set in its folder, never replacing a file: when a new name is taken, the
    // files renamed already get their names back and the error says which name.
    LXStatus renameToPath(const QString& path);
    LXStatus copyToPath(const QString& path);
    LXStatus moveToTrash();
    LXStatus deleteFiles();

    // Rewrites the header of a WAV or AIFF file whose sizes are wrong (as after a crash while
    // recording) so that they match the data on disk.
    static LXStatus repairAtPath(const QString& path);

    // Members of a split set in channel order, found beside a member's path ("take.L" gives
    // "take.L", "take.R"); empty when the path is not a member of such a set.
    static QStringList splitSetMembers(const QString& path);

private:
    LXAudioFile() = default;
    template <typename T> LXResult<int64_t> readInto(int64_t start, int64_t count, T* interleaved);
    void adoptPaths(const QStringList& paths);

    QStringList m_paths;
    std::vector<std::unique_ptr<LXAudioReader>> m_readers; // one, or one per channel
    LXStreamDescription m_desc;
    LXAnnotations m_annotations;
    std::optional<LXError> m_warning;
    LXProgressDelegate* m_delegate = nullptr;

    // readSample's cache: one block of interleaved frames.
    std::vector<float> m_cache;
    int64_t m_cacheStart = -1;
    int64_t m_cacheFrames = 0;

    friend class LXAudioFileWriter;
};
