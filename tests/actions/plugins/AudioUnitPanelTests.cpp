// Process with Audio Unit's panel, headless: the effect chosen from the installed ones, a generic control
// per parameter, the output channels, and the live-preview entry following them.

#include "PanelTestSupport.h"
#include "TestPlugins.h"
#include "actions/plugins/TWActionAudioUnit.h"
#include "lx/plugins/LXAudioUnitEntry.h"

using namespace TestPlugins;

namespace {

qsizetype parameter(const Panel& panel, const QString& symbol) {
    for (qsizetype i = 0; i < panel.model.controls().size(); ++i)
        if (panel.model.controls()[i].part == symbol) return i;
    ADD_FAILURE() << "no control for " << symbol.toStdString();
    return 0;
}

QVariantMap settings(const Panel& panel) {
    return panel.instruction("settings").toMap();
}

TEST(AudioUnitPanel, AChosenEffectBringsAControlPerParameterAndTheLivePreviewFollowsThem) {
    Panel panel("TWActionAudioUnit");
    auto& action = static_cast<TWActionAudioUnit&>(*panel.action);
    const qsizetype units = parameter(panel, "Component");
    ASSERT_EQ(panel.model.controls()[units].kind, TWControlKind::PopUp);
    EXPECT_EQ(panel.model.controls()[units].choices.first().title, "Choose...");
    const qsizetype before = panel.model.controls().size();
    EXPECT_EQ(action.livePreviewEntry(), nullptr);
    panel.model.setValue(units, QString()); // "Choose..." chooses nothing
    EXPECT_FALSE(panel.action->instructions().contains("settings"));

    int changes = 0;
    QObject::connect(&panel.model, &TWPanelModel::controlsChanged, [&] { ++changes; });
    panel.model.setValue(units, QString::fromLatin1(kDubDelay));
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(settings(panel)["Name"], "MDA DubDelay");
    EXPECT_FLOAT_EQ(settings(panel)["Parameters"].toMap()["feedback"].toFloat(), 0.7f);
    EXPECT_EQ(panel.model.controls().size(), before + 7);
    const qsizetype feedback = parameter(panel, "feedback");
    const TWControl slider = panel.model.control(feedback);
    EXPECT_EQ(slider.kind, TWControlKind::Slider);
    EXPECT_EQ(slider.label, "Feedback");
    EXPECT_EQ(slider.maximum, 1.0);

    panel.model.setValue(feedback, 0.4);
    EXPECT_DOUBLE_EQ(panel.model.value(feedback).toDouble(), 0.4);
    panel.model.setValue(feedback, 3.0); // beyond the range: its end
    EXPECT_DOUBLE_EQ(settings(panel)["Parameters"].toMap()["feedback"].toDouble(), 1.0);
    panel.model.setValue(feedback, 0.25);

    // The live entry sounds the panel's values, and the same entry keeps sounding them as they move.
    panel.action->setPreview(true);
    const std::shared_ptr<LXEffectEntry> live = action.livePreviewEntry();
    ASSERT_NE(live, nullptr);
    auto& unit = static_cast<LXAudioUnitEntry&>(*live);
    EXPECT_FLOAT_EQ(unit.parameter("feedback"), 0.25f);
    EXPECT_TRUE(unit.isEnabled());
    panel.model.setValue(feedback, 0.6);
    panel.action->setPreview(false);
    EXPECT_EQ(action.livePreviewEntry(), live);
    EXPECT_FLOAT_EQ(unit.parameter("feedback"), 0.6f);
    EXPECT_FALSE(unit.isEnabled());

    // An effect with named values shows them in a pop-up.
    panel.model.setValue(units, QString::fromLatin1(kNoDelay));
    const TWControl mode = panel.model.control(parameter(panel, "report_latency"));
    EXPECT_EQ(mode.kind, TWControlKind::PopUp);
    EXPECT_EQ(mode.choices.size(), 4);
    EXPECT_NE(action.livePreviewEntry(), live); // another effect, another entry
}

TEST(AudioUnitPanel, OutputChannelsAndTheTailMaximumFollowTheirSwitches) {
    Panel panel("TWActionAudioUnit");
    EXPECT_FALSE(panel.model.control(panel.find(TWControlKind::Field, "retainTailMax")).enabled);
    panel.set(TWControlKind::CheckBox, "retainTail", true);
    EXPECT_TRUE(panel.model.control(panel.find(TWControlKind::Field, "retainTailMax")).enabled);

    const qsizetype count = panel.find(TWControlKind::Field, "outputChannels");
    EXPECT_FALSE(panel.model.control(count).enabled);
    EXPECT_EQ(panel.value(TWControlKind::RadioGroup, "outputChannels"), 0);
    panel.set(TWControlKind::RadioGroup, "outputChannels", 1);
    EXPECT_EQ(panel.instruction("outputChannels"), 2);
    EXPECT_TRUE(panel.model.control(count).enabled);
    panel.model.setValue(count, 6);
    panel.model.setValue(count, 0); // refused: the radio button says how many
    EXPECT_EQ(panel.instruction("outputChannels"), 6);
    panel.set(TWControlKind::RadioGroup, "outputChannels", 0);
    EXPECT_EQ(panel.instruction("outputChannels"), 0);
    EXPECT_EQ(panel.value(TWControlKind::RadioGroup, "outputChannels"), 0);
}

} // namespace
