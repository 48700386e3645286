// The workspace window, shown off screen over a session of its own.

#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "shell/playback/TWNullOutput.h"
#include "ui/TWWindow.h"
#include "ui/waveform/TWWaveformView.h"
#include "ui/workflow/TWActionView.h"
#include "ui/workflow/TWWorkflowEditorView.h"

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
    const auto trigger = [&](const QString& text) {
        for (QAction* action : window.findChildren<QAction*>())
            if (action->text() == text) action->trigger();
    };
    trigger("&Add Files...");
    EXPECT_EQ(session.workspace().fileEntries().size(), 3);

    // A workflow saved and opened again comes back with its actions.
    auto* editor = window.findChild<TWWorkflowEditorView*>("workflow");
    while (!editor->actionViews().empty()) editor->removeAction(0);
    editor->insertAction("TWActionNormalize", 0);
    editor->insertAction("TWActionFadeInFor", 1);
    const QString saved = dir.filePath("two.twwf");
    interaction.answerSavePanels({saved});
    trigger("&Save Workflow...");
    while (!editor->actionViews().empty()) editor->removeAction(0);
    interaction.answerOpenPanels({{saved}});
    trigger("&Open Workflow...");
    TWInteraction::setCurrent(nullptr);
    ASSERT_EQ(editor->actionViews().size(), 2u);
    EXPECT_EQ(editor->actionViews()[1]->action().className(), "TWActionFadeInFor");
}
