// Musical properties estimated from a file's audio: its pitch and its tempo.

#include "lx/LXAudioFile.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXPitchDetector.h"
#include "lx/dsp/LXTempoMeter.h"

#include <algorithm>

LXResult<std::optional<int>> LXAudioFile::pitch(int64_t from, int64_t to, const LXChannelSet& channels) {
    LXPitchDetector detector(std::min(to, frames()) - std::max<int64_t>(from, 0));
    LX_TRY(LXMeasure(*this, detector, from, to, channels));
    return detector.note();
}

LXResult<double> LXAudioFile::tempoGuess() {
    LXTempoMeter meter;
    LX_TRY(LXMeasure(*this, meter, 0, frames(), channelSet()));
    return meter.bpm();
}
