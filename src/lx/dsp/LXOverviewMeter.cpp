#include "lx/dsp/LXOverviewMeter.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr int64_t kMaxOverviewPoints = 65536;
constexpr int64_t kMinFramesPerPoint = 64;
int64_t ceilDiv(int64_t a, int64_t b) { return a / b + (a % b != 0); }
} // namespace

void LXOverviewMeter::prepare(int channels, double, const LXChannelSet&) {
    m_channels = channels;
    m_position = 0;
    const int64_t perPoint = std::max<int64_t>(kMinFramesPerPoint, ceilDiv(m_frames, kMaxOverviewPoints));
    const int64_t points = ceilDiv(m_frames, perPoint);
    m_overview = {};
    m_overview.channels = channels;
    m_overview.framesPerPoint = int(perPoint);
    m_overview.minima.fill(0.0f, points * channels);
    m_overview.maxima.fill(0.0f, points * channels);
    m_sums.assign(size_t(channels), 0.0);
    m_squares = 0.0;
    m_peak = 0.0f;
    m_clipped = 0;
}

void LXOverviewMeter::measure(const float* block, int64_t frames) {
    const int channels = m_channels;
    const int64_t perPoint = m_overview.framesPerPoint;
    float* minima = m_overview.minima.data();
    float* maxima = m_overview.maxima.data();
    for (int64_t f = 0; f < frames; ++f) {
        const int64_t frame = m_position + f;
        if (frame >= m_frames) break; // past the length the overview was made for
        const int64_t point = frame / perPoint;
        const bool first = frame % perPoint == 0;
        for (int c = 0; c < channels; ++c) {
            const float v = block[f * channels + c];
            const float a = std::abs(v);
            m_peak = std::max(m_peak, a);
            m_squares += double(v) * double(v);
            m_sums[size_t(c)] += v;
            m_clipped += a >= m_clipLevel;
            float& lo = minima[point * channels + c];
            float& hi = maxima[point * channels + c];
            lo = first ? v : std::min(lo, v);
            hi = first ? v : std::max(hi, v);
        }
    }
    m_position += frames;
}

QVariantMap LXOverviewMeter::analysis() const {
    // Averages over the frames there were: a stream can end before the length it was made for.
    const int64_t measured = std::min(m_position, m_frames);
    double dc = 0.0;
    for (double s : m_sums)
        dc = std::max(dc, std::abs(measured > 0 ? s / double(measured) : 0.0));
    const double samples = double(measured) * m_channels;
    return {
        {QStringLiteral("max"), double(m_peak)},
        {QStringLiteral("rms"), samples > 0 ? std::sqrt(m_squares / samples) : 0.0},
        {QStringLiteral("clipped"), m_clipped},
        {QStringLiteral("difference"), dc},
    };
}
