#include "lx/dsp/LXGain.h"

#include <cmath>

namespace {

template <typename T> void scale(const T* __restrict in, T* __restrict out, int64_t samples, T factor) {
    for (int64_t i = 0; i < samples; ++i)
        out[i] = in[i] * factor;
}

} // namespace

void LXGain::prepare(int channels, double) {
    m_channels = channels;
}

void LXGain::process(const float* in, float* out, int64_t frames) {
    scale(in, out, frames * m_channels, float(m_factor));
}

void LXGain::process(const double* in, double* out, int64_t frames) {
    scale(in, out, frames * m_channels, m_factor);
}

float LXAmplitudeOfLevel(double decibels) {
    const float exponent = float(decibels) / 20.0f;
    return float(std::pow(10.0, double(exponent)));
}
