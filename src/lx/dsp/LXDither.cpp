#include "lx/dsp/LXDither.h"

#include <algorithm>
#include <cmath>

namespace {

// splitmix64: a good 64-bit sequence from any seed, including 0, at a few cycles a number.
inline uint64_t nextRandom(uint64_t& state) {
    uint64_t z = (state += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

// Uniform in [0, 1).
inline double uniform(uint64_t& state) {
    return double(nextRandom(state) >> 11) * 0x1.0p-53;
}

// Error-feedback filters: the output's noise is the rounding error through 1 - sum(c[k] z^-(k+1)).
// The E-weighted one (Lipshitz, Vanderkooy and Wannamaker, 44.1 kHz) lowers the noise by 15 to 27 dB
// from DC to 6 kHz and raises it by up to 19 dB above 14 kHz; at 48 kHz its shape barely moves.
// Elsewhere (1 - z^-1)^2 lowers everything below a sixth of the rate.
constexpr double kEWeighted[5] = {2.033, -2.165, 1.959, -1.590, 0.6149};
constexpr double kSecondOrder[5] = {2.0, -1.0, 0.0, 0.0, 0.0};

} // namespace

uint64_t LXDither::seedOf(const QByteArray& text) {
    uint64_t hash = 0xCBF29CE484222325ULL;
    for (const char c : text)
        hash = (hash ^ uint8_t(c)) * 0x100000001B3ULL;
    return hash;
}

void LXDither::prepare(int channels, double rate) {
    m_channels = channels;
    const bool eWeighted = rate >= 44000 && rate <= 48500;
    std::copy_n(eWeighted ? kEWeighted : kSecondOrder, kTaps, m_feedback);
    m_state.assign(size_t(channels), Channel{});
    for (int c = 0; c < channels; ++c)
        m_state[size_t(c)].random = m_seed + uint64_t(c) * 0x632BE59BD9B4E019ULL;
}

template <typename T> void LXDither::run(const T* in, T* out, int64_t frames) {
    const int64_t count = frames * m_channels;
    if (m_bits < 1 || m_bits > 24) {
        std::copy_n(in, count, out);
        return;
    }
    const double scale = double(int64_t(1) << (m_bits - 1));
    const double lo = -scale, hi = scale - 1;
    if (m_kind == Kind::None) {
        for (int64_t i = 0; i < count; ++i) {
            double v = double(in[i]) * scale;
            v = v == v ? v : 0.0;
            v = std::clamp(std::trunc(v + std::copysign(0.5, v)), lo, hi);
            out[i] = T(v / scale);
        }
        return;
    }
    // Dither and feedback are serial in time within a channel; the channels are independent.
    const bool shaped = m_kind == Kind::Shaped;
    for (int c = 0; c < m_channels; ++c) {
        Channel& state = m_state[size_t(c)];
        for (int64_t f = 0; f < frames; ++f) {
            const int64_t i = f * m_channels + c;
            double x = double(in[i]) * scale;
            x = x == x ? x : 0.0;
            double v = x;
            if (shaped)
                for (int k = 0; k < kTaps; ++k)
                    v -= m_feedback[k] * state.error[k];
            const double dithered = v + uniform(state.random) - uniform(state.random);
            const double rounded = std::trunc(dithered + std::copysign(0.5, dithered));
            if (shaped) {
                // The error of the rounding, not of the clip: a clipped sample must not feed back the
                // whole overshoot, which would ring through the filter.
                std::copy_backward(state.error, state.error + kTaps - 1, state.error + kTaps);
                state.error[0] = std::clamp(rounded - v, -4.0, 4.0);
            }
            out[i] = T(std::clamp(rounded, lo, hi) / scale);
        }
    }
}

void LXDither::process(const float* in, float* out, int64_t frames) {
    run(in, out, frames);
}

void LXDither::process(const double* in, double* out, int64_t frames) {
    run(in, out, frames);
}
