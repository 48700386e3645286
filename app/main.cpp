#include "shell/TWSession.h"
#include "shell/cli/TWCommandLine.h"

#include "platform/TWCommandLineInteraction.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Clipwright"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CLIPWRIGHT_VERSION));

    // FIXME: with no command this will open the window once it exists.
    TWCommandLineInteraction interaction;
    const TWSession session(TWSession::FrontEnd::CommandLine, interaction);
    return TWCommandLine::run(session, app.arguments().mid(1));
}
