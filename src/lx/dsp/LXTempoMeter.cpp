#include "lx/dsp/LXTempoMeter.h"

#include "lx/dsp/LXAubio.h"

#include <aubio/aubio.h>

#include <algorithm>
#include <cmath>

namespace {
constexpr uint_t kWindow = 1024;
constexpr uint_t kHop = 256;
constexpr int kBeatsToTrust = 4;
} // namespace

struct LXTempoMeter::State {
    explicit State(uint_t rate) {
        tempo = new_aubio_tempo("default", kWindow, kHop, rate);
        in = new_fvec(kHop);
        out = new_fvec(2);
    }
    ~State() {
        if (tempo) del_aubio_tempo(tempo);
        del_fvec(in);
        del_fvec(out);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    aubio_tempo_t* tempo = nullptr;
    fvec_t* in = nullptr;
    fvec_t* out = nullptr;
    uint_t filled = 0;
};

LXTempoMeter::LXTempoMeter() = default;
LXTempoMeter::~LXTempoMeter() = default;

void LXTempoMeter::prepare(int channels, double rate, const LXChannelSet& selection) {
    m_state.reset();
    m_beats.clear();
    m_channels = channels;
    m_selected = LXAubioSelected(selection, channels);
    if (m_selected.empty() || !(rate >= 8000.0) || rate > 1e6) return;
    auto state = std::make_unique<State>(uint_t(std::lround(rate)));
    if (state->tempo) m_state = std::move(state);
}

void LXTempoMeter::measure(const float* interleaved, int64_t frames) {
    if (!m_state) return;
    for (int64_t f = 0; f < frames; ++f) {
        m_state->in->data[m_state->filled++] = LXAubioMix(interleaved + f * m_channels, m_selected);
        if (m_state->filled < kHop) continue;
        aubio_tempo_do(m_state->tempo, m_state->in, m_state->out);
        if (m_state->out->data[0] != 0.0f) m_beats.push_back(aubio_tempo_get_last_s(m_state->tempo));
        m_state->filled = 0;
    }
}

// aubio's own figure counts the period in whole hops (256 frames: 1.4 BPM at 120 BPM and 44.1 kHz; a
// 120 BPM click track read 120.84). The beats it reports fall on the hops nearest the onsets it heard, so
// the mean of their spacing over many beats is finer (120.16): the intervals within a tenth of the
// median (a missed or extra beat left out) are averaged.
double LXTempoMeter::bpm() const {
    if (!m_state || int(m_beats.size()) < kBeatsToTrust) return 0.0;
    std::vector<double> intervals;
    for (size_t i = 1; i < m_beats.size(); ++i)
        intervals.push_back(m_beats[i] - m_beats[i - 1]);
    std::vector<double> sorted = intervals;
    std::nth_element(sorted.begin(), sorted.begin() + sorted.size() / 2, sorted.end());
    const double median = sorted[sorted.size() / 2];
    double sum = 0.0;
    int count = 0;
    for (double interval : intervals)
        if (std::fabs(interval - median) <= 0.1 * median) {
            sum += interval;
            ++count;
        }
    return count > 0 && sum > 0.0 ? 60.0 * count / sum : 0.0;
}
