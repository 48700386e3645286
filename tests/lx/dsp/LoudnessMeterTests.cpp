// The loudness meter on the test signals of EBU Tech 3341, synthesized here, fed in blocks as LXMeasure
// feeds it.

#include "lx/dsp/LXLoudnessMeter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr double kRate = 48000;

struct Stretch {
    double seconds;
    double dbfs; // amplitude of the 1 kHz sine; -inf for silence
};

// A 1 kHz sine in every channel, stretch after stretch; amplitudes per channel scale the level (0 dB
// leaves it, -inf silences the channel).
std::vector<float> sines(const std::vector<Stretch>& stretches, const std::vector<double>& channelDb,
                         double frequency = 1000.0, double phase = 0.0) {
    const int channels = int(channelDb.size());
    std::vector<float> samples;
    int64_t n = 0;
    for (const Stretch& stretch : stretches) {
        const int64_t frames = int64_t(stretch.seconds * kRate);
        for (int64_t f = 0; f < frames; ++f, ++n) {
            const double s = std::sin(2 * std::numbers::pi * frequency * double(n) / kRate + phase);
            for (int c = 0; c < channels; ++c)
                samples.push_back(float(s * std::pow(10.0, (stretch.dbfs + channelDb[size_t(c)]) / 20.0)));
        }
    }
    return samples;
}

LXLoudnessMeter& measure(LXLoudnessMeter& meter, const std::vector<float>& samples, int channels) {
    constexpr int64_t block = 16384;
    meter.prepare(channels, kRate, {});
    const int64_t frames = int64_t(samples.size()) / channels;
    for (int64_t f = 0; f < frames; f += block)
        meter.measure(samples.data() + f * channels, std::min(block, frames - f));
    return meter;
}

const std::vector<double> kStereo{0.0, 0.0};

} // namespace

// Tech 3341 cases 1 to 4: steady sines, and the absolute (-70 LUFS) and relative (-10 LU) gates that leave
// the quiet stretches out.
TEST(LoudnessMeter, ReadsTheTech3341SinesAndGates) {
    const struct {
        std::vector<Stretch> signal;
        double lufs;
    } cases[] = {
        {{{20, -23}}, -23.0},
        {{{20, -33}}, -33.0},
        {{{10, -36}, {60, -23}, {10, -36}}, -23.0},
        {{{10, -72}, {10, -36}, {60, -23}, {10, -36}, {10, -72}}, -23.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.lufs);
            LXLoudnessMeter meter;
        EXPECT_NEAR(measure(meter, sines(c.signal, kStereo), 2).integrated(), c.lufs, 0.1);
    }
}

// Six channels are 5.1 in WAV order with the weights of BS.1770: L, R and C at -28 dBFS and the surrounds
// at -24.5 dBFS (weighted 1.41) read 10 log10(3/2 10^-2.8 + 1.41 10^-2.45) = -21.31 LUFS (a 1 kHz sine
// passes the weighting filter at +0.69 dB, which the -0.691 of the formula takes back); a full-scale LFE
// changes nothing.
TEST(LoudnessMeter, TakesSixChannelsAsFivePointOneWithoutTheLfe) {
    const double silent = -HUGE_VAL;
    const double expected = 10 * std::log10(1.5 * std::pow(10, -2.8) + 1.41 * std::pow(10, -2.45));
    LXLoudnessMeter meter;
    const std::vector<double> layout{0.0, 0.0, 0.0, silent, 3.5, 3.5};
    EXPECT_NEAR(measure(meter, sines({{20, -28}}, layout), 6).integrated(), expected, 0.05);
    LXLoudnessMeter withLfe;
    const std::vector<double> loudLfe{0.0, 0.0, 0.0, 28.0, 3.5, 3.5};
    EXPECT_NEAR(measure(withLfe, sines({{20, -28}}, loudLfe), 6).integrated(), expected, 0.05);
}

// Tech 3341 cases 7 and 8 in spirit: the loudness range of a sine stepping between two levels 10 dB
// apart, 20 s each, is the step (the 10th to 95th percentile of the short-term loudness).
TEST(LoudnessMeter, MeasuresTheLoudnessRangeOfAStep) {
    LXLoudnessMeter meter;
    EXPECT_NEAR(measure(meter, sines({{20, -30}, {20, -20}}, kStereo), 2).range(), 10.0, 0.1);
}

// A sine at a quarter of the rate with a 45 degree phase has every sample at 0.707 of its amplitude: the
// true peak is the amplitude (-6.02 dB here), 3 dB above every sample.
TEST(LoudnessMeter, FindsThePeakBetweenTheSamples) {
    LXLoudnessMeter meter;
    const std::vector<float> samples = sines({{1, -6.0206}}, kStereo, kRate / 4, std::numbers::pi / 4);
    EXPECT_NEAR(std::fabs(samples[0]), 0.3536, 1e-3);
    const double truePeakDb = 20 * std::log10(measure(meter, samples, 2).truePeak());
    EXPECT_NEAR(truePeakDb, -6.02, 0.3);
}

// Silence is -inf LUFS (every block below the absolute gate); a rate libebur128 refuses gives no values
// rather than wrong ones.
TEST(LoudnessMeter, SilenceAndRefusedStreams) {
    LXLoudnessMeter meter;
    EXPECT_EQ(measure(meter, std::vector<float>(96000, 0.0f), 2).integrated(), -HUGE_VAL);
    EXPECT_EQ(meter.truePeak(), 0.0);
    LXLoudnessMeter refused;
    refused.prepare(2, 0.0, {});
    EXPECT_FALSE(refused.isValid());
    EXPECT_TRUE(std::isnan(refused.integrated()));
}
