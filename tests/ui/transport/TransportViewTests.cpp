// The transport over a real player on the null output: play and stop, the neighbouring files, the
// volume, and the options kept in the preferences.

#include "TestAudio.h"
#include "model/TWFileEntry.h"
#include "model/TWWorkspace.h"
#include "platform/TWPreferences.h"
#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "shell/playback/TWNullOutput.h"
#include "shell/playback/TWPlayer.h"
#include "ui/transport/TWTransportView.h"

#include <QSlider>
#include <QTemporaryDir>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {

QAbstractButton* named(QWidget& parent, const QString& name) {
    for (auto* button : parent.findChildren<QAbstractButton*>())
        if (button->accessibleName() == name) return button;
    ADD_FAILURE() << "no button " << name.toStdString();
    return nullptr;
}

} // namespace

TEST(Transport, PlaysTheSelectionMovesThroughTheListAndKeepsItsOptions) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    session.workspace().removeAll(); // the one workspace outlives each test
    TWPlayer player(session.workspace(), TWPreferences::shared(), std::make_unique<TWNullOutput>());
    ASSERT_TRUE(player.construct());
    QTemporaryDir dir;
    const QStringList paths{*TestAudio::write(dir.filePath("a.wav"), {}), *TestAudio::write(dir.filePath("b.wav"), {})};
    ASSERT_EQ(session.workspace().addFiles(paths).size(), 2);
    TWTransportView transport(session.workspace(), player, TWPreferences::shared());

    named(transport, "Next")->click(); // nothing selected: the first
    ASSERT_EQ(session.workspace().selectedFileEntries().size(), 1);
    EXPECT_EQ(session.workspace().selectedFileEntries().first()->path(), paths[0]);
    named(transport, "Next")->click();
    EXPECT_EQ(session.workspace().selectedFileEntries().first()->path(), paths[1]);
    named(transport, "Next")->click(); // the last stays
    EXPECT_EQ(session.workspace().selectedFileEntries().first()->path(), paths[1]);
    named(transport, "Previous")->click();
    EXPECT_EQ(session.workspace().selectedFileEntries().first()->path(), paths[0]);

    named(transport, "Play")->click();
    EXPECT_TRUE(player.isPlaying());
    named(transport, "Stop")->click();
    EXPECT_FALSE(player.isPlaying());

    transport.findChild<QSlider*>()->setValue(50); // the first slider is the volume
    EXPECT_FLOAT_EQ(player.masterLayer().volume(), 0.5f);
    EXPECT_DOUBLE_EQ(TWPreferences::shared().doubleValue("Volume"), 0.5);
    const bool repeat = TWPreferences::shared().boolValue("Repeat");
    named(transport, "Repeat")->click();
    EXPECT_EQ(TWPreferences::shared().boolValue("Repeat"), !repeat);
}
