// The workspace window, shown off screen over a session of its own.

#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "shell/playback/TWNullOutput.h"
#include "ui/TWWindow.h"
#include "ui/waveform/TWWaveformView.h"

#include "TestAudio.h"
#include "model/TWWorkspace.h"

#include <QTemporaryDir>

#include <QAction>
#include <QSplitter>

#include <gtest/gtest.h>

TEST(Window, OpensWithItsAreasInPlace) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    session.workspace().removeAll(); // the one workspace outlives each test
    TWWindow window(session, std::make_unique<TWNullOutput>());
    window.show();
    EXPECT_EQ(window.windowTitle(), "Clipwright");
    for (const char* area : {"fileList", "waveform", "details", "progress", "workflow", "transport"})
        EXPECT_NE(window.findChild<QWidget*>(area), nullptr) << area;

    // The one selected file is the waveform's; two are none's.
    QTemporaryDir dir;
    const QStringList paths{*TestAudio::write(dir.filePath("a.wav"), {}), *TestAudio::write(dir.filePath("b.wav"), {})};
    const QList<TWEntryPtr> added = session.workspace().addFiles(paths);
    ASSERT_EQ(added.size(), 2);
    auto* waveform = window.findChild<TWWaveformView*>("waveform");
    session.workspace().setSelectedEntries({added.first()});
    EXPECT_EQ(waveform->path(), paths.first());
    session.workspace().setSelectedEntries(added);
    EXPECT_TRUE(waveform->path().isEmpty());

    // Add Files... asks through the interaction and adds what was chosen (with two rows selected there is
    // no place to add).
    session.workspace().clearSelection();
    const QString third = *TestAudio::write(dir.filePath("c.wav"), {});
    interaction.answerOpenPanels({{third}});
    TWInteraction::setCurrent(&interaction);
    for (QAction* action : window.findChildren<QAction*>())
        if (action->text() == "&Add Files...") action->trigger();
    TWInteraction::setCurrent(nullptr);
    EXPECT_EQ(session.workspace().fileEntries().size(), 3);
}
