// The delivery actions' panels, driven headless: a password is typed into a field that hides it.

#include "PanelTestSupport.h"

TEST(DeliveryPanels, TheFtpPasswordIsSetButNeverShown) {
    Panel ftp("TWActionSendFTP");
    ASSERT_EQ(ftp.model.controls().size(), 4);
    ftp.set(TWControlKind::SecureField, "password", "s3cret");
    EXPECT_EQ(ftp.instruction("password"), "s3cret");
    EXPECT_EQ(ftp.value(TWControlKind::SecureField, "password"), "s3cret"); // what the field edits
    EXPECT_EQ(ftp.text(TWControlKind::SecureField, "password"), QString(6, QChar(0x2022)));
}
