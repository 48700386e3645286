#pragma once

#include "lx/LXChannelSet.h"
#include "lx/LXResult.h"

#include <cstdint>
#include <vector>

class LXAudioFile;

// Level measurements over frames [from, to) of a file (clamped to its length), streamed in blocks with
// progress to the file's delegate. They fail as LXMeasure does (lx/LXProcess.h): the delegate's stop as
// an LXProgressError with its code, a read failure as the reader's error.

// The largest magnitude of the given channels together (NaN when a sample is NaN).
LXResult<float> LXMaximumFrom(LXAudioFile& file, int64_t from, int64_t to, const LXChannelSet& channels);
// The root mean square of the given channels together.
LXResult<float> LXRmsFrom(LXAudioFile& file, int64_t from, int64_t to, const LXChannelSet& channels);
// The mean (DC offset) of each channel of the file, one value per channel.
LXResult<std::vector<double>> LXMeanFrom(LXAudioFile& file, int64_t from, int64_t to);

enum class LXLevelMeasure { Peak, RMS };

// The gains that balance a file's channels (for LXChannelGains): each channel's level, by peak or RMS,
// is brought to the loudest channel's level. By peak this never clips, and no channel gets quieter.
// Silent channels keep a gain of 1. One pass over the file.
LXResult<std::vector<double>> LXBalanceGains(LXAudioFile& file, LXLevelMeasure measure);

// Loudness of a whole file (LXLoudnessMeter): integrated in LUFS (-inf for silence), range in LU, true
// peak as an amplitude. Fails as the measurements above, or with LXErrInvalidParameter when the file's
// rate or channels cannot be measured.
struct LXLoudness {
    double integrated = 0.0;
    double range = 0.0;
    double truePeak = 0.0;
};
LXResult<LXLoudness> LXLoudnessOf(LXAudioFile& file);
