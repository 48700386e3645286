#pragma once

#include "lx/dsp/LXKernel.h"

#include <QByteArray>

#include <cstdint>
#include <vector>

// Rounds samples onto the grid of an integer format of a given number of bits, optionally with
// dither, so that the writer's own quantisation (lx/LXSampleCodec.h) then finds every sample on its
// grid and changes nothing. The grid is the format's: steps of 1 / 2^(bits-1), clipped to
// [-1, 1 - step], rounded half away from zero as the codec rounds.
//
// - None: plain rounding. A file that already lies on the grid (a 16-bit file widened to 24 bits and
//   back) comes back sample for sample.
// - Triangular: TPDF dither of 2 steps peak to peak added before rounding, which leaves the error white
//   and independent of the signal.
// - Shaped: the same dither inside an error-feedback loop that moves the noise out of the band where
//   the ear is most sensitive (about 1 to 6 kHz) to the top of the band: a 5-tap E-weighted filter at
//   44.1 and 48 kHz, a second-order high-pass at other rates. More noise in total, less that is heard.
//
// The noise is a fixed sequence from a seed (one stream per channel), so a run with the same seed gives
// the same output. bits of 25 and more (where float itself is the grid) pass the samples through.
class LXDither final : public LXKernel {
public:
    enum class Kind { None, Triangular, Shaped };

    LXDither(Kind kind, int bits, uint64_t seed) : m_kind(kind), m_bits(bits), m_seed(seed) {}

    void prepare(int channels, double rate) override;
    void process(const float* in, float* out, int64_t frames) override;
    void process(const double* in, double* out, int64_t frames) override;

    // A seed from text (a file's name), the same on every run and machine: FNV-1a over its bytes.
    static uint64_t seedOf(const QByteArray& text);

private:
    template <typename T> void run(const T* in, T* out, int64_t frames);

    static constexpr int kTaps = 5;
    struct Channel {
        uint64_t random = 0;
        double error[kTaps] = {}; // the last errors, newest first
    };

    Kind m_kind;
    int m_bits;
    uint64_t m_seed;
    int m_channels = 0;
    double m_feedback[kTaps] = {};
    std::vector<Channel> m_state;
};
