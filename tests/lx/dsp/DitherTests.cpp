// Rounding to an integer grid, with and without dither: exactness where nothing should change, the
// level and shape of the noise where something does.

#include "lx/dsp/LXDither.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

namespace {

constexpr double kRate = 44100;
constexpr double kStep16 = 1.0 / 32768;

std::vector<double> dither(LXDither::Kind kind, int bits, const std::vector<double>& in, int channels = 1,
                           uint64_t seed = 1) {
    LXDither kernel(kind, bits, seed);
    kernel.prepare(channels, kRate);
    std::vector<double> out(in.size());
    const int64_t frames = int64_t(in.size()) / channels;
    for (int64_t f = 0; f < frames; f += 16384) // in blocks, as the block loop drives it
        kernel.process(in.data() + f * channels, out.data() + f * channels, std::min<int64_t>(16384, frames - f));
    return out;
}

// A quiet 1 kHz sine (a tenth of full scale), which leaves the rounding error looking like noise.
std::vector<double> sine(int64_t frames) {
    std::vector<double> v(size_t(frames), 0.0);
    for (int64_t i = 0; i < frames; ++i)
        v[size_t(i)] = 0.1 * std::sin(2 * std::numbers::pi * 1000.0 * double(i) / kRate);
    return v;
}

// The mean power of the error (out - in, in steps) per DFT bin between two frequencies.
double bandPower(const std::vector<double>& in, const std::vector<double>& out, double step, double from,
                 double to) {
    const size_t n = in.size();
    std::vector<double> error(n);
    for (size_t i = 0; i < n; ++i)
        error[i] = (out[i] - in[i]) / step;
    double sum = 0;
    int bins = 0;
    for (size_t k = size_t(from / kRate * double(n)); k <= size_t(to / kRate * double(n)); ++k, ++bins) {
        std::complex<double> acc;
        const std::complex<double> turn = std::polar(1.0, -2 * std::numbers::pi * double(k) / double(n));
        std::complex<double> w = 1;
        for (size_t i = 0; i < n; ++i, w *= turn)
            acc += error[i] * w;
        sum += std::norm(acc) / double(n);
    }
    return sum / bins;
}

} // namespace

TEST(Dither, WithoutDitherSamplesOnTheGridStayAndOthersRoundAsTheCodecDoes) {
    const std::vector<double> in = {0.0, 3 * kStep16, -1.0, 1.0, 2.5 * kStep16, -2.5 * kStep16, 0.4 * kStep16};
    const std::vector<double> expected = {0.0, 3 * kStep16, -1.0, 1.0 - kStep16, 3 * kStep16, -3 * kStep16, 0.0};
    EXPECT_EQ(dither(LXDither::Kind::None, 16, in), expected);
    // 20 bits: a step of 16 of a 24-bit file's.
    EXPECT_EQ(dither(LXDither::Kind::None, 20, {9.0 / (1 << 23)}), std::vector<double>{16.0 / (1 << 23)});
    // Nothing to round above 24 bits.
    EXPECT_EQ(dither(LXDither::Kind::Triangular, 32, in), in);
}

TEST(Dither, TheNoiseIsTheSeedsAndDiffersBetweenChannels) {
    const std::vector<double> in(2 * 5000, 0.25);
    const auto a = dither(LXDither::Kind::Shaped, 16, in, 2, 42);
    EXPECT_EQ(a, dither(LXDither::Kind::Shaped, 16, in, 2, 42));
    EXPECT_NE(a, dither(LXDither::Kind::Shaped, 16, in, 2, 43));
    std::vector<double> left, right;
    for (size_t i = 0; i < a.size(); i += 2)
        left.push_back(a[i]), right.push_back(a[i + 1]);
    EXPECT_NE(left, right);
    EXPECT_EQ(LXDither::seedOf("take 1.wav"), LXDither::seedOf("take 1.wav"));
    EXPECT_NE(LXDither::seedOf("take 1.wav"), LXDither::seedOf("take 2.wav"));
}

TEST(Dither, TriangularNoiseIsFlatAndShapedNoiseIsLowerWhereTheEarIsMostSensitive) {
    const std::vector<double> in = sine(8192);
    const auto tpdf = dither(LXDither::Kind::Triangular, 16, in);
    const auto shaped = dither(LXDither::Kind::Shaped, 16, in);
    // TPDF: rounding (1/12 of a step squared) plus the dither (2/12), white: 0.25 in every bin.
    double total = 0, mean = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        const double e = (tpdf[i] - in[i]) / kStep16;
        total += e * e, mean += e;
        ASSERT_LE(std::fabs(e), 1.5);
    }
    EXPECT_NEAR(total / double(in.size()), 0.25, 0.02);
    EXPECT_NEAR(mean / double(in.size()), 0.0, 0.02);
    const double tpdfLow = bandPower(in, tpdf, kStep16, 1000, 5000);
    const double tpdfHigh = bandPower(in, tpdf, kStep16, 16000, 20000);
    EXPECT_NEAR(10 * std::log10(tpdfLow / tpdfHigh), 0.0, 1.0);
    const double shapedLow = bandPower(in, shaped, kStep16, 1000, 5000);
    const double shapedHigh = bandPower(in, shaped, kStep16, 16000, 20000);
    std::printf("noise 1-5 kHz: TPDF %.1f dB, shaped %.1f dB; 16-20 kHz: TPDF %.1f dB, shaped %.1f dB "
                "(relative to a step squared)\n",
                10 * std::log10(tpdfLow), 10 * std::log10(shapedLow), 10 * std::log10(tpdfHigh),
                10 * std::log10(shapedHigh));
    EXPECT_LT(10 * std::log10(shapedLow / tpdfLow), -12.0);
    EXPECT_GT(shapedHigh, tpdfHigh); // where the noise went
}
