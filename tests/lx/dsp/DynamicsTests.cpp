// The compressor and expander on tones whose level steps: the times their gain takes, measured on the
// output, and what the entry leaves alone; the stream that renders a file through an effect.

#include "TestAudio.h"
#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXDynamicsEntry.h"
#include "lx/LXProcessStream.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr double kRate = 48000;

// A 1 kHz sine whose peak level (dBFS) steps: each pair is a level and how long it lasts.
std::vector<float> steps(const std::vector<std::pair<double, double>>& levels, int channels = 1) {
    std::vector<float> out;
    int64_t n = 0;
    for (const auto& [level, seconds] : levels) {
        const double amplitude = std::pow(10.0, level / 20.0);
        for (int64_t end = n + int64_t(seconds * kRate); n < end; ++n)
            for (int c = 0; c < channels; ++c)
                out.push_back(float(amplitude * std::sin(2 * std::numbers::pi * 1000.0 * double(n) / kRate)));
    }
    return out;
}

std::vector<float> render(LXDynamicsEntry& entry, std::vector<float> signal, int channels = 1) {
    EXPECT_TRUE(entry.prepare(kRate, channels, 4096));
    const int64_t frames = int64_t(signal.size()) / channels;
    for (int64_t f = 0; f < frames; f += 4096) // in blocks, as a player or the block loop drives it
        entry.process(signal.data() + f * channels, std::min<int64_t>(4096, frames - f));
    return signal;
}

// The gain in dB at each sample, out over in, where the input is far enough from a zero crossing to give
// it precisely; elsewhere the last one found.
std::vector<double> gains(const std::vector<float>& in, const std::vector<float>& out) {
    std::vector<double> g(in.size(), 0.0);
    double last = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        const double peak = std::fabs(in[i]);
        if (peak > 1e-5 && std::fabs(std::sin(2 * std::numbers::pi * 1000.0 * double(i) / kRate)) > 0.5)
            last = 20 * std::log10(std::fabs(out[i]) / peak);
        g[i] = last;
    }
    return g;
}

// Seconds from the first sample at which the gain has covered 10 % of its change after `from` to the
// first at which it has covered 90 %.
double tenToNinety(const std::vector<double>& g, double from, double to) {
    const size_t a = size_t(from * kRate), b = size_t(to * kRate);
    const double start = g[a], end = g[b - 1], change = end - start;
    size_t t10 = 0, t90 = 0;
    for (size_t i = a; i < b && !t90; ++i) {
        const double covered = (g[i] - start) / change;
        if (!t10 && covered >= 0.1) t10 = i;
        if (covered >= 0.9) t90 = i;
    }
    return double(t90 - t10) / kRate;
}

} // namespace

// From -30 to -6 dBFS and back, 4:1 above -20 dBFS: the gain falls by 10.5 dB and recovers, each within
// 10 % of the time set, for fast and slow settings.
TEST(Dynamics, AttackAndReleaseTakeTheTimesSet) {
    for (const auto& [attack, release] : {std::pair{0.020, 0.200}, std::pair{0.050, 0.100}, std::pair{0.005, 0.500}}) {
        SCOPED_TRACE(testing::Message() << "attack " << attack << " release " << release);
        LXDynamicsEntry entry;
        entry.setCompressionThreshold(20);
        entry.setCompressionHeadroom(10);
        entry.setCompressionAttackTime(float(attack));
        entry.setCompressionReleaseTime(float(release));
        const std::vector<float> in = steps({{-30, 0.5}, {-6, 1.0}, {-30, 2.0}});
        const std::vector<double> g = gains(in, render(entry, in));
        EXPECT_NEAR(g[size_t(1.45 * kRate)], -10.5, 0.05);
        EXPECT_NEAR(tenToNinety(g, 0.5, 1.5), attack, attack * 0.1);
        EXPECT_NEAR(tenToNinety(g, 1.5, 3.5), release, release * 0.1);
        EXPECT_NEAR(g.back(), 0.0, 0.01);
    }
}

// Left loud, right quiet: both channels take the gain the louder one calls for, so the image holds.
TEST(Dynamics, ChannelsShareOneGain) {
    LXDynamicsEntry entry;
    entry.setCompressionThreshold(20);
    entry.setCompressionHeadroom(4);
    std::vector<float> in = steps({{-6, 0.5}}, 2);
    for (size_t i = 1; i < in.size(); i += 2)
        in[i] *= 0.01f; // -40 dB
    const std::vector<float> out = render(entry, in, 2);
    for (size_t i = in.size() - 400; i < in.size(); i += 2)
        if (std::fabs(in[i]) > 0.1f) {
            EXPECT_NEAR(out[i] / in[i], out[i + 1] / in[i + 1], 1e-6) << i;
        }
}

// Bypassed, or set to change nothing, the entry gives back every sample as it was.
TEST(Dynamics, BypassedOrNeutralTheSamplesPassUnchanged) {
    const std::vector<float> in = steps({{-40, 0.2}, {0, 0.2}});
    LXDynamicsEntry neutral;
    EXPECT_EQ(render(neutral, in), in);
    LXDynamicsEntry bypassed;
    bypassed.setCompressionThreshold(30);
    bypassed.setCompressionHeadroom(0.1f);
    bypassed.setEnabled(false);
    EXPECT_EQ(render(bypassed, in), in);
    // Switched on while playing, it compresses from the next block.
    bypassed.setEnabled(true);
    const std::vector<float> loud = steps({{0, 0.1}});
    std::vector<float> block = loud;
    bypassed.process(block.data(), 4096);
    EXPECT_NE(block, loud);
}

// The stream's latency compensation, with an effect whose output is its input `delay` frames late (as a
// look-ahead limiter's is): aligned, every sample keeps its time and the file its length; without it,
// the output comes that late.
namespace {

class Delay final : public LXEffectEntry {
public:
    explicit Delay(int64_t delay) : m_delay(delay) {}
    LXStatus prepare(double, int channels, int64_t) override {
        m_line.assign(size_t(m_delay * channels), 0.0);
        return {};
    }
    void process(float* x, int64_t frames) override { run(x, frames); }
    void process(double* x, int64_t frames) override { run(x, frames); }
    void reset() override {}
    int64_t latency() const override { return m_delay; }

private:
    template <typename T> void run(T* x, int64_t frames) {
        for (int64_t i = 0; i < frames * int64_t(m_line.size()) / m_delay; ++i) {
            const double in = double(x[i]);
            x[i] = T(m_line[m_next]);
            m_line[m_next] = in;
            m_next = (m_next + 1) % m_line.size();
        }
    }
    int64_t m_delay;
    size_t m_next = 0;
    std::vector<double> m_line;
};

} // namespace

TEST(ProcessStream, LatencyCompensationKeepsEverySampleAtItsTime) {
    QTemporaryDir dir;
    const TestAudio::Sound sound{.signal = TestAudio::Signal::Noise, .frames = 50000};
    const auto written = TestAudio::write(dir.filePath("in.wav"), sound);
    ASSERT_TRUE(written);
    const std::vector<float> want = TestAudio::expected(sound);
    for (const bool compensate : {true, false}) {
        auto file = LXAudioFile::open(*written);
        ASSERT_TRUE(file);
        Delay delay(1000);
        LXProcessStream stream(delay);
        LXAudioFileWriter writer(**file);
        ASSERT_TRUE(stream.processAudioFile(**file, {{"latencyCompensation", compensate}}, writer));
        const QString out = dir.filePath(compensate ? "aligned.wav" : "late.wav");
        ASSERT_TRUE(writer.saveFile(0, out));
        auto result = LXAudioFile::open(out);
        ASSERT_TRUE(result);
        ASSERT_EQ((*result)->frames(), sound.frames);
        std::vector<float> got(want.size());
        ASSERT_TRUE((*result)->readFrames(0, sound.frames, got.data()));
        const size_t late = compensate ? 0 : 2000; // samples: 1000 stereo frames
        for (size_t i = late; i < got.size(); ++i)
            ASSERT_EQ(got[i], want[i - late]) << i;
    }
}
