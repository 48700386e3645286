// The editing actions' panels, driven headless as the window drives them, and the previews they compute
// for the waveform view.

#include "EngineTestSupport.h"
#include "PanelTestSupport.h"

#include <QTemporaryDir>

// The slider stands for a share of the unit's full scale; the field holds the value in the unit, in the
// unit's number format; a new unit keeps the value and moves the slider.
TEST(EditPanels, DurationsFollowTheirUnit) {
    Panel fade("TWActionFadeInFor");
    const QString units = "units", value = "for";
    fade.set(TWControlKind::PopUp, units, 0);
    fade.set(TWControlKind::Slider, value, 0.25);
    EXPECT_EQ(fade.text(TWControlKind::Field, value), "250.00 ms");
    EXPECT_EQ(fade.text(TWControlKind::Label, units), "ms");
    EXPECT_EQ(TWPanelModel::numberFormat(fade.model.control(fade.find(TWControlKind::Field, value)).decimals), "0.00");

    const QList<std::tuple<int, const char*, double>> looks{
        {1, "250.000 s", 25.0}, {2, "250", 250.0 / 48000}, {3, "250.0 %", 2.5}};
    for (const auto& [unit, text, slider] : looks) {
        fade.set(TWControlKind::PopUp, units, unit);
        EXPECT_EQ(fade.text(TWControlKind::Field, value), text);
        EXPECT_DOUBLE_EQ(fade.value(TWControlKind::Slider, value).toDouble(), slider);
    }
    fade.set(TWControlKind::Field, value, 12.5);
    EXPECT_EQ(fade.instruction(value).toDouble(), 12.5);
    EXPECT_EQ(fade.instruction(units).toInt(), 3);

    // A script's four-character code picks the same unit as the number.
    const TWInstructionKey key = fade.action->instructionKeys().first();
    EXPECT_EQ(key.converted(QStringLiteral("PERC")), QVariant(qint64(3)));
    EXPECT_EQ(key.converted(qint64(LXFourCC("MLSC"))), QVariant(qint64(0)));
    EXPECT_EQ(key.value({{units, 7}}).toInt(), 7) << "an unknown unit is kept, and reads as seconds";
}

// Thresholds snap to half decibels from the slider and stop at 0 dB when typed; offsets show whole
// milliseconds and are kept in seconds.
TEST(EditPanels, LevelsAndOffsetsFollowTheirRules) {
    Panel trim("TWActionTrimBeginningBelow");
    trim.set(TWControlKind::Slider, "beginningBelow", -40.3);
    EXPECT_EQ(trim.instruction("beginningBelow").toDouble(), -40.5);
    trim.set(TWControlKind::Field, "beginningBelow", 2.0);
    EXPECT_EQ(trim.instruction("beginningBelow").toDouble(), 0.0);
    trim.set(TWControlKind::Field, "offset", -12.7);
    EXPECT_DOUBLE_EQ(trim.instruction("offset").toDouble(), -0.012);
    trim.action->setInstructions({{"offset", 0.0259}});
    EXPECT_EQ(trim.text(TWControlKind::Field, "offset"), "25 ms");

    Panel pad("TWActionPad");
    pad.set(TWControlKind::Slider, "startFor", 250.4);
    EXPECT_DOUBLE_EQ(pad.instruction("startFor").toDouble(), 0.25);
    Panel extend("TWActionExtend");
    extend.set(TWControlKind::Slider, "edge", 0.25);
    EXPECT_EQ(extend.model.text(2), "75 %");
    EXPECT_EQ(extend.model.text(3), "25 %");
}

// What the waveform view draws: where a fade ends or begins and its curve, and where a cut falls.
TEST(EditPanels, PreviewsFollowThePanelOnTheShownFile) {
    QTemporaryDir dir;
    auto written = TestAudio::write(dir.filePath("a.wav"), {.frames = 44100});
    ASSERT_TRUE(written);
    auto file = LXAudioFile::open(*written);
    ASSERT_TRUE(file);

    Panel in("TWActionFadeInFor"), out("TWActionFadeOutFor"), loop("TWActionTrimAroundLoop");
    in.action->setInstructions({{"units", 0}, {"for", 250.0}, {"curve", 0.3}});
    in.action->updatePreviewForAudioFile(**file);
    EXPECT_EQ(in.action->previewValues().values, (QList<double>{0.25, double(0.3f)}));
    out.action->setInstructions({{"units", 1}, {"for", 5.0}});
    out.action->updatePreviewForAudioFile(**file);
    EXPECT_EQ(out.action->previewValues().values, (QList<double>{0.0, 0.5})) << "a fade longer than the file";
    loop.action->updatePreviewForAudioFile(**file);
    EXPECT_TRUE(loop.action->previewValues().isEmpty()) << "no loops, nothing to show";
}
