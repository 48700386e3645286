#pragma once

#include "lx/dsp/LXKernel.h"

// Copies of channels: output channel k is input channel channels[k], in any order, repeats allowed.
// Built without a list, it copies every channel as it is. Samples keep their values exactly.
class LXChannelPick final : public LXKernel {
public:
    LXChannelPick() = default;
    explicit LXChannelPick(LXChannelSet channels) : m_picks(std::move(channels)) {}

    // 0 when a picked channel is not one of the input's.
    int outputChannels(int inputChannels) const override;
    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

private:
    template <typename T> void pick(const T* in, T* out, int64_t frames) const;

    LXChannelSet m_picks;
    int m_channels = 0;
    bool m_unchanged = true; // every channel in order: one straight copy
};
