#include "lx/dsp/LXFade.h"

#include <algorithm>
#include <cmath>

double LXFadeGain(double x, double curve) {
    if (!(x > 0)) return 0.0;
    if (x >= 1) return 1.0;
    // The curve's x(t) = (1 - 2c) t^2 + 2c t, solved for t in the form that does not cancel when the
    // curve is near 0.5 (where the quadratic term vanishes); then y(t) = (2c - 1) t^2 + 2 (1 - c) t.
    const double c = std::clamp(curve, 0.0, 1.0);
    const double a = 1.0 - 2.0 * c, b = 2.0 * c;
    const double t = 2.0 * x / (b + std::sqrt(b * b + 4.0 * a * x));
    return -a * t * t + 2.0 * (1.0 - c) * t;
}

void LXFade::prepare(int channels, double) {
    m_channels = channels;
    m_position = 0;
}

double LXFade::gainAt(int64_t frame) const {
    if (m_type == LXFadeType::In)
        return frame < m_anchor ? LXFadeGain(double(frame) / double(m_anchor), m_curve) : 1.0;
    if (frame < m_anchor) return 1.0;
    return LXFadeGain(double(m_frames - frame) / double(m_frames - m_anchor), m_curve);
}

template <typename T> void LXFade::apply(const T* in, T* out, int64_t frames) {
    const int64_t start = m_position;
    m_position += frames;
    // Only the frames of the block inside the ramp are scaled; the rest is copied as it is.
    const int64_t rampFrom = m_type == LXFadeType::In ? 0 : m_anchor;
    const int64_t rampTo = m_type == LXFadeType::In ? m_anchor : m_frames;
    const int64_t from = std::clamp(rampFrom - start, int64_t(0), frames);
    const int64_t to = std::clamp(rampTo - start, from, frames);
    const int64_t c = m_channels;
    std::copy(in, in + from * c, out);
    for (int64_t f = from; f < to; ++f) {
        const T gain = T(gainAt(start + f));
        for (int64_t k = f * c; k < (f + 1) * c; ++k)
            out[k] = in[k] * gain;
    }
    std::copy(in + to * c, in + frames * c, out + to * c);
}

void LXFade::process(const float* in, float* out, int64_t frames) {
    apply(in, out, frames);
}

void LXFade::process(const double* in, double* out, int64_t frames) {
    apply(in, out, frames);
}
