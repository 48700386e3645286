// Time stretching and pitch shifting through Rubber Band, offline: a study pass over the whole file, then
// the processing pass, so the stretcher knows where every transient lies before it places one. The
// output is exactly round(frames x factor) frames long, and the labels stretch with the audio.

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXProgressDelegate.h"

#include <rubberband/RubberBandStretcher.h>

#include <cmath>
#include <vector>

namespace {

using RubberBand::RubberBandStretcher;

constexpr int64_t kBlockFrames = 8192;

RubberBandStretcher::Options optionsFor(LXTimePitchEngine engine) {
    RubberBandStretcher::Options options =
        RubberBandStretcher::OptionProcessOffline | RubberBandStretcher::OptionPitchHighQuality;
    switch (engine) {
    case LXTimePitchEngine::Faster:
        return options | RubberBandStretcher::OptionEngineFaster;
    case LXTimePitchEngine::FinerFormants:
        return options | RubberBandStretcher::OptionEngineFiner | RubberBandStretcher::OptionFormantPreserved;
    case LXTimePitchEngine::Finer:
        break;
    }
    return options | RubberBandStretcher::OptionEngineFiner;
}

// The file's frames [at, at + count) as one buffer per channel.
struct PlanarBlock {
    std::vector<float> interleaved;
    std::vector<std::vector<float>> channels;
    std::vector<float*> pointers;

    explicit PlanarBlock(int count) : channels(size_t(count), std::vector<float>(size_t(kBlockFrames))) {
        for (auto& channel : channels)
            pointers.push_back(channel.data());
        interleaved.resize(size_t(kBlockFrames) * size_t(count));
    }
    LXResult<int64_t> read(LXAudioFile& file, int64_t at, int64_t count) {
        auto got = file.readFrames(at, count, interleaved.data());
        if (!got) return got;
        const size_t n = size_t(channels.size());
        for (int64_t f = 0; f < count; ++f)
            for (size_t c = 0; c < n; ++c)
                channels[c][size_t(f)] = interleaved[size_t(f) * n + c];
        return count;
    }
};

LXStatus ask(LXProgressDelegate* delegate, double fraction) {
    if (!delegate) return {};
    const int32_t code = delegate->update(float(fraction));
    if (code != LXContinue) return LXProgressError::errorWithCode(code, QStringLiteral("Processing"));
    return {};
}

} // namespace

LXStatus LXAudioFile::changeTimePitch(const LXTimePitch& change, LXAudioFileWriter& writer) {
    if (!(change.factor > 0.0) || !std::isfinite(change.factor))
        return LXError(LXErrInvalidParameter, QStringLiteral("the time factor %1 is not above 0").arg(change.factor),
                       path());
    const int channels = numberOfChannels();
    const int64_t frames = this->frames();
    const int64_t wanted = std::llround(double(frames) * change.factor);
    RubberBandStretcher stretcher(size_t(std::llround(rate())), size_t(channels), optionsFor(change.engine),
                                  change.factor, std::pow(2.0, change.cents / 1200.0));
    stretcher.setExpectedInputDuration(size_t(frames));
    stretcher.setMaxProcessSize(size_t(kBlockFrames));
    PlanarBlock block(channels);
    LXProgressDelegate* delegate = progressDelegate();
    if (delegate) delegate->reset();

    for (int64_t at = 0; at < frames; at += kBlockFrames) {
        const int64_t n = std::min(kBlockFrames, frames - at);
        LX_TRY(block.read(*this, at, n));
        stretcher.study(block.pointers.data(), size_t(n), at + n >= frames);
        LX_TRY(ask(delegate, 0.3 * double(at + n) / double(frames)));
    }

    writer.setChannels(channels);
    std::vector<std::vector<float>> out(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(kBlockFrames)));
    std::vector<float*> outPointers;
    for (auto& channel : out)
        outPointers.push_back(channel.data());
    std::vector<float> interleaved(size_t(kBlockFrames) * size_t(channels));
    int64_t written = 0;
    // Takes what the stretcher has ready, up to the exact length; -1 from available() means it is done.
    const auto drain = [&]() -> LXStatus {
        for (int ready = stretcher.available(); ready > 0 && written < wanted; ready = stretcher.available()) {
            const size_t got = stretcher.retrieve(outPointers.data(), size_t(std::min<int64_t>(ready, kBlockFrames)));
            const int64_t keep = std::min<int64_t>(int64_t(got), wanted - written);
            for (int64_t f = 0; f < keep; ++f)
                for (int c = 0; c < channels; ++c)
                    interleaved[size_t(f * channels + c)] = out[size_t(c)][size_t(f)];
            LX_TRY(writer.writeFrames(interleaved.data(), keep));
            written += keep;
        }
        return {};
    };
    for (int64_t at = 0; at < frames; at += kBlockFrames) {
        const int64_t n = std::min(kBlockFrames, frames - at);
        LX_TRY(block.read(*this, at, n));
        stretcher.process(block.pointers.data(), size_t(n), at + n >= frames);
        LX_TRY(drain());
        LX_TRY(ask(delegate, 0.3 + 0.7 * double(at + n) / double(frames)));
    }
    while (stretcher.available() >= 0 && written < wanted) {
        const int64_t before = written;
        LX_TRY(drain());
        if (written == before && stretcher.available() == 0) break; // nothing more will come
    }
    // The stretcher's own length is exact; a frame it did not give is silence, so the length always is.
    std::fill(interleaved.begin(), interleaved.end(), 0.0f);
    while (written < wanted) {
        const int64_t n = std::min(kBlockFrames, wanted - written);
        LX_TRY(writer.writeFrames(interleaved.data(), n));
        written += n;
    }
    writer.annotations().labels = annotations().labels;
    writer.annotations().labels.scale(frames > 0 ? double(wanted) / double(frames) : 1.0);
    return writer.endWrite();
}
