// The time and pitch panels, driven headless: the speed slider's two halves and the interval shown as
// octaves, semitones and a direction.

#include "PanelTestSupport.h"

#include "model/TWFormatters.h"

// The slider covers 50 % to 200 % with 100 % in the middle; the field shows a percentage; the key holds a
// ratio.
TEST(TimePanels, SpeedSliderHasTwoHalves) {
    Panel speed("TWActionChangeSpeed");
    const QString factor = "factor";
    speed.set(TWControlKind::Slider, factor, -1.0);
    EXPECT_DOUBLE_EQ(speed.instruction(factor).toDouble(), 0.5);
    speed.set(TWControlKind::Slider, factor, 0.5);
    EXPECT_DOUBLE_EQ(speed.instruction(factor).toDouble(), 1.5);
    EXPECT_DOUBLE_EQ(speed.value(TWControlKind::Field, factor).toDouble(), 150.0);
    speed.set(TWControlKind::Field, factor, 75.0);
    EXPECT_DOUBLE_EQ(speed.instruction(factor).toDouble(), 0.75);
    EXPECT_DOUBLE_EQ(speed.value(TWControlKind::Slider, factor).toDouble(), -0.5);
}

TEST(TimePanels, IntervalIsOctavesSemitonesAndDirection) {
    Panel transpose("TWActionTranspose");
    const auto index = [&](const char* label) {
        for (qsizetype i = 0; i < transpose.model.controls().size(); ++i)
            if (transpose.model.controls()[i].label == QLatin1String(label)) return i;
        return qsizetype(-1);
    };
    transpose.model.setValue(index("Octaves"), 1);
    transpose.model.setValue(index("Interval"), 7);
    EXPECT_EQ(transpose.instruction("interval").toInt(), 19);
    transpose.set(TWControlKind::Segmented, "interval", 1);
    EXPECT_EQ(transpose.instruction("interval").toInt(), -19);
    EXPECT_EQ(transpose.model.value(index("Octaves")).toInt(), 1);
    EXPECT_EQ(transpose.model.value(index("Interval")).toInt(), 7);
}

// The length shows in the format picked beside it (hours at first) and is typed in that format; the
// format changes only how it shows.
TEST(TimePanels, LengthShowsInTheFormatPicked) {
    Panel length("TWActionChangeLength");
    length.set(TWControlKind::Field, "length", QStringLiteral("0:00:02.500"));
    EXPECT_DOUBLE_EQ(length.instruction("length").toDouble(), 2.5);
    length.set(TWControlKind::PopUp, "length", int(TWTimeFormatMilliseconds));
    EXPECT_EQ(length.text(TWControlKind::Field, "length"), "2500 ms");
    EXPECT_DOUBLE_EQ(length.instruction("length").toDouble(), 2.5);
    length.set(TWControlKind::Field, "length", QStringLiteral("3000 ms"));
    EXPECT_DOUBLE_EQ(length.instruction("length").toDouble(), 3.0);
    length.set(TWControlKind::Field, "length", QStringLiteral("soon"));
    EXPECT_DOUBLE_EQ(length.instruction("length").toDouble(), 3.0) << "text that is no time is refused";
}
