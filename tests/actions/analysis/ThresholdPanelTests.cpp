// The panel the threshold actions share, driven headless, and the line their previews show.

#include "EngineTestSupport.h"
#include "PanelTestSupport.h"

#include "TestAudio.h"

#include <QTemporaryDir>

// Levels snap to half decibels from a slider and stop at 0 dB when typed; the interval shows whole
// milliseconds, a typed negative one is 0, and the instructions keep seconds.
TEST(ThresholdPanels, LevelsAndIntervalFollowTheirRules) {
    for (const char* className : {"TWActionExtractThresholds", "TWActionLabelsAtThresholds"}) {
        SCOPED_TRACE(className);
        Panel panel(className);
        panel.set(TWControlKind::Slider, "attack", -12.26);
        EXPECT_EQ(panel.instruction("attack").toDouble(), -12.5);
        panel.set(TWControlKind::Field, "release", 3.0);
        EXPECT_EQ(panel.instruction("release").toDouble(), 0.0);
        EXPECT_EQ(panel.text(TWControlKind::Field, "release"), "0.0 dB");
        panel.set(TWControlKind::Field, "interval", 29.8);
        EXPECT_DOUBLE_EQ(panel.instruction("interval").toDouble(), 0.029);
        EXPECT_EQ(panel.value(TWControlKind::Slider, "interval"), QVariant(qint64(29)));
        panel.set(TWControlKind::Field, "interval", -40);
        EXPECT_EQ(panel.instruction("interval").toDouble(), 0.0);
        panel.action->setInstructions({{"interval", 0.0509}});
        EXPECT_EQ(panel.text(TWControlKind::Field, "interval"), "50 ms");
    }
    Panel labels("TWActionLabelsAtThresholds");
    labels.set(TWControlKind::Segmented, "type", 2);
    EXPECT_EQ(labels.instruction("type").toInt(), 2);
}

// One region per impulse (one a second); the line counts them, "file" or "label" alone only for one.
TEST(ThresholdPanels, PreviewsCountTheRegions) {
    QTemporaryDir dir;
    Panel extract("TWActionExtractThresholds"), labels("TWActionLabelsAtThresholds");
    const struct {
        TestAudio::Signal signal;
        int64_t frames;
        const char* files;
        const char* labels;
    } cases[] = {{TestAudio::Signal::Impulse, 3 * 44100, "3 files will be extracted", "3 labels will be created"},
                 {TestAudio::Signal::Impulse, 44100, "1 file will be extracted", "1 label will be created"},
                 {TestAudio::Signal::Silence, 44100, "0 files will be extracted", "0 labels will be created"}};
    for (const auto& c : cases) {
        const auto written = TestAudio::write(dir.filePath(QStringLiteral("%1.wav").arg(c.files)),
                                              {.signal = c.signal, .channels = 1, .frames = c.frames});
        ASSERT_TRUE(written);
        auto file = LXAudioFile::open(*written);
        ASSERT_TRUE(file);
        extract.action->updatePreviewForAudioFile(**file);
        labels.action->updatePreviewForAudioFile(**file);
        EXPECT_EQ(extract.action->previewValues().infoText, c.files);
        EXPECT_EQ(labels.action->previewValues().infoText, c.labels);
        EXPECT_EQ(extract.action->previewValues().ranges.size(), labels.action->previewValues().ranges.size());
    }
}
