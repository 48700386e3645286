#pragma once

#include "lx/LXAudioFormat.h"
#include "lx/dsp/LXKernel.h"

#include <array>
#include <limits>

// Peak, RMS and clipped samples of everything it is given, in one pass the compiler vectorises: what a
// writer's output holds (LXAudioFileWriter measures what it writes) or, driven by LXMeasure, what a file
// holds (every channel, whatever the selection).
//
// Made for the encoding the samples are stored in. An integer encoding holds nothing beyond full scale:
// a sample beyond +-1.0 counts as clipped (as sox's effects count them) and is measured at full scale,
// as it will be stored. Float encodings hold every value, so nothing clips there. NaN samples are
// measured as silence.
class LXSignalMeter final : public LXMeter {
public:
    LXSignalMeter() = default; // for samples stored as float
    explicit LXSignalMeter(const LXSampleEncoding& encoding);

    void prepare(int channels, double rate, const LXChannelSet& selection) override; // clears
    void measure(const float* interleaved, int64_t frames) override;
    void add(const float* samples, int64_t count);
    void add(const double* samples, int64_t count);
    void merge(const LXSignalMeter& other); // as if other's samples had been added here

    int64_t samples() const { return m_samples; }
    double peak() const; // linear, 1.0 is full scale; 0 when nothing was measured
    double rms() const;
    int64_t clipped() const;

private:
    static constexpr int kLanes = 16;
    template <typename T> void accumulate(const T* __restrict samples, int64_t count);

    double m_limit = std::numeric_limits<double>::infinity(); // full scale: samples beyond it clip
    int m_channels = 0;
    int64_t m_samples = 0;
    // Running values at each position of a run of kLanes samples, so that the loop vectorises.
    std::array<double, kLanes> m_peaks{};
    std::array<double, kLanes> m_squares{};
    std::array<int64_t, kLanes> m_clipped{};
};
