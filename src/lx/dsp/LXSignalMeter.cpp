#include "lx/dsp/LXSignalMeter.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

LXSignalMeter::LXSignalMeter(const LXSampleEncoding& encoding) {
    if (!encoding.isFloat()) m_limit = 1.0;
}

void LXSignalMeter::prepare(int channels, double, const LXChannelSet&) {
    m_channels = channels;
    m_samples = 0;
    m_peaks.fill(0.0);
    m_squares.fill(0.0);
    m_clipped.fill(0);
}

void LXSignalMeter::measure(const float* interleaved, int64_t frames) {
    add(interleaved, frames * m_channels);
}

void LXSignalMeter::add(const float* samples, int64_t count) {
    accumulate(samples, count);
}

void LXSignalMeter::add(const double* samples, int64_t count) {
    accumulate(samples, count);
}

// Written for the vectoriser: running values in local lanes of the samples' own width (no aliasing with
// the samples, one vector shape for all), selects instead of branches, NaN made silence first. A call
// covers a block, short enough that its squares add up in the samples' precision.
template <typename T> void LXSignalMeter::accumulate(const T* __restrict samples, int64_t count) {
    if (count <= 0) return;
    using Count = std::conditional_t<sizeof(T) == 4, int32_t, int64_t>;
    const T limit = T(m_limit);
    T peaks[kLanes] = {};
    T squares[kLanes] = {};
    Count clipped[kLanes] = {};
    const auto step = [&](T v, int lane) {
        v = v == v ? v : T(0);
        clipped[lane] += Count((v > limit) | (v < -limit));
        v = v < limit ? v : limit;
        v = v > -limit ? v : -limit;
        const T a = v < T(0) ? -v : v;
        peaks[lane] = peaks[lane] > a ? peaks[lane] : a;
        squares[lane] += a * a;
    };
    int64_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (int lane = 0; lane < kLanes; ++lane)
            step(samples[i + lane], lane);
    for (int lane = 0; i < count; ++i, ++lane)
        step(samples[i], lane);
    for (size_t lane = 0; lane < kLanes; ++lane) {
        m_peaks[lane] = std::max(m_peaks[lane], double(peaks[lane]));
        m_squares[lane] += double(squares[lane]);
        m_clipped[lane] += int64_t(clipped[lane]);
    }
    m_samples += count;
}

void LXSignalMeter::merge(const LXSignalMeter& other) {
    for (size_t lane = 0; lane < kLanes; ++lane) {
        m_peaks[lane] = std::max(m_peaks[lane], other.m_peaks[lane]);
        m_squares[lane] += other.m_squares[lane];
        m_clipped[lane] += other.m_clipped[lane];
    }
    m_samples += other.m_samples;
}

double LXSignalMeter::peak() const {
    return *std::max_element(m_peaks.begin(), m_peaks.end());
}

double LXSignalMeter::rms() const {
    double squares = 0.0;
    for (double s : m_squares)
        squares += s;
    return m_samples > 0 ? std::sqrt(squares / double(m_samples)) : 0.0;
}

int64_t LXSignalMeter::clipped() const {
    int64_t clipped = 0;
    for (int64_t c : m_clipped)
        clipped += c;
    return clipped;
}
