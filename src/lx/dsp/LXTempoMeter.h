#pragma once

#include "lx/dsp/LXKernel.h"

#include <memory>
#include <vector>

// The tempo of the selected channels (mixed to mono) through aubio's beat tracker: onsets found in
// 1024-frame windows every 256 frames, their periodicity followed over the stream. The tracker needs a
// few beats to lock on, so a tempo is reported only after enough beats were heard.
class LXTempoMeter final : public LXMeter {
public:
    LXTempoMeter();
    ~LXTempoMeter() override;

    void prepare(int channels, double rate, const LXChannelSet& selection) override; // clears
    void measure(const float* interleaved, int64_t frames) override;

    // Beats per minute; 0 when no steady beat was found (silence, a single hit, audio too short).
    double bpm() const;

private:
    struct State; // aubio's objects
    std::unique_ptr<State> m_state;
    int m_channels = 0;
    std::vector<int> m_selected;
    std::vector<double> m_beats; // seconds
};
