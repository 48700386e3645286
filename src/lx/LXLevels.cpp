#include "lx/LXLevels.h"

#include "lx/LXAudioFile.h"
#include "lx/LXProcess.h"
#include "lx/dsp/LXLoudnessMeter.h"
#include "lx/dsp/LXMeanMeter.h"
#include "lx/dsp/LXPeakMeter.h"
#include "lx/dsp/LXRmsMeter.h"

#include <algorithm>

LXResult<float> LXMaximumFrom(LXAudioFile& file, int64_t from, int64_t to, const LXChannelSet& channels) {
    LXPeakMeter meter;
    LX_TRY(LXMeasure(file, meter, from, to, channels));
    return meter.peak();
}

LXResult<float> LXRmsFrom(LXAudioFile& file, int64_t from, int64_t to, const LXChannelSet& channels) {
    LXRmsMeter meter;
    LX_TRY(LXMeasure(file, meter, from, to, channels));
    return meter.rms();
}

LXResult<std::vector<double>> LXMeanFrom(LXAudioFile& file, int64_t from, int64_t to) {
    LXMeanMeter meter;
    LX_TRY(LXMeasure(file, meter, from, to, file.channelSet()));
    return meter.means();
}

LXResult<std::vector<double>> LXBalanceGains(LXAudioFile& file, LXLevelMeasure measure) {
    const int channels = file.numberOfChannels();
    std::vector<double> levels(static_cast<size_t>(channels));
    if (measure == LXLevelMeasure::RMS) {
        LXRmsMeter meter(LXRmsMeter::Scope::EachChannel);
        LX_TRY(LXMeasure(file, meter, 0, file.frames(), file.channelSet()));
        for (int c = 0; c < channels; ++c)
            levels[size_t(c)] = meter.rms(c);
    } else {
        LXPeakMeter meter;
        LX_TRY(LXMeasure(file, meter, 0, file.frames(), file.channelSet()));
        for (int c = 0; c < channels; ++c)
            levels[size_t(c)] = meter.peak(c);
    }
    std::vector<double> gains(size_t(channels), 1.0);
    if (channels == 0) return gains;
    const double reference = *std::max_element(levels.begin(), levels.end());
    for (int c = 0; c < channels; ++c)
        if (levels[size_t(c)] > 0) gains[size_t(c)] = reference / levels[size_t(c)];
    return gains;
}

LXResult<LXLoudness> LXLoudnessOf(LXAudioFile& file) {
    LXLoudnessMeter meter;
    LX_TRY(LXMeasure(file, meter, 0, file.frames(), file.channelSet()));
    if (!meter.isValid())
        return LXError(LXErrInvalidParameter,
                       QStringLiteral("the loudness of %1 channels at %2 Hz cannot be measured")
                           .arg(file.numberOfChannels())
                           .arg(file.rate()),
                       file.path());
    return LXLoudness{meter.integrated(), meter.range(), meter.truePeak()};
}
