#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// Mixes channels through a matrix: output channel r is the sum over the input channels c of
// gains[r][c] * input c, summed in double. A row holding a single 1 copies its channel exactly. Takes
// only input of as many channels as the rows have gains.
class LXChannelMatrix final : public LXKernel {
public:
    explicit LXChannelMatrix(std::vector<std::vector<double>> gains) : m_gains(std::move(gains)) {}

    int outputChannels(int inputChannels) const override;
    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    template <typename T> void mix(const T* in, T* out, int64_t frames) const;

    std::vector<std::vector<double>> m_gains; // [output][input]
    int m_channels = 0;
};
