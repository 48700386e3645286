#include "lx/dsp/LXChannelGains.h"

#include <algorithm>

namespace {

// About 256 samples: long enough for the vector loop, short enough to stay in the first-level cache.
constexpr int kRunSamples = 256;

template <typename T>
void multiply(const T* __restrict in, T* __restrict out, const T* __restrict factors, int64_t samples) {
    for (int64_t i = 0; i < samples; ++i)
        out[i] = in[i] * factors[i];
}

template <typename T> void apply(const T* in, T* out, int64_t samples, const std::vector<T>& run) {
    const int64_t length = int64_t(run.size());
    if (length == 0) return;
    int64_t i = 0;
    for (; i + length <= samples; i += length)
        multiply(in + i, out + i, run.data(), length);
    multiply(in + i, out + i, run.data(), samples - i); // whole frames: the run starts at a frame
}

} // namespace

void LXChannelGains::prepare(int channels, double) {
    m_channels = channels;
    const int frames = std::max(1, kRunSamples / std::max(1, channels));
    m_runFloat.resize(size_t(frames * channels));
    m_runDouble.resize(size_t(frames * channels));
    for (int f = 0; f < frames; ++f)
        for (int c = 0; c < channels; ++c) {
            const double gain = size_t(c) < m_gains.size() ? m_gains[size_t(c)] : 1.0;
            m_runDouble[size_t(f * channels + c)] = gain;
            m_runFloat[size_t(f * channels + c)] = float(gain);
        }
}

void LXChannelGains::process(const float* in, float* out, int64_t frames) {
    apply(in, out, frames * m_channels, m_runFloat);
}

void LXChannelGains::process(const double* in, double* out, int64_t frames) {
    apply(in, out, frames * m_channels, m_runDouble);
}
