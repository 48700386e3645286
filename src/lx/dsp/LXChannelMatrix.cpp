#include "lx/dsp/LXChannelMatrix.h"

#include <algorithm>

int LXChannelMatrix::outputChannels(int inputChannels) const {
    if (m_gains.empty()) return 0;
    const bool fits = std::all_of(m_gains.cbegin(), m_gains.cend(),
                                  [&](const std::vector<double>& row) { return int(row.size()) == inputChannels; });
    return fits ? int(m_gains.size()) : 0;
}

void LXChannelMatrix::prepare(int channels, double) {
    m_channels = channels;
}

template <typename T> void LXChannelMatrix::mix(const T* in, T* out, int64_t frames) const {
    const int outputs = int(m_gains.size());
    for (int r = 0; r < outputs; ++r) {
        const double* gains = m_gains[size_t(r)].data();
        for (int64_t f = 0; f < frames; ++f) {
            const T* frame = in + f * m_channels;
            double sum = 0;
            for (int c = 0; c < m_channels; ++c)
                sum += gains[c] * double(frame[c]);
            out[f * outputs + r] = T(sum);
        }
    }
}

void LXChannelMatrix::process(const float* in, float* out, int64_t frames) {
    mix(in, out, frames);
}

void LXChannelMatrix::process(const double* in, double* out, int64_t frames) {
    mix(in, out, frames);
}
