// The workspace window, shown off screen over a session of its own.

#include "platform/TWScriptedInteraction.h"
#include "shell/TWSession.h"
#include "ui/TWWindow.h"

#include <QSplitter>

#include <gtest/gtest.h>

TEST(Window, OpensWithItsAreasInPlace) {
    TWScriptedInteraction interaction;
    TWSession session(TWSession::FrontEnd::Window, interaction);
    TWWindow window(session);
    window.show();
    EXPECT_EQ(window.windowTitle(), "Clipwright");
    for (const char* area : {"fileList", "waveform", "details", "workflow"})
        EXPECT_NE(window.findChild<QWidget*>(area), nullptr) << area;
}
