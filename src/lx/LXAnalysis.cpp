// One pass over a file that measures its levels and builds the waveform overview the file list and
// the waveform view draw.

#include "lx/LXAudioFile.h"
#include "lx/LXWaveformCache.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {
constexpr int64_t kAnalysisBlockFrames = 16384;
constexpr int64_t kMaxOverviewPoints = 65536;
constexpr int64_t kMinFramesPerPoint = 64;
} // namespace

bool LXAudioFile::analyze(int type) {
    if (type != 1 && type != 0) return false;
    const int channels = numberOfChannels();
    const int64_t total = frames();
    const int64_t perPoint =
        std::max<int64_t>(kMinFramesPerPoint, (total + kMaxOverviewPoints - 1) / kMaxOverviewPoints);

    // A sample at the top or bottom of an integer file's range counts as clipped; float files can
    // go beyond full scale, so there it is anything at or above 1.0.
    const double clipLevel = isFloat() ? 1.0 : 1.0 - 1.0 / double(int64_t(1) << (depth() - 1));

    LXWaveformOverview overview;
    overview.channels = channels;
    overview.framesPerPoint = int(perPoint);
    const int64_t points = (total + perPoint - 1) / perPoint;
    overview.minima.fill(0.0f, points * channels);
    overview.maxima.fill(0.0f, points * channels);

    std::vector<float> block(size_t(kAnalysisBlockFrames * channels));
    std::vector<double> sums(size_t(channels), 0.0);
    double squares = 0.0;
    float peak = 0.0f;
    qint64 clipped = 0;
    if (m_delegate) m_delegate->reset();
    for (int64_t pos = 0; pos < total;) {
        const int64_t n = std::min(kAnalysisBlockFrames, total - pos);
        if (!readFrames(pos, n, block.data())) return false;
        for (int64_t f = 0; f < n; ++f) {
            const int64_t point = (pos + f) / perPoint;
            const bool first = (pos + f) % perPoint == 0;
            for (int c = 0; c < channels; ++c) {
                const float v = block[size_t(f * channels + c)];
                const float a = std::abs(v);
                peak = std::max(peak, a);
                squares += double(v) * double(v);
                sums[size_t(c)] += v;
                clipped += a >= clipLevel;
                float& lo = overview.minima[point * channels + c];
                float& hi = overview.maxima[point * channels + c];
                lo = first ? v : std::min(lo, v);
                hi = first ? v : std::max(hi, v);
            }
        }
        pos += n;
        if (m_delegate && m_delegate->update(float(double(pos) / double(total))) != LXContinue) return false;
    }
    double dc = 0.0;
    for (double s : sums)
        dc = std::max(dc, std::abs(total > 0 ? s / double(total) : 0.0));
    const double samples = double(total) * channels;
    const QVariantMap analysis = {
        {QStringLiteral("max"), double(peak)},
        {QStringLiteral("rms"), samples > 0 ? std::sqrt(squares / samples) : 0.0},
        {QStringLiteral("clipped"), clipped},
        {QStringLiteral("difference"), dc},
    };
    return LXWaveformCache::shared().store(path(), analysis, overview);
}
