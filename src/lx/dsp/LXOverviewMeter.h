#pragma once

#include "lx/LXWaveformCache.h"
#include "lx/dsp/LXKernel.h"

#include <QVariantMap>
#include <vector>

// What analysing a file measures, in one pass over every channel: peak, RMS, clipped samples, the
// largest DC offset of a channel, and the waveform overview (the minimum and maximum of each channel
// over each stretch of framesPerPoint frames). Blocks must come in file order from the first frame.
class LXOverviewMeter final : public LXMeter {
public:
    // frames: the file's length, which sets the overview's resolution; clipLevel: the magnitude from
    // which a sample counts as clipped.
    LXOverviewMeter(int64_t frames, double clipLevel) : m_frames(frames), m_clipLevel(clipLevel) {}

    void prepare(int channels, double rate, const LXChannelSet& selection) override;
    void measure(const float* interleaved, int64_t frames) override;

    // "max", "rms", "clipped" and "difference" (the DC offset), as LXWaveformCache keeps them.
    QVariantMap analysis() const;
    const LXWaveformOverview& overview() const { return m_overview; }

private:
    int64_t m_frames;
    double m_clipLevel;
    int m_channels = 0;
    int64_t m_position = 0;
    LXWaveformOverview m_overview;
    std::vector<double> m_sums;
    double m_squares = 0.0;
    float m_peak = 0.0f;
    qint64 m_clipped = 0;
};
