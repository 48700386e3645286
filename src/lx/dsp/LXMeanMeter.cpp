#include "lx/dsp/LXMeanMeter.h"

#include <algorithm>

namespace {

// About 256 samples: long enough for the vector loop, short enough to stay in the first-level cache.
constexpr int kRunSamples = 256;

void addInto(double* __restrict lanes, const float* __restrict samples, int64_t count) {
    for (int64_t i = 0; i < count; ++i)
        lanes[i] += double(samples[i]);
}

} // namespace

void LXMeanMeter::prepare(int channels, double, const LXChannelSet& selection) {
    m_channels = channels;
    m_selection = selection;
    m_lanes.assign(size_t(std::max(1, kRunSamples / std::max(1, channels)) * channels), 0.0);
    m_sums.assign(size_t(channels), 0.0);
    m_count = 0;
}

void LXMeanMeter::measure(const float* interleaved, int64_t frames) {
    const int64_t samples = frames * m_channels;
    const int64_t length = int64_t(m_lanes.size());
    if (length == 0) return;
    // The lanes join their channels' totals once a block, so no partial sum runs over the whole file.
    std::fill(m_lanes.begin(), m_lanes.end(), 0.0);
    int64_t i = 0;
    for (; i + length <= samples; i += length)
        addInto(m_lanes.data(), interleaved + i, length);
    addInto(m_lanes.data(), interleaved + i, samples - i); // a run always starts at a frame
    for (size_t j = 0; j < m_lanes.size(); ++j)
        m_sums[j % size_t(m_channels)] += m_lanes[j];
    m_count += frames;
}

std::vector<double> LXMeanMeter::means() const {
    std::vector<double> means(size_t(m_channels), 0.0);
    if (m_count == 0) return means;
    for (int c : m_selection)
        if (c >= 0 && c < m_channels) means[size_t(c)] = m_sums[size_t(c)] / double(m_count);
    return means;
}
