#pragma once

#include "lx/LXResult.h"

class LXAudioFile;

// Whether an analysis measures loudness too. It costs three to seven times the rest (libebur128 filters
// every sample in double precision, and oversamples four times for the true peak: 200 ten-second files
// took 1.2 s without it, 9.0 s with it), so only the commands that show or use it ask for it.
enum class LXLoudnessAnalysis { Skip, Measure };

// Analyses a file in one pass (peak, RMS, clipped samples, DC offset and a waveform overview, see
// LXOverviewMeter; when asked, loudness, loudness range and true peak, see LXLoudnessMeter) and keeps the
// results in LXWaveformCache, where fileEntry() and the waveform view find them. type is 0 or 1 (both give
// the same analysis). Reports progress to the file's delegate and fails as LXMeasure does
// (lx/LXProcess.h), or when the cache cannot store the results.
LXStatus LXAnalyze(LXAudioFile& file, int type, LXLoudnessAnalysis loudness = LXLoudnessAnalysis::Skip);
