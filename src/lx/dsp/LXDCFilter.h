#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// Removes a DC offset: a first-order high-pass, y[n] = x[n] - x[n-1] + p * y[n-1] with
// p = exp(-2 pi cutoff / rate), computed in double for every block.
//
// The default cutoff, 2 Hz, lies below anything music holds: 20 Hz loses 0.04 dB and turns by 5.7
// degrees, 40 Hz loses 0.01 dB; an offset that changes within the file settles in about 80 ms (the
// time constant, 1 / (2 pi cutoff)).
//
// A high-pass started from rest takes a file's offset for a step at the first frame and answers with a
// click that decays over that time constant. This one starts as if each channel's input had stood at
// the given offset forever, with nothing at the output: a constant offset is gone from the first frame
// on. So measure the offsets first, as the mean of each channel (LXMeanFrom in lx/LXLevels.h), then run
// the filter with them.
class LXDCFilter final : public LXKernel {
public:
    static constexpr double kDefaultCutoff = 2.0; // Hz

    // offsets: one per channel (missing ones are 0), the level each channel's input starts from.
    explicit LXDCFilter(std::vector<double> offsets, double cutoff = kDefaultCutoff)
        : m_offsets(std::move(offsets)), m_cutoff(cutoff) {}
    double cutoff() const { return m_cutoff; }

    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    template <typename T> void filter(const T* in, T* out, int64_t frames);

    std::vector<double> m_offsets;
    double m_cutoff;
    double m_pole = 0.0;
    int m_channels = 0;
    std::vector<double> m_lastIn;  // x[n-1] of each channel
    std::vector<double> m_lastOut; // y[n-1] of each channel
};
