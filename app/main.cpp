#include "shell/TWSession.h"
#include "shell/cli/TWCommandLine.h"

#include "platform/TWCommandLineInteraction.h"
#include "ui/TWDialogInteraction.h"
#include "ui/TWWindow.h"

#include <QApplication>
#include <QCoreApplication>

namespace {

void describe() {
    QCoreApplication::setApplicationName(QStringLiteral("Clipwright"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CLIPWRIGHT_VERSION));
}

// Whether a window can be shown: a display to show it on, or a platform chosen for it.
bool canShowWindow() {
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
}

} // namespace

// With no arguments, the window (or, with no display, the command line's usage); with a command, the
// command line.
int main(int argc, char** argv) {
    if (argc <= 1 && canShowWindow()) {
        QApplication app(argc, argv);
        describe();
        TWDialogInteraction interaction;
        TWSession session(TWSession::FrontEnd::Window, interaction);
        TWWindow window(session);
        window.show();
        return app.exec();
    }
    QCoreApplication app(argc, argv);
    describe();
    TWCommandLineInteraction interaction;
    const TWSession session(TWSession::FrontEnd::CommandLine, interaction);
    return TWCommandLine::run(session, app.arguments().mid(1));
}
