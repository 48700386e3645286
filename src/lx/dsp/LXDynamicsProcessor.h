#pragma once

#include "lx/dsp/LXDynamicsCurve.h"

#include <cstdint>
#include <vector>

// The compressor and expander of LXDynamicsCurve.h over interleaved blocks, in place, every channel
// taking the same gain (a stereo image does not wander).
//
// Detector: the peak of all channels (linked) over the last kWindow seconds, a sliding maximum. It rises
// with the first sample that exceeds it, so the attack is the gain's alone, and it holds a steady tone's
// peak down to 1 / kWindow (100 Hz) without ripple; after a fall in level it waits up to kWindow before
// it lets go. No look-ahead: the output is never late, the latency is 0, and a transient passes at full
// level for the first part of the attack.
//
// Ballistics: the curve's gain for the detected level is followed, in decibels, by a one-pole smoother
// whose coefficient depends on the direction. Times are 10 %-to-90 % times of that exponential (the time
// constant is the setting / ln 9): after a step in level the output's level, in dB, covers 10 % to 90 % of
// its change in exactly the setting, whatever the detector's hold delayed. The compressor's gain falls
// with the attack time and rises with the release time; the expander's gain opens with kExpansionOpening
// and closes with kExpansionClosing, so a returning signal is not cut while the expander reopens.
//
// prepare allocates; process and reset do not and take no lock, so process may run in an audio callback.
// Settings changed between blocks take effect at the next block, from the state reached.
class LXDynamicsProcessor {
public:
    static constexpr double kWindow = 0.010;            // s
    static constexpr double kExpansionOpening = 0.001;  // s, 10 %-90 %
    static constexpr double kExpansionClosing = 0.100;  // s, 10 %-90 %

    void prepare(double rate, int channels);
    void setSettings(const LXDynamicsSettings& settings);
    const LXDynamicsSettings& settings() const { return m_settings; }
    void reset();
    void process(float* interleaved, int64_t frames);
    void process(double* interleaved, int64_t frames);

    // The one-pole coefficient whose step response takes `seconds` from 10 % to 90 % (0 for an instant).
    static double coefficient(double seconds, double rate);

private:
    template <int Channels, typename T> void run(T* interleaved, int64_t frames);
    // The gains the curve gives for a detected peak amplitude.
    void aim(float level);
    template <typename T> void dispatch(T* interleaved, int64_t frames);

    LXDynamicsSettings m_settings;
    double m_rate = 0;
    int m_channels = 0;
    // The curve in the terms the per-sample loop uses.
    float m_slopeAbove = 0, m_compressionLevel = 0, m_slopeBelow = 0, m_expansionLevel = 0, m_makeup = 0;
    float m_compressionAmplitude = 0, m_expansionAmplitude = 0; // the thresholds as peak amplitudes
    float m_attack = 0, m_release = 0, m_opening = 0, m_closing = 0;
    // The sliding maximum: the peaks of the last completed chunks, and the chunk being filled.
    std::vector<float> m_chunks;
    int m_chunk = 0;     // the next chunk to replace
    int m_inChunk = 0;   // samples in the chunk being filled
    float m_chunksPeak = 0, m_chunkPeak = 0;
    // What the last sample saw: its level and the gains it gave, in dB, and the linear gain applied.
    float m_level = -1, m_compressionTarget = 0, m_expansionTarget = 0;
    float m_compression = 0, m_expansion = 0, m_total = 0, m_factor = 1;
};
