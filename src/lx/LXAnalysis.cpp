#include "lx/LXAnalysis.h"

#include "lx/LXAudioFile.h"
#include "lx/LXProcess.h"
#include "lx/LXWaveformCache.h"
#include "lx/dsp/LXLoudnessMeter.h"
#include "lx/dsp/LXOverviewMeter.h"

#include <optional>

namespace {

// Both meters in the one pass over the file.
class AnalysisMeter final : public LXMeter {
public:
    AnalysisMeter(int64_t frames, double clipLevel, LXLoudnessAnalysis withLoudness)
        : overview(frames, clipLevel) {
        if (withLoudness == LXLoudnessAnalysis::Measure) loudness.emplace();
    }
    void prepare(int channels, double rate, const LXChannelSet& selection) override {
        overview.prepare(channels, rate, selection);
        if (loudness) loudness->prepare(channels, rate, selection);
    }
    void measure(const float* interleaved, int64_t frames) override {
        overview.measure(interleaved, frames);
        if (loudness) loudness->measure(interleaved, frames);
    }
    QVariantMap analysis() const {
        QVariantMap values = overview.analysis();
        if (loudness && loudness->isValid()) { // a rate libebur128 refuses leaves the loudness out, not the levels
            values.insert(QStringLiteral("loudness"), loudness->integrated());
            values.insert(QStringLiteral("loudnessRange"), loudness->range());
            values.insert(QStringLiteral("truePeak"), loudness->truePeak());
        }
        return values;
    }

    LXOverviewMeter overview;
    std::optional<LXLoudnessMeter> loudness;
};

} // namespace

LXStatus LXAnalyze(LXAudioFile& file, int type, LXLoudnessAnalysis withLoudness) {
    if (type != 1 && type != 0)
        return LXError(LXErrInvalidParameter, QStringLiteral("there is no analysis of type %1").arg(type),
                       file.path());
    // A sample at the top or bottom of an integer file's range counts as clipped; float files can
    // go beyond full scale, so there it is anything at or above 1.0.
    const double clipLevel = file.isFloat() ? 1.0 : 1.0 - 1.0 / double(int64_t(1) << (file.depth() - 1));
    AnalysisMeter meter(file.frames(), clipLevel, withLoudness);
    const std::optional<LXWaveformCache::Stamp> stamp = LXWaveformCache::stampOfPath(file.path());
    if (!stamp)
        return LXFileError::fromErrno(QStringLiteral("cannot read the file's attributes"), file.path());
    LX_TRY(LXMeasure(file, meter, 0, file.frames(), file.channelSet()));
    if (!LXWaveformCache::shared().store(file.path(), *stamp, meter.analysis(), meter.overview.overview()))
        return LXError(LXErrWriteFailed, QStringLiteral("the analysis could not be kept in the cache"),
                       file.path());
    return {};
}
