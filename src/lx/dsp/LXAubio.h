#pragma once

#include "lx/LXChannelSet.h"

#include <mutex>
#include <vector>

// What the meters built on aubio share.

// Held while an aubio object is made or freed: aubio then plans or destroys FFTW transforms, and
// FFTW's planner is not thread-safe.
class LXAubioPlannerLock {
public:
    LXAubioPlannerLock() : m_lock(mutex()) {}

private:
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    std::lock_guard<std::mutex> m_lock;
};

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
