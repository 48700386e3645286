#include "LXAudioFileWriter.h"
#include "LXFile.h"
#include "TWActions.h"
#include "TWCommandLine.h"
#include "TWCommandLineInteraction.h"
#include "TWPreferences.h"
#include "TWSupportFolders.h"
#include "TWWorkspace.h"

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
