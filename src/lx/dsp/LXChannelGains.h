#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// One linear factor per channel: channel c is multiplied by gains[c], channels beyond the list by 1.
// Float blocks use each factor rounded to float.
class LXChannelGains final : public LXKernel {
public:
    explicit LXChannelGains(std::vector<double> gains) : m_gains(std::move(gains)) {}
    const std::vector<double>& gains() const { return m_gains; }

    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    std::vector<double> m_gains;
    int m_channels = 0;
    // The factors repeated over a run of whole frames: multiplying run by run keeps the inner loop free
    // of the channel index, so it vectorises whatever the channel count.
    std::vector<float> m_runFloat;
    std::vector<double> m_runDouble;
};
