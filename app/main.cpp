#include "shell/TWSession.h"
#include "shell/cli/TWCommandLine.h"

#include "platform/TWCommandLineInteraction.h"
#include "ui/TWDialogInteraction.h"
#include "ui/TWWindow.h"

#include "model/TWWorkspace.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QIcon>

#include <optional>

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

// The paths to open in the window when every argument names a file or folder that exists (what the
// desktop passes when files are opened with the program), or nothing.
std::optional<QStringList> pathsToOpen(int argc, char** argv) {
    QStringList paths;
    for (int i = 1; i < argc; ++i) {
        const QString path = QFile::decodeName(argv[i]);
        if (path.startsWith(u'-') || !QFileInfo::exists(path)) return std::nullopt;
        paths.append(QFileInfo(path).absoluteFilePath());
    }
    return paths;
}

} // namespace

// With no arguments, or only files and folders, the window (or, with no display, the command line); with
// a command, the command line.
int main(int argc, char** argv) {
    if (const auto paths = pathsToOpen(argc, argv); paths && canShowWindow()) {
        QApplication app(argc, argv);
        describe();
        app.setWindowIcon(QIcon::fromTheme(QStringLiteral("clipwright"))); // installed with the desktop entry
        TWDialogInteraction interaction;
        TWSession session(TWSession::FrontEnd::Window, interaction);
        TWWindow window(session);
        if (!paths->isEmpty()) session.workspace().addFiles(*paths);
        window.show();
        return app.exec();
    }
    QCoreApplication app(argc, argv);
    describe();
    TWCommandLineInteraction interaction;
    const TWSession session(TWSession::FrontEnd::CommandLine, interaction);
    return TWCommandLine::run(session, app.arguments().mid(1));
}
