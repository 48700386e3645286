#pragma once

#include "lx/LXChannelSet.h"

#include <vector>

// What the meters built on aubio share. (aubio makes and frees its FFTW plans under a lock of its own,
// so meters may be made on several threads at once.)

// The channels of the selection that a frame of `channels` has.
inline std::vector<int> LXAubioSelected(const LXChannelSet& selection, int channels) {
    std::vector<int> selected;
    for (int c : selection)
        if (c >= 0 && c < channels) selected.push_back(c);
    return selected;
}

// The mean of the selected channels of one frame (aubio takes mono).
inline float LXAubioMix(const float* frame, const std::vector<int>& selected) {
    float sum = 0.0f;
    for (int c : selected)
        sum += frame[c];
    return sum / float(selected.size());
}
