#pragma once

#include "lx/LXResult.h"

class LXAudioFile;

// Analyses a file in one pass (peak, RMS, clipped samples, DC offset and a waveform overview, see
// LXOverviewMeter; loudness, loudness range and true peak, see LXLoudnessMeter) and keeps the results
// in LXWaveformCache, where fileEntry() and the waveform view find them. type is 0 or 1 (both give the same analysis). Reports progress to the file's delegate and
// fails as LXMeasure does (lx/LXProcess.h), or when the cache cannot store the results.
LXStatus LXAnalyze(LXAudioFile& file, int type);
