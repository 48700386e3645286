#include "actions/TWActions.h"
#include "lx/LXAudioFileWriter.h"
#include "lx/LXFile.h"
#include "model/TWWorkspace.h"
#include "platform/TWCommandLineInteraction.h"
#include "platform/TWPreferences.h"
#include "platform/TWSupportFolders.h"
#include "shell/TWCommandLine.h"

#include <QCoreApplication>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Clipwright"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CLIPWRIGHT_VERSION));

    TWPreferences& preferences = TWPreferences::shared();
    preferences.registerDefaults(TWPreferences::standardDefaults());
    LXAudioFileWriter::setRetainUnrecognizedDataDefault(
        preferences.boolValue(QStringLiteral("Retain Unrecognized Data")));
    LXFile::setSynchronousWrites(preferences.boolValue(QStringLiteral("Synchronous Writes")));
    (void)TWSupportFolders::createStandardFolders();

    TWRegisterActions();

    // FIXME: with no command this will open the window once it exists.
    TWCommandLineInteraction interaction;
    TWInteraction::setCurrent(&interaction);
    TWWorkspace& workspace = TWWorkspace::workspace();
    workspace.setHeadless(true);
    const int status = TWCommandLine::run(app.arguments().mid(1));
    workspace.stopWorkThread();
    TWInteraction::setCurrent(nullptr);
    return status;
}
