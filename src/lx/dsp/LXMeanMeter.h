#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// The mean of each selected channel: its DC offset.
class LXMeanMeter final : public LXMeter {
public:
    void prepare(int channels, double rate, const LXChannelSet& selection) override;
    void measure(const float* interleaved, int64_t frames) override;

    // One value per channel of the frame; 0 for channels not selected and before any frame.
    std::vector<double> means() const;

private:
    int m_channels = 0;
    LXChannelSet m_selection;
    std::vector<double> m_lanes; // a block's sums at each position of a run of whole frames
    std::vector<double> m_sums;  // of each channel, block by block
    int64_t m_count = 0;
};
