// Kernels and meters on plain buffers, driven as LXProcess drives them: prepare, then block by block.

#include "lx/dsp/LXChannelGains.h"
#include "lx/dsp/LXChannelPick.h"
#include "lx/dsp/LXDCFilter.h"
#include "lx/dsp/LXGain.h"
#include "lx/dsp/LXMeanMeter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr double kRate = 44100;

template <typename T> std::vector<T> noise(int64_t samples) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<T> v(static_cast<size_t>(samples));
    for (T& s : v)
        s = T(uniform(random));
    return v;
}

// Runs the kernel over the buffer in blocks of `block` frames, as the block loop would.
template <typename T>
std::vector<T> run(LXKernel& kernel, const std::vector<T>& in, int channels, int64_t block = 16384) {
    const int outChannels = kernel.outputChannels(channels);
    const int64_t frames = int64_t(in.size()) / channels;
    std::vector<T> out(size_t(frames * outChannels));
    kernel.prepare(channels, kRate);
    for (int64_t f = 0; f < frames; f += block)
        kernel.process(in.data() + f * channels, out.data() + f * outChannels, std::min(block, frames - f));
    return out;
}

// Measured figures go into the test report (--gtest_output=xml).
std::string figure(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", value);
    return text;
}

double sine(double frequency, int64_t n) {
    return std::sin(2.0 * std::numbers::pi * frequency * double(n) / kRate);
}

} // namespace

// Scaling is one multiplication a sample by the factor as the block's type holds it, whatever the
// channel count and wherever a block ends; picking copies samples untouched.
TEST(Kernels, GainsAndPicksAreExact) {
    const int channels = 5;
    const std::vector<float> f = noise<float>(1001 * channels);
    const std::vector<double> d = noise<double>(1001 * channels);
    LXGain gain(0.3);
    const std::vector<float> gf = run(gain, f, channels, 700);
    const std::vector<double> gd = run(gain, d, channels, 700);
    LXChannelGains gains({0.5, 3.0, 0.1}); // channels 3 and 4 keep 1
    const std::vector<float> cf = run(gains, f, channels, 700);
    const std::vector<double> cd = run(gains, d, channels, 700);
    const double factors[channels] = {0.5, 3.0, 0.1, 1.0, 1.0};
    for (size_t i = 0; i < f.size(); ++i) {
        ASSERT_EQ(gf[i], f[i] * 0.3f) << i;
        ASSERT_EQ(gd[i], d[i] * 0.3) << i;
        ASSERT_EQ(cf[i], f[i] * float(factors[i % channels])) << i;
        ASSERT_EQ(cd[i], d[i] * factors[i % channels]) << i;
    }

    LXChannelPick pick({4, 0, 0});
    const std::vector<double> picked = run(pick, d, channels, 700);
    ASSERT_EQ(picked.size(), d.size() / channels * 3);
    for (size_t frame = 0; frame < d.size() / channels; ++frame) {
        ASSERT_EQ(picked[frame * 3], d[frame * channels + 4]);
        ASSERT_EQ(picked[frame * 3 + 2], d[frame * channels]);
    }
    EXPECT_EQ(LXChannelPick({5}).outputChannels(channels), 0);
}

// Primed with the measured mean, the filter takes a constant offset off from the first frame: no step,
// no click decaying over the next tenth of a second; and what music holds passes almost unchanged.
TEST(DCFilter, RemovesAnOffsetWithoutAStepAndLeavesTheBassAlone) {
    const double offset = 0.25;
    const int64_t frames = int64_t(3 * kRate);
    std::vector<float> in(static_cast<size_t>(frames));
    for (int64_t n = 0; n < frames; ++n)
        in[size_t(n)] = float(offset + 0.5 * sine(440, n));
    LXMeanMeter mean;
    mean.prepare(1, kRate, {0});
    mean.measure(in.data(), frames);
    LXDCFilter filter(mean.means());
    const std::vector<float> out = run(filter, in, 1);

    // What differs from the input less the offset is the high-pass turning the sine's phase, at most
    // 2 A (1 - p) / w = 4.5e-3 here; a filter started from rest would be the offset itself (0.25) off.
    double sum = 0, start = 0;
    for (int64_t n = 0; n < frames; ++n) {
        if (n < int64_t(kRate / 100))
            start = std::max(start, std::abs(double(out[size_t(n)]) - (double(in[size_t(n)]) - offset)));
        sum += out[size_t(n)];
    }
    const double first = std::abs(double(out[0]) - (double(in[0]) - offset));
    const double residual = sum / double(frames);
    RecordProperty("residualDC", figure(residual));
    RecordProperty("firstSampleError", figure(first));
    RecordProperty("first10msError", figure(start));
    EXPECT_LT(std::abs(residual), 1e-4);
    EXPECT_LT(first, 1e-7);
    EXPECT_LT(start, 5e-3);

    // 40 Hz: the RMS of the settled second half within 0.02 dB.
    std::vector<double> bass(static_cast<size_t>(frames));
    for (int64_t n = 0; n < frames; ++n)
        bass[size_t(n)] = 0.5 * sine(40, n);
    LXDCFilter unprimed({});
    const std::vector<double> passed = run(unprimed, bass, 1);
    double energyIn = 0, energyOut = 0;
    for (size_t n = size_t(frames / 2); n < size_t(frames); ++n)
        energyIn += bass[n] * bass[n], energyOut += passed[n] * passed[n];
    const double lossDb = -10.0 * std::log10(energyOut / energyIn);
    RecordProperty("lossAt40HzDb", figure(lossDb));
    EXPECT_LT(lossDb, 0.02);
    EXPECT_GT(lossDb, 0.0);
}
