// The searches that place cuts: zero crossings, and the regions between an attack and a release level.
// (Where labels land after an edit, and the searches by level on recordings, are checked end to end.)

#include "lx/LXAudioFile.h"
#include "lx/LXAudioFileWriter.h"

#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace {

// A mono file of the given samples, opened.
std::unique_ptr<LXAudioFile> fileOf(const QTemporaryDir& dir, const std::vector<float>& samples, int channels = 1) {
    LXAudioFileWriter writer(dir.path());
    writer.setFloat(32);
    writer.setChannels(channels);
    EXPECT_TRUE(writer.writeFrames(samples.data(), int64_t(samples.size()) / channels));
    EXPECT_TRUE(writer.endWrite());
    const QString path = dir.filePath(QStringLiteral("f%1.wav").arg(samples.size()));
    EXPECT_TRUE(writer.saveFile(0, path));
    auto file = LXAudioFile::open(path);
    return file ? std::move(*file) : nullptr;
}

} // namespace

// Crossings of the channels' mix: where it changes sign or touches zero, and the file's edges.
TEST(Edit, ZeroCrossingsAreFoundOutwardInTheMix) {
    QTemporaryDir dir;
    const std::vector<float> ramp{0.1f, 0.2f, 0.3f, -0.1f, -0.2f, -0.3f, 0.2f, 0.3f, 0.4f};
    std::vector<float> alike, opposite;
    for (float x : ramp) {
        alike.insert(alike.end(), {x, x});
        opposite.insert(opposite.end(), {x, -x});
    }
    const auto file = fileOf(dir, alike, 2);
    ASSERT_TRUE(file);
    EXPECT_EQ(*file->previousZeroCross(5), 3);
    EXPECT_EQ(*file->previousZeroCross(3), 3);
    EXPECT_EQ(*file->previousZeroCross(2), 0);
    EXPECT_EQ(*file->nextZeroCross(4), 6);
    EXPECT_EQ(*file->nextZeroCross(7), 9);
    EXPECT_EQ(*file->nextZeroCross(-5), 0);
    EXPECT_DOUBLE_EQ(*file->positionOfZeroCrossingAfter(3.5 / 44100.0), 6 / 44100.0) << "rounds outward";

    // Channels that cancel leave a mix of zeros: every place is a crossing.
    const auto cancelling = fileOf(dir, opposite, 2);
    ASSERT_TRUE(cancelling);
    EXPECT_EQ(*cancelling->previousZeroCross(5), 5);
}

// Regions open at the first frame that reaches the attack level and close once the level has stayed below
// the release level for the interval, ending after the last frame that reached it; a region may span the
// search's blocks or end with the file. A zero-crossing snap widens a region up to its neighbour only.
TEST(Edit, ThresholdRegionsOpenAtTheAttackAndCloseAfterTheInterval) {
    QTemporaryDir dir;
    using Regions = QList<std::pair<int64_t, int64_t>>;
    const auto regions = [&](Regions spans, const QList<float>& levels, int64_t length, int64_t interval,
                             bool zeroCross = false) {
        std::vector<float> samples(size_t(length), 0.0f);
        for (qsizetype i = 0; i < spans.size(); ++i)
            std::fill(samples.begin() + spans[i].first, samples.begin() + spans[i].second, levels[i]);
        const auto found = fileOf(dir, samples)->thresholdArray(0.1f, 0.01f, double(interval) / 44100.0, zeroCross);
        EXPECT_TRUE(found);
        Regions frames;
        for (const LXRange& range : found ? *found : QList<LXRange>{})
            frames.append({range.sampleStart(), range.sampleEnd()});
        return frames;
    };
    // Under the attack but over the release from 2000, and again after 100 frames under it at 2200.
    const Regions bursts{{1000, 2000}, {2000, 2100}, {2200, 2210}, {5000, 5100}, {16300, 16500}, {39990, 40000}};
    const QList<float> levels{-0.5f, 0.05f, 0.05f, 0.5f, 0.5f, 0.5f};
    const Regions rest{{5000, 5100}, {16300, 16500}, {39990, 40000}};
    EXPECT_EQ(regions(bursts, levels, 40000, 0), (Regions{{1000, 2100}} + rest)) << "0 closes at once";
    EXPECT_EQ(regions(bursts, levels, 40000, 100), (Regions{{1000, 2100}} + rest));
    EXPECT_EQ(regions(bursts, levels, 40000, 101), (Regions{{1000, 2210}} + rest));
    EXPECT_EQ(regions(bursts, levels, 40000, 5000), (Regions{{1000, 5100}, {16300, 16500}, {39990, 40000}}));
    EXPECT_EQ(regions({}, {}, 20000, 0, true), Regions{}) << "silence";

    const Regions faint{{100, 600}, {200, 300}, {400, 500}}; // two bursts within a faint stretch
    EXPECT_EQ(regions(faint, {0.001f, 0.5f, 0.5f}, 1000, 0), (Regions{{200, 300}, {400, 500}}));
    EXPECT_EQ(regions(faint, {0.001f, 0.5f, 0.5f}, 1000, 0, true), (Regions{{100, 400}, {400, 600}}));
}
