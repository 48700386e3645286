#include "lx/dsp/LXRmsMeter.h"

#include <cmath>

namespace {

double sumOfSquares(const float* p, int64_t count, int stride) {
    double s = 0.0;
    for (int64_t i = 0; i < count; ++i)
        s += double(p[i * stride]) * double(p[i * stride]);
    return s;
}

} // namespace

void LXRmsMeter::prepare(int channels, double, const LXChannelSet& selection) {
    m_channels = channels;
    m_selection = selection;
    m_everyChannel = LXIsEveryChannel(selection, channels);
    m_sum = 0.0;
    m_count = 0;
    m_channelSums.assign(size_t(channels), 0.0);
    m_channelCount = 0;
}

void LXRmsMeter::measure(const float* block, int64_t frames) {
    if (m_scope == Scope::EachChannel) {
        for (int c = 0; c < m_channels; ++c)
            if (m_selection.contains(c))
                m_channelSums[size_t(c)] += sumOfSquares(block + c, frames, m_channels);
        m_channelCount += frames;
        return;
    }
    if (m_everyChannel) {
        m_sum += sumOfSquares(block, frames * m_channels, 1); // one run over the whole block
        m_count += frames * m_channels;
        return;
    }
    for (int c : m_selection)
        if (c >= 0 && c < m_channels) {
            m_sum += sumOfSquares(block + c, frames, m_channels);
            m_count += frames;
        }
}

float LXRmsMeter::rms() const {
    return m_count > 0 ? float(std::sqrt(m_sum / double(m_count))) : 0.0f;
}

float LXRmsMeter::rms(int channel) const {
    if (channel < 0 || channel >= m_channels || m_channelCount == 0) return 0.0f;
    return float(std::sqrt(m_channelSums[size_t(channel)] / double(m_channelCount)));
}
