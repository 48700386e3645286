#include "lx/dsp/LXReverse.h"

#include <algorithm>

namespace {

template <typename T>
void reverseFrames(const T* __restrict in, T* __restrict out, int64_t frames, int channels) {
    if (channels == 1) {
        std::reverse_copy(in, in + frames, out);
        return;
    }
    for (int64_t f = 0; f < frames; ++f)
        std::copy_n(in + (frames - 1 - f) * channels, channels, out + f * channels);
}

} // namespace

void LXReverse::prepare(int channels, double) {
    m_channels = channels;
}

void LXReverse::process(const float* in, float* out, int64_t frames) {
    reverseFrames(in, out, frames, m_channels);
}

void LXReverse::process(const double* in, double* out, int64_t frames) {
    reverseFrames(in, out, frames, m_channels);
}
