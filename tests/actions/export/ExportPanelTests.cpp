// The export panels, driven headless as the window drives them.

#include "PanelTestSupport.h"

TEST(ExportPanels, AacOffersWholeBitRatesAndVoxNamesOnlyHeadedFilesWav) {
    Panel aac("TWActionExportAAC");
    aac.set(TWControlKind::PopUp, "bitRate", 128000);
    EXPECT_EQ(aac.text(TWControlKind::PopUp, "bitRate"), "128 kbps");
    EXPECT_EQ(aac.instruction("bitRate").toLongLong(), 128000);

    Panel vox("TWActionExportVox");
    const qsizetype extension = vox.find(TWControlKind::CheckBox, "useWAVExtension");
    EXPECT_FALSE(vox.model.control(extension).enabled);
    vox.set(TWControlKind::CheckBox, "useWAVExtension", true); // refused while greyed
    EXPECT_FALSE(vox.instruction("useWAVExtension").toBool());
    vox.set(TWControlKind::CheckBox, "addWAVEHeader", true);
    EXPECT_TRUE(vox.model.control(extension).enabled);
    vox.set(TWControlKind::CheckBox, "useWAVExtension", true);
    EXPECT_EQ(vox.value(TWControlKind::CheckBox, "useWAVExtension"), QVariant(true));
    vox.set(TWControlKind::CheckBox, "addWAVEHeader", false); // the box is cleared with the header
    EXPECT_EQ(vox.value(TWControlKind::CheckBox, "useWAVExtension"), QVariant(false));
    EXPECT_FALSE(vox.model.control(extension).enabled);
}

// The MP3 quality slider runs from the fastest encoding to the best: it shows 9 minus the encoder's
// quality, and gives whole steps.
TEST(ExportPanels, TheMP3QualitySliderShowsTheEncodersScaleTurnedAround) {
    Panel mp3("TWActionExportMP3");
    EXPECT_EQ(mp3.value(TWControlKind::Slider, "quality").toInt(), 7);
    mp3.set(TWControlKind::Slider, "quality", 9);
    EXPECT_EQ(mp3.instruction("quality").toInt(), 0);
    mp3.set(TWControlKind::Slider, "quality", 2.6);
    EXPECT_EQ(mp3.instruction("quality").toInt(), 6);
    EXPECT_EQ(mp3.value(TWControlKind::Slider, "quality").toInt(), 3);
}
