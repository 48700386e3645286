// Compress and Expand: how their instructions reach the processor, and their panels' rules.

#include "PanelTestSupport.h"

#include "actions/dynamics/TWDynamicsActions.h"

namespace {

LXDynamicsSettings previewOf(Panel& panel) {
    return static_cast<LXDynamicsEntry&>(*panel.action->livePreviewEntry()).settings();
}

} // namespace

// The amount becomes the headroom (1 - amount) x 40 in single precision, never below the float nearest
// 0.1 dB; what the instructions leave out keeps the processor's default.
TEST(DynamicsActions, CompressMapsTheAmountToHeadroom) {
    EXPECT_EQ(TWActionCompress::headroomOfAmount(1.0), 0.1f);
    EXPECT_EQ(TWActionCompress::headroomOfAmount(0.9975), 0.1f);
    EXPECT_EQ(TWActionCompress::headroomOfAmount(0.5), 20.0f);
    EXPECT_EQ(TWActionCompress::headroomOfAmount(0.0), 40.0f);

    Panel compress("TWActionCompress");
    EXPECT_EQ(compress.action->requiredInstructionKeys(), QStringList({"threshold", "amount"}));
    compress.action->setInstructions({{"threshold", 12.5}, {"amount", 0.75}});
    const LXDynamicsSettings set = previewOf(compress);
    const LXDynamicsSettings defaults;
    EXPECT_EQ(set.threshold, 12.5f);
    EXPECT_EQ(set.headroom, 10.0f);
    EXPECT_EQ(set.attack, defaults.attack);
    EXPECT_EQ(set.release, defaults.release);
    EXPECT_EQ(set.gain, defaults.gain);
    EXPECT_EQ(set.expansionRatio, 1.0f);
}

// The ratio is read as an integer, and the compressor's threshold sits at full scale.
TEST(DynamicsActions, ExpandTakesAWholeRatioAndNoCompression) {
    Panel expand("TWActionExpand");
    EXPECT_EQ(expand.action->requiredInstructionKeys(), QStringList({"threshold", "ratio"}));
    expand.action->setInstructions({{"threshold", 45.0}, {"ratio", 2.7}});
    const LXDynamicsSettings set = previewOf(expand);
    EXPECT_EQ(set.expansionRatio, 2.0f);
    EXPECT_EQ(set.expansionThreshold, 45.0f);
    EXPECT_EQ(set.threshold, 0.0f);
    // The preview entry is bypassed while the action's preview is off.
    TWAction& action = *expand.action;
    action.setPreview(false);
    EXPECT_FALSE(action.livePreviewEntry()->isEnabled());
    action.setPreview(true);
    EXPECT_TRUE(action.livePreviewEntry()->isEnabled());
}

// Times in whole milliseconds, a typed time above 0 taken as 0; a typed threshold below 0 taken as 0 and
// shown truncated while its fraction is kept; the gain truncated into a signed 8-bit value.
TEST(DynamicsActions, CompressPanelKeepsItsRules) {
    Panel compress("TWActionCompress");
    compress.set(TWControlKind::Slider, "attack", 25.7);
    EXPECT_DOUBLE_EQ(compress.instruction("attack").toDouble(), 0.025);
    EXPECT_EQ(compress.text(TWControlKind::Field, "attack"), "25 ms");
    compress.set(TWControlKind::Field, "attack", 40);
    EXPECT_EQ(compress.instruction("attack").toDouble(), 0.0);

    compress.set(TWControlKind::Field, "threshold", -6);
    EXPECT_EQ(compress.instruction("threshold").toDouble(), 0.0);
    compress.set(TWControlKind::Slider, "threshold", -6);
    EXPECT_EQ(compress.instruction("threshold").toDouble(), -6.0);
    compress.set(TWControlKind::Field, "threshold", 18.75);
    EXPECT_EQ(compress.instruction("threshold").toDouble(), 18.75);
    EXPECT_EQ(compress.text(TWControlKind::Field, "threshold"), "18 dB");
    EXPECT_EQ(previewOf(compress).threshold, 18.75f);

    compress.set(TWControlKind::Field, "gain", 6.9);
    EXPECT_EQ(compress.instruction("gain").toDouble(), 6.0);
    compress.action->setInstructions({{"gain", 200.5}});
    EXPECT_EQ(compress.text(TWControlKind::Field, "gain"), "127 dB");

    compress.set(TWControlKind::Slider, "amount", 0.9975);
    EXPECT_EQ(previewOf(compress).headroom, 0.1f);
}
