#pragma once

#include <cmath>
#include <cstdint>

// When a frame reaches a level: the magnitude of at least one of its channels' samples is at or above the
// level, a linear amplitude (1 is full scale). This is the one definition behind every search by level:
// fades and trims below a level, and labels and extraction at thresholds.
inline bool LXFrameReaches(const float* frame, int channels, float level) {
    for (int c = 0; c < channels; ++c)
        if (std::fabs(frame[c]) >= level) return true;
    return false;
}

// The first and the last frame of a block of interleaved frames that reach the level; -1 when none does.
inline int64_t LXFirstFrameReaching(const float* block, int64_t frames, int channels, float level) {
    for (int64_t f = 0; f < frames; ++f)
        if (LXFrameReaches(block + f * channels, channels, level)) return f;
    return -1;
}

inline int64_t LXLastFrameReaching(const float* block, int64_t frames, int channels, float level) {
    for (int64_t f = frames - 1; f >= 0; --f)
        if (LXFrameReaches(block + f * channels, channels, level)) return f;
    return -1;
}
