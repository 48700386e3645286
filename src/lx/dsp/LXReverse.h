#pragma once

#include "lx/dsp/LXKernel.h"

// Reverses the order of the frames in each block; every sample keeps its value. Run over a file read
// backwards (LXDirection::Backward), where the blocks come last first, it reverses the whole file.
class LXReverse final : public LXKernel {
public:
    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    int m_channels = 0;
};
