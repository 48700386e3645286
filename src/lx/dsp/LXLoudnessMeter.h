#pragma once

#include "lx/dsp/LXKernel.h"

#include <memory>

// Loudness as broadcasters measure it (ITU-R BS.1770 with the EBU R128 gates), through libebur128:
// integrated loudness in LUFS, loudness range in LU and true peak (4x oversampled) as an amplitude.
// Every channel of the frame is measured, whatever the selection; six channels are taken as 5.1 in
// WAV order (L R C LFE Ls Rs), the LFE left out of the loudness. Each block goes to libebur128 in one
// call. The audio is streamed, but libebur128 keeps each 400 ms block's loudness (one every 100 ms) and
// each 3 s window's (one a second) for the gates and the range, in lists of about 32 bytes an entry:
// some 13 MB for ten hours. Its histogram mode would keep that flat at the price of 0.05 LU.
class LXLoudnessMeter final : public LXMeter {
public:
    LXLoudnessMeter();
    ~LXLoudnessMeter() override;

    void prepare(int channels, double rate, const LXChannelSet& selection) override; // clears
    void measure(const float* interleaved, int64_t frames) override;

    // False when libebur128 cannot measure the stream (a rate or channel count it refuses): the values
    // below are then NaN.
    bool isValid() const { return m_state != nullptr; }
    double integrated() const; // LUFS; -inf for silence, or audio shorter than one 400 ms block
    double range() const;      // LU
    double truePeak() const;   // linear, the largest of the channels

private:
    struct State; // libebur128's, which has no name to declare here
    std::unique_ptr<State> m_state;
};
