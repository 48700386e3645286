#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// The largest magnitude of the selected channels, together and of each channel on its own. A NaN
// sample counts as larger than any number, so a file holding one reads as NaN.
class LXPeakMeter final : public LXMeter {
public:
    void prepare(int channels, double rate, const LXChannelSet& selection) override;
    void measure(const float* interleaved, int64_t frames) override;

    float peak() const;            // of the selected channels together
    float peak(int channel) const; // of one channel, selected or not

private:
    int32_t bits(int channel) const;

    int m_channels = 0;
    LXChannelSet m_selection;
    // The largest magnitude at each position of a run of whole frames (its sign bit cleared): lane j
    // holds channel j % channels.
    std::vector<int32_t> m_lanes;
};
