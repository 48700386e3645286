#pragma once

#include <cstdint>

// A stretch of a file in seconds. With a sample rate set, its bounds can also be read and set in
// frames (seconds x rate, truncated toward zero).
class LXRange {
public:
    LXRange() = default;
    LXRange(double start, double end, double rate = 0.0) : m_start(start), m_end(end), m_rate(rate) {}

    static LXRange rangeWithLocation(double location, double length) { return {location, location + length}; }
    static LXRange rangeWithStart(double start, double end) { return {start, end}; }
    static LXRange fromFrames(int64_t startFrame, int64_t endFrame, double rate);

    double start() const { return m_start; }
    double end() const { return m_end; }
    double location() const { return m_start; }
    double length() const { return m_end - m_start; }
    double rate() const { return m_rate; }

    void setStart(double seconds) { m_start = seconds; }
    void setEnd(double seconds) { m_end = seconds; }
    void setRate(double rate) { m_rate = rate; }
    void setRange(const LXRange& other) { m_start = other.m_start, m_end = other.m_end; }
    void shift(double seconds) { m_start += seconds, m_end += seconds; }

    // Frame bounds need a rate; without one they read 0.
    int64_t sampleStart() const;
    int64_t sampleEnd() const;
    int64_t sampleLength() const { return sampleEnd() - sampleStart(); }
    void setSampleStart(int64_t frame);
    void setSampleEnd(int64_t frame);

    // Clamps both bounds into the other range (an empty range at its edge when they do not overlap).
    void chokeToRange(const LXRange& other);
    bool isEqualToRange(const LXRange& other) const { return m_start == other.m_start && m_end == other.m_end; }
    bool isEmpty() const { return !(m_end > m_start); }

private:
    double m_start = 0.0;
    double m_end = 0.0;
    double m_rate = 0.0;
};

// Seconds to frames, truncating toward zero. A position read from a file as a frame and turned into
// seconds must come back as the same frame, so a sliver of a frame is allowed for rounding error.
int64_t LXFramesFromSeconds(double seconds, double rate);
