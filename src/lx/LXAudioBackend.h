#pragma once

// The two ends every audio file goes through: a reader of interleaved frames and a sink that takes
// them. WAV, RF64 and AIFF/AIFC have readers and sinks of our own (LXPcmReader, LXPcmSink); other
// formats go through libsndfile (LXSndfileBackend). LXAudioFile and LXAudioFileWriter are built on
// these and never see which one they hold.

#include "lx/LXAnnotations.h"
#include "lx/LXAudioFormat.h"
#include "lx/LXResult.h"

#include <QString>
#include <memory>
#include <optional>

class LXAudioReader {
public:
    virtual ~LXAudioReader() = default;
    virtual const LXStreamDescription& description() const = 0;
    virtual const LXAnnotations& annotations() const = 0;
    // Set when the file is readable but its header is wrong (LXErrRepairable).
    virtual std::optional<LXError> warning() const { return std::nullopt; }

    // Reads up to count frames from frame on, interleaved, scaled to +-1.0. Returns the frames read:
    // fewer than asked only at the end of the file. Integer samples of n bits read as v / 2^(n-1).
    virtual LXResult<int64_t> read(int64_t frame, int64_t count, float* out) = 0;
    virtual LXResult<int64_t> read(int64_t frame, int64_t count, double* out) = 0;
};

class LXAudioSink {
public:
    virtual ~LXAudioSink() = default;

    // Appends frames, interleaved. Values beyond +-1.0 clip when the file stores integers.
    virtual LXStatus write(const float* in, int64_t frames) = 0;
    virtual LXStatus write(const double* in, int64_t frames) = 0;

    // Writes what the file needs besides the audio, completes its header and flushes it to the disk
    // (fsync). The sink takes no more frames afterwards.
    virtual LXStatus finish(const LXAnnotations& annotations, bool retainUnknownChunks) = 0;
};

// libsndfile: CAF, AU, W64, FLAC, Ogg Vorbis, Opus, MP3 (read only) and whatever else it reads.
LXResult<std::unique_ptr<LXAudioReader>> LXOpenSndfileReader(const QString& path);
LXResult<std::unique_ptr<LXAudioSink>> LXCreateSndfileSink(const QString& path,
                                                           const LXStreamDescription& desc);
// Whether libsndfile can write that container, codec, sample size, rate and channel count.
bool LXSndfileCanWrite(const LXStreamDescription& desc);

// Our own code: WAV (RIFF, RIFX, RF64, BW64) and AIFF/AIFC.
LXResult<std::unique_ptr<LXAudioReader>> LXOpenPcmReader(const QString& path);
LXResult<std::unique_ptr<LXAudioSink>> LXCreatePcmSink(const QString& path, const LXStreamDescription& desc);
