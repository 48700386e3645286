#pragma once

#include "lx/dsp/LXKernel.h"

// Multiplies every sample by one linear factor (0.5 is -6.02 dB). Float blocks use the factor rounded
// to float, so a factor of 1 passes every sample unchanged.
class LXGain final : public LXKernel {
public:
    explicit LXGain(double factor) : m_factor(factor) {}
    double factor() const { return m_factor; }

    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    double m_factor;
    int m_channels = 0;
};

// The linear amplitude of a level in decibels relative to full scale, 10 to the power (dB / 20): the
// division in single precision, the power in double, stored as a float. Every action that takes a level
// in decibels turns it into an amplitude this way.
float LXAmplitudeOfLevel(double decibels);
