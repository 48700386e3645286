// Whole-file sample operations of LXAudioFile: each streams the file in blocks through a writer or a
// measurement, reports progress once a block, and stops with the delegate's code.

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

// 16 K frames: big enough that per-block overhead (progress, system calls) vanishes, small enough
// that a block of any channel count stays in the cache.
constexpr int64_t kBlockFrames = 16384;

} // namespace

// Runs process(block, frames) over frames [from, to) of the file and writes each block to the
// writer. T is double when either end holds 32-bit integers, so those pass unchanged.
template <typename T, typename Process>
static int32_t streamToWriter(LXAudioFile& file, int64_t from, int64_t to, LXAudioFileWriter& writer,
                              int outChannels, Process&& process) {
    const int inChannels = file.numberOfChannels();
    std::vector<T> in(size_t(kBlockFrames * inChannels));
    std::vector<T> out(size_t(kBlockFrames * outChannels));
    if (auto begun = writer.beginWrite(); !begun) return file.recordError(begun.error());
    if (LXProgressDelegate* delegate = file.progressDelegate()) delegate->reset();
    const int64_t total = std::max<int64_t>(0, to - from);
    for (int64_t done = 0; done < total;) {
        const int64_t n = std::min(kBlockFrames, total - done);
        if (auto got = file.readFrames(from + done, n, in.data()); !got) return file.recordError(got.error());
        process(in.data(), out.data(), n);
        if (auto written = writer.writeFrames(out.data(), n); !written)
            return file.recordError(written.error());
        done += n;
        if (LXProgressDelegate* delegate = file.progressDelegate()) {
            const int32_t code = delegate->update(float(double(done) / double(total)));
            if (code != LXContinue) return code;
        }
    }
    if (auto ended = writer.endWrite(); !ended) return file.recordError(ended.error());
    return LXContinue;
}

template <typename Process>
static int32_t streamAuto(LXAudioFile& file, int64_t from, int64_t to, LXAudioFileWriter& writer,
                          int outChannels, Process&& process) {
    const bool wide = writer.needsDoublePrecision() || (!file.isFloat() && file.encoding().bytes == 4);
    if (wide) return streamToWriter<double>(file, from, to, writer, outChannels, process);
    return streamToWriter<float>(file, from, to, writer, outChannels, process);
}

int32_t LXAudioFile::changeAmplitude(const QVariantMap& parameters, LXAudioFileWriter& writer) {
    const double gain = parameters.value(QStringLiteral("gain"), 1.0).toDouble();
    const int channels = numberOfChannels();
    writer.setChannels(channels);
    return streamAuto(*this, 0, frames(), writer, channels, [&](const auto* in, auto* out, int64_t n) {
        using T = std::remove_cvref_t<decltype(*out)>;
        const T g = T(gain);
        for (int64_t i = 0; i < n * channels; ++i)
            out[i] = in[i] * g;
    });
}

int32_t LXAudioFile::balance(LXAudioFileWriter& writer, bool rms) {
    const int channels = numberOfChannels();
    std::vector<double> levels(static_cast<size_t>(channels));
    for (int c = 0; c < channels; ++c) {
        auto level = rms ? rmsFrom(0, frames(), {c}) : maximumFrom(0, frames(), {c});
        if (!level) return recordError(level.error());
        levels[size_t(c)] = *level;
    }
    // Every channel is brought to the loudest channel's level: by peak this never clips, and no
    // channel gets quieter. Silent channels stay silent.
    const double reference = *std::max_element(levels.begin(), levels.end());
    std::vector<double> gains(static_cast<size_t>(channels), 1.0);
    for (int c = 0; c < channels; ++c)
        if (levels[size_t(c)] > 0) gains[size_t(c)] = reference / levels[size_t(c)];
    writer.setChannels(channels);
    return streamAuto(*this, 0, frames(), writer, channels, [&](const auto* in, auto* out, int64_t n) {
        using T = std::remove_cvref_t<decltype(*out)>;
        for (int64_t f = 0; f < n; ++f)
            for (int c = 0; c < channels; ++c)
                out[f * channels + c] = in[f * channels + c] * T(gains[size_t(c)]);
    });
}

int32_t LXAudioFile::copyRange(const LXRange& rangeIn, LXAudioFileWriter& writer) {
    LXRange range = rangeIn;
    range.setRate(rate());
    const int64_t from = std::clamp<int64_t>(range.sampleStart(), 0, frames());
    const int64_t to = std::clamp<int64_t>(range.sampleEnd(), from, frames());
    const int channels = numberOfChannels();
    writer.setChannels(channels);

    // Labels move with the audio: shifted to the new start, those outside dropped, ranges clipped.
    const double start = double(from) / rate();
    const double length = double(to - from) / rate();
    for (LXLabelList* list :
         {&writer.markerList(), &writer.sliceList(), &writer.regionList(), &writer.loopList()}) {
        LXLabelList kept(list->kind());
        for (LXLabel label : list->list()) {
            const double s = std::max(label.start - start, 0.0);
            const double e = std::min(label.end() - start, length);
            const bool point = list->kind() == LXLabelKind::Marker || list->kind() == LXLabelKind::Slice;
            if (point ? (label.start - start < 0 || label.start - start > length) : !(e > s)) continue;
            label.start = s;
            label.length = point ? 0.0 : e - s;
            kept.addLabel(label);
        }
        *list = kept;
    }
    return streamAuto(*this, from, to, writer, channels,
                      [&](const auto* in, auto* out, int64_t n) { std::copy(in, in + n * channels, out); });
}

int32_t LXAudioFile::copyToWriter(LXAudioFileWriter& writer) {
    const int channels = numberOfChannels();
    writer.setChannels(channels);
    return streamAuto(*this, 0, frames(), writer, channels,
                      [&](const auto* in, auto* out, int64_t n) { std::copy(in, in + n * channels, out); });
}

int32_t LXAudioFile::copyChannels(const LXChannelSet& selection, LXAudioFileWriter& writer) {
    const int channels = numberOfChannels();
    QList<int> picked;
    for (int c : selection)
        if (c >= 0 && c < channels) picked.append(c);
    if (picked.isEmpty()) return LXInvalidParameter;
    const int outChannels = int(picked.size());
    writer.setChannels(outChannels);
    return streamAuto(*this, 0, frames(), writer, outChannels, [&](const auto* in, auto* out, int64_t n) {
        for (int64_t f = 0; f < n; ++f)
            for (int k = 0; k < outChannels; ++k)
                out[f * outChannels + k] = in[f * channels + picked[k]];
    });
}

// Reduces frames [from, to) of the chosen channels block by block.
template <typename Reduce>
static LXResult<double> measure(LXAudioFile& file, int64_t from, int64_t to, const LXChannelSet& selection,
                                Reduce&& reduce) {
    const int channels = file.numberOfChannels();
    std::vector<float> block(size_t(kBlockFrames * channels));
    from = std::clamp<int64_t>(from, 0, file.frames());
    to = std::clamp<int64_t>(to, from, file.frames());
    const bool everyChannel = selection == file.channelSet();
    if (LXProgressDelegate* delegate = file.progressDelegate()) delegate->reset();
    for (int64_t pos = from; pos < to;) {
        const int64_t n = std::min(kBlockFrames, to - pos);
        if (auto got = file.readFrames(pos, n, block.data()); !got) return got.error();
        if (everyChannel)
            reduce(block.data(), n * channels, 1); // one contiguous run: the loops vectorise
        else
            for (int c : selection)
                if (c >= 0 && c < channels) reduce(block.data() + c, n, channels);
        pos += n;
        if (LXProgressDelegate* delegate = file.progressDelegate()) {
            const int32_t code = delegate->update(float(double(pos - from) / double(to - from)));
            if (code != LXContinue) return LXProgressError::errorWithCode(code, QStringLiteral("Measuring"));
        }
    }
    return 0.0;
}

LXResult<float> LXAudioFile::maximumFrom(int64_t from, int64_t to, const LXChannelSet& channels) {
    // Magnitudes compared as bit patterns: without its sign bit, a float's bits order as its value does
    // (NaN above infinity), and an integer maximum vectorises where a float one may not.
    uint32_t peak = 0;
    auto done = measure(*this, from, to, channels, [&](const float* p, int64_t n, int stride) {
        uint32_t m = peak;
        for (int64_t i = 0; i < n; ++i) {
            uint32_t bits;
            std::memcpy(&bits, p + i * stride, sizeof bits);
            bits &= 0x7fffffffu;
            m = m > bits ? m : bits;
        }
        peak = m;
    });
    if (!done) return done.error();
    float value;
    std::memcpy(&value, &peak, sizeof value);
    return value;
}

LXResult<float> LXAudioFile::rmsFrom(int64_t from, int64_t to, const LXChannelSet& channels) {
    double sum = 0.0;
    int64_t count = 0;
    auto done = measure(*this, from, to, channels, [&](const float* p, int64_t n, int stride) {
        double s = 0.0;
        for (int64_t i = 0; i < n; ++i)
            s += double(p[i * stride]) * double(p[i * stride]);
        sum += s;
        count += n;
    });
    if (!done) return done.error();
    return count > 0 ? float(std::sqrt(sum / double(count))) : 0.0f;
}
