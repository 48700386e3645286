// The panels of the conversions, and Convert Channels' matrices as the program brings them.

#include "EngineTestSupport.h"
#include "PanelTestSupport.h"

using namespace EngineTest;

namespace {

const qint64 kNone = LXFourCC("NONE");
const qint64 kTriangular = LXFourCC("TPDF");

class MatrixRuns : public Fixture {};

} // namespace

TEST(ConvertPanels, DitherIsOfferedOnlyForDepthsItCanImprove) {
    Panel panel("TWActionConvertRange");
    panel.set(TWControlKind::PopUp, "dither", kTriangular);
    EXPECT_EQ(panel.model.control(panel.find(TWControlKind::PopUp, "dither")).choices.size(), 3);
    panel.set(TWControlKind::PopUp, "depth", 32);
    EXPECT_EQ(panel.model.control(panel.find(TWControlKind::PopUp, "dither")).choices.size(), 1);
    EXPECT_EQ(panel.value(TWControlKind::PopUp, "dither").toLongLong(), kNone);
    panel.set(TWControlKind::PopUp, "depth", 24); // the choice comes back with the depth
    EXPECT_EQ(panel.value(TWControlKind::PopUp, "dither").toLongLong(), kTriangular);

    // A workflow of an older version names the depth "range".
    panel.action->setInstructions({{"range", 8}});
    EXPECT_EQ(panel.instruction("depth").toInt(), 8);
    panel.action->setInstructions({{"range", 8}, {"depth", 20}});
    EXPECT_EQ(panel.instruction("depth").toInt(), 20);
}

TEST(ConvertPanels, RatesAreTypedOrPickedAndQualitySnapsToTheConvertersRecipes) {
    Panel panel("TWActionConvertRate");
    panel.set(TWControlKind::Field, "rate", "96000");
    EXPECT_EQ(panel.instruction("rate").toDouble(), 96000.0);
    panel.set(TWControlKind::Field, "rate", "fast"); // refused
    panel.set(TWControlKind::Field, "rate", "-5");
    EXPECT_EQ(panel.instruction("rate").toDouble(), 96000.0);
    panel.set(TWControlKind::Slider, "quality", 0.6);
    EXPECT_EQ(panel.instruction("quality").toDouble(), 0.5);
    EXPECT_EQ(panel.action->requiredInstructionKeys(), QStringList{"rate"});
}

TEST_F(MatrixRuns, TheMatrixPopUpListsTheProgramsMatricesAndAnUnknownCodeStopsTheRun) {
    Panel panel("TWActionConvertChannels");
    const TWControl popUp = panel.model.control(panel.find(TWControlKind::PopUp, "matrix"));
    ASSERT_GE(popUp.choices.size(), 10);
    EXPECT_EQ(popUp.choices.first().title, "Stereo to Mono");
    EXPECT_EQ(panel.instruction("matrix").toInt(), 1);
    panel.set(TWControlKind::PopUp, "matrix", 8);
    EXPECT_TRUE(panel.text(TWControlKind::Label, "matrix").contains("BS.775"));

    const TWFileEntryPtr entry = addFile("stereo.wav");
    const auto error = run(instructions("TWActionConvertChannels", {{"matrix", 999}}), {entry});
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), -2);
}
