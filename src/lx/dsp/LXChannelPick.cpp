#include "lx/dsp/LXChannelPick.h"

#include <algorithm>

int LXChannelPick::outputChannels(int inputChannels) const {
    if (m_picks.isEmpty()) return inputChannels;
    for (int c : m_picks)
        if (c < 0 || c >= inputChannels) return 0;
    return int(m_picks.size());
}

void LXChannelPick::prepare(int channels, double) {
    m_channels = channels;
    m_unchanged = m_picks.isEmpty() || LXIsEveryChannel(m_picks, channels);
}

template <typename T> void LXChannelPick::pick(const T* in, T* out, int64_t frames) const {
    if (m_unchanged) {
        std::copy(in, in + frames * m_channels, out);
        return;
    }
    const int outChannels = int(m_picks.size());
    const int* picks = m_picks.constData();
    for (int64_t f = 0; f < frames; ++f)
        for (int k = 0; k < outChannels; ++k)
            out[f * outChannels + k] = in[f * m_channels + picks[k]];
}

void LXChannelPick::process(const float* in, float* out, int64_t frames) {
    pick(in, out, frames);
}

void LXChannelPick::process(const double* in, double* out, int64_t frames) {
    pick(in, out, frames);
}
