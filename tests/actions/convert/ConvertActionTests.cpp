// Reverse and Filter DC Offset on real files, with sox reading the results.

#include "EngineTestSupport.h"

#include <numeric>

using namespace EngineTest;

namespace {

class ConvertActions : public Fixture {};

double meanOf(const std::vector<double>& samples, int channels, int channel) {
    double sum = 0;
    for (size_t i = size_t(channel); i < samples.size(); i += size_t(channels))
        sum += samples[i];
    return sum / double(samples.size() / size_t(channels));
}

} // namespace

TEST_F(ConvertActions, ReverseMatchesSoxAndItsLabelsFollowTheAudio) {
    TestAudio::Sound sound;
    sound.frames = 40001; // not a whole number of blocks
    sound.encoding = LXSampleEncoding::pcm(24, false);
    const TWFileEntryPtr source = addFile("s24.wav", sound);
    ASSERT_TRUE(TestAudio::generateWithSox(path("sox.wav"), {source->path()}, {"reverse"}));
    QList<TWFileEntryPtr> results;
    ASSERT_FALSE(run(instructions("TWActionReverse", {}, true), {source}, &results));
    ASSERT_EQ(results.size(), 1);
    EXPECT_EQ(soxSamples(results.first()->path()), soxSamples(path("sox.wav")));

    // In place, with a marker and a region that move to where the same sound now is.
    const TWFileEntryPtr entry = addFile("labels.wav");
    {
        auto file = LXAudioFile::open(entry->path());
        ASSERT_TRUE(file);
        LXAudioFileWriter writer(**file);
        writer.markerList().addMarkerWithPosition(TestAudio::seconds(1000), "Hit");
        writer.regionList().addRegionWithRange(
            LXRange::rangeWithLocation(TestAudio::seconds(100), TestAudio::seconds(400)), "Tail");
        ASSERT_TRUE((*file)->copyToWriter(writer));
        ASSERT_TRUE(writer.saveFile(0, entry->path()));
    }
    ASSERT_FALSE(run(instructions("TWActionReverse"), {entry}));
    auto reversed = LXAudioFile::open(entry->path());
    ASSERT_TRUE(reversed);
    EXPECT_NEAR((*reversed)->markerList().labelAtIndex(0).start, TestAudio::seconds(4410 - 1000), 1e-6);
    EXPECT_NEAR((*reversed)->regionList().labelAtIndex(0).start, TestAudio::seconds(4410 - 500), 1e-6);
    EXPECT_EQ(runs().undoStack().count(), 1);
}

TEST_F(ConvertActions, FilterDCRemovesTheOffsetWithoutAStepAtTheStart) {
    // 0.2 of offset under a 440 Hz sine at -6 dB, 24-bit stereo.
    const QString source = path("offset.wav");
    ASSERT_TRUE(TestAudio::generateWithSox(source, {"-n", "-r", "44100", "-b", "24", "-c", "2"},
                                           {"synth", "2", "sine", "440", "gain", "-6", "dcshift", "0.2"}));
    const std::vector<double> before = soxSamples(source);
    // sox's high-pass, by contrast, starts from rest and answers the offset with a step.
    ASSERT_TRUE(TestAudio::generateWithSox(path("sox.wav"), {source}, {"highpass", "10"}));
    const std::vector<double> sox = soxSamples(path("sox.wav"));
    EXPECT_GT(std::fabs(sox[0] - (before[0] - meanOf(before, 2, 0))), 0.1);

    const TWFileEntryPtr entry = add(source);
    QList<TWFileEntryPtr> made;
    ASSERT_FALSE(run(instructions("TWActionFilterDC", {}, true), {entry}, &made));
    ASSERT_FALSE(run(instructions("TWActionFilterDC"), {entry})); // and in place
    for (const QString& filtered : {made.first()->path(), entry->path()}) {
        SCOPED_TRACE(filtered.toStdString());
        const std::vector<double> after = soxSamples(filtered);
        ASSERT_EQ(after.size(), before.size());
        for (int c = 0; c < 2; ++c) {
            EXPECT_LT(std::fabs(meanOf(after, 2, c)), 1e-3) << "the DC that remains";
            const double offset = meanOf(before, 2, c);
            double step = 0; // over the first 10 ms: the output against the input less its offset
            for (size_t i = size_t(c); i < 441 * 2; i += 2)
                step = std::max(step, std::fabs(after[i] - (before[i] - offset)));
            EXPECT_LT(step, 0.01);
        }
    }
}
