// The test-audio generator is the ground truth of every other test, so it is checked against sox: a
// file it writes must hold exactly what expected() says, sample for sample.

#include "TestAudio.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <gtest/gtest.h>

#include <cmath>
#include <set>

using namespace TestAudio;

namespace {

struct Case {
    const char* name;
    uint32_t format;
    LXSampleEncoding encoding;
};

// sox holds samples as 32-bit integers, so a float sample comes back rounded to a multiple of 2^-31.
double soxTolerance(const LXSampleEncoding& e) {
    return e.isFloat() ? std::ldexp(1.0, -31) : 0.0;
}

// Compares a decoded file with what its settings say it holds; reports the first mismatch only, so a
// wrong file does not print a million lines.
void expectHolds(const Decoded& decoded, const Sound& sound, const std::vector<double>& want,
                 int channel = -1) {
    const int channels = channel < 0 ? sound.channels : 1;
    ASSERT_EQ(decoded.channels, channels);
    ASSERT_EQ(decoded.rate, sound.rate);
    ASSERT_EQ(decoded.frames(), sound.frames);
    const double tolerance = soxTolerance(sound.encoding);
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

TEST(TestAudio, SamplesArePureFunctionsOfTheSpec) {
    for (Signal signal : {Signal::Pattern, Signal::Sine, Signal::Noise, Signal::Impulse, Signal::Ramp}) {
        Sound sound;
        sound.signal = signal;
        sound.channels = 3;
        sound.frames = 5000;
        const std::vector<double> first = generate(sound);
        EXPECT_EQ(first, generate(sound));
        // Random access gives the same values as a sequential pass: tests compute single frames.
        for (int64_t f : {int64_t(4999), int64_t(0), int64_t(1234)})
            for (int c = 2; c >= 0; --c)
                EXPECT_EQ(sample(sound, f, c), first[size_t(f * 3 + c)]);
        for (double v : first) {
            ASSERT_LE(std::abs(v), sound.amplitude);
            ASSERT_EQ(v, double(float(v))) << "samples must survive a float path unchanged";
        }
    }

    Sound noise;
    noise.signal = Signal::Noise;
    noise.frames = 20000;
    Sound otherSeed = noise;
    otherSeed.seed = 2;
    EXPECT_NE(generate(noise), generate(otherSeed));
    double sum = 0;
    for (double v : generate(noise))
        sum += v;
    EXPECT_LT(std::abs(sum / 40000), 0.01) << "noise should be centred";

    Sound ramp;
    ramp.signal = Signal::Ramp;
    ramp.frames = 101;
    EXPECT_EQ(sample(ramp, 0, 1), -0.5);
    EXPECT_EQ(sample(ramp, 50, 0), 0.0);
    EXPECT_EQ(sample(ramp, 100, 0), 0.5);

    Sound impulse;
    impulse.signal = Signal::Impulse;
    impulse.rate = 8000;
    impulse.frames = 16001;
    int nonZero = 0;
    for (double v : generate(impulse))
        nonZero += v != 0;
    EXPECT_EQ(nonZero, 3 * 2); // frames 0, 8000, 16000 in both channels
}

TEST(TestAudio, PatternChannelsAreDistinguishable) {
    Sound sound;
    sound.channels = 8;
    sound.frames = 4410;
    const std::vector<double> v = generate(sound);
    std::vector<double> mean(8, 0.0);
    for (int64_t f = 0; f < sound.frames; ++f)
        for (int c = 0; c < 8; ++c)
            mean[size_t(c)] += v[size_t(f * 8 + c)] / double(sound.frames);

    for (int a = 0; a < 8; ++a)
        for (int b = a + 1; b < 8; ++b) {
            int64_t differing = 0;
            for (int64_t f = 0; f < sound.frames; ++f)
                differing += std::abs(v[size_t(f * 8 + a)] - v[size_t(f * 8 + b)]) > 1e-3;
            EXPECT_GT(differing, sound.frames * 9 / 10) << "channels " << a << " and " << b;
        }
    // The offsets tell the channels apart even after a gain change or a resampling.
    EXPECT_NEAR(mean[0], 0.0, 1e-3);
    EXPECT_NEAR(mean[1], 0.0, 1e-3);
    for (int c = 2; c < 8; ++c)
        EXPECT_NEAR(mean[size_t(c)], 0.5 * c / 20.0, 2e-3) << "channel " << c;
    // A shifted channel shows at its first frame.
    EXPECT_EQ(sample(sound, 0, 0), 0.0);
    EXPECT_EQ(sample(sound, 0, 1), -0.5);
}

TEST(TestAudio, QuantisationRoundsHalfAwayFromZeroAndClips) {
    Sound sound;
    const double lsb = 1.0 / 32768;
    EXPECT_EQ(quantise(sound, 0.5 * lsb), lsb);
    EXPECT_EQ(quantise(sound, -0.5 * lsb), -lsb);
    EXPECT_EQ(quantise(sound, 0.49 * lsb), 0.0);
    EXPECT_EQ(quantise(sound, 1.0), 1.0 - lsb);
    EXPECT_EQ(quantise(sound, 2.0), 1.0 - lsb);
    EXPECT_EQ(quantise(sound, -1.5), -1.0);
    sound.encoding = LXSampleEncoding::pcm(32, false);
    EXPECT_EQ(quantise(sound, 1.0), 1.0 - std::ldexp(1.0, -31));
    sound.encoding = LXSampleEncoding::ieeeFloat(32, false);
    EXPECT_EQ(quantise(sound, 1.5), 1.5);
}

// Every integer depth and float, in WAV and AIFF, with a signal that stays inside the range and one
// that reaches full scale (where the writer must clip, not wrap).
TEST(TestAudio, WrittenFilesHoldExactlyTheExpectedSamples) {
    if (!haveTool("sox") || !haveTool("soxi")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());

    const Case cases[] = {
        {"wav8", LXFormat::WAVE, LXSampleEncoding::pcm(8, false, true)},
        {"wav16", LXFormat::WAVE, LXSampleEncoding::pcm(16, false)},
        {"wav24", LXFormat::WAVE, LXSampleEncoding::pcm(24, false)},
        {"wav32", LXFormat::WAVE, LXSampleEncoding::pcm(32, false)},
        {"wavf32", LXFormat::WAVE, LXSampleEncoding::ieeeFloat(32, false)},
        {"aif8", LXFormat::AIFF, LXSampleEncoding::pcm(8, true)},
        {"aif16", LXFormat::AIFF, LXSampleEncoding::pcm(16, true)},
        {"aif24", LXFormat::AIFF, LXSampleEncoding::pcm(24, true)},
        {"aif32", LXFormat::AIFF, LXSampleEncoding::pcm(32, true)},
        {"aifcf32", LXFormat::AIFC, LXSampleEncoding::ieeeFloat(32, true)},
    };
    for (const Case& c : cases) {
        for (Signal signal : {Signal::Pattern, Signal::Ramp}) {
            SCOPED_TRACE(std::string(c.name) + (signal == Signal::Pattern ? " pattern" : " full-scale ramp"));
            Sound sound;
            sound.signal = signal;
            sound.format = c.format;
            sound.encoding = c.encoding;
            sound.channels = signal == Signal::Pattern ? 3 : 1;
            sound.rate = signal == Signal::Pattern ? 48000 : 22050;
            sound.frames = 10007; // not a whole number of blocks
            sound.amplitude = signal == Signal::Pattern ? 0.5 : 1.0;
            const QString path = dir.filePath(QStringLiteral("%1-%2.%3")
                                                  .arg(QString::fromLatin1(c.name))
                                                  .arg(int(signal))
                                                  .arg(LXFormat::extension(c.format)));
            const auto written = write(path, sound);
            ASSERT_TRUE(written) << written.error().description().toStdString();
            EXPECT_EQ(*written, path);

            int status = -1;
            const QString bits =
                runTool(QStringLiteral("soxi"), {QStringLiteral("-b"), path}, &status).trimmed();
            EXPECT_EQ(status, 0);
            EXPECT_EQ(bits.toInt(), c.encoding.bits);

            const auto decoded = readWithSox(path);
            ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
            expectHolds(*decoded, sound, expectedExact(sound));
        }
    }
}

TEST(TestAudio, SplitSetsHoldOneChannelPerFile) {
    if (!haveTool("sox") || !haveTool("soxi")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    Sound sound;
    sound.channels = 2;
    sound.frames = 5000;
    sound.encoding = LXSampleEncoding::pcm(24, false);
    sound.interleaved = false;
    const auto lead = write(dir.filePath(QStringLiteral("take.wav")), sound);
    ASSERT_TRUE(lead) << lead.error().description().toStdString();

    // Every file of the folder is a member; sox reads the members by content, whatever their suffix.
    const QFileInfoList members = QDir(dir.path()).entryInfoList(QDir::Files, QDir::Name);
    ASSERT_EQ(members.size(), 2);
    const std::vector<double> want = expectedExact(sound);
    for (const QFileInfo& member : members) {
        SCOPED_TRACE(member.fileName().toStdString());
        const bool isLead = member.absoluteFilePath() == *lead;
        const auto decoded = readWithSox(member.absoluteFilePath());
        ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
        expectHolds(*decoded, sound, want, isLead ? 0 : 1);
    }
}

TEST(TestAudio, SoxHelpersReadThirdPartyFilesAndReportFailures) {
    if (!haveTool("sox") || !haveTool("soxi")) GTEST_SKIP() << "sox is not installed";
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("sox.aif"));
    const auto made = generateWithSox(
        path,
        {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("32000"), QStringLiteral("-b"),
         QStringLiteral("24"), QStringLiteral("-c"), QStringLiteral("3")},
        {QStringLiteral("synth"), QStringLiteral("0.5"), QStringLiteral("sine"), QStringLiteral("440")});
    ASSERT_TRUE(made) << made.error().description().toStdString();
    const auto decoded = readWithSox(path);
    ASSERT_TRUE(decoded) << decoded.error().description().toStdString();
    EXPECT_EQ(decoded->channels, 3);
    EXPECT_EQ(decoded->rate, 32000);
    EXPECT_EQ(decoded->frames(), 16000);
    // 24-bit samples: every value is a whole multiple of 2^-23, and the sine is there.
    double peak = 0;
    for (double v : decoded->samples) {
        ASSERT_EQ(v * 8388608.0, std::round(v * 8388608.0));
        peak = std::max(peak, std::abs(v));
    }
    EXPECT_GT(peak, 0.5);
    // Without dithering the file is the same every time.
    const QString again = dir.filePath(QStringLiteral("again.aif"));
    ASSERT_TRUE(generateWithSox(
        again,
        {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("32000"), QStringLiteral("-b"),
         QStringLiteral("24"), QStringLiteral("-c"), QStringLiteral("3")},
        {QStringLiteral("synth"), QStringLiteral("0.5"), QStringLiteral("sine"), QStringLiteral("440")}));
    EXPECT_EQ(readWithSox(again)->samples, decoded->samples);

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
    EXPECT_FALSE(generateWithSox(dir.filePath(QStringLiteral("bad.wav")), {QStringLiteral("-n")},
                                 {QStringLiteral("no-such-effect")}));
}
