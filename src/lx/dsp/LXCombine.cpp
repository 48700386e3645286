#include "lx/dsp/LXCombine.h"

#include <algorithm>

void LXPlaceChannels(const double* in, int inChannels, double* out, int outChannels, int first,
                     int64_t frames) {
    const int count = std::min(inChannels, outChannels - first);
    for (int64_t f = 0; f < frames; ++f)
        for (int c = 0; c < count; ++c)
            out[f * outChannels + first + c] = in[f * inChannels + c];
}

void LXAddChannels(const double* in, int inChannels, float* sum, int outChannels, int64_t frames) {
    const int count = std::min(inChannels, outChannels);
    for (int64_t f = 0; f < frames; ++f)
        for (int c = 0; c < count; ++c)
            sum[f * outChannels + c] += float(in[f * inChannels + c]);
}
