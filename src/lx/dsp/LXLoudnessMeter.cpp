#include "lx/dsp/LXLoudnessMeter.h"

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();
} // namespace

struct LXLoudnessMeter::State {
    explicit State(ebur128_state* s) : st(s) {}
    ~State() { ebur128_destroy(&st); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ebur128_state* st;
};

LXLoudnessMeter::LXLoudnessMeter() = default;
LXLoudnessMeter::~LXLoudnessMeter() = default;

void LXLoudnessMeter::prepare(int channels, double rate, const LXChannelSet&) {
    m_state.reset();
    if (channels < 1 || !(rate >= 1.0) || rate > double(std::numeric_limits<unsigned long>::max())) return;
    ebur128_state* state = ebur128_init(unsigned(channels), static_cast<unsigned long>(std::lround(rate)),
                                        EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
    if (!state) return;
    m_state = std::make_unique<State>(state);
    if (channels != 6) return;
    // libebur128's default map puts the surrounds at 3 and 4, where WAV has the LFE and the left surround.
    const int layout[] = {EBUR128_LEFT,   EBUR128_RIGHT,          EBUR128_CENTER,
                          EBUR128_UNUSED, EBUR128_LEFT_SURROUND, EBUR128_RIGHT_SURROUND};
    for (unsigned c = 0; c < 6; ++c)
        ebur128_set_channel(m_state->st, c, layout[c]);
}

void LXLoudnessMeter::measure(const float* interleaved, int64_t frames) {
    if (m_state && frames > 0 &&
        ebur128_add_frames_float(m_state->st, interleaved, size_t(frames)) != EBUR128_SUCCESS)
        m_state.reset(); // out of memory: no loudness rather than a wrong one
}

double LXLoudnessMeter::integrated() const {
    double lufs = kNotMeasured;
    if (!m_state || ebur128_loudness_global(m_state->st, &lufs) != EBUR128_SUCCESS) return kNotMeasured;
    return lufs;
}

double LXLoudnessMeter::range() const {
    double lu = kNotMeasured;
    if (!m_state || ebur128_loudness_range(m_state->st, &lu) != EBUR128_SUCCESS) return kNotMeasured;
    return lu;
}

double LXLoudnessMeter::truePeak() const {
    if (!m_state) return kNotMeasured;
    double peak = 0.0;
    for (unsigned c = 0; c < m_state->st->channels; ++c) {
        double channelPeak = 0.0;
        if (ebur128_true_peak(m_state->st, c, &channelPeak) != EBUR128_SUCCESS) return kNotMeasured;
        peak = std::max(peak, channelPeak);
    }
    return peak;
}
