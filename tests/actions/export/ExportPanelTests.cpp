// The export panels: the AAC rates offered in bit/s, and the Vox extension box that follows the header box.

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
