#include "lx/dsp/LXDCFilter.h"

#include <cmath>
#include <numbers>

namespace {

// An output that has decayed this far is zero in every format we write. Flushing it keeps the
// recursion out of subnormal numbers, which cost a hundred cycles each: a minute of silence after
// a loud passage would otherwise reach them.
constexpr double kFlush = 1e-20;

// The recursion is serial in time, so only the channels of a frame can run side by side: with the
// channel count fixed at compile time the state stays in registers.
template <int Channels, typename T>
void run(const T* __restrict in, T* __restrict out, int64_t frames, int channels, double pole,
         double* __restrict lastIn, double* __restrict lastOut) {
    const int n = Channels > 0 ? Channels : channels;
    double x1[Channels > 0 ? Channels : 1];
    double y1[Channels > 0 ? Channels : 1];
    if constexpr (Channels > 0) {
        for (int c = 0; c < Channels; ++c)
            x1[c] = lastIn[c], y1[c] = lastOut[c];
    }
    double* xs = Channels > 0 ? x1 : lastIn;
    double* ys = Channels > 0 ? y1 : lastOut;
    for (int64_t f = 0; f < frames; ++f)
        for (int c = 0; c < n; ++c) {
            const double x = double(in[f * n + c]);
            double y = x - xs[c] + pole * ys[c];
            y = std::abs(y) < kFlush ? 0.0 : y;
            xs[c] = x;
            ys[c] = y;
            out[f * n + c] = T(y);
        }
    if constexpr (Channels > 0) {
        for (int c = 0; c < Channels; ++c)
            lastIn[c] = x1[c], lastOut[c] = y1[c];
    }
}

} // namespace

void LXDCFilter::prepare(int channels, double rate) {
    m_channels = channels;
    m_pole = rate > 0 ? std::exp(-2.0 * std::numbers::pi * m_cutoff / rate) : 0.0;
    m_lastIn.assign(size_t(channels), 0.0);
    m_lastOut.assign(size_t(channels), 0.0);
    for (int c = 0; c < channels && size_t(c) < m_offsets.size(); ++c)
        m_lastIn[size_t(c)] = m_offsets[size_t(c)];
}

template <typename T> void LXDCFilter::filter(const T* in, T* out, int64_t frames) {
    switch (m_channels) {
    case 1:
        return run<1>(in, out, frames, 1, m_pole, m_lastIn.data(), m_lastOut.data());
    case 2:
        return run<2>(in, out, frames, 2, m_pole, m_lastIn.data(), m_lastOut.data());
    default:
        return run<0>(in, out, frames, m_channels, m_pole, m_lastIn.data(), m_lastOut.data());
    }
}

void LXDCFilter::process(const float* in, float* out, int64_t frames) {
    filter(in, out, frames);
}

void LXDCFilter::process(const double* in, double* out, int64_t frames) {
    filter(in, out, frames);
}
