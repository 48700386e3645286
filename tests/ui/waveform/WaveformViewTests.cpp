// The waveform view, drawn off screen from a real file's analysis: lanes, zoom and the selection.

#include "TestAudio.h"
#include "lx/LXAnalysis.h"
#include "lx/LXAudioFile.h"
#include "ui/waveform/TWWaveformView.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

namespace {

class Waveform : public ::testing::Test {
protected:
    void SetUp() override {
        // Channel 0 a sine at 0.9, channel 1 silent: ink far from the middle of the first lane only.
        TestAudio::Sound sound{.signal = TestAudio::Signal::Sine, .channels = 1, .frames = 44100, .amplitude = 0.9};
        auto loud = TestAudio::write(dir.filePath("loud.wav"), sound);
        ASSERT_TRUE(loud);
        sound.signal = TestAudio::Signal::Silence;
        auto quiet = TestAudio::write(dir.filePath("quiet.wav"), sound);
        ASSERT_TRUE(quiet);
        for (const QString& path : {*loud, *quiet}) {
            auto file = LXAudioFile::open(path);
            ASSERT_TRUE(file);
            ASSERT_TRUE(LXAnalyze(**file, 0));
        }
        view.resize(1000, 200);
    }
    void show(const QString& name) {
        QSignalSpy loaded(&view, &TWWaveformView::overviewLoaded);
        view.setFile(dir.filePath(name));
        ASSERT_TRUE(loaded.wait(5000));
    }
    // Whether the column holds the waveform's colour near the top of the lane.
    bool inkNearTop(int x) {
        const QImage image = view.grab().toImage();
        const QColor ink = view.palette().color(QPalette::Text);
        for (int y = 5; y < 30; ++y)
            if (image.pixelColor(x, y) == ink) return true;
        return false;
    }

    QTemporaryDir dir;
    TWWaveformView view;
};

TEST_F(Waveform, LanesAreDrawnFromTheAnalysis) {
    show("loud.wav");
    EXPECT_TRUE(inkNearTop(500));
    show("quiet.wav");
    EXPECT_FALSE(inkNearTop(500));
}

TEST_F(Waveform, ZoomKeepsThePointUnderThePointerAndADragSelects) {
    show("loud.wav");
    view.zoomBy(4, 0.5);
    EXPECT_DOUBLE_EQ(view.visibleRange().start(), 0.375);
    EXPECT_DOUBLE_EQ(view.visibleRange().length(), 0.25);
    view.zoomBy(0.01, 0.5); // no further out than the whole file
    EXPECT_DOUBLE_EQ(view.visibleRange().length(), 1.0);

    QSignalSpy selected(&view, &TWWaveformView::selectionChanged);
    QTest::mousePress(&view, Qt::LeftButton, {}, QPoint(100, 100));
    QTest::mouseMove(&view, QPoint(300, 100));
    QTest::mouseRelease(&view, Qt::LeftButton, {}, QPoint(300, 100));
    ASSERT_EQ(selected.size(), 1);
    EXPECT_NEAR(view.selection().start(), 0.1, 0.001);
    EXPECT_NEAR(view.selection().end(), 0.3, 0.001);
    view.zoomToSelection();
    EXPECT_NEAR(view.visibleRange().length(), 0.2, 0.001);
    QTest::mouseClick(&view, Qt::LeftButton, {}, QPoint(500, 100)); // a click clears it
    EXPECT_EQ(view.selection().length(), 0.0);
}

} // namespace
