#include "lx/dsp/LXDynamicsProcessor.h"

#include <algorithm>
#include <cmath>

namespace {

// Samples a chunk of the sliding maximum holds: the window moves in steps of this many samples, so the
// detector's hold lies between kWindow and kWindow plus one chunk. Small enough to be inaudible, large
// enough that the maximum over the chunks is found once every 32 samples, not for each.
constexpr int kChunk = 32;

// Below this a gain that approaches its target is taken as there: 1e-3 dB is far below what anyone hears,
// and a gain that has settled costs no power function per sample.
constexpr float kSettled = 1e-3f;

constexpr float kLog2Of10Over20 = 0.166096404744368f; // log2(10) / 20: dB to a power of 2
constexpr float kSilence = 1e-12f;                     // -240 dBFS: the level of digital silence

float decibels(float amplitude) {
    return 20.0f * std::log10(std::max(amplitude, kSilence));
}

// g follows target with the coefficient for its direction; it lands on the target once within kSettled.
inline float follow(float g, float target, float falling, float rising) {
    const float next = target + (target < g ? falling : rising) * (g - target);
    return std::fabs(next - target) < kSettled ? target : next;
}

} // namespace

double LXDynamicsProcessor::coefficient(double seconds, double rate) {
    if (!(seconds > 0) || !(rate > 0)) return 0.0;
    return std::exp(-std::log(9.0) / (seconds * rate));
}

void LXDynamicsProcessor::prepare(double rate, int channels) {
    m_rate = rate;
    m_channels = channels;
    const int chunks = std::max(1, int(std::lround(kWindow * rate / kChunk)));
    m_chunks.assign(size_t(chunks), 0.0f);
    setSettings(m_settings);
    reset();
}

void LXDynamicsProcessor::setSettings(const LXDynamicsSettings& settings) {
    m_settings = settings;
    m_slopeAbove = float(1.0 - 1.0 / settings.ratio());
    m_compressionLevel = -settings.threshold;
    m_slopeBelow = float(std::max(1.0, double(settings.expansionRatio)) - 1.0);
    m_expansionLevel = -settings.expansionThreshold;
    m_makeup = settings.gain;
    m_compressionAmplitude = float(std::pow(10.0, double(m_compressionLevel) / 20.0));
    m_expansionAmplitude = m_slopeBelow > 0 ? float(std::pow(10.0, double(m_expansionLevel) / 20.0)) : 0.0f;
    m_attack = float(coefficient(settings.attack, m_rate));
    m_release = float(coefficient(settings.release, m_rate));
    m_opening = float(coefficient(kExpansionOpening, m_rate));
    m_closing = float(coefficient(kExpansionClosing, m_rate));
    m_level = -1; // the targets are found anew for the next sample
}

void LXDynamicsProcessor::reset() {
    std::fill(m_chunks.begin(), m_chunks.end(), 0.0f);
    m_chunk = m_inChunk = 0;
    m_chunksPeak = m_chunkPeak = 0;
    m_level = -1;
    // Both gains start at rest (0 dB): a file that begins loud is not faded in by a closed expander.
    m_compression = m_expansion = 0;
    m_total = 0;
    m_factor = 1;
}

void LXDynamicsProcessor::aim(float level) {
    m_level = level;
    if (level <= m_compressionAmplitude && level >= m_expansionAmplitude) {
        m_compressionTarget = m_expansionTarget = 0; // between the thresholds: no logarithm needed
        return;
    }
    const float db = decibels(level);
    const float over = db - m_compressionLevel, under = db - m_expansionLevel;
    m_compressionTarget = over > 0 ? -over * m_slopeAbove : 0.0f;
    m_expansionTarget = under < 0 ? std::max(float(LXDynamicsSettings::kFloor), under * m_slopeBelow) : 0.0f;
}

// The state lives in locals for the length of a block: the samples written could otherwise alias the
// members, which the compiler would then reload for every sample.
template <int Channels, typename T> void LXDynamicsProcessor::run(T* __restrict interleaved, int64_t frames) {
    const int n = Channels > 0 ? Channels : m_channels;
    const int chunks = int(m_chunks.size());
    const float attack = m_attack, release = m_release, opening = m_opening, closing = m_closing;
    const float makeup = m_makeup, floor = float(LXDynamicsSettings::kFloor);
    float chunkPeak = m_chunkPeak, chunksPeak = m_chunksPeak;
    float compression = m_compression, expansion = m_expansion, total = m_total, factor = m_factor;
    int inChunk = m_inChunk;
    for (int64_t f = 0; f < frames; ++f) {
        T* frame = interleaved + f * n;
        float peak = 0;
        for (int c = 0; c < n; ++c)
            peak = std::max(peak, float(std::fabs(frame[c])));
        chunkPeak = std::max(chunkPeak, peak);
        const float level = std::max(chunkPeak, chunksPeak);
        if (++inChunk == kChunk) {
            m_chunks[size_t(m_chunk)] = chunkPeak;
            m_chunk = m_chunk + 1 == chunks ? 0 : m_chunk + 1;
            chunksPeak = *std::max_element(m_chunks.begin(), m_chunks.end());
            chunkPeak = 0;
            inChunk = 0;
        }
        if (level != m_level) aim(level);
        compression = follow(compression, m_compressionTarget, attack, release);
        expansion = follow(expansion, m_expansionTarget, closing, opening);
        const float gain = std::max(floor, compression + expansion) + makeup;
        if (gain != total) {
            total = gain;
            factor = std::exp2(gain * kLog2Of10Over20);
        }
        if (factor != 1.0f)
            for (int c = 0; c < n; ++c)
                frame[c] = T(frame[c] * T(factor));
    }
    m_chunkPeak = chunkPeak;
    m_chunksPeak = chunksPeak;
    m_inChunk = inChunk;
    m_compression = compression;
    m_expansion = expansion;
    m_total = total;
    m_factor = factor;
}

template <typename T> void LXDynamicsProcessor::dispatch(T* interleaved, int64_t frames) {
    switch (m_channels) {
    case 1:
        return run<1>(interleaved, frames);
    case 2:
        return run<2>(interleaved, frames);
    default:
        return run<0>(interleaved, frames);
    }
}

void LXDynamicsProcessor::process(float* interleaved, int64_t frames) {
    dispatch(interleaved, frames);
}

void LXDynamicsProcessor::process(double* interleaved, int64_t frames) {
    dispatch(interleaved, frames);
}
