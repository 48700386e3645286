#include "lx/dsp/LXPeakMeter.h"

#include <algorithm>
#include <cstring>

namespace {

// About 256 samples: long enough for the vector loop, short enough to stay in the first-level cache.
constexpr int kRunSamples = 256;

// Magnitudes are compared as bit patterns: without its sign bit a float's bits order as its value does
// (NaN above infinity), and an integer maximum vectorises where a float one may not. With the sign
// bit cleared, a signed comparison orders them as well as an unsigned one, and plain SSE2 has it.
void maxInto(int32_t* __restrict lanes, const float* __restrict samples, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        int32_t b;
        std::memcpy(&b, samples + i, sizeof b);
        b &= 0x7fffffff;
        lanes[i] = lanes[i] > b ? lanes[i] : b;
    }
}

float fromBits(int32_t bits) {
    float value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

} // namespace

void LXPeakMeter::prepare(int channels, double, const LXChannelSet& selection) {
    m_channels = channels;
    m_selection = selection;
    m_lanes.assign(size_t(std::max(1, kRunSamples / std::max(1, channels)) * channels), 0);
}

void LXPeakMeter::measure(const float* interleaved, int64_t frames) {
    const int64_t samples = frames * m_channels;
    const int64_t length = int64_t(m_lanes.size());
    if (length == 0) return;
    int64_t i = 0;
    for (; i + length <= samples; i += length)
        maxInto(m_lanes.data(), interleaved + i, length);
    maxInto(m_lanes.data(), interleaved + i, samples - i); // a run always starts at a frame
}

int32_t LXPeakMeter::bits(int channel) const {
    int32_t m = 0;
    if (channel < 0 || channel >= m_channels) return m;
    for (size_t j = size_t(channel); j < m_lanes.size(); j += size_t(m_channels))
        m = std::max(m, m_lanes[j]);
    return m;
}

float LXPeakMeter::peak() const {
    int32_t m = 0;
    for (int c : m_selection)
        m = std::max(m, bits(c));
    return fromBits(m);
}

float LXPeakMeter::peak(int channel) const {
    return fromBits(bits(channel));
}
