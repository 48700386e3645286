#pragma once

#include "lx/dsp/LXKernel.h"

#include <vector>

// The root mean square of the selected channels: of all of them together, or of each on its own.
// Squares are summed in double, block by block, in sample order.
class LXRmsMeter final : public LXMeter {
public:
    enum class Scope { Together, EachChannel };
    explicit LXRmsMeter(Scope scope = Scope::Together) : m_scope(scope) {}

    void prepare(int channels, double rate, const LXChannelSet& selection) override;
    void measure(const float* interleaved, int64_t frames) override;

    float rms() const;            // Together: of the selected channels; a channel listed twice counts twice
    float rms(int channel) const; // EachChannel: of one selected channel; 0 for the others

private:
    Scope m_scope;
    int m_channels = 0;
    LXChannelSet m_selection;
    bool m_everyChannel = false;
    double m_sum = 0.0;
    int64_t m_count = 0;
    std::vector<double> m_channelSums;
    int64_t m_channelCount = 0;
};
