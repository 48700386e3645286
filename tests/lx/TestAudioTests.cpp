// The test-audio generator is the ground truth of every other test, so it is checked against sox: a
// file it writes must hold exactly what expected() says, sample for sample.

#include "TestAudio.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>

using namespace TestAudio;

namespace {

// Compares a decoded file with what its settings say it holds (channel: the one source channel a split
// member holds, or -1 for all); reports the first mismatch only. sox holds samples as 32-bit integers,
// so a float sample comes back rounded to a multiple of 2^-31.
void expectHolds(const Decoded& decoded, const Sound& sound, int channel = -1) {
    const std::vector<double> want = expectedExact(sound);
    const int channels = channel < 0 ? sound.channels : 1;
    ASSERT_EQ(decoded.channels, channels);
    ASSERT_EQ(decoded.rate, sound.rate);
    ASSERT_EQ(decoded.frames(), sound.frames);
    const double tolerance = sound.encoding.isFloat() ? std::ldexp(1.0, -31) : 0.0;
    for (int64_t f = 0; f < sound.frames; ++f)
        for (int c = 0; c < channels; ++c) {
            const double got = decoded.samples[size_t(f * channels + c)];
            const int source = channel < 0 ? c : channel;
            const double exp = want[size_t(f * sound.channels + source)];
            if (std::abs(got - exp) > tolerance) {
                ADD_FAILURE() << "frame " << f << " channel " << source << ": sox read " << got
                              << ", expected " << exp;
                return;
            }
        }
}

} // namespace

TEST(TestAudio, SamplesArePureBoundedFunctionsThatSurviveAFloatPath) {
    for (Signal signal : {Signal::Pattern, Signal::Sine, Signal::Noise, Signal::Impulse, Signal::Ramp}) {
        const Sound sound{.signal = signal, .channels = 3, .frames = 5000};
        const std::vector<double> first = generate(sound);
        EXPECT_EQ(first, generate(sound));
        // Random access gives the same values as a sequential pass: tests compute single frames.
        for (int64_t f : {int64_t(4999), int64_t(0), int64_t(1234)})
            for (int c = 2; c >= 0; --c)
                EXPECT_EQ(sample(sound, f, c), first[size_t(f * 3 + c)]);
        for (double v : first) {
            ASSERT_LE(std::abs(v), sound.amplitude);
            ASSERT_EQ(v, double(float(v)));
        }
    }
    const Sound noise{.signal = Signal::Noise, .frames = 2000};
    EXPECT_NE(generate(noise), generate(Sound{.signal = Signal::Noise, .frames = 2000, .seed = 2}));
    // Clipping tests rely on the ramp reaching both ends exactly.
    const Sound ramp{.signal = Signal::Ramp, .frames = 101};
    EXPECT_EQ(sample(ramp, 0, 1), -0.5);
    EXPECT_EQ(sample(ramp, 50, 0), 0.0);
    EXPECT_EQ(sample(ramp, 100, 0), 0.5);
}

TEST(TestAudio, PatternChannelsAreDistinguishable) {
    const Sound sound{.channels = 8, .frames = 4410};
    const std::vector<double> v = generate(sound);
    for (int a = 0; a < 8; ++a) {
        double mean = 0;
        for (int64_t f = 0; f < sound.frames; ++f)
            mean += v[size_t(f * 8 + a)] / double(sound.frames);
        // The offsets tell the channels apart even after a gain change or a resampling.
        EXPECT_NEAR(mean, a < 2 ? 0.0 : 0.5 * a / 20.0, 2e-3) << "channel " << a;
        for (int b = a + 1; b < 8; ++b) {
            int64_t differing = 0;
            for (int64_t f = 0; f < sound.frames; ++f)
                differing += std::abs(v[size_t(f * 8 + a)] - v[size_t(f * 8 + b)]) > 1e-3;
            EXPECT_GT(differing, sound.frames * 9 / 10) << "channels " << a << " and " << b;
        }
    }
    // A shifted channel shows at its first frame.
    EXPECT_EQ(sample(sound, 0, 0), 0.0);
    EXPECT_EQ(sample(sound, 0, 1), -0.5);
}

TEST(TestAudio, QuantisationRoundsHalfAwayFromZeroAndClips) {
    const double lsb = 1.0 / 32768;
    for (const auto& [in, out] : {std::pair{0.5 * lsb, lsb},
                                  {-0.5 * lsb, -lsb},
                                  {0.49 * lsb, 0.0},
                                  {1.0, 1.0 - lsb},
                                  {2.0, 1.0 - lsb},
                                  {-1.5, -1.0}})
        EXPECT_EQ(quantise(Sound{}, in), out) << in;
    EXPECT_EQ(quantise(Sound{.encoding = LXSampleEncoding::pcm(32, false)}, 1.0), 1.0 - std::ldexp(1.0, -31));
    EXPECT_EQ(quantise(Sound{.encoding = LXSampleEncoding::ieeeFloat(32, false)}, 1.5), 1.5);
}

// Every integer depth and float, in WAV and AIFF, with a signal that stays inside the range and one
// that reaches full scale (where the writer must clip, not wrap).
TEST(TestAudio, WrittenFilesHoldExactlyTheExpectedSamples) {
    if (!haveTool("sox") || !haveTool("soxi")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    for (const bool aiff : {false, true})
        for (const int bits : {8, 16, 24, 32, 0}) // 0: 32-bit float
            for (const bool pattern : {true, false}) {
                const uint32_t format = aiff ? (bits ? LXFormat::AIFF : LXFormat::AIFC) : LXFormat::WAVE;
                const QString path = dir.filePath(
                    QStringLiteral("%1-%2.%3").arg(bits).arg(int(pattern)).arg(LXFormat::extension(format)));
                SCOPED_TRACE(path.toStdString());
                const Sound sound{.signal = pattern ? Signal::Pattern : Signal::Ramp,
                                  .rate = pattern ? 48000.0 : 22050.0,
                                  .channels = pattern ? 3 : 1,
                                  .frames = 10007, // not a whole number of blocks
                                  .format = format,
                                  .encoding = bits ? LXSampleEncoding::pcm(bits, aiff, bits == 8 && !aiff)
                                                   : LXSampleEncoding::ieeeFloat(32, aiff),
                                  .amplitude = pattern ? 0.5 : 1.0};
                const auto written = write(path, sound);
                ASSERT_TRUE(written) << written.error().description().toStdString();
                EXPECT_EQ(*written, path);
                EXPECT_EQ(runTool(QStringLiteral("soxi"), {QStringLiteral("-b"), path}).trimmed().toInt(),
                          bits ? bits : 32);
                const auto decoded = readWithSox(path);
                ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
                expectHolds(*decoded, sound);
            }
}

TEST(TestAudio, SplitSetsHoldOneChannelPerFile) {
    if (!haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    const Sound sound{.frames = 5000, .encoding = LXSampleEncoding::pcm(24, false), .interleaved = false};
    const auto lead = write(dir.filePath(QStringLiteral("take.wav")), sound);
    ASSERT_TRUE(lead) << lead.error().description().toStdString();
    // Every file of the folder is a member; sox reads the members by content, whatever their suffix.
    const QFileInfoList members = QDir(dir.path()).entryInfoList(QDir::Files, QDir::Name);
    ASSERT_EQ(members.size(), 2);
    for (const QFileInfo& member : members) {
        SCOPED_TRACE(member.fileName().toStdString());
        const auto decoded = readWithSox(member.absoluteFilePath());
        ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
        expectHolds(*decoded, sound, member.absoluteFilePath() == *lead ? 0 : 1);
    }
}

TEST(TestAudio, SoxHelpersReadThirdPartyFilesAndReportFailures) {
    if (!haveTool("sox")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    auto make = [&](const QString& name) {
        const QString path = dir.filePath(name);
        const auto made = generateWithSox(path, {"-n", "-r", "32000", "-b", "24", "-c", "3"},
                                          {"synth", "0.5", "sine", "440"});
        EXPECT_TRUE(made) << made.error().description().toStdString();
        const auto decoded = readWithSox(path);
        EXPECT_TRUE(decoded) << decoded.error().description().toStdString();
        return decoded ? *decoded : Decoded{};
    };
    const Decoded decoded = make(QStringLiteral("sox.aif"));
    EXPECT_EQ(decoded.channels, 3);
    EXPECT_EQ(decoded.rate, 32000);
    EXPECT_EQ(decoded.frames(), 16000);
    // 24-bit samples: every value is a whole multiple of 2^-23, and the sine is there.
    double peak = 0;
    for (double v : decoded.samples) {
        ASSERT_EQ(v * 8388608.0, std::round(v * 8388608.0));
        peak = std::max(peak, std::abs(v));
    }
    EXPECT_GT(peak, 0.5);
    EXPECT_EQ(make(QStringLiteral("again.aif")).samples, decoded.samples) << "without dithering";

    const QString missing = dir.filePath(QStringLiteral("missing.wav"));
    const auto failed = readWithSox(missing);
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().path(), missing);
    EXPECT_FALSE(failed.error().message().isEmpty());
    int status = 0;
    QString err;
    runTool(QStringLiteral("no-such-program-here"), {}, &status, &err);
    EXPECT_EQ(status, -1);
    EXPECT_TRUE(err.contains(QStringLiteral("no-such-program-here")));
    EXPECT_FALSE(generateWithSox(dir.filePath(QStringLiteral("bad.wav")), {"-n"}, {"no-such-effect"}));
}
