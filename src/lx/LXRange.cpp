#include "lx/LXRange.h"

#include <algorithm>
#include <cmath>

int64_t LXFramesFromSeconds(double seconds, double rate) {
    const double frames = seconds * rate;
    const double nearest = std::round(frames);
    if (std::abs(frames - nearest) < 1e-6) return int64_t(nearest);
    return int64_t(std::trunc(frames));
}

LXRange LXRange::fromFrames(int64_t startFrame, int64_t endFrame, double rate) {
    return {double(startFrame) / rate, double(endFrame) / rate, rate};
}

int64_t LXRange::sampleStart() const {
    return m_rate > 0 ? LXFramesFromSeconds(m_start, m_rate) : 0;
}

int64_t LXRange::sampleEnd() const {
    return m_rate > 0 ? LXFramesFromSeconds(m_end, m_rate) : 0;
}

void LXRange::setSampleStart(int64_t frame) {
    if (m_rate > 0) m_start = double(frame) / m_rate;
}

void LXRange::setSampleEnd(int64_t frame) {
    if (m_rate > 0) m_end = double(frame) / m_rate;
}

void LXRange::chokeToRange(const LXRange& other) {
    m_start = std::clamp(m_start, other.m_start, other.m_end);
    m_end = std::clamp(m_end, other.m_start, other.m_end);
}
