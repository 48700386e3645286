#include "lx/dsp/LXPitchDetector.h"

#include "lx/dsp/LXAubio.h"

#include <aubio/aubio.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kLowestHz = 26.0; // below MIDI 21 (27.5 Hz), the lowest note of a piano
constexpr int kHopsPerWindow = 8;
// A short sound gets windows that fit in it twice: on the samples of a General MIDI SoundFont (0.05 to
// 0.3 s at 22 kHz, many of them), windows that fit once found no note in 12 of 238, three or four times
// lost low notes, and twice was best (202 exact against 188 and 195).
constexpr uint_t kMinimumWindow = 256;
constexpr float kConfidenceFloor = 0.8f;    // 1 - YIN's dip: noise and transients stay well below
constexpr double kLevelFloor = 1e-3 * 1e-3; // mean square of a hop at -60 dBFS

} // namespace

struct LXPitchDetector::State {
    State(uint_t window, uint_t hop, uint_t rate) {
        pitch = new_aubio_pitch("yinfast", window, hop, rate);
        in = new_fvec(hop);
        out = new_fvec(1);
    }
    ~State() {
        if (pitch) del_aubio_pitch(pitch);
        del_fvec(in);
        del_fvec(out);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    aubio_pitch_t* pitch = nullptr;
    fvec_t* in = nullptr;
    fvec_t* out = nullptr;
    uint_t filled = 0;
};

LXPitchDetector::LXPitchDetector(int64_t frames) : m_frames(frames) {}
LXPitchDetector::~LXPitchDetector() = default;

void LXPitchDetector::prepare(int channels, double rate, const LXChannelSet& selection) {
    m_state.reset();
    m_votes.fill(0.0);
    m_channels = channels;
    m_selected = LXAubioSelected(selection, channels);
    if (m_selected.empty() || !(rate >= 8000.0) || rate > 1e6) return;
    uint_t window = 1024;
    while (window < 2.0 * rate / kLowestHz)
        window *= 2;
    while (m_frames > 0 && window > kMinimumWindow && 2 * int64_t(window) > m_frames)
        window /= 2;
    auto state = std::make_unique<State>(window, window / kHopsPerWindow, uint_t(std::lround(rate)));
    if (!state->pitch) return;
    aubio_pitch_set_unit(state->pitch, "Hz");
    aubio_pitch_set_silence(state->pitch, -200.0f); // the level floor below is ours
    m_state = std::move(state);
}

void LXPitchDetector::measure(const float* interleaved, int64_t frames) {
    if (!m_state) return;
    for (int64_t f = 0; f < frames; ++f) {
        m_state->in->data[m_state->filled++] = LXAubioMix(interleaved + f * m_channels, m_selected);
        if (m_state->filled < m_state->in->length) continue;
        analyseHop();
        m_state->filled = 0;
    }
}

void LXPitchDetector::analyseHop() {
    const fvec_t* in = m_state->in;
    double energy = 0.0;
    for (uint_t i = 0; i < in->length; ++i)
        energy += double(in->data[i]) * double(in->data[i]);
    energy /= double(in->length);
    aubio_pitch_do(m_state->pitch, in, m_state->out);
    const double hz = m_state->out->data[0];
    const float confidence = aubio_pitch_get_confidence(m_state->pitch);
    if (energy < kLevelFloor || confidence < kConfidenceFloor || !(hz > 0.0)) return;
    const long note = std::lround(69.0 + 12.0 * std::log2(hz / 440.0));
    if (note >= 0 && note < 128) m_votes[size_t(note)] += double(confidence) * energy;
}

std::optional<int> LXPitchDetector::note() const {
    const auto best = std::max_element(m_votes.begin(), m_votes.end());
    if (*best <= 0.0) return std::nullopt;
    return int(best - m_votes.begin());
}
