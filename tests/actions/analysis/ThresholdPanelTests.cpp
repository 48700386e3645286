// The panel the threshold actions share, driven headless, and the line their previews show.

#include "EngineTestSupport.h"
#include "PanelTestSupport.h"

#include <QTemporaryDir>

// Levels snap to half decibels from a slider and stop at 0 dB when typed; the interval shows whole
// milliseconds (29 for 0.029 s, which is 28.999... ms in doubles), a typed negative one is 0. The preview
// counts the regions: one per impulse (one a second), the noun in the singular for one only.
TEST(ThresholdPanels, FollowTheirRulesAndCountTheRegions) {
    QTemporaryDir dir;
    for (const char* className : {"TWActionExtractThresholds", "TWActionLabelsAtThresholds"}) {
        Panel panel(className);
        panel.set(TWControlKind::Slider, "attack", -12.26);
        panel.set(TWControlKind::Field, "release", 3.0);
        panel.set(TWControlKind::Field, "interval", 29.8);
        EXPECT_EQ(panel.instruction("attack").toDouble(), -12.5);
        EXPECT_EQ(panel.text(TWControlKind::Field, "release"), "0.0 dB");
        EXPECT_DOUBLE_EQ(panel.instruction("interval").toDouble(), 0.029);
        EXPECT_EQ(panel.text(TWControlKind::Field, "interval"), "29 ms");
        panel.set(TWControlKind::Field, "interval", -40);
        EXPECT_EQ(panel.instruction("interval").toDouble(), 0.0);

        const bool labels = QString(className).contains("Labels");
        for (int seconds : {1, 3}) {
            const auto written = TestAudio::write(dir.filePath(QStringLiteral("%1.wav").arg(seconds)),
                                                  {.signal = TestAudio::Signal::Impulse, .frames = seconds * 44100});
            ASSERT_TRUE(written);
            auto file = LXAudioFile::open(*written);
            ASSERT_TRUE(file);
            panel.action->updatePreviewForAudioFile(**file);
            EXPECT_EQ(panel.action->previewValues().ranges.size(), seconds);
            EXPECT_EQ(panel.action->previewValues().infoText,
                      seconds == 1 ? (labels ? "1 label will be created" : "1 file will be extracted")
                                   : (labels ? "3 labels will be created" : "3 files will be extracted"));
        }
    }
}
