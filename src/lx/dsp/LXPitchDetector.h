#pragma once

#include "lx/dsp/LXKernel.h"

#include <array>
#include <memory>
#include <optional>
#include <vector>

// The dominant pitch of the selected channels (mixed to mono), as the nearest MIDI note. aubio's YIN
// ("yinfast") estimates the pitch of each hop; the hops vote for their note with a weight of their
// confidence times their energy, so a noisy attack or a quiet, drifting tail does not outvote the
// body of a note. Hops below a confidence floor (noise, transients) or a level floor (silence) do not
// vote. The window grows with the rate so that the lowest notes of a piano (MIDI 21, 27.5 Hz) still
// fit two periods, and shrinks for a short sound. Memory stays flat: the votes are 128 totals.
// A sound whose lowest component lies an octave under its written note (an organ's 16-foot stop) reads
// as that lower note.
class LXPitchDetector final : public LXMeter {
public:
    // `frames`: how many frames it will be given, when known, so that a short sound gets windows short
    // enough to fit in it several times (at the price of its lowest notes).
    explicit LXPitchDetector(int64_t frames = 0);
    ~LXPitchDetector() override;

    void prepare(int channels, double rate, const LXChannelSet& selection) override; // clears
    void measure(const float* interleaved, int64_t frames) override;

    // The note with the most weight, 0 to 127; none for silence, unpitched sound, or a rate aubio
    // cannot take.
    std::optional<int> note() const;

private:
    void analyseHop();

    struct State; // aubio's objects
    std::unique_ptr<State> m_state;
    int64_t m_frames;
    int m_channels = 0;
    std::vector<int> m_selected;
    std::array<double, 128> m_votes{};
};
